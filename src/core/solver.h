// The solver core: the solve entry and the life of its Work record, the standard
// splitting iteration, and the residuals, stopping test and final status shared by both
// iterations.
#pragma once

#include <cstdint>
#include <cstdio>

#include "core/records.h"
#include "core/work.h"

// ---- Solve entry and work life cycle ------------------------------------------------

// Validates the problem, builds the Work record (equilibration, cone workspace, one
// factorisation), runs the iteration chosen by do_super_korvex, fills solution and info,
// releases everything made and returns info->statusVal. Null vectors in solution are
// allocated here and owned by the caller afterwards.
int solveConeProgram(const Data* data, const Cone* cone, Solution* solution, Info* info);

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

// ---- Residuals, stopping and status -------------------------------------------------

// The figures of the standard iterate (x, y of u and s of v), in the caller's units.
// Does nothing when residuals->last_iter equals iter.
void computeResidualsStandard(Work* work, Residuals* residuals, int iter);

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
