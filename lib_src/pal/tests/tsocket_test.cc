#include "pal/tsocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

// Fault injection: the library's calls to send() land here. By default the call goes through;
// a test can make it report 0 bytes or EAGAIN, which real loopback sockets do not do on demand.
// EAGAIN stops after 50 calls so that a loop which never gives up still ends.
namespace {
enum SendMode { kSendReal, kSendZeroAfterFirst, kSendAgain, kSendAgainTwice };
std::atomic<int> g_send_mode{kSendReal};
std::atomic<int> g_send_calls{0};
}  // namespace

// Declared exactly as <sys/socket.h> declares it (a cancellation point, so not noexcept).
extern "C" ssize_t send(int fd, const void* buf, size_t len, int flags) {
  int call = g_send_calls++;
  int mode = g_send_mode;
  if (mode == kSendZeroAfterFirst) {
    if (call > 0) return 0;
    len = len < 2 ? len : 2;
  } else if ((mode == kSendAgain && call < 50) || (mode == kSendAgainTwice && call < 2)) {
    errno = EAGAIN;
    return -1;
  }
  return sendto(fd, buf, len, flags, nullptr, 0);
}

namespace {

void UseSend(SendMode mode) {
  g_send_mode = mode;
  g_send_calls = 0;
}

const struct sockaddr* Sa(const struct sockaddr_in& sin) {
  return reinterpret_cast<const struct sockaddr*>(&sin);
}

// A socket closed (and the close checked) at scope end.
struct Sock {
  int fd;
  explicit Sock(int f = -1) : fd(f) {}
  ~Sock() {
    if (fd >= 0) {
      EXPECT_EQ(0, tsocket_close(fd));
    }
  }
  Sock(const Sock&) = delete;
  Sock& operator=(const Sock&) = delete;
  operator int() const { return fd; }  // NOLINT: used where a descriptor is expected
};

// A non-blocking TCP socket.
int OpenNonblocking() {
  int fd = tsocket_open_tcp();
  EXPECT_EQ(0, tsocket_set_nonblock(fd, 1));
  return fd;
}

// A loopback listener on an ephemeral port; *addr receives its address.
int Listen(int backlog, struct sockaddr_in* addr, int rcvbuf = 0) {
  int fd = tsocket_open_tcp();
  memset(addr, 0, sizeof(*addr));
  addr->sin_family = AF_INET;
  addr->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(0, rcvbuf > 0 ? tsocket_set_recvbuff(fd, rcvbuf) : 0);  // inherited by accepted ones
  socklen_t len = sizeof(*addr);
  EXPECT_EQ(0, tsocket_listen(fd, Sa(*addr), sizeof(*addr), backlog));
  EXPECT_EQ(0, getsockname(fd, reinterpret_cast<struct sockaddr*>(addr), &len));
  return fd;
}

// A connected, non-blocking client socket and the accepted server side. With small buffers
// the path between them fills up after a few kilobytes.
struct Pair {
  struct sockaddr_in addr;
  Sock lfd, cfd, sfd;
  explicit Pair(bool small = false)
      : lfd(Listen(8, &addr, small ? 4096 : 0)), cfd(OpenNonblocking()) {
    EXPECT_EQ(0, small ? tsocket_set_sendbuff(cfd, 4096) : 0);
    if (tsocket_connect(cfd, Sa(addr), sizeof(addr), 2000) == 0) {
      sfd.fd = tsocket_accept(lfd, nullptr, nullptr);
    }
  }
};

// Raises the descriptor limit so a socket can live above 1024 (the epoll path).
bool AllowHighFds() {
  struct rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) != 0 || rl.rlim_max < 2048) return false;
  rl.rlim_cur = rl.rlim_cur < 2048 ? 2048 : rl.rlim_cur;
  return setrlimit(RLIMIT_NOFILE, &rl) == 0;
}

TEST(TsocketConnect, ConnectsAndRefuses) {
  struct sockaddr_in addr;
  {
    Sock lfd(Listen(8, &addr)), fd(OpenNonblocking());
    EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 1000), 0);
    for (int again = 0; again < 2; ++again) {  // the second call meets EISCONN
      EXPECT_EQ(tsocket_start_connect(fd, Sa(addr), sizeof(addr)), TSOCKET_CONNECTED) << again;
    }
  }
  Sock fd(OpenNonblocking());
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 1000), -1);  // nobody listens now
  EXPECT_EQ(errno, ECONNREFUSED);
}

// A listener with backlog 0 and a full queue drops further SYNs, so a connect stays pending;
// above descriptor 1024 the wait takes the epoll path.
TEST(TsocketConnect, TimesOutBelowAndAbove1024) {
  struct sockaddr_in addr;
  Sock lfd(Listen(0, &addr));
  std::vector<Sock> held(32);
  int fd = -1;
  for (int i = 0; i < 32 && fd < 0; ++i) {
    held[i].fd = OpenNonblocking();
    if (tsocket_start_connect(held[i], Sa(addr), sizeof(addr)) == TSOCKET_INPROGRESS &&
        tsocket_check_connect(held[i], 200) == TSOCKET_TIMEOUT) {
      fd = held[i];
    }
  }
  ASSERT_GE(fd, 0);
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 50), -1);  // EALREADY, then timeout
  EXPECT_EQ(errno, ETIMEDOUT);
  if (AllowHighFds()) {
    ASSERT_EQ(dup2(fd, 1500), 1500);
    EXPECT_EQ(tsocket_check_connect(1500, 50), TSOCKET_TIMEOUT);
    close(1500);
  }
}

TEST(TsocketConnect, EpollPathConnectsAndTransfers) {
  if (!AllowHighFds()) GTEST_SKIP() << "descriptor limit cannot reach 2048";
  struct sockaddr_in addr;
  Sock lfd(Listen(8, &addr)), tmp(tsocket_open_tcp());
  Sock fd(dup2(tmp, 1600));
  ASSERT_EQ(fd, 1600);
  EXPECT_EQ(0, tsocket_set_nonblock(fd, 1));
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 1000), 0);
  Sock sfd(tsocket_accept(lfd, nullptr, nullptr));
  EXPECT_EQ(tsocket_sendall(fd, "abc", 3, 1000), 3);
  char buf[4] = {};
  EXPECT_EQ(tsocket_epoll_check(sfd, TSOCKET_WAIT_READ, 1000), 1);
  EXPECT_EQ(tsocket_recvall(sfd, buf, 3, 1000), 3);
  EXPECT_EQ(tsocket_epoll_check(sfd, TSOCKET_WAIT_READ, 10), 0);
  EXPECT_EQ(tsocket_epoll_check(-1, TSOCKET_WAIT_READ, 10), -1);

  ASSERT_EQ(dup2(sfd, 1700), 1700);  // EAGAIN counts against the timeout
  UseSend(kSendAgain);
  EXPECT_EQ(tsocket_sendall(1700, "abc", 3, 100), 0);  // 20 ms per EAGAIN used up the 100 ms
  const int calls = g_send_calls;
  UseSend(kSendReal);
  EXPECT_GE(calls, 4);
  EXPECT_LE(calls, 6);
  close(1700);
}

TEST(TsocketSendall, TimeoutRules) {
  Pair p(true);
  ASSERT_GE(p.sfd, 0);
  EXPECT_EQ(tsocket_sendall(p.cfd, "x", 0, 100), 0);
  std::vector<char> data(128 << 10);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<char>(i * 31);
  int len = static_cast<int>(data.size());
  int sent = tsocket_sendall(p.cfd, data.data(), len, 100);  // the path holds far less
  EXPECT_GT(sent, 0);
  EXPECT_LT(sent, len);
  EXPECT_EQ(tsocket_sendall(p.cfd, data.data(), 10, 50), 0);  // still full: nothing sent

  UseSend(kSendAgain);
  EXPECT_EQ(tsocket_sendall(p.cfd, data.data(), 10, 0), -1);  // timeout 0: one plain send
  EXPECT_EQ(errno, EAGAIN);
  EXPECT_EQ(g_send_calls, 1);
  UseSend(kSendReal);

  std::vector<char> got;
  std::thread reader([&] {
    char chunk[4096];
    int n;
    while (static_cast<int>(got.size()) < len && (n = tsocket_recv(p.sfd, chunk, 4096)) > 0) {
      got.insert(got.end(), chunk, chunk + n);
    }
  });
  EXPECT_EQ(tsocket_sendall(p.cfd, data.data() + sent, len - sent, -1), len - sent);
  reader.join();
  EXPECT_TRUE(got == data);
}

TEST(TsocketSendall, ErrorsAndZeroSends) {
  int fds[2];
  ASSERT_EQ(pipe(fds), 0);
  EXPECT_EQ(tsocket_sendall(fds[1], "abc", 3, 100), TSOCKET_ERR_IO);  // not a socket
  close(fds[0]);
  close(fds[1]);

  Pair p;
  ASSERT_GE(p.sfd, 0);
  UseSend(kSendZeroAfterFirst);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abcdef", 6, 100), 2);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abcdef", 6, 100), TSOCKET_ERR_CLOSED);  // 0 from the start
  UseSend(kSendAgainTwice);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abc", 3, 100), 3);  // EAGAIN is retried
  EXPECT_EQ(g_send_calls, 3);
  UseSend(kSendReal);

  struct linger lg = {1, 0};
  setsockopt(p.sfd, SOL_SOCKET, SO_LINGER, &lg, sizeof(lg));
  EXPECT_EQ(0, tsocket_close(p.sfd));  // the peer resets the connection
  p.sfd.fd = -1;
  usleep(50000);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abc", 3, 100), TSOCKET_ERR_IO);
}

TEST(TsocketRecvall, CountTimeoutAndClosed) {
  Pair p;
  ASSERT_GE(p.sfd, 0);
  char buf[16] = {};
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, sizeof(buf), 50), 0);  // nothing arrives
  ASSERT_EQ(tsocket_send(p.sfd, "0123456789", 10), 10);
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, 4, 1000), 4);
  EXPECT_EQ(0, tsocket_close(p.sfd));
  p.sfd.fd = -1;
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, sizeof(buf), 1000), 6);
  EXPECT_EQ(memcmp(buf, "456789", 6), 0);
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, sizeof(buf), 1000), TSOCKET_ERR_CLOSED);
}

TEST(TsocketOptions, FlagsBuffersAndTypes) {
  EXPECT_EQ(tsocket_init() + tsocket_fini() + tsocket_close(-1), 0);
  int fd = tsocket_open_udp();
  EXPECT_EQ(tsocket_set_nonblock(fd, 1), 0);  // O_ASYNC travels with O_NONBLOCK
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK | O_ASYNC);
  EXPECT_EQ(tsocket_set_nonblock(fd, 0), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), 0);
  EXPECT_EQ(tsocket_set_sendbuff(fd, 65536) + tsocket_set_recvbuff(fd, 65536), 0);
  EXPECT_EQ(tsocket_reuse_addr(fd, 1), 0);
  for (int opt : {SO_SNDBUF, SO_RCVBUF, SO_REUSEADDR}) {
    int v = 0;
    socklen_t len = sizeof(v);
    getsockopt(fd, SOL_SOCKET, opt, &v, &len);
    EXPECT_GE(v, opt == SO_REUSEADDR ? 1 : 65536) << opt;
  }
  EXPECT_EQ(tsocket_get_type(fd), SOCK_DGRAM);
  EXPECT_EQ(tsocket_get_acceptconn(fd), 0);
  EXPECT_EQ(0, tsocket_close(fd));
  EXPECT_EQ(tsocket_get_type(fd), -1);
  Sock ufd(tsocket_open_unix(SOCK_SEQPACKET));
  EXPECT_EQ(tsocket_get_type(ufd), SOCK_SEQPACKET);
}

TEST(TsocketDisconnectUdp, DissolvesTheAssociation) {
  for (int family : {AF_INET, AF_INET6}) {
    struct sockaddr_storage ss;
    memset(&ss, 0, sizeof(ss));
    socklen_t alen = family == AF_INET ? sizeof(sockaddr_in) : sizeof(sockaddr_in6);
    ss.ss_family = static_cast<sa_family_t>(family);
    if (family == AF_INET) {
      reinterpret_cast<sockaddr_in*>(&ss)->sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    } else {
      reinterpret_cast<sockaddr_in6*>(&ss)->sin6_addr = in6addr_loopback;
    }
    struct sockaddr* sa = reinterpret_cast<struct sockaddr*>(&ss);
    Sock peer(tsocket_open(family, SOCK_DGRAM, 0));
    if (bind(peer, sa, alen) != 0) continue;  // no IPv6 loopback on this host
    getsockname(peer, sa, &alen);
    Sock fd(tsocket_open(family, SOCK_DGRAM, 0));
    ASSERT_EQ(tsocket_start_connect(fd, sa, static_cast<int>(alen)), TSOCKET_CONNECTED);
    EXPECT_EQ(tsocket_send(fd, "a", 1), 1);
    EXPECT_EQ(tsocket_disconnect_udp(fd, family), 0);
    EXPECT_EQ(tsocket_send(fd, "a", 1), -1);
    EXPECT_EQ(errno, EDESTADDRREQ);
    EXPECT_EQ(tsocket_disconnect_udp(fd, AF_UNIX), -1);
  }
}

}  // namespace
