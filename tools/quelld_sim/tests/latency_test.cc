#include "latency.h"

#include <gtest/gtest.h>

namespace quelld_sim {
namespace {

TEST(Latency, NearestRankPercentiles) {
  std::vector<uint64_t> v;
  for (uint64_t i = 100; i >= 1; --i) v.push_back(i);  // unsorted input
  const LatencySummary s = Summarize(v);
  EXPECT_EQ(s.count, 100u);
  EXPECT_EQ(s.p50, 50u);
  EXPECT_EQ(s.p90, 90u);
  EXPECT_EQ(s.p99, 99u);
  EXPECT_EQ(s.max, 100u);
  EXPECT_EQ(s.total, 5050u);
  // Three samples: p50 is the 2nd, p90 the 3rd; no samples give zeros.
  const LatencySummary three = Summarize({30, 10, 20});
  EXPECT_EQ(three.p50, 20u);
  EXPECT_EQ(three.p90, 30u);
  EXPECT_EQ(Summarize({}).max, 0u);
  EXPECT_EQ(Percentile({1, 2, 3}, 0), 0u);
}

}  // namespace
}  // namespace quelld_sim
