#include "core/report.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>

#include "cones/cones.h"
#include "records/work.h"
#include "kernels/kernels.h"
#include "linsys/linsys.h"
#include "reporting/allocation.h"
#include "reporting/print.h"

namespace korvex {

const char* const HEAD_COLUMNS[9] = {
    " Iter ", " pri res ", " dua res ", " rel gap ", " pri obj ", " dua obj ", " kap/tau ", "   FPR   ", " time (s)",
};

namespace {

constexpr int kRuleLength = 85;
constexpr int kNumberWidth = 9;

// kRuleLength copies of mark, then "\n" if wanted.
void printRule(const Settings* s, char mark, bool newline) {
    char rule[kRuleLength + 2];
    std::memset(rule, mark, kRuleLength);
    rule[kRuleLength] = newline ? '\n' : '\0';
    rule[kRuleLength + 1] = '\0';
    printTo(s->stream_override, s->output_stream, "%s", rule);
}

// dist(y, K*): how far y is from its projection onto the dual cone, in the max norm.
// NaN when no scratch copy can be made.
double distanceToDualCone(const double* y, int m, const Cone* cone, ConeWork* coneWork) {
    double* copy = allocateArray<double>(m);
    if (copy == nullptr) return std::numeric_limits<double>::quiet_NaN();
    std::memcpy(copy, y, sizeof(double) * m);
    projectToDualCone(copy, cone, coneWork);
    double distance = normInfDiff(copy, y, m);
    releaseMemory(copy);
    return distance;
}

// dist(s, K) = |P_K*(-s)|_inf, by the Moreau decomposition -s = P_K*(-s) - P_K(s).
double distanceToCone(const double* s, int m, const Cone* cone, ConeWork* coneWork) {
    double* copy = allocateArray<double>(m);
    if (copy == nullptr) return std::numeric_limits<double>::quiet_NaN();
    scaleInto(copy, s, -1.0, m);
    projectToDualCone(copy, cone, coneWork);
    double distance = normInf(copy, m);
    releaseMemory(copy);
    return distance;
}

// "Timing: Solve time: hh:mm:ss.f" where f is the fraction in milliseconds with no
// leading zeros (rounded at a tenth of a millisecond, then truncated).
void printSolveTime(const Settings* s, double solve_time_ms) {
    const double t = solve_time_ms / 1000.0;
    const int whole = static_cast<int>(t);
    const double fraction = t - whole;
    int minutes = whole / 60;
    const int seconds = whole - 60 * minutes;
    int hours = 0;
    if (minutes >= 60) {
        hours = minutes / 60;
        minutes -= 60 * hours;
    }
    const int millis = static_cast<int>(std::lround(fraction * 10000.0)) / 10;
    printTo(s->stream_override, s->output_stream, "Timing: Solve time: %02d:%02d:%02d.%d\n", hours, minutes, seconds,
            millis);
}

// Appends to the zero-terminated text in a buffer of size bytes; what does not fit is cut.
template <class... Values>
void append(char* text, std::size_t size, const char* format, Values... values) {
    const std::size_t used = std::strlen(text);
    std::snprintf(text + used, size - used, format, values...);
}

}  // namespace

void printHeader(const Work* work) {
    const Settings* s = work->settings;
    if (s->warm_start != 0) printTo(s->stream_override, s->output_stream, "KORVEX using variable warm-starting\n");
    printRule(s, '-', true);
    for (int k = 0; k <= 6; ++k) printTo(s->stream_override, s->output_stream, "%s|", HEAD_COLUMNS[k]);
    if (s->do_super_korvex != 0) printTo(s->stream_override, s->output_stream, "%s|", HEAD_COLUMNS[7]);
    printTo(s->stream_override, s->output_stream, "%s\n", HEAD_COLUMNS[8]);
    printRule(s, '-', true);
}

void printProgressLine(const Work* work, int iteration, const Residuals* r, Timer* timer) {
    const Settings* s = work->settings;
    const int iter_width = static_cast<int>(std::strlen(HEAD_COLUMNS[0]));
    printTo(s->stream_override, s->output_stream, "%*i|", iter_width, iteration);
    const double columns[] = {r->res_pri, r->res_dual, r->rel_gap, r->c_dot_x / r->tau, -(r->b_dot_y / r->tau),
                              r->kap / r->tau};
    for (double value : columns) printTo(s->stream_override, s->output_stream, "%*.2e ", kNumberWidth, value);
    if (s->do_super_korvex != 0) printTo(s->stream_override, s->output_stream, "%*.2e ", kNumberWidth, work->fpr_norm);
    printTo(s->stream_override, s->output_stream, "%*.2e ", kNumberWidth, readTimer(timer) / 1000.0);
    printTo(s->stream_override, s->output_stream, "\n");
}

void printFooter(const Data* data, const Cone* cone, const Solution* solution, Work* work, Info* info) {
    const Settings* s = work->settings;
    const int o = s->stream_override;
    std::FILE* out = s->output_stream;
    const int m = work->m;
    const int n = work->n;

    // Both summaries reset their counters, before the distances below project again.
    char* lin_sys_text = linSysSummaryText(work->lin_sys, info);
    char* cone_text = coneTimingLine(info, work->cone_work);

    printRule(s, '-', false);
    printTo(o, out, "\nStatus: %s\n", info->status);
    if (info->iter == s->max_iters) printTo(o, out, "Hit max_iters, solution may be inaccurate\n");
    printSolveTime(s, info->solveTime);
    for (char* text : {lin_sys_text, cone_text}) {
        if (text != nullptr) printTo(o, out, "%s", text);
        releaseMemory(text);
    }
    printRule(s, '-', true);

    switch (info->statusVal) {
        case KORVEX_INFEASIBLE:
        case KORVEX_INFEASIBLE_INACCURATE:
            printTo(o, out, "Certificate of primal infeasibility:\n");
            printTo(o, out, "dist(y, K*) = %.4e\n", distanceToDualCone(solution->y, m, cone, work->cone_work));
            printTo(o, out, "|A'y|_2 * |b|_2 = %.4e\n", info->resInfeas);
            printTo(o, out, "b'y = %.4f\n", dotProduct(data->b, solution->y, m));
            break;
        case KORVEX_UNBOUNDED:
        case KORVEX_UNBOUNDED_INACCURATE:
            printTo(o, out, "Certificate of dual infeasibility:\n");
            printTo(o, out, "dist(s, K) = %.4e\n", distanceToCone(solution->s, m, cone, work->cone_work));
            printTo(o, out, "|Ax + s|_2 * |c|_2 = %.4e\n", info->resUnbdd);
            printTo(o, out, "c'x = %.4f\n", dotProduct(data->c, solution->x, n));
            break;
        default: {
            printTo(o, out, "Error metrics:\n");
            const double dy = distanceToDualCone(solution->y, m, cone, work->cone_work);
            const double ds = distanceToCone(solution->s, m, cone, work->cone_work);
            const double e = dotProduct(solution->s, solution->y, m) / normTwo(solution->s, m) / normTwo(solution->y, m);
            printTo(o, out, "dist(s, K) = %.4e, dist(y, K*) = %.4e, s'y/|s||y| = %.4e\n", ds, dy, e);
            printTo(o, out, "|Ax + s - b|_2 / (1 + |b|_2) = %.4e\n", info->resPri);
            printTo(o, out, "|A'y + c|_2 / (1 + |c|_2) = %.4e\n", info->resDual);
            printTo(o, out, "|c'x + b'y| / (1 + |c'x| + |b'y|) = %.4e\n", info->relGap);
            printRule(s, '-', true);
            printTo(o, out, "c'x = %.4f, -b'y = %.4f\n", info->pobj, info->dobj);
            break;
        }
    }
    printRule(s, '=', true);
}

void printSettingsDump(const Settings* s) {
    // The options the dump shows, in the alphabetical order of their names.
    const SettingDescriptor* shown[kSettingDescriptorCount];
    int count = 0;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (option.dump != DumpLine::kNone) shown[count++] = &option;
    }
    std::sort(shown, shown + count, [](const SettingDescriptor* a, const SettingDescriptor* b) {
        return std::strcmp(a->name, b->name) < 0;
    });

    // One line an option, "name : value", but for a run of joined ones, which share the
    // line "(a, b, c) : (1, 2, 3)". The whole dump goes out in one print.
    char text[kPrintBufferSize] = "Settings:\n";
    for (int k = 0; k < count;) {
        int end = k + 1;
        if (shown[k]->dump == DumpLine::kJoined) {
            while (end < count && shown[end]->dump == DumpLine::kJoined) ++end;
        }
        const bool joined = end - k > 1;
        char names[128] = "", values[128] = "";
        for (int j = k; j < end; ++j) {
            const SettingDescriptor& option = *shown[j];
            const char* separator = j > k ? ", " : joined ? "(" : "";
            append(names, sizeof names, "%s%s", separator, option.name);
            if (option.int_field != nullptr) {
                append(values, sizeof values, "%s%d", separator, s->*option.int_field);
            } else {
                append(values, sizeof values, "%s%g", separator, s->*option.double_field);
            }
        }
        if (joined) {
            append(names, sizeof names, "%s", ")");
            append(values, sizeof values, "%s", ")");
        }
        append(text, sizeof text, "%-12s : %s\n", names, values);
        k = end;
    }
    printTo(s->stream_override, s->output_stream, "%s", text);
}

}  // namespace korvex
