// KorvexLinkSolve on arguments made from arbitrary bytes, through the stand-in host:
// instances made and missing, b and c of any content, cone counts and size tensors that
// fit the rows or not, a sparse array that may disagree with everything, any option
// value and direction name. Every call answers with a status of the table, the instances
// read back, and once they are gone no host object is left alive.
#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "fuzz/fuzz_support.h"
#include "host/solve_arguments.h"
#include "host/stand_in_host.h"
#include "link/korvex_link.h"

namespace {

constexpr const char* kManager = "korvex_solution_instance_manager";
constexpr const char* kDirections[] = {"restarted_broyden", "restarted_broyden_v2", "fixed_point_residual", "full_broyden"};

// Up to 12 rows and 8 columns, with a cone laid over the rows in the library's order.
standin::ConeProgram program(fuzz::Bytes& in) {
    standin::ConeProgram p;
    const std::int32_t m = in.upTo(12), n = in.upTo(8);
    p.rows.assign(m, std::vector<double>(n, 0.0));
    for (int k = in.upTo(3 * (m + n)); k > 0 && m * n > 0; --k) p.rows[in.upTo(m - 1)][in.upTo(n - 1)] = in.real();
    for (std::int32_t k = 0; k < m + n; ++k) (k < m ? p.b : p.c).push_back(in.real());
    std::int32_t left = m - (p.free_vars = in.upTo(m));
    if (left > 0 && in.flag()) p.soc_sizes.push_back(1 + in.upTo(left - 1)), left -= p.soc_sizes.back();
    if (left >= 3 && in.flag()) p.sd_sizes.push_back(2), left -= 3;
    left -= 3 * (p.exp_triples = in.upTo(left / 3));
    left -= 3 * (p.dual_exp_triples = in.upTo(left / 3));
    if (left >= 3 && in.flag()) p.power_exponents.push_back(in.real()), left -= 3;
    p.linear_vars = left;
    return p;
}

// A size tensor of any entries, and on a flag a sparse array of n columns whose starts,
// rows and values are taken as they come, in place of the problem's own.
void mangle(fuzz::Bytes& in, standin::HostProblem* problem, std::int32_t m, std::int32_t n) {
    std::vector<std::int32_t> sizes(in.upTo(3)), starts(std::max(0, n + in.upTo(2) - 1)), rows(in.upTo(16));
    std::vector<double> values(in.upTo(16));
    for (std::vector<std::int32_t>* list : {&sizes, &starts, &rows}) {
        for (std::int32_t& value : *list) value = in.flag() ? in.integer() : in.upTo(m + 1);
    }
    for (double& value : values) value = in.real();
    HostTensor& tensor = in.flag() ? problem->soc_sizes : problem->sd_sizes;
    standin::freeTensor(std::exchange(tensor, standin::newIntegerTensor(sizes)));
    if (in.flag()) standin::freeSparse(std::exchange(problem->A, standin::newSparse(m, starts, rows, values)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const HostData host = standin::callbackTable();
    static const int registered = TolvaneLibrary_initialize(host);
    fuzz::Bytes in{data, size};
    for (std::int32_t id = 1; id <= 3; ++id) {
        if (in.flag()) standin::createInstanceWithId(kManager, id);
    }
    const standin::ConeProgram p = program(in);
    std::optional<standin::HostProblem> problem(std::in_place, p);
    if (in.flag()) mangle(in, &*problem, static_cast<std::int32_t>(p.b.size()), static_cast<std::int32_t>(p.c.size()));
    Settings settings;
    setDefaultSettings(&settings);
    std::tie(settings.verbose, settings.max_iters) = std::tuple(0, 50);
    std::string direction = kDirections[in.upTo(3)];
    if (in.flag()) {  // any text, zero bytes included
        direction.assign(in.upTo(24), '\0');
        for (char& c : direction) c = static_cast<char>(in.byte());
    }
    standin::SolveArguments arguments(in.upTo(4), *problem, settings, direction);
    for (int position : {4, 5, 8, 9}) {
        if (in.flag()) arguments.setInteger(position, in.integer());
    }
    // Any option by position. The iteration limit, the progress capacity and the Broyden
    // memory only scale the time and memory of a solve: they are held low for a fast
    // search, with their refusals (zero, negative) still in reach.
    for (const korvex::SettingDescriptor& option : korvex::kSettingDescriptors) {
        if (option.from_text != nullptr || !in.flag()) continue;
        const bool bounded = option.int_field == &Settings::max_iters || option.int_field == &Settings::memory ||
                             option.int_field == &Settings::progress_capacity;
        if (option.double_field != nullptr) arguments.setReal(option.link_position, in.real());
        if (option.int_field != nullptr) arguments.setInteger(option.link_position, bounded ? std::min(in.integer(), 50) : in.integer());
    }
    std::int32_t status = 12345;
    constexpr std::int32_t kStatuses[] = {1, 2, -1, -6, -2, -7, -3, -4, -5};
    if (registered != 0 || KorvexLinkSolve(host, 37, arguments.slots(), &status) != 0 || !std::count(kStatuses, kStatuses + 9, status)) {
        fuzz::broken("no registration, a non-zero return or an unknown status");
    }
    for (std::int32_t id : {0, 1, 2, 3, 4}) {  // the vector accessors, then a delete or not
        HostArgument by_id[] = {&id};
        HostTensor x = nullptr;
        KorvexSolutionMap_ret_x(host, 1, by_id, &x);
        standin::freeTensor(x);
        if (in.flag()) KorvexSolutionMap_delete(host, 1, by_id, nullptr);
    }
    for (std::int32_t live : standin::liveInstances(kManager)) standin::destroyInstance(kManager, live);
    problem.reset();
    if (standin::liveTensorCount() != 0 || standin::liveSparseCount() != 0) fuzz::broken("host objects left alive");
    return 0;
}
