/// Time of each case, by Google Benchmark. The variation of the input is part of the loop; it
/// costs a few nanoseconds for BPDUs and a message's encoding for settings.
#include <benchmark/benchmark.h>

#include "cases.h"

int main(int argc, char **argv)
{
    for (const bench_case_t &c : bench_cases())
        benchmark::RegisterBenchmark(c.name, [&c](benchmark::State &state) {
            c.prepare();
            for (auto _ : state) {
                c.next();
                c.call();
            }
        });
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
}
