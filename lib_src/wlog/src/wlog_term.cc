// Terminal appender: writes each record to standard error or standard output.

#include <stdio.h>
#include <string.h>

#include "wlog/wlog_term.h"

extern "C" {

int wlogterm_init(WLOGTERM* pstTerm, WLOGDEVTERM* pstDev) {
  if (pstTerm == nullptr || pstDev == nullptr) return -1;
  pstTerm->pstDev = pstDev;
  pstTerm->iStdType = pstDev->iStdType;
  return 0;
}

int wlogterm_writev(WLOGTERM* pstTerm, const WLOGIOVEC* pstIOVec, int iCount) {
  if (pstTerm == nullptr || pstIOVec == nullptr || iCount < 1) return -1;
  size_t total = 0;
  for (int i = 0; i < iCount; ++i) total += pstIOVec[i].iov_len;
  if (total == 0) return -1;

  FILE* fp = nullptr;
  if (pstTerm->iStdType == WLOG_TERM_STDERR) {
    fp = stderr;
  } else if (pstTerm->iStdType == WLOG_TERM_STDOUT) {
    fp = stdout;
  }
  int ret = static_cast<int>(total > 0x7fffffff ? 0x7fffffff : total);
  for (int i = 0; i < iCount; ++i) {
    const WLOGIOVEC& piece = pstIOVec[i];
    if (piece.iov_len == 0) continue;
    if (fp == nullptr || piece.iov_base == nullptr ||
        fwrite(piece.iov_base, 1, piece.iov_len, fp) != piece.iov_len) {
      ret = -1;  // keep going: the other pieces are still attempted
    }
  }
  return ret;
}

int wlogterm_write(WLOGTERM* pstTerm, const char* pszBuff, size_t iBuff) {
  if (pszBuff == nullptr) return -1;
  WLOGIOVEC piece;
  piece.iov_base = const_cast<char*>(pszBuff);
  piece.iov_len = iBuff;
  return wlogterm_writev(pstTerm, &piece, 1);
}

int wlogterm_fini(WLOGTERM* pstTerm) {
  (void)pstTerm;
  return 0;
}

}  // extern "C"
