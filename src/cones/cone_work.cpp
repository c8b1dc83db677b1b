#include "cones/cones.h"

#include <algorithm>
#include <cstdio>

#include "cones/lapack.h"
#include "reporting/print.h"

namespace korvex {

char* coneTimingLine(const Info* info, ConeWork* coneWork) {
    constexpr int kTimingBytes = 64;
    char* text = allocateArray<char>(kTimingBytes);
    if (text == nullptr) return nullptr;
    double seconds_per_iteration = coneWork->projection_time_ms / (static_cast<double>(info->iter) + 1.0) / 1000.0;
    std::snprintf(text, kTimingBytes, "\tCones: avg projection time: %1.2es\n", seconds_per_iteration);
    coneWork->projection_time_ms = 0.0;
    return text;
}

ConeWork* initCone(const Cone* cone) {
    RecordOwner<ConeWork> work(createRecord<ConeWork>());
    if (!work) return nullptr;
    work->projection_time_ms = 0.0;

    if (cone->sd_blks < 1 || cone->sd_sizes == nullptr) return work.release();
    const std::int32_t largest = *std::max_element(cone->sd_sizes, cone->sd_sizes + cone->sd_blks);
    if (largest <= 2) return work.release();  // sides 1 and 2 have closed forms

    const int N = largest;
    const std::int64_t square = static_cast<std::int64_t>(N) * N;
    if (!work->sd_matrix.allocate(square, true) || !work->sd_vectors.allocate(square, true) ||
        !work->sd_values.allocate(N, true)) {
        return nullptr;
    }

    // Workspace queries: with lwork = liwork = -1 LAPACK only reports the optimal sizes, the
    // real ones in work_size and dsyevr's integer one straight into eig_iwork_len. The real
    // array holds the tridiagonal (d, e) and tau, 3N entries, ahead of the largest workspace
    // of dsyevr, dsytrd, dormtr (on N columns), dstemr (18N; it covers the bisection's 3N and
    // dstein's 5N) and dstedc (N^2 + 4N + 1); the integer array holds dstemr's support list,
    // 2N entries, ahead of the largest of dsyevr's, dstemr's (10N), dstein's with its block
    // lists (3N + 1) and dstedc's (5N + 3).
    const int lwork_query = -1;
    const int liwork_query = -1;
    const double abstol = 1e-8;
    double work_size = 0.0;
    int found = 0;
    int info = 0;
    dsyevr_("V", "A", "L", &N, work->sd_matrix.get(), &N, nullptr, nullptr, nullptr, nullptr, &abstol, &found,
            work->sd_values.get(), work->sd_vectors.get(), &N, nullptr, &work_size, &lwork_query,
            &work->eig_iwork_len, &liwork_query, &info, 1, 1, 1);
    if (info != 0) {
        printPlain("FATAL: syevr failure, info = %li\n", static_cast<long>(info));
        return nullptr;
    }
    double longest = std::max({work_size, 18.0 * N, static_cast<double>(N) * N + 4.0 * N + 1});
    double scratch[3] = {0.0, 0.0, 0.0};
    dsytrd_("L", &N, work->sd_matrix.get(), &N, scratch, scratch, scratch, &work_size, &lwork_query, &info, 1);
    longest = std::max(longest, info == 0 ? work_size : 0.0);
    dormtr_("L", "L", "N", &N, &N, work->sd_matrix.get(), &N, scratch, work->sd_vectors.get(), &N, &work_size,
            &lwork_query, &info, 1, 1, 1);
    longest = std::max(longest, info == 0 ? work_size : 0.0);

    work->eig_work_len = 3 * N + static_cast<int>(longest + 0.01);
    work->eig_iwork_len = 2 * N + std::max(work->eig_iwork_len, 10 * N);  // 10N >= 5N + 3
    if (!work->eig_work.allocate(work->eig_work_len) || !work->eig_iwork.allocate(work->eig_iwork_len)) {
        return nullptr;
    }
    return work.release();
}

void freeConeWork(ConeWork* coneWork) { destroyRecord(coneWork); }

}  // namespace korvex
