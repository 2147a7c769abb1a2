// vixgen: the in-memory model of a record schema and its parser.
#ifndef VIXGEN_SCHEMA_H
#define VIXGEN_SCHEMA_H

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace vixgen {

// How an integer-like type is printed by visualize.
enum class Print { kHex8, kDec, kUdec, kDec64, kUdec64, kDate, kTime, kDateTime, kIp };

struct Scalar {
  const char* name;   // schema spelling
  const char* ctype;  // C++ member type
  int width;          // wire bytes
  bool isSigned;
  Print print;
};

// Looks a scalar type up by its schema name; null when it is not one.
const Scalar* findScalar(const std::string& name);

enum class Kind { kScalar, kString, kBytes, kRecord, kUnion };

struct Type;

struct Entry {
  int line = 0;
  Kind kind = Kind::kScalar;
  const Scalar* scalar = nullptr;  // kScalar
  Type* type = nullptr;            // kRecord / kUnion
  std::string name;
  bool array = false;   // scalar or record array
  long long cap = 0;    // array capacity, string/bytes capacity
  std::string capText;  // capacity as written (a constant name or a number)
  unsigned since = 0;   // 0: present from the base version
  std::string refer;    // refer path (arrays, bytes)
  bool unchecked = false;
  std::string optionalFlag;  // optional record: its flag entry
  std::string select;        // union entry: its selector path
  bool hasDefault = false;
  bool defaultIsText = false;
  std::string defaultText;  // C++ spelling of the default (number, constant name or text)
  // union members
  bool isDefaultMember = false;
  long long id = 0;
  std::string idText;
};

struct Type {
  bool isUnion = false;
  std::string name;
  unsigned base = 0;
  unsigned curr = 0;
  int line = 0;
  std::vector<Entry> entries;
  std::string versionIndicator;
  std::string sizeIndicator;
  size_t size = 0;     // sizeof of the packed structure
  size_t maxPack = 0;  // largest encoding
};

struct Constant {
  std::string name;
  long long value = 0;
  std::string enumName;  // empty for a plain constant
};

struct Schema {
  std::string name;
  std::string ns;  // empty: global scope
  std::string file;
  std::vector<Constant> constants;
  std::vector<std::string> enums;  // enum names in order (their members are in constants)
  std::vector<std::unique_ptr<Type>> types;
  std::map<std::string, Type*> byName;
};

// Facts about an integer field reached through a (possibly dotted) path.
struct PathInfo {
  const Scalar* scalar = nullptr;
  bool fixedOffset = false;
  size_t offset = 0;   // byte offset on the wire from the record's start, when fixedOffset
  unsigned since = 0;  // since of the path's first component
};

// Resolves path inside t; the first component must be among the first `before` entries.
bool resolvePath(const Type& t, size_t before, const std::string& path, PathInfo& out,
                 std::string& error);

// Parses and checks a schema file. On failure returns false with "file:line: message" in error.
bool parseSchema(const std::string& file, Schema& schema, std::string& error);

}  // namespace vixgen

#endif  // VIXGEN_SCHEMA_H
