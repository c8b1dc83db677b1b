// The steps inside a KorvexLinkSolve call, run in this process against the stand-in host:
// the records built from the arguments, an empty solution stored as NaN, and every
// allocation of a call failing in turn.
#include <cmath>

#include "link/korvex_link.h"
#include "link/link.h"
#include "link/link_fixture.h"
#include "reporting/allocation.h"

using namespace korvex;

namespace {

class LinkRecords : public testing::Test {
protected:
    void TearDown() override {
        failAllocationAt(0);
        standin::clearFailures();
        EXPECT_EQ(standin::liveTensorCount(), 0);
        EXPECT_EQ(standin::liveSparseCount(), 0);
    }
    // Data, Cone and Settings of a call, built and released by the link's own steps.
    template <class Check>
    void withRecords(standin::SolveArguments& arguments, Check check) {
        const LinkInput read = readProblemArguments(host, arguments.slots());
        LinkInput* input = buildLinkInput(host, &read);
        LinkSettings* settings = buildLinkSettings(arguments.slots());
        auto* data = static_cast<Data*>(allocateZeroed(1, sizeof(Data)));
        auto* cone = static_cast<Cone*>(allocateZeroed(1, sizeof(Cone)));
        const int filled = fillProblemRecords(host, data, cone, input, settings);
        EXPECT_EQ(filled, 0);
        if (filled == 0) check(*data, *cone);
        releaseProblemRecords(data, cone);
        releaseLinkInput(host, input);
        destroyRecord(settings);
    }
    HostData host = standin::callbackTable();
};

TEST_F(LinkRecords, EveryOptionReachesTheSettingsFieldOfItsName) {
    Settings expected;
    setDefaultSettings(&expected);
    for (int k = 0; k < kSettingDescriptorCount; ++k) {  // a different value for every field
        const SettingDescriptor& option = kSettingDescriptors[k];
        if (option.int_field != nullptr) expected.*option.int_field = 1000 + k;
        if (option.double_field != nullptr) expected.*option.double_field = 0.5 + k;
    }
    expected.dir = KORVEX_DIR_FIXED_POINT_RESIDUAL;
    expected.stream_override = 1;  // the host cannot choose these two
    expected.output_stream = stderr;
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    standin::SolveArguments arguments(1, problem, expected, "fixed_point_residual");
    withRecords(arguments, [&](const Data& data, const Cone&) {
        const Settings* s = data.settings;
        for (int k = 0; k < kSettingDescriptorCount; ++k) {
            const SettingDescriptor& option = kSettingDescriptors[k];
            if (option.int_field != nullptr) {
                EXPECT_EQ(s->*option.int_field, expected.*option.int_field) << option.name;
            } else {
                EXPECT_EQ(s->*option.double_field, expected.*option.double_field) << option.name;
            }
        }
        EXPECT_EQ(s->stream_override, 0);
        EXPECT_EQ(s->output_stream, stdout);
    });
}

TEST_F(LinkRecords, ProblemArraysAreCopiedWithZeroBasedRows) {
    const Problem mixed = knownProblems().back();  // every cone family
    SolveRun reference(mixed);                     // the same matrix, compressed by the suite
    const standin::HostProblem problem(coneProgram(mixed));
    standin::SolveArguments arguments(1, problem, reference.settings, "restarted_broyden");
    withRecords(arguments, [&](const Data& data, const Cone& cone) {
        const int m = mixed.m(), n = mixed.n(), nnz = reference.A.p[n];
        ASSERT_TRUE(data.m == m && data.n == n && data.A->m == m && data.A->n == n);
        EXPECT_EQ(std::vector<double>(data.b, data.b + m), mixed.b);
        EXPECT_EQ(std::vector<double>(data.c, data.c + n), mixed.c);
        EXPECT_NE(data.b, host->tensorRealData(problem.b));  // a copy, not the host's data
        EXPECT_EQ(std::vector<int>(data.A->p, data.A->p + n + 1), std::vector<int>(reference.A.p, reference.A.p + n + 1));
        EXPECT_EQ(std::vector<int>(data.A->i, data.A->i + nnz), std::vector<int>(reference.A.i, reference.A.i + nnz));
        EXPECT_EQ(std::vector<double>(data.A->x, data.A->x + nnz), std::vector<double>(reference.A.x, reference.A.x + nnz));
        EXPECT_EQ(cone.free_vars, mixed.free_vars);
        EXPECT_EQ(cone.linear_vars, mixed.linear_vars);
        EXPECT_EQ(std::vector<int>(cone.soc_sizes, cone.soc_sizes + cone.soc_blks), mixed.soc);
        EXPECT_EQ(std::vector<int>(cone.sd_sizes, cone.sd_sizes + cone.sd_blks), mixed.sd);
        EXPECT_EQ(cone.exp_triples, mixed.exp_triples);
        EXPECT_EQ(cone.dual_exp_triples, mixed.dual_exp_triples);
        EXPECT_EQ(std::vector<double>(cone.power_exponents, cone.power_exponents + cone.power_triples), mixed.power);
    });
}

TEST_F(LinkRecords, AnEmptySolutionIsStoredAsNaN) {
    // An iteration that returns before filling the solution leaves its vectors null.
    KorvexSolutionMap_manage(host, 0, 3);
    Data data{};
    data.m = 2;
    data.n = 3;
    Solution empty{};
    Info info{};
    info.statusVal = KORVEX_FAILED;
    setStatusText(&info, "Failure");
    const SolutionInstance* instance = storeSolution(host, 3, &empty, &info, &data);
    ASSERT_NE(instance, nullptr);
    EXPECT_STREQ(instance->status, "Failure");
    const std::vector<double> x = standin::realValues(instance->x), y = standin::realValues(instance->y);
    ASSERT_TRUE(x.size() == 3 && y.size() == 2);
    EXPECT_TRUE(std::isnan(x[0]) && std::isnan(x[2]) && std::isnan(y[1]));
    EXPECT_EQ(storeSolution(host, 4, &empty, &info, &data), nullptr);  // no instance, nothing stored
    KorvexSolutionMap_manage(host, 1, 3);
    EXPECT_TRUE(solutionMap.empty());
}

TEST_F(LinkRecords, EveryAllocationOfACallMayFail) {
    const standin::HostProblem problem(coneProgram(knownProblems()[3]));
    standin::SolveArguments arguments(9, problem, linkTestSettings(), "restarted_broyden");
    KorvexSolutionMap_manage(host, 0, 9);
    std::int32_t status = 0;
    failAllocationAt(0);
    ASSERT_EQ(linkSolve(host, arguments.slots(), &status), KORVEX_SOLVED);
    const long allocations = allocationCount();
    const long tensors = standin::liveTensorCount();  // the problem's and the instance's
    ASSERT_GT(allocations, 20);
    for (long k = 1; k <= allocations; ++k) {
        SCOPED_TRACE(k);
        CapturedOutput console;
        failAllocationAt(k);
        status = 0;
        EXPECT_EQ(linkSolve(host, arguments.slots(), &status), KORVEX_FAILED);
        EXPECT_TRUE(allocationFailureFired());
        failAllocationAt(0);
        EXPECT_EQ(status, KORVEX_FAILED);
        EXPECT_EQ(standin::liveTensorCount(), tensors);
    }
    KorvexSolutionMap_manage(host, 1, 9);
}

}  // namespace
