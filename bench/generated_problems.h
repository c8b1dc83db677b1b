// Cone programs generated in code for the benchmarks, of any size: the records and the
// arrays behind them in one object.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "records/records.h"

struct GeneratedProblem {
    std::string name;
    int m = 0;
    int n = 0;
    std::vector<double> values, b, c, power;
    std::vector<int> rows, starts, soc, sd;
    int free_vars = 0, linear_vars = 0, exp_triples = 0;
    SparseMatrix A{};
    Settings settings{};
    Data data{};
    Cone cone{};

    // Compresses columns (each a list of (row, value)) into A and links the records;
    // settings get the library's defaults.
    void finish(std::vector<std::vector<std::pair<int, double>>>& columns);
};

// Total-variation denoising on a side x side grid: x within 1 of a noisy image,
// minimising the sum of the gradient norms; two non-negative rows and one second-order
// block of three rows per pixel.
std::unique_ptr<GeneratedProblem> totalVariation(int side);

// A random sparse LP with a known primal and dual feasible point, so that it is solvable.
std::unique_ptr<GeneratedProblem> randomLp(int m, int n, std::uint32_t seed);

// The semidefinite relaxation of max-cut on a random graph: max <L, X> / 4 subject to
// diag(X) = 1, X positive semidefinite.
std::unique_ptr<GeneratedProblem> maxCut(int nodes, std::uint32_t seed);

// Entropy maximisation over a random polytope: min sum x_i log x_i subject to sum x = 1
// and F x <= g, with one exponential triple per x_i.
std::unique_ptr<GeneratedProblem> entropy(int n, int constraints, std::uint32_t seed);
