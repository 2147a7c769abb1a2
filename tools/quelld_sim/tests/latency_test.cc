#include "latency.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <type_traits>
#include <vector>

namespace quelld_sim {
namespace {

// No heap: the histogram's memory is its size, whatever the number of samples.
static_assert(std::is_trivially_copyable<LatencyHistogram>::value, "fixed-size histogram");

uint64_t NearestRank(const std::vector<uint64_t>& sorted, double p) {
  size_t rank = static_cast<size_t>(std::ceil(p / 100.0 * static_cast<double>(sorted.size())));
  return sorted[std::max<size_t>(rank, 1) - 1];
}

TEST(Latency, PercentilesAreWithinTheStatedRelativeError) {
  std::mt19937_64 rng(7);
  std::vector<uint64_t> all;
  LatencyHistogram h, halves[2];
  for (int i = 0; i < 200000; ++i) {
    // Spread over eleven orders of magnitude, from exact small values to minutes.
    const uint64_t v =
        static_cast<uint64_t>(std::exp2(std::uniform_real_distribution<>(0, 37)(rng)));
    all.push_back(v);
    h.Add(v);
    halves[i % 2].Add(v);
  }
  halves[0].Merge(halves[1]);
  std::sort(all.begin(), all.end());
  for (double p : {0.001, 1.0, 50.0, 90.0, 99.0, 99.99, 100.0}) {
    const double exact = static_cast<double>(NearestRank(all, p));
    EXPECT_LE(std::fabs(static_cast<double>(h.Percentile(p)) - exact),
              exact * LatencyHistogram::kRelativeError)
        << p;
    EXPECT_EQ(halves[0].Percentile(p), h.Percentile(p)) << p;
  }
  const LatencySummary s = h.Summary();
  EXPECT_EQ(s.count, all.size());
  EXPECT_EQ(s.max, all.back());
  uint64_t total = 0;
  for (uint64_t v : all) total += v;
  EXPECT_EQ(s.total, total);
}

TEST(Latency, SmallValuesAreExactAndExtremesClamped) {
  LatencyHistogram h;
  EXPECT_EQ(h.Summary().p50, 0u);  // no samples
  for (uint64_t v = 100; v >= 1; --v) h.Add(v);
  EXPECT_EQ(h.Percentile(50), 50u);
  EXPECT_EQ(h.Percentile(99), 99u);
  EXPECT_EQ(h.Percentile(0), 0u);
  LatencyHistogram big;
  for (uint64_t v : {uint64_t{1003521}, uint64_t{1003521}, UINT64_MAX}) big.Add(v);
  EXPECT_EQ(big.Percentile(100), UINT64_MAX);
  // Bucket [999424, 1007616): its middle is one less than the smallest sample, so clamped.
  EXPECT_EQ(big.Percentile(60), 1003521u);
}

}  // namespace
}  // namespace quelld_sim
