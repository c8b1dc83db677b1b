// Test matrices, dense references and a Work of a real set-up for the linear-system suites.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "core/solver.h"
#include "linsys/linsys.h"

// The suites reach the library's internals by their plain names.
using namespace korvex;

struct PrivRelease {
    void operator()(LinSysWork* p) const noexcept { releasePriv(p); }
};
using Factor = std::unique_ptr<LinSysWork, PrivRelease>;

// A SparseMatrix over vectors that the test owns; get() points the record at them.
struct TestMatrix {
    int m = 0, n = 0;
    std::vector<double> x;
    std::vector<int> i, p{0};
    SparseMatrix view{};
    SparseMatrix* get() {
        view = SparseMatrix{x.data(), i.data(), p.data(), m, n};
        return &view;
    }
};

// A from its columns, each a list of (row, value) in stored order.
TestMatrix matrixFromColumns(int m, const std::vector<std::vector<std::pair<int, double>>>& columns);

// A random m x n matrix for a fixed seed, with about density * m * n entries in [-1, 1]:
// one row and one column (when there are two or more) stay empty, a few entries are
// stored twice and a few are stored zeros.
TestMatrix randomMatrix(int m, int n, double density, std::uint32_t seed);

// Row-major dense copies, duplicates summed: A, and K = [rho_x I, A'; A, -I].
std::vector<double> denseMatrix(const SparseMatrix* A);
std::vector<double> denseSystemMatrix(const SparseMatrix* A, double rho_x);

std::vector<double> randomVector(int n, std::uint32_t seed);  // n values in [-1, 1]

// The default settings, quiet, with the given rho_x, normalize and do_super_korvex.
Settings testSettings(double rho_x, int normalize, int do_super_korvex);

// ||B t - f|| / ||f|| in the largest-entry norm, with B row-major k x k.
double relativeResidual(const std::vector<double>& B, const double* t, const double* f, int k);

// initWork for the matrix, b and c with every row a non-negative-cone row.
struct WorkFixture {
    WorkFixture(TestMatrix matrix, std::vector<double> b, std::vector<double> c, Settings settings);
    ~WorkFixture() { freeWork(work); }
    WorkFixture(const WorkFixture&) = delete;
    WorkFixture& operator=(const WorkFixture&) = delete;
    // (M + Q) row-major, l x l, with the A, b and c of the work record (b and c as
    // startVectors leaves them).
    std::vector<double> denseMPlusQ() const;

    TestMatrix matrix;
    std::vector<double> b, c;
    Settings settings;
    Cone cone{};
    Data data{};
    Work* work = nullptr;
};
