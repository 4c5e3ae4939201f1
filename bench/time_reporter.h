// A console reporter that also keeps each benchmark's adjusted real time per iteration (in the
// benchmark's own unit), so a program can print ratios measured in the same run.
#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>
#include <vector>

class TimeReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) times_[run.benchmark_name()] = run.GetAdjustedRealTime();
    ConsoleReporter::ReportRuns(runs);
  }
  // 0 when the benchmark did not run.
  double time(const std::string& name) const {
    auto it = times_.find(name);
    return it == times_.end() ? 0 : it->second;
  }

 private:
  std::map<std::string, double> times_;
};
