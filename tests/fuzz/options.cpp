// The option parser of the command on arbitrary text, one "name value" or "name=value" a
// line: a value is taken or refused with a message, and one taken reads back through
// settingText as the same setting. (Option values reach the solver's checks in link_solve.)
#include <cmath>

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
        std::string error, shown;
        const int applied = applySetting(&settings, name, value, &error);
        Settings again = settings;
        if ((applied == -1 && error.empty()) ||
            (applied == 1 && (applySetting(&again, name, shown = settingText(settings, name), &error) != 1 ||
                              settingText(again, name) != shown))) {
            fuzz::broken("a refusal without a message, or a value that does not read back: " + std::string(line));
        }
        double seconds = 0.0;
        if (parseSeconds(value, &seconds) && !(seconds > 0 && std::isfinite(seconds))) fuzz::broken("bad seconds");
    }
    return 0;
}
