#include "support/problems.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "core/solver.h"
#include "support/capture.h"

SolveRun::SolveRun(const Problem& p) : problem(p) {
    const int m = p.m(), n = p.n();
    starts_.push_back(0);
    for (int j = 0; j < n; ++j) {
        for (int i = 0; i < m; ++i) {
            if (p.rows[i][j] != 0.0) values_.push_back(p.rows[i][j]), rows_.push_back(i);
        }
        starts_.push_back(static_cast<int>(values_.size()));
    }
    A = SparseMatrix{values_.data(), rows_.data(), starts_.data(), m, n};
    setDefaultSettings(&settings);
    useTestSettings(&settings);
    data = Data{m, n, &A, problem.b.data(), problem.c.data(), &settings};
    auto list = [](auto& v) { return v.empty() ? nullptr : v.data(); };
    auto size = [](const auto& v) { return static_cast<int>(v.size()); };
    Problem& q = problem;
    cone = Cone{q.free_vars, q.linear_vars,      list(q.soc),   size(q.soc), list(q.sd),
                size(q.sd),  q.exp_triples, q.dual_exp_triples, list(q.power), size(q.power)};
}

SolveRun::~SolveRun() {
    freeWork(work);
    releaseProgressArrays(&info);
    for (double* v : {solution.x, solution.y, solution.s}) releaseMemory(v);
}

int SolveRun::solve() {
    CapturedOutput out;
    const int status = solveConeProgram(&data, &cone, &solution, &info);
    report = out.finish();
    return status;
}

int SolveRun::iterate() {
    CapturedOutput out;
    work = initWork(&data, &cone);
    auto iteration = settings.do_super_korvex != 0 ? runMarletIteration : runStandardIteration;
    const int status = work != nullptr ? iteration(work, &data, &cone, &solution, &info) : KORVEX_FAILED;
    report = out.finish();
    return status;
}

void useTestSettings(Settings* settings) {
    settings->do_super_korvex = settings->verbose = 0;
    settings->eps = 1e-6, settings->max_iters = 50000;
}

namespace {

// The block-diagonal union of independent problems: rows regrouped by cone family in
// the library's row order, variables concatenated, objectives added.
Problem combine(const std::string& name, const std::vector<Problem>& parts) {
    Problem p{.name = name};
    int n = 0;
    for (const Problem& q : parts) n += q.n();
    for (int f = 0; f < 7; ++f) {
        int column = 0;
        for (const Problem& q : parts) {
            int soc_rows = 0, sd_rows = 0;
            for (int s : q.soc) soc_rows += s;
            for (int s : q.sd) sd_rows += s * (s + 1) / 2;
            const int sizes[7] = {q.free_vars, q.linear_vars, soc_rows, sd_rows, 3 * q.exp_triples,
                                  3 * q.dual_exp_triples, 3 * static_cast<int>(q.power.size())};
            int first = 0;  // the rows of family f in q follow those of the families before it
            for (int g = 0; g < f; ++g) first += sizes[g];
            for (int r = first; r < first + sizes[f]; ++r) {
                p.rows.emplace_back(n, 0.0);
                std::copy(q.rows[r].begin(), q.rows[r].end(), p.rows.back().begin() + column);
                p.b.push_back(q.b[r]);
            }
            column += q.n();
        }
    }
    auto append = [](auto& to, const auto& from) { to.insert(to.end(), from.begin(), from.end()); };
    for (const Problem& q : parts) {
        append(p.c, q.c), append(p.x, q.x), append(p.soc, q.soc), append(p.sd, q.sd), append(p.power, q.power);
        p.objective += q.objective, p.free_vars += q.free_vars, p.linear_vars += q.linear_vars;
        p.exp_triples += q.exp_triples, p.dual_exp_triples += q.dual_exp_triples;
    }
    return p;
}

}  // namespace

std::vector<Problem> knownProblems() {
    const double r2 = std::sqrt(2.0), mean = std::pow(0.6, 0.3) * std::pow(1.4, 0.7);
    // max x1 + x2 on x1 + 2 x2 <= 4, 3 x1 + x2 <= 6, x >= 0: the corner (8/5, 6/5).
    const Problem lp{.name = "lp", .rows = {{1, 2}, {3, 1}, {-1, 0}, {0, -1}}, .b = {4, 6, 0, 0}, .c = {-1, -1},
                     .linear_vars = 4, .objective = -2.8, .x = {1.6, 1.2}};
    // min x1 + 2 x2 + 3 x3 on the simplex: the cheapest vertex.
    const Problem simplex{.name = "lp_equality", .rows = {{1, 1, 1}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}}, .b = {1, 0, 0, 0},
                          .c = {1, 2, 3}, .free_vars = 1, .linear_vars = 3, .objective = 1.0, .x = {1, 0, 0}};
    // min x1 + x2 on the unit disc.
    const Problem disc{.name = "second_order", .rows = {{0, 0}, {-1, 0}, {0, -1}}, .b = {1, 0, 0}, .c = {1, 1},
                       .soc = {3}, .objective = -r2, .x = {-1 / r2, -1 / r2}};
    // min t with |x - (3, 4)| <= t and x1 + x2 <= 1: t = 6 / sqrt(2) at x = (0, 1).
    const Problem half_plane{.name = "second_order_with_linear",
                             .rows = {{1, 1, 0}, {0, 0, -1}, {-1, 0, 0}, {0, -1, 0}}, .b = {1, 0, -3, -4},
                             .c = {0, 0, 1}, .linear_vars = 1, .soc = {3}, .objective = 3 * r2, .x = {0, 1, 3 * r2}};
    // min x with [x 1; 1 x] positive semidefinite: x = 1.
    const Problem sd2{.name = "semidefinite_2", .rows = {{-1}, {0}, {-1}}, .b = {0, r2, 0}, .c = {1}, .sd = {2},
                      .objective = 1.0, .x = {1}};
    // min x with x I + tridiag(1, 0, 1) positive semidefinite: x = sqrt(2), the path graph's top eigenvalue.
    const Problem sd3{.name = "semidefinite_3", .rows = {{-1}, {0}, {0}, {-1}, {0}, {-1}},
                      .b = {0, r2, 0, 0, r2, 0}, .c = {1}, .sd = {3}, .objective = r2, .x = {r2}};
    // min x1 + x2 with [x1 1 0; 1 x2 0; 0 0 1] positive semidefinite, i.e. x1 x2 >= 1.
    const Problem sd_product{.name = "semidefinite_product", .rows = {{-1, 0}, {0, 0}, {0, 0}, {0, -1}, {0, 0}, {0, 0}},
                             .b = {0, r2, 0, 0, 0, 1}, .c = {1, 1}, .sd = {3}, .objective = 2.0, .x = {1, 1}};
    // min x2 - x1 with exp(x1) <= x2, that is (x1, 1, x2) in the exponential cone.
    const Problem exponential{.name = "exponential", .rows = {{-1, 0}, {0, 0}, {0, -1}}, .b = {0, 1, 0},
                              .c = {-1, 1}, .exp_triples = 1, .objective = 1.0, .x = {0, 1}};
    // min x with (-1, x, 1) in the dual exponential cone: exp(-x) <= e, so x >= -1.
    const Problem dual_exponential{.name = "dual_exponential", .rows = {{0}, {-1}, {0}}, .b = {-1, 0, 1}, .c = {1},
                                   .dual_exp_triples = 1, .objective = -1.0, .x = {-1}};
    // max z with (1, 4, z) in the power cone of exponent 1/2: |z| <= 2.
    const Problem power{.name = "power", .rows = {{0}, {0}, {-1}}, .b = {1, 4, 0}, .c = {-1}, .power = {0.5},
                        .objective = -2.0, .x = {2}};
    // max w with (1, 4, w) in the dual of that cone, listed with the exponent -1/2: 2 sqrt(1 * 4) >= |w|.
    const Problem dual_power{.name = "dual_power", .rows = {{0}, {0}, {-1}}, .b = {1, 4, 0}, .c = {-1}, .power = {-0.5},
                             .objective = -4.0, .x = {4}};
    // max x^0.3 y^0.7 on x + y <= 2: the optimum splits the budget as the weights, (0.6, 1.4).
    const Problem power_mean{.name = "power_mean", .rows = {{1, 1, 0}, {-1, 0, 0}, {0, -1, 0}, {0, 0, -1}}, .b = {2, 0, 0, 0},
                             .c = {0, 0, -1}, .linear_vars = 1, .power = {0.3}, .objective = -mean, .x = {0.6, 1.4, mean}};
    return {lp, simplex, disc, half_plane, sd2, sd3, sd_product, exponential, dual_exponential, power, dual_power,
            power_mean, combine("mixed_lp_socp_sdp", {lp, half_plane, sd_product}),
            combine("mixed_all_families", {simplex, disc, sd3, exponential, dual_exponential, power, dual_power})};
}

std::vector<Problem> certificateProblems() {
    // x >= 1 and x <= 0; |(x1, x2)| <= 1 with x1 >= 2; min -x on x >= 0; min -x1 on |x2| <= x1.
    return {{.name = "infeasible_lp", .rows = {{-1}, {1}}, .b = {-1, 0}, .c = {1}, .linear_vars = 2,
             .status = KORVEX_INFEASIBLE},
            {.name = "infeasible_disc", .rows = {{-1, 0}, {0, 0}, {-1, 0}, {0, -1}}, .b = {-2, 1, 0, 0},
             .c = {1, 1}, .linear_vars = 1, .soc = {3}, .status = KORVEX_INFEASIBLE},
            {.name = "unbounded_lp", .rows = {{-1}}, .b = {0}, .c = {-1}, .linear_vars = 1,
             .status = KORVEX_UNBOUNDED},
            {.name = "unbounded_wedge", .rows = {{-1, 0}, {0, -1}}, .b = {0, 0}, .c = {-1, 0}, .soc = {2},
             .status = KORVEX_UNBOUNDED}};
}

double dot(const std::vector<double>& a, const double* b) {
    double sum = 0.0;
    for (std::size_t k = 0; k < a.size(); ++k) sum += a[k] * b[k];
    return sum;
}

bool allNaN(const double* values, std::size_t count) {
    return std::all_of(values, values + count, [](double value) { return std::isnan(value); });
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
