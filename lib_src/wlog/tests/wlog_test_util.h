// Helpers for the logging library's tests: configurations built in code, contexts and log calls.
// Temporary directories, file text and output capture come from zq_test_support.
#ifndef WLOG_TESTS_WLOG_TEST_UTIL_H
#define WLOG_TESTS_WLOG_TEST_UTIL_H

#include <dirent.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../src/wlog_internal.h"
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

// Appends a category with the given pattern and device type (by default the capturing test
// device; a terminal writes to standard output); returns it.
inline WLOGCATEGORY* add_category(WLOGCONF* conf, const char* name, const char* format = "",
                                  int dev_type = WLOG_DEV_CAPTURE_I) {
  WLOGCATEGORY* cat = &conf->astCategoryList[conf->iCount++];
  snprintf(cat->szName, sizeof(cat->szName), "%s", name);
  cat->iPriorityHigh = -1;
  cat->iPriorityLow = -1;
  snprintf(cat->szFormat, sizeof(cat->szFormat), "%s", format);
  cat->stDevice.iType = dev_type;
  cat->stDevice.stDevice.stTerm.iStdType = WLOG_TERM_STDOUT;
  return cat;
}

// One record written to a capturing category.
struct Record {
  std::string cat;
  unsigned id;
  unsigned cls;
  std::string bytes;
};

// Collects the records of every capturing category while it lives (one at a time).
class Capture {
 public:
  Capture() { wlog_capture_set_sink_i(&Capture::Sink, this); }
  ~Capture() { wlog_capture_set_sink_i(nullptr, nullptr); }
  Capture(const Capture&) = delete;
  Capture& operator=(const Capture&) = delete;

  // The bytes of all records so far, in order; forgets them.
  std::string Take() {
    std::string all;
    for (const Record& r : records) all += r.bytes;
    records.clear();
    return all;
  }
  std::vector<Record> records;

 private:
  static void Sink(void* arg, const WLOGDEVANY* dev, unsigned id, unsigned cls,
                   const WLOGIOVEC* vec, int count) {
    Record r;
    // A category's device lives inside its WLOGCATEGORY record.
    r.cat = reinterpret_cast<const WLOGCATEGORY*>(reinterpret_cast<const char*>(dev) -
                                                  offsetof(WLOGCATEGORY, stDevice))
                ->szName;
    r.id = id;
    r.cls = cls;
    for (int i = 0; i < count; ++i)
      r.bytes.append(static_cast<const char*>(vec[i].iov_base), vec[i].iov_len);
    static_cast<Capture*>(arg)->records.push_back(r);
  }
};

// Appends a category writing to a file (flushed after every write).
inline WLOGCATEGORY* add_file_category(WLOGCONF* conf, const char* name, const std::string& path,
                                       const char* format = "") {
  WLOGCATEGORY* cat = add_category(conf, name, format, WLOG_DEV_FILE);
  WLOGDEVFILE& f = cat->stDevice.stDevice.stFile;
  snprintf(f.szPattern, sizeof(f.szPattern), "%s", path.c_str());
  f.iMaxRotate = 1;
  return cat;
}

struct CtxDeleter {
  void operator()(WLOGCTX* ctx) const {
    EXPECT_EQ(0, wlog_fini(ctx));
    EXPECT_EQ(0, wlog_free(&ctx));
  }
};
using CtxPtr = std::unique_ptr<WLOGCTX, CtxDeleter>;

// Initialises a context from conf; null (and *ret set) on failure.
inline CtxPtr init_ctx(WLOGCONF* conf, int* ret = nullptr) {
  WLOGCTX* ctx = wlog_alloc();
  const int r = wlog_init(ctx, conf);
  if (ret != nullptr) *ret = r;
  if (r != 0) {
    EXPECT_EQ(0, wlog_free(&ctx));
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

// Logs text from the source location loc.
inline int log_at(WLOGCATEGORYINST* cat, const wlog_loc_info_t* loc, const std::string& text,
                  int prio = WLOG_PRIORITY_INFO) {
  WLOGEVENT evt = {prio, nullptr, 0, loc, 0, 0, 0, 0, 0};
  return wlog_category_logv(cat, &evt, "%s", text.c_str());
}

// Appends an enabled memory-ring category ("%m") on the ring at uri of size bytes.
inline WLOGCATEGORY* add_mem_category(WLOGCONF* conf, const char* name, const char* uri, int size,
                                      int max_msg) {
  WLOGCATEGORY* cat = add_category(conf, name, "%m", WLOG_DEV_MEM);
  WLOGDEVMEM& m = cat->stDevice.stDevice.stMem;
  m.iEnable = 1;
  snprintf(m.szUri, sizeof(m.szUri), "%s", uri);
  m.iBuffSize = size;
  cat->iMaxMsgSize = max_msg;
  return cat;
}

// A network device for url that reconnects, with 1 s connect and send timeouts.
inline WLOGDEVNET net_dev(const std::string& url) {
  WLOGDEVNET d{};
  snprintf(d.szUrl, sizeof(d.szUrl), "%s", url.c_str());
  d.iBuffSize = 4096;
  d.iAutoReconnect = 1;
  d.iConnTimeout = 1000;
  d.iSendTimeout = 1000;
  return d;
}

// sec as local time in the strftime format fmt (up to 191 characters).
inline std::string local_time(const char* fmt, time_t sec) {
  struct tm tm;
  localtime_r(&sec, &tm);
  char buf[192];
  return strftime(buf, sizeof(buf), fmt, &tm) > 0 ? buf : "";
}

// The names in a directory but "." entries, sorted.
inline std::vector<std::string> files_in(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (const struct dirent* e = readdir(d)) {
      if (e->d_name[0] != '.') names.push_back(e->d_name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

}  // namespace wlog_test

#endif  // WLOG_TESTS_WLOG_TEST_UTIL_H
