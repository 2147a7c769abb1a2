// Rotation reliability: a million numbered lines logged through a file category whose size
// limit forces many rotations, in rotating, sticky and bill modes. Afterwards every retained
// file must hold whole, consecutive lines; together the files must hold an unbroken run of
// line numbers ending at the last line; every file but the newest must be full (the next
// line did not fit); and bill mode must keep every line.

#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "wlog/wlog.h"
#include "wlog_test_util.h"

namespace {

constexpr int kLines = 1000000;

struct Mode {
  int max_rotate;  // 0: bill mode
  int sticky;
  uint32_t limit;
  int buff_size;
  int sync_time;
  int precision;
};

// One retained file: its name, size and the numbers of its lines.
struct LogFile {
  int index;  // of the name: app.log is 0, app.log.<n> is n
  std::string name;
  size_t size = 0;
  long first = -1;
  long last = -1;
};

// Parses a file of "<n>\n" lines; fails the test unless every line is whole and each number
// is one more than the one before.
LogFile Parse(const std::string& dir, int index) {
  LogFile f;
  f.index = index;
  f.name = index == 0 ? std::string("app.log") : "app.log." + std::to_string(index);
  const std::string& name = f.name;
  const std::string text = zq_test::ReadFile(dir + "/" + name);
  f.size = text.size();
  EXPECT_FALSE(text.empty()) << name;
  EXPECT_EQ('\n', text.empty() ? '\n' : text.back()) << name << " ends inside a line";
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find('\n', pos);
    if (end == std::string::npos) end = text.size();
    const std::string line = text.substr(pos, end - pos);
    char* stop = nullptr;
    const long n = strtol(line.c_str(), &stop, 10);
    if (line.empty() || *stop != '\0' || (f.last >= 0 && n != f.last + 1)) {
      ADD_FAILURE() << name << ": bad line \"" << line << "\" after " << f.last;
      return f;
    }
    if (f.first < 0) f.first = n;
    f.last = n;
    pos = end + 1;
  }
  return f;
}

size_t LineLen(long n) { return std::to_string(n).size() + 1; }

// Logs kLines numbered lines through a file category configured by mode.
void LogLines(const std::string& dir, const Mode& mode) {
  auto conf = wlog_test::make_conf();
  WLOGCATEGORY* cat = wlog_test::add_file_category(conf.get(), "rot", dir + "/app.log", "%m%n");
  WLOGDEVFILE& dev = cat->stDevice.stDevice.stFile;
  dev.dwSizeLimit = mode.limit;
  dev.iMaxRotate = mode.max_rotate;
  dev.iRotateStick = mode.sticky;
  dev.iBuffSize = mode.buff_size;
  dev.iSyncTime = mode.sync_time;
  dev.iPrecision = mode.precision;
  wlog_test::CtxPtr ctx = wlog_test::init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = mode.max_rotate == 0 ? wlog_get_bill_category(ctx.get(), "rot")
                                             : wlog_get_category(ctx.get(), "rot");
  ASSERT_NE(nullptr, c);
  for (int i = 0; i < kLines; ++i) {
    WLOGEVENT evt = {WLOG_PRIORITY_INFO, nullptr, 0, nullptr, 0, 0, 0, 0, 0};
    ASSERT_EQ(0, wlog_category_logv(c, &evt, "%d", i));
  }
}

// Logs the lines in mode and checks the files left. Rotating mode keeps its files in turn,
// sticky mode shifts older files up (the bare name is the newest), bill mode numbers new files
// upwards and keeps them all.
void CheckMode(const Mode& mode) {
  zq_test::TempDir dir;
  LogLines(dir.path(), mode);
  const int n = static_cast<int>(wlog_test::files_in(dir.path()).size());
  if (mode.max_rotate > 0) {
    ASSERT_EQ(mode.max_rotate, n);
  } else {
    ASSERT_GT(n, 30);
  }
  std::vector<LogFile> files;  // oldest first, by content
  for (int i = 0; i < n; ++i) files.push_back(Parse(dir.path(), i));
  std::sort(files.begin(), files.end(),
            [](const LogFile& a, const LogFile& b) { return a.first < b.first; });
  EXPECT_EQ(kLines - 1, files.back().last);
  EXPECT_TRUE(mode.max_rotate > 0 || files.front().first == 0) << "bill mode lost lines";
  const int step = mode.sticky ? n - 1 : 1;
  for (size_t k = 0; k < files.size(); ++k) {
    const LogFile& f = files[k];
    EXPECT_LE(f.size, mode.limit) << f.name;
    if (k + 1 < files.size()) {
      EXPECT_EQ((f.index + step) % n, files[k + 1].index) << f.name << " is not followed in turn";
      EXPECT_EQ(f.last + 1, files[k + 1].first) << f.name << " does not join " << files[k + 1].name;
      EXPECT_GT(f.size + LineLen(f.last + 1), mode.limit)
          << f.name << " was rotated before it was full";
    }
  }
}

TEST(WlogRotation, RotatingModeKeepsTheNewestFilesInTurn) {
  CheckMode({4, 0, 100001, 65536, 60, 0});
}
TEST(WlogRotation, StickyModeShiftsOlderFilesUp) { CheckMode({5, 1, 50003, 4096, 1, 0}); }
// Bill-like: unbuffered, 1 s period, flushed after every line.
TEST(WlogRotation, BillModeLosesNoLine) { CheckMode({0, 0, 200000, 0, 0, 1}); }

}  // namespace
