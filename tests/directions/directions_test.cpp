// The direction kinds against dense references: the restarted Broyden direction is the
// product of its stored rank-one factors applied to -R, each update meets the secant
// equation, the cache restarts when full; the residual and full Broyden kinds.
#include <gtest/gtest.h>

#include <cmath>
#include <random>
#include <vector>

#include "core/solver.h"
#include "directions/directions.h"
#include "support/problems.h"

using namespace korvex;

namespace {

// A Work of a real set-up of the Marlet iteration (the LP: l = 7), whose vectors R, Sk
// and Yk the tests fill.
class DirectionTest : public ::testing::Test {
protected:
    void start(int dir, int memory, double thetabar) {
        run_ = std::make_unique<SolveRun>(knownProblems()[0]);
        run_->settings.do_super_korvex = 1;
        run_->settings.dir = dir;
        run_->settings.memory = memory;
        run_->settings.thetabar = thetabar;
        work_ = initWork(&run_->data, &run_->cone);
        ASSERT_NE(work_, nullptr);
        l_ = work_->l;
    }
    void TearDown() override { freeWork(work_); }

    void fillPair(std::mt19937_64& rng) {
        std::normal_distribution<double> normal;
        for (int k = 0; k < l_; ++k) {
            work_->R[k] = normal(rng);
            work_->Sk[k] = normal(rng);
            work_->Yk[k] = work_->Sk[k] + 0.3 * normal(rng);  // a Jacobian near the identity
        }
    }

    // H = (I + u_k s_k') ... (I + u_1 s_1') over the stored pairs 0 .. count-1, dense.
    std::vector<double> denseInverse(int count) const {
        std::vector<double> H(l_ * l_, 0.0);
        for (int k = 0; k < l_; ++k) H[k * l_ + k] = 1.0;
        const YSCache* cache = work_->su_cache;
        for (int i = 0; i < count; ++i) {
            const double* s = cache->S.get() + i * l_;
            const double* u = cache->U.get() + i * l_;
            // H = (I + u s') H = H + u (s' H)
            std::vector<double> sH(l_, 0.0);
            for (int c = 0; c < l_; ++c) {
                for (int r = 0; r < l_; ++r) sH[c] += s[r] * H[r * l_ + c];
            }
            for (int r = 0; r < l_; ++r) {
                for (int c = 0; c < l_; ++c) H[r * l_ + c] += u[r] * sH[c];
            }
        }
        return H;
    }

    std::vector<double> apply(const std::vector<double>& H, const double* v) const {
        std::vector<double> out(l_, 0.0);
        for (int k = 0; k < l_ * l_; ++k) out[k / l_] += H[k] * v[k % l_];
        return out;
    }
    // Makes the curvature vanish: Yk orthogonal to Sk.
    void orthogonalise() {
        double sy = 0, ss = 0;
        for (int k = 0; k < l_; ++k) sy += work_->Sk[k] * work_->Yk[k], ss += work_->Sk[k] * work_->Sk[k];
        for (int k = 0; k < l_; ++k) work_->Yk[k] -= sy / ss * work_->Sk[k];
    }

    std::unique_ptr<SolveRun> run_;
    Work* work_ = nullptr;
    int l_ = 0;
};

TEST_F(DirectionTest, RestartedBroydenIsTheProductOfItsFactorsAndMeetsTheSecantEquation) {
    start(KORVEX_DIR_RESTARTED_BROYDEN, 4, 0.0);
    std::mt19937_64 rng(3);
    for (int call = 1; call <= 9; ++call) {
        SCOPED_TRACE(call);
        fillPair(rng);
        const int stored_before = work_->su_cache->mem_cursor;
        const int result = computeDirection(work_, call);
        // The pair used in this call sits at row stored_before, whether or not it was kept.
        const std::vector<double> H = denseInverse(stored_before + 1);
        const std::vector<double> HR = apply(H, work_->R.get());
        const std::vector<double> Hy = apply(H, work_->Yk.get());
        for (int k = 0; k < l_; ++k) {
            EXPECT_NEAR(work_->dir[k], -HR[k], 1e-10 * (1 + std::fabs(HR[k])));
            EXPECT_NEAR(Hy[k], work_->Sk[k], 1e-10 * (1 + std::fabs(Hy[k])));  // H y = s
        }
        // Memory 4: the cache fills at every fourth call and starts again.
        EXPECT_EQ(result, call % 4 == 0 ? 100 : 101);
        EXPECT_EQ(work_->su_cache->mem_cursor, call % 4);
    }
}

TEST_F(DirectionTest, MemoryTwoAlternatesAndThetabarZeroNeverChangesTheUpdate) {
    start(KORVEX_DIR_RESTARTED_BROYDEN, 2, 0.0);
    std::mt19937_64 rng(5);
    for (int call = 1; call <= 6; ++call) {
        fillPair(rng);
        // No curvature: with thetabar 0 the test |g| >= 0 holds anyway, so t stays Yk
        // carried through the stored factors.
        if (work_->su_cache->mem_cursor == 0) orthogonalise();
        EXPECT_EQ(computeDirection(work_, call), call % 2 == 1 ? 101 : 100);
    }
}

TEST_F(DirectionTest, SafeguardMovesTheUpdateTowardTheStep) {
    // With g = <Yk, Sk> = 0 and thetabar > 0, theta = 1 - thetabar and
    // t = theta Yk + (1 - theta) Sk, so u = (Sk - t) / <Sk, t>.
    start(KORVEX_DIR_RESTARTED_BROYDEN, 3, 0.25);
    std::mt19937_64 rng(9);
    fillPair(rng);
    orthogonalise();
    computeDirection(work_, 1);
    const double theta = 0.75;
    std::vector<double> t(l_);
    double st = 0;
    for (int k = 0; k < l_; ++k) {
        t[k] = theta * work_->Yk[k] + (1 - theta) * work_->Sk[k];
        st += work_->Sk[k] * t[k];
    }
    for (int k = 0; k < l_; ++k) {
        EXPECT_NEAR(work_->su_cache->U[k], (work_->Sk[k] - t[k]) / st, 1e-12);
        EXPECT_EQ(work_->su_cache->S[k], work_->Sk[k]);
    }
}

TEST_F(DirectionTest, ResidualKindNeedsNoCache) {
    start(KORVEX_DIR_FIXED_POINT_RESIDUAL, 1, 0.1);
    EXPECT_EQ(work_->su_cache, nullptr);
    std::mt19937_64 rng(1);
    fillPair(rng);
    const std::vector<double> Sk(work_->Sk.get(), work_->Sk.get() + l_);
    EXPECT_EQ(computeDirection(work_, 4), 0);
    for (int k = 0; k < l_; ++k) {
        EXPECT_EQ(work_->dir[k], -work_->R[k]);
        EXPECT_EQ(work_->Sk[k], Sk[k]);  // untouched
    }
}

TEST_F(DirectionTest, FullBroydenKeepsTheDirectionAndRescalesHOnce) {
    start(KORVEX_DIR_FULL_BROYDEN, 10, 0.1);
    for (int k = 0; k < l_; ++k) EXPECT_EQ(work_->H[k * (l_ + 1)], 1.0);
    std::mt19937_64 rng(2);
    fillPair(rng);
    for (int k = 0; k < l_; ++k) work_->dir[k] = k + 0.5;
    EXPECT_EQ(computeDirection(work_, 1), 0);
    double ys = 0, yy = 0;
    for (int k = 0; k < l_; ++k) ys += work_->Yk[k] * work_->Sk[k], yy += work_->Yk[k] * work_->Yk[k];
    const double rho = ys / std::sqrt(yy);
    for (int k = 0; k < l_; ++k) {
        EXPECT_NEAR(work_->H[k * (l_ + 1)], rho, 1e-12 * std::fabs(rho));
        EXPECT_EQ(work_->dir[k], k + 0.5);
    }
    EXPECT_NE(HY, nullptr);
    fillPair(rng);
    computeDirection(work_, 2);  // only the first call rescales
    EXPECT_NEAR(work_->H[0], rho, 1e-12 * std::fabs(rho));
    EXPECT_EQ(work_->H[1], 0.0);  // nothing but the diagonal is ever written

    run_->settings.broyden_init_scale = 0;
    for (int k = 0; k < l_; ++k) work_->H[k * (l_ + 1)] = 1.0;
    computeDirection(work_, 1);
    EXPECT_EQ(work_->H[0], 1.0);
}

}  // namespace
