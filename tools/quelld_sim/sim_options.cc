#include "sim_options.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

namespace quelld_sim {

namespace {

std::string Trim(const std::string& s) {
  size_t b = s.find_first_not_of(" \t\r\n");
  if (b == std::string::npos) return std::string();
  size_t e = s.find_last_not_of(" \t\r\n");
  return s.substr(b, e - b + 1);
}

std::string NormalKey(std::string key) {
  for (char& c : key) {
    if (c == '-') c = '_';
  }
  return key;
}

bool ParseUint(const std::string& text, uint64_t max, uint64_t* out) {
  if (text.empty() || text[0] == '-' || text[0] == '+') return false;
  errno = 0;
  char* end = nullptr;
  unsigned long long v = strtoull(text.c_str(), &end, 0);
  if (errno != 0 || end == text.c_str() || *end != '\0' || v > max) return false;
  *out = v;
  return true;
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

// Sets one field; each key keeps its own limits here.
bool Apply(SimOptions* o, const std::string& key, const std::string& value, std::string* err) {
  auto text = [&](std::string* field, size_t max) {
    if (max != 0 && value.size() > max) {
      *err = key + ": text longer than " + std::to_string(max) + " characters";
      return false;
    }
    *field = value;
    return true;
  };
  auto u32 = [&](uint32_t* field) {
    uint64_t v;
    if (!ParseUint(value, UINT32_MAX, &v)) {
      *err = key + ": expected an unsigned 32-bit number, got '" + value + "'";
      return false;
    }
    *field = static_cast<uint32_t>(v);
    return true;
  };
  auto count = [&](int* field, int min, int max) {
    uint64_t v;
    if (!ParseUint(value, static_cast<uint64_t>(max), &v) || static_cast<int>(v) < min) {
      *err = key + ": expected a number from " + std::to_string(min) + " to " +
             std::to_string(max) + ", got '" + value + "'";
      return false;
    }
    *field = static_cast<int>(v);
    return true;
  };
  auto flag = [&](bool* field) {
    if (!ParseBool(value, field)) {
      *err = key + ": expected 1/0, true/false, yes/no or on/off, got '" + value + "'";
      return false;
    }
    return true;
  };

  const std::string k = NormalKey(key);
  if (k == "plugin") return text(&o->plugin, 4095);
  if (k == "sdk_dir") return text(&o->sdk_dir, 4095);
  if (k == "scenario") return text(&o->scenario, 4095);
  if (k == "log_file") return text(&o->log_file, 127);  // file pattern field of the logger
  if (k == "log_level") {
    if (!ParseLogLevel(value, &o->log_level)) {
      *err = key + ": unknown priority '" + value + "'";
      return false;
    }
    return true;
  }
  if (k == "verbose") return flag(&o->verbose);
  if (k == "reload") return flag(&o->reload);
  if (k == "verify") return flag(&o->verify);
  if (k == "keep") return flag(&o->keep);
  if (k == "users") return count(&o->users, 1, 100000);
  if (k == "rounds") return count(&o->rounds, 0, 100000);
  if (k == "msg_size") return count(&o->msg_size, 0, 1 << 20);
  if (k == "sends") return count(&o->sends, 0, 100000);
  if (k == "pluginid") return u32(&o->pluginid);
  if (k == "gameid") return u32(&o->gameid);
  if (k == "gamekey") return text(&o->gamekey, 63);
  if (k == "network_type") return u32(&o->network_type);
  if (k == "backend_env") return u32(&o->backend_env);
  if (k == "data_proxy") return text(&o->data_proxy, 511);
  if (k == "busi_proxy") return text(&o->busi_proxy, 511);
  if (k == "test_data_proxy") return text(&o->test_data_proxy, 511);
  if (k == "test_busi_proxy") return text(&o->test_busi_proxy, 511);
  *err = "unknown setting '" + key + "'";
  return false;
}

bool IsBoolKey(const std::string& key) {
  const std::string k = NormalKey(key);
  return k == "verbose" || k == "reload" || k == "verify" || k == "keep";
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
  uint64_t v;
  if (ParseUint(text, 1000, &v)) {
    *level = static_cast<int>(v);
    return true;
  }
  return false;
}

bool SetOption(SimOptions* opts, const std::string& key, const std::string& value,
               std::string* err) {
  return Apply(opts, key, value, err);
}

bool LoadConfigText(SimOptions* opts, const std::string& text, std::string* err) {
  std::istringstream in(text);
  std::string line;
  int lineno = 0;
  while (std::getline(in, line)) {
    ++lineno;
    size_t hash = line.find('#');
    if (hash != std::string::npos) line.erase(hash);
    line = Trim(line);
    if (line.empty()) continue;
    size_t eq = line.find('=');
    if (eq == std::string::npos) {
      *err = "line " + std::to_string(lineno) + ": expected key = value";
      return false;
    }
    std::string key = Trim(line.substr(0, eq));
    std::string value = Trim(line.substr(eq + 1));
    std::string why;
    if (key == "config") {
      *err = "line " + std::to_string(lineno) + ": a configuration file cannot include another";
      return false;
    }
    if (!Apply(opts, key, value, &why)) {
      *err = "line " + std::to_string(lineno) + ": " + why;
      return false;
    }
  }
  return true;
}

bool LoadConfigFile(SimOptions* opts, const std::string& path, std::string* err) {
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    *err = "cannot read configuration file " + path + ": " + strerror(errno);
    return false;
  }
  std::stringstream buf;
  buf << in.rdbuf();
  std::string why;
  if (!LoadConfigText(opts, buf.str(), &why)) {
    *err = path + ": " + why;
    return false;
  }
  return true;
}

bool ParseArgs(SimOptions* opts, int argc, const char* const* argv, std::string* err) {
  // First pass: the configuration file, so that every flag can override it.
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
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
  }
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      opts->help = true;
      continue;
    }
    if (a == "--dump-scenario") {
      opts->dump_scenario = true;
      continue;
    }
    if (a.size() < 3 || a.compare(0, 2, "--") != 0) {
      *err = "unexpected argument '" + a + "' (see --help)";
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
    if (!has_value && IsBoolKey(key)) {
      value = "1";
      has_value = true;
    } else if (!has_value && key.compare(0, 3, "no-") == 0 && IsBoolKey(key.substr(3))) {
      key = key.substr(3);
      value = "0";
      has_value = true;
    }
    if (!has_value) {
      if (i + 1 >= argc) {
        *err = "--" + key + " needs a value";
        return false;
      }
      value = argv[++i];
    }
    std::string why;
    if (!Apply(opts, key, value, &why)) {
      *err = "--" + why;
      return false;
    }
  }
  return true;
}

const char* UsageText() {
  return R"(usage: quelld_sim [options]

Loads the zq plug-in the way the quelld connection server does, starts it with a copy of the
security SDK, plays a scenario of user events through it, reloads it with the SDK file unchanged
and changed, quits it, and prints a summary. Exit code 0: every step and check passed; 1: a check
failed; 2: the simulator could not run (bad options, plug-in or SDK not loadable, start failed).

Options (every option is also a key of the --config file, written key = value):
  --config FILE          read settings from FILE first; later flags override them
  --plugin PATH          plug-in library (default: libzq_plugin.so of this build)
  --sdk-dir DIR          directory holding libkry_sdk.so (default: the SDK test double); the
                         library is copied into a fresh work directory, which is what the
                         plug-in loads, so the original is never changed
  --scenario FILE        scenario to run (default: the built-in scenario below)
  --dump-scenario        print the scenario text that would run, then stop
  --log-file PATH        log file (default: quelld_sim.log in the work directory)
  --log-level NAME       least severe priority logged: FATAL ALERT CRIT ERROR WARN NOTICE
                         INFO DEBUG TRACE, or a number (default INFO)
  --verbose              also write the log to standard output
  --no-reload            skip the reload phase after the scenario
  --no-verify            do not compare the SDK double's records with the events sent
  --keep                 keep the work directory (SDK copy and default log file)
  --users N --rounds N --msg-size N --sends N
                         size of the built-in scenario: N users log in, then for each round
                         every user ticks and sends a security message of msg-size bytes, the
                         SDK sends `sends` messages to every client, and all users log out
                         (defaults 1000, 60, 64, 3)
  --gameid N --gamekey TEXT --pluginid N --network-type N --backend-env N
  --data-proxy TEXT --busi-proxy TEXT --test-data-proxy TEXT --test-busi-proxy TEXT
                         host options handed to the plug-in
  --help                 this text

Scenario files: one command per line, words separated by blanks, '#' starts a comment.
  user NAME [key=value ...]       define a user; keys: openid (default NAME), account_type,
                                  auth_type, platid, world, channel, ip (default 10.0.0.1)
  users COUNT PREFIX [key=value ...]
                                  define users PREFIX0 .. PREFIX<COUNT-1> (ip 10.x.y.z by index
                                  unless ip= is given)
  login WHO | logout WHO          WHO is a user name or * for every defined user
  tick WHO [TIMES]                heartbeat tick
  msg WHO DATA [TIMES]            client security message; DATA is text without blanks,
                                  hex:00ff.. for bytes, size:N for N generated bytes, or empty
  send WHO DATA [TIMES]           the SDK sends DATA to the client (SDK test double only)
  host_tick [TIMES]               OnTick and OnUpdate
  sdk_result SLOT VALUE           result the SDK double returns from now on for SLOT: add_user,
                                  del_user, recv_anti_data or tick_user
  host_send_result VALUE          what the host's send function returns from now on (0 = sent)
  sdk_version TEXT|none           version text the SDK double reports
  reload                          OnReload with the SDK file unchanged
  reload_changed                  change the SDK copy (new MD5), then OnReload
  repeat N ... end                run the enclosed lines N times (may nest)
  expect COUNTER VALUE            fail the run unless COUNTER equals VALUE now; counters:
                                  logins logouts ticks msgs sends send_failures host_sends
                                  reloads sdk.init sdk.quit sdk.add_user sdk.del_user
                                  sdk.recv_anti_data sdk.tick_user sdk.fail.<slot>
                                  (sdk.* need the SDK test double; sends = requests to the
                                  double, host_sends = data that reached the host)
See tools/quelld_sim/example.scenario and example.conf for commented examples.
)";
}

}  // namespace quelld_sim
