// Several files at once. Each file is solved by runOne in a child process of its own
// (fork, no exec, so that a front end that is not the korvex executable can run a batch
// too), at most --jobs at a time. A child's standard output and error go to files of
// their own and are copied to the command's once the child and all before it have ended,
// so that reports never interleave and come in the order of the files. With --jsonl every
// file gets one line of JSON, in the same order: the solution's JSON on one line with
// "exitCode" added, or the file, exit code and message of a run without a solution.
//
// Signals: the children run in process groups of their own, so that a Ctrl+C at the
// terminal reaches the command alone, which hands it on to every running child and
// starts no more; a second signal is handed on as well (the children end at once) and
// the command ends without writing the JSON lines still missing.
#include <sched.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>

#include "io/outputs.h"
#include "korvex/run.h"
#include "korvex/signals.h"

namespace korvex {

int availableCores() {
    cpu_set_t set;
    CPU_ZERO(&set);
    if (sched_getaffinity(0, sizeof set, &set) == 0 && CPU_COUNT(&set) > 0) return CPU_COUNT(&set);
    const long online = sysconf(_SC_NPROCESSORS_ONLN);
    return online > 0 ? static_cast<int>(online) : 1;
}

namespace {

struct Job {
    CommandLine line;           // the child's options: one input, its own output paths
    bool own_json = false;      // line.solution_path is a scratch file of the batch
    pid_t pid = -1;
    std::FILE* out = nullptr;   // the child's standard output and error, captured
    std::FILE* err = nullptr;
    int code = -1;              // exit code once ended
    bool ended = false;
    std::string last_error;     // the last line the child wrote to standard error
};

// "dir/name.dat-s.gz" gives "name".
std::string stemOf(const std::string& path) {
    std::string name = std::filesystem::path(path).filename().string();
    if (name.size() > 3 && name.compare(name.size() - 3, 3, ".gz") == 0) name.resize(name.size() - 3);
    const std::size_t dot = name.find_last_of('.');
    return dot == std::string::npos || dot == 0 ? name : name.substr(0, dot);
}

// Copies what a capture holds to out, and gives its last line.
std::string copyCapture(std::FILE* capture, std::FILE* out) {
    std::string last;
    if (capture == nullptr) return last;
    std::rewind(capture);
    char chunk[1 << 14];
    for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, capture)) > 0;) {
        std::fwrite(chunk, 1, got, out);
        last.append(chunk, got);
        if (last.size() > 4096) last.erase(0, last.size() - 4096);
    }
    std::fclose(capture);
    while (!last.empty() && last.back() == '\n') last.pop_back();
    const std::size_t line_start = last.find_last_of('\n');
    return line_start == std::string::npos ? last : last.substr(line_start + 1);
}

// The JSON line of an ended job.
std::string jsonLine(const Job& job) {
    std::string text;
    if (!job.line.solution_path.empty()) {
        if (std::FILE* in = std::fopen(job.line.solution_path.c_str(), "rb")) {
            char chunk[1 << 16];
            for (std::size_t got; (got = std::fread(chunk, 1, sizeof chunk, in)) > 0;) text.append(chunk, got);
            std::fclose(in);
        }
    }
    // The writer puts line ends and indents between fields only; strings hold them escaped.
    std::string compact;
    for (std::size_t k = 0; k < text.size(); ++k) {
        if (text[k] != '\n') {
            compact += text[k];
            continue;
        }
        while (k + 1 < text.size() && text[k + 1] == ' ') ++k;
    }
    text.swap(compact);
    const std::string code = "\"exitCode\": " + std::to_string(job.code);
    if (text.size() >= 2 && text.front() == '{') return "{" + code + "," + text.substr(1) + "\n";
    text = "{\"file\": ";
    jsonString(&text, job.line.inputs.front());
    text += ", " + code;
    if (!job.last_error.empty()) {
        text += ", \"error\": ";
        jsonString(&text, job.last_error);
    }
    return text + "}\n";
}

[[noreturn]] void runChild(const Job& job, const sigset_t& mask) {
    setpgid(0, 0);
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    sigprocmask(SIG_SETMASK, &mask, nullptr);
    dup2(fileno(job.out), STDOUT_FILENO);
    dup2(fileno(job.err), STDERR_FILENO);
    const int code = runOne(job.line);
    std::fflush(stdout);
    std::fflush(stderr);
    _exit(code);
}

}  // namespace

int runBatch(const CommandLine& line) {
    // The outputs of each file: in the folders named, under the file's stem.
    const bool several = line.inputs.size() > 1;
    std::vector<Job> jobs(line.inputs.size());
    std::set<std::string> stems;
    const std::string scratch = line.jsonl_path.empty() ? "" : line.jsonl_path + ".korvex-" + std::to_string(getpid()) + ".d";
    for (const std::string* folder : {&line.solution_path, &line.history_path, &line.plot_path, &line.cbf_path, &scratch}) {
        std::error_code error;
        if (several && !folder->empty() && !std::filesystem::create_directories(*folder, error) && error) {
            std::fprintf(stderr, "korvex: cannot make the folder %s: %s\n", folder->c_str(), error.message().c_str());
            return kExitUsage;
        }
    }
    for (std::size_t k = 0; k < jobs.size(); ++k) {
        Job& job = jobs[k];
        job.line = line;
        job.line.inputs = {line.inputs[k]};
        job.line.jsonl_path.clear();
        const std::string stem = stemOf(line.inputs[k]);
        const bool folders = several && (!line.solution_path.empty() || !line.history_path.empty() ||
                                         !line.plot_path.empty() || !line.cbf_path.empty());
        if (folders && !stems.insert(stem).second) {
            std::fprintf(stderr, "korvex: two files named %s would write the same outputs\n", stem.c_str());
            return kExitUsage;
        }
        auto inFolder = [&](const std::string& folder, const char* extension) {
            return folder.empty() || !several ? folder : (std::filesystem::path(folder) / (stem + extension)).string();
        };
        job.line.solution_path = inFolder(line.solution_path, ".json");
        job.line.history_path = inFolder(line.history_path, ".csv");
        job.line.plot_path = inFolder(line.plot_path, ".svg");
        job.line.cbf_path = inFolder(line.cbf_path, ".cbf");
        if (!scratch.empty() && job.line.solution_path.empty()) {
            job.line.solution_path = (std::filesystem::path(scratch) / (std::to_string(k) + ".json")).string();
            job.own_json = true;
        }
    }

    OutputFile jsonl;
    if (!jsonl.open(line.jsonl_path)) return kExitUsage;
    sigset_t waited, previous;
    sigemptyset(&waited);
    sigaddset(&waited, SIGINT);
    sigaddset(&waited, SIGTERM);
    sigaddset(&waited, SIGCHLD);
    sigprocmask(SIG_BLOCK, &waited, &previous);

    std::map<pid_t, std::size_t> running;
    std::size_t next = 0, next_line = 0;
    int stop = 0, worst = 0;
    bool written = true;
    // A job's output and JSON line go out once it and every job before it have ended, so
    // that the output of a batch is the same whatever order its jobs end in.
    auto endJob = [&](Job& job, int code) {
        job.code = code;
        job.ended = true;
        worst = std::max(worst, code);
        for (; next_line < jobs.size() && jobs[next_line].ended; ++next_line) {
            Job& done = jobs[next_line];
            std::fflush(stdout);
            copyCapture(done.out, stdout);
            std::fflush(stdout);
            done.last_error = copyCapture(done.err, stderr);
            done.out = done.err = nullptr;
            if (!jsonl) continue;
            const std::string text = jsonLine(done);
            written = std::fwrite(text.data(), 1, text.size(), jsonl.get()) == text.size() && written;
            if (done.own_json) std::remove(done.line.solution_path.c_str());
        }
    };
    auto signalAll = [&](int number) {
        for (const auto& [pid, index] : running) kill(pid, number);
    };
    for (;;) {
        while (stop == 0 && running.size() < static_cast<std::size_t>(line.jobs) && next < jobs.size()) {
            Job& job = jobs[next];
            job.out = std::tmpfile();
            job.err = std::tmpfile();
            std::fflush(stdout);
            std::fflush(stderr);
            job.pid = job.out != nullptr && job.err != nullptr ? fork() : -1;
            if (job.pid == 0) runChild(job, previous);
            if (job.pid < 0) {
                std::fprintf(job.err != nullptr ? job.err : stderr, "korvex: cannot start a process for %s\n",
                             job.line.inputs.front().c_str());
                endJob(job, kExitNoVerdict);
            } else {
                running[job.pid] = next;
            }
            ++next;
        }
        // Ended children, by their pids alone: a front end may have children of its own.
        for (auto it = running.begin(); it != running.end();) {
            int status = 0;
            if (waitpid(it->first, &status, WNOHANG) != it->first) {
                ++it;
                continue;
            }
            const int code = WIFEXITED(status)     ? WEXITSTATUS(status)
                             : WIFSIGNALED(status) ? 128 + WTERMSIG(status)
                                                   : kExitNoVerdict;
            endJob(jobs[it->second], code);
            it = running.erase(it);
        }
        if (running.empty() && (stop != 0 || next == jobs.size())) break;
        const timespec tick{1, 0};
        const int number = sigtimedwait(&waited, nullptr, &tick);
        if (number == SIGINT || number == SIGTERM) {
            signalAll(number);
            if (stop != 0) {
                for (const auto& [pid, index] : running) waitpid(pid, nullptr, 0);
                sigprocmask(SIG_SETMASK, &previous, nullptr);
                return 128 + number;
            }
            stop = number;
            std::fprintf(stderr, "korvex: stopping the %zu running solves (a second signal ends at once)\n", running.size());
        }
    }
    sigprocmask(SIG_SETMASK, &previous, nullptr);

    // Files never started, after a signal: a line each that says so.
    for (Job& job : jobs) {
        if (!job.ended) {
            job.last_error = "not solved: the batch was stopped";
            endJob(job, 128 + stop);
        }
    }
    if (jsonl) written = jsonl.commit() && written;
    if (!scratch.empty()) std::filesystem::remove_all(scratch);
    std::map<int, int> counts;
    for (const Job& job : jobs) ++counts[job.code];
    std::string tally;
    for (const auto& [code, count] : counts) tally += ", exit " + std::to_string(code) + " for " + std::to_string(count);
    std::printf("korvex: %zu files, %d at a time%s\n", jobs.size(), line.jobs, tally.c_str());
    if (!written) {
        std::fprintf(stderr, "korvex: writing %s failed\n", line.jsonl_path.c_str());
        worst = std::max(worst, kExitFile);
    }
    return stop != 0 ? 128 + stop : worst;
}

}  // namespace korvex
