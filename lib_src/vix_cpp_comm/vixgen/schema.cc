// vixgen: schema parser and consistency checks.
#include "schema.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

namespace vixgen {

namespace {

const Scalar kScalars[] = {
    {"int8", "int8_t", 1, true, Print::kHex8},
    {"uint8", "uint8_t", 1, false, Print::kHex8},
    {"int16", "int16_t", 2, true, Print::kDec},
    {"uint16", "uint16_t", 2, false, Print::kDec},
    {"int32", "int32_t", 4, true, Print::kDec},
    {"uint32", "uint32_t", 4, false, Print::kUdec},
    {"int64", "int64_t", 8, true, Print::kDec64},
    {"uint64", "uint64_t", 8, false, Print::kUdec64},
    {"date", "uint32_t", 4, false, Print::kDate},
    {"time", "uint32_t", 4, false, Print::kTime},
    {"datetime", "uint64_t", 8, false, Print::kDateTime},
    {"ip", "uint32_t", 4, false, Print::kIp},
};

struct Token {
  std::string text;
  bool quoted = false;
};

// Splits a line into words and quoted texts; strips a trailing comment.
bool tokenize(const std::string& line, std::vector<Token>& out, std::string& error) {
  size_t i = 0;
  while (i < line.size()) {
    const char c = line[i];
    if (c == ' ' || c == '\t' || c == '\r') {
      ++i;
    } else if (c == '#') {
      break;
    } else if (c == '"') {
      Token t;
      t.quoted = true;
      ++i;
      bool closed = false;
      while (i < line.size()) {
        char d = line[i++];
        if (d == '"') {
          closed = true;
          break;
        }
        if (d == '\\') {
          if (i >= line.size()) break;
          const char e = line[i++];
          d = e == 'n' ? '\n' : e == 't' ? '\t' : e;
        }
        t.text += d;
      }
      if (!closed) {
        error = "unterminated text";
        return false;
      }
      out.push_back(t);
    } else {
      Token t;
      while (i < line.size() && line[i] != ' ' && line[i] != '\t' && line[i] != '\r' &&
             line[i] != '#') {
        t.text += line[i++];
      }
      out.push_back(t);
    }
  }
  return true;
}

bool isIdentifier(const std::string& s) {
  if (s.empty() || !(std::isalpha(static_cast<unsigned char>(s[0])) || s[0] == '_')) return false;
  for (char c : s) {
    if (!(std::isalnum(static_cast<unsigned char>(c)) || c == '_')) return false;
  }
  return true;
}

class Parser {
 public:
  Parser(Schema& schema) : s_(schema) {}

  bool run(const std::string& file, std::string& error);

 private:
  bool fail(const std::string& message) {
    std::ostringstream o;
    o << s_.file << ":" << line_ << ": " << message;
    error_ = o.str();
    return false;
  }
  bool number(const std::string& text, long long& out);
  bool parseName(const std::string& text, const Type& t, const char* what, Entry& e, bool& hasCap);
  bool parseEntry(const std::vector<Token>& tok, Type& t);
  bool parseMember(const std::vector<Token>& tok, Type& t);
  bool finishType(Type& t);
  bool checkAll();

  Schema& s_;
  int line_ = 0;
  std::string error_;
  std::map<std::string, long long> values_;
};

bool Parser::number(const std::string& text, long long& out) {
  auto it = values_.find(text);
  if (it != values_.end()) {
    out = it->second;
    return true;
  }
  if (text.empty()) return fail("number expected");
  errno = 0;
  char* end = nullptr;
  const long long v = std::strtoll(text.c_str(), &end, 0);
  if (errno != 0 || end == text.c_str() || *end != '\0')
    return fail("not a number or known constant: " + text);
  out = v;
  return true;
}

// NAME or NAME[CAP] of an entry or union member: sets e.name (and e.cap, e.capText, hasCap),
// refusing a bad capacity, a bad identifier or a name the type already has.
bool Parser::parseName(const std::string& text, const Type& t, const char* what, Entry& e,
                       bool& hasCap) {
  std::string name = text;
  const size_t bracket = name.find('[');
  hasCap = false;
  if (bracket != std::string::npos) {
    if (name.back() != ']') return fail("bad capacity in " + name);
    e.capText = name.substr(bracket + 1, name.size() - bracket - 2);
    name = name.substr(0, bracket);
    if (!number(e.capText, e.cap)) return false;
    if (e.cap < 1) return fail("capacity must be at least 1");
    hasCap = true;
  }
  if (!isIdentifier(name)) return fail(std::string("bad ") + what + " name: " + name);
  for (const Entry& other : t.entries) {
    if (other.name == name) return fail(std::string("duplicate ") + what + " " + name);
  }
  e.name = name;
  return true;
}

// TYPE NAME[CAP] options...
bool Parser::parseEntry(const std::vector<Token>& tok, Type& t) {
  Entry e;
  e.line = line_;
  std::string typeName = tok[0].text;
  bool hasCap = false;
  if (!parseName(tok[1].text, t, "entry", e, hasCap)) return false;
  if (typeName == "string") {
    e.kind = Kind::kString;
    if (!hasCap) return fail("string needs a capacity");
  } else if (typeName == "bytes") {
    e.kind = Kind::kBytes;
    if (!hasCap) return fail("bytes needs a capacity");
  } else if ((e.scalar = findScalar(typeName)) != nullptr) {
    e.kind = Kind::kScalar;
    e.array = hasCap;
  } else {
    auto it = s_.byName.find(typeName);
    if (it == s_.byName.end())
      return fail("unknown type " + typeName + " (types must be defined before use)");
    e.type = it->second;
    e.kind = e.type->isUnion ? Kind::kUnion : Kind::kRecord;
    e.array = hasCap;
    if (e.kind == Kind::kUnion && hasCap) return fail("unions cannot be array elements");
  }
  for (size_t i = 2; i < tok.size(); ++i) {
    const std::string& opt = tok[i].text;
    auto arg = [&](std::string& out) {
      if (i + 1 >= tok.size()) return fail(opt + " needs a value");
      out = tok[++i].text;
      return true;
    };
    std::string v;
    if (opt == "since") {
      long long n = 0;
      if (!arg(v) || !number(v, n)) return false;
      if (n < 1) return fail("bad since");
      e.since = static_cast<unsigned>(n);
    } else if (opt == "refer") {
      if (!arg(e.refer)) return false;
      if (i + 1 < tok.size() && tok[i + 1].text == "unchecked") {
        e.unchecked = true;
        ++i;
      }
    } else if (opt == "optional") {
      if (!arg(e.optionalFlag)) return false;
    } else if (opt == "select") {
      if (!arg(e.select)) return false;
    } else if (opt == "default") {
      if (i + 1 >= tok.size()) return fail("default needs a value");
      const Token& d = tok[++i];
      e.hasDefault = true;
      e.defaultIsText = d.quoted;
      e.defaultText = d.text;
      if (!d.quoted) {
        long long n = 0;
        if (!number(d.text, n)) return false;
      }
    } else {
      return fail("unknown option " + opt);
    }
  }
  // Shape checks.
  if (!e.refer.empty() && !(e.array || e.kind == Kind::kBytes))
    return fail("refer needs an array or bytes");
  if (e.unchecked && e.kind != Kind::kBytes) return fail("unchecked applies to bytes only");
  if (!e.optionalFlag.empty() && (e.kind != Kind::kRecord || e.array)) {
    return fail("optional applies to a single record entry");
  }
  if (e.kind == Kind::kUnion && e.select.empty()) return fail("union entry needs select");
  if (e.kind != Kind::kUnion && !e.select.empty()) return fail("select applies to union entries");
  if (e.hasDefault) {
    if (e.kind == Kind::kString) {
      if (!e.defaultIsText) return fail("string default must be a quoted text");
      if (static_cast<long long>(e.defaultText.size()) >= e.cap)
        return fail("string default longer than capacity - 1");
    } else if (e.kind != Kind::kScalar || e.array || e.defaultIsText) {
      return fail("default applies to single integers and strings");
    }
  }
  if (e.since != 0 && (e.since <= t.base || e.since > t.curr)) {
    return fail("since must lie above BASEVERSION and not above CURRVERSION");
  }
  // Dependencies on earlier entries.
  const size_t index = t.entries.size();
  auto dependency = [&](const std::string& path, const char* what) {
    PathInfo info;
    std::string err;
    if (!resolvePath(t, index, path, info, err))
      return fail(std::string(what) + " " + path + ": " + err);
    if (info.since > e.since)
      return fail(std::string(what) + " " + path + " is added later than " + e.name);
    return true;
  };
  if (!e.refer.empty() && !dependency(e.refer, "refer")) return false;
  if (!e.select.empty() && !dependency(e.select, "select")) return false;
  if (!e.optionalFlag.empty()) {
    if (!dependency(e.optionalFlag, "optional flag")) return false;
  }
  if (e.kind == Kind::kRecord || e.kind == Kind::kUnion) {
    if (e.type->curr > t.curr)
      return fail(e.name + ": nested type's CURRVERSION is above the record's");
  }
  t.entries.push_back(e);
  return true;
}

// TYPE NAME[CAP] id VALUE|default [since V]
bool Parser::parseMember(const std::vector<Token>& tok, Type& t) {
  Entry e;
  e.line = line_;
  bool hasCap = false;
  if (!parseName(tok[1].text, t, "member", e, hasCap)) return false;
  const std::string& typeName = tok[0].text;
  if (typeName == "string" || typeName == "bytes") {
    e.kind = typeName == "string" ? Kind::kString : Kind::kBytes;
    if (!hasCap) return fail(typeName + " needs a capacity");
  } else if ((e.scalar = findScalar(typeName)) != nullptr) {
    e.kind = Kind::kScalar;
    if (hasCap) return fail("union members cannot be arrays");
  } else {
    auto it = s_.byName.find(typeName);
    if (it == s_.byName.end() || it->second->isUnion)
      return fail("union member type must be a scalar, string, bytes or record");
    if (hasCap) return fail("union members cannot be arrays");
    e.kind = Kind::kRecord;
    e.type = it->second;
    if (e.type->curr > t.curr)
      return fail(e.name + ": member type's CURRVERSION is above the union's");
  }
  bool haveSelector = false;
  for (size_t i = 2; i < tok.size(); ++i) {
    const std::string& opt = tok[i].text;
    if (opt == "id") {
      if (i + 1 >= tok.size()) return fail("id needs a value");
      e.idText = tok[++i].text;
      if (!number(e.idText, e.id)) return false;
      haveSelector = true;
    } else if (opt == "default") {
      e.isDefaultMember = true;
      haveSelector = true;
    } else if (opt == "since") {
      long long n = 0;
      if (i + 1 >= tok.size() || !number(tok[++i].text, n)) return fail("since needs a version");
      e.since = static_cast<unsigned>(n);
      if (e.since <= t.base || e.since > t.curr)
        return fail("since must lie above BASEVERSION and not above CURRVERSION");
    } else {
      return fail("unknown option " + opt);
    }
  }
  if (!haveSelector) return fail("union member needs id VALUE or default");
  for (const Entry& other : t.entries) {
    if (e.isDefaultMember && other.isDefaultMember) return fail("only one default member");
    if (!e.isDefaultMember && !other.isDefaultMember && other.id == e.id)
      return fail("duplicate member id");
  }
  t.entries.push_back(e);
  return true;
}

bool Parser::finishType(Type& t) {
  if (t.entries.empty()) return fail(t.name + " has no entries");
  if (!t.isUnion) {
    for (const std::string* ind : {&t.versionIndicator, &t.sizeIndicator}) {
      if (ind->empty()) continue;
      PathInfo info;
      std::string err;
      if (!resolvePath(t, t.entries.size(), *ind, info, err))
        return fail("indicator " + *ind + ": " + err);
      if (!info.fixedOffset || info.since != 0)
        return fail("indicator " + *ind + " must sit at a fixed offset");
    }
  }
  // Layout of the packed structure and the largest encoding.
  size_t size = 0;
  size_t maxPack = 0;
  for (const Entry& e : t.entries) {
    size_t esize = 0;
    size_t epack = 0;
    const size_t count = e.array ? static_cast<size_t>(e.cap) : 1;
    switch (e.kind) {
      case Kind::kScalar:
        esize = static_cast<size_t>(e.scalar->width) * count;
        epack = esize;
        break;
      case Kind::kString:
        esize = static_cast<size_t>(e.cap);
        epack = 4 + esize;
        break;
      case Kind::kBytes:
        esize = static_cast<size_t>(e.cap);
        epack = esize;
        break;
      case Kind::kRecord:
      case Kind::kUnion:
        esize = e.type->size * count;
        epack = e.type->maxPack * count;
        break;
    }
    if (t.isUnion) {
      size = std::max(size, esize);
      maxPack = std::max(maxPack, epack);
    } else {
      size += esize;
      maxPack += epack;
    }
  }
  t.size = size;
  t.maxPack = maxPack;
  return true;
}

bool Parser::run(const std::string& file, std::string& error) {
  s_.file = file;
  std::ifstream in(file);
  if (!in) {
    error = file + ": cannot open";
    return false;
  }
  std::string line;
  Type* current = nullptr;
  bool inEnum = false;
  std::string enumName;
  std::set<std::string> names;
  auto declare = [&](const std::string& n) {
    if (!isIdentifier(n)) return fail("bad name " + n);
    if (!names.insert(n).second) return fail("name defined twice: " + n);
    return true;
  };
  while (std::getline(in, line)) {
    ++line_;
    std::vector<Token> tok;
    std::string err;
    if (!tokenize(line, tok, err)) {
      fail(err);
      error = error_;
      return false;
    }
    if (tok.empty()) continue;
    const std::string& w = tok[0].text;
    bool ok = true;
    if (inEnum) {
      if (w == "end" && tok.size() == 1) {
        inEnum = false;
      } else if (tok.size() == 3 && tok[1].text == "=") {
        long long v = 0;
        ok = declare(w) && number(tok[2].text, v);
        if (ok) {
          s_.constants.push_back({w, v, enumName});
          values_[w] = v;
        }
      } else {
        ok = fail("enumerator expected: NAME = VALUE");
      }
    } else if (current != nullptr) {
      if (w == "end" && tok.size() == 1) {
        ok = finishType(*current);
        current = nullptr;
      } else if (!current->isUnion && (w == "versionindicator" || w == "sizeindicator")) {
        if (tok.size() != 2) {
          ok = fail(w + " needs one path");
        } else {
          (w == "versionindicator" ? current->versionIndicator : current->sizeIndicator) =
              tok[1].text;
        }
      } else if (tok.size() < 2) {
        ok = fail("entry expected: TYPE NAME [options]");
      } else {
        ok = current->isUnion ? parseMember(tok, *current) : parseEntry(tok, *current);
      }
    } else if (w == "schema" && tok.size() == 2) {
      ok = isIdentifier(tok[1].text) || fail("bad schema name");
      s_.name = tok[1].text;
    } else if (w == "namespace" && tok.size() == 2) {
      s_.ns = tok[1].text == "-" ? "" : tok[1].text;
      ok = s_.ns.empty() || isIdentifier(s_.ns) || fail("bad namespace");
    } else if (w == "const" && tok.size() == 3) {
      long long v = 0;
      ok = declare(tok[1].text) && number(tok[2].text, v);
      if (ok) {
        s_.constants.push_back({tok[1].text, v, ""});
        values_[tok[1].text] = v;
      }
    } else if (w == "enum" && tok.size() == 2) {
      ok = declare(tok[1].text);
      inEnum = true;
      enumName = tok[1].text;
      s_.enums.push_back(enumName);
    } else if ((w == "record" || w == "union") && tok.size() == 4) {
      std::unique_ptr<Type> t(new Type);
      t->isUnion = w == "union";
      t->name = tok[1].text;
      t->line = line_;
      long long b = 0, c = 0;
      ok = declare(t->name) && number(tok[2].text, b) && number(tok[3].text, c);
      if (ok && (b < 1 || c < b || c > 65535))
        ok = fail("versions must satisfy 1 <= BASEVERSION <= CURRVERSION");
      if (ok) {
        t->base = static_cast<unsigned>(b);
        t->curr = static_cast<unsigned>(c);
        current = t.get();
        s_.byName[t->name] = t.get();
        s_.types.push_back(std::move(t));
      }
    } else {
      ok = fail("unknown statement: " + w);
    }
    if (!ok) {
      error = error_;
      return false;
    }
  }
  if (current != nullptr || inEnum) {
    fail("missing end");
    error = error_;
    return false;
  }
  if (s_.name.empty()) {
    fail("missing schema statement");
    error = error_;
    return false;
  }
  return true;
}

}  // namespace

const Scalar* findScalar(const std::string& name) {
  for (const Scalar& s : kScalars) {
    if (name == s.name) return &s;
  }
  return nullptr;
}

bool resolvePath(const Type& t, size_t before, const std::string& path, PathInfo& out,
                 std::string& error) {
  std::vector<std::string> parts;
  std::string part;
  std::istringstream in(path);
  while (std::getline(in, part, '.')) parts.push_back(part);
  if (parts.empty()) {
    error = "empty path";
    return false;
  }
  const Type* cur = &t;
  size_t limit = before;
  size_t offset = 0;
  bool fixed = true;
  for (size_t k = 0; k < parts.size(); ++k) {
    const Entry* found = nullptr;
    for (size_t i = 0; i < limit && i < cur->entries.size(); ++i) {
      const Entry& e = cur->entries[i];
      if (e.name == parts[k]) {
        found = &e;
        break;
      }
      if (e.kind == Kind::kScalar && !e.array && e.since == 0) {
        offset += static_cast<size_t>(e.scalar->width);
      } else {
        fixed = false;
      }
    }
    if (found == nullptr) {
      error = "no earlier entry named " + parts[k];
      return false;
    }
    if (k == 0) out.since = found->since;
    if (found->since != 0) fixed = false;
    const bool last = k + 1 == parts.size();
    if (last) {
      if (found->kind != Kind::kScalar || found->array) {
        error = parts[k] + " is not a single integer";
        return false;
      }
      out.scalar = found->scalar;
    } else {
      if (found->kind != Kind::kRecord || found->array || !found->optionalFlag.empty()) {
        error = parts[k] + " is not a plain nested record";
        return false;
      }
      cur = found->type;
      limit = cur->entries.size();
    }
  }
  out.fixedOffset = fixed;
  out.offset = offset;
  return true;
}

bool parseSchema(const std::string& file, Schema& schema, std::string& error) {
  Parser p(schema);
  return p.run(file, error);
}

}  // namespace vixgen
