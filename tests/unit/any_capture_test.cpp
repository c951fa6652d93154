// The -any_format reader in process: every classic pcap variant and pcapng feature gives the same
// frames, numbers and times; damage ends the walk with a reason, and skipped frames are counted.
#include <gtest/gtest.h>

#include "formats/any_capture.hpp"
#include "support/capture_files.hpp"
#include "support/run_varn.hpp"
#include "uni/out_stream.hpp"

namespace {

using varn_test::bytes;
using varn_test::packet_record;
using varn_test::pcapng_writer;
using frames = std::vector<std::string>;

// Every selected frame as "number time/digits link cap/wire ip icmp".
class recording_writer : public varn::report_writer {
 public:
  frames selected;
  void frame_selected(const varn::icmp_frame& f, varn::frame_context&) override {
    selected.push_back(std::to_string(f.number) + " " + std::to_string(f.ts_sec) + "." + std::to_string(f.ts_frac) + "/" +
                       std::to_string(f.ts_digits) + " " + std::to_string(f.link_type) + " " + std::to_string(f.cap_len) +
                       "/" + std::to_string(f.wire_len) + " " + std::to_string(f.ip_offset) + " " + std::to_string(f.icmp_offset));
  }
};

struct reading {
  bool read = false;
  varn::file_outcome outcome;
  frames selected;
  std::string console;  // without "Processing file: ..."
};

reading read_capture(const bytes& file, const std::string& path = "") {
  varn_test::temp_dir dir;
  varn_test::write_file(dir.file("capture"), file);
  recording_writer writer;
  varn::frame_context ctx;
  ctx.writer = &writer;
  reading r;
  {
    uni::out_stream console(&r.console);
    r.read = varn::read_any_capture_file(path.empty() ? dir.file("capture") : path, &ctx, &console, r.outcome);
  }
  if (path.empty()) r.console.erase(0, r.console.find('\n') + 1);
  r.selected = writer.selected;
  return r;
}

bytes icmp4_frame() { return varn_test::capture("record\nicmp4\ncount 6").substr(40); }  // Ethernet, 48 bytes

// Three frames: an Ethernet echo request at 1.5 s, a UDP frame, one cut after its IP header.
std::vector<packet_record> three_records(size_t first_size = 48) {
  bytes udp = icmp4_frame();
  udp[23] = 17;
  const bytes first = icmp4_frame() + bytes(first_size - 48, 'x');
  return {{1500000000, std::max<uint32_t>(60, first_size), first}, {2000000001, 48, udp}, {3999999999, 48, icmp4_frame().substr(0, 36)}};
}

TEST(any_capture_test, every_classic_variant_gives_the_same_frames) {
  const std::string us = "1 1.500000/6 1 48/60 14 34", ns = "1 1.500000000/9 1 48/60 14 34";
  const std::string too_short = "Skipped 1 of 3 frames: too short for their headers (1)\n";
  struct variant {
    varn_test::classic_layout layout;
    const char* format;
    frames selected;
    std::string console;
    size_t first_size = 48;
  };
  const std::vector<variant> variants = {
      {{}, "pcap", {us}, too_short},
      {{true}, "pcap-be", {us}, too_short},
      {{false, true}, "pcap-ns", {ns}, too_short},
      {{true, true}, "pcap-ns-be", {ns}, too_short},
      {{false, false, true}, "pcap-modified", {us}, too_short},
      {{true, false, true}, "pcap-modified-be", {us}, too_short},
      {{false, false, false, 2}, "pcap", {us}, too_short},            // version 2.2: lengths swapped
      {{false, false, false, 4, 40}, "pcap", {us}, too_short},        // records longer than the snapshot length
      {{false, false, false, 4, 262144}, "pcap", {us}, too_short},
      // A frame larger than the first read.
      {{false, false, false, 4, 262144}, "pcap", {"1 1.500000/6 1 300000/300000 14 34"}, too_short, 300000},
      {{false, false, false, 4, 65535, 105}, "pcap", {}, "Skipped 3 of 3 frames: link type 105 (3)\n"},
  };
  for (const variant& v : variants) {
    SCOPED_TRACE(v.format + std::to_string(&v - variants.data()));
    const reading r = read_capture(varn_test::classic_file(v.layout, three_records(v.first_size)));
    EXPECT_TRUE(r.read);
    EXPECT_EQ(r.outcome.format, v.format);
    EXPECT_EQ(r.outcome.records, 3u);
    EXPECT_EQ(r.selected, v.selected);
    EXPECT_EQ(r.console, v.console);
    EXPECT_EQ(r.outcome.link_types, std::vector<uint32_t>{v.layout.link_type});
    EXPECT_EQ(r.outcome.skipped.size(), 1u);
  }
}

// pcapng: timestamps in every resolution and offset, the packet block kinds, interfaces of
// several sections, and the records Wireshark numbers without a frame.
TEST(any_capture_test, pcapng_sections_interfaces_and_packet_blocks) {
  const bytes frame = icmp4_frame();
  pcapng_writer le(false);
  le.section_header();
  le.interface(1, 0);                            // microseconds by default
  le.interface(1, 0, 3, -100);                   // milliseconds, 100 s earlier
  le.interface(101, 0, 12);                      // picoseconds
  le.interface(1, 40, 0x80 | 10, 3000000000LL);  // 2^-10 s, 3e9 s later; snaplen 40
  le.enhanced_packet(0, 1500000, frame, 60);
  le.enhanced_packet(1, 101250, frame, 60);
  le.block(9, "MESSAGE=journal\n");  // numbered, no frame
  le.enhanced_packet(2, 7000000001999, varn_test::capture("record\nicmp6\ncount 4").substr(40 + 14), 52);
  le.obsolete_packet(3, 1024 + 512, frame, 60);
  le.simple_packet(frame, 60);          // interface 0: snaplen 0
  le.block(4, bytes(4, '\0'));          // name resolution: not numbered
  le.enhanced_packet(4, 0, frame, 60);  // no interface 4: counted
  bytes damaged;
  for (uint32_t v : {0, 0, 0, 500, 60}) varn_test::put_le32(damaged, v);  // captured length 500, beyond the block
  le.block(6, damaged + frame);
  pcapng_writer be(true);  // a second section: interface numbers start again
  be.section_header();
  be.interface(113, 0, 9);
  be.enhanced_packet(0, 2000000000123456789, bytes(2, '\0') + varn_test::capture("record\nicmp4").substr(40), 44);
  const reading r = read_capture(le.data() + be.data());
  EXPECT_TRUE(r.read);
  EXPECT_EQ(r.outcome.format, "pcapng");
  EXPECT_EQ(r.selected, (frames{
                            "1 1.500000/6 1 48/60 14 34",
                            "2 1.250000/6 1 48/60 14 34",  // 101.25 s - 100 s
                            "4 7.1/9 101 52/52 0 40",      // 7 s + 1999 ps, truncated to nanoseconds
                            "5 3000000001.500000000/9 1 48/60 14 34",
                            "6 0.0/6 1 48/60 14 34",  // no timestamp
                            "9 2000000000.123456789/9 113 44/44 16 36",
                        }));
  EXPECT_EQ(r.outcome.records, 9u);
  EXPECT_EQ(r.outcome.link_types, (std::vector<uint32_t>{1, 101, 113}));
  EXPECT_EQ(r.console, "Skipped 2 of 9 frames: undescribed interface (1), damaged packet block (1)\n");
}

TEST(any_capture_test, damage_ends_the_walk_with_its_reason) {
  const bytes classic = varn_test::classic_file({}, three_records());
  pcapng_writer w(false);
  w.section_header();
  w.interface(1, 0);
  w.enhanced_packet(0, 1500000, icmp4_frame(), 60);
  const bytes ng = w.data();
  const std::string packet_at = std::to_string(ng.size() - 80);  // the enhanced packet block: 32 + 48 bytes
  auto with = [](bytes b, size_t at, const bytes& patch) { return b.replace(at, patch.size(), patch); };
  const std::vector<std::tuple<bytes, uint64_t, std::string>> cases = {
      {classic.substr(0, classic.size() - 40), 2, "the file ends inside record 3 (12 of 16 bytes)"},
      {with(classic, 24 + 8, bytes("\x00\x00\x40\x01", 4)), 0,
       "record 1 claims 20971520 captured bytes, more than the 16777216 varn reads"},
      {ng.substr(0, ng.size() - 1), 0, "the file ends inside the block at byte " + packet_at + " (79 of 80 bytes)"},
      {ng + bytes("\x06\0\0", 3), 1, "the file ends inside the block header at byte " + std::to_string(ng.size())},
      {with(ng, ng.size() - 80 + 4, bytes("\x51", 1)), 0,
       "the block at byte " + packet_at + " has a total length of 81 (at least 12 and a multiple of 4 expected)"},
      {with(ng, ng.size() - 4, bytes("\x54", 1)), 0, "the block at byte " + packet_at + " ends with a total length of 84, not 80"},
      {with(ng, 12, bytes("\x02", 1)), 0, "the section header at byte 0 is of version 2.0, not 1.x"},
      {with(ng, ng.size() - 80 + 4, bytes("\x00\x00\x00\x04", 4)), 0,
       "the block at byte " + packet_at + " claims 67108864 bytes, more than the 17825792 varn reads"},
  };
  for (const auto& [file, records, stopped] : cases) {
    const reading r = read_capture(file);
    EXPECT_TRUE(r.read);
    EXPECT_EQ(r.outcome.records, records) << stopped;
    EXPECT_EQ(r.outcome.stopped, stopped);
    EXPECT_NE(r.console.find(": " + stopped + "\n"), std::string::npos) << r.console;
  }
}

TEST(any_capture_test, files_of_no_known_format_are_invalid_and_missing_ones_unreadable) {
  const bytes classic = varn_test::classic_file({}, three_records());
  for (const bytes& file : {bytes(), bytes("\xd4\xc3\xb2", 3), classic.substr(0, 20), bytes("\x0a\x0d\x0d\x0a", 4) + bytes(8, 'x'),
                            classic.substr(0, 4) + bytes("\x03\x00", 2) + classic.substr(6), bytes(100, 'A')}) {
    const reading r = read_capture(file);
    EXPECT_FALSE(r.read);
    EXPECT_EQ(r.outcome.result, varn::file_outcome::status::invalid);
    EXPECT_EQ(r.console, "invalid pcap file, aborting\n");
  }
  const reading r = read_capture("", "/nonexistent/x.pcap");
  EXPECT_FALSE(r.read);
  EXPECT_EQ(r.console, "prob opening /nonexistent/x.pcap for read\n");
  EXPECT_EQ(r.outcome.result, varn::file_outcome::status::unreadable);
}

}  // namespace
