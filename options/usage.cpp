#include "options/usage.hpp"

#include "options/arg_list.hpp"

namespace varn {

namespace {

constexpr const char* k_usage_lines =
    "Usage\n"
    "\n"
    " %s [-ifile <pcap file> | -pipe | -help] [options]\n"
    "\n"
    "  Any combination of these options can be used for filtering\n"
    "   -frame <\"1 2 3 ..\"> - only process the frame numbers specified\n"
    "   -srcip <src ip>     - src ip use dotted decimal notation\n"
    "   -dstip <dst ip>     - dst ip use dotted decimal notation\n"
    "   -srcipv6 <src ip>   - src ip v6 use colon delimited std::hex notation\n"
    "   -dstipv6 <dst ip>   - dst ip v6 use colon delimited std::hex notation\n"
    "   -track_replies      - given src & dst above, process replies\n"
    "   -min_size <size>    - output those frames >= the specified size\n"
    "   -start_time <\"mm/dd/yy hh:mm:ss\">\n"
    "   -stop_time <\"mm/dd/yy hh:mm:ss\">\n"
    "   -find_pattern <\"byte sequence delimited by spaces\">\n"
    "   -icmp_type <\"type1 type2\"> - process only these icmp types \n"
    "   -icmp_code <\"code1 code2\"> - process only these icmp codes \n"
    "   -icmp_id <\"1 2 3 ...\">     - process only these icmp ID numbers\n"
    "   -filter <*partial*|*.ext>  - filters stdin data from -pipe option\n"
    "\n"
    "  Any combination these options can be used for output\n"
    "   -dump_meta          - output metadata (only for non-binary output)\n"
    "   -dump_hdr           - output packet header\n"
    "   -dump_payload       - output packet payload data\n"
    "   -ofile <out file>   - output results to specified file\n"
    "\n"
    "  Only one of these options can be used for formatting (default is std::hex)\n"
    "   -binary             - output data as binary (use with -ofile option)\n"
    "   -ascii              - output data in ascii form\n"
    "   -strings            - output any strings (include unicode)\n"
    "\n";

std::string base_name(const std::string& path) {
  const size_t cut = path.find_last_of('/');
  if (cut == std::string::npos || cut + 1 >= path.size()) return path;
  return path.substr(cut + 1);
}

}  // namespace

std::string banner_text() {
  return "varn - limited ver: 0.40; ICMP and ICMPv6 frame reporter for pcap captures";
}

std::string usage_text(const std::string& program_path) {
  std::string text;
  // Two information lines: the extension options, which the option lines below do not list,
  // and where every option is described.
  text += "extensions: -any_format reads pcapng and more, -json writes JSON Lines\n";
  text += "and -summary reports ICMP conversations; man varn describes every option\n";
  text += std::string(77, '-') + "\n\n";
  text += banner_text() + "\n\n";
  std::string usage = k_usage_lines;
  const size_t at = usage.find("%s");
  usage.replace(at, 2, base_name(program_path));
  text += usage;
  return text;
}

std::string run_header(const std::vector<std::string>& args) {
  std::string header = banner_text() + "\n";
  if (find_option(args, "-pipe") != std::string::npos) header += "<filelist> ... | ";
  for (size_t i = 0; i < args.size(); ++i) {
    if (i > 0) header += ' ';
    if (args[i].find(' ') != std::string::npos)
      header += '"' + args[i] + '"';
    else
      header += args[i];
  }
  header += "\n\n";
  return header;
}

}  // namespace varn
