// uni::stdin_stream: names read line by line from standard input.
#pragma once

#include <cstdio>
#include <memory>
#include <string>

namespace uni {

class stdin_stream {
 public:
  static constexpr size_t line_buffer_size = 4096;

  // Reads from INPUT (standard input by default). FLAG is kept for callers that pass it.
  explicit stdin_stream(bool flag = false, std::FILE* input = stdin);
  virtual ~stdin_stream() = default;
  stdin_stream(const stdin_stream&) = delete;
  stdin_stream& operator=(const stdin_stream&) = delete;

  // True when the input exists and the line buffer was allocated.
  bool is_open() const noexcept { return m_open; }

  // One line of at most 4095 bytes (a longer line comes as several names); with TRIM every
  // trailing CR and LF is removed. False at the end of input or on a read error.
  virtual bool next_name(std::string& name, bool trim);

 protected:
  std::FILE* m_input;
  std::unique_ptr<char[]> m_buffer;
  bool m_open = false;
  bool m_flag = false;
};

}  // namespace uni
