#include "copy/quelld_xcore_md5.h"

#include <cstdio>
#include <cstring>

namespace xcore {

const uint8 md5_padding[64] = {0x80};

namespace {

inline uint32 Rotl(uint32 x, int s) { return (x << s) | (x >> (32 - s)); }

// One step per round. The message word and constant are added first and the terms that do not
// depend on b are formed early, so only a few operations wait for the previous step's result.
#define ZQ_MD5_STEP_F(a, b, c, d, xk, s, t) \
  (a) += (xk) + (uint32)(t);                \
  (a) += (d) ^ ((b) & ((c) ^ (d)));         \
  (a) = Rotl((a), (s)) + (b)

#define ZQ_MD5_STEP_G(a, b, c, d, xk, s, t) \
  (a) += (xk) + (uint32)(t) + ((c) & ~(d)); \
  (a) += (b) & (d);                         \
  (a) = Rotl((a), (s)) + (b)

#define ZQ_MD5_STEP_H(a, b, c, d, xk, s, t) \
  (a) += (xk) + (uint32)(t);                \
  (a) += (b) ^ ((c) ^ (d));                 \
  (a) = Rotl((a), (s)) + (b)

#define ZQ_MD5_STEP_I(a, b, c, d, xk, s, t) \
  (a) += (xk) + (uint32)(t);                \
  (a) += (c) ^ ((b) | ~(d));                \
  (a) = Rotl((a), (s)) + (b)

}  // namespace

XMD5::XMD5() { initialize(); }

void XMD5::initialize() {
  m_count[0] = 0;
  m_count[1] = 0;
  m_state[0] = 0x67452301u;
  m_state[1] = 0xEFCDAB89u;
  m_state[2] = 0x98BADCFEu;
  m_state[3] = 0x10325476u;
}

void XMD5::update(const uint8* input, uint32 inputLen) {
  if (input == nullptr) return;
  uint32 index = (m_count[0] >> 3) & 0x3F;
  const uint32 bits = inputLen << 3;
  m_count[0] += bits;
  if (m_count[0] < bits) ++m_count[1];
  m_count[1] += inputLen >> 29;

  const uint32 partLen = 64 - index;
  uint32 i = 0;
  if (inputLen >= partLen) {
    std::memcpy(&m_buffer[index], input, partLen);
    _transform(m_buffer);
    for (i = partLen; inputLen - i >= 64; i += 64) _transform(input + i);
    index = 0;
  }
  if (inputLen > i) std::memcpy(&m_buffer[index], input + i, inputLen - i);
}

void XMD5::final(unsigned char (&digest)[16]) {
  uint8 bits[8];
  _encode(bits, m_count, 2);
  const uint32 index = (m_count[0] >> 3) & 0x3F;
  const uint32 padLen = index < 56 ? 56 - index : 120 - index;
  update(md5_padding, padLen);
  update(bits, 8);
  _encode(digest, m_state, 4);
  std::memset(m_count, 0, sizeof(m_count));
  std::memset(m_state, 0, sizeof(m_state));
  std::memset(m_buffer, 0, sizeof(m_buffer));
}

std::string XMD5::final() {
  unsigned char digest[16];
  final(digest);
  char text[33];
  for (int i = 0; i < 16; ++i) std::snprintf(text + 2 * i, 3, "%02X", digest[i]);
  return std::string(text, 32);
}

void XMD5::_decode(uint32* output, const uint8* input, uint32 inputLen) {
  if (XByteOrder::native_type() == XByteOrder::ENDIAN_LITTLE) {
    std::memcpy(output, input, inputLen);
    return;
  }
  for (uint32 i = 0, j = 0; j + 4 <= inputLen; ++i, j += 4) {
    output[i] = (uint32)input[j] | ((uint32)input[j + 1] << 8) | ((uint32)input[j + 2] << 16) |
                ((uint32)input[j + 3] << 24);
  }
}

void XMD5::_encode(uint8* output, const uint32* input, uint32 inputLen) {
  if (XByteOrder::native_type() == XByteOrder::ENDIAN_LITTLE) {
    std::memcpy(output, input, (size_t)inputLen * 4);
    return;
  }
  for (uint32 i = 0, j = 0; i < inputLen; ++i, j += 4) {
    output[j] = (uint8)(input[i] & 0xFF);
    output[j + 1] = (uint8)((input[i] >> 8) & 0xFF);
    output[j + 2] = (uint8)((input[i] >> 16) & 0xFF);
    output[j + 3] = (uint8)((input[i] >> 24) & 0xFF);
  }
}

void XMD5::_transform(const uint8* block) {
  uint32 x[16];
  _decode(x, block, 64);
  uint32 a = m_state[0], b = m_state[1], c = m_state[2], d = m_state[3];

  ZQ_MD5_STEP_F(a, b, c, d, x[0], 7, 0xd76aa478);
  ZQ_MD5_STEP_F(d, a, b, c, x[1], 12, 0xe8c7b756);
  ZQ_MD5_STEP_F(c, d, a, b, x[2], 17, 0x242070db);
  ZQ_MD5_STEP_F(b, c, d, a, x[3], 22, 0xc1bdceee);
  ZQ_MD5_STEP_F(a, b, c, d, x[4], 7, 0xf57c0faf);
  ZQ_MD5_STEP_F(d, a, b, c, x[5], 12, 0x4787c62a);
  ZQ_MD5_STEP_F(c, d, a, b, x[6], 17, 0xa8304613);
  ZQ_MD5_STEP_F(b, c, d, a, x[7], 22, 0xfd469501);
  ZQ_MD5_STEP_F(a, b, c, d, x[8], 7, 0x698098d8);
  ZQ_MD5_STEP_F(d, a, b, c, x[9], 12, 0x8b44f7af);
  ZQ_MD5_STEP_F(c, d, a, b, x[10], 17, 0xffff5bb1);
  ZQ_MD5_STEP_F(b, c, d, a, x[11], 22, 0x895cd7be);
  ZQ_MD5_STEP_F(a, b, c, d, x[12], 7, 0x6b901122);
  ZQ_MD5_STEP_F(d, a, b, c, x[13], 12, 0xfd987193);
  ZQ_MD5_STEP_F(c, d, a, b, x[14], 17, 0xa679438e);
  ZQ_MD5_STEP_F(b, c, d, a, x[15], 22, 0x49b40821);

  ZQ_MD5_STEP_G(a, b, c, d, x[1], 5, 0xf61e2562);
  ZQ_MD5_STEP_G(d, a, b, c, x[6], 9, 0xc040b340);
  ZQ_MD5_STEP_G(c, d, a, b, x[11], 14, 0x265e5a51);
  ZQ_MD5_STEP_G(b, c, d, a, x[0], 20, 0xe9b6c7aa);
  ZQ_MD5_STEP_G(a, b, c, d, x[5], 5, 0xd62f105d);
  ZQ_MD5_STEP_G(d, a, b, c, x[10], 9, 0x02441453);
  ZQ_MD5_STEP_G(c, d, a, b, x[15], 14, 0xd8a1e681);
  ZQ_MD5_STEP_G(b, c, d, a, x[4], 20, 0xe7d3fbc8);
  ZQ_MD5_STEP_G(a, b, c, d, x[9], 5, 0x21e1cde6);
  ZQ_MD5_STEP_G(d, a, b, c, x[14], 9, 0xc33707d6);
  ZQ_MD5_STEP_G(c, d, a, b, x[3], 14, 0xf4d50d87);
  ZQ_MD5_STEP_G(b, c, d, a, x[8], 20, 0x455a14ed);
  ZQ_MD5_STEP_G(a, b, c, d, x[13], 5, 0xa9e3e905);
  ZQ_MD5_STEP_G(d, a, b, c, x[2], 9, 0xfcefa3f8);
  ZQ_MD5_STEP_G(c, d, a, b, x[7], 14, 0x676f02d9);
  ZQ_MD5_STEP_G(b, c, d, a, x[12], 20, 0x8d2a4c8a);

  ZQ_MD5_STEP_H(a, b, c, d, x[5], 4, 0xfffa3942);
  ZQ_MD5_STEP_H(d, a, b, c, x[8], 11, 0x8771f681);
  ZQ_MD5_STEP_H(c, d, a, b, x[11], 16, 0x6d9d6122);
  ZQ_MD5_STEP_H(b, c, d, a, x[14], 23, 0xfde5380c);
  ZQ_MD5_STEP_H(a, b, c, d, x[1], 4, 0xa4beea44);
  ZQ_MD5_STEP_H(d, a, b, c, x[4], 11, 0x4bdecfa9);
  ZQ_MD5_STEP_H(c, d, a, b, x[7], 16, 0xf6bb4b60);
  ZQ_MD5_STEP_H(b, c, d, a, x[10], 23, 0xbebfbc70);
  ZQ_MD5_STEP_H(a, b, c, d, x[13], 4, 0x289b7ec6);
  ZQ_MD5_STEP_H(d, a, b, c, x[0], 11, 0xeaa127fa);
  ZQ_MD5_STEP_H(c, d, a, b, x[3], 16, 0xd4ef3085);
  ZQ_MD5_STEP_H(b, c, d, a, x[6], 23, 0x04881d05);
  ZQ_MD5_STEP_H(a, b, c, d, x[9], 4, 0xd9d4d039);
  ZQ_MD5_STEP_H(d, a, b, c, x[12], 11, 0xe6db99e5);
  ZQ_MD5_STEP_H(c, d, a, b, x[15], 16, 0x1fa27cf8);
  ZQ_MD5_STEP_H(b, c, d, a, x[2], 23, 0xc4ac5665);

  ZQ_MD5_STEP_I(a, b, c, d, x[0], 6, 0xf4292244);
  ZQ_MD5_STEP_I(d, a, b, c, x[7], 10, 0x432aff97);
  ZQ_MD5_STEP_I(c, d, a, b, x[14], 15, 0xab9423a7);
  ZQ_MD5_STEP_I(b, c, d, a, x[5], 21, 0xfc93a039);
  ZQ_MD5_STEP_I(a, b, c, d, x[12], 6, 0x655b59c3);
  ZQ_MD5_STEP_I(d, a, b, c, x[3], 10, 0x8f0ccc92);
  ZQ_MD5_STEP_I(c, d, a, b, x[10], 15, 0xffeff47d);
  ZQ_MD5_STEP_I(b, c, d, a, x[1], 21, 0x85845dd1);
  ZQ_MD5_STEP_I(a, b, c, d, x[8], 6, 0x6fa87e4f);
  ZQ_MD5_STEP_I(d, a, b, c, x[15], 10, 0xfe2ce6e0);
  ZQ_MD5_STEP_I(c, d, a, b, x[6], 15, 0xa3014314);
  ZQ_MD5_STEP_I(b, c, d, a, x[13], 21, 0x4e0811a1);
  ZQ_MD5_STEP_I(a, b, c, d, x[4], 6, 0xf7537e82);
  ZQ_MD5_STEP_I(d, a, b, c, x[11], 10, 0xbd3af235);
  ZQ_MD5_STEP_I(c, d, a, b, x[2], 15, 0x2ad7d2bb);
  ZQ_MD5_STEP_I(b, c, d, a, x[9], 21, 0xeb86d391);

  m_state[0] += a;
  m_state[1] += b;
  m_state[2] += c;
  m_state[3] += d;
}

void md5(const void* src, uint32 size, unsigned char (&digest)[16]) {
  std::memset(digest, 0, sizeof(digest));
  if (src == nullptr) size = 0;
  XMD5 ctx;
  ctx.update(static_cast<const uint8*>(src), size);
  ctx.final(digest);
}

std::string md5(const void* src, uint32 size) {
  if (src == nullptr) size = 0;
  XMD5 ctx;
  ctx.update(static_cast<const uint8*>(src), size);
  return ctx.final();
}

}  // namespace xcore
