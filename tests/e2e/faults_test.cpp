// List runs that data cannot describe: input files that change while varn waits for the next
// name on standard input, and 100,000 names with a line longer than the 4095-byte read.
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <thread>

#include "support/capture_text.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

const bytes k_abc = capture("record ts=1000000000\nicmp4\ntext \"abc\"\n");
std::string abc_report(const std::string& name) {
  return "Processing file: " + name + "\n"
         "  frame , date [utc] ,   time [utc] , proto  ,         source ip         ,      destination ip      , ttl ,"
         " Tsize , Psize ,          payload md5 hash        ,         comments\n\n"
         "      1 , 2001-09-09 , 01:46:40.000 , icmp   , 192.168.1.2               , 192.168.1.1              ,  64 ,"
         "    45 ,     3 , 900150983cd24fb0d6963f7d28e17f72 , id: 0x1a2b, echo request \n\n";
}

TEST(faults_test, inputs_removed_replaced_or_spoilt_while_varn_waits_for_names) {
#if !defined(__x86_64__)
  GTEST_SKIP() << "waits for varn through the /proc/PID/syscall numbers of x86-64";
#endif
  temp_dir dir;
  for (const char* name : {"a.pcap", "gone.pcap", "turned.pcap", "c.pcap"}) write_file(dir.file(name), k_abc);
  int in[2];
  std::signal(SIGPIPE, SIG_IGN);  // a varn that stops early must fail the test, not end it
  ASSERT_TRUE(::pipe(in) == 0 && ::write(in[1], "a.pcap\n", 7) == 7);
  const std::string out = dir.file("staged.out"), err = dir.file("staged.err"), binary = varn_binary();
  const pid_t pid = ::fork();
  if (pid == 0) {
    const int o = ::open(out.c_str(), O_WRONLY | O_CREAT, 0600), e = ::open(err.c_str(), O_WRONLY | O_CREAT, 0600);
    if (::dup2(in[0], 0) < 0 || ::dup2(o, 1) < 0 || ::dup2(e, 2) < 0 || ::chdir(dir.path().c_str()) != 0) _exit(126);
    ::close(in[1]);
    ::execl(binary.c_str(), "varn", "-pipe", "-dump_meta", static_cast<char*>(nullptr));
    _exit(127);
  }
  ::close(in[0]);
  // Once varn has handled a.pcap and waits in a read of descriptor 0 (system call 0), files are
  // removed, replaced by a folder or cut to 3 bytes (a.pcap itself), and then listed.
  for (auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60); std::chrono::steady_clock::now() < deadline;
       std::this_thread::sleep_for(std::chrono::milliseconds(2))) {
    std::string call, fd;
    if (std::ifstream("/proc/" + std::to_string(pid) + "/syscall") >> call >> fd && call == "0" && fd == "0x0") break;
  }
  std::filesystem::remove(dir.file("gone.pcap"));
  std::filesystem::remove(dir.file("turned.pcap"));
  std::filesystem::create_directory(dir.file("turned.pcap"));
  write_file(dir.file("a.pcap"), k_abc.substr(0, 3));
  const std::string rest = "gone.pcap\nturned.pcap\na.pcap\nc.pcap\n";
  EXPECT_EQ(::write(in[1], rest.data(), rest.size()), static_cast<ssize_t>(rest.size()));
  ::close(in[1]);
  int status = 0;
  ::waitpid(pid, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0 && read_file(err).empty()) << read_file(err);
  // A folder opens but its header read fails: no message and no empty line.
  EXPECT_EQ((run_result{0, read_file(out), ""}.report()),
            abc_report("a.pcap") + "prob opening gone.pcap for read\nProcessing file: turned.pcap\n"
                                   "Processing file: a.pcap\ninvalid pcap file, aborting\n" + abc_report("c.pcap"));
}

TEST(faults_test, list_of_100000_names_and_a_long_line_is_reported_in_full_and_fast) {
  temp_dir dir;
  write_file(dir.file("a.pcap"), k_abc);
  // A line of 4095 + 6 bytes is read as two names: 4095 "x" and "a.pcap".
  std::string names = std::string(4095, 'x') + "a.pcap\n", expect = "prob opening " + std::string(4095, 'x') +
                                                                      " for read\n" + abc_report("a.pcap");
  for (int i = 0; i < 100000; ++i) {
    const std::string name = i % 9973 == 0 ? "a.pcap" : "missing-" + std::to_string(i) + ".pcap";
    names += name + "\n";
    expect += i % 9973 == 0 ? abc_report(name) : "prob opening " + name + " for read\n";
  }
  const auto start = std::chrono::steady_clock::now();
  const run_result r = run_varn({"-pipe", "-dump_meta"}, {stdin_mode::text, names, dir.path()});
  // A per-name cost that grows with the list, or a buffer allocated per missing file, shows here.
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_TRUE(r.status == 0 && r.err.empty() && r.report() == expect) << r.report().size() << " bytes instead of " << expect.size();
}

}  // namespace
}  // namespace varn_test
