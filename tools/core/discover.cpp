// SPDX-License-Identifier: LGPL-2.1-or-later
#include "tools/core/discover.h"

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
constexpr unsigned kPatPid = 0x00;
constexpr unsigned kSdtPid = 0x11;
constexpr unsigned kAtscPid = 0x1FFB;

/// One look at the beginning. Filters for PMTs are added as a PAT names them;
/// the first ones of the file may have passed by then.
class Look {
 public:
  Look(Input& input, Names names, Psi* psi)
      : session_(input, Session::Mode::kPlay),
        live_(input.is_live()),
        names_(names == Names::kWanted),
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
      return (psi_->has_all_programmes() && (!names_ || psi_->has_sdt() || no_sdt)) ||
             session_.fed() > kLongest || is_late(kLongestLive);
    });
  }

 private:
  [[nodiscard]] bool is_late(double seconds) const {
    return live_ && since_begin_.elapsed() > seconds;
  }

  void take(unsigned pid, std::string_view section) {
    std::set<unsigned> pmts;
    {
      std::lock_guard lock(mutex_);
      psi_->add(pid, section);
      if (pid == kPatPid)
        for (const auto& [number, programme] : psi_->programmes()) pmts.insert(programme.pmt_pid);
    }
    for (const unsigned pmt : pmts) watch(pmt);
  }

  void watch(unsigned pmt_pid) {
    if (pmt_pid != Programme::kNoPid && watched_.insert(pmt_pid).second)
      session_.add_filter({.pid = pmt_pid, .table_id = 0x02});
  }

  Session session_;
  bool live_;
  bool names_;
  Deadline since_begin_{std::nullopt};
  std::mutex mutex_;  // guards *psi_ while the session runs
  Psi* psi_;
  std::set<unsigned> watched_;  // the section reader's, once it runs
};

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
  for (int pass = 0; pass < 2 && !psi.has_all_programmes(); pass++) {
    Look(input, names, &psi).run();
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
