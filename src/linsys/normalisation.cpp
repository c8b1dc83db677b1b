// Equilibration of A: one pass over the rows, then one over the columns.
#include <algorithm>
#include <cmath>

#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "records/cone_record.h"

namespace korvex {

namespace {

// Gives every row of a cone block (after the leading zero and non-negative rows) the
// mean of the block's row norms, so that a scaled block is still a block of its cone.
void shareFactorsWithinBlocks(double* r, int m, const int* blocks, int block_count) {
    int start = std::clamp(blocks[0], 0, m);
    for (int b = 1; b < block_count; ++b) {
        const int len = std::min(blocks[b], m - start);  // a valid cone record adds up to m
        if (len <= 0) continue;
        double sum = 0.0;
        for (int i = start; i < start + len; ++i) sum += r[i];
        const double mean = sum / len;
        std::fill(r + start, r + start + len, mean);
        start += len;
    }
}

// Clamps a norm to a factor: below lower gives 1 (a tiny or empty row or column is left
// alone, not blown up to the bound), above upper gives upper. A NaN passes both tests.
double clampedFactor(double norm, double lower, double upper) {
    if (norm < lower) return 1.0;
    return norm > upper ? upper : norm;
}

}  // namespace

int normalizeMatrix(SparseMatrix* A, const Settings* settings, const Cone* cone, Scaling* scaling) {
    const int m = A->m;
    const int n = A->n;
    const int* Ap = A->p;
    const int* Ai = A->i;
    double* Ax = A->x;
    const int nnz = Ap[n];

    int* block_list = nullptr;
    const int block_count = coneBlockLengths(cone, &block_list);
    OwnedArray<int> blocks(block_list);
    OwnedArray<double> row_factor;  // becomes D
    OwnedArray<double> col_factor;  // becomes E
    OwnedArray<double> row_sums;    // squared row norms of the result
    if (!blocks || !row_factor.allocate(m, true) || !col_factor.allocate(n) || !row_sums.allocate(m, true)) {
        return -1;
    }
    double* r = row_factor.get();
    double* e = col_factor.get();

    // Row bounds depend on the number of columns, column bounds on the number of rows.
    const double min_row = 0.001 * std::sqrt(static_cast<double>(n));
    const double max_row = 1000.0 * std::sqrt(static_cast<double>(n));
    const double min_col = 0.001 * std::sqrt(static_cast<double>(m));
    const double max_col = 1000.0 * std::sqrt(static_cast<double>(m));

    // r(i) = ||A(i,:)||, squares accumulated column by column
    for (int q = 0; q < nnz; ++q) r[Ai[q]] += Ax[q] * Ax[q];
    for (int i = 0; i < m; ++i) r[i] = std::sqrt(r[i]);
    shareFactorsWithinBlocks(r, m, blocks.get(), block_count);
    for (int i = 0; i < m; ++i) r[i] = clampedFactor(r[i], min_row, max_row);

    // A := D^-1 A (a division), then A := A E^-1 (a multiplication by the reciprocal)
    for (int q = 0; q < nnz; ++q) Ax[q] /= r[Ai[q]];
    for (int j = 0; j < n; ++j) {
        e[j] = clampedFactor(normTwo(Ax + Ap[j], Ap[j + 1] - Ap[j]), min_col, max_col);
        const double reciprocal = 1.0 / e[j];
        for (int q = Ap[j]; q < Ap[j + 1]; ++q) Ax[q] *= reciprocal;
    }

    // Mean row and column norms of D^-1 A E^-1, added in increasing index order.
    double* sums = row_sums.get();
    for (int q = 0; q < nnz; ++q) sums[Ai[q]] += Ax[q] * Ax[q];
    double mean_row_norm = 0.0;
    for (int i = 0; i < m; ++i) mean_row_norm += std::sqrt(sums[i]) / m;
    double mean_col_norm = 0.0;
    for (int j = 0; j < n; ++j) mean_col_norm += normTwo(Ax + Ap[j], Ap[j + 1] - Ap[j]) / n;

    const double scale = settings->scale;
    if (scale != 1.0) {
        for (int q = 0; q < nnz; ++q) Ax[q] *= scale;
    }

    scaling->row_scale = std::move(row_factor);
    scaling->col_scale = std::move(col_factor);
    scaling->mean_row_norm = mean_row_norm;
    scaling->mean_col_norm = mean_col_norm;
    return 0;
}

}  // namespace korvex
