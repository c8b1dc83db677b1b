// The Conic Benchmark Format. A file is a list of items: a keyword line, for most
// keywords a header line with counts, then body lines. The structure items (VER,
// POWCONES, POW*CONES, OBJSENSE, PSDVAR, VAR, PSDCON, CON) come before the data items
// (OBJFCOORD, OBJACOORD, OBJBCOORD, FCOORD, ACOORD, BCOORD, HCOORD, DCOORD). Every row g
// of a constraint is an affine expression, "coefficients plus constant", in the cone of
// its block; matrix coordinates (k, l) stand for both (k, l) and (l, k).
//
// Columns of the solver: the scalar variables in file order, then the packed entries of
// each matrix variable. Rows, in builder order: the CON rows (so that CBF row i is
// builder row i), the PSDCON matrices, the cones of the VAR section on their variables,
// and the semidefinite cone of each matrix variable.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <map>
#include <memory>
#include <vector>

#include "io/readers.h"
#include "io/text_input.h"

using namespace korvex;

namespace {

constexpr std::int64_t kMaxCount = std::numeric_limits<std::int32_t>::max();

struct ConeBlock {
    BlockCone cone;
    std::int32_t size;
    double exponent;
};

bool isKeywordLine(std::string_view line) {
    static const char* const kKeywords[] = {"VER",    "POWCONES", "POW*CONES", "OBJSENSE", "PSDVAR",    "VAR",
                                            "INT",    "PSDCON",   "CON",       "OBJFCOORD", "OBJACOORD", "OBJBCOORD",
                                            "FCOORD", "ACOORD",   "BCOORD",    "HCOORD",    "DCOORD",    "CHANGE"};
    for (const char* keyword : kKeywords) {
        if (line == keyword) return true;
    }
    return false;
}

class CbfReader {
public:
    explicit CbfReader(const TextSource& source) : cursor_(source), text_size_(cursor_.sizeHint()) {}

    ConicProblem read();

private:
    // The next line of the current item; fails at the end of the file or at a keyword.
    std::string_view bodyLine(const char* keyword, std::int64_t done, std::int64_t count);
    // One line with one count (or two) of an item's header.
    std::int64_t headerCount(const char* keyword, const char* what);

    void readPowerCones(std::vector<std::vector<double>>* table, const char* keyword);
    std::int32_t readConeList(const char* keyword, std::vector<ConeBlock>* blocks);
    ConeBlock coneOfName(std::string_view name, std::int64_t size);
    void readSides(const char* keyword, std::vector<std::int32_t>* sides);

    void startData();
    void readCoordinates(const std::string& keyword);
    std::int32_t packed(FieldReader& fields, std::int32_t side, double* scale);

    LineCursor cursor_;
    std::size_t text_size_;
    std::map<std::string, long> seen_;
    int version_ = 0;
    bool sense_given_ = false;
    bool maximise_ = false;
    std::vector<std::vector<double>> power_table_, dual_power_table_;
    std::vector<std::int32_t> matrix_sides_, lmi_sides_;
    std::vector<ConeBlock> var_blocks_, con_blocks_;
    std::int32_t variables_ = 0, rows_ = 0;

    std::unique_ptr<ProblemBuilder> builder_;
    std::vector<std::int32_t> matrix_offsets_, lmi_rows_;
    bool constant_given_ = false;
    double objective_constant_ = 0.0;
};

std::string_view CbfReader::bodyLine(const char* keyword, std::int64_t done, std::int64_t count) {
    if (!cursor_.advanceSkipping("#")) {
        cursor_.fail(std::string(keyword) + ": the file ends after " + std::to_string(done) + " of " + std::to_string(count) +
                     " lines");
    }
    if (isKeywordLine(cursor_.line())) {
        cursor_.fail(std::string(keyword) + " announces " + std::to_string(count) + " lines but " + std::to_string(done) +
                     " come before " + std::string(cursor_.line()));
    }
    return cursor_.line();
}

std::int64_t CbfReader::headerCount(const char* keyword, const char* what) {
    FieldReader fields(bodyLine(keyword, 0, 1), cursor_);
    std::int64_t value = fields.integer(what);
    if (value < 0 || value > kMaxCount) cursor_.fail(std::string(what) + " out of range: " + std::to_string(value));
    fields.finish(what);
    return value;
}

void CbfReader::readPowerCones(std::vector<std::vector<double>>* table, const char* keyword) {
    FieldReader header(bodyLine(keyword, 0, 1), cursor_);
    const long header_line = cursor_.lineNumber();
    std::int64_t cones = header.integer("number of parameter vectors");
    std::int64_t total = header.integer("number of parameters");
    header.finish("the number of parameters");
    if (cones < 0 || total < 0 || cones > kMaxCount || total > kMaxCount) cursor_.fail("negative or huge count");
    std::int64_t read = 0;
    for (std::int64_t k = 0; k < cones; ++k) {
        FieldReader length_line(bodyLine(keyword, k, cones), cursor_);
        std::int64_t length = length_line.integer("length of a parameter vector");
        length_line.finish("the length");
        if (length < 1 || read + length > total) {
            cursor_.fail("parameter vector of length " + std::to_string(length) + " does not fit the " +
                         std::to_string(total) + " parameters of the header");
        }
        std::vector<double> alphas;
        for (std::int64_t i = 0; i < length; ++i) {
            FieldReader value(bodyLine(keyword, read, total), cursor_);
            double alpha = value.real("parameter");
            value.finish("the parameter");
            if (!(alpha > 0.0)) cursor_.fail("power cone parameters must be positive");
            alphas.push_back(alpha);
            ++read;
        }
        table->push_back(std::move(alphas));
    }
    if (read != total) failAt(cursor_.name(), header_line, "the header announces " + std::to_string(total) +
                                                             " parameters but the vectors hold " + std::to_string(read));
}

ConeBlock CbfReader::coneOfName(std::string_view name, std::int64_t size) {
    auto need = [&](bool ok, const std::string& text) {
        if (!ok) cursor_.fail("cone " + std::string(name) + " of dimension " + std::to_string(size) + ": " + text);
    };
    if (name == "F") return {BlockCone::Free, static_cast<std::int32_t>(size), 0.0};
    if (name == "L+") return {BlockCone::NonNegative, static_cast<std::int32_t>(size), 0.0};
    if (name == "L-") return {BlockCone::NonPositive, static_cast<std::int32_t>(size), 0.0};
    if (name == "L=") return {BlockCone::Zero, static_cast<std::int32_t>(size), 0.0};
    if (name == "Q") return {BlockCone::SecondOrder, static_cast<std::int32_t>(size), 0.0};
    if (name == "QR") {
        need(size >= 2, "a rotated cone needs at least 2 entries");
        return {BlockCone::Rotated, static_cast<std::int32_t>(size), 0.0};
    }
    if (name == "EXP" || name == "EXP*") {
        need(size == 3, "an exponential cone has 3 entries");
        return {name == "EXP" ? BlockCone::Exponential : BlockCone::DualExponential, 3, 0.0};
    }
    if (name.size() > 1 && name[0] == '@') {
        std::size_t colon = name.find(':');
        std::string_view kind = colon == std::string_view::npos ? std::string_view() : name.substr(colon + 1);
        std::int64_t k = -1;
        if ((kind == "POW" || kind == "POW*") && parseInteger(name.substr(1, colon - 1), &k)) {
            const bool dual = kind == "POW*";
            const auto& table = dual ? dual_power_table_ : power_table_;
            if (k < 0 || k >= static_cast<std::int64_t>(table.size())) {
                cursor_.fail("cone " + std::string(name) + " refers to parameter vector " + std::to_string(k) + " but " +
                             (dual ? "POW*CONES" : "POWCONES") + " lists " + std::to_string(table.size()));
            }
            const std::vector<double>& alpha = table[k];
            need(size == 3 && alpha.size() == 2,
                 "only power cones of dimension 3 with 2 parameters are supported (this one has " +
                     std::to_string(alpha.size()) + ")");
            // Parameters far apart in size round to an exponent of 0 or 1, a cone the
            // solver cannot take (and a file that could not be written back).
            const double exponent = alpha[0] / (alpha[0] + alpha[1]);
            need(exponent > 0.0 && exponent < 1.0, "its parameters give the exponent " + std::to_string(exponent) +
                                                       ", which must lie strictly between 0 and 1");
            return {dual ? BlockCone::DualPower : BlockCone::Power, 3, exponent};
        }
    }
    if (name == "SVECPSD") cursor_.fail("cone SVECPSD (CBF version 4) is not supported");
    cursor_.fail("unknown cone " + quoted(name));
}

std::int32_t CbfReader::readConeList(const char* keyword, std::vector<ConeBlock>* blocks) {
    FieldReader header(bodyLine(keyword, 0, 1), cursor_);
    const long header_line = cursor_.lineNumber();
    std::int64_t total = header.integer("number of entries");
    std::int64_t count = header.integer("number of cones");
    header.finish("the number of cones");
    if (total < 0 || count < 0 || total > kMaxCount || count > total) {
        cursor_.fail("impossible counts " + std::to_string(total) + " " + std::to_string(count));
    }
    std::int64_t covered = 0;
    for (std::int64_t k = 0; k < count; ++k) {
        FieldReader fields(bodyLine(keyword, k, count), cursor_);
        std::string_view name = fields.next();
        std::int64_t size = fields.integer("cone dimension");
        fields.finish("the cone dimension");
        if (size < 1 || covered + size > total) {
            cursor_.fail("cone dimension " + std::to_string(size) + " does not fit the " + std::to_string(total) +
                         " entries of the header");
        }
        blocks->push_back(coneOfName(name, size));
        covered += size;
    }
    if (covered != total) {
        failAt(cursor_.name(), header_line,
               "the header announces " + std::to_string(total) + " entries but the cones cover " + std::to_string(covered));
    }
    return static_cast<std::int32_t>(total);
}

void CbfReader::readSides(const char* keyword, std::vector<std::int32_t>* sides) {
    std::int64_t count = headerCount(keyword, "number of matrices");
    for (std::int64_t k = 0; k < count; ++k) {
        FieldReader fields(bodyLine(keyword, k, count), cursor_);
        std::int32_t side = fields.index("matrix side", 1, 65535);
        fields.finish("the matrix side");
        sides->push_back(side);
    }
}

// Builds the rows and columns once the structure is complete.
void CbfReader::startData() {
    std::int64_t columns = variables_;
    for (std::int32_t side : matrix_sides_) {
        matrix_offsets_.push_back(static_cast<std::int32_t>(columns));
        columns += static_cast<std::int64_t>(side) * (side + 1) / 2;
        if (columns > kMaxCount) cursor_.fail("more variables than the solver can hold");
    }
    builder_ = std::make_unique<ProblemBuilder>(static_cast<std::int32_t>(columns), cursor_.name());
    for (const ConeBlock& block : con_blocks_) builder_->addBlock(block.cone, block.size, block.exponent);
    for (std::int32_t side : lmi_sides_) lmi_rows_.push_back(builder_->addBlock(BlockCone::Semidefinite, side));
    // The cones of the VAR section: g = x on each block's variables.
    std::int32_t column = 0;
    for (const ConeBlock& block : var_blocks_) {
        if (block.cone != BlockCone::Free) {
            std::int32_t row = builder_->addBlock(block.cone, block.size, block.exponent);
            for (std::int32_t k = 0; k < block.size; ++k) builder_->addEntry(row + k, column + k, 1.0, 0);
        }
        column += block.size;
    }
    // Each matrix variable lies in the semidefinite cone: g = its packed entries.
    for (std::size_t k = 0; k < matrix_sides_.size(); ++k) {
        std::int32_t row = builder_->addBlock(BlockCone::Semidefinite, matrix_sides_[k]);
        std::int32_t size = matrix_sides_[k] * (matrix_sides_[k] + 1) / 2;
        for (std::int32_t e = 0; e < size; ++e) builder_->addEntry(row + e, matrix_offsets_[k] + e, 1.0, 0);
    }
}

// Reads "k l" of a matrix of the given side: the packed index of (max, min) and the
// factor sqrt(2) of an off-diagonal entry.
std::int32_t CbfReader::packed(FieldReader& fields, std::int32_t side, double* scale) {
    std::int32_t k = fields.index("matrix row", 0, side - 1);
    std::int32_t l = fields.index("matrix column", 0, side - 1);
    *scale = k == l ? 1.0 : std::sqrt(2.0);
    if (k < l) std::swap(k, l);
    return static_cast<std::int32_t>(packedIndex(k, l, side));
}

void CbfReader::readCoordinates(const std::string& keyword) {
    const char* key = keyword.c_str();
    const double sense = maximise_ ? -1.0 : 1.0;
    const std::int32_t matrices = static_cast<std::int32_t>(matrix_sides_.size());
    const std::int32_t lmis = static_cast<std::int32_t>(lmi_sides_.size());
    if (keyword == "OBJBCOORD") {
        FieldReader fields(bodyLine(key, 0, 1), cursor_);
        objective_constant_ = fields.real("objective constant");
        fields.finish("the objective constant");
        constant_given_ = true;
        return;
    }
    const std::int64_t count = headerCount(key, "number of coordinates");
    // A coordinate line takes at least 6 bytes: the count is trusted only that far.
    if (keyword == "ACOORD") builder_->reserve(std::min(static_cast<std::size_t>(count), text_size_ / 6) + static_cast<std::size_t>(variables_));
    double scale = 1.0;
    for (std::int64_t e = 0; e < count; ++e) {
        FieldReader fields(bodyLine(key, e, count), cursor_);
        const auto line = static_cast<std::uint32_t>(cursor_.lineNumber());
        if (keyword == "ACOORD") {
            std::int32_t i = fields.index("row", 0, rows_ - 1);
            std::int32_t j = fields.index("variable", 0, variables_ - 1);
            builder_->addEntry(i, j, fields.real("coefficient"), line);
        } else if (keyword == "BCOORD") {
            std::int32_t i = fields.index("row", 0, rows_ - 1);
            builder_->addConstant(i, fields.real("constant"), line);
        } else if (keyword == "OBJACOORD") {
            std::int32_t j = fields.index("variable", 0, variables_ - 1);
            builder_->addCost(j, sense * fields.real("coefficient"), line);
        } else if (keyword == "OBJFCOORD") {
            std::int32_t j = fields.index("matrix variable", 0, matrices - 1);
            std::int32_t p = packed(fields, matrix_sides_[j], &scale);
            builder_->addCost(matrix_offsets_[j] + p, sense * scale * fields.real("coefficient"), line);
        } else if (keyword == "FCOORD") {
            std::int32_t i = fields.index("row", 0, rows_ - 1);
            std::int32_t j = fields.index("matrix variable", 0, matrices - 1);
            std::int32_t p = packed(fields, matrix_sides_[j], &scale);
            builder_->addEntry(i, matrix_offsets_[j] + p, scale * fields.real("coefficient"), line);
        } else if (keyword == "HCOORD") {
            std::int32_t i = fields.index("matrix constraint", 0, lmis - 1);
            std::int32_t j = fields.index("variable", 0, variables_ - 1);
            std::int32_t p = packed(fields, lmi_sides_[i], &scale);
            builder_->addEntry(lmi_rows_[i] + p, j, scale * fields.real("coefficient"), line);
        } else {  // DCOORD
            std::int32_t i = fields.index("matrix constraint", 0, lmis - 1);
            std::int32_t p = packed(fields, lmi_sides_[i], &scale);
            builder_->addConstant(lmi_rows_[i] + p, scale * fields.real("constant"), line);
        }
        fields.finish("the coordinate");
    }
}

ConicProblem CbfReader::read() {
    static const char* const kStructure[] = {"POWCONES", "POW*CONES", "OBJSENSE", "PSDVAR", "VAR", "PSDCON", "CON"};
    static const char* const kData[] = {"OBJFCOORD", "OBJACOORD", "OBJBCOORD", "FCOORD", "ACOORD", "BCOORD", "HCOORD", "DCOORD"};
    while (cursor_.advanceSkipping("#")) {
        const std::string keyword(cursor_.line());
        const long line = cursor_.lineNumber();
        if (!isKeywordLine(keyword)) {
            const char first = keyword.empty() ? ' ' : keyword[0];
            if ((first >= '0' && first <= '9') || first == '-' || first == '+' || first == '.') {
                cursor_.fail("a data line where a keyword is expected (more lines than the count above announces?): " +
                             quoted(keyword));
            }
            cursor_.fail("unknown keyword " + quoted(keyword));
        }
        if (version_ == 0 && keyword != "VER") cursor_.fail("the file must start with VER, not " + keyword);
        auto [where, fresh] = seen_.emplace(keyword, line);
        if (!fresh) cursor_.fail(keyword + " given twice (first on line " + std::to_string(where->second) + ")");

        if (keyword == "VER") {
            FieldReader fields(bodyLine("VER", 0, 1), cursor_);
            std::int64_t version = fields.integer("version");
            fields.finish("the version");
            if (version < 1 || version > 3) {
                cursor_.fail("CBF version " + std::to_string(version) + " is not supported (versions 1 to 3 are)");
            }
            version_ = static_cast<int>(version);
            continue;
        }
        if (keyword == "INT") cursor_.fail("integer variables (INT) are not supported: korvex solves continuous problems");
        if (keyword == "CHANGE") cursor_.fail("CHANGE (a sequence of problems) is not supported");

        bool structure = false;
        for (const char* word : kStructure) structure = structure || keyword == word;
        if (structure && builder_) cursor_.fail(keyword + " must come before the coordinates");

        if (keyword == "POWCONES") {
            readPowerCones(&power_table_, "POWCONES");
        } else if (keyword == "POW*CONES") {
            readPowerCones(&dual_power_table_, "POW*CONES");
        } else if (keyword == "OBJSENSE") {
            FieldReader fields(bodyLine("OBJSENSE", 0, 1), cursor_);
            std::string_view sense = fields.next();
            if (sense != "MIN" && sense != "MAX") cursor_.fail("objective sense must be MIN or MAX, not " + quoted(sense));
            fields.finish("the objective sense");
            maximise_ = sense == "MAX";
            sense_given_ = true;
        } else if (keyword == "PSDVAR") {
            readSides("PSDVAR", &matrix_sides_);
        } else if (keyword == "VAR") {
            variables_ = readConeList("VAR", &var_blocks_);
        } else if (keyword == "PSDCON") {
            readSides("PSDCON", &lmi_sides_);
        } else if (keyword == "CON") {
            rows_ = readConeList("CON", &con_blocks_);
        } else {
            if (!builder_) startData();
            bool data = false;
            for (const char* word : kData) data = data || keyword == word;
            if (data) readCoordinates(keyword);
        }
    }
    if (version_ == 0) failAt(cursor_.name(), cursor_.lineNumber(), "no VER: this is not a CBF file");
    if (!sense_given_) failAt(cursor_.name(), cursor_.lineNumber(), "OBJSENSE is missing");
    if (!builder_) startData();

    ConicProblem problem;
    problem.source = cursor_.name();
    problem.format = "CBF";
    problem.maximise = maximise_;
    problem.objective_constant = constant_given_ ? objective_constant_ : 0.0;
    problem.scalar_variables = variables_;
    problem.matrix_sides = matrix_sides_;
    problem.matrix_offsets = matrix_offsets_;
    builder_->finish(&problem);
    return problem;
}

}  // namespace

ConicProblem readCbfFrom(const TextSource& source) { return CbfReader(source).read(); }
