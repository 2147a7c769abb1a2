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
#include <stdio.h>

#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"

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

/* Ring head, the first 64 bytes of the segment's payload. The frame count counts the record
 * frames written since the ring was set up, the byte total all their bytes and those of the
 * filler frames (so it grows by the capacity per round of the ring). The
 * writer publishes a frame by storing the write position last, so a reader that loads the
 * write position first sees only whole frames before it. */
typedef struct tagWlogMemHead {
  uint32_t dwMagic;   /* WLOGMEM_MAGIC */
  uint32_t dwVersion; /* WLOGMEM_VERSION */
  uint32_t dwReady;   /* 1 once the head is set up */
  uint32_t dwRes;     /* zero */
  uint64_t ullFrames; /* record frames written */
  uint64_t ullBytes;  /* bytes of all frames written, fillers included (stream position) */
  uint64_t ullRes;    /* zero */
  uint64_t ullOldest; /* position of the oldest frame in the data area */
  uint64_t ullWrite;  /* position of the next frame */
  uint64_t ullCap;    /* bytes of the data area: ring size - WLOGMEM_HEAD_SIZE */
} WLOGMEMHEAD, *LPWLOGMEMHEAD;

#define WLOGMEM_VERSION 1

/* A frame in the data area (native byte order, no alignment): length u64 (whole frame),
 * seconds u64, microseconds u64, priority u32, line u32, message length u32, kind u32, source
 * file char[256], function char[256], the message, and the frame length again as the last u64.
 * A frame is message length + WLOGMEM_FRAME_OVERHEAD bytes, or the rest of the ring when fewer
 * than WLOGMEM_FRAME_OVERHEAD bytes would remain after it. */
#define WLOGMEM_FRAME_OFF_LEN 0
#define WLOGMEM_FRAME_OFF_SEC 8
#define WLOGMEM_FRAME_OFF_USEC 16
#define WLOGMEM_FRAME_OFF_PRIORITY 24
#define WLOGMEM_FRAME_OFF_LINE 28
#define WLOGMEM_FRAME_OFF_MSGLEN 32
#define WLOGMEM_FRAME_OFF_KIND 36
#define WLOGMEM_FRAME_OFF_FILE 40
#define WLOGMEM_FRAME_OFF_FUNC 296
#define WLOGMEM_FRAME_NAME_LEN 256

/* Smallest ring the layout allows: the head and one frame with an empty message. */
#define WLOGMEM_RING_MIN (WLOGMEM_HEAD_SIZE + WLOGMEM_FRAME_OVERHEAD)

typedef struct tagWlogMem {
  WLOGDEVMEM* pstDev;
  void* pstWsmHandle; /* shared-memory handle */
  void* pvMemHead;    /* the attached ring */
  int iReadOnly;      /* attached by a reader (wlogmem_attach): no slots, no frames */
} WLOGMEM, *LPWLOGMEM;

/* Writer side. With iEnable 0 nothing is attached and 0 is returned. Otherwise opens a
 * shared-memory handle (-1), binds it to szUri (-2) and to iBuffSize (-3; also for a size below
 * WLOGMEM_RING_MIN) and creates the segment (-4). When the segment exists already it is
 * attached instead (-5), its old records are dumped to standard output first, and the ring is
 * set up anew; -6 when the new segment cannot be attached. The segment outlives the process:
 * it is removed through the shared-memory registry (the wsm tool's unlink). */
WLOG_MUST_CHECK int wlogmem_init(WLOGMEM* pstMem, WLOGDEVMEM* pstDev);

/* Reader side: attaches the ring of szUri read-only. Codes in order: -1 no handle, -2 the URI
 * does not name exactly one segment, -3 no row, -4 a non-zero iBuffSize differs from the
 * segment's size (iBuffSize 0 takes the segment's size), -5 / -6 binding the URI / size,
 * -7 the segment cannot be mapped, -8 it holds no ring. Finish with wlogmem_fini. */
WLOG_MUST_CHECK int wlogmem_attach(WLOGMEM* pstMem, WLOGDEVMEM* pstDev);

/* Detaches the ring and closes the handle; the segment stays. Always 0. */
int wlogmem_fini(WLOGMEM* pstMem);

/* Space for a message of up to iSize bytes at the write position: *ppszSlot points where the
 * message of the next frame goes. -1 when no ring is attached or ready, or iSize + 560 exceeds
 * the capacity. A frame that does not fit before the end of the ring wraps behind a filler
 * frame; when fewer than 560 bytes remain there the ring is emptied (both positions 0) and -1
 * is returned, so the caller uses its own buffer. */
WLOG_MUST_CHECK int wlogmem_get_slot(WLOGMEM* pstMem, int iSize, char** ppszSlot);

/* Appends the event's message as a frame (kind text or binary from evt_is_msg_binary), with
 * the event's priority, time and source location (required: -1 without). A message that is not
 * already in the slot (binary records, the category buffer) is copied into one first. */
WLOG_MUST_CHECK int wlogmem_make_frame(WLOGMEM* pstMem, const struct tagWlogEventBase* pstEvt);

/* Stream positions: the byte total of the head counts every frame written (fillers included),
 * so a frame's stream position is the total when it was started, and its ring position is the
 * stream position modulo the capacity. The newest frame ends at the byte total; the oldest
 * starts at wlogmem_oldest. */

/* Stream position of the oldest frame of an attached ring (the byte total for an empty one).
 * Read while a writer runs, the result may be larger than the truth, never smaller. */
uint64_t wlogmem_oldest(const void* pvRing);

/* Prints the frames from stream position ullFrom up to ullTo of an attached ring in the form of
 * wlogmem_dump, each followed by pszRecordEnd (null: nothing), filler frames skipped. Stops at the
 * first frame failing its checks (length field against trailer, bounds against capacity, message
 * length against frame length) or overwritten by a live writer before it was read; a frame is
 * printed only from a copy made while the writer had not reached it. *piFrames and *pullBytes grow
 * by the frames printed and their bytes; *pullEnd (optional) gets the stream position reached. 0
 * when ullTo was reached, -1 when stopped early or for a bad argument. */
WLOG_MUST_CHECK int wlogmem_dump_range(const void* pvRing, uint64_t ullFrom, uint64_t ullTo,
                                       FILE* fp, const char* pszRecordEnd, int* piFrames,
                                       uint64_t* pullBytes, uint64_t* pullEnd);

/* Prints every frame from the oldest to the newest as
 * "[%04d%02d%02d %02d:%02d:%02d%06d]:[%s:%d][%s()][%s]" (local date and time, microseconds,
 * file, line, function, message; a binary message as upper-case hexadecimal; nothing between
 * records, as a message carries its own line end if it has one),
 * then "#####TotalPacket(%d) TotalBytes(%d)####\n" with the frames printed and their bytes.
 * The number of frames printed, or -1 for a null argument or a ring without its magic. */
WLOG_MUST_CHECK int wlogmem_dump(const void* pvRing, FILE* fp);

/* Attaches the ring described by pstDev (wlogmem_attach), dumps it to fp and detaches. On
 * failure prints "wmemlog dump uri(%s) failed(%d)" to fp and returns the attach code. */
WLOG_MUST_CHECK int wmemlog_dump_memdev(WLOGDEVMEM* pstDev, FILE* fp);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_MEM_H_ */
