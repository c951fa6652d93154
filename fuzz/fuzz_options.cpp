// The option parser on argument vectors made from the input, checked against a plain model of
// the lookup rules: names compared ignoring case over the whole list (program name included),
// the first match used, a flag removed, an option with a value removed with the entry after it
// (whatever that holds), an option standing last not given, the options examined in their
// fixed order, then the defaults that depend on them. The value readers themselves (numbers,
// lists, times, IPv6 texts, patterns) are the product's; their own targets check them.
// The "-filter" patterns built from the value and their test on names are modelled too.
//
// Input: the arguments separated by NUL bytes, the first one standing for the program name.
#include <algorithm>
#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

#include "capture/byte_pattern.hpp"
#include "fuzz/fuzz_support.hpp"
#include "input/file_filter.hpp"
#include "options/arg_list.hpp"
#include "options/parse_number.hpp"
#include "options/varn_options.hpp"
#include "zq/zq_address_text.hpp"

namespace {

std::string lower(std::string s) {
  for (char& c : s) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return s;
}

struct model_args {
  std::vector<std::string> list;

  size_t find(const std::string& name) const {
    for (size_t i = 0; i < list.size(); ++i)
      if (list[i].size() == name.size() && lower(list[i]) == lower(name)) return i;
    return list.size();
  }
  bool flag(const std::string& name) {
    const size_t i = find(name);
    if (i == list.size()) return false;
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(i));
    return true;
  }
  bool value(const std::string& name, std::string& out) {
    const size_t i = find(name);
    if (i + 1 >= list.size()) return false;
    out = list[i + 1];
    list.erase(list.begin() + static_cast<std::ptrdiff_t>(i), list.begin() + static_cast<std::ptrdiff_t>(i) + 2);
    return true;
  }
};

struct model_filter {
  std::string text;
  bool match_all = false, leading = false, trailing = false;
};

std::vector<model_filter> model_filters(const std::string& value) {
  const std::string v = lower(value);
  std::vector<std::string> pieces;
  char sep = 0;
  if (v.find('|') != std::string::npos)
    sep = '|';
  else if (v.find(',') != std::string::npos)
    sep = ',';
  if (sep == 0) {
    pieces.push_back(v);
  } else {
    std::string piece;
    for (char c : v) {
      if (c == sep) {
        pieces.push_back(piece);
        piece.clear();
      } else {
        piece += c;
      }
    }
    pieces.push_back(piece);
  }
  std::vector<model_filter> out;
  for (std::string piece : pieces) {
    model_filter f;
    if (piece == "*") {
      f.match_all = true;
    } else {
      for (size_t star = piece.find('*'); star != std::string::npos; star = piece.find('*')) {
        if (star == 0)
          f.leading = true;
        else if (star + 1 == piece.size())
          f.trailing = true;
        piece.erase(star, 1);
      }
      f.text = piece;
    }
    out.push_back(f);
  }
  return out;
}

bool model_match(const std::string& name, const std::vector<model_filter>& filters) {
  if (name.empty()) return false;
  if (filters.empty() || (filters.size() == 1 && filters[0].match_all)) return true;
  const size_t cut = name.find_last_of("/\\");
  const std::string file = lower(cut == std::string::npos ? name : name.substr(cut + 1));
  for (const model_filter& f : filters) {
    if (f.match_all) return true;
    if (f.leading && f.trailing) {
      if (file.find(f.text) != std::string::npos) return true;
    } else if (f.leading) {
      const size_t at = file.find(f.text);
      if (at != std::string::npos && at + f.text.size() == file.size()) return true;
    } else if (f.trailing) {
      if (file.compare(0, f.text.size(), f.text) == 0 && file.size() >= f.text.size()) return true;
    } else if (file == f.text) {
      return true;
    }
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > 4096) return 0;
  std::vector<std::string> args(1);
  for (size_t i = 0; i < size; ++i) {
    if (data[i] == 0)
      args.emplace_back();
    else
      args.back() += static_cast<char>(data[i]);
  }

  varn::varn_options opts;
  varn::arg_list remaining = args;
  VARN_FUZZ_CHECK(opts.parse_common_options(remaining));
  const bool parsed = opts.parse_tool_options(remaining);

  // The model, in the parser's order.
  model_args m{args};
  std::string v;
  const bool pipe = m.flag("-pipe");
  std::vector<model_filter> filters;
  bool have_filter = false;
  if (m.value("-filter", v)) {
    filters = model_filters(v);
    have_filter = true;
  }
  bool enumerate = false;
  if (m.value("-enumdir", v)) enumerate = true;
  m.value("-dateformat", v);
  VARN_FUZZ_CHECK(opts.pipe == pipe);
  VARN_FUZZ_CHECK(opts.enumerate == enumerate);
  VARN_FUZZ_CHECK(opts.filters.size() == filters.size());
  for (size_t i = 0; i < filters.size(); ++i) {
    const varn::filter_pattern& p = opts.filters[i];
    VARN_FUZZ_CHECK(p.match_all == filters[i].match_all);
    if (!p.match_all) {
      VARN_FUZZ_CHECK(p.text == filters[i].text);
      VARN_FUZZ_CHECK(p.leading_star == filters[i].leading);
      VARN_FUZZ_CHECK(p.trailing_star == filters[i].trailing);
    }
  }
  if (have_filter)
    for (const std::string& name : args) VARN_FUZZ_CHECK(varn::filter_match(name, opts.filters) == model_match(name, filters));

  std::string input_file, output_file;
  if (m.value("-ifile", v)) input_file = v;
  if (m.value("-ofile", v)) output_file = v;
  std::vector<uint64_t> ids, types, codes, frames;
  if (m.value("-icmp_id", v)) varn::read_number_list(v, ids);
  if (m.value("-icmp_type", v)) varn::read_number_list(v, types);
  if (m.value("-icmp_code", v)) varn::read_number_list(v, codes);
  if (m.value("-frame", v)) varn::read_frame_list(v, frames);
  varn::byte_pattern pattern;
  if (m.value("-find_pattern_h", v) && !pattern.build(v, true)) pattern.reset();
  if (m.value("-find_pattern", v) && !pattern.build(v, false)) pattern.reset();
  bool dump_meta = m.flag("-dump_meta");
  const bool dump_hdr = m.flag("-dump_hdr");
  bool dump_payload = m.flag("-dump_payload");
  int32_t format = 1;
  if (m.flag("-binary")) format = 3;
  if (m.flag("-ascii")) format = 2;
  if (m.flag("-strings")) format = 4;
  const bool track = m.flag("-track_replies");
  uint32_t min_size = 0, dst_ip = 0, src_ip = 0;
  if (m.value("-min_size", v)) varn::parse_number(v, min_size);
  if (m.value("-dstip", v)) varn::parse_number(v, dst_ip);
  if (m.value("-srcip", v)) varn::parse_number(v, src_ip);
  zq::byte_run dst6, src6;
  if (m.value("-dstipv6", v) && !zq::parse_ipv6_text(v, dst6)) dst6.clear();
  if (m.value("-srcipv6", v) && !zq::parse_ipv6_text(v, src6)) src6.clear();
  uint64_t start = 0, stop = 0;
  bool start_failed = false;
  if (m.value("-start_time", v)) {
    if (!varn::parse_time_option(v, start) || start == 0) {
      start_failed = true;
    } else {
      stop = ~uint64_t{0};
    }
  }

  if (start_failed) {
    VARN_FUZZ_CHECK(!parsed);
    return 0;
  }
  uint64_t t = 0;
  if (m.value("-stop_time", v) && varn::parse_time_option(v, t)) stop = t;
  if (!dump_hdr && !dump_payload) {
    if (dump_meta) {
      format = 2;
    } else {
      dump_meta = true;
      if (format == 4 || format == 2) dump_payload = true;
    }
  }

  VARN_FUZZ_CHECK(parsed == (!input_file.empty() || pipe || enumerate));
  VARN_FUZZ_CHECK(remaining == m.list);
  VARN_FUZZ_CHECK(opts.input_file == input_file);
  VARN_FUZZ_CHECK(opts.output_file == output_file);
  VARN_FUZZ_CHECK(opts.icmp_ids == ids);
  VARN_FUZZ_CHECK(opts.icmp_types == types);
  VARN_FUZZ_CHECK(opts.icmp_codes == codes);
  VARN_FUZZ_CHECK(opts.frames == frames);
  VARN_FUZZ_CHECK(opts.pattern.valid() == pattern.valid());
  VARN_FUZZ_CHECK(opts.pattern.min_length() == pattern.min_length());
  VARN_FUZZ_CHECK(opts.pattern.elements().size() == pattern.elements().size());
  VARN_FUZZ_CHECK(opts.dump_meta == dump_meta);
  VARN_FUZZ_CHECK(opts.dump_hdr == dump_hdr);
  VARN_FUZZ_CHECK(opts.dump_payload == dump_payload);
  VARN_FUZZ_CHECK(opts.output_format == format);
  VARN_FUZZ_CHECK(opts.run_enabled);
  VARN_FUZZ_CHECK(opts.src_port == 65536 && opts.dst_port == 65536);
  VARN_FUZZ_CHECK(opts.track_replies == track);
  VARN_FUZZ_CHECK(opts.min_size == min_size);
  VARN_FUZZ_CHECK(opts.dst_ip == dst_ip);
  VARN_FUZZ_CHECK(opts.src_ip == src_ip);
  VARN_FUZZ_CHECK(opts.dst_ipv6.bytes() == dst6.bytes());
  VARN_FUZZ_CHECK(opts.src_ipv6.bytes() == src6.bytes());
  VARN_FUZZ_CHECK(opts.start_time == start);
  VARN_FUZZ_CHECK(opts.stop_time == stop);
  return 0;
}
