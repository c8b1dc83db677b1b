// The exponential and power projections against their step-by-step transcriptions, on random
// triples over magnitudes 1e-8 to 1e8 and near the boundaries of the cone and of its polar
// cone. The normal run takes a sample; the build with KORVEX_SLOW_SET takes 10^6 triples of
// each family. Where a result differs from the reference by more than 1e-7 (1 + |v|), a
// primal-dual bound must show that ours is the projection and the reference is not.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <random>

#include "cones/cones.h"
#include "cones/reference_projections.h"

namespace {

#ifdef KORVEX_SLOW_SET
constexpr int kTriples = 1000000;
#else
constexpr int kTriples = 20000;
#endif

struct Triple {
    double v[3];
};

double norm(const double* a) { return std::sqrt(a[0] * a[0] + a[1] * a[1] + a[2] * a[2]); }
double distance(const double* a, const double* b) {
    const double d[3] = {a[0] - b[0], a[1] - b[1], a[2] - b[2]};
    return norm(d);
}

// Triple k of a family: entries N(0, 1) times one magnitude 10^U(-8, 8), or each its own;
// a point of the boundary moved along its normal (direction) by a relative 1e-4 to 1e-12, and
// a point of the polar cone's boundary moved in a random direction likewise.
Triple randomTriple(std::mt19937_64& rng, int k, void (*boundary)(std::mt19937_64&, double*, double*)) {
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> exponent(-8.0, 8.0);
    const double scale = std::pow(10.0, exponent(rng));
    Triple t{};
    if (k % 4 < 2) {
        for (double& x : t.v) x = normal(rng) * (k % 4 == 0 ? scale : std::pow(10.0, exponent(rng)));
        return t;
    }
    double point[3], direction[3];
    boundary(rng, point, direction);
    if (k % 4 == 3) {
        for (double& x : direction) x = normal(rng);
    }
    const double step = normal(rng) * std::pow(10.0, std::uniform_real_distribution<double>(-12.0, -4.0)(rng));
    for (int j = 0; j < 3; ++j) t.v[j] = scale * (point[j] + step * direction[j]);
    return t;
}

// The exponential cone's boundary s (x, 1, e^x) with its normal, and the polar cone's
// boundary r (1, x, -e^(x - 1))... written with the polar parameter u = 1 - x.
void expBoundary(std::mt19937_64& rng, double* point, double* normal) {
    std::normal_distribution<double> g;
    const double x = 3 * g(rng), s = std::fabs(g(rng)), ex = std::exp(x);
    if (g(rng) > 0.0) {
        const double p[3] = {s * x, s, s * ex}, n[3] = {ex, (1 - x) * ex, -1.0};
        std::copy(p, p + 3, point), std::copy(n, n + 3, normal);
    } else {  // mu (e^x, (1 - x) e^x, -1), a point of the polar cone's boundary
        const double p[3] = {s * ex, s * (1 - x) * ex, -s}, n[3] = {x, 1.0, ex};
        std::copy(p, p + 3, point), std::copy(n, n + 3, normal);
    }
}

// The nearest of two moves that put p into the exponential cone (raise t, or lower r), and
// of two that put d into its polar cone {u > 0: u exp(v/u) + e w <= 0} (lower w, or lower v).
void intoCone(double* p) {
    if (p[1] > 0.0) {
        const double t = std::max(p[2], p[1] * std::exp(p[0] / p[1]));
        const double r = p[2] > 0.0 ? std::min(p[0], p[1] * std::log(p[2] / p[1])) : -HUGE_VAL;
        p[0] - r < t - p[2] ? void(p[0] = r) : void(p[2] = t);
    } else {
        p[0] = std::min(p[0], 0.0), p[1] = 0.0, p[2] = std::max(p[2], 0.0);
    }
}
void intoPolar(double* d) {
    if (d[0] > 0.0) {
        const double w = std::min(d[2], -d[0] * std::exp(d[1] / d[0] - 1));
        const double v = d[2] < 0.0 ? std::min(d[1], d[0] * (std::log(-d[2] / d[0]) + 1)) : -HUGE_VAL;
        d[1] - v < d[2] - w ? void(d[1] = v) : void(d[2] = w);
    } else {
        d[0] = 0.0, d[1] = std::min(d[1], 0.0), d[2] = std::min(d[2], 0.0);
    }
}

// A bound on |p - P(v)|: q (p moved into K) is a point of the cone, and u (v - p moved into
// the polar cone, normalised) gives dist(v, K) >= v'u, so |q - P(v)|^2 <= |v - q|^2 - (v'u)^2,
// which is the squared length of the part of v - q across u, less (q'u)(2 (v - q)'u + q'u).
double projectionErrorBound(const double* v, const double* p) {
    double q[3] = {p[0], p[1], p[2]}, d[3] = {v[0] - p[0], v[1] - p[1], v[2] - p[2]};
    intoCone(q);
    intoPolar(d);
    const double dq[3] = {v[0] - q[0], v[1] - q[1], v[2] - q[2]};
    double squared = norm(dq) * norm(dq);
    if (norm(d) > 0.0) {
        const double u[3] = {d[0] / norm(d), d[1] / norm(d), d[2] / norm(d)};
        const double along = dq[0] * u[0] + dq[1] * u[1] + dq[2] * u[2];
        const double apex = q[0] * u[0] + q[1] * u[1] + q[2] * u[2];
        const double across[3] = {dq[0] - along * u[0], dq[1] - along * u[1], dq[2] - along * u[2]};
        if (along + apex >= 0.0) squared = norm(across) * norm(across) - apex * (2 * along + apex);
    }
    return std::sqrt(std::max(squared, 0.0)) + distance(p, q);
}

TEST(ReferenceRoutes, ExponentialAgreesWithTheBisectionOrIsTheProjectionWhereItDoesNot) {
    std::mt19937_64 rng(1205);
    int same = 0, agree = 0, reference_off = 0;
    double worst_bound = 0.0;
    for (int k = 0; k < kTriples; ++k) {
        const Triple t = randomTriple(rng, k, expBoundary);
        double ours[3] = {t.v[0], t.v[1], t.v[2]}, theirs[3] = {t.v[0], t.v[1], t.v[2]};
        korvex::projectExpTriple(ours);
        reference::projectExpTriple(theirs);
        if (ours[0] == theirs[0] && ours[1] == theirs[1] && ours[2] == theirs[2]) {
            ++same;  // the direct cases, bit for bit
            continue;
        }
        // A searched triple: ours is the projection within the tolerance (the bound itself
        // carries about sqrt(eps |p| |v - p|) of rounding, a fifth of the tolerance or so), and
        // where the reference is farther than the tolerance from ours, it is at least half the
        // tolerance from the projection.
        const double tolerance = 1e-7 * (1 + norm(t.v));
        const double bound = projectionErrorBound(t.v, ours), apart = distance(ours, theirs);
        worst_bound = std::max(worst_bound, bound / tolerance);
        SCOPED_TRACE(testing::Message() << std::hexfloat << "v = (" << t.v[0] << ", " << t.v[1] << ", " << t.v[2]
                                        << ")");
        ASSERT_LE(bound, tolerance);
        if (apart <= tolerance) {
            ++agree;
        } else {
            ASSERT_GE(apart - bound, tolerance / 2);
            ++reference_off;
        }
    }
    std::printf("exponential: %d triples, %d direct, %d within 1e-7 (1 + |v|) of the reference, %d where the "
                "reference is off the projection; largest error bound %.3f of the tolerance\n",
                kTriples, same, agree, reference_off, worst_bound);
    EXPECT_GT(agree, 10 * reference_off);
}

// The power cone's boundary (x, y, x^a y^b) and its polar cone's (-a X, -b Y, X^a Y^b).
double g_exponent = 0.5;
void powerBoundary(std::mt19937_64& rng, double* point, double* direction) {
    std::exponential_distribution<double> e;
    const double a = g_exponent, b = 1 - a, x = e(rng), y = e(rng), z = std::pow(x, a) * std::pow(y, b);
    const bool polar = e(rng) > 1.0;
    const double p[3] = {polar ? -a * x : x, polar ? -b * y : y, z}, n[3] = {-a * z / x, -b * z / y, 1.0};
    std::copy(p, p + 3, point), std::copy(n, n + 3, direction);
}

TEST(ReferenceRoutes, PowerAgreesWithThePlainNewton) {
    std::mt19937_64 rng(1206);
    int same = 0, agree = 0;
    for (int k = 0; k < kTriples; ++k) {
        g_exponent = k % 50 == 0 ? 0.0 : k % 50 == 1 ? 1.0 : std::uniform_real_distribution<double>(0.02, 0.98)(rng);
        const Triple t = randomTriple(rng, k, powerBoundary);
        double ours[3] = {t.v[0], t.v[1], t.v[2]}, theirs[3] = {t.v[0], t.v[1], t.v[2]};
        korvex::projectPowerTriple(ours, g_exponent);
        reference::projectPowerTriple(theirs, g_exponent);
        const bool identical = ours[0] == theirs[0] && ours[1] == theirs[1] && ours[2] == theirs[2];
        same += identical;
        if (identical) continue;
        ASSERT_LE(distance(ours, theirs), 1e-7 * (1 + norm(t.v)))
            << std::hexfloat << "a = " << g_exponent << ", v = (" << t.v[0] << ", " << t.v[1] << ", " << t.v[2] << ")";
        ++agree;
    }
    std::printf("power: %d triples, %d identical, %d within 1e-7 (1 + |v|)\n", kTriples, same, agree);
}

}  // namespace
