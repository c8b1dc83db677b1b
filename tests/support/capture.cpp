#include "support/capture.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

CapturedOutput::CapturedOutput(std::FILE* stream) : stream_(stream) {
    std::fflush(stream_);
    sink_ = std::tmpfile();
    saved_descriptor_ = dup(fileno(stream_));
    if (sink_ != nullptr && saved_descriptor_ >= 0) dup2(fileno(sink_), fileno(stream_));
}

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

ConsoleTap::ConsoleTap(std::string trigger) : trigger_(std::move(trigger)) {
    std::fflush(stdout);
    stream_ = fopencookie(this, "w", cookie_io_functions_t{nullptr, write, nullptr, nullptr});
    std::setvbuf(stream_, nullptr, _IONBF, 0);  // every print reaches write at once
    saved_ = stdout;
    stdout = stream_;  // glibc's stdout is an assignable variable, read at every print
}

std::string ConsoleTap::finish() {
    if (stream_ != nullptr) {
        stdout = saved_;
        std::fclose(stream_);
        stream_ = nullptr;
        if (testing::Test::HasFailure()) std::fwrite(text_.data(), 1, text_.size(), stdout);
    }
    return text_;
}

ssize_t ConsoleTap::write(void* cookie, const char* data, size_t size) {
    auto* tap = static_cast<ConsoleTap*>(cookie);
    tap->text_.append(data, size);
    if (!tap->trigger_.empty() && !tap->fired_ && tap->text_.find(tap->trigger_) != std::string::npos) {
        tap->fired_ = true;
        std::raise(SIGINT);
    }
    return static_cast<ssize_t>(size);
}
