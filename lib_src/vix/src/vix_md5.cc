// MD5 message digest (RFC 1321) and its hexadecimal text form.

#include "vix/vix_types.h"
#include "vix_internal.h"

namespace {

inline uint32_t rotl_i(uint32_t x, int n) { return (x << n) | (x >> (32 - n)); }

inline uint32_t load_le32_i(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline void store_le32_i(uint8_t* p, uint32_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
  p[2] = static_cast<uint8_t>(v >> 16);
  p[3] = static_cast<uint8_t>(v >> 24);
}

// Per-round shift amounts and the sine-derived constants of RFC 1321, section 3.4.
const int kShift[64] = {7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22, 7, 12, 17, 22,
                        5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20, 5, 9,  14, 20,
                        4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23, 4, 11, 16, 23,
                        6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21, 6, 10, 15, 21};
const uint32_t kSine[64] = {
    0xd76aa478, 0xe8c7b756, 0x242070db, 0xc1bdceee, 0xf57c0faf, 0x4787c62a, 0xa8304613, 0xfd469501,
    0x698098d8, 0x8b44f7af, 0xffff5bb1, 0x895cd7be, 0x6b901122, 0xfd987193, 0xa679438e, 0x49b40821,
    0xf61e2562, 0xc040b340, 0x265e5a51, 0xe9b6c7aa, 0xd62f105d, 0x02441453, 0xd8a1e681, 0xe7d3fbc8,
    0x21e1cde6, 0xc33707d6, 0xf4d50d87, 0x455a14ed, 0xa9e3e905, 0xfcefa3f8, 0x676f02d9, 0x8d2a4c8a,
    0xfffa3942, 0x8771f681, 0x6d9d6122, 0xfde5380c, 0xa4beea44, 0x4bdecfa9, 0xf6bb4b60, 0xbebfbc70,
    0x289b7ec6, 0xeaa127fa, 0xd4ef3085, 0x04881d05, 0xd9d4d039, 0xe6db99e5, 0x1fa27cf8, 0xc4ac5665,
    0xf4292244, 0x432aff97, 0xab9423a7, 0xfc93a039, 0x655b59c3, 0x8f0ccc92, 0xffeff47d, 0x85845dd1,
    0x6fa87e4f, 0xfe2ce6e0, 0xa3014314, 0x4e0811a1, 0xf7537e82, 0xbd3af235, 0x2ad7d2bb, 0xeb86d391};

void transform_i(uint32_t adwState[4], const uint8_t* pbBlock) {
  uint32_t x[16];
  for (int i = 0; i < 16; ++i) x[i] = load_le32_i(pbBlock + 4 * i);
  uint32_t a = adwState[0], b = adwState[1], c = adwState[2], d = adwState[3];
  for (int i = 0; i < 64; ++i) {
    uint32_t f;
    int g;
    if (i < 16) {
      f = (b & c) | (~b & d);
      g = i;
    } else if (i < 32) {
      f = (d & b) | (~d & c);
      g = (5 * i + 1) % 16;
    } else if (i < 48) {
      f = b ^ c ^ d;
      g = (3 * i + 5) % 16;
    } else {
      f = c ^ (b | ~d);
      g = (7 * i) % 16;
    }
    const uint32_t tmp = d;
    d = c;
    c = b;
    b = b + rotl_i(a + f + kSine[i] + x[g], kShift[i]);
    a = tmp;
  }
  adwState[0] += a;
  adwState[1] += b;
  adwState[2] += c;
  adwState[3] += d;
}

int hex_value_i(char ch) {
  if (ch >= '0' && ch <= '9') return ch - '0';
  if (ch >= 'a' && ch <= 'f') return ch - 'a' + 10;
  if (ch >= 'A' && ch <= 'F') return ch - 'A' + 10;
  return -1;
}

}  // namespace

void vix_md5_init(VIXMD5CTX* pstCtx) {
  pstCtx->adwState[0] = 0x67452301;
  pstCtx->adwState[1] = 0xefcdab89;
  pstCtx->adwState[2] = 0x98badcfe;
  pstCtx->adwState[3] = 0x10325476;
  pstCtx->ullBits = 0;
}

void vix_md5_update(VIXMD5CTX* pstCtx, const void* pvData, size_t iLen) {
  const uint8_t* p = static_cast<const uint8_t*>(pvData);
  size_t iHave = static_cast<size_t>((pstCtx->ullBits >> 3) & 63);
  pstCtx->ullBits += static_cast<uint64_t>(iLen) << 3;
  if (iHave > 0) {
    const size_t iTake = iLen < 64 - iHave ? iLen : 64 - iHave;
    memcpy(pstCtx->abBuff + iHave, p, iTake);
    iHave += iTake;
    p += iTake;
    iLen -= iTake;
    if (iHave < 64) return;
    transform_i(pstCtx->adwState, pstCtx->abBuff);
  }
  for (; iLen >= 64; p += 64, iLen -= 64) transform_i(pstCtx->adwState, p);
  if (iLen > 0) memcpy(pstCtx->abBuff, p, iLen);
}

void vix_md5_final(uint8_t abDigest[VIX_MD5_DIGEST_LEN], VIXMD5CTX* pstCtx) {
  uint8_t abLength[8];
  const uint64_t ullBits = pstCtx->ullBits;
  for (int i = 0; i < 8; ++i) abLength[i] = static_cast<uint8_t>(ullBits >> (8 * i));
  // Pad with 0x80 and zeros to 56 bytes modulo 64, then append the bit length.
  static const uint8_t kPadding[64] = {0x80};
  const size_t iHave = static_cast<size_t>((ullBits >> 3) & 63);
  const size_t iPad = iHave < 56 ? 56 - iHave : 120 - iHave;
  vix_md5_update(pstCtx, kPadding, iPad);
  vix_md5_update(pstCtx, abLength, 8);
  for (int i = 0; i < 4; ++i) store_le32_i(abDigest + 4 * i, pstCtx->adwState[i]);
  memset(pstCtx, 0, sizeof(*pstCtx));
}

void vix_md5hash_buffer(uint8_t abDigest[VIX_MD5_DIGEST_LEN], const void* pvData, size_t iLen) {
  VIXMD5CTX stCtx;
  vix_md5_init(&stCtx);
  vix_md5_update(&stCtx, pvData, iLen);
  vix_md5_final(abDigest, &stCtx);
}

char* vix_md5hash2str(const uint8_t abDigest[VIX_MD5_DIGEST_LEN], char* pszText, size_t iSize) {
  if (abDigest == nullptr || pszText == nullptr || iSize < VIX_MD5_STR_LEN) return nullptr;
  static const char kHex[] = "0123456789abcdef";
  for (int i = 0; i < VIX_MD5_DIGEST_LEN; ++i) {
    pszText[2 * i] = kHex[abDigest[i] >> 4];
    pszText[2 * i + 1] = kHex[abDigest[i] & 15];
  }
  pszText[2 * VIX_MD5_DIGEST_LEN] = '\0';
  return pszText;
}

int vix_str2md5hash(const char* pszText, uint8_t abDigest[VIX_MD5_DIGEST_LEN]) {
  if (pszText == nullptr || abDigest == nullptr) return VIX_ERROR_INVALID_PARAM;
  uint8_t abValue[VIX_MD5_DIGEST_LEN];
  for (int i = 0; i < VIX_MD5_DIGEST_LEN; ++i) {
    const int hi = hex_value_i(pszText[2 * i]);
    const int lo = hi < 0 ? -1 : hex_value_i(pszText[2 * i + 1]);
    if (lo < 0) return VIX_ERROR_BAD_DIGEST_TEXT;
    abValue[i] = static_cast<uint8_t>(hi << 4 | lo);
  }
  if (pszText[2 * VIX_MD5_DIGEST_LEN] != '\0') return VIX_ERROR_BAD_DIGEST_TEXT;
  memcpy(abDigest, abValue, sizeof(abValue));
  return 0;
}
