#include "cone_checks.h"

#include <gtest/gtest.h>

#include "cones/lapack.h"

using namespace korvex;

namespace {

// Index of entry (i, j), i >= j, of a packed matrix of side n.
int packedIndex(int i, int j, int n) { return j * n - j * (j - 1) / 2 + (i - j); }

}  // namespace

std::vector<double> symmetricEigen(const double* x, int n, std::vector<double>* vectors) {
    std::vector<double> M(static_cast<std::size_t>(n) * n), values(n);
    for (int j = 0; j < n; ++j) {
        for (int i = j; i < n; ++i) M[i + j * n] = x[packedIndex(i, j, n)] / (i == j ? 1.0 : std::sqrt(2.0));
    }
    const int lwork = 66 * n + 1;
    std::vector<double> work(lwork);
    int info = 0;
    if (n > 0) dsyev_(vectors ? "V" : "N", "L", &n, M.data(), &n, values.data(), work.data(), &lwork, &info, 1, 1);
    EXPECT_EQ(info, 0) << "dsyev failed";
    if (vectors) *vectors = std::move(M);
    return values;
}

std::vector<double> semidefiniteReference(const double* x, int n) {
    std::vector<double> Z;
    const std::vector<double> e = symmetricEigen(x, n, &Z);
    std::vector<double> p(static_cast<std::size_t>(n) * (n + 1) / 2, 0.0);
    for (int j = 0; j < n; ++j) {
        for (int i = j; i < n; ++i) {
            double m = 0.0;  // P(i, j) = sum over e_k > 0 of e_k Z(i, k) Z(j, k)
            for (int k = 0; k < n; ++k) m += e[k] > 0.0 ? e[k] * Z[i + k * n] * Z[j + k * n] : 0.0;
            p[packedIndex(i, j, n)] = i == j ? m : m * std::sqrt(2.0);
        }
    }
    return p;
}
