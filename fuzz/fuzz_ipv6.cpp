// The IPv6 text reader and the IPv6 text form.
//
// Input: any bytes, read as an option text (the reader) and, its first 2 x (size / 2) bytes up
// to 32, as 16-bit groups (the text form).
// Checks:
// - the reader yields two bytes, high first, per non-empty colon-separated field of the text
//   (each read as hexadecimal up to its first foreign character, low 16 bits kept), 16 zero
//   bytes for an empty text, and fails when the text has no field at all;
// - the text form uses lower-case hex digits without leading zeros and colons, compresses at
//   most one run, and reads back as the groups less the first run of zero groups (the reader
//   keeps only the groups written), failing when nothing is left.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz/fuzz_support.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_byterun.hpp"

namespace {

bool model_read(const std::string& text, std::vector<uint8_t>& out) {
  out.clear();
  if (text.empty()) {
    out.assign(16, 0);
    return true;
  }
  std::vector<std::string> fields;
  std::string field;
  for (char c : text) {
    if (c == ':') {
      if (!field.empty()) fields.push_back(field);
      field.clear();
    } else {
      field += c;
    }
  }
  if (!field.empty()) fields.push_back(field);
  if (fields.empty()) return false;
  for (const std::string& f : fields) {
    const unsigned long v = std::strtoul(f.c_str(), nullptr, 16) & 0xffff;
    out.push_back(static_cast<uint8_t>(v >> 8));
    out.push_back(static_cast<uint8_t>(v & 0xff));
  }
  return true;
}

void check_text_form(const uint8_t* groups, size_t length) {
  std::string text = "untouched";
  zq::format_ipv6_groups(groups, length, text);
  if (length < 2) {
    if (length == 0) VARN_FUZZ_CHECK(text == "untouched");
    return;
  }
  const size_t n = length / 2;
  VARN_FUZZ_CHECK(text.size() <= n * 5);
  for (char c : text) VARN_FUZZ_CHECK((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || c == ':');
  VARN_FUZZ_CHECK(text.find(":::") == std::string::npos);
  const size_t pair = text.find("::");
  VARN_FUZZ_CHECK(pair == std::string::npos || text.find("::", pair + 1) == std::string::npos);
  // No digits group starts with a zero unless it is "0".
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find(':', start);
    if (end == std::string::npos) end = text.size();
    const std::string_view g(text.data() + start, end - start);
    VARN_FUZZ_CHECK(g.size() <= 4);
    VARN_FUZZ_CHECK(g.size() <= 1 || g[0] != '0');
    start = end + 1;
  }

  // Reading the text back gives the groups less the first run of zero groups.
  std::vector<uint8_t> expect;
  bool in_run = false, run_done = false;
  for (size_t g = 0; g < n; ++g) {
    const bool zero = groups[2 * g] == 0 && groups[2 * g + 1] == 0;
    if (zero && !run_done) {
      in_run = true;
      continue;
    }
    if (in_run) run_done = true;
    expect.push_back(groups[2 * g]);
    expect.push_back(groups[2 * g + 1]);
  }
  zq::byte_run back;
  const bool read = zq::parse_ipv6_text(text, back);
  VARN_FUZZ_CHECK(read == !expect.empty());
  if (read) VARN_FUZZ_CHECK(back.bytes() == expect);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  const std::string text(reinterpret_cast<const char*>(data), size);
  zq::byte_run got;
  std::vector<uint8_t> want;
  const bool ok = zq::parse_ipv6_text(text, got);
  VARN_FUZZ_CHECK(ok == model_read(text, want));
  if (ok) {
    VARN_FUZZ_CHECK(got.bytes() == want);
    VARN_FUZZ_CHECK(got.valid());
  }
  check_text_form(data, size < 32 ? size : 32);
  if (ok && got.size() <= 64) check_text_form(got.data(), got.size());
  return 0;
}
