// The configuration's metadata library: compiled from wlog_conf.vix by the build and linked in
// as an aligned byte array, used in place (a library holds offsets, never pointers).
#include "wlog/wlog.h"

extern "C" {
extern const unsigned char wlog_conf_metalib[];
}

const VIXMETALIB* wlog_get_meta_data(void) {
  return reinterpret_cast<const VIXMETALIB*>(wlog_conf_metalib);
}
