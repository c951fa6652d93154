#include "driver/run.hpp"

#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include "capture/capture_reader.hpp"
#include "capture/frame_context.hpp"
#include "capture/frame_handler.hpp"
#include "input/file_filter.hpp"
#include "input/name_list.hpp"
#include "options/arg_list.hpp"
#include "options/usage.hpp"
#include "options/varn_options.hpp"
#include "report/metadata_record.hpp"
#include "uni/fileio.hpp"
#include "uni/out_stream.hpp"
#include "zq/zq_fatal.hpp"

namespace varn {

namespace {

constexpr int k_refused = -1;

// handle_frame as the reader's handler, in a form the compiler can inline into the record loop.
constexpr auto k_handler = [](uint64_t frame_number, const uint8_t* record, frame_context* ctx) {
  return handle_frame(frame_number, record, ctx);
};

void flush_outputs() { uni::out_stream::flush_all(); }

bool help_requested(const arg_list& args) {
  for (const char* name : {"-h", "-help", "/?", "--help"})
    if (find_option(args, name) != std::string::npos) return true;
  return args.size() == 1;
}

frame_context context_from(const varn_options& opts) {
  frame_context ctx;
  ctx.icmp_ids.insert(opts.icmp_ids.begin(), opts.icmp_ids.end());
  ctx.icmp_types.assign(opts.icmp_types.begin(), opts.icmp_types.end());
  ctx.icmp_codes.assign(opts.icmp_codes.begin(), opts.icmp_codes.end());
  ctx.frames.insert(opts.frames.begin(), opts.frames.end());
  ctx.pattern = opts.pattern;
  ctx.dump_meta = opts.dump_meta;
  ctx.dump_hdr = opts.dump_hdr;
  ctx.dump_payload = opts.dump_payload;
  ctx.output_format = opts.output_format;
  ctx.src_port = opts.src_port;
  ctx.dst_port = opts.dst_port;
  ctx.track_replies = opts.track_replies;
  ctx.min_size = opts.min_size;
  ctx.src_ip = opts.src_ip;
  ctx.dst_ip = opts.dst_ip;
  ctx.src_ipv6 = opts.src_ipv6.bytes();
  ctx.dst_ipv6 = opts.dst_ipv6.bytes();
  ctx.start_time = opts.start_time;
  ctx.stop_time = opts.stop_time;
  ctx.meta_comma_separated = true;
  ctx.meta_padded = true;
  ctx.meta_header_pending = true;
  return ctx;
}

// A run that writes only metadata lines completes them in batches (digests many at a time);
// the batch is flushed at the end of every input file, before anything else is written.
std::unique_ptr<metadata_batch> batch_for(frame_context& ctx) {
  if (!ctx.dump_meta || ctx.output_format == 3 || ctx.dump_hdr || ctx.dump_payload) return nullptr;
  auto batch = std::make_unique<metadata_batch>(ctx);
  ctx.deferred_lines = batch.get();
  return batch;
}

int run_list(const varn_options& opts, frame_context& ctx, uni::out_stream& console) {
  zqportdir::stdin_stream_ex list;
  if (opts.enumerate)
    list.start_directory_walk(opts.enum_dir);
  else if (!list.is_open())
    return 0;
  capture_walker walker;
  const std::unique_ptr<metadata_batch> batch = batch_for(ctx);
  std::string name;
  while (list.next_name(name, true)) {
    if (name.empty() || !filter_match(name, opts.filters)) continue;
    ctx.meta_header_pending = true;
    if (!opts.run_enabled) continue;
    const bool read = read_capture_file_with(name, k_handler, &ctx, console, walker);
    if (batch) batch->flush();
    if (read && ctx.out == &console) console.put('\n');
  }
  return 0;
}

}  // namespace

int run(const std::vector<std::string>& args) {
  if (args.empty()) return k_refused;
  uni::out_stream console(STDOUT_FILENO);
  zq::set_fatal_hook(flush_outputs);

  if (help_requested(args)) {
    uni::write_stderr(usage_text(args[0]));
    return 0;
  }
  console.write(run_header(args));
  if (args.size() < 3) {
    uni::write_stderr("error... try: \"" + args[0] + " -ifile <pcap file>\"\n");
    return k_refused;
  }

  varn_options opts;
  arg_list remaining = args;
  if (!opts.parse_common_options(remaining) || !opts.parse_tool_options(remaining)) {
    uni::write_stderr(usage_text(args[0]));
    return k_refused;
  }
  frame_context ctx = context_from(opts);
  ctx.out = &console;

  std::unique_ptr<uni::out_stream> report_file;
  if (!opts.output_file.empty()) {
    const int fd = ::open(opts.output_file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (fd < 0) {
      uni::write_stderr("prob opening file " + opts.output_file + " for output, aborting\n");
      return k_refused;
    }
    report_file = std::make_unique<uni::out_stream>(fd, true);
    ctx.out = report_file.get();
  }

  if (opts.enumerate || opts.pipe) return run_list(opts, ctx, console);

  {
    uni::fileio probe(opts.input_file, false, true, false);
    if (!probe.is_open()) {
      uni::write_stderr("prob accessing file " + opts.input_file + " for read, aborting\n");
      return k_refused;
    }
  }
  if (opts.run_enabled) {
    capture_walker walker;
    const std::unique_ptr<metadata_batch> batch = batch_for(ctx);
    read_capture_file_with(opts.input_file, k_handler, &ctx, console, walker);
    if (batch) batch->flush();
  }
  return 0;
}

}  // namespace varn
