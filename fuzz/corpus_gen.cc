// Writes the seed corpora: valid encodings of pseudo-randomly filled records at assorted cut
// versions, and metadata libraries written with the vix builder. Usage:
// fuzz_corpus_gen <corpus-dir>  (writes <dir>/tframehead, nhp, o2auth, vix_metalib).
#include <sys/stat.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "nhp_testsupport.h"
#include "o2auth_data_testsupport.h"
#include "tframehead_testsupport.h"
#include "vix/vix_builder.h"

namespace {

bool writeFile(const std::string& path, const std::vector<char>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return std::fclose(f) == 0 && ok;
}

// count seeds of T, each packed at a cut version chosen by cutOf(seed); only small encodings
// (below 4 KiB) are kept so the corpus stays small.
template <typename T, typename CutOf>
int emit(const std::string& dir, int count, CutOf cutOf) {
  mkdir(dir.c_str(), 0755);
  std::unique_ptr<T> rec(new T());
  std::vector<char> out(T::MAX_PACK_SIZE);
  int written = 0;
  for (uint64_t seed = 1; written < count && seed < 100000; ++seed) {
    vixtest_fill(*rec, seed);
    size_t used = 0;
    if (rec->pack(out.data(), out.size(), &used, cutOf(seed)) != 0 || used > 4096) continue;
    char name[64];
    std::snprintf(name, sizeof(name), "/seed-%03d.bin", written);
    if (!writeFile(dir + name,
                   std::vector<char>(out.begin(), out.begin() + static_cast<long>(used))))
      return -1;
    ++written;
  }
  return written;
}

// Small metadata libraries, one feature each (records are 304 bytes, so a library of a few
// metas stays near 2 KiB): macros and a group only, a record using the group, nested records
// with a count member, an index and a key, a union picked by a selector member, a 16-branch
// union (searched by bisection), a few empty records.
int emitMetalibs(const std::string& dir) {
  mkdir(dir.c_str(), 0755);
  int written = 0;
  for (int shape = 0; shape < 6; ++shape) {
    VIXLIBPARAM param = {};
    param.iVersion = shape + 1;
    std::snprintf(param.szName, sizeof(param.szName), "seed%d", shape);
    LPVIXBUILDER b = nullptr;
    if (vix_builder_open_growing(&b, &param) != 0) return -1;
    int ret = 0;
    auto meta = [&](const char* name, int id, int type, int packed) {
      VIXMETADESC d;
      vix_meta_desc_init(&d);
      d.pszName = name;
      d.iID = id;
      d.iType = type;
      d.iPacked = packed;
      ret |= vix_builder_begin_meta(b, &d);
    };
    auto entry = [&](const char* name, const char* type, int count, const char* refer,
                     const char* select, int minId, int maxId, const char* group) {
      VIXENTRYDESC e;
      vix_entry_desc_init(&e);
      e.pszName = name;
      e.pszType = type;
      e.iCount = count;
      e.pszRefer = refer;
      e.pszSelect = select;
      e.iMinId = minId;
      e.iMaxId = maxId;
      e.pszMacrosGroup = group;
      e.iHasID = 1;
      e.iID = count + minId;
      ret |= vix_builder_add_entry(b, &e);
    };
    const char* cmds[] = {"C_A", "C_B", "C_C"};
    if (shape <= 1) {
      for (int i = 0; i < 3; ++i) ret |= vix_builder_add_macro(b, cmds[i], 3 - i, "cmd");
      ret |= vix_builder_add_macrosgroup(b, "Cmd", "commands", cmds, 3);
    }
    if (shape == 1) {
      meta("Head", 1, VIX_TYPE_STRUCT, 0);
      entry("cmd", "uint8", 1, nullptr, nullptr, 1, 0, "Cmd");
      entry("len", "int32", 1, nullptr, nullptr, 1, 0, nullptr);
      ret |= vix_builder_end_meta(b);
    } else if (shape == 2) {
      meta("In", 1, VIX_TYPE_STRUCT, 1);
      entry("v", "int64", 1, nullptr, nullptr, 1, 0, nullptr);
      ret |= vix_builder_end_meta(b);
      meta("Out", 2, VIX_TYPE_STRUCT, 0);
      entry("in", "In", 1, nullptr, nullptr, 1, 0, nullptr);
      entry("n", "int8", 1, nullptr, nullptr, 1, 0, nullptr);
      entry("items", "datetime", 2, "n", nullptr, 1, 0, nullptr);
      const char* cols[] = {"n", "in.v"};
      VIXINDEXDESC x;
      vix_index_desc_init(&x);
      x.pszName = "ix";
      x.iID = 4;
      x.pszCustomAttr = "unique";
      x.ppszColumns = cols;
      x.iColumnNum = 2;
      ret |= vix_builder_add_index(b, &x);
      ret |= vix_builder_set_primarykey(b, cols, 1);
      ret |= vix_builder_end_meta(b);
    } else if (shape == 3) {
      meta("Body", 1, VIX_TYPE_UNION, 0);
      entry("raw", "string", 8, nullptr, nullptr, 1, 0, nullptr);
      entry("d", "double", 1, nullptr, nullptr, 2, 3, nullptr);
      ret |= vix_builder_end_meta(b);
      meta("Pkg", 2, VIX_TYPE_STRUCT, 0);
      entry("sel", "int16", 1, nullptr, nullptr, 1, 0, nullptr);
      entry("body", "Body", 1, nullptr, "sel", 1, 0, nullptr);
      ret |= vix_builder_end_meta(b);
    } else if (shape == 4) {
      meta("U", 10, VIX_TYPE_UNION, 0);
      for (int i = 0; i < 16; ++i) {
        const std::string name = "b" + std::to_string(i);
        entry(name.c_str(), "int8", 1, nullptr, nullptr, i == 0 ? 1 : 10 * i,
              i == 0 ? 0 : 10 * i + 4, nullptr);
      }
      ret |= vix_builder_end_meta(b);
    } else if (shape == 5) {
      for (int i = 0; i < 4; ++i) {
        const std::string name = "M" + std::to_string(3 - i);
        meta(name.c_str(), i * 5, VIX_TYPE_STRUCT, 0);
        ret |= vix_builder_end_meta(b);
      }
    }
    LPVIXMETALIB lib = nullptr;
    ret |= vix_builder_finish(b, &lib);
    vix_builder_close(&b);
    if (ret != 0 || lib == nullptr) return -1;
    const char* p = reinterpret_cast<const char*>(lib);
    char name[64];
    std::snprintf(name, sizeof(name), "/seed-%03d.bin", written);
    const bool ok = writeFile(dir + name, std::vector<char>(p, p + vix_size(lib)));
    vix_free_lib(&lib);
    if (!ok) return -1;
    ++written;
  }
  return written;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <corpus-dir>\n", argv[0]);
    return 2;
  }
  const std::string root = argv[1];
  mkdir(root.c_str(), 0755);
  const int a = emit<tframehead::TFrameHead>(root + "/tframehead", 40, [](uint64_t s) {
    return static_cast<unsigned int>(tframehead::TFrameHead::BASEVERSION + s % 26);
  });
  const int b = emit<nhp::TNHPInFrame>(root + "/nhp", 40, [](uint64_t) { return 0u; });
  const int c = emit<KALMOO2UnifiedAuth>(root + "/o2auth", 30, [](uint64_t) { return 0u; });
  const int d = emitMetalibs(root + "/vix_metalib");
  std::printf("tframehead %d, nhp %d, o2auth %d, vix_metalib %d seeds\n", a, b, c, d);
  return a > 0 && b > 0 && c > 0 && d > 0 ? 0 : 1;
}
