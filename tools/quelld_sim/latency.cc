#include "latency.h"

#include <algorithm>
#include <cmath>

namespace quelld_sim {

uint64_t Percentile(const std::vector<uint64_t>& sorted, double p) {
  if (sorted.empty() || !(p > 0)) return 0;
  double rank = std::ceil(p / 100.0 * static_cast<double>(sorted.size()));
  size_t idx = rank < 1 ? 0 : static_cast<size_t>(rank) - 1;
  if (idx >= sorted.size()) idx = sorted.size() - 1;
  return sorted[idx];
}

LatencySummary Summarize(std::vector<uint64_t> samples) {
  LatencySummary s;
  std::sort(samples.begin(), samples.end());
  s.count = samples.size();
  if (samples.empty()) return s;
  s.p50 = Percentile(samples, 50);
  s.p90 = Percentile(samples, 90);
  s.p99 = Percentile(samples, 99);
  s.max = samples.back();
  for (uint64_t v : samples) s.total += v;
  return s;
}

}  // namespace quelld_sim
