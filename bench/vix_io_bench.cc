// Records as text: vix_sprintf and vix_sscanf_ex of a logging configuration (WLOGCONF with 16
// categories of realistic values), against protobuf's text format printing and parsing an
// equivalent message (vix_io_bench.proto) filled with the same values; and the macro
// expression calculator.
//
// The metadata library is the one wlog links in (wlog_get_meta_data, compiled from
// lib_src/wlog/wlog_conf.vix; wlog_meta_test checks its layout against the C declarations).
#include <benchmark/benchmark.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>

#include <string>
#include <vector>

#include "vix/vix_io.h"
#include "vix/vix_macro.h"
#include "wlog/wlog.h"

#ifdef ZQ_HAVE_PROTOBUF
#include <google/protobuf/text_format.h>

#include "vix_io_bench.pb.h"
#endif

namespace {

[[noreturn]] void die(const char* pszWhat, int iRet) {
  fprintf(stderr, "vix_io_bench: %s failed: %d %s\n", pszWhat, iRet, vix_get_error_detail());
  abort();
}

void check(const char* pszWhat, int iRet) {
  if (iRet != 0) die(pszWhat, iRet);
}

void set_filter(WLOGFILTER* f, uint32_t dwStart, int16_t nMod) {
  f->stIDFilter = INTFILTER{dwStart, 1000, nMod, 0, 0, static_cast<int16_t>(nMod / 2)};
  f->stClsFilter = INTFILTER{0, 0, 0, 0, 0, 0};
}

void set_file(WLOGDEVFILE* f, const char* pszName, int i) {
  snprintf(f->szPattern, sizeof(f->szPattern), "../log/%s_%%Y%%m%%d.log", pszName);
  f->iBuffSize = 65536;
  f->dwSizeLimit = 200000000u;
  f->iPrecision = 1 + i % 3;
  f->iMaxRotate = 10;
  f->iSyncTime = 1;
  f->iNoFindLatest = 0;
  f->iRotateStick = i % 2;
  f->iDropBinaryHead = 0;
}

void set_net(WLOGDEVNET* n, int i) {
  snprintf(n->szUrl, sizeof(n->szUrl), "udp://10.12.%d.40:66%02d", i, i);
  n->iBuffSize = 32768;
  n->iSendBuff = 262144;
  n->iRecvBuff = 65536;
  n->iAutoReconnect = 1;
  n->iMaxRetry = 20;
  n->iConnTimeout = WLOGNET_DEF_TIMEOUT;
  n->iSendTimeout = WLOGNET_DEF_TIMEOUT;
}

// A configuration as a connection server runs it: 16 categories, files, network sinks, a
// terminal, shared-memory and vector devices, a few id filters and forwards.
WLOGCONF* make_conf() {
  static const char* const kNames[16] = {
      "default",     "zq",          "zq.plugin", "zq.plugin.sdk", "zq.plugin.user", "zq.bill",
      "zq.stat",     "zq.trace",    "quelld",    "quelld.conn",   "quelld.auth",    "quelld.route",
      "quelld.wait", "quelld.bill", "sdk.anti",  "sdk.report"};
  WLOGCONF* c = static_cast<WLOGCONF*>(calloc(1, sizeof(WLOGCONF)));
  if (c == nullptr) die("calloc", -1);
  c->iMagic = WLOG_CONF_MAGIC;
  c->iPriorityHigh = WLOG_PRIORITY_NULL;
  c->iPriorityLow = WLOG_PRIORITY_DEBUG;
  c->iDelayInit = 1;
  c->iSuppressError = 1;
  c->iAsyncDnsInternal = WLOG_DEFAULT_DNS_INTERNAL;
  c->iCount = 16;
  for (int i = 0; i < 16; ++i) {
    WLOGCATEGORY& k = c->astCategoryList[i];
    snprintf(k.szName, sizeof(k.szName), "%s", kNames[i]);
    k.iPriorityHigh = i % 4 == 0 ? WLOG_PRIORITY_NULL : WLOG_PRIORITY_FATAL;
    k.iPriorityLow = i % 3 == 0 ? WLOG_PRIORITY_DEBUG : WLOG_PRIORITY_INFO;
    k.stFilter.iCount = i % 3;
    for (int f = 0; f < k.stFilter.iCount; ++f) {
      set_filter(&k.stFilter.astFilters[f], 10000u * static_cast<uint32_t>(i + f), 16);
    }
    k.iLevelDispatch = i % 2;
    k.iMustSucc = i == 0;
    k.iMaxMsgSize = i % 5 == 0 ? 16384 : WLOG_DEFAULT_MAX_MSG_SIZE;
    snprintf(k.szFormat, sizeof(k.szFormat), "%s",
             i % 2 == 0 ? WLOG_DEFAULT_FORMAT : "[%d.%u][%p] %m%n");
    if (i % 4 == 3) snprintf(k.szForwardCat, sizeof(k.szForwardCat), "%s", kNames[i - 1]);
    WLOGDEVANY& d = k.stDevice;
    switch (i % 6) {
      case 0:
      case 1:
        d.iType = WLOG_DEV_FILE;
        set_file(&d.stDevice.stFile, kNames[i], i);
        break;
      case 2:
        d.iType = WLOG_DEV_NET;
        set_net(&d.stDevice.stNet, i);
        break;
      case 3:
        d.iType = WLOG_DEV_TERM;
        d.stDevice.stTerm.iStdType = WLOG_TERM_STDOUT;
        break;
      case 4: {
        d.iType = WLOG_DEV_VEC;
        WLOGDEVVEC& v = d.stDevice.stVec;
        v.iInst = i;
        v.iCount = 2;
        v.astElements[0].iID = 1;
        v.astElements[0].iType = WLOG_DEV_FILE;
        set_file(&v.astElements[0].stDevice.stFile, kNames[i], i);
        v.astElements[1].iID = 2;
        v.astElements[1].iCtrl = 1;
        v.astElements[1].stFilterVec.iCount = 1;
        set_filter(&v.astElements[1].stFilterVec.astFilters[0], 500, 8);
        v.astElements[1].iType = WLOG_DEV_NET;
        set_net(&v.astElements[1].stDevice.stNet, i);
        break;
      }
      default: {
        d.iType = WLOG_DEV_MEM;
        WLOGDEVMEM& m = d.stDevice.stMem;
        m.iEnable = 1;
        snprintf(m.szUri, sizeof(m.szUri), "wsm-data://0x18790314/wlog/%s", kNames[i]);
        m.iBuffSize = 4096;
        snprintf(m.szPattern, sizeof(m.szPattern), "../log/%s_mem.log", kNames[i]);
        m.dwSizeLimit = WLOGMEM_MIN_SIZE;
        break;
      }
    }
  }
  return c;
}

const WLOGCONF& conf() {
  static const WLOGCONF* s_pstConf = make_conf();
  return *s_pstConf;
}

const VIXMETA* conf_meta() {
  const VIXMETA* m = vix_get_meta_by_name(wlog_get_meta_data(), "WLOGCONF");
  if (m == nullptr) die("WLOGCONF meta", -1);
  return m;
}

std::string vix_text() {
  std::vector<char> out(1 << 20);
  VIXDATA o = {out.data(), out.size()};
  VIXDATA h = {reinterpret_cast<char*>(const_cast<WLOGCONF*>(&conf())), sizeof(WLOGCONF)};
  check("vix_sprintf", vix_sprintf(conf_meta(), &o, &h, 0));
  return std::string(out.data(), o.iBuff);
}

void BM_VixSprintf_WlogConf(benchmark::State& state) {
  const VIXMETA* m = conf_meta();
  std::vector<char> out(1 << 20);
  VIXDATA h = {reinterpret_cast<char*>(const_cast<WLOGCONF*>(&conf())), sizeof(WLOGCONF)};
  int64_t iBytes = 0;
  for (auto _ : state) {
    VIXDATA o = {out.data(), out.size()};
    if (vix_sprintf(m, &o, &h, 0) != 0) die("vix_sprintf", -1);
    iBytes += static_cast<int64_t>(o.iBuff);
    benchmark::DoNotOptimize(out.data());
  }
  state.SetBytesProcessed(iBytes);
}
BENCHMARK(BM_VixSprintf_WlogConf);

void BM_VixSscanf_WlogConf(benchmark::State& state) {
  const VIXMETA* m = conf_meta();
  const std::string sText = vix_text();
  WLOGCONF* pstBack = static_cast<WLOGCONF*>(calloc(1, sizeof(WLOGCONF)));
  if (pstBack == nullptr) die("calloc", -1);
  VIXPRINTFORMAT f;
  check("format", vix_get_default_format(&f));
  VIXDATA in = {const_cast<char*>(sText.data()), sText.size()};
  VIXDATA h = {reinterpret_cast<char*>(pstBack), sizeof(WLOGCONF)};
  for (auto _ : state) {
    if (vix_sscanf_ex(m, &h, &in, 0, &f) != 0) die("vix_sscanf_ex", -1);
    benchmark::DoNotOptimize(pstBack);
  }
  if (memcmp(pstBack, &conf(), sizeof(WLOGCONF)) != 0) die("read back", -1);
  free(pstBack);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(sText.size()));
}
BENCHMARK(BM_VixSscanf_WlogConf);

// A five-operator expression with two macro names.
void BM_VixMacroExpr(benchmark::State& state) {
  const VIXMETALIB* pstLib = wlog_get_meta_data();
  int iValue = 0;
  int iIdx = 0;
  for (auto _ : state) {
    if (vix_compute_macro_expr_int(&iValue, &iIdx, pstLib,
                                   "WLOG_MAX_CATEGORY*2+(WLOG_CONF_MAGIC-8)/4%7") != 0) {
      die("vix_compute_macro_expr_int", -1);
    }
    benchmark::DoNotOptimize(iValue);
  }
}
BENCHMARK(BM_VixMacroExpr);

#ifdef ZQ_HAVE_PROTOBUF
void to_proto(const INTFILTER& f, zqbench::IntFilter* p) {
  p->set_start(f.dwStart);
  p->set_count(f.dwCount);
  p->set_mod(f.nMod);
  p->set_res(f.nRes);
  p->set_mod_start(f.nModStart);
  p->set_mod_count(f.nModCount);
}

void to_proto(const WLOGFILTERVEC& v, zqbench::FilterVec* p) {
  p->set_count(v.iCount);
  for (int i = 0; i < v.iCount; ++i) {
    zqbench::Filter* f = p->add_filters();
    to_proto(v.astFilters[i].stIDFilter, f->mutable_id_filter());
    to_proto(v.astFilters[i].stClsFilter, f->mutable_cls_filter());
  }
}

void to_proto(const WLOGDEVFILE& f, zqbench::DevFile* p) {
  p->set_pattern(f.szPattern);
  p->set_buff_size(f.iBuffSize);
  p->set_size_limit(f.dwSizeLimit);
  p->set_precision(f.iPrecision);
  p->set_max_rotate(f.iMaxRotate);
  p->set_sync_time(f.iSyncTime);
  p->set_no_find_latest(f.iNoFindLatest);
  p->set_rotate_stick(f.iRotateStick);
  p->set_drop_binary_head(f.iDropBinaryHead);
}

void to_proto(const WLOGDEVNET& n, zqbench::DevNet* p) {
  p->set_url(n.szUrl);
  p->set_buff_size(n.iBuffSize);
  p->set_send_buff(n.iSendBuff);
  p->set_recv_buff(n.iRecvBuff);
  p->set_auto_reconnect(n.iAutoReconnect);
  p->set_max_retry(n.iMaxRetry);
  p->set_conn_timeout(n.iConnTimeout);
  p->set_send_timeout(n.iSendTimeout);
}

zqbench::Conf proto_conf() {
  const WLOGCONF& c = conf();
  zqbench::Conf p;
  p.set_magic(c.iMagic);
  p.set_priority_high(c.iPriorityHigh);
  p.set_priority_low(c.iPriorityLow);
  p.set_delay_init(c.iDelayInit);
  p.set_suppress_error(c.iSuppressError);
  p.set_async_dns_internal(c.iAsyncDnsInternal);
  p.set_count(c.iCount);
  for (int i = 0; i < c.iCount; ++i) {
    const WLOGCATEGORY& k = c.astCategoryList[i];
    zqbench::Category* pk = p.add_category_list();
    pk->set_name(k.szName);
    pk->set_priority_high(k.iPriorityHigh);
    pk->set_priority_low(k.iPriorityLow);
    to_proto(k.stFilter, pk->mutable_filter());
    pk->set_level_dispatch(k.iLevelDispatch);
    pk->set_must_succ(k.iMustSucc);
    pk->set_max_msg_size(k.iMaxMsgSize);
    pk->set_format(k.szFormat);
    pk->set_forward_cat(k.szForwardCat);
    zqbench::DevAny* d = pk->mutable_device();
    d->set_type(static_cast<zqbench::DevType>(k.stDevice.iType));
    const WLOGDEVSELECTOR& s = k.stDevice.stDevice;
    switch (k.stDevice.iType) {
      case WLOG_DEV_FILE:
        to_proto(s.stFile, d->mutable_file());
        break;
      case WLOG_DEV_NET:
        to_proto(s.stNet, d->mutable_net());
        break;
      case WLOG_DEV_TERM:
        d->mutable_term()->set_std_type(s.stTerm.iStdType);
        break;
      case WLOG_DEV_MEM: {
        zqbench::DevMem* m = d->mutable_mem();
        m->set_enable(s.stMem.iEnable);
        m->set_uri(s.stMem.szUri);
        m->set_buff_size(s.stMem.iBuffSize);
        m->set_pattern(s.stMem.szPattern);
        m->set_size_limit(s.stMem.dwSizeLimit);
        break;
      }
      case WLOG_DEV_VEC: {
        zqbench::DevVec* v = d->mutable_vec();
        v->set_inst(s.stVec.iInst);
        v->set_count(s.stVec.iCount);
        for (int e = 0; e < s.stVec.iCount; ++e) {
          const WLOGDEVELEMENT& el = s.stVec.astElements[e];
          zqbench::DevElement* pe = v->add_elements();
          pe->set_id(el.iID);
          pe->set_ctrl(el.iCtrl);
          to_proto(el.stFilterVec, pe->mutable_filter_vec());
          pe->set_type(static_cast<zqbench::DevType>(el.iType));
          if (el.iType == WLOG_DEV_FILE) to_proto(el.stDevice.stFile, pe->mutable_file());
          if (el.iType == WLOG_DEV_NET) to_proto(el.stDevice.stNet, pe->mutable_net());
        }
        break;
      }
      default:
        break;
    }
  }
  return p;
}

void BM_ProtobufPrintToString_WlogConf(benchmark::State& state) {
  const zqbench::Conf p = proto_conf();
  int64_t iBytes = 0;
  for (auto _ : state) {
    std::string s;
    if (!google::protobuf::TextFormat::PrintToString(p, &s)) die("PrintToString", -1);
    iBytes += static_cast<int64_t>(s.size());
    benchmark::DoNotOptimize(s.data());
  }
  state.SetBytesProcessed(iBytes);
}
BENCHMARK(BM_ProtobufPrintToString_WlogConf);

void BM_ProtobufParseFromString_WlogConf(benchmark::State& state) {
  std::string sText;
  if (!google::protobuf::TextFormat::PrintToString(proto_conf(), &sText)) die("print", -1);
  zqbench::Conf p;
  for (auto _ : state) {
    if (!google::protobuf::TextFormat::ParseFromString(sText, &p)) die("ParseFromString", -1);
    benchmark::DoNotOptimize(&p);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(sText.size()));
}
BENCHMARK(BM_ProtobufParseFromString_WlogConf);
#endif

}  // namespace

BENCHMARK_MAIN();
