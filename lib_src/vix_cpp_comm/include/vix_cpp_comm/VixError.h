/*
 * VixError.h: error codes of the record codec, their texts, and the failure back-trace.
 *
 * Conventions:
 *  - Codec operations return 0 or a negative ErrorType value; nothing throws. Every function
 *    that returns a result code is marked VIX_NODISCARD, so ignoring it warns.
 *  - Every failure point of a generated operation calls addBackTrace with the entry that failed;
 *    enclosing records add their entry on the way out, so the text reads outermost first.
 *  - The back-trace is one process-wide area (start_pos, back_trace_str). It is reset by every
 *    wrapped pack/unpack (the forms over caller memory) and only meaningful on a single thread.
 */
#ifndef VIX_CPP_COMM_VIXERROR_H
#define VIX_CPP_COMM_VIXERROR_H

// Marks a function whose result code must not be ignored: [[nodiscard]] in C++17 (a cast to
// void states that a result is ignored on purpose), warn_unused_result in C.
#if defined(__cplusplus) && __cplusplus >= 201703L
#define VIX_NODISCARD [[nodiscard]]
#elif defined(__GNUC__)
#define VIX_NODISCARD __attribute__((warn_unused_result))
#else
#define VIX_NODISCARD
#endif

namespace kalmo_vix {

class VixError {
 public:
  enum ErrorType {
    VIX_NO_ERROR = 0,
    VIX_ERR_SHORT_BUF_FOR_WRITE = -1,
    VIX_ERR_SHORT_BUF_FOR_READ = -2,
    VIX_ERR_STR_LEN_TOO_BIG = -3,
    VIX_ERR_STR_LEN_TOO_SMALL = -4,
    VIX_ERR_STR_LEN_CONFLICT = -5,
    VIX_ERR_MINUS_REFER_VALUE = -6,
    VIX_ERR_REFER_SURPASS_COUNT = -7,
    VIX_ERR_ARG_POINTER_IS_NULL = -8,
    VIX_ERR_CUTVER_TOO_SMALL = -9,
    VIX_ERR_CUTVER_CONFILICT = -10,
    VIX_ERR_PARSE_VIXIP_FAILED = -11,
    VIX_ERR_INVALID_VIXIP_VALUE = -12,
    VIX_ERR_INVALID_VIXTIME_VALUE = -13,
    VIX_ERR_INVALID_VIXDATE_VALUE = -14,
    VIX_ERR_INVALID_VIXDATETIME_VALUE = -15,
    VIX_ERR_FUNC_LOCALTIME_FAILED = -16,
    VIX_ERR_INVALID_HEX_STR_LEN = -17,
    VIX_ERR_INVALID_HEX_STR_FORMAT = -18,
    VIX_ERR_NULL_POINTER_PARAMETER = -19,
    VIX_ERR_NET_CUTVER_INVALID = -20,
    VIX_ERR_VALUE_UNDER_OR_OVER_FLOW = -21,
    VIX_ERR_OPEN_FILE_READ_FAILED = -22,
    VIX_ERR_OPEN_FILE_WRITE_FAILED = -23,
    VIX_ERR_READ_FILE_FAILED = -24,
    VIX_ERR_WRITE_FILE_FAILED = -25,
    VIX_ERR_ALLOC_MEMORY_FAILED = -26,
    VIX_ERR_PARSE_XML_FAILED = -27,
    VIX_ERR_INVALID_ROOT_NODE = -28,
    VIX_ERR_FAILED_TO_PARSE_NUMERIC = -29,
    VIX_ERR_UNDEFINED_MACRO_NAME = -30,
    VIX_ERR_FUNCTION_NOT_IMPLEMENTED = -31,
    VIX_ERR_BAD_TLV_MAGIC = -32,
    VIX_ERR_SUSPICIOUS_SELECTOR = -33,
    VIX_ERR_UNMATCHED_LENGTH = -34,
    VIX_ERR_UNKNOWN_TYPE_ID = -35,
    VIX_ERR_LOST_REQUIRED_FIELD = -36,
    VIX_ERR_NULL_ARRAY = -37,
    VIX_ERR_FIELD_NAME_IS_NOT_EXIST = -38,
    VIX_ERR_NOT_SUPPORT = -39,
    VIX_ERR_UNKNOWN_FIELD_ID = -40,
    VIX_ERR_UNMATCH_TAG_ID = -41,
    VIX_ERR_UNMATCH_TYPE_ID = -42,
    VIX_ERR_NOT_FIND = -43,
    VIX_ERR_SERVICE_NULL_RPC_CLIENT = -200,
    VIX_ERR_SERVICE_METHOD_NOT_IMPLEMENTED = -201,
    VIX_ERR_SERVICE_NULL_CLOSURE = -202,
    VIX_ERR_SERVICE_UNKNOWN_METHOD = -203,
  };

  // Size of back_trace_str; start_pos begins (and is reset) at BACK_TRACE_SIZE - 1, where the
  // terminating NUL lives.
  static const int BACK_TRACE_SIZE = 10240;
  // Size of the scratch one entry is formatted into (longer entries are truncated).
  static const int BACK_TRACE_ENTRY_SIZE = 768;

  static int start_pos;
  static char back_trace_str[BACK_TRACE_SIZE];

  // The text of a code: positive values give "no error", 0 to -43 and -200 to -203 their table
  // entry, anything else "unknown error". Never null.
  // Any int is accepted, including values no ErrorType names.
  static const char* getErrorString(int error);
  static const char* getErrorString(ErrorType error) {
    return getErrorString(static_cast<int>(error));
  }

  // Prepends "-->entry_name[<entryName>](<file>:<line>)" to the back-trace, with only the part of
  // sourceFile after its last '/'. When the area is full the entry is cut to what still fits.
  static void addBackTrace(const char* entryName, const char* sourceFile, int line);

  // Empties the back-trace (start_pos = BACK_TRACE_SIZE - 1).
  static void resetBackTrace();

  // The current back-trace text (from back_trace_str + start_pos to the final NUL).
  static const char* getBackTrace();
};

}  // namespace kalmo_vix

#endif  // VIX_CPP_COMM_VIXERROR_H
