// Whole runs of varn, in process: the capture reader, the frame handler, the filters and every
// report writer on a capture made from the input.
//
// Input: a 24-byte control block, then the capture file's bytes. The control block chooses the
// command line:
//   c[0]  bits 0-1 format (none, -ascii, -binary, -strings); bit 2 -dump_meta; bit 3 -dump_hdr;
//         bit 4 -dump_payload; bit 5 -track_replies; bit 6 list mode (-pipe, names on standard
//         input); bit 7 -ofile /dev/null
//   c[1]  bit 0 -frame; bit 1 -min_size; bit 2 -srcip; bit 3 -dstip; bit 4 -srcipv6;
//         bit 5 -dstipv6; bit 6 -start_time/-stop_time; bit 7 a byte pattern
//   c[2]  bit 0 -icmp_type; bit 1 -icmp_code; bit 2 -icmp_id; bit 3 the pattern as
//         -find_pattern_h; bit 4 -filter (list mode); bit 5 option names in capitals;
//         bit 6 a missing file in the list; bit 7 -json
//   c[3] frame numbers, c[4..5] minimum size, c[6..9] and c[10..13] the IPv4 filter values,
//   c[14], c[15] IPv6 filter texts, c[16] time window, c[17..19] pattern bytes with c[20] the
//   wildcard mask, c[21] type, c[22..23] code and identifier. c[16] bit 7 -summary, with bits
//   3-6 (when not 0) its -idle_timeout in seconds.
//
// Every such command line is valid, so the run must end with status 0, or -1 when it holds a
// single argument (a lone "-pipe") or asks for -json with the binary format, and never abort or
// trip a sanitizer. Captures whose first read would exceed the record buffer end the process by
// design and are skipped.
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <string>
#include <unistd.h>
#include <vector>

#include "driver/run.hpp"
#include "fuzz/fuzz_support.hpp"

namespace {

constexpr size_t k_control = 24;

std::string g_capture;  // the scratch capture, named *.pcap so that -filter can pass it

const char* const k_ipv6_texts[8] = {
    "fe80::1", "fe80::2", "2001:db8::1", "2001:0db8:0000:0000:0000:0000:0000:0001",
    "::1",     "ff02::1", "fe80:0:0:0:0:0:0:1", "",
};

struct time_window {
  const char* start;  // null: not given
  const char* stop;
};

const time_window k_windows[8] = {
    {"01/15/21 10:00:00", nullptr},
    {"1/1/70", "12/31/37 23:59:59"},
    {"15-Jan-2021 10:00:02 pm", "2/30/21"},
    {"01/01/00 00:00:00.5", "01/01/01 12:00 am"},
    {"03/01/00", "03/02/00"},
    {nullptr, "01/15/21 10:00:01"},
    {"6/15/09 12:30:45.123", "6/15/09 12:30:46"},
    {nullptr, "not a date"},
};

std::string hex2(unsigned v, bool bare) {
  char buf[8];
  std::snprintf(buf, sizeof buf, bare ? "%02x" : "0x%02x", v & 0xffu);
  return buf;
}

std::string hex32(uint32_t v) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "0x%08x", v);
  return buf;
}

void remove_scratch() {
  if (!g_capture.empty()) ::unlink(g_capture.c_str());
}

// Puts TEXT on standard input (a pipe read to its end).
void feed_stdin(const std::string& text) {
  int fds[2];
  if (::pipe(fds) != 0) varn_fuzz::fail("pipe");
  if (::write(fds[1], text.data(), text.size()) != static_cast<ssize_t>(text.size())) varn_fuzz::fail("pipe write");
  ::close(fds[1]);
  ::dup2(fds[0], 0);
  ::close(fds[0]);
  std::clearerr(stdin);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  // The run header, the progress lines and the report go to descriptor 1.
  const int null_fd = ::open("/dev/null", O_WRONLY);
  if (null_fd < 0 || ::dup2(null_fd, 1) < 0) varn_fuzz::fail("cannot send standard output to /dev/null");
  ::close(null_fd);
  g_capture = varn_fuzz::scratch_path("varn-fuzz-run", ".pcap");
  std::atexit(remove_scratch);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < k_control) return 0;
  const uint8_t* c = data;
  const uint8_t* capture = data + k_control;
  const size_t capture_size = size - k_control;
  if (varn_fuzz::read_exceeds_record_buffer(capture, capture_size)) return 0;
  varn_fuzz::write_scratch(g_capture, capture, capture_size);

  const bool capitals = (c[2] & 0x20) != 0;
  std::vector<std::string> args{"varn"};
  auto option = [&](std::string name) {
    if (capitals)
      for (char& ch : name) ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    args.push_back(std::move(name));
  };
  auto option_with = [&](const char* name, std::string value) {
    option(name);
    args.push_back(std::move(value));
  };

  const bool list_mode = (c[0] & 0x40) != 0;
  if (list_mode)
    option("-pipe");
  else
    option_with("-ifile", g_capture);

  static const char* const formats[4] = {nullptr, "-ascii", "-binary", "-strings"};
  if (formats[c[0] & 3] != nullptr) option(formats[c[0] & 3]);
  if (c[0] & 0x04) option("-dump_meta");
  if (c[0] & 0x08) option("-dump_hdr");
  if (c[0] & 0x10) option("-dump_payload");
  if (c[0] & 0x20) option("-track_replies");
  if (c[0] & 0x80) option_with("-ofile", "/dev/null");

  if (c[1] & 0x01) option_with("-frame", std::to_string((c[3] & 7) + 1) + " " + std::to_string((c[3] >> 3) + 1));
  if (c[1] & 0x02) option_with("-min_size", std::to_string(c[4] | c[5] << 8));
  if (c[1] & 0x04) option_with("-srcip", hex32(varn_fuzz::le32(c + 6)));
  if (c[1] & 0x08) option_with("-dstip", hex32(varn_fuzz::le32(c + 10)));
  if (c[1] & 0x10) option_with("-srcipv6", k_ipv6_texts[c[14] & 7]);
  if (c[1] & 0x20) option_with("-dstipv6", k_ipv6_texts[c[15] & 7]);
  if (c[1] & 0x40) {
    const time_window& w = k_windows[c[16] & 7];
    if (w.start != nullptr) option_with("-start_time", w.start);
    if (w.stop != nullptr) option_with("-stop_time", w.stop);
  }
  if (c[1] & 0x80) {
    const bool bare = (c[2] & 0x08) != 0;
    std::string text;
    for (int i = 0; i < 3; ++i) {
      if (!text.empty()) text += ' ';
      text += (c[20] >> i & 1) ? std::string("?") : hex2(c[17 + i], bare);
    }
    option_with(bare ? "-find_pattern_h" : "-find_pattern", text);
  }
  if (c[2] & 0x01) option_with("-icmp_type", std::to_string(c[21]) + "|" + std::to_string(c[21] ^ 8u));
  if (c[2] & 0x02) option_with("-icmp_code", std::to_string(c[22]));
  if (c[2] & 0x04) option_with("-icmp_id", std::to_string(c[22] << 8 | c[23]));
  const bool json = (c[2] & 0x80) != 0;
  if (json) option("-json");
  if (c[16] & 0x80) {
    option("-summary");
    if ((c[16] & 0x78) != 0) option_with("-idle_timeout", std::to_string((c[16] >> 3) & 15));
  }

  if (list_mode) {
    if (c[2] & 0x10) option_with("-filter", "*.pcap|*.cap");
    std::string names = g_capture + "\n\n";
    if (c[2] & 0x40) names += g_capture + ".missing.cap\n";
    names += g_capture + "\r\n";
    feed_stdin(names);
  }

  // -dump_meta without another dump option turns the binary format into ascii.
  const bool binary = (c[0] & 3) == 2 && !((c[0] & 0x04) != 0 && (c[0] & 0x18) == 0);
  const int status = varn::run(args);
  VARN_FUZZ_CHECK(status == (args.size() < 3 || (json && binary) ? -1 : 0));
  return 0;
}
