// The base-type table: names, declared spellings, SQL types, member-name prefixes, codes,
// sizes and flags of the 39 types an entry can name by index.
#include <strings.h>

#include "vix/vix_types.h"
#include "vix_internal.h"

namespace {

// Row order is the type index stored in entries; never reorder.
VIXCTYPEINFO g_astTypes[VIX_TYPE_TABLE_ROWS] = {
    {"union", "union", "", "st", "ast", VIX_TYPE_UNION, 0, 0},
    {"struct", "struct", "", "st", "ast", VIX_TYPE_STRUCT, 0, 0},
    {"tinyint", "int8_t", "TINYINT", "ch", "sz", VIX_TYPE_CHAR, 1, 0},
    {"tinyuint", "uint8_t", "TINYINT UNSIGNED", "b", "sz", VIX_TYPE_UCHAR, 1, 0},
    {"smallint", "int16_t", "SMALLINT", "n", "", VIX_TYPE_SMALLINT, 2, 1},
    {"smalluint", "uint16_t", "SMALLINT UNSIGNED", "w", "", VIX_TYPE_SMALLUINT, 2, 1},
    {"int", "int32_t", "INT", "i", "", VIX_TYPE_INT, 4, 1},
    {"uint", "uint32_t", "INT UNSIGNED", "dw", "", VIX_TYPE_UINT, 4, 1},
    {"bigint", "int64_t", "BIGINT", "ll", "", VIX_TYPE_LONGLONG, 8, 1},
    {"biguint", "uint64_t", "BIGINT UNSIGNED", "ull", "", VIX_TYPE_ULONGLONG, 8, 1},
    {"int8", "int8_t", "TINYINT", "ch", "sz", VIX_TYPE_CHAR, 1, 0},
    {"uint8", "uint8_t", "TINYINT UNSIGNED", "b", "sz", VIX_TYPE_UCHAR, 1, 0},
    {"int16", "int16_t", "SMALLINT", "n", "", VIX_TYPE_SMALLINT, 2, 1},
    {"uint16", "uint16_t", "SMALLINT UNSIGNED", "w", "", VIX_TYPE_SMALLUINT, 2, 1},
    {"int32", "int32_t", "INT", "i", "", VIX_TYPE_INT, 4, 1},
    {"uint32", "uint32_t", "INT UNSIGNED", "dw", "", VIX_TYPE_UINT, 4, 1},
    {"int64", "int64_t", "BIGINT", "ll", "", VIX_TYPE_LONGLONG, 8, 1},
    {"uint64", "uint64_t", "BIGINT UNSIGNED", "ull", "", VIX_TYPE_ULONGLONG, 8, 1},
    {"float", "float", "FLOAT", "f", "", VIX_TYPE_FLOAT, 4, 1},
    {"double", "double", "DOUBLE", "d", "", VIX_TYPE_DOUBLE, 8, 1},
    {"decimal", "float", "FLOAT", "f", "", VIX_TYPE_FLOAT, 4, 1},
    {"date", "vix_date_t", "DATE", "t", "", VIX_TYPE_DATE, 4, 1},
    {"time", "vix_time_t", "TIME", "t", "", VIX_TYPE_TIME, 4, 1},
    {"datetime", "vix_datetime_t", "DATETIME", "t", "", VIX_TYPE_DATETIME, 8, 1},
    {"string", "char", "VARCHAR", "sz", "asz", VIX_TYPE_STRING, 1, 0},
    {"byte", "uint8_t", "TINYINT UNSIGNED", "b", "sz", VIX_TYPE_UCHAR, 1, 0},
    {"ip", "vix_ip_t", "INT UNSIGNED", "ul", "", VIX_TYPE_IP, 4, 1},
    {"wchar", "vix_wchar_t", "SMALLINT UNSIGNED", "w", "", VIX_TYPE_WCHAR, 2, 1},
    {"wstring", "vix_wchar_t", "VARCHAR", "sz", "asz", VIX_TYPE_WSTRING, 2, 0},
    {"void", "void", "VOID", "", "", VIX_TYPE_VOID, 1, 0},
    {"char", "char", "TINYINT", "ch", "sz", VIX_TYPE_CHAR, 1, 0},
    {"uchar", "unsigned char", "TINYINT UNSIGNED", "b", "sz", VIX_TYPE_UCHAR, 1, 0},
    {"short", "int16_t", "SMALLINT", "n", "", VIX_TYPE_SMALLINT, 2, 1},
    {"ushort", "uint16_t", "SMALLINT UNSIGNED", "w", "", VIX_TYPE_SMALLUINT, 2, 1},
    {"long", "int32_t", "INT", "l", "", VIX_TYPE_LONG, 4, 1},
    {"ulong", "uint32_t", "INT UNSIGNED", "ul", "", VIX_TYPE_ULONG, 4, 1},
    {"longlong", "int64_t", "BIGINT", "ll", "", VIX_TYPE_LONGLONG, 8, 1},
    {"ulonglong", "uint64_t", "BIGINT UNSIGNED", "ull", "", VIX_TYPE_ULONGLONG, 8, 1},
    {"money", "int32_t", "INT", "m", "", VIX_TYPE_MONEY, 4, 1},
};

bool in_table_i(int iIdx) { return iIdx >= 0 && iIdx < VIX_TYPE_TABLE_ROWS; }

int set_prefix_i(const char* pszTypeName, const char* pszPrefix, bool bArray) {
  if (pszTypeName == nullptr || pszPrefix == nullptr) return VIX_ERROR_INVALID_PARAM;
  const int iIdx = vix_typename_to_idx(pszTypeName);
  if (iIdx < 0) return VIX_ERROR_INVALID_PARAM;
  const size_t iLen = strlen(pszPrefix);
  if (iLen >= VIX_TYPE_PREFIX_LEN) return VIX_ERROR_PREFIX_TOO_LONG;
  char* pszDst = bArray ? g_astTypes[iIdx].pszMPrefix : g_astTypes[iIdx].pszSPrefix;
  memcpy(pszDst, pszPrefix, iLen + 1);
  return 0;
}

}  // namespace

const VIXCTYPEINFO* vix_idx_to_typeinfo(int iIdx) {
  return in_table_i(iIdx) ? &g_astTypes[iIdx] : nullptr;
}

int vix_typename_to_idx(const char* pszName) {
  if (pszName == nullptr) return -1;
  for (int i = 0; i < VIX_TYPE_TABLE_ROWS; ++i) {
    if (strcasecmp(g_astTypes[i].pszName, pszName) == 0) return i;
  }
  return -1;
}

const char* vix_get_typename_by_index(int iIdx) {
  return in_table_i(iIdx) ? g_astTypes[iIdx].pszName : nullptr;
}

int vix_get_prefix_table_size(void) { return VIX_TYPE_TABLE_ROWS; }

int vix_get_prefix_max_len(void) { return VIX_TYPE_PREFIX_LEN - 1; }

const char* vix_get_sprefix_by_index(int iIdx) {
  return in_table_i(iIdx) ? g_astTypes[iIdx].pszSPrefix : nullptr;
}

const char* vix_get_mprefix_by_index(int iIdx) {
  return in_table_i(iIdx) ? g_astTypes[iIdx].pszMPrefix : nullptr;
}

int vix_set_sprefix_by_name(const char* pszTypeName, const char* pszPrefix) {
  return set_prefix_i(pszTypeName, pszPrefix, false);
}

int vix_set_mprefix_by_name(const char* pszTypeName, const char* pszPrefix) {
  return set_prefix_i(pszTypeName, pszPrefix, true);
}

int vix_type_is_integer(int iTypeIdx) {
  if (!in_table_i(iTypeIdx)) return 0;
  switch (g_astTypes[iTypeIdx].iType) {
    case VIX_TYPE_CHAR:
    case VIX_TYPE_UCHAR:
    case VIX_TYPE_SMALLINT:
    case VIX_TYPE_SMALLUINT:
    case VIX_TYPE_INT:
    case VIX_TYPE_UINT:
    case VIX_TYPE_LONG:
    case VIX_TYPE_ULONG:
    case VIX_TYPE_LONGLONG:
    case VIX_TYPE_ULONGLONG:
      return 1;
    default:
      return 0;
  }
}
