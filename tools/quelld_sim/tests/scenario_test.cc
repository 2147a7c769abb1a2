#include "scenario.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace quelld_sim {
namespace {

Scenario Parsed(const std::string& text) {
  Scenario sc;
  std::string err;
  EXPECT_TRUE(ParseScenario(text, &sc, &err)) << err;
  return sc;
}

// The commands in playing order, one letter each.
std::string Played(const Scenario& sc) {
  std::string ops;
  PlayProgram(sc, [&](const Command& c) {
    ops += "loTmsh"[static_cast<int>(c.op)];
    return true;
  });
  return ops;
}

TEST(Scenario, UsersGetDefaultsAndKeys) {
  const Scenario sc = Parsed(
      "user a\n"
      "user b openid=\"x y#z\" account_type=4099 auth_type=0xFFFF platid=0x8C world=03 "
      "channel=4 ip=1.2.3.4\n"
      "users 300 g world=9\n");
  ASSERT_EQ(sc.users.size(), 302u);
  EXPECT_STREQ(sc.users[0].client_ip, "10.0.0.1");
  const quelld::User& b = sc.users[1];
  EXPECT_STREQ(b.openid, "x y#z");
  EXPECT_EQ(
      (std::vector<uint32_t>{b.account_type, b.auth_type, b.platid, b.world_id, b.channel_id}),
      (std::vector<uint32_t>{4099, 65535, 140, 3, 4}));
  EXPECT_STREQ(b.client_ip, "1.2.3.4");
  EXPECT_EQ(sc.names[301], "g299");
  EXPECT_STREQ(sc.users[301].client_ip, "10.0.1.44");  // index 299 -> address number 300
  EXPECT_EQ(sc.users[301].world_id, 9u);
}

TEST(Scenario, CommandsCarryTheirArguments) {
  const Scenario sc = Parsed(
      "user a\nuser \"b c\"\n"
      "login \"b c\"   # comment\n"
      "tick * 010\n"
      "msg a hex:00ff10\n"
      "send \"b c\" size:4 2\n"
      "msg a \"hex:00 #x\"\n"
      "sdk_result recv_anti_data -7\n"
      "sdk_version none\nsdk_version \"none\"\n"
      "expect sdk.fail.tick_user 0\n");
  const std::vector<Command>& p = sc.program;
  ASSERT_EQ(p.size(), 9u);
  EXPECT_EQ(p[0].op, Op::kLogin);
  EXPECT_EQ(p[0].user, 1);
  EXPECT_EQ(p[0].line, 3);
  EXPECT_EQ(p[1].user, kAllUsers);
  EXPECT_EQ(p[1].times, 10);
  EXPECT_EQ(CommandData(p[2]), std::string("\x00\xff\x10", 3));
  EXPECT_EQ(CommandData(p[3]), std::string_view(GeneratedData(), 4));
  EXPECT_EQ(p[3].times, 2);
  EXPECT_EQ(CommandData(p[4]), "hex:00 #x");  // a quoted word is always text
  EXPECT_EQ(p[5].slot, static_cast<int>(UserSlot::kRecvAntiData));
  EXPECT_EQ(p[5].value, -7);
  EXPECT_TRUE(p[6].null_text);
  EXPECT_FALSE(p[7].null_text);
  EXPECT_EQ(p[7].data, "none");
  EXPECT_EQ(p[8].data, "sdk.fail.tick_user");
}

TEST(Scenario, RepeatBlocksPlayInOrderAndAreCostedBeforeTheRun) {
  const Scenario sc = Parsed(
      "users 2 u\n"
      "repeat 3\n login u0\n repeat 2\n  tick * 5\n end\n logout u0\nend\n"
      "repeat 0\n msg u0 x\nend\n"
      "repeat 4\nend\n"
      "msg * size:100 3\n"
      "host_tick\n");
  EXPECT_EQ(Played(sc), "lTTolTTolTTomh");
  EXPECT_EQ(sc.cost.events, 3 * (1 + 2 * 10 + 1) + 6 + 1u);
  EXPECT_EQ(sc.cost.bytes, 600u);
  // Lines run: repeat 1, its body 3 x (login, repeat, logout, end) + 6 x (tick, end), repeat 0
  // once, repeat 4 once and its end 4 times, msg, host_tick.
  EXPECT_EQ(sc.cost.steps, 1 + 12 + 12 + 1 + 1 + 4 + 2u);
}

TEST(Scenario, ErrorsNameTheLineAndShowTextSafely) {
  const std::pair<const char*, const char*> cases[] = {
      {"user a\nlogin b\n", "line 2: unknown user 'b' (define it with 'user' first)"},
      {"user a\nuser a\n", "line 2: user 'a' defined twice"},
      {"user a\n\nrepeat 2\ntick a\n", "line 3: 'repeat' without 'end'"},
      {"end\n", "line 1: 'end' without 'repeat'"},
      {"dance\x7f\n", "line 1: unknown command 'dance\\x7F'"},
      {"user a\nmsg a hex:0g\n", "line 2: bad hex digit in 'hex:0g'"},
      {"user a\nmsg a hex:123\n", "even number"},
      {"user a\nmsg a \"open\n", "line 2: a quote is not closed"},
      {"user a\ntick a 2 3\n", "usage: tick WHO [TIMES]"},
      {"user a\ntick a 0x10\n", "TIMES must be a number from 0 to 1048576, got '0x10'"},
      {"user a ip=123.123.123.123.1234\n", "ip longer than 19 characters"},
      {"user a auth_type=65536\n", "auth_type: expected a number from 0 to 65535"},
      {"sdk_result proc 1\n", "unknown slot 'proc'"},
      {"expect users 1\n", "unknown counter 'users'"},
      {"user *\n", "'*' cannot be a user name"},
      {"user a\nmsg * size:2000000\n", "size:N needs N from 0 to 1048576"},
      {"users 150000 a\nusers 60000 b\n", "line 2: more than 200000 users"},
      {"repeat 10000\nrepeat 10001\nend\nend\n",
       "line 3: by this line the scenario plays 100020001 commands"},
  };
  for (const auto& c : cases) {
    Scenario sc;
    std::string err;
    const bool ok = ParseScenario(c.first, &sc, &err);
    EXPECT_EQ(ok, c.second[0] == '\0') << c.first;
    EXPECT_NE(err.find(c.second), std::string::npos) << c.first << ": " << err;
  }
}

TEST(Scenario, BuiltInScenarioParsesWithTheRequestedSize) {
  SimOptions o;
  o.users = 7;
  o.rounds = 4;
  o.msg_size = 9;
  o.sends = 3;
  const Scenario sc = Parsed(DefaultScenarioText(o));
  EXPECT_EQ(sc.users.size(), 9u);  // plus the two edge users
  EXPECT_EQ(strlen(sc.users[7].openid), 100u);
  // 9 logins, 4 rounds of 9 ticks and 9 messages, 9 x 3 sends, 1 message, 1 login, 9 logouts and
  // 4 host ticks.
  EXPECT_EQ(sc.cost.events, 9 + 4 * 18 + 27 + 1 + 1 + 9 + 4u);
  EXPECT_EQ(sc.cost.bytes, 4 * 9 * 9 + 27 * 32u);
}

}  // namespace
}  // namespace quelld_sim
