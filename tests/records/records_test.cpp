// Texts of the records, and the settings table that the defaults, the link, the dump and
// the validation all read.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "directions/directions.h"
#include "records/work.h"
#include "support/capture.h"

using namespace korvex;

namespace {

TEST(Records, StatusTextFitsAndDirectionNamesAreComparedInFull) {
    Info info;
    std::memset(&info, 'q', sizeof info);
    setStatusText(&info, std::string(40, 'w').c_str());
    EXPECT_EQ(std::string(info.status), std::string(kStatusTextLength - 1, 'w'));
    const std::pair<const char*, int> names[] = {
        {"restarted_broyden", 100}, {"restarted_broyden_v2", 101}, {"fixed_point_residual", 200}, {"full_broyden", 300},
        {"Full_broyden", 100},      {"full_broyden ", 100},        {"restarted_broyden_v3", 100}, {nullptr, 100}};
    for (const auto& [name, code] : names) EXPECT_EQ(directionCode(name), code) << (name ? name : "null");
    for (int code : {100, 101, 200, 300}) EXPECT_EQ(directionCode(directionName(code)), code);
}

TEST(Records, SettingsTableHasEachOptionOnceWithConsistentPlaces) {
    Settings filled;
    std::memset(&filled, 0xA5, sizeof filled);
    setDefaultSettings(&filled);
    EXPECT_TRUE(filled.stream_override == 0 && filled.output_stream == stdout);
    std::set<int> positions, ranks;
    std::ptrdiff_t offset = -1;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        SCOPED_TRACE(option.name);
        const bool integer = option.int_field != nullptr;
        ASSERT_NE(integer, option.double_field != nullptr);
        // Every field from normalize to record_progress in turn, written with its default.
        const void* field = integer ? static_cast<void*>(&(filled.*option.int_field)) : &(filled.*option.double_field);
        EXPECT_GT(static_cast<const char*>(field) - reinterpret_cast<const char*>(&filled), offset);
        offset = static_cast<const char*>(field) - reinterpret_cast<const char*>(&filled);
        EXPECT_EQ(integer ? filled.*option.int_field : filled.*option.double_field, option.default_value);
        // Positions 11 to 36 once each, and a rank and a refusal for each checked option.
        EXPECT_TRUE(positions.insert(option.link_position).second);
        EXPECT_TRUE(option.check_rank == 0 || ranks.insert(option.check_rank).second);
        EXPECT_EQ(option.check_rank > 0, option.refusal != nullptr);
        EXPECT_TRUE(option.shown == ShownValue::kNone || (option.shown == ShownValue::kReal) != integer);
    }
    EXPECT_EQ(offset, static_cast<std::ptrdiff_t>(offsetof(Settings, record_progress)));
    EXPECT_TRUE(*positions.begin() == 11 && *positions.rbegin() == 36);
    // Validation walks the ranks 1, 2, ... and stops at the first missing one.
    EXPECT_TRUE(*ranks.begin() == 1 && *ranks.rbegin() == static_cast<int>(ranks.size()));
}

TEST(Records, AFailedHYIsReportedOnTheStandardOutputItself) {
    Settings settings{};
    settings.stream_override = 1;  // where printTo would take the error stream
    Work work{};
    work.settings = &settings;
    work.l = 3;
    releaseMemory(std::exchange(HY, nullptr));
    CapturedOutput out;
    failAllocationAt(1);
    EXPECT_EQ(computeFullBroyden(&work, 2), 0);
    failAllocationAt(0);
    EXPECT_EQ(out.finish(), "ERROR: allocating `HY` in `computeFullBroyden` failure\n");
}

}  // namespace
