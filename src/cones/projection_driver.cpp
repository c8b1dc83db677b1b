// The projection onto the dual cone K*, block by block, with the zero, non-negative and
// second-order blocks projected in place here.
#include <cstdint>

#include "cones/cones.h"
#include "kernels/kernels.h"
#include "reporting/timing.h"

namespace korvex {

namespace {

// (t, z) = P_Q(t, z) for the second-order cone Q = {(t, z): |z| <= t} of k >= 2 entries.
void projectSecondOrderBlock(double* x, int k) {
    double* z = x + 1;
    const double t = x[0];
    const double nz = normTwo(z, k - 1);
    if (t >= nz) return;  // in the cone
    if (-t >= nz) {       // in the polar cone: the projection is the apex
        for (int j = 0; j < k; ++j) x[j] = 0.0;
        return;
    }
    // Otherwise the nearest point on the boundary: ((nz + t)/2, (nz + t)/2 z/nz).
    const double h = (nz + t) / 2;
    x[0] = h;
    scaleVector(z, h / nz, k - 1);
}

// v = P_{K*}(v) = v + P_K(-v) for a primal exponential block K; w = -v is formed in place
// first (over all triples) and kept in a local copy per triple.
void projectPrimalExpTriples(double* x, int triples) {
    scaleVector(x, -1.0, 3 * triples);
    for (int k = 0; k < triples; ++k) {
        double* v = x + 3 * k;
        const double w[3] = {v[0], v[1], v[2]};
        projectExpTriple(v);  // p = P_K(w)
        for (int j = 0; j < 3; ++j) v[j] = v[j] - w[j];
    }
}

// The power triple of exponent a: a <= 0 is a dual block, whose dual is the cone of
// exponent -a itself; a > 0 is the cone, whose dual is reached by v + P_K(-v).
void projectPowerBlock(double* v, double a) {
    if (a <= 0.0) {
        projectPowerTriple(v, -a);
        return;
    }
    double w[3] = {-v[0], -v[1], -v[2]};
    projectPowerTriple(w, a);
    for (int j = 0; j < 3; ++j) v[j] = v[j] + w[j];
}

}  // namespace

int projectToDualCone(double* x, const Cone* cone, ConeWork* coneWork) {
    Timer timer;
    startTimer(&timer);

    // The dual of the zero cone is the free space: its rows are neither read nor written.
    int pos = cone->free_vars;

    if (cone->linear_vars != 0) {
        for (int j = pos; j < pos + cone->linear_vars; ++j) {
            if (x[j] < 0.0) x[j] = 0.0;
        }
        pos += cone->linear_vars;
    }

    if (cone->soc_blks != 0 && cone->soc_sizes != nullptr) {
        for (int b = 0; b < cone->soc_blks; ++b) {
            const int k = cone->soc_sizes[b];
            if (k == 1) {
                if (x[pos] < 0.0) x[pos] = 0.0;
            } else if (k >= 2) {
                projectSecondOrderBlock(x + pos, k);
            }
            pos += k;
        }
    }

    if (cone->sd_blks != 0 && cone->sd_sizes != nullptr) {
        for (int b = 0; b < cone->sd_blks; ++b) {
            const int n = cone->sd_sizes[b];
            if (n == 0) continue;
            // A failure returns at once: the later rows stay as they came, and no time is added.
            if (projectSemidefiniteBlock(x + pos, n, coneWork) < 0) return -1;
            pos += static_cast<int>(static_cast<std::int64_t>(n) * (n + 1) / 2);
        }
    }

    if (cone->exp_triples != 0) {
        projectPrimalExpTriples(x + pos, cone->exp_triples);
        pos += 3 * cone->exp_triples;
    }

    // The dual of the dual exponential cone is the exponential cone itself.
    if (cone->dual_exp_triples != 0) {
        for (int k = 0; k < cone->dual_exp_triples; ++k) projectExpTriple(x + pos + 3 * k);
        pos += 3 * cone->dual_exp_triples;
    }

    if (cone->power_triples != 0 && cone->power_exponents != nullptr) {
        for (int k = 0; k < cone->power_triples; ++k) projectPowerBlock(x + pos + 3 * k, cone->power_exponents[k]);
    }

    coneWork->projection_time_ms += readTimer(&timer);
    return 0;
}

}  // namespace korvex
