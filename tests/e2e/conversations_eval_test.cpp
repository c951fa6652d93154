// -summary on labelled real traffic: every echo conversation between the hosts of a tunnel or an
// exfiltration is flagged, and none of ordinary traffic. Labels: the shared tunnel catalogue (its
// README's table), tests/traffic/labels.tsv and, when present, the labels.tsv of $VARN_EVAL_DIR
// (default ../notes/eval) and $VARN_REDTEAM_DIR (default ../notes/redteam) beside the checkout.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iostream>
#include <map>
#include <nlohmann/json.hpp>

#include "e2e/e2e_expect.hpp"
#include "support/tshark_fields.hpp"

namespace varn_test {
namespace {

struct label_row {
  std::string file;  // path
  std::string initiator, responder;
  std::string label;  // tunnel, exfil or benign
};

std::string shared_tunnels_dir() {
  const std::string captures = shared_captures_dir();
  return !captures.empty() && std::filesystem::exists(captures + "/../tunnels/README.md") ? captures + "/../tunnels" : "";
}

// The shared catalogue, as its README states it.
std::vector<label_row> shared_labels(const std::string& dir) {
  const std::vector<std::array<const char*, 4>> rows = {
      {"tun-ptunnel-ng-http.pcap", "10.99.0.1", "10.99.0.2", "tunnel"},
      {"tun-hping3-file-d1000.pcap", "10.99.0.1", "10.99.0.2", "exfil"},
      {"ben-iputils-ping-default.pcap", "10.99.0.1", "10.99.0.2", "benign"},
      {"ben-iputils-ping-s1400.pcap", "10.99.0.1", "10.99.0.2", "benign"},
      {"ben-iputils-ping6-default.pcap", "fd99::1", "fd99::2", "benign"},
      {"ben-iputils-ping-nohost.pcap", "10.99.0.1", "10.99.7.7", "benign"},
      {"ben-fping-multi-unreach.pcap", "10.99.0.1", "10.99.0.2", "benign"},
  };
  std::vector<label_row> out;
  for (const auto& r : rows) out.push_back({dir + "/" + r[0], r[1], r[2], r[3]});
  return out;
}

// A labels.tsv: file, family, initiator, responder, label, note (a header line first).
std::vector<label_row> tsv_labels(const std::string& dir) {
  std::vector<label_row> out;
  std::ifstream in(dir + "/labels.tsv");
  std::string line;
  for (bool header = true; std::getline(in, line); header = false) {
    const std::vector<std::string> f = split(line, "\t");
    if (header || f.size() < 5 || f[0].empty() || f[0][0] == '#') continue;
    out.push_back({dir + "/" + f[0], f[2], f[3], f[4]});
  }
  return out;
}

TEST(conversations_eval_test, flags_every_tunnel_conversation_and_no_ordinary_one) {
  std::vector<label_row> labels;
  const std::string tunnels = shared_tunnels_dir();
  if (!tunnels.empty()) labels = shared_labels(tunnels);
  const auto notes = [](const char* variable, const char* name) {
    return std::getenv(variable) ? std::string(std::getenv(variable)) : std::string(VARN_SOURCE_DIR) + "/../notes/" + name;
  };
  for (const std::string& dir : {std::string(VARN_SOURCE_DIR) + "/tests/traffic", notes("VARN_EVAL_DIR", "eval"),
                                 notes("VARN_REDTEAM_DIR", "redteam")}) {
    const std::vector<label_row> more = tsv_labels(dir);
    labels.insert(labels.end(), more.begin(), more.end());
  }
  if (labels.empty()) GTEST_SKIP() << "no labelled captures (shared tunnels, tests/traffic, the evaluation sets)";
  std::map<std::string, std::vector<label_row>> by_file;
  for (const label_row& r : labels) by_file[r.file].push_back(r);
  size_t files = 0, checked = 0;
  for (const auto& [file, rows] : by_file) {
    if (!std::filesystem::exists(file)) {
      std::cout << "[ skipped  ] " << file << ": missing\n";
      continue;
    }
    const run_result r = run_varn({"-ifile", file, "-any_format", "-summary", "-json"});
    EXPECT_EQ(r.status, 0) << file;
    std::vector<nlohmann::json> seen;  // its conversations
    for (const std::string& line : split_lines(r.out)) {
      const nlohmann::json e = nlohmann::json::parse(line, nullptr, false);
      if (!e.is_discarded() && e.value("event_type", "") == "icmp_conversation") seen.push_back(e);
    }
    ++files;
    bool all_benign = true;
    for (const label_row& l : rows) {
      const bool bad = l.label == "tunnel" || l.label == "exfil";
      all_benign = all_benign && !bad;
      size_t between = 0;
      for (const nlohmann::json& c : seen) {
        const std::string src = c["src_ip"], dest = c["dest_ip"];
        if (!c.contains("icmp_id") || !((src == l.initiator && dest == l.responder) || (src == l.responder && dest == l.initiator)))
          continue;
        ++between, ++checked;
        if (c["flagged"] != bad) ADD_FAILURE() << file << " (" << l.label << "): " << c.dump().substr(0, 400);
      }
      if (bad && between == 0) ADD_FAILURE() << file << ": no echo conversation between " << l.initiator << " and " << l.responder;
    }
    for (const nlohmann::json& c : seen)
      if (all_benign && c["flagged"] == true) ADD_FAILURE() << file << " holds only ordinary traffic: " << c.dump().substr(0, 400);
  }
  EXPECT_GT(files, 0u);
  std::cout << "[ verdict  ] " << files << " captures, " << checked << " labelled echo conversations\n";
}

// Every event of -summary -json -dump_meta on the shared captures is one the events schema accepts.
TEST(conversations_eval_test, summary_events_follow_the_schema) {
  std::vector<std::string> files;
  for (const std::string& dir : {shared_tunnels_dir(), shared_captures_dir()}) {
    if (dir.empty()) continue;
    for (const auto& e : std::filesystem::directory_iterator(dir))
      if (e.path().extension() == ".pcap") files.push_back(e.path().string());
  }
  if (files.empty()) GTEST_SKIP() << "no shared captures beside the checkout";
  temp_dir scratch;
  std::string command = "/usr/bin/python3 '" + std::string(VARN_SOURCE_DIR) + "/tests/support/validate_events.py' '" +
                        std::string(VARN_SOURCE_DIR) + "/schema/varn-events.schema.json'";
  size_t conversations = 0;  // files with a conversation
  for (size_t i = 0; i < files.size(); ++i) {
    const run_result r = run_varn({"-ifile", files[i], "-summary", "-json", "-dump_meta", "-idle_timeout", "1"});
    if (r.status != 0) continue;  // a capture this build cannot read
    conversations += r.out.find("icmp_conversation") != std::string::npos;
    write_file(scratch.file(std::to_string(i) + ".json"), r.out);
    command += " '" + scratch.file(std::to_string(i) + ".json") + "'";
  }
  const std::string out = shell_output(command + " 2>&1; echo \"status $?\"");
  if (out.ends_with("status 2\n")) GTEST_SKIP() << out;
  EXPECT_TRUE(out.ends_with("status 0\n")) << out.substr(0, 4000);
  EXPECT_GT(conversations, 0u);
}

}  // namespace
}  // namespace varn_test
