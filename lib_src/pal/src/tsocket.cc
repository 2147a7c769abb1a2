// Socket primitives: non-blocking connect with a timeout, bounded send and receive loops.
#include "pal/tsocket.h"

#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/select.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

namespace {

// Step of an unlimited wait, and the pause after EAGAIN.
constexpr int kUnlimitedStepMs = 500;
constexpr int kAgainSleepMs = 20;

void sleep_ms_i(int ms) {
  struct timespec ts;
  ts.tv_sec = ms / 1000;
  ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
  while (nanosleep(&ts, &ts) != 0 && errno == EINTR) {
  }
}

// Waits for events on fd: 1 ready, 0 timeout, -1 failure. select below FD_SETSIZE (select
// cannot hold larger descriptors), epoll above.
int wait_fd_i(int fd, int events, int timeout_ms) {
  if (fd < 0) {
    errno = EBADF;
    return -1;
  }
  if (fd >= FD_SETSIZE) return tsocket_epoll_check(fd, events, timeout_ms);
  fd_set rset;
  fd_set wset;
  FD_ZERO(&rset);
  FD_ZERO(&wset);
  if (events & TSOCKET_WAIT_READ) FD_SET(fd, &rset);
  if (events & TSOCKET_WAIT_WRITE) FD_SET(fd, &wset);
  struct timeval tv;
  struct timeval* ptv = nullptr;
  if (timeout_ms >= 0) {
    tv.tv_sec = timeout_ms / 1000;
    tv.tv_usec = (timeout_ms % 1000) * 1000;
    ptv = &tv;
  }
  int n = select(fd + 1, &rset, &wset, nullptr, ptv);
  if (n < 0) return -1;
  return n > 0 ? 1 : 0;
}

// Shared loop of sendall / recvall. Returns the count, or a TSOCKET_ERR_* code.
int transfer_all_i(int fd, char* buf, int len, int timeout_ms, bool sending) {
  if (len < 1) return 0;
  if (timeout_ms == 0) {
    ssize_t n = sending ? send(fd, buf, static_cast<size_t>(len), MSG_NOSIGNAL)
                        : recv(fd, buf, static_cast<size_t>(len), 0);
    return static_cast<int>(n);
  }
  const int events = sending ? TSOCKET_WAIT_WRITE : TSOCKET_WAIT_READ;
  const bool unlimited = timeout_ms < 0;
  const bool large_fd = fd >= FD_SETSIZE;
  int budget = timeout_ms;  // what is left of the timeout on the epoll path
  int done = 0;
  for (;;) {
    int wait_ms = unlimited ? kUnlimitedStepMs : (large_fd ? budget : timeout_ms);
    int ready = wait_fd_i(fd, events, wait_ms);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return TSOCKET_ERR_IO;
    }
    if (ready == 0) {
      if (unlimited) continue;
      return done;
    }
    size_t rest = static_cast<size_t>(len - done);
    ssize_t n = sending ? send(fd, buf + done, rest, MSG_NOSIGNAL) : recv(fd, buf + done, rest, 0);
    if (n < 0) {
      if (errno == EINTR) continue;
      if (errno != EAGAIN && errno != EWOULDBLOCK) return TSOCKET_ERR_IO;
      sleep_ms_i(kAgainSleepMs);
      if (large_fd && !unlimited) {
        budget -= kAgainSleepMs;
        if (budget <= 0) return done;
      }
      continue;
    }
    if (n == 0) return done == 0 ? TSOCKET_ERR_CLOSED : done;
    done += static_cast<int>(n);
    if (done >= len) return len;
  }
}

int set_int_opt_i(int fd, int name, int value) {
  return setsockopt(fd, SOL_SOCKET, name, &value, sizeof(value));
}

int get_int_opt_i(int fd, int name) {
  int value = 0;
  socklen_t len = sizeof(value);
  if (getsockopt(fd, SOL_SOCKET, name, &value, &len) != 0) return -1;
  return value;
}

}  // namespace

extern "C" {

int tsocket_init(void) { return 0; }

int tsocket_fini(void) { return 0; }

int tsocket_open(int domain, int type, int protocol) { return socket(domain, type, protocol); }

int tsocket_open_tcp(void) { return socket(AF_INET, SOCK_STREAM, 0); }

int tsocket_open_udp(void) { return socket(AF_INET, SOCK_DGRAM, 0); }

int tsocket_open_unix(int type) { return socket(AF_UNIX, type, 0); }

int tsocket_close(int fd) {
  if (fd == -1) return 0;
  return close(fd);
}

int tsocket_set_nonblock(int fd, int on) {
  int flags = fcntl(fd, F_GETFL, 0);
  if (flags == -1) return -1;
  // O_ASYNC travels with O_NONBLOCK; callers rely on the pair being switched together.
  if (on) {
    flags |= O_NONBLOCK | O_ASYNC;
  } else {
    flags &= ~(O_NONBLOCK | O_ASYNC);
  }
  return fcntl(fd, F_SETFL, flags) == -1 ? -1 : 0;
}

int tsocket_set_sendbuff(int fd, int size) { return set_int_opt_i(fd, SO_SNDBUF, size); }

int tsocket_set_recvbuff(int fd, int size) { return set_int_opt_i(fd, SO_RCVBUF, size); }

int tsocket_reuse_addr(int fd, int value) { return set_int_opt_i(fd, SO_REUSEADDR, value); }

int tsocket_get_type(int fd) { return get_int_opt_i(fd, SO_TYPE); }

int tsocket_get_acceptconn(int fd) { return get_int_opt_i(fd, SO_ACCEPTCONN); }

int tsocket_start_connect(int fd, const struct sockaddr* addr, int addrlen) {
  if (addr == nullptr || addrlen <= 0) {
    errno = EINVAL;
    return -1;
  }
  if (connect(fd, addr, static_cast<socklen_t>(addrlen)) == 0) return TSOCKET_CONNECTED;
  if (errno == EISCONN) return TSOCKET_CONNECTED;
  if (errno == EINPROGRESS || errno == EALREADY) return TSOCKET_INPROGRESS;
  return -1;
}

int tsocket_check_connect(int fd, int timeout_ms) {
  int ready;
  do {
    ready = wait_fd_i(fd, TSOCKET_WAIT_WRITE, timeout_ms);
  } while (ready < 0 && errno == EINTR && timeout_ms < 0);
  if (ready < 0) return -1;
  if (ready == 0) return TSOCKET_TIMEOUT;
  int err = 0;
  socklen_t len = sizeof(err);
  if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &err, &len) != 0) return -1;
  if (err != 0) {
    errno = err;
    return -1;
  }
  return 0;
}

int tsocket_connect(int fd, const struct sockaddr* addr, int addrlen, int timeout_ms) {
  int ret = tsocket_start_connect(fd, addr, addrlen);
  if (ret == TSOCKET_CONNECTED) return 0;
  if (ret != TSOCKET_INPROGRESS) return -1;
  ret = tsocket_check_connect(fd, timeout_ms);
  if (ret == 0) return 0;
  if (ret == TSOCKET_TIMEOUT) errno = ETIMEDOUT;
  return -1;
}

int tsocket_listen(int fd, const struct sockaddr* addr, int addrlen, int backlog) {
  if (addr == nullptr || addrlen <= 0) {
    errno = EINVAL;
    return -1;
  }
  if (bind(fd, addr, static_cast<socklen_t>(addrlen)) != 0) return -1;
  return listen(fd, backlog);
}

int tsocket_accept(int fd, struct sockaddr* addr, socklen_t* addrlen) {
  return accept(fd, addr, addrlen);
}

int tsocket_send(int fd, const char* buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(send(fd, buf, static_cast<size_t>(len), MSG_NOSIGNAL));
}

int tsocket_recv(int fd, char* buf, int len) {
  if (len < 0 || (buf == nullptr && len > 0)) {
    errno = EINVAL;
    return -1;
  }
  return static_cast<int>(recv(fd, buf, static_cast<size_t>(len), 0));
}

int tsocket_sendall(int fd, const char* buf, int len, int timeout_ms) {
  if (len < 1) return 0;
  if (buf == nullptr) {
    errno = EINVAL;
    return TSOCKET_ERR_IO;
  }
  // The loop only reads from the buffer when sending.
  return transfer_all_i(fd, const_cast<char*>(buf), len, timeout_ms, true);
}

int tsocket_recvall(int fd, char* buf, int len, int timeout_ms) {
  if (len < 1) return 0;
  if (buf == nullptr) {
    errno = EINVAL;
    return TSOCKET_ERR_IO;
  }
  return transfer_all_i(fd, buf, len, timeout_ms, false);
}

int tsocket_epoll_check(int fd, int events, int timeout_ms) {
  int ep = epoll_create1(EPOLL_CLOEXEC);
  if (ep < 0) return -1;
  struct epoll_event ev;
  memset(&ev, 0, sizeof(ev));
  if (events & TSOCKET_WAIT_READ) ev.events |= EPOLLIN;
  if (events & TSOCKET_WAIT_WRITE) ev.events |= EPOLLOUT;
  ev.data.fd = fd;
  int ret = -1;
  if (epoll_ctl(ep, EPOLL_CTL_ADD, fd, &ev) == 0) {
    struct epoll_event out;
    int n = epoll_wait(ep, &out, 1, timeout_ms < 0 ? -1 : timeout_ms);
    ret = n < 0 ? -1 : (n > 0 ? 1 : 0);
  }
  int saved = errno;
  close(ep);
  errno = saved;
  return ret;
}

int tsocket_disconnect_udp(int fd, int family) {
  struct sockaddr_in6 zero;  // large enough for either family, all zero (AF_UNSPEC)
  memset(&zero, 0, sizeof(zero));
  socklen_t len;
  if (family == AF_INET) {
    len = sizeof(struct sockaddr_in);
  } else if (family == AF_INET6) {
    len = sizeof(struct sockaddr_in6);
  } else {
    errno = EAFNOSUPPORT;
    return -1;
  }
  return connect(fd, reinterpret_cast<struct sockaddr*>(&zero), len);
}

}  // extern "C"
