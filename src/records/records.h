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

// Compressed-column sparse matrix. The record and its three arrays are separate heap
// blocks.
struct SparseMatrix {
    double* x;        // non-zero values, p[n] entries
    std::int32_t* i;  // zero-based row index of each value, p[n] entries
    std::int32_t* p;  // column pointers, n + 1 entries; p[0] = 0, p[n] = number of non-zeros
    std::int32_t m;   // rows
    std::int32_t n;   // columns
};

// Every option of a solve. setDefaultSettings writes the default of each field.
struct Settings {
    std::int32_t normalize;          // non-zero: equilibrate A, b, c and undo it on the results
    double scale;                    // factor on the normalised A, b, c; positive
    double rho_x;                    // weight of the x block; positive
    std::int32_t max_iters;          // iteration limit; positive
    std::int32_t progress_capacity;  // entries the progress arrays are sized for; -1: never sized
    double eps;                      // convergence tolerance; positive
    double alpha;                    // over-relaxation factor, in (0, 2)
    double cg_rate;                  // carried and printed only
    std::int32_t verbose;            // 0: errors only; positive: report; 2 or more: settings dump
    std::int32_t warm_start;         // non-zero: start from the point given in Solution
    std::int32_t do_super_korvex;    // 1: Marlet iteration; 0: standard iteration
    std::int32_t k0;                 // 0 or 1: blind update step
    double c_bl;                     // residual decrease demanded of a blind step, in [0, 1)
    std::int32_t k1;                 // 0 or 1: educated update step
    std::int32_t k2;                 // 0 or 1: safeguarded update step
    double c1;                       // residual fraction an educated step must reach, in [0, 1)
    double sse;                      // base of the educated step's geometric allowance, in [0, 1)
    std::int32_t ls;                 // most line-search steps, 0 to 39
    double beta;                     // step reduction of the line search, in (0, 1)
    double sigma;                    // acceptance parameter of the safeguarded step; not negative
    std::int32_t dir;                // direction code: 100, 101, 200 or 300
    double thetabar;                 // restarted Broyden safeguard, in [0, 1]
    std::int32_t memory;             // pairs held by the direction cache
    std::int32_t broyden_rule;       // read by the full Broyden kind
    std::int32_t broyden_init_scale; // non-zero: full Broyden rescales H at its first call
    std::int32_t record_progress;    // non-zero: the Marlet iteration fills the progress arrays
    std::int32_t stream_override;    // non-zero: ordinary output goes straight to output_stream
    std::FILE* output_stream;        // stream for ordinary output
};

// The problem. Set by the caller; the core changes neither the record nor its arrays.
struct Data {
    std::int32_t m;      // rows of A; length of b, y, s
    std::int32_t n;      // columns of A; length of c, x
    SparseMatrix* A;     // constraint matrix
    double* b;           // right-hand side, m entries
    double* c;           // cost vector, n entries
    Settings* settings;  // options of this solve
};

// The product cone K. Its m rows are laid out in exactly this order, with no gaps:
// zero, non-negative, second-order blocks, semidefinite blocks (n(n+1)/2 rows for side n),
// primal exponential triples, dual exponential triples, power triples. An array is read
// only when its count is non-zero and the pointer non-null.
struct Cone {
    std::int32_t free_vars;          // rows of the zero cone
    std::int32_t linear_vars;        // rows of the non-negative cone
    std::int32_t* soc_sizes;         // length of each second-order block
    std::int32_t soc_blks;           // number of second-order blocks
    std::int32_t* sd_sizes;          // side of each semidefinite block
    std::int32_t sd_blks;            // number of semidefinite blocks
    std::int32_t exp_triples;        // primal exponential triples
    std::int32_t dual_exp_triples;   // dual exponential triples
    double* power_exponents;         // exponent of each power triple, in [-1, 1]
    std::int32_t power_triples;      // number of power triples
};

// The result vectors. A null pointer on entry is allocated by the core and then owned by
// the caller; a value left undefined by the final status is NaN.
struct Solution {
    double* x;  // primal point or certificate, n entries
    double* y;  // dual point or certificate, m entries
    double* s;  // primal slack or certificate, m entries
};

// Length of Info::status, terminating zero included.
constexpr int kStatusTextLength = 32;

// The summary of a solve: zeroed by the caller, filled by the core.
struct Info {
    std::int32_t iter;                     // iteration counter at the end; -1 after a failure
    char status[kStatusTextLength];        // status text, zero-terminated
    std::int32_t statusVal;                // status code
    double pobj;                           // primal objective c'x / tau
    double dobj;                           // dual objective -b'y / tau
    double resPri;                         // relative primal residual
    double resDual;                        // relative dual residual
    double resInfeas;                      // infeasibility measure
    double resUnbdd;                       // unboundedness measure
    double relGap;                         // relative duality gap
    double setupTime;                      // milliseconds in the set-up of the work record
    double solveTime;                      // milliseconds in the iteration
    std::int32_t progress_count;           // iterations of a Marlet solve
    std::int32_t* progress_iteration;      // progress history, one entry per iteration
    double* progress_rel_gap;
    double* progress_res_pri;
    double* progress_res_dual;
    double* progress_primal_cost;
    double* progress_dual_cost;
    double* progress_fpr_norm;
    double* progress_time_ms;
    std::int32_t* progress_step_kind;
    std::int32_t* progress_ls_count;
    std::int32_t memory_bytes;             // estimate of the memory of a Marlet solve
};

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

// Status codes of Info::statusVal. KORVEX_RUNNING is the value during the iteration only.
constexpr std::int32_t KORVEX_SOLVED = 1;
constexpr std::int32_t KORVEX_SOLVED_INACCURATE = 2;
constexpr std::int32_t KORVEX_RUNNING = 0;
constexpr std::int32_t KORVEX_UNBOUNDED = -1;
constexpr std::int32_t KORVEX_UNBOUNDED_INACCURATE = -6;
constexpr std::int32_t KORVEX_INFEASIBLE = -2;
constexpr std::int32_t KORVEX_INFEASIBLE_INACCURATE = -7;
constexpr std::int32_t KORVEX_INDETERMINATE = -3;
constexpr std::int32_t KORVEX_FAILED = -4;
constexpr std::int32_t KORVEX_SIGINT = -5;


namespace korvex {
// The text of a status code ("Solved", "Infeasible/Inaccurate", ...); "" for 0 and for
// codes that are not statuses.
const char* statusText(std::int32_t statusVal);

// Copies text into info->status, cut to 31 characters and always zero-terminated.
void setStatusText(Info* info, const char* text);

}  // namespace korvex

// Direction codes of Settings::dir.
constexpr std::int32_t KORVEX_DIR_RESTARTED_BROYDEN = 100;
constexpr std::int32_t KORVEX_DIR_RESTARTED_BROYDEN_V2 = 101;
constexpr std::int32_t KORVEX_DIR_FIXED_POINT_RESIDUAL = 200;
constexpr std::int32_t KORVEX_DIR_FULL_BROYDEN = 300;

namespace korvex {

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

// Writes the default of every field into settings: the table above, then
// stream_override 0 and output_stream standard output.
void setDefaultSettings(Settings* settings);
