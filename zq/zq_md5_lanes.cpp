#include "zq/zq_md5_lanes.hpp"

#include <cstring>

// The lane vectors never cross a function boundary that is not inlined: the ABI note about
// passing them does not apply.
#if defined(__GNUC__)
#pragma GCC diagnostic ignored "-Wpsabi"
#endif

namespace zq {

namespace {

constexpr int k_lanes = 16;
using lanes = uint32_t __attribute__((vector_size(4 * k_lanes)));

template <int S>
[[gnu::always_inline]] inline lanes rotl(const lanes& v) {
  return (v << S) | (v >> (32 - S));
}
[[gnu::always_inline]] inline lanes f(const lanes& b, const lanes& c, const lanes& d) { return d ^ (b & (c ^ d)); }
[[gnu::always_inline]] inline lanes g(const lanes& b, const lanes& c, const lanes& d) { return (c & ~d) + (b & d); }
[[gnu::always_inline]] inline lanes h(const lanes& b, const lanes& c, const lanes& d) { return b ^ c ^ d; }
[[gnu::always_inline]] inline lanes i(const lanes& b, const lanes& c, const lanes& d) { return c ^ (b | ~d); }

[[gnu::always_inline]] inline void transform(lanes& ra, lanes& rb, lanes& rc, lanes& rd, const lanes* x) {
  lanes a = ra, b = rb, c = rc, d = rd;
    a = b + rotl<7>(a + f(b, c, d) + x[0] + 0xd76aa478u);
    d = a + rotl<12>(d + f(a, b, c) + x[1] + 0xe8c7b756u);
    c = d + rotl<17>(c + f(d, a, b) + x[2] + 0x242070dbu);
    b = c + rotl<22>(b + f(c, d, a) + x[3] + 0xc1bdceeeu);
    a = b + rotl<7>(a + f(b, c, d) + x[4] + 0xf57c0fafu);
    d = a + rotl<12>(d + f(a, b, c) + x[5] + 0x4787c62au);
    c = d + rotl<17>(c + f(d, a, b) + x[6] + 0xa8304613u);
    b = c + rotl<22>(b + f(c, d, a) + x[7] + 0xfd469501u);
    a = b + rotl<7>(a + f(b, c, d) + x[8] + 0x698098d8u);
    d = a + rotl<12>(d + f(a, b, c) + x[9] + 0x8b44f7afu);
    c = d + rotl<17>(c + f(d, a, b) + x[10] + 0xffff5bb1u);
    b = c + rotl<22>(b + f(c, d, a) + x[11] + 0x895cd7beu);
    a = b + rotl<7>(a + f(b, c, d) + x[12] + 0x6b901122u);
    d = a + rotl<12>(d + f(a, b, c) + x[13] + 0xfd987193u);
    c = d + rotl<17>(c + f(d, a, b) + x[14] + 0xa679438eu);
    b = c + rotl<22>(b + f(c, d, a) + x[15] + 0x49b40821u);
    a = b + rotl<5>(a + g(b, c, d) + x[1] + 0xf61e2562u);
    d = a + rotl<9>(d + g(a, b, c) + x[6] + 0xc040b340u);
    c = d + rotl<14>(c + g(d, a, b) + x[11] + 0x265e5a51u);
    b = c + rotl<20>(b + g(c, d, a) + x[0] + 0xe9b6c7aau);
    a = b + rotl<5>(a + g(b, c, d) + x[5] + 0xd62f105du);
    d = a + rotl<9>(d + g(a, b, c) + x[10] + 0x02441453u);
    c = d + rotl<14>(c + g(d, a, b) + x[15] + 0xd8a1e681u);
    b = c + rotl<20>(b + g(c, d, a) + x[4] + 0xe7d3fbc8u);
    a = b + rotl<5>(a + g(b, c, d) + x[9] + 0x21e1cde6u);
    d = a + rotl<9>(d + g(a, b, c) + x[14] + 0xc33707d6u);
    c = d + rotl<14>(c + g(d, a, b) + x[3] + 0xf4d50d87u);
    b = c + rotl<20>(b + g(c, d, a) + x[8] + 0x455a14edu);
    a = b + rotl<5>(a + g(b, c, d) + x[13] + 0xa9e3e905u);
    d = a + rotl<9>(d + g(a, b, c) + x[2] + 0xfcefa3f8u);
    c = d + rotl<14>(c + g(d, a, b) + x[7] + 0x676f02d9u);
    b = c + rotl<20>(b + g(c, d, a) + x[12] + 0x8d2a4c8au);
    a = b + rotl<4>(a + h(b, c, d) + x[5] + 0xfffa3942u);
    d = a + rotl<11>(d + h(a, b, c) + x[8] + 0x8771f681u);
    c = d + rotl<16>(c + h(d, a, b) + x[11] + 0x6d9d6122u);
    b = c + rotl<23>(b + h(c, d, a) + x[14] + 0xfde5380cu);
    a = b + rotl<4>(a + h(b, c, d) + x[1] + 0xa4beea44u);
    d = a + rotl<11>(d + h(a, b, c) + x[4] + 0x4bdecfa9u);
    c = d + rotl<16>(c + h(d, a, b) + x[7] + 0xf6bb4b60u);
    b = c + rotl<23>(b + h(c, d, a) + x[10] + 0xbebfbc70u);
    a = b + rotl<4>(a + h(b, c, d) + x[13] + 0x289b7ec6u);
    d = a + rotl<11>(d + h(a, b, c) + x[0] + 0xeaa127fau);
    c = d + rotl<16>(c + h(d, a, b) + x[3] + 0xd4ef3085u);
    b = c + rotl<23>(b + h(c, d, a) + x[6] + 0x04881d05u);
    a = b + rotl<4>(a + h(b, c, d) + x[9] + 0xd9d4d039u);
    d = a + rotl<11>(d + h(a, b, c) + x[12] + 0xe6db99e5u);
    c = d + rotl<16>(c + h(d, a, b) + x[15] + 0x1fa27cf8u);
    b = c + rotl<23>(b + h(c, d, a) + x[2] + 0xc4ac5665u);
    a = b + rotl<6>(a + i(b, c, d) + x[0] + 0xf4292244u);
    d = a + rotl<10>(d + i(a, b, c) + x[7] + 0x432aff97u);
    c = d + rotl<15>(c + i(d, a, b) + x[14] + 0xab9423a7u);
    b = c + rotl<21>(b + i(c, d, a) + x[5] + 0xfc93a039u);
    a = b + rotl<6>(a + i(b, c, d) + x[12] + 0x655b59c3u);
    d = a + rotl<10>(d + i(a, b, c) + x[3] + 0x8f0ccc92u);
    c = d + rotl<15>(c + i(d, a, b) + x[10] + 0xffeff47du);
    b = c + rotl<21>(b + i(c, d, a) + x[1] + 0x85845dd1u);
    a = b + rotl<6>(a + i(b, c, d) + x[8] + 0x6fa87e4fu);
    d = a + rotl<10>(d + i(a, b, c) + x[15] + 0xfe2ce6e0u);
    c = d + rotl<15>(c + i(d, a, b) + x[6] + 0xa3014314u);
    b = c + rotl<21>(b + i(c, d, a) + x[13] + 0x4e0811a1u);
    a = b + rotl<6>(a + i(b, c, d) + x[4] + 0xf7537e82u);
    d = a + rotl<10>(d + i(a, b, c) + x[11] + 0xbd3af235u);
    c = d + rotl<15>(c + i(d, a, b) + x[2] + 0x2ad7d2bbu);
    b = c + rotl<21>(b + i(c, d, a) + x[9] + 0xeb86d391u);
  ra += a;
  rb += b;
  rc += c;
  rd += d;
}

inline uint32_t load_le32(const uint8_t* p) {
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 | static_cast<uint32_t>(p[2]) << 16 |
         static_cast<uint32_t>(p[3]) << 24;
}

constexpr uint32_t k_iv[4] = {0x67452301, 0xefcdab89, 0x98badcfe, 0x10325476};

// What one lane is working on: the message's whole 64-byte blocks, then one or two blocks of
// its last bytes, the 0x80 marker, zeros and the bit length.
struct lane_work {
  md5_job* job = nullptr;
  const uint8_t* data = nullptr;
  uint32_t whole_blocks = 0;
  uint32_t total_blocks = 0;
  uint32_t next = 0;
  alignas(64) uint8_t tail[128];

  void start(md5_job* j) {
    job = j;
    data = j->data;
    whole_blocks = j->length / 64;
    const uint32_t rest = j->length % 64;
    const uint32_t tail_blocks = rest < 56 ? 1 : 2;
    total_blocks = whole_blocks + tail_blocks;
    next = 0;
    std::memset(tail, 0, sizeof tail);
    std::memcpy(tail, data + 64u * whole_blocks, rest);
    tail[rest] = 0x80;
    const uint64_t bits = static_cast<uint64_t>(j->length) * 8;
    for (int k = 0; k < 8; ++k) tail[64 * tail_blocks - 8 + k] = static_cast<uint8_t>(bits >> (8 * k));
  }
  const uint8_t* block() const { return next < whole_blocks ? data + 64u * next : tail + 64u * (next - whole_blocks); }
};

[[gnu::always_inline]] inline void run(md5_job* jobs, size_t count) {
  static const uint8_t idle_block[64] = {};
  lane_work work[k_lanes];
  lanes a, b, c, d;
  size_t next_job = 0;
  int active = 0;
  auto take_job = [&](int lane) {
    while (next_job < count) {
      md5_job* j = &jobs[next_job++];
      if (j->data == nullptr || j->length == 0) {
        j->ok = false;
        continue;
      }
      work[lane].start(j);
      a[lane] = k_iv[0];
      b[lane] = k_iv[1];
      c[lane] = k_iv[2];
      d[lane] = k_iv[3];
      ++active;
      return;
    }
    work[lane].job = nullptr;
  };
  for (int lane = 0; lane < k_lanes; ++lane) {
    a[lane] = b[lane] = c[lane] = d[lane] = 0;
    take_job(lane);
  }
  while (active > 0) {
    const uint8_t* blocks[k_lanes];
    for (int lane = 0; lane < k_lanes; ++lane) blocks[lane] = work[lane].job ? work[lane].block() : idle_block;
    lanes x[16];
    for (int w = 0; w < 16; ++w)
      for (int lane = 0; lane < k_lanes; ++lane) x[w][lane] = load_le32(blocks[lane] + 4 * w);
    transform(a, b, c, d, x);
    for (int lane = 0; lane < k_lanes; ++lane) {
      lane_work& lw = work[lane];
      if (lw.job == nullptr || ++lw.next < lw.total_blocks) continue;
      const uint32_t words[4] = {a[lane], b[lane], c[lane], d[lane]};
      for (int k = 0; k < 4; ++k)
        for (int byte = 0; byte < 4; ++byte) lw.job->digest[4 * k + byte] = static_cast<uint8_t>(words[k] >> (8 * byte));
      lw.job->ok = true;
      --active;
      take_job(lane);
    }
  }
}

__attribute__((target("avx512f,avx512vl"))) void run_avx512(md5_job* jobs, size_t count) { run(jobs, count); }
__attribute__((target("avx2"))) void run_avx2(md5_job* jobs, size_t count) { run(jobs, count); }
void run_baseline(md5_job* jobs, size_t count) { run(jobs, count); }

using runner = void (*)(md5_job*, size_t);

runner pick_runner() {
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512vl")) return run_avx512;
  if (__builtin_cpu_supports("avx2")) return run_avx2;
  return run_baseline;
}

}  // namespace

void md5_many(md5_job* jobs, size_t count) noexcept {
  static const runner chosen = pick_runner();
  chosen(jobs, count);
}

}  // namespace zq
