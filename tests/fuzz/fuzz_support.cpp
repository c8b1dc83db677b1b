#include "fuzz/fuzz_support.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <tuple>

#include "io/readers.h"
#include "io/text_input.h"
#include "records/cone_record.h"

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
    return std::bit_cast<T>(bytes);
}

void checkShape(const ConicProblem& p) {
    const std::size_t n = static_cast<std::size_t>(p.n), nnz = p.values.size();
    if (p.b.size() != static_cast<std::size_t>(p.m) || p.c.size() != n || p.column_starts.size() != n + 1 ||
        p.column_starts[0] != 0 || p.column_starts[n] != static_cast<std::int64_t>(nnz) || p.row_indices.size() != nnz) {
        broken("arrays of the wrong lengths");
    }
    for (std::size_t j = 0; j < n; ++j) {
        for (std::int32_t k = p.column_starts[j], low = 0; k < p.column_starts[j + 1]; low = p.row_indices[k++] + 1) {
            if (p.row_indices[k] < low || p.row_indices[k] >= p.m) broken("rows out of range or order in a column");
        }
        if (p.column_starts[j] > p.column_starts[j + 1]) broken("decreasing column starts");
    }
    for (const std::vector<double>* values : {&p.values, &p.b, &p.c}) {
        if (std::count_if(values->begin(), values->end(), [](double v) { return !std::isfinite(v); })) broken("a non-finite value");
    }
    Settings settings{};
    const ProblemRecords records(p, &settings);
    if (korvex::coneTotalSize(&records.cone) != p.m || p.scalar_variables < 0 || p.scalar_variables > p.n) {
        broken("cone blocks that do not make up the rows, or scalar variables beyond the columns");
    }
}

}  // namespace

constexpr std::int32_t kIntegers[] = {0, 1, -1, 2, 3, 10, 40, 100, 1 << 20, INT32_MAX, INT32_MIN};
constexpr double kReals[] = {0.0, 1.0, -1.0, 0.5, 2.0, 1e-3, 0.999, -0.0, 1e300, -1e300, 5e-324, NAN, INFINITY, -INFINITY};
std::int32_t Bytes::integer() { return edgeOrRaw(*this, kIntegers); }
double Bytes::real() { return edgeOrRaw(*this, kReals); }

void readAndCheck(ConicProblem (*read)(std::string_view, const std::string&), std::string_view text, const std::string& name) {
    // Under the sanitizers a few million declared rows take seconds to build, legitimately;
    // the search is for faults of reading, so the readers refuse more than 2^16 rows and
    // columns here, which also exercises the refusal.
    static const std::int64_t unlimited = setProblemSizeLimit(std::int64_t{1} << 16);
    (void)unlimited;
    ConicProblem problem, again;
    try {
        problem = read(text, name);
    } catch (const ReadError& error) {  // one line, "FILE:LINE: text" or "FILE: text"
        const std::string_view what = error.what();
        const std::size_t colon = what.find(": ");
        if (colon == 0 || colon == what.npos || what.find('\n') != what.npos) broken(std::string("a message like ") + error.what());
        return;
    }
    checkShape(problem);
    char* buffer = nullptr;
    std::size_t size = 0;
    std::FILE* out = open_memstream(&buffer, &size);
    bool written = out != nullptr && writeCbf(problem, out);
    if (out != nullptr) written = std::fclose(out) == 0 && written;
    const std::unique_ptr<char, void (*)(void*)> owned(buffer, std::free);
    try {
        if (written) again = readCbf(std::string_view(buffer, size), "written.cbf");
    } catch (const ReadError& error) {
        broken(std::string("the CBF writing is refused: ") + error.what());
    }
    const auto shape = [](const ConicProblem& p) {
        return std::tie(p.m, p.n, p.free_rows, p.linear_rows, p.soc_sizes, p.sd_sizes, p.exp_triples, p.dual_exp_triples);
    };
    if (!written || shape(again) != shape(problem) || again.power_exponents.size() != problem.power_exponents.size()) {
        broken("the CBF writing reads back as another problem");
    }
    // Without semidefinite rows (whose off-diagonal entries pass through sqrt 2) every number
    // comes back bit for bit.
    const auto numbers = [](const ConicProblem& p) { return std::tie(p.values, p.b, p.c, p.row_indices, p.power_exponents); };
    if (problem.sd_sizes.empty() && numbers(again) != numbers(problem)) broken("the CBF writing changes a number");
}

ConicProblem readGzipped(std::string_view bytes, const std::string&) {
    static const std::string path =
        (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") + ("/korvex-fuzz-" + std::to_string(getpid()) + ".cbf.gz");
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr || std::fwrite(bytes.data(), 1, bytes.size(), file) != bytes.size() || std::fclose(file) != 0) {
        broken("cannot write " + path);
    }
    const std::unique_ptr<const char, int (*)(const char*)> removed(path.c_str(), std::remove);
    return readProblemFile(path);
}

}  // namespace fuzz
