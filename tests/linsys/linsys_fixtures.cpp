#include "linsys_fixtures.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

using namespace korvex;

TestMatrix matrixFromColumns(int m, const std::vector<std::vector<std::pair<int, double>>>& columns) {
    TestMatrix A;
    A.m = m;
    A.n = static_cast<int>(columns.size());
    for (const auto& column : columns) {
        for (const auto& [row, value] : column) {
            A.i.push_back(row);
            A.x.push_back(value);
        }
        A.p.push_back(static_cast<int>(A.i.size()));
    }
    return A;
}

TestMatrix randomMatrix(int m, int n, double density, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0), chance(0.0, 1.0);
    const int empty_row = m >= 2 ? static_cast<int>(random() % m) : -1;
    const int empty_column = n >= 2 ? static_cast<int>(random() % n) : -1;
    std::vector<std::vector<std::pair<int, double>>> columns(n);
    for (int j = 0; j < n; ++j) {
        if (j == empty_column) continue;
        for (int r = 0; r < m; ++r) {
            if (r == empty_row || chance(random) >= density) continue;
            const double draw = chance(random);
            columns[j].emplace_back(r, draw < 0.05 ? 0.0 : value(random));  // a stored zero
            if (draw > 0.95) columns[j].emplace_back(r, value(random));      // stored twice
        }
        std::shuffle(columns[j].begin(), columns[j].end(), random);  // rows need no order
    }
    return matrixFromColumns(m, columns);
}

std::vector<double> denseMatrix(const SparseMatrix* A) {
    std::vector<double> dense(A->m * A->n, 0.0);
    for (int j = 0; j < A->n; ++j) {
        for (int q = A->p[j]; q < A->p[j + 1]; ++q) dense[A->i[q] * A->n + j] += A->x[q];
    }
    return dense;
}

std::vector<double> denseSystemMatrix(const SparseMatrix* A, double rho_x) {
    const int n = A->n, N = n + A->m;
    const std::vector<double> dense = denseMatrix(A);
    std::vector<double> K(N * N, 0.0);
    for (int j = 0; j < n; ++j) K[j * N + j] = rho_x;
    for (int r = 0; r < A->m; ++r) {
        for (int j = 0; j < n; ++j) K[(n + r) * N + j] = K[j * N + n + r] = dense[r * n + j];
        K[(n + r) * N + n + r] = -1.0;
    }
    return K;
}

std::vector<double> randomVector(int n, std::uint32_t seed) {
    std::mt19937 random(seed);
    std::uniform_real_distribution<double> value(-1.0, 1.0);
    std::vector<double> v(n);
    for (double& entry : v) entry = value(random);
    return v;
}

Settings testSettings(double rho_x, int normalize, int do_super_korvex) {
    Settings settings{};
    setDefaultSettings(&settings);
    settings.verbose = 0;
    settings.rho_x = rho_x;
    settings.normalize = normalize;
    settings.do_super_korvex = do_super_korvex;
    return settings;
}

double relativeResidual(const std::vector<double>& B, const double* t, const double* f, int k) {
    double residual = 0.0, size = 0.0;
    for (int r = 0; r < k; ++r) {
        double entry = -f[r];
        for (int j = 0; j < k; ++j) entry += B[r * k + j] * t[j];
        residual = std::max(residual, std::fabs(entry));
        size = std::max(size, std::fabs(f[r]));
    }
    return residual / size;
}

WorkFixture::WorkFixture(TestMatrix matrix_in, std::vector<double> b_in, std::vector<double> c_in, Settings settings_in)
    : matrix(std::move(matrix_in)), b(std::move(b_in)), c(std::move(c_in)), settings(settings_in) {
    cone.linear_vars = matrix.m;
    data = Data{matrix.m, matrix.n, matrix.get(), b.data(), c.data(), &settings};
    work = initWork(&data, &cone);
    EXPECT_NE(work, nullptr);
}

std::vector<double> WorkFixture::denseMPlusQ() const {
    // The top left block of M + Q is K with its y rows negated: [ rho_x I , A' ; -A , I ].
    const int n = work->n, N = work->n + work->m, l = work->l;
    const std::vector<double> K = denseSystemMatrix(work->A, settings.rho_x);
    std::vector<double> B(l * l, 0.0);
    for (int r = 0; r < N; ++r) {
        for (int j = 0; j < N; ++j) B[r * l + j] = r < n ? K[r * N + j] : -K[r * N + j];
        const double last = r < n ? work->c[r] : work->b[r - n];
        B[r * l + N] = last;   // (c, b)
        B[N * l + r] = -last;  // (-c', -b')
    }
    B[N * l + N] = 1.0;
    return B;
}
