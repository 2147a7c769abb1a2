/* wmng_common.h - macros shared by the headers of the shared-memory manager.
 *
 * Conventions of the whole library (each header repeats what applies to it):
 * - Plain C functions with the prefixes toffset_ (offset containers), terror_ (error stack) and
 *   wsm_ (registry); usable from C and C++.
 * - Failures are small negative codes local to each function, never exceptions. Registry and
 *   container functions push one frame per failure onto the process's default error stack
 *   (terror.h) and return the negative code; the frame names the cause.
 * - Functions whose result must be checked are marked WMNG_NODISCARD.
 */
#ifndef WMNG_WMNG_COMMON_H_
#define WMNG_WMNG_COMMON_H_

#if defined(__GNUC__)
#define WMNG_NODISCARD __attribute__((warn_unused_result))
#define WMNG_PRINTF_LIKE(fmt_index, first_arg) __attribute__((format(printf, fmt_index, first_arg)))
#else
#define WMNG_NODISCARD
#define WMNG_PRINTF_LIKE(fmt_index, first_arg)
#endif

/* Compile-time layout checks that work from C11 and C++. */
#ifdef __cplusplus
#define WMNG_STATIC_ASSERT(cond, msg) static_assert(cond, msg)
#else
#define WMNG_STATIC_ASSERT(cond, msg) _Static_assert(cond, msg)
#endif

/* The source file name a pushed error frame records: without its directories where the compiler
 * can tell. */
#if defined(__FILE_NAME__)
#define WMNG_FILE_NAME __FILE_NAME__
#else
#define WMNG_FILE_NAME __FILE__
#endif

#endif /* WMNG_WMNG_COMMON_H_ */
