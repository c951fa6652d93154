// Echo pairing against tshark's on real captures: every reply varn pairs ("request_frame") is the
// one tshark links to the same request (resp_to), with the same round-trip time to the
// microsecond, and tshark links no reply varn leaves unpaired. IP reassembly is off (both read a
// fragmented message at its first fragment). tshark pairs only replies that return the request's
// payload, so flagged conversations' replies are not compared; of a request captured twice, varn
// answers the earliest copy, tshark the latest.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <nlohmann/json.hpp>

#include "e2e/e2e_expect.hpp"
#include "support/tshark_fields.hpp"

namespace varn_test {
namespace {

// A reply frame's pairing: the request's frame number and the round-trip time in milliseconds.
struct pairing {
  uint64_t request = 0;
  double rtt_ms = -1;
};

std::vector<std::string> captures() {
  std::vector<std::string> files;
  const std::string shared = shared_captures_dir();
  std::vector<std::string> dirs = {std::string(VARN_SOURCE_DIR) + "/tests/traffic"};
  if (!shared.empty()) dirs.push_back(shared), dirs.push_back(shared + "/../tunnels");
  for (const std::string& dir : dirs) {
    if (!std::filesystem::is_directory(dir)) continue;
    for (const auto& e : std::filesystem::directory_iterator(dir))
      if (e.path().extension() == ".pcap" || e.path().extension() == ".pcapng") files.push_back(e.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

TEST(conversations_tshark_test, pairs_echo_replies_as_tshark_does) {
  if (!have_programs({"tshark", "mergecap"})) GTEST_SKIP() << "tshark not installed";
  const std::vector<std::string> files = captures();
  if (files.empty()) GTEST_SKIP() << "no real captures beside the checkout";
  // varn's pairing of the echo replies of each capture, by frame number.
  struct capture {
    std::string name;
    std::map<uint64_t, pairing> paired;  // answered replies
    std::set<uint64_t> flagged;          // replies of flagged conversations
    unsigned echo_frames = 0;
  };
  std::vector<capture> read;
  for (const std::string& file : files) {
    const run_result r = run_varn({"-ifile", file, "-summary", "-json", "-dump_meta", "-any_format"});
    if (r.status != 0) continue;  // a capture varn refuses
    capture c;
    c.name = file;
    const auto who = [](const nlohmann::json& e, const char* from, const char* to) {
      return e[from].get<std::string>() + " " + e[to].get<std::string>() + " " + std::to_string(e["icmp_id"].get<unsigned>());
    };
    std::vector<nlohmann::json> replies;
    std::set<std::string> flagged_conversations;  // responder, initiator, identifier
    for (const std::string& line : split_lines(r.out)) {
      const nlohmann::json e = nlohmann::json::parse(line, nullptr, false);
      if (e.is_discarded()) continue;
      const std::string type = e.value("event_type", "");
      if (type == "icmp_conversation" && e["flagged"] == true) flagged_conversations.insert(who(e, "dest_ip", "src_ip"));
      if (type != "icmp" || !e.contains("filler")) continue;
      const unsigned t = e["icmp_type"];
      c.echo_frames += t == 0 || t == 8 || t == 128 || t == 129;
      if (t == 0 || t == 129) replies.push_back(e);
    }
    for (const nlohmann::json& e : replies)
      if (flagged_conversations.count(who(e, "src_ip", "dest_ip"))) c.flagged.insert(e["frame"].get<uint64_t>());
      else if (e["reply"] == "answered") c.paired[e["frame"]] = {e["request_frame"], e["rtt_ms"]};
    read.push_back(c);
  }
  ASSERT_FALSE(read.empty());
  // tshark starts slowly: the captures are joined into one file, one interface per capture.
  temp_dir scratch;
  std::string merge = "mergecap -I none -a -F pcapng -w '" + scratch.file("all.pcapng") + "'";
  for (const capture& c : read) merge += " '" + c.name + "'";
  shell_output(merge + " 2>/dev/null");
  const std::string rows = shell_output(
      "tshark -n -o ip.defragment:FALSE -o ipv6.defragment:FALSE -r '" + scratch.file("all.pcapng") +
      "' -T fields -e frame.interface_id -e frame.number -e icmp.type -e icmp.resp_to -e icmp.resptime -e icmpv6.type"
      " -e icmpv6.resp_to -e icmpv6.resptime 2>/dev/null");
  std::vector<std::map<uint64_t, pairing>> theirs(read.size());
  std::vector<unsigned> their_echo_frames(read.size(), 0);
  std::vector<uint64_t> first_frame(read.size(), 0);  // of each capture in the joined file
  for (const std::string& line : split_lines(rows)) {
    const std::vector<std::string> f = split(line, "\t");
    if (f.size() < 8 || f[0].empty() || f[1].empty() || std::stoul(f[0]) >= read.size()) continue;
    const size_t file = std::stoul(f[0]);
    const uint64_t global = std::stoull(f[1]);
    if (first_frame[file] == 0) first_frame[file] = global;
    const uint64_t number = global - first_frame[file] + 1;
    const bool v6 = !f[5].empty();
    const std::string type = v6 ? f[5] : f[2], resp_to = v6 ? f[6] : f[3], rtt = v6 ? f[7] : f[4];
    // Packets inside packets show as more than one value per field ("8,0"): only plain messages count.
    if (type != "0" && type != "8" && type != "128" && type != "129") continue;
    ++their_echo_frames[file];
    if (resp_to.empty() || type == "8" || type == "128") continue;
    theirs[file][number] = {std::stoull(resp_to) - first_frame[file] + 1, rtt.empty() ? -1 : std::stod(rtt)};
  }
  size_t compared = 0, partial = 0, later_copy = 0;
  for (size_t i = 0; i < read.size(); ++i) {
    const capture& c = read[i];
    if (their_echo_frames[i] != c.echo_frames) {  // frames only one of the two reads (packets inside packets)
      ++partial;
      continue;
    }
    for (const auto& [frame, ours] : c.paired) {
      ++compared;
      const auto t = theirs[i].find(frame);
      if (t == theirs[i].end()) {
        ADD_FAILURE() << c.name << ": varn pairs reply " << frame << " with request " << ours.request << ", tshark with none";
      } else if (t->second.request == ours.request) {
        EXPECT_NEAR(ours.rtt_ms, t->second.rtt_ms, 0.0011) << c.name << ": reply " << frame;
      } else {  // a request captured twice: tshark takes the later copy
        EXPECT_LT(ours.request, t->second.request) << c.name << ": reply " << frame;
        ++later_copy;
      }
    }
    for (const auto& [frame, t] : theirs[i])
      if (!c.paired.count(frame) && !c.flagged.count(frame))
        ADD_FAILURE() << c.name << ": tshark pairs reply " << frame << " with request " << t.request << ", varn does not";
  }
  EXPECT_GT(compared, 0u);
  std::cout << "[ pairing  ] " << read.size() << " captures (" << partial << " read differently, not compared), "
            << compared << " replies paired as tshark pairs them (" << later_copy << " with a request captured twice)\n";
}

}  // namespace
}  // namespace varn_test
