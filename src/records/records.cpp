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

#define KORVEX_INT_SETTING(field, value, text) {#field, &Settings::field, nullptr, value, text}
#define KORVEX_REAL_SETTING(field, value, text) {#field, nullptr, &Settings::field, value, text}

const SettingDescriptor kSettingDescriptors[] = {
    KORVEX_INT_SETTING(normalize, 1, "non-zero: equilibrate A, b and c before iterating, and undo it on the results"),
    KORVEX_REAL_SETTING(scale, 1.0, "factor on the normalised A, b and c; positive"),
    KORVEX_REAL_SETTING(rho_x, 0.001, "weight of the x block in the linear system and in the residual norm; positive"),
    KORVEX_INT_SETTING(max_iters, 2500, "iteration limit; positive"),
    KORVEX_INT_SETTING(progress_capacity, -1, "entries the progress arrays are sized for; -1 when never sized"),
    KORVEX_REAL_SETTING(eps, 0.001, "convergence tolerance; positive"),
    KORVEX_REAL_SETTING(alpha, 1.5, "over-relaxation factor, in (0, 2)"),
    KORVEX_REAL_SETTING(cg_rate, 2.0, "carried and printed in the settings dump; the direct solver ignores it"),
    KORVEX_INT_SETTING(verbose, 1, "0: errors only; positive: progress table and report; 2 or more: settings dump too"),
    KORVEX_INT_SETTING(warm_start, 0, "non-zero: start from the given point; the Marlet iteration runs plain steps below it"),
    KORVEX_INT_SETTING(do_super_korvex, 1, "1: Marlet iteration; 0: standard iteration"),
    KORVEX_INT_SETTING(k0, 0, "0 or 1: blind update step"),
    KORVEX_REAL_SETTING(c_bl, 0.999, "factor by which the residual norm must fall for a blind step, in [0, 1)"),
    KORVEX_INT_SETTING(k1, 1, "0 or 1: educated update step"),
    KORVEX_INT_SETTING(k2, 1, "0 or 1: safeguarded update step"),
    KORVEX_REAL_SETTING(c1, 0.9999, "fraction of the residual norm an educated step must reach, in [0, 1)"),
    KORVEX_REAL_SETTING(sse, 0.999, "base of the geometric allowance of the educated step, in [0, 1)"),
    KORVEX_INT_SETTING(ls, 10, "most line-search steps, 0 to 39"),
    KORVEX_REAL_SETTING(beta, 0.5, "step-size reduction of the line search, in (0, 1)"),
    KORVEX_REAL_SETTING(sigma, 0.01, "acceptance parameter of the safeguarded step; not negative"),
    KORVEX_INT_SETTING(dir, KORVEX_DIR_RESTARTED_BROYDEN,
                       "direction: 100 restarted_broyden, 101 restarted_broyden_v2, 200 fixed_point_residual, 300 full_broyden"),
    KORVEX_REAL_SETTING(thetabar, 0.1, "safeguard of the restarted Broyden update, in [0, 1]"),
    KORVEX_INT_SETTING(memory, 10, "pairs held by the direction cache; at least 2 for the restarted kinds"),
    KORVEX_INT_SETTING(broyden_rule, 1, "update rule of the full Broyden kind"),
    KORVEX_INT_SETTING(broyden_init_scale, 1, "non-zero: the full Broyden kind rescales H at its first call"),
    KORVEX_INT_SETTING(record_progress, 0, "non-zero: the Marlet iteration records the progress history"),
};

#undef KORVEX_INT_SETTING
#undef KORVEX_REAL_SETTING

const int kSettingDescriptorCount = sizeof(kSettingDescriptors) / sizeof(kSettingDescriptors[0]);

}  // namespace korvex

using korvex::kSettingDescriptors;
using korvex::SettingDescriptor;

void setDefaultSettings(Settings* settings) {
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
