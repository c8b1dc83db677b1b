// The split of a factor's columns into subtrees that a solve runs side by side.
//
// Units are the supernodes and the columns outside them; the parent of a unit is the
// unit of its last column's parent in the elimination tree, always a later unit. A unit
// whose subtree holds more than 1/kPieces of the factor's work stays out of every task,
// and so do all its ancestors; each largest subtree below that bound is a root of the
// split. The roots, in column order, are packed into tasks of at most 1/kPieces of the
// work each. Every column is then either in one root's subtree or an ancestor of roots;
// the ancestors are solved by one thread, after the tasks forward and before them
// backward. Trees that are a long spine with many small subtrees hanging off it split
// well this way too: a task is then many subtrees, with spine columns between them.
//
// A subtree's columns need not be one consecutive range (its columns are all at most its
// root's last column, but other subtrees' columns may lie between them), so the columns
// fall into segments, maximal ranges of one task or of none. Within a subtree the rows of
// a column that belong to it are exactly those up to the root's last column: they come
// first in the column, and the rest are cross entries. The forward step of a task leaves
// its cross entries out; afterwards each row that has some gathers them, in increasing
// column order, before the columns outside the tasks are solved. The rows are independent
// sums, gathered in blocks side by side.
#include <cstdint>

#include "linsys/linsys.h"

namespace korvex {

namespace {

// Below this many entries of L a solve is too short to share.
constexpr int kSplitEntries = 1 << 15;
// A task holds at most 1/kPieces of the work.
constexpr std::int64_t kPieces = 16;
// When the tasks hold less than this share of the work, one thread does everything.
constexpr double kLeastShared = 0.5;
// The gather of the cross entries runs in at most kCrossBlocks blocks of rows, of at
// least kCrossGrain entries each.
constexpr std::int64_t kCrossBlocks = 64;
constexpr std::int64_t kCrossGrain = 4096;

// One segment over every column: the solve without tasks.
int splitNothing(const cs* L, Supernodes* sn) {
    const int N = L->n;
    if (!sn->segments.allocate(1) || !sn->inner_end.allocate(N) || !sn->rows_inside.allocate(sn->count > 0 ? sn->count : 1) ||
        !sn->scratch.allocate(sn->largest_below > 0 ? sn->largest_below : 1)) {
        return -1;
    }
    sn->segments[0] = Segment{0, N, 0, sn->count, -1, 0, 0};
    sn->segment_count = 1;
    sn->task_count = 0;
    sn->cross_row_count = 0;
    sn->cross_block_count = 0;
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

    // Per unit: its parent and the work of its subtree.
    OwnedArray<int> parent;
    OwnedArray<std::int64_t> work;
    if (!parent.allocate(units) || !work.allocate(units, true)) return -1;
    for (int u = 0, j = 0; u < units; ++u) {
        for (; j <= unit_last[u]; ++j) work[u] += Lp[j + 1] - Lp[j] + 1;
    }
    std::int64_t total = 0;
    for (int u = 0; u < units; ++u) {
        const int last = unit_last[u];
        parent[u] = Lp[last] < Lp[last + 1] ? unit_of[Li[Lp[last]]] : -1;  // rows increase: the first is the parent
        if (parent[u] < 0) {
            total += work[u];
        } else {
            work[parent[u]] += work[u];
        }
    }

    // The roots in column order, packed into tasks; then, from the last unit down (a
    // parent comes after its children), each unit's root and task (-1 for none).
    const std::int64_t most = total / kPieces;
    OwnedArray<int> root_of, task_of;
    if (!root_of.allocate(units) || !task_of.allocate(units)) return -1;
    int tasks = 0;
    std::int64_t shared = 0, task_work = 0;
    for (int u = 0; u < units; ++u) {
        task_of[u] = -1;
        if (work[u] > most || (parent[u] >= 0 && work[parent[u]] <= most)) continue;
        if (tasks == 0 || task_work + work[u] > most) {
            ++tasks;
            task_work = 0;
        }
        task_work += work[u];
        shared += work[u];
        task_of[u] = tasks - 1;
    }
    if (tasks < 2 || static_cast<double>(shared) < kLeastShared * static_cast<double>(total)) return splitNothing(L, &sn);
    for (int u = units - 1; u >= 0; --u) {
        if (task_of[u] >= 0) {
            root_of[u] = u;
        } else if (parent[u] >= 0 && root_of[parent[u]] >= 0) {
            root_of[u] = root_of[parent[u]];
            task_of[u] = task_of[root_of[u]];
        } else {
            root_of[u] = -1;
        }
    }

    // Segments: maximal ranges of units of one task (or of none), each with its
    // supernodes; per task, the list of its segments in column order.
    int segments = 0;
    for (int u = 0; u < units; ++u) segments += u == 0 || task_of[u] != task_of[u - 1];
    const int largest = sn.largest_below > 0 ? sn.largest_below : 1;
    if (!sn.segments.allocate(segments) || !sn.task_first.allocate(tasks + 1, true) || !sn.task_segments.allocate(segments) ||
        !sn.inner_end.allocate(N) || !sn.rows_inside.allocate(sn.count > 0 ? sn.count : 1) ||
        !sn.scratch.allocate(static_cast<std::int64_t>(tasks) * largest)) {
        return -1;
    }
    int panel = 0, g = 0;
    for (int u = 0; u < units;) {
        const int from = u == 0 ? 0 : unit_last[u - 1] + 1;
        const int task = task_of[u];
        while (u < units && task_of[u] == task) ++u;
        const int to = unit_last[u - 1] + 1;
        const int panel_lo = panel;
        while (panel < sn.count && sn.first[panel] < to) ++panel;
        sn.segments[g++] = Segment{from, to, panel_lo, panel, task, 0, 0};
        if (task >= 0) ++sn.task_first[task + 1];
    }
    for (int k = 0; k < tasks; ++k) sn.task_first[k + 1] += sn.task_first[k];
    {
        OwnedArray<int> next;
        if (!next.allocate(tasks)) return -1;
        for (int k = 0; k < tasks; ++k) next[k] = sn.task_first[k];
        for (g = 0; g < segments; ++g) {
            if (sn.segments[g].task >= 0) sn.task_segments[next[sn.segments[g].task]++] = g;
        }
    }
    sn.segment_count = segments;
    sn.task_count = tasks;

    // The forward steps of task columns stop after the rows up to their root's last
    // column; the other entries are counted per row, then listed by row in increasing
    // column order.
    OwnedArray<int> per_row;
    if (!per_row.allocate(N + 1, true)) return -1;
    std::int64_t cross = 0;
    for (g = 0; g < segments; ++g) {
        const Segment& segment = sn.segments[g];
        for (int j = segment.lo; j < segment.hi; ++j) {
            int q = Lp[j + 1];
            if (segment.task >= 0) {
                const int bound = unit_last[root_of[unit_of[j]]];
                q = Lp[j];
                while (q < Lp[j + 1] && Li[q] <= bound) ++q;
                for (int t = q; t < Lp[j + 1]; ++t) ++per_row[Li[t] + 1];
                cross += Lp[j + 1] - q;
            }
            sn.inner_end[j] = q;
        }
        for (int s = segment.panel_lo; s < segment.panel_hi; ++s) {
            const int below = sn.row_start[s + 1] - sn.row_start[s];
            int inside = below;
            if (segment.task >= 0) {
                const int bound = unit_last[root_of[unit_of[sn.first[s]]]];
                inside = 0;
                while (inside < below && sn.rows[sn.row_start[s] + inside] <= bound) ++inside;
            }
            sn.rows_inside[s] = inside;
        }
    }
    int rows_with = 0;
    for (int i = 0; i < N; ++i) rows_with += per_row[i + 1] > 0;
    if (cross > INT32_MAX || !sn.cross_rows.allocate(rows_with > 0 ? rows_with : 1) || !sn.cross_start.allocate(rows_with + 1) ||
        !sn.cross_column.allocate(cross > 0 ? cross : 1) || !sn.cross_value.allocate(cross > 0 ? cross : 1) ||
        !sn.cross_block.allocate(kCrossBlocks + 1)) {
        return -1;
    }
    for (int i = 0; i < N; ++i) per_row[i + 1] += per_row[i];  // per_row[i]: where row i's entries start
    sn.cross_start[0] = 0;
    for (int i = 0, r = 0; i < N; ++i) {
        if (per_row[i + 1] == per_row[i]) continue;
        sn.cross_rows[r] = i;
        sn.cross_start[++r] = per_row[i + 1];
    }
    for (g = 0; g < segments; ++g) {
        const Segment& segment = sn.segments[g];
        if (segment.task < 0) continue;
        for (int j = segment.lo; j < segment.hi; ++j) {
            for (int q = sn.inner_end[j]; q < Lp[j + 1]; ++q) {
                const int at = per_row[Li[q]]++;
                sn.cross_column[at] = j;
                sn.cross_value[at] = L->x[q];
            }
        }
    }
    sn.cross_row_count = rows_with;

    // Blocks of cross rows of at least grain entries each (the last may hold fewer).
    std::int64_t grain = cross / kCrossBlocks + 1;
    if (grain < kCrossGrain) grain = kCrossGrain;
    int blocks = 0;
    sn.cross_block[0] = 0;
    for (int r = 0; r < rows_with;) {
        const int from = sn.cross_start[r];
        while (r < rows_with && sn.cross_start[r] - from < grain) ++r;
        sn.cross_block[++blocks] = r;
    }
    sn.cross_block_count = blocks;
    return 0;
}

}  // namespace korvex
