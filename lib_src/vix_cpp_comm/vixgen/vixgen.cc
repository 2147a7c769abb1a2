// vixgen: turns a record schema (.vix) into record classes. Usage: vixgen <schema.vix> <out-dir>
// Every failure is reported as "file:line: message" (or "path: message" for an output file)
// with a non-zero exit status.
#include <cstdio>
#include <string>

#include "emit.h"
#include "model.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s <schema.vix> <output-dir>\n", argv[0]);
    return 2;
  }
  vixgen::Schema schema;
  std::string error;
  if (!vixgen::parseSchema(argv[1], schema, error) || !vixgen::emitAll(schema, argv[2], error)) {
    std::fprintf(stderr, "%s\n", error.c_str());
    return 1;
  }
  return 0;
}
