// Typed shared memory through its public functions: handles and binding, creating and finding
// data objects, attaching from two processes, metadata libraries, queries and rows, removal,
// the lock, and refusals of bad input.
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/shm.h>
#include <sys/wait.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "wmng/wsm_vix.h"
#include "wmng_test_util.h"
#include "zq_test/support.h"

namespace {

using namespace wmng_test;

const char kRing[] = "wsm-data://10/prog:1/log/ring";

// The newest frame's code (0 when the stack is empty).
int top_code() {
  const TErrorFrame* f = terror_top(nullptr);
  return f != nullptr ? f->iErrNo : 0;
}

class WsmVix : public ::testing::Test {
 protected:
  // Binds h to uri and size and creates the object with flags; the object pointer or null.
  static WsmObjPtrP make(WsmVixHandleP h, const char* uri, uint64_t size, int flags = 0xC0) {
    if (wsm_vix_bind_data(h, uri) != 0 || wsm_vix_bind_size(h, size) != 0) return nullptr;
    return wsm_vix_ptr(h, flags);
  }
  // The header of an attached payload.
  static const WsmShmHead* head_of(void* payload) {
    return reinterpret_cast<const WsmShmHead*>(static_cast<char*>(payload) - WSM_HEAD_SIZE);
  }
  // The slot's reference count of uri, read through a query.
  int slot_ref(const char* uri) {
    if (wsm_vix_query(h_, uri) != 1) return -100;
    return wsm_vix_row_data_ptr(wsm_vix_row_only(h_))->iRef;
  }

  RegistryGuard guard_{4, 3};
  Handle h_;
};

TEST_F(WsmVix, HandleLifecycle) {
  WsmVixHandleP same = h_.get();
  EXPECT_EQ(wsm_vix_open(&same), 0);  // a valid handle is left as it is
  EXPECT_EQ(same, h_.get());
  EXPECT_EQ(wsm_vix_status(h_), 0);
  alignas(8) unsigned char junk[sizeof(void*) * 8] = {};
  WsmVixHandleP bad = reinterpret_cast<WsmVixHandleP>(junk);
  EXPECT_EQ(wsm_vix_open(&bad), 1);
  terror_clear(nullptr);
  EXPECT_EQ(wsm_vix_status(bad), -2);
  EXPECT_EQ(wsm_vix_close(&bad), -2);
  EXPECT_EQ(wsm_vix_bind_data(bad, kRing), -2);
  EXPECT_EQ(wsm_vix_ptr(bad, 0), nullptr);
  EXPECT_EQ(wsm_vix_open(nullptr), -1);
  EXPECT_EQ(wsm_vix_close(nullptr), -1);
  EXPECT_EQ(wsm_vix_status(nullptr), -1);
  WsmBase base = *wsm_get_base();
  EXPECT_EQ(wsm_vix_base_set(&base), -3);  // not while a handle is open
  WsmVixHandleP second = nullptr;
  ASSERT_EQ(wsm_vix_open(&second), 0);
  EXPECT_EQ(wsm_vix_close(&second), 0);
  EXPECT_EQ(second, nullptr);
}

TEST_F(WsmVix, BindSequences) {
  {
    Handle maker;
    ASSERT_NE(make(maker, "wsm-data://10/prog:1/log/old", 64), nullptr);
  }
  // Each step on the same handle, in order: the result and what the handle then reports.
  struct Step {
    const char* op;  // "data", "size", "meta"
    const char* arg;
    uint64_t size;
    int ret;
    const char* data;  // bound data URI afterwards ("" for none)
    int64_t bound;     // bound size afterwards
  } steps[] = {
      {"size", nullptr, 64, -4, "", 0},  // no data URI yet
      {"data", "wsm-meta://1/l:1:1/", 0, -4, "", 0},
      {"data", "no scheme", 0, -3, "", 0},
      {"data", "WSM-DATA://10/prog:1/log/new", 0, 0, "wsm-data://10/prog:1/log/new", 0},
      {"size", nullptr, 0, -3, "wsm-data://10/prog:1/log/new", 0},
      {"size", nullptr, 128, 0, "wsm-data://10/prog:1/log/new", 128},
      {"size", nullptr, 128, 0, "wsm-data://10/prog:1/log/new", 128},
      {"size", nullptr, 256, -6, "wsm-data://10/prog:1/log/new", 128},
      // An existing object brings its size; another size is refused.
      {"data", "wsm-data://10/prog:1/log/old", 0, 0, "wsm-data://10/prog:1/log/old", 64},
      {"size", nullptr, 64, 0, "wsm-data://10/prog:1/log/old", 64},
      {"size", nullptr, 65, -6, "wsm-data://10/prog:1/log/old", 64},
      {"meta", "wsm-meta://1/l:1:1/", 0, -7, "wsm-data://10/prog:1/log/old", 64},
  };
  for (const Step& s : steps) {
    const std::string op = s.op;
    const int ret = op == "data"   ? wsm_vix_bind_data(h_, s.arg)
                    : op == "size" ? wsm_vix_bind_size(h_, s.size)
                                   : wsm_vix_bind_meta(h_, s.arg);
    EXPECT_EQ(ret, s.ret) << op << " " << (s.arg ? s.arg : "") << s.size;
    const char* data = wsm_vix_bind_get_data(h_);
    EXPECT_STREQ(data ? data : "", s.data) << op;
    EXPECT_EQ(wsm_vix_bind_get_size(h_), s.bound) << op;
  }
  EXPECT_EQ(wsm_vix_bind_get_meta(h_), nullptr);
}

TEST_F(WsmVix, PtrCreatesFindsAndRefuses) {
  terror_clear(nullptr);
  ASSERT_EQ(wsm_vix_bind_data(h_, kRing), 0);
  EXPECT_EQ(wsm_vix_ptr(h_, 0), nullptr);  // no size bound
  EXPECT_EQ(top_code(), 1);
  ASSERT_EQ(wsm_vix_bind_size(h_, 4096), 0);
  terror_clear(nullptr);
  EXPECT_EQ(wsm_vix_ptr(h_, 0x800), WSM_VIX_PTR_ABSENT);
  EXPECT_EQ(terror_count(nullptr), 0);
  WsmObjPtrP made = wsm_vix_ptr(h_, 0xC0);
  ASSERT_NE(made, nullptr);
  EXPECT_EQ(made->iSize, 4096u);
  EXPECT_EQ(made->iOffset, 1008u);
  EXPECT_EQ(made->iIndexKey, guard_.key());
  const int shmid = made->iShmId;
  // A second create-exclusive fails; plain and create-only calls find the same object.
  Handle other;
  EXPECT_EQ(make(other, kRing, 4096, 0xC0), nullptr);
  EXPECT_EQ(top_message(), "found matched uri, but flag O_CREAT|O_EXCL");
  EXPECT_EQ(top_code(), 1);
  for (int flags : {0, 0x40, 0x800}) {
    WsmObjPtrP found = wsm_vix_ptr(other, flags);
    ASSERT_NE(found, nullptr) << flags;
    EXPECT_EQ(found->iShmId, shmid) << flags;
  }
  // A handle bound before the object was made with another size finds it but refuses it.
  Handle late;
  ASSERT_EQ(wsm_vix_bind_data(late, "wsm-data://10/prog:1/log/late"), 0);
  ASSERT_EQ(wsm_vix_bind_size(late, 100), 0);
  ASSERT_NE(make(other, "wsm-data://10/prog:1/log/late", 200), nullptr);
  EXPECT_EQ(wsm_vix_ptr(late, 0), nullptr);
  EXPECT_EQ(top_code(), 3);
  // The data table holds 3 objects.
  ASSERT_NE(make(other, "wsm-data://10/prog:1/log/third", 8), nullptr);
  EXPECT_EQ(make(other, "wsm-data://10/prog:1/log/fourth", 8), nullptr);
  EXPECT_EQ(top_code(), 5);
  EXPECT_EQ(wsm_vix_query(h_, "wsm-data://"), 3);
}

TEST_F(WsmVix, ReferenceCountsFromTwoProcesses) {
  WsmObjPtrP ptr = make(h_, kRing, 256);
  ASSERT_NE(ptr, nullptr);
  char* payload = static_cast<char*>(wsm_vix_at(ptr, 0));
  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(head_of(payload)->stPtr.iRef, 1);
  EXPECT_EQ(slot_ref(kRing), 1);
  strcpy(payload, "from parent");
  int to_child[2], to_parent[2];
  ASSERT_EQ(pipe(to_child), 0);
  ASSERT_EQ(pipe(to_parent), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    // A process of its own: a fresh handle, attach read-only, report, wait, detach.
    WsmVixHandleP h = nullptr;
    char buf = 0;
    int st = wsm_vix_open(&h) == 0 && wsm_vix_bind_data(h, kRing) == 0 ? 0 : 10;
    WsmObjPtrP p = st == 0 ? wsm_vix_ptr(h, 0) : nullptr;
    char* mine = p != nullptr ? static_cast<char*>(wsm_vix_at(p, WSM_VIX_RDONLY)) : nullptr;
    if (mine == nullptr || strcmp(mine, "from parent") != 0) st = 11;
    if (write(to_parent[1], "a", 1) != 1 || read(to_child[0], &buf, 1) != 1) st = 12;
    if (mine != nullptr && wsm_vix_dt(mine) != 0) st = 13;
    if (write(to_parent[1], "d", 1) != 1 || wsm_vix_close(&h) != 0) st = 14;
    _exit(st);
  }
  char buf = 0;
  ASSERT_EQ(read(to_parent[0], &buf, 1), 1);
  EXPECT_EQ(head_of(payload)->stPtr.iRef, 2);
  EXPECT_EQ(slot_ref(kRing), 2);
  ASSERT_EQ(write(to_child[1], "x", 1), 1);
  ASSERT_EQ(read(to_parent[0], &buf, 1), 1);
  EXPECT_EQ(head_of(payload)->stPtr.iRef, 1);
  EXPECT_EQ(slot_ref(kRing), 1);
  int status = -1;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_EQ(wsm_vix_dt(payload), 0);
  EXPECT_EQ(slot_ref(kRing), 0);
  EXPECT_EQ(wsm_vix_dt(payload), -3);                // not attached any more
  payload = static_cast<char*>(wsm_vix_at(ptr, 0));  // every detach gave its reference back
  ASSERT_NE(payload, nullptr);
  EXPECT_EQ(head_of(payload)->stPtr.iRef, 1);
  EXPECT_EQ(wsm_vix_dt(payload), 0);
  for (int fd : {to_child[0], to_child[1], to_parent[0], to_parent[1]}) close(fd);
  // A read-only payload cannot be written.
  const pid_t writer = fork();
  ASSERT_GE(writer, 0);
  if (writer == 0) {
    char* ro = static_cast<char*>(wsm_vix_at(ptr, WSM_VIX_RDONLY));
    if (ro == nullptr) _exit(1);
    signal(SIGSEGV, SIG_DFL);  // a sanitizer's handler would turn the fault into an abort
    ro[0] = 'x';
    _exit(2);
  }
  ASSERT_EQ(waitpid(writer, &status, 0), writer);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGSEGV) << status;
}

TEST_F(WsmVix, AttachRefusals) {
  WsmObjPtrP ptr = make(h_, kRing, 64);
  ASSERT_NE(ptr, nullptr);
  WsmObjPtr foreign = *ptr;
  foreign.iIndexKey = 0x1234;
  terror_clear(nullptr);
  EXPECT_EQ(wsm_vix_at(&foreign, 0), nullptr);
  EXPECT_EQ(top_code(), 4);
  EXPECT_NE(top_message().find("key(4660)"), std::string::npos) << top_message();
  EXPECT_NE(top_message().find(std::to_string(guard_.key())), std::string::npos);
  WsmObjPtr other = *ptr;
  other.iSize = 32;  // the segment's header names another size
  EXPECT_EQ(wsm_vix_at(&other, 0), nullptr);
  EXPECT_EQ(top_code(), 6);
  EXPECT_EQ(wsm_vix_at(WSM_VIX_PTR_ABSENT, 0), nullptr);
  EXPECT_EQ(top_code(), 3);
  char not_payload[16];
  EXPECT_EQ(wsm_vix_dt(not_payload), -3);
  // An object unlinked while attached: attaching again fails, detaching just detaches.
  void* payload = wsm_vix_at(ptr, 0);
  ASSERT_NE(payload, nullptr);
  WsmObjPtr copy = *ptr;
  ASSERT_EQ(wsm_vix_query(h_, kRing), 1);
  ASSERT_EQ(wsm_vix_row_unlink(wsm_vix_row_only(h_), h_), 0);
  EXPECT_EQ(wsm_vix_at(&copy, 0), nullptr);
  EXPECT_EQ(wsm_vix_dt_ex(payload, h_), 0);
}

TEST_F(WsmVix, LoadMetaCreatesComparesAndReplaces) {
  Lib v1 = make_lib("mylib", 3);
  Lib changed = make_lib("mylib", 3, true);
  Lib other = make_lib("otherlib", 1);
  const char* uri = "wsm-meta://0/mylib:3:11/";
  struct Step {
    const VIXMETALIB* lib;
    int replace, ret;
    uint64_t stored;  // size of the stored copy afterwards
  } steps[] = {
      {v1.get(), 0, 0, v1->iSize},           {v1.get(), 1, 0, v1->iSize},
      {changed.get(), 0, 2, v1->iSize},      {changed.get(), 1, 1, changed->iSize},
      {changed.get(), 0, 0, changed->iSize},
  };
  for (const Step& s : steps) {
    EXPECT_EQ(wsm_vix_load_meta(h_, s.lib, s.replace), s.ret);
    ASSERT_EQ(wsm_vix_query(h_, uri), 1);
    EXPECT_EQ(wsm_vix_row_size(wsm_vix_row_only(h_)), static_cast<int64_t>(s.stored));
  }
  EXPECT_EQ(wsm_vix_load_meta_ex(h_, other.get(), 7, 0), 0);
  ASSERT_EQ(wsm_vix_query(h_, "wsm-meta://7/otherlib"), 1);
  EXPECT_STREQ(wsm_vix_row_uri(wsm_vix_row_only(h_)), "wsm-meta://7/otherlib:1:11/:*/");
  EXPECT_EQ(wsm_vix_query(h_, "wsm-meta://"), 2);
  // Refusals: not a library, a name that makes no URI, an unreadable file.
  VIXMETALIB junk = *v1;
  junk.wMagic = 1;
  EXPECT_EQ(wsm_vix_load_meta(h_, &junk, 0), -3);
  Lib long_name = make_lib("a_library_name_longer_than_31_chars", 1);
  EXPECT_EQ(wsm_vix_load_meta(h_, long_name.get(), 0), -4);
  EXPECT_EQ(wsm_vix_load_meta_file(h_, "/nonexistent/lib.bin", 0), -3);
  // From a file, replacing.
  zq_test::TempDir dir("wsm_vix_test");
  const std::string path = dir.file("lib.bin");
  ASSERT_EQ(vix_save_metalib(v1.get(), path.c_str()), 0);
  EXPECT_EQ(wsm_vix_load_meta_file(h_, path.c_str(), WSM_VIX_REPLACE), 1);
}

TEST_F(WsmVix, QueryRowsAndTypedData) {
  Lib lib = make_lib("mylib", 3);
  ASSERT_EQ(wsm_vix_load_meta_ex(h_, lib.get(), 10, 0), 0);
  // A data object of record type LogRecord: the size comes from the record.
  ASSERT_EQ(wsm_vix_bind_data(h_, "wsm-data://10/prog:1/log/rec"), 0);
  ASSERT_EQ(wsm_vix_bind_meta(h_, "wsm-meta://10/mylib:*:*/LogRecord:*"), 0);
  EXPECT_EQ(wsm_vix_bind_get_size(h_), 20);
  EXPECT_EQ(wsm_vix_bind_size(h_, 40), -5);
  Handle other;
  EXPECT_EQ(wsm_vix_bind_meta(other, "wsm-meta://10/mylib:3:11/NoSuchRecord"), -6);
  EXPECT_STREQ(wsm_vix_bind_get_meta(h_), "wsm-meta://10/mylib:3:11/LogRecord:*/");
  const char record[20] = {1, 0, 0, 0, 'a', 'b'};
  ASSERT_EQ(wsm_vix_load_data(h_, record, sizeof(record)), 0);
  EXPECT_EQ(wsm_vix_load_data(h_, record, 21), -4);
  ASSERT_NE(make(h_, "wsm-data://10/prog:2/log/rec", 8), nullptr);
  ASSERT_NE(make(h_, "wsm-data://11/prog:1/x/y", 8), nullptr);
  struct Query {
    const char* uri;
    int count;
    const char* first;
  } queries[] = {
      {"wsm-data://", 3, "wsm-data://10/prog:1/log/rec"},
      {"wsm-data://10/prog:*/log/rec", 2, "wsm-data://10/prog:1/log/rec"},
      {"wsm-data://*/*:1", 2, "wsm-data://10/prog:1/log/rec"},
      {"wsm-data://11", 1, "wsm-data://11/prog:1/x/y"},
      {"wsm-data://12", 0, nullptr},
      {"wsm-meta://10/mylib", 1, "wsm-meta://10/mylib:3:11/:*/"},
  };
  for (const Query& q : queries) {
    EXPECT_EQ(wsm_vix_query(h_, q.uri), q.count) << q.uri;
    WsmVixRowP first = wsm_vix_row_first(h_);
    EXPECT_STREQ(first ? wsm_vix_row_uri(first) : nullptr, q.first) << q.uri;
    EXPECT_EQ(wsm_vix_row_only(h_) != nullptr, q.count == 1) << q.uri;
  }
  // Walking the rows of the last full listing.
  ASSERT_EQ(wsm_vix_query(h_, "wsm-data://"), 3);
  WsmVixResultP res = wsm_vix_store_result(h_);
  ASSERT_NE(res, nullptr);
  EXPECT_EQ(wsm_vix_num_rows(res), 3);
  std::string walk;
  for (WsmVixRowP r = wsm_vix_fetch_row(res); r != nullptr; r = wsm_vix_fetch_row(res)) {
    walk += std::to_string(wsm_vix_row_size(r)) + ",";
  }
  EXPECT_EQ(walk, "20,8,8,");
  EXPECT_EQ(wsm_vix_data_seek(res, 4), -3);
  ASSERT_EQ(wsm_vix_data_seek(res, 2), 0);
  EXPECT_STREQ(wsm_vix_row_uri(wsm_vix_fetch_row(res)), "wsm-data://11/prog:1/x/y");
  // The typed row: its data, its library and the record type it names.
  WsmVixRowP row = wsm_vix_row_first(h_);
  EXPECT_EQ(wsm_vix_row_is_data(row), 1);
  EXPECT_EQ(wsm_vix_row_is_meta(row), 0);
  EXPECT_EQ(wsm_vix_row_type(row), WSM_VIX_ROW_DATA);
  EXPECT_GT(wsm_vix_row_time(row), 0);
  EXPECT_STREQ(wsm_vix_row_meta_uri(row), "wsm-meta://10/mylib:3:11/LogRecord:*/");
  EXPECT_EQ(memcmp(wsm_vix_row_data(row), record, sizeof(record)), 0);
  const VIXMETALIB* meta = wsm_vix_row_meta(row);
  ASSERT_NE(meta, nullptr);
  EXPECT_EQ(vix_get_meta_size(vix_get_meta_by_name(meta, "LogRecord")), 20u);
  EXPECT_EQ(wsm_vix_row_meta_ptr(row)->iSize, lib->iSize);
  EXPECT_EQ(wsm_vix_row_data_ptr(row)->iRef, 0);  // the copy taken at query time
  WsmVixRowP untyped = wsm_vix_fetch_row(res);
  EXPECT_EQ(untyped, nullptr);  // the cursor is at the end
  ASSERT_EQ(wsm_vix_data_seek(res, 1), 0);
  untyped = wsm_vix_fetch_row(res);
  EXPECT_EQ(wsm_vix_row_meta(untyped), nullptr);
  EXPECT_EQ(top_code(), 3);
  EXPECT_EQ(wsm_vix_row_meta_uri(untyped), nullptr);
  EXPECT_EQ(wsm_vix_free_result(res), 0);  // detaches the row's payloads
  EXPECT_EQ(wsm_vix_row_first(h_), nullptr);
  EXPECT_EQ(top_code(), 3);
  EXPECT_EQ(wsm_vix_query(h_, "wsm-data://10/prog:1/log/rec"), 1);
  EXPECT_EQ(wsm_vix_row_data_ptr(wsm_vix_row_only(h_))->iRef, 0);
}

TEST_F(WsmVix, UnlinkRemovesEverything) {
  WsmObjPtrP ptr = make(h_, kRing, 64);
  ASSERT_NE(ptr, nullptr);
  const int shmid = ptr->iShmId;
  ASSERT_EQ(wsm_vix_query(h_, kRing), 1);
  WsmVixRowP row = wsm_vix_row_only(h_);
  ASSERT_NE(wsm_vix_row_data(row), nullptr);  // unlinking detaches it first
  EXPECT_EQ(wsm_vix_row_unlink(row, h_), 0);
  struct shmid_ds ds;
  EXPECT_NE(shmctl(shmid, IPC_STAT, &ds), 0);
  EXPECT_EQ(wsm_vix_row_unlink(row, h_), -3);  // the slot no longer holds it
  EXPECT_EQ(wsm_vix_query(h_, "wsm-data://"), 0);
  // The name is free again; a segment removed behind the registry's back does not block removal.
  ptr = make(h_, kRing, 64);
  ASSERT_NE(ptr, nullptr);
  ASSERT_EQ(shmctl(ptr->iShmId, IPC_RMID, nullptr), 0);
  ASSERT_EQ(wsm_vix_query(h_, kRing), 1);
  EXPECT_EQ(wsm_vix_row_unlink(wsm_vix_row_only(h_), h_), 0);
  EXPECT_EQ(wsm_vix_query(h_, kRing), 0);
}

TEST_F(WsmVix, LockStates) {
  EXPECT_EQ(wsm_vix_unlock(h_), -3);
  ASSERT_EQ(wsm_vix_lock(h_, 1), 0);
  EXPECT_EQ(wsm_vix_lock(h_, 1), -3);
  EXPECT_EQ(wsm_vix_query(h_, "wsm-data://"), 0);  // look-ups run under the held read lock
  ASSERT_EQ(wsm_vix_bind_data(h_, kRing), 0);
  ASSERT_EQ(wsm_vix_bind_size(h_, 8), 0);
  EXPECT_EQ(wsm_vix_ptr(h_, 0xC0), nullptr);  // a change needs the write lock
  EXPECT_EQ(top_code(), 2);
  EXPECT_EQ(wsm_vix_unlock(h_), 0);
  ASSERT_EQ(wsm_vix_lock(h_, 0), 0);
  EXPECT_NE(wsm_vix_ptr(h_, 0xC0), nullptr);  // ... and runs under a held one
  EXPECT_EQ(wsm_vix_unlock(h_), 0);
}

TEST_F(WsmVix, BadUrisAndNullArguments) {
  struct Case {
    const char* uri;
    const char* message;  // of the parser's frame, under the caller's
  } cases[] = {
      {"", kMsgEmpty},
      {"wsm-data:/10", kMsgNoScheme},
      {"wsm-data://10/prog/x:y", kMsgSeparator},
      {"wsm-data://10/abcdefghijklmnopqrstuvwxyzabcdefghij", kMsgTooLong},
      {"wsm-file://10", kMsgScheme},
      {"wsm-data://1x", kMsgNumber},
  };
  for (const Case& c : cases) {
    for (int (*call)(WsmVixHandleP, const char*) :
         {wsm_vix_bind_data, wsm_vix_bind_meta, wsm_vix_query}) {
      terror_clear(nullptr);
      EXPECT_EQ(call(h_, c.uri), -3) << c.uri;
      ASSERT_EQ(terror_count(nullptr), 2) << c.uri;
      EXPECT_STREQ(terror_rbegin(nullptr)->szErrStr, c.message) << c.uri;
    }
  }
  EXPECT_EQ(wsm_vix_bind_meta(h_, "wsm-meta://1/absent:1:1/"), -5);
  EXPECT_EQ(wsm_vix_bind_meta(h_, kRing), -4);
  EXPECT_EQ(wsm_vix_bind_data(h_, nullptr), -1);
  EXPECT_EQ(wsm_vix_load_meta(h_, nullptr, 0), -1);
  EXPECT_EQ(wsm_vix_load_data(h_, nullptr, 1), -1);
  EXPECT_EQ(wsm_vix_at(nullptr, 0), nullptr);
  EXPECT_EQ(wsm_vix_dt(nullptr), -1);
  EXPECT_EQ(wsm_vix_row_size(nullptr), -1);
  EXPECT_EQ(wsm_vix_row_uri(nullptr), nullptr);
  EXPECT_EQ(wsm_vix_num_rows(nullptr), -1);
  EXPECT_EQ(wsm_vix_fetch_row(nullptr), nullptr);
  EXPECT_EQ(wsm_vix_store_result(h_), nullptr);  // no query yet
  EXPECT_EQ(top_code(), 3);
}

}  // namespace
