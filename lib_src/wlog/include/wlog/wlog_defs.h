/*
 * wlog_defs.h: attributes shared by the logging library's headers.
 *
 * WLOG_MUST_CHECK marks a function whose result code must be looked at: ignoring it warns under
 * GCC and clang, from C and C++. Note that GCC warns even for a cast to void: a caller that
 * deliberately ignores a result tests it (if (...) {}) and says why.
 */
#ifndef WLOG_WLOG_DEFS_H_
#define WLOG_WLOG_DEFS_H_

#if defined(__GNUC__)
#define WLOG_MUST_CHECK __attribute__((warn_unused_result))
#else
#define WLOG_MUST_CHECK
#endif

#endif /* WLOG_WLOG_DEFS_H_ */
