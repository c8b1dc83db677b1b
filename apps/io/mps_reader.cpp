// MPS, in fixed or free columns. Sections: NAME, OBJSENSE, ROWS, COLUMNS, RHS, RANGES,
// BOUNDS, ENDATA. The first N row is the objective; other N rows are ignored. An RHS on
// the objective row is minus a constant of the objective.
//
// Fixed MPS puts its fields in columns 2-3, 5-12, 15-22, 25-36, 40-47 and 50-61, so that
// a name may hold blanks and an RHS, RANGES or BOUNDS line may leave its set name empty.
// Free MPS splits on blanks; there an empty set name shows as one field fewer, which is
// how the netlib files with blank RHS set names read correctly either way. A file whose
// data lines all fit the fixed columns is read as fixed; should that reading fail, it
// is read as free as well, and the reading that got further reports.
//
// Rows of the solver, for a row a'x with right-hand side r and range R:
//   E: r - a'x = 0;  L: r - a'x >= 0;  G: a'x - r >= 0;
//   with a range: lo <= a'x <= hi as a'x - lo >= 0 and hi - a'x >= 0 (E: R > 0 gives
//   [r, r + R], R < 0 gives [r + R, r]; L: [r - |R|, r]; G: [r, r + |R|]).
// Bounds (default 0 <= x): x - lo >= 0 and up - x >= 0 for the finite ones, x = v for
// equal bounds. UP with a negative value on a column whose lower bound was not given
// makes the lower bound minus infinity, with a warning.
#include <cmath>
#include <cstdio>
#include <limits>
#include <string>
#include <unordered_map>
#include <vector>

#include "io/readers.h"
#include "io/text_input.h"

using namespace korvex;

namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();

enum class Section { None, ObjSense, Rows, Columns, Rhs, Ranges, Bounds, End };

// The six fields of a data line in the positions of fixed MPS; empty when absent.
struct Fields {
    std::string_view f[6];
};

bool fitsFixedColumns(std::string_view line) {
    if (line.size() > 61) return false;
    static const int kGaps[] = {0, 3, 12, 13, 22, 23, 36, 37, 38, 47, 48};
    for (int g : kGaps) {
        if (g < static_cast<int>(line.size()) && !isBlank(line[g])) return false;
    }
    return true;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
    while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
    return text;
}

Fields fixedFields(std::string_view line) {
    static const int kStart[] = {1, 4, 14, 24, 39, 49};
    static const int kLength[] = {2, 8, 8, 12, 8, 12};
    Fields fields;
    for (int k = 0; k < 6; ++k) {
        if (kStart[k] < static_cast<int>(line.size())) fields.f[k] = trimmed(line.substr(kStart[k], kLength[k]));
    }
    return fields;
}

struct RowInfo {
    char type;  // 'N', 'E', 'L', 'G'
    double rhs = 0.0;
    double range = 0.0;
    std::uint32_t rhs_line = 0;
    std::uint32_t range_line = 0;
};

struct Coefficient {
    std::int32_t row;
    std::int32_t column;
    double value;
    std::uint32_t line;
};

class MpsReader {
public:
    MpsReader(const TextSource& source, bool fixed) : cursor_(source), fixed_(fixed) {}

    ConicProblem read();
    long lineNumber() const { return cursor_.lineNumber(); }

private:
    Fields split(std::string_view line);
    void header(std::string_view line);
    void rowLine(const Fields& fields);
    void columnLine(const Fields& fields);
    void rhsLine(const Fields& fields, bool ranges);
    void boundLine(const Fields& fields);
    double number(std::string_view text, const char* what);
    bool inFirstSet(std::string_view name, std::string* first);
    std::int32_t rowOf(std::string_view name);
    std::int32_t columnOf(std::string_view name);
    ConicProblem build();

    LineCursor cursor_;
    bool fixed_;
    Section section_ = Section::None;
    bool seen_rows_ = false;
    bool maximise_ = false;
    std::unordered_map<std::string, std::int32_t> row_index_;
    std::vector<RowInfo> rows_;
    std::int32_t objective_ = -1;
    std::unordered_map<std::string, std::int32_t> column_index_;
    std::vector<std::string> column_names_;
    std::vector<double> cost_;
    std::vector<std::uint32_t> cost_line_;
    std::vector<Coefficient> coefficients_;
    std::vector<double> lower_, upper_;
    std::vector<char> lower_given_;
    std::string rhs_set_, range_set_, bound_set_;  // the first set name of each section
};

Fields MpsReader::split(std::string_view line) {
    if (fixed_) return fixedFields(line);
    std::string_view tokens[7];
    int count = 0;
    FieldReader reader(line, cursor_);
    for (std::string_view token = reader.next(); !token.empty(); token = reader.next()) {
        if (count == 6) cursor_.fail("too many fields on the line");
        tokens[count++] = token;
    }
    Fields fields;
    switch (section_) {
        case Section::Rows:
            if (count != 2) cursor_.fail("a ROWS line has a type and a name");
            fields.f[0] = tokens[0];
            fields.f[1] = tokens[1];
            break;
        case Section::Columns:
            if (count == 3 && tokens[1] == "'MARKER'") cursor_.fail("integer markers are not supported: korvex solves continuous problems");
            if (count != 3 && count != 5) cursor_.fail("a COLUMNS line has a column, then one or two row and value pairs");
            for (int k = 0; k < count; ++k) fields.f[k + 1] = tokens[k];
            break;
        case Section::Rhs:
        case Section::Ranges: {
            if (count < 2 || count > 5) cursor_.fail("expected [set] row value [row value]");
            const int shift = count % 2 == 0 ? 2 : 1;  // an even count has no set name
            for (int k = 0; k < count; ++k) fields.f[k + shift] = tokens[k];
            break;
        }
        case Section::Bounds: {
            if (count < 2 || count > 4) cursor_.fail("expected type [set] column [value]");
            fields.f[0] = tokens[0];
            const bool valued = tokens[0] == "UP" || tokens[0] == "LO" || tokens[0] == "FX";
            const bool has_set = valued ? count == 4 : count >= 3;
            int k = 1;
            if (has_set) fields.f[1] = tokens[k++];
            if (k < count) fields.f[2] = tokens[k++];
            if (k < count) fields.f[3] = tokens[k++];
            if (k < count) cursor_.fail("unexpected field " + quoted(tokens[k]));
            break;
        }
        default:
            for (int k = 0; k < count && k < 6; ++k) fields.f[k] = tokens[k];
    }
    return fields;
}

double MpsReader::number(std::string_view text, const char* what) {
    if (text.empty()) cursor_.fail(std::string("missing ") + what);
    double value;
    if (!parseReal(text, &value)) cursor_.fail(std::string(what) + " is not a finite number: " + quoted(text));
    return value;
}

// Only the first named set of RHS, RANGES or BOUNDS is used; a line without a set name
// belongs to whatever set is in use.
bool MpsReader::inFirstSet(std::string_view name, std::string* first) {
    if (name.empty()) return true;
    if (first->empty()) *first = std::string(name);
    return name == *first;
}

std::int32_t MpsReader::rowOf(std::string_view name) {
    if (name.empty()) cursor_.fail("missing row name");
    auto found = row_index_.find(std::string(name));
    if (found == row_index_.end()) cursor_.fail("unknown row " + quoted(name));
    return found->second;
}

std::int32_t MpsReader::columnOf(std::string_view name) {
    if (name.empty()) cursor_.fail("missing column name");
    auto found = column_index_.find(std::string(name));
    if (found == column_index_.end()) cursor_.fail("unknown column " + quoted(name));
    return found->second;
}

void MpsReader::header(std::string_view line) {
    FieldReader fields(line, cursor_);
    std::string_view word = fields.next();
    auto only = [&]() { fields.finish(std::string(word).c_str()); };
    if (word == "NAME") {
        section_ = Section::None;  // the rest of the line is the model's name
    } else if (word == "OBJSENSE") {
        std::string_view sense = fields.next();
        section_ = Section::ObjSense;
        if (!sense.empty()) {
            if (sense != "MIN" && sense != "MAX" && sense != "MINIMIZE" && sense != "MAXIMIZE") {
                cursor_.fail("objective sense must be MIN or MAX, not " + quoted(sense));
            }
            maximise_ = sense[1] == 'A';
            section_ = Section::None;
        }
    } else if (word == "ROWS") {
        only();
        section_ = Section::Rows;
        seen_rows_ = true;
    } else if (word == "COLUMNS") {
        only();
        if (!seen_rows_) cursor_.fail("COLUMNS before ROWS");
        section_ = Section::Columns;
    } else if (word == "RHS" || word == "RANGES" || word == "BOUNDS") {
        only();
        if (column_names_.empty() && !seen_rows_) cursor_.fail(std::string(word) + " before ROWS and COLUMNS");
        section_ = word == "RHS" ? Section::Rhs : word == "RANGES" ? Section::Ranges : Section::Bounds;
    } else if (word == "ENDATA") {
        section_ = Section::End;
    } else {
        cursor_.fail("section " + quoted(word) + " is not supported");
    }
}

void MpsReader::rowLine(const Fields& fields) {
    std::string_view type = fields.f[0];
    std::string_view name = fields.f[1];
    if (type.size() != 1 || std::string_view("NELG").find(type[0]) == std::string_view::npos) {
        cursor_.fail("row type must be N, E, L or G, not " + quoted(type));
    }
    if (name.empty()) cursor_.fail("missing row name");
    auto [where, fresh] = row_index_.emplace(std::string(name), static_cast<std::int32_t>(rows_.size()));
    if (!fresh) cursor_.fail("row " + quoted(name) + " declared twice");
    if (type[0] == 'N' && objective_ < 0) objective_ = where->second;
    rows_.push_back(RowInfo{type[0]});
}

void MpsReader::columnLine(const Fields& fields) {
    if (fields.f[2] == "'MARKER'") cursor_.fail("integer markers are not supported: korvex solves continuous problems");
    std::string_view name = fields.f[1];
    if (name.empty()) cursor_.fail("missing column name");
    auto [where, fresh] = column_index_.emplace(std::string(name), static_cast<std::int32_t>(column_names_.size()));
    if (fresh) {
        if (column_names_.size() >= static_cast<std::size_t>(std::numeric_limits<std::int32_t>::max())) cursor_.fail("too many columns");
        column_names_.emplace_back(name);
        cost_.push_back(0.0);
        cost_line_.push_back(0);
        lower_.push_back(0.0);
        upper_.push_back(kInfinity);
        lower_given_.push_back(0);
    }
    const std::int32_t column = where->second;
    const auto line = static_cast<std::uint32_t>(cursor_.lineNumber());
    for (int pair = 0; pair < 2; ++pair) {
        std::string_view row_name = fields.f[2 + 2 * pair];
        if (row_name.empty()) {
            if (pair == 0) cursor_.fail("missing row name");
            if (!fields.f[5].empty()) cursor_.fail("a value without a row name");
            break;
        }
        const std::int32_t row = rowOf(row_name);
        const double value = number(fields.f[3 + 2 * pair], "coefficient");
        if (row == objective_) {
            if (cost_line_[column] != 0) {
                cursor_.fail("duplicate coordinate: already given on line " + std::to_string(cost_line_[column]));
            }
            cost_[column] = value;
            cost_line_[column] = line;
        } else if (rows_[row].type != 'N') {
            coefficients_.push_back(Coefficient{row, column, value, line});
        }
    }
}

void MpsReader::rhsLine(const Fields& fields, bool ranges) {
    if (!inFirstSet(fields.f[1], ranges ? &range_set_ : &rhs_set_)) return;
    for (int pair = 0; pair < 2; ++pair) {
        std::string_view row_name = fields.f[2 + 2 * pair];
        if (row_name.empty()) {
            if (pair == 0) cursor_.fail("missing row name");
            break;
        }
        RowInfo& row = rows_[rowOf(row_name)];
        const double value = number(fields.f[3 + 2 * pair], ranges ? "range" : "right-hand side");
        std::uint32_t& given = ranges ? row.range_line : row.rhs_line;
        if (given != 0) cursor_.fail(std::string("duplicate ") + (ranges ? "range" : "right-hand side") +
                                     ": already given on line " + std::to_string(given));
        if (ranges && row.type == 'N') cursor_.fail("a range on a free row");
        given = static_cast<std::uint32_t>(cursor_.lineNumber());
        (ranges ? row.range : row.rhs) = value;
    }
}

void MpsReader::boundLine(const Fields& fields) {
    std::string_view type = fields.f[0];
    if (!inFirstSet(fields.f[1], &bound_set_)) return;
    if (type == "BV" || type == "LI" || type == "UI" || type == "SC") {
        cursor_.fail("integer bound type " + std::string(type) + " is not supported: korvex solves continuous problems");
    }
    const std::int32_t j = columnOf(fields.f[2]);
    if (type == "UP" || type == "LO" || type == "FX") {
        const double value = number(fields.f[3], "bound");
        if (type == "UP") {
            upper_[j] = value;
            if (value < 0.0 && !lower_given_[j] && lower_[j] == 0.0) {
                lower_[j] = -kInfinity;
                std::fprintf(stderr, "%s:%ld: warning: negative upper bound on %s with the default lower bound 0: the lower bound becomes -infinity\n",
                             cursor_.name().c_str(), cursor_.lineNumber(), column_names_[j].c_str());
            }
        } else if (type == "LO") {
            lower_[j] = value;
            lower_given_[j] = 1;
        } else {
            lower_[j] = upper_[j] = value;
            lower_given_[j] = 1;
        }
    } else if (type == "FR") {
        lower_[j] = -kInfinity;
        upper_[j] = kInfinity;
        lower_given_[j] = 1;
    } else if (type == "MI") {
        lower_[j] = -kInfinity;
        lower_given_[j] = 1;
    } else if (type == "PL") {
        upper_[j] = kInfinity;
    } else {
        cursor_.fail("unknown bound type " + quoted(type));
    }
    if (!fields.f[4].empty() || !fields.f[5].empty()) cursor_.fail("unexpected fields after the bound");
}

ConicProblem MpsReader::read() {
    while (cursor_.advance()) {
        std::string_view line = cursor_.line();
        if (line.empty() || line[0] == '*') continue;
        if (!isBlank(line[0])) {
            header(line);
            if (section_ == Section::End) break;
            continue;
        }
        if (trimmed(line).empty()) continue;
        if (section_ == Section::ObjSense) {
            std::string_view sense = trimmed(line);
            if (sense != "MIN" && sense != "MAX" && sense != "MINIMIZE" && sense != "MAXIMIZE") {
                cursor_.fail("objective sense must be MIN or MAX, not " + quoted(sense));
            }
            maximise_ = sense[1] == 'A';
            section_ = Section::None;
            continue;
        }
        const Fields fields = split(line);
        switch (section_) {
            case Section::Rows: rowLine(fields); break;
            case Section::Columns: columnLine(fields); break;
            case Section::Rhs: rhsLine(fields, false); break;
            case Section::Ranges: rhsLine(fields, true); break;
            case Section::Bounds: boundLine(fields); break;
            default: cursor_.fail("data line outside of a section");
        }
    }
    if (section_ != Section::End) failAt(cursor_.name(), cursor_.lineNumber(), "the file ends without ENDATA");
    if (column_names_.empty()) failAt(cursor_.name(), cursor_.lineNumber(), "the problem has no columns");
    return build();
}

ConicProblem MpsReader::build() {
    const auto n = static_cast<std::int32_t>(column_names_.size());
    ProblemBuilder builder(n, cursor_.name());

    // Each MPS row becomes one or two solver rows g = sign a'x + constant.
    struct Target {
        std::int32_t row;
        double sign;
    };
    std::vector<Target> first(rows_.size(), Target{-1, 0.0}), second(rows_.size(), Target{-1, 0.0});
    std::vector<double> first_constant(rows_.size(), 0.0), second_constant(rows_.size(), 0.0);
    std::int32_t equalities = 0, inequalities = 0;
    std::vector<std::pair<double, double>> interval(rows_.size());
    for (std::size_t r = 0; r < rows_.size(); ++r) {
        const RowInfo& row = rows_[r];
        if (row.type == 'N') continue;
        double lo = row.rhs, hi = row.rhs;
        const double R = std::fabs(row.range);
        if (row.type == 'L') lo = row.range_line ? row.rhs - R : -kInfinity;
        if (row.type == 'G') hi = row.range_line ? row.rhs + R : kInfinity;
        if (row.type == 'E' && row.range_line) (row.range > 0 ? hi : lo) = row.rhs + row.range;
        interval[r] = {lo, hi};
        if (lo == hi) {
            ++equalities;
        } else {
            inequalities += (std::isfinite(lo) ? 1 : 0) + (std::isfinite(hi) ? 1 : 0);
        }
    }
    std::int32_t bound_equalities = 0, bound_inequalities = 0;
    for (std::int32_t j = 0; j < n; ++j) {
        if (lower_[j] == upper_[j]) {
            ++bound_equalities;
        } else {
            bound_inequalities += (std::isfinite(lower_[j]) ? 1 : 0) + (std::isfinite(upper_[j]) ? 1 : 0);
        }
    }
    std::int32_t zero_row = equalities + bound_equalities > 0 ? builder.addBlock(BlockCone::Zero, equalities + bound_equalities) : 0;
    std::int32_t nonneg_row = inequalities + bound_inequalities > 0
                                  ? builder.addBlock(BlockCone::NonNegative, inequalities + bound_inequalities)
                                  : 0;
    for (std::size_t r = 0; r < rows_.size(); ++r) {
        if (rows_[r].type == 'N') continue;
        const auto [lo, hi] = interval[r];
        if (lo == hi) {  // r - a'x = 0
            first[r] = Target{zero_row++, -1.0};
            first_constant[r] = hi;
            continue;
        }
        if (std::isfinite(lo)) {  // a'x - lo >= 0
            first[r] = Target{nonneg_row++, 1.0};
            first_constant[r] = -lo;
        }
        if (std::isfinite(hi)) {  // hi - a'x >= 0
            Target& slot = first[r].row < 0 ? first[r] : second[r];
            (first[r].row < 0 ? first_constant[r] : second_constant[r]) = hi;
            slot = Target{nonneg_row++, -1.0};
        }
    }
    builder.reserve(coefficients_.size() * 2 + static_cast<std::size_t>(n));
    for (const Coefficient& a : coefficients_) {
        const Target& one = first[a.row];
        const Target& two = second[a.row];
        if (one.row >= 0) builder.addEntry(one.row, a.column, one.sign * a.value, a.line);
        if (two.row >= 0) builder.addEntry(two.row, a.column, two.sign * a.value, a.line);
    }
    for (std::size_t r = 0; r < rows_.size(); ++r) {
        const auto line = rows_[r].rhs_line ? rows_[r].rhs_line : 1;
        if (first[r].row >= 0 && first_constant[r] != 0.0) builder.addConstant(first[r].row, first_constant[r], line);
        if (second[r].row >= 0 && second_constant[r] != 0.0) builder.addConstant(second[r].row, second_constant[r], line);
    }
    for (std::int32_t j = 0; j < n; ++j) {
        if (lower_[j] == upper_[j]) {  // v - x = 0
            builder.addEntry(zero_row, j, -1.0, 0);
            builder.addConstant(zero_row++, upper_[j], 0);
            continue;
        }
        if (std::isfinite(lower_[j])) {  // x - lo >= 0
            builder.addEntry(nonneg_row, j, 1.0, 0);
            builder.addConstant(nonneg_row++, -lower_[j], 0);
        }
        if (std::isfinite(upper_[j])) {  // up - x >= 0
            builder.addEntry(nonneg_row, j, -1.0, 0);
            builder.addConstant(nonneg_row++, upper_[j], 0);
        }
    }
    const double sense = maximise_ ? -1.0 : 1.0;
    for (std::int32_t j = 0; j < n; ++j) builder.addCost(j, sense * cost_[j], cost_line_[j]);

    ConicProblem problem;
    problem.source = cursor_.name();
    problem.format = "MPS";
    problem.maximise = maximise_;
    problem.objective_constant = objective_ >= 0 ? -rows_[objective_].rhs : 0.0;
    problem.scalar_variables = n;
    problem.variable_names = column_names_;
    builder.finish(&problem);
    return problem;
}

// Whether every data line of the file sits in the fixed columns.
bool looksFixed(const TextSource& source) {
    LineCursor cursor(source);
    while (cursor.advance()) {
        std::string_view line = cursor.line();
        if (line.empty() || line[0] == '*' || !isBlank(line[0])) continue;
        if (!fitsFixedColumns(line)) return false;
    }
    return true;
}

}  // namespace

// A file is read once more for each pass.
ConicProblem readMpsFrom(const TextSource& source) {
    if (!looksFixed(source)) return MpsReader(source, false).read();
    MpsReader fixed(source, true);
    try {
        return fixed.read();
    } catch (const ReadError& fixed_error) {
        MpsReader free(source, false);
        try {
            return free.read();
        } catch (const ReadError&) {
            if (free.lineNumber() > fixed.lineNumber()) throw;
            throw fixed_error;
        }
    }
}
