// The selection filters: Ethernet type, minimum wire size, frame numbers, time window, IPv4 and
// IPv6 addresses (either way round with track_replies), ports and the byte pattern.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "capture/frame_filters.hpp"
#include "capture/pcap_format.hpp"
#include "support/pcap_builder.hpp"
#include "zq/zq_address_text.hpp"

namespace {

using varn_test::bytes;
using varn_test::put_be16;
using varn_test::put_le32;

constexpr uint64_t k_epoch_1970 = 116444736000000000ULL;  // 100 ns intervals from 1601 to 1970

// A record buffer as the reader hands it over: record header, frame, and at least the bytes the
// handler may read (record_span) behind it.
struct record_buffer {
  std::vector<uint8_t> bytes_;
  const uint8_t* record() const { return bytes_.data(); }
  const uint8_t* frame() const { return bytes_.data() + 16; }
};

record_buffer make_record(const bytes& frame, uint32_t incl_len, uint32_t orig_len, uint32_t ts_sec = 1000,
                          uint32_t ts_usec = 0) {
  bytes r;
  put_le32(r, ts_sec);
  put_le32(r, ts_usec);
  put_le32(r, incl_len);
  put_le32(r, orig_len);
  r += frame;
  record_buffer out;
  out.bytes_.assign(r.begin(), r.end());
  out.bytes_.resize(std::max<size_t>(out.bytes_.size(), varn::record_span(incl_len)), 0);
  return out;
}

record_buffer make_record(const bytes& frame) {
  return make_record(frame, static_cast<uint32_t>(frame.size()), static_cast<uint32_t>(frame.size()));
}

// The ICMP header length H of an Ethernet IPv4 or IPv6 frame, worked out from the layout.
uint32_t header_length(const uint8_t* frame) {
  if (frame[12] == 0x86 && frame[13] == 0xdd) return 62;
  return 22 + 4u * (frame[14] & 0x0f);
}

bool passes(const varn::frame_context& ctx, const record_buffer& r, uint64_t frame_number = 1) {
  const uint32_t h = header_length(r.frame());
  const uint32_t incl = varn::le32_at(r.record(), 8);
  const uint32_t l = incl > h ? incl - h : 0;
  return varn::frame_passes_filters(frame_number, r.record(), r.frame(), r.frame() + h, l, &ctx);
}

using ip4 = varn_test::ipv4;
using ip6 = varn_test::ipv6;

bytes icmp4(ip4 src, ip4 dst, const bytes& payload = bytes(32, 'p')) {
  varn_test::icmp4_spec s;
  s.src = src;
  s.dst = dst;
  s.payload = payload;
  return varn_test::icmp4_frame(s);
}

bytes icmp6(const ip6& src, const ip6& dst, const bytes& payload = bytes(32, 'p')) {
  varn_test::icmp6_spec s;
  s.src = src;
  s.dst = dst;
  s.payload = payload;
  return varn_test::icmp6_frame(s);
}

// The filter value of an IPv4 address: its four bytes read little-endian.
uint32_t filter_value(ip4 a) {
  return uint32_t{a[0]} | uint32_t{a[1]} << 8 | uint32_t{a[2]} << 16 | uint32_t{a[3]} << 24;
}

std::vector<uint8_t> bytes_of(const ip6& a) { return std::vector<uint8_t>(a.begin(), a.end()); }

// ---------------------------------------------------------------------------------------------

TEST(frame_filters_test, missing_record_context_or_frame_fails) {
  const record_buffer r = make_record(icmp4({1, 2, 3, 4}, {5, 6, 7, 8}));
  varn::frame_context ctx;
  EXPECT_TRUE(varn::frame_passes_filters(1, r.record(), r.frame(), r.frame() + 42, 32, &ctx));
  EXPECT_FALSE(varn::frame_passes_filters(1, nullptr, r.frame(), r.frame() + 42, 32, &ctx));
  EXPECT_FALSE(varn::frame_passes_filters(1, r.record(), nullptr, r.frame() + 42, 32, &ctx));
  EXPECT_FALSE(varn::frame_passes_filters(1, r.record(), r.frame(), r.frame() + 42, 32, nullptr));
}

TEST(frame_filters_test, with_nothing_set_every_ethernet_ipv4_or_ipv6_frame_passes) {
  varn::frame_context ctx;
  EXPECT_GT(ctx.src_port, 65535u);
  EXPECT_GT(ctx.dst_port, 65535u);
  EXPECT_TRUE(passes(ctx, make_record(icmp4({1, 2, 3, 4}, {5, 6, 7, 8}))));
  EXPECT_TRUE(passes(ctx, make_record(icmp6(varn_test::v6("fe80::1"), varn_test::v6("ff02::1")))));
  // The filters do not look at the IP protocol: the handler has already done so.
  varn_test::icmp4_spec tcp;
  tcp.protocol = 6;
  EXPECT_TRUE(passes(ctx, make_record(varn_test::icmp4_frame(tcp))));
  struct ethertype_case {
    uint16_t ethertype;
    bool pass;
  };
  for (const ethertype_case& c : {ethertype_case{0x0800, true}, ethertype_case{0x86DD, true},
                                  ethertype_case{0x8100, false}, ethertype_case{0x88A8, false},
                                  ethertype_case{0x0806, false}, ethertype_case{0x0801, false},
                                  ethertype_case{0x86DC, false}, ethertype_case{0x0008, false},
                                  ethertype_case{0x0000, false}}) {
    SCOPED_TRACE(c.ethertype);
    varn_test::icmp4_spec s;
    s.ethertype = c.ethertype;
    EXPECT_EQ(passes(ctx, make_record(varn_test::icmp4_frame(s))), c.pass);
  }
}

TEST(frame_filters_test, min_size_compares_with_wire_length) {
  struct size_case {
    uint32_t min_size;
    uint32_t orig_len;
    uint32_t incl_len;
    bool pass;
  };
  const size_case cases[] = {
      {100, 100, 60, true},   // the capture cut the frame; the wire length counts
      {100, 99, 74, false},
      {100, 101, 74, true},
      {74, 73, 74, false},    // captured length big enough, wire length not
      {0, 0, 74, true},
      {1, 0, 74, false},
      {0xFFFFFFFF, 0xFFFFFFFF, 74, true},
      {0xFFFFFFFF, 0xFFFFFFFE, 74, false},
  };
  const bytes frame = icmp4({1, 2, 3, 4}, {5, 6, 7, 8});  // 74 bytes
  for (const size_case& c : cases) {
    SCOPED_TRACE(std::to_string(c.min_size) + " vs " + std::to_string(c.orig_len));
    varn::frame_context ctx;
    ctx.min_size = c.min_size;
    EXPECT_EQ(passes(ctx, make_record(frame, c.incl_len, c.orig_len)), c.pass);
  }
}

TEST(frame_filters_test, frame_number_set_selects_by_number) {
  varn::frame_context ctx;
  ctx.frames = {1, 3, uint64_t{1} << 40};
  const record_buffer r = make_record(icmp4({1, 2, 3, 4}, {5, 6, 7, 8}));
  EXPECT_TRUE(passes(ctx, r, 1));
  EXPECT_FALSE(passes(ctx, r, 2));
  EXPECT_TRUE(passes(ctx, r, 3));
  EXPECT_FALSE(passes(ctx, r, 4));
  EXPECT_FALSE(passes(ctx, r, 0));
  EXPECT_TRUE(passes(ctx, r, uint64_t{1} << 40));
  EXPECT_FALSE(passes(ctx, r, (uint64_t{1} << 40) + 1));
}

// The time value of a capture timestamp, from the formula of the time filter.
uint64_t time_of(uint32_t ts_sec, uint32_t ts_usec) {
  if (ts_sec == 0) return 0;
  return uint64_t{ts_sec} * 10000000 + uint64_t{ts_usec} * 10 + k_epoch_1970;
}

TEST(frame_filters_test, time_window_is_inclusive_at_both_ends) {
  constexpr uint64_t all_ones = std::numeric_limits<uint64_t>::max();
  struct time_case {
    uint32_t ts_sec;
    uint32_t ts_usec;
    uint64_t start;
    uint64_t stop;
    bool pass;
  };
  const uint64_t t = time_of(1600000000, 123456);
  const time_case cases[] = {
      {1600000000, 123456, t, 0, true},
      {1600000000, 123456, t + 1, 0, false},
      {1600000000, 123456, t - 1, 0, true},
      {1600000000, 123456, 0, t, true},
      {1600000000, 123456, 0, t - 1, false},
      {1600000000, 123456, t, t, true},
      {1600000000, 123456, t - 10, t + 10, true},
      {1600000000, 123456, t + 10, t + 20, false},
      {1600000000, 123456, 1, all_ones, true},      // all ones bounds nothing
      {0xFFFFFFFF, 999999, 1, all_ones, true},
      // The microseconds count ten intervals each, also beyond one second.
      {5, 2000000, time_of(7, 0), 0, true},
      {5, 1999999, time_of(7, 0), 0, false},
      // A record without seconds has the time value 0.
      {0, 500, 1, 0, false},
      {0, 500, 0, 1, true},
      {0, 500, 0, all_ones, true},
      {0, 500, 1, all_ones, false},
      {1, 0, k_epoch_1970 + 10000000, 0, true},
      {1, 0, k_epoch_1970 + 10000001, 0, false},
  };
  const bytes frame = icmp4({1, 2, 3, 4}, {5, 6, 7, 8});
  for (const time_case& c : cases) {
    SCOPED_TRACE(std::to_string(c.ts_sec) + "." + std::to_string(c.ts_usec) + " in [" + std::to_string(c.start) +
                 ", " + std::to_string(c.stop) + "]");
    varn::frame_context ctx;
    ctx.start_time = c.start;
    ctx.stop_time = c.stop;
    const uint32_t n = static_cast<uint32_t>(frame.size());
    EXPECT_EQ(passes(ctx, make_record(frame, n, n, c.ts_sec, c.ts_usec)), c.pass);
  }
}

TEST(frame_filters_test, ipv4_address_filters_with_and_without_track_replies) {
  const ip4 a{192, 168, 1, 1};
  const ip4 b{10, 0, 0, 2};
  const ip4 c{172, 16, 0, 3};
  struct address_case {
    const char* name;
    uint32_t src_ip;
    uint32_t dst_ip;
    bool track;
    ip4 from;
    ip4 to;
    bool pass;
  };
  const uint32_t A = filter_value(a);
  const uint32_t B = filter_value(b);
  const address_case cases[] = {
      {"A to B as asked", A, B, false, a, b, true},
      {"reply B to A", A, B, false, b, a, false},
      {"A to C", A, B, false, a, c, false},
      {"C to B", A, B, false, c, b, false},
      {"track: A to B", A, B, true, a, b, true},
      {"track: reply B to A", A, B, true, b, a, true},
      {"track: A to C", A, B, true, a, c, false},
      {"track: C to B", A, B, true, c, b, false},
      {"track: C to A", A, B, true, c, a, false},
      {"track: A to A", A, B, true, a, a, false},
      {"source only: A to C", A, 0, false, a, c, true},
      {"source only: C to A", A, 0, false, c, a, false},
      {"source only, track: C to A", A, 0, true, c, a, true},
      {"source only, track: A to C", A, 0, true, a, c, true},
      {"source only, track: B to C", A, 0, true, b, c, false},
      {"destination only: C to B", 0, B, false, c, b, true},
      {"destination only: B to C", 0, B, false, b, c, false},
      {"destination only, track: B to C", 0, B, true, b, c, true},
      {"destination only, track: A to C", 0, B, true, a, c, false},
      // The stored value is the address bytes read little-endian: 192.168.1.1 is 0x0101A8C0.
      {"0x0101A8C0 selects 192.168.1.1", 0x0101A8C0, 0, false, a, c, true},
      {"big-endian value does not", 0xC0A80101, 0, false, a, c, false},
      // 0 means unset: 0.0.0.0 cannot be asked for, every frame passes.
      {"0 is unset", 0, 0, false, {0, 0, 0, 0}, c, true},
  };
  for (const address_case& t : cases) {
    SCOPED_TRACE(t.name);
    varn::frame_context ctx;
    ctx.src_ip = t.src_ip;
    ctx.dst_ip = t.dst_ip;
    ctx.track_replies = t.track;
    EXPECT_EQ(passes(ctx, make_record(icmp4(t.from, t.to))), t.pass);
  }
}

TEST(frame_filters_test, ipv6_address_filters_with_and_without_track_replies) {
  const ip6 x = varn_test::v6("2001:db8::1");
  const ip6 y = varn_test::v6("fe80::2");
  const ip6 z = varn_test::v6("2001:db8::3");
  struct address_case {
    const char* name;
    bool src_set;
    bool dst_set;
    bool track;
    ip6 from;
    ip6 to;
    bool pass;
  };
  const address_case cases[] = {
      {"X to Y as asked", true, true, false, x, y, true},
      {"reply Y to X", true, true, false, y, x, false},
      {"X to Z", true, true, false, x, z, false},
      {"Z to Y", true, true, false, z, y, false},
      {"track: X to Y", true, true, true, x, y, true},
      {"track: Y to X", true, true, true, y, x, true},
      {"track: X to Z", true, true, true, x, z, false},
      {"track: Z to Y", true, true, true, z, y, false},
      {"source only: X to Z", true, false, false, x, z, true},
      {"source only: Z to X", true, false, false, z, x, false},
      {"source only, track: Z to X", true, false, true, z, x, true},
      {"source only, track: Y to Z", true, false, true, y, z, false},
      {"destination only: Z to Y", false, true, false, z, y, true},
      {"destination only: Y to Z", false, true, false, y, z, false},
      {"destination only, track: Y to Z", false, true, true, y, z, true},
  };
  for (const address_case& t : cases) {
    SCOPED_TRACE(t.name);
    varn::frame_context ctx;
    if (t.src_set) ctx.src_ipv6 = bytes_of(x);
    if (t.dst_set) ctx.dst_ipv6 = bytes_of(y);
    ctx.track_replies = t.track;
    EXPECT_EQ(passes(ctx, make_record(icmp6(t.from, t.to))), t.pass);
  }
}

TEST(frame_filters_test, address_filter_of_one_ip_version_rejects_every_frame_of_the_other) {
  const ip4 a{192, 168, 1, 1};
  const ip6 x = varn_test::v6("2001:db8::1");
  const record_buffer v4 = make_record(icmp4(a, a));
  const record_buffer v6 = make_record(icmp6(x, x));
  for (bool track : {false, true}) {
    SCOPED_TRACE(track);
    varn::frame_context ipv6_source;
    ipv6_source.src_ipv6 = bytes_of(x);
    ipv6_source.track_replies = track;
    EXPECT_FALSE(passes(ipv6_source, v4));
    EXPECT_TRUE(passes(ipv6_source, v6));
    varn::frame_context ipv6_destination;
    ipv6_destination.dst_ipv6 = bytes_of(x);
    ipv6_destination.track_replies = track;
    EXPECT_FALSE(passes(ipv6_destination, v4));
    varn::frame_context ipv4_source;
    ipv4_source.src_ip = filter_value(a);
    ipv4_source.track_replies = track;
    EXPECT_TRUE(passes(ipv4_source, v4));
    EXPECT_FALSE(passes(ipv4_source, v6));
    varn::frame_context ipv4_destination;
    ipv4_destination.dst_ip = filter_value(a);
    ipv4_destination.track_replies = track;
    EXPECT_FALSE(passes(ipv4_destination, v6));
    // Both kinds set: nothing passes, whatever matches.
    varn::frame_context both = ipv4_source;
    both.src_ipv6 = bytes_of(x);
    EXPECT_FALSE(passes(both, v4));
    EXPECT_FALSE(passes(both, v6));
  }
}

// ---------------------------------------------------------------------------------------------
// IPv6 filter values shorter than 16 bytes.

std::vector<uint8_t> groups(std::initializer_list<uint16_t> gs) {
  std::vector<uint8_t> out;
  for (uint16_t g : gs) {
    out.push_back(static_cast<uint8_t>(g >> 8));
    out.push_back(static_cast<uint8_t>(g & 0xff));
  }
  return out;
}

TEST(frame_filters_test, ipv6_filter_value_matches_address_with_one_zero_run_inserted) {
  struct match_case {
    const char* name;
    std::vector<uint8_t> value;
    const char* address;
    bool match;
  };
  const match_case cases[] = {
      // "2001:db8::1" as read: groups 2001 db8 1.
      {"2001:db8::1 full form", groups({0x2001, 0xdb8, 1}), "2001:db8:0:0:0:0:0:1", true},
      {"2001:db8::1 zero run at the end", groups({0x2001, 0xdb8, 1}), "2001:db8:1::", true},
      {"2001:db8::1 zero run in front", groups({0x2001, 0xdb8, 1}), "::2001:db8:1", true},
      {"2001:db8::1 zero run after 2001", groups({0x2001, 0xdb8, 1}), "2001:0:0:0:0:0:db8:1", true},
      {"2001:db8::1 zeros split in two runs", groups({0x2001, 0xdb8, 1}), "2001:db8:0:0:0:0:1:0", false},
      {"2001:db8::1 other last group", groups({0x2001, 0xdb8, 1}), "2001:db8::2", false},
      {"2001:db8::1 non-zero in the run", groups({0x2001, 0xdb8, 1}), "2001:db8:0:0:5:0:0:1", false},
      {"fe80::1", groups({0xfe80, 1}), "fe80::1", true},
      {"fe80::1 against fe81::1", groups({0xfe80, 1}), "fe81::1", false},
      {"fe80::1 against fe80::1:1", groups({0xfe80, 1}), "fe80::1:1", false},
      {"::1", groups({1}), "::1", true},
      {"::1 also 1::", groups({1}), "1::", true},
      {"::2 against ::1", groups({2}), "::1", false},
      {"seven groups insert one zero", groups({1, 2, 3, 5, 6, 7, 8}), "1:2:3:0:5:6:7:8", true},
      {"seven groups, no zero to insert", groups({1, 2, 3, 5, 6, 7, 8}), "1:2:3:4:5:6:7:8", false},
      {"written zero groups stay", groups({0x2001, 0, 0xdb8, 1}), "2001:0:db8:0:0:0:0:1", true},
      {"written zero groups, other place", groups({0x2001, 0, 0xdb8, 1}), "2001:db8::1", false},
      {"single zero group matches all zero", groups({0}), "::", true},
      // Sixteen bytes compare all of them.
      {"full value", groups({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}), "2001:db8::1", true},
      {"full value, other address", groups({0x2001, 0xdb8, 0, 0, 0, 0, 0, 1}), "2001:db8::1:0", false},
      // Odd lengths, more than 16 bytes and nothing at all match nothing.
      {"odd length", {0x20, 0x01, 0x0d, 0xb8, 0x00}, "2001:db8::", false},
      {"one byte", {0x00}, "::", false},
      {"seventeen bytes", std::vector<uint8_t>(17, 0), "::", false},
      {"eighteen bytes", std::vector<uint8_t>(18, 0), "::", false},
      {"empty", {}, "::", false},
  };
  for (const match_case& c : cases) {
    SCOPED_TRACE(c.name);
    const ip6 address = varn_test::v6(c.address);
    EXPECT_EQ(varn::ipv6_filter_matches(c.value, address.data()), c.match);
  }
}

TEST(frame_filters_test, ipv6_option_text_with_double_colon_selects_its_address) {
  // The reader of the option text keeps only the written groups.
  zq::byte_run value;
  ASSERT_TRUE(zq::parse_ipv6_text("2001:db8::1", value));
  ASSERT_EQ(value.size(), 6u);
  varn::frame_context ctx;
  ctx.src_ipv6 = value.bytes();
  EXPECT_TRUE(passes(ctx, make_record(icmp6(varn_test::v6("2001:db8::1"), varn_test::v6("ff02::1")))));
  EXPECT_FALSE(passes(ctx, make_record(icmp6(varn_test::v6("2001:db8::2"), varn_test::v6("ff02::1")))));
  ctx.track_replies = true;
  EXPECT_TRUE(passes(ctx, make_record(icmp6(varn_test::v6("ff02::1"), varn_test::v6("2001:db8::1")))));
}

// ---------------------------------------------------------------------------------------------
// Ports.

// An Ethernet IPv4 frame with protocol PROTO and a transport header starting with the ports
// bytes SRC and DST (each byte repeated, so either byte order reads the same value).
bytes ipv4_transport(uint8_t proto, uint8_t src, uint8_t dst, uint8_t ihl = 5) {
  bytes ip;
  ip.push_back(static_cast<char>(0x40 | ihl));
  ip.push_back(0);
  put_be16(ip, static_cast<uint16_t>(4 * ihl + 20));
  put_be16(ip, 0);
  put_be16(ip, 0);
  ip.push_back(64);
  ip.push_back(static_cast<char>(proto));
  put_be16(ip, 0);
  ip += bytes{'\x0a', '\x00', '\x00', '\x01', '\x0a', '\x00', '\x00', '\x02'};
  while (ip.size() < 4u * ihl) ip.push_back('\x03');  // options: never taken for ports
  ip += bytes{static_cast<char>(src), static_cast<char>(src), static_cast<char>(dst), static_cast<char>(dst)};
  ip += bytes(16, '\x00');
  return varn_test::ethernet_frame(0x0800, ip);
}

bytes ipv6_transport(uint8_t next_header, uint8_t src, uint8_t dst) {
  bytes ip;
  put_be16(ip, 0x6000);
  put_be16(ip, 0);
  put_be16(ip, 20);
  ip.push_back(static_cast<char>(next_header));
  ip.push_back(64);
  ip += bytes(32, '\x01');
  ip += bytes{static_cast<char>(src), static_cast<char>(src), static_cast<char>(dst), static_cast<char>(dst)};
  ip += bytes(16, '\x00');
  return varn_test::ethernet_frame(0x86DD, ip);
}

TEST(frame_filters_test, port_filter_takes_only_tcp_and_udp) {
  struct port_case {
    const char* name;
    bytes frame;
    uint32_t src_port;
    uint32_t dst_port;
    bool track;
    bool pass;
  };
  const port_case cases[] = {
      {"unset above 65535", ipv4_transport(1, 1, 2), 65536, 70000, false, true},
      {"65535 is set: icmp fails", ipv4_transport(1, 0xff, 0xff), 65535, 65536, false, false},
      {"0 is set: icmp fails", ipv4_transport(1, 0, 0), 0, 65536, false, false},
      {"icmp with matching bytes fails", ipv4_transport(1, 1, 2), 0x0101, 0x0202, false, false},
      {"icmpv6 fails", ipv6_transport(58, 1, 2), 0x0101, 65536, false, false},
      {"tcp source", ipv4_transport(6, 1, 2), 0x0101, 65536, false, true},
      {"tcp destination", ipv4_transport(6, 1, 2), 65536, 0x0202, false, true},
      {"tcp both", ipv4_transport(6, 1, 2), 0x0101, 0x0202, false, true},
      {"tcp other source", ipv4_transport(6, 1, 2), 0x0102, 65536, false, false},
      {"tcp source given as destination", ipv4_transport(6, 1, 2), 0x0202, 65536, false, false},
      {"track: source port in destination field", ipv4_transport(6, 1, 2), 0x0202, 65536, true, true},
      {"track: destination port in source field", ipv4_transport(6, 1, 2), 65536, 0x0101, true, true},
      {"track: swapped pair", ipv4_transport(6, 1, 2), 0x0202, 0x0101, true, true},
      {"track: neither field", ipv4_transport(6, 1, 2), 0x0303, 65536, true, false},
      {"udp", ipv4_transport(17, 7, 9), 0x0707, 0x0909, false, true},
      {"tcp behind ip options", ipv4_transport(6, 1, 2, 6), 0x0101, 0x0202, false, true},
      {"ip options are not the ports", ipv4_transport(6, 1, 2, 6), 0x0303, 65536, false, false},
      {"ipv6 tcp", ipv6_transport(6, 4, 5), 0x0404, 0x0505, false, true},
      {"ipv6 udp", ipv6_transport(17, 4, 5), 0x0404, 65536, false, true},
      {"ipv6 udp, other port", ipv6_transport(17, 4, 5), 0x0505, 65536, false, false},
      {"ipv6 hop-by-hop", ipv6_transport(0, 4, 5), 0x0404, 65536, false, false},
  };
  for (const port_case& c : cases) {
    SCOPED_TRACE(c.name);
    varn::frame_context ctx;
    ctx.src_port = c.src_port;
    ctx.dst_port = c.dst_port;
    ctx.track_replies = c.track;
    EXPECT_EQ(passes(ctx, make_record(c.frame)), c.pass);
  }
}

// ---------------------------------------------------------------------------------------------
// The byte pattern.

varn::frame_context with_pattern(const std::string& hex_text) {
  varn::frame_context ctx;
  EXPECT_TRUE(ctx.pattern.build(hex_text, true)) << hex_text;
  return ctx;
}

TEST(frame_filters_test, pattern_searches_the_whole_captured_frame) {
  // Ethernet destination 66 77 88 99 aa bb, source 00 11 22 33 44 55; IPv4 192.168.1.2 to
  // 192.168.1.1; payload bytes 0..99.
  bytes payload;
  for (int i = 0; i < 100; ++i) payload.push_back(static_cast<char>(i));
  const bytes frame = icmp4({192, 168, 1, 2}, {192, 168, 1, 1}, payload);  // 142 bytes
  const uint32_t n = static_cast<uint32_t>(frame.size());
  struct pattern_case {
    const char* name;
    const char* pattern;
    uint32_t incl_len;
    bool pass;
  };
  const pattern_case cases[] = {
      {"ethernet destination", "66 77 88", n, true},
      {"ethernet source with a wildcard", "11 ? 33", n, true},
      {"ethertype and ip version", "08 00 45", n, true},
      {"ip addresses", "c0 a8 01 02 c0 a8 01 01", n, true},
      {"payload", "10 11 ? 13", n, true},
      {"payload end", "62 63", n, true},
      {"not present", "62 64", n, false},
      // Only incl_len bytes are searched, although the buffer holds more.
      {"behind the captured bytes", "50 51", 42 + 0x50, false},
      {"just inside the captured bytes", "50 51", 42 + 0x52, true},
      {"captured shorter than the pattern", "66 77 88", 2, false},
      {"captured as long as the pattern", "66 77 88", 3, true},
      {"nothing captured", "66", 0, false},
      // Trailing wildcards count in the minimum length.
      {"trailing wildcards beyond the captured bytes", "66 77 ? ? ?", 4, false},
  };
  for (const pattern_case& c : cases) {
    SCOPED_TRACE(c.name);
    const varn::frame_context ctx = with_pattern(c.pattern);
    EXPECT_EQ(passes(ctx, make_record(frame, c.incl_len, n)), c.pass);
  }
}

TEST(frame_filters_test, pattern_does_not_see_the_record_header) {
  const bytes frame = icmp4({1, 2, 3, 4}, {5, 6, 7, 8});
  const uint32_t n = static_cast<uint32_t>(frame.size());
  const varn::frame_context ctx = with_pattern("ef be ad de");
  EXPECT_FALSE(passes(ctx, make_record(frame, n, n, 0xdeadbeef, 0)));
}

TEST(frame_filters_test, pattern_that_did_not_build_leaves_the_filter_off) {
  varn::frame_context ctx;
  EXPECT_FALSE(ctx.pattern.build("? ?", false));
  EXPECT_TRUE(passes(ctx, make_record(icmp4({1, 2, 3, 4}, {5, 6, 7, 8}))));
}

TEST(frame_filters_test, payload_scope_searches_only_the_icmp_payload) {
  const bytes frame = icmp4({1, 2, 3, 4}, {5, 6, 7, 8}, bytes{'\xaa', '\xbb', '\xcc'});
  varn::frame_context header_pattern = with_pattern("01 02 03 04");
  header_pattern.pattern.set_scope(varn::byte_pattern::scope_payload);
  EXPECT_FALSE(passes(header_pattern, make_record(frame)));
  varn::frame_context payload_pattern = with_pattern("bb cc");
  payload_pattern.pattern.set_scope(varn::byte_pattern::scope_payload);
  EXPECT_TRUE(passes(payload_pattern, make_record(frame)));
}

// ---------------------------------------------------------------------------------------------
// All filters together.

TEST(frame_filters_test, every_filter_set_must_pass_and_each_one_can_reject) {
  const ip4 a{192, 168, 1, 2};
  const ip4 b{192, 168, 1, 1};
  const bytes frame = icmp4(a, b, bytes{'h', 'e', 'l', 'l', 'o'});
  const uint32_t n = static_cast<uint32_t>(frame.size());
  const record_buffer r = make_record(frame, n, 500, 1600000000, 0);
  const uint64_t t = time_of(1600000000, 0);
  varn::frame_context all;
  all.min_size = 500;
  all.frames = {7};
  all.start_time = t;
  all.stop_time = t;
  all.src_ip = filter_value(a);
  all.dst_ip = filter_value(b);
  ASSERT_TRUE(all.pattern.build("'h' ? 'l'", false));
  ASSERT_TRUE(passes(all, r, 7));

  struct change {
    const char* name;
    void (*apply)(varn::frame_context&);
    uint64_t frame_number;
  };
  const change changes[] = {
      {"min_size", [](varn::frame_context& c) { c.min_size = 501; }, 7},
      {"frame number", [](varn::frame_context&) {}, 8},
      {"start time", [](varn::frame_context& c) { c.start_time += 1; }, 7},
      {"stop time", [](varn::frame_context& c) { c.stop_time -= 1; }, 7},
      {"source", [](varn::frame_context& c) { c.src_ip += 1; }, 7},
      {"destination", [](varn::frame_context& c) { c.dst_ip += 1; }, 7},
      {"ipv6 address", [](varn::frame_context& c) { c.dst_ipv6 = std::vector<uint8_t>(16, 1); }, 7},
      {"port", [](varn::frame_context& c) { c.dst_port = 8; }, 7},
      {"pattern", [](varn::frame_context& c) { ASSERT_TRUE(c.pattern.build("'h' 'l'", false)); }, 7},
  };
  for (const change& ch : changes) {
    SCOPED_TRACE(ch.name);
    varn::frame_context ctx = all;
    ch.apply(ctx);
    EXPECT_FALSE(passes(ctx, r, ch.frame_number));
  }
}

}  // namespace
