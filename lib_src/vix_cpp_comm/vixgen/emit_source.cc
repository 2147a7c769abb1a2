// vixgen: <schema>.cc, the operations of every record and union: construct, pack and unpack
// (one emitter for both directions), visualize and the forms over caller memory.
#include <sstream>

#include "emit.h"

namespace vixgen {

namespace {

// What differs between writing and reading a record.
struct Direction {
  bool pack;
  const char* name;        // the operation: "pack" or "unpack"
  const char* at;          // its body with the cursor state by value
  const char* cursor;      // the cursor type
  const char* area;        // the type of the area pointer in the body
  const char* shortError;  // the failure when the room or the data runs out
};

const Direction kPack = {true,          "pack",       "pack_at", "::kalmo_vix::VixWriteBuf",
                         "char* const", "kShortWrite"};
const Direction kUnpack = {
    false, "unpack", "unpack_at", "::kalmo_vix::VixReadBuf", "const char* const", "kShortRead"};

const char kUtil[] = "::kalmo_vix::VixBufUtil::";

// Printf format and argument of one scalar value in visualize.
void scalarFormat(const Scalar& s, const std::string& expr, bool element, std::string& format,
                  std::string& arg) {
  const std::string lead = element ? " " : "";
  switch (s.print) {
    case Print::kHex8:
      format = lead + "0x%02x";
      arg = "static_cast<unsigned int>(static_cast<uint8_t>(" + expr + "))";
      break;
    case Print::kDec:
      format = lead + "%d";
      arg = "static_cast<int>(" + expr + ")";
      break;
    case Print::kUdec:
    case Print::kDate:
    case Print::kTime:
    case Print::kIp:
      format = lead + "%u";
      arg = "static_cast<unsigned int>(" + expr + ")";
      break;
    case Print::kDec64:
      format = lead + "%ld";
      arg = "static_cast<long>(" + expr + ")";
      break;
    case Print::kUdec64:
    case Print::kDateTime:
      format = lead + "%lu";
      arg = "static_cast<unsigned long>(" + expr + ")";
      break;
  }
}

const char* specialPrinter(Print p) {
  switch (p) {
    case Print::kDate:
      return "printVixDate";
    case Print::kTime:
      return "printVixTime";
    case Print::kDateTime:
      return "printVixDateTime";
    case Print::kIp:
      return "printVixIP";
    default:
      return nullptr;
  }
}

bool isRaw(Kind k) { return k == Kind::kScalar || k == Kind::kString || k == Kind::kBytes; }

// Whether the body touches the area (and its length) itself rather than only through nested
// calls.
bool needsLen(const Record& r) {
  for (const Entry& e : r.entries) {
    if (isRaw(e.kind)) return true;
  }
  return false;
}
bool needsRaw(const Record& r) {
  return !r.versionIndicator.empty() || !r.sizeIndicator.empty() || needsLen(r);
}
bool needsRaw(const Union& u) {
  for (const Member& m : u.members) {
    if (isRaw(m.kind)) return true;
  }
  return false;
}

// One scalar between the member and the area at `at`: "put_u16(at, ...)" or "x = get_u16(at)".
std::string transfer(const Slot& s, const std::string& field, const std::string& at,
                     const Direction& d) {
  const std::string fn =
      std::string("::kalmo_vix::codec::") + (d.pack ? "put_" : "get_") + widthSuffix(s.width);
  if (d.pack) return fn + "(" + at + ", static_cast<" + uintType(s.width) + ">(" + field + "))";
  return field + " = static_cast<" + s.ctype + ">(" + fn + "(" + at + "))";
}

void zeroSlot(std::ostream& o, const Slot& s, const std::string& in) {
  if (s.kind == Kind::kScalar && !s.array) {
    o << in << s.name << " = 0;\n";
  } else {
    o << in << "std::memset(&" << s.name << ", 0, sizeof(" << s.name << "));\n";
  }
}

// Checks the refer (or optional flag) value of e, held in the local n_<entry>; failHow is
// "fail" (back-trace and error) or "return" (error only, for visualize).
void referCheck(std::ostream& o, const Entry& e, const std::string& in, bool checkCap,
                const std::string& failHow) {
  const FieldPath& path = e.countPath();
  const std::string n = "n_" + e.name;
  auto fail = [&](const char* code) {
    return failHow == "return" ? "return " + std::string(code) + ";"
                               : "VIX_CODEC_FAIL(" + quoted(path.text) + ", " + code + ");";
  };
  if (path.scalar->isSigned) {
    o << in << "const long long " << n << " = static_cast<long long>(" << path.text << ");\n";
    o << in << "if (" << n << " < 0) " << fail("kMinusRefer") << "\n";
    if (checkCap)
      o << in << "if (" << n << " > " << e.countCap() << "LL) " << fail("kReferSurpass") << "\n";
  } else {
    o << in << "const unsigned long long " << n << " = static_cast<unsigned long long>("
      << path.text << ");\n";
    if (checkCap)
      o << in << "if (" << n << " > " << e.countCap() << "ULL) " << fail("kReferSurpass") << "\n";
  }
}

// The number of elements (bytes) that travel: the capacity, or the checked refer value.
std::string countOf(const Slot& s, const Entry* e) {
  return e != nullptr && !e->refer.empty() ? "static_cast<size_t>(n_" + s.name + ")"
                                           : std::to_string(s.count);
}

// Writes or reads one record entry (e is s) or union member (e is null).
void codecSlot(std::ostream& o, const Slot& s, const Entry* e, const std::string& in,
               const Direction& d) {
  const std::string entry = quoted(s.name);
  const bool counted = e != nullptr && !e->refer.empty();
  const std::string count = countOf(s, e);
  const std::string call = std::string(".") + d.at + "(buf, p, len, pos, cutVer));\n";
  switch (s.kind) {
    case Kind::kScalar: {
      const std::string w = std::to_string(s.width);
      if (!s.array) {
        o << in << "if (len - pos < " << w << ") VIX_CODEC_FAIL(" << entry << ", " << d.shortError
          << ");\n";
        o << in << transfer(s, s.name, "p + pos", d) << ";\n";
        o << in << "pos += " << w << ";\n";
      } else {
        o << in << "{\n";
        if (counted) referCheck(o, *e, in + "  ", true, "fail");
        o << in << "  const size_t count = " << count << ";\n";
        o << in << "  if ((len - pos) / " << w << " < count) VIX_CODEC_FAIL(" << entry << ", "
          << d.shortError << ");\n";
        o << in << "  for (size_t i = 0; i < count; ++i) {\n";
        o << in << "    " << transfer(s, s.name + "[i]", "p + pos", d) << ";\n";
        o << in << "    pos += " << w << ";\n";
        o << in << "  }\n";
        o << in << "}\n";
      }
      break;
    }
    case Kind::kString:
      o << in << "{\n";
      if (d.pack) {
        o << in
          << "  const int ret = ::kalmo_vix::codec::put_string(p, pos, len, const_cast<char*>("
          << s.name << "), sizeof(" << s.name << "));\n";
      } else {
        o << in << "  const int ret = ::kalmo_vix::codec::get_string(p, pos, len, " << s.name
          << ", sizeof(" << s.name << "));\n";
      }
      o << in << "  if (ret != 0) VIX_CODEC_FAIL(" << entry << ", ret);\n";
      o << in << "}\n";
      break;
    case Kind::kBytes:
      o << in << "{\n";
      // pack trusts a larger area behind an unchecked block; unpack never writes past it.
      if (counted) referCheck(o, *e, in + "  ", !d.pack || !e->unchecked, "fail");
      o << in << "  const size_t count = " << count << ";\n";
      o << in << "  if (len - pos < count) VIX_CODEC_FAIL(" << entry << ", " << d.shortError
        << ");\n";
      if (d.pack) {
        o << in << "  std::memcpy(p + pos, " << s.name << ", count);\n";
      } else {
        o << in << "  std::memcpy(" << s.name << ", p + pos, count);\n";
      }
      o << in << "  pos += count;\n";
      o << in << "}\n";
      break;
    case Kind::kRecord:
      if (s.array) {
        o << in << "{\n";
        if (counted) referCheck(o, *e, in + "  ", true, "fail");
        o << in << "  const size_t count = " << count << ";\n";
        o << in << "  for (size_t i = 0; i < count; ++i) VIX_CODEC_CALL(" << entry << ", " << s.name
          << "[i]" << call;
        o << in << "}\n";
      } else if (e != nullptr && !e->optionalFlag.empty()) {
        o << in << "{\n";
        referCheck(o, *e, in + "  ", true, "fail");
        if (d.pack) {
          o << in << "  if (n_" << s.name << " == 1) VIX_CODEC_CALL(" << entry << ", " << s.name
            << call;
        } else {
          // An absent sub-record decodes as zero.
          o << in << "  if (n_" << s.name << " == 1) {\n";
          o << in << "    VIX_CODEC_CALL(" << entry << ", " << s.name << call;
          o << in << "  } else {\n";
          o << in << "    std::memset(&" << s.name << ", 0, sizeof(" << s.name << "));\n";
          o << in << "  }\n";
        }
        o << in << "}\n";
      } else {
        o << in << "VIX_CODEC_CALL(" << entry << ", " << s.name << call;
      }
      break;
    case Kind::kUnion:
      o << in << "if (" << s.ctype << "::carries(static_cast<long>(" << e->select.text << "))) {\n";
      o << in << "  VIX_CODEC_CALL(" << entry << ", " << s.name << "." << d.at
        << "(static_cast<long>(" << e->select.text << "), buf, p, len, pos, cutVer));\n";
      o << in << "}\n";
      break;
  }
}

// Renders one record entry (e is s) or union member (e is null) as text.
void visualizeSlot(std::ostream& o, const Slot& s, const Entry* e, const std::string& in) {
  const std::string lab = label(s);
  const bool counted = e != nullptr && !e->refer.empty();
  const std::string count = countOf(s, e);
  const std::string nested = "(buf, ::kalmo_vix::codec::deeper(indent), separator));\n";
  switch (s.kind) {
    case Kind::kScalar: {
      std::string format, arg;
      if (!s.array) {
        const char* special = specialPrinter(s.scalar->print);
        if (special != nullptr) {
          o << in << "VIX_CODEC_TRY(" << kUtil << special << "(buf, indent, separator, " << lab
            << ", " << s.name << "));\n";
        } else {
          scalarFormat(*s.scalar, s.name, false, format, arg);
          o << in << "VIX_CODEC_TRY(" << kUtil << "printVariable(buf, indent, separator, " << lab
            << ", \"" << format << "\", " << arg << "));\n";
        }
      } else {
        scalarFormat(*s.scalar, s.name + "[i]", true, format, arg);
        o << in << "{\n";
        if (counted) referCheck(o, *e, in + "  ", true, "return");
        o << in << "  const size_t count = " << count << ";\n";
        o << in << "  VIX_CODEC_TRY(" << kUtil << "printArray(buf, indent, separator, " << lab
          << ", static_cast<long>(count)));\n";
        o << in << "  for (size_t i = 0; i < count; ++i) VIX_CODEC_TRY(buf.textize(\"" << format
          << "\", " << arg << "));\n";
        o << in << "  VIX_CODEC_TRY(" << kUtil << "printSeparator(buf, separator));\n";
        o << in << "}\n";
      }
      break;
    }
    case Kind::kString:
      o << in << "VIX_CODEC_TRY(" << kUtil << "printVariable(buf, indent, separator, " << lab
        << ", \"%.*s\", static_cast<int>(sizeof(" << s.name << ")), " << s.name << "));\n";
      break;
    case Kind::kBytes:
      o << in << "{\n";
      if (counted) referCheck(o, *e, in + "  ", true, "return");
      o << in << "  const size_t count = " << count << ";\n";
      o << in << "  VIX_CODEC_TRY(" << kUtil << "printArray(buf, indent, separator, " << lab
        << ", static_cast<long>(count)));\n";
      o << in
        << "  for (size_t i = 0; i < count; ++i) VIX_CODEC_TRY(buf.textize(\" 0x%02x\", "
           "static_cast<unsigned int>("
        << s.name << "[i])));\n";
      o << in << "  VIX_CODEC_TRY(" << kUtil << "printSeparator(buf, separator));\n";
      o << in << "}\n";
      break;
    case Kind::kRecord:
      if (s.array) {
        o << in << "{\n";
        if (counted) referCheck(o, *e, in + "  ", true, "return");
        o << in << "  const size_t count = " << count << ";\n";
        o << in << "  VIX_CODEC_TRY(" << kUtil << "printArray(buf, indent, separator, " << lab
          << ", static_cast<long>(count)));\n";
        o << in << "  VIX_CODEC_TRY(" << kUtil << "printSeparator(buf, separator));\n";
        o << in << "  for (size_t i = 0; i < count; ++i) {\n";
        o << in << "    VIX_CODEC_TRY(" << kUtil << "printVariable(buf, indent, separator, " << lab
          << ", static_cast<unsigned int>(i), true));\n";
        o << in << "    VIX_CODEC_TRY(" << s.name << "[i].visualize" << nested;
        o << in << "  }\n";
        o << in << "}\n";
      } else if (e != nullptr && !e->optionalFlag.empty()) {
        o << in << "{\n";
        referCheck(o, *e, in + "  ", true, "return");
        o << in << "  if (n_" << s.name << " == 1) {\n";
        o << in << "    VIX_CODEC_TRY(" << kUtil << "printVariable(buf, indent, separator, " << lab
          << ", true));\n";
        o << in << "    VIX_CODEC_TRY(" << s.name << ".visualize" << nested;
        o << in << "  }\n";
        o << in << "}\n";
      } else {
        o << in << "VIX_CODEC_TRY(" << kUtil << "printVariable(buf, indent, separator, " << lab
          << ", true));\n";
        o << in << "VIX_CODEC_TRY(" << s.name << ".visualize" << nested;
      }
      break;
    case Kind::kUnion:
      o << in << "VIX_CODEC_TRY(" << kUtil << "printVariable(buf, indent, separator, " << lab
        << ", true));\n";
      o << in << "VIX_CODEC_TRY(" << s.name << ".visualize(static_cast<long>(" << e->select.text
        << "), buf, ::kalmo_vix::codec::deeper(indent), separator));\n";
      break;
  }
}

// End of the run of fixed-width integer entries that starts at from (all added in the same
// version); from + 1 when the entry does not start such a run.
size_t fixedRunEnd(const Record& r, size_t from) {
  size_t end = from + 1;
  if (!r.entries[from].fixedWidth) return end;
  while (end < r.entries.size() && r.entries[end].fixedWidth &&
         r.entries[end].since == r.entries[from].since) {
    ++end;
  }
  return end;
}

// A run of fixed-width integers: one room check for the whole run, then straight stores (loads);
// when the run does not fit, the field-by-field code finds and reports the entry that fails.
void fixedRun(std::ostream& o, const Record& r, size_t from, size_t to, const std::string& in,
              const Direction& d) {
  size_t total = 0;
  for (size_t k = from; k < to; ++k) total += r.entries[k].wireSize;
  o << in << "// " << r.entries[from].name << " .. " << r.entries[to - 1].name << ": " << total
    << " bytes\n";
  o << in << "if (__builtin_expect(len - pos >= " << total << ", 1)) {\n";
  size_t off = 0;
  for (size_t k = from; k < to; ++k) {
    const Entry& e = r.entries[k];
    for (size_t i = 0; i < e.count; ++i) {
      const std::string field = e.array ? e.name + "[" + std::to_string(i) + "]" : e.name;
      o << in << "  " << transfer(e, field, "p + pos + " + std::to_string(off), d) << ";\n";
      off += e.width;
    }
  }
  o << in << "  pos += " << total << ";\n";
  o << in << "} else {\n";
  for (size_t k = from; k < to; ++k) codecSlot(o, r.entries[k], &r.entries[k], in + "  ", d);
  o << in << "}\n";
}

void cutVersion(std::ostream& o) {
  o << "  {\n    const int ret = ::kalmo_vix::codec::cut_version(cutVer, BASEVERSION, "
       "CURRVERSION);\n";
  o << "    if (ret != 0) return ret;\n  }\n";
}

// The operation over a cursor, and the head of its body with the cursor state by value.
void codecHead(std::ostream& o, const Type& t, const Direction& d) {
  const std::string sel = t.isUnion ? "long selector, " : "";
  const char* konst = d.pack ? " const" : "";
  o << "int " << t.name << "::" << d.name << "(" << sel << d.cursor << "& buf, unsigned int cutVer)"
    << konst << " {\n";
  o << "  const long long at = " << d.at << "(" << (t.isUnion ? "selector, " : "")
    << "buf, buf.beginPtr, buf.length, buf.position, cutVer);\n";
  o << "  if (at < 0) return static_cast<int>(at);\n";
  o << "  buf.position = static_cast<size_t>(at);\n  return 0;\n}\n\n";
  std::string first = sel + d.cursor + "& buf, " + d.area + " p, const size_t len,";
  std::string second = "unsigned int cutVer";
  if (t.isUnion && !d.pack) {
    second = "size_t pos, " + second;
  } else {
    first += " size_t pos,";
  }
  o << "inline long long " << t.name << "::" << d.at << "(" << first << "\n"
    << std::string(d.pack ? 33 : 35, ' ') << second << ")" << konst << " {\n";
}

// pack or unpack of a record, over a cursor and with the cursor state by value.
void recordCodec(std::ostream& o, const Record& r, const Direction& d) {
  const bool raw = needsRaw(r);
  codecHead(o, r, d);
  const FieldPath& ver = r.versionIndicator;
  const FieldPath& size = r.sizeIndicator;
  if (d.pack) {
    cutVersion(o);
    if (!raw) o << "  (void)p;\n";
    if (!needsLen(r)) o << "  (void)len;\n";
    if (!ver.empty() || !size.empty()) o << "  const size_t start = pos;\n";
  } else {
    if (!raw) o << "  (void)p;\n  (void)len;\n";
    if (!size.empty()) {
      const size_t end = size.offset + static_cast<size_t>(size.scalar->width);
      o << "  // The stated length must be present before anything is decoded.\n";
      o << "  if (len - pos < " << end << ") VIX_CODEC_FAIL(\"nBuf\", kShortRead);\n";
      o << "  if (static_cast<uint64_t>(::kalmo_vix::codec::get_"
        << widthSuffix(static_cast<size_t>(size.scalar->width)) << "(p + pos + " << size.offset
        << ")) > len - pos) VIX_CODEC_FAIL(\"nBuf\", kShortRead);\n";
    }
    if (!ver.empty()) {
      const size_t end = ver.offset + static_cast<size_t>(ver.scalar->width);
      o << "  // The received version indicator decides the cut version; the argument is "
           "ignored.\n";
      o << "  if (len - pos < " << end << ") VIX_CODEC_FAIL(\"tVer\", kShortRead);\n";
      o << "  {\n    const long long v = static_cast<long long>(static_cast<" << ver.scalar->ctype
        << ">(::kalmo_vix::codec::get_" << widthSuffix(static_cast<size_t>(ver.scalar->width))
        << "(p + pos + " << ver.offset << ")));\n";
      o << "    if (v < BASEVERSION || v > CURRVERSION) VIX_CODEC_FAIL(" << quoted(ver.text)
        << ", kNetCutVerInvalid);\n";
      o << "    cutVer = static_cast<unsigned int>(v);\n  }\n";
    } else {
      cutVersion(o);
    }
  }
  o << "\n";
  for (size_t i = 0; i < r.entries.size();) {
    const size_t end = fixedRunEnd(r, i);
    const Entry& e = r.entries[i];
    const std::string in = e.since != 0 ? "    " : "  ";
    if (e.since != 0) o << "  if (cutVer >= " << e.since << ") {\n";
    if (end - i >= 2) {
      fixedRun(o, r, i, end, in, d);
    } else {
      o << in << "// " << e.name << "\n";
      codecSlot(o, e, &e, in, d);
    }
    if (e.since != 0) {
      if (!d.pack) {
        // Entries the cut version leaves out decode as zero.
        o << "  } else {\n";
        for (size_t k = i; k < end; ++k) zeroSlot(o, r.entries[k], "    ");
      }
      o << "  }\n";
    }
    i = end;
  }
  if (d.pack && !ver.empty()) {
    o << "\n  // The message states the version it was cut to.\n";
    o << "  ::kalmo_vix::codec::put_" << widthSuffix(static_cast<size_t>(ver.scalar->width))
      << "(p + start + " << ver.offset << ", static_cast<"
      << uintType(static_cast<size_t>(ver.scalar->width)) << ">(cutVer));\n";
  }
  if (d.pack && !size.empty()) {
    const size_t w = static_cast<size_t>(size.scalar->width);
    o << "\n  // The record's own packed length.\n";
    o << "  if (pos - start < " << size.offset + w << ") VIX_CODEC_FAIL(\"nBuf\", kShortWrite);\n";
    o << "  ::kalmo_vix::codec::put_" << widthSuffix(w) << "(p + start + " << size.offset
      << ", static_cast<" << uintType(w) << ">(pos - start));\n";
  }
  o << "  return static_cast<long long>(pos);\n}\n\n";
}

std::string caseLabel(const Member& m) {
  return m.isDefault ? std::string("    default: {")
                     : "    case " + std::to_string(m.id) + ": {  // " + m.idText;
}

// pack or unpack of a union: the chosen member only.
void unionCodec(std::ostream& o, const Union& u, const Direction& d) {
  codecHead(o, u, d);
  cutVersion(o);
  if (!needsRaw(u)) o << "  (void)p;\n  (void)len;\n";
  o << "  switch (selector) {\n";
  for (const Member& m : u.members) {
    o << caseLabel(m) << "\n";
    if (m.since != 0) {
      // A member the cut version leaves out travels as nothing (and decodes as zero).
      if (d.pack) {
        o << "      if (cutVer < " << m.since << ") return static_cast<long long>(pos);\n";
      } else {
        o << "      if (cutVer < " << m.since << ") {\n";
        zeroSlot(o, m, "        ");
        o << "        return static_cast<long long>(pos);\n      }\n";
      }
    }
    codecSlot(o, m, nullptr, "      ", d);
    o << "      break;\n    }\n";
  }
  if (u.defaultMember() == nullptr) o << "    default:\n      break;\n";
  o << "  }\n  return static_cast<long long>(pos);\n}\n\n";
}

// The forms over caller memory, and visualize_ex.
void wrappedFunctions(std::ostream& o, const Type& t) {
  const std::string& n = t.name;
  const std::string sel = t.isUnion ? "long selector, " : "";
  const std::string arg = t.isUnion ? "selector, " : "";
  o << "int " << n << "::pack(" << sel
    << "char* buffer, size_t size, size_t* usedSize, unsigned int cutVer) const {\n";
  o << "  ::kalmo_vix::VixError::resetBackTrace();\n";
  o << "  if (buffer == nullptr) return kNullParameter;\n";
  o << "  ::kalmo_vix::VixWriteBuf buf(buffer, size);\n";
  o << "  const int ret = pack(" << arg << "buf, cutVer);\n";
  o << "  if (usedSize != nullptr) *usedSize = buf.position;\n  return ret;\n}\n\n";
  o << "int " << n << "::unpack(" << sel
    << "const char* buffer, size_t size, size_t* usedSize, unsigned int cutVer) {\n";
  o << "  ::kalmo_vix::VixError::resetBackTrace();\n";
  o << "  if (buffer == nullptr) return kNullParameter;\n";
  o << "  ::kalmo_vix::VixReadBuf buf(buffer, size);\n";
  o << "  const int ret = unpack(" << arg << "buf, cutVer);\n";
  o << "  if (usedSize != nullptr) *usedSize = buf.position;\n  return ret;\n}\n\n";
  o << "int " << n << "::visualize(" << sel
    << "char* buffer, size_t size, size_t* usedSize, int indent, char separator) const {\n";
  o << "  if (buffer == nullptr) return kNullParameter;\n";
  o << "  ::kalmo_vix::VixWriteBuf buf(buffer, size);\n";
  o << "  const int ret = visualize(" << arg << "buf, indent, separator);\n";
  o << "  if (usedSize != nullptr) *usedSize = buf.position;\n  return ret;\n}\n\n";
  o << "const char* " << n << "::visualize_ex(" << sel
    << "::kalmo_vix::VixWriteBuf& buf, int indent, char separator) const {\n";
  o << "  (void)visualize(" << arg << "buf, indent, separator);\n";
  o << "  return ::kalmo_vix::codec::finish_text(buf);\n}\n\n";
  o << "const char* " << n << "::visualize_ex(" << sel
    << "char* buffer, size_t size, size_t* usedSize, int indent, char separator) const {\n";
  o << "  if (buffer == nullptr || size == 0) return \"\";\n";
  o << "  ::kalmo_vix::VixWriteBuf buf(buffer, size);\n";
  o << "  const char* text = visualize_ex(" << arg << "buf, indent, separator);\n";
  o << "  if (usedSize != nullptr) *usedSize = buf.position;\n  return text;\n}\n\n";
}

void recordFunctions(std::ostream& o, const Record& r) {
  const std::string& n = r.name;
  o << "// ---- " << n << "\n\n";
  o << "const char* const " << n << "::m_class_name = \"" << n << "\";\n\n";

  o << "int " << n << "::construct() {\n";
  for (const Entry& e : r.entries) {
    switch (e.kind) {
      case Kind::kScalar:
        if (e.array) {
          zeroSlot(o, e, "  ");
        } else {
          o << "  " << e.name << " = "
            << (e.hasDefault ? "static_cast<" + e.ctype + ">(" + e.defaultText + ")" : "0")
            << ";\n";
        }
        break;
      case Kind::kString:
        zeroSlot(o, e, "  ");
        if (e.hasDefault) {
          o << "  std::memcpy(" << e.name << ", " << cppText(e.defaultText) << ", "
            << e.defaultText.size() + 1 << ");\n";
        }
        break;
      case Kind::kBytes:
        zeroSlot(o, e, "  ");
        break;
      case Kind::kRecord:
        if (e.array) {
          o << "  for (size_t i = 0; i < " << e.cap << "; ++i) {\n";
          o << "    const int ret = " << e.name << "[i].construct();\n";
          o << "    if (ret != 0) return ret;\n  }\n";
        } else {
          o << "  {\n    const int ret = " << e.name
            << ".construct();\n    if (ret != 0) return ret;\n  }\n";
        }
        break;
      case Kind::kUnion:
        o << "  {\n    const int ret = " << e.name << ".construct(static_cast<long>("
          << e.select.text << "));\n    if (ret != 0) return ret;\n  }\n";
        break;
    }
  }
  o << "  return 0;\n}\n\n";

  recordCodec(o, r, kPack);
  recordCodec(o, r, kUnpack);

  o << "int " << n
    << "::visualize(::kalmo_vix::VixWriteBuf& buf, int indent, char separator) const {\n";
  for (const Entry& e : r.entries) visualizeSlot(o, e, &e, "  ");
  o << "  return 0;\n}\n\n";
  wrappedFunctions(o, r);
}

void unionFunctions(std::ostream& o, const Union& u) {
  const std::string& n = u.name;
  const bool hasDefault = u.defaultMember() != nullptr;
  o << "// ---- " << n << " (union)\n\n";
  o << "const char* const " << n << "::m_class_name = \"" << n << "\";\n\n";

  o << "int " << n << "::construct(long selector) {\n";
  o << "  std::memset(this, 0, sizeof(*this));\n";
  o << "  switch (selector) {\n";
  for (const Member& m : u.members) {
    o << caseLabel(m) << "\n";
    if (m.kind == Kind::kRecord) {
      o << "      return " << m.name << ".construct();\n";
    } else {
      o << "      return 0;\n";
    }
    o << "    }\n";
  }
  if (!hasDefault) o << "    default:\n      return 0;\n";
  o << "  }\n}\n\n";

  unionCodec(o, u, kPack);
  unionCodec(o, u, kUnpack);

  o << "int " << n
    << "::visualize(long selector, ::kalmo_vix::VixWriteBuf& buf, int indent, char separator) "
       "const {\n";
  o << "  switch (selector) {\n";
  for (const Member& m : u.members) {
    o << caseLabel(m) << "\n";
    visualizeSlot(o, m, nullptr, "      ");
    o << "      return 0;\n    }\n";
  }
  if (!hasDefault) o << "    default:\n      return 0;\n";
  o << "  }\n}\n\n";
  wrappedFunctions(o, u);
}

}  // namespace

std::string emitSource(const Schema& s) {
  std::ostringstream o;
  o << banner(s);
  o << "#include \"" << s.name << ".h\"\n\n#include <cstring>\n\n";
  o << "namespace {\n\n";
  o << "[[maybe_unused]] const int kShortWrite = "
       "::kalmo_vix::VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;\n";
  o << "[[maybe_unused]] const int kShortRead = "
       "::kalmo_vix::VixError::VIX_ERR_SHORT_BUF_FOR_READ;\n";
  o << "[[maybe_unused]] const int kMinusRefer = "
       "::kalmo_vix::VixError::VIX_ERR_MINUS_REFER_VALUE;\n";
  o << "[[maybe_unused]] const int kReferSurpass = "
       "::kalmo_vix::VixError::VIX_ERR_REFER_SURPASS_COUNT;\n";
  o << "[[maybe_unused]] const int kNullParameter = "
       "::kalmo_vix::VixError::VIX_ERR_NULL_POINTER_PARAMETER;\n";
  o << "[[maybe_unused]] const int kNetCutVerInvalid = "
       "::kalmo_vix::VixError::VIX_ERR_NET_CUTVER_INVALID;\n\n";
  o << "}  // namespace\n\n";
  if (!s.ns.empty()) o << "namespace " << s.ns << " {\n\n";
  for (const auto& t : s.types) {
    if (t->isUnion) {
      unionFunctions(o, asUnion(*t));
    } else {
      recordFunctions(o, asRecord(*t));
    }
  }
  if (!s.ns.empty()) o << "}  // namespace " << s.ns << "\n";
  return o.str();
}

}  // namespace vixgen
