// The host link inside: the records of one KorvexLinkSolve call, the steps that turn the
// host's positional arguments into the solver's records and back, and the store of
// solution instances behind the accessors. The exports themselves are declared in
// korvex_link.h.
//
// Everything here runs on the host's calling thread, one call at a time, and takes no
// lock. Host objects are reached only through the callback table.
#pragma once

#include <cstdint>
#include <unordered_map>
#include <utility>

#include "records/records.h"
#include "link/host_interface.h"

namespace korvex {

// ---- Load time ------------------------------------------------------------------------

// The name under which the host knows our instances.
inline constexpr const char* kInstanceManagerName = "korvex_solution_instance_manager";

// The interface version that TolvaneLibrary_getVersion reports.
inline constexpr std::int32_t kLinkInterfaceVersion = 5;

// Return codes of the exports: success, and a wrong argument count or an unknown id.
inline constexpr int kLinkOk = 0;
inline constexpr int kLinkBadArguments = 6;
// What an export returns if something unexpected (an exception) stopped it.
inline constexpr int kLinkInternalError = 1;

// Runs the body of an export and turns any exception into kLinkInternalError, so that
// nothing is thrown across the C boundary.
template <class Body>
int guardExport(Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return kLinkInternalError;
    }
}

// The callback table to use for a call: the one the call brought, else the one kept at
// TolvaneLibrary_initialize; null when there is neither.
HostData callbackTable(HostData host);

// ---- Positional arguments -------------------------------------------------------------

// KorvexLinkSolve takes this many arguments, 0 to 36.
inline constexpr int kSolveArgumentCount = 37;

// Reading a slot: each points at a value of the host type named.
inline std::int32_t integerArgument(HostArgument* arguments, int k) { return *static_cast<std::int32_t*>(arguments[k]); }
inline double realArgument(HostArgument* arguments, int k) { return *static_cast<double*>(arguments[k]); }
inline HostTensor tensorArgument(HostArgument* arguments, int k) { return *static_cast<HostTensor*>(arguments[k]); }
inline HostSparse sparseArgument(HostArgument* arguments, int k) { return *static_cast<HostSparse*>(arguments[k]); }
inline const char* textArgument(HostArgument* arguments, int k) { return *static_cast<char**>(arguments[k]); }

// ---- Solve entry ----------------------------------------------------------------------

// The host values of one call: counts, lengths, and handles of the tensors and the sparse
// array. Read from the arguments it holds the host's own handles; built by
// buildLinkInput it holds clones that belong to the record.
struct LinkInput {
    std::int32_t m;                 // length of b
    std::int32_t n;                 // length of c
    HostTensor b;
    HostTensor c;
    HostSparse A;
    std::int32_t free_vars;
    std::int32_t linear_vars;
    HostTensor soc_sizes;
    std::int32_t soc_blks;          // length of soc_sizes
    HostTensor sd_sizes;
    std::int32_t sd_blks;           // length of sd_sizes
    std::int32_t exp_triples;
    std::int32_t dual_exp_triples;
    std::int32_t power_triples;     // length of power_exponents
    HostTensor power_exponents;
};

// The option arguments, positions 11 to 36, as read: at[k] holds position 11 + k, in the
// member of the argument's host type (an integer, a real, or a direction's name already
// turned into its code). The settings table tells which field of Settings each fills.
inline constexpr int kFirstOptionPosition = 11;
inline constexpr int kOptionArgumentCount = kSolveArgumentCount - kFirstOptionPosition;
static_assert(kOptionArgumentCount == kSettingDescriptorCount, "one option argument per setting");

struct LinkSettings {
    struct Value {
        std::int32_t integer;
        double real;
    };
    Value at[kOptionArgumentCount];
};

// Positions 0 to 10: the counts, and the host's own handles with the flattened lengths of
// b, c, soc_sizes, sd_sizes and power_exponents (asked in this order). Nothing is cloned.
LinkInput readProblemArguments(HostData host, HostArgument* arguments);

// A new LinkInput with the counts of arguments and clones of its five tensors (in the
// order b, c, soc_sizes, sd_sizes, power_exponents) and, last, of its sparse array. Null
// when an allocation or a clone fails; what was cloned is then freed again.
LinkInput* buildLinkInput(HostData host, const LinkInput* arguments);

// A new LinkSettings from positions 11 to 36, the name at 31 turned into its code (any
// name outside the four gives 100); null when the allocation fails.
LinkSettings* buildLinkSettings(HostArgument* arguments);

// Fills data (m, n, copies of b and c, A with zero-based rows, Settings) and cone from
// the clones of input and from settings. Settings gets the library defaults, then every
// option of settings by name, stream_override 0 and standard output. Returns 0, or 1 when
// the sparse array is malformed (starts not n + 1 long, no stored value, indices or values
// not as long as the last start), when the host gives no data for a non-empty tensor, or
// when memory runs out. Whatever was made before a refusal is linked into data and cone,
// for releaseProblemRecords. Prints nothing.
int fillProblemRecords(HostData host, Data* data, Cone* cone, const LinkInput* input, const LinkSettings* settings);

// Frees b, c, Settings, the SparseMatrix with its arrays and data; then the three arrays
// of cone and cone. Every pointer may be null.
void releaseProblemRecords(Data* data, Cone* cone);

// Frees x, y, s where non-null, and the record; null does nothing.
void releaseSolution(Solution* solution);

// Frees the clones held by input (tensors with tensorFree, the sparse array with
// sparseFree) and the record; null does nothing.
void releaseLinkInput(HostData host, LinkInput* input);

// The whole of one KorvexLinkSolve call: the statusVal of the solve, or -4 when the
// arguments were refused or no instance exists for the id at position 0 (nothing is then
// stored). The status is written through result, an int32_t, before the clones go.
std::int32_t linkSolve(HostData host, HostArgument* arguments, HostArgument result);

// ---- Solution store -------------------------------------------------------------------

// The stored result of one solve, owned by the store. Created empty by the manager; the
// three tensors belong to the instance.
struct SolutionInstance {
    HostTensor x;                        // primal vector, n entries, or null
    HostTensor y;                        // dual vector, m entries, or null
    HostTensor s;                        // slack vector, m entries, or null
    std::int32_t iter;
    char status[kStatusTextLength];      // zero-terminated
    std::int32_t statusVal;
    double pobj;
    double dobj;
    double resPri;
    double resDual;
    double resInfeas;
    double resUnbdd;
    double relGap;
    double setupTime;                    // milliseconds
    double solveTime;                    // milliseconds
};

// Every live instance by the host's id. Empty at load; never reset by initialisation.
extern std::unordered_map<std::int32_t, SolutionInstance*> solutionMap;

// The instance of id, or null.
SolutionInstance* findInstance(std::int32_t id);

// Copies the vectors of solution (x with data->n entries, y and s with data->m) into new
// host tensors of the instance of id, replacing the ones it held, then the summary of
// info. A null vector is stored as NaN, like any value the solve left undefined. Returns
// the instance, or null when id has none (nothing is then stored).
SolutionInstance* storeSolution(HostData host, std::int32_t id, const Solution* solution, const Info* info,
                                const Data* data);

// Frees the tensor in *slot if any, then makes a new real tensor of length entries there
// and copies source into it (NaN everywhere when source is null). Returns 0, or the
// host's error code from tensorNew (-1 when the host gives no data for the new tensor);
// the slot is then null.
int copyToHostTensor(HostData host, const double* source, std::int32_t length, HostTensor* slot);

}  // namespace korvex
