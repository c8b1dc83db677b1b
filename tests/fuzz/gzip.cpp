// The gzip path on arbitrary bytes: stored as a file whose name ends in ".cbf.gz" and
// read as the command reads it, through zlib and the CBF reader. A damaged or truncated
// stream is a ReadError like any other refusal.
#include <unistd.h>

#include <cstdio>

#include "fuzz/fuzz_support.h"
#include "io/readers.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string path = (access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp") +
                                    ("/korvex-fuzz-" + std::to_string(getpid()) + ".cbf.gz");
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr || std::fwrite(data, 1, size, file) != size || std::fclose(file) != 0) fuzz::broken("cannot write " + path);
    fuzz::readAndCheck([](std::string_view, const std::string& name) { return readProblemFile(name); }, {}, path);
    std::remove(path.c_str());
    return 0;
}
