#include "support/pcap_builder.hpp"

#include <algorithm>
#include <fstream>
#include <gtest/gtest.h>

namespace varn_test {

void put_le16(bytes& b, uint16_t v) {
  b.push_back(static_cast<char>(v & 0xff));
  b.push_back(static_cast<char>(v >> 8));
}
void put_le32(bytes& b, uint32_t v) {
  put_le16(b, static_cast<uint16_t>(v & 0xffff));
  put_le16(b, static_cast<uint16_t>(v >> 16));
}
void put_be16(bytes& b, uint16_t v) {
  b.push_back(static_cast<char>(v >> 8));
  b.push_back(static_cast<char>(v & 0xff));
}
void put_be32(bytes& b, uint32_t v) {
  put_be16(b, static_cast<uint16_t>(v >> 16));
  put_be16(b, static_cast<uint16_t>(v & 0xffff));
}

pcap_writer::pcap_writer(uint32_t snaplen, uint32_t link_type, uint32_t magic, uint16_t major,
                         uint16_t minor, int32_t thiszone) {
  put_le32(m_data, magic);
  put_le16(m_data, major);
  put_le16(m_data, minor);
  put_le32(m_data, static_cast<uint32_t>(thiszone));
  put_le32(m_data, 0);  // sigfigs
  put_le32(m_data, snaplen);
  put_le32(m_data, link_type);
}

pcap_writer& pcap_writer::add(uint32_t ts_sec, uint32_t ts_usec, const bytes& frame,
                              std::optional<uint32_t> orig_len, std::optional<uint32_t> incl_len) {
  const uint32_t incl = incl_len.value_or(static_cast<uint32_t>(frame.size()));
  put_le32(m_data, ts_sec);
  put_le32(m_data, ts_usec);
  put_le32(m_data, incl);
  put_le32(m_data, orig_len.value_or(incl));
  m_data += frame;
  return *this;
}

void pcap_writer::save(const std::string& path) const {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(m_data.data(), static_cast<std::streamsize>(m_data.size()));
  ASSERT_TRUE(f.good()) << "cannot write " << path;
}

ipv6 v6(const std::string& text) {
  // Expand "::" and read up to eight hex groups.
  std::vector<std::string> head, tail;
  std::vector<std::string>* cur = &head;
  std::string field;
  for (size_t i = 0; i <= text.size(); ++i) {
    if (i == text.size() || text[i] == ':') {
      if (!field.empty()) cur->push_back(field);
      field.clear();
      if (i + 1 < text.size() && text[i] == ':' && text[i + 1] == ':') {
        cur = &tail;
        ++i;
      }
    } else {
      field += text[i];
    }
  }
  ipv6 out{};
  std::vector<std::string> groups = head;
  groups.resize(8 - tail.size(), "0");
  groups.insert(groups.end(), tail.begin(), tail.end());
  for (size_t g = 0; g < 8; ++g) {
    const unsigned long v = std::stoul(groups[g], nullptr, 16);
    out[2 * g] = static_cast<uint8_t>(v >> 8);
    out[2 * g + 1] = static_cast<uint8_t>(v & 0xff);
  }
  return out;
}

namespace {

uint16_t checksum(const bytes& b, size_t from, size_t to) {
  uint32_t sum = 0;
  for (size_t i = from; i < to; i += 2) {
    uint32_t word = static_cast<uint8_t>(b[i]) << 8;
    if (i + 1 < to) word |= static_cast<uint8_t>(b[i + 1]);
    sum += word;
  }
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

void put_mac(bytes& b, const mac& m) {
  for (uint8_t x : m) b.push_back(static_cast<char>(x));
}

}  // namespace

bytes ethernet_frame(uint16_t ethertype, const bytes& body, const mac& src, const mac& dst) {
  bytes f;
  put_mac(f, dst);
  put_mac(f, src);
  put_be16(f, ethertype);
  return f + body;
}

bytes icmp4_frame(const icmp4_spec& s) {
  bytes ip;
  const size_t ip_len = 4u * s.ihl;
  ip.push_back(static_cast<char>(0x40 | (s.ihl & 0x0f)));
  ip.push_back(0);
  put_be16(ip, static_cast<uint16_t>(ip_len + 8 + s.payload.size()));
  put_be16(ip, 0x1234);  // identification
  put_be16(ip, 0);       // flags, fragment offset
  ip.push_back(static_cast<char>(s.ttl));
  ip.push_back(static_cast<char>(s.protocol));
  put_be16(ip, 0);  // checksum, below
  for (uint8_t x : s.src) ip.push_back(static_cast<char>(x));
  for (uint8_t x : s.dst) ip.push_back(static_cast<char>(x));
  ip.resize(std::max<size_t>(ip_len, ip.size()), '\0');
  const uint16_t ipsum = checksum(ip, 0, ip.size());
  ip[10] = static_cast<char>(ipsum >> 8);
  ip[11] = static_cast<char>(ipsum & 0xff);
  bytes icmp;
  icmp.push_back(static_cast<char>(s.type));
  icmp.push_back(static_cast<char>(s.code));
  put_be16(icmp, 0);
  put_be16(icmp, s.id);
  put_be16(icmp, s.seq);
  icmp += s.payload;
  const uint16_t isum = checksum(icmp, 0, icmp.size());
  icmp[2] = static_cast<char>(isum >> 8);
  icmp[3] = static_cast<char>(isum & 0xff);
  return ethernet_frame(s.ethertype, ip + icmp, s.eth_src, s.eth_dst);
}

bytes icmp6_frame(const icmp6_spec& s) {
  bytes ip;
  put_be32(ip, 0x60000000);
  put_be16(ip, static_cast<uint16_t>(8 + s.payload.size()));
  ip.push_back(static_cast<char>(s.next_header));
  ip.push_back(static_cast<char>(s.hop_limit));
  for (uint8_t x : s.src) ip.push_back(static_cast<char>(x));
  for (uint8_t x : s.dst) ip.push_back(static_cast<char>(x));
  bytes icmp;
  icmp.push_back(static_cast<char>(s.type));
  icmp.push_back(static_cast<char>(s.code));
  put_be16(icmp, 0);
  put_be16(icmp, s.id);
  put_be16(icmp, s.seq);
  icmp += s.payload;
  return ethernet_frame(s.ethertype, ip + icmp, s.eth_src, s.eth_dst);
}

bytes seeded_bytes(size_t n, uint32_t seed) {
  bytes out(n, '\0');
  uint64_t x = seed * 0x9E3779B97F4A7C15ULL + 1;
  for (size_t i = 0; i < n; ++i) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    out[i] = static_cast<char>(x >> 24);
  }
  return out;
}

bytes all_values(unsigned repeat, uint32_t seed) {
  bytes out;
  for (unsigned r = 0; r < repeat; ++r)
    for (int v = 0; v < 256; ++v) out.push_back(static_cast<char>(v));
  uint64_t x = seed * 0x9E3779B97F4A7C15ULL + 7;
  for (size_t i = out.size(); i > 1; --i) {
    x ^= x << 13;
    x ^= x >> 7;
    x ^= x << 17;
    std::swap(out[i - 1], out[x % i]);
  }
  return out;
}

}  // namespace varn_test
