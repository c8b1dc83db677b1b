// The compiled half of the Python module korvex: the solve over numpy arrays, the file
// readers, and the command line. The package around it (korvex/__init__.py) turns scipy
// matrices into compressed columns, builds the result and problem objects and raises
// KeyboardInterrupt after an interrupted solve.
//
// The solver keeps process-wide state (the interrupt flag and the listener, the vector of
// the full Broyden direction), so solves from several Python threads run one after
// another, under solve_lock. The GIL is released while a solve, a read or the command
// runs, and the library's own SIGINT listener, which is installed for the length of a
// solve, turns Ctrl+C into status -5.
#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/solver.h"
#include "io/options.h"
#include "io/readers.h"
#include "io/text_input.h"
#include "korvex/command.h"
#include "records/cone_record.h"
#include "records/records.h"
#include "reporting/timing.h"

namespace py = pybind11;

// OpenBLAS's own count of threads, read so that a solve can put it back.
extern "C" int openblas_get_num_threads(void);

namespace korvex {
namespace {

template <class T>
using Array = py::array_t<T, py::array::c_style | py::array::forcecast>;

// The step kind of a history row whose iteration ended the solve at its test, so that no
// step was taken; the solver writes -1 to 2.
constexpr std::int32_t kNoStep = -2;

std::mutex solve_lock;

const SettingDescriptor* findDescriptor(std::string_view name) {
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (name == option.name) return &option;
    }
    return nullptr;
}

std::string settingNames() {
    std::string names;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (option.int_field == &Settings::progress_capacity) continue;
        names += names.empty() ? "" : ", ";
        names += option.name;
    }
    return names;
}

// A whole number: Python's int and bool, numpy's integers, anything with __index__; a
// float is not one, even 3.0.
std::int32_t wholeSetting(const char* name, const py::handle& value) {
    PyObject* index = PyNumber_Index(value.ptr());
    if (index == nullptr) {
        PyErr_Clear();
        throw py::type_error(std::string("setting ") + name + " takes a whole number, not " +
                             std::string(py::str(py::type::handle_of(value).attr("__name__"))));
    }
    int overflow = 0;
    const long long number = PyLong_AsLongLongAndOverflow(index, &overflow);
    Py_DECREF(index);
    if (overflow != 0 || number < INT32_MIN || number > INT32_MAX) {
        throw py::value_error(std::string("setting ") + name + " = " + std::string(py::repr(value)) +
                              " does not fit a 32-bit integer");
    }
    return static_cast<std::int32_t>(number);
}

// A finite real number: anything with __float__ or __index__, but not a text.
double realSetting(const char* name, const py::handle& value) {
    const double number = py::isinstance<py::str>(value) ? -1.0 : PyFloat_AsDouble(value.ptr());
    if (py::isinstance<py::str>(value) || (number == -1.0 && PyErr_Occurred() != nullptr)) {
        PyErr_Clear();
        throw py::type_error(std::string("setting ") + name + " takes a real number, not " +
                             std::string(py::str(py::type::handle_of(value).attr("__name__"))));
    }
    if (!std::isfinite(number)) {
        throw py::value_error(std::string("setting ") + name + " must be finite, not " + std::string(py::repr(value)));
    }
    return number;
}

// The refusal text of an option whose value the solver would refuse, or "" when it
// passes. The limits and texts are those of the settings table that the solver's own
// validation reads, so a Python caller gets the same words as an exception.
std::string refusalOf(const Settings& settings, const SettingDescriptor& option) {
    if (option.check_rank == 0) return "";
    if (option.marlet_only && settings.do_super_korvex == 0) return "";
    if (option.applies != nullptr && !option.applies(settings)) return "";
    const double value =
        option.int_field != nullptr ? double(settings.*option.int_field) : settings.*option.double_field;
    const bool low = option.low.open ? value <= option.low.value : value < option.low.value;
    const bool high = option.high.open ? value >= option.high.value : value > option.high.value;
    const bool rejected = option.accepts != nullptr && !option.accepts(settings.*option.int_field);
    if (!low && !high && !rejected) return "";
    const char* format = high && !low && !rejected && option.high_refusal != nullptr ? option.high_refusal : option.refusal;
    char text[512];
    switch (option.shown) {
        case ShownValue::kNone: std::snprintf(text, sizeof text, "%s", format); break;
        case ShownValue::kInt: std::snprintf(text, sizeof text, format, settings.*option.int_field); break;
        case ShownValue::kLong: std::snprintf(text, sizeof text, format, long(settings.*option.int_field)); break;
        case ShownValue::kReal: std::snprintf(text, sizeof text, format, settings.*option.double_field); break;
    }
    std::string message = text;
    while (!message.empty() && message.back() == '\n') message.pop_back();
    return message;
}

// Settings from their defaults and the caller's dict of field names. Unknown names and
// wrong types raise TypeError, values the solver would refuse raise ValueError.
Settings settingsFrom(const py::dict& given) {
    Settings settings;
    setDefaultSettings(&settings);
    for (const auto& [key, value] : given) {
        const std::string name = py::str(key);
        const SettingDescriptor* option = findDescriptor(name);
        if (option == nullptr) {
            throw py::type_error("unknown setting '" + name + "'; the settings are " + settingNames());
        }
        if (option->int_field == &Settings::progress_capacity) {
            throw py::type_error("progress_capacity is kept by the module, which sizes the history arrays itself");
        }
        if (option->int_field == &Settings::dir && py::isinstance<py::str>(value)) {
            const std::string text = py::str(value);
            const std::int32_t code = directionCode(text.c_str());
            if (directionName(code) == nullptr || text != directionName(code)) {
                throw py::value_error("dir takes restarted_broyden, restarted_broyden_v2, fixed_point_residual, "
                                      "full_broyden or a code, not '" + text + "'");
            }
            settings.dir = code;
        } else if (option->int_field != nullptr) {
            settings.*option->int_field = wholeSetting(option->name, value);
        } else {
            settings.*option->double_field = realSetting(option->name, value);
        }
    }
    // In the order of the solver's own checks, so that the first refusal is the same.
    for (int rank = 1; rank <= kSettingDescriptorCount; ++rank) {
        for (const SettingDescriptor& option : kSettingDescriptors) {
            if (option.check_rank != rank) continue;
            const std::string refusal = refusalOf(settings, option);
            if (!refusal.empty()) throw py::value_error(refusal);
        }
    }
    settings.progress_capacity = -1;
    settings.stream_override = 0;
    settings.output_stream = stdout;
    return settings;
}

// The lists of a Cone record, owned here while the record points into them.
struct ConeLists {
    Cone cone{};
    std::vector<std::int32_t> soc_sizes, sd_sizes;
    std::vector<double> power_exponents;
};

std::int32_t coneCount(const char* name, const py::handle& value) {
    const std::int32_t count = wholeSetting(name, value);
    if (count < 0) throw py::value_error(std::string("cone ") + name + " is negative");
    return count;
}

std::vector<std::int32_t> coneSizes(const char* name, const py::handle& value, std::int32_t least) {
    std::vector<std::int32_t> sizes;
    for (const py::handle item : py::iter(value)) {
        const std::int32_t size = wholeSetting(name, item);
        if (size < least) {
            throw py::value_error(std::string("cone ") + name + " holds " + std::to_string(size) +
                                  "; every entry must be at least " + std::to_string(least));
        }
        sizes.push_back(size);
    }
    return sizes;
}

void coneFrom(const py::dict& given, std::int32_t m, ConeLists* lists) {
    Cone& cone = lists->cone;
    for (const auto& [key, value] : given) {
        const std::string name = py::str(key);
        if (name == "free_vars") {
            cone.free_vars = coneCount("free_vars", value);
        } else if (name == "linear_vars") {
            cone.linear_vars = coneCount("linear_vars", value);
        } else if (name == "exp_triples") {
            cone.exp_triples = coneCount("exp_triples", value);
        } else if (name == "dual_exp_triples") {
            cone.dual_exp_triples = coneCount("dual_exp_triples", value);
        } else if (name == "soc_sizes") {
            lists->soc_sizes = coneSizes("soc_sizes", value, 1);
        } else if (name == "sd_sizes") {
            lists->sd_sizes = coneSizes("sd_sizes", value, 1);
        } else if (name == "power_exponents") {
            for (const py::handle item : py::iter(value)) {
                const double a = realSetting("power_exponents", item);
                if (!(a >= -1.0 && a <= 1.0)) {
                    throw py::value_error("cone power_exponents holds " + std::string(py::repr(item)) +
                                          "; every exponent must lie in [-1, 1]");
                }
                lists->power_exponents.push_back(a);
            }
        } else {
            throw py::type_error("unknown cone field '" + name +
                                 "'; the fields are free_vars, linear_vars, soc_sizes, sd_sizes, exp_triples, "
                                 "dual_exp_triples, power_exponents");
        }
    }
    cone.soc_sizes = lists->soc_sizes.data();
    cone.soc_blks = std::int32_t(lists->soc_sizes.size());
    cone.sd_sizes = lists->sd_sizes.data();
    cone.sd_blks = std::int32_t(lists->sd_sizes.size());
    cone.power_exponents = lists->power_exponents.data();
    cone.power_triples = std::int32_t(lists->power_exponents.size());
    const int rows = coneTotalSize(&cone);
    if (rows != m) {
        throw py::value_error("the cone describes " + std::to_string(rows) + " rows but A has " + std::to_string(m));
    }
}

void requireLength(const char* name, const py::array& array, py::ssize_t length) {
    if (array.ndim() != 1 || array.shape(0) != length) {
        throw py::value_error(std::string(name) + " must be a vector of " + std::to_string(length) + " entries");
    }
}

// The ten history arrays of Info, handed to the solver and sliced afterwards to the rows
// it wrote.
struct History {
    Array<std::int32_t> iteration, step_kind, ls_count;
    Array<double> rel_gap, res_pri, res_dual, primal_cost, dual_cost, fpr_norm, time_ms;

    explicit History(py::ssize_t capacity)
        : iteration(capacity), step_kind(capacity), ls_count(capacity), rel_gap(capacity), res_pri(capacity),
          res_dual(capacity), primal_cost(capacity), dual_cost(capacity), fpr_norm(capacity), time_ms(capacity) {
        std::fill_n(iteration.mutable_data(), capacity, -1);
        std::fill_n(step_kind.mutable_data(), capacity, kNoStep);
        std::fill_n(ls_count.mutable_data(), capacity, 0);
    }

    void hook(Info* info) {
        info->progress_iteration = iteration.mutable_data();
        info->progress_rel_gap = rel_gap.mutable_data();
        info->progress_res_pri = res_pri.mutable_data();
        info->progress_res_dual = res_dual.mutable_data();
        info->progress_primal_cost = primal_cost.mutable_data();
        info->progress_dual_cost = dual_cost.mutable_data();
        info->progress_fpr_norm = fpr_norm.mutable_data();
        info->progress_time_ms = time_ms.mutable_data();
        info->progress_step_kind = step_kind.mutable_data();
        info->progress_ls_count = ls_count.mutable_data();
    }

    // Copies of the rows written: those whose iteration entry holds its own index, which
    // the solver fills from 0 without a gap. The copies let the full arrays go.
    void into(py::dict& result) const {
        py::ssize_t rows = 0;
        while (rows < iteration.shape(0) && iteration.data()[rows] == rows) ++rows;
        const py::slice head(0, rows, 1);
        const auto put = [&](const char* name, const py::array& array) {
            result[name] = array[head].attr("copy")();
        };
        put("progress_iteration", iteration);
        put("progress_rel_gap", rel_gap);
        put("progress_res_pri", res_pri);
        put("progress_res_dual", res_dual);
        put("progress_primal_cost", primal_cost);
        put("progress_dual_cost", dual_cost);
        put("progress_fpr_norm", fpr_norm);
        put("progress_time_ms", time_ms);
        put("progress_step_kind", step_kind);
        put("progress_ls_count", ls_count);
    }
};

// The solve over compressed columns. warm, when not None, is (x, y, s) to start from.
py::dict solveColumns(std::int32_t m, std::int32_t n, const Array<double>& values, const Array<std::int32_t>& rows,
                      const Array<std::int32_t>& starts, const Array<double>& b, const Array<double>& c,
                      const py::dict& cone_fields, const py::dict& setting_fields, const py::object& warm,
                      int blas_threads) {
    if (blas_threads < 1) throw py::value_error("blas_threads must be at least 1");
    if (m <= 0 || n <= 0) {
        throw py::value_error("A must have at least one row and one column; it is " + std::to_string(m) + " by " +
                              std::to_string(n));
    }
    requireLength("the column pointers of A", starts, py::ssize_t(n) + 1);
    const std::int32_t nonzeros = starts.data()[n];
    requireLength("the row indices of A", rows, nonzeros);
    requireLength("the values of A", values, nonzeros);
    requireLength("b", b, m);
    requireLength("c", c, n);
    Settings settings = settingsFrom(setting_fields);
    ConeLists cone;
    coneFrom(cone_fields, m, &cone);

    Array<double> x(n), y(m), s(m);
    if (!warm.is_none()) {
        const py::tuple start = warm;
        if (start.size() != 3) throw py::value_error("warm takes (x, y, s)");
        const auto x0 = start[0].cast<Array<double>>(), y0 = start[1].cast<Array<double>>(),
                   s0 = start[2].cast<Array<double>>();
        requireLength("warm x", x0, n);
        requireLength("warm y", y0, m);
        requireLength("warm s", s0, m);
        std::copy_n(x0.data(), n, x.mutable_data());
        std::copy_n(y0.data(), m, y.mutable_data());
        std::copy_n(s0.data(), m, s.mutable_data());
        settings.warm_start = 1;
    } else if (settings.warm_start != 0) {
        throw py::value_error("warm_start needs a point to start from: pass warm=(x, y, s) or warm=result");
    }

    std::optional<History> history;
    if (settings.record_progress != 0 && settings.do_super_korvex != 0) {
        // Three int32 and seven double columns a row; more than half of the memory of the
        // machine would take the process down before the first iteration.
        const double bytes = double(settings.max_iters) * (3 * 4 + 7 * 8);
        const double memory = double(sysconf(_SC_PHYS_PAGES)) * double(sysconf(_SC_PAGE_SIZE));
        if (memory > 0 && bytes > memory / 2) {
            throw py::value_error("a progress history of max_iters = " + std::to_string(settings.max_iters) +
                                  " rows needs more than half of this machine's memory; lower max_iters or "
                                  "leave record_progress off");
        }
        history.emplace(settings.max_iters);
        settings.progress_capacity = settings.max_iters;
    }

    SparseMatrix A{const_cast<double*>(values.data()), const_cast<std::int32_t*>(rows.data()),
                   const_cast<std::int32_t*>(starts.data()), m, n};
    Data data{m, n, &A, const_cast<double*>(b.data()), const_cast<double*>(c.data()), &settings};
    Solution solution{x.mutable_data(), y.mutable_data(), s.mutable_data()};
    Info info{};
    if (history) history->hook(&info);

    py::module_::import("sys").attr("stdout").attr("flush")();
    bool interrupted = false;
    {
        py::gil_scoped_release unlocked;
        std::lock_guard<std::mutex> one_solve(solve_lock);
        // The eigendecompositions of the semidefinite cones round differently with another
        // number of BLAS threads, so the solve runs on a count of its own (one by default,
        // as the command does), and numpy's count comes back afterwards.
        const int previous_threads = openblas_get_num_threads();
        setBlasThreads(blas_threads);
        solveConeProgram(&data, &cone.cone, &solution, &info);
        setBlasThreads(previous_threads);
        // The flag is cleared when a solve starts; set now, the user asked this solve to stop.
        interrupted = isInterrupted() != 0;
        std::fflush(stdout);
    }

    py::dict result;
    result["x"] = x;
    result["y"] = y;
    result["s"] = s;
    result["iter"] = info.iter;
    result["status"] = std::string(info.status);
    result["statusVal"] = info.statusVal;
    result["pobj"] = info.pobj;
    result["dobj"] = info.dobj;
    result["resPri"] = info.resPri;
    result["resDual"] = info.resDual;
    result["resInfeas"] = info.resInfeas;
    result["resUnbdd"] = info.resUnbdd;
    result["relGap"] = info.relGap;
    result["setupTime"] = info.setupTime;
    result["solveTime"] = info.solveTime;
    result["progress_count"] = info.progress_count;
    result["memory_bytes"] = info.memory_bytes;
    result["interrupted"] = interrupted;
    if (history) history->into(result);
    return result;
}

template <class T>
py::array_t<T> arrayOf(const std::vector<T>& values) {
    return py::array_t<T>(py::ssize_t(values.size()), values.data());
}

// A problem file in the solver's form, as plain Python values and numpy arrays.
py::dict readFile(const std::string& path, const std::string& format_word) {
    FileFormat format = FileFormat::Unknown;
    if (!format_word.empty()) {
        format = formatOfWord(format_word);
        if (format == FileFormat::Unknown) {
            throw py::value_error("format takes cbf, sdpa or mps, not '" + format_word + "'");
        }
    }
    ConicProblem problem;
    {
        py::gil_scoped_release unlocked;
        problem = readProblemFile(path, format);
    }
    py::dict cone;
    cone["free_vars"] = problem.free_rows;
    cone["linear_vars"] = problem.linear_rows;
    cone["soc_sizes"] = problem.soc_sizes;
    cone["sd_sizes"] = problem.sd_sizes;
    cone["exp_triples"] = problem.exp_triples;
    cone["dual_exp_triples"] = problem.dual_exp_triples;
    cone["power_exponents"] = problem.power_exponents;

    py::dict result;
    result["m"] = problem.m;
    result["n"] = problem.n;
    result["column_starts"] = arrayOf(problem.column_starts);
    result["row_indices"] = arrayOf(problem.row_indices);
    result["values"] = arrayOf(problem.values);
    result["b"] = arrayOf(problem.b);
    result["c"] = arrayOf(problem.c);
    result["cone"] = cone;
    result["sense"] = problem.maximise ? "max" : "min";
    result["objective_constant"] = problem.objective_constant;
    result["source"] = problem.source;
    result["format"] = problem.format;
    result["scalar_variables"] = problem.scalar_variables;
    result["variable_names"] = problem.variable_names;
    result["matrix_sides"] = problem.matrix_sides;
    result["matrix_offsets"] = problem.matrix_offsets;
    return result;
}

// The korvex command on the given arguments (the first is the program's name).
int runCommandOn(const std::vector<std::string>& arguments) {
    std::vector<std::string> copies = arguments;
    std::vector<char*> argv;
    for (std::string& argument : copies) argv.push_back(argument.data());
    argv.push_back(nullptr);
    py::module_::import("sys").attr("stdout").attr("flush")();
    py::gil_scoped_release unlocked;
    std::lock_guard<std::mutex> one_solve(solve_lock);
    const int code = runCommand(int(copies.size()), argv.data());
    std::fflush(stdout);
    return code;
}

py::dict defaultSettings() {
    Settings settings;
    setDefaultSettings(&settings);
    py::dict defaults;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (option.int_field == &Settings::progress_capacity) continue;
        if (option.int_field != nullptr) {
            defaults[option.name] = settings.*option.int_field;
        } else {
            defaults[option.name] = settings.*option.double_field;
        }
    }
    return defaults;
}

py::dict settingHelp() {
    py::dict help;
    for (const SettingDescriptor& option : kSettingDescriptors) {
        if (option.int_field != &Settings::progress_capacity) help[option.name] = option.help;
    }
    return help;
}

}  // namespace
}  // namespace korvex

PYBIND11_MODULE(_korvex, module) {
    module.doc() = "Compiled core of the korvex package; use the functions of korvex itself.";
    py::register_exception<ReadError>(module, "ReadError", PyExc_ValueError);
    module.def("solve_columns", &korvex::solveColumns, py::arg("m"), py::arg("n"), py::arg("values"),
               py::arg("row_indices"), py::arg("column_starts"), py::arg("b"), py::arg("c"), py::arg("cone"),
               py::arg("settings"), py::arg("warm") = py::none(), py::arg("blas_threads") = 1);
    module.def("read_file", &korvex::readFile, py::arg("path"), py::arg("format") = "");
    module.def("run_command", &korvex::runCommandOn, py::arg("argv"));
    module.def("default_settings", &korvex::defaultSettings);
    module.def("setting_help", &korvex::settingHelp);
    module.attr("version") = korvex::versionText();
}
