// What writing and reading a manifest costs, and how the cost grows with the number of files.

#include "bench/BenchmarkMain.h"
#include "updater/Updater.h"

namespace {

ProgramData record(int files)
{
    ProgramData data;
    data.name = QStringLiteral("Editor");
    data.version = QStringLiteral("2.1");
    data.changelog = QString(2000, QLatin1Char('Q'));
    for (int number = 0; number < files; ++number) {
        ProgramFile file;
        file.name = QStringLiteral("Contents/Resources/%1.dat").arg(number);
        file.sha1 = QString::number(number, 16).rightJustified(40, QLatin1Char('0'));
        file.size = static_cast<quint64>(number);
        data.files.append(file);
    }
    return data;
}

Updater& updater()
{
    static Updater instance{QString(), QString(), QString(), QString(), QString(), QString()};
    return instance;
}

QString textOf(const ProgramData& data)
{
    QString text;
    updater().programDataToXml(data, text);
    return text;
}

void write(benchmark::State& state)
{
    const ProgramData data = record(static_cast<int>(state.range(0)));
    for (auto _ : state)
        benchmark::DoNotOptimize(textOf(data));
    finish(state);
}

void read(benchmark::State& state, const QString& betweenFiles)
{
    const QString text =
        textOf(record(static_cast<int>(state.range(0))))
            .replace(QLatin1String("</file>"), QLatin1String("</file>") + betweenFiles);
    for (auto _ : state) {
        ProgramData data;
        benchmark::DoNotOptimize(updater().xmlToProgramData(QStringLiteral("Editor"), text, data));
    }
    finish(state);
}

BENCHMARK(write)->Apply(sizes);
BENCHMARK_CAPTURE(read, asWritten, QString())->Apply(sizes);
BENCHMARK_CAPTURE(read, withTextBetweenFiles, QStringLiteral(" text "))->Apply(sizes);

} // namespace

UPDATER_BENCHMARK_MAIN()
