// Projection onto the power cone: the direct cases, the floored iterate and the mirror
// in z. The optimality conditions on random triples, exponents 0 and 1 among them, are
// checked with the driver's family properties.
#include <gtest/gtest.h>

#include "cone_checks.h"

namespace {

using V = std::vector<double>;

V projectedPower(V v, double a) {
    projectPowerTriple(v.data(), a);
    return v;
}

TEST(PowerTriple, DirectCasesAndTheFlooredIterate) {
    EXPECT_EQ(projectedPower({0, 0, 0}, 0.3), (V{0, 0, 0}));
    // 4^0.5 1^0.5 = 2 misses |z| by less than the slack 1e-6: unchanged, sign kept.
    EXPECT_EQ(projectedPower({4, 1, 2 + 5e-7}, 0.5), (V{4, 1, 2 + 5e-7}));
    EXPECT_EQ(projectedPower({4, 1, -(2 + 5e-7)}, 0.5), (V{4, 1, -(2 + 5e-7)}));
    EXPECT_NE(projectedPower({4, 1, 2 + 2e-6}, 0.5)[2], 2 + 2e-6);
    // (-x/a)^a (-y/b)^b = 2: |z| = 1.9 lies in the polar cone and projects to 0, 2.1 not.
    EXPECT_EQ(projectedPower({-1, -1, 1.9}, 0.5), (V{0, 0, 0}));
    EXPECT_NE(projectedPower({-1, -1, 2.1}, 0.5), (V{0, 0, 0}));
    // (-1, 2, 0): the iterate stays at zh = 0 with xh on its floor, the residual never
    // drops below 1e-8, all 20 steps run, and the floor 1e-12 is the first entry.
    EXPECT_EQ(projectedPower({-1, 2, 0}, 0.5), (V{1e-12, 2, 0}));
}

TEST(PowerTriple, MirrorImageInZChangesOnlyTheSignOfZ) {
    Sampler rng(4102);
    for (int k = 0; k < 500; ++k) {
        const double a = rng.uniform(0.0, 1.0);
        const V v = rng.normals(3, 3.0);
        const V p = projectedPower(v, a);
        EXPECT_EQ(projectedPower({v[0], v[1], -v[2]}, a), (V{p[0], p[1], -p[2]})) << "a = " << a;
    }
}

}  // namespace
