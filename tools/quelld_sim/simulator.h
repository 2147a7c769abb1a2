// The host simulator: drives a plug-in through its whole life the way quelld does.
#ifndef QUELLD_SIM_SIMULATOR_H_
#define QUELLD_SIM_SIMULATOR_H_

#include <ostream>

#include "scenario.h"
#include "sim_options.h"

namespace quelld_sim {

// Exit codes of the simulator.
constexpr int kExitOk = 0;
constexpr int kExitCheckFailed = 1;
constexpr int kExitSetupFailed = 2;

// Checks every path it is given, loads the plug-in, starts it with a copy of the SDK in a fresh
// work directory, plays the scenario, runs the reload phase (unless switched off), quits and
// deletes the plug-in, writes progress and the summary to `out` (and to opts.json as JSON) and
// problems to `errs`, and removes the work directory (unless kept). Returns one of the exit codes
// above, or 128 + N when signal N asked it to stop (see InstallStopHandlers).
// Only one simulation may run in a process at a time (the host send function is process-wide).
int RunSimulation(const SimOptions& opts, const Scenario& scenario, std::ostream& out,
                  std::ostream& errs);

}  // namespace quelld_sim

#endif  // QUELLD_SIM_SIMULATOR_H_
