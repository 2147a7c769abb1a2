#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

#include "sim_options.h"

namespace quelld_sim {
namespace {

bool Parse(SimOptions* o, std::vector<const char*> args, std::string* err) {
  args.insert(args.begin(), "quelld_sim");
  return ParseArgs(o, static_cast<int>(args.size()), args.data(), err);
}

TEST(SimOptions, FlagsOverrideConfigFileWhereverItIsGiven) {
  char path[] = "/tmp/quelld_sim_opts_XXXXXX";
  const int fd = mkstemp(path);
  ASSERT_GE(fd, 0);
  close(fd);
  std::ofstream(path) << "# host settings\n gameid = 0x4D \nusers=5\nverbose = yes\n"
                         "gamekey = \"key#with \\\"quotes\\\"\"   # a comment after quotes\n"
                         "data-proxy = cfg.proxy:1 # trailing comment\n";
  SimOptions o;
  std::string err;
  const bool ok = Parse(&o, {"--users", "9", "--config", path, "--no-verbose"}, &err);
  unlink(path);
  ASSERT_TRUE(ok) << err;
  EXPECT_EQ(o.gameid, 77u);
  EXPECT_EQ(o.users, 9);
  EXPECT_FALSE(o.verbose);
  EXPECT_EQ(o.gamekey, "key#with \"quotes\"");
  EXPECT_EQ(o.data_proxy, "cfg.proxy:1");
}

TEST(SimOptions, NumbersAreDecimalAndIdsMayBeHex) {
  SimOptions o;
  std::string err;
  ASSERT_TRUE(
      Parse(&o,
            {"--gamekey=k=v", "--no-verify", "--keep", "--log-level", "debug", "--network_type",
             "0X1f", "--gameid", "010", "--rounds", "08", "--reload=off", "--json", "out.json"},
            &err))
      << err;
  EXPECT_EQ(o.gamekey, "k=v");
  EXPECT_FALSE(o.verify);
  EXPECT_TRUE(o.keep);
  EXPECT_EQ(o.log_level, 700);
  EXPECT_EQ(o.network_type, 31u);
  EXPECT_EQ(o.gameid, 10u);
  EXPECT_EQ(o.rounds, 8);
  EXPECT_FALSE(o.reload);
  EXPECT_EQ(o.json, "out.json");
  int level = 0;
  EXPECT_TRUE(ParseLogLevel("650", &level));
  EXPECT_EQ(level, 650);
  EXPECT_FALSE(ParseLogLevel("1001", &level));
  EXPECT_FALSE(ParseLogLevel("0x10", &level));
}

TEST(SimOptions, BadInputIsRefusedWithAMessage) {
  const std::pair<std::vector<const char*>, const char*> cases[] = {
      {{"--users", "12x"}, "--users: expected a number from 1 to 100000, got '12x'"},
      {{"--gameid", "4294967296"}, "--gameid: expected an unsigned 32-bit number"},
      {{"--gameid", "0x"}, "--gameid"},
      {{"--colour", "red"}, "unknown option --colour (see quelld_sim --help)"},
      {{"--no-users"}, "unknown option --no-users"},
      {{"-x"}, "unknown option -x"},
      {{"--users"}, "--users needs a value"},
      {{"stray"}, "unexpected argument 'stray'"},
      {{"--log-level", "LOUD"}, "unknown priority 'LOUD'"},
      {{"--verbose=maybe"}, "--verbose: expected 1/0"},
      {{"--gamekey", "0123456789012345678901234567890123456789012345678901234567890123"},
       "longer than 63"},
  };
  for (const auto& c : cases) {
    SimOptions o;
    std::string err;
    const bool ok = Parse(&o, c.first, &err);
    EXPECT_EQ(ok, c.second[0] == '\0') << c.first[0];
    EXPECT_NE(err.find(c.second), std::string::npos) << err;
  }
}

TEST(SimOptions, ConfigTextErrorsNameTheLine) {
  const std::pair<const char*, const char*> cases[] = {
      {"users = 3\n\njust words\n", "line 3: expected key = value, got 'just words'"},
      {"config = other.cfg\n", "line 1: a configuration file cannot include another"},
      {"colour = red\n", "line 1: unknown setting 'colour' (quelld_sim --help lists them)"},
      {"gamekey = \"open\n", "line 1: a quote is not closed"},
      {"gamekey = \"a\" b\n", "line 1: gamekey: a quoted value must be followed by nothing"},
      {"users = \x01\n", "users: expected a number from 1 to 100000, got '\\x01'"},
  };
  for (const auto& c : cases) {
    SimOptions o;
    std::string err;
    EXPECT_FALSE(LoadConfigText(&o, c.first, &err)) << c.first;
    EXPECT_NE(err.find(c.second), std::string::npos) << err;
  }
}

}  // namespace
}  // namespace quelld_sim
