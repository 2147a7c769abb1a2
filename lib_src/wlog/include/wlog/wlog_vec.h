/* wlog_vec.h - vector appender: fans a record out to up to 32 file or network elements,
 * each with its own id/class filter vector.
 *
 * Conventions: init returns 0 or the first failing element's result (-1 for an element of
 * another type); writev returns the number of elements that accepted the record; fini finalises
 * every element and returns -1 when one of them failed (a file's last flush); null pointers
 * give -1. The state points at its WLOGDEVVEC (not owned); element states are
 * embedded and released by wlogvec_fini.
 */
#ifndef WLOG_WLOG_VEC_H_
#define WLOG_WLOG_VEC_H_

#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"
#include "wlog/wlog_file.h"
#include "wlog/wlog_iovec.h"
#include "wlog/wlog_net.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef union tagWLOGElementSelector {
  WLOGFILE stFile;
  WLOGNET stNet;
} WLOGELEMENTSELECTOR;

typedef struct tagWLOGElement {
  int iIndex;
  int iType; /* WLOG_DEV_FILE or WLOG_DEV_NET */
  WLOGELEMENTSELECTOR stFileOrNet;
} WLOGELEMENT, *LPWLOGELEMENT;

typedef struct tagWLogVec {
  WLOGDEVVEC* pstDev;
  int iCount;
  WLOGELEMENT astElements[WLOGVEC_MAX_ELEMENT];
} WLOGVEC, *LPWLOGVEC;

WLOG_MUST_CHECK int wlogvec_init(WLOGVEC* pstVec, WLOGDEVVEC* pstDev);
WLOG_MUST_CHECK int wlogvec_writev(WLOGVEC* pstVec, unsigned uId, unsigned uCls,
                                   const WLOGIOVEC* pstIOVec, int iCount);
WLOG_MUST_CHECK int wlogvec_fini(WLOGVEC* pstVec);
WLOG_MUST_CHECK int wlogvec_reload_dns_ctx(WLOGVEC* pstVec);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_VEC_H_ */
