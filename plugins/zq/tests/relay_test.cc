// User event relay, translation tables and the SDK's send path.
#include <cstring>
#include <string>
#include <vector>

#include "plugin_fixture.h"

namespace {

using zqtest::LogFile;
using zqtest::MakeOptions;
using zqtest::MakeUser;
using zqtest::RunInChild;
using zqtest::SdkDouble;
using zqtest::Sent;
using zqtest::TempDir;

using Bytes = std::vector<unsigned char>;

void Put(Bytes& b, size_t off, uint64_t v, size_t width) {
  for (size_t i = 0; i < width; ++i) b.at(off + i) = static_cast<unsigned char>(v >> (8 * i));
}

// The 100-byte account part, laid out by hand from the field offsets.
Bytes AccountBytes(const std::string& account, uint16_t acctype, uint16_t plat, uint32_t game, uint32_t world,
                   uint32_t channel) {
  Bytes b(100, 0);
  std::memcpy(b.data(), account.data(), account.size());  // NUL and rest of the 65 bytes stay 0
  Put(b, 65, acctype, 2);
  Put(b, 67, plat, 2);
  Put(b, 69, game, 4);
  Put(b, 73, world, 4);
  Put(b, 77, channel, 4);
  Put(b, 81, 0, 8);  // role id; 89..99 reserved
  return b;
}

Bytes Slice(const Bytes& b, size_t from, size_t to) { return Bytes(b.begin() + from, b.begin() + to); }

TEST(Translate, AccountTypeTable) {
  zq::ZQPlugin plugin;
  struct Row {
    uint32_t acctype;
    uint16_t authtype;
    int expected;
  } rows[] = {
      {0, 0x1000, 8},      {0x1003, 0x1010, 8}, {1, 0x1009, 8},      {1, 0x1006, 8},
      {0x1003, 0x1005, 301}, {0x1003, 0x1001, 4}, {0x1003, 0x1002, 4}, {0x1003, 0x1003, 4},
      {0x1003, 0xFFFF, 4}, {0x1002, 0x1001, 2}, {0x1002, 0xFFFF, 2}, {0x2001, 0x1003, 7},
      {0x2001, 0xFFFF, 7}, {1, 0x1001, 9},      {0, 0xFFFF, 9},      {1, 0x2001, 1},
      {2, 0x2001, 9},      {0x1003, 0x2001, 9}, {1, 0x1011, 9},      {0x1003, 0xFFFE, 9},
      {1, 0x1004, 9},      {1, 0x1000 | 0x20, 9}, {1, 0, 9},         {0xFFFFFFFF, 0x1007, 9},
  };
  for (const Row& r : rows) {
    EXPECT_EQ(static_cast<int>(plugin.TranslateAccountType(r.acctype, r.authtype)), r.expected)
        << "acctype " << r.acctype << " authtype " << r.authtype;
  }
}

TEST(Translate, PlatformTable) {
  zq::ZQPlugin plugin;
  const std::pair<uint32_t, int> rows[] = {{0, 3},   {101, 1}, {102, 0}, {103, 3},  {104, 3},
                                           {110, 6}, {120, 7}, {130, 8}, {140, 12}, {105, 9},
                                           {1, 9},   {100, 9}, {111, 9}, {0xFFFFFFFF, 9}};
  for (const auto& r : rows) EXPECT_EQ(static_cast<int>(plugin.TranslatePlatID(r.first)), r.second) << r.first;
}

TEST(Relay, LoginAndTickRecordsByteForByte) {
  RunInChild([] {
    SdkDouble sdk;
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    const std::string openid(100, 'u');
    const quelld::User user = MakeUser(openid, 0x1003, 0xFFFF, 101, "127.0.0.1");
    plugin.OnUserLogin(user);
    plugin.OnTickUser(user);

    Bytes expected = AccountBytes(openid.substr(0, 64), 4, 1, 1234, 5, 77);
    expected.resize(124, 0);
    Put(expected, 100, 0x000000000100007Full, 8);
    for (int slot : {KRY_DOUBLE_SLOT_ADD_USER, KRY_DOUBLE_SLOT_TICK_USER}) {
      ASSERT_EQ(sdk.call_count(slot), 1);
      const Bytes got = sdk.LastRecord(slot);
      ASSERT_EQ(got.size(), 124u);
      EXPECT_EQ(Slice(got, 0, 108), Slice(expected, 0, 108)) << "slot " << slot;
      EXPECT_EQ(Slice(got, 116, 124), Bytes(8, 0)) << "no extension record";
      bool present = false;
      EXPECT_EQ(sdk.Part(slot, 0, KRY_DOUBLE_PART_ROLE_NAME, &present), Bytes{});
      EXPECT_TRUE(present) << "role name is the empty text, not null";
    }
    plugin.OnQuit();
  });
}

TEST(Relay, LogoutAndMessageRecordsByteForByte) {
  RunInChild([] {
    SdkDouble sdk;
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    const quelld::User user = MakeUser("player-1", 1, 0x2001, 140, "10.1.2.3");
    plugin.OnUserLogout(user);
    const char payload[] = "\x01\x02security\x00data";
    const char ext[] = "client-ext";
    plugin.OnPluginMsg(user, 42, ext, sizeof(ext), payload, sizeof(payload));
    plugin.OnPluginMsg(user, 43, nullptr, 0, nullptr, 0);

    const Bytes account = AccountBytes("player-1", 1, 12, 1234, 5, 77);
    Bytes del = account;
    del.resize(108, 0);
    EXPECT_EQ(sdk.LastRecord(KRY_DOUBLE_SLOT_DEL_USER), del);

    ASSERT_EQ(sdk.call_count(KRY_DOUBLE_SLOT_RECV_ANTI_DATA), 2);
    const Bytes recv = sdk.Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 0, KRY_DOUBLE_PART_RECORD);
    ASSERT_EQ(recv.size(), 120u);
    EXPECT_EQ(Slice(recv, 0, 100), account);
    Bytes len(4, 0);
    Put(len, 0, sizeof(payload), 4);
    EXPECT_EQ(Slice(recv, 100, 104), len);
    EXPECT_EQ(Slice(recv, 112, 120), Bytes(8, 0)) << "the client's extension data is not passed on";
    EXPECT_EQ(sdk.Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 0, KRY_DOUBLE_PART_ANTI_DATA),
              Bytes(payload, payload + sizeof(payload)));
    bool present = true;
    sdk.Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 0, KRY_DOUBLE_PART_USER_EXT, &present);
    EXPECT_FALSE(present);

    // Empty message still reaches the SDK, with length 0.
    const Bytes empty = sdk.Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 1, KRY_DOUBLE_PART_RECORD);
    EXPECT_EQ(Slice(empty, 100, 112), Bytes(12, 0));
    plugin.OnQuit();
  });
}

TEST(Relay, UnterminatedHostTextsAreBounded) {
  RunInChild([] {
    SdkDouble sdk;
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    quelld::User user = MakeUser("", 0, 0, 0, "");
    std::memset(user.openid, 'o', sizeof(user.openid));
    std::memset(user.client_ip, '1', sizeof(user.client_ip));
    plugin.OnUserLogin(user);
    const Bytes got = sdk.LastRecord(KRY_DOUBLE_SLOT_ADD_USER);
    ASSERT_EQ(got.size(), 124u);
    EXPECT_EQ(Slice(got, 0, 65), [] {
      Bytes b(65, 'o');
      b[64] = 0;
      return b;
    }());
    Bytes invalid(8, 0);
    Put(invalid, 0, 0xFFFFFFFFull, 8);  // not an address
    EXPECT_EQ(Slice(got, 100, 108), invalid);
    plugin.OnQuit();
  });
}

TEST(Relay, SdkFailuresAreLogged) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    sdk.set_result(KRY_DOUBLE_SLOT_ADD_USER, 1);
    sdk.set_result(KRY_DOUBLE_SLOT_DEL_USER, 2);
    sdk.set_result(KRY_DOUBLE_SLOT_TICK_USER, 3);
    sdk.set_result(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 2);
    const quelld::User user = MakeUser("p", 0, 0x1000, 0, "1.2.3.4");
    plugin.OnUserLogin(user);
    plugin.OnTickUser(user);
    plugin.OnPluginMsg(user, 1, nullptr, 0, "x", 1);
    plugin.OnUserLogout(user);
    plugin.OnQuit();
    const std::string text = log.Text();
    const std::string at = "ERROR   |plugins/zq/plugin_zq.cc|";
    EXPECT_NE(text.find(at + "OnUserLogin|add user failed,ret:1\n"), std::string::npos) << text;
    EXPECT_NE(text.find(at + "OnTickUser|tick user failed,ret:3\n"), std::string::npos) << text;
    EXPECT_NE(text.find(at + "OnPluginMsg|recv_anti_data_ failed,ret:2\n"), std::string::npos) << text;
    EXPECT_NE(text.find(at + "OnUserLogout|del user failed,ret:2\n"), std::string::npos) << text;
    EXPECT_EQ(text.find("DEBUG"), std::string::npos) << "debug is below the window";
  });
}

// Runs one fixed sequence of events and returns every record the SDK received.
std::vector<Bytes> Traffic(WLOGCATEGORYINST* log, SdkDouble& sdk) {
  zq::ZQPlugin plugin;
  EXPECT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log)), 0);
  const quelld::User a = MakeUser("alpha", 0x1002, 0x1001, 102, "192.168.0.1");
  const quelld::User b = MakeUser("beta", 1, 0x2001, 130, "bad-ip");
  plugin.OnUserLogin(a);
  plugin.OnUserLogin(b);
  plugin.OnTickUser(a);
  plugin.OnPluginMsg(b, 7, "e", 1, "data", 4);
  plugin.OnUserLogout(a);
  std::vector<Bytes> records;
  for (int slot = KRY_DOUBLE_SLOT_ADD_USER; slot <= KRY_DOUBLE_SLOT_TICK_USER; ++slot) {
    for (long i = 0; i < sdk.call_count(slot); ++i) records.push_back(sdk.Part(slot, i, KRY_DOUBLE_PART_RECORD));
  }
  plugin.OnQuit();
  return records;
}

TEST(Relay, LoggingDoesNotChangeSdkTraffic) {
  RunInChild([] {
    SdkDouble sdk;
    const std::vector<Bytes> quiet = Traffic(nullptr, sdk);
    sdk.reset();
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_DEBUG);
    const std::vector<Bytes> logged = Traffic(log.cat(), sdk);
    ASSERT_EQ(quiet.size(), 5u);
    // The receive record carries a pointer to the caller's data; compare everything else.
    for (size_t i = 0; i < quiet.size(); ++i) {
      const size_t n = quiet[i].size();
      if (n == 120) {
        EXPECT_EQ(Slice(quiet[i], 0, 104), Slice(logged[i], 0, 104)) << i;
      } else {
        EXPECT_EQ(Slice(quiet[i], 0, std::min<size_t>(n, 108)), Slice(logged[i], 0, std::min<size_t>(n, 108))) << i;
      }
    }
    const std::string text = log.Text();
    const std::string at = "DEBUG   |plugins/zq/plugin_zq.cc|";
    EXPECT_NE(text.find(at + "OnUserLogin|zq plugin recv user(alpha) login event\n"), std::string::npos) << text;
    EXPECT_NE(text.find(at + "OnUserLogout|zq plugin recv user(alpha) logout event\n"), std::string::npos);
    EXPECT_NE(text.find(at + "OnTickUser|zq plugin recv user(alpha) tick event,report heartbeat\n"), std::string::npos);
    EXPECT_NE(text.find(at + "OnPluginMsg|zq plugin OnPluginMsg\n"), std::string::npos);
    EXPECT_NE(text.find(at + "TranslateAccountType|(acctype:4098,authtype:4097) trans to zq_acctype(2)\n"),
              std::string::npos);
    EXPECT_NE(text.find(at + "TranslatePlatID|(client_type:130) trans to zq_platid(8)\n"), std::string::npos);
    // Every event logs its own line and the two translation lines.
    size_t translations = 0;
    for (size_t p = text.find("trans to zq_"); p != std::string::npos; p = text.find("trans to zq_", p + 1)) {
      ++translations;
    }
    EXPECT_EQ(translations, 10u);
  });
}

TEST(SendPath, ForwardsSdkDataToHost) {
  RunInChild([] {
    const KrySdkAntiSendDataInfo unused = {};
    EXPECT_EQ(zq::SendDataToClientCob(&unused), KRY_SDK_PROC_FAIL);  // before any init
    EXPECT_EQ(Sent().calls, 0);

    SdkDouble sdk;
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    EXPECT_EQ(sdk.send_to_client("player-9", "abc\0def", 7), KRY_SDK_PROC_OK);
    EXPECT_EQ(Sent().calls, 1);
    EXPECT_EQ(Sent().account, "player-9");
    EXPECT_EQ(Sent().arg1, 1u);
    EXPECT_EQ(Sent().arg2, 0u);
    EXPECT_TRUE(Sent().ext_null);
    EXPECT_EQ(Sent().data, std::string("abc\0def", 7));

    EXPECT_EQ(sdk.send_to_client_ext("player-9", "ext", 3, "z", 1), KRY_SDK_PROC_OK);
    EXPECT_FALSE(Sent().ext_null);
    EXPECT_EQ(Sent().ext, "ext");

    Sent().answer = -1;
    EXPECT_EQ(sdk.send_to_client("player-9", "x", 1), KRY_SDK_PROC_FAIL);
    EXPECT_EQ(Sent().calls, 3);

    // An account text without its NUL is cut at 64 characters.
    Sent().answer = 0;
    KrySdkAntiSendDataInfo info;
    std::memset(&info, 'a', sizeof(info.account_info_));
    info.anti_data_ = "q";
    info.anti_data_len_ = 1;
    info.user_ext_data_ = nullptr;
    EXPECT_EQ(zq::SendDataToClientCob(&info), KRY_SDK_PROC_OK);
    EXPECT_EQ(Sent().account, std::string(64, 'a'));
    EXPECT_EQ(zq::SendDataToClientCob(nullptr), KRY_SDK_PROC_INVALID_ARG);
    plugin.OnQuit();
  });
}

}  // namespace
