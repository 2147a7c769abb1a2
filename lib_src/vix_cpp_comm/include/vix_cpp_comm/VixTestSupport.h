/*
 * VixTestSupport.h: what the generated <schema>_testsupport.h builds on: the deterministic
 * pseudo-random source of its fill functions, and the field tables with which a test sets and
 * lists a record's fields by path. For tests, fuzz seeds and benchmarks only.
 *
 * Conventions: the tables describe records as this (little-endian) host holds them; functions
 * that can fail return false and change nothing they could not complete.
 */
#ifndef VIX_CPP_COMM_VIXTESTSUPPORT_H
#define VIX_CPP_COMM_VIXTESTSUPPORT_H

#include <cctype>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "vix_cpp_comm/VixError.h"

namespace kalmo_vix {

// splitmix64: the same seed always gives the same sequence, on every platform.
class VixTestRng {
 public:
  explicit VixTestRng(uint64_t seed) : state_(seed) {}

  uint64_t next() {
    uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }

  // A count in [0, limit], with the edges 0 and limit picked more often than the rest.
  uint64_t count(uint64_t limit) {
    const uint64_t r = next();
    switch (r & 7u) {
      case 0:
        return 0;
      case 1:
        return limit;
      default:
        return (r >> 3) % (limit + 1);
    }
  }

  // A printable text of 0 to cap - 1 characters, NUL-terminated; the rest of s is left alone.
  void text(char* s, size_t cap) {
    if (cap == 0) return;
    const size_t n = static_cast<size_t>(count(cap - 1));
    for (size_t i = 0; i < n; ++i) s[i] = static_cast<char>('a' + next() % 26);
    s[n] = '\0';
  }

  void bytes(void* p, size_t n) {
    unsigned char* b = static_cast<unsigned char*>(p);
    for (size_t i = 0; i < n; ++i) b[i] = static_cast<unsigned char>(next());
  }

 private:
  uint64_t state_;
};

// Field tables of the generated <schema>_testsupport.h: enough of a record's layout to set and
// list its fields by path, as the data-driven tests do.
struct VixTestType;

struct VixTestField {
  const char* name;
  size_t offset;  // from the start of the enclosing record or union
  char kind;      // 'i' signed integer, 'u' unsigned integer, 's' string, 'b' byte block,
                  // 'r' nested record or union
  size_t width;   // bytes of one element: 1 to 8 for integers, sizeof for records, 1 otherwise
  size_t count;   // elements: 1, or the capacity of an array, a string or a byte block
  const VixTestType* (*nested)();  // kind 'r': the nested type's table
  const char* select;  // a union entry of a record: its selector's path in that record, or null
  char member;         // a union member: 'i' chosen by id, 'd' the default member
  long long id;        // its selector value, for 'i'
};

struct VixTestConstant {
  const char* name;  // null ends a table
  long long value;
};

struct VixTestType {
  const char* name;
  bool isUnion;
  const VixTestField* fields;
  size_t fieldCount;
  const VixTestConstant* constants;  // the schema's constants and enumerators
};

// A number (decimal or 0x hexadecimal, with an optional minus) or a constant of the table, as
// its 64 bits; false when the text is neither.
inline bool vixtest_number(const VixTestConstant* constants, const std::string& text,
                           uint64_t& bits, bool& negative) {
  for (const VixTestConstant* c = constants; c != nullptr && c->name != nullptr; ++c) {
    if (text == c->name) {
      bits = static_cast<uint64_t>(c->value);
      negative = c->value < 0;
      return true;
    }
  }
  negative = !text.empty() && text[0] == '-';
  const char* digits = text.c_str() + (negative ? 1 : 0);
  if (*digits < '0' || *digits > '9') return false;
  char* end = nullptr;
  errno = 0;
  const unsigned long long magnitude = std::strtoull(digits, &end, 0);
  if (errno != 0 || *end != '\0' || (negative && magnitude > (1ULL << 63))) return false;
  bits = negative ? 0 - static_cast<uint64_t>(magnitude) : static_cast<uint64_t>(magnitude);
  return true;
}

// The field at path ("stHead.astIdents[1].iID") of the record at base, and where it lives;
// null when the path names no single field (a whole array needs an index, except strings and
// byte blocks).
inline const VixTestField* vixtest_find(const VixTestType& type, const void* base,
                                        const std::string& path, const unsigned char*& at) {
  const VixTestType* t = &type;
  at = static_cast<const unsigned char*>(base);
  for (size_t from = 0;;) {
    const size_t dot = path.find('.', from);
    std::string part = path.substr(from, dot == std::string::npos ? dot : dot - from);
    const size_t bracket = part.find('[');
    const bool indexed = bracket != std::string::npos;
    const size_t index = indexed ? std::strtoul(part.c_str() + bracket + 1, nullptr, 10) : 0;
    if (indexed) part.resize(bracket);
    const VixTestField* f = nullptr;
    for (size_t i = 0; i < t->fieldCount; ++i) {
      if (part == t->fields[i].name) f = &t->fields[i];
    }
    if (f == nullptr || (indexed && index >= f->count) ||
        (f->count > 1 && !indexed && f->kind != 's' && f->kind != 'b')) {
      return nullptr;
    }
    at += f->offset + index * f->width;
    if (dot == std::string::npos) return f;
    if (f->kind != 'r') return nullptr;
    t = f->nested();
    from = dot + 1;
  }
}

// The integer at p as a 64-bit value (sign-extended for signed fields).
inline long long vixtest_load(const VixTestField& f, const unsigned char* p) {
  uint64_t u = 0;
  std::memcpy(&u, p, f.width);  // host order, as the record holds it (little-endian hosts)
  const unsigned bits = static_cast<unsigned>(f.width * 8);
  if (f.kind == 'i' && bits < 64 && (u >> (bits - 1)) != 0) u |= ~0ULL << bits;
  return static_cast<long long>(u);
}

// Sets the field at path of the record rec described by type, from text: a number or constant
// (integers: it must fit the width, negative values only signed ones), "quoted text" (strings; a
// backslash takes the next character as it is), or hex:0a0b.. (the leading bytes of a byte
// block). False when the path or the value does not fit.
inline bool vixtest_set(const VixTestType& type, void* rec, const std::string& path,
                        const std::string& value) {
  const unsigned char* found = nullptr;
  const VixTestField* f = vixtest_find(type, rec, path, found);
  if (f == nullptr) return false;
  unsigned char* p = static_cast<unsigned char*>(rec) + (found - static_cast<unsigned char*>(rec));
  if (f->kind == 'i' || f->kind == 'u') {
    uint64_t bits = 0;
    bool negative = false;
    if (!vixtest_number(type.constants, value, bits, negative)) return false;
    const unsigned top = static_cast<unsigned>(f->width * 8 - 1);
    const uint64_t highest = (((1ULL << top) - 1) << 1) | 1;
    if (negative ? f->kind != 'i' || 0 - bits > (1ULL << top) : bits > highest) return false;
    std::memcpy(p, &bits, f->width);  // little-endian hosts: the low bytes
    return true;
  }
  if (f->kind == 's' && value.size() >= 2 && value.front() == '"' && value.back() == '"') {
    std::string text;
    for (size_t i = 1; i + 1 < value.size(); ++i) {
      if (value[i] == '\\' && i + 2 < value.size()) ++i;
      text += value[i];
    }
    if (text.size() >= f->count) return false;
    std::memset(p, 0, f->count);
    std::memcpy(p, text.data(), text.size());
    return true;
  }
  if (f->kind != 'b' || value.compare(0, 4, "hex:") != 0 || value.size() % 2 != 0 ||
      (value.size() - 4) / 2 > f->count) {
    return false;
  }
  if (value.find_first_not_of("0123456789abcdefABCDEF", 4) != std::string::npos) return false;
  for (size_t i = 4; i < value.size(); i += 2)
    *p++ = static_cast<unsigned char>(std::strtoul(value.substr(i, 2).c_str(), nullptr, 16));
  return true;
}

// The member of union type t that selector chooses (the one with that id, else the default
// member), or null.
inline const VixTestField* vixtest_member(const VixTestType& t, long selector) {
  const VixTestField* chosen = nullptr;
  for (size_t i = 0; i < t.fieldCount; ++i) {
    const VixTestField& f = t.fields[i];
    if (f.member == 'i' && f.id == selector) return &f;
    if (f.member == 'd') chosen = &f;
  }
  return chosen;
}

// Appends "path value" for every non-zero field of rec, in the form vixtest_set reads. Of a
// union only the member the selector chooses is listed (for a union entry of a record, the
// selector is the record's field the table names).
inline void vixtest_list(const VixTestType& t, const void* rec, long selector,
                         const std::string& prefix,
                         std::vector<std::pair<std::string, std::string>>& out) {
  const unsigned char* base = static_cast<const unsigned char*>(rec);
  const VixTestField* only = t.isUnion ? vixtest_member(t, selector) : nullptr;
  for (size_t i = 0; i < t.fieldCount; ++i) {
    const VixTestField& f = t.fields[i];
    if (t.isUnion && &f != only) continue;
    const unsigned char* p = base + f.offset;
    const std::string name = prefix + f.name;
    if (f.kind == 's') {
      const size_t n = strnlen(reinterpret_cast<const char*>(p), f.count);
      std::string text = "\"";
      for (size_t k = 0; k < n; ++k) {
        if (p[k] == '"' || p[k] == '\\') text += '\\';
        text += static_cast<char>(p[k]);
      }
      if (n != 0) out.push_back({name, text + "\""});
      continue;
    }
    if (f.kind == 'b') {
      static const char kDigits[] = "0123456789abcdef";
      size_t n = f.count;
      while (n > 0 && p[n - 1] == 0) --n;
      std::string hex = "hex:";
      for (size_t k = 0; k < n; ++k) {
        hex += kDigits[p[k] >> 4];
        hex += kDigits[p[k] & 15];
      }
      if (n != 0) out.push_back({name, hex});
      continue;
    }
    for (size_t k = 0; k < f.count; ++k) {
      const std::string element = f.count > 1 ? name + "[" + std::to_string(k) + "]" : name;
      const unsigned char* e = p + k * f.width;
      if (f.kind == 'r') {
        const unsigned char* at = nullptr;
        const VixTestField* s = f.select != nullptr ? vixtest_find(t, rec, f.select, at) : nullptr;
        const long sel = s != nullptr ? static_cast<long>(vixtest_load(*s, at)) : 0;
        vixtest_list(*f.nested(), e, sel, element + ".", out);
        continue;
      }
      const long long v = vixtest_load(f, e);
      const uint64_t u = static_cast<uint64_t>(v) & (~0ULL >> (64 - 8 * f.width));
      char text[32];
      if (v < 0 && f.kind == 'i') {
        std::snprintf(text, sizeof(text), "%lld", v);
      } else {
        std::snprintf(text, sizeof(text), u < 10 ? "%llu" : "0x%llx",
                      static_cast<unsigned long long>(u));
      }
      if (v != 0) out.push_back({element, text});
    }
  }
}

// The entry names of the current back-trace, outermost first.
inline std::vector<std::string> vixtest_trace_entries() {
  std::vector<std::string> names;
  const std::string t = VixError::getBackTrace();
  const std::string key = "-->entry_name[";
  for (size_t at = t.find(key); at != std::string::npos; at = t.find(key, at + 1)) {
    const size_t from = at + key.size();
    names.push_back(t.substr(from, t.find(']', from) - from));
  }
  return names;
}

}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXTESTSUPPORT_H
