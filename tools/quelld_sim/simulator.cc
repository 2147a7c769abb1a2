#include "simulator.h"

#include <arpa/inet.h>
#include <signal.h>
#include <strings.h>
#include <sys/stat.h>

#include <cerrno>
#include <chrono>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "host.h"
#include "json_writer.h"
#include "kry_sdk_double.h"
#include "latency.h"
#include "tool_input.h"
#include "wlog/wlog.h"
#include "wmng/terror.h"
#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"
#include "zq/kry_sdk.h"

namespace quelld_sim {

namespace {

enum Kind { kLogin, kLogout, kTick, kMsg, kSend, kHostTick, kReloadKind, kKinds };
const char* const kKindNames[kKinds] = {"login", "logout",    "tick",  "msg",
                                        "send",  "host_tick", "reload"};
constexpr int kUserKinds = 5;  // login .. send: the user events counted as relayed events

// Extension data the host hands with every client message; the plug-in must not pass it on.
const char kClientExt[] = "client-ext-data";
constexpr size_t kMaxProblemsShown = 20;
constexpr size_t kSdkAccountChars = MAX_KRY_ACCOUNT_INFO_ACCOUNT_LEN - 1;

// The SDK's texts for a failed user event, one per user slot, as the plug-in logs them.
const char* const kFailureLogTexts[] = {"add user failed,ret:", "del user failed,ret:",
                                        "recv_anti_data_ failed,ret:", "tick user failed,ret:"};
const char kNotChangedLogText[] = "libkry_sdk.so not change.will not reload";

std::string Format(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
std::string Format(const char* fmt, ...) {
  char buf[1024];
  va_list ap;
  va_start(ap, fmt);
  vsnprintf(buf, sizeof(buf), fmt, ap);
  va_end(ap);
  return buf;
}

std::string SdkAccount(const quelld::User& u) {
  size_t n = strnlen(u.openid, sizeof(u.openid));
  return std::string(u.openid, n < kSdkAccountChars ? n : kSdkAccountChars);
}

size_t CountOccurrences(const std::string& text, const char* what) {
  size_t n = 0, len = strlen(what);
  for (size_t pos = text.find(what); pos != std::string::npos; pos = text.find(what, pos + len)) {
    ++n;
  }
  return n;
}

// State of the host's send function, which the SDK reaches through the plug-in.
struct HostSends {
  long calls = 0;
  long bytes = 0;
  long unexpected = 0;
  int answer = 0;          // what the send function returns
  bool expecting = false;  // a send through the SDK double is under way
  std::string want_account;
  std::string want_data;
  std::string problem;  // first mismatch of the current send
};
HostSends* g_host = nullptr;

int HostSendToClient(const char* account, uint32_t arg1, uint32_t arg2, const char* ext_data,
                     uint32_t ext_data_len, const char* data, uint32_t data_len) {
  HostSends* h = g_host;
  if (h == nullptr) return -1;
  ++h->calls;
  h->bytes += data_len;
  if (!h->expecting) {
    ++h->unexpected;
    return h->answer;
  }
  std::string got_account = account != nullptr ? account : "(null)";
  if (got_account != h->want_account) {
    h->problem =
        "host send went to account '" + got_account + "' instead of '" + h->want_account + "'";
  } else if (arg1 != 1 || arg2 != 0) {
    h->problem = Format("host send arguments were %u, %u instead of 1, 0", arg1, arg2);
  } else if (ext_data != nullptr || ext_data_len != 0) {
    h->problem =
        Format("host send carried %u bytes of extension data, none were sent", ext_data_len);
  } else if (data_len != h->want_data.size() ||
             (data_len > 0 &&
              (data == nullptr || memcmp(data, h->want_data.data(), data_len) != 0))) {
    h->problem = Format("host send carried %u bytes that differ from the %zu bytes the SDK sent",
                        data_len, h->want_data.size());
  }
  return h->answer;
}

// What one OnReload did to the SDK (known only with the test double).
struct ReloadOutcome {
  bool changed = false;  // the SDK file was changed before the reload
  bool known = false;
  long quits = 0, starts = 0;
};

// A result of the logging library as the simulator reports it: the call, the code in decimal
// and hexadecimal, and the library's text for it.
std::string WlogResult(const char* call, int rc) {
  return Format("%s returned %d (0x%08X): %s", call, rc, static_cast<unsigned>(rc),
                wlog_error_string(rc));
}

// Every path the run reads or writes, checked before anything starts.
bool CheckPaths(const SimOptions& o, std::string* err) {
  std::string why;
  if (!zq_tools::CheckRegularFile(o.plugin, &why)) {
    *err = "plug-in " + why;
    return false;
  }
  if (!zq_tools::CheckDirectory(o.sdk_dir, &why)) {
    *err = "SDK directory " + why;
    return false;
  }
  const std::string sdk = o.sdk_dir + "/" KRY_SDK_LIB_BASE_NAME "." KRY_SDK_LIB_EXT_NAME;
  if (!zq_tools::CheckRegularFile(sdk, &why)) {
    *err = "SDK library " + why;
    return false;
  }
  if (!o.log_conf.empty() && !zq_tools::CheckRegularFile(o.log_conf, &why)) {
    *err = "logging configuration " + why;
    return false;
  }
  struct stat st;
  if (!o.log_file.empty() && stat(o.log_file.c_str(), &st) == 0 && !S_ISREG(st.st_mode)) {
    *err = "log file " + o.log_file + ": is not a regular file";
    return false;
  }
  if (!o.json.empty() && !zq_tools::CheckOutputFile(o.json, &why)) {
    *err = "JSON summary " + why;
    return false;
  }
  return true;
}

class Simulation {
 public:
  Simulation(const SimOptions& opts, const Scenario& sc, std::ostream& out, std::ostream& errs)
      : opts_(opts), sc_(sc), out_(out), errs_(errs) {
    g_host = &host_;
  }

  ~Simulation() {
    Unload();
    StopLogging();
    if (!workdir_.empty() && !opts_.keep) RemoveWorkDir(workdir_);
    g_host = nullptr;
  }

  int Run() {
    std::string err;
    if (!CheckPaths(opts_, &err)) {
      Fail(err);
      return kExitSetupFailed;
    }
    if (!Setup()) {
      AbandonStart();
      return Stopped() ? Interrupted() : kExitSetupFailed;
    }
    Log("quelld_sim: scenario started");
    auto t0 = std::chrono::steady_clock::now();
    PlayProgram(sc_, [this](const Command& c) {
      Play(c);
      return !Stopped();
    });
    wall_ns_ = Ns(t0);
    Log("quelld_sim: scenario finished");
    if (opts_.reload && !Stopped()) ReloadPhase();
    if (Stopped()) return Interrupted();
    Quit();
    CheckLog();
    if (double_seen_ && host_.unexpected > 0) {
      Problem(Format("the host send function was called %ld times without a send from the SDK",
                     host_.unexpected));
    }
    Summary();
    if (!opts_.json.empty() && !WriteJson(opts_.json, &err)) {
      errs_ << "quelld_sim: error: " << err << "\n";
      if (problems_ == 0) ++problems_;
    }
    if (!workdir_.empty() && !opts_.keep) {
      RemoveWorkDir(workdir_);
      workdir_.clear();
    } else if (!workdir_.empty()) {
      out_ << "work directory kept: " << workdir_ << "\n";
    }
    return problems_ == 0 ? kExitOk : kExitCheckFailed;
  }

 private:
  static uint64_t Ns(std::chrono::steady_clock::time_point since) {
    return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(
                                     std::chrono::steady_clock::now() - since)
                                     .count());
  }

  template <typename F>
  void Timed(Kind kind, F f) {
    auto t0 = std::chrono::steady_clock::now();
    f();
    lat_[kind].Add(Ns(t0));
  }

  static bool Stopped() { return StopSignal() != 0; }

  // Quits and unloads the plug-in if one is loaded, then closes the SDK copy and the library.
  void Unload() {
    if (plugin_ != nullptr) {
      plugin_->OnQuit();
      delete plugin_;
      plugin_ = nullptr;
    }
    sdk_.Close();
    lib_.Close();
  }

  // After SIGINT or SIGTERM: quit and unload the plug-in, close the log, remove the work
  // directory (unless kept), and say so.
  int Interrupted() {
    const int sig = StopSignal();
    Unload();
    StopLogging();
    long events = 0;
    for (int k = 0; k < kKinds; ++k) events += count_[k];
    std::string what = "work directory removed";
    if (!workdir_.empty() && opts_.keep) {
      what = "work directory kept: " + workdir_;
    } else if (!workdir_.empty()) {
      RemoveWorkDir(workdir_);
      workdir_.clear();
    }
    errs_ << Format("quelld_sim: stopped by %s after %ld events; %s\n",
                    sig == SIGINT    ? "SIGINT"
                    : sig == SIGTERM ? "SIGTERM"
                                     : Format("signal %d", sig).c_str(),
                    events, what.c_str());
    return 128 + sig;
  }

  const SdkDouble* Double() const {
    return sdk_.sdk_double().bound() ? &sdk_.sdk_double() : nullptr;
  }

  void Problem(const std::string& what) {
    ++problems_;
    if (shown_.size() < kMaxProblemsShown) shown_.push_back(what);
  }

  void Log(const char* text) { WLOG_LOG_INFO(cat_, "%s", text); }

  bool Fail(const std::string& what) {
    errs_ << "quelld_sim: error: " << what << "\n";
    return false;
  }

  // ---- start-up ----

  bool Setup() {
    std::string err;
    if (!MakeWorkDir(&workdir_, &err)) return Fail(err);
    sdk_copy_ = workdir_ + "/" KRY_SDK_LIB_BASE_NAME "." KRY_SDK_LIB_EXT_NAME;
    std::string sdk_src = opts_.sdk_dir + "/" KRY_SDK_LIB_BASE_NAME "." KRY_SDK_LIB_EXT_NAME;
    if (!CopyFile(sdk_src, sdk_copy_, &err)) return Fail("SDK library: " + err);
    if (!StartLogging()) return false;
    if (!lib_.Open(opts_.plugin, &err)) return Fail(err);
    plugin_ = lib_.Create();
    if (plugin_ == nullptr) return Fail("CreateQuelldPlugin returned null");
    const char* version = plugin_->Version();
    plugin_version_ = version != nullptr ? version : "";
    plugin_id_ = plugin_->GetPluginID();
    out_ << "plug-in: " << opts_.plugin << "\n  version " << plugin_version_ << ", id "
         << plugin_id_ << ", host interface " << lib_.api_version() << "\n";

    quelld::Options o;
    memset(&o, 0, sizeof(o));
    std::string lib_ext = workdir_ + "/";
    if (lib_ext.size() >= sizeof(o.lib_ext)) {
      return Fail("work directory path " + workdir_ + " is too long for the plug-in's options");
    }
    o.pluginid = opts_.pluginid;
    o.gameid = opts_.gameid;
    snprintf(o.gamekey, sizeof(o.gamekey), "%s", opts_.gamekey.c_str());
    o.log = cat_;
    snprintf(o.lib, sizeof(o.lib), "%s", opts_.plugin.c_str());
    snprintf(o.lib_ext, sizeof(o.lib_ext), "%s", lib_ext.c_str());
    o.send_cob = HostSendToClient;
    o.network_type = opts_.network_type;
    o.backend_env_type = opts_.backend_env;
    snprintf(o.data_proxy_domain, sizeof(o.data_proxy_domain), "%s", opts_.data_proxy.c_str());
    snprintf(o.busi_proxy_domain, sizeof(o.busi_proxy_domain), "%s", opts_.busi_proxy.c_str());
    snprintf(o.test_data_proxy_domain, sizeof(o.test_data_proxy_domain), "%s",
             opts_.test_data_proxy.c_str());
    snprintf(o.test_busi_proxy_domain, sizeof(o.test_busi_proxy_domain), "%s",
             opts_.test_busi_proxy.c_str());

    auto t0 = std::chrono::steady_clock::now();
    int rc = plugin_->OnInit(o);
    init_ns_ = Ns(t0);
    if (rc != 0) {
      return Fail(Format("OnInit returned %d: the plug-in could not start the SDK copied from %s",
                         rc, opts_.sdk_dir.c_str()));
    }
    sdk_.Attach(sdk_copy_);
    const SdkDouble* d = Double();
    out_ << "SDK: "
         << (d != nullptr ? "test double" : "not the test double; double-only steps skipped")
         << ", from " << opts_.sdk_dir << "\n  working copy " << sdk_copy_ << "\n";
    if (d != nullptr) CheckStart(*d);
    return true;
  }

  // After a failed start: quit and unload the plug-in, close the log, and show the end of the log
  // on the error stream, since the work directory that holds it is about to go.
  void AbandonStart() {
    Unload();
    if (ctx_ == nullptr) return;
    StopLogging();
    std::string text;
    if (!ReadFile(log_path_, &text) || text.empty()) return;
    size_t from = text.size();  // start of the last 20 lines
    int newlines = 0;
    while (from > 0) {
      if (text[from - 1] == '\n' && ++newlines == 21) break;
      --from;
    }
    errs_ << "quelld_sim: last lines of the log " << log_path_ << ":\n" << text.substr(from);
  }

  // The SDK must have been started once with the host's options.
  void CheckStart(const SdkDouble& d) {
    if (d.init_count() != 1 || d.is_running() != 1) {
      Problem(Format("after OnInit the SDK was started %ld times and is %s", d.init_count(),
                     d.is_running() ? "running" : "not running"));
      return;
    }
    KrySdkInitInfo init;
    KrySdkAccessInfo access;
    if (d.record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_RECORD, &init, sizeof(init)) !=
            static_cast<long>(sizeof(init)) ||
        d.record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, KRY_DOUBLE_PART_ACCESS, &access,
                 sizeof(access)) != static_cast<long>(sizeof(access))) {
      Problem("the SDK was not started through its quelld initialiser with both start-up records");
      return;
    }
    std::string token = opts_.gamekey.substr(0, MAX_KRY_AUTH_TOKEN_LEN - 1);
    if (init.game_id_ != opts_.gameid ||
        strnlen(init.auth_token_, sizeof(init.auth_token_)) == sizeof(init.auth_token_) ||
        token != init.auth_token_) {
      Problem("SDK start-up record: game id or auth token differ from the host options");
    }
    if (static_cast<uint32_t>(access.network_type_) != opts_.network_type ||
        static_cast<uint32_t>(access.backend_env_type_) != opts_.backend_env) {
      Problem("SDK access record: network or environment type differ from the host options");
    }
    const std::pair<int, const std::string*> texts[] = {
        {KRY_DOUBLE_PART_DATA_PROXY, &opts_.data_proxy},
        {KRY_DOUBLE_PART_BUSI_PROXY, &opts_.busi_proxy},
        {KRY_DOUBLE_PART_TEST_DATA_PROXY, &opts_.test_data_proxy},
        {KRY_DOUBLE_PART_TEST_BUSI_PROXY, &opts_.test_busi_proxy}};
    for (const auto& t : texts) {
      char buf[520];
      long n = d.record(KRY_DOUBLE_SLOT_INIT_FOR_QUELLD, 0, t.first, buf, sizeof(buf));
      if (n < 0 || std::string(buf, static_cast<size_t>(n)) != *t.second) {
        Problem("SDK access record: an endpoint text differs from the host options");
      }
    }
  }

  // The logging configuration of a --log-conf file. The log's path is known when the category
  // zq writes to a file whose pattern holds no date fields.
  bool LoadLogConf() {
    char why[512];
    const int rc = wlog_conf_load(&conf_, opts_.log_conf.c_str(), why, sizeof(why));
    if (rc != 0) return Fail(Format("logging configuration %s", why));
    for (int i = 0; i < conf_->iCount && i < WLOG_MAX_CATEGORY; ++i) {
      const WLOGCATEGORY& c = conf_->astCategoryList[i];
      if (strcasecmp(c.szName, "zq") != 0) continue;
      if (c.stDevice.iType == WLOG_DEV_FILE &&
          strchr(c.stDevice.stDevice.stFile.szPattern, '%') == nullptr) {
        log_path_ = c.stDevice.stDevice.stFile.szPattern;
      }
      break;
    }
    return true;
  }

  bool StartLogging() {
    if (!SelectRegistry()) return false;
    if (!opts_.log_conf.empty()) {
      if (!LoadLogConf()) return false;
    } else if (!BuildLogConf()) {
      return false;
    }
    ctx_ = wlog_alloc();
    if (ctx_ == nullptr) return Fail("out of memory for the logging context");
    int rc = wlog_init(ctx_, conf_);
    if (rc != 0) {
      if (wlog_free(&ctx_) != 0) ctx_ = nullptr;  // cannot fail: ctx_ is not null
      return Fail("logging could not start: " + WlogResult("wlog_init", rc) +
                  (opts_.log_conf.empty() ? "; log file " + log_path_
                                          : "; logging configuration " + opts_.log_conf) +
                  (opts_.log_mem.empty() ? "" : "; memory ring " + opts_.log_mem));
    }
    rc = wlog_set_module_name(ctx_, "quelld_sim");
    if (rc != 0) return Fail("logging: " + WlogResult("wlog_set_module_name", rc));
    cat_ = wlog_get_category(ctx_, "zq");
    if (cat_ == nullptr) {
      return Fail(opts_.log_conf.empty()
                      ? "logging context has no category zq"
                      : "logging configuration " + opts_.log_conf + " has no category zq");
    }
    return true;
  }

  // The logging configuration of the log_file, log_level and verbose settings.
  bool BuildLogConf() {
    log_path_ = opts_.log_file.empty() ? workdir_ + "/quelld_sim.log" : opts_.log_file;
    std::string pattern;  // the file name is a strftime pattern: keep '%' literal
    for (char c : log_path_) {
      pattern += c;
      if (c == '%') pattern += '%';
    }
    if (pattern.size() >= WLOGFILE_PATTERN_LEN) {
      return Fail("log file path " + log_path_ + " is longer than the logger accepts (" +
                  std::to_string(WLOGFILE_PATTERN_LEN - 1) + " characters)");
    }
    conf_ = static_cast<WLOGCONF*>(calloc(1, sizeof(WLOGCONF)));
    if (conf_ == nullptr) return Fail("out of memory for the logging configuration");
    conf_->iMagic = WLOG_CONF_MAGIC;
    conf_->iPriorityHigh = WLOG_PRIORITY_NULL;
    conf_->iPriorityLow = opts_.log_level;
    // With a memory ring the plug-in's category "zq" is the ring, which forwards every record
    // to the file category "zq_file"; the terminal category comes last.
    const bool mem = !opts_.log_mem.empty();
    conf_->iCount = (opts_.verbose ? 2 : 1) + (mem ? 1 : 0);
    if (mem) {
      WLOGCATEGORY& ring = conf_->astCategoryList[0];
      snprintf(ring.szName, sizeof(ring.szName), "%s", "zq");
      ring.iPriorityHigh = WLOG_PRIORITY_NULL;
      ring.iPriorityLow = opts_.log_level;
      ring.iMaxMsgSize = 2048;
      snprintf(ring.szForwardCat, sizeof(ring.szForwardCat), "%s", "zq_file");
      ring.stDevice.iType = WLOG_DEV_MEM;
      WLOGDEVMEM& m = ring.stDevice.stDevice.stMem;
      m.iEnable = 1;
      m.iBuffSize = opts_.log_mem_size;
      snprintf(m.szUri, sizeof(m.szUri), "%s", opts_.log_mem.c_str());
    }
    WLOGCATEGORY& file = conf_->astCategoryList[mem ? 1 : 0];
    snprintf(file.szName, sizeof(file.szName), "%s", mem ? "zq_file" : "zq");
    file.iPriorityHigh = WLOG_PRIORITY_NULL;
    file.iPriorityLow = opts_.log_level;
    snprintf(file.szFormat, sizeof(file.szFormat), "%s", WLOG_DEFAULT_FORMAT);
    file.stDevice.iType = WLOG_DEV_FILE;
    WLOGDEVFILE& dev = file.stDevice.stDevice.stFile;
    snprintf(dev.szPattern, sizeof(dev.szPattern), "%s", pattern.c_str());
    dev.iBuffSize = 64 * 1024;
    dev.iMaxRotate = 2;
    dev.iSyncTime = 1;
    dev.iNoFindLatest = 1;
    if (opts_.verbose) {
      snprintf(file.szForwardCat, sizeof(file.szForwardCat), "%s", "zq_term");
      WLOGCATEGORY& term = conf_->astCategoryList[mem ? 2 : 1];
      snprintf(term.szName, sizeof(term.szName), "%s", "zq_term");
      term.iPriorityHigh = WLOG_PRIORITY_NULL;
      term.iPriorityLow = opts_.log_level;
      snprintf(term.szFormat, sizeof(term.szFormat), "%s", "[%p] %m%n");
      term.stDevice.iType = WLOG_DEV_TERM;
      term.stDevice.stDevice.stTerm.iStdType = WLOG_TERM_STDOUT;
    }
    return true;
  }

  // Uses the registry key asked for, with the capacities of a registry already there.
  bool SelectRegistry() {
    if (opts_.log_mem_key == 0) return true;
    WsmBase base;
    const int key = static_cast<int>(opts_.log_mem_key);
    if (wsm_index_probe(key, &base) != 0) {
      terror_clear(nullptr);  // none yet: it is made with the default capacities
      if (wsm_base_default(&base) != 0) return Fail("no default registry settings");
      base.iIndexKey = key;
    }
    if (wsm_vix_base_set(&base) != 0) {
      return Fail("registry key " + std::to_string(opts_.log_mem_key) + " cannot be used");
    }
    return true;
  }

  void StopLogging() {
    if (ctx_ != nullptr && (wlog_fini(ctx_) != 0 || wlog_free(&ctx_) != 0)) {
      fprintf(stderr, "wlog teardown failed\n");
    }
    cat_ = nullptr;
    free(conf_);
    conf_ = nullptr;
  }

  // ---- the scenario ----

  void Play(const Command& c) {
    const SdkDouble* d = Double();
    switch (c.op) {
      case Op::kLogin:
      case Op::kLogout:
      case Op::kTick:
      case Op::kMsg:
      case Op::kSend: {
        Kind kind = c.op == Op::kLogin    ? kLogin
                    : c.op == Op::kLogout ? kLogout
                    : c.op == Op::kTick   ? kTick
                    : c.op == Op::kMsg    ? kMsg
                                          : kSend;
        if (kind == kSend && d == nullptr) {
          skipped_ += c.times * (c.user == kAllUsers ? static_cast<long>(sc_.users.size()) : 1);
          return;
        }
        for (long t = 0; t < c.times && !Stopped(); ++t) {
          if (c.user != kAllUsers) {
            UserEvent(kind, static_cast<size_t>(c.user), CommandData(c));
            continue;
          }
          for (size_t u = 0; u < sc_.users.size() && !Stopped(); ++u) {
            UserEvent(kind, u, CommandData(c));
          }
        }
        return;
      }
      case Op::kHostTick:
        for (long t = 0; t < c.times && !Stopped(); ++t) {
          Timed(kHostTick, [this] {
            plugin_->OnTick();
            plugin_->OnUpdate();
          });
          ++count_[kHostTick];
        }
        return;
      case Op::kSdkResult:
        if (d == nullptr) {
          ++skipped_;
          return;
        }
        d->set_result(c.slot, static_cast<int>(c.value));
        return;
      case Op::kHostSendResult:
        host_.answer = static_cast<int>(c.value);
        return;
      case Op::kSdkVersion:
        if (d == nullptr) {
          ++skipped_;
          return;
        }
        d->set_version(c.null_text ? nullptr : c.data.c_str());
        return;
      case Op::kReload:
      case Op::kReloadChanged:
        Reload(c.op == Op::kReloadChanged);
        return;
      case Op::kRepeat:
      case Op::kEnd:
        return;  // PlayProgram unrolls the blocks
      case Op::kExpect: {
        int64_t got = 0;
        if (!Counter(c.data, &got)) {
          ++skipped_;
          return;
        }
        if (got != c.value) {
          Problem(Format("scenario line %d: expected %s = %" PRId64 ", got %" PRId64, c.line,
                         c.data.c_str(), c.value, got));
        }
        return;
      }
    }
  }

  bool Counter(const std::string& name, int64_t* v) const {
    if (name == "logins")
      *v = count_[kLogin];
    else if (name == "logouts")
      *v = count_[kLogout];
    else if (name == "ticks")
      *v = count_[kTick];
    else if (name == "msgs")
      *v = count_[kMsg];
    else if (name == "sends")
      *v = count_[kSend];
    else if (name == "send_failures")
      *v = send_failures_;
    else if (name == "host_sends")
      *v = host_.calls;
    else if (name == "reloads")
      *v = count_[kReloadKind];
    else {
      const SdkDouble* d = Double();
      if (d == nullptr) return false;
      if (name == "sdk.init")
        *v = d->init_count();
      else if (name == "sdk.quit")
        *v = d->quit_count();
      else {
        bool fail = name.compare(0, 9, "sdk.fail.") == 0;
        std::string slot = name.substr(fail ? 9 : 4);
        static const char* const kSlots[] = {"add_user", "del_user", "recv_anti_data", "tick_user"};
        for (int i = 0; i < 4; ++i) {
          if (slot == kSlots[i]) {
            *v = fail ? d->fail_count(i) : d->call_count(i);
            return true;
          }
        }
        return false;
      }
    }
    return true;
  }

  void UserEvent(Kind kind, size_t idx, std::string_view data) {
    const quelld::User& u = sc_.users[idx];
    const SdkDouble* d = opts_.verify ? Double() : nullptr;
    if (kind == kSend) {
      Send(u, data);
      return;
    }
    static const int kSlotOf[] = {KRY_DOUBLE_SLOT_ADD_USER, KRY_DOUBLE_SLOT_DEL_USER,
                                  KRY_DOUBLE_SLOT_TICK_USER, KRY_DOUBLE_SLOT_RECV_ANTI_DATA};
    const int slot = kSlotOf[kind];
    long before = d != nullptr ? d->call_count(slot) : 0;
    switch (kind) {
      case kLogin:
        Timed(kLogin, [&] { plugin_->OnUserLogin(u); });
        break;
      case kLogout:
        Timed(kLogout, [&] { plugin_->OnUserLogout(u); });
        break;
      case kTick:
        Timed(kTick, [&] { plugin_->OnTickUser(u); });
        break;
      default:
        Timed(kMsg, [&] {
          plugin_->OnPluginMsg(u, ++seq_, kClientExt, sizeof(kClientExt) - 1, data.data(),
                               static_cast<uint32_t>(data.size()));
        });
        break;
    }
    ++count_[kind];
    if (d != nullptr) VerifyRecord(*d, kind, slot, before, u, data);
  }

  // The record the SDK received for the event must carry the user's fields.
  void VerifyRecord(const SdkDouble& d, Kind kind, int slot, long before, const quelld::User& u,
                    std::string_view data) {
    const char* what = kKindNames[kind];
    if (d.call_count(slot) != before + 1) {
      Problem(Format("%s of %s: the SDK was called %ld times instead of once", what,
                     SdkAccount(u).c_str(), d.call_count(slot) - before));
      return;
    }
    unsigned char rec[sizeof(KrySdkAntiAddUserInfo)];
    const long want_size = kind == kLogin || kind == kTick ? sizeof(KrySdkAntiAddUserInfo)
                           : kind == kLogout               ? sizeof(KrySdkAntiDelUserInfo)
                                                           : sizeof(KrySdkAntiRecvDataInfo);
    if (d.record(slot, before, KRY_DOUBLE_PART_RECORD, rec, sizeof(rec)) != want_size) {
      Problem(Format("%s of %s: the SDK record is missing or has the wrong size", what,
                     SdkAccount(u).c_str()));
      return;
    }
    KryAccountInfo ai;
    memcpy(&ai, rec, sizeof(ai));
    std::string bad;
    const char* acc = ai.account_id_.account_;
    if (strnlen(acc, sizeof(ai.account_id_.account_)) == sizeof(ai.account_id_.account_) ||
        SdkAccount(u) != acc) {
      bad = "account";
    } else if (ai.game_id_ != opts_.gameid) {
      bad = "game id";
    } else if (ai.world_id_ != u.world_id || ai.channel_id_ != u.channel_id) {
      bad = "world or channel id";
    } else if (ai.role_id_ != 0) {
      bad = "role id";
    }
    if (bad.empty() && (kind == kLogin || kind == kTick)) {
      KrySdkAntiAddUserInfo r;
      memcpy(&r, rec, sizeof(r));
      char ip[sizeof(u.client_ip) + 1] = {};
      memcpy(ip, u.client_ip, sizeof(u.client_ip));
      uint64_t want_ip = static_cast<uint32_t>(inet_addr(ip));
      if (r.client_ip_ != want_ip) {
        bad = Format("client address (0x%016" PRIX64 ", expected 0x%016" PRIX64 ")", r.client_ip_,
                     want_ip);
      } else if (r.user_ext_data_ != nullptr) {
        bad = "extension data pointer";
      } else if (d.record(slot, before, KRY_DOUBLE_PART_ROLE_NAME, nullptr, 0) != 0) {
        bad = "role name (should be the empty text)";
      }
    } else if (bad.empty() && kind == kLogout) {
      KrySdkAntiDelUserInfo r;
      memcpy(&r, rec, sizeof(r));
      if (r.user_ext_data_ != nullptr) bad = "extension data pointer";
    } else if (bad.empty()) {
      KrySdkAntiRecvDataInfo r;
      memcpy(&r, rec, sizeof(r));
      std::string got(data.size(), '\0');
      long n = d.record(slot, before, KRY_DOUBLE_PART_ANTI_DATA, &got[0], got.size());
      if (r.anti_data_len_ != data.size()) {
        bad = Format("data length (%u, expected %zu)", r.anti_data_len_, data.size());
      } else if (!data.empty() && (n != static_cast<long>(data.size()) || got != data)) {
        bad = "data bytes";
      } else if (r.user_ext_data_ != nullptr) {
        bad = "extension data pointer (the client's extension data must not reach the SDK)";
      }
    }
    if (!bad.empty()) {
      Problem(Format("%s of %s: the SDK record has a wrong %s", what, SdkAccount(u).c_str(),
                     bad.c_str()));
    }
  }

  void Send(const quelld::User& u, std::string_view data) {
    const SdkDouble& d = *Double();
    host_.expecting = true;
    host_.want_account = SdkAccount(u);
    host_.want_data.assign(data.data(), data.size());
    host_.problem.clear();
    const long calls = host_.calls;
    const int want = host_.answer == 0 ? KRY_SDK_PROC_OK : KRY_SDK_PROC_FAIL;
    int rc = 0;
    Timed(kSend, [&] {
      rc = d.send_to_client(u.openid, data.data(), static_cast<uint32_t>(data.size()));
    });
    host_.expecting = false;
    ++count_[kSend];
    if (rc != 0) ++send_failures_;
    if (host_.calls != calls + 1) {
      Problem(Format("send to %s did not reach the host send function (SDK send result %d)",
                     host_.want_account.c_str(), rc));
    } else if (!host_.problem.empty()) {
      Problem("send to " + host_.want_account + ": " + host_.problem);
    } else if (rc != want) {
      Problem(Format("send to %s: the plug-in answered the SDK with %d, expected %d",
                     host_.want_account.c_str(), rc, want));
    }
  }

  // ---- reload and quit ----

  void Reload(bool changed) {
    if (changed) {
      std::string err;
      if (!ChangeFile(sdk_copy_, Format("\nquelld_sim change %ld\n", ++changes_), &err)) {
        Problem("could not change the SDK copy: " + err);
        return;
      }
    }
    const SdkDouble* d = Double();
    long init0 = d != nullptr ? d->init_count() : 0, quit0 = d != nullptr ? d->quit_count() : 0;
    Timed(kReloadKind, [this] { plugin_->OnReload(); });
    ++count_[kReloadKind];
    ++(changed ? changed_reloads_ : unchanged_reloads_);
    std::string outcome = "done";
    ReloadOutcome r;
    r.changed = changed;
    if (d != nullptr) {
      long inits = d->init_count() - init0, quits = d->quit_count() - quit0;
      r.known = true;
      r.quits = quits;
      r.starts = inits;
      bool running = d->is_running() == 1;
      outcome =
          Format("SDK %s (%ld quit, %ld start)", inits > 0 ? "restarted" : "kept", quits, inits);
      if (changed && (inits != 1 || quits != 1 || !running)) {
        Problem(
            Format("reload with a changed SDK file: expected one quit and one start of the "
                   "SDK, saw %ld and %ld (SDK %s)",
                   quits, inits, running ? "running" : "not running"));
      } else if (!changed && (inits != 0 || quits != 0)) {
        Problem(Format("reload with the SDK file unchanged restarted the SDK (%ld quit, %ld start)",
                       quits, inits));
      }
    }
    reloads_.push_back(r);
    out_ << "reload with the SDK file " << (changed ? "changed" : "unchanged") << ": " << outcome
         << "\n";
  }

  void ReloadPhase() {
    Log("quelld_sim: reload phase");
    Reload(false);
    Reload(true);
    // The restarted SDK must serve events again.
    quelld::User probe;
    memset(&probe, 0, sizeof(probe));
    snprintf(probe.openid, sizeof(probe.openid), "%s", "sim-reload-probe");
    probe.account_type = 4099;
    probe.auth_type = 4097;
    probe.platid = 101;
    probe.world_id = 3;
    probe.channel_id = 5;
    snprintf(probe.client_ip, sizeof(probe.client_ip), "%s", "172.16.0.9");
    ProbeEvents(probe);
  }

  // Login, tick, a send from the SDK and logout of one user, each checked like scenario events.
  void ProbeEvents(const quelld::User& u) {
    const SdkDouble* d = opts_.verify ? Double() : nullptr;
    const struct {
      Kind kind;
      int slot;
    } steps[] = {{kLogin, KRY_DOUBLE_SLOT_ADD_USER},
                 {kTick, KRY_DOUBLE_SLOT_TICK_USER},
                 {kSend, 0},
                 {kLogout, KRY_DOUBLE_SLOT_DEL_USER}};
    for (const auto& step : steps) {
      if (step.kind == kSend) {
        if (Double() != nullptr) Send(u, "after-reload");
        continue;
      }
      long before = d != nullptr ? d->call_count(step.slot) : 0;
      Timed(step.kind, [&] {
        if (step.kind == kLogin)
          plugin_->OnUserLogin(u);
        else if (step.kind == kTick)
          plugin_->OnTickUser(u);
        else
          plugin_->OnUserLogout(u);
      });
      ++count_[step.kind];
      if (d != nullptr) VerifyRecord(*d, step.kind, step.slot, before, u, std::string_view());
    }
  }

  void Quit() {
    const SdkDouble* d = Double();
    long quit0 = d != nullptr ? d->quit_count() : 0;
    bool was_running = d != nullptr && d->is_running() == 1;
    Log("quelld_sim: quitting the plug-in");
    auto t0 = std::chrono::steady_clock::now();
    plugin_->OnQuit();
    quit_ns_ = Ns(t0);
    if (d != nullptr) {
      if (d->is_running() != 0) Problem("OnQuit left the SDK running");
      if (was_running && d->quit_count() != quit0 + 1) {
        Problem(
            Format("OnQuit released the SDK %ld times instead of once", d->quit_count() - quit0));
      }
      for (int s = 0; s < 4; ++s) {
        sdk_calls_[s] = d->call_count(s);
        sdk_fails_[s] = d->fail_count(s);
      }
      double_seen_ = true;
      sdk_inits_ = d->init_count();
      sdk_quits_ = d->quit_count();
    }
    delete plugin_;
    plugin_ = nullptr;
    sdk_.Close();
    lib_.Close();
    StopLogging();  // flushes the log file
  }

  // The log must hold one error line per failed SDK call and one "not change" line per reload
  // with the file unchanged, when those priorities are logged.
  void CheckLog() {
    if (!opts_.log_conf.empty()) return;  // the user's categories: lines cannot be predicted
    std::string text;
    if (!ReadFile(log_path_, &text)) {
      Problem("cannot read the log file " + log_path_);
      return;
    }
    log_lines_ = static_cast<long>(CountOccurrences(text, "\n"));
    for (const char* t : kFailureLogTexts)
      log_errors_ += static_cast<long>(CountOccurrences(text, t));
    long not_changed = static_cast<long>(CountOccurrences(text, kNotChangedLogText));
    if (double_seen_ && opts_.log_level >= WLOG_PRIORITY_ERROR) {
      long fails = sdk_fails_[0] + sdk_fails_[1] + sdk_fails_[2] + sdk_fails_[3];
      if (log_errors_ != fails) {
        Problem(Format("the log holds %ld SDK failure lines for %ld failed SDK calls", log_errors_,
                       fails));
      }
    }
    if (opts_.log_level >= WLOG_PRIORITY_INFO && not_changed != unchanged_reloads_) {
      Problem(Format("the log holds %ld \"%s\" lines for %ld reloads with the file unchanged",
                     not_changed, kNotChangedLogText, unchanged_reloads_));
    }
  }

  // ---- summary ----

  // The summary as JSON, for a team's own tracking; latencies in nanoseconds.
  bool WriteJson(const std::string& path, std::string* err) const {
    static const char* const kSlots[] = {"add_user", "del_user", "recv_anti_data", "tick_user"};
    const LatencySummary total = AllUserEvents().Summary();
    const Throughput tp = Rates(total);
    long relayed = 0;
    for (int k = 0; k < kUserKinds; ++k) relayed += count_[k];
    JsonWriter j;
    j.BeginObject().Int("format", 1).Str("result", problems_ == 0 ? "ok" : "failed");
    j.Int("problem_count", problems_).BeginArray("problems");
    for (const std::string& p : shown_) j.Str(nullptr, p);
    j.EndArray();
    j.BeginObject("plugin").Str("path", opts_.plugin).Str("version", plugin_version_);
    j.Int("id", plugin_id_).Str("host_interface", lib_.api_version()).EndObject();
    j.BeginObject("sdk").Str("dir", opts_.sdk_dir).Bool("test_double", double_seen_).EndObject();
    j.BeginObject("scenario")
        .Str("file", opts_.scenario.empty()  ? "(built-in)"
                     : opts_.scenario == "-" ? "(standard input)"
                                             : opts_.scenario);
    j.Int("users", static_cast<int64_t>(sc_.users.size()));
    j.Int("planned_events", static_cast<int64_t>(sc_.cost.events));
    j.Int("planned_bytes", static_cast<int64_t>(sc_.cost.bytes)).EndObject();
    j.BeginObject("events").Int("relayed", relayed);
    for (int k = 0; k < kKinds; ++k) j.Int(kKindNames[k], count_[k]);
    j.Int("skipped", skipped_).EndObject();
    if (double_seen_) {
      j.BeginObject("sdk_results");
      for (int s = 0; s < 4; ++s) {
        j.BeginObject(kSlots[s]).Int("calls", sdk_calls_[s]).Int("failures", sdk_fails_[s]);
        j.EndObject();
      }
      j.Int("started", sdk_inits_).Int("released", sdk_quits_).EndObject();
    } else {
      j.Null("sdk_results");
    }
    j.BeginObject("sends").Int("reached_host", host_.calls).Int("bytes", host_.bytes);
    j.Int("refused", send_failures_).Int("unexpected", host_.unexpected).EndObject();
    j.BeginObject("throughput").Num("wall_seconds", tp.wall_s);
    j.Num("events_per_second", tp.per_wall_s).Num("plugin_seconds", tp.plugin_s);
    j.Num("events_per_plugin_second", tp.per_plugin_s).EndObject();
    j.Num("init_ms", static_cast<double>(init_ns_) / 1e6);
    j.Num("quit_ms", static_cast<double>(quit_ns_) / 1e6);
    j.BeginObject("latency_ns").Num("relative_error", LatencyHistogram::kRelativeError);
    auto row = [&j](const char* name, const LatencySummary& s) {
      j.BeginObject(name).Int("count", static_cast<int64_t>(s.count));
      j.Int("p50", static_cast<int64_t>(s.p50)).Int("p90", static_cast<int64_t>(s.p90));
      j.Int("p99", static_cast<int64_t>(s.p99)).Int("max", static_cast<int64_t>(s.max));
      j.EndObject();
    };
    for (int k = 0; k < kKinds; ++k) {
      if (lat_[k].count() != 0) row(kKindNames[k], lat_[k].Summary());
    }
    row("all", total);
    j.EndObject();
    j.BeginArray("reloads");
    for (const ReloadOutcome& r : reloads_) {
      j.BeginObject().Bool("sdk_file_changed", r.changed);
      if (r.known) {
        j.Str("outcome", r.starts > 0 ? "restarted" : "kept").Int("sdk_quits", r.quits);
        j.Int("sdk_starts", r.starts);
      } else {
        j.Str("outcome", "done");
      }
      j.EndObject();
    }
    j.EndArray();
    j.BeginObject("log").Str("path", log_path_).Int("lines", log_lines_);
    j.Int("sdk_failure_lines", log_errors_).EndObject();
    j.EndObject();
    std::ofstream f(path, std::ios::binary | std::ios::trunc);
    f << j.text();
    f.close();
    if (!f) {
      *err = "cannot write the JSON summary to " + path + ": " + strerror(errno);
      return false;
    }
    return true;
  }

  struct Throughput {
    double wall_s, plugin_s, per_wall_s, per_plugin_s;
  };

  LatencyHistogram AllUserEvents() const {
    LatencyHistogram all;
    for (int k = 0; k < kUserKinds; ++k) all.Merge(lat_[k]);
    return all;
  }

  Throughput Rates(const LatencySummary& total) const {
    Throughput t;
    t.wall_s = static_cast<double>(wall_ns_) / 1e9;
    t.plugin_s = static_cast<double>(total.total) / 1e9;
    t.per_wall_s = t.wall_s > 0 ? static_cast<double>(total.count) / t.wall_s : 0.0;
    t.per_plugin_s = t.plugin_s > 0 ? static_cast<double>(total.count) / t.plugin_s : 0.0;
    return t;
  }

  void Summary() {
    long relayed = 0;
    for (int k = 0; k < kUserKinds; ++k) relayed += count_[k];
    out_ << "\nsummary\n";
    out_ << Format("  events relayed: %ld (login %ld, logout %ld, tick %ld, msg %ld, send %ld)\n",
                   relayed, count_[kLogin], count_[kLogout], count_[kTick], count_[kMsg],
                   count_[kSend]);
    out_ << Format("  host: %ld host ticks, %ld reloads (%ld unchanged, %ld changed)\n",
                   count_[kHostTick], count_[kReloadKind], unchanged_reloads_, changed_reloads_);
    if (double_seen_) {
      out_ << Format(
          "  SDK results (calls/non-zero): add_user_ %ld/%ld, del_user_ %ld/%ld, "
          "recv_anti_data_ %ld/%ld, tick_user_ %ld/%ld; started %ld, released %ld\n",
          sdk_calls_[0], sdk_fails_[0], sdk_calls_[1], sdk_fails_[1], sdk_calls_[2], sdk_fails_[2],
          sdk_calls_[3], sdk_fails_[3], sdk_inits_, sdk_quits_);
    } else {
      out_ << "  SDK results: not known (the SDK is not the test double)\n";
    }
    out_ << Format(
        "  sends to clients: %ld reached the host (%ld bytes), %ld refused to the SDK, "
        "%ld unexpected\n",
        host_.calls, host_.bytes, send_failures_, host_.unexpected);
    if (!opts_.log_conf.empty()) {
      out_ << "  log: as configured in " << opts_.log_conf << "\n";
    } else {
      out_ << Format(
          "  log: %s, %ld lines, %ld SDK failure lines%s\n", log_path_.c_str(), log_lines_,
          log_errors_,
          (opts_.log_file.empty() && !opts_.keep) ? " (removed with the work directory)" : "");
    }
    if (skipped_ > 0) out_ << Format("  skipped: %ld double-only steps\n", skipped_);
    const LatencySummary total = AllUserEvents().Summary();
    const Throughput tp = Rates(total);
    out_ << Format(
        "  events per second: %.0f over the scenario's %.3f s wall time; %.0f counting "
        "only time inside the plug-in (%.3f s)\n",
        tp.per_wall_s, tp.wall_s, tp.per_plugin_s, tp.plugin_s);
    out_ << Format("  OnInit %.3f ms, OnQuit %.3f ms\n", static_cast<double>(init_ns_) / 1e6,
                   static_cast<double>(quit_ns_) / 1e6);
    out_ << "  latency per event in microseconds (plug-in and SDK together; the test double copies "
            "every record; percentiles within 0.8 %):\n";
    out_ << Format("    %-10s %9s %9s %9s %9s %9s\n", "event", "count", "p50", "p90", "p99", "max");
    auto row = [&](const char* name, const LatencySummary& s) {
      out_ << Format("    %-10s %9" PRIu64 " %9.2f %9.2f %9.2f %9.2f\n", name, s.count,
                     static_cast<double>(s.p50) / 1e3, static_cast<double>(s.p90) / 1e3,
                     static_cast<double>(s.p99) / 1e3, static_cast<double>(s.max) / 1e3);
    };
    for (int k = 0; k < kKinds; ++k) {
      if (lat_[k].count() != 0) row(kKindNames[k], lat_[k].Summary());
    }
    row("all", total);
    for (const std::string& p : shown_) out_ << "  problem: " << p << "\n";
    if (problems_ > static_cast<long>(shown_.size())) {
      out_ << Format("  ... and %ld more problems\n", problems_ - static_cast<long>(shown_.size()));
    }
    if (problems_ == 0) {
      out_ << "quelld_sim: OK\n";
    } else {
      out_ << Format("quelld_sim: FAILED (%ld problems)\n", problems_);
    }
  }

  const SimOptions& opts_;
  const Scenario& sc_;
  std::ostream& out_;
  std::ostream& errs_;

  std::string workdir_, sdk_copy_, log_path_;
  WLOGCONF* conf_ = nullptr;
  WLOGCTX* ctx_ = nullptr;
  WLOGCATEGORYINST* cat_ = nullptr;
  PluginLibrary lib_;
  SdkHandle sdk_;
  quelld::Plugin* plugin_ = nullptr;
  HostSends host_;

  uint32_t seq_ = 0;
  long changes_ = 0;
  long count_[kKinds] = {};
  std::vector<LatencyHistogram> lat_ = std::vector<LatencyHistogram>(kKinds);
  long send_failures_ = 0, skipped_ = 0;
  long unchanged_reloads_ = 0, changed_reloads_ = 0;
  bool double_seen_ = false;  // the SDK was the test double: its counts below are known
  long sdk_calls_[4] = {}, sdk_fails_[4] = {};
  long sdk_inits_ = 0, sdk_quits_ = 0;
  long log_lines_ = 0, log_errors_ = 0;
  long problems_ = 0;
  std::vector<std::string> shown_;
  uint64_t wall_ns_ = 0, init_ns_ = 0, quit_ns_ = 0;
  std::vector<ReloadOutcome> reloads_;
  std::string plugin_version_;
  uint32_t plugin_id_ = 0;
};

}  // namespace

int RunSimulation(const SimOptions& opts, const Scenario& scenario, std::ostream& out,
                  std::ostream& errs) {
  Simulation sim(opts, scenario, out, errs);
  return sim.Run();
}

}  // namespace quelld_sim
