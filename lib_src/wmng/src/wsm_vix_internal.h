// Typed shared memory internals: the records behind the opaque handles, the internal functions
// the public ones forward to, the registry lock as a thread holds it, and the process's mounts and
// attachments.
#ifndef WMNG_SRC_WSM_VIX_INTERNAL_H_
#define WMNG_SRC_WSM_VIX_INTERNAL_H_

#include <stdint.h>

#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"
#include "wsm_internal.h"

struct tagWsmVixRow {
  int32_t iType;   // WSM_URI_TYPE_META or WSM_URI_TYPE_DATA
  int32_t iIndex;  // slot row
  uint64_t iObj;   // the slot's offset in the registry
  WsmUri stMeta;   // a meta row's URI, or the meta a data row is bound to (kind NONE if none)
  WsmUri stData;   // a data row's URI (kind NONE for a meta row)
  WsmObjPtr stMetaPtr;
  WsmObjPtr stDataPtr;
  int32_t iMetaFound;  // stMetaPtr names a meta object
  int32_t iReserved;
  const VIXMETALIB* pstMeta;  // attached on first use
  void* pstData;              // attached on first use
  uint64_t iSize;
  int64_t iTime;  // registration
};

struct tagWsmVixResult {
  int32_t iCount;
  int32_t iReserved;
  struct tagWsmVixRow* pstCurrent;
  struct tagWsmVixRow* pstHead;
  struct tagWsmVixHandle* pstOwner;
};

struct tagWsmVixHandle {
  int32_t iMagic;      // WSM_MAGIC while valid
  int32_t iIndexKey;   // the key the registry was mounted with
  WsmIndex* pstIndex;  // the mounted registry
  WsmUri stMeta;       // bound meta (kind NONE if none)
  WsmUri stData;       // bound data URI (kind NONE if none)
  uint64_t iSize;      // bound size, 0 if none
  int32_t iDataFound;  // stData names an object that exists
  int32_t iReserved;
  WsmObjPtr stPtr;  // what the last wsm_vix_ptr returned
  struct tagWsmVixResult* pstResult;
};

typedef struct tagWsmVixHandle WsmVixHandle;
typedef struct tagWsmVixResult WsmVixResult;
typedef struct tagWsmVixRow WsmVixRow;

// Internal functions: the arguments are checked by the public ones.
WMNG_NODISCARD int wsm_vix_open_i(WsmVixHandle** ppstHandle);
WMNG_NODISCARD int wsm_vix_close_i(WsmVixHandle** ppstHandle);
int wsm_vix_status_i(WsmVixHandle* pstHandle);
const char* wsm_vix_bind_get_meta_i(WsmVixHandle* pstHandle);
const char* wsm_vix_bind_get_data_i(WsmVixHandle* pstHandle);
int64_t wsm_vix_bind_get_size_i(WsmVixHandle* pstHandle);
WMNG_NODISCARD int wsm_vix_bind_meta_i(WsmVixHandle* pstHandle, const char* pszUri);
WMNG_NODISCARD int wsm_vix_bind_data_i(WsmVixHandle* pstHandle, const char* pszUri);
WMNG_NODISCARD int wsm_vix_bind_size_i(WsmVixHandle* pstHandle, uint64_t iSize);
WMNG_NODISCARD int wsm_vix_load_meta_i(WsmVixHandle* pstHandle, const VIXMETALIB* pstLib,
                                       int iReplace);
WMNG_NODISCARD int wsm_vix_load_meta_ex_i(WsmVixHandle* pstHandle, const VIXMETALIB* pstLib,
                                          int iBid, int iReplace);
WMNG_NODISCARD int wsm_vix_load_meta_file_i(WsmVixHandle* pstHandle, const char* pszPath,
                                            int iFlags);
WMNG_NODISCARD int wsm_vix_load_data_i(WsmVixHandle* pstHandle, const void* pvSrc, uint64_t iSize);
WsmObjPtr* wsm_vix_ptr_i(WsmVixHandle* pstHandle, int iFlags);
void* wsm_vix_at_i(WsmObjPtr* pstPtr, int iFlags);
WMNG_NODISCARD int wsm_vix_dt_i(void* pvPayload);
WMNG_NODISCARD int wsm_vix_dt_ex_i(void* pvPayload, WsmVixHandle* pstHandle);
WMNG_NODISCARD int wsm_vix_query_i(WsmVixHandle* pstHandle, const char* pszUri);
WsmVixResult* wsm_vix_store_result_i(WsmVixHandle* pstHandle);
WMNG_NODISCARD int wsm_vix_num_rows_i(const WsmVixResult* pstResult);
WMNG_NODISCARD int wsm_vix_data_seek_i(WsmVixResult* pstResult, int iRow);
WsmVixRow* wsm_vix_fetch_row_i(WsmVixResult* pstResult);
WMNG_NODISCARD int wsm_vix_free_result_i(WsmVixResult* pstResult);
WsmVixRow* wsm_vix_row_first_i(WsmVixHandle* pstHandle);
WsmVixRow* wsm_vix_row_only_i(WsmVixHandle* pstHandle);
int64_t wsm_vix_row_size_i(const WsmVixRow* pstRow);
void* wsm_vix_row_data_i(WsmVixRow* pstRow);
const VIXMETALIB* wsm_vix_row_meta_i(WsmVixRow* pstRow);
WsmObjPtr* wsm_vix_row_data_ptr_i(WsmVixRow* pstRow);
WsmObjPtr* wsm_vix_row_meta_ptr_i(WsmVixRow* pstRow);
const char* wsm_vix_row_uri_i(WsmVixRow* pstRow);
const char* wsm_vix_row_meta_uri_i(WsmVixRow* pstRow);
WMNG_NODISCARD int wsm_vix_row_is_meta_i(const WsmVixRow* pstRow);
WMNG_NODISCARD int wsm_vix_row_is_data_i(const WsmVixRow* pstRow);
WMNG_NODISCARD int wsm_vix_row_type_i(const WsmVixRow* pstRow);
int64_t wsm_vix_row_time_i(const WsmVixRow* pstRow);
WMNG_NODISCARD int wsm_vix_row_unlink_i(WsmVixRow* pstRow, WsmVixHandle* pstHandle);
WMNG_NODISCARD int wsm_vix_base_set_i(const WsmBase* pstBase);
WMNG_NODISCARD int wsm_vix_lock_i(WsmVixHandle* pstHandle, int iRead);
WMNG_NODISCARD int wsm_vix_unlock_i(WsmVixHandle* pstHandle);

namespace wsm_vix_i {

// The registry lock of one key as the calling thread holds it: nothing, really held, or given
// up on after the tries (then it counts as held and nothing is released).
enum LockMode { kNone = 0, kWrite, kRead, kWriteTimedOut, kReadTimedOut };

// Takes the lock: up to kLockTries tries without blocking, kLockPauseMs after each failure.
// Returns the mode reached (kWriteTimedOut / kReadTimedOut after the last failure), or kNone
// when the lock call reports an error other than "busy".
const int kLockTries = 50;
const int kLockPauseMs = 100;
LockMode acquire(WsmIndex* index, bool read);

// The calling thread's hold: the key and the mode (kNone when it holds nothing).
struct Hold {
  int key;
  LockMode mode;
};
Hold& thread_hold();

// Holds the registry lock for a scope: takes it unless the thread holds it for the key already
// (a held read lock is not enough for a change). take() returns 0, or 2 when the lock cannot be
// had in this state (the caller pushes).
class Scoped {
 public:
  Scoped() = default;
  Scoped(const Scoped&) = delete;
  Scoped& operator=(const Scoped&) = delete;
  ~Scoped() { release(); }
  WMNG_NODISCARD int take(WsmIndex* index, int key, bool write);
  void release();

 private:
  WsmIndex* index_ = nullptr;
  bool taken_ = false;
};

// Whether a lock is in force on the registry of key: held by the thread, or given up on.
bool held(int key);

// The process's mounted registries (one per open handle).
bool mount_add(WsmIndex* index, int key, const void* owner);
void mount_remove(const void* owner);
WsmIndex* mount_find(int key);
int mount_count();

// Attachments made by wsm_vix_at in this process: the header address, its segment size and
// whether the mapping is read-only. attach_reserve makes room for one more before anything is
// changed, so that recording it cannot fail.
bool attach_reserve();
void attach_add(void* head, uint64_t size, bool rdonly);
bool attach_take(void* head, uint64_t* size, bool* rdonly);

// Whether pstA and pstB name the same object (every field but iRef).
bool same_object(const WsmObjPtr& a, const WsmObjPtr& b);

// The slot pointer of the object described by a segment header, found through the header's URI:
// NULL when no slot holds that object. The caller holds the lock.
WsmObjPtr* slot_of_head(WsmIndex* index, const WsmShmHead* head);

// The registered meta objects whose library columns match m (bid, name, version, build): the
// count, and the first row in *row. Negative after a push when the look-up fails.
int find_library(WsmIndex* index, const WsmVixMetaInfo& m, int* row);

// Whether a block is a 64-bit library of this build whose header fits in size bytes.
bool library_ok(const void* block, uint64_t size);

// Frees a result: detaches its rows' payloads and makes its handle forget it.
void result_free(WsmVixResult* result);

// Removes an object while the caller holds the write lock: its segment (already gone is fine),
// its keys and its slot. expect is the object the slot must still hold. 0 or the code of
// wsm_vix_row_unlink (3, 4, 5), pushed.
WMNG_NODISCARD int unlink_locked(WsmIndex* index, int type, int row, const WsmObjPtr& expect);

}  // namespace wsm_vix_i

#endif  // WMNG_SRC_WSM_VIX_INTERNAL_H_
