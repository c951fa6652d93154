// Number texts of the command line: single numbers and the list options.
#pragma once

#include <cstdint>
#include <set>
#include <string_view>
#include <vector>

namespace varn {

// "0x1f" or "x1f" hexadecimal, "o17" octal, a text starting with a digit, "+" or "-" decimal
// (C library unsigned long conversion up to the first foreign character, truncated to 32 bits),
// or 'c' (quote, character, quote) for the character's code. The base is chosen on the
// lower-cased text: a second character "x" means hexadecimal from the third character on.
// Empty text or any other form fails and leaves OUT 0.
bool parse_number(std::string_view text, uint32_t& out);

// "-icmp_id", "-icmp_type", "-icmp_code": pieces separated by any of "|,; ", each read after
// leading blanks as an unsigned 64-bit number ("0x"/"x" hex, "o" octal, else decimal). Pieces
// that hold no number are skipped.
void read_number_list(std::string_view text, std::vector<uint64_t>& out);

// "-frame": pieces separated by spaces; each piece starting with a digit, "+" or "-" is read as
// a decimal number and added.
void read_frame_list(std::string_view text, std::vector<uint64_t>& out);

}  // namespace varn
