// Endpoint strings: parsing proto://address?args, protocol and type tables, and opening,
// connecting or listening on an endpoint.
#include "pal/tnet.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netdb.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "pal/tfile.h"
#include "pal/tsocket.h"

namespace {

const TNETPROTODEF kProtoDefs[] = {
    {"tcp", TNET_ID_TCP, 1, 1},     {"udp", TNET_ID_UDP, 1, 1},   {"unix", TNET_ID_UNIX, 1, 1},
    {"pipe", TNET_ID_PIPE, 1, 1},   {"file", TNET_ID_FILE, 1, 1}, {"shm", TNET_ID_SHM, 0, 1},
    {"thttp", TNET_ID_THTTP, 1, 1},
};

const TNETTYPEDEF kTypeDefs[] = {
    {"stream", 1}, {"dgram", 2}, {"seqpacket", 5}, {"raw", 3}, {"rdm", 4}, {"packet", 10},
};

// Scratch size for gethostbyname_r.
constexpr size_t kResolveScratch = 65535;

// Longest unix socket path (sun_path less its terminator).
constexpr size_t kMaxUnixPath = sizeof(sockaddr_un::sun_path) - 1;
static_assert(kMaxUnixPath == 107, "local socket paths hold 107 characters");
// Address lengths passed to connect and bind.
static_assert(sizeof(struct sockaddr_in) == 16, "IPv4 address length");
static_assert(sizeof(struct sockaddr_un) == 110, "local address length");

// Copies [begin, begin + len) into dst of cap bytes; false when it does not fit with its
// terminator.
bool copy_field_i(char* dst, size_t cap, const char* begin, size_t len) {
  if (len >= cap) return false;
  memcpy(dst, begin, len);
  dst[len] = '\0';
  return true;
}

// The socket address of an endpoint for its protocol, in storage of the caller.
int endpoint_addr_i(const TNETOPT* opt, int id, struct sockaddr_storage* ss, int* len) {
  memset(ss, 0, sizeof(*ss));
  if (id == TNET_ID_UNIX) {
    if (tnet_str2unix(opt->szAddr, reinterpret_cast<struct sockaddr_un*>(ss)) != 0) return -1;
    *len = sizeof(struct sockaddr_un);
    return 0;
  }
  if (tnet_str2inet(opt->szAddr, reinterpret_cast<struct sockaddr_in*>(ss)) != 0) return -1;
  *len = sizeof(struct sockaddr_in);
  return 0;
}

// Closes fd after a failure and reports that failure (-1 with its errno).
int close_fail_i(int fd) {
  int saved = errno;
  if (tsocket_close(fd) != 0) {
    // The call has failed already; a failed close adds nothing the caller could act on.
  }
  errno = saved;
  return -1;
}

}  // namespace

extern "C" {

int tnet_get_arg(TNETOPT* opt, const char* query) {
  if (opt == nullptr || query == nullptr) {
    errno = EINVAL;
    return -1;
  }
  opt->iArgs = 0;
  const char* p = query;
  while (*p != '\0') {
    const char* end = strchr(p, '&');
    size_t item_len = end ? static_cast<size_t>(end - p) : strlen(p);
    if (item_len == 0) break;  // an empty item ends the list
    if (opt->iArgs >= TNET_MAX_ARGS) {
      errno = E2BIG;
      return -1;
    }
    TNETARG* arg = &opt->args[opt->iArgs];
    const char* eq = static_cast<const char*>(memchr(p, '=', item_len));
    size_t name_len = eq ? static_cast<size_t>(eq - p) : item_len;
    const char* value = eq ? eq + 1 : p + item_len;
    size_t value_len = static_cast<size_t>(p + item_len - value);
    if (!copy_field_i(arg->szName, sizeof(arg->szName), p, name_len) ||
        !copy_field_i(arg->szValue, sizeof(arg->szValue), value, value_len)) {
      errno = ENAMETOOLONG;
      return -1;
    }
    ++opt->iArgs;
    if (end == nullptr) break;
    p = end + 1;
  }
  return 0;
}

int tnet_get_opt(TNETOPT* opt, const char* str) {
  if (opt == nullptr || str == nullptr) {
    errno = EINVAL;
    return -1;
  }
  memset(opt, 0, sizeof(*opt));
  const char* addr = str;
  const char* sep = strstr(str, "://");
  if (sep != nullptr) {
    size_t proto_len = static_cast<size_t>(sep - str);
    if (proto_len == 0 || !copy_field_i(opt->szProto, sizeof(opt->szProto), str, proto_len)) {
      errno = EINVAL;
      return -1;
    }
    addr = sep + 3;
  } else {
    memcpy(opt->szProto, "tcp", 4);
  }
  const char* q = strchr(addr, '?');
  size_t addr_len = q ? static_cast<size_t>(q - addr) : strlen(addr);
  if (!copy_field_i(opt->szAddr, sizeof(opt->szAddr), addr, addr_len)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  if (q != nullptr) return tnet_get_arg(opt, q + 1);
  return 0;
}

const char* tnet_find_arg(const TNETOPT* opt, const char* name) {
  if (opt == nullptr || name == nullptr) return nullptr;
  int n = opt->iArgs;
  if (n > TNET_MAX_ARGS) n = TNET_MAX_ARGS;
  for (int i = 0; i < n; ++i) {
    if (strcmp(opt->args[i].szName, name) == 0) return opt->args[i].szValue;
  }
  return nullptr;
}

const TNETPROTODEF* tnet_find_proto(const char* name) {
  if (name == nullptr) return nullptr;
  for (const TNETPROTODEF& def : kProtoDefs) {
    if (strcmp(def.pszName, name) == 0) return &def;
  }
  return nullptr;
}

const TNETTYPEDEF* tnet_find_type(const char* name) {
  if (name == nullptr) return nullptr;
  for (const TNETTYPEDEF& def : kTypeDefs) {
    if (strcmp(def.pszType, name) == 0) return &def;
  }
  return nullptr;
}

int tnet_open_by_proto(const TNETOPT* opt, const TNETPROTODEF* proto) {
  if (opt == nullptr || proto == nullptr) {
    errno = EINVAL;
    return -1;
  }
  switch (proto->iID) {
    case TNET_ID_TCP:
    case TNET_ID_THTTP:
      return tsocket_open_tcp();
    case TNET_ID_UDP:
      return tsocket_open_udp();
    case TNET_ID_UNIX: {
      // The type argument is looked up, but a local endpoint is always a stream socket,
      // whatever it names (an unknown name included).
      (void)tnet_find_type(tnet_find_arg(opt, "type"));
      return tsocket_open_unix(SOCK_STREAM);
    }
    default:
      errno = EPROTONOSUPPORT;
      return -1;
  }
}

namespace {

// Parses an endpoint string and looks up its protocol: the protocol, or null (EPROTONOSUPPORT
// for an unknown name).
const TNETPROTODEF* parse_endpoint_i(const char* str, TNETOPT* opt) {
  if (tnet_get_opt(opt, str) != 0) return nullptr;
  const TNETPROTODEF* proto = tnet_find_proto(opt->szProto);
  if (proto == nullptr) errno = EPROTONOSUPPORT;
  return proto;
}

}  // namespace

int tnet_open(const char* str) {
  TNETOPT opt;
  const TNETPROTODEF* proto = parse_endpoint_i(str, &opt);
  if (proto == nullptr) return -1;
  return tnet_open_by_proto(&opt, proto);
}

int tnet_connect(const char* str, int timeout_ms) {
  TNETOPT opt;
  const TNETPROTODEF* proto = parse_endpoint_i(str, &opt);
  if (proto == nullptr) return -1;
  if (proto->iID != TNET_ID_TCP && proto->iID != TNET_ID_UDP && proto->iID != TNET_ID_UNIX) {
    errno = EPROTONOSUPPORT;
    return -1;
  }
  int fd = tnet_open_by_proto(&opt, proto);
  if (fd < 0) return -1;
  if (tsocket_set_nonblock(fd, 1) != 0) return close_fail_i(fd);
  struct sockaddr_storage ss;
  int len = 0;
  if (endpoint_addr_i(&opt, proto->iID, &ss, &len) != 0) return close_fail_i(fd);
  if (tsocket_connect(fd, reinterpret_cast<struct sockaddr*>(&ss), len, timeout_ms) != 0) {
    return close_fail_i(fd);
  }
  return fd;
}

int tnet_listen(const char* str, int backlog) {
  TNETOPT opt;
  const TNETPROTODEF* proto = parse_endpoint_i(str, &opt);
  if (proto == nullptr) return -1;
  int fd = tnet_open_by_proto(&opt, proto);
  if (fd < 0) return -1;
  const char* reuse = tnet_find_arg(&opt, "reuse");
  if (reuse != nullptr) {
    int value = atoi(reuse);
    if (value != 0 && tsocket_reuse_addr(fd, value) != 0) return close_fail_i(fd);
  }
  struct sockaddr_storage ss;
  int len = 0;
  if (endpoint_addr_i(&opt, proto->iID, &ss, &len) != 0) return close_fail_i(fd);
  const struct sockaddr* sa = reinterpret_cast<struct sockaddr*>(&ss);
  switch (proto->iID) {
    case TNET_ID_UDP:
      if (bind(fd, sa, static_cast<socklen_t>(len)) != 0) return close_fail_i(fd);
      return fd;
    case TNET_ID_UNIX:
      // A stale socket file would make bind fail: it must go.
      if (tfexist(opt.szAddr) == 0 && tfdelete(opt.szAddr) != 0) return close_fail_i(fd);
      break;
    default:
      break;
  }
  if (tsocket_listen(fd, sa, len, backlog) != 0) return close_fail_i(fd);
  return fd;
}

int tnet_str2inet(const char* str, struct sockaddr_in* addr) {
  if (str == nullptr || addr == nullptr) {
    errno = EINVAL;
    return -1;
  }
  char host[TNET_ADDR_LEN];
  const char* colon = strchr(str, ':');
  size_t host_len = colon ? static_cast<size_t>(colon - str) : strlen(str);
  if (host_len == 0) {
    errno = EINVAL;
    return -1;
  }
  if (!copy_field_i(host, sizeof(host), str, host_len)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  unsigned short port = 0;
  if (colon != nullptr && tnet_str2port(colon + 1, &port) != 0) return -1;
  memset(addr, 0, sizeof(*addr));
  addr->sin_family = AF_INET;
  addr->sin_port = htons(port);
  if (tnet_is_number(host)) {
    if (inet_aton(host, &addr->sin_addr) == 0) {
      errno = EINVAL;
      return -1;
    }
    return 0;
  }
  char* scratch = static_cast<char*>(malloc(kResolveScratch));
  if (scratch == nullptr) return -1;
  struct hostent he;
  struct hostent* result = nullptr;
  int herr = 0;
  int rc = gethostbyname_r(host, &he, scratch, kResolveScratch, &result, &herr);
  int ret = -1;
  if (rc == 0 && result != nullptr && result->h_addrtype == AF_INET &&
      result->h_length == static_cast<int>(sizeof(addr->sin_addr)) &&
      result->h_addr_list[0] != nullptr) {
    memcpy(&addr->sin_addr, result->h_addr_list[0], sizeof(addr->sin_addr));
    ret = 0;
  } else {
    errno = rc != 0 ? rc : ENOENT;
  }
  free(scratch);
  return ret;
}

int tnet_str2port(const char* str, unsigned short* port) {
  if (str == nullptr || port == nullptr || *str == '\0') {
    errno = EINVAL;
    return -1;
  }
  unsigned long value = 0;
  for (const char* p = str; *p != '\0'; ++p) {
    if (*p < '0' || *p > '9') {
      errno = EINVAL;
      return -1;
    }
    value = value * 10 + static_cast<unsigned long>(*p - '0');
    if (value > 65535) {
      errno = EINVAL;
      return -1;
    }
  }
  *port = static_cast<unsigned short>(value);
  return 0;
}

int tnet_str2unix(const char* path, struct sockaddr_un* addr) {
  if (path == nullptr || addr == nullptr) {
    errno = EINVAL;
    return -1;
  }
  size_t len = strnlen(path, kMaxUnixPath + 1);
  if (len > kMaxUnixPath) {
    errno = ENAMETOOLONG;
    return -1;
  }
  memset(addr, 0, sizeof(*addr));
  addr->sun_family = AF_UNIX;
  memcpy(addr->sun_path, path, len);
  return 0;
}

int tnet_is_number(const char* str) {
  if (str == nullptr || *str == '\0') return 0;
  for (const char* p = str; *p != '\0'; ++p) {
    if ((*p < '0' || *p > '9') && *p != '.') return 0;
  }
  return 1;
}

int tnet_read(int fd, char* buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(read(fd, buf, static_cast<size_t>(len)));
}

int tnet_write(int fd, const char* buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(write(fd, buf, static_cast<size_t>(len)));
}

int tnet_recv(int fd, char* buf, int len) { return tsocket_recv(fd, buf, len); }

int tnet_send(int fd, const char* buf, int len) { return tsocket_send(fd, buf, len); }

int tnet_recvall(int fd, char* buf, int len, int timeout_ms) {
  return tsocket_recvall(fd, buf, len, timeout_ms);
}

int tnet_sendall(int fd, const char* buf, int len, int timeout_ms) {
  return tsocket_sendall(fd, buf, len, timeout_ms);
}

int tnet_accept(int fd, struct sockaddr* addr, socklen_t* addrlen) {
  return tsocket_accept(fd, addr, addrlen);
}

int tnet_close(int fd) { return tsocket_close(fd); }

int tnet_set_recvbuff(int fd, int size) { return tsocket_set_recvbuff(fd, size); }

int tnet_set_sendbuff(int fd, int size) { return tsocket_set_sendbuff(fd, size); }

int tnet_set_nonblock(int fd, int on) { return tsocket_set_nonblock(fd, on); }

int tnet_encode(const char* src, int srclen, char* dst, int* dstlen) {
  (void)src;
  (void)srclen;
  (void)dst;
  (void)dstlen;
  return 0;
}

int tnet_decode(const char* src, int srclen, char* dst, int* dstlen) {
  (void)src;
  (void)srclen;
  (void)dst;
  (void)dstlen;
  return 0;
}

}  // extern "C"
