#include "driver/run.hpp"

#include <fcntl.h>
#include <memory>
#include <unistd.h>

#include "capture/capture_reader.hpp"
#include "capture/frame_context.hpp"
#include "capture/frame_handler.hpp"
#include "driver/extension_writers.hpp"
#include "formats/any_capture.hpp"
#include "input/file_filter.hpp"
#include "input/name_list.hpp"
#include "options/arg_list.hpp"
#include "options/extension_options.hpp"
#include "options/usage.hpp"
#include "options/varn_options.hpp"
#include "report/metadata_record.hpp"
#include "report/report_writer.hpp"
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
  if (ctx.writer != nullptr || !ctx.dump_meta || ctx.output_format == 3 || ctx.dump_hdr || ctx.dump_payload)
    return nullptr;
  auto batch = std::make_unique<metadata_batch>(ctx);
  ctx.deferred_lines = batch.get();
  return batch;
}

// Everything a run's input files share.
struct run_state {
  run_state(const varn_options& o, const extension_options& e, frame_context& c, uni::out_stream& con)
      : opts(o), ext(e), ctx(c), console(con) {}
  const varn_options& opts;
  const extension_options& ext;
  frame_context& ctx;
  uni::out_stream& console;
  report_writer* writer = nullptr;
  metadata_batch* batch = nullptr;
  capture_walker walker;
};

file_outcome::status outcome_of(walk_status status) {
  switch (status) {
    case walk_status::accepted:
      return file_outcome::status::read;
    case walk_status::open_failed:
      return file_outcome::status::unreadable;
    case walk_status::rejected:
      return file_outcome::status::invalid;
    default:
      return file_outcome::status::failed;
  }
}

// Reads one input file with the run's reader. True when its header was accepted. With -json the
// reader's messages stay off standard output (the report may be there); a file that cannot be
// read is then named on standard error.
bool read_input(const std::string& name, run_state& rs) {
  frame_context& ctx = rs.ctx;
  uni::out_stream* messages = rs.ext.json ? nullptr : &rs.console;
  ctx.selected_in_file = 0;
  if (rs.writer != nullptr) rs.writer->file_begun(name, ctx);
  file_outcome outcome;
  outcome.name = name;
  bool read;
  if (rs.ext.any_format) {
    read = read_any_capture_file(name, &ctx, messages, outcome);
  } else {
    const walk_status status = start_capture_file(name, rs.walker, messages);
    outcome.result = outcome_of(status);
    outcome.format = "pcap";
    read = status == walk_status::accepted;
    if (read) {
      rs.walker.walk([&ctx](uint64_t frame_number, const uint8_t* record) { k_handler(frame_number, record, &ctx); });
      outcome.records = rs.walker.frames_read();
      rs.walker.close();
    }
  }
  if (rs.batch != nullptr) rs.batch->flush();
  outcome.selected = ctx.selected_in_file;
  if (messages == nullptr) {
    if (outcome.result == file_outcome::status::unreadable) uni::write_stderr("prob opening " + name + " for read\n");
    if (outcome.result == file_outcome::status::invalid) uni::write_stderr(name + ": invalid pcap file, aborting\n");
    if (outcome.result == file_outcome::status::failed) uni::write_stderr(name + ": could not be read\n");
  }
  if (rs.writer != nullptr) rs.writer->file_ended(outcome, ctx);
  return read;
}

int run_list(run_state& rs) {
  zqportdir::stdin_stream_ex list;
  if (rs.opts.enumerate)
    list.start_directory_walk(rs.opts.enum_dir);
  else if (!list.is_open())
    return 0;
  std::string name;
  while (list.next_name(name, true)) {
    if (name.empty() || !filter_match(name, rs.opts.filters)) continue;
    rs.ctx.meta_header_pending = true;
    if (!rs.opts.run_enabled) continue;
    const bool read = read_input(name, rs);
    if (read && rs.ctx.out == &rs.console && !rs.ext.json) rs.console.put('\n');
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
  // A JSON report holds nothing but JSON: the run header is left out.
  const bool json_report = json_report_requested(args);
  if (!json_report) console.write(run_header(args));
  if (args.size() < 3) {
    uni::write_stderr("error... try: \"" + args[0] + " -ifile <pcap file>\"\n");
    return k_refused;
  }

  varn_options opts;
  extension_options ext;
  arg_list remaining = args;
  if (!opts.parse_common_options(remaining) || !opts.parse_tool_options(remaining)) {
    uni::write_stderr(usage_text(args[0]));
    return k_refused;
  }
  std::string refusal;
  if (!parse_extension_options(remaining, opts, ext, refusal)) {
    uni::write_stderr("Error: " + refusal + "\n" + usage_text(args[0]));
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

  const std::unique_ptr<report_writer> writer = make_extension_writer(opts, ext);
  ctx.writer = writer.get();
  run_state rs(opts, ext, ctx, console);
  rs.writer = writer.get();

  if (opts.enumerate || opts.pipe) {
    const std::unique_ptr<metadata_batch> batch = batch_for(ctx);
    rs.batch = batch.get();
    run_list(rs);
    if (writer) writer->run_ended(ctx);
    return 0;
  }

  // The access check's descriptor stays open while the reader opens the file again: a FIFO then
  // never loses its last reader in between (its writer would be stopped by SIGPIPE).
  uni::fileio probe(opts.input_file, false, true, false);
  if (!probe.is_open()) {
    uni::write_stderr("prob accessing file " + opts.input_file + " for read, aborting\n");
    return k_refused;
  }
  if (opts.run_enabled) {
    const std::unique_ptr<metadata_batch> batch = batch_for(ctx);
    rs.batch = batch.get();
    read_input(opts.input_file, rs);
    if (writer) writer->run_ended(ctx);
  }
  return 0;
}

}  // namespace varn
