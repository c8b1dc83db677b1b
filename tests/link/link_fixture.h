// The road a host takes: the real shared library opened with dlopen, the stand-in host's
// callback table, instances created by the host. Every test starts registered and ends
// with a check that nothing of the host was left behind.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "core/records.h"
#include "host/link_loader.h"
#include "host/solve_arguments.h"
#include "host/stand_in_host.h"
#include "support/problems.h"

inline constexpr const char* kManager = "korvex_solution_instance_manager";

// The options of every solve through the link unless a test says otherwise: the
// library's defaults (the Marlet iteration), quiet, with the tolerance and iteration
// limit of the end-to-end suites.
Settings linkTestSettings();

// The same cone program in the stand-in host's terms.
standin::ConeProgram coneProgram(const Problem& problem);

class LinkTest : public testing::Test {
protected:
    // Opens the library once per process; registers the manager.
    void SetUp() override;
    // Destroys the instances the test left, then expects the library's store empty, no
    // host tensor or sparse array alive, and the manager unregistered.
    void TearDown() override;

    // A new instance, created by the host.
    std::int32_t createInstance();

    // One KorvexLinkSolve call; the integer it wrote through result.
    std::int32_t solve(standin::SolveArguments& arguments);
    std::int32_t solve(std::int32_t id, const standin::HostProblem& problem, const Settings& settings,
                       const std::string& direction = "restarted_broyden");

    // A field accessor called with the one argument id: its return code, and the value
    // it wrote into *value.
    template <class T>
    int read(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id, T* value) {
        std::int32_t key = id;
        HostArgument arguments[] = {&key};
        return (link.*accessor)(host, 1, arguments, value);
    }

    // The value of a scalar accessor, which must succeed.
    template <class T>
    T field(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id) {
        T value{};
        EXPECT_EQ(read(accessor, id, &value), 0);
        return value;
    }

    // The entries of a vector accessor's clone (freed here); *present is false for a null
    // tensor.
    std::vector<double> vector(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id, bool* present = nullptr);

    // The tensor of KorvexSolutionMap_retIDList, sorted.
    std::vector<std::int32_t> idList();

    // KorvexSolutionMap_delete of id.
    int deleteInstance(std::int32_t id);

    static KorvexLink link;
    HostData host = standin::callbackTable();
};

// Every byte the library writes on standard output during a scope, taken at the level of
// the C stream: the library prints through the process's stdout, which this replaces by
// a stream of its own. When the trigger text appears, it raises SIGINT at that very
// point, as a user pressing Ctrl+C there would.
class ConsoleTap {
public:
    explicit ConsoleTap(std::string trigger = {});
    ~ConsoleTap();
    ConsoleTap(const ConsoleTap&) = delete;
    ConsoleTap& operator=(const ConsoleTap&) = delete;

    // Puts the process's stdout back and returns the text.
    std::string finish();
    bool fired() const { return fired_; }

private:
    static ssize_t write(void* cookie, const char* data, size_t size);

    std::string trigger_;
    std::string text_;
    bool fired_ = false;
    std::FILE* saved_ = nullptr;
    std::FILE* stream_ = nullptr;
};
