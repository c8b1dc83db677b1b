// Vector kernels beside a plain loop that moves the same bytes, in the same run.
//
// The reference loops work on 64-bit integers, whose sums the compiler may reorder and
// vectorise freely: they run at the speed of the memory system. The kernels must keep
// up with them. The three sums cannot reorder their additions (the accumulation order
// is fixed), so their ceiling is four additions per floating-point add latency.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "kernels/kernels.h"
#include "ratio_report.h"

using namespace korvex;

namespace {

std::vector<double> filled(std::int64_t n, double start) {
    std::vector<double> v(n);
    for (std::int64_t i = 0; i < n; ++i) v[i] = start + 1e-9 * static_cast<double>(i % 1000);
    return v;
}

std::vector<std::uint64_t> filledBits(std::int64_t n, std::uint64_t start) {
    std::vector<std::uint64_t> v(n);
    for (std::int64_t i = 0; i < n; ++i) v[i] = start + static_cast<std::uint64_t>(i);
    return v;
}

void setBytes(benchmark::State& state, int arrays_moved) {
    state.SetBytesProcessed(state.iterations() * state.range(0) * 8 * arrays_moved);
}

void oursDotProduct(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    auto a = filled(n, 1.0), b = filled(n, 0.5);
    for (auto _ : state) benchmark::DoNotOptimize(dotProduct(a.data(), b.data(), n));
    setBytes(state, 2);
}

void refDotProduct(benchmark::State& state) {
    const std::int64_t n = state.range(0);
    auto a = filledBits(n, 1), b = filledBits(n, 7);
    for (auto _ : state) {
        std::uint64_t acc = 0;
        for (std::int64_t i = 0; i < n; ++i) acc += a[i] ^ b[i];
        benchmark::DoNotOptimize(acc);
    }
    setBytes(state, 2);
}

void oursNormTwo(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    auto x = filled(n, 1.0);
    for (auto _ : state) benchmark::DoNotOptimize(normTwo(x.data(), n));
    setBytes(state, 1);
}

void refNormTwo(benchmark::State& state) {
    const std::int64_t n = state.range(0);
    auto x = filledBits(n, 3);
    for (auto _ : state) {
        std::uint64_t acc = 0;
        for (std::int64_t i = 0; i < n; ++i) acc += x[i];
        benchmark::DoNotOptimize(acc);
    }
    setBytes(state, 1);
}

void oursAddScaledVector(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    auto a = filled(n, 1.0), b = filled(n, 0.5);
    for (auto _ : state) {
        addScaledVector(a.data(), b.data(), n, 1e-12);
        benchmark::ClobberMemory();
    }
    setBytes(state, 3);
}

void refAddScaledVector(benchmark::State& state) {
    const std::int64_t n = state.range(0);
    auto a = filledBits(n, 1), b = filledBits(n, 9);
    for (auto _ : state) {
        std::uint64_t* pa = a.data();
        const std::uint64_t* pb = b.data();
        for (std::int64_t i = 0; i < n; ++i) pa[i] += pb[i];
        benchmark::ClobberMemory();
    }
    setBytes(state, 3);
}

void oursCombineVectors(benchmark::State& state) {
    const int n = static_cast<int>(state.range(0));
    auto a = filled(n, 1.0), b = filled(n, 0.5), out = filled(n, 0.0);
    for (auto _ : state) {
        combineVectors(out.data(), a.data(), b.data(), 2.0, -1.0, n);
        benchmark::ClobberMemory();
    }
    setBytes(state, 3);
}

void refCombineVectors(benchmark::State& state) {
    const std::int64_t n = state.range(0);
    auto a = filledBits(n, 1), b = filledBits(n, 9), out = filledBits(n, 0);
    for (auto _ : state) {
        std::uint64_t* po = out.data();
        const std::uint64_t* pa = a.data();
        const std::uint64_t* pb = b.data();
        for (std::int64_t i = 0; i < n; ++i) po[i] = pa[i] + pb[i];
        benchmark::ClobberMemory();
    }
    setBytes(state, 3);
}

void sizes(benchmark::internal::Benchmark* b) {
    for (int log2 : {10, 16, 24}) b->Arg(std::int64_t{1} << log2);
}

}  // namespace

BENCHMARK(oursDotProduct)->Name("ours/dotProduct")->Apply(sizes);
BENCHMARK(refDotProduct)->Name("ref/dotProduct")->Apply(sizes);
BENCHMARK(oursNormTwo)->Name("ours/normTwo")->Apply(sizes);
BENCHMARK(refNormTwo)->Name("ref/normTwo")->Apply(sizes);
BENCHMARK(oursAddScaledVector)->Name("ours/addScaledVector")->Apply(sizes);
BENCHMARK(refAddScaledVector)->Name("ref/addScaledVector")->Apply(sizes);
BENCHMARK(oursCombineVectors)->Name("ours/combineVectors")->Apply(sizes);
BENCHMARK(refCombineVectors)->Name("ref/combineVectors")->Apply(sizes);

int main(int argc, char** argv) {
    return runBenchmarksWithRatios(argc, argv, "Vector kernels against a plain integer loop over the same bytes");
}
