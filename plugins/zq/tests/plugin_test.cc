// The plug-in object: initialisation, reload, quit, version gate and their log lines.
#include <string>

#include "copy/quelld_shared_file.h"
#include "plugin_fixture.h"
#include "zq/kry_sdk_import.h"

namespace {

using namespace zqtest;  // NOLINT: the fixture's helpers

constexpr int kInit = KRY_DOUBLE_SLOT_INIT_FOR_QUELLD;
const std::string kNoChange = Line("INFO", "OnReload", "libkry_sdk.so not change.will not reload");

TEST(Plugin, InitHandsOptionsToSdkAndQuitReleasesIt) {
  RunInChild([] {
    SdkDouble sdk;
    LogFile log(WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    ASSERT_NE(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.GetPluginID(), 1u);
    EXPECT_STREQ(plugin.Version(), "zqplugin_1.0.1");
    EXPECT_EQ(kry_double_call_count(kInit), 1);
    EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_INIT), 0);
    EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_GET_SDK_INFO), 0)
        << "the version gate is not part of init";

    const auto info = As<KrySdkInitInfo>(Part(kInit));
    EXPECT_EQ(info.kry_sdk_conf_dir_, nullptr);
    EXPECT_EQ(info.game_id_, 1234u);
    EXPECT_STREQ(info.auth_token_, "0123456789abcde");  // the key's first 15 characters
    const auto acc = As<KrySdkAccessInfo>(Part(kInit, -1, KRY_DOUBLE_PART_ACCESS));
    EXPECT_EQ(static_cast<uint32_t>(acc.network_type_), 77u);
    EXPECT_EQ(static_cast<uint32_t>(acc.backend_env_type_), 1001u);
    // The texts point into the plug-in's own copy of the options, which stays terminated.
    EXPECT_EQ(acc.data_proxy_domain_, plugin.opts().data_proxy_domain);
    EXPECT_EQ(acc.busi_proxy_domain_, plugin.opts().busi_proxy_domain);
    EXPECT_EQ(acc.test_data_proxy_domain_, plugin.opts().test_data_proxy_domain);
    EXPECT_EQ(acc.test_busi_proxy_domain_, plugin.opts().test_busi_proxy_domain);
    EXPECT_EQ(Text(kInit, KRY_DOUBLE_PART_DATA_PROXY), std::string(511, 'd'));
    EXPECT_EQ(Text(kInit, KRY_DOUBLE_PART_BUSI_PROXY), "busi.proxy:1002");
    EXPECT_EQ(Text(kInit, KRY_DOUBLE_PART_TEST_DATA_PROXY), "test.data.proxy:1003");
    EXPECT_EQ(Text(kInit, KRY_DOUBLE_PART_TEST_BUSI_PROXY), "test.busi.proxy:1004");
    const std::string md5 = SharedFile(sdk.lib_path()).MD5();
    EXPECT_EQ(plugin.so_md5sum(), md5);

    // A second init is refused in the load step, after the options and the send callback changed.
    const KrySdkAntiInterf* interf = plugin.anti_interf();
    quelld::Options second = MakeOptions(sdk.dir(), log.cat());
    second.gameid = 999;
    second.send_cob = nullptr;
    EXPECT_EQ(plugin.OnInit(second), -1);
    EXPECT_EQ(plugin.opts().gameid, 999u);
    EXPECT_EQ(zq::g_send_msg_cob, nullptr);
    EXPECT_EQ(plugin.anti_interf(), interf);
    EXPECT_EQ(kry_double_init_count(), 1);

    EXPECT_EQ(StdoutOf([&] { plugin.OnQuit(); }), "Unload KRY SDK OK.\n");
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.so_md5sum(), md5);
    EXPECT_EQ(kry_double_is_running(), 0);
    // No longer loaded: the loader is not called, the exit is still logged.
    EXPECT_EQ(StdoutOf([&] { plugin.OnQuit(); }), "");
    const std::string text = log.Text();
    ExpectLines(text, {Line("INFO", "InitKrySDK", sdk.dir() + "libkry_sdk.so's md5sum:" + md5),
                       Line("INFO", "InitKrySDK", "zq plugin init success"),
                       Line("ERROR", "LoadKrySDK", "already loaded")});
    EXPECT_EQ(Count(text, Line("INFO", "QuitKrySDK", "zq plugin exit success")), 2u) << text;
  });
}

TEST(Plugin, DeleteWithoutQuitLeavesSdkLoaded) {
  RunInChild([] {
    SdkDouble sdk;
    quelld::Plugin* plugin = CreateQuelldPlugin();
    ASSERT_EQ(plugin->OnInit(MakeOptions(sdk.dir(), nullptr)), 0);
    delete plugin;
    EXPECT_EQ(kry_double_quit_count(), 0);
    EXPECT_NE(kry_sdk_get_busi_interf("kry_sdk_get_sdk_info", nullptr), nullptr);
  });
}

TEST(Plugin, DirectoryWithoutSlashLoadsButNeverReloads) {
  RunInChild([] {
    SdkDouble sdk;
    LogFile log;
    zq::ZQPlugin plugin;
    std::string dir = sdk.dir();
    dir.pop_back();  // the loader adds its own '/', the digest path does not
    ASSERT_EQ(plugin.OnInit(MakeOptions(dir, log.cat())), 0);
    EXPECT_EQ(plugin.so_md5sum(), "");
    sdk.Change();
    plugin.OnReload();
    plugin.OnReload();
    EXPECT_EQ(kry_double_init_count(), 1);
    plugin.OnQuit();
    const std::string text = log.Text();
    ExpectLines(text, {Line("INFO", "InitKrySDK", dir + "libkry_sdk.so's md5sum:")});
    EXPECT_EQ(Count(text, kNoChange), 2u) << text;
  });
}

TEST(Plugin, MissingLibraryFailsInitAndQuitOnlyLogs) {
  RunInChild([] {
    TempDir empty;
    LogFile log;
    zq::ZQPlugin plugin;
    testing::internal::CaptureStderr();
    EXPECT_EQ(plugin.OnInit(MakeOptions(empty.path() + "/", log.cat())), -1);
    // The loader adds its own separator to the directory that already ends with one.
    ExpectLines(testing::internal::GetCapturedStderr(),
                {"Open shared lib " + empty.path() + "//libkry_sdk.so failed, "});
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(StdoutOf([&] { plugin.OnQuit(); }), "");
    const std::string text = log.Text();
    ExpectLines(text,
                {Line("ERROR", "LoadKrySDK", "kry_sdk_load_and_init_for_quelld failed,ret:-1"),
                 Line("INFO", "QuitKrySDK", "zq plugin exit success")});
    EXPECT_EQ(text.find("md5sum"), std::string::npos) << text;
  });
}

TEST(Plugin, ReloadRestartsOnlyWhenTheFileChanges) {
  RunInChild([] {
    SdkDouble sdk;
    LogFile log(WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    // A refused interface unloads again but keeps the digest: the same file is not retried.
    kry_double_set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 1);
    EXPECT_EQ(StdoutOf([&] { EXPECT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), -1); }),
              "Unload KRY SDK OK.\n");
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.so_md5sum(), SharedFile(sdk.lib_path()).MD5());
    plugin.OnReload();
    EXPECT_EQ(kry_double_init_count(), 1);
    kry_double_set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 0);
    sdk.Change();
    plugin.OnReload();  // changed: retried, and this time the SDK runs
    EXPECT_EQ(kry_double_init_count(), 2);
    const KrySdkAntiInterf* interf = plugin.anti_interf();
    ASSERT_NE(interf, nullptr);
    const std::string first_md5 = plugin.so_md5sum();

    plugin.OnReload();  // unchanged: the SDK keeps running
    EXPECT_EQ(kry_double_init_count(), 2);
    EXPECT_EQ(kry_double_quit_count(), 1);
    EXPECT_EQ(plugin.anti_interf(), interf);
    sdk.Change();
    plugin.OnReload();  // changed: quit, then init again on the handle kept by the loader
    EXPECT_EQ(kry_double_quit_count(), 2);
    EXPECT_EQ(kry_double_init_count(), 3);
    EXPECT_NE(plugin.anti_interf(), nullptr);
    const std::string second_md5 = plugin.so_md5sum();
    EXPECT_NE(second_md5, first_md5);
    EXPECT_EQ(second_md5, SharedFile(sdk.lib_path()).MD5());

    // A failing restart leaves the plug-in idle and keeps the old digest; a later change retries.
    kry_double_set_result(kInit, 5);
    sdk.Change();
    plugin.OnReload();
    EXPECT_FALSE(plugin.loaded());
    EXPECT_EQ(plugin.anti_interf(), nullptr);
    EXPECT_EQ(plugin.so_md5sum(), second_md5);
    kry_double_set_result(kInit, 0);
    sdk.Change();
    plugin.OnReload();
    EXPECT_TRUE(plugin.loaded());
    plugin.OnQuit();
    const std::string text = log.Text();
    ExpectLines(text,
                {Line("ERROR", "InitKrySDK", "KRY_SDK_GET_ANTI_INTERF failed"),
                 Line("ERROR", "LoadKrySDK", "kry_sdk_load_and_init_for_quelld failed,ret:5")});
    EXPECT_EQ(Count(text, kNoChange), 2u) << text;
    EXPECT_EQ(Count(text, "zq plugin init success\n"), 3u) << text;
  });
}

TEST(VersionGate, AcceptsVersionsNoOlderThanMinimum) {
  RunInChild([] {
    SdkDouble sdk;
    LogFile log(WLOG_PRIORITY_INFO);
    zq::ZQPlugin plugin;
    EXPECT_FALSE(plugin.SDKVersionOK());  // nothing loaded yet (and no log before OnInit)
    ASSERT_EQ(plugin.OnInit(MakeOptions(sdk.dir(), log.cat())), 0);
    const std::pair<const char*, bool> cases[] = {
        {"1.8.4", true},  {"1.8.4.9", true}, {"1.10.0", true}, {"2.x.0", true},  {"1.8.4rc", true},
        {"1.8.3", false}, {"1.8", false},    {"", false},      {"0.9.9", false}, {"1.7.99", false},
        {"1.9", false},   {"2", false}};  // fewer than three parts, even when newer
    for (const auto& c : cases) {
      kry_double_set_version(c.first);
      EXPECT_EQ(plugin.SDKVersionOK(), c.second) << c.first;
    }
    kry_double_set_version(nullptr);
    EXPECT_FALSE(plugin.SDKVersionOK());
    kry_double_set_result(KRY_DOUBLE_SLOT_GET_SDK_INFO, 1);
    EXPECT_FALSE(plugin.SDKVersionOK());
    EXPECT_TRUE(plugin.loaded());  // refusals leave the SDK running
    plugin.OnQuit();
    const std::string text = log.Text();
    ExpectLines(
        text, {Line("INFO", "SDKVersionOK", "krysdk version:1.8.4"),
               Line("INFO", "SDKVersionOK", "krysdk version:1.10.0"),
               Line("ERROR", "SDKVersionOK", "invalid krysdk version:1.8.3.must great than 1.8.4"),
               Line("ERROR", "SDKVersionOK", "invalid krysdk version:1.8.must great than 1.8.4"),
               Line("ERROR", "SDKVersionOK", "invalid krysdk version:.must great than 1.8.4"),
               Line("ERROR", "SDKVersionOK", "version is None"),
               Line("ERROR", "SDKVersionOK", "missing get version symbol")});
  });
}

TEST(VersionGate, SplitAndCompare) {
  using V = std::vector<std::string>;
  EXPECT_EQ(zq::StringSplit(".1..4.", "."), (V{"", "1", "", "4", ""}));
  EXPECT_EQ(zq::StringSplit("", "."), V{});
  EXPECT_EQ(zq::StringSplit("a::b", "::"), (V{"a", "b"}));
  EXPECT_EQ(zq::StringSplit("abc", ""), V{});  // unsupported delimiter: no pieces, no hang
  EXPECT_EQ(zq::CompareVersion(V{"1", "8", "3"}, V{"1", "8", "4"}, 3), -1);
  EXPECT_EQ(zq::CompareVersion(V{"x", " -2"}, V{"0", "-3"}, 2), 1);  // strtol: no digits, blanks
  EXPECT_EQ(zq::CompareVersion(V{"1", "9"}, V{"1", "8"}, 1), 0);
  EXPECT_EQ(zq::CompareVersion(V{"1"}, V{"2"}, 0), 0);
  EXPECT_EQ(zq::CompareVersion(V{"1"}, V{"1", "2"}, 3), -1);  // short vector: missing parts are 0
  EXPECT_EQ(zq::CompareVersion(V{"4294967297"}, V{"1"}, 1), 0);  // cut to 32 bits
}

}  // namespace
