#include "core/validation.h"

#include <algorithm>

#include "cones/cones.h"
#include "reporting/print.h"

namespace korvex {

namespace {

// Beyond the checks of validateMatrix: A must have the problem's own dimensions. The
// copy, the equilibration and the factorisation go by A->m and A->n, every vector of the
// solve by m and n, so that any difference reads or writes beyond one of them. Neither
// the values of A, b and c nor b and c themselves are looked at here: a NaN or an
// infinity goes into the solve, and the iterations refuse a missing b or c. Prints one
// message and returns -1 on refusal.
int checkMatrixDimensions(const Data* data) {
    const SparseMatrix* A = data->A;
    if (A->m == data->m && A->n == data->n) return 0;
    printPlain("ERROR: A is %li by %li, but m = %li and n = %li\n", static_cast<long>(A->m), static_cast<long>(A->n),
               static_cast<long>(data->m), static_cast<long>(data->n));
    return -1;
}

// Whether value lies beyond a lower or an upper limit. Only a true comparison refuses,
// so that a NaN is beyond no limit.
bool beyondLower(SettingLimit limit, double value) { return limit.open ? value <= limit.value : value < limit.value; }
bool beyondUpper(SettingLimit limit, double value) { return limit.open ? value >= limit.value : value > limit.value; }

// Prints format on the error stream, with the option's value as the table shows it.
void printAboutOption(const Settings* s, const SettingDescriptor& option, const char* format) {
    const int o = s->stream_override;
    switch (option.shown) {
        case ShownValue::kNone: printTo(o, stderr, "%s", format); break;
        case ShownValue::kInt: printTo(o, stderr, format, s->*option.int_field); break;
        case ShownValue::kLong: printTo(o, stderr, format, static_cast<long>(s->*option.int_field)); break;
        case ShownValue::kReal: printTo(o, stderr, format, s->*option.double_field); break;
    }
}

// The check of one option from its row of the settings table: -1 after printing its
// refusal, else 0, after printing its warning if the value calls for one.
int checkOption(const Settings* s, const SettingDescriptor& option) {
    if (option.marlet_only && s->do_super_korvex == 0) return 0;
    if (option.applies != nullptr && !option.applies(*s)) return 0;
    const double value = option.int_field != nullptr ? s->*option.int_field : s->*option.double_field;
    if (beyondLower(option.low, value) || (option.accepts != nullptr && !option.accepts(s->*option.int_field))) {
        printAboutOption(s, option, option.refusal);
        return -1;
    }
    if (beyondUpper(option.high, value)) {
        printAboutOption(s, option, option.high_refusal != nullptr ? option.high_refusal : option.refusal);
        return -1;
    }
    if (beyondUpper(option.warn_above, value)) printAboutOption(s, option, option.warning);
    return 0;
}

}  // namespace

int validateMatrix(const SparseMatrix* A) {
    if (A == nullptr || A->x == nullptr || A->i == nullptr || A->p == nullptr) {
        printPlain("data incompletely specified\n");
        return -1;
    }
    // The columns are walked from p[0], but the copy and the assembly of the linear system
    // count p[n] entries from 0: any other start reads or hands on entries outside them.
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
    // A negative row would index before the start of every vector of m entries.
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
    if (validateMatrix(data->A) < 0 || checkMatrixDimensions(data) < 0) {
        printTo(override, err, "invalid linear system input data\n");
        return -4;
    }
    if (checkConeRecord(data, cone) < 0) {
        printTo(override, err, "cone validation error\n");
        return -4;
    }
    // The options, in the order of their ranks 1, 2, ...; the first refusal ends the validation.
    for (int rank = 1;; ++rank) {
        const SettingDescriptor* option = std::find_if(kSettingDescriptors, kSettingDescriptors + kSettingDescriptorCount,
                                                       [rank](const SettingDescriptor& row) { return row.check_rank == rank; });
        if (option == kSettingDescriptors + kSettingDescriptorCount) break;
        if (checkOption(s, *option) < 0) return -4;
    }
    return 0;
}

}  // namespace korvex
