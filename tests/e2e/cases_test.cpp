// The golden cases of tests/cases/*.case: each is one run of the real binary in a fresh folder.
// The outcome (run header if asked for, standard output after the header, standard error, exit
// status, output files) is written in the case format and must equal the case's expected
// sections to the byte. tests/cases/README.md describes the format; with VARN_CASES_REFRESH=1
// the expected sections are rewritten from the current binary instead.
#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sys/stat.h>

#include "support/capture_text.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

namespace fs = std::filesystem;
const std::string k_cases = std::string(VARN_SOURCE_DIR) + "/tests/cases";

// Splits at blanks; double quotes group ("" is an empty word).
std::vector<std::string> split_words(const std::string& line) {
  std::vector<std::string> words;
  for (size_t i = line.find_first_not_of(" \n"); i < line.size(); i = line.find_first_not_of(" \n", i)) {
    const bool quoted = line[i] == '"';
    const size_t end = quoted ? line.find('"', i + 1) : std::min(line.find_first_of(" \n", i), line.size());
    words.push_back(line.substr(i + quoted, end - i - quoted));
    i = end + quoted;
  }
  return words;
}

// Sections holding DATA: text lines while the bytes are plain text, then hex.
std::string sections_for(const std::string& head, const std::string& data) {
  size_t text = 0;
  while (text < data.size() && (data[text] == '\n' || (data[text] >= 32 && data[text] <= 126))) ++text;
  if (text < data.size()) text = data.rfind('\n', text) + 1;  // whole lines of text (or none), then hex
  const bool eol = text == 0 || data[text - 1] == '\n';
  std::string out = text > 0 || data.empty() ? "== " + head + (eol ? "\n" : " noeol\n") + data.substr(0, text) + (eol ? "" : "\n") : "";
  for (size_t i = text; i < data.size(); ++i) {
    char hex[4];
    std::snprintf(hex, sizeof hex, "%02x%c", static_cast<unsigned char>(data[i]), (i - text) % 32 == 31 || i + 1 == data.size() ? '\n' : ' ');
    out += (i == text ? "== " + head + " hex\n" : "") + hex;
  }
  return out;
}

// The bytes of a setup section: its lines, or the hex digits in them.
std::string content(const std::vector<std::string>& head, const std::string& body) {
  if (std::find(head.begin(), head.end(), "hex") == head.end())
    return std::find(head.begin(), head.end(), "noeol") == head.end() || body.empty() ? body : body.substr(0, body.size() - 1);
  std::string out, digits;
  for (char c : body)
    if (std::isxdigit(static_cast<unsigned char>(c)) && (digits += c).size() == 2) out += static_cast<char>(std::stoi(digits, nullptr, 16)), digits.clear();
  return out;
}

std::vector<std::string> case_names() {
  std::set<std::string> names;
  for (const auto& e : fs::directory_iterator(k_cases))
    if (e.path().extension() == ".case") names.insert(e.path().stem().string());
  return {names.begin(), names.end()};
}

class golden_test : public testing::TestWithParam<std::string> {};

TEST_P(golden_test, run) {
  const std::string path = k_cases + "/" + GetParam() + ".case", text = read_file(path);
  const std::string expected_kinds = " header stdout stderr status ofile end ";
  size_t expected_at = text.size();
  std::vector<std::pair<std::vector<std::string>, std::string>> sections;  // head words, body
  for (size_t at = 0, end; at < text.size(); at = end) {
    end = std::min(text.find('\n', at), text.size() - 1) + 1;
    if (text.compare(at, 3, "== ") == 0) sections.push_back({split_words(text.substr(at + 3, end - at - 3)), ""});
    else if (!sections.empty()) sections.back().second += text.substr(at, end - at);
    if (!sections.empty() && expected_at == text.size() && expected_kinds.find(" " + sections.back().first.at(0) + " ") != std::string::npos)
      expected_at = at;
  }
  const temp_dir dir;
  std::vector<std::string> args, ofiles;
  run_options options{stdin_mode::empty, "", dir.path()};
  bool header = false;
  for (const auto& [head, body] : sections) {
    const std::string kind = head.at(0), target = dir.file(head.size() > 1 ? head[1] : "");
    if (kind == "capture" || kind == "put") {
      fs::create_directories(fs::path(target).parent_path());
      const bool from = head.size() > 3 && head[2] == "from";
      const std::string data = from ? read_file(k_cases + "/" + head[3]) : content(head, body);
      write_file(target, kind == "put" || (from && head[3].ends_with(".pcap")) ? data : capture(data));
    } else if (kind == "setup") {
      for (size_t at = 0, end; at < body.size(); at = end + 1) {
        const std::vector<std::string> w = split_words(body.substr(at, (end = body.find('\n', at)) - at));
        if (w.at(0) == "dir") fs::create_directories(dir.file(w.at(1)));
        if (w.at(0) == "symlink") fs::create_symlink(w.at(1), dir.file(w.at(2)));
        if (w.at(0) == "fifo") ::mkfifo(dir.file(w.at(1)).c_str(), 0600);
      }
    } else if (kind == "args") {
      args.assign(head.begin() + 1, head.end());
    } else if (kind == "stdin") {
      options = {head.size() > 1 && head[1] == "closed" ? stdin_mode::closed : stdin_mode::text, content(head, body), dir.path()};
    } else {
      header = header || kind == "header";
      if (kind == "ofile" && std::find(ofiles.begin(), ofiles.end(), head.at(1)) == ofiles.end()) ofiles.push_back(head[1]);
    }
  }
  ASSERT_TRUE(!sections.empty() && sections.back().first.at(0) == "end") << path << " must end with \"== end\"";

  const run_result r = run_varn(args, options);
  const size_t cut = r.out.find("\n\n");
  // A JSON report (-json) has no run header: standard output is the report from its first byte.
  const bool json_report = !r.out.empty() && r.out[0] == '{';
  std::string outcome = header ? "== header\n" + r.out.substr(0, cut + 1) : "";
  outcome += r.out.empty() ? "== stdout none\n" : sections_for("stdout", json_report ? r.out : r.report());
  const std::string usage = read_file(k_cases + "/usage.txt");
  const bool usage_end = r.err.size() >= usage.size() && r.err.ends_with(usage);
  const std::string err = r.err.substr(0, r.err.size() - (usage_end ? usage.size() : 0));
  outcome += (err.empty() ? "" : sections_for("stderr", err)) + (usage_end ? "== stderr usage\n" : "");
  outcome += r.status == 0 ? "" : "== status " + std::to_string(r.status) + "\n";
  for (const std::string& name : ofiles) {
    const std::string quoted = name.find(' ') == std::string::npos ? name : '"' + name + '"';
    outcome += fs::exists(dir.file(name)) ? sections_for("ofile " + quoted, read_file(dir.file(name))) : "== ofile " + quoted + " absent\n";
  }
  outcome += "== end\n";
  const char* refresh = std::getenv("VARN_CASES_REFRESH");
  if (refresh != nullptr && std::string(refresh) == "1") return write_file(path, text.substr(0, expected_at) + outcome);
  EXPECT_EQ(text.substr(expected_at), outcome) << path;
  EXPECT_TRUE(r.out.empty() || json_report || r.out.rfind("varn - limited ver: 0.40; ", 0) == 0) << "no run header:\n" << r.out;
}

INSTANTIATE_TEST_SUITE_P(cases, golden_test, testing::ValuesIn(case_names()), [](const auto& info) {
  std::string name = info.param;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
});

}  // namespace
}  // namespace varn_test
