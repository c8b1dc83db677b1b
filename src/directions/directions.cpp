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
    // of the new pair: <t, Sk>, |Sk|^2 and <Sk, d>), so a pair costs one pass, not four.
    double sums[3];
    auto innerProducts = [&](int next, int j, double* terms) {
        if (next < pairs) {
            const double s = row(cache->S, next)[j];
            terms[0] = s * t[j];
            terms[1] = s * d[j];
            terms[2] = 0.0;
        } else {
            terms[0] = t[j] * Sk[j];
            terms[1] = Sk[j] * Sk[j];
            terms[2] = Sk[j] * d[j];
        }
    };
    fusedSums<3>(l, sums, [&](int j, double* terms) {
        d[j] = R[j] * -1.0;
        t[j] = Yk[j];
        innerProducts(0, j, terms);
    });
    for (int i = 0; i < pairs; ++i) {
        const double* u_i = row(cache->U, i);
        const double along_t = sums[0], along_d = sums[1];
        fusedSums<3>(l, sums, [&](int j, double* terms) {
            t[j] += u_i[j] * along_t;
            d[j] += u_i[j] * along_d;
            innerProducts(i + 1, j, terms);
        });
    }
    const double g = sums[0], q = sums[1], sk_d = sums[2];

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
