// quelld_sim: a stand-in for the quelld connection server that loads the zq plug-in, plays a
// scenario of user events through it and reports what happened. See --help.

#include <iostream>
#include <string>

#include "host.h"
#include "scenario.h"
#include "sim_options.h"
#include "simulator.h"

#ifndef QUELLD_SIM_DEFAULT_PLUGIN
#define QUELLD_SIM_DEFAULT_PLUGIN "libzq_plugin.so"
#endif
#ifndef QUELLD_SIM_DEFAULT_SDK_DIR
#define QUELLD_SIM_DEFAULT_SDK_DIR "."
#endif

int main(int argc, char** argv) {
  quelld_sim::SimOptions opts;
  opts.plugin = QUELLD_SIM_DEFAULT_PLUGIN;
  opts.sdk_dir = QUELLD_SIM_DEFAULT_SDK_DIR;
  std::string err;
  if (!quelld_sim::ParseArgs(&opts, argc, argv, &err)) {
    std::cerr << "quelld_sim: error: " << err << "\n";
    return quelld_sim::kExitSetupFailed;
  }
  if (opts.help) {
    std::cout << quelld_sim::UsageText();
    return quelld_sim::kExitOk;
  }
  std::string text;
  if (opts.scenario.empty()) {
    text = quelld_sim::DefaultScenarioText(opts);
  } else if (!quelld_sim::ReadFile(opts.scenario, &text)) {
    std::cerr << "quelld_sim: error: cannot read scenario file " << opts.scenario << "\n";
    return quelld_sim::kExitSetupFailed;
  }
  if (opts.dump_scenario) {
    std::cout << text;
    return quelld_sim::kExitOk;
  }
  quelld_sim::Scenario scenario;
  if (!quelld_sim::ParseScenario(text, &scenario, &err)) {
    std::cerr << "quelld_sim: error: scenario "
              << (opts.scenario.empty() ? std::string("(built-in)") : opts.scenario) << ", " << err
              << "\n";
    return quelld_sim::kExitSetupFailed;
  }
  std::cout << "quelld_sim: scenario "
            << (opts.scenario.empty() ? std::string("(built-in)") : opts.scenario) << ": "
            << scenario.users.size() << " users, " << scenario.commands.size() << " commands\n";
  return quelld_sim::RunSimulation(opts, scenario, std::cout, std::cerr);
}
