#include "formats/frame_sink.hpp"

#include <algorithm>

#include "capture/frame_handler.hpp"

namespace varn {

const char* const k_skip_too_short = "too short for their headers";
const char* const k_skip_undescribed_interface = "undescribed interface";
const char* const k_skip_damaged_block = "damaged packet block";

bool frame_sink::locate(uint32_t link_type, const uint8_t* data, uint32_t cap_len) {
  switch (locate_icmp_message(link_type, data, cap_len, m_frame)) {
    case frame_verdict::icmp:
      m_frame.number = m_records;
      return true;
    case frame_verdict::truncated:
      ++m_too_short;
      return false;
    default:
      return false;
  }
}

void frame_sink::report_frame(uint32_t wire_len, uint64_t sec, uint64_t frac, uint8_t digits) {
  m_frame.wire_len = wire_len;
  m_frame.ts_sec = sec;
  m_frame.ts_frac = frac;
  m_frame.ts_digits = digits;
  report_icmp_frame(m_frame, m_ctx);
}

void frame_sink::frame_of_unread_link(uint32_t link_type) {
  ++m_records;
  for (auto& entry : m_unread_links)
    if (entry.first == link_type) {
      ++entry.second;
      return;
    }
  m_unread_links.emplace_back(link_type, 1);
}

std::vector<std::pair<std::string, uint64_t>> frame_sink::counts() const {
  std::vector<std::pair<std::string, uint64_t>> list;
  if (m_too_short > 0) list.emplace_back(k_skip_too_short, m_too_short);
  for (const auto& [link_type, n] : m_unread_links) list.emplace_back("link type " + std::to_string(link_type), n);
  if (m_undescribed > 0) list.emplace_back(k_skip_undescribed_interface, m_undescribed);
  if (m_damaged > 0) list.emplace_back(k_skip_damaged_block, m_damaged);
  return list;
}

void frame_sink::link_type_declared(uint32_t link_type) {
  if (std::find(m_link_types.begin(), m_link_types.end(), link_type) == m_link_types.end())
    m_link_types.push_back(link_type);
}

void frame_sink::stop(std::string reason) {
  if (m_stopped.empty()) m_stopped = std::move(reason);
}

void frame_sink::fill(file_outcome& outcome) const {
  outcome.records = m_records;
  outcome.link_types = m_link_types;
  outcome.skipped = counts();
  outcome.stopped = m_stopped;
}

std::string frame_sink::notes() const {
  std::string text;
  const std::vector<std::pair<std::string, uint64_t>> list = counts();
  uint64_t skipped = 0;
  for (const auto& entry : list) skipped += entry.second;
  if (skipped > 0) {
    text += "Skipped " + std::to_string(skipped) + " of " + std::to_string(m_records) +
            (m_records == 1 ? " frame: " : " frames: ");
    const char* separator = "";
    for (const auto& [reason, n] : list) {
      text += separator + reason + " (" + std::to_string(n) + ")";
      separator = ", ";
    }
    text += "\n";
  }
  if (!m_stopped.empty())
    text += (m_records == 0 ? std::string("Reading stopped before the first frame: ")
                            : "Reading stopped after frame " + std::to_string(m_records) + ": ") +
            m_stopped + "\n";
  return text;
}

}  // namespace varn
