#include "formats/pcapng.hpp"

#include <cstring>
#include <string>
#include <vector>

#include "formats/classic_pcap.hpp"
#include "layers/link_layer.hpp"

namespace varn {

namespace {

// Block types, as the IETF draft draft-ietf-opsawg-pcapng numbers them.
constexpr uint32_t block_section_header = 0x0A0D0D0A;
constexpr uint32_t block_interface = 0x00000001;
constexpr uint32_t block_packet_obsolete = 0x00000002;
constexpr uint32_t block_simple_packet = 0x00000003;
constexpr uint32_t block_enhanced_packet = 0x00000006;
// Records Wireshark gives a frame number although they carry no frame.
constexpr uint32_t k_numbered_records[] = {
    0x00000009,  // systemd journal export
    0x00000BAD,  // custom block, may be copied
    0x40000BAD,  // custom block, not to be copied
    0x00000204,  // sysdig event
    0x00000216,  // sysdig event, version 2
    0x00000221,  // sysdig event, version 2, large
};
constexpr uint32_t byte_order_magic = 0x1A2B3C4D;

constexpr uint32_t block_header_size = 8;    // type, total length
constexpr uint32_t block_trailer_size = 4;   // total length again
constexpr uint32_t section_header_min = 28;  // + byte order, version, section length
constexpr uint32_t interface_min = 20;       // + link type, reserved, snaplen
constexpr uint32_t packet_min = 32;          // + interface, timestamp (2), captured and wire lengths
constexpr uint32_t simple_packet_min = 16;   // + wire length
// A block that must be held in memory: a frame of the largest size and room for its options.
constexpr uint32_t k_max_block = k_max_frame_bytes + (1u << 20);

constexpr uint16_t option_end = 0;
constexpr uint16_t option_if_tsresol = 9;
constexpr uint16_t option_if_tsoffset = 14;

inline uint32_t le32(const uint8_t* p) noexcept {
  return static_cast<uint32_t>(p[3]) << 24 | static_cast<uint32_t>(p[2]) << 16 | static_cast<uint32_t>(p[1]) << 8 | p[0];
}

template <bool Swapped>
inline uint32_t load32(const uint8_t* p) noexcept {
  return Swapped ? __builtin_bswap32(le32(p)) : le32(p);
}

struct byte_order {
  bool swapped = false;  // the section's fields are big-endian
  uint32_t u32(const uint8_t* p) const noexcept { return swapped ? __builtin_bswap32(le32(p)) : le32(p); }
  uint16_t u16(const uint8_t* p) const noexcept {
    return static_cast<uint16_t>(swapped ? p[0] << 8 | p[1] : p[1] << 8 | p[0]);
  }
  uint64_t u64(const uint8_t* p) const noexcept {
    const uint64_t a = u32(p), b = u32(p + 4);
    return swapped ? a << 32 | b : b << 32 | a;
  }
};

// How an interface's timestamps become seconds and a fraction.
struct interface_info {
  uint32_t link_type = 0;
  bool link_read = false;
  uint32_t snaplen = 0;
  bool binary = false;       // the resolution is 2^-exponent, else 10^-exponent
  uint8_t exponent = 6;
  uint64_t units = 1000000;  // timestamp units per second
  int64_t offset = 0;        // seconds added to every timestamp (if_tsoffset)
};

struct timestamp {
  uint64_t sec;
  uint64_t frac;
  uint8_t digits;
};

constexpr uint64_t k_pow10[] = {1,
                                10,
                                100,
                                1000,
                                10000,
                                100000,
                                1000000,
                                10000000,
                                100000000,
                                1000000000,
                                10000000000,
                                100000000000,
                                1000000000000,
                                10000000000000,
                                100000000000000,
                                1000000000000000,
                                10000000000000000,
                                100000000000000000,
                                1000000000000000000,
                                10000000000000000000u};

timestamp convert(const interface_info& i, uint64_t ts) noexcept {
  uint64_t sec, rem;
  timestamp t{};
  if (!i.binary && i.exponent == 6) {  // the usual resolutions, with constant divisors
    sec = ts / 1000000;
    t = {0, ts % 1000000, 6};
  } else if (!i.binary && i.exponent == 9) {
    sec = ts / 1000000000;
    t = {0, ts % 1000000000, 9};
  } else if (i.binary) {
    sec = i.exponent >= 64 ? 0 : ts >> i.exponent;
    rem = i.exponent >= 64 ? ts : ts & ((uint64_t{1} << i.exponent) - 1);
    t = {0, static_cast<uint64_t>((static_cast<unsigned __int128>(rem) * 1000000000u) >> i.exponent), 9};
  } else {
    sec = ts / i.units;
    rem = ts % i.units;
    if (i.exponent <= 6)
      t = {0, rem * k_pow10[6 - i.exponent], 6};
    else
      t = {0, i.exponent <= 9 ? rem * k_pow10[9 - i.exponent] : rem / k_pow10[i.exponent - 9], 9};
  }
  if (i.offset < 0) {
    const uint64_t back = static_cast<uint64_t>(-(i.offset + 1)) + 1;
    if (back > sec) return {0, 0, t.digits};  // before 1970: no time
    t.sec = sec - back;
  } else {
    const uint64_t ahead = static_cast<uint64_t>(i.offset);
    t.sec = sec > UINT64_MAX - ahead ? UINT64_MAX : sec + ahead;
  }
  return t;
}

class pcapng_walker {
 public:
  pcapng_walker(byte_source& in, frame_sink& sink) : m_in(in), m_sink(sink) {}

  void run() {
    for (;;) {
      if (m_order.swapped)
        enhanced_packets<true>();
      else
        enhanced_packets<false>();
      const uint64_t at = m_in.offset();
      if (!m_in.fill(block_header_size)) {
        if (m_in.read_error() != 0)
          m_sink.stop(std::string("read error: ") + std::strerror(m_in.read_error()));
        else if (m_in.available() > 0)
          m_sink.stop("the file ends inside the block header at byte " + std::to_string(at));
        return;
      }
      const uint32_t type_le = le32(m_in.data());
      if (type_le == block_section_header && !section_byte_order(at)) return;
      const uint32_t type = m_order.u32(m_in.data());
      const uint32_t length = m_order.u32(m_in.data() + 4);
      if (length < block_header_size + block_trailer_size || length % 4 != 0) {
        m_sink.stop("the block at byte " + std::to_string(at) + " has a total length of " + std::to_string(length) +
                    " (at least 12 and a multiple of 4 expected)");
        return;
      }
      const bool held = type == block_section_header || type == block_interface || type == block_enhanced_packet ||
                        type == block_simple_packet || type == block_packet_obsolete;
      if (!held) {
        if (!step_over(at, type, length)) return;
        continue;
      }
      if (length > k_max_block) {
        m_sink.stop("the block at byte " + std::to_string(at) + " claims " + std::to_string(length) +
                    " bytes, more than the " + std::to_string(k_max_block) + " varn reads");
        return;
      }
      if (!m_in.fill(length)) {
        ended_inside(at, length);
        return;
      }
      const uint8_t* b = m_in.data();
      if (m_order.u32(b + length - block_trailer_size) != length) {
        m_sink.stop("the block at byte " + std::to_string(at) + " ends with a total length of " +
                    std::to_string(m_order.u32(b + length - block_trailer_size)) + ", not " + std::to_string(length));
        return;
      }
      bool go_on = true;
      switch (type) {
        case block_section_header:
          go_on = section_header(b, length, at);
          break;
        case block_interface:
          go_on = interface_description(b, length, at);
          break;
        case block_enhanced_packet:
          packet_block(b, length, true);
          break;
        case block_simple_packet:
          simple_packet(b, length);
          break;
        default:
          packet_block(b, length, false);
          break;
      }
      if (!go_on) return;
      m_in.consume(length);
    }
  }

 private:
  void ended_inside(uint64_t at, uint64_t length) {
    if (m_in.read_error() != 0)
      m_sink.stop(std::string("read error: ") + std::strerror(m_in.read_error()));
    else
      m_sink.stop("the file ends inside the block at byte " + std::to_string(at) + " (" +
                  std::to_string(m_in.offset() + m_in.available() - at) + " of " + std::to_string(length) + " bytes)");
  }

  // The byte order of the section whose header starts at the current position.
  bool section_byte_order(uint64_t at) {
    if (!m_in.fill(block_header_size + 4)) {
      ended_inside(at, block_header_size + 4);
      return false;
    }
    const uint32_t magic = le32(m_in.data() + block_header_size);
    if (magic != byte_order_magic && magic != __builtin_bswap32(byte_order_magic)) {
      m_sink.stop("the section header at byte " + std::to_string(at) + " has no byte-order magic");
      return false;
    }
    m_order.swapped = magic != byte_order_magic;
    return true;
  }

  // Steps over a block not read, checking its trailing length.
  bool step_over(uint64_t at, uint32_t type, uint32_t length) {
    for (uint32_t numbered : k_numbered_records)
      if (type == numbered) m_sink.record_without_frame();
    if (!m_in.skip(length - block_trailer_size) || !m_in.fill(block_trailer_size)) {
      ended_inside(at, length);
      return false;
    }
    const uint32_t trailer = m_order.u32(m_in.data());
    if (trailer != length) {
      m_sink.stop("the block at byte " + std::to_string(at) + " ends with a total length of " + std::to_string(trailer) +
                  ", not " + std::to_string(length));
      return false;
    }
    m_in.consume(block_trailer_size);
    return true;
  }

  bool section_header(const uint8_t* b, uint32_t length, uint64_t at) {
    if (length < section_header_min) {
      m_sink.stop("the section header at byte " + std::to_string(at) + " is too short");
      return false;
    }
    const uint16_t major = m_order.u16(b + 12);
    if (major != 1) {
      m_sink.stop("the section header at byte " + std::to_string(at) + " is of version " + std::to_string(major) + "." +
                  std::to_string(m_order.u16(b + 14)) + ", not 1.x");
      return false;
    }
    m_interfaces.clear();  // interface numbers start again in every section
    return true;
  }

  bool interface_description(const uint8_t* b, uint32_t length, uint64_t at) {
    if (length < interface_min) {
      m_sink.stop("the interface description at byte " + std::to_string(at) + " is too short");
      return false;
    }
    interface_info i;
    i.link_type = m_order.u16(b + 8);
    i.link_read = link_type_is_read(i.link_type);
    i.snaplen = m_order.u32(b + 12);
    // Options: code, length, value padded to 4 bytes.
    for (uint32_t o = 16; o + 4 <= length - block_trailer_size;) {
      const uint16_t code = m_order.u16(b + o);
      const uint16_t size = m_order.u16(b + o + 2);
      if (code == option_end || o + 4 + size > length - block_trailer_size) break;
      const uint8_t* value = b + o + 4;
      if (code == option_if_tsresol && size >= 1) {
        const bool binary = (value[0] & 0x80) != 0;
        const uint8_t exponent = value[0] & 0x7f;
        if (binary ? exponent <= 63 : exponent <= 19) {  // larger ones cannot be counted in 64 bits
          i.binary = binary;
          i.exponent = exponent;
          i.units = binary ? uint64_t{1} << exponent : k_pow10[exponent];
        }
      } else if (code == option_if_tsoffset && size >= 8) {
        i.offset = static_cast<int64_t>(m_order.u64(value));
      }
      o += 4 + ((size + 3u) & ~3u);
    }
    m_sink.link_type_declared(i.link_type);
    m_interfaces.push_back(i);
    return true;
  }

  // A packet of interface ID with CAP_LEN bytes at DATA; SPACE is the room the block has for them.
  void packet(uint32_t id, const uint8_t* data, uint32_t cap_len, uint32_t wire_len, uint64_t space, uint64_t ts,
              bool timed) {
    if (id >= m_interfaces.size()) {
      m_sink.unreadable_packet(frame_sink::packet_problem::undescribed_interface);
      return;
    }
    if (cap_len > space) {
      m_sink.unreadable_packet(frame_sink::packet_problem::damaged_block);
      return;
    }
    const interface_info& i = m_interfaces[id];
    if (!i.link_read) {
      m_sink.frame_of_unread_link(i.link_type);
      return;
    }
    if (!m_sink.next_frame(i.link_type, data, cap_len)) return;
    const timestamp t = timed ? convert(i, ts) : timestamp{0, 0, 6};
    m_sink.report_frame(wire_len, t.sec, t.frac, t.digits);
  }

  // The steady state, with the byte order known at compile time: enhanced packet blocks of
  // described interfaces of a link type read, whole in the buffer and sound. Returns at the first
  // block that is anything else (run() then handles it) or at the end of the input.
  template <bool Swapped>
  void enhanced_packets() {
    for (;;) {
      if (!m_in.fill(block_header_size)) return;
      const uint8_t* b = m_in.data();
      const uint32_t length = load32<Swapped>(b + 4);
      if (load32<Swapped>(b) != block_enhanced_packet || length < packet_min || length % 4 != 0 || length > k_max_block)
        return;
      if (!m_in.fill(length)) return;
      b = m_in.data();
      const uint32_t id = load32<Swapped>(b + 8);
      const uint32_t cap_len = load32<Swapped>(b + 20);
      if (load32<Swapped>(b + length - block_trailer_size) != length || id >= m_interfaces.size() ||
          cap_len > length - packet_min || !m_interfaces[id].link_read)
        return;
      const interface_info& i = m_interfaces[id];
      if (m_sink.next_frame(i.link_type, b + 28, cap_len)) {
        const timestamp t = convert(i, static_cast<uint64_t>(load32<Swapped>(b + 12)) << 32 | load32<Swapped>(b + 16));
        m_sink.report_frame(load32<Swapped>(b + 24), t.sec, t.frac, t.digits);
      }
      m_in.consume(length);
    }
  }

  // Enhanced and obsolete packet blocks share their layout but for the interface id: 32 bits in
  // the enhanced block, 16 (before a 16-bit drop count) in the obsolete one.
  void packet_block(const uint8_t* b, uint32_t length, bool enhanced) {
    if (length < packet_min) {
      m_sink.unreadable_packet(frame_sink::packet_problem::damaged_block);
      return;
    }
    const uint32_t interface_id = enhanced ? m_order.u32(b + 8) : m_order.u16(b + 8);
    const uint64_t ts = static_cast<uint64_t>(m_order.u32(b + 12)) << 32 | m_order.u32(b + 16);
    packet(interface_id, b + 28, m_order.u32(b + 20), m_order.u32(b + 24), length - packet_min, ts, true);
  }

  // The captured length is what the block holds, at most the wire length and the snapshot length
  // of interface 0; there is no timestamp.
  void simple_packet(const uint8_t* b, uint32_t length) {
    if (length < simple_packet_min) {
      m_sink.unreadable_packet(frame_sink::packet_problem::damaged_block);
      return;
    }
    const uint32_t wire_len = m_order.u32(b + 8);
    uint32_t cap_len = length - simple_packet_min;
    if (wire_len < cap_len) cap_len = wire_len;
    if (!m_interfaces.empty() && m_interfaces[0].snaplen != 0 && m_interfaces[0].snaplen < cap_len)
      cap_len = m_interfaces[0].snaplen;
    packet(0, b + 12, cap_len, wire_len, cap_len, 0, false);
  }

  byte_source& m_in;
  frame_sink& m_sink;
  byte_order m_order;
  std::vector<interface_info> m_interfaces;
};

}  // namespace

bool is_pcapng_start(const uint8_t* bytes) noexcept {
  if (le32(bytes) != block_section_header) return false;
  const uint32_t magic = le32(bytes + 8);
  return magic == byte_order_magic || magic == __builtin_bswap32(byte_order_magic);
}

void walk_pcapng(byte_source& in, frame_sink& sink) { pcapng_walker(in, sink).run(); }

}  // namespace varn
