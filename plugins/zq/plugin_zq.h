// The anti-cheat plug-in: loads the security SDK and relays the host's user events to it.
#ifndef ZQ_PLUGIN_ZQ_H_
#define ZQ_PLUGIN_ZQ_H_

#include <cstdint>
#include <string>
#include <vector>

#include "wlog/wlog.h"
#include "zq/kry_sdk.h"
#include "zq/quelld_plugin.h"

namespace zq {

constexpr uint32_t kSelfPluginID = 1;
constexpr int kKrySDKVersionCount = 3;
constexpr const char* kKrySDKBaseVersion = "1.8.4";
constexpr const char* kZqLibName = "libkry_sdk.so";
constexpr const char* kZqPluginVersion = "zqplugin_1.0.1";

// Host send callback used by SendDataToClientCob; set by every SDK initialisation.
extern quelld::SendToClient g_send_msg_cob;

// Pieces of str between occurrences of delim; empty pieces are kept. Empty str gives no pieces.
// REQUIRES: delim is not empty.
std::vector<std::string> StringSplit(const std::string& str, const std::string& delim);

// Compares the first `length` components numerically (strtol): 1 when v1 is newer, -1 when
// older, 0 when equal or length < 1. Components missing from a shorter vector count as 0.
int CompareVersion(const std::vector<std::string>& v1, const std::vector<std::string>& v2,
                   int length);

// Send path handed to the SDK: forwards the SDK's data for one client to the host.
// KRY_SDK_PROC_FAIL without a host callback or when the host could not send.
KrySdkProcResult SendDataToClientCob(const KrySdkAntiSendDataInfo* anti_data);

class ZQPlugin : public quelld::Plugin {
 public:
  ZQPlugin();
  ~ZQPlugin() override;

  ZQPlugin(const ZQPlugin&) = delete;
  ZQPlugin& operator=(const ZQPlugin&) = delete;

  // Copies the options and brings the SDK up. 0, or -1 when the plug-in is not usable.
  int OnInit(const quelld::Options& opts) override;
  uint32_t GetPluginID() override;
  const char* Version() override;
  // Releases the SDK. The object may then be deleted.
  void OnQuit() override;
  // User events. REQUIRES: the SDK is running (OnInit, or the last OnReload, succeeded).
  void OnUserLogin(const quelld::User& user) override;
  void OnUserLogout(const quelld::User& user) override;
  void OnTick() override;
  void OnUpdate() override;
  // Restarts the SDK when its library file's MD5 differs from the one taken at the last load.
  void OnReload() override;
  void OnTickUser(const quelld::User& user) override;
  void OnPluginMsg(const quelld::User& user, uint32_t seq, const char* user_ext_data,
                   uint32_t user_ext_data_len, const char* data, uint32_t data_len) override;
  void OnGameSvrUpstreamMsg() override {}
  void OnGameSvrDownstreamMsg() override {}

  // True when the loaded SDK reports a version of at least kKrySDKBaseVersion.
  bool SDKVersionOK();

  int InitKrySDK();
  int LoadKrySDK(const char* dir, const KrySdkInitInfo* init_info,
                 const KrySdkAccessInfo* access_info);
  void UnloadKrySDK();
  void QuitKrySDK();

  KryAccountType TranslateAccountType(uint32_t acctype, uint16_t authtype);
  KryAccountPlatId TranslatePlatID(uint32_t client_type);

  KrySdkAntiAddUserInfo CastedAntiAddUserInfo(const quelld::User& user);
  KrySdkAntiDelUserInfo CastedAntiDelUserInfo(const quelld::User& user);
  KrySdkAntiTickUserInfo CastedAntiTickUserInfo(const quelld::User& user);
  KrySdkAntiRecvDataInfo CastedAntiRecvDataInfo(const quelld::User& user, const char* data,
                                                uint32_t data_len);

  // Read-only views for the host's diagnostics.
  const std::string& so_md5sum() const { return so_md5sum_; }
  bool loaded() const { return loaded_; }
  const KrySdkAntiInterf* anti_interf() const { return anti_interf_; }
  const quelld::Options& opts() const { return opts_; }

 private:
  void FillAccountInfo(const quelld::User& user, KryAccountInfo* info);
  std::string SdkLibPath() const;

 protected:
  // Protected so that a harness can attach an in-process interface table without a library.
  quelld::Options opts_;
  WLOGCATEGORYINST* log_;
  const KrySdkAntiInterf* anti_interf_;
  std::string so_md5sum_;
  bool loaded_;
};

}  // namespace zq

#endif  // ZQ_PLUGIN_ZQ_H_
