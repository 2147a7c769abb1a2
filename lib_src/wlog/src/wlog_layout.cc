// Pattern layout: renders a category's pattern for one event into the event's prefix (text
// before %m) and suffix (text after %m) buffers. The message itself is never copied.
//
// Two renderers give byte-identical output:
// - wlog_layout_format walks the pattern and prints every conversion with snprintf;
// - wlog_layout_format_cached_i runs a per-category compiled form of the pattern (rebuilt
//   whenever the pattern text changes) and reuses the rendered date while the second stays
//   the same, which is what the category write uses.
// Both follow the same buffer rules: literal text is copied while room is left; a
// conversion whose text does not fit the remaining room is dropped whole; a buffer that
// fills up entirely has its last byte replaced by NUL.

#include <pthread.h>
#include <stdio.h>

#include <string.h>
#include <time.h>
#include <unistd.h>
#include <atomic>

#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

constexpr int kCap = WLOG_MSG_PREFIX_LEN;
static_assert(WLOG_MSG_PREFIX_LEN == WLOG_MSG_SUFIX_LEN, "prefix and suffix share one capacity");

const char kNil[] = "(nil)";

// Process id for %P without a system call per event: cached, and forgotten in the child of
// every fork() so that the child prints its own id.
std::atomic<int> g_pid{0};

void forget_pid() { g_pid.store(0, std::memory_order_relaxed); }

int current_pid() {
  int pid = g_pid.load(std::memory_order_relaxed);
  if (pid == 0) {
    static const int registered = pthread_atfork(nullptr, nullptr, forget_pid);
    (void)registered;
    pid = static_cast<int>(getpid());
    g_pid.store(pid, std::memory_order_relaxed);
  }
  return pid;
}

// Output cursor over the prefix and then the suffix buffer.
struct Out {
  WLOGEVENTBASE* evt;
  char* buf;
  int pos;
  bool in_prefix;
};

void switch_to_suffix(Out* o) {
  o->evt->evt_msg_prefix_len = o->pos;
  o->buf = o->evt->evt_msg_sufix_buffer;
  o->pos = 0;
  o->in_prefix = false;
}

void finish(Out* o) {
  int len = o->pos;
  if (len >= kCap) {
    o->buf[kCap - 1] = '\0';
    len = kCap;
  }
  if (o->in_prefix) {
    o->evt->evt_msg_prefix_len = len;
    o->evt->evt_msg_sufix_len = 0;
  } else {
    o->evt->evt_msg_sufix_len = len;
  }
}

const char* loc_file(const WLOGEVENTBASE* e) {
  return (e->evt_loc != nullptr && e->evt_loc->loc_file != nullptr) ? e->evt_loc->loc_file : kNil;
}
const char* loc_function(const WLOGEVENTBASE* e) {
  return (e->evt_loc != nullptr && e->evt_loc->loc_function != nullptr) ? e->evt_loc->loc_function
                                                                        : kNil;
}
int loc_line(const WLOGEVENTBASE* e) { return e->evt_loc != nullptr ? e->evt_loc->loc_line : 0; }
const char* str_or_empty(const char* s) { return s != nullptr ? s : ""; }

// The %d text of one second value; returns its length (0 when the time cannot be converted).
int render_date(time_t sec, char* out, size_t cap) {
  struct tm tm;
  if (localtime_r(&sec, &tm) == nullptr) return 0;
  const int r = snprintf(out, cap, "%04d%02d%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
                         tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
  return r < 0 ? 0 : r;
}

// ---- fast renderer helpers ----

// Decimal digits of v, written backwards ending at end; returns the start.
inline char* utoa_back(unsigned long v, char* end) {
  do {
    *--end = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  return end;
}

// "%-8s" of every priority name (all names are shorter than 8 characters).
const char* padded_priority(int prio) {
  static const char* const kPadded[WLOG_PRIORITY_COUNT] = {
      "FATAL   ", "ALERT   ", "CRIT    ", "ERROR   ", "WARN    ", "NOTICE  ",
      "INFO    ", "DEBUG   ", "TRACE   ", "NOTSET  ", "UNKNOWN "};
  const int idx = prio / 100;
  if (idx < 0 || idx >= WLOG_PRIORITY_COUNT) return kPadded[WLOG_PRIORITY_COUNT - 1];
  return kPadded[idx];
}

bool is_conversion(char c) {
  switch (c) {
    case 'C':
    case 'F':
    case 'M':
    case 'P':
    case 'U':
    case 'c':
    case 'd':
    case 'f':
    case 'h':
    case 'l':
    case 'm':
    case 'n':
    case 'p':
    case 't':
    case 'u':
      return true;
    default:
      return false;
  }
}

// Compiles a pattern of fewer than WLOG_FORMAT_LEN characters into the cache.
void compile(WLOGLAYOUTCACHE* c, const char* pattern, size_t len) {
  memset(c->szPattern, 0, sizeof(c->szPattern));
  memcpy(c->szPattern, pattern, len);
  c->iPatternLen = static_cast<int>(len);
  c->iOps = 0;
  int marks = 0;
  // Each op is the literal text before a conversion plus the conversion (0: literal only).
  size_t lit_off = 0;
  size_t lit_len = 0;
  auto emit = [&](unsigned char conv) {
    if (conv == 0 && lit_len == 0) return;
    WLOGLAYOUTOP& op = c->astOps[c->iOps++];
    op.chOp = conv;
    op.chOff = static_cast<unsigned char>(lit_off);
    op.chLen = static_cast<unsigned char>(lit_len);
    lit_len = 0;
  };
  size_t i = 0;
  while (i < len) {
    if (c->szPattern[i] != '%') {
      if (lit_len == 0) lit_off = i;
      ++lit_len;
      ++i;
      continue;
    }
    ++i;                  // the '%'
    if (i >= len) break;  // a trailing '%' is dropped
    const char conv = c->szPattern[i++];
    if (!is_conversion(conv)) {  // unknown conversions print nothing
      emit(0);                   // the literal text after it is not contiguous with the text before
      continue;
    }
    if (conv == 'm') ++marks;
    emit(static_cast<unsigned char>(conv));
  }
  emit(0);
  // A second %m makes the prefix length count bytes the walk never wrote: block copies, which
  // write past the text, must not change those bytes.
  c->iExact = marks > 1;
  c->iValid = 1;
}

}  // namespace

extern "C" {

void wlog_layout_format(WLOGEVENTBASE* pstEvt, const char* pszPattern) {
  if (pstEvt == nullptr) return;
  pstEvt->evt_msg_prefix_len = 0;
  pstEvt->evt_msg_sufix_len = 0;
  if (pszPattern == nullptr || pszPattern[0] == '\0') return;

  Out o{pstEvt, pstEvt->evt_msg_prefix_buffer, 0, true};
  const WLOGEVENTBASE* e = pstEvt;
  for (const char* p = pszPattern; *p != '\0' && o.pos < kCap; ++p) {
    if (*p != '%') {
      o.buf[o.pos++] = *p;
      continue;
    }
    ++p;
    if (*p == '\0') break;
    char* at = o.buf + o.pos;
    const size_t space = static_cast<size_t>(kCap - o.pos);
    int r = 0;
    switch (*p) {
      case 'C':
        r = snprintf(at, space, "%u", e->evt_cls);
        break;
      case 'F':
        r = snprintf(at, space, "%s", loc_function(e));
        break;
      case 'M':
        r = snprintf(at, space, "%s", str_or_empty(e->evt_moduleName));
        break;
      case 'P':
        r = snprintf(at, space, "%d", static_cast<int>(getpid()));
        break;
      case 'U':
        r = snprintf(at, space, "%u", e->evt_id);
        break;
      case 'c':
        r = snprintf(at, space, "%s", str_or_empty(e->evt_category));
        break;
      case 'd': {
        char date[64];
        const int n = render_date(e->evt_timestamp.tv_sec, date, sizeof(date));
        r = n > 0 ? snprintf(at, space, "%s", date) : 0;
        break;
      }
      case 'f':
        r = snprintf(at, space, "%s", loc_file(e));
        break;
      case 'h':
        r = snprintf(at, space, "%s", str_or_empty(e->evt_hostName));
        break;
      case 'l':
        r = snprintf(at, space, "%d", loc_line(e));
        break;
      case 'm':
        switch_to_suffix(&o);
        continue;
      case 'n':
        r = snprintf(at, space, "\n");
        break;
      case 'p':
        r = snprintf(at, space, "%-8s", wlog_priority_to_string(e->evt_priority));
        break;
      case 't':
        r = snprintf(at, space, "%lu", static_cast<unsigned long>(pthread_self()));
        break;
      case 'u':
        r = snprintf(at, space, "%06d", static_cast<int>(e->evt_timestamp.tv_usec));
        break;
      default:
        break;  // dropped together with the '%'
    }
    if (r > 0 && static_cast<size_t>(r) <= space) o.pos += r;
  }
  finish(&o);
}

}  // extern "C"

void wlog_layout_format_cached_i(WLOGLAYOUTCACHE* pstCache, WLOGEVENTBASE* pstEvt,
                                 const char* pszPattern) {
  if (pstCache == nullptr || pstEvt == nullptr) {
    wlog_layout_format(pstEvt, pszPattern);
    return;
  }
  pstEvt->evt_msg_prefix_len = 0;
  pstEvt->evt_msg_sufix_len = 0;
  if (pszPattern == nullptr || pszPattern[0] == '\0') return;

  if (!pstCache->iValid || strcmp(pstCache->szPattern, pszPattern) != 0) {
    const size_t len = strnlen(pszPattern, WLOG_FORMAT_LEN);
    if (len >= WLOG_FORMAT_LEN) {  // longer than any configured pattern: no compiled form
      pstCache->iValid = 0;
      wlog_layout_format(pstEvt, pszPattern);
      return;
    }
    compile(pstCache, pszPattern, len);
  }

  WLOGEVENTBASE* e = pstEvt;
  char* buf = e->evt_msg_prefix_buffer;
  int pos = 0;
  bool in_prefix = true;
  const bool exact = pstCache->iExact != 0;

  // One conversion of r bytes: dropped whole when it does not fit.
  auto put = [&](const char* text, size_t r) {
    if (r != 0 && r <= static_cast<size_t>(kCap - pos)) {
      memcpy(buf + pos, text, r);
      pos += static_cast<int>(r);
    }
  };
  auto put_str = [&](const char* s) { put(s, strlen(s)); };
  auto put_number = [&](unsigned long mag, bool negative) {
    char tmp[24];
    char* end = tmp + sizeof(tmp);
    char* p = utoa_back(mag, end);
    if (negative) *--p = '-';
    put(p, static_cast<size_t>(end - p));
  };

  const WLOGLAYOUTOP* op = pstCache->astOps;
  const WLOGLAYOUTOP* const ops_end = op + pstCache->iOps;
  for (; op != ops_end && pos < kCap; ++op) {
    if (op->chLen != 0) {  // literal text: copied as far as it fits
      const size_t n = op->chLen;
      const char* src = pstCache->szPattern + op->chOff;
      if (n <= 16 && pos + 16 <= kCap && !exact) {
        memcpy(buf + pos, src, 16);  // the pattern's slack keeps this read in bounds
        pos += static_cast<int>(n);
      } else {
        const size_t room = static_cast<size_t>(kCap - pos);
        const size_t k = n < room ? n : room;
        memcpy(buf + pos, src, k);
        pos += static_cast<int>(k);
      }
      // A full buffer ends the walk before the conversion: a %m there must not switch.
      if (pos >= kCap) break;
    }
    switch (op->chOp) {
      case 0:
        break;
      case 'C':
        put_number(e->evt_cls, false);
        break;
      case 'F':
        put_str(loc_function(e));
        break;
      case 'M':
        put_str(str_or_empty(e->evt_moduleName));
        break;
      case 'P': {
        const int pid = current_pid();
        put_number(
            pid < 0 ? 0UL - static_cast<unsigned long>(pid) : static_cast<unsigned long>(pid),
            pid < 0);
        break;
      }
      case 'U':
        put_number(e->evt_id, false);
        break;
      case 'c':
        put_str(str_or_empty(e->evt_category));
        break;
      case 'd': {
        const time_t sec = e->evt_timestamp.tv_sec;
        if (!pstCache->iDateValid || pstCache->tDateSec != sec) {
          pstCache->iDateLen = render_date(sec, pstCache->szDate, sizeof(pstCache->szDate));
          if (pstCache->iDateLen >= static_cast<int>(sizeof(pstCache->szDate))) {
            pstCache->iDateLen = 0;  // cannot happen for real years; print nothing
          }
          pstCache->tDateSec = sec;
          pstCache->iDateValid = 1;
        }
        const int n = pstCache->iDateLen;
        if (n > 0 && pos + static_cast<int>(sizeof(pstCache->szDate)) <= kCap && !exact) {
          memcpy(buf + pos, pstCache->szDate, sizeof(pstCache->szDate));
          pos += n;
        } else {
          put(pstCache->szDate, static_cast<size_t>(n));
        }
        break;
      }
      case 'f':
        put_str(loc_file(e));
        break;
      case 'h':
        put_str(str_or_empty(e->evt_hostName));
        break;
      case 'l': {
        const int line = loc_line(e);
        put_number(line < 0 ? 0UL - static_cast<unsigned long>(static_cast<long>(line))
                            : static_cast<unsigned long>(line),
                   line < 0);
        break;
      }
      case 'm':
        e->evt_msg_prefix_len = pos;
        buf = e->evt_msg_sufix_buffer;
        pos = 0;
        in_prefix = false;
        break;
      case 'n':
        put("\n", 1);
        break;
      case 'p':
        if (pos + 8 <= kCap) {
          memcpy(buf + pos, padded_priority(e->evt_priority), 8);
          pos += 8;
        }
        break;
      case 't':
        put_number(static_cast<unsigned long>(pthread_self()), false);
        break;
      case 'u': {
        const long usec = static_cast<long>(e->evt_timestamp.tv_usec);
        if (usec >= 0 && usec <= 999999) {
          if (pos + 6 <= kCap) {
            unsigned long v = static_cast<unsigned long>(usec);
            for (int i = 5; i >= 0; --i) {
              buf[pos + i] = static_cast<char>('0' + v % 10);
              v /= 10;
            }
            pos += 6;
          }
        } else {
          char tmp[24];
          const int r = snprintf(tmp, sizeof(tmp), "%06d", static_cast<int>(usec));
          if (r > 0) put(tmp, static_cast<size_t>(r));
        }
        break;
      }
      default:
        break;
    }
  }
  Out o{e, buf, pos, in_prefix};
  finish(&o);
}
