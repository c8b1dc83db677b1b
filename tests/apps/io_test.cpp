// The readers over the cases of tests/golden/io_reader_cases.txt: each case's problem in
// the solver's form, or its "FILE:LINE: ..." message, kept in io_readers.txt. Every valid
// case and example comes back the same from CBF (arbitrary files: the reader targets of
// tests/fuzz). The JSON, CSV and SVG writers: io_outputs.txt.
#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>
#include <limits>
#include <set>
#include <sstream>
#include <tuple>

#include "cones/cones.h"
#include "io/outputs.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "support/capture.h"
#include "support/golden.h"

using namespace korvex;

namespace {

// What write puts into a stream, as text; write must succeed.
std::string memoryText(const std::function<bool(std::FILE*)>& write) {
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&buffer, &size);
    EXPECT_TRUE(write(out));
    std::fclose(out);
    std::string text(buffer, size);
    std::free(buffer);
    return text;
}

using Reader = ConicProblem (*)(std::string_view text, const std::string& name);
Reader readerOf(FileFormat format) { return format == FileFormat::Cbf ? readCbf : format == FileFormat::Sdpa ? readSdpa : readMps; }

// A case of tests/golden/io_reader_cases.txt, whose head tells their form.
struct ReaderCase {
    std::string header, name, text;
    Reader read;
};

std::vector<ReaderCase> readerCases() {
    std::istringstream file(readGolden("io_reader_cases.txt"));
    std::vector<ReaderCase> cases;
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(">>> ", 0) == 0) {
            const std::string header = line.substr(4), name = header.substr(header.find(' ') + 1);
            cases.push_back({header, name.substr(0, name.find(' ')), "", readerOf(formatOfWord(header.substr(0, header.find(' '))))});
        } else if (!cases.empty()) {
            cases.back().text += line + (cases.back().header.ends_with(" crlf") ? "\r\n" : "\n");
        }
    }
    return cases;
}

template <class T>
std::string list(const std::vector<T>& values) {
    std::ostringstream text;
    text.precision(17);
    for (std::size_t k = 0; k < values.size(); ++k) text << (k > 0 ? " " : "") << values[k];
    return "[" + text.str() + "]";
}

// The solver's form of a problem on one line: sizes, cones, sense and constant.
std::string coneLine(const ConicProblem& p) {
    std::ostringstream text;
    text.precision(17);
    text << p.m << " rows, " << p.n << " columns; free " << p.free_rows << ", linear " << p.linear_rows << ", soc "
         << list(p.soc_sizes) << ", sd " << list(p.sd_sizes) << ", exp " << p.exp_triples << ", dual exp "
         << p.dual_exp_triples << ", power " << list(p.power_exponents) << "; " << (p.maximise ? "max" : "min")
         << ", constant " << p.objective_constant + 0.0 << "\n";  // -0 as 0
    return text.str();
}

// The rows of A, densely, each followed by its entry of b; then c.
std::vector<std::vector<double>> denseRows(const ConicProblem& p) {
    std::vector<std::vector<double>> rows(p.m, std::vector<double>(p.n + 1, 0.0));
    for (int j = 0; j < p.n; ++j) {
        for (int e = p.column_starts[j]; e < p.column_starts[j + 1]; ++e) rows[p.row_indices[e]][j] = p.values[e];
    }
    for (int i = 0; i < p.m; ++i) rows[i][p.n] = p.b[i];
    rows.push_back(p.c);
    return rows;
}

TEST(Readers, EveryCaseGivesItsProblemOrItsMessageAndComesBackFromCbf) {
    std::string transcript;
    for (const ReaderCase& entry : readerCases()) {
        transcript += ">>> " + entry.header + "\n";
        CapturedOutput warnings(stderr);
        try {
            const ConicProblem p = entry.read(entry.text, entry.name);
            transcript += p.format + ", " + coneLine(p) + "scalar variables " + std::to_string(p.scalar_variables) +
                          ", names " + list(p.variable_names) + ", matrix sides " + list(p.matrix_sides) + " at " +
                          list(p.matrix_offsets) + "\n";
            for (const auto& row : denseRows(p)) transcript += "  " + list(row) + "\n";
            // Written as CBF and read back, the problem is the same: bit for bit but for the
            // off-diagonal rows of a matrix constraint, which pass through sqrt 2.
            const ConicProblem again = readCbf(memoryText([&](std::FILE* out) { return writeCbf(p, out); }), "again.cbf");
            EXPECT_EQ(coneLine(again), coneLine(p)) << entry.header;
            EXPECT_TRUE(!p.sd_sizes.empty() || denseRows(again) == denseRows(p)) << entry.header;
        } catch (const ReadError& error) {
            transcript += std::string("refused: ") + error.what() + "\n";
        }
        transcript += warnings.finish();
    }
    expectGolden("io_readers.txt", transcript);
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

TEST(Outputs, SolutionJsonHistoryCsvAndConvergencePlots) {
    // A maximisation with a constant over x0 and a 2 x 2 matrix variable; y and s over the
    // L+ row and the packed block. NaN and infinite figures are undefined: null.
    ConicProblem p = readCbf("VER\n1\nOBJSENSE\nMAX\nPSDVAR\n1\n2\nVAR\n1 1\nF 1\nCON\n1 1\nL+ 1\nOBJBCOORD\n2.5\n"
                             "OBJACOORD\n1\n0 1\nACOORD\n1\n0 0 -1\nBCOORD\n1\n0 4\n",
                             "j.cbf");
    double x[] = {4, 1, std::sqrt(2.0) * 0.5, 2}, y[] = {1, 0, 0, 0}, s[] = {0, 1, std::nan(""), 2};
    Solution solution{x, y, s};
    Info info{};
    setStatusText(&info, "Solved");
    std::tie(info.iter, info.statusVal, info.pobj, info.dobj, info.setupTime, info.solveTime) = std::tuple(42, 1, -4.0, -4.0, 1.5, 3.0);
    info.resInfeas = std::nan("");
    info.resUnbdd = std::numeric_limits<double>::infinity();
    std::string text = memoryText([&](std::FILE* out) { return writeSolutionJson(out, p, solution, info, RunTimes{0.25}); });

    Info history{};
    Settings settings{};
    const std::vector<ProgressRow> rows = filledArrays(&history, &settings).rows();
    text += memoryText([&](std::FILE* out) { return writeHistoryCsv(out, rows); });
    text += memoryText([&](std::FILE* out) { return writeConvergenceSvg(out, rows, "demo <1>"); });
    text += memoryText([&](std::FILE* out) { return writeConvergenceSvg(out, {}, "none"); });
    expectGolden("io_outputs.txt", text);
}

}  // namespace
