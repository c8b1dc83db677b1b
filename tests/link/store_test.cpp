// The built library as a host sees it: exactly the 22 exports in its dynamic symbol
// table (as readelf reads it); the solution store (manager, accessors, id list, deletion, calls the contract
// does not allow); and a thousand solves and deletes that leave nothing behind.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>
#include <set>
#include <sstream>

#include "link/link_fixture.h"

using namespace korvex;

#if defined(__SANITIZE_ADDRESS__)
#define KORVEX_HEAP_IS_INSTRUMENTED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KORVEX_HEAP_IS_INSTRUMENTED 1
#endif
#endif

namespace {

// The names of the defined symbols of the dynamic symbol table that another module can
// bind to (global or weak, default or protected), as binutils' readelf lists them; every
// one must be a function.
std::vector<std::string> exportedFunctions(const std::string& path) {
    std::FILE* pipe = popen(("readelf --dyn-syms -W " + path).c_str(), "r");
    std::vector<std::string> names;
    char line[1024];
    while (pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr) {
        std::istringstream fields(line);
        std::string number, value, size, type, binding, visibility, section, name;
        if (!(fields >> number >> value >> size >> type >> binding >> visibility >> section >> name)) continue;
        if (number.back() != ':' || section == "UND" || (binding != "GLOBAL" && binding != "WEAK") ||
            (visibility != "DEFAULT" && visibility != "PROTECTED")) {
            continue;
        }
        names.push_back(name);
        EXPECT_EQ(type, "FUNC") << name;
    }
    EXPECT_TRUE(pipe != nullptr && pclose(pipe) == 0) << "readelf failed";
    return names;
}

TEST(LinkSymbols, ExactlyTheHostExportsAreVisible) {
    std::vector<std::string> visible = exportedFunctions(KORVEX_LINK_PATH), expected = korvexLinkExportNames();
    std::sort(visible.begin(), visible.end());
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(std::set<std::string>(expected.begin(), expected.end()).size(), 22u);
    EXPECT_EQ(visible, expected);  // no symbol listed twice, none missing, none extra
}

using LinkStore = LinkTest;

TEST_F(LinkStore, InitialisationRegistersTheManagerOnce) {
    EXPECT_TRUE(standin::managerRegistered(kManager));
    // A second registration under the same name is the host's to refuse; the library
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
        HostTensor tensor = standin::newRealTensor({1.0}), kept = tensor;  // overwritten with null
        EXPECT_EQ(read(accessor, id, &tensor), 0);
        EXPECT_EQ(tensor, nullptr);
        standin::freeTensor(kept);
    }
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_iter, id), 0);
    EXPECT_EQ(field<std::int32_t>(&KorvexLink::ret_statusVal, id), 0);
    EXPECT_STREQ(field<char*>(&KorvexLink::ret_status, id), "");
    EXPECT_EQ(field<double>(&KorvexLink::ret_pobj, id), 0.0);
    EXPECT_EQ(field<double>(&KorvexLink::ret_solveTime, id), 0.0);
}

TEST_F(LinkStore, VectorsAreIndependentClonesAndStatusIsTheInstancesOwnText) {
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

    char* text = field<char*>(&KorvexLink::ret_status, id);
    EXPECT_EQ(field<char*>(&KorvexLink::ret_status, id), text);
    Settings refused = linkTestSettings();
    refused.alpha = 2.0;  // outside (0, 2): the solve fails
    ASSERT_EQ(solve(id, problem, refused), KORVEX_FAILED);
    EXPECT_STREQ(text, "Failure");
}

TEST_F(LinkStore, WrongArgumentCountsAndUnknownIdsGiveSixAndWriteNothing) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const std::int32_t id = createInstance();
    ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
    std::int32_t known = id, unknown = id + 1000;
    for (std::int32_t* key : {&known, &unknown}) {
        HostArgument arguments[] = {key, key};
        for (int count : {0, 2, -1, 1}) {
            if (count == 1 && key == &known) continue;
            for (int k = 0; k < kFieldAccessorCount; ++k) {
                SCOPED_TRACE(testing::Message() << kFieldAccessors[k].name << " count " << count);
                double sentinel[2] = {-7.5, -7.5};  // wide enough for any result
                EXPECT_EQ((link.*kFieldAccessors[k].function)(host, count, arguments, sentinel), 6);
                EXPECT_EQ(sentinel[0], -7.5);
            }
            EXPECT_EQ(link.remove(host, count, arguments, nullptr), 6);
        }
    }
    link.manage(host, 1, unknown);  // told to destroy what it does not hold, it frees nothing
    EXPECT_EQ(idList(), std::vector<std::int32_t>{id});
}

TEST_F(LinkStore, IdListHoldsEveryLiveIdOnce) {
    EXPECT_TRUE(idList().empty());  // a tensor of length 0
    // Ids are the host's: any 32-bit value, filled or not.
    const std::int32_t lowest = std::numeric_limits<std::int32_t>::min(), highest = -(lowest + 1);
    const std::vector<std::int32_t> ids = {lowest, -1, 0, 7, highest};
    for (std::int32_t id : ids) ASSERT_TRUE(standin::createInstanceWithId(kManager, id));
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    ASSERT_EQ(solve(7, problem, linkTestSettings()), KORVEX_SOLVED);
    ASSERT_EQ(solve(lowest, problem, linkTestSettings()), KORVEX_SOLVED);
    EXPECT_EQ(idList(), ids);
    EXPECT_EQ(deleteInstance(0), 0);                      // through the library
    EXPECT_EQ(standin::destroyInstance(kManager, 7), 0);  // by the host on its own
    EXPECT_EQ(idList(), (std::vector<std::int32_t>{lowest, -1, highest}));
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
    HostTensor list = nullptr, x = nullptr;
    standin::failCallAt(standin::HostCall::TensorNew, 1);
    EXPECT_EQ(link.idList(host, 0, nullptr, &list), standin::kInjectedFailure);
    EXPECT_EQ(list, nullptr);
    standin::failCallAt(standin::HostCall::TensorClone, 1);
    EXPECT_EQ(read(&KorvexLink::ret_x, id, &x), standin::kInjectedFailure);
    EXPECT_EQ(x, nullptr);
    EXPECT_EQ(vector(&KorvexLink::ret_x, id).size(), 2u);  // the stored vector is intact
}

// Bytes of the C heap in use (arenas and blocks mapped on their own). Not under
// AddressSanitizer, whose quarantine keeps freed blocks: LeakSanitizer checks at exit there.
std::optional<std::size_t> heapInUse() {
#ifdef KORVEX_HEAP_IS_INSTRUMENTED
    return std::nullopt;
#else
    const struct mallinfo2 heap = mallinfo2();
    return heap.uordblks + heap.hblkhd;
#endif
}

// Runs cycle warm-up times (buffers of the C streams, the store's buckets and the C
// library's thresholds settle), then times more: the heap in use must not grow.
void expectFlatHeap(int warm_up, int times, const std::function<void()>& cycle) {
    for (int k = 0; k < warm_up; ++k) ASSERT_NO_FATAL_FAILURE(cycle());
    const std::optional<std::size_t> before = heapInUse();
    for (int k = 0; k < times; ++k) ASSERT_NO_FATAL_FAILURE(cycle());
    const std::optional<std::size_t> after = heapInUse();
    EXPECT_LE(after.value_or(0), before.value_or(0) + 1024) << "the heap in use grew";
}

TEST_F(LinkStore, AThousandSolvesAndDeletesLeaveNothingBehind) {
    const standin::HostProblem problem(coneProgram(knownProblems()[0]));
    const long problem_tensors = standin::liveTensorCount();
    // A block lost per cycle would be 900 blocks, at least 14 kB.
    expectFlatHeap(100, 900, [&] {
        const std::int32_t id = createInstance();
        ASSERT_EQ(solve(id, problem, linkTestSettings()), KORVEX_SOLVED);
        ASSERT_EQ(vector(&KorvexLink::ret_x, id).size(), 2u);
        ASSERT_EQ(deleteInstance(id), 0);
    });
    EXPECT_EQ(standin::liveTensorCount(), problem_tensors);
    EXPECT_TRUE(idList().empty());
}

TEST_F(LinkStore, TheProgressHistoryOfASolveIsReleased) {
    // The Marlet iteration leaves ten history arrays in Info, which no accessor reaches:
    // 50000 rows of ten entries, over 3 MB a solve if they stayed.
    const standin::HostProblem problem(coneProgram(knownProblems()[3]));
    Settings settings = linkTestSettings();
    ASSERT_EQ(settings.do_super_korvex, 1);
    settings.record_progress = 1;
    const std::int32_t id = createInstance();
    expectFlatHeap(3, 20, [&] { ASSERT_EQ(solve(id, problem, settings), KORVEX_SOLVED); });
}

}  // namespace
