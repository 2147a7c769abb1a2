// Scenario helpers for the plug-in tests: a private copy of the SDK test double with its control
// functions, host options and users, a capturing host send callback and a file log category.
#ifndef ZQ_TESTS_PLUGIN_FIXTURE_H_
#define ZQ_TESTS_PLUGIN_FIXTURE_H_

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "kry_sdk_double.h"
#include "plugin_zq.h"
#include "wlog/wlog.h"
#include "zq_test/support.h"

namespace zqtest {

using zq_test::ReadFile;
using zq_test::RunInChild;
using zq_test::TempDir;
using zq_test::WriteFile;

using Bytes = std::vector<unsigned char>;

// A fresh SDK directory whose libkry_sdk.so links to the test double that this program is linked
// with, so the plug-in loads the very library whose kry_double_* functions the test calls.
class SdkDouble {
 public:
  SdkDouble() {
    EXPECT_EQ(symlink(ZQ_SDK_DOUBLE_DIR "/libkry_sdk.so", lib_path().c_str()), 0);
    kry_double_reset();
  }
  // The directory with a trailing slash, as the host's lib_ext option expects.
  std::string dir() const { return dir_.path() + "/"; }
  std::string lib_path() const { return dir_.path() + "/libkry_sdk.so"; }
  // Puts a file with other content (and so another MD5) in place of the library.
  void Change() const {
    const std::string content = ReadFile(lib_path()) + "changed";
    std::filesystem::remove(lib_path());
    WriteFile(lib_path(), content);
  }

 private:
  TempDir dir_;
};

// Bytes of one part of a call to the double (index -1: the slot's last call); empty when absent.
inline Bytes Part(int slot, long index = -1, int part = KRY_DOUBLE_PART_RECORD) {
  if (index < 0) index = kry_double_call_count(slot) - 1;
  const long n = kry_double_record(slot, index, part, nullptr, 0);
  Bytes bytes(n > 0 ? static_cast<size_t>(n) : 0);
  if (n > 0) kry_double_record(slot, index, part, bytes.data(), bytes.size());
  return bytes;
}

inline std::string Text(int slot, int part) {
  const Bytes b = Part(slot, -1, part);
  return std::string(b.begin(), b.end());
}

// The host's send callback: records its arguments as "account|arg1|arg2|ext|data" ("-" for a null
// ext) and answers with g_send_answer.
inline std::string g_last_send;
inline int g_send_answer = 0;
inline int HostSend(const char* account, uint32_t arg1, uint32_t arg2, const char* ext,
                    uint32_t ext_len, const char* data, uint32_t data_len) {
  g_last_send = std::string(account) + "|" + std::to_string(arg1) + "|" + std::to_string(arg2) +
                "|" + (ext != nullptr ? std::string(ext, ext_len) : "-") + "|" +
                std::string(data, data_len);
  return g_send_answer;
}

template <size_t N>
void SetText(char (&field)[N], const std::string& text) {
  std::memset(field, 0, N);
  std::memcpy(field, text.data(), std::min(text.size(), N - 1));
}

// Host options. The game key (64 characters) and the data proxy text (512) fill their fields
// without a NUL, as a careless host may hand them over.
inline quelld::Options MakeOptions(const std::string& lib_ext, WLOGCATEGORYINST* log) {
  quelld::Options o;
  std::memset(&o, 0, sizeof(o));
  o.gameid = 1234;
  for (size_t i = 0; i < sizeof(o.gamekey); ++i) o.gamekey[i] = "0123456789abcdef"[i % 16];
  o.log = log;
  SetText(o.lib_ext, lib_ext);
  o.send_cob = HostSend;
  o.network_type = 77;  // passed through unchecked
  o.backend_env_type = 1001;
  std::memset(o.data_proxy_domain, 'd', sizeof(o.data_proxy_domain));
  SetText(o.busi_proxy_domain, "busi.proxy:1002");
  SetText(o.test_data_proxy_domain, "test.data.proxy:1003");
  SetText(o.test_busi_proxy_domain, "test.busi.proxy:1004");
  return o;
}

inline quelld::User MakeUser(const std::string& openid, uint32_t acctype, uint16_t authtype,
                             uint32_t platid, const std::string& ip) {
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

// A logging context with one file category writing "PRIORITY|file|function|message" lines;
// `low` is the context-wide least severe priority written.
class LogFile {
 public:
  explicit LogFile(int low = WLOG_PRIORITY_DEBUG)
      : path_(dir_.path() + "/zq.log"), conf_(new WLOGCONF()) {
    conf_->iMagic = WLOG_CONF_MAGIC;
    conf_->iPriorityHigh = -1;
    conf_->iPriorityLow = low;
    conf_->iCount = 1;
    WLOGCATEGORY& cat = conf_->astCategoryList[0];
    std::snprintf(cat.szName, sizeof(cat.szName), "zq");
    cat.iPriorityHigh = cat.iPriorityLow = -1;
    std::snprintf(cat.szFormat, sizeof(cat.szFormat), "%%p|%%f|%%F|%%m%%n");
    cat.stDevice.iType = WLOG_DEV_FILE;
    WLOGDEVFILE& file = cat.stDevice.stDevice.stFile;
    std::snprintf(file.szPattern, sizeof(file.szPattern), "%s", path_.c_str());
    file.iMaxRotate = 1;
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
      EXPECT_EQ(0, wlog_fini(ctx_));
      EXPECT_EQ(0, wlog_free(&ctx_));
    }
  }

  TempDir dir_;
  std::string path_;
  std::unique_ptr<WLOGCONF> conf_;
  WLOGCTX* ctx_ = wlog_alloc();
  WLOGCATEGORYINST* cat_ = nullptr;
};

// One log line of the plug-in as LogFile writes it.
inline std::string Line(const char* priority, const char* function, const std::string& message) {
  std::string p = priority;
  p.resize(8, ' ');
  return p + "|plugins/zq/plugin_zq.cc|" + function + "|" + message + "\n";
}

// A record of type T copied out of the bytes the double kept.
template <typename T>
T As(const Bytes& bytes) {
  T value;
  std::memset(&value, 0, sizeof(value));
  EXPECT_EQ(bytes.size(), sizeof(value));
  std::memcpy(&value, bytes.data(), std::min(bytes.size(), sizeof(value)));
  return value;
}

// What body writes to standard output.
template <typename Body>
std::string StdoutOf(Body body) {
  zq_test::StdoutCapture out;
  body();
  return out.Stop();
}

inline size_t Count(const std::string& text, const std::string& piece) {
  size_t n = 0;
  for (size_t pos = text.find(piece); pos != std::string::npos; pos = text.find(piece, pos + 1))
    ++n;
  return n;
}

// Every one of `lines` occurs in the log text.
inline void ExpectLines(const std::string& text, std::initializer_list<std::string> lines) {
  for (const std::string& line : lines)
    EXPECT_NE(text.find(line), std::string::npos) << line << text;
}

}  // namespace zqtest

#endif  // ZQ_TESTS_PLUGIN_FIXTURE_H_
