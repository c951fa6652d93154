#include "conversations/summary_writer.hpp"

#include "conversations/summary_json.hpp"
#include "conversations/summary_text.hpp"
#include "report/frame_dump.hpp"
#include "report/metadata_record.hpp"
#include "uni/out_stream.hpp"

namespace varn::conversations {

summary_writer::summary_writer(const varn_options& opts, const extension_options& ext)
    : m_json(ext.json),
      m_frames(opts.dump_meta_given || opts.dump_hdr_given || opts.dump_payload_given),
      m_tracker(static_cast<int64_t>(ext.idle_timeout) * 1000000000, *this) {}

summary_writer::~summary_writer() = default;

const std::string& summary_writer::file_name(uint32_t file) const {
  static const std::string none;
  return file < m_files.size() ? m_files[file] : none;
}

void summary_writer::file_begun(const std::string& name, frame_context& ctx) {
  m_ctx = &ctx;
  m_files.push_back(name);
}

void summary_writer::frame_selected(const icmp_frame& f, frame_context& ctx) {
  m_ctx = &ctx;
  const uint32_t file = m_files.empty() ? 0 : static_cast<uint32_t>(m_files.size() - 1);
  const frame_analysis a = m_tracker.add_frame(f, file);
  if (!m_frames) return;
  if (m_json) {
    // Frame events are written by the JSON report's frame writer.
    (void)a;
    return;
  }
  if (write_metadata_record(f, &ctx) || ctx.dump_hdr || ctx.dump_payload) m_header_due = true;
  write_frame_dumps(ctx, f.frame, f.header_dump_length, f.payload, f.payload_length);
}

void summary_writer::file_ended(const file_outcome& outcome, frame_context& ctx) {
  (void)outcome;
  m_ctx = &ctx;
}

void summary_writer::run_ended(frame_context& ctx) {
  m_ctx = &ctx;
  m_tracker.finish();
  if (ctx.out != nullptr) ctx.out->flush();
}

void summary_writer::conversation_closed(const closed_conversation& c) {
  if (m_ctx == nullptr || m_ctx->out == nullptr) return;
  uni::out_stream& out = *m_ctx->out;
  if (m_json) {
    if (!m_json_text) m_json_text = std::make_unique<json::text>(out);
    write_conversation_event(*m_json_text, c, file_name(c.c.first_file), file_name(c.c.last_file));
    return;
  }
  if (m_header_due) {
    out.write(conversation_column_header());
    m_header_due = false;
  }
  write_conversation_line(out, c, m_times);
}

}  // namespace varn::conversations
