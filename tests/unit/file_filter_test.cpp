// The "-filter" wildcard patterns for names read from standard input: building and matching.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "input/file_filter.hpp"

namespace {

struct built {
  const char* text;
  bool match_all, leading_star, trailing_star, is_path;
};

void expect_patterns(const char* value, const std::vector<built>& expected) {
  const std::vector<varn::filter_pattern> got = varn::build_filter_patterns(value);
  ASSERT_EQ(got.size(), expected.size()) << value;
  for (size_t i = 0; i < got.size(); ++i) {
    if (!expected[i].match_all) {
      EXPECT_EQ(got[i].text, expected[i].text) << value << " #" << i;
    }
    EXPECT_EQ(got[i].match_all, expected[i].match_all) << value << " #" << i;
    EXPECT_EQ(got[i].leading_star, expected[i].leading_star) << value << " #" << i;
    EXPECT_EQ(got[i].trailing_star, expected[i].trailing_star) << value << " #" << i;
    EXPECT_EQ(got[i].is_path, expected[i].is_path) << value << " #" << i;
  }
}

TEST(file_filter_test, building_patterns) {
  expect_patterns("*", {{"", true, false, false, false}});
  expect_patterns("*.pcap", {{".pcap", false, true, false, false}});
  expect_patterns("*.PCAP", {{".pcap", false, true, false, false}});
  expect_patterns("cap*", {{"cap", false, false, true, false}});
  expect_patterns("*part*", {{"part", false, true, true, false}});
  expect_patterns("exact.pcap", {{"exact.pcap", false, false, false, false}});
  expect_patterns("ab*cd", {{"abcd", false, false, false, false}});  // a middle star is just removed
  expect_patterns("*a*b*", {{"ab", false, true, true, false}});
  expect_patterns("/var/*", {{"/var/", false, false, true, true}});
  expect_patterns("*.pcap|*.cap", {{".pcap", false, true, false, false}, {".cap", false, true, false, false}});
  expect_patterns("*.pcap,*.cap", {{".pcap", false, true, false, false}, {".cap", false, true, false, false}});
  // "|" beats ",": the comma stays inside a piece
  expect_patterns("a,b|*.cap", {{"a,b", false, false, false, false}, {".cap", false, true, false, false}});
  expect_patterns("*|x*", {{"", true, false, false, false}, {"x", false, false, true, false}});
}

struct match_case {
  const char* filter;  // null: no patterns at all
  const char* name;
  bool passes;
};

TEST(file_filter_test, matching_names) {
  const match_case cases[] = {
      {nullptr, "any.thing", true},
      {nullptr, "", false},  // an empty name always fails
      {"*", "any.thing", true},
      {"*", "", false},
      // leading star: the first occurrence must end the name
      {"*.pcap", "a.pcap", true},
      {"*.pcap", "a.pcapng", false},
      {"*.pcap", "a.pcap.pcap", false},
      {"*.pcap", "pcap", false},
      {"*.pcap", ".pcap", true},
      {"*.PCAP", "x.pcap", true},
      {"*.PCAP", "X.Pcap", true},
      // trailing star: the name begins with the text
      {"cap*", "capture1.pcap", true},
      {"cap*", "CAPTURE1.pcap", true},
      {"cap*", "mycap.pcap", false},
      // both: the name contains the text
      {"*part*", "apartment.pcap", true},
      {"*part*", "par.pcap", false},
      {"*PART*", "xPaRtx", true},
      // neither: the whole name
      {"exact.pcap", "exact.pcap", true},
      {"exact.pcap", "Exact.PCAP", true},
      {"exact.pcap", "exact.pcap2", false},
      {"ab*cd", "abcd", true},
      {"ab*cd", "abxcd", false},
      // lists
      {"*.pcap|*.cap", "a.cap", true},
      {"*.pcap|*.cap", "a.pcap", true},
      {"*.pcap|*.cap", "a.txt", false},
      {"*.pcap,*.cap", "a.cap", true},
      {"*.pcap,*.cap", "a.pcap", true},
      {"a,b|*.cap", "a,b", true},
      {"a,b|*.cap", "a", false},
      {"a,b|*.cap", "b", false},
      {"x*|*", "anything", true},  // a match-all among others still matches
      // the directory part is ignored; both separators split it off
      {"*.pcap", "/data/run.1/a.pcap", true},
      {"cap*", "/caps/x.pcap", false},
      {"cap*", "/x/cap1.pcap", true},
      {"*caps*", "caps/a.pcap", false},
      {"*.pcap", "C:\\Caps\\X.PCAP", true},
      {"x*", "C:\\x\\a.pcap", false},
      {"a.pcap", "dir/sub\\a.pcap", true},
      {"*.pcap", "dir.pcap/file", false},
  };
  for (const auto& c : cases) {
    const std::vector<varn::filter_pattern> patterns =
        c.filter == nullptr ? std::vector<varn::filter_pattern>{} : varn::build_filter_patterns(c.filter);
    EXPECT_EQ(varn::filter_match(c.name, patterns), c.passes)
        << (c.filter ? c.filter : "(none)") << " vs \"" << c.name << '"';
  }
}

TEST(file_filter_test, splitting_a_path) {
  const struct {
    const char* name;
    const char* directory;
    const char* file;
  } cases[] = {
      {"a.pcap", "", "a.pcap"},
      {"/data/a.pcap", "/data/", "a.pcap"},
      {"c:\\caps\\a.pcap", "c:\\caps\\", "a.pcap"},
      {"d/e\\f", "d/e\\", "f"},
      {"dir/", "dir/", ""},
  };
  for (const auto& c : cases) {
    std::string_view directory, file;
    varn::split_path(c.name, directory, file);
    EXPECT_EQ(directory, c.directory) << c.name;
    EXPECT_EQ(file, c.file) << c.name;
  }
}

}  // namespace
