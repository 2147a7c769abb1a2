// Network appender: sends each log record to a collector named by a URL (udp://host:port,
// tcp://host:port, ...). The socket is connected once at initialisation and each record goes
// out with one bounded send. A stream connection that breaks is closed and reconnected on a
// later write while the appender's lifetime retry budget lasts.
//
// UDP to a host name: the name is resolved synchronously once at initialisation; afterwards a
// process-wide helper refreshes it in the background with getaddrinfo_a every
// g_dns_interval seconds and re-targets the socket when a result comes in. A write only polls
// the lookup (gai_error); it never waits for one.

#include "wlog/wlog_net.h"

#include <arpa/inet.h>
#include <errno.h>
#include <limits.h>
#include <netdb.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "pal/tnet.h"
#include "pal/tsocket.h"
#include "wlog_net_internal.h"

namespace {

// 0x83020400 + WLOG_ERROR_NET_CONN, as the int the library returns.
constexpr int kNetConnError = static_cast<int>(0x83020402u);
constexpr size_t kHostentScratch = 65535;
constexpr size_t kUrlLen = sizeof(((WLOGDEVNET*)nullptr)->szUrl);
constexpr int kHostLen = WLOGNET_ADDR_LEN - 1;

ASYNCDNSHELPER g_dns;  // zero-initialised: empty lists
int g_dns_interval = WLOG_DEFAULT_DNS_INTERNAL;

long long to_ms(const struct timeval& tv) {
  return static_cast<long long>(tv.tv_sec) * 1000 + tv.tv_usec / 1000;
}

void set_hints_i() {
  memset(&g_dns.hints, 0, sizeof(g_dns.hints));
  g_dns.hints.ai_flags = AI_CANONNAME;
  g_dns.hints.ai_socktype = SOCK_DGRAM;
  g_dns.hints.ai_protocol = IPPROTO_UDP;
}

// The URL of the description if it is terminated inside its array, else NULL.
const char* dev_url_i(const WLOGDEVNET* dev) {
  return strnlen(dev->szUrl, kUrlLen) < kUrlLen ? dev->szUrl : nullptr;
}

int url_len_i(const WLOGDEVNET* dev) { return static_cast<int>(strnlen(dev->szUrl, kUrlLen)); }

// Closes a socket the appender gives up (a failed send or set-up, or fini): nothing is left to
// report a failed close to.
void close_socket_i(int s) {
  if (tnet_close(s) != 0) {
    // The descriptor is gone either way.
  }
}

// Opens the socket named by the URL: connected, non-blocking, with its type recorded and the
// send-buffer size applied. 0 on success, -1 on failure (the socket stays -1).
int connect_i(WLOGNET* net) {
  const WLOGDEVNET* dev = net->pstDev;
  const char* url = dev_url_i(dev);
  if (url == nullptr || url[0] == '\0') return -1;
  int s = tnet_connect(url, dev->iConnTimeout);
  if (s < 0) return -1;
  if (tnet_set_nonblock(s, 1) != 0) {  // a write must never block the logging thread
    close_socket_i(s);
    return -1;
  }
  net->stInst.iType = tsocket_get_type(s);
  if (dev->iSendBuff >= 1 && tnet_set_sendbuff(s, dev->iSendBuff) != 0) {
    // The size is a hint (the kernel may cap it); the default buffer still works.
  }
  net->stInst.s = s;
  return 0;
}

// --- resolution helper: contexts -------------------------------------------------------------

DNSCONTEXT* append_dns_ctx_i(WLOGNET* net) {
  DNSCONTEXTLIST& list = g_dns.dns_ctx_list;
  if (list.size < 0 || list.size >= WLOGNET_MAX_DNS) {
    puts("append dns ctx: exceed max wlog net num in wlog cfg xml");
    return nullptr;
  }
  DNSCONTEXT* ctx = &list.astCtx[list.size++];
  memset(ctx, 0, sizeof(*ctx));
  ctx->pstNet = net;
  return ctx;
}

// The appender's own context (live or deleted), else a deleted slot, else a new one.
DNSCONTEXT* find_or_create_dns_ctx_i(WLOGNET* net) {
  DNSCONTEXTLIST& list = g_dns.dns_ctx_list;
  DNSCONTEXT* reusable = nullptr;
  for (int i = 0; i < list.size && i < WLOGNET_MAX_DNS; ++i) {
    DNSCONTEXT* ctx = &list.astCtx[i];
    if (ctx->pstNet == net) {
      ctx->is_deleted = 0;
      return ctx;
    }
    if (ctx->is_deleted && reusable == nullptr) reusable = ctx;
  }
  if (reusable != nullptr) {
    memset(reusable, 0, sizeof(*reusable));
    reusable->pstNet = net;
    return reusable;
  }
  if (list.size >= WLOGNET_MAX_DNS) {
    puts("dns_ctx_list: exceed max wlog net num in wlog cfg xml");
    return nullptr;
  }
  return append_dns_ctx_i(net);
}

// Resolves the host once, blocking, and stores its first address with the port.
int getaddrinfo_block_i(DNSCONTEXT* ctx, const char* host, unsigned port) {
  char* scratch = static_cast<char*>(malloc(kHostentScratch));
  if (scratch == nullptr) {
    printf("gethostbyname_r failed, ret[%d].\n", ENOMEM);
    return -1;
  }
  struct hostent he;
  struct hostent* result = nullptr;
  int h_err = 0;
  int ret = gethostbyname_r(host, &he, scratch, kHostentScratch, &result, &h_err);
  int rc = -1;
  if (ret != 0 || result == nullptr || result->h_addr_list[0] == nullptr) {
    // A name that is not found is no call failure (ret 0): report the resolver's code then.
    printf("gethostbyname_r failed, ret[%d].\n", ret != 0 ? ret : h_err);
  } else if (result->h_addrtype == AF_INET &&
             static_cast<size_t>(result->h_length) == sizeof(ctx->ipv4.sin_addr)) {
    memcpy(&ctx->ipv4.sin_addr, result->h_addr_list[0], sizeof(ctx->ipv4.sin_addr));
    ctx->addrtype = AF_INET;
    rc = 0;
  } else if (result->h_addrtype == AF_INET6 &&
             static_cast<size_t>(result->h_length) == sizeof(ctx->ipv6.sin6_addr)) {
    memcpy(&ctx->ipv6.sin6_addr, result->h_addr_list[0], sizeof(ctx->ipv6.sin6_addr));
    ctx->addrtype = AF_INET6;
    rc = 0;
  } else {
    printf("gethostbyname_r failed, ret[%d].\n", EAFNOSUPPORT);
  }
  free(scratch);
  if (rc != 0) return -1;
  ctx->ipv4.sin_family = AF_INET;
  ctx->ipv4.sin_port = htons(static_cast<uint16_t>(port));
  ctx->ipv6.sin6_family = AF_INET6;
  ctx->ipv6.sin6_port = htons(static_cast<uint16_t>(port));
  gettimeofday(&ctx->last_result_time, nullptr);
  return 0;
}

// --- resolution helper: requests -------------------------------------------------------------

// Clears the outcome of a finished lookup (status and result) but keeps name and hints.
void reset_gaicb_i(ASYNCDNSREQUEST* req) {
  const char* name = req->gaicb_struct.ar_name;
  if (req->gaicb_struct.ar_result != nullptr) freeaddrinfo(req->gaicb_struct.ar_result);
  memset(&req->gaicb_struct, 0, sizeof(req->gaicb_struct));
  req->gaicb_struct.ar_name = name;
  req->gaicb_struct.ar_request = &g_dns.hints;
  req->gaicb_ptrs[0] = &req->gaicb_struct;
}

// Brings a request to rest: cancels a running lookup or, if the C library has already started
// it, waits for it (only initialisation and finalisation get here, never a write), then drops
// its result.
void quiesce_req_i(ASYNCDNSREQUEST* req) {
  struct gaicb* cb = &req->gaicb_struct;
  if (gai_error(cb) == EAI_INPROGRESS) {
    gai_cancel(cb);
    const struct gaicb* const list[1] = {cb};
    while (gai_error(cb) == EAI_INPROGRESS) gai_suspend(list, 1, nullptr);
  }
  reset_gaicb_i(req);
}

void release_req_i(ASYNCDNSREQUEST* req) {
  quiesce_req_i(req);
  free(const_cast<char*>(req->gaicb_struct.ar_name));
  memset(req, 0, sizeof(*req));
}

int set_req_name_i(ASYNCDNSREQUEST* req, const char* host) {
  char* copy = strdup(host);
  if (copy == nullptr) return -1;
  free(const_cast<char*>(req->gaicb_struct.ar_name));
  req->gaicb_struct.ar_name = copy;
  return 0;
}

ASYNCDNSREQUEST* append_dns_req_i(WLOGNET* net) {
  ASYNCDNSREQUESTLIST& list = g_dns.req_list;
  if (list.size < 0 || list.size >= WLOGNET_MAX_DNS) {
    puts("append dns req: exceed max wlog net num in wlog cfg xml");
    return nullptr;
  }
  ASYNCDNSREQUEST* req = &list.astReq[list.size++];
  memset(req, 0, sizeof(*req));
  req->pstNet = net;
  return req;
}

// The appender's own request, else one whose owner has no live context any more, else a new
// one; in every case at rest, with a fresh copy of the host name and the shared hints.
ASYNCDNSREQUEST* find_or_create_dns_req_i(WLOGNET* net, const char* host) {
  ASYNCDNSREQUESTLIST& list = g_dns.req_list;
  ASYNCDNSREQUEST* req = nullptr;
  ASYNCDNSREQUEST* reusable = nullptr;
  for (int i = 0; i < list.size && i < WLOGNET_MAX_DNS; ++i) {
    ASYNCDNSREQUEST* r = &list.astReq[i];
    if (r->pstNet == net) {
      req = r;
      break;
    }
    if (reusable == nullptr && wlognet_find_dns_ctx_i(r->pstNet) == nullptr) reusable = r;
  }
  if (req != nullptr) {
    if (req->gaicb_ptrs[0] == nullptr) puts("get a exception wlog gcicb_ptr");
  } else if (reusable != nullptr) {
    req = reusable;
    req->pstNet = net;
  } else if (list.size >= WLOGNET_MAX_DNS) {
    puts("req_list: exceed max wlog net num in wlog cfg xml");
    return nullptr;
  } else {
    req = append_dns_req_i(net);
    if (req == nullptr) return nullptr;
  }
  quiesce_req_i(req);  // also (re)points gaicb_ptrs[0] and the hints
  if (set_req_name_i(req, host) != 0) return nullptr;
  return req;
}

void release_all_i() {
  for (int i = 0; i < g_dns.req_list.size && i < WLOGNET_MAX_DNS; ++i) {
    release_req_i(&g_dns.req_list.astReq[i]);
  }
  memset(&g_dns.req_list, 0, sizeof(g_dns.req_list));
  memset(&g_dns.dns_ctx_list, 0, sizeof(g_dns.dns_ctx_list));
}

// --- resolution helper: the write path -------------------------------------------------------

// Takes the first address of a finished lookup, re-targets the socket to it and frees it.
void apply_result_i(WLOGNET* net, DNSCONTEXT* ctx, ASYNCDNSREQUEST* req,
                    const struct timeval& now) {
  const struct addrinfo* ai = req->gaicb_struct.ar_result;
  const struct sockaddr* addr = nullptr;
  int len = 0;
  if (ai->ai_family == AF_INET && ai->ai_addrlen >= sizeof(struct sockaddr_in)) {
    in_port_t port = ctx->ipv4.sin_port;
    memcpy(&ctx->ipv4, ai->ai_addr, sizeof(ctx->ipv4));
    ctx->ipv4.sin_port = port;
    ctx->addrtype = AF_INET;
    addr = reinterpret_cast<const struct sockaddr*>(&ctx->ipv4);
    len = sizeof(ctx->ipv4);
  } else if (ai->ai_family == AF_INET6 && ai->ai_addrlen >= sizeof(struct sockaddr_in6)) {
    in_port_t port = ctx->ipv6.sin6_port;
    memcpy(&ctx->ipv6, ai->ai_addr, sizeof(ctx->ipv6));
    ctx->ipv6.sin6_port = port;
    ctx->addrtype = AF_INET6;
    addr = reinterpret_cast<const struct sockaddr*>(&ctx->ipv6);
    len = sizeof(ctx->ipv6);
  }
  if (addr != nullptr && net->stInst.s >= 0 && tsocket_start_connect(net->stInst.s, addr, len) < 0) {
    // The socket keeps the address it had; the next refresh tries again.
  }
  ctx->last_result_time = now;
  freeaddrinfo(req->gaicb_struct.ar_result);
  req->gaicb_struct.ar_result = nullptr;
}

// Polls this appender's lookup and starts the next one once the interval has passed.
void refresh_domain_i(WLOGNET* net) {
  DNSCONTEXT* ctx = wlognet_find_dns_ctx_i(net);
  if (ctx == nullptr) return;
  ASYNCDNSREQUEST* req = wlognet_find_dns_req_i(net);
  if (req == nullptr || req->gaicb_ptrs[0] == nullptr) return;
  struct timeval now;
  gettimeofday(&now, nullptr);

  int status = gai_error(&req->gaicb_struct);
  if (status == 0) {
    if (req->gaicb_struct.ar_result != nullptr) apply_result_i(net, ctx, req, now);
  } else if (status != EAI_INPROGRESS) {
    printf("getaddrinfo_a result failed: %s\n", gai_strerror(status));
    reset_gaicb_i(req);  // report a failed lookup once
    status = 0;
  }

  if (status != EAI_INPROGRESS &&
      to_ms(ctx->last_result_time) + static_cast<long long>(g_dns_interval) * 1000 < to_ms(now)) {
    req->gaicb_struct.ar_request = &g_dns.hints;
    int ret = getaddrinfo_a(GAI_NOWAIT, req->gaicb_ptrs, 1, nullptr);
    if (ret != 0) printf("getaddrinfo_a failed: %s\n", gai_strerror(ret));
    ctx->last_result_time = now;
  }
}

// Sends the whole record: one non-blocking send first, which is all a datagram or a stream
// with room in its buffer needs; the platform's timed send-all only for what is left. Returns
// the count sent (short after a timeout) or a negative value.
int send_record_i(int s, const char* data, size_t len, int timeout_ms) {
  if (len == 0) return 0;
  int n = tnet_send(s, data, static_cast<int>(len));  // the socket is non-blocking
  if (n == static_cast<int>(len)) return n;
  if (n < 0) {
    if (errno != EAGAIN && errno != EWOULDBLOCK && errno != EINTR) return -1;
    n = 0;
  }
  errno = 0;
  int rest = tnet_sendall(s, data + n, static_cast<int>(len) - n, timeout_ms);
  if (rest < 0) return rest;
  return n + rest;
}

// Marks the appender's resolution context deleted, frees the buffer, closes the socket.
void release_net_i(WLOGNET* net) {
  DNSCONTEXT* ctx = wlognet_find_dns_ctx_i(net);
  if (ctx != nullptr) ctx->is_deleted = 1;
  free(net->stInst.pszBuff);
  net->stInst.pszBuff = nullptr;
  if (net->stInst.s >= 0) close_socket_i(net->stInst.s);
  net->stInst.s = -1;
}

}  // namespace

// --- public interface ------------------------------------------------------------------------

int wlognet_get_ip_port(const char* pszText, char* pszHost, int iHost, unsigned* puPort) {
  if (pszText == nullptr || pszHost == nullptr || puPort == nullptr || iHost < 1) return -1;
  const char* colon = strchr(pszText, ':');
  size_t len = colon != nullptr ? static_cast<size_t>(colon - pszText) : strlen(pszText);
  if (len > static_cast<size_t>(kHostLen) || len >= static_cast<size_t>(iHost)) return -1;
  unsigned short port = 0;
  if (colon != nullptr && tnet_str2port(colon + 1, &port) != 0) return -1;
  memcpy(pszHost, pszText, len);
  pszHost[len] = '\0';
  *puPort = port;
  return 0;
}

int wlognet_parse_url(const char* pszUrl, URLPARTS* pstParts) {
  if (pszUrl == nullptr || pstParts == nullptr) return -1;
  memset(pstParts, 0, sizeof(*pstParts));
  TNETOPT opt;
  memset(&opt, 0, sizeof(opt));
  int ret = tnet_get_opt(&opt, pszUrl);
  if (ret != 0) {
    printf("tnet_get_opt failed, ret[%d].\n", ret);
    return -1;
  }
  const TNETPROTODEF* proto = tnet_find_proto(opt.szProto);
  if (proto == nullptr) {
    printf("proto[%s] NOT support.\n", opt.szProto);
    return -1;
  }
  pstParts->proto_id = proto->iID;
  ret = wlognet_get_ip_port(opt.szAddr, pstParts->addr, sizeof(pstParts->addr), &pstParts->port);
  if (ret != 0) {
    printf("wlognet_get_ip_port failed, input_str[%s], ret[%d].\n", opt.szAddr, ret);
    return -1;
  }
  int n = opt.iArgs;
  if (n < 0) n = 0;
  if (n > WLOGNET_MAX_URL_ARGS) n = WLOGNET_MAX_URL_ARGS;
  for (int i = 0; i < n; ++i) {
    snprintf(pstParts->args[i].szName, sizeof(pstParts->args[i].szName), "%s", opt.args[i].szName);
    snprintf(pstParts->args[i].szValue, sizeof(pstParts->args[i].szValue), "%s",
             opt.args[i].szValue);
  }
  pstParts->iArgs = n;
  return 0;
}

int wlognet_reload_dns_ctx(WLOGNET* pstNet) {
  if (pstNet == nullptr || pstNet->pstDev == nullptr) return -1;
  pstNet->is_udp_domain = 0;
  const char* url = dev_url_i(pstNet->pstDev);
  URLPARTS parts;
  if (url == nullptr || wlognet_parse_url(url, &parts) != 0) {
    puts("wlognet parse_url failed.");
    return -1;
  }
  DNSCONTEXT* ctx = wlognet_find_dns_ctx_i(pstNet);
  if (parts.proto_id != TNET_ID_UDP || tnet_is_number(parts.addr)) {
    if (ctx != nullptr) ctx->is_deleted = 1;  // a reload may have replaced a name by an address
    return 0;
  }
  pstNet->is_udp_domain = 1;
  set_hints_i();
  ctx = find_or_create_dns_ctx_i(pstNet);
  if (ctx == nullptr) return -1;
  snprintf(ctx->domain, sizeof(ctx->domain), "%s", parts.addr);
  if (getaddrinfo_block_i(ctx, parts.addr, parts.port) != 0) {
    puts("wlognet_getaddrinfo_block failed.");
    ctx->is_deleted = 1;
    return -1;
  }
  if (find_or_create_dns_req_i(pstNet, parts.addr) == nullptr) {
    ctx->is_deleted = 1;
    return -1;
  }
  return 0;
}

int wlognet_init(WLOGNET* pstNet, WLOGDEVNET* pstDev) {
  if (pstNet == nullptr || pstDev == nullptr) return -1;
  memset(pstNet, 0, sizeof(*pstNet));
  pstNet->pstDev = pstDev;
  pstNet->stInst.s = -1;
  if (pstDev->iBuffSize < 1) pstDev->iBuffSize = WLOGNET_DEF_BUFF_SIZE;
  pstNet->stInst.pszBuff = static_cast<char*>(malloc(static_cast<size_t>(pstDev->iBuffSize)));
  if (pstNet->stInst.pszBuff == nullptr) return -1;

  if (connect_i(pstNet) != 0) {
    printf("connect net url %.*s fail\n", url_len_i(pstDev), pstDev->szUrl);
    release_net_i(pstNet);
    return kNetConnError;
  }
  if (wlognet_reload_dns_ctx(pstNet) != 0) {
    printf("wlognet init_domain_result failed, net url is [%.*s].\n", url_len_i(pstDev),
           pstDev->szUrl);
    release_net_i(pstNet);
    return kNetConnError;
  }
  return 0;
}

int wlognet_writev(WLOGNET* pstNet, const WLOGIOVEC* pstIOVec, int iCount) {
  if (pstNet == nullptr || pstNet->pstDev == nullptr || iCount < 0 ||
      (pstIOVec == nullptr && iCount > 0)) {
    return -1;
  }
  const WLOGDEVNET* dev = pstNet->pstDev;
  WLOGDEVNETINST& inst = pstNet->stInst;
  inst.iIsSendNetSucc = 0;

  if (inst.s < 0 && !pstNet->is_udp_domain) {
    if (!dev->iAutoReconnect) return -1;
    if (dev->iMaxRetry != 0 && inst.iCurRetry >= dev->iMaxRetry) return -1;
    ++inst.iCurRetry;  // never reset: the budget covers the appender's whole life
    if (connect_i(pstNet) != 0) return -1;
  }
  if (pstNet->is_udp_domain) refresh_domain_i(pstNet);

  const char* data;
  size_t len;
  if (iCount == 1) {
    data = static_cast<const char*>(pstIOVec[0].iov_base);
    len = pstIOVec[0].iov_len;
    if ((data == nullptr && len > 0) || len > static_cast<size_t>(INT_MAX)) return -1;
  } else {
    // Copy the pieces in order; the record is cut at iBuffSize bytes and the pieces that no
    // longer fit are dropped.
    if (inst.pszBuff == nullptr || dev->iBuffSize < 1) return -1;
    const size_t cap = static_cast<size_t>(dev->iBuffSize);
    len = 0;
    for (int i = 0; i < iCount; ++i) {
      size_t piece = pstIOVec[i].iov_len;
      if (piece == 0) continue;
      if (pstIOVec[i].iov_base == nullptr) return -1;
      if (piece >= cap - len) {
        memcpy(inst.pszBuff + len, pstIOVec[i].iov_base, cap - len);
        len = cap;
        break;
      }
      memcpy(inst.pszBuff + len, pstIOVec[i].iov_base, piece);
      len += piece;
    }
    data = inst.pszBuff;
  }

  errno = 0;
  int sent = send_record_i(inst.s, data, len, dev->iSendTimeout);
  if (sent >= 0 && static_cast<size_t>(sent) == len) {
    inst.iIsSendNetSucc = 1;
    return sent;
  }
  if (inst.iType == SOCK_STREAM && errno != ENOTCONN && inst.s >= 0) {
    close_socket_i(inst.s);
    inst.s = -1;  // the next write reconnects
  }
  return -1;
}

int wlognet_write(WLOGNET* pstNet, const char* pszBuff, size_t iBuff) {
  WLOGIOVEC vec = {const_cast<char*>(pszBuff), iBuff};
  return wlognet_writev(pstNet, &vec, 1);
}

int wlognet_fini(WLOGNET* pstNet) {
  if (pstNet == nullptr) return -1;
  release_net_i(pstNet);
  return 0;
}

int wlognet_module_init(void) {
  tsocket_init();
  if (g_dns.is_inited++ == 0) set_hints_i();
  return 0;
}

void wlognet_module_fini(void) {
  if (g_dns.is_inited > 0) --g_dns.is_inited;
  if (g_dns.is_inited == 0) release_all_i();
  tsocket_fini();
}

void wlognet_set_dns_interval(int iSeconds) {
  g_dns_interval = iSeconds < 1 ? WLOG_DEFAULT_DNS_INTERNAL : iSeconds;
}

// --- internal -------------------------------------------------------------------------------

ASYNCDNSHELPER* wlognet_dns_helper_i(void) { return &g_dns; }

int wlognet_get_dns_interval_i(void) { return g_dns_interval; }

DNSCONTEXT* wlognet_find_dns_ctx_i(const WLOGNET* pstNet) {
  if (pstNet == nullptr) return nullptr;
  DNSCONTEXTLIST& list = g_dns.dns_ctx_list;
  for (int i = 0; i < list.size && i < WLOGNET_MAX_DNS; ++i) {
    if (list.astCtx[i].pstNet == pstNet && !list.astCtx[i].is_deleted) return &list.astCtx[i];
  }
  return nullptr;
}

ASYNCDNSREQUEST* wlognet_find_dns_req_i(const WLOGNET* pstNet) {
  if (pstNet == nullptr) return nullptr;
  ASYNCDNSREQUESTLIST& list = g_dns.req_list;
  for (int i = 0; i < list.size && i < WLOGNET_MAX_DNS; ++i) {
    if (list.astReq[i].pstNet == pstNet) return &list.astReq[i];
  }
  return nullptr;
}
