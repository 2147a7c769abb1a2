// Helpers shared by the sources of the shared-memory manager: error pushes, offset arithmetic
// and the list links of the offset containers.
#ifndef WMNG_SRC_WMNG_INTERNAL_H_
#define WMNG_SRC_WMNG_INTERNAL_H_

#include <stdint.h>
#include <string.h>

#include "wmng/terror.h"
#include "wmng/toffset.h"
#include "wmng_msg.h"

// Pushes a frame onto the default error stack; evaluates to the negative code.
#define WMNG_PUSH(code, ...) \
  terror_push_func(nullptr, WMNG_FILE_NAME, __LINE__, __func__, (code), __VA_ARGS__)

namespace wmng_i {

inline bool base_ok(const void* base) {
  return base != nullptr && reinterpret_cast<uintptr_t>(base) != UINTPTR_MAX;
}

inline char* at(void* base, uint64_t off) { return static_cast<char*>(base) + off; }
inline const char* at(const void* base, uint64_t off) {
  return static_cast<const char*>(base) + off;
}

inline OffsetList* link(void* base, uint64_t off) {
  return reinterpret_cast<OffsetList*>(at(base, off));
}
inline const OffsetList* link(const void* base, uint64_t off) {
  return reinterpret_cast<const OffsetList*>(at(base, off));
}

inline OffsetArray* array(void* base, uint64_t head) {
  return reinterpret_cast<OffsetArray*>(at(base, head));
}
inline const OffsetArray* array(const void* base, uint64_t head) {
  return reinterpret_cast<const OffsetArray*>(at(base, head));
}

// Bytes per node (link and element); 0 for a header whose element size cannot be right.
inline uint64_t stride(const OffsetArray* a) {
  return a->iSize > UINT64_MAX - TOFFSET_LIST_SIZE ? 0 : a->iSize + TOFFSET_LIST_SIZE;
}

// Whether off is the link of one of the array's nodes.
inline bool node_ok(const OffsetArray* a, uint64_t off) {
  const uint64_t s = stride(a);
  return s != 0 && off >= a->iBegin && off < a->iEnd && (off - a->iBegin) % s == 0;
}

// List primitives. The caller has checked every offset it passes.
inline void list_self(void* base, uint64_t off) {
  OffsetList* l = link(base, off);
  l->prev = off;
  l->next = off;
}

inline void list_unlink(void* base, uint64_t off) {
  OffsetList* l = link(base, off);
  link(base, l->prev)->next = l->next;
  link(base, l->next)->prev = l->prev;
  list_self(base, off);
}

inline void list_add_tail(void* base, uint64_t head, uint64_t off) {
  OffsetList* h = link(base, head);
  const uint64_t last = h->prev;
  OffsetList* l = link(base, off);
  l->prev = last;
  l->next = head;
  link(base, last)->next = off;
  h->prev = off;
}

// Fills an offset array header without checks (the caller has made them).
void array_init(void* base, uint64_t head, uint64_t store, uint64_t size, int count, int max_hash);

}  // namespace wmng_i

#endif  // WMNG_SRC_WMNG_INTERNAL_H_
