// The offset array: nodes of (link, element) in one storage block, on a free and a used list.
#include <string.h>

#include "wmng/toffset.h"
#include "wmng_internal.h"

namespace wmng_i {

void array_init(void* base, uint64_t head, uint64_t store, uint64_t size, int count, int max_hash) {
  OffsetArray* a = array(base, head);
  const uint64_t s = size + TOFFSET_LIST_SIZE;
  a->iBegin = store;
  a->iEnd = store + s * static_cast<uint64_t>(count);
  a->iMaxHash = max_hash;
  a->iReserved = 0;
  a->iSize = size;
  a->iMaxCap = count;
  a->iCurCap = 0;
  const uint64_t free_head = head + offsetof(OffsetArray, stHeadFree);
  const uint64_t used_head = head + offsetof(OffsetArray, stHeadUsed);
  list_self(base, free_head);
  list_self(base, used_head);
  for (int i = 0; i < count; ++i) {
    const uint64_t node = store + s * static_cast<uint64_t>(i);
    if (max_hash < 0) {
      list_self(base, node);
    } else {
      list_add_tail(base, free_head, node);
    }
  }
}

}  // namespace wmng_i

namespace {

using namespace wmng_i;

uint64_t free_head_i(uint64_t head) { return head + offsetof(OffsetArray, stHeadFree); }
uint64_t used_head_i(uint64_t head) { return head + offsetof(OffsetArray, stHeadUsed); }

// A position in one of the array's lists: its head or one of its nodes.
bool pos_ok_i(const OffsetArray* a, uint64_t list_head, uint64_t off) {
  return off == list_head || node_ok(a, off);
}

// Whether the node's neighbours are positions of the given list, so that unlinking it touches
// nothing outside the array.
bool neighbours_ok_i(const void* base, const OffsetArray* a, uint64_t list_head, uint64_t node) {
  const OffsetList* l = link(base, node);
  return pos_ok_i(a, list_head, l->prev) && pos_ok_i(a, list_head, l->next);
}

// Whether node is on the used list: walks it, at most iCurCap steps.
bool in_use_i(const void* base, uint64_t head, uint64_t node) {
  const OffsetArray* a = array(base, head);
  const uint64_t used = used_head_i(head);
  uint64_t pos = link(base, used)->next;
  for (int32_t steps = 0; steps < a->iCurCap && pos != used; ++steps) {
    if (!node_ok(a, pos)) return false;
    if (pos == node) return true;
    pos = link(base, pos)->next;
  }
  return false;
}

// Length of a list, or -1 when a link is bad or the list is longer than the capacity.
int list_length_i(const void* base, const OffsetArray* a, uint64_t list_head) {
  uint64_t pos = link(base, list_head)->next;
  int n = 0;
  while (pos != list_head) {
    if (!node_ok(a, pos) || n >= a->iMaxCap) return -1;
    ++n;
    pos = link(base, pos)->next;
  }
  return n;
}

}  // namespace

extern "C" {

uint64_t toffset_array_size(uint64_t iSize, int iCount) {
  if (iCount < 0 || iSize > UINT64_MAX - TOFFSET_LIST_SIZE) return TOFFSET_INVALID;
  const uint64_t s = iSize + TOFFSET_LIST_SIZE;
  const uint64_t n = static_cast<uint64_t>(iCount);
  if (n != 0 && s > (UINT64_MAX - 1) / n) return TOFFSET_INVALID;
  return s * n;
}

int toffset_array_init(void* pvBase, uint64_t iHead, uint64_t iStore, uint64_t iSize, int iCount,
                       int iMaxHash) {
  if (pvBase == nullptr) return WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
  if (!base_ok(pvBase)) return WMNG_PUSH(2, WMNG_MSG_BAD_BASE);
  const uint64_t bytes = toffset_array_size(iSize, iCount);
  if (bytes == TOFFSET_INVALID || iStore > UINT64_MAX - bytes ||
      iHead > UINT64_MAX - sizeof(OffsetArray)) {
    return WMNG_PUSH(3, WMNG_MSG_BAD_COUNT, iCount);
  }
  if (iStore >= iHead) {
    if (iStore < iHead + sizeof(OffsetArray)) return WMNG_PUSH(4, WMNG_MSG_STORE_OVERLAP);
  } else if (iStore + bytes > iHead) {
    return WMNG_PUSH(5, WMNG_MSG_STORE_CROSS);
  }
  array_init(pvBase, iHead, iStore, iSize, iCount, iMaxHash);
  return 0;
}

uint64_t toffset_array_alloc(void* pvBase, uint64_t iHead) {
  if (!base_ok(pvBase)) {
    WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
    return 0;
  }
  OffsetArray* a = array(pvBase, iHead);
  if (a->iCurCap >= a->iMaxCap) return 0;
  const uint64_t free_head = free_head_i(iHead);
  const uint64_t used_head = used_head_i(iHead);
  const uint64_t node = link(pvBase, free_head)->next;
  if (node == free_head) {
    WMNG_PUSH(2, WMNG_MSG_FREE_EMPTY);
    return 0;
  }
  if (!node_ok(a, node) || !neighbours_ok_i(pvBase, a, free_head, node) ||
      !pos_ok_i(a, used_head, link(pvBase, used_head)->prev)) {
    WMNG_PUSH(3, WMNG_MSG_LIST_BROKEN);
    return 0;
  }
  list_unlink(pvBase, node);
  list_add_tail(pvBase, used_head, node);
  ++a->iCurCap;
  const uint64_t elem = node + TOFFSET_LIST_SIZE;
  memset(at(pvBase, elem), 0, a->iSize);
  return elem;
}

int toffset_array_free(void* pvBase, uint64_t iHead, uint64_t iElem) {
  if (!base_ok(pvBase)) return WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
  OffsetArray* a = array(pvBase, iHead);
  if (a->iCurCap <= 0) return WMNG_PUSH(2, WMNG_MSG_NONE_USED);
  if (iElem < TOFFSET_LIST_SIZE || toffset_array_index(pvBase, iHead, iElem) < 0) {
    return WMNG_PUSH(3, WMNG_MSG_BAD_ELEMENT, static_cast<unsigned long long>(iElem));
  }
  const uint64_t node = iElem - TOFFSET_LIST_SIZE;
  const uint64_t free_head = free_head_i(iHead);
  const uint64_t used_head = used_head_i(iHead);
  if (!in_use_i(pvBase, iHead, node) || !neighbours_ok_i(pvBase, a, used_head, node)) {
    return WMNG_PUSH(4, WMNG_MSG_NOT_USED, static_cast<unsigned long long>(iElem));
  }
  if (!pos_ok_i(a, free_head, link(pvBase, free_head)->prev)) {
    return WMNG_PUSH(4, WMNG_MSG_NOT_USED, static_cast<unsigned long long>(iElem));
  }
  list_unlink(pvBase, node);
  list_add_tail(pvBase, free_head, node);
  --a->iCurCap;
  return 0;
}

void* toffset_array_ptr(void* pvBase, uint64_t iHead, int iIndex) {
  const uint64_t off = toffset_array_offset(pvBase, iHead, iIndex);
  return off == 0 ? nullptr : at(pvBase, off);
}

uint64_t toffset_array_offset(const void* pvBase, uint64_t iHead, int iIndex) {
  if (!base_ok(pvBase)) return 0;
  const OffsetArray* a = array(pvBase, iHead);
  if (iIndex < 0 || iIndex >= a->iMaxCap || stride(a) == 0) return 0;
  const uint64_t node = a->iBegin + stride(a) * static_cast<uint64_t>(iIndex);
  if (!node_ok(a, node)) return 0;
  return node + TOFFSET_LIST_SIZE;
}

int toffset_array_index(const void* pvBase, uint64_t iHead, uint64_t iElem) {
  if (!base_ok(pvBase)) return -1;
  const OffsetArray* a = array(pvBase, iHead);
  const uint64_t s = stride(a);
  if (s == 0 || iElem < a->iBegin || iElem >= a->iEnd) return -1;
  if ((iElem - a->iBegin) % s != TOFFSET_LIST_SIZE) return -1;
  const uint64_t index = (iElem - a->iBegin) / s;
  if (index >= static_cast<uint64_t>(a->iMaxCap)) return -1;
  return static_cast<int>(index);
}

uint64_t toffset_array_end(const void* pvBase, uint64_t iHead) {
  if (!base_ok(pvBase)) return 0;
  // The used head's own "element": one past its link, never a node's element.
  return used_head_i(iHead) + TOFFSET_LIST_SIZE;
}

uint64_t toffset_array_begin(const void* pvBase, uint64_t iHead) {
  if (!base_ok(pvBase)) return 0;
  const OffsetArray* a = array(pvBase, iHead);
  const uint64_t first = link(pvBase, used_head_i(iHead))->next;
  if (!node_ok(a, first)) return toffset_array_end(pvBase, iHead);
  return first + TOFFSET_LIST_SIZE;
}

uint64_t toffset_array_next(const void* pvBase, uint64_t iHead, uint64_t iElem) {
  if (!base_ok(pvBase)) return 0;
  const OffsetArray* a = array(pvBase, iHead);
  const uint64_t end = toffset_array_end(pvBase, iHead);
  if (iElem < TOFFSET_LIST_SIZE || !node_ok(a, iElem - TOFFSET_LIST_SIZE)) return end;
  const uint64_t next = link(pvBase, iElem - TOFFSET_LIST_SIZE)->next;
  if (!node_ok(a, next)) return end;
  return next + TOFFSET_LIST_SIZE;
}

int toffset_array_stat(const void* pvBase, uint64_t iHead, OffsetArrayStat* pstStat) {
  if (!base_ok(pvBase) || pstStat == nullptr) return WMNG_PUSH(1, WMNG_MSG_NULL_BASE);
  const OffsetArray* a = array(pvBase, iHead);
  const int free_len = list_length_i(pvBase, a, free_head_i(iHead));
  const int used_len = list_length_i(pvBase, a, used_head_i(iHead));
  if (free_len < 0 || used_len < 0) return WMNG_PUSH(2, WMNG_MSG_LIST_BROKEN);
  pstStat->iMaxCap = a->iMaxCap;
  pstStat->iCurCap = a->iCurCap;
  pstStat->iFree = free_len;
  pstStat->iUsed = used_len;
  return 0;
}

}  // extern "C"
