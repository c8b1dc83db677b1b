// What a solve asks of the factors: K z = rhs, the first iterate, the projection step of
// both iterations, and the two report texts.
//
// The projection step maps w (l entries) to the solution t of (M + Q) t = M w, with
// M = diag(rho_x I, I, 1) and
//
//     Q = [ 0 , A' , c ; -A , 0 , b ; -c' , -b' , 0 ]
//
// The last row and column of Q are handled by a rank-one correction around K, so that
// K does not depend on b and c and one solve serves each step: with h = (c, b) and
// g = K^-1 h (y block negated), the first l - 1 entries of t come from one solve with
// the right-hand side corrected by h, and the last entry from h't.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "records/work.h"
#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "reporting/print.h"
#include "reporting/threads.h"
#include "reporting/timing.h"

namespace korvex {

namespace {

// to[0 .. count-1] = from[0 .. count-1]; a caller's array of no entries may be null.
void copyValues(double* to, const double* from, int count) {
    if (count > 0) std::memcpy(to, from, sizeof(double) * count);
}

// The norm a normalisation factor divides by: at least 0.001, and 0.001 for a NaN.
double flooredNorm(const double* x, int n) {
    const double norm = normTwo(x, n);
    return norm > 0.001 ? norm : 0.001;
}

// Entries of x that are NaN become 0; infinities stay.
void zeroNaNs(double* x, int n) {
    for (int k = 0; k < n; ++k) {
        if (std::isnan(x[k])) x[k] = 0.0;
    }
}

// x block times E b_factor, y block times D c_factor: a point of the caller's units in
// the normalised ones.
void normaliseStartPoint(double* point, const Work* work) {
    const double* D = work->scaling->row_scale.get();
    const double* E = work->scaling->col_scale.get();
    for (int j = 0; j < work->n; ++j) point[j] *= E[j] * work->b_factor;
    for (int i = 0; i < work->m; ++i) point[work->n + i] *= D[i] * work->c_factor;
}

// Copies (x, y, 1) into point, NaN entries taken as 0.
void loadStartPoint(double* point, const Solution* solution, const Work* work) {
    copyValues(point, solution->x, work->n);
    copyValues(point + work->n, solution->y, work->m);
    point[work->l - 1] = 1.0;
    zeroNaNs(point, work->l);
}

void warmStartStandard(Work* work, const Solution* solution) {
    const int n = work->n;
    const int m = work->m;
    double* u = work->u.get();
    double* v = work->v.get();
    loadStartPoint(u, solution, work);
    std::memset(v, 0, sizeof(double) * n);
    copyValues(v + n, solution->s, m);
    v[work->l - 1] = 0.0;
    zeroNaNs(v, work->l);
    if (work->settings->normalize == 0) return;
    // s[i] = (D[i] / (scale b_factor)) sn[i], undone
    const double* D = work->scaling->row_scale.get();
    const double scale_b = work->settings->scale * work->b_factor;
    for (int i = 0; i < m; ++i) v[n + i] /= D[i] / scale_b;
    normaliseStartPoint(u, work);
}

// u = (I + Q) u_t for u_t = (x, y, tau); with rho_x = 1 the projection of this u is u_t.
void warmStartMarlet(Work* work, const Solution* solution) {
    const int n = work->n;
    const int m = work->m;
    double* u = work->u.get();
    double* ut = work->u_t.get();
    loadStartPoint(ut, solution, work);
    if (work->settings->normalize != 0) normaliseStartPoint(ut, work);
    const double* x = ut;
    const double* y = ut + n;
    const double tau = ut[work->l - 1];
    double* a = work->pr.get();  // A x; the residual scratch is free before the first iteration
    double* e = work->dr.get();  // A' y
    std::memset(a, 0, sizeof(double) * m);
    std::memset(e, 0, sizeof(double) * n);
    multiplyAddA(work->A, x, a);
    multiplyAddAt(work->A, y, e);
    const double* b = work->b.get();
    const double* c = work->c.get();
    for (int j = 0; j < n; ++j) u[j] = x[j] + e[j] + tau * c[j];
    for (int i = 0; i < m; ++i) u[n + i] = y[i] - a[i] + tau * b[i];
    u[work->l - 1] = tau - (dotProduct(b, y, m) + dotProduct(c, x, n));
}

// u = (0, ..., 0, sqrt(l)), and v likewise in the standard iteration.
void coldStart(Work* work) {
    const double root = std::sqrt(static_cast<double>(work->l));
    std::memset(work->u.get(), 0, sizeof(double) * work->l);
    work->u[work->l - 1] = root;
    if (work->settings->do_super_korvex == 0) {
        std::memset(work->v.get(), 0, sizeof(double) * work->l);
        work->v[work->l - 1] = root;
    }
}

// What both projection steps share, on t = M w (the weight is part of the system and is
// not undone): correct the first l - 1 entries by h, solve with K, recover the last. The
// passes are fused: loading t (load(k) gives t[k] = M w at k) with the correction by
// t(l-1) h and the sum t'g; the correction by the shift, the sign of the y block and the
// permutation into the solve's order; the permutation back with the sum t'h. Each entry
// sees the operations of the separate steps in their order; only the two sums are added
// in another order.
template <class Load>
int projectFrom(double* t, Work* work, Load&& load) {
    Timer timer;
    startTimer(&timer);
    LinSysWork* lin_sys = work->lin_sys;
    const int n = work->n;
    const int N = n + work->m;
    const double* h = work->h.get();
    const double* g = work->g.get();
    const int* P = lin_sys->perm.get();
    double* x = lin_sys->rhs_work.get();
    // The three passes run in fixed blocks side by side (see FixedBlocks); the blocks
    // capture by value (see forEachBlock).
    // Each block leaves its two running sums in partial[b], through a pointer: a capture
    // by value of the array itself would be a copy.
    const FixedBlocks blocks(N);
    double sums[FixedBlocks::kMostBlocks][2];
    double (*partial)[2] = sums;
    auto blockSum = [&](int b) { return sums[b][0] + sums[b][1]; };

    const double last = load(N);
    forEachBlock(blocks, [=](int lo, int hi, int b) {
        double s0 = 0.0, s1 = 0.0;
        int k = lo;
        for (; k + 2 <= hi; k += 2) {
            t[k] = load(k) - last * h[k];  // t -= t(l-1) h
            t[k + 1] = load(k + 1) - last * h[k + 1];
            s0 += t[k] * g[k];
            s1 += t[k + 1] * g[k + 1];
        }
        for (; k < hi; ++k) {
            t[k] = load(k) - last * h[k];
            s0 += t[k] * g[k];
        }
        partial[b][0] = s0;
        partial[b][1] = s1;
    });
    t[N] = last;
    // Into the solve's order by a scatter: t and h are read in sequence and each entry is
    // written where the solve wants it (a write need not wait for its cache line, where a
    // gather's read does), the y block negated.
    const double* hP = lin_sys->h_perm.get();
    const int* to = lin_sys->perm_inverse.get();
    const double shift = sumOverBlocks(blocks, blockSum) / (work->g_dot_h + 1.0);
    forEachBlock(blocks, [=](int lo, int hi, int) {
        const int mid = std::clamp(n, lo, hi);
        for (int i = lo; i < mid; ++i) x[to[i]] = t[i] - shift * h[i];  // t -= (t'g / (g'h + 1)) h
        for (int i = mid; i < hi; ++i) x[to[i]] = -(t[i] - shift * h[i]);
    });
    solvePanels(lin_sys->panels, lin_sys->L, x);  // initPriv made the panels
    forEachBlock(blocks, [=](int lo, int hi, int b) {
        double d0 = 0.0, d1 = 0.0;
        int k = lo;
        for (; k + 2 <= hi; k += 2) {
            t[P[k]] = x[k];
            t[P[k + 1]] = x[k + 1];
            d0 += x[k] * hP[k];
            d1 += x[k + 1] * hP[k + 1];
        }
        for (; k < hi; ++k) {
            t[P[k]] = x[k];
            d0 += x[k] * hP[k];
        }
        partial[b][0] = d0;
        partial[b][1] = d1;
    });
    t[N] += sumOverBlocks(blocks, blockSum);
    lin_sys->solve_time_ms += readTimer(&timer);
    ++lin_sys->solve_count;
    return 0;
}

}  // namespace

int solveWithFactors(const SparseMatrix* /*A*/, const Settings* /*settings*/, LinSysWork* lin_sys, double* rhs,
                     const double* /*start*/, int /*iteration*/) {
    Timer timer;
    startTimer(&timer);
    const cs* L = lin_sys->L;
    const int N = L->n;
    const int* Lp = L->p;
    const int* Li = L->i;
    const double* Lx = L->x;
    const double* D = lin_sys->diag.get();
    const int* P = lin_sys->perm.get();
    double* x = lin_sys->rhs_work.get();

    // x = P rhs; x = L'^-1 D^-1 L^-1 x over the supernodes of L; rhs = P' x. A factor
    // made outside factoriseSystem may come without panels: then the columns of L serve,
    // with the division by the pivot folded into the forward pass.
    for (int k = 0; k < N; ++k) x[k] = rhs[P[k]];
    if (lin_sys->panels.first) {
        solvePanels(lin_sys->panels, L, x);
    } else {
        for (int j = 0; j < N; ++j) {
            const double xj = x[j];
            for (int q = Lp[j]; q < Lp[j + 1]; ++q) x[Li[q]] -= Lx[q] * xj;  // x -= L(:,j) x(j)
            x[j] = xj / D[j];
        }
        for (int j = N - 1; j >= 0; --j) {
            double xj = x[j];
            for (int q = Lp[j]; q < Lp[j + 1]; ++q) xj -= Lx[q] * x[Li[q]];  // x(j) -= L(:,j)' x
            x[j] = xj;
        }
    }
    for (int k = 0; k < N; ++k) rhs[P[k]] = x[k];

    lin_sys->solve_time_ms += readTimer(&timer);
    ++lin_sys->solve_count;
    return 0;
}

int warmStartVectors(Work* work, const Solution* solution) {
    const bool standard = work->settings->do_super_korvex == 0;
    if (solution == nullptr || solution->x == nullptr || solution->y == nullptr ||
        (standard && solution->s == nullptr)) {
        return -1;
    }
    if (standard) {
        warmStartStandard(work, solution);
    } else {
        warmStartMarlet(work, solution);
    }
    return 0;
}

int startVectors(const Data* data, Work* work, const Solution* solution) {
    const Settings* settings = work->settings;
    const int n = work->n;
    const int m = work->m;
    double* b = work->b.get();
    double* c = work->c.get();

    work->b_norm = normTwo(data->b, m);
    work->c_norm = normTwo(data->c, n);
    copyValues(b, data->b, m);
    copyValues(c, data->c, n);
    if (settings->normalize != 0) {
        const Scaling* scaling = work->scaling;
        const double* D = scaling->row_scale.get();
        const double* E = scaling->col_scale.get();
        for (int i = 0; i < m; ++i) b[i] /= D[i];
        work->b_factor = scaling->mean_col_norm / flooredNorm(b, m);  // the crossing is intended
        for (int j = 0; j < n; ++j) c[j] /= E[j];
        work->c_factor = scaling->mean_row_norm / flooredNorm(c, n);
        scaleVector(b, settings->scale * work->b_factor, m);
        scaleVector(c, settings->scale * work->c_factor, n);
    }

    if (settings->warm_start == 0) {
        coldStart(work);
    } else if (warmStartVectors(work, solution) != 0) {
        printTo(settings->stream_override, stderr,
                "WARNING: warm start requested without a start point, starting cold\n");
        coldStart(work);
    }

    // h = (c, b); g = K^-1 h with its y block negated; g_dot_h = h'g
    double* h = work->h.get();
    double* g = work->g.get();
    copyValues(h, c, n);
    copyValues(h + n, b, m);
    copyValues(g, h, n + m);
    solveWithFactors(work->A, work->settings, work->lin_sys, g, nullptr, -1);
    scaleVector(g + n, -1.0, m);
    work->g_dot_h = dotProduct(h, g, n + m);
    const int* P = work->lin_sys->perm.get();
    double* h_perm = work->lin_sys->h_perm.get();
    for (int k = 0; k < n + m; ++k) h_perm[k] = h[P[k]];
    return 0;
}

int projectLinSys(Work* work, int /*iteration*/) {
    const double* u = work->u.get();
    const double* v = work->v.get();
    const double rho_x = work->settings->rho_x;
    const int n = work->n;
    // t = u + v, its x block times rho_x
    return projectFrom(work->u_t.get(), work, [=](int k) { return k < n ? (u[k] + v[k]) * rho_x : u[k] + v[k]; });
}

int projectLinSysv2(double* target, const double* source, Work* work, int /*iteration*/) {
    const double rho_x = work->settings->rho_x;
    const int n = work->n;
    // t = source, its x block times rho_x; each entry is read before it is written
    return projectFrom(target, work, [=](int k) { return k < n ? rho_x * source[k] : source[k]; });
}

char* linSysMethodText(const SparseMatrix* A) {
    char* text = allocateArray<char>(128);
    if (text == nullptr) return nullptr;
    formatInto(text, "sparse-direct, nnz in A = %li", static_cast<long>(A->p[A->n]));
    return text;
}

char* linSysSummaryText(LinSysWork* lin_sys, const Info* info) {
    char* text = allocateArray<char>(128);
    if (text == nullptr) return nullptr;
    const cs* L = lin_sys->L;
    const long entries = static_cast<long>(L->p[L->n]) + L->n;  // the unit diagonal counts
    const double seconds = (lin_sys->solve_time_ms / (info->iter + 1.0)) / 1000.0;
    formatInto(text, "\tLin-sys: nnz in L factor: %li, avg solve time: %1.2es\n", entries, seconds);
    lin_sys->solve_time_ms = 0.0;
    return text;
}

}  // namespace korvex
