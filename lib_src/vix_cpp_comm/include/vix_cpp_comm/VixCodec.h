/*
 * VixCodec.h: the primitives that generated record code is built from.
 *
 * Generated code keeps the cursor's pointer, position and length in local variables, checks the
 * room before every field and stores big-endian with one inline helper per width; it writes the
 * position back to the cursor only around nested calls and on return. Failures go through the
 * VIX_CODEC_FAIL / VIX_CODEC_CALL / VIX_CODEC_TRY steps below, which record the back-trace.
 * Generated headers check VIX_CPP_COMM_RUNTIME_VERSION and refuse to compile against a
 * different runtime.
 */
#ifndef VIX_CPP_COMM_VIXCODEC_H
#define VIX_CPP_COMM_VIXCODEC_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vix_cpp_comm/VixBufUtil.h"
#include "vix_cpp_comm/VixError.h"
#include "vix_cpp_comm/VixTime.h"

// Version of the contract between vixgen output and this runtime.
#define VIX_CPP_COMM_RUNTIME_VERSION 2

// The per-width primitives are always inlined: a call per field would cost more than the field.
#define VIX_CODEC_INLINE inline __attribute__((always_inline))

namespace kalmo_vix {
namespace codec {

// Big-endian stores. The caller has checked the room.
VIX_CODEC_INLINE void put_u8(char* p, uint8_t v) { p[0] = static_cast<char>(v); }
VIX_CODEC_INLINE void put_u16(char* p, uint16_t v) {
  p[0] = static_cast<char>(v >> 8);
  p[1] = static_cast<char>(v);
}
VIX_CODEC_INLINE void put_u32(char* p, uint32_t v) {
  p[0] = static_cast<char>(v >> 24);
  p[1] = static_cast<char>(v >> 16);
  p[2] = static_cast<char>(v >> 8);
  p[3] = static_cast<char>(v);
}
VIX_CODEC_INLINE void put_u64(char* p, uint64_t v) {
  put_u32(p, static_cast<uint32_t>(v >> 32));
  put_u32(p + 4, static_cast<uint32_t>(v));
}

// Big-endian loads. The caller has checked the data.
VIX_CODEC_INLINE uint8_t get_u8(const char* p) { return static_cast<uint8_t>(p[0]); }
VIX_CODEC_INLINE uint16_t get_u16(const char* p) {
  return static_cast<uint16_t>((static_cast<uint16_t>(static_cast<uint8_t>(p[0])) << 8) |
                               static_cast<uint16_t>(static_cast<uint8_t>(p[1])));
}
VIX_CODEC_INLINE uint32_t get_u32(const char* p) {
  return (static_cast<uint32_t>(static_cast<uint8_t>(p[0])) << 24) |
         (static_cast<uint32_t>(static_cast<uint8_t>(p[1])) << 16) |
         (static_cast<uint32_t>(static_cast<uint8_t>(p[2])) << 8) |
         static_cast<uint32_t>(static_cast<uint8_t>(p[3]));
}
VIX_CODEC_INLINE uint64_t get_u64(const char* p) {
  return (static_cast<uint64_t>(get_u32(p)) << 32) | static_cast<uint64_t>(get_u32(p + 4));
}

// Writes a string member of capacity cap: a 4-byte length (counting the NUL), then the text and
// its NUL. The member's last byte is forced to NUL first, so an unterminated text is cut to
// cap - 1 characters. Returns 0 or -1; after a failure pos may stand just past the length word.
VIX_NODISCARD inline int put_string(char* p, size_t& pos, size_t len, char* s, size_t cap) {
  if (len - pos < 4) return VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
  const size_t lengthPos = pos;
  pos += 4;
  s[cap - 1] = '\0';
  const size_t n = std::strlen(s) + 1;
  if (len - pos < n) return VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
  std::memcpy(p + pos, s, n);
  pos += n;
  put_u32(p + lengthPos, static_cast<uint32_t>(n));
  return 0;
}

// Reads a string member of capacity cap. Checks, in this order: data for the length word and
// the text (-2), length above the capacity (-3), length 0 (-4), the copy must end in its only
// NUL (-5).
VIX_NODISCARD inline int get_string(const char* p, size_t& pos, size_t len, char* s, size_t cap) {
  if (len - pos < 4) return VixError::VIX_ERR_SHORT_BUF_FOR_READ;
  const uint32_t n = get_u32(p + pos);
  pos += 4;
  if (n > len - pos) return VixError::VIX_ERR_SHORT_BUF_FOR_READ;
  if (n > cap) return VixError::VIX_ERR_STR_LEN_TOO_BIG;
  if (n == 0) return VixError::VIX_ERR_STR_LEN_TOO_SMALL;
  std::memcpy(s, p + pos, n);
  pos += n;
  if (s[n - 1] != '\0' || std::strlen(s) + 1 != n) return VixError::VIX_ERR_STR_LEN_CONFLICT;
  return 0;
}

// Failure paths of generated code, kept out of line and marked cold so that the straight-line
// success path stays small: record the entry in the back-trace, leave the cursor where the
// failure happened, return the error.
VIX_NODISCARD __attribute__((cold, noinline)) inline int fail_at(VixWriteBuf& buf, size_t pos,
                                                                 const char* entry,
                                                                 const char* file, int line,
                                                                 int error) {
  buf.position = pos;
  VixError::addBackTrace(entry, file, line);
  return error;
}
VIX_NODISCARD __attribute__((cold, noinline)) inline int fail_at(VixReadBuf& buf, size_t pos,
                                                                 const char* entry,
                                                                 const char* file, int line,
                                                                 int error) {
  buf.position = pos;
  VixError::addBackTrace(entry, file, line);
  return error;
}
// A nested record failed: add the enclosing entry and pass its error on.
VIX_NODISCARD __attribute__((cold, noinline)) inline int fail_nested(const char* entry,
                                                                     const char* file, int line,
                                                                     int error) {
  VixError::addBackTrace(entry, file, line);
  return error;
}

// Steps of generated bodies. They use the body's locals: the cursor `buf` and the position
// `pos`. __FILE__ and __LINE__ name the generated line in the back-trace.

// Records the failing entry, leaves the cursor where it stopped and returns the error.
#define VIX_CODEC_FAIL(entry, err) \
  return ::kalmo_vix::codec::fail_at(buf, pos, (entry), __FILE__, __LINE__, (err))

// Runs a nested record's body at the current position; on failure adds the entry and returns
// the error.
#define VIX_CODEC_CALL(entry, call)                                           \
  do {                                                                        \
    const long long vix_codec_at = (call);                                    \
    if (vix_codec_at < 0) {                                                   \
      return ::kalmo_vix::codec::fail_nested((entry), __FILE__, __LINE__,     \
                                             static_cast<int>(vix_codec_at)); \
    }                                                                         \
    pos = static_cast<size_t>(vix_codec_at);                                  \
  } while (0)

// Returns the first error of a text write.
#define VIX_CODEC_TRY(call)                       \
  do {                                            \
    const int vix_codec_ret = (call);             \
    if (vix_codec_ret != 0) return vix_codec_ret; \
  } while (0)

// Effective cut version of a record (or union): 0 and values above curr mean curr; values below
// base are refused with -9.
VIX_NODISCARD inline int cut_version(unsigned int& cutVer, unsigned int base, unsigned int curr) {
  if (cutVer == 0 || cutVer > curr) {
    cutVer = curr;
    return 0;
  }
  if (cutVer < base) return VixError::VIX_ERR_CUTVER_TOO_SMALL;
  return 0;
}

// The indent one nesting level deeper: negative indents stay as they are, so a negative indent
// renders a whole tree without indentation.
inline int deeper(int indent) { return indent < 0 ? indent : indent + 1; }

// NUL-terminates visualize text at the cursor's final position (at length - 1 when full) and
// returns the area's start; an empty constant for an area of no size.
inline const char* finish_text(VixWriteBuf& buf) {
  if (buf.beginPtr == nullptr || buf.length == 0) return "";
  const size_t end = buf.position < buf.length ? buf.position : buf.length - 1;
  buf.beginPtr[end] = '\0';
  return buf.beginPtr;
}

}  // namespace codec
}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXCODEC_H
