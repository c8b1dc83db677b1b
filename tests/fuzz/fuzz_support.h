// Shared by the fuzz targets of this folder, each an LLVMFuzzerTestOneInput for libFuzzer:
// the fuzzer's bytes read as typed values, and the checks of what a reader accepts.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "io/problem.h"

namespace fuzz {

inline std::string_view asText(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// Prints "fuzz: what" and aborts, which libFuzzer reports as a crash with its input.
[[noreturn]] void broken(const std::string& what);

// The input front to back; once it is used up every value reads as zero.
struct Bytes {
    const std::uint8_t* data;
    std::size_t left;

    std::uint8_t byte() { return left == 0 ? 0 : (--left, *data++); }
    bool flag() { return byte() & 1; }
    std::int32_t upTo(std::int32_t limit) { return byte() % (limit + 1); }  // in [0, limit]
    std::int32_t integer();  // mostly an edge case (0, -1, 40, the limits), else 32 raw bits
    double real();           // mostly an edge case (-0, NaN, the infinities, 1e300), else 64 raw bits
};

using Reader = ConicProblem (*)(std::string_view text, const std::string& name);

// The body of a reader's target. The one allowed refusal is a ReadError. A problem read
// must fit the solver's records (compressed columns with sorted rows in range, finite
// values, b and c as long as declared, cone blocks that add up to the rows, the variable
// map inside the columns), and written as CBF and read back it must have the same rows,
// columns and cone blocks.
void readAndCheck(Reader read, std::string_view text, const std::string& name);

}  // namespace fuzz
