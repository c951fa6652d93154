#include "input/name_list.hpp"

#include <algorithm>
#include <dirent.h>
#include <sys/stat.h>
#include <vector>

namespace zqportdir {

stdin_stream_ex::stdin_stream_ex(std::FILE* input) : uni::stdin_stream(false, input) { reset(); }

void stdin_stream_ex::reset() {
  m_files.clear();
  m_directories.clear();
  m_depth_limit = 1;
  m_from_queue = false;
}

void stdin_stream_ex::start_directory_walk(const std::string& directory) {
  reset();
  std::string root = directory;
  if (!root.empty() && root.back() == '/') root.pop_back();
  m_directories.emplace_back(root, 0);
  m_from_queue = true;
}

void stdin_stream_ex::open_directory(const std::string& path, uint32_t depth) {
  DIR* dir = ::opendir(path.empty() ? "/" : path.c_str());
  if (dir == nullptr) return;
  std::vector<std::string> names;
  while (const dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end());  // byte-wise order
  for (const std::string& name : names) {
    const std::string full = path + "/" + name;
    struct stat st;
    if (::lstat(full.c_str(), &st) != 0) continue;
    if (S_ISREG(st.st_mode))
      m_files.push_back(full);
    else if (S_ISDIR(st.st_mode) && depth + 1 <= m_depth_limit)
      m_directories.emplace_back(full, depth + 1);
  }
}

bool stdin_stream_ex::next_name(std::string& name, bool trim) {
  if (!m_from_queue) return uni::stdin_stream::next_name(name, trim);
  name.clear();
  while (m_files.empty()) {
    if (m_directories.empty()) return false;
    const auto [path, depth] = m_directories.front();
    m_directories.pop_front();
    open_directory(path, depth);
  }
  name = m_files.front();
  m_files.pop_front();
  return true;
}

}  // namespace zqportdir
