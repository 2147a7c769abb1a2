/* wlog_net.h - network appender: sends each record to a collector named by a URL.
 *
 * Conventions: functions return a non-negative value on success and -1 on failure;
 * wlognet_init returns 0x83020402 (WLOG_ERROR_NET_CONN) when it cannot connect or set up
 * name resolution. The state points at its WLOGDEVNET (not owned, lives in the configuration);
 * the socket and the assembly buffer are owned and released by wlognet_fini.
 * The process-wide name-resolution helper is set up by wlognet_module_init and released by
 * wlognet_module_fini; the logging context calls them through the appender dispatch table.
 */
#ifndef WLOG_WLOG_NET_H_
#define WLOG_WLOG_NET_H_

#include "wlog/wlog_conf.h"
#include "wlog/wlog_defs.h"
#include "wlog/wlog_iovec.h"

#ifdef __cplusplus
extern "C" {
#endif

#define WLOGNET_DEF_BUFF_SIZE 10240000
#define WLOGNET_ADDR_LEN 128
#define WLOGNET_MAX_URL_ARGS 16
#define WLOGNET_ARG_NAME_LEN 32
#define WLOGNET_ARG_VALUE_LEN 256

typedef struct tagWLogDevNetInst {
  int s;              /* socket, -1 when closed */
  int iType;          /* socket type: 1 stream, 2 datagram */
  int iCurRetry;      /* reconnect attempts made so far */
  char* pszBuff;      /* assembly buffer, owned */
  int iIsSendNetSucc; /* 1 when the last send delivered the whole record */
} WLOGDEVNETINST, *LPWLOGDEVNETINST;

typedef struct tagWLogNet {
  WLOGDEVNET* pstDev;
  WLOGDEVNETINST stInst;
  int is_udp_domain; /* 1 for UDP to a host name */
} WLOGNET, *LPWLOGNET;

typedef struct tagUrlArg {
  char szName[WLOGNET_ARG_NAME_LEN];
  char szValue[WLOGNET_ARG_VALUE_LEN];
} URLARG;

/* A parsed collector URL. proto_id: tcp 1, udp 2, unix 3, pipe 4, file 5, shm 6, thttp 7. */
typedef struct tagUrlParts {
  int proto_id;
  char addr[WLOGNET_ADDR_LEN];
  unsigned port; /* 0 when absent */
  int iArgs;
  URLARG args[WLOGNET_MAX_URL_ARGS];
} URLPARTS, *LPURLPARTS;

WLOG_MUST_CHECK int wlognet_init(WLOGNET* pstNet, WLOGDEVNET* pstDev);
WLOG_MUST_CHECK int wlognet_writev(WLOGNET* pstNet, const WLOGIOVEC* pstIOVec, int iCount);
WLOG_MUST_CHECK int wlognet_write(WLOGNET* pstNet, const char* pszBuff, size_t iBuff);
WLOG_MUST_CHECK int wlognet_fini(WLOGNET* pstNet);
WLOG_MUST_CHECK int wlognet_reload_dns_ctx(WLOGNET* pstNet);
WLOG_MUST_CHECK int wlognet_parse_url(const char* pszUrl, URLPARTS* pstParts);
/* Splits "host[:port]": -1 for a host longer than 127 characters or than iHost - 1, or a port
 * that is not all digits or above 65535; the port is 0 when absent. */
WLOG_MUST_CHECK int wlognet_get_ip_port(const char* pszText, char* pszHost, int iHost,
                                        unsigned* puPort);

/* Process-wide parts: the socket layer and the asynchronous name-resolution helper, and the
 * refresh interval in seconds (values < 1 mean WLOG_DEFAULT_DNS_INTERNAL). */
WLOG_MUST_CHECK int wlognet_module_init(void);
void wlognet_module_fini(void);
void wlognet_set_dns_interval(int iSeconds);

#ifdef __cplusplus
}
#endif

#endif /* WLOG_WLOG_NET_H_ */
