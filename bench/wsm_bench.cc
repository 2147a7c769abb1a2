// Typed shared memory: exact look-up of a data URI among 2,000 data objects (each its own
// segment) under the read lock as a caller takes it, against Boost.Interprocess
// managed_shared_memory::find by name among 2,000 named objects; creating and unlinking a data
// object; attaching and detaching an existing one. The last two report the share of time spent in
// the kernel (getrusage system time over user + system time).
//
// The registry key and the Boost segment name are the benchmark's own; leftovers of an
// interrupted run are removed at start, and a signal handler removes every segment made if the
// run is interrupted.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/resource.h>
#include <sys/shm.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <set>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

#ifdef ZQ_HAVE_BOOST
#include <boost/interprocess/managed_shared_memory.hpp>
#endif

namespace {

const int kBenchKey = 0x5753424e;  // "WSBN"
const char kBoostName[] = "zq_wsm_bench";
const int kObjects = 2000;
const int kSpare = 1024;   // names for objects created and removed by the benchmark
const int kUriCap = 4096;  // data slots
const int kMaxIds = kObjects + 16;
const uint64_t kObjSize = 256;

// Segments to remove when a signal ends the run: written before each creation is visible.
volatile sig_atomic_t g_id_count = 0;
int g_ids[kMaxIds];
volatile sig_atomic_t g_transient = -1;  // a segment of the create/unlink benchmark
volatile sig_atomic_t g_registry = -1;

void remember(int id) {
  if (g_id_count < kMaxIds) {
    g_ids[g_id_count] = id;
    g_id_count = g_id_count + 1;
  }
}

void on_signal(int sig) {
  for (int i = 0; i < g_id_count; ++i) shmctl(g_ids[i], IPC_RMID, nullptr);
  if (g_transient >= 0) shmctl(g_transient, IPC_RMID, nullptr);
  if (g_registry >= 0) shmctl(g_registry, IPC_RMID, nullptr);
#ifdef ZQ_HAVE_BOOST
  char path[64] = "/dev/shm/";
  strncat(path, kBoostName, sizeof(path) - strlen(path) - 1);
  unlink(path);
#endif
  signal(sig, SIG_DFL);
  raise(sig);
}

// Names from one distribution: stored, looked up, absent and created ones alike.
std::string random_uri(std::mt19937* rng) {
  std::uniform_int_distribution<int> bid(1, 999), prog(0, 49), id(0, 99), func(0, 19);
  std::uniform_int_distribution<uint32_t> value;
  char buf[128];
  snprintf(buf, sizeof(buf), "wsm-data://%d/prog%d:%d/func%d/v%08x", bid(*rng), prog(*rng),
           id(*rng), func(*rng), value(*rng));
  return buf;
}

// Removes every object of the benchmark's registry and the registry itself.
void remove_registry() {
  WsmBase base;
  if (wsm_index_probe(kBenchKey, &base) == 0 && wsm_vix_base_set(&base) == 0) {
    WsmVixHandleP h = nullptr;
    if (wsm_vix_open(&h) == 0) {
      for (const char* all : {"wsm-data://", "wsm-meta://"}) {
        if (wsm_vix_query(h, all) <= 0) continue;
        WsmVixResultP res = wsm_vix_store_result(h);
        for (WsmVixRowP r = wsm_vix_fetch_row(res); r != nullptr; r = wsm_vix_fetch_row(res)) {
          if (wsm_vix_row_unlink(r, h) != 0) fprintf(stderr, "wsm_bench: unlink failed\n");
        }
      }
      if (wsm_vix_close(&h) != 0) fprintf(stderr, "wsm_bench: close failed\n");
    }
  }
  if (shmget(kBenchKey, 0, 0) >= 0 && wsm_index_remove(kBenchKey) != 0) {
    fprintf(stderr, "wsm_bench: registry 0x%x not removed\n", kBenchKey);
  }
  terror_clear(nullptr);
}

// Everything the benchmarks share, set up once.
struct World {
  bool ok = false;
  std::string why;
  WsmVixHandleP h = nullptr;
  WsmIndex* index = nullptr;  // a mount of the same registry for the registry-level look-up
  std::vector<std::string> stored, absent, spare;
  std::vector<WsmUri> stored_uri, absent_uri;
  std::vector<int> order;  // a random order over the stored (and absent) names
#ifdef ZQ_HAVE_BOOST
  boost::interprocess::managed_shared_memory* boost_seg = nullptr;
#endif

  World() {
    signal(SIGINT, on_signal);
    signal(SIGTERM, on_signal);
    signal(SIGHUP, on_signal);
    remove_registry();
    struct shminfo limits;
    struct shm_info used;
    const bool room = shmctl(0, IPC_INFO, reinterpret_cast<struct shmid_ds*>(&limits)) >= 0 &&
                      shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds*>(&used)) >= 0 &&
                      limits.shmmni >= used.used_ids + static_cast<unsigned long>(kObjects) + 64;
    if (!room) {
      why = "not enough System V segments left for 2000 objects";
      return;
    }
    std::mt19937 rng(20261123);
    std::set<std::string> seen;
    auto fresh = [&](std::vector<std::string>* out, int n) {
      while (static_cast<int>(out->size()) < n) {
        std::string u = random_uri(&rng);
        if (seen.insert(u).second) out->push_back(u);
      }
    };
    fresh(&stored, kObjects);
    fresh(&absent, kObjects);
    fresh(&spare, kSpare);
    for (auto* list : {&stored, &absent}) {
      for (const std::string& s : *list) {
        WsmUri u;
        if (wsm_uri_set(&u, s.c_str()) != 0) return;
        (list == &stored ? stored_uri : absent_uri).push_back(u);
      }
    }
    order.resize(kObjects);
    for (int i = 0; i < kObjects; ++i) order[i] = i;
    std::shuffle(order.begin(), order.end(), rng);
    WsmBase base;
    if (wsm_base_default(&base) != 0) return;
    base.iIndexKey = kBenchKey;
    base.iLibCap = 16;
    base.iUriCap = kUriCap;
    if (wsm_vix_base_set(&base) != 0 || wsm_vix_open(&h) != 0 || wsm_index_mount(&index) != 0) {
      why = "registry cannot be opened";
      return;
    }
    g_registry = shmget(kBenchKey, 0, 0);
    for (const std::string& s : stored) {
      WsmObjPtrP p = nullptr;
      if (wsm_vix_bind_data(h, s.c_str()) != 0 || wsm_vix_bind_size(h, kObjSize) != 0 ||
          (p = wsm_vix_ptr(h, WSM_VIX_CREAT | WSM_VIX_EXCL)) == nullptr) {
        why = "objects cannot be created";
        return;
      }
      remember(p->iShmId);
    }
#ifdef ZQ_HAVE_BOOST
    namespace bip = boost::interprocess;
    bip::shared_memory_object::remove(kBoostName);
    boost_seg = new bip::managed_shared_memory(bip::create_only, kBoostName, 4 << 20);
    for (const std::string& s : stored) boost_seg->construct<char>(s.c_str())[kObjSize]('\0');
#endif
    ok = true;
  }

  ~World() {
#ifdef ZQ_HAVE_BOOST
    delete boost_seg;
    boost::interprocess::shared_memory_object::remove(kBoostName);
#endif
    if (index != nullptr && wsm_index_unmount(&index) != 0) fprintf(stderr, "unmount failed\n");
    if (h != nullptr && wsm_vix_close(&h) != 0) fprintf(stderr, "close failed\n");
    remove_registry();
    g_id_count = 0;
    g_registry = -1;
  }
};

World& world() {
  static World w;
  return w;
}

bool ready(benchmark::State& state) {
  if (!world().ok) state.SkipWithError(world().why.empty() ? "set-up failed" : world().why.c_str());
  return world().ok;
}

// Kernel share of the CPU time spent in a loop, from getrusage around it.
struct CpuSplit {
  struct rusage before;
  CpuSplit() { getrusage(RUSAGE_SELF, &before); }
  static double secs(const struct timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  }
  void report(benchmark::State& state) const {
    struct rusage after;
    getrusage(RUSAGE_SELF, &after);
    const double user = secs(after.ru_utime) - secs(before.ru_utime);
    const double sys = secs(after.ru_stime) - secs(before.ru_stime);
    state.counters["sys_share"] = user + sys > 0 ? sys / (user + sys) : 0;
    state.counters["user_us"] = benchmark::Counter(user * 1e6, benchmark::Counter::kAvgIterations);
    state.counters["sys_us"] = benchmark::Counter(sys * 1e6, benchmark::Counter::kAvgIterations);
  }
};

// Registry-level exact look-up of a parsed URI, between wsm_vix_lock(read) and wsm_vix_unlock.
void BM_WsmLookup(benchmark::State& state) {
  if (!ready(state)) return;
  World& w = world();
  const std::vector<WsmUri>& uris = state.range(0) == 1 ? w.stored_uri : w.absent_uri;
  const int want = state.range(0) == 1 ? 1 : 0;
  size_t i = 0;
  for (auto _ : state) {
    const WsmUri& u = uris[w.order[i++ % w.order.size()]];
    int row = -1;
    if (wsm_vix_lock(w.h, 1) != 0) state.SkipWithError("lock");
    const int n = wsm_hash_get_0(w.index, &u, &row, 1);
    if (wsm_vix_unlock(w.h) != 0 || n != want) state.SkipWithError("look-up");
    benchmark::DoNotOptimize(row);
  }
}
BENCHMARK(BM_WsmLookup)->Arg(1)->Arg(0)->ArgName("present");

// The public path: URI text to a bound handle (parse, read lock, exact look-up, bind).
void BM_WsmBindData(benchmark::State& state) {
  if (!ready(state)) return;
  World& w = world();
  const std::vector<std::string>& names = state.range(0) == 1 ? w.stored : w.absent;
  const int64_t want = state.range(0) == 1 ? static_cast<int64_t>(kObjSize) : 0;
  size_t i = 0;
  for (auto _ : state) {
    const std::string& s = names[w.order[i++ % w.order.size()]];
    if (wsm_vix_bind_data(w.h, s.c_str()) != 0 || wsm_vix_bind_get_size(w.h) != want) {
      state.SkipWithError("bind");
    }
  }
}
BENCHMARK(BM_WsmBindData)->Arg(1)->Arg(0)->ArgName("present");

#ifdef ZQ_HAVE_BOOST
// The floor: managed_shared_memory::find by name (default index; it takes the segment's mutex).
void BM_BoostFind(benchmark::State& state) {
  if (!ready(state)) return;
  World& w = world();
  const std::vector<std::string>& names = state.range(0) == 1 ? w.stored : w.absent;
  const bool want = state.range(0) == 1;
  size_t i = 0;
  for (auto _ : state) {
    const std::string& s = names[w.order[i++ % w.order.size()]];
    auto found = w.boost_seg->find<char>(s.c_str());
    if ((found.first != nullptr) != want) state.SkipWithError("find");
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(BM_BoostFind)->Arg(1)->Arg(0)->ArgName("present");
#endif

// Creating a data object (bind, size, create-exclusive) and unlinking it (query, row, unlink).
void BM_WsmCreateUnlink(benchmark::State& state) {
  if (!ready(state)) return;
  World& w = world();
  size_t i = 0;
  CpuSplit cpu;
  for (auto _ : state) {
    const std::string& s = w.spare[i++ % w.spare.size()];
    WsmObjPtrP p = nullptr;
    if (wsm_vix_bind_data(w.h, s.c_str()) != 0 || wsm_vix_bind_size(w.h, kObjSize) != 0 ||
        (p = wsm_vix_ptr(w.h, WSM_VIX_CREAT | WSM_VIX_EXCL)) == nullptr) {
      state.SkipWithError("create");
      break;
    }
    g_transient = p->iShmId;
    if (wsm_vix_query(w.h, s.c_str()) != 1 || wsm_vix_row_unlink(wsm_vix_row_only(w.h), w.h) != 0) {
      state.SkipWithError("unlink");
      break;
    }
    g_transient = -1;
  }
  cpu.report(state);
}
BENCHMARK(BM_WsmCreateUnlink);

// Attaching an existing object and detaching it (both counts updated under the write lock).
void BM_WsmAttachDetach(benchmark::State& state) {
  if (!ready(state)) return;
  World& w = world();
  if (wsm_vix_bind_data(w.h, w.stored[w.order[0]].c_str()) != 0) {
    state.SkipWithError("bind");
    return;
  }
  WsmObjPtrP p = wsm_vix_ptr(w.h, 0);
  if (p == nullptr || p == WSM_VIX_PTR_ABSENT) {
    state.SkipWithError("ptr");
    return;
  }
  const WsmObjPtr ptr = *p;
  CpuSplit cpu;
  for (auto _ : state) {
    WsmObjPtr copy = ptr;
    void* payload = wsm_vix_at(&copy, 0);
    if (payload == nullptr || wsm_vix_dt(payload) != 0) {
      state.SkipWithError("at/dt");
      break;
    }
  }
  cpu.report(state);
}
BENCHMARK(BM_WsmAttachDetach);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
