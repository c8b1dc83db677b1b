// The steps inside a KorvexLinkSolve call, in this process against the stand-in host: the
// options by the positions of tests/golden/link_option_positions.txt (not by the stand-in's
// own table), every allocation of a call failing in turn, an empty solution stored.
#include <sstream>
#include <tuple>

#include "link/korvex_link.h"
#include "link/link.h"
#include "link/link_fixture.h"
#include "reporting/allocation.h"
#include "support/golden.h"

using namespace korvex;

namespace {

TEST(LinkRecords, EachOptionReachesTheSettingsFieldOfItsNameFromItsPosition) {
    const HostData host = standin::callbackTable();
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    for (const auto& [direction, code] : {std::pair{"full_broyden", 300}, std::pair{"anderson", 100}}) {
        Settings expected;  // a distinct value at each position, and the direction's name at 31
        setDefaultSettings(&expected);
        standin::SolveArguments arguments(1, problem, expected, "restarted_broyden");
        std::istringstream table(readGolden("link_option_positions.txt"));
        int position = 0, found = 0;
        std::string name;
        for (std::string line; std::getline(table, line);) {
            for (int k = 0; k < kSettingDescriptorCount && std::istringstream(line) >> position >> name; ++k) {
                const SettingDescriptor& option = kSettingDescriptors[k];
                if (name != option.name) continue;
                ++found;
                if (option.int_field == &Settings::dir) {
                    arguments.setText(position, direction);
                    expected.dir = code;
                } else if (option.int_field != nullptr) {
                    arguments.setInteger(position, expected.*option.int_field = 1000 + position);
                } else {
                    arguments.setReal(position, expected.*option.double_field = 0.5 + position);
                }
            }
        }
        ASSERT_EQ(found, kSettingDescriptorCount);
        const LinkInput read = readProblemArguments(host, arguments.slots());
        LinkInput* input = buildLinkInput(host, &read);
        LinkSettings* settings = buildLinkSettings(arguments.slots());
        auto* data = static_cast<Data*>(allocateZeroed(1, sizeof(Data)));
        auto* cone = static_cast<Cone*>(allocateZeroed(1, sizeof(Cone)));
        ASSERT_EQ(fillProblemRecords(host, data, cone, input, settings), 0);
        const Settings& s = *data->settings;
        for (int k = 0; k < kSettingDescriptorCount; ++k) {
            const SettingDescriptor& option = kSettingDescriptors[k];
            EXPECT_TRUE(option.int_field ? s.*option.int_field == expected.*option.int_field
                                         : s.*option.double_field == expected.*option.double_field) << option.name;
        }
        EXPECT_TRUE(s.stream_override == 0 && s.output_stream == stdout);  // not the host's to choose
        releaseProblemRecords(data, cone);
        releaseLinkInput(host, input);
        destroyRecord(settings);
    }
}

TEST(LinkRecords, EveryAllocationOfACallMayFailAndAnEmptySolutionIsStoredAsNaN) {
    const HostData host = standin::callbackTable();
    const Problem problem = knownProblems()[3];
    const standin::HostProblem host_problem(coneProgram(problem));
    standin::SolveArguments arguments(9, host_problem, linkTestSettings(), "restarted_broyden");
    KorvexSolutionMap_manage(host, 0, 9);
    std::int32_t status = 0;
    failAllocationAt(0);
    ASSERT_EQ(linkSolve(host, arguments.slots(), &status), KORVEX_SOLVED);
    const long allocations = allocationCount(), tensors = standin::liveTensorCount();
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
    // An iteration that returns before filling the solution leaves its vectors null.
    Data data{};
    std::tie(data.m, data.n) = std::tuple(problem.m(), problem.n());
    const Solution empty{};
    const Info info{};
    const SolutionInstance* stored = storeSolution(host, 9, &empty, &info, &data);
    for (const auto& [vector, length] : {std::pair{stored->x, data.n}, {stored->y, data.m}, {stored->s, data.m}}) {
        const std::vector<double> values = standin::realValues(vector);
        EXPECT_TRUE(values.size() == static_cast<std::size_t>(length) && allNaN(values.data(), values.size()));
    }
    KorvexSolutionMap_manage(host, 1, 9);
    EXPECT_EQ(standin::liveTensorCount(), tensors - 3);
}

}  // namespace
