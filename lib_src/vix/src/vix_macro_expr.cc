// The macro expression calculator: operand substitution into a fixed buffer, infix to postfix,
// postfix evaluation in 64-bit integers. Tokens and the postfix form are strings and vectors;
// every text is bounded by the substitution buffer, so they stay small.
#include <math.h>
#include <stdio.h>
#include <string.h>

#include <new>

#include "vix/vix_macro.h"
#include "vix_internal.h"

namespace {

// A library's macro table in either layout.
struct MacroTable {
  const char* pData = nullptr;  // data block of the library
  uint64_t ptrMacro = 0;
  int iNum = 0;
  bool b32 = false;

  const char* name(int i) const {
    if (b32) {
      const VIXMACRO32* m =
          reinterpret_cast<const VIXMACRO32*>(pData + ptrMacro + sizeof(VIXMACRO32) * i);
      return pData + m->ptrMacro;
    }
    const VIXMACRO* m = reinterpret_cast<const VIXMACRO*>(pData + ptrMacro + sizeof(VIXMACRO) * i);
    return m->ptrMacro == VIX_PTR_NONE ? "" : pData + m->ptrMacro;
  }
  int value(int i) const {
    if (pData == nullptr) return 0;
    if (b32) {
      return reinterpret_cast<const VIXMACRO32*>(pData + ptrMacro + sizeof(VIXMACRO32) * i)->iValue;
    }
    return reinterpret_cast<const VIXMACRO*>(pData + ptrMacro + sizeof(VIXMACRO) * i)->iValue;
  }
  // Linear search; the index or -1.
  int find(const char* pszName) const {
    if (pData == nullptr) return -1;
    for (int i = 0; i < iNum; ++i) {
      if (strcmp(name(i), pszName) == 0) return i;
    }
    return -1;
  }
};

// A library failing the format check has no macros.
MacroTable table_of_i(const VIXMETALIB* pstLib) {
  MacroTable t;
  if (pstLib != nullptr && vix_lib_format_ok_i(pstLib)) {
    t.pData = vix_lib_data_i(pstLib);
    t.ptrMacro = pstLib->ptrMacro;
    t.iNum = pstLib->iCurMacroNum;
  }
  return t;
}

MacroTable table_of_i(const VIXMETALIB32* pstLib) {
  MacroTable t;
  uint32_t dwWord = 0;
  if (pstLib != nullptr) memcpy(&dwWord, pstLib, sizeof(dwWord));
  if (dwWord == VIX_MAGIC_WORD && pstLib->dwPlatformArch == VIX_PLATFORM_32) {
    t.pData = reinterpret_cast<const char*>(pstLib) + sizeof(VIXMETALIB32);
    t.ptrMacro = pstLib->ptrMacro;
    t.iNum = pstLib->iCurMacroNum;
    t.b32 = true;
  }
  return t;
}

bool is_digit_i(char ch) { return ch >= '0' && ch <= '9'; }

int find_value_i(const MacroTable& t, const std::string& sToken, std::string* psValue) {
  using namespace vix_expr;
  if (psValue == nullptr) return kNullArg;
  if (sToken.size() >= 2 && sToken[0] == '0') {
    std::string sDec;
    int iRet = (sToken[1] == 'x' || sToken[1] == 'X') ? TransformToDec(sToken.substr(2), 16, &sDec)
                                                      : TransformToDec(sToken.substr(1), 8, &sDec);
    if (iRet != 0) return iRet;
    *psValue = sDec;
    return 0;
  }
  if (IsNumber(sToken)) {
    *psValue = sToken;
    return 0;
  }
  const int i = t.find(sToken.c_str());
  if (i < 0) return kUnknownMacro;
  const int iValue = t.value(i);
  *psValue = iValue < 0 ? "(0" + Int64ToString(iValue) + ")" : Int64ToString(iValue);
  return 0;
}

// Operand tokens are the runs between operators and blanks.
int replace_i(const MacroTable& t, const char* pszExpr, char* pszOut, size_t iOut) {
  using namespace vix_expr;
  if (pszExpr == nullptr || pszOut == nullptr || iOut == 0) return kNullArg;
  size_t n = 0;
  auto put = [&](const char* p, size_t iLen) {
    if (iLen >= iOut - n) return false;
    memcpy(pszOut + n, p, iLen);
    n += iLen;
    return true;
  };
  const char* p = pszExpr;
  while (*p != '\0') {
    if (IsOperator(*p) || GetType(*p) == 4) {
      if (!put(p, 1)) return kTooLong;
      ++p;
      continue;
    }
    const char* pszStart = p;
    while (*p != '\0' && !IsOperator(*p) && GetType(*p) != 4) ++p;
    // A token longer than the buffer cannot come out shorter than a value of 64 bits does.
    if (static_cast<size_t>(p - pszStart) >= VIX_MACRO_EXPR_BUFF) return kTooLong;
    std::string sValue;
    const int iRet = find_value_i(t, std::string(pszStart, p), &sValue);
    if (iRet != 0) return iRet;
    if (!put(sValue.data(), sValue.size())) return kTooLong;
  }
  pszOut[n] = '\0';
  return 0;
}

int compute_i(int* piValue, int* piMacroIdx, const MacroTable& t, const char* pszExpr) {
  if (piValue == nullptr || piMacroIdx == nullptr || pszExpr == nullptr) {
    return VIX_ERROR_VALUE_OUT_OF_RANGE;
  }
  try {
    if (!is_digit_i(pszExpr[0]) && pszExpr[0] != '-' && pszExpr[0] != '+') {
      const int i = t.find(pszExpr);
      if (i >= 0) {
        *piValue = t.value(i);
        *piMacroIdx = i;
        return 0;
      }
    }
    char szBuff[VIX_MACRO_EXPR_BUFF];
    memset(szBuff, 0, sizeof(szBuff));
    if (replace_i(t, pszExpr, szBuff, sizeof(szBuff)) != 0) return VIX_ERROR_VALUE_OUT_OF_RANGE;
    int64_t iValue = 0;
    if (vix_expr::CallExpr(szBuff, &iValue) != 0) return VIX_ERROR_VALUE_OUT_OF_RANGE;
    if (iValue < -VIX_MACRO_EXPR_MAX || iValue > VIX_MACRO_EXPR_MAX) {
      return VIX_ERROR_VALUE_OUT_OF_RANGE;
    }
    *piValue = static_cast<int32_t>(static_cast<uint32_t>(static_cast<uint64_t>(iValue)));
    *piMacroIdx = -1;
    return 0;
  } catch (const std::bad_alloc&) {
    return VIX_ERROR_VALUE_OUT_OF_RANGE;
  }
}

int macro_int_i(const MacroTable& t, const char* pszText) {
  int iValue = 0;
  int iIdx = -1;
  return compute_i(&iValue, &iIdx, t, pszText) == 0 ? iValue : 0;
}

}  // namespace

namespace vix_expr {

int GetType(char ch) {
  if (ch == '.') return 1;
  if (is_digit_i(ch)) return 2;
  if (IsOperator(ch)) return 3;
  if (ch == ' ' || ch == '\t' || ch == '\f' || ch == '\v' || ch == '\n' || ch == '\r') return 4;
  return -1;
}

bool IsOperator(char ch) {
  return ch == '%' || ch == '(' || ch == ')' || ch == '*' || ch == '+' || ch == '-' || ch == '/';
}

int Priority(char ch) {
  if (ch == '*' || ch == '/' || ch == '%') return 2;
  if (ch == '+' || ch == '-') return 1;
  return 0;
}

bool IsNumber(const std::string& sToken) {
  if (sToken.empty() || !is_digit_i(sToken[0])) return false;
  for (char ch : sToken) {
    if (!is_digit_i(ch) && ch != '.') return false;
  }
  return true;
}

std::string Trim(const std::string& sToken) {
  size_t b = 0;
  size_t e = sToken.size();
  while (b < e && GetType(sToken[b]) == 4) ++b;
  while (e > b && GetType(sToken[e - 1]) == 4) --e;
  return sToken.substr(b, e - b);
}

int String2Int64(const std::string& sText, int64_t* piValue) {
  if (piValue == nullptr) return kNullArg;
  size_t i = 0;
  bool bNeg = false;
  if (i < sText.size() && (sText[i] == '-' || sText[i] == '+')) bNeg = sText[i++] == '-';
  const size_t iFirst = i;
  uint64_t u = 0;
  for (; i < sText.size() && is_digit_i(sText[i]); ++i) {
    const uint64_t d = static_cast<uint64_t>(sText[i] - '0');
    if (u > (UINT64_MAX - d) / 10) return kBadNumber;
    u = u * 10 + d;
  }
  if (i == iFirst) return kBadNumber;
  if (i < sText.size() && sText[i] == '.') {
    for (++i; i < sText.size() && is_digit_i(sText[i]); ++i) {
    }
  }
  if (i != sText.size()) return kBadNumber;
  const uint64_t iLimit = bNeg ? uint64_t{1} << 63 : (uint64_t{1} << 63) - 1;
  if (u > iLimit) return kBadNumber;
  *piValue = bNeg ? static_cast<int64_t>(0 - u) : static_cast<int64_t>(u);
  return 0;
}

std::string Int64ToString(int64_t iValue) {
  char szText[24];
  snprintf(szText, sizeof(szText), "%lld", static_cast<long long>(iValue));
  return szText;
}

int TransformToDec(const std::string& sDigits, int iBase, std::string* psDec) {
  if (psDec == nullptr) return kNullArg;
  if (iBase != 8 && iBase != 16) return kBadBase;
  if (iBase == 16 && sDigits.empty()) return kBadHex;
  double dSum = 0;
  const size_t n = sDigits.size();
  for (size_t i = 0; i < n; ++i) {
    const char ch = sDigits[i];
    int d = -1;
    if (ch >= '0' && ch <= '9') d = ch - '0';
    if (iBase == 16 && ch >= 'a' && ch <= 'f') d = ch - 'a' + 10;
    if (iBase == 16 && ch >= 'A' && ch <= 'F') d = ch - 'A' + 10;
    if (d < 0 || d >= iBase) return iBase == 16 ? kBadHex : kBadOctal;
    dSum += d * pow(iBase, static_cast<double>(n - 1 - i));
  }
  // Truncation to 64 bits: the sum modulo 2^64 (fmod is exact on doubles).
  // A sum beyond the range of a double has no 64 bits to keep.
  if (!isfinite(dSum)) return kOverflow;
  const double dTwo64 = 18446744073709551616.0;
  if (!(dSum < dTwo64)) dSum = fmod(dSum, dTwo64);
  char szText[32];
  snprintf(szText, sizeof(szText), "%llu", static_cast<unsigned long long>(dSum));
  *psDec = szText;
  return 0;
}

int FindValue(const VIXMETALIB* pstLib, const std::string& sToken, std::string* psValue) {
  return find_value_i(table_of_i(pstLib), sToken, psValue);
}
int FindValue_for64(const VIXMETALIB* pstLib, const std::string& sToken, std::string* psValue) {
  return find_value_i(table_of_i(pstLib), sToken, psValue);
}
int FindValue_for32(const VIXMETALIB32* pstLib, const std::string& sToken, std::string* psValue) {
  return find_value_i(table_of_i(pstLib), sToken, psValue);
}

int ReplaceVarWithValue(const VIXMETALIB* pstLib, const char* pszExpr, char* pszOut, size_t iOut) {
  return replace_i(table_of_i(pstLib), pszExpr, pszOut, iOut);
}
int ReplaceVarWithValue_for64(const VIXMETALIB* pstLib, const char* pszExpr, char* pszOut,
                              size_t iOut) {
  return replace_i(table_of_i(pstLib), pszExpr, pszOut, iOut);
}
int ReplaceVarWithValue_for32(const VIXMETALIB32* pstLib, const char* pszExpr, char* pszOut,
                              size_t iOut) {
  return replace_i(table_of_i(pstLib), pszExpr, pszOut, iOut);
}

int MiddleExpr2RightExpr(const std::string& sInfix, std::vector<std::string>* pvPostfix) {
  if (pvPostfix == nullptr) return kNullArg;
  std::vector<std::string>& out = *pvPostfix;
  out.clear();
  std::vector<char> ops;
  std::string sNumber;
  // What came last: nothing yet, a number, an operator, "(" or ")".
  enum { kStart, kNumber, kOperator, kOpen, kClose } eLast = kStart;

  // Pushes a binary operator after popping those of no lower priority (left associativity).
  auto push_operator = [&](char chOp) {
    while (!ops.empty() && ops.back() != '(' && Priority(ops.back()) >= Priority(chOp)) {
      out.emplace_back(1, ops.back());
      ops.pop_back();
    }
    ops.push_back(chOp);
  };
  auto end_number = [&]() {
    if (!sNumber.empty()) {
      out.push_back(sNumber);
      sNumber.clear();
    }
  };

  for (char ch : sInfix) {
    const int iType = GetType(ch);
    if (iType == -1) return kBadChar;
    if (iType == 4) {
      continue;
    }
    if (iType == 1 || iType == 2) {
      // A number right after ")" has no operator between them.
      if (eLast == kClose) return kMissingOperand;
      sNumber += ch;
      eLast = kNumber;
      continue;
    }
    if (ch == '(') {
      end_number();
      if (eLast == kNumber || eLast == kClose) push_operator('*');
      ops.push_back('(');
      eLast = kOpen;
      continue;
    }
    if (ch == ')') {
      if (eLast != kNumber && eLast != kClose) return kMissingOperand;
      end_number();
      while (!ops.empty() && ops.back() != '(') {
        out.emplace_back(1, ops.back());
        ops.pop_back();
      }
      if (ops.empty()) return kUnbalanced;
      ops.pop_back();
      eLast = kClose;
      continue;
    }
    // + - * / %: a sign is accepted only at the very start, as 0 +/- the rest.
    if (eLast == kStart && (ch == '-' || ch == '+')) {
      out.emplace_back("0");
    } else if (eLast != kNumber && eLast != kClose) {
      return kMissingOperand;
    }
    end_number();
    push_operator(ch);
    eLast = kOperator;
  }
  if (eLast != kNumber && eLast != kClose) return eLast == kStart ? kLeftOver : kMissingOperand;
  end_number();
  while (!ops.empty()) {
    if (ops.back() == '(') return kUnbalanced;
    out.emplace_back(1, ops.back());
    ops.pop_back();
  }
  return 0;
}

int ComputeRightExpr(const std::vector<std::string>& vPostfix, int64_t* piValue) {
  if (piValue == nullptr) return kNullArg;
  std::vector<int64_t> stack;
  for (const std::string& sToken : vPostfix) {
    if (sToken.size() == 1 && IsOperator(sToken[0])) {
      if (sToken[0] == '(' || sToken[0] == ')') return kUnbalanced;
      if (stack.size() < 2) return kMissingOperand;
      const int64_t b = stack.back();
      stack.pop_back();
      const int64_t a = stack.back();
      stack.pop_back();
      int64_t r = 0;
      const int iRet = CalculateTwoNumbers(a, b, sToken[0], &r);
      if (iRet != 0) return iRet;
      stack.push_back(r);
      continue;
    }
    int64_t v = 0;
    const int iRet = String2Int64(sToken, &v);
    if (iRet != 0) return iRet;
    stack.push_back(v);
  }
  if (stack.size() != 1) return kLeftOver;
  *piValue = stack.back();
  return 0;
}

int CalculateTwoNumbers(int64_t a, int64_t b, char chOperator, int64_t* piValue) {
  if (piValue == nullptr) return kNullArg;
  int64_t r = 0;
  switch (chOperator) {
    case '%':
    case '/':
      if (b == 0) return kDivByZero;
      if (a == INT64_MIN && b == -1) return kOverflow;
      r = chOperator == '%' ? a % b : a / b;
      break;
    case '*':
      if (__builtin_mul_overflow(a, b, &r)) return kOverflow;
      break;
    case '-':
      if (__builtin_sub_overflow(a, b, &r)) return kOverflow;
      break;
    default:
      if (__builtin_add_overflow(a, b, &r)) return kOverflow;
      break;
  }
  *piValue = r;
  return 0;
}

int CallExpr(const std::string& sInfix, int64_t* piValue) {
  std::vector<std::string> vPostfix;
  const int iRet = MiddleExpr2RightExpr(sInfix, &vPostfix);
  if (iRet != 0) return iRet;
  return ComputeRightExpr(vPostfix, piValue);
}

}  // namespace vix_expr

int vix_compute_macro_expr_int(int* piValue, int* piMacroIdx, const VIXMETALIB* pstLib,
                               const char* pszExpr) {
  return compute_i(piValue, piMacroIdx, table_of_i(pstLib), pszExpr);
}
int vix_compute_macro_expr_int_for64(int* piValue, int* piMacroIdx, const VIXMETALIB* pstLib,
                                     const char* pszExpr) {
  return compute_i(piValue, piMacroIdx, table_of_i(pstLib), pszExpr);
}
int vix_compute_macro_expr_int_for32(int* piValue, int* piMacroIdx, const VIXMETALIB32* pstLib,
                                     const char* pszExpr) {
  return compute_i(piValue, piMacroIdx, table_of_i(pstLib), pszExpr);
}

int vix_get_macro_int_i(const VIXMETALIB* pstLib, const char* pszText) {
  return macro_int_i(table_of_i(pstLib), pszText);
}
int vix_get_macro_int_i_for64(const VIXMETALIB* pstLib, const char* pszText) {
  return macro_int_i(table_of_i(pstLib), pszText);
}
int vix_get_macro_int_i_for32(const VIXMETALIB32* pstLib, const char* pszText) {
  return macro_int_i(table_of_i(pstLib), pszText);
}
