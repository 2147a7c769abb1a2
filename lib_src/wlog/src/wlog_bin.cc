// The 40-byte binary record head: big-endian encoding, decoding, packing and filtering.

#include <errno.h>
#include <limits.h>
#include <string.h>

#include "wlog/wlog.h"

namespace {

static_assert(WLOGBIN_HEAD_LEN == 40, "binary head is 40 bytes");

inline void put_u32(char* p, uint32_t v) {
  p[0] = static_cast<char>(v >> 24);
  p[1] = static_cast<char>(v >> 16);
  p[2] = static_cast<char>(v >> 8);
  p[3] = static_cast<char>(v);
}

inline uint32_t get_u32(const char* p) {
  const unsigned char* u = reinterpret_cast<const unsigned char*>(p);
  return (static_cast<uint32_t>(u[0]) << 24) | (static_cast<uint32_t>(u[1]) << 16) |
         (static_cast<uint32_t>(u[2]) << 8) | static_cast<uint32_t>(u[3]);
}

inline int32_t get_i32(const char* p) { return static_cast<int32_t>(get_u32(p)); }

// Head length + body length of a packet, or -1 when the body length read is negative or the
// sum does not fit an int (bytes that are no packet head must not overflow the sum).
int pkg_len(int head, int32_t body) {
  if (body < 0 || body > INT_MAX - head) return -1;
  return head + body;
}

}  // namespace

extern "C" {

int wlogbin_hton_head(char* pszBuff, size_t iSpace, const WLOGBINHEAD* pstHead) {
  if (pszBuff == nullptr || pstHead == nullptr || iSpace < WLOGBIN_HEAD_LEN) return -1;
  pszBuff[WLOGBIN_OFF_VER] = static_cast<char>(pstHead->chVer);
  pszBuff[WLOGBIN_OFF_MAGIC] = static_cast<char>(pstHead->chMagic);
  pszBuff[WLOGBIN_OFF_CMD] = static_cast<char>(pstHead->chCmd);
  pszBuff[WLOGBIN_OFF_HEADLEN] = static_cast<char>(pstHead->chHeadLen);
  put_u32(pszBuff + WLOGBIN_OFF_BODYLEN, static_cast<uint32_t>(pstHead->iBodyLen));
  put_u32(pszBuff + WLOGBIN_OFF_SEC, static_cast<uint32_t>(pstHead->stTime.iSec));
  put_u32(pszBuff + WLOGBIN_OFF_USEC, static_cast<uint32_t>(pstHead->stTime.iUsec));
  put_u32(pszBuff + WLOGBIN_OFF_SEQ, static_cast<uint32_t>(pstHead->iSeq));
  put_u32(pszBuff + WLOGBIN_OFF_ID, pstHead->dwID);
  put_u32(pszBuff + WLOGBIN_OFF_CLS, pstHead->dwCls);
  put_u32(pszBuff + WLOGBIN_OFF_TYPE, static_cast<uint32_t>(pstHead->iType));
  put_u32(pszBuff + WLOGBIN_OFF_BODYVER, static_cast<uint32_t>(pstHead->iBodyVer));
  put_u32(pszBuff + WLOGBIN_OFF_CHECKSUM, static_cast<uint32_t>(pstHead->iCheckSum));
  return WLOGBIN_HEAD_LEN;
}

int wlogbin_ntoh_head(WLOGBINHEAD* pstHead, const char* pszBuff, size_t iLen) {
  if (pstHead == nullptr || pszBuff == nullptr || iLen < WLOGBIN_HEAD_LEN) return -1;
  const unsigned char* u = reinterpret_cast<const unsigned char*>(pszBuff);
  pstHead->chVer = u[WLOGBIN_OFF_VER];
  pstHead->chMagic = u[WLOGBIN_OFF_MAGIC];
  pstHead->chCmd = u[WLOGBIN_OFF_CMD];
  pstHead->chHeadLen = u[WLOGBIN_OFF_HEADLEN];
  pstHead->iBodyLen = get_i32(pszBuff + WLOGBIN_OFF_BODYLEN);
  pstHead->stTime.iSec = get_i32(pszBuff + WLOGBIN_OFF_SEC);
  pstHead->stTime.iUsec = get_i32(pszBuff + WLOGBIN_OFF_USEC);
  pstHead->iSeq = get_i32(pszBuff + WLOGBIN_OFF_SEQ);
  pstHead->dwID = get_u32(pszBuff + WLOGBIN_OFF_ID);
  pstHead->dwCls = get_u32(pszBuff + WLOGBIN_OFF_CLS);
  pstHead->iType = get_i32(pszBuff + WLOGBIN_OFF_TYPE);
  pstHead->iBodyVer = get_i32(pszBuff + WLOGBIN_OFF_BODYVER);
  pstHead->iCheckSum = get_i32(pszBuff + WLOGBIN_OFF_CHECKSUM);
  return pstHead->chHeadLen;
}

int wlogbin_get_head(WLOGBINHEAD* pstHead, int* piPkgLen, const char* pszBuff, size_t iLen) {
  const int head = wlogbin_ntoh_head(pstHead, pszBuff, iLen);
  if (head < 0) return -1;
  const int pkg = pkg_len(head, pstHead->iBodyLen);
  if (piPkgLen != nullptr) *piPkgLen = pkg;
  return pkg < 0 ? -1 : head;
}

int wlogbin_get_pkgsize(const char* pszBuff, size_t iLen) {
  if (pszBuff == nullptr || iLen < WLOGBIN_HEAD_LEN) return -1;
  const unsigned char head = static_cast<unsigned char>(pszBuff[WLOGBIN_OFF_HEADLEN]);
  return pkg_len(head, get_i32(pszBuff + WLOGBIN_OFF_BODYLEN));
}

int wlogbin_make_pkg(char* pszBuff, size_t iSpace, WLOGBINHEAD* pstHead, const char* pszBody,
                     size_t iBody) {
  if (pszBuff == nullptr || pstHead == nullptr || (pszBody == nullptr && iBody > 0)) return -1;
  if (iBody + (WLOGBIN_HEAD_LEN - 1) >= iSpace || iBody > 0x7fffffff - WLOGBIN_HEAD_LEN) {
    errno = ERANGE;
    return -1;
  }
  pstHead->chHeadLen = WLOGBIN_HEAD_LEN;
  pstHead->iBodyLen = static_cast<int32_t>(iBody);
  if (wlogbin_hton_head(pszBuff, iSpace, pstHead) < 0) return -1;
  if (iBody > 0) memcpy(pszBuff + WLOGBIN_HEAD_LEN, pszBody, iBody);
  return WLOGBIN_HEAD_LEN + static_cast<int>(iBody);
}

int wlogbin_filter(const WLOGBINFILTER* pstFilter, const WLOGBINHEAD* pstHead) {
  if (pstFilter == nullptr || pstHead == nullptr) return -1;
  if (pstFilter->iLastSec > 0) {
    const int64_t sec = pstHead->stTime.iSec;
    const int64_t start = pstFilter->iStartTime;
    if (sec < start || sec >= start + pstFilter->iLastSec) return -1;
  }
  if (!wlogfilter_match_int(&pstFilter->stID, pstHead->dwID)) return -1;
  if (!wlogfilter_match_int(&pstFilter->stCls, pstHead->dwCls)) return -1;
  return 0;
}

}  // extern "C"
