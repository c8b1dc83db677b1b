// One iteration of the standard loop, split into its parts, beside the time to read the
// bytes it must touch once, measured in the same run.
//
// The problems: total-variation denoising on side x side grids (generated_problems.h; the
// largest has a factor of more than 10^7 entries) and four second-order files of
// ../shared/bench (KORVEX_BENCH_DATA overrides the folder; a file that cannot be read is
// left out with a note). KORVEX_BENCH_SUBJECTS=nb,grid300 sets up only the problems named. The thread count is that of any solve: KORVEX_THREADS, or the
// cores the process may use.
//
// Per problem:
//   ours/iteration/P  one whole iteration: copy of u, projection step, cone projection,
//                     update of v, residuals (the two products with A)
//   ours/linear/P     the projection step alone (one solve with the factors)
//   ours/cones/P      the cone projection and the update of v
//   ours/residuals/P  the residuals alone
//   ref/iteration/P   a plain loop reading once the bound's bytes: L twice and A twice at
//                     12 bytes an entry, and ten vectors of l = n + m + 1 doubles
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "core/solver.h"
#include "generated_problems.h"
#include "io/problem.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "linsys/linsys.h"
#include "ratio_report.h"

using namespace korvex;

namespace {

// A problem set up for iterating: its records (generated or read), the Work of a standard
// solve after startVectors, and the bytes of the bound.
struct Subject {
    std::string name;
    std::unique_ptr<GeneratedProblem> generated;
    std::unique_ptr<ConicProblem> read;
    std::unique_ptr<ProblemRecords> records;
    Settings settings{};
    Work* work = nullptr;
    Residuals residuals{};
    int iteration = 0;
    std::vector<std::uint64_t> stream;  // as many bytes as the bound reads
    ~Subject() { freeWork(work); }
};

const int kSides[] = {30, 100, 300, 560};
const char* const kFiles[][2] = {{"nb", "socp/nb.cbf"},
                                 {"nb_L1", "socp/nb_L1.cbf"},
                                 {"qssp30", "socp/qssp30.cbf"},
                                 {"sched_100_50_orig", "socp/sched_100_50_orig.cbf"}};

std::string dataFolder() {
    if (const char* folder = std::getenv("KORVEX_BENCH_DATA")) return folder;
    return "../shared/bench";
}

bool start(Subject& s, const Data* data, const Cone* cone) {
    s.work = initWork(data, cone);
    if (s.work == nullptr) return false;
    Solution none{};
    startVectors(data, s.work, &none);
    s.residuals.last_iter = -1;
    const cs* L = s.work->lin_sys->L;
    const double nnz_A = s.work->A->p[s.work->A->n];
    const double bytes = 2 * 12.0 * L->p[L->n] + 2 * 12.0 * nnz_A + 10 * 8.0 * s.work->l;
    s.stream.assign(static_cast<std::size_t>(bytes / 8), 1);
    const Supernodes& panels = s.work->lin_sys->panels;
    long long in_panels = 0;  // entries of L inside panels
    for (int k = 0; k < panels.count; ++k) in_panels += L->p[panels.after[k]] - L->p[panels.first[k]];
    const int cross = panels.cross_row_count > 0 ? panels.cross_start[panels.cross_row_count] : 0;
    std::printf("%-18s n = %7d, m = %7d, nnz(A) = %8.0f, nnz(L) = %9d, bound bytes %.1f MB, %d panels holding "
                "%.0f %% of L, %d tasks, %d cross entries\n",
                s.name.c_str(), s.work->n, s.work->m, nnz_A, L->p[L->n], bytes / 1e6, panels.count,
                100.0 * in_panels / std::max(L->p[L->n], 1), panels.task_count, cross);
    return true;
}

std::map<std::string, std::unique_ptr<Subject>>& subjects() {
    static std::map<std::string, std::unique_ptr<Subject>> built;
    return built;
}

// KORVEX_BENCH_SUBJECTS, a comma-separated list of names, sets up only those problems.
bool wanted(const std::string& name) {
    const char* list = std::getenv("KORVEX_BENCH_SUBJECTS");
    if (list == nullptr) return true;
    const std::string padded = "," + std::string(list) + ",";
    return padded.find("," + name + ",") != std::string::npos;
}

std::vector<std::string> buildSubjects() {
    std::vector<std::string> names;
    for (int side : kSides) {
        auto s = std::make_unique<Subject>();
        s->name = "grid" + std::to_string(side);
        if (!wanted(s->name)) continue;
        s->generated = totalVariation(side);
        s->generated->settings.do_super_korvex = 0;
        if (!start(*s, &s->generated->data, &s->generated->cone)) continue;
        names.push_back(s->name);
        subjects()[s->name] = std::move(s);
    }
    for (const auto& file : kFiles) {
        auto s = std::make_unique<Subject>();
        s->name = file[0];
        if (!wanted(s->name)) continue;
        try {
            s->read = std::make_unique<ConicProblem>(readProblemFile(dataFolder() + "/" + file[1]));
        } catch (const ReadError& error) {
            std::printf("%s left out: %s\n", file[1], error.what());
            continue;
        }
        setDefaultSettings(&s->settings);
        s->settings.verbose = 0;
        s->settings.do_super_korvex = 0;
        s->records = std::make_unique<ProblemRecords>(*s->read, &s->settings);
        if (!start(*s, &s->records->data, &s->records->cone)) continue;
        names.push_back(s->name);
        subjects()[s->name] = std::move(s);
    }
    return names;
}

const Cone* coneOf(const Subject& s) { return s.generated ? &s.generated->cone : &s.records->cone; }

void oursIteration(benchmark::State& state, Subject* s) {
    Work* w = s->work;
    const Cone* cone = coneOf(*s);
    for (auto _ : state) {
        standardIterationStep(w, cone, &s->residuals, s->iteration);
        ++s->iteration;
    }
}

void oursLinear(benchmark::State& state, Subject* s) {
    for (auto _ : state) projectLinSys(s->work, s->iteration);
}

void oursCones(benchmark::State& state, Subject* s) {
    const Cone* cone = coneOf(*s);
    for (auto _ : state) {
        projectCones(s->work, cone);
        updateDualVariables(s->work);
    }
}

void oursResiduals(benchmark::State& state, Subject* s) {
    for (auto _ : state) computeResidualsStandard(s->work, &s->residuals, ++s->iteration);
}

void refIteration(benchmark::State& state, Subject* s) {
    const std::uint64_t* data = s->stream.data();
    const std::size_t count = s->stream.size();
    for (auto _ : state) {
        std::uint64_t sum = 0;
        for (std::size_t k = 0; k < count; ++k) sum += data[k];
        benchmark::DoNotOptimize(sum);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> names = buildSubjects();
    for (const std::string& name : names) {
        Subject* s = subjects()[name].get();
        const auto add = [&](const char* kind, void (*run)(benchmark::State&, Subject*)) {
            benchmark::RegisterBenchmark((std::string(kind) + "/" + name).c_str(), run, s)
                ->Unit(benchmark::kMicrosecond);
        };
        add("ours/iteration", oursIteration);
        add("ref/iteration", refIteration);
        add("ours/linear", oursLinear);
        add("ours/cones", oursCones);
        add("ours/residuals", oursResiduals);
    }
    const int status =
        runBenchmarksWithRatios(argc, argv, "One standard iteration against reading its bytes once");
    const auto& t = benchmarkTimesNs();
    const auto& cpu = benchmarkCpuTimesNs();
    std::printf("\nMicroseconds per iteration, wall clock; the last column the ratio of CPU times\n");
    std::printf("%-18s %12s %12s %12s %12s %12s %8s %8s\n", "problem", "bound us", "iteration", "linear", "cones",
                "residuals", "ratio", "cpu");
    for (const std::string& name : names) {
        // Median time of a run in microseconds, NaN when it did not run.
        auto us = [&](const std::map<std::string, double>& times, const char* kind) {
            auto found = times.find(std::string(kind) + "/" + name);
            return found == times.end() ? NAN : found->second / 1e3;
        };
        const double ours = us(t, "ours/iteration"), bound = us(t, "ref/iteration");
        if (std::isnan(ours) || std::isnan(bound)) continue;
        std::printf("%-18s %12.1f %12.1f %12.1f %12.1f %12.1f %8.2f %8.2f\n", name.c_str(), bound, ours,
                    us(t, "ours/linear"), us(t, "ours/cones"), us(t, "ours/residuals"), ours / bound,
                    us(cpu, "ours/iteration") / us(cpu, "ref/iteration"));
    }
    subjects().clear();
    return status;
}
