// SPDX-License-Identifier: MIT
// The results of a program's benchmarks, for the aims that it prints behind its table. The exit status
// is 1 when an aim is missed.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <string>
#include <vector>

// A counter of each benchmark, by the benchmark's name, beside the usual table.
class counters_reporter_s : public benchmark::ConsoleReporter {
  public:
    std::map<std::string, std::map<std::string, double>> counters;

    void ReportRuns(const std::vector<Run>& runs) override {
        for (const Run& run : runs) {
            for (const auto& [name, counter] : run.counters) {
                counters[run.benchmark_name()][name] = counter.value;
            }
            failed = failed || run.error_occurred;
        }
        ConsoleReporter::ReportRuns(runs);
    }
    // Runs what the command line asks for; false when it is wrong or a benchmark gave up.
    bool run(int argc, char** argv) {
        benchmark::Initialize(&argc, argv);
        if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
            return false;
        }
        benchmark::RunSpecifiedBenchmarks(this);
        benchmark::Shutdown();
        return !failed;
    }

  private:
    bool failed = false;
};

// Prints an aim and whether it is met.
inline bool tellAim(const char* what, double measured, const char* relation, double aim, bool met) {
    std::printf("%-52s %12.4g  aim %s %.8g  %s\n", what, measured, relation, aim, met ? "met" : "MISSED");
    return met;
}
inline bool atLeast(const char* what, double measured, double aim) {
    return tellAim(what, measured, ">=", aim, measured >= aim);
}
inline bool atMost(const char* what, double measured, double aim) {
    return tellAim(what, measured, "<=", aim, measured <= aim);
}
