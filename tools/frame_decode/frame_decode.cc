// frame_decode: decodes one message given as hex text or a file and prints its text rendering,
// or the error code, its message and the back-trace. See UsageText below.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "nhp.h"
#include "o2auth_data.h"
#include "tframehead.h"
#include "tool_input.h"
#include "vix_cpp_comm/VixError.h"

using kalmo_vix::VixError;

namespace {

constexpr int kExitDecoded = 0;
constexpr int kExitDecodeError = 1;
constexpr int kExitUsage = 2;
constexpr size_t kMaxInputBytes = 16u << 20;

const char kUsage[] =
    R"(usage: frame_decode [--type TYPE] [--cut N] [--format auto|hex|binary] INPUT

Decodes one message and prints its fields, or the codec's error code, its message and the
back-trace of the entries that failed.

INPUT is one of:
  --hex TEXT        the bytes as hex text
  PATH, --file PATH a file holding the bytes, or hex text
  -                 standard input, likewise
Hex text may contain blanks, newlines, ':' and 0x prefixes between bytes.

Options:
  --type TYPE       tframehead (frame head between connection server and game servers, the
                    default), nhp (client frame: head and body), nhp-head (client frame head
                    alone), o2auth (OAuth unified auth record), o2token (OAuth token)
  --cut N           the sender's version of the record, for records that do not state their
                    own version in the message: entries added after version N are not read and
                    stay zero. 0 (the default) means the current version. A frame head carries
                    its version in its first byte, chVer, and is always read at that version.
  --format F        how a file or standard input is read: auto (the default: hex text when it
                    holds nothing but hex digits and the separators above, else binary), hex,
                    or binary
  --help            this text

Results go to standard output, errors to standard error. Exit status: 0 decoded, 1 the codec
refused the message, 2 bad usage or unreadable input.
)";

int UsageError(const std::string& what) {
  std::fprintf(stderr, "frame_decode: %s (see frame_decode --help)\n", what.c_str());
  return kExitUsage;
}

int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool IsSeparator(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == ':'; }

// Hex text to bytes; VIX_ERR_INVALID_HEX_STR_LEN for an odd number of digits,
// VIX_ERR_INVALID_HEX_STR_FORMAT for a character that is neither digit nor separator.
int ParseHex(const std::string& text, std::vector<char>* out) {
  std::string digits;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (IsSeparator(c)) continue;
    if (c == '0' && i + 1 < text.size() && (text[i + 1] == 'x' || text[i + 1] == 'X')) {
      ++i;
      continue;
    }
    if (HexValue(c) < 0) return VixError::VIX_ERR_INVALID_HEX_STR_FORMAT;
    digits += c;
  }
  if (digits.size() % 2 != 0) return VixError::VIX_ERR_INVALID_HEX_STR_LEN;
  for (size_t i = 0; i < digits.size(); i += 2) {
    out->push_back(static_cast<char>(HexValue(digits[i]) * 16 + HexValue(digits[i + 1])));
  }
  return 0;
}

// True when the content is hex text: at least one digit, nothing but digits and separators.
bool LooksLikeHex(const std::string& text) {
  std::vector<char> bytes;
  return text.find_first_not_of(" \t\r\n:") != std::string::npos && ParseHex(text, &bytes) == 0;
}

// Decodes bytes as T and prints the result. Returns the process status.
template <typename T>
int DecodeAndPrint(const std::vector<char>& bytes, unsigned int cut) {
  std::unique_ptr<T> rec(new T());
  rec->construct();
  size_t used = 0;
  const int ret = rec->unpack(bytes.data(), bytes.size(), &used, cut);
  if (ret != 0) {
    std::fprintf(stderr, "error %d: %s\nback-trace: %s\n", ret, VixError::getErrorString(ret),
                 VixError::getBackTrace());
    return kExitDecodeError;
  }
  std::vector<char> text(1 << 24);
  size_t text_used = 0;
  std::printf("%s: %zu of %zu bytes decoded\n", T::m_class_name, used, bytes.size());
  std::fputs(rec->visualize_ex(text.data(), text.size(), &text_used, 0, '\n'), stdout);
  return kExitDecoded;
}

struct Type {
  const char* name;
  int (*decode)(const std::vector<char>&, unsigned int);
};

const Type kTypes[] = {
    {"tframehead", DecodeAndPrint<tframehead::TFrameHead>},
    {"nhp", DecodeAndPrint<nhp::TNHPInFrame>},
    {"nhp-head", DecodeAndPrint<nhp::TNHPHead>},
    {"o2auth", DecodeAndPrint<KALMOO2UnifiedAuth>},
    {"o2token", DecodeAndPrint<KALMOO2Token>},
};

}  // namespace

int main(int argc, char** argv) {
  std::string type = "tframehead", format = "auto", hex, file;
  bool have_hex = false, have_file = false;
  unsigned int cut = 0;
  for (int i = 1; i < argc; ++i) {
    const std::string a = argv[i];
    if (a == "--help" || a == "-h") {
      std::fputs(kUsage, stdout);
      return kExitDecoded;
    }
    const bool takes_value =
        a == "--type" || a == "--cut" || a == "--hex" || a == "--file" || a == "--format";
    if (takes_value && i + 1 >= argc) return UsageError(a + " needs a value");
    if (a == "--type") {
      type = argv[++i];
    } else if (a == "--format") {
      format = argv[++i];
      if (format != "auto" && format != "hex" && format != "binary") {
        return UsageError("--format: expected auto, hex or binary, got '" +
                          zq_tools::Printable(format) + "'");
      }
    } else if (a == "--cut") {
      int64_t v;
      if (!zq_tools::ParseDecimal(argv[++i], 0, UINT32_MAX, &v)) {
        return UsageError("--cut: expected a version number from 0 to 4294967295, got '" +
                          zq_tools::Printable(argv[i]) + "'");
      }
      cut = static_cast<unsigned int>(v);
    } else if (a == "--hex" || a == "--file" || a == "-" || a.empty() || a[0] != '-') {
      const bool is_hex = a == "--hex", is_flag = is_hex || a == "--file";
      if (have_hex || have_file) return UsageError("more than one input given");
      (is_hex ? hex : file) = is_flag ? argv[++i] : a;
      (is_hex ? have_hex : have_file) = true;
    } else {
      return UsageError("unknown option " + zq_tools::Printable(a));
    }
  }
  const Type* t = nullptr;
  for (const Type& k : kTypes) {
    if (type == k.name) t = &k;
  }
  if (t == nullptr) {
    return UsageError("unknown type '" + zq_tools::Printable(type) +
                      "' (tframehead, nhp, nhp-head, o2auth, o2token)");
  }
  if (!have_hex && !have_file) return UsageError("no input: give --hex TEXT, a file or -");

  std::string text, err;
  if (have_file && !zq_tools::ReadInput(file, kMaxInputBytes, &text, &err)) {
    std::fprintf(stderr, "frame_decode: cannot read %s\n", err.c_str());
    return kExitUsage;
  }
  std::vector<char> bytes;
  if (have_hex || format == "hex" || (format == "auto" && LooksLikeHex(text))) {
    const int ret = ParseHex(have_hex ? hex : text, &bytes);
    if (ret != 0) {
      std::fprintf(stderr, "frame_decode: error %d: %s\n", ret, VixError::getErrorString(ret));
      return kExitUsage;
    }
  } else {
    bytes.assign(text.begin(), text.end());
  }
  return t->decode(bytes, cut);
}
