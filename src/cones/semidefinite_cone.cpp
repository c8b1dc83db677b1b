// Projection of a packed symmetric matrix onto the positive semidefinite cone:
// P(M) = sum over the eigenpairs (e, z) of M with e > 0 of e z z'.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>

#include "cones/cones.h"
#include "cones/lapack.h"

namespace korvex {

namespace {

// Start of column j of a packed matrix of side n: j n - j(j-1)/2.
std::int64_t packedColumn(int j, int n) {
    return static_cast<std::int64_t>(j) * n - static_cast<std::int64_t>(j) * (j - 1) / 2;
}

// Side 2, packed as (a, sqrt(2) b, d) for M = [a b; b d]: the eigenvalues are
// ((a + d) +- sqrt(4 b^2 + (a - d)^2)) / 2, and when exactly one is positive the result
// is large c c' with c = (c1, c2) the unit eigenvector of the positive one.
void projectSideTwo(double* x) {
    const double a = x[0];
    const double b = x[1] / std::sqrt(2.0);
    const double d = x[2];
    if (std::fabs(b) < 1e-6) {  // counted as diagonal: the off-diagonal is dropped
        x[0] = std::max(a, 0.0);
        x[1] = 0.0;
        x[2] = std::max(d, 0.0);
        return;
    }
    const double rad = std::sqrt(4 * b * b + (a - d) * (a - d));
    const double large = ((d + a) + rad) / 2;
    const double small = ((d + a) - rad) / 2;
    if (small >= 0.0) return;  // already positive semidefinite
    if (large <= 0.0) {        // negative semidefinite: the projection is 0
        x[0] = x[1] = x[2] = 0.0;
        return;
    }
    // (M - large I) c = 0 gives c2 / c1 = (large - a) / b = q / b.
    const double q = large - a;
    const double c1 = 1 / std::sqrt(q * q / b / b + 1);
    const double c2 = q * c1 / b;
    x[0] = (c1 * large) * c1;
    x[1] = ((c1 * large) * c2) * std::sqrt(2.0);
    x[2] = (c2 * large) * c2;
}

}  // namespace

int projectSemidefiniteBlock(double* x, int n, ConeWork* coneWork) {
    if (n == 0) return 0;
    if (n == 1) {
        if (x[0] < 0.0) x[0] = 0.0;
        return 0;
    }
    if (n == 2) {
        projectSideTwo(x);
        return 0;
    }

    const double sqrt2 = std::sqrt(2.0);
    const double inv_sqrt2 = 1 / std::sqrt(2.0);
    const int one = 1;
    const int diagonal_step = n + 1;  // walks the diagonal of a column-major n x n matrix
    const int packed = static_cast<int>(static_cast<std::int64_t>(n) * (n + 1) / 2);
    double* A = coneWork->sd_matrix.get();
    double* Z = coneWork->sd_vectors.get();
    double* e = coneWork->sd_values.get();

    // A = lower triangle of sqrt(2) M: the packed off-diagonals already carry sqrt(2), so
    // only the diagonal is scaled, here and back on the way out.
    for (int i = 0; i < n; ++i) {
        std::memcpy(A + static_cast<std::int64_t>(i) * n + i, x + packedColumn(i, n), sizeof(double) * (n - i));
    }
    dscal_(&n, &sqrt2, A, &diagonal_step);

    // Every eigenvalue of sqrt(2) M lies below sqrt(2) |M|_F = sqrt(2) |x|, so below vu;
    // the floor 0.01 keeps the interval non-empty (also for a NaN norm).
    const double nrm = dnrm2_(&packed, x, &one);
    double vu = (sqrt2 * 1.1) * nrm;
    if (!(vu > 0.01)) vu = 0.01;

    // The positive eigenpairs alone: eigenvalues in (vl, vu] = (0, vu].
    const double vl = 0.0;
    const double abstol = 1e-8;
    int found = 0;
    int info = 0;
    dsyevr_("V", "V", "L", &n, A, &n, &vl, &vu, nullptr, nullptr, &abstol, &found, e, Z, &n, nullptr,
            coneWork->eig_work.get(), &coneWork->eig_work_len, coneWork->eig_iwork.get(), &coneWork->eig_iwork_len,
            &info, 1, 1, 1);
    if (info < 0) return -1;  // x is still the input

    // A = sum over the found pairs of e_i z_i z_i' = sqrt(2) P(M), lower triangle.
    std::memset(A, 0, sizeof(double) * static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
    for (int i = 0; i < found; ++i) {
        dsyr_("L", &n, &e[i], Z + static_cast<std::int64_t>(i) * n, &one, A, &n, 1);
    }
    dscal_(&n, &inv_sqrt2, A, &diagonal_step);

    // Pack: the diagonal of P(M), the off-diagonals in the packed scale sqrt(2) P(M).
    for (int i = 0; i < n; ++i) {
        std::memcpy(x + packedColumn(i, n), A + static_cast<std::int64_t>(i) * n + i, sizeof(double) * (n - i));
    }
    return 0;
}

}  // namespace korvex
