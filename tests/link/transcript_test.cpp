// Scenarios of host actions (tests/golden/link_*_steps.txt) and, for each action, every
// callback the library made, in order, what it printed and answered, kept whole beside
// them: the callback order of solves and refusals (link_order.txt); the store's manager,
// accessors, id list, deletion and refusals, stored failures, failing host calls (link_store.txt).
#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <sstream>

#include "link/link_fixture.h"
#include "support/golden.h"

using namespace korvex;

namespace {

std::string recordedCalls() {
    std::string text;
    for (const std::string& call : standin::takeRecordedCalls()) text += "  " + call + "\n";
    return text;
}

class LinkTranscript : public LinkTest {
protected:
    // Runs tests/golden/NAME_steps.txt: "== title" starts a scenario on an empty store.
    void run(const std::string& name) {
        for (const Problem& problem : known_) problems_.push_back(std::make_unique<standin::HostProblem>(coneProgram(problem)));
        std::istringstream steps(readGolden(name + "_steps.txt"));
        std::string transcript;
        for (std::string line; std::getline(steps, line);) {
            if (line.rfind("== ", 0) == 0) {
                standin::stopRecording();
                standin::clearFailures();
                for (std::int32_t id : standin::liveInstances(kManager)) standin::destroyInstance(kManager, id);
                standin::startRecording();
                for (std::size_t k = 0; k < known_.size(); ++k) {
                    const standin::HostProblem& p = *problems_[k];
                    const std::pair<const void*, const char*> handles[] = {{p.b, ".b"}, {p.c, ".c"}, {p.A, ".A"},
                        {p.soc_sizes, ".soc"}, {p.sd_sizes, ".sd"}, {p.power_exponents, ".power"}};
                    for (const auto& [handle, part] : handles) standin::nameHandle(handle, known_[k].name + part);
                }
                transcript += line + "\n";
            } else if (!line.empty() && !transcript.empty()) {
                transcript += "> " + line + "\n" + step(line);
            }
        }
        standin::stopRecording();
        problems_.clear();
        expectGolden(name + ".txt", transcript);
    }

    // One action: the callbacks it caused, what the library printed, and the answer.
    std::string step(const std::string& line) {
        std::istringstream words(line);
        std::string verb, answer;
        std::int32_t id = 0, number = 0;
        words >> verb >> id;
        ConsoleTap console;
        CapturedOutput errors(stderr);
        if (verb == "create") {
            answer = standin::createInstanceWithId(kManager, id) ? "" : "  no such manager\n";
        } else if (verb == "manage" && words >> number) {
            link.manage(host, number, id);
        } else if (verb == "initialize" || verb == "uninitialize") {
            answer = verb == "initialize" ? "  = " + std::to_string(link.initialize(host)) + "\n" : (link.uninitialize(host), "");
        } else if (verb == "fail" && words >> verb) {
            const char* calls[] = {"tensorNew", "tensorClone", "sparseClone"};
            standin::failCallAt(static_cast<standin::HostCall>(std::find(calls, calls + 3, verb) - calls), id);
        } else if (verb == "ids") {
            HostTensor list = nullptr;
            answer = "  = " + std::to_string(link.idList(host, 0, nullptr, &list));
            std::vector<std::int32_t> ids = list != nullptr ? standin::integerValues(list) : std::vector<std::int32_t>{};
            std::sort(ids.begin(), ids.end());
            for (std::int32_t value : ids) answer += " " + std::to_string(value);
            answer += list != nullptr ? "\n" : ", unwritten\n";
            standin::freeTensor(list);
        } else if (verb == "delete" && words >> number) {
            answer = "  = " + std::to_string(deleteInstance(id, number)) + "\n";
        } else if (verb == "solve") {
            answer = solveStep(id, words);
        } else if (verb == "read" && words >> number) {
            for (std::string name; words >> name;) {
                for (int k = 0; k < kFieldAccessorCount; ++k) {
                    const std::string accessor = kFieldAccessors[k].name;
                    if (name == "*" || accessor.ends_with("_ret_" + name)) answer += readField(id, number, kFieldAccessors[k]);
                }
            }
        } else {
            ADD_FAILURE() << "unknown step: " << line;
        }
        std::string text = recordedCalls();
        std::istringstream printed(console.finish() + errors.finish());
        for (std::string out; std::getline(printed, out);) text += "  | " + out + "\n";
        return text + answer;
    }

    // solve ID PROBLEM [SETTING=VALUE...] [A=STARTS/ONE-BASED ROWS/VALUES]
    std::string solveStep(std::int32_t id, std::istringstream& words) {
        std::string name;
        words >> name;
        const auto known = std::find_if(known_.begin(), known_.end(), [&](const Problem& p) { return p.name == name; });
        if (known == known_.end()) return "  no such problem\n";
        Settings settings = linkTestSettings();
        HostSparse matrix = nullptr;
        for (std::string option; words >> option;) {
            const std::string key = option.substr(0, option.find('=')), value = option.substr(option.find('=') + 1);
            if (key == "A") {  // starts, one-based rows and values, each a list
                std::vector<double> parts[3];
                std::istringstream lists(value);
                std::string list;
                for (int k = 0; k < 3 && std::getline(lists, list, '/'); ++k) {
                    std::istringstream entries(list);
                    for (std::string entry; std::getline(entries, entry, ',');) parts[k].push_back(std::stod(entry));
                }
                matrix = standin::newSparse(known->m(), std::vector<std::int32_t>(parts[0].begin(), parts[0].end()),
                                            std::vector<std::int32_t>(parts[1].begin(), parts[1].end()), parts[2]);
                standin::nameHandle(matrix, "given.A");
            }
            for (int k = 0; k < kSettingDescriptorCount; ++k) {
                const SettingDescriptor& setting = kSettingDescriptors[k];
                if (key == setting.name && setting.int_field != nullptr) settings.*setting.int_field = std::stoi(value);
                if (key == setting.name && setting.double_field != nullptr) settings.*setting.double_field = std::stod(value);
            }
        }
        standin::SolveArguments arguments(id, *problems_[known - known_.begin()], settings, "restarted_broyden");
        if (matrix != nullptr) arguments.setSparse(3, matrix);
        std::int32_t status = 12345;
        const int result = link.solve(host, standin::SolveArguments::kCount, arguments.slots(), &status);
        standin::freeSparse(matrix);
        return "  = " + std::to_string(result) + ", result " + std::to_string(status) + "\n";
    }

    // One accessor: its code and what it wrote, by kind (the vectors by their length,
    // the real figures as 0, nan, inf or finite).
    std::string readField(std::int32_t id, int count, const FieldAccessor& accessor) {
        HostArgument arguments[] = {&id, &id};
        alignas(8) unsigned char result[8];
        std::memset(result, 0xA5, sizeof result);
        const int code = (link.*accessor.function)(host, count, arguments, result);
        const auto as = [&](auto value) { return std::memcpy(&value, result, sizeof value), value; };
        const std::string name = std::string(accessor.name).substr(std::strlen("KorvexSolutionMap_ret_"));
        const std::string text = recordedCalls() + "  " + name + " = " + std::to_string(code) + ", ";
        if (std::all_of(result, result + 8, [](unsigned char byte) { return byte == 0xA5; })) return text + "unwritten\n";
        if (name == "x" || name == "y" || name == "s") {
            const HostTensor tensor = as(HostTensor{});
            const std::vector<double> values = tensor != nullptr ? standin::realValues(tensor) : std::vector<double>{};
            standin::freeTensor(tensor);
            if (tensor == nullptr) return text + "null\n";
            return text + std::to_string(values.size()) + " reals" + (allNaN(values.data(), values.size()) ? ", all NaN\n" : "\n");
        }
        if (name == "iter" || name == "statusVal") return text + std::to_string(as(std::int32_t{})) + "\n";
        if (name == "status") return text + "\"" + as(static_cast<const char*>(nullptr)) + "\"\n";
        const double v = as(0.0);
        return text + (v == 0 ? "0" : std::isnan(v) ? "nan" : std::isinf(v) ? "inf" : "finite") + "\n";
    }

    const std::vector<Problem> known_ = knownProblems();
    std::vector<std::unique_ptr<standin::HostProblem>> problems_;
};

TEST_F(LinkTranscript, CallbackOrderOfASolveASecondSolveAndRefusals) { run("link_order"); }

TEST_F(LinkTranscript, SolutionStoreRefusalsAndFailingHostCalls) { run("link_store"); }

}  // namespace
