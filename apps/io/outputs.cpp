#include "io/outputs.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>
#include <new>
#include <string>

using namespace korvex;

namespace {

constexpr std::int32_t kNoStep = std::numeric_limits<std::int32_t>::min();

// A JSON number, or null when the value is not finite: the shortest text that reads
// back as the same double.
void jsonNumber(std::string* out, double value) {
    if (!std::isfinite(value)) {
        *out += "null";
        return;
    }
    char text[32];
    const auto end = std::to_chars(text, text + sizeof text, value).ptr;
    out->append(text, end);
}

// With a file to spill into, the text goes there whenever it passes a megabyte, so that a
// long array never sits in memory whole.
void jsonArray(std::string* out, const double* values, std::int64_t count, std::FILE* spill = nullptr) {
    *out += '[';
    for (std::int64_t k = 0; k < count; ++k) {
        if (k > 0) *out += ',';
        jsonNumber(out, values == nullptr ? std::nan("") : values[k]);
        if (spill != nullptr && out->size() >= (1 << 20)) {
            std::fwrite(out->data(), 1, out->size(), spill);
            out->clear();
        }
    }
    *out += ']';
}

}  // namespace

void jsonString(std::string* out, const std::string& text) {
    *out += '"';
    for (unsigned char ch : text) {
        if (ch == '"' || ch == '\\') {
            *out += '\\';
            *out += static_cast<char>(ch);
        } else if (ch < 0x20) {
            char escape[8];
            std::snprintf(escape, sizeof escape, "\\u%04x", ch);
            *out += escape;
        } else {
            *out += static_cast<char>(ch);
        }
    }
    *out += '"';
}

bool writeSolutionJson(std::FILE* out, const ConicProblem& problem, const Solution& solution, const Info& info,
                       const RunTimes& times) {
    std::string text = "{\n";
    bool first = true;
    auto field = [&](const char* name) {
        if (!first) text += ",\n";
        first = false;
        text += "  \"";
        text += name;
        text += "\": ";
    };
    auto number = [&](const char* name, double value) {
        field(name);
        jsonNumber(&text, value);
    };
    field("file");
    jsonString(&text, problem.source);
    field("format");
    jsonString(&text, problem.format);
    field("sense");
    jsonString(&text, problem.maximise ? "max" : "min");
    field("status");
    jsonString(&text, info.status);
    field("statusVal");
    text += std::to_string(info.statusVal);
    field("iter");
    text += std::to_string(info.iter);
    number("objective", fileObjective(problem, info.pobj));
    number("objectiveConstant", problem.objective_constant);
    number("pobj", info.pobj);
    number("dobj", info.dobj);
    number("resPri", info.resPri);
    number("resDual", info.resDual);
    number("resInfeas", info.resInfeas);
    number("resUnbdd", info.resUnbdd);
    number("relGap", info.relGap);
    // Times in seconds, as in the summary line, with the unit in the key.
    number("readSeconds", times.read_ms / 1000);
    number("setupSeconds", info.setupTime / 1000);
    number("solveSeconds", info.solveTime / 1000);
    field("x");
    jsonArray(&text, solution.x, problem.scalar_variables, out);
    // A dense matrix as an array of rows; a diagonal block (negative side) as a vector.
    auto matrix = [&](const std::vector<double>& dense, std::int64_t side) {
        if (side < 0) return jsonArray(&text, dense.data(), -side);
        text += '[';
        for (std::int64_t i = 0; i < side; ++i) {
            if (i > 0) text += ',';
            jsonArray(&text, dense.data() + i * side, side, out);
        }
        text += ']';
    };
    // X: the file's matrix variables (CBF), or for row blocks (SDPA) the matrix of the
    // maximisation, from y; Z: the row blocks' slack sum F_i x_i - F_0, from s.
    auto blocks = [&](const double* v, bool rows) {
        const std::vector<std::int32_t>& sides = rows ? problem.row_matrix_sides : problem.matrix_sides;
        text += '[';
        for (std::size_t k = 0; k < sides.size(); ++k) {
            if (k > 0) text += ',';
            const std::int64_t side = sides[k];
            const std::int64_t entries = side < 0 ? -side : side * side;
            std::vector<double> dense = v == nullptr ? std::vector<double>(entries, std::nan(""))
                                        : rows       ? rowMatrix(problem, v, static_cast<int>(k))
                                                     : matrixVariable(problem, v, static_cast<int>(k));
            matrix(dense, side);
        }
        text += ']';
    };
    const bool row_blocks = !problem.row_matrix_sides.empty();
    field("X");
    blocks(row_blocks ? solution.y : solution.x, row_blocks);
    if (row_blocks) {
        field("Z");
        blocks(solution.s, true);
    }
    field("y");
    jsonArray(&text, solution.y, problem.m, out);
    field("s");
    jsonArray(&text, solution.s, problem.m, out);
    text += "\n}\n";
    return std::fwrite(text.data(), 1, text.size(), out) == text.size() && std::fflush(out) == 0 && !std::ferror(out);
}

template <class T>
ProgressArrays::LazyArray<T> ProgressArrays::lazyArray(std::int32_t capacity) {
    LazyArray<T> array(static_cast<T*>(std::calloc(static_cast<std::size_t>(std::max(capacity, 1)), sizeof(T))), std::free);
    if (!array) throw std::bad_alloc();
    return array;
}

ProgressArrays::ProgressArrays(std::int32_t capacity, Info* info, Settings* settings)
    : iteration_(capacity, -1), step_kind_(capacity, kNoStep), ls_count_(lazyArray<std::int32_t>(capacity)),
      rel_gap_(lazyArray<double>(capacity)), res_pri_(lazyArray<double>(capacity)), res_dual_(lazyArray<double>(capacity)),
      primal_cost_(lazyArray<double>(capacity)), dual_cost_(lazyArray<double>(capacity)),
      fpr_norm_(lazyArray<double>(capacity)), time_ms_(lazyArray<double>(capacity)) {
    info->progress_iteration = iteration_.data();
    info->progress_rel_gap = rel_gap_.get();
    info->progress_res_pri = res_pri_.get();
    info->progress_res_dual = res_dual_.get();
    info->progress_primal_cost = primal_cost_.get();
    info->progress_dual_cost = dual_cost_.get();
    info->progress_fpr_norm = fpr_norm_.get();
    info->progress_time_ms = time_ms_.get();
    info->progress_step_kind = step_kind_.data();
    info->progress_ls_count = ls_count_.get();
    settings->progress_capacity = capacity;
}

std::vector<ProgressRow> ProgressArrays::rows() const {
    std::vector<ProgressRow> rows;
    // The solver writes rows 0, 1, ... in turn.
    for (std::size_t k = 0; k < iteration_.size(); ++k) {
        if (iteration_[k] != static_cast<std::int32_t>(k)) break;
        const bool step = step_kind_[k] != kNoStep;
        rows.push_back(ProgressRow{iteration_[k], rel_gap_[k], res_pri_[k], res_dual_[k], primal_cost_[k], dual_cost_[k],
                                   fpr_norm_[k], time_ms_[k], step, step ? step_kind_[k] : 0, step ? ls_count_[k] : 0});
    }
    return rows;
}

bool writeHistoryCsv(std::FILE* out, const std::vector<ProgressRow>& rows) {
    std::string text = "iteration,rel_gap,res_pri,res_dual,primal_cost,dual_cost,fpr_norm,time_ms,step_kind,ls_count\n";
    char line[512];
    for (const ProgressRow& row : rows) {
        std::snprintf(line, sizeof line, "%d,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,%.17g,", row.iteration, row.rel_gap,
                      row.res_pri, row.res_dual, row.primal_cost, row.dual_cost, row.fpr_norm, row.time_ms);
        text += line;
        if (row.has_step) {
            std::snprintf(line, sizeof line, "%d,%d", row.step_kind, row.ls_count);
            text += line;
        } else {
            text += ',';
        }
        text += '\n';
    }
    return std::fwrite(text.data(), 1, text.size(), out) == text.size() && std::fflush(out) == 0;
}

namespace {

// Plot geometry, in SVG user units.
constexpr double kWidth = 900, kHeight = 540;
constexpr double kLeft = 90, kRight = 190, kTop = 50, kBottom = 70;
constexpr double kPlotWidth = kWidth - kLeft - kRight, kPlotHeight = kHeight - kTop - kBottom;

struct Series {
    const char* label;
    const char* colour;
    double ProgressRow::*value;
    const char* dash;
};

constexpr Series kSeries[] = {
    {"primal residual", "#1f77b4", &ProgressRow::res_pri, ""},
    {"dual residual", "#d62728", &ProgressRow::res_dual, ""},
    {"relative gap", "#2ca02c", &ProgressRow::rel_gap, ""},
    {"fixed-point residual", "#7f3fbf", &ProgressRow::fpr_norm, " stroke-dasharray=\"6 4\""},
};

// A step of 1, 2 or 5 times a power of ten that cuts [0, span] into at most about 8 parts.
double niceStep(double span) {
    double raw = span / 8;
    double power = std::pow(10.0, std::floor(std::log10(raw)));
    for (double factor : {1.0, 2.0, 5.0, 10.0}) {
        if (factor * power >= raw) return factor * power;
    }
    return 10 * power;
}

std::string escapeXml(const std::string& text) {
    std::string out;
    for (char ch : text) {
        switch (ch) {
            case '<': out += "&lt;"; break;
            case '>': out += "&gt;"; break;
            case '&': out += "&amp;"; break;
            case '"': out += "&quot;"; break;
            default: out += ch;
        }
    }
    return out;
}

}  // namespace

bool writeConvergenceSvg(std::FILE* out, const std::vector<ProgressRow>& rows, const std::string& title) {
    std::string svg;
    char buffer[512];
    auto put = [&](const char* format, auto... values) {
        std::snprintf(buffer, sizeof buffer, format, values...);
        svg += buffer;
    };
    put("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%g\" height=\"%g\" viewBox=\"0 0 %g %g\" "
        "font-family=\"Helvetica, Arial, sans-serif\">\n",
        kWidth, kHeight, kWidth, kHeight);
    put("<rect width=\"%g\" height=\"%g\" fill=\"white\"/>\n", kWidth, kHeight);
    svg += "<text x=\"" + std::to_string(kLeft + kPlotWidth / 2) + "\" y=\"28\" font-size=\"17\" text-anchor=\"middle\">" +
           escapeXml(title) + "</text>\n";

    // The decades that the finite positive values span.
    double low = std::numeric_limits<double>::infinity(), high = -low;
    std::int32_t last_iteration = 1;
    for (const ProgressRow& row : rows) {
        last_iteration = std::max(last_iteration, row.iteration);
        for (const Series& series : kSeries) {
            double v = row.*series.value;
            if (std::isfinite(v) && v > 0) {
                low = std::min(low, v);
                high = std::max(high, v);
            }
        }
    }
    if (!(low <= high)) {
        put("<rect x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\" fill=\"none\" stroke=\"#444\"/>\n", kLeft, kTop,
            kPlotWidth, kPlotHeight);
        put("<text x=\"%g\" y=\"%g\" font-size=\"15\" text-anchor=\"middle\" fill=\"#444\">no progress history: "
            "only the Marlet iteration records one</text>\n</svg>\n",
            kLeft + kPlotWidth / 2, kTop + kPlotHeight / 2);
        return std::fwrite(svg.data(), 1, svg.size(), out) == svg.size() && std::fflush(out) == 0;
    }
    double top = std::ceil(std::log10(high)), bottom = std::floor(std::log10(low));
    if (top == bottom) top += 1;
    bottom = std::max(bottom, top - 18);  // keep the decades readable
    const double x_span = last_iteration;
    auto px = [&](double iteration) { return kLeft + kPlotWidth * iteration / x_span; };
    auto py = [&](double value) {
        double decade = std::clamp(std::log10(value), bottom, top);
        return kTop + kPlotHeight * (top - decade) / (top - bottom);
    };

    // Grid: one line per decade (labelled every decade or every few), ticks on x.
    const int decades = static_cast<int>(top - bottom);
    const int label_every = decades > 12 ? 3 : decades > 6 ? 2 : 1;
    for (int d = 0; d <= decades; ++d) {
        const double e = bottom + d;
        const double y = py(std::pow(10.0, e));
        put("<line x1=\"%g\" y1=\"%.2f\" x2=\"%g\" y2=\"%.2f\" stroke=\"#e3e3e3\"/>\n", kLeft, y, kLeft + kPlotWidth, y);
        if (static_cast<int>(top - e) % label_every == 0) {
            put("<text x=\"%g\" y=\"%.2f\" font-size=\"12\" text-anchor=\"end\" dominant-baseline=\"middle\">1e%+d</text>\n",
                kLeft - 8, y, static_cast<int>(e));
        }
    }
    const double step = niceStep(x_span);
    for (double t = 0; t <= x_span + 1e-9; t += step) {
        const double x = px(t);
        put("<line x1=\"%.2f\" y1=\"%g\" x2=\"%.2f\" y2=\"%g\" stroke=\"#e3e3e3\"/>\n", x, kTop, x, kTop + kPlotHeight);
        put("<text x=\"%.2f\" y=\"%g\" font-size=\"12\" text-anchor=\"middle\">%g</text>\n", x, kTop + kPlotHeight + 18, t);
    }
    put("<rect x=\"%g\" y=\"%g\" width=\"%g\" height=\"%g\" fill=\"none\" stroke=\"#444\"/>\n", kLeft, kTop, kPlotWidth,
        kPlotHeight);
    put("<text x=\"%g\" y=\"%g\" font-size=\"14\" text-anchor=\"middle\">iteration</text>\n", kLeft + kPlotWidth / 2,
        kHeight - 22);
    put("<text x=\"22\" y=\"%g\" font-size=\"14\" text-anchor=\"middle\" transform=\"rotate(-90 22 %g)\">"
        "residual, gap (log scale)</text>\n",
        kTop + kPlotHeight / 2, kTop + kPlotHeight / 2);

    // One polyline per series, broken where a value is not positive and finite; long
    // histories are thinned to about 3000 points per series.
    const std::size_t stride = std::max<std::size_t>(1, rows.size() / 3000);
    for (const Series& series : kSeries) {
        std::string points;
        auto flush = [&]() {
            if (!points.empty()) {
                svg += "<polyline fill=\"none\" stroke=\"" + std::string(series.colour) + "\" stroke-width=\"1.8\"" +
                       series.dash + " points=\"" + points + "\"/>\n";
            }
            points.clear();
        };
        for (std::size_t k = 0; k < rows.size(); ++k) {
            if (k % stride != 0 && k + 1 != rows.size()) continue;
            const double v = rows[k].*series.value;
            if (!(std::isfinite(v) && v > 0)) {
                flush();
                continue;
            }
            std::snprintf(buffer, sizeof buffer, "%.2f,%.2f ", px(rows[k].iteration), py(v));
            points += buffer;
        }
        flush();
    }

    // Legend, right of the plot.
    const double legend_x = kLeft + kPlotWidth + 16;
    put("<rect x=\"%g\" y=\"%g\" width=\"166\" height=\"%d\" fill=\"white\" stroke=\"#bbb\"/>\n", legend_x - 6, kTop,
        static_cast<int>(std::size(kSeries)) * 24 + 10);
    for (std::size_t k = 0; k < std::size(kSeries); ++k) {
        const double y = kTop + 18 + 24.0 * static_cast<double>(k);
        put("<line x1=\"%g\" y1=\"%g\" x2=\"%g\" y2=\"%g\" stroke=\"%s\" stroke-width=\"2.5\"%s/>\n", legend_x, y,
            legend_x + 26, y, kSeries[k].colour, kSeries[k].dash);
        put("<text x=\"%g\" y=\"%g\" font-size=\"13\" dominant-baseline=\"middle\">%s</text>\n", legend_x + 34, y,
            kSeries[k].label);
    }
    svg += "</svg>\n";
    return std::fwrite(svg.data(), 1, svg.size(), out) == svg.size() && std::fflush(out) == 0;
}
