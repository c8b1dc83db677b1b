// Status texts, direction names and the defaults of Settings: the contract that both
// front ends and the host rely on.
#include <gtest/gtest.h>

#include <cmath>
#include <cstddef>
#include <cstring>
#include <set>
#include <string>

#include "core/records.h"

namespace {

TEST(Records, StatusCodesHaveTheirTexts) {
    const struct {
        int code;
        const char* text;
    } table[] = {{1, "Solved"},        {2, "Solved/Inaccurate"},     {-1, "Unbounded"},
                 {-6, "Unbounded/Inaccurate"}, {-2, "Infeasible"}, {-7, "Infeasible/Inaccurate"},
                 {-3, "Indeterminate"}, {-4, "Failure"},            {-5, "Interrupted"}};
    for (const auto& row : table) {
        EXPECT_STREQ(statusText(row.code), row.text);
        EXPECT_LT(std::strlen(row.text), static_cast<std::size_t>(kStatusTextLength));
    }
    EXPECT_STREQ(statusText(0), "");
    EXPECT_STREQ(statusText(3), "");
    EXPECT_STREQ(statusText(-8), "");
}

TEST(Records, SetStatusTextTerminatesWithinTheField) {
    Info info;
    std::memset(&info, 'q', sizeof info);
    setStatusText(&info, statusText(KORVEX_INFEASIBLE_INACCURATE));
    EXPECT_STREQ(info.status, "Infeasible/Inaccurate");
    const std::string too_long(40, 'w');
    setStatusText(&info, too_long.c_str());
    EXPECT_EQ(std::string(info.status), std::string(31, 'w'));
}

TEST(Records, DirectionNamesAreComparedInFull) {
    EXPECT_EQ(directionCode("restarted_broyden"), 100);
    EXPECT_EQ(directionCode("restarted_broyden_v2"), 101);
    EXPECT_EQ(directionCode("fixed_point_residual"), 200);
    EXPECT_EQ(directionCode("full_broyden"), 300);
    // Anything else, however close, is the default kind.
    for (const char* other : {"", "Full_broyden", "full_broyden ", "full", "restarted_broyden_v3", "anderson"}) {
        EXPECT_EQ(directionCode(other), 100) << '"' << other << '"';
    }
    EXPECT_EQ(directionCode(nullptr), 100);
    for (int code : {100, 101, 200, 300}) EXPECT_EQ(directionCode(directionName(code)), code);
    EXPECT_EQ(directionName(0), nullptr);
}

// Every byte of the record is written: nothing keeps the fill pattern, and the fields
// outside the option table get their fixed values.
TEST(Records, DefaultsWriteEveryField) {
    Settings filled;
    std::memset(&filled, 0xA5, sizeof filled);
    Settings pattern = filled;
    setDefaultSettings(&filled);
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        const SettingDescriptor& option = kSettingDescriptors[k];
        SCOPED_TRACE(option.name);
        if (option.int_field != nullptr) {
            EXPECT_NE(filled.*option.int_field, pattern.*option.int_field);
            EXPECT_EQ(filled.*option.int_field, option.default_value);
        } else {
            EXPECT_EQ(filled.*option.double_field, option.default_value);
        }
    }
    EXPECT_EQ(filled.stream_override, 0);
    EXPECT_EQ(filled.output_stream, stdout);
    EXPECT_EQ(filled.dir, directionCode("restarted_broyden"));
}

// The option table covers the fields from normalize to record_progress exactly once,
// in field order, under the field's own name.
TEST(Records, OptionTableCoversTheFieldsInOrder) {
    ASSERT_EQ(kSettingDescriptorCount, 26);
    Settings probe{};
    const char* base = reinterpret_cast<const char*>(&probe);
    std::ptrdiff_t last_offset = -1;
    std::set<std::string> names;
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        const SettingDescriptor& option = kSettingDescriptors[k];
        SCOPED_TRACE(option.name);
        ASSERT_TRUE((option.int_field == nullptr) != (option.double_field == nullptr));
        const char* field = option.int_field != nullptr ? reinterpret_cast<const char*>(&(probe.*option.int_field))
                                                        : reinterpret_cast<const char*>(&(probe.*option.double_field));
        EXPECT_GT(field - base, last_offset);
        last_offset = field - base;
        EXPECT_TRUE(names.insert(option.name).second);
        EXPECT_NE(std::strlen(option.help), 0u);
    }
    EXPECT_EQ(std::string(kSettingDescriptors[0].name), "normalize");
    EXPECT_EQ(std::string(kSettingDescriptors[kSettingDescriptorCount - 1].name), "record_progress");
    EXPECT_EQ(last_offset, static_cast<std::ptrdiff_t>(offsetof(Settings, record_progress)));
}

}  // namespace
