// Shared by the fuzz targets of this folder, each an LLVMFuzzerTestOneInput for libFuzzer.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "io/problem.h"

namespace fuzz {

inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Prints "fuzz: what" and aborts, which libFuzzer reports as a crash with its input.
[[noreturn]] inline void broken(const std::string& what) { std::fprintf(stderr, "fuzz: %s\n", what.c_str()), std::abort(); }

// The input front to back, as zero once used up; integer() and real() mostly give an edge
// case (0, -1, the limits, NaN, the infinities), else raw bits.
struct Bytes {
    const std::uint8_t* data;
    std::size_t left;

    std::uint8_t byte() { return left == 0 ? 0 : (--left, *data++); }
    bool flag() { return byte() & 1; }
    std::int32_t upTo(std::int32_t limit) { return byte() % (limit + 1); }  // in [0, limit]
    std::int32_t integer();
    double real();
};

// The body of a reader's target. The one allowed refusal is a ReadError of one line that
// names the file. A problem read must fit the solver's records (compressed columns with
// sorted rows in range, finite values, cone blocks that make up the rows), and written as
// CBF and read back it must keep its rows, columns and cones.
void readAndCheck(ConicProblem (*read)(std::string_view, const std::string&), std::string_view text, const std::string& name);

// The bytes as a file named ".cbf.gz", read as the command reads it (zlib, then CBF).
ConicProblem readGzipped(std::string_view bytes, const std::string& name);

}  // namespace fuzz
