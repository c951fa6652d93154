// The report writer of "-summary": every selected frame feeds the conversation analysis; the
// conversations are written as they close, as text lines or (with -json) as events. Frames get
// their own report only when a dump option was given.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "conversations/conversation_tracker.hpp"
#include "json/json_text.hpp"
#include "options/extension_options.hpp"
#include "options/varn_options.hpp"
#include "report/report_writer.hpp"
#include "zq/zq_time.hpp"

namespace varn::conversations {

class summary_writer : public report_writer, private conversation_sink {
 public:
  summary_writer(const varn_options& opts, const extension_options& ext);
  ~summary_writer() override;

  void file_begun(const std::string& name, frame_context& ctx) override;
  void frame_selected(const icmp_frame& f, frame_context& ctx) override;
  void file_ended(const file_outcome& outcome, frame_context& ctx) override;
  void run_ended(frame_context& ctx) override;

 private:
  void conversation_closed(const closed_conversation& c) override;
  const std::string& file_name(uint32_t file) const;

  bool m_json;
  bool m_frames;  // a dump option was given: frames are reported too
  conversation_tracker m_tracker;
  frame_context* m_ctx = nullptr;
  std::vector<std::string> m_files;
  bool m_header_due = true;  // the conversation column header is to be written before the next line
  std::unique_ptr<json::text> m_json_text;
  zq::capture_time_texts m_times;
};

}  // namespace varn::conversations
