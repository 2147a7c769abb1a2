// Record codec speed. The frame-head heartbeat (with IP information and a time stamp) is packed
// and unpacked by the generated code and, as the floor, by a hand-written big-endian codec of
// the same fields that checks the room before every field, into and from the same buffer.
// START and INPROC (512 idents) frames are measured in bytes per second.
#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>
#include <vector>

#include "tframehead.h"

using tframehead::TFrameHead;

namespace {

void fillHeartbeat(TFrameHead& h) {
  std::memset(&h, 0, sizeof(h));
  h.construct();
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

inline bool put8(char* p, size_t& pos, size_t len, uint8_t v) {
  if (len - pos < 1) return false;
  p[pos++] = static_cast<char>(v);
  return true;
}
inline bool put16(char* p, size_t& pos, size_t len, uint16_t v) {
  if (len - pos < 2) return false;
  p[pos] = static_cast<char>(v >> 8);
  p[pos + 1] = static_cast<char>(v);
  pos += 2;
  return true;
}
inline bool put32(char* p, size_t& pos, size_t len, uint32_t v) {
  if (len - pos < 4) return false;
  p[pos] = static_cast<char>(v >> 24);
  p[pos + 1] = static_cast<char>(v >> 16);
  p[pos + 2] = static_cast<char>(v >> 8);
  p[pos + 3] = static_cast<char>(v);
  pos += 4;
  return true;
}
inline bool put64(char* p, size_t& pos, size_t len, uint64_t v) {
  if (len - pos < 8) return false;
  for (int i = 0; i < 8; ++i) p[pos + static_cast<size_t>(i)] = static_cast<char>(v >> (56 - 8 * i));
  pos += 8;
  return true;
}
inline bool get8(const char* p, size_t& pos, size_t len, uint8_t& v) {
  if (len - pos < 1) return false;
  v = static_cast<uint8_t>(p[pos++]);
  return true;
}
inline bool get16(const char* p, size_t& pos, size_t len, uint16_t& v) {
  if (len - pos < 2) return false;
  v = static_cast<uint16_t>((static_cast<uint8_t>(p[pos]) << 8) | static_cast<uint8_t>(p[pos + 1]));
  pos += 2;
  return true;
}
inline bool get32(const char* p, size_t& pos, size_t len, uint32_t& v) {
  if (len - pos < 4) return false;
  v = (static_cast<uint32_t>(static_cast<uint8_t>(p[pos])) << 24) |
      (static_cast<uint32_t>(static_cast<uint8_t>(p[pos + 1])) << 16) |
      (static_cast<uint32_t>(static_cast<uint8_t>(p[pos + 2])) << 8) | static_cast<uint8_t>(p[pos + 3]);
  pos += 4;
  return true;
}
inline bool get64(const char* p, size_t& pos, size_t len, uint64_t& v) {
  uint32_t hi = 0, lo = 0;
  if (len - pos < 8) return false;
  get32(p, pos, len, hi);
  get32(p, pos, len, lo);
  v = (static_cast<uint64_t>(hi) << 32) | lo;
  return true;
}

int handEncode(const TFrameHead& h, char* p, size_t len, size_t* used) {
  size_t pos = 0;
  const tframehead::TIPInfo& ip = h.stExtraInfo.stIPInfo;
  const bool ok = put8(p, pos, len, 35) && put8(p, pos, len, static_cast<uint8_t>(h.chCmd)) &&
                  put8(p, pos, len, static_cast<uint8_t>(h.chExtraType)) &&
                  put8(p, pos, len, static_cast<uint8_t>(h.chTimeStampType)) &&
                  put8(p, pos, len, static_cast<uint8_t>(h.chFlag)) &&
                  put32(p, pos, len, static_cast<uint32_t>(h.iID)) &&
                  put32(p, pos, len, static_cast<uint32_t>(h.iConnIdx)) && put64(p, pos, len, h.ullExtend) &&
                  put32(p, pos, len, h.dwSeq) && put64(p, pos, len, h.ullCallBack) &&
                  put16(p, pos, len, static_cast<uint16_t>(ip.nFamily)) && put16(p, pos, len, ip.wPort) &&
                  put32(p, pos, len, ip.ulIp) && put32(p, pos, len, ip.ipv6_padding[0]) &&
                  put32(p, pos, len, ip.ipv6_padding[1]) && put32(p, pos, len, ip.ipv6_padding[2]) &&
                  put16(p, pos, len, ip.wIntf_type) && put32(p, pos, len, ip.dwRecv_udp_packet_count) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_valid_count) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_toolate_count) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_late_lt_low_limit) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_late_gt_low_limit_lt_high_limit) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_late_gt_high_limit) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_lost_count) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_unorder_count) &&
                  put32(p, pos, len, ip.dwRecv_udp_packet_maxseq) &&
                  put32(p, pos, len, static_cast<uint32_t>(h.stTimeStamp.stTimeVal.iSec)) &&
                  put32(p, pos, len, static_cast<uint32_t>(h.stTimeStamp.stTimeVal.iUsec));
  *used = pos;
  return ok ? 0 : -1;
}

int handDecode(TFrameHead& h, const char* p, size_t len, size_t* used) {
  size_t pos = 0;
  uint8_t b[5] = {0, 0, 0, 0, 0};
  uint32_t id = 0, conn = 0, sec = 0, usec = 0;
  uint16_t family = 0;
  tframehead::TIPInfo& ip = h.stExtraInfo.stIPInfo;
  const bool ok = get8(p, pos, len, b[0]) && get8(p, pos, len, b[1]) && get8(p, pos, len, b[2]) &&
                  get8(p, pos, len, b[3]) && get8(p, pos, len, b[4]) && get32(p, pos, len, id) &&
                  get32(p, pos, len, conn) && get64(p, pos, len, h.ullExtend) && get32(p, pos, len, h.dwSeq) &&
                  get64(p, pos, len, h.ullCallBack) && get16(p, pos, len, family) && get16(p, pos, len, ip.wPort) &&
                  get32(p, pos, len, ip.ulIp) && get32(p, pos, len, ip.ipv6_padding[0]) &&
                  get32(p, pos, len, ip.ipv6_padding[1]) && get32(p, pos, len, ip.ipv6_padding[2]) &&
                  get16(p, pos, len, ip.wIntf_type) && get32(p, pos, len, ip.dwRecv_udp_packet_count) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_valid_count) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_toolate_count) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_late_lt_low_limit) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_late_gt_low_limit_lt_high_limit) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_late_gt_high_limit) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_lost_count) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_unorder_count) &&
                  get32(p, pos, len, ip.dwRecv_udp_packet_maxseq) && get32(p, pos, len, sec) &&
                  get32(p, pos, len, usec);
  h.chVer = static_cast<int8_t>(b[0]);
  h.chCmd = static_cast<int8_t>(b[1]);
  h.chExtraType = static_cast<int8_t>(b[2]);
  h.chTimeStampType = static_cast<int8_t>(b[3]);
  h.chFlag = static_cast<int8_t>(b[4]);
  h.iID = static_cast<int32_t>(id);
  h.iConnIdx = static_cast<int32_t>(conn);
  ip.nFamily = static_cast<int16_t>(family);
  h.stTimeStamp.stTimeVal.iSec = static_cast<int32_t>(sec);
  h.stTimeStamp.stTimeVal.iUsec = static_cast<int32_t>(usec);
  *used = pos;
  return ok ? 0 : -1;
}

struct Fixture {
  std::unique_ptr<TFrameHead> rec{new TFrameHead()};
  std::vector<char> buf = std::vector<char>(TFrameHead::MAX_PACK_SIZE);
  size_t used = 0;
};

void BM_HeartbeatPackGenerated(benchmark::State& state) {
  Fixture f;
  fillHeartbeat(*f.rec);
  for (auto _ : state) {
    kalmo_vix::VixWriteBuf out(f.buf.data(), f.buf.size());
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
  f.rec->pack(f.buf.data(), f.buf.size(), &f.used, 0);
  for (auto _ : state) {
    kalmo_vix::VixReadBuf in(f.buf.data(), f.used);
    benchmark::DoNotOptimize(f.rec->unpack(in, 0));
    benchmark::ClobberMemory();
  }
}
BENCHMARK(BM_HeartbeatUnpackGenerated);

void BM_HeartbeatUnpackHandWritten(benchmark::State& state) {
  Fixture f;
  fillHeartbeat(*f.rec);
  f.rec->pack(f.buf.data(), f.buf.size(), &f.used, 0);
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
  s.construct();
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
  s.construct();
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
  for (auto _ : state) {
    kalmo_vix::VixWriteBuf out(f.buf.data(), f.buf.size());
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
  f.rec->pack(f.buf.data(), f.buf.size(), &f.used, 0);
  for (auto _ : state) {
    kalmo_vix::VixReadBuf in(f.buf.data(), f.used);
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
