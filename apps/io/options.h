// Command-line options shared by the korvex command and the problem-set runner: every
// field of Settings by its own name (--max_iters 5000) or its dashed spelling
// (--max-iters 5000), driven by the one table of settings in records/records.h, and the
// time limit that ends a long solve through the interrupt flag.
#pragma once

#include <string>
#include <string_view>

#include "records/records.h"

// Sets the option called name (without the leading dashes) to the text value. Returns
// 1 when done, 0 when no setting has that name, -1 with *error set for a bad value.
// dir takes a direction name or its code.
int applySetting(Settings* settings, std::string_view name, std::string_view value, std::string* error);

// One line per setting, "  --name VALUE   help (default D)", for --help, with the
// defaults given; where one differs from the library's, that is said too.
std::string settingsHelp(const Settings& defaults);

// The option arguments of the host link, positions 11 to 36, as a Markdown table: the
// position, the setting it fills, the host type, the default and the help. The README
// holds this table as generated.
std::string settingsMarkdown();

// The value of a setting as text ("1e-06", "fixed_point_residual" for dir), or "" for a
// name that is no setting.
std::string settingText(const Settings& settings, std::string_view name);

// Parses a whole number of seconds or a decimal ("2.5") that is positive and finite.
bool parseSeconds(std::string_view text, double* seconds);

// While alive, sets the solver's interrupt flag once the given seconds have passed, and
// again every 50 milliseconds after that (a solve clears the flag when its iteration
// starts), so that the running solve ends as "Interrupted". Uses SIGALRM; one at a time.
class TimeLimit {
public:
    explicit TimeLimit(double seconds);
    ~TimeLimit();
    TimeLimit(const TimeLimit&) = delete;
    TimeLimit& operator=(const TimeLimit&) = delete;

    // Whether the time ran out.
    bool reached() const;

private:
    bool armed_ = false;
};

// Sets the number of BLAS threads (OpenBLAS).
void setBlasThreads(int threads);
