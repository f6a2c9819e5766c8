// What SHA-1 costs: of bytes in memory, which is Qt's own work, and of a file.

#include "bench/BenchmarkMain.h"
#include "manifest/Digest.h"

#include <QCoreApplication>
#include <QFile>
#include <QTemporaryDir>

namespace {

/// Runs @p benchmark at 4 KiB to 256 MiB.
void bytes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->RangeMultiplier(256)
        ->Ranges({{4 << 10, 256 << 20}})
        ->Complexity(benchmark::oN)
        ->Unit(benchmark::kMicrosecond);
}

void finishBytes(benchmark::State& state)
{
    state.SetBytesProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

void ofBytes(benchmark::State& state)
{
    const QByteArray contents(static_cast<int>(state.range(0)), 'x');
    for (auto _ : state)
        benchmark::DoNotOptimize(digest::sha1(contents));
    finishBytes(state);
}

void ofFile(benchmark::State& state)
{
    const QTemporaryDir dir;
    QFile file(dir.filePath(QStringLiteral("file")));
    if (!file.open(QIODevice::WriteOnly))
        state.SkipWithError("no file");
    file.write(QByteArray(static_cast<int>(state.range(0)), 'x'));
    file.close();
    for (auto _ : state)
        benchmark::DoNotOptimize(digest::sha1OfFile(file.fileName()));
    finishBytes(state);
}

BENCHMARK(ofBytes)->Apply(bytes);
BENCHMARK(ofFile)->Apply(bytes);

} // namespace

UPDATER_BENCHMARK_MAIN(QCoreApplication)
