#include "plugin_zq.h"

#include <arpa/inet.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "copy/quelld_shared_file.h"
#include "zq/kry_sdk_import.h"

namespace zq {

quelld::SendToClient g_send_msg_cob = nullptr;

namespace {

// NUL-terminated copy of a fixed-size host text field that may lack its terminator.
template <size_t N>
struct BoundedText {
  explicit BoundedText(const char (&src)[N]) {
    const size_t n = strnlen(src, N);
    std::memcpy(text, src, n);
    text[n] = '\0';
  }
  char text[N + 1];
};

// Copies at most cap - 1 characters of src (never reading past src_size bytes) and a NUL.
void CopyText(char* dst, size_t cap, const char* src, size_t src_size) {
  size_t n = strnlen(src, src_size < cap - 1 ? src_size : cap - 1);
  std::memcpy(dst, src, n);
  dst[n] = '\0';
}

template <size_t N>
void TerminateField(char (&field)[N]) {
  field[N - 1] = '\0';
}

uint64_t ClientIp(const char (&client_ip)[quelld::kClientIpLen]) {
  const BoundedText<quelld::kClientIpLen> ip(client_ip);
  return static_cast<uint64_t>(static_cast<uint32_t>(inet_addr(ip.text)));
}

}  // namespace

std::vector<std::string> StringSplit(const std::string& str, const std::string& delim) {
  std::vector<std::string> result;
  if (str.empty() || delim.empty()) return result;  // an empty delimiter would never advance
  const std::string s = str + delim;
  const size_t size = s.size();
  size_t pos = 0;
  while (pos < size) {
    const size_t found = s.find(delim, pos);
    if (found < size) {
      result.push_back(s.substr(pos, found - pos));
      pos = found + delim.size() - 1;
    }
    ++pos;
  }
  return result;
}

int CompareVersion(const std::vector<std::string>& v1, const std::vector<std::string>& v2,
                   int length) {
  if (length < 1) return 0;
  for (int i = 0; i < length; ++i) {
    // A component missing from a short vector counts as 0 rather than reading past the end.
    const size_t at = static_cast<size_t>(i);
    const int a = at < v1.size() ? static_cast<int>(std::strtol(v1[at].c_str(), nullptr, 10)) : 0;
    const int b = at < v2.size() ? static_cast<int>(std::strtol(v2[at].c_str(), nullptr, 10)) : 0;
    if (a != b) return a > b ? 1 : -1;
  }
  return 0;
}

KrySdkProcResult SendDataToClientCob(const KrySdkAntiSendDataInfo* anti_data) {
  const quelld::SendToClient send = g_send_msg_cob;
  if (send == nullptr) return KRY_SDK_PROC_FAIL;
  if (anti_data == nullptr) return KRY_SDK_PROC_INVALID_ARG;
  // The account text is handed on as a C string; terminate it if the SDK did not.
  const char* account = anti_data->account_info_.account_id_.account_;
  char account_copy[MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN];
  if (strnlen(account, MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN) == MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN) {
    CopyText(account_copy, sizeof(account_copy), account, MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN);
    account = account_copy;
  }
  const KrySdkUserExtData* ext = anti_data->user_ext_data_;
  const char* ext_data = ext != nullptr ? ext->user_ext_data_ : nullptr;
  uint32_t ext_len = ext != nullptr ? ext->ext_data_len_ : 0;
  if (ext_len > MAX_KRY_USER_EXT_DATA_LEN) ext_len = MAX_KRY_USER_EXT_DATA_LEN;
  const int ret =
      send(account, 1, 0, ext_data, ext_len, anti_data->anti_data_, anti_data->anti_data_len_);
  return ret != 0 ? KRY_SDK_PROC_FAIL : KRY_SDK_PROC_OK;
}

ZQPlugin::ZQPlugin() : log_(nullptr), anti_interf_(nullptr), loaded_(false) {
  std::memset(&opts_, 0, sizeof(opts_));
}

ZQPlugin::~ZQPlugin() {}

uint32_t ZQPlugin::GetPluginID() { return kSelfPluginID; }

const char* ZQPlugin::Version() { return kZqPluginVersion; }

int ZQPlugin::OnInit(const quelld::Options& opts) {
  opts_ = opts;
  // The SDK and the loader read these as C strings; keep them inside their fields.
  TerminateField(opts_.gamekey);
  TerminateField(opts_.lib);
  TerminateField(opts_.lib_ext);
  TerminateField(opts_.data_proxy_domain);
  TerminateField(opts_.busi_proxy_domain);
  TerminateField(opts_.test_data_proxy_domain);
  TerminateField(opts_.test_busi_proxy_domain);
  TerminateField(opts_.reserve6);
  log_ = opts_.log;
  return InitKrySDK();
}

void ZQPlugin::OnQuit() { QuitKrySDK(); }

void ZQPlugin::OnTick() {}

void ZQPlugin::OnUpdate() {}

std::string ZQPlugin::SdkLibPath() const {
  // No separator: lib_ext is expected to end with '/'. The loader adds its own '/'.
  return std::string(opts_.lib_ext) + kZqLibName;
}

int ZQPlugin::InitKrySDK() {
  g_send_msg_cob = opts_.send_cob;

  KrySdkInitInfo init_info;
  std::memset(&init_info, 0, sizeof(init_info));
  init_info.kry_sdk_conf_dir_ = nullptr;
  init_info.game_id_ = opts_.gameid;
  CopyText(init_info.auth_token_, sizeof(init_info.auth_token_), opts_.gamekey,
           sizeof(opts_.gamekey));

  KrySdkAccessInfo access_info;
  std::memset(&access_info, 0, sizeof(access_info));
  access_info.network_type_ = static_cast<KrySdkNetworkType>(opts_.network_type);
  access_info.backend_env_type_ = static_cast<KrySdkBackendEnvironmentType>(opts_.backend_env_type);
  access_info.data_proxy_domain_ = opts_.data_proxy_domain;
  access_info.busi_proxy_domain_ = opts_.busi_proxy_domain;
  access_info.test_data_proxy_domain_ = opts_.test_data_proxy_domain;
  access_info.test_busi_proxy_domain_ = opts_.test_busi_proxy_domain;

  if (LoadKrySDK(opts_.lib_ext, &init_info, &access_info) != 0) return -1;

  const std::string path = SdkLibPath();
  {
    SharedFile file(path);
    so_md5sum_ = file.MD5();
  }
  WLOG_LOG_INFO(log_, "%s's md5sum:%s", path.c_str(), so_md5sum_.c_str());

  KrySdkAntiInitInfo anti_init_info;
  anti_init_info.send_data_to_client_ = SendDataToClientCob;
  anti_interf_ = static_cast<const KrySdkAntiInterf*>(
      kry_sdk_get_busi_interf(KRY_SDK_GET_ANTI_INTERF, &anti_init_info));
  if (anti_interf_ == nullptr) {
    WLOG_LOG_ERROR(log_, "KRY_SDK_GET_ANTI_INTERF failed");
    UnloadKrySDK();
    return -1;
  }
  WLOG_LOG_INFO(log_, "zq plugin init success");
  return 0;
}

int ZQPlugin::LoadKrySDK(const char* dir, const KrySdkInitInfo* init_info,
                         const KrySdkAccessInfo* access_info) {
  if (loaded_) {
    WLOG_LOG_ERROR(log_, "already loaded");
    return -1;
  }
  const int ret = kry_sdk_load_and_init_for_quelld(dir, init_info, access_info);
  if (ret == 0) {
    loaded_ = true;
    return 0;
  }
  WLOG_LOG_ERROR(log_, "kry_sdk_load_and_init_for_quelld failed,ret:%d", ret);
  return -1;
}

void ZQPlugin::UnloadKrySDK() {
  if (loaded_) (void)kry_sdk_unload();
  loaded_ = false;
}

void ZQPlugin::QuitKrySDK() {
  UnloadKrySDK();
  anti_interf_ = nullptr;
  WLOG_LOG_INFO(log_, "zq plugin exit success");
}

void ZQPlugin::OnReload() {
  SharedFile file(SdkLibPath());  // stays open until the reload has finished
  const std::string md5sum = file.MD5();
  if (md5sum != so_md5sum_) {
    QuitKrySDK();
    (void)InitKrySDK();
    return;
  }
  WLOG_LOG_INFO(log_, "libkry_sdk.so not change.will not reload");
}

bool ZQPlugin::SDKVersionOK() {
  KrySdkGetSdkInfoInitData request;
  request.reserved_ = 0;
  const KrySdkGetSdkInfoInterf* info = static_cast<const KrySdkGetSdkInfoInterf*>(
      kry_sdk_get_busi_interf(KRY_SDK_GET_SDK_INFO, &request));
  if (info == nullptr) {
    WLOG_LOG_ERROR(log_, "missing get version symbol");
    return false;
  }
  const char* version =
      info->get_sdk_version_info_ != nullptr ? info->get_sdk_version_info_() : nullptr;
  if (version == nullptr) {
    WLOG_LOG_ERROR(log_, "version is None");
    return false;
  }
  const std::vector<std::string> sdk_parts = StringSplit(version, ".");
  if (sdk_parts.size() <= 2) {
    WLOG_LOG_ERROR(log_, "invalid krysdk version:%s.must great than %s", version,
                   kKrySDKBaseVersion);
    return false;
  }
  const std::vector<std::string> base_parts = StringSplit(kKrySDKBaseVersion, ".");
  if (base_parts.size() != static_cast<size_t>(kKrySDKVersionCount)) {
    WLOG_LOG_ERROR(log_, "internal base version invalid(%s) must be x.x.x", kKrySDKBaseVersion);
    return false;
  }
  if (CompareVersion(sdk_parts, base_parts, kKrySDKVersionCount) < 0) {
    WLOG_LOG_ERROR(log_, "invalid krysdk version:%s.must great than %s", version,
                   kKrySDKBaseVersion);
    return false;
  }
  WLOG_LOG_INFO(log_, "krysdk version:%s", version);
  return true;
}

KryAccountType ZQPlugin::TranslateAccountType(uint32_t acctype, uint16_t authtype) {
  KryAccountType result = KRYACCOUNT_TYPE_UNDEFINED;
  if ((authtype & ~0x10u) == 0x1000u || authtype == 0x1009 || authtype == 0x1006) {
    result = KRYACCOUNT_TYPE_GOPENID;
  } else if (authtype == 0x1005) {
    result = KRYACCOUNT_TYPE_MORVEN;
  } else if ((authtype >= 0x1001 && authtype <= 0x1003) || authtype == 0xFFFF) {
    switch (acctype) {
      case 0x1003:
        result = KRYACCOUNT_TYPE_MX_OPENID;
        break;
      case 0x1002:
        result = KRYACCOUNT_TYPE_TOLVA;
        break;
      case 0x2001:
        result = KRYACCOUNT_TYPE_VISITOR;
        break;
      default:
        result = KRYACCOUNT_TYPE_UNDEFINED;
        break;
    }
  } else if (authtype == 0x2001) {
    result = acctype == 1 ? KRYACCOUNT_TYPE_MX : KRYACCOUNT_TYPE_UNDEFINED;
  }
  WLOG_LOG_DEBUG(log_, "(acctype:%u,authtype:%u) trans to zq_acctype(%d)", acctype,
                 static_cast<unsigned>(authtype), static_cast<int>(result));
  return result;
}

KryAccountPlatId ZQPlugin::TranslatePlatID(uint32_t client_type) {
  KryAccountPlatId result;
  switch (client_type) {
    case 0:
      result = KRYPLAT_ID_PC_CLIENT;
      break;
    case 101:
      result = KRYPLAT_ID_ANDROID;
      break;
    case 102:
      result = KRYPLAT_ID_IOS;
      break;
    case 103:
    case 104:
      result = KRYPLAT_ID_PC_CLIENT;
      break;
    case 110:
      result = KRYPLAT_ID_SWITCH_CLIENT;
      break;
    case 120:
      result = KRYPLAT_ID_PS_CLIENT;
      break;
    case 130:
      result = KRYPLAT_ID_XBOX_CLIENT;
      break;
    case 140:
      result = ULM_SDK_PLAT_ID_HARMONY_MOBILE;
      break;
    default:
      result = KRYPLAT_ID_UNKNOWN;
      break;
  }
  WLOG_LOG_DEBUG(log_, "(client_type:%u) trans to zq_platid(%d)", client_type,
                 static_cast<int>(result));
  return result;
}

void ZQPlugin::FillAccountInfo(const quelld::User& user, KryAccountInfo* info) {
  CopyText(info->account_id_.account_, sizeof(info->account_id_.account_), user.openid,
           sizeof(user.openid));
  info->account_id_.account_type_ =
      static_cast<uint16_t>(TranslateAccountType(user.account_type, user.auth_type));
  info->plat_id_ = static_cast<uint16_t>(TranslatePlatID(user.platid));
  info->game_id_ = opts_.gameid;
  info->world_id_ = user.world_id;
  info->channel_id_ = user.channel_id;
  info->role_id_ = 0;
}

// Each record starts zeroed, so bytes the relay does not fill (reserve_buf_, the rest of
// account_) reach the SDK as zeros rather than stack contents.
KrySdkAntiAddUserInfo ZQPlugin::CastedAntiAddUserInfo(const quelld::User& user) {
  KrySdkAntiAddUserInfo info;
  std::memset(&info, 0, sizeof(info));
  FillAccountInfo(user, &info.account_info_);
  info.client_ip_ = ClientIp(user.client_ip);
  info.role_name_ = "";
  info.user_ext_data_ = nullptr;
  return info;
}

KrySdkAntiDelUserInfo ZQPlugin::CastedAntiDelUserInfo(const quelld::User& user) {
  KrySdkAntiDelUserInfo info;
  std::memset(&info, 0, sizeof(info));
  FillAccountInfo(user, &info.account_info_);
  info.user_ext_data_ = nullptr;
  return info;
}

KrySdkAntiTickUserInfo ZQPlugin::CastedAntiTickUserInfo(const quelld::User& user) {
  KrySdkAntiTickUserInfo info;
  std::memset(&info, 0, sizeof(info));
  FillAccountInfo(user, &info.account_info_);
  info.client_ip_ = ClientIp(user.client_ip);
  info.role_name_ = "";
  info.user_ext_data_ = nullptr;
  return info;
}

KrySdkAntiRecvDataInfo ZQPlugin::CastedAntiRecvDataInfo(const quelld::User& user, const char* data,
                                                        uint32_t data_len) {
  KrySdkAntiRecvDataInfo info;
  std::memset(&info, 0, sizeof(info));
  FillAccountInfo(user, &info.account_info_);
  info.anti_data_len_ = data_len;
  info.anti_data_ = data;
  info.user_ext_data_ = nullptr;
  return info;
}

// The relay calls the interface without a null test: user events arrive only while the SDK runs.
void ZQPlugin::OnUserLogin(const quelld::User& user) {
  WLOG_LOG_DEBUG(log_, "zq plugin recv user(%s) login event",
                 BoundedText<quelld::kOpenIdLen>(user.openid).text);
  KrySdkAntiAddUserInfo info = CastedAntiAddUserInfo(user);
  const int ret = anti_interf_->add_user_(&info);
  if (ret != 0) WLOG_LOG_ERROR(log_, "add user failed,ret:%d", ret);
}

void ZQPlugin::OnUserLogout(const quelld::User& user) {
  WLOG_LOG_DEBUG(log_, "zq plugin recv user(%s) logout event",
                 BoundedText<quelld::kOpenIdLen>(user.openid).text);
  const KrySdkAntiDelUserInfo info = CastedAntiDelUserInfo(user);
  const int ret = anti_interf_->del_user_(&info);
  if (ret != 0) WLOG_LOG_ERROR(log_, "del user failed,ret:%d", ret);
}

void ZQPlugin::OnTickUser(const quelld::User& user) {
  WLOG_LOG_DEBUG(log_, "zq plugin recv user(%s) tick event,report heartbeat",
                 BoundedText<quelld::kOpenIdLen>(user.openid).text);
  const KrySdkAntiTickUserInfo info = CastedAntiTickUserInfo(user);
  const int ret = anti_interf_->tick_user_(&info);
  if (ret != 0) WLOG_LOG_ERROR(log_, "tick user failed,ret:%d", ret);
}

void ZQPlugin::OnPluginMsg(const quelld::User& user, uint32_t seq, const char* user_ext_data,
                           uint32_t user_ext_data_len, const char* data, uint32_t data_len) {
  // The client's extension data is deliberately not passed on to the SDK.
  (void)seq;
  (void)user_ext_data;
  (void)user_ext_data_len;
  WLOG_LOG_DEBUG(log_, "zq plugin OnPluginMsg");
  KrySdkAntiRecvDataInfo info = CastedAntiRecvDataInfo(user, data, data_len);
  const int ret = anti_interf_->recv_anti_data_(&info);
  if (ret != 0) WLOG_LOG_ERROR(log_, "recv_anti_data_ failed,ret:%d", ret);
}

}  // namespace zq

extern "C" {

quelld::Plugin* CreateQuelldPlugin() { return new (std::nothrow) zq::ZQPlugin(); }

const char* APIVersion() { return QUELLD_PLUGIN_API_VERSION; }

}  // extern "C"
