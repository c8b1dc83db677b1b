// Plain operations on the Cone record: its size and checks, the list of row blocks that
// the equilibration keeps together, and the text the solver prints about cones. They need
// no workspace, so every subsystem may use them.
#pragma once

#include "records/records.h"

namespace korvex {

// Rows described by cone: free + linear + soc sizes + n(n+1)/2 per sd side + 3 per
// exponential, dual exponential and power triple. Lists with a null array or a negative
// count add nothing. Saturates at INT32_MAX.
int coneTotalSize(const Cone* cone);

// 0 for a valid record; otherwise prints one message with printPlain and returns -1.
// Only data->m is read.
int checkConeRecord(const Data* data, const Cone* cone);

// Allocates the list of row-block lengths into *lengths and returns its count:
// free + linear first, then every soc size, n(n+1)/2 per sd side, and 3 per
// exponential, dual exponential and power triple. The caller releases the list with
// releaseMemory. On allocation failure *lengths is null and the result -1.
int coneBlockLengths(const Cone* cone, int** lengths);

// A new text "Cones:" followed by one tab-led line per cone family present; the caller
// prints it with "%s" and releases it with releaseMemory. Null on allocation failure.
char* coneSummaryText(const Cone* cone);

}  // namespace korvex
