#include "copy/quelld_xcore_byte_order.h"

#include <cstring>

namespace xcore {

namespace {

XByteOrder::TYPE DetectByteOrder() {
  const uint32 probe = 0x01020304u;
  uint8 bytes[sizeof(probe)];
  std::memcpy(bytes, &probe, sizeof(probe));
  if (bytes[0] == 0x04 && bytes[3] == 0x01) return XByteOrder::ENDIAN_LITTLE;
  if (bytes[0] == 0x01 && bytes[3] == 0x04) return XByteOrder::ENDIAN_BIG;
  return XByteOrder::ENDIAN_UNKNOWN;
}

}  // namespace

XByteOrder::TYPE XByteOrder::native_type() {
  static const TYPE type = DetectByteOrder();  // one-time initialisation, thread-safe
  return type;
}

uint16 XByteOrder::net2local(uint16 v) {
  return native_type() == ENDIAN_LITTLE ? __builtin_bswap16(v) : v;
}

uint32 XByteOrder::net2local(uint32 v) {
  return native_type() == ENDIAN_LITTLE ? __builtin_bswap32(v) : v;
}

uint64 XByteOrder::net2local(uint64 v) {
  return native_type() == ENDIAN_LITTLE ? __builtin_bswap64(v) : v;
}

uint16 XByteOrder::local2net(uint16 v) { return net2local(v); }
uint32 XByteOrder::local2net(uint32 v) { return net2local(v); }
uint64 XByteOrder::local2net(uint64 v) { return net2local(v); }

}  // namespace xcore
