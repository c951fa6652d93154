// The text rendering of conversations: one line each under a column header, in the report's
// padded " , " style. A flagged conversation's line starts with "**" and ends with "FLAGGED:"
// and the names of its indicators.
#pragma once

#include <string>

#include "conversations/conversation_tracker.hpp"

namespace varn::conversations {

// The column header, its line end and an empty line included.
std::string conversation_column_header();

// The line of C, its line end included.
std::string conversation_line(const closed_conversation& c);

// Comma-separated names of the indicators in the bit set BITS ("tunnel_signature, ...").
std::string indicator_names(uint32_t bits, const char* separator);

}  // namespace varn::conversations
