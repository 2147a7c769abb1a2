// Typed shared memory: the registry lock as a thread holds it, the process's mounted registries
// and attachments, and the slot look-ups shared by the other wsm_vix sources.
#include <errno.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "wsm_vix_internal.h"

namespace {

// A growable array of plain records on malloc: failure is a false return, never an exception.
template <typename T>
struct PodVec {
  T* items = nullptr;
  int count = 0;
  int cap = 0;
  bool reserve(int n) {
    if (n <= cap) return true;
    const int want = cap < 8 ? 8 : cap * 2;
    const int next = want < n ? n : want;
    void* p = realloc(items, sizeof(T) * static_cast<size_t>(next));
    if (p == nullptr) return false;
    items = static_cast<T*>(p);
    cap = next;
    return true;
  }
  void remove_at(int i) {
    items[i] = items[count - 1];
    --count;
  }
};

struct Mount {
  WsmIndex* index;
  int key;
  const void* owner;
};

struct Attach {
  void* head;
  uint64_t size;
  bool rdonly;
};

// Guards the two tables; handles may be used by different threads.
pthread_mutex_t g_mu = PTHREAD_MUTEX_INITIALIZER;
PodVec<Mount> g_mounts;
PodVec<Attach> g_attach;

class MuLock {
 public:
  MuLock() { pthread_mutex_lock(&g_mu); }
  ~MuLock() { pthread_mutex_unlock(&g_mu); }
  MuLock(const MuLock&) = delete;
  MuLock& operator=(const MuLock&) = delete;
};

thread_local wsm_vix_i::Hold t_hold = {0, wsm_vix_i::kNone};

void pause_ms_i(int ms) {
  struct timespec left = {ms / 1000, static_cast<long>(ms % 1000) * 1000000L};
  while (nanosleep(&left, &left) != 0 && errno == EINTR) {
  }
}

}  // namespace

namespace wsm_vix_i {

LockMode acquire(WsmIndex* index, bool read) {
  for (int i = 0; i < kLockTries; ++i) {
    const int rc =
        read ? pthread_rwlock_tryrdlock(&index->iLock) : pthread_rwlock_trywrlock(&index->iLock);
    if (rc == 0) return read ? kRead : kWrite;
    if (rc != EBUSY && rc != EAGAIN) return kNone;
    pause_ms_i(kLockPauseMs);
  }
  // Deliberate: a caller never waits longer than this for the registry, even when the holder
  // died with the lock; it goes on as if it held it.
  return read ? kReadTimedOut : kWriteTimedOut;
}

Hold& thread_hold() { return t_hold; }

bool held(int key) { return t_hold.mode != kNone && t_hold.key == key; }

int Scoped::take(WsmIndex* index, int key, bool write) {
  Hold& h = t_hold;
  if (h.mode != kNone) {
    if (h.key != key) return 2;
    if (write && (h.mode == kRead || h.mode == kReadTimedOut)) return 2;
    return 0;
  }
  const LockMode m = acquire(index, !write);
  if (m == kNone) return 2;
  h.key = key;
  h.mode = m;
  index_ = index;
  taken_ = true;
  return 0;
}

void Scoped::release() {
  if (!taken_) return;
  if (t_hold.mode == kWrite || t_hold.mode == kRead) pthread_rwlock_unlock(&index_->iLock);
  t_hold.key = 0;
  t_hold.mode = kNone;
  taken_ = false;
}

bool mount_add(WsmIndex* index, int key, const void* owner) {
  MuLock lock;
  if (!g_mounts.reserve(g_mounts.count + 1)) return false;
  g_mounts.items[g_mounts.count++] = Mount{index, key, owner};
  return true;
}

void mount_remove(const void* owner) {
  MuLock lock;
  for (int i = 0; i < g_mounts.count; ++i) {
    if (g_mounts.items[i].owner == owner) {
      g_mounts.remove_at(i);
      return;
    }
  }
}

WsmIndex* mount_find(int key) {
  MuLock lock;
  for (int i = g_mounts.count - 1; i >= 0; --i) {
    if (g_mounts.items[i].key == key) return g_mounts.items[i].index;
  }
  return nullptr;
}

int mount_count() {
  MuLock lock;
  return g_mounts.count;
}

bool attach_reserve() {
  MuLock lock;
  return g_attach.reserve(g_attach.count + 1);
}

void attach_add(void* head, uint64_t size, bool rdonly) {
  MuLock lock;
  if (g_attach.reserve(g_attach.count + 1)) g_attach.items[g_attach.count++] = {head, size, rdonly};
}

bool attach_take(void* head, uint64_t* size, bool* rdonly) {
  MuLock lock;
  for (int i = g_attach.count - 1; i >= 0; --i) {
    if (g_attach.items[i].head == head) {
      *size = g_attach.items[i].size;
      *rdonly = g_attach.items[i].rdonly;
      g_attach.remove_at(i);
      return true;
    }
  }
  return false;
}

bool same_object(const WsmObjPtr& a, const WsmObjPtr& b) {
  return a.iIndexKey == b.iIndexKey && a.iShmId == b.iShmId && a.iOffset == b.iOffset &&
         a.iSize == b.iSize;
}

WsmObjPtr* slot_of_head(WsmIndex* index, const WsmShmHead* head) {
  WsmUri u;
  const int type = head->iUriType;
  if (type == WSM_URI_TYPE_DATA) {
    wsm_i::uri_of_data(&u, &head->stData);
  } else if (type == WSM_URI_TYPE_META) {
    wsm_i::uri_of_meta(&u, &head->stMeta);
  } else {
    return nullptr;
  }
  const int kMax = 8;
  int rows[kMax];
  const int n = wsm_hash_get(index, &u, rows, kMax);
  for (int i = 0; i < n && i < kMax; ++i) {
    WsmObjPtr* p = type == WSM_URI_TYPE_DATA ? &wsm_head_data(index, rows[i])->stPtr
                                             : &wsm_head_meta(index, rows[i])->stPtr;
    if (same_object(*p, head->stPtr)) return p;
  }
  return nullptr;
}

int find_library(WsmIndex* index, const WsmVixMetaInfo& m, int* row) {
  WsmVixMetaInfo lib;
  memset(&lib, 0, sizeof(lib));
  lib.iBid = m.iBid;
  memcpy(lib.szLib, m.szLib, sizeof(lib.szLib));
  lib.iLibVer = m.iLibVer;
  lib.iLibBuildVer = m.iLibBuildVer;
  lib.iMetaVer = -1;
  WsmUri q;
  wsm_i::uri_of_meta(&q, &lib);
  int rows[2] = {-1, -1};
  const int n = wsm_hash_get_meta(index, &q, rows, 2);
  if (n > 0) *row = rows[0];
  return n;
}

bool library_ok(const void* block, uint64_t size) {
  if (block == nullptr || size < sizeof(VIXMETALIB)) return false;
  const VIXMETALIB* lib = static_cast<const VIXMETALIB*>(block);
  uint32_t word;
  memcpy(&word, block, sizeof(word));
  return word == VIX_MAGIC_WORD && lib->dwPlatformArch == VIX_PLATFORM_64 &&
         lib->iSize >= sizeof(VIXMETALIB) && lib->iSize <= size;
}

}  // namespace wsm_vix_i
