// Fuzz target: decoding a client frame (head with its extension, then the command's body).
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "nhp_testsupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  // The whole frame re-packs at the current version only when its head was cut to the current
  // version too (pack states one version for both).
  zqfuzz::decodeRecodeDecode<nhp::TNHPInFrame>(data, size, [](const nhp::TNHPInFrame& f) {
    return f.stHead.stBase.wHeadVersion == nhp::TNHPHead::CURRVERSION ? 0 : -1;
  });
  zqfuzz::decodeRecodeDecode<nhp::TNHPHead>(
      data, size, [](const nhp::TNHPHead& h) { return static_cast<int>(h.stBase.wHeadVersion); });
  return 0;
}
