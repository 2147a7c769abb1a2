// wsm: operator tool for the typed shared-memory registry: lists its objects, shows one (a typed
// data object printed through its record type), removes one, loads a metadata library.
#include <errno.h>
#include <inttypes.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

#include <string>
#include <vector>

#include "tool_input.h"
#include "vix/vix_error.h"
#include "vix/vix_io.h"
#include "vix/vix_metalib.h"
#include "vix/vix_types.h"
#include "wmng/terror.h"
#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

namespace {

const char kUsage[] =
    "usage: wsm [--key KEY] COMMAND [ARGS]\n"
    "Operates on the typed shared-memory registry of a System V key.\n"
    "\n"
    "commands:\n"
    "  list                            meta and data objects: kind, size, references, segment\n"
    "                                  id, age and URI\n"
    "  show URI                        every object matching URI: its header; a data object\n"
    "                                  bound to a record type is printed through it\n"
    "  unlink URI                      removes the one object URI matches\n"
    "  load-meta FILE [--bid N] [--replace]\n"
    "                                  registers a metadata library file as a meta object\n"
    "                                  (creating the registry when there is none)\n"
    "\n"
    "options:\n"
    "  --key KEY    registry key, decimal or 0x hex (default 0x18790314)\n"
    "  --help       this text\n"
    "\n"
    "URIs: wsm-meta://bid/library:version:build/meta:version/  wsm-data://bid/prog:id/func/value\n"
    "(\"*\" or an empty field matches anything).\n"
    "Exit status: 0 done; 1 load-meta found a different library stored and kept it; 2 error\n"
    "(message and the error stack on stderr).\n";

const int kMaxRecords = 16;  // records shown of one data object

struct Options {
  int key = WSM_INDEX_KEY_DEFAULT;
  int bid = 0;
  bool replace = false;
  std::vector<std::string> args;
};

int fail(const char* fmt, const std::string& a = "", const std::string& b = "") {
  fprintf(stderr, "wsm: ");
  fprintf(stderr, fmt, a.c_str(), b.c_str());
  fprintf(stderr, "\n");
  if (terror_count(nullptr) > 0) {
    char stack[8192];
    if (terror_dump_string(nullptr, stack, sizeof(stack)) >= 0) {
      fprintf(stderr, "error stack (newest first):\n%s", zq_tools::GbkToUtf8(stack).c_str());
    }
  }
  return 2;
}

bool parse_int(const char* text, long lo, long hi, int* out) {
  errno = 0;
  char* end = nullptr;
  const long v = strtol(text, &end, 0);
  if (errno != 0 || end == text || *end != '\0' || v < lo || v > hi) return false;
  *out = static_cast<int>(v);
  return true;
}

std::string hex(int v) {
  char buf[16];
  snprintf(buf, sizeof(buf), "0x%x", static_cast<unsigned>(v));
  return buf;
}

// Mounts the registry of the key with the capacities stored in it. create: make it (with the
// default capacities) when there is none.
int open_registry(const Options& o, bool create, WsmVixHandleP* h) {
  WsmBase base;
  int ret = wsm_index_probe(o.key, &base);
  if (ret == -2 && create) {
    ret = wsm_base_default(&base);
    base.iIndexKey = o.key;
    terror_clear(nullptr);
  } else if (ret == -2) {
    return fail("no registry at key %s", hex(o.key));
  }
  if (ret != 0)
    return fail("the segment at key %s is not a registry this tool can read", hex(o.key));
  if (wsm_vix_base_set(&base) != 0 || wsm_vix_open(h) != 0) {
    return fail("cannot open the registry at key %s", hex(o.key));
  }
  return 0;
}

std::string age(int64_t since) {
  const int64_t s = static_cast<int64_t>(time(nullptr)) - since;
  char buf[32];
  if (s < 120) {
    snprintf(buf, sizeof(buf), "%" PRId64 "s", s);
  } else if (s < 7200) {
    snprintf(buf, sizeof(buf), "%" PRId64 "m", s / 60);
  } else if (s < 172800) {
    snprintf(buf, sizeof(buf), "%" PRId64 "h", s / 3600);
  } else {
    snprintf(buf, sizeof(buf), "%" PRId64 "d", s / 86400);
  }
  return buf;
}

// The slot's object pointer of a row: its own.
WsmObjPtrP own_ptr(WsmVixRowP r) {
  return wsm_vix_row_is_meta(r) == 1 ? wsm_vix_row_meta_ptr(r) : wsm_vix_row_data_ptr(r);
}

int cmd_list(WsmVixHandleP h) {
  printf("%-4s %12s %4s %10s %5s  %s\n", "KIND", "SIZE", "REFS", "SHMID", "AGE", "URI");
  for (const char* all : {"wsm-meta://", "wsm-data://"}) {
    if (wsm_vix_query(h, all) < 0) return fail("cannot list the registry");
    WsmVixResultP res = wsm_vix_store_result(h);
    for (WsmVixRowP r = wsm_vix_fetch_row(res); r != nullptr; r = wsm_vix_fetch_row(res)) {
      const WsmObjPtr* p = own_ptr(r);
      printf("%-4s %12" PRId64 " %4d %10d %5s  %s", wsm_vix_row_is_meta(r) == 1 ? "meta" : "data",
             wsm_vix_row_size(r), p->iRef, p->iShmId, age(wsm_vix_row_time(r)).c_str(),
             wsm_vix_row_uri(r));
      const char* type = wsm_vix_row_is_data(r) == 1 ? wsm_vix_row_meta_uri(r) : nullptr;
      printf(type != nullptr ? "  (type %s)\n" : "\n", type);
    }
  }
  return 0;
}

// A heap copy of a library in shared memory, checked as a file would be; null when it fails.
LPVIXMETALIB checked_copy(const VIXMETALIB* shared, size_t size) {
  LPVIXMETALIB lib = nullptr;
  size_t len = size;
  return vix_load_metalib_buf(&lib, shared, &len) == 0 ? lib : nullptr;
}

void show_library(const VIXMETALIB* lib) {
  const int metas = vix_get_meta_num(lib);
  printf("library:    %s version %d build %d, %d record types\n", vix_get_metalib_name(lib),
         vix_get_metalib_version(lib), vix_get_metalib_build_version(lib), metas);
  for (int i = 0; i < metas; ++i) {
    const VIXMETA* m = vix_get_meta_by_index(lib, i);
    if (m != nullptr) {
      printf("  %s: %zu bytes, %d members\n", vix_get_meta_name(m), vix_get_meta_size(m),
             vix_get_entry_num(m));
    }
  }
}

void show_typed(WsmVixRowP r, const WsmShmHead* head, const unsigned char* payload) {
  const VIXMETALIB* shared = wsm_vix_row_meta(r);
  const WsmObjPtrP mp = wsm_vix_row_meta_ptr(r);
  LPVIXMETALIB lib = shared != nullptr ? checked_copy(shared, mp->iSize) : nullptr;
  char name[WSM_NAME_LEN + 1];
  snprintf(name, sizeof(name), "%.*s", WSM_NAME_LEN, head->stMeta.szMeta);
  const VIXMETA* meta = lib != nullptr ? vix_get_meta_by_name(lib, name) : nullptr;
  if (meta == nullptr) {
    printf("record:     type %s not readable from its library\n", name);
  } else {
    const size_t unit = vix_get_meta_size(meta);
    const size_t size = head->stPtr.iSize;
    const size_t records = unit > 0 ? size / unit : 0;
    printf("record:     %s, %zu bytes each, %zu in the object\n", name, unit, records);
    for (size_t k = 0; k < records && k < static_cast<size_t>(kMaxRecords); ++k) {
      printf("[%zu] ", k);
      VIXDATA host;
      host.pszBuff = const_cast<char*>(reinterpret_cast<const char*>(payload + k * unit));
      host.iBuff = unit;
      if (vix_fprintf(meta, stdout, &host, 0) != 0) {
        printf("\n(cannot print: %s)", vix_get_error_detail());
      }
      printf("\n");
    }
    if (records > static_cast<size_t>(kMaxRecords)) printf("... %zu more\n", records - kMaxRecords);
  }
  vix_free_lib(&lib);
}

int show_row(WsmVixRowP r) {
  const bool is_meta = wsm_vix_row_is_meta(r) == 1;
  const unsigned char* payload =
      static_cast<const unsigned char*>(wsm_vix_at(own_ptr(r), WSM_VIX_RDONLY));
  if (payload == nullptr) return fail("cannot attach %s", wsm_vix_row_uri(r));
  const WsmShmHead* head = reinterpret_cast<const WsmShmHead*>(payload - WSM_HEAD_SIZE);
  const time_t made = static_cast<time_t>(head->stTime.iSec);
  struct tm tm;
  char when[32] = "?";
  if (localtime_r(&made, &tm) != nullptr) strftime(when, sizeof(when), "%Y-%m-%d %H:%M:%S", &tm);
  printf("uri:        %s\n", wsm_vix_row_uri(r));
  printf("kind:       %s\n", is_meta ? "meta" : "data");
  printf("segment:    shmid %d, key %s, payload at %" PRIu64 ", %" PRIu64 " bytes\n",
         head->stPtr.iShmId, hex(head->stPtr.iIndexKey).c_str(), head->stPtr.iOffset,
         head->stPtr.iSize);
  printf("references: slot %d, header %d (this look included)\n", own_ptr(r)->iRef + 1,
         head->stPtr.iRef);
  printf("created:    %s (%s ago)\n", when, age(head->stTime.iSec).c_str());
  if (is_meta) {
    LPVIXMETALIB lib =
        checked_copy(reinterpret_cast<const VIXMETALIB*>(payload), head->stPtr.iSize);
    if (lib != nullptr) {
      show_library(lib);
    } else {
      printf("library:    not a readable metadata library\n");
    }
    vix_free_lib(&lib);
  } else {
    const WsmVixDataInfo& d = head->stData;
    printf("data:       bid %d, program %.32s:%.32s, function %.32s, value %.32s\n", d.iBid,
           d.szProgName, d.szProgId, d.szFuncName, d.szValueName);
    const char* type = wsm_vix_row_meta_uri(r);
    printf("type:       %s\n", type != nullptr ? type : "(none)");
    if (type != nullptr) show_typed(r, head, payload);
  }
  if (wsm_vix_dt(const_cast<unsigned char*>(payload)) != 0) {
    return fail("cannot detach %s", wsm_vix_row_uri(r));
  }
  return 0;
}

int cmd_show(WsmVixHandleP h, const std::string& uri) {
  const int n = wsm_vix_query(h, uri.c_str());
  if (n < 0) return fail("bad URI '%s'", uri);
  if (n == 0) return fail("no object matches '%s'", uri);
  WsmVixResultP res = wsm_vix_store_result(h);
  int ret = 0;
  for (WsmVixRowP r = wsm_vix_fetch_row(res); r != nullptr && ret == 0;
       r = wsm_vix_fetch_row(res)) {
    ret = show_row(r);
    if (wsm_vix_num_rows(res) > 1) printf("\n");
  }
  return ret;
}

int cmd_unlink(WsmVixHandleP h, const std::string& uri) {
  const int n = wsm_vix_query(h, uri.c_str());
  if (n < 0) return fail("bad URI '%s'", uri);
  if (n != 1) {
    return fail("'%s' matches %s objects; give a URI that names exactly one", uri,
                std::to_string(n));
  }
  WsmVixRowP r = wsm_vix_row_only(h);
  const std::string text = wsm_vix_row_uri(r);
  const int shmid = own_ptr(r)->iShmId;
  if (wsm_vix_row_unlink(r, h) != 0) return fail("cannot remove %s", text);
  printf("removed %s (shmid %d)\n", text.c_str(), shmid);
  return 0;
}

int cmd_load_meta(const Options& o, const std::string& path) {
  LPVIXMETALIB lib = nullptr;
  const int rc = vix_load_metalib(&lib, path.c_str());
  if (rc != 0) {
    return fail("cannot read the library file %s: %s", path, hex(rc) + " " + vix_error_string(rc));
  }
  WsmVixHandleP h = nullptr;
  int ret = open_registry(o, true, &h);
  if (ret == 0) {
    char uri[256];
    snprintf(uri, sizeof(uri), "wsm-meta://%d/%s:%d:%d/", o.bid, vix_get_metalib_name(lib),
             vix_get_metalib_version(lib), vix_get_metalib_build_version(lib));
    const bool existed = wsm_vix_query(h, uri) == 1;
    terror_clear(nullptr);
    const int loaded = wsm_vix_load_meta_ex(h, lib, o.bid, o.replace ? WSM_VIX_REPLACE : 0);
    if (loaded < 0) {
      ret = fail("cannot load %s into the registry", path);
    } else if (loaded == WSM_VIX_META_DIFFERS) {
      printf("%s: a different library is stored as %s; kept (use --replace)\n", path.c_str(), uri);
      ret = 1;
    } else {
      const char* what = loaded == WSM_VIX_META_REPLACED ? "replaced"
                         : existed                       ? "unchanged"
                                                         : "loaded";
      printf("%s: %s as %s\n", path.c_str(), what, uri);
    }
    if (wsm_vix_close(&h) != 0 && ret == 0) ret = fail("cannot close the registry");
  }
  vix_free_lib(&lib);
  return ret;
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
    if (a == "--replace") {
      o.replace = true;
    } else if (a == "--key" || a == "--bid") {
      if (i + 1 >= argc) return fail("%s needs a value", a);
      const char* v = argv[++i];
      const bool ok = a == "--key" ? parse_int(v, INT_MIN, UINT32_MAX, &o.key) && o.key != 0
                                   : parse_int(v, 0, INT_MAX, &o.bid);
      if (!ok) return fail("bad %s value '%s'", a, v);
    } else if (a.size() > 1 && a[0] == '-') {
      return fail("unknown option %s (see --help)", a);
    } else {
      o.args.push_back(a);
    }
  }
  const std::string cmd = o.args.empty() ? "" : o.args[0];
  const size_t want = cmd == "list"                                            ? 1
                      : cmd == "show" || cmd == "unlink" || cmd == "load-meta" ? 2
                                                                               : 0;
  if (want == 0)
    return fail(
        cmd.empty() ? "no command given (see --help)%s" : "unknown command '%s' (see --help)", cmd);
  if (o.args.size() != want)
    return fail("%s takes %s argument(s) (see --help)", cmd, std::to_string(want - 1));
  if (cmd == "load-meta") return cmd_load_meta(o, o.args[1]);
  WsmVixHandleP h = nullptr;
  int ret = open_registry(o, false, &h);
  if (ret != 0) return ret;
  if (cmd == "list") ret = cmd_list(h);
  if (cmd == "show") ret = cmd_show(h, o.args[1]);
  if (cmd == "unlink") ret = cmd_unlink(h, o.args[1]);
  if (wsm_vix_close(&h) != 0 && ret == 0) ret = fail("cannot close the registry");
  return ret;
}
