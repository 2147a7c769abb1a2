// vixgen: <schema>.h, the constants, enumerations and packed record and union declarations.
#include <sstream>

#include "emit.h"

namespace vixgen {

namespace {

// The comment after a member: how it is chosen, counted or versioned.
std::string entryNote(const Entry& e) {
  std::string note;
  if (e.since != 0) note += " since " + std::to_string(e.since);
  if (!e.refer.empty())
    note += " count in " + e.refer.text + (e.unchecked ? " (capacity not checked on pack)" : "");
  if (!e.optionalFlag.empty()) note += " present when " + e.optionalFlag.text + " is 1";
  if (!e.select.empty()) note += " selected by " + e.select.text;
  return note;
}

std::string memberNote(const Member& m) {
  std::string note = m.isDefault ? " selector: any other value" : " selector " + m.idText;
  if (m.since != 0) note += " since " + std::to_string(m.since);
  return note;
}

void member(std::ostream& o, const Slot& s, const std::string& note) {
  o << "  " << declaration(s) << ";";
  if (!note.empty()) o << "  //" << note;
  o << "\n";
}

// Whether a union member is chosen by the selector.
void carries(std::ostream& o, const Union& u) {
  o << "\n  // Whether some member is chosen by the selector (else nothing is encoded).\n";
  o << "  static bool carries(long selector) {\n";
  if (u.defaultMember() != nullptr) {
    o << "    (void)selector;\n    return true;\n";
  } else {
    o << "    switch (selector) {\n";
    for (const Member& m : u.members) o << "      case " << m.id << ":\n";
    o << "        return true;\n      default:\n        return false;\n    }\n";
  }
  o << "  }\n";
}

void operations(std::ostream& o, const Type& t) {
  const char* sel = t.isUnion ? "long selector, " : "";
  const char* cst = t.isUnion ? "long selector" : "";
  o << "\n  VIX_NODISCARD int construct(" << cst << ");\n";
  o << "  VIX_NODISCARD int pack(" << sel
    << "::kalmo_vix::VixWriteBuf& buf, unsigned int cutVer) const;\n";
  o << "  VIX_NODISCARD int pack(" << sel
    << "char* buffer, size_t size, size_t* usedSize, unsigned int cutVer) const;\n";
  o << "  VIX_NODISCARD int unpack(" << sel
    << "::kalmo_vix::VixReadBuf& buf, unsigned int cutVer);\n";
  o << "  VIX_NODISCARD int unpack(" << sel
    << "const char* buffer, size_t size, size_t* usedSize, unsigned int cutVer);\n";
  o << "  VIX_NODISCARD int visualize(" << sel
    << "::kalmo_vix::VixWriteBuf& buf, int indent, char separator) const;\n";
  o << "  VIX_NODISCARD int visualize(" << sel
    << "char* buffer, size_t size, size_t* usedSize, int indent, char separator) const;\n";
  o << "  const char* visualize_ex(" << sel
    << "::kalmo_vix::VixWriteBuf& buf, int indent, char separator) const;\n";
  o << "  const char* visualize_ex(" << sel
    << "char* buffer, size_t size, size_t* usedSize, int indent, char separator) const;\n";
}

// The bodies of pack and unpack: private, for the type's own operations and the types of the
// schema that enclose it (in the same generated source, where they are defined).
void bodies(std::ostream& o, const Schema& s, const Type& t) {
  const char* sel = t.isUnion ? "long selector, " : "";
  o << "\n private:\n";
  for (const auto& outer : s.types) {
    bool encloses = false;
    if (outer->isUnion) {
      for (const Member& m : asUnion(*outer).members) encloses = encloses || m.record == &t;
    } else {
      for (const Entry& e : asRecord(*outer).entries)
        encloses = encloses || e.record == &t || e.unionType == &t;
    }
    if (encloses)
      o << "  friend " << (outer->isUnion ? "union " : "struct ") << outer->name << ";\n";
  }
  o << "  // The bodies of pack and unpack, with the cursor's state passed by value: the new "
       "position,\n";
  o << "  // or a negative error.\n";
  o << "  VIX_NODISCARD inline long long pack_at(" << sel
    << "::kalmo_vix::VixWriteBuf& buf, char* p, size_t len, size_t pos, unsigned int cutVer) "
       "const;\n";
  o << "  VIX_NODISCARD inline long long unpack_at(" << sel
    << "::kalmo_vix::VixReadBuf& buf, const char* p, size_t len, size_t pos, unsigned int "
       "cutVer);\n";
}

void declareType(std::ostream& o, const Schema& s, const Type& t) {
  o << "// " << (t.isUnion ? "union" : "record") << " " << t.name << ", versions " << t.base
    << " to " << t.curr << ".\n";
  o << (t.isUnion ? "union " : "struct ") << t.name << " {\n";
  o << "  enum { BASEVERSION = " << t.base << ", CURRVERSION = " << t.curr << " };\n";
  o << "  static const char* const m_class_name;\n";
  o << "  // Largest number of bytes an encoding can take.\n";
  o << "  static constexpr size_t MAX_PACK_SIZE = " << t.maxPack << ";\n\n";
  if (t.isUnion) {
    const Union& u = asUnion(t);
    for (const Member& m : u.members) member(o, m, memberNote(m));
    carries(o, u);
  } else {
    for (const Entry& e : asRecord(t).entries) member(o, e, entryNote(e));
  }
  operations(o, t);
  bodies(o, s, t);
  o << "};\n";
  o << "static_assert(sizeof(" << t.name << ") == " << t.size << ", \"" << t.name
    << ": packed layout\");\n\n";
}

}  // namespace

std::string emitHeader(const Schema& s) {
  std::ostringstream o;
  const std::string guard = "VIXGEN_" + upper(s.name) + "_H";
  o << banner(s);
  o << "#ifndef " << guard << "\n#define " << guard << "\n\n";
  o << "#include <cstddef>\n#include <cstdint>\n\n#include \"vix_cpp_comm/VixCodec.h\"\n\n";
  o << "#if !defined(VIX_CPP_COMM_RUNTIME_VERSION) || VIX_CPP_COMM_RUNTIME_VERSION != 2\n";
  o << "#error \"" << s.name << ".h was generated for vix_cpp_comm runtime version 2\"\n#endif\n\n";
  if (!s.ns.empty()) o << "namespace " << s.ns << " {\n\n";
  for (const Constant& c : s.constants) {
    if (!c.enumName.empty()) continue;
    const bool small = c.value >= -2147483647LL - 1 && c.value <= 2147483647LL;
    o << "constexpr " << (small ? "int " : "long long ") << c.name << " = " << c.value << ";\n";
  }
  o << "\n";
  for (const std::string& en : s.enums) {
    o << "enum " << en << " {\n";
    for (const Constant& c : s.constants) {
      if (c.enumName == en) o << "  " << c.name << " = " << c.value << ",\n";
    }
    o << "};\n\n";
  }
  o << "#pragma pack(push, 1)\n\n";
  for (const auto& t : s.types) declareType(o, s, *t);
  o << "#pragma pack(pop)\n\n";
  if (!s.ns.empty()) o << "}  // namespace " << s.ns << "\n\n";
  o << "#endif  // " << guard << "\n";
  return o.str();
}

}  // namespace vixgen
