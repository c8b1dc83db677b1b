// The BLAS and LAPACK routines of the semidefinite projection, through their Fortran
// symbols in OpenBLAS: every argument by reference, 32-bit integers (LOGICAL too), and the
// hidden lengths of character arguments that gfortran appends.
#pragma once

#include <cstddef>

extern "C" {

void dsyevr_(const char* jobz, const char* range, const char* uplo, const int* n, double* a, const int* lda,
             const double* vl, const double* vu, const int* il, const int* iu, const double* abstol, int* m,
             double* w, double* z, const int* ldz, int* isuppz, double* work, const int* lwork, int* iwork,
             const int* liwork, int* info, std::size_t jobz_len, std::size_t range_len, std::size_t uplo_len);

void dsyr_(const char* uplo, const int* n, const double* alpha, const double* x, const int* incx, double* a,
           const int* lda, std::size_t uplo_len);

void dscal_(const int* n, const double* alpha, double* x, const int* incx);

double dnrm2_(const int* n, const double* x, const int* incx);

// Reduction to tridiagonal form Q' A Q = T, its eigenpairs by MRRR, and the product with Q.
void dsytrd_(const char* uplo, const int* n, double* a, const int* lda, double* d, double* e, double* tau,
             double* work, const int* lwork, int* info, std::size_t uplo_len);

void dstemr_(const char* jobz, const char* range, const int* n, double* d, double* e, const double* vl,
             const double* vu, const int* il, const int* iu, int* m, double* w, double* z, const int* ldz,
             const int* nzc, int* isuppz, int* tryrac, double* work, const int* lwork, int* iwork, const int* liwork,
             int* info, std::size_t jobz_len, std::size_t range_len);

// Eigenvectors of a tridiagonal for given eigenvalues, by inverse iteration.
void dstein_(const int* n, const double* d, const double* e, const int* m, const double* w, const int* iblock,
             const int* isplit, double* z, const int* ldz, double* work, int* iwork, int* ifail, int* info);

void dstedc_(const char* compz, const int* n, double* d, double* e, double* z, const int* ldz, double* work,
             const int* lwork, int* iwork, const int* liwork, int* info, std::size_t compz_len);

void dormtr_(const char* side, const char* uplo, const char* trans, const int* m, const int* n, const double* a,
             const int* lda, const double* tau, double* c, const int* ldc, double* work, const int* lwork, int* info,
             std::size_t side_len, std::size_t uplo_len, std::size_t trans_len);

// C = alpha A A' + beta C, lower triangle.
void dsyrk_(const char* uplo, const char* trans, const int* n, const int* k, const double* alpha, const double* a,
            const int* lda, const double* beta, double* c, const int* ldc, std::size_t uplo_len,
            std::size_t trans_len);

// Full decompositions, which the solver does not call: the tests and the benchmarks use
// them as references for the partial one.
void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w, double* work,
            const int* lwork, int* info, std::size_t jobz_len, std::size_t uplo_len);

void dsyevd_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w, double* work,
             const int* lwork, int* iwork, const int* liwork, int* info, std::size_t jobz_len, std::size_t uplo_len);
}
