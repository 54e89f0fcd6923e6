// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <array>

namespace vantrel {

inline constexpr std::array<const char*, 6> kDemuxNodes = {
    "qel_demux0", "qel_demux1", "qel_demux2", "qel_demux3", "qel_demux4", "qel_demux5"};
inline constexpr std::array<const char*, 6> kTemiNodes = {"qel_temi0", "qel_temi1", "qel_temi2",
                                                          "qel_temi3", "qel_temi4", "qel_temi5"};

/// Name of the node for stream and section filters; NULL above demux id 5.
constexpr const char* demux_node_name(unsigned demux_id) {
  return demux_id < kDemuxNodes.size() ? kDemuxNodes[demux_id] : nullptr;
}

/// Name of the TEMI node; NULL above demux id 5.
constexpr const char* temi_node_name(unsigned demux_id) {
  return demux_id < kTemiNodes.size() ? kTemiNodes[demux_id] : nullptr;
}

}  // namespace vantrel
