// Header and payload dumps in the four output formats, and the hex dump's size limit.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "capture/frame_context.hpp"
#include "report/frame_dump.hpp"
#include "uni/out_stream.hpp"

namespace {

using namespace std::string_literals;

std::string sp(size_t n) { return std::string(n, ' '); }

const uint8_t* as_bytes(const std::string& s) { return reinterpret_cast<const uint8_t*>(s.data()); }

// A 42-byte header region: bytes 0 to 41.
std::string header_bytes() {
  std::string h;
  for (int i = 0; i < 42; ++i) h.push_back(static_cast<char>(i));
  return h;
}

const std::string k_header_hex =
    "0000 0000:  00 01 02 03 04 05 06 07  08 09 0a 0b 0c 0d 0e 0f  ................\n"
    "0000 0010:  10 11 12 13 14 15 16 17  18 19 1a 1b 1c 1d 1e 1f  ................\n"
    "0000 0020:  20 21 22 23 24 25 26 27  28 29 " + sp(18) + " " + " !\"#$%&'()\n";

const std::string k_payload = "ABCDEFGHIJKLMNOPQRST";

// The payload's offsets continue at the header length, 42 = 0x2a.
const std::string k_payload_hex =
    "0000 002a:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n"
    "0000 003a:  51 52 53 54 " + sp(37) + " QRST\n";

struct dump {
  int format;
  bool hdr, payload;
};

std::string render(const dump& d, const std::string& header, const std::string& payload) {
  std::string text;
  {
    uni::out_stream out(&text);
    varn::frame_context ctx;
    ctx.out = &out;
    ctx.output_format = d.format;
    ctx.dump_hdr = d.hdr;
    ctx.dump_payload = d.payload;
    varn::write_frame_dumps(ctx, as_bytes(header), static_cast<uint32_t>(header.size()), as_bytes(payload),
                            static_cast<uint32_t>(payload.size()));
    out.flush();
  }
  return text;
}

std::string hex_dump(const uint8_t* data, uint32_t length, uint32_t start, uint64_t base) {
  std::string text;
  uni::out_stream out(&text);
  varn::write_hex_dump(data, length, out, start, base);
  out.flush();
  return text;
}

TEST(frame_dump_test, hex_labels_and_blank_lines) {
  const std::string h = header_bytes();
  EXPECT_EQ(render({1, true, false}, h, k_payload), "packet hdr\n" + k_header_hex + "\n");
  EXPECT_EQ(render({1, false, true}, h, k_payload), "payload\n" + k_payload_hex + "\n");
  EXPECT_EQ(render({1, true, true}, h, k_payload),
            "packet hdr\n" + k_header_hex + "\n" + "payload\n" + k_payload_hex + "\n");
  EXPECT_EQ(render({1, false, false}, h, k_payload), "");
}

TEST(frame_dump_test, hex_payload_offsets_follow_the_header_length) {
  // a header cut to 30 captured bytes: the payload starts at 0x1e
  const std::string h = header_bytes().substr(0, 30);
  const std::string out = render({1, false, true}, h, "xyz");
  EXPECT_EQ(out, "payload\n0000 001e:  78 79 7a " + sp(40) + " xyz\n\n");
}

TEST(frame_dump_test, hex_empty_payload_still_writes_its_label) {
  EXPECT_EQ(render({1, false, true}, header_bytes(), ""), "payload\n\n");
  EXPECT_EQ(render({1, true, false}, "", "abc"), "packet hdr\n\n");
}

TEST(frame_dump_test, binary_writes_raw_bytes) {
  const std::string h = "\x00\x0a\x0d\xff\x1a"s;
  const std::string p = "\r\n\x00 pay\x80"s;
  EXPECT_EQ(render({3, true, true}, h, p), h + p);
  EXPECT_EQ(render({3, true, false}, h, p), h);
  EXPECT_EQ(render({3, false, true}, h, p), p);
  EXPECT_EQ(render({3, false, false}, h, p), "");
  EXPECT_EQ(render({3, true, true}, "", ""), "");
}

TEST(frame_dump_test, ascii_shows_one_region) {
  const std::string h = "HDR\x01header";
  const std::string p = "pay\x00load \x7f\x80\xff~\n\t"s;
  EXPECT_EQ(render({2, true, true}, h, p), "pay.load ...~..\n\n");  // the payload wins
  EXPECT_EQ(render({2, false, true}, h, p), "pay.load ...~..\n\n");
  EXPECT_EQ(render({2, true, false}, h, p), "HDR.header\n\n");
  EXPECT_EQ(render({2, false, false}, h, p), "");
}

TEST(frame_dump_test, ascii_empty_region_writes_nothing) {
  // the payload is chosen even when empty; the header is not shown instead
  EXPECT_EQ(render({2, true, true}, "header", ""), "");
  EXPECT_EQ(render({2, false, true}, "header", ""), "");
  EXPECT_EQ(render({2, true, false}, "", "payload"), "");
}

TEST(frame_dump_test, ascii_long_region) {
  std::string p;
  for (int i = 0; i < 10000; ++i) p.push_back(static_cast<char>(i % 256));
  std::string expected;
  for (int i = 0; i < 10000; ++i) {
    const int b = i % 256;
    expected.push_back(b >= 32 && b <= 126 ? static_cast<char>(b) : '.');
  }
  EXPECT_EQ(render({2, false, true}, "", p), expected + "\n\n");
}

std::string utf16(const std::string& text) {
  std::string out;
  for (char c : text) {
    out.push_back(c);
    out.push_back('\0');
  }
  return out;
}

TEST(frame_dump_test, strings_list_ascii_then_unicode_then_one_line_end) {
  const std::string p = "hello world\x01\x01"s + utf16("ABCDEF") + "\x01zzzzz\x02" + utf16("  wide  ") + "\x03\x03" +
                        "  tail ";
  EXPECT_EQ(render({4, false, true}, "", p), "hello world\nzzzzz\ntail \nABCDEF\nwide  \n\n");
}

TEST(frame_dump_test, strings_region_precedence_and_empty_results) {
  const std::string h = "header text\x01";
  const std::string p = "payload\x01";
  EXPECT_EQ(render({4, true, true}, h, p), "payload\n\n");
  EXPECT_EQ(render({4, true, false}, h, p), "header text\n\n");
  EXPECT_EQ(render({4, false, true}, h, "ab\x01" "cd"), "\n");  // scanned, nothing found
  EXPECT_EQ(render({4, true, true}, h, ""), "");               // empty region
  EXPECT_EQ(render({4, false, false}, h, p), "");
}

TEST(frame_dump_test, other_formats_write_nothing) {
  for (int format : {0, 5, -1})
    EXPECT_EQ(render({format, true, true}, header_bytes(), k_payload), "") << format;
}

TEST(frame_dump_test, hex_dump_start_index_and_base) {
  const std::string b = k_payload;
  EXPECT_EQ(hex_dump(as_bytes(b), 20, 4, 0x100),
            "0000 0100:  45 46 47 48 49 4a 4b 4c  4d 4e 4f 50 51 52 53 54  EFGHIJKLMNOPQRST\n");
  EXPECT_EQ(hex_dump(as_bytes(b), 20, 0, 0x100000000ULL).substr(0, 14), "1 0000 0000:  ");
  EXPECT_EQ(hex_dump(nullptr, 20, 0, 0), "");
  EXPECT_EQ(hex_dump(as_bytes(b), 0, 0, 0), "");
}

TEST(frame_dump_test, hex_dump_size_limit) {
  const std::vector<uint8_t> zeros(0x1000001, 0);
  EXPECT_EQ(hex_dump(zeros.data(), 0x1000001, 0, 0), "size to big to output: size 0x1000001\n");
  EXPECT_EQ(hex_dump(zeros.data(), 0xffffffffu, 0, 0), "size to big to output: size 0xffffffff\n");

  // exactly 16 MiB is dumped: 1048576 full lines
  const std::string out = hex_dump(zeros.data(), 0x1000000, 0, 0);
  const std::string zero_line_tail = ":  00 00 00 00 00 00 00 00  00 00 00 00 00 00 00 00  ................\n";
  EXPECT_EQ(static_cast<size_t>(std::count(out.begin(), out.end(), '\n')), 1048576u);
  EXPECT_EQ(out.size(), 1048576u * 79);
  EXPECT_EQ(out.substr(0, 79), "0000 0000" + zero_line_tail);
  EXPECT_EQ(out.substr(out.size() - 79), "00ff fff0" + zero_line_tail);
}

}  // namespace
