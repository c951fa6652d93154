// Captures handed over on pipes and FIFOs give the report of the same bytes in a file.
#include <atomic>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

#include "support/capture_text.hpp"
#include "support/run_varn.hpp"

namespace varn_test {
namespace {

std::string replace_all(std::string text, const std::string& from, const std::string& to) {
  for (size_t at = text.find(from); at != std::string::npos; at = text.find(from, at + to.size())) text.replace(at, from.size(), to);
  return text;
}

// `cat CAPTURE | varn -ifile /dev/stdin ...` writes what `varn -ifile CAPTURE ...` writes, but for
// the file name; the two captures that abort on their first read abort the same way.
TEST(streams_test, shared_captures_on_standard_input_as_a_pipe_match_the_files) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "shared captures not present";
  size_t aborted = 0;
  for (const auto& entry : std::filesystem::directory_iterator(dir)) {
    if (!entry.is_regular_file() || entry.path().extension() == ".md") continue;
    const std::string name = entry.path().filename().string();
    for (const std::vector<std::string>& mode : {std::vector<std::string>{}, {"-dump_meta", "-dump_hdr", "-dump_payload"}}) {
      SCOPED_TRACE(name + (mode.empty() ? " (default)" : " (dump)"));
      std::vector<std::string> file_args{"-ifile", name}, pipe_args{"-ifile", "/dev/stdin"};
      file_args.insert(file_args.end(), mode.begin(), mode.end());
      pipe_args.insert(pipe_args.end(), mode.begin(), mode.end());
      const run_result file = run_varn(file_args, {stdin_mode::empty, "", dir});
      const run_result piped = run_varn(pipe_args, {stdin_mode::pipe, read_file(entry.path()), dir});
      EXPECT_EQ(replace_all(piped.out, "/dev/stdin", name), file.out);
      EXPECT_EQ(piped.err, file.err);
      EXPECT_EQ(piped.status, file.status);
      aborted += file.status == 128 + SIGABRT;
    }
  }
  EXPECT_EQ(aborted, 4u);  // two captures, two modes
}

// Runs varn with ARGS in DIR while writer processes feed FIFOS[i] (made here) with CONTENTS[i],
// each opening its FIFO for writing (so waiting for varn to open it for reading) after a delay
// of DELAYS_MS[i]. A varn still running after 20 s fails the test, which then ends its wait.
run_result run_with_fifos(const std::vector<std::string>& args, const std::string& dir, const std::vector<std::string>& fifos,
                          const std::vector<std::string>& contents, const std::vector<int>& delays_ms, const std::string& list = "") {
  std::vector<pid_t> writers;
  for (size_t i = 0; i < fifos.size(); ++i) {
    const std::string path = dir + "/" + fifos[i];
    EXPECT_EQ(::mkfifo(path.c_str(), 0600), 0) << path;
    const pid_t pid = ::fork();
    if (pid == 0) {
      std::this_thread::sleep_for(std::chrono::milliseconds(delays_ms[i]));
      const int fd = ::open(path.c_str(), O_WRONLY);
      for (size_t at = 0; fd >= 0 && at < contents[i].size();) {
        const ssize_t n = ::write(fd, contents[i].data() + at, contents[i].size() - at);
        if (n <= 0) _exit(3);  // no reader left: the report would miss bytes
        at += static_cast<size_t>(n);
      }
      _exit(fd >= 0 ? 0 : 2);
    }
    writers.push_back(pid);
  }
  // The watchdog stops the writers and lets a writer come and go on every FIFO: a waiting varn
  // then sees each one end.
  std::atomic<bool> done{false};
  std::thread watchdog([&] {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done && std::chrono::steady_clock::now() < limit) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    if (done) return;
    ADD_FAILURE() << "varn still runs after 20 s: it waits on a FIFO";
    for (const pid_t w : writers) ::kill(w, SIGKILL);
    for (const std::string& fifo : fifos)
      if (const int fd = ::open((dir + "/" + fifo).c_str(), O_WRONLY | O_NONBLOCK); fd >= 0) ::close(fd);
  });
  const run_result r = run_varn(args, {list.empty() ? stdin_mode::empty : stdin_mode::text, list, dir});
  done = true;
  watchdog.join();
  for (const pid_t w : writers) {
    int status = 0;
    while (::waitpid(w, &status, 0) < 0 && errno == EINTR) continue;
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a FIFO writer did not hand over its capture";
  }
  return r;
}

TEST(streams_test, fifos_in_a_list_and_after_ifile_match_the_files) {
  const std::string dir = shared_captures_dir();
  if (dir.empty()) GTEST_SKIP() << "shared captures not present";
  // Larger than a pipe's buffer, smaller than one, and a capture whose walk stops early.
  const std::vector<std::string> names = {"afs.pcap", "icmpv6.pcap", "icmp-icmp_print-oobr-1.pcap"};
  std::vector<std::string> contents;
  for (const std::string& name : names) contents.push_back(read_file(dir + "/" + name));
  const temp_dir scratch;
  std::string file_list, fifo_list;
  for (size_t i = 0; i < names.size(); ++i) {
    write_file(scratch.file(names[i]), contents[i]);
    file_list += names[i] + "\n";
    fifo_list += "f" + names[i] + "\n";
  }
  const run_result files = run_varn({"-pipe", "-dump_meta"}, {stdin_mode::text, file_list, scratch.path()});
  // The writers come before varn opens each FIFO, or after.
  for (const std::vector<int>& delays : {std::vector<int>{0, 0, 0}, {300, 0, 500}}) {
    const std::vector<std::string> fifos = {"f" + names[0], "f" + names[1], "f" + names[2]};
    const run_result fifo = run_with_fifos({"-pipe", "-dump_meta"}, scratch.path(), fifos, contents, delays, fifo_list);
    EXPECT_EQ(replace_all(fifo.out, "Processing file: f", "Processing file: "), files.out);
    EXPECT_EQ(fifo.status, 0);
    for (const std::string& f : fifos) std::filesystem::remove(scratch.file(f));
  }
  // -ifile: varn checks that it can open the file, then opens it again to read it. A writer that
  // hands over a small capture at once and closes, or a large one that needs a reader all along,
  // must find one in between, every time.
  for (size_t i : {size_t{0}, size_t{1}}) {
    const run_result file = run_varn({"-ifile", names[i]}, {stdin_mode::empty, "", scratch.path()});
    for (int round = 0; round < 10; ++round) {
      const run_result fifo = run_with_fifos({"-ifile", "f" + names[i]}, scratch.path(), {"f" + names[i]}, {contents[i]}, {0});
      EXPECT_EQ(replace_all(fifo.out, "f" + names[i], names[i]), file.out) << names[i] << " round " << round;
      std::filesystem::remove(scratch.file("f" + names[i]));
    }
  }
}

}  // namespace
}  // namespace varn_test
