// Test matrices, dense references and a small Work for the linear-system suites.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "core/records.h"
#include "core/work.h"
#include "linsys/linsys.h"

struct PrivRelease {
    void operator()(LinSysWork* p) const noexcept { releasePriv(p); }
};
using Factor = std::unique_ptr<LinSysWork, PrivRelease>;

// Runs attempt with the k-th allocation failing, for k = 1, 2, ... until an attempt makes
// no allocation fail. attempt returns whether it succeeded and releases what it made; a
// failed attempt must report failure. The sanitizer build checks that nothing leaks.
void expectEveryAllocationFailureReported(const std::function<bool()>& attempt);

// A SparseMatrix over vectors that the test owns.
struct TestMatrix {
    int m = 0;
    int n = 0;
    std::vector<double> x;
    std::vector<int> i;
    std::vector<int> p{0};
    SparseMatrix view{};

    // The record, pointing at the vectors as they are now.
    SparseMatrix* get();
};

// A from its columns, each a list of (row, value) in stored order.
TestMatrix matrixFromColumns(int m, const std::vector<std::vector<std::pair<int, double>>>& columns);

// A random m x n matrix for a fixed seed, with about density * m * n entries in
// [-1, 1]: one row and one column (when there are two or more) stay empty, a few
// entries are stored twice and a few are stored zeros.
TestMatrix randomMatrix(int m, int n, double density, std::uint32_t seed);

// Row-major dense copies; duplicate entries are summed.
std::vector<double> denseMatrix(const SparseMatrix* A);
std::vector<double> denseSystemMatrix(const SparseMatrix* A, double rho_x);  // K, N x N

// A vector of n values in [-1, 1] for a fixed seed.
std::vector<double> randomVector(int n, std::uint32_t seed);

// The default settings with the given rho_x, normalize and do_super_korvex.
Settings testSettings(double rho_x, int normalize, int do_super_korvex);

// ||B t - f|| / ||f|| in the largest-entry norm, with B row-major k x k.
double relativeResidual(const std::vector<double>& B, const double* t, const double* f, int k);

// The Work of a solve as far as the linear system needs it: the arrays of the chosen
// iteration, A (copied and equilibrated when normalize is set), scaling and lin_sys.
// All rows of A are non-negative-cone rows.
class WorkFixture {
public:
    WorkFixture(TestMatrix matrix, std::vector<double> b, std::vector<double> c, Settings settings);
    ~WorkFixture();
    WorkFixture(const WorkFixture&) = delete;
    WorkFixture& operator=(const WorkFixture&) = delete;

    Work* work = nullptr;
    Data data{};
    Settings settings{};
    TestMatrix matrix;
    std::vector<double> b;
    std::vector<double> c;
    Cone cone{};

    // (M + Q) row-major, l x l, with the A, b and c of the work record (b and c as
    // startVectors leaves them).
    std::vector<double> denseMPlusQ() const;
};
