// Reading speed of the CBF reader on a generated file of about 100 MB: a second-order
// cone program with 1.2 million rows and 3 million coefficients written with 17
// significant digits, the hardest case for number parsing. The reference streams the
// same bytes from the file and counts its lines, which no reader can beat.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <unistd.h>

#include "io/readers.h"
#include "io/text_input.h"

using namespace korvex;

namespace {

// Writes the file once per process and returns its path and size.
const std::string& generatedFile(std::size_t* bytes) {
    static std::string path;
    static std::size_t size = 0;
    if (path.empty()) {
        path = "/tmp/korvex_reading_bench_" + std::to_string(getpid()) + ".cbf";
        std::FILE* out = std::fopen(path.c_str(), "w");
        const int n = 300000, cones = 200000, cone_size = 5, linear = 200000;
        const int m = linear + cones * cone_size;
        std::fprintf(out, "VER\n1\nOBJSENSE\nMIN\nVAR\n%d 1\nF %d\nCON\n%d %d\nL+ %d\n", n, n, m, cones + 1, linear);
        for (int k = 0; k < cones; ++k) std::fprintf(out, "Q %d\n", cone_size);
        std::mt19937_64 random(7);
        std::uniform_real_distribution<double> value(-1.0, 1.0);
        std::fprintf(out, "OBJACOORD\n%d\n", n);
        for (int j = 0; j < n; ++j) std::fprintf(out, "%d %.17g\n", j, value(random));
        // Rows get 2 or 3 coefficients on columns spread over the whole range.
        long entries = 0;
        std::string body;
        for (int i = 0; i < m; ++i) {
            const int count = 2 + (i % 2 == 0 ? 1 : 0);
            for (int e = 0; e < count; ++e) {
                char line[64];
                const int j = static_cast<int>((static_cast<long>(i) * 7919 + e * 104729) % n);
                std::snprintf(line, sizeof line, "%d %d %.17g\n", i, j, value(random));
                body += line;
                ++entries;
            }
        }
        std::fprintf(out, "ACOORD\n%ld\n", entries);
        std::fwrite(body.data(), 1, body.size(), out);
        std::fprintf(out, "BCOORD\n%d\n", linear);
        for (int i = 0; i < linear; ++i) std::fprintf(out, "%d %.17g\n", i, value(random));
        size = static_cast<std::size_t>(std::ftell(out));
        std::fclose(out);
        std::atexit([] { std::remove(path.c_str()); });
    }
    *bytes = size;
    return path;
}

void readCbfFile(benchmark::State& state) {
    std::size_t bytes = 0;
    const std::string& path = generatedFile(&bytes);
    for (auto _ : state) {
        ConicProblem problem = readProblemFile(path);
        benchmark::DoNotOptimize(problem.values.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    state.counters["MB"] = static_cast<double>(bytes) / 1e6;
}

void streamAndCountLines(benchmark::State& state) {
    std::size_t bytes = 0;
    const std::string& path = generatedFile(&bytes);
    for (auto _ : state) {
        const std::string text = loadFileBytes(path);
        std::size_t lines = 0;
        for (const char* p = text.data(); (p = static_cast<const char*>(std::memchr(p, '\n', text.data() + text.size() - p))); ++p) ++lines;
        benchmark::DoNotOptimize(lines);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
}

BENCHMARK(readCbfFile)->Unit(benchmark::kMillisecond)->Iterations(3);
BENCHMARK(streamAndCountLines)->Unit(benchmark::kMillisecond)->Iterations(3);

}  // namespace

BENCHMARK_MAIN();
