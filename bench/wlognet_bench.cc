// Network appender: cost of sending one 200-byte record to a UDP collector on loopback,
// against the floor of a bare send() of the same bytes on the appender's own connected socket.
// The collector never reads, so after its buffer fills the kernel drops the datagrams; both
// sides pay the same sender-side path either way.
//
// BM_Interleaved times blocks of appender writes and bare sends alternately in one loop and
// reports their per-record costs and the ratio appender / bare (the figure to watch: at most
// 1.25), which keeps the comparison fair when the machine is busy.

#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <netinet/in.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

#include "wlog/wlog_net.h"

namespace {

constexpr size_t kRecord = 200;

struct UdpPair {
  int collector = -1;
  WLOGDEVNET dev;
  WLOGNET net;
  bool ok = false;
  char record[kRecord];

  UdpPair() {
    memset(&dev, 0, sizeof(dev));
    memset(&net, 0, sizeof(net));
    memset(record, 'r', sizeof(record));
    collector = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in a;
    memset(&a, 0, sizeof(a));
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof(a);
    if (bind(collector, reinterpret_cast<sockaddr*>(&a), sizeof(a)) != 0 ||
        getsockname(collector, reinterpret_cast<sockaddr*>(&a), &len) != 0) {
      return;
    }
    snprintf(dev.szUrl, sizeof(dev.szUrl), "udp://127.0.0.1:%u", ntohs(a.sin_port));
    dev.iBuffSize = 4096;
    dev.iConnTimeout = WLOGNET_DEF_TIMEOUT;
    dev.iSendTimeout = 1000;
    ok = wlognet_init(&net, &dev) == 0;
  }
  ~UdpPair() {
    if (wlognet_fini(&net) != 0) fprintf(stderr, "wlognet_fini failed\n");
    close(collector);
  }
};

void BM_BareSend(benchmark::State& state) {
  UdpPair p;
  if (!p.ok) return state.SkipWithError("appender init failed");
  for (auto _ : state) {
    benchmark::DoNotOptimize(send(p.net.stInst.s, p.record, kRecord, 0));
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecord));
}
BENCHMARK(BM_BareSend);

void BM_AppenderWrite(benchmark::State& state) {
  UdpPair p;
  if (!p.ok) return state.SkipWithError("appender init failed");
  for (auto _ : state) {
    if (wlognet_write(&p.net, p.record, kRecord) != static_cast<int>(kRecord)) {
      return state.SkipWithError("write failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecord));
}
BENCHMARK(BM_AppenderWrite);

// The shape a category hands over: layout prefix, message, suffix, assembled into one record.
void BM_AppenderWritevThreePieces(benchmark::State& state) {
  UdpPair p;
  if (!p.ok) return state.SkipWithError("appender init failed");
  WLOGIOVEC vec[3] = {{p.record, 60}, {p.record + 60, 139}, {p.record + 199, 1}};
  for (auto _ : state) {
    if (wlognet_writev(&p.net, vec, 3) != static_cast<int>(kRecord)) {
      return state.SkipWithError("write failed");
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * kRecord));
}
BENCHMARK(BM_AppenderWritevThreePieces);

void BM_Interleaved(benchmark::State& state) {
  UdpPair p;
  if (!p.ok) return state.SkipWithError("appender init failed");
  using Clock = std::chrono::steady_clock;
  constexpr int kBlock = 256;
  double appender_ns = 0, bare_ns = 0;
  for (auto _ : state) {
    auto t0 = Clock::now();
    for (int i = 0; i < kBlock; ++i)
      benchmark::DoNotOptimize(wlognet_write(&p.net, p.record, kRecord));
    auto t1 = Clock::now();
    for (int i = 0; i < kBlock; ++i) {
      benchmark::DoNotOptimize(send(p.net.stInst.s, p.record, kRecord, 0));
    }
    auto t2 = Clock::now();
    appender_ns += std::chrono::duration<double, std::nano>(t1 - t0).count();
    bare_ns += std::chrono::duration<double, std::nano>(t2 - t1).count();
  }
  const double records = static_cast<double>(state.iterations()) * kBlock;
  state.counters["appender_ns"] = appender_ns / records;
  state.counters["bare_ns"] = bare_ns / records;
  state.counters["ratio"] = bare_ns > 0 ? appender_ns / bare_ns : 0;
}
BENCHMARK(BM_Interleaved);

}  // namespace

BENCHMARK_MAIN();
