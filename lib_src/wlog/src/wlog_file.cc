// File appender: writes log records to a file named by a strftime pattern, switches files
// when the pattern's time period changes, rotates by size over a fixed set of numbered files
// (or, in bill mode, over an unbounded numbered sequence) and flushes on a time interval.
//
// Naming: the file in use is "base" or "base.N", where base is the pattern expanded for the
// current period. In rotating mode (iMaxRotate > 0) N cycles 0 .. iMaxRotate-1 and a reused
// name is truncated. In bill mode (iMaxRotate == 0) files are never reused: the appender
// appends to the newest file of base, base.1, base.2, ... and moves on to the next number.
// With sticky rotation the current file always has the bare name and older ones are shifted.

#include "wlog/wlog_file.h"

#include <dirent.h>
#include <errno.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <strings.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include "pal/tfile.h"
#include "pal/tos.h"
#include "wlog/wlog.h"
#include "wlog_clock.h"
#include "wlog_internal.h"

namespace {

// Largest size limit a file may have; 0 in the description also means this.
constexpr uint64_t kMaxSizeLimit = WLOGFILE_MAX_SIZE;
constexpr size_t kPathLen = WLOGFILE_PATH_LEN;
constexpr char kUrlPrefix[] = "file://";
constexpr size_t kUrlPrefixLen = sizeof(kUrlPrefix) - 1;

WLOGFILECLOCK g_clock = nullptr;

time_t now_i() { return g_clock ? g_clock(nullptr) : time(nullptr); }

bool is_bill_mode(const WLOGDEVFILE* dev) { return dev->iMaxRotate < 1; }

// "base" for index < 1, else "base.index"; cut to fit and always terminated within
// kPathLen bytes.
void format_path(char* out, const char* base, int index) {
  const int n = index < 1 ? snprintf(out, kPathLen, "%s", base)
                          : snprintf(out, kPathLen, "%s.%d", base, index);
  if (n < 0) out[0] = '\0';
  out[kPathLen - 1] = '\0';
}

// Builds the path for tLastMsg and the current rotation index into out (kPathLen bytes).
// A new period resets the index (0 when rotating, 1 in bill mode); bill mode then settles
// on the newest existing file of the sequence. Returns 0, or -1 when the pattern expands to
// nothing (empty or too long).
// The pattern expanded for the period of tLastMsg into base (kPathLen bytes); its length, 0
// when it expands to nothing (empty or too long).
size_t make_base(const WLOGFILE* f, char* base) {
  const WLOGDEVFILE* dev = f->pstDev;
  time_t t = f->stInst.tLastMsg;
  if (dev->iPrecision > 0) t = (t / dev->iPrecision) * dev->iPrecision;
  struct tm tm;
  if (localtime_r(&t, &tm) == nullptr) return 0;

  // The pattern field is fixed-size; copy it so a missing terminator cannot be overrun.
  char pattern[sizeof(dev->szPattern) + 1];
  memcpy(pattern, dev->szPattern, sizeof(dev->szPattern));
  pattern[sizeof(dev->szPattern)] = '\0';
  const char* pat = pattern;
  if (strncmp(pat, kUrlPrefix, kUrlPrefixLen) == 0) pat += kUrlPrefixLen;
  return strftime(base, kPathLen, pat, &tm);
}

int make_path(WLOGFILE* f, char* out) {
  const WLOGDEVFILE* dev = f->pstDev;
  WLOGDEVFILEINST* st = &f->stInst;
  char base[kPathLen];
  const size_t n = make_base(f, base);
  if (n == 0) return -1;

  if (strncmp(base, st->szPath, n) != 0) st->iCurRotate = is_bill_mode(dev) ? 1 : 0;
  if (!is_bill_mode(dev)) st->iCurRotate %= dev->iMaxRotate;
  if (st->iCurRotate < 0) st->iCurRotate = 0;

  format_path(out, base, st->iCurRotate);

  if (is_bill_mode(dev) && strcmp(out, st->szPath) != 0) {
    // Skip over every existing file; the counter ends one past the newest, which is used.
    while (access(out, W_OK) == 0 && st->iCurRotate < INT32_MAX) {
      ++st->iCurRotate;
      format_path(out, base, st->iCurRotate);
    }
    if (st->iCurRotate >= 1) format_path(out, base, st->iCurRotate - 1);
  }
  return 0;
}

void store_path(WLOGDEVFILEINST* st, const char* path) {
  const size_t n = strnlen(path, kPathLen - 1);
  memcpy(st->szPath, path, n);
  st->szPath[n] = '\0';
}

// The index N of a numbered file name "<name>.N" as format_path writes it (decimal, no sign, no
// leading zero, at least 1), or -1.
long numbered_index(const char* entry, const char* name, size_t name_len) {
  if (strncmp(entry, name, name_len) != 0 || entry[name_len] != '.') return -1;
  const char* digits = entry + name_len + 1;
  if (digits[0] < '1' || digits[0] > '9') return -1;
  long n = 0;
  for (const char* p = digits; *p != '\0'; ++p) {
    if (*p < '0' || *p > '9' || n > (INT32_MAX - (*p - '0')) / 10) return -1;
    n = n * 10 + (*p - '0');
  }
  return n;
}

// Keeps (index, mtime) of path as the best so far when it exists and is newer, or as new and a
// later index.
void consider(const char* path, int index, int* best, struct timespec* best_mtime) {
  struct stat sb;
  if (tflstat(path, &sb) != 0) return;
  const struct timespec m = sb.st_mtim;
  const bool newer = *best < 0 || m.tv_sec > best_mtime->tv_sec ||
                     (m.tv_sec == best_mtime->tv_sec && m.tv_nsec > best_mtime->tv_nsec);
  const bool tie = m.tv_sec == best_mtime->tv_sec && m.tv_nsec == best_mtime->tv_nsec;
  if (newer || (tie && index > *best)) {
    *best = index;
    *best_mtime = m;
  }
}

// Rotating mode: move to the file with the newest modification time among the indices from the
// current one up to iMaxRotate - 1 (a later index wins a tie), else stay. One directory scan
// finds the numbered files, however large iMaxRotate is. -1 in bill mode.
int find_latest(WLOGFILE* f) {
  const WLOGDEVFILE* dev = f->pstDev;
  WLOGDEVFILEINST* st = &f->stInst;
  if (dev->iMaxRotate < 1) return -1;

  const int start = st->iCurRotate < 0 ? 0 : st->iCurRotate;
  char base[kPathLen];
  if (make_base(f, base) == 0) return -1;
  int best = -1;
  struct timespec best_mtime = {0, 0};
  char path[kPathLen];
  if (start == 0) consider(base, 0, &best, &best_mtime);

  // The directory of base and the name in it; numbered files are "<name>.N" beside it.
  const char* slash = strrchr(base, '/');
  char dir[kPathLen];
  if (slash == nullptr) {
    memcpy(dir, ".", 2);
  } else {
    const size_t dlen = slash == base ? 1 : static_cast<size_t>(slash - base);
    memcpy(dir, base, dlen);
    dir[dlen] = '\0';
  }
  const char* name = slash == nullptr ? base : slash + 1;
  const size_t name_len = strlen(name);
  DIR* d = opendir(dir);
  if (d != nullptr) {
    while (const struct dirent* e = readdir(d)) {
      const long index = numbered_index(e->d_name, name, name_len);
      if (index < 1 || index < start || index >= dev->iMaxRotate) continue;
      format_path(path, base, static_cast<int>(index));
      consider(path, static_cast<int>(index), &best, &best_mtime);
    }
    closedir(d);
  }
  st->iCurRotate = best >= 0 ? best : start;
  store_path(st, base);  // same period: make_path keeps the index
  if (make_path(f, path) != 0) return -1;
  store_path(st, path);
  return 0;
}

// Opens szPath with mode, creating missing directories once when the path does not exist.
// The stdio buffer (iBuffSize >= 1) is allocated at the first open and reused afterwards.
int open_file(WLOGFILE* f, const char* mode) {
  const WLOGDEVFILE* dev = f->pstDev;
  WLOGDEVFILEINST* st = &f->stInst;
  if (st->fp != nullptr) return -1;

  FILE* fp = fopen64(st->szPath, mode);
  if (fp == nullptr && errno == ENOENT && tos_mkdir_by_path(st->szPath) == 0) {
    fp = fopen64(st->szPath, mode);
  }
  if (fp == nullptr) return -1;

  if (dev->iBuffSize >= 1) {
    if (st->pszBuff == nullptr) st->pszBuff = static_cast<char*>(calloc(1, dev->iBuffSize));
    if (st->pszBuff != nullptr) setvbuf(fp, st->pszBuff, _IOFBF, dev->iBuffSize);
  }

  if (fseeko(fp, 0, SEEK_END) != 0) {
    fclose(fp);
    return -1;
  }
  // The tracked size saturates: a file already past 4 GiB rotates on its next write.
  const off_t pos = ftello(fp);
  if (pos < 0)
    st->iTail = 0;
  else
    st->iTail = static_cast<uint64_t>(pos) > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(pos);
  st->fp = fp;
  st->fDirty = 0;
  return 0;
}

void close_file(WLOGDEVFILEINST* st) {
  if (st->fp != nullptr) fclose(st->fp);
  st->fp = nullptr;
  st->iTail = 0;
  st->fDirty = 0;
}

// Sticky rotation: szPath ends in ".<iCurRotate>"; cut that off, shift name -> name.1 ->
// name.2 ... (dropping the oldest beyond iMaxRotate-1) and continue on the bare name.
int sticky_shift(WLOGFILE* f) {
  const WLOGDEVFILE* dev = f->pstDev;
  WLOGDEVFILEINST* st = &f->stInst;
  if (dev->iMaxRotate < 2) return 0;

  char suffix[16];
  snprintf(suffix, sizeof(suffix), ".%d", st->iCurRotate);
  const size_t len = strlen(st->szPath);
  const size_t slen = strlen(suffix);
  if (len <= slen || strcmp(st->szPath + len - slen, suffix) != 0) return -1;
  st->szPath[len - slen] = '\0';

  char from[kPathLen];
  char to[kPathLen];
  for (int i = dev->iMaxRotate - 2; i >= 0; --i) {
    format_path(from, st->szPath, i);
    if (tfexist(from) != 0) continue;
    format_path(to, st->szPath, i + 1);
    if (tfdelete(to) != 0) {
      // Usually there is no such file yet; rename replaces one it could not delete anyway.
    }
    rename(from, to);
  }
  st->iCurRotate = 0;
  return 0;
}

// Closes the file and frees the stdio buffer.
void release(WLOGDEVFILEINST* st) {
  close_file(st);
  free(st->pszBuff);
  st->pszBuff = nullptr;
}

int sync_i(WLOGDEVFILEINST* st, time_t now) {
  if (st->fp == nullptr || !st->fDirty) return 0;
  if (fflush(st->fp) != 0) return -1;
  st->fDirty = 0;
  st->tLastSync = now;
  return 0;
}

// Makes sure the right file is open for a record of len bytes written at now: switches to
// the next file when the record would pass the size limit, and to the new period's file when
// the period changed. A record is never split, so an oversized one gets a fresh file.
int check_file(WLOGFILE* f, uint64_t len, time_t now) {
  const WLOGDEVFILE* dev = f->pstDev;
  WLOGDEVFILEINST* st = &f->stInst;
  if (len > kMaxSizeLimit) return -1;

  const time_t prev = st->tLastMsg;
  st->tLastMsg = now;
  uint64_t limit = dev->dwSizeLimit;
  if (limit == 0 || limit > kMaxSizeLimit) limit = kMaxSizeLimit;

  if (st->fp != nullptr) {
    if (static_cast<uint64_t>(st->iTail) + len > limit) {
      if (st->iCurRotate < INT32_MAX) ++st->iCurRotate;
      if (!is_bill_mode(dev)) st->iCurRotate %= dev->iMaxRotate;
      close_file(st);
      st->tLastSync = now;
    } else if (dev->iPrecision == 0 || now / dev->iPrecision == prev / dev->iPrecision) {
      return 0;
    }
  }

  char path[kPathLen];
  if (make_path(f, path) != 0) return -1;
  if (strcasecmp(path, st->szPath) != 0) {
    close_file(st);
    st->tLastSync = now;
    store_path(st, path);
    if (dev->iRotateStick && st->iCurRotate > 0 && sticky_shift(f) != 0) return -1;
  }

  // A rotation that comes back to an old name starts that file afresh.
  if (st->fp == nullptr && open_file(f, "wb+") != 0) return -1;
  return 0;
}

}  // namespace

void wlogfile_set_clock_i(WLOGFILECLOCK clock) { g_clock = clock; }

int wlogfile_find_latest_i(WLOGFILE* f) { return find_latest(f); }

int wlogfile_init(WLOGFILE* f, WLOGDEVFILE* dev) {
  if (f == nullptr || dev == nullptr) return -1;
  memset(f, 0, sizeof(*f));
  f->pstDev = dev;
  WLOGDEVFILEINST* st = &f->stInst;
  st->tLastMsg = st->tLastSync = now_i();
  if (dev->dwSizeLimit > kMaxSizeLimit) dev->dwSizeLimit = static_cast<uint32_t>(kMaxSizeLimit);

  char path[kPathLen];
  if (make_path(f, path) != 0) {
    printf("open log file %.*s fail\n", static_cast<int>(sizeof(dev->szPattern)), dev->szPattern);
    release(st);
    return WLOG_ERRCODE(WLOG_ERROR_FILE_OPEN);
  }
  store_path(st, path);

  if (!dev->iNoFindLatest && !dev->iRotateStick) find_latest(f);

  if (open_file(f, "ab+") != 0) {
    printf("open log file %s fail\n", st->szPath);
    release(st);
    return WLOG_ERRCODE(WLOG_ERROR_FILE_OPEN);
  }
  return 0;
}

int wlogfile_writev(WLOGFILE* f, const WLOGIOVEC* iov, int count) {
  if (f == nullptr || f->pstDev == nullptr || count < 0 || (iov == nullptr && count > 0)) return -1;
  WLOGDEVFILEINST* st = &f->stInst;

  const time_t now = now_i();
  uint64_t len = 0;
  for (int i = 0; i < count; ++i) {
    if (iov[i].iov_len > 0 && iov[i].iov_base == nullptr) return -1;
    len += iov[i].iov_len;
    if (len > kMaxSizeLimit) return -1;
  }
  if (check_file(f, len, now) != 0) return -1;

  int ret = 0;
  if (len > 0) {
    st->fDirty = 1;
    st->tLastMsg = now;
    for (int i = 0; i < count; ++i) {
      const size_t n = iov[i].iov_len;
      if (n == 0) continue;
      const size_t w = fwrite(iov[i].iov_base, 1, n, st->fp);
      st->iTail += static_cast<uint32_t>(w);
      if (w != n) {
        ret = -1;
        break;
      }
    }
  }

  if (now - st->tLastSync >= f->pstDev->iSyncTime) {
    // A failed write stays a failure even when the flush after it succeeds.
    const int s = sync_i(st, now);
    return ret != 0 ? ret : s;
  }
  return ret;
}

int wlogfile_write(WLOGFILE* f, const char* buf, size_t len) {
  if (buf == nullptr) return -1;
  WLOGIOVEC iov;
  iov.iov_base = const_cast<char*>(buf);
  iov.iov_len = len;
  return wlogfile_writev(f, &iov, 1);
}

int wlogfile_sync(WLOGFILE* f) {
  if (f == nullptr) return -1;
  return sync_i(&f->stInst, now_i());
}

int wlogfile_fini(WLOGFILE* f) {
  if (f == nullptr) return -1;
  WLOGDEVFILEINST* st = &f->stInst;
  int ret = 0;
  if (st->fp != nullptr) ret = sync_i(st, st->tLastMsg);
  release(st);
  return ret;
}

int wlogfile_dev_is_bill_i(const WLOGDEVFILE* dev) {
  const bool bill = dev->iBuffSize == 0 && dev->iMaxRotate == 0 && dev->iPrecision == 1 &&
                    dev->iRotateStick == 0 && dev->iSyncTime == 0;
  return bill ? 1 : 0;
}

int wlogfile_is_bill(WLOGFILE* f) {
  if (f == nullptr || f->pstDev == nullptr) return 0;
  return wlogfile_dev_is_bill_i(f->pstDev);
}
