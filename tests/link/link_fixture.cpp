#include "link/link_fixture.h"

#include <algorithm>

using namespace korvex;

KorvexLink LinkTest::link;

Settings linkTestSettings() {
    Settings defaults;
    setDefaultSettings(&defaults);
    Settings settings = defaults;
    useTestSettings(&settings);                           // quiet, eps 1e-6, a generous limit
    settings.do_super_korvex = defaults.do_super_korvex;  // and the library's own iteration
    return settings;
}

standin::ConeProgram coneProgram(const Problem& p) {
    return {p.rows, p.b, p.c, p.free_vars, p.linear_vars, p.soc, p.sd, p.exp_triples, p.dual_exp_triples, p.power};
}

void LinkTest::SetUp() {
    std::string error;
    ASSERT_TRUE(link.handle != nullptr || openKorvexLink(KORVEX_LINK_PATH, &link, &error)) << error;
    ASSERT_EQ(link.getVersion(), 5);
    ASSERT_EQ(link.initialize(host), 0);
}

void LinkTest::TearDown() {
    standin::clearFailures();
    for (std::int32_t id : standin::liveInstances(kManager)) standin::destroyInstance(kManager, id);
    EXPECT_TRUE(idList().empty()) << "instances left in the library's store";
    link.uninitialize(host);
    EXPECT_FALSE(standin::managerRegistered(kManager));
    EXPECT_EQ(standin::liveTensorCount(), 0);
    EXPECT_EQ(standin::liveSparseCount(), 0);
}

std::int32_t LinkTest::createInstance() {
    const std::optional<std::int32_t> id = standin::createInstance(kManager);
    EXPECT_TRUE(id.has_value());
    return id.value_or(0);
}

std::int32_t LinkTest::solve(standin::SolveArguments& arguments) {
    std::int32_t status = 12345;
    EXPECT_EQ(link.solve(host, standin::SolveArguments::kCount, arguments.slots(), &status), 0);
    return status;
}

std::int32_t LinkTest::solve(std::int32_t id, const standin::HostProblem& problem, const Settings& settings,
                             const std::string& direction) {
    standin::SolveArguments arguments(id, problem, settings, direction);
    return solve(arguments);
}

std::vector<double> LinkTest::vector(KorvexLinkFunction KorvexLink::*accessor, std::int32_t id, bool* present) {
    HostTensor tensor = nullptr;
    EXPECT_EQ(read(accessor, id, &tensor), 0);
    if (present != nullptr) *present = tensor != nullptr;
    if (tensor == nullptr) return {};
    EXPECT_EQ(standin::tensorType(tensor), KORVEX_HOST_REAL);
    std::vector<double> values = standin::realValues(tensor);
    standin::freeTensor(tensor);
    return values;
}

std::vector<std::int32_t> LinkTest::idList() {
    HostTensor tensor = nullptr;
    EXPECT_EQ(link.idList(host, 0, nullptr, &tensor), 0);
    if (tensor == nullptr) return {};
    EXPECT_EQ(standin::tensorType(tensor), KORVEX_HOST_INTEGER);
    std::vector<std::int32_t> ids = standin::integerValues(tensor);
    standin::freeTensor(tensor);
    std::sort(ids.begin(), ids.end());
    return ids;
}

int LinkTest::deleteInstance(std::int32_t id) {
    HostArgument arguments[] = {&id};
    return link.remove(host, 1, arguments, nullptr);
}
