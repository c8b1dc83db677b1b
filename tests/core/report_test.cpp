// The console report of a solve, byte for byte with the times masked: banner and problem
// lines, the progress table with and without the FPR column, the footer of every kind of
// end, the timing line and the settings dump. Every other figure is checked against the
// Info and Solution of the same solve.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "core/solver.h"
#include "kernels/kernels.h"
#include "core/report.h"
#include "support/capture.h"
#include "support/problems.h"

using namespace korvex;

namespace {

const std::string kDashes(85, '-'), kEquals(85, '=');
const std::string kHeader = " Iter | pri res | dua res | rel gap | pri obj | dua obj | kap/tau | time (s)\n";
const std::regex kProgressLine("^ *\\d+\\|");

template <class... Values>
std::string format(const char* pattern, Values... values) {
    char buffer[200];
    std::snprintf(buffer, sizeof buffer, pattern, values...);
    return buffer;
}

// Masks the figures that measure time: the last cell of the progress lines (padded to 9
// and followed by a blank), the setup and solve times, and the two averages of the footer.
std::string maskTimes(const std::string& report) {
    std::istringstream lines(report);
    std::string line, masked;
    while (std::getline(lines, line)) {
        if (std::regex_search(line, kProgressLine)) {
            line.erase(line.find_last_not_of(' ') + 1);
            line.erase(line.find_last_of(' ') + 1);
            line.erase(line.find_last_not_of(' ') + 1);
            line += " <t> ";
        }
        masked += line + (lines.eof() ? "" : "\n");
    }
    for (const auto& [pattern, mask] : {std::pair{"Setup time: \\S+s", "Setup time: <t>s"},
                                        {"Solve time: \\d\\d:\\d\\d:\\d\\d\\.\\d+", "Solve time: <t>"},
                                        {"avg solve time: \\S+s", "avg solve time: <t>s"},
                                        {"avg projection time: \\S+s", "avg projection time: <t>s"}}) {
        masked = std::regex_replace(masked, std::regex(pattern), mask);
    }
    return masked;
}

// The progress rows of a masked report; all figures but the time in the table's format.
std::vector<std::string> progressRows(const std::string& report) {
    std::vector<std::string> rows;
    std::istringstream lines(report);
    const std::regex row("^ *\\d+\\|(?: *-?(?:\\d\\.\\d\\de[+-]\\d{2,3}|nan|inf) ){6}<t> $");
    for (std::string line; std::getline(lines, line);) {
        if (!std::regex_search(line, kProgressLine)) continue;
        EXPECT_TRUE(std::regex_match(line, row)) << line;
        rows.push_back(line + "\n");
    }
    return rows;
}

// The masked text from "Status:" on, of a solve of problem with verbose 1.
std::string footerOf(SolveRun& run, int status) {
    run.settings.verbose = 1;
    EXPECT_EQ(run.solve(), status);
    const std::string report = maskTimes(run.report);
    return report.substr(report.rfind("\nStatus:") + 1);
}

TEST(Report, SolvedStandardSolveFromBannerToFooter) {
    SolveRun run(knownProblems()[0]);  // the LP: four non-negative rows, two variables
    run.settings.verbose = 1;
    ASSERT_EQ(run.solve(), KORVEX_SOLVED);
    const std::string report = maskTimes(run.report);

    // A line at every tenth iteration and one for the last iterate.
    const std::vector<std::string> rows = progressRows(report);
    ASSERT_EQ(static_cast<int>(rows.size()), run.info.iter / 10 + 1 + (run.info.iter % 10 != 0 ? 1 : 0));
    std::string table;
    for (std::size_t k = 0; k < rows.size(); ++k) {
        EXPECT_TRUE(k + 1 == rows.size() || std::stoi(rows[k]) == static_cast<int>(10 * k)) << rows[k];
        table += rows[k];
    }
    // The last line shows the final iterate's figures, as Info reports them.
    EXPECT_EQ(rows.back().substr(0, 57), format("%6i|%9.2e %9.2e %9.2e %9.2e %9.2e ", run.info.iter, run.info.resPri,
                                                run.info.resDual, run.info.relGap, run.info.pobj, run.info.dobj));

    const Settings& s = run.settings;
    const int m = run.data.m;
    const double e = dotProduct(run.solution.s, run.solution.y, m) / normTwo(run.solution.s, m) /
                     normTwo(run.solution.y, m);
    // The factor of K: minimum degree eliminates y3 and y4 (one entry each), then y1
    // and y2 (two each, filling x1-x2), then x1 (one): 7 entries below the unit diagonal
    // of order 6, reported as 13.
    const std::string expected =
        kDashes + "\n\tKorvex v1.2.6-Vrena-Marlet - Tessel Conic Solver\n" +
        "\tOperator splitting on the homogeneous self-dual embedding, by the Korvex developers\n" + kDashes +
        "\nLin-sys: sparse-direct, nnz in A = 6\n" +
        format("eps = %.2e, alpha = %.2f, max_iters = %i, normalize = %i, scale = %2.2f\n", s.eps, s.alpha,
               s.max_iters, s.normalize, s.scale) +
        "Variables n = 2, constraints m = 4\nCones:\tlinear vars: 4\nSetup time: <t>s\nRunning Standard KORVEX...\n" +
        kDashes + "\n" + kHeader + kDashes + "\n" + table + kDashes + "\nStatus: Solved\nTiming: Solve time: <t>\n" +
        "\tLin-sys: nnz in L factor: 13, avg solve time: <t>s\n\tCones: avg projection time: <t>s\n" + kDashes +
        "\nError metrics:\n" +
        format("dist(s, K) = %.4e, dist(y, K*) = %.4e, s'y/|s||y| = %.4e\n", distanceToCone(run, run.solution.s),
               distanceToDualCone(run, run.solution.y), e) +
        format("|Ax + s - b|_2 / (1 + |b|_2) = %.4e\n", run.info.resPri) +
        format("|A'y + c|_2 / (1 + |c|_2) = %.4e\n", run.info.resDual) +
        format("|c'x + b'y| / (1 + |c'x| + |b'y|) = %.4e\n", run.info.relGap) + kDashes + "\n" +
        format("c'x = %.4f, -b'y = %.4f\n", run.info.pobj, run.info.dobj) + kEquals + "\n";
    EXPECT_EQ(report, expected);
}

TEST(Report, CertificateBlocksAndTheLimitLine) {
    // The factor: y1 and y2 go first, one entry each below the diagonal of order 3.
    SolveRun infeasible(infeasibleProblems()[0]);
    const std::string footer = footerOf(infeasible, KORVEX_INFEASIBLE);
    EXPECT_EQ(footer, "Status: Infeasible\nTiming: Solve time: <t>\n\tLin-sys: nnz in L factor: 5, avg solve time: <t>s\n"
                      "\tCones: avg projection time: <t>s\n" + kDashes + "\nCertificate of primal infeasibility:\n" +
                          format("dist(y, K*) = %.4e\n|A'y|_2 * |b|_2 = %.4e\nb'y = %.4f\n",
                                 distanceToDualCone(infeasible, infeasible.solution.y), infeasible.info.resInfeas,
                                 dotProduct(infeasible.data.b, infeasible.solution.y, 2)) +
                          kEquals + "\n");

    SolveRun ray(unboundedProblems()[0]);
    const std::string ray_footer = footerOf(ray, KORVEX_UNBOUNDED);
    EXPECT_EQ(ray_footer.substr(ray_footer.find(kDashes)),
              kDashes + "\nCertificate of dual infeasibility:\n" +
                  format("dist(s, K) = %.4e\n|Ax + s|_2 * |c|_2 = %.4e\nc'x = %.4f\n",
                         distanceToCone(ray, ray.solution.s), ray.info.resUnbdd, -ray.solution.x[0]) +
                  kEquals + "\n");

    // A solve stopped by the limit says so, and shows the limit as the last iteration.
    SolveRun limited(knownProblems()[0]);
    limited.settings.max_iters = 12;
    const std::string limited_footer = footerOf(limited, KORVEX_SOLVED_INACCURATE);
    EXPECT_EQ(limited_footer.rfind("Status: Solved/Inaccurate\nHit max_iters, solution may be inaccurate\n", 0), 0u);
    const std::vector<std::string> rows = progressRows(maskTimes(limited.report));
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_TRUE(std::stoi(rows[1]) == 10 && std::stoi(rows[2]) == 12 && limited.info.iter == 12);
}

// A Work of a real set-up, to print the fixed blocks with chosen figures.
class ReportBlocks : public ::testing::Test {
protected:
    void SetUp() override {
        run_ = std::make_unique<SolveRun>(knownProblems()[0]);
        work_ = initWork(&run_->data, &run_->cone);
        ASSERT_NE(work_, nullptr);
    }
    void TearDown() override { freeWork(work_); }
    std::unique_ptr<SolveRun> run_;
    Work* work_ = nullptr;
};

TEST_F(ReportBlocks, HeaderAndLineWithAndWithoutTheFprColumn) {
    Residuals r{};
    r.res_pri = 1.5e-3;
    r.res_dual = -2.25e+10;
    r.c_dot_x = 3.0;
    r.b_dot_y = 1.0;
    r.tau = 2.0;
    r.kap = 1e-300;
    work_->fpr_norm = 123.456;
    Timer timer;
    startTimer(&timer);
    CapturedOutput out;
    printHeader(work_);
    printProgressLine(work_, 7, &r, &timer);
    run_->settings.do_super_korvex = 1;
    run_->settings.warm_start = 1;
    printHeader(work_);
    printProgressLine(work_, 123456, &r, &timer);
    EXPECT_EQ(maskTimes(out.finish()),
              kDashes + "\n" + kHeader + kDashes + "\n" +
                  "     7| 1.50e-03 -2.25e+10  0.00e+00  1.50e+00 -5.00e-01 5.00e-301 <t> \n" +
                  "KORVEX using variable warm-starting\n" + kDashes + "\n" +
                  " Iter | pri res | dua res | rel gap | pri obj | dua obj | kap/tau |   FPR   | time (s)\n" +
                  kDashes + "\n" + "123456| 1.50e-03 -2.25e+10  0.00e+00  1.50e+00 -5.00e-01 5.00e-301  1.23e+02 <t> \n");
}

TEST_F(ReportBlocks, TimingLineSplitsHoursMinutesSecondsAndMilliseconds) {
    Info info{};
    info.iter = 3;
    info.statusVal = KORVEX_SOLVED;
    std::vector<double> x(run_->data.n, 1.0), y(run_->data.m, 1.0), s(run_->data.m, 1.0);
    Solution solution{x.data(), y.data(), s.data()};
    const std::pair<double, const char*> cases[] = {{3725400.0, "01:02:05.400"}, {50.0, "00:00:00.50"},
                                                    {5.0, "00:00:00.5"},         {59999.0, "00:00:59.999"},
                                                    {3600000.0 * 25 + 61000.0, "25:01:01.0"}};
    for (const auto& [ms, text] : cases) {
        info.solveTime = ms;
        CapturedOutput out;
        printFooter(&run_->data, &run_->cone, &solution, work_, &info);
        const std::string footer = out.finish();
        EXPECT_NE(footer.find(std::string("\nStatus: \nTiming: Solve time: ") + text + "\n"), std::string::npos) << footer;
    }
}

TEST(Report, SettingsDumpListsEveryOptionInItsFormat) {
    Settings settings;
    setDefaultSettings(&settings);
    CapturedOutput out;
    printSettingsDump(&settings);
    EXPECT_EQ(out.finish(),
              "Settings:\nalpha        : 1.5\nbeta         : 0.5\nc1           : 0.9999\nc_bl         : 0.999\n"
              "cg_rate      : 2\ndir          : 100\ndo_super_korvex : 1\neps          : 0.001\n"
              "(k0, k1, k2) : (0, 1, 1)\nls           : 10\nmax_iters    : 2500\nmemory       : 10\n"
              "normalize    : 1\nrho_x        : 0.001\nscale        : 1\nsigma        : 0.01\nsse          : 0.999\n"
              "thetabar     : 0.1\nwarm_start   : 0\n");
}

}  // namespace
