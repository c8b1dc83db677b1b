// Vector kernels of the whole solver, over plain arrays of doubles.
//
// n is a signed count; n <= 0 does nothing, and a reduction then gives 0. None of them
// allocates, locks or calls BLAS. The three sums (dotProduct, normSquared, normTwo) add
// in one fixed order: four running sums take the terms of index 0 .. k-1 (k = n with its
// two lowest bits cleared) by index modulo 4, they combine as ((s1 + s0) + s2) + s3, and
// the last n - k terms are added from the highest index down. The result therefore does
// not depend on the compiler or the machine.
#pragma once

namespace korvex {

// a[i] = a[i] + b[i]
void addVector(double* a, const double* b, int n);

// a[i] = a[i] + b[i] s   (the count comes before the scale here, and after it elsewhere)
void addScaledVector(double* a, const double* b, int n, double s);

// out[i] = a[i] sa + b[i] sb; out may be the same array as a or b.
void combineVectors(double* out, const double* a, const double* b, double sa, double sb, int n);

// x[i] = x[i] s
void scaleVector(double* x, double s, int n);

// a[i] = b[i] s
void scaleInto(double* a, const double* b, double s, int n);

// sum of a[i] b[i]
double dotProduct(const double* a, const double* b, int n);

// sum of x[i] x[i]
double normSquared(const double* x, int n);

// sqrt(normSquared(x, n))
double normTwo(const double* x, int n);

// largest |x[i]|, starting from 0; a NaN term leaves the maximum as it was.
double normInf(const double* x, int n);

// largest |a[i] - b[i]|, starting from 0; a NaN term leaves the maximum as it was.
double normInfDiff(const double* a, const double* b, int n);

// Two doubles side by side (the compiler's vector extension, SSE2 on any x86-64), for
// fused passes that must run two entries an instruction to pay: each lane computes exactly
// what scalar code would.
typedef double DoublePair __attribute__((vector_size(16)));

inline DoublePair loadPair(const double* p) {
    DoublePair v;
    __builtin_memcpy(&v, p, sizeof v);
    return v;
}

inline void storePair(double* p, DoublePair v) { __builtin_memcpy(p, &v, sizeof v); }

// The four running sums of dotProduct held as lanes (s0, s1) and (s2, s3), combined in its
// order.
inline double combineLanes(DoublePair low, DoublePair high) { return ((low[1] + low[0]) + high[0]) + high[1]; }

// One pass over j = 0 .. n-1 that both writes vectors and sums: body(j, terms) does the
// work at j and fills terms[0 .. N-1]; sums[c] becomes the sum of the terms of column c
// over all j, added in the order of dotProduct. A pass that updates a vector and takes
// its inner product with another thus gives the bits of the two separate kernels while
// reading each entry once. The body is called for j in increasing order, so it may also
// keep running sums of its own in plain index order.
template <int N, class Body>
inline void fusedSums(int n, double* sums, Body body) {
    double lane[4][N] = {};
    double terms[N];
    const int k = n > 0 ? (n & ~3) : 0;
    for (int j = 0; j < k; j += 4) {
        for (int q = 0; q < 4; ++q) {
            body(j + q, terms);
            for (int c = 0; c < N; ++c) lane[q][c] += terms[c];
        }
    }
    double tail[3][N];
    for (int j = k; j < n; ++j) body(j, tail[j - k]);
    for (int c = 0; c < N; ++c) sums[c] = ((lane[1][c] + lane[0][c]) + lane[2][c]) + lane[3][c];
    for (int j = n - 1; j >= k; --j) {
        for (int c = 0; c < N; ++c) sums[c] += tail[j - k][c];  // the last terms from the highest index down
    }
}

// sum of a[k] x[index[k]] for k below count: a gather, in four running sums combined at the
// end, so that its chain of dependent additions is a quarter as long. Beside the kernels
// above, not one of them: its order is its own.
inline double gatherDot(const double* a, const int* index, const double* x, int count) {
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    int k = 0;
    for (; k + 4 <= count; k += 4) {
        s0 += a[k] * x[index[k]];
        s1 += a[k + 1] * x[index[k + 1]];
        s2 += a[k + 2] * x[index[k + 2]];
        s3 += a[k + 3] * x[index[k + 3]];
    }
    for (; k < count; ++k) s0 += a[k] * x[index[k]];
    return (s0 + s1) + (s2 + s3);
}

}  // namespace korvex
