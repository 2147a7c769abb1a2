/*
 * wlog_internal.h: pieces shared by the library's own sources (not installed).
 *
 * The appender dispatch table: one row per device type, and the only place in the library that
 * knows device types. Adding a device type means writing its appender and adding one row in
 * wlog_any.cc. Besides init/writev/fini a row may offer process-wide set-up (run by
 * wlog_init/wlog_fini for every row), the name-refresh interval setter, and what the context
 * and the category write need to know about a device description: how a clone renames its
 * files and what it takes over from its root on reload, whether it is a bill device, which file
 * pattern it has, whether binary records lose their head, the status query, whether a forward
 * chain may reach it, and for a device that builds its own records the slot and frame hooks. A hook
 * a row leaves null means "nothing to do" (init: the type cannot be opened, -1). Rows name their
 * fields; every field a row leaves out is null or 0.
 */
#ifndef WLOG_SRC_WLOG_INTERNAL_H
#define WLOG_SRC_WLOG_INTERNAL_H

#include <stddef.h>

#include "wlog/wlog.h"

typedef struct tagWlogAnyOps {
  int iType = 0;
  int (*pfnInit)(WLOGANY* pstAny, WLOGDEVANY* pstDev) = nullptr;
  int (*pfnWritev)(WLOGANY* pstAny, unsigned uId, unsigned uCls, const WLOGIOVEC* pstIOVec,
                   int iCount) = nullptr;
  int (*pfnFini)(WLOGANY* pstAny) = nullptr;
  /* Process-wide parts. */
  int (*pfnModuleInit)(void) = nullptr;
  void (*pfnModuleFini)(void) = nullptr;
  void (*pfnSetDnsInterval)(int iSeconds) = nullptr;
  /* A clone's description: files renamed after "<prefix>.<suffix>"; on reload, what it takes
   * over from the description of its root. */
  void (*pfnCloneRename)(WLOGDEVANY* pstDev, const char* pszPrefix,
                         const char* pszSuffix) = nullptr;
  void (*pfnCloneRefresh)(WLOGDEVANY* pstClone, const WLOGDEVANY* pstRoot) = nullptr;
  /* Non-zero when the description writes bill lines (wlog_get_bill_category). */
  int (*pfnIsBill)(const WLOGDEVANY* pstDev) = nullptr;
  /* The file pattern of the description (wlog_get_category_pattern). */
  const char* (*pfnFilePattern)(const WLOGDEVANY* pstDev) = nullptr;
  /* Non-zero when binary records are written without their head. */
  int (*pfnDropsBinaryHead)(const WLOGDEVANY* pstDev) = nullptr;
  /* wlog_query_net_category_status of an appender of this type (null: 0). */
  int (*pfnQueryStatus)(const WLOGANY* pstAny) = nullptr;
  /* Devices that build their records themselves instead of the layout (the memory ring): the
   * category write formats the message into the space pfnGetSlot hands out (iSize bytes; -1:
   * use the category buffer) and passes the event to pfnMakeFrame; pfnWritev is not used. */
  int (*pfnGetSlot)(WLOGANY* pstAny, int iSize, char** ppszSlot) = nullptr;
  int (*pfnMakeFrame)(WLOGANY* pstAny, const WLOGEVENTBASE* pstEvt) = nullptr;
  /* Non-zero when writing the pieces joined into one gives the same result as writing them
   * one after the other (a byte stream), so a short record may be handed over as one piece. */
  int iJoinPieces = 0;
  /* Non-zero when no forward chain may reach a category of this type. */
  int iNoForwardTarget = 0;
} WLOGANYOPS;

/* Records up to this size are joined into one piece for devices with iJoinPieces. */
#define WLOG_JOIN_PIECES_MAX 4096

/* Row for a device type, or null for an unknown type. */
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

/* Bill-like file description: unbuffered, bill numbering, 1 s period, no sticky rotation,
 * flushed after every write. */
int wlogfile_dev_is_bill_i(const WLOGDEVFILE* pstDev);

/* Test-only device type, reachable through this header alone: every record written to a
 * category of this type goes, with its id and class, to the sink installed by
 * wlog_capture_set_sink_i (a process-wide function pointer, null to remove it). The write
 * returns the record's length, -1 without a sink. */
#define WLOG_DEV_CAPTURE_I 0x7E57
typedef void (*WLOGCAPTURESINK)(void* pvArg, const WLOGDEVANY* pstDev, unsigned uId, unsigned uCls,
                                const WLOGIOVEC* pstIOVec, int iCount);
void wlog_capture_set_sink_i(WLOGCAPTURESINK pfnSink, void* pvArg);

/* Context owning an inner instance (from its iIndex). */
WLOGCTX* wlog_get_context_i(WLOGCATEGORYINNERINST* pstInst);

#endif /* WLOG_SRC_WLOG_INTERNAL_H */
