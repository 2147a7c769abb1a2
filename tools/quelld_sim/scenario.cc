#include "scenario.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>

namespace quelld_sim {

namespace {

std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  std::istringstream in(line);
  std::string w;
  while (in >> w) words.push_back(w);
  return words;
}

bool ToInt(const std::string& text, int64_t min, int64_t max, int64_t* out) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  long long v = strtoll(text.c_str(), &end, 0);
  if (errno != 0 || end == text.c_str() || *end != '\0' || v < min || v > max) return false;
  *out = v;
  return true;
}

const char* const kSlotNames[] = {"add_user", "del_user", "recv_anti_data", "tick_user"};

bool SlotByName(const std::string& name, int* slot) {
  for (int i = 0; i < 4; ++i) {
    if (name == kSlotNames[i]) {
      *slot = i;
      return true;
    }
  }
  return false;
}

// One parsed line before repeat blocks are expanded.
struct Line {
  int lineno = 0;
  bool repeat = false;  // "repeat N": opens a block
  bool end = false;     // "end": closes it
  long count = 0;
  Command cmd;
};

class Parser {
 public:
  explicit Parser(Scenario* out) : out_(out) {}

  bool Parse(const std::string& text, std::string* err) {
    std::istringstream in(text);
    std::string raw;
    int lineno = 0;
    std::vector<Line> lines;
    while (std::getline(in, raw)) {
      ++lineno;
      size_t hash = raw.find('#');
      if (hash != std::string::npos) raw.erase(hash);
      std::vector<std::string> w = Words(raw);
      if (w.empty()) continue;
      Line line;
      line.lineno = lineno;
      std::string why;
      if (!ParseLine(w, &line, &why)) {
        *err = "line " + std::to_string(lineno) + ": " + why;
        return false;
      }
      if (line.cmd.line != 0 || line.repeat || line.end) lines.push_back(line);
    }
    size_t pos = 0;
    bool closed = false;
    if (!Block(lines, &pos, &out_->commands, &closed, err)) return false;
    if (closed) {
      *err = "line " + std::to_string(lines[pos - 1].lineno) + ": 'end' without 'repeat'";
      return false;
    }
    return true;
  }

 private:
  int FindUser(const std::string& name) const {
    auto it = index_.find(name);
    return it == index_.end() ? -2 : it->second;
  }

  bool Who(const std::string& name, Command* cmd, std::string* why) {
    if (name == "*") {
      cmd->user = kAllUsers;
      return true;
    }
    int idx = FindUser(name);
    if (idx < 0) {
      *why = "unknown user '" + name + "' (define it with 'user' first)";
      return false;
    }
    cmd->user = idx;
    return true;
  }

  bool Times(const std::vector<std::string>& w, size_t at, Command* cmd, std::string* why) {
    if (w.size() <= at) return true;
    if (w.size() > at + 1) {
      *why = "too many words";
      return false;
    }
    int64_t n;
    if (!ToInt(w[at], 0, static_cast<int64_t>(kMaxCommands), &n)) {
      *why = "TIMES must be a number from 0 to " + std::to_string(kMaxCommands);
      return false;
    }
    cmd->times = static_cast<long>(n);
    return true;
  }

  // Fills one user from key=value words.
  bool UserKeys(const std::vector<std::string>& w, size_t from, quelld::User* u, bool* has_ip,
                std::string* why) {
    for (size_t i = from; i < w.size(); ++i) {
      size_t eq = w[i].find('=');
      if (eq == std::string::npos) {
        *why = "expected key=value, got '" + w[i] + "'";
        return false;
      }
      std::string key = w[i].substr(0, eq), value = w[i].substr(eq + 1);
      int64_t n = 0;
      auto number = [&](int64_t max) {
        if (ToInt(value, 0, max, &n)) return true;
        *why = key + ": expected a number from 0 to " + std::to_string(max);
        return false;
      };
      if (key == "openid") {
        if (value.size() >= sizeof(u->openid)) {
          *why = "openid longer than " + std::to_string(sizeof(u->openid) - 1) + " characters";
          return false;
        }
        snprintf(u->openid, sizeof(u->openid), "%s", value.c_str());
      } else if (key == "ip") {
        if (value.size() >= sizeof(u->client_ip)) {
          *why = "ip longer than " + std::to_string(sizeof(u->client_ip) - 1) + " characters";
          return false;
        }
        snprintf(u->client_ip, sizeof(u->client_ip), "%s", value.c_str());
        *has_ip = true;
      } else if (key == "account_type") {
        if (!number(UINT32_MAX)) return false;
        u->account_type = static_cast<uint32_t>(n);
      } else if (key == "auth_type") {
        if (!number(UINT16_MAX)) return false;
        u->auth_type = static_cast<uint16_t>(n);
      } else if (key == "platid") {
        if (!number(UINT32_MAX)) return false;
        u->platid = static_cast<uint32_t>(n);
      } else if (key == "world") {
        if (!number(UINT32_MAX)) return false;
        u->world_id = static_cast<uint32_t>(n);
      } else if (key == "channel") {
        if (!number(UINT32_MAX)) return false;
        u->channel_id = static_cast<uint32_t>(n);
      } else {
        *why = "unknown user key '" + key + "'";
        return false;
      }
    }
    return true;
  }

  bool AddUser(const std::string& name, const quelld::User& u, std::string* why) {
    if (name == "*" || FindUser(name) >= 0) {
      *why = name == "*" ? "'*' cannot be a user name" : "user '" + name + "' defined twice";
      return false;
    }
    index_[name] = static_cast<int>(out_->users.size());
    out_->names.push_back(name);
    out_->users.push_back(u);
    return true;
  }

  bool DefineUsers(const std::vector<std::string>& w, bool many, std::string* why) {
    if (w.size() < (many ? 3u : 2u)) {
      *why =
          many ? "usage: users COUNT PREFIX [key=value ...]" : "usage: user NAME [key=value ...]";
      return false;
    }
    int64_t count = 1;
    if (many && !ToInt(w[1], 1, 100000, &count)) {
      *why = "COUNT must be a number from 1 to 100000";
      return false;
    }
    const std::string& base = many ? w[2] : w[1];
    for (int64_t i = 0; i < count; ++i) {
      quelld::User u;
      memset(&u, 0, sizeof(u));
      std::string name = many ? base + std::to_string(i) : base;
      snprintf(u.openid, sizeof(u.openid), "%s", name.c_str());
      bool has_ip = false;
      if (!UserKeys(w, many ? 3 : 2, &u, &has_ip, why)) return false;
      if (!has_ip) {
        uint32_t n = many ? static_cast<uint32_t>(i) + 1 : 1;
        snprintf(u.client_ip, sizeof(u.client_ip), "10.%u.%u.%u", (n >> 16) & 255, (n >> 8) & 255,
                 n & 255);
      }
      if (!AddUser(name, u, why)) return false;
    }
    return true;
  }

  bool ParseLine(const std::vector<std::string>& w, Line* line, std::string* why) {
    const std::string& op = w[0];
    Command& c = line->cmd;
    c.line = line->lineno;
    auto want = [&](size_t min, size_t max, const char* usage) {
      if (w.size() >= min && w.size() <= max) return true;
      *why = std::string("usage: ") + usage;
      return false;
    };
    if (op == "user" || op == "users") {
      c.line = 0;  // a definition, not a command
      return DefineUsers(w, op == "users", why);
    }
    if (op == "repeat") {
      int64_t n;
      if (!want(2, 2, "repeat N")) return false;
      if (!ToInt(w[1], 0, static_cast<int64_t>(kMaxCommands), &n)) {
        *why = "N must be a number from 0 to " + std::to_string(kMaxCommands);
        return false;
      }
      line->repeat = true;
      line->count = static_cast<long>(n);
      c.line = 0;
      return true;
    }
    if (op == "end") {
      if (!want(1, 1, "end")) return false;
      line->end = true;
      c.line = 0;
      return true;
    }
    if (op == "login" || op == "logout") {
      c.op = op == "login" ? Op::kLogin : Op::kLogout;
      return want(2, 2, "login|logout WHO") && Who(w[1], &c, why);
    }
    if (op == "tick") {
      c.op = Op::kTick;
      return want(2, 3, "tick WHO [TIMES]") && Who(w[1], &c, why) && Times(w, 2, &c, why);
    }
    if (op == "msg" || op == "send") {
      c.op = op == "msg" ? Op::kMsg : Op::kSend;
      return want(3, 4, "msg|send WHO DATA [TIMES]") && Who(w[1], &c, why) &&
             ParseData(w[2], &c.data, why) && Times(w, 3, &c, why);
    }
    if (op == "host_tick") {
      c.op = Op::kHostTick;
      return want(1, 2, "host_tick [TIMES]") && Times(w, 1, &c, why);
    }
    if (op == "sdk_result") {
      c.op = Op::kSdkResult;
      if (!want(3, 3, "sdk_result SLOT VALUE")) return false;
      if (!SlotByName(w[1], &c.slot)) {
        *why = "unknown slot '" + w[1] + "' (add_user, del_user, recv_anti_data, tick_user)";
        return false;
      }
      if (!ToInt(w[2], INT32_MIN, INT32_MAX, &c.value)) {
        *why = "VALUE must be a 32-bit number";
        return false;
      }
      return true;
    }
    if (op == "host_send_result") {
      c.op = Op::kHostSendResult;
      if (!want(2, 2, "host_send_result VALUE")) return false;
      if (!ToInt(w[1], INT32_MIN, INT32_MAX, &c.value)) {
        *why = "VALUE must be a 32-bit number";
        return false;
      }
      return true;
    }
    if (op == "sdk_version") {
      c.op = Op::kSdkVersion;
      if (!want(2, 2, "sdk_version TEXT|none")) return false;
      c.null_text = w[1] == "none";
      c.data = c.null_text ? "" : w[1];
      return true;
    }
    if (op == "reload" || op == "reload_changed") {
      c.op = op == "reload" ? Op::kReload : Op::kReloadChanged;
      return want(1, 1, "reload | reload_changed");
    }
    if (op == "expect") {
      c.op = Op::kExpect;
      if (!want(3, 3, "expect COUNTER VALUE")) return false;
      if (!IsKnownCounter(w[1])) {
        *why = "unknown counter '" + w[1] + "' (see --help)";
        return false;
      }
      c.data = w[1];
      if (!ToInt(w[2], 0, INT64_MAX, &c.value)) {
        *why = "VALUE must be a number of 0 or more";
        return false;
      }
      return true;
    }
    *why = "unknown command '" + op + "'";
    return false;
  }

  // Appends the commands of lines[*pos..] to `dst` until an "end" (consumed; *closed = true) or
  // the end of the text, expanding nested repeat blocks.
  bool Block(const std::vector<Line>& lines, size_t* pos, std::vector<Command>* dst, bool* closed,
             std::string* err) {
    *closed = false;
    while (*pos < lines.size()) {
      const Line& l = lines[(*pos)++];
      if (l.end) {
        *closed = true;
        return true;
      }
      if (!l.repeat) {
        if (!Push(dst, l.cmd, err)) return false;
        continue;
      }
      std::vector<Command> body;
      bool body_closed = false;
      if (!Block(lines, pos, &body, &body_closed, err)) return false;
      if (!body_closed) {
        *err = "line " + std::to_string(l.lineno) + ": 'repeat' without 'end'";
        return false;
      }
      for (long k = 0; k < l.count && !body.empty(); ++k) {
        for (const Command& c : body) {
          if (!Push(dst, c, err)) return false;
        }
      }
    }
    return true;
  }

  static bool Push(std::vector<Command>* dst, const Command& c, std::string* err) {
    if (dst->size() >= kMaxCommands) {
      *err = "line " + std::to_string(c.line) + ": more than " + std::to_string(kMaxCommands) +
             " commands after expanding repeat blocks";
      return false;
    }
    dst->push_back(c);
    return true;
  }

  Scenario* out_;
  std::map<std::string, int> index_;
};

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

}  // namespace

bool ParseData(const std::string& word, std::string* bytes, std::string* err) {
  bytes->clear();
  if (word == "empty") return true;
  if (word.compare(0, 4, "hex:") == 0) {
    std::string hex = word.substr(4);
    if (hex.size() % 2 != 0) {
      *err = "hex data needs an even number of digits";
      return false;
    }
    for (size_t i = 0; i < hex.size(); i += 2) {
      int hi = HexDigit(hex[i]), lo = HexDigit(hex[i + 1]);
      if (hi < 0 || lo < 0) {
        *err = "bad hex digit in '" + word + "'";
        return false;
      }
      bytes->push_back(static_cast<char>(hi * 16 + lo));
    }
    return true;
  }
  if (word.compare(0, 5, "size:") == 0) {
    int64_t n;
    if (!ToInt(word.substr(5), 0, static_cast<int64_t>(kMaxDataSize), &n)) {
      *err = "size:N needs N from 0 to " + std::to_string(kMaxDataSize);
      return false;
    }
    bytes->resize(static_cast<size_t>(n));
    for (size_t i = 0; i < bytes->size(); ++i) {
      (*bytes)[i] = static_cast<char>((i * 131 + 17) & 0xFF);
    }
    return true;
  }
  *bytes = word;
  return true;
}

bool IsKnownCounter(const std::string& name) {
  static const char* const kCounters[] = {"logins",   "logouts",       "ticks",      "msgs",
                                          "sends",    "send_failures", "host_sends", "reloads",
                                          "sdk.init", "sdk.quit"};
  for (const char* c : kCounters) {
    if (name == c) return true;
  }
  int slot;
  if (name.compare(0, 4, "sdk.") == 0 && SlotByName(name.substr(4), &slot)) return true;
  if (name.compare(0, 9, "sdk.fail.") == 0 && SlotByName(name.substr(9), &slot)) return true;
  return false;
}

bool ParseScenario(const std::string& text, Scenario* out, std::string* err) {
  *out = Scenario();
  Parser p(out);
  return p.Parse(text, err);
}

std::string DefaultScenarioText(const SimOptions& opts) {
  // (account_type, auth_type, platid) mixes that cover every branch of the plug-in's translations.
  static const unsigned kMix[][3] = {
      {4099, 4097, 101}, {4098, 4098, 102}, {8193, 4099, 0}, {1, 8193, 103}, {5, 4096, 110},
      {7, 4101, 120},    {3, 65535, 130},   {2, 4112, 140},  {1, 1, 105},    {9, 4102, 104},
  };
  const size_t mixes = sizeof(kMix) / sizeof(kMix[0]);
  const long users = opts.users;
  std::string s;
  char buf[512];
  snprintf(buf, sizeof(buf),
           "# Built-in scenario: %ld users, %d rounds of tick + %d-byte message, %d SDK sends\n"
           "# per user, one login the SDK rejects, then every user logs out.\n",
           users, opts.rounds, opts.msg_size, opts.sends);
  s += buf;
  for (long i = 0; i < users; ++i) {
    const unsigned* m = kMix[static_cast<size_t>(i) % mixes];
    snprintf(buf, sizeof(buf),
             "user u%ld openid=sim-player-%06ld account_type=%u auth_type=%u platid=%u "
             "world=%ld channel=%ld ip=10.%ld.%ld.%ld\n",
             i, i, m[0], m[1], m[2], 1 + i % 4, 100 + i % 7, (i + 1) >> 16 & 255,
             (i + 1) >> 8 & 255, (i + 1) & 255);
    s += buf;
  }
  s += "# Edge users: an openid longer than the SDK's 64 characters, and a client address that\n"
       "# is not an IPv4 address (reaches the SDK as 0xFFFFFFFF).\n";
  s += "user longid openid=" + std::string(100, 'L') +
       " account_type=4099 auth_type=4097 platid=102 world=9 channel=9 ip=192.168.1.200\n";
  s += "user badip openid=sim-badip account_type=1 auth_type=8193 platid=0 ip=300.1.2.3\n";
  s += "login *\n";
  snprintf(buf, sizeof(buf), "repeat %d\n  tick *\n  msg * size:%d\n  host_tick\nend\n",
           opts.rounds, opts.msg_size);
  s += buf;
  if (opts.sends > 0) {
    snprintf(buf, sizeof(buf), "send * size:32 %d\n", opts.sends);
    s += buf;
  }
  s += "msg u0 empty\n"
       "# The SDK rejects one login; the plug-in logs it as an error and carries on.\n"
       "sdk_result add_user 3\nlogin u0\nsdk_result add_user 0\n"
       "logout *\n";
  const long all = users + 2;
  snprintf(buf, sizeof(buf),
           "expect logins %ld\nexpect logouts %ld\nexpect sdk.add_user %ld\n"
           "expect sdk.fail.add_user 1\nexpect sdk.recv_anti_data %ld\nexpect sdk.tick_user %ld\n"
           "expect host_sends %ld\n",
           all + 1, all, all + 1, all * opts.rounds + 1, all * opts.rounds, all * opts.sends);
  s += buf;
  return s;
}

}  // namespace quelld_sim
