/*
 * vix_io_internal.h: what the text writer (vix_print.cc) and reader (vix_scan.cc) share: how a
 * member is shaped (scalar, array, composite, one string), how many elements it has, which
 * union branch is in force, and the argument checks both make.
 */
#ifndef VIX_SRC_VIX_IO_INTERNAL_H
#define VIX_SRC_VIX_IO_INTERNAL_H

#include <stdint.h>
#include <string.h>

#include "vix/vix_io.h"
#include "vix/vix_metalib.h"
#include "vix/vix_types.h"
#include "vix_internal.h"

namespace vix_io {

constexpr int kStep = VIX_INDENT_STEP;

// Elements a walk may visit per host byte, plus a fixed allowance: a legitimate record visits
// each host byte at most once per nesting level, so only libraries with huge arrays of empty
// records reach the limit (which would otherwise take hours).
constexpr uint64_t kVisitsPerByte = VIX_MAX_NESTING;
constexpr uint64_t kVisitAllowance = uint64_t{1} << 20;

inline uint64_t visit_budget(uint64_t iHostSize) {
  return iHostSize > (UINT64_MAX - kVisitAllowance) / kVisitsPerByte
             ? UINT64_MAX
             : iHostSize * kVisitsPerByte + kVisitAllowance;
}

inline bool is_composite(const VIXMETAENTRY* e) { return vix_type_is_composite_i(e->iType); }

inline bool is_text_code(int iCode) {
  return iCode == VIX_TYPE_STRING || iCode == VIX_TYPE_WSTRING;
}

inline bool is_unsigned_code(int iCode) {
  return iCode == VIX_TYPE_UCHAR || iCode == VIX_TYPE_SMALLUINT || iCode == VIX_TYPE_UINT ||
         iCode == VIX_TYPE_ULONG || iCode == VIX_TYPE_ULONGLONG;
}

inline bool is_integer_code(int iCode) {
  return iCode == VIX_TYPE_CHAR || iCode == VIX_TYPE_SMALLINT || iCode == VIX_TYPE_INT ||
         iCode == VIX_TYPE_LONG || iCode == VIX_TYPE_LONGLONG || iCode == VIX_TYPE_MONEY ||
         is_unsigned_code(iCode);
}

// A string entry of natural element size and no refer member is one string of iCount units.
inline bool is_one_string(const VIXMETAENTRY* e, const VIXCTYPEINFO* t) {
  return is_text_code(t->iType) && e->iHUnitSize == static_cast<uint64_t>(t->iSize) &&
         e->stRefer.iUnitSize == 0;
}

// Written with element indexes: a count other than 1, or a refer member.
inline bool is_array(const VIXMETAENTRY* e, const VIXCTYPEINFO* t) {
  if (t != nullptr && is_one_string(e, t)) return false;
  return e->iCount != 1 || e->stRefer.iUnitSize != 0;
}

// An integer of 1, 2, 4 or 8 bytes at p, sign-extended when bSigned.
inline int64_t load_int(const char* p, uint64_t iUnit, bool bSigned) {
  switch (iUnit) {
    case 1: {
      uint8_t v;
      memcpy(&v, p, 1);
      return bSigned ? int64_t{static_cast<int8_t>(v)} : int64_t{v};
    }
    case 2: {
      uint16_t v;
      memcpy(&v, p, 2);
      return bSigned ? int64_t{static_cast<int16_t>(v)} : int64_t{v};
    }
    case 4: {
      uint32_t v;
      memcpy(&v, p, 4);
      return bSigned ? int64_t{static_cast<int32_t>(v)} : int64_t{v};
    }
    default: {
      int64_t v;
      memcpy(&v, p, 8);
      return v;
    }
  }
}

// Signedness of the member a selector names (signed when it names none).
inline bool selector_signed(const char* pData, const VIXSELECTOR& s) {
  if (s.ptrEntry == VIX_PTR_NONE) return true;
  const VIXMETAENTRY* e = reinterpret_cast<const VIXMETAENTRY*>(pData + s.ptrEntry);
  const VIXCTYPEINFO* t = vix_idx_to_typeinfo(e->iType);
  return t == nullptr || !is_unsigned_code(t->iType);
}

// Reads the member a selector names from the instance at iBase of the host buffer.
// False when it lies outside the host buffer.
inline bool read_selector(const char* pData, const VIXSELECTOR& s, const char* pHost,
                          uint64_t iHostSize, uint64_t iBase, int64_t* piValue) {
  const uint64_t iOff = iBase + static_cast<uint64_t>(s.iHOff);
  if (s.iHOff < 0 || iOff > iHostSize || s.iUnitSize > iHostSize - iOff) return false;
  *piValue = load_int(pHost + iOff, s.iUnitSize, selector_signed(pData, s));
  return true;
}

// The union branch of a union-typed member: the entry the selector value picks, -1 when none
// takes it, the first branch when the member has no selector.
inline int union_branch(const VIXMETA* pstUnion, int64_t iSelector, bool bHasSelector) {
  if (!bHasSelector) return pstUnion->iEntriesNum > 0 ? 0 : -1;
  if (iSelector < INT32_MIN || iSelector > INT32_MAX) return -1;
  int iIdx = -1;
  if (vix_get_entry_by_id(&iIdx, pstUnion, static_cast<int>(iSelector)) != 0) return -1;
  return iIdx;
}

}  // namespace vix_io

#endif /* VIX_SRC_VIX_IO_INTERNAL_H */
