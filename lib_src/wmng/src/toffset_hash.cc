// The offset hash: node links and bucket heads in one storage block; a node is linked into the
// bucket of its key, the keys themselves stay with the caller.
#include <limits.h>

#include "wmng/toffset.h"
#include "wmng_internal.h"

namespace {

using namespace wmng_i;

// Bucket counts: the first entry not below n x 10 / 7 (53 at least).
const uint64_t kPrimes[] = {53ULL,         97ULL,         193ULL,       389ULL,       769ULL,
                            1543ULL,       3079ULL,       6151ULL,      12289ULL,     24593ULL,
                            49157ULL,      98317ULL,      196613ULL,    393241ULL,    786433ULL,
                            1572869ULL,    3145739ULL,    6291469ULL,   12582917ULL,  25165843ULL,
                            50331653ULL,   100663319ULL,  201326611ULL, 402653189ULL, 805306457ULL,
                            1610612741ULL, 3221225473ULL, 4294967291ULL};

OffsetHash* hash_i(void* base, uint64_t head) {
  return reinterpret_cast<OffsetHash*>(at(base, head));
}
const OffsetHash* hash_i(const void* base, uint64_t head) {
  return reinterpret_cast<const OffsetHash*>(at(base, head));
}

// Offset of node n's link (n in range).
uint64_t node_off_i(const OffsetHash* h, int n) {
  return h->stNode.iBegin + TOFFSET_LIST_SIZE * static_cast<uint64_t>(n);
}

int node_index_i(const OffsetHash* h, uint64_t off) {
  return static_cast<int>((off - h->stNode.iBegin) / TOFFSET_LIST_SIZE);
}

bool bucket_ok_i(const OffsetHash* h, uint64_t off) { return node_ok(&h->stBucket, off); }

// A position in a bucket list: a node or a bucket head.
bool pos_ok_i(const OffsetHash* h, uint64_t off) {
  return node_ok(&h->stNode, off) || bucket_ok_i(h, off);
}

// The bucket head of a key, or 0 when the header has no buckets.
uint64_t bucket_of_i(const OffsetHash* h, const void* key, int len) {
  if (h->iBucketCount <= 0 || h->stBucket.iMaxCap != h->iBucketCount) return 0;
  const uint32_t b = toffset_hash_code(key, len) % static_cast<uint32_t>(h->iBucketCount);
  return h->stBucket.iBegin + TOFFSET_LIST_SIZE * b;
}

bool node_in_range_i(const OffsetHash* h, int n) {
  return n >= 0 && n < h->iNodeCount && n < h->stNode.iMaxCap;
}

}  // namespace

extern "C" {

uint64_t toffset_hash_buckets(int iCount) {
  if (iCount < 0) return 0;
  const uint64_t b = static_cast<uint64_t>(iCount) * 10 / 7;
  for (uint64_t p : kPrimes) {
    if (p >= b) return p;
  }
  return 0;
}

uint64_t toffset_hash_size(int iCount) {
  const uint64_t b = toffset_hash_buckets(iCount);
  if (b == 0) return TOFFSET_INVALID;
  return (b + static_cast<uint64_t>(iCount)) * TOFFSET_LIST_SIZE;
}

uint32_t toffset_hash_code(const void* pvKey, int iLen) {
  if (pvKey == nullptr || iLen < 0) return 0;
  const signed char* p = static_cast<const signed char*>(pvKey);
  // Unsigned arithmetic wraps like the signed 32-bit sum it stands for.
  uint32_t h = 0;
  if (iLen == 0) {
    for (; *p != 0; ++p) h = h * 5 + static_cast<uint32_t>(static_cast<int32_t>(*p));
  } else {
    // Four bytes a step: h*625 + c0*125 + c1*25 + c2*5 + c3 is the same sum as four single
    // steps, but the products no longer wait on each other.
    auto c = [p](int i) { return static_cast<uint32_t>(static_cast<int32_t>(p[i])); };
    int i = 0;
    for (; i + 4 <= iLen; i += 4) {
      h = h * 625u + (c(i) * 125u + c(i + 1) * 25u) + (c(i + 2) * 5u + c(i + 3));
    }
    for (; i < iLen; ++i) h = h * 5 + c(i);
  }
  return (h & 0x80000000u) != 0 ? 0u - h : h;
}

int toffset_hash_init(void* pvBase, uint64_t iHead, uint64_t iStore, int iCount) {
  if (pvBase == nullptr) return WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
  if (!base_ok(pvBase)) return WMNG_PUSH(2, WMNG_MSG_BAD_BASE);
  const uint64_t buckets = toffset_hash_buckets(iCount);
  const uint64_t bytes = toffset_hash_size(iCount);
  if (buckets == 0 || buckets > INT_MAX || iStore > UINT64_MAX - bytes ||
      iHead > UINT64_MAX - sizeof(OffsetHash)) {
    return WMNG_PUSH(3, WMNG_MSG_BAD_COUNT, iCount);
  }
  if (iStore >= iHead) {
    if (iStore < iHead + sizeof(OffsetHash)) return WMNG_PUSH(4, WMNG_MSG_STORE_OVERLAP);
  } else if (iStore + bytes > iHead) {
    return WMNG_PUSH(5, WMNG_MSG_STORE_CROSS);
  }
  OffsetHash* h = hash_i(pvBase, iHead);
  h->iBegin = iStore;
  h->iEnd = iStore + bytes;
  h->iNodeCount = iCount;
  h->iBucketCount = static_cast<int32_t>(buckets);
  array_init(pvBase, iHead + offsetof(OffsetHash, stNode), iStore, 0, iCount, -1);
  array_init(pvBase, iHead + offsetof(OffsetHash, stBucket),
             iStore + TOFFSET_LIST_SIZE * static_cast<uint64_t>(iCount), 0,
             static_cast<int>(buckets), -1);
  return 0;
}

int toffset_hash_add(void* pvBase, uint64_t iHead, int iNode, const void* pvKey, int iLen) {
  if (!base_ok(pvBase)) return WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
  if (pvKey == nullptr || iLen < 0) return WMNG_PUSH(2, WMNG_MSG_BAD_KEY);
  OffsetHash* h = hash_i(pvBase, iHead);
  if (!node_in_range_i(h, iNode)) return WMNG_PUSH(3, WMNG_MSG_NODE_RANGE, iNode);
  const uint64_t node = node_off_i(h, iNode);
  const OffsetList* l = link(pvBase, node);
  if (l->next != node || l->prev != node) return WMNG_PUSH(4, WMNG_MSG_NODE_LINKED, iNode);
  const uint64_t bucket = bucket_of_i(h, pvKey, iLen);
  if (bucket == 0 || !bucket_ok_i(h, bucket) || !pos_ok_i(h, link(pvBase, bucket)->prev)) {
    return WMNG_PUSH(5, WMNG_MSG_LIST_BROKEN);
  }
  list_add_tail(pvBase, bucket, node);
  return 0;
}

int toffset_hash_find(const void* pvBase, uint64_t iHead, const void* pvKey, int iLen) {
  if (!base_ok(pvBase) || pvKey == nullptr || iLen < 0) return -1;
  const OffsetHash* h = hash_i(pvBase, iHead);
  const uint64_t bucket = bucket_of_i(h, pvKey, iLen);
  if (bucket == 0 || !bucket_ok_i(h, bucket)) return -1;
  const uint64_t first = link(pvBase, bucket)->next;
  if (!node_ok(&h->stNode, first)) return -1;  // empty bucket (or a bad link)
  return node_index_i(h, first);
}

int toffset_hash_next(const void* pvBase, uint64_t iHead, int iNode) {
  if (!base_ok(pvBase)) return -2;
  const OffsetHash* h = hash_i(pvBase, iHead);
  if (!node_in_range_i(h, iNode)) return -2;
  const uint64_t node = node_off_i(h, iNode);
  const uint64_t next = link(pvBase, node)->next;
  if (next == node) return -2;  // in no bucket
  if (bucket_ok_i(h, next)) return -1;
  if (!node_ok(&h->stNode, next)) return -2;
  return node_index_i(h, next);
}

int toffset_hash_del(void* pvBase, uint64_t iHead, int iNode) {
  if (!base_ok(pvBase)) return WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
  OffsetHash* h = hash_i(pvBase, iHead);
  if (!node_in_range_i(h, iNode)) return WMNG_PUSH(3, WMNG_MSG_NODE_RANGE, iNode);
  const uint64_t node = node_off_i(h, iNode);
  const OffsetList* l = link(pvBase, node);
  if (l->next == node && l->prev == node) return 0;
  if (!pos_ok_i(h, l->prev) || !pos_ok_i(h, l->next)) return WMNG_PUSH(4, WMNG_MSG_LIST_BROKEN);
  list_unlink(pvBase, node);
  return 0;
}

}  // extern "C"
