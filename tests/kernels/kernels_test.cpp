// The vector kernels against plain loops, bit for bit, on lengths -2 to 13 and entries over sixty
// binary orders of magnitude, NaN and infinities mixed in. The sums keep their order, which any
// other misses on such inputs: four lanes by index modulo 4, combined as ((s1 + s0) + s2) + s3,
// then the tail from the highest index down. The maximum norms skip NaN, as std::fmax does.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "kernels/kernels.h"

using namespace korvex;

namespace {

using V = std::vector<double>;

bool same(double a, double b) { return std::isnan(a) ? std::isnan(b) : a == b && std::signbit(a) == std::signbit(b); }

double fixedOrderSum(const V& a, const V& b, int n) {
    double lane[4] = {0.0, 0.0, 0.0, 0.0};
    for (int i = 0; i < (n & ~3); ++i) lane[i % 4] += a[i] * b[i];
    double sum = ((lane[1] + lane[0]) + lane[2]) + lane[3];
    for (int i = n - 1; i >= std::max(n & ~3, 0); --i) sum += a[i] * b[i];
    return sum;
}

TEST(Kernels, AgreeBitForBitWithPlainLoops) {
    std::mt19937_64 rng(7);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::uniform_int_distribution<int> pow2(-30, 30), pick(0, 15);
    const double odd[] = {NAN, -INFINITY};  // in every fifth trial, one entry in eight
    for (int trial = 0; trial < 800; ++trial) {
        const int n = trial % 16 - 2, size = std::max(n, 0) + 1;  // one entry past the end
        V a(size), b(size);
        for (V* v : {&a, &b}) {
            for (double& x : *v) x = trial % 5 || pick(rng) > 1 ? std::ldexp(unit(rng), pow2(rng)) : odd[pick(rng) % 2];
        }
        const double s = unit(rng), t = std::ldexp(unit(rng), pow2(rng));
        V add = a, scaled = a, combined(size, 9.0), into_a = a, into_b = b, scale = a, into(size, 9.0);
        addVector(add.data(), b.data(), n);
        addScaledVector(scaled.data(), b.data(), n, s);
        combineVectors(combined.data(), a.data(), b.data(), s, t, n);
        combineVectors(into_a.data(), into_a.data(), b.data(), s, t, n);
        combineVectors(into_b.data(), a.data(), into_b.data(), s, t, n);
        scaleVector(scale.data(), t, n);
        scaleInto(into.data(), b.data(), s, n);
        double largest = 0.0, largest_difference = 0.0;
        for (int i = 0; i < size; ++i) {
            const bool in = i < n;
            const double c = a[i] * s + b[i] * t;
            EXPECT_TRUE(same(add[i], in ? a[i] + b[i] : a[i]) && same(scaled[i], in ? a[i] + b[i] * s : a[i]) &&
                        same(combined[i], in ? c : 9.0) && same(into_a[i], in ? c : a[i]) &&
                        same(into_b[i], in ? c : b[i]) && same(scale[i], in ? a[i] * t : a[i]) &&
                        same(into[i], in ? b[i] * s : 9.0))
                << "n " << n << ", entry " << i;
            largest = in ? std::fmax(largest, std::fabs(a[i])) : largest;
            largest_difference = in ? std::fmax(largest_difference, std::fabs(a[i] - b[i])) : largest_difference;
        }
        const double squares = fixedOrderSum(a, a, n);
        const std::pair<double, double> reductions[] = {
            {dotProduct(a.data(), b.data(), n), fixedOrderSum(a, b, n)}, {normSquared(a.data(), n), squares},
            {normTwo(a.data(), n), std::sqrt(squares)}, {normInf(a.data(), n), largest},
            {normInfDiff(a.data(), b.data(), n), largest_difference}};
        for (const auto& [got, want] : reductions) EXPECT_PRED2(same, got, want) << "n " << n;
    }
}

}  // namespace
