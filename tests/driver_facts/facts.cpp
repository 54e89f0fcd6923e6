// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tests/driver_facts/facts.h"

#include <errno.h>
#include <poll.h>
#include <qel/device.h>
#include <qel/receiver.h>
#include <string.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <utility>

namespace facts {
namespace {

std::vector<std::string>& all_lines() {
  static std::vector<std::string> all;
  return all;
}

struct Event {
  short bit;
  const char* name;
};
constexpr std::array<Event, 5> kEvents = {
    {{POLLIN, "IN"}, {POLLPRI, "PRI"}, {POLLERR, "ERR"}, {POLLHUP, "HUP"}, {POLLNVAL, "NVAL"}}};

}  // namespace

const std::vector<std::string>& lines() { return all_lines(); }

void fact(const std::string& name, const std::string& value) {
  all_lines().push_back(name + ": " + value);
  std::puts(all_lines().back().c_str());
  std::fflush(stdout);
}

void fact(const std::string& name, std::initializer_list<std::string> results) {
  fact(name, join_results(results));
}

std::string join_results(std::initializer_list<std::string> results) {
  std::string all;
  for (const std::string& each : results) all += (all.empty() ? "" : " ") + each;
  return all;
}

std::string result(long value) {
  return value < 0 ? strerrorname_np(errno) : std::to_string(value);
}

stream::Multiplex& mux() {
  static stream::Multiplex instance;
  return instance;
}

Bytes packed(unsigned pid, const Bytes& sections) {
  constexpr std::size_t kPayload = 184;
  Bytes bytes = Bytes{0} + sections;
  bytes.resize((bytes.size() + kPayload - 1) / kPayload * kPayload, 0xff);
  return mux().unit(pid, bytes);
}

Bytes pcr(unsigned pid, std::uint64_t base) {
  return mux().packet(pid, {}, {.pcr = static_cast<std::int64_t>(base * 300)});
}

Bytes pes_packet() { return stream::pes(0xbd, 491); }

std::string feed(const Bytes& bytes) {
  const int error = qel_receiver_feed(0, DMX_IN_FRONTEND, bytes.data(), bytes.size());
  return result(error == 0 ? static_cast<long>(bytes.size()) : -1);
}

dmx_filter match(std::initializer_list<MatchByte> rows) {
  dmx_filter filter{};
  for (const MatchByte& row : rows) {
    filter.filter[row.at] = row.filter;
    filter.mask[row.at] = row.mask;
    filter.mode[row.at] = row.mode;
  }
  return filter;
}

const dmx_filter& table_42() {
  static const dmx_filter filter = match({{0, 0x42, 0xff, 0}});
  return filter;
}

Node::Node(int flags, const char* name)
    : fd_(qel_device_open(name, flags)), open_error_(fd_ < 0 ? errno : 0) {}

std::string Node::opened() const { return fd_ < 0 ? strerrorname_np(open_error_) : "ok"; }

std::string Node::close() {
  return fd_ < 0 ? "" : result(qel_device_close(nullptr, fd_.exchange(-1)));
}

std::string Node::control(unsigned long request, void* argument) {
  return result(qel_device_ioctl(fd_, request, argument));
}

std::string Node::size(std::size_t bytes) {
  return result(qel_device_ioctl(fd_, KWRX_DMX_SET_BUFFER_SIZE, bytes));
}

std::string Node::section(unsigned pid, const dmx_filter& filter, unsigned flags,
                          unsigned timeout) {
  dmx_sct_filter_params params{};
  params.pid = static_cast<std::uint16_t>(pid);
  params.filter = filter;
  params.flags = flags;
  params.timeout = timeout;
  return control(KWRX_DMX_SET_FILTER, &params);
}

std::string Node::pes(unsigned pid, unsigned output, unsigned type, unsigned input) {
  // As plain words: not every value tried is one of the enumerations'.
  struct {
    std::uint16_t pid;
    std::uint32_t input, output, type, flags;
  } const words{static_cast<std::uint16_t>(pid), input, output, type, kNow};
  dmx_pes_filter_params params;
  static_assert(sizeof words == sizeof params);
  memcpy(&params, &words, sizeof params);
  return control(KWRX_DMX_SET_PES_FILTER, &params);
}

std::string Node::read(std::size_t bytes) {
  data.resize(bytes);
  const ssize_t count = qel_device_read(fd_, data.data(), bytes);
  const std::string text = result(count);
  data.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return text;
}

std::string Node::drain() {
  Bytes all;
  std::string text = read();
  while (!data.empty() || (errno != EAGAIN && text != "0")) {
    all = std::move(all) + data;
    text += " " + read();
  }
  data = all;
  return text;
}

std::string Node::passed() {
  std::string text;
  while (read(), data.size() >= 8) {
    char id[32];
    std::snprintf(id, sizeof id, "%02x/%04x/%d", data[0], data[3] << 8 | data[4],
                  data[5] >> 1 & 31);
    text += (text.empty() ? "" : " ") + std::string(id);
  }
  return text.empty() ? "none" : text;
}

std::string Node::poll(int milliseconds) const {
  pollfd entry{fd_, POLLIN | POLLPRI, 0};
  const int count = ::poll(&entry, 1, milliseconds);
  if (count < 0) return result(count);
  std::string text;
  for (const Event& event : kEvents) {
    if (entry.revents & event.bit) text += (text.empty() ? "" : "|") + std::string(event.name);
  }
  return text.empty() ? "none" : text;
}

}  // namespace facts
