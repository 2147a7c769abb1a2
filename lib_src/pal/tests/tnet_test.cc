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

using zq_test::TempDir;

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

TEST(TnetGetOpt, ProtocolAddressAndArguments) {
  TNETOPT opt;
  ASSERT_EQ(tnet_get_opt(&opt, "10.0.0.1:80"), 0);
  EXPECT_STREQ(opt.szProto, "tcp");
  EXPECT_STREQ(opt.szAddr, "10.0.0.1:80");
  EXPECT_EQ(opt.iArgs, 0);

  ASSERT_EQ(tnet_get_opt(&opt, "udp://host:514?a=1&b"), 0);
  EXPECT_STREQ(opt.szProto, "udp");
  EXPECT_STREQ(opt.szAddr, "host:514");
  ASSERT_EQ(opt.iArgs, 2);
  EXPECT_STREQ(opt.args[0].szName, "a");
  EXPECT_STREQ(opt.args[0].szValue, "1");
  EXPECT_STREQ(opt.args[1].szName, "b");
  EXPECT_STREQ(opt.args[1].szValue, "");
  EXPECT_STREQ(tnet_find_arg(&opt, "a"), "1");
  EXPECT_EQ(tnet_find_arg(&opt, "A"), nullptr);

  ASSERT_EQ(tnet_get_opt(&opt, "unix:///tmp/s?x=1&&y=2"), 0);  // empty item ends the list
  EXPECT_STREQ(opt.szAddr, "/tmp/s");
  EXPECT_EQ(opt.iArgs, 1);
  ASSERT_EQ(tnet_get_opt(&opt, "tcp://h:1?k=a=b"), 0);
  EXPECT_STREQ(opt.args[0].szValue, "a=b");
  ASSERT_EQ(tnet_get_arg(&opt, "p=q&r"), 0);  // replaces the arguments
  EXPECT_EQ(opt.iArgs, 2);
  EXPECT_STREQ(tnet_find_arg(&opt, "p"), "q");
  EXPECT_EQ(tnet_find_arg(&opt, "k"), nullptr);
}

TEST(TnetGetOpt, FieldLimits) {
  std::string many = "h?a";
  for (int i = 1; i < TNET_MAX_ARGS; ++i) many += "&a";
  const struct {
    std::string text;
    int ret;
  } cases[] = {
      {"://h:1", -1},
      {std::string(15, 'p') + "://h", 0},
      {std::string(16, 'p') + "://h", -1},
      {"udp://" + std::string(127, 'a') + "?x", 0},
      {std::string(128, 'a'), -1},
      {"h?" + std::string(31, 'n') + "=v", 0},
      {"h?" + std::string(32, 'n'), -1},
      {"h?n=" + std::string(255, 'v'), 0},
      {"h?n=" + std::string(256, 'v'), -1},
      {many, 0},
      {many + "&a", -1},
  };
  TNETOPT opt;
  for (const auto& c : cases) EXPECT_EQ(tnet_get_opt(&opt, c.text.c_str()), c.ret) << c.text;
  EXPECT_EQ(tnet_get_opt(nullptr, "h"), -1);
}

TEST(TnetTables, ProtocolsAndTypes) {
  const char* names[] = {"tcp", "udp", "unix", "pipe", "file", "shm", "thttp"};
  for (int i = 0; i < 7; ++i) {
    const TNETPROTODEF* p = tnet_find_proto(names[i]);
    ASSERT_NE(p, nullptr) << names[i];
    EXPECT_EQ(p->iID, i + 1);
    EXPECT_EQ(p->fSelectable, i == 5 ? 0 : 1);
    EXPECT_EQ(p->fAvail, 1);
  }
  EXPECT_EQ(tnet_find_proto("TCP"), nullptr);
  const char* types[] = {"stream", "dgram", "seqpacket", "raw", "rdm", "packet"};
  const int ids[] = {1, 2, 5, 3, 4, 10};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(tnet_find_type(types[i])->iType, ids[i]);
  EXPECT_EQ(tnet_find_type("Stream"), nullptr);
}

TEST(TnetAddr, InetAndUnix) {
  struct sockaddr_in sin;
  ASSERT_EQ(tnet_str2inet("127.0.0.2:8080", &sin), 0);
  EXPECT_EQ(sin.sin_family, AF_INET);
  EXPECT_EQ(sin.sin_port, htons(8080));
  EXPECT_EQ(sin.sin_addr.s_addr, inet_addr("127.0.0.2"));
  ASSERT_EQ(tnet_str2inet("10.1.2.3", &sin), 0);
  EXPECT_EQ(sin.sin_port, 0);
  ASSERT_EQ(tnet_str2inet("localhost:7", &sin), 0);
  EXPECT_EQ(ntohl(sin.sin_addr.s_addr) >> 24, 127u);
  const struct {
    const char* text;
    int ret;
    int port;
  } ports[] = {{"1.2.3.4:0", 0, 0},          {"1.2.3.4:65535", 0, 65535}, {"1.2.3.4:00080", 0, 80},
               {"1.2.3.4:65536", -1, 0},     {"1.2.3.4:99999", -1, 0},    {"1.2.3.4:-1", -1, 0},
               {"1.2.3.4:80abc", -1, 0},     {"1.2.3.4:", -1, 0},         {"1.2.3.4:+80", -1, 0},
               {"1.2.3.4:4294967376", -1, 0}};
  for (const auto& p : ports) {
    EXPECT_EQ(tnet_str2inet(p.text, &sin), p.ret) << p.text;
    if (p.ret == 0) {
      EXPECT_EQ(ntohs(sin.sin_port), p.port) << p.text;
    }
  }
  for (const char* s : {"udp://127.0.0.1:99999", "udp://127.0.0.1:-1", "tcp://127.0.0.1:80abc"}) {
    EXPECT_EQ(tnet_connect(s, 100), -1) << s;
  }
  EXPECT_EQ(tnet_listen("udp://127.0.0.1:70000", 1), -1);
  EXPECT_EQ(tnet_str2inet("1.2.3.4.5:1", &sin), -1);
  EXPECT_EQ(tnet_str2inet(":80", &sin), -1);
  EXPECT_EQ(tnet_str2inet((std::string(128, '1') + ":1").c_str(), &sin), -1);

  struct sockaddr_un sun;
  ASSERT_EQ(tnet_str2unix(std::string(107, 'u').c_str(), &sun), 0);
  EXPECT_EQ(sun.sun_family, AF_UNIX);
  EXPECT_EQ(strlen(sun.sun_path), 107u);
  EXPECT_EQ(tnet_str2unix(std::string(108, 'u').c_str(), &sun), -1);

  EXPECT_EQ(tnet_is_number("10.0.0.1"), 1);
  EXPECT_EQ(tnet_is_number("10.0.0.1:80"), 0);
  EXPECT_EQ(tnet_is_number("host"), 0);
  EXPECT_EQ(tnet_is_number(""), 0);
}

TEST(TnetOpen, SocketKinds) {
  int fd = tnet_open("tcp://127.0.0.1:1");
  EXPECT_EQ(tsocket_get_type(fd), SOCK_STREAM);
  EXPECT_EQ(0, tnet_close(fd));
  fd = tnet_open("udp://127.0.0.1:1");
  EXPECT_EQ(tsocket_get_type(fd), SOCK_DGRAM);
  EXPECT_EQ(0, tnet_close(fd));
  fd = tnet_open("unix:///x?type=dgram");  // the type argument does not change the socket
  EXPECT_EQ(tsocket_get_type(fd), SOCK_STREAM);
  EXPECT_EQ(IntOpt(fd, SO_DOMAIN), AF_UNIX);
  EXPECT_EQ(0, tnet_close(fd));
  fd = tnet_open("unix:///x?type=bogus");  // an unknown type name changes nothing either
  EXPECT_EQ(tsocket_get_type(fd), SOCK_STREAM);
  EXPECT_EQ(0, tnet_close(fd));
  for (const char* s : {"pipe://x", "file://x", "shm://x", "nope://x"}) {
    EXPECT_EQ(tnet_open(s), -1) << s;
    EXPECT_EQ(tnet_listen(s, 1), -1) << s;
    EXPECT_EQ(tnet_connect(s, 100), -1) << s;
  }
  EXPECT_EQ(tnet_encode("a", 1, nullptr, nullptr), 0);
  EXPECT_EQ(tnet_decode("a", 1, nullptr, nullptr), 0);
}

TEST(TnetConnect, TcpAndThttpRoundTrip) {
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
  EXPECT_EQ(0, tnet_close(afd));
  EXPECT_EQ(0, tnet_close(cfd));
  EXPECT_EQ(0, tnet_close(lfd));
  EXPECT_EQ(tnet_connect(("tcp://127.0.0.1:" + port).c_str(), 1000), -1);

  lfd = tnet_listen("thttp://127.0.0.1:0", 8);  // thttp listens like tcp but cannot connect
  ASSERT_GE(lfd, 0);
  EXPECT_EQ(tsocket_get_acceptconn(lfd), 1);
  EXPECT_EQ(tnet_connect(("thttp://127.0.0.1:" + std::to_string(LocalPort(lfd))).c_str(), 1000),
            -1);
  EXPECT_EQ(0, tnet_close(lfd));
}

TEST(TnetConnect, UdpBindsWithoutListening) {
  int lfd = tnet_listen("udp://127.0.0.1:0", 8);
  ASSERT_GE(lfd, 0);
  EXPECT_EQ(tsocket_get_acceptconn(lfd), 0);
  EXPECT_GT(LocalPort(lfd), 0);
  int cfd = tnet_connect(("udp://127.0.0.1:" + std::to_string(LocalPort(lfd))).c_str(), 100);
  ASSERT_GE(cfd, 0);
  EXPECT_EQ(tnet_send(cfd, "dgram", 5), 5);
  char buf[8] = {};
  EXPECT_EQ(tnet_recvall(lfd, buf, sizeof(buf), 1000), 5);  // one datagram
  EXPECT_STREQ(buf, "dgram");
  EXPECT_EQ(0, tnet_close(cfd));
  EXPECT_EQ(0, tnet_close(lfd));
}

TEST(TnetConnect, UnixReplacesStaleFile) {
  TempDir dir;
  std::string path = dir.file("sock");
  int stale = open(path.c_str(), O_CREAT | O_WRONLY, 0600);
  ASSERT_EQ(tnet_write(stale, "x", 1), 1);
  close(stale);
  int lfd = tnet_listen(("unix://" + path).c_str(), 4);
  ASSERT_GE(lfd, 0);
  int cfd = tnet_connect(("unix://" + path + "?type=seqpacket").c_str(), 1000);
  ASSERT_GE(cfd, 0);
  int afd = tnet_accept(lfd, nullptr, nullptr);
  ASSERT_GE(afd, 0);
  EXPECT_EQ(tnet_write(afd, "ok", 2), 2);
  char buf[4] = {};
  EXPECT_EQ(tnet_recvall(cfd, buf, 2, 1000), 2);
  EXPECT_STREQ(buf, "ok");
  EXPECT_EQ(0, tnet_close(afd));
  EXPECT_EQ(0, tnet_close(cfd));
  EXPECT_EQ(0, tnet_close(lfd));
  EXPECT_EQ(tnet_listen(("unix://" + dir.path() + "/" + std::string(100, 's')).c_str(), 1), -1);
  EXPECT_EQ(tnet_connect(("unix://" + dir.file("none")).c_str(), 100), -1);
}

}  // namespace
