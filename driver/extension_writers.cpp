#include "driver/extension_writers.hpp"

#include "conversations/summary_writer.hpp"
#include "json/json_report.hpp"

namespace varn {

std::unique_ptr<report_writer> make_extension_writer(const varn_options& opts, const extension_options& ext) {
  if (ext.summary) return conversations::make_summary_writer(opts, ext);
  if (ext.json) return std::make_unique<json::json_report_writer>(opts, ext);
  return nullptr;
}

}  // namespace varn
