#include "driver/extension_writers.hpp"

namespace varn {

std::unique_ptr<report_writer> make_extension_writer(const varn_options& opts, const extension_options& ext) {
  (void)opts;
  (void)ext;
  return nullptr;
}

}  // namespace varn
