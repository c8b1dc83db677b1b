/* Korvex: a solver for convex cone programs, by operator splitting on the homogeneous
 * self-dual embedding of the primal and the dual problem.
 *
 * The problem:
 *
 *     minimise c'x  subject to  A x + s = b,  s in K
 *
 * with A an m by n sparse matrix, K the product cone that a Cone record describes, and y
 * the dual point. The answer is a primal point x, a dual point y and a slack s; or, for a
 * problem without solution, a certificate of infeasibility (y) or of unboundedness (x, s).
 *
 * This header is plain C: it compiles as C11 and as C++, and it is all a program needs to
 * call the library (link with -lkorvex; see korvex.pc or find_package(Korvex)).
 *
 * Conventions: floating point values are 64-bit, integers signed 32-bit, array indices
 * zero-based. Times in Info are milliseconds. The solver never writes the caller's A, b
 * or c and reads no file. A solve runs on the calling thread and on a pool of worker
 * threads that the library starts when a solve first needs them and keeps for the life of
 * the process: as many threads in all as the environment variable KORVEX_THREADS says, or
 * else the cores the process may run on. While a solve runs on more than one thread it
 * holds OpenBLAS at one thread and puts the caller's setting back at the end. The results
 * are the same bits on any number of threads when OpenBLAS runs on one thread in every
 * solve (OPENBLAS_NUM_THREADS=1, or openblas_set_num_threads(1)): a threaded BLAS may sum
 * in another order on one solver thread. A solve keeps a little process-wide state (the
 * interrupt flag, the pool, a vector of the full Broyden direction): run one solve at a
 * time in a process. While it runs, SIGINT (Ctrl-C) ends
 * it with status KORVEX_SIGINT.
 *
 * A minimal solve:
 *
 *     Settings settings;
 *     setDefaultSettings(&settings);
 *     Data data = {m, n, &A, b, c, &settings};
 *     Cone cone = {0};          cone.linear_vars = m;
 *     Solution solution = {0};  Info info = {0};
 *     int status = solveConeProgram(&data, &cone, &solution, &info);
 *     ... read solution.x, info.pobj ...
 *     korvexFreeSolution(&solution);
 *     korvexFreeProgress(&info);
 */
#ifndef KORVEX_KORVEX_H
#define KORVEX_KORVEX_H

#include <stdint.h>
#include <stdio.h>

#include "korvex/version.h"

#if defined(__GNUC__)
#define KORVEX_API __attribute__((visibility("default")))
#else
#define KORVEX_API
#endif

#ifdef __cplusplus
#define KORVEX_NOEXCEPT noexcept
extern "C" {
#else
#define KORVEX_NOEXCEPT
#endif

/* ---- Records ------------------------------------------------------------------------- */

/* Compressed-column sparse matrix. */
typedef struct SparseMatrix {
    double *x;  /* non-zero values, p[n] entries */
    int32_t *i; /* zero-based row index of each value, p[n] entries */
    int32_t *p; /* column pointers, n + 1 entries; p[0] = 0, p[n] = number of non-zeros */
    int32_t m;  /* rows */
    int32_t n;  /* columns */
} SparseMatrix;

/* Every option of a solve. setDefaultSettings writes the default of each field (given in
 * brackets); a solve changes only progress_capacity. */
typedef struct Settings {
    int32_t normalize;          /* [1] non-zero: equilibrate A, b, c and undo it on the results */
    double scale;               /* [1.0] factor on the normalised A, b, c; positive */
    double rho_x;               /* [0.001] weight of the x block; positive */
    int32_t max_iters;          /* [2500] iteration limit; positive */
    int32_t progress_capacity;  /* [-1] entries the progress arrays are sized for; -1: never sized */
    double eps;                 /* [0.001] convergence tolerance; positive */
    double alpha;               /* [1.5] over-relaxation factor, in (0, 2) */
    double cg_rate;             /* [2.0] carried and printed only */
    int32_t verbose;            /* [1] 0: errors only; positive: report; 2 or more: settings dump */
    int32_t warm_start;         /* [0] non-zero: start from the point given in Solution */
    int32_t do_super_korvex;    /* [1] 1: Marlet iteration; 0: standard iteration */
    int32_t k0;                 /* [0] 0 or 1: blind update step */
    double c_bl;                /* [0.999] residual decrease demanded of a blind step, in [0, 1) */
    int32_t k1;                 /* [1] 0 or 1: educated update step */
    int32_t k2;                 /* [1] 0 or 1: safeguarded update step */
    double c1;                  /* [0.9999] residual fraction an educated step must reach, in [0, 1) */
    double sse;                 /* [0.999] base of the educated step's geometric allowance, in [0, 1) */
    int32_t ls;                 /* [10] most line-search steps, 0 to 39 */
    double beta;                /* [0.5] step reduction of the line search, in (0, 1) */
    double sigma;               /* [0.01] acceptance parameter of the safeguarded step; not negative */
    int32_t dir;                /* [100] direction code, KORVEX_DIR_* */
    double thetabar;            /* [0.1] restarted Broyden safeguard, in [0, 1] */
    int32_t memory;             /* [10] pairs held by the direction cache */
    int32_t broyden_rule;       /* [1] read by the full Broyden direction */
    int32_t broyden_init_scale; /* [1] non-zero: full Broyden rescales H at its first call */
    int32_t record_progress;    /* [0] non-zero: the Marlet iteration fills the progress arrays */
    int32_t stream_override;    /* [0] non-zero: ordinary output goes straight to output_stream */
    FILE *output_stream;        /* [stdout] stream for ordinary output */
} Settings;

/* The problem. The solver changes neither the record nor its arrays. */
typedef struct Data {
    int32_t m;          /* rows of A; length of b, y, s */
    int32_t n;          /* columns of A; length of c, x */
    SparseMatrix *A;    /* constraint matrix, m by n */
    double *b;          /* right-hand side, m entries */
    double *c;          /* cost vector, n entries */
    Settings *settings; /* options of this solve */
} Data;

/* The product cone K. Its m rows are laid out in exactly this order, with no gaps: zero,
 * non-negative, second-order blocks (the first row of a block is its t in |z| <= t),
 * semidefinite blocks (n(n+1)/2 rows for side n: the lower triangle by columns, the
 * off-diagonal entries scaled by sqrt(2)), primal exponential triples (r, s, t) with
 * s exp(r/s) <= t, dual exponential triples, power triples (x, y, z) with
 * x^a y^(1-a) >= |z| for an exponent a > 0 and the dual cone of exponent -a for a <= 0.
 * An array is read only when its count is non-zero and the pointer non-null. */
typedef struct Cone {
    int32_t free_vars;        /* rows of the zero cone */
    int32_t linear_vars;      /* rows of the non-negative cone */
    int32_t *soc_sizes;       /* length of each second-order block */
    int32_t soc_blks;         /* number of second-order blocks */
    int32_t *sd_sizes;        /* side of each semidefinite block */
    int32_t sd_blks;          /* number of semidefinite blocks */
    int32_t exp_triples;      /* primal exponential triples */
    int32_t dual_exp_triples; /* dual exponential triples */
    double *power_exponents;  /* exponent of each power triple, in [-1, 1] */
    int32_t power_triples;    /* number of power triples */
} Cone;

/* The result vectors. A null pointer on entry is allocated by the solve and then owned by
 * the caller (release it with korvexFreeSolution); a non-null one is taken as an array of
 * the right length and overwritten. A value that the final status leaves undefined (x of
 * an infeasibility certificate, for instance) is NaN. */
typedef struct Solution {
    double *x; /* primal point or certificate, n entries */
    double *y; /* dual point or certificate, m entries */
    double *s; /* primal slack or certificate, m entries */
} Solution;

/* Length of Info::status, terminating zero included. */
#define KORVEX_STATUS_TEXT_LENGTH 32

/* The summary of a solve: zeroed by the caller, filled by the solve. The ten history
 * arrays are filled only by a Marlet solve with record_progress set, one entry per
 * iteration (progress_count of them); the solve allocates the null ones with max_iters
 * entries, and korvexFreeProgress releases them. Arrays the caller passes in are used as
 * they are, unless progress_capacity says they are shorter than max_iters: then they are
 * grown with realloc, so they must come from malloc. */
typedef struct Info {
    int32_t iter;                             /* iteration counter at the end; -1 after a failure */
    char status[KORVEX_STATUS_TEXT_LENGTH];   /* status text, zero-terminated */
    int32_t statusVal;                        /* status code, KORVEX_SOLVED ... */
    double pobj;                              /* primal objective c'x / tau */
    double dobj;                              /* dual objective -b'y / tau */
    double resPri;                            /* relative primal residual */
    double resDual;                           /* relative dual residual */
    double resInfeas;                         /* infeasibility measure */
    double resUnbdd;                          /* unboundedness measure */
    double relGap;                            /* relative duality gap */
    double setupTime;                         /* milliseconds in the set-up */
    double solveTime;                         /* milliseconds in the iteration */
    int32_t progress_count;                   /* iterations of a Marlet solve */
    int32_t *progress_iteration;              /* progress history, one entry per iteration */
    double *progress_rel_gap;
    double *progress_res_pri;
    double *progress_res_dual;
    double *progress_primal_cost;
    double *progress_dual_cost;
    double *progress_fpr_norm;
    double *progress_time_ms;
    int32_t *progress_step_kind;
    int32_t *progress_ls_count;
    int32_t memory_bytes;                     /* estimate of the memory of a Marlet solve */
} Info;

/* ---- Codes --------------------------------------------------------------------------- */

/* Status codes of Info::statusVal, each with its text in Info::status. KORVEX_RUNNING
 * is the value during the iteration only, never a final status. */
#define KORVEX_SOLVED 1                 /* "Solved" */
#define KORVEX_SOLVED_INACCURATE 2      /* "Solved/Inaccurate": at the limit, leaning to a solution */
#define KORVEX_RUNNING 0
#define KORVEX_UNBOUNDED (-1)           /* "Unbounded": x and s certify it */
#define KORVEX_UNBOUNDED_INACCURATE (-6)
#define KORVEX_INFEASIBLE (-2)          /* "Infeasible": y certifies it */
#define KORVEX_INFEASIBLE_INACCURATE (-7)
#define KORVEX_INDETERMINATE (-3)
#define KORVEX_FAILED (-4)              /* "Failure": refused input or a failed stage */
#define KORVEX_SIGINT (-5)              /* "Interrupted" */

/* Direction codes of Settings::dir. */
#define KORVEX_DIR_RESTARTED_BROYDEN 100
#define KORVEX_DIR_RESTARTED_BROYDEN_V2 101
#define KORVEX_DIR_FIXED_POINT_RESIDUAL 200
#define KORVEX_DIR_FULL_BROYDEN 300

/* ---- Functions ----------------------------------------------------------------------- */

/* Writes the default of every field into settings, output_stream standard output. */
KORVEX_API void setDefaultSettings(Settings *settings) KORVEX_NOEXCEPT;

/* Solves the problem of data and cone: validates it (a refusal is printed on standard
 * error and gives KORVEX_FAILED), equilibrates a copy, factorises once, runs the
 * iteration that settings->do_super_korvex chooses, and fills solution and info. Returns
 * info->statusVal. Null vectors of solution are allocated, also after a failure when m
 * and n are positive. */
KORVEX_API int solveConeProgram(const Data *data, const Cone *cone, Solution *solution, Info *info) KORVEX_NOEXCEPT;

/* Releases the three vectors of solution and sets them to null. Use it only for vectors
 * that a solve allocated; null pointers, and a null solution, are fine. */
KORVEX_API void korvexFreeSolution(Solution *solution) KORVEX_NOEXCEPT;

/* Releases the ten progress history arrays of info and sets them to null. Use it only for
 * arrays that a solve allocated; null pointers, and a null info, are fine. */
KORVEX_API void korvexFreeProgress(Info *info) KORVEX_NOEXCEPT;

#ifdef __cplusplus
}
#endif

#endif
