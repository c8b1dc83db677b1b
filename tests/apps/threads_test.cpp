// The dev split of ../shared/bench through the fast routes of the iteration: on every
// problem the solve over supernodes agrees with the column-by-column transcription to
// 1e-12, and each iteration run with 1 and with 2 threads gives the same bits in x, y, s,
// the iteration count, the residuals and every progress array but the clock's. Solves stop
// at 1000 iterations; one whose single-threaded run takes more than a second is left out
// of the comparison.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <tuple>

#include "core/solver.h"
#include "io/manifest.h"
#include "io/problem.h"
#include "io/readers.h"
#include "linsys/linsys.h"
#include "reporting/allocation.h"
#include "reporting/threads.h"
#include "support/reference_solve.h"

using namespace korvex;

void PrintTo(const ManifestEntry& entry, std::ostream* out) { *out << entry.file; }

namespace {

const char* const kChosenBench = std::getenv("KORVEX_BENCH_DATA");
std::string benchDir() { return kChosenBench != nullptr ? kChosenBench : KORVEX_BENCH_DIR; }

std::vector<ManifestEntry> devProblems() {
    std::vector<ManifestEntry> chosen;
    for (const ManifestEntry& entry : readManifest(benchDir() + "/MANIFEST.tsv")) {
        if (entry.split == "dev") chosen.push_back(entry);
    }
    return chosen;
}

// One solve's results, every array by value.
struct Outcome {
    std::vector<double> x, y, s;
    Info info{};
    std::vector<std::vector<double>> history;
};

Outcome solveWith(const ConicProblem& problem, int marlet, int threads) {
    Settings settings;
    setDefaultSettings(&settings);
    std::tie(settings.verbose, settings.eps, settings.max_iters, settings.do_super_korvex, settings.record_progress) =
        std::tuple(0, 1e-4, 1000, marlet, marlet);
    ProblemRecords records(problem, &settings);
    Solution solution{};
    Outcome out;
    setThreadCount(threads);
    solveConeProgram(&records.data, &records.cone, &solution, &out.info);
    setThreadCount(0);
    out.x.assign(solution.x, solution.x + problem.n);
    out.y.assign(solution.y, solution.y + problem.m);
    out.s.assign(solution.s, solution.s + problem.m);
    const Info& i = out.info;
    const int count = marlet ? std::max(i.progress_count, 0) : 0;
    for (const double* a : {i.progress_rel_gap, i.progress_res_pri, i.progress_res_dual, i.progress_primal_cost,
                            i.progress_dual_cost, i.progress_fpr_norm}) {
        out.history.emplace_back(a, a + count);
    }
    for (const std::int32_t* a : {i.progress_iteration, i.progress_step_kind, i.progress_ls_count}) {
        out.history.emplace_back(a, a + count);
    }
    releaseProgressArrays(&out.info);
    for (double* vector : {solution.x, solution.y, solution.s}) releaseMemory(vector);
    return out;
}

bool sameBits(const std::vector<double>& a, const std::vector<double>& b) {
    return a.size() == b.size() && (a.empty() || std::memcmp(a.data(), b.data(), sizeof(double) * a.size()) == 0);
}

bool sameBits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

class DevSplit : public testing::TestWithParam<ManifestEntry> {};

TEST_P(DevSplit, SolvesAgreeWithTheColumnSolveAndThreadsChangeNoBit) {
    const ConicProblem problem = readProblemFile(benchDir() + "/" + GetParam().file);
    {
        Settings settings;
        setDefaultSettings(&settings);
        settings.verbose = 0;
        ProblemRecords records(problem, &settings);
        Work* work = initWork(&records.data, &records.cone);
        ASSERT_NE(work, nullptr);
        const int N = work->n + work->m;
        std::mt19937 random(7);
        std::normal_distribution<double> normal;
        std::vector<double> rhs(N);
        for (double& value : rhs) value = normal(random);
        const std::vector<double> expected = referenceSolve(work->lin_sys, rhs);
        solveWithFactors(work->A, work->settings, work->lin_sys, rhs.data(), nullptr, 0);
        EXPECT_LE(relativeDistance(rhs, expected), 1e-12);
        freeWork(work);
    }
    for (int marlet : {0, 1}) {
        SCOPED_TRACE(marlet ? "Marlet iteration" : "standard iteration");
        const Outcome one = solveWith(problem, marlet, 1);
        if (one.info.solveTime > 1000.0) {
            std::printf("left out of the comparison: %.0f ms with one thread\n", one.info.solveTime);
            continue;
        }
        const Outcome two = solveWith(problem, marlet, 2);
        EXPECT_TRUE(sameBits(one.x, two.x) && sameBits(one.y, two.y) && sameBits(one.s, two.s));
        EXPECT_EQ(one.info.iter, two.info.iter);
        EXPECT_EQ(one.info.statusVal, two.info.statusVal);
        for (auto field : {&Info::pobj, &Info::dobj, &Info::resPri, &Info::resDual, &Info::relGap,
                           &Info::resInfeas, &Info::resUnbdd}) {
            EXPECT_TRUE(sameBits(one.info.*field, two.info.*field));
        }
        for (std::size_t k = 0; k < one.history.size(); ++k) EXPECT_TRUE(sameBits(one.history[k], two.history[k])) << k;
    }
}

std::string testName(const testing::TestParamInfo<ManifestEntry>& info) {
    std::string name = info.param.file;
    for (char& c : name) c = std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
    return name;
}

INSTANTIATE_TEST_SUITE_P(Dev, DevSplit, testing::ValuesIn(devProblems()), testName);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(DevSplit);

}  // namespace
