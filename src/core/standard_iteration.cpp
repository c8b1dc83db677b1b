// The standard splitting iteration with over-relaxation: the linear projection of u + v,
// the cone projection of the relaxed point, and the update of the dual iterate v.
#include <algorithm>
#include <utility>

#include "cones/cones.h"
#include "core/solver.h"
#include "linsys/linsys.h"
#include "reporting/print.h"
#include "core/report.h"
#include "reporting/threads.h"
#include "reporting/timing.h"

namespace korvex {

int projectCones(Work* work, const Cone* cone) {
    const int n = work->n, l = work->l;
    const double a = work->settings->alpha;
    double* u = work->u.get();
    const double* u_t = work->u_t.get();
    const double* u_prev = work->u_prev.get();
    const double* v = work->v.get();
    // The x block has no relaxation; the rest is relaxed by alpha. Fixed blocks side by
    // side, capturing by value (see forEachBlock).
    forEachBlock(FixedBlocks(l), [=](int lo, int hi, int) {
        const int mid = std::clamp(n, lo, hi);
        for (int i = lo; i < mid; ++i) u[i] = u_t[i] - v[i];
        for (int i = mid; i < hi; ++i) u[i] = a * u_t[i] + (1 - a) * u_prev[i] - v[i];
    });
    const int result = projectToDualCone(u + n, cone, work->cone_work);
    if (u[l - 1] < 0.0) u[l - 1] = 0.0;
    return result;
}

void updateDualVariables(Work* work) {
    const double a = work->settings->alpha;
    double* v = work->v.get();
    const double* u = work->u.get();
    const double* u_t = work->u_t.get();
    const double* u_prev = work->u_prev.get();
    // v takes what the cone projection removed from the relaxed point.
    for (int i = work->n; i < work->l; ++i) v[i] = v[i] + u[i] - a * u_t[i] - (1 - a) * u_prev[i];
}

int standardIterationStep(Work* work, const Cone* cone, Residuals* residuals, int iter) {
    if (projectLinSys(work, iter) < 0) return -1;
    // u_prev takes u by an exchange of the two buffers rather than a copy: projectCones
    // writes every entry of the new u.
    std::swap(work->u, work->u_prev);
    if (projectCones(work, cone) < 0) return -2;
    // The update of v rides on the residuals' pass over the rows.
    updateDualAndResiduals(work, residuals, iter);
    return 0;
}

int runStandardIteration(Work* work, const Data* data, const Cone* cone, Solution* solution, Info* info) {
    if (data == nullptr || cone == nullptr || solution == nullptr || info == nullptr || data->b == nullptr ||
        data->c == nullptr) {
        printTo(work->settings->stream_override, stderr, "ERROR: KORVEX_NULL input\n");
        return KORVEX_FAILED;
    }
    const Settings* s = work->settings;
    const int o = s->stream_override;
    const int m = work->m, n = work->n;

    startInterruptListener();
    Timer timer;
    startTimer(&timer);
    info->statusVal = KORVEX_RUNNING;
    Residuals residuals{};
    residuals.last_iter = -1;
    startVectors(data, work, solution);
    if (s->verbose != 0) printHeader(work);

    int iter = 0;
    for (; iter < s->max_iters; ++iter) {
        const int step = standardIterationStep(work, cone, &residuals, iter);
        if (step == -1) {
            return failSolve(work, m, n, solution, info, KORVEX_FAILED, "error in projectLinSys", "Failure", o);
        }
        if (step == -2) {
            return failSolve(work, m, n, solution, info, KORVEX_FAILED, "error in projectCones", "Failure", o);
        }
        if (isInterrupted()) {
            return failSolve(work, m, n, solution, info, KORVEX_SIGINT, "Interrupted", "Interrupted", o);
        }
        info->statusVal = testStopping(work, &residuals, iter);
        if (info->statusVal != KORVEX_RUNNING) break;
        if (s->verbose != 0 && iter % 10 == 0) printProgressLine(work, iter, &residuals, &timer);
    }
    // The last line: after the limit, iter is max_iters and the residuals are computed
    // anew for the last iterate; after a passed test this changes nothing.
    if (s->verbose != 0) {
        computeResidualsStandard(work, &residuals, iter);
        printProgressLine(work, iter, &residuals, &timer);
    }
    finishSolution(work, solution, info, &residuals, iter);
    if (info->statusVal == KORVEX_FAILED) return KORVEX_FAILED;  // no vectors to report on
    info->solveTime = readTimer(&timer);
    if (s->verbose != 0) printFooter(data, cone, solution, work, info);
    endInterruptListener();
    return info->statusVal;
}

}  // namespace korvex
