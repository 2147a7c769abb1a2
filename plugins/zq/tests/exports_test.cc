// libzq_plugin.so exports exactly its entry points, and they work through dlopen.
#include <dlfcn.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

#include "test_util.h"
#include "zq/kry_sdk_import.h"
#include "zq/quelld_plugin.h"

namespace {

std::set<std::string> DefinedDynamicSymbols(const std::string& lib) {
  std::set<std::string> names;
  const std::string cmd = "nm -D --defined-only '" + lib + "'";
  FILE* pipe = popen(cmd.c_str(), "r");
  EXPECT_NE(pipe, nullptr);
  if (pipe == nullptr) return names;
  char line[1024];
  while (std::fgets(line, sizeof(line), pipe) != nullptr) {
    std::istringstream in(line);
    std::string value, type, name;
    if (in >> value >> type >> name) names.insert(name);
  }
  EXPECT_EQ(pclose(pipe), 0);
  return names;
}

TEST(Exports, OnlyTheEntryPoints) {
  const std::set<std::string> expected = {"CreateQuelldPlugin",
                                          "APIVersion",
                                          "kry_sdk_load_and_init",
                                          "kry_sdk_load_and_init_with_proc",
                                          "kry_sdk_load_and_init_for_quelld",
                                          "kry_sdk_unload",
                                          "kry_sdk_get_busi_interf"};
  EXPECT_EQ(DefinedDynamicSymbols(ZQ_PLUGIN_LIB), expected);
}

TEST(Exports, HostCanDriveThePluginThroughDlopen) {
  zqtest::RunInChild([] {
    void* lib = dlopen(ZQ_PLUGIN_LIB, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(lib, nullptr) << dlerror();
    auto api_version = reinterpret_cast<APIVersionFunc>(dlsym(lib, QUELLD_API_VERSION_SYMBOL));
    auto create = reinterpret_cast<CreateQuelldPluginFunc>(dlsym(lib, QUELLD_CREATE_PLUGIN_SYMBOL));
    ASSERT_NE(api_version, nullptr);
    ASSERT_NE(create, nullptr);
    EXPECT_STREQ(api_version(), "quelld_plugin_1.0.1");
    quelld::Plugin* plugin = create();
    ASSERT_NE(plugin, nullptr);
    EXPECT_EQ(plugin->GetPluginID(), 1u);
    EXPECT_STREQ(plugin->Version(), "zqplugin_1.0.1");
    plugin->OnTick();  // the no-ops have no effect in the idle state
    plugin->OnUpdate();
    plugin->OnGameSvrUpstreamMsg();
    plugin->OnGameSvrDownstreamMsg();
    plugin->OnQuit();
    delete plugin;
  });
}

}  // namespace
