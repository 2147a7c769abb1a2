// Pattern layout: renders a category's pattern for one event into the event's prefix (text
// before %m) and suffix (text after %m) buffers. The message itself is never copied.
//
// One engine: a pattern is compiled into a list of operations (literal text followed by at most
// one conversion) and only that compiled form is rendered. A category keeps its compiled form
// (rebuilt when the pattern text changes) with the date text of the last second it rendered;
// wlog_layout_format compiles on the stack for one call, in pieces when the pattern is longer
// than a configured one can be.
//
// Buffer rules: literal text is copied while room is left; a conversion whose text does not
// fit the remaining room is dropped whole; a buffer that fills up entirely has its last byte
// replaced by NUL and stops the walk.

#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

constexpr int kCap = WLOG_MSG_PREFIX_LEN;
static_assert(WLOG_MSG_PREFIX_LEN == WLOG_MSG_SUFIX_LEN, "prefix and suffix share one capacity");
// Literal text is copied in blocks of this size when the buffer has room for a whole block;
// the compiled pattern keeps as many bytes of slack after its text.
constexpr int kBlock = 16;
static_assert(sizeof(((WLOGLAYOUTCACHE*)nullptr)->szPattern) >= WLOG_FORMAT_LEN + kBlock,
              "block copies of literal text stay inside the compiled pattern");
// The longest pattern compiled in one piece: a configured szFormat field, terminated or not.
constexpr size_t kMaxPiece = WLOG_FORMAT_LEN;
static_assert(kMaxPiece <= 255, "literal offsets and lengths fit one byte");
static_assert(WLOG_LAYOUT_MAX_OPS >= kMaxPiece / 2 + 1, "one operation per two characters");

const char kNil[] = "(nil)";

// Output position over the prefix and then the suffix buffer.
struct Cursor {
  char* buf;
  int pos;
  bool in_prefix;
};

bool is_conversion(char c) { return c != '\0' && strchr("CFMPUcdfhlmnptu", c) != nullptr; }

// Compiles len (at most kMaxPiece) characters of pattern into c. Each operation is the literal
// text before a conversion plus the conversion (0: literal only); an unknown conversion and a
// trailing '%' print nothing.
void compile(WLOGLAYOUTCACHE* c, const char* pattern, size_t len) {
  memset(c->szPattern, 0, sizeof(c->szPattern));
  memcpy(c->szPattern, pattern, len);
  c->iPatternLen = static_cast<int>(len);
  c->iOps = 0;
  c->iDateValid = 0;
  int marks = 0;
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

const char* loc_file(const WLOGEVENTBASE* e) {
  return (e->evt_loc != nullptr && e->evt_loc->loc_file != nullptr) ? e->evt_loc->loc_file : kNil;
}
const char* loc_function(const WLOGEVENTBASE* e) {
  return (e->evt_loc != nullptr && e->evt_loc->loc_function != nullptr) ? e->evt_loc->loc_function
                                                                        : kNil;
}
int loc_line(const WLOGEVENTBASE* e) { return e->evt_loc != nullptr ? e->evt_loc->loc_line : 0; }
const char* str_or_empty(const char* s) { return s != nullptr ? s : ""; }

// The %d text of one second value; its length, 0 when the time cannot be converted.
int render_date(time_t sec, char* out, size_t cap) {
  struct tm tm;
  if (localtime_r(&sec, &tm) == nullptr) return 0;
  const int r = snprintf(out, cap, "%04d%02d%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
                         tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
  return r < 0 || r >= static_cast<int>(cap) ? 0 : r;  // too long: cannot happen for real years
}

// Decimal digits of v, written backwards ending at end; returns the start.
inline char* utoa_back(unsigned long v, char* end) {
  do {
    *--end = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v != 0);
  return end;
}

// Renders the compiled pattern c for e from the cursor on; false once the buffer in use is full
// (the walk ends there).
bool render(WLOGLAYOUTCACHE* c, WLOGEVENTBASE* e, Cursor* cur) {
  char* buf = cur->buf;
  int pos = cur->pos;
  const bool exact = c->iExact != 0;

  // One conversion of r bytes: dropped whole when it does not fit.
  auto put = [&](const char* text, size_t r) {
    if (r != 0 && r <= static_cast<size_t>(kCap - pos)) {
      memcpy(buf + pos, text, r);
      pos += static_cast<int>(r);
    }
  };
  auto put_str = [&](const char* s) { put(s, strlen(s)); };
  auto put_signed = [&](long v) {
    char tmp[24];
    char* end = tmp + sizeof(tmp);
    char* p =
        utoa_back(v < 0 ? 0UL - static_cast<unsigned long>(v) : static_cast<unsigned long>(v), end);
    if (v < 0) *--p = '-';
    put(p, static_cast<size_t>(end - p));
  };
  auto put_unsigned = [&](unsigned long v) {
    char tmp[24];
    char* end = tmp + sizeof(tmp);
    char* p = utoa_back(v, end);
    put(p, static_cast<size_t>(end - p));
  };

  bool room = true;
  const WLOGLAYOUTOP* op = c->astOps;
  const WLOGLAYOUTOP* const ops_end = op + c->iOps;
  for (; op != ops_end; ++op) {
    if (pos >= kCap) {
      room = false;
      break;
    }
    if (op->chLen != 0) {  // literal text: copied as far as it fits
      const size_t n = op->chLen;
      const char* src = c->szPattern + op->chOff;
      if (n <= kBlock && pos + kBlock <= kCap && !exact) {
        memcpy(buf + pos, src, kBlock);  // the pattern's slack keeps this read in bounds
        pos += static_cast<int>(n);
      } else {
        const size_t space = static_cast<size_t>(kCap - pos);
        const size_t k = n < space ? n : space;
        memcpy(buf + pos, src, k);
        pos += static_cast<int>(k);
      }
      // A full buffer ends the walk before the conversion: a %m there must not switch.
      if (pos >= kCap) {
        room = false;
        break;
      }
    }
    switch (op->chOp) {
      case 'C':
        put_unsigned(e->evt_cls);
        break;
      case 'F':
        put_str(loc_function(e));
        break;
      case 'M':
        put_str(str_or_empty(e->evt_moduleName));
        break;
      case 'P':
        put_signed(static_cast<long>(getpid()));
        break;
      case 'U':
        put_unsigned(e->evt_id);
        break;
      case 'c':
        put_str(str_or_empty(e->evt_category));
        break;
      case 'd': {
        const time_t sec = e->evt_timestamp.tv_sec;
        if (!c->iDateValid || c->tDateSec != sec) {
          c->iDateLen = render_date(sec, c->szDate, sizeof(c->szDate));
          c->tDateSec = sec;
          c->iDateValid = 1;
        }
        const int n = c->iDateLen;
        if (n > 0 && pos + static_cast<int>(sizeof(c->szDate)) <= kCap && !exact) {
          memcpy(buf + pos, c->szDate, sizeof(c->szDate));
          pos += n;
        } else {
          put(c->szDate, static_cast<size_t>(n));
        }
        break;
      }
      case 'f':
        put_str(loc_file(e));
        break;
      case 'h':
        put_str(str_or_empty(e->evt_hostName));
        break;
      case 'l':
        put_signed(loc_line(e));
        break;
      case 'm':
        e->evt_msg_prefix_len = pos;
        buf = e->evt_msg_sufix_buffer;
        pos = 0;
        cur->in_prefix = false;
        break;
      case 'n':
        put("\n", 1);
        break;
      case 'p':  // the name left-aligned in WLOG_PRIORITY_PAD columns
        if (pos + WLOG_PRIORITY_PAD <= kCap) {
          const WLOGPRIORITYNAME* name = wlog_priority_name_i(e->evt_priority);
          memset(buf + pos, ' ', WLOG_PRIORITY_PAD);
          memcpy(buf + pos, name->szName, static_cast<size_t>(name->iLen));
          pos += WLOG_PRIORITY_PAD;
        }
        break;
      case 't':
        put_unsigned(static_cast<unsigned long>(pthread_self()));
        break;
      case 'u': {
        const long usec = static_cast<long>(e->evt_timestamp.tv_usec);
        if (usec >= 0 && usec <= 999999) {  // always 6 digits
          if (pos + 6 <= kCap) {
            unsigned long v = static_cast<unsigned long>(usec);
            for (int i = 5; i >= 0; --i) {
              buf[pos + i] = static_cast<char>('0' + v % 10);
              v /= 10;
            }
            pos += 6;
          }
        } else {  // out of range: as "%06d" prints it
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
  cur->buf = buf;
  cur->pos = pos;
  return room && pos < kCap;
}

// Sets the length of the buffer in use; a full buffer gets a NUL in its last byte.
void finish(WLOGEVENTBASE* e, Cursor* cur) {
  int len = cur->pos;
  if (len >= kCap) {
    cur->buf[kCap - 1] = '\0';
    len = kCap;
  }
  if (cur->in_prefix) {
    e->evt_msg_prefix_len = len;
    e->evt_msg_sufix_len = 0;
  } else {
    e->evt_msg_sufix_len = len;
  }
}

// Length of the next piece of a long pattern: at most kMaxPiece - 1 characters, never ending
// between a '%' and its conversion character.
size_t piece_len(const char* p) {
  const size_t n = strnlen(p, kMaxPiece - 1);
  if (p[n] == '\0') return n;
  size_t i = 0;
  while (i < n) i += (p[i] == '%') ? 2 : 1;
  return i > n ? n - 1 : n;  // the last '%' of the piece starts an escape cut by the piece end
}

}  // namespace

extern "C" void wlog_layout_format(WLOGEVENTBASE* pstEvt, const char* pszPattern) {
  if (pstEvt == nullptr) return;
  pstEvt->evt_msg_prefix_len = 0;
  pstEvt->evt_msg_sufix_len = 0;
  if (pszPattern == nullptr || pszPattern[0] == '\0') return;

  WLOGLAYOUTCACHE compiled;
  Cursor cur{pstEvt->evt_msg_prefix_buffer, 0, true};
  for (const char* p = pszPattern; *p != '\0';) {
    const size_t n = piece_len(p);
    compile(&compiled, p, n);
    p += n;
    if (!render(&compiled, pstEvt, &cur)) break;
  }
  finish(pstEvt, &cur);
}

void wlog_layout_format_cached_i(WLOGLAYOUTCACHE* pstCache, WLOGEVENTBASE* pstEvt,
                                 const char* pszFormat) {
  pstEvt->evt_msg_prefix_len = 0;
  pstEvt->evt_msg_sufix_len = 0;
  const size_t len = strnlen(pszFormat, kMaxPiece);
  if (len == 0) return;
  if (!pstCache->iValid || static_cast<size_t>(pstCache->iPatternLen) != len ||
      memcmp(pstCache->szPattern, pszFormat, len) != 0) {
    compile(pstCache, pszFormat, len);
  }
  Cursor cur{pstEvt->evt_msg_prefix_buffer, 0, true};
  render(pstCache, pstEvt, &cur);
  finish(pstEvt, &cur);
}
