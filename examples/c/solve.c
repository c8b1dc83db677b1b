/* A small cone program solved through the C interface of Korvex.
 *
 *     maximise   x0 + x1
 *     subject to x0 <= 1/2
 *                |(x0, x1)| <= 1
 *
 * whose optimum is x = (1/2, sqrt(3)/2). In the solver's form, minimise c'x subject to
 * Ax + s = b with s in K, the rows of s are one non-negative row, s0 = 1/2 - x0, and one
 * second-order block of three rows, (s1, s2, s3) = (1, x0, x1):
 *
 *     c = (-1, -1),  b = (1/2, 1, 0, 0),  A = [ 1 0 ; 0 0 ; -1 0 ; 0 -1 ].
 *
 * Prints the status, the objective and x, and exits with 0 only when the solve ended
 * "Solved" at the known optimum.
 */
#include <math.h>
#include <stdio.h>

#include <korvex/korvex.h>

int main(void) {
    /* A by columns: column 0 holds rows 0 and 2, column 1 holds row 3. */
    double values[] = {1.0, -1.0, -1.0};
    int32_t rows[] = {0, 2, 3};
    int32_t starts[] = {0, 2, 3};
    SparseMatrix A = {values, rows, starts, 4, 2};
    double b[] = {0.5, 1.0, 0.0, 0.0};
    double c[] = {-1.0, -1.0};

    Settings settings;
    setDefaultSettings(&settings);
    settings.eps = 1e-8;
    settings.max_iters = 10000;
    settings.verbose = 0;
    settings.record_progress = 1; /* keep the history of the Marlet iteration */

    Data data = {4, 2, &A, b, c, &settings};
    int32_t soc_sizes[] = {3};
    Cone cone = {0};
    cone.linear_vars = 1;
    cone.soc_sizes = soc_sizes;
    cone.soc_blks = 1;

    Solution solution = {NULL, NULL, NULL}; /* allocated by the solve */
    Info info = {0};
    const int status = solveConeProgram(&data, &cone, &solution, &info);

    const double expected_x0 = 0.5;
    const double expected_x1 = sqrt(3.0) / 2.0;
    printf("korvex %s: %s (%d) after %d iterations, %d in the history\n", KORVEX_VERSION_STRING, info.status,
           status, info.iter, info.progress_count);
    printf("objective %.9f, x = (%.9f, %.9f), dual y0 = %.9f\n", info.pobj, solution.x[0], solution.x[1],
           solution.y[0]);
    const int at_optimum = status == KORVEX_SOLVED && fabs(solution.x[0] - expected_x0) < 1e-5 &&
                           fabs(solution.x[1] - expected_x1) < 1e-5 &&
                           fabs(info.pobj + expected_x0 + expected_x1) < 1e-5;

    korvexFreeSolution(&solution);
    korvexFreeProgress(&info);
    printf("%s\n", at_optimum ? "solved at the known optimum" : "NOT at the known optimum");
    return at_optimum ? 0 : 1;
}
