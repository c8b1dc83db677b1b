// Residuals of an iterate in the caller's units, the stopping test, and the final
// status with the solution vectors brought back to the caller's units.
#include <cmath>
#include <cstring>
#include <limits>

#include "core/solver.h"
#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "reporting/threads.h"

namespace korvex {

namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// The factors between normalised values and the caller's: D and E of the scaling and
// fb = scale b_factor, fc = scale c_factor, fbc = scale b_factor c_factor, fs = scale.
// With normalize 0 every one of them is 1 and no scaling array is read.
struct Units {
    const double* D = nullptr;
    const double* E = nullptr;
    double fb = 1.0, fc = 1.0, fbc = 1.0, fs = 1.0;

    explicit Units(const Work* work) {
        const Settings* s = work->settings;
        if (s->normalize == 0) return;
        D = work->scaling->row_scale.get();
        E = work->scaling->col_scale.get();
        fb = s->scale * work->b_factor;
        fc = s->scale * work->c_factor;
        fbc = s->scale * work->b_factor * work->c_factor;
        fs = s->scale;
    }
    double row(int i) const { return D != nullptr ? D[i] : 1.0; }
    double col(int j) const { return E != nullptr ? E[j] : 1.0; }
};

// |c'x/tau + b'y/tau| / (1 + |c'x/tau| + |b'y/tau|)
double relativeGap(double c_dot_x, double b_dot_y, double tau) {
    const double px = c_dot_x / tau;
    const double dy = b_dot_y / tau;
    return std::fabs(px + dy) / (1.0 + std::fabs(px) + std::fabs(dy));
}

void fillNaN(double* v, int count) {
    for (int k = 0; k < count; ++k) v[k] = kNaN;
}

// What one block of the Marlet residuals needs from one pass over v (A x or A'y):
// e = v + add (when given) with its norm `before`, then e + data scale with its norm
// `after`, the inner product of `other` with data, and the norm of data itself. v is
// scratch that nothing reads afterwards, so e is not stored. With a
// weight the norms are plain running sums of (w v)^2 in index order; without, they are
// normTwo's; the inner product is dotProduct's.
struct PassSums {
    double before, after, dot, data;
};

PassSums residualPass(const double* v, const double* add, const double* data, const double* other, double scale,
                      const double* weight, int count) {
    double sums[4];
    double before = 0.0, after = 0.0, norm_data = 0.0;
    if (weight != nullptr) {
        fusedSums<1>(count, sums, [&](int k, double* term) {
            double e = add != nullptr ? v[k] + add[k] : v[k];
            const double a = weight[k] * e;
            before += a * a;
            e += data[k] * scale;
            const double w = weight[k] * e;
            after += w * w;
            const double d = weight[k] * data[k];
            norm_data += d * d;
            term[0] = other[k] * data[k];
        });
        return {std::sqrt(before), std::sqrt(after), sums[0], std::sqrt(norm_data)};
    }
    fusedSums<4>(count, sums, [&](int k, double* term) {
        double e = add != nullptr ? v[k] + add[k] : v[k];
        term[0] = e * e;
        e += data[k] * scale;
        term[1] = e * e;
        term[2] = other[k] * data[k];
        term[3] = data[k] * data[k];
    });
    return {std::sqrt(sums[0]), std::sqrt(sums[1]), sums[2], std::sqrt(sums[3])};
}

}  // namespace

namespace {

// The residuals of the standard iteration; with update_dual set, the same pass over the
// rows first brings the slack block of v up to date (updateDualVariables), entry by entry
// just before the residual reads it.
void standardResiduals(Work* work, Residuals* r, int iter, bool update_dual) {
    if (r->last_iter == iter) return;
    r->last_iter = iter;
    const int n = work->n, m = work->m, l = work->l;
    const double alpha = work->settings->alpha;
    double* v = work->v.get();
    const double* u = work->u.get();
    const double* u_t = work->u_t.get();
    const double* u_prev = work->u_prev.get();
    if (update_dual) v[l - 1] = v[l - 1] + u[l - 1] - alpha * u_t[l - 1] - (1 - alpha) * u_prev[l - 1];
    const Units units(work);
    const double* x = work->u.get();
    const double* y = work->u.get() + n;
    const double* s = work->v.get() + n;
    const double* b = work->b.get();
    const double* c = work->c.get();
    double* pr = work->pr.get();
    double* dr = work->dr.get();

    const double tau = std::fabs(work->u[l - 1]);
    r->tau = tau;
    r->kap = std::fabs(work->v[l - 1]) / units.fbc;

    // pr = A x; P = |pr + s|, P_res = |pr + s - tau b|, both weighted by D / fb; pr + s
    // stays in a register, as the scratch pr is not read again. The passes run in fixed
    // blocks side by side, each sum the blocks' sums in order (FixedBlocks).
    // The blocks capture by value (see forEachBlock) and write their sums through partial.
    double sums[FixedBlocks::kMostBlocks][2];
    double (*partial)[2] = sums;
    auto combined = [&](const FixedBlocks& blocks, int which) {
        return std::sqrt(sumOverBlocks(blocks, [&](int b) { return sums[b][which]; }));
    };
    productA(&work->lin_sys->rows_of_A, x, pr);
    const FixedBlocks rows(m);
    forEachBlock(rows, [=](int lo, int hi, int block) {
        double P = 0.0, P_res = 0.0;
        for (int i = lo; i < hi; ++i) {
            if (update_dual) {
                const int k = n + i;
                v[k] = v[k] + u[k] - alpha * u_t[k] - (1 - alpha) * u_prev[k];
            }
            const double p = pr[i] + s[i];
            const double w = units.row(i) / units.fb;
            P += w * w * p * p;
            const double e = p - tau * b[i];
            P_res += w * w * e * e;
        }
        partial[block][0] = P;
        partial[block][1] = P_res;
    });
    const double P = combined(rows, 0), P_res = combined(rows, 1);

    // dr = A'y; Q = |dr|, Q_res = |dr + tau c|, both weighted by E / fc.
    productAt(work->A, y, dr);
    const FixedBlocks cols(n);
    forEachBlock(cols, [=](int lo, int hi, int block) {
        double Q = 0.0, Q_res = 0.0;
        for (int j = lo; j < hi; ++j) {
            const double w = units.col(j) / units.fc;
            Q += w * w * dr[j] * dr[j];
            const double e = dr[j] + tau * c[j];
            Q_res += w * w * e * e;
        }
        partial[block][0] = Q;
        partial[block][1] = Q_res;
    });
    const double Q = combined(cols, 0), Q_res = combined(cols, 1);

    // The two inner products side by side, each one whole kernel call.
    double dots[2];
    if (FixedBlocks(m + n).count == 1) {  // too short to hand one over
        dots[0] = dotProduct(y, b, m);
        dots[1] = dotProduct(x, c, n);
    } else {
        forEachTask(2, [&](int k) { dots[k] = k == 0 ? dotProduct(y, b, m) : dotProduct(x, c, n); });
    }
    r->b_dot_y = dots[0] / units.fbc;
    r->c_dot_x = dots[1] / units.fbc;
    r->res_infeas = r->b_dot_y < 0 ? -(work->b_norm * Q / r->b_dot_y) : kNaN;
    r->res_unbdd = r->c_dot_x < 0 ? -(work->c_norm * P / r->c_dot_x) : kNaN;
    r->res_pri = P_res / (work->b_norm + 1.0) / tau;
    r->res_dual = Q_res / (work->c_norm + 1.0) / tau;
    r->rel_gap = relativeGap(r->c_dot_x, r->b_dot_y, tau);
}

}  // namespace

void computeResidualsStandard(Work* work, Residuals* r, int iter) { standardResiduals(work, r, iter, false); }

void updateDualAndResiduals(Work* work, Residuals* r, int iter) { standardResiduals(work, r, iter, true); }

void computeResidualsMarlet(Work* work, Residuals* r, int iter) {
    if (r->last_iter == iter) return;
    r->last_iter = iter;
    const int n = work->n, m = work->m, l = work->l;
    const Units units(work);
    const double* x = work->u_b.get();
    const double* y = work->u_b.get() + n;
    const double* s = work->s_b.get();
    const double* b = work->b.get();
    const double* c = work->c.get();
    double* pr = work->pr.get();
    double* dr = work->dr.get();

    // The reflected point is taken as it is: no magnitudes, and kap not scaled here.
    const double tau = work->u_b[l - 1];
    r->tau = tau;
    r->kap = work->kappa_b;

    // pr = A x + s with P = |pr|, then pr - tau b with its norm, b'y and |b|: one pass after
    // the product. dr = A'y with Q = |dr|, then dr + tau c with its norm, c'x and |c|: one
    // pass after the other. Norms are weighted by D (rows) and E (columns) when the problem
    // is normalised; every sum keeps the order of the separate kernels, so the bits are
    // those of a pass per step.
    productA(&work->lin_sys->rows_of_A, x, pr);
    const PassSums rows = residualPass(pr, s, b, y, -tau, units.D, m);
    productAt(work->A, y, dr);
    const PassSums cols = residualPass(dr, nullptr, c, x, tau, units.E, n);
    const double P = rows.before, Q = cols.before;
    const double by = rows.dot, cx = cols.dot;
    r->b_dot_y = by / units.fbc;
    r->c_dot_x = cx / units.fbc;
    r->res_pri = rows.after / tau / ((work->b_norm + 1.0) * units.fb);
    r->res_dual = cols.after / tau / ((work->c_norm + 1.0) * units.fc);
    r->res_unbdd = cx < 0 ? -(cols.data * P / cx) / units.fs : kNaN;
    r->res_infeas = by < 0 ? -(rows.data * Q / by) / units.fs : kNaN;
    r->rel_gap = relativeGap(r->c_dot_x, r->b_dot_y, tau);
}

int testStopping(const Work* work, const Residuals* r, int /*iter*/) {
    const double eps = work->settings->eps;
    if (eps > r->res_pri && eps > r->res_dual && eps > r->rel_gap) return KORVEX_SOLVED;
    if (eps > r->res_unbdd) return KORVEX_UNBOUNDED;
    if (eps > r->res_infeas) return KORVEX_INFEASIBLE;
    return KORVEX_RUNNING;
}

int indicateSolved(Work* work, Solution* solution, Info* info, double tau) {
    scaleVector(solution->x, 1.0 / tau, work->n);
    scaleVector(solution->y, 1.0 / tau, work->m);
    scaleVector(solution->s, 1.0 / tau, work->m);
    const bool passed = info->statusVal != KORVEX_RUNNING;
    setStatusText(info, statusText(passed ? KORVEX_SOLVED : KORVEX_SOLVED_INACCURATE));
    return passed ? KORVEX_SOLVED : KORVEX_SOLVED_INACCURATE;
}

int indicateInfeasible(Work* work, Solution* solution, Info* info, double b_dot_y) {
    scaleVector(solution->y, -1.0 / b_dot_y, work->m);
    fillNaN(solution->x, work->n);
    fillNaN(solution->s, work->m);
    const bool passed = info->statusVal != KORVEX_RUNNING;
    setStatusText(info, statusText(passed ? KORVEX_INFEASIBLE : KORVEX_INFEASIBLE_INACCURATE));
    return passed ? KORVEX_INFEASIBLE : KORVEX_INFEASIBLE_INACCURATE;
}

int indicateUnbounded(Work* work, Solution* solution, Info* info, double c_dot_x) {
    scaleVector(solution->x, -1.0 / c_dot_x, work->n);
    scaleVector(solution->s, -1.0 / c_dot_x, work->m);
    fillNaN(solution->y, work->m);
    const bool passed = info->statusVal != KORVEX_RUNNING;
    setStatusText(info, statusText(passed ? KORVEX_UNBOUNDED : KORVEX_UNBOUNDED_INACCURATE));
    return passed ? KORVEX_UNBOUNDED : KORVEX_UNBOUNDED_INACCURATE;
}

void finishSolution(Work* work, Solution* solution, Info* info, Residuals* r, int iter) {
    const Settings* settings = work->settings;
    const int n = work->n, m = work->m, l = work->l;
    const bool standard = settings->do_super_korvex == 0;
    if (standard) {
        computeResidualsStandard(work, r, iter);
    } else {
        computeResidualsMarlet(work, r, iter);
        r->kap = std::fabs(work->kappa_b) / Units(work).fbc;
    }

    if (solution->x == nullptr) solution->x = allocateArray<double>(n);
    if (solution->y == nullptr) solution->y = allocateArray<double>(m);
    if (solution->s == nullptr) solution->s = allocateArray<double>(m);
    if (solution->x == nullptr || solution->y == nullptr || solution->s == nullptr) {
        failSolve(work, m, n, solution, info, KORVEX_FAILED, "could not allocate the solution vectors", "Failure",
                  settings->stream_override);
        return;
    }
    const double* point = standard ? work->u.get() : work->u_b.get();
    std::memcpy(solution->x, point, sizeof(double) * n);
    std::memcpy(solution->y, point + n, sizeof(double) * m);
    std::memcpy(solution->s, standard ? work->v.get() + n : work->s_b.get(), sizeof(double) * m);

    switch (info->statusVal) {
        case KORVEX_SOLVED: info->statusVal = indicateSolved(work, solution, info, r->tau); break;
        case KORVEX_INFEASIBLE: info->statusVal = indicateInfeasible(work, solution, info, r->b_dot_y); break;
        case KORVEX_UNBOUNDED: info->statusVal = indicateUnbounded(work, solution, info, r->c_dot_x); break;
        default:
            // The limit was reached: decide what the last iterate leans to. The test of a
            // vanishing iterate reads u, in the Marlet iteration too.
            if (r->tau > 1e-9 && r->tau > r->kap) {
                info->statusVal = indicateSolved(work, solution, info, r->tau);
            } else if (std::sqrt(static_cast<double>(l)) * 1e-9 > normTwo(work->u.get(), l)) {
                info->statusVal = KORVEX_INDETERMINATE;
                setStatusText(info, statusText(KORVEX_INDETERMINATE));
                fillNaN(solution->x, n);
                fillNaN(solution->y, m);
                fillNaN(solution->s, m);
            } else if (r->c_dot_x > r->b_dot_y) {
                info->statusVal = indicateInfeasible(work, solution, info, r->b_dot_y);
            } else {
                info->statusVal = indicateUnbounded(work, solution, info, r->c_dot_x);
            }
            break;
    }

    // Back to the caller's units, whatever the status.
    if (settings->normalize != 0) {
        const double* D = work->scaling->row_scale.get();
        const double* E = work->scaling->col_scale.get();
        for (int j = 0; j < n; ++j) solution->x[j] /= E[j] * work->b_factor;
        for (int i = 0; i < m; ++i) {
            solution->y[i] /= D[i] * work->c_factor;
            solution->s[i] *= D[i] / (settings->scale * work->b_factor);
        }
    }

    info->iter = iter;
    info->resInfeas = r->res_infeas;
    info->resUnbdd = r->res_unbdd;
    switch (info->statusVal) {
        case KORVEX_SOLVED:
        case KORVEX_SOLVED_INACCURATE:
            info->pobj = r->c_dot_x / r->tau;
            info->dobj = -(r->b_dot_y / r->tau);
            info->resPri = r->res_pri;
            info->resDual = r->res_dual;
            info->relGap = r->rel_gap;
            break;
        case KORVEX_UNBOUNDED:
        case KORVEX_UNBOUNDED_INACCURATE:
            info->pobj = info->dobj = -std::numeric_limits<double>::infinity();
            info->resPri = info->resDual = info->relGap = kNaN;
            break;
        case KORVEX_INFEASIBLE:
        case KORVEX_INFEASIBLE_INACCURATE:
            info->pobj = info->dobj = std::numeric_limits<double>::infinity();
            info->resPri = info->resDual = info->relGap = kNaN;
            break;
        default: break;  // Indeterminate leaves them as they were
    }
}

}  // namespace korvex
