// The CBF reader on arbitrary bytes: it reads or refuses with a ReadError, and what it
// reads is a well-formed problem that survives a CBF round trip.
#include "fuzz/fuzz_support.h"
#include "io/readers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::readAndCheck(readCbf, fuzz::asText(data, size), "fuzz.cbf");
    return 0;
}
