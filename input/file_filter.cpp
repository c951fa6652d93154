#include "input/file_filter.hpp"

#include "zq/zq_text.hpp"

namespace varn {

namespace {

filter_pattern build_one(std::string piece) {
  filter_pattern p;
  if (piece == "*") {
    p.match_all = true;
    p.text = piece;
    return p;
  }
  for (size_t star = piece.find('*'); star != std::string::npos; star = piece.find('*')) {
    if (star == 0)
      p.leading_star = true;
    else if (star == piece.size() - 1)
      p.trailing_star = true;
    piece.erase(star, 1);
  }
  p.text = piece;
  p.is_path = !p.text.empty() && p.text[0] == '/';
  return p;
}

bool matches(const filter_pattern& p, std::string_view file) {
  if (p.match_all) return true;
  if (p.leading_star && p.trailing_star) return file.find(p.text) != std::string_view::npos;
  if (p.leading_star) {
    const size_t at = file.find(p.text);
    return at != std::string_view::npos && at + p.text.size() == file.size();
  }
  if (p.trailing_star) return file.substr(0, p.text.size()) == p.text;
  return file == p.text;
}

}  // namespace

std::vector<filter_pattern> build_filter_patterns(std::string_view value) {
  const std::string lower = zq::to_lower(value);
  char sep = 0;
  if (lower.find('|') != std::string::npos)
    sep = '|';
  else if (lower.find(',') != std::string::npos)
    sep = ',';
  std::vector<filter_pattern> patterns;
  if (sep == 0) {
    patterns.push_back(build_one(lower));
    return patterns;
  }
  size_t start = 0;
  while (true) {
    const size_t end = lower.find(sep, start);
    patterns.push_back(build_one(lower.substr(start, end == std::string::npos ? std::string::npos : end - start)));
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return patterns;
}

void split_path(std::string_view name, std::string_view& directory, std::string_view& file_name) {
  const size_t cut = name.find_last_of("/\\");
  if (cut == std::string_view::npos) {
    directory = std::string_view();
    file_name = name;
  } else {
    directory = name.substr(0, cut + 1);
    file_name = name.substr(cut + 1);
  }
}

bool filter_match(std::string_view name, const std::vector<filter_pattern>& patterns) {
  if (name.empty()) return false;
  if (patterns.empty() || (patterns.size() == 1 && patterns[0].match_all)) return true;
  std::string_view directory, file_name;
  split_path(name, directory, file_name);
  const std::string file = zq::to_lower(file_name);
  for (const filter_pattern& p : patterns)
    if (matches(p, file)) return true;
  return false;
}

}  // namespace varn
