/*
 * kry_sdk_double.h: control interface of the SDK test double.
 *
 * The test double is a shared library named libkry_sdk.so that exports the same symbols as the
 * closed anti-cheat SDK. Besides those it exports the kry_double_* functions below, so a test or
 * the host simulator can steer it and look at what it was given. Look them up with dlsym on the
 * handle of the loaded double (dlopen the same path with RTLD_NOLOAD), or link the double directly.
 *
 * Conventions:
 * - Plain C, callable from C and C++. Every function is safe to call at any time, in any order,
 *   also before the SDK has been initialised; calls are serialised by an internal lock.
 * - State lives in the double's process-wide globals and survives kry_sdk_release_busi_interf and
 *   dlclose (the library is linked "nodelete", so a stale loader handle stays usable). Only
 *   kry_double_reset brings everything back to the start state.
 * - Slots are the entry points of the SDK, numbered by KryDoubleSlot. Each slot counts its calls,
 *   returns the result it was told to return (default 0, KRY_SDK_PROC_OK), and keeps a copy of
 *   the bytes of every record it was handed, together with the data the record points at.
 * - Behaviour of the SDK entry points: an initialiser that returns 0 (or a table) starts the
 *   double; kry_sdk_get_anti_interf keeps the send callback of its KrySdkAntiInitInfo; release
 *   stops it and forgets the callback. A user event with a null record returns
 *   KRY_SDK_PROC_INVALID_ARG, and one that arrives while the double is not started returns
 *   KRY_SDK_PROC_INTERNAL_ERR, whatever result was set; both are counted as failed calls. An
 *   initialiser given a null init record returns KRY_SDK_PROC_INVALID_ARG (the proc variant null).
 * - Output buffers: functions that copy bytes out behave like snprintf: at most `cap` bytes are
 *   copied (nothing when `buf` is null or `cap` is 0) and the full length is returned, so a result
 *   larger than `cap` means the copy was cut. Nothing past buf[cap-1] is ever written.
 * - Errors come back as negative results: -1 bad argument (unknown slot, null text) or nothing
 *   recorded at that place; no function aborts or throws.
 */
#ifndef KRY_SDK_DOUBLE_H_
#define KRY_SDK_DOUBLE_H_

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* KRY_DOUBLE_HIDE_CONTROL builds a variant that exports only the SDK's own symbols, so it looks
 * like a real SDK to a host that probes for the control functions. */
#ifdef KRY_DOUBLE_HIDE_CONTROL
#define KRY_DOUBLE_API __attribute__((visibility("hidden")))
#else
#define KRY_DOUBLE_API __attribute__((visibility("default")))
#endif

/* Entry points of the double whose calls are counted and whose results can be set. */
typedef enum KryDoubleSlot {
  KRY_DOUBLE_SLOT_ADD_USER = 0,        /* anti interface add_user_; record KrySdkAntiAddUserInfo */
  KRY_DOUBLE_SLOT_DEL_USER = 1,        /* anti interface del_user_; record KrySdkAntiDelUserInfo */
  KRY_DOUBLE_SLOT_RECV_ANTI_DATA = 2,  /* anti interface recv_anti_data_; KrySdkAntiRecvDataInfo */
  KRY_DOUBLE_SLOT_TICK_USER = 3,       /* anti interface tick_user_; KrySdkAntiTickUserInfo */
  KRY_DOUBLE_SLOT_INIT = 4,            /* kry_sdk_init_with_access_info_interf; KrySdkInitInfo */
  KRY_DOUBLE_SLOT_INIT_WITH_PROC = 5,  /* kry_sdk_init_with_access_info_and_proc_interf */
  KRY_DOUBLE_SLOT_INIT_FOR_QUELLD = 6, /* kry_sdk_init_with_access_info_for_quelld_interf */
  KRY_DOUBLE_SLOT_RELEASE = 7,         /* kry_sdk_release_busi_interf; no record */
  KRY_DOUBLE_SLOT_GET_ANTI_INTERF = 8, /* kry_sdk_get_anti_interf; record KrySdkAntiInitInfo */
  KRY_DOUBLE_SLOT_GET_SDK_INFO = 9,    /* kry_sdk_get_sdk_info; record KrySdkGetSdkInfoInitData */
  KRY_DOUBLE_SLOT_PROC = 10,           /* proc_ of the table from the proc initialiser; no record */
  KRY_DOUBLE_SLOT_COUNT = 11
} KryDoubleSlot;

/* Parts of one recorded call (see kry_double_record). A part whose pointer was null in the
 * record is absent (-1). */
typedef enum KryDoublePart {
  KRY_DOUBLE_PART_RECORD = 0,     /* the record itself, byte for byte (sizeof the record) */
  KRY_DOUBLE_PART_ANTI_DATA = 1,  /* receive record: the anti_data_len_ bytes at anti_data_ */
  KRY_DOUBLE_PART_ROLE_NAME = 2,  /* add/tick record: the text at role_name_, without NUL */
  KRY_DOUBLE_PART_USER_EXT = 3,   /* user records: the 1028-byte KrySdkUserExtData pointed at */
  KRY_DOUBLE_PART_ACCESS = 4,     /* initialisers: the KrySdkAccessInfo record (40 bytes) */
  KRY_DOUBLE_PART_CONF_DIR = 5,   /* initialisers: text at kry_sdk_conf_dir_, without NUL */
  KRY_DOUBLE_PART_DATA_PROXY = 6, /* initialisers: text at data_proxy_domain_ */
  KRY_DOUBLE_PART_BUSI_PROXY = 7, /* initialisers: text at busi_proxy_domain_ */
  KRY_DOUBLE_PART_TEST_DATA_PROXY = 8, /* initialisers: text at test_data_proxy_domain_ */
  KRY_DOUBLE_PART_TEST_BUSI_PROXY = 9, /* initialisers: text at test_busi_proxy_domain_ */
  KRY_DOUBLE_PART_COUNT = 10
} KryDoublePart;

/* Calls kept per slot; beyond this the oldest copies are dropped (counts keep counting). */
#define KRY_DOUBLE_HISTORY_MAX 4096

/* Version text reported through kry_sdk_get_sdk_info after a reset. */
#define KRY_DOUBLE_DEFAULT_VERSION "1.8.4"

/* Back to the start state: counts, histories and results cleared, version text
 * KRY_DOUBLE_DEFAULT_VERSION, no send callback. */
KRY_DOUBLE_API void kry_double_reset(void);

/* Result the slot returns from now on. For the int-returning slots (user events, the two int
 * initialisers, release, proc) this is the return value. For the pointer-returning slots
 * (GET_ANTI_INTERF, GET_SDK_INFO, INIT_WITH_PROC) 0 returns the table and any other value returns
 * null; the table of INIT_WITH_PROC always carries init_ret_ 0. Returns 0, or -1 for a bad slot. */
KRY_DOUBLE_API int kry_double_set_result(int slot, int value);

/* The result the slot currently returns; -1 for a bad slot (check the slot first). */
KRY_DOUBLE_API int kry_double_get_result(int slot);

/* Number of calls of the slot since the last reset; -1 for a bad slot. */
KRY_DOUBLE_API long kry_double_call_count(int slot);

/* Number of calls of the slot that returned something other than 0 (or null for the pointer
 * slots); -1 for a bad slot. */
KRY_DOUBLE_API long kry_double_fail_count(int slot);

/* Copy of the record bytes of the slot's last call (snprintf-like, see above). Returns the record
 * size, or -1 for a bad slot, a slot without records, no call yet, or a call with a null record. */
KRY_DOUBLE_API long kry_double_last_record(int slot, void* buf, size_t cap);

/* Copy of one part of the call with the given index (0 = the first call after the reset; the
 * latest KRY_DOUBLE_HISTORY_MAX calls are kept). Returns the part's full length, or -1 when the
 * slot, index or part is bad, the call is no longer kept, or the part is absent in that call. */
KRY_DOUBLE_API long kry_double_record(int slot, long index, int part, void* buf, size_t cap);

/* The result the call with the given index returned (as int; pointer slots: 0 table, 1 null);
 * -1 when slot or index is bad or the call is no longer kept (ambiguous with a result of -1:
 * check kry_double_call_count first). */
KRY_DOUBLE_API int kry_double_record_result(int slot, long index);

/* Version text that the version query reports; null makes get_sdk_version_info_ return null.
 * The text is copied (at most 255 characters are kept). */
KRY_DOUBLE_API void kry_double_set_version(const char* version);

/* 1 while a send callback from kry_sdk_get_anti_interf is kept, else 0. */
KRY_DOUBLE_API int kry_double_has_send_callback(void);

/* Sends data to a client the way the real SDK does: builds a KrySdkAntiSendDataInfo with the
 * account text (at most 64 characters kept), the data and no extension data, and calls the kept
 * send_data_to_client_ callback. Returns the callback's KrySdkProcResult, or -1 when no callback
 * is kept or `openid` is null (a null `data` is allowed only with `len` 0). */
KRY_DOUBLE_API int kry_double_send_to_client(const char* openid, const void* data, uint32_t len);

/* The same with extension data: `ext` (at most 1024 bytes, else -1) goes into a
 * KrySdkUserExtData that the send record points at; a null `ext` means no extension record. */
KRY_DOUBLE_API int kry_double_send_to_client_ext(const char* openid, const void* ext,
                                                 uint32_t ext_len, const void* data, uint32_t len);

/* Number of kry_double_send_to_client* calls that reached the callback, and how many of those
 * got a result other than 0. */
KRY_DOUBLE_API long kry_double_send_count(void);
KRY_DOUBLE_API long kry_double_send_fail_count(void);

/* Initialisations (sum of the three initialiser slots) and quits (release slot) since the reset. */
KRY_DOUBLE_API long kry_double_init_count(void);
KRY_DOUBLE_API long kry_double_quit_count(void);

/* 1 between a successful initialisation and the next release, else 0. */
KRY_DOUBLE_API int kry_double_is_running(void);

#ifdef __cplusplus
}
#endif

#endif /* KRY_SDK_DOUBLE_H_ */
