#include "records/records.h"

#include <cstring>

namespace korvex {

const char* statusText(std::int32_t statusVal) {
    switch (statusVal) {
        case KORVEX_SOLVED: return "Solved";
        case KORVEX_SOLVED_INACCURATE: return "Solved/Inaccurate";
        case KORVEX_UNBOUNDED: return "Unbounded";
        case KORVEX_UNBOUNDED_INACCURATE: return "Unbounded/Inaccurate";
        case KORVEX_INFEASIBLE: return "Infeasible";
        case KORVEX_INFEASIBLE_INACCURATE: return "Infeasible/Inaccurate";
        case KORVEX_INDETERMINATE: return "Indeterminate";
        case KORVEX_FAILED: return "Failure";
        case KORVEX_SIGINT: return "Interrupted";
        default: return "";
    }
}

void setStatusText(Info* info, const char* text) {
    std::strncpy(info->status, text, kStatusTextLength - 1);
    info->status[kStatusTextLength - 1] = '\0';
}

namespace {

struct DirectionEntry {
    const char* name;
    std::int32_t code;
};

// In the order in which names are compared.
constexpr DirectionEntry kDirections[] = {
    {"restarted_broyden", KORVEX_DIR_RESTARTED_BROYDEN},
    {"restarted_broyden_v2", KORVEX_DIR_RESTARTED_BROYDEN_V2},
    {"fixed_point_residual", KORVEX_DIR_FIXED_POINT_RESIDUAL},
    {"full_broyden", KORVEX_DIR_FULL_BROYDEN},
};

}  // namespace

std::int32_t directionCode(const char* name) {
    if (name == nullptr) return KORVEX_DIR_RESTARTED_BROYDEN;
    for (const DirectionEntry& entry : kDirections) {
        if (std::strcmp(name, entry.name) == 0) return entry.code;
    }
    return KORVEX_DIR_RESTARTED_BROYDEN;
}

const char* directionName(std::int32_t code) {
    for (const DirectionEntry& entry : kDirections) {
        if (entry.code == code) return entry.name;
    }
    return nullptr;
}

namespace {

// The accepted side of a limit: greaterThan(0) refuses 0 and below, atLeast(0) only
// values below 0; lessThan and atMost likewise from above.
constexpr SettingLimit greaterThan(double value) { return {value, true}; }
constexpr SettingLimit atLeast(double value) { return {value, false}; }
constexpr SettingLimit lessThan(double value) { return {value, true}; }
constexpr SettingLimit atMost(double value) { return {value, false}; }

// The memory of the direction cache matters only to the two restarted kinds that keep one.
bool keepsDirectionCache(const Settings& s) {
    return s.dir == KORVEX_DIR_RESTARTED_BROYDEN || s.dir == KORVEX_DIR_RESTARTED_BROYDEN_V2;
}

bool namesDirection(std::int32_t code) { return directionName(code) != nullptr; }

}  // namespace

#define KORVEX_INT(field) .name = #field, .int_field = &Settings::field
#define KORVEX_REAL(field) .name = #field, .double_field = &Settings::field

const SettingDescriptor kSettingDescriptors[] = {
    {KORVEX_INT(normalize), .default_value = 1,
     .help = "non-zero: equilibrate A, b and c before iterating, and undo it on the results", .link_position = 11},
    {KORVEX_REAL(scale), .default_value = 1.0, .help = "factor on the normalised A, b and c; positive",
     .link_position = 12, .check_rank = 5, .low = greaterThan(0),
     .refusal = "Parameter `scale` must be positive (1 works well).\n"},
    {KORVEX_REAL(rho_x), .default_value = 0.001,
     .help = "weight of the x block in the linear system and in the residual norm; positive", .link_position = 13,
     .check_rank = 4, .low = greaterThan(0), .refusal = "rho_x must be positive (1e-3 works well) (rho_x=%g).\n",
     .shown = ShownValue::kReal},
    {KORVEX_INT(max_iters), .default_value = 2500, .help = "iteration limit; positive", .link_position = 14,
     .check_rank = 1, .low = greaterThan(0), .refusal = "max_iters must be positive (max_iters=%ld)\n",
     .shown = ShownValue::kLong},
    {KORVEX_INT(progress_capacity), .default_value = -1,
     .help = "entries the progress arrays are sized for; -1 when never sized", .link_position = 15,
     .dump = DumpLine::kNone},
    {KORVEX_REAL(eps), .default_value = 0.001, .help = "convergence tolerance; positive", .link_position = 16,
     .check_rank = 2, .low = greaterThan(0), .refusal = "eps tolerance must be positive (eps=%g)\n",
     .shown = ShownValue::kReal},
    {KORVEX_REAL(alpha), .default_value = 1.5, .help = "over-relaxation factor, in (0, 2)", .link_position = 17,
     .check_rank = 3, .low = greaterThan(0), .high = lessThan(2), .refusal = "alpha must be in (0,2) (alpha=%g)\n",
     .shown = ShownValue::kReal},
    {KORVEX_REAL(cg_rate), .default_value = 2.0,
     .help = "carried and printed in the settings dump; the direct solver ignores it", .link_position = 18},
    {KORVEX_INT(verbose), .default_value = 1,
     .help = "0: errors only; positive: progress table and report; 2 or more: settings dump too", .link_position = 19,
     .dump = DumpLine::kNone},
    {KORVEX_INT(warm_start), .default_value = 0,
     .help = "non-zero: start from the given point; the Marlet iteration runs plain steps below it",
     .link_position = 20},
    {KORVEX_INT(do_super_korvex), .default_value = 1, .help = "1: Marlet iteration; 0: standard iteration",
     .link_position = 21, .check_rank = 6, .low = atLeast(0), .high = atMost(1),
     .refusal = "do_super_korvex (=%d) can be either 0 or 1.\n", .shown = ShownValue::kInt},
    {KORVEX_INT(k0), .default_value = 0, .help = "0 or 1: blind update step", .link_position = 22,
     .dump = DumpLine::kJoined, .check_rank = 15, .marlet_only = true, .low = atLeast(0), .high = atMost(1),
     .refusal = "Parameter (k0=%d) can be eiter 0 (k0: off) or 1 (k0: on).\n", .shown = ShownValue::kInt},
    {KORVEX_REAL(c_bl), .default_value = 0.999,
     .help = "factor by which the residual norm must fall for a blind step, in [0, 1)", .link_position = 25,
     .check_rank = 12, .marlet_only = true, .low = atLeast(0), .high = lessThan(1),
     .refusal = "Parameter (c_0=%g) for blind updates out of bounds.\n", .shown = ShownValue::kReal},
    {KORVEX_INT(k1), .default_value = 1, .help = "0 or 1: educated update step", .link_position = 23,
     .dump = DumpLine::kJoined, .check_rank = 16, .marlet_only = true, .low = atLeast(0), .high = atMost(1),
     .refusal = "Parameter (k1=%d) can be eiter 0 (k1: off) or 1 (k1: on).\n", .shown = ShownValue::kInt},
    {KORVEX_INT(k2), .default_value = 1, .help = "0 or 1: safeguarded update step", .link_position = 24,
     .dump = DumpLine::kJoined, .check_rank = 17, .marlet_only = true, .low = atLeast(0), .high = atMost(1),
     .refusal = "Parameter (k2=%d) can be eiter 0 (k2: off) or 1 (k2: on).\n", .shown = ShownValue::kInt},
    {KORVEX_REAL(c1), .default_value = 0.9999,
     .help = "fraction of the residual norm an educated step must reach, in [0, 1)", .link_position = 26,
     .check_rank = 13, .marlet_only = true, .low = atLeast(0), .high = lessThan(1),
     .refusal = "Parameter (c1=%g) for step K1 out of bounds.\n", .shown = ShownValue::kReal},
    {KORVEX_REAL(sse), .default_value = 0.999, .help = "base of the geometric allowance of the educated step, in [0, 1)",
     .link_position = 27, .check_rank = 14, .marlet_only = true, .low = atLeast(0), .high = lessThan(1),
     .refusal = "Parameter (sse=%g) for step K1 out of bounds.\n", .shown = ShownValue::kReal},
    // Two tiers above: 40 and more is refused, in spite of its "WARNING!", and 11 to 39 warns.
    {KORVEX_INT(ls), .default_value = 10, .help = "most line-search steps, 0 to 39", .link_position = 28,
     .check_rank = 10, .marlet_only = true, .low = atLeast(0), .high = lessThan(40),
     .refusal = "Illegal maximum number of line search iterations (ls=%ld).\n",
     .high_refusal = "WARNING! The value ls=%ld is too high. The maximum allowed number of line search iteration is "
                     "40. We recommend a value about 10.\n",
     .shown = ShownValue::kLong, .warn_above = atMost(10),
     .warning = "WARNING! The value ls=%ld is too high. We highly recommendthe maximum number of line search "
                "iterations to be at most 10.\n"},
    {KORVEX_REAL(beta), .default_value = 0.5, .help = "step-size reduction of the line search, in (0, 1)",
     .link_position = 29, .check_rank = 9, .marlet_only = true, .low = greaterThan(0), .high = lessThan(1),
     .refusal = "Stepsize reduction factor (beta=%g) out of bounds.\n", .shown = ShownValue::kReal},
    {KORVEX_REAL(sigma), .default_value = 0.01, .help = "acceptance parameter of the safeguarded step; not negative",
     .link_position = 30, .check_rank = 11, .marlet_only = true, .low = atLeast(0),
     .refusal = "Parameter sigma of the line search (sigma=%g) cannot be negative.\n", .shown = ShownValue::kReal},
    {KORVEX_INT(dir), .default_value = KORVEX_DIR_RESTARTED_BROYDEN,
     .help = "direction: 100 restarted_broyden, 101 restarted_broyden_v2, 200 fixed_point_residual, 300 full_broyden",
     .link_position = 31, .from_text = directionCode, .check_rank = 18, .marlet_only = true,
     .accepts = namesDirection, .refusal = "Invalid direction (%ld).\n", .shown = ShownValue::kLong},
    {KORVEX_REAL(thetabar), .default_value = 0.1, .help = "safeguard of the restarted Broyden update, in [0, 1]",
     .link_position = 32, .check_rank = 7, .marlet_only = true, .low = atLeast(0), .high = atMost(1),
     .refusal = "Parameters `thetabar` must be a scalar between 0 and 1 (thetabar=%g)\n", .shown = ShownValue::kReal},
    {KORVEX_INT(memory), .default_value = 10,
     .help = "pairs held by the direction cache; at least 2 for the restarted kinds", .link_position = 33,
     .check_rank = 8, .marlet_only = true, .applies = keepsDirectionCache, .low = atLeast(2),
     .refusal = "Quasi-Newton memory length (mem=%ld) is too low; choose an integer at least equal to 2.\n",
     .shown = ShownValue::kLong},
    {KORVEX_INT(broyden_rule), .default_value = 1, .help = "update rule of the full Broyden kind", .link_position = 34,
     .dump = DumpLine::kNone},
    {KORVEX_INT(broyden_init_scale), .default_value = 1,
     .help = "non-zero: the full Broyden kind rescales H at its first call", .link_position = 35,
     .dump = DumpLine::kNone},
    {KORVEX_INT(record_progress), .default_value = 0,
     .help = "non-zero: the Marlet iteration records the progress history", .link_position = 36,
     .dump = DumpLine::kNone},
};

#undef KORVEX_INT
#undef KORVEX_REAL

}  // namespace korvex

using korvex::kSettingDescriptors;
using korvex::SettingDescriptor;

void setDefaultSettings(Settings* settings) noexcept {
    if (settings == nullptr) return;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (option.int_field != nullptr) {
            settings->*option.int_field = static_cast<std::int32_t>(option.default_value);
        } else {
            settings->*option.double_field = option.default_value;
        }
    }
    settings->stream_override = 0;
    settings->output_stream = stdout;
}
