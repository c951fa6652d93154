// The hex view line formatter and the byte view.
#include <gtest/gtest.h>

#include "zq/zq_hex_view.hpp"

namespace {

std::string line_of(const std::string& bytes, uint64_t offset) {
  char buf[zq::hex_line_max];
  const size_t n = zq::format_hex_line(buf, reinterpret_cast<const uint8_t*>(bytes.data()),
                                       static_cast<uint32_t>(bytes.size()), offset, true);
  return std::string(buf, n);
}

TEST(hex_view_test, full_line_matches_documented_example) {
  const std::string b("\x45\x00\x00\x54\x12\x34\x00\x00\x80\x01\x00\x00\xc0\xa8\x01\x02", 16);
  EXPECT_EQ(line_of(b, 0x10), "0000 0010:  45 00 00 54 12 34 00 00  80 01 00 00 c0 a8 01 02  E..T.4..........");
}

}  // namespace
