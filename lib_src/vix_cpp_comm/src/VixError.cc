// Error texts and the process-wide failure back-trace of the record codec.
#include "vix_cpp_comm/VixError.h"

#include <cstdio>
#include <cstring>

namespace kalmo_vix {

int VixError::start_pos = VixError::BACK_TRACE_SIZE - 1;
char VixError::back_trace_str[VixError::BACK_TRACE_SIZE];

namespace {

// Indexed by -code for 0 to -43; the texts are part of the interface, spelling included.
const char* const kErrorTexts[] = {
    "no error",
    "available free space in buffer is not enough",
    "available data in buffer is not enough",
    "string length surpass defined size",
    "string length smaller than min string length",
    "string sizeinfo inconsistent with real length",
    "reffer value can not be minus",
    "reffer value bigger than count or size",
    "pointer-type argument is NULL",
    "cut-version is smaller than base-version",
    "cut-version not covers entry refered by versionindicator",
    "inet_ntoa failed when parse vix_ip_t",
    "value variable of vix_ip_t is invalid",
    "value variable of vix_time_t is invalid",
    "value variable of vix_date_t is invalid",
    "value variable of vix_datetime_t is invalid",
    "function 'localtime' or 'localtime_r' failed",
    "invalid hex-string length, must be an even number",
    "invalid hex-string format, each character must be a hex-digit",
    "NULL pointer as parameter",
    "cutVer from net-msg not in [BASEVERSION, CURRVERSION]",
    "string-formated value underflow or overflow",
    "failed to open file with read-mode",
    "failed to open file with write-mode",
    "failed to read data from file",
    "failed to write data into file",
    "failed to allocate heap memory",
    "failed to parse XML-formated data",
    "XML root-node is NOT what expected",
    "failed to parse integer or float from string",
    "specified macro name has NOT been defined",
    "function has NOT been implemented",
    "bad tlv encode magic",
    "invalid selector",
    "unmatched length",
    "unknown type id",
    "at least 1 required field been lost",
    "null array shouldn't be packed",
    "the field name is not existed",
    "it is not support now.",
    "unknown field id.",
    "unmatch tag id.",
    "unmatch type id.",
    "not find.",
};

// Indexed by -200 - code for -200 to -203.
const char* const kServiceErrorTexts[] = {
    "null rpc client",
    "rpc method not been implemented yet",
    "null closure in servant",
    "unknown rpc method ",
};

const int kErrorCount = static_cast<int>(sizeof(kErrorTexts) / sizeof(kErrorTexts[0]));
const int kServiceErrorCount =
    static_cast<int>(sizeof(kServiceErrorTexts) / sizeof(kServiceErrorTexts[0]));
static_assert(sizeof(kErrorTexts) / sizeof(kErrorTexts[0]) == 44, "one text per code 0 to -43");

}  // namespace

const char* VixError::getErrorString(int code) {
  // Range checks before any negation: -INT_MIN does not exist.
  if (code > 0) return kErrorTexts[0];
  if (code > -kErrorCount) return kErrorTexts[-code];
  if (code <= -200 && code > -200 - kServiceErrorCount) return kServiceErrorTexts[-200 - code];
  return "unknown error";
}

void VixError::addBackTrace(const char* entryName, const char* sourceFile, int line) {
  if (entryName == nullptr) entryName = "";
  if (sourceFile == nullptr) sourceFile = "";
  const char* slash = std::strrchr(sourceFile, '/');
  const char* fileName = slash != nullptr ? slash + 1 : sourceFile;

  char entry[BACK_TRACE_ENTRY_SIZE];
  int n = std::snprintf(entry, sizeof(entry), "%sentry_name[%s](%s:%d)", "-->", entryName, fileName,
                        line);
  if (n < 0) return;
  int length = n < static_cast<int>(sizeof(entry)) ? n : static_cast<int>(sizeof(entry)) - 1;

  back_trace_str[BACK_TRACE_SIZE - 1] = '\0';
  if (start_pos <= 0) return;
  if (length <= start_pos) {
    std::memcpy(back_trace_str + start_pos - length, entry, static_cast<size_t>(length));
    start_pos -= length;
  } else {
    std::memcpy(back_trace_str, entry, static_cast<size_t>(start_pos));
    start_pos = 0;
  }
}

void VixError::resetBackTrace() {
  start_pos = BACK_TRACE_SIZE - 1;
  back_trace_str[BACK_TRACE_SIZE - 1] = '\0';
}

const char* VixError::getBackTrace() {
  back_trace_str[BACK_TRACE_SIZE - 1] = '\0';
  int pos = start_pos;
  if (pos < 0) pos = 0;
  if (pos > BACK_TRACE_SIZE - 1) pos = BACK_TRACE_SIZE - 1;
  return back_trace_str + pos;
}

}  // namespace kalmo_vix
