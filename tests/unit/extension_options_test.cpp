// The extension options: looked up after every other option, with the same rules.
#include <gtest/gtest.h>

#include "options/extension_options.hpp"

TEST(extension_options_test, parse_takes_what_the_other_options_left) {
  struct parse_case {
    varn::arg_list args;
    bool accepted;
    bool any_format, json, summary;
    uint32_t idle_timeout;
    std::string error;  // a part of the refusal's reason
  };
  const std::vector<parse_case> cases = {
      {{"varn", "-ifile", "x"}, true, false, false, false, 60, ""},
      {{"varn", "-ifile", "x", "-ANY_FORMAT", "-Json", "-summary"}, true, true, true, true, 60, ""},
      {{"varn", "-ifile", "x", "-ofile", "-json"}, true, false, false, false, 60, ""},  // a file named -json
      {{"varn", "-ifile", "x", "-idle_timeout", "0x1e"}, true, false, false, false, 30, ""},
      {{"varn", "-ifile", "x", "-idle_timeout"}, true, false, false, false, 60, ""},  // last: not given
      {{"varn", "-ifile", "x", "-idle_timeout", "0"}, false, false, false, false, 60, "not \"0\""},
      {{"varn", "-ifile", "x", "-idle_timeout", "soon"}, false, false, false, false, 60, "not \"soon\""},
      {{"varn", "-ifile", "x", "-json", "-binary"}, false, false, true, false, 60, "-binary"},
      {{"varn", "-ifile", "x", "-json", "-binary", "-ascii"}, true, false, true, false, 60, ""},  // ascii wins
  };
  for (const parse_case& c : cases) {
    const std::string line = testing::PrintToString(c.args);
    varn::varn_options opts;
    varn::arg_list args = c.args;
    ASSERT_TRUE(opts.parse_common_options(args) && opts.parse_tool_options(args)) << line;
    varn::extension_options ext;
    std::string error;
    EXPECT_EQ(varn::parse_extension_options(args, opts, ext, error), c.accepted) << line;
    EXPECT_EQ(ext.any_format, c.any_format) << line;
    EXPECT_EQ(ext.json, c.json) << line;
    EXPECT_EQ(ext.summary, c.summary) << line;
    EXPECT_EQ(ext.idle_timeout, c.idle_timeout) << line;
    EXPECT_NE(error.find(c.error), std::string::npos) << line << ": " << error;
    EXPECT_EQ(error.empty(), c.accepted) << line;
    EXPECT_EQ(varn::json_report_requested(c.args), c.json) << line;
  }
}
