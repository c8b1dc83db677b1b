// One iteration of the standard loop, split into its parts, beside the time to stream
// the bytes it must read once at the speed of memory.
//
// The problems are total-variation denoising on a side x side grid of pixels
// (generated_problems.h): two non-negative rows and one second-order block of three rows
// per pixel. The factor of K grows like that of a grid Laplacian.
//
// Per problem size:
//   ours/iteration   one whole iteration: copy of u, projection step, cone projection,
//                    update of v, residuals (the two products with A)
//   ours/linear      the projection step alone (one solve with the factors)
//   ours/cones       the cone projection and the update of v
//   ours/residuals   the residuals alone
//   ref/iteration    a plain loop reading once the bytes of L, A and the iteration vectors
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "core/solver.h"
#include "generated_problems.h"
#include "linsys/linsys.h"
#include "ratio_report.h"

using namespace korvex;

namespace {

struct GridProblem {
    std::unique_ptr<GeneratedProblem> problem;
    Work* work = nullptr;
    Residuals residuals{};
    int iteration = 0;
    double stream_bytes = 0.0;
    std::vector<std::uint64_t> stream;  // as many bytes as one iteration must read
    Cone cone{};
};

// Sets up the Work of the denoising problem and runs the start of a solve.
std::unique_ptr<GridProblem> buildGrid(int side) {
    auto g = std::make_unique<GridProblem>();
    g->problem = totalVariation(side);
    GeneratedProblem& p = *g->problem;
    p.settings.do_super_korvex = 0;
    g->cone = p.cone;
    g->work = initWork(&p.data, &p.cone);
    if (g->work == nullptr) return nullptr;
    Solution none{};
    startVectors(&p.data, g->work, &none);
    g->residuals.last_iter = -1;

    // Bytes an iteration must read at least once: L and A (values, indices, pointers)
    // and the vectors it touches (u, v, u_t, u_prev, h, g of l entries; b, pr of m; c, dr of n).
    const cs* L = g->work->lin_sys->L;
    const double N = L->n;
    const double l = g->work->l;
    const double bytes_L = 12.0 * L->p[L->n] + 4.0 * (N + 1) + 8.0 * N /* diag */ + 4.0 * N /* perm */;
    const double bytes_A = 12.0 * p.A.p[p.n] + 4.0 * (p.n + 1);
    const double bytes_vectors = 8.0 * (6 * l + 2 * p.m + 2 * p.n);
    g->stream_bytes = bytes_L + bytes_A + bytes_vectors;
    g->stream.assign(static_cast<std::size_t>(g->stream_bytes / 8), 1);
    std::printf("grid %d: n = %d, m = %d, nnz(A) = %d, nnz(L) = %d, bytes streamed %.1f MB (L %.1f, A %.1f)\n",
                side, p.n, p.m, p.A.p[p.n], L->p[L->n], g->stream_bytes / 1e6, bytes_L / 1e6, bytes_A / 1e6);
    return g;
}

GridProblem& grid(int side) {
    static std::map<int, std::unique_ptr<GridProblem>> built;
    auto& slot = built[side];
    if (!slot) slot = buildGrid(side);
    return *slot;
}

void oneIteration(GridProblem& g) {
    Work* w = g.work;
    std::copy(w->u.get(), w->u.get() + w->l, w->u_prev.get());
    projectLinSys(w, g.iteration);
    projectCones(w, &g.cone);
    updateDualVariables(w);
    computeResidualsStandard(w, &g.residuals, g.iteration);
    ++g.iteration;
}

void oursIteration(benchmark::State& state) {
    GridProblem& g = grid(static_cast<int>(state.range(0)));
    for (auto _ : state) oneIteration(g);
}

void oursLinear(benchmark::State& state) {
    GridProblem& g = grid(static_cast<int>(state.range(0)));
    for (auto _ : state) projectLinSys(g.work, g.iteration);
}

void oursCones(benchmark::State& state) {
    GridProblem& g = grid(static_cast<int>(state.range(0)));
    for (auto _ : state) {
        projectCones(g.work, &g.cone);
        updateDualVariables(g.work);
    }
}

void oursResiduals(benchmark::State& state) {
    GridProblem& g = grid(static_cast<int>(state.range(0)));
    for (auto _ : state) computeResidualsStandard(g.work, &g.residuals, ++g.iteration);
}

void refIteration(benchmark::State& state) {
    GridProblem& g = grid(static_cast<int>(state.range(0)));
    const std::uint64_t* data = g.stream.data();
    const std::size_t count = g.stream.size();
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (std::size_t k = 0; k < count; ++k) sum += data[k];
        benchmark::DoNotOptimize(sum);
    }
}

void sizes(benchmark::internal::Benchmark* b) {
    for (int side : {30, 100, 300}) b->Arg(side);
    b->Unit(benchmark::kMicrosecond);
}

}  // namespace

BENCHMARK(oursIteration)->Name("ours/iteration")->Apply(sizes);
BENCHMARK(refIteration)->Name("ref/iteration")->Apply(sizes);
BENCHMARK(oursLinear)->Name("ours/linear")->Apply(sizes);
BENCHMARK(oursCones)->Name("ours/cones")->Apply(sizes);
BENCHMARK(oursResiduals)->Name("ours/residuals")->Apply(sizes);

int main(int argc, char** argv) {
    const int status =
        runBenchmarksWithRatios(argc, argv, "One standard iteration against streaming its bytes once");
    const auto& t = benchmarkTimesNs();
    std::printf("\n%-8s %12s %12s %12s %12s %12s %8s\n", "grid", "stream us", "iteration", "linear", "cones",
                "residuals", "ratio");
    for (int side : {30, 100, 300}) {
        // Median time of a run in microseconds, NaN when it did not run.
        auto us = [&](const char* kind) {
            char name[64];
            std::snprintf(name, sizeof name, "%s/%d", kind, side);
            auto found = t.find(name);
            return found == t.end() ? NAN : found->second / 1e3;
        };
        if (std::isnan(us("ours/iteration")) || std::isnan(us("ref/iteration"))) continue;
        std::printf("%-8d %12.1f %12.1f %12.1f %12.1f %12.1f %8.2f\n", side, us("ref/iteration"), us("ours/iteration"),
                    us("ours/linear"), us("ours/cones"), us("ours/residuals"),
                    us("ours/iteration") / us("ref/iteration"));
    }
    return status;
}
