// Scenarios of the host simulator: users and the events played through the plug-in.
// The text format is documented in UsageText() and in example.scenario.
#ifndef QUELLD_SIM_SCENARIO_H_
#define QUELLD_SIM_SCENARIO_H_

#include <cstdint>
#include <string>
#include <vector>

#include "sim_options.h"
#include "zq/quelld_plugin.h"

namespace quelld_sim {

enum class Op {
  kLogin,
  kLogout,
  kTick,
  kMsg,
  kSend,
  kHostTick,
  kSdkResult,
  kHostSendResult,
  kSdkVersion,
  kReload,
  kReloadChanged,
  kExpect,
};

// User slots of the SDK double that a scenario may set results for.
enum class UserSlot { kAddUser = 0, kDelUser = 1, kRecvAntiData = 2, kTickUser = 3 };

constexpr int kAllUsers = -1;
// Upper bound of commands after repeat blocks are expanded.
constexpr size_t kMaxCommands = 1000000;
// Upper bound of generated data (size:N) and of the product of a command's TIMES and its users.
constexpr size_t kMaxDataSize = 1 << 20;

struct Command {
  Op op = Op::kHostTick;
  int line = 0;          // line in the scenario text
  int user = kAllUsers;  // user index, or kAllUsers
  long times = 1;
  std::string data;        // msg/send bytes; sdk_version text; expect counter name
  bool null_text = false;  // sdk_version none
  int slot = 0;            // sdk_result: a UserSlot value
  int64_t value = 0;       // sdk_result, host_send_result, expect
};

struct Scenario {
  std::vector<std::string> names;  // user names, same order as users
  std::vector<quelld::User> users;
  std::vector<Command> commands;  // in order, repeat blocks expanded
};

// Parses a scenario. On failure returns false and sets `err` to "line N: what is wrong".
bool ParseScenario(const std::string& text, Scenario* out, std::string* err);

// Text of the built-in scenario for the sizes in `opts`.
std::string DefaultScenarioText(const SimOptions& opts);

// Bytes of a data word: hex:.., size:N, empty, or the word itself. False for bad hex or size.
bool ParseData(const std::string& word, std::string* bytes, std::string* err);

// Name of a counter usable in expect, or false when unknown.
bool IsKnownCounter(const std::string& name);

}  // namespace quelld_sim

#endif  // QUELLD_SIM_SCENARIO_H_
