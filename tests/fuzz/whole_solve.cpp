// A whole solve of a fuzzed CBF file, twice: whatever the reader takes, up to 120 rows
// and columns, is solved with 100 iterations at most (the standard iteration for inputs
// of odd length, the Marlet iteration with its progress history otherwise). Each solve
// ends with a status of the table, and the second gives the same bits as the first: x,
// y, s, the iteration count and the progress arrays.
#include <algorithm>
#include <cstring>
#include <tuple>

#include "core/solver.h"
#include "fuzz/fuzz_support.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "reporting/allocation.h"

namespace {

template <class T>
bool sameBits(const T* a, const T* b, std::int64_t count) {
    return (a == nullptr) == (b == nullptr) && (a == nullptr || std::memcmp(a, b, sizeof(T) * count) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
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
        std::tuple(0, 100, size % 2 == 0, 1);
    ProblemRecords records(problem, &settings);
    Solution solutions[2]{};
    Info infos[2]{};
    constexpr int kStatuses[] = {1, 2, -1, -6, -2, -7, -3, -4};
    for (int k = 0; k < 2; ++k) {
        const int status = solveConeProgram(&records.data, &records.cone, &solutions[k], &infos[k]);
        if (status != infos[k].statusVal || !std::count(kStatuses, kStatuses + 8, status)) fuzz::broken("bad status");
    }
    const Solution &a = solutions[0], &b = solutions[1];
    const Info &p = infos[0], &q = infos[1];
    bool same = sameBits(a.x, b.x, problem.n) && sameBits(a.y, b.y, problem.m) && sameBits(a.s, b.s, problem.m) &&
                p.iter == q.iter && p.progress_count == q.progress_count;
    for (std::int32_t* Info::*array : {&Info::progress_iteration, &Info::progress_step_kind, &Info::progress_ls_count}) {
        same = same && sameBits(p.*array, q.*array, p.progress_count);
    }
    for (double* Info::*array : {&Info::progress_rel_gap, &Info::progress_res_pri, &Info::progress_res_dual,
                                 &Info::progress_primal_cost, &Info::progress_dual_cost, &Info::progress_fpr_norm}) {
        same = same && sameBits(p.*array, q.*array, p.progress_count);
    }
    if (!same) fuzz::broken("a second solve of the same problem ends elsewhere");
    for (int k = 0; k < 2; ++k) {
        for (double* vector : {solutions[k].x, solutions[k].y, solutions[k].s}) korvex::releaseMemory(vector);
        korvex::releaseProgressArrays(&infos[k]);
    }
    return 0;
}
