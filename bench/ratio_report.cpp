#include "ratio_report.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

namespace {

// Keeps the time per iteration of each run, preferring the median of repetitions.
class RatioCollector : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        ConsoleReporter::ReportRuns(runs);
        for (const Run& run : runs) {
            if (run.error_occurred) continue;
            const bool median = run.run_type == Run::RT_Aggregate && run.aggregate_name == "median";
            if (run.run_type == Run::RT_Aggregate && !median) continue;
            std::string name = run.run_name.str();
            if (median || times_.count(name) == 0 || !has_median_[name]) {
                times_[name] = run.GetAdjustedRealTime();
                times_ns_[name] = run.GetAdjustedRealTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
                cpu_ns_[name] = run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) * 1e9;
                unit_[name] = benchmark::GetTimeUnitString(run.time_unit);
                has_median_[name] = has_median_[name] || median;
            }
        }
    }
    std::map<std::string, double> times_;
    std::map<std::string, double> times_ns_;
    std::map<std::string, double> cpu_ns_;
    std::map<std::string, std::string> unit_;
    std::map<std::string, bool> has_median_;
};

std::map<std::string, double> last_times_ns;
std::map<std::string, double> last_cpu_ns;

}  // namespace

const std::map<std::string, double>& benchmarkTimesNs() { return last_times_ns; }
const std::map<std::string, double>& benchmarkCpuTimesNs() { return last_cpu_ns; }

int runBenchmarksWithRatios(int argc, char** argv, const char* title) {
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    RatioCollector collector;
    benchmark::RunSpecifiedBenchmarks(&collector);
    benchmark::Shutdown();
    last_times_ns = collector.times_ns_;
    last_cpu_ns = collector.cpu_ns_;

    std::printf("\n%s\n%-44s %14s %14s %12s %12s\n", title, "subject", "ours", "reference", "time ratio",
                "throughput");
    for (const auto& [name, time] : collector.times_) {
        if (name.rfind("ours/", 0) != 0) continue;
        const std::string subject = name.substr(5);
        auto ref = collector.times_.find("ref/" + subject);
        if (ref == collector.times_.end()) continue;
        std::printf("%-44s %11.4g %-2s %11.4g %-2s %12.3f %12.3f\n", subject.c_str(), time,
                    collector.unit_[name].c_str(), ref->second, collector.unit_[ref->first].c_str(),
                    time / ref->second, ref->second / time);
    }
    std::printf("time ratio = ours / reference (lower is better); throughput = reference / ours.\n");
    return 0;
}
