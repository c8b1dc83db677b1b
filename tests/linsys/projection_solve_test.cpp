// Solves with the factors, the first iterate (cold and warm, in both iterations), the
// projection step against (M + Q) t = M w, and the report texts.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <string>

#include "linsys_fixtures.h"
#include "support/capture.h"

using namespace korvex;

namespace {

// The fixture of a solve over random data with rows of the non-negative cone.
std::unique_ptr<WorkFixture> randomWork(int m, int n, double rho_x, int normalize, int do_super_korvex,
                                        std::uint32_t seed) {
    return std::make_unique<WorkFixture>(randomMatrix(m, n, 0.4, seed), randomVector(m, seed + 1),
                                         randomVector(n, seed + 2), testSettings(rho_x, normalize, do_super_korvex));
}

TEST(ProjectionSolve, EveryStepSolvesMPlusQ) {
    std::uint32_t seed = 40;
    for (double rho_x : {1e-3, 1.0, 10.0}) {
        for (auto [m, n] : {std::pair{10, 4}, std::pair{3, 8}, std::pair{6, 6}}) {
            for (int normalize : {0, 1}) {
                SCOPED_TRACE(testing::Message() << m << "x" << n << " rho_x " << rho_x << " normalize " << normalize);
                auto marlet = randomWork(m, n, rho_x, normalize, 1, seed);
                auto standard = randomWork(m, n, rho_x, normalize, 0, seed++);
                Work* w = marlet->work;
                const int l = w->l;
                startVectors(&marlet->data, w, nullptr);
                startVectors(&standard->data, standard->work, nullptr);
                const std::vector<double> B = marlet->denseMPlusQ();

                // g is K^-1 h with the y block negated.
                std::vector<double> g(w->g.get(), w->g.get() + l - 1);
                for (int i = w->n; i < l - 1; ++i) g[i] = -g[i];
                EXPECT_LT(relativeResidual(denseSystemMatrix(w->A, rho_x), g.data(), w->h.get(), l - 1), 1e-12);

                const std::vector<double> source = randomVector(l, seed), untouched = source;
                std::vector<double> weighted = source, target(l), in_place = source;
                for (int j = 0; j < n; ++j) weighted[j] *= rho_x;
                failAllocationAt(0);
                projectLinSysv2(target.data(), source.data(), w, 1);
                projectLinSysv2(in_place.data(), in_place.data(), w, 2);
                EXPECT_LT(relativeResidual(B, target.data(), weighted.data(), l), 1e-12);
                EXPECT_EQ(source, untouched);
                EXPECT_EQ(std::memcmp(target.data(), in_place.data(), sizeof(double) * l), 0);

                // The standard step projects u + v into u_t.
                Work* s = standard->work;
                const std::vector<double> u = randomVector(l, seed + 7), v = randomVector(l, seed + 8);
                std::memcpy(s->u.get(), u.data(), sizeof(double) * l);
                std::memcpy(s->v.get(), v.data(), sizeof(double) * l);
                projectLinSys(s, 1);
                EXPECT_EQ(allocationCount(), 0);
                std::vector<double> sum(l);
                for (int k = 0; k < l; ++k) sum[k] = (u[k] + v[k]) * (k < n ? rho_x : 1.0);
                EXPECT_LT(relativeResidual(standard->denseMPlusQ(), s->u_t.get(), sum.data(), l), 1e-12);
            }
        }
    }
}

TEST(ProjectionSolve, StartVectorsNormaliseBAndCAndStartCold) {
    // The equilibration's worked case, A = (3, 4): D = (3, 4), E = sqrt(2), mean row
    // norm sqrt(1/2), mean column norm 1. With b = (3, 8) and c = (2): D^-1 b = (1, 2)
    // gives b_factor 1 / sqrt(5); E^-1 c = sqrt(2) gives c_factor 1/2.
    WorkFixture fixture(matrixFromColumns(2, {{{0, 3.0}, {1, 4.0}}}), {3.0, 8.0}, {2.0}, testSettings(1.0, 1, 0));
    Work* w = fixture.work;
    EXPECT_EQ(startVectors(&fixture.data, w, nullptr), 0);
    EXPECT_EQ(w->b_norm, std::sqrt(73.0));
    EXPECT_EQ(w->c_norm, 2.0);
    EXPECT_DOUBLE_EQ(w->b_factor, 1.0 / std::sqrt(5.0));
    EXPECT_DOUBLE_EQ(w->c_factor, 0.5);
    EXPECT_DOUBLE_EQ(w->b[0], 1.0 / std::sqrt(5.0));
    EXPECT_DOUBLE_EQ(w->b[1], 2.0 / std::sqrt(5.0));
    EXPECT_DOUBLE_EQ(w->c[0], std::sqrt(0.5));
    EXPECT_EQ(fixture.b[0], 3.0);  // the caller's vectors stay as they were
    const double cold[] = {0.0, 0.0, 0.0, 2.0};  // sqrt(l) with l = 4
    EXPECT_EQ(std::memcmp(w->u.get(), cold, sizeof cold), 0);
    EXPECT_EQ(std::memcmp(w->v.get(), cold, sizeof cold), 0);
    EXPECT_EQ(w->h[0], w->c[0]);
    EXPECT_EQ(w->h[2], w->b[1]);

    // A zero b stays zero under the factor mean_col_norm / 0.001; a NaN norm counts as 0.001.
    for (double entry : {0.0, std::numeric_limits<double>::quiet_NaN()}) {
        WorkFixture floor(matrixFromColumns(2, {{{0, 3.0}, {1, 4.0}}}), {entry, 0.0}, {2.0}, testSettings(1.0, 1, 1));
        startVectors(&floor.data, floor.work, nullptr);
        EXPECT_DOUBLE_EQ(floor.work->b_factor, floor.work->scaling->mean_col_norm / 0.001);
        EXPECT_EQ(floor.work->b[1], 0.0);
        EXPECT_EQ(floor.work->u[3], 2.0);
    }

    // Without normalisation b and c are copied and the factors stay 0.
    WorkFixture plain(matrixFromColumns(1, {{{0, 2.0}}}), {5.0}, {-1.0}, testSettings(0.5, 0, 1));
    startVectors(&plain.data, plain.work, nullptr);
    EXPECT_EQ(plain.work->b[0], 5.0);
    EXPECT_EQ(plain.work->c[0], -1.0);
    EXPECT_EQ(plain.work->b_factor, 0.0);
    EXPECT_EQ(plain.work->u[2], std::sqrt(3.0));
}

TEST(ProjectionSolve, StandardWarmStartMapsTheCallersPointIntoNormalisedUnits) {
    const double inf = std::numeric_limits<double>::infinity();
    const double nan = std::numeric_limits<double>::quiet_NaN();
    double x[] = {0.5, -1.5, inf}, y[] = {2.0, nan, -0.25, 1.0}, s[] = {0.1, 0.2, nan, 0.4};
    const Solution solution{x, y, s};
    for (int normalize : {0, 1}) {
        Settings settings = testSettings(1.0, normalize, 0);
        settings.warm_start = 1;
        settings.scale = 3.0;
        WorkFixture fixture(randomMatrix(4, 3, 0.8, 8), randomVector(4, 1), randomVector(3, 2), settings);
        Work* w = fixture.work;
        startVectors(&fixture.data, w, &solution);
        // Back in the caller's units: x = xn / (E b_factor), y = yn / (D c_factor),
        // s = (D / (scale b_factor)) sn; every factor is 1 without normalisation.
        for (int j = 0; j < 3; ++j) {
            const double factor = normalize ? w->scaling->col_scale[j] * w->b_factor : 1.0;
            EXPECT_DOUBLE_EQ(w->u[j] / factor, x[j]);
        }
        for (int i = 0; i < 4; ++i) {
            const double D = normalize ? w->scaling->row_scale[i] : 1.0;
            const double y_factor = normalize ? D * w->c_factor : 1.0;
            const double s_factor = normalize ? D / (3.0 * w->b_factor) : 1.0;
            EXPECT_DOUBLE_EQ(w->u[3 + i] / y_factor, std::isnan(y[i]) ? 0.0 : y[i]);
            EXPECT_DOUBLE_EQ(s_factor * w->v[3 + i], std::isnan(s[i]) ? 0.0 : s[i]);
        }
        EXPECT_EQ(w->u[7], 1.0);
        EXPECT_EQ(w->v[7], 0.0);
        for (int j = 0; j < 3; ++j) EXPECT_EQ(w->v[j], 0.0);
    }
}

TEST(ProjectionSolve, MarletWarmStartIsTheIterateWhoseProjectionIsThePoint) {
    // u = (I + Q) u_t; with rho_x = 1, M = I, so the projection of u gives u_t back.
    const std::vector<double> x = randomVector(5, 3), y = randomVector(7, 4);
    const Solution solution{const_cast<double*>(x.data()), const_cast<double*>(y.data()), nullptr};
    Settings settings = testSettings(1.0, 1, 1);
    settings.warm_start = 1;
    WorkFixture fixture(randomMatrix(7, 5, 0.5, 31), randomVector(7, 5), randomVector(5, 6), settings);
    Work* w = fixture.work;
    failAllocationAt(0);
    startVectors(&fixture.data, w, &solution);
    EXPECT_EQ(allocationCount(), 0);
    const int l = w->l;
    const std::vector<double> start(w->u_t.get(), w->u_t.get() + l);
    EXPECT_EQ(start[l - 1], 1.0);
    EXPECT_DOUBLE_EQ(start[0], x[0] * w->scaling->col_scale[0] * w->b_factor);

    const std::vector<double> B = fixture.denseMPlusQ();  // = I + Q
    EXPECT_LT(relativeResidual(B, start.data(), w->u.get(), l), 1e-14);
    std::vector<double> back(l);
    projectLinSysv2(back.data(), w->u.get(), w, 0);
    for (int k = 0; k < l; ++k) EXPECT_NEAR(back[k], start[k], 1e-12 * (1.0 + std::fabs(start[k])));
}

TEST(ProjectionSolve, WarmStartWithoutItsPointWarnsAndStartsCold) {
    double x[] = {1.0}, y[] = {2.0};
    const Solution without_s{x, y, nullptr};
    Settings settings = testSettings(1.0, 0, 0);
    settings.warm_start = 1;
    WorkFixture fixture(matrixFromColumns(1, {{{0, 2.0}}}), {1.0}, {1.0}, settings);
    EXPECT_EQ(warmStartVectors(fixture.work, &without_s), -1);
    EXPECT_EQ(warmStartVectors(fixture.work, nullptr), -1);
    CapturedOutput out;
    EXPECT_EQ(startVectors(&fixture.data, fixture.work, &without_s), 0);
    EXPECT_EQ(out.finish(), "WARNING: warm start requested without a start point, starting cold\n");
    EXPECT_EQ(fixture.work->u[0], 0.0);
    EXPECT_EQ(fixture.work->v[2], std::sqrt(3.0));
}

TEST(ProjectionSolve, MethodAndSummaryTexts) {
    // No fill: L holds the Anz = 3 entries of A, a stored zero among them, and the
    // summary counts the 7 pivots as well.
    TestMatrix A = matrixFromColumns(3, {{{2, 1.5}}, {{0, 0.0}}, {{1, -2.0}}, {}});
    Settings settings = testSettings(1.0, 0, 0);
    Factor f(initPriv(A.get(), &settings));
    ASSERT_TRUE(f);
    char* method = linSysMethodText(A.get());
    EXPECT_STREQ(method, "sparse-direct, nnz in A = 3");
    releaseMemory(method);

    // The average is over info->iter + 1 iterations, and a summary resets the time.
    Info info{};
    const struct {
        int iter;
        double solve_time_ms;
        const char* seconds;
    } cases[] = {{4, 2500.0, "5.00e-01"}, {0, 1500.0, "1.50e+00"}, {0, 0.0, "0.00e+00"}};
    for (const auto& c : cases) {
        info.iter = c.iter;
        if (c.solve_time_ms > 0.0) f->solve_time_ms = c.solve_time_ms;
        char* summary = linSysSummaryText(f.get(), &info);
        const std::string expected = std::string("\tLin-sys: nnz in L factor: 10, avg solve time: ") + c.seconds;
        EXPECT_EQ(std::string(summary), expected + "s\n");
        EXPECT_EQ(f->solve_time_ms, 0.0);
        releaseMemory(summary);
    }
}

}  // namespace
