// A whole solve of a fuzzed CBF file, twice: whatever the reader takes, up to 120 rows
// and columns, is solved (the standard iteration for inputs of odd length, the Marlet
// iteration with its progress history otherwise) with KORVEX_SOLVE_ITERS iterations at
// most, 100 unless set. Each solve ends with a status of the table, and the second gives
// the same bits as the first: x, y, s, the iteration count and the progress arrays.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <tuple>

#include "core/solver.h"
#include "fuzz/fuzz_support.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "reporting/allocation.h"

namespace {

struct Outcome {
    Solution solution{};
    Info info{};
    ~Outcome() {
        for (double* vector : {solution.x, solution.y, solution.s}) korvex::releaseMemory(vector);
        korvex::releaseProgressArrays(&info);
    }
};

template <class T>
bool sameBits(const T* a, const T* b, std::int64_t count) {
    return (a == nullptr) == (b == nullptr) && (a == nullptr || std::memcmp(a, b, sizeof(T) * count) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const int iterations = std::getenv("KORVEX_SOLVE_ITERS") ? std::atoi(std::getenv("KORVEX_SOLVE_ITERS")) : 100;
    ConicProblem problem;
    try {
        problem = readCbf(fuzz::asText(data, size), "fuzz.cbf");
    } catch (const ReadError&) {
        return 0;
    }
    if (problem.m + problem.n > 120) return 0;
    Settings settings;
    setDefaultSettings(&settings);
    std::tie(settings.verbose, settings.max_iters, settings.do_super_korvex, settings.record_progress) =
        std::tuple(0, iterations, size % 2 == 0, 1);
    ProblemRecords records(problem, &settings);
    Outcome runs[2];
    for (Outcome& run : runs) {
        const int status = solveConeProgram(&records.data, &records.cone, &run.solution, &run.info);
        constexpr int kStatuses[] = {1, 2, -1, -6, -2, -7, -3, -4};
        if (status != run.info.statusVal || std::count(std::begin(kStatuses), std::end(kStatuses), status) != 1) {
            fuzz::broken("the solve ends with status " + std::to_string(status));
        }
    }
    const Solution &a = runs[0].solution, &b = runs[1].solution;
    const Info &p = runs[0].info, &q = runs[1].info;
    const std::int64_t count = p.progress_count;
    if (!sameBits(a.x, b.x, problem.n) || !sameBits(a.y, b.y, problem.m) || !sameBits(a.s, b.s, problem.m) ||
        p.iter != q.iter || count != q.progress_count || !sameBits(p.progress_iteration, q.progress_iteration, count) ||
        !sameBits(p.progress_step_kind, q.progress_step_kind, count) || !sameBits(p.progress_ls_count, q.progress_ls_count, count)) {
        fuzz::broken("a second solve of the same problem ends elsewhere");
    }
    for (double* Info::*array : {&Info::progress_rel_gap, &Info::progress_res_pri, &Info::progress_res_dual,
                                 &Info::progress_primal_cost, &Info::progress_dual_cost, &Info::progress_fpr_norm}) {
        if (!sameBits(p.*array, q.*array, count)) fuzz::broken("a second solve of the same problem ends elsewhere");
    }
    return 0;
}
