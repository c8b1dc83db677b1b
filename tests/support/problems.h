// Small cone programs with known answers, and the plumbing to solve them: records over
// vectors the test owns, and a solve that keeps its console report.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "records/records.h"

// The suites reach the library's internals by their plain names.
using namespace korvex;

// minimise c'x subject to A x + s = b, s in K, with A given densely by rows.
struct Problem {
    std::string name{};
    std::vector<std::vector<double>> rows{};  // m rows of n entries
    std::vector<double> b{}, c{};
    int free_vars = 0, linear_vars = 0;
    std::vector<int> soc{}, sd{};
    int exp_triples = 0, dual_exp_triples = 0;
    std::vector<double> power{};
    double objective = 0.0;  // known optimum and optimal x of a solvable problem
    std::vector<double> x{};

    int m() const { return static_cast<int>(b.size()); }
    int n() const { return static_cast<int>(c.size()); }
};

// The records of one solve of a Problem; the arrays of Solution belong to this object.
class SolveRun {
public:
    explicit SolveRun(const Problem& problem);
    ~SolveRun();
    SolveRun(const SolveRun&) = delete;
    SolveRun& operator=(const SolveRun&) = delete;
    int solve();  // solveConeProgram, its console report (standard output) kept in report

    Settings settings{};
    Info info{};
    Solution solution{};
    Data data{};
    Cone cone{};
    SparseMatrix A{};
    std::string report;

private:
    Problem problem_;
    std::vector<double> values_;
    std::vector<int> rows_, starts_;
};

// Settings of the end-to-end tests: standard iteration, quiet, eps 1e-6, a generous limit.
void useTestSettings(Settings* settings);

// The problems with known solutions, one or more per cone family and some mixes; the
// first is an LP of four non-negative rows and two variables.
std::vector<Problem> knownProblems();
// x >= 1 and x <= 0 (linear), and |(x1, x2)| <= 1 with x1 >= 2 (second order).
std::vector<Problem> infeasibleProblems();
// min -x on x >= 0, and min -x1 on |x2| <= x1 (a second-order cone of two entries).
std::vector<Problem> unboundedProblems();

// A x + s - b (m entries), A'y (n entries), and a'b.
std::vector<double> primalResidual(const SolveRun& run);
std::vector<double> dualProduct(const SolveRun& run);
double dot(const std::vector<double>& a, const double* b);
bool allNaN(const double* values, std::size_t count);

// dist(y, K*) and dist(s, K) in the max norm, through the library's own projection.
double distanceToDualCone(const SolveRun& run, const double* y);
double distanceToCone(const SolveRun& run, const double* s);

// Runs attempt with the k-th allocation failing, for k = 1, 2, ... until no allocation
// fails; attempt returns whether it succeeded and releases what it made, and a failed
// attempt must report failure (the sanitizer build checks that nothing leaks). Returns
// the number of allocations of a complete attempt.
long expectEveryAllocationFailureReported(const std::function<bool()>& attempt);
