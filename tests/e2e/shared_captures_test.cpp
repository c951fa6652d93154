// The third-party captures against their independently derived expected reports.
#include <filesystem>
#include <gtest/gtest.h>

#include "support/run_varn.hpp"

namespace varn_test {
namespace {

struct expected_case {
  std::string capture;
  std::string mode;  // "default" or "dump"
  std::string expected_path;
};

std::vector<expected_case> expected_cases() {
  std::vector<expected_case> cases;
  const std::string dir = shared_captures_dir();
  if (dir.empty()) return cases;
  for (const auto& entry : std::filesystem::directory_iterator(dir + "/expected")) {
    const std::string name = entry.path().filename().string();  // NAME.MODE.out
    const size_t mode_end = name.rfind(".out");
    const size_t mode_start = name.rfind('.', mode_end - 1);
    if (mode_end == std::string::npos || mode_start == std::string::npos) continue;
    cases.push_back({name.substr(0, mode_start), name.substr(mode_start + 1, mode_end - mode_start - 1),
                     entry.path().string()});
  }
  std::sort(cases.begin(), cases.end(), [](const auto& a, const auto& b) { return a.expected_path < b.expected_path; });
  return cases;
}

// Captures whose first read is larger than the record buffer: the run ends abnormally.
bool ends_abnormally(const std::string& capture) {
  return capture == "huge-tipc-messages.pcap" || capture == "sv-output-eve-ftp-data-input.pcap";
}

TEST(shared_captures_test, reports_match_expected_files) {
  const std::vector<expected_case> cases = expected_cases();
  if (cases.empty()) GTEST_SKIP() << "no ../shared/captures/expected folder next to the checkout";
  for (const expected_case& c : cases) {
    SCOPED_TRACE(c.capture + " (" + c.mode + ")");
    std::vector<std::string> args = {"-ifile", c.capture};
    if (c.mode == "dump") args.insert(args.end(), {"-dump_meta", "-dump_hdr", "-dump_payload"});
    const run_result r = run_varn(args, {stdin_mode::empty, "", shared_captures_dir()});
    EXPECT_EQ(r.report(), read_file(c.expected_path));
    if (ends_abnormally(c.capture)) {
      EXPECT_EQ(r.status, 128 + SIGABRT);
      EXPECT_NE(r.err.find("fatal assertion failed in read_capture_file"), std::string::npos);
    } else {
      EXPECT_EQ(r.status, 0);
      EXPECT_EQ(r.err, "");
    }
  }
}

}  // namespace
}  // namespace varn_test
