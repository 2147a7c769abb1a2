// File appender: naming, size rotation in every mode, period switching, flushing, directory
// creation and open failures, all through the wlogfile_* interface in fresh temp directories.

#include "wlog/wlog_file.h"

#include <ftw.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <fstream>
#include <sstream>
#include <string>

#include "../src/wlog_clock.h"

namespace {

// A fresh directory under /tmp, removed with everything in it at the end of the test.
class TempDir {
 public:
  TempDir() {
    char tmpl[] = "/tmp/wlogfile_XXXXXX";
    char* d = mkdtemp(tmpl);
    path_ = d ? d : "";
  }
  ~TempDir() {
    if (!path_.empty())
      nftw(path_.c_str(), [](const char* p, const struct stat*, int, struct FTW*) { return remove(p); }, 16,
           FTW_DEPTH | FTW_PHYS);
  }
  std::string operator/(const std::string& name) const { return path_ + "/" + name; }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

// A settable clock for the appender; restored to time() when the guard goes away.
time_t g_now = 0;
time_t fake_time(time_t* t) {
  if (t) *t = g_now;
  return g_now;
}
struct FakeClock {
  explicit FakeClock(time_t start) {
    g_now = start;
    wlogfile_set_clock_i(fake_time);
  }
  ~FakeClock() { wlogfile_set_clock_i(nullptr); }
};

bool Exists(const std::string& p) { return access(p.c_str(), F_OK) == 0; }

std::string Read(const std::string& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void WriteFile(const std::string& p, const std::string& text) { std::ofstream(p, std::ios::binary) << text; }

void SetMtime(const std::string& p, time_t t) {
  struct timeval tv[2] = {{t, 0}, {t, 0}};
  ASSERT_EQ(0, utimes(p.c_str(), tv));
}

WLOGDEVFILE Dev(const std::string& pattern, uint32_t limit, int max_rotate) {
  WLOGDEVFILE d;
  memset(&d, 0, sizeof(d));
  snprintf(d.szPattern, sizeof(d.szPattern), "%s", pattern.c_str());
  d.dwSizeLimit = limit;
  d.iMaxRotate = max_rotate;
  return d;
}

int Put(WLOGFILE* f, const std::string& s) { return wlogfile_write(f, s.data(), s.size()); }

std::string Strftime(const char* fmt, time_t t) {
  struct tm tm;
  localtime_r(&t, &tm);
  char buf[192];
  strftime(buf, sizeof(buf), fmt, &tm);
  return buf;
}

TEST(WlogFileRotate, SingleFileIsTruncatedWhenReused) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 10, 1);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "aaaaaa\n"));
  EXPECT_EQ(0, Put(&f, "bbbbbb\n"));
  EXPECT_EQ(0, Put(&f, "cc\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("bbbbbb\ncc\n", Read(dir / "app.log"));
  EXPECT_FALSE(Exists(dir / "app.log.1"));
}

TEST(WlogFileRotate, ThreeFilesAreUsedInTurnAndTruncatedOnReuse) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 8, 3);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  for (int i = 1; i <= 4; ++i) EXPECT_EQ(0, Put(&f, "line" + std::to_string(i) + "xx\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("line4xx\n", Read(dir / "app.log"));
  EXPECT_EQ("line2xx\n", Read(dir / "app.log.1"));
  EXPECT_EQ("line3xx\n", Read(dir / "app.log.2"));
  EXPECT_FALSE(Exists(dir / "app.log.3"));
}

TEST(WlogFileRotate, InitAppendsToTheNewestFileByModificationTime) {
  TempDir dir;
  WriteFile(dir / "app.log", "zero\n");
  WriteFile(dir / "app.log.1", "one\n");
  WriteFile(dir / "app.log.2", "two\n");
  SetMtime(dir / "app.log", 1000);
  SetMtime(dir / "app.log.1", 3000);
  SetMtime(dir / "app.log.2", 2000);

  WLOGDEVFILE d = Dev(dir / "app.log", 0, 3);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(dir / "app.log.1", f.stInst.szPath);
  EXPECT_EQ(0, Put(&f, "more\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("one\nmore\n", Read(dir / "app.log.1"));

  // Tracked size starts at the existing size: the next rotation comes when it is full.
  d.dwSizeLimit = 12;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(9u, f.stInst.iTail);
  EXPECT_EQ(0, Put(&f, "abcd\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("abcd\n", Read(dir / "app.log.2"));

  // Without the search the appender starts at the bare name.
  d.iNoFindLatest = 1;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(dir / "app.log", f.stInst.szPath);
  wlogfile_fini(&f);
}

TEST(WlogFileRotate, BillModeAppendsToNewestAndStartsTheNextNumber) {
  TempDir dir;
  WriteFile(dir / "app.log", "a\n");
  WriteFile(dir / "app.log.1", "b\n");
  WriteFile(dir / "app.log.2", "c\n");
  WLOGDEVFILE d = Dev(dir / "app.log", 7, 0);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "d\n"));
  EXPECT_EQ(0, Put(&f, "eeee\n"));
  EXPECT_EQ(0, Put(&f, "f\n"));
  EXPECT_EQ(0, Put(&f, "gggg\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("a\n", Read(dir / "app.log"));
  EXPECT_EQ("b\n", Read(dir / "app.log.1"));
  EXPECT_EQ("c\nd\n", Read(dir / "app.log.2"));
  EXPECT_EQ("eeee\nf\n", Read(dir / "app.log.3"));
  EXPECT_EQ("gggg\n", Read(dir / "app.log.4"));
  EXPECT_FALSE(Exists(dir / "app.log.5"));
}

TEST(WlogFileRotate, BillModeStartsAtTheBareNameAndNeverReuses) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 4, 0);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  for (const char* s : {"1\n", "2\n", "3\n", "4\n"}) EXPECT_EQ(0, Put(&f, s));
  wlogfile_fini(&f);
  // Reopening continues after the newest file instead of overwriting anything.
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "5\n"));
  EXPECT_EQ(0, Put(&f, "6\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("1\n2\n", Read(dir / "app.log"));
  EXPECT_EQ("3\n4\n", Read(dir / "app.log.1"));
  EXPECT_EQ("5\n6\n", Read(dir / "app.log.2"));
}

TEST(WlogFileRotate, StickyRotationKeepsTheBareNameCurrent) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 4, 3);
  d.iRotateStick = 1;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  for (const char* s : {"L1\n", "L2\n", "L3\n"}) EXPECT_EQ(0, Put(&f, s));
  EXPECT_EQ("L3\n", Read(dir / "app.log"));
  EXPECT_EQ("L2\n", Read(dir / "app.log.1"));
  EXPECT_EQ("L1\n", Read(dir / "app.log.2"));
  EXPECT_EQ(0, Put(&f, "L4\n"));
  EXPECT_EQ(0, Put(&f, "L5\n"));
  wlogfile_fini(&f);
  EXPECT_EQ(dir / "app.log", f.stInst.szPath);
  EXPECT_EQ("L5\n", Read(dir / "app.log"));
  EXPECT_EQ("L4\n", Read(dir / "app.log.1"));
  EXPECT_EQ("L3\n", Read(dir / "app.log.2"));
  EXPECT_FALSE(Exists(dir / "app.log.3"));

  // A sticky appender appends to the bare name when it starts again.
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "x"));
  wlogfile_fini(&f);
  EXPECT_EQ("L5\nx", Read(dir / "app.log"));
}

TEST(WlogFilePeriod, NewHourSwitchesToIndexZeroOfTheNewName) {
  TempDir dir;
  const time_t hour = (time(nullptr) / 3600) * 3600;
  FakeClock clock(hour + 100);
  WLOGDEVFILE d = Dev(dir / "log_%Y%m%d%H", 9, 3);
  d.iPrecision = 3600;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  const std::string first = dir.path() + Strftime("/log_%Y%m%d%H", hour);
  EXPECT_EQ(first, f.stInst.szPath);
  EXPECT_EQ(0, Put(&f, "aaaa\n"));
  EXPECT_EQ(0, Put(&f, "bbbb\n"));  // rotates to index 1 inside the hour
  g_now = hour + 3599;
  EXPECT_EQ(0, Put(&f, "c\n"));
  g_now = hour + 3600;
  EXPECT_EQ(0, Put(&f, "d\n"));  // fits the size limit: only the period switches files
  wlogfile_fini(&f);
  const std::string second = dir.path() + Strftime("/log_%Y%m%d%H", hour + 3600);
  EXPECT_EQ("aaaa\n", Read(first));
  EXPECT_EQ("bbbb\nc\n", Read(first + ".1"));
  EXPECT_EQ("d\n", Read(second));
  EXPECT_FALSE(Exists(second + ".1"));
}

TEST(WlogFilePeriod, BillModeStartsEachPeriodOnTheBareNameInANewDirectory) {
  TempDir dir;
  const time_t day = 86400 * 20000 + 43200;  // a fixed noon, away from any date boundary
  FakeClock clock(day);
  WLOGDEVFILE d = Dev("file://" + dir.path() + "/%S/bill.log", 0, 0);
  d.iPrecision = 1;
  d.iSyncTime = 0;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(1, wlogfile_is_bill(&f));
  EXPECT_EQ(0, Put(&f, "s0\n"));
  g_now = day + 1;
  EXPECT_EQ(0, Put(&f, "s1\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("s0\n", Read(dir.path() + Strftime("/%S/bill.log", day)));
  EXPECT_EQ("s1\n", Read(dir.path() + Strftime("/%S/bill.log", day + 1)));
}

TEST(WlogFileFlush, ZeroSyncTimeFlushesEveryWrite) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 0, 1);
  d.iBuffSize = 1 << 16;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "one\n"));
  EXPECT_EQ("one\n", Read(dir / "app.log"));
  EXPECT_EQ(0, f.stInst.fDirty);
  wlogfile_fini(&f);
}

TEST(WlogFileFlush, BufferedDataWaitsForTheSyncInterval) {
  TempDir dir;
  FakeClock clock(1700000000);
  WLOGDEVFILE d = Dev(dir / "app.log", 0, 1);
  d.iBuffSize = 1 << 16;
  d.iSyncTime = 60;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "one\n"));
  g_now += 59;
  EXPECT_EQ(0, Put(&f, "two\n"));
  EXPECT_EQ("", Read(dir / "app.log"));
  EXPECT_EQ(1, f.stInst.fDirty);
  g_now += 1;
  EXPECT_EQ(0, Put(&f, "three\n"));
  EXPECT_EQ("one\ntwo\nthree\n", Read(dir / "app.log"));
  EXPECT_EQ(0, Put(&f, "four\n"));
  EXPECT_EQ(0, wlogfile_sync(&f));
  EXPECT_EQ("one\ntwo\nthree\nfour\n", Read(dir / "app.log"));
  EXPECT_EQ(0, Put(&f, "five\n"));
  EXPECT_EQ(0, wlogfile_fini(&f));
  EXPECT_EQ("one\ntwo\nthree\nfour\nfive\n", Read(dir / "app.log"));
}

TEST(WlogFileWrite, RecordLongerThanTheLimitGoesWholeIntoAFreshFile) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 8, 3);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  const std::string big(20, 'x');
  EXPECT_EQ(0, Put(&f, "abc\n"));
  EXPECT_EQ(0, Put(&f, big));
  EXPECT_EQ(0, Put(&f, "def\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("abc\n", Read(dir / "app.log"));
  EXPECT_EQ(big, Read(dir / "app.log.1"));
  EXPECT_EQ("def\n", Read(dir / "app.log.2"));
}

TEST(WlogFileWrite, WritevWritesEveryPieceAndCountsTheWholeRecord) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 12, 2);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  char a[] = "[pre] ", m[] = "msg", s[] = "\n";
  WLOGIOVEC v[4] = {{a, 6}, {m, 0}, {m, 3}, {s, 1}};
  EXPECT_EQ(0, wlogfile_writev(&f, v, 4));
  EXPECT_EQ(10u, f.stInst.iTail);
  EXPECT_EQ(0, wlogfile_writev(&f, v + 2, 2));  // 10 + 4 > 12: next file
  EXPECT_EQ(0, wlogfile_writev(&f, v, 0));       // empty record: nothing written
  wlogfile_fini(&f);
  EXPECT_EQ("[pre] msg\n", Read(dir / "app.log"));
  EXPECT_EQ("msg\n", Read(dir / "app.log.1"));
}

TEST(WlogFileWrite, BadArgumentsAreRefused) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "app.log", 0, 1);
  WLOGFILE f;
  EXPECT_EQ(-1, wlogfile_init(nullptr, &d));
  EXPECT_EQ(-1, wlogfile_init(&f, nullptr));
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  WLOGIOVEC bad = {nullptr, 3};
  EXPECT_EQ(-1, wlogfile_writev(nullptr, &bad, 1));
  EXPECT_EQ(-1, wlogfile_writev(&f, nullptr, 1));
  EXPECT_EQ(-1, wlogfile_writev(&f, &bad, 1));
  EXPECT_EQ(-1, wlogfile_writev(&f, &bad, -1));
  EXPECT_EQ(-1, wlogfile_write(&f, "x", 0));
  EXPECT_EQ(-1, wlogfile_write(&f, nullptr, 1));
  EXPECT_EQ(-1, wlogfile_sync(nullptr));
  wlogfile_fini(&f);
  EXPECT_EQ("", Read(dir / "app.log"));
}

TEST(WlogFileOpen, MissingDirectoriesAreCreated) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "a/b/c/app.log", 3, 2);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "ab\n"));
  // Directory removed under a running appender: the rotation creates it again.
  ASSERT_EQ(0, system(("rm -rf " + (dir / "a")).c_str()));
  EXPECT_EQ(0, Put(&f, "cd\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("cd\n", Read(dir / "a/b/c/app.log.1"));
}

TEST(WlogFileOpen, UnopenableFileGivesTheErrorCodeAndMessage) {
  TempDir dir;
  WriteFile(dir / "plain", "not a directory\n");
  const std::string path = dir / "plain/app.log";
  WLOGDEVFILE d = Dev(path, 0, 1);
  WLOGFILE f;
  testing::internal::CaptureStdout();
  const int ret = wlogfile_init(&f, &d);
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(static_cast<int>(0x83020401u), ret);
  EXPECT_EQ("open log file " + path + " fail\n", out);
  EXPECT_EQ(nullptr, f.stInst.fp);
  EXPECT_EQ(-1, Put(&f, "x\n"));  // still nothing to write to

  // An empty pattern expands to no name at all.
  WLOGDEVFILE empty = Dev("", 0, 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(static_cast<int>(0x83020401u), wlogfile_init(&f, &empty));
  EXPECT_EQ("open log file  fail\n", testing::internal::GetCapturedStdout());
}

TEST(WlogFileOpen, FailedRotationIsRetriedOnTheNextWrite) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir / "sub/app.log", 3, 2);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "ab\n"));
  // Make the directory a plain file: the rotated file cannot be opened.
  ASSERT_EQ(0, system(("rm -rf " + (dir / "sub")).c_str()));
  WriteFile(dir / "sub", "");
  EXPECT_EQ(-1, Put(&f, "cd\n"));
  ASSERT_EQ(0, unlink((dir / "sub").c_str()));
  EXPECT_EQ(0, Put(&f, "ef\n"));
  wlogfile_fini(&f);
  EXPECT_EQ("ef\n", Read(dir / "sub/app.log.1"));
}

TEST(WlogFileBill, IsBillTruthTable) {
  WLOGDEVFILE d = Dev("x", 0, 0);
  d.iPrecision = 1;
  WLOGFILE f;
  memset(&f, 0, sizeof(f));
  f.pstDev = &d;
  EXPECT_EQ(1, wlogfile_is_bill(&f));
  d.dwSizeLimit = 100;  // the size limit does not matter
  EXPECT_EQ(1, wlogfile_is_bill(&f));
  int WLOGDEVFILE::*fields[] = {&WLOGDEVFILE::iBuffSize, &WLOGDEVFILE::iMaxRotate, &WLOGDEVFILE::iRotateStick,
                                &WLOGDEVFILE::iSyncTime};
  for (auto field : fields) {
    d.*field = 1;
    EXPECT_EQ(0, wlogfile_is_bill(&f));
    d.*field = 0;
  }
  d.iPrecision = 0;
  EXPECT_EQ(0, wlogfile_is_bill(&f));
  d.iPrecision = 60;
  EXPECT_EQ(0, wlogfile_is_bill(&f));
  EXPECT_EQ(0, wlogfile_is_bill(nullptr));
  f.pstDev = nullptr;
  EXPECT_EQ(0, wlogfile_is_bill(&f));
}

}  // namespace
