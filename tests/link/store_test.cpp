// The solution store through the real library: registration, the manager, the accessors
// of unfilled and filled instances, the id list, deletion, and the answers to calls the
// contract does not allow (wrong counts, unknown ids, a repeated creation). Every field
// against the solve it reports: LinkSolve.EveryConeFamilyMatchesTheDirectSolveBitForBit.
#include <limits>

#include "link/link_fixture.h"

namespace {

using LinkStore = LinkTest;

TEST_F(LinkStore, InitialisationRegistersTheManagerOnce) {
    EXPECT_TRUE(standin::managerRegistered(kManager));
    // A second registration under the same name is the host's to refuse, and the library
    // passes its answer on.
    EXPECT_NE(link.initialize(host), 0);
    link.uninitialize(host);
    EXPECT_FALSE(standin::managerRegistered(kManager));
    EXPECT_FALSE(standin::createInstance(kManager).has_value());
    ASSERT_EQ(link.initialize(host), 0);
}

TEST_F(LinkStore, AnUnfilledInstanceHasNullVectorsAndZeroFields) {
    const std::int32_t id = createInstance();
    for (auto accessor : {&KorvexLink::ret_x, &KorvexLink::ret_y, &KorvexLink::ret_s}) {
        HostTensor tensor = standin::newRealTensor({1.0});  // overwritten with null
        HostTensor kept = tensor;
        EXPECT_EQ(read(accessor, id, &tensor), 0);
        EXPECT_EQ(tensor, nullptr);
        standin::freeTensor(kept);
    }
    // Before the first solve the fields are those of a cleared instance.
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), 0);
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), 0);
    EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "");
    EXPECT_EQ(field<double>(&KorvexLink::ret_pobj, id), 0.0);
    EXPECT_EQ(field<double>(&KorvexLink::ret_solveTime, id), 0.0);
}

TEST_F(LinkStore, VectorsGoOutAsIndependentClones) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    HostTensor first = nullptr, second = nullptr;
    ASSERT_EQ(read(&KorvexLink::ret_x, id, &first), 0);
    ASSERT_EQ(read(&KorvexLink::ret_x, id, &second), 0);
    EXPECT_NE(first, second);
    // Writing into the host's clone leaves the stored vector as it was.
    const std::vector<double> stored = standin::realValues(second);
    host->tensorRealData(first)[0] = 99.0;
    EXPECT_EQ(vector(&KorvexLink::ret_x, id), stored);
    standin::freeTensor(first);
    standin::freeTensor(second);
}

TEST_F(LinkStore, StatusIsTheInstancesOwnTextAndFollowsItsSolves) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    char* text = field<char*>(&KorvexLink::ret_status, id);
    EXPECT_EQ(field<char*>(&KorvexLink::ret_status, id), text);
    Settings refused = linkTestSettings();
    refused.alpha = 2.0;  // outside (0, 2): the solve fails
    ASSERT_EQ(solve(id, problem, refused), KORVEX_FAILED);
    EXPECT_STREQ(text, "Failure");
}

TEST_F(LinkStore, WrongArgumentCountsGiveSixAndWriteNothing) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    std::int32_t known = id, unknown = id + 1000;
    for (std::int32_t* key : {&known, &unknown}) {
        HostArgument arguments[] = {key, key};
        for (int count : {0, 2, -1}) {
            for (int k = 0; k < kFieldAccessorCount; ++k) {
                SCOPED_TRACE(kFieldAccessors[k].name);
                double sentinel[2] = {-7.5, -7.5};  // wide enough for any result
                EXPECT_EQ((link.*kFieldAccessors[k].function)(host, count, arguments, sentinel), 6);
                EXPECT_EQ(sentinel[0], -7.5);
            }
            EXPECT_EQ(link.remove(host, count, arguments, nullptr), 6);
        }
    }
    EXPECT_EQ(idList(), std::vector<std::int32_t>{id});
}

TEST_F(LinkStore, AnIdWithoutInstanceGivesSix) {
    const std::int32_t id = createInstance();
    std::int32_t unknown = id + 1;
    HostArgument arguments[] = {&unknown};
    for (int k = 0; k < kFieldAccessorCount; ++k) {
        double sentinel[2] = {-7.5, -7.5};
        EXPECT_EQ((link.*kFieldAccessors[k].function)(host, 1, arguments, sentinel), 6) << kFieldAccessors[k].name;
        EXPECT_EQ(sentinel[0], -7.5);
    }
    EXPECT_EQ(deleteInstance(unknown), 6);
    // The manager told to destroy what it does not hold frees nothing.
    link.manage(host, 1, unknown);
    EXPECT_EQ(idList(), std::vector<std::int32_t>{id});
}

TEST_F(LinkStore, IdListHoldsEveryLiveIdOnce) {
    EXPECT_TRUE(idList().empty());  // a tensor of length 0
    // Ids are the host's: any 32-bit value, filled or not.
    const std::vector<std::int32_t> ids = {std::numeric_limits<std::int32_t>::min(), -1, 0, 7,
                                           std::numeric_limits<std::int32_t>::max()};
    for (std::int32_t id : ids) ASSERT_TRUE(standin::createInstanceWithId(kManager, id));
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    ASSERT_EQ(solve(7, problem, linkTestSettings()), KORVEX_SOLVED);
    ASSERT_EQ(solve(std::numeric_limits<std::int32_t>::min(), problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(idList(), ids);

    EXPECT_EQ(deleteInstance(0), 0);  // through the library
    EXPECT_EQ(standin::destroyInstance(kManager, 7), 0);  // by the host on its own
    EXPECT_EQ(idList(), (std::vector<std::int32_t>{std::numeric_limits<std::int32_t>::min(), -1,
                                                   std::numeric_limits<std::int32_t>::max()}));
}

TEST_F(LinkStore, DeleteHasTheHostCallTheManagerWhichFreesTheVectors) {
    const standin::HostProblem problem(coneProgram(knownProblems()[2]));
    const std::int32_t id = createInstance();
    const long before = standin::liveTensorCount();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(standin::liveTensorCount(), before + 3);  // x, y and s held by the instance
    EXPECT_EQ(deleteInstance(id), 0);
    EXPECT_TRUE(standin::liveInstances(kManager).empty());
    EXPECT_EQ(standin::liveTensorCount(), before);
    EXPECT_TRUE(idList().empty());
    EXPECT_EQ(deleteInstance(id), 6);
}

TEST_F(LinkStore, CreatingALiveIdAgainEmptiesItsInstance) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    const long filled = standin::liveTensorCount();
    ASSERT_TRUE(standin::createInstanceWithId(kManager, id));
    EXPECT_EQ(standin::liveTensorCount(), filled - 3);
    bool present = true;
    vector(&KorvexLink::ret_x, id, &present);
    EXPECT_FALSE(present);
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), 0);
    EXPECT_EQ(idList(), std::vector<std::int32_t>{id});
}

TEST_F(LinkStore, HostFailuresPassThroughTheAccessors) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);

    HostTensor list = nullptr;
    standin::failCallAt(standin::HostCall::TensorNew, 1);
    EXPECT_EQ(link.idList(host, 0, nullptr, &list), standin::kInjectedFailure);
    EXPECT_EQ(list, nullptr);

    HostTensor x = nullptr;
    standin::failCallAt(standin::HostCall::TensorClone, 1);
    EXPECT_EQ(read(&KorvexLink::ret_x, id, &x), standin::kInjectedFailure);
    EXPECT_EQ(x, nullptr);
    EXPECT_EQ(vector(&KorvexLink::ret_x, id).size(), 2u);  // the stored vector is intact
}

}  // namespace
