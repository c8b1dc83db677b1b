// Small cone programs with known answers, and the plumbing to solve them: records over
// vectors the test owns, and a solve that keeps its console report.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "core/records.h"

// minimise c'x subject to A x + s = b, s in K, with A given densely by rows.
struct Problem {
    explicit Problem(std::string problem_name) : name(std::move(problem_name)) {}

    std::string name;
    std::vector<std::vector<double>> rows;  // m rows of n entries
    std::vector<double> b;
    std::vector<double> c;
    int free_vars = 0;
    int linear_vars = 0;
    std::vector<int> soc;
    std::vector<int> sd;
    int exp_triples = 0;
    int dual_exp_triples = 0;
    std::vector<double> power;

    // Known optimum (for solvable problems) and optimal x.
    double objective = 0.0;
    std::vector<double> x;

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

    // Runs solveConeProgram; the console report (standard output) is kept in report.
    int solve();

    Settings settings{};
    Info info{};
    Solution solution{};
    Data data{};
    Cone cone{};
    SparseMatrix A{};
    std::string report;

private:
    std::vector<double> values_;
    std::vector<int> rows_;
    std::vector<int> starts_;
    std::vector<double> b_;
    std::vector<double> c_;
    std::vector<int> soc_;
    std::vector<int> sd_;
    std::vector<double> power_;
};

// Settings of the end-to-end tests: standard iteration, quiet, eps 1e-6, a generous limit.
void useTestSettings(Settings* settings);

// The problems with known solutions, one or more per cone family and some mixes.
std::vector<Problem> knownProblems();

// A x + s - b (m entries), A'y (n entries), and b'y, c'x of a run's solution.
std::vector<double> primalResidual(const SolveRun& run);
std::vector<double> dualProduct(const SolveRun& run);
double dot(const std::vector<double>& a, const double* b);

// dist(y, K*) and dist(s, K) in the max norm, through the library's own projection.
double distanceToDualCone(const SolveRun& run, const double* y);
double distanceToCone(const SolveRun& run, const double* s);
