#include "formats/classic_pcap.hpp"

#include <cstring>
#include <string>

#include "layers/link_layer.hpp"

namespace varn {

namespace {

// Magic numbers as the first four file bytes read little-endian (libpcap sf-pcap.c).
constexpr uint32_t magic_microseconds = 0xA1B2C3D4;
constexpr uint32_t magic_nanoseconds = 0xA1B23C4D;
constexpr uint32_t magic_modified = 0xA1B2CD34;  // the "patched" format with a longer record header

constexpr uint32_t link_type_mask = 0x03FFFFFF;  // the bits above hold the FCS length and flag

inline uint32_t load32(const uint8_t* p, bool big_endian) noexcept {
  return big_endian ? static_cast<uint32_t>(p[0]) << 24 | static_cast<uint32_t>(p[1]) << 16 |
                          static_cast<uint32_t>(p[2]) << 8 | p[3]
                    : static_cast<uint32_t>(p[3]) << 24 | static_cast<uint32_t>(p[2]) << 16 |
                          static_cast<uint32_t>(p[1]) << 8 | p[0];
}

inline uint16_t load16(const uint8_t* p, bool big_endian) noexcept {
  return static_cast<uint16_t>(big_endian ? p[0] << 8 | p[1] : p[1] << 8 | p[0]);
}

std::string end_inside(uint64_t record, size_t have, uint64_t want) {
  return "the file ends inside record " + std::to_string(record) + " (" + std::to_string(have) + " of " +
         std::to_string(want) + " bytes)";
}

// The record loop, with the byte order known at compile time.
template <bool BigEndian>
void walk(byte_source& in, const classic_pcap_header& h, frame_sink& sink) {
  const uint32_t header_size = h.modified ? 24 : 16;
  const uint8_t digits = h.nanoseconds ? 9 : 6;
  const uint32_t link_type = h.link_type;
  const bool link_read = link_type_is_read(link_type);
  // Versions before 2.3 store the two lengths the other way round; 2.3 files do so sometimes,
  // which shows as a captured length above the wire length (libpcap's rule).
  const bool swapped_lengths = h.version_minor < 3;
  const bool maybe_swapped = h.version_minor == 3;
  for (;;) {
    if (!in.fill(header_size)) {
      if (in.read_error() != 0)
        sink.stop(std::string("read error: ") + std::strerror(in.read_error()));
      else if (in.available() > 0)
        sink.stop(end_inside(sink.records() + 1, in.available(), header_size));
      return;
    }
    const uint8_t* r = in.data();
    uint32_t incl_len = load32(r + 8, BigEndian);
    uint32_t orig_len = load32(r + 12, BigEndian);
    if (swapped_lengths || (maybe_swapped && incl_len > orig_len)) std::swap(incl_len, orig_len);
    if (incl_len > k_max_frame_bytes) {
      sink.stop("record " + std::to_string(sink.records() + 1) + " claims " + std::to_string(incl_len) +
                " captured bytes, more than the " + std::to_string(k_max_frame_bytes) + " varn reads");
      return;
    }
    const size_t record_size = header_size + static_cast<size_t>(incl_len);
    if (!in.fill(record_size)) {
      if (in.read_error() != 0)
        sink.stop(std::string("read error: ") + std::strerror(in.read_error()));
      else
        sink.stop(end_inside(sink.records() + 1, in.available(), record_size));
      return;
    }
    r = in.data();
    if (!link_read)
      sink.frame_of_unread_link(link_type);
    else if (sink.next_frame(link_type, r + header_size, incl_len))
      sink.report_frame(orig_len, load32(r, BigEndian), load32(r + 4, BigEndian), digits);
    in.consume(record_size);
  }
}

}  // namespace

bool is_classic_pcap_magic(const uint8_t* magic) noexcept {
  const uint32_t m = load32(magic, false);
  for (uint32_t known : {magic_microseconds, magic_nanoseconds, magic_modified})
    if (m == known || m == __builtin_bswap32(known)) return true;
  return false;
}

bool parse_classic_header(const uint8_t* bytes, classic_pcap_header& header) noexcept {
  const uint32_t m = load32(bytes, false);
  bool found = false;
  for (uint32_t known : {magic_microseconds, magic_nanoseconds, magic_modified}) {
    if (m != known && m != __builtin_bswap32(known)) continue;
    found = true;
    header.big_endian = m != known;
    header.nanoseconds = known == magic_nanoseconds;
    header.modified = known == magic_modified;
  }
  if (!found) return false;
  header.version_major = load16(bytes + 4, header.big_endian);
  header.version_minor = load16(bytes + 6, header.big_endian);
  header.snaplen = load32(bytes + 16, header.big_endian);
  header.link_type = load32(bytes + 20, header.big_endian) & link_type_mask;
  return header.version_major == 2;
}

const char* classic_format_name(const classic_pcap_header& header) noexcept {
  if (header.modified) return header.big_endian ? "pcap-modified-be" : "pcap-modified";
  if (header.nanoseconds) return header.big_endian ? "pcap-ns-be" : "pcap-ns";
  return header.big_endian ? "pcap-be" : "pcap";
}

void walk_classic_records(byte_source& in, const classic_pcap_header& header, frame_sink& sink) {
  sink.link_type_declared(header.link_type);
  if (header.big_endian)
    walk<true>(in, header, sink);
  else
    walk<false>(in, header, sink);
}

}  // namespace varn
