// Fuzz target: decoding a frame head.
#include <cstddef>
#include <cstdint>

#include "fuzz_check.h"
#include "tframehead_testsupport.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  zqfuzz::decodeRecodeDecode<tframehead::TFrameHead>(
      data, size, [](const tframehead::TFrameHead& h) { return static_cast<int>(h.chVer); });
  return 0;
}
