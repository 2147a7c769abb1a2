/*
 * tnet.h: endpoints named by one string, proto://address?name=value&name=value.
 *
 * Conventions:
 *  - Every function that returns a result code is marked PAL_MUST_CHECK: ignoring it warns.
 *  - Without "://" the protocol is "tcp" and the whole string is the address.
 *  - Limits: protocol at most 15 characters, address at most 127, at most TNET_MAX_ARGS
 *    arguments with names of at most 31 and values of at most 255 characters. Longer input is
 *    refused with -1; nothing is written past a field.
 *  - tcp, udp and thttp addresses are host[:port] (IPv4); unix addresses are socket paths.
 *  - Functions return a descriptor or 0 on success and -1 on failure, errno as the failing
 *    system call left it. Lookups return pointers into static tables or into the endpoint
 *    record, or null when nothing matches.
 *  - Deliberate hardening: a port must be all digits and at most 65535 (tnet_str2port), else the
 *    address is malformed, where a plain strtol would take "80abc" as 80 and wrap 99999 and -1
 *    into other ports; a failure after a socket was opened closes it again (errno kept);
 *    more than TNET_MAX_ARGS arguments are refused (E2BIG) rather than dropped.
 */
#ifndef PAL_TNET_H
#define PAL_TNET_H

#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/types.h>
#include <sys/un.h>

#include "pal/pal_defs.h"

#define TNET_PROTO_LEN 16
#define TNET_ADDR_LEN 128
#define TNET_ARG_NAME_LEN 32
#define TNET_ARG_VALUE_LEN 256
#define TNET_MAX_ARGS 16

/* Protocol identifiers (TNETPROTODEF.iID). */
#define TNET_ID_TCP 1
#define TNET_ID_UDP 2
#define TNET_ID_UNIX 3
#define TNET_ID_PIPE 4
#define TNET_ID_FILE 5
#define TNET_ID_SHM 6
#define TNET_ID_THTTP 7

#ifdef __cplusplus
extern "C" {
#endif

/* One query argument: name=value, or a bare name with an empty value. */
typedef struct tagTnetArg {
  char szName[TNET_ARG_NAME_LEN];
  char szValue[TNET_ARG_VALUE_LEN];
} TNETARG, *LPTNETARG;

/* A parsed endpoint string. */
typedef struct tagTnetOpt {
  char szProto[TNET_PROTO_LEN];
  char szAddr[TNET_ADDR_LEN];
  int iArgs;
  TNETARG args[TNET_MAX_ARGS];
} TNETOPT, *LPTNETOPT;

/* One entry of the protocol table. */
typedef struct tagTnetProtoDef {
  const char* pszName;
  int iID;
  int fSelectable;
  int fAvail;
} TNETPROTODEF, *LPTNETPROTODEF;

/* One entry of the socket type table. */
typedef struct tagTnetTypeDef {
  const char* pszType;
  int iType;
} TNETTYPEDEF, *LPTNETTYPEDEF;

/* Parses str into *opt (zeroed first). 0, or -1 for a null argument, an empty or over-long
 * protocol, an over-long address or a bad argument list. */
PAL_MUST_CHECK int tnet_get_opt(TNETOPT* opt, const char* str);

/* Parses a query text "a=1&b&c=3" into the arguments of *opt (replacing any there). An empty
 * item ends the list. 0, or -1 for an over-long name or value or more than TNET_MAX_ARGS
 * items. */
PAL_MUST_CHECK int tnet_get_arg(TNETOPT* opt, const char* query);

/* The value of the argument called name (exact case), or null. */
const char* tnet_find_arg(const TNETOPT* opt, const char* name);

/* Protocol table entry by name (exact case), or null. */
const TNETPROTODEF* tnet_find_proto(const char* name);

/* Socket type table entry ("stream", "dgram", "seqpacket", "raw", "rdm", "packet"), or null. */
const TNETTYPEDEF* tnet_find_type(const char* name);

/* Opens a socket for the endpoint's protocol, not connected. tcp and thttp: IPv4 stream; udp:
 * IPv4 datagram; unix: local stream (an argument "type" is looked up in the type table but does
 * not change the socket, known or not). pipe, file and shm are not openable: -1. */
PAL_MUST_CHECK int tnet_open(const char* str);
PAL_MUST_CHECK int tnet_open_by_proto(const TNETOPT* opt, const TNETPROTODEF* proto);

/* Opens and connects to the endpoint within timeout_ms; the connected socket, left
 * non-blocking, or -1 (the socket is closed). Only tcp, udp and unix can be connected. */
PAL_MUST_CHECK int tnet_connect(const char* str, int timeout_ms);

/* Opens the endpoint and listens on it: tcp and thttp bind and listen, udp only binds, unix
 * removes an existing file at the path, then binds and listens. An argument "reuse" with a
 * non-zero number sets SO_REUSEADDR to it first. The socket, or -1. */
PAL_MUST_CHECK int tnet_listen(const char* str, int backlog);

/* Fills *addr from "host[:port]": a numeric host through inet_aton, a name through
 * gethostbyname_r (first address); port 0 when absent. 0, or -1 when the host is empty, longer
 * than 127 characters or cannot be converted, or the port is malformed (tnet_str2port). */
PAL_MUST_CHECK int tnet_str2inet(const char* str, struct sockaddr_in* addr);

/* A port: one or more decimal digits, nothing else, of value 0 to 65535. 0 and *port set, or -1
 * (EINVAL) for anything else ("", "-1", "80abc", "99999"). */
PAL_MUST_CHECK int tnet_str2port(const char* str, unsigned short* port);

/* Fills *addr with the local socket path; -1 when it is longer than 107 characters. */
PAL_MUST_CHECK int tnet_str2unix(const char* path, struct sockaddr_un* addr);

/* 1 when str is non-empty and holds only digits and dots, else 0. */
int tnet_is_number(const char* str);

/* Pass-throughs: read(2) and write(2), and the tsocket_* functions of the same name. */
PAL_MUST_CHECK int tnet_read(int fd, char* buf, int len);
PAL_MUST_CHECK int tnet_write(int fd, const char* buf, int len);
PAL_MUST_CHECK int tnet_recv(int fd, char* buf, int len);
PAL_MUST_CHECK int tnet_send(int fd, const char* buf, int len);
PAL_MUST_CHECK int tnet_recvall(int fd, char* buf, int len, int timeout_ms);
PAL_MUST_CHECK int tnet_sendall(int fd, const char* buf, int len, int timeout_ms);
PAL_MUST_CHECK int tnet_accept(int fd, struct sockaddr* addr, socklen_t* addrlen);
PAL_MUST_CHECK int tnet_close(int fd);
PAL_MUST_CHECK int tnet_set_recvbuff(int fd, int size);
PAL_MUST_CHECK int tnet_set_sendbuff(int fd, int size);
PAL_MUST_CHECK int tnet_set_nonblock(int fd, int on);

/* Payload transforms; none is applied: both leave their arguments alone and return 0. */
int tnet_encode(const char* src, int srclen, char* dst, int* dstlen);
int tnet_decode(const char* src, int srclen, char* dst, int* dstlen);

#ifdef __cplusplus
}
#endif

#endif /* PAL_TNET_H */
