// Typed shared memory: objects. Loading metadata libraries as meta objects, obtaining and
// creating data objects, attaching and detaching them, removing them.
#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <unistd.h>

#include "wsm_vix_internal.h"

namespace {

using wsm_vix_i::Scoped;

// Undo steps whose own failure is already on the error stack and changes nothing further.
void free_slot_quiet_i(WsmIndex* index, int type, int row) {
  if (wsm_head_obj_free(index, type, row) != 0) return;
}
void detach_quiet_i(WsmShmHead* head) {
  if (wsm_head_dt(head) != 0) return;
}

uint64_t page_round_i(uint64_t n) {
  const long page = sysconf(_SC_PAGESIZE);
  const uint64_t p = page > 0 ? static_cast<uint64_t>(page) : 4096;
  return (n + p - 1) / p * p;
}

// Takes a slot of a kind, registers it under uri (which carries the description) and makes its
// segment. The caller holds the write lock. 0, or -1 (no slot), -2 (keys), -3 (segment), each
// after the frames of the failing call; nothing is left behind on failure.
int create_locked_i(WsmIndex* index, const WsmUri& uri, const WsmVixMetaInfo* meta, const void* src,
                    uint64_t size, int* row_out) {
  const int type = uri.iType;
  int row = -1;
  if (wsm_head_obj_alloc(index, type, &row) != 0) return -1;
  WsmObjPtr* ptr = nullptr;
  WsmVixMetaInfo* slot_meta = nullptr;
  WsmVixDataInfo* slot_data = nullptr;
  if (type == WSM_URI_TYPE_META) {
    WsmObjMeta* slot = wsm_head_meta(index, row);
    ptr = &slot->stPtr;
    slot_meta = &slot->stMeta;
  } else {
    WsmObjData* slot = wsm_head_data(index, row);
    ptr = &slot->stPtr;
    slot_meta = &slot->stMeta;
    slot_data = &slot->stData;
    if (meta != nullptr) slot->stMeta = *meta;
  }
  int ret = wsm_hash_set(index, row, &uri);
  if (ret != 0) {
    free_slot_quiet_i(index, type, row);
    return -2;
  }
  const WsmVixMetaInfo* head_meta =
      type == WSM_URI_TYPE_META || meta != nullptr ? slot_meta : nullptr;
  ret = wsm_head_init(ptr, type, head_meta, slot_data, src, size);
  if (ret != 0) {
    free_slot_quiet_i(index, type, row);
    return -3;
  }
  *row_out = row;
  return 0;
}

// Creates the meta object of a library under uri. The caller holds the write lock.
int wsm_vix_create_meta_i(WsmIndex* index, const WsmUri& uri, const VIXMETALIB* lib) {
  int row = -1;
  return create_locked_i(index, uri, nullptr, lib, lib->iSize, &row);
}

// The meta URI of a library: "wsm-meta://bid/name:version:build/", parsed. false when the name
// or the numbers do not survive the round trip (too long, a separator in the name, negative).
bool library_uri_i(const VIXMETALIB* lib, int bid, WsmUri* out, char* text, size_t text_len) {
  const char* name = vix_get_metalib_name(lib);
  const int version = vix_get_metalib_version(lib);
  const int build = vix_get_metalib_build_version(lib);
  snprintf(text, text_len, "wsm-meta://%d/%s:%d:%d/", bid, name, version, build);
  if (bid < 0 || version < 0 || build < 0 || wsm_uri_set(out, text) != 0) return false;
  const WsmVixMetaInfo& m = out->stMeta;
  return strncmp(m.szLib, name, sizeof(m.szLib)) == 0 && strlen(name) < sizeof(m.szLib) &&
         name[0] != '\0' && name[0] != '*' && m.iBid == bid && m.iLibVer == version &&
         m.iLibBuildVer == build;
}

// Compares the stored copy in meta slot row with lib; replaces it when asked. The caller holds
// the write lock. WSM_VIX_META_SAME / _DIFFERS / _REPLACED or a pushed negative code.
int wsm_vix_check_metalib_i(WsmIndex* index, int row, const WsmUri& uri, const VIXMETALIB* lib,
                            int replace) {
  const WsmObjPtr stored = wsm_head_meta(index, row)->stPtr;
  WsmShmHead* head = nullptr;
  int ret = wsm_head_at(&stored, &head);
  if (ret != 0) return WMNG_PUSH(9, WSM_MSG_LIB_ATTACH, ret);
  const bool same = stored.iSize == lib->iSize &&
                    memcmp(reinterpret_cast<char*>(head) + WSM_HEAD_SIZE, lib, lib->iSize) == 0;
  if (wsm_head_dt(head) != 0) return WMNG_PUSH(9, WSM_MSG_LIB_ATTACH, -1);
  if (same) return WSM_VIX_META_SAME;
  if (replace != WSM_VIX_REPLACE) return WSM_VIX_META_DIFFERS;
  ret = wsm_vix_i::unlink_locked(index, WSM_URI_TYPE_META, row, stored);
  if (ret != 0) return WMNG_PUSH(7, WSM_MSG_UNLINK_FAIL, ret);
  ret = wsm_vix_create_meta_i(index, uri, lib);
  if (ret != 0) return WMNG_PUSH(8, WSM_MSG_CREATE_META_FAIL, ret);
  return WSM_VIX_META_REPLACED;
}

}  // namespace

namespace wsm_vix_i {

int unlink_locked(WsmIndex* index, int type, int row, const WsmObjPtr& expect) {
  WsmObjPtr* sp = nullptr;
  if (type == WSM_URI_TYPE_META) {
    WsmObjMeta* slot = wsm_head_meta(index, row);
    if (slot != nullptr) sp = &slot->stPtr;
  } else {
    WsmObjData* slot = wsm_head_data(index, row);
    if (slot != nullptr) sp = &slot->stPtr;
  }
  if (sp == nullptr || expect.iSize == 0 || !same_object(*sp, expect)) {
    return WMNG_PUSH(3, WSM_MSG_SLOT_CHANGED, row);
  }
  // A segment already removed (by hand, or by a process that died half-way) is not in the way;
  // a segment that now belongs to something else is left alone by wsm_head_destroy.
  struct shmid_ds ds;
  if (shmctl(sp->iShmId, IPC_STAT, &ds) == 0) {
    const int ret = wsm_head_destroy(sp);
    if (ret == -3) return WMNG_PUSH(4, WSM_MSG_OBJ_REMOVE, ret);
  }
  const int ret = wsm_head_obj_free(index, type, row);
  if (ret != 0) return WMNG_PUSH(5, WSM_MSG_SLOT_FREE, ret);
  // A freed slot names no object, so a stale row or pointer can never match it.
  memset(sp, 0, sizeof(*sp));
  return 0;
}

}  // namespace wsm_vix_i

int wsm_vix_load_meta_ex_i(WsmVixHandle* pstHandle, const VIXMETALIB* pstLib, int iBid,
                           int iReplace) {
  if (!wsm_vix_i::library_ok(pstLib, pstLib->iSize)) return WMNG_PUSH(3, WSM_MSG_BAD_LIB);
  WsmUri uri;
  char text[WSM_URI_LEN];
  if (!library_uri_i(pstLib, iBid, &uri, text, sizeof(text))) {
    return WMNG_PUSH(4, WSM_MSG_LIB_URI, text);
  }
  uri.stMeta.iSize = pstLib->iSize;
  WsmIndex* index = pstHandle->pstIndex;
  Scoped lock;
  if (lock.take(index, pstHandle->iIndexKey, true) != 0) {
    return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "read lock held");
  }
  int rows[2];
  const int n = wsm_hash_get(index, &uri, rows, 2);
  if (n < 0) return WMNG_PUSH(5, WSM_MSG_LOOKUP, n);
  if (n > 1) return WMNG_PUSH(6, WSM_MSG_MANY_MATCH, n);
  if (n == 1) return wsm_vix_check_metalib_i(index, rows[0], uri, pstLib, iReplace);
  const int ret = wsm_vix_create_meta_i(index, uri, pstLib);
  if (ret != 0) return WMNG_PUSH(8, WSM_MSG_CREATE_META_FAIL, ret);
  return WSM_VIX_META_SAME;
}

int wsm_vix_load_meta_i(WsmVixHandle* pstHandle, const VIXMETALIB* pstLib, int iReplace) {
  return wsm_vix_load_meta_ex_i(pstHandle, pstLib, 0, iReplace);
}

int wsm_vix_load_meta_file_i(WsmVixHandle* pstHandle, const char* pszPath, int iFlags) {
  LPVIXMETALIB lib = nullptr;
  const int rc = vix_load_metalib(&lib, pszPath);
  if (rc != 0) return WMNG_PUSH(3, WSM_MSG_LIB_FILE, pszPath, static_cast<unsigned>(rc));
  const int ret = wsm_vix_load_meta_ex_i(pstHandle, lib, 0, iFlags & WSM_VIX_REPLACE);
  vix_free_lib(&lib);
  if (ret < 0) return WMNG_PUSH(4, WSM_MSG_LOAD_META, ret);
  return ret;
}

WsmObjPtr* wsm_vix_ptr_i(WsmVixHandle* pstHandle, int iFlags) {
  if (pstHandle->iSize == 0 || pstHandle->stData.iType != WSM_URI_TYPE_DATA) {
    WMNG_PUSH(1, WSM_MSG_NO_SIZE);
    return nullptr;
  }
  const bool create = (iFlags & WSM_VIX_CREAT) != 0;
  const bool excl = create && (iFlags & WSM_VIX_EXCL) != 0;
  WsmIndex* index = pstHandle->pstIndex;
  Scoped lock;
  if (lock.take(index, pstHandle->iIndexKey, create) != 0) {
    WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "read lock held");
    return nullptr;
  }
  int rows[2];
  const int n = wsm_hash_get(index, &pstHandle->stData, rows, 2);
  if (n < 0) {
    WMNG_PUSH(4, WSM_MSG_LOOKUP, n);
    return nullptr;
  }
  if (n > 1) {
    WMNG_PUSH(6, WSM_MSG_MANY_MATCH, n);
    return nullptr;
  }
  if (n == 1) {
    const WsmObjData* slot = wsm_head_data(index, rows[0]);
    if (excl) {
      WMNG_PUSH(1, WSM_MSG_FOUND_EXCL);
      return nullptr;
    }
    if (slot->stPtr.iSize != slot->stData.iSize || slot->stPtr.iSize != pstHandle->iSize) {
      WMNG_PUSH(3, WSM_MSG_SIZE_MISMATCH, static_cast<unsigned long long>(slot->stPtr.iSize),
                static_cast<unsigned long long>(slot->stData.iSize),
                static_cast<unsigned long long>(pstHandle->iSize));
      return nullptr;
    }
    pstHandle->stPtr = slot->stPtr;
    return &pstHandle->stPtr;
  }
  if (!create) return WSM_VIX_PTR_ABSENT;
  WsmUri uri = pstHandle->stData;
  uri.stData.iSize = pstHandle->iSize;
  const WsmVixMetaInfo* meta =
      pstHandle->stMeta.iType == WSM_URI_TYPE_META ? &pstHandle->stMeta.stMeta : nullptr;
  int row = -1;
  const int ret = create_locked_i(index, uri, meta, nullptr, pstHandle->iSize, &row);
  if (ret != 0) {
    const int code = ret == -1 ? 5 : ret == -2 ? 8 : 9;
    WMNG_PUSH(code,
              code == 5   ? WSM_MSG_NO_DATA_SLOT
              : code == 8 ? WSM_MSG_REGISTER
                          : WSM_MSG_SEGMENT,
              ret);
    return nullptr;
  }
  pstHandle->stPtr = wsm_head_data(index, row)->stPtr;
  pstHandle->iDataFound = 1;
  return &pstHandle->stPtr;
}

void* wsm_vix_at_i(WsmObjPtr* pstPtr, int iFlags) {
  if (pstPtr == WSM_VIX_PTR_ABSENT) {
    WMNG_PUSH(3, WSM_MSG_OBJ_ABSENT_PTR);
    return nullptr;
  }
  // The caller's pointer may live in a row or a handle: work on a copy.
  const WsmObjPtr want = *pstPtr;
  const int key = wsm_get_base()->iIndexKey;
  if (want.iSize == 0 || want.iIndexKey != key) {
    WMNG_PUSH(4, WSM_MSG_OBJ_FOREIGN, static_cast<unsigned long long>(want.iSize), want.iIndexKey,
              key);
    return nullptr;
  }
  WsmIndex* index = wsm_vix_i::mount_find(key);
  if (index == nullptr) {
    WMNG_PUSH(5, WSM_MSG_NOT_MOUNTED, key);
    return nullptr;
  }
  if (!wsm_vix_i::attach_reserve()) {
    WMNG_PUSH(6, WSM_MSG_OBJ_ATTACH, -1);
    return nullptr;
  }
  WsmShmHead* head = nullptr;
  const int ret = wsm_head_at(&want, &head);
  if (ret != 0) {
    WMNG_PUSH(6, WSM_MSG_OBJ_ATTACH, ret);
    return nullptr;
  }
  {
    Scoped lock;
    if (lock.take(index, key, true) != 0) {
      detach_quiet_i(head);
      WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "read lock held");
      return nullptr;
    }
    WsmObjPtr* slot = wsm_vix_i::slot_of_head(index, head);
    if (slot == nullptr) {
      detach_quiet_i(head);
      WMNG_PUSH(7, WSM_MSG_SLOT_GONE, want.iShmId);
      return nullptr;
    }
    ++slot->iRef;
    ++head->stPtr.iRef;
  }
  const uint64_t size = WSM_HEAD_SIZE + want.iSize;
  const bool rdonly = (iFlags & WSM_VIX_RDONLY) != 0;
  // Read-only: the counts are written first, then the whole mapping is protected.
  if (rdonly) mprotect(head, page_round_i(size), PROT_READ);
  wsm_vix_i::attach_add(head, size, rdonly);
  return reinterpret_cast<char*>(head) + WSM_HEAD_SIZE;
}

int wsm_vix_dt_i(void* pvPayload) { return wsm_vix_dt_ex_i(pvPayload, nullptr); }

int wsm_vix_dt_ex_i(void* pvPayload, WsmVixHandle* pstHandle) {
  WsmShmHead* head = reinterpret_cast<WsmShmHead*>(static_cast<char*>(pvPayload) - WSM_HEAD_SIZE);
  uint64_t size = 0;
  bool rdonly = false;
  if (!wsm_vix_i::attach_take(head, &size, &rdonly)) return WMNG_PUSH(3, WSM_MSG_NOT_ATTACHED);
  const int key = head->stPtr.iIndexKey;
  WsmIndex* index = pstHandle != nullptr && pstHandle->iIndexKey == key
                        ? pstHandle->pstIndex
                        : wsm_vix_i::mount_find(key);
  if (index != nullptr) {
    Scoped lock;
    WsmObjPtr* slot = nullptr;
    if (lock.take(index, key, true) == 0) slot = wsm_vix_i::slot_of_head(index, head);
    if (slot != nullptr) {
      if (rdonly) mprotect(head, page_round_i(WSM_HEAD_SIZE), PROT_READ | PROT_WRITE);
      if (slot->iRef > 0) --slot->iRef;
      if (head->stPtr.iRef > 0) --head->stPtr.iRef;
    }
  }
  if (shmdt(head) != 0) {
    // Still attached: keep it on record so that a later detach can succeed.
    wsm_vix_i::attach_add(head, size, rdonly);
    return WMNG_PUSH(4, WSM_MSG_SHM_DETACH, strerror(errno));
  }
  return 0;
}

int wsm_vix_load_data_i(WsmVixHandle* pstHandle, const void* pvSrc, uint64_t iSize) {
  if (iSize == 0 || (pstHandle->iSize != 0 && iSize > pstHandle->iSize)) {
    return WMNG_PUSH(4, WSM_MSG_SIZE_RANGE, static_cast<unsigned long long>(iSize),
                     static_cast<unsigned long long>(pstHandle->iSize));
  }
  WsmObjPtr* ptr = wsm_vix_ptr_i(pstHandle, WSM_VIX_CREAT);
  if (ptr == nullptr) return WMNG_PUSH(3, WSM_MSG_NO_OBJECT, -1);
  void* payload = wsm_vix_at_i(ptr, 0);
  if (payload == nullptr) return WMNG_PUSH(5, WSM_MSG_OBJ_ATTACH, -1);
  memcpy(payload, pvSrc, iSize);
  const int ret = wsm_vix_dt_ex_i(payload, pstHandle);
  if (ret != 0) return WMNG_PUSH(5, WSM_MSG_OBJ_ATTACH, ret);
  return 0;
}
