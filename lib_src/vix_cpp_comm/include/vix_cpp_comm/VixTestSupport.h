/*
 * VixTestSupport.h: the deterministic pseudo-random source used by the generated
 * <schema>_testsupport.h fill functions. For tests, fuzz seeds and benchmarks only.
 */
#ifndef VIX_CPP_COMM_VIXTESTSUPPORT_H
#define VIX_CPP_COMM_VIXTESTSUPPORT_H

#include <cstddef>
#include <cstdint>

namespace kalmo_vix {

// splitmix64: the same seed always gives the same sequence, on every platform.
class VixTestRng {
 public:
  explicit VixTestRng(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  // A count in [0, limit], with the edges 0 and limit picked more often than the rest.
  uint64_t count(uint64_t limit) {
    const uint64_t r = next();
    switch (r & 7u) {
      case 0:
        return 0;
      case 1:
        return limit;
      default:
        return (r >> 3) % (limit + 1);
    }
  }

  // A printable text of 0 to cap - 1 characters, NUL-terminated; the rest of s is left alone.
  void text(char* s, size_t cap) {
    if (cap == 0) return;
    const size_t n = static_cast<size_t>(count(cap - 1));
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + next() % 26);
    s[n] = '\0';
  }

  void bytes(void* p, size_t n) {
    unsigned char* b = static_cast<unsigned char*>(p);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(next());
  }

 private:
  uint64_t state_;
};

}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXTESTSUPPORT_H
