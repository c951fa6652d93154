#include "capture/byte_pattern.hpp"

#include <cstdlib>
#include <cstring>
#include <string>

#include "options/parse_number.hpp"

namespace varn {

void byte_pattern::reset() {
  m_elements.clear();
  m_anchored.clear();
  m_min_length = 0;
  m_span = 0;
  m_scope = 0;
  m_valid = false;
  m_has_open_gap = false;
}

void byte_pattern::append(const zq::byte_run& run, uint32_t skip) {
  if (run.empty() && skip == 0) return;
  pattern_element e;
  e.literal = run;
  e.has_literal = !run.empty();
  e.skip = static_cast<uint16_t>(skip);
  m_min_length += run.size() + e.skip;
  if (e.skip == open_gap) m_has_open_gap = true;
  m_elements.push_back(std::move(e));
}

bool byte_pattern::build(std::string_view text, bool hexadecimal) {
  reset();
  zq::byte_run run;
  uint32_t wildcards = 0;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(' ', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string token(text.substr(start, end - start));
    start = end + 1;
    if (token.empty()) continue;
    if (token[0] == '?') {
      // A skip is 16 bits wide; longer runs of wildcards stay open gaps.
      if (wildcards < open_gap) ++wildcards;
      continue;
    }
    if (wildcards != 0) {
      append(run, wildcards);
      run.clear();
    }
    uint32_t value = 0;
    if (hexadecimal)
      value = static_cast<uint32_t>(std::strtoul(token.c_str(), nullptr, 16));
    else
      parse_number(token, value);  // a token that does not read gives 0
    run.append(static_cast<uint8_t>(value & 0xff));
    wildcards = 0;
  }
  if (!run.empty()) append(run, wildcards);

  m_valid = m_min_length != 0;
  if (m_valid && !m_has_open_gap) {
    size_t offset = 0;
    for (size_t i = 0; i < m_elements.size(); ++i) {
      const pattern_element& e = m_elements[i];
      if (e.has_literal) {
        m_anchored.push_back({offset, i, e.literal.size()});
        offset += e.literal.size();
        m_span = offset;
      }
      offset += e.skip;
    }
  }
  return m_valid;
}

bool byte_pattern::find_by_walk(const uint8_t* data, size_t n, size_t* at) const noexcept {
  if (m_elements.empty() || data == nullptr || m_min_length > n) return false;
  for (size_t s = 0; s < n; ++s) {
    size_t p = s;
    size_t walked = 0;
    bool mismatch = false;
    for (const pattern_element& e : m_elements) {
      if (p >= n) break;
      if (!e.has_literal) {
        p += e.skip == open_gap ? 0 : e.skip;
      } else {
        const size_t k = e.literal.size();
        if (p + k > n) return false;
        if (walked > 0 && m_elements[walked - 1].skip == open_gap) {
          // After an open gap the literal slides forward until it matches or no longer fits.
          while (p + k <= n && std::memcmp(data + p, e.literal.data(), k) != 0) ++p;
          if (p + k > n) return false;
        } else if (std::memcmp(data + p, e.literal.data(), k) != 0) {
          mismatch = true;
          break;
        }
        p += k + (e.skip == open_gap ? 0 : e.skip);
      }
      ++walked;
    }
    if (mismatch) continue;
    if (walked == m_elements.size()) {
      if (at != nullptr) *at = s;
      return true;
    }
    return false;  // the range ended before the last element
  }
  return false;
}

bool byte_pattern::find(const uint8_t* data, size_t n, size_t* at) const noexcept {
  if (m_has_open_gap) return find_by_walk(data, n, at);
  if (m_elements.empty() || data == nullptr || m_min_length > n || m_anchored.empty()) return false;
  // Every literal sits at a fixed distance from the start, so a start matches exactly when all
  // literals fit and match; the walk's early ends only cut short searches that cannot succeed.
  // Candidates come from memchr on the first literal's first byte.
  const anchored_literal& first = m_anchored.front();
  if (n < m_span) return false;
  const size_t last_start = n - m_span;  // starts beyond this leave a literal hanging off the end
  const uint8_t lead = m_elements[first.element].literal[0];
  size_t s = 0;
  while (s <= last_start) {
    const void* hit = std::memchr(data + s + first.offset, lead, last_start - s + 1);
    if (hit == nullptr) return false;
    s = static_cast<size_t>(static_cast<const uint8_t*>(hit) - data) - first.offset;
    bool ok = true;
    for (const anchored_literal& lit : m_anchored) {
      if (std::memcmp(data + s + lit.offset, m_elements[lit.element].literal.data(), lit.length) != 0) {
        ok = false;
        break;
      }
    }
    if (ok) {
      if (at != nullptr) *at = s;
      return true;
    }
    ++s;
  }
  return false;
}

}  // namespace varn
