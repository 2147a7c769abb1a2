// MD5 throughput of xcore::md5 on a 64 MiB buffer, against OpenSSL's MD5 on the same buffer.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "copy/quelld_xcore_md5.h"

#ifdef ZQ_HAVE_OPENSSL
#include <openssl/evp.h>
#endif

namespace {

const std::vector<unsigned char>& Buffer() {
  static const std::vector<unsigned char> buf = [] {
    std::vector<unsigned char> b(64u << 20);
    uint64_t x = 0x9E3779B97F4A7C15ull;
    for (auto& c : b) {
      x ^= x << 13;
      x ^= x >> 7;
      x ^= x << 17;
      c = static_cast<unsigned char>(x);
    }
    return b;
  }();
  return buf;
}

void BM_XcoreMd5_64MiB(benchmark::State& state) {
  const auto& buf = Buffer();
  for (auto _ : state) {
    unsigned char digest[16];
    xcore::md5(buf.data(), static_cast<xcore::uint32>(buf.size()), digest);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(buf.size()));
}
BENCHMARK(BM_XcoreMd5_64MiB)->Unit(benchmark::kMillisecond);

#ifdef ZQ_HAVE_OPENSSL
void BM_OpenSslMd5_64MiB(benchmark::State& state) {
  const auto& buf = Buffer();
  for (auto _ : state) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int len = 0;
    EVP_Digest(buf.data(), buf.size(), digest, &len, EVP_md5(), nullptr);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(buf.size()));
}
BENCHMARK(BM_OpenSslMd5_64MiB)->Unit(benchmark::kMillisecond);
#endif

// Small inputs: the per-call cost of setup and padding.
void BM_XcoreMd5_64B(benchmark::State& state) {
  const auto& buf = Buffer();
  for (auto _ : state) {
    unsigned char digest[16];
    xcore::md5(buf.data(), 64, digest);
    benchmark::DoNotOptimize(digest);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * 64);
}
BENCHMARK(BM_XcoreMd5_64B);

}  // namespace

BENCHMARK_MAIN();
