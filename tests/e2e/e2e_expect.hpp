// Expected-text pieces shared by the end-to-end tests: the run header, the metadata column
// header, digests worked out with md5sum, and the frame numbers of a report.
#pragma once

#include <cstdio>
#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {

// Every run header and usage text carries this banner start; the maker's notice follows it.
inline constexpr const char* k_banner_prefix = "varn - limited ver: 0.40; ";

// The padded, comma-separated column header written before the first record of a file,
// followed by its empty line.
inline const std::string k_columns =
    "  frame , date [utc] ,   time [utc] , proto  ,         source ip         ,      destination ip"
    "      , ttl , Tsize , Psize ,          payload md5 hash        ,         comments\n\n";

inline std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::string line;
  std::istringstream in(text);
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

// Checks the three-line run header: the banner, INVOCATION, an empty line.
inline void expect_run_header(const run_result& r, const std::string& invocation) {
  const size_t first = r.out.find('\n');
  ASSERT_NE(first, std::string::npos) << r.out;
  EXPECT_EQ(r.out.rfind(k_banner_prefix, 0), 0u) << r.out;
  EXPECT_GT(first, std::string(k_banner_prefix).size()) << "the banner has a notice after its prefix";
  EXPECT_EQ(r.out.compare(first + 1, invocation.size() + 2, invocation + "\n\n"), 0)
      << "expected invocation line: " << invocation << "\ngot output:\n" << r.out;
}

// The lower-case hex MD5 of BYTES as md5sum prints it.
inline std::string md5sum_of(const bytes& data) {
  temp_dir dir;
  const std::string path = dir.file("payload.bin");
  write_file(path, data);
  std::string text;
  if (FILE* p = ::popen(("md5sum '" + path + "'").c_str(), "r")) {
    char buf[128];
    while (std::fgets(buf, sizeof buf, p) != nullptr) text += buf;
    ::pclose(p);
  }
  EXPECT_GE(text.size(), 32u) << "md5sum did not run";
  return text.substr(0, 32);
}

// The frame numbers of the record lines of a report, in order.
inline std::vector<unsigned> reported_frames(const std::string& report) {
  std::vector<unsigned> frames;
  for (const std::string& line : split_lines(report)) {
    if (line.size() < 9 || line.compare(7, 3, " , ") != 0) continue;
    const std::string number = line.substr(0, 7);
    if (number.find_first_not_of(' ') == std::string::npos || number == "  frame") continue;
    frames.push_back(static_cast<unsigned>(std::stoul(number)));
  }
  return frames;
}

}  // namespace varn_test
