// -any_format against independent decoders: the shared captures converted by editcap, and
// captures made with real tools, compared with tshark; and a pipe against the same bytes in a file.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "e2e/e2e_expect.hpp"
#include "support/capture_files.hpp"
#include "support/run_varn.hpp"
#include "support/tshark_fields.hpp"

namespace varn_test {
namespace {

const std::string k_formats_dir = std::string(VARN_SOURCE_DIR) + "/tests/formats";

std::string quoted(const std::string& path) { return "'" + path + "'"; }

// The metadata lines of a report by frame number.
std::map<unsigned, std::string> metadata_lines(const std::string& report) {
  std::map<unsigned, std::string> lines;
  for (const std::string& line : split_lines(report)) {
    const std::vector<std::string> f = split(line, " , ");
    if (f.size() == 11 && trim(f[0]) != "frame") lines[std::stoul(trim(f[0]))] = line;
  }
  return lines;
}

std::string numbers(const std::set<unsigned>& frames) {
  std::string text;
  for (unsigned n : frames) {
    if (!text.empty()) text += ' ';
    text += std::to_string(n);
  }
  return text;
}

// Where the -any_format report of a shared capture differs from the default report, and why.
struct known_difference {
  std::string capture;
  std::string removed;  // frames the default report has and -any_format skips
  std::string added;    // frames only -any_format finds
  unsigned too_short;   // frames counted as too short for their headers
};

// Removed: frames too short for their ICMP header (the default reading judges them on bytes past
// the capture), and a later IPv4 fragment (no ICMP header in it). Added: ICMP behind 802.1Q tags
// and IPv6 extension headers, a first IPv6 fragment, on loopback and raw IP link layers, and a
// record longer than the snapshot length (where the default reading stops). Too short: the
// removed frames of the first kind, and an IPv6 first fragment that ends with its fragment
// header (frag-27 frame 8, which the default reading does not take either).
const std::vector<known_difference> k_differences = {
    {"dcb_ets.pcap", "", "1 6 10 12 14 15 17 21 25 27 39 43 44", 0},
    {"dcb_qcn.pcap", "", "9 13 17", 0},
    {"icmp-icmp_print-oobr-1.pcap", "", "1", 0},
    {"icmpv6-RFC2894-RR.pcap", "", "1 2 3 4 5 6", 0},
    {"icmpv6.pcap", "", "2 3 4 5", 0},
    {"ip_ts_opts_asan.pcap", "1", "", 1},
    {"ipv6-routing-header.pcap", "", "1 2", 0},
    {"ipv6_jumbogram_1.pcap", "", "1", 0},
    {"sv-detect-vlan-id-input.pcap", "", "1", 0},
    {"sv-eve-flow-vlan-input.pcap", "", "1 2", 0},
    {"sv-exception-policy-defrag-01-ipv4frags.pcap", "2", "", 0},
    {"sv-ipv6-evasion-ipv6-atomic-fragments-toobig-toobig.pcap", "", "4 5", 0},
    {"sv-ipv6-evasion-ipv6-kill-router-gateway-kill_router6.pcap", "", "7 8", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-12-frag-12.pcap", "", "4 5 7", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-15-frag-15.pcap", "", "4 5 6", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-16-frag-16.pcap", "", "4 5 6", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-17-frag-17.pcap", "", "4 5 7", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-18-frag-18.pcap", "", "4 5 6", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-2-frag-2.pcap", "", "4 5 7", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-22-frag-22.pcap", "", "2 5 10", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-24-frag-24.pcap", "", "4 5 8", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-26-frag-26.pcap", "", "4 5", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-27-frag-27.pcap", "", "4 5 6", 1},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-30-frag-30.pcap", "", "4 5 6", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-31-frag-31.pcap", "", "4 5 6", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-6-frag-6.pcap", "", "4 5 6", 0},
    {"sv-ipv6-evasion-ipv6-malformed-fragments-8-frag-8.pcap", "", "4 5 8", 0},
    {"sv-output-eve-ftp-data-input.pcap", "",
     "13 18 44 45 48 50 56 113 116 176 181 195 197 199 202 209 221 224 318 320 322 326 331 356 359 380 385 470 471 475 "
     "477 489 621 626 647 649 652 653 661 780 783 872 873 877 878 886 1044 1056 1091 1094 1219 1221 1233 1236 1261 "
     "1262 1265 1267 1275",
     0},
    {"sv-smb2-ntlmssp-negotiateflags-input.pcap", "",
     "10 11 30 31 34 35 47 55 57 64 116 123 314 325 336 338 340 342 352 360 364 366 371 424 429 454 455 481 483 485 "
     "487 496 505 506 508 516 665 669",
     0},
    {"zeek-icmp-icmp6-mldv1.pcap", "", "3 4", 0},
    {"zeek-icmp_dot1q.pcap", "", "5 8 9 10 11 12 13 14 15", 0},
    {"zeek-tcp-timeout-with-pings.pcap", "", "4 5 6 7 8 9 10 11 12 13 14 15", 0},
    {"zeek-trunc-icmp-header-trunc.pcap", "1 2", "", 2},
};

// A classic little-endian microsecond copy of CAPTURE that the default reading takes: editcap's
// conversion, its snapshot length set to the most the default reading takes (no frame of these
// captures is longer).
std::string classic_copy(const std::string& capture, const std::string& out) {
  shell_output("editcap -F pcap " + quoted(capture) + " " + quoted(out) + " 2>/dev/null");
  std::string bytes = read_file(out);
  if (bytes.size() >= 24) bytes.replace(16, 4, std::string("\xf0\xff\x01\x00", 4));  // 131056
  write_file(out, bytes);
  return out;
}

TEST(any_format_test, editcap_conversions_of_the_shared_captures_report_what_the_default_reading_does) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  if (!have_programs({"editcap"})) GTEST_SKIP() << "editcap (Debian wireshark-common) is not installed";
  std::map<std::string, const known_difference*> expected;
  for (const known_difference& d : k_differences) expected[d.capture] = &d;
  temp_dir scratch;
  size_t captures = 0, lines_compared = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    const std::string name = entry.path().filename().string();
    if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
    SCOPED_TRACE(name);
    ++captures;
    // The default reading of the original, or of a classic copy when it refuses the original or
    // cannot read it whole (nanosecond, big-endian, pcapng, snapshot length above its buffer).
    run_result reference = run_varn({"-ifile", entry.path().string()});
    if (reference.status != 0 || reference.out.find("invalid pcap file, aborting") != std::string::npos)
      reference = run_varn({"-ifile", classic_copy(entry.path().string(), scratch.file(name + ".us.pcap"))});
    ASSERT_EQ(reference.status, 0);
    const std::map<unsigned, std::string> want = metadata_lines(reference.report());

    const run_result original = run_varn({"-any_format", "-ifile", entry.path().string()});
    for (const char* format : {"pcapng", "nsecpcap"}) {
      SCOPED_TRACE(format);
      const std::string converted = scratch.file(name + "." + format);
      shell_output("editcap -F " + std::string(format) + " " + quoted(entry.path().string()) + " " + quoted(converted) +
                   " 2>/dev/null");
      const run_result r = run_varn({"-any_format", "-ifile", converted});
      ASSERT_EQ(r.status, 0);
      EXPECT_EQ(r.err, "");
      const std::map<unsigned, std::string> got = metadata_lines(r.report());
      // The original itself, whatever its format, reads the same.
      EXPECT_EQ(metadata_lines(original.report()), got);

      std::set<unsigned> removed, added;
      for (const auto& [frame, line] : want) {
        const auto it = got.find(frame);
        if (it == got.end())
          removed.insert(frame);
        else
          EXPECT_EQ(it->second, line) << "frame " << frame;
        lines_compared += it != got.end();
      }
      for (const auto& [frame, line] : got)
        if (want.count(frame) == 0) added.insert(frame);
      const known_difference* d = expected.count(name) != 0 ? expected[name] : nullptr;
      EXPECT_EQ(numbers(removed), d != nullptr ? d->removed : "");
      EXPECT_EQ(numbers(added), d != nullptr ? d->added : "");
      const std::string skipped = d != nullptr && d->too_short > 0
                                      ? "too short for their headers (" + std::to_string(d->too_short) + ")"
                                      : "too short for their headers";
      EXPECT_EQ(r.out.find(skipped) != std::string::npos, d != nullptr && d->too_short > 0) << r.out;
    }
  }
  EXPECT_EQ(captures, 75u);
  std::printf("[ editcap  ] %zu captures as pcapng and nanosecond pcap, %zu metadata lines identical\n", captures,
              lines_compared);
}

// varn -any_format and tshark agree on CAPTURE: the same ICMP frames by number, the same fields,
// and nothing skipped.
void expect_agreement_with_tshark(const std::string& capture, size_t& compared) {
  SCOPED_TRACE(capture);
  const run_result r = run_varn({"-any_format", "-ifile", capture});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.out.find("Skipped"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("Reading stopped"), std::string::npos) << r.out;
  const std::map<unsigned, std::string> varn = report_records(r.report());
  const tshark_reading tshark = tshark_icmp_frames(capture, true);
  EXPECT_FALSE(tshark.icmp.empty());
  for (const auto& [frame, fields] : tshark.icmp) {
    const auto it = varn.find(frame);
    if (it == varn.end()) {
      ADD_FAILURE() << "varn does not report frame " << frame << ": " << fields;
      continue;
    }
    EXPECT_TRUE(same_record(it->second, fields)) << "frame " << frame << "\n varn:   " << it->second << "\n tshark: " << fields;
    ++compared;
  }
  for (const auto& [frame, fields] : varn)
    if (tshark.icmp.count(frame) == 0) ADD_FAILURE() << "tshark sees no ICMP in frame " << frame << ": " << fields;
}

std::vector<packet_record> records_of(const std::string& path, uint32_t& link_type) {
  std::vector<packet_record> records;
  EXPECT_TRUE(read_classic_records(read_file(path), link_type, records)) << path;
  return records;
}

// Raw IP frames behind a loopback header holding the address family FAMILY (of a v4 or v6
// frame) in the byte order chosen.
std::vector<packet_record> behind_loopback(std::vector<packet_record> records, bool big_endian,
                                           uint32_t (*family)(bool v6, size_t i)) {
  for (size_t i = 0; i < records.size(); ++i) {
    const uint32_t af = family((records[i].data[0] & 0xf0) == 0x60, i);
    bytes header;
    for (int b = 0; b < 4; ++b) header += static_cast<char>(af >> (big_endian ? 24 - 8 * b : 8 * b) & 0xff);
    records[i].data = header + records[i].data;
    records[i].wire_len += 4;
  }
  return records;
}

std::vector<packet_record> only_version(const std::vector<packet_record>& records, int version) {
  std::vector<packet_record> kept;
  for (const packet_record& r : records)
    if ((static_cast<uint8_t>(r.data[0]) >> 4) == version) kept.push_back(r);
  return kept;
}

// Captures the test writes from the raw IP frames of the tun capture: the loopback link types
// (either byte order of the address family, IPv6 as the BSDs number it), the raw IP numbers, and
// a big-endian file.
std::vector<std::string> link_layer_variants(const temp_dir& scratch) {
  uint32_t link = 0;
  const std::vector<packet_record> raw = records_of(k_formats_dir + "/tun-raw.pcap", link);
  EXPECT_EQ(link, 101u);
  auto bsd = [](bool v6, size_t i) -> uint32_t { return v6 ? (i % 3 == 0 ? 24 : i % 3 == 1 ? 28 : 30) : 2; };
  struct variant {
    std::string name;
    classic_layout layout;
    std::vector<packet_record> records;
  };
  const std::vector<variant> variants = {
      {"null-little-endian.pcap", {false, false, false, 4, 65535, 0}, behind_loopback(raw, false, bsd)},
      {"null-big-endian-file.pcap", {true, false, false, 4, 65535, 0}, behind_loopback(raw, true, bsd)},
      {"loop.pcap", {false, true, false, 4, 65535, 108}, behind_loopback(raw, true, bsd)},
      {"raw-12.pcap", {true, false, false, 4, 65535, 12}, raw},
      {"raw-14.pcap", {false, false, false, 4, 65535, 14}, raw},
      {"raw-ipv4-228.pcap", {false, true, false, 4, 65535, 228}, only_version(raw, 4)},
      {"raw-ipv6-229.pcap", {false, false, false, 4, 262144, 229}, only_version(raw, 6)},
      {"raw-version-2.2.pcap", {false, false, false, 2, 65535, 101}, raw},
  };
  std::vector<std::string> paths;
  for (const variant& v : variants) {
    paths.push_back(scratch.file(v.name));
    write_file(paths.back(), classic_file(v.layout, v.records));
  }
  return paths;
}

// A pcapng file of four sections: dumpcap's capture as it is; a big-endian section with
// enhanced and obsolete packet blocks on two interfaces, timestamps in 2^-20 s behind an offset;
// a section with simple packet blocks (no timestamps) among blocks Wireshark numbers (a systemd
// journal entry, a custom block) and blocks it does not; and editcap's pcapng of the tagged
// frames.
std::string multi_section_pcapng(const temp_dir& scratch) {
  uint32_t link = 0;
  const std::vector<packet_record> tagged = records_of(k_formats_dir + "/scapy-tags-exthdrs.pcap", link);
  const std::vector<packet_record> raw = records_of(k_formats_dir + "/tun-raw.pcap", link);
  const std::vector<packet_record> cooked = records_of(k_formats_dir + "/cooked-v2-nano.pcap", link);
  bytes file = read_file(k_formats_dir + "/dumpcap-two-interfaces.pcapng");

  pcapng_writer be(true);
  be.section_header();
  const int64_t offset = 1000000000;  // seconds added to every timestamp
  be.interface(1, 65535, 0x80 | 20, offset);
  be.interface(101, 0, 0x80 | 20, offset);
  auto units = [&](uint64_t ns) { return ((ns - offset * 1000000000ull) << 20) / 1000000000ull + 1; };
  for (size_t i = 0; i < tagged.size(); ++i) {
    if (i % 2 == 0)
      be.enhanced_packet(0, units(tagged[i].ns), tagged[i].data, tagged[i].wire_len);
    else
      be.obsolete_packet(0, units(tagged[i].ns), tagged[i].data, tagged[i].wire_len);
    if (i < raw.size()) be.enhanced_packet(1, units(raw[i].ns), raw[i].data, raw[i].wire_len);
  }
  file += be.data();

  pcapng_writer simple(false);
  simple.section_header();
  simple.interface(276, 96);
  simple.block(9, "__REALTIME_TIMESTAMP=1000000\nMESSAGE=numbered by Wireshark\n");
  for (size_t i = 0; i < cooked.size(); ++i) {
    simple.simple_packet(cooked[i].data.substr(0, 96), cooked[i].wire_len);  // cut to the snapshot length
    if (i == 3) simple.block(0x40000BAD, bytes("\x00\x00\x7e\xd9note", 8));  // custom block: numbered
    if (i == 5) {  // decryption secrets: not numbered
      bytes secrets;
      simple.u32(secrets, 0x544c534b);
      simple.u32(secrets, 4);
      simple.block(0x0000000A, secrets + "abcd");
    }
    if (i == 7) simple.block(0x00000005, bytes(12, '\x00'));                 // interface statistics: not numbered
  }
  file += simple.data();
  shell_output("editcap -F pcapng " + quoted(k_formats_dir + "/scapy-tags-exthdrs.pcap") + " " +
               quoted(scratch.file("tagged.pcapng")));
  file += read_file(scratch.file("tagged.pcapng"));
  write_file(scratch.file("four-sections.pcapng"), file);
  return scratch.file("four-sections.pcapng");
}

TEST(any_format_test, captures_made_with_real_tools_agree_with_tshark) {
  if (!have_programs({"tshark", "editcap"})) GTEST_SKIP() << "tshark and editcap (Debian tshark) are not installed";
  temp_dir scratch;
  std::vector<std::string> captures;
  for (const auto& entry : std::filesystem::directory_iterator(k_formats_dir))
    if (entry.path().extension() == ".pcap" || entry.path().extension() == ".pcapng") captures.push_back(entry.path());
  std::sort(captures.begin(), captures.end());
  ASSERT_EQ(captures.size(), 5u);
  for (const std::string& made : link_layer_variants(scratch)) captures.push_back(made);
  shell_output("editcap -F modpcap " + quoted(k_formats_dir + "/scapy-tags-exthdrs.pcap") + " " +
               quoted(scratch.file("modified.pcap")));
  captures.push_back(scratch.file("modified.pcap"));
  captures.push_back(multi_section_pcapng(scratch));
  size_t compared = 0;
  for (const std::string& capture : captures) expect_agreement_with_tshark(capture, compared);
  std::printf("[ tshark   ] %zu captures, %zu ICMP frames agree\n", captures.size(), compared);
}

// The shared captures joined into one pcapng file (one interface per capture, their link types
// kept): varn -any_format and tshark agree on every frame but those varn skips as too short for
// their headers (tshark shows what is there) and those whose IPv6 version nibble is wrong (varn
// goes by the ethertype, as the default reading does; tshark does not read them as IPv6).
TEST(any_format_test, shared_captures_joined_as_pcapng_agree_with_tshark) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  if (!have_programs({"tshark", "mergecap"})) GTEST_SKIP() << "tshark and mergecap (Debian tshark) are not installed";
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (entry.is_regular_file() && entry.path().extension() != ".md") names.push_back(entry.path().filename());
  std::sort(names.begin(), names.end());
  temp_dir scratch;
  const std::string joined = scratch.file("joined.pcapng");
  std::string merge = "cd " + quoted(dir) + " && mergecap -I none -a -F pcapng -w " + quoted(joined);
  for (const std::string& name : names) merge += " " + quoted(name);
  shell_output(merge + " 2>/dev/null");

  const run_result r = run_varn({"-any_format", "-ifile", joined});
  ASSERT_EQ(r.status, 0);
  const std::map<unsigned, std::string> varn = report_records(r.report());
  const tshark_reading tshark = tshark_icmp_frames(joined, true);
  // Frame numbers within each capture (interface i is the i-th capture).
  std::map<unsigned, std::string> where;
  std::vector<unsigned> seen(names.size(), 0);
  for (const auto& [frame, id] : tshark.interface_of)
    if (!id.empty() && std::stoul(id) < names.size())
      where[frame] = names[std::stoul(id)] + " " + std::to_string(++seen[std::stoul(id)]);
  std::set<std::string> varn_only, tshark_only;
  size_t compared = 0;
  for (const auto& [frame, fields] : tshark.icmp) {
    const auto it = varn.find(frame);
    if (it == varn.end()) {
      tshark_only.insert(where[frame]);
      continue;
    }
    EXPECT_TRUE(same_record(it->second, fields)) << where[frame] << "\n varn:   " << it->second << "\n tshark: " << fields;
    ++compared;
  }
  for (const auto& [frame, fields] : varn)
    if (tshark.icmp.count(frame) == 0) varn_only.insert(where[frame]);
  EXPECT_EQ(tshark_only, (std::set<std::string>{"ip_ts_opts_asan.pcap 1",
                                                "sv-ipv6-evasion-ipv6-malformed-fragments-27-frag-27.pcap 8",
                                                "zeek-trunc-icmp-header-trunc.pcap 1", "zeek-trunc-icmp-header-trunc.pcap 2"}));
  EXPECT_EQ(varn_only, (std::set<std::string>{"ipv6-bad-version.pcap 2", "ipv6-bad-version.pcap 4"}));
  EXPECT_NE(r.out.find("Skipped 4 of " + std::to_string(tshark.frames) + " frames: too short for their headers (4)\n"),
            std::string::npos);
  std::printf("[ tshark   ] %zu captures joined, %zu ICMP frames agree\n", names.size(), compared);
}

// What varn -any_format writes for the bytes of CAPTURE given on a pipe (standard input) and as
// the file itself, the file name taken out.
struct pipe_and_file {
  std::string from_pipe, from_file;
};
pipe_and_file read_both_ways(const std::string& capture) {
  const std::string varn = quoted(varn_binary());
  pipe_and_file both;
  both.from_pipe = shell_output("cat " + quoted(capture) + " | " + varn + " -any_format -dump_meta -dump_hdr -dump_payload" +
                                " -ifile /dev/stdin 2>&1; echo \"status $?\"");
  both.from_file = shell_output(varn + " -any_format -dump_meta -dump_hdr -dump_payload -ifile " + quoted(capture) +
                                " 2>&1; echo \"status $?\"");
  for (std::string* text : {&both.from_pipe, &both.from_file}) {
    const size_t header = text->find("\n\n");  // the run header names the command line
    *text = text->substr(header == std::string::npos ? 0 : header);
    const size_t name = text->find("Processing file: ");
    if (name != std::string::npos) text->erase(name, text->find('\n', name) - name);
  }
  return both;
}

TEST(any_format_test, a_pipe_reads_like_the_file) {
  temp_dir scratch;
  std::vector<std::string> captures;
  for (const std::string& dir : {shared_captures_dir(), k_formats_dir, std::string(VARN_SOURCE_DIR) + "/tests/regress"}) {
    if (dir.empty()) continue;
    for (const auto& entry : std::filesystem::directory_iterator(dir))
      if (entry.is_regular_file() && entry.path().extension() != ".md" && entry.path().extension() != ".sh")
        captures.push_back(entry.path());
  }
  // Damaged pcapng: the dumpcap capture cut inside a block header, inside a packet, and with a
  // block length that is not a multiple of 4.
  const bytes pcapng = read_file(k_formats_dir + "/dumpcap-two-interfaces.pcapng");
  for (size_t cut : {pcapng.size() - 3, pcapng.size() - 40, size_t{30}}) {
    captures.push_back(scratch.file("cut-" + std::to_string(cut) + ".pcapng"));
    write_file(captures.back(), pcapng.substr(0, cut));
  }
  bytes bad_length = pcapng;
  bad_length[4] = static_cast<char>(bad_length[4] + 1);
  captures.push_back(scratch.file("bad-length.pcapng"));
  write_file(captures.back(), bad_length);
  ASSERT_GT(captures.size(), 90u);
  for (const std::string& capture : captures) {
    const pipe_and_file both = read_both_ways(capture);
    EXPECT_EQ(both.from_pipe, both.from_file) << capture;
  }
}

}  // namespace
}  // namespace varn_test
