// User event relay, translation tables and the SDK's send path.
#include <cstring>
#include <string>
#include <vector>

#include "plugin_fixture.h"

namespace {

using namespace zqtest;  // NOLINT: the fixture's helpers

void Put(Bytes& b, size_t off, uint64_t v, size_t width) {
  for (size_t i = 0; i < width; ++i) b.at(off + i) = static_cast<unsigned char>(v >> (8 * i));
}

// A record of `size` bytes whose 100-byte account part is laid out by hand from the field offsets
// (game 1234, world 5, channel 77, role id 0, reserved bytes 0).
Bytes Record(size_t size, const std::string& account, uint16_t acctype, uint16_t plat) {
  Bytes b(size, 0);
  std::memcpy(b.data(), account.data(), account.size());
  Put(b, 65, acctype, 2);
  Put(b, 67, plat, 2);
  Put(b, 69, 1234, 4);
  Put(b, 73, 5, 4);
  Put(b, 77, 77, 4);
  return b;
}

Bytes Slice(const Bytes& b, size_t from, size_t to) {
  return Bytes(b.begin() + from, b.begin() + to);
}

TEST(Translate, AccountTypeAndPlatformTables) {
  zq::ZQPlugin plugin;
  const struct {
    uint32_t acctype;
    uint16_t authtype;
    int expected;
  } rows[] = {
      {0, 0x1000, 8},          {0x1003, 0x1010, 8}, {1, 0x1009, 8},      {1, 0x1006, 8},
      {0x1003, 0x1005, 301},   {0x1003, 0x1001, 4}, {0x1003, 0x1002, 4}, {0x1003, 0x1003, 4},
      {0x1003, 0xFFFF, 4},     {0x1002, 0x1001, 2}, {0x2001, 0xFFFF, 7}, {1, 0x1001, 9},
      {0, 0xFFFF, 9},          {1, 0x2001, 1},      {2, 0x2001, 9},      {0x1003, 0x2001, 9},
      {1, 0x1011, 9},          {0x1003, 0xFFFE, 9}, {1, 0x1004, 9},      {1, 0x1020, 9},
      {0xFFFFFFFF, 0x1007, 9}, {1, 0, 9},
  };
  for (const auto& r : rows) {
    EXPECT_EQ(static_cast<int>(plugin.TranslateAccountType(r.acctype, r.authtype)), r.expected)
        << "acctype " << r.acctype << " authtype " << r.authtype;
  }
  const std::pair<uint32_t, int> plats[] = {{0, 3},   {101, 1}, {102, 0},       {103, 3},  {104, 3},
                                            {110, 6}, {120, 7}, {130, 8},       {140, 12}, {105, 9},
                                            {1, 9},   {100, 9}, {0xFFFFFFFF, 9}};
  for (const auto& p : plats)
    EXPECT_EQ(static_cast<int>(plugin.TranslatePlatID(p.first)), p.second) << p.first;
}

// Records byte for byte, the same with logging on as without (the send path test runs without),
// then the event and failure log lines.
TEST(Relay, RecordsByteForByteAndLogLines) {
  RunInChild([] {
    SdkDouble sdk;
    LogFile log;
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    const std::string openid(100, 'u');
    const quelld::User user = MakeUser(openid, 0x1003, 0xFFFF, 101, "127.0.0.1");
    plugin.OnUserLogin(user);
    plugin.OnTickUser(user);
    Bytes expected = Record(124, openid.substr(0, 64), 4, 1);
    Put(expected, 100, 0x000000000100007Full, 8);
    for (int slot : {KRY_DOUBLE_SLOT_ADD_USER, KRY_DOUBLE_SLOT_TICK_USER}) {
      ASSERT_EQ(kry_double_call_count(slot), 1);
      const Bytes got = Part(slot);
      ASSERT_EQ(got.size(), 124u);
      EXPECT_EQ(Slice(got, 0, 108), Slice(expected, 0, 108)) << "slot " << slot;
      EXPECT_EQ(Slice(got, 116, 124), Bytes(8, 0)) << "no extension record";
      EXPECT_EQ(kry_double_record(slot, 0, KRY_DOUBLE_PART_ROLE_NAME, nullptr, 0), 0)
          << "empty text, not null";
    }

    const quelld::User other = MakeUser("player-1", 1, 0x2001, 140, "10.1.2.3");
    plugin.OnUserLogout(other);
    EXPECT_EQ(Part(KRY_DOUBLE_SLOT_DEL_USER), Record(108, "player-1", 1, 12));
    const char payload[] = "\x01\x02security\x00data";
    plugin.OnPluginMsg(other, 42, "client-ext", 10, payload, sizeof(payload));
    plugin.OnPluginMsg(other, 43, nullptr, 0, nullptr, 0);
    ASSERT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_RECV_ANTI_DATA), 2);
    const Bytes recv = Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 0);
    ASSERT_EQ(recv.size(), 120u);
    Bytes head = Record(104, "player-1", 1, 12);
    Put(head, 100, sizeof(payload), 4);
    EXPECT_EQ(Slice(recv, 0, 104), head);
    EXPECT_EQ(Slice(recv, 112, 120), Bytes(8, 0)) << "the client's extension data is not passed on";
    EXPECT_EQ(Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 0, KRY_DOUBLE_PART_ANTI_DATA),
              Bytes(payload, payload + sizeof(payload)));
    // An empty message still reaches the SDK, with length 0.
    EXPECT_EQ(Slice(Part(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 1), 100, 112), Bytes(12, 0));

    // Host texts without their NUL: the account is cut at 64, the address is not one.
    quelld::User raw = MakeUser("", 0, 0, 0, "");
    std::memset(raw.openid, 'o', sizeof(raw.openid));
    std::memset(raw.client_ip, '1', sizeof(raw.client_ip));
    plugin.OnUserLogin(raw);
    Bytes unterminated = Record(124, std::string(64, 'o'), 9, 3);
    Put(unterminated, 100, 0xFFFFFFFFull, 8);
    EXPECT_EQ(Slice(Part(KRY_DOUBLE_SLOT_ADD_USER), 0, 108), Slice(unterminated, 0, 108));

    const std::pair<int, int> results[] = {{KRY_DOUBLE_SLOT_ADD_USER, 1},
                                           {KRY_DOUBLE_SLOT_DEL_USER, 2},
                                           {KRY_DOUBLE_SLOT_TICK_USER, 3},
                                           {KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 2}};
    for (const auto& r : results) kry_double_set_result(r.first, r.second);
    const quelld::User a = MakeUser("alpha", 0x1002, 0x1001, 102, "bad-ip");
    plugin.OnUserLogin(a);
    plugin.OnTickUser(a);
    plugin.OnPluginMsg(a, 7, "e", 1, "data", 4);
    plugin.OnUserLogout(a);
    EXPECT_EQ(Part(KRY_DOUBLE_SLOT_DEL_USER), Record(108, "alpha", 2, 0));
    plugin.OnQuit();
    const std::string text = log.Text();
    ExpectLines(text, {Line("DEBUG", "OnUserLogin", "zq plugin recv user(alpha) login event"),
                       Line("DEBUG", "OnUserLogout", "zq plugin recv user(alpha) logout event"),
                       Line("DEBUG", "OnTickUser",
                            "zq plugin recv user(alpha) tick event,report heartbeat"),
                       Line("DEBUG", "OnPluginMsg", "zq plugin OnPluginMsg"),
                       Line("DEBUG", "TranslateAccountType",
                            "(acctype:4098,authtype:4097) trans to zq_acctype(2)"),
                       Line("DEBUG", "TranslatePlatID", "(client_type:102) trans to zq_platid(0)"),
                       Line("ERROR", "OnUserLogin", "add user failed,ret:1"),
                       Line("ERROR", "OnTickUser", "tick user failed,ret:3"),
                       Line("ERROR", "OnPluginMsg", "recv_anti_data_ failed,ret:2"),
                       Line("ERROR", "OnUserLogout", "del user failed,ret:2")});
    // The event's own line comes first, then the two translation lines: two per event.
    EXPECT_LT(text.find("user(alpha) login event"), text.find("(acctype:4098"));
    EXPECT_EQ(Count(text, "trans to zq_"), 20u);
  });
}

TEST(SendPath, ForwardsSdkDataToHost) {
  RunInChild([] {
    const KrySdkAntiSendDataInfo unused = {};
    EXPECT_EQ(zq::SendDataToClientCob(&unused), KRY_SDK_PROC_FAIL);  // before any init
    EXPECT_EQ(g_last_send, "");

    SdkDouble sdk;
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    EXPECT_EQ(kry_double_send_to_client("player-9", "abc\0def", 7), KRY_SDK_PROC_OK);
    EXPECT_EQ(g_last_send, std::string("player-9|1|0|-|abc\0def", 22));
    EXPECT_EQ(kry_double_send_to_client_ext("player-9", "ext", 3, "z", 1), KRY_SDK_PROC_OK);
    EXPECT_EQ(g_last_send, "player-9|1|0|ext|z");
    g_send_answer = -1;
    EXPECT_EQ(kry_double_send_to_client("player-9", "x", 1), KRY_SDK_PROC_FAIL);
    EXPECT_EQ(g_last_send, "player-9|1|0|-|x");

    // An account text without its NUL is cut at 64 characters.
    KrySdkAntiSendDataInfo info;
    std::memset(&info, 'a', sizeof(info.account_info_));
    info.anti_data_ = "q";
    info.anti_data_len_ = 1;
    info.user_ext_data_ = nullptr;
    g_send_answer = 0;
    EXPECT_EQ(zq::SendDataToClientCob(&info), KRY_SDK_PROC_OK);
    EXPECT_EQ(g_last_send, std::string(64, 'a') + "|1|0|-|q");
    // Extension data said to be longer than its field is cut to the field.
    KrySdkUserExtData ext;
    std::memset(ext.user_ext_data_, 'x', sizeof(ext.user_ext_data_));
    ext.ext_data_len_ = MAX_KRY_USER_EXT_DATA_LEN + 5;
    info.user_ext_data_ = &ext;
    EXPECT_EQ(zq::SendDataToClientCob(&info), KRY_SDK_PROC_OK);
    EXPECT_EQ(g_last_send, std::string(64, 'a') + "|1|0|" + std::string(1024, 'x') + "|q");
    EXPECT_EQ(zq::SendDataToClientCob(nullptr), KRY_SDK_PROC_INVALID_ARG);
    plugin.OnQuit();
  });
}

}  // namespace
