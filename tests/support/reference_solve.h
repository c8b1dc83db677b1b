// The plain transcriptions that the fast routes of the linear system are checked against:
// the column-by-column solve with L (a scatter forward, one running sum per column
// backward) and the relative distance between two results.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "linsys/linsys.h"

// K z = rhs from the columns of lin_sys->L, in the order of the original routine: permute,
// L^-1 with the pivot division folded in, L'^-1, permute back.
inline std::vector<double> referenceSolve(const korvex::LinSysWork* lin_sys, const std::vector<double>& rhs) {
    const cs* L = lin_sys->L;
    const int N = L->n;
    std::vector<double> x(N), out(N);
    for (int k = 0; k < N; ++k) x[k] = rhs[lin_sys->perm[k]];
    for (int j = 0; j < N; ++j) {
        const double xj = x[j];
        for (int q = L->p[j]; q < L->p[j + 1]; ++q) x[L->i[q]] -= L->x[q] * xj;
        x[j] = xj / lin_sys->diag[j];
    }
    for (int j = N - 1; j >= 0; --j) {
        double xj = x[j];
        for (int q = L->p[j]; q < L->p[j + 1]; ++q) xj -= L->x[q] * x[L->i[q]];
        x[j] = xj;
    }
    for (int k = 0; k < N; ++k) out[lin_sys->perm[k]] = x[k];
    return out;
}

// |a - b| / |b| in the Euclidean norm (0 when both are 0).
inline double relativeDistance(const std::vector<double>& a, const std::vector<double>& b) {
    double diff = 0.0, size = 0.0;
    for (std::size_t k = 0; k < b.size(); ++k) {
        diff += (a[k] - b[k]) * (a[k] - b[k]);
        size += b[k] * b[k];
    }
    return size == 0.0 ? std::sqrt(diff) : std::sqrt(diff / size);
}
