// Reading records back from text.
//
// With names (the usual form, also that of configuration files) the reader follows the text:
// each member line names an entry, which is looked up from the current position of the meta
// onward, innermost composite first; a name that does not fit there closes the composite. A
// value runs to the first separator after which the text ends or a member line begins, so
// strings may hold blanks and separators. Without names the reader follows the meta as the
// printer does, one value per line.
//
// Every write into the record is checked against the host buffer and first logged (offset and
// old bytes), so a failure can put the record back as it was.
#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include "vix/vix_io.h"
#include "vix/vix_macro.h"
#include "vix_internal.h"
#include "vix_io_internal.h"

namespace {

using vix_io::kStep;

// Old bytes of every write, newest last: [bytes][offset u64][length u64] records.
class UndoLog {
 public:
  UndoLog() = default;
  UndoLog(const UndoLog&) = delete;
  UndoLog& operator=(const UndoLog&) = delete;
  ~UndoLog() {
    if (buf_ != stack_) free(buf_);
  }

  bool save(uint64_t iOff, const char* p, uint64_t n) {
    if (n > SIZE_MAX - 16 - len_) return false;
    const size_t iNeed = static_cast<size_t>(n) + 16;
    if (iNeed > cap_ - len_ && !grow(len_ + iNeed)) return false;
    memcpy(buf_ + len_, p, static_cast<size_t>(n));
    memcpy(buf_ + len_ + n, &iOff, 8);
    memcpy(buf_ + len_ + n + 8, &n, 8);
    len_ += iNeed;
    return true;
  }

  void undo(char* pHost) {
    size_t at = len_;
    while (at > 0) {
      uint64_t iOff;
      uint64_t n;
      memcpy(&n, buf_ + at - 8, 8);
      memcpy(&iOff, buf_ + at - 16, 8);
      at -= 16 + static_cast<size_t>(n);
      memcpy(pHost + iOff, buf_ + at, static_cast<size_t>(n));
    }
    len_ = 0;
  }

 private:
  bool grow(size_t iMin) {
    size_t iCap = cap_ * 2;
    if (iCap < iMin) iCap = iMin;
    char* p = static_cast<char*>(buf_ == stack_ ? malloc(iCap) : realloc(buf_, iCap));
    if (p == nullptr) return false;
    if (buf_ == stack_) memcpy(p, stack_, len_);
    buf_ = p;
    cap_ = iCap;
    return true;
  }

  char stack_[4096];
  char* buf_ = stack_;
  size_t len_ = 0;
  size_t cap_ = sizeof(stack_);
};

bool is_blank_i(char ch) {
  return ch == ' ' || ch == '\t' || ch == '\n' || ch == '\r' || ch == '\v' || ch == '\f';
}
bool is_digit_i(char ch) { return ch >= '0' && ch <= '9'; }

// [p, q) without blanks at either end.
void trim_i(const char** pp, const char** pq) {
  while (*pp < *pq && is_blank_i(**pp)) ++*pp;
  while (*pq > *pp && is_blank_i((*pq)[-1])) --*pq;
}

// An optional sign, then decimal digits or 0x and hexadecimal digits; false for anything else
// or a magnitude beyond 64 bits.
bool parse_integer_i(const char* p, const char* q, bool* pbNeg, uint64_t* piMag) {
  bool bNeg = false;
  if (p < q && (*p == '-' || *p == '+')) bNeg = *p++ == '-';
  unsigned iBase = 10;
  if (q - p > 2 && p[0] == '0' && (p[1] == 'x' || p[1] == 'X')) {
    iBase = 16;
    p += 2;
  }
  if (p == q) return false;
  uint64_t u = 0;
  for (; p < q; ++p) {
    unsigned d;
    if (is_digit_i(*p)) {
      d = static_cast<unsigned>(*p - '0');
    } else if (iBase == 16 && *p >= 'a' && *p <= 'f') {
      d = static_cast<unsigned>(*p - 'a' + 10);
    } else if (iBase == 16 && *p >= 'A' && *p <= 'F') {
      d = static_cast<unsigned>(*p - 'A' + 10);
    } else {
      return false;
    }
    if (u > (UINT64_MAX - d) / iBase) return false;
    u = u * iBase + d;
  }
  *pbNeg = bNeg;
  *piMag = u;
  return true;
}

// Writes an integer of iSize bytes when (bNeg, iMag) fits the type; false otherwise.
bool store_integer_i(char* pDst, int iSize, bool bSigned, bool bNeg, uint64_t iMag) {
  const unsigned iBits = 8u * static_cast<unsigned>(iSize);
  if (bNeg && iMag == 0) bNeg = false;
  if (bSigned) {
    const uint64_t iMax = (uint64_t{1} << (iBits - 1)) - 1;
    if (bNeg ? iMag > iMax + 1 : iMag > iMax) return false;
  } else {
    const uint64_t iMax = iBits == 64 ? UINT64_MAX : (uint64_t{1} << iBits) - 1;
    if (bNeg || iMag > iMax) return false;
  }
  const uint64_t u = bNeg ? 0 - iMag : iMag;
  switch (iSize) {
    case 1: {
      const uint8_t v = static_cast<uint8_t>(u);
      memcpy(pDst, &v, 1);
      break;
    }
    case 2: {
      const uint16_t v = static_cast<uint16_t>(u);
      memcpy(pDst, &v, 2);
      break;
    }
    case 4: {
      const uint32_t v = static_cast<uint32_t>(u);
      memcpy(pDst, &v, 4);
      break;
    }
    default:
      memcpy(pDst, &u, 8);
      break;
  }
  return true;
}

// Longest member name the reader takes.
constexpr ptrdiff_t kMaxName = 1024;

class Reader {
 public:
  Reader(const VIXMETA* pstMeta, const VIXDATA& stHost, const VIXDATA& stIn,
         const VIXPRINTFORMAT& stFormat, int iCutOff)
      : top_(pstMeta),
        lib_(vix_lib_of_meta_i(pstMeta)),
        data_(vix_lib_data_i(vix_lib_of_meta_i(pstMeta))),
        host_(stHost.pszBuff),
        hostSize_(stHost.iBuff),
        tb_(stIn.pszBuff),
        te_(stIn.pszBuff + stIn.iBuff),
        pos_(stIn.pszBuff),
        sep_(stFormat.pszSepStr),
        sepLen_(strlen(stFormat.pszSepStr)),
        indent_(stFormat.chIndentChar),
        noName_(stFormat.iNoVarName != 0),
        cutoff_(iCutOff),
        budget_(vix_io::visit_budget(stHost.iBuff)) {}

  int run() {
    int iRet;
    if (noName_) {
      if (sepLen_ == 0) {
        vix_set_error_detail_i("; a text without names needs a separator");
        return VIX_ERROR_BAD_PRINT_FORMAT;
      }
      version_marker();
      iRet = positional(top_, 0, 1, first_branch(top_));
      if (iRet == 0 && skip_blanks(pos_) != te_) {
        iRet = fail(VIX_ERROR_BAD_TEXT_INPUT, skip_blanks(pos_),
                    "text<%.*s> after the last member of meta<%s>", excerpt(skip_blanks(pos_)),
                    skip_blanks(pos_), name_of(top_));
      }
    } else {
      iRet = head();
      if (iRet == 0) iRet = members(top_, 0, 1, first_branch(top_));
      if (iRet == 0) {
        const Header* h = peek();
        if (h != nullptr && !h->bValid) {
          iRet = fail(VIX_ERROR_BAD_TEXT_INPUT, h->pAt, "malformed member line<%.*s>",
                      excerpt(h->pAt), h->pAt);
        } else if (h != nullptr) {
          iRet = fail(VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT, h->pAt,
                      "entry<%.*s> is unknown, repeated or out of order in meta<%s>",
                      static_cast<int>(h->iNameLen), h->pName, name_of(top_));
        }
      }
    }
    if (iRet != 0) undo_.undo(host_);
    return iRet;
  }

 private:
  // A member line: "name=", "name[i]=", "[name]" or "[name[i]]".
  struct Header {
    const char* pAt = nullptr;  // first byte of the line (after blanks)
    const char* pName = nullptr;
    size_t iNameLen = 0;
    int64_t iIndex = -1;  // -1 without an index
    bool bComposite = false;
    bool bValid = false;
    const char* pAfter = nullptr;  // after "=" or the closing "]"
  };

  // Where the reader stands in one meta: the next entry it accepts (or the current array) and
  // the last element index read of it.
  struct Frame {
    const VIXMETA* pstMeta;
    int j;
    int64_t iLastIdx;
    int iOnly;  // a union's branch, -2 for no branch, -1 for a struct
  };

  const char* name_of(const VIXMETA* m) const { return vix_lib_str_i(lib_, m->ptrName); }
  const char* name_of(const VIXMETAENTRY* e) const { return vix_lib_str_i(lib_, e->ptrName); }

  static int first_branch(const VIXMETA* m) {
    return m->iType == VIX_TYPE_UNION ? (m->iEntriesNum > 0 ? 0 : -2) : -1;
  }

  // Length of a short excerpt of the text at p, for messages: up to the line end, 40 bytes.
  int excerpt(const char* p) const {
    const char* q = p;
    while (q < te_ && q - p < 40 && *q != '\n') ++q;
    return static_cast<int>(q - p);
  }

  int line_of(const char* p) const {
    int iLine = 1;
    for (const char* q = tb_; q < p && q < te_; ++q) {
      if (*q == '\n') ++iLine;
    }
    return iLine;
  }

  int fail(int iCode, const char* pAt, const char* pszFormat, ...) VIX_PRINTF_LIKE(4, 5) {
    char szText[768];
    va_list ap;
    va_start(ap, pszFormat);
    vsnprintf(szText, sizeof(szText), pszFormat, ap);
    va_end(ap);
    // The detail quotes the input, which may be anything: control bytes and DEL are written as
    // \xNN so that a binary file read by mistake cannot garble a terminal.
    char szSafe[sizeof(szText) * 4];
    size_t n = 0;
    for (const char* p = szText; *p != '\0' && n + 5 < sizeof(szSafe); ++p) {
      const unsigned char c = static_cast<unsigned char>(*p);
      if (c < 0x20 || c == 0x7f) {
        n += static_cast<size_t>(snprintf(szSafe + n, sizeof(szSafe) - n, "\\x%02x", c));
      } else {
        szSafe[n++] = static_cast<char>(c);
      }
    }
    szSafe[n] = '\0';
    vix_set_error_detail_i("; line %d: %s", line_of(pAt), szSafe);
    return iCode;
  }

  bool at_sep(const char* p) const {
    if (sepLen_ == 0 || p >= te_ || *p != sep_[0]) return false;
    return sepLen_ == 1 ||
           (static_cast<size_t>(te_ - p) >= sepLen_ && memcmp(p + 1, sep_ + 1, sepLen_ - 1) == 0);
  }

  // Skips separators, blanks and indent characters.
  const char* skip_blanks(const char* p) const {
    while (p < te_) {
      if (at_sep(p)) {
        p += sepLen_;
      } else if (is_blank_i(*p) || (*p == indent_ && indent_ != '\0')) {
        ++p;
      } else {
        break;
      }
    }
    return p;
  }

  // The next separator at or after p, or null.
  const char* find_sep(const char* p) const {
    if (p >= te_) return nullptr;
    if (sepLen_ == 1) return static_cast<const char*>(memchr(p, sep_[0], te_ - p));
    return static_cast<const char*>(memmem(p, te_ - p, sep_, sepLen_));
  }

  Header parse_header(const char* p) const {
    Header h;
    h.pAt = p;
    const char* q = p;
    if (q < te_ && *q == '[') {
      h.bComposite = true;
      ++q;
    }
    // A name holds no blanks and no separator, and is not endless; blanks may follow it.
    const char* pName = q;
    while (q < te_ && *q != '=' && *q != '[' && *q != ']' && !is_blank_i(*q) && !at_sep(q) &&
           q - pName < kMaxName) {
      ++q;
    }
    const char* pNameEnd = q;
    while (q < te_ && (*q == ' ' || *q == '\t')) ++q;
    if (pNameEnd == pName || q == te_) return h;
    if (*q == '[') {
      ++q;
      int64_t iIdx = 0;
      const char* pDigits = q;
      while (q < te_ && is_digit_i(*q) && q - pDigits < 10) iIdx = iIdx * 10 + (*q++ - '0');
      if (q == pDigits || q == te_ || *q != ']' || iIdx > INT32_MAX) return h;
      ++q;
      h.iIndex = iIdx;
    }
    if (h.bComposite) {
      if (q == te_ || *q != ']') return h;
    } else {
      while (q < te_ && (*q == ' ' || *q == '\t')) ++q;
      if (q == te_ || *q != '=') return h;
    }
    h.pName = pName;
    h.iNameLen = static_cast<size_t>(pNameEnd - pName);
    h.pAfter = q + 1;
    h.bValid = true;
    return h;
  }

  // The header of the next member line, or null at the end of the text.
  const Header* peek() {
    const char* p = skip_blanks(pos_);
    if (p == te_) return nullptr;
    if (cache_.pAt != p) cache_ = parse_header(p);
    return &cache_;
  }

  bool name_is(const VIXMETAENTRY* e, const Header& h) const {
    const char* psz = name_of(e);
    return psz[0] == h.pName[0] && strncmp(psz, h.pName, h.iNameLen) == 0 &&
           psz[h.iNameLen] == '\0';
  }

  // The entry of frame f that header h names, at or after the frame's position; -1 if none.
  int match(const Frame& f, const Header& h) const {
    int iFrom = f.j;
    int iTo = f.pstMeta->iEntriesNum;
    if (f.iOnly == -2) return -1;
    if (f.iOnly >= 0) {
      if (iFrom > f.iOnly) return -1;
      iFrom = f.iOnly;
      iTo = f.iOnly + 1;
    }
    const VIXMETAENTRY* es = vix_meta_entries_i(f.pstMeta);
    for (int k = iFrom; k < iTo; ++k) {
      const VIXMETAENTRY* e = es + k;
      if (e->iVersion > cutoff_ || !name_is(e, h)) continue;
      if (vix_io::is_composite(e) != h.bComposite) continue;
      const VIXCTYPEINFO* t = h.bComposite ? nullptr : vix_idx_to_typeinfo(e->iType);
      const bool bArray = vix_io::is_array(e, t);
      if (bArray != (h.iIndex >= 0)) continue;
      if (k == f.j && bArray && h.iIndex <= f.iLastIdx) continue;
      return k;
    }
    return -1;
  }

  // Does a member line, or the end of the text, follow p (after blanks)? *pq receives where
  // the blanks end.
  bool member_line_at(const char* p, const char** pq) {
    p = skip_blanks(p);
    *pq = p;
    if (p == te_) return true;
    if (cache_.pAt != p) cache_ = parse_header(p);
    return cache_.bValid;
  }

  // "[Name version="N"]:" at the start, then an optional "V<n>" marker.
  int head() {
    const char* p = skip_blanks(tb_);
    if (p < te_ && *p == '[') {
      const char* pLineEnd = static_cast<const char*>(memchr(p, '\n', te_ - p));
      if (pLineEnd == nullptr) pLineEnd = te_;
      static const char kVersion[] = " version=\"";
      const char* pVersion =
          static_cast<const char*>(memmem(p, pLineEnd - p, kVersion, sizeof(kVersion) - 1));
      if (pVersion != nullptr) {
        const char* pszMeta = name_of(top_);
        if (static_cast<size_t>(pVersion - p - 1) != strlen(pszMeta) ||
            memcmp(p + 1, pszMeta, strlen(pszMeta)) != 0) {
          return fail(VIX_ERROR_BAD_TEXT_INPUT, p, "head<%.*s> does not name meta<%s>", excerpt(p),
                      p, pszMeta);
        }
        const char* q = pVersion + sizeof(kVersion) - 1;
        if (q < pLineEnd && *q == '-') ++q;
        const char* pDigits = q;
        while (q < pLineEnd && is_digit_i(*q)) ++q;
        if (q == pDigits || pLineEnd - q < 3 || memcmp(q, "\"]:", 3) != 0) {
          return fail(VIX_ERROR_BAD_TEXT_INPUT, p, "malformed head<%.*s> of meta<%s>", excerpt(p),
                      p, pszMeta);
        }
        pos_ = q + 3;
      }
    }
    version_marker();
    return 0;
  }

  void version_marker() {
    const char* p = pos_;
    while (p < te_ && (*p == ' ' || *p == '\t' || (*p == indent_ && indent_ != '\0'))) ++p;
    if (p + 1 < te_ && *p == 'V' && is_digit_i(p[1])) {
      const char* q = p + 1;
      while (q < te_ && is_digit_i(*q)) ++q;
      if (q == te_ || at_sep(q) || is_blank_i(*q)) pos_ = q;
    }
  }

  int too_deep(const char* pAt) {
    return fail(VIX_ERROR_TOO_COMPLEX_META, pAt,
                "meta<%s> is too complex, contains more than %d layers of children", name_of(top_),
                VIX_MAX_NESTING);
  }
  int out_of_budget(const char* pAt) {
    return fail(VIX_ERROR_TOO_COMPLEX_META, pAt, "meta<%s> is too complex: too many members",
                name_of(top_));
  }
  int host_short(const char* pAt, const VIXMETA* m, const VIXMETAENTRY* e) {
    return fail(VIX_ERROR_HOST_BUFF_TOO_SMALL, pAt, "input data is not enough, entry<%s>, meta<%s>",
                name_of(e), name_of(m));
  }

  // The element count of an entry as the record holds it now.
  int count_of(const VIXMETA* m, const VIXMETAENTRY* e, uint64_t iBase, const char* pAt,
               int64_t* piCount) {
    if (e->stRefer.iUnitSize == 0) {
      *piCount = e->iCount;
      return 0;
    }
    int64_t v = 0;
    if (!vix_io::read_selector(data_, e->stRefer, host_, hostSize_, iBase, &v)) {
      return host_short(pAt, m, e);
    }
    if (v < 0 || (e->iCount > 0 && v > e->iCount)) {
      return fail(v < 0 ? VIX_ERROR_MINUS_REFER_VALUE : VIX_ERROR_REFER_SURPASS_COUNT, pAt,
                  "invalid refer value: expect refer_value<%lld> in [0, array_count<%d>] about "
                  "entry<%s> of meta<%s>",
                  static_cast<long long>(v), e->iCount, name_of(e), name_of(m));
    }
    *piCount = v;
    return 0;
  }

  // The branch of a union-typed member: -1 for a struct, -2 for no branch.
  int branch_of(const VIXMETA* m, const VIXMETAENTRY* e, const VIXMETA* pstNested, uint64_t iBase,
                const char* pAt, int* piBranch) {
    *piBranch = -1;
    if (pstNested->iType != VIX_TYPE_UNION) return 0;
    int64_t iSelector = 0;
    const bool bSelector = e->stSelector.iUnitSize != 0;
    if (bSelector &&
        !vix_io::read_selector(data_, e->stSelector, host_, hostSize_, iBase, &iSelector)) {
      return host_short(pAt, m, e);
    }
    const int iBranch = vix_io::union_branch(pstNested, iSelector, bSelector);
    *piBranch = iBranch < 0 ? -2 : iBranch;
    return 0;
  }

  // Bytes one value of a scalar entry takes.
  static uint64_t value_size(const VIXMETAENTRY* e, const VIXCTYPEINFO* t) {
    if (vix_io::is_one_string(e, t)) return e->iHUnitSize * static_cast<uint64_t>(e->iCount);
    return vix_io::is_text_code(t->iType) ? e->iHUnitSize : static_cast<uint64_t>(t->iSize);
  }

  // ---- with names ----

  int members(const VIXMETA* m, uint64_t iBase, int iLevel, int iOnly) {
    const char* pAt = skip_blanks(pos_);
    if (iLevel > VIX_MAX_NESTING) return too_deep(pAt);
    Frame f = {m, iOnly >= 0 ? iOnly : 0, -1, iOnly};
    for (;;) {
      const Header* h = peek();
      if (h == nullptr || !h->bValid) return 0;
      const int k = match(f, *h);
      if (k < 0) return 0;
      const Header stHead = *h;
      const VIXMETAENTRY* e = vix_meta_entries_i(m) + k;
      const bool bComposite = vix_io::is_composite(e);
      const VIXCTYPEINFO* t = bComposite ? nullptr : vix_idx_to_typeinfo(e->iType);
      const bool bArray = vix_io::is_array(e, t);
      f.j = bArray ? k : k + 1;
      f.iLastIdx = bArray ? stHead.iIndex : -1;
      pos_ = stHead.pAfter;
      if (budget_-- == 0) return out_of_budget(stHead.pAt);

      int64_t iCount = 1;
      int iRet = count_of(m, e, iBase, stHead.pAt, &iCount);
      if (iRet != 0) return iRet;
      const int64_t iIdx = bArray ? stHead.iIndex : 0;
      if (bArray && iIdx >= iCount) {
        return fail(VIX_ERROR_ARRAY_INDEX_OUT, stHead.pAt,
                    "index %lld not below the element count %lld, entry<%s> of meta<%s>",
                    static_cast<long long>(iIdx), static_cast<long long>(iCount), name_of(e),
                    name_of(m));
      }
      const uint64_t iOff =
          iBase + static_cast<uint64_t>(e->iHOff) + static_cast<uint64_t>(iIdx) * e->iHUnitSize;
      if (bComposite) {
        const VIXMETA* pstNested = reinterpret_cast<const VIXMETA*>(data_ + e->ptrMeta);
        if (iOff > hostSize_ || pstNested->iHUnitSize > hostSize_ - iOff) {
          return host_short(stHead.pAt, m, e);
        }
        int iBranch = -1;
        if ((iRet = branch_of(m, e, pstNested, iBase, stHead.pAt, &iBranch)) != 0) return iRet;
        if ((iRet = members(pstNested, iOff, iLevel + 1, iBranch)) != 0) return iRet;
        continue;
      }
      const char* v = pos_;
      const char* pEnd = value_end(v);
      pos_ = pEnd;
      iRet = store(m, e, t, iOff, value_size(e, t), v, pEnd, stHead.pAt);
      if (iRet != 0) return iRet;
    }
  }

  // End of a value starting at v: the first separator followed by the end of the text or by
  // a member line. The search goes on after the blanks that followed a failed separator (every
  // separator among them leads to the same place), so it stays linear.
  const char* value_end(const char* v) {
    const char* q = nullptr;
    if (sepLen_ == 0) {
      for (const char* s = v; s < te_; ++s) {
        if (member_line_at(s, &q)) return s;
        if (q > s) s = q - 1;
      }
      return te_;
    }
    for (const char* s = find_sep(v); s != nullptr;) {
      if (member_line_at(s + sepLen_, &q)) return s;
      s = find_sep(q > s ? q : s + 1);
    }
    return te_;
  }

  // ---- without names ----

  // Where the next value line starts, for messages.
  const char* here() const { return at_sep(pos_) ? pos_ + sepLen_ : pos_; }

  int positional(const VIXMETA* m, uint64_t iBase, int iLevel, int iOnly) {
    if (iLevel > VIX_MAX_NESTING) return too_deep(here());
    if (iOnly == -2) return 0;
    const VIXMETAENTRY* es = vix_meta_entries_i(m);
    const int iFirst = iOnly >= 0 ? iOnly : 0;
    const int iEnd = iOnly >= 0 ? iOnly + 1 : m->iEntriesNum;
    for (int k = iFirst; k < iEnd; ++k) {
      const VIXMETAENTRY* e = es + k;
      if (e->iVersion > cutoff_) continue;
      int64_t iCount = 0;
      int iRet = count_of(m, e, iBase, here(), &iCount);
      if (iRet != 0) return iRet;
      const uint64_t iStart = iBase + static_cast<uint64_t>(e->iHOff);
      if (vix_io::is_composite(e)) {
        const VIXMETA* pstNested = reinterpret_cast<const VIXMETA*>(data_ + e->ptrMeta);
        int iBranch = -1;
        if ((iRet = branch_of(m, e, pstNested, iBase, here(), &iBranch)) != 0) return iRet;
        for (int64_t i = 0; i < iCount; ++i) {
          if (budget_-- == 0) return out_of_budget(pos_);
          const uint64_t iOff = iStart + static_cast<uint64_t>(i) * e->iHUnitSize;
          if (iOff > hostSize_ || pstNested->iHUnitSize > hostSize_ - iOff) {
            return host_short(here(), m, e);
          }
          if ((iRet = positional(pstNested, iOff, iLevel + 1, iBranch)) != 0) return iRet;
        }
        continue;
      }
      const VIXCTYPEINFO* t = vix_idx_to_typeinfo(e->iType);
      if (vix_io::is_one_string(e, t)) iCount = 1;
      for (int64_t i = 0; i < iCount; ++i) {
        if (budget_-- == 0) return out_of_budget(pos_);
        const char* pAt = pos_;
        if (pos_ == te_) {
          return fail(VIX_ERROR_BAD_TEXT_INPUT, pAt, "text ends before entry<%s> of meta<%s>",
                      name_of(e), name_of(m));
        }
        if (!at_sep(pos_)) {
          return fail(VIX_ERROR_BAD_TEXT_INPUT, pAt,
                      "no separator before entry<%s> of meta<%s> at<%.*s>", name_of(e), name_of(m),
                      excerpt(pAt), pAt);
        }
        pos_ += sepLen_;
        pAt = pos_;
        for (int n = 0; n < iLevel * kStep && indent_ != '\0' && pos_ < te_ && *pos_ == indent_;
             ++n) {
          ++pos_;
        }
        const char* v = pos_;
        const char* pEnd = line_end(v);
        pos_ = pEnd;
        const uint64_t iOff = iStart + static_cast<uint64_t>(i) * e->iHUnitSize;
        if ((iRet = store(m, e, t, iOff, value_size(e, t), v, pEnd, pAt)) != 0) return iRet;
      }
    }
    return 0;
  }

  // End of a value without names: the first separator followed by an indent step, blanks up
  // to the end of the text, or anything when there is no indentation.
  const char* line_end(const char* v) const {
    const char* pRun = nullptr;  // where the blanks after the last separator ended
    for (const char* s = find_sep(v); s != nullptr; s = find_sep(s + 1)) {
      const char* p = s + sepLen_;
      const char* q = pRun != nullptr && p <= pRun ? pRun : skip_blanks(p);
      if (indent_ == '\0' || q == te_) return s;
      pRun = q;
      int n = 0;
      while (p + n < te_ && p[n] == indent_ && n < kStep) ++n;
      if (n == kStep) return s;
    }
    return te_;
  }

  // ---- values ----

  // Parses [v, pEnd) into the value of entry e at iOff (iSize bytes).
  int store(const VIXMETA* m, const VIXMETAENTRY* e, const VIXCTYPEINFO* t, uint64_t iOff,
            uint64_t iSize, const char* v, const char* pEnd, const char* pAt) {
    if (iOff > hostSize_ || iSize > hostSize_ - iOff) return host_short(pAt, m, e);
    char* pDst = host_ + iOff;
    if (!undo_.save(iOff, pDst, iSize)) {
      return fail(VIX_ERROR_NO_MEMORY, pAt, "no memory to read entry<%s> of meta<%s>", name_of(e),
                  name_of(m));
    }
    const int iCode = t->iType;
    if (iCode == VIX_TYPE_STRING) {
      const size_t n = static_cast<size_t>(pEnd - v);
      if (n >= iSize) {
        return fail(VIX_ERROR_STRING_TOO_LONG, pAt,
                    "string of %zu bytes does not fit entry<%s> of meta<%s> (%llu bytes)", n,
                    name_of(e), name_of(m), static_cast<unsigned long long>(iSize));
      }
      memcpy(pDst, v, n);
      memset(pDst + n, 0, static_cast<size_t>(iSize) - n);
      return 0;
    }
    if (iCode == VIX_TYPE_WSTRING || iCode == VIX_TYPE_WCHAR)
      return wide(m, e, pDst, iSize, v, pEnd, pAt);

    const char* p = v;
    const char* q = pEnd;
    trim_i(&p, &q);
    const int iLen = static_cast<int>(q - p > 200 ? 200 : q - p);
    if (vix_io::is_integer_code(iCode)) {
      const bool bSigned = !vix_io::is_unsigned_code(iCode);
      bool bNeg = false;
      uint64_t iMag = 0;
      if (!parse_integer_i(p, q, &bNeg, &iMag)) {
        int32_t iValue = 0;
        if (!macro_value(e, p, q, &iValue)) {
          return fail(VIX_ERROR_BAD_NUMBER, pAt, "bad value<%.*s> of entry<%s> of meta<%s>", iLen,
                      p, name_of(e), name_of(m));
        }
        bNeg = iValue < 0;
        iMag = bNeg ? 0 - static_cast<uint64_t>(static_cast<int64_t>(iValue))
                    : static_cast<uint64_t>(iValue);
      }
      if (!store_integer_i(pDst, t->iSize, bSigned, bNeg, iMag)) {
        return fail(VIX_ERROR_VALUE_OUT_OF_RANGE, pAt,
                    "value<%.*s> out of the range of entry<%s> of meta<%s>", iLen, p, name_of(e),
                    name_of(m));
      }
      return 0;
    }
    char sz[400];
    if (q - p >= static_cast<ptrdiff_t>(sizeof(sz))) {
      return fail(VIX_ERROR_SCAN_FAILED, pAt, "value<%.*s...> too long for entry<%s> of meta<%s>",
                  iLen, p, name_of(e), name_of(m));
    }
    memcpy(sz, p, static_cast<size_t>(q - p));
    sz[q - p] = '\0';
    int iRet = 0;
    switch (iCode) {
      case VIX_TYPE_FLOAT:
      case VIX_TYPE_DOUBLE: {
        char* pszEnd = nullptr;
        errno = 0;
        if (iCode == VIX_TYPE_FLOAT) {
          const float f = strtof(sz, &pszEnd);
          if (pszEnd != sz && *pszEnd == '\0' && !(errno == ERANGE && __builtin_isinf(f))) {
            memcpy(pDst, &f, sizeof(f));
            return 0;
          }
        } else {
          const double d = strtod(sz, &pszEnd);
          if (pszEnd != sz && *pszEnd == '\0' && !(errno == ERANGE && __builtin_isinf(d))) {
            memcpy(pDst, &d, sizeof(d));
            return 0;
          }
        }
        iRet = VIX_ERROR_BAD_FLOAT_VALUE;
        break;
      }
      case VIX_TYPE_DATE: {
        VIXDATE stValue;
        if ((iRet = vix_str_to_vixdate(&stValue, sz)) == 0) memcpy(pDst, &stValue, sizeof(stValue));
        break;
      }
      case VIX_TYPE_TIME: {
        VIXTIME stValue;
        if ((iRet = vix_str_to_vixtime(&stValue, sz)) == 0) memcpy(pDst, &stValue, sizeof(stValue));
        break;
      }
      case VIX_TYPE_DATETIME: {
        VIXDATETIME stValue;
        if ((iRet = vix_str_to_vixdatetime(&stValue, sz)) == 0) {
          memcpy(pDst, &stValue, sizeof(stValue));
        }
        break;
      }
      case VIX_TYPE_IP: {
        VIXIP stValue;
        if ((iRet = vix_ineta_to_vixip(&stValue, sz)) == 0) memcpy(pDst, &stValue, sizeof(stValue));
        break;
      }
      default:
        iRet = VIX_ERROR_SCAN_FAILED;
        break;
    }
    if (iRet == 0) return 0;
    return fail(iRet, pAt, "bad value<%.*s> of entry<%s> of meta<%s>", iLen, p, name_of(e),
                name_of(m));
  }

  // The value of a macro name of the member's group, else of a macro name or expression of the
  // library. Integer text with a point is no expression here (it would be truncated).
  bool macro_value(const VIXMETAENTRY* e, const char* p, const char* q, int32_t* piValue) const {
    char sz[VIX_MACRO_EXPR_BUFF];
    if (p == q || q - p >= static_cast<ptrdiff_t>(sizeof(sz)) || memchr(p, '.', q - p) != nullptr ||
        memchr(p, '\0', q - p) != nullptr) {
      return false;
    }
    memcpy(sz, p, static_cast<size_t>(q - p));
    sz[q - p] = '\0';
    const VIXMACRO* pstMacro = vix_get_bindmacro_by_name(e, sz);
    if (pstMacro != nullptr) {
      *piValue = pstMacro->iValue;
      return true;
    }
    int iIdx = -1;
    int iValue = 0;
    if (vix_compute_macro_expr_int(&iValue, &iIdx, lib_, sz) != 0) return false;
    *piValue = iValue;
    return true;
  }

  // A wide string of iSize bytes, or one wide character, from multibyte text.
  int wide(const VIXMETA* m, const VIXMETAENTRY* e, char* pDst, uint64_t iSize, const char* v,
           const char* pEnd, const char* pAt) {
    const bool bChar = vix_idx_to_typeinfo(e->iType)->iType == VIX_TYPE_WCHAR;
    const uint64_t iChars = bChar ? 1 : iSize / sizeof(vix_wchar_t);
    // Room for the characters and the terminator the conversion writes.
    vix_wchar_t awStack[256];
    vix_wchar_t* pw = awStack;
    if (iChars + 1 > 256) {
      pw = static_cast<vix_wchar_t*>(malloc((iChars + 1) * sizeof(vix_wchar_t)));
      if (pw == nullptr) {
        return fail(VIX_ERROR_NO_MEMORY, pAt, "no memory to read entry<%s> of meta<%s>", name_of(e),
                    name_of(m));
      }
    }
    size_t n = static_cast<size_t>(pEnd - v);
    int iRet = 0;
    size_t iWritten = 0;
    if (n > 0) {
      iWritten = static_cast<size_t>(iChars + 1);
      iRet = vix_chinesembstowcs(pw, &iWritten, v, n);
      // Text with a NUL in it stops there; anything after it would be lost silently.
      if (iRet == 0 && memchr(v, '\0', n) != nullptr) iRet = VIX_ERROR_ENCODING_CONVERT;
    }
    // A wide string keeps room for its terminator; a wide character holds one character.
    if (iRet == VIX_ERROR_OUT_BUF_TOO_SMALL || (!bChar && iWritten >= iChars && iRet == 0)) {
      iRet = VIX_ERROR_STRING_TOO_LONG;
    }
    if (iRet == 0) {
      if (bChar) {
        const vix_wchar_t ch = iWritten > 0 ? pw[0] : 0;
        memcpy(pDst, &ch, sizeof(ch));
      } else {
        memcpy(pDst, pw, iWritten * sizeof(vix_wchar_t));
        memset(pDst + iWritten * sizeof(vix_wchar_t), 0,
               static_cast<size_t>(iSize) - iWritten * sizeof(vix_wchar_t));
      }
    }
    if (pw != awStack) free(pw);
    if (iRet == 0) return 0;
    const int iLen = static_cast<int>(n > 200 ? 200 : n);
    return fail(iRet, pAt, "bad value<%.*s> of entry<%s> of meta<%s>", iLen, v, name_of(e),
                name_of(m));
  }

  const VIXMETA* top_;
  const VIXMETALIB* lib_;
  const char* data_;
  char* host_;
  uint64_t hostSize_;
  const char* tb_;
  const char* te_;
  const char* pos_;
  const char* sep_;
  size_t sepLen_;
  char indent_;
  bool noName_;
  int cutoff_;
  uint64_t budget_;
  Header cache_;
  UndoLog undo_;
};

}  // namespace

int vix_sscanf_ex(const VIXMETA* pstMeta, LPVIXDATA pstHost, const VIXDATA* pstIn, int iVersion,
                  const VIXPRINTFORMAT* pstFormat) {
  vix_clear_error_detail_i();
  if (pstMeta == nullptr || pstHost == nullptr || pstIn == nullptr || pstFormat == nullptr) {
    vix_set_error_detail_i(
        "; invalid parameters: a_pstMeta<%p>==NULL or a_pstHost<%p>==NULL or a_pstIn<%p>==NULL "
        "or a_pstFormat<%p>==NULL",
        static_cast<const void*>(pstMeta), static_cast<const void*>(pstHost),
        static_cast<const void*>(pstIn), static_cast<const void*>(pstFormat));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (pstHost->pszBuff == nullptr || pstHost->iBuff == 0 ||
      (pstIn->pszBuff == nullptr && pstIn->iBuff > 0) || pstFormat->pszSepStr == nullptr) {
    vix_set_error_detail_i(
        "; invalid parameters: a_pstHost->pszBuff<%p>==NULL or a_pstHost->iBuff<%llu> <= 0 or "
        "a_pstIn->pszBuff<%p>==NULL or a_pstFormat->pszSepStr<%p>==NULL",
        static_cast<const void*>(pstHost->pszBuff), static_cast<unsigned long long>(pstHost->iBuff),
        static_cast<const void*>(pstIn->pszBuff), static_cast<const void*>(pstFormat->pszSepStr));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (!vix_lib_format_ok_i(vix_lib_of_meta_i(pstMeta))) {
    vix_set_error_detail_i("; invalid parameter: meta<%p> is not in a usable metalib",
                           static_cast<const void*>(pstMeta));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (iVersion == 0) iVersion = pstMeta->iCurVersion;
  if (iVersion < pstMeta->iBaseVersion) {
    vix_set_error_detail_i(
        "; invalid parameter: expect a_iCutOffVersion<%d> NOT less than baseVersion<%d> of "
        "meta<%s>",
        iVersion, pstMeta->iBaseVersion, vix_get_meta_name(pstMeta));
    return VIX_ERROR_INVALID_CUTOFF_VERSION;
  }
  static const char kEmpty[] = "";
  VIXDATA stIn = *pstIn;
  if (stIn.pszBuff == nullptr) {
    stIn.pszBuff = const_cast<char*>(kEmpty);
    stIn.iBuff = 0;
  }
  Reader stReader(pstMeta, *pstHost, stIn, *pstFormat, iVersion);
  return stReader.run();
}
