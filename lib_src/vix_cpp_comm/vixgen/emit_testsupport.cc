// vixgen: <schema>_testsupport.h, for tests only: the list of record types, a deterministic
// fill that respects every capacity, refer, flag and selector, and the expected effect of a cut.
#include <algorithm>
#include <set>
#include <sstream>

#include "emit.h"

namespace vixgen {

namespace {

bool hasSizeDeep(const Record& r) {
  if (!r.sizeIndicator.empty()) return true;
  for (const Entry& e : r.entries) {
    if (e.kind == Kind::kRecord && hasSizeDeep(*e.record)) return true;
  }
  return false;
}

// A union reachable from a record through plain nested records, with its selector's path from
// that record.
struct ReachedUnion {
  std::string access;    // "stHead.stExtend"
  std::string selector;  // "stHead.stBase.wCommand"
  const Union* type;
};

void reachUnions(const Record& r, const std::string& prefix, std::vector<ReachedUnion>& out) {
  for (const Entry& e : r.entries) {
    if (e.kind == Kind::kUnion) {
      out.push_back({prefix + e.name, prefix + e.select.text, e.unionType});
    } else if (e.kind == Kind::kRecord && !e.array && e.optionalFlag.empty()) {
      reachUnions(*e.record, prefix + e.name + ".", out);
    }
  }
}

void fillRecord(std::ostream& o, const Record& r) {
  o << "inline void vixtest_fill_r(" << r.name << "& rec, ::kalmo_vix::VixTestRng& rng) {\n";
  o << "  std::memset(&rec, 0, sizeof(rec));\n";
  for (const Entry& e : r.entries) {
    const std::string f = "rec." + e.name;
    std::string countExpr = std::to_string(e.cap);
    const FieldPath& path = e.countPath();
    if (!path.empty()) {
      o << "  const size_t n_" << e.name << " = static_cast<size_t>(rng.count(" << e.countCap()
        << "));\n";
      o << "  rec." << path.text << " = static_cast<" << path.scalar->ctype << ">(n_" << e.name
        << ");\n";
      countExpr = "n_" + e.name;
    }
    switch (e.kind) {
      case Kind::kScalar:
        if (e.array) {
          o << "  for (size_t i = 0; i < " << countExpr << "; ++i) " << f << "[i] = static_cast<"
            << e.ctype << ">(rng.next());\n";
        } else {
          o << "  " << f << " = static_cast<" << e.ctype << ">(rng.next());\n";
        }
        break;
      case Kind::kString:
        o << "  rng.text(" << f << ", sizeof(" << f << "));\n";
        break;
      case Kind::kBytes:
        o << "  rng.bytes(" << f << ", " << countExpr << ");\n";
        break;
      case Kind::kRecord:
        if (e.array) {
          o << "  for (size_t i = 0; i < " << countExpr << "; ++i) vixtest_fill_r(" << f
            << "[i], rng);\n";
        } else if (!e.optionalFlag.empty()) {
          o << "  if (n_" << e.name << " == 1) vixtest_fill_r(" << f << ", rng);\n";
        } else {
          o << "  vixtest_fill_r(" << f << ", rng);\n";
        }
        break;
      case Kind::kUnion:
        break;  // after the selectors, below
    }
  }
  // Unions: one pick per selector; nested unions that share it are filled again to match.
  std::vector<ReachedUnion> reached;
  reachUnions(r, "", reached);
  std::set<std::string> done;
  for (const Entry& e : r.entries) {
    if (e.kind != Kind::kUnion || done.count(e.select.text) != 0) continue;
    done.insert(e.select.text);
    std::vector<const ReachedUnion*> group;
    for (const ReachedUnion& ru : reached) {
      if (ru.selector == e.select.text) group.push_back(&ru);
    }
    std::vector<long long> ids;
    for (const ReachedUnion* ru : group) {
      for (const Member& m : ru->type->members) {
        if (!m.isDefault && std::find(ids.begin(), ids.end(), m.id) == ids.end())
          ids.push_back(m.id);
      }
    }
    // A value that no member names: picks the default member, or no member at all.
    long long other = 0;
    while (std::find(ids.begin(), ids.end(), other) != ids.end()) ++other;
    ids.push_back(other);
    o << "  {\n    static const long long kIds[] = {";
    for (size_t i = 0; i < ids.size(); ++i) o << (i ? ", " : "") << ids[i];
    o << "};\n";
    o << "    rec." << e.select.text << " = static_cast<" << e.select.scalar->ctype
      << ">(kIds[rng.next() % " << ids.size() << "]);\n";
    o << "    const long selector = static_cast<long>(rec." << e.select.text << ");\n";
    for (const ReachedUnion* ru : group)
      o << "    vixtest_fill_u(selector, rec." << ru->access << ", rng);\n";
    o << "  }\n";
  }
  o << "}\n\n";
}

void caseLabel(std::ostream& o, const Member& m) {
  if (m.isDefault) {
    o << "    default:\n";
  } else {
    o << "    case " << m.id << ":\n";
  }
}

void fillUnion(std::ostream& o, const Union& u) {
  o << "inline void vixtest_fill_u(long selector, " << u.name
    << "& u, ::kalmo_vix::VixTestRng& rng) {\n";
  o << "  std::memset(&u, 0, sizeof(u));\n  switch (selector) {\n";
  for (const Member& m : u.members) {
    caseLabel(o, m);
    switch (m.kind) {
      case Kind::kScalar:
        o << "      u." << m.name << " = static_cast<" << m.ctype << ">(rng.next());\n";
        break;
      case Kind::kString:
        o << "      rng.text(u." << m.name << ", sizeof(u." << m.name << "));\n";
        break;
      case Kind::kBytes:
        o << "      rng.bytes(u." << m.name << ", sizeof(u." << m.name << "));\n";
        break;
      default:
        o << "      vixtest_fill_r(u." << m.name << ", rng);\n";
        break;
    }
    o << "      break;\n";
  }
  if (u.defaultMember() == nullptr) o << "    default:\n      break;\n";
  o << "  }\n}\n\n";
}

void cutRecord(std::ostream& o, const Record& r) {
  o << "inline void vixtest_cut(" << r.name << "& rec, unsigned int cutVer) {\n";
  o << "  if (cutVer == 0 || cutVer > " << r.curr << ") cutVer = " << r.curr << ";\n";
  for (const Entry& e : r.entries) {
    const std::string f = "rec." + e.name;
    std::string in = "  ";
    if (e.since != 0) {
      o << "  if (cutVer < " << e.since << ") {\n";
      if (e.kind == Kind::kScalar && !e.array) {
        o << "    " << f << " = 0;\n";
      } else {
        o << "    std::memset(&" << f << ", 0, sizeof(" << f << "));\n";
      }
      o << "  } else {\n";
      in = "    ";
    }
    std::string countExpr = std::to_string(e.cap);
    if (!e.refer.empty()) {
      countExpr = "std::min<unsigned long long>(static_cast<unsigned long long>(rec." +
                  e.refer.text + "), " + std::to_string(e.cap) + "ULL)";
    }
    switch (e.kind) {
      case Kind::kRecord:
        if (e.array) {
          o << in << "for (size_t i = 0; i < " << countExpr << "; ++i) vixtest_cut(" << f
            << "[i], cutVer);\n";
        } else if (!e.optionalFlag.empty()) {
          o << in << "if (rec." << e.optionalFlag.text << " == 1) vixtest_cut(" << f
            << ", cutVer);\n";
        } else {
          o << in << "vixtest_cut(" << f << ", cutVer);\n";
        }
        break;
      case Kind::kUnion:
        o << in << "vixtest_cut(static_cast<long>(rec." << e.select.text << "), " << f
          << ", cutVer);\n";
        break;
      default:
        break;
    }
    if (e.since != 0) o << "  }\n";
  }
  if (!r.versionIndicator.empty()) {
    o << "  rec." << r.versionIndicator.text << " = static_cast<"
      << r.versionIndicator.scalar->ctype << ">(cutVer);\n";
  }
  o << "  (void)rec;\n}\n\n";
}

void cutUnion(std::ostream& o, const Union& u) {
  o << "inline void vixtest_cut(long selector, " << u.name << "& u, unsigned int cutVer) {\n";
  o << "  if (cutVer == 0 || cutVer > " << u.curr << ") cutVer = " << u.curr << ";\n";
  o << "  switch (selector) {\n";
  for (const Member& m : u.members) {
    caseLabel(o, m);
    if (m.since != 0) o << "      if (cutVer < " << m.since << ") std::memset(&u, 0, sizeof(u));\n";
    if (m.kind == Kind::kRecord) {
      o << "      " << (m.since != 0 ? "else " : "") << "vixtest_cut(u." << m.name
        << ", cutVer);\n";
    }
    o << "      break;\n";
  }
  if (u.defaultMember() == nullptr) o << "    default:\n      break;\n";
  o << "  }\n  (void)u;\n}\n\n";
}

void clearSize(std::ostream& o, const Record& r) {
  o << "inline void vixtest_clear_size(" << r.name << "& rec) {\n";
  if (!r.sizeIndicator.empty()) o << "  rec." << r.sizeIndicator.text << " = 0;\n";
  for (const Entry& e : r.entries) {
    if (e.kind != Kind::kRecord || !hasSizeDeep(*e.record)) continue;
    if (e.array) {
      o << "  for (size_t i = 0; i < " << e.cap << "; ++i) vixtest_clear_size(rec." << e.name
        << "[i]);\n";
    } else {
      o << "  vixtest_clear_size(rec." << e.name << ");\n";
    }
  }
  o << "  (void)rec;\n}\n\n";
}

// The field table of t for vixtest_set and vixtest_list, and its lookup by type.
void fieldTable(std::ostream& o, const Schema& s, const Type& t) {
  o << "inline const ::kalmo_vix::VixTestType* vixtest_type_" << t.name << "() {\n";
  o << "  static const ::kalmo_vix::VixTestField kFields[] = {\n";
  auto row = [&](const Slot& f, const std::string& select, const Member* m) {
    char kind = 'r';
    std::string width = "sizeof(" + f.ctype + ")";
    std::string nested = "vixtest_type_" + f.ctype;
    if (f.kind == Kind::kScalar || f.kind == Kind::kString || f.kind == Kind::kBytes) {
      kind = f.kind == Kind::kString  ? 's'
             : f.kind == Kind::kBytes ? 'b'
             : f.scalar->isSigned     ? 'i'
                                      : 'u';
      width = std::to_string(f.kind == Kind::kScalar ? f.width : 1);
      nested = "nullptr";
    }
    o << "      {\"" << f.name << "\", offsetof(" << t.name << ", " << f.name << "), '" << kind
      << "', " << width << ", " << f.count << ", " << nested << ", "
      << (select.empty() ? "nullptr" : quoted(select)) << ", "
      << (m == nullptr   ? "0"
          : m->isDefault ? "'d'"
                         : "'i'")
      << ", " << (m == nullptr || m->isDefault ? 0 : m->id) << "},\n";
  };
  size_t count = 0;
  if (t.isUnion) {
    for (const Member& m : asUnion(t).members) row(m, "", &m);
    count = asUnion(t).members.size();
  } else {
    for (const Entry& e : asRecord(t).entries) row(e, e.select.text, nullptr);
    count = asRecord(t).entries.size();
  }
  o << "  };\n";
  o << "  static const ::kalmo_vix::VixTestType kType = {\"" << t.name << "\", "
    << (t.isUnion ? "true" : "false") << ", kFields, " << count << ", vixtest_constants_" << s.name
    << "};\n";
  o << "  return &kType;\n}\n";
  o << "inline const ::kalmo_vix::VixTestType* vixtest_type(const " << t.name
    << "*) { return vixtest_type_" << t.name << "(); }\n\n";
}

}  // namespace

std::string emitTestSupport(const Schema& s) {
  std::ostringstream o;
  const std::string guard = "VIXGEN_" + upper(s.name) + "_TESTSUPPORT_H";
  o << banner(s);
  o << "// Test support: the list of record types, deterministic fill, and the expected effect of "
       "a cut.\n";
  o << "#ifndef " << guard << "\n#define " << guard << "\n\n";
  o << "#include <algorithm>\n#include <cstddef>\n#include <cstring>\n\n#include \"" << s.name
    << ".h\"\n#include \"vix_cpp_comm/VixTestSupport.h\"\n\n";
  o << "// X(type) for every record (unions are reached through them).\n";
  o << "#define " << upper(s.name) << "_RECORD_TYPES(X)";
  for (const auto& t : s.types) {
    if (!t->isUnion) o << " \\\n  X(" << qualified(s, t->name) << ")";
  }
  o << "\n\n";
  o << "// X(type) for every union.\n";
  o << "#define " << upper(s.name) << "_UNION_TYPES(X)";
  for (const auto& t : s.types) {
    if (t->isUnion) o << " \\\n  X(" << qualified(s, t->name) << ")";
  }
  o << "\n\n";
  if (!s.ns.empty()) o << "namespace " << s.ns << " {\n\n";
  o << "// The schema's constants and enumerators, for values written by name.\n";
  o << "inline const ::kalmo_vix::VixTestConstant vixtest_constants_" << s.name << "[] = {\n";
  for (const Constant& c : s.constants) o << "    {\"" << c.name << "\", " << c.value << "LL},\n";
  o << "    {nullptr, 0}};\n\n";
  for (const auto& t : s.types) {
    if (t->isUnion) {
      o << "inline void vixtest_fill_u(long selector, " << t->name
        << "& u, ::kalmo_vix::VixTestRng& rng);\n";
      o << "inline void vixtest_cut(long selector, " << t->name << "& u, unsigned int cutVer);\n";
    } else {
      o << "inline void vixtest_fill_r(" << t->name << "& rec, ::kalmo_vix::VixTestRng& rng);\n";
      o << "inline void vixtest_cut(" << t->name << "& rec, unsigned int cutVer);\n";
      o << "inline void vixtest_clear_size(" << t->name << "& rec);\n";
    }
  }
  o << "\n";
  for (const auto& t : s.types) fieldTable(o, s, *t);
  for (const auto& t : s.types) {
    if (t->isUnion) {
      fillUnion(o, asUnion(*t));
      cutUnion(o, asUnion(*t));
    } else {
      fillRecord(o, asRecord(*t));
      cutRecord(o, asRecord(*t));
      clearSize(o, asRecord(*t));
      o << "// Fills every field with values derived from seed; unused bytes stay zero.\n";
      o << "inline void vixtest_fill(" << t->name << "& rec, uint64_t seed) {\n";
      o << "  ::kalmo_vix::VixTestRng rng(seed);\n  vixtest_fill_r(rec, rng);\n}\n\n";
    }
  }
  if (!s.ns.empty()) o << "}  // namespace " << s.ns << "\n\n";
  o << "#endif  // " << guard << "\n";
  return o.str();
}

}  // namespace vixgen
