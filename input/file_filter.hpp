// File-name wildcard patterns of "-filter" and the test of one name against them.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace varn {

struct filter_pattern {
  std::string text;            // lower-cased, every "*" removed
  bool match_all = false;      // the pattern was exactly "*"
  bool leading_star = false;   // a "*" stood first
  bool trailing_star = false;  // a "*" stood last
  bool is_path = false;        // the remaining text begins with "/"
};

// Lower-cases VALUE and splits it at every "|" (else at every ",", else takes it whole) into
// patterns. A "*" inside a pattern is dropped, so "ab*cd" matches only "abcd".
std::vector<filter_pattern> build_filter_patterns(std::string_view value);

// Splits NAME at its last "/" or "\" into directory and file name (directory empty when there
// is no separator).
void split_path(std::string_view name, std::string_view& directory, std::string_view& file_name);

// The "-filter" test of NAME's file-name part, lower-cased: true when any pattern matches, or
// when there are no patterns or only one that matches all. An empty name fails. "*.ext" tries
// only the first occurrence of ".ext", which must end the name.
bool filter_match(std::string_view name, const std::vector<filter_pattern>& patterns);

}  // namespace varn
