// Test double of the anti-cheat SDK library libkry_sdk.so.
//
// Exports the SDK's symbols with their exact types and behaves like a well-mannered SDK: the
// initialisers start it, kry_sdk_get_anti_interf hands out the anti-cheat table and keeps the send
// callback, release stops it. Every call is counted and its record bytes are copied (with the data
// the record points at), so tests can check byte for byte what a caller handed over; results are
// set per slot through the kry_double_* control functions.

#include "kry_sdk_double.h"

#include <cstdio>
#include <cstring>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "zq/kry_sdk.h"

#define KRY_SDK_EXPORT __attribute__((visibility("default")))

namespace {

// Longest text copied out of a record pointer. Texts handed over by the plug-in live in fixed
// arrays of at most this size, so the copy never reads past them even without a NUL.
constexpr size_t kMaxTextCopy = 512;
constexpr size_t kVersionLen = 255;

struct Call {
  bool present[KRY_DOUBLE_PART_COUNT] = {};
  std::vector<unsigned char> part[KRY_DOUBLE_PART_COUNT];
  int result = 0;

  void Put(int which, const void* data, size_t len) {
    present[which] = true;
    const unsigned char* p = static_cast<const unsigned char*>(data);
    part[which].assign(p, p + len);
  }
  void PutText(int which, const char* text) {
    if (text != nullptr) Put(which, text, strnlen(text, kMaxTextCopy));
  }
};

struct Slot {
  long count = 0;
  long fails = 0;
  int result = 0;
  std::deque<Call> history;  // the latest KRY_DOUBLE_HISTORY_MAX calls
};

struct State {
  std::mutex mu;
  Slot slots[KRY_DOUBLE_SLOT_COUNT];
  char version[kVersionLen + 1] = KRY_DOUBLE_DEFAULT_VERSION;
  bool version_null = false;
  KrySdkAntiSendDataToClient send_cob = nullptr;
  long sends = 0;
  long send_fails = 0;
  bool running = false;
};

State g_state;

bool SlotOk(int slot) { return slot >= 0 && slot < KRY_DOUBLE_SLOT_COUNT; }

// Counts the call and keeps its copy. REQUIRES: g_state.mu held.
void Record(int slot, Call&& call, bool failed) {
  Slot& s = g_state.slots[slot];
  ++s.count;
  if (failed) ++s.fails;
  s.history.push_back(std::move(call));
  if (s.history.size() > KRY_DOUBLE_HISTORY_MAX) s.history.pop_front();
}

// The kept call with the given index, or null. REQUIRES: g_state.mu held.
const Call* Find(int slot, long index) {
  if (!SlotOk(slot) || index < 0) return nullptr;
  const Slot& s = g_state.slots[slot];
  long first = s.count - static_cast<long>(s.history.size());
  if (index < first || index >= s.count) return nullptr;
  return &s.history[static_cast<size_t>(index - first)];
}

long CopyOut(const std::vector<unsigned char>& bytes, void* buf, size_t cap) {
  if (buf != nullptr && cap > 0 && !bytes.empty()) {
    memcpy(buf, bytes.data(), bytes.size() < cap ? bytes.size() : cap);
  }
  return static_cast<long>(bytes.size());
}

void PutUserExt(Call& call, const KrySdkUserExtData* ext) {
  if (ext != nullptr) call.Put(KRY_DOUBLE_PART_USER_EXT, ext, sizeof(*ext));
}

// The user event slots: copy the record, then answer with the slot's result. A null record is an
// invalid argument; an event while the SDK is not started is an internal error, as from a real SDK.
template <typename Rec, typename Fill>
KrySdkProcResult UserEvent(int slot, const Rec* rec, Fill fill) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  Call call;
  int result;
  if (rec == nullptr) {
    result = KRY_SDK_PROC_INVALID_ARG;
  } else {
    call.Put(KRY_DOUBLE_PART_RECORD, rec, sizeof(*rec));
    fill(call, *rec);
    result = g_state.running ? g_state.slots[slot].result : KRY_SDK_PROC_INTERNAL_ERR;
  }
  call.result = result;
  Record(slot, std::move(call), result != 0);
  return static_cast<KrySdkProcResult>(result);
}

KrySdkProcResult AddUser(KrySdkAntiAddUserInfo* info) {
  return UserEvent(KRY_DOUBLE_SLOT_ADD_USER, info, [](Call& c, const KrySdkAntiAddUserInfo& r) {
    c.PutText(KRY_DOUBLE_PART_ROLE_NAME, r.role_name_);
    PutUserExt(c, r.user_ext_data_);
  });
}

KrySdkProcResult DelUser(const KrySdkAntiDelUserInfo* info) {
  return UserEvent(KRY_DOUBLE_SLOT_DEL_USER, info, [](Call& c, const KrySdkAntiDelUserInfo& r) {
    PutUserExt(c, r.user_ext_data_);
  });
}

KrySdkProcResult RecvAntiData(KrySdkAntiRecvDataInfo* info) {
  return UserEvent(KRY_DOUBLE_SLOT_RECV_ANTI_DATA, info,
                   [](Call& c, const KrySdkAntiRecvDataInfo& r) {
                     if (r.anti_data_ != nullptr) {
                       c.Put(KRY_DOUBLE_PART_ANTI_DATA, r.anti_data_, r.anti_data_len_);
                     }
                     PutUserExt(c, r.user_ext_data_);
                   });
}

KrySdkProcResult TickUser(const KrySdkAntiTickUserInfo* info) {
  return UserEvent(KRY_DOUBLE_SLOT_TICK_USER, info, [](Call& c, const KrySdkAntiTickUserInfo& r) {
    c.PutText(KRY_DOUBLE_PART_ROLE_NAME, r.role_name_);
    PutUserExt(c, r.user_ext_data_);
  });
}

int Proc() {
  std::lock_guard<std::mutex> lock(g_state.mu);
  int result = g_state.slots[KRY_DOUBLE_SLOT_PROC].result;
  Call call;
  call.result = result;
  Record(KRY_DOUBLE_SLOT_PROC, std::move(call), result != 0);
  return result;
}

const char* VersionText() {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.version_null ? nullptr : g_state.version;
}

const KrySdkAntiInterf kAntiInterf = {AddUser, DelUser, RecvAntiData, TickUser};
const KrySdkBusiInterf kBusiInterf = {Proc, 0};
const KrySdkGetSdkInfoInterf kSdkInfoInterf = {VersionText};

// Shared body of the initialisers: copy both records and the texts they point at.
// Returns the slot's result; a null init record is refused with KRY_SDK_PROC_INVALID_ARG.
// REQUIRES: g_state.mu held.
int Init(int slot, const KrySdkInitInfo* init_info, const KrySdkAccessInfo* access_info) {
  Call call;
  int result;
  if (init_info == nullptr) {
    result = KRY_SDK_PROC_INVALID_ARG;
  } else {
    call.Put(KRY_DOUBLE_PART_RECORD, init_info, sizeof(*init_info));
    call.PutText(KRY_DOUBLE_PART_CONF_DIR, init_info->kry_sdk_conf_dir_);
    if (access_info != nullptr) {
      call.Put(KRY_DOUBLE_PART_ACCESS, access_info, sizeof(*access_info));
      call.PutText(KRY_DOUBLE_PART_DATA_PROXY, access_info->data_proxy_domain_);
      call.PutText(KRY_DOUBLE_PART_BUSI_PROXY, access_info->busi_proxy_domain_);
      call.PutText(KRY_DOUBLE_PART_TEST_DATA_PROXY, access_info->test_data_proxy_domain_);
      call.PutText(KRY_DOUBLE_PART_TEST_BUSI_PROXY, access_info->test_busi_proxy_domain_);
    }
    result = g_state.slots[slot].result;
  }
  if (result == 0) g_state.running = true;
  call.result = result;
  Record(slot, std::move(call), result != 0);
  return result;
}

int SendToClient(const char* openid, const KrySdkUserExtData* ext, const void* data, uint32_t len) {
  KrySdkAntiSendDataToClient cob;
  {
    std::lock_guard<std::mutex> lock(g_state.mu);
    cob = g_state.send_cob;
  }
  if (cob == nullptr) return -1;
  KrySdkAntiSendDataInfo info;
  memset(&info, 0, sizeof(info));
  snprintf(info.account_info_.account_id_.account_, sizeof(info.account_info_.account_id_.account_),
           "%s", openid);
  info.anti_data_len_ = len;
  info.anti_data_ = static_cast<const char*>(data);
  info.user_ext_data_ = const_cast<KrySdkUserExtData*>(ext);
  // The lock is not held here: the callback may call back into the double.
  int result = cob(&info);
  std::lock_guard<std::mutex> lock(g_state.mu);
  ++g_state.sends;
  if (result != 0) ++g_state.send_fails;
  return result;
}

}  // namespace

// ---- The SDK's exports ----

extern "C" {

KRY_SDK_EXPORT int kry_sdk_init_with_access_info_interf(const KrySdkInitInfo* init_info,
                                                        const KrySdkAccessInfo* access_info) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return Init(KRY_DOUBLE_SLOT_INIT, init_info, access_info);
}

KRY_SDK_EXPORT const KrySdkBusiInterf* kry_sdk_init_with_access_info_and_proc_interf(
    const KrySdkInitInfo* init_info, const KrySdkAccessInfo* access_info) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return Init(KRY_DOUBLE_SLOT_INIT_WITH_PROC, init_info, access_info) == 0 ? &kBusiInterf : nullptr;
}

KRY_SDK_EXPORT int kry_sdk_init_with_access_info_for_quelld_interf(
    const KrySdkInitInfo* init_info, const KrySdkAccessInfo* access_info) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return Init(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, init_info, access_info);
}

KRY_SDK_EXPORT int kry_sdk_release_busi_interf(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  int result = g_state.slots[KRY_DOUBLE_SLOT_RELEASE].result;
  g_state.running = false;
  g_state.send_cob = nullptr;
  Call call;
  call.result = result;
  Record(KRY_DOUBLE_SLOT_RELEASE, std::move(call), result != 0);
  return result;
}

KRY_SDK_EXPORT const void* kry_sdk_get_anti_interf(const void* data) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  const KrySdkAntiInitInfo* init = static_cast<const KrySdkAntiInitInfo*>(data);
  Call call;
  bool ok = init != nullptr && g_state.slots[KRY_DOUBLE_SLOT_GET_ANTI_INTERF].result == 0;
  if (init != nullptr) call.Put(KRY_DOUBLE_PART_RECORD, init, sizeof(*init));
  if (ok) g_state.send_cob = init->send_data_to_client_;
  call.result = ok ? 0 : 1;
  Record(KRY_DOUBLE_SLOT_GET_ANTI_INTERF, std::move(call), !ok);
  return ok ? &kAntiInterf : nullptr;
}

KRY_SDK_EXPORT const void* kry_sdk_get_sdk_info(const void* data) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  const KrySdkGetSdkInfoInitData* req = static_cast<const KrySdkGetSdkInfoInitData*>(data);
  Call call;
  if (req != nullptr) call.Put(KRY_DOUBLE_PART_RECORD, req, sizeof(*req));
  bool ok = g_state.slots[KRY_DOUBLE_SLOT_GET_SDK_INFO].result == 0;
  call.result = ok ? 0 : 1;
  Record(KRY_DOUBLE_SLOT_GET_SDK_INFO, std::move(call), !ok);
  return ok ? &kSdkInfoInterf : nullptr;
}

// ---- Control interface ----

void kry_double_reset(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  for (Slot& s : g_state.slots) s = Slot();
  snprintf(g_state.version, sizeof(g_state.version), "%s", KRY_DOUBLE_DEFAULT_VERSION);
  g_state.version_null = false;
  g_state.send_cob = nullptr;
  g_state.sends = 0;
  g_state.send_fails = 0;
  g_state.running = false;
}

int kry_double_set_result(int slot, int value) {
  if (!SlotOk(slot)) return -1;
  std::lock_guard<std::mutex> lock(g_state.mu);
  g_state.slots[slot].result = value;
  return 0;
}

int kry_double_get_result(int slot) {
  if (!SlotOk(slot)) return -1;
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.slots[slot].result;
}

long kry_double_call_count(int slot) {
  if (!SlotOk(slot)) return -1;
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.slots[slot].count;
}

long kry_double_fail_count(int slot) {
  if (!SlotOk(slot)) return -1;
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.slots[slot].fails;
}

long kry_double_last_record(int slot, void* buf, size_t cap) {
  if (!SlotOk(slot)) return -1;
  std::lock_guard<std::mutex> lock(g_state.mu);
  const Call* call = Find(slot, g_state.slots[slot].count - 1);
  if (call == nullptr || !call->present[KRY_DOUBLE_PART_RECORD]) return -1;
  return CopyOut(call->part[KRY_DOUBLE_PART_RECORD], buf, cap);
}

long kry_double_record(int slot, long index, int part, void* buf, size_t cap) {
  if (part < 0 || part >= KRY_DOUBLE_PART_COUNT) return -1;
  std::lock_guard<std::mutex> lock(g_state.mu);
  const Call* call = Find(slot, index);
  if (call == nullptr || !call->present[part]) return -1;
  return CopyOut(call->part[part], buf, cap);
}

int kry_double_record_result(int slot, long index) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  const Call* call = Find(slot, index);
  return call == nullptr ? -1 : call->result;
}

void kry_double_set_version(const char* version) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  g_state.version_null = version == nullptr;
  snprintf(g_state.version, sizeof(g_state.version), "%s", version == nullptr ? "" : version);
}

int kry_double_has_send_callback(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.send_cob != nullptr ? 1 : 0;
}

int kry_double_send_to_client(const char* openid, const void* data, uint32_t len) {
  if (openid == nullptr || (data == nullptr && len != 0)) return -1;
  return SendToClient(openid, nullptr, data, len);
}

int kry_double_send_to_client_ext(const char* openid, const void* ext, uint32_t ext_len,
                                  const void* data, uint32_t len) {
  if (openid == nullptr || (data == nullptr && len != 0)) return -1;
  if (ext == nullptr) return SendToClient(openid, nullptr, data, len);
  if (ext_len > MAX_KRY_USER_EXT_DATA_LEN) return -1;
  KrySdkUserExtData ext_rec;
  memset(&ext_rec, 0, sizeof(ext_rec));
  memcpy(ext_rec.user_ext_data_, ext, ext_len);
  ext_rec.ext_data_len_ = ext_len;
  return SendToClient(openid, &ext_rec, data, len);
}

long kry_double_send_count(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.sends;
}

long kry_double_send_fail_count(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.send_fails;
}

long kry_double_init_count(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.slots[KRY_DOUBLE_SLOT_INIT].count +
         g_state.slots[KRY_DOUBLE_SLOT_INIT_WITH_PROC].count +
         g_state.slots[KRY_DOUBLE_SLOT_INIT_FOR_QUELLD].count;
}

long kry_double_quit_count(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.slots[KRY_DOUBLE_SLOT_RELEASE].count;
}

int kry_double_is_running(void) {
  std::lock_guard<std::mutex> lock(g_state.mu);
  return g_state.running ? 1 : 0;
}

}  // extern "C"
