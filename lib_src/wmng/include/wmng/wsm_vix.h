/* wsm_vix.h - typed shared memory: shared-memory objects named by URI and typed by a metadata
 * library, on top of the registry of wsm.h. A meta object holds a copy of a metadata library; a
 * data object holds a block of records, optionally bound to a record type of a meta object.
 *
 * Conventions:
 * - Every public function checks its arguments and forwards to its internal function (suffix
 *   _i). Failures push one frame onto the default error stack (terror.h) and return a negative
 *   code local to the function (pointer results: NULL). Codes 1 (a null argument) and 2 (a
 *   handle in a bad state: wrong iMagic, or holding the read lock where a change needs the
 *   write lock) are common to all; 3 and up are listed per function.
 * - Ownership: a handle is made by wsm_vix_open and released by wsm_vix_close. The result of the
 *   last query, its rows and the URI texts handed out belong to the handle: they stay valid until
 *   the next query, wsm_vix_free_result or wsm_vix_close. Object pointers (WsmObjPtrP) returned
 *   by wsm_vix_ptr point into the handle and stay valid until its next wsm_vix_ptr or close.
 * - Attachments: wsm_vix_at maps an object and counts the attachment in its registry slot and
 *   in its segment header; wsm_vix_dt (or _dt_ex) undoes exactly one. A row's payloads
 *   (wsm_vix_row_data / _meta) are attached on first use and detached with the result.
 * - Locking: the registry is shared by processes and guarded by its process-shared read-write
 *   lock. Every change of the registry (slots and hash keys) is made under the write lock and
 *   every look-up under the read lock; the functions take the lock themselves unless the calling
 *   thread already holds it through wsm_vix_lock. Taking the lock never waits longer than about
 *   five seconds (see wsm_vix_lock). A handle is used by one thread at a time.
 * - Registry: the key and capacities in force are the process's tuning record (wsm.h); change
 *   them with wsm_vix_base_set while no handle is open. wsm_vix_at and wsm_vix_dt use a
 *   registry mounted by an open handle of the object's key.
 */
#ifndef WMNG_WSM_VIX_H_
#define WMNG_WSM_VIX_H_

#include <stdint.h>

#include "vix/vix_metalib.h"
#include "wmng/wmng_common.h"
#include "wmng/wsm.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Flags of wsm_vix_ptr and wsm_vix_at; the first two have the values of the open flags. */
#define WSM_VIX_CREAT 0x40   /* wsm_vix_ptr: create the object when absent */
#define WSM_VIX_EXCL 0x80    /* with WSM_VIX_CREAT: fail when it exists */
#define WSM_VIX_RDONLY 0x800 /* wsm_vix_ptr: an existing object only; wsm_vix_at: map for reading \
                              */

/* wsm_vix_load_meta_file flags and the replace argument of wsm_vix_load_meta(_ex). */
#define WSM_VIX_REPLACE 1 /* a stored library that differs is replaced */

/* Results of loading a metadata library. */
#define WSM_VIX_META_SAME 0     /* created, or the stored copy is identical */
#define WSM_VIX_META_REPLACED 1 /* the stored copy differed and was replaced */
#define WSM_VIX_META_DIFFERS 2  /* the stored copy differs and was kept */

/* Kinds of rows (wsm_vix_row_type). */
#define WSM_VIX_ROW_META WSM_URI_TYPE_META
#define WSM_VIX_ROW_DATA WSM_URI_TYPE_DATA

/* Opaque records. */
typedef struct tagWsmVixHandle* WsmVixHandleP;
typedef struct tagWsmVixResult* WsmVixResultP;
typedef struct tagWsmVixRow* WsmVixRowP;
typedef WsmObjPtr* WsmObjPtrP;

/* wsm_vix_ptr's result for an absent object when not asked to create it: all ones. */
#define WSM_VIX_PTR_ABSENT ((WsmObjPtrP)(intptr_t)-1)

/* ---- handle ---- */

/* With *ppstHandle NULL: makes a handle and mounts the registry (creating it when absent);
 * returns 0, or on failure leaves *ppstHandle NULL. With *ppstHandle set: 0 when it is a valid
 * handle, 1 otherwise (nothing pushed). Codes: 1 null, 3 no memory, 4 the mount failed. */
WMNG_NODISCARD int wsm_vix_open(WsmVixHandleP* ppstHandle);

/* Frees the result, releases a lock the handle's thread holds, unmounts and frees the handle;
 * sets *ppstHandle to NULL. Codes: 1 null, 2 not a valid handle (left alone), 3 the unmount
 * failed (the handle is freed all the same). */
WMNG_NODISCARD int wsm_vix_close(WsmVixHandleP* ppstHandle);

/* 0 for a valid handle. Codes: 1 null, 2 wrong iMagic. */
WMNG_NODISCARD int wsm_vix_status(WsmVixHandleP pstHandle);

/* ---- binding ---- */

/* Binds the handle to the record type of a meta object. The URI names the library (bid, name,
 * version, build; wildcards allowed) and optionally a record type (its meta name): exactly one
 * meta object must match the library part. With a record type the bound size becomes the
 * record's host size. Codes: 3 the URI does not parse, 4 not a meta URI, 5 not exactly one meta
 * object matches, 6 the record type is not in the library (or the library cannot be read),
 * 7 the handle is bound to an existing data object, whose type is fixed. */
WMNG_NODISCARD int wsm_vix_bind_meta(WsmVixHandleP pstHandle, const char* pszUri);

/* Binds the handle to a data URI. When exactly one object is registered under it, the handle
 * takes that object's data and meta descriptions and size; when none is, the parsed URI is kept
 * (the object is made later by wsm_vix_ptr) and the meta binding and size are cleared. Codes:
 * 3 the URI does not parse, 4 not a data URI, 5 the look-up failed, 6 more than one object. */
WMNG_NODISCARD int wsm_vix_bind_data(WsmVixHandleP pstHandle, const char* pszUri);

/* Sets the size of a data object not yet made; the same size again changes nothing. Codes:
 * 3 size 0, 4 no data URI bound, 5 a different size while a meta is bound, 6 a different size
 * while one is set. */
WMNG_NODISCARD int wsm_vix_bind_size(WsmVixHandleP pstHandle, uint64_t iSize);

/* The bound meta URI / data URI (NULL when none, nothing pushed; NULL after a push for a bad
 * handle), and the bound size (0 when none; the negative code for a bad handle). */
const char* wsm_vix_bind_get_meta(WsmVixHandleP pstHandle);
const char* wsm_vix_bind_get_data(WsmVixHandleP pstHandle);
int64_t wsm_vix_bind_get_size(WsmVixHandleP pstHandle);

/* ---- metadata libraries ---- */

/* Registers a library as the meta object "wsm-meta://bid/name:version:build/" (bid 0 for
 * wsm_vix_load_meta). When absent it is created: WSM_VIX_META_SAME. When present it is
 * compared: identical WSM_VIX_META_SAME; different and iReplace not WSM_VIX_REPLACE:
 * WSM_VIX_META_DIFFERS, the stored copy kept; different and replace: the stored object is
 * unlinked and the new one made: WSM_VIX_META_REPLACED. The whole step runs under the write
 * lock. Codes: 3 not a 64-bit library of this build (or shorter than its header), 4 its name
 * and versions make no URI (a name longer than 31 bytes or holding a separator), 5 the look-up
 * failed, 6 more than one stored object, 7 unlinking the stored object failed, 8 creating the
 * object failed, 9 the stored copy cannot be attached. */
WMNG_NODISCARD int wsm_vix_load_meta(WsmVixHandleP pstHandle, const VIXMETALIB* pstLib,
                                     int iReplace);
WMNG_NODISCARD int wsm_vix_load_meta_ex(WsmVixHandleP pstHandle, const VIXMETALIB* pstLib, int iBid,
                                        int iReplace);

/* Reads a library file (vix_load_metalib) and loads it with bid 0; iFlags may hold
 * WSM_VIX_REPLACE. Results as wsm_vix_load_meta. Codes: 3 the file cannot be read as a library
 * (the runtime's code and message in the frame), 4 loading failed (its code in the frame). */
WMNG_NODISCARD int wsm_vix_load_meta_file(WsmVixHandleP pstHandle, const char* pszPath, int iFlags);

/* ---- data objects ---- */

/* Copies iSize bytes from pvSrc to the start of the bound data object, creating it (with the
 * bound size) when absent. Codes: 3 the object cannot be had (wsm_vix_ptr failed or size
 * unbound), 4 iSize is 0 or beyond the object, 5 it cannot be attached. */
WMNG_NODISCARD int wsm_vix_load_data(WsmVixHandleP pstHandle, const void* pvSrc, uint64_t iSize);

/* The object pointer of the bound data object. Found and not asked for WSM_VIX_CREAT |
 * WSM_VIX_EXCL: its pointer, when its sizes agree with each other and with the bound size.
 * Found with both: failure. Absent without WSM_VIX_CREAT: WSM_VIX_PTR_ABSENT, nothing pushed.
 * Absent with it: a data slot is taken, the bound descriptions copied in, its keys registered
 * and the segment made with the bound size. Look-up and creation run under one write lock.
 * Codes: 1 null handle, no size bound, or found with WSM_VIX_CREAT | WSM_VIX_EXCL ("found
 * matched uri, but flag O_CREAT|O_EXCL"), 3 sizes differ, 4 the look-up failed, 5 no free data
 * slot, 6 more than one object, 8 the keys cannot be registered, 9 the segment cannot be made. */
WsmObjPtrP wsm_vix_ptr(WsmVixHandleP pstHandle, int iFlags);

/* Attaches the object and returns its payload address (WSM_HEAD_SIZE bytes past the segment
 * start). The object must have a size and belong to the registry key in force; its segment
 * header must name the same object as its registry slot, which is found through the URI in the
 * header. Both reference counts (slot and header) go up by one. iFlags WSM_VIX_RDONLY maps the
 * payload read-only. Codes: 1 null, 3 WSM_VIX_PTR_ABSENT, 4 no size or another registry key
 * (both keys in the message), 5 no registry of the key is mounted (no open handle), 6 the
 * segment cannot be attached or is not the object, 7 no registry slot for it (unlinked or
 * replaced). */
void* wsm_vix_at(WsmObjPtrP pstPtr, int iFlags);

/* Detaches a payload from wsm_vix_at: finds the slot again through the URI in the header,
 * lowers both reference counts and detaches; an object whose slot is gone is just detached.
 * wsm_vix_dt uses a registry mounted by any open handle of the object's key, wsm_vix_dt_ex the
 * handle's. Codes: 1 null payload, 2 bad handle (_ex), 3 not a payload of wsm_vix_at in this
 * process, 4 the detach failed. */
WMNG_NODISCARD int wsm_vix_dt(void* pvPayload);
WMNG_NODISCARD int wsm_vix_dt_ex(void* pvPayload, WsmVixHandleP pstHandle);

/* ---- queries ---- */

/* Finds the registered objects of the URI's kind that match it and keeps them as the handle's
 * result (replacing the previous one); returns their number. Matching uses the key columns
 * (meta: bid, library, version, build; data: bid, program, program id, function, value): a set
 * part must be equal, a wildcard part ("*", an empty text, no number) matches anything, and an
 * object registered with a wildcard part is matched there only by a wildcard. The meta name,
 * meta version and other text of a meta URI are not compared. Rows come in ascending slot
 * order. "wsm-meta://" and "wsm-data://" list every object of the kind. Codes: 3 the URI does
 * not parse, 4 the look-up failed, 5 no memory. */
WMNG_NODISCARD int wsm_vix_query(WsmVixHandleP pstHandle, const char* pszUri);

/* The handle's result (owned by the handle). Codes: 3 no query made. */
WsmVixResultP wsm_vix_store_result(WsmVixHandleP pstHandle);

/* Rows of a result. */
WMNG_NODISCARD int wsm_vix_num_rows(WsmVixResultP pstResult);

/* Moves the cursor to row iRow (0 to the number of rows). Codes: 3 out of range. */
WMNG_NODISCARD int wsm_vix_data_seek(WsmVixResultP pstResult, int iRow);

/* The row at the cursor, advancing it; NULL at the end (nothing pushed). */
WsmVixRowP wsm_vix_fetch_row(WsmVixResultP pstResult);

/* Detaches the rows' payloads and frees the result; the handle forgets it. */
WMNG_NODISCARD int wsm_vix_free_result(WsmVixResultP pstResult);

/* The first row of the handle's result; the only row (NULL unless there is exactly one).
 * Codes: 3 no query made, 4 no row / not exactly one row. */
WsmVixRowP wsm_vix_row_first(WsmVixHandleP pstHandle);
WsmVixRowP wsm_vix_row_only(WsmVixHandleP pstHandle);

/* ---- rows ---- */

/* Payload bytes of the object (the negative code for a null row). */
int64_t wsm_vix_row_size(WsmVixRowP pstRow);

/* The object's payload, attached on first use (read-write); NULL for a meta row. Codes: 3 a
 * meta row, 4 it cannot be attached. */
void* wsm_vix_row_data(WsmVixRowP pstRow);

/* The metadata library: a meta row's own, or the one a data row is bound to, attached
 * read-only on first use. Codes: 3 a data row bound to no (single) meta object, 4 it cannot be
 * attached or is no library. */
const VIXMETALIB* wsm_vix_row_meta(WsmVixRowP pstRow);

/* Copies of the slot's object pointers: a data row's own (NULL for a meta row); a meta row's
 * own, or the meta object a data row is bound to (NULL when none). Nothing pushed for NULL. */
WsmObjPtrP wsm_vix_row_data_ptr(WsmVixRowP pstRow);
WsmObjPtrP wsm_vix_row_meta_ptr(WsmVixRowP pstRow);

/* The object's URI; the meta URI (a meta row's own, a data row's bound one, NULL when none). */
const char* wsm_vix_row_uri(WsmVixRowP pstRow);
const char* wsm_vix_row_meta_uri(WsmVixRowP pstRow);

/* 1 or 0; the kind (WSM_VIX_ROW_META or WSM_VIX_ROW_DATA); the registration time (seconds).
 * The negative code for a null row. */
int wsm_vix_row_is_meta(WsmVixRowP pstRow);
int wsm_vix_row_is_data(WsmVixRowP pstRow);
int wsm_vix_row_type(WsmVixRowP pstRow);
int64_t wsm_vix_row_time(WsmVixRowP pstRow);

/* Removes the row's object under the write lock: detaches the row's payloads, removes the
 * segment, drops its keys and frees its slot. A segment already gone is not an error. Codes:
 * 3 the slot no longer holds the object, 4 the segment cannot be removed, 5 the slot cannot be
 * freed. */
WMNG_NODISCARD int wsm_vix_row_unlink(WsmVixRowP pstRow, WsmVixHandleP pstHandle);

/* ---- registry ---- */

/* Sets the process's registry key and capacities (wsm_base_set) for the handles opened
 * afterwards. Codes: 3 a handle is open, 4 refused by wsm_base_set. */
WMNG_NODISCARD int wsm_vix_base_set(const WsmBase* pstBase);

/* Takes the registry's write lock (iRead 0) or read lock without blocking: up to 50 tries with
 * a pause of 100 ms after each failure. After 50 failures (about five seconds) it returns 0 as
 * if the lock had been taken: a caller never waits longer than that for the registry, even when
 * a holder died. wsm_vix_unlock releases whatever is held (nothing after such a timeout). Codes:
 * 3 the thread holds the lock already; unlock: 3 nothing held, 4 the release failed. */
WMNG_NODISCARD int wsm_vix_lock(WsmVixHandleP pstHandle, int iRead);
WMNG_NODISCARD int wsm_vix_unlock(WsmVixHandleP pstHandle);

#ifdef __cplusplus
}
#endif

#endif /* WMNG_WSM_VIX_H_ */
