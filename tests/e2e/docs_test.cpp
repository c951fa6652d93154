// The usage text, the manual page (varn.1), the bash and zsh completions (completions/varn,
// completions/_varn) and the README describe the same options.
#include <cstdio>
#include <filesystem>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <vector>

#include "e2e/e2e_expect.hpp"
#include "support/run_varn.hpp"

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

// The "-name" that starts each option line of the usage ("   -frame <...> - ...").
name_set usage_option_lines(const std::string& usage) {
  name_set names;
  for (const std::string& line : split_lines(usage)) {
    const size_t at = line.find_first_not_of(' ');
    if (at == std::string::npos || at == 0 || line[at] != '-') continue;
    names.insert(line.substr(at, line.find(' ', at) - at));
  }
  return names;
}

// The option names of the synopsis line (" varn [-ifile <pcap file> | -pipe | -help] [options]").
name_set usage_synopsis(const std::string& usage) {
  name_set names;
  for (const std::string& line : split_lines(usage)) {
    if (line.rfind(" varn [", 0) != 0) continue;
    for (size_t at = line.find('-'); at != std::string::npos; at = line.find('-', at)) {
      const size_t end = line.find_first_not_of("abcdefghijklmnopqrstuvwxyz_", at + 1);
      names.insert(line.substr(at, end - at));
      at = end;
    }
  }
  return names;
}

// The arguments of a man macro line (".BR \-h ", " \-help"), quotes honoured.
std::vector<std::string> macro_arguments(const std::string& line) {
  std::vector<std::string> args;
  size_t i = line.find(' ');
  while (i != std::string::npos && i < line.size()) {
    while (i < line.size() && line[i] == ' ') ++i;
    if (i >= line.size()) break;
    std::string arg;
    if (line[i] == '"') {
      const size_t end = line.find('"', i + 1);
      arg = line.substr(i + 1, end == std::string::npos ? std::string::npos : end - i - 1);
      i = end == std::string::npos ? end : end + 1;
    } else {
      const size_t end = line.find(' ', i);
      arg = line.substr(i, end == std::string::npos ? std::string::npos : end - i);
      i = end;
    }
    args.push_back(arg);
  }
  return args;
}

// Roff text to plain text: "\-" is a minus, font changes are dropped.
std::string unescape_roff(const std::string& text) {
  std::string plain;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text.compare(i, 2, "\\-") == 0) {
      plain += '-';
      ++i;
    } else if (text.compare(i, 2, "\\f") == 0 && i + 2 < text.size() &&
               std::string("BIRP").find(text[i + 2]) != std::string::npos) {
      i += 2;
    } else {
      plain += text[i];
    }
  }
  return plain;
}

// The options documented in varn.1: the tag line after every ".TP" in the OPTIONS section.
name_set man_page_options(const std::string& page) {
  name_set names;
  const std::vector<std::string> lines = split_lines(page);
  bool in_options = false;
  for (size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].rfind(".SH ", 0) == 0) in_options = lines[i] == ".SH OPTIONS";
    if (!in_options || lines[i] != ".TP" || i + 1 >= lines.size()) continue;
    for (const std::string& arg : macro_arguments(lines[i + 1])) {
      const std::string word = unescape_roff(arg);
      if (word == "/?" || (word.size() > 1 && word[0] == '-')) names.insert(word);
    }
  }
  return names;
}

// The options that take a value: those whose tag is set with ".BI".
name_set man_page_value_options(const std::string& page) {
  name_set names;
  const std::vector<std::string> lines = split_lines(page);
  for (size_t i = 0; i + 1 < lines.size(); ++i)
    if (lines[i] == ".TP" && lines[i + 1].rfind(".BI ", 0) == 0)
      names.insert(unescape_roff(macro_arguments(lines[i + 1])[0]));
  return names;
}

std::string man_page() { return read_file(k_source_dir + "/varn.1"); }

// The text of one ".SH" section of varn.1, roff escapes of minus signs and fonts removed.
std::string man_page_section(const std::string& page, const std::string& name) {
  const size_t start = page.find("\n.SH " + name + "\n");
  if (start == std::string::npos) return "";
  return unescape_roff(page.substr(start + 1, page.find("\n.SH ", start + 1) - start));
}

// The zsh completion's option specifications ('-name[description]' or '-name[...]:value...'):
// every option it offers, and those it completes a value for.
void zsh_completion_options(name_set& offered, name_set& with_value) {
  for (const std::string& line : split_lines(read_file(k_source_dir + "/completions/_varn"))) {
    const size_t open = line.find("'-");
    if (open == std::string::npos) continue;
    const size_t bracket = line.find('[', open);
    const size_t close = line.find(']', bracket);
    if (bracket == std::string::npos || close == std::string::npos) continue;
    const std::string name = line.substr(open + 1, bracket - open - 1);
    offered.insert(name);
    if (line.compare(close + 1, 1, ":") == 0) with_value.insert(name);
  }
}

// Runs a bash snippet with the completion file sourced; returns what it printed.
std::string with_completion(const std::string& snippet, const std::string& cwd = ".") {
  const std::string command = "cd '" + cwd + "' && bash -c 'source \"$1\"; " + snippet + "' _ '" + k_source_dir +
                              "/completions/varn'";
  std::string text;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[256];
    while (std::fgets(buf, sizeof buf, p) != nullptr) text += buf;
    EXPECT_EQ(::pclose(p), 0) << command;
  } else {
    ADD_FAILURE() << "could not run bash";
  }
  return text;
}

// What the completion offers for the words after "varn", the last one being completed.
name_set completions_for(const std::string& words, const std::string& cwd = ".") {
  const std::vector<std::string> offered = split_lines(
      with_completion("COMP_WORDS=(varn " + words + "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _varn; "
                      "printf \"%s\\n\" \"${COMPREPLY[@]}\"",
                      cwd));
  name_set names;
  for (const std::string& word : offered)
    if (!word.empty()) names.insert(word);
  return names;
}

std::string join(const name_set& names) {
  std::string text;
  for (const std::string& name : names) text += name + " ";
  return text;
}

TEST(docs_test, usage_lists_the_option_lines_and_synopsis_it_is_known_by) {
  const std::string usage = usage_text();
  const name_set lines = usage_option_lines(usage);
  const name_set expected_lines = {"-frame",     "-srcip",         "-dstip",      "-srcipv6",     "-dstipv6",
                                   "-track_replies", "-min_size",  "-start_time", "-stop_time",   "-find_pattern",
                                   "-icmp_type", "-icmp_code",     "-icmp_id",    "-filter",      "-dump_meta",
                                   "-dump_hdr",  "-dump_payload",  "-ofile",      "-binary",      "-ascii",
                                   "-strings"};
  EXPECT_EQ(join(lines), join(expected_lines));
  EXPECT_EQ(join(usage_synopsis(usage)), join({"-help", "-ifile", "-pipe"}));
}

TEST(docs_test, unlisted_options_are_really_absent_from_the_usage_option_lines) {
  const name_set lines = usage_option_lines(usage_text());
  for (const std::string& name : k_unlisted) EXPECT_EQ(lines.count(name), 0u) << name;
}

TEST(docs_test, man_page_documents_exactly_the_usage_options_and_the_unlisted_ones) {
  const std::string usage = usage_text();
  name_set expected = usage_option_lines(usage);
  const name_set synopsis = usage_synopsis(usage);
  expected.insert(synopsis.begin(), synopsis.end());
  expected.insert(k_unlisted.begin(), k_unlisted.end());
  expected.insert(k_extensions.begin(), k_extensions.end());

  const name_set documented = man_page_options(man_page());
  EXPECT_EQ(join(documented), join(expected));
  for (const std::string& name : expected) EXPECT_EQ(documented.count(name), 1u) << "varn.1 lacks " << name;
  for (const std::string& name : documented) EXPECT_EQ(expected.count(name), 1u) << "varn.1 has unknown " << name;
}

TEST(docs_test, man_page_names_the_version_of_the_banner) {
  const std::string usage = usage_text();
  const std::string marker = "varn - limited ver: ";
  const size_t at = usage.find(marker);
  ASSERT_NE(at, std::string::npos) << usage;
  const size_t end = usage.find(';', at);
  ASSERT_NE(end, std::string::npos) << usage;
  const std::string version = usage.substr(at + marker.size(), end - at - marker.size());
  ASSERT_FALSE(version.empty());
  ASSERT_EQ(version.find_first_not_of("0123456789."), std::string::npos) << version;
  const std::string page = man_page();
  EXPECT_NE(page.find("\n.TH VARN 1 "), std::string::npos);
  EXPECT_NE(page.find("\"varn " + version + "\""), std::string::npos) << "the .TH line should carry varn " << version;
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
  const std::string overview = man_page_section(man_page(), "EXTENSIONS");
  ASSERT_FALSE(overview.empty()) << "varn.1 has no EXTENSIONS section";
  for (const std::string& name : k_extensions)
    EXPECT_NE(overview.find(name), std::string::npos) << "varn.1's EXTENSIONS section does not name " << name;
}

TEST(docs_test, completions_offer_every_documented_option_but_the_glob_spelling) {
  name_set expected = man_page_options(man_page());
  expected.erase("/?");  // a glob character; not offered
  EXPECT_EQ(join(completions_for("\"\"")), join(expected));

  name_set zsh_offered, zsh_with_value;
  zsh_completion_options(zsh_offered, zsh_with_value);
  EXPECT_EQ(join(zsh_offered), join(expected)) << "completions/_varn";
  EXPECT_EQ(join(zsh_with_value), join(man_page_value_options(man_page()))) << "completions/_varn";
}

TEST(docs_test, completion_narrows_by_prefix_and_ignores_case) {
  struct completion_case {
    std::string words;
    name_set expected;
  };
  const std::vector<completion_case> cases = {
      {"-dump_", {"-dump_meta", "-dump_hdr", "-dump_payload"}},
      {"-DUMP_H", {"-dump_hdr"}},
      {"-src", {"-srcip", "-srcipv6"}},
      {"-find_pattern", {"-find_pattern", "-find_pattern_h"}},
      {"-s", {"-srcip", "-srcipv6", "-start_time", "-stop_time", "-strings", "-summary"}},
      {"--", {"--help"}},
      {"-nosuch", {}},
      {"-ifile x.pcap -ascii", {"-ascii"}},
  };
  for (const completion_case& c : cases) EXPECT_EQ(join(completions_for(c.words)), join(c.expected)) << c.words;
}

TEST(docs_test, completion_offers_files_after_ifile_and_ofile_and_directories_after_enumdir) {
  temp_dir dir;
  write_file(dir.file("case-1.pcap"), "x");
  write_file(dir.file("case-2.pcapng"), "x");
  std::filesystem::create_directory(dir.file("case-dir"));
  EXPECT_EQ(join(completions_for("-ifile case", dir.path())), join({"case-1.pcap", "case-2.pcapng", "case-dir"}));
  EXPECT_EQ(join(completions_for("-OFILE case-1", dir.path())), join({"case-1.pcap"}));
  EXPECT_EQ(join(completions_for("-enumdir case", dir.path())), join({"case-dir"}));
  // Values only the user knows: nothing is offered, neither options nor files.
  for (const std::string option : {"-frame", "-filter", "-start_time", "-find_pattern_h", "-icmp_id", "-idle_timeout"})
    EXPECT_EQ(join(completions_for(option + " \"\"", dir.path())), "") << option;
}

// The README shows the usage text as varn prints it, from "Usage" to the last option line.
TEST(docs_test, readme_usage_block_is_the_usage_text) {
  const std::string readme = read_file(k_source_dir + "/README.md");
  const size_t section = readme.find("\n## Usage\n");
  ASSERT_NE(section, std::string::npos);
  const size_t open = readme.find("```\n", section);
  ASSERT_NE(open, std::string::npos);
  const size_t close = readme.find("\n```", open + 4);
  ASSERT_NE(close, std::string::npos);
  const std::string block = readme.substr(open + 4, close + 1 - (open + 4));

  const std::string usage = usage_text();
  const size_t start = usage.find("Usage\n");
  ASSERT_NE(start, std::string::npos);
  std::string expected = usage.substr(start);
  while (expected.size() >= 2 && expected.compare(expected.size() - 2, 2, "\n\n") == 0) expected.pop_back();
  EXPECT_EQ(block, expected);
}

TEST(docs_test, readme_mentions_every_documented_option) {
  const std::string readme = read_file(k_source_dir + "/README.md");
  for (const std::string& name : man_page_options(man_page()))
    EXPECT_NE(readme.find("`" + name), std::string::npos) << "README.md does not mention `" << name << "`";
}

}  // namespace
}  // namespace varn_test
