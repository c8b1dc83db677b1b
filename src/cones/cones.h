// The cone subsystem: the workspace of the projections and the Euclidean projections onto
// the dual cone K*. The plain operations on the Cone record live in records/cone_record.h.
//
// Packed symmetric matrices: a matrix M of side n takes n(n+1)/2 entries, the lower
// triangle column after column; entry (i, j), i >= j, sits at j n - j(j-1)/2 + (i - j),
// a diagonal entry as M(i, i), an off-diagonal one as sqrt(2) M(i, j), so that the
// Euclidean norm and inner product of packed vectors are those of the matrices.
#pragma once

#include <cstdint>

#include "records/cone_record.h"
#include "records/records.h"
#include "reporting/allocation.h"

namespace korvex {

// Scratch of the cone projections of one solve. The five arrays exist only when some
// semidefinite block has side 3 or more (sides 1 and 2 have closed forms); they are
// sized for the largest side N and shared by all blocks.
struct ConeWork {
    OwnedArray<double> sd_matrix;   // N x N scratch matrix, zero-filled
    OwnedArray<double> sd_vectors;  // N x N eigenvectors, zero-filled
    OwnedArray<double> sd_values;   // N eigenvalues, zero-filled
    OwnedArray<double> eig_work;    // dsyevr real workspace, eig_work_len entries
    OwnedArray<int> eig_iwork;      // dsyevr integer workspace, eig_iwork_len entries
    int eig_work_len;               // from the workspace query
    int eig_iwork_len;              // from the workspace query
    double projection_time_ms;      // time in the projection driver since the last timing line
};

// A new text "\tCones: avg projection time: %1.2es\n" with the seconds per iteration of
// the projections (info->iter + 1 iterations); resets projection_time_ms. Null on
// allocation failure.
char* coneTimingLine(const Info* info, ConeWork* coneWork);

// A new workspace for cone, or null on failure. Makes the dsyevr workspace query when a
// semidefinite block has side 3 or more.
ConeWork* initCone(const Cone* cone);

// Releases the workspace and its arrays; null does nothing.
void freeConeWork(ConeWork* coneWork);

// x = P_{K*}(x) over cone's m rows, block by block in the fixed row order: zero rows are
// left alone, non-negative and second-order blocks are projected here, the others by the
// routines below, primal exponential and primal power blocks through the Moreau identity
// x + P_K(-x). Adds the elapsed milliseconds to coneWork->projection_time_ms and returns
// 0. When a semidefinite block fails it returns -1 at once: the rows before that block
// are projected, the block and all later rows are as they came, and no time is added.
// Allocates nothing. coneWork must come from initCone(cone).
int projectToDualCone(double* x, const Cone* cone, ConeWork* coneWork);

// x = P_S+(x) for one packed matrix of side n (n(n+1)/2 entries, in place): closed forms
// for n <= 2 (coneWork is not read); from n = 3 the eigenpairs of sqrt(2) M in
// (0, max(1.1 sqrt(2) |x|, 0.01)] from dsyevr, summed by dsyr in coneWork's scratch
// arrays. Returns 0, or -1 with x unchanged when dsyevr reports an illegal argument.
int projectSemidefiniteBlock(double* x, int n, ConeWork* coneWork);

// v = P(v) onto the exponential cone cl{(r, s, t): s > 0, s exp(r/s) <= t}, in place:
// five direct cases, otherwise a bisection on the multiplier rho with expCandidate, whose
// last candidate is the result. Cannot fail.
void projectExpTriple(double* v);

// The stationary point cand of the projection of v for multiplier rho > 0 (v is only
// read); returns the constraint value r + s log(s/t) at cand, positive while cand lies
// outside the cone (rho too small), or cand's r when its s is at most 1e-12.
double expCandidate(const double* v, double* cand, double rho);

// v = P(v) onto the power cone {(x, y, z): x, y >= 0, x^a y^(1-a) >= |z|} of exponent a
// in [0, 1], in place: two direct cases, otherwise Newton (at most 20 steps) on |z| of
// the result, with x and y floored at 1e-12. Cannot fail.
void projectPowerTriple(double* v, double a);

}  // namespace korvex
