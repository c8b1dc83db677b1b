// Helpers of the command-line tests: problems as dense rows, CBF text in memory, and a
// comparison of two problems.
#pragma once

#include <cstdio>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "io/problem.h"
#include "io/readers.h"

// The rows of A, densely.
std::vector<std::vector<double>> denseRows(const ConicProblem& problem);

// What write puts into a stream, as text; write must succeed.
std::string memoryText(const std::function<bool(std::FILE*)>& write);
// The problem written by writeCbf, as text.
std::string cbfText(const ConicProblem& problem);

// Expects the same sizes, cones, sense and constant, and the same A, b and c: exactly
// where tolerance is 0, otherwise to within tolerance relative to each entry.
void expectSameProblem(const ConicProblem& expected, const ConicProblem& actual, double tolerance);

// Expects each text, read in format under the file name name, to be refused with its
// message.
void expectRefusals(FileFormat format, const std::string& name,
                    const std::vector<std::pair<std::string, std::string>>& cases);

ConicProblem readText(FileFormat format, const std::string& text, const std::string& name);

// The folder of the examples and of the shared problem sets.
std::string examplesDir();
std::string benchDir();
