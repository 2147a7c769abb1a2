/*
 * VixBufUtil.h: the byte cursors of the record codec and the text writer shared by every
 * generated visualize operation.
 *
 * Conventions:
 *  - Both cursors keep position <= length. A write checks the free space (length - position)
 *    before touching memory; a read checks the available data likewise.
 *  - VixWriteBuf owns its area (array delete on destruction) only when built with a size;
 *    built over caller memory it never frees. VixReadBuf never owns memory.
 *  - VixBufUtil functions return 0 or a negative VixError::ErrorType; the first failing write
 *    ends the call and what was already written stays (a partial line is not rolled back).
 *  - indent is a level: "    " (four blanks) written indent times; a level below 1 writes none.
 */
#ifndef VIX_CPP_COMM_VIXBUFUTIL_H
#define VIX_CPP_COMM_VIXBUFUTIL_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

#include "vix_cpp_comm/VixError.h"

namespace kalmo_vix {

// Output cursor over a byte area.
class VixWriteBuf {
 public:
  char* beginPtr;   // start of the area
  size_t position;  // bytes written so far; the next byte goes to beginPtr[position]
  size_t length;    // capacity of the area
  bool needFree;    // beginPtr is owned and released with delete[]

  VixWriteBuf() : beginPtr(nullptr), position(0), length(0), needFree(false) {}
  // Wraps caller memory; never frees it. A null buffer gives a cursor of capacity 0.
  VixWriteBuf(char* buffer, size_t size)
      : beginPtr(buffer), position(0), length(buffer != nullptr ? size : 0), needFree(false) {}
  // Allocates an owned area of size bytes; on allocation failure the capacity is 0.
  explicit VixWriteBuf(size_t size);
  ~VixWriteBuf();

  VixWriteBuf(const VixWriteBuf&) = delete;
  VixWriteBuf& operator=(const VixWriteBuf&) = delete;

  // Points the cursor at caller memory (releasing an owned area first), position 0.
  void set(char* buffer, size_t size);
  // Position back to 0; the area stays.
  void reset() { position = 0; }
  size_t freeSpace() const { return length - position; }

  // Formats with printf rules into the free space. -1 (VIX_ERR_SHORT_BUF_FOR_WRITE) when
  // formatting fails or the text with its NUL does not fit; otherwise position advances by the
  // text length (the NUL is written but not counted).
  VIX_NODISCARD int textize(const char* format, ...) __attribute__((format(printf, 2, 3)));
  VIX_NODISCARD int vtextize(const char* format, va_list args);
};

// Input cursor over received bytes.
class VixReadBuf {
 public:
  const char* beginPtr;
  size_t position;
  size_t length;

  VixReadBuf() : beginPtr(nullptr), position(0), length(0) {}
  // A null buffer gives a cursor with no data.
  VixReadBuf(const char* buffer, size_t size)
      : beginPtr(buffer), position(0), length(buffer != nullptr ? size : 0) {}

  void set(const char* buffer, size_t size) {
    beginPtr = buffer;
    position = 0;
    length = buffer != nullptr ? size : 0;
  }
  size_t available() const { return length - position; }
};

// Text writer for visualize. Labels are passed as the generated code names them ("[chVer]").
class VixBufUtil {
 public:
  // str repeated times times; times below 1 writes nothing; null str gives -8.
  VIX_NODISCARD static int printMultiStr(VixWriteBuf& buf, const char* str, int times);
  // The indent alone.
  VIX_NODISCARD static int printIndent(VixWriteBuf& buf, int indent);
  // The separator (needs 2 free bytes: it is followed by an uncounted NUL).
  VIX_NODISCARD static int printSeparator(VixWriteBuf& buf, char separator);

  // indent, "name: ", value by format, separator.
  VIX_NODISCARD static int printVariable(VixWriteBuf& buf, int indent, char separator,
                                         const char* name, const char* format, ...)
      __attribute__((format(printf, 5, 6)));
  // indent, "name[index]: ", value by format, separator.
  VIX_NODISCARD static int printVariable(VixWriteBuf& buf, int indent, char separator,
                                         const char* name, unsigned int index, const char* format,
                                         ...) __attribute__((format(printf, 6, 7)));
  // indent, then "name<separator>" when withSeparator, else "name: ". Used before a nested record.
  VIX_NODISCARD static int printVariable(VixWriteBuf& buf, int indent, char separator,
                                         const char* name, bool withSeparator);
  // indent, then "name[index]<separator>" or "name[index]: ".
  VIX_NODISCARD static int printVariable(VixWriteBuf& buf, int indent, char separator,
                                         const char* name, unsigned int index, bool withSeparator);

  // indent, "name[0 : count-1]:"; the elements follow on the same line.
  VIX_NODISCARD static int printArray(VixWriteBuf& buf, int indent, char separator,
                                      const char* name, long count);

  VIX_NODISCARD static int printString(VixWriteBuf& buf, int indent, char separator,
                                       const char* name, const char* value);
  VIX_NODISCARD static int printString(VixWriteBuf& buf, int indent, char separator,
                                       const char* name, unsigned int index, const char* value);

  // Each 16-bit unit including the terminating zero as " 0x%04x".
  VIX_NODISCARD static int printWString(VixWriteBuf& buf, int indent, char separator,
                                        const char* name, const uint16_t* value);
  VIX_NODISCARD static int printWString(VixWriteBuf& buf, int indent, char separator,
                                        const char* name, unsigned int index,
                                        const uint16_t* value);

  // "%4d-%02d-%02d", "%02d:%02d:%02d", both joined by a blank, dotted IPv4.
  VIX_NODISCARD static int printVixDate(VixWriteBuf& buf, int indent, char separator,
                                        const char* name, uint32_t value);
  VIX_NODISCARD static int printVixDate(VixWriteBuf& buf, int indent, char separator,
                                        const char* name, unsigned int index, uint32_t value);
  VIX_NODISCARD static int printVixTime(VixWriteBuf& buf, int indent, char separator,
                                        const char* name, uint32_t value);
  VIX_NODISCARD static int printVixTime(VixWriteBuf& buf, int indent, char separator,
                                        const char* name, unsigned int index, uint32_t value);
  VIX_NODISCARD static int printVixDateTime(VixWriteBuf& buf, int indent, char separator,
                                            const char* name, uint64_t value);
  VIX_NODISCARD static int printVixDateTime(VixWriteBuf& buf, int indent, char separator,
                                            const char* name, unsigned int index, uint64_t value);
  VIX_NODISCARD static int printVixIP(VixWriteBuf& buf, int indent, char separator,
                                      const char* name, uint32_t value);
  VIX_NODISCARD static int printVixIP(VixWriteBuf& buf, int indent, char separator,
                                      const char* name, unsigned int index, uint32_t value);
};

}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXBUFUTIL_H
