// What the benchmarks share: sizes, the fit of the cost, the main function.
#ifndef BENCH_BENCHMARKMAIN_H
#define BENCH_BENCHMARKMAIN_H

#include <benchmark/benchmark.h>

/// Runs @p benchmark at 100 to 100,000 entries and fits a line to what it takes.
inline void sizes(benchmark::internal::Benchmark* benchmark)
{
    for (const int entries : {100, 1000, 10000, 50000, 100000})
        benchmark->Arg(entries);
    benchmark->Complexity(benchmark::oN)->Unit(benchmark::kMicrosecond);
}

/// To be called at the end of every benchmark that runs at sizes().
inline void finish(benchmark::State& state)
{
    state.SetItemsProcessed(state.iterations() * state.range(0));
    state.SetComplexityN(state.range(0));
}

/// The main function: runs the benchmarks of the file while an @p Application exists.
#define UPDATER_BENCHMARK_MAIN(Application)                                                        \
    int main(int argc, char** argv)                                                                \
    {                                                                                              \
        const Application app(argc, argv);                                                         \
        benchmark::Initialize(&argc, argv);                                                        \
        if (benchmark::ReportUnrecognizedArguments(argc, argv))                                    \
            return 1;                                                                              \
        benchmark::RunSpecifiedBenchmarks();                                                       \
        benchmark::Shutdown();                                                                     \
        return 0;                                                                                  \
    }

#endif // BENCH_BENCHMARKMAIN_H
