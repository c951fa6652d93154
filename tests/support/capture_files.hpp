// Capture files of every format -any_format reads, written and read by the tests: classic pcap
// in all its variants and pcapng sections in either byte order.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "support/capture_text.hpp"

namespace varn_test {

struct packet_record {
  uint64_t ns = 0;  // capture time in nanoseconds since 1970
  uint32_t wire_len = 0;
  bytes data;  // the captured bytes
};

// The records of a classic pcap file (either byte order, microseconds or nanoseconds; 16-byte
// record headers) and its link type. False when FILE is not one.
bool read_classic_records(const bytes& file, uint32_t& link_type, std::vector<packet_record>& records);

struct classic_layout {
  bool big_endian = false;
  bool nanoseconds = false;
  bool modified = false;  // magic 0xa1b2cd34, 24-byte record headers
  uint16_t minor = 4;     // before 2.3 the two lengths are stored the other way round
  uint32_t snaplen = 65535;
  uint32_t link_type = 1;
};

// A classic pcap file holding RECORDS.
bytes classic_file(const classic_layout& layout, const std::vector<packet_record>& records);

// pcapng blocks, appended in the byte order chosen.
class pcapng_writer {
 public:
  explicit pcapng_writer(bool big_endian) : m_big_endian(big_endian) {}
  void section_header();
  // An interface; TSRESOL is the if_tsresol byte (none when negative), TSOFFSET the if_tsoffset
  // seconds (none when 0).
  void interface(uint16_t link_type, uint32_t snaplen, int tsresol = -1, int64_t tsoffset = 0);
  void enhanced_packet(uint32_t interface, uint64_t timestamp, const bytes& data, uint32_t wire_len);
  void obsolete_packet(uint16_t interface, uint64_t timestamp, const bytes& data, uint32_t wire_len);
  void simple_packet(const bytes& data, uint32_t wire_len);
  // Any other block, its body padded to 4 bytes.
  void block(uint32_t type, bytes body);
  const bytes& data() const { return m_data; }

 private:
  bytes number(uint64_t v, int size) const;
  void packet(uint32_t type, bytes head, uint64_t timestamp, const bytes& data, uint32_t wire_len);
  bool m_big_endian;
  bytes m_data;
};

}  // namespace varn_test
