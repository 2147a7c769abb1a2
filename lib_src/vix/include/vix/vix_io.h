/*
 * vix_io.h: records described by a meta, written as readable text and read back from it, and a
 * readable dump of a whole metadata library.
 *
 * Conventions:
 *  - Buffers are described by VIXDATA (bytes and size). The caller owns every buffer; nothing
 *    here allocates what it returns or keeps a pointer after the call.
 *  - Functions return 0 or a runtime code (vix_error.h). Each call first clears the calling
 *    thread's error detail; a failure leaves a detail text starting with "; " that names the
 *    entry and meta concerned (vix_get_error_detail).
 *  - Null pointer arguments give VIX_ERROR_INVALID_PARAM. Nothing throws.
 *
 * Text of a record (vix_sprintf_ex; vix_sscanf_ex reads the same text):
 *
 *   [Pkg version="3"]:            head, unless iNoVarName; then "V3" when iWithVersion
 *     magic=7                     separator, indent, name, "=", value
 *     items[0]=1                  an array element carries its index
 *     [head]                      a composite member: "[name]" or "[name[i]]" for an element,
 *       cmd=CMD_LOGIN               its members one indent step deeper
 *
 *  - Every member line starts with the format's separator (default "\n"); the text has no
 *    trailing separator. Members of the record itself are indented one step, members of a
 *    composite member one step more than the composite. One step is VIX_INDENT_STEP copies of
 *    the indent character (an indent character of '\0' means no indentation).
 *  - With iNoVarName there is no head and no names: scalar lines hold only the value, and a
 *    composite member writes no line of its own (its members keep their deeper indent).
 *  - Members whose version is above the cut-off version are left out. An array whose element
 *    count is held by a refer member writes that many elements (the value must lie in
 *    [0, count]). A union member writes only the branch its selector picks, nothing when no
 *    branch takes the selector value; a union with no selector (a union meta printed on its own,
 *    or a union member declared without one) writes its first branch.
 *  - A string member of natural element size (1 byte, 2 for wstring) and count N is one string
 *    of capacity N; with a larger element size each element is a string of that size.
 *  - Values: tinyint "%d", tinyuint and byte "0x%x", smallint, smalluint, int, long "%d", uint,
 *    ulong "%u", bigint "%lld", biguint "%llu", money (an int32 count of the smallest currency
 *    unit) "%d", float and double "%f", date, time and datetime as vix_vixdate_to_str and
 *    friends, ip dotted, string as is (up to its NUL or capacity), wchar and wstring converted to
 *    the multibyte encoding (vix_set_encoding). An integer member bound to a macro group writes
 *    the name of the group's macro with its value instead of the number. "%f" keeps six decimals,
 *    so a float or double reads back to the same bytes only when six decimals identify it.
 */
#ifndef VIX_VIX_IO_H
#define VIX_VIX_IO_H

#include <stddef.h>
#include <stdint.h>
#include <stdio.h>

#include "vix/vix_base.h"
#include "vix/vix_error.h"
#include "vix/vix_metalib.h"

/* Indent characters per nesting level. */
#define VIX_INDENT_STEP 2

/* A buffer: on output the room on entry and the bytes written on return. */
typedef struct tagVIXData {
  char* pszBuff;
  uint64_t iBuff;
} VIXDATA, *LPVIXDATA;

/* How a record is written (and read back). */
typedef struct tagVixPrintFormat {
  const char* pszSepStr; /* written before every member; default "\n" */
  int32_t iNoVarName;    /* 1: values only, no head line and no member names; default 0 */
  char chIndentChar;     /* indent character; default ' ' */
  int32_t iWithVersion;  /* 1: a version marker "V<version>" after the head; default 0 */
} VIXPRINTFORMAT, *LPVIXPRINTFORMAT;

/* An output stream: a caller's buffer or an open file. */
typedef enum tagVIXIOStreamType {
  VIX_IOSTREAM_UNKOWN = 0,
  VIX_IOSTREAM_STRBUF = 1,
  VIX_IOSTREAM_FILE = 2
} VIXIOSTREAMTYPE;

typedef struct tagVIXIOStream {
  VIXIOSTREAMTYPE emIOStreamType;
  char* pszBuff;     /* STRBUF: next byte to write */
  uint64_t iLeft;    /* STRBUF: room left */
  FILE* fp;          /* FILE: the file */
  uint64_t iWritten; /* bytes written so far */
} VIXIOSTREAM, *LPVIXIOSTREAM;

#ifdef __cplusplus
extern "C" {
#endif

/* Fills the defaults: separator "\n", names written, indent ' ', no version marker.
 * VIX_ERROR_INVALID_PARAM for null. */
VIX_WUR int vix_get_default_format(LPVIXPRINTFORMAT pstFormat);

/* The multibyte encoding wide strings are written in and read from (iconv name, at most 31
 * characters; default "GBK"). Process-wide, not synchronised: set it at start-up.
 * VIX_ERROR_INVALID_PARAM for null, "" or too long a name, VIX_ERROR_ENCODING_CONVERT when the
 * system does not know it. */
VIX_WUR int vix_set_encoding(const char* pszEncoding);

/* Streams. A buffer stream writes into iBuff bytes at pszBuff; a file stream into fp. */
VIX_WUR int vix_iostream_init_strbuf(LPVIXIOSTREAM pstStream, char* pszBuff, uint64_t iBuff);
VIX_WUR int vix_iostream_init_file(LPVIXIOSTREAM pstStream, FILE* fp);

/* printf-style output into a stream. A buffer stream receives what fits; when the text does not
 * fit, the room is filled, the stream is full and VIX_ERROR_OUT_BUF_TOO_SMALL is returned. The
 * text is NUL-terminated when room is left after it (the NUL is not counted). A failed file
 * write gives VIX_ERROR_WRITE_FILE. */
VIX_WUR int vix_iostream_write(LPVIXIOSTREAM pstStream, const char* pszFormat, ...)
    VIX_PRINTF_LIKE(2, 3);

/* Writes the record in pstHost (pstHost->iBuff bytes), described by pstMeta, as text into
 * pstOut with the default format (vix_sprintf) or the given one. iCutOffVersion 0 means the
 * meta's current version; members above the cut-off are left out. On return pstOut->iBuff holds
 * the bytes written (also on a failure after writing started: the text up to there, filling the
 * buffer when it ran out of room); the text is NUL-terminated when room is left after it.
 * Failures:
 *  - null meta, out or host: VIX_ERROR_INVALID_PARAM; a null or empty out or host buffer:
 *    VIX_ERROR_INVALID_PARAM and pstOut->iBuff 0; a null format or separator:
 *    VIX_ERROR_INVALID_PARAM;
 *  - a cut-off below the meta's base version: VIX_ERROR_INVALID_CUTOFF_VERSION, out size 0;
 *  - a refer value outside [0, count]: VIX_ERROR_MINUS_REFER_VALUE or
 *    VIX_ERROR_REFER_SURPASS_COUNT;
 *  - nesting deeper than VIX_MAX_NESTING: VIX_ERROR_TOO_COMPLEX_META;
 *  - a host buffer that ends before the record: VIX_ERROR_HOST_BUFF_TOO_SMALL;
 *  - the out buffer full: VIX_ERROR_OUT_BUF_TOO_SMALL; a value that cannot be written (a wide
 *    character the encoding lacks, a void member): VIX_ERROR_PRINT_FAILED. */
VIX_WUR int vix_sprintf(const VIXMETA* pstMeta, LPVIXDATA pstOut, const VIXDATA* pstHost,
                        int iCutOffVersion);
VIX_WUR int vix_sprintf_ex(const VIXMETA* pstMeta, LPVIXDATA pstOut, const VIXDATA* pstHost,
                           int iCutOffVersion, const VIXPRINTFORMAT* pstFormat);

/* The same into an open file (buffered here, written with fwrite; the file is not flushed).
 * A failed write gives VIX_ERROR_WRITE_FILE. */
VIX_WUR int vix_fprintf(const VIXMETA* pstMeta, FILE* fp, const VIXDATA* pstHost,
                        int iCutOffVersion);
VIX_WUR int vix_fprintf_ex(const VIXMETA* pstMeta, FILE* fp, const VIXDATA* pstHost,
                           int iCutOffVersion, const VIXPRINTFORMAT* pstFormat);

/* Reads text in the form vix_sprintf_ex writes with the same format (pstIn->iBuff bytes, no
 * terminator needed) into the record in pstHost (pstHost->iBuff bytes). Neither descriptor is
 * changed.
 *  - Members left out of the text keep the value the record already holds, so a caller can
 *    fill defaults first. Members that are present must keep the meta's order; array elements
 *    keep ascending indexes and may be left out too. Blank lines and any indentation are
 *    accepted between members; the head line and the version marker may be left out (a head
 *    must name the meta).
 *  - A value runs from after "=" to the first separator that is followed, after blanks, by the
 *    end of the text or by a member line ("name=", "name[i]=", "[name]", "[name[i]]"; names hold
 *    no blanks), so a value may hold blanks and separators that are not followed by such a line.
 *    Integer values may be written in decimal, in hexadecimal with 0x, as the name of a macro of
 *    the member's group, or as a macro name or expression of the library
 *    (vix_compute_macro_expr_int). A string must leave room for its NUL; the rest of a string
 *    member is zero-filled.
 *  - With iNoVarName the text holds every member in order, one value per line; a value ends at
 *    the first separator followed by an indent step (or by the end).
 *  - The cut-off version rules of vix_sprintf_ex apply: members above it are not read, a
 *    cut-off below the base version gives VIX_ERROR_INVALID_CUTOFF_VERSION. Refer values and
 *    union selectors are taken from the record as it stands when the array or union is reached
 *    (so from the text when it set them).
 *  - Malformed text is refused: VIX_ERROR_BAD_TEXT_INPUT (syntax, order, text after the
 *    record), VIX_ERROR_UNKNOWN_ENTRY_IN_TEXT, VIX_ERROR_BAD_NUMBER,
 *    VIX_ERROR_VALUE_OUT_OF_RANGE, VIX_ERROR_STRING_TOO_LONG, VIX_ERROR_ARRAY_INDEX_OUT,
 *    VIX_ERROR_BAD_DATE / _TIME / _DATETIME / _IP, VIX_ERROR_ENCODING_CONVERT, and the refer,
 *    nesting and host-size failures of vix_sprintf_ex; the detail names the line (1-based) and
 *    the entry. Nothing is written outside pstHost; on a failure the record is restored to what
 *    it held before the call. */
VIX_WUR int vix_sscanf_ex(const VIXMETA* pstMeta, LPVIXDATA pstHost, const VIXDATA* pstIn,
                          int iVersion, const VIXPRINTFORMAT* pstFormat);

/* A readable dump of a whole library into a file (vix_dump_metalib) or a new file at a path
 * (vix_dump_metalib_file; VIX_ERROR_OPEN_FILE_WRITE when it cannot be opened). The library must
 * pass the format check (else VIX_ERROR_INVALID_PARAM). Form, one item per line, nested items
 * indented by two blanks:
 *
 *   metalib name="sample" id=7 version=3 build=11 platform=64 size=5432 checksum=0x1a2b3c4d
 *     tagset=0 flag=0 metas=5/5 macros=4/4 groups=1/1 maxid=5
 *   macro[0] name="CMD_LOGIN" value=1 desc="d"
 *   group[0] name="Cmd" macros=3 desc=""
 *     macro name="CMD_LOGIN" value=1            (members in value order)
 *   meta[4] name="Pkg" type=struct id=5 version=0..0 hsize=88 nsize=84 align=8 entries=5
 *       indexes=1 keys=2 desc="a package" cname="" attr="attr1" attr2=""
 *     entry[0] name="head" type=Head id=- version=0 count=1 refer=- select=- hoff=0 hunit=8
 *         hsize=8 noff=0 nunit=7 nsize=7 range=- group=- default=- desc="" cname="" io=0
 *         flag=0x0
 *     index[0] name="byCount" id=11 version=0 type=0 unique=0 columns=count
 *     primarykey head.magic, count
 *
 * (A meta and an entry are one line each; they are wrapped here.) Strings are quoted as they
 * are; "-" stands for absent values: no identifier (wFlag without 0x0008), no refer or selector
 * member, no union range, no macro group, no default. Refer and selector members, index columns
 * and keys are named by their path from the meta ("head.cmd"); a range is [min,max]; type is a
 * base type name or the nested meta's name; flag is wFlag. Write failures give
 * VIX_ERROR_WRITE_FILE. */
VIX_WUR int vix_dump_metalib(const VIXMETALIB* pstLib, FILE* fp);
VIX_WUR int vix_dump_metalib_file(const VIXMETALIB* pstLib, const char* pszPath);

#ifdef __cplusplus
}
#endif

#endif /* VIX_VIX_IO_H */
