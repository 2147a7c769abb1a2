// Host byte order detection and network/host conversions.
#ifndef ZQ_COPY_QUELLD_XCORE_BYTE_ORDER_H_
#define ZQ_COPY_QUELLD_XCORE_BYTE_ORDER_H_

#include <cstdint>

namespace xcore {

typedef uint8_t uint8;
typedef uint16_t uint16;
typedef uint32_t uint32;
typedef uint64_t uint64;

class XByteOrder {
 public:
  enum TYPE { ENDIAN_UNKNOWN = 0, ENDIAN_BIG = 1, ENDIAN_LITTLE = 2 };

  // The host's byte order, determined once on the first call.
  static TYPE native_type();

  // Network (big-endian) to host order: the bytes are reversed on a little-endian host.
  static uint16 net2local(uint16 v);
  static uint32 net2local(uint32 v);
  static uint64 net2local(uint64 v);
  // Host to network order; the same operation as net2local.
  static uint16 local2net(uint16 v);
  static uint32 local2net(uint32 v);
  static uint64 local2net(uint64 v);
};

}  // namespace xcore

#endif  // ZQ_COPY_QUELLD_XCORE_BYTE_ORDER_H_
