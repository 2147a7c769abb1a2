// Run-time loader of the security SDK library.
#include "zq/kry_sdk_import.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "kry_sdk_import_internal.h"

void* g_handle = nullptr;

namespace {

int g_is_sdk_loaded = 0;

constexpr size_t kPathMax = 1024;

// Builds <dir>/libkry_sdk.so, loads it and looks up the initialiser `name`: 0 with *syml set,
// -1 for a null directory or init record, the load's own code, or -2 for a missing symbol.
// At most kPathMax - 1 bytes of path are written, the NUL included, so a longer path is cut to
// kPathMax - 2 characters.
int LoadAndFindInitialiser(const KRY_TCHAR* shared_lib_dir, const KrySdkInitInfo* init_info,
                           const char* name, void** syml) {
  char path[kPathMax];
  std::memset(path, 0, sizeof(path));
  if (shared_lib_dir == nullptr || init_info == nullptr) return -1;
  std::snprintf(path, kPathMax - 1, "%s/%s.%s", shared_lib_dir, KRY_SDK_LIB_BASE_NAME,
                KRY_SDK_LIB_EXT_NAME);
  const int ret = kry_sdk_load_impl(path);
  if (ret != 0) return ret;
  *syml = kry_sdk_get_syml_impl(name);
  return *syml == nullptr ? -2 : 0;
}

}  // namespace

int kry_sdk_load_impl(const char* shared_lib_file) {
  if (g_is_sdk_loaded) return 0;
  if (g_handle == nullptr) {
    g_handle = dlopen(shared_lib_file, RTLD_NOW);
    const char* error = dlerror();
    if (error != nullptr) {
      std::fprintf(stderr, "Open shared lib %s failed, %s.\n", shared_lib_file, error);
      return -1;
    }
  }
  g_is_sdk_loaded = 1;
  return 0;
}

void* kry_sdk_get_syml_linux(const char* syml_name) {
  if (g_handle == nullptr) return nullptr;
  void* syml = dlsym(g_handle, syml_name);
  const char* error = dlerror();
  if (error != nullptr) {
    std::fprintf(stderr, "dlsym failed, %s.\n", error);
    return nullptr;
  }
  return syml;
}

void* kry_sdk_get_syml_impl(const char* syml_name) {
  if (!g_is_sdk_loaded) return nullptr;
  return kry_sdk_get_syml_linux(syml_name);
}

extern "C" {

int kry_sdk_load_and_init(const KRY_TCHAR* shared_lib_dir, const KrySdkInitInfo* init_info,
                          const KrySdkAccessInfo* access_info) {
  void* syml = nullptr;
  const int ret = LoadAndFindInitialiser(shared_lib_dir, init_info,
                                         KRY_SDK_INIT_WITH_ACCESS_INFO_INTERF, &syml);
  if (ret != 0) return ret;
  return reinterpret_cast<KrySdkInitWithAccessInfoInterf>(syml)(init_info, access_info);
}

const KrySdkBusiInterf* kry_sdk_load_and_init_with_proc(const KRY_TCHAR* shared_lib_dir,
                                                        const KrySdkInitInfo* init_info,
                                                        const KrySdkAccessInfo* access_info) {
  void* syml = nullptr;
  if (LoadAndFindInitialiser(shared_lib_dir, init_info,
                             KRY_SDK_INIT_WITH_ACCESS_INFO_AND_PROC_INTERF, &syml) != 0) {
    return nullptr;
  }
  return reinterpret_cast<KrySdkInitWithAccessInfoAndProcInterf>(syml)(init_info, access_info);
}

int kry_sdk_load_and_init_for_quelld(const KRY_TCHAR* shared_lib_dir,
                                     const KrySdkInitInfo* init_info,
                                     const KrySdkAccessInfo* access_info) {
  void* syml = nullptr;
  const int ret = LoadAndFindInitialiser(shared_lib_dir, init_info,
                                         KRY_SDK_INIT_WITH_ACCESS_INFO_FOR_QUELLD_INTERF, &syml);
  if (ret != 0) return ret;
  return reinterpret_cast<KrySdkInitWithAccessInfoForQuelldInterf>(syml)(init_info, access_info);
}

int kry_sdk_unload(void) {
  void* release = kry_sdk_get_syml_impl(KRY_SDK_RELEASE_BUSI_INTERF);
  if (release != nullptr) reinterpret_cast<KrySdkReleaseBusiInterf>(release)();
  // The dynamic loader crashes on a null handle instead of refusing it, so a close that was never
  // preceded by an open is answered here as a refused close.
  if (g_handle == nullptr || dlclose(g_handle) != 0) return -2;
  std::fputs("Unload KRY SDK OK.\n", stdout);
  g_is_sdk_loaded = 0;
  return 0;
}

const void* kry_sdk_get_busi_interf(const char* syml_name, const void* data) {
  if (syml_name == nullptr) return nullptr;
  void* syml = kry_sdk_get_syml_impl(syml_name);
  if (syml == nullptr) return nullptr;
  return reinterpret_cast<KrySdkGetInterf>(syml)(data);
}

}  // extern "C"
