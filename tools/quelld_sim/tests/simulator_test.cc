// The simulator run in-process against the built plug-in and SDK test double (each test case
// runs in its own process, so one simulation per process holds).
#include "simulator.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "host.h"

namespace quelld_sim {
namespace {

class SimulatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    char tmpl[] = "/tmp/quelld_sim_test_XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    tmp_ = tmpl;
    setenv("TMPDIR", tmp_.c_str(), 1);  // the simulator's work directory goes in here
    opts_.plugin = QUELLD_SIM_BUILD_PLUGIN;
    opts_.sdk_dir = QUELLD_SIM_BUILD_SDK_DIR;
  }
  void TearDown() override { std::filesystem::remove_all(tmp_); }

  // Paths of the entries left in the temporary directory.
  std::vector<std::string> Entries() const {
    std::vector<std::string> paths;
    for (const auto& e : std::filesystem::directory_iterator(tmp_)) paths.push_back(e.path());
    return paths;
  }

  int Run(const std::string& text) {
    Scenario sc;
    std::string err;
    EXPECT_TRUE(ParseScenario(text, &sc, &err)) << err;
    out_.str("");
    errs_.str("");
    return RunSimulation(opts_, sc, out_, errs_);
  }
  bool Said(const std::string& piece) const { return out_.str().find(piece) != std::string::npos; }

  std::string tmp_;
  SimOptions opts_;
  std::ostringstream out_, errs_;
};

TEST_F(SimulatorTest, FailedExpectationFailsTheRun) {
  EXPECT_EQ(Run("user a\nlogin a\nexpect logins 2\nexpect sdk.add_user 1\nlogout a\n"),
            kExitCheckFailed);
  EXPECT_TRUE(Said("scenario line 3: expected logins = 2, got 1")) << out_.str();
  EXPECT_FALSE(Said("line 4"));
  EXPECT_TRUE(Said("quelld_sim: FAILED (1 problems)"));
  EXPECT_TRUE(Entries().empty());  // work directory removed
}

TEST_F(SimulatorTest, KeepLeavesWorkDirectoryWithLogAndChangedCopy) {
  opts_.keep = true;
  opts_.log_level = 700;
  EXPECT_EQ(Run("user a\nlogin a\nlogout a\n"), kExitOk) << out_.str() << errs_.str();
  ASSERT_EQ(Entries().size(), 1u);
  const std::string work = Entries()[0];
  std::string log, copy, orig;
  ASSERT_TRUE(ReadFile(work + "/quelld_sim.log", &log));
  EXPECT_NE(log.find("zq plugin recv user(a) login event"), std::string::npos) << log;
  EXPECT_NE(log.find("libkry_sdk.so not change.will not reload"), std::string::npos);
  ASSERT_TRUE(ReadFile(work + "/libkry_sdk.so", &copy));
  ASSERT_TRUE(ReadFile(opts_.sdk_dir + "/libkry_sdk.so", &orig));
  EXPECT_GT(copy.size(),
            orig.size());  // the reload phase changed the copy, not the build tree's file
  EXPECT_EQ(copy.compare(0, orig.size(), orig), 0);
}

TEST_F(SimulatorTest, SetupFailuresExitWithTwoAndSayWhy) {
  const std::string sdk = opts_.sdk_dir;
  const std::pair<std::pair<std::string, std::string>, std::string> cases[] = {
      {{opts_.plugin, tmp_}, "SDK library " + tmp_ + "/libkry_sdk.so: No such file or directory"},
      {{sdk + "/libkry_sdk.so", sdk}, "does not export APIVersion"},  // loadable, not a plug-in
      {{tmp_ + "/missing.so", sdk}, "plug-in " + tmp_ + "/missing.so: No such file or directory"},
  };
  for (const auto& c : cases) {
    opts_.plugin = c.first.first;
    opts_.sdk_dir = c.first.second;
    EXPECT_EQ(Run("user a\n"), kExitSetupFailed);
    EXPECT_NE(errs_.str().find(c.second), std::string::npos) << errs_.str();
  }
  EXPECT_TRUE(Entries().empty());
}

TEST_F(SimulatorTest, FailedStartShowsTheLog) {
  // A library without the SDK's symbols in the SDK's place: the plug-in's start fails.
  opts_.sdk_dir = tmp_ + "/notsdk";
  std::filesystem::create_directory(opts_.sdk_dir);
  std::filesystem::copy_file(opts_.plugin, opts_.sdk_dir + "/libkry_sdk.so");
  EXPECT_EQ(Run("user a\nlogin a\n"), kExitSetupFailed);
  EXPECT_NE(errs_.str().find("OnInit returned -1"), std::string::npos) << errs_.str();
  EXPECT_NE(errs_.str().find("kry_sdk_load_and_init_for_quelld failed,ret:-2"), std::string::npos)
      << errs_.str();
  EXPECT_FALSE(Said("summary"));
  EXPECT_EQ(Entries(), std::vector<std::string>{opts_.sdk_dir});  // the work directory is gone
}

TEST_F(SimulatorTest, HostSendFailureReachesTheSdk) {
  opts_.reload = false;
  EXPECT_EQ(Run("user a\nlogin a\nhost_send_result 5\nsend a x 3\nexpect send_failures 3\n"
                "expect host_sends 3\nlogout a\n"),
            kExitOk)
      << out_.str() << errs_.str();
  EXPECT_TRUE(Said("3 reached the host (3 bytes), 3 refused")) << out_.str();
}

TEST_F(SimulatorTest, SdkWithoutControlFunctionsSkipsDoubleOnlySteps) {
  opts_.sdk_dir = QUELLD_SIM_PLAIN_SDK_DIR;
  EXPECT_EQ(Run("user a\nlogin a\nsend a x 2\nsdk_result add_user 3\nexpect sdk.add_user 99\n"
                "expect logins 1\nlogout a\n"),
            kExitOk)
      << out_.str() << errs_.str();
  EXPECT_TRUE(Said("SDK: not the test double")) << out_.str();
  EXPECT_TRUE(Said("SDK results: not known"));
  EXPECT_TRUE(Said("skipped: 4 double-only steps"));
  EXPECT_TRUE(Said("SDK file changed: done"));
}

TEST_F(SimulatorTest, VerboseCopiesTheLogToStandardOutput) {
  opts_.verbose = true;
  opts_.reload = false;
  testing::internal::CaptureStdout();
  int rc = Run("user a\nlogin a\n");
  std::string terminal = testing::internal::GetCapturedStdout();
  EXPECT_EQ(rc, kExitOk) << out_.str() << errs_.str();
  EXPECT_NE(terminal.find("] zq plugin init success"), std::string::npos) << terminal;
  EXPECT_NE(terminal.find("] zq plugin exit success"), std::string::npos) << terminal;
}

}  // namespace
}  // namespace quelld_sim
