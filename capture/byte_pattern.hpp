// Byte pattern with wildcards ("-find_pattern 0x45 ? ? 0x10") and its searcher.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "zq/zq_byterun.hpp"

namespace varn {

struct pattern_element {
  zq::byte_run literal;      // bytes that must match
  bool has_literal = false;  // false only for a leading run of wildcards
  uint16_t skip = 0;         // wildcard bytes after the literal; 65535 is an open gap
};

class byte_pattern {
 public:
  static constexpr uint16_t open_gap = 65535;
  static constexpr uint32_t scope_payload = 4;  // search only the ICMP payload

  // No elements, scope 0, not valid.
  void reset();

  // Compiles TEXT: space-separated tokens, "?..." a wildcard byte, anything else one literal
  // byte (bare hex with HEXADECIMAL, else the command-line number reader; low 8 bits, 0 when the
  // token does not read). Returns valid().
  bool build(std::string_view text, bool hexadecimal);

  // True when the minimum length is not 0.
  bool valid() const noexcept { return m_valid; }
  // Sum of the literal lengths and of every skip.
  size_t min_length() const noexcept { return m_min_length; }
  uint32_t scope() const noexcept { return m_scope; }
  void set_scope(uint32_t scope) noexcept { m_scope = scope; }
  const std::vector<pattern_element>& elements() const noexcept { return m_elements; }

  // Searches the N bytes at DATA; true when the pattern occurs, with the lowest matching start
  // in *AT when AT is not null.
  bool find(const uint8_t* data, size_t n, size_t* at = nullptr) const noexcept;

  // The same answer by the plain start-by-start walk, kept to check find() against.
  bool find_by_walk(const uint8_t* data, size_t n, size_t* at = nullptr) const noexcept;

 private:
  void append(const zq::byte_run& run, uint32_t skip);

  std::vector<pattern_element> m_elements;
  size_t m_min_length = 0;
  uint32_t m_scope = 0;
  bool m_valid = false;
  bool m_has_open_gap = false;
  // Literal elements at fixed distances from the match start, for find(). They name their
  // element by index, so that a copied pattern searches with its own bytes.
  struct anchored_literal {
    size_t offset;
    size_t element;
    size_t length;
  };
  std::vector<anchored_literal> m_anchored;
  size_t m_span = 0;  // end of the last literal relative to the start
};

}  // namespace varn
