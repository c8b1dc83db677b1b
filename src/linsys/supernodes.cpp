// The factor by supernodes, and the two triangular passes of a solve over its panels.
//
// A supernode is a run of columns f .. f + w - 1 of L where column j + 1 is the parent of
// column j and holds the same rows below it: pattern(j) = {j + 1} + pattern(j + 1). Its
// entries form one dense panel of (w + r) x w, r the rows below the run. The forward pass
// solves the small triangle, forms the panel's update of the rows below in a contiguous
// scratch vector and subtracts it through the row list; the backward pass gathers those
// rows once and takes w dot products with several accumulators each. Both read every
// value once and every index once per panel row, not once per entry. A column outside
// every panel is read from L itself: a scatter forward, and backward one
// gather with four running sums, so that its chain of additions is a quarter as long.
// Runs of fewer than kPanelWidth columns are read as single columns too. Runs of columns
// with at most one entry (leaves of the tree, such as the rows of variables in a cone) are
// read from a copy with one row and one value a column and no column pointers: such
// columns cost little arithmetic, so the bookkeeping of a column would dominate them.
//
// The order of the additions differs from a column-by-column solve, so the results agree
// with it to rounding, not bit for bit; every solve is the same sequence of operations
// for the same factor and right-hand side, whatever else runs and on however many
// threads: its tasks (subtrees.cpp) and the pieces of a wide panel's rectangle are fixed
// by the factor alone.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "reporting/threads.h"

// Dense kernels of OpenBLAS for the wide panels, through their Fortran symbols: every
// argument by reference, with the hidden lengths of the character arguments.
extern "C" {
void dgemv_(const char* trans, const int* m, const int* n, const double* alpha, const double* a, const int* lda,
            const double* x, const int* incx, const double* beta, double* y, const int* incy, std::size_t trans_len);
void dtrsv_(const char* uplo, const char* trans, const char* diag, const int* n, const double* a, const int* lda,
            double* x, const int* incx, std::size_t uplo_len, std::size_t trans_len, std::size_t diag_len);
}

namespace korvex {

namespace {

// Panels of at least this many columns go to OpenBLAS; narrower ones to the loops here,
// where a call would cost more than it saves.
constexpr int kBlasWidth = 8;

// Runs narrower than this stay columns of L: below it the bookkeeping of a panel costs
// more than the indices it saves.
constexpr int kPanelWidth = 4;

// Runs of at least this many columns of at most one entry are read from their copy.
constexpr int kShortRun = 4;

// A rectangle below a panel of at least kSplitRectangle entries is multiplied in pieces
// side by side: rows of at least kLeastPiece (forward) or columns (backward), at most
// kMostPieces of them, fixed by the panel's shape alone.
constexpr std::int64_t kSplitRectangle = 1 << 15;
constexpr int kLeastPiece = 32;
constexpr int kMostPieces = 8;

int piecesFor(int r, int w, int along) {
    if (static_cast<std::int64_t>(r) * w < kSplitRectangle) return 1;
    const int pieces = along / kLeastPiece;
    return pieces < 1 ? 1 : pieces > kMostPieces ? kMostPieces : pieces;
}

// Where piece k of `along` rows or columns in `pieces` starts; piece k ends where k + 1 starts.
int pieceStart(int along, int pieces, int k) {
    return static_cast<int>(static_cast<std::int64_t>(along) * k / pieces);
}

// Forward step of a wide panel of leading dimension ld: xs = T^-1 xs, tmp = B xs (T the
// unit triangle, B the first r rows below), B in pieces of rows.
void forwardWide(const double* panel, int w, int r, int ld, double* xs, double* tmp) {
    const int one = 1;
    const double unit = 1.0, zero = 0.0;
    dtrsv_("L", "N", "U", &w, panel, &ld, xs, &one, 1, 1, 1);
    if (r <= 0) return;
    const int pieces = piecesFor(r, w, r);
    forEachTask(pieces, [&](int k) {
        const int lo = pieceStart(r, pieces, k), rows = pieceStart(r, pieces, k + 1) - lo;
        dgemv_("N", &rows, &w, &unit, panel + w + lo, &ld, xs, &one, &zero, tmp + lo, &one, 1);
    });
}

// Backward step of a wide panel: xs = T'^-1 (xs - B' tmp), B' tmp in pieces of columns.
void backwardWide(const double* panel, int w, int r, double* xs, const double* tmp) {
    const int ld = w + r, one = 1;
    const double minus = -1.0, unit = 1.0;
    if (r > 0) {
        const int pieces = piecesFor(r, w, w);
        forEachTask(pieces, [&](int k) {
            const int lo = pieceStart(w, pieces, k), columns = pieceStart(w, pieces, k + 1) - lo;
            dgemv_("T", &r, &columns, &minus, panel + w + static_cast<std::int64_t>(lo) * ld, &ld, tmp, &one, &unit,
                   xs + lo, &one, 1);
        });
    }
    dtrsv_("L", "T", "U", &w, panel, &ld, xs, &one, 1, 1, 1);
}

// Whether column j + 1 continues the supernode of column j.
bool continuesRun(const int* Lp, const int* Li, int j) {
    const int count = Lp[j + 1] - Lp[j];
    return count > 0 && Li[Lp[j]] == j + 1 && Lp[j + 2] - Lp[j + 1] == count - 1;
}

// sum of a[k] b[k], four running sums combined at the end.
inline double panelDot(const double* a, const double* b, int count) {
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    int k = 0;
    for (; k + 4 <= count; k += 4) {
        s0 += a[k] * b[k];
        s1 += a[k + 1] * b[k + 1];
        s2 += a[k + 2] * b[k + 2];
        s3 += a[k + 3] * b[k + 3];
    }
    for (; k < count; ++k) s0 += a[k] * b[k];
    return (s0 + s1) + (s2 + s3);
}

// Calls visit(segment, first, after) for each run of short columns in column order: at
// least kShortRun consecutive columns of one segment, outside every panel, each with at
// most one entry, which is not a cross entry.
template <class Visit>
void forEachShortRun(const Supernodes& sn, const cs* L, Visit&& visit) {
    const int* Lp = L->p;
    const int* inner_end = sn.inner_end.get();
    for (int g = 0; g < sn.segment_count; ++g) {
        const Segment& segment = sn.segments[g];
        int j = segment.lo;
        for (int s = segment.panel_lo; s <= segment.panel_hi; ++s) {
            const int gap_end = s < segment.panel_hi ? sn.first[s] : segment.hi;
            forEachRunWhere(
                j, gap_end, kShortRun, [&](int c) { return Lp[c + 1] - Lp[c] <= 1 && inner_end[c] == Lp[c + 1]; },
                [&](int first, int after) { visit(g, first, after); });
            if (s < segment.panel_hi) j = sn.after[s];
        }
    }
}

// Fills the runs of short columns of p->panels and the segments' ranges of them.
// Returns 0, or -1 when an array cannot be allocated.
int findShortRuns(LinSysWork* p) {
    Supernodes& sn = p->panels;
    const cs* L = p->L;
    int runs = 0;
    std::int64_t columns = 0;
    forEachShortRun(sn, L, [&](int, int first, int after) {
        ++runs;
        columns += after - first;
    });
    if (!sn.run_first.allocate(runs > 0 ? runs : 1) || !sn.run_start.allocate(runs + 1) ||
        !sn.run_rows.allocate(columns > 0 ? columns : 1) || !sn.run_values.allocate(columns > 0 ? columns : 1)) {
        return -1;
    }
    int k = 0, at = 0, last_segment = -1;
    sn.run_start[0] = 0;
    forEachShortRun(sn, L, [&](int g, int first, int after) {
        if (g != last_segment) sn.segments[g].run_lo = k;
        last_segment = g;
        sn.segments[g].run_hi = k + 1;
        sn.run_first[k] = first;
        for (int j = first; j < after; ++j, ++at) {
            const bool empty = L->p[j + 1] == L->p[j];
            sn.run_rows[at] = empty ? j : L->i[L->p[j]];
            sn.run_values[at] = empty ? -0.0 : L->x[L->p[j]];  // x(j) - (-0.0) x(j) is x(j), its sign kept
        }
        sn.run_start[++k] = at;
    });
    sn.run_count = runs;
    return 0;
}

// The forward step of a run of short columns from column j: x -= L(:, j) x(j) for each,
// then x(j) times its inverse pivot with divide.
void forwardShortRun(const int* rows, const double* values, int count, int j, const double* Dinv, double* x,
                     bool divide) {
    for (int c = 0; c < count; ++c, ++j) {
        const double xj = x[j];
        x[rows[c]] -= values[c] * xj;
        if (divide) x[j] = xj * Dinv[j];
    }
}

// The backward step of a run of short columns from column j, from its last column.
void backwardShortRun(const int* rows, const double* values, int count, int j, double* x) {
    for (int c = count - 1; c >= 0; --c) x[j + c] -= 0.0 + values[c] * x[rows[c]];  // a zero's sign as in a gather
}

}  // namespace

int buildSupernodes(LinSysWork* p) {
    Supernodes& sn = p->panels;
    const cs* L = p->L;
    const int N = L->n;
    const int* Lp = L->p;
    const int* Li = L->i;
    const double* Lx = L->x;

    // Count the runs wide enough for a panel, their rows below and their panel sizes.
    int count = 0;
    std::int64_t row_total = 0, value_total = 0;
    int largest = 0;
    for (int f = 0; f < N;) {
        int e = f + 1;
        while (e < N && continuesRun(Lp, Li, e - 1)) ++e;
        const int w = e - f;
        const int r = Lp[e] - Lp[e - 1];  // the last column holds exactly the rows below
        if (w >= kPanelWidth) {
            ++count;
            row_total += r;
            value_total += static_cast<std::int64_t>(w + r) * w;
            if (r > largest) largest = r;
        }
        f = e;
    }
    if (row_total > INT32_MAX || !sn.inverse_pivots.allocate(N) || !sn.first.allocate(count + 1) ||
        !sn.after.allocate(count) || !sn.row_start.allocate(count + 1) || !sn.value_start.allocate(count + 1) ||
        !sn.rows.allocate(row_total) || !sn.values.allocate(value_total, true)) {
        sn = Supernodes{};
        return -1;
    }

    int s = 0;
    int row_at = 0;
    std::int64_t value_at = 0;
    for (int f = 0; f < N;) {
        int e = f + 1;
        while (e < N && continuesRun(Lp, Li, e - 1)) ++e;
        const int w = e - f;
        const int r = Lp[e] - Lp[e - 1];
        if (w >= kPanelWidth) {
            const int ld = w + r;
            sn.first[s] = f;
            sn.after[s] = e;
            sn.row_start[s] = row_at;
            sn.value_start[s] = value_at;
            std::memcpy(sn.rows.get() + row_at, Li + Lp[e - 1], sizeof(int) * static_cast<std::size_t>(r));
            double* panel = sn.values.get() + value_at;
            for (int k = 0; k < w; ++k) {
                // column f + k: rows f + k + 1 .. e - 1 of the triangle, then the r shared rows
                const int start = Lp[f + k];
                const int in_triangle = w - 1 - k;
                double* column = panel + static_cast<std::int64_t>(k) * ld;
                for (int t = 0; t < in_triangle; ++t) column[k + 1 + t] = Lx[start + t];
                std::memcpy(column + w, Lx + start + in_triangle, sizeof(double) * static_cast<std::size_t>(r));
            }
            row_at += r;
            value_at += static_cast<std::int64_t>(ld) * w;
            ++s;
        }
        f = e;
    }
    sn.first[count] = N;
    for (int j = 0; j < N; ++j) sn.inverse_pivots[j] = 1.0 / p->diag[j];
    sn.row_start[count] = row_at;
    sn.value_start[count] = value_at;
    sn.count = count;
    sn.largest_below = largest;
    if (splitSubtrees(p) != 0 || findShortRuns(p) != 0) {
        sn = Supernodes{};
        return -1;
    }
    return 0;
}

namespace {

// Forward step over a segment's columns: x(j) -= the updates of the columns before it in
// the segment, then x = L^-1 x on the segment's rows and on the rows of inner_end and
// rows_inside. With divide, each x(j) is multiplied by its inverse pivot once its update is
// made.
void forwardSegment(const Supernodes& sn, const cs* L, double* x, const Segment& segment, bool divide, double* tmp) {
    const double* Dinv = sn.inverse_pivots.get();
    const int* Lp = L->p;
    const int* Li = L->i;
    const double* Lx = L->x;
    const int* inner_end = sn.inner_end.get();
    int j = segment.lo;
    int run = segment.run_lo;
    for (int s = segment.panel_lo; s <= segment.panel_hi; ++s) {
        const int f = s < segment.panel_hi ? sn.first[s] : segment.hi;
        while (j < f) {
            const int next = run < segment.run_hi && sn.run_first[run] < f ? sn.run_first[run] : f;
            for (; j < next; ++j) {
                const double xj = x[j];
                for (int q = Lp[j]; q < inner_end[j]; ++q) x[Li[q]] -= Lx[q] * xj;  // x -= L(:,j) x(j)
                if (divide) x[j] = xj * Dinv[j];
            }
            if (j == f) break;
            const int count = sn.run_start[run + 1] - sn.run_start[run];
            forwardShortRun(sn.run_rows.get() + sn.run_start[run], sn.run_values.get() + sn.run_start[run], count, j, Dinv, x,
                            divide);
            j += count;
            ++run;
        }
        if (s == segment.panel_hi) break;
        const int* rows = sn.rows.get() + sn.row_start[s];
        const int r = sn.rows_inside[s];
        const int w = sn.after[s] - f;
        const int ld = w + sn.row_start[s + 1] - sn.row_start[s];
        const double* panel = sn.values.get() + sn.value_start[s];
        double* xs = x + f;
        j = f + w;
        if (w >= kBlasWidth) {
            forwardWide(panel, w, r, ld, xs, tmp);
        } else {
            for (int k = 0; k < w; ++k) {
                const double xk = xs[k];
                const double* column = panel + static_cast<std::int64_t>(k) * ld;
                for (int t = k + 1; t < w; ++t) xs[t] -= column[t] * xk;
            }
            if (r > 0) {
                const double* below = panel + w;
                const double x0 = xs[0];
                for (int i = 0; i < r; ++i) tmp[i] = below[i] * x0;
                for (int k = 1; k < w; ++k) {
                    const double xk = xs[k];
                    const double* column = below + static_cast<std::int64_t>(k) * ld;
                    for (int i = 0; i < r; ++i) tmp[i] += column[i] * xk;
                }
            }
        }
        for (int i = 0; i < r; ++i) x[rows[i]] -= tmp[i];
        if (divide) {
            for (int k = 0; k < w; ++k) xs[k] *= Dinv[f + k];
        }
    }
}

// Backward step over a segment's columns, from its last: the rows below a column or a
// panel are final before it is reached; a single column takes one gather over them, a
// panel gathers them once and takes its w dot products, then solves its triangle.
void backwardSegment(const Supernodes& sn, const cs* L, double* x, const Segment& segment, double* tmp) {
    const int* Lp = L->p;
    const int* Li = L->i;
    const double* Lx = L->x;
    int j = segment.hi - 1;
    int run = segment.run_hi - 1;
    for (int s = segment.panel_hi - 1; s >= segment.panel_lo - 1; --s) {
        const int end = s >= segment.panel_lo ? sn.after[s] : segment.lo;
        while (j >= end) {
            const int count = run >= segment.run_lo ? sn.run_start[run + 1] - sn.run_start[run] : 0;
            const int last = run >= segment.run_lo && sn.run_first[run] >= end ? sn.run_first[run] + count - 1 : end - 1;
            for (; j > last; --j) x[j] -= gatherDot(Lx + Lp[j], Li + Lp[j], x, Lp[j + 1] - Lp[j]);
            if (j < end) break;
            backwardShortRun(sn.run_rows.get() + sn.run_start[run], sn.run_values.get() + sn.run_start[run], count,
                             sn.run_first[run], x);
            j = sn.run_first[run] - 1;
            --run;
        }
        if (s < segment.panel_lo) break;
        const int f = sn.first[s];
        const int* rows = sn.rows.get() + sn.row_start[s];
        const int r = sn.row_start[s + 1] - sn.row_start[s];
        const int w = end - f;
        const int ld = w + r;
        const double* panel = sn.values.get() + sn.value_start[s];
        double* xs = x + f;
        j = f - 1;
        for (int i = 0; i < r; ++i) tmp[i] = x[rows[i]];
        if (w >= kBlasWidth) {
            backwardWide(panel, w, r, xs, tmp);
            continue;
        }
        if (r > 0) {
            for (int k = 0; k < w; ++k) xs[k] -= panelDot(panel + static_cast<std::int64_t>(k) * ld + w, tmp, r);
        }
        for (int k = w - 2; k >= 0; --k) {
            const double* column = panel + static_cast<std::int64_t>(k) * ld;
            xs[k] -= panelDot(column + k + 1, xs + k + 1, w - 1 - k);
        }
    }
}

}  // namespace

void solvePanels(const Supernodes& sn, const cs* L, double* x) {
    const double* Dinv = sn.inverse_pivots.get();
    const Segment* segments = sn.segments.get();
    const int* task_first = sn.task_first.get();
    const int* task_segments = sn.task_segments.get();
    double* scratch = sn.scratch.get();
    const std::int64_t stride = sn.largest_below;

    // Forward: the tasks side by side, leaving their columns undivided; the rows above
    // them gather their cross entries, blocks of rows side by side; then the other
    // segments in order.
    forEachTask(sn.task_count, [&](int k) {
        for (int t = task_first[k]; t < task_first[k + 1]; ++t) {
            forwardSegment(sn, L, x, segments[task_segments[t]], false, scratch + k * stride);
        }
    });
    forEachTask(sn.cross_block_count, [&](int b) {
        for (int r = sn.cross_block[b]; r < sn.cross_block[b + 1]; ++r) {
            const int start = sn.cross_start[r];
            x[sn.cross_rows[r]] -=
                gatherDot(sn.cross_value.get() + start, sn.cross_column.get() + start, x, sn.cross_start[r + 1] - start);
        }
    });
    for (int g = 0; g < sn.segment_count; ++g) {
        if (segments[g].task < 0) forwardSegment(sn, L, x, segments[g], true, scratch);
    }

    // Backward: the other segments from the last, then the tasks side by side, each
    // multiplying a segment's columns by their inverse pivots before solving it, last
    // segment first.
    for (int g = sn.segment_count - 1; g >= 0; --g) {
        if (segments[g].task < 0) backwardSegment(sn, L, x, segments[g], scratch);
    }
    forEachTask(sn.task_count, [&](int k) {
        for (int t = task_first[k + 1] - 1; t >= task_first[k]; --t) {
            const Segment& segment = segments[task_segments[t]];
            for (int j = segment.lo; j < segment.hi; ++j) x[j] *= Dinv[j];
            backwardSegment(sn, L, x, segment, scratch + k * stride);
        }
    });
}

}  // namespace korvex
