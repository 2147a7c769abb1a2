/*
 * vix_base.h: definitions shared by every header of the vix runtime.
 *
 * Conventions of the whole vix library (each header repeats what is specific to it):
 *  - C-style API usable from C and C++: plain functions prefixed vix_, records named tagVIX...
 *    with upper-case aliases (VIXMETA, LPVIXMETA), Hungarian field prefixes.
 *  - Functions that can fail return an int: 0 on success, or a negative runtime code
 *    VIX_ERRCODE(n) = 0x82010400 + n (vix_error.h). Such functions are marked VIX_WUR so that
 *    ignoring the result warns. No function throws.
 *  - Lookups that return a pointer return null on failure; they never free or keep what they
 *    are given.
 */
#ifndef VIX_VIX_BASE_H
#define VIX_VIX_BASE_H

#include <stddef.h>
#include <stdint.h>

#if defined(__GNUC__)
#define VIX_WUR __attribute__((warn_unused_result))
#define VIX_PRINTF_LIKE(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define VIX_WUR
#define VIX_PRINTF_LIKE(fmt_index, first_arg)
#endif

#ifdef __cplusplus
#define VIX_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define VIX_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* The runtime's boolean. */
typedef enum tagBoolean { VIX_FALSE = 0, VIX_TRUE = 1 } VIXBOOLEAN;

#endif /* VIX_VIX_BASE_H */
