// Option lookup over the argument list: case-insensitive names, first match wins, found entries
// are consumed.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace varn {

using arg_list = std::vector<std::string>;

// Index of the first entry equal to NAME ignoring case (program name included), or npos.
size_t find_option(const arg_list& args, std::string_view name);

// A flag: true when found; the entry is removed.
bool take_flag(arg_list& args, std::string_view name);

// An option with a value: true when found and followed by an entry (whatever it holds); VALUE
// gets that entry and both are removed. An option standing last counts as not given and stays.
bool take_value(arg_list& args, std::string_view name, std::string& value);

}  // namespace varn
