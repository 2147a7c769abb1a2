/*
 * vix_macro.h: the macro expression calculator. Wherever a description gives an integer it may
 * write a number, a macro name or an arithmetic expression over numbers and macro names; these
 * functions turn such a text into an integer against a metadata library.
 *
 * Conventions:
 *  - Expressions: decimal numbers, hexadecimal (0x1F) and octal (017) numbers, macro names of
 *    the library, the operators + - * / % and parentheses, blanks anywhere. * / % bind tighter
 *    than + -, operators of one priority group from the left, a number or ")" directly followed
 *    by "(" multiplies (2(3+4) is 14). Only the whole text may start with a sign ("-5", "+7");
 *    a sign anywhere else is a failure. Arithmetic is 64-bit; division truncates.
 *  - The public functions fold every failure into VIX_ERROR_VALUE_OUT_OF_RANGE (0x82010460)
 *    and then leave their outputs unchanged. They never throw and never keep pointers.
 *  - The library may be null: numbers and expressions without macro names still evaluate.
 *  - The C++ section below gives the steps on their own (namespace vix_expr) with small negative
 *    codes; they are what the public functions are made of.
 */
#ifndef VIX_VIX_MACRO_H
#define VIX_VIX_MACRO_H

#include "vix/vix_base.h"
#include "vix/vix_error.h"
#include "vix/vix_metalib.h"

/* Bytes of the working buffer an expression is substituted into, terminator included. */
#define VIX_MACRO_EXPR_BUFF 512

/* The widest value an expression may have; its 32-bit truncation is stored. */
#define VIX_MACRO_EXPR_MAX 4294967295LL

#ifdef __cplusplus
extern "C" {
#endif

/* Evaluates pszExpr. A text that does not start with a digit, "-" or "+" and names a macro of
 * the library gives that macro's value and its index in the macro table; anything else is
 * evaluated as an expression, whose value must lie in [-4294967295, 4294967295] and is stored
 * truncated to 32 bits, with the index -1 (so 4294967295 is stored as -1). Failures (null
 * value, index or text, an unknown macro, a bad number, a malformed expression, division by
 * zero, overflow, a value outside the range, a substituted text of VIX_MACRO_EXPR_BUFF bytes or
 * more): VIX_ERROR_VALUE_OUT_OF_RANGE, outputs unchanged. */
VIX_WUR int vix_compute_macro_expr_int(int* piValue, int* piMacroIdx, const VIXMETALIB* pstLib,
                                       const char* pszExpr);
VIX_WUR int vix_compute_macro_expr_int_for64(int* piValue, int* piMacroIdx,
                                             const VIXMETALIB* pstLib, const char* pszExpr);
/* The same against a library in the 32-bit layout (vix_make_lib32). */
VIX_WUR int vix_compute_macro_expr_int_for32(int* piValue, int* piMacroIdx,
                                             const VIXMETALIB32* pstLib, const char* pszExpr);

/* The value of a macro name or expression, as vix_compute_macro_expr_int gives it; 0 when it
 * cannot be computed (use vix_compute_macro_expr_int to tell the two apart). */
int vix_get_macro_int_i(const VIXMETALIB* pstLib, const char* pszText);
int vix_get_macro_int_i_for64(const VIXMETALIB* pstLib, const char* pszText);
int vix_get_macro_int_i_for32(const VIXMETALIB32* pstLib, const char* pszText);

#ifdef __cplusplus
}

#include <stdint.h>

#include <string>
#include <vector>

namespace vix_expr {

/* Codes of the steps (0 on success). */
enum {
  kBadOctal = -1,       /* TransformToDec: a digit outside 0..7 */
  kBadHex = -2,         /* TransformToDec: a digit outside 0..9, a..f, A..F, or none */
  kTooLong = -3,        /* the substituted text does not fit the buffer */
  kBadChar = -4,        /* a character that is no digit, point, operator or blank */
  kUnbalanced = -5,     /* a parenthesis without its partner */
  kMissingOperand = -6, /* an operator without two operands (also a sign inside) */
  kDivByZero = -7,      /* CalculateTwoNumbers: division or remainder by zero */
  kLeftOver = -8,       /* not exactly one value left, or nothing to evaluate */
  kOverflow = -9,       /* a result outside 64 bits */
  kBadNumber = -10,     /* String2Int64: no digits, or too large */
  kNullArg = -11,       /* a null argument */
  kUnknownMacro = -12,  /* FindValue: the token names no macro */
  kBadBase = -15        /* TransformToDec: a base other than 8 or 16 */
};

/* Character class: '.' 1, a decimal digit 2, an operator 3, a blank (space, \t, \n, \v, \f,
 * \r) 4, anything else -1. */
int GetType(char ch);
/* One of % ( ) * + - / */
bool IsOperator(char ch);
/* * / % 2; + - 1; ( ) and anything else 0. */
int Priority(char ch);
/* Non-empty, starts with a digit, only digits and points. */
bool IsNumber(const std::string& sToken);
/* The token without leading and trailing blanks. */
std::string Trim(const std::string& sToken);

/* Decimal text to a 64-bit integer: an optional sign and digits, then at most a point and
 * digits (the fraction is dropped). kBadNumber for anything else or a value beyond 64 bits. */
int String2Int64(const std::string& sText, int64_t* piValue);
std::string Int64ToString(int64_t iValue);

/* Sums digit x base^position over sDigits in double precision and truncates the sum to 64 bits
 * (modulo 2^64, written unsigned), so very large hexadecimal values lose precision. */
int TransformToDec(const std::string& sDigits, int iBase, std::string* psDec);

/* One operand token in decimal: a number stays as it is; 0x... is hexadecimal and 0... octal;
 * anything else is a macro name (kUnknownMacro when the library has none of that name). A
 * negative value is written "(0-n)" so that it stays one operand. */
int FindValue(const VIXMETALIB* pstLib, const std::string& sToken, std::string* psValue);
int FindValue_for64(const VIXMETALIB* pstLib, const std::string& sToken, std::string* psValue);
int FindValue_for32(const VIXMETALIB32* pstLib, const std::string& sToken, std::string* psValue);

/* Copies pszExpr into pszOut (iOut bytes, NUL-terminated) with every operand token replaced by
 * its decimal value (FindValue); operators and blanks are copied as they are. kTooLong when the
 * result and its NUL do not fit. */
int ReplaceVarWithValue(const VIXMETALIB* pstLib, const char* pszExpr, char* pszOut, size_t iOut);
int ReplaceVarWithValue_for64(const VIXMETALIB* pstLib, const char* pszExpr, char* pszOut,
                              size_t iOut);
int ReplaceVarWithValue_for32(const VIXMETALIB32* pstLib, const char* pszExpr, char* pszOut,
                              size_t iOut);

/* Infix text (numbers, operators, parentheses, blanks) to postfix tokens. */
int MiddleExpr2RightExpr(const std::string& sInfix, std::vector<std::string>* pvPostfix);
/* Evaluates postfix tokens: exactly one value must be left. */
int ComputeRightExpr(const std::vector<std::string>& vPostfix, int64_t* piValue);
/* a % b, a * b, a - b, a / b, else a + b. kDivByZero, kOverflow. */
int CalculateTwoNumbers(int64_t a, int64_t b, char chOperator, int64_t* piValue);
/* MiddleExpr2RightExpr then ComputeRightExpr: the first failing step's code. */
int CallExpr(const std::string& sInfix, int64_t* piValue);

}  // namespace vix_expr

#endif /* __cplusplus */

#endif /* VIX_VIX_MACRO_H */
