// Projection onto the power cone K_a = {(x, y, z): x, y >= 0, x^a y^b >= |z|}, b = 1 - a.
//
// Outside the direct cases the projection is (xh, yh, sign(z) zh) with, for r = |z|,
//   xh = (x + sqrt(x^2 + 4 a zh (r - zh))) / 2,   yh = (y + sqrt(y^2 + 4 b zh (r - zh))) / 2,
// and zh in [0, r] the root of f(zh) = xh^a yh^b - zh, found by Newton.
//
// A step costs two square roots, two logarithms and one exp: xh^a yh^b is taken as
// exp(a log xh + b log yh), which is cheaper than two pow calls. An iterate that the clipping
// to [0, r] leaves where it was is a fixed point of the iteration, which then ends at once:
// the remaining steps would repeat it.
//
// Known weak spots. The iteration stops on the residual |f| < 1e-8, so the error in zh is
// that over |f'|, which falls to about 1e-2 near the boundary of the polar cone (errors
// near 1e-6 there). The floors 1e-12 of xh and yh stand in for 0: (-1, 2, 0) with a = 0.5
// gives (1e-12, 2, 0), and its iteration runs all 20 steps.
#include <algorithm>
#include <cmath>

#include "cones/cones.h"

namespace korvex {

void projectPowerTriple(double* v, double a) {
    const double x = v[0];
    const double y = v[1];
    const double z = v[2];
    const double r = std::fabs(z);
    const double b = 1 - a;

    // In the cone.
    if (x >= 0.0 && y >= 0.0 && std::pow(y, b) * std::pow(x, a) + 1e-6 >= r) return;
    // In the polar cone -K_a* = {x, y <= 0: (-x/a)^a (-y/b)^b >= |z|}: the projection is 0.
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
        const double P = std::exp(b * std::log(yh) + a * std::log(xh));
        const double f = P - zh;
        if (std::fabs(f) < 1e-8) break;
        // f'(zh) = P (a xh'/xh + b yh'/yh) - 1 with xh' = a (r - 2 zh) / (2 xh - x), likewise yh'.
        const double q = r - 2 * zh;
        const double D = ((q * b / (2 * yh - y)) * b / yh + (q * a / (2 * xh - x)) * a / xh) * P - 1;
        // The step stays in [0, r], where both square roots are real.
        const double previous = zh;
        zh = zh - f / D;
        if (zh < 0.0 || std::isnan(zh)) zh = 0.0;
        if (!(zh < r)) zh = r;
        if (zh == previous) break;  // clipped back onto itself: every later step is the same
    }

    v[0] = xh;
    v[1] = yh;
    v[2] = z < 0.0 ? -zh : zh;
}

}  // namespace korvex
