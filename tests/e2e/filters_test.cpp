// Each selection option end to end, alone and combined, on one capture of mixed frames: which
// frame numbers are reported.
#include <gtest/gtest.h>

#include "e2e/e2e_expect.hpp"
#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

constexpr uint32_t k_t0 = 1610704800;  // 2021-01-15 10:00:00 UTC
const ipv4 k_a{192, 168, 1, 2};
const ipv4 k_b{192, 168, 1, 1};
const ipv4 k_c{10, 0, 0, 3};

bytes v4(ipv4 src, ipv4 dst, uint8_t type, uint8_t code, uint16_t id, const std::string& payload) {
  icmp4_spec s;
  s.src = src;
  s.dst = dst;
  s.type = type;
  s.code = code;
  s.id = id;
  s.payload = payload;
  return icmp4_frame(s);
}

bytes v6f(const std::string& src, const std::string& dst, uint8_t type, uint8_t code, uint16_t id,
          const std::string& payload) {
  icmp6_spec s;
  s.src = v6(src);
  s.dst = v6(dst);
  s.type = type;
  s.code = code;
  s.id = id;
  s.payload = payload;
  return icmp6_frame(s);
}

// Frame  what                                                 incl/orig  time
//  1     IPv4 A -> B echo request id 0x1a2b "PING-abc"        50         t0
//  2     IPv4 B -> A echo reply   id 0x1a2b "PING-abc"        50         t0 + 1
//  3     IPv4 A -> C dst unreachable 3/3 "quoted"             48         t0 + 2
//  4     IPv4 C -> B time exceeded 11/0 "expired"             49         t0 + 3
//  5     IPv6 fe80::1 -> fe80::2 echo request id 0x0100       68         t0 + 4
//  6     IPv6 fe80::2 -> fe80::1 echo reply id 0x0100         68         t0 + 5
//  7     IPv6 :: -> ff02::1:ff00:5 neighbor solicitation      68         t0 + 6
//  8     IPv6 2001:db8::5 -> ff02:1::ff00:5 1/3 "unreach"     69         t0 + 7
//  9     IPv4 192.0.0.0 -> B echo request id 9                43         t0 + 8
// 10     IPv4 A -> B echo request id 2 "ten"                  45/100     t0 + 9
// 11     IPv4 A -> B echo request id 3 "eleven"               48/99      t0 + 10
// 12     IPv4 A -> B echo request id 4 "twelve"               48         seconds 0
// 13     IPv4 A -> B echo request id 5 "late"                 46         2039-09-18 23:06:40
// 14     ARP                                                  42         t0 + 11
// 15     IPv4 A -> B echo request id 6 "y2k"                  45         2000-03-01 12:00:00
// Ethernet destination 66:77:88:99:aa:bb on the IPv4 frames, 33:33:00:00:00:01 on IPv6.
bytes mixed_capture() {
  pcap_writer w;
  w.add(k_t0, 0, v4(k_a, k_b, 8, 0, 0x1a2b, "PING-abc"));
  w.add(k_t0 + 1, 0, v4(k_b, k_a, 0, 0, 0x1a2b, "PING-abc"));
  w.add(k_t0 + 2, 0, v4(k_a, k_c, 3, 3, 0, "quoted"));
  w.add(k_t0 + 3, 0, v4(k_c, k_b, 11, 0, 0, "expired"));
  w.add(k_t0 + 4, 0, v6f("fe80::1", "fe80::2", 128, 0, 0x0100, "v6ping"));
  w.add(k_t0 + 5, 0, v6f("fe80::2", "fe80::1", 129, 0, 0x0100, "v6ping"));
  w.add(k_t0 + 6, 0, v6f("::", "ff02::1:ff00:5", 135, 0, 0, "target"));
  w.add(k_t0 + 7, 0, v6f("2001:db8::5", "ff02:1::ff00:5", 1, 3, 0, "unreach"));
  w.add(k_t0 + 8, 0, v4({192, 0, 0, 0}, k_b, 8, 0, 9, "x"));
  w.add(k_t0 + 9, 0, v4(k_a, k_b, 8, 0, 2, "ten"), 100);
  w.add(k_t0 + 10, 0, v4(k_a, k_b, 8, 0, 3, "eleven"), 99);
  w.add(0, 0, v4(k_a, k_b, 8, 0, 4, "twelve"));
  w.add(2200000000u, 0, v4(k_a, k_b, 8, 0, 5, "late"));
  w.add(k_t0 + 11, 0, ethernet_frame(0x0806, bytes(28, '\x01')));
  w.add(951912000, 0, v4(k_a, k_b, 8, 0, 6, "y2k"));
  return w.data();
}

std::string wildcards(int n) {
  std::string s;
  for (int i = 0; i < n; ++i) s += "? ";
  return s;
}

using frame_list = std::vector<unsigned>;
const frame_list k_all = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 15};
const frame_list k_all_v4 = {1, 2, 3, 4, 9, 10, 11, 12, 13, 15};

struct filter_case {
  std::vector<std::string> options;
  frame_list expected;
};

void run_filter_cases(const std::vector<filter_case>& cases) {
  temp_dir dir;
  write_file(dir.file("f.pcap"), mixed_capture());
  for (const filter_case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.options));
    std::vector<std::string> args = {"-ifile", "f.pcap"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const run_result r = run_varn(args, {stdin_mode::empty, "", dir.path()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(reported_frames(r.report()), c.expected) << r.report();
  }
}

TEST(filters_test, no_filter_keeps_every_icmp_frame) { run_filter_cases({{{}, k_all}}); }

TEST(filters_test, frame_numbers) {
  run_filter_cases({
      {{"-frame", "1 3 5"}, {1, 3, 5}},
      {{"-frame", "14 2"}, {2}},
      {{"-frame", "+3"}, {3}},
      {{"-frame", "99"}, {}},
      {{"-frame", "a 2"}, {2}},
      {{"-frame", "1  2"}, {1, 2}},
      {{"-FRAME", "15"}, {15}},
  });
}

TEST(filters_test, min_size_compares_the_wire_length) {
  run_filter_cases({
      {{"-min_size", "100"}, {10}},
      {{"-min_size", "0x64"}, {10}},
      {{"-min_size", "99"}, {10, 11}},
      {{"-min_size", "69"}, {8, 10, 11}},
      {{"-min_size", "68"}, {5, 6, 7, 8, 10, 11}},
      {{"-min_size", "0"}, k_all},
      {{"-min_size", "101"}, {}},
  });
}

TEST(filters_test, capture_time_window) {
  run_filter_cases({
      {{"-start_time", "01/15/21 10:00:05"}, {6, 7, 8, 9, 10, 11, 13}},
      {{"-start_time", "15-Jan-2021 10:00:05", "-stop_time", "1/15/2021 10:00:07"}, {6, 7, 8}},
      {{"-start_time", "15-JAN-2021 10:00:10"}, {11, 13}},
      {{"-start_time", "01-15-21 10:00:02.5", "-stop_time", "01/15/21 10:00:03"}, {4}},
      // Both bounds are inclusive.
      {{"-start_time", "01/15/21 10:00:01", "-stop_time", "01/15/21 10:00:01"}, {2}},
      {{"-start_time", "01/15/21 10:00:00.001"}, {2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 13}},
      {{"-start_time", "1/15/21 10:00 am"}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 13}},
      {{"-start_time", "1/15/21 10:00:04 pm"}, {13}},
      {{"-start_time", "1/16/21"}, {13}},
      // A record with seconds 0 has time 0: below every start, never above a stop.
      {{"-stop_time", "01/15/21 10:00:01"}, {1, 2, 12, 15}},
      {{"-stop_time", "1/1/31"}, {12}},
      // Two-digit years: 30 is 2030, 39 is 1939.
      {{"-stop_time", "1/1/30"}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 15}},
      {{"-start_time", "1/1/39"}, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 13, 15}},
      // Seconds of 2^31 and more print no date but are compared as unsigned.
      {{"-start_time", "1/1/2039"}, {13}},
      // Limit dates from March 2000 on count 2000 as a common year: one day early.
      {{"-start_time", "03/02/00", "-stop_time", "03/03/00"}, {15}},
      {{"-start_time", "03/01/2000", "-stop_time", "03/01/2000 23:59:59"}, {}},
      // An unreadable stop time is ignored after a valid start time.
      {{"-start_time", "01/15/21 10:00:09", "-stop_time", "nonsense"}, {10, 11, 13}},
  });
}

TEST(filters_test, ipv4_addresses_read_as_numbers) {
  const uint32_t a = 0x0201A8C0;  // 192.168.1.2 with the first wire byte least significant
  const uint32_t b = 0x0101A8C0;
  run_filter_cases({
      // 192.168.1.1 reads as the number 192: the source 192.0.0.0.
      {{"-srcip", "192.168.1.1"}, {9}},
      {{"-dstip", "10.0.0.3"}, {}},
      {{"-srcip", "0x0101A8C0"}, {2}},
      {{"-srcip", std::to_string(b)}, {2}},
      {{"-srcip", "0x0300000a"}, {4}},
      {{"-dstip", "0x0101a8c0"}, {1, 4, 9, 10, 11, 12, 13, 15}},
      {{"-srcip", "0x0201A8C0"}, {1, 3, 10, 11, 12, 13, 15}},
      {{"-srcip", std::to_string(a), "-dstip", std::to_string(b)}, {1, 10, 11, 12, 13, 15}},
      {{"-srcip", "0"}, k_all},
  });
}

TEST(filters_test, track_replies_matches_either_direction) {
  run_filter_cases({
      {{"-srcip", "0x0201A8C0", "-dstip", "0x0101A8C0", "-track_replies"}, {1, 2, 10, 11, 12, 13, 15}},
      {{"-track_replies", "-dstip", "0x0201A8C0", "-srcip", "0x0101A8C0"}, {1, 2, 10, 11, 12, 13, 15}},
      {{"-srcip", "0x0201A8C0", "-track_replies"}, {1, 2, 3, 10, 11, 12, 13, 15}},
      {{"-dstip", "0x0300000a", "-track_replies"}, {3, 4}},
      {{"-srcipv6", "fe80::1", "-track_replies"}, {5, 6}},
      {{"-srcipv6", "fe80::1", "-dstipv6", "fe80::2"}, {5}},
      {{"-srcipv6", "fe80::1", "-dstipv6", "fe80::2", "-track_replies"}, {5, 6}},
      {{"-track_replies"}, k_all},
  });
}

TEST(filters_test, ipv6_addresses_full_and_compressed) {
  run_filter_cases({
      {{"-srcipv6", "fe80:0:0:0:0:0:0:1"}, {5}},
      {{"-srcipv6", "FE80:0000:0000:0000:0000:0000:0000:0001"}, {5}},
      {{"-srcipv6", "fe80::1"}, {5}},
      {{"-dstipv6", "fe80::1"}, {6}},
      {{"-srcipv6", "2001:db8::5"}, {8}},
      {{"-srcipv6", "fe80::"}, {}},
      // The zero run may go in either gap of ff02 1 ff00 5.
      {{"-dstipv6", "ff02::1:ff00:5"}, {7, 8}},
      {{"-dstipv6", "ff02:0:0:0:0:1:ff00:5"}, {7}},
      // Empty text reads as 16 zero bytes; a text of colons only reads nothing: no filter.
      {{"-srcipv6", ""}, {7}},
      {{"-srcipv6", "::"}, k_all},
  });
}

TEST(filters_test, address_filter_of_one_family_rejects_the_other) {
  run_filter_cases({
      {{"-srcipv6", "fe80::1", "-track_replies", "-frame", "1 2 5 6"}, {5, 6}},
      {{"-srcip", "0x0201A8C0", "-frame", "1 5"}, {1}},
      {{"-dstip", "0x0101A8C0", "-icmp_type", "128"}, {}},
      {{"-srcip", "0x0201A8C0", "-srcipv6", "fe80::1"}, {}},
  });
}

TEST(filters_test, byte_pattern_over_the_whole_frame) {
  run_filter_cases({
      {{"-find_pattern_h", "50 49 4e 47"}, {1, 2}},
      {{"-find_pattern", "'P' ? 'N' 'G'"}, {1, 2}},
      {{"-find_pattern", "0x50 ? ? 0x47 0x2d"}, {1, 2}},
      // In the Ethernet header: the destination of every IPv4 frame.
      {{"-find_pattern_h", "66 77 ? 99"}, k_all_v4},
      // In the IP header, as source or destination.
      {{"-find_pattern_h", "c0 a8 01 02"}, {1, 2, 3, 10, 11, 12, 13, 15}},
      // The last bytes of the frame.
      {{"-find_pattern_h", "2d 61 62 63"}, {1, 2}},
      {{"-find_pattern_h", "74 61 72 67 65 74"}, {7}},
      {{"-find_pattern", "116 101 110"}, {10}},
      // Wildcards alone build no pattern: no filter.
      {{"-find_pattern", "? ? ?"}, k_all},
      // Longer than every frame.
      {{"-find_pattern_h", wildcards(70) + "ff"}, {}},
      // "-find_pattern" replaces what "-find_pattern_h" set.
      {{"-find_pattern", "'t' 'e' 'n'", "-find_pattern_h", "50 49 4e 47"}, {10}},
  });
}

TEST(filters_test, icmp_type_code_and_id_lists) {
  run_filter_cases({
      {{"-icmp_type", "0,8;3|11"}, k_all_v4},
      {{"-icmp_type", "264"}, {1, 9, 10, 11, 12, 13, 15}},
      {{"-icmp_type", "0x0b"}, {4}},
      {{"-icmp_type", "X0B"}, {4}},
      {{"-icmp_type", "o13"}, {4}},
      {{"-icmp_type", "O13"}, {4}},
      {{"-icmp_type", "128 129"}, {5, 6}},
      {{"-icmp_type", "135", "-icmp_code", "0"}, {7}},
      {{"-icmp_code", "3"}, {3, 8}},
      {{"-icmp_code", "259"}, {3, 8}},
      {{"-icmp_id", "0x1a2b"}, {1, 2}},
      {{"-icmp_id", "256"}, {5, 6}},
      // Bytes 4 and 5 of every type, whether they hold an identifier or not.
      {{"-icmp_id", "0"}, {3, 4, 7, 8}},
      {{"-icmp_id", "2|3;0x0004,5"}, {10, 11, 12, 13}},
      {{"-icmp_type", "8", "-icmp_id", "0x1a2b"}, {1}},
  });
}

TEST(filters_test, combinations) {
  run_filter_cases({
      {{"-srcip", "0x0201A8C0", "-icmp_type", "8", "-frame", "1 10 11", "-min_size", "99"}, {10, 11}},
      {{"-srcipv6", "fe80::1", "-track_replies", "-find_pattern_h", "76 36"}, {5, 6}},
      {{"-start_time", "01/15/21 10:00:00", "-stop_time", "01/15/21 10:00:05", "-icmp_type", "128,129,0"}, {2, 5, 6}},
      {{"-dstip", "0x0101A8C0", "-start_time", "1/1/2000", "-stop_time", "12/31/2030", "-icmp_id", "4 6"}, {15}},
  });
}

TEST(filters_test, selected_frames_keep_their_record_lines) {
  temp_dir dir;
  write_file(dir.file("f.pcap"), mixed_capture());
  const run_result r = run_varn(
      {"-ifile", "f.pcap", "-srcip", "0x0201A8C0", "-dstip", "0x0101A8C0", "-track_replies", "-frame", "1 2 3"},
      {stdin_mode::empty, "", dir.path()});
  const std::string md5 = md5sum_of("PING-abc");
  EXPECT_EQ(r.report(),
            "Processing file: f.pcap\n" + k_columns +
                "      1 , 2021-01-15 , 10:00:00.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    50 ,     8 , " +
                md5 + " , id: 0x1a2b, echo request \n" +
                "      2 , 2021-01-15 , 10:00:01.000 , icmp   , 192.168.1.1               , 192.168.1.2              ,  64 ,    50 ,     8 , " +
                md5 + " , id: 0x1a2b, echo reply \n");
}

}  // namespace
}  // namespace varn_test
