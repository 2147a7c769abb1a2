/*
 * tfile.h: thin wrappers over file descriptors and paths.
 *
 * Conventions:
 *  - Every function that returns a result code is marked PAL_MUST_CHECK: ignoring it warns.
 *  - Every function returns an int (tfseek a long): 0 or a non-negative value on success,
 *    -1 on failure, with errno left as the failing system call set it.
 *  - Paths are zero-terminated; a null path or null output pointer is a failure (-1, EINVAL).
 *  - tfload and tflload hand back a heap buffer of file size + 1 bytes, zero-terminated;
 *    the caller owns it and releases it with free(). An empty file gives a null buffer
 *    and length 0.
 *  - No function keeps state; all are safe to call from several threads.
 *  - Deliberate hardening: tfopen opens every descriptor close-on-exec (O_CLOEXEC), so a log or
 *    data file never leaks into a program the process starts; tfload and tfcopy retry after
 *    EINTR; tfsize and tflsize fail with EOVERFLOW for a size beyond INT_MAX.
 */
#ifndef PAL_TFILE_H
#define PAL_TFILE_H

#include <sys/stat.h>
#include <sys/types.h>

#include "pal/pal_defs.h"

/* Open flags for tfopen; combine with bitwise or. */
#define TF_MODE_READ 0x01     /* open for reading */
#define TF_MODE_WRITE 0x02    /* open for writing; with TF_MODE_READ: read-write */
#define TF_MODE_CREATE 0x10   /* create the file when missing (mode 0666 before umask) */
#define TF_MODE_TRUNCATE 0x20 /* truncate to length 0 */
#define TF_MODE_EXCL 0x40     /* with TF_MODE_CREATE: fail when the file exists */

/* Size of the blocks tfcopy moves at a time. */
#define TF_COPY_BLOCK 4096

#ifdef __cplusplus
extern "C" {
#endif

/* Opens path with the TF_MODE_* flags; the descriptor (close-on-exec), or -1 (also when
 * neither read nor write is asked for). */
PAL_MUST_CHECK int tfopen(const char* path, int flags);

/* Closes fd; closing -1 is a no-op that returns 0. */
PAL_MUST_CHECK int tfclose(int fd);

/* read(2) / write(2): bytes moved, or -1. */
PAL_MUST_CHECK int tfread(int fd, void* buf, int len);
PAL_MUST_CHECK int tfwrite(int fd, const void* buf, int len);

/* lseek(2): the new offset, or -1. */
PAL_MUST_CHECK long tfseek(int fd, long offset, int whence);

/* Moves the offset to length, then truncates the file there. */
PAL_MUST_CHECK int tftruncate(int fd, long length);

/* fsync(2). */
PAL_MUST_CHECK int tfsync(int fd);

/* Takes a write lock on [start, start + length) (length 0: to the end of the file).
 * wait != 0 blocks until the lock is granted; wait == 0 fails at once when it is held. */
PAL_MUST_CHECK int tflock(int fd, long start, long length, int wait);

/* Releases a lock taken with tflock. */
PAL_MUST_CHECK int tfunlock(int fd, long start, long length);

/* fstat(2) of fd into *st. */
PAL_MUST_CHECK int tfstat(int fd, struct stat* st);

/* Size of the file open on fd, or -1. */
PAL_MUST_CHECK int tfsize(int fd);

/* stat(2) of path into *st. Follows symbolic links, despite the name. */
PAL_MUST_CHECK int tflstat(const char* path, struct stat* st);

/* Size of the file at path, or -1. */
PAL_MUST_CHECK int tflsize(const char* path);

/* 0 when path can be stat-ed, else -1. */
PAL_MUST_CHECK int tfexist(const char* path);

/* unlink(2). */
PAL_MUST_CHECK int tfdelete(const char* path);

/* mkdir(2) with mode 0770 (one level only; see tos_mkdir for the recursive form). */
PAL_MUST_CHECK int tfmkdir(const char* path);

/* Reads the whole file open on fd (from its current offset) into a new zero-terminated
 * buffer. On success *buf (caller frees) and *len are set; an empty file gives *buf == NULL
 * and *len == 0. A short read frees the buffer and fails. */
PAL_MUST_CHECK int tfload(int fd, char** buf, int* len);

/* tfload of the file at path, opened read-only and closed again. */
PAL_MUST_CHECK int tflload(const char* path, char** buf, int* len);

/* Copies src to dst in TF_COPY_BLOCK-byte blocks. With overwrite == 0 an existing, readable
 * dst is a failure. -1 on any open, read or short-write failure. */
PAL_MUST_CHECK int tfcopy(const char* dst, const char* src, int overwrite);

#ifdef __cplusplus
}
#endif

#endif /* PAL_TFILE_H */
