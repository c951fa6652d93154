// varn_options: the parsed command line of a run.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "capture/byte_pattern.hpp"
#include "options/cmd_params.hpp"
#include "zq/zq_byterun.hpp"

namespace varn {

enum output_format_code : int32_t {
  format_hex = 1,
  format_ascii = 2,
  format_binary = 3,
  format_strings = 4,
};

class varn_options : public cmd_params {
 public:
  ~varn_options() override = default;

  // Reads the tool's options from ARGS (consuming what it finds), applies the defaults that
  // depend on them, and returns whether the command line names an input. An invalid
  // "-start_time" writes "Error: invalid filter start time" to standard error and fails.
  bool parse_tool_options(arg_list& args);

  std::string input_file;
  std::string output_file;
  std::vector<uint64_t> icmp_ids;
  std::vector<uint64_t> icmp_types;
  std::vector<uint64_t> icmp_codes;
  std::vector<uint64_t> frames;
  byte_pattern pattern;
  bool dump_meta = false;
  bool dump_hdr = false;
  bool dump_payload = false;
  int32_t output_format = format_hex;
  bool run_enabled = false;
  uint32_t src_port = 65536;  // one above the largest port: no filter
  uint32_t dst_port = 65536;
  bool track_replies = false;
  uint32_t min_size = 0;
  uint32_t dst_ip = 0;
  uint32_t src_ip = 0;
  zq::byte_run dst_ipv6;
  zq::byte_run src_ipv6;
  uint64_t start_time = 0;
  uint64_t stop_time = 0;

  // Which dump options the command line itself gave, before the defaults above fill in the
  // rest (the conversation analysis writes frame lines only when asked for them).
  bool dump_meta_given = false;
  bool dump_hdr_given = false;
  bool dump_payload_given = false;
  // False: parse without writing the start-time error (a look ahead at the command line).
  bool report_errors = true;
};

// Reads "-start_time"/"-stop_time" text ("mm/dd/yy hh:mm:ss": date, then after the first blank
// the time) into a time value. False when it does not read.
bool parse_time_option(const std::string& value, uint64_t& out);

}  // namespace varn
