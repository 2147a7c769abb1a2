/* Compiled as C: the public headers and the push macro must work from plain C. */
#include <string.h>

#include "wmng/terror.h"
#include "wmng/toffset.h"
#include "wmng/wsm.h"
#include "wmng/wsm_vix.h"

/* Parses and rebuilds a URI, reads its key columns, pushes a frame and calls the typed layer;
 * 0 when all went right. */
int wmng_c_api_check(void);

int wmng_c_api_check(void) {
  WsmUri uri;
  const char* text;
  int ret = 0;
  if (wsm_uri_set(&uri, "WSM-DATA://10/myprog:1/log/ring") != 0) return 1;
  text = wsm_uri_get(&uri);
  if (text == NULL || strcmp(text, "wsm-data://10/myprog:1/log/ring") != 0) ret = 2;
  if (wsm_hash_type(&uri, 0) != WSM_HASH_SET || wsm_hash_size(&uri, 1) != 4) ret = 3;
  terror_clear(NULL);
  if (TERROR_PUSH(NULL, 5, "from C %d", 5) != -5 || terror_count(NULL) != 1) ret = 4;
  if (wsm_vix_status(NULL) != -1 || wsm_vix_at(WSM_VIX_PTR_ABSENT, WSM_VIX_RDONLY) != NULL) ret = 5;
  terror_clear(NULL);
  return ret;
}
