// The LDL' factorisation of K: the worked case, dense references on random shapes,
// SuiteSparse's ldl_symbolic on the same permuted matrix, pivot signs, refusals, the
// interrupt poll and every failure of the set-up.
#include <gtest/gtest.h>

#include <SuiteSparse_config.h>
#include <amd.h>
extern "C" {
#include <ldl.h>  // a C header without its own linkage block
}

#include <cmath>
#include <cstring>

#include "linsys_fixtures.h"
#include "reporting/timing.h"
#include "support/capture.h"
#include "support/problems.h"

using namespace korvex;

// This suite is linked with --wrap for isInterrupted, so that a test can count the polls
// of the elimination and press Ctrl+C (through the console handler) just before the k-th.
namespace {
long polls = 0, interrupt_at_poll = 0;
}  // namespace

extern "C" int __real__ZN6korvex13isInterruptedEv();
extern "C" int __wrap__ZN6korvex13isInterruptedEv() {
    ++polls;
    if (polls == interrupt_at_poll) consoleInterruptHandler(0);
    return __real__ZN6korvex13isInterruptedEv();
}

namespace {

struct CsRelease {
    void operator()(cs* matrix) const noexcept { cs_spfree(matrix); }
};
using CsMatrix = std::unique_ptr<cs, CsRelease>;

// C = upper triangle of P K P' for the ordering perm, as initPriv builds it.
CsMatrix permutedSystem(const SparseMatrix* A, const Settings* settings, const int* perm) {
    CsMatrix K(assembleSystemMatrix(A, settings));
    int* inverse = cs_pinv(perm, K->n);
    CsMatrix C(cs_symperm(K.get(), inverse, 1));
    cs_free(inverse);
    return C;
}

// Largest |(L D L')(a,b) - K(perm a, perm b)| relative to sum_k |L(a,k) D(k) L(b,k)|.
double factorError(const LinSysWork* f, const std::vector<double>& K, int N) {
    std::vector<double> L(N * N, 0.0);  // unit lower triangular, row-major
    for (int j = 0; j < N; ++j) {
        L[j * N + j] = 1.0;
        for (int q = f->L->p[j]; q < f->L->p[j + 1]; ++q) L[f->L->i[q] * N + j] = f->L->x[q];
    }
    double worst = 0.0;
    for (int a = 0; a < N; ++a) {
        for (int b = 0; b < N; ++b) {
            double product = 0.0, magnitude = 0.0;
            for (int k = 0; k < N; ++k) {
                const double term = L[a * N + k] * f->diag[k] * L[b * N + k];
                product += term;
                magnitude += std::fabs(term);
            }
            const double target = K[f->perm[a] * N + f->perm[b]];
            worst = std::max(worst, std::fabs(product - target) / std::max(magnitude, 1.0));
        }
    }
    return worst;
}

TEST(Factorisation, WorkedCaseInNaturalOrder) {
    // K = [ 0.5 , 2 ; 2 , -1 ] gives L(1,0) = 4 and D = (0.5, -9).
    TestMatrix A = matrixFromColumns(1, {{{0, 2.0}}});
    Settings settings = testSettings(0.5, 0, 0);
    CsMatrix K(assembleSystemMatrix(A.get(), &settings));
    ASSERT_TRUE(K);
    EXPECT_EQ(std::vector<int>(K->p, K->p + 3), (std::vector<int>{0, 1, 3}));
    EXPECT_EQ(std::vector<int>(K->i, K->i + 3), (std::vector<int>{0, 0, 1}));
    EXPECT_EQ(std::vector<double>(K->x, K->x + 3), (std::vector<double>{0.5, 2.0, -1.0}));
    Factor p(createRecord<LinSysWork>());
    ASSERT_EQ(factoriseSystem(K.get(), p.get()), 0);
    EXPECT_TRUE(p->L->nzmax == 1 && p->L->p[1] == 1 && p->L->i[0] == 1 && p->L->x[0] == 4.0);
    EXPECT_TRUE(p->diag[0] == 0.5 && p->diag[1] == -9.0);
}

TEST(Factorisation, FactorsReproducePermutedKAgreeWithLdlAndRepeatBitForBit) {
    const struct {
        int m, n;
        double density;
    } shapes[] = {{12, 5, 0.4}, {4, 11, 0.5}, {8, 8, 0.3}, {30, 30, 0.1},  // tall, wide, square
                  {1, 1, 1.0},  {2, 3, 0.7},  {0, 3, 0.0}, {3, 0, 0.0}};
    std::uint32_t seed = 1;
    for (const auto& shape : shapes) {
        for (double rho_x : {1e-3, 1.0, 10.0}) {
            SCOPED_TRACE(testing::Message() << shape.m << "x" << shape.n << " rho_x " << rho_x);
            TestMatrix A = randomMatrix(shape.m, shape.n, shape.density, seed++);
            Settings settings = testSettings(rho_x, 0, 0);
            Factor f(initPriv(A.get(), &settings));
            ASSERT_TRUE(f);
            const int N = shape.m + shape.n;
            EXPECT_LT(factorError(f.get(), denseSystemMatrix(A.get(), rho_x), N), 1e-14);
            for (int k = 0; k < N; ++k) {  // quasi-definite: the sign follows the block
                EXPECT_EQ(f->diag[k] > 0.0, f->perm[k] < shape.n) << "pivot " << k;
                for (int q = f->L->p[k]; q + 1 < f->L->p[k + 1]; ++q) EXPECT_LT(f->L->i[q], f->L->i[q + 1]);
            }

            // SuiteSparse's ldl_symbolic on the same permuted matrix: the same column counts.
            CsMatrix C = permutedSystem(A.get(), &settings, f->perm.get());
            std::vector<int> Lp(N + 1), parent(N), Lnz(N), flag(N);
            ldl_symbolic(N, C->p, C->i, Lp.data(), parent.data(), Lnz.data(), flag.data(), nullptr, nullptr);
            EXPECT_EQ(Lp, std::vector<int>(f->L->p, f->L->p + N + 1));

            // Identical inputs give identical bits.
            Factor again(initPriv(A.get(), &settings));
            const int nnz = f->L->p[N];
            EXPECT_EQ(std::memcmp(f->perm.get(), again->perm.get(), sizeof(int) * N), 0);
            EXPECT_EQ(std::memcmp(f->diag.get(), again->diag.get(), sizeof(double) * N), 0);
            if (nnz > 0) {
                EXPECT_EQ(std::memcmp(f->L->i, again->L->i, sizeof(int) * nnz), 0);
                EXPECT_EQ(std::memcmp(f->L->x, again->L->x, sizeof(double) * nnz), 0);
            }
        }
    }
}

TEST(Factorisation, ExactZeroPivotIsRefusedAndATinyOneIsNot) {
    // A = ones(3, 2) has two equal columns, so the pivot of the x column eliminated last
    // is a small multiple of rho_x in exact arithmetic. With rho_x = 2^-60 it drowns in
    // the rounding of the order-one terms and cancels to exactly 0; with 2^-40 a few
    // bits of it survive and the factorisation goes through.
    TestMatrix ones = matrixFromColumns(3, {{{0, 1.0}, {1, 1.0}, {2, 1.0}}, {{0, 1.0}, {1, 1.0}, {2, 1.0}}});
    Settings larger = testSettings(std::ldexp(1.0, -40), 0, 0), tiny = testSettings(std::ldexp(1.0, -60), 0, 0);
    Factor f(initPriv(ones.get(), &larger));
    ASSERT_TRUE(f);
    EXPECT_EQ(initPriv(ones.get(), &tiny), nullptr);

    // In the same order the zero is the last pivot: k - N = 4 - 5, and nothing printed.
    CsMatrix C = permutedSystem(ones.get(), &tiny, f->perm.get());
    Factor p(createRecord<LinSysWork>());
    CapturedOutput out;
    EXPECT_EQ(factoriseSystem(C.get(), p.get()), 4 - 5);
    EXPECT_EQ(out.finish(), "");
    EXPECT_EQ(p->diag[4], 0.0);
}

TEST(Factorisation, InterruptBeforeOrDuringTheEliminationEndsTheSetUp) {
    TestMatrix A = randomMatrix(20, 10, 0.3, 5);
    Settings settings = testSettings(1.0, 0, 0);
    const int N = 30;

    polls = 0;
    interrupt_at_poll = 0;
    Factor complete(initPriv(A.get(), &settings));
    ASSERT_TRUE(complete);
    EXPECT_EQ(polls, N);  // once per row

    for (long at_poll : {1L, 4L, static_cast<long>(N)}) {
        SCOPED_TRACE(at_poll);
        polls = 0;
        interrupt_at_poll = at_poll;
        CapturedOutput out;
        Factor interrupted(initPriv(A.get(), &settings));
        EXPECT_EQ(out.finish(), "interrupt detected in factorization\n");
        EXPECT_FALSE(interrupted);
        EXPECT_EQ(polls, at_poll);  // no row after the interrupt
        interruptFlag = 0;

        // The rows before it are those of the complete factor.
        CsMatrix C = permutedSystem(A.get(), &settings, complete->perm.get());
        Factor partial(createRecord<LinSysWork>());
        polls = 0;
        CapturedOutput again;
        EXPECT_EQ(factoriseSystem(C.get(), partial.get()), -1 - N);
        again.finish();
        for (int k = 0; k + 1 < at_poll; ++k) EXPECT_EQ(partial->diag[k], complete->diag[k]);
        interruptFlag = 0;
    }
    interrupt_at_poll = 0;
}

TEST(Factorisation, EveryFailedAllocationOrAmdRefusalGivesNull) {
    TestMatrix A = randomMatrix(9, 7, 0.4, 17);
    Settings settings = testSettings(0.1, 0, 0);
    expectEveryAllocationFailureReported([&] { return Factor(initPriv(A.get(), &settings)) != nullptr; });

    // AMD allocates through SuiteSparse's own hooks; out of memory there is a
    // negative result of amd_order.
    const auto saved = SuiteSparse_config;
    SuiteSparse_config.malloc_func = [](std::size_t) -> void* { return nullptr; };
    SuiteSparse_config.calloc_func = [](std::size_t, std::size_t) -> void* { return nullptr; };
    Factor refused(initPriv(A.get(), &settings));
    SuiteSparse_config = saved;
    EXPECT_FALSE(refused);
}

}  // namespace
