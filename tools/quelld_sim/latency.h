// Latency samples of one kind of event and their percentiles.
#ifndef QUELLD_SIM_LATENCY_H_
#define QUELLD_SIM_LATENCY_H_

#include <cstddef>
#include <cstdint>
#include <vector>

namespace quelld_sim {

struct LatencySummary {
  size_t count = 0;
  uint64_t p50 = 0, p90 = 0, p99 = 0, max = 0;  // nanoseconds
  uint64_t total = 0;                           // sum of all samples
};

// Nearest-rank percentile (0 < p <= 100) of sorted samples; 0 for none.
uint64_t Percentile(const std::vector<uint64_t>& sorted, double p);

// Sorts `samples` and summarises them.
LatencySummary Summarize(std::vector<uint64_t> samples);

}  // namespace quelld_sim

#endif  // QUELLD_SIM_LATENCY_H_
