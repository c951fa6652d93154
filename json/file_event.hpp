// The "file" event: what became of one input file, one JSON object on a line of its own, written
// after the events of the file's frames. Members, in this order:
//
//   event_type        "file"
//   pcap_file         the file's name (pcap_file_base64: its exact bytes, only when the name is
//                     not UTF-8)
//   status            "read"; "invalid" (not a capture the reader takes: the text report's
//                     "invalid pcap file, aborting"); "unreadable" (could not be opened: "prob
//                     opening ... for read"); "failed" (opened, but its header could not be read,
//                     e.g. a directory)
//   format            (status "read") the capture format: "pcap", or the name of another format
//                     -any_format reads
//   records           records read and handed to the frame handler (0 when not read)
//   selected          frames selected: the "icmp" events written for the file
//   link_types        (-any_format) the link-layer header types seen, in the order seen
//   skipped           (-any_format) frames not examined, counted by reason: {"reason": count}
//   stopped           when the reader ended the file early on damage it could name: why
#pragma once

#include "json/json_text.hpp"
#include "report/report_writer.hpp"

namespace varn::json {

// The name of STATUS in the "status" member.
const char* status_name(file_outcome::status status) noexcept;

// Writes the event of OUTCOME to J, line end included. ANY_FORMAT adds link_types and skipped
// (empty when the reader found none).
void write_file_event(text& j, const file_outcome& outcome, bool any_format);

}  // namespace varn::json
