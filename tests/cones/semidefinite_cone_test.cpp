// Projection onto the semidefinite cone: the closed forms of sides 1 and 2 with the
// off-diagonal threshold, and the partial decomposition against LAPACK's full dsyev with
// its exact edge cases. A failing dsyevr call is tested through the driver.
#include <gtest/gtest.h>

#include <cmath>

#include "cone_checks.h"

namespace {

using V = std::vector<double>;

double maxDifference(const V& a, const V& b) {
    double worst = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k) worst = std::max(worst, std::fabs(a[k] - b[k]));
    return worst;
}

V projected(V x, int n, ConeWork* work = nullptr) {
    EXPECT_EQ(projectSemidefiniteBlock(x.data(), n, work), 0);
    return x;
}

TEST(SemidefiniteBlock, SmallSidesInClosedForm) {
    EXPECT_EQ(projected({-7}, 0), V{-7});  // side 0 takes no entry
    EXPECT_EQ(projected({-2}, 1), V{0});
    EXPECT_EQ(projected({3}, 1), V{3});
    // Side 2, packed (a, sqrt(2) b, d): below |b| = 1e-6 the off-diagonal is dropped, even
    // from a positive definite matrix; from 1e-6 on a semidefinite one stays bit for bit.
    const double below = 0.99e-6 * std::sqrt(2.0), above = 1.01e-6 * std::sqrt(2.0);
    EXPECT_EQ(projected({2, below, 3}, 2), (V{2, 0, 3}));
    EXPECT_EQ(projected({-1, -below, 3}, 2), (V{0, 0, 3}));
    EXPECT_EQ(projected({2, above, 3}, 2), (V{2, above, 3}));
    EXPECT_EQ(projected({2, -above, 3}, 2), (V{2, -above, 3}));
    EXPECT_EQ(projected({-2, 1, -3}, 2), (V{0, 0, 0}));  // negative definite

    // One positive eigenvalue: the rank-one closed form against the full decomposition.
    Sampler rng(4201);
    for (int k = 0; k < 500; ++k) {
        const V x = rng.normals(3, 2.0);
        EXPECT_LE(maxDifference(projected(x, 2), semidefiniteReference(x.data(), 2)), 1e-12 * (1 + norm(x)));
    }
}

TEST(SemidefiniteBlock, MatchesTheFullDecomposition) {
    // One workspace sized for the largest side serves all, largest first: a smaller block
    // uses the leading n x n part of the arrays, with leading dimension n. dsyevr locates
    // each eigenvalue to the absolute tolerance 1e-8, which bounds the agreement.
    const std::vector<int> sides = {30, 10, 6, 5, 4, 3};
    ConeFixture f(0, 0, {}, sides, 0, 0, {});
    ConeWorkOwner work(initCone(&f.cone));
    ASSERT_NE(work, nullptr);
    Sampler rng(4202);
    for (int n : sides) {
        // The zero matrix: the bound is 0.01, nothing is found, and it stays zero.
        const V zero(n * (n + 1) / 2, 0.0);
        EXPECT_EQ(projected(zero, n, work.get()), zero);
        // Random symmetric matrices shifted so that the count of positive eigenvalues runs
        // from none (the result is then exactly 0) to all.
        for (int trial = 0; trial < 12; ++trial) {
            V x = rng.normals(n * (n + 1) / 2);
            const double shift = (trial % 6 - 2.5) * std::sqrt(static_cast<double>(n));
            for (int j = 0; j < n; ++j) x[j * n - j * (j - 1) / 2] += shift;
            const V p = projected(x, n, work.get());
            SCOPED_TRACE(testing::Message() << "side " << n << " shift " << shift);
            EXPECT_LE(maxDifference(p, semidefiniteReference(x.data(), n)), 1e-8 * (1 + norm(x)));
            if (symmetricEigen(x.data(), n).back() < 0.0) {
                EXPECT_EQ(p, zero);
            }
        }
    }
}

}  // namespace
