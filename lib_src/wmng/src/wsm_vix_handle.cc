// Typed shared memory: handles (open, close), binding to a meta, a data URI and a size, the
// registry lock and the tuning.
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>

#include "wsm_vix_internal.h"

namespace {

using wsm_vix_i::Scoped;

void uri_clear_i(WsmUri* u) { memset(u, 0, sizeof(*u)); }

// Parses a URI of one kind; 0, or the code to push: 3 parse, 4 kind.
int parse_kind_i(const char* text, int kind, WsmUri* out) {
  const int ret = wsm_uri_set(out, text);
  if (ret != 0) return 3;
  return out->iType == kind ? 0 : 4;
}

// Whether a text field of a URI is set (not empty and not a wildcard).
template <size_t N>
bool text_set_i(const char (&field)[N]) {
  return field[0] != '\0' && field[0] != '*';
}

}  // namespace

int wsm_vix_open_i(WsmVixHandle** ppstHandle) {
  if (*ppstHandle != nullptr) return (*ppstHandle)->iMagic == WSM_MAGIC ? 0 : 1;
  WsmVixHandle* h = static_cast<WsmVixHandle*>(calloc(1, sizeof(WsmVixHandle)));
  if (h == nullptr) return WMNG_PUSH(3, WSM_MSG_NO_MEMORY);
  int ret = wsm_index_mount(&h->pstIndex);
  if (ret != 0) {
    free(h);
    return WMNG_PUSH(4, WSM_MSG_MOUNT, ret);
  }
  h->iIndexKey = wsm_get_base()->iIndexKey;
  if (!wsm_vix_i::mount_add(h->pstIndex, h->iIndexKey, h)) {
    ret = wsm_index_unmount(&h->pstIndex);
    free(h);
    return WMNG_PUSH(3, WSM_MSG_NO_MEMORY);
  }
  h->iMagic = WSM_MAGIC;
  *ppstHandle = h;
  return 0;
}

int wsm_vix_close_i(WsmVixHandle** ppstHandle) {
  WsmVixHandle* h = *ppstHandle;
  if (h->pstResult != nullptr) wsm_vix_i::result_free(h->pstResult);
  // A lock this thread still holds on the registry goes with the last way to release it.
  wsm_vix_i::Hold& hold = wsm_vix_i::thread_hold();
  if (hold.key == h->iIndexKey && hold.mode != wsm_vix_i::kNone) {
    if (hold.mode == wsm_vix_i::kWrite || hold.mode == wsm_vix_i::kRead) {
      pthread_rwlock_unlock(&h->pstIndex->iLock);
    }
    hold.key = 0;
    hold.mode = wsm_vix_i::kNone;
  }
  wsm_vix_i::mount_remove(h);
  const int ret = wsm_index_unmount(&h->pstIndex);
  h->iMagic = 0;
  free(h);
  *ppstHandle = nullptr;
  if (ret != 0) return WMNG_PUSH(3, WSM_MSG_UNMOUNT, ret);
  return 0;
}

int wsm_vix_status_i(WsmVixHandle* pstHandle) { return pstHandle->iMagic == WSM_MAGIC ? 0 : 2; }

const char* wsm_vix_bind_get_meta_i(WsmVixHandle* pstHandle) {
  return pstHandle->stMeta.iType == WSM_URI_TYPE_META ? wsm_uri_get(&pstHandle->stMeta) : nullptr;
}

const char* wsm_vix_bind_get_data_i(WsmVixHandle* pstHandle) {
  return pstHandle->stData.iType == WSM_URI_TYPE_DATA ? wsm_uri_get(&pstHandle->stData) : nullptr;
}

int64_t wsm_vix_bind_get_size_i(WsmVixHandle* pstHandle) {
  return static_cast<int64_t>(pstHandle->iSize);
}

int wsm_vix_bind_meta_i(WsmVixHandle* pstHandle, const char* pszUri) {
  if (pstHandle->iDataFound != 0) return WMNG_PUSH(7, WSM_MSG_DATA_EXISTS);
  WsmUri u;
  const int bad = parse_kind_i(pszUri, WSM_URI_TYPE_META, &u);
  if (bad == 3) return WMNG_PUSH(3, WSM_MSG_URI_PARSE, bad);
  if (bad == 4) return WMNG_PUSH(4, WSM_MSG_NOT_META, u.iType);
  WsmObjMeta lib;
  {
    Scoped lock;
    if (lock.take(pstHandle->pstIndex, pstHandle->iIndexKey, false) != 0) {
      return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "lock");
    }
    int rows[2];
    const int n = wsm_hash_get_meta(pstHandle->pstIndex, &u, rows, 2);
    if (n != 1) return WMNG_PUSH(5, WSM_MSG_META_NOT_ONE, n);
    lib = *wsm_head_meta(pstHandle->pstIndex, rows[0]);
  }
  // The library part comes from the object found (wildcards resolved); the record type and its
  // version from the URI.
  WsmVixMetaInfo m = lib.stMeta;
  memcpy(m.szMeta, u.stMeta.szMeta, sizeof(m.szMeta));
  m.iMetaVer = u.stMeta.iMetaVer;
  memcpy(m.szOther, u.stMeta.szOther, sizeof(m.szOther));
  uint64_t record_size = 0;
  if (text_set_i(m.szMeta)) {
    WsmShmHead* head = nullptr;
    if (wsm_head_at(&lib.stPtr, &head) != 0) return WMNG_PUSH(6, WSM_MSG_RECORD_ABSENT, m.szMeta);
    const void* block = reinterpret_cast<char*>(head) + WSM_HEAD_SIZE;
    char name[WSM_NAME_LEN + 1];
    wsm_i::text_copy(name, m.szMeta);
    const VIXMETA* meta = wsm_vix_i::library_ok(block, lib.stPtr.iSize)
                              ? vix_get_meta_by_name(static_cast<const VIXMETALIB*>(block), name)
                              : nullptr;
    if (meta != nullptr) record_size = vix_get_meta_size(meta);
    if (wsm_head_dt(head) != 0 || meta == nullptr) {
      return WMNG_PUSH(6, WSM_MSG_RECORD_ABSENT, name);
    }
  }
  m.iSize = record_size != 0 ? record_size : lib.stPtr.iSize;
  wsm_i::uri_of_meta(&pstHandle->stMeta, &m);
  if (record_size != 0) {
    pstHandle->iSize = record_size;
    pstHandle->stData.stData.iSize = record_size;
  }
  return 0;
}

int wsm_vix_bind_data_i(WsmVixHandle* pstHandle, const char* pszUri) {
  WsmUri u;
  const int bad = parse_kind_i(pszUri, WSM_URI_TYPE_DATA, &u);
  if (bad == 3) return WMNG_PUSH(3, WSM_MSG_URI_PARSE, bad);
  if (bad == 4) return WMNG_PUSH(4, WSM_MSG_NOT_DATA, u.iType);
  WsmObjData found;
  int n = 0;
  {
    Scoped lock;
    if (lock.take(pstHandle->pstIndex, pstHandle->iIndexKey, false) != 0) {
      return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "lock");
    }
    int rows[2];
    n = wsm_hash_get(pstHandle->pstIndex, &u, rows, 2);
    if (n < 0) return WMNG_PUSH(5, WSM_MSG_LOOKUP, n);
    if (n > 1) return WMNG_PUSH(6, WSM_MSG_MANY_MATCH, n);
    if (n == 1) found = *wsm_head_data(pstHandle->pstIndex, rows[0]);
  }
  if (n == 1) {
    // The slot's fields equal the parsed ones (same text); take its description as well.
    u.stData = found.stData;
    pstHandle->stData = u;
    if (found.stMeta.szLib[0] != '\0') {
      wsm_i::uri_of_meta(&pstHandle->stMeta, &found.stMeta);
    } else {
      uri_clear_i(&pstHandle->stMeta);
    }
    pstHandle->iSize = found.stPtr.iSize;
    pstHandle->iDataFound = 1;
    return 0;
  }
  pstHandle->stData = u;
  uri_clear_i(&pstHandle->stMeta);
  pstHandle->iSize = 0;
  pstHandle->iDataFound = 0;
  return 0;
}

int wsm_vix_bind_size_i(WsmVixHandle* pstHandle, uint64_t iSize) {
  if (iSize == 0) return WMNG_PUSH(3, WSM_MSG_SIZE_ZERO);
  if (pstHandle->stData.iType != WSM_URI_TYPE_DATA) return WMNG_PUSH(4, WSM_MSG_NO_DATA_URI);
  if (iSize == pstHandle->iSize) return 0;
  const unsigned long long have = pstHandle->iSize;
  if (pstHandle->stMeta.iType == WSM_URI_TYPE_META) return WMNG_PUSH(5, WSM_MSG_SIZE_META, have);
  if (pstHandle->iSize != 0) return WMNG_PUSH(6, WSM_MSG_SIZE_SET, have);
  pstHandle->iSize = iSize;
  pstHandle->stData.stData.iSize = iSize;
  return 0;
}

int wsm_vix_base_set_i(const WsmBase* pstBase) {
  const int open = wsm_vix_i::mount_count();
  if (open != 0) return WMNG_PUSH(3, WSM_MSG_HANDLE_OPEN, open);
  const int ret = wsm_base_set(pstBase);
  if (ret != 0) return WMNG_PUSH(4, WSM_MSG_BASE_SET, ret);
  return 0;
}

int wsm_vix_lock_i(WsmVixHandle* pstHandle, int iRead) {
  wsm_vix_i::Hold& hold = wsm_vix_i::thread_hold();
  if (hold.mode != wsm_vix_i::kNone) return WMNG_PUSH(3, WSM_MSG_LOCK_HELD);
  const wsm_vix_i::LockMode m = wsm_vix_i::acquire(pstHandle->pstIndex, iRead != 0);
  if (m == wsm_vix_i::kNone) return WMNG_PUSH(2, WSM_MSG_HANDLE_STATE, "lock");
  hold.key = pstHandle->iIndexKey;
  hold.mode = m;
  return 0;
}

int wsm_vix_unlock_i(WsmVixHandle* pstHandle) {
  wsm_vix_i::Hold& hold = wsm_vix_i::thread_hold();
  if (hold.mode == wsm_vix_i::kNone || hold.key != pstHandle->iIndexKey) {
    return WMNG_PUSH(3, WSM_MSG_LOCK_NONE);
  }
  const bool real = hold.mode == wsm_vix_i::kWrite || hold.mode == wsm_vix_i::kRead;
  hold.key = 0;
  hold.mode = wsm_vix_i::kNone;
  if (real) {
    const int rc = pthread_rwlock_unlock(&pstHandle->pstIndex->iLock);
    if (rc != 0) return WMNG_PUSH(4, WSM_MSG_UNLOCK, rc);
  }
  return 0;
}
