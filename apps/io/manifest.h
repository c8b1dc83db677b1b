// The list of benchmark problems with their reference answers (../shared/bench/
// MANIFEST.tsv): one tab-separated row per file, with a header row.
#pragma once

#include <string>
#include <vector>

enum class Expected { Optimal, PrimalInfeasible, DualInfeasible, Unknown };

struct ManifestEntry {
    std::string family;     // lp, sdp, socp, exp, pow, mixed, infeasible
    std::string file;       // path relative to the manifest's folder
    std::string reference;  // the reference column as written
    Expected expected;
    double objective;       // the reference value when expected is Optimal, else NaN
    std::string split;      // "dev" or "extra" (from "split=..." in the notes)
};

// The entries of the manifest at path; empty when the file cannot be read.
std::vector<ManifestEntry> readManifest(const std::string& path);
