#include "zq/zq_strings.hpp"

#include <cstring>

#include "zq/zq_text.hpp"

namespace zq {

namespace {

inline bool is_run_whitespace(uint8_t b) noexcept { return b == '\r' || b == '\n' || b == '\t'; }

inline bool is_strict_excluded(uint8_t b) noexcept {
  return b != 0 && std::strchr("`^|{}[]<>\\~", b) != nullptr;
}

inline bool accepted(uint8_t b, bool allow_whitespace, bool strict) noexcept {
  if (allow_whitespace && is_run_whitespace(b)) return true;
  if (!is_printable(b)) return false;
  return !(strict && is_strict_excluded(b));
}

}  // namespace

bool extract_ascii_strings(const uint8_t* data, uint32_t length, uint32_t min_length,
                           std::vector<std::string>& strings, std::vector<uint64_t>& offsets,
                           bool allow_whitespace, bool strict) {
  strings.clear();
  offsets.clear();
  if (data == nullptr || length == 0) return false;
  std::string run;
  bool non_blank = false;
  for (uint32_t i = 0; i < length; ++i) {
    const uint8_t b = data[i];
    if (accepted(b, allow_whitespace, strict)) {
      if (run.empty() && b == ' ') continue;  // runs never begin with a space
      run.push_back(static_cast<char>(b));
      if (b != ' ') non_blank = true;
    } else {
      if (run.size() >= min_length && non_blank) {
        strings.push_back(run);
        offsets.push_back(i - run.size());
      }
      run.clear();
      non_blank = false;
    }
  }
  if (run.size() >= min_length) {
    strings.push_back(run);
    offsets.push_back(length - run.size());
  }
  return true;
}

bool extract_unicode_strings(const uint8_t* data, uint32_t length, uint32_t min_length,
                             std::vector<std::string>& strings, std::vector<uint64_t>& offsets,
                             bool allow_whitespace, bool reserved) {
  strings.clear();
  offsets.clear();
  if (data == nullptr || length == 0 || reserved) return false;
  std::string run;
  uint64_t i = 0;
  while (i + 1 < length) {
    const uint8_t lo = data[i];
    if (data[i + 1] == 0 && accepted(lo, allow_whitespace, false)) {
      if (!(run.empty() && lo == ' ')) run.push_back(static_cast<char>(lo));
      i += 2;
    } else {
      if (run.size() >= min_length) {
        strings.push_back(run);
        offsets.push_back(i - 2 * run.size());
      }
      run.clear();
      i += 1;
    }
  }
  if (run.size() >= min_length) {
    strings.push_back(run);
    offsets.push_back(i - 2 * run.size());
  }
  return true;
}

}  // namespace zq
