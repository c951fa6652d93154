// The text rendering of conversations: one line each under a column header, in the report's
// padded " , " style. A flagged conversation's line starts with "**" and ends with "FLAGGED:"
// and the names of its indicators.
#pragma once

#include <string>

#include "conversations/conversation_tracker.hpp"
#include "zq/zq_time.hpp"

namespace uni {
class out_stream;
}

namespace varn::conversations {

// The column header, its line end and an empty line included.
std::string conversation_column_header();

// Writes the line of C to OUT, its line end included. TIMES remembers the last second's texts.
void write_conversation_line(uni::out_stream& out, const closed_conversation& c, zq::capture_time_texts& times);

// The names of the indicators in the bit set BITS, joined by SEPARATOR.
std::string indicator_names(uint32_t bits, const char* separator);

}  // namespace varn::conversations
