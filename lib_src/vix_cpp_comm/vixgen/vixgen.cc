// vixgen: turns a record schema (.vix) into record classes and, when the schema asks for it, a
// metadata library. Usage: vixgen [--metalib-only] <schema.vix> <out-dir>
// Every failure is reported as "file:line: message" (or "path: message" for an output file)
// with a non-zero exit status.
#include <cstdio>
#include <cstring>
#include <string>

#include "emit.h"
#include "model.h"

int main(int argc, char** argv) {
  const bool metalibOnly = argc == 4 && std::strcmp(argv[1], "--metalib-only") == 0;
  if (argc != 3 && !metalibOnly) {
    std::fprintf(stderr, "usage: %s [--metalib-only] <schema.vix> <output-dir>\n", argv[0]);
    return 2;
  }
  const char* schemaPath = argv[argc - 2];
  const char* outDir = argv[argc - 1];
  vixgen::Schema schema;
  std::string error;
  bool ok = vixgen::parseSchema(schemaPath, schema, error);
  if (ok && metalibOnly && !schema.metalib.wanted) {
    error = std::string(schemaPath) + ":1: --metalib-only needs a metalib statement";
    ok = false;
  }
  if (ok) {
    ok = metalibOnly ? vixgen::emitMetalib(schema, outDir, error)
                     : vixgen::emitAll(schema, outDir, error);
  }
  if (!ok) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  return 0;
}
