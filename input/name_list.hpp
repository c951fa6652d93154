// zqportdir::stdin_stream_ex: the names of a list run, from standard input or from a
// breadth-first walk of a directory ("-enumdir").
#pragma once

#include <cstdint>
#include <deque>
#include <string>
#include <utility>

#include "input/stdin_stream.hpp"

namespace zqportdir {

class stdin_stream_ex : public uni::stdin_stream {
 public:
  explicit stdin_stream_ex(std::FILE* input = stdin);

  // Empties the queues, sets the depth limit to 1 and reads from standard input again.
  void reset();

  // Takes names from a walk of DIRECTORY (depth 0) and its sub-directories down to the depth
  // limit instead of standard input. In each directory the entries are taken in byte-wise name
  // order: regular files are handed out before the next directory is opened, sub-directories
  // are queued; links, devices and the like are skipped. A directory that cannot be opened
  // yields nothing.
  void start_directory_walk(const std::string& directory);

  // The next name: from the walk when one was started, otherwise a line of standard input.
  bool next_name(std::string& name, bool trim) override;

  bool from_queue() const noexcept { return m_from_queue; }

 private:
  void open_directory(const std::string& path, uint32_t depth);

  std::deque<std::string> m_files;
  std::deque<std::pair<std::string, uint32_t>> m_directories;
  uint32_t m_depth_limit = 1;
  bool m_from_queue = false;
};

}  // namespace zqportdir
