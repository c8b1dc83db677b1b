// The Marlet iteration: the fixed-point residual R(u) = u_t - u_b of the splitting
// (u_t the projection step of u, u_b the cone projection of the reflection 2 u_t - u) is
// treated as an equation R(u) = 0. Each pass asks for a quasi-Newton direction and tries
// steps along it; three acceptance rules (blind, educated, safeguarded) decide the next
// point, and a plain relaxed step u - alpha R is taken when none fires.
//
// Every norm and inner product here weights the x block by rho_x. The direction is worked
// out in the space where the x blocks carry sqrt(rho_x), so that the plain Euclidean
// inner product of the direction kinds is the weighted one, and brought back.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "cones/cones.h"
#include "core/solver.h"
#include "directions/directions.h"
#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "reporting/print.h"
#include "core/report.h"
#include "reporting/timing.h"

namespace korvex {

namespace {

// The kind of step an iteration took, as the history records it.
constexpr int kPlainStep = -1;
constexpr int kBlindStep = 0;
constexpr int kEducatedStep = 1;
constexpr int kSafeguardedStep = 2;

void copyVector(double* to, const double* from, int count) { std::memcpy(to, from, sizeof(double) * count); }

}  // namespace

double weightedDot(const Work* work, const double* p, const double* q) {
    const int n = work->n;
    return work->settings->rho_x * dotProduct(p, q, n) + dotProduct(p + n, q + n, work->l - n);
}

namespace {

// The cone projection of a reflection already formed in out: its r block onto the dual
// cone, and tau clipped at 0.
int projectReflection(double* out, Work* work, const Cone* cone) {
    const int result = projectToDualCone(out + work->n, cone, work->cone_work);
    if (out[work->l - 1] < 0.0) out[work->l - 1] = 0.0;
    return result;
}

// R = a - b written out, and the sum of its squares in the order of normSquared; with
// `other` given, also <other, R> into *dot in the order of dotProduct.
double differenceSquares(double* __restrict R, const double* __restrict a, const double* __restrict b, int count,
                         const double* __restrict other = nullptr, double* dot = nullptr) {
    const int k = count & ~3;
    DoublePair low = {0.0, 0.0}, high = {0.0, 0.0}, dot_low = {0.0, 0.0}, dot_high = {0.0, 0.0};
    for (int j = 0; j < k; j += 4) {
        const DoublePair rl = loadPair(a + j) - loadPair(b + j), rh = loadPair(a + j + 2) - loadPair(b + j + 2);
        storePair(R + j, rl);
        storePair(R + j + 2, rh);
        low += rl * rl;
        high += rh * rh;
        if (other != nullptr) {
            dot_low += loadPair(other + j) * rl;
            dot_high += loadPair(other + j + 2) * rh;
        }
    }
    for (int j = k; j < count; ++j) R[j] = a[j] - b[j];
    double sum = combineLanes(low, high);
    for (int j = count - 1; j >= k; --j) sum += R[j] * R[j];  // the last terms from the highest index down
    if (other != nullptr) {
        *dot = combineLanes(dot_low, dot_high);
        for (int j = count - 1; j >= k; --j) *dot += other[j] * R[j];
    }
    return sum;
}

// R = p_t - p_b and |R|_M, its x block weighted by rho_x, with the bits of differenceInto and
// the kernels' normSquared in one pass; with `slack` set, also the reflected slack s_b and kappa_b of p
// (computeReflectedSlack); with `dir` given, also <dir, R>_M (weightedDot) into *dir_dot.
double residualWithNorm(double* R, const double* p, const double* p_t, const double* p_b, Work* work, bool slack,
                        const double* dir = nullptr, double* dir_dot = nullptr) {
    const int n = work->n, l = work->l;
    double x_dot = 0.0, r_dot = 0.0;
    const double x_sum = differenceSquares(R, p_t, p_b, n, dir, &x_dot);
    const double r_sum = differenceSquares(R + n, p_t + n, p_b + n, l - n, dir != nullptr ? dir + n : nullptr, &r_dot);
    if (slack) computeReflectedSlack(p, p_b, p_t, work);
    if (dir != nullptr) *dir_dot = work->settings->rho_x * x_dot + r_dot;
    return std::sqrt(work->settings->rho_x * x_sum + r_sum);
}

// The point p, its projection step p_t and their reflection 2 p_t - p, all of them
// moved by `step` along (dir, dut) in one pass, then the reflection's cone projection
// into p_b: a trial of the line search.
int projectTrial(double* __restrict p, double* __restrict p_t, double* __restrict p_b, const double* __restrict u,
                 const double* __restrict u_t, double step, Work* work, const Cone* cone) {
    const double* __restrict dir = work->dir.get();
    const double* __restrict dut = work->dut.get();
    for (int j = 0; j < work->l; ++j) {
        p[j] = u[j] + dir[j] * step;  // combineVectors with the factors 1 and step, and 2 and -1
        p_t[j] = u_t[j] + dut[j] * step;
        p_b[j] = p_t[j] * 2.0 - p[j];
    }
    return projectReflection(p_b, work, cone);
}

}  // namespace

int projectConesv2(double* out, const double* a, const double* b, Work* work, const Cone* cone) {
    combineVectors(out, a, b, 2.0, -1.0, work->l);
    return projectReflection(out, work, cone);
}

void computeReflectedSlack(const double* p, const double* p_b, const double* p_t, Work* work) {
    const int n = work->n, l = work->l;
    double* __restrict s_b = work->s_b.get();
    for (int i = 0; i < work->m; ++i) {
        const int k = n + i;
        s_b[i] = p_b[k] - 2 * p_t[k] + p[k];
    }
    work->kappa_b = p_b[l - 1] - 2 * p_t[l - 1] + p[l - 1];
}

void differenceInto(double* out, const double* a, const double* b, int count) {
    for (int i = 0; i < count; ++i) out[i] = a[i] - b[i];
}

int runMarletIteration(Work* work, const Data* data, const Cone* cone, Solution* solution, Info* info) {
    Settings* s = work->settings;
    const int o = s->stream_override;
    const int n = work->n, m = work->m, l = work->l;
    const double sqrt_rho_x = std::sqrt(s->rho_x);
    double decay = s->sse;

    if (info != nullptr) {
        const int code = prepareProgressArrays(info, work);
        if (code < 0) {
            printTo(o, stderr, "Memory allocation error (progress arrays), code: %d\n", code);
            return KORVEX_FAILED;
        }
    }
    s->progress_capacity = s->max_iters;
    if (data == nullptr || cone == nullptr || solution == nullptr || info == nullptr || data->b == nullptr ||
        data->c == nullptr) {
        printTo(o, stderr, "ERROR: KORVEX_NULL input\n");
        return KORVEX_FAILED;
    }

    startInterruptListener();
    Timer timer;
    startTimer(&timer);
    Residuals residuals{};
    residuals.last_iter = -1;
    info->statusVal = KORVEX_RUNNING;
    startVectors(data, work, solution);
    if (s->verbose > 0) printHeader(work);

    double* u = work->u.get();
    double* u_t = work->u_t.get();
    double* u_b = work->u_b.get();
    double* R = work->R.get();
    double* dir = work->dir.get();
    const bool searching = s->ls > 0;
    auto fail = [&](const char* message) {
        return failSolve(work, m, n, solution, info, KORVEX_FAILED, message, "Failure", o);
    };

    // The first point: its projections, reflected slack and residual.
    if (projectLinSysv2(u_t, u, work, 0) < 0) return fail("error in projectLinSysv2");
    if (projectConesv2(u_b, u_t, u, work, cone) < 0) return fail("error in projectConesv2");
    work->fpr_norm = residualWithNorm(R, u, u_t, u_b, work, true);
    double blind_bound = work->fpr_norm;
    double safe_bound = work->fpr_norm;
    const double fpr_cap = std::min(1.0, work->fpr_norm);
    int step_kind = kPlainStep;
    bool searched = false;  // whether the last iteration ran a line search (wu, Rwu hold its last trial)

    int iter = 0;
    for (; iter < s->max_iters; ++iter) {
        int ls_count = 0;
        if (isInterrupted()) return failSolve(work, m, n, solution, info, KORVEX_SIGINT, "Interrupted", "Interrupted", o);

        computeResidualsMarlet(work, &residuals, iter);
        if (s->record_progress != 0) {
            info->progress_iteration[iter] = iter;
            info->progress_rel_gap[iter] = residuals.rel_gap;
            info->progress_res_pri[iter] = residuals.res_pri;
            info->progress_res_dual[iter] = residuals.res_dual;
            info->progress_primal_cost[iter] = residuals.c_dot_x / residuals.tau;
            info->progress_dual_cost[iter] = -(residuals.b_dot_y / residuals.tau);
            info->progress_fpr_norm[iter] = work->fpr_norm;
            info->progress_time_ms[iter] = readTimer(&timer);
        }
        info->statusVal = testStopping(work, &residuals, iter);
        if (info->statusVal != KORVEX_RUNNING) break;
        if (s->verbose != 0 && iter % 10 == 0) printProgressLine(work, iter, &residuals, &timer);

        // Direction, in the space where the x blocks carry sqrt(rho_x).
        if (searching || s->k0 == 1) {
            decay *= s->sse;  // sse^(iter + 2)
            if (iter == 0) {
                // No pair exists yet: dir = -R, formed in the scaled space like any other.
                scaleInto(dir, R, -sqrt_rho_x, n);
                scaleInto(dir + n, R + n, -1.0, l - n);
            } else {
                double* Sk = work->Sk.get();
                double* Yk = work->Yk.get();
                const double* R_prev = work->R_prev.get();  // stored with its x block scaled
                const double* residual_at = R;
                if (step_kind != kBlindStep && searched) {
                    // After a line search: the pair of its last trial point.
                    const double* wu = work->wu.get();
                    const double* u_prev = work->u_prev.get();
                    for (int i = 0; i < n; ++i) Sk[i] = sqrt_rho_x * wu[i] - sqrt_rho_x * u_prev[i];
                    for (int i = n; i < l; ++i) Sk[i] = wu[i] - u_prev[i];
                    residual_at = work->Rwu.get();
                } else {
                    // After a blind step, or with no line search: the pair of the accepted point.
                    differenceInto(Sk, u, work->u_prev.get(), l);
                    scaleVector(Sk, sqrt_rho_x, n);
                }
                for (int i = 0; i < n; ++i) Yk[i] = sqrt_rho_x * residual_at[i] - R_prev[i];
                for (int i = n; i < l; ++i) Yk[i] = residual_at[i] - R_prev[i];

                scaleVector(R, sqrt_rho_x, n);
                if (computeDirection(work, iter) < 0) return fail("error in computeDirection");
                scaleVector(R, 1 / sqrt_rho_x, n);
            }
            scaleVector(dir, 1 / sqrt_rho_x, n);
        }

        {
            double* u_prev = work->u_prev.get();
            double* R_prev = work->R_prev.get();
            for (int j = 0; j < n; ++j) {
                u_prev[j] = u[j];
                R_prev[j] = R[j] * sqrt_rho_x;
            }
            for (int j = n; j < l; ++j) {
                u_prev[j] = u[j];
                R_prev[j] = R[j];
            }
        }
        step_kind = kPlainStep;
        searched = false;

        bool educated = false;
        if (iter >= s->warm_start) {
            if (s->k0 == 1 && work->fpr_norm <= s->c_bl * blind_bound) {
                // Blind step: the full direction, trusted while the residual keeps falling.
                addVector(u, dir, l);
                blind_bound = work->fpr_norm;
                step_kind = kBlindStep;
                work->step_size = 1.0;
            } else if (searching) {
                // Line search: the projection step is linear, so one solve for the direction
                // gives the projection of every trial point.
                if (projectLinSysv2(work->dut.get(), dir, work, iter) < 0) return fail("error in projectLinSysv2");
                searched = true;
                work->step_size = 2.0;
                double* wu = work->wu.get();
                double* wu_t = work->wu_t.get();
                double* wu_b = work->wu_b.get();
                double* Rwu = work->Rwu.get();
                for (int j = 0; j < s->ls; ++j) {
                    work->step_size *= s->beta;
                    if (projectTrial(wu, wu_t, wu_b, u, u_t, work->step_size, work, cone) < 0) {
                        return fail("error in projectConesv2");
                    }
                    // <dir, Rwu>_M, which the safeguarded test needs, comes from the same pass.
                    double dir_dot = 0.0;
                    const double fpr_trial = residualWithNorm(Rwu, wu, wu_t, wu_b, work, false, dir, &dir_dot);

                    if (s->k1 != 0 && fpr_trial <= s->c1 * work->fpr_norm && work->fpr_norm <= safe_bound) {
                        // Educated step: the trial point is taken with its projections.
                        // These change places with the trial's buffers, which the next
                        // trial writes afresh; u and R are copies, since the next pair
                        // still reads wu and Rwu.
                        copyVector(u, wu, l);
                        std::swap(work->u_t, work->wu_t);
                        std::swap(work->u_b, work->wu_b);
                        u_t = work->u_t.get();
                        u_b = work->u_b.get();
                        copyVector(R, Rwu, l);
                        computeReflectedSlack(u, u_b, u_t, work);
                        work->fpr_norm = fpr_trial;
                        step_kind = kEducatedStep;
                        safe_bound = fpr_trial + fpr_cap * decay;
                        ls_count = j + 1;
                        educated = true;
                        break;
                    }
                    if (s->k2 != 0) {
                        // Safeguarded step: a step along -Rwu whose length comes from the
                        // decrease the trial promises.
                        const double gain = fpr_trial * fpr_trial - work->step_size * dir_dot;
                        if (gain >= s->sigma * work->fpr_norm * fpr_trial) {
                            addScaledVector(u, Rwu, l, -(s->alpha * gain / (fpr_trial * fpr_trial)));
                            step_kind = kSafeguardedStep;
                            ls_count = j + 1;
                            break;
                        }
                    }
                }
                if (step_kind == kPlainStep) ls_count = s->ls + 1;  // every trial failed
            }
        }
        if (step_kind == kPlainStep) addScaledVector(u, R, l, -s->alpha);

        if (!educated) {
            if (projectLinSysv2(u_t, u, work, iter) < 0) return fail("error in projectLinSysv2");
            if (projectConesv2(u_b, u_t, u, work, cone) < 0) return fail("error in projectConesv2");
            work->fpr_norm = residualWithNorm(R, u, u_t, u_b, work, true);
        }
        if (s->record_progress != 0) {
            info->progress_step_kind[iter] = step_kind;
            info->progress_ls_count[iter] = ls_count;
        }
    }

    computeResidualsMarlet(work, &residuals, iter);
    if (s->verbose != 0) printProgressLine(work, iter, &residuals, &timer);
    finishSolution(work, solution, info, &residuals, iter);
    if (info->statusVal == KORVEX_FAILED) return KORVEX_FAILED;  // no vectors to report on
    info->solveTime = readTimer(&timer);
    info->progress_count = iter;
    if (s->verbose != 0) printFooter(data, cone, solution, work, info);
    endInterruptListener();
    return info->statusVal;
}

}  // namespace korvex
