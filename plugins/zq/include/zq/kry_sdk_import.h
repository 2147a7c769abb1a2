// Loader of the security SDK library, exported from libzq_plugin.so with unmangled names.
//
// One SDK per process: the library handle and the loaded flag are process-wide. Diagnostics go to
// standard error/output, never to a log. Nothing throws; results:
//   kry_sdk_load_and_init*      -1 null directory or init record, or the library failed to open;
//                               -2 the initialiser symbol is missing; else the initialiser's
//                               result.
//   kry_sdk_load_and_init_with_proc   null on any failure, else the initialiser's result.
//   kry_sdk_unload              0 closed; -2 the dynamic loader refused to close.
//   kry_sdk_get_busi_interf     null when not loaded or the symbol is missing, else the symbol's
//                               result for `data`.
// The library is <shared_lib_dir>/libkry_sdk.so (cut to 1022 characters). Once opened, the handle
// is kept after an unload, and a later load marks the SDK loaded on that handle again.
#ifndef ZQ_KRY_SDK_IMPORT_H_
#define ZQ_KRY_SDK_IMPORT_H_

#include "zq/kry_sdk.h"

#define KRY_SDK_IMPORT_API __attribute__((visibility("default")))

extern "C" {

KRY_SDK_IMPORT_API int kry_sdk_load_and_init(const KRY_TCHAR* shared_lib_dir,
                                             const KrySdkInitInfo* init_info,
                                             const KrySdkAccessInfo* access_info);

KRY_SDK_IMPORT_API const KrySdkBusiInterf* kry_sdk_load_and_init_with_proc(
    const KRY_TCHAR* shared_lib_dir, const KrySdkInitInfo* init_info,
    const KrySdkAccessInfo* access_info);

KRY_SDK_IMPORT_API int kry_sdk_load_and_init_for_quelld(const KRY_TCHAR* shared_lib_dir,
                                                        const KrySdkInitInfo* init_info,
                                                        const KrySdkAccessInfo* access_info);

KRY_SDK_IMPORT_API int kry_sdk_unload(void);

KRY_SDK_IMPORT_API const void* kry_sdk_get_busi_interf(const char* syml_name, const void* data);

}  // extern "C"

#endif  // ZQ_KRY_SDK_IMPORT_H_
