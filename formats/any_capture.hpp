// Reading a capture of any supported format ("-any_format").
#pragma once

#include <string>

#include "capture/frame_context.hpp"
#include "report/report_writer.hpp"

namespace uni {
class out_stream;
}

namespace varn {

// Reads FILE_NAME, whatever its format, and hands every frame whose ICMP message it locates to
// report_icmp_frame with CTX. Writes the reader's messages to CONSOLE (none when null) and what
// became of the file to OUTCOME. True when the file was recognised and read.
bool read_any_capture_file(const std::string& file_name, frame_context* ctx, uni::out_stream* console,
                           file_outcome& outcome);

}  // namespace varn
