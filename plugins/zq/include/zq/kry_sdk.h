// Binary interface of the anti-cheat security SDK, libkry_sdk.so (x86-64 layout).
//
// The SDK is a closed library loaded at run time; every record here is exchanged with it by
// address and must match byte for byte. Sizes and offsets are checked below.
//
// Ownership: records handed to the SDK are valid only for the duration of the call; the SDK copies
// what it keeps. Text pointers in the start-up records point into the caller's own storage, which
// outlives the SDK. Results of SDK calls are KrySdkProcResult values; nothing throws.
#ifndef ZQ_KRY_SDK_H_
#define ZQ_KRY_SDK_H_

#include <cstddef>
#include <cstdint>

typedef char KRY_TCHAR;

#define MAX_KRY_AUTH_TOKEN_LEN 16
#define MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN 65
#define MAX_KRY_ACCOUNT_INFO_RESERVE_LEN 11
#define MAX_KRY_USER_EXT_DATA_LEN 1024

// Library file name pieces: <dir>/libkry_sdk.so
#define KRY_SDK_LIB_BASE_NAME "libkry_sdk"
#define KRY_SDK_LIB_EXT_NAME "so"

// Names of the symbols the SDK exports.
#define KRY_SDK_INIT_WITH_ACCESS_INFO_INTERF "kry_sdk_init_with_access_info_interf"
#define KRY_SDK_INIT_WITH_ACCESS_INFO_AND_PROC_INTERF \
  "kry_sdk_init_with_access_info_and_proc_interf"
#define KRY_SDK_INIT_WITH_ACCESS_INFO_FOR_QUELLD_INTERF \
  "kry_sdk_init_with_access_info_for_quelld_interf"
#define KRY_SDK_RELEASE_BUSI_INTERF "kry_sdk_release_busi_interf"
#define KRY_SDK_GET_ANTI_INTERF "kry_sdk_get_anti_interf"
#define KRY_SDK_GET_SDK_INFO "kry_sdk_get_sdk_info"

// Fixed underlying types: values outside the named ones pass through unchanged.
enum KrySdkProcResult : int32_t {
  KRY_SDK_PROC_OK = 0,
  KRY_SDK_PROC_INVALID_ARG = 1,
  KRY_SDK_PROC_INTERNAL_ERR = 2,
  KRY_SDK_PROC_FAIL = 3,
};

enum KrySdkNetworkType : uint32_t {
  KRY_SDK_HALDOR_IDC_NETWORK = 0,
  KRY_SDK_NON_HALDOR_IDC_NETWORK = 1,
};

enum KrySdkBackendEnvironmentType : uint32_t {
  KRY_SDK_UNDEFINED_ENVIRONMENT = 0,
  KRY_SDK_TEST_ENVIRONMENT = 101,
  KRY_SDK_PRODUCT_ENVIRONMENT = 1001,
};

// Account types as the SDK knows them (stored as uint16 in KryAccountId::account_type_).
enum KryAccountType : uint16_t {
  KRYACCOUNT_TYPE_MX = 1,
  KRYACCOUNT_TYPE_TOLVA = 2,
  KRYACCOUNT_TYPE_BAIDU = 3,
  KRYACCOUNT_TYPE_MX_OPENID = 4,
  KRYACCOUNT_TYPE_MX_FAKE = 5,
  KRYACCOUNT_TYPE_MB_OPENID = 6,
  KRYACCOUNT_TYPE_VISITOR = 7,
  KRYACCOUNT_TYPE_GOPENID = 8,
  KRYACCOUNT_TYPE_UNDEFINED = 9,
  KRYACCOUNT_TYPE_MAIL_START = 100,
  KRYACCOUNT_TYPE_GOOGLE = 101,
  KRYACCOUNT_TYPE_MAIL_END = 199,
  KRYACCOUNT_TYPE_INT_START = 200,
  KRYACCOUNT_TYPE_4399 = 201,
  KRYACCOUNT_TYPE_GARENA = 202,
  KRYACCOUNT_TYPE_INT_END = 299,
  KRYACCOUNT_TYPE_INT64_START = 300,
  KRYACCOUNT_TYPE_MORVEN = 301,
  KRYACCOUNT_TYPE_STEAM = 302,
  KRYACCOUNT_TYPE_MORVEN_COMMON_ID = 308,
  KRYACCOUNT_TYPE_INT64_END = 399,
  KRYACCOUNT_TYPE_OTHER_START = 1000,
  KRYACCOUNT_TYPE_FACEBOOK = 1001,
  KRYACCOUNT_TYPE_SUPERCELL = 1002,
};

// Client platforms as the SDK knows them (stored as uint16 in KryAccountInfo::plat_id_).
enum KryAccountPlatId : uint16_t {
  KRYPLAT_ID_IOS = 0,
  KRYPLAT_ID_ANDROID = 1,
  KRYPLAT_ID_RESERVE = 2,
  KRYPLAT_ID_PC_CLIENT = 3,
  KRYPLAT_ID_MICRO_WEB = 4,
  KRYPLAT_ID_MICRO_CLIENT = 5,
  KRYPLAT_ID_SWITCH_CLIENT = 6,
  KRYPLAT_ID_PS_CLIENT = 7,
  KRYPLAT_ID_XBOX_CLIENT = 8,
  KRYPLAT_ID_UNKNOWN = 9,
  ULM_SDK_PLAT_ID_HARMONY_MOBILE = 12,
};

// ---- Start-up records (natural alignment) ----

struct KrySdkInitInfo {
  const KRY_TCHAR* kry_sdk_conf_dir_;  // null: no configuration directory
  uint32_t game_id_;
  char auth_token_[MAX_KRY_AUTH_TOKEN_LEN];  // NUL-terminated, at most 15 characters
};

struct KrySdkAccessInfo {
  KrySdkNetworkType network_type_;
  KrySdkBackendEnvironmentType backend_env_type_;
  const KRY_TCHAR* data_proxy_domain_;
  const KRY_TCHAR* busi_proxy_domain_;
  const KRY_TCHAR* test_data_proxy_domain_;
  const KRY_TCHAR* test_busi_proxy_domain_;
};

typedef int (*KrySdkProc)(void);

// Result of the initialiser that also hands out a processing function.
struct KrySdkBusiInterf {
  KrySdkProc proc_;
  int init_ret_;
};

// Version query: request and interface returned for KRY_SDK_GET_SDK_INFO.
struct KrySdkGetSdkInfoInitData {
  uint32_t reserved_;  // sent as 0
};

struct KrySdkGetSdkInfoInterf {
  const char* (*get_sdk_version_info_)(void);  // version text such as "1.8.4", or null
};

// ---- Per-user records (packed, 1-byte alignment) ----
#pragma pack(push, 1)

struct KryAccountId {
  char account_[MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN];  // NUL-terminated account text
  uint16_t account_type_;                           // KryAccountType
};

struct KryAccountInfo {
  KryAccountId account_id_;
  uint16_t plat_id_;  // KryAccountPlatId
  uint32_t game_id_;
  uint32_t world_id_;
  uint32_t channel_id_;
  uint64_t role_id_;
  char reserve_buf_[MAX_KRY_ACCOUNT_INFO_RESERVE_LEN];
};

struct KrySdkUserExtData {
  char user_ext_data_[MAX_KRY_USER_EXT_DATA_LEN];
  uint32_t ext_data_len_;
};

struct KrySdkAntiAddUserInfo {
  KryAccountInfo account_info_;
  uint64_t client_ip_;  // IPv4 address, low 32 bits in network byte order
  const char* role_name_;
  KrySdkUserExtData* user_ext_data_;
};

struct KrySdkAntiDelUserInfo {
  KryAccountInfo account_info_;
  KrySdkUserExtData* user_ext_data_;
};

struct KrySdkAntiTickUserInfo {
  KryAccountInfo account_info_;
  uint64_t client_ip_;
  const char* role_name_;
  KrySdkUserExtData* user_ext_data_;
};

struct KrySdkAntiRecvDataInfo {
  KryAccountInfo account_info_;
  uint32_t anti_data_len_;
  const char* anti_data_;
  KrySdkUserExtData* user_ext_data_;
};

// Filled by the SDK when it has data for a client.
struct KrySdkAntiSendDataInfo {
  KryAccountInfo account_info_;
  uint32_t anti_data_len_;
  const char* anti_data_;
  KrySdkUserExtData* user_ext_data_;
};

#pragma pack(pop)

// ---- Anti-cheat interface ----

typedef KrySdkProcResult (*KrySdkAntiSendDataToClient)(const KrySdkAntiSendDataInfo* anti_data);

// Request passed to KRY_SDK_GET_ANTI_INTERF.
struct KrySdkAntiInitInfo {
  KrySdkAntiSendDataToClient send_data_to_client_;
};

// Table returned for KRY_SDK_GET_ANTI_INTERF. Field order is binding.
struct KrySdkAntiInterf {
  KrySdkProcResult (*add_user_)(KrySdkAntiAddUserInfo* info);
  KrySdkProcResult (*del_user_)(const KrySdkAntiDelUserInfo* info);
  KrySdkProcResult (*recv_anti_data_)(KrySdkAntiRecvDataInfo* info);
  KrySdkProcResult (*tick_user_)(const KrySdkAntiTickUserInfo* info);
};

// ---- Types of the SDK's exported functions ----

typedef int (*KrySdkInitWithAccessInfoInterf)(const KrySdkInitInfo* init_info,
                                              const KrySdkAccessInfo* access_info);
typedef const KrySdkBusiInterf* (*KrySdkInitWithAccessInfoAndProcInterf)(
    const KrySdkInitInfo* init_info, const KrySdkAccessInfo* access_info);
typedef KrySdkInitWithAccessInfoInterf KrySdkInitWithAccessInfoForQuelldInterf;
typedef int (*KrySdkReleaseBusiInterf)(void);
// Every business-interface symbol (KRY_SDK_GET_ANTI_INTERF, KRY_SDK_GET_SDK_INFO, ...).
typedef const void* (*KrySdkGetInterf)(const void* data);

// Prototypes of the SDK's exports, for an implementation of the SDK to define.
extern "C" {
int kry_sdk_init_with_access_info_interf(const KrySdkInitInfo* init_info,
                                         const KrySdkAccessInfo* access_info);
const KrySdkBusiInterf* kry_sdk_init_with_access_info_and_proc_interf(
    const KrySdkInitInfo* init_info, const KrySdkAccessInfo* access_info);
int kry_sdk_init_with_access_info_for_quelld_interf(const KrySdkInitInfo* init_info,
                                                    const KrySdkAccessInfo* access_info);
int kry_sdk_release_busi_interf(void);
// data: const KrySdkAntiInitInfo*; result: const KrySdkAntiInterf*.
const void* kry_sdk_get_anti_interf(const void* data);
// data: const KrySdkGetSdkInfoInitData*; result: const KrySdkGetSdkInfoInterf*.
const void* kry_sdk_get_sdk_info(const void* data);
}

// ---- Layout checks ----
static_assert(sizeof(KRY_TCHAR) == 1, "KRY_TCHAR");
static_assert(sizeof(KrySdkProcResult) == 4 && sizeof(KrySdkNetworkType) == 4 &&
                  sizeof(KrySdkBackendEnvironmentType) == 4,
              "enum sizes");

static_assert(offsetof(KrySdkInitInfo, game_id_) == 8, "KrySdkInitInfo");
static_assert(offsetof(KrySdkInitInfo, auth_token_) == 8 + 4, "KrySdkInitInfo");
static_assert(sizeof(KrySdkInitInfo) == 8 + 4 + MAX_KRY_AUTH_TOKEN_LEN + 4, "KrySdkInitInfo");

static_assert(offsetof(KrySdkAccessInfo, backend_env_type_) == 4, "KrySdkAccessInfo");
static_assert(offsetof(KrySdkAccessInfo, data_proxy_domain_) == 4 + 4, "KrySdkAccessInfo");
static_assert(offsetof(KrySdkAccessInfo, busi_proxy_domain_) == 4 + 4 + 8, "KrySdkAccessInfo");
static_assert(offsetof(KrySdkAccessInfo, test_data_proxy_domain_) == 4 + 4 + 2 * 8,
              "KrySdkAccessInfo");
static_assert(offsetof(KrySdkAccessInfo, test_busi_proxy_domain_) == 4 + 4 + 3 * 8,
              "KrySdkAccessInfo");
static_assert(sizeof(KrySdkAccessInfo) == 4 + 4 + 4 * 8, "KrySdkAccessInfo");

static_assert(offsetof(KrySdkBusiInterf, init_ret_) == 8, "KrySdkBusiInterf");
static_assert(sizeof(KrySdkGetSdkInfoInitData) == 4, "KrySdkGetSdkInfoInitData");
static_assert(sizeof(KrySdkAntiInitInfo) == 8, "KrySdkAntiInitInfo");
static_assert(offsetof(KrySdkAntiInterf, add_user_) == 0 &&
                  offsetof(KrySdkAntiInterf, del_user_) == 8 &&
                  offsetof(KrySdkAntiInterf, recv_anti_data_) == 16 &&
                  offsetof(KrySdkAntiInterf, tick_user_) == 24 && sizeof(KrySdkAntiInterf) == 4 * 8,
              "KrySdkAntiInterf");

static_assert(offsetof(KryAccountId, account_type_) == MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN,
              "KryAccountId");
static_assert(sizeof(KryAccountId) == MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN + 2, "KryAccountId");

static_assert(offsetof(KryAccountInfo, plat_id_) == 67, "KryAccountInfo");
static_assert(offsetof(KryAccountInfo, game_id_) == 67 + 2, "KryAccountInfo");
static_assert(offsetof(KryAccountInfo, world_id_) == 67 + 2 + 4, "KryAccountInfo");
static_assert(offsetof(KryAccountInfo, channel_id_) == 67 + 2 + 2 * 4, "KryAccountInfo");
static_assert(offsetof(KryAccountInfo, role_id_) == 67 + 2 + 3 * 4, "KryAccountInfo");
static_assert(offsetof(KryAccountInfo, reserve_buf_) == 67 + 2 + 3 * 4 + 8, "KryAccountInfo");
static_assert(sizeof(KryAccountInfo) == 67 + 2 + 3 * 4 + 8 + MAX_KRY_ACCOUNT_INFO_RESERVE_LEN &&
                  sizeof(KryAccountInfo) == 100,
              "KryAccountInfo");

static_assert(offsetof(KrySdkUserExtData, ext_data_len_) == MAX_KRY_USER_EXT_DATA_LEN,
              "KrySdkUserExtData");
static_assert(sizeof(KrySdkUserExtData) == MAX_KRY_USER_EXT_DATA_LEN + 4, "KrySdkUserExtData");

static_assert(offsetof(KrySdkAntiAddUserInfo, client_ip_) == 100, "KrySdkAntiAddUserInfo");
static_assert(offsetof(KrySdkAntiAddUserInfo, role_name_) == 100 + 8, "KrySdkAntiAddUserInfo");
static_assert(offsetof(KrySdkAntiAddUserInfo, user_ext_data_) == 100 + 8 + 8,
              "KrySdkAntiAddUserInfo");
static_assert(sizeof(KrySdkAntiAddUserInfo) == 100 + 8 + 8 + 8 &&
                  sizeof(KrySdkAntiAddUserInfo) == 124,
              "KrySdkAntiAddUserInfo");

static_assert(offsetof(KrySdkAntiDelUserInfo, user_ext_data_) == 100, "KrySdkAntiDelUserInfo");
static_assert(sizeof(KrySdkAntiDelUserInfo) == 100 + 8, "KrySdkAntiDelUserInfo");

static_assert(offsetof(KrySdkAntiTickUserInfo, client_ip_) == 100, "KrySdkAntiTickUserInfo");
static_assert(offsetof(KrySdkAntiTickUserInfo, role_name_) == 100 + 8, "KrySdkAntiTickUserInfo");
static_assert(offsetof(KrySdkAntiTickUserInfo, user_ext_data_) == 100 + 8 + 8,
              "KrySdkAntiTickUserInfo");
static_assert(sizeof(KrySdkAntiTickUserInfo) == 124, "KrySdkAntiTickUserInfo");

static_assert(offsetof(KrySdkAntiRecvDataInfo, anti_data_len_) == 100, "KrySdkAntiRecvDataInfo");
static_assert(offsetof(KrySdkAntiRecvDataInfo, anti_data_) == 100 + 4, "KrySdkAntiRecvDataInfo");
static_assert(offsetof(KrySdkAntiRecvDataInfo, user_ext_data_) == 100 + 4 + 8,
              "KrySdkAntiRecvDataInfo");
static_assert(sizeof(KrySdkAntiRecvDataInfo) == 100 + 4 + 8 + 8, "KrySdkAntiRecvDataInfo");

static_assert(offsetof(KrySdkAntiSendDataInfo, anti_data_len_) == 100, "KrySdkAntiSendDataInfo");
static_assert(offsetof(KrySdkAntiSendDataInfo, anti_data_) == 100 + 4, "KrySdkAntiSendDataInfo");
static_assert(offsetof(KrySdkAntiSendDataInfo, user_ext_data_) == 100 + 4 + 8,
              "KrySdkAntiSendDataInfo");
static_assert(sizeof(KrySdkAntiSendDataInfo) == 120, "KrySdkAntiSendDataInfo");

#endif  // ZQ_KRY_SDK_H_
