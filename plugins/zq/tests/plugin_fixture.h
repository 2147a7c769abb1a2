// Scenario helpers for the plug-in tests: a private copy of the SDK test double with its control
// functions, host options, a capturing host send callback and a file log category.
#ifndef ZQ_TESTS_PLUGIN_FIXTURE_H_
#define ZQ_TESTS_PLUGIN_FIXTURE_H_

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kry_sdk_double.h"
#include "plugin_zq.h"
#include "test_util.h"
#include "wlog/wlog.h"

namespace zqtest {

// The test double copied into a fresh directory (so a test may change the file), opened by the
// test itself so its control functions are at hand. The plug-in opens the same file.
class SdkDouble {
 public:
  SdkDouble() {
    std::filesystem::copy_file(std::string(ZQ_SDK_DOUBLE_DIR) + "/libkry_sdk.so", lib_path());
    handle_ = dlopen(lib_path().c_str(), RTLD_NOW);
    EXPECT_NE(handle_, nullptr) << dlerror();
#define ZQ_BIND(fn) fn = reinterpret_cast<decltype(fn)>(Find("kry_double_" #fn))
    ZQ_BIND(reset);
    ZQ_BIND(set_result);
    ZQ_BIND(call_count);
    ZQ_BIND(record);
    ZQ_BIND(set_version);
    ZQ_BIND(send_to_client);
    ZQ_BIND(send_to_client_ext);
    ZQ_BIND(init_count);
    ZQ_BIND(quit_count);
    ZQ_BIND(is_running);
#undef ZQ_BIND
    if (reset != nullptr) reset();
  }

  std::string dir() const { return dir_.slashed(); }
  std::string lib_path() const { return dir_.path() + "/libkry_sdk.so"; }

  // Bytes of one part of the call with the given index; empty with *present false when absent.
  std::vector<unsigned char> Part(int slot, long index, int part, bool* present = nullptr) const {
    const long n = record(slot, index, part, nullptr, 0);
    if (present != nullptr) *present = n >= 0;
    if (n <= 0) return {};
    std::vector<unsigned char> bytes(static_cast<size_t>(n));
    record(slot, index, part, bytes.data(), bytes.size());
    return bytes;
  }
  std::vector<unsigned char> LastRecord(int slot) const {
    return Part(slot, call_count(slot) - 1, KRY_DOUBLE_PART_RECORD);
  }

  void (*reset)() = nullptr;
  int (*set_result)(int, int) = nullptr;
  long (*call_count)(int) = nullptr;
  long (*record)(int, long, int, void*, size_t) = nullptr;
  void (*set_version)(const char*) = nullptr;
  int (*send_to_client)(const char*, const void*, uint32_t) = nullptr;
  int (*send_to_client_ext)(const char*, const void*, uint32_t, const void*, uint32_t) = nullptr;
  long (*init_count)() = nullptr;
  long (*quit_count)() = nullptr;
  int (*is_running)() = nullptr;

 private:
  void* Find(const char* name) {
    void* fn = handle_ != nullptr ? dlsym(handle_, name) : nullptr;
    EXPECT_NE(fn, nullptr) << name;
    return fn;
  }

  TempDir dir_;
  void* handle_ = nullptr;
};

// What the host's send callback received.
struct SentToClient {
  int calls = 0;
  std::string account;
  uint32_t arg1 = 0, arg2 = 0;
  bool ext_null = true;
  std::string ext;
  std::string data;
  int answer = 0;  // what the callback returns
};

inline SentToClient& Sent() {
  static SentToClient sent;
  return sent;
}

inline int HostSend(const char* account, uint32_t arg1, uint32_t arg2, const char* ext_data, uint32_t ext_len,
                    const char* data, uint32_t data_len) {
  SentToClient& s = Sent();
  ++s.calls;
  s.account = account;
  s.arg1 = arg1;
  s.arg2 = arg2;
  s.ext_null = ext_data == nullptr;
  s.ext = ext_data != nullptr ? std::string(ext_data, ext_len) : std::string();
  s.data = std::string(data, data_len);
  return s.answer;
}

template <size_t N>
void SetText(char (&field)[N], const std::string& text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

inline quelld::Options MakeOptions(const std::string& lib_ext, WLOGCATEGORYINST* log) {
  quelld::Options o;
  std::memset(&o, 0, sizeof(o));
  o.pluginid = 9;
  o.gameid = 1234;
  SetText(o.gamekey, "0123456789abcdefghij");
  o.log = log;
  SetText(o.lib, "/unused/libzq_plugin.so");
  SetText(o.lib_ext, lib_ext);
  o.send_cob = HostSend;
  o.network_type = 1;
  o.backend_env_type = 101;
  SetText(o.data_proxy_domain, "data.proxy:1001");
  SetText(o.busi_proxy_domain, "busi.proxy:1002");
  SetText(o.test_data_proxy_domain, "test.data.proxy:1003");
  SetText(o.test_busi_proxy_domain, "test.busi.proxy:1004");
  return o;
}

inline quelld::User MakeUser(const std::string& openid, uint32_t acctype, uint16_t authtype, uint32_t platid,
                             const std::string& ip) {
  quelld::User u;
  std::memset(&u, 0, sizeof(u));
  SetText(u.openid, openid);
  u.account_type = acctype;
  u.auth_type = authtype;
  u.platid = platid;
  u.channel_id = 77;
  u.world_id = 5;
  SetText(u.client_ip, ip);
  return u;
}

// A logging context with one file category "zq" writing "PRIORITY|file|function|message" lines.
// `low` is the context-wide least severe priority written (600 info, 700 debug).
class LogFile {
 public:
  LogFile(const std::string& dir, int low) : path_(dir + "/zq.log") {
    conf_.reset(new WLOGCONF);
    std::memset(conf_.get(), 0, sizeof(WLOGCONF));
    conf_->iMagic = WLOG_CONF_MAGIC;
    conf_->iPriorityHigh = -1;
    conf_->iPriorityLow = low;
    conf_->iCount = 1;
    WLOGCATEGORY& cat = conf_->astCategoryList[0];
    std::snprintf(cat.szName, sizeof(cat.szName), "zq");
    cat.iPriorityHigh = -1;
    cat.iPriorityLow = -1;
    std::snprintf(cat.szFormat, sizeof(cat.szFormat), "%%p|%%f|%%F|%%m%%n");
    cat.stDevice.iType = WLOG_DEV_FILE;
    std::snprintf(cat.stDevice.stDevice.stFile.szPattern, sizeof(cat.stDevice.stDevice.stFile.szPattern), "%s",
                  path_.c_str());
    cat.stDevice.stDevice.stFile.iMaxRotate = 1;
    ctx_ = wlog_alloc();
    EXPECT_NE(ctx_, nullptr);
    EXPECT_EQ(wlog_init(ctx_, conf_.get()), 0);
    cat_ = wlog_get_category(ctx_, "zq");
    EXPECT_NE(cat_, nullptr);
  }
  ~LogFile() { Close(); }

  WLOGCATEGORYINST* cat() const { return cat_; }

  // Closes the context and returns every line written.
  std::string Text() {
    Close();
    return ReadFile(path_);
  }

 private:
  void Close() {
    if (ctx_ != nullptr) {
      wlog_fini(ctx_);
      wlog_free(&ctx_);
      ctx_ = nullptr;
    }
  }

  std::string path_;
  std::unique_ptr<WLOGCONF> conf_;
  WLOGCTX* ctx_ = nullptr;
  WLOGCATEGORYINST* cat_ = nullptr;
};

}  // namespace zqtest

#endif  // ZQ_TESTS_PLUGIN_FIXTURE_H_
