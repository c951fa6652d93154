// varn: ICMP and ICMPv6 frames of pcap captures, filtered and reported.
#include <string>
#include <vector>

#include "driver/run.hpp"

int main(int argc, char** argv) {
  std::vector<std::string> args;
  args.reserve(argc > 0 ? static_cast<size_t>(argc) : 0);
  for (int i = 0; i < argc; ++i) args.emplace_back(argv[i]);
  return varn::run(args);
}
