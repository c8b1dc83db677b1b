// Status texts, direction names and the defaults of Settings: the contract that both
// front ends and the host rely on.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <set>
#include <string>

#include "records/records.h"

using namespace korvex;

namespace {

TEST(Records, StatusCodesHaveTheirTexts) {
    const std::pair<int, const char*> table[] = {
        {1, "Solved"},          {2, "Solved/Inaccurate"}, {-1, "Unbounded"}, {-6, "Unbounded/Inaccurate"},
        {-2, "Infeasible"},     {-7, "Infeasible/Inaccurate"}, {-3, "Indeterminate"}, {-4, "Failure"},
        {-5, "Interrupted"},    {0, ""}, {3, ""}, {-8, ""}};
    for (const auto& [code, text] : table) {
        EXPECT_STREQ(statusText(code), text);
        EXPECT_LT(std::strlen(text), static_cast<std::size_t>(kStatusTextLength));
    }
    // setStatusText terminates within the field.
    Info info;
    std::memset(&info, 'q', sizeof info);
    setStatusText(&info, statusText(KORVEX_INFEASIBLE_INACCURATE));
    EXPECT_STREQ(info.status, "Infeasible/Inaccurate");
    setStatusText(&info, std::string(40, 'w').c_str());
    EXPECT_EQ(std::string(info.status), std::string(31, 'w'));
}

TEST(Records, DirectionNamesAreComparedInFull) {
    const std::pair<const char*, int> names[] = {
        {"restarted_broyden", 100}, {"restarted_broyden_v2", 101}, {"fixed_point_residual", 200},
        {"full_broyden", 300},      {"", 100},                     {"Full_broyden", 100},
        {"full_broyden ", 100},     {"full", 100},                 {"restarted_broyden_v3", 100},
        {"anderson", 100},          {nullptr, 100}};  // anything else, however close, is the default kind
    for (const auto& [name, code] : names) EXPECT_EQ(directionCode(name), code) << (name ? name : "null");
    for (int code : {100, 101, 200, 300}) EXPECT_EQ(directionCode(directionName(code)), code);
    EXPECT_EQ(directionName(0), nullptr);
}

TEST(Records, DefaultsWriteEveryFieldOfTheOptionTableInFieldOrder) {
    // Every byte of the record is written: nothing keeps the fill pattern, and the fields
    // outside the option table get their fixed values.
    Settings filled;
    std::memset(&filled, 0xA5, sizeof filled);
    const Settings pattern = filled;
    setDefaultSettings(&filled);
    EXPECT_EQ(filled.stream_override, 0);
    EXPECT_EQ(filled.output_stream, stdout);
    EXPECT_EQ(filled.dir, directionCode("restarted_broyden"));

    // The table covers the fields from normalize to record_progress exactly once, in field
    // order, under the field's own name.
    ASSERT_EQ(kSettingDescriptorCount, 26);
    const char* base = reinterpret_cast<const char*>(&filled);
    std::ptrdiff_t last_offset = -1;
    std::set<std::string> names;
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        const SettingDescriptor& option = kSettingDescriptors[k];
        SCOPED_TRACE(option.name);
        ASSERT_TRUE((option.int_field == nullptr) != (option.double_field == nullptr));
        const char* field;
        if (option.int_field != nullptr) {
            field = reinterpret_cast<const char*>(&(filled.*option.int_field));
            EXPECT_NE(filled.*option.int_field, pattern.*option.int_field);
            EXPECT_EQ(filled.*option.int_field, option.default_value);
        } else {
            field = reinterpret_cast<const char*>(&(filled.*option.double_field));
            EXPECT_EQ(filled.*option.double_field, option.default_value);
        }
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
