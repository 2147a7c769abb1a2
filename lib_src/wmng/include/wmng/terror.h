/* terror.h - the error stack: failing functions push a frame (file, line, function, code,
 * message) so that a caller can print the whole chain of causes.
 *
 * Conventions:
 * - A null set means the process's default set, made on first use with TERROR_DEFAULT_SIZE
 *   frames. It is one per process and unguarded: use it from one thread at a time.
 * - Sets made by terror_init are owned by the caller and released with terror_destroy.
 * - Frames keep the file and function pointers they were given (string literals such as
 *   __FILE__ and __func__) and a copy of the message cut to TERROR_MSG_LEN - 2 characters.
 * - A push onto a full set is dropped; the push still returns the negative code.
 * - Iteration moves the set's cursor (iTerator); dumping restores it.
 */
#ifndef WMNG_TERROR_H_
#define WMNG_TERROR_H_

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

#include "wmng/wmng_common.h"

#ifdef __cplusplus
extern "C" {
#endif

#define TERROR_MSG_LEN 257     /* message buffer: 255 characters, a terminator, one spare */
#define TERROR_DEFAULT_SIZE 20 /* frames of the default set */

typedef struct tagTErrorFrame {
  const char* pszFile; /* source file ("" when none was given) */
  int32_t iLine;
  const char* pszFunc; /* function ("" when none was given) */
  int32_t iErrNo;      /* the failing function's local code */
  char szErrStr[TERROR_MSG_LEN];
} TErrorFrame, TERRORFRAME;

typedef struct tagTErrorSet {
  int32_t iSize;         /* capacity in frames */
  int32_t iCount;        /* frames held; frame iCount - 1 is the newest */
  int32_t iCurrent;      /* index of the newest frame, -1 when empty */
  int32_t iTerator;      /* iteration cursor */
  int32_t iMaxFile;      /* longest file name held, for aligned output */
  int32_t iMaxFunc;      /* longest function name held */
  TErrorFrame* pstFrame; /* iSize frames */
} TErrorSet, TERRORSET;

/* Pushes a frame with the caller's file, line and function; evaluates to the negative code. */
#define TERROR_PUSH(set, code, ...) \
  terror_push_func((set), WMNG_FILE_NAME, __LINE__, __func__, (code), __VA_ARGS__)

/* A new empty set of iSize frames, or NULL for iSize < 1 or when memory runs out. */
TErrorSet* terror_init(int iSize);

/* The default set, made on first use with TERROR_DEFAULT_SIZE frames. */
TErrorSet* terror_get(void);

/* Fills the next frame when the set has room (null file or function stored as ""; the message
 * formatted and cut to 255 characters) and updates the longest names; drops it otherwise.
 * Returns -iErrNo either way, so that a failing function can return the push. */
int terror_push_func(TErrorSet* pstSet, const char* pszFile, int iLine, const char* pszFunc,
                     int iErrNo, const char* pszFormat, ...) WMNG_PRINTF_LIKE(6, 7);
int terror_vpush_func(TErrorSet* pstSet, const char* pszFile, int iLine, const char* pszFunc,
                      int iErrNo, const char* pszFormat, va_list ap) WMNG_PRINTF_LIKE(6, 0);

/* Removes the newest frame: 0, or -1 when the set is empty. */
WMNG_NODISCARD int terror_pop(TErrorSet* pstSet);

/* The newest frame, or NULL when the set is empty. */
const TErrorFrame* terror_top(TErrorSet* pstSet);

/* Frames held. */
int terror_count(TErrorSet* pstSet);

/* Drops every frame and forgets the longest names. */
void terror_clear(TErrorSet* pstSet);

/* Frees a set made by terror_init and sets *ppstSet to NULL. The default set (a null pointer or
 * the set terror_get returns) is cleared instead: it lives as long as the process. */
void terror_destroy(TErrorSet** ppstSet);

/* Iteration from the newest frame: begin, then next until the result equals end (NULL). */
const TErrorFrame* terror_begin(TErrorSet* pstSet);
const TErrorFrame* terror_next(TErrorSet* pstSet);
const TErrorFrame* terror_end(TErrorSet* pstSet);
/* Iteration from the oldest frame. */
const TErrorFrame* terror_rbegin(TErrorSet* pstSet);
const TErrorFrame* terror_rnext(TErrorSet* pstSet);
const TErrorFrame* terror_rend(TErrorSet* pstSet);

/* Writes every frame to fp (stderr when NULL), newest first (terror_dump) or oldest first
 * (terror_rdump), one line each:
 *   "<file right-aligned>:<line left-aligned in 4> <function right-aligned> -> (code) (message)"
 * with the names padded to the longest held. Returns the frames written, or -2 for a set
 * without frames storage. */
int terror_dump(TErrorSet* pstSet, FILE* fp);
int terror_rdump(TErrorSet* pstSet, FILE* fp);

/* The same lines as terror_dump into buf (iSize bytes, always terminated). Returns the length
 * written; -1 for a null buffer or iSize < 1, -2 for a set without frames storage, -3 when the
 * buffer is too small (it then holds the lines that fit). The cursor is restored. */
WMNG_NODISCARD int terror_dump_string(TErrorSet* pstSet, char* pszBuf, int iSize);

#ifdef __cplusplus
}
#endif

#endif /* WMNG_TERROR_H_ */
