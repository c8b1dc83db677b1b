// The linear system of a solve: the sparse operator A, the equilibration of the data,
// the one LDL' factorisation of
//
//     K = [ rho_x I(n) , A' ; A , -I(m) ]      (order N = n + m, quasi-definite)
//
// and the projection step answered from it.
//
// A is stored once, by columns, and never transposed. K is formed from the matrix in use
// (the normalised copy when normalize is set), ordered by AMD, permuted by CXSparse and
// factorised here, row by row, without pivoting: every pivot of a quasi-definite matrix
// is non-zero in exact arithmetic, positive at x positions and negative at y positions,
// so the ordering is chosen for sparsity alone. Nothing refactorises during a solve.
//
// Units. With D = row_scale, E = col_scale and the factors b_factor, c_factor of Work,
// the iterations work on scale D^-1 A E^-1, scale b_factor D^-1 b and scale c_factor
// E^-1 c. A point (xn, yn, sn) of that problem is, in the caller's units,
//     x[j] = xn[j] / (E[j] b_factor)        y[i] = yn[i] / (D[i] c_factor)
//     s[i] = (D[i] / (scale b_factor)) sn[i]
// primal residual entry i times D[i] / (scale b_factor), dual residual entry j times
// E[j] / (scale c_factor), and c'x, b'y, kap divided by scale b_factor c_factor. With
// normalize 0 every factor counts as 1.
#pragma once

#include <cs.h>

#include "records/records.h"
#include "reporting/allocation.h"

namespace korvex {

struct Work;

// The result of the equilibration: A was divided by D row-wise and by E column-wise.
struct Scaling {
    OwnedArray<double> row_scale;  // D, m entries, positive for valid data
    OwnedArray<double> col_scale;  // E, n entries, positive for valid data
    double mean_row_norm;          // mean row norm of D^-1 A E^-1, before scale
    double mean_col_norm;          // mean column norm of D^-1 A E^-1, before scale
};

// L again, grouped into supernodes: runs of w >= 4 consecutive columns f .. f + w - 1 in
// which each column's pattern is the next column's plus that column itself. Such a run is
// one dense panel, column-major with leading dimension w + r: its top w rows are the unit
// lower triangle of the run (entries on and above the diagonal unused), its bottom r rows
// the rows below the run that all its columns share, listed once in rows. A solve then
// loads an index per panel row instead of one per entry, and the arithmetic inside a
// panel is dense. Columns outside every run are read from L itself, except runs of columns
// of at most one entry, which are read from a copy without column pointers.
//
// The columns also fall into segments, consecutive column ranges in order, each part of
// one task or of none. A task is a union of whole subtrees of the elimination tree whose
// ancestors all lie outside every task, so the tasks' two passes can run at the same
// time: forward, a task updates only rows of its own subtrees (its entries on the rows
// above are gathered afterwards, row by row, from the cross entries, blocks of rows side
// by side), and backward it reads rows above that are already final. The split depends
// on L alone, so a solve gives the same bits on any number of threads. A small factor has
// one segment, every column, and no task.
struct Segment {
    int lo, hi;              // columns lo .. hi - 1
    int panel_lo, panel_hi;  // the supernodes inside, panel_lo .. panel_hi - 1
    int task;                // its task number, or -1 for a segment solved after the tasks forward
    int run_lo, run_hi;      // the runs of short columns inside, run_lo .. run_hi - 1
};

struct Supernodes {
    OwnedArray<double> inverse_pivots;        // N: 1 / D, what the passes multiply by
    int count;                                // number of supernodes
    int largest_below;                        // the largest r, the length of a task's scratch
    OwnedArray<int> first;                    // count + 1: first column of each supernode, then N
    OwnedArray<int> after;                    // count: one past the last column of each
    OwnedArray<int> row_start;                // count + 1: rows[row_start[s] ..) are its r rows
    OwnedArray<std::int64_t> value_start;     // count + 1: its panel starts at values[value_start[s]]
    OwnedArray<int> rows;                     // rows below each run, increasing
    OwnedArray<double> values;                // the panels
    OwnedArray<double> scratch;               // max(1, task_count) * largest_below: panel rows, per task

    int segment_count;
    int task_count;
    OwnedArray<Segment> segments;             // segment_count, in column order
    OwnedArray<int> task_first;               // task_count + 1: task k's segments are
    OwnedArray<int> task_segments;            // task_segments[task_first[k] .. task_first[k + 1]), in order
    OwnedArray<int> inner_end;                // N: the forward step of column j updates Li[Lp[j] .. inner_end[j])
    OwnedArray<int> rows_inside;              // count: the forward step of a panel updates its first rows_inside[s] rows below
    int cross_row_count;                      // rows that gather cross entries
    OwnedArray<int> cross_rows;               // cross_row_count, increasing
    OwnedArray<int> cross_start;              // cross_row_count + 1
    OwnedArray<int> cross_column;             // the task column of each cross entry, increasing within a row
    OwnedArray<double> cross_value;           // its entry of L
    int cross_block_count;                    // blocks of cross rows gathered side by side
    OwnedArray<int> cross_block;              // cross_block_count + 1: block b is rows cross_block[b] .. cross_block[b + 1] - 1
    // Runs of consecutive columns outside every panel, within one segment, each column with
    // at most one entry and no cross entry: run k is the columns from run_first[k] on, whose
    // entries are run_rows and run_values [run_start[k] .. run_start[k + 1]), one a column.
    // A column without an entry holds a zero (-0.0) on its own row, which changes nothing in
    // either pass, so a run is solved without a branch per column.
    int run_count;
    OwnedArray<int> run_first;                // run_count
    OwnedArray<int> run_start;                // run_count + 1
    OwnedArray<int> run_rows;
    OwnedArray<double> run_values;
};

// A by rows (compressed rows, entries of a row in increasing column order): what makes
// A x a gather, one sum per row, like A' y over the columns of A. Its memory is that of A
// again: 12 bytes an entry and 4 a row.
struct RowCopy {
    int m;                   // rows
    OwnedArray<int> start;   // m + 1: row i holds entries start[i] .. start[i+1] - 1
    OwnedArray<int> column;  // column of each entry
    OwnedArray<double> value;
    int single_count;               // runs of consecutive rows of one entry each (the rows of a
    OwnedArray<int> single_first;   // cone over variables, say), taken without a loop per row:
    OwnedArray<int> single_after;   // run k is rows single_first[k] .. single_after[k] - 1
};

// The factorisation P K P' = L D L' of one solve (perm gives P), and the scratch of a
// solve with it. L is a cs record in layout, made and released by this library's
// allocator: column j holds L(k, j) for k > j in increasing k, the unit diagonal is not
// stored, nz is -1 and nzmax equals p[N].
struct LinSysWork {
    cs* L;                        // strictly lower part of the unit lower triangular factor
    OwnedArray<double> diag;      // N: the pivots, the diagonal of D itself
    OwnedArray<int> perm;         // N: perm[k] is the row and column of K eliminated k-th
    OwnedArray<double> rhs_work;  // N: scratch of solveWithFactors
    OwnedArray<double> h_perm;    // N: h of the projection step in the solve's order (startVectors)
    OwnedArray<int> perm_inverse;  // N: perm_inverse[perm[k]] = k, where entry i goes in the solve's order
    Supernodes panels;            // L by supernodes, what solves read; made with L
    RowCopy rows_of_A;            // the A of the solve by rows, for products A x as gathers
    double solve_time_ms;         // milliseconds in solves since set-up or the last summary
    long long solve_count;        // solves since set-up: what an iteration's steps cost, for the curious
    ~LinSysWork();                // releases L
};

// Calls visit(first, after) for each maximal run of at least `least` consecutive indices of
// lo .. hi - 1 that all satisfy keep, in increasing order.
template <class Keep, class Visit>
void forEachRunWhere(int lo, int hi, int least, Keep&& keep, Visit&& visit) {
    for (int i = lo; i < hi;) {
        int e = i;
        while (e < hi && keep(e)) ++e;
        if (e - i >= least) visit(i, e);
        i = e > i ? e : i + 1;
    }
}

// ---- Sparse operator (A is m x n, compressed by columns) --------------------------

// y += A x, scattering column by column; x has n entries, y has m.
void multiplyAddA(const SparseMatrix* A, const double* x, double* y);

// y += A' x; each y[j] is one sum that starts from its present value and adds the
// terms of column j in stored order. x has m entries, y has n.
void multiplyAddAt(const SparseMatrix* A, const double* x, double* y);

// Fills rows with A by rows. Returns 0, or -1 when an array cannot be allocated.
int buildRowCopy(const SparseMatrix* A, RowCopy* rows);

// y = A x from the row copy of A: each y[i] is one gather over row i with several running
// sums, so a block of rows is independent of every other. Rows are split into fixed
// blocks that run on the solve's threads; the partition does not depend on their number.
void productA(const RowCopy* rows, const double* x, double* y);

// y = A' x: each y[j] one gather over column j with several running sums, columns in
// fixed blocks as in productA.
void productAt(const SparseMatrix* A, const double* x, double* y);

// A deep copy of source (record and three arrays), or null on allocation failure.
SparseMatrix* copyMatrix(const SparseMatrix* source);

// Frees x, i and p where non-null, then the record; null does nothing.
void freeMatrix(SparseMatrix* matrix);

// Equilibrates A in place to scale D^-1 A E^-1 and fills scaling (D, E and the two mean
// norms). Rows of one cone block (after the zero and non-negative rows) share one
// factor; norms below their lower bound give the factor 1. A is never the caller's
// matrix. Returns 0, or -1 when an allocation fails; A and scaling are then unchanged.
int normalizeMatrix(SparseMatrix* A, const Settings* settings, const Cone* cone, Scaling* scaling);

// ---- Direct factorisation ---------------------------------------------------------

// The factorisation of K for A and settings->rho_x, or null on any failure: an
// allocation, AMD, an exact zero pivot, or an interrupt (which prints "interrupt
// detected in factorization\n"). Nothing of a failed call outlives it; A is not kept.
LinSysWork* initPriv(const SparseMatrix* A, const Settings* settings);

// Releases p with L and its arrays; null does nothing.
void releasePriv(LinSysWork* p);

// The upper triangle of K, compressed by columns (CXSparse's allocator: release with
// cs_spfree), or null. Column n + i holds row i of A in column order, then -1.0; stored
// zeros and duplicate entries of A are kept as they are.
cs* assembleSystemMatrix(const SparseMatrix* A, const Settings* settings);

// Factorises C, the upper triangle of P K P' in elimination order, into p->L (made when
// null), p->diag and p->panels. Returns 0; -1 when an array cannot be allocated or L would exceed 32-bit
// indices; k - N for an exact zero pivot at row k; -1 - N after an interrupt.
int factoriseSystem(const cs* C, LinSysWork* p);

// Elimination tree and column counts of L for the upper triangle (Cp, Ci) of order N:
// fills parent (-1 at a root), Lnz (entries per column of L), Lp (N + 1 column
// pointers) and uses flag as visit marks. Returns 0, or -1 when Lp[N] would exceed
// INT_MAX (Lp is then not filled).
int symbolicStep(int N, const int* Cp, const int* Ci, int* Lp, int* parent, int* Lnz, int* flag);

// Fills p->panels from p->L (which holds a complete factor). Returns 0, or -1 when an
// array cannot be allocated (panels are then left empty).
int buildSupernodes(LinSysWork* p);

// Splits the columns of p->L into segments and tasks (fills the split fields of p->panels
// and its scratch). Returns 0, or -1 when an array cannot be allocated.
int splitSubtrees(LinSysWork* p);

// x = L'^-1 D^-1 L^-1 x in elimination order, over the panels of sn and the other columns
// of L (N entries; D^-1 as sn.inverse_pivots, a product instead of a division a row).
// Uses sn.scratch; allocates nothing.
void solvePanels(const Supernodes& sn, const cs* L, double* x);

// L D L' = C, one row of L at a time, polling the interrupt flag before each row.
// Lnz is the fill cursor (refilled from 0), Y an accumulator of N zeros that is left
// all zero, pattern and flag are N-entry scratch. Returns N on success, k for an exact
// zero pivot at row k, -1 after an interrupt (message printed with printPlain).
int numericStep(int N, const cs* C, const int* Lp, const int* parent, int* Lnz, int* Li, double* Lx, double* D,
                double* Y, int* pattern, int* flag);

// ---- Projection solve -------------------------------------------------------------

// Solves K z = rhs in place (N entries): rhs := P' L'^-1 D^-1 L^-1 P rhs, and adds the
// time taken to lin_sys->solve_time_ms. A, settings, start and iteration play no part in
// a direct solve. Allocates nothing; returns 0.
int solveWithFactors(const SparseMatrix* A, const Settings* settings, LinSysWork* lin_sys, double* rhs,
                     const double* start, int iteration);

// Called once by either iteration, after its timer has started: the norms of the
// caller's b and c, the working (normalised) b and c with b_factor and c_factor, the
// cold or warm start of u (and v in the standard iteration), h = (c, b), g = K^-1 h
// with its y block negated, and g_dot_h. A warm start whose point is missing prints a
// warning and starts cold. Returns 0.
int startVectors(const Data* data, Work* work, const Solution* solution);

// The warm start from solution, given in the caller's units and brought into the
// normalised ones, NaN entries taken as 0. Standard iteration: u = (x, y, 1),
// v = (0, s, 0). Marlet iteration: u = (I + Q) u_t with u_t = (x, y, 1); pr and dr
// serve as scratch. Returns 0, or -1 without writing
// anything when solution or one of the arrays it needs is null.
int warmStartVectors(Work* work, const Solution* solution);

// The standard iteration's step: u_t = (M + Q)^-1 M (u + v), with M = diag(rho_x I, I, 1).
// Allocates nothing; returns 0.
int projectLinSys(Work* work, int iteration);

// The Marlet iteration's step: target = (M + Q)^-1 M source, l entries each; target may
// be source. Allocates nothing; returns 0.
int projectLinSysv2(double* target, const double* source, Work* work, int iteration);

// A new 128-byte text "sparse-direct, nnz in A = <Anz>", or null; the caller releases
// it with releaseMemory.
char* linSysMethodText(const SparseMatrix* A);

// A new 128-byte text "\tLin-sys: nnz in L factor: <nnz(L) + N>, avg solve time: <s>s\n"
// with the solve time per iteration (info->iter + 1 of them), or null; resets
// solve_time_ms. The caller releases it with releaseMemory.
char* linSysSummaryText(LinSysWork* lin_sys, const Info* info);

}  // namespace korvex
