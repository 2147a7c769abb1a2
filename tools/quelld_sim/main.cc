// quelld_sim: a stand-in for the quelld connection server that loads the zq plug-in, plays a
// scenario of user events through it and reports what happened. See --help.

#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <iostream>
#include <string>

#include "host.h"
#include "scenario.h"
#include "sim_options.h"
#include "simulator.h"
#include "tool_input.h"

namespace {

// Where the plug-in and the SDK test double are found by default: beside an installed
// quelld_sim (QUELLD_SIM_INSTALLED_*, relative to the program's own directory) when they are
// there, else in the build tree the program was built in.
std::string ProgramDir() {
  char buf[4096];
  ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
  if (n <= 0) return std::string();
  std::string path(buf, static_cast<size_t>(n));
  return path.substr(0, path.find_last_of('/'));
}

// `path` without "..", "." and symbolic links, when it exists.
std::string Resolved(const std::string& path) {
  char buf[PATH_MAX];
  return realpath(path.c_str(), buf) != nullptr ? std::string(buf) : path;
}

void SetDefaults(quelld_sim::SimOptions* o) {
  const std::string dir = ProgramDir();
  const std::string plugin = Resolved(dir + "/" QUELLD_SIM_INSTALLED_PLUGIN);
  const std::string sdk_dir = Resolved(dir + "/" QUELLD_SIM_INSTALLED_SDK_DIR);
  std::string err;
  const bool installed = !dir.empty() && zq_tools::CheckRegularFile(plugin, &err);
  o->plugin = installed ? plugin : QUELLD_SIM_BUILD_PLUGIN;
  o->sdk_dir = installed && zq_tools::CheckRegularFile(sdk_dir + "/libkry_sdk.so", &err)
                   ? sdk_dir
                   : QUELLD_SIM_BUILD_SDK_DIR;
}

int Error(const std::string& what) {
  std::cerr << "quelld_sim: error: " << what << "\n";
  return quelld_sim::kExitSetupFailed;
}

}  // namespace

int main(int argc, char** argv) {
  quelld_sim::SimOptions opts;
  SetDefaults(&opts);
  const quelld_sim::SimOptions defaults = opts;
  std::string err;
  if (!quelld_sim::ParseArgs(&opts, argc, argv, &err)) return Error(err);
  if (opts.help) {
    std::cout << quelld_sim::UsageText(defaults);
    return quelld_sim::kExitOk;
  }
  std::string text;
  const std::string name = opts.scenario.empty()  ? std::string("(built-in)")
                           : opts.scenario == "-" ? std::string("(standard input)")
                                                  : opts.scenario;
  if (opts.scenario.empty()) {
    text = quelld_sim::DefaultScenarioText(opts);
  } else if (!zq_tools::ReadInput(opts.scenario, quelld_sim::kMaxInputFileBytes, &text, &err)) {
    return Error("cannot read scenario file " + err);
  }
  if (opts.dump_scenario) {
    std::cout << text;
    return quelld_sim::kExitOk;
  }
  quelld_sim::Scenario scenario;
  if (!quelld_sim::ParseScenario(text, &scenario, &err)) {
    return Error("scenario " + name + ", " + err);
  }
  std::cout << "quelld_sim: scenario " << name << ": " << scenario.users.size() << " users, "
            << scenario.cost.events << " events, " << scenario.cost.bytes
            << " bytes of message data\n";
  quelld_sim::InstallStopHandlers();
  return quelld_sim::RunSimulation(opts, scenario, std::cout, std::cerr);
}
