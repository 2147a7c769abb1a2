// Categories and the log call: priority windows, id/class filters, the forward chain, the
// parent dispatch, message formatting into the category buffer and the category write.

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>
#include <sys/time.h>

#include "vix/vix_io.h"
#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

// Forward chains are checked for loops by wlog_init and wlog_set_category_forward; walks are
// still bounded so that a chain damaged by direct writes cannot hang the caller.
constexpr int kMaxChain = WLOG_MAX_CATEGORY + 1;

inline WLOGCATEGORYINNERINST* inner_of(WLOGCATEGORYINST* pstCat) {
  return reinterpret_cast<WLOGCATEGORYINNERINST*>(pstCat);
}

inline bool in_window(const WLOGCATEGORY* cat, int prio) {
  if (cat->iPriorityHigh != -1 && cat->iPriorityHigh > prio) return false;
  if (cat->iPriorityLow != -1 && prio > cat->iPriorityLow) return false;
  return true;
}

inline bool window_accepts(const WLOGCATEGORYINNERINST* c, int prio) {
  return c->pstCat != nullptr && c->pstCat->stDevice.iType != WLOG_DEV_NO &&
         in_window(c->pstCat, prio);
}

// Filter half of can_write: an empty (or negative) count accepts.
inline bool can_write_filter(const WLOGCATEGORYINNERINST* c, unsigned id, unsigned cls) {
  return c->pstCat != nullptr &&
         (c->pstCat->stFilter.iCount < 1 || wlogfilter_match_vec(&c->pstCat->stFilter, id, cls));
}

// Initialises the category's appender on first use; false when that fails.
bool ensure_inited(WLOGCATEGORYINNERINST* a) {
  if (a->iInited) return true;
  if (wlogany_init(&a->stWlogAnyInst, &a->pstCat->stDevice) < 0) return false;
  a->iInited = 1;
  return true;
}

// The buffer a log call formats into, with its size in *max: a slot of the device when it
// frames its own records and has room, else the category buffer; null when the category has no
// configuration, no buffer or a size below 1.
char* message_buffer(WLOGCATEGORYINNERINST* c, int* max) {
  if (c->pstCat == nullptr) return nullptr;
  *max = c->pstCat->iMaxMsgSize;
  if (*max < 1) return nullptr;
  const WLOGANYOPS* ops = wlogany_find_ops_i(c->pstCat->stDevice.iType);
  char* slot = nullptr;
  if (ops != nullptr && ops->pfnGetSlot != nullptr && ensure_inited(c) &&
      ops->pfnGetSlot(&c->stWlogAnyInst, *max, &slot) == 0) {
    return slot;
  }
  return c->pszBuff;
}

// Hands the record to one category's appender (initialising it on first use).
int append(WLOGCATEGORYINNERINST* a, WLOGEVENTBASE* e) {
  if (!window_accepts(a, e->evt_priority)) return 0;
  if (!ensure_inited(a)) return -1;
  const WLOGANYOPS* ops = wlogany_find_ops_i(a->stWlogAnyInst.stInst.iType);
  if (ops != nullptr && ops->pfnMakeFrame != nullptr)
    return ops->pfnMakeFrame(&a->stWlogAnyInst, e);
  const size_t msg_len = e->evt_msg_len > 0 ? static_cast<size_t>(e->evt_msg_len) : 0;
  const size_t pre_len = e->evt_msg_prefix_len > 0 ? static_cast<size_t>(e->evt_msg_prefix_len) : 0;
  const size_t suf_len = e->evt_msg_sufix_len > 0 ? static_cast<size_t>(e->evt_msg_sufix_len) : 0;
  const size_t total = pre_len + msg_len + suf_len;
  if (ops != nullptr && ops->iJoinPieces && total <= WLOG_JOIN_PIECES_MAX) {
    // A byte-stream device gets a short record as one piece: one call into stdio, not three.
    // It is assembled behind the prefix in the prefix buffer when it fits there (the prefix
    // itself stays as it is for the next category of the chain), else on the stack.
    char joined[WLOG_JOIN_PIECES_MAX];
    char* rec = e->evt_msg_prefix_buffer;
    if (total > sizeof(e->evt_msg_prefix_buffer)) {
      rec = joined;
      memcpy(rec, e->evt_msg_prefix_buffer, pre_len);
    }
    if (msg_len > 0) memcpy(rec + pre_len, e->evt_msg, msg_len);
    memcpy(rec + pre_len + msg_len, e->evt_msg_sufix_buffer, suf_len);
    WLOGIOVEC one;
    one.iov_base = rec;
    one.iov_len = total;
    return wlogany_writev(&a->stWlogAnyInst, e->evt_id, e->evt_cls, &one, 1);
  }
  WLOGIOVEC vec[3];
  int n = 0;
  if (e->evt_msg_prefix_len > 0) {
    vec[n].iov_base = e->evt_msg_prefix_buffer;
    vec[n++].iov_len = static_cast<size_t>(e->evt_msg_prefix_len);
  }
  vec[n].iov_base = e->evt_msg;
  vec[n++].iov_len = e->evt_msg_len > 0 ? static_cast<size_t>(e->evt_msg_len) : 0;
  if (e->evt_msg_sufix_len > 0) {
    vec[n].iov_base = e->evt_msg_sufix_buffer;
    vec[n++].iov_len = static_cast<size_t>(e->evt_msg_sufix_len);
  }
  return wlogany_writev(&a->stWlogAnyInst, e->evt_id, e->evt_cls, vec, n);
}

void build_binary_head(WLOGCATEGORYINNERINST* c, WLOGEVENTBASE* e) {
  WLOGBINHEAD head;
  head.chVer = WLOGBIN_VER;
  head.chMagic = WLOGBIN_MAGIC;
  head.chCmd = 0;
  head.chHeadLen = WLOGBIN_HEAD_LEN;
  head.iBodyLen = e->evt_msg_len;
  head.stTime.iSec = static_cast<int32_t>(e->evt_timestamp.tv_sec);
  head.stTime.iUsec = static_cast<int32_t>(e->evt_timestamp.tv_usec);
  head.iSeq = ++c->iSeq;
  head.dwID = e->evt_id;
  head.dwCls = e->evt_cls;
  head.iType = e->evt_type;
  head.iBodyVer = e->evt_version;
  head.iCheckSum = 0;
  e->evt_msg_prefix_len =
      wlogbin_hton_head(e->evt_msg_prefix_buffer, sizeof(e->evt_msg_prefix_buffer), &head);
}

void layout(WLOGCATEGORYINNERINST* c, WLOGEVENTBASE* e, const WLOGANYOPS* ops);

// The category write on one category of the forward chain.
int log_in(WLOGCATEGORYINNERINST* c, WLOGEVENTBASE* e) {
  WLOGCATEGORY* cat = c->pstCat;
  if (cat == nullptr || cat->stDevice.iType == WLOG_DEV_NO || !in_window(cat, e->evt_priority) ||
      !wlogfilter_match_vec(&cat->stFilter, e->evt_id, e->evt_cls)) {
    return 0;
  }
  if (c->iFlag & WLOGCAT_FALG_NONE_USE_GETTIMEOFDAY) {
    e->evt_timestamp = c->stCurr;
  } else {
    gettimeofday(&e->evt_timestamp, nullptr);
  }
  e->evt_msg_prefix_len = 0;
  e->evt_msg_sufix_len = 0;

  e->evt_category = cat->szName;
  WLOGCTX* ctx = wlog_get_context_i(c);
  e->evt_hostName = ctx->szHostName;
  e->evt_moduleName = ctx->szModuleName;

  const WLOGANYOPS* ops = wlogany_find_ops_i(cat->stDevice.iType);
  // A device that frames its records itself gets the message alone (text or binary).
  if (ops == nullptr || ops->pfnMakeFrame == nullptr) layout(c, e, ops);
  int ret = append(c, e);
  WLOGCATEGORYINNERINST* a = c;
  for (int guard = 0; guard < kMaxChain && a->pstCat != nullptr && a->pstCat->iLevelDispatch &&
                      a->pstParent != nullptr;
       ++guard) {
    a = a->pstParent;
    ret = append(a, e);
  }
  return ret;
}

// Binary head or layout into the event's prefix and suffix.
void layout(WLOGCATEGORYINNERINST* c, WLOGEVENTBASE* e, const WLOGANYOPS* ops) {
  WLOGCATEGORY* cat = c->pstCat;
  if (e->evt_is_msg_binary) {
    if (ops == nullptr || ops->pfnDropsBinaryHead == nullptr ||
        !ops->pfnDropsBinaryHead(&cat->stDevice)) {
      build_binary_head(c, e);
    }
  } else if (cat->szFormat[0] != '\0') {
    wlog_layout_format_cached_i(&c->stLayout, e, cat->szFormat);
  }
}

void event_base_from(WLOGEVENTBASE* b, const WLOGEVENT* e) {
  b->evt_category = nullptr;
  b->evt_priority = e->evt_priority;
  b->evt_msg = e->evt_msg;
  b->evt_rendered_msg = nullptr;
  b->evt_hostName = nullptr;
  b->evt_moduleName = nullptr;
  b->evt_buffer.buf_size = 0;
  b->evt_buffer.buf_maxsize = 0;
  b->evt_buffer.buf_data = nullptr;
  b->evt_timestamp.tv_sec = 0;
  b->evt_timestamp.tv_usec = 0;
  b->evt_loc = e->evt_loc;
  b->evt_is_msg_binary = e->evt_is_msg_binary;
  b->evt_msg_len = e->evt_msg_len;
  b->evt_rendered_msg_len = 0;
  b->evt_id = e->evt_id;
  b->evt_cls = e->evt_cls;
  b->evt_type = e->evt_type;
  b->evt_version = e->evt_version;
  b->evt_msg_prefix_len = 0;
  b->evt_msg_sufix_len = 0;
}

// Runs the category write along the forward chain; returns the last write's result.
int log_chain(WLOGCATEGORYINNERINST* c, WLOGEVENTBASE* b) {
  int ret = 0;
  for (int guard = 0; c != nullptr && guard < kMaxChain; c = c->pstForward, ++guard) {
    ret = log_in(c, b);
  }
  return ret;
}

}  // namespace

extern "C" {

int wlog_category_can_write(WLOGCATEGORYINST* pstCat, int iPriority, unsigned uId, unsigned uCls) {
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  for (int guard = 0; c != nullptr && guard < kMaxChain; c = c->pstForward, ++guard) {
    if (window_accepts(c, iPriority) && can_write_filter(c, uId, uCls)) return 1;
  }
  return 0;
}

int wlog_category_priority_check_chain(WLOGCATEGORYINNERINST* pstInst, int iPriority) {
  WLOGCATEGORYINNERINST* c = pstInst;
  for (int guard = 0; c != nullptr && guard < kMaxChain; c = c->pstForward, ++guard) {
    if (window_accepts(c, iPriority)) return 1;
  }
  return 0;
}

int wlog_category_filter_check_chain(WLOGCATEGORYINNERINST* pstInst, unsigned uId, unsigned uCls) {
  WLOGCATEGORYINNERINST* c = pstInst;
  for (int guard = 0; c != nullptr && guard < kMaxChain; c = c->pstForward, ++guard) {
    if (can_write_filter(c, uId, uCls)) return 1;
  }
  return 0;
}

int wlog_category_logv(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt, const char* pszFmt, ...) {
  va_list ap;
  va_start(ap, pszFmt);
  const int ret = wlog_category_logv_va_list(pstCat, pstEvt, pszFmt, ap);
  va_end(ap);
  return ret;
}

int wlog_category_logv_va_list(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt, const char* pszFmt,
                               va_list ap) {
  if (pstCat == nullptr || pstEvt == nullptr || pszFmt == nullptr || pstEvt->evt_is_msg_binary) {
    return -1;
  }
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  int max = 0;
  char* buf = message_buffer(c, &max);
  if (buf == nullptr) return -1;
  pstEvt->evt_msg = buf;
  pstEvt->evt_msg_len = max;

  errno = 0;
  const int n = vsnprintf(buf, static_cast<size_t>(max), pszFmt, ap);
  if (n < 0) return -1;
  if (n >= max) {
    // Truncated: the last kept character gives way to a NUL that the length counts.
    pstEvt->evt_msg_len = max - 1;
    if (max >= 2) buf[max - 2] = '\0';
  } else {
    pstEvt->evt_msg_len = n;
  }
  return wlog_category_log(pstCat, pstEvt);
}

int wlog_category_log(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt) {
  if (pstCat == nullptr || pstEvt == nullptr || pstEvt->evt_msg == nullptr ||
      pstEvt->evt_msg_len < 0) {
    return -1;
  }
  WLOGEVENTBASE base;
  event_base_from(&base, pstEvt);
  (void)log_chain(inner_of(pstCat), &base);
  return 0;
}

int wlog_category_log_hex(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt) {
  if (pstCat == nullptr || pstEvt == nullptr || pstEvt->evt_msg_len < 0 ||
      (pstEvt->evt_msg == nullptr && pstEvt->evt_msg_len > 0)) {
    return -1;
  }
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  int max = 0;
  char* buf = message_buffer(c, &max);
  if (buf == nullptr) return -1;

  size_t len = static_cast<size_t>(pstEvt->evt_msg_len);
  if (2 * len > static_cast<size_t>(max)) len = static_cast<size_t>(max > 2 ? (max - 2) / 2 : 0);
  size_t hex_len = static_cast<size_t>(max);
  // A refused conversion (2 * len == max) leaves the buffer as it was and logs it whole.
  (void)WlogBin2Hex(pstEvt->evt_msg != nullptr ? pstEvt->evt_msg : buf, len, buf, &hex_len);

  WLOGEVENTBASE base;
  event_base_from(&base, pstEvt);
  base.evt_msg = buf;
  base.evt_msg_len = static_cast<int>(hex_len);
  base.evt_is_msg_binary = 0;
  return log_chain(c, &base);
}

int wlog_category_log_vix(WLOGCATEGORYINST* pstCat, WLOGEVENT* pstEvt, const VIXMETA* pstMeta,
                          const void* pvData, intptr_t iLen, int iVersion) {
  if (pstCat == nullptr || pstEvt == nullptr || pstMeta == nullptr || pvData == nullptr) {
    return -1;
  }
  int max = 0;
  char* buf = message_buffer(inner_of(pstCat), &max);
  if (buf == nullptr) return -1;
  VIXDATA out = {buf, static_cast<uint64_t>(max)};
  VIXDATA host = {static_cast<char*>(const_cast<void*>(pvData)),
                  iLen > 0 ? static_cast<uint64_t>(iLen) : 0};
  if (vix_sprintf(pstMeta, &out, &host, iVersion) != 0) {
    // Logged all the same: a record longer than the buffer is cut at its end, and any other
    // failure leaves the text printed before it (vix_get_error_detail tells why).
  }
  const int len = static_cast<int>(out.iBuff);
  buf[len < max ? len : max - 1] = '\0';
  pstEvt->evt_msg = buf;
  pstEvt->evt_msg_len = len;
  return wlog_category_log(pstCat, pstEvt);
}

int wlog_category_set_priority(WLOGCATEGORYINST* pstCat, int iPriorityHigh, int iPriorityLow) {
  if (pstCat == nullptr || inner_of(pstCat)->pstCat == nullptr) return -1;
  WLOGCATEGORY* cat = inner_of(pstCat)->pstCat;
  cat->iPriorityHigh = iPriorityHigh;
  cat->iPriorityLow = iPriorityLow;
  return 0;
}

int wlog_category_set_format(WLOGCATEGORYINST* pstCat, const char* pszFormat) {
  if (pstCat == nullptr || pszFormat == nullptr || inner_of(pstCat)->pstCat == nullptr) return -1;
  WLOGCATEGORY* cat = inner_of(pstCat)->pstCat;
  strncpy(cat->szFormat, pszFormat, sizeof(cat->szFormat) - 1);
  cat->szFormat[sizeof(cat->szFormat) - 1] = '\0';
  return 0;
}

int wlog_category_set_time_ptr(WLOGCATEGORYINST* pstCat, const struct timeval* pstTime) {
  if (pstCat == nullptr || pstTime == nullptr) return -1;
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  c->stCurr = *pstTime;
  c->iFlag |= WLOGCAT_FALG_NONE_USE_GETTIMEOFDAY;
  return 0;
}

int wlog_query_net_category_status(WLOGCATEGORYINST* pstCat) {
  if (pstCat == nullptr) return -1;
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  if (c->pstCat == nullptr) return -1;
  const WLOGANYOPS* ops = wlogany_find_ops_i(c->pstCat->stDevice.iType);
  if (ops == nullptr || ops->pfnQueryStatus == nullptr) return 0;
  return ops->pfnQueryStatus(&c->stWlogAnyInst);
}

}  // extern "C"
