// Settings of the host simulator: command-line flags and a key=value configuration file.
#ifndef QUELLD_SIM_SIM_OPTIONS_H_
#define QUELLD_SIM_SIM_OPTIONS_H_

#include <cstdint>
#include <string>

namespace quelld_sim {

struct SimOptions {
  std::string plugin;          // plug-in library to load
  std::string sdk_dir;         // directory whose libkry_sdk.so is copied and loaded
  std::string scenario;        // scenario file; empty runs the built-in scenario
  std::string log_file;        // empty: quelld_sim.log in the work directory
  std::string log_conf;        // logging configuration in wlog's text form; empty: built from
                               // the log_file, log_mem, log_level and verbose settings
  std::string json;            // file for the run's summary as JSON; empty: none
  std::string log_mem;         // shared-memory URI of a memory log ring; empty: none
  int log_mem_size = 4 << 20;  // bytes of that ring (head included)
  uint32_t log_mem_key = 0;    // registry key of the ring; 0: the default key
  int log_level = 600;         // least severe priority written (INFO)
  bool verbose = false;        // log also to standard output
  bool reload = true;          // run the reload phase after the scenario
  bool verify = true;          // compare the SDK double's records with the events sent
  bool keep = false;           // keep the work directory
  bool help = false;
  bool dump_scenario = false;  // print the scenario text that would run, and stop

  // Size of the built-in scenario.
  int users = 1000;
  int rounds = 60;
  int msg_size = 64;
  int sends = 3;

  // Host options handed to the plug-in.
  uint32_t pluginid = 1;
  uint32_t gameid = 10086;
  std::string gamekey = "quelld-sim-game-key";
  uint32_t network_type = 1;   // non-IDC network
  uint32_t backend_env = 101;  // test environment
  std::string data_proxy = "data.proxy.sim:7001";
  std::string busi_proxy = "busi.proxy.sim:7002";
  std::string test_data_proxy = "test.data.proxy.sim:7101";
  std::string test_busi_proxy = "test.busi.proxy.sim:7102";
};

// Reads "key = value" lines: '#' starts a comment, blank lines are skipped, and a value in
// double quotes keeps blanks and '#'. Keys are the long flag names without dashes ('-' and '_'
// are the same). Counts are decimal; ids (gameid, pluginid, network_type, backend_env) may also
// be 0x hexadecimal; booleans take 1/0, true/false, yes/no, on/off.
bool LoadConfigText(SimOptions* opts, const std::string& text, std::string* err);
// The same from a file, or from standard input for "-".
bool LoadConfigFile(SimOptions* opts, const std::string& path, std::string* err);

// Applies the command line: a --config file first, then every flag in order, so flags win.
// Flags are --key value, --key=value, --flag for booleans and --no-flag to clear them.
bool ParseArgs(SimOptions* opts, int argc, const char* const* argv, std::string* err);

// Largest scenario or configuration file read.
constexpr size_t kMaxInputFileBytes = 64u << 20;

// Priority by name (ERROR, INFO, DEBUG, ...) or number; false when neither.
bool ParseLogLevel(const std::string& text, int* level);

// The --help text, naming the default plug-in and SDK directory.
std::string UsageText(const SimOptions& defaults);

}  // namespace quelld_sim

#endif  // QUELLD_SIM_SIM_OPTIONS_H_
