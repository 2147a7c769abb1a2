// Logs one line to a file through the installed logging library and checks the file.
#include <wlog/wlog.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: consumer WORK_DIR\n");
    return 2;
  }
  const std::string path = std::string(argv[1]) + "/logs/consumer.log";

  // The configuration is large (512 categories) and must outlive the context: keep it on the heap.
  auto* conf = static_cast<WLOGCONF*>(std::calloc(1, sizeof(WLOGCONF)));
  conf->iMagic = WLOG_CONF_MAGIC;
  conf->iPriorityHigh = WLOG_PRIORITY_NULL;
  conf->iPriorityLow = WLOG_PRIORITY_NULL;
  conf->iCount = 1;
  WLOGCATEGORY* cat = &conf->astCategoryList[0];
  std::snprintf(cat->szName, sizeof(cat->szName), "consumer");
  cat->iPriorityHigh = WLOG_PRIORITY_NULL;
  cat->iPriorityLow = WLOG_PRIORITY_INFO;
  std::snprintf(cat->szFormat, sizeof(cat->szFormat), "[%%p] %%m%%n");
  cat->stDevice.iType = WLOG_DEV_FILE;
  std::snprintf(cat->stDevice.stDevice.stFile.szPattern,
                sizeof(cat->stDevice.stDevice.stFile.szPattern), "%s", path.c_str());

  WLOGCTX* ctx = wlog_alloc();
  if (ctx == nullptr || wlog_init(ctx, conf) != 0) {
    std::fprintf(stderr, "wlog_init failed\n");
    return 1;
  }
  WLOGCATEGORYINST* log = wlog_get_category(ctx, "consumer");
  WLOG_LOG_INFO(log, "hello from %s", "a consumer");
  WLOG_LOG_DEBUG(log, "suppressed %d", 1);
  wlog_fini(ctx);
  wlog_free(&ctx);
  std::free(conf);

  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) {
    std::fprintf(stderr, "no log file at %s\n", path.c_str());
    return 1;
  }
  char text[256] = {0};
  size_t n = std::fread(text, 1, sizeof(text) - 1, f);
  std::fclose(f);
  const char* want = "[INFO    ] hello from a consumer\n";
  if (n != std::strlen(want) || std::strcmp(text, want) != 0) {
    std::fprintf(stderr, "unexpected log file content: '%s'\n", text);
    return 1;
  }
  std::printf("consumer logged: %s", text);
  return 0;
}
