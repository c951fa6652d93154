// Whole runs in each output format: which regions are written, their labels, blank lines and
// offsets, and how the format and dump options combine after parsing.
#include <gtest/gtest.h>

#include "e2e/e2e_expect.hpp"
#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

bytes hex_bytes(std::initializer_list<int> values) {
  bytes b;
  for (int v : values) b.push_back(static_cast<char>(v));
  return b;
}

const mac k_eth_src{0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
const mac k_eth_dst{0x66, 0x77, 0x88, 0x99, 0xaa, 0xbb};

// IPv4 (IHL 5) echo request 192.168.1.2 -> 192.168.1.1, id 0x1a2b, seq 1, 18 payload bytes:
// 60 bytes in all, H = 42. Checksums are left 0: nothing checks them.
const bytes k_v4_payload = std::string("ABCDEFGHIJ") + hex_bytes({0x00, 0x7f, 0x80, 0xff, 0x20, 0x7e, 0x0a, 0x0d});
bytes v4_frame() {
  return ethernet_frame(0x0800,
                        hex_bytes({0x45, 0x00, 0x00, 0x2e, 0x12, 0x34, 0x00, 0x00, 0x40, 0x01, 0x00, 0x00, 0xc0, 0xa8,
                                   0x01, 0x02, 0xc0, 0xa8, 0x01, 0x01,                  // IP
                                   0x08, 0x00, 0x00, 0x00, 0x1a, 0x2b, 0x00, 0x01}) +  // ICMP
                            k_v4_payload,
                        k_eth_src, k_eth_dst);
}

const std::string k_v4_hdr_hex =
    "0000 0000:  66 77 88 99 aa bb 00 11  22 33 44 55 08 00 45 00  fw......\"3DU..E.\n"
    "0000 0010:  00 2e 12 34 00 00 40 01  00 00 c0 a8 01 02 c0 a8  ...4..@.........\n"
    "0000 0020:  01 01 08 00 00 00 1a 2b  00 01" + std::string(20, ' ') + ".......+..\n";
const std::string k_v4_payload_hex =
    "0000 002a:  41 42 43 44 45 46 47 48  49 4a 00 7f 80 ff 20 7e  ABCDEFGHIJ.... ~\n"
    "0000 003a:  0a 0d" + std::string(45, ' ') + "..\n";
// The text columns of the three header lines above, joined.
const std::string k_v4_hdr_ascii = std::string("fw......\"3DU..E.") + "...4..@........." + ".......+..";
const std::string k_v4_payload_ascii = "ABCDEFGHIJ.... ~..";

// IPv4 with IHL 6 (one option word), echo reply 10.0.0.1 -> 10.0.0.2, id 7, payload "WXYZ":
// 50 bytes, H = 46.
bytes v4_ihl6_frame() {
  return ethernet_frame(0x0800,
                        hex_bytes({0x46, 0x00, 0x00, 0x20, 0x12, 0x34, 0x00, 0x00, 0x40, 0x01, 0x00, 0x00, 0x0a, 0x00,
                                   0x00, 0x01, 0x0a, 0x00, 0x00, 0x02, 0x01, 0x01, 0x01, 0x00,  // IP + option
                                   0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x00, 0x02}) +          // ICMP
                            "WXYZ",
                        k_eth_src, k_eth_dst);
}

// Payload with ascii runs, a UTF-16LE run at an odd offset, a short run and a run that ends
// the region.
const bytes k_strings_payload = std::string("  hello") + hex_bytes({0x00, 0x01}) +
                                hex_bytes({'W', 0, 'O', 0, 'R', 0, 'L', 0, 'D', 0, 0x01}) + "hello world   " +
                                hex_bytes({0x01}) + "abcd" + hex_bytes({0x02}) + "tail end";

bytes capture_of(const std::vector<bytes>& frames, uint32_t ts_sec = 1000000000, uint32_t ts_usec = 123456) {
  pcap_writer w;
  for (const bytes& f : frames) w.add(ts_sec, ts_usec, f);
  return w.data();
}

// The metadata record of v4_frame() as frame N.
std::string v4_record(unsigned n) {
  return "      " + std::to_string(n) +
         " , 2001-09-09 , 01:46:40.123 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 "
         ",    60 ,    18 , " +
         md5sum_of(k_v4_payload) + " , id: 0x1a2b, echo request \n";
}

struct format_case {
  std::string name;
  std::vector<std::string> options;
  std::string expected;  // the report after "Processing file: ..."
};

void run_cases(const bytes& capture, const std::vector<format_case>& cases) {
  temp_dir dir;
  write_file(dir.file("c.pcap"), capture);
  for (const format_case& c : cases) {
    SCOPED_TRACE(c.name);
    std::vector<std::string> args = {"-ifile", "c.pcap"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const run_result r = run_varn(args, {stdin_mode::empty, "", dir.path()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.report(), "Processing file: c.pcap\n" + c.expected);
  }
}

TEST(formats_test, regions_per_format_for_an_ipv4_frame) {
  const std::string meta = k_columns + v4_record(1);
  run_cases(capture_of({v4_frame()}),
            {
                {"hex header", {"-dump_hdr"}, "packet hdr\n" + k_v4_hdr_hex + "\n"},
                {"hex payload offsets continue from the header", {"-dump_payload"},
                 "payload\n" + k_v4_payload_hex + "\n"},
                {"hex both", {"-dump_payload", "-dump_hdr"},
                 "packet hdr\n" + k_v4_hdr_hex + "\npayload\n" + k_v4_payload_hex + "\n"},
                {"hex all three", {"-dump_meta", "-dump_hdr", "-dump_payload"},
                 meta + "packet hdr\n" + k_v4_hdr_hex + "\npayload\n" + k_v4_payload_hex + "\n"},
                {"ascii shows only the payload when both are asked", {"-ascii", "-dump_hdr", "-dump_payload"},
                 k_v4_payload_ascii + "\n\n"},
                {"ascii header", {"-ascii", "-dump_hdr"}, k_v4_hdr_ascii + "\n\n"},
                {"ascii with metadata", {"-ascii", "-dump_payload", "-dump_meta"}, meta + k_v4_payload_ascii + "\n\n"},
                {"strings payload", {"-strings", "-dump_payload"}, "ABCDEFGHIJ\n\n"},
                {"strings header finds nothing but ends the region", {"-strings", "-dump_hdr"}, "\n"},
                {"binary both", {"-binary", "-dump_hdr", "-dump_payload"}, v4_frame()},
                {"binary payload", {"-binary", "-dump_payload"}, k_v4_payload},
                {"binary header with dump_meta: no metadata", {"-binary", "-dump_hdr", "-dump_meta"},
                 v4_frame().substr(0, 42)},
            });
}

TEST(formats_test, format_options_and_the_post_parse_rules) {
  const std::string meta = k_columns + v4_record(1);
  run_cases(capture_of({v4_frame()}),
            {
                {"no option: metadata only", {}, meta},
                {"ascii alone: metadata and payload", {"-ascii"}, meta + k_v4_payload_ascii + "\n\n"},
                {"strings alone: metadata and payload strings", {"-strings"}, meta + "ABCDEFGHIJ\n\n"},
                {"binary alone writes nothing", {"-binary"}, ""},
                {"dump_meta forces ascii over binary", {"-dump_meta", "-binary"}, meta},
                {"dump_meta forces ascii over strings", {"-strings", "-dump_meta"}, meta},
                {"dump_meta alone", {"-dump_meta"}, meta},
                {"ascii beats binary", {"-ascii", "-binary", "-dump_payload"}, k_v4_payload_ascii + "\n\n"},
                {"strings beats binary", {"-binary", "-strings", "-dump_payload"}, "ABCDEFGHIJ\n\n"},
                {"strings beats ascii", {"-strings", "-ascii", "-dump_payload"}, "ABCDEFGHIJ\n\n"},
                {"options in capitals", {"-DUMP_PAYLOAD", "-Binary"}, k_v4_payload},
            });
}

TEST(formats_test, ihl_6_gives_a_46_byte_header) {
  run_cases(capture_of({v4_ihl6_frame()}),
            {
                {"hex",
                 {"-dump_hdr", "-dump_payload"},
                 "packet hdr\n"
                 "0000 0000:  66 77 88 99 aa bb 00 11  22 33 44 55 08 00 46 00  fw......\"3DU..F.\n"
                 "0000 0010:  00 20 12 34 00 00 40 01  00 00 0a 00 00 01 0a 00  . .4..@.........\n"
                 "0000 0020:  00 02 01 01 01 00 00 00  00 00 00 07 00 02" +
                     std::string(8, ' ') + "..............\n\npayload\n0000 002e:  57 58 59 5a" + std::string(39, ' ') +
                     "WXYZ\n\n"},
                {"binary payload starts after the option word", {"-binary", "-dump_payload"}, "WXYZ"},
                {"metadata",
                 {"-ascii"},
                 k_columns +
                     "      1 , 2001-09-09 , 01:46:40.123 , icmp   , 10.0.0.1                  , 10.0.0.2                 "
                     ",  64 ,    50 ,     4 , " +
                     md5sum_of("WXYZ") + " , id: 0x0007, echo reply \nWXYZ\n\n"},
            });
}

TEST(formats_test, frame_shorter_than_its_header) {
  // 40 of the 60 bytes captured: the header dump is cut to 40 bytes, the payload is empty.
  pcap_writer w;
  w.add(1000000000, 123456, v4_frame().substr(0, 40), 60);
  const std::string meta = k_columns +
                           "      1 , 2001-09-09 , 01:46:40.123 , icmp   , 192.168.1.2               , 192.168.1.1 "
                           "             ,  64 ,    60 ,     0 ,  , id: 0x1a2b, echo request \n";
  const std::string hdr_hex = "0000 0000:  66 77 88 99 aa bb 00 11  22 33 44 55 08 00 45 00  fw......\"3DU..E.\n"
                              "0000 0010:  00 2e 12 34 00 00 40 01  00 00 c0 a8 01 02 c0 a8  ...4..@.........\n"
                              "0000 0020:  01 01 08 00 00 00 1a 2b" +
                              std::string(27, ' ') + ".......+\n";
  run_cases(w.data(),
            {
                {"hex", {"-dump_meta", "-dump_hdr", "-dump_payload"},
                 meta + "packet hdr\n" + hdr_hex + "\npayload\n\n"},
                {"binary", {"-binary", "-dump_hdr", "-dump_payload"}, v4_frame().substr(0, 40)},
                {"ascii header", {"-ascii", "-dump_hdr"}, k_v4_hdr_ascii.substr(0, 40) + "\n\n"},
                {"ascii payload is empty: nothing", {"-ascii", "-dump_hdr", "-dump_payload"}, ""},
                {"ascii alone: the record only", {"-ascii"}, meta},
                {"strings alone: the record only", {"-strings"}, meta},
            });
}

TEST(formats_test, empty_payload) {
  icmp6_spec s;
  s.src = v6("fe80::1");
  s.dst = v6("fe80::2");
  const std::string meta = k_columns +
                           "      1 , 2001-09-09 , 01:46:40.123 , icmpv6 , fe80::1                   , fe80::2      "
                           "            ,  64 ,    62 ,     0 ,  , id: 0x1a2b, echo request \n";
  run_cases(capture_of({icmp6_frame(s)}),
            {
                {"hex still writes the label and the blank line", {"-dump_payload"}, "payload\n\n"},
                {"hex with metadata", {"-dump_payload", "-dump_meta"}, meta + "payload\n\n"},
                {"ascii writes nothing", {"-ascii", "-dump_payload", "-dump_hdr"}, ""},
                {"strings writes nothing", {"-strings", "-dump_payload"}, ""},
                {"binary writes nothing", {"-binary", "-dump_payload"}, ""},
                {"ascii alone", {"-ascii"}, meta},
            });
}

TEST(formats_test, strings_lists_ascii_then_unicode_runs) {
  icmp4_spec s;
  s.payload = k_strings_payload;
  const bytes frame = icmp4_frame(s);
  run_cases(capture_of({frame}),
            {
                {"strings", {"-strings", "-dump_payload"}, "hello\nhello world   \ntail end\nWORLD\n\n"},
                {"ascii", {"-ascii", "-dump_payload"}, "  hello..W.O.R.L.D..hello world   .abcd.tail end\n\n"},
                {"hex", {"-dump_payload"},
                 "payload\n"
                 "0000 002a:  20 20 68 65 6c 6c 6f 00  01 57 00 4f 00 52 00 4c    hello..W.O.R.L\n"
                 "0000 003a:  00 44 00 01 68 65 6c 6c  6f 20 77 6f 72 6c 64 20  .D..hello world \n"
                 "0000 004a:  20 20 01 61 62 63 64 02  74 61 69 6c 20 65 6e 64    .abcd.tail end\n\n"},
            });
}

TEST(formats_test, every_frame_starts_its_own_offsets) {
  const std::string frame2_hex = "packet hdr\n"
                                 "0000 0000:  66 77 88 99 aa bb 00 11  22 33 44 55 08 00 46 00  fw......\"3DU..F.\n"
                                 "0000 0010:  00 20 12 34 00 00 40 01  00 00 0a 00 00 01 0a 00  . .4..@.........\n"
                                 "0000 0020:  00 02 01 01 01 00 00 00  00 00 00 07 00 02" +
                                 std::string(8, ' ') + "..............\n\npayload\n0000 002e:  57 58 59 5a" +
                                 std::string(39, ' ') + "WXYZ\n\n";
  run_cases(capture_of({v4_frame(), v4_ihl6_frame(), v4_frame()}),
            {
                {"hex", {"-dump_hdr", "-dump_payload"},
                 "packet hdr\n" + k_v4_hdr_hex + "\npayload\n" + k_v4_payload_hex + "\n" + frame2_hex + "packet hdr\n" +
                     k_v4_hdr_hex + "\npayload\n" + k_v4_payload_hex + "\n"},
                {"binary", {"-binary", "-dump_payload"}, k_v4_payload + "WXYZ" + k_v4_payload},
                {"ascii", {"-ascii", "-dump_payload"},
                 k_v4_payload_ascii + "\n\nWXYZ\n\n" + k_v4_payload_ascii + "\n\n"},
            });
}

}  // namespace
}  // namespace varn_test
