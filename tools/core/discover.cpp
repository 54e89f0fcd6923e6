// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/discover.h"

#include <algorithm>
#include <mutex>
#include <set>

#include "tools/core/deadline.h"
#include "tools/core/failure.h"
#include "tools/core/session.h"

namespace tools {
namespace {

constexpr std::uint64_t kLongest = 32 * 1024 * 1024;
/// An SDT comes every two seconds, where there is one.
constexpr std::uint64_t kWithoutSdt = 8 * 1024 * 1024;
/// The same where a slow stream would make that long.
constexpr double kLongestLive = 10;
constexpr double kLiveWithoutSdt = 4;
/// A PAT comes every half second.
constexpr std::uint64_t kPatWithin = 4 * 1024 * 1024;
constexpr unsigned kPatPid = 0x00;
constexpr char kPmt = 0x02;  // table id
constexpr unsigned kSdtPid = 0x11;
constexpr unsigned kAtscPid = 0x1FFB;

/// Of a table: its extension, and its version.
std::string identity_of(std::string_view section) {
  return std::string(section.substr(std::min<std::size_t>(3, section.size()), 3));
}

/// One look at the beginning. Filters for PMTs are added as a PAT names them;
/// the first ones of the file may have passed by then.
class Look {
 public:
  /// With `first_pat` of the file, tables that follow another one are left out: what
  /// is fed is ahead of what is read.
  Look(Input& input, Names names, std::string first_pat, Psi* psi)
      : session_(input, Session::Mode::kPlay),
        live_(input.is_live()),
        names_(names == Names::kWanted),
        first_pat_(std::move(first_pat)),
        psi_(psi) {
    session_.on_section([this](unsigned pid, std::string_view section) { take(pid, section); });
    session_.add_filter({.pid = kPatPid, .table_id = 0x00, .changed_only = true});
    session_.add_filter({.pid = kSdtPid, .table_id = 0x42, .changed_only = false});
    session_.add_filter({.pid = kAtscPid, .check_crc = true});
    for (const auto& [number, programme] : psi->programmes()) watch(programme.pmt_pid);
  }

  void run() {
    Progress progress("looking for services", 0);
    session_.run(&progress, [this] {
      std::lock_guard lock(mutex_);
      const bool no_sdt = session_.fed() > kWithoutSdt || is_late(kLiveWithoutSdt);
      return is_complete() || (psi_->has_all_programmes() && no_sdt) || session_.fed() > kLongest ||
             is_late(kLongestLive);
    });
  }

 private:
  /// With mutex_ held.
  [[nodiscard]] bool is_complete() const {
    return psi_->has_all_programmes() && (!names_ || psi_->has_sdt());
  }

  [[nodiscard]] bool is_late(double seconds) const {
    return live_ && since_begin_.elapsed() > seconds;
  }

  void take(unsigned pid, std::string_view section) {
    std::set<unsigned> pmts;
    {
      std::lock_guard lock(mutex_);
      if (is_complete() || is_later(pid, section)) return;
      psi_->add(pid, section);
      if (pid == kPatPid)
        for (const auto& [number, programme] : psi_->programmes()) pmts.insert(programme.pmt_pid);
    }
    for (const unsigned pmt : pmts) watch(pmt);
  }

  /// With mutex_ held.
  [[nodiscard]] bool is_later(unsigned pid, std::string_view section) const {
    if (first_pat_.empty()) return false;
    if (pid == kPatPid) return identity_of(section) != first_pat_;
    if (section.size() < 5 || section[0] != kPmt) return false;
    const unsigned number =
        static_cast<std::uint8_t>(section[3]) << 8U | static_cast<std::uint8_t>(section[4]);
    const auto found = psi_->programmes().find(number);
    return found != psi_->programmes().end() && found->second.has_pmt;
  }

  void watch(unsigned pmt_pid) {
    if (pmt_pid != Programme::kNoPid && watched_.insert(pmt_pid).second)
      session_.add_filter({.pid = pmt_pid, .table_id = 0x02});
  }

  Session session_;
  bool live_;
  bool names_;
  std::string first_pat_;
  Deadline since_begin_{std::nullopt};
  std::mutex mutex_;  // guards *psi_ while the session runs
  Psi* psi_;
  std::set<unsigned> watched_;  // the section reader's, once it runs
};

/// The first PAT alone, where reading can begin again: the look that follows has the
/// filters of PMTs from the first packet on. Returns what tells it from those of later.
std::string find_pat(Input& input, Psi* psi) {
  Session session(input, Session::Mode::kPlay);
  std::mutex mutex;  // guards *psi and the result while the session runs
  std::string first;
  session.on_section([&](unsigned pid, std::string_view section) {
    std::lock_guard lock(mutex);
    if (psi->has_pat()) return;
    psi->add(pid, section);
    if (psi->has_pat()) first = identity_of(section);
  });
  session.add_filter({.pid = kPatPid, .table_id = 0x00, .changed_only = true});
  session.drop_rest();
  session.run(nullptr, [&] {
    std::lock_guard lock(mutex);
    return psi->has_pat() || session.fed() > kPatWithin;
  });
  input.rewind();
  return first;
}

std::string list_of(const Psi& psi) {
  std::string list;
  for (const auto& [number, programme] : psi.programmes())
    list += (list.empty() ? "" : ", ") + std::to_string(number) +
            (programme.name.empty() ? "" : " \"" + programme.name + "\"");
  return list.empty() ? "none" : list;
}

bool is_called(const Programme& programme, const std::string& wanted) {
  return wanted == std::to_string(programme.number) ||
         g_ascii_strcasecmp(programme.name.c_str(), wanted.c_str()) == 0;
}

}  // namespace

Psi discover(Input& input, Names names) {
  Psi psi;
  const std::string first_pat = input.is_file() ? find_pat(input, &psi) : "";
  for (int pass = 0; pass < 2 && !psi.has_all_programmes(); pass++) {
    Look(input, names, pass == 0 ? first_pat : "", &psi).run();
    input.rewind();
  }
  return psi;
}

const Programme& choose_service(const Psi& psi, const std::string& wanted) {
  for (const auto& [number, programme] : psi.programmes())
    if (wanted.empty() ? !programme.streams.empty() : is_called(programme, wanted))
      return programme;
  throw Failure(Status::kNotFound,
                (wanted.empty() ? std::string("no service with streams in it")
                                : "no service \"" + wanted + '"') +
                    "; there are: " + list_of(psi));
}

}  // namespace tools
