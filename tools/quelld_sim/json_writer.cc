#include "json_writer.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>

namespace quelld_sim {

namespace {

void Quoted(const std::string& s, std::string* out) {
  *out += '"';
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      *out += '\\';
      *out += static_cast<char>(c);
    } else if (c >= 0x20 && c < 0x7F) {
      *out += static_cast<char>(c);
    } else {
      char esc[8];
      snprintf(esc, sizeof(esc), "\\u%04X", c);
      *out += esc;
    }
  }
  *out += '"';
}

}  // namespace

void JsonWriter::Item(const char* key) {
  if (!has_items_.empty()) {
    if (has_items_.back()) out_ += ',';
    has_items_.back() = true;
    out_ += '\n';
    out_.append(2 * has_items_.size(), ' ');
  }
  if (key != nullptr) {
    Quoted(key, &out_);
    out_ += ": ";
  }
}

void JsonWriter::Close(char bracket) {
  const bool items = has_items_.back();
  has_items_.pop_back();
  if (items) {
    out_ += '\n';
    out_.append(2 * has_items_.size(), ' ');
  }
  out_ += bracket;
  if (has_items_.empty()) out_ += '\n';
}

JsonWriter& JsonWriter::BeginObject(const char* key) {
  Item(key);
  out_ += '{';
  has_items_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::EndObject() {
  Close('}');
  return *this;
}

JsonWriter& JsonWriter::BeginArray(const char* key) {
  Item(key);
  out_ += '[';
  has_items_.push_back(false);
  return *this;
}

JsonWriter& JsonWriter::EndArray() {
  Close(']');
  return *this;
}

JsonWriter& JsonWriter::Str(const char* key, const std::string& value) {
  Item(key);
  Quoted(value, &out_);
  return *this;
}

JsonWriter& JsonWriter::Int(const char* key, int64_t value) {
  Item(key);
  out_ += std::to_string(value);
  return *this;
}

JsonWriter& JsonWriter::Num(const char* key, double value) {
  Item(key);
  if (!std::isfinite(value)) {
    out_ += "null";
    return *this;
  }
  char buf[64];
  snprintf(buf, sizeof(buf), "%.6g", value);
  out_ += buf;
  return *this;
}

JsonWriter& JsonWriter::Bool(const char* key, bool value) {
  Item(key);
  out_ += value ? "true" : "false";
  return *this;
}

JsonWriter& JsonWriter::Null(const char* key) {
  Item(key);
  out_ += "null";
  return *this;
}

}  // namespace quelld_sim
