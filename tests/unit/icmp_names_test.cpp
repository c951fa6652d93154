// ICMP and ICMPv6 type and code names, over every type and code pair.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "report/icmp_names.hpp"

namespace {

const std::map<int, std::string> k_v4_types = {
    {3, "dst unreachable"},
    {4, "src quench"},
    {5, "redirect"},
    {8, "echo request"},
    {9, "router advertisement"},
    {10, "router solicitation"},
    {11, "time exceeded"},
    {12, "param problem"},
    {13, "icmp timestamp request"},
    {14, "timestamp reply"},
    {15, "information request"},
    {16, "information reply"},
    {17, "addr mask request"},
    {18, "addr mask reply"},
};

// Type 0 carries the unreachable reasons, by code.
const std::map<int, std::string> k_v4_type0_codes = {
    {0, "echo reply"},
    {1, "echo reply [host unreachable]"},
    {2, "echo reply [protocol unreachable]"},
    {3, "echo reply [port unreachable]"},
    {4, "echo reply [frag needed]"},
    {5, "echo reply [src route failed]"},
    {6, "echo reply [dst network unk]"},
    {7, "echo reply [dst host unk]"},
    {8, "echo reply [src host isolated]"},
    {9, "echo reply [dst network prohibited]"},
    {10, "echo reply [dst host prohibited]"},
    {11, "echo reply [network unreachable]"},
    {12, "echo reply [host unreachable]"},
    {13, "echo reply [comm prohibited]"},
    {14, "echo reply [host precedence violation]"},
    {15, "echo reply [precedence cutoff]"},
};

const std::map<int, std::string> k_v6_types = {
    {2, "packet too big"},
    {3, "time exceeded"},
    {4, "param problem"},
    {128, "echo request"},
    {129, "echo reply"},
    {130, "multicast listener query"},
    {131, "multicast listener report"},
    {132, "multicast listener done"},
    {133, "router solicitation"},
    {134, "router advertisement"},
    {135, "neighbor solicitation"},
    {136, "neighbor advertisement"},
    {137, "redirect"},
};

const std::map<int, std::string> k_v6_type1_codes = {
    {0, "dst unreachable [no route to dst]"},
    {1, "dst unreachable [administratively prohibited]"},
    {2, "dst unreachable [out of scope]"},
    {3, "dst unreachable [address unreachable]"},
    {4, "dst unreachable [port unreachable]"},
};

std::string lookup(const std::map<int, std::string>& table, int key, const std::string& otherwise) {
  const auto it = table.find(key);
  return it == table.end() ? otherwise : it->second;
}

std::string expected_v4(int type, int code) {
  if (type == 0) return lookup(k_v4_type0_codes, code, "echo reply");
  return lookup(k_v4_types, type, "<unk type>");
}

std::string expected_v6(int type, int code) {
  if (type == 1) return lookup(k_v6_type1_codes, code, "dst unreachable");
  return lookup(k_v6_types, type, "<unk type>");
}

TEST(icmp_names_test, icmpv4_every_type_and_code) {
  int mismatches = 0;
  for (int type = 0; type < 256; ++type) {
    for (int code = 0; code < 256; ++code) {
      const char* name = varn::icmpv4_type_name(static_cast<uint8_t>(type), static_cast<uint8_t>(code));
      ASSERT_NE(name, nullptr) << type << '/' << code;
      if (name != expected_v4(type, code) && ++mismatches <= 20)
        ADD_FAILURE() << "type " << type << " code " << code << ": \"" << name << "\"";
    }
  }
  EXPECT_EQ(mismatches, 0);
}

TEST(icmp_names_test, icmpv6_every_type_and_code) {
  int mismatches = 0;
  for (int type = 0; type < 256; ++type) {
    for (int code = 0; code < 256; ++code) {
      const char* name = varn::icmpv6_type_name(static_cast<uint8_t>(type), static_cast<uint8_t>(code));
      ASSERT_NE(name, nullptr) << type << '/' << code;
      if (name != expected_v6(type, code) && ++mismatches <= 20)
        ADD_FAILURE() << "type " << type << " code " << code << ": \"" << name << "\"";
    }
  }
  EXPECT_EQ(mismatches, 0);
}

TEST(icmp_names_test, documented_pairs) {
  const struct {
    bool v6;
    int type, code;
    const char* name;
  } cases[] = {
      {false, 3, 3, "dst unreachable"},
      {false, 0, 3, "echo reply [port unreachable]"},
      {false, 0, 0, "echo reply"},
      {false, 0, 16, "echo reply"},
      {false, 0, 12, "echo reply [host unreachable]"},
      {false, 1, 0, "<unk type>"},
      {false, 2, 0, "<unk type>"},
      {false, 6, 0, "<unk type>"},
      {false, 7, 0, "<unk type>"},
      {false, 19, 0, "<unk type>"},
      {false, 255, 255, "<unk type>"},
      {true, 0, 0, "<unk type>"},
      {true, 5, 0, "<unk type>"},
      {true, 127, 0, "<unk type>"},
      {true, 138, 0, "<unk type>"},
      {true, 1, 5, "dst unreachable"},
      {true, 1, 4, "dst unreachable [port unreachable]"},
      {true, 2, 0, "packet too big"},
      {true, 2, 200, "packet too big"},
      {true, 128, 9, "echo request"},
  };
  for (const auto& c : cases) {
    const char* name = c.v6 ? varn::icmpv6_type_name(static_cast<uint8_t>(c.type), static_cast<uint8_t>(c.code))
                            : varn::icmpv4_type_name(static_cast<uint8_t>(c.type), static_cast<uint8_t>(c.code));
    EXPECT_STREQ(name, c.name) << (c.v6 ? "v6 " : "v4 ") << c.type << '/' << c.code;
  }
}

}  // namespace
