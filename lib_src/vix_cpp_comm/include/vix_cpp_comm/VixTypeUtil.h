/*
 * VixTypeUtil.h: conversions between the compact date/time/IP values (VixTime.h) and text or
 * calendar time.
 *
 * Conventions: every function returns 0 or a negative VixError::ErrorType and leaves its output
 * untouched on failure; a null text or output pointer gives -8 (VIX_ERR_ARG_POINTER_IS_NULL).
 * Calendar conversions use the local time zone, despite the names.
 */
#ifndef VIX_CPP_COMM_VIXTYPEUTIL_H
#define VIX_CPP_COMM_VIXTYPEUTIL_H

#include <cstddef>
#include <cstdint>

#include "vix_cpp_comm/VixBufUtil.h"
#include "vix_cpp_comm/VixTime.h"

namespace kalmo_vix {

class VixTypeUtil {
 public:
  // "YYYY-MM-DD"; unparsable text or an invalid date gives -14.
  VIX_NODISCARD static int str2VixDate(uint32_t& out, const char* text);
  // "HH:MM:SS"; unparsable, hour outside -999..999, minute or second above 59 gives -13.
  VIX_NODISCARD static int str2VixTime(uint32_t& out, const char* text);
  // "YYYY-MM-DD HH:MM:SS"; any failure gives -15.
  VIX_NODISCARD static int str2VixDateTime(uint64_t& out, const char* text);
  // Dotted IPv4 text (inet_aton rules); failure gives -12.
  VIX_NODISCARD static int str2VixIP(uint32_t& out, const char* text);

  // Dotted text of ip into out; -1 when it does not fit. Always writes a NUL at out[size - 1].
  VIX_NODISCARD static int vixIp2Str(char* out, size_t size, uint32_t ip);
  // The same into the free space of a text cursor.
  VIX_NODISCARD static int vixIp2Str(VixWriteBuf& buf, uint32_t ip);

  // Seconds since the epoch to local calendar time: -16 when the conversion fails, -15 when the
  // result is not a valid date-time.
  VIX_NODISCARD static int UTC2VixDateTime(uint64_t& out, long utc);
  // Local calendar time to seconds since the epoch: -15 for an invalid or unrepresentable value.
  VIX_NODISCARD static int vixDateTime2UTC(long& out, uint64_t dateTime);

  // -1, 0 or 1 comparing year, month, day (hour, minute, second; date then time), years and
  // hours as signed numbers.
  static int compareVixDate(uint32_t a, uint32_t b);
  static int compareVixTime(uint32_t a, uint32_t b);
  static int compareVixDateTime(uint64_t a, uint64_t b);

  // Number of 16-bit units before the terminating zero (0 for null).
  static size_t wstrlen(const uint16_t* s);
};

}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXTYPEUTIL_H
