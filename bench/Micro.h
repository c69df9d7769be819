// What the micro-benchmarks share: one JSON line per workload and peer on standard output, the
// median CPU time over the repetitions in ns, divided by the counter `n` if a benchmark sets it.
// Benchmark names are `<workload parts>/.../<peer>`.
#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace bench {

/// A fixed scramble of 64 bits: every run of every peer sees the same numbers.
constexpr std::uint64_t mix64(std::uint64_t x) {
  x += 0x9e3779b97f4a7c15;
  x = (x ^ x >> 30) * 0xbf58476d1ce4e5b9;
  x = (x ^ x >> 27) * 0x94d049bb133111eb;
  return x ^ x >> 31;
}

class JsonLines : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(Context const&) override { return true; }
  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        hasFailed_ = true;
      }
      bool const isSingle = run.run_type == Run::RT_Iteration && run.repetitions <= 1;
      if (!isSingle && !(run.run_type == Run::RT_Aggregate && run.aggregate_name == "median")) {
        continue;
      }
      std::string workload = run.run_name.function_name;
      auto const slash = workload.rfind('/');
      std::string const peer = workload.substr(slash + 1);
      workload.resize(slash);
      for (char& c : workload) {
        if (c == '/') c = '-';
      }
      double ns = run.GetAdjustedCPUTime();
      auto const n = run.counters.find("n");
      if (n != run.counters.end() && n->second.value > 0) ns /= n->second.value;
      std::printf("{\"workload\":\"%s\",\"peer\":\"%s\",\"metric\":\"ns_per_op\",\"value\":%.4g}\n",
                  workload.c_str(), peer.c_str(), ns);
    }
    std::fflush(stdout);
  }
  bool hasFailed() const { return hasFailed_; }

 private:
  bool hasFailed_ = false;
};

template <class F>
void add(std::string const& name, F run) {
  benchmark::RegisterBenchmark(name.c_str(), run);
}

inline int run(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  JsonLines lines;
  benchmark::RunSpecifiedBenchmarks(&lines);
  return lines.hasFailed() ? 1 : 0;
}

}  // namespace bench
