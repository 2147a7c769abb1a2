#include "latency.h"

#include <cmath>

namespace quelld_sim {

// Buckets: index v for v < 128; for v >= 128 with top bit e (7 <= e <= 63), the 64 buckets of
// [2^e, 2^(e+1)) follow at kExact + (e - 7) * 64, each 2^(e - 6) wide.
int LatencyHistogram::Index(uint64_t ns) {
  if (ns < static_cast<uint64_t>(kExact)) return static_cast<int>(ns);
  const int e = 63 - __builtin_clzll(ns);
  const int sub = static_cast<int>(ns >> (e - kSubBits)) - (1 << kSubBits);
  return kExact + (e - kSubBits - 1) * (1 << kSubBits) + sub;
}

uint64_t LatencyHistogram::Middle(int index) {
  if (index < kExact) return static_cast<uint64_t>(index);
  const int rel = index - kExact;
  const int e = rel / (1 << kSubBits) + kSubBits + 1;
  const uint64_t width = uint64_t{1} << (e - kSubBits);
  const uint64_t lower = (static_cast<uint64_t>((1 << kSubBits) + rel % (1 << kSubBits))) * width;
  return lower + width / 2;
}

void LatencyHistogram::Add(uint64_t ns) {
  ++buckets_[Index(ns)];
  ++count_;
  total_ += ns;
  if (ns < min_) min_ = ns;
  if (ns > max_) max_ = ns;
}

void LatencyHistogram::Merge(const LatencyHistogram& o) {
  for (int i = 0; i < kBuckets; ++i) buckets_[i] += o.buckets_[i];
  count_ += o.count_;
  total_ += o.total_;
  if (o.min_ < min_) min_ = o.min_;
  if (o.max_ > max_) max_ = o.max_;
}

uint64_t LatencyHistogram::Percentile(double p) const {
  if (count_ == 0 || !(p > 0)) return 0;
  double r = std::ceil(p / 100.0 * static_cast<double>(count_));
  const uint64_t rank = r < 1                             ? 1
                        : r > static_cast<double>(count_) ? count_
                                                          : static_cast<uint64_t>(r);
  if (rank == count_) return max_;  // the extremes are known exactly
  if (rank == 1) return min_;
  uint64_t seen = 0;
  for (int i = 0; i < kBuckets; ++i) {
    seen += buckets_[i];
    if (seen >= rank) {
      const uint64_t m = Middle(i);
      return m < min_ ? min_ : m > max_ ? max_ : m;
    }
  }
  return max_;
}

LatencySummary LatencyHistogram::Summary() const {
  LatencySummary s;
  s.count = count_;
  s.total = total_;
  s.max = max_;
  s.p50 = Percentile(50);
  s.p90 = Percentile(90);
  s.p99 = Percentile(99);
  return s;
}

}  // namespace quelld_sim
