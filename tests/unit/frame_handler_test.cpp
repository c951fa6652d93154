// The per-frame handler: which frames carry ICMP, where the ICMP header and payload lie, the ICMP
// type, code and identifier lists, and the regions handed to the dumps.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "capture/frame_handler.hpp"
#include "capture/pcap_format.hpp"
#include "support/pcap_builder.hpp"
#include "uni/out_stream.hpp"

namespace {

using varn_test::bytes;
using varn_test::put_le32;

// A record buffer as the reader hands it over: record header, the frame bytes (all of FRAME,
// also those beyond INCL_LEN, as a buffer holds bytes of earlier reads), at least
// record_span(incl_len) bytes.
std::vector<uint8_t> make_record(const bytes& frame, uint32_t incl_len, uint32_t orig_len = 0) {
  bytes r;
  put_le32(r, 1600000000);
  put_le32(r, 0);
  put_le32(r, incl_len);
  put_le32(r, orig_len == 0 ? incl_len : orig_len);
  r += frame;
  std::vector<uint8_t> out(r.begin(), r.end());
  out.resize(std::max<size_t>(out.size(), varn::record_span(incl_len)), 0);
  return out;
}

std::vector<uint8_t> make_record(const bytes& frame) { return make_record(frame, static_cast<uint32_t>(frame.size())); }

varn_test::icmp4_spec v4_spec(uint8_t type = 8, uint8_t code = 0, uint16_t id = 0x1a2b) {
  varn_test::icmp4_spec s;
  s.type = type;
  s.code = code;
  s.id = id;
  s.payload = bytes(24, 'p');
  return s;
}

varn_test::icmp6_spec v6_spec(uint8_t type = 128, uint8_t code = 0, uint16_t id = 0x1a2b) {
  varn_test::icmp6_spec s;
  s.src = varn_test::v6("2001:db8::1");
  s.dst = varn_test::v6("2001:db8::2");
  s.type = type;
  s.code = code;
  s.id = id;
  s.payload = bytes(24, 'p');
  return s;
}

// Runs handle_frame with a context whose sink collects the report text.
struct handler_run {
  varn::frame_context ctx;
  std::string text;
  uni::out_stream sink{&text};
  handler_run() { ctx.out = &sink; }
  bool handle(const std::vector<uint8_t>& record, uint64_t frame_number = 1) {
    const bool selected = varn::handle_frame(frame_number, record.data(), &ctx);
    sink.flush();
    return selected;
  }
};

// ---------------------------------------------------------------------------------------------
// Classification and regions.

TEST(frame_handler_test, keeps_only_ethernet_ipv4_icmp_and_ipv6_icmpv6) {
  struct class_case {
    const char* name;
    bytes frame;
    bool selected;
  };
  auto v4 = [](auto change) {
    varn_test::icmp4_spec s = v4_spec();
    change(s);
    return varn_test::icmp4_frame(s);
  };
  auto v6 = [](auto change) {
    varn_test::icmp6_spec s = v6_spec();
    change(s);
    return varn_test::icmp6_frame(s);
  };
  const class_case cases[] = {
      {"ipv4 icmp", v4([](varn_test::icmp4_spec&) {}), true},
      {"ipv4 tcp", v4([](varn_test::icmp4_spec& s) { s.protocol = 6; }), false},
      {"ipv4 udp", v4([](varn_test::icmp4_spec& s) { s.protocol = 17; }), false},
      {"ipv4 protocol 58", v4([](varn_test::icmp4_spec& s) { s.protocol = 58; }), false},
      {"ipv4 in ipv4", v4([](varn_test::icmp4_spec& s) { s.protocol = 4; }), false},
      {"ipv6 icmpv6", v6([](varn_test::icmp6_spec&) {}), true},
      {"ipv6 hop-by-hop header", v6([](varn_test::icmp6_spec& s) { s.next_header = 0; }), false},
      {"ipv6 routing header", v6([](varn_test::icmp6_spec& s) { s.next_header = 43; }), false},
      {"ipv6 next header 1", v6([](varn_test::icmp6_spec& s) { s.next_header = 1; }), false},
      {"vlan tag", v4([](varn_test::icmp4_spec& s) { s.ethertype = 0x8100; }), false},
      {"arp type", v4([](varn_test::icmp4_spec& s) { s.ethertype = 0x0806; }), false},
      {"ipv6 ethertype with ipv4 body", v4([](varn_test::icmp4_spec& s) { s.ethertype = 0x86DD; }), false},
      {"pppoe session", v6([](varn_test::icmp6_spec& s) { s.ethertype = 0x8864; }), false},
  };
  for (const class_case& c : cases) {
    SCOPED_TRACE(c.name);
    handler_run run;
    EXPECT_EQ(run.handle(make_record(c.frame)), c.selected);
    EXPECT_EQ(run.text, "");
  }
}

TEST(frame_handler_test, ip_version_nibble_is_not_checked) {
  bytes v4 = varn_test::icmp4_frame(v4_spec());
  v4[14] = 0x65;  // version 6, IHL 5 behind ethertype 0x0800
  handler_run run;
  EXPECT_TRUE(run.handle(make_record(v4)));
  bytes v6 = varn_test::icmp6_frame(v6_spec());
  v6[14] = 0x40;  // version 4 behind ethertype 0x86DD
  EXPECT_TRUE(run.handle(make_record(v6)));
}

TEST(frame_handler_test, missing_record_or_context_selects_nothing) {
  const std::vector<uint8_t> r = make_record(varn_test::icmp4_frame(v4_spec()));
  varn::frame_context ctx;
  EXPECT_FALSE(varn::handle_frame(1, nullptr, &ctx));
  EXPECT_FALSE(varn::handle_frame(1, r.data(), nullptr));
}

TEST(frame_handler_test, locates_icmp_header_and_payload) {
  struct region_case {
    const char* name;
    bytes frame;
    uint32_t incl_len;
    bool ipv6;
    uint32_t icmp_offset;
    uint32_t h;
    uint32_t l;
    uint32_t hd;
  };
  auto ihl = [](uint8_t n) {
    varn_test::icmp4_spec s = v4_spec();
    s.ihl = n;
    return varn_test::icmp4_frame(s);
  };
  const bytes v6 = varn_test::icmp6_frame(v6_spec());  // 62 + 24 bytes
  bytes ihl0 = ihl(5);
  ihl0[14] = 0x40;  // IHL 0: the ICMP header is read right behind the Ethernet header
  const region_case cases[] = {
      {"ihl 5", ihl(5), 42 + 24, false, 34, 42, 24, 42},
      {"ihl 6", ihl(6), 46 + 24, false, 38, 46, 24, 46},
      {"ihl 15", ihl(15), 82 + 24, false, 74, 82, 24, 82},
      {"ihl 0", ihl0, 42 + 24, false, 14, 22, 44, 22},
      {"ipv6", v6, 62 + 24, true, 54, 62, 24, 62},
      // Captured shorter than H: L 0, Hd cut to the captured length.
      {"ihl 5 cut to 40", ihl(5), 40, false, 34, 42, 0, 40},
      {"ihl 5 cut to 42", ihl(5), 42, false, 34, 42, 0, 42},
      {"ihl 5 cut to 43", ihl(5), 43, false, 34, 42, 1, 42},
      {"ihl 15 cut to 50", ihl(15), 50, false, 74, 82, 0, 50},
      {"ipv6 cut to 61", v6, 61, true, 54, 62, 0, 61},
      {"ipv6 cut to 0", v6, 0, true, 54, 62, 0, 0},
      // The difference is a signed 32-bit value: where it has the top bit set it is negative
      // and gives no payload. (The reader never hands over incl_len above 131056.)
      {"incl_len 0xFFFFFFFF", ihl(5), 0xFFFFFFFFu, false, 34, 42, 0, 42},
      {"incl_len 0x8000002A", ihl(5), 0x8000002Au, false, 34, 42, 0, 42},
      {"incl_len 0x80000029", ihl(5), 0x80000029u, false, 34, 42, 0x7FFFFFFFu, 42},
      {"incl_len 0x7FFFFFFF", ihl(5), 0x7FFFFFFFu, false, 34, 42, 0x7FFFFFFFu - 42, 42},
  };
  for (const region_case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<uint8_t> frame(c.frame.begin(), c.frame.end());
    frame.resize(std::max<size_t>(frame.size(), 82), 0);
    varn::icmp_regions r;
    ASSERT_TRUE(varn::locate_icmp(frame.data(), c.incl_len, r));
    EXPECT_EQ(r.ipv6, c.ipv6);
    EXPECT_EQ(r.icmp_offset, c.icmp_offset);
    EXPECT_EQ(r.header_length, c.h);
    EXPECT_EQ(r.payload_length, c.l);
    EXPECT_EQ(r.header_dump_length, c.hd);
  }
}

TEST(frame_handler_test, binary_dump_hands_over_header_and_payload_regions) {
  // Binary output writes the regions unchanged: header region (Hd bytes) then payload (L bytes
  // from frame offset H).
  varn_test::icmp4_spec s = v4_spec();
  s.ihl = 6;
  s.payload = "0123456789";
  const bytes v4 = varn_test::icmp4_frame(s);  // 46 + 10 bytes
  const bytes v6 = varn_test::icmp6_frame(v6_spec());
  struct dump_case {
    const char* name;
    bytes frame;
    uint32_t incl_len;
    bool hdr;
    bool payload;
    bytes expected;
  };
  const dump_case cases[] = {
      {"both", v4, 56, true, true, v4},
      {"header only", v4, 56, true, false, v4.substr(0, 46)},
      {"payload only", v4, 56, false, true, "0123456789"},
      {"payload of a cut frame", v4, 50, false, true, "0123"},
      {"header of a frame cut inside it", v4, 40, true, true, v4.substr(0, 40)},
      {"ipv6 both", v6, 86, true, true, v6},
      {"ipv6 payload", v6, 86, false, true, v6.substr(62)},
      {"neither", v4, 56, false, false, ""},
  };
  for (const dump_case& c : cases) {
    SCOPED_TRACE(c.name);
    handler_run run;
    run.ctx.output_format = 3;
    run.ctx.dump_hdr = c.hdr;
    run.ctx.dump_payload = c.payload;
    run.ctx.dump_meta = true;  // no metadata record in binary output
    EXPECT_TRUE(run.handle(make_record(c.frame, c.incl_len)));
    EXPECT_EQ(run.text, c.expected);
  }
}

TEST(frame_handler_test, hex_payload_offsets_continue_from_header_dump_length) {
  varn_test::icmp4_spec s = v4_spec();
  s.payload = "ABCD";
  const bytes v4 = varn_test::icmp4_frame(s);  // 42 + 4 bytes
  handler_run run;
  run.ctx.dump_payload = true;
  EXPECT_TRUE(run.handle(make_record(v4)));
  // Four groups, 12 x 3 + 1 spaces of padding, one space, the text column.
  EXPECT_EQ(run.text, "payload\n0000 002a:  41 42 43 44 " + std::string(37, ' ') + " ABCD\n\n");
  // A frame cut before the end of its ICMP header: Hd 40, no payload, the label and an empty view.
  handler_run cut;
  cut.ctx.dump_payload = true;
  EXPECT_TRUE(cut.handle(make_record(v4, 40)));
  EXPECT_EQ(cut.text, "payload\n\n");
}

TEST(frame_handler_test, short_frame_is_judged_on_the_bytes_in_the_buffer) {
  // incl_len 10: the Ethernet type, the protocol and the ICMP header all lie in bytes of the
  // buffer that this record did not capture; they decide all the same.
  const bytes v4 = varn_test::icmp4_frame(v4_spec(3, 1, 0x0000));
  handler_run run;
  run.ctx.icmp_types = {3};
  run.ctx.icmp_codes = {1};
  run.ctx.icmp_ids = {0};
  run.ctx.output_format = 3;
  run.ctx.dump_hdr = true;
  run.ctx.dump_payload = true;
  EXPECT_TRUE(run.handle(make_record(v4, 10)));
  EXPECT_EQ(run.text, v4.substr(0, 10));
  // The same buffer with a protocol byte other than 1 behind the captured bytes is skipped.
  bytes tcp = v4;
  tcp[23] = 6;
  handler_run other;
  EXPECT_FALSE(other.handle(make_record(tcp, 10)));
  // incl_len 0: nothing captured, still judged.
  handler_run none;
  none.ctx.output_format = 3;
  none.ctx.dump_hdr = true;
  EXPECT_TRUE(none.handle(make_record(v4, 0)));
  EXPECT_EQ(none.text, "");
}

// ---------------------------------------------------------------------------------------------
// ICMP type, code and identifier lists.

TEST(frame_handler_test, type_and_code_lists_compare_low_eight_bits) {
  struct list_case {
    const char* name;
    std::vector<int64_t> types;
    std::vector<int64_t> codes;
    uint8_t type;
    uint8_t code;
    bool selected;
  };
  const list_case cases[] = {
      {"empty lists take all", {}, {}, 13, 7, true},
      {"type in list", {0, 8}, {}, 8, 0, true},
      {"type not in list", {0, 3}, {}, 8, 0, false},
      {"264 selects 8", {264}, {}, 8, 0, true},
      {"264 does not select 9", {264}, {}, 9, 0, false},
      {"negative -248 selects 8", {-248}, {}, 8, 0, true},
      {"65792 selects 0", {65792}, {}, 0, 0, true},
      {"255 selects 255", {255}, {}, 255, 0, true},
      {"-1 selects 255", {-1}, {}, 255, 0, true},
      {"code in list", {}, {1, 3}, 3, 3, true},
      {"code not in list", {}, {1, 2}, 3, 3, false},
      {"259 selects code 3", {}, {259}, 3, 3, true},
      {"type and code both", {3}, {4}, 3, 4, true},
      {"type passes, code fails", {3}, {1}, 3, 4, false},
      {"code passes, type fails", {8}, {4}, 3, 4, false},
  };
  for (const list_case& c : cases) {
    SCOPED_TRACE(c.name);
    for (bool ipv6 : {false, true}) {
      SCOPED_TRACE(ipv6 ? "ipv6" : "ipv4");
      handler_run run;
      run.ctx.icmp_types = c.types;
      run.ctx.icmp_codes = c.codes;
      const bytes frame = ipv6 ? varn_test::icmp6_frame(v6_spec(c.type, c.code))
                               : varn_test::icmp4_frame(v4_spec(c.type, c.code));
      EXPECT_EQ(run.handle(make_record(frame)), c.selected);
    }
  }
}

TEST(frame_handler_test, identifier_list_reads_bytes_four_and_five_for_every_type) {
  struct id_case {
    const char* name;
    std::set<uint64_t> ids;
    uint8_t type;
    uint16_t id;  // ICMP header bytes 4 and 5, big-endian
    bool selected;
  };
  const id_case cases[] = {
      {"256 matches bytes 01 00", {256}, 8, 0x0100, true},
      {"256 does not match bytes 00 01", {256}, 8, 0x0001, false},
      {"1 matches bytes 00 01", {1}, 8, 0x0001, true},
      {"0x1a2b", {0x1a2b}, 0, 0x1a2b, true},
      {"byte-swapped id", {0x2b1a}, 0, 0x1a2b, false},
      {"one of several", {5, 0xffff, 0x1a2b}, 8, 0xffff, true},
      {"no 16-bit cut: 0x10001 is not 1", {0x10001}, 8, 0x0001, false},
      // Types whose bytes 4 and 5 carry no identifier are tested all the same.
      {"dst unreachable, unused bytes 0", {0}, 3, 0x0000, true},
      {"dst unreachable, unused bytes 0, other id", {1}, 3, 0x0000, false},
      {"time exceeded", {0x0203}, 11, 0x0203, true},
      {"empty set takes all", {}, 11, 0x0203, true},
  };
  for (const id_case& c : cases) {
    SCOPED_TRACE(c.name);
    for (bool ipv6 : {false, true}) {
      SCOPED_TRACE(ipv6 ? "ipv6" : "ipv4");
      handler_run run;
      run.ctx.icmp_ids = c.ids;
      const bytes frame = ipv6 ? varn_test::icmp6_frame(v6_spec(c.type, 0, c.id))
                               : varn_test::icmp4_frame(v4_spec(c.type, 0, c.id));
      EXPECT_EQ(run.handle(make_record(frame)), c.selected);
    }
  }
}

TEST(frame_handler_test, identifier_is_read_behind_ip_options) {
  varn_test::icmp4_spec s = v4_spec(8, 0, 0x0102);
  s.ihl = 7;
  handler_run run;
  run.ctx.icmp_ids = {0x0102};
  EXPECT_TRUE(run.handle(make_record(varn_test::icmp4_frame(s))));
  run.ctx.icmp_ids = {0};  // the option bytes at the IHL 5 position are zero
  EXPECT_FALSE(run.handle(make_record(varn_test::icmp4_frame(s))));
}

// ---------------------------------------------------------------------------------------------
// Filters and the report.

TEST(frame_handler_test, ports_stay_unset_so_icmp_frames_pass) {
  const varn::frame_context fresh;
  EXPECT_GT(fresh.src_port, 65535u);
  EXPECT_GT(fresh.dst_port, 65535u);
  handler_run run;
  EXPECT_TRUE(run.handle(make_record(varn_test::icmp4_frame(v4_spec()))));
  EXPECT_TRUE(run.handle(make_record(varn_test::icmp6_frame(v6_spec()))));
  // A set port lets no ICMP frame through.
  run.ctx.src_port = 0;
  EXPECT_FALSE(run.handle(make_record(varn_test::icmp4_frame(v4_spec()))));
  EXPECT_FALSE(run.handle(make_record(varn_test::icmp6_frame(v6_spec()))));
}

TEST(frame_handler_test, filters_run_before_the_lists_and_the_report) {
  handler_run run;
  run.ctx.dump_meta = true;
  run.ctx.frames = {2};
  const std::vector<uint8_t> r = make_record(varn_test::icmp4_frame(v4_spec()));
  EXPECT_FALSE(run.handle(r, 1));
  EXPECT_EQ(run.text, "");
  EXPECT_TRUE(run.ctx.meta_header_pending);
  // A frame stopped by the type list writes nothing either.
  run.ctx.frames.clear();
  run.ctx.icmp_types = {0};
  EXPECT_FALSE(run.handle(r, 1));
  EXPECT_EQ(run.text, "");
  EXPECT_TRUE(run.ctx.meta_header_pending);
  // A selected frame gets its metadata record under the column header.
  run.ctx.icmp_types = {8};
  EXPECT_TRUE(run.handle(r, 1));
  EXPECT_FALSE(run.text.empty());
  EXPECT_FALSE(run.ctx.meta_header_pending);
}

TEST(frame_handler_test, selected_frame_without_any_dump_writes_nothing) {
  for (int format : {1, 2, 3, 4}) {
    SCOPED_TRACE(format);
    handler_run run;
    run.ctx.output_format = format;
    EXPECT_TRUE(run.handle(make_record(varn_test::icmp4_frame(v4_spec()))));
    EXPECT_EQ(run.text, "");
  }
  // An output format outside 1 to 4 writes no dump.
  handler_run odd;
  odd.ctx.output_format = 5;
  odd.ctx.dump_hdr = true;
  odd.ctx.dump_payload = true;
  EXPECT_TRUE(odd.handle(make_record(varn_test::icmp4_frame(v4_spec()))));
  EXPECT_EQ(odd.text, "");
}

}  // namespace
