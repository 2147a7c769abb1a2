// vixgen: the resolve pass. Runs once after parsing: resolves every refer, optional flag,
// selector and indicator path, works out each member's C type, width, size and largest encoding
// and each entry's fixed wire width and offset, and checks the rules that relate entries to
// each other. The first failure ends the pass with "file:line: message".
#include <algorithm>
#include <sstream>

#include "model.h"

namespace vixgen {

namespace {

class Resolver {
 public:
  explicit Resolver(Schema& schema) : s_(schema) {}

  bool run(std::string& error) {
    if (s_.metalib.wanted && !libraryRanges()) {
      error = error_;
      return false;
    }
    for (const auto& t : s_.types) {
      const bool ok =
          t->isUnion ? unionType(static_cast<Union&>(*t)) : record(static_cast<Record&>(*t));
      if (!ok) {
        error = error_;
        return false;
      }
    }
    return true;
  }

 private:
  bool fail(int line, const std::string& message) {
    std::ostringstream o;
    o << s_.file << ":" << line << ": " << message;
    error_ = o.str();
    return false;
  }

  // A metadata library holds macro values and union selector ids as 32-bit integers.
  bool libraryRanges() {
    auto fits = [](long long v) { return v >= -2147483647LL - 1 && v <= 2147483647LL; };
    for (const Constant& c : s_.constants) {
      if (!fits(c.value))
        return fail(s_.metalib.line, "metalib: " + c.name + " does not fit a 32-bit macro");
    }
    for (const auto& t : s_.types) {
      if (!t->isUnion) continue;
      for (const Member& m : asUnion(*t).members) {
        if (!m.isDefault && !fits(m.id))
          return fail(m.line, "metalib: id of " + m.name + " does not fit 32 bits");
      }
    }
    return true;
  }

  // Type, width, count, size and largest encoding of what a slot holds.
  static void layout(Slot& s) {
    switch (s.kind) {
      case Kind::kScalar:
        s.ctype = s.scalar->ctype;
        s.width = static_cast<size_t>(s.scalar->width);
        s.count = s.array ? static_cast<size_t>(s.cap) : 1;
        s.size = s.width * s.count;
        s.maxPack = s.size;
        break;
      case Kind::kString:
        s.ctype = "char";
        s.count = static_cast<size_t>(s.cap);
        s.size = s.count;
        s.maxPack = 4 + s.size;
        break;
      case Kind::kBytes:
        s.ctype = "unsigned char";
        s.count = static_cast<size_t>(s.cap);
        s.size = s.count;
        s.maxPack = s.size;
        break;
      case Kind::kRecord:
        s.ctype = s.record->name;
        s.count = s.array ? static_cast<size_t>(s.cap) : 1;
        s.size = s.record->size * s.count;
        s.maxPack = s.record->maxPack * s.count;
        break;
      case Kind::kUnion:
        s.ctype = s.unionType->name;
        s.count = 1;
        s.size = s.unionType->size;
        s.maxPack = s.unionType->maxPack;
        break;
    }
  }

  // Resolves p inside r; its first component must be among the first `before` entries. The
  // message says what is wrong with the path (the caller adds where).
  static bool path(const Record& r, size_t before, FieldPath& p, std::string& message) {
    std::vector<std::string> parts;
    std::string part;
    std::istringstream in(p.text);
    while (std::getline(in, part, '.')) parts.push_back(part);
    if (parts.empty()) {
      message = "empty path";
      return false;
    }
    const Record* cur = &r;
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
        message = "no earlier entry named " + parts[k];
        return false;
      }
      if (k == 0) p.since = found->since;
      if (found->since != 0) fixed = false;
      if (k + 1 == parts.size()) {
        if (found->kind != Kind::kScalar || found->array) {
          message = parts[k] + " is not a single integer";
          return false;
        }
        p.scalar = found->scalar;
      } else {
        if (found->kind != Kind::kRecord || found->array || !found->optionalFlag.empty()) {
          message = parts[k] + " is not a plain nested record";
          return false;
        }
        cur = found->record;
        limit = cur->entries.size();
      }
    }
    p.fixedOffset = fixed;
    p.offset = offset;
    return true;
  }

  // A path that entry e (the entry at index) depends on: declared earlier, not added later.
  bool dependency(const Record& r, size_t index, const Entry& e, FieldPath& p, const char* what) {
    if (p.empty()) return true;
    std::string message;
    if (!path(r, index, p, message))
      return fail(p.line, std::string(what) + " " + p.text + ": " + message);
    if (p.since > e.since)
      return fail(p.line, std::string(what) + " " + p.text + " is added later than " + e.name);
    return true;
  }

  bool record(Record& r) {
    bool fixed = true;
    size_t offset = 0;
    for (size_t i = 0; i < r.entries.size(); ++i) {
      Entry& e = r.entries[i];
      if (!dependency(r, i, e, e.refer, "refer") || !dependency(r, i, e, e.select, "select") ||
          !dependency(r, i, e, e.optionalFlag, "optional flag")) {
        return false;
      }
      const Type* nested = e.record != nullptr ? static_cast<const Type*>(e.record) : e.unionType;
      if (nested != nullptr && nested->curr > r.curr)
        return fail(e.line, e.name + ": nested type's CURRVERSION is above the record's");
      layout(e);
      e.fixedWidth = e.kind == Kind::kScalar && e.refer.empty();
      e.wireSize = e.fixedWidth ? e.size : 0;
      e.fixedOffset = fixed && e.since == 0;
      e.offset = offset;
      if (e.kind == Kind::kScalar && !e.array && e.since == 0) {
        offset += e.width;
      } else {
        fixed = false;
      }
      r.size += e.size;
      r.maxPack += e.maxPack;
    }
    for (FieldPath* ind : {&r.versionIndicator, &r.sizeIndicator}) {
      if (ind->empty()) continue;
      std::string message;
      if (!path(r, r.entries.size(), *ind, message))
        return fail(ind->line, "indicator " + ind->text + ": " + message);
      if (!ind->fixedOffset || ind->since != 0)
        return fail(ind->line, "indicator " + ind->text + " must sit at a fixed offset");
    }
    return true;
  }

  bool unionType(Union& u) {
    for (Member& m : u.members) {
      if (m.record != nullptr && m.record->curr > u.curr)
        return fail(m.line, m.name + ": member type's CURRVERSION is above the union's");
      layout(m);
      u.size = std::max(u.size, m.size);
      u.maxPack = std::max(u.maxPack, m.maxPack);
    }
    return true;
  }

  Schema& s_;
  std::string error_;
};

}  // namespace

bool resolveSchema(Schema& schema, std::string& error) {
  Resolver r(schema);
  return r.run(error);
}

}  // namespace vixgen
