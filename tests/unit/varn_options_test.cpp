// The option set: lookup order, the rules applied after parsing, the input-source test, the time
// options, and the common options read before the tool's own.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "options/varn_options.hpp"

namespace {

using varn::arg_list;

constexpr uint64_t k_all_ones = ~uint64_t{0};
// 2003-01-02 04:05:06 and 2021-01-01 00:00:00 UTC as time values (100 ns ticks since 1601).
constexpr uint64_t k_2003_01_02_040506 = 126859539060000000ULL;
constexpr uint64_t k_2021_01_01 = 132539328000000000ULL;

struct parsed {
  bool ok = false;
  varn::varn_options options;
  arg_list rest;
};

// Runs the common parser, then the tool's own, as the driver does. Standard error (the start-time
// message) is captured and dropped; its text is checked end to end elsewhere.
parsed parse(arg_list args) {
  parsed p;
  testing::internal::CaptureStderr();
  p.ok = p.options.parse_common_options(args) && p.options.parse_tool_options(args);
  testing::internal::GetCapturedStderr();
  p.rest = args;
  return p;
}

arg_list with_input(std::initializer_list<std::string> more) {
  arg_list args{"varn", "-ifile", "in.pcap"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

TEST(varn_options_test, defaults) {
  const varn::varn_options o;
  EXPECT_EQ(o.output_format, 1);
  EXPECT_FALSE(o.run_enabled);
  EXPECT_EQ(o.src_port, 65536u);
  EXPECT_EQ(o.dst_port, 65536u);
  EXPECT_EQ(o.start_time, 0u);
  EXPECT_EQ(o.stop_time, 0u);
  EXPECT_FALSE(o.pattern.valid());
  EXPECT_EQ(o.date_format, "mm/dd/yyyy");
}

struct format_case {
  std::vector<std::string> options;
  int format;
  bool dump_meta, dump_hdr, dump_payload;
};

TEST(varn_options_test, format_precedence_and_post_parse_rules) {
  const format_case cases[] = {
      // -strings beats -ascii beats -binary, in any command-line order
      {{"-ascii", "-binary"}, 2, true, false, true},
      {{"-binary", "-ascii"}, 2, true, false, true},
      {{"-binary", "-strings"}, 4, true, false, true},
      {{"-strings", "-binary"}, 4, true, false, true},
      {{"-strings", "-ascii"}, 4, true, false, true},
      {{"-ascii", "-strings", "-binary"}, 4, true, false, true},
      // no dump option: metadata, plus the payload for ascii and strings
      {{}, 1, true, false, false},
      {{"-binary"}, 3, true, false, false},
      {{"-ascii"}, 2, true, false, true},
      {{"-strings"}, 4, true, false, true},
      // -dump_meta alone forces ascii
      {{"-dump_meta"}, 2, true, false, false},
      {{"-dump_meta", "-binary"}, 2, true, false, false},
      {{"-dump_meta", "-strings"}, 2, true, false, false},
      // with a header or payload dump the format and flags stay as given
      {{"-dump_hdr"}, 1, false, true, false},
      {{"-dump_payload", "-binary"}, 3, false, false, true},
      {{"-dump_hdr", "-ascii"}, 2, false, true, false},
      {{"-dump_meta", "-dump_payload", "-strings"}, 4, true, false, true},
      {{"-dump_meta", "-dump_hdr", "-dump_payload", "-binary"}, 3, true, true, true},
  };
  for (const auto& c : cases) {
    arg_list args{"varn", "-ifile", "in.pcap"};
    args.insert(args.end(), c.options.begin(), c.options.end());
    const parsed p = parse(args);
    std::string what;
    for (const auto& o : c.options) what += o + " ";
    ASSERT_TRUE(p.ok) << what;
    EXPECT_EQ(p.options.output_format, c.format) << what;
    EXPECT_EQ(p.options.dump_meta, c.dump_meta) << what;
    EXPECT_EQ(p.options.dump_hdr, c.dump_hdr) << what;
    EXPECT_EQ(p.options.dump_payload, c.dump_payload) << what;
    EXPECT_TRUE(p.options.run_enabled) << what;
  }
}

TEST(varn_options_test, input_source_is_required) {
  const struct {
    arg_list args;
    bool ok;
    const char* what;
  } cases[] = {
      {{"varn", "-dump_meta", "-ascii"}, false, "no input named"},
      {{"varn", "-ascii", "-ifile"}, false, "-ifile standing last has no value"},
      {{"varn", "-ifile", ""}, false, "an empty -ifile value"},
      {{"varn", "-ifile", "a.pcap"}, true, "-ifile"},
      {{"varn", "-pipe"}, true, "-pipe"},
      {{"varn", "-PIPE", "-ascii"}, true, "-pipe in capitals"},
      {{"varn", "-enumdir", "/captures"}, true, "-enumdir"},
      {{"varn", "-enumdir"}, false, "-enumdir without its directory"},
  };
  for (const auto& c : cases) EXPECT_EQ(parse(c.args).ok, c.ok) << c.what;
}

TEST(varn_options_test, file_options) {
  {
    const parsed p = parse({"varn", "-ifile", "first.pcap", "-ifile", "second.pcap"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.options.input_file, "first.pcap");
  }
  {
    // "-ofile" takes the next entry whatever it is: a file named -ascii, format stays hex
    const parsed p = parse({"varn", "-ifile", "in.pcap", "-ofile", "-ascii"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.options.output_file, "-ascii");
    EXPECT_EQ(p.options.output_format, 1);
    EXPECT_FALSE(p.options.dump_payload);
  }
  {
    // "-ifile" is looked up before "-ascii", so "-ascii" becomes the input file's name
    const parsed p = parse({"varn", "-ifile", "-ascii", "x"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.options.input_file, "-ascii");
    EXPECT_EQ(p.options.output_format, 1);
  }
  {
    const parsed p = parse({"varn", "-IFILE", "In.PCAP", "-OFile", "Out.TXT", "-Dump_Meta", "-ASCII"});
    ASSERT_TRUE(p.ok);
    EXPECT_EQ(p.options.input_file, "In.PCAP");
    EXPECT_EQ(p.options.output_file, "Out.TXT");
    EXPECT_TRUE(p.options.dump_meta);
    EXPECT_EQ(p.options.output_format, 2);
  }
}

TEST(varn_options_test, capitals_for_every_kind_of_option) {
  const parsed p = parse({"varn", "-iFile", "a", "-DUMP_HDR", "-Dump_Payload", "-STRINGS", "-Track_Replies",
                          "-MIN_SIZE", "60", "-SrcIp", "10", "-DSTIP", "11", "-ICMP_TYPE", "8",
                          "-Icmp_Code", "0", "-ICMP_ID", "5", "-FRAME", "2", "-Find_Pattern", "1",
                          "-SRCIPV6", "::1", "-DstIpV6", "::2", "-Start_Time", "1/1/21",
                          "-STOP_TIME", "1/2/21"});
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.rest, (arg_list{"varn"}));
  EXPECT_TRUE(p.options.dump_hdr);
  EXPECT_TRUE(p.options.dump_payload);
  EXPECT_EQ(p.options.output_format, 4);
  EXPECT_TRUE(p.options.track_replies);
  EXPECT_EQ(p.options.min_size, 60u);
  EXPECT_EQ(p.options.src_ip, 10u);
  EXPECT_EQ(p.options.dst_ip, 11u);
  EXPECT_EQ(p.options.icmp_types, (std::vector<uint64_t>{8}));
  EXPECT_EQ(p.options.icmp_codes, (std::vector<uint64_t>{0}));
  EXPECT_EQ(p.options.icmp_ids, (std::vector<uint64_t>{5}));
  EXPECT_EQ(p.options.frames, (std::vector<uint64_t>{2}));
  EXPECT_TRUE(p.options.pattern.valid());
  EXPECT_EQ(p.options.src_ipv6.bytes(), (std::vector<uint8_t>{0, 1}));
  EXPECT_EQ(p.options.dst_ipv6.bytes(), (std::vector<uint8_t>{0, 2}));
  EXPECT_EQ(p.options.start_time, k_2021_01_01);
  EXPECT_EQ(p.options.stop_time, k_2021_01_01 + 864000000000ULL);
}

TEST(varn_options_test, number_and_list_options) {
  const parsed p = parse(with_input({"-icmp_type", "0,8;3|11", "-icmp_code", "x3", "-icmp_id", "256 0x1a2b",
                                     "-frame", "1 2 3", "-min_size", "100", "-srcip", "192.168.1.1",
                                     "-dstip", "0x0101A8C0"}));
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.options.icmp_types, (std::vector<uint64_t>{0, 8, 3, 11}));
  EXPECT_EQ(p.options.icmp_codes, (std::vector<uint64_t>{3}));
  EXPECT_EQ(p.options.icmp_ids, (std::vector<uint64_t>{256, 0x1a2b}));
  EXPECT_EQ(p.options.frames, (std::vector<uint64_t>{1, 2, 3}));
  EXPECT_EQ(p.options.min_size, 100u);
  EXPECT_EQ(p.options.src_ip, 192u);  // a plain number, not a dotted quad
  EXPECT_EQ(p.options.dst_ip, 0x0101a8c0u);
}

TEST(varn_options_test, numbers_that_do_not_read_leave_zero) {
  const parsed p = parse(with_input({"-min_size", "big", "-srcip", "host", "-dstip", ""}));
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.options.min_size, 0u);
  EXPECT_EQ(p.options.src_ip, 0u);
  EXPECT_EQ(p.options.dst_ip, 0u);
}

TEST(varn_options_test, ipv6_options) {
  const parsed p = parse(with_input({"-srcipv6", "2001:db8::1", "-dstipv6", "2001:0db8:0:0:0:0:0:0001"}));
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.options.src_ipv6.bytes(), (std::vector<uint8_t>{0x20, 0x01, 0x0d, 0xb8, 0x00, 0x01}));
  EXPECT_EQ(p.options.dst_ipv6.bytes(),
            (std::vector<uint8_t>{0x20, 0x01, 0x0d, 0xb8, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x00, 0x01}));

  const parsed colons = parse(with_input({"-srcipv6", "::", "-dstipv6", ""}));
  ASSERT_TRUE(colons.ok);
  EXPECT_TRUE(colons.options.src_ipv6.empty());                                 // nothing read
  EXPECT_EQ(colons.options.dst_ipv6.bytes(), std::vector<uint8_t>(16, 0));  // empty text: 16 zeros
}

TEST(varn_options_test, find_pattern_replaces_find_pattern_h) {
  for (const arg_list& args :
       {with_input({"-find_pattern_h", "45 00 ff", "-find_pattern", "0x10 ? 'A'"}),
        with_input({"-find_pattern", "0x10 ? 'A'", "-find_pattern_h", "45 00 ff"})}) {
    const parsed p = parse(args);
    ASSERT_TRUE(p.ok);
    ASSERT_TRUE(p.options.pattern.valid());
    const auto& e = p.options.pattern.elements();
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].literal.bytes(), (std::vector<uint8_t>{0x10}));
    EXPECT_EQ(e[0].skip, 1);
    EXPECT_EQ(e[1].literal.bytes(), (std::vector<uint8_t>{0x41}));
    EXPECT_EQ(e[1].skip, 0);
    EXPECT_EQ(p.options.pattern.min_length(), 3u);
  }
}

TEST(varn_options_test, find_pattern_forms) {
  {
    const parsed p = parse(with_input({"-find_pattern", "0x45 ? ? 10"}));
    ASSERT_TRUE(p.options.pattern.valid());
    const auto& e = p.options.pattern.elements();
    ASSERT_EQ(e.size(), 2u);
    EXPECT_EQ(e[0].literal.bytes(), (std::vector<uint8_t>{0x45}));
    EXPECT_EQ(e[0].skip, 2);
    EXPECT_EQ(e[1].literal.bytes(), (std::vector<uint8_t>{0x0a}));
    EXPECT_EQ(e[1].skip, 0);
  }
  {
    const parsed p = parse(with_input({"-find_pattern_h", "45 00 ff"}));
    ASSERT_TRUE(p.options.pattern.valid());
    const auto& e = p.options.pattern.elements();
    ASSERT_EQ(e.size(), 1u);
    EXPECT_EQ(e[0].literal.bytes(), (std::vector<uint8_t>{0x45, 0x00, 0xff}));
  }
  for (const char* option : {"-find_pattern", "-find_pattern_h"}) {
    const parsed p = parse(with_input({option, "? ?"}));
    ASSERT_TRUE(p.ok) << option;
    EXPECT_FALSE(p.options.pattern.valid()) << option;
    EXPECT_TRUE(p.options.pattern.elements().empty()) << option;
  }
  {
    // a later -find_pattern of wildcards only leaves no pattern at all
    const parsed p = parse(with_input({"-find_pattern_h", "45", "-find_pattern", "?"}));
    ASSERT_TRUE(p.ok);
    EXPECT_FALSE(p.options.pattern.valid());
  }
}

TEST(varn_options_test, start_and_stop_times) {
  const struct {
    std::vector<std::string> options;
    bool ok;
    uint64_t start, stop;
    const char* what;
  } cases[] = {
      {{"-start_time", "01/02/03 04:05:06"}, true, k_2003_01_02_040506, k_all_ones, "valid start opens the end"},
      {{"-start_time", "1/1/21"}, true, k_2021_01_01, k_all_ones, "date only"},
      {{"-start_time", "1/1/21", "-stop_time", "1/2/21"}, true, k_2021_01_01, k_2021_01_01 + 864000000000ULL,
       "both"},
      {{"-stop_time", "1/2/21", "-start_time", "1/1/21"}, true, k_2021_01_01, k_2021_01_01 + 864000000000ULL,
       "both, stop first on the command line"},
      {{"-start_time", "1/1/21", "-stop_time", "13/45/21"}, true, k_2021_01_01, k_all_ones,
       "an invalid stop time is ignored"},
      {{"-stop_time", "junk"}, true, 0, 0, "an invalid stop time alone leaves 0"},
      {{"-stop_time", "1/1/21"}, true, 0, k_2021_01_01, "stop alone"},
      {{"-start_time", "13/45/21"}, false, 0, 0, "an invalid start date fails the parse"},
      {{"-start_time", "1/1/21 0405"}, false, 0, 0, "an invalid start time of day fails the parse"},
      {{"-start_time", "1/1/21 4:05 pm"}, true, k_2021_01_01 + (16 * 60 + 5) * 600000000ULL, k_all_ones,
       "time after the first blank"},
      {{"-start_time", "-stop_time", "1/1/21"}, false, 0, 0, "-start_time takes -stop_time as its value"},
  };
  for (const auto& c : cases) {
    arg_list args = with_input({});
    args.insert(args.end(), c.options.begin(), c.options.end());
    const parsed q = parse(args);
    EXPECT_EQ(q.ok, c.ok) << c.what;
    if (!c.ok) continue;
    EXPECT_EQ(q.options.start_time, c.start) << c.what;
    EXPECT_EQ(q.options.stop_time, c.stop) << c.what;
  }
}

TEST(varn_options_test, time_option_text_reader) {
  uint64_t t = 7;
  EXPECT_TRUE(varn::parse_time_option("01/02/03 04:05:06", t));
  EXPECT_EQ(t, k_2003_01_02_040506);
  t = 7;
  EXPECT_FALSE(varn::parse_time_option("01/02/03 0405", t));
  EXPECT_FALSE(varn::parse_time_option("", t));
  EXPECT_EQ(t, 7u);
}

TEST(varn_options_test, common_options) {
  const parsed p = parse({"varn", "-pipe", "-filter", "*.PCAP|*.cap", "-dateformat", "dd/mm/yyyy",
                          "-start_time", "01/02/03 04:05:06"});
  ASSERT_TRUE(p.ok);
  EXPECT_TRUE(p.options.pipe);
  ASSERT_EQ(p.options.filters.size(), 2u);
  EXPECT_EQ(p.options.filters[0].text, ".pcap");
  EXPECT_EQ(p.options.filters[1].text, ".cap");
  EXPECT_EQ(p.options.date_format, "dd/mm/yyyy");
  // -dateformat has no effect: the date still reads month first
  EXPECT_EQ(p.options.start_time, k_2003_01_02_040506);
  EXPECT_FALSE(p.options.enumerate);
  EXPECT_EQ(p.rest, (arg_list{"varn"}));

  const parsed e = parse({"varn", "-EnumDir", "/data/caps"});
  ASSERT_TRUE(e.ok);
  EXPECT_TRUE(e.options.enumerate);
  EXPECT_EQ(e.options.enum_dir, "/data/caps");
  EXPECT_FALSE(e.options.pipe);
}

TEST(varn_options_test, common_options_are_read_first) {
  // "-pipe" is taken by the common parser before "-ofile" looks for its value
  const parsed p = parse({"varn", "-ofile", "-pipe", "-ifile", "a.pcap"});
  ASSERT_TRUE(p.ok);
  EXPECT_TRUE(p.options.pipe);
  EXPECT_EQ(p.options.input_file, "a.pcap");
  EXPECT_EQ(p.options.output_file, "");  // "-ofile" was left standing last
  EXPECT_EQ(p.rest, (arg_list{"varn", "-ofile"}));
}

TEST(varn_options_test, other_arguments_are_left_alone) {
  const parsed p = parse({"varn", "-bogus", "value", "-ifile", "a.pcap", "stray"});
  ASSERT_TRUE(p.ok);
  EXPECT_EQ(p.rest, (arg_list{"varn", "-bogus", "value", "stray"}));
}

}  // namespace
