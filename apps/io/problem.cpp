#include "io/problem.h"

#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include <cmath>
#include <limits>

#include "io/text_input.h"

using namespace korvex;

double fileObjective(const ConicProblem& problem, double solver_objective) {
    return (problem.maximise ? -solver_objective : solver_objective) + problem.objective_constant;
}

namespace {

// The dense side x side matrix, row by row, of packed entries with the sqrt(2) of the
// off-diagonal entries taken out.
std::vector<double> unpackSymmetric(const double* packed, std::int64_t side) {
    const double root2 = std::sqrt(2.0);
    std::vector<double> dense(static_cast<std::size_t>(side * side));
    for (std::int64_t j = 0; j < side; ++j) {
        for (std::int64_t i = j; i < side; ++i) {
            double value = packed[packedIndex(i, j, side)];
            if (i != j) value /= root2;
            dense[i * side + j] = value;
            dense[j * side + i] = value;
        }
    }
    return dense;
}

}  // namespace

std::vector<double> matrixVariable(const ConicProblem& problem, const double* x, int k) {
    return unpackSymmetric(x + problem.matrix_offsets[k], problem.matrix_sides[k]);
}

std::vector<double> rowMatrix(const ConicProblem& problem, const double* v, int k) {
    const std::int32_t side = problem.row_matrix_sides[k];
    const double* rows = v + problem.row_matrix_starts[k];
    if (side < 0) return std::vector<double>(rows, rows + -side);
    return unpackSymmetric(rows, side);
}

namespace {

template <class T>
T* dataOrNull(const std::vector<T>& v) {
    return v.empty() ? nullptr : const_cast<T*>(v.data());
}

}  // namespace

ProblemRecords::ProblemRecords(const ConicProblem& problem, Settings* settings) {
    A = SparseMatrix{dataOrNull(problem.values), dataOrNull(problem.row_indices), dataOrNull(problem.column_starts),
                     problem.m, problem.n};
    data = Data{problem.m, problem.n, &A, dataOrNull(problem.b), dataOrNull(problem.c), settings};
    cone = Cone{problem.free_rows,
                problem.linear_rows,
                dataOrNull(problem.soc_sizes),
                static_cast<std::int32_t>(problem.soc_sizes.size()),
                dataOrNull(problem.sd_sizes),
                static_cast<std::int32_t>(problem.sd_sizes.size()),
                problem.exp_triples,
                problem.dual_exp_triples,
                dataOrNull(problem.power_exponents),
                static_cast<std::int32_t>(problem.power_exponents.size())};
}

namespace {

// Rows and columns together that half of this machine's memory holds, at about 160
// bytes each while a problem is built. A file can declare far more than it contains (a
// block of a million rows takes one line); such a file is refused rather than read
// until the machine runs out of memory.
// A limit on the process's address space (ulimit -v) counts as the machine's memory.
std::int64_t memoryLimit() {
    const long pages = sysconf(_SC_PHYS_PAGES), page = sysconf(_SC_PAGE_SIZE);
    if (pages <= 0 || page <= 0) return std::int64_t{1} << 26;
    double memory = static_cast<double>(pages) * static_cast<double>(page);
    rlimit space;
    if (getrlimit(RLIMIT_AS, &space) == 0 && space.rlim_cur != RLIM_INFINITY) {
        memory = std::min(memory, static_cast<double>(space.rlim_cur));
    }
    return static_cast<std::int64_t>(memory / 2 / 160);
}

std::int64_t& sizeLimit() {
    static std::int64_t limit = memoryLimit();
    return limit;
}

void checkSize(const std::string& name, std::int64_t rows, std::int64_t columns) {
    if (rows > std::numeric_limits<std::int32_t>::max() || columns > std::numeric_limits<std::int32_t>::max()) {
        failAt(name, 0, "more rows or columns than the solver can hold");
    }
    if (rows + columns > sizeLimit()) {
        failAt(name, 0, "the problem declares " + std::to_string(rows) + " rows and " + std::to_string(columns) +
                            " columns, more than this machine's memory holds");
    }
}

}  // namespace

std::int64_t setProblemSizeLimit(std::int64_t rows_and_columns) {
    const std::int64_t earlier = sizeLimit();
    sizeLimit() = rows_and_columns > 0 ? std::min(rows_and_columns, memoryLimit()) : memoryLimit();
    return earlier;
}

ProblemBuilder::ProblemBuilder(std::int32_t columns, std::string name) : columns_(columns), name_(std::move(name)) {
    checkSize(name_, 0, columns);
    costs_.assign(static_cast<std::size_t>(columns), 0.0);
    cost_lines_.assign(static_cast<std::size_t>(columns), 0);
}

std::int32_t ProblemBuilder::addBlock(BlockCone cone, std::int32_t size, double exponent) {
    std::int64_t rows = size;
    if (cone == BlockCone::Semidefinite) rows = static_cast<std::int64_t>(size) * (size + 1) / 2;
    if (size <= 0) failAt(name_, 0, "a block without rows");
    checkSize(name_, total_rows_ + rows, columns_);
    blocks_.push_back(Block{cone, static_cast<std::int32_t>(rows), size, exponent, total_rows_});
    std::int32_t first = total_rows_;
    total_rows_ += static_cast<std::int32_t>(rows);
    return first;
}

void ProblemBuilder::reserve(std::size_t entries) {
    entry_rows_.reserve(entries);
    entry_columns_.reserve(entries);
    entry_values_.reserve(entries);
    entry_lines_.reserve(entries);
}

namespace {

[[noreturn]] void repeated(const std::string& name, std::uint32_t line, std::uint32_t earlier, const char* what) {
    if (earlier > 0) failAt(name, line, std::string("duplicate ") + what + ": already given on line " + std::to_string(earlier));
    failAt(name, line, std::string("duplicate ") + what);
}

}  // namespace

// The constants are sized for the rows only once a constant or the end comes, after
// every block is declared: a file that declares far more rows than memory holds, block by
// block, is refused by the size check before anything is allocated for its rows.
void ProblemBuilder::sizeConstants() {
    constants_.resize(static_cast<std::size_t>(total_rows_), 0.0);
    constant_lines_.resize(static_cast<std::size_t>(total_rows_), 0);
}

void ProblemBuilder::addConstant(std::int32_t row, double value, std::uint32_t line) {
    if (constants_.size() != static_cast<std::size_t>(total_rows_)) sizeConstants();
    if (constant_lines_[row] != 0) repeated(name_, line, constant_lines_[row], "constant for this row");
    constants_[row] = value;
    constant_lines_[row] = line == 0 ? 1 : line;
}

void ProblemBuilder::addCost(std::int32_t column, double value, std::uint32_t line) {
    if (cost_lines_[column] != 0) repeated(name_, line, cost_lines_[column], "objective coefficient");
    costs_[column] = value;
    cost_lines_[column] = line == 0 ? 1 : line;
}

namespace {

// The solver's row order: the group of each cone, in the order of the groups.
int groupOf(BlockCone cone) {
    switch (cone) {
        case BlockCone::Free: return -1;
        case BlockCone::Zero: return 0;
        case BlockCone::NonNegative:
        case BlockCone::NonPositive: return 1;
        case BlockCone::SecondOrder:
        case BlockCone::Rotated: return 2;
        case BlockCone::Semidefinite: return 3;
        case BlockCone::Exponential: return 4;
        case BlockCone::DualExponential: return 5;
        case BlockCone::Power:
        case BlockCone::DualPower: return 6;
    }
    return -1;
}

constexpr int kGroups = 7;

}  // namespace

void ProblemBuilder::finish(ConicProblem* problem) {
    const double root_half = std::sqrt(0.5);
    if (constants_.size() != static_cast<std::size_t>(total_rows_)) sizeConstants();

    // Rows in the solver's order: the blocks group by group, each group in file order.
    // An exponential triple is reversed: the file puts the bound first, the solver last.
    std::vector<std::int32_t> solver_row(static_cast<std::size_t>(total_rows_), -1);
    std::vector<std::int8_t> sign(static_cast<std::size_t>(total_rows_), 1);
    std::int32_t next = 0;
    problem->free_rows = problem->linear_rows = problem->exp_triples = problem->dual_exp_triples = 0;
    problem->soc_sizes.clear();
    problem->sd_sizes.clear();
    problem->power_exponents.clear();
    std::vector<std::int32_t> rotated_heads;  // solver row of the first row of each rotated block
    for (int group = 0; group < kGroups; ++group) {
        for (const Block& block : blocks_) {
            if (groupOf(block.cone) != group) continue;
            for (std::int32_t k = 0; k < block.size; ++k) {
                std::int32_t offset = k;
                if (block.cone == BlockCone::Exponential || block.cone == BlockCone::DualExponential) {
                    offset = (k / 3) * 3 + 2 - k % 3;
                }
                solver_row[block.first_row + k] = next + offset;
                if (block.cone == BlockCone::NonPositive) sign[block.first_row + k] = -1;
            }
            switch (block.cone) {
                case BlockCone::Zero: problem->free_rows += block.size; break;
                case BlockCone::NonNegative:
                case BlockCone::NonPositive: problem->linear_rows += block.size; break;
                case BlockCone::Rotated: rotated_heads.push_back(next); [[fallthrough]];
                case BlockCone::SecondOrder: problem->soc_sizes.push_back(block.size); break;
                case BlockCone::Semidefinite: problem->sd_sizes.push_back(block.side); break;
                case BlockCone::Exponential: problem->exp_triples += block.size / 3; break;
                case BlockCone::DualExponential: problem->dual_exp_triples += block.size / 3; break;
                case BlockCone::Power: problem->power_exponents.push_back(block.exponent); break;
                case BlockCone::DualPower: problem->power_exponents.push_back(-block.exponent); break;
                case BlockCone::Free: break;
            }
            next += block.size;
        }
    }
    const std::int32_t m = next;
    const std::int32_t n = columns_;
    std::vector<std::int8_t> rotated(static_cast<std::size_t>(m), 0);  // 1: first row of a pair, 2: second
    for (std::int32_t head : rotated_heads) {
        rotated[head] = 1;
        rotated[head + 1] = 2;
    }

    // Sort the entries by solver row, then (stably) by column: within each column the
    // rows come out ascending and a repeated coordinate sits next to its twin.
    const std::size_t count = entry_rows_.size();
    std::vector<std::uint32_t> by_row;
    std::vector<std::int64_t> row_starts(static_cast<std::size_t>(m) + 1, 0);
    std::size_t kept = 0;
    for (std::size_t e = 0; e < count; ++e) {
        std::int32_t r = solver_row[entry_rows_[e]];
        if (r >= 0) {
            ++row_starts[r + 1];
            ++kept;
        }
    }
    if (kept > static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max()) / 2) {
        failAt(name_, 0, "more non-zero coefficients than the solver can hold");
    }
    for (std::int32_t r = 0; r < m; ++r) row_starts[r + 1] += row_starts[r];
    by_row.resize(kept);
    for (std::size_t e = 0; e < count; ++e) {
        std::int32_t r = solver_row[entry_rows_[e]];
        if (r >= 0) by_row[row_starts[r]++] = static_cast<std::uint32_t>(e);
    }
    row_starts.clear();
    row_starts.shrink_to_fit();

    std::vector<std::int64_t> column_fill(static_cast<std::size_t>(n) + 1, 0);
    for (std::uint32_t e : by_row) ++column_fill[entry_columns_[e] + 1];
    for (std::int32_t j = 0; j < n; ++j) column_fill[j + 1] += column_fill[j];
    std::vector<std::uint32_t> slots(kept);
    {
        std::vector<std::int64_t> position(column_fill.begin(), column_fill.end() - 1);
        for (std::uint32_t e : by_row) slots[position[entry_columns_[e]]++] = e;
    }
    by_row.clear();
    by_row.shrink_to_fit();

    // Repeated coordinates, named by the later line of the two.
    for (std::int32_t j = 0; j < n; ++j) {
        for (std::int64_t k = column_fill[j] + 1; k < column_fill[j + 1]; ++k) {
            std::uint32_t a = slots[k - 1], b = slots[k];
            if (solver_row[entry_rows_[a]] == solver_row[entry_rows_[b]]) {
                std::uint32_t first = std::min(entry_lines_[a], entry_lines_[b]);
                std::uint32_t second = std::max(entry_lines_[a], entry_lines_[b]);
                repeated(name_, second, first, "coordinate");
            }
        }
    }

    // A = -(sign g coefficient), b = sign g constant; then each rotated pair (g0, g1)
    // becomes ((g0 + g1) / sqrt 2, (g0 - g1) / sqrt 2). Exact zeros are dropped.
    problem->m = m;
    problem->n = n;
    problem->column_starts.assign(static_cast<std::size_t>(n) + 1, 0);
    problem->row_indices.clear();
    problem->values.clear();
    problem->row_indices.reserve(kept + (rotated_heads.empty() ? 0 : kept / 2));
    problem->values.reserve(problem->row_indices.capacity());
    auto emit = [&](std::int32_t row, double value) {
        if (value == 0.0) return;
        problem->row_indices.push_back(row);
        problem->values.push_back(value);
    };
    for (std::int32_t j = 0; j < n; ++j) {
        const std::int64_t end = column_fill[j + 1];
        for (std::int64_t k = column_fill[j]; k < end; ++k) {
            const std::uint32_t e = slots[k];
            const std::int32_t file_row = entry_rows_[e];
            const std::int32_t r = solver_row[file_row];
            const double a = -sign[file_row] * entry_values_[e];
            if (rotated[r] == 0) {
                emit(r, a);
                continue;
            }
            // Gather the pair (a0, a1) of rows (head, head + 1).
            std::int32_t head = rotated[r] == 1 ? r : r - 1;
            double a0 = 0.0, a1 = 0.0;
            if (rotated[r] == 1) {
                a0 = a;
                if (k + 1 < end && solver_row[entry_rows_[slots[k + 1]]] == head + 1) {
                    a1 = -entry_values_[slots[k + 1]];
                    ++k;
                }
            } else {
                a1 = a;
            }
            emit(head, (a0 + a1) * root_half);
            emit(head + 1, (a0 - a1) * root_half);
        }
        problem->column_starts[j + 1] = static_cast<std::int32_t>(problem->values.size());
    }

    problem->b.assign(static_cast<std::size_t>(m), 0.0);
    for (std::int32_t i = 0; i < total_rows_; ++i) {
        if (solver_row[i] >= 0) problem->b[solver_row[i]] = sign[i] * constants_[i];
    }
    for (std::int32_t head : rotated_heads) {
        double g0 = problem->b[head], g1 = problem->b[head + 1];
        problem->b[head] = (g0 + g1) * root_half;
        problem->b[head + 1] = (g0 - g1) * root_half;
    }
    problem->c = costs_;
    solver_rows_ = std::move(solver_row);
}
