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
    EXPECT_EQ(readGolden(name), text) << "golden file " << goldenPath(name);  // the failure shows the diff
}
