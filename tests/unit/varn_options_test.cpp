// The option set: what no report shows of it.
#include <gtest/gtest.h>

#include "options/varn_options.hpp"

TEST(varn_options_test, unreadable_stop_time_after_a_start_time_leaves_the_end_open) {
  varn::varn_options o;
  varn::arg_list args{"varn", "-ifile", "x", "-start_time", "1/1/21", "-stop_time", "junk"};
  ASSERT_TRUE(o.parse_common_options(args) && o.parse_tool_options(args));
  EXPECT_EQ(o.stop_time, ~uint64_t{0});  // not 0, though both bound nothing
}
