// Record codec speed. The frame-head heartbeat (with IP information and a time stamp) is packed
// and unpacked by the generated code and, as the floor, by a hand-written big-endian codec of
// the same fields that checks the room before every field, into and from the same buffer.
// START and INPROC (512 idents) frames are measured in bytes per second.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "tframehead.h"

using tframehead::TFrameHead;

namespace {

void fillHeartbeat(TFrameHead& h) {
  std::memset(&h, 0, sizeof(h));
  if (h.construct() != 0) std::abort();
  h.chCmd = tframehead::TFRAMEHEAD_CMD_HEARTBEAT;
  h.chExtraType = tframehead::TFRAMEHEAD_EXTRA_IP;
  h.chTimeStampType = tframehead::TFRAMEHEAD_TIMESTAMP_TIMEVAL;
  h.chFlag = 1;
  h.iID = 123456;
  h.iConnIdx = 77;
  h.ullExtend = 0x1122334455667788ULL;
  h.dwSeq = 991;
  h.ullCallBack = 0xdeadbeefcafef00dULL;
  tframehead::TIPInfo& ip = h.stExtraInfo.stIPInfo;
  ip.nFamily = 2;
  ip.wPort = 8080;
  ip.ulIp = 0x0100007fu;
  ip.wIntf_type = 3;
  ip.dwRecv_udp_packet_count = 1000;
  ip.dwRecv_udp_packet_valid_count = 990;
  ip.dwRecv_udp_packet_lost_count = 10;
  ip.dwRecv_udp_packet_maxseq = 1000;
  h.stTimeStamp.stTimeVal.iSec = 1700000000;
  h.stTimeStamp.stTimeVal.iUsec = 123456;
}

// ---- the hand-written floor: same fields, same byte order, a bounds check before each field.

#define FLOOR_PUT(width, value)                                                   \
  do {                                                                            \
    if (len - pos < (width) / 8) return -1;                                       \
    kalmo_vix::codec::put_u##width(p + pos, static_cast<uint##width##_t>(value)); \
    pos += (width) / 8;                                                           \
  } while (0)

#define FLOOR_GET(width, type, target)                                     \
  do {                                                                     \
    if (len - pos < (width) / 8) return -1;                                \
    (target) = static_cast<type>(kalmo_vix::codec::get_u##width(p + pos)); \
    pos += (width) / 8;                                                    \
  } while (0)

int handEncode(const TFrameHead& h, char* p, size_t len, size_t* used) {
  size_t pos = 0;
  const tframehead::TIPInfo& ip = h.stExtraInfo.stIPInfo;
  FLOOR_PUT(8, 35);
  FLOOR_PUT(8, h.chCmd);
  FLOOR_PUT(8, h.chExtraType);
  FLOOR_PUT(8, h.chTimeStampType);
  FLOOR_PUT(8, h.chFlag);
  FLOOR_PUT(32, h.iID);
  FLOOR_PUT(32, h.iConnIdx);
  FLOOR_PUT(64, h.ullExtend);
  FLOOR_PUT(32, h.dwSeq);
  FLOOR_PUT(64, h.ullCallBack);
  FLOOR_PUT(16, ip.nFamily);
  FLOOR_PUT(16, ip.wPort);
  FLOOR_PUT(32, ip.ulIp);
  FLOOR_PUT(32, ip.ipv6_padding[0]);
  FLOOR_PUT(32, ip.ipv6_padding[1]);
  FLOOR_PUT(32, ip.ipv6_padding[2]);
  FLOOR_PUT(16, ip.wIntf_type);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_count);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_valid_count);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_toolate_count);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_late_lt_low_limit);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_late_gt_low_limit_lt_high_limit);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_late_gt_high_limit);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_lost_count);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_unorder_count);
  FLOOR_PUT(32, ip.dwRecv_udp_packet_maxseq);
  FLOOR_PUT(32, h.stTimeStamp.stTimeVal.iSec);
  FLOOR_PUT(32, h.stTimeStamp.stTimeVal.iUsec);
  *used = pos;
  return 0;
}

int handDecode(TFrameHead& h, const char* p, size_t len, size_t* used) {
  size_t pos = 0;
  tframehead::TIPInfo& ip = h.stExtraInfo.stIPInfo;
  FLOOR_GET(8, int8_t, h.chVer);
  FLOOR_GET(8, int8_t, h.chCmd);
  FLOOR_GET(8, int8_t, h.chExtraType);
  FLOOR_GET(8, int8_t, h.chTimeStampType);
  FLOOR_GET(8, int8_t, h.chFlag);
  FLOOR_GET(32, int32_t, h.iID);
  FLOOR_GET(32, int32_t, h.iConnIdx);
  FLOOR_GET(64, uint64_t, h.ullExtend);
  FLOOR_GET(32, uint32_t, h.dwSeq);
  FLOOR_GET(64, uint64_t, h.ullCallBack);
  FLOOR_GET(16, int16_t, ip.nFamily);
  FLOOR_GET(16, uint16_t, ip.wPort);
  FLOOR_GET(32, uint32_t, ip.ulIp);
  FLOOR_GET(32, uint32_t, ip.ipv6_padding[0]);
  FLOOR_GET(32, uint32_t, ip.ipv6_padding[1]);
  FLOOR_GET(32, uint32_t, ip.ipv6_padding[2]);
  FLOOR_GET(16, uint16_t, ip.wIntf_type);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_count);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_valid_count);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_toolate_count);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_late_lt_low_limit);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_late_gt_low_limit_lt_high_limit);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_late_gt_high_limit);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_lost_count);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_unorder_count);
  FLOOR_GET(32, uint32_t, ip.dwRecv_udp_packet_maxseq);
  FLOOR_GET(32, int32_t, h.stTimeStamp.stTimeVal.iSec);
  FLOOR_GET(32, int32_t, h.stTimeStamp.stTimeVal.iUsec);
  *used = pos;
  return 0;
}

struct Fixture {
  std::unique_ptr<TFrameHead> rec{new TFrameHead()};
  std::vector<char> buf = std::vector<char>(TFrameHead::MAX_PACK_SIZE);
  size_t used = 0;
};

void BM_HeartbeatPackGenerated(benchmark::State& state) {
  Fixture f;
  fillHeartbeat(*f.rec);
  kalmo_vix::VixWriteBuf out(f.buf.data(), f.buf.size());
  for (auto _ : state) {
    out.position = 0;
    benchmark::DoNotOptimize(f.rec->pack(out, 0));
    benchmark::DoNotOptimize(f.buf.data());
  }
}
BENCHMARK(BM_HeartbeatPackGenerated);

void BM_HeartbeatPackHandWritten(benchmark::State& state) {
  Fixture f;
  fillHeartbeat(*f.rec);
  for (auto _ : state) {
    benchmark::DoNotOptimize(handEncode(*f.rec, f.buf.data(), f.buf.size(), &f.used));
    benchmark::DoNotOptimize(f.buf.data());
  }
}
BENCHMARK(BM_HeartbeatPackHandWritten);

void BM_HeartbeatUnpackGenerated(benchmark::State& state) {
  Fixture f;
  fillHeartbeat(*f.rec);
  if (f.rec->pack(f.buf.data(), f.buf.size(), &f.used, 0) != 0) {
    state.SkipWithError("pack failed");
    return;
  }
  kalmo_vix::VixReadBuf in(f.buf.data(), f.used);
  for (auto _ : state) {
    in.position = 0;
    benchmark::DoNotOptimize(f.rec->unpack(in, 0));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_HeartbeatUnpackGenerated);

void BM_HeartbeatUnpackHandWritten(benchmark::State& state) {
  Fixture f;
  fillHeartbeat(*f.rec);
  if (f.rec->pack(f.buf.data(), f.buf.size(), &f.used, 0) != 0) {
    state.SkipWithError("pack failed");
    return;
  }
  size_t used = 0;
  for (auto _ : state) {
    benchmark::DoNotOptimize(handDecode(*f.rec, f.buf.data(), f.used, &used));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_HeartbeatUnpackHandWritten);

void fillStart(TFrameHead& h) {
  fillHeartbeat(h);
  h.chCmd = tframehead::TFRAMEHEAD_CMD_START;
  tframehead::TFrameCmdStart& s = h.stCmdData.stStart;
  if (s.construct() != 0) std::abort();
  s.stUserAccount.wType = 1;
  s.stUserAccount.bFormat = tframehead::TFRAMEHEAD_ID_STRING;
  std::strcpy(s.stUserAccount.stValue.szSTRING, "0123456789ABCDEF0123456789ABCDEF");
  s.stUserAccount.ullUid = 42;
  s.iAuthType = tframehead::KALMO_SEC_AUTH_MXV2;
  tframehead::TFrameAuthMX& mx = s.stAuthData.stAuthMXV2;
  mx.dwUin = 1001;
  mx.nSigVer = 2;
  mx.nSigLen = 128;
  std::memset(mx.szSigBuff, 0x3c, 128);
  mx.dwAuthExDataLen = 64;
  std::memset(mx.szAuthExData, 0x4d, 64);
  s.iWaitTime = 5;
  s.stSIPInfo = h.stExtraInfo.stIPInfo;
  s.stOriClientIPInfo = h.stExtraInfo.stIPInfo;
}

void fillInProc(TFrameHead& h) {
  fillHeartbeat(h);
  h.chCmd = tframehead::TFRAMEHEAD_CMD_INPROC;
  tframehead::TFrameCmdInProc& s = h.stCmdData.stInProc;
  if (s.construct() != 0) std::abort();
  s.chValid = 1;
  s.nCount = tframehead::TFRAMEHEAD_MAX_BATCH_IDENT;
  for (int i = 0; i < s.nCount; ++i) {
    s.astIdents[i].iID = i;
    s.astIdents[i].iConnIdx = 1000 + i;
    s.astIdents[i].ullExtend = static_cast<uint64_t>(i) * 7;
    s.astIdents[i].ullCallBack = static_cast<uint64_t>(i) * 13;
  }
}

template <void (*Fill)(TFrameHead&)>
void BM_PackFrame(benchmark::State& state) {
  Fixture f;
  Fill(*f.rec);
  size_t size = 0;
  kalmo_vix::VixWriteBuf out(f.buf.data(), f.buf.size());
  for (auto _ : state) {
    out.position = 0;
    benchmark::DoNotOptimize(f.rec->pack(out, 0));
    size = out.position;
    benchmark::DoNotOptimize(f.buf.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(size));
  state.counters["frame_bytes"] = static_cast<double>(size);
}

template <void (*Fill)(TFrameHead&)>
void BM_UnpackFrame(benchmark::State& state) {
  Fixture f;
  Fill(*f.rec);
  if (f.rec->pack(f.buf.data(), f.buf.size(), &f.used, 0) != 0) {
    state.SkipWithError("pack failed");
    return;
  }
  kalmo_vix::VixReadBuf in(f.buf.data(), f.used);
  for (auto _ : state) {
    in.position = 0;
    benchmark::DoNotOptimize(f.rec->unpack(in, 0));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * static_cast<int64_t>(f.used));
  state.counters["frame_bytes"] = static_cast<double>(f.used);
}

BENCHMARK_TEMPLATE(BM_PackFrame, fillStart)->Name("BM_StartPack");
BENCHMARK_TEMPLATE(BM_UnpackFrame, fillStart)->Name("BM_StartUnpack");
BENCHMARK_TEMPLATE(BM_PackFrame, fillInProc)->Name("BM_InProc512Pack");
BENCHMARK_TEMPLATE(BM_UnpackFrame, fillInProc)->Name("BM_InProc512Unpack");

}  // namespace

BENCHMARK_MAIN();
