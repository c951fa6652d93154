// The usage text, the manual page (varn.1), the bash and zsh completions (completions/varn,
// completions/_varn) and the README describe the same options.
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <sstream>

#include "e2e/e2e_expect.hpp"
#include "support/run_varn.hpp"
#include "support/tshark_fields.hpp"

namespace varn_test {
namespace {

using name_set = std::set<std::string>;

const std::string k_source_dir = VARN_SOURCE_DIR;
// Options the usage text does not list on an option line: the pattern option written in bare
// hex, the companions of "-pipe", and the help spellings.
const name_set k_unlisted = {"-find_pattern_h", "-enumdir", "-dateformat", "-h", "-help", "/?", "--help"};
// Options beyond the classic tool: documented in the manual page's OPTIONS and named in its
// EXTENSIONS overview, in the completions and the README; the usage text's information lines
// name the first three, its option lines none.
const name_set k_extensions = {"-any_format", "-json", "-summary", "-idle_timeout"};

std::string usage_text() {
  const run_result r = run_varn({"-help"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  return r.err;
}

// The "-name" that starts each option line ("   -frame <...> - ..."), and those of the synopsis
// line (" varn [-ifile <pcap file> | -pipe | -help] [options]").
name_set usage_options(const std::string& usage, bool synopsis) {
  name_set names;
  for (const std::string& line : split_lines(usage)) {
    const size_t at = line.find_first_not_of(' ');
    if (!synopsis && at != std::string::npos && at > 0 && line[at] == '-')
      names.insert(line.substr(at, line.find(' ', at) - at));
    for (size_t d = line.find('-'); synopsis && line.rfind(" varn [", 0) == 0 && d != std::string::npos; d = line.find('-', d + 1))
      names.insert(line.substr(d, line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", d + 1) - d));
  }
  return names;
}

// Roff text to plain text: "\-" is a minus, font changes are dropped.
std::string unescape_roff(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i)
    if (text.compare(i, 2, "\\-") == 0)
      plain += text[++i];
    else if (text.compare(i, 2, "\\f") == 0 && i + 2 < text.size() && std::string("BIRP").find(text[i + 2]) != std::string::npos)
      i += 2;
    else
      plain += text[i];
  return plain;
}

std::string man_page() { return read_file(k_source_dir + "/varn.1"); }

// The options documented in varn.1: the tag line after every ".TP" in the OPTIONS section; with
// VALUED, only those whose tag is set with ".BI" (they take a value).
name_set man_page_options(bool valued = false) {
  name_set names;
  const std::vector<std::string> lines = split_lines(man_page());
  bool in_options = false;
  for (size_t i = 0; i + 1 < lines.size(); ++i) {
    if (lines[i].rfind(".SH ", 0) == 0) in_options = lines[i] == ".SH OPTIONS";
    if (!in_options || lines[i] != ".TP" || (valued && lines[i + 1].rfind(".BI ", 0) != 0)) continue;
    std::istringstream tag(unescape_roff(lines[i + 1]));
    std::string word;
    for (tag >> word; tag >> word;) {
      std::erase(word, '"');
      if (word == "/?" || (word.size() > 1 && word[0] == '-')) names.insert(word);
    }
  }
  return names;
}

// What the bash completion offers for the words after "varn", the last one being completed.
name_set completions_for(const std::string& words, const std::string& cwd) {
  const std::string command = "cd '" + cwd + "' && bash -c 'source \"$1\"; COMP_WORDS=(varn " + words +
                              "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _varn; printf \"%s\\n\" \"${COMPREPLY[@]}\"' _ '" +
                              k_source_dir + "/completions/varn'; echo \"status $?\"";
  const std::vector<std::string> lines = split_lines(shell_output(command));
  EXPECT_TRUE(!lines.empty() && lines.back() == "status 0") << command;
  name_set names(lines.begin(), lines.end() - !lines.empty());
  names.erase("");
  return names;
}

std::string join(const name_set& names) {
  std::string text;
  for (const std::string& name : names) text += name + " ";
  return text;
}

TEST(docs_test, man_page_documents_exactly_the_usage_options_the_unlisted_and_the_extensions) {
  const std::string usage = usage_text();
  name_set expected = usage_options(usage, false);
  EXPECT_GT(expected.size(), 20u) << usage;
  for (const name_set* absent : {&k_unlisted, &k_extensions})
    for (const std::string& name : *absent) EXPECT_EQ(expected.count(name), 0u) << name << " on a usage option line";
  EXPECT_EQ(join(usage_options(usage, true)), join({"-help", "-ifile", "-pipe"}));
  for (const name_set& more : {usage_options(usage, true), k_unlisted, k_extensions}) expected.insert(more.begin(), more.end());
  EXPECT_EQ(join(man_page_options()), join(expected));
}

TEST(docs_test, man_page_names_the_version_of_the_banner) {
  const std::string usage = usage_text(), marker = "varn - limited ver: ";
  const size_t at = usage.find(marker), end = usage.find(';', at);
  ASSERT_NE(end, std::string::npos) << usage;
  const std::string version = usage.substr(at + marker.size(), end - at - marker.size());
  ASSERT_TRUE(!version.empty() && version.find_first_not_of("0123456789.") == std::string::npos) << version;
  EXPECT_NE(man_page().find("\n.TH VARN 1 "), std::string::npos);
  EXPECT_NE(man_page().find("\"varn " + version + "\""), std::string::npos) << "the .TH line should carry varn " << version;
}

// The information lines above the dashes lead to the extensions and to the manual; varn.1 has
// a section on them.
TEST(docs_test, usage_information_lines_and_man_page_name_the_extensions) {
  const std::string usage = usage_text();
  const size_t dashes = usage.find("\n" + std::string(77, '-') + "\n");
  ASSERT_NE(dashes, std::string::npos) << usage;
  const std::string information = usage.substr(0, dashes + 1);
  EXPECT_EQ(split_lines(information).size(), 2u) << information;
  for (const std::string name : {"-any_format", "-json", "-summary", "man varn"})
    EXPECT_NE(information.find(name), std::string::npos) << name << " is not named in:\n" << information;
  const std::string page = man_page();
  const size_t start = page.find("\n.SH EXTENSIONS\n");
  ASSERT_NE(start, std::string::npos) << "varn.1 has no EXTENSIONS section";
  const std::string overview = unescape_roff(page.substr(start, page.find("\n.SH ", start + 1) - start));
  for (const std::string& name : k_extensions)
    EXPECT_NE(overview.find(name), std::string::npos) << "varn.1's EXTENSIONS section does not name " << name;
}

TEST(docs_test, completions_offer_every_documented_option_but_the_glob_spelling) {
  name_set expected = man_page_options();
  expected.erase("/?");  // a glob character; not offered
  EXPECT_EQ(join(completions_for("\"\"", ".")), join(expected));
  // zsh: '-name[description]', or '-name[...]:value...' for the options that take a value.
  name_set zsh_offered, zsh_with_value;
  for (const std::string& line : split_lines(read_file(k_source_dir + "/completions/_varn"))) {
    const size_t open = line.find("'-"), bracket = line.find('[', open), close = line.find(']', bracket);
    if (open == std::string::npos || close == std::string::npos) continue;
    zsh_offered.insert(line.substr(open + 1, bracket - open - 1));
    if (line.compare(close + 1, 1, ":") == 0) zsh_with_value.insert(line.substr(open + 1, bracket - open - 1));
  }
  EXPECT_EQ(join(zsh_offered), join(expected)) << "completions/_varn";
  EXPECT_EQ(join(zsh_with_value), join(man_page_options(true))) << "completions/_varn";
}

TEST(docs_test, completion_narrows_by_prefix_ignores_case_and_offers_files_or_nothing_after_a_value_option) {
  temp_dir dir;
  write_file(dir.file("case-1.pcap"), "x");
  write_file(dir.file("case-2.pcapng"), "x");
  std::filesystem::create_directory(dir.file("case-dir"));
  const std::vector<std::pair<std::string, name_set>> cases = {
      {"-dump_", {"-dump_meta", "-dump_hdr", "-dump_payload"}},
      {"-DUMP_H", {"-dump_hdr"}},
      {"-src", {"-srcip", "-srcipv6"}},
      {"-find_pattern", {"-find_pattern", "-find_pattern_h"}},
      {"-s", {"-srcip", "-srcipv6", "-start_time", "-stop_time", "-strings", "-summary"}},
      {"--", {"--help"}},
      {"-nosuch", {}},
      {"-ifile x.pcap -ascii", {"-ascii"}},
      {"-ifile case", {"case-1.pcap", "case-2.pcapng", "case-dir"}},
      {"-OFILE case-1", {"case-1.pcap"}},
      {"-enumdir case", {"case-dir"}},
      // Values only the user knows: nothing is offered, neither options nor files.
      {"-frame \"\"", {}}, {"-filter \"\"", {}}, {"-start_time \"\"", {}},
      {"-find_pattern_h \"\"", {}}, {"-icmp_id \"\"", {}}, {"-idle_timeout \"\"", {}},
  };
  for (const auto& [words, expected] : cases) EXPECT_EQ(join(completions_for(words, dir.path())), join(expected)) << words;
}

// The README shows the usage text as varn prints it, from "Usage" to the last option line, and
// mentions every documented option.
TEST(docs_test, readme_shows_the_usage_text_and_mentions_every_documented_option) {
  const std::string readme = read_file(k_source_dir + "/README.md");
  const size_t open = readme.find("```\n", readme.find("\n## Usage\n")), close = readme.find("\n```", open + 4);
  ASSERT_TRUE(readme.find("\n## Usage\n") != std::string::npos && close != std::string::npos);
  const std::string usage = usage_text();
  ASSERT_NE(usage.find("Usage\n"), std::string::npos);
  std::string expected = usage.substr(usage.find("Usage\n"));
  while (expected.ends_with("\n\n")) expected.pop_back();
  EXPECT_EQ(readme.substr(open + 4, close + 1 - (open + 4)), expected);
  for (const std::string& name : man_page_options())
    EXPECT_NE(readme.find("`" + name), std::string::npos) << "README.md does not mention `" << name << "`";
}

}  // namespace
}  // namespace varn_test
