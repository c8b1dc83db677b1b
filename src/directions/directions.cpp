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
    const double theta_bar = work->settings->thetabar;
    const double* R = work->R.get();
    const double* Sk = work->Sk.get();
    const double* Yk = work->Yk.get();
    double* d = work->dir.get();
    double* t = cache->S.get() + static_cast<std::int64_t>(cache->mem_cursor) * l;  // scratch row

    // d = -R and t = Yk, both carried through the stored factors (I + u_i s_i'), oldest first.
    scaleInto(d, R, -1.0, l);
    std::copy(Yk, Yk + l, t);
    for (int i = 0; i < cache->mem_cursor; ++i) {
        const double* s_i = cache->S.get() + static_cast<std::int64_t>(i) * l;
        const double* u_i = cache->U.get() + static_cast<std::int64_t>(i) * l;
        addScaledVector(t, u_i, l, dotProduct(s_i, t, l));
        addScaledVector(d, u_i, l, dotProduct(s_i, d, l));
    }

    // Safeguard (Powell): keep <t, Sk> away from 0 relative to |Sk|^2 by moving t toward Sk.
    const double g = dotProduct(t, Sk, l);
    const double q = normSquared(Sk, l);
    if (!(std::fabs(g) >= theta_bar * q)) {
        const double sign = g >= 0 ? 1.0 : -1.0;
        const double theta = (1 - sign * theta_bar) * q / (q - g);
        combineVectors(t, t, Sk, theta, 1 - theta, l);
    }

    // The new pair: u = (Sk - t) / <Sk, t>, used at once on d, and s = Sk.
    const double e = dotProduct(Sk, t, l);
    double* u = cache->U.get() + static_cast<std::int64_t>(cache->mem_cursor) * l;
    for (int j = 0; j < l; ++j) u[j] = (Sk[j] - t[j]) / e;
    addScaledVector(d, u, l, dotProduct(Sk, d, l));
    std::copy(Sk, Sk + l, t);

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
