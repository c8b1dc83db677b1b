// The records of a cone program and of its solution: the vocabulary shared by the host
// link, the command line and every subsystem of the solver.
//
// The problem is: minimise c'x subject to Ax + s = b, s in K, with K the product cone
// that Cone describes and y the dual point. Floating point values are 64-bit, integers
// signed 32-bit, array indices zero-based.
//
// These are plain C-layout records: fields in a fixed order, no behaviour, raw pointers
// owned by whoever filled them. The core never writes the caller's A, b or c.
#pragma once

#include <cstdint>
#include <cstdio>
#include <limits>
#include <type_traits>

// SparseMatrix, Settings, Data, Cone, Solution, Info, the status and direction codes,
// setDefaultSettings and solveConeProgram: the public C interface, declared once for the
// callers, the core and the host link alike.
#include "korvex/korvex.h"

// Length of Info::status, terminating zero included.
constexpr int kStatusTextLength = KORVEX_STATUS_TEXT_LENGTH;

// The figures of one iterate, in the caller's units.
struct Residuals {
    std::int32_t last_iter;  // iteration these figures belong to; -1 at the start
    double res_dual;         // relative dual residual
    double res_pri;          // relative primal residual
    double res_infeas;       // infeasibility measure; NaN unless b_dot_y < 0
    double res_unbdd;        // unboundedness measure; NaN unless c_dot_x < 0
    double rel_gap;          // relative gap
    double c_dot_x;          // c'x, not divided by tau
    double b_dot_y;          // b'y, not divided by tau
    double tau;              // last entry of the iterate
    double kap;              // homogenising partner of tau
};

static_assert(sizeof(std::int32_t) == sizeof(int), "the records assume a 32-bit int");
static_assert(std::is_standard_layout_v<SparseMatrix> && std::is_trivially_copyable_v<SparseMatrix>);
static_assert(std::is_standard_layout_v<Settings> && std::is_trivially_copyable_v<Settings>);
static_assert(std::is_standard_layout_v<Data> && std::is_trivially_copyable_v<Data>);
static_assert(std::is_standard_layout_v<Cone> && std::is_trivially_copyable_v<Cone>);
static_assert(std::is_standard_layout_v<Solution> && std::is_trivially_copyable_v<Solution>);
static_assert(std::is_standard_layout_v<Info> && std::is_trivially_copyable_v<Info>);
static_assert(std::is_standard_layout_v<Residuals> && std::is_trivially_copyable_v<Residuals>);

namespace korvex {
// The text of a status code ("Solved", "Infeasible/Inaccurate", ...); "" for 0 and for
// codes that are not statuses.
const char* statusText(std::int32_t statusVal);

// Copies text into info->status, cut to 31 characters and always zero-terminated.
void setStatusText(Info* info, const char* text);

// The code of a direction name, compared in full and case-sensitively; any other text,
// and null, gives 100 (restarted Broyden).
std::int32_t directionCode(const char* name);

// The name of a direction code, or null for a code that names no direction.
const char* directionName(std::int32_t code);

// A limit of a validated option: a value below a lower limit or above an upper one is
// beyond it, and so is the limit itself when it is open. Plain comparisons decide, so a
// NaN is never beyond a limit.
struct SettingLimit {
    double value;
    bool open;
};
inline constexpr SettingLimit kNoLowerLimit{-std::numeric_limits<double>::infinity(), false};
inline constexpr SettingLimit kNoUpperLimit{std::numeric_limits<double>::infinity(), false};

// How a validation message shows the value under test: not at all, or through the one
// conversion of its format, %d, %ld or %g.
enum class ShownValue : std::int8_t { kNone, kInt, kLong, kReal };

// What the settings dump prints for an option: nothing, a line "name : value" of its
// own, or a share of one line with the joined options next to it in alphabetical order,
// "(k0, k1, k2) : (0, 1, 1)".
enum class DumpLine : std::int8_t { kNone, kOwn, kJoined };

// One option of Settings, from normalize to record_progress: the field's own name, where
// it lives, its default and a line of help for the front ends; its argument position in
// KorvexLinkSolve; its place in the settings dump; and how the validation checks it.
// Either int_field or double_field is set.
struct SettingDescriptor {
    const char* name = nullptr;
    std::int32_t Settings::*int_field = nullptr;
    double Settings::*double_field = nullptr;
    double default_value = 0.0;
    const char* help = nullptr;

    int link_position = 0;
    // Set when the host passes the option as a text: turns it into the field's value.
    std::int32_t (*from_text)(const char*) = nullptr;

    DumpLine dump = DumpLine::kOwn;

    // The checked options are tested in increasing check_rank, after the dimensions, the
    // matrix and the cone, and the first refusal ends the validation. A check refuses a
    // value beyond low or high (with high_refusal, when there is one, beyond high) and a
    // value that accepts rejects; a value beyond warn_above prints warning and passes.
    int check_rank = 0;                            // 0: not checked
    bool marlet_only = false;                      // skipped when do_super_korvex is 0
    bool (*applies)(const Settings&) = nullptr;    // set: checked only where it holds
    SettingLimit low = kNoLowerLimit;
    SettingLimit high = kNoUpperLimit;
    bool (*accepts)(std::int32_t) = nullptr;
    const char* refusal = nullptr;                 // printf format of the refusal
    const char* high_refusal = nullptr;
    ShownValue shown = ShownValue::kNone;          // for refusal, high_refusal and warning
    SettingLimit warn_above = kNoUpperLimit;
    const char* warning = nullptr;
};

// The options in the order of the fields.
inline constexpr int kSettingDescriptorCount = 26;
extern const SettingDescriptor kSettingDescriptors[kSettingDescriptorCount];

}  // namespace korvex
