// Projection of a packed symmetric matrix onto the positive semidefinite cone:
// P(M) = sum over the eigenpairs (e, z) of M with e > 0 of e z z' = M - (the same sum over
// e < 0), whichever side has fewer eigenpairs.
//
// From side 3 on, the lower triangle of sqrt(2) M is reduced to a tridiagonal T = Q' A Q
// (dsytrd, half of its work in level-3 updates). Sylvester's law of inertia on T - sigma I
// (the signs of its LDL' pivots, O(n)) counts the eigenvalues above and below 0; only the
// smaller side is computed. Up to one pair in eight: its eigenvalues by bisection on those
// counts, every interval halved in the same pass over T, and its vectors by inverse
// iteration (dstein); MRRR (dstemr), which bisects one eigenvalue at a time, cost as much
// as the reduction itself for a few pairs. Beyond that share, all of T's pairs by divide
// and conquer. The vectors are taken back by Q (dormtr, level 3), scaled by the square
// roots of |e|, and the result is one rank-k update (dsyrk): onto 0 for the positive side,
// onto M for the negative one. The cost is thus the reduction plus O(n^2 min(k, n - k)),
// never more than a full decomposition. Eigenvalues within n eps |sqrt(2) M|_F of 0 are
// zero at the accuracy of the reduction and are left out of both counts and both intervals.
// Should inverse iteration not converge, MRRR serves the interval; should a tridiagonal
// eigensolver report a failure of its own, the positive eigenpairs come from dsyevr.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

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

// A = the lower triangle of sqrt(2) M: the packed off-diagonals already carry sqrt(2), so
// only the diagonal is scaled, here and back on the way out.
void unpackScaled(const double* x, int n, double* A) {
    const double sqrt2 = std::sqrt(2.0);
    const int diagonal_step = n + 1;
    for (int i = 0; i < n; ++i) {
        std::memcpy(A + static_cast<std::int64_t>(i) * n + i, x + packedColumn(i, n), sizeof(double) * (n - i));
    }
    dscal_(&n, &sqrt2, A, &diagonal_step);
}

// The number of eigenvalues of the tridiagonal (d, e) below sigma: the negative pivots of
// T - sigma I = L D L', with pivots smaller than pivot_floor taken as -pivot_floor.
// Beyond one pair in kWholeSpectrumShare of the side, all eigenpairs of the tridiagonal by
// divide and conquer cost less than the wanted ones one by one.
constexpr int kWholeSpectrumShare = 8;

// Intervals bisected side by side in one pass over the rows.
constexpr int kBisectLanes = 16;

int countBelow(const double* d, const double* e, int n, double sigma, double pivot_floor) {
    int count = 0;
    double pivot = d[0] - sigma;
    for (int i = 0;;) {
        if (std::fabs(pivot) < pivot_floor) pivot = -pivot_floor;
        count += pivot < 0.0;
        if (++i == n) return count;
        pivot = d[i] - sigma - e[i - 1] * e[i - 1] / pivot;
    }
}

// The eigenvalues first .. first + count - 1 (from 0, in increasing order) of the
// tridiagonal (d, e) into values, by bisection on countBelow's counts, every interval at
// once: each step halves all of them in one pass over the rows, the intervals' sums side by
// side in the inner loop, where they vectorise. lo and hi bracket the wanted eigenvalues
// (countBelow(lo) <= first, countBelow(hi) >= first + count); each value ends within
// accuracy of its eigenvalue. scratch holds 3 count entries.
void bisectEigenvalues(const double* d, const double* e, int n, int first, int count, double lo, double hi,
                       double accuracy, double pivot_floor, double* values, double* scratch) {
    double* below = scratch;              // per interval: its lower end
    double* above = scratch + count;      // its upper end
    double* pivot = scratch + 2 * count;  // the running pivot of its count
    for (int k = 0; k < count; ++k) {
        below[k] = lo;
        above[k] = hi;
    }
    // Halving hi - lo down to accuracy; the intervals all start equal, so one number of steps.
    int steps = 0;
    for (double width = hi - lo; width > accuracy && steps < 2100; width /= 2) ++steps;
    int counts[kBisectLanes];
    for (int step = 0; step < steps; ++step) {
        for (int at = 0; at < count; at += kBisectLanes) {
            const int lanes = count - at < kBisectLanes ? count - at : kBisectLanes;
            double* a = below + at;
            double* b = above + at;
            double* q = pivot + at;
            for (int k = 0; k < lanes; ++k) {
                q[k] = d[0] - (a[k] + b[k]) / 2;
                counts[k] = 0;
            }
            for (int i = 0;;) {
                for (int k = 0; k < lanes; ++k) {
                    if (std::fabs(q[k]) < pivot_floor) q[k] = -pivot_floor;
                    counts[k] += q[k] < 0.0;
                }
                if (++i == n) break;
                const double di = d[i], ei = e[i - 1] * e[i - 1];
                for (int k = 0; k < lanes; ++k) q[k] = di - (a[k] + b[k]) / 2 - ei / q[k];
            }
            for (int k = 0; k < lanes; ++k) {
                const double mid = (a[k] + b[k]) / 2;
                if (counts[k] > first + at + k) {
                    b[k] = mid;
                } else {
                    a[k] = mid;
                }
            }
        }
    }
    for (int k = 0; k < count; ++k) values[k] = (below[k] + above[k]) / 2;
}

// The positive eigenpairs of sqrt(2) M in (0, vu] from dsyevr, into sd_values and
// sd_vectors: their number, or -1 when dsyevr reports an illegal argument.
int positiveEigenpairs(const double* x, int n, double vu, ConeWork* coneWork) {
    double* A = coneWork->sd_matrix.get();
    unpackScaled(x, n, A);
    const double vl = 0.0;
    const double abstol = 1e-8;
    const int lwork = coneWork->eig_work_len - 3 * n;
    const int liwork = coneWork->eig_iwork_len - 2 * n;
    int found = 0;
    int info = 0;
    dsyevr_("V", "V", "L", &n, A, &n, &vl, &vu, nullptr, nullptr, &abstol, &found, coneWork->sd_values.get(),
            coneWork->sd_vectors.get(), &n, nullptr, coneWork->eig_work.get() + 3 * n, &lwork,
            coneWork->eig_iwork.get() + 2 * n, &liwork, &info, 1, 1, 1);
    return info < 0 ? -1 : found;
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

    const double inv_sqrt2 = 1 / std::sqrt(2.0);
    const int one = 1;
    const int diagonal_step = n + 1;  // walks the diagonal of a column-major n x n matrix
    const int packed = static_cast<int>(static_cast<std::int64_t>(n) * (n + 1) / 2);
    double* A = coneWork->sd_matrix.get();
    double* Z = coneWork->sd_vectors.get();
    double* values = coneWork->sd_values.get();
    // eig_work holds the tridiagonal (d, e), the reflectors' factors tau, then LAPACK's
    // workspace; eig_iwork holds dstemr's support list, then LAPACK's integer workspace.
    double* d = coneWork->eig_work.get();
    double* e = d + n;
    double* tau = e + n;
    double* work = tau + n;
    int* support = coneWork->eig_iwork.get();
    int* iwork = support + 2 * n;
    const int lwork = coneWork->eig_work_len - 3 * n;
    const int liwork = coneWork->eig_iwork_len - 2 * n;
    if (lwork < 18 * n || liwork < 10 * n) return -1;  // too short for the decomposition: x stays

    unpackScaled(x, n, A);
    // Every eigenvalue of sqrt(2) M lies below sqrt(2) |M|_F = sqrt(2) |x|, so below vu;
    // the floor 0.01 keeps the interval non-empty (also for a NaN norm).
    const double nrm = dnrm2_(&packed, x, &one);
    double vu = (std::sqrt(2.0) * 1.1) * nrm;
    if (!(vu > 0.01)) vu = 0.01;

    // NaN or infinite entries go the way of a failed tridiagonal eigensolver (dstemr does not
    // survive them): dsyevr, as before this route existed.
    int info = std::isfinite(nrm) ? 0 : 1;
    if (info == 0) dsytrd_("L", &n, A, &n, d, e, tau, work, &lwork, &info, 1);
    if (info < 0) return -1;

    double largest_off = 0.0;
    for (int i = 0; i + 1 < n; ++i) largest_off = std::max(largest_off, e[i] * e[i]);
    const double pivot_floor = std::numeric_limits<double>::min() * std::max(1.0, largest_off);
    const double negligible = n * std::numeric_limits<double>::epsilon() * (vu / 1.1);
    const int positive = n - countBelow(d, e, n, negligible, pivot_floor);
    const int negative = countBelow(d, e, n, -negligible, pivot_floor);
    const bool by_negative = negative < positive;

    int found = 0;
    const int wanted = info != 0 ? 0 : by_negative ? negative : positive;
    double* pair_values = values;
    double* pair_vectors = Z;
    if (wanted > 0 && wanted * kWholeSpectrumShare <= n) {
        // Few pairs: their eigenvalues by bisection, their vectors by inverse iteration
        // (dstein, which orthogonalises the vectors of close eigenvalues); should it fail to
        // converge on any of them, MRRR for the interval of the wanted side.
        const double vl = by_negative ? -vu : negligible;
        const double vh = by_negative ? -negligible : vu;
        const double accuracy = std::numeric_limits<double>::epsilon() * (vu / 1.1);
        bisectEigenvalues(d, e, n, by_negative ? 0 : n - wanted, wanted, vl, vh, accuracy, pivot_floor, values, work);
        int* block = iwork;  // one block, the whole tridiagonal
        int* split = block + wanted;
        int* failed = split + 1;
        for (int k = 0; k < wanted; ++k) block[k] = 1;
        split[0] = n;
        dstein_(&n, d, e, &wanted, values, block, split, Z, &n, work, failed + wanted, failed, &info);
        found = wanted;
        if (info != 0) {
            int tryrac = 1;
            dstemr_("V", "V", &n, d, e, &vl, &vh, nullptr, nullptr, &found, values, Z, &n, &n, support, &tryrac, work,
                    &lwork, iwork, &liwork, &info, 1, 1);
        }
    } else if (wanted > 0) {
        // Many pairs: all of T's by divide and conquer (mostly matrix products), in ascending
        // order, so that the wanted side is the run at one end.
        dstedc_("I", &n, d, e, Z, &n, work, &lwork, iwork, &liwork, &info, 1);
        int first = 0;
        found = 0;
        for (int i = 0; i < n; ++i) {
            if (by_negative ? d[i] < -negligible : d[i] > negligible) found += 1;
            if (!by_negative && !(d[i] > negligible)) first = i + 1;
        }
        pair_values = d + first;
        pair_vectors = Z + static_cast<std::int64_t>(first) * n;
    }
    if (info < 0) return -1;
    if (info > 0) {  // the tridiagonal eigensolver failed: the positive pairs from dsyevr
        found = positiveEigenpairs(x, n, vu, coneWork);
        if (found < 0) return -1;
        pair_values = values;
        pair_vectors = Z;
    } else if (found > 0) {
        dormtr_("L", "L", "N", &n, &found, A, &n, tau, pair_vectors, &n, work, &lwork, &info, 1, 1, 1);
        if (info < 0) return -1;
    }
    const bool onto_m = by_negative && info == 0;  // the dsyevr fallback gives the positive side
    if (onto_m && found == 0) return 0;            // no negative eigenvalue: x is its own projection

    // A = (sqrt(2) M if onto_m, else 0) + sum of |e| z z' over the found pairs, lower triangle.
    for (int i = 0; i < found; ++i) {
        const double root = std::sqrt(std::fabs(pair_values[i]));
        dscal_(&n, &root, pair_vectors + static_cast<std::int64_t>(i) * n, &one);
    }
    if (onto_m) unpackScaled(x, n, A);
    const double unit = 1.0;
    const double keep = onto_m ? 1.0 : 0.0;
    if (found > 0) {
        dsyrk_("L", "N", &n, &found, &unit, pair_vectors, &n, &keep, A, &n, 1, 1);
    } else {
        for (int i = 0; i < n; ++i) std::memset(A + static_cast<std::int64_t>(i) * n + i, 0, sizeof(double) * (n - i));
    }
    dscal_(&n, &inv_sqrt2, A, &diagonal_step);

    // Pack: the diagonal of P(M), the off-diagonals in the packed scale sqrt(2) P(M).
    for (int i = 0; i < n; ++i) {
        std::memcpy(x + packedColumn(i, n), A + static_cast<std::int64_t>(i) * n + i, sizeof(double) * (n - i));
    }
    return 0;
}

}  // namespace korvex
