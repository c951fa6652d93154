// Option lookup over the argument list: case-insensitive names, first match, consumption.
#include <gtest/gtest.h>

#include <string>

#include "options/arg_list.hpp"

namespace {

using varn::arg_list;

TEST(arg_list_test, find_ignores_case_but_not_length) {
  const arg_list args{"varn", "-ASCII", "-asci", "-asciix", "-Ascii"};
  EXPECT_EQ(varn::find_option(args, "-ascii"), 1u);  // first match
  EXPECT_EQ(varn::find_option(args, "-ASCII"), 1u);
  EXPECT_EQ(varn::find_option(args, "-asci"), 2u);
  EXPECT_EQ(varn::find_option(args, "-binary"), std::string::npos);
  EXPECT_EQ(varn::find_option(arg_list{}, "-ascii"), std::string::npos);
}

TEST(arg_list_test, program_name_is_searched_too) {
  const arg_list args{"-dump_meta", "-ifile", "x.pcap"};
  EXPECT_EQ(varn::find_option(args, "-dump_meta"), 0u);
}

TEST(arg_list_test, flag_is_consumed_once) {
  arg_list args{"varn", "-Dump_Hdr", "-ifile", "a", "-dump_hdr"};
  EXPECT_TRUE(varn::take_flag(args, "-dump_hdr"));
  EXPECT_EQ(args, (arg_list{"varn", "-ifile", "a", "-dump_hdr"}));
  EXPECT_TRUE(varn::take_flag(args, "-dump_hdr"));
  EXPECT_EQ(args, (arg_list{"varn", "-ifile", "a"}));
  EXPECT_FALSE(varn::take_flag(args, "-dump_hdr"));
  EXPECT_EQ(args, (arg_list{"varn", "-ifile", "a"}));
}

struct value_case {
  arg_list args;
  const char* name;
  bool found;
  std::string value;
  arg_list rest;
  const char* what;
};

TEST(arg_list_test, value_options) {
  const value_case cases[] = {
      {{"varn", "-ifile", "a.pcap", "-ascii"}, "-ifile", true, "a.pcap", {"varn", "-ascii"}, "plain"},
      {{"varn", "-IFILE", "A.pcap"}, "-ifile", true, "A.pcap", {"varn"}, "capitals; the value keeps its case"},
      {{"varn", "-ifile", "a", "-ifile", "b"}, "-ifile", true, "a", {"varn", "-ifile", "b"}, "first match"},
      {{"varn", "-ofile", "-ascii"}, "-ofile", true, "-ascii", {"varn"}, "the value may be an option name"},
      {{"varn", "-ofile", ""}, "-ofile", true, "", {"varn"}, "an empty value is a value"},
      {{"varn", "-ascii", "-ofile"}, "-ofile", false, "untouched", {"varn", "-ascii", "-ofile"},
       "standing last: not given, stays in the list"},
      {{"-ifile", "x"}, "-ifile", true, "x", {}, "the program name's slot is searched"},
      {{"varn", "-ifile", "-ifile"}, "-ifile", true, "-ifile", {"varn"}, "its own name as the value"},
      {{"varn", "-ascii"}, "-ifile", false, "untouched", {"varn", "-ascii"}, "absent"},
  };
  for (const auto& c : cases) {
    arg_list args = c.args;
    std::string value = "untouched";
    EXPECT_EQ(varn::take_value(args, c.name, value), c.found) << c.what;
    EXPECT_EQ(value, c.value) << c.what;
    EXPECT_EQ(args, c.rest) << c.what;
  }
}

TEST(arg_list_test, value_option_standing_last_stays_on_repeated_lookups) {
  // "-ifile" standing last stays in the list; a second lookup finds it again, still without value.
  arg_list args{"varn", "-ifile"};
  std::string value;
  EXPECT_FALSE(varn::take_value(args, "-ifile", value));
  EXPECT_FALSE(varn::take_value(args, "-ifile", value));
  EXPECT_EQ(args.size(), 2u);
}

}  // namespace
