// String extraction: runs of printable ascii bytes and of UTF-16LE units with a zero high byte.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace zq {

// Finds the runs of at least MIN_LENGTH printable bytes (32..126) in DATA. A run never begins
// with a space; a run ended by a non-printable byte is kept only when it holds a non-space
// character. ALLOW_WHITESPACE also accepts CR, LF and tab inside runs; STRICT ends runs at the
// bracket-like punctuation ` ^ | { } [ ] < > \ ~. STRINGS and OFFSETS (start index of each run)
// are emptied first. Returns false, with empty lists, for null DATA or LENGTH 0.
bool extract_ascii_strings(const uint8_t* data, uint32_t length, uint32_t min_length,
                           std::vector<std::string>& strings, std::vector<uint64_t>& offsets,
                           bool allow_whitespace, bool strict);

// Finds the runs of at least MIN_LENGTH 16-bit little-endian units whose low byte is printable
// and whose high byte is 0; each string holds the low bytes. After a unit that breaks a run the
// scan moves on by one byte, so runs starting at odd offsets are found too. RESERVED must be
// false. Same list and result contract as extract_ascii_strings.
bool extract_unicode_strings(const uint8_t* data, uint32_t length, uint32_t min_length,
                             std::vector<std::string>& strings, std::vector<uint64_t>& offsets,
                             bool allow_whitespace, bool reserved);

}  // namespace zq
