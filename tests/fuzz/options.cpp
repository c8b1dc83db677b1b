// The option parser of the command on arbitrary text, one "name value" or "name=value" a
// line: a value is taken or refused with a message, one taken reads back through
// settingText as the same setting, and the settings go through the solver's validation
// of a one-row problem without harm.
#include <cmath>

#include "core/validation.h"
#include "fuzz/fuzz_support.h"
#include "io/options.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Settings settings;
    setDefaultSettings(&settings);
    for (std::string_view text = fuzz::asText(data, size); !text.empty();) {
        const std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        const std::size_t cut = std::min(line.size(), line.find_first_of(" ="));
        const std::string_view name = line.substr(0, cut), value = line.substr(std::min(line.size(), cut + 1));
        std::string error, text_value;
        const int applied = applySetting(&settings, name, value, &error);
        if (applied == -1 && error.empty()) fuzz::broken("a refusal without a message");
        Settings again = settings;
        if (applied == 1 && (applySetting(&again, name, text_value = settingText(settings, name), &error) != 1 ||
                             settingText(again, name) != text_value)) {
            fuzz::broken("settingText does not read back: " + std::string(line));
        }
        double seconds = 0.0;
        if (parseSeconds(value, &seconds) && !(seconds > 0 && std::isfinite(seconds))) fuzz::broken("bad seconds");
    }
    std::int32_t p[] = {0, 1}, i[] = {0};  // minimise x subject to x >= 1
    double x[] = {-1.0}, b[] = {-1.0}, c[] = {1.0};
    SparseMatrix A{x, i, p, 1, 1};
    const Data problem{1, 1, &A, b, c, &settings};
    Cone cone{};
    cone.linear_vars = 1;
    korvex::validateProblem(&problem, &cone);
    return 0;
}
