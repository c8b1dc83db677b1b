// Checks of a problem before any work is allocated: dimensions, the matrix, the cone
// and the options, in one fixed order, stopping at the first refusal. Each refusal
// prints one message; warnings print and let the solve go on. A NaN option passes every
// test, since each refuses only on a true comparison against its limit.
#pragma once

#include "records/records.h"

namespace korvex {

// 0 when the solve may go on, negative otherwise (-1 for the dimensions, -4 for the
// rest). data and cone are non-null. Messages go through printTo with the error stream.
int validateProblem(const Data* data, const Cone* cone);

// 0 for a usable compressed-column matrix, -1 otherwise; messages through printPlain.
// Empty columns only warn.
int validateMatrix(const SparseMatrix* A);

}  // namespace korvex
