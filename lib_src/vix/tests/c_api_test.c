/* The public headers used from plain C: a library written with the builder, copied through a
 * buffer and searched. */
#include <string.h>

#include "vix/vix_builder.h"
#include "vix/vix_error.h"
#include "vix/vix_metalib.h"
#include "vix/vix_types.h"

int main(void) {
  VIXLIBPARAM stParam;
  LPVIXBUILDER pstBuilder = NULL;
  LPVIXMETALIB pstLib = NULL;
  LPVIXMETALIB pstCopy = NULL;
  VIXMETADESC stMeta;
  size_t iLen;
  int iIdx = -1;
  const VIXMETA* pstFound;
  VIXDATE stDate;

  memset(&stParam, 0, sizeof(stParam));
  strcpy(stParam.szName, "c");
  if (vix_builder_open_growing(&pstBuilder, &stParam) != 0) return 1;
  vix_meta_desc_init(&stMeta);
  stMeta.pszName = "Point";
  stMeta.iID = 3;
  if (vix_builder_begin_meta(pstBuilder, &stMeta) != 0 ||
      vix_builder_add_simple_entry(pstBuilder, "x", "int32", 1) != 0 ||
      vix_builder_add_simple_entry(pstBuilder, "y", "int16", 1) != 0 ||
      vix_builder_end_meta(pstBuilder) != 0 || vix_builder_finish(pstBuilder, &pstLib) != 0) {
    return 2;
  }
  vix_builder_close(&pstBuilder);
  iLen = vix_size(pstLib);
  if (vix_load_metalib_buf(&pstCopy, pstLib, &iLen) != 0) return 3;
  pstFound = vix_get_meta_by_id(pstCopy, 3);
  if (pstFound == NULL || strcmp(vix_get_meta_name(pstFound), "Point") != 0) return 4;
  if (vix_get_meta_size(pstFound) != 8 || vix_get_entry_by_name(&iIdx, pstFound, "y") != 0 ||
      iIdx != 1) {
    return 5;
  }
  if (vix_str_to_vixdate(&stDate, "2000-02-29") != 0) return 6;
  if (strcmp(vix_error_string(0), vix_error_string(VIX_ERRCODE(0))) != 0) return 7;
  vix_free_lib(&pstCopy);
  vix_free_lib(&pstLib);
  return pstLib == NULL ? 0 : 8;
}
