// Fuzz target: decoding a client frame (head with its extension, then the command's body).
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "nhp_testsupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zqfuzz::decodeRecodeDecode<nhp::TNHPInFrame>(data, size, [](const nhp::TNHPInFrame&) { return 0u; });
  zqfuzz::decodeRecodeDecode<nhp::TNHPHead>(
      data, size, [](const nhp::TNHPHead& h) { return static_cast<unsigned int>(h.stBase.wHeadVersion); });
  return 0;
}
