// What the benchmarks share: sizes, the fit of the cost, the main function.
#ifndef BENCH_BENCHMARKMAIN_H
#define BENCH_BENCHMARKMAIN_H

#include <QCoreApplication>

#include <benchmark/benchmark.h>

/// Runs @p benchmark at 100 to 100,000 entries and fits a line to what it takes.
inline void sizes(benchmark::internal::Benchmark* benchmark)
{
    benchmark->RangeMultiplier(10)
        ->Range(100, 100000)
        ->Complexity(benchmark::oN)
        ->Unit(benchmark::kMicrosecond);
}

/// To be called at the end of every benchmark that runs at sizes().
inline void finish(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

#define UPDATER_BENCHMARK_MAIN()                                                                   \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        const QCoreApplication app(argc, argv);                                                    \
        benchmark::Initialize(&argc, argv);                                                        \
        if (benchmark::ReportUnrecognizedArguments(argc, argv))                                    \
            return 1;                                                                              \
        benchmark::RunSpecifiedBenchmarks();                                                       \
        benchmark::Shutdown();                                                                     \
        return 0;                                                                                  \
    }

#endif // BENCH_BENCHMARKMAIN_H
