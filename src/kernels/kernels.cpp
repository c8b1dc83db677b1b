#include "kernels/kernels.h"

#include <cmath>

namespace korvex {

// The element-wise kernels run in four-way unrolled steps; each entry is touched once,
// so the unrolling cannot show in a result. The reductions keep four partial sums s0..s3
// in the lanes of index modulo 4, which the compiler may hold in two vector registers
// without changing a bit of the result.

void addVector(double* a, const double* b, int n) {
    int k = n & ~3;
    int i = 0;
    for (; i < k; i += 4) {
        a[i] += b[i];
        a[i + 1] += b[i + 1];
        a[i + 2] += b[i + 2];
        a[i + 3] += b[i + 3];
    }
    for (; i < n; ++i) a[i] += b[i];
}

void addScaledVector(double* a, const double* b, int n, double s) {
    int k = n & ~3;
    int i = 0;
    for (; i < k; i += 4) {
        a[i] += b[i] * s;
        a[i + 1] += b[i + 1] * s;
        a[i + 2] += b[i + 2] * s;
        a[i + 3] += b[i + 3] * s;
    }
    for (; i < n; ++i) a[i] += b[i] * s;
}

void combineVectors(double* out, const double* a, const double* b, double sa, double sb, int n) {
    // out may alias a or b: each entry is read before it is written, and only by itself.
    int k = n & ~3;
    int i = 0;
    for (; i < k; i += 4) {
        out[i] = a[i] * sa + b[i] * sb;
        out[i + 1] = a[i + 1] * sa + b[i + 1] * sb;
        out[i + 2] = a[i + 2] * sa + b[i + 2] * sb;
        out[i + 3] = a[i + 3] * sa + b[i + 3] * sb;
    }
    for (; i < n; ++i) out[i] = a[i] * sa + b[i] * sb;
}

void scaleVector(double* x, double s, int n) {
    int k = n & ~3;
    int i = 0;
    for (; i < k; i += 4) {
        x[i] *= s;
        x[i + 1] *= s;
        x[i + 2] *= s;
        x[i + 3] *= s;
    }
    for (; i < n; ++i) x[i] *= s;
}

void scaleInto(double* a, const double* b, double s, int n) {
    int k = n & ~3;
    int i = 0;
    for (; i < k; i += 4) {
        a[i] = b[i] * s;
        a[i + 1] = b[i + 1] * s;
        a[i + 2] = b[i + 2] * s;
        a[i + 3] = b[i + 3] * s;
    }
    for (; i < n; ++i) a[i] = b[i] * s;
}

double dotProduct(const double* a, const double* b, int n) {
    if (n <= 0) return 0.0;
    int k = n & ~3;
    double s0 = 0.0, s1 = 0.0, s2 = 0.0, s3 = 0.0;
    for (int i = 0; i < k; i += 4) {
        s0 += a[i] * b[i];
        s1 += a[i + 1] * b[i + 1];
        s2 += a[i + 2] * b[i + 2];
        s3 += a[i + 3] * b[i + 3];
    }
    double sum = ((s1 + s0) + s2) + s3;
    for (int i = n - 1; i >= k; --i) sum += a[i] * b[i];  // tail: highest index first
    return sum;
}

// The same terms in the same order as dotProduct(x, x, n).
double normSquared(const double* x, int n) { return dotProduct(x, x, n); }

double normTwo(const double* x, int n) { return std::sqrt(normSquared(x, n)); }

double normInf(const double* x, int n) {
    double largest = 0.0;
    for (int i = 0; i < n; ++i) {
        double t = x[i] < 0.0 ? -x[i] : x[i];
        if (t > largest) largest = t;  // false for a NaN term
    }
    return largest;
}

double normInfDiff(const double* a, const double* b, int n) {
    double largest = 0.0;
    for (int i = 0; i < n; ++i) {
        double t = a[i] - b[i];
        if (t < 0.0) t = -t;
        if (t > largest) largest = t;  // false for a NaN term
    }
    return largest;
}

}  // namespace korvex
