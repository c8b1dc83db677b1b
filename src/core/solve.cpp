// The solve entry: validation, the set-up of the Work record, the choice of the
// iteration, and the release of everything the solve made.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "cones/cones.h"
#include "core/solver.h"
#include "directions/directions.h"
#include "linsys/linsys.h"
#include "reporting/print.h"
#include "core/report.h"
#include "reporting/threads.h"
#include "reporting/timing.h"
#include "core/validation.h"

// OpenBLAS's own count of threads (the library is linked with OpenBLAS).
extern "C" {
int openblas_get_num_threads(void);
void openblas_set_num_threads(int num_threads);
}

namespace korvex {

namespace {

// While a solve shares its work among threads of its own, OpenBLAS runs on one. Its threads
// would otherwise take the same cores, and poll between its calls: on two cores a grid's
// iteration took three times as long. The caller's setting comes back when the solve ends.
class OneBlasThread {
public:
    OneBlasThread() : previous_(threadCount() > 1 ? openblas_get_num_threads() : 1) {
        if (previous_ > 1) openblas_set_num_threads(1);
    }
    ~OneBlasThread() {
        if (previous_ > 1) openblas_set_num_threads(previous_);
    }
    OneBlasThread(const OneBlasThread&) = delete;
    OneBlasThread& operator=(const OneBlasThread&) = delete;

private:
    int previous_;
};

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr int kRuleLength = 85;

void printDashes(int stream_override, std::FILE* stream) {
    char rule[kRuleLength + 1];
    std::memset(rule, '-', kRuleLength);
    rule[kRuleLength] = '\0';
    printTo(stream_override, stream, "%s", rule);
}

// The banner and the problem lines of a solve.
void printBanner(const Data* data, const Cone* cone) {
    const Settings* s = data->settings;
    const int o = s->stream_override;
    std::FILE* out = s->output_stream;
    char* cone_text = coneSummaryText(cone);
    char* method_text = linSysMethodText(data->A);
    printDashes(o, out);
    printTo(o, out, "\n\tKorvex v%s - Tessel Conic Solver\n", versionText());
    printTo(o, out, "\tOperator splitting on the homogeneous self-dual embedding, by the Korvex developers\n");
    printDashes(o, out);
    printTo(o, out, "\n");
    if (method_text != nullptr) printTo(o, out, "Lin-sys: %s\n", method_text);
    if (s->normalize != 0) {
        printTo(o, out, "eps = %.2e, alpha = %.2f, max_iters = %i, normalize = %i, scale = %2.2f\n", s->eps, s->alpha,
                s->max_iters, s->normalize, s->scale);
    } else {
        printTo(o, out, "eps = %.2e, alpha = %.2f, max_iters = %i, normalize = %i\n", s->eps, s->alpha, s->max_iters,
                0);
    }
    printTo(o, out, "Variables n = %i, constraints m = %i\n", data->n, data->m);
    if (cone_text != nullptr) printTo(o, out, "%s", cone_text);
    releaseMemory(cone_text);
    releaseMemory(method_text);
}

// Allocates count doubles into array (zero-filled); on failure prints
// "ERROR: `name` memory allocation failure" and returns false.
bool allocateVector(OwnedArray<double>& array, std::int64_t count, const char* name, int stream_override) {
    if (array.allocate(count, true)) return true;
    printTo(stream_override, stderr, "ERROR: `%s` memory allocation failure\n", name);
    return false;
}

// "Memory: ..." in bytes, kB, MB or GB, by strict comparison with 1000, 1e6 and 1e9.
void printMemoryLine(const Settings* s, std::int64_t bytes) {
    const double B = static_cast<double>(bytes);
    if (B > 1e9) {
        printTo(s->stream_override, s->output_stream, "Memory: %4.2fGB\n", B / 1e9);
    } else if (B > 1e6) {
        printTo(s->stream_override, s->output_stream, "Memory: %3.2fMB\n", B / 1e6);
    } else if (B > 1000) {
        printTo(s->stream_override, s->output_stream, "Memory: %3.2fkB\n", B / 1000);
    } else {
        printTo(s->stream_override, s->output_stream, "Memory: %ld bytes\n", static_cast<long>(bytes));
    }
}

}  // namespace

int failSolve(const Work* /*work*/, int m, int n, Solution* solution, Info* info, int status_value,
              const char* message, const char* status_text, int stream_override) {
    if (info != nullptr) {
        info->iter = -1;
        info->statusVal = status_value;
        setStatusText(info, status_text);
        info->pobj = info->dobj = info->resPri = info->resDual = info->relGap = kNaN;
        info->solveTime = kNaN;
    }
    if (solution != nullptr) {
        // Vectors that cannot be allocated stay null: the caller sees them missing.
        if (n > 0) {
            if (solution->x == nullptr) solution->x = allocateArray<double>(n);
            if (solution->x != nullptr) std::fill(solution->x, solution->x + n, kNaN);
        }
        if (m > 0) {
            if (solution->y == nullptr) solution->y = allocateArray<double>(m);
            if (solution->s == nullptr) solution->s = allocateArray<double>(m);
            if (solution->y != nullptr) std::fill(solution->y, solution->y + m, kNaN);
            if (solution->s != nullptr) std::fill(solution->s, solution->s + m, kNaN);
        }
    }
    printTo(stream_override, stderr, "Failure:%s\n", message);
    endInterruptListener();
    return status_value;
}

std::int64_t estimateMemory(const Work* work, const Cone* cone, const Data* data, Info* info) {
    const Settings* s = work->settings;
    const std::int64_t l = work->l, m = work->m, n = work->n;
    const std::int64_t nnz = data->A->p[data->n];
    std::int64_t S = 0;
    if (cone->sd_blks > 0 && cone->sd_sizes != nullptr) {
        for (int k = 0; k < cone->sd_blks; ++k) S = std::max<std::int64_t>(S, cone->sd_sizes[k]);
    }
    const ConeWork* cw = work->cone_work;
    const std::int64_t W = (2 * S + 1) * S + 2 * (5 * l + 3 * m + nnz) + cw->eig_work_len + 9 * n +
                           cone->power_triples + cone->soc_blks + nnz + cone->sd_blks;
    std::int64_t bytes = 4 * (2 * W + cw->eig_iwork_len + 2 + m + n);
    if (s->ls > 0) bytes += 32 * l;
    if ((s->dir == KORVEX_DIR_RESTARTED_BROYDEN || s->dir == KORVEX_DIR_RESTARTED_BROYDEN_V2) && s->memory > 0) {
        bytes += 16 * (static_cast<std::int64_t>(s->memory) + 1) * l;
    }
    if (s->normalize != 0) bytes += 8 * (m + n);
    info->memory_bytes = static_cast<std::int32_t>(std::min<std::int64_t>(bytes, INT32_MAX));
    return bytes;
}

Work* initWork(const Data* data, const Cone* cone) {
    Settings* s = data->settings;
    const int o = s->stream_override;
    // A set-up that gives up half-way releases what it made through freeWork.
    struct WorkRelease {
        void operator()(Work* w) const noexcept { freeWork(w); }
    };
    std::unique_ptr<Work, WorkRelease> work(createRecord<Work>());
    if (s->verbose != 0) printBanner(data, cone);
    if (!work) {
        printTo(o, stderr, "ERROR: allocating work failure\n");
        return nullptr;
    }
    Work* w = work.get();
    w->settings = s;
    w->m = data->m;
    w->n = data->n;
    w->l = data->n + data->m + 1;
    const std::int64_t l = w->l;

    if (!allocateVector(w->u, l, "u", o) || !allocateVector(w->u_b, l, "u_b", o)) return nullptr;
    if (s->do_super_korvex == 0 && !allocateVector(w->v, l, "v", o)) return nullptr;
    if (!allocateVector(w->u_t, l, "u_t", o) || !allocateVector(w->u_prev, l, "u_prev", o) ||
        !allocateVector(w->h, l - 1, "h", o) || !allocateVector(w->g, l - 1, "g", o) ||
        !allocateVector(w->pr, w->m, "pr", o) || !allocateVector(w->dr, w->n, "dr", o) ||
        !allocateVector(w->b, w->m, "b", o) || !allocateVector(w->c, w->n, "c", o)) {
        return nullptr;
    }

    if (s->do_super_korvex == 1) {
        if (!allocateVector(w->R, l, "R", o) || !allocateVector(w->R_prev, l, "R_prev", o) ||
            !allocateVector(w->dir, l, "dir", o) || !allocateVector(w->dut, l, "dut", o) ||
            !allocateVector(w->s_b, w->m, "s_b", o)) {
            return nullptr;
        }
        w->step_size = 1.0;
        if ((s->dir == KORVEX_DIR_RESTARTED_BROYDEN || s->dir == KORVEX_DIR_RESTARTED_BROYDEN_V2) && s->memory > 0) {
            w->su_cache = initYSCache(w->l, s->memory);
            if (w->su_cache == nullptr) {
                printTo(o, stderr, "ERROR: allocating YSCache failure\n");
                printTo(o, stderr, "ERROR: `su_cache` memory allocation failure\n");
                return nullptr;
            }
        }
        if (s->dir == KORVEX_DIR_FULL_BROYDEN) {
            if (!allocateVector(w->H, l * l, "H", o)) return nullptr;
            for (std::int64_t i = 0; i < l; ++i) w->H[i * (l + 1)] = 1.0;
        }
        if (!allocateVector(w->Sk, l, "Sk", o) || !allocateVector(w->Yk, l, "Yk", o)) return nullptr;
        if (s->ls > 0 && (!allocateVector(w->wu, l, "wu", o) || !allocateVector(w->Rwu, l, "Rwu", o) ||
                          !allocateVector(w->wu_t, l, "wu_t", o) || !allocateVector(w->wu_b, l, "wu_b", o))) {
            return nullptr;
        }
    }

    // The iterations work on the equilibrated copy when normalize is set; the caller's
    // matrix is never written.
    if (s->normalize != 0) {
        w->A = copyMatrix(data->A);
        if (w->A == nullptr) {
            printTo(o, stderr, "ERROR: copy A matrix failed\n");
            return nullptr;
        }
        w->scaling = createRecord<Scaling>();
        if (w->scaling == nullptr || normalizeMatrix(w->A, s, cone, w->scaling) != 0) {
            printTo(o, stderr, "ERROR: normalizing A failed\n");
            return nullptr;
        }
    } else {
        w->A = data->A;
    }

    w->cone_work = initCone(cone);
    if (w->cone_work == nullptr) {
        printTo(o, stderr, "ERROR: initCone failure\n");
        return nullptr;
    }
    w->lin_sys = initPriv(w->A, s);
    if (w->lin_sys == nullptr) {
        printTo(o, stderr, "ERROR: initPriv failure\n");
        return nullptr;
    }
    return work.release();
}

void freeWork(Work* work) {
    if (work == nullptr) return;
    freeConeWork(work->cone_work);
    if (work->settings != nullptr && work->settings->normalize != 0) freeMatrix(work->A);
    releasePriv(work->lin_sys);
    destroyRecord(work->scaling);
    freeYSCache(work->su_cache);
    destroyRecord(work);
}

}  // namespace korvex

using namespace korvex;

int solveConeProgram(const Data* data, const Cone* cone, Solution* solution, Info* info) noexcept {
    const OneBlasThread one_blas_thread;
    startInterruptListener();
    Settings* s = data != nullptr ? data->settings : nullptr;
    const int o = s != nullptr ? s->stream_override : 0;
    const int m = data != nullptr ? data->m : 0;
    const int n = data != nullptr ? data->n : 0;

    Work* work = nullptr;
    if (data == nullptr || cone == nullptr || info == nullptr || s == nullptr) {
        // Without Settings there is nothing to print through but the defaults.
        printTo(o, stderr, "ERROR: Missing Data, Cone or Info input\n");
    } else if (solution == nullptr) {
        // Nowhere to put x, y and s: refused before any work, like a missing record.
        printTo(o, stderr, "ERROR: Missing Solution input\n");
    } else if (validateProblem(data, cone) < 0) {
        printTo(o, stderr, "ERROR: Validation returned failure\n");
    } else {
        Timer setup;
        startTimer(&setup);
        work = initWork(data, cone);
        info->setupTime = readTimer(&setup);
        if (s->verbose != 0) printTo(o, s->output_stream, "Setup time: %1.2es\n", info->setupTime / 1000.0);
        endInterruptListener();
    }
    if (s != nullptr && s->verbose >= 2) printSettingsDump(s);
    if (work == nullptr) {
        const int status = failSolve(nullptr, m, n, solution, info, KORVEX_FAILED, "could not initialize work",
                                     "Failure", o);
        return info != nullptr ? info->statusVal : status;
    }

    if (s->do_super_korvex != 0) {
        if (s->verbose > 0) {
            printTo(o, s->output_stream, "Running SuperKorvex...\n");
            printMemoryLine(s, estimateMemory(work, cone, data, info));
        }
        runMarletIteration(work, data, cone, solution, info);
    } else {
        if (s->verbose > 0) printTo(o, s->output_stream, "Running Standard KORVEX...\n");
        runStandardIteration(work, data, cone, solution, info);
    }
    const int status = info->statusVal;
    freeWork(work);
    return status;
}

void korvexFreeSolution(Solution* solution) noexcept {
    if (solution == nullptr) return;
    releaseMemory(solution->x);
    releaseMemory(solution->y);
    releaseMemory(solution->s);
    *solution = Solution{};
}
