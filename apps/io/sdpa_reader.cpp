// SDPA sparse format (.dat-s). The file states
//
//     minimise c'x  subject to  F_1 x_1 + ... + F_m x_m - F_0  positive semidefinite,
//
// with block-diagonal symmetric F_i. Leading lines that start with '"' or '*' are
// comments; then m, the number of blocks, the block sizes (a negative size -k is a
// diagonal block: k non-negative entries), the m costs, and one line per entry
// "matrix block i j value" (all counted from 1 but the matrix, 0 for F_0), each entry
// standing for (i, j) and (j, i). The characters , ( ) { } separate like blanks.
//
// The solver's rows: g = svec(F_1 x_1 + ... - F_0) block by block, the diagonal blocks as
// non-negative rows, the others as packed semidefinite blocks.
#include <charconv>
#include <cmath>
#include <limits>
#include <vector>

#include "io/readers.h"
#include "io/text_input.h"

using namespace korvex;

namespace {

bool isSeparator(char c) { return isBlank(c) || c == ',' || c == '(' || c == ')' || c == '{' || c == '}'; }

// The integer at the start of line (after separators), whatever follows it.
bool leadingInteger(std::string_view line, std::int64_t* value) {
    std::size_t first = 0;
    while (first < line.size() && isSeparator(line[first])) ++first;
    if (first < line.size() && line[first] == '+') ++first;
    const char* begin = line.data() + first;
    auto [end, error] = std::from_chars(begin, line.data() + line.size(), *value);
    return error == std::errc() && end != begin;
}

// Collects count numbers that may run over several lines, punctuation ignored.
class NumberRun {
public:
    explicit NumberRun(LineCursor& cursor) : cursor_(cursor) {}

    std::string_view next(const char* what) {
        for (;;) {
            while (!rest_.empty() && isSeparator(rest_.front())) rest_.remove_prefix(1);
            if (!rest_.empty()) break;
            if (!cursor_.advance()) failAt(cursor_.name(), cursor_.lineNumber(), std::string("the file ends before the ") + what);
            rest_ = cursor_.line();
        }
        std::size_t stop = 0;
        while (stop < rest_.size() && !isSeparator(rest_[stop])) ++stop;
        std::string_view token = rest_.substr(0, stop);
        rest_.remove_prefix(stop);
        return token;
    }

    // The first integer of the next line, the rest of the line (such as "=mdim") ignored.
    std::int64_t leadingCount(const char* what) {
        next(what);
        std::int64_t value;
        if (!leadingInteger(cursor_.line(), &value)) cursor_.fail(std::string(what) + " is not an integer");
        rest_ = {};
        return value;
    }

    std::int64_t integer(const char* what) {
        std::string_view token = next(what);
        std::int64_t value;
        if (!parseInteger(token, &value)) cursor_.fail(std::string(what) + " is not an integer: " + quoted(token));
        return value;
    }

    double real(const char* what) {
        std::string_view token = next(what);
        double value;
        if (!parseReal(token, &value)) cursor_.fail(std::string(what) + " is not a finite number: " + quoted(token));
        return value;
    }

    // Fails when the current line holds more than the run asked for.
    void finishLine(const char* what) {
        while (!rest_.empty() && isSeparator(rest_.front())) rest_.remove_prefix(1);
        if (!rest_.empty()) cursor_.fail(std::string("unexpected text after ") + what + ": " + quoted(rest_));
    }

private:
    LineCursor& cursor_;
    std::string_view rest_;
};

}  // namespace

ConicProblem readSdpaFrom(const TextSource& source) {
    const std::string& name = source.name;
    LineCursor cursor(source);
    // Comments before the counts.
    for (;;) {
        if (!cursor.advance()) failAt(name, cursor.lineNumber(), "the file ends before the number of constraint matrices");
        std::string_view line = cursor.line();
        std::size_t first = 0;
        while (first < line.size() && isBlank(line[first])) ++first;
        if (first == line.size() || line[0] == '"' || line[0] == '*') continue;
        break;
    }
    // The cursor stands on the line of m; the run goes on from the next line.
    NumberRun numbers(cursor);
    std::int64_t m;
    if (!leadingInteger(cursor.line(), &m)) cursor.fail("the number of constraint matrices is not an integer");
    if (m < 1 || m > std::numeric_limits<std::int32_t>::max()) cursor.fail("the number of constraint matrices must be positive");
    const std::int64_t block_count = numbers.leadingCount("number of blocks");
    if (block_count < 1 || block_count > 1000000) cursor.fail("the number of blocks must be positive");

    std::vector<std::int32_t> sizes, first_rows;
    for (std::int64_t k = 0; k < block_count; ++k) {
        std::int64_t size = numbers.integer("block sizes");
        if (size == 0 || size > 65535 || size < -std::numeric_limits<std::int32_t>::max()) {
            cursor.fail("block size " + std::to_string(size) + " is out of range");
        }
        sizes.push_back(static_cast<std::int32_t>(size));
    }
    // The m costs are read before anything is sized by m: a file that declares far more
    // constraint matrices than it holds costs for is refused without allocating for them.
    std::vector<std::pair<double, std::uint32_t>> costs;
    for (std::int64_t j = 0; j < m; ++j) costs.emplace_back(numbers.real("costs"), static_cast<std::uint32_t>(cursor.lineNumber()));
    numbers.finishLine("the costs");
    ProblemBuilder builder(static_cast<std::int32_t>(m), name);
    for (const std::int32_t size : sizes) {
        first_rows.push_back(size < 0 ? builder.addBlock(BlockCone::NonNegative, -size) : builder.addBlock(BlockCone::Semidefinite, size));
    }
    for (std::int64_t j = 0; j < m; ++j) builder.addCost(static_cast<std::int32_t>(j), costs[j].first, costs[j].second);

    const double root2 = std::sqrt(2.0);
    while (cursor.advance()) {
        std::string_view line = cursor.line();
        std::size_t first = 0;
        while (first < line.size() && isSeparator(line[first])) ++first;
        if (first == line.size()) continue;
        FieldReader fields(line, cursor);
        std::int32_t matrix = fields.index("matrix number", 0, m);
        std::int32_t block = fields.index("block number", 1, block_count) - 1;
        const std::int32_t size = sizes[block];
        const std::int32_t side = size < 0 ? -size : size;
        std::int32_t i = fields.index("row", 1, side) - 1;
        std::int32_t j = fields.index("column", 1, side) - 1;
        double value = fields.real("value");
        fields.finish("the entry");
        std::int32_t row;
        if (size < 0) {
            if (i != j) cursor.fail("entry (" + std::to_string(i + 1) + ", " + std::to_string(j + 1) + ") off the diagonal of a diagonal block");
            row = first_rows[block] + i;
        } else {
            if (i < j) std::swap(i, j);
            row = first_rows[block] + static_cast<std::int32_t>(packedIndex(i, j, side));
            if (i != j) value *= root2;
        }
        const auto at = static_cast<std::uint32_t>(cursor.lineNumber());
        if (matrix == 0) {
            builder.addConstant(row, -value, at);
        } else {
            builder.addEntry(row, matrix - 1, value, at);
        }
    }

    ConicProblem problem;
    problem.source = name;
    problem.format = "SDPA";
    problem.scalar_variables = static_cast<std::int32_t>(m);
    builder.finish(&problem);
    for (std::size_t k = 0; k < sizes.size(); ++k) {
        problem.row_matrix_sides.push_back(sizes[k]);
        problem.row_matrix_starts.push_back(builder.solverRow(first_rows[k]));
    }
    return problem;
}
