// The hex view: the offset groups beyond 64 KiB and 4 GiB, the dump size limit and the checked
// byte access. The line layout is checked end to end.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <filesystem>

#include "report/frame_dump.hpp"
#include "support/run_varn.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_hex_view.hpp"

namespace {

TEST(hex_view_test, offset_groups) {
  const std::pair<uint64_t, const char*> cases[] = {
      {0x2a, "0000 002a:  "}, {0xfff8, "0000 fff8:  "}, {0x10008, "0001 0008:  "}, {0x100000000, "1 0000 0000:  "},
      {0xf00000010, "f 0000 0010:  "}, {0xff12345678, "ff 1234 5678:  "}, {0x10000000000, "0100 0000 0000:  "},
      {0x1000500000000, "0001 0005 0000 0000:  "}, {0x1000000000000, "0001 0000 0000 0000:  "}};
  for (const auto& [offset, prefix] : cases) {
    const zq::binary_data view(reinterpret_cast<const uint8_t*>("A"), 1, false);
    std::string out;
    zq::format_hex_lines(out, view, 0, 1, offset, true, nullptr, nullptr);
    EXPECT_EQ(out, prefix + ("41 " + std::string(46, ' ') + " A\n")) << std::hex << offset;
  }
}

TEST(hex_view_test, dumps_up_to_16_mib) {
  const std::vector<uint8_t> zeros(0x1000001, 0);
  const varn_test::temp_dir dir;
  for (uint32_t length : {0x1000001u, 0x1000000u}) {
    {
      uni::out_stream out(::open(dir.file("dump").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), true);
      varn::write_hex_dump(zeros.data(), length, out, 0, 0);
    }
    const std::string text = length > 0x1000000 ? varn_test::read_file(dir.file("dump")) : "";
    EXPECT_EQ(length > 0x1000000 ? text : std::to_string(std::filesystem::file_size(dir.file("dump"))),
              length > 0x1000000 ? "size to big to output: size 0x1000001\n" : std::to_string(1048576 * 79));
  }
}

TEST(hex_view_death_test, index_past_the_view_is_a_fatal_assertion) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const uint8_t data[4] = {1, 2, 3, 4};
  const zq::binary_data view(data, 4, false);
  EXPECT_EQ(view(3), 4);
  EXPECT_DEATH((void)view(4), "index < m_num_data");
}

}  // namespace
