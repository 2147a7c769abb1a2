// Appender dispatch: selects the concrete appender of a category by its device type.
// Every device type is one row of kOps; a type without a row is refused by init (-1).
// Rows are {type, init, writev, fini, module init, module fini, name-refresh interval,
// owns-record test, message buffer, record builder, joinable pieces}.

#include <string.h>

#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

// ---- no device: the category is switched off ----
int no_init(WLOGANY*, WLOGDEVANY*) { return 0; }
int no_writev(WLOGANY*, unsigned, unsigned, const WLOGIOVEC*, int) { return -1; }
int no_fini(WLOGANY*) { return 0; }

// ---- file ----
int file_init(WLOGANY* a, WLOGDEVANY* d) {
  return wlogfile_init(&a->stInst.stAny.stFile, &d->stDevice.stFile);
}
int file_writev(WLOGANY* a, unsigned, unsigned, const WLOGIOVEC* v, int n) {
  return wlogfile_writev(&a->stInst.stAny.stFile, v, n);
}
int file_fini(WLOGANY* a) { return wlogfile_fini(&a->stInst.stAny.stFile); }

// ---- network ----
int net_init(WLOGANY* a, WLOGDEVANY* d) {
  return wlognet_init(&a->stInst.stAny.stNet, &d->stDevice.stNet);
}
int net_writev(WLOGANY* a, unsigned, unsigned, const WLOGIOVEC* v, int n) {
  return wlognet_writev(&a->stInst.stAny.stNet, v, n);
}
int net_fini(WLOGANY* a) { return wlognet_fini(&a->stInst.stAny.stNet); }

// ---- terminal ----
int term_init(WLOGANY* a, WLOGDEVANY* d) {
  return wlogterm_init(&a->stInst.stAny.stTerm, &d->stDevice.stTerm);
}
int term_writev(WLOGANY* a, unsigned, unsigned, const WLOGIOVEC* v, int n) {
  return wlogterm_writev(&a->stInst.stAny.stTerm, v, n);
}
int term_fini(WLOGANY* a) { return wlogterm_fini(&a->stInst.stAny.stTerm); }

// ---- vector of file and network elements ----
int vec_init(WLOGANY* a, WLOGDEVANY* d) {
  return wlogvec_init(&a->stInst.stAny.stVec, &d->stDevice.stVec);
}
int vec_writev(WLOGANY* a, unsigned id, unsigned cls, const WLOGIOVEC* v, int n) {
  return wlogvec_writev(&a->stInst.stAny.stVec, id, cls, v, n);
}
int vec_fini(WLOGANY* a) { return wlogvec_fini(&a->stInst.stAny.stVec); }

const WLOGANYOPS kOps[] = {
    {WLOG_DEV_NO, no_init, no_writev, no_fini, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
     0},
    {WLOG_DEV_FILE, file_init, file_writev, file_fini, nullptr, nullptr, nullptr, nullptr, nullptr,
     nullptr, 1},
    // Pieces stay separate: the network appender cuts a record at its buffer size.
    {WLOG_DEV_NET, net_init, net_writev, net_fini, wlognet_module_init, wlognet_module_fini,
     wlognet_set_dns_interval, nullptr, nullptr, nullptr, 0},
    {WLOG_DEV_TERM, term_init, term_writev, term_fini, nullptr, nullptr, nullptr, nullptr, nullptr,
     nullptr, 1},
    // Pieces stay separate: network elements cut a record at their buffer size.
    {WLOG_DEV_VEC, vec_init, vec_writev, vec_fini, nullptr, nullptr, nullptr, nullptr, nullptr,
     nullptr, 0},
};
constexpr int kOpsCount = static_cast<int>(sizeof(kOps) / sizeof(kOps[0]));

}  // namespace

const WLOGANYOPS* wlogany_find_ops_i(int iType) {
  for (int i = 0; i < kOpsCount; ++i) {
    if (kOps[i].iType == iType) return &kOps[i];
  }
  return nullptr;
}

const WLOGANYOPS* wlogany_all_ops_i(int* piCount) {
  if (piCount != nullptr) *piCount = kOpsCount;
  return kOps;
}

extern "C" {

int wlogany_init(WLOGANY* pstAny, WLOGDEVANY* pstDev) {
  if (pstAny == nullptr || pstDev == nullptr) return -1;
  memset(pstAny, 0, sizeof(*pstAny));
  pstAny->pstDev = pstDev;
  pstAny->stInst.iType = pstDev->iType;
  const WLOGANYOPS* ops = wlogany_find_ops_i(pstDev->iType);
  if (ops == nullptr) return -1;
  const int ret = ops->pfnInit(pstAny, pstDev);
  if (ret < 0) ops->pfnFini(pstAny);
  return ret;
}

int wlogany_writev(WLOGANY* pstAny, unsigned uId, unsigned uCls, const WLOGIOVEC* pstIOVec,
                   int iCount) {
  if (pstAny == nullptr || pstIOVec == nullptr || iCount < 1) return -1;
  const WLOGANYOPS* ops = wlogany_find_ops_i(pstAny->stInst.iType);
  if (ops == nullptr) return -1;
  return ops->pfnWritev(pstAny, uId, uCls, pstIOVec, iCount);
}

int wlogany_write(WLOGANY* pstAny, unsigned uId, unsigned uCls, const char* pszBuff, int iBuff) {
  if (pstAny == nullptr || pszBuff == nullptr || iBuff < 1) return -1;
  WLOGIOVEC piece;
  piece.iov_base = const_cast<char*>(pszBuff);
  piece.iov_len = static_cast<size_t>(iBuff);
  return wlogany_writev(pstAny, uId, uCls, &piece, 1);
}

int wlogany_fini(WLOGANY* pstAny) {
  if (pstAny == nullptr) return 0;
  const WLOGANYOPS* ops = wlogany_find_ops_i(pstAny->stInst.iType);
  if (ops != nullptr) ops->pfnFini(pstAny);
  return 0;
}

}  // extern "C"
