/*
 * pal_defs.h: attributes shared by the platform layer's headers.
 *
 * PAL_MUST_CHECK marks a function whose result code must be looked at: ignoring it warns under
 * GCC and clang, from C and C++. Note that GCC warns even for a cast to void: a caller that
 * deliberately ignores a result tests it (if (...) {}) and says why.
 */
#ifndef PAL_PAL_DEFS_H
#define PAL_PAL_DEFS_H

#if defined(__GNUC__)
#define PAL_MUST_CHECK __attribute__((warn_unused_result))
#else
#define PAL_MUST_CHECK
#endif

#endif /* PAL_PAL_DEFS_H */
