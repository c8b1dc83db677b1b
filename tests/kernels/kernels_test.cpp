// Vector kernels against long-double references, the fixed order of the three sums, and
// the NaN rules of the maximum norms.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include "kernels/kernels.h"

using namespace korvex;

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kEps = std::numeric_limits<double>::epsilon();

std::vector<double> randomVector(int n, std::mt19937_64& rng) {
    std::uniform_real_distribution<double> value(-10.0, 10.0);
    std::vector<double> v(n);
    for (double& x : v) x = value(rng);
    return v;
}

// Each element-wise result may carry at most two roundings of double arithmetic.
void expectElementwise(const std::vector<double>& got, const std::vector<long double>& want, double scale) {
    ASSERT_EQ(got.size(), want.size());
    for (std::size_t i = 0; i < got.size(); ++i) {
        EXPECT_NEAR(got[i], static_cast<double>(want[i]), 4 * kEps * scale) << "entry " << i;
    }
}

TEST(Kernels, ElementwiseMatchLongDoubleReferenceForLengthsZeroToNine) {
    std::mt19937_64 rng(11);
    for (int n = 0; n <= 9; ++n) {
        SCOPED_TRACE(n);
        const std::vector<double> a0 = randomVector(n, rng), b = randomVector(n, rng);
        const double s = 0.37, t = -2.5;
        std::vector<long double> want(n);

        std::vector<double> a = a0;
        addVector(a.data(), b.data(), n);
        for (int i = 0; i < n; ++i) want[i] = (long double)a0[i] + b[i];
        expectElementwise(a, want, 20.0);

        a = a0;
        addScaledVector(a.data(), b.data(), n, s);
        for (int i = 0; i < n; ++i) want[i] = (long double)a0[i] + (long double)b[i] * s;
        expectElementwise(a, want, 20.0);

        std::vector<double> out(n, 99.0);
        combineVectors(out.data(), a0.data(), b.data(), s, t, n);
        for (int i = 0; i < n; ++i) want[i] = (long double)a0[i] * s + (long double)b[i] * t;
        expectElementwise(out, want, 40.0);

        a = a0;
        scaleVector(a.data(), t, n);
        for (int i = 0; i < n; ++i) want[i] = (long double)a0[i] * t;
        expectElementwise(a, want, 30.0);

        out.assign(n, 99.0);
        scaleInto(out.data(), b.data(), s, n);
        for (int i = 0; i < n; ++i) want[i] = (long double)b[i] * s;
        expectElementwise(out, want, 10.0);
    }
}

TEST(Kernels, CombineVectorsAllowsTheOutputToBeEitherInput) {
    std::mt19937_64 rng(5);
    for (int n : {1, 4, 7}) {
        const std::vector<double> a0 = randomVector(n, rng), b0 = randomVector(n, rng);
        std::vector<double> expected(n);
        combineVectors(expected.data(), a0.data(), b0.data(), 2.0, -1.0, n);

        std::vector<double> a = a0;
        combineVectors(a.data(), a.data(), b0.data(), 2.0, -1.0, n);
        EXPECT_EQ(a, expected);
        std::vector<double> b = b0;
        combineVectors(b.data(), a0.data(), b.data(), 2.0, -1.0, n);
        EXPECT_EQ(b, expected);
    }
}

TEST(Kernels, ReductionsMatchLongDoubleReferenceForLengthsZeroToNine) {
    std::mt19937_64 rng(21);
    for (int n = 0; n <= 9; ++n) {
        SCOPED_TRACE(n);
        const std::vector<double> a = randomVector(n, rng), b = randomVector(n, rng);
        long double dot = 0, dot_bound = 0, sq = 0, largest = 0, largest_diff = 0;
        for (int i = 0; i < n; ++i) {
            dot += (long double)a[i] * b[i];
            dot_bound += std::fabs((long double)a[i] * b[i]);
            sq += (long double)a[i] * a[i];
            largest = std::max(largest, std::fabs((long double)a[i]));
            largest_diff = std::max(largest_diff, std::fabs((long double)a[i] - b[i]));
        }
        // Error bound of recursive summation: (n + 1) eps times the sum of magnitudes.
        EXPECT_NEAR(dotProduct(a.data(), b.data(), n), (double)dot, (n + 1) * kEps * (double)dot_bound);
        EXPECT_NEAR(normSquared(a.data(), n), (double)sq, (n + 1) * kEps * (double)sq);
        EXPECT_NEAR(normTwo(a.data(), n), (double)std::sqrt(sq), (n + 2) * kEps * (double)std::sqrt(sq));
        EXPECT_EQ(normInf(a.data(), n), (double)largest);
        EXPECT_NEAR(normInfDiff(a.data(), b.data(), n), (double)largest_diff, kEps * (double)largest_diff);
    }
}

TEST(Kernels, NonPositiveLengthsDoNothingAndReduceToZero) {
    double a[2] = {1.0, 2.0};
    const double b[2] = {3.0, 4.0};
    for (int n : {0, -3}) {
        addVector(a, b, n);
        addScaledVector(a, b, n, 2.0);
        combineVectors(a, a, b, 2.0, 2.0, n);
        scaleVector(a, 5.0, n);
        scaleInto(a, b, 5.0, n);
        EXPECT_EQ(dotProduct(a, b, n), 0.0);
        EXPECT_EQ(normSquared(a, n), 0.0);
        EXPECT_EQ(normTwo(a, n), 0.0);
        EXPECT_EQ(normInf(a, n), 0.0);
        EXPECT_EQ(normInfDiff(a, b, n), 0.0);
    }
    EXPECT_EQ(a[0], 1.0);
    EXPECT_EQ(a[1], 2.0);
}

// The sums take four lanes by index modulo 4, combine them as ((s1 + s0) + s2) + s3 and
// add the tail from the highest index down. The values are chosen so that this order and
// a left-to-right sum round differently.
TEST(Kernels, SumsFollowTheFixedAccumulationOrder) {
    const double big = 9007199254740992.0;  // 2^53: adding 1 to it is a tie that rounds back
    const double ones[3] = {1.0, 1.0, 1.0};

    // n = 3: no lanes, the terms come as x[2], x[1], x[0].
    const double tail[3] = {1.0, 1.0, big};
    EXPECT_EQ(dotProduct(tail, ones, 3), big);          // ((big + 1) + 1) = big
    EXPECT_EQ(((1.0 + 1.0) + big), big + 2.0);          // left to right would give big + 2

    // normSquared with x = (0.75, 0.75, 2^26): in order 2^52 + 0.5625 + 0.5625 = 2^52 + 2,
    // whereas left to right gives (0.5625 + 0.5625) + 2^52 = 2^52 + 1.
    const double squares[3] = {0.75, 0.75, 67108864.0};
    EXPECT_EQ(normSquared(squares, 3), 4503599627370496.0 + 2.0);
    EXPECT_EQ(normTwo(squares, 3), std::sqrt(4503599627370496.0 + 2.0));

    // n = 7: lanes s0..s3 hold x0..x3, then the tail x6, x5, x4 from the top down. With
    // x = (-big, 2, 0.5, big, -big, 0.5, 1): ((2 - big) + 0.5) + big = 2, then
    // 2 + 1 + 0.5 - big = 4 - big; the tail upward would give 3 - big.
    const double seven[7] = {-big, 2.0, 0.5, big, -big, 0.5, 1.0};
    const double seven_ones[7] = {1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(dotProduct(seven, seven_ones, 7), 4.0 - big);

    // n = 8: s0 = x0 + x4, ..., combined as ((s1 + s0) + s2) + s3. With
    // x = (3, 1, -big, 2, big, 1, 1, 0.5): s = (big + 4, 2, 1 - big, 2.5) gives 9.5, where
    // pairs (s0 + s1) + (s2 + s3) give 10 and left to right gives 8.5.
    const double eight[8] = {3.0, 1.0, -big, 2.0, big, 1.0, 1.0, 0.5};
    const double eight_ones[8] = {1, 1, 1, 1, 1, 1, 1, 1};
    EXPECT_EQ(dotProduct(eight, eight_ones, 8), 9.5);
}

TEST(Kernels, NaNRulesOfTheNorms) {
    // A NaN term leaves the running maximum where it was; the sums propagate it.
    const double with_nan[4] = {1.0, kNaN, -3.0, 2.0};
    EXPECT_EQ(normInf(with_nan, 4), 3.0);
    EXPECT_TRUE(std::isnan(dotProduct(with_nan, with_nan, 4)));
    EXPECT_TRUE(std::isnan(normSquared(with_nan, 4)));
    EXPECT_TRUE(std::isnan(normTwo(with_nan, 4)));

    const double leading_nan[3] = {kNaN, -0.5, 0.25};
    EXPECT_EQ(normInf(leading_nan, 3), 0.5);
    const double only_nan[2] = {kNaN, kNaN};
    EXPECT_EQ(normInf(only_nan, 2), 0.0);

    const double a[3] = {1.0, kNaN, 4.0};
    const double b[3] = {3.0, 0.0, kNaN};
    EXPECT_EQ(normInfDiff(a, b, 3), 2.0);  // |1 - 3|; the NaN differences are skipped
    const double inf[2] = {-std::numeric_limits<double>::infinity(), 1.0};
    EXPECT_EQ(normInf(inf, 2), std::numeric_limits<double>::infinity());
}

}  // namespace
