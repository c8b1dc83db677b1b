#include "core/validation.h"

#include <cmath>

#include "cones/cones.h"
#include "reporting/print.h"

namespace korvex {

namespace {

// Index of the first entry of v that is not a finite number, or -1.
long firstNonFinite(const double* v, long count) {
    for (long k = 0; k < count; ++k) {
        if (!std::isfinite(v[k])) return k;
    }
    return -1;
}

// Beyond the structural checks: A must have the problem's dimensions, and A, b and c
// must hold finite numbers, since one NaN or infinity spreads through the equilibration
// and the factors into every iterate. Prints one message and returns -1 on refusal.
int checkProblemData(const Data* data) {
    const SparseMatrix* A = data->A;
    if (A->m != data->m || A->n != data->n) {
        printPlain("ERROR: A is %li by %li, but m = %li and n = %li\n", static_cast<long>(A->m),
                   static_cast<long>(A->n), static_cast<long>(data->m), static_cast<long>(data->n));
        return -1;
    }
    if (data->b == nullptr || data->c == nullptr) {
        printPlain("ERROR: b or c missing\n");
        return -1;
    }
    const struct {
        const char* name;
        const double* values;
        long count;
    } vectors[] = {{"A->x", A->x, A->p[A->n]}, {"b", data->b, data->m}, {"c", data->c, data->n}};
    for (const auto& vector : vectors) {
        long bad = firstNonFinite(vector.values, vector.count);
        if (bad >= 0) {
            printPlain("ERROR: %s[%li] = %g is not a finite number\n", vector.name, bad, vector.values[bad]);
            return -1;
        }
    }
    return 0;
}

}  // namespace

int validateMatrix(const SparseMatrix* A) {
    if (A == nullptr || A->x == nullptr || A->i == nullptr || A->p == nullptr) {
        printPlain("data incompletely specified\n");
        return -1;
    }
    if (A->p[0] != 0) {
        printPlain("ERROR: A->p[0] = %li, the first column must start at 0\n", static_cast<long>(A->p[0]));
        return -1;
    }
    for (int j = 0; j < A->n; ++j) {
        if (A->p[j] == A->p[j + 1]) {
            printPlain("WARN: A->p (column pointers) not strictly increasing, column %li empty\n", static_cast<long>(j));
        } else if (A->p[j] > A->p[j + 1]) {
            printPlain("ERROR: A->p (column pointers) decreasing\n");
            return -1;
        }
    }
    const int Anz = A->p[A->n];
    if (static_cast<double>(Anz) / A->m > A->n || Anz <= 0) {
        printPlain("Anz (nonzeros in A) = %li, outside of valid range\n", static_cast<long>(Anz));
        return -1;
    }
    int largest_row = 0;
    int smallest_row = 0;
    for (int k = 0; k < Anz; ++k) {
        if (A->i[k] > largest_row) largest_row = A->i[k];
        if (A->i[k] < smallest_row) smallest_row = A->i[k];
    }
    if (largest_row > A->m - 1) {
        printPlain("number of rows in A inconsistent with input dimension\n");
        return -1;
    }
    if (smallest_row < 0) {
        printPlain("ERROR: A->i (row indices) negative\n");
        return -1;
    }
    return 0;
}

int validateProblem(const Data* data, const Cone* cone) {
    const Settings* s = data->settings;
    const int override = s->stream_override;
    std::FILE* err = stderr;

    if (data->m <= 0 || data->n <= 0) {
        printTo(override, err, "m and n must both be greater than 0; m = %li, n = %li\n", static_cast<long>(data->m),
                static_cast<long>(data->n));
        return -1;
    }
    if (data->m < data->n) printTo(override, err, "WARN: m less than n, problem likely degenerate\n");
    if (validateMatrix(data->A) < 0 || checkProblemData(data) < 0) {
        printTo(override, err, "invalid linear system input data\n");
        return -4;
    }
    if (checkConeRecord(data, cone) < 0) {
        printTo(override, err, "cone validation error\n");
        return -4;
    }
    // Each test refuses only on a true comparison, so that a NaN option passes.
    if (s->max_iters <= 0) {
        printTo(override, err, "max_iters must be positive (max_iters=%ld)\n", static_cast<long>(s->max_iters));
        return -4;
    }
    if (s->eps <= 0) {
        printTo(override, err, "eps tolerance must be positive (eps=%g)\n", s->eps);
        return -4;
    }
    if (s->alpha <= 0 || s->alpha >= 2) {
        printTo(override, err, "alpha must be in (0,2) (alpha=%g)\n", s->alpha);
        return -4;
    }
    if (s->rho_x <= 0) {
        printTo(override, err, "rho_x must be positive (1e-3 works well) (rho_x=%g).\n", s->rho_x);
        return -4;
    }
    if (s->scale <= 0) {
        printTo(override, err, "Parameter `scale` must be positive (1 works well).\n");
        return -4;
    }
    if (s->do_super_korvex != 0 && s->do_super_korvex != 1) {
        printTo(override, err, "do_super_korvex (=%d) can be either 0 or 1.\n", s->do_super_korvex);
        return -4;
    }
    if (s->do_super_korvex == 0) return 0;  // the rest concerns the Marlet iteration alone

    if (s->thetabar < 0 || s->thetabar > 1) {
        printTo(override, err, "Parameters `thetabar` must be a scalar between 0 and 1 (thetabar=%g)\n", s->thetabar);
        return -4;
    }
    if ((s->dir == KORVEX_DIR_RESTARTED_BROYDEN || s->dir == KORVEX_DIR_RESTARTED_BROYDEN_V2) && s->memory < 2) {
        printTo(override, err,
                "Quasi-Newton memory length (mem=%ld) is too low; choose an integer at least equal to 2.\n",
                static_cast<long>(s->memory));
        return -4;
    }
    if (s->beta <= 0 || s->beta >= 1) {
        printTo(override, err, "Stepsize reduction factor (beta=%g) out of bounds.\n", s->beta);
        return -4;
    }
    if (s->ls < 0) {
        printTo(override, err, "Illegal maximum number of line search iterations (ls=%ld).\n", static_cast<long>(s->ls));
        return -4;
    }
    if (s->ls >= 40) {
        printTo(override, err,
                "WARNING! The value ls=%ld is too high. The maximum allowed number of line search iteration is 40. "
                "We recommend a value about 10.\n",
                static_cast<long>(s->ls));
        return -4;
    }
    if (s->ls > 10) {
        printTo(override, err,
                "WARNING! The value ls=%ld is too high. We highly recommendthe maximum number of line search "
                "iterations to be at most 10.\n",
                static_cast<long>(s->ls));
    }
    if (s->sigma < 0) {
        printTo(override, err, "Parameter sigma of the line search (sigma=%g) cannot be negative.\n", s->sigma);
        return -4;
    }
    if (s->c_bl < 0 || s->c_bl >= 1) {
        printTo(override, err, "Parameter (c_0=%g) for blind updates out of bounds.\n", s->c_bl);
        return -4;
    }
    if (s->c1 < 0 || s->c1 >= 1) {
        printTo(override, err, "Parameter (c1=%g) for step K1 out of bounds.\n", s->c1);
        return -4;
    }
    if (s->sse < 0 || s->sse >= 1) {
        printTo(override, err, "Parameter (sse=%g) for step K1 out of bounds.\n", s->sse);
        return -4;
    }
    const struct {
        const char* name;
        int value;
    } switches[] = {{"k0", s->k0}, {"k1", s->k1}, {"k2", s->k2}};
    for (const auto& flag : switches) {
        if (flag.value != 0 && flag.value != 1) {
            printTo(override, err, "Parameter (%s=%d) can be eiter 0 (%s: off) or 1 (%s: on).\n", flag.name, flag.value,
                    flag.name, flag.name);
            return -4;
        }
    }
    if (directionName(s->dir) == nullptr) {
        printTo(override, err, "Invalid direction (%ld).\n", static_cast<long>(s->dir));
        return -4;
    }
    return 0;
}

}  // namespace korvex
