#include "scenario.h"

#include <cstdio>
#include <cstring>
#include <map>

#include "tool_input.h"

namespace quelld_sim {

namespace {

using zq_tools::ParseDecimal;
using zq_tools::Printable;
using zq_tools::Word;

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

int HexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Bytes of a DATA word into `c`: hex:.., size:N, empty, or the word itself (always the word
// itself when it was quoted).
bool ParseData(const Word& w, Command* c, std::string* why) {
  const std::string& t = w.text;
  const std::string limit = std::to_string(kMaxDataSize);
  if (!w.quoted && t == "empty") return true;
  if (!w.quoted && t.compare(0, 4, "hex:") == 0) {
    const size_t digits = t.size() - 4;
    if (digits % 2 != 0) {
      *why = "hex data needs an even number of digits";
      return false;
    }
    if (digits / 2 > kMaxDataSize) {
      *why = "hex data longer than " + limit + " bytes";
      return false;
    }
    for (size_t i = 4; i < t.size(); i += 2) {
      int hi = HexDigit(t[i]), lo = HexDigit(t[i + 1]);
      if (hi < 0 || lo < 0) {
        *why = "bad hex digit in '" + Printable(t) + "'";
        return false;
      }
      c->data.push_back(static_cast<char>(hi * 16 + lo));
    }
    return true;
  }
  if (!w.quoted && t.compare(0, 5, "size:") == 0) {
    int64_t n;
    if (!ParseDecimal(t.substr(5), 0, static_cast<int64_t>(kMaxDataSize), &n)) {
      *why = "size:N needs N from 0 to " + limit + ", got '" + Printable(t) + "'";
      return false;
    }
    c->generated = static_cast<size_t>(n);
    return true;
  }
  if (t.size() > kMaxDataSize) {
    *why = "DATA longer than " + limit + " bytes";
    return false;
  }
  c->data = t;
  return true;
}

std::string Figure(uint64_t v) {
  return v == UINT64_MAX ? std::string("more than 10^19") : std::to_string(v);
}

uint64_t Mul(uint64_t a, uint64_t b) {
  uint64_t r;
  return __builtin_mul_overflow(a, b, &r) ? UINT64_MAX : r;
}

uint64_t Add(uint64_t a, uint64_t b) { return a + b < a ? UINT64_MAX : a + b; }

class Parser {
 public:
  explicit Parser(Scenario* out) : out_(out) {}

  bool Parse(const std::string& text, std::string* err) {
    size_t pos = 0;
    for (int lineno = 1; pos < text.size(); ++lineno) {
      size_t nl = text.find('\n', pos);
      if (nl == std::string::npos) nl = text.size();
      std::vector<Word> w;
      std::string why;
      bool ok = zq_tools::SplitWords(text.substr(pos, nl - pos), &w, &why) &&
                (w.empty() || ParseLine(w, lineno, &why));
      pos = nl + 1;
      if (!ok) {
        *err = "line " + std::to_string(lineno) + ": " + why;
        return false;
      }
    }
    if (!open_.empty()) {
      *err =
          "line " + std::to_string(out_->program[open_.back()].line) + ": 'repeat' without 'end'";
      return false;
    }
    return Cost(err);
  }

 private:
  bool Who(const std::string& name, Command* cmd, std::string* why) {
    if (name == "*") {
      cmd->user = kAllUsers;
      return true;
    }
    auto it = index_.find(name);
    if (it == index_.end()) {
      *why = "unknown user '" + Printable(name) + "' (define it with 'user' first)";
      return false;
    }
    cmd->user = it->second;
    return true;
  }

  static bool Times(const std::vector<Word>& w, size_t at, Command* cmd, std::string* why) {
    if (w.size() <= at) return true;
    int64_t n;
    if (!ParseDecimal(w[at].text, 0, static_cast<int64_t>(kMaxEventsPerCommand), &n)) {
      *why = "TIMES must be a number from 0 to " + std::to_string(kMaxEventsPerCommand) +
             ", got '" + Printable(w[at].text) + "'";
      return false;
    }
    cmd->times = static_cast<long>(n);
    return true;
  }

  // Fills one user from key=value words.
  static bool UserKeys(const std::vector<Word>& w, size_t from, quelld::User* u, bool* has_ip,
                       std::string* why) {
    for (size_t i = from; i < w.size(); ++i) {
      size_t eq = w[i].text.find('=');
      if (eq == std::string::npos) {
        *why = "expected key=value, got '" + Printable(w[i].text) + "'";
        return false;
      }
      const std::string key = w[i].text.substr(0, eq), value = w[i].text.substr(eq + 1);
      auto text = [&](char* field, size_t size) {
        if (value.size() >= size) {
          *why = key + " longer than " + std::to_string(size - 1) + " characters";
          return false;
        }
        snprintf(field, size, "%s", value.c_str());
        return true;
      };
      uint64_t n = 0;
      auto id = [&](uint64_t max) {
        if (zq_tools::ParseId(value, max, &n)) return true;
        *why = key + ": expected a number from 0 to " + std::to_string(max) +
               " (decimal or 0x hexadecimal), got '" + Printable(value) + "'";
        return false;
      };
      if (key == "openid") {
        if (!text(u->openid, sizeof(u->openid))) return false;
      } else if (key == "ip") {
        if (!text(u->client_ip, sizeof(u->client_ip))) return false;
        *has_ip = true;
      } else if (key == "auth_type") {
        if (!id(UINT16_MAX)) return false;
        u->auth_type = static_cast<uint16_t>(n);
      } else if (key == "account_type" || key == "platid" || key == "world" || key == "channel") {
        if (!id(UINT32_MAX)) return false;
        uint32_t& f = key == "account_type" ? u->account_type
                      : key == "platid"     ? u->platid
                      : key == "world"      ? u->world_id
                                            : u->channel_id;
        f = static_cast<uint32_t>(n);
      } else {
        *why = "unknown user key '" + Printable(key) + "'";
        return false;
      }
    }
    return true;
  }

  bool DefineUsers(const std::vector<Word>& w, bool many, std::string* why) {
    if (w.size() < (many ? 3u : 2u)) {
      *why =
          many ? "usage: users COUNT PREFIX [key=value ...]" : "usage: user NAME [key=value ...]";
      return false;
    }
    int64_t count = 1;
    if (many && !ParseDecimal(w[1].text, 1, static_cast<int64_t>(kMaxUsers), &count)) {
      *why = "COUNT must be a number from 1 to " + std::to_string(kMaxUsers) + ", got '" +
             Printable(w[1].text) + "'";
      return false;
    }
    if (out_->users.size() + static_cast<size_t>(count) > kMaxUsers) {
      *why = "more than " + std::to_string(kMaxUsers) + " users";
      return false;
    }
    const std::string& base = w[many ? 2 : 1].text;
    for (int64_t i = 0; i < count; ++i) {
      quelld::User u;
      memset(&u, 0, sizeof(u));
      const std::string name = many ? base + std::to_string(i) : base;
      snprintf(u.openid, sizeof(u.openid), "%s", name.c_str());
      bool has_ip = false;
      if (!UserKeys(w, many ? 3 : 2, &u, &has_ip, why)) return false;
      if (!has_ip) {
        uint32_t n = many ? static_cast<uint32_t>(i) + 1 : 1;
        snprintf(u.client_ip, sizeof(u.client_ip), "10.%u.%u.%u", (n >> 16) & 255, (n >> 8) & 255,
                 n & 255);
      }
      if (name == "*" || index_.count(name) != 0) {
        *why = name == "*" ? std::string("'*' cannot be a user name")
                           : "user '" + Printable(name) + "' defined twice";
        return false;
      }
      index_[name] = static_cast<int>(out_->users.size());
      out_->names.push_back(name);
      out_->users.push_back(u);
    }
    return true;
  }

  // One command line into the program (user definitions go to the user table).
  bool ParseLine(const std::vector<Word>& w, int lineno, std::string* why) {
    const std::string& op = w[0].text;
    Command c;
    c.line = lineno;
    auto want = [&](size_t min, size_t max, const char* usage) {
      if (w.size() >= min && w.size() <= max) return true;
      *why = std::string("usage: ") + usage;
      return false;
    };
    auto value32 = [&](const Word& v) {
      if (ParseDecimal(v.text, INT32_MIN, INT32_MAX, &c.value)) return true;
      *why = "VALUE must be a 32-bit number, got '" + Printable(v.text) + "'";
      return false;
    };
    bool ok;
    if (op == "user" || op == "users") {
      return DefineUsers(w, op == "users", why);
    } else if (op == "repeat") {
      c.op = Op::kRepeat;
      int64_t n = 0;
      ok = want(2, 2, "repeat N");
      if (ok && !ParseDecimal(w[1].text, 0, static_cast<int64_t>(kMaxSteps), &n)) {
        *why = "N must be a number from 0 to " + std::to_string(kMaxSteps) + ", got '" +
               Printable(w[1].text) + "'";
        ok = false;
      }
      if (ok && open_.size() >= static_cast<size_t>(kMaxRepeatDepth)) {
        *why = "repeat blocks nested more than " + std::to_string(kMaxRepeatDepth) + " deep";
        ok = false;
      }
      c.times = static_cast<long>(n);
      if (ok) open_.push_back(out_->program.size());
    } else if (op == "end") {
      c.op = Op::kEnd;
      ok = want(1, 1, "end");
      if (ok && open_.empty()) {
        *why = "'end' without 'repeat'";
        ok = false;
      }
      if (ok) {
        c.jump = open_.back();
        out_->program[open_.back()].jump = out_->program.size() + 1;
        open_.pop_back();
      }
    } else if (op == "login" || op == "logout") {
      c.op = op == "login" ? Op::kLogin : Op::kLogout;
      ok = want(2, 2, "login|logout WHO") && Who(w[1].text, &c, why);
    } else if (op == "tick") {
      c.op = Op::kTick;
      ok = want(2, 3, "tick WHO [TIMES]") && Who(w[1].text, &c, why) && Times(w, 2, &c, why);
    } else if (op == "msg" || op == "send") {
      c.op = op == "msg" ? Op::kMsg : Op::kSend;
      ok = want(3, 4, "msg|send WHO DATA [TIMES]") && Who(w[1].text, &c, why) &&
           ParseData(w[2], &c, why) && Times(w, 3, &c, why);
    } else if (op == "host_tick") {
      c.op = Op::kHostTick;
      ok = want(1, 2, "host_tick [TIMES]") && Times(w, 1, &c, why);
    } else if (op == "sdk_result") {
      c.op = Op::kSdkResult;
      ok = want(3, 3, "sdk_result SLOT VALUE");
      if (ok && !SlotByName(w[1].text, &c.slot)) {
        *why = "unknown slot '" + Printable(w[1].text) +
               "' (add_user, del_user, recv_anti_data, tick_user)";
        ok = false;
      }
      ok = ok && value32(w[2]);
    } else if (op == "host_send_result") {
      c.op = Op::kHostSendResult;
      ok = want(2, 2, "host_send_result VALUE") && value32(w[1]);
    } else if (op == "sdk_version") {
      c.op = Op::kSdkVersion;
      ok = want(2, 2, "sdk_version TEXT|none");
      if (ok) {
        c.null_text = !w[1].quoted && w[1].text == "none";
        c.data = c.null_text ? "" : w[1].text;
      }
    } else if (op == "reload" || op == "reload_changed") {
      c.op = op == "reload" ? Op::kReload : Op::kReloadChanged;
      ok = want(1, 1, "reload | reload_changed");
    } else if (op == "expect") {
      c.op = Op::kExpect;
      ok = want(3, 3, "expect COUNTER VALUE");
      if (ok && !IsKnownCounter(w[1].text)) {
        *why = "unknown counter '" + Printable(w[1].text) + "' (see --help)";
        ok = false;
      }
      c.data = w[1].text;
      if (ok && !ParseDecimal(w[2].text, 0, INT64_MAX, &c.value)) {
        *why = "VALUE must be a number of 0 or more, got '" + Printable(w[2].text) + "'";
        ok = false;
      }
    } else {
      *why = "unknown command '" + Printable(op) + "'";
      return false;
    }
    if (!ok) return false;
    if (out_->program.size() >= kMaxProgram) {
      *why = "more than " + std::to_string(kMaxProgram) + " commands";
      return false;
    }
    out_->program.push_back(std::move(c));
    return true;
  }

  // Adds up what one play of the program does, refusing it at the first line that takes a total
  // past its limit. Products saturate, so any nesting is computed safely.
  bool Cost(std::string* err) {
    ScenarioCost& t = out_->cost;
    std::vector<uint64_t> mults;  // runs of each enclosing block, outermost first
    uint64_t mult = 1;            // runs of the current line
    const uint64_t all = out_->users.size();
    for (const Command& c : out_->program) {
      const std::string at = "line " + std::to_string(c.line) + ": ";
      t.steps = Add(t.steps, mult);
      if (c.op == Op::kRepeat) {
        mults.push_back(mult);
        mult = Mul(mult, static_cast<uint64_t>(c.times));
      } else if (c.op == Op::kEnd) {
        mult = mults.back();
        mults.pop_back();
      }
      if (t.steps > kMaxSteps) {
        *err = at + "by this line the scenario plays " + Figure(t.steps) +
               " commands (repeat blocks unrolled), more than the limit of " +
               std::to_string(kMaxSteps);
        return false;
      }
      const bool user_op = c.op <= Op::kSend;
      if (!user_op && c.op != Op::kHostTick) continue;
      const uint64_t users = user_op && c.user == kAllUsers ? all : 1;
      const uint64_t times = static_cast<uint64_t>(c.times);
      if (Mul(times, users) > kMaxEventsPerCommand) {
        *err = at + "TIMES " + std::to_string(times) + " x users " + std::to_string(users) + " = " +
               Figure(Mul(times, users)) + " events from one command, more than the limit of " +
               std::to_string(kMaxEventsPerCommand);
        return false;
      }
      const uint64_t events = Mul(mult, Mul(times, users));
      const uint64_t size = c.generated != 0 ? c.generated : c.data.size();
      const uint64_t bytes = c.op == Op::kMsg || c.op == Op::kSend ? Mul(events, size) : 0;
      t.events = Add(t.events, events);
      t.bytes = Add(t.bytes, bytes);
      const std::string alone = "repeated " + Figure(mult) + " x TIMES " + std::to_string(times) +
                                " x users " + std::to_string(users) + " = " + Figure(events) +
                                " events";
      if (t.events > kMaxEvents) {
        *err = at + "by this line the scenario plays " + Figure(t.events) +
               " events, more than the limit of " + std::to_string(kMaxEvents) +
               " (this line: " + alone + ")";
        return false;
      }
      if (t.bytes > kMaxBytes) {
        *err = at + "by this line the scenario relays " + Figure(t.bytes) +
               " bytes of message data, more than the limit of " + std::to_string(kMaxBytes) +
               " (this line: " + alone + " of " + std::to_string(size) + " bytes)";
        return false;
      }
    }
    return true;
  }

  Scenario* out_;
  std::map<std::string, int> index_;
  std::vector<size_t> open_;  // program indexes of the repeat lines not yet closed
};

}  // namespace

bool PlayProgram(const Scenario& scenario, const std::function<bool(const Command&)>& play) {
  const std::vector<Command>& p = scenario.program;
  std::vector<long> left;  // runs still to go of each open block
  for (size_t pc = 0; pc < p.size();) {
    const Command& c = p[pc];
    if (c.op == Op::kRepeat) {
      if (c.times == 0) {
        pc = c.jump;
        continue;
      }
      left.push_back(c.times);
      ++pc;
    } else if (c.op == Op::kEnd) {
      if (--left.back() > 0) {
        pc = c.jump + 1;
      } else {
        left.pop_back();
        ++pc;
      }
    } else {
      if (!play(c)) return false;
      ++pc;
    }
  }
  return true;
}

const char* GeneratedData() {
  static const std::string data = [] {
    std::string d(kMaxDataSize, '\0');
    for (size_t i = 0; i < d.size(); ++i) d[i] = static_cast<char>((i * 131 + 17) & 0xFF);
    return d;
  }();
  return data.data();
}

std::string_view CommandData(const Command& c) {
  if (c.generated != 0) return std::string_view(GeneratedData(), c.generated);
  return c.data;
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
