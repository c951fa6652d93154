#include "conversations/verdict.hpp"

#include "conversations/indicators.hpp"

namespace varn::conversations {

uint32_t deciding_indicators(uint32_t fired, const pair_evidence& e) noexcept {
  uint32_t strong = 0, weak = 0;
  for (size_t i = 0; i < k_indicators.size(); ++i) {
    const uint32_t bit = indicator_bit(static_cast<indicator>(i));
    if ((fired & bit) == 0) continue;
    (k_indicators[i].strong ? strong : weak) |= bit;
  }
  if (e.data_changes < k_weak_needs_changes) weak = 0;
  return strong | weak;
}

bool is_flagged(uint32_t fired, const pair_evidence& e) noexcept { return deciding_indicators(fired, e) != 0; }

}  // namespace varn::conversations
