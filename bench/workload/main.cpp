// varn-workload: writes a deterministic benchmark capture.
//
//   varn-workload --kind mixed|icmp|small|sample|sweep --size BYTES --seed N --out FILE [--frames N]
//
// BYTES may carry a binary suffix (K, M, G, T, optionally followed by "iB"). The file never
// exceeds BYTES; --frames caps the record count as well (either limit alone is enough). The
// sample kind ignores --size and writes its fixed frames. A one-line summary goes to standard
// error: records, ICMP/ICMPv6 frames (the lines a default varn run prints), ICMP payload bytes
// and the payloads built to be reported as high-entropy.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "workload/workload.hpp"

namespace {

void usage() {
  std::fputs(
      "usage: varn-workload --kind mixed|icmp|small|sample|sweep --size BYTES --seed N --out FILE [--frames N]\n"
      "  BYTES may end in K, M, G or T (powers of 1024), e.g. 256M or 1GiB\n",
      stderr);
}

bool parse_u64(std::string_view text, uint64_t& value) {
  if (text.empty()) return false;
  uint64_t v = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    const uint64_t next = v * 10 + static_cast<uint64_t>(c - '0');
    if (next / 10 != v) return false;
    v = next;
  }
  value = v;
  return true;
}

bool parse_size(std::string_view text, uint64_t& value) {
  uint64_t scale = 1;
  std::string_view digits = text;
  if (digits.size() > 2 && digits.substr(digits.size() - 2) == "iB") digits.remove_suffix(2);
  if (!digits.empty()) {
    switch (digits.back()) {
      case 'K': case 'k': scale = 1ull << 10; break;
      case 'M': case 'm': scale = 1ull << 20; break;
      case 'G': case 'g': scale = 1ull << 30; break;
      case 'T': case 't': scale = 1ull << 40; break;
      default: break;
    }
    if (scale != 1) digits.remove_suffix(1);
  }
  uint64_t n = 0;
  if (!parse_u64(digits, n) || (n != 0 && n > UINT64_MAX / scale)) return false;
  value = n * scale;
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  varn_bench::workload_spec spec;
  std::string out;
  bool have_kind = false, have_size = false;
  for (int i = 1; i < argc; ++i) {
    const std::string_view name = argv[i];
    if (name == "-h" || name == "--help") {
      usage();
      return 0;
    }
    if (i + 1 >= argc) {
      std::fprintf(stderr, "varn-workload: %s needs a value\n", argv[i]);
      usage();
      return 2;
    }
    const std::string_view value = argv[++i];
    bool ok = true;
    if (name == "--kind")
      ok = have_kind = varn_bench::parse_workload_kind(value, spec.kind);
    else if (name == "--size")
      ok = have_size = parse_size(value, spec.size);
    else if (name == "--seed")
      ok = parse_u64(value, spec.seed);
    else if (name == "--frames")
      ok = parse_u64(value, spec.frames);
    else if (name == "--out")
      out = std::string(value);
    else
      ok = false;
    if (!ok) {
      std::fprintf(stderr, "varn-workload: bad option or value: %s %s\n", argv[i - 1], argv[i]);
      usage();
      return 2;
    }
  }
  if (!have_kind || out.empty() ||
      (spec.kind != varn_bench::workload_kind::sample && !have_size && spec.frames == 0)) {
    usage();
    return 2;
  }
  if (spec.kind == varn_bench::workload_kind::sample) spec.size = 0;

  varn_bench::workload_summary s;
  if (!varn_bench::write_workload_file(spec, out, s)) {
    std::fprintf(stderr, "varn-workload: cannot write %s\n", out.c_str());
    return 1;
  }
  std::fprintf(stderr,
               "%s: kind %s, seed %llu: %llu bytes, %llu records, %llu icmp frames, %llu icmp payload bytes, "
               "%llu flagged payloads\n",
               out.c_str(), varn_bench::workload_kind_name(spec.kind), static_cast<unsigned long long>(spec.seed),
               static_cast<unsigned long long>(s.bytes), static_cast<unsigned long long>(s.records),
               static_cast<unsigned long long>(s.icmp_frames), static_cast<unsigned long long>(s.icmp_payload_bytes),
               static_cast<unsigned long long>(s.flagged_payloads));
  return 0;
}
