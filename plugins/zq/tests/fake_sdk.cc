// Minimal stand-ins for the SDK library, for the loader's success and missing-symbol paths.
// Built twice: with ZQ_FAKE_SDK_FULL the initialisers (returning the init record's game id),
// the release function and an echo interface are exported; without it only a marker is.
#include "zq/kry_sdk.h"

#define FAKE_API extern "C" __attribute__((visibility("default")))

FAKE_API int fake_sdk_marker(void) { return 1; }

#ifdef ZQ_FAKE_SDK_FULL

static int g_release_count = 0;
static KrySdkBusiInterf g_busi = {nullptr, 0};

static int FakeProc(void) { return 42; }

FAKE_API int kry_sdk_init_with_access_info_interf(const KrySdkInitInfo* init_info,
                                                  const KrySdkAccessInfo*) {
  return static_cast<int>(init_info->game_id_);
}

FAKE_API int kry_sdk_init_with_access_info_for_quelld_interf(const KrySdkInitInfo* init_info,
                                                             const KrySdkAccessInfo*) {
  return static_cast<int>(init_info->game_id_) + 1000;
}

FAKE_API const KrySdkBusiInterf* kry_sdk_init_with_access_info_and_proc_interf(
    const KrySdkInitInfo* init_info, const KrySdkAccessInfo*) {
  g_busi.proc_ = FakeProc;
  g_busi.init_ret_ = static_cast<int>(init_info->game_id_);
  return &g_busi;
}

FAKE_API int kry_sdk_release_busi_interf(void) { return ++g_release_count; }

FAKE_API int fake_sdk_release_count(void) { return g_release_count; }

// Business interface that hands its request back.
FAKE_API const void* fake_sdk_echo(const void* data) { return data; }

#endif
