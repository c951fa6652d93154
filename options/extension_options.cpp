#include "options/extension_options.hpp"

#include "options/parse_number.hpp"

namespace varn {

bool parse_extension_options(arg_list& args, const varn_options& opts, extension_options& ext,
                             std::string& error) {
  if (take_flag(args, "-any_format")) ext.any_format = true;
  if (take_flag(args, "-json")) ext.json = true;
  if (take_flag(args, "-summary")) ext.summary = true;
  std::string value;
  if (take_value(args, "-idle_timeout", value)) {
    uint32_t seconds = 0;
    if (!parse_number(value, seconds) || seconds == 0) {
      error = "-idle_timeout needs a number of seconds above 0, not \"" + value + "\"";
      return false;
    }
    ext.idle_timeout = seconds;
  }
  if (ext.json && opts.output_format == format_binary) {
    error = "-json cannot be combined with -binary: raw bytes are not JSON (with -json, -dump_hdr and -dump_payload add the bytes in base64)";
    return false;
  }
  return true;
}

bool json_report_requested(const arg_list& args) {
  varn_options probe;
  probe.report_errors = false;
  arg_list rest = args;
  probe.parse_common_options(rest);
  probe.parse_tool_options(rest);
  return find_option(rest, "-json") != std::string::npos;
}

}  // namespace varn
