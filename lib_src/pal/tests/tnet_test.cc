// Endpoint strings: parsing and its limits, the tables, addresses and ports, and opening,
// connecting and listening on each kind of endpoint.
#include "pal/tnet.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "pal/tsocket.h"
#include "zq_test/support.h"

namespace {

int LocalPort(int fd) {
  struct sockaddr_in sin;
  socklen_t len = sizeof(sin);
  if (getsockname(fd, reinterpret_cast<struct sockaddr*>(&sin), &len) != 0) return -1;
  return ntohs(sin.sin_port);
}

int IntOpt(int fd, int name) {
  int v = -1;
  socklen_t len = sizeof(v);
  getsockopt(fd, SOL_SOCKET, name, &v, &len);
  return v;
}

TEST(TnetGetOpt, ParsesAndRefusesWhatDoesNotFit) {
  std::string many = "h?a";
  for (int i = 1; i < TNET_MAX_ARGS; ++i) many += "&a";
  const struct {
    std::string text;
    int ret;
    const char* proto = nullptr;
    const char* addr = nullptr;
    const char* args = nullptr;  // "name=value;" for each argument
  } cases[] = {
      {"10.0.0.1:80", 0, "tcp", "10.0.0.1:80", ""},
      {"udp://host:514?a=1&b", 0, "udp", "host:514", "a=1;b=;"},
      {"unix:///tmp/s?x=1&&y=2", 0, "unix", "/tmp/s", "x=1;"},  // an empty item ends the list
      {"tcp://h:1?k=a=b", 0, "tcp", "h:1", "k=a=b;"},
      {"://h:1", -1},
      {std::string(15, 'p') + "://h", 0, "ppppppppppppppp", "h", ""},
      {std::string(16, 'p') + "://h", -1},
      {"udp://" + std::string(127, 'a') + "?x", 0, "udp", nullptr, "x=;"},
      {std::string(128, 'a'), -1},
      {"h?" + std::string(31, 'n') + "=v", 0, "tcp", "h", nullptr},
      {"h?" + std::string(32, 'n'), -1},
      {"h?n=" + std::string(255, 'v'), 0, "tcp", "h", nullptr},
      {"h?n=" + std::string(256, 'v'), -1},
      {many, 0, "tcp", "h", nullptr},
      {many + "&a", -1},
  };
  for (const auto& c : cases) {
    TNETOPT opt;
    ASSERT_EQ(tnet_get_opt(&opt, c.text.c_str()), c.ret) << c.text;
    if (c.ret != 0) continue;
    EXPECT_STREQ(opt.szProto, c.proto) << c.text;
    EXPECT_STREQ(opt.szAddr, c.addr != nullptr ? c.addr : opt.szAddr) << c.text;
    std::string args;
    for (int i = 0; i < opt.iArgs; ++i) {
      args += std::string(opt.args[i].szName) + "=" + opt.args[i].szValue + ";";
    }
    EXPECT_EQ(args, c.args != nullptr ? c.args : args) << c.text;
  }
  TNETOPT opt;
  ASSERT_EQ(tnet_get_opt(&opt, "udp://h?a=1"), 0);
  EXPECT_STREQ(tnet_find_arg(&opt, "a"), "1");
  EXPECT_EQ(tnet_find_arg(&opt, "A"), nullptr);  // exact case
  ASSERT_EQ(tnet_get_arg(&opt, "p=q&r"), 0);     // replaces the arguments
  EXPECT_EQ(opt.iArgs, 2);
  EXPECT_EQ(tnet_find_arg(&opt, "a"), nullptr);
  EXPECT_EQ(tnet_get_opt(nullptr, "h"), -1);
  EXPECT_EQ(tnet_find_proto("TCP"), nullptr);  // protocol and type names are exact-case
  EXPECT_EQ(tnet_find_type("dgram")->iType, SOCK_DGRAM);
  EXPECT_EQ(tnet_find_type("Stream"), nullptr);
}

TEST(TnetAddr, HostsPortsAndPaths) {
  struct sockaddr_in sin;
  const struct {
    const char* text;
    int ret;
    const char* ip = nullptr;
    int port = 0;
  } cases[] = {
      {"127.0.0.2:8080", 0, "127.0.0.2", 8080},
      {"10.1.2.3", 0, "10.1.2.3", 0},
      {"1.2.3.4:0", 0, "1.2.3.4", 0},
      {"1.2.3.4:65535", 0, "1.2.3.4", 65535},
      {"1.2.3.4:00080", 0, "1.2.3.4", 80},
      {"1.2.3.4:65536", -1},
      {"1.2.3.4:99999", -1},  // not wrapped into 34463
      {"1.2.3.4:-1", -1},     // not 65535
      {"1.2.3.4:80abc", -1},  // not 80
      {"1.2.3.4:", -1},
      {"1.2.3.4:+80", -1},
      {"1.2.3.4:4294967376", -1},
      {"1.2.3.4.5:1", -1},
      {":80", -1},
  };
  for (const auto& c : cases) {
    ASSERT_EQ(tnet_str2inet(c.text, &sin), c.ret) << c.text;
    if (c.ret != 0) continue;
    EXPECT_EQ(sin.sin_family, AF_INET);
    EXPECT_EQ(sin.sin_addr.s_addr, inet_addr(c.ip)) << c.text;
    EXPECT_EQ(sin.sin_port, htons(static_cast<uint16_t>(c.port))) << c.text;
  }
  ASSERT_EQ(tnet_str2inet("localhost:7", &sin), 0);
  EXPECT_EQ(ntohl(sin.sin_addr.s_addr) >> 24, 127u);
  EXPECT_EQ(tnet_str2inet((std::string(128, '1') + ":1").c_str(), &sin), -1);
  for (const char* s : {"udp://127.0.0.1:99999", "udp://127.0.0.1:-1", "tcp://127.0.0.1:80abc"}) {
    EXPECT_EQ(tnet_connect(s, 100), -1) << s;
  }
  EXPECT_EQ(tnet_listen("udp://127.0.0.1:70000", 1), -1);

  struct sockaddr_un sun;
  ASSERT_EQ(tnet_str2unix(std::string(107, 'u').c_str(), &sun), 0);
  EXPECT_EQ(sun.sun_family, AF_UNIX);
  EXPECT_EQ(strlen(sun.sun_path), 107u);
  EXPECT_EQ(tnet_str2unix(std::string(108, 'u').c_str(), &sun), -1);
  EXPECT_EQ(tnet_is_number("10.0.0.1"), 1);
  EXPECT_EQ(tnet_is_number("10.0.0.1:80") + tnet_is_number("host") + tnet_is_number(""), 0);
}

TEST(TnetOpen, SocketKindsAndWhatCannotBeOpened) {
  const struct {
    const char* text;
    int type;
  } kinds[] = {{"tcp://127.0.0.1:1", SOCK_STREAM},
               {"udp://127.0.0.1:1", SOCK_DGRAM},
               {"unix:///x?type=dgram", SOCK_STREAM},  // the type argument changes nothing
               {"unix:///x?type=bogus", SOCK_STREAM}};
  for (const auto& k : kinds) {
    const int fd = tnet_open(k.text);
    EXPECT_EQ(tsocket_get_type(fd), k.type) << k.text;
    EXPECT_EQ(tnet_close(fd), 0) << k.text;
  }
  for (const char* s : {"pipe://x", "file://x", "shm://x", "nope://x"}) {
    EXPECT_EQ(tnet_open(s), -1) << s;
    EXPECT_EQ(tnet_listen(s, 1), -1) << s;
    EXPECT_EQ(tnet_connect(s, 100), -1) << s;
  }
  EXPECT_EQ(tnet_encode("a", 1, nullptr, nullptr) + tnet_decode("a", 1, nullptr, nullptr), 0);
}

TEST(TnetConnect, TcpThttpAndUdpRoundTrips) {
  int lfd = tnet_listen("tcp://127.0.0.1:0?reuse=1", 8);
  ASSERT_GE(lfd, 0);
  EXPECT_EQ(IntOpt(lfd, SO_REUSEADDR), 1);
  EXPECT_EQ(tsocket_get_acceptconn(lfd), 1);
  const std::string port = std::to_string(LocalPort(lfd));
  int cfd = tnet_connect(("127.0.0.1:" + port).c_str(), 1000);  // no protocol: tcp
  ASSERT_GE(cfd, 0);
  EXPECT_EQ(fcntl(cfd, F_GETFL) & (O_NONBLOCK | O_ASYNC), O_NONBLOCK | O_ASYNC);
  int afd = tnet_accept(lfd, nullptr, nullptr);
  ASSERT_GE(afd, 0);
  EXPECT_EQ(tnet_sendall(cfd, "hello", 5, 1000), 5);
  char buf[8] = {};
  EXPECT_EQ(tnet_recvall(afd, buf, 5, 1000), 5);
  EXPECT_STREQ(buf, "hello");
  for (int fd : {afd, cfd, lfd}) EXPECT_EQ(tnet_close(fd), 0);
  EXPECT_EQ(tnet_connect(("tcp://127.0.0.1:" + port).c_str(), 1000), -1);

  lfd = tnet_listen("thttp://127.0.0.1:0", 8);  // thttp listens like tcp but cannot connect
  ASSERT_GE(lfd, 0);
  EXPECT_EQ(tsocket_get_acceptconn(lfd), 1);
  EXPECT_EQ(tnet_connect(("thttp://127.0.0.1:" + std::to_string(LocalPort(lfd))).c_str(), 1000),
            -1);
  EXPECT_EQ(tnet_close(lfd), 0);

  lfd = tnet_listen("udp://127.0.0.1:0", 8);  // udp only binds
  ASSERT_GE(lfd, 0);
  EXPECT_EQ(tsocket_get_acceptconn(lfd), 0);
  cfd = tnet_connect(("udp://127.0.0.1:" + std::to_string(LocalPort(lfd))).c_str(), 100);
  ASSERT_GE(cfd, 0);
  EXPECT_EQ(tnet_send(cfd, "dgram", 5), 5);
  memset(buf, 0, sizeof(buf));
  EXPECT_EQ(tnet_recvall(lfd, buf, sizeof(buf), 1000), 5);  // one datagram
  EXPECT_STREQ(buf, "dgram");
  EXPECT_EQ(tnet_close(cfd) + tnet_close(lfd), 0);
}

TEST(TnetConnect, UnixReplacesStaleFile) {
  zq_test::TempDir dir;
  const std::string path = dir.file("sock");
  ASSERT_TRUE(zq_test::WriteFile(path, "stale"));
  const int lfd = tnet_listen(("unix://" + path).c_str(), 4);
  ASSERT_GE(lfd, 0);
  const int cfd = tnet_connect(("unix://" + path + "?type=seqpacket").c_str(), 1000);
  ASSERT_GE(cfd, 0);
  const int afd = tnet_accept(lfd, nullptr, nullptr);
  ASSERT_GE(afd, 0);
  EXPECT_EQ(tnet_write(afd, "ok", 2), 2);
  char buf[4] = {};
  EXPECT_EQ(tnet_read(cfd, buf, 2), 2);
  EXPECT_STREQ(buf, "ok");
  for (int fd : {afd, cfd, lfd}) EXPECT_EQ(tnet_close(fd), 0);
  EXPECT_EQ(tnet_listen(("unix://" + dir.path() + "/" + std::string(100, 's')).c_str(), 1), -1);
  EXPECT_EQ(tnet_connect(("unix://" + dir.file("none")).c_str(), 100), -1);
}

}  // namespace
