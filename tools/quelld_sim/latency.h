// Latency of one kind of event: a histogram of fixed size, so memory stays the same however many
// events a run has, with percentiles accurate to a stated relative error.
#ifndef QUELLD_SIM_LATENCY_H_
#define QUELLD_SIM_LATENCY_H_

#include <cstddef>
#include <cstdint>

namespace quelld_sim {

struct LatencySummary {
  uint64_t count = 0;
  uint64_t p50 = 0, p90 = 0, p99 = 0, max = 0;  // nanoseconds
  uint64_t total = 0;                           // sum of all samples
};

// Log-linear histogram of nanosecond samples. Values below 128 are counted exactly; above, each
// power of two is split into 64 buckets of equal width, so a bucket is at most 1/64 of its lower
// edge wide. A percentile is reported as the middle of its bucket (clamped to the smallest and
// largest sample seen), which is within kRelativeError of the exact nearest-rank percentile.
class LatencyHistogram {
 public:
  static constexpr double kRelativeError = 1.0 / 128;

  void Add(uint64_t ns);
  void Merge(const LatencyHistogram& other);
  // Nearest-rank percentile (0 < p <= 100) within kRelativeError; 0 when there are no samples.
  uint64_t Percentile(double p) const;
  LatencySummary Summary() const;
  uint64_t count() const { return count_; }

 private:
  static constexpr int kSubBits = 6;            // 64 buckets per power of two
  static constexpr int kExact = 2 << kSubBits;  // 0 .. 127 counted exactly
  static constexpr int kBuckets = kExact + (64 - kSubBits - 1) * (1 << kSubBits);
  static int Index(uint64_t ns);
  static uint64_t Middle(int index);

  uint64_t buckets_[kBuckets] = {};
  uint64_t count_ = 0, total_ = 0, min_ = UINT64_MAX, max_ = 0;
};

}  // namespace quelld_sim

#endif  // QUELLD_SIM_LATENCY_H_
