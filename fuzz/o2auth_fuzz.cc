// Fuzz target: decoding an OAuth token bundle.
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "o2auth_data_testsupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zqfuzz::decodeRecodeDecode<KALMOO2UnifiedAuth>(data, size,
                                                 [](const KALMOO2UnifiedAuth&) { return 0; });
  return 0;
}
