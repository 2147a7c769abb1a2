/*
 * vix_internal.h: pieces shared by the runtime's own sources (not installed).
 *
 * Resolving references inside a library: every VIXPTR counts from the data start
 * (vix_lib_data_i); a meta finds its library through its ptrMeta, an entry or an index its meta
 * through iOffToMeta. Libraries that reach these helpers are either built here or passed the
 * load-time block check (vix_check_lib_i), so the helpers do not re-check offsets.
 */
#ifndef VIX_SRC_VIX_INTERNAL_H
#define VIX_SRC_VIX_INTERNAL_H

#include <stddef.h>
#include <stdint.h>
#include <string.h>
#include <time.h>

#include "vix/vix_error.h"
#include "vix/vix_metalib.h"
#include "vix/vix_types.h"

/* ---- error detail (vix_error.cc) ---- */

/* Replaces / extends the calling thread's detail text (printf format, truncated to the
 * buffer). Callers start their texts with "; " so that several can be chained. */
void vix_set_error_detail_i(const char* pszFormat, ...) VIX_PRINTF_LIKE(1, 2);
void vix_append_error_detail_i(const char* pszFormat, ...) VIX_PRINTF_LIKE(1, 2);
void vix_clear_error_detail_i(void);

/* ---- multibyte encoding (vix_strutil.cc) ---- */

/* Sets the encoding name used for wide-string conversions (at most 31 characters; the default
 * is "GBK"). VIX_ERROR_INVALID_PARAM for null, "" or too long a name, VIX_ERROR_ENCODING_CONVERT
 * when iconv does not know it. Process-wide, not synchronised. */
VIX_WUR int vix_set_encoding_i(const char* pszEncoding);
const char* vix_get_encoding_i(void);

/* ---- dates (vix_datetime.cc) ---- */

/* Validity of a date: year -9999..9999, month <= 12, day <= 31 (0 passes both), day 31 refused
 * in April, June, September and November, February up to 28 or 29 in a leap year. A time:
 * hour -999..999, minute and second <= 59. A date-time: a valid date, hour 0..23. */
int vix_isValid_vixdate_i(const VIXDATE* pstDate);
int vix_isValid_vixtime_i(const VIXTIME* pstTime);
int vix_isValid_vixdatetime_i(const VIXDATETIME* pstDateTime);

/* vix_strptime with iWide != 0: %m and %d accept 0..99 (validity is checked afterwards) and
 * %H accepts an optional sign and up to three digits. */
char* vix_strptime_i(const char* pszText, const char* pszFormat, struct tm* pstTm, int iWide);

/* ---- library access ---- */

/* First 32-bit word (magic and build) and platform of a 64-bit library in this format. */
inline bool vix_lib_format_ok_i(const VIXMETALIB* pstLib) {
  uint32_t dwWord;
  memcpy(&dwWord, pstLib, sizeof(dwWord));
  return dwWord == VIX_MAGIC_WORD && pstLib->dwPlatformArch == VIX_PLATFORM_64;
}

/* The format check of the lookups: stores VIX_ERROR_BUILD_VERSION as the last error when the
 * library fails it. A null library fails without touching the last error. */
inline bool vix_lib_usable_i(const VIXMETALIB* pstLib) {
  if (pstLib == nullptr) return false;
  if (vix_lib_format_ok_i(pstLib)) return true;
  vix_set_last_error(VIX_ERROR_BUILD_VERSION);
  return false;
}

inline const char* vix_lib_data_i(const VIXMETALIB* pstLib) {
  return reinterpret_cast<const char*>(pstLib) + sizeof(VIXMETALIB);
}
inline char* vix_lib_data_i(VIXMETALIB* pstLib) {
  return reinterpret_cast<char*>(pstLib) + sizeof(VIXMETALIB);
}

template <typename T>
inline const T* vix_lib_at_i(const VIXMETALIB* pstLib, VIXPTR ptr) {
  return reinterpret_cast<const T*>(vix_lib_data_i(pstLib) + ptr);
}
template <typename T>
inline T* vix_lib_at_i(VIXMETALIB* pstLib, VIXPTR ptr) {
  return reinterpret_cast<T*>(vix_lib_data_i(pstLib) + ptr);
}

/* A string reference; "" when absent. */
inline const char* vix_lib_str_i(const VIXMETALIB* pstLib, VIXPTR ptr) {
  return ptr == VIX_PTR_NONE ? "" : vix_lib_data_i(pstLib) + ptr;
}

inline const VIXMETALIB* vix_lib_of_meta_i(const VIXMETA* pstMeta) {
  return reinterpret_cast<const VIXMETALIB*>(reinterpret_cast<const char*>(pstMeta) -
                                             pstMeta->ptrMeta - sizeof(VIXMETALIB));
}
inline const VIXMETA* vix_meta_of_entry_i(const VIXMETAENTRY* pstEntry) {
  return reinterpret_cast<const VIXMETA*>(reinterpret_cast<const char*>(pstEntry) -
                                          pstEntry->iOffToMeta);
}
inline const VIXMETALIB* vix_lib_of_entry_i(const VIXMETAENTRY* pstEntry) {
  return vix_lib_of_meta_i(vix_meta_of_entry_i(pstEntry));
}
inline const VIXMETAENTRY* vix_meta_entries_i(const VIXMETA* pstMeta) {
  return reinterpret_cast<const VIXMETAENTRY*>(reinterpret_cast<const char*>(pstMeta) +
                                               sizeof(VIXMETA));
}
inline const char* vix_meta_str_i(const VIXMETA* pstMeta, VIXPTR ptr) {
  return vix_lib_str_i(vix_lib_of_meta_i(pstMeta), ptr);
}
inline const char* vix_entry_str_i(const VIXMETAENTRY* pstEntry, VIXPTR ptr) {
  return vix_lib_str_i(vix_lib_of_entry_i(pstEntry), ptr);
}

/* Composite type rows (union, struct). */
inline bool vix_type_is_composite_i(int iTypeIdx) {
  return iTypeIdx == VIX_TYPEIDX_UNION || iTypeIdx == VIX_TYPEIDX_STRUCT;
}

/* ---- block (vix_lib.cc, vix_check.cc) ---- */

/* XOR of the iSize / 4 32-bit words of a block. */
uint32_t vix_xor_words_i(const void* pvBlock, uint64_t iSize);

/* Checks every offset and size of a 64-bit library of iAvail readable bytes whose format
 * word, platform and checksum have been checked: 0, or VIX_ERROR_BAD_METALIB_FILE with a
 * detail text naming the failing field. */
VIX_WUR int vix_check_lib_i(const VIXMETALIB* pstLib, uint64_t iAvail);

/* Linear search of the definition map by name (used while building). */
const VIXMETA* vix_get_meta_by_name_linear_i(const VIXMETALIB* pstLib, const char* pszName);

/* ---- member paths (vix_path.cc) ---- */

/* Result of following a member path from a meta. */
typedef struct tagVIXPathHit {
  const VIXMETAENTRY* pstEntry; /* last entry of the path */
  VIXOFF iHOff;                 /* host offset from the starting meta */
  VIXOFF iNOff;                 /* network offset from the starting meta */
  int iIndexed;                 /* the last step named an element */
} VIXPATHHIT;

/* Follows pszPath from pstMeta. Codes as vix_entry_path_to_off. */
VIX_WUR int vix_follow_path_i(VIXPATHHIT* pstHit, const VIXMETA* pstMeta, const char* pszPath);

/* Is the text an identifier (letters, digits, '_', not starting with a digit)? */
bool vix_is_identifier_i(const char* pszName);

#endif /* VIX_SRC_VIX_INTERNAL_H */
