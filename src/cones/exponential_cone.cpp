// Projection onto the exponential cone K = cl{(r, s, t): s > 0, s exp(r/s) <= t}.
//
// Outside the direct cases the projection p of v = (r0, s0, t0) lies on the smooth part of
// the boundary, p = s (x, 1, exp(x)) with x = r/s and s > 0, and v - p lies on the boundary
// of the polar cone along the normal there: v - p = mu (exp(x), (1 - x) exp(x), -1), mu >= 0.
// The first two entries of v = p + (v - p) give s and mu for each x, with D = x^2 - x + 1 > 0:
//   s(x) = ((x - 1) r0 + s0) / D,   mu(x) = (r0 - x s0) exp(-x) / D,
// and the third is one equation in x alone:
//   G(x) = s(x) exp(x) - mu(x) - t0 = 0.
// s > 0 and mu >= 0 are linear conditions on x; they cut out the interval I on which the
// root is sought, with mu = 0 (the point v itself) at its right end and s = 0 (the apex) at
// its left end, where G runs from below 0 to above it. The root is found by Newton on
// G exp(-|x|) (the same sign, and no overflow), kept in a bracket; a step that leaves the
// bracket becomes an expansion while only one sign is known, and a secant or bisection step
// after. Each evaluation costs one exp: on N(0, 1) triples about 6.5 evaluations on average
// and at most 17, where a bisection on the multiplier rho with an inner Newton for every
// rho takes several hundred logarithms.
//
// The root gives a point of the boundary to rounding; where the root lies beyond what the
// arithmetic resolves (x below -1e150 or above 700), or the data put the projection on the
// edge {(r, 0, t): r <= 0, t >= 0} or at the apex, those points are the nearer ones: the
// result is the nearest to v of p, the edge point (min(r0, 0), 0, max(t0, 0)) and 0, all
// three points of K.
#include <algorithm>
#include <cmath>

#include "cones/cones.h"

namespace korvex {

namespace {

// G(x) exp(-|x|) and its derivative.
struct Scaled {
    double value;
    double slope;
};

Scaled scaledG(double x, double r0, double s0, double t0) {
    const double D = x * x - x + 1;
    const double dD = 2 * x - 1;
    const double n1 = (x - 1) * r0 + s0;  // s(x) D
    const double n2 = r0 - x * s0;        // mu(x) D exp(x)
    const double E = std::exp(-std::fabs(x));
    const double E2 = E * E;
    // d/dx of s exp(x) is exp(x) a1, and of mu it is exp(-x) a2.
    const double a1 = (r0 * D - n1 * dD) / (D * D) + n1 / D;
    const double a2 = (-s0 * D - n2 * dD) / (D * D) - n2 / D;
    double value = 0.0;
    double slope = 0.0;
    if (x >= 0.0) {
        value = (n1 - n2 * E2) / D - t0 * E;
        slope = a1 - E2 * a2 - value;
    } else {
        value = (n1 * E2 - n2) / D - t0 * E;
        slope = E2 * a1 - a2 + value;
    }
    return {value, slope};
}

// |v - q|^2 - |v|^2 = |q|^2 - 2 v'q: compares distances from v without the rounding of |v|^2.
double excessDistance(const double* v, const double* q) {
    return q[0] * (q[0] - 2 * v[0]) + q[1] * (q[1] - 2 * v[1]) + q[2] * (q[2] - 2 * v[2]);
}

// The point of the boundary for the root x, from whichever of its two expressions is
// expected to carry the smaller absolute rounding error: s(x) (x, 1, exp(x)), whose s comes
// from (x - 1) r0 + s0 and carries about eps (|x - 1| |r0| + |s0|) / D in each entry
// relative to s, or v - mu(x) (exp(x), (1 - x) exp(x), -1), whose three differences carry
// about eps times the larger of their two terms.
void boundaryPoint(double x, const double* v, double* p) {
    const double r0 = v[0];
    const double s0 = v[1];
    const double t0 = v[2];
    const double D = x * x - x + 1;
    const double n1 = (x - 1) * r0 + s0;
    const double n2 = r0 - x * s0;
    const double ex = std::exp(x);
    const double m = n2 / D;  // mu exp(x)
    const double m_t = m / ex;
    const double primal_error = (std::fabs((x - 1) * r0) + std::fabs(s0)) / D * (std::fabs(x) + 1 + ex);
    const double dual_error = std::max(std::fabs(r0), std::fabs(m)) + std::max(std::fabs(s0), std::fabs((1 - x) * m)) +
                              std::max(std::fabs(t0), std::fabs(m_t));
    if (primal_error <= dual_error) {
        const double s = n1 / D;
        p[0] = s * x;
        p[1] = s;
        p[2] = s * ex;
    } else {
        p[0] = r0 - m;
        p[1] = s0 - (1 - x) * m;
        p[2] = t0 + m_t;
    }
}

constexpr double kLeftmost = -1e150;
constexpr double kRightmost = 700.0;

// The search for a triple that none of the direct cases settles (so not both r0 < 0 and
// s0 < 0, and not r0 = 0 with s0 <= 0).
void searchExpTriple(double* v) {
    const double r0 = v[0];
    const double s0 = v[1];
    const double t0 = v[2];

    // I from s > 0: (x - 1) r0 + s0 > 0, and mu >= 0: r0 - x s0 >= 0.
    double left = kLeftmost;
    double right = kRightmost;
    if (r0 > 0.0) left = std::max(left, 1 - s0 / r0);
    if (r0 < 0.0) right = std::min(right, 1 - s0 / r0);
    if (s0 > 0.0) right = std::min(right, r0 / s0);
    if (s0 < 0.0) left = std::max(left, r0 / s0);
    if ((s0 == 0.0 && r0 < 0.0) || (r0 == 0.0 && s0 <= 0.0)) right = left;  // no x gives both

    double candidate[3] = {0.0, 0.0, 0.0};
    if (left < right) {
        // Newton from one unit inside the finite end (the right one when both are), kept in
        // the bracket of the signs seen so far; until both signs are seen, a step that leaves
        // the bracket is an expansion away from the known side by a doubling length.
        const bool from_right = right < kRightmost;
        double x = from_right ? std::max(right - 1, left + (right - left) / 2) : std::min(left + 1, right);
        double lower = left;
        double upper = right;
        double value_lower = 0.0;
        double value_upper = 0.0;
        bool seen_below = false;
        bool seen_above = false;
        bool bisect_next = false;
        double reach = 2.0;
        for (int step = 0; step < 200; ++step) {
            const Scaled g = scaledG(x, r0, s0, t0);
            if (g.value < 0.0) {
                lower = x;
                value_lower = g.value;
                seen_below = true;
            } else if (g.value > 0.0) {
                upper = x;
                value_upper = g.value;
                seen_above = true;
            } else {
                break;
            }
            const double newton = g.value / g.slope;
            if (std::fabs(newton) <= 4e-16 * std::max(1.0, std::fabs(x))) break;  // converged
            double next = x - newton;
            if (!(next > lower && next < upper)) {
                if (seen_below && seen_above) {
                    // Secant through the bracket's ends, every other time a bisection, so
                    // that the bracket at least halves every two steps.
                    next = lower - value_lower * (upper - lower) / (value_upper - value_lower);
                    if (bisect_next || !(next > lower && next < upper)) next = lower + (upper - lower) / 2;
                    bisect_next = !bisect_next;
                } else if (seen_above) {
                    // Toward the left end: try the end itself when it is in reach.
                    next = upper - reach > lower ? upper - reach : lower;
                    reach *= 2;
                } else {
                    next = lower + reach < upper ? lower + reach : upper;
                    reach *= 2;
                }
            }
            const double change = std::fabs(next - x);
            x = next;
            if (change <= 4e-16 * std::max(1.0, std::fabs(x))) break;
        }
        boundaryPoint(x, v, candidate);
    }

    const double edge[3] = {std::min(r0, 0.0), 0.0, std::max(t0, 0.0)};
    const double apex[3] = {0.0, 0.0, 0.0};
    const double* best = apex;
    double nearest = 0.0;  // the apex's excess
    if (excessDistance(v, edge) < nearest) {
        best = edge;
        nearest = excessDistance(v, edge);
    }
    if (candidate[1] >= 0.0 && excessDistance(v, candidate) <= nearest) best = candidate;
    const double result[3] = {best[0], best[1], best[2]};
    v[0] = result[0];
    v[1] = result[1];
    v[2] = result[2];
}

}  // namespace

void projectExpTriple(double* v) {
    const double r = v[0];
    const double s = v[1];
    const double t = v[2];

    // 1. In the cone (s > 0 is tested first, so that exp(r/s) is only taken when defined).
    if (s > 0.0 && s * std::exp(r / s) - t <= 1e-6) return;
    // 2. On its edge {(r, 0, t): r <= 0, t >= 0}.
    if (r <= 0.0 && s == 0.0 && t >= 0.0) return;
    // 3. In the polar cone -K* = {r > 0, r exp(s/r) + e t <= 0}: the projection is 0.
    if (r > 0.0 && r * std::exp(s / r) + std::exp(1.0) * t <= 1e-6) {
        v[0] = v[1] = v[2] = 0.0;
        return;
    }
    // 4. On the polar cone's edge {(0, s, t): s <= 0, t <= 0}.
    if (r == 0.0 && s <= 0.0 && t <= 0.0) {
        v[0] = v[1] = v[2] = 0.0;
        return;
    }
    // 5. r < 0 and s < 0: the nearest point is on the edge, (r, 0, max(t, 0)).
    if (r < 0.0 && s < 0.0) {
        v[1] = 0.0;
        v[2] = std::max(t, 0.0);
        return;
    }
    // 6. Search.
    searchExpTriple(v);
}

}  // namespace korvex
