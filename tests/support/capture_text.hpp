// Captures written as text (the statements are listed in tests/cases/README.md): a readable
// description of a pcap file, turned into its bytes.
#pragma once

#include <cstdint>
#include <string>

namespace varn_test {

using bytes = std::string;

void put_le16(bytes& b, uint16_t v);
void put_le32(bytes& b, uint32_t v);
// N bytes from a fixed-seed generator; every byte value REPEAT times, shuffled by SEED.
bytes seeded_bytes(size_t n, uint32_t seed);
bytes all_values(unsigned repeat, uint32_t seed);

// The capture described by TEXT; on a bad statement, false with ERROR naming the line.
bool capture_from_text(const std::string& text, bytes& capture, std::string& error);
// The same, failing the calling test on error.
bytes capture(const std::string& text);

}  // namespace varn_test
