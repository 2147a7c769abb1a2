// Process, directory and time wrappers.
#include "pal/tos.h"

#include <ctype.h>
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/utsname.h>
#include <time.h>
#include <unistd.h>

namespace {

char g_osinfo[TOS_OSINFO_SIZE];

// Copies path into buf (TOS_MAX_PATH bytes); false (errno set) for null or over-long input.
bool copy_path_i(char* buf, const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return false;
  }
  size_t len = strnlen(path, TOS_MAX_PATH);
  if (len >= TOS_MAX_PATH) {
    errno = ENAMETOOLONG;
    return false;
  }
  memcpy(buf, path, len + 1);
  return true;
}

// Creates the directory in buf and its missing parents. buf is cut at a slash temporarily
// while the parent is made, and restored before returning.
int mkdir_rec_i(char* buf) {
  if (mkdir(buf, 0755) == 0 || errno == EEXIST) return 0;
  char* slash = strrchr(buf, '/');
  if (slash == nullptr) return -1;
  if (slash == buf) return -1;  // the parent is the root, which always exists
  *slash = '\0';
  int ret = mkdir_rec_i(buf);
  *slash = '/';
  if (ret != 0) return -1;
  if (mkdir(buf, 0755) == 0 || errno == EEXIST) return 0;
  return -1;
}

long long monotonic_us_i() {
  struct timespec ts;
  clock_gettime(CLOCK_MONOTONIC, &ts);
  return static_cast<long long>(ts.tv_sec) * 1000000LL + ts.tv_nsec / 1000;
}

}  // namespace

extern "C" {

int tos_init(void) { return 0; }

int tos_get_ostype(void) { return TOS_OSTYPE_LINUX; }

int tos_is_linux(void) { return 1; }

int tos_chdir(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  return chdir(path);
}

char* tos_getcwd(char* buf, int size) {
  if (buf == nullptr || size < 1) {
    errno = EINVAL;
    return nullptr;
  }
  return getcwd(buf, static_cast<size_t>(size));
}

int tos_mkdir(const char* path) {
  char buf[TOS_MAX_PATH];
  if (!copy_path_i(buf, path)) return -1;
  if (buf[0] == '\0') {
    errno = ENOENT;
    return -1;
  }
  return mkdir_rec_i(buf);
}

int tos_mkdir_by_path(const char* path) {
  char buf[TOS_MAX_PATH];
  if (!copy_path_i(buf, path)) return -1;
  char* slash = strrchr(buf, '/');
  if (slash == nullptr) return 0;
  *slash = '\0';
  if (buf[0] == '\0') return 0;  // a file directly under the root
  return mkdir_rec_i(buf);
}

int tos_timed_wait(pid_t pid, int seconds) {
  const long long limit = static_cast<long long>(seconds) * 1000000LL;
  const long long start = monotonic_us_i();
  for (;;) {
    usleep(0);
    if (kill(pid, 0) != 0 && errno == ESRCH) return 0;
    if (monotonic_us_i() - start > limit) {
      errno = ETIMEDOUT;
      return -1;
    }
  }
}

int tos_get_exe(pid_t pid, char* buf, int size) {
  if (buf == nullptr || size < 1) {
    errno = EINVAL;
    return -1;
  }
  char link[64];
  snprintf(link, sizeof(link), "/proc/%d/exe", static_cast<int>(pid));
  return static_cast<int>(readlink(link, buf, static_cast<size_t>(size)));
}

int tos_check_pid(pid_t pid, const char* name) {
  if (name == nullptr) {
    errno = EINVAL;
    return -1;
  }
  char exe[PATH_MAX + 1];
  int n = tos_get_exe(pid, exe, PATH_MAX);
  if (n < 0) return (errno == EACCES || errno == EPERM) ? -2 : -1;
  exe[n] = '\0';
  if (strstr(exe, name) != nullptr) return 0;
  errno = 0;
  return -1;
}

int tos_read_pid(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  FILE* fp = fopen(path, "r");
  if (fp == nullptr) return -1;
  // The first integer of the first line; -1 when there is none or it does not fit an int.
  char line[32] = {0};
  const bool read = fgets(line, sizeof(line), fp) != nullptr;
  fclose(fp);
  if (!read) return -1;
  char* end = nullptr;
  errno = 0;
  const long pid = strtol(line, &end, 10);
  if (end == line || errno != 0 || pid < INT_MIN || pid > INT_MAX) return -1;
  return static_cast<int>(pid);
}

int tos_write_pid(const char* path) {
  if (path == nullptr) {
    errno = EINVAL;
    return -1;
  }
  FILE* fp = fopen(path, "w");
  if (fp == nullptr) return -1;
  int ok = fprintf(fp, "%d\n", static_cast<int>(getpid())) > 0;
  if (fclose(fp) != 0) ok = 0;
  return ok ? 0 : -1;
}

int tos_kill_prev(const char* pidfile, const char* name, int seconds) {
  int pid = tos_read_pid(pidfile);
  // Pids 0 and below would address process groups; the own pid is not a previous instance.
  if (pid <= 0 || pid == static_cast<int>(getpid())) return 0;
  int ret = tos_check_pid(pid, name);
  if (ret == -2) return -2;
  if (ret != 0) return 0;
  if (kill(pid, SIGQUIT) != 0) return errno == ESRCH ? 0 : -1;
  return tos_timed_wait(pid, seconds);
}

int tos_send_signal(const char* pidfile, const char* name, int sig, pid_t* pid) {
  int p = tos_read_pid(pidfile);
  if (pid != nullptr) *pid = p;
  if (p <= 0 || tos_check_pid(p, name) != 0) {
    errno = EINVAL;
    return -1;
  }
  return kill(p, sig);
}

int tos_time(char* buf, int size) {
  if (buf == nullptr || size < 1) {
    errno = EINVAL;
    return -1;
  }
  struct timeval tv;
  gettimeofday(&tv, nullptr);
  time_t secs = tv.tv_sec;
  struct tm tm;
  localtime_r(&secs, &tm);
  snprintf(buf, static_cast<size_t>(size), "%04d-%02d-%02d %02d:%02d:%02d.%.6d", tm.tm_year + 1900,
           tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec,
           static_cast<int>(tv.tv_usec));
  return 0;
}

int tos_get_pagesize(void) { return getpagesize(); }

int tos_file_to_macro(char* out, int size, const char* path) {
  if (out == nullptr || path == nullptr || size < 1) {
    errno = EINVAL;
    return -1;
  }
  const char* base = strrchr(path, '/');
  base = base ? base + 1 : path;
  int i = 0;
  for (; i < size - 1 && base[i] != '\0'; ++i) {
    unsigned char c = static_cast<unsigned char>(base[i]);
    out[i] = c == '.' ? '_' : static_cast<char>(toupper(c));
  }
  out[i] = '\0';
  return 0;
}

int tos_ignore_pipe(void) {
  struct sigaction sa;
  memset(&sa, 0, sizeof(sa));
  sa.sa_handler = SIG_IGN;
  sigemptyset(&sa.sa_mask);
  return sigaction(SIGPIPE, &sa, nullptr);
}

int tos_make_daemon(const char* path) {
  // Flush before each fork so buffered output is written once, by the process that owns it.
  fflush(nullptr);
  pid_t pid = fork();
  if (pid < 0) return -1;
  if (pid > 0) _exit(0);
  if (setsid() < 0) return -1;
  static const int kIgnored[] = {SIGINT,  SIGHUP,  SIGQUIT, SIGPIPE,
                                 SIGTTIN, SIGTTOU, SIGCHLD, SIGTERM};
  for (int sig : kIgnored) signal(sig, SIG_IGN);
  fflush(nullptr);
  pid = fork();
  if (pid < 0) return -1;
  if (pid > 0) _exit(0);
  if (path != nullptr && chdir(path) != 0) {
    fflush(nullptr);
    _exit(2);
  }
  umask(0);
  return 0;
}

int tos_usleep(unsigned long usec) {
  struct timespec req;
  req.tv_sec = static_cast<time_t>(usec / 1000000UL);
  req.tv_nsec = static_cast<long>((usec % 1000000UL) * 1000UL);
  struct timespec rem;
  while (nanosleep(&req, &rem) != 0) {
    if (errno != EINTR) return -1;
    req = rem;
  }
  return 0;
}

const char* tos_get_osinfo(void) {
  struct utsname un;
  if (uname(&un) != 0) {
    g_osinfo[0] = '\0';
    return g_osinfo;
  }
  // Format at full width first, then keep what fits in the shared buffer.
  char full[sizeof(un) + 8];
  int n = snprintf(full, sizeof(full), "%s %s %s %s %s", un.sysname, un.nodename, un.release,
                   un.version, un.machine);
  size_t len = n < 0 ? 0 : static_cast<size_t>(n);
  if (len > sizeof(g_osinfo) - 1) len = sizeof(g_osinfo) - 1;
  memcpy(g_osinfo, full, len);
  g_osinfo[len] = '\0';
  return g_osinfo;
}

}  // extern "C"
