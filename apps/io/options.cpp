#include "io/options.h"

#include <signal.h>
#include <sys/time.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <vector>

#include "io/text_input.h"
#include "reporting/platform.h"
#include "reporting/timing.h"

using namespace korvex;

extern "C" void openblas_set_num_threads(int num_threads);

namespace {

// name with '-' read as '_'.
bool sameName(std::string_view option, const char* field) {
    if (option.size() != std::strlen(field)) return false;
    for (std::size_t k = 0; k < option.size(); ++k) {
        char c = option[k] == '-' ? '_' : option[k];
        if (c != field[k]) return false;
    }
    return true;
}

const SettingDescriptor* findSetting(std::string_view name) {
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        if (sameName(name, kSettingDescriptors[k].name)) return &kSettingDescriptors[k];
    }
    return nullptr;
}

// The direction codes, in the order of their names in the texts.
constexpr std::int32_t kDirectionCodes[] = {KORVEX_DIR_RESTARTED_BROYDEN, KORVEX_DIR_RESTARTED_BROYDEN_V2,
                                            KORVEX_DIR_FIXED_POINT_RESIDUAL, KORVEX_DIR_FULL_BROYDEN};

std::string formatValue(double value) {
    char text[32];
    std::snprintf(text, sizeof text, "%g", value);
    return text;
}

}  // namespace

int applySetting(Settings* settings, std::string_view name, std::string_view value, std::string* error) {
    const SettingDescriptor* option = findSetting(name);
    if (option == nullptr) return 0;
    const std::string field = option->name;
    if (option->int_field != nullptr) {
        std::int64_t number;
        if (field == "dir" && !parseInteger(value, &number)) {
            const std::string text(value);
            for (std::int32_t code : kDirectionCodes) {
                if (text == directionName(code)) {
                    settings->dir = code;
                    return 1;
                }
            }
            *error = "--dir takes restarted_broyden, restarted_broyden_v2, fixed_point_residual, full_broyden or a code, not " +
                     quoted(value);
            return -1;
        }
        if (!parseInteger(value, &number) || number < INT32_MIN || number > INT32_MAX) {
            *error = "--" + field + " takes a whole number, not " + quoted(value);
            return -1;
        }
        settings->*option->int_field = static_cast<std::int32_t>(number);
        return 1;
    }
    double number;
    if (!parseReal(value, &number)) {
        *error = "--" + field + " takes a finite number, not " + quoted(value);
        return -1;
    }
    settings->*option->double_field = number;
    return 1;
}

std::string settingText(const Settings& settings, std::string_view name) {
    const SettingDescriptor* option = findSetting(name);
    if (option == nullptr) return "";
    if (option->int_field == nullptr) return formatValue(settings.*option->double_field);
    const std::int32_t value = settings.*option->int_field;
    if (option->int_field == &Settings::dir && directionName(value) != nullptr) return directionName(value);
    return std::to_string(value);
}

std::string settingsHelp(const Settings& defaults) {
    Settings library;
    setDefaultSettings(&library);
    std::string text;
    for (int k = 0; k < kSettingDescriptorCount; ++k) {
        const SettingDescriptor& option = kSettingDescriptors[k];
        std::string left = "  --" + std::string(option.name) + (option.int_field != nullptr ? " INT" : " REAL");
        if (option.int_field == &Settings::dir) left = "  --dir NAME|CODE";
        if (left.size() < 28) left.resize(28, ' ');
        const std::string value = settingText(defaults, option.name), own = settingText(library, option.name);
        text += left + option.help + " (default " + value + (value == own ? "" : "; the library's " + own) + ")\n";
    }
    return text;
}

std::string settingsMarkdown() {
    Settings defaults;
    setDefaultSettings(&defaults);
    std::vector<const SettingDescriptor*> options;
    for (const SettingDescriptor& option : kSettingDescriptors) options.push_back(&option);
    std::sort(options.begin(), options.end(), [](const SettingDescriptor* a, const SettingDescriptor* b) {
        return a->link_position < b->link_position;
    });
    std::string text = "| position | option | host type | default | meaning |\n|---|---|---|---|---|\n";
    for (const SettingDescriptor* option : options) {
        std::string type = option->int_field != nullptr ? "integer" : "real";
        std::string meaning = option->help;
        if (option->from_text != nullptr) {
            type = "text";
            meaning = "the direction by name:";
            for (std::int32_t code : kDirectionCodes) meaning += std::string(" `") + directionName(code) + "`,";
            meaning.back() = ';';
            meaning += std::string(" any other name means `") + directionName(kDirectionCodes[0]) + "`";
        }
        text += "| " + std::to_string(option->link_position) + " | `" + option->name + "` | " + type + " | " +
                settingText(defaults, option->name) + " | " + meaning + " |\n";
    }
    return text;
}

bool parseSeconds(std::string_view text, double* seconds) {
    return parseReal(text, seconds) && *seconds > 0 && *seconds < 1e9;
}

namespace {

volatile sig_atomic_t time_ran_out = 0;
struct sigaction previous_alarm_action;

void onAlarm(int) {
    time_ran_out = 1;
    consoleInterruptHandler(kControlCEvent);
}

}  // namespace

TimeLimit::TimeLimit(double seconds) {
    time_ran_out = 0;
    struct sigaction action {};
    action.sa_handler = onAlarm;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    if (sigaction(SIGALRM, &action, &previous_alarm_action) != 0) return;
    itimerval timer{};
    const double whole = std::floor(seconds);
    timer.it_value.tv_sec = static_cast<time_t>(whole);
    timer.it_value.tv_usec = static_cast<suseconds_t>((seconds - whole) * 1e6);
    if (timer.it_value.tv_sec == 0 && timer.it_value.tv_usec == 0) timer.it_value.tv_usec = 1;
    timer.it_interval.tv_usec = 50000;
    armed_ = setitimer(ITIMER_REAL, &timer, nullptr) == 0;
}

TimeLimit::~TimeLimit() {
    itimerval off{};
    setitimer(ITIMER_REAL, &off, nullptr);
    sigaction(SIGALRM, &previous_alarm_action, nullptr);
}

bool TimeLimit::reached() const { return armed_ && time_ran_out != 0; }

void setBlasThreads(int threads) { openblas_set_num_threads(threads); }
