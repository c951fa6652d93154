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
    std::function<void(evidence_measures&)> set;
    const char* fired;
    bool flagged;
  };
  const std::vector<row> rows = {
      {"nothing", [](evidence_measures&) {}, "", false},
      {"one tunnel header", [](evidence_measures& e) { e.signature_frames = 1; }, "", false},
      {"two tunnel headers", [](evidence_measures& e) { e.signature_frames = 2; }, "tunnel_signature", true},
      {"two replies not echoed", [](evidence_measures& e) { e.mismatched_replies = 2; }, "", false},
      {"three replies not echoed", [](evidence_measures& e) { e.mismatched_replies = 3; }, "reply_not_echo", true},
      {"five payload changes", [](evidence_measures& e) { e.changes = 5; }, "", false},
      {"six payload changes", [](evidence_measures& e) { e.changes = 6; }, "payload_changes", true},
      {"seven patterns", [](evidence_measures& e) { e.patterns = 7; }, "", false},
      {"eight patterns", [](evidence_measures& e) { e.patterns = 8; }, "pattern_changes", true},
      {"two random values (two nping --data-length runs)",
       [](evidence_measures& e) { e.random = 2, e.changes = 1, e.bytes = 2 * 4500; }, "high_entropy,data_volume", false},
      {"changing text", [](evidence_measures& e) { e.text = 3, e.changes = 2; }, "text_payload", true},
      {"changing random bytes", [](evidence_measures& e) { e.random = 2, e.changes = 2; }, "high_entropy", true},
      {"orphans carrying changing data", [](evidence_measures& e) { e.orphans = 3, e.changes = 2; },
       "orphan_replies", true},
      {"8 KiB of changing data", [](evidence_measures& e) { e.bytes = 8192, e.changes = 2; }, "data_volume", true},
  };
  for (const row& r : rows) {
    evidence_measures e;
    r.set(e);
    const uint32_t fired = fired_indicators(e);
    EXPECT_EQ(names(fired), r.fired) << r.what;
    EXPECT_EQ(is_flagged(fired, e), r.flagged) << r.what;
  }
}

}  // namespace
