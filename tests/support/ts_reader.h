// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

/// A plain reading of transport streams, slow and simple: what the receiver's
/// output is compared with. Packets of 188 bytes, in sync from the first byte.
namespace stream {

/// The bytes of a file; empty where it cannot be read.
std::string load(const std::string& path);

/// Writes a file of these bytes.
void save(const std::string& path, const std::string& bytes);

/// A file in the folder of captured streams; "" where VANTREL_STREAMS names none.
std::string captured(const std::string& name);

/// The unsigned byte at an offset.
unsigned byte_at(const std::string& bytes, std::size_t at);

/// What one packet of a PID carries.
struct Payload {
  std::string bytes;
  bool unit_start;
  bool follows;  // on the payload before, none lost in between
};

/// The payloads of a PID: neither damaged nor scrambled ones, repeated ones once.
std::vector<Payload> payloads(const std::string& file, unsigned pid);

/// Everything of a PID from the first payload unit start on.
std::string elementary_bytes(const std::string& file, unsigned pid);

/// The packets of these PIDs, in their order.
std::string packets_of(const std::string& file, const std::set<unsigned>& pids);

/// The PIDs of which there are packets.
std::set<unsigned> pids_of(const std::string& file);

/// Packets that do not continue the one before of their PID.
std::size_t discontinuities(const std::string& file);

}  // namespace stream
