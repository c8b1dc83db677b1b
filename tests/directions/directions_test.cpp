// Restarted Broyden bit for bit against its steps written out plainly, the weight
// sqrt(rho_x) on what the Marlet iteration hands over, and the full Broyden kind.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "core/solver.h"
#include "directions/directions.h"
#include "kernels/kernels.h"
#include "support/problems.h"

namespace {

using Vector = std::vector<double>;

// The restarted Broyden step as its definition reads: d = -R and t = Yk carried through
// the stored pairs (t first, then d, pair by pair), the safeguard that keeps <t, Sk> away
// from 0, the new pair u = (Sk - t) / <Sk, t> used at once, and the restart when full.
// Inner products are the library's kernel, whose order of summation has its own tests.
struct Reference {
    std::vector<Vector> S{}, U{};
    int memory = 10, negative_safeguards = 0;

    int step(const double* R, const double* Sk, const double* Yk, double theta_bar, Vector& d) {
        const int l = static_cast<int>(d.size());
        auto dot = [l](const double* a, const double* b) { return dotProduct(a, b, l); };
        auto add = [l](Vector& a, double c, const double* b) { for (int k = 0; k < l; ++k) a[k] = a[k] + c * b[k]; };
        Vector t(Yk, Yk + l);
        for (int k = 0; k < l; ++k) d[k] = -1.0 * R[k];
        for (std::size_t i = 0; i < S.size(); ++i) {
            add(t, dot(S[i].data(), t.data()), U[i].data());
            add(d, dot(S[i].data(), d.data()), U[i].data());
        }
        const double g = dot(t.data(), Sk), q = dot(Sk, Sk);
        if (!(std::fabs(g) >= theta_bar * q)) {
            const double sign = g >= 0 ? 1.0 : -1.0, theta = (1 - sign * theta_bar) * q / (q - g);
            for (int k = 0; k < l; ++k) t[k] = theta * t[k] + (1 - theta) * Sk[k];
            negative_safeguards += g < 0;
        }
        const double e = dot(Sk, t.data());
        U.emplace_back(l);
        for (int k = 0; k < l; ++k) U.back()[k] = (Sk[k] - t[k]) / e;
        add(d, dot(Sk, d.data()), U.back().data());
        S.emplace_back(Sk, Sk + l);
        if (static_cast<int>(S.size()) < memory) return 101;
        S.clear(), U.clear();
        return 100;
    }
};

// A Marlet solve of the LP (l = 7) stopped after iteration 0, which asks for no direction,
// with the direction options given.
std::unique_ptr<SolveRun> directionRun(int dir, int memory = 10, double thetabar = 0.1) {
    auto run = std::make_unique<SolveRun>(knownProblems()[0]);
    Settings& s = run->settings;
    s.do_super_korvex = 1, s.dir = dir, s.memory = memory, s.thetabar = thetabar, s.max_iters = 1;
    run->iterate();
    return run;
}

TEST(Directions, RestartedBroydenFollowsItsStepsBitForBit) {
    std::mt19937_64 rng(11);
    std::normal_distribution<double> normal;
    for (int memory : {2, 3, 10}) {
        for (double thetabar : {0.0, 0.1, 0.5, 0.9, 1.0}) {
            SCOPED_TRACE(testing::Message() << "memory " << memory << " thetabar " << thetabar);
            const auto run = directionRun(KORVEX_DIR_RESTARTED_BROYDEN, memory, thetabar);
            Work* w = run->work;
            const int l = w->l;
            Reference reference{.memory = memory};
            Vector d(l);
            for (int call = 1; call <= 25; ++call) {
                // Pairs with a Jacobian near the identity, near -0.2 I (negative curvature),
                // with Yk nearly orthogonal to Sk, or exactly so where the cache is empty.
                const double slope = call % 3 == 0 ? 1.0 : call % 3 == 1 ? -0.2 : 0.0;
                for (int k = 0; k < l; ++k) w->R[k] = normal(rng), w->Sk[k] = normal(rng);
                for (int k = 0; k < l; ++k) w->Yk[k] = slope * w->Sk[k] + 0.3 * normal(rng);
                for (int k = 0; k < l && reference.S.empty(); ++k) (k % 2 ? w->Sk : w->Yk)[k] = 0.0;  // <Yk, Sk> = 0 exactly
                EXPECT_EQ(computeDirection(w, call), reference.step(w->R.get(), w->Sk.get(), w->Yk.get(), thetabar, d));
                EXPECT_EQ(w->su_cache->mem_cursor, static_cast<int>(reference.S.size()));
                EXPECT_EQ(std::memcmp(w->dir.get(), d.data(), sizeof(double) * l), 0) << "call " << call;
            }
            // The safeguard acted on negative curvature wherever thetabar allows it.
            EXPECT_EQ(reference.negative_safeguards > 0, thetabar > 0.0);
        }
    }
}

TEST(Directions, MarletPairsAndNormsCarryTheWeightOfTheXBlock) {
    // Two iterations with directions and no line search: iteration 0 takes the plain step
    // u1 = u0 - alpha R0 from the cold start (x and y blocks 0), iteration 1 hands over
    // Sk = W (u1 - u0) and Yk = W (R1 - R0), W = sqrt(rho_x) on the x block, and gets
    // dir = W^-1 times the direction of (W R1, Sk, Yk).
    SolveRun run(knownProblems()[0]);
    Settings& s = run.settings;
    s.do_super_korvex = s.k0 = 1, s.ls = 0, s.rho_x = 0.04, s.max_iters = 2, s.eps = 1e-12;
    run.iterate();
    const Work& w = *run.work;
    const int n = w.n, l = w.l;
    const double root = 0.2;
    Vector weighted_r1(w.R_prev.get(), w.R_prev.get() + l), d(l);  // W R1, kept as R_prev
    Reference reference;
    reference.step(weighted_r1.data(), w.Sk.get(), w.Yk.get(), s.thetabar, d);
    double sum = 0.0;  // |R|_M^2 = rho_x |R_x|^2 + |R_r|^2, and <R, R>_M
    for (int k = 0; k < l; ++k) {
        const double weight = k < n ? root : 1.0;
        EXPECT_TRUE(k == l - 1 || w.Sk[k] == weight * w.u_prev[k]) << k;
        EXPECT_NEAR(w.Yk[k], weighted_r1[k] + w.Sk[k] / s.alpha, 1e-12) << k;
        EXPECT_NEAR(w.dir[k], d[k] / weight, 1e-12 * (1 + std::fabs(d[k]))) << k;
        sum += weight * weight * w.R[k] * w.R[k];
    }
    EXPECT_NEAR(w.fpr_norm, std::sqrt(sum), 1e-14 * w.fpr_norm);
    EXPECT_NEAR(weightedDot(&w, w.R.get(), w.R.get()), sum, 1e-14 * sum);
}

TEST(Directions, FullBroydenOnlyRescalesTheDiagonalOfHAtIterationOne) {
    // It writes no direction; at iteration 1, and only with broyden_init_scale, the diagonal
    // of H (and nothing else) becomes <Yk, Sk> / |Yk|.
    const auto run = directionRun(KORVEX_DIR_FULL_BROYDEN);
    Work* w = run->work;
    const int l = w->l;
    for (int k = 0; k < l; ++k) w->Sk[k] = std::cos(k * k), w->Yk[k] = k - 2.5, w->dir[k] = k;
    for (int k = 0; k < l * l; ++k) EXPECT_EQ(w->H[k], k % (l + 1) == 0 ? 1.0 : 0.0);
    EXPECT_EQ(computeDirection(w, 1), 0);
    const double rho = dotProduct(w->Yk.get(), w->Sk.get(), l) / std::sqrt(dotProduct(w->Yk.get(), w->Yk.get(), l));
    for (int k = 0; k < l * l; ++k) EXPECT_EQ(w->H[k], k % (l + 1) == 0 ? rho : 0.0);
    for (int k = 0; k < l; ++k) EXPECT_EQ(w->dir[k], k);
    EXPECT_NE(HY, nullptr);
    w->Yk[0] += 1.0;
    computeDirection(w, 2);
    run->settings.broyden_init_scale = 0;
    computeDirection(w, 1);
    EXPECT_EQ(w->H[0], rho);
}

}  // namespace
