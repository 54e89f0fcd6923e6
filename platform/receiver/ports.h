// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <linux/dvb/dmx.h>

#include <array>
#include <atomic>
#include <memory>
#include <string_view>

namespace qel::receiver {

class Demux;
class FilterNode;
class StreamNode;
struct Input;

/// A decoder port: where the PES data of one decoder can be read. Ports are
/// the process's, not a demux's.
struct Port {
  const char* name;
  const char* path;
  unsigned pes_type;
  bool video;

  /// Who reads; read under the lock of any demux, written under all of them.
  std::shared_ptr<StreamNode> reader;
  /// The demux that feeds it: claimed and given back under that one's lock.
  std::atomic<Demux*> feeder{nullptr};
  /// The filter that feeds it; guarded by the feeder's lock.
  FilterNode* filter = nullptr;
  /// The input that fed it last, whose end is the end of its data.
  std::atomic<const Input*> last_input{nullptr};
};

using Ports = std::array<Port, 8>;

/// The process's ports: four for video, four for audio.
Ports& ports();
Port* find_port(std::string_view name);
/// The port that a PES type reaches, or nullptr.
Port* find_port(unsigned pes_type);
/// The video port of a path as device_path() gives it, or nullptr.
Port* find_video_port(std::string_view path);

}  // namespace qel::receiver
