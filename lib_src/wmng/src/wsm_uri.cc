// URIs: parsing "wsm-meta://" and "wsm-data://" texts into fields and rebuilding the text.
#include <limits.h>
#include <string.h>
#include <strings.h>

#include "wmng/wsm.h"
#include "wsm_internal.h"

namespace {

const char kMetaScheme[] = "wsm-meta";
const char kDataScheme[] = "wsm-data";
const char kSchemeEnd[] = "://";

// Separators expected after each field; the last field ends the text.
const char kMetaSeps[] = "/::/:/";  // bid/lib:ver:build/meta:metaver/other
const char kDataSeps[] = "/://";    // bid/prog:progid/func/value
const int kMetaFields = 7;
const int kDataFields = 5;

// Parse failures, the codes of wsm_uri_set.
const int kErrSeparator = 4;
const int kErrTooLong = 5;
const int kErrNumber = 7;

typedef char Field[WSM_NAME_LEN];

// Splits the text after "://" into at most n fields. A field ends at "/", ":" or the end; the
// character that ends it must be the one expected there. Fields after the end stay empty.
int split_i(const char* p, const char* seps, int n, Field* fields) {
  // Whole fields are copied into the record: no byte of them may be left undefined.
  memset(fields, 0, sizeof(Field) * static_cast<size_t>(n));
  for (int i = 0; i < n; ++i) {
    size_t len = 0;
    while (p[len] != '\0' && p[len] != '/' && p[len] != ':') {
      if (len == WSM_NAME_LEN - 1) return kErrTooLong;
      ++len;
    }
    memcpy(fields[i], p, len);
    fields[i][len] = '\0';
    if (p[len] == '\0') return 0;
    if (p[len] != seps[i]) return kErrSeparator;  // also a separator after the last field
    p += len + 1;
  }
  return kErrSeparator;
}

// A number field: decimal digits; "*" or nothing for any (-1).
int number_i(const char* text, int32_t* out) {
  if (text[0] == '\0' || (text[0] == '*' && text[1] == '\0')) {
    *out = -1;
    return 0;
  }
  int64_t v = 0;
  for (const char* c = text; *c != '\0'; ++c) {
    if (*c < '0' || *c > '9') return kErrNumber;
    v = v * 10 + (*c - '0');
    if (v > INT_MAX) return kErrNumber;
  }
  *out = static_cast<int32_t>(v);
  return 0;
}

template <size_t N>
void put_text_i(char (&out)[N], const Field& field) {
  static_assert(N >= WSM_NAME_LEN, "text fields hold a whole URI field");
  memcpy(out, field, WSM_NAME_LEN);
}

int parse_meta_i(const char* body, WsmVixMetaInfo* meta) {
  Field f[kMetaFields];
  int ret = split_i(body, kMetaSeps, kMetaFields, f);
  if (ret == 0) ret = number_i(f[0], &meta->iBid);
  if (ret == 0) ret = number_i(f[2], &meta->iLibVer);
  if (ret == 0) ret = number_i(f[3], &meta->iLibBuildVer);
  if (ret == 0) ret = number_i(f[5], &meta->iMetaVer);
  if (ret != 0) return ret;
  put_text_i(meta->szLib, f[1]);
  put_text_i(meta->szMeta, f[4]);
  put_text_i(meta->szOther, f[6]);
  return 0;
}

int parse_data_i(const char* body, WsmVixDataInfo* data) {
  Field f[kDataFields];
  int ret = split_i(body, kDataSeps, kDataFields, f);
  if (ret == 0) ret = number_i(f[0], &data->iBid);
  if (ret != 0) return ret;
  put_text_i(data->szProgName, f[1]);
  put_text_i(data->szProgId, f[2]);
  put_text_i(data->szFuncName, f[3]);
  put_text_i(data->szValueName, f[4]);
  return 0;
}

// Writes a URI text into a fixed buffer, cut at its size less the terminator (as snprintf would
// cut it), without the cost of parsing a format.
class TextOut {
 public:
  TextOut(char* buf, size_t size) : p_(buf), left_(size - 1) {}
  ~TextOut() { *p_ = '\0'; }
  TextOut(const TextOut&) = delete;
  TextOut& operator=(const TextOut&) = delete;
  TextOut& put(const char* s, size_t n) {
    if (n > left_) n = left_;
    memcpy(p_, s, n);
    p_ += n;
    left_ -= n;
    return *this;
  }
  TextOut& put(char c) { return put(&c, 1); }
  template <size_t N>
  TextOut& field(const char (&f)[N]) {
    return put(f, wsm_i::text_len(f));
  }
  // "*" for a negative number, the decimal text otherwise.
  TextOut& number(int32_t v) {
    if (v < 0) return put('*');
    char digits[12];
    size_t n = 0;
    do {
      digits[sizeof(digits) - 1 - n++] = static_cast<char>('0' + v % 10);
      v /= 10;
    } while (v != 0);
    return put(digits + sizeof(digits) - n, n);
  }

 private:
  char* p_;
  size_t left_;
};

// Rebuilds the text; false for a kind that has none.
bool sync_i(WsmUri* u) {
  if (u->iType == WSM_URI_TYPE_META) {
    const WsmVixMetaInfo& m = u->stMeta;
    TextOut out(u->szUri, sizeof(u->szUri));
    out.put("wsm-meta://", 11).number(m.iBid).put('/').field(m.szLib).put(':');
    out.number(m.iLibVer).put(':').number(m.iLibBuildVer).put('/').field(m.szMeta).put(':');
    out.number(m.iMetaVer).put('/').field(m.szOther);
  } else if (u->iType == WSM_URI_TYPE_DATA) {
    const WsmVixDataInfo& m = u->stData;
    TextOut out(u->szUri, sizeof(u->szUri));
    out.put("wsm-data://", 11).number(m.iBid).put('/').field(m.szProgName).put(':');
    out.field(m.szProgId).put('/').field(m.szFuncName).put('/').field(m.szValueName);
  } else {
    return false;
  }
  u->iSync = 0;
  return true;
}

}  // namespace

namespace wsm_i {

void uri_of_meta(WsmUri* uri, const WsmVixMetaInfo* meta) {
  memset(uri, 0, sizeof(*uri));
  uri->iType = WSM_URI_TYPE_META;
  uri->stMeta = *meta;
  sync_i(uri);
}

void uri_of_data(WsmUri* uri, const WsmVixDataInfo* data) {
  memset(uri, 0, sizeof(*uri));
  uri->iType = WSM_URI_TYPE_DATA;
  uri->stData = *data;
  sync_i(uri);
}

}  // namespace wsm_i

extern "C" {

int wsm_uri_set(WsmUri* pstUri, const char* pszUri) {
  if (pstUri == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (pszUri == nullptr || pszUri[0] == '\0') return WMNG_PUSH(2, WSM_MSG_URI_EMPTY);
  const char* end = strstr(pszUri, kSchemeEnd);
  if (end == nullptr) return WMNG_PUSH(3, WSM_MSG_URI_NO_SCHEME);
  const size_t scheme_len = static_cast<size_t>(end - pszUri);
  WsmUri parsed;
  memset(&parsed, 0, sizeof(parsed));
  if (scheme_len == sizeof(kMetaScheme) - 1 && strncasecmp(pszUri, kMetaScheme, scheme_len) == 0) {
    parsed.iType = WSM_URI_TYPE_META;
  } else if (scheme_len == sizeof(kDataScheme) - 1 &&
             strncasecmp(pszUri, kDataScheme, scheme_len) == 0) {
    parsed.iType = WSM_URI_TYPE_DATA;
  } else {
    return WMNG_PUSH(6, WSM_MSG_URI_SCHEME);
  }
  const char* body = end + sizeof(kSchemeEnd) - 1;
  const int ret = parsed.iType == WSM_URI_TYPE_META ? parse_meta_i(body, &parsed.stMeta)
                                                    : parse_data_i(body, &parsed.stData);
  if (ret == kErrSeparator) return WMNG_PUSH(ret, WSM_MSG_URI_SEPARATOR);
  if (ret == kErrTooLong) return WMNG_PUSH(ret, WSM_MSG_URI_TOO_LONG);
  if (ret == kErrNumber) return WMNG_PUSH(ret, WSM_MSG_URI_NUMBER);
  sync_i(&parsed);
  *pstUri = parsed;
  return 0;
}

int wsm_uri_set_meta(WsmUri* pstUri, const WsmVixMetaInfo* pstMeta) {
  if (pstUri == nullptr || pstMeta == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  memset(pstUri, 0, sizeof(*pstUri));
  pstUri->iType = WSM_URI_TYPE_META;
  pstUri->stMeta = *pstMeta;
  pstUri->iSync = 1;
  return 0;
}

int wsm_uri_set_data(WsmUri* pstUri, const WsmVixDataInfo* pstData) {
  if (pstUri == nullptr || pstData == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  memset(pstUri, 0, sizeof(*pstUri));
  pstUri->iType = WSM_URI_TYPE_DATA;
  pstUri->stData = *pstData;
  pstUri->iSync = 1;
  return 0;
}

int wsm_uri_sync(WsmUri* pstUri) {
  if (pstUri == nullptr) return WMNG_PUSH(1, WSM_MSG_NULL_ARG);
  if (!sync_i(pstUri)) return WMNG_PUSH(2, WSM_MSG_URI_TYPE, pstUri->iType);
  return 0;
}

const char* wsm_uri_get(WsmUri* pstUri) {
  if (pstUri == nullptr) {
    WMNG_PUSH(1, WSM_MSG_NULL_ARG);
    return nullptr;
  }
  if (pstUri->iSync != 0 && wsm_uri_sync(pstUri) != 0) return nullptr;
  pstUri->szUri[WSM_URI_LEN - 1] = '\0';
  return pstUri->szUri;
}

int wsm_uri_compare(const WsmUri* pstA, const WsmUri* pstB) {
  const int a_kind = wsm_uri_is_null(pstA) ? 0 : pstA->iType;
  const int b_kind = wsm_uri_is_null(pstB) ? 0 : pstB->iType;
  if (a_kind == 0 || b_kind == 0) return (a_kind != 0) - (b_kind != 0);
  if (a_kind != b_kind) return a_kind < b_kind ? -1 : 1;
  WsmUri a = *pstA;
  WsmUri b = *pstB;
  sync_i(&a);
  sync_i(&b);
  const int c = strncmp(a.szUri, b.szUri, WSM_URI_LEN);
  return (c > 0) - (c < 0);
}

int wsm_uri_is_null(const WsmUri* pstUri) {
  return pstUri == nullptr || pstUri->iType == WSM_URI_TYPE_NONE ? 1 : 0;
}

}  // extern "C"
