// Byte-exact wire vectors of the protocol schemas, read from the data files beside this test;
// the format is described at the top of each file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "nhp_testsupport.h"
#include "o2auth_data_testsupport.h"
#include "tframehead_testsupport.h"

using kalmo_vix::VixError;

namespace {

using Bytes = std::vector<unsigned char>;
using Fields = std::vector<std::pair<std::string, std::string>>;

struct Vector {
  std::string name, where, type;  // where: file:line name
  unsigned cut = 0;
  Fields fields;
  bool seeded = false, hasRoom = false, hasWire = false, hasText = false, fails = false;
  uint64_t seed = 0;
  long selector = 0;
  std::vector<unsigned> packCuts, readCuts;  // packing / unpacking at these gives the same result
  size_t room = 0;
  Bytes wire;
  size_t trailing = 0;  // bytes after the record that unpack leaves unread
  Bytes after;          // bytes that follow the record in its area (pack only)
  std::vector<std::pair<unsigned, int>> sizes;  // cut version: packed size, or error if negative
  std::string text;
  int error = 0;
  std::vector<std::string> trace;
};

// Words of a line, a quoted text being one word with its quotes; '#' outside quotes ends it.
std::vector<std::string> words(const std::string& line) {
  std::vector<std::string> out;
  for (size_t i = 0; i < line.size();) {
    if (line[i] == '#') break;
    if (line[i] == ' ' || line[i] == '\t') {
      ++i;
      continue;
    }
    size_t end = i + 1;
    if (line[i] == '"') {
      while (end < line.size() && line[end] != '"') end += line[end] == '\\' ? 2 : 1;
      ++end;
    } else {
      while (end < line.size() && line[end] != ' ' && line[end] != '\t') ++end;
    }
    out.push_back(line.substr(i, end - i));
    i = end;
  }
  return out;
}

// Hex bytes: "0a", or "00*12" for a run of twelve.
bool hexWords(const std::vector<std::string>& w, size_t from, Bytes& out) {
  for (size_t i = from; i < w.size(); ++i) {
    const size_t star = w[i].find('*');
    const std::string digits = w[i].substr(0, star);
    const long n = star == std::string::npos ? 1 : std::atol(w[i].c_str() + star + 1);
    if (digits.size() != 2 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos || n < 1)
      return false;
    out.insert(out.end(), static_cast<size_t>(n),
               static_cast<unsigned char>(std::strtoul(digits.c_str(), nullptr, 16)));
  }
  return true;
}

std::vector<unsigned> numbers(const std::vector<std::string>& w) {
  std::vector<unsigned> out;
  for (size_t i = 1; i < w.size(); ++i) out.push_back(std::strtoul(w[i].c_str(), nullptr, 0));
  return out;
}

// Reads a vectors file; a line it cannot read is a test failure naming it.
std::vector<Vector> readVectors(const std::string& path) {
  std::vector<Vector> out;
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << path << ": cannot open";
  std::string line;
  bool open = false;
  for (int n = 1; std::getline(in, line); ++n) {
    const std::vector<std::string> w = words(line);
    const std::string where = path.substr(path.rfind('/') + 1) + ":" + std::to_string(n);
    if (w.empty()) continue;
    Vector& v = open ? out.back() : out.emplace_back();
    const std::string& k = w[0];
    bool ok = true;
    if (!open) {
      ok = k == "vector" && w.size() == 4;
      open = ok;
      v.where = where + " " + (ok ? w[1] : "");
      if (ok) v.name = w[1], v.type = w[2], v.cut = std::strtoul(w[3].c_str(), nullptr, 0);
    } else if (k == "end") {
      open = false;
    } else if (k == "seed" || k == "select" || k == "room" || k == "trailing") {
      ok = w.size() == 2;
      const long long x = std::strtoll(w[1].c_str(), nullptr, 0);
      if (k == "seed") v.seed = static_cast<uint64_t>(x), v.seeded = true;
      if (k == "select") v.selector = static_cast<long>(x);
      if (k == "room") v.room = static_cast<size_t>(x), v.hasRoom = true;
      if (k == "trailing") v.trailing = static_cast<size_t>(x);
    } else if (k == "like" && w.size() == 2) {
      auto base =
          std::find_if(out.begin(), out.end() - 1, [&](const Vector& o) { return o.name == w[1]; });
      ok = base != out.end() - 1;
      if (ok) v.fields = base->fields, v.seeded = base->seeded, v.seed = base->seed;
      if (ok) v.selector = base->selector, v.trailing = base->trailing;
    } else if (k == "after") {
      ok = hexWords(w, 1, v.after);
    } else if (k == "packcuts") {
      v.packCuts = numbers(w);
    } else if (k == "readcuts") {
      v.readCuts = numbers(w);
    } else if (k == "wire" || hexWords({k.substr(0, k.find('*'))}, 0, v.wire)) {
      if (k != "wire") v.wire.pop_back();  // the probe above appended the first byte
      v.hasWire = true;
      ok = hexWords(w, k == "wire" ? 1 : 0, v.wire);
    } else if (k == "sizes") {
      for (size_t i = 1; ok && i < w.size(); ++i) {
        ok = w[i].find(':') != std::string::npos;
        v.sizes.push_back({static_cast<unsigned>(std::strtoul(w[i].c_str(), nullptr, 0)),
                           std::atoi(w[i].c_str() + w[i].find(':') + 1)});
      }
    } else if (k == "text") {
      ok = w.size() == 2 && w[1].size() >= 2 && w[1][0] == '"';
      v.hasText = true;
      if (ok) v.text = w[1].substr(1, w[1].size() - 2);
    } else if (k == "fails") {
      ok = w.size() == 2 || w.size() == 3;
      v.fails = true;
      v.error = std::atoi(w[1].c_str());
      std::istringstream names(w.size() == 3 ? w[2] : "");
      for (std::string name; std::getline(names, name, '>');) v.trace.push_back(name);
    } else {
      ok = w.size() == 2;  // a field
      v.fields.push_back({k, ok ? w[1] : ""});
    }
    EXPECT_TRUE(ok) << where << ": cannot read: " << line;
  }
  EXPECT_FALSE(open) << path << ": missing end";
  return out;
}

std::string listed(const kalmo_vix::VixTestType& t, const void* rec, long selector) {
  Fields fields;
  kalmo_vix::vixtest_list(t, rec, selector, "", fields);
  std::string out;
  for (const auto& f : fields) out += "\n  " + f.first + " " + f.second;
  return out;
}

// What a vector needs of a record (the selector ignored) or of a union.
template <class T, bool kUnion>
struct Ops {
  static int construct(T& r, long) { return r.construct(); }
  static int pack(const T& r, long, char* b, size_t n, size_t* u, unsigned c) {
    return r.pack(b, n, u, c);
  }
  static int unpack(T& r, long, const char* b, size_t n, size_t* u, unsigned c) {
    return r.unpack(b, n, u, c);
  }
  static const char* text(const T& r, long, char* b, size_t n) {
    return r.visualize_ex(b, n, nullptr, -1, ' ');
  }
  static void fill(T& r, uint64_t seed) { vixtest_fill(r, seed); }
  static void cut(T& r, long, unsigned c) {
    vixtest_cut(r, c);
    vixtest_clear_size(r);
  }
};
template <class T>
struct Ops<T, true> {
  static int construct(T& u, long s) { return u.construct(s); }
  static int pack(const T& u, long s, char* b, size_t n, size_t* used, unsigned c) {
    return u.pack(s, b, n, used, c);
  }
  static int unpack(T& u, long s, const char* b, size_t n, size_t* used, unsigned c) {
    return u.unpack(s, b, n, used, c);
  }
  static const char* text(const T& u, long s, char* b, size_t n) {
    return u.visualize_ex(s, b, n, nullptr, -1, ' ');
  }
  static void fill(T&, uint64_t) { ADD_FAILURE() << "seed applies to records only"; }
  static void cut(T& u, long s, unsigned c) { vixtest_cut(s, u, c); }
};

const char kSentinel = '\x5c';

template <class T, bool kUnion>
class Check {
  using O = Ops<T, kUnion>;

 public:
  explicit Check(const Vector& v) : v_(v) {}

  void run() {
    T* rec = build();
    if (rec == nullptr) return;
    const bool fromFields = v_.seeded || !v_.fields.empty();
    if (v_.fails) {
      if (v_.hasWire) {
        EXPECT_EQ(v_.error, unpacked(v_.cut).first) << v_.where << " " << VixError::getBackTrace();
      } else {
        packed(*rec, v_.cut, v_.error);
      }
      if (!v_.trace.empty()) {
        EXPECT_EQ(v_.trace, kalmo_vix::vixtest_trace_entries()) << v_.where;
      }
      return;
    }
    if (v_.hasWire && fromFields) {
      EXPECT_EQ(v_.wire, packed(*rec, v_.cut)) << v_.where;
      for (unsigned c : v_.packCuts) EXPECT_EQ(v_.wire, packed(*rec, c)) << v_.where << " at " << c;
    }
    std::vector<unsigned> reads{v_.cut};
    reads.insert(reads.end(), v_.readCuts.begin(), v_.readCuts.end());
    // A record whose block runs past it is only packed: unpack never writes past a record.
    for (unsigned c : v_.hasWire&& v_.after.empty() ? reads : std::vector<unsigned>()) {
      std::pair<int, std::unique_ptr<T>> back = unpacked(c);
      ASSERT_EQ(0, back.first) << v_.where << " unpack at " << c << " " << VixError::getBackTrace();
      if (!fromFields) continue;
      // Decoded over garbage, it packs back to the same bytes, and at the current version to
      // what the fields give once the cut version has dropped the entries it does not carry.
      const Bytes record(v_.wire.begin(), v_.wire.end() - static_cast<long>(v_.trailing));
      EXPECT_EQ(record, packed(*back.second, v_.cut)) << v_.where << " decoded at " << c;
      std::unique_ptr<T> expected(new T(*rec));
      O::cut(*expected, v_.selector, v_.cut);
      EXPECT_EQ(packed(*expected, 0), packed(*back.second, 0))
          << v_.where << " decoded at " << c << ", fields as cut:"
          << listed(*vixtest_type(expected.get()), expected.get(), v_.selector)
          << "\ndecoded:" << listed(*vixtest_type(expected.get()), back.second.get(), v_.selector);
    }
    for (const std::pair<unsigned, int>& s : v_.sizes) {
      const Bytes b = packed(*rec, s.first, std::min(s.second, 0));
      if (s.second >= 0) {
        EXPECT_EQ(static_cast<size_t>(s.second), b.size()) << v_.where;
      }
    }
    if (v_.hasText) {
      std::vector<char> text(1 << 16);
      EXPECT_EQ(v_.text, O::text(*rec, v_.selector, text.data(), text.size())) << v_.where;
    }
  }

 private:
  // Zero, constructed, filled from the seed, the fields set, the bytes that follow it placed.
  T* build() {
    area_.assign(sizeof(T) + v_.after.size(), 0);
    T* rec = reinterpret_cast<T*>(area_.data());
    EXPECT_EQ(0, O::construct(*rec, v_.selector)) << v_.where;
    if (v_.seeded) O::fill(*rec, v_.seed);
    for (const auto& f : v_.fields) {
      if (!kalmo_vix::vixtest_set(*vixtest_type(rec), rec, f.first, f.second)) {
        ADD_FAILURE() << v_.where << ": cannot set " << f.first << " to " << f.second;
        return nullptr;
      }
    }
    std::copy(v_.after.begin(), v_.after.end(), area_.begin() + sizeof(T));
    return rec;
  }

  // Packs into a sentinel-filled area (the vector's room, else the largest encoding) and checks
  // the result and that nothing past the reported size changed.
  Bytes packed(const T& rec, unsigned cut, int expect = 0) {
    const size_t size = v_.hasRoom ? v_.room : T::MAX_PACK_SIZE;
    std::vector<char> area(size + 16, kSentinel);
    size_t used = 12345;
    const int ret = O::pack(rec, v_.selector, area.data(), size, &used, cut);
    EXPECT_EQ(expect, ret) << v_.where << " pack at " << cut << " " << VixError::getBackTrace();
    EXPECT_LE(used, size) << v_.where;
    used = std::min(used, size);
    const auto past = std::find_if(area.begin() + static_cast<long>(used), area.end(),
                                   [](char c) { return c != kSentinel; });
    EXPECT_EQ(past, area.end()) << v_.where << ": byte " << (past - area.begin())
                                << " written past the reported size " << used;
    return Bytes(area.begin(), area.begin() + static_cast<long>(used));
  }

  // Unpacks the vector's bytes, from an area of exactly their size, into garbage.
  std::pair<int, std::unique_ptr<T>> unpacked(unsigned cut) {
    std::unique_ptr<char[]> area(new char[v_.wire.size() + 1]);
    if (!v_.wire.empty()) std::memcpy(area.get(), v_.wire.data(), v_.wire.size());
    std::unique_ptr<T> rec(new T);
    std::memset(static_cast<void*>(rec.get()), 0xEE, sizeof(T));
    size_t used = 0;
    const int ret = O::unpack(*rec, v_.selector, area.get(), v_.wire.size(), &used, cut);
    EXPECT_EQ(ret == 0 ? v_.wire.size() - v_.trailing : used, used) << v_.where << " consumed";
    return {ret, std::move(rec)};
  }

  const Vector& v_;
  std::vector<unsigned char> area_;  // the record, and what follows it
};

std::map<std::string, std::function<void(const Vector&)>> checks() {
  std::map<std::string, std::function<void(const Vector&)>> all;
#define WIRE_RECORD(T) all[T::m_class_name] = [](const Vector& v) { Check<T, false>(v).run(); };
#define WIRE_UNION(T) all[T::m_class_name] = [](const Vector& v) { Check<T, true>(v).run(); };
  TFRAMEHEAD_RECORD_TYPES(WIRE_RECORD)
  TFRAMEHEAD_UNION_TYPES(WIRE_UNION)
  NHP_RECORD_TYPES(WIRE_RECORD)
  NHP_UNION_TYPES(WIRE_UNION)
  O2AUTH_DATA_RECORD_TYPES(WIRE_RECORD)
  O2AUTH_DATA_UNION_TYPES(WIRE_UNION)
#undef WIRE_RECORD
#undef WIRE_UNION
  return all;
}

void runFile(const char* name) {
  static const auto kChecks = checks();
  const std::vector<Vector> vectors = readVectors(std::string(VIX_VECTORS_DIR "/") + name);
  EXPECT_FALSE(vectors.empty()) << name;
  for (const Vector& v : vectors) {
    auto it = kChecks.find(v.type);
    if (it == kChecks.end()) {
      ADD_FAILURE() << v.where << ": unknown type " << v.type;
    } else {
      it->second(v);
    }
  }
}

}  // namespace

TEST(WireVectors, FrameHead) { runFile("tframehead.vectors"); }
TEST(WireVectors, ClientProtocol) { runFile("nhp.vectors"); }
TEST(WireVectors, OAuthTokens) { runFile("o2auth_data.vectors"); }
