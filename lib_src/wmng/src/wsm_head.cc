// Object segments (header and payload) and the slots of the registry's two tables.
#include <errno.h>
#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <time.h>

#include "wmng/wsm.h"
#include "wsm_internal.h"

namespace {

// Largest payload: the segment size must fit size_t and ptrdiff_t.
const uint64_t kMaxPayload = static_cast<uint64_t>(PTRDIFF_MAX) - WSM_HEAD_SIZE;

uint64_t table_of_i(int type) {
  return type == WSM_URI_TYPE_META ? WSM_INDEX_OFFSET_LIB : WSM_INDEX_OFFSET_URI;
}

bool kind_ok_i(int type) { return type == WSM_URI_TYPE_META || type == WSM_URI_TYPE_DATA; }

}  // namespace

extern "C" {

int wsm_head_init(WsmObjPtr* pstPtr, int iUriType, const WsmVixMetaInfo* pstMeta,
                  const WsmVixDataInfo* pstData, const void* pvSrc, uint64_t iSize) {
  if (pstPtr == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (iSize == 0) return WMNG_PUSH(3, WSM_MSG_SIZE_ZERO);
  if (iSize > kMaxPayload) {
    return WMNG_PUSH(2, WSM_MSG_SIZE_OVERFLOW, static_cast<unsigned long long>(iSize));
  }
  if (!(iUriType == WSM_URI_TYPE_META && pstMeta != nullptr) &&
      !(iUriType == WSM_URI_TYPE_DATA && pstData != nullptr)) {
    return WMNG_PUSH(4, WSM_MSG_KIND_DESC, iUriType);
  }
  const int id = shmget(IPC_PRIVATE, WSM_HEAD_SIZE + iSize, IPC_CREAT | IPC_EXCL | 0660);
  if (id < 0) {
    return WMNG_PUSH(5, WSM_MSG_OBJ_CREATE, static_cast<unsigned long long>(iSize),
                     strerror(errno));
  }
  void* addr = shmat(id, nullptr, 0);
  if (addr == reinterpret_cast<void*>(-1)) {
    const int err = errno;
    if (shmctl(id, IPC_RMID, nullptr) != 0) {
      WMNG_PUSH(6, WSM_MSG_SHM_REMOVE, id, strerror(errno));
    }
    return WMNG_PUSH(6, WSM_MSG_SHM_ATTACH, id, strerror(err));
  }
  WsmShmHead* head = static_cast<WsmShmHead*>(addr);
  memset(head, 0, sizeof(*head));
  head->stPtr.iRef = 0;
  head->stPtr.iIndexKey = wsm_get_base()->iIndexKey;
  head->stPtr.iShmId = id;
  head->stPtr.iOffset = WSM_HEAD_SIZE;
  head->stPtr.iSize = iSize;
  head->stTime.iSec = static_cast<int64_t>(time(nullptr));
  if (pstMeta != nullptr) head->stMeta = *pstMeta;
  if (iUriType == WSM_URI_TYPE_DATA) head->stData = *pstData;
  head->iUriType = iUriType;
  head->iMagic = WSM_MAGIC;
  // Without a source the payload stays as the kernel hands it out: zero-filled.
  if (pvSrc != nullptr) memcpy(static_cast<char*>(addr) + WSM_HEAD_SIZE, pvSrc, iSize);
  const WsmObjPtr made = head->stPtr;
  shmdt(addr);
  *pstPtr = made;
  return 0;
}

int wsm_head_at(const WsmObjPtr* pstPtr, WsmShmHead** ppstHead) {
  if (pstPtr == nullptr || ppstHead == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const int id = pstPtr->iShmId;
  struct shmid_ds ds;
  if (shmctl(id, IPC_STAT, &ds) != 0) return WMNG_PUSH(2, WSM_MSG_SHM_STAT, id, strerror(errno));
  if (pstPtr->iSize > kMaxPayload || ds.shm_segsz < WSM_HEAD_SIZE + pstPtr->iSize) {
    return WMNG_PUSH(3, WSM_MSG_SHM_SHORT, id, static_cast<size_t>(ds.shm_segsz));
  }
  void* addr = shmat(id, nullptr, 0);
  if (addr == reinterpret_cast<void*>(-1)) {
    return WMNG_PUSH(4, WSM_MSG_SHM_ATTACH, id, strerror(errno));
  }
  WsmShmHead* head = static_cast<WsmShmHead*>(addr);
  if (head->iMagic != WSM_MAGIC) {
    shmdt(addr);
    return WMNG_PUSH(5, WSM_MSG_HEAD_MAGIC, id);
  }
  const WsmObjPtr& own = head->stPtr;
  if (own.iShmId != id || own.iIndexKey != pstPtr->iIndexKey || own.iOffset != WSM_HEAD_SIZE ||
      own.iSize != pstPtr->iSize) {
    shmdt(addr);
    return WMNG_PUSH(6, WSM_MSG_HEAD_PTR, id);
  }
  *ppstHead = head;
  return 0;
}

int wsm_head_dt(WsmShmHead* pstHead) {
  if (pstHead == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (shmdt(pstHead) != 0) return WMNG_PUSH(2, WSM_MSG_SHM_DETACH, strerror(errno));
  return 0;
}

int wsm_head_dt_ex(void* pvPayload) {
  if (pvPayload == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  // Address arithmetic only: nothing before the payload is read, shmdt itself refuses an
  // address that does not start an attached segment.
  const uintptr_t at = reinterpret_cast<uintptr_t>(pvPayload);
  if (at < WSM_HEAD_SIZE) return WMNG_PUSH(2, WSM_MSG_SHM_DETACH, strerror(EINVAL));
  if (shmdt(reinterpret_cast<void*>(at - WSM_HEAD_SIZE)) != 0) {
    return WMNG_PUSH(2, WSM_MSG_SHM_DETACH, strerror(errno));
  }
  return 0;
}

int wsm_head_destroy(const WsmObjPtr* pstPtr) {
  if (pstPtr == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  WsmShmHead* head = nullptr;
  const int ret = wsm_head_at(pstPtr, &head);
  if (ret != 0) return WMNG_PUSH(2, WSM_MSG_OBJ_ABSENT, ret);
  const int rc = shmctl(pstPtr->iShmId, IPC_RMID, nullptr);
  const int err = errno;
  shmdt(head);
  if (rc != 0) return WMNG_PUSH(3, WSM_MSG_SHM_REMOVE, pstPtr->iShmId, strerror(err));
  return 0;
}

WsmObjMeta* wsm_head_meta(WsmIndex* pstIndex, int iRow) {
  if (pstIndex == nullptr) {
    WMNG_PUSH(1, WSM_MSG_NULL_ARG);
    return nullptr;
  }
  void* slot = toffset_array_ptr(pstIndex, WSM_INDEX_OFFSET_LIB, iRow);
  if (slot == nullptr) WMNG_PUSH(2, WSM_MSG_SLOT_RANGE, iRow);
  return static_cast<WsmObjMeta*>(slot);
}

WsmObjData* wsm_head_data(WsmIndex* pstIndex, int iRow) {
  if (pstIndex == nullptr) {
    WMNG_PUSH(1, WSM_MSG_NULL_ARG);
    return nullptr;
  }
  void* slot = toffset_array_ptr(pstIndex, WSM_INDEX_OFFSET_URI, iRow);
  if (slot == nullptr) WMNG_PUSH(2, WSM_MSG_SLOT_RANGE, iRow);
  return static_cast<WsmObjData*>(slot);
}

int wsm_head_obj_alloc(WsmIndex* pstIndex, int iType, int* piRow) {
  if (pstIndex == nullptr || piRow == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (!kind_ok_i(iType)) return WMNG_PUSH(2, WSM_MSG_BAD_KIND, iType);
  const uint64_t table = table_of_i(iType);
  const uint64_t elem = toffset_array_alloc(pstIndex, table);
  if (elem == 0) return WMNG_PUSH(3, WSM_MSG_NO_SLOT);
  // Both kinds of slot begin with the object pointer and the registration time.
  WsmObjMeta* slot = reinterpret_cast<WsmObjMeta*>(wmng_i::at(pstIndex, elem));
  slot->stTime.iSec = static_cast<int64_t>(time(nullptr));
  *piRow = toffset_array_index(pstIndex, table, elem);
  return 0;
}

int wsm_head_obj_free(WsmIndex* pstIndex, int iType, int iRow) {
  if (pstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (!kind_ok_i(iType)) return WMNG_PUSH(2, WSM_MSG_BAD_KIND, iType);
  const uint64_t table = table_of_i(iType);
  const uint64_t elem = toffset_array_offset(pstIndex, table, iRow);
  if (elem == 0) return WMNG_PUSH(3, WSM_MSG_SLOT_RANGE, iRow);
  // A slot that goes back to the free list keeps no keys in the hash.
  int ret = wsm_hash_del(pstIndex, iType, iRow);
  if (ret == 0) ret = toffset_array_free(pstIndex, table, elem);
  if (ret != 0) return WMNG_PUSH(4, WSM_MSG_SLOT_FREE, ret);
  return 0;
}

int wsm_head_obj_next(WsmIndex* pstIndex, int iType, int iRow) {
  if (pstIndex == nullptr || !kind_ok_i(iType)) return -1;
  const uint64_t table = table_of_i(iType);
  const uint64_t end = toffset_array_end(pstIndex, table);
  uint64_t elem = 0;
  if (iRow == -1) {
    elem = toffset_array_begin(pstIndex, table);
  } else {
    const uint64_t cur = toffset_array_offset(pstIndex, table, iRow);
    if (cur == 0) return -1;
    elem = toffset_array_next(pstIndex, table, cur);
  }
  return elem == end ? -1 : toffset_array_index(pstIndex, table, elem);
}

}  // extern "C"
