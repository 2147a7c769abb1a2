#include "host.h"

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <vector>

#include "tool_input.h"

namespace quelld_sim {

namespace {

std::string DlError() {
  const char* e = dlerror();
  return e != nullptr ? e : "unknown dynamic loader error";
}

template <typename Fn>
bool Lookup(void* handle, const char* name, Fn* out) {
  void* sym = dlsym(handle, name);
  *out = reinterpret_cast<Fn>(sym);
  return sym != nullptr;
}

}  // namespace

bool PluginLibrary::Open(const std::string& path, std::string* err) {
  Close();
  dlerror();
  // A bare file name would make dlopen search the library path; a file given on the command line
  // is meant relative to the current directory.
  std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    *err = "cannot load plug-in " + path + ": " + DlError();
    return false;
  }
  APIVersionFunc api = nullptr;
  if (!Lookup(handle_, QUELLD_API_VERSION_SYMBOL, &api) ||
      !Lookup(handle_, QUELLD_CREATE_PLUGIN_SYMBOL, &create_)) {
    *err = "plug-in " + path + " does not export " QUELLD_API_VERSION_SYMBOL " and " +
           QUELLD_CREATE_PLUGIN_SYMBOL;
    Close();
    return false;
  }
  const char* version = api();
  api_version_ = version != nullptr ? version : "";
  if (api_version_ != QUELLD_PLUGIN_API_VERSION) {
    *err = "plug-in " + path + " is built for host interface '" + api_version_ +
           "', this host offers '" QUELLD_PLUGIN_API_VERSION "'";
    Close();
    return false;
  }
  return true;
}

void PluginLibrary::Close() {
  if (handle_ != nullptr) dlclose(handle_);
  handle_ = nullptr;
  create_ = nullptr;
}

bool SdkHandle::Attach(const std::string& path) {
  Close();
  handle_ = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NOLOAD);
  if (handle_ == nullptr) {
    dlerror();
    return false;
  }
  SdkDouble d;
  bool all = Lookup(handle_, "kry_double_reset", &d.reset) &&
             Lookup(handle_, "kry_double_set_result", &d.set_result) &&
             Lookup(handle_, "kry_double_call_count", &d.call_count) &&
             Lookup(handle_, "kry_double_fail_count", &d.fail_count) &&
             Lookup(handle_, "kry_double_record", &d.record) &&
             Lookup(handle_, "kry_double_set_version", &d.set_version) &&
             Lookup(handle_, "kry_double_send_to_client", &d.send_to_client) &&
             Lookup(handle_, "kry_double_init_count", &d.init_count) &&
             Lookup(handle_, "kry_double_quit_count", &d.quit_count) &&
             Lookup(handle_, "kry_double_is_running", &d.is_running);
  dlerror();
  if (all) double_ = d;
  return true;
}

void SdkHandle::Close() {
  if (handle_ != nullptr) dlclose(handle_);
  handle_ = nullptr;
  double_ = SdkDouble();
}

namespace {

volatile sig_atomic_t g_stop_signal = 0;
// The work directory a forced stop removes; g_forced_dir_set guards it against a half-written
// path (it is cleared before and set after every change).
char g_forced_dir[4096];
volatile sig_atomic_t g_forced_dir_set = 0;

void RegisterForcedDir(const std::string& dir) {
  g_forced_dir_set = 0;
  if (dir.size() >= sizeof(g_forced_dir)) return;
  memcpy(g_forced_dir, dir.c_str(), dir.size() + 1);
  g_forced_dir_set = 1;
}

// Async-signal-safe removal of the files in a directory and the directory itself: raw
// getdents64, unlinkat and rmdir, no allocation.
void RemoveDirInSignal(const char* dir) {
  int fd = open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd >= 0) {
    alignas(8) char buf[4096];
    for (;;) {
      long n = syscall(SYS_getdents64, fd, buf, sizeof(buf));
      if (n <= 0) break;
      for (long off = 0; off < n;) {
        // struct linux_dirent64: ino (8), off (8), reclen (2), type (1), name.
        unsigned short reclen;
        memcpy(&reclen, buf + off + 16, sizeof(reclen));
        const char* name = buf + off + 19;
        if (strcmp(name, ".") != 0 && strcmp(name, "..") != 0) unlinkat(fd, name, 0);
        off += reclen;
      }
    }
    close(fd);
  }
  rmdir(dir);
}

void OnStopSignal(int sig) {
  if (g_stop_signal == 0) {
    g_stop_signal = sig;
    return;
  }
  if (g_forced_dir_set) RemoveDirInSignal(g_forced_dir);
  _exit(128 + sig);
}

}  // namespace

void InstallStopHandlers() {
  struct sigaction sa;
  memset(&sa, 0, sizeof(sa));
  sa.sa_handler = OnStopSignal;
  sigemptyset(&sa.sa_mask);
  sa.sa_flags = SA_RESTART;  // calls inside the plug-in or SDK are not cut short
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
}

int StopSignal() { return g_stop_signal; }

bool MakeWorkDir(std::string* dir, std::string* err) {
  const char* tmp = getenv("TMPDIR");
  std::string base = (tmp != nullptr && tmp[0] != '\0') ? tmp : "/tmp";
  std::string tmpl = base + "/quelld_sim.XXXXXX";
  std::vector<char> buf(tmpl.begin(), tmpl.end());
  buf.push_back('\0');
  if (mkdtemp(buf.data()) == nullptr) {
    *err = "cannot create a work directory under " + base + ": " + strerror(errno);
    return false;
  }
  *dir = buf.data();
  RegisterForcedDir(*dir);
  return true;
}

bool ReadFile(const std::string& path, std::string* content) {
  std::string err;
  return zq_tools::ReadInput(path, SIZE_MAX, content, &err);
}

namespace {

bool WriteFile(const std::string& path, const std::string& content, std::string* err) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  out.close();
  if (!out) {
    *err = "cannot write " + path + ": " + strerror(errno);
    return false;
  }
  return true;
}

}  // namespace

bool CopyFile(const std::string& from, const std::string& to, std::string* err) {
  std::string content, why;
  if (!zq_tools::ReadInput(from, SIZE_MAX, &content, &why)) {
    *err = "cannot read " + why;
    return false;
  }
  return WriteFile(to, content, err);
}

bool ChangeFile(const std::string& path, const std::string& marker, std::string* err) {
  std::string content, why;
  if (!zq_tools::ReadInput(path, SIZE_MAX, &content, &why)) {
    *err = "cannot read " + why;
    return false;
  }
  content += marker;
  std::string next = path + ".next";
  if (!WriteFile(next, content, err)) return false;
  if (rename(next.c_str(), path.c_str()) != 0) {
    *err = "cannot replace " + path + ": " + strerror(errno);
    unlink(next.c_str());
    return false;
  }
  return true;
}

void RemoveWorkDir(const std::string& dir) {
  DIR* d = opendir(dir.c_str());
  if (d != nullptr) {
    std::vector<std::string> names;
    while (dirent* e = readdir(d)) {
      if (strcmp(e->d_name, ".") != 0 && strcmp(e->d_name, "..") != 0) names.push_back(e->d_name);
    }
    closedir(d);
    for (const std::string& n : names) unlink((dir + "/" + n).c_str());
  }
  rmdir(dir.c_str());
  if (g_forced_dir_set && dir == g_forced_dir) g_forced_dir_set = 0;
}

}  // namespace quelld_sim
