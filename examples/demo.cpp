// The bundled example of the README's first command: a small program over every cone
// family, built in code and solved with the library's default settings (the Marlet
// iteration) and its full report.
//
//   minimise   x0 + 2 x1 + 3 x2
//   subject to x0 + x1 + x2 = 3                      (zero cone)
//              x0 >= 0, x1 >= 0                      (non-negative cone)
//              (x2 + 1, x0, x1) in the second-order cone
//              [[x0, x1], [x1, x2]] positive semidefinite
//              (x0 - 1, 1, x2) in the exponential cone
//              (x0, x1, x2) in the power cone with exponent 0.5
#include <cstdio>
#include <vector>

#include "cones/cones.h"
#include "records/records.h"
#include "core/solver.h"
#include "reporting/allocation.h"
#include "reporting/print.h"
#include "reporting/timing.h"

using namespace korvex;

namespace {

// The rows of A, b and the cone of the example, in the library's row order.
struct Example {
    std::vector<double> values;
    std::vector<int> rows;
    std::vector<int> starts;
    std::vector<double> b;
    std::vector<double> c;
    std::vector<int> soc_sizes{3};
    std::vector<int> sd_sizes{2};
    std::vector<double> power_exponents{0.5};
};

Example buildExample() {
    const double r2 = 1.4142135623730951;
    // Each row reads s = b - A x; dense A by rows, then compressed by columns.
    const std::vector<std::vector<double>> A = {
        {1, 1, 1},                      // zero: x0 + x1 + x2 = 3
        {-1, 0, 0}, {0, -1, 0},         // non-negative: x0, x1
        {0, 0, -1}, {-1, 0, 0}, {0, -1, 0},  // second order: (x2 + 1, x0, x1)
        {-1, 0, 0}, {0, -r2, 0}, {0, 0, -1}, // semidefinite, packed lower triangle
        {-1, 0, 0}, {0, 0, 0}, {0, 0, -1},   // exponential: (x0 - 1, 1, x2)
        {-1, 0, 0}, {0, -1, 0}, {0, 0, -1},  // power: (x0, x1, x2)
    };
    Example e;
    e.b = {3, 0, 0, 1, 0, 0, 0, 0, 0, -1, 1, 0, 0, 0, 0};
    e.c = {1, 2, 3};
    e.starts.push_back(0);
    for (int j = 0; j < 3; ++j) {
        for (int i = 0; i < static_cast<int>(A.size()); ++i) {
            if (A[i][j] != 0.0) {
                e.values.push_back(A[i][j]);
                e.rows.push_back(i);
            }
        }
        e.starts.push_back(static_cast<int>(e.values.size()));
    }
    return e;
}

}  // namespace

int main() {
    Example e = buildExample();
    SparseMatrix A{e.values.data(), e.rows.data(), e.starts.data(), static_cast<int>(e.b.size()), 3};
    Settings settings;
    setDefaultSettings(&settings);
    Data data{A.m, A.n, &A, e.b.data(), e.c.data(), &settings};
    Cone cone{1, 2, e.soc_sizes.data(), 1, e.sd_sizes.data(), 1, 1, 0, e.power_exponents.data(), 1};

    settings.eps = 1e-6;
    settings.max_iters = 20000;
    Solution solution{};
    Info info{};
    const int status = solveConeProgram(&data, &cone, &solution, &info);
    printPlain("status %d, objective %.6f, x = (%.6f, %.6f, %.6f)\n", status, info.pobj, solution.x[0],
               solution.x[1], solution.x[2]);
    releaseMemory(solution.x);
    releaseMemory(solution.y);
    releaseMemory(solution.s);
    return status == KORVEX_SOLVED ? 0 : 1;
}
