/* toffset.h - the offset array and the offset hash: containers that live inside a shared-memory
 * segment and link their members by offsets from the segment's start, so that every process can
 * use them wherever it attached the segment.
 *
 * Conventions:
 * - Every call takes base (the segment's start address in this process) and the offset of the
 *   container's header; offsets are unsigned 64-bit values counted from base. A null base (or
 *   the all-ones value) is refused.
 * - The containers own nothing and allocate nothing: the caller provides header and storage
 *   inside the segment. They take no locks; users that share a segment guard it themselves.
 * - Mutating calls return 0 or a small negative code after pushing one frame onto the default
 *   error stack (terror.h); toffset_array_alloc returns 0 for "no element". Conversions, look-ups
 *   and iteration return -1, 0 or the end value for bad input and push nothing.
 * - Links read from the segment are checked before they are followed, so a damaged segment gives
 *   an error or the end of a walk, never a read outside the container's storage.
 */
#ifndef WMNG_TOFFSET_H_
#define WMNG_TOFFSET_H_

#include <stddef.h>
#include <stdint.h>

#include "wmng/wmng_common.h"

#ifdef __cplusplus
extern "C" {
#endif

/* All-ones: the size of a negative count and the refused base value. */
#define TOFFSET_INVALID UINT64_MAX

/* Link of a circular doubly linked list: offsets of the neighbouring links. A list head whose
 * prev and next both equal its own offset is empty; a node linked to itself is in no list. */
typedef struct tagOffsetList {
  uint64_t prev;
  uint64_t next;
} OffsetList, OFFSETLIST;

/* Header of an offset array. Each node is an OffsetList followed by iSize element bytes; the
 * storage holds iMaxCap nodes from iBegin to iEnd. The element handed out is the byte after the
 * link. */
typedef struct tagOffsetArray {
  uint64_t iBegin;       /* offset of the first node */
  uint64_t iEnd;         /* offset just past the last node */
  int32_t iMaxHash;      /* negative: no free list; otherwise nodes start on the free list */
  int32_t iReserved;     /* zero */
  uint64_t iSize;        /* element bytes per node, without the link */
  int32_t iMaxCap;       /* nodes */
  int32_t iCurCap;       /* nodes in use */
  OffsetList stHeadFree; /* free list */
  OffsetList stHeadUsed; /* used list, in allocation order */
} OffsetArray, OFFSETARRAY;

/* Header of an offset hash: iNodeCount node links (element size 0), then iBucketCount bucket
 * heads, from iBegin to iEnd. The hash stores no keys: callers keep them beside the nodes and
 * compare them while they walk a bucket. */
typedef struct tagOffsetHash {
  uint64_t iBegin;
  uint64_t iEnd;
  int32_t iNodeCount;
  int32_t iBucketCount;
  OffsetArray stNode;   /* node links, all self-linked when unused */
  OffsetArray stBucket; /* bucket heads */
} OffsetHash, OFFSETHASH;

/* Counts reported by toffset_array_stat; iFree and iUsed come from walking the lists. */
typedef struct tagOffsetArrayStat {
  int32_t iMaxCap;
  int32_t iCurCap;
  int32_t iFree;
  int32_t iUsed;
} OffsetArrayStat, OFFSETARRAYSTAT;

#define TOFFSET_LIST_SIZE (8 + 8)
#define TOFFSET_ARRAY_SIZE (8 + 8 + 4 + 4 + 8 + 4 + 4 + TOFFSET_LIST_SIZE + TOFFSET_LIST_SIZE)
#define TOFFSET_HASH_SIZE (8 + 8 + 4 + 4 + TOFFSET_ARRAY_SIZE + TOFFSET_ARRAY_SIZE)

WMNG_STATIC_ASSERT(sizeof(OffsetList) == TOFFSET_LIST_SIZE && TOFFSET_LIST_SIZE == 16,
                   "OffsetList is 16 bytes");
WMNG_STATIC_ASSERT(sizeof(OffsetArray) == TOFFSET_ARRAY_SIZE && TOFFSET_ARRAY_SIZE == 72,
                   "OffsetArray is 72 bytes");
WMNG_STATIC_ASSERT(offsetof(OffsetArray, iMaxHash) == 16 && offsetof(OffsetArray, iSize) == 24 &&
                       offsetof(OffsetArray, iMaxCap) == 32 &&
                       offsetof(OffsetArray, iCurCap) == 36 &&
                       offsetof(OffsetArray, stHeadFree) == 40 &&
                       offsetof(OffsetArray, stHeadUsed) == 56,
                   "OffsetArray field offsets");
WMNG_STATIC_ASSERT(sizeof(OffsetHash) == TOFFSET_HASH_SIZE && TOFFSET_HASH_SIZE == 168,
                   "OffsetHash is 168 bytes");
WMNG_STATIC_ASSERT(offsetof(OffsetHash, iNodeCount) == 16 &&
                       offsetof(OffsetHash, iBucketCount) == 20 &&
                       offsetof(OffsetHash, stNode) == 24 && offsetof(OffsetHash, stBucket) == 96,
                   "OffsetHash field offsets");

/* ---- offset array ---- */

/* Storage bytes for iCount elements of iSize bytes: iCount x (iSize + 16); TOFFSET_INVALID for
 * a negative count or a size that does not fit 64 bits. */
uint64_t toffset_array_size(uint64_t iSize, int iCount);

/* Initialises the header at iHead for iCount nodes of iSize element bytes stored at iStore.
 * iMaxHash negative: every node is a self-linked link and the free list stays empty; otherwise
 * every node goes on the free list in index order. Codes: 1 null base, 2 all-ones base,
 * 3 negative count (or a storage size beyond 64 bits), 4 storage after the header overlaps it,
 * 5 storage before the header runs into it. */
WMNG_NODISCARD int toffset_array_init(void* pvBase, uint64_t iHead, uint64_t iStore, uint64_t iSize,
                                      int iCount, int iMaxHash);

/* Takes the first free node, links it at the tail of the used list and returns the offset of
 * its element, zeroed. 0 when every node is in use (nothing pushed) and on failure: 1 null base,
 * 2 empty free list, 3 damaged free list. */
WMNG_NODISCARD uint64_t toffset_array_alloc(void* pvBase, uint64_t iHead);

/* Returns the element at iElem to the tail of the free list. Codes: 1 null base, 2 nothing in
 * use, 3 iElem is not an element offset (below 16, outside the storage or not just past a
 * link), 4 the element is not in use. */
WMNG_NODISCARD int toffset_array_free(void* pvBase, uint64_t iHead, uint64_t iElem);

/* Address of element iIndex; NULL when out of range. */
void* toffset_array_ptr(void* pvBase, uint64_t iHead, int iIndex);

/* Offset of element iIndex; 0 when out of range. */
uint64_t toffset_array_offset(const void* pvBase, uint64_t iHead, int iIndex);

/* Index of the element at offset iElem: (iElem - iBegin) / (iSize + 16). -1 when iElem is
 * before iBegin, at or past iEnd, or when the remainder is not 16 (iElem must point just past a
 * link). */
int toffset_array_index(const void* pvBase, uint64_t iHead, uint64_t iElem);

/* Walk of the used list in allocation order:
 *   for (o = toffset_array_begin(b, h); o != toffset_array_end(b, h); o = toffset_array_next(b,
 *   h, o)) ...
 * Elements are given by their offsets. A damaged link ends the walk. */
uint64_t toffset_array_begin(const void* pvBase, uint64_t iHead);
uint64_t toffset_array_end(const void* pvBase, uint64_t iHead);
uint64_t toffset_array_next(const void* pvBase, uint64_t iHead, uint64_t iElem);

/* Fills *pstStat with the capacity, the count in use and the lengths of the free and used
 * lists. Codes: 1 null argument, 2 a list is damaged (a bad link or longer than the capacity). */
WMNG_NODISCARD int toffset_array_stat(const void* pvBase, uint64_t iHead, OffsetArrayStat* pstStat);

/* ---- offset hash ---- */

/* Number of buckets for iCount nodes: b = iCount x 10 / 7; 53 when b <= 53, otherwise the first
 * prime of the hash's list not below b. 0 for a negative count or one beyond the list. */
uint64_t toffset_hash_buckets(int iCount);

/* Storage bytes for iCount nodes: (buckets + iCount) x 16; TOFFSET_INVALID when the count is
 * negative or has no bucket count. */
uint64_t toffset_hash_size(int iCount);

/* Key hash: h = h x 5 + byte (bytes as signed chars, 32-bit wrapping), then its absolute value.
 * iLen 0 means a NUL-terminated key. */
uint32_t toffset_hash_code(const void* pvKey, int iLen);

/* Initialises the hash header at iHead with its storage at iStore for iCount nodes. Codes:
 * 1 null base, 2 all-ones base, 3 negative count or one whose bucket count does not fit,
 * 4 storage after the header overlaps it, 5 storage before the header runs into it. */
WMNG_NODISCARD int toffset_hash_init(void* pvBase, uint64_t iHead, uint64_t iStore, int iCount);

/* Links node iNode at the tail of the bucket of the key (iLen bytes, 0: NUL-terminated). Codes:
 * 1 null base, 2 null key or negative length, 3 node out of range, 4 node already linked,
 * 5 damaged bucket. */
WMNG_NODISCARD int toffset_hash_add(void* pvBase, uint64_t iHead, int iNode, const void* pvKey,
                                    int iLen);

/* First node of the key's bucket, or -1 when the bucket is empty (or for bad arguments). The
 * node may belong to another key of the same bucket: compare, then go on with
 * toffset_hash_next. */
int toffset_hash_find(const void* pvBase, uint64_t iHead, const void* pvKey, int iLen);

/* The node after iNode in its bucket; -1 at the end of the bucket, -2 for a bad argument, a
 * node in no bucket or a damaged link. */
int toffset_hash_next(const void* pvBase, uint64_t iHead, int iNode);

/* Unlinks node iNode from its bucket (nothing to do when it is in none). Codes: 1 null base,
 * 3 node out of range, 4 damaged link. */
WMNG_NODISCARD int toffset_hash_del(void* pvBase, uint64_t iHead, int iNode);

#ifdef __cplusplus
}
#endif

#endif /* WMNG_TOFFSET_H_ */
