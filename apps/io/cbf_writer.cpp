// The problem in CBF. The solver's columns become free scalar variables; its scalar rows
// become CON blocks in the solver's order (L=, L+, Q, EXP, EXP*, @k:POW, @k:POW*), its
// semidefinite blocks PSDCON matrices. A row s = b - A x of a scalar block is written as
// g = -A x + b; an exponential triple (r, s, t) goes back to the file order (t, s, r);
// a packed semidefinite row of entry (k, l) is G(k, l) = (b - A x) / sqrt(2) off the
// diagonal. A maximisation keeps its sense: the costs are written as -c.
#include <charconv>
#include <cmath>
#include <map>
#include <string>
#include <vector>

#include "io/readers.h"

using namespace korvex;

namespace {

void appendNumber(std::string* out, double value) {
    char text[32];
    auto [end, error] = std::to_chars(text, text + sizeof text, value);
    out->append(text, error == std::errc() ? end : text);
}

void appendInt(std::string* out, long long value) {
    char text[24];
    auto [end, error] = std::to_chars(text, text + sizeof text, value);
    out->append(text, error == std::errc() ? end : text);
}

// One section of coordinates: the lines and their count.
struct Section {
    std::string lines;
    long long count = 0;

    void add(std::initializer_list<long long> indices, double value) {
        for (long long index : indices) {
            appendInt(&lines, index);
            lines += ' ';
        }
        appendNumber(&lines, value);
        lines += '\n';
        ++count;
    }
};

void appendSection(std::string* out, const char* keyword, const Section& section) {
    if (section.count == 0) return;
    *out += keyword;
    *out += '\n';
    appendInt(out, section.count);
    *out += '\n';
    *out += section.lines;
    *out += '\n';
}

}  // namespace

bool writeCbf(const ConicProblem& p, std::FILE* out) {
    const double root2 = std::sqrt(2.0);
    std::int64_t sd_rows = 0;
    for (std::int32_t side : p.sd_sizes) sd_rows += static_cast<std::int64_t>(side) * (side + 1) / 2;
    const std::int64_t sd_first = p.free_rows + p.linear_rows + [&] {
        std::int64_t total = 0;
        for (std::int32_t size : p.soc_sizes) total += size;
        return total;
    }();
    const std::int64_t sd_end = sd_first + sd_rows;
    const std::int64_t exp_first = sd_end;
    const std::int64_t triples_end = exp_first + 3LL * (p.exp_triples + p.dual_exp_triples);

    // Where each solver row goes: a CON row, or (matrix, k, l) of a PSDCON.
    std::vector<std::int64_t> con_row(static_cast<std::size_t>(p.m), -1);
    std::vector<std::int32_t> lmi(static_cast<std::size_t>(p.m), -1), lmi_k(static_cast<std::size_t>(p.m)), lmi_l(static_cast<std::size_t>(p.m));
    for (std::int64_t r = 0; r < p.m; ++r) {
        if (r < sd_first) {
            con_row[r] = r;
        } else if (r < sd_end) {
            continue;
        } else if (r < triples_end) {
            const std::int64_t base = exp_first + (r - exp_first) / 3 * 3;
            con_row[r] = base - sd_rows + 2 - (r - base);
        } else {
            con_row[r] = r - sd_rows;
        }
    }
    std::int64_t row = sd_first;
    for (std::size_t b = 0; b < p.sd_sizes.size(); ++b) {
        const std::int32_t side = p.sd_sizes[b];
        for (std::int32_t l = 0; l < side; ++l) {
            for (std::int32_t k = l; k < side; ++k, ++row) {
                lmi[row] = static_cast<std::int32_t>(b);
                lmi_k[row] = k;
                lmi_l[row] = l;
            }
        }
    }

    std::string text = "# written by korvex from " + p.source + " (" + p.format + ")\n";
    const int version = !p.power_exponents.empty() ? 3 : (p.exp_triples + p.dual_exp_triples > 0 ? 2 : 1);
    text += "VER\n" + std::to_string(version) + "\n\n";

    // Power cones: one parameter vector (a, 1 - a) per distinct exponent.
    std::map<double, int> primal_power, dual_power;
    for (double a : p.power_exponents) {
        auto& table = a > 0 ? primal_power : dual_power;
        table.emplace(std::fabs(a), 0);
    }
    auto powerTable = [&](const char* keyword, std::map<double, int>& table) {
        if (table.empty()) return;
        text += keyword;
        text += '\n';
        appendInt(&text, static_cast<long long>(table.size()));
        text += ' ';
        appendInt(&text, 2 * static_cast<long long>(table.size()));
        text += '\n';
        int index = 0;
        for (auto& [a, k] : table) {
            k = index++;
            text += "2\n";
            appendNumber(&text, a);
            text += '\n';
            appendNumber(&text, 1.0 - a);
            text += '\n';
        }
        text += '\n';
    };
    powerTable("POWCONES", primal_power);
    powerTable("POW*CONES", dual_power);

    text += p.maximise ? "OBJSENSE\nMAX\n\n" : "OBJSENSE\nMIN\n\n";
    // No variables: no cone either, as a cone of dimension 0 would not read back.
    text += p.n > 0 ? "VAR\n" + std::to_string(p.n) + " 1\nF " + std::to_string(p.n) + "\n\n" : "VAR\n0 0\n\n";
    if (!p.sd_sizes.empty()) {
        text += "PSDCON\n" + std::to_string(p.sd_sizes.size()) + "\n";
        for (std::int32_t side : p.sd_sizes) text += std::to_string(side) + "\n";
        text += '\n';
    }
    std::vector<std::string> cones;
    if (p.free_rows > 0) cones.push_back("L= " + std::to_string(p.free_rows));
    if (p.linear_rows > 0) cones.push_back("L+ " + std::to_string(p.linear_rows));
    for (std::int32_t size : p.soc_sizes) cones.push_back("Q " + std::to_string(size));
    for (std::int32_t k = 0; k < p.exp_triples; ++k) cones.push_back("EXP 3");
    for (std::int32_t k = 0; k < p.dual_exp_triples; ++k) cones.push_back("EXP* 3");
    for (double a : p.power_exponents) {
        cones.push_back(a > 0 ? "@" + std::to_string(primal_power[a]) + ":POW 3"
                              : "@" + std::to_string(dual_power[-a]) + ":POW* 3");
    }
    if (!cones.empty()) {
        text += "CON\n" + std::to_string(p.m - sd_rows) + " " + std::to_string(cones.size()) + "\n";
        for (const std::string& cone : cones) text += cone + "\n";
        text += '\n';
    }

    Section objective, acoord, bcoord, hcoord, dcoord;
    const double sense = p.maximise ? -1.0 : 1.0;
    for (std::int32_t j = 0; j < p.n; ++j) {
        if (p.c[j] != 0.0) objective.add({j}, sense * p.c[j]);
    }
    for (std::int32_t j = 0; j < p.n; ++j) {
        for (std::int32_t e = p.column_starts[j]; e < p.column_starts[j + 1]; ++e) {
            const std::int32_t r = p.row_indices[e];
            const double a = -p.values[e];
            if (lmi[r] < 0) {
                acoord.add({con_row[r], j}, a);
            } else {
                hcoord.add({lmi[r], j, lmi_k[r], lmi_l[r]}, lmi_k[r] == lmi_l[r] ? a : a / root2);
            }
        }
    }
    for (std::int32_t r = 0; r < p.m; ++r) {
        if (p.b[r] == 0.0) continue;
        if (lmi[r] < 0) {
            bcoord.add({con_row[r]}, p.b[r]);
        } else {
            dcoord.add({lmi[r], lmi_k[r], lmi_l[r]}, lmi_k[r] == lmi_l[r] ? p.b[r] : p.b[r] / root2);
        }
    }
    appendSection(&text, "OBJACOORD", objective);
    if (p.objective_constant != 0.0) {
        text += "OBJBCOORD\n";
        appendNumber(&text, p.objective_constant);
        text += "\n\n";
    }
    appendSection(&text, "ACOORD", acoord);
    appendSection(&text, "BCOORD", bcoord);
    appendSection(&text, "HCOORD", hcoord);
    appendSection(&text, "DCOORD", dcoord);
    return std::fwrite(text.data(), 1, text.size(), out) == text.size() && std::fflush(out) == 0;
}
