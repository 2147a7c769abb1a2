/*
 * wlog_net_internal.h: the process-wide name-resolution helper of the network appender
 * (internal to the library; tests include it to look at the helper's state).
 *
 * A network appender that sends UDP to a host name owns one DNSCONTEXT (the last address it
 * resolved and when) and one ASYNCDNSREQUEST (a getaddrinfo_a control block that refreshes the
 * address in the background). Both lists live in one static ASYNCDNSHELPER, are capped at
 * WLOGNET_MAX_DNS entries, take no locks and are touched only from the logging thread; the
 * lookups themselves run on the C library's threads and are polled with gai_error.
 */
#ifndef WLOG_SRC_WLOG_NET_INTERNAL_H
#define WLOG_SRC_WLOG_NET_INTERNAL_H

#include <netdb.h>
#include <netinet/in.h>
#include <sys/time.h>

#include "wlog/wlog_net.h"

#define WLOGNET_MAX_DNS 256
#define WLOGNET_DOMAIN_LEN 128

/* Last resolved address of one appender's host name; the port (network order) is kept in
 * both ipv4 and ipv6 so either can be used for the next connect. */
typedef struct tagDNSContext {
  char domain[WLOGNET_DOMAIN_LEN];
  struct sockaddr_in ipv4;
  struct sockaddr_in6 ipv6;
  struct timeval last_result_time;
  WLOGNET* pstNet; /* owning appender */
  int addrtype;    /* AF_INET (2) or AF_INET6 (10) */
  int is_deleted;  /* set by wlognet_fini; the slot may then be reused */
} DNSCONTEXT, *LPDNSCONTEXT;

typedef struct tagDNSContextList {
  DNSCONTEXT astCtx[WLOGNET_MAX_DNS];
  int size;
} DNSCONTEXTLIST;

/* One background lookup. gaicb_struct.ar_name is a heap copy of the host name owned by the
 * request; gaicb_ptrs[0] points at gaicb_struct. */
typedef struct tagASyncDNSRequest {
  struct gaicb gaicb_struct;
  struct gaicb* gaicb_ptrs[1];
  WLOGNET* pstNet; /* owning appender */
} ASYNCDNSREQUEST, *LPASYNCDNSREQUEST;

typedef struct tagASyncDNSRequestList {
  ASYNCDNSREQUEST astReq[WLOGNET_MAX_DNS];
  int size;
} ASYNCDNSREQUESTLIST;

/* is_inited counts wlognet_module_init calls not yet matched by wlognet_module_fini; the
 * lists are released when it drops back to 0. */
typedef struct tagASyncDNSHelper {
  int is_inited;
  DNSCONTEXTLIST dns_ctx_list;
  ASYNCDNSREQUESTLIST req_list;
  struct addrinfo hints; /* AI_CANONNAME, SOCK_DGRAM, IPPROTO_UDP */
} ASYNCDNSHELPER, *LPASYNCDNSHELPER;

/* The helper instance and the refresh interval in seconds (for tests and diagnostics). */
ASYNCDNSHELPER* wlognet_dns_helper_i(void);
int wlognet_get_dns_interval_i(void);

/* The live (not deleted) context and the request of an appender, or NULL. */
DNSCONTEXT* wlognet_find_dns_ctx_i(const WLOGNET* pstNet);
ASYNCDNSREQUEST* wlognet_find_dns_req_i(const WLOGNET* pstNet);

#endif /* WLOG_SRC_WLOG_NET_INTERNAL_H */
