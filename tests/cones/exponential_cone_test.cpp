// Projection onto the exponential cone: the direct cases exactly as they stand and the
// search at its limits. The optimality conditions on random triples are checked with
// the driver's family properties.
#include <gtest/gtest.h>

#include <cmath>

#include "cone_checks.h"

namespace {

TEST(ExpTriple, EdgeCasesStandExactly) {
    const struct {
        double in[3];
        double out[3];
    } rows[] = {
        {{0, 0, 0}, {0, 0, 0}},      // edge of the cone
        {{0, 0, 1}, {0, 0, 1}},      // edge of the cone
        {{-1, 0, 1}, {-1, 0, 1}},    // edge of the cone
        {{0, -1, -1}, {0, 0, 0}},    // edge of the polar cone
        {{1, -1, -1}, {0, 0, 0}},    // inside the polar cone
        {{1, 0, -0.5}, {0, 0, 0}},   // inside it by the factor e alone: 1 - 0.5 e < 0 < 1 - 0.5
        {{-1, -1, 2}, {-1, 0, 2}},   // r < 0, s < 0: onto the edge
        {{-1, -1, -2}, {-1, 0, 0}},  // r is never clipped
        {{0, 1, 1 - 5e-7}, {0, 1, 1 - 5e-7}},  // misses the cone by less than the slack 1e-6
    };
    for (const auto& row : rows) {
        double v[3] = {row.in[0], row.in[1], row.in[2]};
        projectExpTriple(v);
        for (int j = 0; j < 3; ++j) {
            EXPECT_EQ(v[j], row.out[j]) << "(" << row.in[0] << ", " << row.in[1] << ", " << row.in[2] << ") entry " << j;
        }
    }
    // Twice the slack is too far: the triple moves.
    double v[3] = {0, 1, 1 - 2e-6};
    projectExpTriple(v);
    EXPECT_NE(v[2], 1 - 2e-6);
    // (-1, 0, -1) misses the edge (t < 0) and goes to the search, whose answer is the
    // candidate of the last multiplier: s = 0, t = 0 and r = -1 - rho with rho < 1e-8.
    double w[3] = {-1, 0, -1};
    projectExpTriple(w);
    EXPECT_TRUE(w[1] == 0.0 && w[2] == 0.0 && w[0] < -1.0 && w[0] > -1.0 - 1e-8) << w[0];
}

TEST(ExpTriple, HugeInputsStillEndWithAnOptimalPoint) {
    // Near 1e9 the spacing of doubles exceeds the bracket width 1e-8: the doubling stage
    // runs uncapped and then all 100 bisection steps; the result is still optimal to the
    // relative accuracy of the arithmetic.
    // p = P(v) is characterised by p in K, p - v in K* and <p, p - v> = 0.
    const double inputs[][3] = {{1e9, 2e9, 1e9}, {-3e9, 1e9, -2e9}, {2e9, -1e9, 5e9}};
    for (const auto& v : inputs) {
        double p[3] = {v[0], v[1], v[2]};
        projectExpTriple(p);
        const double d[3] = {p[0] - v[0], p[1] - v[1], p[2] - v[2]};
        EXPECT_LE(expConeGap(p), 1e3);
        EXPECT_LE(dualExpConeGap(d), 1e3);
        EXPECT_LE(std::fabs(p[0] * d[0] + p[1] * d[1] + p[2] * d[2]), 1e3 * 1e10);
    }
}

}  // namespace
