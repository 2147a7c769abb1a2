// vixgen: code emission.
#ifndef VIXGEN_EMIT_H
#define VIXGEN_EMIT_H

#include <string>

#include "schema.h"

namespace vixgen {

// Writes <outDir>/<schema>.h, <schema>.cc and <schema>_testsupport.h (files whose content is
// unchanged are not touched, so dependants do not rebuild). False with a message on failure.
bool emitAll(const Schema& schema, const std::string& outDir, std::string& error);

}  // namespace vixgen

#endif  // VIXGEN_EMIT_H
