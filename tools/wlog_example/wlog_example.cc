// wlog_example: a logging context built in code with two categories, "app" writing to a file
// (under a fresh temporary directory, or the directory given as the argument) and "console"
// writing to standard output; "app" forwards everything to "console" as well.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <memory>

#include "wlog/wlog.h"

namespace {

const char kUsage[] =
    "usage: wlog_example [DIR]\n"
    "\n"
    "Logs a few lines through a file category (DIR/app_YYYYMMDD.log; DIR is created when\n"
    "missing, and defaults to a fresh directory under $TMPDIR or /tmp) that forwards to a\n"
    "terminal category, then prints the log file's path.\n";

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1 && (strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0)) {
    fputs(kUsage, stdout);
    return 0;
  }
  if (argc > 2 || (argc == 2 && argv[1][0] == '-')) {
    fprintf(stderr, "wlog_example: %s %s (see wlog_example --help)\n",
            argc > 2 ? "unexpected argument" : "unknown option", argv[argc > 2 ? 2 : 1]);
    return 2;
  }
  char dir[256];
  if (argc > 1) {
    if (strlen(argv[1]) > 100) {
      fprintf(stderr, "wlog_example: directory name longer than 100 characters\n");
      return 2;
    }
    snprintf(dir, sizeof(dir), "%s", argv[1]);
  } else {
    const char* tmp = getenv("TMPDIR");
    snprintf(dir, sizeof(dir), "%.80s/wlog_example_XXXXXX", tmp != nullptr && *tmp ? tmp : "/tmp");
    if (mkdtemp(dir) == nullptr) {
      perror("wlog_example: mkdtemp");
      return 1;
    }
  }

  // The configuration must outlive the context: the library keeps pointers into it.
  std::unique_ptr<WLOGCONF> conf(new WLOGCONF());
  conf->iMagic = WLOG_CONF_MAGIC;
  conf->iPriorityHigh = WLOG_PRIORITY_NULL;
  conf->iPriorityLow = WLOG_PRIORITY_DEBUG;  // TRACE is dropped before any formatting
  conf->iCount = 2;

  WLOGCATEGORY& app = conf->astCategoryList[0];
  snprintf(app.szName, sizeof(app.szName), "app");
  app.iPriorityHigh = WLOG_PRIORITY_NULL;
  app.iPriorityLow = WLOG_PRIORITY_NULL;
  snprintf(app.szFormat, sizeof(app.szFormat), "%s", WLOG_DEFAULT_FORMAT);
  snprintf(app.szForwardCat, sizeof(app.szForwardCat), "console");
  app.stDevice.iType = WLOG_DEV_FILE;
  WLOGDEVFILE& file = app.stDevice.stDevice.stFile;
  snprintf(file.szPattern, sizeof(file.szPattern), "%.100s/app_%%Y%%m%%d.log", dir);
  file.iBuffSize = 64 * 1024;
  file.iMaxRotate = 5;
  file.dwSizeLimit = 10 * 1024 * 1024;
  file.iSyncTime = 1;

  WLOGCATEGORY& console = conf->astCategoryList[1];
  snprintf(console.szName, sizeof(console.szName), "console");
  console.iPriorityHigh = WLOG_PRIORITY_NULL;
  console.iPriorityLow = WLOG_PRIORITY_INFO;  // the terminal shows INFO and more severe only
  snprintf(console.szFormat, sizeof(console.szFormat), "%%p %%c: %%m%%n");
  console.stDevice.iType = WLOG_DEV_TERM;
  console.stDevice.stDevice.stTerm.iStdType = WLOG_TERM_STDOUT;

  WLOGCTX* ctx = wlog_alloc();
  if (ctx == nullptr) return 1;
  const int ret = wlog_init(ctx, conf.get());
  if (ret != 0) {
    fprintf(stderr, "wlog_init failed: %d (%s)\n", ret, wlog_error_string(ret));
    if (wlog_free(&ctx) != 0) fprintf(stderr, "wlog_example: wlog_free failed\n");
    return 1;
  }
  if (wlog_set_module_name(ctx, "wlog_example") != 0 || wlog_set_host_name(ctx, "127.0.0.1") != 0) {
    fprintf(stderr, "wlog_example: cannot set the module or host name\n");
  }

  WLOGCATEGORYINST* log = wlog_get_category(ctx, "app");
  WLOG_LOG_INFO(log, "example started, pid %d", static_cast<int>(getpid()));
  WLOG_LOG_DEBUG(log, "debug lines go to the file only");
  WLOG_LOG_WARN(log, "a warning with a number: %d", 42);
  WLOG_LOG_ERROR(log, "an error with text: %s", "disk almost full");
  WLOG_LOG_TRACE(log, "never written: below the context-wide bound");

  // The file appender's state records the path of the file it has open.
  char path[WLOGFILE_PATH_LEN];
  const WLOGCATEGORYINNERINST* inner = reinterpret_cast<WLOGCATEGORYINNERINST*>(log);
  snprintf(path, sizeof(path), "%s", inner->stWlogAnyInst.stInst.stAny.stFile.stInst.szPath);
  if (wlog_fini(ctx) != 0 || wlog_free(&ctx) != 0) {
    fprintf(stderr, "wlog teardown failed\n");
    return 1;
  }
  printf("log file: %s\n", path);
  return 0;
}
