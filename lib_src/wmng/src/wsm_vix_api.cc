// Typed shared memory: the public functions. Each checks its arguments (code 1 null, 2 a handle
// whose iMagic is wrong) and forwards to its internal function.
#include <stdio.h>

#include "wsm_vix_internal.h"

namespace {

// 0 for a usable handle, otherwise the pushed code.
int handle_check_i(const WsmVixHandle* h) {
  if (h == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (h->iMagic != WSM_MAGIC) {
    char detail[32];
    snprintf(detail, sizeof(detail), "magic 0x%x", static_cast<unsigned>(h->iMagic));
    return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, detail);
  }
  return 0;
}

int null_i() { return WMNG_PUSH(1, WSM_MSG_NULL_ARG); }

}  // namespace

extern "C" {

int wsm_vix_open(WsmVixHandleP* ppstHandle) {
  if (ppstHandle == nullptr) return null_i();
  return wsm_vix_open_i(ppstHandle);
}

int wsm_vix_close(WsmVixHandleP* ppstHandle) {
  if (ppstHandle == nullptr) return null_i();
  const int bad = handle_check_i(*ppstHandle);
  if (bad != 0) return bad;
  return wsm_vix_close_i(ppstHandle);
}

int wsm_vix_status(WsmVixHandleP pstHandle) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_status_i(pstHandle);
}

int wsm_vix_bind_meta(WsmVixHandleP pstHandle, const char* pszUri) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pszUri == nullptr) return null_i();
  return wsm_vix_bind_meta_i(pstHandle, pszUri);
}

int wsm_vix_bind_data(WsmVixHandleP pstHandle, const char* pszUri) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pszUri == nullptr) return null_i();
  return wsm_vix_bind_data_i(pstHandle, pszUri);
}

int wsm_vix_bind_size(WsmVixHandleP pstHandle, uint64_t iSize) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_bind_size_i(pstHandle, iSize);
}

const char* wsm_vix_bind_get_meta(WsmVixHandleP pstHandle) {
  if (handle_check_i(pstHandle) != 0) return nullptr;
  return wsm_vix_bind_get_meta_i(pstHandle);
}

const char* wsm_vix_bind_get_data(WsmVixHandleP pstHandle) {
  if (handle_check_i(pstHandle) != 0) return nullptr;
  return wsm_vix_bind_get_data_i(pstHandle);
}

int64_t wsm_vix_bind_get_size(WsmVixHandleP pstHandle) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_bind_get_size_i(pstHandle);
}

int wsm_vix_load_meta(WsmVixHandleP pstHandle, const VIXMETALIB* pstLib, int iReplace) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pstLib == nullptr) return null_i();
  return wsm_vix_load_meta_i(pstHandle, pstLib, iReplace);
}

int wsm_vix_load_meta_ex(WsmVixHandleP pstHandle, const VIXMETALIB* pstLib, int iBid,
                         int iReplace) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pstLib == nullptr) return null_i();
  return wsm_vix_load_meta_ex_i(pstHandle, pstLib, iBid, iReplace);
}

int wsm_vix_load_meta_file(WsmVixHandleP pstHandle, const char* pszPath, int iFlags) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pszPath == nullptr) return null_i();
  return wsm_vix_load_meta_file_i(pstHandle, pszPath, iFlags);
}

int wsm_vix_load_data(WsmVixHandleP pstHandle, const void* pvSrc, uint64_t iSize) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pvSrc == nullptr) return null_i();
  return wsm_vix_load_data_i(pstHandle, pvSrc, iSize);
}

WsmObjPtrP wsm_vix_ptr(WsmVixHandleP pstHandle, int iFlags) {
  if (handle_check_i(pstHandle) != 0) return nullptr;
  return wsm_vix_ptr_i(pstHandle, iFlags);
}

void* wsm_vix_at(WsmObjPtrP pstPtr, int iFlags) {
  if (pstPtr == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_at_i(pstPtr, iFlags);
}

int wsm_vix_dt(void* pvPayload) {
  if (pvPayload == nullptr) return null_i();
  return wsm_vix_dt_i(pvPayload);
}

int wsm_vix_dt_ex(void* pvPayload, WsmVixHandleP pstHandle) {
  if (pvPayload == nullptr) return null_i();
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_dt_ex_i(pvPayload, pstHandle);
}

int wsm_vix_query(WsmVixHandleP pstHandle, const char* pszUri) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  if (pszUri == nullptr) return null_i();
  return wsm_vix_query_i(pstHandle, pszUri);
}

WsmVixResultP wsm_vix_store_result(WsmVixHandleP pstHandle) {
  if (handle_check_i(pstHandle) != 0) return nullptr;
  return wsm_vix_store_result_i(pstHandle);
}

int wsm_vix_num_rows(WsmVixResultP pstResult) {
  if (pstResult == nullptr) return null_i();
  return wsm_vix_num_rows_i(pstResult);
}

int wsm_vix_data_seek(WsmVixResultP pstResult, int iRow) {
  if (pstResult == nullptr) return null_i();
  return wsm_vix_data_seek_i(pstResult, iRow);
}

WsmVixRowP wsm_vix_fetch_row(WsmVixResultP pstResult) {
  if (pstResult == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_fetch_row_i(pstResult);
}

int wsm_vix_free_result(WsmVixResultP pstResult) {
  if (pstResult == nullptr) return null_i();
  return wsm_vix_free_result_i(pstResult);
}

WsmVixRowP wsm_vix_row_first(WsmVixHandleP pstHandle) {
  if (handle_check_i(pstHandle) != 0) return nullptr;
  return wsm_vix_row_first_i(pstHandle);
}

WsmVixRowP wsm_vix_row_only(WsmVixHandleP pstHandle) {
  if (handle_check_i(pstHandle) != 0) return nullptr;
  return wsm_vix_row_only_i(pstHandle);
}

int64_t wsm_vix_row_size(WsmVixRowP pstRow) {
  if (pstRow == nullptr) return null_i();
  return wsm_vix_row_size_i(pstRow);
}

void* wsm_vix_row_data(WsmVixRowP pstRow) {
  if (pstRow == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_row_data_i(pstRow);
}

const VIXMETALIB* wsm_vix_row_meta(WsmVixRowP pstRow) {
  if (pstRow == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_row_meta_i(pstRow);
}

WsmObjPtrP wsm_vix_row_data_ptr(WsmVixRowP pstRow) {
  if (pstRow == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_row_data_ptr_i(pstRow);
}

WsmObjPtrP wsm_vix_row_meta_ptr(WsmVixRowP pstRow) {
  if (pstRow == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_row_meta_ptr_i(pstRow);
}

const char* wsm_vix_row_uri(WsmVixRowP pstRow) {
  if (pstRow == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_row_uri_i(pstRow);
}

const char* wsm_vix_row_meta_uri(WsmVixRowP pstRow) {
  if (pstRow == nullptr) {
    null_i();
    return nullptr;
  }
  return wsm_vix_row_meta_uri_i(pstRow);
}

int wsm_vix_row_is_meta(WsmVixRowP pstRow) {
  if (pstRow == nullptr) return null_i();
  return wsm_vix_row_is_meta_i(pstRow);
}

int wsm_vix_row_is_data(WsmVixRowP pstRow) {
  if (pstRow == nullptr) return null_i();
  return wsm_vix_row_is_data_i(pstRow);
}

int wsm_vix_row_type(WsmVixRowP pstRow) {
  if (pstRow == nullptr) return null_i();
  return wsm_vix_row_type_i(pstRow);
}

int64_t wsm_vix_row_time(WsmVixRowP pstRow) {
  if (pstRow == nullptr) return null_i();
  return wsm_vix_row_time_i(pstRow);
}

int wsm_vix_row_unlink(WsmVixRowP pstRow, WsmVixHandleP pstHandle) {
  if (pstRow == nullptr) return null_i();
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_row_unlink_i(pstRow, pstHandle);
}

int wsm_vix_base_set(const WsmBase* pstBase) {
  if (pstBase == nullptr) return null_i();
  return wsm_vix_base_set_i(pstBase);
}

int wsm_vix_lock(WsmVixHandleP pstHandle, int iRead) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_lock_i(pstHandle, iRead);
}

int wsm_vix_unlock(WsmVixHandleP pstHandle) {
  const int bad = handle_check_i(pstHandle);
  if (bad != 0) return bad;
  return wsm_vix_unlock_i(pstHandle);
}

}  // extern "C"
