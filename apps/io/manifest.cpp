#include "io/manifest.h"

#include <cmath>
#include <fstream>
#include <sstream>

#include "io/text_input.h"

std::vector<ManifestEntry> readManifest(const std::string& path) {
    std::vector<ManifestEntry> entries;
    std::ifstream in(path);
    std::string line;
    bool header = true;
    while (std::getline(in, line)) {
        if (header) {
            header = false;
            continue;
        }
        std::vector<std::string> columns;
        std::stringstream fields(line);
        for (std::string column; std::getline(fields, column, '\t');) columns.push_back(column);
        if (columns.size() < 9) continue;
        ManifestEntry entry{columns[0], columns[1], columns[6], Expected::Unknown, std::nan(""), ""};
        double value;
        if (parseReal(entry.reference, &value)) {
            entry.expected = Expected::Optimal;
            entry.objective = value;
        } else if (entry.reference.rfind("INFEASIBLE", 0) == 0 || entry.reference == "PRIMAL_INFEASIBLE") {
            entry.expected = Expected::PrimalInfeasible;
        } else if (entry.reference == "DUAL_INFEASIBLE") {
            entry.expected = Expected::DualInfeasible;
        }
        const std::size_t split = columns[8].find("split=");
        if (split != std::string::npos) {
            const std::size_t start = split + 6;
            std::size_t stop = start;
            while (stop < columns[8].size() && std::isalpha(static_cast<unsigned char>(columns[8][stop]))) ++stop;
            entry.split = columns[8].substr(start, stop - start);
        }
        entries.push_back(entry);
    }
    return entries;
}
