// frame_decode: decodes one message given as hex text or a binary file and prints its text
// rendering, or the error code, its message and the back-trace.
//
//   frame_decode [--type T] [--cut N] (--hex TEXT | --file PATH | PATH)
//     T: tframehead (default), nhp (client frame: head and body), nhp-head, o2auth, o2token
//     Hex text may contain blanks, newlines, ':' and "0x" prefixes between bytes.
// Exit status: 0 decoded, 1 decode error, 2 bad usage or unreadable input.
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "vix_cpp_comm/VixError.h"

#if __has_include("tframehead.h")
#include "tframehead.h"
#define FRAME_DECODE_TFRAMEHEAD 1
#endif
#if __has_include("nhp.h")
#include "nhp.h"
#define FRAME_DECODE_NHP 1
#endif
#if __has_include("o2auth_data.h")
#include "o2auth_data.h"
#define FRAME_DECODE_O2AUTH 1
#endif

using kalmo_vix::VixError;

namespace {

int usage() {
  std::fprintf(stderr,
               "usage: frame_decode [--type tframehead|nhp|nhp-head|o2auth|o2token] [--cut N] "
               "(--hex TEXT | --file PATH | PATH)\n");
  return 2;
}

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// Hex text to bytes; -17 for an odd number of digits, -18 for a character that is no digit.
int parseHex(const std::string& text, std::vector<char>& out) {
  std::string digits;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ':') continue;
    if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
      ++i;
      continue;
    }
    if (hexValue(c) < 0) return VixError::VIX_ERR_INVALID_HEX_STR_FORMAT;
    digits += c;
  }
  if (digits.size() % 2 != 0) return VixError::VIX_ERR_INVALID_HEX_STR_LEN;
  for (size_t i = 0; i < digits.size(); i += 2) {
    out.push_back(static_cast<char>(hexValue(digits[i]) * 16 + hexValue(digits[i + 1])));
  }
  return 0;
}

// Decodes bytes as T and prints the result. Returns the process status.
template <typename T>
int decode_and_print(const std::vector<char>& bytes, unsigned int cutVer) {
  std::unique_ptr<T> rec(new T());
  if (rec->construct() != 0) return 1;
  size_t used = 0;
  const int ret = rec->unpack(bytes.data(), bytes.size(), &used, cutVer);
  if (ret != 0) {
    std::printf("error %d: %s\nback-trace: %s\n", ret, VixError::getErrorString(ret),
                VixError::getBackTrace());
    return 1;
  }
  std::vector<char> text(1 << 24);
  size_t textUsed = 0;
  std::printf("%s: %zu of %zu bytes decoded\n", T::m_class_name, used, bytes.size());
  std::fputs(rec->visualize_ex(text.data(), text.size(), &textUsed, 0, '\n'), stdout);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  std::string type = "tframehead";
  std::string hex;
  std::string file;
  bool haveHex = false;
  unsigned int cutVer = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--type" && i + 1 < argc) {
      type = argv[++i];
    } else if (a == "--cut" && i + 1 < argc) {
      cutVer = static_cast<unsigned int>(std::strtoul(argv[++i], nullptr, 10));
    } else if (a == "--hex" && i + 1 < argc) {
      hex = argv[++i];
      haveHex = true;
    } else if (a == "--file" && i + 1 < argc) {
      file = argv[++i];
    } else if (!a.empty() && a[0] != '-' && file.empty()) {
      file = a;
    } else {
      return usage();
    }
  }
  if (haveHex == !file.empty()) return usage();

  std::vector<char> bytes;
  if (haveHex) {
    const int ret = parseHex(hex, bytes);
    if (ret != 0) {
      std::printf("error %d: %s\n", ret, VixError::getErrorString(ret));
      return 2;
    }
  } else {
    std::ifstream in(file, std::ios::binary);
    if (!in) {
      std::fprintf(stderr, "frame_decode: cannot read %s\n", file.c_str());
      return 2;
    }
    bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }

#ifdef FRAME_DECODE_TFRAMEHEAD
  if (type == "tframehead") return decode_and_print<tframehead::TFrameHead>(bytes, cutVer);
#endif
#ifdef FRAME_DECODE_NHP
  if (type == "nhp") return decode_and_print<nhp::TNHPInFrame>(bytes, cutVer);
  if (type == "nhp-head") return decode_and_print<nhp::TNHPHead>(bytes, cutVer);
#endif
#ifdef FRAME_DECODE_O2AUTH
  if (type == "o2auth") return decode_and_print<KALMOO2UnifiedAuth>(bytes, cutVer);
  if (type == "o2token") return decode_and_print<KALMOO2Token>(bytes, cutVer);
#endif
  std::fprintf(stderr, "frame_decode: unknown or unavailable type %s\n", type.c_str());
  return 2;
}
