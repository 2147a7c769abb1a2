// SDK loader: result codes, diagnostics and the process-wide handle.
#include <dlfcn.h>

#include <filesystem>
#include <string>

#include "zq/kry_sdk_import.h"
#include "zq_test/support.h"

namespace {

using zq_test::RunInChild;
using zq_test::StderrCapture;
using zq_test::StdoutCapture;
using zq_test::TempDir;

KrySdkInitInfo InitInfo(uint32_t game_id) {
  KrySdkInitInfo info{};
  info.game_id_ = game_id;
  return info;
}

// Nothing is ever opened here: an unload is refused, every load gives -1, a long path is cut to
// 1022 characters.
TEST(Loader, BadArgumentsOpenFailureAndUnloadWithoutLoad) {
  RunInChild([] {
    TempDir dir;
    const KrySdkInitInfo info = InitInfo(1);
    StdoutCapture out;
    EXPECT_EQ(kry_sdk_unload(), -2);
    EXPECT_EQ(out.Stop(), "");
    EXPECT_EQ(kry_sdk_get_busi_interf("fake_sdk_echo", nullptr), nullptr);
    StderrCapture quiet;
    EXPECT_EQ(kry_sdk_load_and_init(nullptr, &info, nullptr), -1);
    EXPECT_EQ(kry_sdk_load_and_init_for_quelld(ZQ_FAKE_SDK_FULL_DIR, nullptr, nullptr), -1);
    EXPECT_EQ(kry_sdk_load_and_init_with_proc(nullptr, &info, nullptr), nullptr);
    EXPECT_EQ(kry_sdk_load_and_init_with_proc(ZQ_FAKE_SDK_FULL_DIR, nullptr, nullptr), nullptr);
    EXPECT_EQ(quiet.Stop(), "");
    EXPECT_EQ(kry_sdk_get_busi_interf("fake_sdk_echo", &info), nullptr) << "nothing was loaded";

    StderrCapture open_err;
    EXPECT_EQ(kry_sdk_load_and_init_for_quelld(dir.path().c_str(), &info, nullptr), -1);
    const std::string err = open_err.Stop();
    EXPECT_EQ(err.rfind("Open shared lib " + dir.path() + "/libkry_sdk.so failed, ", 0), 0u) << err;
    EXPECT_NE(err.find("No such file"), std::string::npos) << err;
    EXPECT_EQ(err.substr(err.size() - 2), ".\n");
    EXPECT_EQ(kry_sdk_load_and_init(dir.path().c_str(), &info, nullptr), -1);
    EXPECT_EQ(kry_sdk_load_and_init_with_proc(dir.path().c_str(), &info, nullptr), nullptr);
    // 1008 + "/libkry_sdk.so" is 1022 characters and fits; from 1009 on the path is cut.
    for (size_t len : {1008u, 1009u, 1100u}) {
      const std::string path = std::string(len, 'd') + "/libkry_sdk.so";
      StderrCapture cut_err;
      EXPECT_EQ(kry_sdk_load_and_init(std::string(len, 'd').c_str(), &info, nullptr), -1);
      const std::string err = cut_err.Stop();
      EXPECT_EQ(err.rfind("Open shared lib " + path.substr(0, 1022) + " failed, ", 0), 0u) << len;
    }
  });
}

TEST(Loader, InitialisersReturnTheirOwnResultsOrMinusTwoWhenMissing) {
  RunInChild([] {
    const KrySdkInitInfo info = InitInfo(7);
    EXPECT_EQ(kry_sdk_load_and_init(ZQ_FAKE_SDK_FULL_DIR, &info, nullptr), 7);
    EXPECT_EQ(kry_sdk_load_and_init_for_quelld(ZQ_FAKE_SDK_FULL_DIR, &info, nullptr), 1007);
    const KrySdkBusiInterf* busi =
        kry_sdk_load_and_init_with_proc(ZQ_FAKE_SDK_FULL_DIR, &info, nullptr);
    ASSERT_NE(busi, nullptr);
    EXPECT_EQ(busi->init_ret_, 7);
    EXPECT_EQ(busi->proc_(), 42);
    int request = 5;
    EXPECT_EQ(kry_sdk_get_busi_interf("fake_sdk_echo", &request), &request);
    EXPECT_EQ(kry_sdk_get_busi_interf(nullptr, &request), nullptr);
  });
  RunInChild([] {
    const KrySdkInitInfo info = InitInfo(1);
    StderrCapture sym_err;
    EXPECT_EQ(kry_sdk_load_and_init_for_quelld(ZQ_FAKE_SDK_EMPTY_DIR, &info, nullptr), -2);
    const std::string err = sym_err.Stop();
    EXPECT_EQ(err.rfind("dlsym failed, ", 0), 0u) << err;
    EXPECT_NE(err.find("kry_sdk_init_with_access_info_for_quelld_interf"), std::string::npos)
        << err;
    EXPECT_EQ(err.substr(err.size() - 2), ".\n");
    EXPECT_EQ(kry_sdk_load_and_init(ZQ_FAKE_SDK_EMPTY_DIR, &info, nullptr), -2);
    EXPECT_EQ(kry_sdk_load_and_init_with_proc(ZQ_FAKE_SDK_EMPTY_DIR, &info, nullptr), nullptr);
    EXPECT_EQ(kry_sdk_get_busi_interf("kry_sdk_get_anti_interf", nullptr), nullptr);
    // The library stays loaded: its present symbols are found.
    EXPECT_NE(kry_sdk_get_busi_interf("fake_sdk_marker", nullptr), nullptr);
  });
}

TEST(Loader, LibraryIsOpenedOnceAndItsHandleKeptAfterUnload) {
  RunInChild([] {
    TempDir dir;
    std::filesystem::copy_file(std::string(ZQ_FAKE_SDK_FULL_DIR) + "/libkry_sdk.so",
                               dir.path() + "/libkry_sdk.so");
    const KrySdkInitInfo info = InitInfo(4);
    ASSERT_EQ(kry_sdk_load_and_init(dir.path().c_str(), &info, nullptr), 4);
    // Our own reference keeps the library mapped, to read its release counter.
    void* own = dlopen((dir.path() + "/libkry_sdk.so").c_str(), RTLD_NOW);
    ASSERT_NE(own, nullptr);
    auto release_count = reinterpret_cast<int (*)()>(dlsym(own, "fake_sdk_release_count"));
    ASSERT_NE(release_count, nullptr);
    std::filesystem::remove(dir.path() + "/libkry_sdk.so");
    // The file is gone and another directory is named: the initialiser runs on the open library.
    EXPECT_EQ(kry_sdk_load_and_init(ZQ_FAKE_SDK_EMPTY_DIR, &info, nullptr), 4);

    StdoutCapture out;
    EXPECT_EQ(kry_sdk_unload(), 0);
    EXPECT_EQ(out.Stop(), "Unload KRY SDK OK.\n");
    EXPECT_EQ(release_count(), 1);
    EXPECT_EQ(kry_sdk_get_busi_interf("fake_sdk_echo", &info), nullptr);
    EXPECT_EQ(kry_sdk_get_busi_interf("kry_sdk_release_busi_interf", nullptr), nullptr);
    // A load after the unload opens nothing: it marks the old handle loaded again.
    EXPECT_EQ(kry_sdk_load_and_init(ZQ_FAKE_SDK_EMPTY_DIR, &info, nullptr), 4);
    EXPECT_EQ(kry_sdk_get_busi_interf("fake_sdk_echo", &info), &info);
  });
}

}  // namespace
