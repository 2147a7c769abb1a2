/* wlog.h - the logging library: categories, the log call, layout, appender dispatch, the
 * logging context and the bill log.
 *
 * Conventions:
 * - Functions return int: 0 on success, -1 for a bad argument or a failure, or an error code
 *   WLOG_ERRCODE(WLOG_ERROR_*) = 0x83020400 + error where stated (wlog_error_string names
 *   them). No function throws. Every result code is marked WLOG_MUST_CHECK: ignoring it warns.
 * - Null pointers are always checked: they give -1 (null for pointer results, 0 from
 *   wlog_category_can_write).
 * - Ownership: a WLOGCTX owns its category instances, their message buffers and appender
 *   states; it does not own the WLOGCONF, which must stay valid and unmoved until wlog_fini.
 *   Category pointers handed out stay valid until wlog_fini.
 * - No locks: a category is used by one thread at a time; context operations must not run
 *   concurrently with logging. Only the clock override is atomic.
 * - Client code logs through the WLOG_LOG* macros, which test the context-wide bounds inline
 *   before any argument is evaluated.
 * - A clone is a copy of its parent instance with only its links, index, configuration record,
 *   message buffer, name and appender state made anew: its binary-record sequence goes on from
 *   the parent's.
 * - Deliberate hardening, beyond the behaviour the library otherwise follows:
 *   - walks along forward, level-dispatch and clone-parent links stop after 513 steps, so a
 *     chain damaged by direct writes cannot hang a caller;
 *   - wlog_reload checks the magic of the new configuration as wlog_init does (-1), and
 *     wlog_init refuses a category count outside 0..512 (-1);
 *   - wlog_set_category_forward refuses (WLOG_ERROR_LOOP) a target whose chain leads back to
 *     the category or reaches a memory device, as wlog_init does for configured links;
 *   - text fields of the configuration are read within their arrays, terminated or not (a
 *     network URL without a terminator is refused);
 *   - a bill line longer than 8192 bytes is cut there and still ends with a line feed;
 *   - the file appender's size counts use 64 bits and a file already past 4 GiB rotates on its
 *     next write;
 *   - a collector port must be all digits and at most 65535 (tnet_str2port), else the URL is
 *     malformed: it is never masked into another port.
 */
#ifndef WLOG_WLOG_H_
#define WLOG_WLOG_H_

#include <stdarg.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/time.h>
#include <time.h>

#include "vix/vix_metalib.h"
#include "wlog/wlog_bin.h"
#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"
#include "wlog/wlog_file.h"
#include "wlog/wlog_iovec.h"
#include "wlog/wlog_mem.h"
#include "wlog/wlog_net.h"
#include "wlog/wlog_term.h"
#include "wlog/wlog_vec.h"

#ifdef __cplusplus
extern "C" {
#endif

#if defined(__GNUC__)
#define WLOG_PRINTF_LIKE(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define WLOG_PRINTF_LIKE(fmt_index, first_arg)
#endif

/* Error codes. */
#define WLOG_ERROR_BASE 0x83020400u
#define WLOG_ERROR_NONE 0
#define WLOG_ERROR_FILE_OPEN 1
#define WLOG_ERROR_NET_CONN 2
#define WLOG_ERROR_LOOP 3
#define WLOG_ERRCODE(e) ((int)(WLOG_ERROR_BASE + (unsigned)(e)))

/* A short English text for a result code of this library, like strerror: 0 and
 * WLOG_ERRCODE(WLOG_ERROR_NONE) "none", -1 "bad argument or failure", WLOG_ERRCODE(e) the text of
 * error e, anything else "unknown wlog error". The text is static; never null. */
const char* wlog_error_string(int iCode);

/* Category flags (iFlag). */
#define WLOGCAT_FLAG_NONE 0
#define WLOGCAT_FALG_NONE_USE_GETTIMEOFDAY 1 /* use stCurr instead of the clock */

#define WLOG_HOST_NAME_LEN 128
#define WLOG_MODULE_NAME_LEN 128
#define WLOG_MSG_PREFIX_LEN 2048
#define WLOG_MSG_SUFIX_LEN 2048
#define WLOG_PRIORITY_COUNT 11

/* ---- appender dispatch ---- */

typedef union tagWLOGInstSelector {
  WLOGFILE stFile;
  WLOGNET stNet;
  WLOGVEC stVec;
  WLOGMEM stMem;
  WLOGTERM stTerm;
} WLOGINSTSELECTOR;

typedef struct tagWLogDevAnyInst {
  int iType;
  WLOGINSTSELECTOR stAny;
} WLOGDEVANYINST, *LPWLOGDEVANYINST;

/* Appender state built from a WLOGDEVANY (pstDev is not owned). */
typedef struct tagWLogAny {
  WLOGDEVANY* pstDev;
  WLOGDEVANYINST stInst;
} WLOGANY, *LPWLOGANY;

/* ---- events ---- */

typedef struct wlog_loc_info_t {
  const char* loc_file;
  int loc_line;
  const char* loc_function;
  void* loc_data; /* unused, null */
} wlog_loc_info_t;

/* One log call's event, filled by the caller (the macros below do it). */
typedef struct tagWlogEvent {
  int evt_priority;
  char* evt_msg; /* filled by the library with the category buffer for logv */
  int evt_msg_len;
  const wlog_loc_info_t* evt_loc;
  int evt_is_msg_binary;
  unsigned evt_id;
  unsigned evt_cls;
  int evt_type;
  int evt_version;
} WLOGEVENT, *LPWLOGEVENT;

typedef struct tagWlogBuffer {
  size_t buf_size;
  size_t buf_maxsize;
  char* buf_data;
} wlog_buffer_t;

/* Internal event built on the stack for every call: the written record is always the
 * pieces prefix, message, suffix. */
typedef struct tagWlogEventBase {
  const char* evt_category;
  int evt_priority;
  char* evt_msg;
  const char* evt_rendered_msg; /* unused */
  char* evt_hostName;
  char* evt_moduleName;
  wlog_buffer_t evt_buffer; /* unused */
  struct timeval evt_timestamp;
  const wlog_loc_info_t* evt_loc;
  int evt_is_msg_binary;
  int evt_msg_len;
  size_t evt_rendered_msg_len; /* unused */
  unsigned evt_id;
  unsigned evt_cls;
  int evt_type;
  int evt_version;
  char evt_msg_prefix_buffer[WLOG_MSG_PREFIX_LEN];
  int evt_msg_prefix_len;
  char evt_msg_sufix_buffer[WLOG_MSG_SUFIX_LEN];
  int evt_msg_sufix_len;
} wlog_event_base_t, WLOGEVENTBASE, *LPWLOGEVENTBASE;

/* ---- categories ---- */

/* Public view of a category instance. Only piPriorityHigh/piPriorityLow are filled: they
 * point at the context-wide bounds of the configuration. */
typedef struct tagWLogCategoryInst {
  char a_szName[WLOG_NAME_LEN];
  struct tagWLogCategoryInst* a_pstParent;
  struct tagWLogCategoryInst* a_pstForward;
  struct tagWLogCategoryInst* a_pstCloneParent;
  WLOGCATEGORY* a_pstCat;
  int a_iInited;
  int a_iSeq;
  int* piPriorityHigh;
  int* piPriorityLow;
} WLOGCATEGORYINST, *LPWLOGCATEGORYINST;

/* Compiled form of a layout pattern, private to the library: rebuilt whenever the pattern
 * text differs from szPattern; the rendered date is kept for one second value. */
#define WLOG_LAYOUT_MAX_OPS WLOG_FORMAT_LEN
typedef struct tagWlogLayoutOp {
  unsigned char chOp;  /* conversion character, or 0 for none */
  unsigned char chOff; /* literal text before it: offset into szPattern */
  unsigned char chLen; /* literal text before it: length */
} WLOGLAYOUTOP;

typedef struct tagWlogLayoutCache {
  int iValid;
  int iOps;
  int iPatternLen;
  int iExact; /* copy exactly, no block copies (patterns with more than one %m) */
  char szPattern[WLOG_FORMAT_LEN + 16]; /* the slack allows fixed-size block copies */
  WLOGLAYOUTOP astOps[WLOG_LAYOUT_MAX_OPS];
  int iDateValid;
  int iDateLen;
  time_t tDateSec;
  char szDate[32];
} WLOGLAYOUTCACHE;

/* Working state of a category; begins with the public view, so a public pointer is an
 * inner pointer. */
typedef struct tagWlogCategoryInnerInst {
  WLOGCATEGORYINST stCatInst;
  char szName[WLOG_NAME_LEN];
  struct tagWlogCategoryInnerInst* pstParent;
  struct tagWlogCategoryInnerInst* pstForward;
  struct tagWlogCategoryInnerInst* pstCloneParent;
  WLOGCATEGORY* pstCat;
  struct timeval stCurr;
  char* pszBuff; /* message buffer of pstCat->iMaxMsgSize bytes, owned */
  int iInited;
  int iSeq;
  intptr_t iIndex;
  WLOGANY stWlogAnyInst;
  int iFlag;
  WLOGLAYOUTCACHE stLayout; /* private */
} WLOGCATEGORYINNERINST, *LPWLOGCATEGORYINNERINST;

/* ---- context ---- */

typedef struct tagWLogConfInst {
  time_t tLastSync; /* unused */
  int iCount;       /* instances in use */
  WLOGCATEGORYINNERINST astCatInsts[WLOG_MAX_CATEGORY];
} WLOGCONFINST, *LPWLOGCONFINST;

typedef struct tagWLogCtx {
  char szHostName[WLOG_HOST_NAME_LEN];     /* default "0.0.0.0" */
  char szModuleName[WLOG_MODULE_NAME_LEN]; /* default "unknown" */
  WLOGCONF* pstConf;
  WLOGCONFINST stInst;
} WLOGCTX, *LPWLOGCTX;

typedef struct tagWlogCloneOption {
  const char* pszCategoryName;
  const char* pszPatternPrefix;
  const char* pszPatternSuffix;
} WLOGCLONEOPTION, *LPWLOGCLONEOPTION;

/* ---- priorities, filters, hex ---- */

/* Name of a priority ("FATAL" .. "UNKNOWN"); index = priority / 100, out of range "UNKNOWN". */
const char* wlog_priority_to_string(int iPriority);
/* Priority of a name (case-insensitive prefix match on the table); 1000 when none or null. */
int wlog_priority_to_int(const char* pszName);
/* Upper-case hex of iBin bytes into pszHex; null when 2 * iBin >= *piHex, else pszHex with
 * *piHex = 2 * iBin. */
char* WlogBin2Hex(const void* pvBin, size_t iBin, char* pszHex, size_t* piHex);

/* 1 when the filter passes the value. */
int wlogfilter_match_int(const INTFILTER* pstFilter, unsigned uValue);
/* 1 when both the id and the class filter pass. */
int wlogfilter_match(const WLOGFILTER* pstFilter, unsigned uId, unsigned uCls);
/* 1 when iCount is 0 or one of the first iCount filters matches; 0 when iCount < 0. */
int wlogfilter_match_vec(const WLOGFILTERVEC* pstVec, unsigned uId, unsigned uCls);

/* ---- the log call ---- */

/* 1 if some category on the forward chain of pstCat would accept the message, else 0. */
int wlog_category_can_write(WLOGCATEGORYINST* pstCat, int iPriority, unsigned uId, unsigned uCls);
int wlog_category_priority_check_chain(WLOGCATEGORYINNERINST* pstInst, int iPriority);
int wlog_category_filter_check_chain(WLOGCATEGORYINNERINST* pstInst, unsigned uId, unsigned uCls);

/* Formats a text message into the category buffer and logs it; -1 for null arguments, a
 * binary event, a missing buffer or a formatting failure, else 0. */
WLOG_MUST_CHECK int wlog_category_logv(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt,
                                       const char* pszFmt, ...) WLOG_PRINTF_LIKE(3, 4);
WLOG_MUST_CHECK int wlog_category_logv_va_list(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt,
                                               const char* pszFmt, va_list ap)
    WLOG_PRINTF_LIKE(3, 0);
/* Logs the message already in evt_msg/evt_msg_len (text or binary) to the forward chain. */
WLOG_MUST_CHECK int wlog_category_log(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt);
/* Logs the bytes of evt_msg/evt_msg_len as upper-case hexadecimal text. */
WLOG_MUST_CHECK int wlog_category_log_hex(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt);
/* Logs the record at pvData (iLen bytes), described by the vix meta pstMeta, as the text
 * vix_sprintf writes for cut-off version iVersion (0: the meta's current one; see vix_io.h),
 * printed into the category's message buffer with capacity iMaxMsgSize. evt_msg and evt_msg_len
 * receive the buffer and the printed length; the text is terminated at that length, or at index
 * iMaxMsgSize - 1 when the print filled the buffer (a record too long for it is logged cut
 * there, one that cannot be printed at all is logged as what was printed before the failure).
 * -1 for a null argument or a category without a buffer, else wlog_category_log's result. */
WLOG_MUST_CHECK int wlog_category_log_vix(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt,
                                          const VIXMETA* pstMeta, const void* pvData, intptr_t iLen,
                                          int iVersion);

WLOG_MUST_CHECK int wlog_category_set_priority(WLOGCATEGORYINST* pstCat, int iPriorityHigh,
                                               int iPriorityLow);
/* Copies at most 127 characters of the pattern into szFormat. */
WLOG_MUST_CHECK int wlog_category_set_format(WLOGCATEGORYINST* pstCat, const char* pszFormat);
/* All later events of the category carry a copy of *pstTime. */
WLOG_MUST_CHECK int wlog_category_set_time_ptr(WLOGCATEGORYINST* pstCat,
                                               const struct timeval* pstTime);
/* Network device: 0 last send succeeded, 1 failed. Vector: -1 if a network element's last
 * send failed, else 0. Other devices 0; null -1. */
WLOG_MUST_CHECK int wlog_query_net_category_status(WLOGCATEGORYINST* pstCat);

/* Renders the pattern for the event into its prefix and suffix buffers. */
void wlog_layout_format(WLOGEVENTBASE* pstEvt, const char* pszPattern);

/* ---- appender dispatch ---- */

WLOG_MUST_CHECK int wlogany_init(WLOGANY* pstAny, WLOGDEVANY* pstDev);
/* Hands a record of iCount pieces to the appender (iCount 0: a record of total length 0, which
 * writes nothing and gives the appender's flush result; -1 for a negative count). */
WLOG_MUST_CHECK int wlogany_writev(WLOGANY* pstAny, unsigned uId, unsigned uCls,
                                   const WLOGIOVEC* pstIOVec, int iCount);
WLOG_MUST_CHECK int wlogany_write(WLOGANY* pstAny, unsigned uId, unsigned uCls, const char* pszBuff,
                                  int iBuff);
/* Finalises the appender; always 0. */
int wlogany_fini(WLOGANY* pstAny);

/* ---- context ---- */

WLOGCTX* wlog_alloc(void);
/* Teardown, like free(): -1 only for a null (or already freed) context, so the result may be
 * ignored. */
int wlog_free(WLOGCTX** ppstCtx);
/* 0, -1 for a bad magic, an appender's error, or WLOG_ERRCODE(WLOG_ERROR_LOOP). */
WLOG_MUST_CHECK int wlog_init(WLOGCTX* pstCtx, WLOGCONF* pstConf);
/* Teardown: 0, or -1 for a null context; the result may be ignored. */
int wlog_fini(WLOGCTX* pstCtx);
WLOG_MUST_CHECK int wlog_reload(WLOGCTX* pstCtx, WLOGCONF* pstConf);
WLOGCATEGORYINST* wlog_get_category(WLOGCTX* pstCtx, const char* pszName);
WLOGCATEGORYINST* wlog_get_bill_category(WLOGCTX* pstCtx, const char* pszName);
WLOG_MUST_CHECK int wlog_get_category_size(WLOGCTX* pstCtx);
WLOGCATEGORYINST* wlog_get_category_by_index(WLOGCTX* pstCtx, int iIndex);
/* The file name pattern when the device is a file, else null. */
const char* wlog_get_category_pattern(WLOGCATEGORYINST* pstCat);
WLOGCTX* wlog_get_context(WLOGCATEGORYINST* pstCat);
WLOG_MUST_CHECK int wlog_set_host_name(WLOGCTX* pstCtx, const char* pszHostName);
WLOG_MUST_CHECK int wlog_set_module_name(WLOGCTX* pstCtx, const char* pszModuleName);
/* Links pstForward as the forward target and records its name in szForwardCat; refuses with
 * WLOG_ERRCODE(WLOG_ERROR_LOOP) a target whose chain leads back or reaches a memory device. */
WLOG_MUST_CHECK int wlog_set_category_forward(WLOGCATEGORYINST* pstCat,
                                              WLOGCATEGORYINST* pstForward);
/* 0 cloned, 1 name exists, -1 bad argument or appender failure, -2 context full, -3 no memory. */
WLOG_MUST_CHECK int wlog_clone_category(WLOGCATEGORYINST* pstParent, const char* pszChildName);
WLOG_MUST_CHECK int wlog_clone_category_i(WLOGCATEGORYINST* pstParent,
                                          const WLOGCLONEOPTION* pstOption);

/* Process-wide clock override in microseconds since the epoch: get returns the override when
 * one is set (> 0), else the current time (-1 if the clock cannot be read). set stores
 * seconds * 1000000 + microseconds atomically; a null pointer removes the override. */
int64_t wlog_get_current_time(void);
WLOG_MUST_CHECK int wlog_set_current_time(const struct timeval* pstTime);

/* ---- configuration metadata ---- */

/* The metadata library of the configuration (built from wlog_conf.vix): the meta "WLOGCONF"
 * and every record in it, with the configuration's element names (Name, PriorityHigh, ...,
 * Device.File.Pattern), the host layout of wlog_conf.h, the defaults ("default" for a
 * category's Name, WLOG_DEFAULT_FORMAT for its Format, WLOG_CONF_MAGIC for Magic, no priority
 * bound, ...) and the constants as macros, with macro groups for priorities, device and
 * terminal types. Linked in: never null, read-only, valid for the whole process. */
const VIXMETALIB* wlog_get_meta_data(void);

/* ---- configuration as text ----
 *
 * A configuration file is the text vix_sprintf prints for the meta WLOGCONF (see vix_io.h):
 *
 *   [WLOGCONF version="1"]:
 *     PriorityLow=WLOG_PRIORITY_DEBUG
 *     Count=1
 *     [CategoryList[0]]
 *       Name=zq
 *       [Device]
 *         Type=WLOG_DEV_FILE
 *         [Device]
 *           [File]
 *             Pattern=../log/zq.log
 *
 * Elements may be left out (the head line too): they take the defaults of the metadata, zero
 * where it gives none. Those present keep the order of the records; integers may be written
 * as numbers, macro names or macro expressions. */

/* Fills pstConf with the defaults of every element (a device's defaults apply once its Type is
 * set, so none here). -1 for null. */
WLOG_MUST_CHECK int wlog_conf_set_defaults(WLOGCONF* pstConf);

/* Reads the configuration file at pszPath into a new zeroed heap record (*ppstConf, released
 * with wlog_conf_free; about 20 MB) with the defaults of the elements the file leaves out.
 * Returns 0; -1 for a null ppstConf or path; a vix code (vix_error.h) otherwise, with
 * *ppstConf null: VIX_ERROR_OPEN_FILE_READ, VIX_ERROR_READ_FILE, VIX_ERROR_FILE_TOO_LARGE
 * (above 64 MiB), VIX_ERROR_NO_MEMORY, or the text reader's codes (VIX_ERROR_BAD_TEXT_INPUT,
 * VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT, VIX_ERROR_BAD_NUMBER, VIX_ERROR_STRING_TOO_LONG,
 * VIX_ERROR_REFER_SURPASS_COUNT, ...); a count (Count of the categories, a filter vector or a
 * vector device) outside its array gives VIX_ERROR_REFER_SURPASS_COUNT or
 * VIX_ERROR_MINUS_REFER_VALUE even when the file writes no element of the array. When pszError
 * is not null it receives (iError bytes, terminated) "path:LINE: what (error 0x...)" naming the
 * line and element, or "path: reason". */
WLOG_MUST_CHECK int wlog_conf_load(WLOGCONF** ppstConf, const char* pszPath, char* pszError,
                                   size_t iError);

/* Releases a record from wlog_conf_load and clears the pointer; null is ignored. */
void wlog_conf_free(WLOGCONF** ppstConf);

/* Writes the configuration to pszPath in the printed form wlog_conf_load reads (every element,
 * the categories up to iCount). 0; -1 for null; VIX_ERROR_OPEN_FILE_WRITE,
 * VIX_ERROR_WRITE_FILE or a vix_fprintf code (a Count outside 0..512:
 * VIX_ERROR_REFER_SURPASS_COUNT / VIX_ERROR_MINUS_REFER_VALUE). */
WLOG_MUST_CHECK int wlog_conf_save(const WLOGCONF* pstConf, const char* pszPath);

/* ---- bill log: a bill-mode file appender used without categories ---- */

/* -1 for null arguments or a size limit above 4,200,000,000 or an open failure. */
WLOG_MUST_CHECK int wlog_bill_init(WLOGFILE** ppstBill, uint64_t ullSizeLimit, int iPrecision,
                                   const char* pszPattern);
/* Writes "YYYYmmdd-HH:MM:SS | " + text + line feed (local time of wlog_get_current_time, so
 * the clock override applies); a line longer than 8192 bytes is cut there and still ends with
 * a line feed. */
WLOG_MUST_CHECK int wlog_bill_log(WLOGFILE* pstBill, const char* pszFmt, ...)
    WLOG_PRINTF_LIKE(2, 3);
/* Raw write of iBuff bytes: 0 or -1. iBuff 0 writes nothing and gives the flush result. */
WLOG_MUST_CHECK int wlog_bill_write(WLOGFILE* pstBill, const char* pszBuff, size_t iBuff);
WLOG_MUST_CHECK int wlog_bill_fini(WLOGFILE** ppstBill);

/* ---- caller macros ----
 * Skip when the category is null or the priority lies outside the context-wide bounds (tested
 * inline, before any argument is evaluated) or no category on the forward chain accepts it;
 * else log the printf-style message with the source file, line and function. */
#define WLOG_LOG(cat, prio, fmt, ...)                                                      \
  do {                                                                                     \
    WLOGCATEGORYINST* const wlog_cat_ = (cat);                                             \
    const int wlog_prio_ = (prio);                                                         \
    if (wlog_cat_ != NULL &&                                                               \
        !(wlog_cat_->piPriorityLow != NULL && *wlog_cat_->piPriorityLow != -1 &&           \
          *wlog_cat_->piPriorityLow < wlog_prio_) &&                                       \
        !(wlog_cat_->piPriorityHigh != NULL && *wlog_cat_->piPriorityHigh > wlog_prio_) && \
        wlog_category_can_write(wlog_cat_, wlog_prio_, 0, 0)) {                            \
      const wlog_loc_info_t wlog_loc_ = {__FILE__, __LINE__, __func__, NULL};              \
      WLOGEVENT wlog_evt_ = {wlog_prio_, NULL, 0, &wlog_loc_, 0, 0, 0, 0, 0};              \
      if (wlog_category_logv(wlog_cat_, &wlog_evt_, fmt, ##__VA_ARGS__) != 0) {            \
        /* a failed log call has no one to report to */                                    \
      }                                                                                    \
    }                                                                                      \
  } while (0)

#define WLOG_LOG_FATAL(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_FATAL, fmt, ##__VA_ARGS__)
#define WLOG_LOG_ALERT(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_ALERT, fmt, ##__VA_ARGS__)
#define WLOG_LOG_CRIT(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_CRIT, fmt, ##__VA_ARGS__)
#define WLOG_LOG_ERROR(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_ERROR, fmt, ##__VA_ARGS__)
#define WLOG_LOG_WARN(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_WARN, fmt, ##__VA_ARGS__)
#define WLOG_LOG_NOTICE(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_NOTICE, fmt, ##__VA_ARGS__)
#define WLOG_LOG_INFO(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_INFO, fmt, ##__VA_ARGS__)
#define WLOG_LOG_DEBUG(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_DEBUG, fmt, ##__VA_ARGS__)
#define WLOG_LOG_TRACE(cat, fmt, ...) WLOG_LOG(cat, WLOG_PRIORITY_TRACE, fmt, ##__VA_ARGS__)

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_H_ */
