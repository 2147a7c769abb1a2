// Host interface of the quelld connection server as a plug-in sees it.
//
// A host dlopen()s a plug-in library, reads `APIVersion()`, creates one plug-in object with
// `CreateQuelldPlugin()` and drives it through the virtual operations of `quelld::Plugin`, in the
// slot order below (that order is the binary contract with the host). The host owns the object and
// deletes it through the virtual destructor after `OnQuit()`.
//
// Conventions: no operation throws; failures are result codes (0 success, -1 failure). Text fields
// of the host records are fixed-size arrays; the plug-in never reads past their declared size, even
// when the terminating NUL is missing.
#ifndef ZQ_QUELLD_PLUGIN_H_
#define ZQ_QUELLD_PLUGIN_H_

#include <cstddef>
#include <cstdint>

#define ZQ_PLUGIN_EXPORT __attribute__((visibility("default")))

// Log category instance of the logging library (<wlog/wlog.h>: WLOGCATEGORYINST).
struct tagWLogCategoryInst;

namespace quelld {

// Host callback that sends data to a client. Returns 0 when the data was sent.
// The plug-in passes (account, 1, 0, ext_data, ext_data_len, data, data_len).
typedef int (*SendToClient)(const char* account, uint32_t arg1, uint32_t arg2, const char* ext_data,
                            uint32_t ext_data_len, const char* data, uint32_t data_len);

constexpr size_t kGameKeyLen = 64;
constexpr size_t kLibPathLen = 128;
constexpr size_t kDomainLen = 512;
constexpr size_t kOpenIdLen = 256;
constexpr size_t kClientIpLen = 20;

// Configuration handed to Plugin::OnInit. Plain record, copied by value by the plug-in.
struct Options {
  uint32_t pluginid;                   // plug-in id as configured by the host (unused)
  uint32_t gameid;                     // game id, copied into every SDK record
  char gamekey[kGameKeyLen];           // game key; its first 15 characters become the auth token
  tagWLogCategoryInst* log;            // log category for the plug-in; null disables logging
  char lib[kLibPathLen];               // library path (unused)
  char lib_ext[kLibPathLen];           // directory of libkry_sdk.so, expected to end with '/'
  SendToClient send_cob;               // send path for data the SDK addresses to a client
  uint32_t network_type;               // KrySdkNetworkType
  uint32_t backend_env_type;           // KrySdkBackendEnvironmentType
  char data_proxy_domain[kDomainLen];  // endpoint texts handed to the SDK
  char busi_proxy_domain[kDomainLen];
  char test_data_proxy_domain[kDomainLen];
  char test_busi_proxy_domain[kDomainLen];
  char reserve6[kDomainLen];
};

// One user as the host reports it with every user event.
struct User {
  char openid[kOpenIdLen];  // account text, NUL-terminated
  uint32_t account_type;    // host account type
  uint32_t platid;          // host client type
  uint32_t channel_id;
  uint32_t world_id;
  uint16_t auth_type;            // host authentication type
  char client_ip[kClientIpLen];  // dotted-quad IPv4 text
};

static_assert(offsetof(Options, gamekey) == 8, "Options layout");
static_assert(offsetof(Options, log) == 72, "Options layout");
static_assert(offsetof(Options, lib_ext) == 208, "Options layout");
static_assert(offsetof(Options, send_cob) == 336, "Options layout");
static_assert(offsetof(Options, data_proxy_domain) == 352, "Options layout");
static_assert(sizeof(Options) == 352 + 5 * kDomainLen, "Options layout");
static_assert(offsetof(User, auth_type) == kOpenIdLen + 4 * 4, "User layout");
static_assert(offsetof(User, client_ip) == kOpenIdLen + 4 * 4 + 2, "User layout");

// The plug-in interface. Slot order is fixed; do not reorder.
class Plugin {
 public:
  virtual ~Plugin() {}
  virtual int OnInit(const Options& opts) = 0;
  virtual uint32_t GetPluginID() = 0;
  virtual const char* Version() = 0;
  virtual void OnQuit() = 0;
  virtual void OnUserLogin(const User& user) = 0;
  virtual void OnUserLogout(const User& user) = 0;
  virtual void OnTick() = 0;
  virtual void OnUpdate() = 0;
  virtual void OnReload() {}
  virtual void OnTickUser(const User& user) = 0;
  virtual void OnPluginMsg(const User& user, uint32_t seq, const char* user_ext_data,
                           uint32_t user_ext_data_len, const char* data, uint32_t data_len) = 0;
  virtual void OnGameSvrUpstreamMsg() = 0;
  virtual void OnGameSvrDownstreamMsg() = 0;
};

}  // namespace quelld

// Exported entry points (unmangled). Names and types for a host's dlsym().
#define QUELLD_CREATE_PLUGIN_SYMBOL "CreateQuelldPlugin"
#define QUELLD_API_VERSION_SYMBOL "APIVersion"
#define QUELLD_PLUGIN_API_VERSION "quelld_plugin_1.0.1"

typedef quelld::Plugin* (*CreateQuelldPluginFunc)();
typedef const char* (*APIVersionFunc)();

extern "C" {
// A new plug-in object allocated with the global new; the caller owns it.
ZQ_PLUGIN_EXPORT quelld::Plugin* CreateQuelldPlugin();
// "quelld_plugin_1.0.1": the host interface version the plug-in was built against.
ZQ_PLUGIN_EXPORT const char* APIVersion();
}

#endif  // ZQ_QUELLD_PLUGIN_H_
