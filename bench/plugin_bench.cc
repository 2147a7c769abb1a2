// Cost of relaying a user login to the SDK, against a hand-written floor measured in the same run.
//
// Both sides fill the same 124-byte add-user record (bounded account copy, inet_addr, account type
// and platform from look-up tables) and call the same slot of a trivial in-process interface
// table. The plug-in additionally passes its three debug log calls, suppressed at info.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <stdlib.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>

#include "plugin_zq.h"
#include "wlog/wlog.h"

namespace {

volatile unsigned char g_sink;

KrySdkProcResult AddUser(KrySdkAntiAddUserInfo* info) {
  g_sink =
      static_cast<unsigned char>(info->account_info_.account_id_.account_[0] ^ info->client_ip_);
  return KRY_SDK_PROC_OK;
}
KrySdkProcResult DelUser(const KrySdkAntiDelUserInfo*) { return KRY_SDK_PROC_OK; }
KrySdkProcResult RecvData(KrySdkAntiRecvDataInfo*) { return KRY_SDK_PROC_OK; }
KrySdkProcResult TickUser(const KrySdkAntiTickUserInfo* info) {
  g_sink =
      static_cast<unsigned char>(info->account_info_.account_id_.account_[0] ^ info->client_ip_);
  return KRY_SDK_PROC_OK;
}

// The interface table is reached through a pointer the compiler cannot see through.
const KrySdkAntiInterf kInterf = {AddUser, DelUser, RecvData, TickUser};
const KrySdkAntiInterf* volatile g_interf = &kInterf;

// The plug-in with the in-process table attached instead of a loaded library.
class BenchPlugin : public zq::ZQPlugin {
 public:
  BenchPlugin(const KrySdkAntiInterf* interf, WLOGCATEGORYINST* log) {
    opts_.gameid = 1234;
    opts_.log = log;
    log_ = log;
    anti_interf_ = interf;
  }
};

// A logging context with one file category, window open to info: debug is suppressed.
class InfoLog {
 public:
  InfoLog() {
    char tmpl[] = "/tmp/zq_plugin_bench.XXXXXX";
    dir_ = mkdtemp(tmpl) != nullptr ? tmpl : "/tmp";
    conf_.reset(new WLOGCONF);
    std::memset(conf_.get(), 0, sizeof(WLOGCONF));
    conf_->iMagic = WLOG_CONF_MAGIC;
    conf_->iPriorityHigh = -1;
    conf_->iPriorityLow = WLOG_PRIORITY_INFO;
    conf_->iCount = 1;
    WLOGCATEGORY& cat = conf_->astCategoryList[0];
    std::snprintf(cat.szName, sizeof(cat.szName), "zq");
    cat.iPriorityHigh = -1;
    cat.iPriorityLow = -1;
    cat.stDevice.iType = WLOG_DEV_FILE;
    std::snprintf(cat.stDevice.stDevice.stFile.szPattern,
                  sizeof(cat.stDevice.stDevice.stFile.szPattern), "%s/zq.log", dir_.c_str());
    cat.stDevice.stDevice.stFile.iMaxRotate = 1;
    ctx_ = wlog_alloc();
    if (ctx_ != nullptr && wlog_init(ctx_, conf_.get()) == 0) cat_ = wlog_get_category(ctx_, "zq");
  }
  ~InfoLog() {
    if (ctx_ != nullptr && (wlog_fini(ctx_) != 0 || wlog_free(&ctx_) != 0)) {
      fprintf(stderr, "wlog teardown failed\n");
    }
    std::error_code ec;
    if (dir_ != "/tmp") std::filesystem::remove_all(dir_, ec);
  }
  WLOGCATEGORYINST* cat() const { return cat_; }

 private:
  std::string dir_;
  std::unique_ptr<WLOGCONF> conf_;
  WLOGCTX* ctx_ = nullptr;
  WLOGCATEGORYINST* cat_ = nullptr;
};

constexpr int kUsers = 8;

std::array<quelld::User, kUsers> MakeUsers() {
  std::array<quelld::User, kUsers> users;
  for (int i = 0; i < kUsers; ++i) {
    quelld::User& u = users[i];
    std::memset(&u, 0, sizeof(u));
    std::snprintf(u.openid, sizeof(u.openid), "player-%02d-0123456789ABCDEF0123456789ABCDEF", i);
    u.account_type = i % 2 == 0 ? 0x1003 : 0x1002;
    u.auth_type = i % 3 == 0 ? 0x1000 : 0x1001;
    u.platid = i % 2 == 0 ? 101 : 102;
    u.channel_id = 7;
    u.world_id = 3;
    std::snprintf(u.client_ip, sizeof(u.client_ip), "10.%d.%d.%d", i, i * 3, i * 7 + 1);
  }
  return users;
}

// Floor translations: one table entry per authentication type and per client type.
struct FloorTables {
  FloorTables() {
    auth.fill(0);  // 0 undefined, 1 group of 0x1001-0x1003/0xFFFF, 2 0x2001, else the result + 16
    auth[0x1000] = auth[0x1010] = auth[0x1009] = auth[0x1006] = KRYACCOUNT_TYPE_GOPENID + 16;
    auth[0x1005] = KRYACCOUNT_TYPE_MORVEN + 16;
    auth[0x1001] = auth[0x1002] = auth[0x1003] = auth[0xFFFF] = 1;
    auth[0x2001] = 2;
    plat.fill(KRYPLAT_ID_UNKNOWN);
    plat[0] = plat[103] = plat[104] = KRYPLAT_ID_PC_CLIENT;
    plat[101] = KRYPLAT_ID_ANDROID;
    plat[102] = KRYPLAT_ID_IOS;
    plat[110] = KRYPLAT_ID_SWITCH_CLIENT;
    plat[120] = KRYPLAT_ID_PS_CLIENT;
    plat[130] = KRYPLAT_ID_XBOX_CLIENT;
    plat[140] = ULM_SDK_PLAT_ID_HARMONY_MOBILE;
  }
  uint16_t AccountType(uint32_t acctype, uint16_t authtype) const {
    const uint16_t a = auth[authtype];
    if (a >= 16) return static_cast<uint16_t>(a - 16);
    if (a == 1) {
      return acctype == 0x1003   ? KRYACCOUNT_TYPE_MX_OPENID
             : acctype == 0x1002 ? KRYACCOUNT_TYPE_TOLVA
             : acctype == 0x2001 ? KRYACCOUNT_TYPE_VISITOR
                                 : KRYACCOUNT_TYPE_UNDEFINED;
    }
    if (a == 2) return acctype == 1 ? KRYACCOUNT_TYPE_MX : KRYACCOUNT_TYPE_UNDEFINED;
    return KRYACCOUNT_TYPE_UNDEFINED;
  }
  uint16_t Plat(uint32_t client_type) const {
    return client_type < plat.size() ? plat[client_type] : 9;
  }

  std::array<uint16_t, 65536> auth;
  std::array<uint16_t, 141> plat;
};

void FloorLogin(const FloorTables& t, const KrySdkAntiInterf* interf, uint32_t game_id,
                const quelld::User& u) {
  KrySdkAntiAddUserInfo info;
  std::memset(&info, 0, sizeof(info));
  KryAccountInfo& a = info.account_info_;
  const size_t n = strnlen(u.openid, MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN - 1);
  std::memcpy(a.account_id_.account_, u.openid, n);
  a.account_id_.account_[n] = '\0';
  a.account_id_.account_type_ = t.AccountType(u.account_type, u.auth_type);
  a.plat_id_ = t.Plat(u.platid);
  a.game_id_ = game_id;
  a.world_id_ = u.world_id;
  a.channel_id_ = u.channel_id;
  a.role_id_ = 0;
  char ip[quelld::kClientIpLen + 1];
  const size_t m = strnlen(u.client_ip, quelld::kClientIpLen);
  std::memcpy(ip, u.client_ip, m);
  ip[m] = '\0';
  info.client_ip_ = static_cast<uint32_t>(inet_addr(ip));
  info.role_name_ = "";
  info.user_ext_data_ = nullptr;
  const int ret = interf->add_user_(&info);
  if (ret != 0) std::abort();
}

void BM_LoginFloor(benchmark::State& state) {
  const FloorTables tables;
  const auto users = MakeUsers();
  int i = 0;
  for (auto _ : state) {
    FloorLogin(tables, g_interf, 1234, users[i]);
    i = (i + 1) % kUsers;
  }
}
BENCHMARK(BM_LoginFloor);

void BM_OnUserLogin_InfoLog(benchmark::State& state) {
  InfoLog log;
  if (log.cat() == nullptr) {
    state.SkipWithError("logging context failed");
    return;
  }
  BenchPlugin plugin(g_interf, log.cat());
  const auto users = MakeUsers();
  int i = 0;
  for (auto _ : state) {
    plugin.OnUserLogin(users[i]);
    i = (i + 1) % kUsers;
  }
}
BENCHMARK(BM_OnUserLogin_InfoLog);

void BM_OnUserLogin_NoLog(benchmark::State& state) {
  BenchPlugin plugin(g_interf, nullptr);
  const auto users = MakeUsers();
  int i = 0;
  for (auto _ : state) {
    plugin.OnUserLogin(users[i]);
    i = (i + 1) % kUsers;
  }
}
BENCHMARK(BM_OnUserLogin_NoLog);

void BM_OnTickUser_InfoLog(benchmark::State& state) {
  InfoLog log;
  BenchPlugin plugin(g_interf, log.cat());
  const auto users = MakeUsers();
  int i = 0;
  for (auto _ : state) {
    plugin.OnTickUser(users[i]);
    i = (i + 1) % kUsers;
  }
}
BENCHMARK(BM_OnTickUser_InfoLog);

}  // namespace

BENCHMARK_MAIN();
