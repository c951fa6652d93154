// Echo pairing against tshark's on real captures: for every echo conversation varn does not flag,
// the replies it pairs with a request (neither orphans nor duplicates) are the replies tshark
// links to a request (icmp.resp_to, icmpv6.resp_to), and the least and greatest round-trip
// times agree with tshark's icmp.resptime (to its microsecond). tshark pairs a reply only with a
// request whose payload it returns (by the checksum), so a tunnel's own replies, which varn
// pairs and counts as mismatched, are left out: the flagged conversations are not compared.
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <nlohmann/json.hpp>

#include "e2e/e2e_expect.hpp"

namespace varn_test {
namespace {

std::string shell_output(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[65536];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;) out.append(buf, n);
    ::pclose(p);
  }
  return out;
}

std::vector<std::string> fields(const std::string& line) {
  std::vector<std::string> f;
  for (size_t start = 0, end = 0; end != std::string::npos; start = end + 1) {
    end = line.find('\t', start);
    f.push_back(line.substr(start, end == std::string::npos ? std::string::npos : end - start));
  }
  return f;
}

struct pairing {
  unsigned answered = 0;
  double rtt_min = -1, rtt_max = -1;  // milliseconds
};

// "initiator responder id" of an echo conversation.
using conversation_key = std::string;

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

struct tshark_view {
  std::map<conversation_key, pairing> paired;
  std::map<std::string, unsigned> request_copies;  // "key seq": requests seen
  std::set<conversation_key> repeated;              // conversations with a request seen twice
  unsigned echo_frames = 0;
  bool fragments = false;
};

TEST(conversations_tshark_test, pairs_echo_replies_as_tshark_does) {
  if (shell_output("command -v tshark && command -v mergecap").find("mergecap") == std::string::npos)
    GTEST_SKIP() << "tshark not installed";
  const std::vector<std::string> files = captures();
  if (files.empty()) GTEST_SKIP() << "no real captures beside the checkout";
  const bool any_format =
      run_varn({"-ifile", files.front(), "-any_format", "-summary", "-json"}).out.find("icmp_conversation") != std::string::npos;
  // varn's conversations of each capture it reads.
  std::vector<std::string> names;
  std::vector<std::map<conversation_key, pairing>> ours;
  std::vector<unsigned> our_echo_frames;
  std::vector<std::set<conversation_key>> flagged;
  for (const std::string& file : files) {
    std::vector<std::string> args = {"-ifile", file, "-summary", "-json"};
    if (any_format) args.push_back("-any_format");
    const run_result r = run_varn(args);
    if (r.status != 0) continue;  // a capture this build cannot read (-any_format missing)
    std::map<conversation_key, pairing> conversations;
    std::set<conversation_key> flagged_here;
    unsigned frames = 0;
    for (const std::string& line : split_lines(r.out)) {
      const nlohmann::json e = nlohmann::json::parse(line, nullptr, false);
      if (e.is_discarded() || e.value("event_type", "") != "icmp_conversation" || !e.contains("icmp_id")) continue;
      if (e["request_type"] != 8 && e["request_type"] != 128) continue;
      frames += e["requests"].get<unsigned>() + e["replies"].get<unsigned>();
      const conversation_key key = e["src_ip"].get<std::string>() + " " + e["dest_ip"].get<std::string>() + " " +
                                   std::to_string(e["icmp_id"].get<unsigned>());
      if (e["flagged"].get<bool>()) {
        flagged_here.insert(key);
        continue;
      }
      pairing& p = conversations[key];
      p.answered += e["replies"].get<unsigned>() - e["orphan_replies"].get<unsigned>() - e["duplicate_replies"].get<unsigned>();
      if (!e["rtt_ms"].is_null()) p.rtt_min = e["rtt_ms"]["min"], p.rtt_max = e["rtt_ms"]["max"];
    }
    names.push_back(file);
    ours.push_back(conversations);
    our_echo_frames.push_back(frames);
    flagged.push_back(flagged_here);
  }
  ASSERT_FALSE(names.empty());
  // tshark starts slowly: the captures are joined into one file, one interface per capture.
  temp_dir scratch;
  std::string merge = "mergecap -I none -a -F pcapng -w '" + scratch.file("all.pcapng") + "'";
  for (const std::string& name : names) merge += " '" + name + "'";
  shell_output(merge + " 2>/dev/null");
  const std::string rows = shell_output(
      "tshark -n -r '" + scratch.file("all.pcapng") + "' -T fields -e frame.interface_id -e ip.src -e ip.dst -e ipv6.src"
      " -e ipv6.dst -e icmp.type -e icmp.ident -e icmp.seq -e icmp.resp_to -e icmp.resptime -e icmpv6.type"
      " -e icmpv6.echo.identifier -e icmpv6.echo.sequence_number -e icmpv6.resp_to -e icmpv6.resptime -e ip.flags.mf"
      " -e ipv6.fragment 2>/dev/null");
  std::vector<tshark_view> theirs(names.size());
  for (const std::string& line : split_lines(rows)) {
    const std::vector<std::string> f = fields(line);
    if (f.size() < 17 || f[0].empty() || std::stoul(f[0]) >= names.size()) continue;
    tshark_view& t = theirs[std::stoul(f[0])];
    t.fragments = t.fragments || f[15].find('1') != std::string::npos || !f[16].empty();
    const bool v6 = !f[10].empty();
    const std::string type = v6 ? f[10] : f[5], id = v6 ? f[11] : f[6], seq = v6 ? f[12] : f[7];
    const std::string resp_to = v6 ? f[13] : f[8], rtt = v6 ? f[14] : f[9];
    // Packets inside packets show as more than one value per field: only plain messages count.
    if (type.empty() || type.find(',') != std::string::npos || id.empty()) continue;
    if (type != "0" && type != "8" && type != "128" && type != "129") continue;
    ++t.echo_frames;
    const bool request = type == "8" || type == "128";
    const std::string src = v6 ? f[3] : f[1], dst = v6 ? f[4] : f[2];
    const conversation_key key = (request ? src : dst) + " " + (request ? dst : src) + " " +
                                 std::to_string(std::stoul(id, nullptr, 0));
    if (request) {
      if (++t.request_copies[key + " " + seq] > 1) t.repeated.insert(key);
      continue;
    }
    if (resp_to.empty()) continue;
    pairing& p = t.paired[key];
    ++p.answered;
    const double ms = std::stod(rtt);
    if (p.rtt_min < 0 || ms < p.rtt_min) p.rtt_min = ms;
    if (ms > p.rtt_max) p.rtt_max = ms;
  }
  size_t compared = 0, timed = 0, partial = 0;
  for (size_t i = 0; i < names.size(); ++i) {
    const tshark_view& t = theirs[i];
    // A capture with frames only one of the two reads (other link layers without -any_format,
    // packets inside packets) is not compared.
    if (t.echo_frames != our_echo_frames[i]) {
      ++partial;
      continue;
    }
    for (const auto& [key, p] : ours[i]) {
      const pairing q = t.paired.count(key) ? t.paired.at(key) : pairing{};
      EXPECT_EQ(p.answered, q.answered) << names[i] << ": " << key;
      ++compared;
      // Reassembly makes tshark time a fragmented reply by its last fragment, varn by its first.
      if (t.fragments || p.answered == 0) continue;
      if (t.repeated.count(key)) {
        // A request captured twice: varn times the reply from the earliest copy, tshark from the
        // latest, so varn's times are never the shorter.
        EXPECT_GE(p.rtt_min, q.rtt_min - 0.0011) << names[i] << ": " << key;
        EXPECT_GE(p.rtt_max, q.rtt_max - 0.0011) << names[i] << ": " << key;
      } else {
        EXPECT_NEAR(p.rtt_min, q.rtt_min, 0.0011) << names[i] << ": " << key;
        EXPECT_NEAR(p.rtt_max, q.rtt_max, 0.0011) << names[i] << ": " << key;
      }
      ++timed;
    }
    for (const auto& [key, q] : t.paired)
      if (!ours[i].count(key) && !flagged[i].count(key)) ADD_FAILURE() << names[i] << ": tshark pairs replies in " << key << ", varn has no such conversation";
  }
  EXPECT_GT(timed, 0u);
  std::cout << "[ pairing  ] " << names.size() << " captures (" << partial << " read differently, not compared), "
            << compared << " conversations paired as tshark does, " << timed << " timed\n";
}

}  // namespace
}  // namespace varn_test
