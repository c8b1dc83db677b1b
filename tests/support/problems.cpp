#include "support/problems.h"

#include <cmath>
#include <cstring>

#include "cones/cones.h"
#include "core/solver.h"
#include "reporting/allocation.h"
#include "support/capture.h"

SolveRun::SolveRun(const Problem& problem)
    : b_(problem.b), c_(problem.c), soc_(problem.soc), sd_(problem.sd), power_(problem.power) {
    const int m = problem.m(), n = problem.n();
    starts_.push_back(0);
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < m; ++i) {
            if (problem.rows[i][j] != 0.0) {
                values_.push_back(problem.rows[i][j]);
                rows_.push_back(i);
            }
        }
        starts_.push_back(static_cast<int>(values_.size()));
    }
    A = SparseMatrix{values_.data(), rows_.data(), starts_.data(), m, n};
    setDefaultSettings(&settings);
    useTestSettings(&settings);
    data = Data{m, n, &A, b_.data(), c_.data(), &settings};
    cone = Cone{problem.free_vars,
                problem.linear_vars,
                soc_.empty() ? nullptr : soc_.data(),
                static_cast<int>(soc_.size()),
                sd_.empty() ? nullptr : sd_.data(),
                static_cast<int>(sd_.size()),
                problem.exp_triples,
                problem.dual_exp_triples,
                power_.empty() ? nullptr : power_.data(),
                static_cast<int>(power_.size())};
}

SolveRun::~SolveRun() {
    releaseMemory(solution.x);
    releaseMemory(solution.y);
    releaseMemory(solution.s);
}

int SolveRun::solve() {
    CapturedOutput out;
    const int status = solveConeProgram(&data, &cone, &solution, &info);
    report = out.finish();
    return status;
}

void useTestSettings(Settings* settings) {
    settings->do_super_korvex = 0;
    settings->verbose = 0;
    settings->eps = 1e-6;
    settings->max_iters = 50000;
}

namespace {

const double kRoot2 = std::sqrt(2.0);

Problem lp() {
    // max x1 + x2 on x1 + 2 x2 <= 4, 3 x1 + x2 <= 6, x >= 0: the corner (8/5, 6/5).
    Problem p{"lp"};
    p.rows = {{1, 2}, {3, 1}, {-1, 0}, {0, -1}};
    p.b = {4, 6, 0, 0};
    p.c = {-1, -1};
    p.linear_vars = 4;
    p.objective = -2.8;
    p.x = {1.6, 1.2};
    return p;
}

Problem lpWithEquality() {
    // min x1 + 2 x2 + 3 x3 on the simplex: the cheapest vertex.
    Problem p{"lp_equality"};
    p.rows = {{1, 1, 1}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}};
    p.b = {1, 0, 0, 0};
    p.c = {1, 2, 3};
    p.free_vars = 1;
    p.linear_vars = 3;
    p.objective = 1.0;
    p.x = {1, 0, 0};
    return p;
}

Problem disc() {
    // min x1 + x2 on the unit disc |(x1, x2)| <= 1.
    Problem p{"second_order"};
    p.rows = {{0, 0}, {-1, 0}, {0, -1}};
    p.b = {1, 0, 0};
    p.c = {1, 1};
    p.soc = {3};
    p.objective = -kRoot2;
    p.x = {-1 / kRoot2, -1 / kRoot2};
    return p;
}

Problem distanceToHalfPlane() {
    // min t with |x - (3, 4)| <= t and x1 + x2 <= 1: t = 6 / sqrt(2) at x = (0, 1).
    Problem p{"second_order_with_linear"};
    p.rows = {{1, 1, 0}, {0, 0, -1}, {-1, 0, 0}, {0, -1, 0}};
    p.b = {1, 0, -3, -4};
    p.c = {0, 0, 1};
    p.linear_vars = 1;
    p.soc = {3};
    p.objective = 3 * kRoot2;
    p.x = {0, 1, 3 * kRoot2};
    return p;
}

Problem semidefiniteSideTwo() {
    // min x with [x 1; 1 x] positive semidefinite: x = 1.
    Problem p{"semidefinite_2"};
    p.rows = {{-1}, {0}, {-1}};
    p.b = {0, kRoot2, 0};
    p.c = {1};
    p.sd = {2};
    p.objective = 1.0;
    p.x = {1};
    return p;
}

Problem semidefiniteTridiagonal() {
    // min x with x I + tridiag(1, 0, 1) positive semidefinite: x = sqrt(2), the largest
    // eigenvalue of the path graph on three nodes.
    Problem p{"semidefinite_3"};
    p.rows = {{-1}, {0}, {0}, {-1}, {0}, {-1}};
    p.b = {0, kRoot2, 0, 0, kRoot2, 0};
    p.c = {1};
    p.sd = {3};
    p.objective = kRoot2;
    p.x = {kRoot2};
    return p;
}

Problem semidefiniteProduct() {
    // min x1 + x2 with [x1 1 0; 1 x2 0; 0 0 1] positive semidefinite, i.e. x1 x2 >= 1.
    Problem p{"semidefinite_product"};
    p.rows = {{-1, 0}, {0, 0}, {0, 0}, {0, -1}, {0, 0}, {0, 0}};
    p.b = {0, kRoot2, 0, 0, 0, 1};
    p.c = {1, 1};
    p.sd = {3};
    p.objective = 2.0;
    p.x = {1, 1};
    return p;
}

Problem exponential() {
    // min x2 - x1 with exp(x1) <= x2, that is (x1, 1, x2) in the exponential cone.
    Problem p{"exponential"};
    p.rows = {{-1, 0}, {0, 0}, {0, -1}};
    p.b = {0, 1, 0};
    p.c = {-1, 1};
    p.exp_triples = 1;
    p.objective = 1.0;
    p.x = {0, 1};
    return p;
}

Problem dualExponential() {
    // min x with (-1, x, 1) in the dual exponential cone: exp(-x) <= e, so x >= -1.
    Problem p{"dual_exponential"};
    p.rows = {{0}, {-1}, {0}};
    p.b = {-1, 0, 1};
    p.c = {1};
    p.dual_exp_triples = 1;
    p.objective = -1.0;
    p.x = {-1};
    return p;
}

Problem power() {
    // max z with (1, 4, z) in the power cone of exponent 1/2: |z| <= 2.
    Problem p{"power"};
    p.rows = {{0}, {0}, {-1}};
    p.b = {1, 4, 0};
    p.c = {-1};
    p.power = {0.5};
    p.objective = -2.0;
    p.x = {2};
    return p;
}

Problem dualPower() {
    // max w with (1, 4, w) in the dual of the power cone of exponent 1/2, listed with the
    // exponent -1/2: 2 sqrt(1 * 4) >= |w|.
    Problem p{"dual_power"};
    p.rows = {{0}, {0}, {-1}};
    p.b = {1, 4, 0};
    p.c = {-1};
    p.power = {-0.5};
    p.objective = -4.0;
    p.x = {4};
    return p;
}

Problem weightedGeometricMean() {
    // max x^0.3 y^0.7 on x + y <= 2: the optimum splits the budget as the weights, (0.6, 1.4).
    Problem p{"power_mean"};
    p.rows = {{1, 1, 0}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}};
    p.b = {2, 0, 0, 0};
    p.c = {0, 0, -1};
    p.linear_vars = 1;
    p.power = {0.3};
    const double z = std::pow(0.6, 0.3) * std::pow(1.4, 0.7);
    p.objective = -z;
    p.x = {0.6, 1.4, z};
    return p;
}

// The block-diagonal union of independent problems: rows regrouped by cone family in
// the library's row order, variables concatenated, objectives added.
Problem combine(const std::string& name, const std::vector<Problem>& parts) {
    Problem p{name};
    int n = 0;
    for (const Problem& part : parts) n += part.n();
    // Appends rows first .. first + count - 1 of part, its variables placed at column_offset.
    auto append = [&](const Problem& part, int column_offset, int first, int count) {
        for (int r = first; r < first + count; ++r) {
            std::vector<double> row(n, 0.0);
            for (int j = 0; j < part.n(); ++j) row[column_offset + j] = part.rows[r][j];
            p.rows.push_back(row);
            p.b.push_back(part.b[r]);
        }
    };
    // Offsets of every family inside each part.
    const int families = 7;
    std::vector<std::vector<int>> start(parts.size(), std::vector<int>(families + 1, 0));
    for (std::size_t k = 0; k < parts.size(); ++k) {
        const Problem& q = parts[k];
        int soc_rows = 0, sd_rows = 0;
        for (int s : q.soc) soc_rows += s;
        for (int s : q.sd) sd_rows += s * (s + 1) / 2;
        const int sizes[families] = {q.free_vars,       q.linear_vars,          soc_rows,
                                     sd_rows,           3 * q.exp_triples,      3 * q.dual_exp_triples,
                                     3 * static_cast<int>(q.power.size())};
        for (int f = 0; f < families; ++f) start[k][f + 1] = start[k][f] + sizes[f];
    }
    for (int f = 0; f < families; ++f) {
        int column_offset = 0;
        for (std::size_t k = 0; k < parts.size(); ++k) {
            append(parts[k], column_offset, start[k][f], start[k][f + 1] - start[k][f]);
            column_offset += parts[k].n();
        }
    }
    for (const Problem& q : parts) {
        p.c.insert(p.c.end(), q.c.begin(), q.c.end());
        p.x.insert(p.x.end(), q.x.begin(), q.x.end());
        p.objective += q.objective;
        p.free_vars += q.free_vars;
        p.linear_vars += q.linear_vars;
        p.soc.insert(p.soc.end(), q.soc.begin(), q.soc.end());
        p.sd.insert(p.sd.end(), q.sd.begin(), q.sd.end());
        p.exp_triples += q.exp_triples;
        p.dual_exp_triples += q.dual_exp_triples;
        p.power.insert(p.power.end(), q.power.begin(), q.power.end());
    }
    return p;
}

}  // namespace

std::vector<Problem> knownProblems() {
    std::vector<Problem> problems = {lp(),
                                     lpWithEquality(),
                                     disc(),
                                     distanceToHalfPlane(),
                                     semidefiniteSideTwo(),
                                     semidefiniteTridiagonal(),
                                     semidefiniteProduct(),
                                     exponential(),
                                     dualExponential(),
                                     power(),
                                     dualPower(),
                                     weightedGeometricMean()};
    problems.push_back(combine("mixed_lp_socp_sdp", {lp(), distanceToHalfPlane(), semidefiniteProduct()}));
    problems.push_back(combine("mixed_all_families", {lpWithEquality(), disc(), semidefiniteTridiagonal(),
                                                      exponential(), dualExponential(), power(), dualPower()}));
    return problems;
}

std::vector<double> primalResidual(const SolveRun& run) {
    const int m = run.data.m, n = run.data.n;
    std::vector<double> r(m);
    for (int i = 0; i < m; ++i) r[i] = run.solution.s[i] - run.data.b[i];
    for (int j = 0; j < n; ++j) {
        for (int q = run.A.p[j]; q < run.A.p[j + 1]; ++q) r[run.A.i[q]] += run.A.x[q] * run.solution.x[j];
    }
    return r;
}

std::vector<double> dualProduct(const SolveRun& run) {
    std::vector<double> r(run.data.n, 0.0);
    for (int j = 0; j < run.data.n; ++j) {
        for (int q = run.A.p[j]; q < run.A.p[j + 1]; ++q) r[j] += run.A.x[q] * run.solution.y[run.A.i[q]];
    }
    return r;
}

double dot(const std::vector<double>& a, const double* b) {
    double sum = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k) sum += a[k] * b[k];
    return sum;
}

namespace {

// The largest entry of |P_{K*}(v) - v| after projecting a copy of v.
double projectionDistance(const SolveRun& run, const std::vector<double>& v, bool difference) {
    ConeWork* work = initCone(&run.cone);
    std::vector<double> p = v;
    projectToDualCone(p.data(), &run.cone, work);
    freeConeWork(work);
    double largest = 0.0;
    for (std::size_t k = 0; k < v.size(); ++k) {
        largest = std::max(largest, std::fabs(difference ? p[k] - v[k] : p[k]));
    }
    return largest;
}

}  // namespace

double distanceToDualCone(const SolveRun& run, const double* y) {
    return projectionDistance(run, std::vector<double>(y, y + run.data.m), true);
}

double distanceToCone(const SolveRun& run, const double* s) {
    // dist(s, K) = |P_{K*}(-s)| by the Moreau decomposition.
    std::vector<double> minus(run.data.m);
    for (int i = 0; i < run.data.m; ++i) minus[i] = -s[i];
    return projectionDistance(run, minus, false);
}
