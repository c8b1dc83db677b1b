// The console report of a solve, byte for byte: banner and problem lines, the progress
// table with and without the FPR column, the footer blocks of every kind of end, the
// timing line and the settings dump. Times are masked; every other figure is checked
// against the Info and Solution of the same solve.
#include <gtest/gtest.h>

#include <cmath>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "support/problems.h"
#include "core/solver.h"
#include "kernels/kernels.h"
#include "reporting/report.h"
#include "support/capture.h"

namespace {

const std::string kDashes(85, '-');
const std::string kEquals(85, '=');

std::string format(const char* pattern, double value) {
    char buffer[128];
    std::snprintf(buffer, sizeof buffer, pattern, value);
    return buffer;
}

bool isProgressLine(const std::string& line) { return std::regex_search(line, std::regex("^ *\\d+\\|")); }

// Masks the figures that measure time: "Setup time: <t>s", the last column of the
// progress lines, the solve time and the two averages of the footer.
std::string maskTimes(const std::string& report) {
    std::istringstream lines(report);
    std::string line, masked;
    while (std::getline(lines, line)) {
        if (isProgressLine(line)) {  // the time is the last cell, padded to 9 and followed by a blank
            line.erase(line.find_last_not_of(' ') + 1);
            line.erase(line.find_last_of(' ') + 1);
            line.erase(line.find_last_not_of(' ') + 1);
            line += " <t> ";
        }
        masked += line;
        if (!lines.eof()) masked += "\n";
    }
    masked = std::regex_replace(masked, std::regex("Setup time: \\S+s"), "Setup time: <t>s");
    masked = std::regex_replace(masked, std::regex("Solve time: \\d\\d:\\d\\d:\\d\\d\\.\\d+"), "Solve time: <t>");
    masked = std::regex_replace(masked, std::regex("avg solve time: \\S+s"), "avg solve time: <t>s");
    return std::regex_replace(masked, std::regex("avg projection time: \\S+s"), "avg projection time: <t>s");
}

// One progress line with the given figures, the time masked.
std::string progressLine(int iter, const std::vector<double>& figures) {
    char buffer[256];
    int length = std::snprintf(buffer, sizeof buffer, "%*i|", 6, iter);
    for (double value : figures) length += std::snprintf(buffer + length, sizeof buffer - length, "%*.2e ", 9, value);
    return std::string(buffer) + "<t> \n";
}

const char* kHeader =
    " Iter | pri res | dua res | rel gap | pri obj | dua obj | kap/tau | time (s)\n";

std::string bannerOf(const SolveRun& run, const std::string& cone_lines) {
    std::ostringstream text;
    text << kDashes << "\n\tKorvex v1.2.6-Vrena-Marlet - Tessel Conic Solver\n"
         << "\tOperator splitting on the homogeneous self-dual embedding, by the Korvex developers\n"
         << kDashes << "\n"
         << "Lin-sys: sparse-direct, nnz in A = " << run.A.p[run.A.n] << "\n";
    char line[160];
    std::snprintf(line, sizeof line, "eps = %.2e, alpha = %.2f, max_iters = %i, normalize = %i, scale = %2.2f\n",
                  run.settings.eps, run.settings.alpha, run.settings.max_iters, run.settings.normalize,
                  run.settings.scale);
    text << line << "Variables n = " << run.data.n << ", constraints m = " << run.data.m << "\n" << cone_lines;
    return text.str();
}

// The progress rows of a captured report: every line that starts with the iteration
// column. Their figures, all but the time, must have the format of the table.
std::vector<std::string> progressRows(const std::string& report) {
    std::vector<std::string> rows;
    std::istringstream lines(report);
    std::string line;
    const std::regex row("^ *\\d+\\|(?: *-?(?:\\d\\.\\d\\de[+-]\\d{2,3}|nan|inf) ){6}<t> $");
    while (std::getline(lines, line)) {
        if (isProgressLine(line)) {
            EXPECT_TRUE(std::regex_match(line, row)) << line;
            rows.push_back(line + "\n");
        }
    }
    return rows;
}

TEST(Report, SolvedStandardSolveFromBannerToFooter) {
    const std::vector<Problem> problems = knownProblems();
    SolveRun run(problems[0]);  // the LP: four non-negative rows, two variables
    run.settings.verbose = 1;
    ASSERT_EQ(run.solve(), KORVEX_SOLVED);
    const std::string report = maskTimes(run.report);

    // The table has a line at every tenth iteration and one for the last iterate.
    const std::vector<std::string> rows = progressRows(report);
    ASSERT_EQ(static_cast<int>(rows.size()), run.info.iter / 10 + 1 + (run.info.iter % 10 != 0 ? 1 : 0));
    for (std::size_t k = 0; k + 1 < rows.size(); ++k) EXPECT_EQ(std::stoi(rows[k]), static_cast<int>(10 * k));
    std::string table;
    for (const std::string& row : rows) table += row;

    const int m = run.data.m;
    const double ds = distanceToCone(run, run.solution.s);
    const double dy = distanceToDualCone(run, run.solution.y);
    const double e = dotProduct(run.solution.s, run.solution.y, m) / normTwo(run.solution.s, m) /
                     normTwo(run.solution.y, m);
    char metrics[200];
    std::snprintf(metrics, sizeof metrics, "dist(s, K) = %.4e, dist(y, K*) = %.4e, s'y/|s||y| = %.4e\n", ds, dy, e);
    char objectives[100];
    std::snprintf(objectives, sizeof objectives, "c'x = %.4f, -b'y = %.4f\n", run.info.pobj, run.info.dobj);

    // The factor of K: minimum degree eliminates y3 and y4 (one entry each), then y1
    // and y2 (two each, filling x1-x2), then x1 (one): 7 entries below the unit diagonal
    // of order 6, reported as 13.
    const std::string expected =
        bannerOf(run, "Cones:\tlinear vars: 4\n") + "Setup time: <t>s\nRunning Standard KORVEX...\n" + kDashes +
        "\n" + kHeader + kDashes + "\n" + table + kDashes + "\nStatus: Solved\nTiming: Solve time: <t>\n" +
        "\tLin-sys: nnz in L factor: 13, avg solve time: <t>s\n\tCones: avg projection time: <t>s\n" + kDashes +
        "\nError metrics:\n" + metrics + format("|Ax + s - b|_2 / (1 + |b|_2) = %.4e\n", run.info.resPri) +
        format("|A'y + c|_2 / (1 + |c|_2) = %.4e\n", run.info.resDual) +
        format("|c'x + b'y| / (1 + |c'x| + |b'y|) = %.4e\n", run.info.relGap) + kDashes + "\n" + objectives +
        kEquals + "\n";
    EXPECT_EQ(report, expected);

    // The last line shows the final iterate's figures, as Info reports them.
    const std::string last = progressLine(run.info.iter, {run.info.resPri, run.info.resDual, run.info.relGap,
                                                          run.info.pobj, run.info.dobj, 0.0});
    EXPECT_EQ(rows.back().substr(0, 57), last.substr(0, 57));
}

TEST(Report, CertificateBlocksAndTheLimitLine) {
    Problem infeasible("infeasible");
    infeasible.rows = {{-1}, {1}};
    infeasible.b = {-1, 0};
    infeasible.c = {1};
    infeasible.linear_vars = 2;
    SolveRun run(infeasible);
    run.settings.verbose = 1;
    ASSERT_EQ(run.solve(), KORVEX_INFEASIBLE);
    // The factor: y1 and y2 go first, one entry each below the diagonal of order 3.
    const std::string tail = maskTimes(run.report).substr(maskTimes(run.report).rfind("\nStatus:"));
    char block[300];
    std::snprintf(block, sizeof block,
                  "Certificate of primal infeasibility:\ndist(y, K*) = %.4e\n|A'y|_2 * |b|_2 = %.4e\nb'y = %.4f\n",
                  distanceToDualCone(run, run.solution.y), run.info.resInfeas,
                  dotProduct(infeasible.b.data(), run.solution.y, 2));
    EXPECT_EQ(tail, "\nStatus: Infeasible\nTiming: Solve time: <t>\n\tLin-sys: nnz in L factor: 5, avg solve time: "
                    "<t>s\n\tCones: avg projection time: <t>s\n" +
                        kDashes + "\n" + block + kEquals + "\n");

    Problem unbounded("unbounded");
    unbounded.rows = {{-1}};
    unbounded.b = {0};
    unbounded.c = {-1};
    unbounded.linear_vars = 1;
    SolveRun ray(unbounded);
    ray.settings.verbose = 1;
    ASSERT_EQ(ray.solve(), KORVEX_UNBOUNDED);
    const std::string ray_tail = maskTimes(ray.report).substr(maskTimes(ray.report).rfind(kDashes + "\nCert"));
    std::snprintf(block, sizeof block,
                  "Certificate of dual infeasibility:\ndist(s, K) = %.4e\n|Ax + s|_2 * |c|_2 = %.4e\nc'x = %.4f\n",
                  distanceToCone(ray, ray.solution.s), ray.info.resUnbdd, -ray.solution.x[0]);
    EXPECT_EQ(ray_tail, kDashes + "\n" + block + kEquals + "\n");

    // A solve stopped by the limit says so, and shows the limit as the last iteration.
    const std::vector<Problem> problems = knownProblems();
    SolveRun limited(problems[0]);
    limited.settings.verbose = 1;
    limited.settings.max_iters = 12;
    EXPECT_EQ(limited.solve(), KORVEX_SOLVED_INACCURATE);
    const std::string limited_report = maskTimes(limited.report);
    EXPECT_NE(limited_report.find("\nStatus: Solved/Inaccurate\nHit max_iters, solution may be inaccurate\n"),
              std::string::npos);
    const std::vector<std::string> rows = progressRows(limited_report);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(std::stoi(rows[1]), 10);
    EXPECT_EQ(std::stoi(rows[2]), 12);
    EXPECT_EQ(limited.info.iter, 12);
}

// A Work of a real set-up, to print the fixed blocks with chosen figures.
class ReportBlocks : public ::testing::Test {
protected:
    void SetUp() override {
        run_ = std::make_unique<SolveRun>(knownProblems()[0]);
        run_->settings.verbose = 0;
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
    r.rel_gap = 0.0;
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
    const std::string text = maskTimes(out.finish());
    EXPECT_EQ(text, kDashes + "\n" + kHeader + kDashes + "\n" +
                        "     7| 1.50e-03 -2.25e+10  0.00e+00  1.50e+00 -5.00e-01 5.00e-301 <t> \n" +
                        "KORVEX using variable warm-starting\n" + kDashes + "\n" +
                        " Iter | pri res | dua res | rel gap | pri obj | dua obj | kap/tau |   FPR   | time (s)\n" +
                        kDashes + "\n" +
                        "123456| 1.50e-03 -2.25e+10  0.00e+00  1.50e+00 -5.00e-01 5.00e-301  1.23e+02 <t> \n");
}

TEST_F(ReportBlocks, TimingLineSplitsHoursMinutesSecondsAndMilliseconds) {
    Info info{};
    info.iter = 3;
    info.statusVal = KORVEX_SOLVED;
    std::vector<double> x(run_->data.n, 1.0), y(run_->data.m, 1.0), s(run_->data.m, 1.0);
    Solution solution{x.data(), y.data(), s.data()};
    const struct {
        double ms;
        const char* line;
    } cases[] = {{3725400.0, "Timing: Solve time: 01:02:05.400\n"},
                 {50.0, "Timing: Solve time: 00:00:00.50\n"},
                 {5.0, "Timing: Solve time: 00:00:00.5\n"},
                 {59999.0, "Timing: Solve time: 00:00:59.999\n"},
                 {3600000.0 * 25 + 61000.0, "Timing: Solve time: 25:01:01.0\n"}};
    for (const auto& c : cases) {
        info.solveTime = c.ms;
        CapturedOutput out;
        printFooter(&run_->data, &run_->cone, &solution, work_, &info);
        const std::string text = out.finish();
        EXPECT_NE(text.find(std::string("\nStatus: \n") + c.line), std::string::npos) << text;
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
