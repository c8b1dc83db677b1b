// Products with A and A' in one pass over the stored entries, and the deep copy.
#include <algorithm>
#include <cstdint>
#include <cstring>

#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "reporting/threads.h"

namespace korvex {

namespace {

// Runs of at least this many rows of one entry are taken without a loop per row.
constexpr int kSingleRun = 8;

}  // namespace

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


int buildRowCopy(const SparseMatrix* A, RowCopy* rows) {
    const int m = A->m;
    const int n = A->n;
    const int nnz = A->p[n];
    if (!rows->start.allocate(static_cast<std::int64_t>(m) + 1, true) || !rows->column.allocate(nnz) ||
        !rows->value.allocate(nnz)) {
        return -1;
    }
    int* start = rows->start.get();
    for (int q = 0; q < nnz; ++q) ++start[A->i[q] + 1];
    for (int i = 0; i < m; ++i) start[i + 1] += start[i];
    // a cursor per row, kept in the entries of start shifted by one and restored below
    for (int j = 0; j < n; ++j) {
        for (int q = A->p[j]; q < A->p[j + 1]; ++q) {
            const int at = start[A->i[q]]++;
            rows->column[at] = j;
            rows->value[at] = A->x[q];
        }
    }
    for (int i = m; i > 0; --i) start[i] = start[i - 1];
    start[0] = 0;
    rows->m = m;

    // Runs of at least kSingleRun rows of one entry each, counted, then listed.
    auto single = [start](int i) { return start[i + 1] - start[i] == 1; };
    int runs = 0;
    forEachRunWhere(0, m, kSingleRun, single, [&](int, int) { ++runs; });
    if (!rows->single_first.allocate(runs > 0 ? runs : 1) || !rows->single_after.allocate(runs > 0 ? runs : 1)) return -1;
    rows->single_count = 0;
    forEachRunWhere(0, m, kSingleRun, single, [&](int first, int after) {
        rows->single_first[rows->single_count] = first;
        rows->single_after[rows->single_count++] = after;
    });
    return 0;
}

// Splits the count items of an index array (start, count + 1 entries) into tasks of about
// equal numbers of entries and runs body(begin, end) on each. Every item lies in one
// task, so the result does not depend on the split.
template <class Body>
void splitByEntries(const int* start, int count, Body&& body) {
    const long long entries = start[count];
    const int tasks = taskCountFor(entries + count, 8192, threadCount());
    if (tasks <= 1) {
        body(0, count);
        return;
    }
    // the first item of task k: the first whose entries reach k / tasks of the total
    auto boundary = [&](int k) {
        if (k >= tasks) return count;
        const long long target = entries * k / tasks;
        return static_cast<int>(std::lower_bound(start, start + count, target) - start);
    };
    forEachTask(tasks, [&](int k) { body(boundary(k), boundary(k + 1)); });
}

void productA(const RowCopy* rows, const double* x, double* y) {
    const int* start = rows->start.get();
    const int* column = rows->column.get();
    const double* value = rows->value.get();
    const int* single_first = rows->single_first.get();
    const int* single_after = rows->single_after.get();
    const int runs = rows->single_count;
    splitByEntries(start, rows->m, [&](int begin, int end) {
        int k = static_cast<int>(std::upper_bound(single_after, single_after + runs, begin) - single_after);
        for (int i = begin; i < end;) {
            const int next = k < runs && single_first[k] < end ? std::max(single_first[k], i) : end;
            for (; i < next; ++i) y[i] = gatherDot(value + start[i], column + start[i], x, start[i + 1] - start[i]);
            if (i == end) break;
            // rows of one entry: row i's entry is at i + shift; 0.0 + gives the gather's zero sign
            const int stop = std::min(single_after[k++], end);
            const int shift = start[i] - i;
            for (; i < stop; ++i) y[i] = 0.0 + value[i + shift] * x[column[i + shift]];
        }
    });
}

void productAt(const SparseMatrix* A, const double* x, double* y) {
    const int* Ap = A->p;
    const int* Ai = A->i;
    const double* Ax = A->x;
    splitByEntries(Ap, A->n, [&](int begin, int end) {
        for (int j = begin; j < end; ++j) y[j] = gatherDot(Ax + Ap[j], Ai + Ap[j], x, Ap[j + 1] - Ap[j]);
    });
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
