/*
 * tos.h: processes, directories and time.
 *
 * Conventions:
 *  - Every function that returns a result code is marked PAL_MUST_CHECK: ignoring it warns.
 *  - Functions return 0 (or a non-negative value) on success and -1 on failure, errno left as
 *    the failing system call set it, unless a function says otherwise.
 *  - Output buffers are (pointer, size in bytes) pairs; nothing is written past size bytes.
 *  - Paths are copied into private bounded buffers before they are modified; a path longer
 *    than TOS_MAX_PATH - 1 characters fails with -1 (ENAMETOOLONG).
 *  - Stateless except tos_get_osinfo, whose result lives in one shared static buffer.
 */
#ifndef PAL_TOS_H
#define PAL_TOS_H

#include <sys/types.h>

#include "pal/pal_defs.h"

/* Operating-system identifiers returned by tos_get_ostype. */
#define TOS_OSTYPE_LINUX 1

/* Longest path (with its terminator) the path-copying functions accept. */
#define TOS_MAX_PATH 4096

/* Size of the static buffer behind tos_get_osinfo. */
#define TOS_OSINFO_SIZE 256

#ifdef __cplusplus
extern "C" {
#endif

/* Nothing to set up; returns 0. */
int tos_init(void);

/* TOS_OSTYPE_LINUX. */
int tos_get_ostype(void);

/* Always 1 on this platform. */
int tos_is_linux(void);

/* chdir(2). */
PAL_MUST_CHECK int tos_chdir(const char* path);

/* getcwd(3) into buf of size bytes; returns buf, or NULL (also for a null buf). */
char* tos_getcwd(char* buf, int size);

/* Creates path and every missing parent with mode 0755; an existing directory is success. */
PAL_MUST_CHECK int tos_mkdir(const char* path);

/* Creates the directories of a file path: everything before its last slash. A path without
 * a slash creates nothing and returns 0. */
PAL_MUST_CHECK int tos_mkdir_by_path(const char* path);

/* Waits for process pid to go away: 0 once it is gone, -1 with errno ETIMEDOUT when more than
 * seconds have passed. */
PAL_MUST_CHECK int tos_timed_wait(pid_t pid, int seconds);

/* readlink of /proc/<pid>/exe into buf (size bytes, no terminator added): the length, or -1. */
PAL_MUST_CHECK int tos_get_exe(pid_t pid, char* buf, int size);

/* 0 when the executable path of pid contains name; -1 with errno 0 when it does not;
 * -2 when the path cannot be read for lack of permission; -1 for any other failure. */
PAL_MUST_CHECK int tos_check_pid(pid_t pid, const char* name);

/* The first integer in the file at path, or -1 when there is none. */
PAL_MUST_CHECK int tos_read_pid(const char* path);

/* Writes "<getpid()>\n" to the file at path (created or truncated). */
PAL_MUST_CHECK int tos_write_pid(const char* path);

/* If the pid file names a live process whose executable contains name, sends it SIGQUIT and
 * waits up to seconds for it to exit (-1 with ETIMEDOUT when it does not). A missing pid, a
 * dead process or another program is success (0). -2 (permission) passes through. */
PAL_MUST_CHECK int tos_kill_prev(const char* pidfile, const char* name, int seconds);

/* Sends sig to the process named in the pid file if its executable contains name; *pid (when
 * not null) receives the pid read. -1 with errno EINVAL when there is no such process. */
PAL_MUST_CHECK int tos_send_signal(const char* pidfile, const char* name, int sig, pid_t* pid);

/* Current local time as "YYYY-MM-DD hh:mm:ss.uuuuuu" into buf (size bytes, truncated to fit,
 * always terminated). -1 for a null buf or size < 1. */
PAL_MUST_CHECK int tos_time(char* buf, int size);

/* getpagesize(2). */
int tos_get_pagesize(void);

/* The base name of path, upper-cased with dots turned into underscores ("src/my.file.h" gives
 * "MY_FILE_H"), into out of size bytes: at most size - 1 characters and a terminator.
 * -1 for null arguments or size < 1. */
PAL_MUST_CHECK int tos_file_to_macro(char* out, int size, const char* path);

/* Ignores SIGPIPE for the whole process. */
PAL_MUST_CHECK int tos_ignore_pipe(void);

/* Turns the calling process into a daemon: fork (parent exits), setsid, ignore the terminal and
 * termination signals, fork again (parent exits), chdir to path when not null (exit status 2
 * when that fails), umask 0. Returns 0 in the daemon. */
PAL_MUST_CHECK int tos_make_daemon(const char* path);

/* Sleeps usec microseconds (nanosleep). */
PAL_MUST_CHECK int tos_usleep(unsigned long usec);

/* "sysname nodename release version machine" from uname in a static shared buffer. */
const char* tos_get_osinfo(void);

#ifdef __cplusplus
}
#endif

#endif /* PAL_TOS_H */
