// Bill log: a bill-mode file appender used directly, one time-stamped accounting line per call.

#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include "wlog/wlog.h"

namespace {

constexpr size_t kBillLine = 8192;

}  // namespace

extern "C" {

int wlog_bill_init(WLOGFILE** ppstBill, uint64_t ullSizeLimit, int iPrecision,
                   const char* pszPattern) {
  if (ppstBill == nullptr || pszPattern == nullptr || ullSizeLimit > WLOGFILE_MAX_SIZE) return -1;
  WLOGDEVFILE* dev = static_cast<WLOGDEVFILE*>(calloc(1, sizeof(WLOGDEVFILE)));
  WLOGFILE* file = static_cast<WLOGFILE*>(calloc(1, sizeof(WLOGFILE)));
  if (dev == nullptr || file == nullptr) {
    free(dev);
    free(file);
    return -1;
  }
  strncpy(dev->szPattern, pszPattern, sizeof(dev->szPattern) - 1);
  dev->szPattern[sizeof(dev->szPattern) - 1] = '\0';
  dev->dwSizeLimit = static_cast<uint32_t>(ullSizeLimit);
  dev->iPrecision = iPrecision;
  if (wlogfile_init(file, dev) != 0) {
    free(file);
    free(dev);
    return -1;
  }
  *ppstBill = file;
  return 0;
}

int wlog_bill_log(WLOGFILE* pstBill, const char* pszFmt, ...) {
  if (pstBill == nullptr || pszFmt == nullptr) return -1;
  char line[kBillLine];
  memset(line, 0, sizeof(line));

  // The line's time follows the process-wide clock override when one is set.
  const int64_t now_us = wlog_get_current_time();
  const time_t now = now_us > 0 ? static_cast<time_t>(now_us / 1000000) : time(nullptr);
  struct tm tm;
  size_t len = 0;
  if (localtime_r(&now, &tm) != nullptr)
    len = strftime(line, sizeof(line), "%Y%m%d-%H:%M:%S | ", &tm);

  va_list ap;
  va_start(ap, pszFmt);
  const int n = vsnprintf(line + len, sizeof(line) - len, pszFmt, ap);
  va_end(ap);
  if (n < 0) return -1;
  len += static_cast<size_t>(n);
  if (len < sizeof(line)) {
    line[len++] = '\n';
  } else {
    // Too long for one line: cut it at the buffer and still end it with a line feed.
    len = sizeof(line);
    line[len - 1] = '\n';
  }
  return wlogfile_write(pstBill, line, len) < 0 ? -1 : 0;
}

int wlog_bill_write(WLOGFILE* pstBill, const char* pszBuff, size_t iBuff) {
  if (pstBill == nullptr || pszBuff == nullptr) return -1;
  return wlogfile_write(pstBill, pszBuff, iBuff) < 0 ? -1 : 0;
}

int wlog_bill_fini(WLOGFILE** ppstBill) {
  if (ppstBill == nullptr || *ppstBill == nullptr) return -1;
  WLOGFILE* file = *ppstBill;
  WLOGDEVFILE* dev = file->pstDev;
  const int ret = wlogfile_fini(file);  // the last flush
  free(file);
  free(dev);
  *ppstBill = nullptr;
  return ret < 0 ? -1 : 0;
}

}  // extern "C"
