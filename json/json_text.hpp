// JSON text (RFC 8259) written straight into an out_stream: one object per line, no spaces,
// strings escaped for every byte so that the output is always well-formed UTF-8.
//
// Escaping rules (put_string): quote and backslash as \" and \\; bytes below 0x20 as \b \f \n
// \r \t or \u00XX; DEL as \u007f and the line and paragraph separators U+2028 and U+2029 as
// \u2028 and \u2029 (valid JSON either way, but safer for terminals and JavaScript readers);
// every other well-formed UTF-8 sequence is copied. A byte that does not belong to a well-formed
// sequence (a stray continuation byte, a cut or overlong sequence, a UTF-16 surrogate, a code
// point above U+10FFFF) becomes U+FFFD, one replacement per byte. So a string reads back as its
// input exactly when the input was well-formed UTF-8; for the others text::exact_string adds a
// companion member "<name>_base64" that holds the exact bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "uni/out_stream.hpp"

namespace varn::json {

// Room put_string needs for N input bytes: two quotes and at most six characters a byte.
constexpr size_t string_room(size_t n) noexcept { return 6 * n + 2; }

// Writes TEXT at P as the inside of a JSON string (no quotes) and returns the end; at most
// 6 * TEXT.size() characters. EXACT, when not null, is cleared when a byte had to be replaced
// (it is never set).
char* put_string_body(char* p, std::string_view text, bool* exact = nullptr) noexcept;

// Writes TEXT at P as a JSON string, quotes included, and returns the end.
inline char* put_string(char* p, std::string_view text, bool* exact = nullptr) noexcept {
  *p++ = '"';
  p = put_string_body(p, text, exact);
  *p++ = '"';
  return p;
}

// Whether TEXT is well-formed UTF-8 (RFC 3629: no overlong forms, no surrogates, at most
// U+10FFFF), i.e. whether its JSON string reads back as TEXT.
bool is_utf8(std::string_view text) noexcept;

// Writes BYTES at P with every byte from 32 to 126 as itself and every other byte as ".", as the
// text report's ascii format shows them, escaped for a JSON string body (no quotes): at most
// 2 * N characters.
char* put_printable_body(char* p, const uint8_t* bytes, size_t n) noexcept;

// A JSON text being written to an out_stream. Commas between members and elements are placed
// by the builder; the caller gives the structure. Values that may be long (strings, base64,
// printable bytes) are written in pieces that fit the stream's buffer, so any length works.
//
//   json::text j(out);
//   j.begin_object().member("event_type", "file").member("records", 12).end_object().end_line();
//
// Nesting deeper than 64 levels is a fatal assertion.
class text {
 public:
  explicit text(uni::out_stream& out) noexcept : m_out(out) {}

  text& begin_object();
  text& end_object();
  text& begin_array();
  text& end_array();
  // Continues an object whose opening brace and first members were written elsewhere: the
  // members written next each start with a comma (",\"name\":value"), and end_object() must not
  // be called for it. Used to build members that another writer appends to its object.
  text& continue_object();
  // Ends a top-level value with a line end (JSON Lines). Every object and array must be closed.
  text& end_line();

  // The name of the next member (escaped like any string).
  text& key(std::string_view name);

  text& string(std::string_view value);
  text& number(uint64_t value);
  text& number(int64_t value);
  text& number(uint32_t value) { return number(static_cast<uint64_t>(value)); }
  text& number(int32_t value) { return number(static_cast<int64_t>(value)); }
  // The shortest text that reads back as VALUE; null for an infinity or a NaN (JSON has none).
  text& number(double value);
  // SCALED / 10^DECIMALS written exactly with DECIMALS digits after the point (DECIMALS <= 18),
  // e.g. decimal(1500, 3) writes 1.500: durations and rates without rounding surprises.
  text& decimal(int64_t scaled, unsigned decimals);
  text& boolean(bool value);
  text& null();
  // BYTES base64-encoded (RFC 4648, standard alphabet, padded) as a string.
  text& base64(const uint8_t* bytes, size_t n);
  // BYTES as a string in the report's printable form (32..126 as themselves, others ".").
  text& printable(const uint8_t* bytes, size_t n);
  // VALUE, already JSON text (a number, a string with its quotes, an object...), as it stands.
  text& raw(std::string_view value);
  // MEMBERS, already JSON text of members each starting with a comma (as a text built after
  // continue_object() holds them), written as they stand into the object being written.
  text& raw_members(std::string_view members);

  // A member: key(NAME) followed by the value.
  text& member(std::string_view name, std::string_view value) { return key(name).string(value); }
  text& member(std::string_view name, const char* value) { return key(name).string(value); }
  text& member(std::string_view name, uint64_t value) { return key(name).number(value); }
  text& member(std::string_view name, int64_t value) { return key(name).number(value); }
  text& member(std::string_view name, uint32_t value) { return key(name).number(value); }
  text& member(std::string_view name, int32_t value) { return key(name).number(value); }
  text& member(std::string_view name, double value) { return key(name).number(value); }
  text& member(std::string_view name, bool value) { return key(name).boolean(value); }
  text& null_member(std::string_view name) { return key(name).null(); }
  // "NAME":"TEXT" and, when TEXT is not well-formed UTF-8, "NAME_base64":"<its exact bytes>"
  // (for file names and other bytes that only look like text).
  text& exact_string(std::string_view name, std::string_view value);

  // Whether every object and array opened has been closed.
  bool complete() const noexcept { return m_depth == 0; }
  // Forgets the structure written so far (the bytes stay written).
  void reset() noexcept {
    m_depth = 0;
    m_has_element = 0;
    m_after_key = false;
  }
  uni::out_stream& out() noexcept { return m_out; }

 private:
  // Writes the comma that separates this value or member from the one before, if any.
  void separate();
  void open(char bracket);
  void close(char bracket);

  uni::out_stream& m_out;
  unsigned m_depth = 0;
  uint64_t m_has_element = 0;  // bit D: the container at depth D holds an element already
  bool m_after_key = false;    // a key was written; its value follows without a comma
};

// Builds JSON text in memory, e.g. the extra members one writer hands another.
class text_buffer {
 public:
  text_buffer() : m_stream(&m_text, 4096), m_json(m_stream) {}
  text_buffer(const text_buffer&) = delete;
  text_buffer& operator=(const text_buffer&) = delete;

  text& json() noexcept { return m_json; }
  // The text written so far.
  std::string_view view() {
    m_stream.flush();
    return m_text;
  }
  // Forgets the text and the structure.
  void clear() {
    m_stream.flush();
    m_text.clear();
    m_json.reset();
  }

 private:
  std::string m_text;
  uni::out_stream m_stream;
  text m_json;
};

}  // namespace varn::json
