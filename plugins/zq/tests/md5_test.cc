// MD5 digest, byte-order helper and shared file.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "copy/quelld_shared_file.h"
#include "copy/quelld_xcore_byte_order.h"
#include "copy/quelld_xcore_md5.h"
#include "test_util.h"

namespace {

std::string Md5Text(const std::string& s) { return xcore::md5(s.data(), static_cast<xcore::uint32>(s.size())); }

TEST(XMD5, Rfc1321TestSuite) {
  EXPECT_EQ(Md5Text(""), "D41D8CD98F00B204E9800998ECF8427E");
  EXPECT_EQ(Md5Text("a"), "0CC175B9C0F1B6A831C399E269772661");
  EXPECT_EQ(Md5Text("abc"), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(Md5Text("message digest"), "F96B697D7CB7938D525A2F31AAF161D0");
  EXPECT_EQ(Md5Text("abcdefghijklmnopqrstuvwxyz"), "C3FCD3D76192E4007DFB496CCA67E13B");
  EXPECT_EQ(Md5Text("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"),
            "D174AB98D277D9F5A5611C2C9F419D9F");
  EXPECT_EQ(Md5Text("12345678901234567890123456789012345678901234567890123456789012345678901234567890"),
            "57EDF4A22BE3C955AC49DA2E2107B67A");
}

TEST(XMD5, PaddingBoundaries) {
  // Lengths around the 56-byte padding threshold and the 64-byte block.
  EXPECT_EQ(Md5Text(std::string(55, 'a')), "EF1772B6DFF9A122358552954AD0DF65");
  EXPECT_EQ(Md5Text(std::string(56, 'a')), "3B0C8AC703F828B04C6C197006D17218");
  EXPECT_EQ(Md5Text(std::string(64, 'a')), "014842D480B571495A4A0363793F7367");
  EXPECT_EQ(Md5Text(std::string(1000000, 'a')), "7707D6AE4E027C70EEA2A935C2296F21");
}

TEST(XMD5, PiecewiseUpdateEqualsOneShot) {
  std::string data(1000, '\0');
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31 + 7);
  const std::string whole = Md5Text(data);
  for (size_t step : {1u, 3u, 63u, 64u, 65u, 200u}) {
    xcore::XMD5 ctx;
    for (size_t pos = 0; pos < data.size(); pos += step) {
      const size_t n = std::min(step, data.size() - pos);
      ctx.update(reinterpret_cast<const xcore::uint8*>(data.data()) + pos, static_cast<xcore::uint32>(n));
    }
    EXPECT_EQ(ctx.final(), whole) << "step " << step;
  }
}

TEST(XMD5, NullInputIsEmpty) {
  EXPECT_EQ(xcore::md5(nullptr, 5), "D41D8CD98F00B204E9800998ECF8427E");
  unsigned char digest[16];
  std::memset(digest, 0xAB, sizeof(digest));
  xcore::md5(nullptr, 5, digest);
  const unsigned char empty[16] = {0xD4, 0x1D, 0x8C, 0xD9, 0x8F, 0x00, 0xB2, 0x04,
                                   0xE9, 0x80, 0x09, 0x98, 0xEC, 0xF8, 0x42, 0x7E};
  EXPECT_EQ(std::memcmp(digest, empty, 16), 0);

  xcore::XMD5 ctx;
  ctx.update(reinterpret_cast<const xcore::uint8*>("ab"), 2);
  ctx.update(nullptr, 100);  // ignored
  ctx.update(reinterpret_cast<const xcore::uint8*>("c"), 1);
  EXPECT_EQ(ctx.final(), "900150983CD24FB0D6963F7D28E17F72");
}

TEST(XMD5, FinalWipesStateUntilInitialize) {
  xcore::XMD5 ctx;
  ctx.update(reinterpret_cast<const xcore::uint8*>("abc"), 3);
  EXPECT_EQ(ctx.final(), "900150983CD24FB0D6963F7D28E17F72");
  // A second final digests from the zeroed state, not from the initial chaining words.
  // (the empty input compressed from all-zero chaining words)
  EXPECT_EQ(ctx.final(), "B0E641C998CC3EAE6FA2F8726D98CDDD");
  ctx.initialize();
  EXPECT_EQ(ctx.final(), "D41D8CD98F00B204E9800998ECF8427E");
}

TEST(XByteOrder, ConvertsBetweenNetworkAndHost) {
  EXPECT_EQ(xcore::XByteOrder::native_type(), xcore::XByteOrder::ENDIAN_LITTLE);
  EXPECT_EQ(xcore::XByteOrder::net2local(static_cast<xcore::uint16>(0x1234)), 0x3412);
  EXPECT_EQ(xcore::XByteOrder::net2local(static_cast<xcore::uint32>(0x12345678u)), 0x78563412u);
  EXPECT_EQ(xcore::XByteOrder::local2net(static_cast<xcore::uint64>(0x0102030405060708ull)), 0x0807060504030201ull);
  EXPECT_EQ(xcore::XByteOrder::local2net(static_cast<xcore::uint32>(0x0100007Fu)), 0x7F000001u);
}

TEST(SharedFile, DigestsRegularFiles) {
  zqtest::TempDir dir;
  const std::string path = dir.path() + "/f.bin";
  zqtest::WriteFile(path, "abc");
  SharedFile file(path);
  EXPECT_EQ(file.Size(), 3u);
  EXPECT_EQ(file.MD5(), "900150983CD24FB0D6963F7D28E17F72");
  EXPECT_EQ(file.MD5(), "900150983CD24FB0D6963F7D28E17F72");  // repeatable
}

TEST(SharedFile, EmptyMissingAndDirectoryGiveEmptyText) {
  zqtest::TempDir dir;
  const std::string empty = dir.path() + "/empty";
  zqtest::WriteFile(empty, "");
  SharedFile empty_file(empty);
  EXPECT_EQ(empty_file.Size(), 0u);
  EXPECT_EQ(empty_file.MD5(), "");  // not the digest of the empty input

  SharedFile missing(dir.path() + "/missing");
  EXPECT_EQ(missing.Size(), 0u);
  EXPECT_EQ(missing.MD5(), "");

  SharedFile directory(dir.path());
  EXPECT_EQ(directory.Size(), 0u);
  EXPECT_EQ(directory.MD5(), "");
}

TEST(SharedFile, DigestsLargeSparseFile) {
  zqtest::TempDir dir;
  const std::string path = dir.path() + "/sparse";
  const off_t size = (64 << 20) + 4097;  // above 64 MiB, not a multiple of the block size
  const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
  ASSERT_GE(fd, 0);
  ASSERT_EQ(pwrite(fd, "tail", 4, size - 4), 4);
  ASSERT_EQ(pwrite(fd, "head", 4, 0), 4);
  close(fd);

  // Reference: the same bytes fed in pieces: "head", zeros, "tail".
  std::vector<xcore::uint8> zeros(1 << 20, 0);
  xcore::XMD5 ctx;
  ctx.update(reinterpret_cast<const xcore::uint8*>("head"), 4);
  for (off_t left = size - 8; left > 0;) {
    const off_t n = std::min<off_t>(left, static_cast<off_t>(zeros.size()));
    ctx.update(zeros.data(), static_cast<xcore::uint32>(n));
    left -= n;
  }
  ctx.update(reinterpret_cast<const xcore::uint8*>("tail"), 4);
  SharedFile file(path);
  EXPECT_EQ(file.Size(), static_cast<size_t>(size));
  EXPECT_EQ(file.MD5(), ctx.final());
}

}  // namespace
