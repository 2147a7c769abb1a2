// Meta lookups in a library of 10,000 metas (names of 10 to 30 characters), by name and by
// identifier, each against a floor measured in the same run: std::lower_bound over the same
// sorted names (strcmp) and identifiers held in plain arrays. The queries are drawn at random
// from every meta and walked in a fixed pseudo-random order, so no search path stays cache-hot
// by accident; the floor walks the same queries.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <string>
#include <vector>

#include "vix/vix_builder.h"

namespace {

constexpr int kMetas = 10000;
constexpr size_t kQueries = 1 << 16;

struct Fixture {
  VIXMETALIB* pstLib = nullptr;
  std::vector<std::string> names;        // per meta
  std::vector<int> ids;                  // per meta
  std::string nameArena;                 // floor: the sorted names, one after another
  std::vector<const char*> sortedNames;  // floor: pointers into nameArena
  std::vector<int> sortedIds;            // floor
  std::vector<std::string> nameQueries;  // copies, not the stored strings
  std::vector<int> idQueries;

  Fixture() {
    std::mt19937 rng(20240229);
    std::uniform_int_distribution<int> len(10, 30);
    std::uniform_int_distribution<int> letter(0, 35);
    while (static_cast<int>(names.size()) < kMetas) {
      std::string s(1, static_cast<char>('a' + letter(rng) % 26));
      const int n = len(rng);
      while (static_cast<int>(s.size()) < n) {
        const int c = letter(rng);
        s += static_cast<char>(c < 26 ? 'a' + c : '0' + c - 26);
      }
      names.push_back(s);
    }
    std::sort(names.begin(), names.end());
    names.erase(std::unique(names.begin(), names.end()), names.end());
    std::shuffle(names.begin(), names.end(), rng);
    for (size_t i = 0; i < names.size(); ++i) ids.push_back(static_cast<int>(i * 7 + 3));
    std::shuffle(ids.begin(), ids.end(), rng);

    VIXLIBPARAM param = {};
    std::strcpy(param.szName, "bench");
    VIXBUILDER* b = nullptr;
    if (vix_builder_open_growing(&b, &param) != 0) std::abort();
    for (size_t i = 0; i < names.size(); ++i) {
      VIXMETADESC d;
      vix_meta_desc_init(&d);
      d.pszName = names[i].c_str();
      d.iID = ids[i];
      if (vix_builder_begin_meta(b, &d) != 0 ||
          vix_builder_add_simple_entry(b, "value", "int32", 1) != 0 ||
          vix_builder_end_meta(b) != 0) {
        std::abort();
      }
    }
    if (vix_builder_finish(b, &pstLib) != 0) std::abort();
    vix_builder_close(&b);

    std::vector<std::string> sorted = names;
    std::sort(sorted.begin(), sorted.end());
    std::vector<size_t> offsets;
    for (const std::string& s : sorted) {
      offsets.push_back(nameArena.size());
      nameArena += s;
      nameArena += '\0';
    }
    for (size_t off : offsets) sortedNames.push_back(nameArena.data() + off);
    sortedIds = ids;
    std::sort(sortedIds.begin(), sortedIds.end());

    std::uniform_int_distribution<size_t> pick(0, names.size() - 1);
    for (size_t i = 0; i < kQueries; ++i) {
      const size_t k = pick(rng);
      nameQueries.push_back(names[k]);
      idQueries.push_back(ids[k]);
    }
  }
  ~Fixture() { vix_free_lib(&pstLib); }
};

Fixture& fixture() {
  static Fixture f;
  return f;
}

void BM_MetaByName(benchmark::State& state) {
  Fixture& f = fixture();
  size_t i = 0;
  for (auto _ : state) {
    const VIXMETA* m = vix_get_meta_by_name(f.pstLib, f.nameQueries[i++ & (kQueries - 1)].c_str());
    benchmark::DoNotOptimize(m);
  }
}
BENCHMARK(BM_MetaByName);

void BM_MetaByName_Floor(benchmark::State& state) {
  Fixture& f = fixture();
  size_t i = 0;
  for (auto _ : state) {
    const char* q = f.nameQueries[i++ & (kQueries - 1)].c_str();
    auto it = std::lower_bound(f.sortedNames.begin(), f.sortedNames.end(), q,
                               [](const char* a, const char* b) { return std::strcmp(a, b) < 0; });
    const char* hit = (it != f.sortedNames.end() && std::strcmp(*it, q) == 0) ? *it : nullptr;
    benchmark::DoNotOptimize(hit);
  }
}
BENCHMARK(BM_MetaByName_Floor);

void BM_MetaById(benchmark::State& state) {
  Fixture& f = fixture();
  size_t i = 0;
  for (auto _ : state) {
    const VIXMETA* m = vix_get_meta_by_id(f.pstLib, f.idQueries[i++ & (kQueries - 1)]);
    benchmark::DoNotOptimize(m);
  }
}
BENCHMARK(BM_MetaById);

void BM_MetaById_Floor(benchmark::State& state) {
  Fixture& f = fixture();
  size_t i = 0;
  for (auto _ : state) {
    const int q = f.idQueries[i++ & (kQueries - 1)];
    auto it = std::lower_bound(f.sortedIds.begin(), f.sortedIds.end(), q);
    const int* hit = (it != f.sortedIds.end() && *it == q) ? &*it : nullptr;
    benchmark::DoNotOptimize(hit);
  }
}
BENCHMARK(BM_MetaById_Floor);

}  // namespace

BENCHMARK_MAIN();
