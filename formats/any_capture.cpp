#include "formats/any_capture.hpp"

#include "capture/capture_reader.hpp"
#include "capture/frame_handler.hpp"

namespace varn {

// For now: the classic reader.
bool read_any_capture_file(const std::string& file_name, frame_context* ctx, uni::out_stream* console,
                           file_outcome& outcome) {
  capture_walker walker;
  const walk_status status = start_capture_file(file_name, walker, console);
  outcome.format = "pcap";
  switch (status) {
    case walk_status::accepted:
      break;
    case walk_status::open_failed:
      outcome.result = file_outcome::status::unreadable;
      return false;
    case walk_status::rejected:
      outcome.result = file_outcome::status::invalid;
      return false;
    default:
      outcome.result = file_outcome::status::failed;
      return false;
  }
  walker.walk([&](uint64_t frame_number, const uint8_t* record) { handle_frame(frame_number, record, ctx); });
  outcome.records = walker.frames_read();
  walker.close();
  return true;
}

}  // namespace varn
