// K = [ rho_x I , A' ; A , -I ]: assembly, AMD ordering, symmetric permutation, and the
// up-looking LDL' elimination, one row of L at a time.
//
// K is quasi-definite, so every elimination order succeeds in exact arithmetic and no
// pivoting, regularisation or refinement is needed. The matrices made by CXSparse (the
// triplet and compressed K, the permuted C) come from its
// allocator and go back to it; everything else, L included, comes from ours, so that the
// allocation hook reaches every array of the factor.
#include <amd.h>

#include <climits>
#include <cstdint>
#include <memory>

#include "linsys/linsys.h"
#include "reporting/print.h"
#include "reporting/timing.h"

namespace korvex {

namespace {

struct CsMatrixRelease {
    void operator()(cs* matrix) const noexcept { cs_spfree(matrix); }
};
using CsMatrix = std::unique_ptr<cs, CsMatrixRelease>;  // a record of CXSparse's allocator

void releaseFactorArrays(cs* L) {
    releaseMemory(L->p);
    releaseMemory(L->i);
    releaseMemory(L->x);
    L->p = nullptr;
    L->i = nullptr;
    L->x = nullptr;
    L->nzmax = 0;
}

// An empty N x N factor record in compressed-column form, or null.
cs* newFactorRecord(int N) {
    cs* L = createRecord<cs>();
    if (L == nullptr) return nullptr;
    L->m = N;
    L->n = N;
    L->nz = -1;
    return L;
}

}  // namespace

LinSysWork::~LinSysWork() {
    if (L == nullptr) return;
    releaseFactorArrays(L);
    destroyRecord(L);
}

cs* assembleSystemMatrix(const SparseMatrix* A, const Settings* settings) {
    const int n = A->n;
    const int m = A->m;
    const int* Ap = A->p;
    const int* Ai = A->i;
    const double* Ax = A->x;
    const std::int64_t wide_count = static_cast<std::int64_t>(Ap[n]) + n + m;
    if (wide_count > INT_MAX) return nullptr;  // K would not fit 32-bit indices
    const int count = static_cast<int>(wide_count);
    const int N = n + m;

    CsMatrix T(cs_spalloc(N, N, count, 1, 1));
    if (!T) return nullptr;
    int* Ti = T->i;
    int* Tj = T->p;  // column index of each entry in triplet form
    double* Tx = T->x;
    int t = 0;
    for (int j = 0; j < n; ++j, ++t) {  // K(j,j) = rho_x
        Ti[t] = j;
        Tj[t] = j;
        Tx[t] = settings->rho_x;
    }
    for (int j = 0; j < n; ++j) {  // K(j, n+i) = A(i,j): A' in the upper right block
        for (int q = Ap[j]; q < Ap[j + 1]; ++q, ++t) {
            Ti[t] = j;
            Tj[t] = n + Ai[q];
            Tx[t] = Ax[q];
        }
    }
    for (int i = 0; i < m; ++i, ++t) {  // K(n+i, n+i) = -1
        Ti[t] = n + i;
        Tj[t] = n + i;
        Tx[t] = -1.0;
    }
    T->nz = count;
    return cs_compress(T.get());
}

int symbolicStep(int N, const int* Cp, const int* Ci, int* Lp, int* parent, int* Lnz, int* flag) {
    for (int k = 0; k < N; ++k) {
        parent[k] = -1;
        flag[k] = k;
        Lnz[k] = 0;
        for (int q = Cp[k]; q < Cp[k + 1]; ++q) {
            // L(k,i) != 0 for i = Ci[q] and every ancestor of i not yet reached in row k
            for (int i = Ci[q]; i < k && flag[i] != k; i = parent[i]) {
                if (parent[i] == -1) parent[i] = k;
                ++Lnz[i];
                flag[i] = k;
            }
        }
    }
    std::int64_t total = 0;
    for (int k = 0; k < N; ++k) total += Lnz[k];
    if (total > INT_MAX) return -1;
    Lp[0] = 0;
    for (int k = 0; k < N; ++k) Lp[k + 1] = Lp[k] + Lnz[k];
    return 0;
}

int numericStep(int N, const cs* C, const int* Lp, const int* parent, int* Lnz, int* Li, double* Lx, double* D,
                double* Y, int* pattern, int* flag) {
    const int* Cp = C->p;
    const int* Ci = C->i;
    const double* Cx = C->x;
    for (int k = 0; k < N; ++k) {
        if (isInterrupted()) {
            printPlain("interrupt detected in factorization\n");
            return -1;
        }
        // Y = C(0:k, k) scattered; pattern[top..N-1] = pattern of L(k,:), each node
        // before its ancestors in the elimination tree
        Y[k] = 0.0;
        int top = N;
        flag[k] = k;
        Lnz[k] = 0;
        for (int q = Cp[k]; q < Cp[k + 1]; ++q) {
            int i = Ci[q];
            if (i > k) continue;
            Y[i] += Cx[q];
            int len = 0;
            for (; flag[i] != k; i = parent[i]) {
                pattern[len++] = i;
                flag[i] = k;
            }
            while (len > 0) pattern[--top] = pattern[--len];
        }
        D[k] = Y[k];
        Y[k] = 0.0;
        for (; top < N; ++top) {
            const int i = pattern[top];
            const double yi = Y[i];
            Y[i] = 0.0;
            const int end = Lp[i] + Lnz[i];
            for (int q = Lp[i]; q < end; ++q) Y[Li[q]] -= Lx[q] * yi;  // Y -= L(:,i) y(i)
            const double l_ki = yi / D[i];                               // L(k,i) = y(i) / D(i)
            D[k] -= l_ki * yi;
            Li[end] = k;
            Lx[end] = l_ki;
            ++Lnz[i];
        }
        if (D[k] == 0.0) return k;  // only an exact zero stops; NaN and infinity go through
    }
    return N;
}

int factoriseSystem(const cs* C, LinSysWork* p) {
    const int N = C->n;
    if (p->L == nullptr) p->L = newFactorRecord(N);
    cs* L = p->L;
    if (L == nullptr) return -1;
    releaseFactorArrays(L);

    OwnedArray<int> parent;
    OwnedArray<int> Lnz;  // column counts, then the fill cursor of the numeric step
    OwnedArray<int> flag;
    OwnedArray<int> pattern;
    OwnedArray<double> Y;  // accumulator, all zero between rows
    L->p = allocateArray<int>(static_cast<std::int64_t>(N) + 1);
    if (L->p == nullptr || !parent.allocate(N) || !Lnz.allocate(N) || !flag.allocate(N) || !pattern.allocate(N) ||
        !Y.allocate(N, true)) {
        return -1;
    }
    if (symbolicStep(N, C->p, C->i, L->p, parent.get(), Lnz.get(), flag.get()) != 0) return -1;

    L->nzmax = L->p[N];
    L->i = allocateArray<int>(L->nzmax);
    L->x = allocateArray<double>(L->nzmax);
    if (L->i == nullptr || L->x == nullptr || !p->diag.allocate(N)) return -1;

    const int result = numericStep(N, C, L->p, parent.get(), Lnz.get(), L->i, L->x, p->diag.get(), Y.get(),
                                   pattern.get(), flag.get());
    if (result != N) return result - N;
    return buildSupernodes(p) == 0 ? 0 : -1;
}

LinSysWork* initPriv(const SparseMatrix* A, const Settings* settings) {
    const std::int64_t wide_order = static_cast<std::int64_t>(A->n) + A->m;
    if (wide_order > INT_MAX) return nullptr;
    const int N = static_cast<int>(wide_order);

    RecordOwner<LinSysWork> p(createRecord<LinSysWork>());
    if (!p || !p->perm.allocate(N)) return nullptr;
    p->L = newFactorRecord(N);
    if (p->L == nullptr || !p->rhs_work.allocate(N) || !p->h_perm.allocate(N) || !p->perm_inverse.allocate(N)) {
        return nullptr;
    }

    CsMatrix K(assembleSystemMatrix(A, settings));
    OwnedArray<double> report;  // AMD's statistics; nothing reads them
    if (!K || !report.allocate(AMD_INFO)) return nullptr;
    // default control parameters; AMD_OK_BUT_JUMBLED (duplicate entries) is fine
    if (amd_order(N, K->p, K->i, p->perm.get(), nullptr, report.get()) < 0) return nullptr;

    int* inverse = p->perm_inverse.get();
    for (int k = 0; k < N; ++k) inverse[p->perm[k]] = k;
    CsMatrix C(cs_symperm(K.get(), inverse, 1));  // upper triangle of P K P'
    if (!C) return nullptr;
    if (factoriseSystem(C.get(), p.get()) != 0) return nullptr;
    if (buildRowCopy(A, &p->rows_of_A) != 0) return nullptr;

    p->solve_time_ms = 0.0;
    return p.release();
}

void releasePriv(LinSysWork* p) { destroyRecord(p); }

}  // namespace korvex
