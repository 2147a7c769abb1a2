// Fuzz target: the shared-memory registry's URI parser. Whatever parses must rebuild to a text
// that parses to the same fields; whatever is refused must leave the URI untouched. Raw bytes
// taken as a description must rebuild without reading past their fields.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "wmng/terror.h"
#include "wmng/wsm.h"

namespace {

void check(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
  }
}

void check_columns(WsmUri* a, WsmUri* b) {
  for (int k = -1; k <= WSM_HASH_COLUMNS; ++k) {
    const char state = wsm_hash_type(a, k);
    check(state == WSM_HASH_SET || state == WSM_HASH_ANY || state == WSM_HASH_INVALID, "state");
    check(state == wsm_hash_type(b, k), "same states after a rebuild");
    const bool set = state == WSM_HASH_SET;
    check((wsm_hash_ptr(a, k) != nullptr) == set, "key pointer");
    const int size = wsm_hash_size(a, k);
    check((size > 0) == set, "key size");
    if (set) check(wsm_hash_cmp(a, b, k) == 0, "same key after a rebuild");
    if (set && k == 0) check(size == static_cast<int>(std::strlen(a->szUri)), "column 0 size");
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  terror_clear(nullptr);
  const std::string text =
      size == 0 ? std::string() : std::string(reinterpret_cast<const char*>(data), size);
  WsmUri a;
  std::memset(&a, 0xa5, sizeof(a));
  const WsmUri before = a;
  const int ret = wsm_uri_set(&a, text.c_str());
  if (ret != 0) {
    check(ret >= -7 && ret <= -2, "parse code");
    check(std::memcmp(&a, &before, sizeof(a)) == 0, "refused input changed the URI");
    check(terror_count(nullptr) == 1, "one frame per refusal");
  } else {
    check(a.iType == WSM_URI_TYPE_META || a.iType == WSM_URI_TYPE_DATA, "kind");
    const char* rebuilt = wsm_uri_get(&a);
    check(rebuilt != nullptr && std::strlen(rebuilt) < WSM_URI_LEN, "rebuilt text");
    WsmUri b;
    check(wsm_uri_set(&b, rebuilt) == 0, "rebuilt text parses");
    check(std::strcmp(a.szUri, b.szUri) == 0, "rebuilt text is stable");
    check(wsm_uri_compare(&a, &b) == 0, "compare");
    check(a.iType == b.iType && std::memcmp(&a.stData, &b.stData, sizeof(a.stData)) == 0,
          "same fields");
    WsmUri c;
    const int made = a.iType == WSM_URI_TYPE_META ? wsm_uri_set_meta(&c, &a.stMeta)
                                                  : wsm_uri_set_data(&c, &a.stData);
    check(made == 0 && std::strcmp(wsm_uri_get(&c), a.szUri) == 0, "text from the fields");
    check_columns(&a, &b);
  }
  // The input as a description whose text fields need not be terminated.
  WsmUri raw;
  std::memset(&raw, 0, sizeof(raw));
  if (size > 0) std::memcpy(&raw.stData, data, std::min(size, sizeof(raw.stData)));
  raw.iType = size > 0 && (data[0] & 1) != 0 ? WSM_URI_TYPE_META : WSM_URI_TYPE_DATA;
  check(wsm_uri_sync(&raw) == 0 && std::strlen(raw.szUri) < WSM_URI_LEN, "raw rebuild");
  WsmUri raw_copy = raw;
  raw_copy.iSync = 1;
  check(wsm_uri_compare(&raw, &raw_copy) == 0, "raw compare");
  for (int k = 0; k < WSM_HASH_COLUMNS; ++k) {
    if (wsm_hash_type(&raw, k) == WSM_HASH_SET) check(wsm_hash_cmp(&raw, &raw_copy, k) == 0, "raw");
  }
  terror_clear(nullptr);
  return 0;
}
