// The road a host takes: the built library opened with dlopen, the stand-in host's
// callback table, instances created by the host; nothing of the host is left behind.
#pragma once

#include <gtest/gtest.h>

#include <tuple>

#include "host/link_loader.h"
#include "host/solve_arguments.h"
#include "host/stand_in_host.h"
#include "support/capture.h"
#include "support/problems.h"

inline constexpr const char* kManager = "korvex_solution_instance_manager";

// The library's defaults (the Marlet iteration), quiet, with the end-to-end suites' eps
// and a generous limit.
inline Settings linkTestSettings() {
    Settings settings;
    setDefaultSettings(&settings);
    std::tie(settings.verbose, settings.eps, settings.max_iters) = std::tuple(0, 1e-6, 50000);
    return settings;
}

inline standin::ConeProgram coneProgram(const Problem& p) {
    return {p.rows, p.b, p.c, p.free_vars, p.linear_vars, p.soc, p.sd, p.exp_triples, p.dual_exp_triples, p.power};
}

class LinkTest : public testing::Test {
protected:
    void SetUp() override {  // the library is opened once per process
        std::string error;
        ASSERT_TRUE(link.handle != nullptr || openKorvexLink(KORVEX_LINK_PATH, &link, &error)) << error;
        ASSERT_EQ(link.getVersion(), 5);
        ASSERT_EQ(link.initialize(host), 0);
    }
    void TearDown() override {
        standin::clearFailures();
        for (std::int32_t id : standin::liveInstances(kManager)) standin::destroyInstance(kManager, id);
        link.uninitialize(host);
        EXPECT_FALSE(standin::managerRegistered(kManager));
        EXPECT_EQ(standin::liveTensorCount(), 0);  // those of sparse arrays too
    }
    std::int32_t createInstance() { return standin::createInstance(kManager).value_or(-1); }
    // KorvexLinkSolve with the options of settings; the status it wrote through result.
    std::int32_t solve(std::int32_t id, const standin::HostProblem& problem, const Settings& settings) {
        standin::SolveArguments arguments(id, problem, settings, "restarted_broyden");
        std::int32_t status = 12345;
        EXPECT_EQ(link.solve(host, standin::SolveArguments::kCount, arguments.slots(), &status), 0);
        return status;
    }
    template <class T>
    T field(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id) {
        T value{};
        HostArgument arguments[] = {&id};
        EXPECT_EQ((link.*accessor)(host, 1, arguments, &value), 0);
        return value;
    }
    // The entries of a vector accessor's clone, freed here; empty for null.
    std::vector<double> vector(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id) {
        const HostTensor tensor = field<HostTensor>(accessor, id);
        const std::vector<double> values = tensor != nullptr ? standin::realValues(tensor) : std::vector<double>{};
        standin::freeTensor(tensor);
        return values;
    }
    int deleteInstance(std::int32_t id, int count = 1) {
        HostArgument arguments[] = {&id, &id};
        return link.remove(host, count, arguments, nullptr);
    }

    inline static KorvexLink link;
    HostData host = standin::callbackTable();
};
