// The exponential and power projections written out step by step as first designed: a
// bisection on the multiplier over a Newton solve started afresh at every evaluation, and a
// plain Newton on |z| from r/2. The library's faster routes are checked against them.
#pragma once

#include <algorithm>
#include <cmath>

namespace reference {

// The stationary point cand of the projection of v for the multiplier rho > 0, by Newton on
// w = t - t0 from max(-t0, 1e-6); returns the constraint value r + s log(s/t) at cand, or r
// when s <= 1e-12.
inline double expCandidate(const double* v, double* cand, double rho) {
    const double r = v[0];
    const double s = v[1];
    const double t = v[2];
    double w = std::max(-t, 1e-6);
    double z = 0.0;
    for (int step = 1;; ++step) {
        const double h = std::log(w / rho) + (w + t) * w / rho / rho - s / rho + 1;
        const double dh = (2 * w + t) / rho / rho + 1 / w;
        w = w - h / dh;
        if (-t >= w) {
            z = 0.0;
            break;
        }
        if (0 >= w) {
            z = t;
            break;
        }
        if (std::fabs(h) < 1e-8 || step == 100) {
            z = w + t;
            break;
        }
    }
    cand[2] = z;
    cand[1] = (z - t) * z / rho;
    cand[0] = r - rho;
    if (cand[1] <= 1e-12) return cand[0];
    return cand[1] * std::log(cand[1] / z) + cand[0];
}

// Five direct cases, then doubling of the bracket from (0, 0.125] and bisection to a width of
// 1e-8 (at most 100 steps); the last candidate is the result.
inline void projectExpTriple(double* v) {
    const double r = v[0];
    const double s = v[1];
    const double t = v[2];
    if (s > 0.0 && s * std::exp(r / s) - t <= 1e-6) return;
    if (r <= 0.0 && s == 0.0 && t >= 0.0) return;
    if (r > 0.0 && r * std::exp(s / r) + std::exp(1.0) * t <= 1e-6) {
        v[0] = v[1] = v[2] = 0.0;
        return;
    }
    if (r == 0.0 && s <= 0.0 && t <= 0.0) {
        v[0] = v[1] = v[2] = 0.0;
        return;
    }
    if (r < 0.0 && s < 0.0) {
        v[1] = 0.0;
        v[2] = std::max(t, 0.0);
        return;
    }
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
    v[0] = cand[0];
    v[1] = cand[1];
    v[2] = cand[2];
}

// Two direct cases, then at most 20 Newton steps on zh in [0, r] from r/2, with xh and yh
// floored at 1e-12.
inline void projectPowerTriple(double* v, double a) {
    const double x = v[0];
    const double y = v[1];
    const double z = v[2];
    const double r = std::fabs(z);
    const double b = 1 - a;
    if (x >= 0.0 && y >= 0.0 && std::pow(y, b) * std::pow(x, a) + 1e-6 >= r) return;
    if (x <= 0.0 && y <= 0.0 && std::pow(-y, b) * std::pow(-x, a) + 1e-6 >= (std::pow(a, a) * r) * std::pow(b, b)) {
        v[0] = v[1] = v[2] = 0.0;
        return;
    }
    const double xx = x * x;
    const double yy = y * y;
    const double a4 = 4 * a;
    const double b4 = 4 * b;
    double zh = r / 2;
    double xh = 0.0;
    double yh = 0.0;
    for (int step = 0; step < 20; ++step) {
        const double gap = r - zh;
        xh = std::max((std::sqrt(a4 * gap * zh + xx) + x) / 2, 1e-12);
        yh = std::max((std::sqrt(b4 * gap * zh + yy) + y) / 2, 1e-12);
        const double P = std::pow(yh, b) * std::pow(xh, a);
        const double f = P - zh;
        if (std::fabs(f) < 1e-8) break;
        const double q = r - 2 * zh;
        const double D = ((q * b / (2 * yh - y)) * b / yh + (q * a / (2 * xh - x)) * a / xh) * P - 1;
        zh = zh - f / D;
        if (zh < 0.0 || std::isnan(zh)) zh = 0.0;
        if (!(zh < r)) zh = r;
    }
    v[0] = xh;
    v[1] = yh;
    v[2] = z < 0.0 ? -zh : zh;
}

}  // namespace reference
