// The logging context: builds category instances from a configuration record, links parents
// and forward targets, refuses forward loops, clones categories, reloads appenders and
// finalises everything. Also the process-wide clock override.

#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/time.h>

#include <atomic>

#include "wlog/wlog.h"
#include "wlog_internal.h"

namespace {

constexpr int kLoopCycle = 1;      // two walkers met: a forward cycle
constexpr int kLoopMemTarget = 2;  // a memory-device category is a forward target

std::atomic<int64_t> g_current_time{0};

inline WLOGCATEGORYINNERINST* inner_of(WLOGCATEGORYINST* pstCat) {
  return reinterpret_cast<WLOGCATEGORYINNERINST*>(pstCat);
}

void copy_text(char* dst, size_t cap, const char* src) {
  strncpy(dst, src, cap - 1);
  dst[cap - 1] = '\0';
}

int dns_interval(int configured) { return configured < 1 ? WLOG_DEFAULT_DNS_INTERNAL : configured; }

void modules_init(int interval) {
  int n = 0;
  const WLOGANYOPS* ops = wlogany_all_ops_i(&n);
  for (int i = 0; i < n; ++i) {
    if (ops[i].pfnModuleInit != nullptr && ops[i].pfnModuleInit() != 0) {
      puts(
          "wlog init async dns failed, then can not async gethostbyname, but not influence the "
          "using of wlog.");
    }
    if (ops[i].pfnSetDnsInterval != nullptr) ops[i].pfnSetDnsInterval(interval);
  }
}

void modules_fini() {
  int n = 0;
  const WLOGANYOPS* ops = wlogany_all_ops_i(&n);
  for (int i = n - 1; i >= 0; --i) {
    if (ops[i].pfnModuleFini != nullptr) ops[i].pfnModuleFini();
  }
}

void modules_set_interval(int interval) {
  int n = 0;
  const WLOGANYOPS* ops = wlogany_all_ops_i(&n);
  for (int i = 0; i < n; ++i) {
    if (ops[i].pfnSetDnsInterval != nullptr) ops[i].pfnSetDnsInterval(interval);
  }
}

WLOGCATEGORYINNERINST* find_by_name(WLOGCTX* ctx, const char* name, size_t len,
                                    const WLOGCATEGORYINNERINST* except) {
  for (int i = 0; i < ctx->stInst.iCount; ++i) {
    WLOGCATEGORYINNERINST* c = &ctx->stInst.astCatInsts[i];
    if (c == except) continue;
    if (strncasecmp(c->szName, name, len) == 0 && c->szName[len] == '\0') return c;
  }
  return nullptr;
}

void resolve_links(WLOGCTX* ctx) {
  for (int i = 0; i < ctx->stInst.iCount; ++i) {
    WLOGCATEGORYINNERINST* c = &ctx->stInst.astCatInsts[i];
    c->pstParent = nullptr;
    c->pstForward = nullptr;
    const char* dot = strrchr(c->szName, '.');
    if (dot != nullptr) {
      const size_t len = static_cast<size_t>(dot - c->szName);
      if (len >= 1 && len < WLOG_NAME_LEN) c->pstParent = find_by_name(ctx, c->szName, len, c);
    }
    const WLOGCATEGORY* cat = c->pstCat;
    const size_t fwd_len = strnlen(cat->szForwardCat, sizeof(cat->szForwardCat));
    if (fwd_len > 0) c->pstForward = find_by_name(ctx, cat->szForwardCat, fwd_len, c);
  }
}

const WLOGANYOPS* ops_of(const WLOGCATEGORY* cat) {
  return cat != nullptr ? wlogany_find_ops_i(cat->stDevice.iType) : nullptr;
}

// A category no forward chain may reach (its device builds its own records).
inline bool is_no_forward_target(const WLOGCATEGORYINNERINST* c) {
  const WLOGANYOPS* ops = ops_of(c->pstCat);
  return ops != nullptr && ops->iNoForwardTarget;
}

// 0 when the forward chain from c is finite and reaches no memory-device category, else the
// kind of loop.
int check_forward_chain(WLOGCATEGORYINNERINST* c) {
  WLOGCATEGORYINNERINST* slow = c;
  WLOGCATEGORYINNERINST* fast = c;
  for (;;) {
    fast = fast->pstForward;
    if (fast == nullptr) return 0;
    if (is_no_forward_target(fast)) return kLoopMemTarget;
    fast = fast->pstForward;
    if (fast == nullptr) return 0;
    if (is_no_forward_target(fast)) return kLoopMemTarget;
    slow = slow->pstForward;
    if (slow == fast) return kLoopCycle;
  }
}

void release_instance(WLOGCATEGORYINNERINST* c) {
  if (c->iInited) {
    wlogany_fini(&c->stWlogAnyInst);
    c->iInited = 0;
  }
  free(c->pszBuff);
  c->pszBuff = nullptr;
}

// Finalises every instance from the last down, then the process-wide parts.
void release_context(WLOGCTX* ctx) {
  while (ctx->stInst.iCount > 0) {
    release_instance(&ctx->stInst.astCatInsts[ctx->stInst.iCount - 1]);
    ctx->stInst.iCount--;
  }
  if (ctx->pstConf != nullptr) {
    modules_fini();
    ctx->pstConf = nullptr;  // a second fini does not release the modules again
  }
}

}  // namespace

WLOGCTX* wlog_get_context_i(WLOGCATEGORYINNERINST* pstInst) {
  WLOGCATEGORYINNERINST* first = pstInst - pstInst->iIndex;
  return reinterpret_cast<WLOGCTX*>(reinterpret_cast<char*>(first) -
                                    offsetof(WLOGCTX, stInst.astCatInsts));
}

extern "C" {

WLOGCTX* wlog_alloc(void) { return static_cast<WLOGCTX*>(calloc(1, sizeof(WLOGCTX))); }

int wlog_free(WLOGCTX** ppstCtx) {
  if (ppstCtx == nullptr || *ppstCtx == nullptr) return -1;
  free(*ppstCtx);
  *ppstCtx = nullptr;
  return 0;
}

int wlog_init(WLOGCTX* pstCtx, WLOGCONF* pstConf) {
  if (pstCtx == nullptr || pstConf == nullptr) return -1;
  if (pstConf->iMagic != WLOG_CONF_MAGIC) return -1;
  if (pstConf->iCount < 0 || pstConf->iCount > WLOG_MAX_CATEGORY) return -1;

  memset(pstCtx, 0, sizeof(*pstCtx));
  pstCtx->pstConf = pstConf;
  copy_text(pstCtx->szHostName, sizeof(pstCtx->szHostName), "0.0.0.0");
  copy_text(pstCtx->szModuleName, sizeof(pstCtx->szModuleName), "unknown");
  for (int i = 0; i < WLOG_MAX_CATEGORY; ++i) pstCtx->stInst.astCatInsts[i].iIndex = i;

  modules_init(dns_interval(pstConf->iAsyncDnsInternal));

  int status = 0;
  for (int i = 0; i < pstConf->iCount; ++i) {
    WLOGCATEGORY* cat = &pstConf->astCategoryList[i];
    WLOGCATEGORYINNERINST* c = &pstCtx->stInst.astCatInsts[i];
    if (cat->iMaxMsgSize < 1) cat->iMaxMsgSize = WLOG_DEFAULT_MAX_MSG_SIZE;
    c->stCatInst.piPriorityHigh = &pstConf->iPriorityHigh;
    c->stCatInst.piPriorityLow = &pstConf->iPriorityLow;
    memcpy(c->szName, cat->szName, WLOG_NAME_LEN - 1);
    c->szName[WLOG_NAME_LEN - 1] = '\0';
    c->pstCat = cat;
    c->pszBuff = static_cast<char*>(calloc(1, static_cast<size_t>(cat->iMaxMsgSize)));
    if (c->pszBuff == nullptr) {
      release_context(pstCtx);
      return status;
    }
    if (!pstConf->iDelayInit) {
      const int ret = wlogany_init(&c->stWlogAnyInst, &cat->stDevice);
      if (ret >= 0) {
        c->iInited = 1;
      } else {
        printf("log category %s init failed\n", c->szName);
        if (!pstConf->iSuppressError || cat->iMustSucc) {
          free(c->pszBuff);
          c->pszBuff = nullptr;
          release_context(pstCtx);
          return ret;
        }
      }
    }
    pstCtx->stInst.iCount++;
  }

  resolve_links(pstCtx);

  for (int i = 0; i < pstCtx->stInst.iCount; ++i) {
    const int loop = check_forward_chain(&pstCtx->stInst.astCatInsts[i]);
    if (loop != 0) {
      printf("wlog conf forward category form loop %d\n", loop);
      release_context(pstCtx);
      return WLOG_ERRCODE(WLOG_ERROR_LOOP);
    }
  }
  return 0;
}

int wlog_fini(WLOGCTX* pstCtx) {
  if (pstCtx == nullptr) return -1;
  release_context(pstCtx);
  return 0;
}

int wlog_reload(WLOGCTX* pstCtx, WLOGCONF* pstConf) {
  if (pstCtx == nullptr || pstConf == nullptr || pstCtx->pstConf == nullptr) return -1;
  if (pstConf->iMagic != WLOG_CONF_MAGIC) return -1;
  WLOGCONF* cur = pstCtx->pstConf;
  cur->iPriorityHigh = pstConf->iPriorityHigh;
  cur->iPriorityLow = pstConf->iPriorityLow;
  cur->iAsyncDnsInternal = dns_interval(pstConf->iAsyncDnsInternal);
  modules_set_interval(cur->iAsyncDnsInternal);

  const int new_count = pstConf->iCount < 0                   ? 0
                        : pstConf->iCount > WLOG_MAX_CATEGORY ? WLOG_MAX_CATEGORY
                                                              : pstConf->iCount;
  for (int i = 0; i < pstCtx->stInst.iCount; ++i) {
    WLOGCATEGORYINNERINST* c = &pstCtx->stInst.astCatInsts[i];
    WLOGCATEGORY* found = nullptr;
    for (int k = 0; k < new_count; ++k) {
      if (strncmp(pstConf->astCategoryList[k].szName, c->szName, WLOG_NAME_LEN) == 0) {
        found = &pstConf->astCategoryList[k];
        break;
      }
    }
    if (found != nullptr) {
      if (c->iInited) wlogany_fini(&c->stWlogAnyInst);
      c->iInited = wlogany_init(&c->stWlogAnyInst, &found->stDevice) >= 0 ? 1 : 0;
      if (!c->iInited) printf("log category %s init failed\n", c->szName);
    } else {
      // A clone: refresh what it shares with the root of its clone chain.
      WLOGCATEGORYINNERINST* root = c;
      for (int guard = 0; root->pstCloneParent != nullptr && guard <= WLOG_MAX_CATEGORY; ++guard) {
        root = root->pstCloneParent;
      }
      const WLOGANYOPS* ops = ops_of(root->pstCat);
      if (root != c && c->pstCat != nullptr && ops != nullptr) {
        WLOGCATEGORY* dst = c->pstCat;
        const WLOGCATEGORY* src = root->pstCat;
        dst->iPriorityHigh = src->iPriorityHigh;
        dst->iPriorityLow = src->iPriorityLow;
        dst->stFilter = src->stFilter;
        if (ops->pfnCloneRefresh != nullptr) ops->pfnCloneRefresh(&dst->stDevice, &src->stDevice);
      }
    }
    if (c->pstCat != nullptr && c->pstCat->iMaxMsgSize < 1) {
      c->pstCat->iMaxMsgSize = WLOG_DEFAULT_MAX_MSG_SIZE;
    }
  }
  return 0;
}

WLOGCATEGORYINST* wlog_get_category(WLOGCTX* pstCtx, const char* pszName) {
  if (pstCtx == nullptr || pszName == nullptr) return nullptr;
  for (int i = 0; i < pstCtx->stInst.iCount; ++i) {
    WLOGCATEGORYINNERINST* c = &pstCtx->stInst.astCatInsts[i];
    if (strcasecmp(c->szName, pszName) == 0) return &c->stCatInst;
  }
  return nullptr;
}

WLOGCATEGORYINST* wlog_get_bill_category(WLOGCTX* pstCtx, const char* pszName) {
  WLOGCATEGORYINST* pub = wlog_get_category(pstCtx, pszName);
  if (pub == nullptr) return nullptr;
  const WLOGCATEGORY* cat = inner_of(pub)->pstCat;
  if (cat == nullptr || cat->stFilter.iCount != 0) return nullptr;
  const WLOGANYOPS* ops = ops_of(cat);
  if (ops == nullptr || ops->pfnIsBill == nullptr || !ops->pfnIsBill(&cat->stDevice))
    return nullptr;
  return pub;
}

int wlog_get_category_size(WLOGCTX* pstCtx) {
  return pstCtx == nullptr ? -1 : pstCtx->stInst.iCount;
}

WLOGCATEGORYINST* wlog_get_category_by_index(WLOGCTX* pstCtx, int iIndex) {
  if (pstCtx == nullptr || iIndex < 0 || iIndex >= pstCtx->stInst.iCount) return nullptr;
  return &pstCtx->stInst.astCatInsts[iIndex].stCatInst;
}

const char* wlog_get_category_pattern(WLOGCATEGORYINST* pstCat) {
  if (pstCat == nullptr) return nullptr;
  const WLOGCATEGORY* cat = inner_of(pstCat)->pstCat;
  const WLOGANYOPS* ops = ops_of(cat);
  if (ops == nullptr || ops->pfnFilePattern == nullptr) return nullptr;
  return ops->pfnFilePattern(&cat->stDevice);
}

WLOGCTX* wlog_get_context(WLOGCATEGORYINST* pstCat) {
  if (pstCat == nullptr) return nullptr;
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  if (c->iIndex < 0 || c->iIndex >= WLOG_MAX_CATEGORY) return nullptr;
  return wlog_get_context_i(c);
}

int wlog_set_host_name(WLOGCTX* pstCtx, const char* pszHostName) {
  if (pstCtx == nullptr || pszHostName == nullptr) return -1;
  copy_text(pstCtx->szHostName, sizeof(pstCtx->szHostName), pszHostName);
  return 0;
}

int wlog_set_module_name(WLOGCTX* pstCtx, const char* pszModuleName) {
  if (pstCtx == nullptr || pszModuleName == nullptr) return -1;
  copy_text(pstCtx->szModuleName, sizeof(pstCtx->szModuleName), pszModuleName);
  return 0;
}

int wlog_set_category_forward(WLOGCATEGORYINST* pstCat, WLOGCATEGORYINST* pstForward) {
  if (pstCat == nullptr || pstForward == nullptr) return -1;
  WLOGCATEGORYINNERINST* c = inner_of(pstCat);
  WLOGCATEGORYINNERINST* f = inner_of(pstForward);
  if (c->pstCat == nullptr || f->pstCat == nullptr) return -1;
  // Refuse what wlog_init refuses: a cycle, or a memory-device category as a target.
  int guard = 0;
  for (WLOGCATEGORYINNERINST* p = f; p != nullptr; p = p->pstForward) {
    if (p == c || is_no_forward_target(p) || ++guard > WLOG_MAX_CATEGORY)
      return WLOG_ERRCODE(WLOG_ERROR_LOOP);
  }
  copy_text(c->pstCat->szForwardCat, sizeof(c->pstCat->szForwardCat), f->pstCat->szName);
  c->pstForward = f;
  return 0;
}

int wlog_clone_category_i(WLOGCATEGORYINST* pstParent, const WLOGCLONEOPTION* pstOption) {
  if (pstParent == nullptr || pstOption == nullptr || pstOption->pszCategoryName == nullptr ||
      pstOption->pszPatternPrefix == nullptr || pstOption->pszPatternSuffix == nullptr) {
    return -1;
  }
  WLOGCATEGORYINNERINST* parent = inner_of(pstParent);
  if (parent->pstCat == nullptr) return -1;
  WLOGCTX* ctx = wlog_get_context(pstParent);
  if (ctx == nullptr || ctx->pstConf == nullptr) return -1;
  WLOGCONF* conf = ctx->pstConf;
  if (wlog_get_category(ctx, pstOption->pszCategoryName) != nullptr) return 1;
  const int idx = ctx->stInst.iCount;
  if (idx > WLOG_MAX_CATEGORY - 1) return -2;

  WLOGCATEGORYINNERINST* c = &ctx->stInst.astCatInsts[idx];
  *c = *parent;
  memset(&c->stWlogAnyInst, 0, sizeof(c->stWlogAnyInst));  // the parent's appender is not shared
  c->iInited = 0;  // the binary-record sequence (iSeq) goes on from the parent's
  c->pszBuff = nullptr;
  c->pstCloneParent = parent;
  c->iIndex = idx;
  c->pstParent = nullptr;
  c->pstForward = nullptr;
  WLOGCATEGORY* cat = &conf->astCategoryList[idx];
  *cat = *parent->pstCat;
  c->pstCat = cat;

  c->pszBuff = static_cast<char*>(calloc(1, static_cast<size_t>(parent->pstCat->iMaxMsgSize)));
  if (c->pszBuff == nullptr) return -3;
  copy_text(c->szName, sizeof(c->szName), pstOption->pszCategoryName);
  copy_text(cat->szName, sizeof(cat->szName), pstOption->pszCategoryName);

  const WLOGANYOPS* ops = ops_of(cat);
  if (ops != nullptr && ops->pfnCloneRename != nullptr) {
    ops->pfnCloneRename(&cat->stDevice, pstOption->pszPatternPrefix, pstOption->pszPatternSuffix);
  }

  if (wlogany_init(&c->stWlogAnyInst, &cat->stDevice) >= 0) {
    c->iInited = 1;
  } else if (!conf->iSuppressError || cat->iMustSucc) {
    free(c->pszBuff);
    c->pszBuff = nullptr;
    return -1;
  }
  ctx->stInst.iCount++;
  conf->iCount++;
  return 0;
}

int wlog_clone_category(WLOGCATEGORYINST* pstParent, const char* pszChildName) {
  WLOGCLONEOPTION opt;
  opt.pszCategoryName = pszChildName;
  opt.pszPatternPrefix = pszChildName;
  opt.pszPatternSuffix = "log";
  return wlog_clone_category_i(pstParent, &opt);
}

int64_t wlog_get_current_time(void) {
  const int64_t v = g_current_time.load(std::memory_order_relaxed);
  if (v > 0) return v;
  struct timeval tv;
  if (gettimeofday(&tv, nullptr) != 0) return -1;
  return static_cast<int64_t>(tv.tv_sec) * 1000000 + tv.tv_usec;
}

int wlog_set_current_time(const struct timeval* pstTime) {
  const int64_t v =
      pstTime == nullptr ? 0 : static_cast<int64_t>(pstTime->tv_sec) * 1000000 + pstTime->tv_usec;
  g_current_time.exchange(v);
  return 0;
}

}  // extern "C"
