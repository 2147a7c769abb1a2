// Tests of the SDK test double through its exported SDK symbols and its control interface.

#include "kry_sdk_double.h"

#include <dirent.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "zq/kry_sdk.h"

namespace {

const KrySdkAntiInterf* Start(KrySdkAntiSendDataToClient cob = nullptr) {
  kry_double_reset();
  KrySdkInitInfo init{};
  if (kry_sdk_init_with_access_info_for_quelld_interf(&init, nullptr) != 0) return nullptr;
  KrySdkAntiInitInfo anti{cob};
  return static_cast<const KrySdkAntiInterf*>(kry_sdk_get_anti_interf(&anti));
}

long Rec(int slot, long index, int part, void* buf = nullptr, size_t cap = 0) {
  return kry_double_record(slot, index, part, buf, cap);
}

std::string g_seen;  // "account|data|ext" of the last send, ext "-" when absent
KrySdkProcResult g_answer = KRY_SDK_PROC_OK;

KrySdkProcResult Capture(const KrySdkAntiSendDataInfo* info) {
  const KrySdkUserExtData* ext = info->user_ext_data_;
  g_seen = std::string(info->account_info_.account_id_.account_) + "|" +
           std::string(info->anti_data_, info->anti_data_len_) + "|" +
           (ext != nullptr ? std::string(ext->user_ext_data_, ext->ext_data_len_) : "-");
  return g_answer;
}

TEST(KryDouble, RecordsAreCopiedWithTheirDataAndCopiedOutBounded) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  KrySdkAntiAddUserInfo add;
  memset(&add, 0xA5, sizeof(add));
  add.role_name_ = "";
  add.user_ext_data_ = nullptr;
  const KrySdkAntiAddUserInfo expected = add;
  EXPECT_EQ(anti->add_user_(&add), KRY_SDK_PROC_OK);
  memset(&add, 0, sizeof(add));  // the caller's record is gone after the call

  const int slot = KRY_DOUBLE_SLOT_ADD_USER;
  unsigned char copy[sizeof(expected) + 8];
  memset(copy, 0xEE, sizeof(copy));
  ASSERT_EQ(kry_double_last_record(slot, copy, sizeof(copy)), 124);
  EXPECT_EQ(memcmp(copy, &expected, sizeof(expected)), 0);
  EXPECT_EQ(copy[sizeof(expected)], 0xEE);
  memset(copy, 0xEE, sizeof(copy));
  EXPECT_EQ(kry_double_last_record(slot, copy, 10), 124);  // cut, full length
  EXPECT_EQ(copy[9], 0xA5);
  EXPECT_EQ(copy[10], 0xEE);
  EXPECT_EQ(Rec(slot, 0, KRY_DOUBLE_PART_ROLE_NAME), 0);
  EXPECT_EQ(Rec(slot, 0, KRY_DOUBLE_PART_USER_EXT), -1);

  KrySdkAntiRecvDataInfo recv{};
  const char payload[] = {'a', 0, 'b', '\xff'};
  recv.anti_data_ = payload;
  recv.anti_data_len_ = sizeof(payload);
  anti->recv_anti_data_(&recv);
  recv.anti_data_ = nullptr;
  anti->recv_anti_data_(&recv);
  char got[8] = {};
  const int rslot = KRY_DOUBLE_SLOT_RECV_ANTI_DATA;
  EXPECT_EQ(Rec(rslot, 0, KRY_DOUBLE_PART_ANTI_DATA, got, sizeof(got)), 4);
  EXPECT_EQ(memcmp(got, payload, 4), 0);
  EXPECT_EQ(Rec(rslot, 1, KRY_DOUBLE_PART_ANTI_DATA, got, sizeof(got)), -1);
  EXPECT_EQ(Rec(rslot, 2, KRY_DOUBLE_PART_RECORD, got, sizeof(got)), -1);
}

TEST(KryDouble, InitTextsAndHistoryAreBounded) {
  kry_double_reset();
  char data_proxy[512];
  memset(data_proxy, 'd', sizeof(data_proxy));  // no NUL: the copy stops at the array's end
  KrySdkInitInfo init{};
  KrySdkAccessInfo access{};
  access.data_proxy_domain_ = data_proxy;
  access.busi_proxy_domain_ = "busi.example:80";
  access.test_data_proxy_domain_ = "";
  ASSERT_EQ(kry_sdk_init_with_access_info_for_quelld_interf(&init, &access), 0);
  const int slot = KRY_DOUBLE_SLOT_INIT_FOR_QUELLD;
  const std::pair<int, long> lengths[] = {
      {KRY_DOUBLE_PART_ACCESS, 40},         {KRY_DOUBLE_PART_CONF_DIR, -1},
      {KRY_DOUBLE_PART_DATA_PROXY, 512},    {KRY_DOUBLE_PART_BUSI_PROXY, 15},
      {KRY_DOUBLE_PART_TEST_DATA_PROXY, 0}, {KRY_DOUBLE_PART_TEST_BUSI_PROXY, -1}};
  for (const auto& l : lengths) EXPECT_EQ(Rec(slot, 0, l.first), l.second) << l.first;

  // Only the latest KRY_DOUBLE_HISTORY_MAX calls are kept; the count goes on.
  KrySdkAntiInitInfo anti_init{nullptr};
  const auto* anti = static_cast<const KrySdkAntiInterf*>(kry_sdk_get_anti_interf(&anti_init));
  ASSERT_NE(anti, nullptr);
  KrySdkAntiTickUserInfo rec{};
  const long total = KRY_DOUBLE_HISTORY_MAX + 5;
  for (long i = 0; i < total; ++i) {
    rec.account_info_.world_id_ = static_cast<uint32_t>(i);
    anti->tick_user_(&rec);
  }
  const int tick = KRY_DOUBLE_SLOT_TICK_USER;
  EXPECT_EQ(kry_double_call_count(tick), total);
  EXPECT_EQ(Rec(tick, 4, KRY_DOUBLE_PART_RECORD, &rec, sizeof(rec)), -1);
  ASSERT_EQ(Rec(tick, 5, KRY_DOUBLE_PART_RECORD, &rec, sizeof(rec)), 124);
  EXPECT_EQ(uint32_t{rec.account_info_.world_id_}, 5u);
  EXPECT_EQ(Rec(tick, total, KRY_DOUBLE_PART_RECORD, &rec, sizeof(rec)), -1);
}

TEST(KryDouble, ResultsPerSlotAndLifecycle) {
  const KrySdkAntiInterf* anti = Start();
  ASSERT_NE(anti, nullptr);
  ASSERT_EQ(kry_double_set_result(KRY_DOUBLE_SLOT_ADD_USER, KRY_SDK_PROC_FAIL), 0);
  KrySdkAntiAddUserInfo add{};
  KrySdkAntiDelUserInfo del{};
  EXPECT_EQ(anti->add_user_(&add), KRY_SDK_PROC_FAIL);
  EXPECT_EQ(anti->del_user_(&del), KRY_SDK_PROC_OK);
  EXPECT_EQ(anti->add_user_(nullptr), KRY_SDK_PROC_INVALID_ARG);
  EXPECT_EQ(kry_double_fail_count(KRY_DOUBLE_SLOT_ADD_USER), 2);
  EXPECT_EQ(kry_double_fail_count(KRY_DOUBLE_SLOT_DEL_USER), 0);
  EXPECT_EQ(kry_double_record_result(KRY_DOUBLE_SLOT_ADD_USER, 0), KRY_SDK_PROC_FAIL);
  for (int bad : {-1, static_cast<int>(KRY_DOUBLE_SLOT_COUNT)}) {
    EXPECT_EQ(kry_double_set_result(bad, 0), -1);
    EXPECT_EQ(kry_double_call_count(bad), -1);
    EXPECT_EQ(kry_double_last_record(bad, nullptr, 0), -1);
  }
  EXPECT_EQ(Rec(KRY_DOUBLE_SLOT_ADD_USER, 0, KRY_DOUBLE_PART_COUNT), -1);

  // Released: user events are internal errors until an initialiser succeeds again.
  EXPECT_EQ(kry_sdk_release_busi_interf(), 0);
  EXPECT_EQ(kry_double_is_running(), 0);
  EXPECT_EQ(anti->del_user_(&del), KRY_SDK_PROC_INTERNAL_ERR);
  KrySdkInitInfo init{};
  kry_double_set_result(KRY_DOUBLE_SLOT_INIT, 9);
  EXPECT_EQ(kry_sdk_init_with_access_info_interf(&init, nullptr), 9);
  EXPECT_EQ(kry_sdk_init_with_access_info_interf(nullptr, nullptr), KRY_SDK_PROC_INVALID_ARG);
  EXPECT_EQ(kry_double_is_running(), 0);
  kry_double_set_result(KRY_DOUBLE_SLOT_INIT_WITH_PROC, 5);
  EXPECT_EQ(kry_sdk_init_with_access_info_and_proc_interf(&init, nullptr), nullptr);
  kry_double_set_result(KRY_DOUBLE_SLOT_INIT_WITH_PROC, 0);
  kry_double_set_result(KRY_DOUBLE_SLOT_PROC, 42);
  const KrySdkBusiInterf* busi = kry_sdk_init_with_access_info_and_proc_interf(&init, nullptr);
  ASSERT_NE(busi, nullptr);
  EXPECT_EQ(busi->proc_(), 42);
  EXPECT_EQ(anti->del_user_(&del), KRY_SDK_PROC_OK);
  EXPECT_EQ(kry_double_init_count(), 5);  // refused ones count too
  EXPECT_EQ(kry_double_quit_count(), 1);

  KrySdkGetSdkInfoInitData req{0};
  kry_double_set_result(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, 1);
  kry_double_set_result(KRY_DOUBLE_SLOT_GET_SDK_INFO, 1);
  KrySdkAntiInitInfo anti_init{Capture};
  EXPECT_EQ(kry_sdk_get_anti_interf(&anti_init), nullptr);
  EXPECT_EQ(kry_double_has_send_callback(), 0);
  EXPECT_EQ(kry_sdk_get_sdk_info(&req), nullptr);
}

TEST(KryDouble, SendsThroughKeptCallback) {
  EXPECT_EQ(kry_double_send_to_client("x", "d", 1), -1);  // before any callback is kept
  ASSERT_NE(Start(Capture), nullptr);
  EXPECT_EQ(kry_double_send_to_client(std::string(100, 'p').c_str(), "he\0llo", 6),
            KRY_SDK_PROC_OK);
  EXPECT_EQ(g_seen, std::string(64, 'p') + std::string("|he\0llo|-", 9));
  g_answer = KRY_SDK_PROC_FAIL;
  EXPECT_EQ(kry_double_send_to_client_ext("acc", "ext", 3, nullptr, 0), KRY_SDK_PROC_FAIL);
  EXPECT_EQ(g_seen, "acc||ext");
  EXPECT_EQ(kry_double_send_count(), 2);
  EXPECT_EQ(kry_double_send_fail_count(), 1);
  // Extension data of the largest size is passed on; one byte more is refused.
  g_answer = KRY_SDK_PROC_OK;
  std::vector<char> big(MAX_KRY_USER_EXT_DATA_LEN + 1, 'e');
  const uint32_t max = MAX_KRY_USER_EXT_DATA_LEN;
  EXPECT_EQ(kry_double_send_to_client_ext("acc", big.data(), max, nullptr, 0), KRY_SDK_PROC_OK);
  EXPECT_EQ(g_seen, "acc||" + std::string(max, 'e'));
  EXPECT_EQ(kry_double_send_to_client_ext("acc", big.data(), max + 1, nullptr, 0), -1);
  EXPECT_EQ(kry_double_send_to_client(nullptr, "d", 1), -1);
  EXPECT_EQ(kry_double_send_to_client("acc", nullptr, 3), -1);
  kry_sdk_release_busi_interf();  // a stopped SDK sends nothing
  EXPECT_EQ(kry_double_send_to_client("acc", "d", 1), -1);
  EXPECT_EQ(kry_double_send_count(), 3);
}

TEST(KryDouble, VersionQueryFollowsSetter) {
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
}

// The directory holds the library alone, marked "nodelete": the plug-in's loader calls dlsym on
// its handle again after dlclose.
TEST(KryDouble, DirectoryHoldsOnlyTheLibraryMarkedNodelete) {
  DIR* dir = opendir(KRY_DOUBLE_DIR);
  ASSERT_NE(dir, nullptr);
  std::vector<std::string> names;
  while (dirent* e = readdir(dir)) {
    if (e->d_name[0] != '.') names.push_back(e->d_name);
  }
  closedir(dir);
  EXPECT_EQ(names, std::vector<std::string>{"libkry_sdk.so"});
  FILE* pipe = popen("readelf -d '" KRY_DOUBLE_DIR "/libkry_sdk.so'", "r");
  ASSERT_NE(pipe, nullptr);
  std::string dynamic;
  for (char line[512]; std::fgets(line, sizeof(line), pipe) != nullptr;) dynamic += line;
  EXPECT_EQ(pclose(pipe), 0);
  EXPECT_NE(dynamic.find("Flags: NODELETE"), std::string::npos) << dynamic;
}

}  // namespace
