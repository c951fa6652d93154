// List runs: capture names from standard input ("-pipe") or from a directory walk
// ("-enumdir"), narrowed by "-filter", each file reported with its own column header.
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "e2e/e2e_expect.hpp"
#include "support/pcap_builder.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

constexpr uint32_t k_ts = 1700000000;  // 2023-11-14 22:13:20 UTC

// Records of an echo request 192.168.1.2 -> .1 and its reply, payload "abc", as frame N.
std::string request_line(const std::string& n) {
  return std::string(7 - n.size(), ' ') + n +
         " , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,    45 "
         ",     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n";
}
std::string reply_line(const std::string& n) {
  return std::string(7 - n.size(), ' ') + n +
         " , 2023-11-14 , 22:13:20.000 , icmp   , 192.168.1.1               , 192.168.1.2              ,  64 ,    45 "
         ",     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo reply \n";
}

bytes request_frame() {
  icmp4_spec s;
  s.payload = "abc";
  return icmp4_frame(s);
}
bytes reply_frame() {
  icmp4_spec s;
  s.src = {192, 168, 1, 1};
  s.dst = {192, 168, 1, 2};
  s.type = 0;
  s.payload = "abc";
  return icmp4_frame(s);
}
bytes arp_frame() { return ethernet_frame(0x0806, bytes(28, '\x01')); }

// Frames 1 request, 2 reply.
bytes capture_a() {
  pcap_writer w;
  w.add(k_ts, 0, request_frame()).add(k_ts, 0, reply_frame());
  return w.data();
}
const std::string k_report_a = k_columns + request_line("1") + reply_line("2");

// Frames 1 request, 2 ARP, 3 reply.
bytes capture_b() {
  pcap_writer w;
  w.add(k_ts, 0, request_frame()).add(k_ts, 0, arp_frame()).add(k_ts, 0, reply_frame());
  return w.data();
}
const std::string k_report_b = k_columns + request_line("1") + reply_line("3");

// A valid capture with no ICMP frame: read, but no record and no column header.
bytes capture_none() {
  pcap_writer w;
  w.add(k_ts, 0, arp_frame());
  return w.data();
}

run_result run_in(const temp_dir& dir, const std::vector<std::string>& args, const std::string& input) {
  return run_varn(args, {stdin_mode::text, input, dir.path()});
}

TEST(list_mode_test, names_from_stdin_with_cr_lf_and_blank_lines) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), capture_a());
  write_file(dir.file("b.pcap"), capture_b());
  // The last name has no line end at all.
  const run_result r = run_in(dir, {"-pipe", "-dump_meta"}, "a.pcap\r\n\r\n\r\r\n\n\nb.pcap");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  expect_run_header(r, "<filelist> ... | varn -pipe -dump_meta");
  // Header re-armed per file, frame numbers restart, one empty line after each file read.
  EXPECT_EQ(r.report(), "Processing file: a.pcap\n" + k_report_a + "\nProcessing file: b.pcap\n" + k_report_b + "\n");
}

TEST(list_mode_test, unreadable_and_invalid_files_do_not_stop_the_run) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), capture_a());
  write_file(dir.file("b.pcap"), capture_b());
  write_file(dir.file("bad.pcap"), "this is no capture file at all");
  write_file(dir.file("none.pcap"), capture_none());
  const run_result r = run_in(dir, {"-pipe", "-dump_meta"}, "a.pcap\nmissing.pcap\nbad.pcap\nnone.pcap\nb.pcap\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.report(), "Processing file: a.pcap\n" + k_report_a +
                            "\n"
                            "prob opening missing.pcap for read\n"
                            "Processing file: bad.pcap\n"
                            "invalid pcap file, aborting\n"
                            "Processing file: none.pcap\n"
                            "\n"
                            "Processing file: b.pcap\n" +
                            k_report_b + "\n");
}

TEST(list_mode_test, output_file_gets_no_empty_lines_between_files) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), capture_a());
  write_file(dir.file("b.pcap"), capture_b());
  write_file(dir.file("none.pcap"), capture_none());
  const run_result r = run_in(dir, {"-pipe", "-ofile", "out.txt"}, "a.pcap\nnone.pcap\nmissing.pcap\nb.pcap\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.err, "");
  EXPECT_EQ(r.report(),
            "Processing file: a.pcap\n"
            "Processing file: none.pcap\n"
            "prob opening missing.pcap for read\n"
            "Processing file: b.pcap\n");
  EXPECT_EQ(read_file(dir.file("out.txt")), k_report_a + k_report_b);
}

TEST(list_mode_test, same_file_twice_gets_the_header_twice) {
  temp_dir dir;
  write_file(dir.file("b.pcap"), capture_b());
  const run_result r = run_in(dir, {"-pipe", "-frame", "3"}, "b.pcap\nb.pcap\n");
  const std::string one = "Processing file: b.pcap\n" + k_columns + reply_line("3") + "\n";
  EXPECT_EQ(r.report(), one + one);
}

TEST(list_mode_test, long_line_is_read_as_pieces_of_4095_bytes) {
  temp_dir dir;
  // A relative path of 905 bytes: four 200-byte directory names and a 101-byte file name.
  std::string tail;
  for (char c : {'d', 'e', 'f', 'g'}) {
    tail += std::string(200, c);
    std::filesystem::create_directory(dir.file(tail));
    tail += "/";
  }
  tail += std::string(96, 'c') + ".pcap";
  ASSERT_EQ(tail.size(), 905u);
  write_file(dir.file(tail), capture_b());
  const std::string head(4095, 'x');
  const run_result r = run_in(dir, {"-pipe", "-dump_meta"}, head + tail + "\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(), "prob opening " + head + " for read\nProcessing file: " + tail + "\n" + k_report_b + "\n");
}

TEST(list_mode_test, standard_input_closed_or_empty_ends_with_status_0) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), capture_a());
  for (stdin_mode mode : {stdin_mode::closed, stdin_mode::empty}) {
    SCOPED_TRACE(mode == stdin_mode::closed ? "closed" : "empty");
    const run_result r = run_varn({"-pipe", "-dump_meta"}, {mode, "", dir.path()});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    expect_run_header(r, "<filelist> ... | varn -pipe -dump_meta");
    EXPECT_EQ(r.report(), "");
  }
}

TEST(list_mode_test, pipe_takes_precedence_over_ifile) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), capture_a());
  write_file(dir.file("b.pcap"), capture_b());
  const run_result r = run_in(dir, {"-ifile", "a.pcap", "-pipe"}, "b.pcap\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(), "Processing file: b.pcap\n" + k_report_b + "\n");
}

// The common options are taken out before the tool's own are looked up: "-pipe" is not the
// value of the "-ifile" in front of it, and "-filter" takes its value before anything else.
TEST(list_mode_test, common_options_are_read_first) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), capture_a());
  write_file(dir.file("b.pcap"), capture_b());
  run_result r = run_in(dir, {"-ifile", "-pipe", "b.pcap"}, "a.pcap\n");
  EXPECT_EQ(r.status, 0);
  expect_run_header(r, "<filelist> ... | varn -ifile -pipe b.pcap");
  EXPECT_EQ(r.report(), "Processing file: a.pcap\n" + k_report_a + "\n");

  // "-dump_payload" is the filter pattern here, so no payload is dumped and no name passes.
  r = run_in(dir, {"-pipe", "-filter", "-dump_payload"}, "a.pcap\n-dump_payload\n");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(), "prob opening -dump_payload for read\n");
}

struct filter_case {
  std::string filter;
  std::vector<std::string> passing;  // in input order
};

TEST(list_mode_test, filter_patterns_on_the_file_name) {
  temp_dir dir;
  const std::vector<std::string> names = {"X.Pcap",      "y.cap",        "z.cap,x",   "a.pcap.pcap", "abcd",
                                          "abXcd",       "PART1.pcap",   "1part.cap", "a\\b.pcap",   "sub.pcap/c.txt",
                                          "sub.pcap/d.pcap"};
  std::filesystem::create_directory(dir.file("sub.pcap"));
  std::string input;
  for (const std::string& n : names) {
    write_file(dir.file(n), capture_none());
    input += n + "\n";
  }
  const std::vector<filter_case> cases = {
      // Split at "|" only when both separators are there; matching ignores case.
      {"*.PCAP|*.cap,x", {"X.Pcap", "z.cap,x", "PART1.pcap", "a\\b.pcap", "sub.pcap/d.pcap"}},
      {"*.pcap,*.cap", {"X.Pcap", "y.cap", "PART1.pcap", "1part.cap", "a\\b.pcap", "sub.pcap/d.pcap"}},
      {"*art*", {"PART1.pcap", "1part.cap"}},
      {"part*", {"PART1.pcap"}},
      {"ab*cd", {"abcd"}},
      {"b.pcap", {"a\\b.pcap"}},
      {"D.PCAP", {"sub.pcap/d.pcap"}},
      {"*", names},
      {"*.pcap|*", names},
      {"nothing*", {}},
  };
  for (const filter_case& c : cases) {
    SCOPED_TRACE(c.filter);
    const run_result r = run_in(dir, {"-pipe", "-filter", c.filter}, input);
    EXPECT_EQ(r.status, 0);
    std::string expected;
    for (const std::string& n : c.passing) expected += "Processing file: " + n + "\n\n";
    EXPECT_EQ(r.report(), expected);
  }
}

// root/                 walked at depth 0
//   Z.pcap a.pcap b.pcap notes.txt   files, byte-wise order
//   link.pcap -> a.pcap, linkdir -> sub1, fifo   skipped
//   sub0/e.pcap  sub1/c.pcap          depth 1
//   sub1/deeper/d.pcap                depth 2: not walked
class enumdir_tree {
 public:
  enumdir_tree() {
    namespace fs = std::filesystem;
    fs::create_directories(m_dir.file("root/sub1/deeper"));
    fs::create_directories(m_dir.file("root/sub0"));
    write_file(m_dir.file("root/b.pcap"), capture_none());
    write_file(m_dir.file("root/a.pcap"), capture_a());
    write_file(m_dir.file("root/Z.pcap"), capture_none());
    write_file(m_dir.file("root/notes.txt"), "no capture");
    write_file(m_dir.file("root/sub0/e.pcap"), capture_b());
    write_file(m_dir.file("root/sub1/c.pcap"), capture_none());
    write_file(m_dir.file("root/sub1/deeper/d.pcap"), capture_none());
    fs::create_symlink("a.pcap", m_dir.file("root/link.pcap"));
    fs::create_directory_symlink("sub1", m_dir.file("root/linkdir"));
    ::mkfifo(m_dir.file("root/fifo").c_str(), 0600);
  }
  const temp_dir& dir() const { return m_dir; }

 private:
  temp_dir m_dir;
};

TEST(list_mode_test, enumdir_walks_breadth_first_to_depth_1) {
  enumdir_tree tree;
  const std::string all = "Processing file: root/Z.pcap\n\n"
                          "Processing file: root/a.pcap\n" +
                          k_report_a +
                          "\n"
                          "Processing file: root/b.pcap\n\n"
                          "Processing file: root/notes.txt\ninvalid pcap file, aborting\n"
                          "Processing file: root/sub0/e.pcap\n" +
                          k_report_b +
                          "\n"
                          "Processing file: root/sub1/c.pcap\n\n";
  struct enum_case {
    std::vector<std::string> args;
    std::string expected;
  };
  const std::vector<enum_case> cases = {
      {{"-enumdir", "root", "-dump_meta"}, all},
      // One trailing "/" is dropped.
      {{"-enumdir", "root/", "-dump_meta"}, all},
      // Standard input is not read, and -enumdir wins over -pipe.
      {{"-pipe", "-enumdir", "root", "-dump_meta"}, all},
      {{"-enumdir", "root", "-filter", "*e.pcap|A*"},
       "Processing file: root/a.pcap\n" + k_report_a + "\nProcessing file: root/sub0/e.pcap\n" + k_report_b + "\n"},
      {{"-enumdir", "root/sub1", "-dump_meta"}, "Processing file: root/sub1/c.pcap\n\nProcessing file: root/sub1/deeper/d.pcap\n\n"},
      // Nothing to walk: no names, status 0.
      {{"-enumdir", "no-such-dir", "-dump_meta"}, ""},
      {{"-enumdir", "root/a.pcap", "-dump_meta"}, ""},
  };
  for (const enum_case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.args));
    const run_result r = run_in(tree.dir(), c.args, "root/a.pcap\nroot/b.pcap\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.report(), c.expected);
  }
}

TEST(list_mode_test, enumdir_with_output_file) {
  enumdir_tree tree;
  const run_result r = run_in(tree.dir(), {"-enumdir", "root", "-ofile", "out.txt", "-frame", "1"}, "");
  EXPECT_EQ(r.status, 0);
  EXPECT_EQ(r.report(),
            "Processing file: root/Z.pcap\n"
            "Processing file: root/a.pcap\n"
            "Processing file: root/b.pcap\n"
            "Processing file: root/notes.txt\ninvalid pcap file, aborting\n"
            "Processing file: root/sub0/e.pcap\n"
            "Processing file: root/sub1/c.pcap\n");
  EXPECT_EQ(read_file(tree.dir().file("out.txt")),
            k_columns + request_line("1") + k_columns + request_line("1"));
}

}  // namespace
}  // namespace varn_test
