#include "generated_problems.h"

#include <algorithm>
#include <cmath>
#include <random>

using Columns = std::vector<std::vector<std::pair<int, double>>>;

void GeneratedProblem::finish(Columns& columns) {
    n = static_cast<int>(columns.size());
    m = static_cast<int>(b.size());
    starts.assign(1, 0);
    for (auto& column : columns) {
        std::sort(column.begin(), column.end());
        for (auto [row, value] : column) {
            rows.push_back(row);
            values.push_back(value);
        }
        starts.push_back(static_cast<int>(rows.size()));
    }
    A = SparseMatrix{values.data(), rows.data(), starts.data(), m, n};
    setDefaultSettings(&settings);
    settings.verbose = 0;
    data = Data{m, n, &A, b.data(), c.data(), &settings};
    cone = Cone{free_vars,
                linear_vars,
                soc.empty() ? nullptr : soc.data(),
                static_cast<int>(soc.size()),
                sd.empty() ? nullptr : sd.data(),
                static_cast<int>(sd.size()),
                exp_triples,
                0,
                power.empty() ? nullptr : power.data(),
                static_cast<int>(power.size())};
}

std::unique_ptr<GeneratedProblem> totalVariation(int side) {
    auto g = std::make_unique<GeneratedProblem>();
    g->name = "tv_" + std::to_string(side);
    const int P = side * side;
    std::mt19937_64 engine(7);
    std::normal_distribution<double> noise(0.0, 0.3);
    Columns columns(2 * P);  // x, then t
    g->b.assign(5 * P, 0.0);  // the box rows, then a second-order block per pixel
    for (int p = 0; p < P; ++p) {
        const int r = p / side, q = p % side;
        const double f = std::sin(0.05 * r) + std::cos(0.07 * q) + noise(engine);
        columns[p].push_back({2 * p, 1.0});  //  x_p - f_p <= 1
        g->b[2 * p] = 1.0 + f;
        columns[p].push_back({2 * p + 1, -1.0});  // f_p - x_p <= 1
        g->b[2 * p + 1] = 1.0 - f;
        const int block = 2 * P + 3 * p;  // s = (t_p, x_right - x_p, x_down - x_p)
        columns[P + p].push_back({block, -1.0});
        if (q + 1 < side) {
            columns[p].push_back({block + 1, 1.0});
            columns[p + 1].push_back({block + 1, -1.0});
        }
        if (r + 1 < side) {
            columns[p].push_back({block + 2, 1.0});
            columns[p + side].push_back({block + 2, -1.0});
        }
    }
    g->c.assign(2 * P, 0.0);
    std::fill(g->c.begin() + P, g->c.end(), 1.0);
    g->linear_vars = 2 * P;
    g->soc.assign(P, 3);
    g->finish(columns);
    return g;
}

std::unique_ptr<GeneratedProblem> randomLp(int m, int n, std::uint32_t seed) {
    auto g = std::make_unique<GeneratedProblem>();
    g->name = "lp_" + std::to_string(m) + "x" + std::to_string(n);
    std::mt19937_64 engine(seed);
    std::normal_distribution<double> normal;
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    Columns columns(n);
    // About 6 entries per column, plus a dense-ish band so that no row is empty.
    for (int j = 0; j < n; ++j) {
        for (int k = 0; k < 6; ++k) columns[j].push_back({static_cast<int>(uniform(engine) * m), normal(engine)});
        columns[j].push_back({j % m, 1.0 + uniform(engine)});
    }
    for (auto& column : columns) {  // merge duplicate rows
        std::sort(column.begin(), column.end());
        Columns::value_type merged;
        for (auto e : column) {
            if (!merged.empty() && merged.back().first == e.first) merged.back().second += e.second;
            else merged.push_back(e);
        }
        column = merged;
    }
    // b = A x0 + s0 and c = -A'y0 with s0, y0 >= 0 complementary: both problems feasible.
    std::vector<double> x0(n), s0(m), y0(m);
    for (double& v : x0) v = normal(engine);
    for (int i = 0; i < m; ++i) {
        if (uniform(engine) < 0.5) s0[i] = uniform(engine);
        else y0[i] = uniform(engine);
    }
    g->b = s0;
    g->c.assign(n, 0.0);
    for (int j = 0; j < n; ++j) {
        for (auto [row, value] : columns[j]) {
            g->b[row] += value * x0[j];
            g->c[j] -= value * y0[row];
        }
    }
    g->linear_vars = m;
    g->finish(columns);
    return g;
}

std::unique_ptr<GeneratedProblem> maxCut(int nodes, std::uint32_t seed) {
    auto g = std::make_unique<GeneratedProblem>();
    g->name = "maxcut_" + std::to_string(nodes);
    std::mt19937_64 engine(seed);
    std::uniform_real_distribution<double> uniform(0.0, 1.0);
    // Variables: the packed X (lower triangle by columns, off-diagonals times sqrt(2)).
    const int n = nodes * (nodes + 1) / 2;
    auto index = [&](int i, int j) { return j * nodes - j * (j - 1) / 2 + (i - j); };  // i >= j
    std::vector<double> laplacian(nodes * nodes, 0.0);
    for (int i = 0; i < nodes; ++i) {
        for (int j = 0; j < i; ++j) {
            if (uniform(engine) < 0.3) {
                laplacian[i * nodes + j] = laplacian[j * nodes + i] = -1.0;
                laplacian[i * nodes + i] += 1.0;
                laplacian[j * nodes + j] += 1.0;
            }
        }
    }
    g->c.assign(n, 0.0);  // minimise -<L, X> / 4, in packed variables
    for (int j = 0; j < nodes; ++j) {
        for (int i = j; i < nodes; ++i) {
            const double scale = i == j ? 1.0 : std::sqrt(2.0);
            g->c[index(i, j)] = -laplacian[i * nodes + j] * scale / 4.0;
        }
    }
    Columns columns(n);
    g->b.assign(nodes + n, 0.0);
    for (int i = 0; i < nodes; ++i) {  // X_ii = 1
        columns[index(i, i)].push_back({i, 1.0});
        g->b[i] = 1.0;
    }
    for (int k = 0; k < n; ++k) columns[k].push_back({nodes + k, -1.0});  // s = packed X
    g->free_vars = nodes;
    g->sd = {nodes};
    g->finish(columns);
    return g;
}

std::unique_ptr<GeneratedProblem> entropy(int n, int constraints, std::uint32_t seed) {
    auto g = std::make_unique<GeneratedProblem>();
    g->name = "entropy_" + std::to_string(n);
    std::mt19937_64 engine(seed);
    std::normal_distribution<double> normal;
    // Variables x (n), t (n). Rows: sum x = 1; F x <= F (1/n) + 0.1 (uniform point strictly
    // feasible); one triple (-t_i, x_i, 1) per i: x_i exp(-t_i / x_i) <= 1, i.e. t_i >= x_i log x_i.
    Columns columns(2 * n);
    g->b.assign(1 + constraints + 3 * n, 0.0);
    for (int j = 0; j < n; ++j) columns[j].push_back({0, 1.0});
    g->b[0] = 1.0;
    for (int r = 0; r < constraints; ++r) {
        double row_sum = 0.0;
        for (int j = 0; j < n; ++j) {
            const double f = normal(engine);
            columns[j].push_back({1 + r, f});
            row_sum += f;
        }
        g->b[1 + r] = row_sum / n + 0.1;
    }
    for (int i = 0; i < n; ++i) {
        const int row = 1 + constraints + 3 * i;
        columns[n + i].push_back({row, 1.0});      // r = -t_i
        columns[i].push_back({row + 1, -1.0});     // s = x_i
        g->b[row + 2] = 1.0;                       // t = 1
    }
    g->c.assign(2 * n, 0.0);
    std::fill(g->c.begin() + n, g->c.end(), 1.0);
    g->free_vars = 1;
    g->linear_vars = constraints;
    g->exp_triples = n;
    g->finish(columns);
    return g;
}
