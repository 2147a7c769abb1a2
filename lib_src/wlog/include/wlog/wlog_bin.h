/* wlog_bin.h - the 40-byte binary record head written before binary messages.
 *
 * Conventions: on the wire every integer is big-endian. Functions return the head length (or
 * packet length) on success and -1 on failure (short input, short output space, null pointer);
 * wlogbin_filter returns 0 to pass and -1 to reject.
 */
#ifndef WLOG_WLOG_BIN_H_
#define WLOG_WLOG_BIN_H_

#include <stddef.h>
#include <stdint.h>

#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Byte offsets of the head fields. */
#define WLOGBIN_OFF_VER 0
#define WLOGBIN_OFF_MAGIC 1
#define WLOGBIN_OFF_CMD 2
#define WLOGBIN_OFF_HEADLEN 3
#define WLOGBIN_OFF_BODYLEN 4
#define WLOGBIN_OFF_SEC 8
#define WLOGBIN_OFF_USEC 12
#define WLOGBIN_OFF_SEQ 16
#define WLOGBIN_OFF_ID 20
#define WLOGBIN_OFF_CLS 24
#define WLOGBIN_OFF_TYPE 28
#define WLOGBIN_OFF_BODYVER 32
#define WLOGBIN_OFF_CHECKSUM 36
#define WLOGBIN_HEAD_LEN (1 + 1 + 1 + 1 + 4 + 4 + 4 + 4 + 4 + 4 + 4 + 4 + 4)

typedef struct tagWLOGBinTime {
  int32_t iSec;
  int32_t iUsec;
} WLOGBINTIME;

/* Host-order view of the head. */
typedef struct tagWLOGBinHead {
  uint8_t chVer;
  uint8_t chMagic;
  uint8_t chCmd;
  uint8_t chHeadLen;
  int32_t iBodyLen;
  WLOGBINTIME stTime;
  int32_t iSeq;
  uint32_t dwID;
  uint32_t dwCls;
  int32_t iType;
  int32_t iBodyVer;
  int32_t iCheckSum;
} WLOGBINHEAD, *LPWLOGBINHEAD;

/* Reader-side filter on decoded heads. */
typedef struct tagWLOGBinFilter {
  int32_t iStartTime;
  int32_t iLastSec;
  INTFILTER stID;
  INTFILTER stCls;
  int32_t iInst;
} WLOGBINFILTER, *LPWLOGBINFILTER;

/* Head to bytes: -1 when iSpace < 40, else 40. */
WLOG_MUST_CHECK int wlogbin_hton_head(char* pszBuff, size_t iSpace, const WLOGBINHEAD* pstHead);
/* Bytes to head: -1 when iLen < 40, else the head length field. */
WLOG_MUST_CHECK int wlogbin_ntoh_head(WLOGBINHEAD* pstHead, const char* pszBuff, size_t iLen);
/* Like wlogbin_ntoh_head, and *piPkgLen = head length + body length; -1 (and *piPkgLen -1) when
 * the body length is negative or the sum does not fit an int. */
WLOG_MUST_CHECK int wlogbin_get_head(WLOGBINHEAD* pstHead, int* piPkgLen, const char* pszBuff,
                                     size_t iLen);
/* Head length + body length read from the raw bytes; -1 when iLen < 40, the body length is
 * negative or the sum does not fit an int. */
WLOG_MUST_CHECK int wlogbin_get_pkgsize(const char* pszBuff, size_t iLen);
/* Head and body into one buffer: sets the head and body lengths in *pstHead; -1 with errno
 * ERANGE when iBody + 39 >= iSpace; else 40 + iBody. */
WLOG_MUST_CHECK int wlogbin_make_pkg(char* pszBuff, size_t iSpace, WLOGBINHEAD* pstHead,
                                     const char* pszBody, size_t iBody);
/* 0 when the head passes the filter, else -1. */
WLOG_MUST_CHECK int wlogbin_filter(const WLOGBINFILTER* pstFilter, const WLOGBINHEAD* pstHead);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_BIN_H_ */
