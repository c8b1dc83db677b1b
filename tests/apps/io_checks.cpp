#include "io_checks.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>

#include "io/text_input.h"

using namespace korvex;

std::vector<std::vector<double>> denseRows(const ConicProblem& problem) {
    std::vector<std::vector<double>> rows(problem.m, std::vector<double>(problem.n, 0.0));
    for (int j = 0; j < problem.n; ++j) {
        for (int e = problem.column_starts[j]; e < problem.column_starts[j + 1]; ++e) rows[problem.row_indices[e]][j] = problem.values[e];
    }
    return rows;
}

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

std::string cbfText(const ConicProblem& problem) {
    return memoryText([&](std::FILE* out) { return writeCbf(problem, out); });
}

void expectSameProblem(const ConicProblem& expected, const ConicProblem& actual, double tolerance) {
    ASSERT_EQ(expected.m, actual.m);
    ASSERT_EQ(expected.n, actual.n);
    EXPECT_EQ(expected.free_rows, actual.free_rows);
    EXPECT_EQ(expected.linear_rows, actual.linear_rows);
    EXPECT_EQ(expected.soc_sizes, actual.soc_sizes);
    EXPECT_EQ(expected.sd_sizes, actual.sd_sizes);
    EXPECT_EQ(expected.exp_triples, actual.exp_triples);
    EXPECT_EQ(expected.dual_exp_triples, actual.dual_exp_triples);
    ASSERT_EQ(expected.power_exponents.size(), actual.power_exponents.size());
    for (std::size_t k = 0; k < expected.power_exponents.size(); ++k) {
        EXPECT_NEAR(expected.power_exponents[k], actual.power_exponents[k], 1e-15) << "power " << k;
    }
    EXPECT_EQ(expected.maximise, actual.maximise);
    EXPECT_EQ(expected.objective_constant, actual.objective_constant);
    auto a = denseRows(expected), b = denseRows(actual);
    for (int i = 0; i < expected.m; ++i) {
        // A tolerance of 0 asks for equal values.
        for (int j = 0; j < expected.n; ++j) EXPECT_NEAR(a[i][j], b[i][j], tolerance * (1 + std::fabs(a[i][j]))) << i << "," << j;
        EXPECT_NEAR(expected.b[i], actual.b[i], tolerance * (1 + std::fabs(expected.b[i]))) << "b" << i;
    }
    for (int j = 0; j < expected.n; ++j) EXPECT_NEAR(expected.c[j], actual.c[j], tolerance * (1 + std::fabs(expected.c[j]))) << "c" << j;
}

ConicProblem readText(FileFormat format, const std::string& text, const std::string& name) {
    switch (format) {
        case FileFormat::Cbf: return readCbf(text, name);
        case FileFormat::Sdpa: return readSdpa(text, name);
        default: return readMps(text, name);
    }
}

std::string examplesDir() { return KORVEX_EXAMPLES_DIR; }
std::string benchDir() {
    const char* override_dir = std::getenv("KORVEX_BENCH_DATA");
    return override_dir != nullptr ? override_dir : KORVEX_BENCH_DIR;
}

void expectRefusals(FileFormat format, const std::string& name,
                    const std::vector<std::pair<std::string, std::string>>& cases) {
    for (const auto& [text, message] : cases) {
        SCOPED_TRACE(text);
        try {
            readText(format, text, name);
            ADD_FAILURE() << "read without a refusal";
        } catch (const ReadError& error) {
            EXPECT_EQ(error.what(), message);
        }
    }
}
