// Small cone programs with known answers, and the plumbing to solve them: records over
// vectors the test owns, and a solve that keeps its console report.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "records/records.h"
#include "records/work.h"

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
    int status = KORVEX_SOLVED;  // or the certificate it has

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
    int solve();    // solveConeProgram, its console report (standard output) kept in report
    int iterate();  // the same through initWork and the iteration of do_super_korvex, quiet, keeping work

    Settings settings{};
    Info info{};
    Solution solution{};
    Data data{};
    Cone cone{};
    SparseMatrix A{};
    std::string report;
    Problem problem;
    Work* work = nullptr;  // released with the record, and so are the progress arrays of info

private:
    std::vector<double> values_;
    std::vector<int> rows_, starts_;
};

// Settings of the end-to-end tests: standard iteration, quiet, eps 1e-6, a generous limit.
void useTestSettings(Settings* settings);

// The problems with known solutions, one or more per cone family and two mixes (the last
// has every family); the first is an LP of four non-negative rows and two variables.
std::vector<Problem> knownProblems();
// Two infeasible problems (linear, second order), then two unbounded ones, with their status.
std::vector<Problem> certificateProblems();

double dot(const std::vector<double>& a, const double* b);
bool allNaN(const double* values, std::size_t count);

// Runs attempt with the k-th allocation failing, k = 1, 2, ... until none fails: a failed
// attempt must report failure and release what it made (the sanitizer build checks that
// nothing leaks). Returns the number of allocations of a complete attempt.
long expectEveryAllocationFailureReported(const std::function<bool()>& attempt);
