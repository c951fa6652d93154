// frame_context: the per-run settings the driver hands to the frame handler, the filters and
// the report writers.
#pragma once

#include <cstdint>
#include <set>
#include <vector>

#include "capture/byte_pattern.hpp"

namespace uni {
class out_stream;
}

namespace varn {

class metadata_batch;
class report_writer;

struct frame_context {
  uint32_t min_size = 0;              // smallest accepted orig_len; 0 accepts all
  uint32_t src_ip = 0;                // source address bytes read little-endian; 0 = unset
  uint32_t dst_ip = 0;
  std::vector<uint8_t> src_ipv6;      // address bytes as the IPv6 reader gave them; empty = unset
  std::vector<uint8_t> dst_ipv6;
  bool track_replies = false;         // address filters match in either direction
  std::vector<int64_t> icmp_types;    // empty = all; low 8 bits compared
  std::vector<int64_t> icmp_codes;
  std::set<uint64_t> icmp_ids;
  uint32_t src_port = 65536;          // above 65535 = unset; no option sets the ports
  uint32_t dst_port = 65536;
  int32_t output_format = 1;          // 1 hex, 2 ascii, 3 binary, 4 strings
  bool dump_meta = false;
  bool dump_hdr = false;
  bool dump_payload = false;
  bool meta_header_pending = true;    // the metadata column header is still to be written
  bool meta_comma_separated = true;
  bool meta_padded = true;
  std::set<uint64_t> frames;          // empty = all
  byte_pattern pattern;               // not valid = no pattern filter
  uint64_t start_time = 0;            // time values; 0 = unset
  uint64_t stop_time = 0;
  uni::out_stream* out = nullptr;     // the report sink; not owned
  metadata_batch* deferred_lines = nullptr;  // when set, metadata lines are queued there; not owned
  report_writer* writer = nullptr;   // when set, selected frames go there instead of the text report
  uint64_t selected_in_file = 0;     // frames selected in the current input file
};

}  // namespace varn
