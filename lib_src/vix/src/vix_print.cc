// Writing records as text: the output streams and the printer.
//
// The printer walks a meta once, member by member, and writes through a Sink that keeps the
// stream's position in locals (a file stream gets a stack buffer flushed with fwrite). Numbers
// are formatted here rather than with printf (the same text as "%d", "%u", "0x%x", "%lld",
// "%llu"); only floating point goes through snprintf. Nothing is allocated per member.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>

#include "vix/vix_io.h"
#include "vix_internal.h"
#include "vix_io_internal.h"

namespace {

using vix_io::kStep;

// ---- streams ----

// Appends n bytes to a stream: a buffer stream takes what fits and reports
// VIX_ERROR_OUT_BUF_TOO_SMALL for the rest.
int stream_put_i(VIXIOSTREAM* s, const char* p, size_t n) {
  if (s->emIOStreamType == VIX_IOSTREAM_STRBUF) {
    const size_t iTake = n <= s->iLeft ? n : static_cast<size_t>(s->iLeft);
    if (iTake > 0) memcpy(s->pszBuff, p, iTake);
    s->pszBuff += iTake;
    s->iLeft -= iTake;
    s->iWritten += iTake;
    if (s->iLeft > 0) *s->pszBuff = '\0';
    return iTake == n ? 0 : VIX_ERROR_OUT_BUF_TOO_SMALL;
  }
  if (s->emIOStreamType == VIX_IOSTREAM_FILE) {
    if (n > 0 && fwrite(p, 1, n, s->fp) != n) return VIX_ERROR_WRITE_FILE;
    s->iWritten += n;
    return 0;
  }
  return VIX_ERROR_BAD_IOSTREAM;
}

// The printer's output: the stream's buffer position kept in members, or a local buffer in
// front of a file. close() hands the position back to the stream.
class Sink {
 public:
  explicit Sink(VIXIOSTREAM* pstStream) : s_(pstStream) {
    if (s_->emIOStreamType == VIX_IOSTREAM_STRBUF) {
      p_ = s_->pszBuff;
      end_ = p_ + s_->iLeft;
    } else {
      p_ = local_;
      end_ = local_ + sizeof(local_);
    }
    begin_ = p_;
  }

  bool put(const char* p, size_t n) {
    if (n <= static_cast<size_t>(end_ - p_)) {
      memcpy(p_, p, n);
      p_ += n;
      return true;
    }
    return put_slow(p, n);
  }
  bool put(char ch) {
    if (p_ < end_) {
      *p_++ = ch;
      return true;
    }
    return put_slow(&ch, 1);
  }
  bool put_str(const char* psz) { return put(psz, strlen(psz)); }

  bool put_int(int64_t v) {
    const uint64_t u = v < 0 ? 0 - static_cast<uint64_t>(v) : static_cast<uint64_t>(v);
    char sz[24];
    char* q = digits(sz + sizeof(sz), u, 10);
    if (v < 0) *--q = '-';
    return put(q, static_cast<size_t>(sz + sizeof(sz) - q));
  }
  bool put_uint(uint64_t u) {
    char sz[24];
    char* q = digits(sz + sizeof(sz), u, 10);
    return put(q, static_cast<size_t>(sz + sizeof(sz) - q));
  }
  bool put_hex(uint64_t u) {
    char sz[24];
    char* q = digits(sz + sizeof(sz), u, 16);
    *--q = 'x';
    *--q = '0';
    return put(q, static_cast<size_t>(sz + sizeof(sz) - q));
  }

  // Hands the position back to the stream; the code of the first failure, or 0.
  int close() {
    if (s_->emIOStreamType == VIX_IOSTREAM_STRBUF) {
      const uint64_t n = static_cast<uint64_t>(p_ - begin_);
      s_->pszBuff = p_;
      s_->iLeft -= n;
      s_->iWritten += n;
      if (s_->iLeft > 0) *s_->pszBuff = '\0';
    } else {
      flush();
    }
    return iError_;
  }
  int error() const { return iError_; }

 private:
  static char* digits(char* q, uint64_t u, unsigned iBase) {
    static const char kDigits[] = "0123456789abcdef";
    do {
      *--q = kDigits[u % iBase];
      u /= iBase;
    } while (u != 0);
    return q;
  }

  bool flush() {
    const size_t n = static_cast<size_t>(p_ - local_);
    p_ = local_;
    if (n == 0 || iError_ != 0) return iError_ == 0;
    if (stream_put_i(s_, local_, n) != 0) iError_ = VIX_ERROR_WRITE_FILE;
    return iError_ == 0;
  }

  bool put_slow(const char* p, size_t n) {
    if (iError_ != 0) return false;
    if (s_->emIOStreamType == VIX_IOSTREAM_STRBUF) {
      // Fill the room, so that the caller gets as much text as fits.
      const size_t iTake = static_cast<size_t>(end_ - p_);
      memcpy(p_, p, iTake);
      p_ += iTake;
      iError_ = VIX_ERROR_OUT_BUF_TOO_SMALL;
      return false;
    }
    if (!flush()) return false;
    if (n > sizeof(local_)) {
      if (stream_put_i(s_, p, n) != 0) iError_ = VIX_ERROR_WRITE_FILE;
      return iError_ == 0;
    }
    memcpy(p_, p, n);
    p_ += n;
    return true;
  }

  VIXIOSTREAM* s_;
  char* p_;
  char* end_;
  char* begin_;
  int iError_ = 0;
  char local_[8192];
};

// ---- the printer ----

class Printer {
 public:
  Printer(Sink* pstSink, const VIXMETA* pstMeta, const VIXPRINTFORMAT& stFormat, int iCutOff,
          const VIXDATA& stHost)
      : out_(*pstSink),
        top_(pstMeta),
        data_(vix_lib_data_i(vix_lib_of_meta_i(pstMeta))),
        cutoff_(iCutOff),
        noName_(stFormat.iNoVarName != 0),
        host_(stHost.pszBuff),
        hostSize_(stHost.iBuff),
        budget_(vix_io::visit_budget(stHost.iBuff)) {
    // The line prefix of level L is the separator and L indent steps: one run of bytes.
    sep_ = stFormat.pszSepStr;
    sepLen_ = strlen(sep_);
    indentChar_ = stFormat.chIndentChar;
    if (sepLen_ <= kMaxSep) {
      memcpy(prefixBuf_, sep_, sepLen_);
      memset(prefixBuf_ + sepLen_, indentChar_, sizeof(prefixBuf_) - sepLen_);
      prefix_ = true;
    }
  }

  int run() {
    const char* pszName = name_of(top_);
    if (!noName_) {
      if (!out_.put('[') || !out_.put_str(pszName) || !out_.put(" version=\"", 10) ||
          !out_.put_int(cutoff_) || !out_.put("\"]:", 3)) {
        return fail_head();
      }
    }
    if (withVersion_) {
      if (!indent(1) || !out_.put('V') || !out_.put_int(cutoff_)) return fail_head();
    }
    // A union printed on its own has no selector: its first branch.
    const int iOnly = top_->iType != VIX_TYPE_UNION ? -1 : (top_->iEntriesNum > 0 ? 0 : -2);
    return meta(top_, 0, 1, iOnly);
  }

  void set_with_version(bool b) { withVersion_ = b; }

 private:
  static constexpr size_t kMaxSep = 64;

  const char* name_of(const VIXMETA* m) const { return vix_lib_str_i(lib(), m->ptrName); }
  const char* name_of(const VIXMETAENTRY* e) const { return vix_lib_str_i(lib(), e->ptrName); }
  const VIXMETALIB* lib() const {
    return reinterpret_cast<const VIXMETALIB*>(data_ - sizeof(VIXMETALIB));
  }

  int fail_head() {
    vix_set_error_detail_i("; failed to output head of meta<%s>", name_of(top_));
    return out_.error() != 0 ? out_.error() : VIX_ERROR_PRINT_FAILED;
  }

  // Separator then the indent of level L.
  bool line(int iLevel) {
    const size_t iIndent = indentChar_ == '\0' ? 0 : static_cast<size_t>(iLevel) * kStep;
    if (prefix_ && sepLen_ + iIndent <= sizeof(prefixBuf_)) {
      return out_.put(prefixBuf_, sepLen_ + iIndent);
    }
    return out_.put(sep_, sepLen_) && indent(iLevel);
  }
  bool indent(int iLevel) {
    if (indentChar_ == '\0') return true;
    for (int i = 0; i < iLevel * kStep; ++i) {
      if (!out_.put(indentChar_)) return false;
    }
    return true;
  }

  // The value's bytes are [iFrom, iTo) of the host buffer (iTo may lie past its end).
  int fail_output(const VIXMETAENTRY* e, uint64_t iFrom, uint64_t iTo, int iCode) {
    const uintptr_t iHost = reinterpret_cast<uintptr_t>(host_);
    vix_set_error_detail_i(
        "; failed to output value of entry<%s>, consume input buffer from %p to %p", name_of(e),
        reinterpret_cast<const void*>(iHost + iFrom), reinterpret_cast<const void*>(iHost + iTo));
    return out_.error() != 0 ? out_.error() : iCode;
  }
  int fail_short(const VIXMETA* m, const VIXMETAENTRY* e) {
    vix_set_error_detail_i("; input data is not enough, entry<%s>, meta<%s>", name_of(e),
                           name_of(m));
    return VIX_ERROR_HOST_BUFF_TOO_SMALL;
  }
  int fail_budget() {
    vix_set_error_detail_i("; meta<%s> is too complex: more than %llu members to visit",
                           name_of(top_),
                           static_cast<unsigned long long>(vix_io::visit_budget(hostSize_)));
    return VIX_ERROR_TOO_COMPLEX_META;
  }

  // The element count of an entry: its refer value (checked) or its count.
  int count_of(const VIXMETA* m, const VIXMETAENTRY* e, uint64_t iBase, int64_t* piCount) {
    if (e->stRefer.iUnitSize == 0) {
      *piCount = e->iCount;
      return 0;
    }
    int64_t v = 0;
    if (!vix_io::read_selector(data_, e->stRefer, host_, hostSize_, iBase, &v)) {
      return fail_short(m, e);
    }
    if (v < 0 || (e->iCount > 0 && v > e->iCount)) {
      vix_set_error_detail_i(
          "; invalid refer value: expect refer_value<%lld> in [0, array_count<%d>] about "
          "entry<%s> of meta<%s>",
          static_cast<long long>(v), e->iCount, name_of(e), name_of(m));
      return v < 0 ? VIX_ERROR_MINUS_REFER_VALUE : VIX_ERROR_REFER_SURPASS_COUNT;
    }
    *piCount = v;
    return 0;
  }

  // The members of meta m at iBase (level L); iOnly >= 0 writes that entry alone (a union
  // branch), -2 nothing.
  int meta(const VIXMETA* m, uint64_t iBase, int iLevel, int iOnly) {
    if (iLevel > VIX_MAX_NESTING) {
      vix_set_error_detail_i("; meta<%s> is too complex, contains more than %d layers of children",
                             name_of(top_), VIX_MAX_NESTING);
      return VIX_ERROR_TOO_COMPLEX_META;
    }
    const VIXMETAENTRY* pstEntries = vix_meta_entries_i(m);
    int iFirst = 0;
    int iEnd = m->iEntriesNum;
    if (iOnly >= 0) {
      iFirst = iOnly;
      iEnd = iOnly + 1;
    } else if (iOnly == -2) {
      return 0;
    }
    for (int j = iFirst; j < iEnd; ++j) {
      const VIXMETAENTRY* e = pstEntries + j;
      if (e->iVersion > cutoff_) continue;
      const int iRet = entry(m, e, iBase, iLevel);
      if (iRet != 0) return iRet;
    }
    return 0;
  }

  int entry(const VIXMETA* m, const VIXMETAENTRY* e, uint64_t iBase, int iLevel) {
    int64_t iCount = 0;
    int iRet = count_of(m, e, iBase, &iCount);
    if (iRet != 0) return iRet;
    const char* pszName = name_of(e);
    const size_t iNameLen = strlen(pszName);
    const uint64_t iStart = iBase + static_cast<uint64_t>(e->iHOff);

    if (vix_io::is_composite(e)) {
      const VIXMETA* pstNested = reinterpret_cast<const VIXMETA*>(data_ + e->ptrMeta);
      const bool bArray = vix_io::is_array(e, nullptr);
      int iBranch = -1;
      if (pstNested->iType == VIX_TYPE_UNION) {
        int64_t iSelector = 0;
        const bool bSelector = e->stSelector.iUnitSize != 0;
        if (bSelector &&
            !vix_io::read_selector(data_, e->stSelector, host_, hostSize_, iBase, &iSelector)) {
          return fail_short(m, e);
        }
        iBranch = vix_io::union_branch(pstNested, iSelector, bSelector);
        if (iBranch < 0) iBranch = -2;
      }
      for (int64_t i = 0; i < iCount; ++i) {
        if (budget_-- == 0) return fail_budget();
        const uint64_t iOff = iStart + static_cast<uint64_t>(i) * e->iHUnitSize;
        if (iOff > hostSize_ || pstNested->iHUnitSize > hostSize_ - iOff) return fail_short(m, e);
        if (!noName_) {
          bool bOk = line(iLevel) && out_.put('[') && out_.put(pszName, iNameLen);
          if (bArray) bOk = bOk && out_.put('[') && out_.put_int(i) && out_.put(']');
          if (!(bOk && out_.put(']'))) {
            return fail_output(e, iOff, iOff + e->iHUnitSize, VIX_ERROR_PRINT_FAILED);
          }
        }
        iRet = meta(pstNested, iOff, iLevel + 1, iBranch);
        if (iRet != 0) return iRet;
      }
      return 0;
    }

    const VIXCTYPEINFO* t = vix_idx_to_typeinfo(e->iType);
    const bool bOne = vix_io::is_one_string(e, t);
    const bool bArray = vix_io::is_array(e, t);
    // One string of iCount units, or iCount elements of iHUnitSize bytes.
    const uint64_t iValueSize =
        bOne ? e->iHUnitSize * static_cast<uint64_t>(e->iCount)
             : (vix_io::is_text_code(t->iType) ? e->iHUnitSize : static_cast<uint64_t>(t->iSize));
    if (bOne) iCount = 1;
    for (int64_t i = 0; i < iCount; ++i) {
      if (budget_-- == 0) return fail_budget();
      const uint64_t iOff = iStart + static_cast<uint64_t>(i) * e->iHUnitSize;
      if (iOff > hostSize_ || iValueSize > hostSize_ - iOff) return fail_short(m, e);
      bool bOk = line(iLevel);
      if (!noName_) {
        bOk = bOk && out_.put(pszName, iNameLen);
        if (bArray) bOk = bOk && out_.put('[') && out_.put_int(i) && out_.put(']');
        bOk = bOk && out_.put('=');
      }
      const char* p = host_ + iOff;
      iRet = bOk ? value(e, t, p, iValueSize) : VIX_ERROR_PRINT_FAILED;
      if (iRet != 0) return fail_output(e, iOff, iOff + iValueSize, iRet);
    }
    return 0;
  }

  // One value of entry e (type t) at p, iSize bytes.
  int value(const VIXMETAENTRY* e, const VIXCTYPEINFO* t, const char* p, uint64_t iSize) {
    const int iCode = t->iType;
    if (vix_io::is_integer_code(iCode)) {
      const bool bSigned = !vix_io::is_unsigned_code(iCode);
      const int64_t v = vix_io::load_int(p, static_cast<uint64_t>(t->iSize), bSigned);
      if (e->ptrMacrosGroup != VIX_PTR_NONE && (bSigned || v >= 0) && v >= INT32_MIN &&
          v <= INT32_MAX) {
        const VIXMACRO* pstMacro = vix_get_bindmacro_by_value(e, static_cast<int>(v));
        if (pstMacro != nullptr) {
          return out_.put_str(vix_lib_str_i(lib(), pstMacro->ptrMacro)) ? 0
                                                                        : VIX_ERROR_PRINT_FAILED;
        }
      }
      bool bOk;
      if (iCode == VIX_TYPE_UCHAR) {
        bOk = out_.put_hex(static_cast<uint64_t>(v));
      } else if (bSigned || iCode == VIX_TYPE_SMALLUINT) {
        bOk = out_.put_int(v);
      } else {
        bOk = out_.put_uint(static_cast<uint64_t>(v));
      }
      return bOk ? 0 : VIX_ERROR_PRINT_FAILED;
    }
    char sz[400];
    const char* pszText = nullptr;
    switch (iCode) {
      case VIX_TYPE_FLOAT:
      case VIX_TYPE_DOUBLE: {
        double d;
        if (iCode == VIX_TYPE_FLOAT) {
          float f;
          memcpy(&f, p, sizeof(f));
          d = f;
        } else {
          memcpy(&d, p, sizeof(d));
        }
        snprintf(sz, sizeof(sz), "%f", d);
        pszText = sz;
        break;
      }
      case VIX_TYPE_DATE: {
        VIXDATE v;
        memcpy(&v, p, sizeof(v));
        pszText = vix_vixdate_to_str_r(&v, sz, sizeof(sz));
        break;
      }
      case VIX_TYPE_TIME: {
        VIXTIME v;
        memcpy(&v, p, sizeof(v));
        pszText = vix_vixtime_to_str_r(&v, sz, sizeof(sz));
        break;
      }
      case VIX_TYPE_DATETIME: {
        VIXDATETIME v;
        memcpy(&v, p, sizeof(v));
        pszText = vix_vixdatetime_to_str_r(&v, sz, sizeof(sz));
        break;
      }
      case VIX_TYPE_IP: {
        VIXIP v;
        memcpy(&v, p, sizeof(v));
        pszText = vix_vixip_ntop(v, sz, sizeof(sz));
        break;
      }
      case VIX_TYPE_STRING:
        return out_.put(p, strnlen(p, iSize)) ? 0 : VIX_ERROR_PRINT_FAILED;
      case VIX_TYPE_WCHAR:
        return wide(p, 1);
      case VIX_TYPE_WSTRING:
        return wide(p, iSize / sizeof(vix_wchar_t));
      default:
        return VIX_ERROR_PRINT_FAILED;
    }
    if (pszText == nullptr) return VIX_ERROR_PRINT_FAILED;
    return out_.put_str(pszText) ? 0 : VIX_ERROR_PRINT_FAILED;
  }

  // Up to iChars wide characters at p (to the first 0) in the multibyte encoding.
  int wide(const char* p, uint64_t iChars) {
    uint64_t n = 0;
    while (n < iChars) {
      vix_wchar_t ch;
      memcpy(&ch, p + n * sizeof(ch), sizeof(ch));
      if (ch == 0) break;
      ++n;
    }
    if (n == 0) return 0;
    // The conversion needs aligned input; a multibyte character takes at most 4 bytes.
    vix_wchar_t awStack[256];
    char szStack[4 * 256 + 1];
    vix_wchar_t* pw = awStack;
    char* pm = szStack;
    if (n > 256) {
      pw = static_cast<vix_wchar_t*>(malloc(n * sizeof(vix_wchar_t)));
      pm = static_cast<char*>(malloc(4 * n + 1));
      if (pw == nullptr || pm == nullptr) {
        free(pw);
        free(pm);
        return VIX_ERROR_NO_MEMORY;
      }
    }
    memcpy(pw, p, n * sizeof(vix_wchar_t));
    size_t iMbs = 4 * n + 1;
    int iRet = vix_wcstochinesembs(pm, &iMbs, pw, n);
    if (iRet == 0 && !out_.put(pm, iMbs)) iRet = VIX_ERROR_PRINT_FAILED;
    if (iRet != 0 && iRet != VIX_ERROR_PRINT_FAILED) iRet = VIX_ERROR_PRINT_FAILED;
    if (pw != awStack) {
      free(pw);
      free(pm);
    }
    return iRet;
  }

  Sink& out_;
  const VIXMETA* top_;
  const char* data_;
  int cutoff_;
  bool noName_;
  bool withVersion_ = false;
  const char* host_;
  uint64_t hostSize_;
  uint64_t budget_;
  const char* sep_ = "";
  size_t sepLen_ = 0;
  char indentChar_ = ' ';
  bool prefix_ = false;
  char prefixBuf_[kMaxSep + (VIX_MAX_NESTING + 1) * kStep];
};

// Steps 3 to 8 of a print, after the argument checks: the cut-off, then the walk.
int print_i(const VIXMETA* pstMeta, VIXIOSTREAM* pstStream, const VIXDATA& stHost, int iCutOff,
            const VIXPRINTFORMAT& stFormat) {
  if (!vix_lib_format_ok_i(vix_lib_of_meta_i(pstMeta))) {
    vix_set_error_detail_i("; invalid parameter: meta<%p> is not in a usable metalib",
                           static_cast<const void*>(pstMeta));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (iCutOff == 0) iCutOff = pstMeta->iCurVersion;
  if (iCutOff < pstMeta->iBaseVersion) {
    vix_set_error_detail_i(
        "; invalid parameter: expect a_iCutOffVersion<%d> NOT less than baseVersion<%d> of "
        "meta<%s>",
        iCutOff, pstMeta->iBaseVersion, vix_get_meta_name(pstMeta));
    return VIX_ERROR_INVALID_CUTOFF_VERSION;
  }
  Sink stSink(pstStream);
  Printer stPrinter(&stSink, pstMeta, stFormat, iCutOff, stHost);
  stPrinter.set_with_version(stFormat.iWithVersion != 0);
  const int iRet = stPrinter.run();
  const int iClose = stSink.close();
  return iRet != 0 ? iRet : iClose;
}

VIXPRINTFORMAT default_format_i() {
  VIXPRINTFORMAT stFormat;
  stFormat.pszSepStr = "\n";
  stFormat.iNoVarName = 0;
  stFormat.chIndentChar = ' ';
  stFormat.iWithVersion = 0;
  return stFormat;
}

VIXIOSTREAM stream_i(char* pszBuff, uint64_t iBuff, FILE* fp) {
  VIXIOSTREAM s;
  memset(&s, 0, sizeof(s));
  s.emIOStreamType = fp != nullptr ? VIX_IOSTREAM_FILE : VIX_IOSTREAM_STRBUF;
  s.pszBuff = pszBuff;
  s.iLeft = iBuff;
  s.fp = fp;
  return s;
}

bool format_ok_i(const VIXPRINTFORMAT* pstFormat) {
  if (pstFormat != nullptr && pstFormat->pszSepStr != nullptr) return true;
  vix_set_error_detail_i(
      "; invalid parameters: a_pstFormat<%p>==NULL or a_pstFormat->pszSepStr==NULL",
      static_cast<const void*>(pstFormat));
  return false;
}

// A host descriptor with bytes to print.
bool host_ok_i(const VIXDATA* pstHost) { return pstHost->pszBuff != nullptr && pstHost->iBuff > 0; }

}  // namespace

int vix_get_default_format(LPVIXPRINTFORMAT pstFormat) {
  if (pstFormat == nullptr) return VIX_ERROR_INVALID_PARAM;
  *pstFormat = default_format_i();
  return 0;
}

int vix_set_encoding(const char* pszEncoding) { return vix_set_encoding_i(pszEncoding); }

int vix_iostream_init_strbuf(LPVIXIOSTREAM pstStream, char* pszBuff, uint64_t iBuff) {
  if (pstStream == nullptr || (pszBuff == nullptr && iBuff > 0)) return VIX_ERROR_INVALID_PARAM;
  *pstStream = stream_i(pszBuff, iBuff, nullptr);
  return 0;
}

int vix_iostream_init_file(LPVIXIOSTREAM pstStream, FILE* fp) {
  if (pstStream == nullptr || fp == nullptr) return VIX_ERROR_INVALID_PARAM;
  *pstStream = stream_i(nullptr, 0, fp);
  return 0;
}

int vix_iostream_write(LPVIXIOSTREAM pstStream, const char* pszFormat, ...) {
  if (pstStream == nullptr || pszFormat == nullptr) return VIX_ERROR_INVALID_PARAM;
  if (pstStream->emIOStreamType != VIX_IOSTREAM_STRBUF &&
      pstStream->emIOStreamType != VIX_IOSTREAM_FILE) {
    return VIX_ERROR_BAD_IOSTREAM;
  }
  char szStack[1024];
  va_list ap;
  va_start(ap, pszFormat);
  const int n = vsnprintf(szStack, sizeof(szStack), pszFormat, ap);
  va_end(ap);
  if (n < 0) return VIX_ERROR_PRINT_FAILED;
  if (static_cast<size_t>(n) < sizeof(szStack)) {
    return stream_put_i(pstStream, szStack, static_cast<size_t>(n));
  }
  char* psz = static_cast<char*>(malloc(static_cast<size_t>(n) + 1));
  if (psz == nullptr) return VIX_ERROR_NO_MEMORY;
  va_start(ap, pszFormat);
  vsnprintf(psz, static_cast<size_t>(n) + 1, pszFormat, ap);
  va_end(ap);
  const int iRet = stream_put_i(pstStream, psz, static_cast<size_t>(n));
  free(psz);
  return iRet;
}

int vix_sprintf(const VIXMETA* pstMeta, LPVIXDATA pstOut, const VIXDATA* pstHost,
                int iCutOffVersion) {
  const VIXPRINTFORMAT stFormat = default_format_i();
  return vix_sprintf_ex(pstMeta, pstOut, pstHost, iCutOffVersion, &stFormat);
}

int vix_sprintf_ex(const VIXMETA* pstMeta, LPVIXDATA pstOut, const VIXDATA* pstHost,
                   int iCutOffVersion, const VIXPRINTFORMAT* pstFormat) {
  vix_clear_error_detail_i();
  if (pstMeta == nullptr || pstOut == nullptr || pstHost == nullptr) {
    vix_set_error_detail_i(
        "; invalid parameters: a_pstMeta<%p>==NULL or a_pstOut<%p>==NULL or a_pstHost<%p>==NULL",
        static_cast<const void*>(pstMeta), static_cast<const void*>(pstOut),
        static_cast<const void*>(pstHost));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (pstOut->pszBuff == nullptr || pstOut->iBuff == 0 || !host_ok_i(pstHost)) {
    vix_set_error_detail_i(
        "; invalid parameters: a_pstOut->pszBuff<%p>==NULL or a_pstOut->iBuff<%llu> <= 0 or "
        "a_pstHost->pszBuff<%p>==NULL or a_pstHost->iBuff<%llu> <= 0",
        static_cast<const void*>(pstOut->pszBuff), static_cast<unsigned long long>(pstOut->iBuff),
        static_cast<const void*>(pstHost->pszBuff),
        static_cast<unsigned long long>(pstHost->iBuff));
    pstOut->iBuff = 0;
    return VIX_ERROR_INVALID_PARAM;
  }
  if (!format_ok_i(pstFormat)) {
    pstOut->iBuff = 0;
    return VIX_ERROR_INVALID_PARAM;
  }
  VIXIOSTREAM stStream = stream_i(pstOut->pszBuff, pstOut->iBuff, nullptr);
  const int iRet = print_i(pstMeta, &stStream, *pstHost, iCutOffVersion, *pstFormat);
  pstOut->iBuff = stStream.iWritten;
  return iRet;
}

int vix_fprintf(const VIXMETA* pstMeta, FILE* fp, const VIXDATA* pstHost, int iCutOffVersion) {
  const VIXPRINTFORMAT stFormat = default_format_i();
  return vix_fprintf_ex(pstMeta, fp, pstHost, iCutOffVersion, &stFormat);
}

int vix_fprintf_ex(const VIXMETA* pstMeta, FILE* fp, const VIXDATA* pstHost, int iCutOffVersion,
                   const VIXPRINTFORMAT* pstFormat) {
  vix_clear_error_detail_i();
  if (pstMeta == nullptr || fp == nullptr || pstHost == nullptr) {
    vix_set_error_detail_i(
        "; invalid parameters: a_pstMeta<%p>==NULL or a_fp<%p>==NULL or a_pstHost<%p>==NULL",
        static_cast<const void*>(pstMeta), static_cast<void*>(fp),
        static_cast<const void*>(pstHost));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (!host_ok_i(pstHost)) {
    vix_set_error_detail_i(
        "; invalid parameters: a_pstHost->pszBuff<%p>==NULL or a_pstHost->iBuff<%llu> <= 0",
        static_cast<const void*>(pstHost->pszBuff),
        static_cast<unsigned long long>(pstHost->iBuff));
    return VIX_ERROR_INVALID_PARAM;
  }
  if (!format_ok_i(pstFormat)) return VIX_ERROR_INVALID_PARAM;
  VIXIOSTREAM stStream = stream_i(nullptr, 0, fp);
  return print_i(pstMeta, &stStream, *pstHost, iCutOffVersion, *pstFormat);
}
