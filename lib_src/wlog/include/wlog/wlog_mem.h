/* wlog_mem.h - memory appender: keeps the newest records in a ring inside a shared-memory
 * segment so that they survive a crash and can be dumped.
 *
 * Conventions: functions return 0 (or a length) on success, -1 or the small negative codes
 * documented per function on failure. The state points at its WLOGDEVMEM (not owned); the
 * shared-memory handle and the attached ring are released by wlogmem_fini.
 * The category write uses two hooks of this appender instead of its own buffer and layout:
 * wlogmem_get_slot hands out message space inside the ring, wlogmem_make_frame turns the
 * event into a ring frame.
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

/* Creates (or attaches to and dumps) the ring: -1..-6 by failing step. */
int wlogmem_init(WLOGMEM* pstMem, WLOGDEVMEM* pstDev);
int wlogmem_fini(WLOGMEM* pstMem);
/* Reader-side attach: -1..-8 by failing step. */
int wlogmem_attach(WLOGMEM* pstMem, WLOGDEVMEM* pstDev);
/* Message space of iSize bytes inside the ring: 0 and *ppszSlot set, or -1. */
int wlogmem_get_slot(WLOGMEM* pstMem, size_t iSize, char** ppszSlot);
/* Turns the event (message already in its slot, or a binary message) into a ring frame. */
int wlogmem_make_frame(WLOGMEM* pstMem, struct tagWlogEventBase* pstEvt);
/* Prints every frame from the oldest; returns 0 or -1. */
int wlogmem_dump(WLOGMEM* pstMem);
/* Attaches to the ring named by the description and dumps it. */
int wmemlog_dump_memdev(WLOGDEVMEM* pstDev);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_MEM_H_ */
