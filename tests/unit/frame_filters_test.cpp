// What no command line reaches: the port filter (no option sets a port) and the payload-only
// pattern scope.
#include <gtest/gtest.h>

#include "capture/frame_filters.hpp"
#include "capture/frame_handler.hpp"
#include "capture/pcap_format.hpp"
#include "support/capture_text.hpp"

namespace {

// The record buffer of FRAME_TEXT as the reader hands it over.
std::vector<uint8_t> record(const std::string& frame_text) {
  const varn_test::bytes file = varn_test::capture("record\n" + frame_text);
  std::vector<uint8_t> r(file.begin() + 24, file.end());
  r.resize(std::max<size_t>(r.size(), 16 + 82), 0);
  return r;
}

bool passes(const std::vector<uint8_t>& r, uint32_t src_port, uint32_t dst_port, bool track, const char* pattern = "") {
  varn::frame_context ctx;
  ctx.src_port = src_port;
  ctx.dst_port = dst_port;
  ctx.track_replies = track;
  if (*pattern) {
    ctx.pattern.build(pattern, true);
    ctx.pattern.set_scope(varn::byte_pattern::scope_payload);
  }
  varn::icmp_frame f;
  f.number = 1;
  // The frame is located as ICMP whatever its protocol byte says: the port filter reads it.
  std::vector<uint8_t> as_icmp(r);
  as_icmp[16 + (r[16 + 13] == 0xdd ? 20 : 23)] = r[16 + 13] == 0xdd ? 58 : 1;
  EXPECT_TRUE(varn::locate_icmp(as_icmp.data() + 16, varn::le32_at(r.data(), 8), f));
  f.frame = r.data() + 16;
  f.payload = f.frame + f.header_length;
  f.wire_len = varn::le32_at(r.data(), 12);
  return varn::frame_passes_filters(f, &ctx);
}

TEST(frame_filters_test, ports_take_only_tcp_and_udp_and_payload_scope_only_the_payload) {
  // The transport header starts where the ICMP header would: ports 0x0101 and 0 (no checksum).
  const auto tcp = record("icmp4 proto=6 sum=0 type=1 code=1"), tcp_options = record("icmp4 ihl=6 proto=6 sum=0 type=1 code=1");
  const auto icmp = record("icmp4 sum=0 type=1 code=1"), udp6 = record("icmp6 next=17 type=4 code=4");
  const int none = 65536;
  EXPECT_TRUE(passes(icmp, none, 70000, false));
  EXPECT_FALSE(passes(icmp, 0x0101, none, false) || passes(icmp, 65535, none, false) || passes(icmp, none, 0, false));
  EXPECT_TRUE(passes(tcp, 0x0101, 0, false) && passes(tcp, none, 0, false) && passes(tcp_options, 0x0101, none, false));
  EXPECT_FALSE(passes(tcp, 0, none, false) || passes(tcp, 0x0102, none, false) || passes(tcp_options, 0, none, false));
  EXPECT_TRUE(passes(tcp, 0, 0x0101, true) && passes(tcp, none, 0x0101, true));
  EXPECT_FALSE(passes(tcp, 0x0303, none, true));
  EXPECT_TRUE(passes(udp6, 0x0404, 0, false));
  EXPECT_FALSE(passes(udp6, 0, none, false) || passes(record("icmp6 next=0 type=4 code=4"), 0x0404, none, false));
  // The payload-only pattern scope.
  const auto r = record("icmp4 src=1.2.3.4\nhex aa bb cc");
  EXPECT_TRUE(passes(r, none, none, false, "bb cc") && !passes(r, none, none, false, "01 02 03 04"));
}

}  // namespace
