// Golden outputs: tests/golden/NAME.args holds one argument per line (the token CAPTURE stands
// for the capture built for NAME below) and NAME.out the exact report after the run header.
// After a deliberate change of output, tests/golden/refresh.sh rewrites the .out files
// (VARN_GOLDEN_REFRESH=1); every rewritten file is to be checked by reading before it is kept.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>

#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

constexpr uint32_t k_t0 = 1610704800;  // 2021-01-15 10:00:00 UTC

bytes v4_echo(ipv4 src, ipv4 dst, uint8_t type, uint8_t code, uint16_t id, uint16_t seq, const bytes& payload) {
  icmp4_spec s;
  s.src = src;
  s.dst = dst;
  s.type = type;
  s.code = code;
  s.id = id;
  s.seq = seq;
  s.payload = payload;
  return icmp4_frame(s);
}

bytes v6_echo(const std::string& src, const std::string& dst, uint8_t type, uint16_t id, const bytes& payload) {
  icmp6_spec s;
  s.src = v6(src);
  s.dst = v6(dst);
  s.type = type;
  s.id = id;
  s.payload = payload;
  return icmp6_frame(s);
}

// 1 IPv4 192.168.1.2 -> 192.168.1.1 echo request id 0x1a2b "PING-abc"      10:00:00.000
// 2 IPv4 192.168.1.1 -> 192.168.1.2 echo reply                              10:00:01.250
// 3 IPv4 192.168.1.2 -> 10.0.0.3 dst unreachable 3/3 "quoted!"               10:00:02
// 4 IPv6 fe80::1 -> fe80::2 echo request id 0x0100 "v6 ping data"           10:00:03
// 5 IPv6 fe80::2 -> fe80::1 echo reply                                      10:00:04
// 6 ARP                                                                     10:00:05
bytes mixed_capture() {
  const ipv4 a{192, 168, 1, 2}, b{192, 168, 1, 1}, c{10, 0, 0, 3};
  pcap_writer w;
  w.add(k_t0, 0, v4_echo(a, b, 8, 0, 0x1a2b, 1, "PING-abc"));
  w.add(k_t0 + 1, 250000, v4_echo(b, a, 0, 0, 0x1a2b, 1, "PING-abc"));
  w.add(k_t0 + 2, 0, v4_echo(a, c, 3, 3, 0, 0, "quoted!"));
  w.add(k_t0 + 3, 0, v6_echo("fe80::1", "fe80::2", 128, 0x0100, "v6 ping data"));
  w.add(k_t0 + 4, 0, v6_echo("fe80::2", "fe80::1", 129, 0x0100, "v6 ping data"));
  w.add(k_t0 + 5, 0, ethernet_frame(0x0806, bytes(28, '\x01')));
  return w.data();
}

// 1 IPv4 echo request whose payload holds ascii runs and a UTF-16LE run at an odd offset
// 2 IPv6 echo request whose payload is the UTF-16LE text "Unicode!"
bytes text_capture() {
  const bytes ascii_mix = std::string("  hello\0\x01W\0O\0R\0L\0D\0\x01hello world   \x01" "abcd\x02tail end", 48);
  const bytes utf16 = std::string("U\0n\0i\0c\0o\0d\0e\0!\0", 16);
  pcap_writer w;
  w.add(k_t0, 0, v4_echo({10, 0, 0, 1}, {10, 0, 0, 2}, 8, 0, 0x0042, 7, ascii_mix));
  w.add(k_t0, 999000, v6_echo("2001:db8::1", "2001:db8::2", 128, 0x0043, utf16));
  return w.data();
}

const std::map<std::string, std::function<bytes()>>& capture_builders() {
  static const std::map<std::string, std::function<bytes()>> builders = {
      {"mixed_default", mixed_capture},      {"mixed_dump_all", mixed_capture},
      {"mixed_ascii", mixed_capture},        {"mixed_strings", mixed_capture},
      {"mixed_ascii_header", mixed_capture}, {"mixed_binary", mixed_capture},
      {"mixed_track_replies", mixed_capture}, {"mixed_ipv6_payload", mixed_capture},
      {"mixed_pattern", mixed_capture},      {"mixed_time_window", mixed_capture},
      {"mixed_icmp_lists", mixed_capture},   {"text_strings", text_capture},
      {"text_hex", text_capture},
  };
  return builders;
}

std::string golden_dir() { return std::string(VARN_SOURCE_DIR) + "/tests/golden"; }

std::vector<std::string> read_args(const std::string& path, const std::string& capture) {
  std::vector<std::string> args;
  const std::string text = read_file(path);
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    std::string arg = text.substr(start, end - start);
    args.push_back(arg == "CAPTURE" ? capture : arg);
    start = end + 1;
  }
  return args;
}

std::set<std::string> case_names() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(golden_dir()))
    if (entry.path().extension() == ".args") names.insert(entry.path().stem().string());
  return names;
}

TEST(golden_test, every_case_has_a_capture_and_every_capture_a_case) {
  const std::set<std::string> names = case_names();
  for (const std::string& name : names) EXPECT_EQ(capture_builders().count(name), 1u) << name << ".args has no capture";
  for (const auto& [name, build] : capture_builders()) EXPECT_EQ(names.count(name), 1u) << name << " has no .args";
}

TEST(golden_test, reports_match_the_golden_files) {
  const char* refresh_env = std::getenv("VARN_GOLDEN_REFRESH");
  const bool refresh = refresh_env != nullptr && std::string(refresh_env) == "1";
  const std::set<std::string> names = case_names();
  ASSERT_FALSE(names.empty()) << "no .args files in " << golden_dir();
  for (const std::string& name : names) {
    SCOPED_TRACE(name);
    const auto builder = capture_builders().find(name);
    if (builder == capture_builders().end()) continue;  // reported by the test above
    temp_dir dir;
    const std::string capture = name + ".pcap";
    write_file(dir.file(capture), builder->second());
    const run_result r =
        run_varn(read_args(golden_dir() + "/" + name + ".args", capture), {stdin_mode::empty, "", dir.path()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    const std::string out_path = golden_dir() + "/" + name + ".out";
    if (refresh) {
      write_file(out_path, r.report());
      std::printf("rewrote %s\n", out_path.c_str());
      continue;
    }
    ASSERT_TRUE(std::filesystem::exists(out_path)) << "missing " << out_path << " (run tests/golden/refresh.sh)";
    EXPECT_EQ(r.report(), read_file(out_path));
  }
}

}  // namespace
}  // namespace varn_test
