// Vector appender: fans one record out to up to 32 file or network elements, each behind its
// own id/class filter vector.

#include <string.h>

#include "wlog/wlog.h"

namespace {

int element_count(const WLOGDEVVEC* dev) {
  if (dev->iCount < 0) return 0;
  return dev->iCount < WLOGVEC_MAX_ELEMENT ? dev->iCount : WLOGVEC_MAX_ELEMENT;
}

// Finalises one element: 0, or -1 when its finalisation failed (a file's last flush).
int fini_element(WLOGELEMENT* el) {
  if (el->iType == WLOG_DEV_FILE) return wlogfile_fini(&el->stFileOrNet.stFile) < 0 ? -1 : 0;
  if (el->iType == WLOG_DEV_NET) return wlognet_fini(&el->stFileOrNet.stNet) < 0 ? -1 : 0;
  return 0;
}

}  // namespace

extern "C" {

int wlogvec_init(WLOGVEC* pstVec, WLOGDEVVEC* pstDev) {
  if (pstVec == nullptr || pstDev == nullptr) return -1;
  memset(pstVec, 0, sizeof(*pstVec));
  pstVec->pstDev = pstDev;
  const int n = element_count(pstDev);
  int ret = 0;
  for (int i = 0; i < n && ret >= 0; ++i) {
    WLOGDEVELEMENT* dev = &pstDev->astElements[i];
    WLOGELEMENT* el = &pstVec->astElements[i];
    el->iIndex = i;
    el->iType = dev->iType;
    if (dev->iType == WLOG_DEV_FILE) {
      ret = wlogfile_init(&el->stFileOrNet.stFile, &dev->stDevice.stFile);
    } else if (dev->iType == WLOG_DEV_NET) {
      ret = wlognet_init(&el->stFileOrNet.stNet, &dev->stDevice.stNet);
    } else {
      ret = -1;
    }
    // Only elements that came up are counted, so a failure finalises exactly those.
    if (ret >= 0) pstVec->iCount = i + 1;
  }
  if (ret < 0) {
    if (wlogvec_fini(pstVec) != 0) {
      // The element's init error is what the caller needs; the others had written nothing.
    }
    return ret;
  }
  return 0;
}

int wlogvec_writev(WLOGVEC* pstVec, unsigned uId, unsigned uCls, const WLOGIOVEC* pstIOVec,
                   int iCount) {
  if (pstVec == nullptr || pstVec->pstDev == nullptr) return -1;
  int written = 0;
  const int n = pstVec->iCount < WLOGVEC_MAX_ELEMENT ? pstVec->iCount : WLOGVEC_MAX_ELEMENT;
  for (int i = 0; i < n; ++i) {
    WLOGELEMENT* el = &pstVec->astElements[i];
    if (!wlogfilter_match_vec(&pstVec->pstDev->astElements[i].stFilterVec, uId, uCls)) continue;
    int ret = -1;
    if (el->iType == WLOG_DEV_FILE) {
      ret = wlogfile_writev(&el->stFileOrNet.stFile, pstIOVec, iCount);
    } else if (el->iType == WLOG_DEV_NET) {
      ret = wlognet_writev(&el->stFileOrNet.stNet, pstIOVec, iCount);
    }
    if (ret >= 0) ++written;
  }
  return written;
}

int wlogvec_fini(WLOGVEC* pstVec) {
  if (pstVec == nullptr) return -1;
  int ret = 0;
  const int n = pstVec->iCount < WLOGVEC_MAX_ELEMENT ? pstVec->iCount : WLOGVEC_MAX_ELEMENT;
  for (int i = 0; i < n; ++i) {
    if (fini_element(&pstVec->astElements[i]) != 0) ret = -1;
  }
  pstVec->iCount = 0;
  return ret;
}

int wlogvec_reload_dns_ctx(WLOGVEC* pstVec) {
  if (pstVec == nullptr) return -1;
  int sum = 0;
  const int n = pstVec->iCount < WLOGVEC_MAX_ELEMENT ? pstVec->iCount : WLOGVEC_MAX_ELEMENT;
  for (int i = 0; i < n; ++i) {
    if (pstVec->astElements[i].iType == WLOG_DEV_NET) {
      sum += wlognet_reload_dns_ctx(&pstVec->astElements[i].stFileOrNet.stNet);
    }
  }
  return sum;
}

}  // extern "C"
