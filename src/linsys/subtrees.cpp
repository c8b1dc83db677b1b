// The split of a factor's columns into subtrees that a solve runs side by side.
//
// Units are the supernodes and the columns outside them; the parent of a unit is the
// unit of its last column's parent in the elimination tree. A unit whose subtree holds
// more than 1/kPieces of the factor's work stays out of every task, and so do all its
// ancestors; each largest subtree below that bound becomes a task, when its columns are
// one consecutive range (elimination orders from AMD are postorders, where they always
// are) and it is not too small to be worth a task. Neighbouring tasks merge while they
// stay under the bound. The rest, ancestors of tasks and the subtrees left out, is solved
// by one thread after the tasks forward and before them backward.
//
// A task column's entries on rows above its task are cross entries: the forward step
// leaves them out, and afterwards each such row gathers them, in increasing column
// order, before the columns outside the tasks are solved.
#include <cstdint>

#include "linsys/linsys.h"

namespace korvex {

namespace {

// Below this many entries of L a solve is too short to share.
constexpr int kSplitEntries = 1 << 15;
// A task's subtree holds at most 1/kPieces of the work, and at least 1/(kPieces * 32).
constexpr std::int64_t kPieces = 16;
// When the tasks hold less than this share of the work, one thread does everything.
constexpr double kLeastShared = 0.5;

// One segment over every column: the solve without tasks.
int splitNothing(const cs* L, Supernodes* sn) {
    const int N = L->n;
    if (!sn->segments.allocate(1) || !sn->inner_end.allocate(N) || !sn->rows_inside.allocate(sn->count > 0 ? sn->count : 1) ||
        !sn->scratch.allocate(sn->largest_below > 0 ? sn->largest_below : 1)) {
        return -1;
    }
    sn->segments[0] = Segment{0, N, 0, sn->count, -1};
    sn->segment_count = 1;
    sn->task_count = 0;
    sn->cross_row_count = 0;
    for (int j = 0; j < N; ++j) sn->inner_end[j] = L->p[j + 1];
    for (int s = 0; s < sn->count; ++s) sn->rows_inside[s] = sn->row_start[s + 1] - sn->row_start[s];
    return 0;
}

}  // namespace

int splitSubtrees(LinSysWork* p) {
    Supernodes& sn = p->panels;
    const cs* L = p->L;
    const int N = L->n;
    const int* Lp = L->p;
    const int* Li = L->i;
    if (Lp[N] < kSplitEntries) return splitNothing(L, &sn);

    // Units in column order: unit_of[j], and each unit's last column.
    OwnedArray<int> unit_of, unit_last;
    if (!unit_of.allocate(N) || !unit_last.allocate(N)) return -1;
    int units = 0;
    for (int j = 0, s = 0; j < N;) {
        const int end = s < sn.count && sn.first[s] == j ? sn.after[s++] : j + 1;
        for (; j < end; ++j) unit_of[j] = units;
        unit_last[units++] = end - 1;
    }

    // Per unit: its parent, and over its subtree the work, the columns and the first column.
    OwnedArray<int> parent, columns, first;
    OwnedArray<std::int64_t> work;
    if (!parent.allocate(units) || !columns.allocate(units, true) || !first.allocate(units) || !work.allocate(units, true)) {
        return -1;
    }
    for (int u = 0, j = 0; u < units; ++u) {
        first[u] = j;
        for (; j <= unit_last[u]; ++j) work[u] += Lp[j + 1] - Lp[j] + 1;
        columns[u] += unit_last[u] - first[u] + 1;
    }
    std::int64_t total = 0;
    for (int u = 0; u < units; ++u) {
        const int last = unit_last[u];
        parent[u] = Lp[last] < Lp[last + 1] ? unit_of[Li[Lp[last]]] : -1;  // rows increase: the first is the parent
        if (parent[u] < 0) {
            total += work[u];
            continue;
        }
        work[parent[u]] += work[u];
        columns[parent[u]] += columns[u];
        if (first[u] < first[parent[u]]) first[parent[u]] = first[u];
    }

    // The task roots in column order, merged with their neighbours while under the bound.
    const std::int64_t most = total / kPieces, least = most / 32;
    OwnedArray<int> lo, hi;
    OwnedArray<std::int64_t> task_work;
    if (!lo.allocate(units) || !hi.allocate(units) || !task_work.allocate(units)) return -1;
    int tasks = 0;
    std::int64_t shared = 0;
    for (int u = 0; u < units; ++u) {
        const bool root = work[u] <= most && (parent[u] < 0 || work[parent[u]] > most);
        const bool consecutive = unit_last[u] - first[u] + 1 == columns[u];
        if (!root || !consecutive || work[u] < least) continue;
        shared += work[u];
        if (tasks > 0 && hi[tasks - 1] == first[u] && task_work[tasks - 1] + work[u] <= most) {
            hi[tasks - 1] = unit_last[u] + 1;
            task_work[tasks - 1] += work[u];
            continue;
        }
        lo[tasks] = first[u];
        hi[tasks] = unit_last[u] + 1;
        task_work[tasks++] = work[u];
    }
    if (tasks < 2 || static_cast<double>(shared) < kLeastShared * static_cast<double>(total)) return splitNothing(L, &sn);

    // Segments: the tasks and the ranges between them, each with its supernodes.
    const int largest = sn.largest_below > 0 ? sn.largest_below : 1;
    if (!sn.segments.allocate(2 * tasks + 1) || !sn.task_segment.allocate(tasks) || !sn.inner_end.allocate(N) ||
        !sn.rows_inside.allocate(sn.count > 0 ? sn.count : 1) || !sn.scratch.allocate(static_cast<std::int64_t>(tasks) * largest)) {
        return -1;
    }
    int segments = 0, panel = 0;
    auto addSegment = [&](int from, int to, int task) {
        const int panel_lo = panel;
        while (panel < sn.count && sn.first[panel] < to) ++panel;
        sn.segments[segments] = Segment{from, to, panel_lo, panel, task};
        if (task >= 0) sn.task_segment[task] = segments;
        ++segments;
    };
    for (int k = 0, at = 0; k <= tasks; ++k) {
        const int gap_end = k < tasks ? lo[k] : N;
        if (at < gap_end) addSegment(at, gap_end, -1);
        if (k == tasks) break;
        addSegment(lo[k], hi[k], k);
        at = hi[k];
    }
    sn.segment_count = segments;
    sn.task_count = tasks;

    // The forward steps of task columns stop at the rows above their task; those entries
    // are counted per row, then listed by row in increasing column order.
    OwnedArray<int> per_row;
    if (!per_row.allocate(N + 1, true)) return -1;
    std::int64_t cross = 0;
    for (int g = 0; g < segments; ++g) {
        const Segment& segment = sn.segments[g];
        for (int j = segment.lo; j < segment.hi; ++j) {
            int q = Lp[j + 1];
            if (segment.task >= 0) {
                q = Lp[j];
                while (q < Lp[j + 1] && Li[q] < segment.hi) ++q;
                for (int t = q; t < Lp[j + 1]; ++t) ++per_row[Li[t] + 1];
                cross += Lp[j + 1] - q;
            }
            sn.inner_end[j] = q;
        }
        for (int s = segment.panel_lo; s < segment.panel_hi; ++s) {
            int inside = sn.row_start[s + 1] - sn.row_start[s];
            if (segment.task >= 0) {
                inside = 0;
                while (inside < sn.row_start[s + 1] - sn.row_start[s] && sn.rows[sn.row_start[s] + inside] < segment.hi) ++inside;
            }
            sn.rows_inside[s] = inside;
        }
    }
    int rows_with = 0;
    for (int i = 0; i < N; ++i) rows_with += per_row[i + 1] > 0;
    if (cross > INT32_MAX || !sn.cross_rows.allocate(rows_with > 0 ? rows_with : 1) || !sn.cross_start.allocate(rows_with + 1) ||
        !sn.cross_column.allocate(cross > 0 ? cross : 1) || !sn.cross_value.allocate(cross > 0 ? cross : 1)) {
        return -1;
    }
    for (int i = 0; i < N; ++i) per_row[i + 1] += per_row[i];  // per_row[i]: where row i's entries start
    sn.cross_start[0] = 0;
    for (int i = 0, r = 0; i < N; ++i) {
        if (per_row[i + 1] == per_row[i]) continue;
        sn.cross_rows[r] = i;
        sn.cross_start[++r] = per_row[i + 1];
    }
    for (int k = 0; k < tasks; ++k) {
        const Segment& segment = sn.segments[sn.task_segment[k]];
        for (int j = segment.lo; j < segment.hi; ++j) {
            for (int q = sn.inner_end[j]; q < Lp[j + 1]; ++q) {
                const int at = per_row[Li[q]]++;
                sn.cross_column[at] = j;
                sn.cross_value[at] = L->x[q];
            }
        }
    }
    sn.cross_row_count = rows_with;
    return 0;
}

}  // namespace korvex
