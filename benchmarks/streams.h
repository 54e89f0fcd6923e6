// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>

#include "tests/support/ts_builder.h"

/// Streams that are measured. Made when first asked for, kept to the end.
namespace streams {

using stream::Bytes;

inline constexpr unsigned kFirstPid = 0x100;
inline constexpr unsigned kPidsOfService = 3;  // video with PCR, two of sound

/// A PID of a service; services and their PIDs are numbered from 0.
unsigned pid_of(unsigned service, unsigned index);
/// The PID of a packet.
unsigned pid_in(const std::uint8_t* packet);

/// One programme of 12 Mbit/s, four minutes.
const Bytes& programme();
/// Twenty of 3 Mbit/s, twelve seconds, a packet of each in turn.
const Bytes& multiplex();
/// The same packets on three PIDs.
const Bytes& on_three_pids();

}  // namespace streams
