// The memory appender through the public interface: ring and frame layout, the dump, init and
// attach codes, an earlier writer's ring, wrapping, a writer killed mid-run and a reader racing
// a live writer. Every test runs on a registry of its own that is removed with all its
// segments at the end.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "wlog/wlog.h"
#include "wlog_test_util.h"
#include "wmng_test_util.h"

using wlog_test::add_category;
using wlog_test::CtxPtr;
using wlog_test::init_ctx;
using wlog_test::inner;
using zq_test::StdoutCapture;

namespace {

const char kUri[] = "wsm-data://10/wlogtest:1/log/ring";
const wlog_loc_info_t kLoc = {"mem_test.cc", 42, "TestFn", nullptr};

std::string dump_of(WLOGDEVMEM dev, int* ret = nullptr) {
  char* text = nullptr;
  size_t len = 0;
  FILE* fp = open_memstream(&text, &len);
  const int r = wmemlog_dump_memdev(&dev, fp);
  if (ret != nullptr) *ret = r;
  fclose(fp);
  std::string out(text, len);
  free(text);
  return out;
}

WLOGCATEGORY* add_mem(WLOGCONF* conf, const char* name, int size, int max_msg = 0) {
  return wlog_test::add_mem_category(conf, name, kUri, size, max_msg);
}

WLOGDEVMEM reader_dev(int size = 0) {
  WLOGDEVMEM dev{};
  snprintf(dev.szUri, sizeof(dev.szUri), "%s", kUri);
  dev.iBuffSize = size;
  return dev;
}

int log_text(WLOGCATEGORYINST* cat, const std::string& msg, int prio = WLOG_PRIORITY_INFO) {
  return wlog_test::log_at(cat, &kLoc, msg, prio);
}

int log_bin(WLOGCATEGORYINST* cat, const std::string& bytes) {
  WLOGEVENT e = {WLOG_PRIORITY_INFO,
                 const_cast<char*>(bytes.data()),
                 static_cast<int>(bytes.size()),
                 &kLoc,
                 1,
                 0,
                 0,
                 0,
                 0};
  return wlog_category_log(cat, &e);
}

std::string hex(const std::string& bytes) {
  std::string out;
  char two[3];
  for (unsigned char b : bytes) {
    snprintf(two, sizeof(two), "%02X", b);
    out += two;
  }
  return out;
}

// The messages of a dump's records, in order; fails the test on text of another shape.
std::vector<std::string> messages_of(const std::string& dump) {
  static const std::regex record(
      R"(\[\d{8} \d{2}:\d{2}:\d{8}\]:\[mem_test\.cc:42\]\[TestFn\(\)\]\[([^\]]*)\])");
  std::vector<std::string> out;
  std::smatch m;
  auto at = dump.cbegin();
  for (; std::regex_search(at, dump.cend(), m, record, std::regex_constants::match_continuous);
       at += m.length(0)) {
    out.push_back(m[1]);
  }
  EXPECT_TRUE(std::regex_match(at, dump.cend(),
                               std::regex(R"(#####TotalPacket\(\d+\) TotalBytes\(\d+\)####\n)")))
      << "unparsable dump text: " << std::string(at, dump.cend());
  return out;
}

class WlogMem : public ::testing::Test {
 protected:
  // Never on the default registry, even after an earlier test failed with a handle open.
  void SetUp() override { ASSERT_EQ(guard_.key(), wsm_get_base()->iIndexKey); }
  wmng_test::RegistryGuard guard_{2, 4};
};

TEST_F(WlogMem, RingHeadFrameAndDumpLayout) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 4096, 100);
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* cat = wlog_get_category(ctx.get(), "mem");
  const struct timeval tv = {1706706309, 123};  // 2024-01-31 13:05:09 UTC
  ASSERT_EQ(0, wlog_category_set_time_ptr(cat, &tv));
  ASSERT_EQ(0, log_text(cat, "hello", WLOG_PRIORITY_ERROR));
  ASSERT_EQ(0, log_bin(cat, std::string("\x01\xab", 2)));

  const unsigned char* ring =
      static_cast<const unsigned char*>(inner(cat)->stWlogAnyInst.stInst.stAny.stMem.pvMemHead);
  ASSERT_NE(nullptr, ring);
  auto u64 = [&](size_t off, size_t width = 8) {
    uint64_t v = 0;  // little-endian host
    memcpy(&v, ring + off, width);
    return v;
  };
  auto u32 = [&](size_t off) { return u64(off, 4); };
  EXPECT_EQ(4674u, u32(0));
  EXPECT_EQ(1u, u32(4));
  EXPECT_EQ(1u, u32(8));
  EXPECT_EQ(2u, u64(16));           // frames
  EXPECT_EQ(565u + 562u, u64(24));  // bytes
  EXPECT_EQ(0u, u64(32));
  EXPECT_EQ(0u, u64(40));           // oldest
  EXPECT_EQ(565u + 562u, u64(48));  // write position
  EXPECT_EQ(4096u, u64(56));        // capacity
  const size_t f = 64;              // first frame
  EXPECT_EQ(565u, u64(f));
  EXPECT_EQ(1706706309u, u64(f + 8));
  EXPECT_EQ(123u, u64(f + 16));
  EXPECT_EQ(300u, u32(f + 24));
  EXPECT_EQ(42u, u32(f + 28));
  EXPECT_EQ(5u, u32(f + 32));
  EXPECT_EQ(0u, u32(f + 36));
  EXPECT_STREQ("mem_test.cc", reinterpret_cast<const char*>(ring + f + 40));
  EXPECT_STREQ("TestFn", reinterpret_cast<const char*>(ring + f + 296));
  EXPECT_EQ(0, memcmp("hello", ring + f + 552, 5));
  EXPECT_EQ(565u, u64(f + 557));     // trailer
  EXPECT_EQ(1u, u32(f + 565 + 36));  // binary kind

  const std::string line = "[" + wlog_test::local_time("%Y%m%d %H:%M:%S", tv.tv_sec) +
                           "000123]:[mem_test.cc:42][TestFn()]";
  EXPECT_EQ(line + "[hello]" + line + "[01AB]#####TotalPacket(2) TotalBytes(1127)####\n",
            dump_of(reader_dev()));
}

TEST_F(WlogMem, InitAndAttachCodes) {
  WLOGDEVMEM dev = reader_dev(64 + 4096);
  WLOGMEM mem;
  EXPECT_EQ(0, wlogmem_init(&mem, &dev));  // disabled: nothing attached
  EXPECT_EQ(nullptr, mem.pvMemHead);
  dev.iEnable = 1;
  struct Case {
    const char* uri;
    int size;
    int init;
  } cases[] = {
      {"wsm-meta://1/lib:1:1/", 4096, -2},  // not a data URI
      {kUri, 623, -3},                      // smaller than the head and one frame
      {kUri, 624, 0},
  };
  for (const Case& c : cases) {
    snprintf(dev.szUri, sizeof(dev.szUri), "%s", c.uri);
    dev.iBuffSize = c.size;
    EXPECT_EQ(c.init, wlogmem_init(&mem, &dev)) << c.uri << " " << c.size;
    EXPECT_EQ(0, wlogmem_fini(&mem));
  }
  // Attach: unknown URI, size mismatch, size taken from the segment.
  WLOGDEVMEM r = reader_dev();
  snprintf(r.szUri, sizeof(r.szUri), "wsm-data://10/wlogtest:1/log/none");
  std::string out = dump_of(r, nullptr);
  EXPECT_NE(std::string::npos, out.find("failed(-2)")) << out;
  r = reader_dev(700);
  EXPECT_EQ(-4, wlogmem_attach(&mem, &r));
  EXPECT_EQ(0, wlogmem_fini(&mem));
  r = reader_dev(0);
  EXPECT_EQ(0, wlogmem_attach(&mem, &r));
  EXPECT_EQ(624, r.iBuffSize);
  char* slot = nullptr;
  EXPECT_EQ(-1, wlogmem_get_slot(&mem, 0, &slot));  // a reader cannot write
  EXPECT_EQ(0, wlogmem_fini(&mem));
  // A data object that holds no ring.
  wmng_test::Handle h;
  ASSERT_EQ(0, wsm_vix_bind_data(h, "wsm-data://10/wlogtest:1/log/plain"));
  ASSERT_EQ(0, wsm_vix_bind_size(h, 1000));
  ASSERT_NE(nullptr, wsm_vix_ptr(h, 0xC0));
  snprintf(r.szUri, sizeof(r.szUri), "wsm-data://10/wlogtest:1/log/plain");
  r.iBuffSize = 0;
  EXPECT_EQ(-8, wlogmem_attach(&mem, &r));
  EXPECT_EQ(0, wlogmem_fini(&mem));
  // No free data slot left for a new ring: the segment cannot be created.
  for (const char* more : {"wsm-data://10/wlogtest:1/log/m1", "wsm-data://10/wlogtest:1/log/m2"}) {
    ASSERT_EQ(0, wsm_vix_bind_data(h, more));
    ASSERT_EQ(0, wsm_vix_bind_size(h, 1000));
    ASSERT_NE(nullptr, wsm_vix_ptr(h, 0xC0));
  }
  snprintf(dev.szUri, sizeof(dev.szUri), "wsm-data://10/wlogtest:1/log/full");
  dev.iBuffSize = 4096;
  EXPECT_EQ(-4, wlogmem_init(&mem, &dev));
  EXPECT_EQ(0, wlogmem_fini(&mem));
}

// A second writer on the same ring dumps what the first left, then starts afresh; a record too
// large for the slot still lands, from the category buffer.
TEST_F(WlogMem, EarlierRingIsDumpedThenReset) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 2000);  // default 8192-byte messages do not fit a slot
  {
    CtxPtr ctx = init_ctx(conf.get());
    ASSERT_TRUE(ctx);
    ASSERT_EQ(0, log_text(wlog_get_category(ctx.get(), "mem"), "first"));
  }
  StdoutCapture cap;
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  const std::string out = cap.Stop();
  EXPECT_NE(std::string::npos, out.find("[first]#####TotalPacket(1) TotalBytes(565)####")) << out;
  ASSERT_EQ(0, log_text(wlog_get_category(ctx.get(), "mem"), "second"));
  EXPECT_EQ(std::vector<std::string>{"second"}, messages_of(dump_of(reader_dev())));
}

// A clone writes to a ring of its own (the clone's name appended to the URI); a reload sets the
// configured category's ring up again after printing what it held, and leaves the clone's.
TEST_F(WlogMem, CloneHasItsOwnRingAndReloadStartsAfresh) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 4096, 100);
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  ASSERT_EQ(0, wlog_clone_category(wlog_get_category(ctx.get(), "mem"), "sub"));
  ASSERT_EQ(0, log_text(wlog_get_category(ctx.get(), "sub"), "to the clone"));
  ASSERT_EQ(0, log_text(wlog_get_category(ctx.get(), "mem"), "to the root"));
  WLOGDEVMEM clone = reader_dev();
  snprintf(clone.szUri, sizeof(clone.szUri), "%ssub.log", kUri);
  EXPECT_EQ(std::vector<std::string>{"to the clone"}, messages_of(dump_of(clone)));
  EXPECT_EQ(std::vector<std::string>{"to the root"}, messages_of(dump_of(reader_dev())));

  auto fresh = wlog_test::make_conf();
  add_mem(fresh.get(), "mem", 64 + 4096, 100);
  StdoutCapture cap;
  ASSERT_EQ(0, wlog_reload(ctx.get(), fresh.get()));
  const std::string out = cap.Stop();
  EXPECT_NE(std::string::npos, out.find("[to the root]")) << out;
  EXPECT_EQ(std::string::npos, out.find("[to the clone]")) << out;
  EXPECT_EQ(std::vector<std::string>{}, messages_of(dump_of(reader_dev())));
  ASSERT_EQ(0, log_text(wlog_get_category(ctx.get(), "sub"), "after reload"));
  EXPECT_EQ((std::vector<std::string>{"to the clone", "after reload"}),
            messages_of(dump_of(clone)));
}

// Independent model of what survives: lay frames and fillers out one after the other as the
// ring positions demand, then keep the newest frames that start less than the capacity before
// the farthest point any slot reserved (a slot reserves a frame for its largest message).
struct Model {
  explicit Model(uint64_t c) : cap(c) {}
  uint64_t cap, w = 0, stream = 0, bound = 0;
  struct Item {
    uint64_t start;
    int rec;  // -1 filler
  };
  std::deque<Item> items;
  static uint64_t span(uint64_t cap, uint64_t w, uint64_t msg) {
    return cap - w - (msg + 560) < 560 ? cap - w : msg + 560;
  }
  void add(int rec, uint64_t reserve, uint64_t msg) {
    if (w + reserve + 560 > cap) {
      items.push_back({stream, -1});
      stream += cap - w;
      w = 0;
    }
    const uint64_t len = span(cap, w, msg);
    bound = std::max(bound, stream + span(cap, w, reserve));
    items.push_back({stream, rec});
    stream += len;
    bound = std::max(bound, stream);
    w = (w + len) % cap;
    while (items.size() > 4 * cap / 560) items.pop_front();
  }
  std::vector<int> survivors() const {
    std::vector<int> out;
    for (auto it = items.rbegin(); it != items.rend() && bound - it->start < cap; ++it) {
      if (it->rec >= 0) out.insert(out.begin(), it->rec);
    }
    return out;
  }
};

std::string text_msg(int i) {
  return std::to_string(i) + ":" + std::string((i * 7919u) % 240, 't');
}
std::string bin_msg(int i) { return std::string(1 + (i * 31u) % 180, static_cast<char>(i & 0x7f)); }

TEST_F(WlogMem, WrapsManyTimesAndKeepsTheNewestRecords) {
  const int kCap = 20000, kMax = 300, kRecords = 1000000;
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + kCap, kMax);
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* cat = wlog_get_category(ctx.get(), "mem");
  Model model(kCap);
  std::vector<std::string> expect_text;
  for (int i = 0; i < kRecords; ++i) {
    if (i % 3 == 2) {
      const std::string b = bin_msg(i);
      ASSERT_EQ(0, log_bin(cat, b));
      model.add(i, b.size(), b.size());
    } else {
      const std::string t = text_msg(i);
      ASSERT_EQ(0, log_text(cat, t));
      model.add(i, kMax, t.size());
    }
  }
  std::vector<std::string> expected;
  for (int i : model.survivors()) expected.push_back(i % 3 == 2 ? hex(bin_msg(i)) : text_msg(i));
  ASSERT_GT(expected.size(), 10u);
  EXPECT_EQ(expected, messages_of(dump_of(reader_dev())));
}

// Waits for one byte from a child (it is ready), then kills it.
void kill_when_ready(pid_t pid, int fd) {
  char byte = 0;
  EXPECT_EQ(1, read(fd, &byte, 1));
  kill(pid, SIGKILL);
  int status = 0;
  EXPECT_EQ(pid, waitpid(pid, &status, 0));
  EXPECT_TRUE(WIFSIGNALED(status));
}

// Child: logs `count` records (count < 0: forever, signalling after the first thousand) and
// signals on fd. The segment is never detached: the process is killed.
[[noreturn]] void writer_child(WLOGCONF* conf, int fd, int count) {
  WLOGCTX* ctx = wlog_alloc();
  if (ctx == nullptr || wlog_init(ctx, conf) != 0) _exit(3);
  WLOGCATEGORYINST* cat = wlog_get_category(ctx, "mem");
  for (int i = 0; count < 0 || i < count; ++i) {
    if (log_text(cat, "seq " + std::to_string(i) + " " + std::string(i % 97, 'a' + i % 26)) != 0) {
      _exit(4);
    }
    if (i + 1 == (count < 0 ? 1000 : count) && write(fd, "r", 1) != 1) _exit(5);
  }
  for (;;) pause();
}

TEST_F(WlogMem, RecordsSurviveTheWriterBeingKilled) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 200 * 1024, 200);
  const int kCount = 150;
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  fflush(stdout);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) writer_child(conf.get(), fds[1], kCount);
  kill_when_ready(pid, fds[0]);
  close(fds[0]);
  close(fds[1]);
  const std::vector<std::string> got = messages_of(dump_of(reader_dev()));
  ASSERT_EQ(static_cast<size_t>(kCount), got.size());
  for (int i = 0; i < kCount; ++i) {
    EXPECT_EQ("seq " + std::to_string(i) + " " + std::string(i % 97, 'a' + i % 26), got[i]);
  }
}

TEST_F(WlogMem, ReaderRacingALiveWriterSeesOnlyWholeFrames) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 16 * 1024, 200);
  int fds[2];
  ASSERT_EQ(0, pipe(fds));
  fflush(stdout);
  const pid_t pid = fork();
  ASSERT_GE(pid, 0);
  if (pid == 0) writer_child(conf.get(), fds[1], -1);
  char byte = 0;
  ASSERT_EQ(1, read(fds[0], &byte, 1));
  static const std::regex rec(R"(seq (\d+) ([a-z]*))");
  int dumps_with_records = 0;
  for (int round = 0; round < 300 && !HasFailure(); ++round) {
    const std::vector<std::string> got = messages_of(dump_of(reader_dev()));
    long last = -1;
    for (const std::string& m : got) {
      std::smatch s;
      ASSERT_TRUE(std::regex_match(m, s, rec)) << m;
      const long i = std::stol(s[1]);
      EXPECT_EQ(std::string(i % 97, 'a' + i % 26), s[2].str()) << m;
      EXPECT_GT(i, last) << "out of order";
      last = i;
    }
    dumps_with_records += got.empty() ? 0 : 1;
  }
  EXPECT_GT(dumps_with_records, 0);
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  close(fds[0]);
  close(fds[1]);
}

// Slots of 660 bytes on a ring of 2300: the fourth record finds 617 bytes left, a filler takes
// them, and its slot at the start overlaps the first two frames.
TEST_F(WlogMem, FillerAtTheRingEndIsNoRecord) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 2300, 100);
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  for (const char* m : {"a", "b", "c", "d"}) {
    ASSERT_EQ(0, log_text(wlog_get_category(ctx.get(), "mem"), m));
  }
  EXPECT_EQ((std::vector<std::string>{"c", "d"}), messages_of(dump_of(reader_dev())));
}

// A damaged frame ends the dump: the records before it are printed, nothing after.
TEST_F(WlogMem, DumpStopsAtAFrameFailingItsChecks) {
  auto conf = wlog_test::make_conf();
  add_mem(conf.get(), "mem", 64 + 8192, 100);
  CtxPtr ctx = init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* cat = wlog_get_category(ctx.get(), "mem");
  for (const char* m : {"a", "bb", "ccc"}) ASSERT_EQ(0, log_text(cat, m));
  unsigned char* ring =
      static_cast<unsigned char*>(inner(cat)->stWlogAnyInst.stInst.stAny.stMem.pvMemHead);
  const size_t second = 64 + 561;
  struct Damage {
    size_t off;  // from the second frame
    uint64_t value;
    int width;
  } damages[] = {
      {0, 563, 8},       // length differs from the trailer
      {0, 1u << 30, 8},  // beyond the capacity
      {32, 4, 4},        // message longer than the frame allows
      {562 - 8, 1, 8},   // trailer
  };
  for (const Damage& d : damages) {
    unsigned char saved[8];
    memcpy(saved, ring + second + d.off, 8);
    memcpy(ring + second + d.off, &d.value, d.width);
    EXPECT_EQ(std::vector<std::string>{"a"}, messages_of(dump_of(reader_dev()))) << d.off;
    memcpy(ring + second + d.off, saved, 8);
  }
  EXPECT_EQ((std::vector<std::string>{"a", "bb", "ccc"}), messages_of(dump_of(reader_dev())));
}

}  // namespace
