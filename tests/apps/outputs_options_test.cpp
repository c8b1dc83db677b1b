// The options table behind --NAME VALUE and --help, and the three output files: JSON of
// a solution, CSV and SVG of a progress history.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <limits>
#include <regex>

#include "io/options.h"
#include "io/outputs.h"
#include "io/readers.h"
#include "io_checks.h"

using namespace korvex;

namespace {

std::size_t countOf(const std::string& text, const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
    return count;
}

TEST(Options, EverySettingTakesItsOwnNameAndTheDashedOne) {
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        const SettingDescriptor& option = kSettingDescriptors[k];
        SCOPED_TRACE(option.name);
        std::string dashed = option.name;
        for (char& c : dashed) c = c == '_' ? '-' : c;
        for (const std::string& name : {std::string(option.name), dashed}) {
            Settings settings;
            setDefaultSettings(&settings);
            std::string error;
            // A value that differs from the default: 7 for the integers (300 for dir),
            // 0.375 for the reals.
            const bool is_dir = option.int_field == &Settings::dir;
            ASSERT_EQ(applySetting(&settings, name, option.int_field ? (is_dir ? "300" : "7") : "0.375", &error), 1) << error;
            if (option.int_field) {
                EXPECT_EQ(settings.*option.int_field, is_dir ? 300 : 7);
            } else {
                EXPECT_EQ(settings.*option.double_field, 0.375);
            }
        }
    }
}

TEST(Options, DirectionNamesCodesBadValuesAndSeconds) {
    Settings settings;
    setDefaultSettings(&settings);
    std::string error;
    EXPECT_EQ(applySetting(&settings, "dir", "fixed_point_residual", &error), 1);
    EXPECT_EQ(settings.dir, KORVEX_DIR_FIXED_POINT_RESIDUAL);
    EXPECT_EQ(settingText(settings, "dir"), "fixed_point_residual");
    EXPECT_EQ(applySetting(&settings, "dir", "full_broyden", &error), 1);
    EXPECT_EQ(settings.dir, KORVEX_DIR_FULL_BROYDEN);
    // Refused values leave the field alone; names outside the table are not options.
    const std::pair<std::pair<const char*, const char*>, const char*> refused[] = {
        {{"dir", "newton"},
         "--dir takes restarted_broyden, restarted_broyden_v2, fixed_point_residual, full_broyden or a code, not 'newton'"},
        {{"max-iters", "1.5"}, "--max_iters takes a whole number, not '1.5'"},
        {{"max_iters", "99999999999"}, "--max_iters takes a whole number, not '99999999999'"},
        {{"eps", "nan"}, "--eps takes a finite number, not 'nan'"},
        {{"eps", "1e-5x"}, "--eps takes a finite number, not '1e-5x'"}};
    for (const auto& [setting, message] : refused) {
        EXPECT_EQ(applySetting(&settings, setting.first, setting.second, &error), -1);
        EXPECT_EQ(error, message);
    }
    EXPECT_EQ(applySetting(&settings, "output_stream", "1", &error), 0);
    EXPECT_EQ(applySetting(&settings, "epsilon", "1", &error), 0);
    EXPECT_EQ(settings.eps, 0.001);
    EXPECT_EQ(settings.max_iters, 2500);

    // --help lists every setting with its type and default.
    const std::string help = settingsHelp();
    EXPECT_EQ(countOf(help, "\n"), static_cast<std::size_t>(kSettingDescriptorCount));
    for (const char* part : {"  --max_iters INT", "(default 2500)", "  --eps REAL", "(default 0.001)", "  --dir NAME|CODE",
                             "(default restarted_broyden)"}) {
        EXPECT_NE(help.find(part), std::string::npos) << part;
    }
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        EXPECT_NE(help.find(std::string("  --") + kSettingDescriptors[k].name + " "), std::string::npos) << kSettingDescriptors[k].name;
    }

    // The seconds of a time limit: positive and finite.
    double seconds = 0;
    EXPECT_TRUE(parseSeconds("2.5", &seconds));
    EXPECT_EQ(seconds, 2.5);
    for (const char* bad : {"0", "-1", "inf", "1s"}) EXPECT_FALSE(parseSeconds(bad, &seconds)) << bad;
}

TEST(Outputs, SolutionJsonHasTheFiguresTheVariablesAndNullForUndefinedValues) {
    ConicProblem p = readCbf("VER\n1\nOBJSENSE\nMAX\nPSDVAR\n1\n2\nVAR\n1 1\nF 1\nCON\n1 1\nL+ 1\nOBJBCOORD\n2.5\n"
                             "OBJACOORD\n1\n0 1\nACOORD\n1\n0 0 -1\nBCOORD\n1\n0 4\n",
                             "j.cbf");
    // x = (x0, packed X); y, s over the 4 rows (L+ and the packed 2 x 2 block).
    double x[] = {4, 1, std::sqrt(2.0) * 0.5, 2};
    double y[] = {1, 0, 0, 0};
    double s[] = {0, 1, std::nan(""), 2};
    Solution solution{x, y, s};
    Info info{};
    info.iter = 42;
    setStatusText(&info, "Solved");
    info.statusVal = 1;
    info.pobj = -4;
    info.dobj = -4;
    info.resInfeas = std::nan("");
    info.resUnbdd = std::numeric_limits<double>::infinity();
    info.setupTime = 1.5;
    info.solveTime = 3;
    RunTimes times{0.25};
    const std::string json = memoryText([&](std::FILE* out) { return writeSolutionJson(out, p, solution, info, times); });
    for (const char* part : {"\"status\": \"Solved\"", "\"statusVal\": 1", "\"iter\": 42", "\"sense\": \"max\"",
                             "\"objective\": 6.5", "\"pobj\": -4", "\"dobj\": -4", "\"resInfeas\": null", "\"resUnbdd\": null",
                             "\"relGap\": 0", "\"setupTime\": 1.5", "\"solveTime\": 3", "\"readTime\": 0.25", "\"x\": [4]",
                             "\"X\": [[[1,0.5],[0.5,2]]]", "\"y\": [1,0,0,0]",
                             "\"s\": [0,1,null,2]", "\"file\": \"j.cbf\""}) {
        EXPECT_NE(json.find(part), std::string::npos) << part << "\n" << json;
    }
    EXPECT_EQ(json.front(), '{');
    EXPECT_EQ(json.substr(json.size() - 2), "}\n");
    EXPECT_EQ(countOf(json, "\": "), 22u);  // 22 fields, one per line
}

// Progress arrays as the solver leaves them after a solve that stopped by its test at
// iteration 3: rows 0..2 complete, row 3 with the figures of its top only.
ProgressArrays filledArrays(Info* info, Settings* settings) {
    ProgressArrays arrays(6, info, settings);
    for (int k = 0; k <= 3; ++k) {
        info->progress_iteration[k] = k;
        // Powers of two, so that the texts are exact.
        info->progress_rel_gap[k] = std::ldexp(1.0, -k);
        info->progress_res_pri[k] = std::ldexp(3.0, -k);
        info->progress_res_dual[k] = k == 1 ? 0.0 : std::ldexp(5.0, -2 * k);  // a zero breaks its line
        info->progress_primal_cost[k] = 1 + k;
        info->progress_dual_cost[k] = 1 - k;
        info->progress_fpr_norm[k] = std::ldexp(1.0, -4 * k);
        info->progress_time_ms[k] = 0.125 * k;
        if (k < 3) {
            info->progress_step_kind[k] = k - 1;
            info->progress_ls_count[k] = k;
        }
    }
    return arrays;
}

TEST(Outputs, HistoryKeepsTheRowsTheSolverWroteAndLeavesTheLastStepEmpty) {
    Info info{};
    Settings settings{};
    ProgressArrays arrays = filledArrays(&info, &settings);
    EXPECT_EQ(settings.progress_capacity, 6);
    const std::vector<ProgressRow> rows = arrays.rows();
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_TRUE(rows[2].has_step);
    EXPECT_FALSE(rows[3].has_step);
    const std::string csv = memoryText([&](std::FILE* out) { return writeHistoryCsv(out, rows); });
    EXPECT_EQ(csv,
              "iteration,rel_gap,res_pri,res_dual,primal_cost,dual_cost,fpr_norm,time_ms,step_kind,ls_count\n"
              "0,1,3,5,1,1,1,0,-1,0\n"
              "1,0.5,1.5,0,2,0,0.0625,0.125,0,1\n"
              "2,0.25,0.75,0.3125,3,-1,0.00390625,0.25,1,2\n"
              "3,0.125,0.375,0.078125,4,-2,0.000244140625,0.375,,\n");
}

TEST(Outputs, ConvergencePlotHasAxesLegendDecadesAndBrokenLines) {
    Info info{};
    Settings settings{};
    ProgressArrays arrays = filledArrays(&info, &settings);
    const std::string svg = memoryText([&](std::FILE* out) { return writeConvergenceSvg(out, arrays.rows(), "demo <1>"); });
    EXPECT_EQ(svg.rfind("<svg xmlns=\"http://www.w3.org/2000/svg\"", 0), 0u);
    EXPECT_EQ(svg.substr(svg.size() - 7), "</svg>\n");
    EXPECT_NE(svg.find(">demo &lt;1&gt;</text>"), std::string::npos);
    EXPECT_NE(svg.find(">iteration</text>"), std::string::npos);
    EXPECT_NE(svg.find("(log scale)</text>"), std::string::npos);
    for (const char* label : {"primal residual", "dual residual", "relative gap", "fixed-point residual"}) {
        EXPECT_NE(svg.find(std::string(">") + label + "</text>"), std::string::npos) << label;
    }
    // Values from 0.00024 to 5: the decades 1e-04 .. 1e+01 each get a grid line.
    for (int e = -4; e <= 1; ++e) {
        char label[16];
        std::snprintf(label, sizeof label, ">1e%+d<", e);
        EXPECT_NE(svg.find(label), std::string::npos) << label;
    }
    // Four series, the dual residual broken in two by its zero at iteration 1.
    EXPECT_EQ(countOf(svg, "<polyline"), 5u);

    const std::string empty = memoryText([&](std::FILE* out) { return writeConvergenceSvg(out, {}, "none"); });
    EXPECT_NE(empty.find("no progress history"), std::string::npos);
    EXPECT_EQ(countOf(empty, "<polyline"), 0u);
}

}  // namespace
