#pragma once

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include <map>
#include <string>

// The console report, plus the figures it collected, so that a benchmark program can close with
// each figure as a ratio to a baseline measured in the same run: absolute times say little
// across machines, ratios do. CPU time, not wall time, because the build machines are shared
// and a neighbour's load would otherwise land on whichever benchmark happened to run beside it.
class BaselineRatioReporter final : public benchmark::ConsoleReporter {
public:
    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            if (!run.error_occurred && run.run_type == Run::RT_Iteration) {
                m_nanoseconds[run.benchmark_name()] =
                    run.GetAdjustedCPUTime() / benchmark::GetTimeUnitMultiplier(run.time_unit) *
                    1e9;
            }
        }
        ConsoleReporter::ReportRuns(runs);
    }

    // CPU nanoseconds per iteration of a benchmark by its full name ("BM_Evaluate/108000"), or 0
    // when it did not run (filtered out).
    double nanoseconds(const std::string& name) const {
        const auto found = m_nanoseconds.find(name);
        return found == m_nanoseconds.end() ? 0.0 : found->second;
    }

    // "<label>: <figure> = <ratio> x <baseline label> (<baseline>)"
    void printRatio(const std::string& label, const std::string& figure,
                    const std::string& baselineLabel, const std::string& baseline) const {
        const double f = nanoseconds(figure);
        const double b = nanoseconds(baseline);
        if (f <= 0.0 || b <= 0.0) {
            return;
        }
        fmt::print("{}: {} = {:.2f} x {} ({})\n", label, human(f), f / b, baselineLabel, human(b));
    }

    static std::string human(double ns) {
        if (ns >= 1e6) {
            return fmt::format("{:.2f} ms", ns / 1e6);
        }
        if (ns >= 1e3) {
            return fmt::format("{:.2f} us", ns / 1e3);
        }
        return fmt::format("{:.0f} ns", ns);
    }

private:
    std::map<std::string, double> m_nanoseconds;
};
