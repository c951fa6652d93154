#include "conversations/summary_writer.hpp"

#include <string>
#include <vector>

#include "conversations/conversation_tracker.hpp"
#include "conversations/summary_json.hpp"
#include "conversations/summary_text.hpp"
#include "json/json_report.hpp"
#include "json/json_text.hpp"
#include "report/frame_dump.hpp"
#include "report/metadata_record.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_time.hpp"

namespace varn::conversations {

namespace {

int64_t timeout_ns(const extension_options& ext) { return static_cast<int64_t>(ext.idle_timeout) * 1000000000; }

bool frames_asked(const varn_options& opts) {
  return opts.dump_meta_given || opts.dump_hdr_given || opts.dump_payload_given;
}

// The input files of the run, in order: a conversation names the files of its frames.
class file_names {
 public:
  void add(const std::string& name) { m_names.push_back(name); }
  uint32_t current() const noexcept { return m_names.empty() ? 0 : static_cast<uint32_t>(m_names.size() - 1); }
  const std::string& operator[](uint32_t file) const {
    static const std::string none;
    return file < m_names.size() ? m_names[file] : none;
  }

 private:
  std::vector<std::string> m_names;
};

class summary_text_writer : public report_writer, private conversation_sink {
 public:
  summary_text_writer(const varn_options& opts, const extension_options& ext)
      : m_frames(frames_asked(opts)), m_tracker(timeout_ns(ext), *this) {}

  void file_begun(const std::string& name, frame_context& ctx) override {
    m_ctx = &ctx;
    m_files.add(name);
  }
  void frame_selected(const icmp_frame& f, frame_context& ctx) override {
    m_ctx = &ctx;
    m_tracker.add_frame(f, m_files.current());
    if (!m_frames) return;
    if (write_metadata_record(f, &ctx) || ctx.dump_hdr || ctx.dump_payload) m_header_due = true;
    write_frame_dumps(ctx, f.frame, f.header_dump_length, f.payload, f.payload_length);
  }
  void run_ended(frame_context& ctx) override {
    m_ctx = &ctx;
    m_tracker.finish();
  }

 private:
  void conversation_closed(const closed_conversation& c) override {
    if (m_ctx == nullptr || m_ctx->out == nullptr) return;
    if (m_header_due) {
      m_ctx->out->write(conversation_column_header());
      m_header_due = false;
    }
    write_conversation_line(*m_ctx->out, c, m_times);
  }

  bool m_frames;
  conversation_tracker m_tracker;
  frame_context* m_ctx = nullptr;
  file_names m_files;
  bool m_header_due = true;  // the column header goes before the next line
  zq::capture_time_texts m_times;
};

// With -json: the JSON report's "file" events, "icmp" events (when a dump option was given) with
// the pairing members, and an "icmp_conversation" event per conversation.
class summary_json_writer : public json::json_report_writer, private conversation_sink {
 public:
  summary_json_writer(const varn_options& opts, const extension_options& ext)
      : json_report_writer(opts, ext), m_frames(frames_asked(opts)), m_tracker(timeout_ns(ext), *this) {}

  void file_begun(const std::string& name, frame_context& ctx) override {
    m_ctx = &ctx;
    m_files.add(name);
    json_report_writer::file_begun(name, ctx);
  }
  void frame_selected(const icmp_frame& f, frame_context& ctx) override {
    m_ctx = &ctx;
    const uint32_t file = m_files.current();
    const frame_analysis a = m_tracker.add_frame(f, file);
    if (!m_frames) return;
    m_members.clear();
    m_members.json().continue_object();
    write_frame_members(m_members.json(), a, file, m_files[a.pairing.request.file]);
    icmp_events().add(f, m_members.view());
  }
  void run_ended(frame_context& ctx) override {
    m_ctx = &ctx;
    m_tracker.finish();
    json_report_writer::run_ended(ctx);
  }

 private:
  void conversation_closed(const closed_conversation& c) override {
    if (m_ctx == nullptr || m_ctx->out == nullptr) return;
    icmp_events().flush();  // the frame events queued so far come first
    json::text j(*m_ctx->out);
    write_conversation_event(j, c, m_files[c.c.first_file], m_files[c.c.last_file]);
  }

  bool m_frames;
  conversation_tracker m_tracker;
  frame_context* m_ctx = nullptr;
  file_names m_files;
  json::text_buffer m_members;
};

}  // namespace

std::unique_ptr<report_writer> make_summary_writer(const varn_options& opts, const extension_options& ext) {
  if (ext.json) return std::make_unique<summary_json_writer>(opts, ext);
  return std::make_unique<summary_text_writer>(opts, ext);
}

}  // namespace varn::conversations
