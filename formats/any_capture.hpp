// Reading a capture of any supported format ("-any_format"): classic pcap in all its variants and
// pcapng, from a file, a pipe, a FIFO or standard input, in one pass.
#pragma once

#include <string>

#include "capture/frame_context.hpp"
#include "report/report_writer.hpp"

namespace uni {
class out_stream;
}

namespace varn {

// Reads FILE_NAME, whatever its format, and hands every frame whose ICMP message it locates to
// report_icmp_frame with CTX. Writes the reader's messages to CONSOLE (none when null):
// "Processing file: NAME" (or "prob opening NAME for read"), "invalid pcap file, aborting" for a
// file of no known format, and after the frames a line on the frames skipped and one on why the
// walk stopped early, when there are such. Fills OUTCOME (status, format, link types, records,
// skipped frames by reason, stop reason). True when the file was recognised and read.
bool read_any_capture_file(const std::string& file_name, frame_context* ctx, uni::out_stream* console,
                           file_outcome& outcome);

}  // namespace varn
