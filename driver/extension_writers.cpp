#include "driver/extension_writers.hpp"

#include "conversations/summary_writer.hpp"

namespace varn {

std::unique_ptr<report_writer> make_extension_writer(const varn_options& opts, const extension_options& ext) {
  if (ext.summary) return std::make_unique<conversations::summary_writer>(opts, ext);
  return nullptr;
}

}  // namespace varn
