// wlog_dump: prints the records of a memory log ring (of a running or a crashed process, once
// or following it like tail -f) and of binary log files, filtered by time, id and class.
#include <errno.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "tool_input.h"
#include "wlog/wlog.h"
#include "wmng/terror.h"
#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

namespace {

const char kUsage[] =
    "usage: wlog_dump mem URI [--key KEY] [--follow [--interval MS]]\n"
    "       wlog_dump bin FILE... [--since T] [--until T] [--id N[-M]] [--cls N[-M]]\n"
    "Prints log records.\n"
    "\n"
    "  mem URI      the memory log ring at the shared-memory URI (wsm-data://...), oldest record\n"
    "               first, then a line with the records and bytes printed. The ring may belong\n"
    "               to a running process or to one that crashed; it is only read.\n"
    "    --key KEY      registry key, decimal or 0x hex (default 0x18790314)\n"
    "    --follow       keep printing new records as the writer adds them, until interrupted\n"
    "    --interval MS  how often --follow looks for new records (default 200, 10 to 60000)\n"
    "  bin FILE...  binary log files (records with the 40-byte head), one line per record:\n"
    "               time, sequence, id, class, type, version, length, then the body as text\n"
    "               when it is printable, else as hexadecimal\n"
    "    --since T      records at or after T (seconds since the epoch, or YYYY-MM-DDTHH:MM:SS\n"
    "                   local time)\n"
    "    --until T      records before T\n"
    "    --id N[-M]     records whose id is N (or from N to M)\n"
    "    --cls N[-M]    records whose class is N (or from N to M)\n"
    "  --help       this text\n"
    "\n"
    "Exit status: 0 done; 1 a ring or file holds damaged data (what came before is printed);\n"
    "2 usage error, missing ring or unreadable file.\n";

volatile sig_atomic_t g_stop = 0;
void on_signal(int) { g_stop = 1; }

int usage_error(const std::string& msg) {
  fprintf(stderr, "wlog_dump: %s (see wlog_dump --help)\n", msg.c_str());
  return 2;
}

int error(const std::string& msg) {
  fprintf(stderr, "wlog_dump: %s\n", msg.c_str());
  if (terror_count(nullptr) > 0) {
    char stack[8192];
    if (terror_dump_string(nullptr, stack, sizeof(stack)) >= 0) {
      fprintf(stderr, "error stack (newest first):\n%s", zq_tools::GbkToUtf8(stack).c_str());
    }
  }
  return 2;
}

struct Options {
  std::string mode;
  std::vector<std::string> args;
  int key = WSM_INDEX_KEY_DEFAULT;
  bool follow = false;
  int interval_ms = 200;
  WLOGBINFILTER filter{};
  bool since = false, until = false;
  int64_t since_t = 0, until_t = 0;
};

// Seconds since the epoch, or YYYY-MM-DDTHH:MM:SS in local time.
bool parse_time(const std::string& text, int64_t* out) {
  if (zq_tools::ParseDecimal(text, 0, INT32_MAX, out)) return true;
  struct tm tm;
  memset(&tm, 0, sizeof(tm));
  const char* end = strptime(text.c_str(), "%Y-%m-%dT%H:%M:%S", &tm);
  if (end == nullptr || *end != '\0') return false;
  tm.tm_isdst = -1;
  const time_t t = mktime(&tm);
  if (t < 0 || t > INT32_MAX) return false;
  *out = t;
  return true;
}

// N or N-M (N <= M) as a range filter.
bool parse_range(const std::string& text, INTFILTER* f) {
  const size_t dash = text.find('-');
  uint64_t lo = 0, hi = 0;
  if (!zq_tools::ParseId(text.substr(0, dash), UINT32_MAX, &lo)) return false;
  hi = lo;
  if (dash != std::string::npos && !zq_tools::ParseId(text.substr(dash + 1), UINT32_MAX, &hi)) {
    return false;
  }
  if (hi < lo || hi - lo + 1 > UINT32_MAX) return false;
  memset(f, 0, sizeof(*f));
  f->dwStart = static_cast<uint32_t>(lo);
  f->dwCount = static_cast<uint32_t>(hi - lo + 1);
  return true;
}

// ---- mem ----

uint64_t load(const uint64_t* p) { return __atomic_load_n(p, __ATOMIC_ACQUIRE); }

// Prints new records until interrupted. A writer that went round the ring faster than it was
// read, or started the ring afresh, makes the reader start again from the oldest record.
int follow(const WLOGMEM& mem, int interval_ms) {
  const WLOGMEMHEAD* head = static_cast<const WLOGMEMHEAD*>(mem.pvMemHead);
  uint64_t at = wlogmem_oldest(head);  // stream position of the next record to print
  while (!g_stop) {
    const uint64_t oldest = wlogmem_oldest(head);
    const uint64_t to = load(&head->ullBytes);
    if (oldest > at || to < at) {
      printf("----- records lost: the writer went round the ring or started it afresh -----\n");
      at = oldest;
    }
    int frames = 0;
    uint64_t frame_bytes = 0;
    uint64_t end = at;
    if (wlogmem_dump_range(head, at, to, stdout, "\n", &frames, &frame_bytes, &end) != 0 &&
        wlogmem_oldest(head) <= end) {
      // Not overtaken, so the ring holds a damaged frame: nothing past it can be read.
      fflush(stdout);
      fprintf(stderr, "wlog_dump: damaged record in the ring; stopping\n");
      return 1;
    }
    at = end;
    fflush(stdout);
    if (at == to) usleep(static_cast<useconds_t>(interval_ms) * 1000);
  }
  return 0;
}

int cmd_mem(const Options& o) {
  WsmBase base;
  const int probe = wsm_index_probe(o.key, &base);
  if (probe == -2) {
    terror_clear(nullptr);  // the message says it all
    char key[16];
    snprintf(key, sizeof(key), "0x%x", static_cast<unsigned>(o.key));
    return error(std::string("no shared-memory registry at key ") + key);
  }
  if (probe != 0 || wsm_vix_base_set(&base) != 0) return error("cannot read the registry");
  WLOGDEVMEM dev{};
  snprintf(dev.szUri, sizeof(dev.szUri), "%s", o.args[0].c_str());
  WLOGMEM mem;
  const int ret = wlogmem_attach(&mem, &dev);
  if (ret != 0) {
    (void)wlogmem_fini(&mem);
    return error("no memory log ring at " + zq_tools::Printable(o.args[0]) + " (" +
                 std::to_string(ret) + ")");
  }
  if (!o.follow) {
    // One record a line (the library's own dump puts nothing between records), then the totals.
    const WLOGMEMHEAD* head = static_cast<const WLOGMEMHEAD*>(mem.pvMemHead);
    int frames = 0;
    uint64_t bytes = 0;
    const int cut = wlogmem_dump_range(head, wlogmem_oldest(head), load(&head->ullBytes), stdout,
                                       "\n", &frames, &bytes, nullptr);
    printf("#####TotalPacket(%d) TotalBytes(%llu)####\n", frames,
           static_cast<unsigned long long>(bytes));
    (void)wlogmem_fini(&mem);
    if (cut != 0) {
      fflush(stdout);
      fprintf(stderr, "wlog_dump: the dump stopped at a damaged or overwritten record\n");
      return 1;
    }
    return 0;
  }
  struct sigaction sa;
  memset(&sa, 0, sizeof(sa));
  sa.sa_handler = on_signal;
  sigaction(SIGINT, &sa, nullptr);
  sigaction(SIGTERM, &sa, nullptr);
  const int status = follow(mem, o.interval_ms);
  (void)wlogmem_fini(&mem);
  return status;
}

// ---- bin ----

void print_body(const char* body, size_t len) {
  bool text = true;
  for (size_t i = 0; i < len && text; ++i) {
    const unsigned char c = static_cast<unsigned char>(body[i]);
    text = (c >= 0x20 && c < 0x7f) || c == '\t' || (c == '\n' && i + 1 == len);
  }
  if (text) {
    fwrite(body, 1, len > 0 && body[len - 1] == '\n' ? len - 1 : len, stdout);
    return;
  }
  for (size_t i = 0; i < len; ++i) printf("%02X", static_cast<unsigned char>(body[i]));
}

// Walks the records of one file; 1 when it ends in a damaged or cut record.
int dump_bin_file(const std::string& path, const WLOGBINFILTER& filter, std::string* err) {
  FILE* fp = fopen(path.c_str(), "rb");
  if (fp == nullptr) {
    *err = path + ": " + strerror(errno);
    return 2;
  }
  std::vector<char> body;
  char raw[WLOGBIN_HEAD_LEN];
  uint64_t offset = 0;
  int status = 0;
  for (;;) {
    const size_t got = fread(raw, 1, sizeof(raw), fp);
    if (got == 0) break;
    WLOGBINHEAD head;
    int pkg = 0;
    if (got < sizeof(raw) || wlogbin_get_head(&head, &pkg, raw, got) != WLOGBIN_HEAD_LEN ||
        head.chVer != WLOGBIN_VER || head.chMagic != WLOGBIN_MAGIC ||
        head.iBodyLen > WLOGBIN_MAX_DATA) {
      *err = path + ": offset " + std::to_string(offset) + ": not a binary record head";
      status = 1;
      break;
    }
    body.resize(static_cast<size_t>(head.iBodyLen));
    if (fread(body.data(), 1, body.size(), fp) != body.size()) {
      *err = path + ": offset " + std::to_string(offset) + ": record cut short";
      status = 1;
      break;
    }
    offset += static_cast<uint64_t>(pkg);
    if (wlogbin_filter(&filter, &head) != 0) continue;
    struct tm tm;
    const time_t t = head.stTime.iSec;
    localtime_r(&t, &tm);
    char stamp[32];
    strftime(stamp, sizeof(stamp), "%Y%m%d %H:%M:%S", &tm);
    printf("[%s.%06d] seq=%d id=%u cls=%u type=%d ver=%d len=%d: ", stamp, head.stTime.iUsec,
           head.iSeq, head.dwID, head.dwCls, head.iType, head.iBodyVer, head.iBodyLen);
    print_body(body.data(), body.size());
    putchar('\n');
  }
  fclose(fp);
  return status;
}

int cmd_bin(const Options& o) {
  WLOGBINFILTER f = o.filter;
  if (o.since || o.until) {
    const int64_t from = o.since ? o.since_t : 0;
    const int64_t to = o.until ? o.until_t : static_cast<int64_t>(INT32_MAX) + 1;
    if (to <= from) return usage_error("--until must be later than --since");
    f.iStartTime = static_cast<int32_t>(from);
    f.iLastSec = static_cast<int32_t>(to - from > INT32_MAX ? INT32_MAX : to - from);
  }
  std::string err;
  for (const std::string& path : o.args) {
    if (!zq_tools::CheckRegularFile(path, &err)) return error("cannot read " + err);
  }
  int status = 0;
  for (const std::string& path : o.args) {
    const int ret = dump_bin_file(path, f, &err);
    if (ret != 0) {
      fflush(stdout);
      fprintf(stderr, "wlog_dump: %s\n", err.c_str());
      if (ret > status) status = ret;
    }
  }
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      fputs(kUsage, stdout);
      return 0;
    }
    const bool takes_value = a == "--key" || a == "--interval" || a == "--since" ||
                             a == "--until" || a == "--id" || a == "--cls";
    if (takes_value) {
      if (i + 1 >= argc) return usage_error(a + " needs a value");
      const std::string v = argv[++i];
      int64_t n = 0;
      uint64_t key = 0;
      bool ok = true;
      if (a == "--key") {
        ok = zq_tools::ParseId(v, UINT32_MAX, &key) && key != 0;
        o.key = static_cast<int>(static_cast<uint32_t>(key));
      } else if (a == "--interval") {
        ok = zq_tools::ParseDecimal(v, 10, 60000, &n);
        o.interval_ms = static_cast<int>(n);
      } else if (a == "--since") {
        ok = o.since = parse_time(v, &o.since_t);
      } else if (a == "--until") {
        ok = o.until = parse_time(v, &o.until_t);
      } else {
        ok = parse_range(v, a == "--id" ? &o.filter.stID : &o.filter.stCls);
      }
      if (!ok) return usage_error("bad " + a + " value '" + zq_tools::Printable(v) + "'");
    } else if (a == "--follow") {
      o.follow = true;
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("unknown option " + zq_tools::Printable(a.substr(0, a.find('='))));
    } else if (o.mode.empty()) {
      o.mode = a;
    } else {
      o.args.push_back(a);
    }
  }
  if (o.mode.empty()) return usage_error("no command given");
  if (o.mode == "mem") {
    if (o.args.size() != 1) return usage_error("mem takes one URI");
    if (o.since || o.until || o.filter.stID.dwCount || o.filter.stCls.dwCount) {
      return usage_error("--since, --until, --id and --cls apply to bin");
    }
    return cmd_mem(o);
  }
  if (o.mode == "bin") {
    if (o.args.empty()) return usage_error("bin needs at least one FILE");
    if (o.follow) return usage_error("--follow applies to mem");
    return cmd_bin(o);
  }
  return usage_error("unknown command '" + zq_tools::Printable(o.mode) + "'");
}
