// The record of one solve: every vector, factor and workspace that the iterations use.
//
// All vectors live in the embedding space of length l = n + m + 1, read as an x block
// (entries 0 .. n-1), a y block of u or s block of v (entries n .. n+m-1) and a last
// entry (tau in u, kap in v). Every array is allocated once during the set-up; the
// iterations allocate nothing. Arrays marked Marlet only stay null during a standard
// iteration, and v stays null during a Marlet iteration.
#pragma once

#include "records/records.h"
#include "reporting/allocation.h"

namespace korvex {

struct LinSysWork;
struct Scaling;
struct ConeWork;
struct YSCache;

struct Work {
    int m;  // rows of A
    int n;  // columns of A
    int l;  // n + m + 1

    OwnedArray<double> u;       // l, zero-filled: current iterate
    OwnedArray<double> v;       // l, zero-filled: dual iterate of the standard iteration
    OwnedArray<double> u_t;     // l: linear projection of u
    OwnedArray<double> u_prev;  // l: previous u
    OwnedArray<double> u_b;     // l, zero-filled: cone projection of the reflection (Marlet)
    OwnedArray<double> h;       // l - 1: (c, b), the normalised data
    OwnedArray<double> g;       // l - 1: solution of K g = h, y block negated
    OwnedArray<double> pr;      // m: scratch of the primal residual
    OwnedArray<double> dr;      // n: scratch of the dual residual
    double g_dot_h;             // h'g
    double b_factor;            // factor on the normalised b; 0 while normalize is 0
    double c_factor;            // factor on the normalised c; 0 while normalize is 0
    double b_norm;              // ||b|| of the caller's b
    double c_norm;              // ||c|| of the caller's c
    OwnedArray<double> b;       // m: working copy of b, normalised when normalize is set
    OwnedArray<double> c;       // n: working copy of c, normalised when normalize is set

    OwnedArray<double> R;       // l, zero-filled, Marlet only: fixed-point residual u_t - u_b
    OwnedArray<double> R_prev;  // l, zero-filled, Marlet only: previous R, x block times sqrt(rho_x)
    OwnedArray<double> dir;     // l, Marlet only: search direction
    OwnedArray<double> H;       // l x l, dir code 300 only: dense Broyden matrix
    OwnedArray<double> dut;     // l, Marlet only: linear projection of the direction
    OwnedArray<double> wu;      // l, Marlet with ls > 0: trial point of the line search
    OwnedArray<double> wu_t;    // l, Marlet with ls > 0: its linear projection
    OwnedArray<double> wu_b;    // l, Marlet with ls > 0: its cone projection
    OwnedArray<double> Rwu;     // l, Marlet with ls > 0: fixed-point residual at the trial point
    double fpr_norm;            // Marlet only: weighted norm of R
    OwnedArray<double> Sk;      // l, Marlet only: step pair handed to the direction
    OwnedArray<double> Yk;      // l, Marlet only: residual pair handed to the direction
    double step_size;           // Marlet only: current line-search step
    OwnedArray<double> s_b;     // m, Marlet only: slack derived from the reflected point
    double kappa_b;             // Marlet only: last entry derived from the reflected point

    SparseMatrix* A;       // the caller's matrix, or the normalised copy owned here
    LinSysWork* lin_sys;   // the factorisation, released by releasePriv
    Settings* settings;    // the caller's options, not owned
    Scaling* scaling;      // equilibration factors, owned; null when normalize is 0
    ConeWork* cone_work;   // cone workspace, released by freeConeWork
    YSCache* su_cache;     // Broyden cache, owned; null unless dir is 100 or 101 with memory > 0
};

}  // namespace korvex
