// Helpers for the logging library's tests: configurations built in code, contexts and log calls.
// Temporary directories, file text and output capture come from zq_test_support.
#ifndef WLOG_TESTS_WLOG_TEST_UTIL_H
#define WLOG_TESTS_WLOG_TEST_UTIL_H

#include <stdio.h>
#include <stdlib.h>

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "wlog/wlog.h"
#include "zq_test/support.h"

namespace wlog_test {

// Configurations are large (every category embeds every device description): heap only.
inline std::unique_ptr<WLOGCONF> make_conf() {
  std::unique_ptr<WLOGCONF> conf(new WLOGCONF());
  conf->iMagic = WLOG_CONF_MAGIC;
  conf->iPriorityHigh = -1;
  conf->iPriorityLow = -1;
  return conf;
}

// Appends a category writing to standard output with the given pattern; returns it.
inline WLOGCATEGORY* add_term_category(WLOGCONF* conf, const char* name, const char* format = "",
                                       int dev_type = WLOG_DEV_TERM) {
  WLOGCATEGORY* cat = &conf->astCategoryList[conf->iCount++];
  snprintf(cat->szName, sizeof(cat->szName), "%s", name);
  cat->iPriorityHigh = -1;
  cat->iPriorityLow = -1;
  snprintf(cat->szFormat, sizeof(cat->szFormat), "%s", format);
  cat->stDevice.iType = dev_type;
  cat->stDevice.stDevice.stTerm.iStdType = WLOG_TERM_STDOUT;
  return cat;
}

// Appends a category writing to a file (flushed after every write).
inline WLOGCATEGORY* add_file_category(WLOGCONF* conf, const char* name, const std::string& path,
                                       const char* format = "") {
  WLOGCATEGORY* cat = add_term_category(conf, name, format, WLOG_DEV_FILE);
  WLOGDEVFILE& f = cat->stDevice.stDevice.stFile;
  snprintf(f.szPattern, sizeof(f.szPattern), "%s", path.c_str());
  f.iMaxRotate = 1;
  return cat;
}

struct CtxDeleter {
  void operator()(WLOGCTX* ctx) const {
    wlog_fini(ctx);
    wlog_free(&ctx);
  }
};
using CtxPtr = std::unique_ptr<WLOGCTX, CtxDeleter>;

// Initialises a context from conf; null (and *ret set) on failure.
inline CtxPtr init_ctx(WLOGCONF* conf, int* ret = nullptr) {
  WLOGCTX* ctx = wlog_alloc();
  const int r = wlog_init(ctx, conf);
  if (ret != nullptr) *ret = r;
  if (r != 0) {
    wlog_free(&ctx);
    return CtxPtr();
  }
  return CtxPtr(ctx);
}

inline WLOGCATEGORYINNERINST* inner(WLOGCATEGORYINST* c) {
  return reinterpret_cast<WLOGCATEGORYINNERINST*>(c);
}

// Logs text through wlog_category_logv (no source location).
inline int log_text(WLOGCATEGORYINST* cat, int prio, const char* text, unsigned id = 0,
                    unsigned cls = 0) {
  WLOGEVENT evt = {prio, nullptr, 0, nullptr, 0, id, cls, 0, 0};
  return wlog_category_logv(cat, &evt, "%s", text);
}

}  // namespace wlog_test

#endif  // WLOG_TESTS_WLOG_TEST_UTIL_H
