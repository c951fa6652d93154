// The classic pcap file format as varn reads it: constants, header layouts and field getters.
#pragma once

#include <cstdint>

namespace varn {

// File header (24 bytes at offset 0), all fields little-endian.
constexpr uint32_t pcap_magic = 0xA1B2C3D4;  // microsecond timestamps; file bytes D4 C3 B2 A1
constexpr uint16_t pcap_version_major = 2;
constexpr uint16_t pcap_version_minor = 4;
constexpr uint32_t pcap_file_header_size = 24;
constexpr uint32_t pcap_snaplen_offset = 16;

// Record header (16 bytes before each frame): ts_sec, ts_usec, incl_len, orig_len.
constexpr uint32_t pcap_record_header_size = 16;
constexpr uint32_t rec_ts_sec = 0;
constexpr uint32_t rec_ts_usec = 4;
constexpr uint32_t rec_incl_len = 8;
constexpr uint32_t rec_orig_len = 12;

// One record is read into a buffer of this size; a larger read request ends the process.
constexpr uint32_t record_buffer_size = 131072;
// The largest incl_len whose frame fits the buffer behind its record header.
constexpr uint32_t max_frame_in_buffer = record_buffer_size - pcap_record_header_size;

// The furthest frame byte the handler reads on any frame: an ICMP header behind a 60-byte IPv4
// header ends at 14 + 60 + 8.
constexpr uint32_t max_header_reach = 82;

// Bytes of the record buffer the handler may read for a record with INCL_LEN captured bytes.
constexpr uint32_t record_span(uint32_t incl_len) noexcept {
  return pcap_record_header_size + (incl_len > max_header_reach ? incl_len : max_header_reach);
}

inline uint32_t le32_at(const uint8_t* p, uint32_t offset) noexcept {
  p += offset;
  return static_cast<uint32_t>(p[0]) | static_cast<uint32_t>(p[1]) << 8 |
         static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[3]) << 24;
}

inline uint16_t le16_at(const uint8_t* p, uint32_t offset) noexcept {
  p += offset;
  return static_cast<uint16_t>(p[0] | p[1] << 8);
}

}  // namespace varn
