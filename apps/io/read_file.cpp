#include "io/readers.h"
#include "io/text_input.h"

using namespace korvex;

namespace {

bool endsWith(std::string_view text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.substr(text.size() - suffix.size()) == suffix;
}

}  // namespace

FileFormat formatOfName(const std::string& path) {
    std::string_view name = path;
    if (endsWith(name, ".gz")) name.remove_suffix(3);
    if (endsWith(name, ".cbf") || endsWith(name, ".CBF")) return FileFormat::Cbf;
    if (endsWith(name, ".dat-s") || endsWith(name, ".sdpa")) return FileFormat::Sdpa;
    if (endsWith(name, ".mps") || endsWith(name, ".MPS")) return FileFormat::Mps;
    return FileFormat::Unknown;
}

FileFormat formatOfWord(std::string_view word) {
    if (word == "cbf") return FileFormat::Cbf;
    if (word == "sdpa") return FileFormat::Sdpa;
    if (word == "mps") return FileFormat::Mps;
    return FileFormat::Unknown;
}

ConicProblem readProblemFile(const std::string& path, FileFormat format) {
    if (format == FileFormat::Unknown) format = formatOfName(path);
    if (format == FileFormat::Unknown) {
        failAt(path, 0, "unknown file type: the name should end in .cbf, .dat-s or .mps (optionally .gz), or give --format");
    }
    const TextSource source{path, {}, path};
    switch (format) {
        case FileFormat::Cbf: return readCbfFrom(source);
        case FileFormat::Sdpa: return readSdpaFrom(source);
        default: return readMpsFrom(source);
    }
}
