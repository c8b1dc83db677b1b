// Search directions of the Marlet iteration. The default kind is a limited-memory,
// restarted Broyden scheme on the inverse Jacobian of the fixed-point residual R: the
// direction is d = -(I + u_k s_k') ... (I + u_1 s_1') R, with one rank-one factor per
// stored pair, never formed as a matrix; a new pair is added at each call, and all pairs
// are forgotten at once when the cache is full.
//
// The caller has scaled the x blocks of R, Sk and Yk by sqrt(rho_x), so that the plain
// Euclidean inner product here is the weighted one of the iteration.
#pragma once

#include "reporting/allocation.h"

namespace korvex {

struct Work;

// The pairs of the restarted Broyden kind. Rows are contiguous, row i at i * l.
struct YSCache {
    OwnedArray<double> S;  // (mem + 1) x l: steps of the stored pairs; row mem_cursor is scratch
    OwnedArray<double> U;  // (mem + 1) x l: update vectors of the stored pairs
    int mem_cursor;        // pairs stored, 0 .. mem - 1 between calls
    int mem;               // capacity
};

// A new cache for vectors of l entries holding up to memory pairs, or null when an
// allocation fails.
YSCache* initYSCache(int l, int memory);

// Forgets every pair (the arrays keep their contents); returns 100.
int resetYSCache(YSCache* cache);

// Releases the cache and its arrays; null does nothing.
void freeYSCache(YSCache* cache);

// The full Broyden kind's process-wide scratch of l doubles, null until its first use;
// it lives until the process ends.
extern double* HY;

// Writes work->dir for the direction kind of settings->dir, from R, Sk and Yk; iteration
// is 1 or more. Returns 100 or 101 (restarted Broyden), 0 (residual, full Broyden), or a
// negative value on failure (always for kind 101).
int computeDirection(Work* work, int iteration);

// dir = -H R with the pair (Sk, Yk) added to the cache first. Returns 101 when the cache
// still has room, 100 when the new pair filled it and the cache was reset.
int computeRestartedBroyden(Work* work);

// Makes HY on first use and, with broyden_init_scale at iteration 1, sets the diagonal of
// H to <Yk, Sk> / |Yk|. Writes no direction. Returns 0.
int computeFullBroyden(Work* work, int iteration);

}  // namespace korvex
