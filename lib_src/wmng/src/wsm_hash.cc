// Key columns of URIs, registration of slots in the registry's hash, look-ups and removal.
#include <limits.h>
#include <string.h>

#include "wmng/wsm.h"
#include "wsm_internal.h"

namespace {

using wsm_i::Shape;

// The last key column of a kind (0 for no kind).
int last_column_i(int type) {
  return type == WSM_URI_TYPE_META   ? WSM_LIB_COLUMNS - 1
         : type == WSM_URI_TYPE_DATA ? WSM_URI_COLUMNS - 1
                                     : 0;
}

// Column 1 and up of a URI: the key bytes and whether the part is set.
struct Part {
  const void* ptr;
  int len;
  char state;
  bool number;
};

Part number_part_i(const int32_t* v) {
  return Part{v, 4, *v < 0 ? WSM_HASH_ANY : WSM_HASH_SET, true};
}

template <size_t N>
Part text_part_i(const char (&field)[N]) {
  const int len = static_cast<int>(wsm_i::text_len(field));
  return Part{field, len, len == 0 || field[0] == '*' ? WSM_HASH_ANY : WSM_HASH_SET, false};
}

Part part_i(const WsmUri* u, int k) {
  if (u->iType == WSM_URI_TYPE_META) {
    const WsmVixMetaInfo& m = u->stMeta;
    switch (k) {
      case 1:
        return number_part_i(&m.iBid);
      case 2:
        return text_part_i(m.szLib);
      case 3:
        return number_part_i(&m.iLibVer);
      case 4:
        return number_part_i(&m.iLibBuildVer);
      default:
        break;
    }
  } else if (u->iType == WSM_URI_TYPE_DATA) {
    const WsmVixDataInfo& d = u->stData;
    switch (k) {
      case 1:
        return number_part_i(&d.iBid);
      case 2:
        return text_part_i(d.szProgName);
      case 3:
        return text_part_i(d.szProgId);
      case 4:
        return text_part_i(d.szFuncName);
      case 5:
        return text_part_i(d.szValueName);
      default:
        break;
    }
  }
  return Part{nullptr, -1, WSM_HASH_INVALID, false};
}

// Whether column k of two URIs of the same kind holds the same value (a negative number is
// always "*").
bool part_equal_i(const WsmUri* a, const WsmUri* b, int k) {
  const Part pa = part_i(a, k);
  const Part pb = part_i(b, k);
  if (pa.state == WSM_HASH_INVALID || pb.state == WSM_HASH_INVALID) return false;
  if (pa.number != pb.number) return false;
  if (pa.number) {
    int32_t va, vb;
    memcpy(&va, pa.ptr, 4);
    memcpy(&vb, pb.ptr, 4);
    return (va < 0 ? -1 : va) == (vb < 0 ? -1 : vb);
  }
  return pa.len == pb.len && memcmp(pa.ptr, pb.ptr, static_cast<size_t>(pa.len)) == 0;
}

// The URI of slot row of a kind, rebuilt from the slot's description.
bool slot_uri_i(WsmIndex* index, int type, int row, WsmUri* out) {
  if (type == WSM_URI_TYPE_META) {
    const void* slot = toffset_array_ptr(index, WSM_INDEX_OFFSET_LIB, row);
    if (slot == nullptr) return false;
    wsm_i::uri_of_meta(out, &static_cast<const WsmObjMeta*>(slot)->stMeta);
    return true;
  }
  const void* slot = toffset_array_ptr(index, WSM_INDEX_OFFSET_URI, row);
  if (slot == nullptr) return false;
  wsm_i::uri_of_data(out, &static_cast<const WsmObjData*>(slot)->stData);
  return true;
}

// Walks the bucket chain of a key, calling visit(node) for each node, and stops after limit
// nodes. Returns the nodes walked, or -1 when the chain is damaged or loops.
template <typename Visit>
int walk_chain_i(WsmIndex* index, const void* key, int len, int limit, Visit visit) {
  const int max_steps = index->stHash.iNodeCount;
  int steps = 0;
  int node = toffset_hash_find(index, WSM_INDEX_OFFSET_HASH, key, len);
  while (node >= 0 && steps < limit) {
    if (++steps > max_steps) return -1;
    // The next link is read first: its load then overlaps the visit's reads of the slot.
    const int next = toffset_hash_next(index, WSM_INDEX_OFFSET_HASH, node);
    visit(node);
    node = next;
  }
  return node == -2 ? -1 : steps;
}

// Result codes of the scans below (before any push).
const int kScanBroken = -4;

// Collects a matching row.
struct Collector {
  int* rows;
  int max;
  int count;
  void add(int row) {
    if (count < max) rows[count] = row;
    ++count;
  }
};

int number_of_i(int32_t v) { return v < 0 ? -1 : v; }

template <size_t N>
bool text_equal_i(const char (&a)[N], const char (&b)[N]) {
  return strncmp(a, b, N) == 0;
}

// Whether slot row holds exactly the fields of q (of q's kind). Equal fields give equal texts, so
// this settles a match without rebuilding the slot's text; unequal fields are compared by text.
bool fields_equal_i(WsmIndex* index, int row, const WsmUri* q) {
  if (q->iType == WSM_URI_TYPE_META) {
    const void* slot = toffset_array_ptr(index, WSM_INDEX_OFFSET_LIB, row);
    if (slot == nullptr) return false;
    const WsmVixMetaInfo& a = static_cast<const WsmObjMeta*>(slot)->stMeta;
    const WsmVixMetaInfo& b = q->stMeta;
    return number_of_i(a.iBid) == number_of_i(b.iBid) && text_equal_i(a.szLib, b.szLib) &&
           number_of_i(a.iLibVer) == number_of_i(b.iLibVer) &&
           number_of_i(a.iLibBuildVer) == number_of_i(b.iLibBuildVer) &&
           text_equal_i(a.szMeta, b.szMeta) && number_of_i(a.iMetaVer) == number_of_i(b.iMetaVer) &&
           text_equal_i(a.szOther, b.szOther);
  }
  const void* slot = toffset_array_ptr(index, WSM_INDEX_OFFSET_URI, row);
  if (slot == nullptr) return false;
  const WsmVixDataInfo& a = static_cast<const WsmObjData*>(slot)->stData;
  const WsmVixDataInfo& b = q->stData;
  return number_of_i(a.iBid) == number_of_i(b.iBid) && text_equal_i(a.szProgName, b.szProgName) &&
         text_equal_i(a.szProgId, b.szProgId) && text_equal_i(a.szFuncName, b.szFuncName) &&
         text_equal_i(a.szValueName, b.szValueName);
}

// Exact look-up through column 0. q's text is current and column 0 is set.
int scan_column0_i(WsmIndex* index, const WsmUri* q, Collector* out) {
  const Shape shape = wsm_i::shape_of(index);
  const int len = static_cast<int>(strnlen(q->szUri, WSM_URI_LEN));
  WsmUri slot;
  const int walked = walk_chain_i(index, q->szUri, len, INT_MAX, [&](int node) {
    int type = 0, row = 0, col = 0;
    if (!wsm_i::node_split(shape, node, &type, &row, &col)) return;
    if (type != q->iType || col != 0) return;
    if (fields_equal_i(index, row, q) ||
        (slot_uri_i(index, type, row, &slot) && strncmp(slot.szUri, q->szUri, WSM_URI_LEN) == 0)) {
      out->add(row);
    }
  });
  return walked < 0 ? kScanBroken : 0;
}

// Look-up through the most selective set column of columns 1 and up (every slot in use when none
// is set). exact: the slot's rebuilt text must equal q's; otherwise q's set columns must match.
int scan_partial_i(WsmIndex* index, const WsmUri* q, bool exact, Collector* out) {
  const Shape shape = wsm_i::shape_of(index);
  const int last = last_column_i(q->iType);
  int best = -1;
  int best_len = INT_MAX;
  for (int k = 1; k <= last; ++k) {
    const Part p = part_i(q, k);
    if (p.state != WSM_HASH_SET) continue;
    const int len = walk_chain_i(index, p.ptr, p.len, best_len, [](int) {});
    if (len < 0) return kScanBroken;
    if (len < best_len) {
      best = k;
      best_len = len;
    }
  }
  WsmUri slot;
  auto consider = [&](int row) {
    if (!slot_uri_i(index, q->iType, row, &slot)) return;
    if (exact) {
      if (strncmp(slot.szUri, q->szUri, WSM_URI_LEN) == 0) out->add(row);
      return;
    }
    for (int k = 1; k <= last; ++k) {
      if (part_i(q, k).state == WSM_HASH_SET && !part_equal_i(q, &slot, k)) return;
    }
    out->add(row);
  };
  if (best < 0) {
    const uint64_t table =
        q->iType == WSM_URI_TYPE_META ? WSM_INDEX_OFFSET_LIB : WSM_INDEX_OFFSET_URI;
    const OffsetArray* a = q->iType == WSM_URI_TYPE_META ? &index->stLib : &index->stUri;
    const uint64_t end = toffset_array_end(index, table);
    int steps = 0;
    for (uint64_t e = toffset_array_begin(index, table); e != end;
         e = toffset_array_next(index, table, e)) {
      if (++steps > a->iMaxCap) return kScanBroken;
      consider(toffset_array_index(index, table, e));
    }
    return 0;
  }
  const Part p = part_i(q, best);
  const int walked = walk_chain_i(index, p.ptr, p.len, INT_MAX, [&](int node) {
    int type = 0, row = 0, col = 0;
    if (wsm_i::node_split(shape, node, &type, &row, &col) && type == q->iType && col == best) {
      consider(row);
    }
  });
  return walked < 0 ? kScanBroken : 0;
}

// Checks the common arguments of the look-ups and points *q at the URI, or at a copy in scratch
// with its text rebuilt when its fields changed (iSync). Returns 0, or the code to push (1 null,
// 2 kind).
int lookup_args_i(WsmIndex* index, const WsmUri* uri, const int* rows, int max, int kind,
                  WsmUri* scratch, const WsmUri** q) {
  if (index == nullptr || uri == nullptr || max < 0 || (rows == nullptr && max > 0)) return 1;
  if (uri->iType != WSM_URI_TYPE_META && uri->iType != WSM_URI_TYPE_DATA) return 2;
  if (kind != WSM_URI_TYPE_NONE && uri->iType != kind) return 2;
  *q = uri;
  if (uri->iSync == 0) return 0;
  *scratch = *uri;
  *q = scratch;
  return wsm_uri_sync(scratch) == 0 ? 0 : 2;
}

int lookup_fail_i(int code, int type) {
  if (code == 1) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  return WMNG_PUSH(2, WSM_MSG_URI_KIND, type);
}

// Unlinks the nodes of a slot; 0 or the container's code.
int del_nodes_i(WsmIndex* index, int type, int row) {
  const Shape shape = wsm_i::shape_of(index);
  const int cols = type == WSM_URI_TYPE_META ? shape.lib_hash : shape.uri_hash;
  for (int k = 0; k < cols; ++k) {
    const int ret =
        toffset_hash_del(index, WSM_INDEX_OFFSET_HASH, wsm_i::node_number(shape, type, row, k));
    if (ret != 0) return ret;
  }
  return 0;
}

// Unlinks a node linked just now; that cannot fail, and a failure would have pushed its frame.
void unlink_i(WsmIndex* index, int node) {
  if (toffset_hash_del(index, WSM_INDEX_OFFSET_HASH, node) != 0) return;
}

// Registers slot row of the URI's kind under its keys; on failure everything is as before.
int hash_set_i(WsmIndex* index, int row, const WsmUri* uri) {
  const int type = uri->iType;
  const Shape shape = wsm_i::shape_of(index);
  if (wsm_i::node_number(shape, type, row, 0) < 0) return WMNG_PUSH(3, WSM_MSG_SLOT_RANGE, row);
  WsmUri u = *uri;
  if (wsm_uri_sync(&u) != 0) return WMNG_PUSH(2, WSM_MSG_URI_KIND, type);
  // The description goes into the slot; the old one comes back if a key cannot be linked.
  WsmVixMetaInfo old_meta;
  WsmVixDataInfo old_data;
  WsmObjMeta* meta_slot = nullptr;
  WsmObjData* data_slot = nullptr;
  if (type == WSM_URI_TYPE_META) {
    meta_slot = static_cast<WsmObjMeta*>(toffset_array_ptr(index, WSM_INDEX_OFFSET_LIB, row));
    if (meta_slot == nullptr) return WMNG_PUSH(3, WSM_MSG_SLOT_RANGE, row);
    old_meta = meta_slot->stMeta;
    meta_slot->stMeta = u.stMeta;
  } else {
    data_slot = static_cast<WsmObjData*>(toffset_array_ptr(index, WSM_INDEX_OFFSET_URI, row));
    if (data_slot == nullptr) return WMNG_PUSH(3, WSM_MSG_SLOT_RANGE, row);
    old_data = data_slot->stData;
    data_slot->stData = u.stData;
  }
  const int cols = type == WSM_URI_TYPE_META ? shape.lib_hash : shape.uri_hash;
  int added[WSM_HASH_COLUMNS];
  int n = 0;
  for (int k = 0; k < cols && k < WSM_HASH_COLUMNS; ++k) {
    if (wsm_hash_type(&u, k) != WSM_HASH_SET) continue;
    const int node = wsm_i::node_number(shape, type, row, k);
    const int ret = toffset_hash_add(index, WSM_INDEX_OFFSET_HASH, node, wsm_hash_ptr(&u, k),
                                     wsm_hash_size(&u, k));
    if (ret != 0) {
      for (int i = 0; i < n; ++i) unlink_i(index, added[i]);
      if (meta_slot != nullptr) meta_slot->stMeta = old_meta;
      if (data_slot != nullptr) data_slot->stData = old_data;
      return WMNG_PUSH(4, WSM_MSG_HASH_ADD, ret);
    }
    added[n++] = node;
  }
  return 0;
}

}  // namespace

extern "C" {

char wsm_hash_type(const WsmUri* pstUri, int k) {
  if (pstUri == nullptr) return WSM_HASH_INVALID;
  const int last = last_column_i(pstUri->iType);
  if (last == 0 || k < 0 || k > last) return WSM_HASH_INVALID;
  if (k > 0) return part_i(pstUri, k).state;
  for (int c = 1; c <= last; ++c) {
    if (part_i(pstUri, c).state != WSM_HASH_SET) return WSM_HASH_ANY;
  }
  return WSM_HASH_SET;
}

const void* wsm_hash_ptr(WsmUri* pstUri, int k) {
  if (wsm_hash_type(pstUri, k) != WSM_HASH_SET) return nullptr;
  if (k == 0) return wsm_uri_sync(pstUri) == 0 ? pstUri->szUri : nullptr;
  return part_i(pstUri, k).ptr;
}

int wsm_hash_size(WsmUri* pstUri, int k) {
  if (wsm_hash_type(pstUri, k) != WSM_HASH_SET) return -1;
  if (k == 0) {
    if (wsm_uri_sync(pstUri) != 0) return -1;
    return static_cast<int>(strnlen(pstUri->szUri, WSM_URI_LEN));
  }
  return part_i(pstUri, k).len;
}

int wsm_hash_cmp(const WsmUri* pstA, const WsmUri* pstB, int k) {
  if (pstA == nullptr || pstB == nullptr || pstA->iType != pstB->iType) return 1;
  if (wsm_hash_type(pstA, k) == WSM_HASH_INVALID) return 1;
  if (k == 0) return wsm_uri_compare(pstA, pstB) == 0 ? 0 : 1;
  return part_equal_i(pstA, pstB, k) ? 0 : 1;
}

int wsm_hash_set(WsmIndex* pstIndex, int iRow, const WsmUri* pstUri) {
  if (pstIndex == nullptr || pstUri == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (pstUri->iType == WSM_URI_TYPE_DATA) return wsm_hash_set_data(pstIndex, iRow, pstUri);
  if (pstUri->iType != WSM_URI_TYPE_META) return WMNG_PUSH(2, WSM_MSG_URI_KIND, pstUri->iType);
  return hash_set_i(pstIndex, iRow, pstUri);
}

int wsm_hash_set_data(WsmIndex* pstIndex, int iRow, const WsmUri* pstUri) {
  if (pstIndex == nullptr || pstUri == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (pstUri->iType != WSM_URI_TYPE_DATA) return WMNG_PUSH(2, WSM_MSG_URI_KIND, pstUri->iType);
  return hash_set_i(pstIndex, iRow, pstUri);
}

int wsm_hash_get_0(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows, int iMax) {
  WsmUri scratch;
  const WsmUri* q = nullptr;
  const int bad = lookup_args_i(pstIndex, pstUri, piRows, iMax, WSM_URI_TYPE_NONE, &scratch, &q);
  if (bad != 0) return lookup_fail_i(bad, pstUri != nullptr ? pstUri->iType : 0);
  if (wsm_hash_type(q, 0) != WSM_HASH_SET) return WMNG_PUSH(3, WSM_MSG_URI_PARTIAL);
  Collector out{piRows, iMax, 0};
  if (scan_column0_i(pstIndex, q, &out) != 0) return WMNG_PUSH(4, WSM_MSG_HASH_BROKEN);
  return out.count;
}

int wsm_hash_get(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows, int iMax) {
  WsmUri scratch;
  const WsmUri* q = nullptr;
  const int bad = lookup_args_i(pstIndex, pstUri, piRows, iMax, WSM_URI_TYPE_NONE, &scratch, &q);
  if (bad != 0) return lookup_fail_i(bad, pstUri != nullptr ? pstUri->iType : 0);
  Collector out{piRows, iMax, 0};
  const int ret = wsm_hash_type(q, 0) == WSM_HASH_SET ? scan_column0_i(pstIndex, q, &out)
                                                      : scan_partial_i(pstIndex, q, true, &out);
  if (ret != 0) return WMNG_PUSH(4, WSM_MSG_HASH_BROKEN);
  return out.count;
}

int wsm_hash_get_meta(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows, int iMax) {
  WsmUri scratch;
  const WsmUri* q = nullptr;
  const int bad = lookup_args_i(pstIndex, pstUri, piRows, iMax, WSM_URI_TYPE_META, &scratch, &q);
  if (bad != 0) return lookup_fail_i(bad, pstUri != nullptr ? pstUri->iType : 0);
  Collector out{piRows, iMax, 0};
  if (scan_partial_i(pstIndex, q, false, &out) != 0) return WMNG_PUSH(4, WSM_MSG_HASH_BROKEN);
  return out.count;
}

int wsm_hash_get_data(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows, int iMax) {
  WsmUri scratch;
  const WsmUri* q = nullptr;
  const int bad = lookup_args_i(pstIndex, pstUri, piRows, iMax, WSM_URI_TYPE_DATA, &scratch, &q);
  if (bad != 0) return lookup_fail_i(bad, pstUri != nullptr ? pstUri->iType : 0);
  Collector out{piRows, iMax, 0};
  if (scan_partial_i(pstIndex, q, false, &out) != 0) return WMNG_PUSH(4, WSM_MSG_HASH_BROKEN);
  return out.count;
}

int wsm_hash_get_only(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRow) {
  if (pstIndex == nullptr || pstUri == nullptr || piRow == nullptr) {
    return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  }
  int row = -1;
  const int count = pstUri->iType == WSM_URI_TYPE_META
                        ? wsm_hash_get_meta(pstIndex, pstUri, &row, 1)
                        : wsm_hash_get_data(pstIndex, pstUri, &row, 1);
  if (count < 0) return WMNG_PUSH(2, WSM_MSG_LOOKUP, count);
  if (count == 0) return WMNG_PUSH(3, WSM_MSG_NO_MATCH);
  if (count > 1) return WMNG_PUSH(4, WSM_MSG_MANY_MATCH, count);
  *piRow = row;
  return 0;
}

int wsm_hash_del(WsmIndex* pstIndex, int iType, int iRow) {
  if (pstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (iType != WSM_URI_TYPE_META && iType != WSM_URI_TYPE_DATA) {
    return WMNG_PUSH(2, WSM_MSG_BAD_KIND, iType);
  }
  if (wsm_i::node_number(wsm_i::shape_of(pstIndex), iType, iRow, 0) < 0) {
    return WMNG_PUSH(3, WSM_MSG_SLOT_RANGE, iRow);
  }
  const int ret = del_nodes_i(pstIndex, iType, iRow);
  if (ret != 0) return WMNG_PUSH(4, WSM_MSG_HASH_DEL, ret);
  return 0;
}

int wsm_hash_del_meta(WsmIndex* pstIndex, int iRow) {
  return wsm_hash_del(pstIndex, WSM_URI_TYPE_META, iRow);
}

int wsm_hash_del_data(WsmIndex* pstIndex, int iRow) {
  return wsm_hash_del(pstIndex, WSM_URI_TYPE_DATA, iRow);
}

}  // extern "C"
