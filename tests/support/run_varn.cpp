#include "support/run_varn.hpp"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <signal.h>
#include <sstream>
#include <sys/wait.h>
#include <unistd.h>

namespace varn_test {

std::string run_result::report() const {
  // The run header ends with its empty line: the first "\n\n" of the output.
  const size_t cut = out.find("\n\n");
  return cut == std::string::npos ? out : out.substr(cut + 2);
}

std::string varn_binary() {
  if (const char* env = std::getenv("VARN_BINARY")) return env;
  return VARN_BINARY_PATH;
}

run_result run_varn(const std::vector<std::string>& args, const run_options& options) {
  int out_pipe[2], err_pipe[2], in_pipe[2];
  if (pipe(out_pipe) != 0 || pipe(err_pipe) != 0 || pipe(in_pipe) != 0) return {};
  const std::string binary = varn_binary();
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(out_pipe[1], 1);
    dup2(err_pipe[1], 2);
    if (options.input == stdin_mode::closed)
      close(0);
    else
      dup2(in_pipe[0], 0);
    for (int fd : {out_pipe[0], out_pipe[1], err_pipe[0], err_pipe[1], in_pipe[0], in_pipe[1]}) close(fd);
    if (!options.cwd.empty() && chdir(options.cwd.c_str()) != 0) _exit(126);
    std::vector<char*> argv;
    argv.push_back(const_cast<char*>("varn"));
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    execv(binary.c_str(), argv.data());
    _exit(127);
  }
  close(out_pipe[1]);
  close(err_pipe[1]);
  close(in_pipe[0]);
  signal(SIGPIPE, SIG_IGN);

  run_result r;
  std::string to_write = options.input == stdin_mode::text ? options.stdin_text : std::string();
  size_t written = 0;
  int in_fd = in_pipe[1];
  if (to_write.empty()) {
    close(in_fd);
    in_fd = -1;
  } else {
    fcntl(in_fd, F_SETFL, O_NONBLOCK);
  }
  bool out_open = true, err_open = true;
  char buf[65536];
  while (out_open || err_open) {
    pollfd fds[3];
    int n = 0;
    if (out_open) fds[n++] = {out_pipe[0], POLLIN, 0};
    if (err_open) fds[n++] = {err_pipe[0], POLLIN, 0};
    if (in_fd >= 0) fds[n++] = {in_fd, POLLOUT, 0};
    if (poll(fds, static_cast<nfds_t>(n), -1) < 0) {
      if (errno == EINTR) continue;
      break;
    }
    for (int i = 0; i < n; ++i) {
      if (fds[i].revents == 0) continue;
      if (fds[i].fd == in_fd) {
        const ssize_t w = write(in_fd, to_write.data() + written, to_write.size() - written);
        if (w > 0) written += static_cast<size_t>(w);
        if (w < 0 && errno != EAGAIN) written = to_write.size();
        if (written == to_write.size()) {
          close(in_fd);
          in_fd = -1;
        }
        continue;
      }
      const ssize_t got = read(fds[i].fd, buf, sizeof buf);
      if (got <= 0) {
        if (fds[i].fd == out_pipe[0]) out_open = false;
        if (fds[i].fd == err_pipe[0]) err_open = false;
        continue;
      }
      (fds[i].fd == out_pipe[0] ? r.out : r.err).append(buf, static_cast<size_t>(got));
    }
  }
  if (in_fd >= 0) close(in_fd);
  close(out_pipe[0]);
  close(err_pipe[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  r.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  return r;
}

temp_dir::temp_dir() {
  std::string tmpl = (std::filesystem::temp_directory_path() / "varn-test-XXXXXX").string();
  if (mkdtemp(tmpl.data()) != nullptr) m_path = tmpl;
}

temp_dir::~temp_dir() {
  std::error_code ec;
  if (!m_path.empty()) std::filesystem::remove_all(m_path, ec);
}

std::string read_file(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  std::ostringstream s;
  s << f.rdbuf();
  return s.str();
}

void write_file(const std::string& path, const std::string& content) {
  std::ofstream f(path, std::ios::binary | std::ios::trunc);
  f.write(content.data(), static_cast<std::streamsize>(content.size()));
}

std::string shared_captures_dir() {
  for (const std::string& dir : {std::string(VARN_SHARED_CAPTURES), std::string("/work/shared/captures")}) {
    if (!dir.empty() && std::filesystem::exists(dir + "/expected")) return dir;
  }
  return {};
}

}  // namespace varn_test
