#include "sim_options.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <string>
#include <vector>

namespace quelld_sim {
namespace {

bool Parse(SimOptions* o, std::vector<const char*> args, std::string* err) {
  args.insert(args.begin(), "quelld_sim");
  return ParseArgs(o, static_cast<int>(args.size()), args.data(), err);
}

std::string TempFile(const std::string& content) {
  char path[] = "/tmp/quelld_sim_opts_XXXXXX";
  int fd = mkstemp(path);
  EXPECT_GE(fd, 0);
  close(fd);
  std::ofstream(path) << content;
  return path;
}

TEST(SimOptions, FlagsOverrideConfigFileWhereverItIsGiven) {
  std::string cfg = TempFile(
      "# host settings\n gameid = 77 \nusers=5\nverbose = yes\n"
      "data-proxy = cfg.proxy:1 # trailing comment\n");
  SimOptions o;
  std::string err;
  ASSERT_TRUE(Parse(&o, {"--users", "9", "--config", cfg.c_str(), "--no-verbose"}, &err)) << err;
  EXPECT_EQ(o.gameid, 77u);
  EXPECT_EQ(o.users, 9);
  EXPECT_FALSE(o.verbose);
  EXPECT_EQ(o.data_proxy, "cfg.proxy:1");
  unlink(cfg.c_str());
}

TEST(SimOptions, FlagFormsAndLogLevels) {
  SimOptions o;
  std::string err;
  ASSERT_TRUE(Parse(&o,
                    {"--gamekey=k=v", "--no-verify", "--keep", "--log-level", "debug",
                     "--network_type", "0x10", "--reload=off"},
                    &err))
      << err;
  EXPECT_EQ(o.gamekey, "k=v");
  EXPECT_FALSE(o.verify);
  EXPECT_TRUE(o.keep);
  EXPECT_EQ(o.log_level, 700);
  EXPECT_EQ(o.network_type, 16u);
  EXPECT_FALSE(o.reload);
  int level = 0;
  EXPECT_TRUE(ParseLogLevel("ERROR", &level));
  EXPECT_EQ(level, 300);
  EXPECT_TRUE(ParseLogLevel("650", &level));
  EXPECT_EQ(level, 650);
  EXPECT_FALSE(ParseLogLevel("1001", &level));
  EXPECT_FALSE(ParseLogLevel("", &level));
}

TEST(SimOptions, BadInputIsRefusedWithAMessage) {
  struct Case {
    std::vector<const char*> args;
    const char* says;
  } cases[] = {
      {{"--users", "12x"}, "users"},
      {{"--gameid", "4294967296"}, "gameid"},
      {{"--colour", "red"}, "unknown setting"},
      {{"--users"}, "needs a value"},
      {{"stray"}, "unexpected argument"},
      {{"--log-level", "LOUD"}, "priority"},
      {{"--verbose=maybe"}, "verbose"},
      {{"--gamekey", "0123456789012345678901234567890123456789012345678901234567890123"},
       "longer than 63"},
      {{"--config", "/nonexistent/quelld_sim.cfg"}, "cannot read"},
  };
  for (const Case& c : cases) {
    SimOptions o;
    std::string err;
    EXPECT_FALSE(Parse(&o, c.args, &err)) << c.args[0];
    EXPECT_NE(err.find(c.says), std::string::npos) << err;
  }
}

TEST(SimOptions, ConfigTextReportsTheLine) {
  SimOptions o;
  std::string err;
  EXPECT_FALSE(LoadConfigText(&o, "users = 3\n\njust words\n", &err));
  EXPECT_NE(err.find("line 3"), std::string::npos) << err;
  EXPECT_FALSE(LoadConfigText(&o, "config = other.cfg\n", &err));
  EXPECT_EQ(o.users, 3);
}

}  // namespace
}  // namespace quelld_sim
