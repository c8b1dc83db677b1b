#include "support/capture.h"

#include <unistd.h>

CapturedOutput::CapturedOutput(std::FILE* stream) : stream_(stream) {
    std::fflush(stream_);
    sink_ = std::tmpfile();
    saved_descriptor_ = dup(fileno(stream_));
    if (sink_ != nullptr && saved_descriptor_ >= 0) dup2(fileno(sink_), fileno(stream_));
}

CapturedOutput::~CapturedOutput() { finish(); }

std::string CapturedOutput::finish() {
    if (saved_descriptor_ < 0) return text_;
    std::fflush(stream_);
    dup2(saved_descriptor_, fileno(stream_));
    close(saved_descriptor_);
    saved_descriptor_ = -1;
    if (sink_ != nullptr) {
        std::rewind(sink_);
        char chunk[4096];
        std::size_t got;
        while ((got = std::fread(chunk, 1, sizeof chunk, sink_)) > 0) text_.append(chunk, got);
        std::fclose(sink_);
        sink_ = nullptr;
    }
    return text_;
}
