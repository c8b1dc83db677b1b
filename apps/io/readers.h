// Readers of problem files and the CBF writer.
//
//   CBF (Conic Benchmark Format) versions 1 to 3     .cbf
//   SDPA sparse                                      .dat-s
//   MPS, fixed or free columns                       .mps
//
// each optionally compressed with gzip (told by content). Every reader maps
// the file exactly onto the solver's form (see problem.h) and throws ReadError with
// "FILE:LINE: what is wrong" for a file that it cannot take.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "io/problem.h"
#include "io/text_input.h"

enum class FileFormat { Unknown, Cbf, Sdpa, Mps };

// The format that a file name announces, ".gz" looked through; Unknown for anything else.
FileFormat formatOfName(const std::string& path);

// "cbf", "sdpa" or "mps" (as given to --format); Unknown otherwise.
FileFormat formatOfWord(std::string_view word);

// Reads the file at path in the given format (Unknown: by its name).
ConicProblem readProblemFile(const std::string& path, FileFormat format = FileFormat::Unknown);

// The readers on a text source, in memory or streamed from a file; its name is used in
// messages and kept as the problem's source.
ConicProblem readCbfFrom(const TextSource& source);
ConicProblem readSdpaFrom(const TextSource& source);
ConicProblem readMpsFrom(const TextSource& source);

// The readers on text in memory.
inline ConicProblem readCbf(std::string_view text, const std::string& name) { return readCbfFrom(TextSource{name, text, {}}); }
inline ConicProblem readSdpa(std::string_view text, const std::string& name) { return readSdpaFrom(TextSource{name, text, {}}); }
inline ConicProblem readMps(std::string_view text, const std::string& name) { return readMpsFrom(TextSource{name, text, {}}); }

// Writes the problem in CBF (version 1, 2 or 3, the lowest that holds its cones): the
// solver's columns as free scalar variables, the rows as they stand, the semidefinite
// blocks as matrix inequalities, and the objective in the file's sense with its constant.
// Reading the result back gives the same problem, the semidefinite rows to rounding.
// Returns false when writing failed.
bool writeCbf(const ConicProblem& problem, std::FILE* out);
