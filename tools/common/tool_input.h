// Input handling shared by the command-line tools: reading a file argument, reading numbers, and
// showing untrusted text in messages.
//
// Conventions: functions return true on success and false with a one-line reason in `err`
// (the path, if any, is part of the reason). Nothing throws. Outputs are written only on success.
#ifndef TOOLS_COMMON_TOOL_INPUT_H_
#define TOOLS_COMMON_TOOL_INPUT_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace zq_tools {

// Reads the whole of `path`, which must be a readable regular file, or standard input when
// `path` is "-". Refuses directories, devices and anything larger than `max_bytes`, so a mistaken
// argument never turns into an empty or endless input. `err` reads "PATH: reason".
bool ReadInput(const std::string& path, size_t max_bytes, std::string* content, std::string* err);

// Checks that `path` names a readable regular file, without reading it.
bool CheckRegularFile(const std::string& path, std::string* err);

// Checks that `path` names a directory.
bool CheckDirectory(const std::string& path, std::string* err);

// Checks that `path` can be created or overwritten as a regular file: it is one already, or it
// does not exist and its parent is a writable directory.
bool CheckOutputFile(const std::string& path, std::string* err);

// Decimal number in [min, max]; a leading '-' only when min < 0. "010" is ten.
bool ParseDecimal(const std::string& text, int64_t min, int64_t max, int64_t* out);

// An id: decimal, or hexadecimal with a 0x/0X prefix, in [0, max].
bool ParseId(const std::string& text, uint64_t max, uint64_t* out);

// One word of a line of a configuration or scenario file.
struct Word {
  std::string text;     // quotes removed
  bool quoted = false;  // some part of it was in double quotes
};

// Splits a line into blank-separated words. A double-quoted part keeps blanks and '#' (inside
// quotes, \" stands for " and \\ for \); an unquoted '#' starts a comment that runs to the end of
// the line. False for a quote that is not closed.
bool SplitWords(const std::string& line, std::vector<Word>* words, std::string* err);

// The part of `line` before an unquoted '#', quotes left in place. False for an unclosed quote.
bool StripComment(const std::string& line, std::string* code, std::string* err);

// `text` fit for a one-line message: printable ASCII is kept, everything else is written as \xHH
// (and the backslash as \\); at most `max_chars` source bytes are shown, then "...".
std::string Printable(const std::string& text, size_t max_chars = 80);

// GBK text (the libraries' own messages are GBK) as UTF-8 for a terminal; a byte sequence that
// is not GBK is written as \xHH.
std::string GbkToUtf8(const std::string& gbk);

}  // namespace zq_tools

#endif  // TOOLS_COMMON_TOOL_INPUT_H_
