#include "formats/any_capture.hpp"

#include "formats/byte_source.hpp"
#include "formats/classic_pcap.hpp"
#include "formats/frame_sink.hpp"
#include "formats/pcapng.hpp"
#include "report/metadata_record.hpp"
#include "uni/out_stream.hpp"

namespace varn {

namespace {

void say(uni::out_stream* console, const std::string& text) {
  if (console != nullptr) console->write(text);
}

// The format of the input at IN, from its first bytes; nothing is consumed.
enum class capture_format { classic, pcapng, unknown, unreadable };

capture_format detect(byte_source& in) {
  if (!in.fill(4)) return in.read_error() != 0 ? capture_format::unreadable : capture_format::unknown;
  if (is_classic_pcap_magic(in.data())) return capture_format::classic;
  if (!in.fill(12)) return in.read_error() != 0 ? capture_format::unreadable : capture_format::unknown;
  return is_pcapng_start(in.data()) ? capture_format::pcapng : capture_format::unknown;
}

}  // namespace

bool read_any_capture_file(const std::string& file_name, frame_context* ctx, uni::out_stream* console,
                           file_outcome& outcome) {
  byte_source in;
  if (!in.open(file_name)) {
    say(console, "prob opening " + file_name + " for read\n");
    outcome.result = file_outcome::status::unreadable;
    return false;
  }
  say(console, "Processing file: " + file_name + "\n");

  frame_sink sink(ctx);
  capture_format format = detect(in);
  classic_pcap_header classic;
  if (format == capture_format::classic) {
    if (!in.fill(classic_file_header_size))
      format = in.read_error() != 0 ? capture_format::unreadable : capture_format::unknown;
    else if (!parse_classic_header(in.data(), classic))
      format = capture_format::unknown;
  }
  switch (format) {
    case capture_format::unreadable:
      outcome.result = file_outcome::status::failed;
      return false;
    case capture_format::unknown:
      say(console, "invalid pcap file, aborting\n");
      outcome.result = file_outcome::status::invalid;
      return false;
    case capture_format::classic:
      outcome.format = classic_format_name(classic);
      in.consume(classic_file_header_size);
      walk_classic_records(in, classic, sink);
      break;
    case capture_format::pcapng:
      outcome.format = "pcapng";
      walk_pcapng(in, sink);
      break;
  }
  in.close();

  // Lines still queued belong before the notes.
  if (ctx != nullptr && ctx->deferred_lines != nullptr) ctx->deferred_lines->flush();
  outcome.result = file_outcome::status::read;
  sink.fill(outcome);
  say(console, sink.notes());
  return true;
}

}  // namespace varn
