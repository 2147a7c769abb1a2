// Memory log ring benchmarks.
//
// Goals, checked against figures measured in the same run (the ratios are printed at the end):
// - a 100-byte text record to a memory category (BM_MemCategory) costs at most 0.6x the same
//   record to a buffered file category with the default pattern (BM_FileCategory), and at most
//   2x a floor of vsnprintf of the message into a stack buffer plus memcpy of a 660-byte frame
//   into a ring of the same size (BM_FloorVsnprintfMemcpy);
// - dumping a full 64 MiB ring (BM_DumpRing64MiB) is reported in MB/s of ring walked.
//
// The shared-memory registry is the benchmark's own (a key derived from the process id); it is
// removed with its segments at the end.
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "wlog/wlog.h"
#include "wmng/terror.h"
#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

namespace {

constexpr int kRing = 4 << 20;      // ring of the category benchmarks (head included)
constexpr int kBigRing = 64 << 20;  // ring of the dump benchmark
constexpr int kFrame = 660;         // 100-byte message + 560 bytes of frame
const char kPad[] =
    "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789abcdefghijklmnopqrstuv";
static_assert(sizeof(kPad) - 1 == 84, "7 + 8 + 1 + 84 = 100 bytes of message");
#define RECORD_FMT "record %08d %s"

int g_key = 0;
std::string g_dir;

void use_own_registry() {
  g_key = 0x5b000000 | (static_cast<int>(getpid()) & 0xfffff) << 4;
  WsmBase base;
  if (wsm_base_default(&base) != 0) abort();
  base.iIndexKey = g_key;
  base.iLibCap = 2;
  base.iUriCap = 4;
  if (wsm_vix_base_set(&base) != 0) abort();
}

// Removes every object of the benchmark's registry and the registry itself.
void remove_registry() {
  WsmVixHandleP h = nullptr;
  if (shmget(g_key, 0, 0) < 0 || wsm_vix_open(&h) != 0) return;
  if (wsm_vix_query(h, "wsm-data://") > 0) {
    WsmVixResultP res = wsm_vix_store_result(h);
    for (WsmVixRowP r = wsm_vix_fetch_row(res); r != nullptr; r = wsm_vix_fetch_row(res)) {
      if (wsm_vix_row_unlink(r, h) != 0) fprintf(stderr, "wlogmem_bench: unlink failed\n");
    }
  }
  if (wsm_vix_close(&h) != 0) fprintf(stderr, "wlogmem_bench: close failed\n");
  if (wsm_index_remove(g_key) != 0) fprintf(stderr, "wlogmem_bench: registry not removed\n");
  terror_clear(nullptr);
}

// Removes the ring at uri, so that the next run creates it afresh (an existing ring would be
// dumped first).
void unlink_ring(const char* uri) {
  WsmVixHandleP h = nullptr;
  if (wsm_vix_open(&h) != 0) return;
  if (wsm_vix_query(h, uri) == 1 && wsm_vix_row_unlink(wsm_vix_row_only(h), h) != 0) {
    fprintf(stderr, "wlogmem_bench: %s not removed\n", uri);
  }
  if (wsm_vix_close(&h) != 0) fprintf(stderr, "wlogmem_bench: close failed\n");
}

struct Logger {
  std::unique_ptr<WLOGCONF> conf{new WLOGCONF()};
  std::string uri;
  WLOGCTX* ctx = nullptr;
  WLOGCATEGORYINST* cat = nullptr;

  // One category: a memory ring of `ring` bytes at ring_uri, or (ring_uri null) a file with the
  // default pattern, a 64 KiB buffer and a flush once a second.
  Logger(const char* ring_uri, int ring) {
    conf->iMagic = WLOG_CONF_MAGIC;
    conf->iPriorityHigh = conf->iPriorityLow = -1;
    conf->iCount = 1;
    WLOGCATEGORY& c = conf->astCategoryList[0];
    snprintf(c.szName, sizeof(c.szName), "bench");
    c.iPriorityHigh = c.iPriorityLow = -1;
    if (ring_uri != nullptr) {
      uri = ring_uri;
      c.stDevice.iType = WLOG_DEV_MEM;
      WLOGDEVMEM& m = c.stDevice.stDevice.stMem;
      m.iEnable = 1;
      m.iBuffSize = ring;
      snprintf(m.szUri, sizeof(m.szUri), "%s", ring_uri);
    } else {
      snprintf(c.szFormat, sizeof(c.szFormat), "%s", WLOG_DEFAULT_FORMAT);
      c.stDevice.iType = WLOG_DEV_FILE;
      WLOGDEVFILE& f = c.stDevice.stDevice.stFile;
      snprintf(f.szPattern, sizeof(f.szPattern), "%s/file.log", g_dir.c_str());
      f.iBuffSize = 64 * 1024;
      f.iSyncTime = 1;
      f.iMaxRotate = 2;
      f.dwSizeLimit = 256u << 20;
    }
    ctx = wlog_alloc();
    if (ctx == nullptr || wlog_init(ctx, conf.get()) != 0) {
      fprintf(stderr, "wlog_init failed\n");
      abort();
    }
    cat = wlog_get_category(ctx, "bench");
  }
  ~Logger() {
    if (wlog_fini(ctx) != 0 || wlog_free(&ctx) != 0) fprintf(stderr, "wlog teardown failed\n");
    if (!uri.empty()) unlink_ring(uri.c_str());
  }
  void log(int i) { WLOG_LOG_INFO(cat, RECORD_FMT, i, kPad); }
};

void BM_MemCategory(benchmark::State& state) {
  Logger log("wsm-data://1/wlogmem_bench:1/log/cat", kRing);
  for (int i = 0; i < 2 * kRing / kFrame; ++i) log.log(i);  // warm: round the ring twice
  int i = 0;
  for (auto _ : state) log.log(++i);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_MemCategory);

void BM_FileCategory(benchmark::State& state) {
  Logger log(nullptr, 0);
  int i = 0;
  for (auto _ : state) log.log(++i);
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FileCategory);

int format_into(char* buf, size_t cap, const char* fmt, ...) {
  va_list ap;
  va_start(ap, fmt);
  const int n = vsnprintf(buf, cap, fmt, ap);
  va_end(ap);
  return n;
}

void BM_FloorVsnprintfMemcpy(benchmark::State& state) {
  std::vector<char> ring(kRing);
  memset(ring.data(), 0, ring.size());  // warm: every page touched
  size_t pos = 0;
  int i = 0;
  for (auto _ : state) {
    char frame[kFrame];
    const int n = format_into(frame + 552, 108, RECORD_FMT, ++i, kPad);
    benchmark::DoNotOptimize(n);
    if (pos + kFrame > ring.size()) pos = 0;
    memcpy(ring.data() + pos, frame, kFrame);
    pos += kFrame;
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_FloorVsnprintfMemcpy);

// The dump of a full 64 MiB ring to /dev/null, in bytes of ring walked per second.
void BM_DumpRing64MiB(benchmark::State& state) {
  Logger log("wsm-data://1/wlogmem_bench:1/log/big", kBigRing);
  for (int i = 0; i < kBigRing / kFrame + 1000; ++i) log.log(i);
  FILE* sink = fopen("/dev/null", "w");
  const void* ring = log.conf->astCategoryList[0].stDevice.iType == WLOG_DEV_MEM
                         ? reinterpret_cast<WLOGCATEGORYINNERINST*>(log.cat)
                               ->stWlogAnyInst.stInst.stAny.stMem.pvMemHead
                         : nullptr;
  if (sink == nullptr || ring == nullptr) {
    state.SkipWithError("no ring or no /dev/null");
    if (sink != nullptr) fclose(sink);
    return;
  }
  int frames = 0;
  for (auto _ : state) frames = wlogmem_dump(ring, sink);
  fclose(sink);
  state.counters["frames"] = frames;
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(kBigRing));
}
BENCHMARK(BM_DumpRing64MiB)->Unit(benchmark::kMillisecond);

// Console output plus the goal ratios computed from this run's figures (CPU time).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& r : runs) {
      if (r.iterations > 0 && r.run_type == Run::RT_Iteration) {
        cpu_[r.run_name.function_name].push_back(r.GetAdjustedCPUTime());
      }
    }
    ConsoleReporter::ReportRuns(runs);
  }
  void Finalize() override {
    ConsoleReporter::Finalize();
    ratio("BM_MemCategory", "BM_FileCategory", 0.6);
    ratio("BM_MemCategory", "BM_FloorVsnprintfMemcpy", 2.0);
  }

 private:
  // Medians of the repetitions.
  double median(const std::string& name) {
    std::vector<double> v = cpu_[name];
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
  }
  void ratio(const char* mine, const char* other, double goal) {
    const double a = median(mine), b = median(other);
    if (a <= 0 || b <= 0) return;
    printf("%s / %s = %.3f CPU time, medians %.1f ns / %.1f ns (goal <= %.1f)\n", mine, other,
           a / b, a, b, goal);
  }
  std::map<std::string, std::vector<double>> cpu_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  char tmpl[] = "/tmp/wlogmem_bench_XXXXXX";
  if (mkdtemp(tmpl) == nullptr) return 1;
  g_dir = tmpl;
  use_own_registry();
  RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  remove_registry();
  const std::string cmd = "rm -rf '" + g_dir + "'";
  if (system(cmd.c_str()) != 0) fprintf(stderr, "could not remove %s\n", g_dir.c_str());
  return 0;
}
