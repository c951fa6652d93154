// -any_format against independent decoders: the shared captures converted by editcap, and
// captures made with real tools, compared with tshark; and a pipe against the same bytes in a file.
#include <algorithm>
#include <filesystem>
#include <functional>
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

std::string quoted(const std::string& path) { return std::string("'").append(path).append("'"); }

// The capture files of DIR, sorted.
std::vector<std::string> captures_in(const std::string& dir) {
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(dir))
    if (entry.is_regular_file() && entry.path().extension() != ".md" && entry.path().extension() != ".sh")
      files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

void editcap(const std::string& format, const std::string& from, const std::string& to) {
  shell_output("editcap -F " + format + " " + quoted(from) + " " + quoted(to) + " 2>/dev/null");
}

// The metadata lines of a report by frame number.
std::map<unsigned, std::string> metadata_lines(const std::string& report) {
  std::map<unsigned, std::string> lines;
  for (const std::string& line : split_lines(report)) {
    const std::vector<std::string> f = split(line, " , ");
    if (f.size() == 11 && trim(f[0]) != "frame") lines[std::stoul(trim(f[0]))] = line;
  }
  return lines;
}

// Where the -any_format report of a shared capture differs from the default report, and why.
// Removed: frames too short for their ICMP header (the default reading judges them on bytes past
// the capture), and a later IPv4 fragment (no ICMP header in it). Added: ICMP behind 802.1Q tags
// and IPv6 extension headers, a first IPv6 fragment, on loopback and raw IP link layers, and a
// record longer than the snapshot length (where the default reading stops). Too short: the
// removed frames of the first kind, and an IPv6 first fragment that ends with its fragment
// header (frag-27 frame 8, which the default reading does not take either).
struct known_difference {
  std::string removed;  // frames the default report has and -any_format skips
  std::string added;    // frames only -any_format finds
  unsigned too_short;   // frames counted as too short for their headers
};
std::string frag(int n) {
  return "sv-ipv6-evasion-ipv6-malformed-fragments-" + std::to_string(n) + "-frag-" + std::to_string(n) + ".pcap";
}
const std::map<std::string, known_difference> k_differences = {
    {"dcb_ets.pcap", {"", "1 6 10 12 14 15 17 21 25 27 39 43 44", 0}}, {"dcb_qcn.pcap", {"", "9 13 17", 0}},
    {"icmp-icmp_print-oobr-1.pcap", {"", "1", 0}}, {"icmpv6-RFC2894-RR.pcap", {"", "1 2 3 4 5 6", 0}},
    {"icmpv6.pcap", {"", "2 3 4 5", 0}}, {"ip_ts_opts_asan.pcap", {"1", "", 1}}, {"ipv6-routing-header.pcap", {"", "1 2", 0}},
    {"ipv6_jumbogram_1.pcap", {"", "1", 0}}, {"sv-detect-vlan-id-input.pcap", {"", "1", 0}},
    {"sv-eve-flow-vlan-input.pcap", {"", "1 2", 0}}, {"sv-exception-policy-defrag-01-ipv4frags.pcap", {"2", "", 0}},
    {"sv-ipv6-evasion-ipv6-atomic-fragments-toobig-toobig.pcap", {"", "4 5", 0}},
    {"sv-ipv6-evasion-ipv6-kill-router-gateway-kill_router6.pcap", {"", "7 8", 0}},
    {frag(12), {"", "4 5 7", 0}}, {frag(15), {"", "4 5 6", 0}}, {frag(16), {"", "4 5 6", 0}}, {frag(17), {"", "4 5 7", 0}},
    {frag(18), {"", "4 5 6", 0}}, {frag(2), {"", "4 5 7", 0}}, {frag(22), {"", "2 5 10", 0}}, {frag(24), {"", "4 5 8", 0}},
    {frag(26), {"", "4 5", 0}}, {frag(27), {"", "4 5 6", 1}}, {frag(30), {"", "4 5 6", 0}}, {frag(31), {"", "4 5 6", 0}},
    {frag(6), {"", "4 5 6", 0}}, {frag(8), {"", "4 5 8", 0}},
    {"zeek-icmp-icmp6-mldv1.pcap", {"", "3 4", 0}}, {"zeek-icmp_dot1q.pcap", {"", "5 8 9 10 11 12 13 14 15", 0}},
    {"zeek-tcp-timeout-with-pings.pcap", {"", "4 5 6 7 8 9 10 11 12 13 14 15", 0}}, {"zeek-trunc-icmp-header-trunc.pcap", {"1 2", "", 2}},
    {"sv-output-eve-ftp-data-input.pcap", {"", "13 18 44 45 48 50 56 113 116 176 181 195 197 199 202 209 221 224 318 320 322 326 "
      "331 356 359 380 385 470 471 475 477 489 621 626 647 649 652 653 661 780 783 872 873 877 878 886 1044 1056 1091 1094 1219 "
      "1221 1233 1236 1261 1262 1265 1267 1275", 0}},
    {"sv-smb2-ntlmssp-negotiateflags-input.pcap", {"", "10 11 30 31 34 35 47 55 57 64 116 123 314 325 336 338 340 342 352 360 364 "
      "366 371 424 429 454 455 481 483 485 487 496 505 506 508 516 665 669", 0}},
};

TEST(any_format_test, editcap_conversions_of_the_shared_captures_report_what_the_default_reading_does) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "no shared captures folder next to the checkout";
  if (!have_programs({"editcap"})) GTEST_SKIP() << "editcap (Debian wireshark-common) is not installed";
  temp_dir scratch;
  size_t lines_compared = 0;
  const std::vector<std::string> captures = captures_in(dir);
  for (const std::string& capture : captures) {
    const std::string name = std::filesystem::path(capture).filename();
    SCOPED_TRACE(name);
    // The default reading of the original, or of a classic microsecond copy when it refuses the
    // original or cannot read it whole (nanosecond, big-endian, pcapng, snapshot length above its
    // buffer): editcap's copy, its snapshot length set to the most the default reading takes (no
    // frame of these captures is longer).
    run_result reference = run_varn({"-ifile", capture});
    if (reference.status != 0 || reference.out.find("invalid pcap file, aborting") != std::string::npos) {
      editcap("pcap", capture, scratch.file(name));
      write_file(scratch.file(name), read_file(scratch.file(name)).replace(16, 4, "\xf0\xff\x01\x00", 4));  // 131056
      reference = run_varn({"-ifile", scratch.file(name)});
    }
    ASSERT_EQ(reference.status, 0);
    const std::map<unsigned, std::string> want = metadata_lines(reference.report());
    const auto known = k_differences.find(name);
    const known_difference d = known != k_differences.end() ? known->second : known_difference{"", "", 0};
    const run_result original = run_varn({"-any_format", "-ifile", capture});
    for (const std::string format : {"pcapng", "nsecpcap"}) {
      SCOPED_TRACE(format);
      editcap(format, capture, scratch.file(name + "." + format));
      const run_result r = run_varn({"-any_format", "-ifile", scratch.file(name + "." + format)});
      ASSERT_EQ(r.status, 0);
      EXPECT_EQ(r.err, "");
      std::map<unsigned, std::string> got = metadata_lines(r.report());
      EXPECT_EQ(metadata_lines(original.report()), got);  // the original, whatever its format, reads the same
      std::string removed, added;
      for (const auto& [frame, line] : want)
        if (const auto it = got.find(frame); it == got.end()) {
          removed.append(removed.empty() ? "" : " ").append(std::to_string(frame));
        } else {
          EXPECT_EQ(it->second, line) << "frame " << frame;
          ++lines_compared;
          got.erase(it);
        }
      for (const auto& [frame, line] : got) added.append(added.empty() ? "" : " ").append(std::to_string(frame));
      EXPECT_EQ(removed, d.removed);
      EXPECT_EQ(added, d.added);
      const std::string skipped = "too short for their headers" + (d.too_short > 0 ? " (" + std::to_string(d.too_short) + ")" : "");
      EXPECT_EQ(r.out.find(skipped) != std::string::npos, d.too_short > 0) << r.out;
    }
  }
  EXPECT_EQ(captures.size(), 75u);
  std::printf("[ editcap  ] %zu captures as pcapng and nanosecond pcap, %zu metadata lines identical\n", captures.size(),
              lines_compared);
}

// varn -any_format's report of CAPTURE against tshark's reading: every frame both see as ICMP must
// agree; the frames only one of them sees are returned, named by WHERE.
struct disagreement {
  std::set<std::string> varn_only, tshark_only;
  run_result run;
  tshark_reading tshark;
};
disagreement compare_with_tshark(const std::string& capture, size_t& compared,
                                 const std::function<std::string(unsigned)>& where = [](unsigned n) { return std::to_string(n); }) {
  disagreement d{{}, {}, run_varn({"-any_format", "-ifile", capture}), tshark_icmp_frames(capture, true)};
  EXPECT_EQ(d.run.status, 0);
  const std::map<unsigned, std::string> varn = report_records(d.run.report());
  EXPECT_FALSE(d.tshark.icmp.empty());
  for (const auto& [frame, fields] : d.tshark.icmp)
    if (const auto it = varn.find(frame); it == varn.end()) {
      d.tshark_only.insert(where(frame));
    } else {
      EXPECT_TRUE(same_record(it->second, fields)) << where(frame) << "\n varn:   " << it->second << "\n tshark: " << fields;
      ++compared;
    }
  for (const auto& [frame, fields] : varn)
    if (d.tshark.icmp.count(frame) == 0) d.varn_only.insert(where(frame));
  return d;
}

std::vector<packet_record> records_of(const std::string& name) {
  uint32_t link_type = 0;
  std::vector<packet_record> records;
  EXPECT_TRUE(read_classic_records(read_file(k_formats_dir + "/" + name), link_type, records)) << name;
  return records;
}

// Captures the test writes from the raw IP frames of the tun capture: the loopback link types
// (either byte order of the address family, IPv6 as the BSDs number it: 24, 28 and 30), the raw
// IP numbers, and a big-endian file.
std::vector<std::string> link_layer_variants(const temp_dir& scratch) {
  const std::vector<packet_record> raw = records_of("tun-raw.pcap");
  auto behind_loopback = [&](bool big_endian) {
    std::vector<packet_record> records = raw;
    for (size_t i = 0; i < records.size(); ++i) {
      const uint32_t af = (records[i].data[0] & 0xf0) != 0x60 ? 2 : i % 3 == 0 ? 24 : i % 3 == 1 ? 28 : 30;
      for (int b = 0; b < 4; ++b) records[i].data.insert(b, 1, static_cast<char>(af >> (big_endian ? 24 - 8 * b : 8 * b) & 0xff));
      records[i].wire_len += 4;
    }
    return records;
  };
  auto only_version = [&](int version) {
    std::vector<packet_record> kept;
    std::copy_if(raw.begin(), raw.end(), std::back_inserter(kept), [&](const packet_record& r) { return (static_cast<uint8_t>(r.data[0]) >> 4) == version; });
    return kept;
  };
  const std::vector<std::tuple<std::string, classic_layout, std::vector<packet_record>>> variants = {
      {"null-little-endian.pcap", {false, false, false, 4, 65535, 0}, behind_loopback(false)},
      {"null-big-endian-file.pcap", {true, false, false, 4, 65535, 0}, behind_loopback(true)},
      {"loop.pcap", {false, true, false, 4, 65535, 108}, behind_loopback(true)},
      {"raw-12.pcap", {true, false, false, 4, 65535, 12}, raw},
      {"raw-14.pcap", {false, false, false, 4, 65535, 14}, raw},
      {"raw-ipv4-228.pcap", {false, true, false, 4, 65535, 228}, only_version(4)},
      {"raw-ipv6-229.pcap", {false, false, false, 4, 262144, 229}, only_version(6)},
      {"raw-version-2.2.pcap", {false, false, false, 2, 65535, 101}, raw},
  };
  std::vector<std::string> paths;
  for (const auto& [name, layout, records] : variants) {
    paths.push_back(scratch.file(name));
    write_file(paths.back(), classic_file(layout, records));
  }
  return paths;
}

// A pcapng file of four sections: dumpcap's capture as it is; a big-endian section with
// enhanced and obsolete packet blocks on two interfaces, timestamps in 2^-20 s behind an offset;
// a section with simple packet blocks (no timestamps) among blocks Wireshark numbers (a systemd
// journal entry, a custom block) and blocks it does not; and editcap's pcapng of the tagged
// frames.
std::string multi_section_pcapng(const temp_dir& scratch) {
  const std::vector<packet_record> tagged = records_of("scapy-tags-exthdrs.pcap"), raw = records_of("tun-raw.pcap"),
                                   cooked = records_of("cooked-v2-nano.pcap");
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
  pcapng_writer simple(false);
  simple.section_header();
  simple.interface(276, 96);
  simple.block(9, "__REALTIME_TIMESTAMP=1000000\nMESSAGE=numbered by Wireshark\n");
  for (size_t i = 0; i < cooked.size(); ++i) {
    simple.simple_packet(cooked[i].data.substr(0, 96), cooked[i].wire_len);   // cut to the snapshot length
    if (i == 3) simple.block(0x40000BAD, bytes("\x00\x00\x7e\xd9note", 8));  // custom block: numbered
    if (i == 5) simple.block(0x0000000A, bytes("\x4b\x53\x4c\x54\x04\0\0\0abcd", 12));  // decryption secrets: not numbered
    if (i == 7) simple.block(0x00000005, bytes(12, '\x00'));                 // interface statistics: not numbered
  }
  editcap("pcapng", k_formats_dir + "/scapy-tags-exthdrs.pcap", scratch.file("tagged.pcapng"));
  write_file(scratch.file("four-sections.pcapng"), read_file(k_formats_dir + "/dumpcap-two-interfaces.pcapng") + be.data() +
                                                       simple.data() + read_file(scratch.file("tagged.pcapng")));
  return scratch.file("four-sections.pcapng");
}

// The captures of tests/formats (cooked, tagged with extension headers, raw IP, pcapng), the
// link layer variants, editcap's modified pcap and the four-section pcapng: varn and tshark see
// the same ICMP frames, with the same fields, and varn skips nothing.
TEST(any_format_test, captures_made_with_real_tools_agree_with_tshark) {
  if (!have_programs({"tshark", "editcap"})) GTEST_SKIP() << "tshark and editcap (Debian tshark) are not installed";
  temp_dir scratch;
  std::vector<std::string> captures = captures_in(k_formats_dir);
  ASSERT_EQ(captures.size(), 5u);
  for (const std::string& made : link_layer_variants(scratch)) captures.push_back(made);
  editcap("modpcap", k_formats_dir + "/scapy-tags-exthdrs.pcap", scratch.file("modified.pcap"));
  captures.push_back(scratch.file("modified.pcap"));
  captures.push_back(multi_section_pcapng(scratch));
  size_t compared = 0;
  for (const std::string& capture : captures) {
    SCOPED_TRACE(capture);
    const disagreement d = compare_with_tshark(capture, compared);
    EXPECT_EQ(d.run.err, "");
    EXPECT_EQ(d.run.out.find("Skipped"), std::string::npos) << d.run.out;
    EXPECT_EQ(d.run.out.find("Reading stopped"), std::string::npos) << d.run.out;
    EXPECT_EQ(d.varn_only, std::set<std::string>{});
    EXPECT_EQ(d.tshark_only, std::set<std::string>{});
  }
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
  const std::vector<std::string> captures = captures_in(dir);
  temp_dir scratch;
  std::string merge = "mergecap -I none -a -F pcapng -w ";
  merge.append(quoted(scratch.file("joined.pcapng")));
  for (const std::string& capture : captures) merge.append(" ").append(quoted(capture));
  shell_output(merge.append(" 2>/dev/null"));
  // Frame numbers within each capture (interface i is the i-th capture).
  const tshark_reading tshark = tshark_icmp_frames(scratch.file("joined.pcapng"), true);
  std::map<unsigned, std::string> where;
  std::vector<unsigned> seen(captures.size(), 0);
  for (const auto& [frame, id] : tshark.interface_of)
    if (!id.empty() && std::stoul(id) < captures.size())
      where[frame] = std::filesystem::path(captures[std::stoul(id)]).filename().string() + " " + std::to_string(++seen[std::stoul(id)]);
  size_t compared = 0;
  const disagreement d = compare_with_tshark(scratch.file("joined.pcapng"), compared, [&](unsigned n) { return where[n]; });
  EXPECT_EQ(d.tshark_only, (std::set<std::string>{"ip_ts_opts_asan.pcap 1", frag(27) + " 8",
                                                  "zeek-trunc-icmp-header-trunc.pcap 1", "zeek-trunc-icmp-header-trunc.pcap 2"}));
  EXPECT_EQ(d.varn_only, (std::set<std::string>{"ipv6-bad-version.pcap 2", "ipv6-bad-version.pcap 4"}));
  EXPECT_NE(d.run.out.find("Skipped 4 of " + std::to_string(tshark.frames) + " frames: too short for their headers (4)\n"),
            std::string::npos);
  std::printf("[ tshark   ] %zu captures joined, %zu ICMP frames agree\n", captures.size(), compared);
}

// The shared, tests/formats and regression captures, and the dumpcap capture damaged (cut inside
// a block header, inside a packet, and with a block length that is not a multiple of 4): varn
// -any_format writes the same for their bytes on a pipe (standard input) as for the file itself.
TEST(any_format_test, a_pipe_reads_like_the_file) {
  temp_dir scratch;
  std::vector<std::string> captures;
  for (const std::string& dir : {shared_captures_dir(), k_formats_dir, std::string(VARN_SOURCE_DIR) + "/tests/regress"})
    if (!dir.empty())
      for (const std::string& capture : captures_in(dir)) captures.push_back(capture);
  const bytes pcapng = read_file(k_formats_dir + "/dumpcap-two-interfaces.pcapng");
  bytes bad_length = pcapng;
  bad_length[4] = static_cast<char>(bad_length[4] + 1);
  for (const bytes& damaged : {pcapng.substr(0, pcapng.size() - 3), pcapng.substr(0, pcapng.size() - 40), pcapng.substr(0, 30), bad_length}) {
    captures.push_back(scratch.file("damaged-" + std::to_string(captures.size()) + ".pcapng"));
    write_file(captures.back(), damaged);
  }
  ASSERT_GT(captures.size(), 90u);
  const std::string varn = quoted(varn_binary()) + " -any_format -dump_meta -dump_hdr -dump_payload -ifile ";
  for (const std::string& capture : captures) {
    std::string from_pipe = shell_output("cat " + quoted(capture) + " | " + varn + "/dev/stdin 2>&1; echo \"status $?\"");
    std::string from_file = shell_output(varn + quoted(capture) + " 2>&1; echo \"status $?\"");
    for (std::string* text : {&from_pipe, &from_file}) {  // without the run header and the file name
      *text = text->substr(std::min(text->find("\n\n"), text->size()));
      if (const size_t name = text->find("Processing file: "); name != std::string::npos) text->erase(name, text->find('\n', name) - name);
    }
    EXPECT_EQ(from_pipe, from_file) << capture;
  }
}

}  // namespace
}  // namespace varn_test
