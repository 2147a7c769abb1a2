#include "sim_options.h"

#include <strings.h>

#include <cstddef>
#include <cstring>
#include <utility>
#include <vector>

#include "scenario.h"
#include "tool_input.h"

namespace quelld_sim {

namespace {

using zq_tools::Printable;

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

bool ParseBool(const std::string& text, bool* out) {
  if (text == "1" || text == "true" || text == "yes" || text == "on") {
    *out = true;
    return true;
  }
  if (text == "0" || text == "false" || text == "no" || text == "off") {
    *out = false;
    return true;
  }
  return false;
}

enum class Kind { kText, kCount, kId, kFlag, kLevel };

// One setting: its key, how its value is read, and where it goes. `max` is the longest text, the
// largest count; `min` the smallest count.
struct Setting {
  const char* key;
  Kind kind;
  int64_t min, max;
  std::string SimOptions::*text;
  int SimOptions::*count;
  uint32_t SimOptions::*id;
  bool SimOptions::*flag;
};

constexpr Setting Text(const char* key, std::string SimOptions::*f, int64_t max) {
  return {key, Kind::kText, 0, max, f, nullptr, nullptr, nullptr};
}
constexpr Setting Count(const char* key, int SimOptions::*f, int64_t min, int64_t max) {
  return {key, Kind::kCount, min, max, nullptr, f, nullptr, nullptr};
}
constexpr Setting Id(const char* key, uint32_t SimOptions::*f) {
  return {key, Kind::kId, 0, UINT32_MAX, nullptr, nullptr, f, nullptr};
}
constexpr Setting Flag(const char* key, bool SimOptions::*f) {
  return {key, Kind::kFlag, 0, 0, nullptr, nullptr, nullptr, f};
}

// Text limits are those of the fields the values end up in (the host options, the logger's file
// pattern).
const Setting kSettings[] = {
    Text("plugin", &SimOptions::plugin, 4095),
    Text("sdk_dir", &SimOptions::sdk_dir, 4095),
    Text("scenario", &SimOptions::scenario, 4095),
    Text("log_file", &SimOptions::log_file, 127),
    Text("log_conf", &SimOptions::log_conf, 4095),
    Text("log_mem", &SimOptions::log_mem, 255),
    Count("log_mem_size", &SimOptions::log_mem_size, 624, 1 << 30),
    Id("log_mem_key", &SimOptions::log_mem_key),
    Text("json", &SimOptions::json, 4095),
    {"log_level", Kind::kLevel, 0, 1000, nullptr, &SimOptions::log_level, nullptr, nullptr},
    Flag("verbose", &SimOptions::verbose),
    Flag("reload", &SimOptions::reload),
    Flag("verify", &SimOptions::verify),
    Flag("keep", &SimOptions::keep),
    Count("users", &SimOptions::users, 1, 100000),
    Count("rounds", &SimOptions::rounds, 0, 100000),
    Count("msg_size", &SimOptions::msg_size, 0, 1 << 20),
    Count("sends", &SimOptions::sends, 0, 100000),
    Id("pluginid", &SimOptions::pluginid),
    Id("gameid", &SimOptions::gameid),
    Text("gamekey", &SimOptions::gamekey, 63),
    Id("network_type", &SimOptions::network_type),
    Id("backend_env", &SimOptions::backend_env),
    Text("data_proxy", &SimOptions::data_proxy, 511),
    Text("busi_proxy", &SimOptions::busi_proxy, 511),
    Text("test_data_proxy", &SimOptions::test_data_proxy, 511),
    Text("test_busi_proxy", &SimOptions::test_busi_proxy, 511),
};

const Setting* Find(std::string key) {
  for (char& c : key) {
    if (c == '-') c = '_';
  }
  for (const Setting& s : kSettings) {
    if (key == s.key) return &s;
  }
  return nullptr;
}

// Sets one known setting; the message names the key as the user wrote it.
bool Apply(SimOptions* o, const Setting& s, const std::string& key, const std::string& value,
           std::string* err) {
  const std::string shown = "'" + Printable(value) + "'";
  switch (s.kind) {
    case Kind::kText:
      if (value.size() > static_cast<size_t>(s.max)) {
        *err = key + ": text longer than " + std::to_string(s.max) + " characters";
        return false;
      }
      o->*s.text = value;
      return true;
    case Kind::kCount: {
      int64_t v;
      if (!zq_tools::ParseDecimal(value, s.min, s.max, &v)) {
        *err = key + ": expected a number from " + std::to_string(s.min) + " to " +
               std::to_string(s.max) + ", got " + shown;
        return false;
      }
      o->*s.count = static_cast<int>(v);
      return true;
    }
    case Kind::kId: {
      uint64_t v;
      if (!zq_tools::ParseId(value, UINT32_MAX, &v)) {
        *err =
            key + ": expected an unsigned 32-bit number (decimal or 0x hexadecimal), got " + shown;
        return false;
      }
      o->*s.id = static_cast<uint32_t>(v);
      return true;
    }
    case Kind::kFlag:
      if (!ParseBool(value, &(o->*s.flag))) {
        *err = key + ": expected 1/0, true/false, yes/no or on/off, got " + shown;
        return false;
      }
      return true;
    case Kind::kLevel:
      if (!ParseLogLevel(value, &(o->*s.count))) {
        *err = key + ": unknown priority " + shown +
               " (FATAL ALERT CRIT ERROR WARN NOTICE INFO DEBUG TRACE, or 0 to 1000)";
        return false;
      }
      return true;
  }
  return false;
}

// The value of a configuration line: a value in double quotes is taken as one word without them.
bool ConfigValue(const std::string& raw, std::string* value, std::string* err) {
  if (raw.empty() || raw[0] != '"') {
    *value = raw;
    return true;
  }
  std::vector<zq_tools::Word> words;
  if (!zq_tools::SplitWords(raw, &words, err)) return false;
  if (words.size() != 1) {
    *err = "a quoted value must be followed by nothing but a comment";
    return false;
  }
  *value = words[0].text;
  return true;
}

}  // namespace

bool ParseLogLevel(const std::string& text, int* level) {
  static const char* const kNames[] = {"FATAL", "ALERT", "CRIT",  "ERROR",  "WARN",   "NOTICE",
                                       "INFO",  "DEBUG", "TRACE", "NOTSET", "UNKNOWN"};
  for (size_t i = 0; i < sizeof(kNames) / sizeof(kNames[0]); ++i) {
    if (strcasecmp(text.c_str(), kNames[i]) == 0) {
      *level = static_cast<int>(i) * 100;
      return true;
    }
  }
  int64_t v;
  if (zq_tools::ParseDecimal(text, 0, 1000, &v)) {
    *level = static_cast<int>(v);
    return true;
  }
  return false;
}

bool LoadConfigText(SimOptions* opts, const std::string& text, std::string* err) {
  size_t pos = 0;
  for (int lineno = 1; pos < text.size(); ++lineno) {
    size_t nl = text.find('\n', pos);
    if (nl == std::string::npos) nl = text.size();
    const std::string raw = text.substr(pos, nl - pos);
    pos = nl + 1;
    const std::string at = "line " + std::to_string(lineno) + ": ";
    std::string code, why;
    if (!zq_tools::StripComment(raw, &code, &why)) {
      *err = at + why;
      return false;
    }
    code = Trim(code);
    if (code.empty()) continue;
    size_t eq = code.find('=');
    if (eq == std::string::npos) {
      *err = at + "expected key = value, got '" + Printable(code) + "'";
      return false;
    }
    const std::string key = Trim(code.substr(0, eq));
    std::string value;
    if (!ConfigValue(Trim(code.substr(eq + 1)), &value, &why)) {
      *err = at + key + ": " + why;
      return false;
    }
    if (key == "config") {
      *err = at + "a configuration file cannot include another";
      return false;
    }
    const Setting* s = Find(key);
    if (s == nullptr) {
      *err = at + "unknown setting '" + Printable(key) + "' (quelld_sim --help lists them)";
      return false;
    }
    if (!Apply(opts, *s, key, value, &why)) {
      *err = at + why;
      return false;
    }
  }
  return true;
}

bool LoadConfigFile(SimOptions* opts, const std::string& path, std::string* err) {
  std::string text, why;
  if (!zq_tools::ReadInput(path, kMaxInputFileBytes, &text, &why)) {
    *err = "cannot read configuration file " + why;
    return false;
  }
  if (!LoadConfigText(opts, text, &why)) {
    *err = (path == "-" ? std::string("standard input") : path) + ": " + why;
    return false;
  }
  return true;
}

bool ParseArgs(SimOptions* opts, int argc, const char* const* argv, std::string* err) {
  const std::string see = " (see quelld_sim --help)";
  // First pass: the configuration file, so that every flag can override it.
  bool config_from_stdin = false;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    std::string path;
    if (a == "--config") {
      if (i + 1 >= argc) {
        *err = "--config needs a file name";
        return false;
      }
      path = argv[++i];
    } else if (a.compare(0, 9, "--config=") == 0) {
      path = a.substr(9);
    } else {
      continue;
    }
    if (!LoadConfigFile(opts, path, err)) return false;
    config_from_stdin = config_from_stdin || path == "-";
  }
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      opts->help = true;
      continue;
    }
    if (a == "--dump-scenario") {
      opts->dump_scenario = true;
      continue;
    }
    if (a.size() < 3 || a.compare(0, 2, "--") != 0) {
      *err = (a.size() > 1 && a[0] == '-' ? "unknown option " + Printable(a)
                                          : "unexpected argument '" + Printable(a) + "'") +
             see;
      return false;
    }
    std::string key = a.substr(2);
    std::string value;
    bool has_value = false;
    size_t eq = key.find('=');
    if (eq != std::string::npos) {
      value = key.substr(eq + 1);
      key.erase(eq);
      has_value = true;
    }
    if (key == "config") {
      if (!has_value) ++i;  // already loaded
      continue;
    }
    const Setting* s = Find(key);
    if (s == nullptr && !has_value && key.compare(0, 3, "no-") == 0) {
      s = Find(key.substr(3));
      if (s != nullptr && s->kind == Kind::kFlag) {
        key.erase(0, 3);
        value = "0";
        has_value = true;
      } else {
        s = nullptr;
      }
    }
    if (s == nullptr) {
      *err = "unknown option --" + Printable(key) + see;
      return false;
    }
    if (!has_value && s->kind == Kind::kFlag) {
      value = "1";
      has_value = true;
    }
    if (!has_value) {
      if (i + 1 >= argc) {
        *err = "--" + key + " needs a value" + see;
        return false;
      }
      value = argv[++i];
    }
    std::string why;
    if (!Apply(opts, *s, "--" + key, value, &why)) {
      *err = why;
      return false;
    }
  }
  if (config_from_stdin && opts->scenario == "-") {
    *err = "--config - and --scenario - cannot both read standard input";
    return false;
  }
  // A logging configuration file describes every category itself, memory rings included.
  if (!opts->log_conf.empty() && (!opts->log_mem.empty() || !opts->log_file.empty())) {
    *err = std::string(opts->log_mem.empty() ? "--log-file" : "--log-mem") +
           " cannot be used with --log-conf (describe that category in the configuration file)";
    return false;
  }
  return true;
}

std::string UsageText(const SimOptions& d) {
  std::string s = R"(usage: quelld_sim [options]

Loads the zq plug-in the way the quelld connection server does, starts it with a copy of the
security SDK, plays a scenario of user events through it, reloads it with the SDK file unchanged
and changed, quits it, and prints a summary. Exit code 0: every step and check passed; 1: a check
failed; 2: the simulator could not run (bad options or input, plug-in or SDK not loadable, start
failed); 128 + N: stopped by signal N (130 for Ctrl-C), with the work directory removed.

Options (every option is also a key of the --config file, written key = value):
  --config FILE          read settings from FILE first (- for standard input); later flags win
  --plugin PATH          plug-in library; default:
                           @PLUGIN@
  --sdk-dir DIR          directory holding libkry_sdk.so; default (the SDK test double):
                           @SDK@
                         the library is copied into a fresh work directory, which is what the
                         plug-in loads, so the original is never changed
  --scenario FILE        scenario to run (- for standard input; default: the built-in scenario)
  --dump-scenario        print the scenario text that would run, then stop
  --json FILE            also write the run's summary to FILE as JSON
  --log-file PATH        log file (default: quelld_sim.log in the work directory)
  --log-mem URI          also keep the newest log records in a memory ring at the shared-memory
                         URI (wsm-data://BID/PROG:ID/FUNC/VALUE); read it with wlog_dump mem URI,
                         also while the run goes on or after it crashed
  --log-mem-size N       bytes of that ring (default 4194304; at least 624)
  --log-mem-key KEY      registry key of the ring (default 0: the registry's default key)
  --log-level NAME       least severe priority logged: FATAL ALERT CRIT ERROR WARN NOTICE
                         INFO DEBUG TRACE, or a number from 0 to 1000 (default INFO)
  --verbose              also write the log to standard output
  --log-conf FILE        logging configuration in wlog's text form (see
                         tools/quelld_sim/example.logconf); it must define the category zq,
                         which the simulator and the plug-in log to; --log-level and --verbose
                         do not apply, --log-file and --log-mem are refused (describe those
                         categories in the file), and the log is not checked
  --no-reload            skip the reload phase after the scenario
  --no-verify            do not compare the SDK double's records with the events sent
  --keep                 keep the work directory (SDK copy and default log file)
  --users N --rounds N --msg-size N --sends N
                         size of the built-in scenario: N users log in, then for each round
                         every user ticks and sends a security message of msg-size bytes, the
                         SDK sends `sends` messages to every client, and all users log out
                         (defaults 1000, 60, 64, 3)
  --gameid ID --gamekey TEXT --pluginid ID --network-type ID --backend-env ID
  --data-proxy TEXT --busi-proxy TEXT --test-data-proxy TEXT --test-busi-proxy TEXT
                         host options handed to the plug-in
  --help                 this text
Numbers are decimal (010 is ten); an ID may also be hexadecimal with 0x.

Scenario files: one command per line, words separated by blanks, '#' starts a comment. A word
may be put in double quotes to hold blanks or '#' ("a b#c"; \" and \\ inside quotes).
  user NAME [key=value ...]       define a user; keys: openid (default NAME), account_type,
                                  auth_type, platid, world, channel (IDs), ip (default
                                  10.0.0.1)
  users COUNT PREFIX [key=value ...]
                                  define users PREFIX0 .. PREFIX<COUNT-1> (ip 10.x.y.z by index
                                  unless ip= is given)
  login WHO | logout WHO          WHO is a user name or * for every defined user
  tick WHO [TIMES]                heartbeat tick
  msg WHO DATA [TIMES]            client security message; DATA is a word of text, hex:00ff..
                                  for bytes, size:N for N generated bytes, or empty (a quoted
                                  word is always text); at most 1 MiB
  send WHO DATA [TIMES]           the SDK sends DATA to the client (SDK test double only)
  host_tick [TIMES]               OnTick and OnUpdate
  sdk_result SLOT VALUE           result the SDK double returns from now on for SLOT: add_user,
                                  del_user, recv_anti_data or tick_user
  host_send_result VALUE          what the host's send function returns from now on (0 = sent)
  sdk_version TEXT|none           version text the SDK double reports
  reload                          OnReload with the SDK file unchanged
  reload_changed                  change the SDK copy (new MD5), then OnReload
  repeat N ... end                run the enclosed lines N times (nested at most @DEPTH@ deep)
  expect COUNTER VALUE            fail the run unless COUNTER equals VALUE now; counters:
                                  logins logouts ticks msgs sends send_failures host_sends
                                  reloads sdk.init sdk.quit sdk.add_user sdk.del_user
                                  sdk.recv_anti_data sdk.tick_user sdk.fail.<slot>
                                  (sdk.* need the SDK test double; sends = requests to the
                                  double, host_sends = data that reached the host)
Limits, checked before anything runs: TIMES x users of one command at most @PER_CMD@;
in all at most @EVENTS@ events, @BYTES@ bytes of message data and @STEPS@ commands
played (repeat blocks unrolled).
See tools/quelld_sim/example.scenario and example.conf for commented examples.
)";
  const std::pair<const char*, std::string> fill[] = {
      {"@PLUGIN@", d.plugin},
      {"@SDK@", d.sdk_dir},
      {"@DEPTH@", std::to_string(kMaxRepeatDepth)},
      {"@PER_CMD@", std::to_string(kMaxEventsPerCommand)},
      {"@EVENTS@", std::to_string(kMaxEvents)},
      {"@BYTES@", std::to_string(kMaxBytes)},
      {"@STEPS@", std::to_string(kMaxSteps)},
  };
  for (const auto& f : fill) {
    size_t at = s.find(f.first);
    if (at != std::string::npos) s.replace(at, strlen(f.first), f.second);
  }
  return s;
}

}  // namespace quelld_sim
