// Captures what the library writes on standard output (or any descriptor) during a
// scope, so that tests can compare report texts byte for byte.
#pragma once

#include <cstdio>
#include <string>

class CapturedOutput {
public:
    // Starts redirecting the descriptor of stream (stdout by default) into a temporary file.
    explicit CapturedOutput(std::FILE* stream = stdout);
    ~CapturedOutput();
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;

    // Stops the redirection and returns everything written since the start.
    std::string finish();

private:
    std::FILE* stream_;
    std::FILE* sink_ = nullptr;
    int saved_descriptor_ = -1;
    std::string text_;
};
