#include "json/ipv6_text.hpp"

#include "zq/zq_address_text.hpp"
#include "zq/zq_text.hpp"

namespace varn::json {

char* put_ipv6_text(char* p, const uint8_t* address) noexcept {
  uint16_t groups[8];
  for (int i = 0; i < 8; ++i) groups[i] = static_cast<uint16_t>(address[2 * i] << 8 | address[2 * i + 1]);

  // The longest run of zero groups, the first one on a tie; runs of one group stay as "0".
  int best_at = -1, best_length = 1;
  for (int i = 0; i < 8;) {
    if (groups[i] != 0) {
      ++i;
      continue;
    }
    int j = i;
    while (j < 8 && groups[j] == 0) ++j;
    if (j - i > best_length) {
      best_at = i;
      best_length = j - i;
    }
    i = j;
  }

  if (best_at == 0 && best_length == 5 && groups[5] == 0xffff) {  // IPv4-mapped
    *p++ = ':';
    *p++ = ':';
    *p++ = 'f';
    *p++ = 'f';
    *p++ = 'f';
    *p++ = 'f';
    *p++ = ':';
    char dotted[20];
    char* end = zq::put_ipv4_text(dotted, address + 12);
    for (char* q = dotted; q < end; ++q) *p++ = *q;
    return p;
  }

  for (int i = 0; i < 8; ++i) {
    if (i == best_at) {
      *p++ = ':';
      if (i == 0) *p++ = ':';
      i += best_length - 1;
      continue;
    }
    p = zq::put_hex(p, groups[i]);
    if (i < 7) *p++ = ':';
  }
  return p;
}

}  // namespace varn::json
