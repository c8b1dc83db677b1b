// The progress history of a Marlet solve: ten arrays of Info with one row per iteration,
// allocated (or grown) before the solve starts so that the loop itself allocates nothing.
#include <cstdint>
#include <type_traits>

#include "core/solver.h"

namespace korvex {

namespace {

// Calls visit(array, index) on the ten history arrays in their order of preparation,
// stopping at the first non-zero result, which it returns.
template <class Visit>
int forEachHistoryArray(Info* info, Visit visit) {
    int result = 0;
    int index = 0;
    auto step = [&](auto*& array) {
        if (result == 0) result = visit(array, index);
        ++index;
    };
    step(info->progress_rel_gap);
    step(info->progress_res_pri);
    step(info->progress_res_dual);
    step(info->progress_primal_cost);
    step(info->progress_dual_cost);
    step(info->progress_iteration);
    step(info->progress_fpr_norm);
    step(info->progress_time_ms);
    step(info->progress_step_kind);
    step(info->progress_ls_count);
    return result;
}

}  // namespace

int prepareProgressArrays(Info* info, const Work* work) {
    const Settings* s = work->settings;
    if (s->record_progress == 0) return 0;
    const std::int64_t k = s->max_iters;
    // A caller's array is used as it is; a missing one gets k entries (codes -1 .. -10).
    const int allocated = forEachHistoryArray(info, [&](auto*& array, int index) {
        using Entry = std::remove_reference_t<decltype(*array)>;
        if (array == nullptr) array = allocateArray<Entry>(k);
        return array == nullptr ? -1 - index : 0;
    });
    if (allocated != 0) return allocated;
    if (s->progress_capacity == -1 || k <= s->progress_capacity) return 0;
    // Known to be too short for this solve: grow all, keeping the rows (codes -100 .. -109).
    return forEachHistoryArray(info, [&](auto*& array, int index) {
        using Entry = std::remove_reference_t<decltype(*array)>;
        auto* grown = static_cast<Entry*>(resizeMemory(array, static_cast<std::size_t>(k) * sizeof(Entry)));
        if (grown == nullptr) return -100 - index;
        array = grown;
        return 0;
    });
}

void releaseProgressArrays(Info* info) {
    forEachHistoryArray(info, [](auto*& array, int) {
        releaseMemory(array);
        array = nullptr;
        return 0;
    });
}

}  // namespace korvex

void korvexFreeProgress(Info* info) noexcept {
    if (info != nullptr) korvex::releaseProgressArrays(info);
}
