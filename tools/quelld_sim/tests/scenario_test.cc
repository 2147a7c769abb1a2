#include "scenario.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace quelld_sim {
namespace {

std::string ParseError(const std::string& text) {
  Scenario sc;
  std::string err;
  EXPECT_FALSE(ParseScenario(text, &sc, &err)) << text;
  return err;
}

TEST(Scenario, UsersGetDefaultsAndKeys) {
  Scenario sc;
  std::string err;
  ASSERT_TRUE(
      ParseScenario("user a\n"
                    "user b openid=x@y account_type=4099 auth_type=65535 platid=140 "
                    "world=3 channel=4 ip=1.2.3.4\n"
                    "users 300 g world=9\n",
                    &sc, &err))
      << err;
  ASSERT_EQ(sc.users.size(), 302u);
  EXPECT_STREQ(sc.users[0].client_ip, "10.0.0.1");
  const quelld::User& b = sc.users[1];
  EXPECT_STREQ(b.openid, "x@y");
  EXPECT_EQ(
      (std::vector<uint32_t>{b.account_type, b.auth_type, b.platid, b.world_id, b.channel_id}),
      (std::vector<uint32_t>{4099, 65535, 140, 3, 4}));
  EXPECT_STREQ(b.client_ip, "1.2.3.4");
  EXPECT_EQ(sc.names[301], "g299");
  EXPECT_STREQ(sc.users[301].client_ip, "10.0.1.44");  // index 299 -> address number 300
  EXPECT_EQ(sc.users[301].world_id, 9u);
}

TEST(Scenario, CommandsResolveUsersAndArguments) {
  Scenario sc;
  std::string err;
  ASSERT_TRUE(
      ParseScenario("user a\nuser b\n"
                    "login b   # comment\n"
                    "tick * 3\n"
                    "msg a hex:00ff10\n"
                    "send b size:4 2\n"
                    "sdk_result recv_anti_data -7\n"
                    "sdk_version none\n"
                    "expect sdk.fail.tick_user 0\n",
                    &sc, &err))
      << err;
  ASSERT_EQ(sc.commands.size(), 7u);
  EXPECT_EQ(sc.commands[0].op, Op::kLogin);
  EXPECT_EQ(sc.commands[0].user, 1);
  EXPECT_EQ(sc.commands[0].line, 3);
  EXPECT_EQ(sc.commands[1].user, kAllUsers);
  EXPECT_EQ(sc.commands[1].times, 3);
  EXPECT_EQ(sc.commands[2].data, std::string("\x00\xff\x10", 3));
  EXPECT_EQ(sc.commands[3].data.size(), 4u);
  EXPECT_EQ(sc.commands[3].times, 2);
  EXPECT_EQ(sc.commands[4].slot, static_cast<int>(UserSlot::kRecvAntiData));
  EXPECT_EQ(sc.commands[4].value, -7);
  EXPECT_TRUE(sc.commands[5].null_text);
  EXPECT_EQ(sc.commands[6].data, "sdk.fail.tick_user");
}

TEST(Scenario, RepeatBlocksExpandAndNest) {
  Scenario sc;
  std::string err;
  ASSERT_TRUE(
      ParseScenario("user a\n"
                    "repeat 3\n login a\n repeat 2\n  tick a\n end\n logout a\nend\n"
                    "repeat 0\n msg a x\nend\n"
                    "host_tick\n",
                    &sc, &err))
      << err;
  std::string ops;
  for (const Command& c : sc.commands) ops += "loTmsh"[static_cast<int>(c.op)];
  EXPECT_EQ(ops, "lTTolTTolTToh");
}

TEST(Scenario, ErrorsNameTheLine) {
  EXPECT_EQ(ParseError("user a\nlogin b\n"),
            "line 2: unknown user 'b' (define it with 'user' first)");
  const std::pair<const char*, const char*> cases[] = {
      {"user a\nuser a\n", "line 2: user 'a' defined twice"},
      {"user a\n\nrepeat 2\ntick a\n", "line 3: 'repeat' without 'end'"},
      {"end\n", "line 1: 'end' without 'repeat'"},
      {"dance\n", "unknown command"},
      {"user a\nmsg a hex:0g\n", "line 2: bad hex"},
      {"user a\nmsg a hex:123\n", "even number"},
      {"user a\ntick a 2 3\n", "usage"},
      {"user a ip=123.123.123.123.1234\n", "ip longer"},
      {"user a auth_type=65536\n", "auth_type"},
      {"sdk_result proc 1\n", "unknown slot"},
      {"expect users 1\n", "unknown counter"},
      {"user *\n", "cannot be a user name"},
      {"msg * size:2000000\n", "size:N"},
      {"repeat 1000000\nrepeat 1000000\nhost_tick\nend\nend\n", "more than 1000000 commands"},
  };
  for (const auto& c : cases)
    EXPECT_NE(ParseError(c.first).find(c.second), std::string::npos) << c.first;
}

TEST(Scenario, BuiltInScenarioParsesWithTheRequestedSize) {
  SimOptions o;
  o.users = 7;
  o.rounds = 4;
  o.msg_size = 9;
  o.sends = 3;
  Scenario sc;
  std::string err;
  ASSERT_TRUE(ParseScenario(DefaultScenarioText(o), &sc, &err)) << err;
  EXPECT_EQ(sc.users.size(), 9u);  // plus the two edge users
  EXPECT_EQ(strlen(sc.users[7].openid), 100u);
  long msgs = 0, sends = 0, expects = 0;
  for (const Command& c : sc.commands) {
    if (c.op == Op::kMsg && c.user == kAllUsers) {
      ++msgs;
      EXPECT_EQ(c.data.size(), 9u);
    }
    if (c.op == Op::kSend) sends += c.times;
    if (c.op == Op::kExpect) ++expects;
  }
  EXPECT_EQ(msgs, 4);
  EXPECT_EQ(sends, 3);
  EXPECT_GE(expects, 5);
}

}  // namespace
}  // namespace quelld_sim
