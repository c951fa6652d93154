// The regression corpus in tests/regress/: every capture that once crashed or misbehaved, run
// through the real binary.
//
// A case NAME has NAME.args (one argument per line; the token CAPTURE stands for the capture's
// path), NAME.out (the exact standard output after the run header) and optionally NAME.status
// (the exit status, 0 when absent) and NAME.stdin (the standard input; CAPTURE is replaced there
// too). The capture is NAME.pcap, or BASE.pcap for a case named BASE+VARIANT, so that one
// capture can serve several command lines. Each run happens in a fresh directory that holds the
// capture under its own file name, so CAPTURE is that file name and the report shows it.
//
// The captures are committed. Those built here by regress_captures() must equal their
// generator; after a deliberate change of a generator, run this test with VARN_REGRESS_WRITE=1
// to rewrite them, and check every .out that depends on them again by reading. Captures found
// by fuzzing have no generator and are kept as found.
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

constexpr uint32_t k_t0 = 1610704800;  // 2021-01-15 10:00:00 UTC
constexpr size_t k_max_capture = 4096;

std::string regress_dir() { return std::string(VARN_SOURCE_DIR) + "/tests/regress"; }

// The regression frames are spelled out byte by byte here, so that they do not change when the
// shared capture builders do. Checksums are left 0 (varn never checks them).
bytes eth(uint16_t ethertype) {
  bytes b = std::string("\x66\x77\x88\x99\xaa\xbb\x00\x11\x22\x33\x44\x55", 12);
  put_be16(b, ethertype);
  return b;
}

struct v4 {
  uint8_t src[4];
  uint8_t dst[4];
  uint8_t ttl;
  uint8_t type;
  uint8_t code;
  uint16_t id;
  uint16_t seq;
  bytes payload;
  uint8_t ihl = 5;
};

bytes ipv4_icmp(const v4& f) {
  bytes b = eth(0x0800);
  b.push_back(static_cast<char>(0x40 | f.ihl));
  b.push_back(0);
  put_be16(b, static_cast<uint16_t>(4 * f.ihl + 8 + f.payload.size()));
  put_be16(b, 0x1234);
  put_be16(b, 0);
  b.push_back(static_cast<char>(f.ttl));
  b.push_back(1);
  put_be16(b, 0);
  for (uint8_t x : f.src) b.push_back(static_cast<char>(x));
  for (uint8_t x : f.dst) b.push_back(static_cast<char>(x));
  b.resize(14 + 4 * f.ihl, '\0');  // options, if any, are zero
  b.push_back(static_cast<char>(f.type));
  b.push_back(static_cast<char>(f.code));
  put_be16(b, 0);
  put_be16(b, f.id);
  put_be16(b, f.seq);
  return b + f.payload;
}

bytes ipv6_icmp(const ipv6& src, const ipv6& dst, uint8_t hop_limit, uint8_t type, uint16_t id, const bytes& payload) {
  bytes b = eth(0x86DD);
  put_be32(b, 0x60000000);
  put_be16(b, static_cast<uint16_t>(8 + payload.size()));
  b.push_back(58);
  b.push_back(static_cast<char>(hop_limit));
  for (uint8_t x : src) b.push_back(static_cast<char>(x));
  for (uint8_t x : dst) b.push_back(static_cast<char>(x));
  b.push_back(static_cast<char>(type));
  b.push_back(0);
  put_be16(b, 0);
  put_be16(b, id);
  put_be16(b, 1);
  return b + payload;
}

// The file header with any values; the pcap_writer of the support library writes only valid
// version fields through its defaults.
bytes file_header(uint32_t snaplen, int32_t thiszone = 0) {
  bytes b;
  put_le32(b, 0xA1B2C3D4);
  put_le16(b, 2);
  put_le16(b, 4);
  put_le32(b, static_cast<uint32_t>(thiszone));
  put_le32(b, 0);
  put_le32(b, snaplen);
  put_le32(b, 1);
  return b;
}

bytes record(uint32_t ts_sec, uint32_t ts_usec, uint32_t incl_len, uint32_t orig_len, const bytes& frame_bytes) {
  bytes b;
  put_le32(b, ts_sec);
  put_le32(b, ts_usec);
  put_le32(b, incl_len);
  put_le32(b, orig_len);
  return b + frame_bytes;
}

const v4 k_request{{192, 168, 1, 2}, {192, 168, 1, 1}, 64, 8, 0, 0x1a2b, 1, "ABCDEFGH"};
const v4 k_reply{{10, 0, 0, 9}, {10, 0, 0, 7}, 128, 0, 0, 0x0042, 2, "abcdefgh"};

// Record 2 declares 50 captured bytes but the file ends after 30 of them.
bytes cut_short_record() {
  const bytes a = ipv4_icmp(k_request), b = ipv4_icmp(k_reply);
  return file_header(65535) + record(k_t0, 0, 50, 50, a) + record(k_t0 + 1, 500000, 50, 50, b.substr(0, 30));
}

// Three pings of 98 bytes on the wire, each captured to snaplen 60 (incl_len == snaplen); each
// payload is one repeated letter, a, b, c. CUT drops that many bytes from the end of the file.
bytes snaplen_sized_records(size_t cut) {
  bytes out = file_header(60);
  for (int i = 0; i < 3; ++i) {
    v4 f = i % 2 == 0 ? k_request : k_reply;
    f.seq = static_cast<uint16_t>(i + 1);
    f.payload = bytes(56, static_cast<char>('a' + i));
    out += record(k_t0 + static_cast<uint32_t>(i), 0, 60, 98, ipv4_icmp(f).substr(0, 60));
  }
  return out.substr(0, out.size() - cut);
}

// Record 2 declares 65 captured bytes under snaplen 64; record 3 is whole.
bytes incl_len_above_snaplen() {
  v4 big = k_reply;
  big.payload = bytes(23, 'x');  // 65-byte frame
  return file_header(64) + record(k_t0, 0, 50, 50, ipv4_icmp(k_request)) +
         record(k_t0 + 1, 0, 65, 65, ipv4_icmp(big)) + record(k_t0 + 2, 0, 50, 50, ipv4_icmp(k_reply));
}

// Snaplen 0xffffffff: the read unit snaplen + 16 wraps to 15 bytes.
bytes huge_snaplen() {
  return file_header(0xffffffffu) + record(k_t0, 0, 50, 50, ipv4_icmp(k_request)) +
         record(k_t0 + 1, 0, 50, 50, ipv4_icmp(k_reply));
}

// Snaplen 200000 in a small file: the reads stay below the record buffer. Record 3 declares
// 131057 bytes, more than fit behind a record header in the buffer; record 4 is whole.
bytes snaplen_above_buffer() {
  return file_header(200000) + record(k_t0, 0, 50, 50, ipv4_icmp(k_request)) +
         record(k_t0 + 1, 0, 50, 50, ipv4_icmp(k_reply)) + record(k_t0 + 2, 0, 131057, 131057, ipv4_icmp(k_request)) +
         record(k_t0 + 3, 0, 50, 50, ipv4_icmp(k_reply));
}

// Snaplen 30: each record holds only the first 30 bytes of a 50-byte ping.
bytes tiny_snaplen() {
  return file_header(30) + record(k_t0, 0, 30, 50, ipv4_icmp(k_request).substr(0, 30)) +
         record(k_t0 + 1, 0, 30, 50, ipv4_icmp(k_reply).substr(0, 30));
}

bytes header_only() { return file_header(65535); }

bytes short_file_valid_magic() { return file_header(65535).substr(0, 8); }

bytes short_file_magic_only() { return file_header(65535).substr(0, 4); }

// Record 1: IHL 15 (a 60-byte IP header, H = 82) of which only 48 bytes are captured; its ICMP
// header lies beyond them. Record 2 is whole.
bytes ihl_15_short_capture() {
  v4 f = k_request;
  f.ihl = 15;
  f.payload = bytes(16, 'P');
  return file_header(65535) + record(k_t0, 0, 48, 98, ipv4_icmp(f).substr(0, 48)) +
         record(k_t0 + 1, 0, 50, 50, ipv4_icmp(k_reply));
}

// An ICMPv6 echo request captured to 40 bytes: the destination address is cut after its first
// group and the ICMPv6 header is missing.
bytes ipv6_short_capture() {
  return file_header(65535) + record(k_t0, 0, 40, 70, ipv6_icmp(v6("fe80::1"), v6("ff02::1"), 255, 128, 0x0100, "ping").substr(0, 40));
}

// Capture seconds 0, 0x80000000 and 0x7fffffff.
bytes timestamps_out_of_range() {
  return file_header(65535) + record(0, 0, 50, 50, ipv4_icmp(k_request)) +
         record(0x80000000u, 0, 50, 50, ipv4_icmp(k_reply)) + record(0x7fffffffu, 999999, 50, 50, ipv4_icmp(k_request));
}

const std::map<std::string, std::function<bytes()>>& regress_captures() {
  static const std::map<std::string, std::function<bytes()>> captures = {
      {"reader-cut-short-record-1", cut_short_record},
      {"reader-incl-len-equals-snaplen-1", [] { return snaplen_sized_records(0); }},
      {"reader-incl-len-equals-snaplen-2", [] { return snaplen_sized_records(10); }},
      {"reader-incl-len-above-snaplen-1", incl_len_above_snaplen},
      {"reader-huge-snaplen-1", huge_snaplen},
      {"reader-snaplen-above-buffer-small-file-1", snaplen_above_buffer},
      {"reader-tiny-snaplen-1", tiny_snaplen},
      {"reader-header-only-1", header_only},
      {"reader-short-file-valid-magic-1", short_file_valid_magic},
      {"reader-short-file-magic-only-1", short_file_magic_only},
      {"handler-ihl-15-short-capture-1", ihl_15_short_capture},
      {"handler-ipv6-short-capture-1", ipv6_short_capture},
      {"metadata-timestamp-out-of-range-1", timestamps_out_of_range},
  };
  return captures;
}

std::string capture_of(const std::string& case_name) { return case_name.substr(0, case_name.find('+')); }

std::set<std::string> files_with(const std::string& extension) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(regress_dir()))
    if (entry.path().extension() == extension) names.insert(entry.path().stem().string());
  return names;
}

std::string replace_capture(const std::string& line, const std::string& capture) {
  return line == "CAPTURE" ? capture : line;
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

TEST(regress_test, captures_are_small_and_every_case_has_its_files) {
  const std::set<std::string> cases = files_with(".args");
  const std::set<std::string> captures = files_with(".pcap");
  ASSERT_FALSE(cases.empty()) << "no cases in " << regress_dir();
  for (const std::string& name : captures) {
    SCOPED_TRACE(name);
    EXPECT_LT(std::filesystem::file_size(regress_dir() + "/" + name + ".pcap"), k_max_capture);
    bool used = false;
    for (const std::string& c : cases) used = used || capture_of(c) == name;
    EXPECT_TRUE(used) << name << ".pcap has no case";
  }
  for (const std::string& name : cases) {
    SCOPED_TRACE(name);
    EXPECT_EQ(captures.count(capture_of(name)), 1u) << "missing " << capture_of(name) << ".pcap";
    EXPECT_TRUE(std::filesystem::exists(regress_dir() + "/" + name + ".out")) << "missing " << name << ".out";
  }
}

TEST(regress_test, generated_captures_equal_their_generators) {
  const char* write_env = std::getenv("VARN_REGRESS_WRITE");
  const bool write = write_env != nullptr && std::string(write_env) == "1";
  for (const auto& [name, generate] : regress_captures()) {
    SCOPED_TRACE(name);
    const std::string path = regress_dir() + "/" + name + ".pcap";
    const bytes generated = generate();
    ASSERT_LT(generated.size(), k_max_capture);
    if (write) {
      write_file(path, generated);
      std::printf("wrote %s\n", path.c_str());
      continue;
    }
    ASSERT_TRUE(std::filesystem::exists(path)) << "missing " << path << " (VARN_REGRESS_WRITE=1 writes it)";
    EXPECT_TRUE(read_file(path) == generated) << path << " differs from its generator";
  }
}

TEST(regress_test, every_case_reports_as_recorded) {
  const std::set<std::string> cases = files_with(".args");
  for (const std::string& name : cases) {
    SCOPED_TRACE(name);
    const std::string base = regress_dir() + "/" + name;
    const std::string capture_file = capture_of(name) + ".pcap";
    if (!std::filesystem::exists(regress_dir() + "/" + capture_file)) continue;  // reported above
    temp_dir dir;
    write_file(dir.file(capture_file), read_file(regress_dir() + "/" + capture_file));

    std::vector<std::string> args;
    for (const std::string& line : lines_of(read_file(base + ".args"))) args.push_back(replace_capture(line, capture_file));
    run_options options{stdin_mode::empty, "", dir.path()};
    if (std::filesystem::exists(base + ".stdin")) {
      options.input = stdin_mode::text;
      for (const std::string& line : lines_of(read_file(base + ".stdin")))
        options.stdin_text += replace_capture(line, capture_file) + "\n";
    }
    int status = 0;
    if (std::filesystem::exists(base + ".status")) status = std::atoi(read_file(base + ".status").c_str());

    const run_result r = run_varn(args, options);
    EXPECT_EQ(r.status, status);
    if (status == 0) {
      EXPECT_EQ(r.err, "");
    }
    EXPECT_EQ(r.report(), read_file(base + ".out"));
  }
}

}  // namespace
}  // namespace varn_test
