// Network appender against real collectors on loopback (listeners bound to port 0).

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <string.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "../src/wlog_net_internal.h"
#include "wlog/wlog.h"
#include "wlog_test_util.h"

namespace {

using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
constexpr int kNetConnError = static_cast<int>(0x83020402u);

sockaddr_in Loopback(uint16_t port) {
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return a;
}
uint16_t PortOf(int fd) {
  sockaddr_in a{};
  socklen_t len = sizeof(a);
  getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len);
  return ntohs(a.sin_port);
}
bool Readable(int fd, int ms) {
  pollfd p = {fd, POLLIN, 0};
  return poll(&p, 1, ms) == 1;
}
// A socket bound to 127.0.0.1:port (0 picks one); a stream socket also listens.
int Bind(int type, uint16_t port = 0) {
  int fd = socket(AF_INET, type, 0), one = 1;
  setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof(one));
  sockaddr_in a = Loopback(port);
  if (bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0) return close(fd), -1;
  if (type == SOCK_STREAM) listen(fd, 8);
  return fd;
}
int Accept(int lis) { return Readable(lis, 2000) ? accept(lis, nullptr, nullptr) : -1; }
// One datagram, or everything up to `want` bytes of a stream.
std::string Recv(int fd, size_t want = 0) {
  std::string out;
  char buf[65536];
  while ((out.empty() || out.size() < want) && Readable(fd, 2000)) {
    ssize_t n = recv(fd, buf, sizeof(buf), 0);
    if (n <= 0) break;
    out.append(buf, static_cast<size_t>(n));
    if (want == 0) break;
  }
  return out;
}
WLOGDEVNET Dev(const std::string& proto, const char* host, uint16_t port) {
  return wlog_test::net_dev(proto + host + ":" + std::to_string(port));
}
int Write(WLOGNET* net, const std::string& s) { return wlognet_write(net, s.data(), s.size()); }
// Writes until the stream appender notices the broken connection and drops its socket.
bool WriteUntilClosed(WLOGNET* net) {
  for (int i = 0; i < 50 && net->stInst.s >= 0; ++i) {
    Write(net, "lost");
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return net->stInst.s < 0;
}

class WlogNet : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, wlognet_module_init()); }
  void TearDown() override { wlognet_module_fini(); }
  WLOGNET net_{};
};

TEST_F(WlogNet, UdpDeliversRecordsByteForByteAndCutsAssemblyAtBufferSize) {
  int col = Bind(SOCK_DGRAM);
  WLOGDEVNET dev = Dev("udp://", "127.0.0.1", PortOf(col));
  dev.iBuffSize = 10;
  ASSERT_EQ(0, wlognet_init(&net_, &dev));
  EXPECT_EQ(SOCK_DGRAM, net_.stInst.iType);
  for (const std::string& rec : {std::string("a\0b\xff\n", 5), std::string(3000, 'x')}) {
    EXPECT_EQ(static_cast<int>(rec.size()), Write(&net_, rec));  // one piece: sent in place
    EXPECT_EQ(1, net_.stInst.iIsSendNetSucc);
    EXPECT_EQ(rec, Recv(col));
  }
  char a[] = "aaaa", b[] = "bbbbbb", c[] = "ccc";
  WLOGIOVEC fits[2] = {{a, 4}, {b, 5}}, exact[3] = {{a, 4}, {b, 6}, {c, 3}},
            over[3] = {{a, 4}, {b, 5}, {c, 3}};
  EXPECT_EQ(9, wlognet_writev(&net_, fits, 2));
  EXPECT_EQ("aaaabbbbb", Recv(col));
  EXPECT_EQ(10, wlognet_writev(&net_, exact, 3));  // reaching the size drops what follows
  EXPECT_EQ("aaaabbbbbb", Recv(col));
  EXPECT_EQ(10, wlognet_writev(&net_, over, 3));  // the last piece is cut to what fits
  EXPECT_EQ("aaaabbbbbc", Recv(col));
  EXPECT_EQ(0, wlognet_fini(&net_));
  EXPECT_EQ(-1, net_.stInst.s);

  dev.iBuffSize = 0;
  ASSERT_EQ(0, wlognet_init(&net_, &dev));
  EXPECT_EQ(10240000, dev.iBuffSize);
  EXPECT_EQ(0, wlognet_fini(&net_));
  close(col);
}

TEST_F(WlogNet, CategoryRecordCarriesItsLayoutAroundTheMessage) {
  int col = Bind(SOCK_DGRAM);
  auto conf = wlog_test::make_conf();
  WLOGCATEGORY* cat = wlog_test::add_category(conf.get(), "net", "<%p>%m|%n", WLOG_DEV_NET);
  cat->stDevice.stDevice.stNet = Dev("udp://", "127.0.0.1", PortOf(col));
  wlog_test::CtxPtr ctx = wlog_test::init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  WLOGCATEGORYINST* c = wlog_get_category(ctx.get(), "net");
  EXPECT_EQ(0, wlog_test::log_text(c, WLOG_PRIORITY_ERROR, "code 42"));
  EXPECT_EQ("<ERROR   >code 42|\n", Recv(col));
  EXPECT_EQ(0, wlog_query_net_category_status(c));
  close(col);
}

TEST_F(WlogNet, TcpDeliversRecordsAndUrlWithoutProtocolIsTcp) {
  int lis = Bind(SOCK_STREAM);
  for (const char* proto : {"tcp://", ""}) {
    WLOGDEVNET dev = Dev(proto, "127.0.0.1", PortOf(lis));
    ASSERT_EQ(0, wlognet_init(&net_, &dev)) << proto;
    EXPECT_EQ(SOCK_STREAM, net_.stInst.iType);
    int conn = Accept(lis);
    std::string big(100000, 'q');
    char pre[] = "<", msg[] = "two", suf[] = ">\n";
    WLOGIOVEC vec[3] = {{pre, 1}, {msg, 3}, {suf, 2}};
    EXPECT_EQ(100000, Write(&net_, big));
    EXPECT_EQ(6, wlognet_writev(&net_, vec, 3));
    EXPECT_EQ(big + "<two>\n", Recv(conn, 100006));
    EXPECT_EQ(0, wlognet_fini(&net_));
    close(conn);
  }
  close(lis);
}

TEST_F(WlogNet, RetryBudgetIsSpentOverTheAppendersLife) {
  int lis = Bind(SOCK_STREAM);
  uint16_t port = PortOf(lis);
  WLOGDEVNET dev = Dev("tcp://", "127.0.0.1", port);
  dev.iMaxRetry = 3;
  ASSERT_EQ(0, wlognet_init(&net_, &dev));
  close(Accept(lis));  // the collector goes away
  close(lis);
  ASSERT_TRUE(WriteUntilClosed(&net_));
  for (int attempt = 1; attempt <= 2; ++attempt) {  // each write tries once and fails fast
    EXPECT_EQ(-1, Write(&net_, "down"));
    EXPECT_EQ(attempt, net_.stInst.iCurRetry);
  }
  lis = Bind(SOCK_STREAM, port);  // back again: the third attempt succeeds
  ASSERT_GE(lis, 0);
  EXPECT_EQ(2, Write(&net_, "up"));
  EXPECT_EQ(3, net_.stInst.iCurRetry);
  int conn = Accept(lis);
  EXPECT_EQ("up", Recv(conn, 2));

  close(conn);  // broken again with the budget spent: no more attempts, collector or not
  ASSERT_TRUE(WriteUntilClosed(&net_));
  for (int i = 0; i < 3; ++i) EXPECT_EQ(-1, Write(&net_, "never"));
  EXPECT_EQ(3, net_.stInst.iCurRetry);
  EXPECT_FALSE(Readable(lis, 100));
  EXPECT_EQ(0, wlognet_fini(&net_));
  close(lis);
}

TEST_F(WlogNet, FailedDatagramSendKeepsTheSocket) {
  int col = Bind(SOCK_DGRAM);
  uint16_t port = PortOf(col);
  WLOGDEVNET dev = Dev("udp://", "127.0.0.1", port);
  ASSERT_EQ(0, wlognet_init(&net_, &dev));
  int s = net_.stInst.s;
  close(col);  // port unreachable: a later send reports the refusal
  bool failed = false;
  for (int i = 0; i < 50 && !failed; ++i) {
    failed = Write(&net_, "void") == -1;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  ASSERT_TRUE(failed);
  EXPECT_EQ(0, net_.stInst.iIsSendNetSucc);
  EXPECT_EQ(s, net_.stInst.s);
  col = Bind(SOCK_DGRAM, port);
  EXPECT_EQ(4, Write(&net_, "back"));
  EXPECT_EQ("back", Recv(col));
  EXPECT_EQ(0, net_.stInst.iCurRetry);
  EXPECT_EQ(0, wlognet_fini(&net_));
  close(col);
}

TEST_F(WlogNet, OnlyUdpToANameUsesTheResolutionHelper) {
  int col = Bind(SOCK_DGRAM), lis = Bind(SOCK_STREAM);
  WLOGDEVNET numeric = Dev("udp://", "127.0.0.1", PortOf(col)),
             tcp = Dev("tcp://", "localhost", PortOf(lis)),
             named = Dev("udp://", "localhost", PortOf(col));
  WLOGNET n1{}, n2{};
  ASSERT_EQ(0, wlognet_init(&n1, &numeric));
  ASSERT_EQ(0, wlognet_init(&n2, &tcp));
  EXPECT_EQ(0, n1.is_udp_domain + n2.is_udp_domain);
  EXPECT_EQ(0, wlognet_dns_helper_i()->dns_ctx_list.size + wlognet_dns_helper_i()->req_list.size);

  ASSERT_EQ(0, wlognet_init(&net_, &named));
  EXPECT_EQ(1, net_.is_udp_domain);
  DNSCONTEXT* ctx = wlognet_find_dns_ctx_i(&net_);
  ASSERT_NE(nullptr, ctx);
  EXPECT_STREQ("localhost", ctx->domain);
  EXPECT_EQ(AF_INET, ctx->addrtype);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), ctx->ipv4.sin_addr.s_addr);
  EXPECT_EQ(htons(PortOf(col)), ctx->ipv4.sin_port);
  EXPECT_STREQ("localhost", wlognet_find_dns_req_i(&net_)->gaicb_struct.ar_name);

  // Point the socket elsewhere, as if the name had moved, and let the interval expire: every
  // write succeeds at once while the lookup runs, and its result brings records back home.
  int other = Bind(SOCK_DGRAM);
  sockaddr_in away = Loopback(PortOf(other));
  connect(net_.stInst.s, reinterpret_cast<sockaddr*>(&away), sizeof(away));
  EXPECT_EQ(4, Write(&net_, "away"));
  EXPECT_EQ("away", Recv(other));
  ctx->last_result_time = timeval{0, 0};
  bool home = false;
  for (int i = 0; i < 500 && !home; ++i) {
    ASSERT_EQ(4, Write(&net_, "ping"));
    home = Readable(col, 10);
  }
  ASSERT_TRUE(home);
  EXPECT_GT(ctx->last_result_time.tv_sec, 0);
  EXPECT_EQ(htonl(INADDR_LOOPBACK), ctx->ipv4.sin_addr.s_addr);
  ASYNCDNSREQUEST* req = wlognet_find_dns_req_i(&net_);
  EXPECT_EQ(nullptr, req->gaicb_struct.ar_result);
  req->gaicb_ptrs[0] = nullptr;  // a redone set-up repairs a lost control-block pointer
  CaptureStdout();
  EXPECT_EQ(0, wlognet_reload_dns_ctx(&net_));
  EXPECT_EQ("get a exception wlog gcicb_ptr\n", GetCapturedStdout());
  EXPECT_EQ(&req->gaicb_struct, req->gaicb_ptrs[0]);
  for (WLOGNET* n : {&n1, &n2, &net_}) EXPECT_EQ(0, wlognet_fini(n));
  for (int fd : {col, lis, other}) close(fd);
}

TEST_F(WlogNet, ResolutionListsAreCappedAndReuseDeletedSlots) {
  int col = Bind(SOCK_DGRAM);
  WLOGDEVNET dev = Dev("udp://", "localhost", PortOf(col));
  dev.iBuffSize = 16;
  std::vector<WLOGNET> nets(WLOGNET_MAX_DNS + 1);
  for (int i = 0; i < WLOGNET_MAX_DNS; ++i) ASSERT_EQ(0, wlognet_init(&nets[i], &dev)) << i;
  CaptureStdout();
  EXPECT_EQ(kNetConnError, wlognet_init(&nets.back(), &dev));
  EXPECT_EQ(
      "dns_ctx_list: exceed max wlog net num in wlog cfg xml\nwlognet init_domain_result "
      "failed, net url is [" +
          std::string(dev.szUrl) + "].\n",
      GetCapturedStdout());
  EXPECT_EQ(-1, nets.back().stInst.s);
  EXPECT_EQ(0, wlognet_fini(&nets[7]));
  ASSERT_EQ(0, wlognet_init(&nets.back(), &dev));
  EXPECT_EQ(WLOGNET_MAX_DNS, wlognet_dns_helper_i()->req_list.size);
  for (WLOGNET& n : nets) EXPECT_EQ(0, wlognet_fini(&n));
  close(col);
}

TEST_F(WlogNet, BadUrlsFailWithTheirMessages) {
  const std::string bad[] = {"", "foo://127.0.0.1:80", "thttp://127.0.0.1:80",
                             "abcdefghijklmnop://127.0.0.1:80",
                             "127.0.0.1:80?" + std::string(40, 'n') + "=1"};
  for (const std::string& url : bad) {
    WLOGDEVNET dev{};
    snprintf(dev.szUrl, sizeof(dev.szUrl), "%s", url.c_str());
    CaptureStdout();
    EXPECT_EQ(kNetConnError, wlognet_init(&net_, &dev)) << url;
    EXPECT_EQ("connect net url " + url + " fail\n", GetCapturedStdout());
    EXPECT_EQ(-1, net_.stInst.s);
    EXPECT_EQ(-1, Write(&net_, "x"));
  }
  WLOGDEVNET full{};  // no terminator inside the array: refused, never read past
  memset(full.szUrl, 'a', sizeof(full.szUrl));
  CaptureStdout();
  EXPECT_EQ(kNetConnError, wlognet_init(&net_, &full));
  EXPECT_EQ("connect net url " + std::string(128, 'a') + " fail\n", GetCapturedStdout());

  URLPARTS p;
  CaptureStdout();
  EXPECT_EQ(-1, wlognet_parse_url("gopher://h:70", &p));
  EXPECT_EQ(-1, wlognet_parse_url("abcdefghijklmnop://h:70", &p));
  EXPECT_EQ(-1, wlognet_parse_url(("udp://" + std::string(128, 'h')).c_str(), &p));
  EXPECT_EQ(
      "proto[gopher] NOT support.\ntnet_get_opt failed, ret[-1].\n"
      "tnet_get_opt failed, ret[-1].\n",
      GetCapturedStdout());
  EXPECT_EQ(-1, wlognet_init(nullptr, &full));
  EXPECT_EQ(-1, wlognet_writev(nullptr, nullptr, 0));
}

TEST(WlogNetUrl, ParsesUrlsAndSplitsHostAndPort) {
  URLPARTS p;
  ASSERT_EQ(0, wlognet_parse_url("10.0.0.1:514?a=1&b", &p));
  EXPECT_EQ(1, p.proto_id);
  EXPECT_STREQ("10.0.0.1", p.addr);
  EXPECT_EQ(514u, p.port);
  EXPECT_EQ(2, p.iArgs);
  char host[WLOGNET_ADDR_LEN], small[6];
  unsigned port = 99;
  for (const char* bad : {"h:70000", "h:65536", "h:-1", "h:80abc", "h:", "h: 80"}) {
    EXPECT_EQ(-1, wlognet_get_ip_port(bad, host, sizeof(host), &port)) << bad;
  }
  ASSERT_EQ(0, wlognet_get_ip_port("h:65535", host, sizeof(host), &port));
  EXPECT_EQ(65535u, port);
  ASSERT_EQ(0, wlognet_get_ip_port("collector", host, sizeof(host), &port));
  EXPECT_EQ(0u, port);
  std::string h127(127, 'h');
  ASSERT_EQ(0, wlognet_get_ip_port((h127 + ":1").c_str(), host, sizeof(host), &port));
  EXPECT_EQ(h127, host);
  char wide[256];  // a host of 128 characters is refused, not only for want of room
  EXPECT_EQ(-1, wlognet_get_ip_port((h127 + "h:1").c_str(), wide, sizeof(wide), &port));
  EXPECT_EQ(-1, wlognet_get_ip_port("sixsix:1", small, sizeof(small), &port));
}

}  // namespace

// One element failing on every write (a file on a full device) does not keep the record from
// the others: the write counts the elements that took it.
TEST_F(WlogNet, VectorKeepsWritingToTheOthersWhenOneElementFails) {
  zq_test::TempDir dir;
  const int col = Bind(SOCK_DGRAM);
  WLOGDEVVEC dev{};
  dev.iCount = 3;
  const std::string good = dir.path() + "/good.log";
  const char* files[] = {"/dev/full", nullptr, good.c_str()};
  for (int i = 0; i < 3; ++i) {
    WLOGDEVELEMENT& el = dev.astElements[i];
    el.iType = files[i] != nullptr ? WLOG_DEV_FILE : WLOG_DEV_NET;
    if (files[i] == nullptr) {
      el.stDevice.stNet = Dev("udp://", "127.0.0.1", PortOf(col));
      continue;
    }
    snprintf(el.stDevice.stFile.szPattern, WLOGFILE_PATTERN_LEN, "%s", files[i]);
    el.stDevice.stFile.iMaxRotate = 1;
    el.stDevice.stFile.iNoFindLatest = 1;
  }
  WLOGVEC vec{};
  ASSERT_EQ(0, wlogvec_init(&vec, &dev));
  std::string all;
  for (int i = 0; i < 3; ++i) {
    std::string rec = "record " + std::to_string(i) + "\n";
    WLOGIOVEC piece = {&rec[0], rec.size()};
    EXPECT_EQ(2, wlogvec_writev(&vec, 0, 0, &piece, 1)) << i;
    EXPECT_EQ(rec, Recv(col));
    all += rec;
  }
  EXPECT_EQ(0, wlogvec_fini(&vec));
  EXPECT_EQ(all, zq_test::ReadFile(good));
  close(col);
}
