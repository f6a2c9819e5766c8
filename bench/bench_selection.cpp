// What the selection of the files to download costs when every second one is in place, and how the
// cost grows with the number of files.

#include "bench/BenchmarkMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

namespace {

QVector<ProgramFile> everySecondInPlace(int count)
{
    ProgramFile inPlace;
    inPlace.name = QStringLiteral("empty");
    inPlace.sha1 = QStringLiteral("da39a3ee5e6b4b0d3255bfef95601890afd80709");
    ProgramFile missing = inPlace;
    missing.name = QStringLiteral("missing");
    QVector<ProgramFile> files;
    for (int number = 0; number < count; ++number)
        files.append(number % 2 == 0 ? inPlace : missing);
    return files;
}

void selection(benchmark::State& state)
{
    const QTemporaryDir dir;
    QFile(dir.filePath(QStringLiteral("empty"))).open(QIODevice::WriteOnly);
    Updater updater(QString(), dir.path(), QString(), QString(), QString(), QString());
    UpdaterProbe run(updater);
    const QVector<ProgramFile> files = everySecondInPlace(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        run.programData.files = files;
        run.selectFiles();
    }
    if (run.programData.files.size() != files.size() / 2)
        state.SkipWithError("wrong selection");
    finish(state);
}

BENCHMARK(selection)->Apply(sizes);

} // namespace

UPDATER_BENCHMARK_MAIN(QCoreApplication)
