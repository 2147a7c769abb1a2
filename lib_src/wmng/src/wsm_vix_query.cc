// Typed shared memory: queries, their results and rows, and removing a row's object.
#include <stdlib.h>
#include <string.h>

#include <algorithm>

#include "wsm_vix_internal.h"

namespace {

using wsm_vix_i::Scoped;

// Fills a row from slot row of a kind. The caller holds the lock.
void fill_row_i(WsmIndex* index, int type, int row, WsmVixRow* out) {
  memset(out, 0, sizeof(*out));
  out->iType = type;
  out->iIndex = row;
  out->iObj = toffset_array_offset(
      index, type == WSM_URI_TYPE_META ? WSM_INDEX_OFFSET_LIB : WSM_INDEX_OFFSET_URI, row);
  if (type == WSM_URI_TYPE_META) {
    const WsmObjMeta* slot = wsm_head_meta(index, row);
    wsm_i::uri_of_meta(&out->stMeta, &slot->stMeta);
    out->stMetaPtr = slot->stPtr;
    out->iMetaFound = 1;
    out->iSize = slot->stPtr.iSize;
    out->iTime = slot->stTime.iSec;
    return;
  }
  const WsmObjData* slot = wsm_head_data(index, row);
  wsm_i::uri_of_data(&out->stData, &slot->stData);
  out->stDataPtr = slot->stPtr;
  out->iSize = slot->stPtr.iSize;
  out->iTime = slot->stTime.iSec;
  if (slot->stMeta.szLib[0] == '\0') return;
  wsm_i::uri_of_meta(&out->stMeta, &slot->stMeta);
  int lib = -1;
  if (wsm_vix_i::find_library(index, slot->stMeta, &lib) == 1) {
    out->stMetaPtr = wsm_head_meta(index, lib)->stPtr;
    out->iMetaFound = 1;
  }
}

// Detaches a payload a row attached; a failure is on the error stack already.
void row_detach_i(void** payload) {
  if (*payload != nullptr && wsm_vix_dt_ex_i(*payload, nullptr) != 0) return;
  *payload = nullptr;
}

void row_release_i(WsmVixRow* row) {
  row_detach_i(&row->pstData);
  void* meta = const_cast<VIXMETALIB*>(row->pstMeta);
  row_detach_i(&meta);
  row->pstMeta = static_cast<const VIXMETALIB*>(meta);
}

}  // namespace

namespace wsm_vix_i {

void result_free(WsmVixResult* result) {
  for (int i = 0; i < result->iCount; ++i) row_release_i(&result->pstHead[i]);
  if (result->pstOwner != nullptr && result->pstOwner->pstResult == result) {
    result->pstOwner->pstResult = nullptr;
  }
  free(result->pstHead);
  free(result);
}

}  // namespace wsm_vix_i

int wsm_vix_query_i(WsmVixHandle* pstHandle, const char* pszUri) {
  WsmUri u;
  const int parsed = wsm_uri_set(&u, pszUri);
  if (parsed != 0) return WMNG_PUSH(3, WSM_MSG_URI_PARSE, parsed);
  if (pstHandle->pstResult != nullptr) wsm_vix_i::result_free(pstHandle->pstResult);
  WsmVixResult* result = static_cast<WsmVixResult*>(calloc(1, sizeof(WsmVixResult)));
  if (result == nullptr) return WMNG_PUSH(5, WSM_MSG_NO_MEMORY);
  result->pstOwner = pstHandle;
  WsmIndex* index = pstHandle->pstIndex;
  Scoped lock;
  if (lock.take(index, pstHandle->iIndexKey, false) != 0) {
    free(result);
    return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "lock");
  }
  auto look = u.iType == WSM_URI_TYPE_META ? wsm_hash_get_meta : wsm_hash_get_data;
  const int n = look(index, &u, nullptr, 0);
  int* rows = n > 0 ? static_cast<int*>(malloc(sizeof(int) * static_cast<size_t>(n))) : nullptr;
  WsmVixRow* out =
      n > 0 ? static_cast<WsmVixRow*>(calloc(static_cast<size_t>(n), sizeof(WsmVixRow))) : nullptr;
  if (n > 0 && (rows == nullptr || out == nullptr)) {
    free(rows);
    free(out);
    free(result);
    return WMNG_PUSH(5, WSM_MSG_NO_MEMORY);
  }
  if (n < 0 || (n > 0 && look(index, &u, rows, n) != n)) {
    free(rows);
    free(out);
    free(result);
    return WMNG_PUSH(4, WSM_MSG_LOOKUP, n);
  }
  std::sort(rows, rows + (n > 0 ? n : 0));
  for (int i = 0; i < n; ++i) fill_row_i(index, u.iType, rows[i], &out[i]);
  lock.release();
  free(rows);
  result->iCount = n;
  result->pstHead = out;
  result->pstCurrent = out;
  pstHandle->pstResult = result;
  return n;
}

WsmVixResult* wsm_vix_store_result_i(WsmVixHandle* pstHandle) {
  if (pstHandle->pstResult == nullptr) WMNG_PUSH(3, WSM_MSG_NO_RESULT);
  return pstHandle->pstResult;
}

int wsm_vix_num_rows_i(const WsmVixResult* pstResult) { return pstResult->iCount; }

int wsm_vix_data_seek_i(WsmVixResult* pstResult, int iRow) {
  if (iRow < 0 || iRow > pstResult->iCount) return WMNG_PUSH(3, WSM_MSG_ROW_RANGE, iRow);
  pstResult->pstCurrent = pstResult->pstHead + iRow;
  return 0;
}

WsmVixRow* wsm_vix_fetch_row_i(WsmVixResult* pstResult) {
  if (pstResult->pstHead == nullptr ||
      pstResult->pstCurrent >= pstResult->pstHead + pstResult->iCount) {
    return nullptr;
  }
  return pstResult->pstCurrent++;
}

int wsm_vix_free_result_i(WsmVixResult* pstResult) {
  wsm_vix_i::result_free(pstResult);
  return 0;
}

WsmVixRow* wsm_vix_row_first_i(WsmVixHandle* pstHandle) {
  const WsmVixResult* r = pstHandle->pstResult;
  if (r == nullptr) {
    WMNG_PUSH(3, WSM_MSG_NO_RESULT);
    return nullptr;
  }
  if (r->iCount < 1) {
    WMNG_PUSH(4, WSM_MSG_NO_ROW);
    return nullptr;
  }
  return r->pstHead;
}

WsmVixRow* wsm_vix_row_only_i(WsmVixHandle* pstHandle) {
  const WsmVixResult* r = pstHandle->pstResult;
  if (r == nullptr) {
    WMNG_PUSH(3, WSM_MSG_NO_RESULT);
    return nullptr;
  }
  if (r->iCount != 1) {
    WMNG_PUSH(4, WSM_MSG_NOT_ONE_ROW, r->iCount);
    return nullptr;
  }
  return r->pstHead;
}

int64_t wsm_vix_row_size_i(const WsmVixRow* pstRow) { return static_cast<int64_t>(pstRow->iSize); }

WsmObjPtr* wsm_vix_row_data_ptr_i(WsmVixRow* pstRow) {
  return pstRow->iType == WSM_URI_TYPE_DATA ? &pstRow->stDataPtr : nullptr;
}

WsmObjPtr* wsm_vix_row_meta_ptr_i(WsmVixRow* pstRow) {
  return pstRow->iMetaFound != 0 ? &pstRow->stMetaPtr : nullptr;
}

const char* wsm_vix_row_uri_i(WsmVixRow* pstRow) {
  return wsm_uri_get(pstRow->iType == WSM_URI_TYPE_META ? &pstRow->stMeta : &pstRow->stData);
}

const char* wsm_vix_row_meta_uri_i(WsmVixRow* pstRow) {
  return pstRow->stMeta.iType == WSM_URI_TYPE_META ? wsm_uri_get(&pstRow->stMeta) : nullptr;
}

int wsm_vix_row_is_meta_i(const WsmVixRow* pstRow) {
  return pstRow->iType == WSM_URI_TYPE_META ? 1 : 0;
}

int wsm_vix_row_is_data_i(const WsmVixRow* pstRow) {
  return pstRow->iType == WSM_URI_TYPE_DATA ? 1 : 0;
}

int wsm_vix_row_type_i(const WsmVixRow* pstRow) { return pstRow->iType; }

int64_t wsm_vix_row_time_i(const WsmVixRow* pstRow) { return pstRow->iTime; }

void* wsm_vix_row_data_i(WsmVixRow* pstRow) {
  if (pstRow->iType != WSM_URI_TYPE_DATA) {
    WMNG_PUSH(3, WSM_MSG_NOT_DATA_ROW);
    return nullptr;
  }
  if (pstRow->pstData == nullptr) {
    pstRow->pstData = wsm_vix_at_i(&pstRow->stDataPtr, 0);
    if (pstRow->pstData == nullptr) WMNG_PUSH(4, WSM_MSG_OBJ_ATTACH, pstRow->stDataPtr.iShmId);
  }
  return pstRow->pstData;
}

const VIXMETALIB* wsm_vix_row_meta_i(WsmVixRow* pstRow) {
  if (pstRow->iMetaFound == 0) {
    WMNG_PUSH(3, WSM_MSG_NO_META_OBJ);
    return nullptr;
  }
  if (pstRow->pstMeta == nullptr) {
    void* p = wsm_vix_at_i(&pstRow->stMetaPtr, WSM_VIX_RDONLY);
    if (p != nullptr && !wsm_vix_i::library_ok(p, pstRow->stMetaPtr.iSize)) {
      row_detach_i(&p);
      p = nullptr;
    }
    if (p == nullptr) {
      WMNG_PUSH(4, WSM_MSG_META_ATTACH, pstRow->stMetaPtr.iShmId);
      return nullptr;
    }
    pstRow->pstMeta = static_cast<const VIXMETALIB*>(p);
  }
  return pstRow->pstMeta;
}

int wsm_vix_row_unlink_i(WsmVixRow* pstRow, WsmVixHandle* pstHandle) {
  row_release_i(pstRow);
  const WsmObjPtr& ptr = pstRow->iType == WSM_URI_TYPE_META ? pstRow->stMetaPtr : pstRow->stDataPtr;
  Scoped lock;
  if (lock.take(pstHandle->pstIndex, pstHandle->iIndexKey, true) != 0) {
    return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "read lock held");
  }
  return wsm_vix_i::unlink_locked(pstHandle->pstIndex, pstRow->iType, pstRow->iIndex, ptr);
}
