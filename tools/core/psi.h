// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <cstdint>
#include <initializer_list>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

/// An elementary stream of a programme.
struct StreamInfo {
  unsigned pid = 0;
  unsigned stream_type = 0;  // ISO/IEC 13818-1, table 2-34
  std::string kind;          // "video", "audio", "subtitle", "teletext" or "data"
  std::string codec;
  std::string language;            // ISO 639-2, the first where there are several
  unsigned codec_id = 0;           // the element's; 0 for streams it has no caps for
  std::set<unsigned> ca_pids;      // ECM PIDs of this stream alone
};

struct Programme {
  static constexpr unsigned kNoPid = 0x1FFF;

  unsigned number = 0;        // service id
  std::string channel;        // ATSC: major and minor number, as "7.1"
  unsigned pmt_pid = kNoPid;  // kNoPid for a service that the SDT names and the PAT does not
  unsigned pcr_pid = kNoPid;
  bool has_pmt = false;
  std::string name;
  std::string provider;
  unsigned service_type = 0;        // ETSI EN 300 468, table 89; 0 when not known
  bool scrambled = false;           // says free_CA_mode, or a CA descriptor of the PMT
  std::set<unsigned> ca_systems;    // CA_system_id of its CA descriptors
  std::set<unsigned> ca_pids;       // ECM PIDs of the programme
  std::vector<StreamInfo> streams;  // in the PMT's order

  /// The first stream of a kind that decoders take; NULL when there is none.
  [[nodiscard]] const StreamInfo* find(std::string_view kind,
                                       std::string_view language = "") const;
};

/// The element's property "pids" for some streams of a programme, nullptr for one
/// that it lacks, and for its clock. Some PMTs name no PCR PID, though the first of
/// the streams carries it.
std::string pids_of(const Programme& programme, std::initializer_list<const StreamInfo*> streams);

/// What PAT, CAT, PMT, SDT, NIT and TDT of a stream say, or ATSC's MGT, VCT and STT, gathered
/// section by section. A newer version replaces what an older one said. Not for several threads.
class Psi {
 public:
  Psi();

  /// One section, whole, of any table; others and damaged ones are ignored.
  void add(unsigned pid, std::string_view section);

  /// By programme number.
  [[nodiscard]] const std::map<unsigned, Programme>& programmes() const { return programmes_; }
  [[nodiscard]] const std::string& network() const { return network_; }
  [[nodiscard]] const std::string& time() const { return time_; }  // ISO 8601, UTC
  [[nodiscard]] unsigned transport_stream_id() const { return transport_stream_id_; }
  /// EMM PIDs of the CAT.
  [[nodiscard]] const std::set<unsigned>& emm_pids() const { return emm_pids_; }
  [[nodiscard]] unsigned network_pid() const { return network_pid_; }
  /// PIDs of ATSC's guide, which its MGT names, with what comes there.
  [[nodiscard]] const std::map<unsigned, std::string>& guide_pids() const { return guide_pids_; }

  [[nodiscard]] bool has_pat() const { return !pat_.empty(); }
  /// Or a channel table.
  [[nodiscard]] bool has_sdt() const { return has_sdt_; }
  /// Whether PAT and all PMTs it names have been seen.
  [[nodiscard]] bool has_all_programmes() const;

 private:
  struct Reader;  // of tables; psi.cpp

  std::map<unsigned, Programme> programmes_;
  std::map<unsigned, unsigned> pat_;  // the current one's sections: number to last number
  unsigned pat_version_ = 0;
  unsigned transport_stream_id_ = 0;
  unsigned network_pid_ = 0x10;
  bool has_sdt_ = false;
  std::set<unsigned> emm_pids_;
  std::map<unsigned, std::string> guide_pids_;
  std::string network_;
  std::string time_;
};

/// Name of a table id: "PAT", "EIT p/f" and the like, or its number.
std::string table_name(unsigned table_id);

/// What a PID is for that ISO/IEC 13818-1, ETSI EN 300 468 or ATSC A/65 give away;
/// nullptr for others.
const char* fixed_pid_name(unsigned pid);

/// "television", "radio" and the like, or the number.
std::string service_type_name(unsigned service_type);

}  // namespace tools
