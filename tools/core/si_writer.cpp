// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/si_writer.h"

#include <algorithm>

#include "common/crc32_mpeg.h"

namespace tools {
namespace {

constexpr std::size_t kSiPacketSize = 188;
constexpr std::uint16_t kNetworkId = 0x3001;
constexpr std::uint16_t kOriginalNetworkId = 0x20FA;
constexpr std::uint16_t kDate = 61369;  // modified Julian date of 2026-11-25

/// Builds big-endian fields one behind the other.
class Writer {
 public:
  Writer& u8(unsigned value) {
    bytes_.push_back(static_cast<std::uint8_t>(value));
    return *this;
  }
  Writer& u16(unsigned value) { return u8(value >> 8).u8(value & 0xFF); }
  Writer& bytes(const Bytes& more) {
    bytes_.insert(bytes_.end(), more.begin(), more.end());
    return *this;
  }
  Writer& text(const std::string& text) {
    u8(static_cast<unsigned>(text.size()));
    return bytes({text.begin(), text.end()});
  }
  [[nodiscard]] const Bytes& get() const { return bytes_; }
  [[nodiscard]] unsigned size() const { return static_cast<unsigned>(bytes_.size()); }

 private:
  Bytes bytes_;
};

Bytes descriptor(unsigned tag, const Bytes& body) {
  return Writer().u8(tag).u8(static_cast<unsigned>(body.size())).bytes(body).get();
}

/// A section in long form (ISO/IEC 13818-1, 2.4.4.11).
Bytes section(unsigned table_id, unsigned extension, unsigned number, unsigned last,
              const Bytes& payload) {
  Writer out;
  out.u8(table_id).u16(0xF000 | (static_cast<unsigned>(payload.size()) + 9)).u16(extension);
  out.u8(0xC1).u8(number).u8(last).bytes(payload);
  const std::uint32_t crc = vantrel::crc32_mpeg(out.get().data(), out.get().size());
  return out.u16(crc >> 16).u16(crc & 0xFFFF).get();
}

Bytes cat() {
  const Bytes ca = Writer().u16(0x0B00).u16(0xE000 | 0x1F0).get();
  return section(0x01, 0xFFFF, 0, 0, descriptor(0x09, ca));
}

Bytes nit(const ServiceInfo& info) {
  const Bytes name = descriptor(0x40, {info.network.begin(), info.network.end()});
  const Bytes service_list = descriptor(0x41, Writer().u16(info.service_id).u8(0x19).get());
  Writer streams;
  streams.u16(info.transport_stream_id).u16(kOriginalNetworkId);
  streams.u16(0xF000 | static_cast<unsigned>(service_list.size())).bytes(service_list);
  Writer payload;
  payload.u16(0xF000 | static_cast<unsigned>(name.size())).bytes(name);
  payload.u16(0xF000 | streams.size()).bytes(streams.get());
  return section(0x40, kNetworkId, 0, 0, payload.get());
}

Bytes sdt(const ServiceInfo& info) {
  const Bytes service =
      descriptor(0x48, Writer().u8(0x19).text(info.provider).text(info.name).get());
  Writer payload;
  payload.u16(kOriginalNetworkId).u8(0xFF).u16(info.service_id).u8(0xFD);
  payload.u16(0x8000 | static_cast<unsigned>(service.size())).bytes(service);
  return section(0x42, info.transport_stream_id, 0, 0, payload.get());
}

/// Present (section 0) or following (section 1), an hour each.
Bytes eit(const ServiceInfo& info, unsigned number) {
  const std::string& name = number == 0 ? info.present_event : info.following_event;
  const Bytes event = descriptor(
      0x4D, Writer().bytes({'e', 'n', 'g'}).text(name).text("made for the demonstration").get());
  Writer payload;
  payload.u16(info.transport_stream_id).u16(kOriginalNetworkId).u8(1).u8(0x4E);
  payload.u16(100 + number).u16(kDate);         // event id; start
  payload.u8(0x20 + number).u8(0x00).u8(0x00);  // 20:00:00, 21:00:00 in BCD
  payload.u8(0x01).u8(0x00).u8(0x00);           // an hour
  payload.u16((number == 0 ? 0x8000U : 0x2000U) | static_cast<unsigned>(event.size()));
  payload.bytes(event);
  return section(0x4E, info.service_id, number, 1, payload.get());
}

Bytes tdt() { return Writer().u8(0x70).u16(0x7005).u16(kDate).u8(0x20).u8(0x15).u8(0x00).get(); }

}  // namespace

SiWriter::SiWriter(const ServiceInfo& info)
    : tables_({{0x01, cat()},
               {0x10, nit(info)},
               {0x11, sdt(info)},
               {0x12, Writer().bytes(eit(info, 0)).bytes(eit(info, 1)).get()},
               {0x14, tdt()}}) {}

Bytes SiWriter::packets() {
  Bytes out;
  for (const Table& table : tables_) append_table(&out, table);
  return out;
}

/// From a payload unit start on; the last packet is stuffed.
void SiWriter::append_table(Bytes* out, const Table& table) {
  Bytes payload = {0};  // pointer_field
  payload.insert(payload.end(), table.sections.begin(), table.sections.end());
  constexpr std::size_t kRoom = kSiPacketSize - 4;
  for (std::size_t at = 0; at < payload.size(); at += kRoom) {
    const std::size_t count = std::min(kRoom, payload.size() - at);
    const unsigned start = at == 0 ? 0x4000U : 0U;
    const Bytes header =
        Writer().u8(0x47).u16(start | table.pid).u8(0x10 | (counters_[table.pid]++ & 0x0F)).get();
    out->insert(out->end(), header.begin(), header.end());
    const auto first = payload.begin() + static_cast<std::ptrdiff_t>(at);
    out->insert(out->end(), first, first + static_cast<std::ptrdiff_t>(count));
    out->resize(out->size() + kRoom - count, 0xFF);
  }
}

}  // namespace tools
