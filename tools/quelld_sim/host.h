// What the simulator needs from the operating system to act as the host: loading the plug-in,
// reaching the SDK test double's control functions, and the work directory with the SDK copy.
#ifndef QUELLD_SIM_HOST_H_
#define QUELLD_SIM_HOST_H_

#include <cstddef>
#include <cstdint>
#include <string>

#include "zq/quelld_plugin.h"

namespace quelld_sim {

// A plug-in library opened with dlopen. Open checks the exported APIVersion against the host's
// interface version and finds the factory.
class PluginLibrary {
 public:
  PluginLibrary() = default;
  PluginLibrary(const PluginLibrary&) = delete;
  PluginLibrary& operator=(const PluginLibrary&) = delete;
  ~PluginLibrary() { Close(); }

  // False with a message when the file cannot be opened, a symbol is missing or the version
  // differs from QUELLD_PLUGIN_API_VERSION.
  bool Open(const std::string& path, std::string* err);
  // A new plug-in object owned by the caller, or null.
  quelld::Plugin* Create() const { return create_ == nullptr ? nullptr : create_(); }
  const std::string& api_version() const { return api_version_; }
  void Close();

 private:
  void* handle_ = nullptr;
  CreateQuelldPluginFunc create_ = nullptr;
  std::string api_version_;
};

// Control functions of the SDK test double, looked up in the SDK library that the plug-in has
// loaded. Bound only when every one of them is found; a real SDK leaves it unbound.
struct SdkDouble {
  void (*reset)(void) = nullptr;
  int (*set_result)(int, int) = nullptr;
  long (*call_count)(int) = nullptr;
  long (*fail_count)(int) = nullptr;
  long (*record)(int, long, int, void*, size_t) = nullptr;
  void (*set_version)(const char*) = nullptr;
  int (*send_to_client)(const char*, const void*, uint32_t) = nullptr;
  long (*init_count)(void) = nullptr;
  long (*quit_count)(void) = nullptr;
  int (*is_running)(void) = nullptr;

  bool bound() const { return reset != nullptr; }
};

// A reference of our own to the SDK library the plug-in loaded from `path` (dlopen with
// RTLD_NOLOAD, so nothing is loaded that the plug-in did not load), with the double's control
// functions when the library is the double.
class SdkHandle {
 public:
  SdkHandle() = default;
  SdkHandle(const SdkHandle&) = delete;
  SdkHandle& operator=(const SdkHandle&) = delete;
  ~SdkHandle() { Close(); }

  // False when the library is not loaded in this process.
  bool Attach(const std::string& path);
  const SdkDouble& sdk_double() const { return double_; }
  void Close();

 private:
  void* handle_ = nullptr;
  SdkDouble double_;
};

// A fresh directory under $TMPDIR (or /tmp), made with mkdtemp. It is also registered for
// removal by a forced stop (see InstallStopHandlers) until RemoveWorkDir.
bool MakeWorkDir(std::string* dir, std::string* err);
// Copies a regular file byte for byte.
bool CopyFile(const std::string& from, const std::string& to, std::string* err);
// Gives `path` new content (its bytes followed by `marker`) by writing a new file beside it and
// renaming it over the old one, so that a mapping of the old file is never disturbed.
bool ChangeFile(const std::string& path, const std::string& marker, std::string* err);
// Removes the plain files in `dir`, then `dir` itself.
void RemoveWorkDir(const std::string& dir);
// The whole content of a regular file; false when it cannot be read.
bool ReadFile(const std::string& path, std::string* content);

// Stop requests. SIGINT and SIGTERM set a flag that the simulation checks between events, so it
// can quit the plug-in and remove its work directory before exiting with 128 + the signal. A
// second signal while that is under way removes the work directory from the handler and exits at
// once (for a plug-in or SDK call that does not return).
void InstallStopHandlers();
// The signal that asked for a stop, or 0.
int StopSignal();

}  // namespace quelld_sim

#endif  // QUELLD_SIM_HOST_H_
