#include "support/capture_text.hpp"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <stdexcept>

namespace varn_test {

void put_le16(bytes& b, uint16_t v) { b += {static_cast<char>(v & 0xff), static_cast<char>(v >> 8)}; }
void put_le32(bytes& b, uint32_t v) { put_le16(b, static_cast<uint16_t>(v)), put_le16(b, static_cast<uint16_t>(v >> 16)); }

namespace {

uint64_t xorshift(uint64_t& x) {
  x ^= x << 13;
  x ^= x >> 7;
  return x ^= x << 17;
}

void put_be16(bytes& b, uint64_t v) { b += {static_cast<char>(v >> 8 & 0xff), static_cast<char>(v & 0xff)}; }

uint16_t checksum(const bytes& b, size_t from, size_t to) {
  uint32_t sum = 0;
  for (size_t i = from; i < to; i += 2)
    sum += static_cast<uint32_t>(static_cast<uint8_t>(b[i]) << 8 | (i + 1 < to ? static_cast<uint8_t>(b[i + 1]) : 0));
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  return static_cast<uint16_t>(~sum);
}

// The words of a statement, and its key=value words by key.
struct words {
  std::vector<std::string> list;
  std::map<std::string, std::string> keys;
  explicit words(const std::string& text) {
    std::istringstream in(text);
    for (std::string w; in >> w; list.push_back(w))
      if (const size_t eq = w.find('='); eq != std::string::npos) keys[w.substr(0, eq)] = w.substr(eq + 1);
  }
  static uint64_t number(const std::string& s) {
    const bool hex = s.rfind("0x", 0) == 0;
    size_t used = 0;
    const uint64_t v = std::stoull(s.substr(hex ? 2 : 0), &used, hex ? 16 : 10);
    if (used + (hex ? 2 : 0) != s.size()) throw std::runtime_error("not a number: " + s);
    return v;
  }
  uint64_t get(const std::string& key, uint64_t otherwise) const { return keys.count(key) ? number(keys.at(key)) : otherwise; }
  // An IPv4 (4 bytes), IPv6 (16) or hardware (6) address.
  bytes address(const std::string& key, const std::string& otherwise, int family) const {
    const std::string text = keys.count(key) ? keys.at(key) : otherwise;
    unsigned char out[16];
    unsigned m[6];
    if (family == 0 && std::sscanf(text.c_str(), "%x:%x:%x:%x:%x:%x", &m[0], &m[1], &m[2], &m[3], &m[4], &m[5]) == 6)
      for (int i = 0; i < 6; ++i) out[i] = static_cast<unsigned char>(m[i]);
    else if (family == 0 || inet_pton(family, text.c_str(), out) != 1)
      throw std::runtime_error("not an address: " + text);
    return bytes(reinterpret_cast<const char*>(out), family == AF_INET ? 4 : family == 0 ? 6 : 16);
  }
};

// Bytes of a byte statement: hex, text, fill, count, random, values.
bytes byte_statement(const std::string& keyword, const std::string& rest) {
  const words w(rest);
  const uint64_t n = keyword == "hex" || keyword == "text" || w.list.empty() ? 0 : words::number(w.list[0]);
  const uint32_t seed = static_cast<uint32_t>(w.get("seed", 1));
  bytes out;
  if (keyword == "hex") {
    for (const std::string& h : w.list) out += static_cast<char>(std::stoul(h, nullptr, 16));
  } else if (keyword == "text") {
    if (rest.size() < 2 || rest.front() != '"' || rest.back() != '"') throw std::runtime_error("expected \"...\"");
    for (size_t i = 1; i + 1 < rest.size(); ++i) {
      const char e = rest[i] == '\\' ? rest[++i] : 0;
      if (e == 'x') out += static_cast<char>(std::stoul(rest.substr(i + 1, 2), nullptr, 16)), i += 2;
      else out += e == 0 ? rest[i] : e == 'n' ? '\n' : e == 'r' ? '\r' : e == 't' ? '\t' : e == '0' ? '\0' : e;
    }
  } else if (keyword == "fill") {
    out.assign(n, static_cast<char>(words::number(w.list.at(1))));
  } else if (keyword == "count") {
    for (uint64_t i = w.get("from", 0); out.size() < n; ++i) out += static_cast<char>(i);
  } else if (keyword == "random") {
    out = seeded_bytes(n, seed);
  } else if (keyword == "values") {
    out = all_values(static_cast<unsigned>(n), seed);
  } else {
    throw std::runtime_error("unknown statement " + keyword);
  }
  return out;
}

class builder {
 public:
  void statement(const std::string& keyword, const std::string& rest) {
    const words w(rest);
    if (keyword == "header" || keyword == "record" || keyword == "raw" || keyword == "cut") close();
    if (keyword == "header") {
      put_le32(m_file, static_cast<uint32_t>(w.get("magic", 0xA1B2C3D4)));
      put_le16(m_file, static_cast<uint16_t>(w.get("major", 2)));
      put_le16(m_file, static_cast<uint16_t>(w.get("minor", 4)));
      for (const std::string key : {"thiszone", "sigfigs", "snaplen", "link"})
        put_le32(m_file, static_cast<uint32_t>(w.get(key, key == "snaplen" ? 65535 : key == "link")));
    } else if (keyword == "record") {
      if (m_file.empty()) statement("header", "");
      m_record = w.keys;
      m_in_record = true;
    } else if (keyword == "cut") {
      m_file.resize(m_file.size() - std::min<size_t>(m_file.size(), words::number(rest)));
    } else if (keyword == "raw") {
      const size_t space = rest.find(' ');
      m_file += byte_statement(rest.substr(0, space), space == std::string::npos ? "" : rest.substr(space + 1));
    } else if (!m_in_record) {
      throw std::runtime_error("frame bytes outside a record: use raw");
    } else if (keyword == "eth") {
      m_frame += w.address("dst", "06:07:08:09:0a:0b", 0) + w.address("src", "00:01:02:03:04:05", 0);
      put_be16(m_frame, words::number(w.keys.at("type")));
    } else if (keyword == "icmp4" || keyword == "icmp6") {
      const bool v4 = keyword == "icmp4";
      m_headers.push_back({m_frame.size(), v4, w.get("sum", 1) != 0});
      m_frame += w.address("edst", v4 ? "66:77:88:99:aa:bb" : "33:33:00:00:00:01", 0) + w.address("esrc", "00:11:22:33:44:55", 0);
      put_be16(m_frame, w.get("ethertype", v4 ? 0x0800 : 0x86DD));
      const uint64_t ihl = w.get("ihl", 5);
      if (v4) {  // length and checksum are written when the record closes
        m_frame += {static_cast<char>(w.get("version", 4) << 4 | (ihl & 0x0f)), 0, 0, 0, 0x12, 0x34, 0, 0,
                    static_cast<char>(w.get("ttl", 64)), static_cast<char>(w.get("proto", 1)), 0, 0};
        m_frame += w.address("src", "192.168.1.2", AF_INET) + w.address("dst", "192.168.1.1", AF_INET);
        m_frame += bytes(4 * ihl - std::min<uint64_t>(4 * ihl, 20), '\0');  // options
      } else {
        m_frame += {0x60, 0, 0, 0, 0, 0, static_cast<char>(w.get("next", 58)), static_cast<char>(w.get("hlim", 64))};
        m_frame += w.address("src", "::", AF_INET6) + w.address("dst", "::", AF_INET6);
      }
      m_frame += {static_cast<char>(w.get("type", v4 ? 8 : 128)), static_cast<char>(w.get("code", 0)), 0, 0};
      put_be16(m_frame, w.get("id", 0x1a2b));
      put_be16(m_frame, w.get("seq", 1));
    } else {
      m_frame += byte_statement(keyword, rest);
    }
  }

  bytes finish() { return close(), m_file; }

 private:
  void close() {
    if (!m_in_record) return;
    for (const auto& [at, v4, sum] : m_headers) {  // lengths and checksums over the rest of the record
      const size_t ip = at + 14, icmp = v4 ? ip + 4 * (static_cast<uint8_t>(m_frame[ip]) & 0x0f) : ip + 40;
      bytes field;
      put_be16(field, m_frame.size() - (v4 ? ip : icmp));
      m_frame.replace(v4 ? ip + 2 : ip + 4, 2, field);
      if (!v4 || !sum) continue;
      put_be16(field, checksum(m_frame, ip, icmp));
      put_be16(field, checksum(m_frame, icmp, m_frame.size()));
      m_frame.replace(ip + 10, 2, field.substr(2, 2));
      m_frame.replace(icmp + 2, 2, field.substr(4, 2));
    }
    auto get = [&](const char* key, uint64_t otherwise) {
      return static_cast<uint32_t>(m_record.count(key) ? words::number(m_record.at(key)) : otherwise);
    };
    put_le32(m_file, get("ts", 1000000000));
    put_le32(m_file, get("usec", 0));
    put_le32(m_file, get("incl", m_frame.size()));
    put_le32(m_file, get("orig", get("incl", m_frame.size())));
    m_file += m_frame.substr(0, get("keep", m_frame.size()));
    m_frame.clear();
    m_headers.clear();
    m_in_record = false;
  }

  struct header { size_t at; bool v4, sum; };  // at: frame offset of the Ethernet header
  bytes m_file, m_frame;
  std::map<std::string, std::string> m_record;
  std::vector<header> m_headers;
  bool m_in_record = false;
};

}  // namespace

bytes seeded_bytes(size_t n, uint32_t seed) {
  bytes out(n, '\0');
  uint64_t x = seed * 0x9E3779B97F4A7C15ULL + 1;
  for (char& c : out) c = static_cast<char>(xorshift(x) >> 24);
  return out;
}

bytes all_values(unsigned repeat, uint32_t seed) {
  bytes out;
  for (unsigned i = 0; i < 256 * repeat; ++i) out += static_cast<char>(i % 256);
  uint64_t x = seed * 0x9E3779B97F4A7C15ULL + 7;
  for (size_t i = out.size(); i > 1; --i) std::swap(out[i - 1], out[xorshift(x) % i]);
  return out;
}

bool capture_from_text(const std::string& text, bytes& capture, std::string& error) {
  builder b;
  std::istringstream in(text);
  int number = 0;
  for (std::string line; std::getline(in, line);) {
    ++number;
    bool quoted = false;  // a "#" outside quotes starts a comment
    for (size_t i = 0; i < line.size(); ++i) {
      if (line[i] == '\\' && quoted) ++i;
      else if (line[i] == '"') quoted = !quoted;
      else if (line[i] == '#' && !quoted) line.resize(i);
    }
    const size_t start = line.find_first_not_of(" \t"), end = line.find_first_of(" \t", start);
    const size_t rest = end == std::string::npos ? std::string::npos : line.find_first_not_of(" \t", end);
    try {
      if (start != std::string::npos)
        b.statement(line.substr(start, end - start), rest == std::string::npos ? "" : line.substr(rest, line.find_last_not_of(" \t") + 1 - rest));
    } catch (const std::exception& e) {
      error = "line " + std::to_string(number) + ": " + line + ": " + e.what();
      return false;
    }
  }
  capture = b.finish();
  return true;
}

bytes capture(const std::string& text) {
  bytes out;
  std::string error;
  EXPECT_TRUE(capture_from_text(text, out, error)) << error;
  return out;
}

}  // namespace varn_test
