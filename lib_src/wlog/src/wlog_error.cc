// Texts of the library's result codes.

#include "wlog/wlog.h"

namespace {

// Index = error number (WLOG_ERRCODE(index)).
const char* const kErrorTexts[] = {"none", "file open failed", "network connect failed",
                                   "forward loop"};
constexpr unsigned kErrorCount = sizeof(kErrorTexts) / sizeof(kErrorTexts[0]);
static_assert(kErrorCount == WLOG_ERROR_LOOP + 1, "one text per error number");

}  // namespace

extern "C" {

const char* wlog_error_string(int iCode) {
  if (iCode == 0) return kErrorTexts[WLOG_ERROR_NONE];
  if (iCode == -1) return "bad argument or failure";
  const unsigned error = static_cast<unsigned>(iCode) - WLOG_ERROR_BASE;
  return error < kErrorCount ? kErrorTexts[error] : "unknown wlog error";
}

}  // extern "C"
