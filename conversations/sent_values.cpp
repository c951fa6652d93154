#include "conversations/sent_values.hpp"

#include "conversations/payload_content.hpp"

namespace varn::conversations {

namespace {

bool is(const sent_value& v, content_kind k) noexcept { return v.kind == static_cast<uint8_t>(k); }

}  // namespace

void value_counts::add(const sent_value& v) noexcept {
  if ((v.flags & k_value_shared) != 0) return;
  if ((v.flags & k_value_pattern) != 0) {
    if ((v.flags & k_value_fill) != 0 || v.sends > k_max_pattern_sends) return;
    ++patterns;
    if (v.bytes < k_min_pattern_data) return;
  }
  ++data;
  text += is(v, content_kind::text);
  random += is(v, content_kind::random);
  bytes += v.bytes;
}

void value_counts::add(const value_counts& o) noexcept {
  data += o.data;
  text += o.text;
  random += o.random;
  patterns += o.patterns;
  bytes += o.bytes;
}

sent_value* value_book::find(uint64_t key) noexcept {
  for (sent_value& v : m_values)
    if (v.key == key) return &v;
  return nullptr;
}

sent_value& value_book::add(const sent_value& v) {
  m_text += is(v, content_kind::text) && (v.flags & k_value_shared) == 0;
  m_random += is(v, content_kind::random) && (v.flags & k_value_shared) == 0;
  if (m_values.size() < k_capacity) {
    m_values.push_back(v);
    return m_values.back();
  }
  sent_value& slot = m_values[m_oldest];
  m_forgotten.add(slot);
  slot = v;
  m_oldest = static_cast<uint8_t>((m_oldest + 1) % k_capacity);
  return slot;
}

value_counts value_book::counts() const noexcept {
  value_counts c = m_forgotten;
  for (const sent_value& v : m_values) c.add(v);
  return c;
}

void value_book::mark_shared(sent_value& v) noexcept {
  if ((v.flags & k_value_shared) != 0) return;
  v.flags |= k_value_shared;
  if (is(v, content_kind::text) && m_text > 0) --m_text;
  if (is(v, content_kind::random) && m_random > 0) --m_random;
}

}  // namespace varn::conversations
