#include "support/capture_files.hpp"

namespace varn_test {

namespace {

uint32_t load32(const bytes& b, size_t at, bool big_endian) {
  uint32_t v = 0;
  for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(static_cast<uint8_t>(b[at + i])) << (big_endian ? 24 - 8 * i : 8 * i);
  return v;
}

bytes store(uint64_t v, int size, bool big_endian) {
  bytes b;
  for (int i = 0; i < size; ++i) b += static_cast<char>(v >> (big_endian ? 8 * (size - 1 - i) : 8 * i) & 0xff);
  return b;
}

}  // namespace

bool read_classic_records(const bytes& file, uint32_t& link_type, std::vector<packet_record>& records) {
  const uint32_t magic = file.size() < 24 ? 0 : load32(file, 0, false);
  const bool big_endian = magic == 0xD4C3B2A1 || magic == 0x4D3CB2A1, nanoseconds = magic == 0xA1B23C4D || magic == 0x4D3CB2A1;
  if (!big_endian && magic != 0xA1B2C3D4 && magic != 0xA1B23C4D) return false;
  link_type = load32(file, 20, big_endian);
  for (size_t at = 24; at + 16 <= file.size() && at + 16 + load32(file, at + 8, big_endian) <= file.size();) {
    auto field = [&](int i) -> uint64_t { return load32(file, at + 4 * i, big_endian); };
    records.push_back({field(0) * 1000000000 + field(1) * (nanoseconds ? 1 : 1000), static_cast<uint32_t>(field(3)),
                       file.substr(at + 16, field(2))});
    at += 16 + field(2);
  }
  return true;
}

bytes classic_file(const classic_layout& layout, const std::vector<packet_record>& records) {
  const bool be = layout.big_endian, swapped = layout.minor < 3;
  bytes b = store(layout.modified ? 0xA1B2CD34 : layout.nanoseconds ? 0xA1B23C4D : 0xA1B2C3D4, 4, be) + store(2, 2, be) +
            store(layout.minor, 2, be) + store(0, 8, be) + store(layout.snaplen, 4, be) + store(layout.link_type, 4, be);
  for (const packet_record& r : records) {
    b += store(r.ns / 1000000000, 4, be) + store(layout.nanoseconds ? r.ns % 1000000000 : r.ns % 1000000000 / 1000, 4, be) +
         store(swapped ? r.wire_len : r.data.size(), 4, be) + store(swapped ? r.data.size() : r.wire_len, 4, be);
    if (layout.modified) b += store(0x0000000700080001ull, 8, be);  // interface, protocol, packet type, pad
    b += r.data;
  }
  return b;
}

bytes pcapng_writer::number(uint64_t v, int size) const { return store(v, size, m_big_endian); }

void pcapng_writer::block(uint32_t type, bytes body) {
  body.resize((body.size() + 3) / 4 * 4, '\0');
  m_data += number(type, 4) + number(12 + body.size(), 4) + body + number(12 + body.size(), 4);
}

void pcapng_writer::section_header() { block(0x0A0D0D0A, number(0x1A2B3C4D, 4) + number(1, 2) + number(0, 2) + bytes(8, '\xff')); }

void pcapng_writer::interface(uint16_t link_type, uint32_t snaplen, int tsresol, int64_t tsoffset) {
  bytes body = number(link_type, 2) + number(0, 2) + number(snaplen, 4);
  if (tsresol >= 0) body += number(9, 2) + number(1, 2) + static_cast<char>(tsresol) + bytes(3, '\0');
  if (tsoffset != 0) body += number(14, 2) + number(8, 2) + number(static_cast<uint64_t>(tsoffset), 8);
  if (tsresol >= 0 || tsoffset != 0) body += number(0, 4);  // end of options
  block(1, body);
}

// The timestamp's high word first, in either byte order.
void pcapng_writer::packet(uint32_t type, bytes head, uint64_t timestamp, const bytes& data, uint32_t wire_len) {
  block(type, head + number(timestamp >> 32, 4) + number(timestamp, 4) + number(data.size(), 4) + number(wire_len, 4) + data);
}

void pcapng_writer::enhanced_packet(uint32_t interface, uint64_t timestamp, const bytes& data, uint32_t wire_len) {
  packet(6, number(interface, 4), timestamp, data, wire_len);
}

void pcapng_writer::obsolete_packet(uint16_t interface, uint64_t timestamp, const bytes& data, uint32_t wire_len) {
  packet(2, number(interface, 2) + number(0, 2), timestamp, data, wire_len);  // no drops
}

void pcapng_writer::simple_packet(const bytes& data, uint32_t wire_len) { block(3, number(wire_len, 4) + data); }

}  // namespace varn_test
