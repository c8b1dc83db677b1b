// The two paths of printTo, the cut of the buffered path, and formatInto.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "reporting/print.h"
#include "support/capture.h"

namespace {

std::string readAll(std::FILE* file) {
    std::fflush(file);
    std::rewind(file);
    std::string text;
    int ch;
    while ((ch = std::fgetc(file)) != EOF) text.push_back(static_cast<char>(ch));
    return text;
}

TEST(Print, BufferedPathGoesToStandardOutputAndIgnoresTheStream) {
    std::FILE* other = std::tmpfile();
    ASSERT_NE(other, nullptr);
    CapturedOutput out;
    printTo(0, other, "x = %d, y = %.2f\n", 7, 2.5);
    printTo(0, stderr, "ERROR: %s\n", "kept in call order");
    printPlain("%s|%li\n", "plain", 42L);
    EXPECT_EQ(out.finish(), "x = 7, y = 2.50\nERROR: kept in call order\nplain|42\n");
    EXPECT_EQ(readAll(other), "");
    std::fclose(other);
}

TEST(Print, DirectPathWritesToTheGivenStreamOnly) {
    std::FILE* other = std::tmpfile();
    ASSERT_NE(other, nullptr);
    CapturedOutput out;
    printTo(1, other, "%s %i\n", "direct", -3);
    EXPECT_EQ(out.finish(), "");
    EXPECT_EQ(readAll(other), "direct -3\n");
    std::fclose(other);
}

TEST(Print, BufferedPathCutsAt4095Characters) {
    const std::string long_text(5000, 'k');
    CapturedOutput out;
    printTo(0, stdout, "%s", long_text.c_str());
    printTo(0, stdout, "|%s|", std::string(4095, 'e').c_str());  // 4097 characters
    printTo(0, stdout, "%s", std::string(4095, 'f').c_str());     // exactly fits
    const std::string got = out.finish();
    const std::string want = std::string(4095, 'k') + "|" + std::string(4094, 'e') + std::string(4095, 'f');
    EXPECT_EQ(got.size(), want.size());
    EXPECT_EQ(got, want);

    // The direct path has no such limit.
    std::FILE* other = std::tmpfile();
    printTo(1, other, "%s", long_text.c_str());
    EXPECT_EQ(readAll(other), long_text);
    std::fclose(other);
}

TEST(Print, FormatIntoReturnsTheCountAndTerminates) {
    char buffer[64];
    std::memset(buffer, 'z', sizeof buffer);
    EXPECT_EQ(formatInto(buffer, "nnz in A = %li", 123L), 14);
    EXPECT_STREQ(buffer, "nnz in A = 123");
    int length = formatInto(buffer, "Cones:");
    length += formatInto(buffer + length, "\tlinear vars: %li\n", 2L);
    EXPECT_EQ(length, 22);
    EXPECT_STREQ(buffer, "Cones:\tlinear vars: 2\n");
    EXPECT_EQ(formatInto(buffer, "%s", ""), 0);
    EXPECT_EQ(buffer[0], '\0');
}

}  // namespace
