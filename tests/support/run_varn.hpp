// Runs the built varn binary ($VARN_BINARY when set) as a user would and collects what it wrote.
#pragma once

#include <string>
#include <vector>

namespace varn_test {

struct run_result {
  int status = -1;  // exit status (0..255), or 128 + signal number when killed
  std::string out, err;
  std::string report() const;  // standard output after the run header and its empty line
};

// pipe: stdin_text comes through a pipe, written by another process (as `cat FILE | varn`).
enum class stdin_mode { empty, text, closed, pipe };

struct run_options {
  stdin_mode input = stdin_mode::empty;
  std::string stdin_text;
  std::string cwd;  // empty: the current directory
};

std::string varn_binary();
// Runs varn with ARGS (not including the program name; argv[0] is "varn").
run_result run_varn(const std::vector<std::string>& args, const run_options& options = {});

// A fresh folder under the system temp folder, removed with its contents on destruction.
class temp_dir {
 public:
  temp_dir();
  ~temp_dir();
  temp_dir(const temp_dir&) = delete;
  temp_dir& operator=(const temp_dir&) = delete;
  const std::string& path() const { return m_path; }
  std::string file(const std::string& name) const { return m_path + "/" + name; }

 private:
  std::string m_path;
};

std::string read_file(const std::string& path);
void write_file(const std::string& path, const std::string& content);
// The folder of the third-party captures with their expected reports, or empty when absent.
std::string shared_captures_dir();
std::vector<std::string> split_lines(const std::string& text);

}  // namespace varn_test
