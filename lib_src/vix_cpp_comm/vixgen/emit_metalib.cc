// vixgen: the metadata library of a schema, laid out with the vix builder, and the C++ source
// that links it in as a byte array.
//
// Constants and enumerators become macros, every enum a macro group, records struct metas and
// unions union metas (a union's default member first: a branch without a selector range in
// the first place is the one the runtime picks for unknown selector values). Entries carry
// their element name, type, count, refer or select path (in element names), since version,
// default, macro group and description. The host layout is the one the schema's metalib
// statement names: natural C alignment, or packed like the record classes.
#include <cstdio>
#include <sstream>
#include <string>
#include <vector>

#include "emit.h"
#include "vix/vix_builder.h"
#include "vix/vix_error.h"
#include "vix/vix_metalib.h"

namespace vixgen {

namespace {

// A path of r written with member names, spelled with the library's element names.
std::string elementPath(const Record& r, const std::string& text) {
  std::string out;
  const Record* cur = &r;
  std::istringstream in(text);
  std::string part;
  while (std::getline(in, part, '.')) {
    const Entry* found = nullptr;
    if (cur != nullptr) {
      for (const Entry& e : cur->entries) {
        if (e.name == part) {
          found = &e;
          break;
        }
      }
    }
    if (!out.empty()) out += '.';
    out += found != nullptr ? found->elementName() : part;
    cur = found != nullptr ? found->record : nullptr;
  }
  return out;
}

const char* textOrNull(const std::string& s) { return s.empty() ? nullptr : s.c_str(); }

class LibraryBuilder {
 public:
  explicit LibraryBuilder(const Schema& schema) : s_(schema) {}
  ~LibraryBuilder() { vix_builder_close(&b_); }
  LibraryBuilder(const LibraryBuilder&) = delete;
  LibraryBuilder& operator=(const LibraryBuilder&) = delete;

  bool run(std::string& bytes, std::string& error) {
    if (!open() || !macros() || !types() || !finish(bytes)) {
      error = error_;
      return false;
    }
    return true;
  }

 private:
  bool fail(int line, const std::string& what, int ret) {
    std::ostringstream o;
    o << s_.file << ":" << line << ": metalib: " << what << ": " << vix_error_string(ret);
    const char* detail = vix_get_error_detail();
    if (detail != nullptr && *detail != '\0') o << " (" << detail << ")";
    error_ = o.str();
    return false;
  }

  bool open() {
    VIXLIBPARAM p = {};
    p.iID = static_cast<int32_t>(s_.metalib.id);
    p.iVersion = static_cast<int32_t>(s_.metalib.version);
    std::snprintf(p.szName, sizeof(p.szName), "%s", s_.name.c_str());
    const int ret = vix_builder_open_growing(&b_, &p);
    return ret == 0 || fail(s_.metalib.line, "library " + s_.name, ret);
  }

  bool macros() {
    for (const Constant& c : s_.constants) {
      const int ret = vix_builder_add_macro(b_, c.name.c_str(), static_cast<int>(c.value), "");
      if (ret != 0) return fail(s_.metalib.line, "macro " + c.name, ret);
    }
    for (const std::string& en : s_.enums) {
      std::vector<const char*> names;
      for (const Constant& c : s_.constants) {
        if (c.enumName == en) names.push_back(c.name.c_str());
      }
      const int ret = vix_builder_add_macrosgroup(b_, en.c_str(), "", names.data(),
                                                  static_cast<int>(names.size()));
      if (ret != 0) return fail(s_.metalib.line, "group " + en, ret);
    }
    return true;
  }

  // The description of what a slot holds, without paths.
  void slot(const Slot& s, VIXENTRYDESC& d, std::string& type) const {
    vix_entry_desc_init(&d);
    switch (s.kind) {
      case Kind::kScalar:
        type = s.scalar->name;
        break;
      case Kind::kString:
        type = "string";
        break;
      case Kind::kBytes:
        type = "byte";
        break;
      case Kind::kRecord:
        type = s.record->name;
        break;
      case Kind::kUnion:
        type = s.unionType->name;
        break;
    }
    d.pszName = s.elementName().c_str();
    d.pszType = type.c_str();
    d.iCount = static_cast<int32_t>(s.count);
    d.iVersion = static_cast<int32_t>(s.since);
    d.pszMacrosGroup = textOrNull(s.group);
    d.pszDesc = textOrNull(s.desc);
  }

  bool begin(const Type& t) {
    VIXMETADESC d;
    vix_meta_desc_init(&d);
    d.pszName = t.name.c_str();
    d.iType = t.isUnion ? VIX_TYPE_UNION : VIX_TYPE_STRUCT;
    d.iBaseVersion = static_cast<int32_t>(t.base);
    d.iCurVersion = static_cast<int32_t>(t.curr);
    d.iPacked = s_.metalib.packed ? 1 : 0;
    d.pszDesc = textOrNull(t.desc);
    std::string version, size;
    if (!t.isUnion) {
      const Record& r = asRecord(t);
      if (!r.versionIndicator.empty()) version = elementPath(r, r.versionIndicator.text);
      if (!r.sizeIndicator.empty()) size = elementPath(r, r.sizeIndicator.text);
    }
    d.pszVersionIndicator = textOrNull(version);
    d.pszSizeInfo = textOrNull(size);
    const int ret = vix_builder_begin_meta(b_, &d);
    return ret == 0 || fail(t.line, t.name, ret);
  }

  bool record(const Record& r) {
    for (const Entry& e : r.entries) {
      VIXENTRYDESC d;
      std::string type;
      slot(e, d, type);
      const std::string refer = e.countPath().empty() ? "" : elementPath(r, e.countPath().text);
      const std::string select = e.select.empty() ? "" : elementPath(r, e.select.text);
      d.pszRefer = textOrNull(refer);
      d.pszSelect = textOrNull(select);
      const std::string value = e.defaultIsText ? e.defaultText : std::to_string(e.defaultValue);
      if (e.hasDefault) {
        d.pszDefault = value.c_str();
        d.iDefaultLen = value.size();
      }
      const int ret = vix_builder_add_entry(b_, &d);
      if (ret != 0) return fail(e.line, r.name + "." + e.name, ret);
    }
    return true;
  }

  bool unionType(const Union& u) {
    std::vector<const Member*> order;
    if (u.defaultMember() != nullptr) order.push_back(u.defaultMember());
    for (const Member& m : u.members) {
      if (!m.isDefault) order.push_back(&m);
    }
    for (const Member* m : order) {
      VIXENTRYDESC d;
      std::string type;
      slot(*m, d, type);
      if (!m->isDefault) d.iMinId = d.iMaxId = static_cast<int32_t>(m->id);
      const int ret = vix_builder_add_entry(b_, &d);
      if (ret != 0) return fail(m->line, u.name + "." + m->name, ret);
    }
    return true;
  }

  bool types() {
    for (const auto& t : s_.types) {
      if (!begin(*t)) return false;
      if (!(t->isUnion ? unionType(asUnion(*t)) : record(asRecord(*t)))) return false;
      const int ret = vix_builder_end_meta(b_);
      if (ret != 0) return fail(t->line, t->name, ret);
    }
    return true;
  }

  bool finish(std::string& bytes) {
    LPVIXMETALIB lib = nullptr;
    const int ret = vix_builder_finish(b_, &lib);
    if (ret != 0) return fail(s_.metalib.line, "library " + s_.name, ret);
    bytes.assign(reinterpret_cast<const char*>(lib), vix_size(lib));
    vix_free_lib(&lib);
    return true;
  }

  const Schema& s_;
  LPVIXBUILDER b_ = nullptr;
  std::string error_;
};

}  // namespace

bool buildMetalib(const Schema& schema, std::string& bytes, std::string& error) {
  LibraryBuilder b(schema);
  return b.run(bytes, error);
}

std::string emitMetalibSource(const Schema& schema, const std::string& bytes) {
  const std::string sym = schema.name + "_metalib";
  std::ostringstream o;
  o << banner(schema)
    << "// The metadata library of the schema, to be used in place (it holds no pointers).\n"
    << "#include <stddef.h>\n\n"
    << "extern \"C\" {\n"
    << "extern const unsigned char " << sym << "[];\n"
    << "extern const size_t " << sym << "_size;\n\n"
    << "alignas(16) const unsigned char " << sym << "[" << bytes.size() << "] = {";
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i % 16 == 0) o << "\n   ";
    char hex[8];
    std::snprintf(hex, sizeof(hex), " 0x%02x,", static_cast<unsigned char>(bytes[i]));
    o << hex;
  }
  o << "\n};\n"
    << "const size_t " << sym << "_size = " << bytes.size() << ";\n"
    << "}\n";
  return o.str();
}

}  // namespace vixgen
