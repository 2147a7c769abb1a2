// The offset array and offset hash in a plain heap buffer.
#include <stdint.h>
#include <string.h>

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "wmng/terror.h"
#include "wmng/toffset.h"

namespace {

// A zeroed, 8-byte aligned buffer standing in for a segment.
struct Segment {
  explicit Segment(size_t bytes) : words(bytes / 8 + 1, 0) {}
  void* base() { return words.data(); }
  std::vector<uint64_t> words;
};

const uint64_t kHead = 0;
const uint64_t kStore = 128;  // after the array header, leaving room
const uint64_t kElem = 24;
const uint64_t kStride = kElem + 16;

TEST(ToffsetArray, InitRefusalsAndNoFreeList) {
  Segment seg(4096);
  struct Case {
    void* base;
    uint64_t head, store;
    int count, code;
  } cases[] = {
      {nullptr, 0, 128, 4, -1},
      {reinterpret_cast<void*>(UINTPTR_MAX), 0, 128, 4, -2},
      {seg.base(), 0, 128, -1, -3},
      {seg.base(), 0, 71, 4, -4},             // storage after the header, inside it
      {seg.base(), 1000, 1000 - 159, 4, -5},  // storage before the header, running into it
      {seg.base(), 1000, 1000 - 160, 4, 0},   // ends exactly at the header
      {seg.base(), 0, 72, 4, 0},
      {seg.base(), 0, 72, 0, 0},
  };
  for (const Case& c : cases) {
    terror_clear(nullptr);
    EXPECT_EQ(toffset_array_init(c.base, c.head, c.store, kElem, c.count, 1), c.code)
        << c.head << "/" << c.store << "/" << c.count;
    EXPECT_EQ(terror_count(nullptr), c.code == 0 ? 0 : 1);
  }
  EXPECT_EQ(toffset_array_size(kElem, 4), 4 * kStride);
  EXPECT_EQ(toffset_array_size(kElem, -1), TOFFSET_INVALID);
  // Without a free list the links are self-linked and nothing is allocated (code 2).
  void* b = seg.base();
  ASSERT_EQ(toffset_array_init(b, kHead, kStore, 0, 3, -1), 0);
  const OffsetList* links = reinterpret_cast<const OffsetList*>(static_cast<char*>(b) + kStore);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(links[i].prev, kStore + 16 * i);
    EXPECT_EQ(links[i].next, kStore + 16 * i);
  }
  terror_clear(nullptr);
  EXPECT_EQ(toffset_array_alloc(b, kHead), 0u);
  ASSERT_NE(terror_top(nullptr), nullptr);
  EXPECT_EQ(terror_top(nullptr)->iErrNo, 2);
}

TEST(ToffsetArray, AllocFreeFollowTheFreeList) {
  Segment seg(4096);
  void* b = seg.base();
  ASSERT_EQ(toffset_array_init(b, kHead, kStore, kElem, 4, 1), 0);
  // Allocation in index order, then 0 (nothing pushed) once full.
  std::vector<uint64_t> got;
  // Element i at its offset, its pointer and back; the link before it and a byte into it are
  // no element.
  for (int i = 0; i < 4; ++i) {
    got.push_back(toffset_array_alloc(b, kHead));
    EXPECT_EQ(got[i], kStore + i * kStride + 16);
    EXPECT_EQ(toffset_array_offset(b, kHead, i), got[i]);
    EXPECT_EQ(toffset_array_ptr(b, kHead, i), static_cast<char*>(b) + got[i]);
    EXPECT_EQ(toffset_array_index(b, kHead, got[i]), i);
    EXPECT_EQ(toffset_array_index(b, kHead, got[i] - 16), -1);
    EXPECT_EQ(toffset_array_index(b, kHead, got[i] + 1), -1);
  }
  EXPECT_EQ(toffset_array_index(b, kHead, kStore - 1), -1);
  EXPECT_EQ(toffset_array_index(b, kHead, kStore + 4 * kStride + 16), -1);
  EXPECT_EQ(toffset_array_offset(b, kHead, 4), 0u);
  EXPECT_EQ(toffset_array_ptr(b, kHead, -1), nullptr);
  terror_clear(nullptr);
  EXPECT_EQ(toffset_array_alloc(b, kHead), 0u);
  EXPECT_EQ(terror_count(nullptr), 0);
  // Used-list walk in allocation order.
  std::vector<uint64_t> walked;
  for (uint64_t o = toffset_array_begin(b, kHead); o != toffset_array_end(b, kHead);
       o = toffset_array_next(b, kHead, o)) {
    walked.push_back(o);
  }
  EXPECT_EQ(walked, got);
  // Free in another order: the free list, and so the next allocations, follow it.
  memset(static_cast<char*>(b) + got[2], 0xab, kElem);
  for (int i : {2, 0, 3, 1}) EXPECT_EQ(toffset_array_free(b, kHead, got[i]), 0);
  OffsetArrayStat st{};
  ASSERT_EQ(toffset_array_stat(b, kHead, &st), 0);
  EXPECT_EQ(st.iCurCap, 0);
  EXPECT_EQ(st.iFree, 4);
  EXPECT_EQ(st.iUsed, 0);
  EXPECT_EQ(toffset_array_free(b, kHead, got[0]), -2);  // nothing in use
  for (int i : {2, 0, 3}) EXPECT_EQ(toffset_array_alloc(b, kHead), got[i]);
  const std::vector<char> zero(kElem, 0);
  EXPECT_EQ(memcmp(static_cast<char*>(b) + got[2], zero.data(), kElem), 0);  // zeroed again
  // Refused frees: twice, below 16, a link offset (remainder 0), past the end.
  EXPECT_EQ(toffset_array_free(b, kHead, got[1]), -4);
  for (uint64_t bad : {uint64_t{8}, got[0] - 16, got[0] + 1, kStore + 4 * kStride + 16}) {
    EXPECT_EQ(toffset_array_free(b, kHead, bad), -3) << bad;
  }
  ASSERT_EQ(toffset_array_stat(b, kHead, &st), 0);
  EXPECT_EQ(st.iCurCap, 3);
  EXPECT_EQ(st.iUsed, 3);
  EXPECT_EQ(st.iFree, 1);
}

TEST(ToffsetHash, BucketCountsAndSizes) {
  struct Case {
    int nodes;
    uint64_t buckets;
  } cases[] = {{0, 53},    {37, 53},   {38, 97}, {104000, 196613},
               {135, 193}, {136, 389}, {-1, 0},  {2147483647, 3221225473ULL}};
  for (const Case& c : cases) {
    EXPECT_EQ(toffset_hash_buckets(c.nodes), c.buckets) << c.nodes;
    const uint64_t size = c.buckets == 0 ? TOFFSET_INVALID : (c.buckets + c.nodes) * 16;
    EXPECT_EQ(toffset_hash_size(c.nodes), size) << c.nodes;
  }
  Segment seg(8192);
  ASSERT_EQ(toffset_hash_init(seg.base(), 0, 168, 38), 0);
  const OffsetHash* h = static_cast<const OffsetHash*>(seg.base());
  EXPECT_EQ(h->iBucketCount, 97);
  EXPECT_EQ(h->iEnd, 168 + (97 + 38) * 16u);
  EXPECT_EQ(h->stBucket.iBegin, 168 + 38 * 16u);
  EXPECT_EQ(toffset_hash_init(seg.base(), 0, 167, 38), -4);
  EXPECT_EQ(toffset_hash_init(seg.base(), 0, 168, -1), -3);
  EXPECT_EQ(toffset_hash_init(seg.base(), 0, 168, 2147483647), -3);  // 3221225473 buckets
  EXPECT_EQ(toffset_hash_init(nullptr, 0, 168, 38), -1);
}

TEST(ToffsetHash, KeyHash) {
  EXPECT_EQ(toffset_hash_code("ab", 2), 97u * 5 + 98);
  EXPECT_EQ(toffset_hash_code("ab", 0), toffset_hash_code("ab", 2));
  EXPECT_EQ(toffset_hash_code("ab\0cd", 5), ((97u * 5 + 98) * 5) * 5 * 5 + 99 * 5 + 100);
  EXPECT_EQ(toffset_hash_code("\xff", 1), 1u);  // signed byte -1, absolute value
  EXPECT_EQ(toffset_hash_code("\xff\xff", 2), 6u);
  // Long keys of every length mod 4, high bytes and overflow: the counted walk agrees with the
  // byte-at-a-time walk of a terminated key.
  const char* key = "wsm-data://10/prog\xe4\xb8\xad:1/func/value\xff\x80~";
  for (int n = 1; n <= static_cast<int>(strlen(key)); ++n) {
    const std::string s(key, static_cast<size_t>(n));
    EXPECT_EQ(toffset_hash_code(s.data(), n), toffset_hash_code(s.c_str(), 0)) << n;
  }
}

TEST(ToffsetHash, AddFindWalkDelete) {
  Segment seg(8192);
  void* b = seg.base();
  ASSERT_EQ(toffset_hash_init(b, 0, 168, 10), 0);
  EXPECT_EQ(toffset_hash_find(b, 0, "ab", 0), -1);
  for (int node : {3, 7, 1}) EXPECT_EQ(toffset_hash_add(b, 0, node, "ab", 2), 0);
  EXPECT_EQ(toffset_hash_add(b, 0, 5, "zz", 0), 0);
  // One bucket holds 3, 7, 1 in the order added; "ab" as a C string finds the same bucket.
  std::vector<int> chain;
  for (int n = toffset_hash_find(b, 0, "ab", 0); n >= 0; n = toffset_hash_next(b, 0, n)) {
    chain.push_back(n);
  }
  EXPECT_EQ(chain, (std::vector<int>{3, 7, 1}));
  EXPECT_EQ(toffset_hash_next(b, 0, 1), -1);
  EXPECT_EQ(toffset_hash_next(b, 0, 0), -2);  // in no bucket
  EXPECT_EQ(toffset_hash_add(b, 0, 7, "cd", 2), -4);
  EXPECT_EQ(toffset_hash_add(b, 0, 10, "cd", 2), -3);
  EXPECT_EQ(toffset_hash_add(b, 0, 0, nullptr, 2), -2);
  EXPECT_EQ(toffset_hash_del(b, 0, 7), 0);
  EXPECT_EQ(toffset_hash_del(b, 0, 7), 0);  // not linked: nothing to do
  EXPECT_EQ(toffset_hash_next(b, 0, 3), 1);
  EXPECT_EQ(toffset_hash_del(b, 0, 3), 0);
  EXPECT_EQ(toffset_hash_del(b, 0, 1), 0);
  EXPECT_EQ(toffset_hash_find(b, 0, "ab", 2), -1);
  EXPECT_EQ(toffset_hash_find(b, 0, "zz", 2), 5);
  EXPECT_EQ(toffset_hash_add(b, 0, 7, "ab", 2), 0);  // free again
  EXPECT_EQ(toffset_hash_del(b, 0, -1), -3);
}

}  // namespace
