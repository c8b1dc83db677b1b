// The steps inside a KorvexLinkSolve call, run in this process against the stand-in
// host: the records they build from the arguments, the NaN vectors of an empty solution,
// and every allocation of a call failing in turn.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "link/korvex_link.h"
#include "link/link.h"
#include "link/link_fixture.h"
#include "reporting/allocation.h"
#include "support/capture.h"

namespace {

// The records of one call, built by the link's own steps and released by them.
class CallRecords {
public:
    CallRecords(HostData host, standin::SolveArguments& arguments) : host_(host) {
        const LinkInput read = readProblemArguments(host, arguments.slots());
        input = buildLinkInput(host, &read);
        settings = buildLinkSettings(arguments.slots());
        data = static_cast<Data*>(allocateZeroed(1, sizeof(Data)));
        cone = static_cast<Cone*>(allocateZeroed(1, sizeof(Cone)));
    }
    ~CallRecords() {
        releaseProblemRecords(data, cone);
        releaseLinkInput(host_, input);
        destroyRecord(settings);
    }
    CallRecords(const CallRecords&) = delete;
    CallRecords& operator=(const CallRecords&) = delete;

    int fill() { return fillProblemRecords(host_, data, cone, input, settings); }

    LinkInput* input;
    LinkSettings* settings;
    Data* data;
    Cone* cone;

private:
    HostData host_;
};

class LinkRecords : public testing::Test {
protected:
    void TearDown() override {
        failAllocationAt(0);
        standin::clearFailures();
        EXPECT_EQ(standin::liveTensorCount(), 0);
        EXPECT_EQ(standin::liveSparseCount(), 0);
    }
    HostData host = standin::callbackTable();
};

TEST_F(LinkRecords, EveryOptionReachesTheSettingsFieldOfItsName) {
    // A different value for every field, through the host's positions.
    Settings expected;
    setDefaultSettings(&expected);
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        const SettingDescriptor& option = kSettingDescriptors[k];
        if (option.int_field != nullptr) expected.*option.int_field = 1000 + k;
        if (option.double_field != nullptr) expected.*option.double_field = 0.5 + k;
    }
    expected.dir = KORVEX_DIR_FIXED_POINT_RESIDUAL;
    expected.stream_override = 1;  // the host cannot choose these two
    expected.output_stream = stderr;

    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    standin::SolveArguments arguments(1, problem, expected, "fixed_point_residual");
    {
        CallRecords call(host, arguments);
        ASSERT_EQ(call.fill(), 0);
        const Settings* s = call.data->settings;
        for (int k = 0; k < kSettingDescriptorCount; ++k) {
            const SettingDescriptor& option = kSettingDescriptors[k];
            if (option.int_field != nullptr) {
                EXPECT_EQ(s->*option.int_field, expected.*option.int_field) << option.name;
            }
            if (option.double_field != nullptr) {
                EXPECT_EQ(s->*option.double_field, expected.*option.double_field) << option.name;
            }
        }
        EXPECT_EQ(s->stream_override, 0);
        EXPECT_EQ(s->output_stream, stdout);
    }
}

TEST_F(LinkRecords, ProblemArraysAreCopiedWithZeroBasedRows) {
    const Problem mixed = knownProblems().back();  // every cone family
    SolveRun reference(mixed);                     // the same matrix, compressed by the suite
    const standin::HostProblem problem(coneProgram(mixed));
    standin::SolveArguments arguments(1, problem, reference.settings, "restarted_broyden");
    CallRecords call(host, arguments);
    ASSERT_EQ(call.fill(), 0);

    const Data& data = *call.data;
    const int m = mixed.m(), n = mixed.n(), nnz = reference.A.p[n];
    ASSERT_EQ(data.m, m);
    ASSERT_EQ(data.n, n);
    EXPECT_EQ(std::vector<double>(data.b, data.b + m), mixed.b);
    EXPECT_EQ(std::vector<double>(data.c, data.c + n), mixed.c);
    EXPECT_NE(data.b, host->tensorRealData(problem.b));  // a copy, not the host's data
    ASSERT_EQ(data.A->m, m);
    ASSERT_EQ(data.A->n, n);
    EXPECT_EQ(std::vector<int>(data.A->p, data.A->p + n + 1), std::vector<int>(reference.A.p, reference.A.p + n + 1));
    EXPECT_EQ(std::vector<int>(data.A->i, data.A->i + nnz), std::vector<int>(reference.A.i, reference.A.i + nnz));
    EXPECT_EQ(std::vector<double>(data.A->x, data.A->x + nnz), std::vector<double>(reference.A.x, reference.A.x + nnz));

    const Cone& cone = *call.cone;
    EXPECT_EQ(cone.free_vars, mixed.free_vars);
    EXPECT_EQ(cone.linear_vars, mixed.linear_vars);
    EXPECT_EQ(std::vector<int>(cone.soc_sizes, cone.soc_sizes + cone.soc_blks), mixed.soc);
    EXPECT_EQ(std::vector<int>(cone.sd_sizes, cone.sd_sizes + cone.sd_blks), mixed.sd);
    EXPECT_EQ(cone.exp_triples, mixed.exp_triples);
    EXPECT_EQ(cone.dual_exp_triples, mixed.dual_exp_triples);
    EXPECT_EQ(std::vector<double>(cone.power_exponents, cone.power_exponents + cone.power_triples), mixed.power);
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
    ASSERT_EQ(x.size(), 3u);
    ASSERT_EQ(y.size(), 2u);
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
