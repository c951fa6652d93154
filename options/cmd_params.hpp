// cmd_params: the options every tool of the family shares ("-pipe", "-filter", "-enumdir",
// "-dateformat"), read before a tool's own options.
#pragma once

#include <string>
#include <vector>

#include "input/file_filter.hpp"
#include "options/arg_list.hpp"

namespace varn {

class cmd_params {
 public:
  virtual ~cmd_params() = default;

  // Looks up and consumes the common options (same lookup rules as the tool's own). Never fails.
  bool parse_common_options(arg_list& args);

  bool pipe = false;                     // "-pipe": capture names come from standard input
  std::vector<filter_pattern> filters;   // "-filter <patterns>"
  bool enumerate = false;                // "-enumdir <directory>" was given
  std::string enum_dir;                  // its directory
  std::string date_format = "mm/dd/yyyy";  // "-dateformat <text>": accepted, no effect
};

}  // namespace varn
