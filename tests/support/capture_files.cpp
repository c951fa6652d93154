#include "support/capture_files.hpp"

namespace varn_test {

namespace {

uint32_t load32(const bytes& b, size_t at, bool big_endian) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i)
    v |= static_cast<uint32_t>(static_cast<uint8_t>(b[at + i])) << (big_endian ? 24 - 8 * i : 8 * i);
  return v;
}

void store(bytes& b, uint64_t v, int size, bool big_endian) {
  for (int i = 0; i < size; ++i) b += static_cast<char>(v >> (big_endian ? 8 * (size - 1 - i) : 8 * i) & 0xff);
}

void pad4(bytes& b) {
  while (b.size() % 4 != 0) b += '\0';
}

}  // namespace

bool read_classic_records(const bytes& file, uint32_t& link_type, std::vector<packet_record>& records) {
  if (file.size() < 24) return false;
  const uint32_t magic = load32(file, 0, false);
  bool big_endian, nanoseconds;
  if (magic == 0xA1B2C3D4 || magic == 0xA1B23C4D)
    big_endian = false;
  else if (magic == 0xD4C3B2A1 || magic == 0x4D3CB2A1)
    big_endian = true;
  else
    return false;
  nanoseconds = magic == 0xA1B23C4D || magic == 0x4D3CB2A1;
  link_type = load32(file, 20, big_endian);
  for (size_t at = 24; at + 16 <= file.size();) {
    const uint32_t incl = load32(file, at + 8, big_endian);
    if (at + 16 + incl > file.size()) break;
    packet_record r;
    r.ns = load32(file, at, big_endian) * 1000000000ull + load32(file, at + 4, big_endian) * (nanoseconds ? 1ull : 1000ull);
    r.wire_len = load32(file, at + 12, big_endian);
    r.data = file.substr(at + 16, incl);
    records.push_back(r);
    at += 16 + incl;
  }
  return true;
}

bytes classic_file(const classic_layout& layout, const std::vector<packet_record>& records) {
  bytes b;
  const bool be = layout.big_endian;
  store(b, layout.modified ? 0xA1B2CD34 : layout.nanoseconds ? 0xA1B23C4D : 0xA1B2C3D4, 4, be);
  store(b, 2, 2, be);
  store(b, layout.minor, 2, be);
  store(b, 0, 4, be);
  store(b, 0, 4, be);
  store(b, layout.snaplen, 4, be);
  store(b, layout.link_type, 4, be);
  for (const packet_record& r : records) {
    store(b, r.ns / 1000000000, 4, be);
    store(b, layout.nanoseconds ? r.ns % 1000000000 : r.ns % 1000000000 / 1000, 4, be);
    const bool swapped = layout.minor < 3;
    store(b, swapped ? r.wire_len : r.data.size(), 4, be);
    store(b, swapped ? r.data.size() : r.wire_len, 4, be);
    if (layout.modified) store(b, 0x0000000700080001ull, 8, be);  // interface, protocol, packet type, pad
    b += r.data;
  }
  return b;
}

void pcapng_writer::u16(bytes& b, uint16_t v) const { store(b, v, 2, m_big_endian); }
void pcapng_writer::u32(bytes& b, uint32_t v) const { store(b, v, 4, m_big_endian); }
void pcapng_writer::u64(bytes& b, uint64_t v) const {
  store(b, v >> (m_big_endian ? 32 : 0) & 0xffffffff, 4, m_big_endian);
  store(b, v >> (m_big_endian ? 0 : 32) & 0xffffffff, 4, m_big_endian);
}

void pcapng_writer::block(uint32_t type, const bytes& body) {
  bytes padded = body;
  pad4(padded);
  const uint32_t length = static_cast<uint32_t>(12 + padded.size());
  u32(m_data, type);
  u32(m_data, length);
  m_data += padded;
  u32(m_data, length);
}

void pcapng_writer::section_header() {
  bytes body;
  u32(body, 0x1A2B3C4D);
  u16(body, 1);
  u16(body, 0);
  u64(body, ~uint64_t{0});  // section length not given
  block(0x0A0D0D0A, body);
}

void pcapng_writer::interface(uint16_t link_type, uint32_t snaplen, int tsresol, int64_t tsoffset) {
  bytes body;
  u16(body, link_type);
  u16(body, 0);
  u32(body, snaplen);
  if (tsresol >= 0) {
    u16(body, 9);
    u16(body, 1);
    body += static_cast<char>(tsresol);
    pad4(body);
  }
  if (tsoffset != 0) {
    u16(body, 14);
    u16(body, 8);
    u64(body, static_cast<uint64_t>(tsoffset));
  }
  if (tsresol >= 0 || tsoffset != 0) u32(body, 0);  // end of options
  block(1, body);
}

void pcapng_writer::enhanced_packet(uint32_t interface, uint64_t timestamp, const bytes& data, uint32_t wire_len) {
  bytes body;
  u32(body, interface);
  u32(body, static_cast<uint32_t>(timestamp >> 32));  // high word first, in either byte order
  u32(body, static_cast<uint32_t>(timestamp));
  u32(body, static_cast<uint32_t>(data.size()));
  u32(body, wire_len);
  body += data;
  block(6, body);
}

void pcapng_writer::obsolete_packet(uint16_t interface, uint64_t timestamp, const bytes& data, uint32_t wire_len) {
  bytes body;
  u16(body, interface);
  u16(body, 0);  // drops
  u32(body, static_cast<uint32_t>(timestamp >> 32));
  u32(body, static_cast<uint32_t>(timestamp));
  u32(body, static_cast<uint32_t>(data.size()));
  u32(body, wire_len);
  body += data;
  block(2, body);
}

void pcapng_writer::simple_packet(const bytes& data, uint32_t wire_len) {
  bytes body;
  u32(body, wire_len);
  body += data;
  block(3, body);
}

}  // namespace varn_test
