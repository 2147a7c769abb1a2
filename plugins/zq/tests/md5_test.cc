// MD5 digest, byte-order helper and shared file.
#include <algorithm>
#include <cstring>
#include <string>

#include "copy/quelld_shared_file.h"
#include "copy/quelld_xcore_byte_order.h"
#include "copy/quelld_xcore_md5.h"
#include "zq_test/support.h"

namespace {

const char kEmpty[] = "D41D8CD98F00B204E9800998ECF8427E";

std::string Md5Text(const std::string& s) {
  return xcore::md5(s.data(), static_cast<xcore::uint32>(s.size()));
}

TEST(XMD5, KnownDigestsWholeAndPiecewise) {
  const std::pair<std::string, const char*> cases[] = {
      {"", kEmpty},
      {"a", "0CC175B9C0F1B6A831C399E269772661"},
      {"abc", "900150983CD24FB0D6963F7D28E17F72"},
      {"message digest", "F96B697D7CB7938D525A2F31AAF161D0"},
      {"abcdefghijklmnopqrstuvwxyz", "C3FCD3D76192E4007DFB496CCA67E13B"},
      {"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789",
       "D174AB98D277D9F5A5611C2C9F419D9F"},
      {"12345678901234567890123456789012345678901234567890123456789012345678901234567890",
       "57EDF4A22BE3C955AC49DA2E2107B67A"},
      // Around the 56-byte padding threshold and the 64-byte block.
      {std::string(55, 'a'), "EF1772B6DFF9A122358552954AD0DF65"},
      {std::string(56, 'a'), "3B0C8AC703F828B04C6C197006D17218"},
      {std::string(64, 'a'), "014842D480B571495A4A0363793F7367"},
      {std::string(1000000, 'a'), "7707D6AE4E027C70EEA2A935C2296F21"},
  };
  // In one piece, and in pieces that end inside, at and across the 64-byte blocks.
  for (const auto& c : cases) {
    EXPECT_EQ(Md5Text(c.first), c.second) << c.first.size();
    for (size_t step : {1u, 3u, 63u, 64u, 65u, 200u}) {
      xcore::XMD5 ctx;
      for (size_t pos = 0; pos < c.first.size(); pos += step) {
        const size_t n = std::min(step, c.first.size() - pos);
        ctx.update(reinterpret_cast<const xcore::uint8*>(c.first.data()) + pos,
                   static_cast<xcore::uint32>(n));
      }
      EXPECT_EQ(ctx.final(), c.second) << c.first.size() << " in pieces of " << step;
    }
  }
}

// A null input digests as empty; a second final digests from the zeroed state (the empty input
// compressed from all-zero chaining words) until initialize.
TEST(XMD5, NullInputAndStateAfterFinal) {
  EXPECT_EQ(xcore::md5(nullptr, 5), kEmpty);
  unsigned char digest[16];
  std::memset(digest, 0xAB, sizeof(digest));
  xcore::md5(nullptr, 5, digest);
  EXPECT_EQ(
      std::memcmp(digest, "\xD4\x1D\x8C\xD9\x8F\x00\xB2\x04\xE9\x80\x09\x98\xEC\xF8\x42\x7E", 16),
      0);
  xcore::XMD5 ctx;
  ctx.update(reinterpret_cast<const xcore::uint8*>("ab"), 2);
  ctx.update(nullptr, 100);  // ignored
  ctx.update(reinterpret_cast<const xcore::uint8*>("c"), 1);
  EXPECT_EQ(ctx.final(), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(ctx.final(), "B0E641C998CC3EAE6FA2F8726D98CDDD");
  ctx.initialize();
  EXPECT_EQ(ctx.final(), kEmpty);
  // The byte-order helper the digest reads its words with.
  EXPECT_EQ(xcore::XByteOrder::native_type(), xcore::XByteOrder::ENDIAN_LITTLE);
  EXPECT_EQ(xcore::XByteOrder::net2local(static_cast<xcore::uint16>(0x1234)), 0x3412);
  EXPECT_EQ(xcore::XByteOrder::net2local(static_cast<xcore::uint32>(0x12345678u)), 0x78563412u);
  EXPECT_EQ(xcore::XByteOrder::local2net(static_cast<xcore::uint64>(0x0102030405060708ull)),
            0x0807060504030201ull);
}

TEST(SharedFile, DigestsRegularFilesOnly) {
  zq_test::TempDir dir;
  std::string content(100000, '\0');
  for (size_t i = 0; i < content.size(); ++i) content[i] = static_cast<char>(i * 7 + i / 251);
  zq_test::WriteFile(dir.path() + "/f.bin", content);
  SharedFile file(dir.path() + "/f.bin");
  EXPECT_EQ(file.Size(), content.size());
  EXPECT_EQ(file.MD5(), Md5Text(content));
  EXPECT_EQ(file.MD5(), Md5Text(content));  // repeatable

  // Empty, missing and directory: size 0 and the empty text, not the digest of the empty input.
  zq_test::WriteFile(dir.path() + "/empty", "");
  for (const std::string name : {"/empty", "/missing", ""}) {
    SharedFile other(dir.path() + name);
    EXPECT_EQ(other.Size(), 0u) << name;
    EXPECT_EQ(other.MD5(), "") << name;
  }
}

}  // namespace
