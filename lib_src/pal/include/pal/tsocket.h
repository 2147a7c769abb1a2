/*
 * tsocket.h: socket primitives.
 *
 * Conventions:
 *  - Every function that returns a result code is marked PAL_MUST_CHECK: ignoring it warns.
 *  - Sockets are plain int descriptors. Functions return 0 or a non-negative value on success
 *    and -1 on failure with errno left as the failing system call set it, unless a function
 *    says otherwise (the connect and send-all helpers have a few extra result codes).
 *  - Timeouts are in milliseconds; -1 waits without limit.
 *  - Waiting uses select for descriptors below FD_SETSIZE (1024) and epoll above it.
 *  - Deliberate hardening: sends use MSG_NOSIGNAL, so a broken connection gives an error, never
 *    SIGPIPE; the epoll descriptor of a wait is close-on-exec; waits and transfers interrupted
 *    by a signal (EINTR) are resumed.
 *  - Stateless; each call works on the descriptor given.
 */
#ifndef PAL_TSOCKET_H
#define PAL_TSOCKET_H

#include <sys/socket.h>
#include <sys/types.h>

#include "pal/pal_defs.h"

/* tsocket_start_connect results. */
#define TSOCKET_CONNECTED 0  /* connected at once (or already connected) */
#define TSOCKET_INPROGRESS 2 /* connect under way; finish with tsocket_check_connect */

/* tsocket_check_connect result when the wait timed out. */
#define TSOCKET_TIMEOUT 1

/* tsocket_sendall / tsocket_recvall results besides a byte count. */
#define TSOCKET_ERR_IO (-2)     /* the send or receive failed */
#define TSOCKET_ERR_CLOSED (-3) /* 0 bytes moved before anything was transferred */

/* Events for tsocket_epoll_check. */
#define TSOCKET_WAIT_READ 1
#define TSOCKET_WAIT_WRITE 2

#ifdef __cplusplus
extern "C" {
#endif

/* Nothing to set up or tear down; both return 0. */
int tsocket_init(void);
int tsocket_fini(void);

/* socket(2) of the given domain, type and protocol. */
PAL_MUST_CHECK int tsocket_open(int domain, int type, int protocol);
/* IPv4 stream socket. */
PAL_MUST_CHECK int tsocket_open_tcp(void);
/* IPv4 datagram socket. */
PAL_MUST_CHECK int tsocket_open_udp(void);
/* Local (AF_UNIX) socket of the given type (SOCK_STREAM, SOCK_DGRAM, ...). */
PAL_MUST_CHECK int tsocket_open_unix(int type);

/* close(2); closing -1 is a no-op that returns 0. */
PAL_MUST_CHECK int tsocket_close(int fd);

/* on != 0 sets O_NONBLOCK and O_ASYNC, on == 0 clears both. */
PAL_MUST_CHECK int tsocket_set_nonblock(int fd, int on);

/* SO_SNDBUF, SO_RCVBUF and SO_REUSEADDR set to value. */
PAL_MUST_CHECK int tsocket_set_sendbuff(int fd, int size);
PAL_MUST_CHECK int tsocket_set_recvbuff(int fd, int size);
PAL_MUST_CHECK int tsocket_reuse_addr(int fd, int value);

/* SO_TYPE of fd (SOCK_STREAM, SOCK_DGRAM, ...), or -1. */
PAL_MUST_CHECK int tsocket_get_type(int fd);

/* SO_ACCEPTCONN of fd: 1 for a listening socket, 0 otherwise, -1 on failure. */
PAL_MUST_CHECK int tsocket_get_acceptconn(int fd);

/* Starts connecting fd to addr: TSOCKET_CONNECTED (0) when connected at once or already
 * connected (EISCONN), TSOCKET_INPROGRESS (2) for EINPROGRESS or EALREADY, else -1. */
PAL_MUST_CHECK int tsocket_start_connect(int fd, const struct sockaddr* addr, int addrlen);

/* Waits up to timeout_ms for a started connect to finish: 0 when it succeeded, TSOCKET_TIMEOUT
 * (1) on timeout, -1 when it failed (errno from SO_ERROR) or the wait failed. */
PAL_MUST_CHECK int tsocket_check_connect(int fd, int timeout_ms);

/* Connects fd to addr within timeout_ms: 0 when connected, else -1 (errno ETIMEDOUT when the
 * time ran out). The descriptor is expected to be non-blocking for the timeout to apply. */
PAL_MUST_CHECK int tsocket_connect(int fd, const struct sockaddr* addr, int addrlen,
                                   int timeout_ms);

/* bind(2) to addr, then listen(2) with backlog. */
PAL_MUST_CHECK int tsocket_listen(int fd, const struct sockaddr* addr, int addrlen, int backlog);

/* accept(2); addr and addrlen may be null. */
PAL_MUST_CHECK int tsocket_accept(int fd, struct sockaddr* addr, socklen_t* addrlen);

/* One send(2) / recv(2): bytes moved, or -1. */
PAL_MUST_CHECK int tsocket_send(int fd, const char* buf, int len);
PAL_MUST_CHECK int tsocket_recv(int fd, char* buf, int len);

/* Sends all len bytes. timeout_ms 0: one plain send, its result returned. -1: waits for
 * writability in steps of 0.5 s without limit. Otherwise each wait lasts up to timeout_ms and a
 * wait that times out returns the bytes sent so far. Results: len when everything went out;
 * the count sent so far on timeout; TSOCKET_ERR_IO (-2) when a send fails (other than
 * EAGAIN, which sleeps 20 ms and retries); when a send moves 0 bytes, TSOCKET_ERR_CLOSED (-3)
 * if nothing was sent yet, else the count. len < 1 returns 0. */
PAL_MUST_CHECK int tsocket_sendall(int fd, const char* buf, int len, int timeout_ms);

/* Receives exactly len bytes under the same rules as tsocket_sendall, waiting for
 * readability; a receive of 0 bytes (peer closed) ends it. */
PAL_MUST_CHECK int tsocket_recvall(int fd, char* buf, int len, int timeout_ms);

/* Waits up to timeout_ms (-1: no limit) with epoll for the TSOCKET_WAIT_* events on fd:
 * 1 when ready (an error or hang-up counts as ready), 0 on timeout, -1 on failure. */
PAL_MUST_CHECK int tsocket_epoll_check(int fd, int events, int timeout_ms);

/* Dissolves the association of a connected datagram socket by connecting it to an all-zero
 * address of the family's size (AF_INET or AF_INET6). */
PAL_MUST_CHECK int tsocket_disconnect_udp(int fd, int family);

#ifdef __cplusplus
}
#endif

#endif /* PAL_TSOCKET_H */
