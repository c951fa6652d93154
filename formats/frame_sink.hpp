// frame_sink: where the capture format readers hand every record. It numbers the records as
// Wireshark does, locates the ICMP message of each frame, hands ICMP frames to the report
// (report_icmp_frame) and counts what it skips and why.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "capture/frame_context.hpp"
#include "capture/icmp_frame.hpp"
#include "layers/icmp_locator.hpp"
#include "report/report_writer.hpp"

namespace varn {

class frame_sink {
 public:
  explicit frame_sink(frame_context* ctx) : m_ctx(ctx) {}

  // The next record: a frame of LINK_TYPE (one link_type_is_read() accepts) with CAP_LEN
  // captured bytes at DATA. True when it holds an ICMP message: the reader then calls
  // report_frame() while DATA is still valid. A frame too short for its headers is counted.
  bool next_frame(uint32_t link_type, const uint8_t* data, uint32_t cap_len) {
    ++m_records;
    if (!may_hold_icmp(link_type, data, cap_len)) return false;
    return locate(link_type, data, cap_len);
  }
  // Completes the frame next_frame() located: WIRE_LEN bytes on the wire, captured at SEC seconds
  // and FRAC units of 10^-DIGITS seconds (DIGITS 6 or 9) since 1970; hands it to the report.
  void report_frame(uint32_t wire_len, uint64_t sec, uint64_t frac, uint8_t digits);
  // The next record is a frame of a link type not read: numbered, counted, not looked at.
  void frame_of_unread_link(uint32_t link_type);
  enum class packet_problem { undescribed_interface, damaged_block };
  // The next record is a packet block that cannot be read: numbered, counted by PROBLEM.
  void unreadable_packet(packet_problem problem) noexcept {
    ++m_records;
    ++(problem == packet_problem::undescribed_interface ? m_undescribed : m_damaged);
  }
  // The next record holds no frame (a log entry, an event): numbered, as Wireshark does, and nothing else.
  void record_without_frame() noexcept { ++m_records; }

  // A link type the file declares (listed once, in order of appearance).
  void link_type_declared(uint32_t link_type);
  // The walk ends early for REASON (the first reason given is kept).
  void stop(std::string reason);

  uint64_t records() const noexcept { return m_records; }
  bool stopped() const noexcept { return !m_stopped.empty(); }

  // Copies the counts, the link types and the stop reason into OUTCOME.
  void fill(file_outcome& outcome) const;
  // The lines that tell a reader of the text report what was skipped and why the walk stopped
  // (empty when every frame was looked at and the walk reached the end).
  std::string notes() const;

 private:
  bool locate(uint32_t link_type, const uint8_t* data, uint32_t cap_len);
  // Every count by reason, in the order the notes give them.
  std::vector<std::pair<std::string, uint64_t>> counts() const;

  frame_context* m_ctx;
  icmp_frame m_frame;  // reused for every frame: nothing is allocated per frame
  uint64_t m_records = 0;
  uint64_t m_too_short = 0;
  std::vector<std::pair<uint32_t, uint64_t>> m_unread_links;  // frames by link type, in order of appearance
  uint64_t m_undescribed = 0;
  uint64_t m_damaged = 0;
  std::vector<uint32_t> m_link_types;
  std::string m_stopped;
};

// The reasons frames are counted under: too short for their headers, "link type N", and in
// pcapng a packet block naming an interface not described or whose lengths do not fit.
extern const char* const k_skip_too_short;
extern const char* const k_skip_undescribed_interface;
extern const char* const k_skip_damaged_block;

}  // namespace varn
