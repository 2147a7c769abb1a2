// vixgen: reads a schema file into the model. Checks what one line shows (syntax, names, option
// shapes, version ranges); rules that relate entries to each other are the resolve pass's.
#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <set>
#include <sstream>

#include "model.h"

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
  explicit Parser(Schema& schema) : s_(schema) {}

  bool run(const std::string& file, std::string& error);

 private:
  // The message may quote the schema's text, which may be anything: bytes that are not
  // printable ASCII are written as \xNN and a long quote is cut, so a binary file given by
  // mistake cannot garble the terminal.
  bool fail(const std::string& message) {
    std::ostringstream o;
    o << s_.file << ":" << line_ << ": ";
    const size_t kMaxQuoted = 200;
    for (size_t i = 0; i < message.size() && i < kMaxQuoted; ++i) {
      const unsigned char c = static_cast<unsigned char>(message[i]);
      if (c < 0x20 || c >= 0x7f) {
        static const char kHex[] = "0123456789abcdef";
        o << "\\x" << kHex[c >> 4] << kHex[c & 15];
      } else {
        o << static_cast<char>(c);
      }
    }
    if (message.size() > kMaxQuoted) o << "...";
    error_ = o.str();
    return false;
  }
  bool number(const std::string& text, long long& out);
  bool since(const std::string& text, const Type& t, unsigned& out);
  template <class SlotList>
  bool parseName(const std::string& text, const SlotList& taken, const char* what, Slot& s,
                 bool& hasCap);
  bool libraryOption(const std::vector<Token>& tok, size_t& i, Slot& s, bool& handled);
  template <class SlotList>
  bool checkLibrarySlot(const SlotList& taken, const Slot& s);
  bool parseMetalib(const std::vector<Token>& tok);
  bool parseEntry(const std::vector<Token>& tok, Record& r);
  bool parseMember(const std::vector<Token>& tok, Union& u);
  bool parseLine(const std::vector<Token>& tok);

  Schema& s_;
  int line_ = 0;
  std::string error_;
  std::map<std::string, long long> values_;
  std::set<std::string> names_;
  Type* current_ = nullptr;  // the record or union being read
  bool inEnum_ = false;
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

// A since version of an entry or member of t: above BASEVERSION, not above CURRVERSION.
bool Parser::since(const std::string& text, const Type& t, unsigned& out) {
  long long n = 0;
  if (!number(text, n)) return false;
  if (n <= static_cast<long long>(t.base) || n > static_cast<long long>(t.curr))
    return fail("since must lie above BASEVERSION and not above CURRVERSION");
  out = static_cast<unsigned>(n);
  return true;
}

// NAME or NAME[CAP] of an entry or union member: sets s.name (and s.cap, s.capText, hasCap),
// refusing a bad capacity, a bad identifier or a name the type already has.
template <class SlotList>
bool Parser::parseName(const std::string& text, const SlotList& taken, const char* what, Slot& s,
                       bool& hasCap) {
  std::string name = text;
  const size_t bracket = name.find('[');
  hasCap = false;
  if (bracket != std::string::npos) {
    if (name.back() != ']') return fail("bad capacity in " + name);
    s.capText = name.substr(bracket + 1, name.size() - bracket - 2);
    name = name.substr(0, bracket);
    if (!number(s.capText, s.cap)) return false;
    if (s.cap < 1) return fail("capacity must be at least 1");
    hasCap = true;
  }
  if (!isIdentifier(name)) return fail(std::string("bad ") + what + " name: " + name);
  for (const Slot& other : taken) {
    if (other.name == name) return fail(std::string("duplicate ") + what + " " + name);
  }
  s.name = name;
  return true;
}

// The metadata-library options entries and members share: "as ELEMENT", "desc TEXT" and
// "group ENUM". handled tells whether tok[i] was one of them; i moves past its value.
bool Parser::libraryOption(const std::vector<Token>& tok, size_t& i, Slot& s, bool& handled) {
  const std::string& opt = tok[i].text;
  handled = !tok[i].quoted && (opt == "as" || opt == "desc" || opt == "group");
  if (!handled) return true;
  if (i + 1 >= tok.size()) return fail(opt + " needs a value");
  const Token& v = tok[++i];
  if (opt == "as") {
    if (v.quoted || !isIdentifier(v.text)) return fail("bad element name: " + v.text);
    s.element = v.text;
  } else if (opt == "desc") {
    if (!v.quoted) return fail("desc needs a quoted text");
    s.desc = v.text;
  } else {
    if (std::find(s_.enums.begin(), s_.enums.end(), v.text) == s_.enums.end())
      return fail("group names no enum: " + v.text);
    s.group = v.text;
  }
  return true;
}

// The rules of the library options that need the whole entry: element names are unique in the
// type, a group applies to a single integer.
template <class SlotList>
bool Parser::checkLibrarySlot(const SlotList& taken, const Slot& s) {
  for (const Slot& other : taken) {
    if (other.elementName() == s.elementName()) return fail("duplicate element " + s.elementName());
  }
  if (!s.group.empty() && (s.kind != Kind::kScalar || s.array))
    return fail("group applies to single integers");
  return true;
}

// metalib natural|packed [id N] [version N]
bool Parser::parseMetalib(const std::vector<Token>& tok) {
  MetalibOptions& m = s_.metalib;
  if (m.wanted) return fail("metalib given twice");
  if (tok.size() < 2 || (tok[1].text != "natural" && tok[1].text != "packed"))
    return fail("metalib needs the layout: natural or packed");
  m.wanted = true;
  m.packed = tok[1].text == "packed";
  m.line = line_;
  for (size_t i = 2; i < tok.size(); i += 2) {
    const std::string& opt = tok[i].text;
    if (opt != "id" && opt != "version") return fail("unknown metalib option " + opt);
    if (i + 1 >= tok.size()) return fail(opt + " needs a value");
    long long& v = opt == "id" ? m.id : m.version;
    if (!number(tok[i + 1].text, v)) return false;
    if (v < 0 || v > 0x7fffffff) return fail("metalib " + opt + " out of range");
  }
  return true;
}

// TYPE NAME[CAP] options...
bool Parser::parseEntry(const std::vector<Token>& tok, Record& r) {
  Entry e;
  e.line = line_;
  const std::string& typeName = tok[0].text;
  bool hasCap = false;
  if (!parseName(tok[1].text, r.entries, "entry", e, hasCap)) return false;
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
    if (it->second->isUnion) {
      if (hasCap) return fail("unions cannot be array elements");
      e.kind = Kind::kUnion;
      e.unionType = &asUnion(*it->second);
    } else {
      e.kind = Kind::kRecord;
      e.record = &asRecord(*it->second);
      e.array = hasCap;
    }
  }
  auto path = [&](size_t& i, FieldPath& out) {
    if (i + 1 >= tok.size()) return fail(tok[i].text + " needs a value");
    out.text = tok[++i].text;
    out.line = line_;
    return true;
  };
  for (size_t i = 2; i < tok.size(); ++i) {
    const std::string& opt = tok[i].text;
    bool library = false;
    if (!libraryOption(tok, i, e, library)) return false;
    if (library) continue;
    if (opt == "since") {
      if (i + 1 >= tok.size()) return fail("since needs a value");
      if (!since(tok[++i].text, r, e.since)) return false;
    } else if (opt == "refer") {
      if (!path(i, e.refer)) return false;
      if (i + 1 < tok.size() && tok[i + 1].text == "unchecked") {
        e.unchecked = true;
        ++i;
      }
    } else if (opt == "optional") {
      if (!path(i, e.optionalFlag)) return false;
    } else if (opt == "select") {
      if (!path(i, e.select)) return false;
    } else if (opt == "default") {
      if (i + 1 >= tok.size()) return fail("default needs a value");
      const Token& d = tok[++i];
      e.hasDefault = true;
      e.defaultIsText = d.quoted;
      e.defaultText = d.text;
      if (!d.quoted && !number(d.text, e.defaultValue)) return false;
    } else {
      return fail("unknown option " + opt);
    }
  }
  if (!e.refer.empty() && !(e.array || e.kind == Kind::kBytes))
    return fail("refer needs an array or bytes");
  if (e.unchecked && e.kind != Kind::kBytes) return fail("unchecked applies to bytes only");
  if (!e.optionalFlag.empty() && (e.kind != Kind::kRecord || e.array))
    return fail("optional applies to a single record entry");
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
  if (!checkLibrarySlot(r.entries, e)) return false;
  r.entries.push_back(e);
  return true;
}

// TYPE NAME[CAP] id VALUE|default [since V]
bool Parser::parseMember(const std::vector<Token>& tok, Union& u) {
  Member m;
  m.line = line_;
  bool hasCap = false;
  if (!parseName(tok[1].text, u.members, "member", m, hasCap)) return false;
  const std::string& typeName = tok[0].text;
  if (typeName == "string" || typeName == "bytes") {
    m.kind = typeName == "string" ? Kind::kString : Kind::kBytes;
    if (!hasCap) return fail(typeName + " needs a capacity");
  } else if ((m.scalar = findScalar(typeName)) != nullptr) {
    m.kind = Kind::kScalar;
    if (hasCap) return fail("union members cannot be arrays");
  } else {
    auto it = s_.byName.find(typeName);
    if (it == s_.byName.end() || it->second->isUnion)
      return fail("union member type must be a scalar, string, bytes or record");
    if (hasCap) return fail("union members cannot be arrays");
    m.kind = Kind::kRecord;
    m.record = &asRecord(*it->second);
  }
  bool haveSelector = false;
  for (size_t i = 2; i < tok.size(); ++i) {
    const std::string& opt = tok[i].text;
    bool library = false;
    if (!libraryOption(tok, i, m, library)) return false;
    if (library) continue;
    if (opt == "id") {
      if (i + 1 >= tok.size()) return fail("id needs a value");
      m.idText = tok[++i].text;
      if (!number(m.idText, m.id)) return false;
      haveSelector = true;
    } else if (opt == "default") {
      m.isDefault = true;
      haveSelector = true;
    } else if (opt == "since") {
      if (i + 1 >= tok.size()) return fail("since needs a version");
      if (!since(tok[++i].text, u, m.since)) return false;
    } else {
      return fail("unknown option " + opt);
    }
  }
  if (!haveSelector) return fail("union member needs id VALUE or default");
  if (!checkLibrarySlot(u.members, m)) return false;
  for (const Member& other : u.members) {
    if (m.isDefault && other.isDefault) return fail("only one default member");
    if (!m.isDefault && !other.isDefault && other.id == m.id) return fail("duplicate member id");
  }
  u.members.push_back(m);
  return true;
}

// One statement; tok is not empty.
bool Parser::parseLine(const std::vector<Token>& tok) {
  const std::string& w = tok[0].text;
  auto declare = [&](const std::string& n) {
    if (!isIdentifier(n)) return fail("bad name " + n);
    if (!names_.insert(n).second) return fail("name defined twice: " + n);
    return true;
  };
  auto constant = [&](const std::string& n, const std::string& value, const std::string& en) {
    long long v = 0;
    if (!declare(n) || !number(value, v)) return false;
    s_.constants.push_back({n, v, en});
    values_[n] = v;
    return true;
  };
  if (inEnum_) {
    if (w == "end" && tok.size() == 1) {
      inEnum_ = false;
      return true;
    }
    if (tok.size() == 3 && tok[1].text == "=") return constant(w, tok[2].text, s_.enums.back());
    return fail("enumerator expected: NAME = VALUE");
  }
  if (current_ != nullptr) {
    if (w == "end" && tok.size() == 1) {
      const bool empty = current_->isUnion ? asUnion(*current_).members.empty()
                                           : asRecord(*current_).entries.empty();
      if (empty) return fail(current_->name + " has no entries");
      current_ = nullptr;
      return true;
    }
    if (w == "desc" && tok.size() == 2 && tok[1].quoted) {
      current_->desc = tok[1].text;
      return true;
    }
    if (!current_->isUnion && (w == "versionindicator" || w == "sizeindicator")) {
      if (tok.size() != 2) return fail(w + " needs one path");
      Record& r = static_cast<Record&>(*current_);
      FieldPath& p = w == "versionindicator" ? r.versionIndicator : r.sizeIndicator;
      p.text = tok[1].text;
      p.line = line_;
      return true;
    }
    if (tok.size() < 2) return fail("entry expected: TYPE NAME [options]");
    return current_->isUnion ? parseMember(tok, static_cast<Union&>(*current_))
                             : parseEntry(tok, static_cast<Record&>(*current_));
  }
  if (w == "schema" && tok.size() == 2) {
    s_.name = tok[1].text;
    return isIdentifier(s_.name) || fail("bad schema name");
  }
  if (w == "namespace" && tok.size() == 2) {
    s_.ns = tok[1].text == "-" ? "" : tok[1].text;
    return s_.ns.empty() || isIdentifier(s_.ns) || fail("bad namespace");
  }
  if (w == "metalib") return parseMetalib(tok);
  if (w == "const" && tok.size() == 3) return constant(tok[1].text, tok[2].text, "");
  if (w == "enum" && tok.size() == 2) {
    if (!declare(tok[1].text)) return false;
    inEnum_ = true;
    s_.enums.push_back(tok[1].text);
    return true;
  }
  if ((w == "record" || w == "union") && tok.size() == 4) {
    std::unique_ptr<Type> t;
    if (w == "union") {
      t.reset(new Union);
      t->isUnion = true;
    } else {
      t.reset(new Record);
    }
    t->name = tok[1].text;
    t->line = line_;
    long long b = 0, c = 0;
    if (!declare(t->name) || !number(tok[2].text, b) || !number(tok[3].text, c)) return false;
    if (b < 1 || c < b || c > 65535)
      return fail("versions must satisfy 1 <= BASEVERSION <= CURRVERSION");
    t->base = static_cast<unsigned>(b);
    t->curr = static_cast<unsigned>(c);
    current_ = t.get();
    s_.byName[t->name] = t.get();
    s_.types.push_back(std::move(t));
    return true;
  }
  return fail("unknown statement: " + w);
}

bool Parser::run(const std::string& file, std::string& error) {
  s_.file = file;
  std::ifstream in(file);
  if (!in) {
    error = file + ":0: cannot open";
    return false;
  }
  std::string line;
  bool ok = true;
  while (ok && std::getline(in, line)) {
    ++line_;
    std::vector<Token> tok;
    std::string err;
    if (!tokenize(line, tok, err)) {
      ok = fail(err);
    } else if (!tok.empty()) {
      ok = parseLine(tok);
    }
  }
  if (ok && in.bad()) ok = fail("read error");
  if (ok && (current_ != nullptr || inEnum_)) ok = fail("missing end");
  if (ok && s_.name.empty()) ok = fail("missing schema statement");
  if (!ok) error = error_;
  return ok;
}

}  // namespace

const Scalar* findScalar(const std::string& name) {
  for (const Scalar& s : kScalars) {
    if (name == s.name) return &s;
  }
  return nullptr;
}

bool parseSchemaText(const std::string& file, Schema& schema, std::string& error) {
  Parser p(schema);
  return p.run(file, error);
}

}  // namespace vixgen
