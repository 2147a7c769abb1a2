// Helpers of the hand-derived wire-vector tests: byte strings, records filled with garbage or
// constructed from zero, and pack/unpack wrappers that check the bytes around what they report.
#ifndef ZQ_VIX_FILES_TESTS_WIRE_VECTORS_H_
#define ZQ_VIX_FILES_TESTS_WIRE_VECTORS_H_

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <memory>
#include <vector>

namespace wire {

using Bytes = std::vector<unsigned char>;

constexpr char kSentinel = '\x5c';

inline Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes out;
  for (const Bytes& p : parts) out.insert(out.end(), p.begin(), p.end());
  return out;
}

// A record full of garbage, so that unpack has to set every field it owns.
template <class T>
std::unique_ptr<T> Garbage() {
  std::unique_ptr<T> rec(new T);
  std::memset(static_cast<void*>(rec.get()), 0xEE, sizeof(T));
  return rec;
}

// A constructed record whose union members start from zero too.
template <class T>
std::unique_ptr<T> Fresh() {
  std::unique_ptr<T> rec(new T);
  std::memset(static_cast<void*>(rec.get()), 0, sizeof(T));
  EXPECT_EQ(rec->construct(), 0);
  return rec;
}

// Packs into a sentinel-filled area and checks that nothing past the reported size changed.
template <class T>
Bytes Pack(const T& rec, unsigned cutVer, int expectRc = 0) {
  std::vector<char> area(T::MAX_PACK_SIZE + 64, kSentinel);
  size_t used = 12345;
  EXPECT_EQ(rec.pack(area.data(), area.size(), &used, cutVer), expectRc);
  if (used > area.size()) {
    ADD_FAILURE() << "used size " << used << " beyond the area";
    return Bytes();
  }
  for (size_t i = used; i < area.size(); ++i) {
    if (area[i] != kSentinel) {
      ADD_FAILURE() << "byte " << i << " written past the reported size " << used;
      break;
    }
  }
  return Bytes(area.begin(), area.begin() + static_cast<std::ptrdiff_t>(used));
}

// Unpacks exactly the given bytes (followed by trailing junk that must stay unread).
template <class T>
std::unique_ptr<T> Unpack(const Bytes& wire, unsigned cutVer) {
  std::vector<char> area(wire.begin(), wire.end());
  area.insert(area.end(), 8, kSentinel);
  std::unique_ptr<T> rec = Garbage<T>();
  size_t used = 0;
  EXPECT_EQ(rec->unpack(area.data(), area.size(), &used, cutVer), 0);
  EXPECT_EQ(used, wire.size());
  return rec;
}

}  // namespace wire

#endif  // ZQ_VIX_FILES_TESTS_WIRE_VECTORS_H_
