#include "report/icmp_names.hpp"

namespace varn {

namespace {

constexpr const char* k_unknown = "<unk type>";

constexpr const char* k_icmpv4_types[19] = {
    nullptr,  // type 0: by code, below
    k_unknown,
    k_unknown,
    "dst unreachable",
    "src quench",
    "redirect",
    k_unknown,
    k_unknown,
    "echo request",
    "router advertisement",
    "router solicitation",
    "time exceeded",
    "param problem",
    "icmp timestamp request",
    "timestamp reply",
    "information request",
    "information reply",
    "addr mask request",
    "addr mask reply",
};

constexpr const char* k_type0_codes[16] = {
    "echo reply",
    "echo reply [host unreachable]",
    "echo reply [protocol unreachable]",
    "echo reply [port unreachable]",
    "echo reply [frag needed]",
    "echo reply [src route failed]",
    "echo reply [dst network unk]",
    "echo reply [dst host unk]",
    "echo reply [src host isolated]",
    "echo reply [dst network prohibited]",
    "echo reply [dst host prohibited]",
    "echo reply [network unreachable]",
    "echo reply [host unreachable]",
    "echo reply [comm prohibited]",
    "echo reply [host precedence violation]",
    "echo reply [precedence cutoff]",
};

constexpr const char* k_icmpv6_errors[5] = {
    k_unknown,
    nullptr,  // type 1: by code, below
    "packet too big",
    "time exceeded",
    "param problem",
};

constexpr const char* k_icmpv6_unreachable_codes[5] = {
    "dst unreachable [no route to dst]",
    "dst unreachable [administratively prohibited]",
    "dst unreachable [out of scope]",
    "dst unreachable [address unreachable]",
    "dst unreachable [port unreachable]",
};

constexpr const char* k_icmpv6_informational[10] = {
    "echo request",              // 128
    "echo reply",                // 129
    "multicast listener query",  // 130
    "multicast listener report",
    "multicast listener done",
    "router solicitation",
    "router advertisement",
    "neighbor solicitation",
    "neighbor advertisement",
    "redirect",  // 137
};

}  // namespace

const char* icmpv4_type_name(uint8_t type, uint8_t code) noexcept {
  if (type == 0) return code < 16 ? k_type0_codes[code] : k_type0_codes[0];
  if (type < 19) return k_icmpv4_types[type];
  return k_unknown;
}

const char* icmpv6_type_name(uint8_t type, uint8_t code) noexcept {
  if (type == 1) return code < 5 ? k_icmpv6_unreachable_codes[code] : "dst unreachable";
  if (type < 5) return k_icmpv6_errors[type];
  if (type >= 128 && type <= 137) return k_icmpv6_informational[type - 128];
  return k_unknown;
}

}  // namespace varn
