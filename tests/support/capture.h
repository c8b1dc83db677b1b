// What the library prints during a scope, for tests that compare report texts byte for byte.
#pragma once

#include <cstdio>
#include <string>

// Keeps what is printed on standard output (or standard error) during a scope: the C
// stream is replaced by an unbuffered one that appends to a text. When the trigger text
// appears it raises SIGINT at that very point, as a user pressing Ctrl+C there would. On a
// test failure inside the scope the text is shown.
class CapturedOutput {
public:
    explicit CapturedOutput(std::FILE* stream = stdout, std::string trigger = {});
    ~CapturedOutput() { finish(); }
    CapturedOutput(const CapturedOutput&) = delete;
    CapturedOutput& operator=(const CapturedOutput&) = delete;
    // Puts the stream back and returns everything written since the start.
    std::string finish();
    bool fired() const { return fired_; }

private:
    static ssize_t write(void* cookie, const char* data, size_t size);
    std::FILE** variable_;  // stdout or stderr, which glibc reads at every print
    std::FILE* saved_;
    std::FILE* stream_ = nullptr;
    std::string trigger_, text_;
    bool fired_ = false;
};

// The console of a solve, with Ctrl+C pressed when the trigger is printed.
struct ConsoleTap : CapturedOutput {
    explicit ConsoleTap(std::string trigger = {}) : CapturedOutput(stdout, std::move(trigger)) {}
};
