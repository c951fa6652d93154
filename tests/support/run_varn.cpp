#include "support/run_varn.hpp"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace varn_test {

std::string run_result::report() const {
  // The run header ends with its empty line: the first "\n\n" of the output.
  const size_t cut = out.find("\n\n");
  return cut == std::string::npos ? out : out.substr(cut + 2);
}

std::string varn_binary() { return std::getenv("VARN_BINARY") != nullptr ? std::getenv("VARN_BINARY") : VARN_BINARY_PATH; }

run_result run_varn(const std::vector<std::string>& args, const run_options& options) {
  // Standard input, output and error go through files: no pipe can fill up.
  const temp_dir io;
  write_file(io.file("in"), options.input == stdin_mode::text ? options.stdin_text : "");
  const std::string binary = varn_binary();
  std::vector<std::string> argv_text{"varn"};
  argv_text.insert(argv_text.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (std::string& a : argv_text) argv.push_back(a.data());
  argv.push_back(nullptr);
  int feed[2] = {-1, -1};
  pid_t writer = -1;
  if (options.input == stdin_mode::pipe && ::pipe(feed) == 0) {
    writer = fork();
    if (writer == 0) {  // ends by SIGPIPE when varn stops reading early
      ::close(feed[0]);
      for (size_t at = 0; at < options.stdin_text.size();) {
        const ssize_t n = ::write(feed[1], options.stdin_text.data() + at, options.stdin_text.size() - at);
        if (n <= 0) _exit(1);
        at += static_cast<size_t>(n);
      }
      _exit(0);
    }
  }
  const pid_t pid = fork();
  if (pid == 0) {
    const int in = feed[0] >= 0 ? feed[0] : ::open(io.file("in").c_str(), O_RDONLY),
              out = ::open(io.file("out").c_str(), O_WRONLY | O_CREAT, 0600), err = ::open(io.file("err").c_str(), O_WRONLY | O_CREAT, 0600);
    if (feed[1] >= 0) ::close(feed[1]);
    if (in < 0 || out < 0 || err < 0 || dup2(in, 0) < 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0) _exit(126);
    if (options.input == stdin_mode::closed) close(0);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) _exit(126);
    execv(binary.c_str(), argv.data());
    _exit(127);
  }
  for (const int fd : feed)
    if (fd >= 0) ::close(fd);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) continue;
  for (int writer_status; writer > 0 && waitpid(writer, &writer_status, 0) < 0 && errno == EINTR;) continue;
  return {WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status), read_file(io.file("out")), read_file(io.file("err"))};
}

temp_dir::temp_dir() {
  std::string name = (std::filesystem::temp_directory_path() / "varn-test-XXXXXX").string();
  if (mkdtemp(name.data()) != nullptr) m_path = name;
}

temp_dir::~temp_dir() {
  if (std::error_code ec; !m_path.empty()) std::filesystem::remove_all(m_path, ec);
}

std::string read_file(const std::string& path) {
  std::ostringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string shared_captures_dir() {
  for (const std::string dir : {VARN_SHARED_CAPTURES, "/work/shared/captures"})
    if (!dir.empty() && std::filesystem::exists(dir + "/expected")) return dir;
  return {};
}

std::vector<std::string> split_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

}  // namespace varn_test
