// What the command writes besides the console report: the solution as JSON, the
// progress history as CSV, and the history drawn as an SVG convergence plot.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "records/records.h"
#include "io/problem.h"

// Appends text as a JSON string, quoted and escaped.
void jsonString(std::string* out, const std::string& text);

// Milliseconds spent reading the file, which Info does not hold.
struct RunTimes {
    double read_ms = 0.0;
};

// The solution as one JSON object: the status and the figures of Info (the times as
// readSeconds, setupSeconds and solveSeconds), the objective in the file's sense with its constant, x (the file's
// scalar variables in file order), X (the file's matrix variables, dense, row by row;
// for SDPA the matrix of the maximisation, F_i . X = c_i, a diagonal block as a vector),
// for SDPA also Z = sum F_i x_i - F_0 block by block, and the solver's y and s.
// Non-finite numbers are written as null. False when writing failed.
bool writeSolutionJson(std::FILE* out, const ConicProblem& problem, const Solution& solution, const Info& info,
                       const RunTimes& times);

// One row of the progress history of a solve (see Info's progress arrays).
struct ProgressRow {
    std::int32_t iteration;
    double rel_gap, res_pri, res_dual, primal_cost, dual_cost, fpr_norm, time_ms;
    bool has_step;  // false for the row of the iteration that ended the solve by its test
    std::int32_t step_kind, ls_count;
};

// Arrays that the command hands to the solver for the progress history, marked so that
// the rows the solver wrote can be told from the rest.
class ProgressArrays {
public:
    // capacity entries each; hooks them into info and sets settings->progress_capacity.
    // Throws std::bad_alloc when the memory is not there.
    ProgressArrays(std::int32_t capacity, Info* info, Settings* settings);

    // The rows the solver filled, in order of iteration.
    std::vector<ProgressRow> rows() const;

private:
    // Zero-filled by calloc, so that the pages of rows the solve never reaches are never
    // touched: a capacity of a million rows costs only the two marked columns up front.
    template <class T>
    using LazyArray = std::unique_ptr<T[], void (*)(void*)>;
    template <class T>
    static LazyArray<T> lazyArray(std::int32_t capacity);

    std::vector<std::int32_t> iteration_, step_kind_;  // -1 and a no-step mark until written
    LazyArray<std::int32_t> ls_count_;
    LazyArray<double> rel_gap_, res_pri_, res_dual_, primal_cost_, dual_cost_, fpr_norm_, time_ms_;
};

// CSV with a header line; the step columns are empty for a row without a step.
bool writeHistoryCsv(std::FILE* out, const std::vector<ProgressRow>& rows);

// An SVG plot of res_pri, res_dual, rel_gap and fpr_norm against the iteration, on a
// logarithmic axis, with labelled axes, a legend and the title given. Without rows the
// picture says that there is no history.
bool writeConvergenceSvg(std::FILE* out, const std::vector<ProgressRow>& rows, const std::string& title);
