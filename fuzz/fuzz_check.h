// Shared body of the decoder fuzz harnesses: decode arbitrary bytes; whatever decodes must
// re-encode to bytes that decode to the same record, and must render as text.
#ifndef ZQ_FUZZ_CHECK_H
#define ZQ_FUZZ_CHECK_H

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "vix_cpp_comm/VixError.h"

namespace zqfuzz {

inline void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
  }
}

// T is a generated record; decoded records are re-packed at the cut version cutOf(record).
template <typename T, typename CutOf>
void decodeRecodeDecode(const uint8_t* data, size_t size, CutOf cutOf) {
  // Records can be large; keep them off the stack and reuse them between inputs.
  static std::unique_ptr<T> first(new T());
  static std::unique_ptr<T> second(new T());
  static std::vector<char> wire(T::MAX_PACK_SIZE + 16);
  static std::vector<char> again(T::MAX_PACK_SIZE + 16);
  static std::vector<char> text(1 << 22);

  std::memset(first.get(), 0, sizeof(T));
  size_t used = 0;
  if (first->unpack(reinterpret_cast<const char*>(data), size, &used, 0) != 0) return;
  check(used <= size, "consumed more than the input");

  // The text always renders, except that a count or flag the decoded version did not use may be
  // out of range, which visualize reports like pack would.
  size_t textUsed = 0;
  const int shown = first->visualize(text.data(), text.size(), &textUsed, 0, '\n');
  check(shown == 0 || shown == kalmo_vix::VixError::VIX_ERR_MINUS_REFER_VALUE ||
            shown == kalmo_vix::VixError::VIX_ERR_REFER_SURPASS_COUNT,
        "visualize of a decoded record");
  check(textUsed < text.size(), "text position");

  // A negative cut means the record cannot be re-packed as it was decoded (a nested version
  // indicator that the caller's cut version would overwrite); then only decoding is checked.
  const int wanted = cutOf(*first);
  if (wanted < 0) return;
  const unsigned int cut = static_cast<unsigned int>(wanted);
  size_t packed = 0;
  check(first->pack(wire.data(), wire.size(), &packed, cut) == 0, "re-pack of a decoded record");
  check(packed <= T::MAX_PACK_SIZE, "encoding above MAX_PACK_SIZE");

  std::memset(second.get(), 0, sizeof(T));
  size_t used2 = 0;
  check(second->unpack(wire.data(), packed, &used2, cut) == 0, "decode of the re-packed bytes");
  check(used2 == packed, "decode consumed a different length");
  size_t packed2 = 0;
  check(second->pack(again.data(), again.size(), &packed2, cut) == 0, "second re-pack");
  check(packed2 == packed && std::memcmp(wire.data(), again.data(), packed) == 0,
        "re-packed bytes differ");
  // What a record looks like after a trip at `cut`: entries it does not carry are zero and its
  // version indicators state the cut.
  vixtest_cut(*first, cut);
  vixtest_clear_size(*first);
  vixtest_clear_size(*second);
  check(std::memcmp(first.get(), second.get(), sizeof(T)) == 0, "decoded records differ");
}

}  // namespace zqfuzz

#endif  // ZQ_FUZZ_CHECK_H
