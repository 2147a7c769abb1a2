#include "pal/tsocket.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "pal_test_util.h"

// Fault injection: the library's calls to send() land here. By default the call goes through;
// a test can make it report 0 bytes or EAGAIN, which real loopback sockets do not do on demand.
namespace {
enum SendMode { kSendReal, kSendZeroAfterFirst, kSendAgain, kSendAgainTwice };
std::atomic<int> g_send_mode{kSendReal};
std::atomic<int> g_send_calls{0};
}  // namespace

extern "C" ssize_t send(int fd, const void* buf, size_t len, int flags) noexcept {
  int call = g_send_calls++;
  switch (g_send_mode.load()) {
    case kSendZeroAfterFirst:
      if (call > 0) return 0;
      return sendto(fd, buf, len < 2 ? len : 2, flags, nullptr, 0);
    case kSendAgain:
      errno = EAGAIN;
      return -1;
    case kSendAgainTwice:
      if (call < 2) {
        errno = EAGAIN;
        return -1;
      }
      break;
    default:
      break;
  }
  return sendto(fd, buf, len, flags, nullptr, 0);
}

namespace {

void UseSend(SendMode mode) {
  g_send_mode = mode;
  g_send_calls = 0;
}

struct sockaddr_in Loopback(int port) {
  struct sockaddr_in sin;
  memset(&sin, 0, sizeof(sin));
  sin.sin_family = AF_INET;
  sin.sin_port = htons(static_cast<uint16_t>(port));
  sin.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return sin;
}

const struct sockaddr* Sa(const struct sockaddr_in& sin) {
  return reinterpret_cast<const struct sockaddr*>(&sin);
}

// A listener on an ephemeral loopback port; *addr receives its address.
int Listen(int backlog, struct sockaddr_in* addr) {
  int fd = tsocket_open_tcp();
  *addr = Loopback(0);
  if (tsocket_listen(fd, Sa(*addr), sizeof(*addr), backlog) != 0) return -1;
  socklen_t len = sizeof(*addr);
  getsockname(fd, reinterpret_cast<struct sockaddr*>(addr), &len);
  return fd;
}

// A connected, non-blocking client socket and the accepted server side.
// With small buffers the path fills up after a few kilobytes.
struct Pair {
  int lfd = -1, cfd = -1, sfd = -1;
  explicit Pair(bool small = false) {
    struct sockaddr_in addr;
    lfd = tsocket_open_tcp();
    if (small) tsocket_set_recvbuff(lfd, 4096);  // inherited by the accepted socket
    addr = Loopback(0);
    socklen_t alen = sizeof(addr);
    if (tsocket_listen(lfd, Sa(addr), sizeof(addr), 8) != 0 ||
        getsockname(lfd, reinterpret_cast<struct sockaddr*>(&addr), &alen) != 0) {
      return;
    }
    cfd = tsocket_open_tcp();
    if (small) tsocket_set_sendbuff(cfd, 4096);
    tsocket_set_nonblock(cfd, 1);
    if (tsocket_connect(cfd, Sa(addr), sizeof(addr), 2000) == 0) sfd = tsocket_accept(lfd, nullptr, nullptr);
  }
  ~Pair() {
    tsocket_close(sfd);
    tsocket_close(cfd);
    tsocket_close(lfd);
  }
};

// Raises the descriptor limit so a socket can be moved above 1024 (the epoll path).
bool AllowHighFds() {
  struct rlimit rl;
  if (getrlimit(RLIMIT_NOFILE, &rl) != 0 || rl.rlim_max < 2048) return false;
  if (rl.rlim_cur < 2048) {
    rl.rlim_cur = 2048;
    if (setrlimit(RLIMIT_NOFILE, &rl) != 0) return false;
  }
  return true;
}

int MoveHigh(int fd, int target) {
  int high = dup2(fd, target);
  close(fd);
  return high;
}

TEST(TsocketConnect, ConnectsAndRefuses) {
  struct sockaddr_in addr;
  int lfd = Listen(8, &addr);
  ASSERT_GE(lfd, 0);
  int fd = tsocket_open_tcp();
  ASSERT_EQ(tsocket_set_nonblock(fd, 1), 0);
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 1000), 0);
  EXPECT_EQ(tsocket_start_connect(fd, Sa(addr), sizeof(addr)), TSOCKET_CONNECTED);  // EISCONN
  tsocket_close(fd);
  tsocket_close(lfd);

  fd = tsocket_open_tcp();
  tsocket_set_nonblock(fd, 1);
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 1000), -1);  // nobody listens now
  EXPECT_EQ(errno, ECONNREFUSED);
  tsocket_close(fd);
}

// A listener with backlog 0 whose queue is full drops further SYNs, so a connect stays
// pending. Returns such a pending socket, or -1.
int PendingConnect(int lfd, const struct sockaddr_in& addr, std::vector<int>* held) {
  for (int i = 0; i < 32; ++i) {
    int fd = tsocket_open_tcp();
    tsocket_set_nonblock(fd, 1);
    int r = tsocket_start_connect(fd, Sa(addr), sizeof(addr));
    if (r == TSOCKET_INPROGRESS && tsocket_check_connect(fd, 200) == TSOCKET_TIMEOUT) return fd;
    held->push_back(fd);
  }
  (void)lfd;
  return -1;
}

TEST(TsocketConnect, TimesOutBelowAndAbove1024) {
  struct sockaddr_in addr;
  int lfd = Listen(0, &addr);
  std::vector<int> held;
  int fd = PendingConnect(lfd, addr, &held);
  ASSERT_GE(fd, 0);
  EXPECT_EQ(tsocket_check_connect(fd, 50), TSOCKET_TIMEOUT);
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 50), -1);  // EALREADY, then timeout
  EXPECT_EQ(errno, ETIMEDOUT);
  if (AllowHighFds()) {
    int high = MoveHigh(fd, 1500);
    ASSERT_EQ(high, 1500);
    EXPECT_EQ(tsocket_check_connect(high, 50), TSOCKET_TIMEOUT);
    fd = high;
  }
  tsocket_close(fd);
  for (int h : held) tsocket_close(h);
  tsocket_close(lfd);
}

TEST(TsocketConnect, EpollPathConnects) {
  if (!AllowHighFds()) GTEST_SKIP() << "descriptor limit cannot reach 2048";
  struct sockaddr_in addr;
  int lfd = Listen(8, &addr);
  int fd = MoveHigh(tsocket_open_tcp(), 1600);
  ASSERT_EQ(fd, 1600);
  tsocket_set_nonblock(fd, 1);
  EXPECT_EQ(tsocket_connect(fd, Sa(addr), sizeof(addr), 1000), 0);
  int sfd = tsocket_accept(lfd, nullptr, nullptr);
  EXPECT_EQ(tsocket_sendall(fd, "abc", 3, 1000), 3);
  char buf[4] = {};
  EXPECT_EQ(tsocket_recvall(sfd, buf, 3, 1000), 3);
  EXPECT_EQ(tsocket_epoll_check(sfd, TSOCKET_WAIT_READ, 10), 0);
  EXPECT_EQ(tsocket_epoll_check(-1, TSOCKET_WAIT_READ, 10), -1);
  tsocket_close(sfd);
  tsocket_close(fd);
  tsocket_close(lfd);
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
    while (static_cast<int>(got.size()) < len) {
      int n = tsocket_recv(p.sfd, chunk, sizeof(chunk));
      if (n <= 0) break;
      got.insert(got.end(), chunk, chunk + n);
    }
  });
  EXPECT_EQ(tsocket_sendall(p.cfd, data.data() + sent, len - sent, -1), len - sent);
  reader.join();
  EXPECT_TRUE(got == data);
}

TEST(TsocketSendall, ErrorsAndZeroSends) {
  pal_test::TempDir dir;
  int file = open(dir.file("f").c_str(), O_CREAT | O_RDWR, 0600);
  EXPECT_EQ(tsocket_sendall(file, "abc", 3, 100), TSOCKET_ERR_IO);  // not a socket
  close(file);

  Pair p;
  ASSERT_GE(p.sfd, 0);
  UseSend(kSendZeroAfterFirst);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abcdef", 6, 100), 2);
  g_send_calls = 1;  // every send now moves 0 bytes
  EXPECT_EQ(tsocket_sendall(p.cfd, "abcdef", 6, 100), TSOCKET_ERR_CLOSED);
  UseSend(kSendAgainTwice);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abc", 3, 100), 3);  // EAGAIN is retried
  EXPECT_EQ(g_send_calls, 3);
  UseSend(kSendReal);

  struct linger lg = {1, 0};
  setsockopt(p.sfd, SOL_SOCKET, SO_LINGER, &lg, sizeof(lg));
  tsocket_close(p.sfd);  // reset the connection
  p.sfd = -1;
  usleep(50000);
  EXPECT_EQ(tsocket_sendall(p.cfd, "abc", 3, 100), TSOCKET_ERR_IO);
}

TEST(TsocketSendall, AgainCountsAgainstTimeoutAbove1024) {
  if (!AllowHighFds()) GTEST_SKIP() << "descriptor limit cannot reach 2048";
  Pair p;
  ASSERT_GE(p.sfd, 0);
  int high = dup2(p.cfd, 1700);
  ASSERT_EQ(high, 1700);
  UseSend(kSendAgain);
  EXPECT_EQ(tsocket_sendall(high, "abc", 3, 100), 0);
  int calls = g_send_calls;
  UseSend(kSendReal);
  EXPECT_GE(calls, 4);
  EXPECT_LE(calls, 6);
  close(high);
}

TEST(TsocketRecvall, CountTimeoutAndClosed) {
  Pair p;
  ASSERT_GE(p.sfd, 0);
  char buf[16] = {};
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, sizeof(buf), 50), 0);  // nothing arrives
  ASSERT_EQ(tsocket_send(p.sfd, "0123456789", 10), 10);
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, 4, 1000), 4);
  tsocket_close(p.sfd);
  p.sfd = -1;
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, sizeof(buf), 1000), 6);
  EXPECT_EQ(std::string(buf, 6), "456789");
  EXPECT_EQ(tsocket_recvall(p.cfd, buf, sizeof(buf), 1000), TSOCKET_ERR_CLOSED);
}

TEST(TsocketOptions, FlagsBuffersAndTypes) {
  EXPECT_EQ(tsocket_init(), 0);
  EXPECT_EQ(tsocket_fini(), 0);
  EXPECT_EQ(tsocket_close(-1), 0);
  int fd = tsocket_open_udp();
  ASSERT_GE(fd, 0);
  EXPECT_EQ(tsocket_set_nonblock(fd, 1), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK | O_ASYNC);
  EXPECT_EQ(tsocket_set_nonblock(fd, 0), 0);
  EXPECT_EQ(fcntl(fd, F_GETFL) & (O_NONBLOCK | O_ASYNC), 0);
  EXPECT_EQ(tsocket_set_sendbuff(fd, 65536), 0);
  EXPECT_EQ(tsocket_set_recvbuff(fd, 65536), 0);
  EXPECT_EQ(tsocket_reuse_addr(fd, 1), 0);
  int v = 0;
  socklen_t len = sizeof(v);
  getsockopt(fd, SOL_SOCKET, SO_SNDBUF, &v, &len);
  EXPECT_GE(v, 65536);
  EXPECT_EQ(tsocket_get_type(fd), SOCK_DGRAM);
  EXPECT_EQ(tsocket_get_acceptconn(fd), 0);
  tsocket_close(fd);
  EXPECT_EQ(tsocket_get_type(fd), -1);
  EXPECT_EQ(tsocket_set_nonblock(fd, 1), -1);
  int ufd = tsocket_open_unix(SOCK_DGRAM);
  EXPECT_EQ(tsocket_get_type(ufd), SOCK_DGRAM);
  tsocket_close(ufd);
}

TEST(TsocketDisconnectUdp, DissolvesTheAssociation) {
  int peer = tsocket_open_udp();
  struct sockaddr_in addr = Loopback(0);
  ASSERT_EQ(bind(peer, Sa(addr), sizeof(addr)), 0);
  socklen_t alen = sizeof(addr);
  getsockname(peer, reinterpret_cast<struct sockaddr*>(&addr), &alen);
  int fd = tsocket_open_udp();
  ASSERT_EQ(tsocket_start_connect(fd, Sa(addr), sizeof(addr)), TSOCKET_CONNECTED);
  EXPECT_EQ(tsocket_send(fd, "a", 1), 1);
  EXPECT_EQ(tsocket_disconnect_udp(fd, AF_INET), 0);
  EXPECT_EQ(tsocket_send(fd, "a", 1), -1);
  EXPECT_EQ(errno, EDESTADDRREQ);
  EXPECT_EQ(tsocket_disconnect_udp(fd, AF_UNIX), -1);
  tsocket_close(fd);
  tsocket_close(peer);
}

}  // namespace
