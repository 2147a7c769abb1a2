// libzq_plugin.so exports exactly its entry points (the simulator drives them through dlopen).
#include <gtest/gtest.h>

#include <cstdio>
#include <set>
#include <sstream>
#include <string>

namespace {

TEST(Exports, OnlyTheEntryPoints) {
  FILE* pipe = popen("nm -D --defined-only '" ZQ_PLUGIN_LIB "'", "r");
  ASSERT_NE(pipe, nullptr);
  std::set<std::string> names;
  char line[1024];
  while (std::fgets(line, sizeof(line), pipe) != nullptr) {
    std::istringstream in(line);
    std::string value, type, name;
    if (in >> value >> type >> name) names.insert(name);
  }
  EXPECT_EQ(pclose(pipe), 0);
  EXPECT_EQ(names, (std::set<std::string>{
                       "CreateQuelldPlugin", "APIVersion", "kry_sdk_load_and_init",
                       "kry_sdk_load_and_init_with_proc", "kry_sdk_load_and_init_for_quelld",
                       "kry_sdk_unload", "kry_sdk_get_busi_interf"}));
}

}  // namespace
