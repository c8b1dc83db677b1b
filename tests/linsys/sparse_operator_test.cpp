// Products with A and A', the deep copy, and the equilibration with its bounds.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "linsys_fixtures.h"
#include "support/problems.h"

using namespace korvex;

namespace {

using V = std::vector<double>;

TEST(SparseOperator, ProductsAddToYAsTheDenseProductDoes) {
    for (auto [m, n] : {std::pair{7, 4}, std::pair{3, 9}, std::pair{6, 6}, std::pair{1, 1}, std::pair{0, 3}}) {
        TestMatrix A = randomMatrix(m, n, 0.5, 11u * m + n);
        const V dense = denseMatrix(A.get()), x = randomVector(n, 1), w = randomVector(m, 2);
        V y = randomVector(m, 3), z = randomVector(n, 4), y_expected = y, z_expected = z;
        for (int r = 0; r < m; ++r) {
            for (int j = 0; j < n; ++j) {
                y_expected[r] += dense[r * n + j] * x[j];
                z_expected[j] += dense[r * n + j] * w[r];
            }
        }
        multiplyAddA(A.get(), x.data(), y.data());
        multiplyAddAt(A.get(), w.data(), z.data());
        for (int r = 0; r < m; ++r) EXPECT_NEAR(y[r], y_expected[r], 1e-14) << m << "x" << n;
        for (int j = 0; j < n; ++j) EXPECT_NEAR(z[j], z_expected[j], 1e-14) << m << "x" << n;
    }

    // A' sums in stored order from the present value: column 0 adds 1 and 1 to 1e16 one at
    // a time, each rounding back to 1e16 (the pair first would give 1e16 + 2). Column 1 is
    // empty, so its -0.0 must stay -0.0 (adding a zero would make it +0.0).
    TestMatrix B = matrixFromColumns(2, {{{0, 1.0}, {1, 1.0}}, {}});
    const double ones[] = {1.0, 1.0};
    double y[] = {1e16, -0.0};
    multiplyAddAt(B.get(), ones, y);
    EXPECT_EQ(y[0], 1e16);
    EXPECT_TRUE(std::signbit(y[1]));
}

TEST(SparseOperator, CopyIsDeepAndEveryFailedAllocationGivesNull) {
    TestMatrix A = randomMatrix(5, 4, 0.6, 7);
    TestMatrix empty = matrixFromColumns(3, {{}, {}});  // null value and index arrays
    for (TestMatrix* source : {&A, &empty}) {
        SparseMatrix* copy = copyMatrix(source->get());
        ASSERT_NE(copy, nullptr);
        EXPECT_TRUE(copy->m == source->m && copy->p != source->p.data());
        EXPECT_EQ(std::vector<int>(copy->p, copy->p + source->n + 1), source->p);
        EXPECT_EQ(std::vector<int>(copy->i, copy->i + source->i.size()), source->i);
        EXPECT_EQ(V(copy->x, copy->x + source->x.size()), source->x);
        freeMatrix(copy);
    }
    freeMatrix(nullptr);
    expectEveryAllocationFailureReported([&] {
        SparseMatrix* copy = copyMatrix(A.get());
        freeMatrix(copy);
        return copy != nullptr;
    });
}

// normalizeMatrix on a copy of A for cone; the caller releases the copy.
SparseMatrix* normalisedCopy(TestMatrix& A, const Cone& cone, double scale, Scaling* scaling) {
    Settings settings = testSettings(1.0, 1, 1);
    settings.scale = scale;
    SparseMatrix* copy = copyMatrix(A.get());
    EXPECT_EQ(normalizeMatrix(copy, &settings, &cone, scaling), 0);
    return copy;
}

V rowScale(const Scaling& s, int m) { return V(s.row_scale.get(), s.row_scale.get() + m); }

TEST(Normalisation, WorkedCaseOfTwoNonNegativeRows) {
    TestMatrix A = matrixFromColumns(2, {{{0, 3.0}, {1, 4.0}}});
    Scaling scaling{};
    SparseMatrix* result = normalisedCopy(A, Cone{0, 2, nullptr, 0, nullptr, 0, 0, 0, nullptr, 0}, 1.0, &scaling);
    EXPECT_EQ(rowScale(scaling, 2), (V{3.0, 4.0}));
    EXPECT_EQ(scaling.col_scale[0], std::sqrt(2.0));
    EXPECT_DOUBLE_EQ(result->x[0], std::sqrt(0.5));
    EXPECT_DOUBLE_EQ(result->x[1], std::sqrt(0.5));
    EXPECT_DOUBLE_EQ(scaling.mean_row_norm, std::sqrt(0.5));
    EXPECT_DOUBLE_EQ(scaling.mean_col_norm, 1.0);
    freeMatrix(result);
}

TEST(Normalisation, ResultIsScaleTimesDInverseAEInverseWithOneFactorPerConeBlock) {
    // Rows: 2 free, 3 linear, second-order blocks of 4 and 2, one 2 x 2 semidefinite
    // block (3 rows) and one exponential triple: 17 rows.
    int soc[] = {4, 2}, sd[] = {2};
    const Cone cone{2, 3, soc, 2, sd, 1, 1, 0, nullptr, 0};
    const int m = 17, n = 9;
    TestMatrix A = randomMatrix(m, n, 0.4, 2024);
    Scaling unit{}, scaled{};
    SparseMatrix* result = normalisedCopy(A, cone, 1.0, &unit);
    SparseMatrix* result_scaled = normalisedCopy(A, cone, 2.5, &scaled);
    const double *D = unit.row_scale.get(), *E = unit.col_scale.get();
    // The means are over the stored entries, a duplicate counting as an entry of its own.
    V row_squares(m, 0.0), col_squares(n, 0.0);
    for (int j = 0; j < n; ++j) {
        for (int q = A.p[j]; q < A.p[j + 1]; ++q) {
            const double value = result->x[q];
            EXPECT_NEAR(value, A.x[q] / D[A.i[q]] / E[j], 1e-15 * (1.0 + std::fabs(value)));
            EXPECT_EQ(result_scaled->x[q], value * 2.5);  // scale comes last
            row_squares[A.i[q]] += value * value;
            col_squares[j] += value * value;
        }
    }
    for (auto [first, last] : {std::pair{5, 9}, std::pair{9, 11}, std::pair{11, 14}, std::pair{14, 17}}) {
        for (int r = first; r < last; ++r) EXPECT_EQ(D[r], D[first]) << "row " << r;
    }
    double row_norms = 0.0, col_norms = 0.0;
    for (double sum : row_squares) row_norms += std::sqrt(sum);
    for (double sum : col_squares) col_norms += std::sqrt(sum);
    EXPECT_NEAR(unit.mean_row_norm, row_norms / m, 1e-14);
    EXPECT_NEAR(unit.mean_col_norm, col_norms / n, 1e-14);
    // scale leaves the factors and the means alone.
    EXPECT_EQ(rowScale(unit, m), rowScale(scaled, m));
    EXPECT_TRUE(scaled.mean_row_norm == unit.mean_row_norm && scaled.mean_col_norm == unit.mean_col_norm);
    freeMatrix(result);
    freeMatrix(result_scaled);
}

TEST(Normalisation, NormsOutsideTheBoundsAreClampedToThem) {
    // 4 rows, 100 columns: min_row 0.01, max_row 1e4, min_col 0.002, max_col 2000.
    const double min_row = 0.001 * std::sqrt(100.0);
    std::vector<std::vector<std::pair<int, double>>> columns(100);
    columns[0] = {{1, 0.005}};    // row 1 below min_row: factor 1; column then 0.005
    columns[1] = {{1, 0.001}};    // column below min_col: factor 1
    columns[2] = {{2, min_row}};  // row 2 exactly at min_row: divided by it
    columns[3] = {{3, 1e5}};      // row 3 above max_row: factor max_row; column then 10
    TestMatrix A = matrixFromColumns(4, columns);
    Scaling scaling{};
    SparseMatrix* result = normalisedCopy(A, Cone{0, 4, nullptr, 0, nullptr, 0, 0, 0, nullptr, 0}, 1.0, &scaling);
    EXPECT_EQ(rowScale(scaling, 4), (V{1.0, 1.0, min_row, 1e4}));
    EXPECT_EQ(V(scaling.col_scale.get(), scaling.col_scale.get() + 5), (V{0.005, 1.0, 1.0, 10.0, 1.0}));  // 4: empty
    EXPECT_EQ(result->x[1], 0.001);
    freeMatrix(result);

    // A second-order block with row norms 3, 0, 0 gets their mean, 1, on every row; a
    // record without zero or non-negative rows groups from row 0.
    int three[] = {3}, two[] = {2};
    const struct {
        Cone cone;
        TestMatrix A;
        V D;
    } cases[] = {{{1, 0, three, 1, nullptr, 0, 0, 0, nullptr, 0}, matrixFromColumns(4, {{{0, 5.0}, {1, 3.0}}}),
                  {5.0, 1.0, 1.0, 1.0}},
                 {{0, 0, two, 1, nullptr, 0, 0, 0, nullptr, 0}, matrixFromColumns(2, {{{0, 2.0}, {1, 4.0}}}), {3.0, 3.0}}};
    for (auto c : cases) {
        Scaling block{};
        freeMatrix(normalisedCopy(c.A, c.cone, 1.0, &block));
        EXPECT_EQ(rowScale(block, c.A.m), c.D);
    }
}

TEST(Normalisation, NaNStaysInTheFactorsItTouchesAndFailuresChangeNothing) {
    TestMatrix A = matrixFromColumns(3, {{{0, std::numeric_limits<double>::quiet_NaN()}, {1, 2.0}}, {{2, 3.0}}});
    const Cone linear{0, 3, nullptr, 0, nullptr, 0, 0, 0, nullptr, 0};
    Scaling scaling{};
    SparseMatrix* result = normalisedCopy(A, linear, 1.0, &scaling);
    EXPECT_TRUE(std::isnan(scaling.row_scale[0]) && std::isnan(scaling.col_scale[0]));
    EXPECT_TRUE(std::isnan(result->x[1]));  // row 1 shares the column of the NaN
    EXPECT_EQ(scaling.row_scale[2], 3.0);
    EXPECT_EQ(result->x[2], 1.0);  // the other column is untouched by it
    freeMatrix(result);

    // A failed allocation leaves the matrix and the scaling as they were.
    TestMatrix B = randomMatrix(6, 5, 0.5, 99);
    const Cone six{0, 6, nullptr, 0, nullptr, 0, 0, 0, nullptr, 0};
    Settings settings = testSettings(1.0, 1, 1);
    expectEveryAllocationFailureReported([&] {
        Scaling attempt{};
        TestMatrix copy = B;
        if (normalizeMatrix(copy.get(), &settings, &six, &attempt) == 0) return true;
        EXPECT_EQ(copy.x, B.x);
        EXPECT_FALSE(attempt.row_scale || attempt.col_scale);
        return false;
    });
}

}  // namespace
