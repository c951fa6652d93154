// Indicators and the verdict: each threshold fires at its value and not one below, strong
// indicators decide alone, weak ones only while the unrecognised payloads change.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "conversations/indicators.hpp"
#include "conversations/verdict.hpp"

namespace {

using namespace varn::conversations;

std::string names(uint32_t bits) {
  std::string s;
  for (size_t i = 0; i < k_indicators.size(); ++i)
    if ((bits & (1u << i)) != 0) s += std::string(s.empty() ? "" : ",") + k_indicators[i].name;
  return s;
}

TEST(verdict_test, thresholds_and_verdicts) {
  struct row {
    const char* what;
    std::function<void(pair_evidence&)> set;
    const char* fired;
    bool flagged;
  };
  const std::vector<row> rows = {
      {"nothing", [](pair_evidence&) {}, "", false},
      {"one tunnel header", [](pair_evidence& e) { e.signature_frames = 1; }, "", false},
      {"two tunnel headers", [](pair_evidence& e) { e.signature_frames = 2; }, "tunnel_signature", true},
      {"two replies not echoed", [](pair_evidence& e) { e.mismatched_replies = 2; }, "", false},
      {"three replies not echoed", [](pair_evidence& e) { e.mismatched_replies = 3; }, "reply_not_echo", true},
      {"five payload changes", [](pair_evidence& e) { e.data_changes = 5; }, "", false},
      {"six payload changes", [](pair_evidence& e) { e.data_changes = 6; }, "payload_changes", true},
      {"seven patterns", [](pair_evidence& e) { e.distinct_patterns = 7; }, "", false},
      {"eight patterns", [](pair_evidence& e) { e.distinct_patterns = 8; }, "pattern_changes", true},
      {"constant random payload (nmap --data-length)",
       [](pair_evidence& e) { e.random_payloads = 40, e.data_bytes = 40 * 1400; }, "high_entropy,data_volume", false},
      {"random payload changed once (two nping runs)",
       [](pair_evidence& e) { e.random_payloads = 6, e.data_changes = 1; }, "high_entropy", false},
      {"changing text", [](pair_evidence& e) { e.text_payloads = 3, e.data_changes = 2; }, "text_payload", true},
      {"changing random bytes", [](pair_evidence& e) { e.random_payloads = 2, e.data_changes = 2; }, "high_entropy", true},
      {"orphans carrying changing data", [](pair_evidence& e) { e.data_orphans = 3, e.data_changes = 2; },
       "orphan_replies", true},
      {"8 KiB of changing data", [](pair_evidence& e) { e.data_bytes = 8192, e.data_changes = 2; }, "data_volume", true},
  };
  for (const row& r : rows) {
    pair_evidence e;
    r.set(e);
    const uint32_t fired = fired_indicators(e);
    EXPECT_EQ(names(fired), r.fired) << r.what;
    EXPECT_EQ(is_flagged(fired, e), r.flagged) << r.what;
  }
}

}  // namespace
