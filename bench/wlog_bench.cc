// Logging library benchmarks.
//
// Goals, checked against floors measured in the same run:
// - a message rejected by the context-wide bounds costs about one integer compare through the
//   caller macro, its arguments unevaluated (BM_MacroRejectedByContextBounds);
// - a message written with the default pattern to a file appender (64 KiB buffer, flush once a
//   second) costs at most 0.8x one snprintf of the same full line plus fwrite into a FILE with a
//   64 KiB buffer, the date text recomputed only when the second changes
//   (BM_FileDefaultPattern against BM_FloorSnprintfFwrite; the ratio is printed at the end).
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "wlog/wlog.h"

namespace {

constexpr uint32_t kFileLimit = 256u << 20;  // bounds the disk used by long runs
constexpr int kStdioBuffer = 64 * 1024;

std::string g_dir;

const std::string& temp_dir() {
  if (g_dir.empty()) {
    char tmpl[] = "/tmp/wlog_bench_XXXXXX";
    const char* p = mkdtemp(tmpl);
    g_dir = p != nullptr ? p : "/tmp";
  }
  return g_dir;
}

struct Logger {
  std::unique_ptr<WLOGCONF> conf{new WLOGCONF()};
  WLOGCTX* ctx = nullptr;
  WLOGCATEGORYINST* cat = nullptr;

  // One file category with the default pattern; context-wide bounds FATAL..INFO.
  explicit Logger(const char* file_name) {
    conf->iMagic = WLOG_CONF_MAGIC;
    conf->iPriorityHigh = WLOG_PRIORITY_FATAL;
    conf->iPriorityLow = WLOG_PRIORITY_INFO;
    conf->iCount = 1;
    WLOGCATEGORY& c = conf->astCategoryList[0];
    snprintf(c.szName, sizeof(c.szName), "bench");
    c.iPriorityHigh = -1;
    c.iPriorityLow = -1;
    snprintf(c.szFormat, sizeof(c.szFormat), "%s", WLOG_DEFAULT_FORMAT);
    c.stDevice.iType = WLOG_DEV_FILE;
    WLOGDEVFILE& f = c.stDevice.stDevice.stFile;
    snprintf(f.szPattern, sizeof(f.szPattern), "%s/%s", temp_dir().c_str(), file_name);
    f.iBuffSize = kStdioBuffer;
    f.iSyncTime = 1;
    f.iMaxRotate = 2;
    f.dwSizeLimit = kFileLimit;
    ctx = wlog_alloc();
    if (ctx == nullptr || wlog_init(ctx, conf.get()) != 0) {
      fprintf(stderr, "wlog_init failed\n");
      abort();
    }
    if (wlog_set_host_name(ctx, "10.11.12.13") != 0 || wlog_set_module_name(ctx, "bench") != 0) {
      fprintf(stderr, "wlog_set_host_name/wlog_set_module_name failed\n");
      abort();
    }
    cat = wlog_get_category(ctx, "bench");
  }
  ~Logger() {
    if (wlog_fini(ctx) != 0 || wlog_free(&ctx) != 0) fprintf(stderr, "wlog teardown failed\n");
  }
};

int expensive_argument() {
  static volatile int sink = 0;
  for (int i = 0; i < 100; ++i) sink = sink + i;
  return sink;
}

void BM_MacroRejectedByContextBounds(benchmark::State& state) {
  Logger log("rejected.log");
  WLOGCATEGORYINST* cat = log.cat;
  for (auto _ : state) {
    WLOG_LOG_DEBUG(cat, "never %d %s", expensive_argument(), "formatted");
    benchmark::ClobberMemory();  // the bounds are re-read every time
  }
}
BENCHMARK(BM_MacroRejectedByContextBounds);

// Floor for the rejected message: an empty loop body with the same memory clobber.
void BM_FloorEmptyLoop(benchmark::State& state) {
  for (auto _ : state) benchmark::ClobberMemory();
}
BENCHMARK(BM_FloorEmptyLoop);

void BM_CanWriteRejectedByCategoryWindow(benchmark::State& state) {
  Logger log("window.log");
  log.conf->iPriorityLow = -1;
  log.conf->astCategoryList[0].iPriorityLow = WLOG_PRIORITY_INFO;
  WLOGCATEGORYINST* cat = log.cat;
  for (auto _ : state) {
    WLOG_LOG_DEBUG(cat, "never %d", expensive_argument());
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_CanWriteRejectedByCategoryWindow);

void BM_FileDefaultPattern(benchmark::State& state) {
  Logger log("wlog.log");
  WLOGCATEGORYINST* cat = log.cat;
  int i = 0;
  for (auto _ : state) {
    WLOG_LOG_INFO(cat, "player %s entered world %d channel %d", "alice", ++i, 7);
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileDefaultPattern);

void BM_FloorSnprintfFwrite(benchmark::State& state) {
  const std::string path = temp_dir() + "/floor.log";
  FILE* fp = fopen(path.c_str(), "wb");
  if (fp == nullptr) {
    state.SkipWithError("cannot open the floor file");
    return;
  }
  std::unique_ptr<char[]> stdio_buf(new char[kStdioBuffer]);
  setvbuf(fp, stdio_buf.get(), _IOFBF, kStdioBuffer);
  const char* host = "10.11.12.13";
  const char* module = "bench";
  char date[64] = "";
  time_t date_sec = -1;
  time_t flushed = 0;
  size_t written = 0;
  int i = 0;
  for (auto _ : state) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    if (tv.tv_sec != date_sec) {
      struct tm tm;
      localtime_r(&tv.tv_sec, &tm);
      snprintf(date, sizeof(date), "%04d%02d%02d %02d:%02d:%02d", tm.tm_year + 1900, tm.tm_mon + 1,
               tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec);
      date_sec = tv.tv_sec;
    }
    char line[4096];
    const int n = snprintf(line, sizeof(line),
                           "[%s.%06d][%s][(%s:%d) (%s)][%s][%-8s] player %s entered world %d "
                           "channel %d\n",
                           date, static_cast<int>(tv.tv_usec), host, __FILE__, __LINE__, __func__,
                           module, "INFO", "alice", ++i, 7);
    fwrite(line, 1, static_cast<size_t>(n), fp);
    written += static_cast<size_t>(n);
    if (tv.tv_sec != flushed) {  // the appender flushes once a second too
      fflush(fp);
      flushed = tv.tv_sec;
    }
    if (written > kFileLimit) {  // start afresh like the appender's rotation does
      fflush(fp);
      if (ftruncate(fileno(fp), 0) != 0) state.SkipWithError("ftruncate failed");
      rewind(fp);
      written = 0;
    }
  }
  fclose(fp);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorSnprintfFwrite);

// One conversion at a time (pattern "<flag> %m") through a category writing to /dev/null: the
// granularity that finds a slow converter.
void BM_PatternFlag(benchmark::State& state) {
  static const char* const kFlags[] = {"%d", "%u", "%h", "%f", "%F", "%l", "%M",     "%p",
                                       "%c", "%t", "%P", "%C", "%U", "%n", "literal"};
  const char* flag = kFlags[state.range(0)];
  Logger log("flag.log");
  WLOGDEVFILE& f = log.conf->astCategoryList[0].stDevice.stDevice.stFile;
  if (wlog_fini(log.ctx) != 0) {
    state.SkipWithError("wlog_fini failed");
    return;
  }
  snprintf(f.szPattern, sizeof(f.szPattern), "/dev/null");
  snprintf(log.conf->astCategoryList[0].szFormat, WLOG_FORMAT_LEN, "%s %%m", flag);
  if (wlog_init(log.ctx, log.conf.get()) != 0) {
    state.SkipWithError("wlog_init failed");
    return;
  }
  WLOGCATEGORYINST* cat = wlog_get_category(log.ctx, "bench");
  for (auto _ : state) WLOG_LOG_INFO(cat, "m");
  state.SetLabel(flag);
}
BENCHMARK(BM_PatternFlag)->DenseRange(0, 14);

// One-off layout of the default pattern (compiled on the stack every call; a category keeps its
// compiled pattern).
void layout_event(WLOGEVENTBASE* e, const wlog_loc_info_t* loc, char* host, char* module) {
  memset(e, 0, sizeof(*e));
  e->evt_category = "bench";
  e->evt_priority = WLOG_PRIORITY_INFO;
  e->evt_hostName = host;
  e->evt_moduleName = module;
  e->evt_loc = loc;
}

void BM_LayoutOneOffDefaultPattern(benchmark::State& state) {
  static WLOGEVENTBASE e;
  char host[] = "10.11.12.13";
  char module[] = "bench";
  const wlog_loc_info_t loc = {__FILE__, __LINE__, __func__, nullptr};
  layout_event(&e, &loc, host, module);
  for (auto _ : state) {
    gettimeofday(&e.evt_timestamp, nullptr);
    wlog_layout_format(&e, WLOG_DEFAULT_FORMAT);
    benchmark::DoNotOptimize(e.evt_msg_prefix_len);
  }
}
BENCHMARK(BM_LayoutOneOffDefaultPattern);

// Console output plus the goal ratios computed from this run's figures.
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.iterations > 0) {
        real_[r.benchmark_name()] = r.GetAdjustedRealTime();
        cpu_[r.benchmark_name()] = r.GetAdjustedCPUTime();
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    ratio("BM_FileDefaultPattern", "BM_FloorSnprintfFwrite", 0.8);
    const auto rej = cpu_.find("BM_MacroRejectedByContextBounds");
    if (rej != cpu_.end()) {
      printf("rejected message through the macro: %.2f ns (goal <= 1 ns)\n", rej->second);
    }
  }

 private:
  // CPU time is the figure that counts on a shared machine (it includes the kernel's share of
  // the writes but not time spent waiting for a core); wall time is printed beside it.
  void ratio(const char* mine, const char* floor, double goal) {
    const auto a = cpu_.find(mine);
    const auto b = cpu_.find(floor);
    if (a == cpu_.end() || b == cpu_.end() || b->second <= 0) return;
    printf("%s / %s = %.3f CPU time, %.3f wall time (goal <= %.2f)\n", mine, floor,
           a->second / b->second, real_[mine] / real_[floor], goal);
  }
  std::map<std::string, double> real_;
  std::map<std::string, double> cpu_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  if (!g_dir.empty()) {
    const std::string cmd = "rm -rf '" + g_dir + "'";
    if (system(cmd.c_str()) != 0) fprintf(stderr, "could not remove %s\n", g_dir.c_str());
  }
  return 0;
}
