#include "workload/workload.hpp"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <memory>

namespace varn_bench {

namespace {

// ---------------------------------------------------------------------------------------------
// Random numbers: xoshiro256** seeded through splitmix64. Only integer arithmetic is used, so a
// seed gives the same bytes on every platform and with every standard library.

class rng {
 public:
  explicit rng(uint64_t seed) noexcept {
    uint64_t x = seed;
    for (uint64_t& w : m_s) {
      x += 0x9e3779b97f4a7c15ull;
      uint64_t z = x;
      z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
      z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
      w = z ^ (z >> 31);
    }
  }

  uint64_t next() noexcept {
    const uint64_t result = rotl(m_s[1] * 5, 7) * 9;
    const uint64_t t = m_s[1] << 17;
    m_s[2] ^= m_s[0];
    m_s[3] ^= m_s[1];
    m_s[1] ^= m_s[2];
    m_s[0] ^= m_s[3];
    m_s[2] ^= t;
    m_s[3] = rotl(m_s[3], 45);
    return result;
  }

  // Uniform in [0, N), N > 0: multiply-shift with rejection, so without modulo bias.
  uint32_t below(uint32_t n) noexcept {
    uint64_t m = (next() >> 32) * n;
    uint32_t low = static_cast<uint32_t>(m);
    if (low < n) {
      const uint32_t threshold = static_cast<uint32_t>(0u - n) % n;
      while (low < threshold) {
        m = (next() >> 32) * n;
        low = static_cast<uint32_t>(m);
      }
    }
    return static_cast<uint32_t>(m >> 32);
  }

  // Uniform in [LO, HI].
  uint32_t between(uint32_t lo, uint32_t hi) noexcept { return lo + below(hi - lo + 1); }
  // True PER_MILLE times in a thousand.
  bool chance(uint32_t per_mille) noexcept { return below(1000) < per_mille; }
  uint8_t byte() noexcept { return static_cast<uint8_t>(next() >> 56); }

  void fill(uint8_t* p, size_t n) noexcept {
    while (n >= 8) {
      uint64_t v = next();
      for (int i = 0; i < 8; ++i, v >>= 8) *p++ = static_cast<uint8_t>(v);
      n -= 8;
    }
    uint64_t v = next();
    for (; n > 0; --n, v >>= 8) *p++ = static_cast<uint8_t>(v);
  }

  // Picks an index by weights (their sum must be above 0).
  template <size_t N>
  size_t pick(const std::array<uint32_t, N>& weights) noexcept {
    uint32_t total = 0;
    for (uint32_t w : weights) total += w;
    uint32_t r = below(total);
    for (size_t i = 0; i < N; ++i) {
      if (r < weights[i]) return i;
      r -= weights[i];
    }
    return N - 1;
  }

 private:
  static uint64_t rotl(uint64_t x, int k) noexcept { return (x << k) | (x >> (64 - k)); }
  uint64_t m_s[4];
};

// ---------------------------------------------------------------------------------------------
// Frame bytes.

class packet {
 public:
  // The payload was built to pass varn's randomness test.
  bool flagged = false;

  void clear() noexcept {
    m_bytes.clear();
    flagged = false;
  }
  size_t size() const noexcept { return m_bytes.size(); }
  const uint8_t* data() const noexcept { return m_bytes.data(); }
  uint8_t* data() noexcept { return m_bytes.data(); }

  void u8(uint8_t v) { m_bytes.push_back(v); }
  void be16(uint32_t v) {
    u8(static_cast<uint8_t>(v >> 8));
    u8(static_cast<uint8_t>(v));
  }
  void be32(uint32_t v) {
    be16(v >> 16);
    be16(v & 0xffff);
  }
  void append(const uint8_t* p, size_t n) { m_bytes.insert(m_bytes.end(), p, p + n); }
  void append(const char* text) { append(reinterpret_cast<const uint8_t*>(text), std::strlen(text)); }
  void zeros(size_t n) { m_bytes.resize(m_bytes.size() + n, 0); }
  // N new bytes at the end, for the caller to fill.
  uint8_t* grow(size_t n) {
    const size_t at = m_bytes.size();
    m_bytes.resize(at + n);
    return m_bytes.data() + at;
  }
  void truncate(size_t n) {
    if (n < m_bytes.size()) m_bytes.resize(n);
  }
  void set_be16(size_t at, uint32_t v) noexcept {
    m_bytes[at] = static_cast<uint8_t>(v >> 8);
    m_bytes[at + 1] = static_cast<uint8_t>(v);
  }

 private:
  std::vector<uint8_t> m_bytes;
};

struct mac_addr {
  uint8_t b[6];
};
struct ip4_addr {
  uint8_t b[4];
};
struct ip6_addr {
  uint8_t b[16];
};

// A dual-stack machine: its IPv4 address, its global and link-local IPv6 addresses, its MAC.
struct host {
  ip4_addr v4;
  ip6_addr v6;
  ip6_addr link_local;
  mac_addr hw;
};

constexpr uint16_t ethertype_ipv4 = 0x0800;
constexpr uint16_t ethertype_ipv6 = 0x86DD;
constexpr uint16_t ethertype_arp = 0x0806;
constexpr uint16_t ethertype_vlan = 0x8100;
constexpr uint16_t ethertype_lldp = 0x88CC;
constexpr uint8_t proto_icmp = 1;
constexpr uint8_t proto_tcp = 6;
constexpr uint8_t proto_udp = 17;
constexpr uint8_t proto_icmpv6 = 58;
constexpr uint8_t proto_hop_by_hop = 0;

uint32_t sum16(const uint8_t* p, size_t n, uint32_t sum = 0) noexcept {
  for (; n >= 2; p += 2, n -= 2) sum += static_cast<uint32_t>(p[0] << 8 | p[1]);
  if (n == 1) sum += static_cast<uint32_t>(p[0] << 8);
  return sum;
}

uint16_t fold(uint32_t sum) noexcept {
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum & 0xffff);
}

void put_ethernet(packet& p, const mac_addr& dst, const mac_addr& src, uint16_t type) {
  p.append(dst.b, 6);
  p.append(src.b, 6);
  p.be16(type);
}

// IPv4 header with IHL words (5, or 6 with a router-alert option); returns its offset.
size_t begin_ipv4(packet& p, uint8_t protocol, uint8_t ttl, uint16_t ident, const ip4_addr& src,
                  const ip4_addr& dst, uint8_t ihl = 5, bool dont_fragment = true) {
  const size_t at = p.size();
  p.u8(static_cast<uint8_t>(0x40 | ihl));
  p.u8(0);      // DSCP / ECN
  p.be16(0);    // total length, set by end_ipv4
  p.be16(ident);
  p.be16(dont_fragment ? 0x4000 : 0);
  p.u8(ttl);
  p.u8(protocol);
  p.be16(0);    // checksum, set by end_ipv4
  p.append(src.b, 4);
  p.append(dst.b, 4);
  if (ihl == 6) p.be32(0x94040000);  // router alert
  return at;
}

void end_ipv4(packet& p, size_t ip_at) {
  const size_t ihl_bytes = 4u * (p.data()[ip_at] & 0x0f);
  p.set_be16(ip_at + 2, static_cast<uint32_t>(p.size() - ip_at));
  p.set_be16(ip_at + 10, 0);
  p.set_be16(ip_at + 10, fold(sum16(p.data() + ip_at, ihl_bytes)));
}

size_t begin_ipv6(packet& p, uint8_t next_header, uint8_t hop_limit, const ip6_addr& src,
                  const ip6_addr& dst, uint32_t flow_label = 0) {
  const size_t at = p.size();
  p.be32(0x60000000u | (flow_label & 0xfffff));
  p.be16(0);  // payload length, set by end_ipv6
  p.u8(next_header);
  p.u8(hop_limit);
  p.append(src.b, 16);
  p.append(dst.b, 16);
  return at;
}

void end_ipv6(packet& p, size_t ip_at) { p.set_be16(ip_at + 4, static_cast<uint32_t>(p.size() - ip_at - 40)); }

uint32_t pseudo_v4(const packet& p, size_t ip_at, uint8_t protocol, size_t length) {
  uint32_t sum = sum16(p.data() + ip_at + 12, 8);
  return sum + protocol + static_cast<uint32_t>(length);
}

uint32_t pseudo_v6(const packet& p, size_t ip_at, uint8_t next_header, size_t length) {
  uint32_t sum = sum16(p.data() + ip_at + 8, 32);
  return sum + static_cast<uint32_t>(length >> 16) + static_cast<uint32_t>(length & 0xffff) + next_header;
}

// ICMP / ICMPv6 header: type, code, checksum, then REST in bytes 4 to 7.
size_t begin_icmp(packet& p, uint8_t type, uint8_t code, uint32_t rest) {
  const size_t at = p.size();
  p.u8(type);
  p.u8(code);
  p.be16(0);
  p.be32(rest);
  return at;
}

void end_icmp4(packet& p, size_t icmp_at) {
  p.set_be16(icmp_at + 2, 0);
  p.set_be16(icmp_at + 2, fold(sum16(p.data() + icmp_at, p.size() - icmp_at)));
}

void end_icmp6(packet& p, size_t ip_at, size_t icmp_at) {
  const size_t n = p.size() - icmp_at;
  p.set_be16(icmp_at + 2, 0);
  p.set_be16(icmp_at + 2, fold(sum16(p.data() + icmp_at, n, pseudo_v6(p, ip_at, proto_icmpv6, n))));
}

uint32_t echo_rest(uint16_t id, uint16_t seq) { return static_cast<uint32_t>(id) << 16 | seq; }

// TCP header: 32 bytes with the timestamps option, 40 for a SYN with its options, 20 without
// options (OPTIONS false).
size_t begin_tcp(packet& p, uint16_t sport, uint16_t dport, uint32_t seq, uint32_t ack, uint8_t flags,
                 uint16_t window, uint32_t ts_value, bool options = true) {
  const size_t at = p.size();
  const bool syn = (flags & 0x02) != 0;
  const size_t header = !options ? 20 : syn ? 40 : 32;
  p.be16(sport);
  p.be16(dport);
  p.be32(seq);
  p.be32(ack);
  p.u8(static_cast<uint8_t>((header / 4) << 4));
  p.u8(flags);
  p.be16(window);
  p.be16(0);  // checksum
  p.be16(0);  // urgent pointer
  if (!options) {
    // none
  } else if (syn) {
    p.be32(0x020405b4);  // MSS 1460
    p.be32(0x0402080a);  // SACK permitted, timestamps
    p.be32(ts_value);
    p.be32(0);
    p.be32(0x01030307);  // NOP, window scale 7
  } else {
    p.be32(0x0101080a);  // NOP, NOP, timestamps
    p.be32(ts_value);
    p.be32(ts_value - 1234);
  }
  return at;
}

size_t begin_udp(packet& p, uint16_t sport, uint16_t dport) {
  const size_t at = p.size();
  p.be16(sport);
  p.be16(dport);
  p.be16(0);  // length
  p.be16(0);  // checksum
  return at;
}

// Sets the UDP length (when UDP) and the TCP/UDP checksum over the pseudo header.
void end_transport(packet& p, size_t ip_at, size_t l4_at, uint8_t protocol, bool v6) {
  const size_t n = p.size() - l4_at;
  if (protocol == proto_udp) p.set_be16(l4_at + 4, static_cast<uint32_t>(n));
  const size_t csum_at = l4_at + (protocol == proto_udp ? 6 : 16);
  p.set_be16(csum_at, 0);
  const uint32_t pseudo = v6 ? pseudo_v6(p, ip_at, protocol, n) : pseudo_v4(p, ip_at, protocol, n);
  uint16_t c = fold(sum16(p.data() + l4_at, n, pseudo));
  if (protocol == proto_udp && c == 0) c = 0xffff;
  p.set_be16(csum_at, c);
}

// ---------------------------------------------------------------------------------------------
// Payload contents.

void fill_random(packet& p, rng& r, size_t n) { r.fill(p.grow(n), n); }

// What a Unix ping sends: a 16-byte timeval, then the bytes 0x10, 0x11, ... (low 8 bits).
void fill_ping_unix(packet& p, uint64_t time_us, size_t n) {
  uint8_t* d = p.grow(n);
  uint8_t tv[16] = {};
  const uint64_t sec = time_us / 1000000, usec = time_us % 1000000;
  for (int i = 0; i < 8; ++i) {
    tv[i] = static_cast<uint8_t>(sec >> (8 * i));
    tv[8 + i] = static_cast<uint8_t>(usec >> (8 * i));
  }
  for (size_t i = 0; i < n; ++i) d[i] = i < 16 ? tv[i] : static_cast<uint8_t>(i);
}

// What a Windows ping sends: the alphabet run "abcdefghijklmnopqrstuvw" repeated.
void fill_ping_windows(packet& p, size_t n) {
  static const char alphabet[] = "abcdefghijklmnopqrstuvw";
  uint8_t* d = p.grow(n);
  for (size_t i = 0; i < n; ++i) d[i] = static_cast<uint8_t>(alphabet[i % 23]);
}

// N bytes (N = 256 or N >= 512) in which every byte value occurs N / 256 or N / 256 + 1 times,
// shuffled: the bin counts differ by at most one and the extra values come in pairs v, 255 - v,
// so the mean stays near 127.5 and varn reports the payload as high-entropy.
void fill_balanced(packet& p, rng& r, size_t n) {
  uint8_t* d = p.grow(n);
  size_t i = 0;
  for (; i + 256 <= n; i += 256)
    for (int v = 0; v < 256; ++v) d[i + static_cast<size_t>(v)] = static_cast<uint8_t>(v);
  const size_t extra = n - i;  // below 256
  uint8_t half[128];
  for (int v = 0; v < 128; ++v) half[v] = static_cast<uint8_t>(v);
  for (int v = 127; v > 0; --v) std::swap(half[v], half[r.below(static_cast<uint32_t>(v) + 1)]);
  size_t e = 0;
  for (size_t j = 0; e + 2 <= extra; ++j) {
    d[i + e++] = half[j];
    d[i + e++] = static_cast<uint8_t>(255 - half[j]);
  }
  if (e < extra) d[i + e] = half[extra / 2];  // a value no pair used
  for (size_t k = n - 1; k > 0; --k) std::swap(d[k], d[r.below(static_cast<uint32_t>(k) + 1)]);
}

bool can_balance(size_t n) { return n == 256 || n >= 512; }

const char* const k_text_lines[] = {
    "GET /index.html HTTP/1.1\r\n",
    "Host: www.example.com\r\n",
    "User-Agent: Mozilla/5.0 (X11; Linux x86_64; rv:109.0) Gecko/20100101 Firefox/115.0\r\n",
    "Accept: text/html,application/xhtml+xml;q=0.9,*/*;q=0.8\r\n",
    "Accept-Language: en-US,en;q=0.5\r\n",
    "Connection: keep-alive\r\n\r\n",
    "HTTP/1.1 200 OK\r\nContent-Type: text/html; charset=utf-8\r\n",
    "<html><head><title>Device status</title></head><body><table>",
    "<tr><td>uptime</td><td>31 days, 4:02</td></tr>",
    "{\"id\":4711,\"state\":\"ok\",\"temperature\":41.5,\"fan\":[1200,1180]}\n",
    "Mar 14 09:26:53 gw01 sshd[2231]: Accepted publickey for backup from 192.0.2.44 port 52214\n",
    "user=operator&session=8f14e45fceea167a5a36dedd4bea2543&action=list\n",
};

void fill_text(packet& p, rng& r, size_t n) {
  uint8_t* d = p.grow(n);
  size_t i = 0;
  while (i < n) {
    const char* line = k_text_lines[r.below(sizeof k_text_lines / sizeof k_text_lines[0])];
    const size_t len = std::min(std::strlen(line), n - i);
    std::memcpy(d + i, line, len);
    i += len;
  }
}

const char* const k_wide_texts[] = {
    "\\\\fileserver\\share\\reports\\q3-summary.docx",
    "C:\\Windows\\System32\\drivers\\etc\\hosts",
    "WORKGROUP\\ACCOUNTING-PC",
    "Microsoft Windows Network",
};

// Binary bytes with an ascii line and a UTF-16LE text in them, the way tunnelled or proprietary
// traffic often looks.
void fill_mixed_text(packet& p, rng& r, size_t n) {
  uint8_t* d = p.grow(n);
  r.fill(d, n);
  size_t i = n > 16 ? r.below(static_cast<uint32_t>(std::min<size_t>(n / 4, 64))) : 0;
  const char* ascii = k_text_lines[r.below(sizeof k_text_lines / sizeof k_text_lines[0])];
  for (const char* c = ascii; *c != '\0' && i < n; ++c) d[i++] = static_cast<uint8_t>(*c);
  if (i < n) d[i++] = 0;
  const char* wide = k_wide_texts[r.below(sizeof k_wide_texts / sizeof k_wide_texts[0])];
  for (const char* c = wide; *c != '\0' && i + 1 < n; ++c) {
    d[i++] = static_cast<uint8_t>(*c);
    d[i++] = 0;
  }
}

// ---------------------------------------------------------------------------------------------
// The file.

constexpr uint32_t k_snaplen = 65535;

class capture_file {
 public:
  capture_file(byte_sink& sink, const workload_spec& spec, workload_summary& summary)
      : m_sink(sink), m_spec(spec), m_summary(summary) {
    m_buffer.reserve(k_flush_at + 70000);
  }
  ~capture_file() { flush(); }

  bool write_header() {
    put_le32(0xA1B2C3D4);
    put_le16(2);
    put_le16(4);
    put_le32(0);  // thiszone
    put_le32(0);  // sigfigs
    put_le32(k_snaplen);
    put_le32(1);  // Ethernet
    m_summary.bytes += 24;
    return flush();
  }

  // Room for a record of N frame bytes under the limits?
  bool fits(size_t n) const noexcept {
    if (m_spec.frames != 0 && m_summary.records >= m_spec.frames) return false;
    if (m_spec.size != 0 && m_summary.bytes + 16 + n > m_spec.size) return false;
    if (m_spec.size == 0 && m_spec.frames == 0 && m_spec.kind != workload_kind::sample) return false;
    return !m_failed;
  }

  // Appends the record when it fits; false when it does not (nothing written) or on a sink error.
  bool record(uint64_t time_us, const packet& frame) {
    if (!fits(frame.size())) return false;
    const uint32_t n = static_cast<uint32_t>(frame.size());
    put_le32(static_cast<uint32_t>(time_us / 1000000));
    put_le32(static_cast<uint32_t>(time_us % 1000000));
    put_le32(n);
    put_le32(n);
    m_buffer.insert(m_buffer.end(), frame.data(), frame.data() + n);
    m_summary.bytes += 16 + n;
    ++m_summary.records;
    count_icmp(frame);
    if (m_buffer.size() >= k_flush_at) return flush();
    return true;
  }

  bool flush() {
    if (m_buffer.empty() || m_failed) return !m_failed;
    if (!m_sink.write(m_buffer.data(), m_buffer.size())) m_failed = true;
    m_buffer.clear();
    return !m_failed;
  }

  bool failed() const noexcept { return m_failed; }
  workload_summary& summary() noexcept { return m_summary; }

 private:
  static constexpr size_t k_flush_at = 1u << 20;

  void put_le16(uint32_t v) {
    m_buffer.push_back(static_cast<uint8_t>(v));
    m_buffer.push_back(static_cast<uint8_t>(v >> 8));
  }
  void put_le32(uint32_t v) {
    put_le16(v & 0xffff);
    put_le16(v >> 16);
  }

  // Counts the frames varn keeps: Ethernet II IPv4 protocol 1, or IPv6 next header 58.
  void count_icmp(const packet& f) {
    if (f.size() < 24) return;
    const uint8_t* d = f.data();
    const uint32_t type = static_cast<uint32_t>(d[12] << 8 | d[13]);
    size_t header = 0;
    if (type == ethertype_ipv4 && d[23] == proto_icmp)
      header = 22 + 4u * (d[14] & 0x0f);
    else if (type == ethertype_ipv6 && d[20] == proto_icmpv6)
      header = 62;
    else
      return;
    ++m_summary.icmp_frames;
    if (f.size() > header) m_summary.icmp_payload_bytes += f.size() - header;
    if (f.flagged) ++m_summary.flagged_payloads;
  }

  byte_sink& m_sink;
  const workload_spec& m_spec;
  workload_summary& m_summary;
  std::vector<uint8_t> m_buffer;
  bool m_failed = false;
};

// ---------------------------------------------------------------------------------------------
// The network: a LAN behind one router, talking to remote servers.

ip4_addr v4(uint8_t a, uint8_t b, uint8_t c, uint8_t d) { return ip4_addr{{a, b, c, d}}; }

ip6_addr v6_from(uint16_t g0, uint16_t g1, uint16_t g2, uint16_t g3, uint64_t interface_id) {
  ip6_addr a{};
  const uint16_t g[4] = {g0, g1, g2, g3};
  for (int i = 0; i < 4; ++i) {
    a.b[2 * i] = static_cast<uint8_t>(g[i] >> 8);
    a.b[2 * i + 1] = static_cast<uint8_t>(g[i]);
  }
  for (int i = 0; i < 8; ++i) a.b[8 + i] = static_cast<uint8_t>(interface_id >> (56 - 8 * i));
  return a;
}

// Solicited-node multicast address of TARGET and its Ethernet group address.
ip6_addr solicited_node(const ip6_addr& target) {
  ip6_addr a = v6_from(0xff02, 0, 0, 0, 0x00000001ff000000ull);
  a.b[13] = target.b[13];
  a.b[14] = target.b[14];
  a.b[15] = target.b[15];
  return a;
}

mac_addr multicast_mac(const ip6_addr& group) {
  return mac_addr{{0x33, 0x33, group.b[12], group.b[13], group.b[14], group.b[15]}};
}

const ip6_addr k_all_nodes = v6_from(0xff02, 0, 0, 0, 1);
const ip6_addr k_all_routers = v6_from(0xff02, 0, 0, 0, 2);
const ip6_addr k_mld_routers = v6_from(0xff02, 0, 0, 0, 0x16);
const ip6_addr k_mdns6 = v6_from(0xff02, 0, 0, 0, 0xfb);
const mac_addr k_broadcast{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};

class network {
 public:
  explicit network(rng& r) {
    m_router = make_host(r, 1, 0x10);
    for (uint32_t i = 0; i < 48; ++i) m_local.push_back(make_host(r, static_cast<uint8_t>(20 + i), 0x10));
    const uint8_t remote_nets[3][3] = {{192, 0, 2}, {198, 51, 100}, {203, 0, 113}};
    for (uint32_t i = 0; i < 180; ++i) {
      host h;
      const uint8_t* net = remote_nets[i % 3];
      h.v4 = v4(net[0], net[1], net[2], static_cast<uint8_t>(2 + i / 3));
      h.v6 = v6_from(0x2001, 0xdb8, static_cast<uint16_t>(0xff00 + i % 7), static_cast<uint16_t>(i), 0x80 + i);
      h.link_local = h.v6;
      h.hw = m_router.hw;  // remote machines are reached through the router
      m_remote.push_back(h);
    }
  }

  const host& router() const noexcept { return m_router; }
  const host& local(rng& r) const noexcept {
    // A few busy machines and a long tail.
    const uint32_t n = static_cast<uint32_t>(m_local.size());
    const uint32_t i = r.chance(600) ? r.below(6) : r.below(n);
    return m_local[i];
  }
  const host& remote(rng& r) const noexcept {
    const uint32_t n = static_cast<uint32_t>(m_remote.size());
    const uint32_t i = r.chance(500) ? r.below(12) : r.below(n);
    return m_remote[i];
  }

 private:
  static host make_host(rng& r, uint8_t last, uint16_t subnet) {
    host h;
    h.v4 = v4(192, 168, static_cast<uint8_t>(subnet), last);
    const uint64_t iid = (static_cast<uint64_t>(r.next()) & 0x00ffffffffffffffull) | 0x0200000000000000ull;
    h.v6 = v6_from(0x2001, 0xdb8, subnet, 0, iid);
    h.link_local = v6_from(0xfe80, 0, 0, 0, iid);
    h.hw = mac_addr{{0x00, 0x1c, 0x42, r.byte(), r.byte(), last}};
    return h;
  }

  host m_router;
  std::vector<host> m_local;
  std::vector<host> m_remote;
};

// Two ends of a conversation as frames carry them.
struct path {
  const host* a;      // the sender
  const host* b;      // the receiver
  mac_addr eth_src;
  mac_addr eth_dst;
};

// ---------------------------------------------------------------------------------------------
// Traffic.

class traffic {
 public:
  traffic(const workload_spec& spec, capture_file& file)
      : m_spec(spec), m_file(file), m_rng(spec.seed), m_net(m_rng) {
    m_now_us = 1678786013ull * 1000000ull + m_rng.below(1000000);  // 2023-03-14 09:26:53 UTC
  }

  void run() {
    switch (m_spec.kind) {
      case workload_kind::mixed:
        loop([this](packet& f) { mixed_frame(f); }, 200, 900);
        break;
      case workload_kind::icmp:
        loop([this](packet& f) { icmp_only_frame(f); }, 300, 1500);
        break;
      case workload_kind::small:
        loop([this](packet& f) { small_frame(f); }, 40, 120);
        break;
      case workload_kind::sample:
        sample();
        break;
      case workload_kind::sweep:
        sweep();
        break;
    }
  }

  // One scanner on the LAN pings 10.0.0.1, 10.0.0.2, ... in turn, a request every 50 us; a
  // target that is up (60 %) answers within 45 us. Every target is one conversation, all
  // within one minute of capture time until the 1,200,000th.
  void sweep() {
    host scanner = m_net.router();
    scanner.v4 = v4(192, 168, 1, 50);
    host target = m_net.router();
    packet f;
    for (uint32_t i = 1; !m_file.failed(); ++i) {
      target.v4 = v4(10, static_cast<uint8_t>(i >> 16), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i));
      const path p{&scanner, &target, scanner.hw, m_net.router().hw};
      const uint16_t id = static_cast<uint16_t>(0x4000 + (i & 0x3fff));
      m_now_us += 50;
      icmp4(f, p, 8, 0, echo_rest(id, 1), fill::unix_ping, 56);
      if (!m_file.record(m_now_us, f)) break;
      if (!m_rng.chance(600)) continue;
      const path back = reversed(p);
      icmp4(f, back, 0, 0, echo_rest(id, 1), fill::unix_ping, 56);
      if (!m_file.record(m_now_us + m_rng.between(10, 45), f)) break;
    }
  }

 private:
  struct pending {
    uint64_t due;  // record count at which it is sent
    packet frame;
  };

  // Writes frames until a limit is reached; the mean gap between frames is about MEAN_GAP_US,
  // with bursts of back-to-back frames, and MAX_GAP_US bounds a quiet gap.
  template <typename Make>
  void loop(Make make, uint32_t mean_gap_us, uint32_t max_gap_us) {
    packet f;
    while (!m_file.failed()) {
      advance_clock(mean_gap_us, max_gap_us);
      if (!take_pending(f)) make(f);
      if (!m_file.record(m_now_us, f)) break;
    }
  }

  void advance_clock(uint32_t mean_gap_us, uint32_t max_gap_us) {
    if (m_rng.chance(300))
      m_now_us += m_rng.below(12);  // a burst
    else
      m_now_us += m_rng.between(mean_gap_us / 4, std::max(mean_gap_us / 4, max_gap_us));
  }

  bool take_pending(packet& f) {
    const uint64_t now = m_file.summary().records;
    for (size_t i = 0; i < m_pending.size(); ++i) {
      if (m_pending[i].due <= now) {
        std::swap(f, m_pending[i].frame);
        m_pending.erase(m_pending.begin() + static_cast<std::ptrdiff_t>(i));
        return true;
      }
    }
    return false;
  }

  void queue_reply(packet&& reply, uint32_t min_delay, uint32_t max_delay) {
    if (m_pending.size() >= 64) return;  // the peer is too busy to answer
    m_pending.push_back({m_file.summary().records + m_rng.between(min_delay, max_delay), std::move(reply)});
  }

  path lan_to_wan() {
    const host& l = m_net.local(m_rng);
    const host& w = m_net.remote(m_rng);
    return path{&l, &w, l.hw, m_net.router().hw};
  }
  path wan_to_lan() {
    const path p = lan_to_wan();
    return path{p.b, p.a, p.eth_dst, p.eth_src};
  }
  path lan_to_lan() {
    const host& x = m_net.local(m_rng);
    const host* y = &m_net.local(m_rng);
    if (y == &x) y = &m_net.router();
    return path{&x, y, x.hw, y->hw};
  }
  path any_path() {
    const uint32_t k = m_rng.below(10);
    if (k < 4) return lan_to_wan();
    if (k < 8) return wan_to_lan();
    return lan_to_lan();
  }
  static path reversed(const path& p) { return path{p.b, p.a, p.eth_dst, p.eth_src}; }

  uint16_t next_ip_id() { return static_cast<uint16_t>(m_ip_id += 1 + m_rng.below(3)); }
  uint16_t ephemeral_port() { return static_cast<uint16_t>(m_rng.between(32768, 60999)); }

  // ---- ICMP over IPv4.

  enum class fill { unix_ping, windows_ping, random, balanced, text, mixed_text, syslog, ntp };

  void fill_payload(packet& f, fill kind, size_t n) {
    switch (kind) {
      case fill::unix_ping:
        fill_ping_unix(f, m_now_us, n);
        break;
      case fill::windows_ping:
        fill_ping_windows(f, n);
        break;
      case fill::random:
        fill_random(f, m_rng, n);
        break;
      case fill::balanced:
        if (can_balance(n)) {
          fill_balanced(f, m_rng, n);
          f.flagged = true;
        } else {
          fill_random(f, m_rng, n);
        }
        break;
      case fill::text:
        fill_text(f, m_rng, n);
        break;
      case fill::mixed_text:
        fill_mixed_text(f, m_rng, n);
        break;
      case fill::syslog: {
        static const char line[] = "<13>Mar 14 09:26:53 sensor7 temp=41.5 fan=1200 status=ok";
        uint8_t* d = f.grow(n);
        for (size_t i = 0; i < n; ++i) d[i] = static_cast<uint8_t>(line[i % (sizeof line - 1)]);
        break;
      }
      case fill::ntp:  // version 4, client or server mode, then the fields
        fill_random(f, m_rng, n);
        if (n > 0) f.data()[f.size() - n] = m_rng.chance(500) ? 0x23 : 0x24;
        if (n > 1) f.data()[f.size() - n + 1] = 2;
        break;
    }
  }

  void icmp4(packet& f, const path& p, uint8_t type, uint8_t code, uint32_t rest, fill kind, size_t n,
             uint8_t ihl = 5, uint8_t ttl = 64) {
    f.clear();
    put_ethernet(f, p.eth_dst, p.eth_src, ethertype_ipv4);
    const size_t ip = begin_ipv4(f, proto_icmp, ttl, next_ip_id(), p.a->v4, p.b->v4, ihl);
    const size_t ic = begin_icmp(f, type, code, rest);
    fill_payload(f, kind, n);
    end_icmp4(f, ic);
    end_ipv4(f, ip);
  }

  // An ICMP error from P.a about a datagram that P.b had sent: the quoted original IPv4 header
  // and as much of the datagram as QUOTE allows (at least its first 8 bytes).
  void icmp4_error(packet& f, const path& p, uint8_t type, uint8_t code, uint32_t rest, size_t quote,
                   uint8_t original_ttl = 63) {
    packet orig;
    const path back = reversed(p);
    const host* dst = p.a == &m_net.router() ? &m_net.remote(m_rng) : p.a;
    orig.clear();
    const size_t ip = begin_ipv4(orig, proto_udp, original_ttl, next_ip_id(), back.a->v4, dst->v4);
    const uint16_t sport = ephemeral_port();
    const size_t udp = begin_udp(orig, sport, static_cast<uint16_t>(33434 + m_rng.below(90)));
    fill_random(orig, m_rng, quote > 28 ? quote - 28 : 32);
    end_transport(orig, ip, udp, proto_udp, false);
    end_ipv4(orig, ip);
    const size_t take = std::min(std::max<size_t>(quote, 28), orig.size());
    f.clear();
    put_ethernet(f, p.eth_dst, p.eth_src, ethertype_ipv4);
    const size_t fip = begin_ipv4(f, proto_icmp, 64, next_ip_id(), p.a->v4, p.b->v4, 5, false);
    const size_t ic = begin_icmp(f, type, code, rest);
    f.append(orig.data(), take);
    end_icmp4(f, ic);
    end_ipv4(f, fip);
  }

  // An echo request from P.a to P.b, and (usually) its reply queued a few frames later.
  void echo4(packet& f, const path& p, fill kind, size_t n, uint32_t reply_per_mille, uint8_t ihl = 5) {
    const uint16_t id = static_cast<uint16_t>(m_rng.below(65536));
    const uint16_t seq = static_cast<uint16_t>(m_rng.between(1, 2000));
    icmp4(f, p, 8, 0, echo_rest(id, seq), kind, n, ihl, 64);
    if (m_rng.chance(reply_per_mille)) {
      packet reply;
      const path r = reversed(p);
      put_ethernet(reply, r.eth_dst, r.eth_src, ethertype_ipv4);
      const uint8_t ttl = m_rng.chance(500) ? 64 : 118;
      const size_t ip = begin_ipv4(reply, proto_icmp, ttl, next_ip_id(), r.a->v4, r.b->v4, ihl);
      const size_t ic = begin_icmp(reply, 0, 0, echo_rest(id, seq));
      const size_t payload_at = f.size() - n;
      reply.append(f.data() + payload_at, n);
      end_icmp4(reply, ic);
      end_ipv4(reply, ip);
      reply.flagged = f.flagged;
      queue_reply(std::move(reply), 1, 40);
    }
  }

  fill echo_fill_mixed() {
    static constexpr std::array<uint32_t, 5> w = {550, 200, 150, 50, 50};
    constexpr fill kinds[] = {fill::unix_ping, fill::windows_ping, fill::random, fill::balanced, fill::text};
    return kinds[m_rng.pick(w)];
  }

  size_t echo_size(fill kind, size_t max) {
    switch (kind) {
      case fill::unix_ping:
        return m_rng.chance(900) ? 56 : m_rng.between(16, static_cast<uint32_t>(max));
      case fill::windows_ping:
        return m_rng.chance(900) ? 32 : m_rng.between(1, static_cast<uint32_t>(max));
      case fill::random:
        return m_rng.between(256, static_cast<uint32_t>(max));
      case fill::balanced:
        return m_rng.between(512, static_cast<uint32_t>(max));
      default:
        return m_rng.between(64, 512);
    }
  }

  void mixed_icmp4(packet& f) {
    static constexpr std::array<uint32_t, 10> w = {600, 150, 120, 30, 10, 30, 20, 20, 10, 10};
    const uint8_t ihl = m_rng.chance(50) ? 6 : 5;
    switch (m_rng.pick(w)) {
      case 0: {  // echo request, its reply queued
        const fill kind = echo_fill_mixed();
        const size_t n = echo_size(kind, 1472);
        echo4(f, any_path(), kind, n, 900, ihl);
        break;
      }
      case 1: {  // destination unreachable
        static constexpr std::array<uint32_t, 5> cw = {100, 200, 500, 100, 100};
        constexpr uint8_t codes[] = {0, 1, 3, 4, 13};
        const uint8_t code = codes[m_rng.pick(cw)];
        const uint32_t rest = code == 4 ? 1400 : 0;
        const size_t quote = m_rng.chance(800) ? 28 : m_rng.between(29, 548);
        path p = lan_to_lan();
        if (m_rng.chance(500)) p = path{&m_net.router(), p.b, m_net.router().hw, p.b->hw};
        icmp4_error(f, p, 3, code, rest, quote);
        break;
      }
      case 2: {  // time exceeded on the way (traceroute)
        const path p{&m_net.remote(m_rng), &m_net.local(m_rng), m_net.router().hw, {}};
        path q = p;
        q.eth_dst = p.b->hw;
        icmp4_error(f, q, 11, 0, 0, 28, 1);
        break;
      }
      case 3: {  // timestamp request / reply
        const path p = any_path();
        const uint8_t type = m_rng.chance(500) ? 13 : 14;
        const uint16_t id = static_cast<uint16_t>(m_rng.below(65536));
        icmp4(f, p, type, 0, echo_rest(id, 1), fill::random, 12, ihl);
        break;
      }
      case 4: {  // address mask request / reply
        const path p = lan_to_lan();
        const uint8_t type = m_rng.chance(500) ? 17 : 18;
        const uint16_t id = static_cast<uint16_t>(m_rng.below(65536));
        icmp4(f, p, type, 0, echo_rest(id, 1), fill::random, 4);
        break;
      }
      case 5: {  // redirect to a better gateway
        const path p{&m_net.router(), &m_net.local(m_rng), m_net.router().hw, {}};
        path q = p;
        q.eth_dst = p.b->hw;
        const ip4_addr gw = m_net.local(m_rng).v4;
        icmp4_error(f, q, 5, 1, static_cast<uint32_t>(gw.b[0] << 24 | gw.b[1] << 16 | gw.b[2] << 8 | gw.b[3]), 28);
        break;
      }
      case 6: {  // router advertisement: one address, preference 0
        const path p{&m_net.router(), &m_net.local(m_rng), m_net.router().hw, k_broadcast};
        icmp4(f, p, 9, 0, 0x01021800u, fill::random, 0, 5, 1);
        const ip4_addr a = m_net.router().v4;
        f.append(a.b, 4);
        f.be32(0);
        end_icmp4(f, 34);
        end_ipv4(f, 14);
        break;
      }
      case 7: {  // router solicitation
        const host& s = m_net.local(m_rng);
        icmp4(f, path{&s, &m_net.router(), s.hw, k_broadcast}, 10, 0, 0, fill::random, 0, 5, 1);
        break;
      }
      case 8:  // source quench (obsolete, still seen)
        icmp4_error(f, lan_to_lan(), 4, 0, 0, 28);
        break;
      default:  // parameter problem, pointer at byte 20
        icmp4_error(f, lan_to_lan(), 12, 0, 20u << 24, 28);
        break;
    }
  }

  // ---- ICMPv6.

  void icmp6(packet& f, const mac_addr& eth_dst, const mac_addr& eth_src, const ip6_addr& src, const ip6_addr& dst,
             uint8_t type, uint8_t code, uint32_t rest, uint8_t hop, fill kind, size_t n) {
    f.clear();
    put_ethernet(f, eth_dst, eth_src, ethertype_ipv6);
    const size_t ip = begin_ipv6(f, proto_icmpv6, hop, src, dst);
    const size_t ic = begin_icmp(f, type, code, rest);
    fill_payload(f, kind, n);
    end_icmp6(f, ip, ic);
    end_ipv6(f, ip);
  }

  void icmp6_finish(packet& f) {
    end_icmp6(f, 14, 54);
    end_ipv6(f, 14);
  }

  void echo6(packet& f, const path& p, fill kind, size_t n, uint32_t reply_per_mille) {
    const uint16_t id = static_cast<uint16_t>(m_rng.below(65536));
    const uint16_t seq = static_cast<uint16_t>(m_rng.between(1, 2000));
    icmp6(f, p.eth_dst, p.eth_src, p.a->v6, p.b->v6, 128, 0, echo_rest(id, seq), 64, kind, n);
    if (m_rng.chance(reply_per_mille)) {
      packet reply;
      const path r = reversed(p);
      put_ethernet(reply, r.eth_dst, r.eth_src, ethertype_ipv6);
      const size_t ip = begin_ipv6(reply, proto_icmpv6, static_cast<uint8_t>(m_rng.chance(500) ? 64 : 57),
                                   r.a->v6, r.b->v6);
      const size_t ic = begin_icmp(reply, 129, 0, echo_rest(id, seq));
      reply.append(f.data() + (f.size() - n), n);
      end_icmp6(reply, ip, ic);
      end_ipv6(reply, ip);
      reply.flagged = f.flagged;
      queue_reply(std::move(reply), 1, 40);
    }
  }

  // Neighbour solicitation for TARGET from S, with the source link-layer address option.
  void neighbour_solicitation(packet& f, const host& s, const host& target) {
    const ip6_addr group = solicited_node(target.v6);
    icmp6(f, multicast_mac(group), s.hw, s.link_local, group, 135, 0, 0, 255, fill::random, 0);
    f.append(target.v6.b, 16);
    f.u8(1);
    f.u8(1);
    f.append(s.hw.b, 6);
    icmp6_finish(f);
  }

  void neighbour_advertisement(packet& f, const host& s, const host& to) {
    icmp6(f, to.hw, s.hw, s.link_local, to.link_local, 136, 0, 0x60000000u, 255, fill::random, 0);
    f.append(s.v6.b, 16);
    f.u8(2);
    f.u8(1);
    f.append(s.hw.b, 6);
    icmp6_finish(f);
  }

  void router_advertisement(packet& f) {
    const host& r = m_net.router();
    icmp6(f, multicast_mac(k_all_nodes), r.hw, r.link_local, k_all_nodes, 134, 0, 0x40000708u, 255,
          fill::random, 0);
    f.be32(0);  // reachable time
    f.be32(0);  // retrans timer
    f.u8(3);    // prefix information
    f.u8(4);
    f.u8(64);
    f.u8(0xc0);
    f.be32(2592000);
    f.be32(604800);
    f.be32(0);
    const ip6_addr prefix = v6_from(0x2001, 0xdb8, 0x10, 0, 0);
    f.append(prefix.b, 16);
    f.u8(5);  // MTU
    f.u8(1);
    f.be16(0);
    f.be32(1500);
    f.u8(1);  // source link-layer address
    f.u8(1);
    f.append(r.hw.b, 6);
    icmp6_finish(f);
  }

  // An ICMPv6 error from FROM to TO about a UDP datagram TO had sent, quoting QUOTE bytes
  // (at least the 40-byte IPv6 header and the 8-byte UDP header).
  void icmp6_error(packet& f, const host& from, const host& to, const mac_addr& eth_src, uint8_t type, uint8_t code,
                   uint32_t rest, size_t quote) {
    packet orig;
    const host& far = m_net.remote(m_rng);
    const size_t ip = begin_ipv6(orig, proto_udp, 1, to.v6, far.v6);
    const uint16_t sport = ephemeral_port();
    const size_t udp = begin_udp(orig, sport, static_cast<uint16_t>(33434 + m_rng.below(90)));
    fill_random(orig, m_rng, quote > 48 ? quote - 48 : 24);
    end_transport(orig, ip, udp, proto_udp, true);
    end_ipv6(orig, ip);
    const size_t take = std::min(std::max<size_t>(quote, 48), orig.size());
    icmp6(f, to.hw, eth_src, from.v6, to.v6, type, code, rest, 64, fill::random, 0);
    f.append(orig.data(), take);
    icmp6_finish(f);
  }

  // An MLDv2 report: ICMPv6 behind a hop-by-hop header, which varn does not walk.
  void mld_report(packet& f) {
    const host& s = m_net.local(m_rng);
    f.clear();
    put_ethernet(f, multicast_mac(k_mld_routers), s.hw, ethertype_ipv6);
    const size_t ip = begin_ipv6(f, proto_hop_by_hop, 1, s.link_local, k_mld_routers);
    f.u8(proto_icmpv6);
    f.u8(0);
    f.be32(0x05020000);  // router alert
    f.be16(0x0100);      // PadN
    const size_t ic = begin_icmp(f, 143, 0, 1);
    f.u8(4);  // change to exclude mode
    f.u8(0);
    f.be16(0);
    f.append(k_mdns6.b, 16);
    end_icmp6(f, ip, ic);
    end_ipv6(f, ip);
  }

  void mixed_icmp6(packet& f) {
    static constexpr std::array<uint32_t, 9> w = {450, 200, 120, 30, 50, 70, 30, 30, 20};
    switch (m_rng.pick(w)) {
      case 0: {
        const fill kind = echo_fill_mixed();
        const size_t n = echo_size(kind, 1452);
        echo6(f, any_path(), kind, n, 900);
        break;
      }
      case 1: {
        const host& s = m_net.local(m_rng);
        neighbour_solicitation(f, s, m_rng.chance(700) ? m_net.router() : m_net.local(m_rng));
        break;
      }
      case 2: {
        const host& from = m_rng.chance(600) ? m_net.router() : m_net.local(m_rng);
        neighbour_advertisement(f, from, m_net.local(m_rng));
        break;
      }
      case 3: {
        const host& s = m_net.local(m_rng);
        icmp6(f, multicast_mac(k_all_routers), s.hw, s.link_local, k_all_routers, 133, 0, 0, 255, fill::random, 0);
        f.u8(1);
        f.u8(1);
        f.append(s.hw.b, 6);
        icmp6_finish(f);
        break;
      }
      case 4:
        router_advertisement(f);
        break;
      case 5: {  // destination unreachable, mostly port unreachable (code 4)
        static constexpr std::array<uint32_t, 5> cw = {150, 100, 50, 200, 500};
        const uint8_t code = static_cast<uint8_t>(m_rng.pick(cw));
        const host& to = m_net.local(m_rng);
        const bool from_router = m_rng.chance(500);
        const host& from = from_router ? m_net.router() : m_net.local(m_rng);
        icmp6_error(f, from, to, from.hw, 1, code, 0, m_rng.chance(700) ? 48 : m_rng.between(49, 1232));
        break;
      }
      case 6: {  // packet too big
        const host& to = m_net.local(m_rng);
        const host& from = m_net.remote(m_rng);
        icmp6_error(f, from, to, m_net.router().hw, 2, 0, 1280, m_rng.between(600, 1232));
        break;
      }
      case 7: {  // hop limit exceeded (traceroute)
        const host& to = m_net.local(m_rng);
        icmp6_error(f, m_net.remote(m_rng), to, m_net.router().hw, 3, 0, 0, 48);
        break;
      }
      default:
        mld_report(f);
        break;
    }
  }

  // ---- TCP and UDP.

  void tcp_frame(packet& f, bool v6, const path& p, uint16_t sport, uint16_t dport, uint8_t flags, size_t n,
                 bool text, bool options = true) {
    f.clear();
    put_ethernet(f, p.eth_dst, p.eth_src, v6 ? ethertype_ipv6 : ethertype_ipv4);
    size_t ip = 0;
    if (v6) {
      ip = begin_ipv6(f, proto_tcp, 64, p.a->v6, p.b->v6, m_rng.below(1u << 20));
    } else {
      const uint8_t ttl = m_rng.chance(500) ? 64 : 52;
      ip = begin_ipv4(f, proto_tcp, ttl, next_ip_id(), p.a->v4, p.b->v4);
    }
    const uint32_t seq = static_cast<uint32_t>(m_rng.next());
    const uint32_t ack = static_cast<uint32_t>(m_rng.next());
    const size_t tcp = begin_tcp(f, sport, dport, seq, ack, flags, static_cast<uint16_t>(m_rng.between(500, 65535)),
                                 static_cast<uint32_t>(m_now_us / 1000), options);
    if (n > 0) {
      if (text)
        fill_text(f, m_rng, n);
      else
        fill_random(f, m_rng, n);
    }
    end_transport(f, ip, tcp, proto_tcp, v6);
    if (v6)
      end_ipv6(f, ip);
    else
      end_ipv4(f, ip);
  }

  void mixed_tcp(packet& f) {
    const bool v6 = m_rng.chance(250);
    static constexpr std::array<uint32_t, 6> ports_w = {600, 150, 100, 50, 50, 50};
    constexpr uint16_t ports[] = {443, 80, 22, 445, 3389, 8080};
    const uint16_t service = ports[m_rng.pick(ports_w)];
    const uint16_t client = ephemeral_port();
    const bool to_server = m_rng.chance(400);
    const path p = to_server ? lan_to_wan() : wan_to_lan();
    const uint16_t sport = to_server ? client : service;
    const uint16_t dport = to_server ? service : client;
    const bool text = service == 80 || service == 8080;
    const size_t mss = v6 ? 1428 : 1448;  // 1500-byte MTU less IP and TCP with timestamps
    static constexpr std::array<uint32_t, 4> w = {400, 350, 220, 30};
    switch (m_rng.pick(w)) {
      case 0:
        tcp_frame(f, v6, p, sport, dport, 0x10, 0, false);
        break;
      case 1:
        tcp_frame(f, v6, p, sport, dport, 0x10, mss, text);
        break;
      case 2:
        tcp_frame(f, v6, p, sport, dport, 0x18, m_rng.chance(700) ? m_rng.between(1, 600) : m_rng.between(601, 1400),
                  text);
        break;
      default: {
        static constexpr std::array<uint32_t, 4> fw = {400, 300, 200, 100};
        constexpr uint8_t flags[] = {0x02, 0x12, 0x11, 0x04};
        tcp_frame(f, v6, p, sport, dport, flags[m_rng.pick(fw)], 0, false);
        break;
      }
    }
  }

  void udp_frame(packet& f, bool v6, const mac_addr& eth_dst, const mac_addr& eth_src, const host& a, const host& b,
                 const ip6_addr* v6_dst, const ip4_addr* v4_dst, uint16_t sport, uint16_t dport, size_t n, fill kind) {
    f.clear();
    put_ethernet(f, eth_dst, eth_src, v6 ? ethertype_ipv6 : ethertype_ipv4);
    const size_t ip = v6 ? begin_ipv6(f, proto_udp, 64, a.v6, v6_dst != nullptr ? *v6_dst : b.v6)
                         : begin_ipv4(f, proto_udp, 64, next_ip_id(), a.v4, v4_dst != nullptr ? *v4_dst : b.v4, 5,
                                      false);
    const size_t udp = begin_udp(f, sport, dport);
    fill_payload(f, kind, n);
    end_transport(f, ip, udp, proto_udp, v6);
    if (v6)
      end_ipv6(f, ip);
    else
      end_ipv4(f, ip);
  }

  void dns(packet& f, bool v6) {
    static const char* const names[] = {"\3www\7example\3com", "\4mail\7example\3net", "\3api\7example\3org",
                                        "\3ntp\4test\3lan", "\6update\7example\3com"};
    const host& client = m_net.local(m_rng);
    const host& resolver = m_net.router();
    const bool response = m_rng.chance(500);
    const host& a = response ? resolver : client;
    const host& b = response ? client : resolver;
    const uint16_t cport = ephemeral_port();
    f.clear();
    put_ethernet(f, b.hw, a.hw, v6 ? ethertype_ipv6 : ethertype_ipv4);
    const size_t ip =
        v6 ? begin_ipv6(f, proto_udp, 64, a.v6, b.v6) : begin_ipv4(f, proto_udp, 64, next_ip_id(), a.v4, b.v4);
    const size_t udp = begin_udp(f, response ? 53 : cport, response ? cport : 53);
    f.be16(m_rng.below(65536));                    // id
    f.be16(response ? 0x8180 : 0x0100);            // flags
    f.be16(1);                                     // questions
    const uint32_t answers = response ? m_rng.between(1, 8) : 0;
    f.be16(answers);
    f.be16(0);
    f.be16(0);
    const char* name = names[m_rng.below(5)];
    f.append(name);
    f.u8(0);
    const uint16_t qtype = v6 ? 28 : 1;
    f.be16(qtype);
    f.be16(1);
    for (uint32_t i = 0; i < answers; ++i) {
      f.be16(0xc00c);
      f.be16(qtype);
      f.be16(1);
      f.be32(m_rng.between(30, 86400));
      f.be16(qtype == 28 ? 16 : 4);
      fill_random(f, m_rng, qtype == 28 ? 16 : 4);
    }
    end_transport(f, ip, udp, proto_udp, v6);
    if (v6)
      end_ipv6(f, ip);
    else
      end_ipv4(f, ip);
  }

  void mixed_udp(packet& f) {
    const bool v6 = m_rng.chance(300);
    static constexpr std::array<uint32_t, 5> w = {350, 400, 50, 100, 100};
    switch (m_rng.pick(w)) {
      case 0:
        dns(f, v6);
        break;
      case 1: {  // QUIC: long packets and short acknowledgements
        const bool to_server = m_rng.chance(400);
        const path p = to_server ? lan_to_wan() : wan_to_lan();
        const uint16_t client = ephemeral_port();
        const size_t n = m_rng.chance(650) ? m_rng.between(1200, 1350) : m_rng.between(30, 200);
        udp_frame(f, v6, p.eth_dst, p.eth_src, *p.a, *p.b, nullptr, nullptr, to_server ? client : 443,
                  to_server ? 443 : client, n, fill::random);
        break;
      }
      case 2: {  // NTP
        const path p = lan_to_wan();
        udp_frame(f, v6, p.eth_dst, p.eth_src, *p.a, *p.b, nullptr, nullptr, 123, 123, 48, fill::ntp);
        break;
      }
      case 3: {  // SSDP announcements
        const host& s = m_net.local(m_rng);
        static const ip4_addr ssdp4 = v4(239, 255, 255, 250);
        static const ip6_addr ssdp6 = v6_from(0xff02, 0, 0, 0, 0xc);
        const mac_addr group4{{0x01, 0x00, 0x5e, 0x7f, 0xff, 0xfa}};
        udp_frame(f, v6, v6 ? multicast_mac(ssdp6) : group4, s.hw, s, s, &ssdp6, &ssdp4, 1900, 1900,
                  m_rng.between(100, 400), fill::text);
        break;
      }
      default: {
        const path p = any_path();
        const uint16_t sport = ephemeral_port();
        const uint16_t dport = ephemeral_port();
        const size_t n = m_rng.between(20, 1400);
        udp_frame(f, v6, p.eth_dst, p.eth_src, *p.a, *p.b, nullptr, nullptr, sport, dport, n, fill::random);
        break;
      }
    }
  }

  void arp(packet& f, size_t frame_size) {
    const host& s = m_net.local(m_rng);
    const host& t = m_net.local(m_rng);
    const bool reply = m_rng.chance(400);
    f.clear();
    put_ethernet(f, reply ? t.hw : k_broadcast, s.hw, ethertype_arp);
    f.be16(1);
    f.be16(ethertype_ipv4);
    f.u8(6);
    f.u8(4);
    f.be16(reply ? 2 : 1);
    f.append(s.hw.b, 6);
    f.append(s.v4.b, 4);
    if (reply)
      f.append(t.hw.b, 6);
    else
      f.zeros(6);
    f.append(t.v4.b, 4);
    if (f.size() < frame_size) f.zeros(frame_size - f.size());
  }

  // A frame on a tagged VLAN: TCP mostly, now and then an ICMP echo that varn must skip.
  void vlan(packet& f) {
    packet inner;
    if (m_rng.chance(150)) {
      const path p = lan_to_lan();
      const uint16_t id = static_cast<uint16_t>(m_rng.below(65536));
      icmp4(inner, p, 8, 0, echo_rest(id, 1), fill::unix_ping, 56);
    } else {
      const path p = lan_to_wan();
      const uint16_t sport = ephemeral_port();
      tcp_frame(inner, false, p, sport, 443, 0x10, m_rng.chance(500) ? 0 : 1448, false);
    }
    f.clear();
    f.append(inner.data(), 12);
    f.be16(ethertype_vlan);
    f.be16(0x2000 | 42);  // priority 1, VLAN 42
    f.append(inner.data() + 12, inner.size() - 12);
  }

  void lldp(packet& f) {
    const host& r = m_net.router();
    f.clear();
    put_ethernet(f, mac_addr{{0x01, 0x80, 0xc2, 0x00, 0x00, 0x0e}}, r.hw, ethertype_lldp);
    f.be16(0x0207);  // chassis id
    f.u8(4);
    f.append(r.hw.b, 6);
    f.be16(0x0407);  // port id
    f.u8(3);
    f.append(r.hw.b, 6);
    f.be16(0x0602);  // ttl
    f.be16(120);
    f.be16(0x0a04);  // system name
    f.append("gw01");
    f.be16(0);
  }

  // ---- The three workloads.

  void mixed_frame(packet& f) {
    static constexpr std::array<uint32_t, 7> w = {22, 10, 680, 260, 15, 8, 5};
    switch (m_rng.pick(w)) {
      case 0:
        mixed_icmp4(f);
        break;
      case 1:
        mixed_icmp6(f);
        break;
      case 2:
        mixed_tcp(f);
        break;
      case 3:
        mixed_udp(f);
        break;
      case 4:
        arp(f, 60);
        break;
      case 5:
        vlan(f);
        break;
      default:
        lldp(f);
        break;
    }
  }

  fill icmp_only_fill(size_t n) {
    static constexpr std::array<uint32_t, 6> w = {300, 150, 300, 80, 120, 50};
    constexpr fill kinds[] = {fill::unix_ping, fill::windows_ping, fill::random,
                              fill::balanced,  fill::text,         fill::mixed_text};
    const fill k = kinds[m_rng.pick(w)];
    return k == fill::balanced && !can_balance(n) ? fill::random : k;
  }

  // An ICMP or ICMPv6 error with exactly N payload bytes: the original IP and UDP headers of a
  // datagram P.b had sent, as far as they fit, then KIND bytes standing for its data.
  void sized_error(packet& f, const path& p, bool v6, uint8_t type, uint8_t code, uint32_t rest, fill kind,
                   size_t n) {
    packet orig;
    const size_t headers = v6 ? 48 : 28;
    const host& far = m_net.remote(m_rng);
    const size_t ip = v6 ? begin_ipv6(orig, proto_udp, 1, p.b->v6, far.v6)
                         : begin_ipv4(orig, proto_udp, 1, next_ip_id(), p.b->v4, far.v4, 5, false);
    const uint16_t sport = ephemeral_port();
    const size_t udp = begin_udp(orig, sport, static_cast<uint16_t>(33434 + m_rng.below(90)));
    fill_payload(orig, kind == fill::balanced ? fill::random : kind, n > headers ? n - headers : 0);
    end_transport(orig, ip, udp, proto_udp, v6);
    if (v6) {
      end_ipv6(orig, ip);
      icmp6(f, p.eth_dst, p.eth_src, p.a->v6, p.b->v6, type, code, rest, 64, fill::random, 0);
      f.append(orig.data(), std::min(n, orig.size()));
      icmp6_finish(f);
    } else {
      end_ipv4(orig, ip);
      icmp4(f, p, type, code, rest, fill::random, 0);
      f.append(orig.data(), std::min(n, orig.size()));
      end_icmp4(f, 34);
      end_ipv4(f, 14);
    }
  }

  // Every frame ICMP or ICMPv6 with 1 to 1472 payload bytes (1 to 1452 over IPv6, within a
  // 1500-byte MTU); echo requests are mostly answered with the same payload, errors quote the
  // datagram they are about.
  void icmp_only_frame(packet& f) {
    const bool v6 = m_rng.chance(300);
    const size_t n = m_rng.between(1, v6 ? 1452 : 1472);
    const fill kind = icmp_only_fill(n);
    static constexpr std::array<uint32_t, 5> w = {550, 150, 120, 100, 80};
    const size_t which = m_rng.pick(w);
    const path p = any_path();
    const uint16_t lone = static_cast<uint16_t>(m_rng.below(65536));
    const uint32_t lone_id = echo_rest(lone, static_cast<uint16_t>(m_rng.below(4000)));
    if (!v6) {
      switch (which) {
        case 0:
          echo4(f, p, kind, n, 950);
          break;
        case 1:  // a lone reply (its request fell outside the capture)
          icmp4(f, p, 0, 0, lone_id, kind, n);
          break;
        case 2:
          sized_error(f, p, false, 3, static_cast<uint8_t>(m_rng.below(16)), 0, kind, n);
          break;
        case 3:
          sized_error(f, p, false, 11, static_cast<uint8_t>(m_rng.below(2)), 0, kind, n);
          break;
        default:
          if (m_rng.chance(500)) {
            constexpr uint8_t errors[] = {4, 5, 12};
            const uint8_t type = errors[m_rng.below(3)];
            sized_error(f, p, false, type, 0, static_cast<uint32_t>(m_rng.next()), kind, n);
          } else {
            constexpr uint8_t types[] = {13, 14, 15, 16, 17, 18, 30, 40, 253};
            icmp4(f, p, types[m_rng.below(9)], 0, lone_id, kind, n);
          }
          break;
      }
    } else {
      switch (which) {
        case 0:
          echo6(f, p, kind, n, 950);
          break;
        case 1:
          icmp6(f, p.eth_dst, p.eth_src, p.a->v6, p.b->v6, 129, 0, lone_id, 64, kind, n);
          break;
        case 2:
          sized_error(f, p, true, 1, static_cast<uint8_t>(m_rng.below(7)), 0, kind, n);
          break;
        case 3:
          sized_error(f, p, true, 3, static_cast<uint8_t>(m_rng.below(2)), 0, kind, n);
          break;
        default:
          if (m_rng.chance(600)) {
            const uint8_t type = m_rng.chance(500) ? 2 : 4;
            sized_error(f, p, true, type, 0, type == 2 ? 1280 : 40, kind, n);
          } else {
            icmp6(f, p.eth_dst, p.eth_src, p.a->v6, p.b->v6, m_rng.chance(500) ? 200 : 201, 0, lone_id, 64, kind, n);
          }
          break;
      }
    }
  }

  // Every frame 64 bytes on the wire and in the file (padding behind short packets, as a capture
  // that keeps the frame check sequence shows them).
  void small_frame(packet& f) {
    constexpr size_t k_size = 64;
    static constexpr std::array<uint32_t, 6> w = {24, 4, 600, 232, 100, 40};
    switch (m_rng.pick(w)) {
      case 0: {  // echo request with 22 payload bytes, reply queued
        const path p = any_path();
        echo4(f, p, m_rng.chance(800) ? fill::unix_ping : fill::windows_ping, 22, 900);
        break;
      }
      case 1:  // ICMPv6 echo with 2 payload bytes
        echo6(f, any_path(), fill::random, 2, 900);
        break;
      case 2: {  // TCP acknowledgement
        const path p = m_rng.chance(500) ? lan_to_wan() : wan_to_lan();
        tcp_frame(f, false, p, ephemeral_port(), 443, 0x10, 0, false, false);
        break;
      }
      case 3: {
        const path p = any_path();
        udp_frame(f, false, p.eth_dst, p.eth_src, *p.a, *p.b, nullptr, nullptr, ephemeral_port(), 514, 22,
                  fill::syslog);
        break;
      }
      case 4: {
        const path p = any_path();
        udp_frame(f, true, p.eth_dst, p.eth_src, *p.a, *p.b, nullptr, nullptr, ephemeral_port(), 5683, 2,
                  fill::random);
        break;
      }
      default:
        arp(f, k_size);
        break;
    }
    if (f.size() < k_size) f.zeros(k_size - f.size());
    f.truncate(k_size);
  }

  // ---- The sample capture: each frame shows one thing varn reports or skips.

  void put(packet& f, uint32_t gap_us) {
    m_now_us += gap_us;
    m_file.record(m_now_us, f);
  }

  void sample() {
    m_now_us = 1714979289ull * 1000000ull + 125000;  // 2024-05-06 07:08:09.125 UTC
    const host& pc = m_net.local(m_rng);
    const host& gw = m_net.router();
    host server = m_net.remote(m_rng);
    server.v4 = v4(198, 51, 100, 7);
    server.v6 = v6_from(0x2001, 0xdb8, 0xff00, 0, 7);
    const path out{&pc, &server, pc.hw, gw.hw};
    const path back = reversed(out);
    packet f;
    m_ip_id = 0x3000;

    // 1. TCP SYN to a web server (skipped: not ICMP).
    tcp_frame(f, false, out, 51514, 443, 0x02, 0, false);
    put(f, 0);

    // 2, 3. Echo request id 0x1a2b seq 1 with the Unix 56-byte payload, and its reply.
    icmp4(f, out, 8, 0, echo_rest(0x1a2b, 1), fill::unix_ping, 56);
    put(f, 1200);
    packet reply;
    put_ethernet(reply, back.eth_dst, back.eth_src, ethertype_ipv4);
    size_t ip = begin_ipv4(reply, proto_icmp, 57, 0x7a11, server.v4, pc.v4);
    size_t ic = begin_icmp(reply, 0, 0, echo_rest(0x1a2b, 1));
    reply.append(f.data() + 42, 56);
    end_icmp4(reply, ic);
    end_ipv4(reply, ip);
    put(reply, 14250);

    // 4. DNS query (skipped).
    dns(f, false);
    put(f, 3100);

    // 5. Port unreachable from the gateway quoting the IPv4 and UDP headers of a syslog datagram.
    {
      packet orig;
      const size_t oip = begin_ipv4(orig, proto_udp, 64, 0x3100, pc.v4, gw.v4);
      const size_t oudp = begin_udp(orig, 40123, 514);
      orig.append("<13>May  6 07:08:09 pc23 backup: done\n");
      end_transport(orig, oip, oudp, proto_udp, false);
      end_ipv4(orig, oip);
      f.clear();
      put_ethernet(f, pc.hw, gw.hw, ethertype_ipv4);
      ip = begin_ipv4(f, proto_icmp, 64, 0x0e51, gw.v4, pc.v4, 5, false);
      ic = begin_icmp(f, 3, 3, 0);
      f.append(orig.data(), 28);
      end_icmp4(f, ic);
      end_ipv4(f, ip);
      put(f, 820);
    }

    // 6, 7. ICMPv6 echo request id 0x0042 seq 1 and its reply.
    icmp6(f, gw.hw, pc.hw, pc.v6, server.v6, 128, 0, echo_rest(0x0042, 1), 64, fill::unix_ping, 56);
    put(f, 2500);
    packet reply6;
    put_ethernet(reply6, pc.hw, gw.hw, ethertype_ipv6);
    ip = begin_ipv6(reply6, proto_icmpv6, 57, server.v6, pc.v6);
    ic = begin_icmp(reply6, 129, 0, echo_rest(0x0042, 1));
    reply6.append(f.data() + 62, 56);
    end_icmp6(reply6, ip, ic);
    end_ipv6(reply6, ip);
    put(reply6, 15730);

    // 8. Neighbour solicitation for the gateway.
    neighbour_solicitation(f, pc, gw);
    put(f, 410);

    // 9. ICMPv6 destination unreachable, code 4 (port unreachable), quoting IPv6 and UDP headers.
    {
      packet orig;
      const size_t oip = begin_ipv6(orig, proto_udp, 64, pc.v6, gw.v6);
      const size_t oudp = begin_udp(orig, 40124, 161);
      orig.append("public");
      end_transport(orig, oip, oudp, proto_udp, true);
      end_ipv6(orig, oip);
      icmp6(f, pc.hw, gw.hw, gw.v6, pc.v6, 1, 4, 0, 64, fill::random, 0);
      f.append(orig.data(), 48);
      icmp6_finish(f);
      put(f, 960);
    }

    // 10. An echo request carrying 512 bytes that use every byte value exactly twice.
    icmp4(f, out, 8, 0, echo_rest(0x0bad, 7), fill::balanced, 512);
    put(f, 50211);

    // 11. An echo request whose payload hides an ascii line and a UTF-16LE path.
    f.clear();
    put_ethernet(f, gw.hw, pc.hw, ethertype_ipv4);
    ip = begin_ipv4(f, proto_icmp, 128, next_ip_id(), pc.v4, server.v4);
    ic = begin_icmp(f, 8, 0, echo_rest(0x0200, 12));
    f.u8(0x00);
    f.u8(0x17);
    f.append("user=operator&action=list");
    f.u8(0x00);
    f.u8(0xff);
    for (const char* c = "\\\\fileserver\\share\\q3.docx"; *c != '\0'; ++c) {
      f.u8(static_cast<uint8_t>(*c));
      f.u8(0);
    }
    f.u8(0x00);
    f.u8(0x00);
    end_icmp4(f, ic);
    end_ipv4(f, ip);
    put(f, 7340);

    // 12. An echo request inside an 802.1Q tag (VLAN 42): varn skips it.
    {
      packet inner;
      icmp4(inner, out, 8, 0, echo_rest(0x1a2c, 1), fill::windows_ping, 32);
      f.clear();
      f.append(inner.data(), 12);
      f.be16(ethertype_vlan);
      f.be16(0x2000 | 42);
      f.append(inner.data() + 12, inner.size() - 12);
      put(f, 1800);
    }

    // 13. A DNS query or answer over IPv6 (skipped).
    dns(f, true);
    put(f, 2222);

    // 14. TCP over IPv6 with a little data (skipped).
    tcp_frame(f, true, out, 50000, 443, 0x18, 37, false);
    put(f, 333);
  }

  const workload_spec& m_spec;
  capture_file& m_file;
  rng m_rng;
  network m_net;
  uint64_t m_now_us = 0;
  uint16_t m_ip_id = 0;
  std::vector<pending> m_pending;
};

class vector_sink : public byte_sink {
 public:
  explicit vector_sink(std::vector<uint8_t>& out) : m_out(out) {}
  bool write(const uint8_t* data, size_t length) override {
    m_out.insert(m_out.end(), data, data + length);
    return true;
  }

 private:
  std::vector<uint8_t>& m_out;
};

class file_sink : public byte_sink {
 public:
  explicit file_sink(std::FILE* f) : m_file(f) {}
  bool write(const uint8_t* data, size_t length) override { return std::fwrite(data, 1, length, m_file) == length; }

 private:
  std::FILE* m_file;
};

}  // namespace

bool parse_workload_kind(std::string_view text, workload_kind& kind) noexcept {
  for (workload_kind k : {workload_kind::mixed, workload_kind::icmp, workload_kind::small, workload_kind::sample,
                         workload_kind::sweep}) {
    if (text == workload_kind_name(k)) {
      kind = k;
      return true;
    }
  }
  return false;
}

const char* workload_kind_name(workload_kind kind) noexcept {
  switch (kind) {
    case workload_kind::mixed:
      return "mixed";
    case workload_kind::icmp:
      return "icmp";
    case workload_kind::small:
      return "small";
    case workload_kind::sample:
      return "sample";
    case workload_kind::sweep:
      return "sweep";
  }
  return "?";
}

bool generate_workload(const workload_spec& spec, byte_sink& sink, workload_summary& summary) {
  summary = workload_summary{};
  bool ok = true;
  {
    capture_file file(sink, spec, summary);
    if (file.write_header()) {
      traffic t(spec, file);
      t.run();
    }
    ok = file.flush();
  }
  return ok;
}

bool write_workload_file(const workload_spec& spec, const std::string& path, workload_summary& summary) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  std::unique_ptr<char[]> buffer(new char[1u << 20]);
  std::setvbuf(f, buffer.get(), _IOFBF, 1u << 20);
  file_sink sink(f);
  bool ok = generate_workload(spec, sink, summary);
  if (std::fclose(f) != 0) ok = false;
  return ok;
}

std::vector<uint8_t> workload_bytes(const workload_spec& spec, workload_summary* summary) {
  std::vector<uint8_t> out;
  vector_sink sink(out);
  workload_summary s;
  generate_workload(spec, sink, s);
  if (summary != nullptr) *summary = s;
  return out;
}

}  // namespace varn_bench
