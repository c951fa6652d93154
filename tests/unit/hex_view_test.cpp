// The hex view line formatter and the byte view.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "zq/zq_hex_view.hpp"

namespace {

std::string line_of(const std::string& bytes, uint64_t offset) {
  char buf[zq::hex_line_max];
  const size_t n = zq::format_hex_line(buf, reinterpret_cast<const uint8_t*>(bytes.data()),
                                       static_cast<uint32_t>(bytes.size()), offset, true);
  return std::string(buf, n);
}

std::string sp(size_t n) { return std::string(n, ' '); }

// Bytes 'A', 'B', ... (0x41 upward).
std::string letters(size_t n) {
  std::string s;
  for (size_t i = 0; i < n; ++i) s.push_back(static_cast<char>('A' + i));
  return s;
}

std::string lines_of(const std::string& bytes, uint32_t start, uint32_t length, uint64_t base,
                     bool show_offsets = true) {
  const zq::binary_data view(reinterpret_cast<const uint8_t*>(bytes.data()),
                             static_cast<uint32_t>(bytes.size()), false);
  std::string out = "stale";
  zq::format_hex_lines(out, view, start, length, base, show_offsets, nullptr, nullptr);
  return out;
}

TEST(hex_view_test, full_line_matches_documented_example) {
  const std::string b("\x45\x00\x00\x54\x12\x34\x00\x00\x80\x01\x00\x00\xc0\xa8\x01\x02", 16);
  EXPECT_EQ(line_of(b, 0x10), "0000 0010:  45 00 00 54 12 34 00 00  80 01 00 00 c0 a8 01 02  E..T.4..........");
}

TEST(hex_view_test, line_layout_by_count) {
  const std::string o = "0000 0000:  ";
  const std::string eight = "41 42 43 44 45 46 47 48 ";
  const struct {
    size_t count;
    std::string expected;
  } cases[] = {
      // hex column plus padding is always 49 characters, then one space and the text
      {1, o + "41 " + sp(45 + 1) + " " + "A"},
      {7, o + "41 42 43 44 45 46 47 " + sp(27 + 1) + " " + "ABCDEFG"},
      {8, o + eight + sp(25) + " " + "ABCDEFGH"},
      {9, o + eight + " 49 " + sp(21) + " " + "ABCDEFGHI"},
      {15, o + eight + " 49 4a 4b 4c 4d 4e 4f " + sp(3) + " " + "ABCDEFGHIJKLMNO"},
      {16, o + eight + " 49 4a 4b 4c 4d 4e 4f 50 " + " " + "ABCDEFGHIJKLMNOP"},
      {17, o + eight + " 49 4a 4b 4c 4d 4e 4f 50 " + " " + "ABCDEFGHIJKLMNOP" + "\n" +
               "0000 0010:  51 " + sp(45 + 1) + " " + "Q"},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(lines_of(letters(c.count), 0, static_cast<uint32_t>(c.count), 0), c.expected + "\n")
        << c.count << " bytes";
  }
}

TEST(hex_view_test, every_line_is_as_wide_as_a_full_one) {
  for (size_t count = 1; count <= 16; ++count) EXPECT_EQ(line_of(letters(count), 0).size(), 12 + 49 + 1 + count);
}

TEST(hex_view_test, text_column_shows_only_printable_bytes) {
  const std::string b("\x1f\x20\x21\x7e\x7f\x80\xff\x00\x30\x41\x61\x0a\x0d\x09\x5c\x22", 16);
  EXPECT_EQ(line_of(b, 0),
            "0000 0000:  1f 20 21 7e 7f 80 ff 00  30 41 61 0a 0d 09 5c 22  . !~....0Aa...\\\"");
}

TEST(hex_view_test, offset_groups) {
  const struct {
    uint64_t offset;
    const char* prefix;
  } cases[] = {
      {0, "0000 0000:  "},
      {0x2a, "0000 002a:  "},
      {0xffff, "0000 ffff:  "},
      {0x10000, "0001 0000:  "},
      {0xfedcba98, "fedc ba98:  "},
      {0x100000000ULL, "1 0000 0000:  "},  // 4 GiB
      {0xf00000010ULL, "f 0000 0010:  "},
      {0x1000000000ULL, "10 0000 0000:  "},
      {0xff12345678ULL, "ff 1234 5678:  "},
      {0x10000000000ULL, "0100 0000 0000:  "},
      {0xabcd00000001ULL, "abcd 0000 0001:  "},
      {0x0001000000000000ULL, "0001 0000 0000 0000:  "},  // g3 set, g2 zero still printed
      {0x0001000500000000ULL, "0001 0005 0000 0000:  "},
      {0xfffffffffffffff0ULL, "ffff ffff ffff fff0:  "},
  };
  for (const auto& c : cases) {
    const std::string line = line_of("A", c.offset);
    EXPECT_EQ(line.substr(0, std::string(c.prefix).size()), c.prefix) << std::hex << c.offset;
    EXPECT_EQ(line.substr(std::string(c.prefix).size()), "41 " + sp(46) + " A") << std::hex << c.offset;
  }
}

TEST(hex_view_test, without_offsets_the_line_starts_with_the_hex_column) {
  EXPECT_EQ(lines_of("AB", 0, 2, 0x1234, false), "41 42 " + sp(43) + " AB\n");
}

TEST(hex_view_test, lines_continue_the_display_base) {
  const std::string b = letters(20);
  EXPECT_EQ(lines_of(b, 0, 20, 42),
            "0000 002a:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n"
            "0000 003a:  51 52 53 54 " + sp(37) + " QRST\n");
  // display offsets count past 0xffff into the next group
  EXPECT_EQ(lines_of(b, 0, 20, 0xfff8).substr(0, 12), "0000 fff8:  ");
  EXPECT_EQ(lines_of(b, 0, 20, 0xfff8).substr(79, 12), "0001 0008:  ");
}

struct callback_log {
  std::vector<std::pair<uint32_t, uint32_t>> calls;
  static void record(void* context, uint32_t first_index, uint32_t length) {
    static_cast<callback_log*>(context)->calls.emplace_back(first_index, length);
  }
};

TEST(hex_view_test, start_index_and_callback) {
  std::string b;
  for (int i = 0; i < 40; ++i) b.push_back(static_cast<char>(0x30 + i));
  const zq::binary_data view(reinterpret_cast<const uint8_t*>(b.data()), 40, false);
  callback_log log;
  std::string out;
  zq::format_hex_lines(out, view, 3, 40, 0x100, true, &callback_log::record, &log);
  // from index 3: 16 bytes (3..18), 16 bytes (19..34), 5 bytes (35..39); offsets from the base
  EXPECT_EQ(out,
            "0000 0100:  33 34 35 36 37 38 39 3a  3b 3c 3d 3e 3f 40 41 42  3456789:;<=>?@AB\n"
            "0000 0110:  43 44 45 46 47 48 49 4a  4b 4c 4d 4e 4f 50 51 52  CDEFGHIJKLMNOPQR\n"
            "0000 0120:  53 54 55 56 57 " + sp(34) + " STUVW\n");
  const std::vector<std::pair<uint32_t, uint32_t>> expected{{3, 40}, {19, 40}, {35, 40}};
  EXPECT_EQ(log.calls, expected);
}

TEST(hex_view_test, length_below_the_view_ends_the_lines_early) {
  const std::string b = letters(26);
  callback_log log;
  const zq::binary_data view(reinterpret_cast<const uint8_t*>(b.data()), 26, false);
  std::string out;
  zq::format_hex_lines(out, view, 0, 18, 0, true, &callback_log::record, &log);
  EXPECT_EQ(out,
            "0000 0000:  41 42 43 44 45 46 47 48  49 4a 4b 4c 4d 4e 4f 50  ABCDEFGHIJKLMNOP\n"
            "0000 0010:  51 52 " + sp(43) + " QR\n");
  const std::vector<std::pair<uint32_t, uint32_t>> expected{{0, 18}, {16, 18}};
  EXPECT_EQ(log.calls, expected);
}

TEST(hex_view_test, start_at_or_past_length_renders_nothing) {
  EXPECT_EQ(lines_of(letters(16), 16, 16, 0), "");
  EXPECT_EQ(lines_of(letters(16), 20, 16, 0), "");
}

TEST(hex_view_test, empty_view_renders_nothing_and_calls_nothing) {
  const uint8_t data[4] = {1, 2, 3, 4};
  const zq::binary_data from_null(nullptr, 4, false);
  const zq::binary_data from_zero(data, 0, false);
  for (const zq::binary_data* view : {&from_null, &from_zero}) {
    EXPECT_EQ(view->size(), 0u);
    EXPECT_EQ(view->bytes(), nullptr);
    callback_log log;
    std::string out = "stale";
    zq::format_hex_lines(out, *view, 0, 4, 0, true, &callback_log::record, &log);
    EXPECT_EQ(out, "");
    EXPECT_TRUE(log.calls.empty());
  }
}

TEST(hex_view_test, borrowing_and_copying_views) {
  uint8_t data[3] = {10, 20, 30};
  const zq::binary_data borrowed(data, 3, false);
  const zq::binary_data copied(data, 3, true);
  EXPECT_EQ(borrowed.size(), 3u);
  EXPECT_EQ(copied.size(), 3u);
  EXPECT_EQ(borrowed.bytes(), data);
  EXPECT_NE(copied.bytes(), data);
  data[1] = 99;
  EXPECT_EQ(borrowed(1), 99);
  EXPECT_EQ(copied(1), 20);
  EXPECT_EQ(copied(0), 10);
  EXPECT_EQ(copied(2), 30);

  zq::binary_data writable(data, 3, true);
  writable(2) = 7;
  EXPECT_EQ(writable(2), 7);
  EXPECT_EQ(data[2], 30);
}

TEST(hex_view_death_test, index_past_the_view_is_a_fatal_assertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const uint8_t data[4] = {1, 2, 3, 4};
  const zq::binary_data view(data, 4, false);
  EXPECT_DEATH((void)view(4), "index < m_num_data");
  zq::binary_data writable(data, 4, true);
  EXPECT_DEATH((void)writable(100), "index < m_num_data");
  const zq::binary_data empty(nullptr, 0, false);
  EXPECT_DEATH((void)empty(0), "index < m_num_data");
}

}  // namespace
