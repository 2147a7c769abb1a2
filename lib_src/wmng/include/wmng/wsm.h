/* wsm.h - the shared-memory registry: a System V segment (the index) that unrelated processes
 * find through one key, holding a table of meta slots, a table of data slots and one hash over
 * the slots' URI keys; one private segment per registered object, beginning with WsmShmHead; and
 * the object names, "wsm-meta://" and "wsm-data://" URIs.
 *
 * Conventions:
 * - Functions return 0 (or a count, an id) on success and a small negative code on failure,
 *   after pushing one frame onto the default error stack (terror.h). Pointer results are NULL
 *   on failure, also after a push. Null arguments are checked (code 1 unless stated).
 * - The tuning record (wsm_get_base) is per process and unguarded. Its key names the registry:
 *   set it with wsm_base_set before the first mount to use a registry of one's own. Mounting an
 *   existing registry overwrites the capacities of the record with the registry's.
 * - Everything in shared memory is addressed by offsets from its segment's start; the layouts
 *   below are the format shared with other processes and are checked by static assertions.
 * - Locking: the slot tables and the hash are shared by processes. Callers hold the registry's
 *   write lock (wsm_index_lock with read 0) around changes (wsm_head_obj_*, wsm_hash_set*,
 *   wsm_hash_del*) and at least its read lock around look-ups; the functions here take no lock
 *   except wsm_index_mount while it initialises a new registry.
 * - Ownership: a mounted WsmIndex is the attached segment; release it with wsm_index_unmount.
 *   Object segments live until wsm_head_destroy; the registry segment is never removed except
 *   by wsm_index_remove, which exists for tests and tools.
 * - Text fields are fixed arrays; the functions read at most their size, terminated or not.
 * - From C, compile with the POSIX.1-2001 interfaces visible (the default gnu modes, or
 *   _POSIX_C_SOURCE >= 200112L): the registry header holds a pthread_rwlock_t.
 */
#ifndef WMNG_WSM_H_
#define WMNG_WSM_H_

#include <pthread.h>
#include <stddef.h>
#include <stdint.h>

#include "wmng/terror.h"
#include "wmng/toffset.h"
#include "wmng/wmng_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WSM_MAGIC 0x18790314             /* iMagic of the registry and of object headers */
#define WSM_INDEX_KEY_DEFAULT 0x18790314 /* System V key of the registry */
#define WSM_INDEX_VERSION 1
#define WSM_LIB_HASH_DEFAULT 8    /* hash keys per meta slot */
#define WSM_LIB_CAP_DEFAULT 3000  /* meta slots */
#define WSM_URI_HASH_DEFAULT 8    /* hash keys per data slot */
#define WSM_URI_CAP_DEFAULT 10000 /* data slots */
#define WSM_LIB_COLUMNS 5         /* key columns of a meta URI (0 to 4) */
#define WSM_URI_COLUMNS 6         /* key columns of a data URI (0 to 5) */
#define WSM_HASH_COLUMNS 8        /* columns a slot may register at most */

/* dwWsmInitStatus */
#define WSM_BASESET_NOT_INITED 0
#define WSM_BASESET_INITING 1
#define WSM_BASESET_INITED 2

/* Kinds of URI and object (WsmUri.iType, WsmShmHead.iUriType, WsmBaseVar.iType). */
#define WSM_URI_TYPE_NONE 0
#define WSM_URI_TYPE_META 1
#define WSM_URI_TYPE_DATA 2

/* Column states returned by wsm_hash_type. */
#define WSM_HASH_SET 'V'
#define WSM_HASH_ANY '*'
#define WSM_HASH_INVALID 'X'

#define WSM_NAME_LEN 32   /* text fields of the descriptions */
#define WSM_OTHER_LEN 360 /* szOther, szValuePath */
#define WSM_URI_LEN 1024  /* szUri; the text is cut at WSM_URI_LEN - 1 characters */

/* Tuning record, one per process. The first five fields are the settings; the rest follow from
 * them and the page size. */
typedef struct tagWsmBase {
  int32_t iIndexKey;        /* System V key of the registry segment */
  int32_t iLibHash;         /* hash keys per meta slot (at least WSM_LIB_COLUMNS) */
  int32_t iLibCap;          /* meta slots */
  int32_t iUriHash;         /* hash keys per data slot (at least WSM_URI_COLUMNS) */
  int32_t iUriCap;          /* data slots */
  int32_t iHashCap;         /* hash nodes: iLibCap x iLibHash + iUriCap x iUriHash */
  uint64_t iOffsetLib;      /* meta slot storage */
  uint64_t iOffsetUri;      /* data slot storage */
  uint64_t iOffsetHash;     /* hash storage */
  uint64_t iIndexSize;      /* total registry size */
  uint32_t dwWsmInitStatus; /* WSM_BASESET_* */
} WsmBase, WSMBASE;

/* A hash-node number and the slot column it stands for. Numbers 0 to iLibCap x iLibHash - 1
 * are meta slots (row = number / iLibHash, column = number % iLibHash); the following
 * iUriCap x iUriHash numbers are data slots, counted the same way with iUriHash. */
typedef struct tagWsmBaseVar {
  int32_t iType;  /* WSM_URI_TYPE_META or WSM_URI_TYPE_DATA */
  int32_t iRow;   /* slot */
  int32_t iCol;   /* key column */
  int32_t iIndex; /* node number; -1 asks for it to be computed from the other three */
} WsmBaseVar, WSMBASEVAR;

/* Where an object lives. */
typedef struct tagWsmObjPtr {
  int32_t iRef;      /* attachments counted by the typed layer */
  int32_t iIndexKey; /* registry the object belongs to */
  int32_t iShmId;    /* its segment */
  int32_t iReserved; /* zero */
  uint64_t iOffset;  /* payload start in the segment: WSM_HEAD_SIZE */
  uint64_t iSize;    /* payload bytes */
} WsmObjPtr, WSMOBJPTR;

typedef struct tagWsmTime {
  int64_t iSec; /* seconds since the epoch */
} WsmTime, WSMTIME;

/* Description of a meta object (a metadata library) and of its record type. */
typedef struct tagWsmVixMetaInfo {
  int32_t iBid; /* business id */
  int32_t iReserved;
  uint64_t iSize;
  char szLib[WSM_NAME_LEN]; /* library name */
  int32_t iLibVer;
  int32_t iLibBuildVer;
  char szMeta[WSM_NAME_LEN]; /* record type name */
  int32_t iMetaVer;
  char szOther[WSM_OTHER_LEN];
  int32_t iReserved2;
} WsmVixMetaInfo, WSMVIXMETAINFO;

/* Description of a data object. */
typedef struct tagWsmVixDataInfo {
  int32_t iBid;
  int32_t iReserved;
  uint64_t iSize;
  char szProgName[WSM_NAME_LEN];
  char szProgId[WSM_NAME_LEN];
  char szFuncName[WSM_NAME_LEN];
  char szValueName[WSM_NAME_LEN];
  char szValuePath[WSM_OTHER_LEN];
} WsmVixDataInfo, WSMVIXDATAINFO;

/* Meta slot (element of the index's stLib). */
typedef struct tagWsmObjMeta {
  WsmObjPtr stPtr;
  WsmTime stTime; /* registration */
  WsmVixMetaInfo stMeta;
} WsmObjMeta, WSMOBJMETA;

/* Data slot (element of the index's stUri): the object's record type and its own description. */
typedef struct tagWsmObjData {
  WsmObjPtr stPtr;
  WsmTime stTime;
  WsmVixMetaInfo stMeta;
  WsmVixDataInfo stData;
} WsmObjData, WSMOBJDATA;

/* Header at the start of every object segment; the payload follows it. */
typedef struct tagWsmShmHead {
  WsmObjPtr stPtr; /* copy of the object pointer as created (iRef 0) */
  WsmTime stTime;  /* creation */
  WsmVixMetaInfo stMeta;
  WsmVixDataInfo stData; /* zero for a meta object */
  int32_t iUriType;      /* WSM_URI_TYPE_META or WSM_URI_TYPE_DATA */
  int32_t iMagic;        /* WSM_MAGIC */
} WsmShmHead, WSMSHMHEAD;

/* The registry segment's header, at offset 0 of the segment. The segment holds: this header
 * rounded up to the page size, the meta slot storage, the data slot storage and the hash storage,
 * each rounded up to the page size. The keys per slot are kept in the slot arrays' iMaxHash. */
typedef struct tagWsmIndex {
  int32_t iMagic; /* WSM_MAGIC once initialised */
  int32_t iReserved;
  pthread_rwlock_t iLock; /* process-shared */
  int32_t iCrc;           /* XOR fold of iMagic, iVersion and iSelfSize */
  int32_t iVersion;       /* WSM_INDEX_VERSION */
  uint64_t iSelfSize;     /* WSM_INDEX_SELF_SIZE */
  OffsetArray stLib;      /* meta slots: WsmObjMeta */
  OffsetArray stUri;      /* data slots: WsmObjData */
  OffsetHash stHash;      /* URI keys of every slot */
} WsmIndex, WSMINDEX;

/* A URI: the text and the fields it is made of. iSync 1 means the fields were changed and the
 * text must be rebuilt (wsm_uri_sync) before it is read. */
typedef struct tagWsmUri {
  int32_t iType; /* WSM_URI_TYPE_* */
  int32_t iSync;
  char szUri[WSM_URI_LEN];
  union {
    WsmVixMetaInfo stMeta; /* iType META */
    WsmVixDataInfo stData; /* iType DATA */
  };
} WsmUri, WSMURI;

/* Layout sizes as sums of their fields. */
#define WSM_OBJ_PTR_SIZE (4 + 4 + 4 + 4 + 8 + 8)
#define WSM_TIME_SIZE 8
#define WSM_META_INFO_SIZE (4 + 4 + 8 + WSM_NAME_LEN + 4 + 4 + WSM_NAME_LEN + 4 + WSM_OTHER_LEN + 4)
#define WSM_DATA_INFO_SIZE (4 + 4 + 8 + 4 * WSM_NAME_LEN + WSM_OTHER_LEN)
#define WSM_OBJ_META_SIZE (WSM_OBJ_PTR_SIZE + WSM_TIME_SIZE + WSM_META_INFO_SIZE)
#define WSM_OBJ_DATA_SIZE (WSM_OBJ_META_SIZE + WSM_DATA_INFO_SIZE)
#define WSM_HEAD_SIZE (WSM_OBJ_DATA_SIZE + 4 + 4)
#define WSM_RWLOCK_SIZE 56
#define WSM_INDEX_SELF_SIZE \
  (4 + 4 + WSM_RWLOCK_SIZE + 4 + 4 + 8 + 2 * TOFFSET_ARRAY_SIZE + TOFFSET_HASH_SIZE)

/* Offsets of the index's containers, the header offsets the toffset_* calls take. */
#define WSM_INDEX_OFFSET_LIB 80
#define WSM_INDEX_OFFSET_URI 152
#define WSM_INDEX_OFFSET_HASH 224

WMNG_STATIC_ASSERT(sizeof(pthread_rwlock_t) == WSM_RWLOCK_SIZE,
                   "the registry's lock is 56 bytes on this platform");
WMNG_STATIC_ASSERT(sizeof(WsmObjPtr) == WSM_OBJ_PTR_SIZE && WSM_OBJ_PTR_SIZE == 32,
                   "WsmObjPtr is 32 bytes");
WMNG_STATIC_ASSERT(offsetof(WsmObjPtr, iShmId) == 8 && offsetof(WsmObjPtr, iOffset) == 16 &&
                       offsetof(WsmObjPtr, iSize) == 24,
                   "WsmObjPtr field offsets");
WMNG_STATIC_ASSERT(sizeof(WsmVixMetaInfo) == WSM_META_INFO_SIZE && WSM_META_INFO_SIZE == 456,
                   "WsmVixMetaInfo is 456 bytes");
WMNG_STATIC_ASSERT(offsetof(WsmVixMetaInfo, iSize) == 8 && offsetof(WsmVixMetaInfo, szLib) == 16 &&
                       offsetof(WsmVixMetaInfo, iLibVer) == 48 &&
                       offsetof(WsmVixMetaInfo, iLibBuildVer) == 52 &&
                       offsetof(WsmVixMetaInfo, szMeta) == 56 &&
                       offsetof(WsmVixMetaInfo, iMetaVer) == 88 &&
                       offsetof(WsmVixMetaInfo, szOther) == 92,
                   "WsmVixMetaInfo field offsets");
WMNG_STATIC_ASSERT(sizeof(WsmVixDataInfo) == WSM_DATA_INFO_SIZE && WSM_DATA_INFO_SIZE == 504,
                   "WsmVixDataInfo is 504 bytes");
WMNG_STATIC_ASSERT(offsetof(WsmVixDataInfo, szProgName) == 16 &&
                       offsetof(WsmVixDataInfo, szProgId) == 48 &&
                       offsetof(WsmVixDataInfo, szFuncName) == 80 &&
                       offsetof(WsmVixDataInfo, szValueName) == 112 &&
                       offsetof(WsmVixDataInfo, szValuePath) == 144,
                   "WsmVixDataInfo field offsets");
WMNG_STATIC_ASSERT(sizeof(WsmObjMeta) == WSM_OBJ_META_SIZE && WSM_OBJ_META_SIZE == 496,
                   "WsmObjMeta is 496 bytes");
WMNG_STATIC_ASSERT(sizeof(WsmObjData) == WSM_OBJ_DATA_SIZE && WSM_OBJ_DATA_SIZE == 1000,
                   "WsmObjData is 1000 bytes");
WMNG_STATIC_ASSERT(offsetof(WsmObjData, stTime) == 32 && offsetof(WsmObjData, stMeta) == 40 &&
                       offsetof(WsmObjData, stData) == 496,
                   "WsmObjData field offsets");
WMNG_STATIC_ASSERT(sizeof(WsmShmHead) == WSM_HEAD_SIZE && WSM_HEAD_SIZE == 1008,
                   "WsmShmHead is 1008 bytes");
WMNG_STATIC_ASSERT(offsetof(WsmShmHead, stTime) == 32 && offsetof(WsmShmHead, stMeta) == 40 &&
                       offsetof(WsmShmHead, stData) == 496 &&
                       offsetof(WsmShmHead, iUriType) == 1000 &&
                       offsetof(WsmShmHead, iMagic) == 1004,
                   "WsmShmHead field offsets");
WMNG_STATIC_ASSERT(sizeof(WsmIndex) == WSM_INDEX_SELF_SIZE && WSM_INDEX_SELF_SIZE == 392,
                   "WsmIndex is 392 bytes");
WMNG_STATIC_ASSERT(offsetof(WsmIndex, iLock) == 8 && offsetof(WsmIndex, iCrc) == 64 &&
                       offsetof(WsmIndex, iVersion) == 68 && offsetof(WsmIndex, iSelfSize) == 72 &&
                       offsetof(WsmIndex, stLib) == WSM_INDEX_OFFSET_LIB &&
                       offsetof(WsmIndex, stUri) == WSM_INDEX_OFFSET_URI &&
                       offsetof(WsmIndex, stHash) == WSM_INDEX_OFFSET_HASH,
                   "WsmIndex field offsets");
WMNG_STATIC_ASSERT(offsetof(WsmUri, szUri) == 8 && offsetof(WsmUri, stMeta) == 8 + WSM_URI_LEN &&
                       offsetof(WsmUri, stData) == 8 + WSM_URI_LEN,
                   "WsmUri field offsets");

/* ---- tuning ---- */

/* The process's tuning record; filled with the defaults on first use (key 0x18790314, 3000 meta
 * slots of 8 keys, 10000 data slots of 8 keys, the layout from the page size). */
WsmBase* wsm_get_base(void);

/* Fills *pstBase with the defaults and their layout; does not change the process's record. */
WMNG_NODISCARD int wsm_base_default(WsmBase* pstBase);

/* Sets the process's record from the settings of *pstBase (iIndexKey, iLibHash, iLibCap,
 * iUriHash, iUriCap) and computes the rest; takes effect at the next mount. Codes: 1 null,
 * 2 a bad setting: key 0 (private), a capacity below 1, keys per slot below the columns of the
 * kind, or a hash too large for 32-bit node numbers. */
WMNG_NODISCARD int wsm_base_set(const WsmBase* pstBase);

/* Converts between a node number and (type, row, column) under the process's record: with
 * iIndex -1 computes iIndex, otherwise computes the other three. Codes: 1 null, 2 out of range. */
WMNG_NODISCARD int wsm_base_index(WsmBaseVar* pstVar);

/* Total size of the registry segment under the process's record. */
uint64_t wsm_index_size(void);

/* ---- the registry segment ---- */

/* Finds the registry segment of the record's key, creating it (create-exclusive, mode 0660, the
 * full size) when absent. Returns the shmid (>= 0) and sets *piCreated (may be NULL) to 1 when it
 * was created here, 0 otherwise. Codes: 1 look-up failed, 2 creation failed (key, size and the
 * system error in the message). */
WMNG_NODISCARD int wsm_index_shmid(int* piCreated);

/* Attaches the registry: creates and initialises it when absent, checks it otherwise, and then
 * reads its capacities into the process's record. *ppstIndex receives the mapping. Codes:
 * 1 null argument, 2 no segment, 3 the segment cannot be queried, 4 the segment is smaller than
 * the registry size, 5 attach failed, 6 to 8 the lock attribute / its process-shared setting /
 * the lock could not be made, 9 the tables could not be initialised, 10 wrong magic (or a
 * registry another process never finished), 11 wrong version, 12 wrong header size, 13 the
 * stored capacities are inconsistent or exceed the segment, 14 the write lock could not be
 * taken. A registry created here is removed again when its initialisation fails. */
WMNG_NODISCARD int wsm_index_mount(WsmIndex** ppstIndex);

/* Detaches a mounted registry and sets *ppstIndex to NULL. Codes: 1 null, 2 detach failed. */
WMNG_NODISCARD int wsm_index_unmount(WsmIndex** ppstIndex);

/* Removes the registry segment of a key (the registry itself only, not its objects). For tests
 * and tools: the registry is otherwise never removed. Codes: 1 no such segment, 2 removal
 * failed. */
WMNG_NODISCARD int wsm_index_remove(int iIndexKey);

/* Reads the tuning of the registry at iIndexKey without creating or changing anything: the key
 * and the capacities stored in it, with the layout they give, into *pstBase (for
 * wsm_base_set before a mount of a registry made with other capacities). Codes: 1 null, 2 no
 * segment at the key, 3 it cannot be queried or attached, 4 shorter than a registry header or
 * than the layout it states, 5 wrong magic, 6 wrong version, 7 wrong header size, 8 stored
 * capacities inconsistent. */
WMNG_NODISCARD int wsm_index_probe(int iIndexKey, WsmBase* pstBase);

/* Writes the tuning values into a registry: initialises its slot arrays (keys per slot in their
 * iMaxHash) and hash over the storage at the record's offsets. Only for a registry being created:
 * every slot and key is lost. Codes: 1 null, 2 meta slots, 3 data slots, 4 hash. */
WMNG_NODISCARD int wsm_index_base_set(WsmIndex* pstIndex, const WsmBase* pstBase);

/* Reads a registry's tuning values into *pstBase (the key is left as it is) and checks that they
 * describe a consistent layout. Codes: 1 null, 2 inconsistent. */
WMNG_NODISCARD int wsm_index_base_get(const WsmIndex* pstIndex, WsmBase* pstBase);

/* The registry's process-shared lock: iRead 0 for the write lock, otherwise the read lock.
 * wsm_index_lock blocks; wsm_index_trylock returns 1 without waiting when the lock is held
 * elsewhere (nothing pushed). Codes: 1 null, 2 the lock call failed. */
WMNG_NODISCARD int wsm_index_lock(WsmIndex* pstIndex, int iRead);
WMNG_NODISCARD int wsm_index_trylock(WsmIndex* pstIndex, int iRead);
WMNG_NODISCARD int wsm_index_unlock(WsmIndex* pstIndex);

/* ---- object segments ---- */

/* Creates an object segment (private key, create-exclusive, mode 0660) of iSize + WSM_HEAD_SIZE
 * bytes for the registry key in force, fills its header (kind, descriptions, time, magic, a copy
 * of the object pointer) and its payload (iSize bytes copied from pvSrc, or zeros when pvSrc is
 * NULL), detaches, and fills *pstPtr (iRef 0). A data object may carry its record type in
 * pstMeta (may be NULL). Codes: 1 null pstPtr, 2 size too large, 3 size 0, 4 kind 1 without
 * pstMeta, kind 2 without pstData or another kind, 5 creation failed, 6 attach failed (the
 * segment is removed). */
WMNG_NODISCARD int wsm_head_init(WsmObjPtr* pstPtr, int iUriType, const WsmVixMetaInfo* pstMeta,
                                 const WsmVixDataInfo* pstData, const void* pvSrc, uint64_t iSize);

/* Attaches the object's segment and checks it: large enough, the magic, and the header's
 * object pointer naming the same segment, key, offset and size. *ppstHead receives the header;
 * the payload is WSM_HEAD_SIZE bytes after it. Codes: 1 null, 2 the segment cannot be queried,
 * 3 too small, 4 attach failed, 5 wrong magic, 6 another object. */
WMNG_NODISCARD int wsm_head_at(const WsmObjPtr* pstPtr, WsmShmHead** ppstHead);

/* Detaches a header from wsm_head_at. Codes: 1 null, 2 detach failed. */
WMNG_NODISCARD int wsm_head_dt(WsmShmHead* pstHead);

/* Detaches the segment whose payload starts at pvPayload. Codes: 1 null, 2 detach failed (not
 * an attached payload). */
WMNG_NODISCARD int wsm_head_dt_ex(void* pvPayload);

/* Removes the object's segment after checking that it is the object (wsm_head_at); the memory
 * goes when the last process detaches. Codes: 1 null, 2 no such object, 3 removal failed. */
WMNG_NODISCARD int wsm_head_destroy(const WsmObjPtr* pstPtr);

/* ---- slots ---- */

/* The meta / data slot of row iRow (the row of a node number), NULL (after a push) when out of
 * range. The slot may be free: rows come from look-ups or wsm_head_obj_alloc. */
WsmObjMeta* wsm_head_meta(WsmIndex* pstIndex, int iRow);
WsmObjData* wsm_head_data(WsmIndex* pstIndex, int iRow);

/* Takes a free slot of kind iType (zeroed, stTime set to now) and returns its row in *piRow.
 * Codes: 1 null, 2 bad kind, 3 no free slot. */
WMNG_NODISCARD int wsm_head_obj_alloc(WsmIndex* pstIndex, int iType, int* piRow);

/* Drops the slot's keys and returns it. Codes: 1 null, 2 bad kind, 3 row out of range,
 * 4 the slot is not in use. */
WMNG_NODISCARD int wsm_head_obj_free(WsmIndex* pstIndex, int iType, int iRow);

/* Walks the slots in use of kind iType in allocation order: iRow -1 gives the first; returns
 * the next row, or -1 at the end (also for bad arguments; nothing pushed). */
int wsm_head_obj_next(WsmIndex* pstIndex, int iType, int iRow);

/* ---- URIs ----
 * Meta: wsm-meta://bid/library:version:build/meta:meta-version/other
 * Data: wsm-data://bid/program:program-id/function/value
 * The scheme is matched without regard to case. Fields end at "/" or ":"; a field holds at most
 * 31 characters; fields missing at the end are empty. A number is decimal digits, or "*" (or
 * empty) for any: -1. A text field that is empty or starts with "*" means any. The text kept in
 * szUri is always the one rebuilt from the fields (lower-case scheme, "*" for negative numbers),
 * so equal URIs have equal texts. */

/* Parses pszUri into *pstUri; on failure *pstUri is unchanged. Codes: 1 null pstUri, 2 null or
 * empty text, 3 no "://", 4 a separator out of place, 5 a field too long, 6 a scheme other than
 * wsm-meta and wsm-data, 7 a number that is not one. */
WMNG_NODISCARD int wsm_uri_set(WsmUri* pstUri, const char* pszUri);

/* Makes *pstUri a meta / data URI of the description; the text is rebuilt when read. */
WMNG_NODISCARD int wsm_uri_set_meta(WsmUri* pstUri, const WsmVixMetaInfo* pstMeta);
WMNG_NODISCARD int wsm_uri_set_data(WsmUri* pstUri, const WsmVixDataInfo* pstData);

/* The URI's text, rebuilt first when its fields changed; NULL for a null URI or one that cannot
 * be rebuilt. */
const char* wsm_uri_get(WsmUri* pstUri);

/* Rebuilds the text from the fields ("*" for a negative number, cut at 1023 characters; a data
 * URI does not carry szValuePath). Codes: 1 null, 2 a kind other than meta or data. */
WMNG_NODISCARD int wsm_uri_sync(WsmUri* pstUri);

/* 0 when both URIs name the same thing (same kind, same rebuilt text); otherwise < 0 or > 0 as
 * for strcmp. Null or empty URIs sort first. */
int wsm_uri_compare(const WsmUri* pstA, const WsmUri* pstB);

/* 1 for a null URI or one of no kind, 0 otherwise. */
int wsm_uri_is_null(const WsmUri* pstUri);

/* ---- key columns ----
 *  k | meta key      | data key     | bytes
 *  0 | whole text    | whole text   | text  (set only when every other column is set)
 *  1 | iBid          | iBid         | 4
 *  2 | szLib         | szProgName   | text
 *  3 | iLibVer       | szProgId     | meta 4, data text
 *  4 | iLibBuildVer  | szFuncName   | meta 4, data text
 *  5 | -             | szValueName  | text
 * A negative number and an empty or "*"-led text are wildcards. */

/* WSM_HASH_SET, WSM_HASH_ANY or WSM_HASH_INVALID (no such column, or no URI). */
char wsm_hash_type(const WsmUri* pstUri, int k);

/* The key bytes of column k, NULL unless the column is set. Column 0 rebuilds the text first. */
const void* wsm_hash_ptr(WsmUri* pstUri, int k);

/* The key length of column k (4 or the text length), -1 unless the column is set. */
int wsm_hash_size(WsmUri* pstUri, int k);

/* 0 when column k holds the same value in both URIs (both of the same kind), 1 otherwise. */
int wsm_hash_cmp(const WsmUri* pstA, const WsmUri* pstB, int k);

/* ---- registration and look-ups (the caller holds the registry lock) ---- */

/* Registers slot iRow under the URI's keys: rebuilds the text, copies the description into the
 * slot (stMeta of a meta slot, stData of a data slot) and links the node of every set column.
 * wsm_hash_set takes either kind, wsm_hash_set_data only data. On failure the slot and the hash
 * are as before. Codes: 1 null, 2 wrong kind, 3 row out of range, 4 a node could not be linked
 * (for example, the slot is registered already). */
WMNG_NODISCARD int wsm_hash_set(WsmIndex* pstIndex, int iRow, const WsmUri* pstUri);
WMNG_NODISCARD int wsm_hash_set_data(WsmIndex* pstIndex, int iRow, const WsmUri* pstUri);

/* Look-ups write up to iMax matching rows to piRows (may be NULL when iMax is 0) and return the
 * number of matches, which may exceed iMax. They read the URI's text as it stands, or a rebuilt
 * copy when iSync is set (the fields changed since the text was made).
 *
 * Exact: slots whose rebuilt URI equals the one asked for. wsm_hash_get_0 walks the column-0
 * chain of the whole text (code 3 when column 0 is not set); wsm_hash_get does the same when
 * column 0 is set, and otherwise walks the partial-key candidates below and compares texts, so
 * that a URI with a wildcard part is found exactly as it was registered.
 *
 * Partial (wsm_hash_get_meta, wsm_hash_get_data): slots of that kind whose columns 1 to 4 (meta)
 * or 1 to 5 (data) equal the URI's set columns; the URI's wildcards match anything, a slot's
 * wildcard only a wildcard. The candidates come from one set column: the most selective, meaning
 * the one whose bucket chain is shortest (ties go to the lower column). With no set column every
 * slot of the kind in use is a candidate.
 *
 * Codes: 1 null, 2 wrong kind, 3 column 0 not set (wsm_hash_get_0), 4 a damaged chain. */
WMNG_NODISCARD int wsm_hash_get(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows, int iMax);
WMNG_NODISCARD int wsm_hash_get_0(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows, int iMax);
WMNG_NODISCARD int wsm_hash_get_meta(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows,
                                     int iMax);
WMNG_NODISCARD int wsm_hash_get_data(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRows,
                                     int iMax);

/* The one slot matching the URI by partial keys (of the URI's kind): 0 and *piRow, or code
 * 2 the look-up failed, 3 no match, 4 more than one match (1 for null arguments). */
WMNG_NODISCARD int wsm_hash_get_only(WsmIndex* pstIndex, const WsmUri* pstUri, int* piRow);

/* Unlinks every key node of a slot (those not linked are skipped). wsm_hash_del takes the kind.
 * Codes: 1 null, 2 bad kind (wsm_hash_del only), 3 row out of range, 4 a damaged chain. */
WMNG_NODISCARD int wsm_hash_del(WsmIndex* pstIndex, int iType, int iRow);
WMNG_NODISCARD int wsm_hash_del_meta(WsmIndex* pstIndex, int iRow);
WMNG_NODISCARD int wsm_hash_del_data(WsmIndex* pstIndex, int iRow);

#ifdef __cplusplus
}
#endif

#endif /* WMNG_WSM_H_ */
