#include "conversations/sent_values.hpp"

#include "conversations/payload_content.hpp"

namespace varn::conversations {

namespace {

bool is(const sent_value& v, content_kind k) noexcept { return v.kind == static_cast<uint8_t>(k); }

}  // namespace

void value_counts::count(const sent_value& v, int sign) noexcept {
  if ((v.flags & k_value_shared) != 0) return;
  if ((v.flags & k_value_pattern) != 0) {
    if ((v.flags & k_value_fill) != 0 || v.sends > k_max_pattern_sends) return;
    patterns += sign;
    if (v.bytes < k_min_pattern_data) return;
  }
  data += sign;
  text += sign * is(v, content_kind::text);
  random += sign * is(v, content_kind::random);
  bytes += static_cast<uint64_t>(static_cast<int64_t>(sign) * v.bytes);
}

const sent_value* value_book::find(uint64_t key) const noexcept {
  if ((m_present >> (key % 64) & 1) == 0) return nullptr;
  for (size_t i = 0; i < m_size; ++i)
    if (m_values[i].key == key) return &m_values[i];
  return nullptr;
}

const sent_value& value_book::add(const sent_value& v) {
  m_counts.count(v);
  const bool payload = (v.flags & (k_value_shared | k_value_pattern)) == 0;
  m_text += is(v, content_kind::text) && payload;
  m_random += is(v, content_kind::random) && payload;
  if (m_size < k_capacity) {
    m_present |= uint64_t{1} << (v.key % 64);
    m_values[m_size] = v;
    return m_values[m_size++];
  }
  // The oldest value's part in the counts stays as it is.
  sent_value& slot = m_values[m_oldest];
  slot = v;
  m_oldest = static_cast<uint8_t>((m_oldest + 1) % k_capacity);
  m_present = 0;
  for (const sent_value& w : m_values) m_present |= uint64_t{1} << (w.key % 64);
  return slot;
}

void value_book::sent_again(const sent_value& v, uint8_t flags) noexcept {
  sent_value& w = writable(v);
  m_counts.count(w, -1);
  if (w.sends < 0xffff) ++w.sends;
  w.flags |= flags;
  m_counts.count(w);
}

void value_book::mark(const sent_value& v, uint8_t flags) noexcept {
  sent_value& w = writable(v);
  if ((w.flags | flags) == w.flags) return;
  if ((flags & k_value_shared) != 0 && (w.flags & (k_value_shared | k_value_pattern)) == 0) {
    if (is(w, content_kind::text) && m_text > 0) --m_text;
    if (is(w, content_kind::random) && m_random > 0) --m_random;
  }
  m_counts.count(w, -1);
  w.flags |= flags;
  m_counts.count(w);
}

}  // namespace varn::conversations
