// The macro expression calculator: whole expressions through the public functions, then the
// steps that have codes of their own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "vix/vix_macro.h"
#include "vix_test_util.h"

namespace {

using vixtest::Build;
using vixtest::LibPtr;

LibPtr macro_lib() {
  Build b("calc");
  b.macro("MAX", 40).macro("NEG", -5).macro("ZERO", 0).macro("BIG", 2147483647);
  b.meta("M", 1).entry("x", "int32").end();
  return b.finish();
}

TEST(MacroExpr, EvaluatesOrFoldsEveryFailure) {
  LibPtr lib = macro_lib();
  const std::string sLong = "1" + std::string(600, ' ') + "+1";
  struct Case {
    const char* pszExpr;
    int iValue;
    int iIdx;  // the macro's index when the expression is one macro, else -1
  } const kCases[] = {
      {"0x1F", 31, -1},       {"017", 15, -1},
      {"2(3+4)", 14, -1},     {"(1)(2)", 2, -1},
      {"8/2(2)", 8, -1},      {"7%3", 1, -1},
      {"-7/2", -3, -1},       {"10-2-3", 5, -1},
      {"2+3*4", 14, -1},      {" 2 * ( 3 + 4 ) ", 14, -1},
      {"4294967295", -1, -1}, {"-4294967295", 1, -1},
      {"MAX", 40, 0},         {"NEG", -5, 1},
      {"MAX+1", 41, -1},      {"NEG*2", -10, -1},
      {"2-NEG", 7, -1},       {"-NEG", 5, -1},
      {"BIG+BIG+1", -1, -1},  {"1.9+1", 2, -1},
  };
  for (const Case& c : kCases) {
    int iValue = 12345;
    int iIdx = 678;
    EXPECT_EQ(0, vix_compute_macro_expr_int(&iValue, &iIdx, lib.get(), c.pszExpr)) << c.pszExpr;
    EXPECT_EQ(c.iValue, iValue) << c.pszExpr;
    EXPECT_EQ(c.iIdx, iIdx) << c.pszExpr;
    EXPECT_EQ(c.iValue, vix_get_macro_int_i(lib.get(), c.pszExpr)) << c.pszExpr;
  }
  // Every failure folds into one code and leaves the outputs alone.
  // clang-format off
  const char* const kFailures[] = {
      "08", "7/0", "7%0", "4294967296", "-4294967296", "MAX/ZERO", "UNKNOWN", "1+UNKNOWN", "0x",
      "0xG", "2*-3", "2+", "*2", "(2", "2)", "()", "(2)3", "", "2 $ 3", "9223372036854775807+1",
      "99999999999999999999", sLong.c_str()};
  // clang-format on
  for (const char* pszExpr : kFailures) {
    int iValue = 12345;
    int iIdx = 678;
    EXPECT_EQ(VIX_ERROR_VALUE_OUT_OF_RANGE,
              vix_compute_macro_expr_int(&iValue, &iIdx, lib.get(), pszExpr))
        << pszExpr;
    EXPECT_EQ(12345, iValue) << pszExpr;
    EXPECT_EQ(678, iIdx) << pszExpr;
  }
  int iValue = 0;
  int iIdx = 0;
  EXPECT_EQ(VIX_ERROR_VALUE_OUT_OF_RANGE, vix_compute_macro_expr_int(nullptr, &iIdx, nullptr, "1"));
  EXPECT_EQ(VIX_ERROR_VALUE_OUT_OF_RANGE, vix_compute_macro_expr_int(&iValue, &iIdx, nullptr, 0));
  EXPECT_EQ(0, vix_compute_macro_expr_int(&iValue, &iIdx, nullptr, "6*7"));
  EXPECT_EQ(42, iValue);
  EXPECT_EQ(0, vix_get_macro_int_i(lib.get(), "UNKNOWN"));
}

TEST(MacroExpr, ThirtyTwoAndSixtyFourBitLayouts) {
  LibPtr lib = macro_lib();
  VIXMETALIB32* pstLib32 = nullptr;
  ASSERT_EQ(0, vix_make_lib32(&pstLib32, lib.get()));
  for (const char* pszExpr : {"MAX", "NEG", "MAX*(NEG+1)", "0x10+017", "UNKNOWN"}) {
    int v64 = 0, i64 = 0, v32 = 1, i32 = 1, vFor64 = 2, iFor64 = 2;
    const int r64 = vix_compute_macro_expr_int(&v64, &i64, lib.get(), pszExpr);
    EXPECT_EQ(r64, vix_compute_macro_expr_int_for32(&v32, &i32, pstLib32, pszExpr)) << pszExpr;
    EXPECT_EQ(r64, vix_compute_macro_expr_int_for64(&vFor64, &iFor64, lib.get(), pszExpr));
    if (r64 == 0) {
      EXPECT_EQ(v64, v32) << pszExpr;
      EXPECT_EQ(i64, i32) << pszExpr;
      EXPECT_EQ(v64, vFor64);
      EXPECT_EQ(v64, vix_get_macro_int_i_for32(pstLib32, pszExpr));
      EXPECT_EQ(v64, vix_get_macro_int_i_for64(lib.get(), pszExpr));
    }
  }
  vix_free_lib32(&pstLib32);
}

TEST(MacroExpr, StepsAndTheirCodes) {
  using namespace vix_expr;
  LibPtr lib = macro_lib();
  std::string s;
  EXPECT_EQ(kBadBase, TransformToDec("17", 10, &s));
  EXPECT_EQ(kBadOctal, TransformToDec("8", 8, &s));
  EXPECT_EQ(kBadHex, TransformToDec("1g", 16, &s));
  ASSERT_EQ(0, TransformToDec("FFFFffff", 16, &s));
  EXPECT_EQ("4294967295", s);
  // Summed in double precision: 2^53 + 1 comes out as 2^53.
  ASSERT_EQ(0, TransformToDec("20000000000001", 16, &s));
  EXPECT_EQ("9007199254740992", s);

  ASSERT_EQ(0, FindValue(lib.get(), "NEG", &s));
  EXPECT_EQ("(0-5)", s);
  ASSERT_EQ(0, FindValue(lib.get(), "0x1f", &s));
  EXPECT_EQ("31", s);
  EXPECT_EQ(kUnknownMacro, FindValue(lib.get(), "NOPE", &s));
  EXPECT_EQ(kUnknownMacro, FindValue(nullptr, "MAX", &s));

  char szOut[VIX_MACRO_EXPR_BUFF];
  ASSERT_EQ(0, ReplaceVarWithValue(lib.get(), "MAX*( NEG+0x2)", szOut, sizeof(szOut)));
  EXPECT_STREQ("40*( (0-5)+2)", szOut);
  EXPECT_EQ(kTooLong, ReplaceVarWithValue(lib.get(), "MAX+MAX", szOut, 5));

  std::vector<std::string> v;
  ASSERT_EQ(0, MiddleExpr2RightExpr("2+3*4-1", &v));
  EXPECT_EQ((std::vector<std::string>{"2", "3", "4", "*", "+", "1", "-"}), v);

  int64_t r = 0;
  EXPECT_EQ(kDivByZero, CalculateTwoNumbers(7, 0, '/', &r));
  EXPECT_EQ(kDivByZero, CalculateTwoNumbers(7, 0, '%', &r));
  EXPECT_EQ(kOverflow, CalculateTwoNumbers(INT64_MIN, -1, '/', &r));
  ASSERT_EQ(0, CalculateTwoNumbers(7, 5, '?', &r));
  EXPECT_EQ(12, r);
  // Malformed postfix: too few operands, values left over, nothing at all.
  EXPECT_EQ(kMissingOperand, ComputeRightExpr({"1", "+"}, &r));
  EXPECT_EQ(kLeftOver, ComputeRightExpr({"1", "2"}, &r));
  EXPECT_EQ(kLeftOver, ComputeRightExpr({}, &r));
  EXPECT_EQ(kBadNumber, ComputeRightExpr({"x"}, &r));
  EXPECT_EQ(kDivByZero, CallExpr("1/(2-2)", &r));

  int64_t i = 0;
  EXPECT_EQ(0, String2Int64("-9223372036854775808", &i));
  EXPECT_EQ(INT64_MIN, i);
  EXPECT_EQ(kBadNumber, String2Int64("9223372036854775808", &i));
  EXPECT_EQ("-42", Int64ToString(-42));
  EXPECT_EQ(2, Priority('%'));
  EXPECT_EQ(0, Priority('('));
  EXPECT_EQ(-1, GetType('a'));
  EXPECT_EQ(1, GetType('.'));
  EXPECT_TRUE(IsNumber("1.5"));
  EXPECT_FALSE(IsNumber(".5"));
  EXPECT_EQ("a b", Trim("\t a b\r\n"));
}

}  // namespace
