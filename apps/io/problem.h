// A cone program read from a file, in the solver's form
//
//     minimise c'x  subject to  A x + s = b,  s in K,
//
// with the rows of K in the solver's order (zero, non-negative, second-order blocks,
// semidefinite blocks in packed form, primal exponential, dual exponential and power
// triples), together with what is needed to speak about the answer in the file's own
// terms: the sense and constant of the objective, which entries of x are the file's
// scalar variables, and where the file's matrix variables sit in x.
//
// The readers describe a file through a ProblemBuilder: row blocks in the file's own
// order, each in one cone, with coefficients g = a'x + constant for each row, where g is
// the quantity that the file puts in the block's cone. The builder sorts the blocks into
// the solver's order, flips and mixes rows where the file's cone differs from the
// solver's (a non-positive orthant, a rotated second-order cone, the reversed order of an
// exponential triple), refuses repeated coordinates, and compresses A by columns.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "records/records.h"

struct ConicProblem {
    std::string source;  // the file name as given
    std::string format;  // "CBF", "SDPA" or "MPS"

    std::int32_t m = 0;  // rows
    std::int32_t n = 0;  // columns
    std::vector<std::int32_t> column_starts;  // n + 1 entries
    std::vector<std::int32_t> row_indices;    // sorted within each column
    std::vector<double> values;
    std::vector<double> b;  // m entries
    std::vector<double> c;  // n entries

    std::int32_t free_rows = 0;
    std::int32_t linear_rows = 0;
    std::vector<std::int32_t> soc_sizes;
    std::vector<std::int32_t> sd_sizes;
    std::int32_t exp_triples = 0;
    std::int32_t dual_exp_triples = 0;
    std::vector<double> power_exponents;  // a > 0: the cone; a < 0: the dual cone of -a

    // The file's objective is (maximise ? -1 : 1) c'x + objective_constant.
    bool maximise = false;
    double objective_constant = 0.0;

    // x[0 .. scalar_variables) are the file's scalar variables, in file order.
    std::int32_t scalar_variables = 0;
    std::vector<std::string> variable_names;  // when the file names them (MPS)

    // Matrix variables (CBF PSDVAR): side of each and the column of its packed entries.
    std::vector<std::int32_t> matrix_sides;
    std::vector<std::int32_t> matrix_offsets;

    // Matrix blocks of the rows (SDPA): the side of each block, negative for a diagonal
    // block of that many entries, and the solver row where its entries start. Their duals
    // in y form the matrix X with F_i . X = c_i and objective F_0 . X, their slacks in s
    // the matrix Z = sum F_i x_i - F_0.
    std::vector<std::int32_t> row_matrix_sides;
    std::vector<std::int32_t> row_matrix_starts;
};

// The objective in the file's sense, constant included, from the solver's c'x.
double fileObjective(const ConicProblem& problem, double solver_objective);

// Matrix variable k as a dense side x side matrix, row by row, from the solver's x: the
// packed entries with the sqrt(2) of the off-diagonal entries taken out.
std::vector<double> matrixVariable(const ConicProblem& problem, const double* x, int k);

// Row matrix block k as a dense matrix, row by row, from the solver's y or s (a
// diagonal block as the vector of its diagonal).
std::vector<double> rowMatrix(const ConicProblem& problem, const double* v, int k);

// Index of entry (i, j), i >= j, of a packed symmetric matrix of side n: the lower
// triangle by columns.
inline std::int64_t packedIndex(std::int64_t i, std::int64_t j, std::int64_t n) {
    return j * n - j * (j - 1) / 2 + (i - j);
}

// The solver's records over a problem's arrays. The problem must outlive the view and
// stay unchanged; settings is the caller's.
struct ProblemRecords {
    ProblemRecords(const ConicProblem& problem, Settings* settings);
    ProblemRecords(const ProblemRecords&) = delete;
    ProblemRecords& operator=(const ProblemRecords&) = delete;

    SparseMatrix A{};
    Data data{};
    Cone cone{};
};

// The cone of a row block, as the file states it.
enum class BlockCone {
    Free,             // no constraint: the rows are dropped
    Zero,             // g = 0
    NonNegative,      // g >= 0
    NonPositive,      // g <= 0
    SecondOrder,      // g0 >= |(g1, ...)|
    Rotated,          // 2 g0 g1 >= |(g2, ...)|^2, g0, g1 >= 0
    Semidefinite,     // packed matrix of the given side
    Exponential,      // bound first: g0 >= g1 exp(g2 / g1)
    DualExponential,  // bound first: g0 >= -g2 exp(g1 / g2 - 1)
    Power,            // g0^a g1^(1-a) >= |g2|, exponent a in (0, 1)
    DualPower,        // (g0/a)^a (g1/(1-a))^(1-a) >= |g2|
};

// The most rows and columns together that a reader builds; a file declaring more is
// refused before anything is sized for it. The default is what half of the machine's
// memory (or of the address-space limit) holds; a caller that reads files from others can
// set a smaller bound. A limit <= 0 restores the default. Returns the limit before.
std::int64_t setProblemSizeLimit(std::int64_t rows_and_columns);

class ProblemBuilder {
public:
    // Starts a problem with the given number of columns; name is the file name used in
    // messages.
    ProblemBuilder(std::int32_t columns, std::string name);

    // Appends a block of rows and returns the number of its first row; rows are numbered
    // in the order of the calls. size is the side for Semidefinite, 3 for the triples.
    std::int32_t addBlock(BlockCone cone, std::int32_t size, double exponent = 0.0);

    // g[row] gets the term value x[column]; line is where the file gave it (0: made by
    // the reader). Repeated coordinates are refused when the problem is finished.
    void addEntry(std::int32_t row, std::int32_t column, double value, std::uint32_t line) {
        entry_rows_.push_back(row);
        entry_columns_.push_back(column);
        entry_values_.push_back(value);
        entry_lines_.push_back(line);
    }

    // g[row] gets the constant value; a second constant for a row is refused at once.
    void addConstant(std::int32_t row, double value, std::uint32_t line);

    // The objective gets the term value x[column]; a second term for a column is refused.
    void addCost(std::int32_t column, double value, std::uint32_t line);

    std::int32_t rows() const { return total_rows_; }
    // After finish: the solver row of a builder row, -1 for a dropped one.
    std::int32_t solverRow(std::int32_t row) const { return solver_rows_[row]; }
    std::int32_t columns() const { return columns_; }
    void reserve(std::size_t entries);

    // The problem in the solver's form. problem's fields other than the arrays and the
    // cone (source, format, sense, constant, the variable map) are kept as given.
    // Throws ReadError "name:LINE: ..." for a repeated coordinate.
    void finish(ConicProblem* problem);

private:
    void sizeConstants();
    struct Block {
        BlockCone cone;
        std::int32_t size;  // rows
        std::int32_t side;  // Semidefinite: the side
        double exponent;
        std::int32_t first_row;
    };

    std::int32_t columns_;
    std::int32_t total_rows_ = 0;
    std::vector<Block> blocks_;
    std::vector<std::int32_t> entry_rows_;
    std::vector<std::int32_t> entry_columns_;
    std::vector<double> entry_values_;
    std::vector<std::uint32_t> entry_lines_;
    std::vector<double> constants_;
    std::vector<std::uint32_t> constant_lines_;
    std::vector<double> costs_;
    std::vector<std::uint32_t> cost_lines_;
    std::vector<std::int32_t> solver_rows_;
    std::string name_;
};
