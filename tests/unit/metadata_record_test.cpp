// The metadata record: column header layouts, record lines for ICMP and ICMPv6 frames, the
// comments column, empty dates and payloads, and when nothing is written.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "capture/frame_context.hpp"
#include "report/metadata_record.hpp"
#include "support/pcap_builder.hpp"
#include "uni/out_stream.hpp"

namespace {

using varn_test::bytes;

// The padded comma header, column by column (each column as wide as the record's field).
const std::string k_padded_header =
    "  frame"                              // 7
    " , date [utc]"                        // 10
    " ,   time [utc]"                      // 12
    " , proto "                            // 6
    " ,         source ip        "         // 25
    " ,      destination ip     "          // 24
    " , ttl"                               // 3
    " , Tsize"                             // 5
    " , Psize"                             // 5
    " ,          payload md5 hash       "  // 32
    " ,         comments\n\n";

// 2021-01-01 00:00:00 UTC in capture seconds.
constexpr uint32_t k_2021 = 1609459200;

// A capture record: the 16-byte record header, then the frame.
struct record {
  bytes data;
  uint32_t header_length;  // H: Ethernet, IP and ICMP headers

  const uint8_t* start() const { return reinterpret_cast<const uint8_t*>(data.data()); }
  const uint8_t* frame() const { return start() + 16; }
  const uint8_t* payload() const { return frame() + header_length; }
  uint32_t payload_length() const {
    const uint32_t incl = static_cast<uint32_t>(data.size()) - 16;
    return incl > header_length ? incl - header_length : 0;
  }
};

record make_record(const bytes& frame, uint32_t header_length, uint32_t ts_sec, uint32_t ts_usec,
                   uint32_t orig_len) {
  record r;
  varn_test::put_le32(r.data, ts_sec);
  varn_test::put_le32(r.data, ts_usec);
  varn_test::put_le32(r.data, static_cast<uint32_t>(frame.size()));
  varn_test::put_le32(r.data, orig_len);
  r.data += frame;
  r.header_length = header_length;
  return r;
}

record v4_record(const varn_test::icmp4_spec& s, uint32_t ts_sec = k_2021, uint32_t ts_usec = 123456) {
  const bytes f = varn_test::icmp4_frame(s);
  return make_record(f, 22 + 4u * s.ihl, ts_sec, ts_usec, static_cast<uint32_t>(f.size()));
}

record v6_record(const varn_test::icmp6_spec& s, uint32_t ts_sec = k_2021, uint32_t ts_usec = 123456) {
  const bytes f = varn_test::icmp6_frame(s);
  return make_record(f, 62, ts_sec, ts_usec, static_cast<uint32_t>(f.size()));
}

bytes range_bytes(size_t n) {
  bytes b;
  for (size_t i = 0; i < n; ++i) b.push_back(static_cast<char>(i));
  return b;
}

// 1024 bytes, every value four times (7 is odd, so 7i mod 256 walks all values per 256 bytes).
bytes every_value_four_times() {
  bytes b;
  for (size_t i = 0; i < 1024; ++i) b.push_back(static_cast<char>(i * 7 % 256));
  return b;
}

struct sink {
  std::string text;
  uni::out_stream out{&text};
  varn::frame_context ctx;
  sink() {
    ctx.out = &out;
    ctx.dump_meta = true;
  }
  // Writes one record and returns what it wrote (the header included while pending).
  std::string write(const record& r, uint64_t frame_number = 7, bool* wrote = nullptr) {
    const bool result = varn::write_metadata_record(frame_number, r.start(), r.frame(), r.payload(),
                                                    r.payload_length(), &ctx);
    if (wrote != nullptr) *wrote = result;
    out.flush();
    std::string s = std::move(text);
    text.clear();
    return s;
  }
  std::string line(const record& r, uint64_t frame_number = 7) {
    ctx.meta_header_pending = false;
    return write(r, frame_number);
  }
};

TEST(metadata_record_test, column_headers_per_layout) {
  EXPECT_EQ(varn::metadata_column_header(true, true), k_padded_header);
  EXPECT_EQ(varn::metadata_column_header(true, false),
            "frame, date [utc], time [utc], proto, source ip, destination ip, ttl, Tsize, Psize, "
            "payload md5 hash, comments\n\n");
  EXPECT_EQ(varn::metadata_column_header(false, false),
            "frame | date [utc] | time [utc] | proto | source ip | destination ip | ttl | Tsize | Psize | "
            "payload md5 hash | comments\n\n");
  std::string bar_padded = k_padded_header;
  for (size_t at = bar_padded.find(" , "); at != std::string::npos; at = bar_padded.find(" , ", at + 3))
    bar_padded[at + 1] = '|';
  EXPECT_EQ(varn::metadata_column_header(false, true), bar_padded);
}

TEST(metadata_record_test, ipv4_echo_request_line) {
  varn_test::icmp4_spec s;  // 192.168.1.2 -> 192.168.1.1, type 8, id 0x1a2b, ttl 64
  s.payload = range_bytes(56);
  sink k;
  EXPECT_EQ(k.line(v4_record(s)),
            "      7 , 2021-01-01 , 00:00:00.123 , icmp   , 192.168.1.2               , 192.168.1.1              "
            ",  64 ,    98 ,    56 , 51fdd1acda72405dfdfa03fcb85896d7 , id: 0x1a2b, echo request \n");
}

TEST(metadata_record_test, header_columns_line_up_with_the_record) {
  varn_test::icmp4_spec s;
  s.src = {255, 255, 255, 255};
  s.dst = {100, 100, 100, 100};
  s.payload = range_bytes(56);
  sink k;
  const std::string out = k.write(v4_record(s, k_2021, 0), 1234567);
  ASSERT_EQ(out.substr(0, k_padded_header.size()), k_padded_header);
  const std::string header_line = k_padded_header.substr(0, k_padded_header.find('\n'));
  const std::string record_line = out.substr(k_padded_header.size());
  std::vector<size_t> header_seps, record_seps;
  for (size_t at = header_line.find(" , "); at != std::string::npos; at = header_line.find(" , ", at + 1))
    header_seps.push_back(at);
  for (size_t at = record_line.find(" , "); at != std::string::npos; at = record_line.find(" , ", at + 1))
    record_seps.push_back(at);
  ASSERT_EQ(header_seps.size(), 10u);
  ASSERT_GE(record_seps.size(), 10u);
  record_seps.resize(10);
  EXPECT_EQ(record_seps, header_seps);
  EXPECT_EQ(header_seps.back() + 3, 159u);  // the comments column
}

struct comment_case {
  uint8_t type, code;
  uint16_t id;
  const char* comments;
};

TEST(metadata_record_test, ipv4_comments_with_and_without_identifier) {
  const comment_case cases[] = {
      {0, 0, 0x1a2b, "id: 0x1a2b, echo reply"},
      {0, 3, 0x1a2b, "id: 0x1a2b, echo reply [port unreachable]"},
      {8, 0, 0x00ab, "id: 0x00ab, echo request"},
      {8, 0, 0xABCD, "id: 0xabcd, echo request"},
      {13, 0, 1, "id: 0x0001, icmp timestamp request"},
      {14, 0, 2, "id: 0x0002, timestamp reply"},
      {17, 0, 3, "id: 0x0003, addr mask request"},
      {18, 0, 4, "id: 0x0004, addr mask reply"},
      {3, 3, 0x1a2b, "dst unreachable"},
      {11, 0, 0x1a2b, "time exceeded"},
      {15, 0, 0x1a2b, "information request"},
      {16, 0, 0x1a2b, "information reply"},
      {5, 1, 0x1a2b, "redirect"},
      {42, 0, 0x1a2b, "<unk type>"},
  };
  for (const auto& c : cases) {
    varn_test::icmp4_spec s;
    s.type = c.type;
    s.code = c.code;
    s.id = c.id;
    s.payload = bytes(1, '\0');
    sink k;
    const std::string line = k.line(v4_record(s));
    EXPECT_EQ(line.substr(159), std::string(c.comments) + " \n") << int{c.type} << '/' << int{c.code};
  }
}

TEST(metadata_record_test, ipv6_lines_and_comments) {
  varn_test::icmp6_spec s;
  s.src = varn_test::v6("2001:db8::1");
  s.dst = varn_test::v6("fe80::1:0:0:2");
  s.hop_limit = 255;
  s.payload = "\xde\xad\xbe\xef";
  sink k;
  EXPECT_EQ(k.line(v6_record(s), 12),
            "     12 , 2021-01-01 , 00:00:00.123 , icmpv6 , 2001:db8::1               , fe80::1:0:0:2            "
            ", 255 ,    66 ,     4 , 2f249230a8e7c2bf6005ccd2679259ec , id: 0x1a2b, echo request \n");

  const comment_case cases[] = {
      {128, 0, 0x0102, "id: 0x0102, echo request"},
      {129, 0, 0xfffe, "id: 0xfffe, echo reply"},
      {1, 4, 0x1a2b, "dst unreachable [port unreachable]"},
      {1, 9, 0x1a2b, "dst unreachable"},
      {2, 0, 0x1a2b, "packet too big"},
      {135, 0, 0x1a2b, "neighbor solicitation"},
      {0, 0, 0x1a2b, "<unk type>"},
  };
  for (const auto& c : cases) {
    s.type = c.type;
    s.code = c.code;
    s.id = c.id;
    const std::string line = k.line(v6_record(s));
    EXPECT_EQ(line.substr(159), std::string(c.comments) + " \n") << int{c.type} << '/' << int{c.code};
  }
}

TEST(metadata_record_test, long_ipv6_addresses_are_not_cut) {
  varn_test::icmp6_spec s;
  s.src = varn_test::v6("2001:db8:1234:5678:9abc:def0:1234:5678");
  s.dst = varn_test::v6("::1");
  s.payload = "x";
  sink k;
  const std::string line = k.line(v6_record(s));
  EXPECT_NE(line.find(" , 2001:db8:1234:5678:9abc:def0:1234:5678 , ::1                      , "),
            std::string::npos)
      << line;
}

TEST(metadata_record_test, capture_time_zero_gives_empty_date_and_time) {
  varn_test::icmp4_spec s;
  s.payload = range_bytes(56);
  sink k;
  EXPECT_EQ(k.line(v4_record(s, 0, 500), 1),
            "      1 ,  ,  , icmp   , 192.168.1.2               , 192.168.1.1              "
            ",  64 ,    98 ,    56 , 51fdd1acda72405dfdfa03fcb85896d7 , id: 0x1a2b, echo request \n");
  // seconds from 2^31 on are invalid as well
  const std::string late = k.line(v4_record(s, 0x80000000u, 0), 1);
  EXPECT_EQ(late.substr(0, 15), "      1 ,  ,  ,");
  // the last valid second
  const std::string last = k.line(v4_record(s, 0x7fffffffu, 999999), 1);
  EXPECT_EQ(last.substr(0, 38), "      1 , 2038-01-19 , 03:14:07.999 , ");
}

TEST(metadata_record_test, empty_payload_leaves_the_digest_column_empty) {
  varn_test::icmp4_spec s;  // 8 bytes of ICMP header, no payload
  sink k;
  EXPECT_EQ(k.line(v4_record(s)),
            "      7 , 2021-01-01 , 00:00:00.123 , icmp   , 192.168.1.2               , 192.168.1.1              "
            ",  64 ,    42 ,     0 ,  , id: 0x1a2b, echo request \n");
}

TEST(metadata_record_test, wire_size_comes_from_orig_len) {
  varn_test::icmp4_spec s;
  s.payload = range_bytes(56);
  const bytes f = varn_test::icmp4_frame(s);
  sink k;
  const std::string line = k.line(make_record(f, 42, k_2021, 0, 1514));
  EXPECT_NE(line.find(",  64 ,  1514 ,    56 , "), std::string::npos) << line;
  const std::string wide = k.line(make_record(f, 42, k_2021, 0, 123456));
  EXPECT_NE(wide.find(",  64 , 123456 ,    56 , "), std::string::npos) << wide;
}

TEST(metadata_record_test, random_looking_payload_ends_the_line_with_the_warning) {
  varn_test::icmp4_spec s;
  s.payload = every_value_four_times();
  sink k;
  EXPECT_EQ(k.line(v4_record(s)),
            "      7 , 2021-01-01 , 00:00:00.123 , icmp   , 192.168.1.2               , 192.168.1.1              "
            ",  64 ,  1066 ,  1024 , 6d253fc98a6e6aef5f34e4153a8f567d , id: 0x1a2b, echo request, payload has "
            "entropy high\n");

  // without comments the warning stands alone: an IPv4 frame whose protocol is not ICMP
  s.protocol = 17;
  const std::string line = k.line(v4_record(s));
  EXPECT_EQ(line,
            "      7 , 2021-01-01 , 00:00:00.123 ,  , 192.168.1.2               , 192.168.1.1              "
            ",  64 ,  1066 ,  1024 , 6d253fc98a6e6aef5f34e4153a8f567d , payload has entropy high\n");
}

TEST(metadata_record_test, short_payload_never_warns) {
  varn_test::icmp4_spec s;
  s.payload = every_value_four_times().substr(0, 255);
  sink k;
  const std::string line = k.line(v4_record(s));
  const std::string tail = ",   255 , 5956f4ae7585ae2252910bee86fa3e10 , id: 0x1a2b, echo request \n";
  ASSERT_GE(line.size(), tail.size());
  EXPECT_EQ(line.substr(line.size() - tail.size()), tail);
}

TEST(metadata_record_test, non_ip_frame_leaves_the_text_columns_empty) {
  const bytes f = varn_test::ethernet_frame(0x0806, bytes(28, '\x01'));
  sink k;
  EXPECT_EQ(k.line(make_record(f, 42, k_2021, 0, 42), 3),
            "      3 , 2021-01-01 , 00:00:00.000 ,  , " + std::string(25, ' ') + " , " + std::string(24, ' ') +
                " ,  ,    42 ,     0 ,  ,  \n");
}

TEST(metadata_record_test, ipv6_without_icmpv6_keeps_addresses_but_no_proto_or_comments) {
  varn_test::icmp6_spec s;
  s.src = varn_test::v6("::1");
  s.dst = varn_test::v6("1::");
  s.next_header = 0;  // a hop-by-hop header first
  s.hop_limit = 1;
  s.payload = "abcd";
  sink k;
  EXPECT_EQ(k.line(v6_record(s), 5),
            "      5 , 2021-01-01 , 00:00:00.123 ,  , ::1                       , 1::                      "
            ",   1 ,    66 ,     4 , e2fc714c4727ee9395f324cd2e7f331f ,  \n");
}

TEST(metadata_record_test, unpadded_layouts) {
  varn_test::icmp4_spec s;
  s.ttl = 7;
  s.payload = range_bytes(56);
  sink k;
  k.ctx.meta_padded = false;
  EXPECT_EQ(k.write(v4_record(s)),
            "frame, date [utc], time [utc], proto, source ip, destination ip, ttl, Tsize, Psize, "
            "payload md5 hash, comments\n\n"
            "7, 2021-01-01, 00:00:00.123, icmp  , 192.168.1.2, 192.168.1.1,   7, 98, 56, "
            "51fdd1acda72405dfdfa03fcb85896d7, id: 0x1a2b, echo request \n");
  k.ctx.meta_comma_separated = false;
  EXPECT_EQ(k.line(v4_record(s), 8),
            "8 | 2021-01-01 | 00:00:00.123 | icmp   | 192.168.1.2 | 192.168.1.1 |   7 | 98 | 56 | "
            "51fdd1acda72405dfdfa03fcb85896d7 | id: 0x1a2b, echo request \n");
}

TEST(metadata_record_test, header_is_written_once_then_again_when_re_armed) {
  varn_test::icmp4_spec s;
  s.payload = range_bytes(56);
  const record r = v4_record(s);
  sink k;
  ASSERT_TRUE(k.ctx.meta_header_pending);
  const std::string first = k.write(r, 1);
  EXPECT_EQ(first.substr(0, k_padded_header.size()), k_padded_header);
  EXPECT_FALSE(k.ctx.meta_header_pending);
  const std::string second = k.write(r, 2);
  EXPECT_EQ(second.substr(0, 10), "      2 , ");
  EXPECT_EQ(second.find("frame"), std::string::npos);
  EXPECT_EQ(first.substr(k_padded_header.size() + 7), second.substr(7));  // same line apart from the number

  k.ctx.meta_header_pending = true;
  const std::string third = k.write(r, 3);
  EXPECT_EQ(third.substr(0, k_padded_header.size()), k_padded_header);
}

TEST(metadata_record_test, nothing_written_for_binary_format_or_without_dump_meta) {
  varn_test::icmp4_spec s;
  s.payload = range_bytes(56);
  const record r = v4_record(s);
  {
    sink k;
    k.ctx.output_format = 3;
    bool wrote = true;
    EXPECT_EQ(k.write(r, 1, &wrote), "");
    EXPECT_FALSE(wrote);
    EXPECT_TRUE(k.ctx.meta_header_pending);  // still pending for a later record
  }
  {
    sink k;
    k.ctx.dump_meta = false;
    bool wrote = true;
    EXPECT_EQ(k.write(r, 1, &wrote), "");
    EXPECT_FALSE(wrote);
    EXPECT_TRUE(k.ctx.meta_header_pending);
  }
  for (int format : {1, 2, 4}) {
    sink k;
    k.ctx.output_format = format;
    bool wrote = false;
    EXPECT_FALSE(k.write(r, 1, &wrote).empty()) << format;
    EXPECT_TRUE(wrote) << format;
  }
  EXPECT_FALSE(varn::write_metadata_record(1, r.start(), r.frame(), r.payload(), r.payload_length(), nullptr));
}

}  // namespace
