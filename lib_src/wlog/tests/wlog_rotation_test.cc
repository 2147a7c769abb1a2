// Rotation reliability: a million numbered lines logged through a file category whose size
// limit forces many rotations, in rotating, sticky and bill modes. Afterwards every retained
// file must hold whole, consecutive lines; together the files must hold an unbroken run of
// line numbers ending at the last line; every file but the newest must be full (the next
// line did not fit); and bill mode must keep every line.

#include <dirent.h>
#include <gtest/gtest.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

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
  std::string name;
  size_t size = 0;
  long first = -1;
  long last = -1;
};

// Parses a file of "<n>\n" lines; fails the test unless every line is whole and each number
// is one more than the one before.
LogFile Parse(const std::string& dir, const std::string& name) {
  LogFile f;
  f.name = name;
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

std::vector<std::string> FilesIn(const std::string& dir) {
  std::vector<std::string> names;
  DIR* d = opendir(dir.c_str());
  if (!d) return names;
  while (struct dirent* e = readdir(d))
    if (e->d_name[0] != '.') names.push_back(e->d_name);
  closedir(d);
  return names;
}

std::string Numbered(int i) {
  return i == 0 ? std::string("app.log") : "app.log." + std::to_string(i);
}

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

// Checks files given oldest first: consecutive runs that join up and end at the last line,
// every file but the newest closed only because the next line would not fit.
void CheckChain(const std::string& dir, const std::vector<std::string>& oldest_first,
                uint32_t limit) {
  std::vector<LogFile> files;
  for (const std::string& name : oldest_first) files.push_back(Parse(dir, name));
  ASSERT_FALSE(files.empty());
  EXPECT_EQ(kLines - 1, files.back().last);
  for (size_t k = 0; k < files.size(); ++k) {
    const LogFile& f = files[k];
    EXPECT_LE(f.size, limit) << f.name;
    if (k + 1 < files.size()) {
      EXPECT_EQ(f.last + 1, files[k + 1].first) << f.name << " does not join " << files[k + 1].name;
      EXPECT_GT(f.size + LineLen(f.last + 1), limit) << f.name << " was rotated before it was full";
    }
  }
}

TEST(WlogRotation, RotatingModeKeepsTheNewestFilesInTurn) {
  zq_test::TempDir dir;
  const Mode mode = {4, 0, 100001, 65536, 60, 0};
  LogLines(dir.path(), mode);
  ASSERT_EQ(4u, FilesIn(dir.path()).size());
  // The newest file is the one holding the last line; the others follow it in turn.
  int newest = -1;
  for (int i = 0; i < 4; ++i)
    if (Parse(dir.path(), Numbered(i)).last == kLines - 1) newest = i;
  ASSERT_GE(newest, 0);
  std::vector<std::string> order;
  for (int k = 1; k <= 4; ++k) order.push_back(Numbered((newest + k) % 4));
  CheckChain(dir.path(), order, mode.limit);
}

TEST(WlogRotation, StickyModeShiftsOlderFilesUp) {
  zq_test::TempDir dir;
  const Mode mode = {5, 1, 50003, 4096, 1, 0};
  LogLines(dir.path(), mode);
  ASSERT_EQ(5u, FilesIn(dir.path()).size());
  CheckChain(dir.path(), {"app.log.4", "app.log.3", "app.log.2", "app.log.1", "app.log"},
             mode.limit);
}

TEST(WlogRotation, BillModeLosesNoLine) {
  zq_test::TempDir dir;
  const Mode mode = {0, 0, 200000, 0, 0, 1};  // bill-like: unbuffered, 1 s period, flush always
  LogLines(dir.path(), mode);
  const size_t count = FilesIn(dir.path()).size();
  ASSERT_GT(count, 30u);
  std::vector<std::string> order;
  for (size_t i = 0; i < count; ++i) order.push_back(Numbered(static_cast<int>(i)));
  CheckChain(dir.path(), order, mode.limit);
  EXPECT_EQ(0, Parse(dir.path(), "app.log").first);
}

}  // namespace
