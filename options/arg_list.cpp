#include "options/arg_list.hpp"

#include "zq/zq_text.hpp"

namespace varn {

size_t find_option(const arg_list& args, std::string_view name) {
  for (size_t i = 0; i < args.size(); ++i)
    if (zq::equals_ci(args[i], name)) return i;
  return std::string::npos;
}

bool take_flag(arg_list& args, std::string_view name) {
  const size_t i = find_option(args, name);
  if (i == std::string::npos) return false;
  args.erase(args.begin() + static_cast<std::ptrdiff_t>(i));
  return true;
}

bool take_value(arg_list& args, std::string_view name, std::string& value) {
  const size_t i = find_option(args, name);
  if (i == std::string::npos || i + 1 >= args.size()) return false;
  value = args[i + 1];
  args.erase(args.begin() + static_cast<std::ptrdiff_t>(i), args.begin() + static_cast<std::ptrdiff_t>(i) + 2);
  return true;
}

}  // namespace varn
