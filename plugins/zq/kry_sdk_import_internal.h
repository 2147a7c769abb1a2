// Loader internals shared with the plug-in's own code (not exported from the library).
#ifndef ZQ_KRY_SDK_IMPORT_INTERNAL_H_
#define ZQ_KRY_SDK_IMPORT_INTERNAL_H_

// Dynamic-loader handle of the SDK library; kept after an unload and reused by the next load.
extern void* g_handle;

// Opens the library once (or reuses the kept handle) and marks the SDK loaded. 0 or -1.
int kry_sdk_load_impl(const char* shared_lib_file);
// The SDK's symbol, or null when the SDK is not loaded or the symbol is missing.
void* kry_sdk_get_syml_impl(const char* syml_name);
void* kry_sdk_get_syml_linux(const char* syml_name);

#endif  // ZQ_KRY_SDK_IMPORT_INTERNAL_H_
