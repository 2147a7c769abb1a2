// Byte cursors and the text writer used by generated visualize code.
#include "vix_cpp_comm/VixBufUtil.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>
#include <new>

#include "vix_cpp_comm/VixTime.h"

namespace kalmo_vix {

VixWriteBuf::VixWriteBuf(size_t size) : beginPtr(nullptr), position(0), length(0), needFree(false) {
  if (size == 0) return;
  beginPtr = new (std::nothrow) char[size];
  if (beginPtr != nullptr) {
    length = size;
    needFree = true;
  }
}

VixWriteBuf::~VixWriteBuf() {
  if (needFree) delete[] beginPtr;
}

void VixWriteBuf::set(char* buffer, size_t size) {
  if (needFree) delete[] beginPtr;
  beginPtr = buffer;
  position = 0;
  length = buffer != nullptr ? size : 0;
  needFree = false;
}

int VixWriteBuf::vtextize(const char* format, va_list args) {
  if (format == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const size_t room = length - position;
  if (beginPtr == nullptr || room == 0) return VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
  const int n = std::vsnprintf(beginPtr + position, room, format, args);
  if (n < 0 || static_cast<size_t>(n) >= room) return VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
  position += static_cast<size_t>(n);
  return 0;
}

int VixWriteBuf::textize(const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int ret = vtextize(format, args);
  va_end(args);
  return ret;
}

namespace {

const char kIndentUnit[] = "    ";

// indent, then the label "name: " or "name[index]: ".
int printLabel(VixWriteBuf& buf, int indent, const char* name, const unsigned int* index) {
  if (name == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  int ret = VixBufUtil::printIndent(buf, indent);
  if (ret != 0) return ret;
  return index != nullptr ? buf.textize("%s[%u]: ", name, *index) : buf.textize("%s: ", name);
}

int printLabeledFormat(VixWriteBuf& buf, int indent, char separator, const char* name,
                       const unsigned int* index, const char* format, va_list args) {
  int ret = printLabel(buf, indent, name, index);
  if (ret != 0) return ret;
  ret = buf.vtextize(format, args);
  if (ret != 0) return ret;
  return VixBufUtil::printSeparator(buf, separator);
}

int printDateText(VixWriteBuf& buf, uint32_t value) {
  const VixDate d = VixDate::fromValue(value);
  return buf.textize("%4d-%02d-%02d", d.year, d.month, d.day);
}

int printTimeText(VixWriteBuf& buf, uint32_t value) {
  const VixTime t = VixTime::fromValue(value);
  return buf.textize("%02d:%02d:%02d", t.hour, t.minute, t.second);
}

int printIpText(VixWriteBuf& buf, uint32_t value) {
  char text[INET_ADDRSTRLEN];
  struct in_addr addr;
  addr.s_addr = value;
  if (inet_ntop(AF_INET, &addr, text, sizeof(text)) == nullptr)
    return VixError::VIX_ERR_PARSE_VIXIP_FAILED;
  return buf.textize("%s", text);
}

int printWText(VixWriteBuf& buf, const uint16_t* value) {
  if (value == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  for (const uint16_t* p = value;; ++p) {
    const int ret = buf.textize(" 0x%04x", static_cast<unsigned int>(*p));
    if (ret != 0) return ret;
    if (*p == 0) return 0;
  }
}

typedef int (*ValuePrinter32)(VixWriteBuf&, uint32_t);

int printLabeled32(VixWriteBuf& buf, int indent, char separator, const char* name,
                   const unsigned int* index, uint32_t value, ValuePrinter32 printer) {
  int ret = printLabel(buf, indent, name, index);
  if (ret != 0) return ret;
  ret = printer(buf, value);
  if (ret != 0) return ret;
  return VixBufUtil::printSeparator(buf, separator);
}

int printLabeledDateTime(VixWriteBuf& buf, int indent, char separator, const char* name,
                         const unsigned int* index, uint64_t value) {
  int ret = printLabel(buf, indent, name, index);
  if (ret != 0) return ret;
  ret = printDateText(buf, vixDateOf(value));
  if (ret != 0) return ret;
  ret = buf.textize(" ");
  if (ret != 0) return ret;
  ret = printTimeText(buf, vixTimeOf(value));
  if (ret != 0) return ret;
  return VixBufUtil::printSeparator(buf, separator);
}

}  // namespace

int VixBufUtil::printMultiStr(VixWriteBuf& buf, const char* str, int times) {
  if (str == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const size_t n = std::strlen(str);
  for (int i = 0; i < times; ++i) {
    if (buf.beginPtr == nullptr || buf.length - buf.position < n + 1)
      return VixError::VIX_ERR_SHORT_BUF_FOR_WRITE;
    std::memcpy(buf.beginPtr + buf.position, str, n);
    buf.position += n;
    buf.beginPtr[buf.position] = '\0';
  }
  return 0;
}

int VixBufUtil::printIndent(VixWriteBuf& buf, int indent) {
  return printMultiStr(buf, kIndentUnit, indent);
}

int VixBufUtil::printSeparator(VixWriteBuf& buf, char separator) {
  return buf.textize("%c", separator);
}

int VixBufUtil::printVariable(VixWriteBuf& buf, int indent, char separator, const char* name,
                              const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int ret = printLabeledFormat(buf, indent, separator, name, nullptr, format, args);
  va_end(args);
  return ret;
}

int VixBufUtil::printVariable(VixWriteBuf& buf, int indent, char separator, const char* name,
                              unsigned int index, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int ret = printLabeledFormat(buf, indent, separator, name, &index, format, args);
  va_end(args);
  return ret;
}

int VixBufUtil::printVariable(VixWriteBuf& buf, int indent, char separator, const char* name,
                              bool withSeparator) {
  if (name == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const int ret = printIndent(buf, indent);
  if (ret != 0) return ret;
  return withSeparator ? buf.textize("%s%c", name, separator) : buf.textize("%s: ", name);
}

int VixBufUtil::printVariable(VixWriteBuf& buf, int indent, char separator, const char* name,
                              unsigned int index, bool withSeparator) {
  if (name == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const int ret = printIndent(buf, indent);
  if (ret != 0) return ret;
  return withSeparator ? buf.textize("%s[%u]%c", name, index, separator)
                       : buf.textize("%s[%u]: ", name, index);
}

int VixBufUtil::printArray(VixWriteBuf& buf, int indent, char /*separator*/, const char* name,
                           long count) {
  if (name == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  const int ret = printIndent(buf, indent);
  if (ret != 0) return ret;
  return buf.textize("%s[0 : %ld]:", name, count - 1);
}

int VixBufUtil::printString(VixWriteBuf& buf, int indent, char separator, const char* name,
                            const char* value) {
  if (value == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  return printVariable(buf, indent, separator, name, "%s", value);
}

int VixBufUtil::printString(VixWriteBuf& buf, int indent, char separator, const char* name,
                            unsigned int index, const char* value) {
  if (value == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  return printVariable(buf, indent, separator, name, index, "%s", value);
}

int VixBufUtil::printWString(VixWriteBuf& buf, int indent, char separator, const char* name,
                             const uint16_t* value) {
  if (value == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  int ret = printLabel(buf, indent, name, nullptr);
  if (ret != 0) return ret;
  ret = printWText(buf, value);
  if (ret != 0) return ret;
  return printSeparator(buf, separator);
}

int VixBufUtil::printWString(VixWriteBuf& buf, int indent, char separator, const char* name,
                             unsigned int index, const uint16_t* value) {
  if (value == nullptr) return VixError::VIX_ERR_ARG_POINTER_IS_NULL;
  int ret = printLabel(buf, indent, name, &index);
  if (ret != 0) return ret;
  ret = printWText(buf, value);
  if (ret != 0) return ret;
  return printSeparator(buf, separator);
}

int VixBufUtil::printVixDate(VixWriteBuf& buf, int indent, char separator, const char* name,
                             uint32_t value) {
  return printLabeled32(buf, indent, separator, name, nullptr, value, printDateText);
}
int VixBufUtil::printVixDate(VixWriteBuf& buf, int indent, char separator, const char* name,
                             unsigned int index, uint32_t value) {
  return printLabeled32(buf, indent, separator, name, &index, value, printDateText);
}
int VixBufUtil::printVixTime(VixWriteBuf& buf, int indent, char separator, const char* name,
                             uint32_t value) {
  return printLabeled32(buf, indent, separator, name, nullptr, value, printTimeText);
}
int VixBufUtil::printVixTime(VixWriteBuf& buf, int indent, char separator, const char* name,
                             unsigned int index, uint32_t value) {
  return printLabeled32(buf, indent, separator, name, &index, value, printTimeText);
}
int VixBufUtil::printVixDateTime(VixWriteBuf& buf, int indent, char separator, const char* name,
                                 uint64_t value) {
  return printLabeledDateTime(buf, indent, separator, name, nullptr, value);
}
int VixBufUtil::printVixDateTime(VixWriteBuf& buf, int indent, char separator, const char* name,
                                 unsigned int index, uint64_t value) {
  return printLabeledDateTime(buf, indent, separator, name, &index, value);
}
int VixBufUtil::printVixIP(VixWriteBuf& buf, int indent, char separator, const char* name,
                           uint32_t value) {
  return printLabeled32(buf, indent, separator, name, nullptr, value, printIpText);
}
int VixBufUtil::printVixIP(VixWriteBuf& buf, int indent, char separator, const char* name,
                           unsigned int index, uint32_t value) {
  return printLabeled32(buf, indent, separator, name, &index, value, printIpText);
}

}  // namespace kalmo_vix
