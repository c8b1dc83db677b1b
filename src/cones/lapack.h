// The four BLAS and LAPACK routines of the semidefinite projection, through their
// Fortran symbols in OpenBLAS: every argument by reference, 32-bit integers, and the
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

// Full decompositions, which the solver does not call: the tests and the benchmarks use
// them as references for the partial one.
void dsyev_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w, double* work,
            const int* lwork, int* info, std::size_t jobz_len, std::size_t uplo_len);

void dsyevd_(const char* jobz, const char* uplo, const int* n, double* a, const int* lda, double* w, double* work,
             const int* lwork, int* iwork, const int* liwork, int* info, std::size_t jobz_len, std::size_t uplo_len);
}
