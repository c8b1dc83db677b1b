// The cone subsystem: operations on the Cone record (its size and checks, the list of row
// blocks that the equilibration keeps together, the texts the solver prints about cones) and
// the workspace of the projections.
#pragma once

#include <cstdint>

#include "core/records.h"
#include "reporting/allocation.h"

// Scratch of the cone projections of one solve. The five arrays exist only when some
// semidefinite block has side 3 or more (sides 1 and 2 have closed forms); they are
// sized for the largest side N and shared by all blocks.
struct ConeWork {
    OwnedArray<double> sd_matrix;   // N x N scratch matrix, zero-filled
    OwnedArray<double> sd_vectors;  // N x N eigenvectors, zero-filled
    OwnedArray<double> sd_values;   // N eigenvalues, zero-filled
    OwnedArray<double> eig_work;    // dsyevr real workspace, eig_work_len entries
    OwnedArray<int> eig_iwork;      // dsyevr integer workspace, eig_iwork_len entries
    int eig_work_len;               // from the workspace query
    int eig_iwork_len;              // from the workspace query
    double projection_time_ms;      // time in the projection driver since the last timing line
};

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

// A new text "\tCones: avg projection time: %1.2es\n" with the seconds per iteration of
// the projections (info->iter + 1 iterations); resets projection_time_ms. Null on
// allocation failure.
char* coneTimingLine(const Info* info, ConeWork* coneWork);

// A new workspace for cone, or null on failure. Makes the dsyevr workspace query when a
// semidefinite block has side 3 or more.
ConeWork* initCone(const Cone* cone);

// Releases the workspace and its arrays; null does nothing.
void freeConeWork(ConeWork* coneWork);
