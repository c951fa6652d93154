// uni::fileio: a file opened by path, used to confirm that an input file can be read.
#pragma once

#include <cstdint>
#include <string>

namespace uni {

class fileio {
 public:
  // Opens PATH: for writing when WRITE (read-write, with create and truncate when CREATE),
  // otherwise read-only. READ_CHECK is kept for callers that pass it and has no effect.
  fileio(const std::string& path, bool write, bool read_check, bool create);
  virtual ~fileio();
  fileio(const fileio&) = delete;
  fileio& operator=(const fileio&) = delete;

  bool is_open() const noexcept { return m_open; }
  // Whether the file was opened for writing.
  bool for_writing() const noexcept { return m_write; }
  // Size in bytes found after opening (0 when not open or not seekable).
  int64_t size() const noexcept { return m_size; }
  void close() noexcept;

 private:
  int m_fd = -1;
  std::string m_path;
  bool m_write = false;
  bool m_open = false;
  uint8_t m_mode = 0;
  int64_t m_size = 0;
};

}  // namespace uni
