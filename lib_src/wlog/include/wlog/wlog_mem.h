/* wlog_mem.h - memory appender: keeps the newest records in a ring inside a shared-memory
 * segment so that they survive a crash and can be dumped.
 *
 * Conventions: functions return 0 (or a length) on success, -1 or the small negative codes
 * documented per function on failure. The state points at its WLOGDEVMEM (not owned); the
 * shared-memory handle and the attached ring are released when the appender finishes.
 * The category write uses two hooks of this appender instead of its own buffer and layout:
 * one hands out message space inside the ring, the other turns the event into a ring frame.
 */
#ifndef WLOG_WLOG_MEM_H_
#define WLOG_WLOG_MEM_H_

#include <stddef.h>
#include <stdint.h>

#include "wlog/wlog_conf.h"

#ifdef __cplusplus
extern "C" {
#endif

struct tagWlogEventBase;

#define WLOGMEM_HEAD_SIZE 64
#define WLOGMEM_FRAME_OVERHEAD 560
#define WLOGMEM_FRAME_MSG_OFFSET 552
#define WLOGMEM_MAGIC 4674
#define WLOGMEM_KIND_TEXT 0
#define WLOGMEM_KIND_BIN 1
#define WLOGMEM_KIND_FILLER 2

typedef struct tagWlogMem {
  WLOGDEVMEM* pstDev;
  void* pstWsmHandle; /* shared-memory handle */
  void* pvMemHead;    /* the attached ring */
} WLOGMEM, *LPWLOGMEM;

/* The memory appender's functions (init, attach, slot, frame, dump) come with the
 * shared-memory manager they are built on; until then the dispatch table has no row for
 * WLOG_DEV_MEM and a memory category fails to initialise with -1. The records above fix the
 * configuration and state layout already. */

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_MEM_H_ */
