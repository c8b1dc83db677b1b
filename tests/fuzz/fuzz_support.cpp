#include "fuzz/fuzz_support.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <tuple>

#include "io/readers.h"
#include "io/text_input.h"

extern "C" {
// An allocation too large to make gives null (or std::bad_alloc), as it does outside the
// sanitizers, and the first undefined behaviour ends the run.
const char* __asan_default_options() { return "allocator_may_return_null=1"; }
const char* __ubsan_default_options() { return "print_stacktrace=1:halt_on_error=1"; }
}

namespace fuzz {
namespace {

template <class T, std::size_t N>
T edgeOrRaw(Bytes& in, const T (&edges)[N]) {
    const std::uint8_t pick = in.byte();
    if (pick < 4 * N) return edges[pick / 4];
    if (pick < 192) return static_cast<T>(pick - 128);
    unsigned char bytes[sizeof(T)];
    for (unsigned char& b : bytes) b = in.byte();
    T value;
    std::memcpy(&value, bytes, sizeof(T));
    return value;
}

void checkShape(const ConicProblem& p) {
    const std::size_t n = static_cast<std::size_t>(p.n);
    if (p.b.size() != static_cast<std::size_t>(p.m) || p.c.size() != n) broken("b or c not of the declared lengths");
    if (p.column_starts.size() != n + 1 || p.column_starts[0] != 0) broken("column starts of the wrong length");
    const std::size_t nnz = static_cast<std::size_t>(p.column_starts[n]);
    if (p.row_indices.size() != nnz || p.values.size() != nnz) broken("entries that the column starts do not count");
    for (std::size_t j = 0; j < n; ++j) {
        for (std::int32_t k = p.column_starts[j]; k < p.column_starts[j + 1]; ++k) {
            if (p.row_indices[k] < (k > p.column_starts[j] ? p.row_indices[k - 1] + 1 : 0) || p.row_indices[k] >= p.m) {
                broken("rows out of range or out of order in a column");
            }
        }
        if (p.column_starts[j] > p.column_starts[j + 1]) broken("decreasing column starts");
    }
    for (const std::vector<double>* values : {&p.values, &p.b, &p.c}) {
        for (double value : *values) {
            if (!std::isfinite(value)) broken("a value that is not finite");
        }
    }
    std::int64_t rows = std::int64_t{p.free_rows} + p.linear_rows, side_sum = 0;
    for (std::int64_t size : p.soc_sizes) rows += size, side_sum += size > 0 ? 0 : 1;
    for (std::int64_t side : p.sd_sizes) rows += side * (side + 1) / 2, side_sum += side > 0 ? 0 : 1;
    rows += 3 * (std::int64_t{p.exp_triples} + p.dual_exp_triples + static_cast<std::int64_t>(p.power_exponents.size()));
    if (side_sum != 0 || p.free_rows < 0 || p.linear_rows < 0 || rows != p.m) broken("cone blocks unlike the rows");
    if (p.scalar_variables < 0 || p.scalar_variables > p.n || p.matrix_sides.size() != p.matrix_offsets.size()) {
        broken("a variable map outside the columns");
    }
    for (std::size_t k = 0; k < p.matrix_sides.size(); ++k) {
        const std::int64_t side = p.matrix_sides[k];
        if (side <= 0 || p.matrix_offsets[k] < 0 || p.matrix_offsets[k] + side * (side + 1) / 2 > p.n) {
            broken("a matrix variable outside the columns");
        }
    }
}

auto shape(const ConicProblem& p) {
    return std::tie(p.m, p.n, p.free_rows, p.linear_rows, p.soc_sizes, p.sd_sizes, p.exp_triples, p.dual_exp_triples);
}

}  // namespace

void broken(const std::string& what) {
    std::fprintf(stderr, "fuzz: %s\n", what.c_str());
    std::abort();
}

std::int32_t Bytes::integer() {
    constexpr std::int32_t kEdges[] = {0, 1, -1, 2, 3, 10, 40, 100, 1 << 20, std::numeric_limits<std::int32_t>::max(),
                                       std::numeric_limits<std::int32_t>::min()};
    return edgeOrRaw(*this, kEdges);
}

double Bytes::real() {
    constexpr double kInf = std::numeric_limits<double>::infinity();
    constexpr double kEdges[] = {0.0, 1.0, -1.0, 0.5, 2.0, 1e-3, 0.999, -0.0, 1e300, -1e300, 5e-324,
                                 std::numeric_limits<double>::quiet_NaN(), kInf, -kInf};
    return edgeOrRaw(*this, kEdges);
}

void readAndCheck(Reader read, std::string_view text, const std::string& name) {
    ConicProblem problem, again;
    try {
        problem = read(text, name);
    } catch (const ReadError&) {
        return;
    }
    checkShape(problem);
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&buffer, &size);
    const bool written = out != nullptr && writeCbf(problem, out);
    if (out != nullptr) std::fclose(out);
    const std::unique_ptr<char, void (*)(void*)> owned(buffer, std::free);
    try {
        if (written) again = readCbf(std::string_view(buffer, size), "written.cbf");
    } catch (const ReadError& error) {
        broken(std::string("the CBF writing is refused: ") + error.what());
    }
    if (!written || shape(again) != shape(problem) || again.power_exponents.size() != problem.power_exponents.size()) {
        broken("the CBF writing reads back as another problem");
    }
}

}  // namespace fuzz
