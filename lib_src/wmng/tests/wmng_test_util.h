// Helpers for the shared-memory manager's tests: registry keys of the test's own, a guard that
// removes every segment a test made, and the GBK messages the tests expect.
#ifndef WMNG_TESTS_WMNG_TEST_UTIL_H
#define WMNG_TESTS_WMNG_TEST_UTIL_H

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "vix/vix_builder.h"
#include "wmng/terror.h"
#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

namespace wmng_test {

// GBK messages (escaped bytes; the text in the comment).
// clang-format off
// 参数错误: 空字符串
const char kMsgEmpty[] = "\xb2\xce\xca\xfd\xb4\xed\xce\xf3: \xbf\xd5\xd7\xd6\xb7\xfb\xb4\xae";
// Uri 格式错误: 找不到 ://
const char kMsgNoScheme[] = "Uri \xb8\xf1\xca\xbd\xb4\xed\xce\xf3: \xd5\xd2\xb2\xbb\xb5\xbd ://";
// Uri 格式错误: 分隔错误
const char kMsgSeparator[] = "Uri \xb8\xf1\xca\xbd\xb4\xed\xce\xf3: \xb7\xd6\xb8\xf4\xb4\xed\xce\xf3";
// Uri 格式错误: 字段太长
const char kMsgTooLong[] = "Uri \xb8\xf1\xca\xbd\xb4\xed\xce\xf3: \xd7\xd6\xb6\xce\xcc\xab\xb3\xa4";
// Uri 格式错误: 必须是 wsm-(meta|data)
const char kMsgScheme[] = "Uri \xb8\xf1\xca\xbd\xb4\xed\xce\xf3: \xb1\xd8\xd0\xeb\xca\xc7 wsm-(meta|data)";
// Uri 格式错误: 数字错误
const char kMsgNumber[] = "Uri \xb8\xf1\xca\xbd\xb4\xed\xce\xf3: \xca\xfd\xd7\xd6\xb4\xed\xce\xf3";
// 错误的 Uri Type(7)
const char kMsgUriType7[] = "\xb4\xed\xce\xf3\xb5\xc4 Uri Type(7)";
// 没有空闲槽位
const char kMsgNoSlot[] = "\xc3\xbb\xd3\xd0\xbf\xd5\xcf\xd0\xb2\xdb\xce\xbb";
// 注册表魔数错误(0x12345678)
const char kMsgMagic[] = "\xd7\xa2\xb2\xe1\xb1\xed\xc4\xa7\xca\xfd\xb4\xed\xce\xf3(0x12345678)";
// 注册表版本错误(2)
const char kMsgVersion[] = "\xd7\xa2\xb2\xe1\xb1\xed\xb0\xe6\xb1\xbe\xb4\xed\xce\xf3(2)";
// 注册表大小错误(400)
const char kMsgSelfSize[] = "\xd7\xa2\xb2\xe1\xb1\xed\xb4\xf3\xd0\xa1\xb4\xed\xce\xf3(400)";
// 注册表参数错误(-2)
const char kMsgTuningMismatch[] = "\xd7\xa2\xb2\xe1\xb1\xed\xb2\xce\xca\xfd\xb4\xed\xce\xf3(-2)";
// 添加哈希节点失败(-4)
const char kMsgAddTwice[] = "\xcc\xed\xbc\xd3\xb9\xfe\xcf\xa3\xbd\xda\xb5\xe3\xca\xa7\xb0\xdc(-4)";
// 匹配的 Uri 不止一个(2)
const char kMsgManyMatch[] = "\xc6\xa5\xc5\xe4\xb5\xc4 Uri \xb2\xbb\xd6\xb9\xd2\xbb\xb8\xf6(2)";
// 找不到匹配的 Uri
const char kMsgNoMatch[] = "\xd5\xd2\xb2\xbb\xb5\xbd\xc6\xa5\xc5\xe4\xb5\xc4 Uri";
// Uri 不完整
const char kMsgUriPartial[] = "Uri \xb2\xbb\xcd\xea\xd5\xfb";
// clang-format on

// The newest message on the default error stack ("" when it is empty).
inline std::string top_message() {
  const TErrorFrame* f = terror_top(nullptr);
  return f != nullptr ? f->szErrStr : "";
}

// A registry key of this process: parallel test processes never share one, and it is never the
// default key.
inline int own_key() {
  static int serial = 0;
  return 0x5a000000 | ((static_cast<int>(getpid()) & 0xfffff) << 4) | (serial++ & 0xf);
}

// Sets a tuning record with a key of the test's own and small capacities; at scope end removes
// every object segment the registry lists (after checking its header), every segment handed to
// track(), and the registry, and restores the default tuning. Works on a damaged registry too:
// it then removes only the registry and the tracked segments.
class RegistryGuard {
 public:
  explicit RegistryGuard(int lib_cap = 4, int uri_cap = 6) {
    WsmBase b{};
    b.iIndexKey = own_key();
    b.iLibHash = WSM_LIB_HASH_DEFAULT;
    b.iLibCap = lib_cap;
    b.iUriHash = WSM_URI_HASH_DEFAULT;
    b.iUriCap = uri_cap;
    EXPECT_EQ(wsm_vix_base_set(&b), 0);
    key_ = b.iIndexKey;
    // A leftover of an earlier process with the same id would be found instead of created.
    const int stale = shmget(key_, 0, 0);
    if (stale >= 0) shmctl(stale, IPC_RMID, nullptr);
    terror_clear(nullptr);
  }
  ~RegistryGuard() {
    std::vector<WsmObjPtr> listed;
    const int id = shmget(key_, 0, 0);
    void* addr = id >= 0 ? shmat(id, nullptr, SHM_RDONLY) : reinterpret_cast<void*>(-1);
    if (addr != reinterpret_cast<void*>(-1)) {
      const WsmIndex* index = static_cast<const WsmIndex*>(addr);
      WsmBase stored = *wsm_get_base();
      if (index->iMagic == WSM_MAGIC && wsm_index_base_get(index, &stored) == 0) {
        for (uint64_t table : {WSM_INDEX_OFFSET_LIB, WSM_INDEX_OFFSET_URI}) {
          for (uint64_t e = toffset_array_begin(addr, table); e != toffset_array_end(addr, table);
               e = toffset_array_next(addr, table, e)) {
            const WsmObjPtr* ptr = reinterpret_cast<const WsmObjPtr*>(static_cast<char*>(addr) + e);
            if (ptr->iSize != 0) listed.push_back(*ptr);
          }
        }
      }
      shmdt(addr);
    }
    // Listed objects are removed only when their header says they are the registry's.
    for (const WsmObjPtr& ptr : listed) {
      if (wsm_head_destroy(&ptr) != 0) ADD_FAILURE() << "object " << ptr.iShmId << " not removed";
    }
    for (int obj : objects_) shmctl(obj, IPC_RMID, nullptr);
    if (id >= 0) shmctl(id, IPC_RMID, nullptr);
    WsmBase defaults;
    if (wsm_base_default(&defaults) == 0 && wsm_base_set(&defaults) == 0) terror_clear(nullptr);
  }
  RegistryGuard(const RegistryGuard&) = delete;
  RegistryGuard& operator=(const RegistryGuard&) = delete;

  int key() const { return key_; }
  void track(int shmid) { objects_.push_back(shmid); }

 private:
  int key_;
  std::vector<int> objects_;
};

// A typed-memory handle closed at scope end.
class Handle {
 public:
  Handle() { EXPECT_EQ(wsm_vix_open(&h_), 0); }
  ~Handle() {
    if (h_ != nullptr) {
      EXPECT_EQ(wsm_vix_close(&h_), 0);
    }
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  WsmVixHandleP get() const { return h_; }
  operator WsmVixHandleP() const { return h_; }

 private:
  WsmVixHandleP h_ = nullptr;
};

// A heap library "name" of the given version holding the record type LogRecord
// {int iId; char szName[16]} and, with extra, a member more (a changed library).
struct LibFree {
  void operator()(VIXMETALIB* p) const { vix_free_lib(&p); }
};
using Lib = std::unique_ptr<VIXMETALIB, LibFree>;
inline Lib make_lib(const char* name, int version, bool extra = false) {
  VIXLIBPARAM param{};
  param.iVersion = version;
  snprintf(param.szName, sizeof(param.szName), "%s", name);
  LPVIXBUILDER b = nullptr;
  LPVIXMETALIB lib = nullptr;
  VIXMETADESC d;
  vix_meta_desc_init(&d);
  d.pszName = "LogRecord";
  bool ok = vix_builder_open_growing(&b, &param) == 0 && vix_builder_begin_meta(b, &d) == 0 &&
            vix_builder_add_simple_entry(b, "iId", "int", 1) == 0 &&
            vix_builder_add_simple_entry(b, "szName", "string", 16) == 0 &&
            (!extra || vix_builder_add_simple_entry(b, "iMore", "int", 1) == 0) &&
            vix_builder_end_meta(b) == 0 && vix_builder_finish(b, &lib) == 0;
  vix_builder_close(&b);
  EXPECT_TRUE(ok) << name;
  return Lib(ok ? lib : nullptr);
}

}  // namespace wmng_test

#endif  // WMNG_TESTS_WMNG_TEST_UTIL_H
