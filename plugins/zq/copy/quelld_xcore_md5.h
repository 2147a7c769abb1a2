// MD5 message digest (RFC 1321).
#ifndef ZQ_COPY_QUELLD_XCORE_MD5_H_
#define ZQ_COPY_QUELLD_XCORE_MD5_H_

#include <string>

#include "copy/quelld_xcore_byte_order.h"

namespace xcore {

// 0x80 followed by 63 zero bytes: the padding appended before the length.
extern const uint8 md5_padding[64];

class XMD5 {
 public:
  XMD5();

  // Starts a new digest: bit count 0, RFC 1321 initial chaining words.
  void initialize();
  // Adds inputLen bytes. A null input is ignored.
  void update(const uint8* input, uint32 inputLen);
  // Pads, writes the 16-byte digest and wipes the object (count, state and buffer all zero).
  // Call initialize() before using the object again.
  void final(unsigned char (&digest)[16]);
  // The same, as 32 upper-case hexadecimal characters.
  std::string final();

 private:
  void _transform(const uint8* block);
  // inputLen counts bytes; word i is built from bytes 4i..4i+3, least significant first.
  static void _decode(uint32* output, const uint8* input, uint32 inputLen);
  // inputLen counts 32-bit words; each word is written least significant byte first.
  static void _encode(uint8* output, const uint32* input, uint32 inputLen);

  uint32 m_count[2];   // number of input bits, low word first
  uint32 m_state[4];   // chaining words A, B, C, D
  uint8 m_buffer[64];  // partial input block
};

// Digest of size bytes at src into digest (cleared first). A null src is the empty input.
void md5(const void* src, uint32 size, unsigned char (&digest)[16]);
// The same as 32 upper-case hexadecimal characters.
std::string md5(const void* src, uint32 size);

}  // namespace xcore

#endif  // ZQ_COPY_QUELLD_XCORE_MD5_H_
