// Appender dispatch: selects the concrete appender of a category by its device type. Every
// device type is one row of kOps, written with named fields; this file is the only place in
// the library that knows device types. A type without a row (or without an init) is refused by
// init (-1).

#include <stdio.h>
#include <string.h>

#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

// ---- renaming a clone's files ----

// Renames the file part of a pattern of capacity cap after name: the last '.' of the file part
// becomes '_' followed by name ("dir/app.log" -> "dir/app_sub.log"); without a dot name
// follows the last '/', '\\' or ':' ("dir/app" -> "dir/sub.log"); with neither it replaces the
// pattern. The result is cut to fit and always terminated.
void rename_pattern(char* pattern, size_t cap, const char* name) {
  size_t len = strnlen(pattern, cap - 1);
  size_t pos = 0;
  while (len > 0) {
    const char ch = pattern[len - 1];
    if (ch == '.') {
      pattern[len - 1] = '_';
      pos = len;
      break;
    }
    if (ch == '/' || ch == '\\' || ch == ':') {
      pos = len;
      break;
    }
    --len;
  }
  if (pos >= cap) return;
  const size_t room = cap - 1 - pos;
  const size_t n = strnlen(name, room);
  memcpy(pattern + pos, name, n);
  pattern[pos + n] = '\0';
}

int element_count(const WLOGDEVVEC* vec) {
  if (vec->iCount < 0) return 0;
  return vec->iCount < WLOGVEC_MAX_ELEMENT ? vec->iCount : WLOGVEC_MAX_ELEMENT;
}

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
void file_clone_rename(WLOGDEVANY* d, const char* prefix, const char* suffix) {
  char name[2 * WLOGFILE_PATTERN_LEN];
  snprintf(name, sizeof(name), "%s.%s", prefix, suffix);
  rename_pattern(d->stDevice.stFile.szPattern, sizeof(d->stDevice.stFile.szPattern), name);
}
int file_is_bill(const WLOGDEVANY* d) { return wlogfile_dev_is_bill_i(&d->stDevice.stFile); }
const char* file_pattern(const WLOGDEVANY* d) { return d->stDevice.stFile.szPattern; }
int file_drops_binary_head(const WLOGDEVANY* d) { return d->stDevice.stFile.iDropBinaryHead; }

// ---- network ----
int net_init(WLOGANY* a, WLOGDEVANY* d) {
  return wlognet_init(&a->stInst.stAny.stNet, &d->stDevice.stNet);
}
int net_writev(WLOGANY* a, unsigned, unsigned, const WLOGIOVEC* v, int n) {
  return wlognet_writev(&a->stInst.stAny.stNet, v, n);
}
int net_fini(WLOGANY* a) { return wlognet_fini(&a->stInst.stAny.stNet); }
void net_clone_refresh(WLOGDEVANY* clone, const WLOGDEVANY* root) {
  clone->stDevice.stNet = root->stDevice.stNet;
}
// 0 when the last send delivered the whole record, else 1.
int net_status(const WLOGANY* a) { return a->stInst.stAny.stNet.stInst.iIsSendNetSucc ? 0 : 1; }

// ---- shared-memory ring: records are framed by the ring itself (slot and frame hooks) ----
int mem_init(WLOGANY* a, WLOGDEVANY* d) {
  return wlogmem_init(&a->stInst.stAny.stMem, &d->stDevice.stMem);
}
int mem_writev(WLOGANY*, unsigned, unsigned, const WLOGIOVEC*, int) { return 0; }
int mem_fini(WLOGANY* a) { return wlogmem_fini(&a->stInst.stAny.stMem); }
int mem_get_slot(WLOGANY* a, int iSize, char** ppszSlot) {
  return wlogmem_get_slot(&a->stInst.stAny.stMem, iSize, ppszSlot);
}
int mem_make_frame(WLOGANY* a, const WLOGEVENTBASE* e) {
  return wlogmem_make_frame(&a->stInst.stAny.stMem, e);
}
void mem_clone_rename(WLOGDEVANY* d, const char* prefix, const char* suffix) {
  char name[2 * WLOGMEM_STRING_LEN];
  snprintf(name, sizeof(name), "%s.%s", prefix, suffix);
  WLOGDEVMEM& mem = d->stDevice.stMem;
  rename_pattern(mem.szPattern, sizeof(mem.szPattern), name);
  const size_t used = strnlen(mem.szUri, sizeof(mem.szUri) - 1);
  snprintf(mem.szUri + used, sizeof(mem.szUri) - used, "%s", name);
}
void mem_clone_refresh(WLOGDEVANY* clone, const WLOGDEVANY* root) {
  clone->stDevice.stMem.iEnable = root->stDevice.stMem.iEnable;
}

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
// File element k (counting file elements from 0) is renamed after "<prefix>_<k>.<suffix>".
void vec_clone_rename(WLOGDEVANY* d, const char* prefix, const char* suffix) {
  WLOGDEVVEC& vec = d->stDevice.stVec;
  const int n = element_count(&vec);
  int k = 0;
  for (int i = 0; i < n; ++i) {
    WLOGDEVELEMENT& el = vec.astElements[i];
    if (el.iType != WLOG_DEV_FILE) continue;
    char name[2 * WLOGFILE_PATTERN_LEN + 16];
    snprintf(name, sizeof(name), "%s_%d.%s", prefix, k++, suffix);
    rename_pattern(el.stDevice.stFile.szPattern, sizeof(el.stDevice.stFile.szPattern), name);
  }
}
// The element count and the network elements' descriptions; file names stay the clone's own.
void vec_clone_refresh(WLOGDEVANY* clone, const WLOGDEVANY* root) {
  const WLOGDEVVEC& src = root->stDevice.stVec;
  WLOGDEVVEC& dst = clone->stDevice.stVec;
  const int n = element_count(&src);
  dst.iCount = n;
  for (int k = 0; k < n; ++k) {
    if (src.astElements[k].iType == WLOG_DEV_NET) {
      dst.astElements[k].stDevice.stNet = src.astElements[k].stDevice.stNet;
    }
  }
}
// A bill device when one element without filters is a bill-like file.
int vec_is_bill(const WLOGDEVANY* d) {
  const WLOGDEVVEC& vec = d->stDevice.stVec;
  const int n = element_count(&vec);
  for (int i = 0; i < n; ++i) {
    const WLOGDEVELEMENT& el = vec.astElements[i];
    if (el.stFilterVec.iCount == 0 && el.iType == WLOG_DEV_FILE &&
        wlogfile_dev_is_bill_i(&el.stDevice.stFile)) {
      return 1;
    }
  }
  return 0;
}
// -1 when a network element's last send failed, else 0.
int vec_status(const WLOGANY* a) {
  const WLOGVEC& vec = a->stInst.stAny.stVec;
  const int n = vec.iCount < WLOGVEC_MAX_ELEMENT ? vec.iCount : WLOGVEC_MAX_ELEMENT;
  for (int i = 0; i < n; ++i) {
    const WLOGELEMENT& el = vec.astElements[i];
    if (el.iType == WLOG_DEV_NET && !el.stFileOrNet.stNet.stInst.iIsSendNetSucc) return -1;
  }
  return 0;
}

// ---- capture (tests only) ----
WLOGCAPTURESINK g_capture_sink = nullptr;
void* g_capture_arg = nullptr;

int capture_init(WLOGANY*, WLOGDEVANY*) { return 0; }
int capture_writev(WLOGANY* a, unsigned id, unsigned cls, const WLOGIOVEC* v, int n) {
  if (g_capture_sink == nullptr) return -1;
  g_capture_sink(g_capture_arg, a->pstDev, id, cls, v, n);
  size_t total = 0;
  for (int i = 0; i < n; ++i) total += v[i].iov_len;
  return total > 0x7fffffff ? 0x7fffffff : static_cast<int>(total);
}
int capture_fini(WLOGANY*) { return 0; }

const WLOGANYOPS kOps[] = {
    {.iType = WLOG_DEV_NO, .pfnInit = no_init, .pfnWritev = no_writev, .pfnFini = no_fini},
    {.iType = WLOG_DEV_FILE,
     .pfnInit = file_init,
     .pfnWritev = file_writev,
     .pfnFini = file_fini,
     .pfnCloneRename = file_clone_rename,
     .pfnIsBill = file_is_bill,
     .pfnFilePattern = file_pattern,
     .pfnDropsBinaryHead = file_drops_binary_head,
     .iJoinPieces = 1},
    // Pieces stay separate: the network appender cuts a record at its buffer size.
    {.iType = WLOG_DEV_NET,
     .pfnInit = net_init,
     .pfnWritev = net_writev,
     .pfnFini = net_fini,
     .pfnModuleInit = wlognet_module_init,
     .pfnModuleFini = wlognet_module_fini,
     .pfnSetDnsInterval = wlognet_set_dns_interval,
     .pfnCloneRefresh = net_clone_refresh,
     .pfnQueryStatus = net_status},
    // The ring's records are built by the ring itself: nothing may forward into it.
    {.iType = WLOG_DEV_MEM,
     .pfnInit = mem_init,
     .pfnWritev = mem_writev,
     .pfnFini = mem_fini,
     .pfnCloneRename = mem_clone_rename,
     .pfnCloneRefresh = mem_clone_refresh,
     .pfnGetSlot = mem_get_slot,
     .pfnMakeFrame = mem_make_frame,
     .iNoForwardTarget = 1},
    {.iType = WLOG_DEV_TERM,
     .pfnInit = term_init,
     .pfnWritev = term_writev,
     .pfnFini = term_fini,
     .iJoinPieces = 1},
    // Pieces stay separate: network elements cut a record at their buffer size.
    {.iType = WLOG_DEV_VEC,
     .pfnInit = vec_init,
     .pfnWritev = vec_writev,
     .pfnFini = vec_fini,
     .pfnCloneRename = vec_clone_rename,
     .pfnCloneRefresh = vec_clone_refresh,
     .pfnIsBill = vec_is_bill,
     .pfnQueryStatus = vec_status},
    {.iType = WLOG_DEV_CAPTURE_I,
     .pfnInit = capture_init,
     .pfnWritev = capture_writev,
     .pfnFini = capture_fini},
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

void wlog_capture_set_sink_i(WLOGCAPTURESINK pfnSink, void* pvArg) {
  g_capture_sink = pfnSink;
  g_capture_arg = pvArg;
}

extern "C" {

int wlogany_init(WLOGANY* pstAny, WLOGDEVANY* pstDev) {
  if (pstAny == nullptr || pstDev == nullptr) return -1;
  memset(pstAny, 0, sizeof(*pstAny));
  pstAny->pstDev = pstDev;
  pstAny->stInst.iType = pstDev->iType;
  const WLOGANYOPS* ops = wlogany_find_ops_i(pstDev->iType);
  if (ops == nullptr || ops->pfnInit == nullptr) return -1;
  const int ret = ops->pfnInit(pstAny, pstDev);
  if (ret < 0) ops->pfnFini(pstAny);
  return ret;
}

int wlogany_writev(WLOGANY* pstAny, unsigned uId, unsigned uCls, const WLOGIOVEC* pstIOVec,
                   int iCount) {
  if (pstAny == nullptr || iCount < 0 || (pstIOVec == nullptr && iCount > 0)) return -1;
  const WLOGANYOPS* ops = wlogany_find_ops_i(pstAny->stInst.iType);
  if (ops == nullptr || ops->pfnWritev == nullptr) return -1;
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
  if (ops != nullptr && ops->pfnFini != nullptr) ops->pfnFini(pstAny);
  return 0;
}

}  // extern "C"
