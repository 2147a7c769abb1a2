/* wlog_iovec.h - the I/O vector element every appender's writev takes.
 *
 * Conventions: a record is handed to an appender as an array of pieces written in order;
 * the pieces are borrowed for the duration of the call only.
 */
#ifndef WLOG_WLOG_IOVEC_H_
#define WLOG_WLOG_IOVEC_H_

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tagWLOGIOVec {
  void* iov_base;
  size_t iov_len;
} WLOGIOVEC, *LPWLOGIOVEC;

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_IOVEC_H_ */
