/* wlog_file.h - file appender: strftime-named files, period switching, size rotation, bill mode.
 *
 * Conventions: functions return 0 or a non-negative count on success and -1 on failure;
 * wlogfile_init returns 0x83020401 (WLOG_ERROR_FILE_OPEN) when the file cannot be opened.
 * Null state or description pointers give -1. The state points at its WLOGDEVFILE, which it
 * does not own (it lives in the configuration) and which must outlive it; the FILE and the
 * stdio buffer are owned by the state and released by wlogfile_fini.
 */
#ifndef WLOG_WLOG_FILE_H_
#define WLOG_WLOG_FILE_H_

#include <stdint.h>
#include <stdio.h>
#include <time.h>

#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"
#include "wlog/wlog_iovec.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WLOGFILE_PATH_LEN 192
#define WLOGFILE_MAX_SIZE 4200000000u

typedef struct tagWLogDevFileInst {
  FILE* fp;
  char* pszBuff;   /* stdio buffer, owned */
  time_t tLastMsg; /* time of the last write or check */
  int fDirty;      /* unflushed data */
  time_t tLastSync;
  int iCurRotate; /* current rotation index */
  time_t tCreate; /* unused, kept for layout compatibility */
  uint32_t iTail; /* current file size as tracked by the appender */
  int iRes;       /* reserved */
  char szPath[WLOGFILE_PATH_LEN];
} WLOGDEVFILEINST, *LPWLOGDEVFILEINST;

typedef struct tagWLogFile {
  WLOGDEVFILE* pstDev;
  WLOGDEVFILEINST stInst;
} WLOGFILE, *LPWLOGFILE;

WLOG_MUST_CHECK int wlogfile_init(WLOGFILE* pstFile, WLOGDEVFILE* pstDev);
WLOG_MUST_CHECK int wlogfile_writev(WLOGFILE* pstFile, const WLOGIOVEC* pstIOVec, int iCount);
/* A record of total length 0 writes nothing: it gives the flush result (the file may still be
 * switched when the period changed). */
WLOG_MUST_CHECK int wlogfile_write(WLOGFILE* pstFile, const char* pszBuff, size_t iBuff);
WLOG_MUST_CHECK int wlogfile_sync(WLOGFILE* pstFile);
WLOG_MUST_CHECK int wlogfile_fini(WLOGFILE* pstFile);
/* 1 when the description is bill-like (unbuffered, bill numbering, 1 s period, no sticky
 * rotation, flush on every write), else 0. */
int wlogfile_is_bill(WLOGFILE* pstFile);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_FILE_H_ */
