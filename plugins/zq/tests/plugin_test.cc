// The plug-in object: identity, initialisation, reload, quit, version gate and logging.
#include <cstring>
#include <string>

#include "copy/quelld_shared_file.h"
#include "plugin_fixture.h"
#include "zq/kry_sdk_import.h"
#include "zq/quelld_plugin.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using zqtest::LogFile;
using zqtest::MakeOptions;
using zqtest::RunInChild;
using zqtest::SdkDouble;
using zqtest::TempDir;

bool Contains(const std::string& text, const std::string& piece) { return text.find(piece) != std::string::npos; }

size_t Count(const std::string& text, const std::string& piece) {
  size_t n = 0;
  for (size_t pos = text.find(piece); pos != std::string::npos; pos = text.find(piece, pos + 1)) ++n;
  return n;
}

TEST(Plugin, EntryPointsAndIdentity) {
  EXPECT_STREQ(APIVersion(), "quelld_plugin_1.0.1");
  quelld::Plugin* plugin = CreateQuelldPlugin();
  ASSERT_NE(plugin, nullptr);
  EXPECT_EQ(plugin->GetPluginID(), 1u);
  EXPECT_STREQ(plugin->Version(), "zqplugin_1.0.1");
  // The no-op operations do nothing in the idle state.
  plugin->OnTick();
  plugin->OnUpdate();
  plugin->OnGameSvrUpstreamMsg();
  plugin->OnGameSvrDownstreamMsg();
  auto* zq_plugin = static_cast<zq::ZQPlugin*>(plugin);
  EXPECT_FALSE(zq_plugin->loaded());
  EXPECT_EQ(zq_plugin->anti_interf(), nullptr);
  EXPECT_EQ(zq_plugin->so_md5sum(), "");
  delete plugin;
}

TEST(Plugin, InitHandsOptionsToSdk) {
  RunInChild([] {
    SdkDouble sdk;
    zq::ZQPlugin plugin;
    quelld::Options opts = MakeOptions(sdk.dir(), nullptr);
    opts.network_type = 77;        // passed through unchecked
    opts.backend_env_type = 1001;
    ASSERT_EQ(plugin.OnInit(opts), 0);
    EXPECT_TRUE(plugin.loaded());
    ASSERT_NE(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.GetPluginID(), 1u);
    EXPECT_STREQ(plugin.Version(), "zqplugin_1.0.1");
    EXPECT_EQ(sdk.call_count(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD), 1);
    EXPECT_EQ(sdk.call_count(KRY_DOUBLE_SLOT_INIT), 0);
    EXPECT_EQ(sdk.is_running(), 1);

    const auto init = sdk.LastRecord(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD);
    ASSERT_EQ(init.size(), sizeof(KrySdkInitInfo));
    KrySdkInitInfo info;
    std::memcpy(&info, init.data(), sizeof(info));
    EXPECT_EQ(info.kry_sdk_conf_dir_, nullptr);
    EXPECT_EQ(info.game_id_, 1234u);
    EXPECT_STREQ(info.auth_token_, "0123456789abcde");  // first 15 of 20 characters

    const long idx = sdk.call_count(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD) - 1;
    const auto access = sdk.Part(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, idx, KRY_DOUBLE_PART_ACCESS);
    ASSERT_EQ(access.size(), sizeof(KrySdkAccessInfo));
    KrySdkAccessInfo acc;
    std::memcpy(&acc, access.data(), sizeof(acc));
    EXPECT_EQ(static_cast<uint32_t>(acc.network_type_), 77u);
    EXPECT_EQ(static_cast<uint32_t>(acc.backend_env_type_), 1001u);
    // The texts point into the plug-in's own copy of the options, not into the caller's record.
    EXPECT_EQ(acc.data_proxy_domain_, plugin.opts().data_proxy_domain);
    EXPECT_EQ(acc.busi_proxy_domain_, plugin.opts().busi_proxy_domain);
    EXPECT_EQ(acc.test_data_proxy_domain_, plugin.opts().test_data_proxy_domain);
    EXPECT_EQ(acc.test_busi_proxy_domain_, plugin.opts().test_busi_proxy_domain);
    auto text = [&](int part) {
      const auto bytes = sdk.Part(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, idx, part);
      return std::string(bytes.begin(), bytes.end());
    };
    EXPECT_EQ(text(KRY_DOUBLE_PART_DATA_PROXY), "data.proxy:1001");
    EXPECT_EQ(text(KRY_DOUBLE_PART_BUSI_PROXY), "busi.proxy:1002");
    EXPECT_EQ(text(KRY_DOUBLE_PART_TEST_DATA_PROXY), "test.data.proxy:1003");
    EXPECT_EQ(text(KRY_DOUBLE_PART_TEST_BUSI_PROXY), "test.busi.proxy:1004");

    SharedFile lib(sdk.lib_path());
    EXPECT_EQ(plugin.so_md5sum(), lib.MD5());
    EXPECT_EQ(plugin.so_md5sum().size(), 32u);
    // The version gate is not part of initialisation.
    EXPECT_EQ(sdk.call_count(KRY_DOUBLE_SLOT_GET_SDK_INFO), 0);
    plugin.OnQuit();
  });
}

TEST(Plugin, UnterminatedOptionTextsStayInsideTheirFields) {
  RunInChild([] {
    SdkDouble sdk;
    zq::ZQPlugin plugin;
    quelld::Options opts = MakeOptions(sdk.dir(), nullptr);
    std::memset(opts.gamekey, 'k', sizeof(opts.gamekey));
    std::memset(opts.data_proxy_domain, 'd', sizeof(opts.data_proxy_domain));
    ASSERT_EQ(plugin.OnInit(opts), 0);
    const long idx = sdk.call_count(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD) - 1;
    const auto domain = sdk.Part(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, idx, KRY_DOUBLE_PART_DATA_PROXY);
    EXPECT_EQ(domain.size(), sizeof(opts.data_proxy_domain) - 1);
    KrySdkInitInfo info;
    const auto init = sdk.LastRecord(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD);
    std::memcpy(&info, init.data(), sizeof(info));
    EXPECT_STREQ(info.auth_token_, "kkkkkkkkkkkkkkk");
    plugin.OnQuit();
  });
}

TEST(Plugin, DirectoryWithoutSlashLoadsButTakesNoDigest) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_DEBUG);
    zq::ZQPlugin plugin;
    std::string dir = sdk.dir();
    dir.pop_back();  // the loader adds its own '/', the digest path does not
    ASSERT_EQ(plugin.OnInit(MakeOptions(dir, log.cat())), 0);
    EXPECT_EQ(plugin.so_md5sum(), "");
    std::filesystem::resize_file(sdk.lib_path(), std::filesystem::file_size(sdk.lib_path()) + 1);
    plugin.OnReload();
    plugin.OnReload();
    EXPECT_EQ(sdk.init_count(), 1);
    plugin.OnQuit();
    const std::string text = log.Text();
    EXPECT_TRUE(Contains(text, "INFO    |plugins/zq/plugin_zq.cc|InitKrySDK|" + dir + "libkry_sdk.so's md5sum:\n"))
        << text;
    EXPECT_EQ(Count(text, "|OnReload|libkry_sdk.so not change.will not reload\n"), 2u) << text;
  });
}

TEST(Plugin, MissingLibraryFailsInitAndQuitOnlyLogs) {
  RunInChild([] {
    TempDir empty;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_DEBUG);
    zq::ZQPlugin plugin;
    testing::internal::CaptureStderr();
    EXPECT_EQ(plugin.OnInit(MakeOptions(empty.slashed(), log.cat())), -1);
    // The loader adds its own separator to the directory that already ends with one.
    EXPECT_TRUE(Contains(testing::internal::GetCapturedStderr(),
                         "Open shared lib " + empty.path() + "//libkry_sdk.so failed, "));
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.so_md5sum(), "");
    CaptureStdout();
    plugin.OnQuit();  // the loader is not called without a loaded SDK
    std::fflush(stdout);
    EXPECT_EQ(GetCapturedStdout(), "");
    const std::string text = log.Text();
    EXPECT_TRUE(Contains(text, "ERROR   |plugins/zq/plugin_zq.cc|LoadKrySDK|kry_sdk_load_and_init_for_quelld failed,ret:-1\n"))
        << text;
    EXPECT_FALSE(Contains(text, "md5sum")) << text;
    EXPECT_TRUE(Contains(text, "INFO    |plugins/zq/plugin_zq.cc|QuitKrySDK|zq plugin exit success\n")) << text;
  });
}

TEST(Plugin, RefusedInterfaceUnloadsButKeepsDigest) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_INFO);
    sdk.set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 1);
    zq::ZQPlugin plugin;
    CaptureStdout();
    EXPECT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), -1);
    std::fflush(stdout);
    EXPECT_EQ(GetCapturedStdout(), "Unload KRY SDK OK.\n");
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.so_md5sum(), SharedFile(sdk.lib_path()).MD5());
    EXPECT_EQ(sdk.quit_count(), 1);

    // Same file: no retry. A changed file: retried, and this time the interface is given.
    plugin.OnReload();
    EXPECT_EQ(sdk.init_count(), 1);
    sdk.set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 0);
    std::filesystem::resize_file(sdk.lib_path(), std::filesystem::file_size(sdk.lib_path()) + 1);
    plugin.OnReload();
    EXPECT_EQ(sdk.init_count(), 2);
    EXPECT_TRUE(plugin.loaded());
    EXPECT_NE(plugin.anti_interf(), nullptr);

    plugin.OnQuit();
    const std::string text = log.Text();
    EXPECT_TRUE(Contains(text, "ERROR   |plugins/zq/plugin_zq.cc|InitKrySDK|KRY_SDK_GET_ANTI_INTERF failed\n")) << text;
    EXPECT_EQ(Count(text, "libkry_sdk.so not change.will not reload\n"), 1u) << text;
    EXPECT_EQ(Count(text, "|InitKrySDK|zq plugin init success\n"), 1u) << text;
    EXPECT_EQ(Count(text, "|QuitKrySDK|zq plugin exit success\n"), 2u) << text;  // reload and quit
  });
}

TEST(Plugin, SecondInitIsRefusedButReplacesOptions) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    const KrySdkAntiInterf* interf = plugin.anti_interf();
    quelld::Options second = MakeOptions(sdk.dir(), log.cat());
    second.gameid = 999;
    second.send_cob = nullptr;
    EXPECT_EQ(plugin.OnInit(second), -1);
    EXPECT_EQ(plugin.opts().gameid, 999u);
    EXPECT_EQ(zq::g_send_msg_cob, nullptr);
    EXPECT_TRUE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), interf);
    EXPECT_EQ(sdk.init_count(), 1);
    EXPECT_EQ(sdk.is_running(), 1);
    plugin.OnQuit();
    EXPECT_TRUE(Contains(log.Text(), "ERROR   |plugins/zq/plugin_zq.cc|LoadKrySDK|already loaded\n"));
  });
}

TEST(Plugin, QuitReleasesSdkAndLogs) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    const std::string md5 = plugin.so_md5sum();
    CaptureStdout();
    plugin.OnQuit();
    std::fflush(stdout);
    EXPECT_EQ(GetCapturedStdout(), "Unload KRY SDK OK.\n");
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.so_md5sum(), md5);  // kept
    EXPECT_EQ(sdk.quit_count(), 1);
    EXPECT_EQ(sdk.is_running(), 0);
    // A second quit does not reach the loader but still logs.
    CaptureStdout();
    plugin.OnQuit();
    std::fflush(stdout);
    EXPECT_EQ(GetCapturedStdout(), "");
    EXPECT_EQ(sdk.quit_count(), 1);
    const std::string text = log.Text();
    EXPECT_TRUE(Contains(text, "INFO    |plugins/zq/plugin_zq.cc|InitKrySDK|zq plugin init success\n")) << text;
    EXPECT_EQ(Count(text, "INFO    |plugins/zq/plugin_zq.cc|QuitKrySDK|zq plugin exit success\n"), 2u) << text;
  });
}

TEST(Plugin, DeleteWithoutQuitLeavesSdkLoaded) {
  RunInChild([] {
    SdkDouble sdk;
    quelld::Plugin* plugin = CreateQuelldPlugin();
    ASSERT_EQ(plugin->OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    delete plugin;
    EXPECT_EQ(sdk.quit_count(), 0);
    EXPECT_EQ(sdk.is_running(), 1);
    EXPECT_NE(kry_sdk_get_busi_interf("kry_sdk_get_sdk_info", nullptr), nullptr);
  });
}

TEST(Plugin, ReloadRestartsOnlyWhenTheFileChanges) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    const std::string first_md5 = plugin.so_md5sum();
    const KrySdkAntiInterf* interf = plugin.anti_interf();

    plugin.OnReload();  // unchanged
    EXPECT_EQ(sdk.init_count(), 1);
    EXPECT_EQ(sdk.quit_count(), 0);
    EXPECT_EQ(plugin.anti_interf(), interf);

    std::filesystem::resize_file(sdk.lib_path(), std::filesystem::file_size(sdk.lib_path()) + 16);
    plugin.OnReload();  // changed: quit, then init again on the handle kept by the loader
    EXPECT_EQ(sdk.quit_count(), 1);
    EXPECT_EQ(sdk.init_count(), 2);
    EXPECT_TRUE(plugin.loaded());
    EXPECT_NE(plugin.anti_interf(), nullptr);
    EXPECT_NE(plugin.so_md5sum(), first_md5);
    EXPECT_EQ(plugin.so_md5sum(), SharedFile(sdk.lib_path()).MD5());

    // A failing restart leaves the plug-in idle; a later change retries.
    sdk.set_result(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 5);
    std::filesystem::resize_file(sdk.lib_path(), std::filesystem::file_size(sdk.lib_path()) + 16);
    plugin.OnReload();
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    sdk.set_result(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0);
    std::filesystem::resize_file(sdk.lib_path(), std::filesystem::file_size(sdk.lib_path()) + 16);
    plugin.OnReload();
    EXPECT_TRUE(plugin.loaded());
    EXPECT_EQ(plugin.so_md5sum(), SharedFile(sdk.lib_path()).MD5());

    plugin.OnQuit();
    const std::string text = log.Text();
    EXPECT_EQ(Count(text, "libkry_sdk.so not change.will not reload\n"), 1u) << text;
    EXPECT_EQ(Count(text, "zq plugin init success\n"), 3u) << text;
    EXPECT_TRUE(Contains(text, "kry_sdk_load_and_init_for_quelld failed,ret:5\n")) << text;
  });
}

TEST(VersionGate, AcceptsVersionsNoOlderThanMinimum) {
  RunInChild([] {
    SdkDouble sdk;
    TempDir logs;
    LogFile log(logs.path(), WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    EXPECT_FALSE(plugin.SDKVersionOK());  // nothing loaded yet (and no log before OnInit)
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    struct Case {
      const char* version;
      bool ok;
    } cases[] = {{"1.8.4", true},  {"1.8.4.9", true}, {"1.10.0", true}, {"2.x.0", true},
                 {"1.8.4rc", true}, {"1.8.3", false},  {"1.8", false},   {"", false},
                 {"0.9.9", false}, {"1.7.99", false}};
    for (const Case& c : cases) {
      sdk.set_version(c.version);
      EXPECT_EQ(plugin.SDKVersionOK(), c.ok) << c.version;
    }
    sdk.set_version(nullptr);
    EXPECT_FALSE(plugin.SDKVersionOK());
    sdk.set_result(KRY_DOUBLE_SLOT_GET_SDK_INFO, 1);
    EXPECT_FALSE(plugin.SDKVersionOK());
    EXPECT_TRUE(plugin.loaded());  // refusals leave the SDK running

    plugin.OnQuit();
    const std::string text = log.Text();
    EXPECT_TRUE(Contains(text, "INFO    |plugins/zq/plugin_zq.cc|SDKVersionOK|krysdk version:1.8.4\n")) << text;
    EXPECT_TRUE(Contains(text, "|SDKVersionOK|krysdk version:1.10.0\n")) << text;
    EXPECT_TRUE(Contains(text, "ERROR   |plugins/zq/plugin_zq.cc|SDKVersionOK|invalid krysdk version:1.8.3.must great than 1.8.4\n"))
        << text;
    EXPECT_TRUE(Contains(text, "|invalid krysdk version:1.8.must great than 1.8.4\n")) << text;
    EXPECT_TRUE(Contains(text, "|invalid krysdk version:.must great than 1.8.4\n")) << text;
    EXPECT_TRUE(Contains(text, "ERROR   |plugins/zq/plugin_zq.cc|SDKVersionOK|version is None\n")) << text;
    EXPECT_TRUE(Contains(text, "ERROR   |plugins/zq/plugin_zq.cc|SDKVersionOK|missing get version symbol\n")) << text;
  });
}

TEST(VersionGate, SplitAndCompare) {
  using V = std::vector<std::string>;
  EXPECT_EQ(zq::StringSplit("1.8.4", "."), (V{"1", "8", "4"}));
  EXPECT_EQ(zq::StringSplit("1..4", "."), (V{"1", "", "4"}));
  EXPECT_EQ(zq::StringSplit(".1", "."), (V{"", "1"}));
  EXPECT_EQ(zq::StringSplit("1.", "."), (V{"1", ""}));
  EXPECT_EQ(zq::StringSplit("", "."), V{});
  EXPECT_EQ(zq::StringSplit("abc", "."), V{"abc"});
  EXPECT_EQ(zq::StringSplit("a::b::", "::"), (V{"a", "b", ""}));
  EXPECT_EQ(zq::StringSplit("abc", ""), V{});  // unsupported delimiter: no pieces, no hang

  EXPECT_EQ(zq::CompareVersion(V{"1", "10", "0"}, V{"1", "8", "4"}, 3), 1);
  EXPECT_EQ(zq::CompareVersion(V{"1", "8", "3"}, V{"1", "8", "4"}, 3), -1);
  EXPECT_EQ(zq::CompareVersion(V{"1", "8", "4rc1"}, V{"1", "8", "4"}, 3), 0);
  EXPECT_EQ(zq::CompareVersion(V{"x", "8", "4"}, V{"0", "8", "4"}, 3), 0);
  EXPECT_EQ(zq::CompareVersion(V{" -2", "0", "0"}, V{"-3", "0", "0"}, 3), 1);
  EXPECT_EQ(zq::CompareVersion(V{"1", "9"}, V{"1", "8"}, 1), 0);
  EXPECT_EQ(zq::CompareVersion(V{"1"}, V{"2"}, 0), 0);
  EXPECT_EQ(zq::CompareVersion(V{"1"}, V{"1", "2"}, 3), -1);  // short vector: missing parts are 0
  // The numbers are cut to 32 bits: 4294967297 counts as 1.
  EXPECT_EQ(zq::CompareVersion(V{"4294967297"}, V{"1"}, 1), 0);
}

}  // namespace
