// report_writer: a rendering of the run's report other than the specified text. The handler
// hands it every selected frame; the driver tells it where each input file begins and ends and
// when the run is over. A writer writes to the run's report sink (frame_context::out).
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "capture/frame_context.hpp"
#include "capture/icmp_frame.hpp"

namespace varn {

// What became of one input file.
struct file_outcome {
  enum class status {
    read,        // the header was accepted and the records walked
    invalid,     // "invalid pcap file, aborting": not a capture the reader takes
    unreadable,  // "prob opening NAME for read": the file could not be opened
    failed,      // the header could not be read, or no memory
  };
  std::string name;
  status result = status::read;
  uint64_t records = 0;   // records (packet blocks) handed to the frame handler
  uint64_t selected = 0;  // of them, frames selected
  // Filled by the readers of other capture formats: the format's name ("pcap", "pcap-ns",
  // "pcapng", ...), the link types seen, and frames skipped, counted by reason.
  std::string format;
  std::vector<uint32_t> link_types;
  std::vector<std::pair<std::string, uint64_t>> skipped;
  // Set when the walk ended early on damage the reader could name (empty otherwise).
  std::string stopped;
};

class report_writer {
 public:
  virtual ~report_writer() = default;

  // An input file is about to be read (before its header is checked).
  virtual void file_begun(const std::string& name, frame_context& ctx) {
    (void)name;
    (void)ctx;
  }
  // F passed every filter and list.
  virtual void frame_selected(const icmp_frame& f, frame_context& ctx) = 0;
  // The file has been read, or refused.
  virtual void file_ended(const file_outcome& outcome, frame_context& ctx) {
    (void)outcome;
    (void)ctx;
  }
  // The last input file has ended; the report sink is still open.
  virtual void run_ended(frame_context& ctx) { (void)ctx; }
};

}  // namespace varn
