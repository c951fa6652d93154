// The pcapng format: sections in either byte order, an interface description per interface
// (link type, snapshot length, timestamp resolution and offset), enhanced, simple and obsolete
// packet blocks; every other block is stepped over.
#pragma once

#include <cstdint>

#include "formats/byte_source.hpp"
#include "formats/frame_sink.hpp"

namespace varn {

// True when the 12 bytes at BYTES start a pcapng file: a section header block type and a
// byte-order magic in either byte order.
bool is_pcapng_start(const uint8_t* bytes) noexcept;

// Walks the blocks of IN (nothing consumed yet), handing every packet to SINK. Frame numbers
// count the packet blocks, and the other records Wireshark numbers (systemd journal entries,
// custom blocks, sysdig events), across all sections. Damage to the block structure, a block too
// large to be a frame's, the end of the input inside a block and a read error end the walk (SINK.stop
// says why); a packet block that names an interface not described, or whose lengths do not fit
// in the block, is skipped and counted.
void walk_pcapng(byte_source& in, frame_sink& sink);

}  // namespace varn
