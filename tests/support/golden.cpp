#include "support/golden.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace {

std::string goldenPath(const std::string& name) { return std::string(KORVEX_GOLDEN_DIR) + "/" + name; }

}  // namespace

std::string readGolden(const std::string& name) {
    std::ifstream in(goldenPath(name), std::ios::binary);
    EXPECT_TRUE(in.good()) << "missing golden file " << goldenPath(name) << " (run with KORVEX_UPDATE_GOLDEN=1)";
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

void expectGolden(const std::string& name, const std::string& text) {
    if (std::getenv("KORVEX_UPDATE_GOLDEN") != nullptr) {
        std::ofstream(goldenPath(name), std::ios::binary) << text;
        return;
    }
    const std::string expected = readGolden(name);
    if (expected == text) return;
    std::istringstream want(expected), got(text);
    std::string a, b;
    for (int line = 1;; ++line) {
        const bool more_a = static_cast<bool>(std::getline(want, a));
        const bool more_b = static_cast<bool>(std::getline(got, b));
        if (!more_a && !more_b) break;
        if (a != b || more_a != more_b) {
            ADD_FAILURE() << name << ", line " << line << ":\n  golden: " << (more_a ? a : "<end>")
                          << "\n  actual: " << (more_b ? b : "<end>");
            return;
        }
    }
    ADD_FAILURE() << name << ": the texts differ in their line ends";
}
