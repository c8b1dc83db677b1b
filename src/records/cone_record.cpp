#include "records/cone_record.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "reporting/allocation.h"
#include "reporting/print.h"

namespace korvex {

namespace {

// Rows of a packed semidefinite block of side n, n(n+1)/2, halved in integer arithmetic.
std::int64_t packedSize(std::int32_t side) { return static_cast<std::int64_t>(side) * (static_cast<std::int64_t>(side) + 1) / 2; }

bool hasSocList(const Cone* cone) { return cone->soc_blks != 0 && cone->soc_sizes != nullptr; }
bool hasSdList(const Cone* cone) { return cone->sd_blks != 0 && cone->sd_sizes != nullptr; }
bool hasPowerList(const Cone* cone) { return cone->power_triples != 0 && cone->power_exponents != nullptr; }

// Sum of the second-order block lengths, nothing for a negative count.
std::int64_t socRows(const Cone* cone) {
    std::int64_t rows = 0;
    if (hasSocList(cone)) {
        for (std::int32_t k = 0; k < cone->soc_blks; ++k) rows += cone->soc_sizes[k];
    }
    return rows;
}

// Sum of the packed semidefinite block sizes, nothing for a negative count.
std::int64_t sdRows(const Cone* cone) {
    std::int64_t rows = 0;
    if (hasSdList(cone)) {
        for (std::int32_t k = 0; k < cone->sd_blks; ++k) rows += packedSize(cone->sd_sizes[k]);
    }
    return rows;
}

// The total row count, computed wide so that absurd sizes cannot overflow.
std::int64_t coneTotalSizeWide(const Cone* cone) {
    std::int64_t total = static_cast<std::int64_t>(cone->free_vars) + cone->linear_vars;
    total += socRows(cone);
    total += sdRows(cone);
    total += 3 * static_cast<std::int64_t>(cone->exp_triples) + 3 * static_cast<std::int64_t>(cone->dual_exp_triples);
    if (cone->power_exponents != nullptr) total += 3 * static_cast<std::int64_t>(cone->power_triples);
    return total;
}

bool anyNegative(const std::int32_t* values, std::int32_t count) {
    return std::any_of(values, values + count, [](std::int32_t v) { return v < 0; });
}

}  // namespace

int coneTotalSize(const Cone* cone) {
    std::int64_t total = coneTotalSizeWide(cone);
    return static_cast<int>(std::clamp<std::int64_t>(total, INT32_MIN, INT32_MAX));
}

int checkConeRecord(const Data* data, const Cone* cone) {
    std::int64_t total = coneTotalSizeWide(cone);
    if (total != data->m) {
        printPlain("cone dimensions %li not equal to num rows in A = m = %li\n", static_cast<long>(total),
                   static_cast<long>(data->m));
        return -1;
    }
    if (cone->free_vars < 0) {
        printPlain("free cone error\n");
        return -1;
    }
    if (cone->linear_vars < 0) {
        printPlain("lp cone error\n");
        return -1;
    }
    if (hasSocList(cone) && (cone->soc_blks < 0 || anyNegative(cone->soc_sizes, cone->soc_blks))) {
        printPlain("soc cone error\n");
        return -1;
    }
    if (hasSdList(cone) && (cone->sd_blks < 0 || anyNegative(cone->sd_sizes, cone->sd_blks))) {
        printPlain("sd cone error\n");
        return -1;
    }
    // The dual count is tested first; its message is the one with "ep".
    if (cone->dual_exp_triples < 0) {
        printPlain("ep cone error\n");
        return -1;
    }
    if (cone->exp_triples < 0) {
        printPlain("ed cone error\n");
        return -1;
    }
    if (hasPowerList(cone)) {
        if (cone->power_triples < 0) {
            printPlain("power cone error\n");
            return -1;
        }
        for (std::int32_t k = 0; k < cone->power_triples; ++k) {
            const double a = cone->power_exponents[k];
            if (a < -1.0 || a > 1.0) {  // a NaN exponent passes
                printPlain("power cone error, values must be in [-1,1]\n");
                return -1;
            }
        }
    }
    return 0;
}

int coneBlockLengths(const Cone* cone, int** lengths) {
    // A list with a null array or a negative count contributes no block.
    std::int32_t soc = hasSocList(cone) ? std::max(cone->soc_blks, 0) : 0;
    std::int32_t sd = hasSdList(cone) ? std::max(cone->sd_blks, 0) : 0;
    std::int64_t triples = static_cast<std::int64_t>(std::max(cone->exp_triples, 0)) +
                           std::max(cone->dual_exp_triples, 0) +
                           (hasPowerList(cone) ? std::max(cone->power_triples, 0) : 0);
    std::int64_t wide_count = 1 + static_cast<std::int64_t>(soc) + sd + triples;

    int* list = wide_count <= INT32_MAX ? allocateArray<int>(wide_count) : nullptr;
    *lengths = list;
    if (list == nullptr) return -1;
    const int count = static_cast<int>(wide_count);

    int at = 0;
    list[at++] = cone->free_vars + cone->linear_vars;
    for (std::int32_t k = 0; k < soc; ++k) list[at++] = cone->soc_sizes[k];
    for (std::int32_t k = 0; k < sd; ++k) list[at++] = static_cast<int>(packedSize(cone->sd_sizes[k]));
    while (at < count) list[at++] = 3;
    return count;
}

char* coneSummaryText(const Cone* cone) {
    constexpr int kSummaryBytes = 512;
    char* text = allocateArray<char>(kSummaryBytes);
    if (text == nullptr) return nullptr;
    int length = formatInto(text, "Cones:");
    if (cone->free_vars != 0) {
        length += formatInto(text + length, "\tprimal zero / dual free vars: %li\n", static_cast<long>(cone->free_vars));
    }
    if (cone->linear_vars != 0) {
        length += formatInto(text + length, "\tlinear vars: %li\n", static_cast<long>(cone->linear_vars));
    }
    if (hasSocList(cone)) {
        length += formatInto(text + length, "\tsoc vars: %li, soc blks: %li\n", static_cast<long>(socRows(cone)),
                             static_cast<long>(cone->soc_blks));
    }
    if (hasSdList(cone)) {
        length += formatInto(text + length, "\tsd vars: %li, sd blks: %li\n", static_cast<long>(sdRows(cone)),
                             static_cast<long>(cone->sd_blks));
    }
    if (cone->exp_triples != 0 || cone->dual_exp_triples != 0) {
        length += formatInto(text + length, "\texp vars: %li, dual exp vars: %li\n",
                             3 * static_cast<long>(cone->exp_triples), 3 * static_cast<long>(cone->dual_exp_triples));
    }
    if (hasPowerList(cone)) {
        formatInto(text + length, "\tprimal + dual power vars: %li\n", 3 * static_cast<long>(cone->power_triples));
    }
    return text;
}

}  // namespace korvex
