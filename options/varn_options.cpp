#include "options/varn_options.hpp"

#include <string_view>

#include "options/parse_number.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_address_text.hpp"
#include "zq/zq_time.hpp"

namespace varn {

bool parse_time_option(const std::string& value, uint64_t& out) {
  const size_t blank = value.find(' ');
  const std::string_view date = std::string_view(value).substr(0, blank);
  zq::calendar_time ct;
  bool ok;
  if (blank == std::string::npos) {
    ok = zq::parse_date_time_text(date, nullptr, ct);
  } else {
    const std::string_view time_text = std::string_view(value).substr(blank + 1);
    ok = zq::parse_date_time_text(date, &time_text, ct);
  }
  if (!ok) return false;
  out = zq::calendar_to_time_value(ct);
  return true;
}

bool varn_options::parse_tool_options(arg_list& args) {
  std::string value;
  if (take_value(args, "-ifile", value)) input_file = value;
  if (take_value(args, "-ofile", value)) output_file = value;
  if (take_value(args, "-icmp_id", value)) read_number_list(value, icmp_ids);
  if (take_value(args, "-icmp_type", value)) read_number_list(value, icmp_types);
  if (take_value(args, "-icmp_code", value)) read_number_list(value, icmp_codes);
  if (take_value(args, "-frame", value)) read_frame_list(value, frames);
  if (take_value(args, "-find_pattern_h", value) && !pattern.build(value, true)) pattern.reset();
  if (take_value(args, "-find_pattern", value) && !pattern.build(value, false)) pattern.reset();
  if (take_flag(args, "-dump_meta")) dump_meta = dump_meta_given = true;
  if (take_flag(args, "-dump_hdr")) dump_hdr = dump_hdr_given = true;
  if (take_flag(args, "-dump_payload")) dump_payload = dump_payload_given = true;
  if (take_flag(args, "-binary")) output_format = format_binary;
  if (take_flag(args, "-ascii")) output_format = format_ascii;
  if (take_flag(args, "-strings")) output_format = format_strings;
  run_enabled = true;
  if (take_flag(args, "-track_replies")) track_replies = true;
  if (take_value(args, "-min_size", value)) parse_number(value, min_size);
  if (take_value(args, "-dstip", value)) parse_number(value, dst_ip);
  if (take_value(args, "-srcip", value)) parse_number(value, src_ip);
  if (take_value(args, "-dstipv6", value) && !zq::parse_ipv6_text(value, dst_ipv6)) dst_ipv6.clear();
  if (take_value(args, "-srcipv6", value) && !zq::parse_ipv6_text(value, src_ipv6)) src_ipv6.clear();
  if (take_value(args, "-start_time", value)) {
    start_time = 0;
    parse_time_option(value, start_time);
    if (start_time == 0) {
      if (report_errors) uni::write_stderr("Error: invalid filter start time\n");
      return false;
    }
    stop_time = ~uint64_t{0};
  }
  if (take_value(args, "-stop_time", value)) {
    uint64_t t;
    if (parse_time_option(value, t)) stop_time = t;
  }

  if (!dump_hdr && !dump_payload) {
    if (dump_meta) {
      output_format = format_ascii;
    } else {
      dump_meta = true;
      if (output_format == format_strings || output_format == format_ascii) dump_payload = true;
    }
  }
  return !input_file.empty() || pipe || enumerate;
}

}  // namespace varn
