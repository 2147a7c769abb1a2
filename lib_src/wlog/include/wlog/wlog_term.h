/* wlog_term.h - terminal appender: writes records to standard error or standard output.
 *
 * Conventions: 0 or the number of bytes written on success, -1 on failure or null pointers.
 * The state points at its WLOGDEVTERM (not owned) and owns nothing.
 */
#ifndef WLOG_WLOG_TERM_H_
#define WLOG_WLOG_TERM_H_

#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"
#include "wlog/wlog_iovec.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tagWLogTerm {
  WLOGDEVTERM* pstDev;
  int iStdType; /* copied from the description at init */
} WLOGTERM, *LPWLOGTERM;

WLOG_MUST_CHECK int wlogterm_init(WLOGTERM* pstTerm, WLOGDEVTERM* pstDev);
/* Writes every piece to the stream; -1 for an empty total, an unknown stream type or a short
 * write (all pieces are still attempted), else the total length. */
WLOG_MUST_CHECK int wlogterm_writev(WLOGTERM* pstTerm, const WLOGIOVEC* pstIOVec, int iCount);
WLOG_MUST_CHECK int wlogterm_write(WLOGTERM* pstTerm, const char* pszBuff, size_t iBuff);
int wlogterm_fini(WLOGTERM* pstTerm);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_TERM_H_ */
