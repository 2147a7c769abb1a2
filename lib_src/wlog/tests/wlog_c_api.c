/* Compiled as C: the public headers and the caller macros must work from plain C. */
#include <stdio.h>
#include <stdlib.h>

#include "wlog/wlog.h"

/* Logs one line through the macros to standard output; returns 0 on success. */
int wlog_c_api_log_line(void) {
  WLOGCONF* conf = (WLOGCONF*)calloc(1, sizeof(WLOGCONF));
  WLOGCTX* ctx = wlog_alloc();
  int ret = -1;
  if (conf != NULL && ctx != NULL) {
    WLOGCATEGORY* cat = &conf->astCategoryList[0];
    conf->iMagic = WLOG_CONF_MAGIC;
    conf->iPriorityHigh = WLOG_PRIORITY_NULL;
    conf->iPriorityLow = WLOG_PRIORITY_INFO;
    conf->iCount = 1;
    snprintf(cat->szName, sizeof(cat->szName), "c");
    cat->iPriorityHigh = WLOG_PRIORITY_NULL;
    cat->iPriorityLow = WLOG_PRIORITY_NULL;
    snprintf(cat->szFormat, sizeof(cat->szFormat), "%%p%%F:%%m%%n");
    cat->stDevice.iType = WLOG_DEV_TERM;
    cat->stDevice.stDevice.stTerm.iStdType = WLOG_TERM_STDOUT;
    if (wlog_init(ctx, conf) == 0) {
      WLOG_LOG_DEBUG(wlog_get_category(ctx, "c"), "not written %d", 0);
      WLOG_LOG_INFO(wlog_get_category(ctx, "c"), "from C %d", 1);
      ret = wlog_fini(ctx);
    }
  }
  if (ctx != NULL && wlog_free(&ctx) != 0) ret = -1;
  free(conf);
  return ret;
}
