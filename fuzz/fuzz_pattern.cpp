// The byte pattern builder and searcher.
//
// Input: byte 0 chooses the mode (bit 0: the tokens are bare hexadecimal as with
// "-find_pattern_h"; bit 1: the pattern is cut from the data). As text, the bytes after byte 0
// up to the first NUL are the pattern text and the bytes after that NUL the data searched. Cut
// from the data, byte 1 gives the length (low 3 bits, plus one) and the wildcard positions
// (high 5 bits), byte 2 the offset, and the data starts at byte 3; the pattern then occurs at
// that offset at the latest.
// Checks:
// - the elements are those of a plain model of the builder (literal runs closed by wildcards,
//   leading wildcards as a skip without literal, trailing wildcards as the last skip);
// - the minimum length is the sum of the literal lengths and the skips, valid exactly when
//   it is not 0;
// - find() and find_by_walk() agree on the answer and the start;
// - without an open gap both agree with a plain start-by-start walk.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "capture/byte_pattern.hpp"
#include "fuzz/fuzz_support.hpp"
#include "options/parse_number.hpp"

namespace {

struct model_element {
  std::vector<uint8_t> literal;
  uint32_t skip;
};

std::vector<model_element> model_build(std::string_view text, bool hexadecimal) {
  std::vector<model_element> out;
  std::vector<uint8_t> run;
  uint32_t w = 0;
  auto append = [&](uint32_t skip) {
    if (!run.empty() || skip != 0) out.push_back({run, skip});
  };
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find(' ', start);
    if (end == std::string_view::npos) end = text.size();
    const std::string token(text.substr(start, end - start));
    start = end + 1;
    if (token.empty()) continue;
    if (token[0] == '?') {
      if (w < varn::byte_pattern::open_gap) ++w;
      continue;
    }
    if (w != 0) {
      append(w);
      run.clear();
    }
    uint32_t value = 0;
    if (hexadecimal)
      value = static_cast<uint32_t>(std::strtoul(token.c_str(), nullptr, 16));
    else
      varn::parse_number(token, value);
    run.push_back(static_cast<uint8_t>(value));
    w = 0;
  }
  if (!run.empty()) append(w);
  return out;
}

// The start of the first match, or -1.
long model_search(const std::vector<model_element>& elements, size_t min_length, const uint8_t* data, size_t n) {
  if (elements.empty() || n == 0 || min_length > n) return -1;
  for (size_t s = 0; s < n; ++s) {
    size_t p = s, walked = 0;
    bool mismatch = false;
    for (const model_element& e : elements) {
      if (p >= n) break;
      if (!e.literal.empty()) {
        const size_t k = e.literal.size();
        if (p + k > n) return -1;
        if (std::memcmp(data + p, e.literal.data(), k) != 0) {
          mismatch = true;
          break;
        }
        p += k;
      }
      p += e.skip;
      ++walked;
    }
    if (mismatch) continue;
    return walked == elements.size() ? static_cast<long>(s) : -1;
  }
  return -1;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1 || size > 8192) return 0;
  const bool hexadecimal = (data[0] & 1) != 0;
  std::string text;
  const uint8_t* hay = nullptr;
  size_t n = 0;
  long planted = -1;  // where the pattern is known to occur
  if ((data[0] & 2) != 0 && size >= 4) {
    hay = data + 3;
    n = size - 3;
    const size_t k = (data[1] & 7u) + 1;
    const size_t at = data[2] % n;
    if (at + k <= n) {
      for (size_t i = 0; i < k; ++i) {
        if (!text.empty()) text += ' ';
        char token[8];
        if (data[1] >> (3 + i) & 1 && i < 5)
          std::snprintf(token, sizeof token, "?");
        else
          std::snprintf(token, sizeof token, hexadecimal ? "%02x" : "0x%02x", hay[at + i]);
        text += token;
      }
      planted = static_cast<long>(at);
    }
  } else {
    const uint8_t* end = static_cast<const uint8_t*>(std::memchr(data + 1, 0, size - 1));
    const size_t text_end = end == nullptr ? size : static_cast<size_t>(end - data);
    text.assign(reinterpret_cast<const char*>(data + 1), text_end - 1);
    hay = text_end < size ? data + text_end + 1 : data + size;
    n = text_end < size ? size - text_end - 1 : 0;
  }

  varn::byte_pattern pattern;
  const bool valid = pattern.build(text, hexadecimal);
  const std::vector<model_element> model = model_build(text, hexadecimal);

  size_t model_min = 0;
  bool open_gap = false;
  VARN_FUZZ_CHECK(pattern.elements().size() == model.size());
  for (size_t i = 0; i < model.size(); ++i) {
    const varn::pattern_element& e = pattern.elements()[i];
    VARN_FUZZ_CHECK(e.has_literal == !model[i].literal.empty());
    VARN_FUZZ_CHECK(std::vector<uint8_t>(e.literal.data(), e.literal.data() + e.literal.size()) == model[i].literal);
    VARN_FUZZ_CHECK(e.skip == model[i].skip);
    model_min += model[i].literal.size() + model[i].skip;
    open_gap = open_gap || model[i].skip == varn::byte_pattern::open_gap;
  }
  VARN_FUZZ_CHECK(pattern.min_length() == model_min);
  VARN_FUZZ_CHECK(valid == (model_min != 0));
  VARN_FUZZ_CHECK(pattern.valid() == valid);
  VARN_FUZZ_CHECK(pattern.scope() == 0);

  size_t at_find = ~size_t{0}, at_walk = ~size_t{0};
  const bool found = pattern.find(hay, n, &at_find);
  const bool walked = pattern.find_by_walk(hay, n, &at_walk);
  VARN_FUZZ_CHECK(found == walked);
  if (found) VARN_FUZZ_CHECK(at_find == at_walk);
  VARN_FUZZ_CHECK(pattern.find(hay, n) == found);

  if (!open_gap) {
    const long want = model_search(model, model_min, hay, n);
    VARN_FUZZ_CHECK(found == (want >= 0));
    if (found) VARN_FUZZ_CHECK(static_cast<long>(at_find) == want);
    if (valid && planted >= 0) {
      VARN_FUZZ_CHECK(found);
      VARN_FUZZ_CHECK(static_cast<long>(at_find) <= planted);
    }
  }
  return 0;
}
