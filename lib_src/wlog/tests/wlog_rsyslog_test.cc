// The network appender against rsyslogd as the collector: records sent over UDP and over TCP
// with a syslog-style layout land in rsyslogd's output file intact and in order. rsyslogd runs
// in the foreground on loopback ports of its own with a configuration, pid file and work
// directory in a temporary directory (no system sockets: imuxsock is not loaded), and is
// stopped at the end. Skipped where rsyslogd is not installed.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "wlog/wlog.h"
#include "wlog_test_util.h"

namespace {

const char* const kRsyslogd[] = {"/usr/sbin/rsyslogd", "/sbin/rsyslogd", "/usr/bin/rsyslogd"};

// port 0: a loopback port free at the time of asking (0 when none); else whether a stream
// connection to the port is accepted (1) or not (0).
uint16_t probe(int type, uint16_t port) {
  const int fd = socket(AF_INET, type, 0);
  sockaddr_in a{};
  a.sin_family = AF_INET;
  a.sin_port = htons(port);
  a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof(a);
  uint16_t ret = 0;
  if (fd >= 0 && port == 0 && bind(fd, reinterpret_cast<sockaddr*>(&a), len) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&a), &len) == 0) {
    ret = ntohs(a.sin_port);
  } else if (fd >= 0 && port != 0) {
    ret = connect(fd, reinterpret_cast<sockaddr*>(&a), len) == 0 ? 1 : 0;
  }
  if (fd >= 0) close(fd);
  return ret;
}
bool tcp_accepts(uint16_t port) { return probe(SOCK_STREAM, port) == 1; }

// rsyslogd in the foreground with its own configuration; stopped when the object goes.
class Rsyslogd {
 public:
  Rsyslogd(const std::string& bin, const std::string& dir) : dir_(dir) {
    udp_ = probe(SOCK_DGRAM, 0);
    tcp_ = probe(SOCK_STREAM, 0);
    char conf[1024];
    snprintf(conf, sizeof(conf), R"(global(workDirectory="%s")
module(load="imudp")
module(load="imtcp")
input(type="imudp" address="127.0.0.1" port="%u")
input(type="imtcp" address="127.0.0.1" port="%u")
template(name="line" type="string" string="%%pri%%|%%programname%%|%%msg%%\n")
*.* action(type="omfile" file="%s/out.log" template="line")
)",
             dir.c_str(), udp_, tcp_, dir.c_str());
    EXPECT_TRUE(zq_test::WriteFile(dir + "/rsyslog.conf", conf));
    pid_ = fork();
    if (pid_ == 0) {
      const std::string f = dir + "/rsyslog.conf", i = dir + "/rsyslogd.pid";
      execl(bin.c_str(), bin.c_str(), "-n", "-f", f.c_str(), "-i", i.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    // Up once its TCP input accepts (the UDP input is opened with it).
    for (int i = 0; i < 200 && !tcp_accepts(tcp_); ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
  }
  ~Rsyslogd() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, nullptr, 0);
    }
  }
  Rsyslogd(const Rsyslogd&) = delete;
  Rsyslogd& operator=(const Rsyslogd&) = delete;

  uint16_t udp() const { return udp_; }
  uint16_t tcp() const { return tcp_; }
  // Lines of the output file once it holds `want` of them (or after five seconds).
  std::vector<std::string> lines(size_t want) const {
    std::vector<std::string> out;
    for (int i = 0; i < 200; ++i) {
      out.clear();
      const std::string text = zq_test::ReadFile(dir_ + "/out.log");
      size_t start = 0, end;
      while ((end = text.find('\n', start)) != std::string::npos) {
        out.push_back(text.substr(start, end - start));
        start = end + 1;
      }
      if (out.size() >= want) break;
      std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    return out;
  }

 private:
  std::string dir_;
  uint16_t udp_ = 0, tcp_ = 0;
  pid_t pid_ = -1;
};

TEST(WlogRsyslog, UdpAndTcpRecordsLandIntactAndInOrder) {
  std::string bin;
  for (const char* p : kRsyslogd) {
    if (access(p, X_OK) == 0) bin = p;
  }
  if (bin.empty()) GTEST_SKIP() << "rsyslogd not found (Debian package rsyslog): interop not run";
  zq_test::TempDir dir;
  Rsyslogd collector(bin, dir.path());
  ASSERT_TRUE(tcp_accepts(collector.tcp())) << "rsyslogd did not start";

  // PRI 14 (facility user, severity info), the category as the tag, the process id.
  auto conf = wlog_test::make_conf();
  const struct {
    const char* name;
    const char* proto;
    uint16_t port;
    const char* format;
  } cats[] = {{"zq_udp", "udp", collector.udp(), "<14>%c[%P]: %m"},
              {"zq_tcp", "tcp", collector.tcp(), "<14>%c[%P]: %m%n"}};
  for (const auto& c : cats) {
    wlog_test::add_category(conf.get(), c.name, c.format, WLOG_DEV_NET)->stDevice.stDevice.stNet =
        wlog_test::net_dev(std::string(c.proto) + "://127.0.0.1:" + std::to_string(c.port));
  }
  wlog_test::CtxPtr ctx = wlog_test::init_ctx(conf.get());
  ASSERT_TRUE(ctx);
  const int kRecords = 50;
  std::vector<std::string> want;
  for (const auto& c : cats) {
    WLOGCATEGORYINST* cat = wlog_get_category(ctx.get(), c.name);
    for (int i = 0; i < kRecords; ++i) {
      const std::string msg = std::string(c.proto) + " record " + std::to_string(i) +
                              " [x=" + std::string(i % 40, 'a' + i % 26) + "] {end}";
      ASSERT_EQ(0, wlog_test::log_text(cat, WLOG_PRIORITY_INFO, msg.c_str()));
      want.push_back(std::string("14|") + c.name + "| " + msg);
    }
    // The UDP records first: rsyslogd writes each input's records in the order they came.
    if (std::string(c.proto) == "udp") collector.lines(kRecords);
  }
  EXPECT_EQ(want, collector.lines(want.size()));
}

}  // namespace
