// Whole default reports: the metadata record of every kind of frame, worked out field by field.
// Payload digests come from md5sum; "abc" is the RFC 1321 example.
#include <gtest/gtest.h>

#include "e2e/e2e_expect.hpp"
#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

constexpr uint32_t k_ts = 1700000000;  // 2023-11-14 22:13:20 UTC

// Runs varn with no option but the input on CAPTURE and returns the report.
std::string default_report(const bytes& capture) {
  temp_dir dir;
  write_file(dir.file("m.pcap"), capture);
  const run_result r = run_varn({"-ifile", "m.pcap"}, {stdin_mode::empty, "", dir.path()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  return r.report();
}

struct v4_row {
  uint8_t type, code;
  uint16_t id;
  std::string line;
};

TEST(metadata_test, icmp_comments_by_type_and_code) {
  const std::vector<v4_row> rows = {
      {8, 0, 0x1a2b,
       "      1 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {0, 0, 0x1a2b,
       "      2 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo reply \n"},
      {3, 3, 0x1a2b,
       "      3 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable \n"},
      {3, 0, 0x0000,
       "      4 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable \n"},
      {0, 3, 0x0001,
       "      5 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x0001, echo reply [port unreachable] \n"},
      {0, 1, 0xffff,
       "      6 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0xffff, echo reply [host unreachable] \n"},
      {0, 12, 0xabcd,
       "      7 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0xabcd, echo reply [host unreachable] \n"},
      {0, 15, 0x0000,
       "      8 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x0000, echo reply [precedence cutoff] \n"},
      {0, 16, 0x0000,
       "      9 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x0000, echo reply \n"},
      {4, 0, 0x1a2b,
       "     10 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , src quench \n"},
      {5, 1, 0x1a2b,
       "     11 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , redirect \n"},
      {9, 0, 0x1a2b,
       "     12 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , router advertisement \n"},
      {10, 0, 0x1a2b,
       "     13 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , router solicitation \n"},
      {11, 1, 0x1a2b,
       "     14 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , time exceeded \n"},
      {12, 0, 0x1a2b,
       "     15 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , param problem \n"},
      {13, 0, 0xbeef,
       "     16 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0xbeef, icmp timestamp request \n"},
      {14, 0, 0xbeef,
       "     17 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0xbeef, timestamp reply \n"},
      {15, 0, 0x1a2b,
       "     18 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , information request \n"},
      {16, 0, 0x1a2b,
       "     19 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , information reply \n"},
      {17, 0, 0x00ff,
       "     20 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x00ff, addr mask request \n"},
      {18, 0, 0xff00,
       "     21 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0xff00, addr mask reply \n"},
      {1, 0, 0x1a2b,
       "     22 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {2, 0, 0x1a2b,
       "     23 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {6, 0, 0x1a2b,
       "     24 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {7, 0, 0x1a2b,
       "     25 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {19, 0, 0x1a2b,
       "     26 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {255, 255, 0x1a2b,
       "     27 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
  };
  pcap_writer w;
  std::string expected = "Processing file: m.pcap\n" + k_columns;
  for (const v4_row& row : rows) {
    icmp4_spec s;
    s.type = row.type;
    s.code = row.code;
    s.id = row.id;
    s.payload = "abc";
    w.add(k_ts, 0, icmp4_frame(s));
    expected += row.line;
  }
  EXPECT_EQ(default_report(w.data()), expected);
}

struct v6_row {
  uint8_t type, code;
  uint16_t id;
  std::string src, dst;
  uint8_t hop_limit;
  std::string line;
};

// Addresses print with the first zero run compressed, left-aligned and never cut.
TEST(metadata_test, icmpv6_comments_and_addresses) {
  const std::vector<v6_row> rows = {
      {128, 0, 0xface, "fe80::1", "ff02::1", 255,
       "      1 , 2023-11-14 , 22:13:20.000 , icmpv6 , fe80::1                   , ff02::1                  , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0xface, echo request \n"},
      {129, 0, 0x0001, "ff02::1", "fe80::1", 0,
       "      2 , 2023-11-14 , 22:13:20.000 , icmpv6 , ff02::1                   , fe80::1                  ,   0 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x0001, echo reply \n"},
      {135, 0, 0x1a2b, "::", "ff02::1:ff00:5", 255,
       "      3 , 2023-11-14 , 22:13:20.000 , icmpv6 , ::                        , ff02::1:ff00:5           , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , neighbor solicitation \n"},
      {1, 0, 0x0000, "fe80:0:0:0:1:0:0:2", "1:0:2:3:4:5:6:7", 64,
       "      4 , 2023-11-14 , 22:13:20.000 , icmpv6 , fe80::1:0:0:2             , 1::2:3:4:5:6:7           ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable [no route to dst] \n"},
      {1, 1, 0x0000, "1::", "::1", 64,
       "      5 , 2023-11-14 , 22:13:20.000 , icmpv6 , 1::                       , ::1                      ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable [administratively prohibited] \n"},
      {1, 2, 0x0000, "2620:0:e00:400e:d1d:db37:beb:5aac", "fe80:1111:2222:3333:4444:5555:6666:7777", 64,
       "      6 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2620::e00:400e:d1d:db37:beb:5aac , fe80:1111:2222:3333:4444:5555:6666:7777 ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable [out of scope] \n"},
      {1, 3, 0x0000, "2001:db8:0:0:1:0:0:1", "2001:0:0:1:0:0:0:1", 64,
       "      7 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1:0:0:1         , 2001::1:0:0:0:1          ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable [address unreachable] \n"},
      {1, 4, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "      8 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable [port unreachable] \n"},
      {1, 5, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "      9 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , dst unreachable \n"},
      {2, 9, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "     10 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , packet too big \n"},
      {3, 1, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "     11 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , time exceeded \n"},
      {4, 2, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "     12 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , param problem \n"},
      {0, 0, 0x1234, "2001:db8::1", "2001:db8::2", 64,
       "     13 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {5, 0, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "     14 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {127, 0, 0x0000, "2001:db8::1", "2001:db8::2", 64,
       "     15 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {130, 0, 0x0000, "2001:db8::1", "2001:db8::2", 1,
       "     16 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,   1 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , multicast listener query \n"},
      {131, 0, 0x0000, "2001:db8::1", "2001:db8::2", 1,
       "     17 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,   1 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , multicast listener report \n"},
      {132, 0, 0x0000, "2001:db8::1", "2001:db8::2", 1,
       "     18 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              ,   1 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , multicast listener done \n"},
      {133, 0, 0x0000, "2001:db8::1", "2001:db8::2", 255,
       "     19 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , router solicitation \n"},
      {134, 0, 0x0000, "2001:db8::1", "2001:db8::2", 255,
       "     20 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , router advertisement \n"},
      {136, 0, 0x0000, "2001:db8::1", "2001:db8::2", 255,
       "     21 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , neighbor advertisement \n"},
      {137, 0, 0x0000, "2001:db8::1", "2001:db8::2", 255,
       "     22 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , redirect \n"},
      {138, 0, 0x0000, "2001:db8::1", "2001:db8::2", 255,
       "     23 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
      {255, 255, 0x0000, "2001:db8::1", "2001:db8::2", 255,
       "     24 , 2023-11-14 , 22:13:20.000 , icmpv6 , 2001:db8::1               , 2001:db8::2              , 255 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , <unk type> \n"},
  };
  pcap_writer w;
  std::string expected = "Processing file: m.pcap\n" + k_columns;
  for (const v6_row& row : rows) {
    icmp6_spec s;
    s.type = row.type;
    s.code = row.code;
    s.id = row.id;
    s.src = v6(row.src);
    s.dst = v6(row.dst);
    s.hop_limit = row.hop_limit;
    s.payload = "abc";
    w.add(k_ts, 0, icmp6_frame(s));
    expected += row.line;
  }
  EXPECT_EQ(default_report(w.data()), expected);
}

bytes counting_bytes(int n) {
  bytes b;
  for (int i = 0; i < n; ++i) b.push_back(static_cast<char>(i));
  return b;
}

// Every value four times, then one value moved from 0x10 to 0x20 (COUNT times): the bin counts
// become 4 - COUNT and 4 + COUNT (with COUNT 2, two different values receive one each).
bytes skewed_values(int count) {
  bytes b = all_values(4, 11);
  const char targets[2] = {0x20, 0x30};
  int moved = 0;
  for (char& c : b) {
    if (c == 0x10 && moved < count) {
      c = count == 1 ? targets[0] : targets[moved];
      ++moved;
    }
  }
  return b;
}

struct payload_row {
  uint8_t type, code;
  bytes payload;
  std::string before_digest, after_digest;
};

TEST(metadata_test, payload_digest_and_entropy_comment) {
  const std::vector<payload_row> rows = {
      // No payload: Psize 0, empty digest column, no entropy test.
      {8, 0, "",
       "      1 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    42 ,     0 , ",
       " , id: 0x1a2b, echo request \n"},
      {8, 0, counting_bytes(56),
       "      2 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    98 ,    56 , ",
       " , id: 0x1a2b, echo request \n"},
      // Each value four times: spread 0, entropy 1.
      {8, 0, all_values(4, 11),
       "      3 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,  1066 ,  1024 , ",
       " , id: 0x1a2b, echo request, payload has entropy high\n"},
      {8, 0, all_values(1, 5),
       "      4 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,   298 ,   256 , ",
       " , id: 0x1a2b, echo request, payload has entropy high\n"},
      // Value 255 never occurs: spread 100.
      {8, 0, counting_bytes(255),
       "      5 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,   297 ,   255 , ",
       " , id: 0x1a2b, echo request \n"},
      // Counts 3 and 5: spread (5 - 3) / 5 x 100 = 40, the largest that passes.
      {8, 0, skewed_values(1),
       "      6 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,  1066 ,  1024 , ",
       " , id: 0x1a2b, echo request, payload has entropy high\n"},
      // Counts 2 and 5: spread 60.
      {8, 0, skewed_values(2),
       "      7 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,  1066 ,  1024 , ",
       " , id: 0x1a2b, echo request \n"},
      {8, 0, bytes(256, 'A'),
       "      8 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,   298 ,   256 , ",
       " , id: 0x1a2b, echo request \n"},
      {3, 1, all_values(1, 3),
       "      9 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,   298 ,   256 , ",
       " , dst unreachable, payload has entropy high\n"},
  };
  pcap_writer w;
  std::string expected = "Processing file: m.pcap\n" + k_columns;
  for (const payload_row& row : rows) {
    icmp4_spec s;
    s.type = row.type;
    s.code = row.code;
    s.payload = row.payload;
    w.add(k_ts, 0, icmp4_frame(s));
    expected += row.before_digest + (row.payload.empty() ? "" : md5sum_of(row.payload)) + row.after_digest;
  }
  EXPECT_EQ(default_report(w.data()), expected);
}

struct time_row {
  uint32_t ts_sec, ts_usec;
  std::string line;
};

TEST(metadata_test, capture_times_in_utc) {
  const std::vector<time_row> rows = {
      // Seconds 0, and seconds of 2^31 or more, print no date and no time.
      {0, 5,
       "      1 ,  ,  , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {2147483648u, 0,
       "      2 ,  ,  , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {4294967295u, 0,
       "      3 ,  ,  , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {2147483647u, 999999,
       "      4 , 2038-01-19 , 03:14:07.999 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {1, 999999,
       "      5 , 1970-01-01 , 00:00:01.999 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      // Capture times use the full Gregorian calendar: 2000 has its 29 February.
      {951782400 + 43200, 0,
       "      6 , 2000-02-29 , 12:00:00.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {951868800 + 86399, 123,
       "      7 , 2000-03-01 , 23:59:59.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {k_ts, 500000,
       "      8 , 2023-11-14 , 22:13:20.500 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {1000000000, 1999,
       "      9 , 2001-09-09 , 01:46:40.001 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      // Microseconds are added as they stand, even past one second.
      {k_ts, 1000000,
       "     10 , 2023-11-14 , 22:13:21.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
  };
  pcap_writer w;
  std::string expected = "Processing file: m.pcap\n" + k_columns;
  for (const time_row& row : rows) {
    icmp4_spec s;
    s.payload = "abc";
    w.add(row.ts_sec, row.ts_usec, icmp4_frame(s));
    expected += row.line;
  }
  EXPECT_EQ(default_report(w.data()), expected);
}

struct size_row {
  ipv4 src, dst;
  uint8_t ttl;
  std::optional<uint32_t> orig_len;
  std::string line;
};

// Tsize is orig_len from the record header, right-aligned in 5 and never cut; TTL in 3.
TEST(metadata_test, sizes_ttl_and_ipv4_addresses) {
  const std::vector<size_row> rows = {
      {{0, 0, 0, 0}, {255, 255, 255, 255}, 0, std::nullopt,
       "      1 , 2023-11-14 , 22:13:20.000 , icmp   , 0.0.0.0                   , 255.255.255.255          ,   0 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {{10, 1, 2, 3}, {172, 16, 254, 254}, 255, 1514,
       "      2 , 2023-11-14 , 22:13:20.000 , icmp   , 10.1.2.3                  , 172.16.254.254           , 255 ,  1514 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {{10, 1, 2, 3}, {172, 16, 254, 254}, 1, 123456,
       "      3 , 2023-11-14 , 22:13:20.000 , icmp   , 10.1.2.3                  , 172.16.254.254           ,   1 , 123456 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {{10, 1, 2, 3}, {172, 16, 254, 254}, 1, 99999,
       "      4 , 2023-11-14 , 22:13:20.000 , icmp   , 10.1.2.3                  , 172.16.254.254           ,   1 , 99999 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
      {{10, 1, 2, 3}, {172, 16, 254, 254}, 1, 0,
       "      5 , 2023-11-14 , 22:13:20.000 , icmp   , 10.1.2.3                  , 172.16.254.254           ,   1 ,     0 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"},
  };
  pcap_writer w;
  std::string expected = "Processing file: m.pcap\n" + k_columns;
  for (const size_row& row : rows) {
    icmp4_spec s;
    s.src = row.src;
    s.dst = row.dst;
    s.ttl = row.ttl;
    s.payload = "abc";
    w.add(k_ts, 0, icmp4_frame(s), row.orig_len);
    expected += row.line;
  }
  EXPECT_EQ(default_report(w.data()), expected);
}

// Frames that are not Ethernet IPv4/ICMP or IPv6/ICMPv6 are skipped silently but still counted.
TEST(metadata_test, frame_numbers_count_every_record) {
  icmp4_spec v4;
  v4.payload = "abc";
  icmp6_spec v6s;
  v6s.src = v6("fe80::1");
  v6s.dst = v6("fe80::2");
  v6s.payload = "abc";

  icmp4_spec udp = v4;
  udp.protocol = 17;
  icmp4_spec tcp = v4;
  tcp.protocol = 6;
  icmp6_spec hop_by_hop = v6s;
  hop_by_hop.next_header = 0;
  icmp6_spec udp6 = v6s;
  udp6.next_header = 17;
  bytes tagged = icmp4_frame(v4);
  tagged.insert(12, std::string("\x81\x00\x00\x64", 4));  // 802.1Q tag before the ethertype
  bytes version6 = icmp4_frame(v4);
  version6[14] = 0x65;  // version nibble 6, IHL 5: the version is not looked at

  pcap_writer w;
  w.add(k_ts, 0, ethernet_frame(0x0806, bytes(28, '\x01')));  // 1 ARP
  w.add(k_ts, 0, icmp4_frame(udp));                            // 2
  w.add(k_ts, 0, tagged);                                      // 3
  w.add(k_ts, 0, icmp6_frame(hop_by_hop));                     // 4
  w.add(k_ts, 0, icmp4_frame(v4));                             // 5 kept
  w.add(k_ts, 0, icmp6_frame(v6s));                            // 6 kept
  w.add(k_ts, 0, icmp4_frame(tcp));                            // 7
  w.add(k_ts, 0, icmp6_frame(udp6));                           // 8
  w.add(k_ts, 0, ethernet_frame(0x0042, bytes(46, '\0')));     // 9 length field, not an ethertype
  w.add(k_ts, 0, version6);                                    // 10 kept
  w.add(k_ts, 0, icmp4_frame(v4));                             // 11 kept
  EXPECT_EQ(default_report(w.data()),
            "Processing file: m.pcap\n" + k_columns +
                "      5 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"
                "      6 , 2023-11-14 , 22:13:20.000 , icmpv6 , fe80::1                   , fe80::2                  ,  64 ,    65 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"
                "     10 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n"
                "     11 , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n");
}

TEST(metadata_test, no_column_header_without_a_record) {
  icmp4_spec udp;
  udp.protocol = 17;
  pcap_writer w;
  w.add(k_ts, 0, icmp4_frame(udp));
  w.add(k_ts, 0, ethernet_frame(0x0806, bytes(28, '\x01')));
  EXPECT_EQ(default_report(w.data()), "Processing file: m.pcap\n");
  // A file of only the file header makes one pass over the stale header bytes, which are no
  // Ethernet frame of interest.
  EXPECT_EQ(default_report(pcap_writer().data()), "Processing file: m.pcap\n");
}

// The last record, cut short by the end of the file, is still handed over with its sizes.
TEST(metadata_test, record_cut_by_the_end_of_the_file_is_still_reported) {
  icmp4_spec s;
  s.payload = "abcdefgh";
  pcap_writer w;
  w.add(k_ts, 0, icmp4_frame(s));
  const bytes cut = w.data().substr(0, w.data().size() - 5);  // incl_len says 50, five bytes missing
  // The missing payload bytes are whatever the buffer held, so only the sizes are checked.
  const std::string report = default_report(cut);
  EXPECT_EQ(reported_frames(report), std::vector<unsigned>{1});
  EXPECT_NE(report.find(",    50 ,     8 , "), std::string::npos) << report;
}

// Appends a record header claiming INCL_LEN bytes but followed by only PRESENT of FRAME's bytes.
bytes with_short_record(bytes file, const bytes& frame, uint32_t incl_len, size_t present) {
  put_le32(file, k_ts);
  put_le32(file, 0);
  put_le32(file, incl_len);
  put_le32(file, incl_len);
  return file + frame.substr(0, present);
}

struct limit_row {
  uint32_t snaplen;
  uint32_t incl_len;
  std::vector<unsigned> frames;
};

// A record whose incl_len exceeds the snaplen, or exceeds 131056 (what the 131072-byte record
// buffer holds behind a record header), ends the file silently; what came before is reported.
TEST(metadata_test, oversized_record_ends_the_file) {
  icmp4_spec s;
  s.payload = "abc";
  const bytes frame = icmp4_frame(s);
  const std::vector<limit_row> rows = {
      {65535, 65536, {1}},
      {65535, 65535, {1, 2}},
      {200000, 131057, {1}},
      {200000, 131056, {1, 2}},
  };
  for (const limit_row& row : rows) {
    SCOPED_TRACE(std::to_string(row.snaplen) + " / " + std::to_string(row.incl_len));
    pcap_writer w(row.snaplen);
    w.add(k_ts, 0, frame);
    const bytes file = with_short_record(w.data(), frame, row.incl_len, frame.size());
    // A third, complete record follows; it is never reached.
    pcap_writer tail;
    tail.add(k_ts, 0, frame);
    const std::string report = default_report(file + tail.data().substr(24));
    EXPECT_EQ(reported_frames(report), row.frames) << report;
  }
}

// A last record cut by the end of the file is read with fewer bytes than it claims; the rest of
// its frame is what the previous read left in the record buffer. Here the first read took the
// whole rest of the file from offset 24, so the missing bytes are file bytes from offset 24 + 66
// on: the second half of record 1's frame.
TEST(metadata_test, cut_record_is_completed_with_what_the_earlier_read_left) {
  icmp4_spec first;
  first.payload = seeded_bytes(58, 1);  // 100-byte frame at file offset 40
  icmp4_spec second;
  second.src = {10, 9, 8, 7};
  second.payload = seeded_bytes(58, 2);
  const bytes frame1 = icmp4_frame(first);
  const bytes frame2 = icmp4_frame(second);
  pcap_writer w;
  w.add(k_ts, 0, frame1);
  const bytes file = with_short_record(w.data(), frame2, 100, 50);

  temp_dir dir;
  write_file(dir.file("m.pcap"), file);
  const run_result r = run_varn({"-ifile", "m.pcap", "-binary", "-dump_payload"}, {stdin_mode::empty, "", dir.path()});
  EXPECT_EQ(r.status, 0);
  // Record 2: bytes 0..49 of its own frame, then bytes 50..99 of record 1's frame.
  const bytes seen2 = frame2.substr(0, 50) + frame1.substr(50, 50);
  EXPECT_EQ(r.report(), "Processing file: m.pcap\n" + frame1.substr(42) + seen2.substr(42));

  const std::string report = default_report(file);
  EXPECT_NE(report.find("      2 , 2023-11-14 , 22:13:20.000 , icmp   , 10.9.8.7                  , 192.168.1.1     "
                        "         ,  64 ,   100 ,    58 , " +
                        md5sum_of(seen2.substr(42)) + " , id: 0x1a2b, echo request \n"),
            std::string::npos)
      << report;
}

}  // namespace
}  // namespace varn_test
