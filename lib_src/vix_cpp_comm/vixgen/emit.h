// vixgen: the outputs and the text helpers the emitters share.
//
// Each output file of a schema has one emitter: a function that renders the whole file from the
// resolved model (emit_<output>.cc). kOutputs lists them; emitAll writes each one.
#ifndef VIXGEN_EMIT_H
#define VIXGEN_EMIT_H

#include <cstddef>
#include <string>

#include "model.h"

namespace vixgen {

// One output file: <schema><suffix>, rendered by emit.
struct Output {
  const char* suffix;
  std::string (*emit)(const Schema& schema);
};

std::string emitHeader(const Schema& schema);       // <schema>.h: the record declarations
std::string emitSource(const Schema& schema);       // <schema>.cc: their operations
std::string emitTestSupport(const Schema& schema);  // <schema>_testsupport.h: fill and cut

// The metadata library of the schema (emit_metalib.cc): its bytes, laid out with the vix
// builder. False with "file:line: message" when the builder refuses an item (a name too long
// for the library, for instance).
bool buildMetalib(const Schema& schema, std::string& bytes, std::string& error);
// <schema>_metalib.cc: the library's bytes as an aligned array <schema>_metalib with its size
// <schema>_metalib_size (C linkage).
std::string emitMetalibSource(const Schema& schema, const std::string& bytes);

// Every output, in the order they are written.
extern const Output kOutputs[];
extern const size_t kOutputCount;

// Writes every output into outDir (a file whose content is unchanged is not touched, so its
// dependants do not rebuild), and when the schema asks for it the metadata library
// (<schema>.metalib and <schema>_metalib.cc). False with "path: message" in error when a file
// cannot be written, or the library's "file:line: message".
bool emitAll(const Schema& schema, const std::string& outDir, std::string& error);

// Writes only the metadata library: <schema>.metalib and <schema>_metalib.cc.
bool emitMetalib(const Schema& schema, const std::string& outDir, std::string& error);

// Writes text to path unless the file already holds it. False with "path: cannot write".
bool writeIfChanged(const std::string& path, const std::string& text, std::string& error);

// ---- text helpers

// The do-not-edit banner line naming the schema file.
std::string banner(const Schema& s);
std::string upper(const std::string& s);
// The name qualified with the schema's namespace ("::ns::Name" or "::Name").
std::string qualified(const Schema& s, const std::string& name);
// Suffix of the codec primitive for a width ("u8" .. "u64") and the unsigned type of that width.
std::string widthSuffix(size_t width);
std::string uintType(size_t width);
std::string quoted(const std::string& s);
// A C++ text literal of s, with escapes.
std::string cppText(const std::string& s);
// The bracketed label of a member in visualize text: "\"[name]\"".
std::string label(const Slot& s);
// The C++ member type as declared: element type, then the bracketed capacity if any.
std::string declaration(const Slot& s);

}  // namespace vixgen

#endif  // VIXGEN_EMIT_H
