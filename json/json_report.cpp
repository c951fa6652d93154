#include "json/json_report.hpp"

#include "json/file_event.hpp"
#include "json/json_text.hpp"

namespace varn::json {

icmp_event_content event_content(const varn_options& opts) {
  icmp_event_content content;
  content.packet = opts.dump_hdr;
  content.payload = opts.dump_payload;
  if (opts.output_format == format_ascii) content.form = icmp_event_content::rendering::printable;
  if (opts.output_format == format_strings) content.form = icmp_event_content::rendering::strings;
  return content;
}

json_report_writer::json_report_writer(const varn_options& opts, const extension_options& ext)
    : m_icmp(event_content(opts)), m_any_format(ext.any_format) {}

void json_report_writer::file_begun(const std::string& name, frame_context& ctx) {
  if (ctx.out != nullptr) m_icmp.begin_file(name, *ctx.out);
}

void json_report_writer::frame_selected(const icmp_frame& f, frame_context& ctx) {
  (void)ctx;
  m_icmp.add(f);
}

void json_report_writer::file_ended(const file_outcome& outcome, frame_context& ctx) {
  m_icmp.flush();
  if (ctx.out == nullptr) return;
  text j(*ctx.out);
  write_file_event(j, outcome, m_any_format);
}

void json_report_writer::run_ended(frame_context& ctx) {
  (void)ctx;
  m_icmp.flush();
}

}  // namespace varn::json
