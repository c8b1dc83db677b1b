// problems: solves a list of problem files with one set of settings and prints a table
// (markdown) of file, status, iterations, objective, reference, relative error, and the
// read, setup and solve times, and the solve time per iteration.
//
//   problems [options] [FILE...]
//     --manifest PATH        take the references (and, without FILEs, the files) from
//                            a MANIFEST.tsv; files are relative to its folder
//     --split dev|extra|all  which manifest rows to run without FILEs (default dev)
//     --time-limit SECONDS   interrupt each solve after this long
//     --NAME VALUE           any setting of the solver, as for korvex (verbose is 0
//                            unless given)
//
// A row matches its reference when the objective (the file's sense, constant included)
// is within 10 eps of it, |f - f*| / (1 + |f*|), or when an infeasible file ends
// infeasible (or dual infeasible, unbounded).
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "core/solver.h"
#include "io/manifest.h"
#include "io/options.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "reporting/allocation.h"
#include "reporting/timing.h"

using namespace korvex;

namespace {

struct Job {
    std::string label;  // as shown in the table
    std::string path;
    std::optional<ManifestEntry> entry;
};

std::string folderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? "." : path.substr(0, slash);
}

bool endsWith(const std::string& text, const std::string& suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

std::string number(double value, const char* format = "%.6g") {
    char text[48];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

int usage(const std::string& complaint) {
    std::fprintf(stderr, "problems: %s\nusage: problems [--manifest PATH] [--split dev|extra|all] [--time-limit S] [--NAME VALUE] [FILE...]\n",
                 complaint.c_str());
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    Settings settings;
    setDefaultSettings(&settings);
    settings.verbose = 0;
    std::string manifest_path, split = "dev";
    double time_limit = 0.0;
    std::vector<std::string> files;
    for (int k = 1; k < argc; ++k) {
        std::string arg = argv[k];
        if (arg.rfind("--", 0) != 0) {
            files.push_back(arg);
            continue;
        }
        if (k + 1 >= argc) return usage(arg + " needs a value");
        const std::string name = arg.substr(2), value = argv[++k];
        std::string error;
        if (name == "manifest") {
            manifest_path = value;
        } else if (name == "split") {
            split = value;
        } else if (name == "time-limit" || name == "time_limit") {
            if (!parseSeconds(value, &time_limit)) return usage("--time-limit takes a positive number of seconds");
        } else {
            const int done = applySetting(&settings, name, value, &error);
            if (done < 0) return usage(error);
            if (done == 0) return usage("unknown option " + arg);
        }
    }
    setBlasThreads(1);

    std::vector<ManifestEntry> manifest;
    if (!manifest_path.empty()) {
        manifest = readManifest(manifest_path);
        if (manifest.empty()) return usage("cannot read the manifest " + manifest_path);
    }
    std::vector<Job> jobs;
    if (files.empty()) {
        for (const ManifestEntry& entry : manifest) {
            if (split == "all" || entry.split == split) jobs.push_back({entry.file, folderOf(manifest_path) + "/" + entry.file, entry});
        }
    }
    for (const std::string& file : files) {
        Job job{file, file, std::nullopt};
        for (const ManifestEntry& entry : manifest) {
            if (endsWith(file, entry.file)) job = {entry.file, file, entry};
        }
        jobs.push_back(job);
    }
    if (jobs.empty()) return usage("no problems to run");

    std::printf("| file | status | iterations | objective | reference | rel. error | read s | setup s | solve s | us / iteration |\n");
    std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
    int matched = 0, with_reference = 0;
    for (const Job& job : jobs) {
        Timer clock;
        startTimer(&clock);
        ConicProblem problem;
        try {
            problem = readProblemFile(job.path);
        } catch (const ReadError& error) {
            std::printf("| %s | unreadable: %s | | | | | | | | |\n", job.label.c_str(), error.what());
            std::fflush(stdout);
            continue;
        }
        const double read_ms = readTimer(&clock);
        Settings run_settings = settings;
        ProblemRecords records(problem, &run_settings);
        Solution solution{};
        Info info{};
        {
            std::optional<TimeLimit> limit;
            if (time_limit > 0) limit.emplace(time_limit);
            solveConeProgram(&records.data, &records.cone, &solution, &info);
        }
        releaseMemory(solution.x);
        releaseMemory(solution.y);
        releaseMemory(solution.s);

        const double objective = fileObjective(problem, info.pobj);
        std::string reference = "-", error = "-";
        if (job.entry) {
            const ManifestEntry& entry = *job.entry;
            const int s = info.statusVal;
            bool ok = false;
            switch (entry.expected) {
                case Expected::Optimal: {
                    reference = number(entry.objective, "%.10g");
                    const double relative = std::fabs(objective - entry.objective) / (1 + std::fabs(entry.objective));
                    error = number(relative, "%.1e");
                    ok = (s == KORVEX_SOLVED || s == KORVEX_SOLVED_INACCURATE) && relative < 10 * settings.eps;
                    break;
                }
                case Expected::PrimalInfeasible:
                    reference = "infeasible";
                    ok = s == KORVEX_INFEASIBLE || s == KORVEX_INFEASIBLE_INACCURATE;
                    break;
                case Expected::DualInfeasible:
                    reference = "dual infeasible";
                    ok = s == KORVEX_UNBOUNDED || s == KORVEX_UNBOUNDED_INACCURATE;
                    break;
                case Expected::Unknown: reference = "unknown"; break;
            }
            if (entry.expected != Expected::Unknown) {
                ++with_reference;
                matched += ok ? 1 : 0;
                if (!ok) error += " **no**";
            }
        }
        std::printf("| %s | %s | %d | %s | %s | %s | %.3f | %.3f | %.3f | %.2f |\n", job.label.c_str(), info.status,
                    info.iter, number(objective, "%.10g").c_str(), reference.c_str(), error.c_str(), read_ms / 1000,
                    info.setupTime / 1000, info.solveTime / 1000, 1000 * info.solveTime / std::max(info.iter, 1));
        std::fflush(stdout);
    }
    std::printf("\n%d of %d problems with a reference match it (10 eps = %g).\n", matched, with_reference, 10 * settings.eps);
    return 0;
}
