// The Cone record's size, checks, block list and texts, byte for byte, and the
// semidefinite workspace with its LAPACK query.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "cone_checks.h"
#include "cones/cones.h"
#include "cones/lapack.h"
#include "support/capture.h"

namespace {

// The message printed by checkConeRecord for a record and a row count, with its result.
std::string checkMessage(const Cone& cone, int m, int* result) {
    Data data{};
    data.m = m;
    CapturedOutput out;
    *result = checkConeRecord(&data, &cone);
    return out.finish();
}

TEST(ConeRecord, TotalSizeCountsEveryFamily) {
    // 2 + 3 + (4 + 0 + 1) + (6 + 0 + 15) + 3*2 + 3*1 + 3*2
    ConeFixture f(2, 3, {4, 0, 1}, {3, 0, 5}, 2, 1, {0.5, -0.3});
    EXPECT_EQ(coneTotalSize(&f.cone), 2 + 3 + 5 + 21 + 6 + 3 + 6);

    ConeFixture empty(0, 0, {}, {}, 0, 0, {});
    EXPECT_EQ(coneTotalSize(&empty.cone), 0);

    // A count without its array is no list at all; power triples need their exponents.
    Cone orphan{};
    orphan.soc_blks = 3;
    orphan.sd_blks = 2;
    orphan.power_triples = 4;
    orphan.linear_vars = 1;
    EXPECT_EQ(coneTotalSize(&orphan), 1);
}

TEST(ConeRecord, CheckRefusesEachFamilyWithItsMessage) {
    int result = 0;
    ConeFixture valid(1, 2, {3, 0}, {2, 0}, 1, 1, {-1.0, 1.0, 0.0});
    EXPECT_EQ(checkMessage(valid.cone, 1 + 2 + 3 + 3 + 3 + 3 + 9, &result), "");
    EXPECT_EQ(result, 0);

    // The total comes first in the dimension message, then m.
    EXPECT_EQ(checkMessage(valid.cone, 7, &result), "cone dimensions 24 not equal to num rows in A = m = 7\n");
    EXPECT_EQ(result, -1);

    const struct {
        ConeFixture fixture;
        int m;
        const char* message;
    } refusals[] = {
        // Each record's total equals m, so that the family test is the one that speaks.
        {ConeFixture(-1, 4, {}, {}, 0, 0, {}), 3, "free cone error\n"},
        {ConeFixture(4, -1, {}, {}, 0, 0, {}), 3, "lp cone error\n"},
        {ConeFixture(0, 5, {3, -1}, {}, 0, 0, {}), 7, "soc cone error\n"},
        {ConeFixture(0, 0, {}, {2, -2}, 0, 0, {}), 4, "sd cone error\n"},
        {ConeFixture(6, 0, {}, {}, 0, -1, {}), 3, "ep cone error\n"},
        {ConeFixture(6, 0, {}, {}, -1, 0, {}), 3, "ed cone error\n"},
        // Both exponential counts negative: the dual count is tested first.
        {ConeFixture(9, 0, {}, {}, -1, -1, {}), 3, "ep cone error\n"},
        {ConeFixture(0, 0, {}, {}, 0, 0, {0.5, 1.0000001}), 6, "power cone error, values must be in [-1,1]\n"},
        {ConeFixture(0, 0, {}, {}, 0, 0, {-1.5}), 3, "power cone error, values must be in [-1,1]\n"},
        {ConeFixture(0, 0, {}, {}, 0, 0, {std::numeric_limits<double>::quiet_NaN()}), 3,
         "power cone error, values must be in [-1,1]\n"},
    };
    for (const auto& row : refusals) {
        SCOPED_TRACE(row.message);
        EXPECT_EQ(checkMessage(row.fixture.cone, row.m, &result), row.message);
        EXPECT_EQ(result, -1);
    }

    // A negative count whose total differs from m reports the dimension, as computed.
    ConeFixture negative(-2, 0, {}, {}, 0, 0, {});
    EXPECT_EQ(checkMessage(negative.cone, 5, &result), "cone dimensions -2 not equal to num rows in A = m = 5\n");

    // A negative power count with its list: the count message.
    ConeFixture power(3, 0, {}, {}, 0, 0, {0.5});
    power.cone.power_triples = -1;
    EXPECT_EQ(checkMessage(power.cone, 0, &result), "power cone error\n");
}

TEST(ConeRecord, BlockLengthsKeepZeroSizedBlocks) {
    ConeFixture f(2, 3, {4, 0, 1}, {0, 3}, 1, 2, {0.5});
    int* lengths = nullptr;
    const int count = coneBlockLengths(&f.cone, &lengths);
    ASSERT_NE(lengths, nullptr);
    const std::vector<int> got(lengths, lengths + count);
    EXPECT_EQ(got, (std::vector<int>{5, 4, 0, 1, 0, 6, 3, 3, 3, 3}));
    int sum = 0;
    for (int v : got) sum += v;
    EXPECT_EQ(sum, coneTotalSize(&f.cone));
    releaseMemory(lengths);

    ConeFixture empty(0, 0, {}, {}, 0, 0, {});
    EXPECT_EQ(coneBlockLengths(&empty.cone, &lengths), 1);
    EXPECT_EQ(lengths[0], 0);
    releaseMemory(lengths);

    failAllocationAt(1);
    EXPECT_EQ(coneBlockLengths(&f.cone, &lengths), -1);
    EXPECT_EQ(lengths, nullptr);
    failAllocationAt(0);
}

std::string summaryOf(const Cone& cone) {
    char* text = coneSummaryText(&cone);
    std::string copy = text != nullptr ? text : "<null>";
    releaseMemory(text);
    return copy;
}

TEST(ConeRecord, SummaryTextListsThePresentFamilies) {
    ConeFixture all(2, 3, {4, 1}, {3, 2}, 1, 2, {0.5, -0.5});
    EXPECT_EQ(summaryOf(all.cone),
              "Cones:\tprimal zero / dual free vars: 2\n"
              "\tlinear vars: 3\n"
              "\tsoc vars: 5, soc blks: 2\n"
              "\tsd vars: 9, sd blks: 2\n"
              "\texp vars: 3, dual exp vars: 6\n"
              "\tprimal + dual power vars: 6\n");

    ConeFixture none(0, 0, {}, {}, 0, 0, {});
    EXPECT_EQ(summaryOf(none.cone), "Cones:");

    ConeFixture only_primal_exp(0, 0, {}, {}, 1, 0, {});
    EXPECT_EQ(summaryOf(only_primal_exp.cone), "Cones:\texp vars: 3, dual exp vars: 0\n");
    ConeFixture only_dual_exp(0, 0, {}, {}, 0, 4, {});
    EXPECT_EQ(summaryOf(only_dual_exp.cone), "Cones:\texp vars: 0, dual exp vars: 12\n");

    // Zero-sized blocks still count as blocks.
    ConeFixture zero_blocks(0, 1, {0}, {0}, 0, 0, {});
    EXPECT_EQ(summaryOf(zero_blocks.cone), "Cones:\tlinear vars: 1\n\tsoc vars: 0, soc blks: 1\n\tsd vars: 0, sd blks: 1\n");
}

TEST(ConeRecord, TimingLineAveragesOverIterationsAndResets) {
    ConeWork work{};
    work.projection_time_ms = 1500.0;
    Info info{};
    info.iter = 2;
    char* line = coneTimingLine(&info, &work);
    ASSERT_NE(line, nullptr);
    EXPECT_STREQ(line, "\tCones: avg projection time: 5.00e-01s\n");
    releaseMemory(line);
    EXPECT_EQ(work.projection_time_ms, 0.0);

    info.iter = 0;
    work.projection_time_ms = 0.25;
    line = coneTimingLine(&info, &work);
    EXPECT_STREQ(line, "\tCones: avg projection time: 2.50e-04s\n");
    releaseMemory(line);
}

TEST(ConeWorkspace, SmallSemidefiniteSidesNeedNoArrays) {
    for (const std::vector<int>& sides : {std::vector<int>{}, {1, 2}, {2, 0, 1}}) {
        ConeFixture f(1, 0, {}, sides, 0, 0, {});
        ConeWork* work = initCone(&f.cone);
        ASSERT_NE(work, nullptr);
        EXPECT_EQ(work->sd_matrix.get(), nullptr);
        EXPECT_EQ(work->sd_vectors.get(), nullptr);
        EXPECT_EQ(work->sd_values.get(), nullptr);
        EXPECT_EQ(work->eig_work.get(), nullptr);
        EXPECT_EQ(work->eig_iwork.get(), nullptr);
        EXPECT_EQ(work->projection_time_ms, 0.0);
        freeConeWork(work);
    }
}

// dsyevr's own answer to a workspace query for order n.
void queryWorkspace(int n, int* lwork, int* liwork) {
    std::vector<double> a(n * n), w(n), z(n * n);
    const int query = -1;
    const double abstol = 1e-8;
    double work_size = 0.0;
    int found = 0, info = 0;
    dsyevr_("V", "A", "L", &n, a.data(), &n, nullptr, nullptr, nullptr, nullptr, &abstol, &found, w.data(), z.data(),
            &n, nullptr, &work_size, &query, liwork, &query, &info, 1, 1, 1);
    ASSERT_EQ(info, 0);
    *lwork = static_cast<int>(work_size + 0.01);
}

TEST(ConeWorkspace, LargestSideSizesTheArraysAndTheQueryTheWorkspace) {
    ConeFixture f(0, 0, {}, {3, 5, 1}, 0, 0, {});
    ConeWork* work = initCone(&f.cone);
    ASSERT_NE(work, nullptr);
    ASSERT_NE(work->sd_matrix.get(), nullptr);
    ASSERT_NE(work->sd_vectors.get(), nullptr);
    ASSERT_NE(work->sd_values.get(), nullptr);
    ASSERT_NE(work->eig_work.get(), nullptr);
    ASSERT_NE(work->eig_iwork.get(), nullptr);
    for (int k = 0; k < 25; ++k) {
        EXPECT_EQ(work->sd_matrix[k], 0.0);
        EXPECT_EQ(work->sd_vectors[k], 0.0);
    }
    for (int k = 0; k < 5; ++k) EXPECT_EQ(work->sd_values[k], 0.0);

    int lwork = 0, liwork = 0;
    queryWorkspace(5, &lwork, &liwork);
    EXPECT_EQ(work->eig_work_len, lwork);
    EXPECT_EQ(work->eig_iwork_len, liwork);
    EXPECT_GE(work->eig_work_len, 26 * 5);  // LAPACK's documented minimum
    EXPECT_GE(work->eig_iwork_len, 10 * 5);
    // The whole workspace is addressable (the sanitizer build checks the bounds).
    work->eig_work[work->eig_work_len - 1] = 1.0;
    work->eig_iwork[work->eig_iwork_len - 1] = 1;
    freeConeWork(work);
    freeConeWork(nullptr);
}

TEST(ConeWorkspace, EveryFailedAllocationGivesNullWithoutLeaking) {
    ConeFixture f(0, 0, {}, {4}, 0, 0, {});
    failAllocationAt(0);
    ConeWork* complete = initCone(&f.cone);
    ASSERT_NE(complete, nullptr);
    const long allocations = allocationCount();
    EXPECT_EQ(allocations, 6);  // the record and its five arrays
    freeConeWork(complete);

    for (long k = 1; k <= allocations; ++k) {
        SCOPED_TRACE(k);
        failAllocationAt(k);
        CapturedOutput out;
        EXPECT_EQ(initCone(&f.cone), nullptr);
        EXPECT_EQ(out.finish(), "");  // an allocation failure prints nothing here
        EXPECT_TRUE(allocationFailureFired());
    }
    failAllocationAt(0);
}

}  // namespace
