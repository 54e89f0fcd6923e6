// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/dmx.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/receiver/ring_node.h"
#include "platform/receiver/user_memory.h"

namespace qel::receiver {
namespace {

// The kernel's requests that have no name of ours.
constexpr std::uint32_t kGetPesPids = 0x800A6F2F;
constexpr std::uint32_t kAddPid = 0x40026F33;
constexpr std::uint32_t kRemovePid = 0x40026F34;

// What a request's number says of its record: bit 31 that it comes back, and
// how large it is. Without a record the top bits are 0.
constexpr std::size_t kMaxRecord = 1U << 14;
constexpr bool has_record(std::uint32_t code) { return (code >> 30) != 0; }
constexpr bool comes_back(std::uint32_t code) { return (code >> 31) != 0; }
constexpr std::size_t record_size(std::uint32_t code) {
  return has_record(code) ? (code >> 16) % kMaxRecord : 0;
}

/// A request's argument: the record copied in, and out again where the request
/// says so; or a number.
struct Argument {
  alignas(8) std::array<std::byte, kMaxRecord> record;
  unsigned long value;

  template <typename T>
  T& as() {
    return *reinterpret_cast<T*>(record.data());
  }
};

struct Request {
  std::uint32_t code;
  int (*answer)(RingNode& node, Argument& argument);
};

int set_pes(RingNode& node, Argument& argument) {
  std::array<unsigned, 4> words;  // enumerations, of any value
  std::memcpy(words.data(), argument.record.data() + offsetof(dmx_pes_filter_params, input),
              sizeof words);
  return node.set_pes(
      {argument.as<dmx_pes_filter_params>().pid, words[0], words[1], words[2], words[3]});
}

int read_size(RingNode& node, Argument& argument) {
  argument.as<dmx_read_size>().size = static_cast<std::int32_t>(node.ring.available());
  return 0;
}

int pes_type(RingNode& node, Argument& argument) {
  auto& query = argument.as<dmx_pes_type_query>();
  if (!std::memchr(query.device_path, 0, sizeof query.device_path)) return -EINVAL;
  return node.pes_type(query.device_path, query.pes_type);
}

constexpr std::array<Request, 12> kRequests = {{
    {KWRX_DMX_START, [](RingNode& node, Argument&) { return node.start(); }},
    {KWRX_DMX_STOP, [](RingNode& node, Argument&) { return node.stop(); }},
    {KWRX_DMX_SET_FILTER,
     [](RingNode& node, Argument& a) { return node.set_section(a.as<dmx_sct_filter_params>()); }},
    {KWRX_DMX_SET_PES_FILTER, set_pes},
    {KWRX_DMX_SET_BUFFER_SIZE,
     [](RingNode& node, Argument& a) { return node.set_buffer_size(a.value); }},
    {kGetPesPids,
     [](RingNode& node, Argument& a) { return node.pes_pids(&a.as<std::uint16_t>()); }},
    {KWRX_DMX_SET_SOURCE, [](RingNode& node, Argument& a) { return node.set_source(a.as<int>()); }},
    {KWRX_DMX_GET_STC, [](RingNode& node, Argument& a) { return node.stc(a.as<dmx_stc>()); }},
    {kAddPid, [](RingNode& node, Argument& a) { return node.add_pid(a.as<std::uint16_t>()); }},
    {kRemovePid,
     [](RingNode& node, Argument& a) { return node.remove_pid(a.as<std::uint16_t>()); }},
    {KWRX_DMX_GET_READ_SIZE, read_size},
    {KWRX_DMX_GET_PESTYPE, pes_type},
}};

const Request* find(std::uint32_t code) {
  for (const Request& request : kRequests) {
    if (request.code == code) return &request;
  }
  return nullptr;
}

}  // namespace

// As the kernel goes about it: a bad pointer is found before an unknown number.
int RingNode::control(unsigned long number, void* pointer) {
  const auto code = static_cast<std::uint32_t>(number);
  const std::size_t size = record_size(code);
  Argument argument;
  argument.value = reinterpret_cast<unsigned long>(pointer);
  if (!copy_from_user(argument.record.data(), pointer, size)) return -EFAULT;
  const Request* request = find(code);
  if (!request) return -ENOTTY;
  const int result = request->answer(*this, argument);
  if (result < 0 || !comes_back(code)) return result;
  return copy_to_user(pointer, argument.record.data(), size) ? result : -EFAULT;
}

}  // namespace qel::receiver
