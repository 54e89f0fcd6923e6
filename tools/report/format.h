// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <string>

namespace report {

/// At most four digits behind the point, none that say nothing.
std::string number(double value);
/// "12 345 678".
std::string grouped(std::uint64_t value);
/// "12.34 %".
std::string percent(double share);
/// "4.53 Mbit/s".
std::string rate(double bits);
/// "12.345 s", or "1:02:03.456" from a minute on.
std::string time_of(double seconds);
/// "0x0100".
std::string hex(unsigned value, int digits = 4);
/// "Wed 25 Nov" and "20:15" of seconds since 1970, UTC.
std::string day_of(std::int64_t time);
std::string clock_of(std::int64_t time);

}  // namespace report
