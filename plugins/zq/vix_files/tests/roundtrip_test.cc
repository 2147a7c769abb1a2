// Every record type of every schema, filled with pseudo-random values, round-trips at every cut
// version from BASEVERSION to CURRVERSION, and fails cleanly in every area shorter than its
// encoding.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "nhp_testsupport.h"
#include "o2auth_data_testsupport.h"
#include "tframehead_testsupport.h"

namespace {

std::string failure(const char* type, unsigned int cutVer, uint64_t seed, int ret) {
  return std::string(type) + " cut " + std::to_string(cutVer) + " seed " + std::to_string(seed) +
         ": " + std::to_string(ret) + " " + kalmo_vix::VixError::getErrorString(ret) + " " +
         kalmo_vix::VixError::getBackTrace();
}

template <typename T>
std::vector<char> packed(const T& rec, unsigned int cutVer, int& ret) {
  std::vector<char> out(T::MAX_PACK_SIZE + 1);
  size_t used = 0;
  ret = rec.pack(out.data(), out.size(), &used, cutVer);
  out.resize(used);
  return out;
}

// Packing into every shorter area fails with -1 and never writes past it; decoding every
// prefix of a valid encoding fails with -2.
template <typename T>
void shortBuffers(const T& orig, const std::vector<char>& wire, const char* type) {
  const char kSentinel = static_cast<char>(0xa5);
  std::vector<char> out(wire.size() + 32);
  auto back = std::make_unique<T>();
  for (size_t n = 0; n < wire.size(); ++n) {
    std::fill(out.begin(), out.end(), kSentinel);
    size_t used = 0;
    ASSERT_EQ(-1, orig.pack(out.data(), n, &used, 0)) << type << " length " << n;
    ASSERT_LE(used, n);
    ASSERT_EQ(std::vector<char>(out.size() - n, kSentinel),
              std::vector<char>(out.begin() + static_cast<long>(n), out.end()))
        << type << " wrote past " << n;
    ASSERT_NE(std::string(""), kalmo_vix::VixError::getBackTrace()) << type;
    // An exact-size copy of the prefix, so a read past it is caught by the sanitizers.
    std::vector<char> prefix(wire.begin(), wire.begin() + static_cast<long>(n));
    const char* from = n == 0 ? out.data() : prefix.data();  // never null: that is -19
    ASSERT_EQ(-2, back->unpack(from, n, &used, 0)) << type << " prefix " << n;
  }
}

// Records are plain structures (the big ones live on the heap); six seeds per cut version.
template <typename T>
void roundTrip(const char* type) {
  static std::vector<char> text(8 << 20);
  for (uint64_t seed = 1; seed <= 6; ++seed) {
    for (unsigned int v = T::BASEVERSION; v <= T::CURRVERSION; ++v) {
      const uint64_t fillSeed = seed * 1000 + v;
      auto orig = std::make_unique<T>();
      vixtest_fill(*orig, fillSeed);
      int ret = 0;
      const std::vector<char> wire = packed(*orig, v, ret);
      ASSERT_EQ(0, ret) << failure(type, v, seed, ret);

      // Decoded into a zeroed record it equals the original as the cut version sees it.
      auto zero = std::make_unique<T>();
      size_t used = 0;
      ret = zero->unpack(wire.data(), wire.size(), &used, v);
      ASSERT_EQ(0, ret) << failure(type, v, seed, ret);
      ASSERT_EQ(wire.size(), used) << type << " cut " << v;
      auto expected = std::make_unique<T>(*orig);
      vixtest_cut(*expected, v);
      vixtest_clear_size(*expected);
      vixtest_clear_size(*zero);
      ASSERT_EQ(0, std::memcmp(expected.get(), zero.get(), sizeof(T)))
          << type << " cut " << v << " seed " << seed;

      // Decoded over a record full of other values, the entries the cut does not carry come
      // back zero: packed at the current version it matches the expectation.
      auto dirty = std::make_unique<T>();
      vixtest_fill(*dirty, fillSeed ^ 0x5a5a5a5aULL);
      ret = dirty->unpack(wire.data(), wire.size(), &used, v);
      ASSERT_EQ(0, ret) << failure(type, v, seed, ret);
      int r1 = 0, r2 = 0;
      ASSERT_EQ(packed(*expected, 0, r1), packed(*dirty, 0, r2))
          << type << " cut " << v << " seed " << seed;
      ASSERT_EQ(0, r1 | r2);
      ASSERT_EQ(wire, packed(*zero, v, ret)) << type << " cut " << v;  // re-packs the same
      size_t textUsed = 0;  // the text rendering of a valid record always succeeds
      ASSERT_EQ(0, orig->visualize(text.data(), text.size(), &textUsed, 0, '\n')) << type;
      ASSERT_GT(textUsed, 0u);
      if (v == T::CURRVERSION && seed <= 2) shortBuffers(*orig, wire, type);  // current version
    }
  }
}

}  // namespace

#define VIXTEST_EVERY_RECORD(T) \
  roundTrip<T>(#T);             \
  if (HasFatalFailure()) return;

TEST(RoundTrip, EveryFrameHeadRecord) { TFRAMEHEAD_RECORD_TYPES(VIXTEST_EVERY_RECORD); }
TEST(RoundTrip, EveryClientRecord) { NHP_RECORD_TYPES(VIXTEST_EVERY_RECORD); }
TEST(RoundTrip, EveryOAuthRecord) { O2AUTH_DATA_RECORD_TYPES(VIXTEST_EVERY_RECORD); }
