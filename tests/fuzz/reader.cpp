// A reader (FUZZ_READER: readCbf, readSdpa, readMps or fuzz::readGzipped) on arbitrary
// bytes: it reads or refuses with a ReadError, and what it reads is well formed and
// survives a CBF round trip.
#include "fuzz/fuzz_support.h"
#include "io/readers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    fuzz::readAndCheck(FUZZ_READER, fuzz::asText(data, size), "fuzz");
    return 0;
}
