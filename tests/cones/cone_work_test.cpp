// The Cone record's size, checks, block list and texts, byte for byte, and the
// semidefinite workspace with its LAPACK query.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "cone_checks.h"
#include "cones/lapack.h"
#include "support/capture.h"
#include "support/problems.h"

using namespace korvex;

namespace {

// The message printed by checkConeRecord for a record and a row count, with its result.
std::string checkMessage(const Cone& cone, int m, int* result) {
    Data data{};
    data.m = m;
    CapturedOutput out;
    *result = checkConeRecord(&data, &cone);
    return out.finish();
}

TEST(ConeRecord, TotalSizeAndBlockLengthsCountEveryFamily) {
    ConeFixture f(2, 3, {4, 0, 1}, {0, 3}, 1, 2, {0.5});
    EXPECT_EQ(coneTotalSize(&f.cone), 2 + 3 + 5 + 6 + 3 + 6 + 3);
    // A count without its array is no list at all; power triples need their exponents.
    Cone orphan{};
    orphan.soc_blks = 3;
    orphan.sd_blks = 2;
    orphan.power_triples = 4;
    orphan.linear_vars = 1;
    EXPECT_EQ(coneTotalSize(&orphan), 1);

    // The block list keeps zero-sized blocks; an empty record is one block of length 0.
    int* lengths = nullptr;
    const int count = coneBlockLengths(&f.cone, &lengths);
    ASSERT_NE(lengths, nullptr);
    EXPECT_EQ(std::vector<int>(lengths, lengths + count), (std::vector<int>{5, 4, 0, 1, 0, 6, 3, 3, 3, 3}));
    releaseMemory(lengths);
    ConeFixture empty(0, 0, {}, {}, 0, 0, {});
    EXPECT_EQ(coneTotalSize(&empty.cone), 0);
    EXPECT_EQ(coneBlockLengths(&empty.cone, &lengths), 1);
    EXPECT_EQ(lengths[0], 0);
    releaseMemory(lengths);
    failAllocationAt(1);
    EXPECT_EQ(coneBlockLengths(&f.cone, &lengths), -1);
    EXPECT_EQ(lengths, nullptr);
    failAllocationAt(0);
}

TEST(ConeRecord, CheckRefusesEachFamilyWithItsMessage) {
    int result = 0;
    ConeFixture valid(1, 2, {3, 0}, {2, 0}, 1, 1, {-1.0, 1.0, 0.0});
    EXPECT_EQ(checkMessage(valid.cone, 1 + 2 + 3 + 3 + 3 + 3 + 9, &result), "");
    EXPECT_EQ(result, 0);
    // The total comes first in the dimension message, then m.
    EXPECT_EQ(checkMessage(valid.cone, 7, &result), "cone dimensions 24 not equal to num rows in A = m = 7\n");
    EXPECT_EQ(result, -1);

    const std::string power = "power cone error, values must be in [-1,1]\n";
    const struct {
        ConeFixture fixture;
        int m;
        std::string message;
    } refusals[] = {
        // Each record's total equals m, so that the family test is the one that speaks.
        {ConeFixture(-1, 4, {}, {}, 0, 0, {}), 3, "free cone error\n"},
        {ConeFixture(4, -1, {}, {}, 0, 0, {}), 3, "lp cone error\n"},
        {ConeFixture(0, 5, {3, -1}, {}, 0, 0, {}), 7, "soc cone error\n"},
        {ConeFixture(0, 0, {}, {2, -2}, 0, 0, {}), 4, "sd cone error\n"},
        {ConeFixture(6, 0, {}, {}, 0, -1, {}), 3, "ep cone error\n"},
        {ConeFixture(6, 0, {}, {}, -1, 0, {}), 3, "ed cone error\n"},
        {ConeFixture(9, 0, {}, {}, -1, -1, {}), 3, "ep cone error\n"},  // the dual count is tested first
        {ConeFixture(0, 0, {}, {}, 0, 0, {0.5, 1.0000001}), 6, power},
        {ConeFixture(0, 0, {}, {}, 0, 0, {-1.5}), 3, power},
        // A negative count whose total differs from m reports the dimension, as computed.
        {ConeFixture(-2, 0, {}, {}, 0, 0, {}), 5, "cone dimensions -2 not equal to num rows in A = m = 5\n"},
    };
    for (const auto& row : refusals) {
        SCOPED_TRACE(row.message);
        EXPECT_EQ(checkMessage(row.fixture.cone, row.m, &result), row.message);
        EXPECT_EQ(result, -1);
    }
    // A negative power count with its list: the count message.
    ConeFixture negative(3, 0, {}, {}, 0, 0, {0.5});
    negative.cone.power_triples = -1;
    EXPECT_EQ(checkMessage(negative.cone, 0, &result), "power cone error\n");
}

TEST(ConeRecord, SummaryTextListsThePresentFamiliesAndTheTimingLineAverages) {
    const struct {
        ConeFixture fixture;
        const char* text;
    } summaries[] = {
        {ConeFixture(2, 3, {4, 1}, {3, 2}, 1, 2, {0.5, -0.5}),
         "Cones:\tprimal zero / dual free vars: 2\n\tlinear vars: 3\n\tsoc vars: 5, soc blks: 2\n"
         "\tsd vars: 9, sd blks: 2\n\texp vars: 3, dual exp vars: 6\n\tprimal + dual power vars: 6\n"},
        {ConeFixture(0, 0, {}, {}, 0, 0, {}), "Cones:"},
        {ConeFixture(0, 0, {}, {}, 1, 0, {}), "Cones:\texp vars: 3, dual exp vars: 0\n"},
        {ConeFixture(0, 0, {}, {}, 0, 4, {}), "Cones:\texp vars: 0, dual exp vars: 12\n"},
        // Zero-sized blocks still count as blocks.
        {ConeFixture(0, 1, {0}, {0}, 0, 0, {}), "Cones:\tlinear vars: 1\n\tsoc vars: 0, soc blks: 1\n\tsd vars: 0, sd blks: 1\n"},
    };
    for (const auto& row : summaries) {
        char* text = coneSummaryText(&row.fixture.cone);
        EXPECT_STREQ(text, row.text);
        releaseMemory(text);
    }

    // The projection time is averaged over the iterations (at least one) and reset.
    ConeWork work{};
    Info info{};
    for (const auto& [iter, ms, line] : {std::tuple{2, 1500.0, "\tCones: avg projection time: 5.00e-01s\n"},
                                         std::tuple{0, 0.25, "\tCones: avg projection time: 2.50e-04s\n"}}) {
        info.iter = iter;
        work.projection_time_ms = ms;
        char* text = coneTimingLine(&info, &work);
        EXPECT_STREQ(text, line);
        EXPECT_EQ(work.projection_time_ms, 0.0);
        releaseMemory(text);
    }
}

TEST(ConeWorkspace, LargestSideSizesTheArraysAndTheQueryTheWorkspace) {
    // Sides 1 and 2 are in closed form: no arrays.
    for (const std::vector<int>& sides : {std::vector<int>{}, {1, 2}, {2, 0, 1}}) {
        ConeFixture f(1, 0, {}, sides, 0, 0, {});
        ConeWorkOwner work(initCone(&f.cone));
        ASSERT_NE(work, nullptr);
        EXPECT_TRUE(!work->sd_matrix && !work->sd_vectors && !work->sd_values && !work->eig_work && !work->eig_iwork);
        EXPECT_EQ(work->projection_time_ms, 0.0);
    }

    ConeFixture f(0, 0, {}, {3, 5, 1}, 0, 0, {});
    ConeWorkOwner work(initCone(&f.cone));
    ASSERT_TRUE(work && work->sd_matrix && work->sd_vectors && work->sd_values && work->eig_work && work->eig_iwork);
    for (int k = 0; k < 25; ++k) EXPECT_TRUE(work->sd_matrix[k] == 0.0 && work->sd_vectors[k] == 0.0);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(work->sd_values[k], 0.0);
    // dsyevr's own answer to a workspace query for order 5.
    int n = 5, liwork = 0, found = 0, info = 0;
    const int query = -1;
    const double abstol = 1e-8;
    double lwork = 0.0;
    std::vector<double> a(n * n), w(n), z(n * n);
    dsyevr_("V", "A", "L", &n, a.data(), &n, nullptr, nullptr, nullptr, nullptr, &abstol, &found, w.data(), z.data(),
            &n, nullptr, &lwork, &query, &liwork, &query, &info, 1, 1, 1);
    ASSERT_EQ(info, 0);
    EXPECT_EQ(work->eig_work_len, static_cast<int>(lwork + 0.01));
    EXPECT_EQ(work->eig_iwork_len, liwork);
    EXPECT_GE(work->eig_work_len, 26 * 5);  // LAPACK's documented minimum
    EXPECT_GE(work->eig_iwork_len, 10 * 5);
    // The whole workspace is addressable (the sanitizer build checks the bounds).
    work->eig_work[work->eig_work_len - 1] = 1.0;
    work->eig_iwork[work->eig_iwork_len - 1] = 1;
    freeConeWork(nullptr);

    // Every failed allocation (the record and its five arrays) gives null, prints nothing
    // and leaks nothing.
    ConeFixture side4(0, 0, {}, {4}, 0, 0, {});
    EXPECT_EQ(expectEveryAllocationFailureReported([&] {
                  CapturedOutput out;
                  ConeWorkOwner attempt(initCone(&side4.cone));
                  EXPECT_EQ(out.finish(), "");
                  return attempt != nullptr;
              }),
              6);
}

}  // namespace
