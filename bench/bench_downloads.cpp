// What one update of the progress dialog's label costs, from one file to the next: the same however
// many files are left.

#include "bench/BenchmarkMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QApplication>
#include <QProgressDialog>

namespace {

void label(benchmark::State& state)
{
    const int count = static_cast<int>(state.range(0));
    Updater updater{QString(), QString(), QString(), QString(), QString(), QString()};
    UpdaterProbe run(updater);
    ProgramFile file;
    file.size = 8192;
    run.programData.files.fill(file, count);
    run.progressDialog = new QProgressDialog; // Goes with the updater.
    run.progressDialog->setRange(0, count);
    run.progressDialog->show();
    for (auto _ : state) {
        run.currentFile = (run.currentFile + 1) % count;
        updater.updateProgressLabel();
    }
    const QString expected = QStringLiteral("file %1 of %2 (%3 MB")
                                 .arg(run.currentFile + 1)
                                 .arg(count)
                                 .arg((count - run.currentFile) / 128.0, 0, 'f', 2);
    if (!run.progressDialog->labelText().contains(expected))
        state.SkipWithError("wrong label");
    finish(state);
}

/// What the dialog itself takes of that.
void labelTextAlone(benchmark::State& state)
{
    QProgressDialog dialog;
    dialog.show();
    const QString texts[] = {QStringLiteral("Downloading file 1 of 2000 (15.63 MB left)"),
                             QStringLiteral("Downloading file 2 of 2000 (15.62 MB left)")};
    size_t number = 0;
    for (auto _ : state)
        dialog.setLabelText(texts[++number % 2]);
}

BENCHMARK(label)->Apply(sizes)->Complexity(benchmark::o1);
BENCHMARK(labelTextAlone)->Unit(benchmark::kMicrosecond);

} // namespace

UPDATER_BENCHMARK_MAIN(QApplication)
