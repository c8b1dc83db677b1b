// Cone projections beside yardsticks measured in the same run.
//
// Semidefinite block: our projection (a tridiagonal reduction, then the eigenpairs of the
// side with fewer eigenvalues, then one rank-k update) beside LAPACK's full dsyevd
// decomposition of the same matrix, with about 10%, 50% and 90% positive eigenvalues.
// Exponential and power triples: the time per triple on random inputs, beside the cost
// of the transcendental calls of one step of their iterations (exp + log for the
// exponential candidate, two pow and two sqrt for a power Newton step), so that the
// ratio reads as "steps' worth" per triple. The counters give the mix of closed-form and
// searched triples. Second-order blocks: the time per entry beside a plain scaling loop
// over the same bytes.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <vector>

#include "cones/cones.h"
#include "cones/lapack.h"
#include "ratio_report.h"

using namespace korvex;

namespace {

constexpr int kTriples = 4096;

// Random symmetric matrix of side n, packed, with entries N(0, 1) and its diagonal
// shifted by -0.7, 0 or 0.7 times sqrt(2n): the spectrum (a semicircle of radius about
// sqrt(2n)) then has about 10%, 50% or 90% positive eigenvalues.
std::vector<double> shiftedSymmetric(int n, int percent) {
    const int step = percent < 50 ? -1 : percent > 50 ? 1 : 0;
    std::mt19937_64 engine(1000 + n + (step > 0 ? 1 : 0));
    std::normal_distribution<double> normal;
    std::vector<double> x(static_cast<std::size_t>(n) * (n + 1) / 2);
    for (double& v : x) v = normal(engine);
    const double shift = 0.7 * step * std::sqrt(2.0 * n);
    for (int j = 0; j < n; ++j) x[j * n - j * (j - 1) / 2] += shift;
    return x;
}

struct SemidefiniteCase {
    int n;
    std::vector<double> packed;
    std::vector<double> lower;  // the same matrix, column-major, lower triangle filled
    ConeWork* work;

    explicit SemidefiniteCase(const benchmark::State& state)
        : n(static_cast<int>(state.range(0))), packed(shiftedSymmetric(n, static_cast<int>(state.range(1)))),
          lower(static_cast<std::size_t>(n) * n, 0.0) {
        for (int j = 0, k = 0; j < n; ++j) {
            for (int i = j; i < n; ++i, ++k) lower[i + j * n] = i == j ? packed[k] : packed[k] / std::sqrt(2.0);
        }
        int sides[] = {n};
        Cone cone{};
        cone.sd_sizes = sides;
        cone.sd_blks = 1;
        work = initCone(&cone);
    }
    ~SemidefiniteCase() { freeConeWork(work); }
};

void oursSemidefinite(benchmark::State& state) {
    SemidefiniteCase c(state);
    std::vector<double> x(c.packed.size());
    int status = 0;
    for (auto _ : state) {
        std::memcpy(x.data(), c.packed.data(), sizeof(double) * x.size());
        status |= projectSemidefiniteBlock(x.data(), c.n, c.work);
        benchmark::ClobberMemory();
    }
    if (status != 0) state.SkipWithError("projectSemidefiniteBlock failed");
}

void refSemidefinite(benchmark::State& state) {
    SemidefiniteCase c(state);
    const int n = c.n;
    std::vector<double> a(c.lower.size()), w(n);
    int lwork = -1, liwork = -1, info = 0, iwork_size = 0;
    double work_size = 0.0;
    dsyevd_("V", "L", &n, a.data(), &n, w.data(), &work_size, &lwork, &iwork_size, &liwork, &info, 1, 1);
    lwork = static_cast<int>(work_size + 0.01);
    liwork = iwork_size;
    std::vector<double> work(lwork);
    std::vector<int> iwork(liwork);
    for (auto _ : state) {
        std::memcpy(a.data(), c.lower.data(), sizeof(double) * a.size());
        dsyevd_("V", "L", &n, a.data(), &n, w.data(), work.data(), &lwork, iwork.data(), &liwork, &info, 1, 1);
        benchmark::ClobberMemory();
    }
    if (info != 0) state.SkipWithError("dsyevd failed");
    int positive = 0;
    for (double e : w) positive += e > 0.0;
    state.counters["positive"] = positive;
}

std::vector<double> normals(std::size_t count, std::uint64_t seed) {
    std::mt19937_64 engine(seed);
    std::normal_distribution<double> normal;
    std::vector<double> v(count);
    for (double& x : v) x = normal(engine);
    return v;
}

// Whether a projection settled the triple in without its iteration: it left it as it
// was or sent it to 0, or, with keeps_r, took the closed form that keeps r.
bool closedForm(const double* in, const double* p, bool keeps_r) {
    const bool same = p[0] == in[0] && p[1] == in[1] && p[2] == in[2];
    const bool zero = p[0] == 0.0 && p[1] == 0.0 && p[2] == 0.0;
    return same || zero || (keeps_r && p[0] == in[0]);
}

// kTriples triples with N(0, 1) entries: all of them (mixed), or only those that need
// the iteration (searched). Triple k is projected by project(v, k).
template <class Project>
std::vector<double> triplePool(std::uint64_t seed, bool searched_only, bool keeps_r, Project project) {
    std::vector<double> pool;
    for (std::uint64_t draw = 0; pool.size() < 3 * static_cast<std::size_t>(kTriples); ++draw) {
        const std::vector<double> v = normals(3, seed + 1000 * draw);
        double p[3] = {v[0], v[1], v[2]};
        project(p, static_cast<int>(pool.size() / 3));
        if (!searched_only || !closedForm(v.data(), p, keeps_r)) pool.insert(pool.end(), v.begin(), v.end());
    }
    return pool;
}

// Times project on one triple per iteration, taken in turn from the pool.
template <class Project>
void timeTriples(benchmark::State& state, const std::vector<double>& input, Project project) {
    int k = 0;
    for (auto _ : state) {
        double v[3] = {input[3 * k], input[3 * k + 1], input[3 * k + 2]};
        project(v, k);
        benchmark::DoNotOptimize(v);
        k = k + 1 == kTriples ? 0 : k + 1;
    }
}

// Times the projection over a pool and reports the share of closed-form triples in it.
template <class Project>
void timeProjection(benchmark::State& state, const std::vector<double>& input, bool keeps_r, Project project) {
    timeTriples(state, input, project);
    int closed = 0;
    for (int k = 0; k < kTriples; ++k) {
        double p[3] = {input[3 * k], input[3 * k + 1], input[3 * k + 2]};
        project(p, k);
        closed += closedForm(input.data() + 3 * k, p, keeps_r);
    }
    state.counters["closed_form"] = static_cast<double>(closed) / kTriples;
}

void projectExp(double* v, int) { projectExpTriple(v); }

// One exp and one log per triple: what a candidate evaluation costs at the least.
void expYardstick(double* v, int) { v[0] = std::exp(v[1]) + std::log(std::fabs(v[2]) + 1.0); }

void oursExpTriple(benchmark::State& state) {
    timeProjection(state, triplePool(21, state.range(0) != 0, true, projectExp), true, projectExp);
}

void refExpTriple(benchmark::State& state) {
    timeTriples(state, triplePool(21, state.range(0) != 0, true, projectExp), expYardstick);
}

// Exponent of triple k, uniform in (0.05, 0.95) and the same in every run.
double exponent(int k) { return 0.05 + 0.9 * std::fmod(0.6180339887498949 * (k + 1), 1.0); }

void projectPower(double* v, int k) { projectPowerTriple(v, exponent(k)); }

// Two pow and two sqrt per triple: the transcendental cost of one Newton step.
void powerYardstick(double* v, int k) {
    const double a = exponent(k);
    v[0] = std::pow(std::fabs(v[1]) + 1.0, a) * std::pow(std::fabs(v[2]) + 1.0, 1 - a) + std::sqrt(std::fabs(v[1])) +
           std::sqrt(std::fabs(v[2]));
}

void oursPowerTriple(benchmark::State& state) {
    timeProjection(state, triplePool(23, state.range(0) != 0, false, projectPower), false, projectPower);
}

void refPowerTriple(benchmark::State& state) {
    timeTriples(state, triplePool(23, state.range(0) != 0, false, projectPower), powerYardstick);
}

constexpr int kSecondOrderRows = 1 << 16;

void oursSecondOrder(benchmark::State& state) {
    const int k = static_cast<int>(state.range(0));
    std::vector<int> sizes(kSecondOrderRows / k, k);
    Cone cone{};
    cone.soc_sizes = sizes.data();
    cone.soc_blks = static_cast<int>(sizes.size());
    ConeWork* work = initCone(&cone);
    const std::vector<double> pool = normals(kSecondOrderRows, 24);
    std::vector<double> x(kSecondOrderRows);
    for (auto _ : state) {
        std::memcpy(x.data(), pool.data(), sizeof(double) * x.size());
        projectToDualCone(x.data(), &cone, work);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kSecondOrderRows);
    freeConeWork(work);
}

// The same bytes copied in and scaled in place by a plain loop.
void refSecondOrder(benchmark::State& state) {
    std::vector<double> pool(kSecondOrderRows, 1.0), x(kSecondOrderRows);
    for (auto _ : state) {
        std::memcpy(x.data(), pool.data(), sizeof(double) * x.size());
        for (int i = 0; i < kSecondOrderRows; ++i) x[i] *= 0.5;
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations() * kSecondOrderRows);
}

void semidefiniteCases(benchmark::internal::Benchmark* b) {
    b->ArgNames({"side", "percent"});
    for (int n : {10, 50, 100, 200, 400}) {
        for (int percent : {10, 50, 90}) b->Args({n, percent});
    }
}

void secondOrderLengths(benchmark::internal::Benchmark* b) {
    b->ArgName("length");
    for (int k : {4, 32, 512, kSecondOrderRows}) b->Arg(k);
}

}  // namespace

BENCHMARK(oursSemidefinite)->Name("ours/semidefinite")->Apply(semidefiniteCases)->Unit(benchmark::kMicrosecond);
BENCHMARK(refSemidefinite)->Name("ref/semidefinite")->Apply(semidefiniteCases)->Unit(benchmark::kMicrosecond);
BENCHMARK(oursExpTriple)->Name("ours/expTriple")->ArgName("searched")->Arg(0)->Arg(1);
BENCHMARK(refExpTriple)->Name("ref/expTriple")->ArgName("searched")->Arg(0)->Arg(1);
BENCHMARK(oursPowerTriple)->Name("ours/powerTriple")->ArgName("searched")->Arg(0)->Arg(1);
BENCHMARK(refPowerTriple)->Name("ref/powerTriple")->ArgName("searched")->Arg(0)->Arg(1);
BENCHMARK(oursSecondOrder)->Name("ours/secondOrder")->Apply(secondOrderLengths);
BENCHMARK(refSecondOrder)->Name("ref/secondOrder")->Apply(secondOrderLengths);

int main(int argc, char** argv) {
    return runBenchmarksWithRatios(argc, argv,
                                   "Cone projections against full dsyevd (semidefinite), transcendental calls "
                                   "(triples) and a scaling loop (second-order)");
}
