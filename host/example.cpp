// The whole road of a host through KorvexLink: load the library, register, create an
// instance, solve a small linear program into it, read the result back, and clean up.
//
//   korvex_host_example [path/to/libKorvexLink.so]
#include <cstdio>
#include <string>

#include "records/records.h"
#include "host/link_loader.h"
#include "host/solve_arguments.h"
#include "host/stand_in_host.h"

using namespace korvex;

namespace {

constexpr const char* kManager = "korvex_solution_instance_manager";

}  // namespace

int main(int argc, char** argv) {
    const char* path = argc > 1 ? argv[1] : KORVEX_LINK_PATH;

    // 1. Load and register: the version first, then the callback table.
    KorvexLink link;
    std::string error;
    if (!openKorvexLink(path, &link, &error)) {
        std::fprintf(stderr, "cannot load %s: %s\n", path, error.c_str());
        return 1;
    }
    HostData host = standin::callbackTable();
    if (link.getVersion() != 5 || link.initialize(host) != 0) {
        std::fprintf(stderr, "the library at %s does not speak interface 5\n", path);
        closeKorvexLink(&link);
        return 1;
    }

    // 2. The host creates an instance; the library's manager hears of it.
    const std::int32_t id = *standin::createInstance(kManager);

    // 3. maximise x1 + x2 on x1 + 2 x2 <= 4, 3 x1 + x2 <= 6, x >= 0; optimum at (1.6, 1.2).
    standin::ConeProgram lp;
    lp.rows = {{1, 2}, {3, 1}, {-1, 0}, {0, -1}};
    lp.b = {4, 6, 0, 0};
    lp.c = {-1, -1};
    lp.linear_vars = 4;
    standin::HostProblem problem(lp);

    // 4. Every option by position: here the library's defaults.
    Settings settings;
    setDefaultSettings(&settings);
    standin::SolveArguments arguments(id, problem, settings, "restarted_broyden");
    std::int32_t status = 0;
    link.solve(host, standin::SolveArguments::kCount, arguments.slots(), &status);

    // 5. Read the instance field by field; vectors come as tensors the host owns.
    std::int32_t key = id;
    HostArgument by_id[] = {&key};
    char* text = nullptr;
    double objective = 0.0;
    HostTensor x = nullptr;
    link.ret_status(host, 1, by_id, &text);
    link.ret_pobj(host, 1, by_id, &objective);
    link.ret_x(host, 1, by_id, &x);
    std::printf("status %d (%s), objective %.6f, x =", status, text, objective);
    for (double value : standin::realValues(x)) std::printf(" %.6f", value);
    std::printf("\n");
    standin::freeTensor(x);

    // 6. Delete the instance (the host calls the manager back), unregister, unload.
    link.remove(host, 1, by_id, nullptr);
    link.uninitialize(host);
    closeKorvexLink(&link);
    return status == KORVEX_SOLVED ? 0 : 2;
}
