// The classic pcap format in all the variants capture tools write: either byte order,
// microsecond or nanosecond timestamps, versions 2.x, the modified (extended record header)
// variant, any snapshot length.
#pragma once

#include <cstdint>

#include "formats/byte_source.hpp"
#include "formats/frame_sink.hpp"

namespace varn {

// The largest frame the readers take: a record or packet block claiming more captured bytes
// ends the walk. Memory follows the largest frame actually present.
constexpr uint32_t k_max_frame_bytes = 16u << 20;

struct classic_pcap_header {
  bool big_endian = false;   // the fields are big-endian (the file was written on such a host)
  bool nanoseconds = false;  // magic 0xa1b23c4d: the second field of a record counts nanoseconds
  bool modified = false;     // magic 0xa1b2cd34: 24-byte record headers (interface, protocol, type)
  uint16_t version_major = 0;
  uint16_t version_minor = 0;
  uint32_t snaplen = 0;
  uint32_t link_type = 0;    // the link-layer header type (the bits above it, FCS information, removed)
};

constexpr uint32_t classic_file_header_size = 24;

// True when the first four bytes at MAGIC are a classic pcap magic number in either byte order.
bool is_classic_pcap_magic(const uint8_t* magic) noexcept;

// Reads the 24-byte file header at BYTES into HEADER. False when it is not one this reader takes
// (unknown magic, or a major version other than 2).
bool parse_classic_header(const uint8_t* bytes, classic_pcap_header& header) noexcept;

// The format's name for reports: "pcap", "pcap-ns", with "-be" for big-endian files and
// "pcap-modified" for the extended records.
const char* classic_format_name(const classic_pcap_header& header) noexcept;

// Walks the records that follow the file header (already consumed from IN), handing each to SINK.
// A record claiming more than k_max_frame_bytes, a record cut short by the end of the input and a
// read error end the walk (SINK.stop says why); a record whose captured length exceeds the
// snapshot length is read as the file holds it.
void walk_classic_records(byte_source& in, const classic_pcap_header& header, frame_sink& sink);

}  // namespace varn
