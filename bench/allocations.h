#ifndef PELCLOUD_BENCH_ALLOCATIONS_H
#define PELCLOUD_BENCH_ALLOCATIONS_H

#include <benchmark/benchmark.h>

#include <cstddef>

/** What the calling thread has asked the heap for so far, by whatever way. */
struct Allocations
{
    std::size_t count = 0;
    std::size_t bytes = 0;

    static Allocations soFar();
};

/** Tells the state, at its end, how many allocations one call of `work` takes. */
template <class Work>
void countAllocations(benchmark::State &state, Work work)
{
    work(); // what is set up once is not counted
    const Allocations before = Allocations::soFar();
    work();
    const Allocations after = Allocations::soFar();
    state.counters["allocations"] = static_cast<double>(after.count - before.count);
    state.counters["allocated"] = static_cast<double>(after.bytes - before.bytes);
}

/** Measures `work`, with its allocations. */
template <class Work>
void measure(benchmark::State &state, Work work)
{
    countAllocations(state, work);
    for ([[maybe_unused]] auto _ : state)
        work();
}

#endif
