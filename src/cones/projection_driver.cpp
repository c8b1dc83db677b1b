// The projection onto the dual cone K*, block by block, with the zero, non-negative and
// second-order blocks projected in place here.
#include <cstdint>

#include "cones/cones.h"
#include "kernels/kernels.h"
#include "reporting/threads.h"
#include "reporting/timing.h"

namespace korvex {

namespace {

// (t, z) = P_Q(t, z) for the second-order cone Q = {(t, z): |z| <= t} of k >= 2 entries.
void projectSecondOrderBlock(double* x, int k) {
    double* z = x + 1;
    const double t = x[0];
    const double nz = normTwo(z, k - 1);
    if (t >= nz) return;  // in the cone
    if (-t >= nz) {       // in the polar cone: the projection is the apex
        for (int j = 0; j < k; ++j) x[j] = 0.0;
        return;
    }
    // Otherwise the nearest point on the boundary: ((nz + t)/2, (nz + t)/2 z/nz).
    const double h = (nz + t) / 2;
    x[0] = h;
    scaleVector(z, h / nz, k - 1);
}

// v = P_{K*}(v) = v + P_K(-v) for a primal exponential block K; w = -v is formed in place
// first (over all triples) and kept in a local copy per triple.
void projectPrimalExpTriples(double* x, int triples) {
    scaleVector(x, -1.0, 3 * triples);
    for (int k = 0; k < triples; ++k) {
        double* v = x + 3 * k;
        const double w[3] = {v[0], v[1], v[2]};
        projectExpTriple(v);  // p = P_K(w)
        for (int j = 0; j < 3; ++j) v[j] = v[j] - w[j];
    }
}

// The power triple of exponent a: a <= 0 is a dual block, whose dual is the cone of
// exponent -a itself; a > 0 is the cone, whose dual is reached by v + P_K(-v).
void projectPowerBlock(double* v, double a) {
    if (a <= 0.0) {
        projectPowerTriple(v, -a);
        return;
    }
    double w[3] = {-v[0], -v[1], -v[2]};
    projectPowerTriple(w, a);
    for (int j = 0; j < 3; ++j) v[j] = v[j] + w[j];
}

// At most this many tasks share the second-order blocks of one projection.
constexpr int kMaxTasks = 64;

// Runs body(begin, end) over [0, count) in equal runs of triples, on the solve's threads.
// A triple that needs the search costs a microsecond or more, so a few dozen are worth a
// hand-over; runs are a few per thread, so that one run of slow triples does not hold the
// others up.
template <class Body>
void forEachRun(int count, Body&& body) {
    const int tasks = taskCountFor(count, 32, 4 * threadCount());
    if (tasks <= 1) {
        body(0, count);
        return;
    }
    forEachTask(tasks, [&](int t) {
        body(static_cast<int>(static_cast<long long>(count) * t / tasks),
             static_cast<int>(static_cast<long long>(count) * (t + 1) / tasks));
    });
}

}  // namespace

int projectToDualCone(double* x, const Cone* cone, ConeWork* coneWork) {
    Timer timer;
    startTimer(&timer);

    // The dual of the zero cone is the free space: its rows are neither read nor written.
    int pos = cone->free_vars;

    if (cone->linear_vars != 0) {
        for (int j = pos; j < pos + cone->linear_vars; ++j) {
            if (x[j] < 0.0) x[j] = 0.0;
        }
        pos += cone->linear_vars;
    }

    if (cone->soc_blks != 0 && cone->soc_sizes != nullptr) {
        // Blocks are independent: tasks take runs of whole blocks of about equal rows.
        const int* sizes = cone->soc_sizes;
        const int blocks = cone->soc_blks;
        long long rows = 0;
        for (int b = 0; b < blocks; ++b) rows += sizes[b] > 0 ? sizes[b] : 0;
        const int tasks = taskCountFor(rows, 4096, threadCount());
        auto project = [&](int first, int last, int at) {
            for (int b = first; b < last; ++b) {
                const int k = sizes[b];
                if (k == 1) {
                    if (x[at] < 0.0) x[at] = 0.0;
                } else if (k >= 2) {
                    projectSecondOrderBlock(x + at, k);
                }
                at += k > 0 ? k : 0;
            }
        };
        if (tasks <= 1) {
            project(0, blocks, pos);
        } else {
            // first block and row of each task, from one pass over the sizes
            int first[kMaxTasks + 1];
            int at[kMaxTasks + 1];
            const int count = tasks < kMaxTasks ? tasks : kMaxTasks;
            int task = 0;
            long long seen = 0;
            for (int b = 0; b < blocks && task < count; ++b) {
                if (seen * count >= rows * task) {
                    first[task] = b;
                    at[task] = pos + static_cast<int>(seen);
                    ++task;
                }
                seen += sizes[b] > 0 ? sizes[b] : 0;
            }
            for (; task <= count; ++task) {
                first[task] = blocks;
                at[task] = pos + static_cast<int>(rows);
            }
            forEachTask(count, [&](int t) { project(first[t], first[t + 1], at[t]); });
        }
        pos += static_cast<int>(rows);
    }

    if (cone->sd_blks != 0 && cone->sd_sizes != nullptr) {
        for (int b = 0; b < cone->sd_blks; ++b) {
            const int n = cone->sd_sizes[b];
            if (n == 0) continue;
            // A failure returns at once: the later rows stay as they came, and no time is added.
            if (projectSemidefiniteBlock(x + pos, n, coneWork) < 0) return -1;
            pos += static_cast<int>(static_cast<std::int64_t>(n) * (n + 1) / 2);
        }
    }

    // Triples are independent: tasks take equal runs of them.
    if (cone->exp_triples != 0) {
        double* at = x + pos;
        forEachRun(cone->exp_triples, [&](int k, int end) { projectPrimalExpTriples(at + 3 * k, end - k); });
        pos += 3 * cone->exp_triples;
    }

    // The dual of the dual exponential cone is the exponential cone itself.
    if (cone->dual_exp_triples != 0) {
        double* at = x + pos;
        forEachRun(cone->dual_exp_triples, [&](int k, int end) {
            for (; k < end; ++k) projectExpTriple(at + 3 * k);
        });
        pos += 3 * cone->dual_exp_triples;
    }

    if (cone->power_triples != 0 && cone->power_exponents != nullptr) {
        double* at = x + pos;
        const double* exponents = cone->power_exponents;
        forEachRun(cone->power_triples, [&](int k, int end) {
            for (; k < end; ++k) projectPowerBlock(at + 3 * k, exponents[k]);
        });
    }

    coneWork->projection_time_ms += readTimer(&timer);
    return 0;
}

}  // namespace korvex
