// The JSON Lines report ("-json"): an "icmp" event for every selected frame (icmp_event.hpp) and
// a "file" event after the frames of each input file (file_event.hpp), written to the run's
// report sink in place of the text report.
#pragma once

#include "json/icmp_event.hpp"
#include "options/extension_options.hpp"
#include "options/varn_options.hpp"
#include "report/report_writer.hpp"

namespace varn::json {

// What the dump options of OPTS add to the events: -dump_hdr the header region, -dump_payload
// the payload, each with its printable form (-ascii) or its strings (-strings).
icmp_event_content event_content(const varn_options& opts);

// The report writer of -json. A writer that adds members to the "icmp" events (or events of its
// own) derives from it, overrides frame_selected and writes through icmp_events(); it flushes
// icmp_events() before writing an event of its own.
class json_report_writer : public report_writer {
 public:
  json_report_writer(const varn_options& opts, const extension_options& ext);

  void file_begun(const std::string& name, frame_context& ctx) override;
  void frame_selected(const icmp_frame& f, frame_context& ctx) override;
  void file_ended(const file_outcome& outcome, frame_context& ctx) override;
  void run_ended(frame_context& ctx) override;

  icmp_event_writer& icmp_events() noexcept { return m_icmp; }

 private:
  icmp_event_writer m_icmp;
  bool m_any_format;
};

}  // namespace varn::json
