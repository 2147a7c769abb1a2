// The registry segment: tuning and node numbers, mounting (created, found by another process,
// refused), its bytes at their offsets, object segments and slots.
#include <stdint.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "wmng/wsm.h"
#include "wmng_test_util.h"

namespace {

using namespace wmng_test;

template <typename T>
T read_at(const void* seg, size_t off) {
  T v;
  memcpy(&v, static_cast<const char*>(seg) + off, sizeof(T));
  return v;
}

template <typename T>
void write_at(void* seg, size_t off, T v) {
  memcpy(static_cast<char*>(seg) + off, &v, sizeof(T));
}

TEST(WsmBase, DefaultsAndNodeNumbers) {
  WsmBase d{};
  ASSERT_EQ(wsm_base_default(&d), 0);
  EXPECT_EQ(d.iIndexKey, 0x18790314);
  EXPECT_EQ(d.iHashCap, 3000 * 8 + 10000 * 8);
  EXPECT_EQ(toffset_hash_buckets(d.iHashCap), 196613u);
  if (sysconf(_SC_PAGESIZE) == 4096) {
    EXPECT_EQ(d.iOffsetLib, 4096u);
    EXPECT_EQ(d.iOffsetUri, 4096u + 3000 * 512);            // 1536000 is page-aligned
    EXPECT_EQ(d.iOffsetHash, d.iOffsetUri + 2481 * 4096u);  // 10000 x 1016 rounded up
    EXPECT_EQ(d.iIndexSize, d.iOffsetHash + 1175 * 4096u);  // (196613 + 104000) x 16
  }
  ASSERT_EQ(wsm_base_set(&d), 0);
  EXPECT_EQ(wsm_index_size(), d.iIndexSize);
  struct Case {
    WsmBaseVar in, out;
    int code;
  } cases[] = {
      {{0, 0, 0, 23999}, {1, 2999, 7, 23999}, 0},
      {{0, 0, 0, 24000}, {2, 0, 0, 24000}, 0},
      {{0, 0, 0, 103999}, {2, 9999, 7, 103999}, 0},
      {{1, 2999, 7, -1}, {1, 2999, 7, 23999}, 0},
      {{2, 1, 3, -1}, {2, 1, 3, 24011}, 0},
      {{0, 0, 0, 104000}, {}, -2},
      {{0, 0, 0, -2}, {}, -2},
      {{1, 3000, 0, -1}, {}, -2},
      {{2, 0, 8, -1}, {}, -2},
      {{3, 0, 0, -1}, {}, -2},
  };
  for (const Case& c : cases) {
    WsmBaseVar v = c.in;
    EXPECT_EQ(wsm_base_index(&v), c.code) << c.in.iIndex;
    if (c.code == 0) {
      EXPECT_EQ(memcmp(&v, &c.out, sizeof(v)), 0)
          << v.iType << " " << v.iRow << " " << v.iCol << " " << v.iIndex;
    }
  }
  // Settings that cannot make a registry.
  for (auto change : std::initializer_list<std::function<void(WsmBase*)>>{
           [](WsmBase* b) { b->iIndexKey = 0; }, [](WsmBase* b) { b->iLibCap = 0; },
           [](WsmBase* b) { b->iLibHash = 4; }, [](WsmBase* b) { b->iUriHash = 5; },
           [](WsmBase* b) { b->iUriCap = 0x7fffffff; }}) {
    WsmBase b = d;
    change(&b);
    EXPECT_EQ(wsm_base_set(&b), -2);
  }
  EXPECT_EQ(wsm_get_base()->iIndexSize, d.iIndexSize);  // unchanged by the refusals
}

TEST(WsmIndex, MountCreatesAndAnotherProcessFindsIt) {
  RegistryGuard guard(4, 6);
  const WsmBase tuning = *wsm_get_base();
  int created = -1;
  int id = wsm_index_shmid(&created);
  ASSERT_GE(id, 0);
  EXPECT_EQ(created, 1);
  ASSERT_EQ(shmctl(id, IPC_RMID, nullptr), 0);  // wsm_index_mount makes its own
  WsmIndex* index = nullptr;
  ASSERT_EQ(wsm_index_mount(&index), 0);
  id = wsm_index_shmid(&created);
  EXPECT_EQ(created, 0);
  struct shmid_ds ds;
  ASSERT_EQ(shmctl(id, IPC_STAT, &ds), 0);
  EXPECT_EQ(ds.shm_segsz, tuning.iIndexSize);
  EXPECT_EQ(ds.shm_perm.mode & 0777, 0660u);
  // The header's bytes at their offsets.
  const void* seg = index;
  EXPECT_EQ(read_at<int32_t>(seg, 0), 0x18790314);
  EXPECT_EQ(read_at<int32_t>(seg, 64), 0x1879029d);  // 14 03 79 18 ^ 01 00 00 00 ^ 88 01 00 ..
  EXPECT_EQ(read_at<int32_t>(seg, 68), 1);
  EXPECT_EQ(read_at<uint64_t>(seg, 72), 392u);
  EXPECT_EQ(read_at<uint64_t>(seg, 80), tuning.iOffsetLib);  // stLib.iBegin
  EXPECT_EQ(read_at<int32_t>(seg, 80 + 16), 8);              // keys per meta slot
  EXPECT_EQ(read_at<uint64_t>(seg, 80 + 24), 496u);          // element size
  EXPECT_EQ(read_at<int32_t>(seg, 80 + 32), 4);              // meta slots
  EXPECT_EQ(read_at<uint64_t>(seg, 152), tuning.iOffsetUri);
  EXPECT_EQ(read_at<uint64_t>(seg, 152 + 24), 1000u);
  EXPECT_EQ(read_at<int32_t>(seg, 152 + 32), 6);
  EXPECT_EQ(read_at<uint64_t>(seg, 224), tuning.iOffsetHash);
  EXPECT_EQ(read_at<int32_t>(seg, 224 + 16), 4 * 8 + 6 * 8);  // hash nodes
  EXPECT_EQ(read_at<int32_t>(seg, 224 + 20), 193);            // 80 x 10 / 7 = 114
  // Another process with other capacities mounts it, takes the registry's, and sees the
  // write lock held here.
  ASSERT_EQ(wsm_index_lock(index, 0), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    WsmBase mine = tuning;
    mine.iLibCap = 1;
    mine.iUriCap = 1;
    WsmIndex* other = nullptr;
    int status = wsm_base_set(&mine) != 0 ? 10 : wsm_index_mount(&other) != 0 ? 11 : 0;
    if (status == 0 && (wsm_get_base()->iLibCap != 4 || wsm_get_base()->iUriCap != 6)) status = 12;
    if (status == 0 && wsm_index_trylock(other, 1) != 1) status = 13;
    if (status == 0 && wsm_index_unmount(&other) != 0) status = 14;
    _exit(status);
  }
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(wsm_index_unlock(index), 0);
  EXPECT_EQ(wsm_index_trylock(index, 1), 0);
  EXPECT_EQ(wsm_index_unlock(index), 0);
  EXPECT_EQ(wsm_index_unmount(&index), 0);
  EXPECT_EQ(index, nullptr);
}

TEST(WsmIndex, MountRefusesForeignRegistries) {
  RegistryGuard guard(4, 6);
  const int key = guard.key();
  const uint64_t size = wsm_index_size();
  // A registry too short for the tuning.
  int id = shmget(key, 100, IPC_CREAT | IPC_EXCL | 0600);
  ASSERT_GE(id, 0);
  WsmIndex* index = nullptr;
  terror_clear(nullptr);
  EXPECT_EQ(wsm_index_mount(&index), -4);
  EXPECT_EQ(top_message(), "size(100) in shmid(" + std::to_string(id) +
                               ") less than wsm index size(" + std::to_string(size) + ")");
  WsmBase probed;
  EXPECT_EQ(wsm_index_probe(key, &probed), -4);
  WsmVixHandleP h = nullptr;
  EXPECT_EQ(wsm_vix_open(&h), -4);
  ASSERT_EQ(wsm_index_remove(key), 0);
  EXPECT_EQ(wsm_index_remove(key), -1);
  EXPECT_EQ(wsm_index_probe(key, &probed), -2);
  // A proper registry, damaged one field at a time.
  struct Case {
    size_t offset;
    int32_t value;
    int code;  // of the mount; the typed handle's open fails with -4 over it
    const char* message;
    int probe;
  } cases[] = {
      {0, 0x12345678, -10, kMsgMagic, -5},
      {68, 2, -11, kMsgVersion, -6},
      {72, 400, -12, kMsgSelfSize, -7},
      {80 + 32, 5, -13, kMsgTuningMismatch, -8},    // more meta slots than the layout holds
      {224 + 16, 81, -13, kMsgTuningMismatch, -8},  // hash nodes
  };
  ASSERT_EQ(wsm_index_mount(&index), 0);
  ASSERT_EQ(wsm_index_unmount(&index), 0);
  id = shmget(key, 0, 0);
  void* seg = shmat(id, nullptr, 0);
  ASSERT_NE(seg, reinterpret_cast<void*>(-1));
  for (const Case& c : cases) {
    const int32_t saved = read_at<int32_t>(seg, c.offset);
    write_at(seg, c.offset, c.value);
    terror_clear(nullptr);
    EXPECT_EQ(wsm_index_mount(&index), c.code) << c.offset;
    EXPECT_EQ(top_message(), c.message) << c.offset;
    EXPECT_EQ(wsm_index_probe(key, &probed), c.probe) << c.offset;
    terror_clear(nullptr);
    EXPECT_EQ(wsm_vix_open(&h), -4) << c.offset;
    EXPECT_EQ(h, nullptr);
    // The mount's frame lies at the bottom (under a mismatch, the tuning check's own).
    EXPECT_EQ(terror_rbegin(nullptr)->iErrNo, c.code == -13 ? 2 : -c.code) << c.offset;
    EXPECT_EQ(shmget(key, 0, 0), id);  // a registry found is never removed
    write_at(seg, c.offset, saved);
  }
  ASSERT_EQ(wsm_index_probe(key, &probed), 0);
  EXPECT_EQ(probed.iUriCap, 6);
  EXPECT_EQ(probed.iIndexSize, size);
  EXPECT_EQ(wsm_index_mount(&index), 0);
  EXPECT_EQ(wsm_index_unmount(&index), 0);
  shmdt(seg);
}

TEST(WsmHead, ObjectSegments) {
  RegistryGuard guard;
  WsmVixMetaInfo meta{};
  meta.iBid = 10;
  strcpy(meta.szLib, "mylib");
  WsmVixDataInfo data{};
  strcpy(data.szValueName, "ring");
  const char lib[] = "metadata library bytes";
  WsmObjPtr ptr{};
  EXPECT_EQ(wsm_head_init(nullptr, 1, &meta, nullptr, lib, sizeof(lib)), -1);
  EXPECT_EQ(wsm_head_init(&ptr, 1, &meta, nullptr, lib, 0), -3);
  EXPECT_EQ(wsm_head_init(&ptr, 1, nullptr, &data, lib, sizeof(lib)), -4);
  EXPECT_EQ(wsm_head_init(&ptr, 2, &meta, nullptr, nullptr, 64), -4);
  EXPECT_EQ(wsm_head_init(&ptr, 3, &meta, &data, nullptr, 64), -4);
  EXPECT_EQ(wsm_head_init(&ptr, 1, &meta, nullptr, nullptr, UINT64_MAX), -2);
  ASSERT_EQ(wsm_head_init(&ptr, 1, &meta, nullptr, lib, sizeof(lib)), 0);
  guard.track(ptr.iShmId);
  EXPECT_EQ(ptr.iIndexKey, guard.key());
  EXPECT_EQ(ptr.iOffset, 1008u);
  EXPECT_EQ(ptr.iSize, sizeof(lib));
  WsmShmHead* head = nullptr;
  ASSERT_EQ(wsm_head_at(&ptr, &head), 0);
  const void* seg = head;
  EXPECT_EQ(read_at<int32_t>(seg, 4), guard.key());
  EXPECT_EQ(read_at<int32_t>(seg, 8), ptr.iShmId);
  EXPECT_EQ(read_at<uint64_t>(seg, 16), 1008u);
  EXPECT_EQ(read_at<uint64_t>(seg, 24), sizeof(lib));
  EXPECT_GT(read_at<int64_t>(seg, 32), 0);
  EXPECT_EQ(read_at<int32_t>(seg, 40), 10);
  EXPECT_STREQ(static_cast<const char*>(seg) + 40 + 16, "mylib");
  EXPECT_EQ(read_at<int32_t>(seg, 1000), 1);
  EXPECT_EQ(read_at<int32_t>(seg, 1004), 0x18790314);
  EXPECT_EQ(memcmp(static_cast<const char*>(seg) + 1008, lib, sizeof(lib)), 0);
  EXPECT_EQ(wsm_head_dt_ex(reinterpret_cast<char*>(head) + 1008), 0);
  EXPECT_EQ(wsm_head_dt_ex(reinterpret_cast<char*>(head) + 1008), -2);  // no longer attached
  // A data object without a source is zero-filled and carries its description.
  WsmObjPtr dptr{};
  ASSERT_EQ(wsm_head_init(&dptr, 2, nullptr, &data, nullptr, 4096), 0);
  guard.track(dptr.iShmId);
  ASSERT_EQ(wsm_head_at(&dptr, &head), 0);
  EXPECT_EQ(read_at<int32_t>(head, 1000), 2);
  EXPECT_STREQ(reinterpret_cast<const char*>(head) + 496 + 112, "ring");
  const std::string zeros(4096, '\0');
  EXPECT_EQ(memcmp(reinterpret_cast<const char*>(head) + 1008, zeros.data(), 4096), 0);
  EXPECT_EQ(wsm_head_dt(head), 0);
  // Attaching refuses the wrong size and a segment that is not an object.
  WsmObjPtr wrong = dptr;
  wrong.iSize = 8192;
  EXPECT_EQ(wsm_head_at(&wrong, &head), -3);
  wrong.iSize = 16;
  EXPECT_EQ(wsm_head_at(&wrong, &head), -6);
  const int raw = shmget(IPC_PRIVATE, 2048, IPC_CREAT | 0600);
  ASSERT_GE(raw, 0);
  guard.track(raw);
  wrong.iShmId = raw;
  EXPECT_EQ(wsm_head_at(&wrong, &head), -5);
  EXPECT_EQ(wsm_head_destroy(&wrong), -2);
  // Destroying removes the segment.
  EXPECT_EQ(wsm_head_destroy(&ptr), 0);
  struct shmid_ds ds;
  EXPECT_NE(shmctl(ptr.iShmId, IPC_STAT, &ds), 0);
  EXPECT_EQ(wsm_head_destroy(&ptr), -2);
  EXPECT_EQ(wsm_head_destroy(&dptr), 0);
}

TEST(WsmHead, Slots) {
  RegistryGuard guard(3, 2);
  WsmIndex* index = nullptr;
  ASSERT_EQ(wsm_index_mount(&index), 0);
  int rows[3];
  for (int& r : rows) ASSERT_EQ(wsm_head_obj_alloc(index, 1, &r), 0);
  EXPECT_EQ(rows[0], 0);
  EXPECT_EQ(rows[2], 2);
  int row = -1;
  terror_clear(nullptr);
  EXPECT_EQ(wsm_head_obj_alloc(index, 1, &row), -3);
  EXPECT_EQ(top_message(), kMsgNoSlot);
  EXPECT_EQ(wsm_head_obj_alloc(index, 3, &row), -2);
  EXPECT_GT(wsm_head_meta(index, 2)->stTime.iSec, 0);
  EXPECT_EQ(wsm_head_meta(index, 3), nullptr);
  EXPECT_EQ(wsm_head_data(index, -1), nullptr);
  EXPECT_EQ(reinterpret_cast<char*>(wsm_head_data(index, 1)) - reinterpret_cast<char*>(index),
            static_cast<ptrdiff_t>(wsm_get_base()->iOffsetUri + 1016 + 16));
  EXPECT_EQ(wsm_head_obj_free(index, 1, 1), 0);
  EXPECT_EQ(wsm_head_obj_free(index, 1, 1), -4);
  EXPECT_EQ(wsm_head_obj_free(index, 1, 3), -3);
  std::string walk;
  for (int r = wsm_head_obj_next(index, 1, -1); r >= 0; r = wsm_head_obj_next(index, 1, r)) {
    walk += std::to_string(r);
  }
  EXPECT_EQ(walk, "02");
  EXPECT_EQ(wsm_head_obj_alloc(index, 1, &row), 0);
  EXPECT_EQ(row, 1);
  EXPECT_EQ(wsm_head_obj_next(index, 2, -1), -1);
  EXPECT_EQ(wsm_index_unmount(&index), 0);
}

}  // namespace
