// vixgen: the model of a record schema. The parser fills it from the schema text, the resolve
// pass completes it (every path, width, offset and size) and the emitters only read it: an
// emitter never looks a name up again and never meets an error.
#ifndef VIXGEN_MODEL_H
#define VIXGEN_MODEL_H

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

struct Record;
struct Union;

// A path to an integer field (refer, optional flag, select, indicator): as written, and what it
// names once resolved.
struct FieldPath {
  std::string text;  // "bCount" or "stBase.wKind"; empty when the option is absent
  int line = 0;      // schema line where the path is written
  // Resolved:
  const Scalar* scalar = nullptr;  // the integer field it names
  bool fixedOffset = false;        // every entry before it on the path is a fixed-width integer
  size_t offset = 0;               // its wire offset from the record's start, when fixedOffset
  unsigned since = 0;              // since of the path's first component

  bool empty() const { return text.empty(); }
};

// What a record entry or a union member holds.
struct Slot {
  int line = 0;
  std::string name;
  Kind kind = Kind::kScalar;
  const Scalar* scalar = nullptr;    // kScalar
  const Record* record = nullptr;    // kRecord
  const Union* unionType = nullptr;  // kUnion (record entries only)
  bool array = false;                // array of scalars or records
  long long cap = 0;                 // capacity of an array, a string or a byte block
  std::string capText;               // capacity as written (a constant name or a number)
  unsigned since = 0;                // 0: present from the base version
  // Metadata library only (the record classes ignore these):
  std::string element;  // entry name in the library ("as ELEMENT"); empty: the member name
  std::string desc;     // "desc TEXT"
  std::string group;    // "group ENUM": the enum naming the integer's values
  // Resolved:
  std::string ctype;   // C++ type of the member, or of one element: "uint16_t", "char", "GdPoint"
  size_t width = 0;    // wire bytes of one scalar (element); 0 for other kinds
  size_t count = 1;    // elements of the member: the capacity of arrays, strings and byte blocks
  size_t size = 0;     // sizeof of the member
  size_t maxPack = 0;  // largest encoding of the member

  // The member is declared with brackets (arrays, strings, byte blocks).
  bool bracketed() const { return array || kind == Kind::kString || kind == Kind::kBytes; }
  // The entry's name in a metadata library.
  const std::string& elementName() const { return element.empty() ? name : element; }
};

// One entry of a record.
struct Entry : Slot {
  FieldPath refer;         // arrays and byte blocks: the element / byte count
  bool unchecked = false;  // refer ... unchecked: pack does not check the capacity
  FieldPath optionalFlag;  // optional record: its 0/1 flag
  FieldPath select;        // union entry: its selector
  bool hasDefault = false;
  bool defaultIsText = false;
  std::string defaultText;     // C++ spelling of the default (number, constant name or text)
  long long defaultValue = 0;  // the number of an integer default
  // Resolved:
  bool fixedWidth = false;   // an integer (or fixed integer array) whose encoding never varies
  size_t wireSize = 0;       // its bytes on the wire, when fixedWidth
  bool fixedOffset = false;  // every earlier entry is a single integer present from the base
  size_t offset = 0;         // wire offset from the record's start, when fixedOffset

  // The path counting this entry's elements (refer or optional flag; empty when neither) and
  // the largest count it may hold.
  const FieldPath& countPath() const { return optionalFlag.empty() ? refer : optionalFlag; }
  long long countCap() const { return optionalFlag.empty() ? cap : 1; }
};

// One member of a union.
struct Member : Slot {
  bool isDefault = false;  // chosen for every selector value no id names
  long long id = 0;        // selector value, unless isDefault
  std::string idText;      // as written
};

struct Type {
  virtual ~Type() = default;
  bool isUnion = false;
  std::string name;
  unsigned base = 0;  // BASEVERSION
  unsigned curr = 0;  // CURRVERSION
  int line = 0;
  std::string desc;  // "desc TEXT" inside the body (metadata library only)
  // Resolved:
  size_t size = 0;     // sizeof of the packed structure
  size_t maxPack = 0;  // largest encoding
};

struct Record : Type {
  std::vector<Entry> entries;
  FieldPath versionIndicator;
  FieldPath sizeIndicator;
};

struct Union : Type {
  std::vector<Member> members;
  // The default member, or null.
  const Member* defaultMember() const {
    for (const Member& m : members) {
      if (m.isDefault) return &m;
    }
    return nullptr;
  }
};

struct Constant {
  std::string name;
  long long value = 0;
  std::string enumName;  // empty for a plain constant
};

// The "metalib" header statement: the schema also compiles to a metadata library.
struct MetalibOptions {
  bool wanted = false;
  bool packed = false;  // packed: no padding, like the record classes; natural: C alignment
  long long id = 0;
  long long version = 1;
  int line = 0;
};

struct Schema {
  std::string name;
  std::string ns;  // empty: global scope
  std::string file;
  MetalibOptions metalib;
  std::vector<Constant> constants;
  std::vector<std::string> enums;            // enum names in order (their members are constants)
  std::vector<std::unique_ptr<Type>> types;  // records and unions in schema order
  std::map<std::string, Type*> byName;
};

inline const Record& asRecord(const Type& t) { return static_cast<const Record&>(t); }
inline const Union& asUnion(const Type& t) { return static_cast<const Union&>(t); }

// Reads a schema file into the model, without resolving it (parse.cc). On failure returns false
// with "file:line: message" in error.
bool parseSchemaText(const std::string& file, Schema& schema, std::string& error);

// Resolves every path, width, offset and size of a parsed schema and checks the rules that span
// entries (resolve.cc). On failure returns false with "file:line: message" in error.
bool resolveSchema(Schema& schema, std::string& error);

// Both steps: a schema ready for the emitters.
inline bool parseSchema(const std::string& file, Schema& schema, std::string& error) {
  return parseSchemaText(file, schema, error) && resolveSchema(schema, error);
}

}  // namespace vixgen

#endif  // VIXGEN_MODEL_H
