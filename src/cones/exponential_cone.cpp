// Projection onto the exponential cone K = cl{(r, s, t): s > 0, s exp(r/s) <= t}.
//
// Outside the direct cases the projection p of v = (r0, s0, t0) lies on the boundary
// f(p) = r + s log(s/t) = 0 and satisfies p = v - rho grad f(p) for a multiplier rho > 0:
//   r = r0 - rho,   t (t - t0) = rho s,   s = s0 - rho (log(s/t) + 1).
// For a given rho, expCandidate solves these for p by Newton on w = t - t0; the outer
// bisection then finds the rho at which f changes sign.
//
// Known weak spots. The Newton start w >= 1e-6 and the absolute tolerances (1e-8 on h and
// on the bracket) are made for entries of unit size: with entries of about 0.1 or less a
// Newton step can overshoot into a clipped candidate (s = 0), f jumps across 0 there, and
// the result may miss the cone by up to |r|. And t = w + t0 loses digits when t0 is large
// and negative while t is tiny, which limits the accuracy of s to about 1e-6 of |v| for
// entries near 1e2 and 1e-4 of |v| near 1e4.
#include <algorithm>
#include <cmath>

#include "cones/cones.h"

namespace korvex {

double expCandidate(const double* v, double* cand, double rho) {
    const double r = v[0];
    const double s = v[1];
    const double t = v[2];

    // With s = w (w + t) / rho the middle condition reads h(w) = 0:
    //   h(w)  = log(w/rho) + (w + t) w / rho^2 - s/rho + 1,
    //   h'(w) = (2 w + t) / rho^2 + 1/w.
    double w = std::max(-t, 1e-6);
    double z = 0.0;
    for (int step = 1;; ++step) {
        const double h = std::log(w / rho) + (w + t) * w / rho / rho - s / rho + 1;
        const double dh = (2 * w + t) / rho / rho + 1 / w;
        w = w - h / dh;
        if (-t >= w) {  // t = w + t0 <= 0: the candidate's t clips to 0
            z = 0.0;
            break;
        }
        if (0 >= w) {  // w <= 0: the candidate's t clips to t0
            z = t;
            break;
        }
        // A NaN h (a NaN in v) ends the search at once: no step would change w.
        if (!(std::fabs(h) >= 1e-8) || step == 100) {
            z = w + t;
            break;
        }
    }

    cand[2] = z;
    cand[1] = (z - t) * z / rho;
    cand[0] = r - rho;
    if (cand[1] <= 1e-12) return cand[0];  // f at s = 0 is r
    return cand[1] * std::log(cand[1] / z) + cand[0];
}

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

    // 6. Search. f(cand(rho)) > 0 means rho is too small: bracket by doubling, then bisect.
    double cand[3];
    double lower = 0.0;
    double upper = 0.125;
    while (expCandidate(v, cand, upper) > 0.0) {
        lower = upper;
        upper *= 2;
    }
    for (int step = 0; step < 100; ++step) {
        const double mid = (upper + lower) / 2;
        if (expCandidate(v, cand, mid) > 0.0) {
            lower = mid;
        } else {
            upper = mid;
        }
        if (upper - lower < 1e-8) break;
    }
    // The candidate of the last evaluation, whichever end of the bracket its rho became.
    v[0] = cand[0];
    v[1] = cand[1];
    v[2] = cand[2];
}

}  // namespace korvex
