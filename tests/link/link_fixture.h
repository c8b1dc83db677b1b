// The road a host takes: the built library opened with dlopen, the stand-in host's
// callback table, instances created by the host. Every test ends with nothing of the host
// left behind.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "host/link_loader.h"
#include "host/solve_arguments.h"
#include "host/stand_in_host.h"
#include "support/capture.h"
#include "support/problems.h"

inline constexpr const char* kManager = "korvex_solution_instance_manager";

// The library's defaults (the Marlet iteration), quiet, with the end-to-end suites' limits.
Settings linkTestSettings();

// A problem of the known set in the stand-in host's terms.
standin::ConeProgram coneProgram(const Problem& problem);

class LinkTest : public testing::Test {
protected:
    void SetUp() override;     // opens the library once per process, registers the manager
    void TearDown() override;  // destroys what is left; expects the store, tensors and manager gone

    std::int32_t createInstance();
    // One KorvexLinkSolve call; the status it wrote through result.
    std::int32_t solve(standin::SolveArguments& arguments);
    std::int32_t solve(std::int32_t id, const standin::HostProblem& problem, const Settings& settings,
                       const std::string& direction = "restarted_broyden");

    // A field accessor called with the one argument id: its code, the value in *value.
    template <class T>
    int read(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id, T* value) {
        std::int32_t key = id;
        HostArgument arguments[] = {&key};
        return (link.*accessor)(host, 1, arguments, value);
    }
    template <class T>
    T field(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id) {
        T value{};
        EXPECT_EQ(read(accessor, id, &value), 0);
        return value;
    }
    // The entries of a vector accessor's clone (freed here); *present false for null.
    std::vector<double> vector(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id, bool* present = nullptr);
    std::vector<std::int32_t> idList();  // sorted
    int deleteInstance(std::int32_t id);

    static KorvexLink link;
    HostData host = standin::callbackTable();
};
