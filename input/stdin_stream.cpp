#include "input/stdin_stream.hpp"

#include <cstring>
#include <fcntl.h>
#include <new>

namespace uni {

stdin_stream::stdin_stream(bool flag, std::FILE* input) : m_input(input), m_flag(flag) {
  // Standard input may be closed altogether (no descriptor 0): then there is no list.
  if (m_input == nullptr || ::fcntl(::fileno(m_input), F_GETFD) < 0) return;
  m_buffer.reset(new (std::nothrow) char[line_buffer_size]);
  m_open = m_buffer != nullptr;
}

bool stdin_stream::next_name(std::string& name, bool trim) {
  name.clear();
  if (!m_open) return false;
  if (std::fgets(m_buffer.get(), static_cast<int>(line_buffer_size), m_input) == nullptr) return false;
  name.assign(m_buffer.get());
  if (trim)
    while (!name.empty() && (name.back() == '\r' || name.back() == '\n')) name.pop_back();
  return true;
}

}  // namespace uni
