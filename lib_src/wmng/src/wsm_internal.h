// Registry internals shared by the wsm_ sources: node numbering over a given set of capacities,
// URI helpers over slots, and bounded text handling.
#ifndef WMNG_SRC_WSM_INTERNAL_H_
#define WMNG_SRC_WSM_INTERNAL_H_

#include <stdint.h>

#include "wmng/wsm.h"
#include "wmng_internal.h"

namespace wsm_i {

// Capacities that number the hash nodes: the process's record or a mounted registry's headers.
struct Shape {
  int lib_hash;
  int lib_cap;
  int uri_hash;
  int uri_cap;
};

Shape shape_of(const WsmBase* base);
Shape shape_of(const WsmIndex* index);

// Computes iHashCap, the offsets and the size from the settings and the page size; false when the
// settings cannot make a registry (the derived fields are then left unchanged).
bool layout(WsmBase* b);

// Node number of (kind, row, column), or -1 when any of them is out of range.
int node_number(const Shape& s, int type, int row, int col);

// Kind, row and column of a node number; false when it is out of range.
bool node_split(const Shape& s, int node, int* type, int* row, int* col);

// Length of a fixed text field: at most its size, terminated or not.
template <size_t N>
inline size_t text_len(const char (&field)[N]) {
  return strnlen(field, N);
}

// Copies a fixed text field into a buffer of at least N + 1 bytes, terminated.
template <size_t N>
inline void text_copy(char* out, const char (&field)[N]) {
  const size_t n = text_len(field);
  memcpy(out, field, n);
  out[n] = '\0';
}

// The URI of a slot's description, its text rebuilt.
void uri_of_meta(WsmUri* uri, const WsmVixMetaInfo* meta);
void uri_of_data(WsmUri* uri, const WsmVixDataInfo* data);

}  // namespace wsm_i

#endif  // WMNG_SRC_WSM_INTERNAL_H_
