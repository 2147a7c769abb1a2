#include "tool_input.h"

#include <fcntl.h>
#include <iconv.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zq_tools {

namespace {

const char* KindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "is a directory, not a file";
  if (S_ISCHR(mode)) return "is a character device, not a regular file";
  if (S_ISBLK(mode)) return "is a block device, not a regular file";
  if (S_ISFIFO(mode)) return "is a pipe, not a regular file";
  if (S_ISSOCK(mode)) return "is a socket, not a regular file";
  return "is not a regular file";
}

bool Fail(const std::string& path, const std::string& why, std::string* err) {
  *err = path + ": " + why;
  return false;
}

std::string ParentOf(const std::string& path) {
  size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

}  // namespace

bool CheckRegularFile(const std::string& path, std::string* err) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return Fail(path, strerror(errno), err);
  if (!S_ISREG(st.st_mode)) return Fail(path, KindOf(st.st_mode), err);
  if (access(path.c_str(), R_OK) != 0) return Fail(path, strerror(errno), err);
  return true;
}

bool CheckDirectory(const std::string& path, std::string* err) {
  struct stat st;
  if (stat(path.c_str(), &st) != 0) return Fail(path, strerror(errno), err);
  if (!S_ISDIR(st.st_mode)) return Fail(path, "is not a directory", err);
  return true;
}

bool CheckOutputFile(const std::string& path, std::string* err) {
  struct stat st;
  if (path.empty()) return Fail("(empty path)", "no file name given", err);
  if (stat(path.c_str(), &st) == 0) {
    if (!S_ISREG(st.st_mode)) return Fail(path, KindOf(st.st_mode), err);
    if (access(path.c_str(), W_OK) != 0) return Fail(path, strerror(errno), err);
    return true;
  }
  if (errno != ENOENT) return Fail(path, strerror(errno), err);
  const std::string dir = ParentOf(path);
  if (stat(dir.c_str(), &st) != 0)
    return Fail(path, "directory " + dir + ": " + strerror(errno), err);
  if (!S_ISDIR(st.st_mode)) return Fail(path, dir + " is not a directory", err);
  if (access(dir.c_str(), W_OK) != 0) {
    return Fail(path, "directory " + dir + ": " + strerror(errno), err);
  }
  return true;
}

bool ReadInput(const std::string& path, size_t max_bytes, std::string* content, std::string* err) {
  const bool std_in = path == "-";
  const std::string name = std_in ? std::string("standard input") : path;
  int fd = 0;
  if (!std_in) {
    if (!CheckRegularFile(path, err)) return false;
    fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return Fail(name, strerror(errno), err);
  }
  struct stat st;
  if (fstat(fd, &st) != 0 || S_ISDIR(st.st_mode)) {
    const std::string why = S_ISDIR(st.st_mode) ? KindOf(st.st_mode) : strerror(errno);
    if (!std_in) close(fd);
    return Fail(name, why, err);
  }
  std::string text;
  char buf[65536];
  bool ok = true;
  std::string why;
  for (;;) {
    ssize_t n = read(fd, buf, sizeof(buf));
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      ok = false;
      why = strerror(errno);
      break;
    }
    if (n == 0) break;
    if (text.size() + static_cast<size_t>(n) > max_bytes) {
      ok = false;
      why = "larger than " + std::to_string(max_bytes) + " bytes";
      break;
    }
    text.append(buf, static_cast<size_t>(n));
  }
  if (!std_in) close(fd);
  if (!ok) return Fail(name, why, err);
  content->swap(text);
  return true;
}

bool ParseDecimal(const std::string& text, int64_t min, int64_t max, int64_t* out) {
  size_t i = 0;
  bool negative = false;
  if (!text.empty() && text[0] == '-' && min < 0) {
    negative = true;
    i = 1;
  }
  if (i == text.size()) return false;
  // Accumulate as a negative number so INT64_MIN fits.
  int64_t v = 0;
  for (; i < text.size(); ++i) {
    const char c = text[i];
    if (c < '0' || c > '9') return false;
    const int d = c - '0';
    if (v < (INT64_MIN + d) / 10) return false;
    v = v * 10 - d;
  }
  if (!negative) {
    if (v == INT64_MIN) return false;
    v = -v;
  }
  if (v < min || v > max) return false;
  *out = v;
  return true;
}

bool ParseId(const std::string& text, uint64_t max, uint64_t* out) {
  const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
  const size_t from = hex ? 2 : 0;
  const unsigned base = hex ? 16 : 10;
  if (text.size() == from) return false;
  uint64_t v = 0;
  for (size_t i = from; i < text.size(); ++i) {
    const char c = text[i];
    unsigned d;
    if (c >= '0' && c <= '9') {
      d = static_cast<unsigned>(c - '0');
    } else if (hex && c >= 'a' && c <= 'f') {
      d = static_cast<unsigned>(c - 'a' + 10);
    } else if (hex && c >= 'A' && c <= 'F') {
      d = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return false;
    }
    if (v > (UINT64_MAX - d) / base) return false;
    v = v * base + d;
  }
  if (v > max) return false;
  *out = v;
  return true;
}

bool SplitWords(const std::string& line, std::vector<Word>* words, std::string* err) {
  words->clear();
  Word w;
  bool in_word = false, in_quotes = false;
  for (size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (in_quotes) {
      if (c == '"') {
        in_quotes = false;
      } else if (c == '\\' && i + 1 < line.size() && (line[i + 1] == '"' || line[i + 1] == '\\')) {
        w.text += line[++i];
      } else {
        w.text += c;
      }
      continue;
    }
    if (c == '#') break;
    if (c == ' ' || c == '\t' || c == '\r' || c == '\n') {
      if (in_word) words->push_back(w);
      w = Word();
      in_word = false;
      continue;
    }
    in_word = true;
    if (c == '"') {
      in_quotes = true;
      w.quoted = true;
    } else {
      w.text += c;
    }
  }
  if (in_quotes) {
    *err = "a quote is not closed";
    return false;
  }
  if (in_word) words->push_back(w);
  return true;
}

bool StripComment(const std::string& line, std::string* code, std::string* err) {
  bool in_quotes = false;
  size_t i = 0;
  for (; i < line.size(); ++i) {
    const char c = line[i];
    if (in_quotes && c == '\\' && i + 1 < line.size()) {
      ++i;
    } else if (c == '"') {
      in_quotes = !in_quotes;
    } else if (c == '#' && !in_quotes) {
      break;
    }
  }
  if (in_quotes) {
    *err = "a quote is not closed";
    return false;
  }
  *code = line.substr(0, i);
  return true;
}

std::string Printable(const std::string& text, size_t max_chars) {
  std::string s;
  const size_t n = text.size() < max_chars ? text.size() : max_chars;
  for (size_t i = 0; i < n; ++i) {
    const unsigned char c = static_cast<unsigned char>(text[i]);
    if (c == '\\') {
      s += "\\\\";
    } else if (c >= 0x20 && c < 0x7F) {
      s += static_cast<char>(c);
    } else {
      char hex[5];
      snprintf(hex, sizeof(hex), "\\x%02X", c);
      s += hex;
    }
  }
  if (n < text.size()) s += "...";
  return s;
}

std::string GbkToUtf8(const std::string& gbk) {
  iconv_t cd = iconv_open("UTF-8", "GBK");
  if (cd == reinterpret_cast<iconv_t>(-1)) return Printable(gbk, gbk.size());
  std::string out;
  char buf[256];
  char* in = const_cast<char*>(gbk.data());
  size_t left = gbk.size();
  while (left > 0) {
    char* o = buf;
    size_t room = sizeof(buf);
    const size_t r = iconv(cd, &in, &left, &o, &room);
    out.append(buf, static_cast<size_t>(o - buf));
    if (r == static_cast<size_t>(-1) && errno != E2BIG) {
      out += Printable(std::string(in, 1), 1);  // not GBK: show the byte, go on after it
      ++in;
      --left;
      iconv(cd, nullptr, nullptr, nullptr, nullptr);
    }
  }
  iconv_close(cd);
  return out;
}

}  // namespace zq_tools
