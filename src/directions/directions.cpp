#include "directions/directions.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "records/work.h"
#include "kernels/kernels.h"
#include "reporting/print.h"

namespace korvex {

double* HY = nullptr;

YSCache* initYSCache(int l, int memory) {
    RecordOwner<YSCache> cache(createRecord<YSCache>());
    if (!cache) return nullptr;
    const std::int64_t entries = (static_cast<std::int64_t>(memory) + 1) * l;
    if (!cache->S.allocate(entries) || !cache->U.allocate(entries)) return nullptr;
    cache->mem = memory;
    resetYSCache(cache.get());
    return cache.release();
}

int resetYSCache(YSCache* cache) {
    cache->mem_cursor = 0;
    return KORVEX_DIR_RESTARTED_BROYDEN;
}

void freeYSCache(YSCache* cache) { destroyRecord(cache); }

namespace {

// One pass of the direction over its l entries. With kLoad, t = a (Yk) and d = b times -1
// (R); otherwise t = t + at a and d = d + ad a (a the factor u_i). Then, in the same pass,
// sums[0] = s't and sums[1] = s'd of the new vectors, and with kSquare sums[2] = s's, each
// in the order of dotProduct (lanes 0 and 1 of the first pair of accumulators are its sums
// s0 and s1, those of the second s2 and s3), so that the bits are those of the separate
// kernels.
template <bool kLoad, bool kSquare>
void passThenDot(double* __restrict t, double* __restrict d, const double* __restrict a, const double* __restrict b,
                 double at, double ad, const double* __restrict s, int l, double* sums) {
    const int k = l & ~3;
    const DoublePair at2 = {at, at}, ad2 = {ad, ad}, minus = {-1.0, -1.0};
    DoublePair t01 = {0.0, 0.0}, t23 = {0.0, 0.0}, d01 = {0.0, 0.0}, d23 = {0.0, 0.0}, s01 = {0.0, 0.0},
               s23 = {0.0, 0.0};
    for (int j = 0; j < k; j += 4) {
        DoublePair tl, th, dl, dh;
        if (kLoad) {
            tl = loadPair(a + j);
            th = loadPair(a + j + 2);
            dl = loadPair(b + j) * minus;
            dh = loadPair(b + j + 2) * minus;
        } else {
            const DoublePair ul = loadPair(a + j), uh = loadPair(a + j + 2);
            tl = loadPair(t + j) + ul * at2;
            th = loadPair(t + j + 2) + uh * at2;
            dl = loadPair(d + j) + ul * ad2;
            dh = loadPair(d + j + 2) + uh * ad2;
        }
        storePair(t + j, tl);
        storePair(t + j + 2, th);
        storePair(d + j, dl);
        storePair(d + j + 2, dh);
        const DoublePair sl = loadPair(s + j), sh = loadPair(s + j + 2);
        t01 += sl * tl;
        t23 += sh * th;
        d01 += sl * dl;
        d23 += sh * dh;
        if (kSquare) {
            s01 += sl * sl;
            s23 += sh * sh;
        }
    }
    for (int j = k; j < l; ++j) {
        t[j] = kLoad ? a[j] : t[j] + a[j] * at;
        d[j] = kLoad ? b[j] * -1.0 : d[j] + a[j] * ad;
    }
    sums[0] = combineLanes(t01, t23);
    sums[1] = combineLanes(d01, d23);
    sums[2] = combineLanes(s01, s23);
    for (int j = l - 1; j >= k; --j) {  // the last terms from the highest index down
        sums[0] += s[j] * t[j];
        sums[1] += s[j] * d[j];
        sums[2] += s[j] * s[j];
    }
}

}  // namespace

int computeRestartedBroyden(Work* work) {
    YSCache* cache = work->su_cache;
    const int l = work->l;
    const int pairs = cache->mem_cursor;
    const double theta_bar = work->settings->thetabar;
    const double* R = work->R.get();
    const double* Sk = work->Sk.get();
    const double* Yk = work->Yk.get();
    double* d = work->dir.get();
    double* t = cache->S.get() + static_cast<std::int64_t>(pairs) * l;  // scratch row
    auto row = [l](const OwnedArray<double>& block, int i) { return block.get() + static_cast<std::int64_t>(i) * l; };

    // d = -R and t = Yk, both carried through the stored factors (I + u_i s_i'), oldest
    // first: t + <s_i, t> u_i, then d + <s_i, d> u_i. Each pass over the entries applies one
    // pair and takes the two inner products the next pair needs (after the last pair, those
    // with Sk), so a pair costs one pass, not four.
    double sums[3];
    if (pairs == 0) {
        passThenDot<true, true>(t, d, Yk, R, 0.0, 0.0, Sk, l, sums);
    } else {
        passThenDot<true, false>(t, d, Yk, R, 0.0, 0.0, row(cache->S, 0), l, sums);
        for (int i = 1; i < pairs; ++i) {
            passThenDot<false, false>(t, d, row(cache->U, i - 1), nullptr, sums[0], sums[1], row(cache->S, i), l, sums);
        }
        passThenDot<false, true>(t, d, row(cache->U, pairs - 1), nullptr, sums[0], sums[1], Sk, l, sums);
    }
    const double g = sums[0], sk_d = sums[1], q = sums[2];  // <t, Sk>, <Sk, d> and |Sk|^2

    // Safeguard (Powell): keep <t, Sk> away from 0 relative to |Sk|^2 by moving t toward Sk.
    double e = g;  // <Sk, t>: the same terms in the same order as g while t stays
    if (!(std::fabs(g) >= theta_bar * q)) {
        const double sign = g >= 0 ? 1.0 : -1.0;
        const double theta = (1 - sign * theta_bar) * q / (q - g);
        combineVectors(t, t, Sk, theta, 1 - theta, l);
        e = dotProduct(Sk, t, l);
    }

    // The new pair: u = (Sk - t) / <Sk, t>, used at once on d, and s = Sk.
    double* u = cache->U.get() + static_cast<std::int64_t>(pairs) * l;
    for (int j = 0; j < l; ++j) {
        u[j] = (Sk[j] - t[j]) / e;
        d[j] += u[j] * sk_d;
        t[j] = Sk[j];
    }

    // Restart: when the cache is full, every pair is forgotten at once.
    if (++cache->mem_cursor < cache->mem) return KORVEX_DIR_RESTARTED_BROYDEN_V2;
    return resetYSCache(cache);
}

int computeFullBroyden(Work* work, int iteration) {
    const int l = work->l;
    if (HY == nullptr) {
        HY = allocateArray<double>(l);
        if (HY == nullptr) {
            printPlain("ERROR: allocating `HY` in `computeFullBroyden` failure\n");
            return 0;
        }
    }
    if (work->settings->broyden_init_scale != 0 && iteration == 1) {
        // Scale the initial inverse Jacobian by <y, s> / |y|.
        const double rho = dotProduct(work->Yk.get(), work->Sk.get(), l) / normTwo(work->Yk.get(), l);
        for (std::int64_t i = 0; i < l; ++i) work->H[i * (l + 1)] = rho;
    }
    return 0;
}

int computeDirection(Work* work, int iteration) {
    switch (work->settings->dir) {
        case KORVEX_DIR_RESTARTED_BROYDEN: return computeRestartedBroyden(work);
        case KORVEX_DIR_FIXED_POINT_RESIDUAL:
            scaleInto(work->dir.get(), work->R.get(), -1.0, work->l);
            return 0;
        case KORVEX_DIR_FULL_BROYDEN: return computeFullBroyden(work, iteration);
        case KORVEX_DIR_RESTARTED_BROYDEN_V2:  // reserved: it has no direction of its own
        default: return -1;
    }
}

}  // namespace korvex
