#include "support/capture.h"

#include <gtest/gtest.h>

#include <csignal>

CapturedOutput::CapturedOutput(std::FILE* stream, std::string trigger)
    : variable_(stream == stderr ? &stderr : &stdout), saved_(*variable_), trigger_(std::move(trigger)) {
    std::fflush(saved_);
    stream_ = fopencookie(this, "w", cookie_io_functions_t{nullptr, write, nullptr, nullptr});
    std::setvbuf(stream_, nullptr, _IONBF, 0);  // every print reaches write at once
    *variable_ = stream_;
}

std::string CapturedOutput::finish() {
    if (stream_ == nullptr) return text_;
    *variable_ = saved_;
    std::fclose(stream_);
    stream_ = nullptr;
    if (testing::Test::HasFailure()) std::fwrite(text_.data(), 1, text_.size(), saved_);
    return text_;
}

ssize_t CapturedOutput::write(void* cookie, const char* data, size_t size) {
    auto* capture = static_cast<CapturedOutput*>(cookie);
    capture->text_.append(data, size);
    if (!capture->trigger_.empty() && !capture->fired_ && capture->text_.find(capture->trigger_) != std::string::npos) {
        capture->fired_ = true;
        std::raise(SIGINT);
    }
    return static_cast<ssize_t>(size);
}
