// Fuzz target: arbitrary bytes loaded as a metadata library (checksum fixed up first so that
// the input reaches the block checks), then every operation on what loads: look-ups, paths,
// macros, save and reload, printing records as text and reading them back, the dump. Operations
// on a loaded library are the rows of kOperations.
#include <stdio.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vix/vix_io.h"
#include "vix/vix_metalib.h"

namespace {

void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
  }
}

// Records reached through the public layout of a loaded (checked) library.
const VIXMETAINDEX* index_of(const VIXMETALIB* lib, const VIXMETA* m, int k) {
  return reinterpret_cast<const VIXMETAINDEX*>(VIX_LIB_DATA(lib) + m->ptrIndexes) + k;
}

// Keeps results alive so that the calls are not optimised away.
volatile size_t g_sink;
void sink(const void* p) { g_sink += reinterpret_cast<uintptr_t>(p) & 1; }
void sink(const char* s) { g_sink += std::strlen(s); }
void sink(long long v) { g_sink += static_cast<size_t>(v); }

void op_library(const VIXMETALIB* lib) {
  sink(vix_get_meta_num(lib));
  sink(vix_get_metalib_version(lib));
  sink(vix_get_metalib_build_version(lib));
  sink(vix_get_metalib_id(lib));
  sink(vix_get_metalib_name(lib));
  sink(vix_get_meta_by_name(lib, ""));
  sink(vix_get_meta_by_id(lib, -1));
  sink(vix_get_meta_by_index(lib, -1));
  sink(vix_get_meta_by_index(lib, vix_get_meta_num(lib)));
}

void op_entry(const VIXMETA* m, const VIXMETAENTRY* e) {
  sink(vix_get_entry_id(e));
  sink(vix_get_entry_name(e));
  sink(vix_get_entry_cname(e));
  sink(vix_get_entry_desc(e));
  sink(vix_get_entry_type(e));
  sink(vix_get_entry_count(e));
  sink(static_cast<long long>(vix_get_entry_unitsize(e)));
  sink(vix_get_entry_version(e));
  sink(vix_get_entry_offset(e));
  sink(vix_get_entry_customattr(e));
  sink(vix_get_entry_customattr2(e));
  size_t len = 0;
  const char* def = vix_get_entry_defaultvalue(e, &len);
  if (len > 0) sink(static_cast<long long>(def[len - 1]));
  const VIXMETAENTRY* refer = vix_get_entry_refer(e);
  if (refer != nullptr) sink(vix_get_entry_name(refer));
  const VIXMETAENTRY* select = vix_get_entry_select(e);
  if (select != nullptr) sink(vix_get_entry_name(select));
  const VIXMETA* nested = vix_get_entry_type_meta(e);
  if (nested != nullptr) sink(vix_get_meta_name(nested));
  check(vix_get_meta_of_entry(e) == m, "entry's meta");
  const VIXMACROSGROUP* group = vix_get_entry_macrosgroup(e);
  if (group != nullptr) {
    const VIXMETALIB* lib = vix_get_metalib_of_meta(m);
    for (int k = 0; k < vix_get_macrosgroup_macro_num(group); ++k) {
      const VIXMACRO* macro = vix_get_macrosgroup_macro_by_index(lib, group, k);
      sink(vix_get_bindmacro_by_name(e, vix_get_macro_name_by_ptr(lib, macro)));
      sink(vix_get_bindmacro_by_value(e, macro->iValue));
    }
  }
  int idx = 0;
  // By name: the first entry of that name, which has the same name.
  if (vix_get_entry_by_name(&idx, m, vix_get_entry_name(e)) == 0) {
    check(
        std::strcmp(vix_get_entry_name(vix_get_entry_by_index(m, idx)), vix_get_entry_name(e)) == 0,
        "entry by name");
  }
  // By identifier, and the union branch for the values around the entry's range (wrapping at
  // the ends of the int range).
  const auto step = [](int32_t v, uint32_t d) {
    return static_cast<int32_t>(static_cast<uint32_t>(v) + d);
  };
  for (int id : {e->iID, e->iMinId, e->iMaxId, step(e->iMinId, ~0u), step(e->iMaxId, 1)}) {
    if (vix_get_entry_by_id(&idx, m, id) == 0) {
      check(vix_get_entry_by_index(m, idx) != nullptr, "entry by id in range");
    }
  }
}

void op_metas(const VIXMETALIB* lib) {
  for (int i = 0; i < vix_get_meta_num(lib); ++i) {
    const VIXMETA* m = vix_get_meta_by_index(lib, i);
    check(m != nullptr && vix_get_metalib_of_meta(m) == lib, "meta by index");
    const VIXMETA* byName = vix_get_meta_by_name(lib, vix_get_meta_name(m));
    if (byName != nullptr) {
      check(std::strcmp(vix_get_meta_name(byName), vix_get_meta_name(m)) == 0, "meta by name");
    }
    const VIXMETA* byId = vix_get_meta_by_id(lib, vix_get_meta_id(m));
    if (byId != nullptr) check(vix_get_meta_id(byId) == vix_get_meta_id(m), "meta by id");
    sink(static_cast<long long>(vix_get_meta_size(m)));
    sink(vix_get_meta_type(m));
    sink(vix_get_meta_based_version(m));
    sink(vix_get_meta_current_version(m));
    sink(vix_get_meta_desc(m));
    sink(vix_get_meta_customattr(m));
    sink(vix_get_meta_customattr2(m));
    sink(vix_get_max_id_of_meta_entries(m));
    const VIXDBKEYINFO* keys = nullptr;
    int num = 0;
    if (vix_get_meta_primarykey(&keys, &num, m) == 0 && num > 0) sink(keys[num - 1].iHOff);
    if (vix_get_meta_splittablekey(&keys, &num, m) == 0 && num > 0) sink(keys[0].iHOff);
    sink(vix_get_entry_by_index(m, vix_get_entry_num(m)));
    for (int j = 0; j < vix_get_entry_num(m); ++j) op_entry(m, vix_get_entry_by_index(m, j));
    for (int k = 0; k < m->iIndexesNum; ++k) {
      const VIXMETAINDEX* x = index_of(lib, m, k);
      sink(vix_get_index_name(x));
      sink(vix_get_index_customattr(x));
      sink(vix_get_index_customattr2(x));
      check(vix_get_index_by_id(m, vix_get_index_id(x)) != nullptr, "index by id");
      check(vix_get_index_by_name(m, vix_get_index_name(x)) != nullptr, "index by name");
      if (vix_get_index_columns(&keys, &num, x) == 0 && num > 0) sink(keys[num - 1].iHOff);
    }
  }
}

void op_paths(const VIXMETALIB* lib) {
  char path[256];
  for (int i = 0; i < vix_get_meta_num(lib) && i < 64; ++i) {
    const VIXMETA* m = vix_get_meta_by_index(lib, i);
    const VIXOFF size = static_cast<VIXOFF>(vix_get_meta_size(m));
    const VIXOFF step = size / 64 + 1;
    for (VIXOFF off = -1; off <= size; off += step) {
      if (vix_entry_off_to_path(m, off, path, sizeof(path)) != 0) continue;
      const VIXMETAENTRY* e = nullptr;
      VIXOFF start = 0;
      if (vix_entry_path_to_off(m, &e, &start, path) == 0) sink(start);
      VIXSIZEINFO si;
      if (vix_sizeinfo_to_off(&si, m, path) == 0) sink(static_cast<long long>(si.iUnitSize));
    }
    for (int j = 0; j < vix_get_entry_num(m) && j < 16; ++j) {
      const VIXMETAENTRY* e = vix_get_entry_by_index(m, j);
      const std::string name = vix_get_entry_name(e);
      const VIXMETA* nested = vix_get_entry_type_meta(e);
      std::vector<std::string> paths = {name, name + "[1]", name + ".x"};
      if (nested != nullptr && vix_get_entry_num(nested) > 0) {
        paths.push_back(name + "." + vix_get_entry_name(vix_get_entry_by_index(nested, 0)));
      }
      for (const std::string& p : paths) sink(vix_get_entry_by_path(m, p.c_str()));
    }
  }
}

void op_macros(const VIXMETALIB* lib) {
  for (int i = 0; i < vix_get_metalib_macro_num(lib); ++i) {
    const VIXMACRO* macro = vix_get_metalib_macro_by_index(lib, i);
    const char* name = vix_get_macro_name_by_ptr(lib, macro);
    sink(vix_get_macro_desc_by_ptr(lib, macro));
    int value = 0;
    check(vix_get_macro_value_by_ptr(&value, macro) == 0, "macro value");
    check(vix_get_macro_by_name(lib, name) != nullptr, "macro by name");
    check(vix_get_macro_name_by_value(lib, value) != nullptr, "macro by value");
    if (i < 64) sink(vix_get_macro_macrosgroup(lib, macro));
  }
  for (int g = 0; g < vix_get_macrosgroup_num(lib); ++g) {
    const VIXMACROSGROUP* group = vix_get_macrosgroup_by_index(lib, g);
    check(vix_get_macrosgroup_by_name(lib, vix_get_macrosgroup_name(group)) != nullptr,
          "group by name");
    for (int k = 0; k < vix_get_macrosgroup_macro_num(group); ++k) {
      sink(vix_get_macrosgroup_macro_by_index(lib, group, k));
    }
  }
}

// A library always equals itself, keeps its digest, and survives a save and a reload, and
// its 32-bit form can be made whenever it fits.
void op_whole(const VIXMETALIB* lib) {
  for (int i = 0; i < vix_get_meta_num(lib); ++i) {
    const VIXMETA* m = vix_get_meta_by_index(lib, i);
    check(vix_compare_meta(m, m) == VIX_XML_EQUIVALENT, "a meta equals itself");
  }
  sink(vix_compare_metalib(lib, lib));

  uint8_t digest[VIX_MD5_DIGEST_LEN];
  char text[VIX_MD5_STR_LEN];
  vix_md5hash_buffer(digest, lib, lib->iSize);
  check(vix_verify_metalib(lib, vix_md5hash2str(digest, text, sizeof(text))) == 0, "digest");

  std::vector<uint64_t> copy(lib->iSize / 8 + 1);
  size_t room = copy.size() * 8;
  LPVIXMETALIB clone = vix_clone_lib(copy.data(), &room, lib);
  check(clone != nullptr && room == lib->iSize, "clone");
  char* saved = nullptr;
  size_t savedLen = 0;
  FILE* fp = open_memstream(&saved, &savedLen);
  check(fp != nullptr && vix_save_metalib_fp(clone, fp) == 0, "save");
  std::fclose(fp);
  LPVIXMETALIB again = nullptr;
  size_t len = savedLen;
  if (lib->iSize < VIX_MIN_LIB_FILE) {
    // Loaded from a longer input, but too short to be read on its own.
    check(vix_load_metalib_buf(&again, saved, &len) == VIX_ERROR_BUF_TOO_SHORT, "short reload");
  } else {
    check(vix_load_metalib_buf(&again, saved, &len) == 0 && len == lib->iSize, "reload");
    check(std::memcmp(again, lib, lib->iSize) == 0, "reloaded bytes");
    vix_free_lib(&again);
  }
  std::free(saved);

  LPVIXMETALIB32 lib32 = nullptr;
  if (vix_make_lib32(&lib32, lib) == 0) {
    check(lib32->iCurMetaNum == lib->iCurMetaNum, "32-bit form");
    vix_free_lib32(&lib32);
  }
}

// Deterministic bytes for host records and text mutations, seeded by the library.
struct Rng {
  uint64_t x;
  uint64_t next() {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    return x;
  }
};

bool is_vix_code(int ret) {
  return ret == 0 || (static_cast<uint32_t>(ret) & 0xFFFFFF00u) == 0x82010400u;
}

// Reads text into the record; a failure must leave the record as it was.
void scan_checked(const VIXMETA* m, std::vector<char>* host, const char* text, size_t len,
                  const VIXPRINTFORMAT& format) {
  const std::vector<char> before = *host;
  VIXDATA h = {host->data(), host->size()};
  VIXDATA in = {const_cast<char*>(text), len};
  const int ret = vix_sscanf_ex(m, &h, &in, 0, &format);
  check(is_vix_code(ret), "scan result code");
  if (ret != 0) check(*host == before, "a failed read restores the record");
}

// Every meta printed into a buffer exactly as large as the text may take, then read back from
// that text, from a mutated copy and from the input's own bytes; host buffers are exactly the
// meta's host size (capped), so that any access past them is caught.
void op_text(const VIXMETALIB* lib, const uint8_t* data, size_t size) {
  const VIXPRINTFORMAT formats[] = {
      {"\n", 0, ' ', 0}, {"\n", 1, ' ', 1}, {";", 0, '\t', 1}, {"", 0, ' ', 0}};
  Rng rng{0x9E3779B97F4A7C15ull ^ lib->checksum};
  for (int i = 0; i < vix_get_meta_num(lib) && i < 16; ++i) {
    const VIXMETA* m = vix_get_meta_by_index(lib, i);
    const size_t hostSize = std::min<size_t>(vix_get_meta_size(m), 16384);
    if (hostSize == 0) continue;
    std::vector<char> host(hostSize);
    for (char& c : host) c = static_cast<char>(rng.next() % 4 == 0 ? rng.next() : 0);
    for (const VIXPRINTFORMAT& format : formats) {
      std::vector<char> out(1 + rng.next() % 8192);
      VIXDATA o = {out.data(), out.size()};
      VIXDATA h = {host.data(), host.size()};
      const int ret = vix_sprintf_ex(m, &o, &h, 0, &format);
      check(is_vix_code(ret) && o.iBuff <= out.size(), "print result");
      if (ret != 0) continue;
      check(o.iBuff == out.size() || out[o.iBuff] == '\0', "printed text terminated");
      std::vector<char> back(hostSize);
      scan_checked(m, &back, out.data(), o.iBuff, format);
      std::vector<char> text(out.begin(), out.begin() + static_cast<std::ptrdiff_t>(o.iBuff));
      static const char kBytes[] = "=[]\n;0123456789-x V\t";
      for (int k = 0; k < 4 && !text.empty(); ++k) {
        text[rng.next() % text.size()] = kBytes[rng.next() % (sizeof(kBytes) - 1)];
      }
      if (!text.empty() && rng.next() % 2 == 0) text.resize(rng.next() % text.size());
      scan_checked(m, &back, text.data(), text.size(), format);
    }
    scan_checked(m, &host, reinterpret_cast<const char*>(data), size, formats[i % 4]);
  }
  static FILE* devnull = std::fopen("/dev/null", "w");
  if (devnull != nullptr) check(vix_dump_metalib(lib, devnull) == 0, "dump");
}

const uint8_t* g_data = nullptr;
size_t g_size = 0;
void op_text_of_input(const VIXMETALIB* lib) { op_text(lib, g_data, g_size); }

using Operation = void (*)(const VIXMETALIB*);
const Operation kOperations[] = {op_library, op_metas, op_paths,
                                 op_macros,  op_whole, op_text_of_input};

uint32_t xor_words(const char* p, size_t n) {
  uint32_t x = 0;
  for (size_t i = 0; i + 4 <= n; i += 4) {
    uint32_t w;
    std::memcpy(&w, p + i, 4);
    x ^= w;
  }
  return x;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_data = data;
  g_size = size;
  std::vector<char> bytes(data, data + size);
  if (size >= 24) {
    uint64_t claimed = 0;
    std::memcpy(&claimed, &bytes[8], 8);
    const size_t covered = claimed < size ? static_cast<size_t>(claimed) : size;
    std::memset(&bytes[16], 0, 4);
    const uint32_t sum = xor_words(bytes.data(), covered);
    std::memcpy(&bytes[16], &sum, 4);
  }

  // The file reader takes the same bytes (and reads libraries stored at an offset).
  LPVIXMETALIB fromFile = nullptr;
  FILE* fp = bytes.empty() ? nullptr : fmemopen(bytes.data(), bytes.size(), "rb");
  if (fp != nullptr) {
    if (vix_load_metalib_fp(&fromFile, fp) == 0) {
      for (Operation op : kOperations) op(fromFile);
      vix_free_lib(&fromFile);
    }
    std::fclose(fp);
  }

  LPVIXMETALIB lib = nullptr;
  size_t len = bytes.size();
  if (vix_load_metalib_buf(&lib, bytes.data(), &len) != 0) return 0;
  check(len == lib->iSize && len <= size, "bytes consumed");
  for (Operation op : kOperations) op(lib);
  vix_free_lib(&lib);
  return 0;
}
