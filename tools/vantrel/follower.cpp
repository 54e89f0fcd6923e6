// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/vantrel/follower.h"

#include <iterator>
#include <utility>

#include "tools/analysis/packet.h"

namespace tools {
namespace {

constexpr unsigned kPatPid = 0x00;
/// CAT, NIT, SDT, EIT and TDT.
constexpr unsigned kInformation[] = {0x01, 0x10, 0x11, 0x12, 0x14};

}  // namespace

void add_service(const Programme& programme, std::set<unsigned>* pids) {
  pids->insert({kPatPid, programme.pmt_pid});
  pids->insert(std::begin(kInformation), std::end(kInformation));
  if (programme.pcr_pid != Programme::kNoPid) pids->insert(programme.pcr_pid);
  pids->insert(programme.ca_pids.begin(), programme.ca_pids.end());
  for (const StreamInfo& stream : programme.streams) {
    pids->insert(stream.pid);
    pids->insert(stream.ca_pids.begin(), stream.ca_pids.end());
  }
}

Follower::Follower(unsigned packet_size, Psi psi, std::vector<unsigned> services,
                   std::set<unsigned> pids, Found found)
    : reader_(packet_size, this),
      psi_(std::move(psi)),
      services_(std::move(services)),
      pids_(std::move(pids)),
      found_(std::move(found)) {
  tables_[kPatPid];
  look_again();
}

void Follower::packet(const std::uint8_t* bytes, std::uint64_t number) {
  const unsigned pid = analysis::packet_pid(bytes);
  const auto table = tables_.find(pid);
  if (table == tables_.end()) return;
  bool news = false;
  table->second.add(
      analysis::packet_payload(bytes), analysis::is_unit_start(bytes), number,
      [&](const analysis::Section& section) {
        psi_.add(pid, {reinterpret_cast<const char*>(section.bytes.data()), section.bytes.size()});
        news = true;
      });
  if (news) look_again();
}

/// PIDs that a service leaves are recorded on: nothing comes there any more.
void Follower::look_again() {
  std::set<unsigned> wanted;
  for (const unsigned number : services_) {
    const auto found = psi_.programmes().find(number);
    if (found == psi_.programmes().end() || found->second.pmt_pid == Programme::kNoPid) continue;
    tables_[found->second.pmt_pid];
    add_service(found->second, &wanted);
  }
  for (const unsigned pid : wanted) {
    if (!pids_.insert(pid).second) continue;
    added_.insert(pid);
    found_(pid);
  }
}

}  // namespace tools
