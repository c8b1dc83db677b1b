// How SIGINT and SIGTERM stop the command.
//
// While a StopSignals lives, both signals are taken by a watcher thread (they are blocked
// in the command's thread, and a handler passes on any that lands on another thread). The
// first signal ends a run that is still reading at once (nothing has been written yet);
// during the solve it keeps the solver's interrupt flag set, so that the solve ends as
// "Interrupted" at its next check, however often the solver clears the flag, and the
// command writes its outputs whole and ends with 128 + the signal. A second signal ends
// the command at once, removing the temporary files of outputs not yet complete.
#pragma once

#include <cstdio>
#include <string>

namespace korvex {

enum class RunPhase { Reading, Solving, Writing };

class StopSignals {
public:
    StopSignals();
    ~StopSignals();
    StopSignals(const StopSignals&) = delete;
    StopSignals& operator=(const StopSignals&) = delete;

    void setPhase(RunPhase phase);
    // The first signal received, or 0.
    int received() const;

private:
    bool started_ = false;
};

// An output file written whole or not at all: the text goes to a temporary file beside
// the target, which takes the target's name only at commit(), so that a failed or
// interrupted run never leaves a partial or empty file behind. A signal that ends the
// command at once removes the temporary file.
class OutputFile {
public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();
    // Opens the temporary file for path (nothing for an empty path), or explains why not
    // on standard error.
    bool open(const std::string& path);
    explicit operator bool() const { return file_ != nullptr; }
    std::FILE* get() const { return file_; }
    // Closes the file and gives it its name; false if either fails.
    bool commit();

private:
    std::string path_, temp_;
    std::FILE* file_ = nullptr;
};

}  // namespace korvex
