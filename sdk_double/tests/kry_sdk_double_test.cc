// Tests of the SDK test double through its exported SDK symbols and its control interface.

#include "kry_sdk_double.h"

#include <dirent.h>
#include <dlfcn.h>
#include <link.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "zq/kry_sdk.h"

namespace {

const KrySdkAntiInterf* Start(KrySdkAntiSendDataToClient cob = nullptr) {
  kry_double_reset();
  KrySdkInitInfo init{};
  init.game_id_ = 7;
  if (kry_sdk_init_with_access_info_for_quelld_interf(&init, nullptr) != 0) return nullptr;
  KrySdkAntiInitInfo anti{cob};
  return static_cast<const KrySdkAntiInterf*>(kry_sdk_get_anti_interf(&anti));
}

KrySdkAntiAddUserInfo AddRecord(const char* account) {
  KrySdkAntiAddUserInfo rec;
  memset(&rec, 0xA5, sizeof(rec));
  snprintf(rec.account_info_.account_id_.account_, sizeof(rec.account_info_.account_id_.account_),
           "%s", account);
  rec.client_ip_ = 0x0100007F;
  rec.role_name_ = "";
  rec.user_ext_data_ = nullptr;
  return rec;
}

// What the last send callback saw.
struct Seen {
  int calls = 0;
  std::string account;
  std::string data;
  bool has_ext = false;
  std::string ext;
  KrySdkProcResult answer = KRY_SDK_PROC_OK;
};
Seen g_seen;

KrySdkProcResult Capture(const KrySdkAntiSendDataInfo* info) {
  ++g_seen.calls;
  g_seen.account = info->account_info_.account_id_.account_;
  g_seen.data.assign(info->anti_data_, info->anti_data_len_);
  g_seen.has_ext = info->user_ext_data_ != nullptr;
  if (g_seen.has_ext) {
    g_seen.ext.assign(info->user_ext_data_->user_ext_data_, info->user_ext_data_->ext_data_len_);
  }
  return g_seen.answer;
}

TEST(KryDoubleRecords, AddUserRecordIsCopiedByteForByte) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  KrySdkAntiAddUserInfo rec = AddRecord("player-1");
  EXPECT_EQ(anti->add_user_(&rec), KRY_SDK_PROC_OK);
  KrySdkAntiAddUserInfo expected = rec;
  memset(&rec, 0, sizeof(rec));  // the caller's record is gone after the call

  unsigned char copy[sizeof(expected) + 8];
  memset(copy, 0xEE, sizeof(copy));
  ASSERT_EQ(kry_double_last_record(KRY_DOUBLE_SLOT_ADD_USER, copy, sizeof(copy)),
            static_cast<long>(sizeof(expected)));
  EXPECT_EQ(memcmp(copy, &expected, sizeof(expected)), 0);
  for (size_t i = sizeof(expected); i < sizeof(copy); ++i) EXPECT_EQ(copy[i], 0xEE);

  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_ADD_USER, 0, KRY_DOUBLE_PART_ROLE_NAME, nullptr, 0), 0);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_ADD_USER, 0, KRY_DOUBLE_PART_USER_EXT, nullptr, 0), -1);
  EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_ADD_USER), 1);
  EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_TICK_USER), 0);
}

TEST(KryDoubleRecords, ReceiveKeepsPayloadAndEmptyPayload) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  KrySdkAntiRecvDataInfo rec{};
  const char payload[] = {'a', 0, 'b', '\xff'};
  rec.anti_data_ = payload;
  rec.anti_data_len_ = sizeof(payload);
  EXPECT_EQ(anti->recv_anti_data_(&rec), KRY_SDK_PROC_OK);
  rec.anti_data_len_ = 0;
  EXPECT_EQ(anti->recv_anti_data_(&rec), KRY_SDK_PROC_OK);
  rec.anti_data_ = nullptr;
  EXPECT_EQ(anti->recv_anti_data_(&rec), KRY_SDK_PROC_OK);

  char got[8] = {};
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 0, KRY_DOUBLE_PART_ANTI_DATA, got,
                              sizeof(got)), 4);
  EXPECT_EQ(memcmp(got, payload, 4), 0);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 1, KRY_DOUBLE_PART_ANTI_DATA, got,
                              sizeof(got)), 0);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 2, KRY_DOUBLE_PART_ANTI_DATA, got,
                              sizeof(got)), -1);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, 3, KRY_DOUBLE_PART_RECORD, got,
                              sizeof(got)), -1);
}

TEST(KryDoubleRecords, CopyOutNeverWritesPastCapacity) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  KrySdkAntiDelUserInfo rec{};
  memset(&rec, 0x11, sizeof(rec));
  rec.user_ext_data_ = nullptr;
  anti->del_user_(&rec);
  unsigned char buf[16];
  memset(buf, 0xEE, sizeof(buf));
  EXPECT_EQ(kry_double_last_record(KRY_DOUBLE_SLOT_DEL_USER, buf, 10),
            static_cast<long>(sizeof(rec)));
  for (int i = 0; i < 10; ++i) EXPECT_EQ(buf[i], 0x11);
  for (int i = 10; i < 16; ++i) EXPECT_EQ(buf[i], 0xEE);
}

TEST(KryDoubleRecords, HistoryKeepsLatestCallsOnly) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  KrySdkAntiTickUserInfo rec{};
  const long total = KRY_DOUBLE_HISTORY_MAX + 5;
  for (long i = 0; i < total; ++i) {
    rec.account_info_.world_id_ = static_cast<uint32_t>(i);
    anti->tick_user_(&rec);
  }
  EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_TICK_USER), total);
  KrySdkAntiTickUserInfo got{};
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_TICK_USER, 4, KRY_DOUBLE_PART_RECORD, &got,
                              sizeof(got)), -1);
  ASSERT_EQ(kry_double_record(KRY_DOUBLE_SLOT_TICK_USER, 5, KRY_DOUBLE_PART_RECORD, &got,
                              sizeof(got)), static_cast<long>(sizeof(got)));
  EXPECT_EQ(uint32_t{got.account_info_.world_id_}, 5u);
  ASSERT_EQ(kry_double_last_record(KRY_DOUBLE_SLOT_TICK_USER, &got, sizeof(got)),
            static_cast<long>(sizeof(got)));
  EXPECT_EQ(uint32_t{got.account_info_.world_id_}, static_cast<uint32_t>(total - 1));
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_TICK_USER, total, KRY_DOUBLE_PART_RECORD, &got,
                              sizeof(got)), -1);
}

TEST(KryDoubleResults, SetResultAppliesToOneSlotAndCountsFailures) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  ASSERT_EQ(kry_double_set_result(KRY_DOUBLE_SLOT_ADD_USER, KRY_SDK_PROC_FAIL), 0);
  EXPECT_EQ(kry_double_get_result(KRY_DOUBLE_SLOT_ADD_USER), KRY_SDK_PROC_FAIL);
  KrySdkAntiAddUserInfo add = AddRecord("u");
  KrySdkAntiTickUserInfo tick{};
  EXPECT_EQ(anti->add_user_(&add), KRY_SDK_PROC_FAIL);
  EXPECT_EQ(anti->tick_user_(&tick), KRY_SDK_PROC_OK);
  EXPECT_EQ(kry_double_fail_count(KRY_DOUBLE_SLOT_ADD_USER), 1);
  EXPECT_EQ(kry_double_fail_count(KRY_DOUBLE_SLOT_TICK_USER), 0);
  EXPECT_EQ(kry_double_record_result(KRY_DOUBLE_SLOT_ADD_USER, 0), KRY_SDK_PROC_FAIL);
  EXPECT_EQ(anti->add_user_(nullptr), KRY_SDK_PROC_INVALID_ARG);
  EXPECT_EQ(kry_double_fail_count(KRY_DOUBLE_SLOT_ADD_USER), 2);

  EXPECT_EQ(kry_double_set_result(KRY_DOUBLE_SLOT_COUNT, 0), -1);
  EXPECT_EQ(kry_double_set_result(-1, 0), -1);
  EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_COUNT), -1);
  EXPECT_EQ(kry_double_last_record(99, nullptr, 0), -1);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_ADD_USER, 0, KRY_DOUBLE_PART_COUNT, nullptr, 0), -1);
}

TEST(KryDoubleResults, PointerSlotsReturnNullWhenToldToFail) {
  kry_double_reset();
  KrySdkInitInfo init{};
  kry_double_set_result(KRY_DOUBLE_SLOT_INIT_WITH_PROC, 5);
  EXPECT_EQ(kry_sdk_init_with_access_info_and_proc_interf(&init, nullptr), nullptr);
  EXPECT_EQ(kry_double_is_running(), 0);
  kry_double_set_result(KRY_DOUBLE_SLOT_INIT_WITH_PROC, 0);
  kry_double_set_result(KRY_DOUBLE_SLOT_PROC, 42);
  const KrySdkBusiInterf* busi = kry_sdk_init_with_access_info_and_proc_interf(&init, nullptr);
  ASSERT_NE(busi, nullptr);
  EXPECT_EQ(busi->init_ret_, 0);
  EXPECT_EQ(busi->proc_(), 42);
  EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_PROC), 1);

  KrySdkAntiInitInfo anti{Capture};
  kry_double_set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 1);
  EXPECT_EQ(kry_sdk_get_anti_interf(&anti), nullptr);
  EXPECT_EQ(kry_double_has_send_callback(), 0);
  kry_double_set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 0);
  EXPECT_EQ(kry_sdk_get_anti_interf(nullptr), nullptr);
  EXPECT_NE(kry_sdk_get_anti_interf(&anti), nullptr);
  EXPECT_EQ(kry_double_fail_count(KRY_DOUBLE_SLOT_GET_ANTI_INTERF), 2);

  KrySdkGetSdkInfoInitData req{0};
  kry_double_set_result(KRY_DOUBLE_SLOT_GET_SDK_INFO, 1);
  EXPECT_EQ(kry_sdk_get_sdk_info(&req), nullptr);
}

TEST(KryDoubleLifecycle, UserEventsFailWhileNotRunning) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  EXPECT_EQ(kry_double_is_running(), 1);
  EXPECT_EQ(kry_sdk_release_busi_interf(), 0);
  EXPECT_EQ(kry_double_is_running(), 0);
  EXPECT_EQ(kry_double_quit_count(), 1);
  KrySdkAntiDelUserInfo del{};
  EXPECT_EQ(anti->del_user_(&del), KRY_SDK_PROC_INTERNAL_ERR);

  kry_double_set_result(KRY_DOUBLE_SLOT_INIT, 9);
  KrySdkInitInfo init{};
  EXPECT_EQ(kry_sdk_init_with_access_info_interf(&init, nullptr), 9);
  EXPECT_EQ(kry_double_is_running(), 0);
  EXPECT_EQ(kry_sdk_init_with_access_info_interf(nullptr, nullptr), KRY_SDK_PROC_INVALID_ARG);
  EXPECT_EQ(kry_sdk_init_with_access_info_for_quelld_interf(&init, nullptr), 0);
  EXPECT_EQ(anti->del_user_(&del), KRY_SDK_PROC_OK);
  EXPECT_EQ(kry_double_init_count(), 4);
}

TEST(KryDoubleLifecycle, InitRecordAndAccessTextsAreKept) {
  kry_double_reset();
  char data_proxy[512];
  memset(data_proxy, 'd', sizeof(data_proxy));  // no NUL: the copy stops at the array's end
  KrySdkInitInfo init{};
  init.game_id_ = 1234;
  snprintf(init.auth_token_, sizeof(init.auth_token_), "%s", "0123456789abcde");
  KrySdkAccessInfo access{};
  access.network_type_ = KRY_SDK_NON_HALDOR_IDC_NETWORK;
  access.backend_env_type_ = KRY_SDK_TEST_ENVIRONMENT;
  access.data_proxy_domain_ = data_proxy;
  access.busi_proxy_domain_ = "busi.example:80";
  access.test_data_proxy_domain_ = "";
  ASSERT_EQ(kry_sdk_init_with_access_info_for_quelld_interf(&init, &access), 0);

  KrySdkInitInfo got{};
  ASSERT_EQ(kry_double_last_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, &got, sizeof(got)), 32);
  EXPECT_EQ(got.game_id_, 1234u);
  EXPECT_STREQ(got.auth_token_, "0123456789abcde");
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_CONF_DIR, nullptr,
                              0), -1);
  KrySdkAccessInfo got_access{};
  ASSERT_EQ(kry_double_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_ACCESS,
                              &got_access, sizeof(got_access)), 40);
  EXPECT_EQ(got_access.backend_env_type_, KRY_SDK_TEST_ENVIRONMENT);
  EXPECT_EQ(got_access.busi_proxy_domain_, access.busi_proxy_domain_);
  char text[600] = {};
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_DATA_PROXY, text,
                              sizeof(text)), 512);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_BUSI_PROXY, text,
                              sizeof(text)), 15);
  EXPECT_EQ(std::string(text, 15), "busi.example:80");
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_TEST_DATA_PROXY,
                              text, sizeof(text)), 0);
  EXPECT_EQ(kry_double_record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_TEST_BUSI_PROXY,
                              text, sizeof(text)), -1);
}

TEST(KryDoubleSend, SendsThroughKeptCallback) {
  g_seen = Seen();
  EXPECT_EQ(kry_double_send_to_client("x", "d", 1), -1);  // before any callback is kept
  ASSERT_NE(Start(Capture), nullptr);
  EXPECT_EQ(kry_double_has_send_callback(), 1);
  std::string longid(100, 'p');
  EXPECT_EQ(kry_double_send_to_client(longid.c_str(), "he\0llo", 6), KRY_SDK_PROC_OK);
  EXPECT_EQ(g_seen.account, std::string(64, 'p'));
  EXPECT_EQ(g_seen.data, std::string("he\0llo", 6));
  EXPECT_FALSE(g_seen.has_ext);

  g_seen.answer = KRY_SDK_PROC_FAIL;
  EXPECT_EQ(kry_double_send_to_client_ext("acc", "ext", 3, nullptr, 0), KRY_SDK_PROC_FAIL);
  EXPECT_TRUE(g_seen.has_ext);
  EXPECT_EQ(g_seen.ext, "ext");
  EXPECT_EQ(g_seen.data, "");
  EXPECT_EQ(kry_double_send_count(), 2);
  EXPECT_EQ(kry_double_send_fail_count(), 1);

  std::vector<char> big(MAX_KRY_USER_EXT_DATA_LEN + 1, 'e');
  EXPECT_EQ(kry_double_send_to_client_ext("acc", big.data(), static_cast<uint32_t>(big.size()),
                                          nullptr, 0), -1);
  EXPECT_EQ(kry_double_send_to_client(nullptr, "d", 1), -1);
  EXPECT_EQ(kry_double_send_to_client("acc", nullptr, 3), -1);
  EXPECT_EQ(g_seen.calls, 2);

  kry_sdk_release_busi_interf();  // a stopped SDK sends nothing
  EXPECT_EQ(kry_double_send_to_client("acc", "d", 1), -1);
  EXPECT_EQ(g_seen.calls, 2);
}

TEST(KryDoubleVersion, VersionQueryFollowsSetter) {
  kry_double_reset();
  KrySdkGetSdkInfoInitData req{0};
  auto info = static_cast<const KrySdkGetSdkInfoInterf*>(kry_sdk_get_sdk_info(&req));
  ASSERT_NE(info, nullptr);
  EXPECT_STREQ(info->get_sdk_version_info_(), KRY_DOUBLE_DEFAULT_VERSION);
  kry_double_set_version("2.0.1rc");
  EXPECT_STREQ(info->get_sdk_version_info_(), "2.0.1rc");
  kry_double_set_version(nullptr);
  EXPECT_EQ(info->get_sdk_version_info_(), nullptr);
  kry_double_reset();
  EXPECT_STREQ(info->get_sdk_version_info_(), KRY_DOUBLE_DEFAULT_VERSION);
  EXPECT_EQ(kry_double_call_count(KRY_DOUBLE_SLOT_GET_SDK_INFO), 0);
}

TEST(KryDoubleLibrary, DirectoryHoldsOnlyTheLibraryMarkedNodelete) {
  std::vector<std::string> names;
  DIR* dir = opendir(KRY_DOUBLE_DIR);
  ASSERT_NE(dir, nullptr);
  while (dirent* e = readdir(dir)) {
    if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
  }
  closedir(dir);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names[0], "libkry_sdk.so");

  kry_double_reset();
  void* h = dlopen(KRY_DOUBLE_DIR "/libkry_sdk.so", RTLD_NOW | RTLD_LOCAL);
  ASSERT_NE(h, nullptr) << dlerror();
  for (const char* sym : {KRY_SDK_INIT_WITH_ACCESS_INFO_INTERF,
                          KRY_SDK_INIT_WITH_ACCESS_INFO_AND_PROC_INTERF,
                          KRY_SDK_INIT_WITH_ACCESS_INFO_FOR_QUELLD_INTERF,
                          KRY_SDK_RELEASE_BUSI_INTERF, KRY_SDK_GET_ANTI_INTERF,
                          KRY_SDK_GET_SDK_INFO, "kry_double_reset", "kry_double_send_to_client"}) {
    EXPECT_NE(dlsym(h, sym), nullptr) << sym;
  }
  EXPECT_EQ(dlclose(h), 0);

  // The plug-in's loader calls dlsym on its handle again after dlclose, so the library must be
  // marked "nodelete" in its dynamic section.
  struct Probe {
    bool found = false;
    bool nodelete = false;
  } probe;
  dl_iterate_phdr(
      [](dl_phdr_info* info, size_t, void* arg) {
        Probe* p = static_cast<Probe*>(arg);
        const char* name = info->dlpi_name;
        size_t len = strlen(name);
        if (len < 14 || strcmp(name + len - 14, "/libkry_sdk.so") != 0) return 0;
        p->found = true;
        for (int i = 0; i < info->dlpi_phnum; ++i) {
          if (info->dlpi_phdr[i].p_type != PT_DYNAMIC) continue;
          auto dyn = reinterpret_cast<const ElfW(Dyn)*>(info->dlpi_addr + info->dlpi_phdr[i].p_vaddr);
          for (; dyn->d_tag != DT_NULL; ++dyn) {
            if (dyn->d_tag == DT_FLAGS_1 && (dyn->d_un.d_val & DF_1_NODELETE) != 0) p->nodelete = true;
          }
        }
        return 1;
      },
      &probe);
  EXPECT_TRUE(probe.found);
  EXPECT_TRUE(probe.nodelete);
}

}  // namespace
