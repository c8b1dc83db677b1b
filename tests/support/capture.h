// What the library prints during a scope, for tests that compare report texts byte for byte.
#pragma once

#include <cstdio>
#include <string>

// Redirects the descriptor of a stream (stdout by default) into a temporary file.
class CapturedOutput {
public:
    explicit CapturedOutput(std::FILE* stream = stdout);
    ~CapturedOutput() { finish(); }
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

// Replaces the C stream stdout for a scope. When the trigger text appears it raises SIGINT
// at that very point, as a user pressing Ctrl+C there would. On a test failure inside the
// scope the text is shown.
class ConsoleTap {
public:
    explicit ConsoleTap(std::string trigger = {});
    ~ConsoleTap() { finish(); }
    ConsoleTap(const ConsoleTap&) = delete;
    ConsoleTap& operator=(const ConsoleTap&) = delete;
    // Puts the process's stdout back and returns the text.
    std::string finish();
    bool fired() const { return fired_; }

private:
    static ssize_t write(void* cookie, const char* data, size_t size);
    std::string trigger_, text_;
    bool fired_ = false;
    std::FILE* saved_ = nullptr;
    std::FILE* stream_ = nullptr;
};
