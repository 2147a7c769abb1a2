// Stress of the typed shared memory: forked processes create, find, attach, detach and unlink
// data objects of one registry at once, each logging what it created and removed. Afterwards the
// registry must hold exactly the objects the logs leave alive, once each, with consistent slot
// counts, free lists, hash keys and reference counts, and no segment made by these processes may
// remain. Usage: wsm_stress [--seconds N] [--procs P]. Exit 0 when clean.
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/mman.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <map>
#include <set>
#include <string>
#include <vector>

#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

namespace {

const int kNames = 16;         // object names shared by all processes: few, so that they collide
const int kUriCap = 12;        // fewer slots than names: a full table happens too
const int kMaxRecs = 1 << 20;  // pages are touched only as they fill
const int kMaxProcs = 64;

struct Rec {
  char op;  // 'C' created, 'U' unlinked
  int name;
  int shmid;
};

// One per process, in memory shared with the parent.
struct Log {
  int count;
  int errors;
  int ops[4];  // create, attach, find, unlink attempts
  char first_error[160];
  Rec recs[kMaxRecs];
};

std::string uri_of(int name) { return "wsm-data://7/stress:1/obj/n" + std::to_string(name); }
uint64_t size_of(int name) { return 64 + 8 * static_cast<uint64_t>(name); }

void fail(Log* log, const char* what, int name, long value) {
  if (log->errors++ == 0) {
    snprintf(log->first_error, sizeof(log->first_error), "%s (name %d, %ld, frame %d: %d)", what,
             name, value, terror_count(nullptr),
             terror_top(nullptr) != nullptr ? terror_top(nullptr)->iErrNo : 0);
  }
}

int top_code() {
  const TErrorFrame* f = terror_top(nullptr);
  return f != nullptr ? f->iErrNo : 0;
}

void record(Log* log, char op, int name, int shmid) {
  if (log->count == kMaxRecs) return fail(log, "log full", name, shmid);
  log->recs[log->count++] = Rec{op, name, shmid};
}

void worker(Log* log, double seconds) {
  srand(static_cast<unsigned>(getpid()));
  WsmVixHandleP h = nullptr;
  if (wsm_vix_open(&h) != 0) return fail(log, "open", -1, 0);
  struct timespec start, now;
  clock_gettime(CLOCK_MONOTONIC, &start);
  for (;;) {
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (static_cast<double>(now.tv_sec - start.tv_sec) +
            static_cast<double>(now.tv_nsec - start.tv_nsec) / 1e9 >
        seconds) {
      break;
    }
    terror_clear(nullptr);
    const int name = rand() % kNames;
    const std::string uri = uri_of(name);
    const int op = rand() % 10 < 3 ? 0 : rand() % 3 + 1;
    ++log->ops[op];
    if (op == 0) {  // create-exclusive, then stamp the payload with the name
      if (wsm_vix_bind_data(h, uri.c_str()) != 0) {
        fail(log, "bind", name, 0);
        continue;
      }
      if (wsm_vix_bind_get_size(h) != 0) continue;  // it exists
      if (wsm_vix_bind_size(h, size_of(name)) != 0) fail(log, "size", name, 0);
      WsmObjPtrP p = wsm_vix_ptr(h, WSM_VIX_CREAT | WSM_VIX_EXCL);
      if (p == nullptr) {
        if (top_code() != 1 && top_code() != 5) fail(log, "create", name, top_code());
        continue;
      }
      record(log, 'C', name, p->iShmId);
      int* payload = static_cast<int*>(wsm_vix_at(p, 0));
      if (payload == nullptr) continue;  // unlinked by another process already
      *payload = name + 1;
      if (wsm_vix_dt(payload) != 0) fail(log, "dt after create", name, 0);
    } else if (op == 1) {  // find, attach, check the stamp, detach
      if (wsm_vix_bind_data(h, uri.c_str()) != 0) fail(log, "bind", name, 0);
      if (wsm_vix_bind_get_size(h) == 0) continue;
      WsmObjPtrP p = wsm_vix_ptr(h, 0);
      if (p == nullptr || p == WSM_VIX_PTR_ABSENT) continue;
      const int* payload = static_cast<const int*>(wsm_vix_at(p, rand() % 2 ? WSM_VIX_RDONLY : 0));
      if (payload == nullptr) {
        if (top_code() != 6 && top_code() != 7) fail(log, "at", name, top_code());
        continue;
      }
      if (*payload != 0 && *payload != name + 1) fail(log, "another object", name, *payload);
      if (wsm_vix_dt(const_cast<int*>(payload)) != 0) fail(log, "dt", name, 0);
    } else {
      const int n = wsm_vix_query(h, uri.c_str());
      if (n < 0 || n > 1) fail(log, "query count", name, n);
      if (op == 2 || n != 1) continue;
      WsmVixRowP row = wsm_vix_row_only(h);
      const int shmid = wsm_vix_row_data_ptr(row)->iShmId;
      const int ret = wsm_vix_row_unlink(row, h);
      if (ret == 0) {
        record(log, 'U', name, shmid);
      } else if (ret != -3) {
        fail(log, "unlink", name, ret);
      }
    }
  }
  if (wsm_vix_close(&h) != 0) fail(log, "close", -1, 0);
}

// Segments whose creator is one of pids.
std::vector<int> segments_of(const std::set<pid_t>& pids) {
  std::vector<int> out;
  struct shm_info info;
  const int max = shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds*>(&info));
  for (int i = 0; i <= max; ++i) {
    struct shmid_ds ds;
    const int id = shmctl(i, SHM_STAT, &ds);
    if (id >= 0 && pids.count(ds.shm_cpid) != 0) out.push_back(id);
  }
  return out;
}

int used_segments() {
  struct shm_info info;
  return shmctl(0, SHM_INFO, reinterpret_cast<struct shmid_ds*>(&info)) < 0
             ? -1
             : static_cast<int>(info.used_ids);
}

// Checks the registry against the live objects of the logs; returns the problems found.
int check_registry(WsmVixHandleP h, const std::map<int, int>& live) {
  int problems = 0;
  auto bad = [&problems](const std::string& what) {
    fprintf(stderr, "wsm_stress: %s\n", what.c_str());
    ++problems;
  };
  const int n = wsm_vix_query(h, "wsm-data://");
  if (n != static_cast<int>(live.size())) {
    bad("registry holds " + std::to_string(n) + " objects, logs leave " +
        std::to_string(live.size()));
  }
  std::set<std::string> names;
  WsmVixResultP res = wsm_vix_store_result(h);
  for (WsmVixRowP r = wsm_vix_fetch_row(res); r != nullptr; r = wsm_vix_fetch_row(res)) {
    const WsmObjPtr* p = wsm_vix_row_data_ptr(r);
    const std::string uri = wsm_vix_row_uri(r);
    auto it = live.find(p->iShmId);
    if (it == live.end() || uri_of(it->second) != uri) bad("unlogged object " + uri);
    if (!names.insert(uri).second) bad("doubled object " + uri);
    if (p->iRef != 0) bad("slot reference count " + std::to_string(p->iRef) + " of " + uri);
    const void* payload = wsm_vix_row_data(r);
    const WsmShmHead* head =
        reinterpret_cast<const WsmShmHead*>(static_cast<const char*>(payload) - WSM_HEAD_SIZE);
    if (payload == nullptr || head->stPtr.iRef != 1) bad("header reference count of " + uri);
  }
  // Slot table, free list and hash, read through a mount of our own.
  WsmIndex* index = nullptr;
  if (wsm_index_mount(&index) != 0) return problems + 1;
  OffsetArrayStat st;
  if (toffset_array_stat(index, WSM_INDEX_OFFSET_URI, &st) != 0 ||
      st.iCurCap != static_cast<int>(live.size()) || st.iUsed != st.iCurCap ||
      st.iFree != st.iMaxCap - st.iCurCap) {
    bad("data slot counts or lists disagree");
  }
  int linked = 0;
  const OffsetHash& hash = index->stHash;
  for (int node = 0; node < hash.iNodeCount; ++node) {
    const uint64_t off = hash.stNode.iBegin + TOFFSET_LIST_SIZE * static_cast<uint64_t>(node);
    const OffsetList* l = reinterpret_cast<const OffsetList*>(reinterpret_cast<char*>(index) + off);
    if (l->next != off) ++linked;
  }
  // Every data URI here sets all six key columns.
  if (linked != 6 * static_cast<int>(live.size())) {
    bad("hash holds " + std::to_string(linked) + " keys for " + std::to_string(live.size()));
  }
  for (const auto& obj : live) {
    WsmUri u;
    int row = -1;
    if (wsm_uri_set(&u, uri_of(obj.second).c_str()) != 0 ||
        wsm_hash_get_0(index, &u, &row, 1) != 1) {
      bad("exact look-up of " + uri_of(obj.second));
    }
  }
  if (wsm_index_unmount(&index) != 0) ++problems;
  return problems;
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = 3;
  int procs = 8;
  for (int i = 1; i + 1 < argc; i += 2) {
    if (strcmp(argv[i], "--seconds") == 0) seconds = atof(argv[i + 1]);
    if (strcmp(argv[i], "--procs") == 0) procs = atoi(argv[i + 1]);
  }
  if (seconds <= 0 || procs < 1 || procs > kMaxProcs) {
    fprintf(stderr, "usage: wsm_stress [--seconds N] [--procs 1..%d]\n", kMaxProcs);
    return 2;
  }
  WsmBase base;
  if (wsm_base_default(&base) != 0) return 2;
  base.iIndexKey = 0x5b000000 | ((getpid() & 0xfffff) << 4);
  base.iLibCap = 2;
  base.iUriCap = kUriCap;
  const int stale = shmget(base.iIndexKey, 0, 0);
  if (stale >= 0) shmctl(stale, IPC_RMID, nullptr);
  const int used_before = used_segments();
  WsmVixHandleP h = nullptr;
  if (wsm_vix_base_set(&base) != 0 || wsm_vix_open(&h) != 0) {
    terror_dump(nullptr, stderr);
    return 2;
  }
  const size_t bytes = sizeof(Log) * static_cast<size_t>(procs);
  void* shared = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (shared == MAP_FAILED) return 2;
  Log* logs = static_cast<Log*>(shared);
  std::set<pid_t> family = {getpid()};
  for (int p = 0; p < procs; ++p) {
    const pid_t pid = fork();
    if (pid == 0) {
      worker(&logs[p], seconds);
      _exit(logs[p].errors == 0 ? 0 : 1);
    }
    if (pid > 0) family.insert(pid);
  }
  int problems = 0;
  for (size_t i = 1; i < family.size(); ++i) {
    int status = 0;
    if (wait(&status) < 0 || !WIFEXITED(status)) ++problems;
  }
  // Replay the logs: every object created once, removed at most once and only after creation.
  std::map<int, int> live;  // shmid -> name
  std::map<int, int> removed;
  int creates = 0, unlinks = 0, ops[4] = {0, 0, 0, 0};
  for (int p = 0; p < procs; ++p) {
    const Log& log = logs[p];
    for (int k = 0; k < 4; ++k) ops[k] += log.ops[k];
    if (log.errors != 0) {
      fprintf(stderr, "wsm_stress: process %d: %d errors, first: %s\n", p, log.errors,
              log.first_error);
      problems += log.errors;
    }
    for (int i = 0; i < log.count; ++i) {
      const Rec& r = log.recs[i];
      if (r.op == 'C') {
        ++creates;
        if (!live.emplace(r.shmid, r.name).second) ++problems;
      } else {
        ++unlinks;
        if (!removed.emplace(r.shmid, r.name).second) ++problems;  // removed twice
      }
    }
  }
  for (const auto& r : removed) {
    auto it = live.find(r.first);
    if (it == live.end() || it->second != r.second) {
      fprintf(stderr, "wsm_stress: removed object %d was never created\n", r.first);
      ++problems;
    } else {
      live.erase(it);
    }
  }
  problems += check_registry(h, live);
  // Clean up and look for leftovers.
  const int left = wsm_vix_query(h, "wsm-data://");
  for (int i = 0; i < left; ++i) {
    if (wsm_vix_query(h, "wsm-data://") < 1 || wsm_vix_row_unlink(wsm_vix_row_first(h), h) != 0) {
      ++problems;
      break;
    }
  }
  if (wsm_vix_close(&h) != 0 || wsm_index_remove(base.iIndexKey) != 0) ++problems;
  munmap(shared, bytes);
  const std::vector<int> leaked = segments_of(family);
  for (int id : leaked) {
    fprintf(stderr, "wsm_stress: segment %d left behind; removing it\n", id);
    shmctl(id, IPC_RMID, nullptr);
    ++problems;
  }
  printf(
      "wsm_stress: %d processes, %.0f s: %d creates, %d attaches, %d finds, %d unlink tries; "
      "%d created, %d unlinked, %d alive at the end; segments in use before %d, after %d; %s\n",
      procs, seconds, ops[0], ops[1], ops[2], ops[3], creates, unlinks, left, used_before,
      used_segments(), problems == 0 ? "clean" : "PROBLEMS");
  return problems == 0 ? 0 : 1;
}
