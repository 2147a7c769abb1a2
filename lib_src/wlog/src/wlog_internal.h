/*
 * wlog_internal.h: pieces shared by the library's own sources (not installed).
 *
 * The appender dispatch table: one row per device type. Adding a device type means writing
 * its appender and adding one row in wlog_any.cc; nothing else in the library names a
 * concrete appender. Besides init/writev/fini a row may offer process-wide set-up (run by
 * wlog_init/wlog_fini for every row), the name-refresh interval setter, and the hooks of a
 * device that builds its records itself instead of going through the layout (the memory
 * ring): a message buffer of its own and a record builder.
 */
#ifndef WLOG_SRC_WLOG_INTERNAL_H
#define WLOG_SRC_WLOG_INTERNAL_H

#include <stddef.h>

#include "wlog/wlog.h"

typedef struct tagWlogAnyOps {
  int iType;
  int (*pfnInit)(WLOGANY* pstAny, WLOGDEVANY* pstDev);
  int (*pfnWritev)(WLOGANY* pstAny, unsigned uId, unsigned uCls, const WLOGIOVEC* pstIOVec,
                   int iCount);
  int (*pfnFini)(WLOGANY* pstAny);
  /* Optional process-wide parts (null when the device has none). */
  int (*pfnModuleInit)(void);
  void (*pfnModuleFini)(void);
  void (*pfnSetDnsInterval)(int iSeconds);
  /* Optional: non-zero when this description makes the device build records itself. */
  int (*pfnOwnsRecord)(const WLOGDEVANY* pstDev);
  /* Optional: message space of iSize bytes provided by the device (0 and *ppszBuff set). */
  int (*pfnGetMsgBuff)(WLOGANY* pstAny, size_t iSize, char** ppszBuff);
  /* Optional: builds and stores the record from the event. */
  int (*pfnMakeRecord)(WLOGANY* pstAny, WLOGEVENTBASE* pstEvt);
  /* Non-zero when writing the pieces joined into one gives the same result as writing them
   * one after the other (a byte stream), so a short record may be handed over as one piece. */
  int iJoinPieces;
} WLOGANYOPS;

/* Records up to this size are joined into one piece for devices with iJoinPieces. */
#define WLOG_JOIN_PIECES_MAX 4096

/* Row for a device type, or null for an unknown or not built-in type. */
const WLOGANYOPS* wlogany_find_ops_i(int iType);
/* Every row in table order; *piCount receives the count. */
const WLOGANYOPS* wlogany_all_ops_i(int* piCount);

/* Layout of a category write through the category's compiled pattern (rebuilt when the
 * pattern text changes): output identical to wlog_layout_format(pstEvt, pszFormat). pszFormat
 * is a configured szFormat field: at most WLOG_FORMAT_LEN characters of it are read. */
void wlog_layout_format_cached_i(WLOGLAYOUTCACHE* pstCache, WLOGEVENTBASE* pstEvt,
                                 const char* pszFormat);

/* Priority names: one table, index = priority / 100 (truncating), out of range "UNKNOWN". The
 * layout prints a name left-aligned in WLOG_PRIORITY_PAD columns. */
#define WLOG_PRIORITY_PAD 8
typedef struct tagWlogPriorityName {
  char szName[WLOG_PRIORITY_PAD];
  int iLen;
} WLOGPRIORITYNAME;
const WLOGPRIORITYNAME* wlog_priority_name_i(int iPriority);

/* Context owning an inner instance (from its iIndex). */
WLOGCTX* wlog_get_context_i(WLOGCATEGORYINNERINST* pstInst);

#endif /* WLOG_SRC_WLOG_INTERNAL_H */
