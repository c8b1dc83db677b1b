// Products with A and A' in one pass over the stored entries, and the deep copy.
#include <cstring>

#include "linsys/linsys.h"

namespace korvex {

void multiplyAddA(const SparseMatrix* A, const double* x, double* y) {
    const int* Ap = A->p;
    const int* Ai = A->i;
    const double* Ax = A->x;
    for (int j = 0; j < A->n; ++j) {
        const double xj = x[j];
        for (int q = Ap[j]; q < Ap[j + 1]; ++q) y[Ai[q]] += Ax[q] * xj;  // y(i) += A(i,j) x(j)
    }
}

void multiplyAddAt(const SparseMatrix* A, const double* x, double* y) {
    const int* Ap = A->p;
    const int* Ai = A->i;
    const double* Ax = A->x;
    for (int j = 0; j < A->n; ++j) {
        double sum = y[j];
        for (int q = Ap[j]; q < Ap[j + 1]; ++q) sum += x[Ai[q]] * Ax[q];  // y(j) += A(i,j) x(i)
        y[j] = sum;
    }
}

SparseMatrix* copyMatrix(const SparseMatrix* source) {
    auto* copy = static_cast<SparseMatrix*>(allocateZeroed(1, sizeof(SparseMatrix)));
    if (copy == nullptr) return nullptr;
    const int n = source->n;
    const int nnz = source->p[n];
    copy->m = source->m;
    copy->n = n;
    copy->x = allocateArray<double>(nnz);
    copy->i = allocateArray<int>(nnz);
    copy->p = allocateArray<int>(static_cast<std::int64_t>(n) + 1);
    if (copy->x == nullptr || copy->i == nullptr || copy->p == nullptr) {
        freeMatrix(copy);
        return nullptr;
    }
    if (nnz > 0) {  // a matrix without entries may come with null value and index arrays
        std::memcpy(copy->x, source->x, sizeof(double) * nnz);
        std::memcpy(copy->i, source->i, sizeof(int) * nnz);
    }
    std::memcpy(copy->p, source->p, sizeof(int) * (static_cast<std::size_t>(n) + 1));
    return copy;
}

void freeMatrix(SparseMatrix* matrix) {
    if (matrix == nullptr) return;
    releaseMemory(matrix->x);
    releaseMemory(matrix->i);
    releaseMemory(matrix->p);
    matrix->x = nullptr;
    matrix->i = nullptr;
    matrix->p = nullptr;
    releaseMemory(matrix);
}

}  // namespace korvex
