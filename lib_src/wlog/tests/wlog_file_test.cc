// File appender: naming, size rotation in every mode, period switching, flushing, directory
// creation and open failures, all through the wlogfile_* interface in fresh temp directories.

#include "wlog/wlog_file.h"
#include "wlog/wlog.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <map>
#include <string>
#include <vector>

#include "../src/wlog_clock.h"
#include "wlog_test_util.h"

namespace {

using zq_test::ReadFile;
using zq_test::StdoutCapture;
using zq_test::TempDir;
using zq_test::WriteFile;

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

WLOGDEVFILE Dev(const std::string& pattern, uint32_t limit, int max_rotate) {
  WLOGDEVFILE d;
  memset(&d, 0, sizeof(d));
  snprintf(d.szPattern, sizeof(d.szPattern), "%s", pattern.c_str());
  d.dwSizeLimit = limit;
  d.iMaxRotate = max_rotate;
  return d;
}

int Put(WLOGFILE* f, const std::string& s) { return wlogfile_write(f, s.data(), s.size()); }

// Sequences of records through one appender (a new run starts the appender again) and every
// file they leave, in each rotation mode. "a|b" is one record of the pieces a and b.
TEST(WlogFileRotate, EveryModeLeavesExactlyTheseFiles) {
  const struct {
    const char* what;
    uint32_t limit;
    int max_rotate;
    int sticky;
    std::vector<std::vector<std::string>> runs;
    std::map<std::string, std::string> files;
  } cases[] = {
      {"one file: reused and truncated",
       10,
       1,
       0,
       {{"aaaaaa\n", "bbbbbb\n", "cc\n"}},
       {{"app.log", "bbbbbb\ncc\n"}}},
      {"three files in turn",
       8,
       3,
       0,
       {{"line1xx\n", "line2xx\n", "line3xx\n", "line4xx\n"}},
       {{"app.log", "line4xx\n"}, {"app.log.1", "line2xx\n"}, {"app.log.2", "line3xx\n"}}},
      {"bill: appends to the newest, never reuses",
       7,
       0,
       0,
       {{"dddd\n", "eeee\n"}, {"f\n", "gggg\n"}},
       {{"app.log", "dddd\n"}, {"app.log.1", "eeee\nf\n"}, {"app.log.2", "gggg\n"}}},
      {"sticky: the bare name is always the newest",
       4,
       3,
       1,
       {{"L1\n", "L2\n", "L3\n", "L4\n", "L5\n"}, {"x"}},
       {{"app.log", "L5\nx"}, {"app.log.1", "L4\n"}, {"app.log.2", "L3\n"}}},
      {"records are never split",
       12,
       3,
       0,
       {{"[pre] ||msg|\n", "msg|\n", "", std::string(20, 'x')}},
       {{"app.log", "[pre] msg\n"}, {"app.log.1", "msg\n"}, {"app.log.2", std::string(20, 'x')}}},
  };
  for (const auto& c : cases) {
    TempDir dir;
    WLOGDEVFILE d = Dev(dir.file("app.log"), c.limit, c.max_rotate);
    d.iRotateStick = c.sticky;
    for (const auto& run : c.runs) {
      WLOGFILE f;
      ASSERT_EQ(0, wlogfile_init(&f, &d)) << c.what;
      for (const std::string& rec : run) {
        std::vector<std::string> pieces;
        for (size_t at = 0, bar; at <= rec.size() && !rec.empty(); at = bar + 1) {
          bar = rec.find('|', at);
          if (bar == std::string::npos) bar = rec.size();
          pieces.push_back(rec.substr(at, bar - at));
        }
        std::vector<WLOGIOVEC> vec;
        for (std::string& p : pieces) vec.push_back({&p[0], p.size()});
        EXPECT_EQ(0, wlogfile_writev(&f, vec.data(), static_cast<int>(vec.size()))) << c.what;
      }
      EXPECT_EQ(0, wlogfile_fini(&f)) << c.what;
    }
    std::map<std::string, std::string> files;
    for (const std::string& name : wlog_test::files_in(dir.path()))
      files[name] = ReadFile(dir.file(name));
    EXPECT_EQ(c.files, files) << c.what;
  }
}

TEST(WlogFileRotate, InitAppendsToTheNewestFileByModificationTime) {
  TempDir dir;
  const int mtimes[] = {1000, 3000, 2000};
  for (int i = 0; i < 3; ++i) {
    const std::string p = dir.file(i == 0 ? "app.log" : "app.log." + std::to_string(i));
    WriteFile(p, i == 1 ? "one\n" : "x\n");
    struct timeval tv[2] = {{mtimes[i], 0}, {mtimes[i], 0}};
    ASSERT_EQ(0, utimes(p.c_str(), tv));
  }
  WLOGDEVFILE d = Dev(dir.file("app.log"), 0, 3);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(dir.file("app.log.1"), f.stInst.szPath);
  EXPECT_EQ(0, Put(&f, "more\n"));
  EXPECT_EQ(0, wlogfile_fini(&f));
  EXPECT_EQ("one\nmore\n", ReadFile(dir.file("app.log.1")));

  // Tracked size starts at the existing size: the next rotation comes when it is full.
  d.dwSizeLimit = 12;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(9u, f.stInst.iTail);
  EXPECT_EQ(0, Put(&f, "abcd\n"));
  EXPECT_EQ(0, wlogfile_fini(&f));
  EXPECT_EQ("abcd\n", ReadFile(dir.file("app.log.2")));

  d.iNoFindLatest = 1;  // without the search the appender starts at the bare name
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(dir.file("app.log"), f.stInst.szPath);
  EXPECT_EQ(0, wlogfile_fini(&f));
}

TEST(WlogFilePeriod, NewHourSwitchesToIndexZeroOfTheNewName) {
  TempDir dir;
  const time_t hour = (time(nullptr) / 3600) * 3600;
  FakeClock clock(hour + 100);
  WLOGDEVFILE d = Dev(dir.file("log_%Y%m%d%H"), 9, 3);
  d.iPrecision = 3600;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  const std::string first = dir.path() + wlog_test::local_time("/log_%Y%m%d%H", hour);
  EXPECT_EQ(first, f.stInst.szPath);
  EXPECT_EQ(0, Put(&f, "aaaa\n"));
  EXPECT_EQ(0, Put(&f, "bbbb\n"));  // rotates to index 1 inside the hour
  g_now = hour + 3599;
  EXPECT_EQ(0, Put(&f, "c\n"));
  g_now = hour + 3600;
  EXPECT_EQ(0, Put(&f, "d\n"));  // fits the size limit: only the period switches files
  EXPECT_EQ(0, wlogfile_fini(&f));
  const std::string second = dir.path() + wlog_test::local_time("/log_%Y%m%d%H", hour + 3600);
  EXPECT_EQ("aaaa\n", ReadFile(first));
  EXPECT_EQ("bbbb\nc\n", ReadFile(first + ".1"));
  EXPECT_EQ("d\n", ReadFile(second));
  EXPECT_FALSE(Exists(second + ".1"));
}

TEST(WlogFilePeriod, BillModeStartsEachPeriodOnTheBareNameInANewDirectory) {
  TempDir dir;
  const time_t day = 86400 * 20000 + 43200;  // a fixed noon, away from any date boundary
  FakeClock clock(day);
  WLOGDEVFILE d = Dev("file://" + dir.path() + "/%S/bill.log", 0, 0);
  d.iPrecision = 1;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(1, wlogfile_is_bill(&f));
  EXPECT_EQ(0, Put(&f, "s0\n"));
  g_now = day + 1;
  EXPECT_EQ(0, Put(&f, "s1\n"));
  EXPECT_EQ(0, wlogfile_fini(&f));
  EXPECT_EQ("s0\n", ReadFile(dir.path() + wlog_test::local_time("/%S/bill.log", day)));
  EXPECT_EQ("s1\n", ReadFile(dir.path() + wlog_test::local_time("/%S/bill.log", day + 1)));
}

TEST(WlogFileFlush, BufferedDataWaitsForTheSyncInterval) {
  TempDir dir;
  FakeClock clock(1700000000);
  WLOGDEVFILE d = Dev(dir.file("app.log"), 0, 1);
  d.iBuffSize = 1 << 16;
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "one\n"));  // interval 0: flushed at once
  EXPECT_EQ("one\n", ReadFile(dir.file("app.log")));
  EXPECT_EQ(0, wlogfile_fini(&f));

  d.iSyncTime = 60;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  g_now += 59;
  EXPECT_EQ(0, Put(&f, "two\n"));
  EXPECT_EQ("one\n", ReadFile(dir.file("app.log")));
  EXPECT_EQ(1, f.stInst.fDirty);
  g_now += 1;
  EXPECT_EQ(0, Put(&f, "three\n"));
  EXPECT_EQ("one\ntwo\nthree\n", ReadFile(dir.file("app.log")));
  EXPECT_EQ(0, Put(&f, "four\n"));
  EXPECT_EQ(0, wlogfile_sync(&f));
  EXPECT_EQ("one\ntwo\nthree\nfour\n", ReadFile(dir.file("app.log")));
  EXPECT_EQ(0, Put(&f, "five\n"));
  EXPECT_EQ(0, wlogfile_fini(&f));
  EXPECT_EQ("one\ntwo\nthree\nfour\nfive\n", ReadFile(dir.file("app.log")));
}

TEST(WlogFileWrite, EmptyRecordWritesNothingAndGivesTheFlushResult) {
  TempDir dir;
  FakeClock clock(1700000000);
  WLOGDEVANY dev;
  memset(&dev, 0, sizeof(dev));
  dev.iType = WLOG_DEV_FILE;
  dev.stDevice.stFile = Dev(dir.file("e.log"), 0, 1);
  dev.stDevice.stFile.iBuffSize = 1 << 16;
  dev.stDevice.stFile.iSyncTime = 60;
  WLOGANY any;
  ASSERT_EQ(0, wlogany_init(&any, &dev));
  EXPECT_EQ(0, wlogany_write(&any, 0, 0, "ab", 2));
  EXPECT_EQ(0, wlogany_writev(&any, 0, 0, nullptr, 0));  // nothing to flush yet
  EXPECT_EQ("", ReadFile(dir.file("e.log")));
  g_now += 60;
  EXPECT_EQ(0, wlogany_writev(&any, 0, 0, nullptr, 0));  // the interval is over: flushed
  EXPECT_EQ("ab", ReadFile(dir.file("e.log")));
  EXPECT_EQ(-1, wlogany_writev(&any, 0, 0, nullptr, -1));
  WLOGFILE* f = &any.stInst.stAny.stFile;
  WLOGIOVEC bad = {nullptr, 3};
  EXPECT_EQ(-1, wlogfile_writev(f, &bad, 1));
  EXPECT_EQ(-1, wlogfile_writev(f, &bad, -1));
  EXPECT_EQ(-1, wlogfile_writev(nullptr, &bad, 0));
  EXPECT_EQ(-1, wlogfile_write(f, nullptr, 0));
  wlogany_fini(&any);

  WLOGFILE* bill = nullptr;
  ASSERT_EQ(0, wlog_bill_init(&bill, 0, 1, dir.file("bill.log").c_str()));
  EXPECT_EQ(0, wlog_bill_write(bill, "", 0));
  EXPECT_EQ(-1, wlog_bill_write(bill, nullptr, 0));
  EXPECT_EQ(0, wlog_bill_fini(&bill));
  EXPECT_EQ("", ReadFile(dir.file("bill.log")));
}

TEST(WlogFileOpen, MissingDirectoriesAreCreatedAndFailuresRetried) {
  TempDir dir;
  WLOGDEVFILE d = Dev(dir.file("a/b/app.log"), 3, 3);
  WLOGFILE f;
  ASSERT_EQ(0, wlogfile_init(&f, &d));
  EXPECT_EQ(0, Put(&f, "ab\n"));
  // Directory removed under a running appender: the rotation creates it again.
  ASSERT_EQ(0, system(("rm -rf " + dir.file("a")).c_str()));
  EXPECT_EQ(0, Put(&f, "cd\n"));
  EXPECT_EQ("cd\n", ReadFile(dir.file("a/b/app.log.1")));
  // A plain file in the way: that write fails, the next one tries again.
  ASSERT_EQ(0, system(("rm -rf " + dir.file("a/b")).c_str()));
  WriteFile(dir.file("a/b"), "");
  EXPECT_EQ(-1, Put(&f, "ef\n"));
  ASSERT_EQ(0, unlink(dir.file("a/b").c_str()));
  EXPECT_EQ(0, Put(&f, "gh\n"));
  EXPECT_EQ(0, wlogfile_fini(&f));
  EXPECT_EQ("gh\n", ReadFile(dir.file("a/b/app.log.2")));
}

TEST(WlogFileOpen, UnopenableFileGivesTheErrorCodeAndMessage) {
  TempDir dir;
  WriteFile(dir.file("plain"), "not a directory\n");
  const std::string path = dir.file("plain/app.log");
  WLOGDEVFILE d = Dev(path, 0, 1);
  WLOGFILE f;
  StdoutCapture cap;
  EXPECT_EQ(static_cast<int>(0x83020401u), wlogfile_init(&f, &d));
  EXPECT_EQ("open log file " + path + " fail\n", cap.Stop());
  EXPECT_EQ(nullptr, f.stInst.fp);
  EXPECT_EQ(-1, Put(&f, "x\n"));  // still nothing to write to
  EXPECT_EQ(-1, wlogfile_init(&f, nullptr));
}

}  // namespace

namespace {

// One directory entry of a find-latest case: a file with a modification time, a directory, or
// a symbolic link (to a file of the case, or dangling).
struct Entry {
  std::string name;
  long sec = 0;
  long nsec = 0;
  const char* link = nullptr;
  bool dir = false;
};

struct LatestCase {
  const char* what;
  int max_rotate;
  std::vector<Entry> entries;
  std::string chosen;  // the file the appender settles on
};

void MakeEntry(const std::string& dir, const Entry& e) {
  const std::string p = dir + "/" + e.name;
  if (e.link != nullptr) {
    ASSERT_EQ(0, symlink((dir + "/" + e.link).c_str(), p.c_str()));
    return;
  }
  if (e.dir) {
    ASSERT_EQ(0, mkdir(p.c_str(), 0700));
  } else {
    ASSERT_TRUE(zq_test::WriteFile(p, "x"));
  }
  struct timespec ts[2] = {{e.sec, e.nsec}, {e.sec, e.nsec}};
  ASSERT_EQ(0, utimensat(AT_FDCWD, p.c_str(), ts, 0));
}

// The path the find-latest step of init settles on, without opening a file.
std::string FindLatest(WLOGDEVFILE* dev, time_t now) {
  WLOGFILE f;
  memset(&f, 0, sizeof(f));
  f.pstDev = dev;
  f.stInst.tLastMsg = now;
  EXPECT_EQ(0, wlogfile_find_latest_i(&f));
  return f.stInst.szPath;
}

}  // namespace

// The cases the earlier walk over every index was checked against: the scan chooses the same.
TEST(WlogFileRotate, FindLatestChoosesTheNewestFileOfTheRotation) {
  const time_t now = 1700000000;
  const std::string cut_dir = wlog_test::local_time("%c%c%c%c", now) + std::string(65, 'd');
  const std::vector<LatestCase> cases = {
      {"nothing yet", 3, {}, "app.log"},
      {"bare name only", 3, {{"app.log", 1000, 0, nullptr, false}}, "app.log"},
      {"newest of three",
       3,
       {{"app.log", 1000, 0}, {"app.log.1", 3000, 0}, {"app.log.2", 2000, 0}},
       "app.log.1"},
      {"a tie goes to the later index",
       3,
       {{"app.log", 2000, 0}, {"app.log.1", 2000, 0}, {"app.log.2", 1000, 0}},
       "app.log.1"},
      {"nanoseconds count", 3, {{"app.log", 1000, 500}, {"app.log.1", 1000, 200}}, "app.log"},
      {"gap", 3, {{"app.log", 1000, 0}, {"app.log.2", 2000, 0}}, "app.log.2"},
      {"index beyond the rotation", 3, {{"app.log", 1000, 0}, {"app.log.3", 5000, 0}}, "app.log"},
      {"one file only", 1, {{"app.log", 1000, 0}, {"app.log.1", 5000, 0}}, "app.log"},
      {"names the appender never writes",
       5,
       {{"app.log", 1000, 0},
        {"app.log.01", 5000, 0},
        {"app.log.1x", 5000, 0},
        {"app.log.+1", 5000, 0},
        {"app.log.0", 5000, 0},
        {"app.log.", 5000, 0},
        {"app.logs.1", 5000, 0},
        {"xapp.log.1", 5000, 0},
        {"app.log.99999999999", 5000, 0}},
       "app.log"},
      {"a directory in the way counts as it did",
       3,
       {{"app.log.1", 5000, 0, nullptr, true}},
       "app.log.1"},
      {"links are followed, dangling ones skipped",
       4,
       {{"target", 4000, 0},
        {"app.log", 1000, 0},
        {"app.log.1", 0, 0, "missing"},
        {"app.log.2", 0, 0, "target"}},
       "app.log.2"},
      {"large rotation", 100000, {{"app.log.7", 3000, 0}, {"app.log.99999", 2000, 0}}, "app.log.7"},
      {"largest rotation",
       INT_MAX,
       {{"app.log.2147483646", 3000, 0}, {"app.log.7", 2000, 0}},
       "app.log.2147483646"},
      {"numbered names cut to the path size",
       20,
       {{cut_dir, 0, 0, nullptr, true},
        {cut_dir + "/app.log", 1000, 0},
        {cut_dir + "/app.log.1", 3000, 0}},
       cut_dir + "/app.log.1"},
  };
  for (const LatestCase& c : cases) {
    TempDir dir;
    for (const Entry& e : c.entries) MakeEntry(dir.path(), e);
    const bool cut = c.chosen.find('/') != std::string::npos;
    WLOGDEVFILE d = Dev(dir.path() + (cut ? "/%c%c%c%c" + std::string(65, 'd') : "") + "/app.log",
                        0, c.max_rotate);
    if (cut) {
      ASSERT_EQ(189u, dir.file(cut_dir + "/app.log").size());  // "app.log.10" is cut
    }
    EXPECT_EQ(dir.file(c.chosen), FindLatest(&d, now)) << c.what;
  }
}
