// The solver core: the solve entry and the life of its Work record, the standard
// splitting iteration, and the residuals, stopping test and final status shared by both
// iterations.
#pragma once

#include <cstdint>
#include <cstdio>

#include "records/records.h"
#include "records/work.h"

// The solve entry, solveConeProgram, is declared with the other public C functions in
// korvex/korvex.h (through records.h), beside korvexFreeSolution and korvexFreeProgress,
// which release the vectors and the progress arrays that a solve allocated.

namespace korvex {

// ---- Work life cycle ---------------------------------------------------------------

// A new Work for the problem (prints the banner when verbose), or null after printing
// what failed; nothing of a failed set-up outlives the call.
Work* initWork(const Data* data, const Cone* cone);

// Releases the work record with everything it owns: the cone workspace, the normalised
// copy of A, the factorisation, the scaling, the direction cache and every array. Null
// does nothing.
void freeWork(Work* work);

// Sets info->memory_bytes to the estimate of the memory of this solve (saturated at the
// largest 32-bit value) and returns the estimate itself in 64 bits.
std::int64_t estimateMemory(const Work* work, const Cone* cone, const Data* data, Info* info);

// Records a failure: info gets iter -1, the status, and NaN for the objectives, the
// primal and dual residuals, the gap and the solve time; solution gets vectors of NaN
// (allocated where null). Prints "Failure:<message>" on the error stream, ends the
// interrupt listener and returns status_value. work may be null and is not read.
int failSolve(const Work* work, int m, int n, Solution* solution, Info* info, int status_value, const char* message,
              const char* status_text, int stream_override);

// ---- Standard splitting iteration ---------------------------------------------------

// Alternates the projection step and the cone projection on u and v with
// over-relaxation alpha, until the stopping test passes or max_iters is reached.
int runStandardIteration(Work* work, const Data* data, const Cone* cone, Solution* solution, Info* info);

// u = (u_t - v) on the x block, alpha u_t + (1 - alpha) u_prev - v on the rest; then the
// y block goes to the dual cone and tau is clamped at 0. Result of the cone projection.
int projectCones(Work* work, const Cone* cone);

// v += u - alpha u_t - (1 - alpha) u_prev on entries n .. l-1.
void updateDualVariables(Work* work);

// One iteration of runStandardIteration up to its residuals (u_prev = u, the projection
// step, the cone projection, the update of v and the residuals): 0, or -1 when the
// projection step failed and -2 when the cone projection did.
int standardIterationStep(Work* work, const Cone* cone, Residuals* residuals, int iter);

// ---- Marlet iteration ----------------------------------------------------------------

// Seeks a zero of the fixed-point residual R(u) = u_t - u_b (u_t the projection step of u,
// u_b the cone projection of its reflection 2 u_t - u) along quasi-Newton directions,
// accepting blind, educated or safeguarded steps, and otherwise the plain step
// u - alpha R. Measures and returns the reflected point (u_b, s_b, kappa_b).
int runMarletIteration(Work* work, const Data* data, const Cone* cone, Solution* solution, Info* info);

// out = 2 a - b over l entries, its y block projected onto the dual cone, tau clamped at
// 0. Result of the cone projection.
int projectConesv2(double* out, const double* a, const double* b, Work* work, const Cone* cone);

// s_b = (p_b - 2 p_t + p) on the y block and kappa_b the same on the last entry: the
// slack and kap of the reflected point.
void computeReflectedSlack(const double* p, const double* p_b, const double* p_t, Work* work);

// out[i] = a[i] - b[i] for count entries.
void differenceInto(double* out, const double* a, const double* b, int count);

// <p, q>_M = rho_x <p_x, q_x> + <p_r, q_r>, the inner product of the Marlet iteration (x block
// weighted by rho_x); the iteration's norms |p|_M come from its fused passes.
double weightedDot(const Work* work, const double* p, const double* q);

// ---- Progress history ---------------------------------------------------------------

// With record_progress set, makes the ten history arrays of info hold max_iters entries:
// allocates the missing ones (codes -1 .. -10 on failure) and, when progress_capacity is
// known and smaller, resizes all of them keeping their contents (codes -100 .. -109).
// Returns 0 on success.
int prepareProgressArrays(Info* info, const Work* work);

// Releases the ten history arrays of info and clears them; the core never does this.
void releaseProgressArrays(Info* info);

// ---- Residuals, stopping and status -------------------------------------------------

// The figures of the standard iterate (x, y of u and s of v), in the caller's units.
// Does nothing when residuals->last_iter equals iter.
void computeResidualsStandard(Work* work, Residuals* residuals, int iter);

// updateDualVariables followed by computeResidualsStandard, in one pass over the rows.
void updateDualAndResiduals(Work* work, Residuals* residuals, int iter);

// The figures of the Marlet iterate (x, y of u_b, s_b and kappa_b), in the caller's
// units. Does nothing when residuals->last_iter equals iter.
void computeResidualsMarlet(Work* work, Residuals* residuals, int iter);

// 1 when res_pri, res_dual and rel_gap are all below eps; else -1 when res_unbdd is;
// else -2 when res_infeas is; else 0. A NaN never passes.
int testStopping(const Work* work, const Residuals* residuals, int iter);

// Turns the last iterate into solution and info: the status (from the stopping test, or
// what the iterate leans to at the limit), the vectors in the caller's units, and the
// summary figures that the status defines.
void finishSolution(Work* work, Solution* solution, Info* info, Residuals* residuals, int iter);

// x, y, s scaled by 1 / tau; "Solved" (1) after a passed test, "Solved/Inaccurate" (2)
// at the limit. Returns the new statusVal.
int indicateSolved(Work* work, Solution* solution, Info* info, double tau);

// y scaled by -1 / b_dot_y, x and s NaN; "Infeasible" (-2) or "Infeasible/Inaccurate" (-7).
int indicateInfeasible(Work* work, Solution* solution, Info* info, double b_dot_y);

// x and s scaled by -1 / c_dot_x, y NaN; "Unbounded" (-1) or "Unbounded/Inaccurate" (-6).
int indicateUnbounded(Work* work, Solution* solution, Info* info, double c_dot_x);

}  // namespace korvex
