#include "host.h"

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

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
  std::string file =
      path.find('/') == std::string::npos && access(path.c_str(), F_OK) == 0 ? "./" + path : path;
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
  return true;
}

bool ReadFile(const std::string& path, std::string* content) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream buf;
  buf << in.rdbuf();
  if (in.bad()) return false;
  *content = buf.str();
  return true;
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
  std::string content;
  if (!ReadFile(from, &content)) {
    *err = "cannot read " + from + ": " + strerror(errno);
    return false;
  }
  return WriteFile(to, content, err);
}

bool ChangeFile(const std::string& path, const std::string& marker, std::string* err) {
  std::string content;
  if (!ReadFile(path, &content)) {
    *err = "cannot read " + path + ": " + strerror(errno);
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
}

}  // namespace quelld_sim
