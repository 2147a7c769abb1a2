/* The public headers used from plain C: they compile as C and link against the library. */
#include <string.h>

#include "pal/tfile.h"
#include "pal/tnet.h"
#include "pal/tos.h"
#include "pal/tsocket.h"

int main(void) {
  TNETOPT opt;
  char macro[16];
  int fd;
  if (tnet_get_opt(&opt, "udp://127.0.0.1:9?x=1") != 0 || opt.iArgs != 1) return 1;
  if (tnet_find_proto(opt.szProto)->iID != TNET_ID_UDP) return 2;
  if (tos_file_to_macro(macro, sizeof(macro), "a/b.h") != 0 || strcmp(macro, "B_H") != 0) return 3;
  if (tfopen("/", 0) != -1 || tfexist("/") != 0) return 4;
  fd = tnet_open("udp://127.0.0.1:9");
  if (fd < 0 || tsocket_get_type(fd) != 2 || tsocket_close(fd) != 0) return 5;
  return 0;
}
