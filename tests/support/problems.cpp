#include "support/problems.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "cones/cones.h"
#include "core/solver.h"
#include "reporting/allocation.h"
#include "support/capture.h"

using namespace korvex;

SolveRun::SolveRun(const Problem& problem) : problem_(problem) {
    const int m = problem.m(), n = problem.n();
    starts_.push_back(0);
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < m; ++i) {
            if (problem.rows[i][j] == 0.0) continue;
            values_.push_back(problem.rows[i][j]);
            rows_.push_back(i);
        }
        starts_.push_back(static_cast<int>(values_.size()));
    }
    A = SparseMatrix{values_.data(), rows_.data(), starts_.data(), m, n};
    setDefaultSettings(&settings);
    useTestSettings(&settings);
    data = Data{m, n, &A, problem_.b.data(), problem_.c.data(), &settings};
    auto list = [](auto& v) { return v.empty() ? nullptr : v.data(); };
    auto size = [](const auto& v) { return static_cast<int>(v.size()); };
    Problem& p = problem_;
    cone = Cone{p.free_vars,   p.linear_vars,      list(p.soc),   size(p.soc),  list(p.sd),
                size(p.sd),    p.exp_triples,      p.dual_exp_triples, list(p.power), size(p.power)};
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

// The block-diagonal union of independent problems: rows regrouped by cone family in
// the library's row order, variables concatenated, objectives added.
Problem combine(const std::string& name, const std::vector<Problem>& parts) {
    Problem p{.name = name};
    int n = 0;
    for (const Problem& part : parts) n += part.n();
    const int families = 7;
    for (int f = 0; f < families; ++f) {
        int column_offset = 0;
        for (const Problem& q : parts) {
            // The rows of family f in q start after those of the families before it.
            int soc_rows = 0, sd_rows = 0;
            for (int s : q.soc) soc_rows += s;
            for (int s : q.sd) sd_rows += s * (s + 1) / 2;
            const int sizes[families] = {q.free_vars, q.linear_vars, soc_rows, sd_rows, 3 * q.exp_triples,
                                         3 * q.dual_exp_triples, 3 * static_cast<int>(q.power.size())};
            int first = 0;
            for (int g = 0; g < f; ++g) first += sizes[g];
            for (int r = first; r < first + sizes[f]; ++r) {
                std::vector<double> row(n, 0.0);
                std::copy(q.rows[r].begin(), q.rows[r].end(), row.begin() + column_offset);
                p.rows.push_back(row);
                p.b.push_back(q.b[r]);
            }
            column_offset += q.n();
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

// The largest entry of |P_{K*}(v) - v|, or of |P_{K*}(v)| without difference.
double projectionDistance(const SolveRun& run, const std::vector<double>& v, bool difference) {
    ConeWork* work = initCone(&run.cone);
    std::vector<double> p = v;
    projectToDualCone(p.data(), &run.cone, work);
    freeConeWork(work);
    double largest = 0.0;
    for (std::size_t k = 0; k < v.size(); ++k) largest = std::max(largest, std::fabs(difference ? p[k] - v[k] : p[k]));
    return largest;
}

}  // namespace

std::vector<Problem> knownProblems() {
    const double root2 = std::sqrt(2.0);
    const double mean = std::pow(0.6, 0.3) * std::pow(1.4, 0.7);

    // max x1 + x2 on x1 + 2 x2 <= 4, 3 x1 + x2 <= 6, x >= 0: the corner (8/5, 6/5).
    const Problem lp{.name = "lp", .rows = {{1, 2}, {3, 1}, {-1, 0}, {0, -1}}, .b = {4, 6, 0, 0}, .c = {-1, -1},
                      .linear_vars = 4, .objective = -2.8, .x = {1.6, 1.2}};
    // min x1 + 2 x2 + 3 x3 on the simplex: the cheapest vertex.
    const Problem lp_equality{.name = "lp_equality", .rows = {{1, 1, 1}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}},
                                  .b = {1, 0, 0, 0}, .c = {1, 2, 3}, .free_vars = 1, .linear_vars = 3, .objective = 1.0,
                                  .x = {1, 0, 0}};
    // min x1 + x2 on the unit disc |(x1, x2)| <= 1.
    const Problem disc{.name = "second_order", .rows = {{0, 0}, {-1, 0}, {0, -1}}, .b = {1, 0, 0}, .c = {1, 1},
                        .soc = {3}, .objective = -root2, .x = {-1 / root2, -1 / root2}};
    // min t with |x - (3, 4)| <= t and x1 + x2 <= 1: t = 6 / sqrt(2) at x = (0, 1).
    const Problem half_plane{.name = "second_order_with_linear",
                                       .rows = {{1, 1, 0}, {0, 0, -1}, {-1, 0, 0}, {0, -1, 0}}, .b = {1, 0, -3, -4},
                                       .c = {0, 0, 1}, .linear_vars = 1, .soc = {3}, .objective = 3 * root2,
                                       .x = {0, 1, 3 * root2}};
    // min x with [x 1; 1 x] positive semidefinite: x = 1.
    const Problem sd2{.name = "semidefinite_2", .rows = {{-1}, {0}, {-1}}, .b = {0, root2, 0},
                                       .c = {1}, .sd = {2}, .objective = 1.0, .x = {1}};
    // min x with x I + tridiag(1, 0, 1) positive semidefinite: x = sqrt(2), the largest
    // eigenvalue of the path graph on three nodes.
    const Problem sd3{.name = "semidefinite_3", .rows = {{-1}, {0}, {0}, {-1}, {0}, {-1}},
                                           .b = {0, root2, 0, 0, root2, 0}, .c = {1}, .sd = {3}, .objective = root2,
                                           .x = {root2}};
    // min x1 + x2 with [x1 1 0; 1 x2 0; 0 0 1] positive semidefinite, i.e. x1 x2 >= 1.
    const Problem sd_product{.name = "semidefinite_product",
                                       .rows = {{-1, 0}, {0, 0}, {0, 0}, {0, -1}, {0, 0}, {0, 0}},
                                       .b = {0, root2, 0, 0, 0, 1}, .c = {1, 1}, .sd = {3}, .objective = 2.0, .x = {1, 1}};
    // min x2 - x1 with exp(x1) <= x2, that is (x1, 1, x2) in the exponential cone.
    const Problem exponential{.name = "exponential", .rows = {{-1, 0}, {0, 0}, {0, -1}}, .b = {0, 1, 0}, .c = {-1, 1},
                               .exp_triples = 1, .objective = 1.0, .x = {0, 1}};
    // min x with (-1, x, 1) in the dual exponential cone: exp(-x) <= e, so x >= -1.
    const Problem dual_exponential{.name = "dual_exponential", .rows = {{0}, {-1}, {0}}, .b = {-1, 0, 1}, .c = {1},
                                   .dual_exp_triples = 1, .objective = -1.0, .x = {-1}};
    // max z with (1, 4, z) in the power cone of exponent 1/2: |z| <= 2.
    const Problem power{.name = "power", .rows = {{0}, {0}, {-1}}, .b = {1, 4, 0}, .c = {-1}, .power = {0.5},
                         .objective = -2.0, .x = {2}};
    // max w with (1, 4, w) in the dual of the power cone of exponent 1/2, listed with the
    // exponent -1/2: 2 sqrt(1 * 4) >= |w|.
    const Problem dual_power{.name = "dual_power", .rows = {{0}, {0}, {-1}}, .b = {1, 4, 0}, .c = {-1}, .power = {-0.5},
                             .objective = -4.0, .x = {4}};
    // max x^0.3 y^0.7 on x + y <= 2: the optimum splits the budget as the weights, (0.6, 1.4).
    const Problem power_mean{.name = "power_mean", .rows = {{1, 1, 0}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}},
                                         .b = {2, 0, 0, 0}, .c = {0, 0, -1}, .linear_vars = 1, .power = {0.3},
                                         .objective = -mean, .x = {0.6, 1.4, mean}};
    return {lp, lp_equality, disc, half_plane, sd2, sd3,
            sd_product, exponential, dual_exponential, power, dual_power, power_mean,
            combine("mixed_lp_socp_sdp", {lp, half_plane, sd_product}),
            combine("mixed_all_families", {lp_equality, disc, sd3, exponential,
                                           dual_exponential, power, dual_power})};
}

std::vector<Problem> infeasibleProblems() {
    return {{.name = "infeasible_lp", .rows = {{-1}, {1}}, .b = {-1, 0}, .c = {1}, .linear_vars = 2},
            {.name = "infeasible_disc", .rows = {{-1, 0}, {0, 0}, {-1, 0}, {0, -1}}, .b = {-2, 1, 0, 0}, .c = {1, 1},
             .linear_vars = 1, .soc = {3}}};
}

std::vector<Problem> unboundedProblems() {
    return {{.name = "unbounded_lp", .rows = {{-1}}, .b = {0}, .c = {-1}, .linear_vars = 1},
            {.name = "unbounded_wedge", .rows = {{-1, 0}, {0, -1}}, .b = {0, 0}, .c = {-1, 0}, .soc = {2}}};
}

std::vector<double> primalResidual(const SolveRun& run) {
    std::vector<double> r(run.data.m);
    for (int i = 0; i < run.data.m; ++i) r[i] = run.solution.s[i] - run.data.b[i];
    for (int j = 0; j < run.data.n; ++j) {
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

bool allNaN(const double* values, std::size_t count) {
    return std::all_of(values, values + count, [](double value) { return std::isnan(value); });
}

double distanceToDualCone(const SolveRun& run, const double* y) {
    return projectionDistance(run, std::vector<double>(y, y + run.data.m), true);
}

double distanceToCone(const SolveRun& run, const double* s) {
    // dist(s, K) = |P_{K*}(-s)| by the Moreau decomposition.
    std::vector<double> minus(run.data.m);
    for (int i = 0; i < run.data.m; ++i) minus[i] = -s[i];
    return projectionDistance(run, minus, false);
}

long expectEveryAllocationFailureReported(const std::function<bool()>& attempt) {
    for (long k = 1;; ++k) {
        failAllocationAt(k);
        const bool succeeded = attempt();
        const bool failed = allocationFailureFired();
        failAllocationAt(0);
        EXPECT_EQ(succeeded, !failed) << "allocation " << k;
        if (!failed) return k - 1;
    }
}
