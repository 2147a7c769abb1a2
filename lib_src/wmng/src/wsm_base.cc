// The tuning record: settings, the registry layout that follows from them, and node numbering.
#include <limits.h>
#include <sys/ipc.h>
#include <unistd.h>

#include "wmng/wsm.h"
#include "wsm_internal.h"

namespace {

WsmBase g_base;

uint64_t page_size_i() {
  const long page = sysconf(_SC_PAGESIZE);
  return page > 0 ? static_cast<uint64_t>(page) : 4096;
}

uint64_t round_up_i(uint64_t n, uint64_t page) { return (n + page - 1) / page * page; }

}  // namespace

namespace wsm_i {

Shape shape_of(const WsmBase* base) {
  return Shape{base->iLibHash, base->iLibCap, base->iUriHash, base->iUriCap};
}

Shape shape_of(const WsmIndex* index) {
  return Shape{index->stLib.iMaxHash, index->stLib.iMaxCap, index->stUri.iMaxHash,
               index->stUri.iMaxCap};
}

int node_number(const Shape& s, int type, int row, int col) {
  int64_t node = -1;
  if (type == WSM_URI_TYPE_META) {
    if (row < 0 || row >= s.lib_cap || col < 0 || col >= s.lib_hash) return -1;
    node = static_cast<int64_t>(row) * s.lib_hash + col;
  } else if (type == WSM_URI_TYPE_DATA) {
    if (row < 0 || row >= s.uri_cap || col < 0 || col >= s.uri_hash) return -1;
    node =
        static_cast<int64_t>(s.lib_cap) * s.lib_hash + static_cast<int64_t>(row) * s.uri_hash + col;
  }
  return node >= 0 && node <= INT_MAX ? static_cast<int>(node) : -1;
}

bool node_split(const Shape& s, int node, int* type, int* row, int* col) {
  if (node < 0 || s.lib_hash <= 0 || s.uri_hash <= 0 || s.lib_cap < 0 || s.uri_cap < 0) {
    return false;
  }
  const int64_t lib_nodes = static_cast<int64_t>(s.lib_cap) * s.lib_hash;
  if (node < lib_nodes) {
    *type = WSM_URI_TYPE_META;
    *row = node / s.lib_hash;
    *col = node % s.lib_hash;
    return true;
  }
  const int64_t rest = node - lib_nodes;
  if (rest >= static_cast<int64_t>(s.uri_cap) * s.uri_hash) return false;
  *type = WSM_URI_TYPE_DATA;
  *row = static_cast<int>(rest / s.uri_hash);
  *col = static_cast<int>(rest % s.uri_hash);
  return true;
}

bool layout(WsmBase* b) {
  if (b->iLibCap < 1 || b->iUriCap < 1 || b->iLibHash < WSM_LIB_COLUMNS ||
      b->iUriHash < WSM_URI_COLUMNS) {
    return false;
  }
  const int64_t nodes = static_cast<int64_t>(b->iLibCap) * b->iLibHash +
                        static_cast<int64_t>(b->iUriCap) * b->iUriHash;
  if (nodes > INT_MAX) return false;
  const uint64_t hash = toffset_hash_size(static_cast<int>(nodes));
  if (hash == TOFFSET_INVALID || toffset_hash_buckets(static_cast<int>(nodes)) > INT_MAX) {
    return false;
  }
  const uint64_t page = page_size_i();
  b->iHashCap = static_cast<int32_t>(nodes);
  b->iOffsetLib = round_up_i(sizeof(WsmIndex), page);
  b->iOffsetUri =
      b->iOffsetLib + round_up_i(toffset_array_size(sizeof(WsmObjMeta), b->iLibCap), page);
  b->iOffsetHash =
      b->iOffsetUri + round_up_i(toffset_array_size(sizeof(WsmObjData), b->iUriCap), page);
  b->iIndexSize = b->iOffsetHash + round_up_i(hash, page);
  b->dwWsmInitStatus = WSM_BASESET_INITED;
  return true;
}

}  // namespace wsm_i

extern "C" {

int wsm_base_default(WsmBase* pstBase) {
  if (pstBase == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  WsmBase b;
  memset(&b, 0, sizeof(b));
  b.iIndexKey = WSM_INDEX_KEY_DEFAULT;
  b.iLibHash = WSM_LIB_HASH_DEFAULT;
  b.iLibCap = WSM_LIB_CAP_DEFAULT;
  b.iUriHash = WSM_URI_HASH_DEFAULT;
  b.iUriCap = WSM_URI_CAP_DEFAULT;
  if (!wsm_i::layout(&b)) return WMNG_PUSH(2, WSM_MSG_BAD_TUNING);
  *pstBase = b;
  return 0;
}

WsmBase* wsm_get_base(void) {
  if (g_base.dwWsmInitStatus != WSM_BASESET_INITED) {
    g_base.dwWsmInitStatus = WSM_BASESET_INITING;
    WsmBase b;
    if (wsm_base_default(&b) == 0) g_base = b;
  }
  return &g_base;
}

int wsm_base_set(const WsmBase* pstBase) {
  if (pstBase == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  WsmBase b;
  memset(&b, 0, sizeof(b));
  b.iIndexKey = pstBase->iIndexKey;
  b.iLibHash = pstBase->iLibHash;
  b.iLibCap = pstBase->iLibCap;
  b.iUriHash = pstBase->iUriHash;
  b.iUriCap = pstBase->iUriCap;
  if (b.iIndexKey == IPC_PRIVATE || !wsm_i::layout(&b)) return WMNG_PUSH(2, WSM_MSG_BAD_TUNING);
  g_base = b;
  return 0;
}

int wsm_base_index(WsmBaseVar* pstVar) {
  if (pstVar == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const wsm_i::Shape shape = wsm_i::shape_of(wsm_get_base());
  if (pstVar->iIndex == -1) {
    const int node = wsm_i::node_number(shape, pstVar->iType, pstVar->iRow, pstVar->iCol);
    if (node < 0) return WMNG_PUSH(2, WSM_MSG_NODE_NUMBER);
    pstVar->iIndex = node;
    return 0;
  }
  int type = 0, row = 0, col = 0;
  if (!wsm_i::node_split(shape, pstVar->iIndex, &type, &row, &col)) {
    return WMNG_PUSH(2, WSM_MSG_NODE_NUMBER);
  }
  pstVar->iType = type;
  pstVar->iRow = row;
  pstVar->iCol = col;
  return 0;
}

uint64_t wsm_index_size(void) { return wsm_get_base()->iIndexSize; }

}  // extern "C"
