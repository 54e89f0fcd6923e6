// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/report/format.h"

#include <array>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace report {
namespace {

using Buffer = std::array<char, 64>;

struct Unit {
  double size;
  const char* name;
};

constexpr auto kRateUnits = std::to_array<Unit>({
    {1e6, " Mbit/s"},
    {1e3, " kbit/s"},
    {1, " bit/s"},
});

std::string print_time(std::int64_t time, const char* format) {
  const std::time_t seconds = time;
  std::tm parts = {};
  gmtime_r(&seconds, &parts);
  Buffer text;
  return {text.data(), std::strftime(text.data(), text.size(), format, &parts)};
}

}  // namespace

std::string number(double value) {
  Buffer text;
  std::snprintf(text.data(), text.size(), "%.4f", value);
  std::string digits = text.data();
  digits.erase(digits.find_last_not_of('0') + 1);
  if (digits.back() == '.') digits.pop_back();
  return digits == "-0" ? "0" : digits;
}

std::string grouped(std::uint64_t value) {
  constexpr const char* kThinSpace = "\u2009";
  std::string digits = std::to_string(value);
  for (std::size_t left = digits.size(); left > 3; left -= 3) digits.insert(left - 3, kThinSpace);
  return digits;
}

std::string percent(double share) {
  Buffer text;
  std::snprintf(text.data(), text.size(), "%.2f %%", share * 100);
  return text.data();
}

std::string rate(double bits) {
  const Unit* unit = kRateUnits.data();
  while (bits < unit->size && unit != &kRateUnits.back()) unit++;
  const double value = bits / unit->size;
  Buffer text;
  std::snprintf(text.data(), text.size(),
                value < 10    ? "%.2f"
                : value < 100 ? "%.1f"
                              : "%.0f",
                value);
  return std::string(text.data()) + unit->name;
}

std::string time_of(double seconds) {
  constexpr double kMinute = 60;
  constexpr int kHour = 3600;
  Buffer text;
  const int whole = static_cast<int>(seconds);
  if (seconds < kMinute)
    std::snprintf(text.data(), text.size(), "%.3f s", seconds);
  else
    std::snprintf(text.data(), text.size(), "%d:%02d:%06.3f", whole / kHour, whole % kHour / 60,
                  std::fmod(seconds, kMinute));
  return text.data();
}

std::string hex(unsigned value, int digits) {
  Buffer text;
  std::snprintf(text.data(), text.size(), "0x%0*X", digits, value);
  return text.data();
}

std::string day_of(std::int64_t time) { return print_time(time, "%a %e %b"); }

std::string clock_of(std::int64_t time) { return print_time(time, "%H:%M"); }

}  // namespace report
