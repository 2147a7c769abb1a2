// Scenarios of the host simulator: users and the events played through the plug-in.
// The text format is documented in UsageText() and in example.scenario.
#ifndef QUELLD_SIM_SCENARIO_H_
#define QUELLD_SIM_SCENARIO_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
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
  kRepeat,  // opens a block played `times` times
  kEnd,     // closes the innermost block
};

// User slots of the SDK double that a scenario may set results for.
enum class UserSlot { kAddUser = 0, kDelUser = 1, kRecvAntiData = 2, kTickUser = 3 };

constexpr int kAllUsers = -1;

// Limits of a scenario. The text is kept as written (repeat blocks are not expanded in memory),
// and what a run would do is computed before it starts, so a scenario can ask neither for
// unbounded memory nor for a run of hours.
constexpr size_t kMaxDataSize = 1 << 20;            // bytes of one DATA word
constexpr size_t kMaxUsers = 200000;                // users defined
constexpr size_t kMaxProgram = 1000000;             // command lines
constexpr int kMaxRepeatDepth = 64;                 // repeat blocks inside each other
constexpr uint64_t kMaxEventsPerCommand = 1 << 20;  // TIMES x users of one command
constexpr uint64_t kMaxEvents = 100000000;          // plug-in calls of a whole run
constexpr uint64_t kMaxBytes = 1ull << 30;          // message bytes of a whole run
constexpr uint64_t kMaxSteps = 100000000;           // commands played, repeat blocks unrolled

struct Command {
  Op op = Op::kHostTick;
  int line = 0;            // line in the scenario text
  int user = kAllUsers;    // user index, or kAllUsers
  long times = 1;          // TIMES; for kRepeat the block count
  std::string data;        // msg/send bytes (unless generated); sdk_version text; counter name
  size_t generated = 0;    // msg/send: size:N data, N bytes of GeneratedData()
  bool null_text = false;  // sdk_version none
  int slot = 0;            // sdk_result: a UserSlot value
  int64_t value = 0;       // sdk_result, host_send_result, expect
  size_t jump = 0;         // kRepeat: index after its kEnd; kEnd: index of its kRepeat
};

// What playing a scenario once amounts to (the reload phase not counted).
struct ScenarioCost {
  uint64_t events = 0;  // plug-in and SDK-double calls for user events and host ticks
  uint64_t bytes = 0;   // message bytes handed over by msg and send
  uint64_t steps = 0;   // commands played, repeat blocks unrolled
};

struct Scenario {
  std::vector<std::string> names;  // user names, same order as users
  std::vector<quelld::User> users;
  std::vector<Command> program;  // in text order, with kRepeat/kEnd around blocks
  ScenarioCost cost;
};

// Parses a scenario and computes its cost. On failure returns false and sets `err` to
// "line N: what is wrong", with any bytes of the text that are not printable escaped.
bool ParseScenario(const std::string& text, Scenario* out, std::string* err);

// Calls `play` for every command in playing order, repeat blocks unrolled (kRepeat and kEnd are
// not passed on). Stops early, returning false, when `play` returns false.
bool PlayProgram(const Scenario& scenario, const std::function<bool(const Command&)>& play);

// The bytes a msg or send command carries.
std::string_view CommandData(const Command& c);

// The generated data of size:N words: N bytes from the start of one fixed kMaxDataSize pattern.
const char* GeneratedData();

// Text of the built-in scenario for the sizes in `opts`.
std::string DefaultScenarioText(const SimOptions& opts);

// Name of a counter usable in expect, or false when unknown.
bool IsKnownCounter(const std::string& name);

}  // namespace quelld_sim

#endif  // QUELLD_SIM_SCENARIO_H_
