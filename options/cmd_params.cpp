#include "options/cmd_params.hpp"

namespace varn {

bool cmd_params::parse_common_options(arg_list& args) {
  if (take_flag(args, "-pipe")) pipe = true;
  std::string value;
  if (take_value(args, "-filter", value)) filters = build_filter_patterns(value);
  if (take_value(args, "-enumdir", value)) {
    enumerate = true;
    enum_dir = value;
  }
  if (take_value(args, "-dateformat", value)) date_format = value;
  return true;
}

}  // namespace varn
