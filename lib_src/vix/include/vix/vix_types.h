/*
 * vix_types.h: the base-type table, date / time / date-time and IPv4 values with their text
 * forms, MD5, the string hash and small string helpers of the vix runtime.
 *
 * Conventions:
 *  - Functions returning int give 0 on success or a runtime code (vix_error.h); a null pointer
 *    argument gives VIX_ERROR_INVALID_PARAM unless stated otherwise.
 *  - Text results: the plain *_to_str forms return a per-thread static buffer overwritten by the
 *    next call of the same thread; the _r forms write into the caller's buffer and return it,
 *    or null when it is null or too small.
 *  - The type table is process-wide; the prefix setters change it for every thread and are not
 *    synchronised (call them at start-up).
 *  - Date, time and IP values are plain records (VIXDATE, VIXTIME, VIXDATETIME, VIXIP); in
 *    generated declarations and in records they take 4, 4, 8 and 4 bytes.
 */
#ifndef VIX_VIX_TYPES_H
#define VIX_VIX_TYPES_H

#include <netinet/in.h>
#include <stddef.h>
#include <stdint.h>
#include <time.h>

#include "vix/vix_base.h"
#include "vix/vix_error.h"

/* ---- base types ---- */

/* Type codes (iType of a type-table row). Several rows share a code; 4 does not occur. */
#define VIX_TYPE_UNION 0
#define VIX_TYPE_STRUCT 1
#define VIX_TYPE_CHAR 2
#define VIX_TYPE_UCHAR 3
#define VIX_TYPE_SMALLINT 5
#define VIX_TYPE_SMALLUINT 6
#define VIX_TYPE_INT 7
#define VIX_TYPE_UINT 8
#define VIX_TYPE_LONG 9
#define VIX_TYPE_ULONG 10
#define VIX_TYPE_LONGLONG 11
#define VIX_TYPE_ULONGLONG 12
#define VIX_TYPE_DATE 13
#define VIX_TYPE_TIME 14
#define VIX_TYPE_DATETIME 15
#define VIX_TYPE_MONEY 16
#define VIX_TYPE_FLOAT 17
#define VIX_TYPE_DOUBLE 18
#define VIX_TYPE_IP 19
#define VIX_TYPE_WCHAR 20
#define VIX_TYPE_STRING 21
#define VIX_TYPE_WSTRING 22
#define VIX_TYPE_VOID 23

/* Row indexes of the type table that the runtime names directly. */
#define VIX_TYPEIDX_UNION 0
#define VIX_TYPEIDX_STRUCT 1
#define VIX_TYPEIDX_STRING 24
#define VIX_TYPEIDX_WSTRING 28
#define VIX_TYPEIDX_VOID 29
#define VIX_TYPE_TABLE_ROWS 39

/* uiFlags bit: a number that text output prints as a number. */
#define VIX_TYPE_FLAG_NUMBER 0x1u

#define VIX_TYPE_PREFIX_LEN 32 /* prefix fields, terminator included */

/* One row of the type table. */
typedef struct tagVIXCTypeInfo {
  const char* pszName;                  /* name used in descriptions (matched ignoring case) */
  const char* pszCName;                 /* type spelling in generated declarations */
  const char* pszSQLName;               /* column type in database statements ("" for none) */
  char pszSPrefix[VIX_TYPE_PREFIX_LEN]; /* member-name prefix of a single value */
  char pszMPrefix[VIX_TYPE_PREFIX_LEN]; /* member-name prefix of an array */
  int32_t iType;                        /* type code VIX_TYPE_* */
  int32_t iSize;                        /* host size of one value in bytes */
  uint32_t uiFlags;                     /* VIX_TYPE_FLAG_* */
} VIXCTYPEINFO, *LPVIXCTYPEINFO;

/* ---- date, time, date-time, IPv4 ---- */

typedef struct tagVIXDate {
  int16_t nYear;
  uint8_t bMonth;
  uint8_t bDay;
} VIXDATE, *LPVIXDATE;

typedef struct tagVIXTime {
  int16_t nHour;
  uint8_t bMin;
  uint8_t bSec;
} VIXTIME, *LPVIXTIME;

typedef struct tagVIXDateTime {
  VIXDATE stDate;
  VIXTIME stTime;
} VIXDATETIME, *LPVIXDATETIME;

/* An IPv4 address in network byte order. */
typedef uint32_t VIXIP;

/* A 16-bit wide character (UCS-2 in host byte order). */
typedef uint16_t vix_wchar_t;

VIX_STATIC_ASSERT(sizeof(VIXDATE) == 4, "VIXDATE is 4 bytes");
VIX_STATIC_ASSERT(sizeof(VIXTIME) == 4, "VIXTIME is 4 bytes");
VIX_STATIC_ASSERT(sizeof(VIXDATETIME) == 8, "VIXDATETIME is 8 bytes");

/* Text sizes, terminator included: "-9999-12-31", "-999:59:59", date and time with a blank. */
#define VIX_DATE_STR_LEN 16
#define VIX_TIME_STR_LEN 16
#define VIX_DATETIME_STR_LEN 32
#define VIX_IP_STR_LEN 16

/* ---- MD5 (RFC 1321) ---- */

#define VIX_MD5_DIGEST_LEN 16
#define VIX_MD5_STR_LEN 33 /* 32 hexadecimal digits and the terminator */

typedef struct tagMd5Ctx {
  uint32_t adwState[4];
  uint64_t ullBits;   /* message length in bits, modulo 2^64 */
  uint8_t abBuff[64]; /* the block being filled */
} VIXMD5CTX, *LPVIXMD5CTX;

#ifdef __cplusplus
extern "C" {
#endif

/* ---- type table ---- */

/* Row iIdx of the table, or null when iIdx is outside 0..38. */
const VIXCTYPEINFO* vix_idx_to_typeinfo(int iIdx);

/* 1 when row iTypeIdx is an integer type usable as a count, selector or size (1, 2, 4 or 8
 * bytes; not byte-like strings, dates, money or ip), else 0 (also outside the table). */
int vix_type_is_integer(int iTypeIdx);

/* Index of the first row whose name equals pszName ignoring case, or -1. */
int vix_typename_to_idx(const char* pszName);

/* Name of row iIdx, or null outside the table. */
const char* vix_get_typename_by_index(int iIdx);

/* Rows of the table (39). */
int vix_get_prefix_table_size(void);

/* Longest prefix a row can hold (31 characters). */
int vix_get_prefix_max_len(void);

/* Single-value / array prefix of row iIdx, or null outside the table. */
const char* vix_get_sprefix_by_index(int iIdx);
const char* vix_get_mprefix_by_index(int iIdx);

/* Replace the prefix of the first row named pszTypeName (ignoring case). Null arguments or an
 * unknown name give VIX_ERROR_INVALID_PARAM (nothing changes), a prefix of more than 31
 * characters VIX_ERROR_PREFIX_TOO_LONG. */
VIX_WUR int vix_set_sprefix_by_name(const char* pszTypeName, const char* pszPrefix);
VIX_WUR int vix_set_mprefix_by_name(const char* pszTypeName, const char* pszPrefix);

/* ---- date and time ---- */

/* Text "YYYY-MM-DD" (read as "%Y-%m-%d", an optional sign before the year, trailing blanks
 * allowed) to a date; an unreadable or invalid date gives VIX_ERROR_BAD_DATE. Month 0 and day 0
 * pass, as the validity rule allows them. *pstDate is untouched on failure. */
VIX_WUR int vix_str_to_vixdate(VIXDATE* pstDate, const char* pszDate);

/* Text "H:MM:SS" (hour -999..999, minute and second 0..59) to a time; VIX_ERROR_BAD_TIME. */
VIX_WUR int vix_str_to_vixtime(VIXTIME* pstTime, const char* pszTime);

/* Text "YYYY-MM-DD HH:MM:SS" to a date-time; VIX_ERROR_BAD_DATETIME. */
VIX_WUR int vix_str_to_vixdatetime(VIXDATETIME* pstDateTime, const char* pszDateTime);

/* Text forms "%4d-%02d-%02d", "%3d:%02d:%02d" and "%4d-%02d-%02d %02d:%02d:%02d". The plain
 * forms return a per-thread buffer ("" for a null argument). */
const char* vix_vixdate_to_str(const VIXDATE* pstDate);
const char* vix_vixtime_to_str(const VIXTIME* pstTime);
const char* vix_vixdatetime_to_str(const VIXDATETIME* pstDateTime);
const char* vix_vixdate_to_str_r(const VIXDATE* pstDate, char* pszBuff, size_t iBuff);
const char* vix_vixtime_to_str_r(const VIXTIME* pstTime, char* pszBuff, size_t iBuff);
const char* vix_vixdatetime_to_str_r(const VIXDATETIME* pstDateTime, char* pszBuff, size_t iBuff);

/* Date-time as local time to seconds since the epoch. The date-time must be valid with a
 * non-zero month and day, and mktime must succeed; else VIX_ERROR_BAD_DATETIME. */
VIX_WUR int vix_vixdatetime_to_utctime(time_t* ptTime, const VIXDATETIME* pstDateTime);

/* Seconds since the epoch to a local date-time; VIX_ERROR_BAD_DATETIME when localtime fails or
 * the year does not fit. */
VIX_WUR int vix_utctime_to_vixdatetime(VIXDATETIME* pstDateTime, time_t tTime);

/* Three-way comparisons: 1 when the first is later, 0 when equal, -1 when earlier. A null
 * argument orders before any value. */
int vix_compare_date(const VIXDATE* pstLeft, const VIXDATE* pstRight);
int vix_compare_time(const VIXTIME* pstLeft, const VIXTIME* pstRight);
int vix_compare_datetime(const VIXDATETIME* pstLeft, const VIXDATETIME* pstRight);

/* Parses pszText by pszFormat into *pstTm (only the fields the format names are set) and
 * returns the first character not consumed, or null when the text does not match.
 * Conversions: %Y year (optional sign, 1-4 digits), %y two-digit year (69-99 -> 19xx,
 * 00-68 -> 20xx), %m month 1-12, %d and %e day 1-31, %j day of the year 1-366, %H hour 0-23,
 * %I hour 1-12 with %p AM/PM, %M minute 0-59, %S second 0-60, %b %B %h English month name
 * (full or three letters, any case), %a %A English weekday name, %D = %m/%d/%y,
 * %T = %H:%M:%S, %F = %Y-%m-%d, %R = %H:%M, %n %t and blanks match any run of blanks,
 * %% a percent sign. Other characters match themselves. */
char* vix_strptime(const char* pszText, const char* pszFormat, struct tm* pstTm);

/* ---- IPv4 ---- */

/* Dotted text ("a.b.c.d", as inet_aton reads it) to an address; VIX_ERROR_BAD_IP. */
VIX_WUR int vix_ineta_to_vixip(VIXIP* pIp, const char* pszText);

/* Dotted text of an address in a per-thread buffer. */
const char* vix_vixip_to_ineta(VIXIP ip);

/* Dotted text into the caller's buffer (at least VIX_IP_STR_LEN bytes); null when too small. */
const char* vix_vixip_ntop(VIXIP ip, char* pszBuff, size_t iBuff);

/* The address as a struct in_addr. */
struct in_addr vix_vixip_to_inetaddr(VIXIP ip);

/* ---- MD5 and hashing ---- */

void vix_md5_init(VIXMD5CTX* pstCtx);
void vix_md5_update(VIXMD5CTX* pstCtx, const void* pvData, size_t iLen);
void vix_md5_final(uint8_t abDigest[VIX_MD5_DIGEST_LEN], VIXMD5CTX* pstCtx);

/* The 16-byte MD5 digest of iLen bytes. */
void vix_md5hash_buffer(uint8_t abDigest[VIX_MD5_DIGEST_LEN], const void* pvData, size_t iLen);

/* 32 lower-case hexadecimal digits and a NUL into pszText; null when iSize < 33 or an argument
 * is null, else pszText. */
char* vix_md5hash2str(const uint8_t abDigest[VIX_MD5_DIGEST_LEN], char* pszText, size_t iSize);

/* The reverse: 32 hexadecimal digits (either case) to a digest; VIX_ERROR_BAD_DIGEST_TEXT for
 * anything else (the digest is then untouched). */
VIX_WUR int vix_str2md5hash(const char* pszText, uint8_t abDigest[VIX_MD5_DIGEST_LEN]);

/* String hash: h = h * 33 + byte over iLen bytes, 32-bit unsigned, starting at 0. */
uint32_t vix_get_hash_code(const char* pszData, size_t iLen);

/* ---- string helpers ---- */

/* Copies src into dst up to and including its NUL, but at most n bytes; returns dst plus the
 * number of non-NUL bytes copied (the position of the NUL when it fit). Like stpncpy without
 * the zero padding: when src has n or more characters no NUL is written. */
char* vix_strnmov(char* pszDst, const char* pszSrc, size_t n);

/* Copies src with its NUL into dst and returns the position of the NUL in dst (stpcpy). */
char* vix_strmov(char* pszDst, const char* pszSrc);

/* Removes leading and trailing blanks (space, \t, \n, \v, \f, \r) in place; returns pszStr
 * (null for null). */
char* vix_trim_str(char* pszStr);

/* Copies pszSrc into pszDst (iDst bytes) with leading and trailing blanks removed and every
 * inner run of blanks replaced by one space. Returns the length written, or -1 when an
 * argument is null or the result does not fit (pszDst then holds "" when iDst > 0). */
int vix_normalize_string(char* pszDst, size_t iDst, const char* pszSrc);

/* Stable sort of iCount elements of iSize bytes (merge sort; elements that compare equal keep
 * their order). Uses a temporary buffer, and an in-place insertion sort when none can be had.
 * VIX_ERROR_INVALID_PARAM for a null base (with iCount > 0), null comparator or iSize 0. */
VIX_WUR int vix_qsort(void* pvBase, size_t iCount, size_t iSize,
                      int (*pfnCompare)(const void*, const void*));

/* Wide string (up to its NUL or iWcs characters) to the multibyte Chinese encoding (GBK by
 * default; the encoding name is settable). *piMbs holds the room on entry and the bytes written,
 * terminator excluded, on return; a NUL is always written. VIX_ERROR_OUT_BUF_TOO_SMALL when the
 * text and its NUL do not fit, VIX_ERROR_ENCODING_CONVERT for a character the encoding lacks. */
VIX_WUR int vix_wcstochinesembs(char* pszMbs, size_t* piMbs, const vix_wchar_t* pwszWcs,
                                size_t iWcs);

/* Multibyte text (up to its NUL or iMbs bytes) to a wide string. *piWcs holds the room in
 * characters on entry and the characters written, terminator excluded, on return. */
VIX_WUR int vix_chinesembstowcs(vix_wchar_t* pwszWcs, size_t* piWcs, const char* pszMbs,
                                size_t iMbs);

#ifdef __cplusplus
}
#endif

#endif /* VIX_VIX_TYPES_H */
