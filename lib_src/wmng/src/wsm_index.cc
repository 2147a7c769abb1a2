// The registry segment: finding or creating it, initialising or checking it, its tuning values
// and its process-shared lock.
#include <errno.h>
#include <pthread.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/types.h>
#include <time.h>

#include "wmng/wsm.h"
#include "wsm_internal.h"

namespace {

// How long a mount waits for another process to finish initialising a registry it just created.
const int kInitWaitSteps = 100;
const long kInitWaitStepNs = 10 * 1000 * 1000;

// The 4-byte XOR fold of iMagic, iVersion and iSelfSize, byte by byte over their memory.
int32_t crc_i(int32_t magic, int32_t version, uint64_t self_size) {
  unsigned char acc[4] = {0, 0, 0, 0};
  unsigned char bytes[4 + 4 + 8];
  memcpy(bytes, &magic, 4);
  memcpy(bytes + 4, &version, 4);
  memcpy(bytes + 8, &self_size, 8);
  for (size_t i = 0; i < sizeof(bytes); ++i) acc[i % 4] ^= bytes[i];
  int32_t crc;
  memcpy(&crc, acc, 4);
  return crc;
}

// Removes a registry this mount created and cannot use; a removal that fails is reported with
// the code of the failure that led to it.
void remove_segment_i(int shmid, int code) {
  if (shmctl(shmid, IPC_RMID, nullptr) != 0) {
    WMNG_PUSH(code, WSM_MSG_SHM_REMOVE, shmid, strerror(errno));
  }
}

// Makes a just-created registry usable: tables, version, lock, and last the magic (under the
// write lock, so that a process that sees the magic sees everything before it).
int init_i(WsmIndex* index, const WsmBase* base) {
  const int ret = wsm_index_base_set(index, base);
  if (ret != 0) return WMNG_PUSH(9, WSM_MSG_INDEX_INIT, ret);
  index->iVersion = WSM_INDEX_VERSION;
  index->iSelfSize = WSM_INDEX_SELF_SIZE;
  pthread_rwlockattr_t attr;
  int rc = pthread_rwlockattr_init(&attr);
  if (rc != 0) return WMNG_PUSH(6, WSM_MSG_LOCK_ATTR_INIT, rc);
  rc = pthread_rwlockattr_setpshared(&attr, PTHREAD_PROCESS_SHARED);
  if (rc != 0) {
    pthread_rwlockattr_destroy(&attr);
    return WMNG_PUSH(7, WSM_MSG_LOCK_SET_ATTR, rc);
  }
  rc = pthread_rwlock_init(&index->iLock, &attr);
  pthread_rwlockattr_destroy(&attr);
  if (rc != 0) return WMNG_PUSH(8, WSM_MSG_LOCK_INIT, rc);
  rc = pthread_rwlock_wrlock(&index->iLock);
  if (rc != 0) return WMNG_PUSH(14, WSM_MSG_LOCK, rc);
  index->iCrc = crc_i(WSM_MAGIC, index->iVersion, index->iSelfSize);
  __atomic_store_n(&index->iMagic, WSM_MAGIC, __ATOMIC_RELEASE);
  pthread_rwlock_unlock(&index->iLock);
  return 0;
}

// Checks an existing registry and reads its tuning values into *base (the key is kept).
int check_i(const WsmIndex* index, uint64_t segment_size, WsmBase* base) {
  int32_t magic = __atomic_load_n(&index->iMagic, __ATOMIC_ACQUIRE);
  // A registry another process has just created has no magic until it is initialised; one whose
  // creator died on the way never gets it and is refused after the wait.
  for (int i = 0; magic == 0 && i < kInitWaitSteps; ++i) {
    struct timespec pause = {0, kInitWaitStepNs};
    nanosleep(&pause, nullptr);
    magic = __atomic_load_n(&index->iMagic, __ATOMIC_ACQUIRE);
  }
  if (magic != WSM_MAGIC) return WMNG_PUSH(10, WSM_MSG_INDEX_MAGIC, static_cast<unsigned>(magic));
  if (index->iVersion != WSM_INDEX_VERSION) {
    return WMNG_PUSH(11, WSM_MSG_INDEX_VERSION, index->iVersion);
  }
  if (index->iSelfSize != WSM_INDEX_SELF_SIZE) {
    return WMNG_PUSH(12, WSM_MSG_INDEX_SELFSIZE, static_cast<unsigned long long>(index->iSelfSize));
  }
  WsmBase stored = *base;
  const int ret = wsm_index_base_get(index, &stored);
  if (ret != 0) return WMNG_PUSH(13, WSM_MSG_INDEX_TUNING, ret);
  if (stored.iIndexSize > segment_size) return WMNG_PUSH(13, WSM_MSG_INDEX_TUNING, -3);
  *base = stored;
  return 0;
}

}  // namespace

extern "C" {

int wsm_index_shmid(int* piCreated) {
  const WsmBase* base = wsm_get_base();
  if (piCreated != nullptr) *piCreated = 0;
  // Two rounds: another process may create the segment between our look-up and our creation.
  for (int round = 0; round < 2; ++round) {
    int id = shmget(base->iIndexKey, 0, 0);
    if (id >= 0) return id;
    if (errno != ENOENT) {
      return WMNG_PUSH(1, WSM_MSG_SHM_FIND, base->iIndexKey, strerror(errno));
    }
    id = shmget(base->iIndexKey, base->iIndexSize, IPC_CREAT | IPC_EXCL | 0660);
    if (id >= 0) {
      if (piCreated != nullptr) *piCreated = 1;
      return id;
    }
    if (errno != EEXIST) {
      return WMNG_PUSH(2, WSM_MSG_SHM_CREATE, base->iIndexKey,
                       static_cast<size_t>(base->iIndexSize), strerror(errno));
    }
  }
  return WMNG_PUSH(1, WSM_MSG_SHM_FIND, base->iIndexKey, strerror(errno));
}

int wsm_index_mount(WsmIndex** ppstIndex) {
  if (ppstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  WsmBase* base = wsm_get_base();
  int created = 0;
  const int id = wsm_index_shmid(&created);
  if (id < 0) return WMNG_PUSH(2, WSM_MSG_INDEX_SHMID, id);
  struct shmid_ds ds;
  if (shmctl(id, IPC_STAT, &ds) != 0) {
    const int err = errno;
    if (created) remove_segment_i(id, 3);
    return WMNG_PUSH(3, WSM_MSG_SHM_STAT, id, strerror(err));
  }
  if (ds.shm_segsz < base->iIndexSize) {
    if (created) remove_segment_i(id, 4);
    return WMNG_PUSH(4, WSM_MSG_INDEX_SHORT, static_cast<ssize_t>(ds.shm_segsz), id,
                     static_cast<ssize_t>(base->iIndexSize));
  }
  void* addr = shmat(id, nullptr, 0);
  if (addr == reinterpret_cast<void*>(-1)) {
    const int err = errno;
    if (created) remove_segment_i(id, 5);
    return WMNG_PUSH(5, WSM_MSG_SHM_ATTACH, id, strerror(err));
  }
  WsmIndex* index = static_cast<WsmIndex*>(addr);
  const int ret = created ? init_i(index, base) : check_i(index, ds.shm_segsz, base);
  if (ret != 0) {
    shmdt(addr);
    if (created) remove_segment_i(id, -ret);
    return ret;
  }
  *ppstIndex = index;
  return 0;
}

int wsm_index_unmount(WsmIndex** ppstIndex) {
  if (ppstIndex == nullptr || *ppstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (shmdt(*ppstIndex) != 0) return WMNG_PUSH(2, WSM_MSG_SHM_DETACH, strerror(errno));
  *ppstIndex = nullptr;
  return 0;
}

int wsm_index_remove(int iIndexKey) {
  const int id = iIndexKey == IPC_PRIVATE ? -1 : shmget(iIndexKey, 0, 0);
  if (id < 0) {
    return WMNG_PUSH(1, WSM_MSG_INDEX_ABSENT, iIndexKey,
                     iIndexKey == IPC_PRIVATE ? "IPC_PRIVATE" : strerror(errno));
  }
  if (shmctl(id, IPC_RMID, nullptr) != 0) {
    return WMNG_PUSH(2, WSM_MSG_SHM_REMOVE, id, strerror(errno));
  }
  return 0;
}

int wsm_index_probe(int iIndexKey, WsmBase* pstBase) {
  if (pstBase == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const int id = iIndexKey == IPC_PRIVATE ? -1 : shmget(iIndexKey, 0, 0);
  if (id < 0) {
    return WMNG_PUSH(2, WSM_MSG_INDEX_ABSENT, iIndexKey,
                     iIndexKey == IPC_PRIVATE ? "IPC_PRIVATE" : strerror(errno));
  }
  struct shmid_ds ds;
  if (shmctl(id, IPC_STAT, &ds) != 0) return WMNG_PUSH(3, WSM_MSG_SHM_STAT, id, strerror(errno));
  if (ds.shm_segsz < sizeof(WsmIndex)) {
    return WMNG_PUSH(4, WSM_MSG_SHM_SHORT, id, static_cast<size_t>(ds.shm_segsz));
  }
  void* addr = shmat(id, nullptr, SHM_RDONLY);
  if (addr == reinterpret_cast<void*>(-1)) {
    return WMNG_PUSH(3, WSM_MSG_SHM_ATTACH, id, strerror(errno));
  }
  const WsmIndex* index = static_cast<const WsmIndex*>(addr);
  WsmBase b;
  memset(&b, 0, sizeof(b));
  b.iIndexKey = iIndexKey;
  int ret = 0;
  if (index->iMagic != WSM_MAGIC) {
    ret = WMNG_PUSH(5, WSM_MSG_INDEX_MAGIC, static_cast<unsigned>(index->iMagic));
  } else if (index->iVersion != WSM_INDEX_VERSION) {
    ret = WMNG_PUSH(6, WSM_MSG_INDEX_VERSION, index->iVersion);
  } else if (index->iSelfSize != WSM_INDEX_SELF_SIZE) {
    ret = WMNG_PUSH(7, WSM_MSG_INDEX_SELFSIZE, static_cast<unsigned long long>(index->iSelfSize));
  } else if (wsm_index_base_get(index, &b) != 0) {
    ret = WMNG_PUSH(8, WSM_MSG_INDEX_MISMATCH);
  } else if (b.iIndexSize > ds.shm_segsz) {
    ret = WMNG_PUSH(4, WSM_MSG_SHM_SHORT, id, static_cast<size_t>(ds.shm_segsz));
  }
  shmdt(addr);
  if (ret == 0) *pstBase = b;
  return ret;
}

int wsm_index_base_set(WsmIndex* pstIndex, const WsmBase* pstBase) {
  if (pstIndex == nullptr || pstBase == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  int ret = toffset_array_init(pstIndex, WSM_INDEX_OFFSET_LIB, pstBase->iOffsetLib,
                               sizeof(WsmObjMeta), pstBase->iLibCap, pstBase->iLibHash);
  if (ret != 0) return WMNG_PUSH(2, WSM_MSG_INIT_LIB, ret);
  ret = toffset_array_init(pstIndex, WSM_INDEX_OFFSET_URI, pstBase->iOffsetUri, sizeof(WsmObjData),
                           pstBase->iUriCap, pstBase->iUriHash);
  if (ret != 0) return WMNG_PUSH(3, WSM_MSG_INIT_URI, ret);
  ret = toffset_hash_init(pstIndex, WSM_INDEX_OFFSET_HASH, pstBase->iOffsetHash, pstBase->iHashCap);
  if (ret != 0) return WMNG_PUSH(4, WSM_MSG_INIT_HASH, ret);
  return 0;
}

int wsm_index_base_get(const WsmIndex* pstIndex, WsmBase* pstBase) {
  if (pstIndex == nullptr || pstBase == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const OffsetArray& lib = pstIndex->stLib;
  const OffsetArray& uri = pstIndex->stUri;
  const OffsetHash& hash = pstIndex->stHash;
  WsmBase b = *pstBase;
  b.iLibHash = lib.iMaxHash;
  b.iLibCap = lib.iMaxCap;
  b.iUriHash = uri.iMaxHash;
  b.iUriCap = uri.iMaxCap;
  // The stored headers must be exactly what these settings lay out on this host, so that every
  // offset followed later stays inside the segment.
  const bool ok =
      wsm_i::layout(&b) && lib.iSize == sizeof(WsmObjMeta) && uri.iSize == sizeof(WsmObjData) &&
      lib.iBegin == b.iOffsetLib &&
      lib.iEnd == lib.iBegin + toffset_array_size(lib.iSize, lib.iMaxCap) &&
      uri.iBegin == b.iOffsetUri &&
      uri.iEnd == uri.iBegin + toffset_array_size(uri.iSize, uri.iMaxCap) && lib.iCurCap >= 0 &&
      lib.iCurCap <= lib.iMaxCap && uri.iCurCap >= 0 && uri.iCurCap <= uri.iMaxCap &&
      hash.iNodeCount == b.iHashCap && hash.iBegin == b.iOffsetHash &&
      static_cast<uint64_t>(hash.iBucketCount) == toffset_hash_buckets(hash.iNodeCount) &&
      hash.iEnd == hash.iBegin + toffset_hash_size(hash.iNodeCount) &&
      hash.stNode.iBegin == hash.iBegin && hash.stNode.iSize == 0 &&
      hash.stNode.iMaxCap == hash.iNodeCount &&
      hash.stNode.iEnd == hash.iBegin + TOFFSET_LIST_SIZE * static_cast<uint64_t>(b.iHashCap) &&
      hash.stBucket.iBegin == hash.stNode.iEnd && hash.stBucket.iSize == 0 &&
      hash.stBucket.iMaxCap == hash.iBucketCount && hash.stBucket.iEnd == hash.iEnd;
  if (!ok) return WMNG_PUSH(2, WSM_MSG_INDEX_MISMATCH);
  *pstBase = b;
  return 0;
}

int wsm_index_lock(WsmIndex* pstIndex, int iRead) {
  if (pstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const int rc = iRead != 0 ? pthread_rwlock_rdlock(&pstIndex->iLock)
                            : pthread_rwlock_wrlock(&pstIndex->iLock);
  if (rc != 0) return WMNG_PUSH(2, WSM_MSG_LOCK, rc);
  return 0;
}

int wsm_index_trylock(WsmIndex* pstIndex, int iRead) {
  if (pstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const int rc = iRead != 0 ? pthread_rwlock_tryrdlock(&pstIndex->iLock)
                            : pthread_rwlock_trywrlock(&pstIndex->iLock);
  if (rc == EBUSY) return 1;
  if (rc != 0) return WMNG_PUSH(2, WSM_MSG_LOCK, rc);
  return 0;
}

int wsm_index_unlock(WsmIndex* pstIndex) {
  if (pstIndex == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  const int rc = pthread_rwlock_unlock(&pstIndex->iLock);
  if (rc != 0) return WMNG_PUSH(2, WSM_MSG_UNLOCK, rc);
  return 0;
}

}  // extern "C"
