// The program driver as a user meets it: help, refusals and their exit statuses, the run header,
// the output file and the end of a run.
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

#include "e2e/e2e_expect.hpp"
#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

constexpr int k_refused = 255;  // exit status -1 as a shell sees it

// The option lines of the usage text, for the program name "varn".
const std::string k_usage_lines =
    "Usage\n"
    "\n"
    " varn [-ifile <pcap file> | -pipe | -help] [options]\n"
    "\n"
    "  Any combination of these options can be used for filtering\n"
    "   -frame <\"1 2 3 ..\"> - only process the frame numbers specified\n"
    "   -srcip <src ip>     - src ip use dotted decimal notation\n"
    "   -dstip <dst ip>     - dst ip use dotted decimal notation\n"
    "   -srcipv6 <src ip>   - src ip v6 use colon delimited std::hex notation\n"
    "   -dstipv6 <dst ip>   - dst ip v6 use colon delimited std::hex notation\n"
    "   -track_replies      - given src & dst above, process replies\n"
    "   -min_size <size>    - output those frames >= the specified size\n"
    "   -start_time <\"mm/dd/yy hh:mm:ss\">\n"
    "   -stop_time <\"mm/dd/yy hh:mm:ss\">\n"
    "   -find_pattern <\"byte sequence delimited by spaces\">\n"
    "   -icmp_type <\"type1 type2\"> - process only these icmp types \n"
    "   -icmp_code <\"code1 code2\"> - process only these icmp codes \n"
    "   -icmp_id <\"1 2 3 ...\">     - process only these icmp ID numbers\n"
    "   -filter <*partial*|*.ext>  - filters stdin data from -pipe option\n"
    "\n"
    "  Any combination these options can be used for output\n"
    "   -dump_meta          - output metadata (only for non-binary output)\n"
    "   -dump_hdr           - output packet header\n"
    "   -dump_payload       - output packet payload data\n"
    "   -ofile <out file>   - output results to specified file\n"
    "\n"
    "  Only one of these options can be used for formatting (default is std::hex)\n"
    "   -binary             - output data as binary (use with -ofile option)\n"
    "   -ascii              - output data in ascii form\n"
    "   -strings            - output any strings (include unicode)\n"
    "\n";

// Usage text: two information lines, 77 "-", an empty line, the banner, an empty line, the
// option lines.
void expect_usage(const std::string& err) {
  const std::vector<std::string> lines = split_lines(err);
  ASSERT_GE(lines.size(), 6u) << err;
  EXPECT_FALSE(lines[0].empty());
  EXPECT_FALSE(lines[1].empty());
  EXPECT_EQ(lines[2], std::string(77, '-'));
  EXPECT_EQ(lines[3], "");
  EXPECT_EQ(lines[4].rfind(k_banner_prefix, 0), 0u) << lines[4];
  EXPECT_EQ(lines[5], "");
  size_t at = 0;
  for (int i = 0; i < 6; ++i) at = err.find('\n', at) + 1;
  EXPECT_EQ(err.substr(at), k_usage_lines);
}

// One IPv4 echo request, 2001-09-09 01:46:40 UTC, payload "abc".
bytes one_frame_capture() {
  icmp4_spec s;
  s.payload = "abc";
  pcap_writer w;
  w.add(1000000000, 0, icmp4_frame(s));
  return w.data();
}

struct help_case {
  std::vector<std::string> args;
};

TEST(driver_test, help_in_any_spelling_and_case_prints_only_the_usage) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const std::vector<help_case> cases = {
      {{"-h"}},
      {{"-help"}},
      {{"/?"}},
      {{"--help"}},
      {{"-H"}},
      {{"-HELP"}},
      {{"--Help"}},
      {{"-ifile", cap, "-dump_hdr", "-hElP"}},
      {{"-ifile", cap, "/?"}},
      {{"-pipe", "-h", "-ofile", dir.file("never")}},
      {{"-start_time", "garbage", "--HELP"}},
  };
  for (const help_case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const run_result r = run_varn(c.args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "") << "no run header and no report with help";
    expect_usage(r.err);
  }
  EXPECT_FALSE(std::filesystem::exists(dir.file("never"))) << "help opens no output file";
}

TEST(driver_test, no_arguments_prints_the_usage_with_status_0) {
  const run_result r = run_varn({});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.out, "");
  expect_usage(r.err);
}

TEST(driver_test, one_argument_is_refused_after_the_run_header) {
  const std::vector<std::pair<std::string, std::string>> cases = {
      {"-pipe", "<filelist> ... | varn -pipe"},
      {"-ifile", "varn -ifile"},
      {"-dump_meta", "varn -dump_meta"},
      {"some file.pcap", "varn \"some file.pcap\""},
  };
  for (const auto& [arg, invocation] : cases) {
    SCOPED_TRACE(arg);
    const run_result r = run_varn({arg}, {stdin_mode::text, "x.pcap\n", ""});
    EXPECT_EQ(r.status, k_refused);
    expect_run_header(r, invocation);
    EXPECT_EQ(r.report(), "") << "nothing after the header";
    EXPECT_EQ(r.err, "error... try: \"varn -ifile <pcap file>\"\n");
  }
}

TEST(driver_test, two_arguments_without_an_input_source_print_the_usage) {
  for (const std::vector<std::string>& args :
       std::vector<std::vector<std::string>>{{"-dump_meta", "-ascii"}, {"-dump_hdr", "-ifile"}, {"-frame", "-IFILE"}}) {
    SCOPED_TRACE(testing::PrintToString(args));
    // "-ifile" standing last has no value: it counts as not given and names no input.
    const run_result r = run_varn(args);
    EXPECT_EQ(r.status, k_refused);
    EXPECT_EQ(r.report(), "");
    expect_usage(r.err);
  }
}

TEST(driver_test, invalid_start_time_is_reported_before_the_usage) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  for (const char* value : {"garbage", "13/01/21", "01/32/21", "1-2", "01/02/03 04.05", "Foo-15-2021"}) {
    SCOPED_TRACE(value);
    const run_result r = run_varn({"-ifile", cap, "-start_time", value});
    EXPECT_EQ(r.status, k_refused);
    EXPECT_EQ(r.report(), "");
    const std::string message = "Error: invalid filter start time\n";
    ASSERT_EQ(r.err.rfind(message, 0), 0u) << r.err;
    expect_usage(r.err.substr(message.size()));
  }
}

TEST(driver_test, invalid_stop_time_alone_is_ignored) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const run_result r = run_varn({"-ifile", cap, "-stop_time", "garbage"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(reported_frames(r.report()), std::vector<unsigned>{1});
}

TEST(driver_test, output_file_in_a_missing_directory_is_refused) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const std::string out = dir.file("no/such/dir/out.txt");
  const run_result r = run_varn({"-ifile", cap, "-ofile", out});
  EXPECT_EQ(r.status, k_refused);
  expect_run_header(r, "varn -ifile " + cap + " -ofile " + out);
  EXPECT_EQ(r.report(), "") << "no input is read";
  EXPECT_EQ(r.err, "prob opening file " + out + " for output, aborting\n");
}

TEST(driver_test, missing_input_file_is_refused_after_the_output_file_was_truncated) {
  temp_dir dir;
  const std::string out = dir.file("out.txt");
  write_file(out, "old contents\n");
  const std::string missing = dir.file("missing.pcap");
  const run_result r = run_varn({"-ifile", missing, "-ofile", out});
  EXPECT_EQ(r.status, k_refused);
  EXPECT_EQ(r.report(), "");
  EXPECT_EQ(r.err, "prob accessing file " + missing + " for read, aborting\n");
  EXPECT_TRUE(std::filesystem::exists(out));
  EXPECT_EQ(read_file(out), "");

  const std::string created = dir.file("created.txt");
  const run_result r2 = run_varn({"-ofile", created, "-ifile", missing});
  EXPECT_EQ(r2.status, k_refused);
  EXPECT_TRUE(std::filesystem::exists(created)) << "the output is opened before the input is tried";
}

TEST(driver_test, unreadable_input_path_is_refused) {
  temp_dir dir;
  const run_result r = run_varn({"-ifile", dir.file("x/y.pcap")});
  EXPECT_EQ(r.status, k_refused);
  EXPECT_EQ(r.err, "prob accessing file " + dir.file("x/y.pcap") + " for read, aborting\n");
}

TEST(driver_test, normal_run_ends_with_status_0_and_nothing_on_stderr) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const run_result r = run_varn({"-ifile", cap});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  expect_run_header(r, "varn -ifile " + cap);
  // md5 of "abc" (RFC 1321); no empty line after the single file.
  EXPECT_EQ(r.report(),
            "Processing file: " + cap + "\n" + k_columns +
                "      1 , 2001-09-09 , 01:46:40.000 , icmp   , 192.168.1.2               , 192.168.1.1           "
                "   ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n");
}

TEST(driver_test, input_that_is_no_capture_still_ends_with_status_0) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, "not a capture at all");
  const run_result r = run_varn({"-ifile", cap, "-dump_meta"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.report(), "Processing file: " + cap + "\ninvalid pcap file, aborting\n");
}

TEST(driver_test, output_file_gets_the_report_and_stdout_keeps_header_and_progress) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const std::string out = dir.file("out.txt");
  write_file(out, std::string(5000, 'z'));
  const run_result r = run_varn({"-ifile", cap, "-ofile", out});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  expect_run_header(r, "varn -ifile " + cap + " -ofile " + out);
  EXPECT_EQ(r.report(), "Processing file: " + cap + "\n");
  EXPECT_EQ(read_file(out),
            k_columns +
                "      1 , 2001-09-09 , 01:46:40.000 , icmp   , 192.168.1.2               , 192.168.1.1           "
                "   ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n");
}

TEST(driver_test, existing_output_file_is_truncated_when_nothing_matches) {
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const std::string out = dir.file("out.txt");
  for (const std::vector<std::string>& extra :
       std::vector<std::vector<std::string>>{{"-frame", "2"}, {"-binary", "-dump_payload", "-icmp_type", "0"}}) {
    write_file(out, "previous report\n");
    std::vector<std::string> args = {"-ifile", cap, "-ofile", out};
    args.insert(args.end(), extra.begin(), extra.end());
    const run_result r = run_varn(args);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(read_file(out), "") << "never appended, and no column header without a record";
  }
}

TEST(driver_test, binary_output_file_holds_the_raw_bytes) {
  temp_dir dir;
  // Line ends and zero bytes must pass unchanged.
  const bytes payload = std::string("a\nb\r\nc\0d\x1a\xff\r", 11);
  icmp4_spec s;
  s.payload = payload;
  const bytes frame = icmp4_frame(s);
  pcap_writer w;
  w.add(1000000000, 0, frame);
  const std::string cap = dir.file("c.pcap");
  w.save(cap);

  const std::string out = dir.file("out.bin");
  run_result r = run_varn({"-ifile", cap, "-ofile", out, "-binary", "-dump_payload"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(), "Processing file: " + cap + "\n");
  EXPECT_EQ(read_file(out), payload);

  r = run_varn({"-ifile", cap, "-ofile", out, "-binary", "-dump_hdr", "-dump_payload", "-dump_meta"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(read_file(out), frame) << "header bytes then payload bytes; no metadata in binary";
}

TEST(driver_test, run_header_shows_the_invocation) {
  temp_dir dir;
  const std::string cap = dir.file("my capture.pcap");
  write_file(cap, one_frame_capture());
  struct header_case {
    std::vector<std::string> args;
    std::string invocation;
    run_options options;
  };
  const std::vector<header_case> cases = {
      {{"-ifile", cap, "-find_pattern", "0x45 ? 0x10"},
       "varn -ifile \"" + cap + "\" -find_pattern \"0x45 ? 0x10\"",
       {}},
      {{"-pipe", "-filter", "*.pcap"}, "<filelist> ... | varn -pipe -filter *.pcap", {stdin_mode::empty, "", ""}},
      {{"-dump_meta", "-pipe"}, "<filelist> ... | varn -dump_meta -pipe", {stdin_mode::empty, "", ""}},
      {{"-ifile", cap, "-dateformat", "dd/mm/yyyy"}, "varn -ifile \"" + cap + "\" -dateformat dd/mm/yyyy", {}},
  };
  for (const header_case& c : cases) {
    SCOPED_TRACE(c.invocation);
    const run_result r = run_varn(c.args, c.options);
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    expect_run_header(r, c.invocation);
  }
}

TEST(driver_test, ofile_followed_by_an_option_name_takes_it_as_the_file_name) {
  temp_dir dir;
  write_file(dir.file("c.pcap"), one_frame_capture());
  // "-ascii" is the output file's name, so the format stays hex and only the record is written.
  const run_result r = run_varn({"-ifile", "c.pcap", "-ofile", "-ascii"}, {stdin_mode::empty, "", dir.path()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(), "Processing file: c.pcap\n");
  const std::string written = read_file(dir.file("-ascii"));
  EXPECT_EQ(written.rfind(k_columns, 0), 0u);
  EXPECT_EQ(split_lines(written).size(), 3u) << "column header, empty line, one record; no payload text";
}

TEST(driver_test, first_of_two_ifile_options_is_used) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), one_frame_capture());
  const run_result r =
      run_varn({"-ifile", "a.pcap", "-ifile", "missing.pcap"}, {stdin_mode::empty, "", dir.path()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report().rfind("Processing file: a.pcap\n", 0), 0u);
}

TEST(driver_test, option_names_in_capitals_are_accepted) {
  temp_dir dir;
  write_file(dir.file("c.pcap"), one_frame_capture());
  const run_result r =
      run_varn({"-IFILE", "c.pcap", "-Ascii", "-DUMP_PAYLOAD"}, {stdin_mode::empty, "", dir.path()});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(), "Processing file: c.pcap\nabc\n\n");
}

// A snaplen above 131056 makes the first read request larger than the 128 KiB record buffer
// once more than 131072 bytes follow the file header.
bytes oversized_capture() {
  pcap_writer w(200000);
  icmp4_spec s;
  s.payload = std::string(140000, 'p');
  w.add(1000000000, 0, icmp4_frame(s));
  return w.data();
}

TEST(driver_test, read_larger_than_the_record_buffer_aborts_after_flushing) {
  temp_dir dir;
  const std::string cap = dir.file("big.pcap");
  write_file(cap, oversized_capture());
  const run_result r = run_varn({"-ifile", cap});
  EXPECT_EQ(r.status, 128 + SIGABRT);
  expect_run_header(r, "varn -ifile " + cap);
  EXPECT_EQ(r.report(), "Processing file: " + cap + "\n");
  EXPECT_EQ(r.err.rfind("fatal assertion failed in read_capture_file: ", 0), 0u) << r.err;
  EXPECT_EQ(r.err.back(), '\n');
}

TEST(driver_test, abort_in_a_later_file_keeps_the_report_written_so_far) {
  temp_dir dir;
  write_file(dir.file("good.pcap"), one_frame_capture());
  write_file(dir.file("big.pcap"), oversized_capture());
  const std::string out = dir.file("out.txt");
  const run_result r = run_varn({"-pipe", "-ofile", out}, {stdin_mode::text, "good.pcap\nbig.pcap\ngood.pcap\n", dir.path()});
  EXPECT_EQ(r.status, 128 + SIGABRT);
  EXPECT_EQ(r.report(), "Processing file: good.pcap\nProcessing file: big.pcap\n");
  EXPECT_EQ(read_file(out),
            k_columns +
                "      1 , 2001-09-09 , 01:46:40.000 , icmp   , 192.168.1.2               , 192.168.1.1           "
                "   ,  64 ,    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n");
}

TEST(driver_test, snaplen_above_the_buffer_with_a_small_file_runs_normally) {
  // The read request is cut to what is left of the file, so no abort below 131072 bytes.
  temp_dir dir;
  pcap_writer w(200000);
  icmp4_spec s;
  s.payload = "abc";
  w.add(1000000000, 0, icmp4_frame(s));
  const std::string cap = dir.file("c.pcap");
  w.save(cap);
  const run_result r = run_varn({"-ifile", cap});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(reported_frames(r.report()), std::vector<unsigned>{1});
}

TEST(driver_test, write_errors_on_the_output_file_are_not_checked) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full on this machine";
  temp_dir dir;
  const std::string cap = dir.file("c.pcap");
  write_file(cap, one_frame_capture());
  const run_result r = run_varn({"-ifile", cap, "-ofile", "/dev/full", "-dump_hdr", "-dump_payload"});
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.report(), "Processing file: " + cap + "\n");
}

}  // namespace
}  // namespace varn_test
