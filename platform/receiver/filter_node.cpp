// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/filter_node.h"

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "platform/receiver/ports.h"
#include "platform/receiver/receiver.h"
#include "platform/receiver/stream_node.h"

namespace qel::receiver {
namespace {

constexpr std::size_t kDefaultBuffer = 8192;
constexpr unsigned kStcDivisor = 300;  // from 27 MHz to 90 kHz
constexpr std::array<unsigned, 4> kClockTypes = {DMX_PES_PCR0, DMX_PES_PCR1, DMX_PES_PCR2,
                                                 DMX_PES_PCR3};

using Lock = std::lock_guard<FairMutex>;

}  // namespace

FilterNode::FilterNode(Demux& demux, std::string name, int flags, bool temi)
    : RingNode(std::move(name), flags, Ring::Shape::kBytes, kDefaultBuffer),
      demux_(demux),
      temi_(temi),
      kind_(temi ? QEL_NODE_TEMI : QEL_NODE_UNSET) {
  if (!temi) return;
  state_ = State::kSet;  // it needs no filter
  ring.set_ways(Ring::Shape::kBytes, Ring::Wake::kAtOnce);
}

bool FilterNode::is_clock() const {
  const bool pes =
      kind_ == QEL_NODE_PES_DECODER || kind_ == QEL_NODE_PES_TAP || kind_ == QEL_NODE_TS_TAP;
  return pes && pes_.pid < kAllPids &&
         std::find(kClockTypes.begin(), kClockTypes.end(), pes_.pes_type) != kClockTypes.end();
}

bool FilterNode::follows(const Input& input) const {
  if (kind_ == QEL_NODE_SECTION || kind_ == QEL_NODE_TEMI) return true;
  return kind_ != QEL_NODE_UNSET && &demux_.input(pes_.input) == &input;
}

int FilterNode::start() {
  const Lock lock(demux_.mutex);
  return closed_ ? -EBADF : start_locked();
}

int FilterNode::stop() {
  const Lock lock(demux_.mutex);
  if (closed_) return -EBADF;
  stop_locked();
  return 0;
}

int FilterNode::set_section(const dmx_sct_filter_params& params) {
  if (temi_) return -EINVAL;
  const Lock lock(demux_.mutex);
  if (closed_) return -EBADF;
  stop_locked();
  state_ = State::kFresh;
  kind_ = QEL_NODE_UNSET;
  if (params.pid >= kAllPids) return -EINVAL;
  section_ = params;
  kind_ = QEL_NODE_SECTION;
  state_ = State::kSet;
  ring.set_ways(Ring::Shape::kRecords, Ring::Wake::kAtOnce);
  return params.flags & DMX_IMMEDIATE_START ? start_locked() : 0;
}

int FilterNode::set_pes(const PesFilter& filter) {
  constexpr std::array<qel_node_kind, 4> kKinds = {QEL_NODE_PES_DECODER, QEL_NODE_PES_TAP,
                                                   QEL_NODE_TS_TAP, QEL_NODE_PES_TAP};
  if (temi_) return -EINVAL;
  const Lock lock(demux_.mutex);
  if (closed_) return -EBADF;
  stop_locked();
  state_ = State::kFresh;
  kind_ = QEL_NODE_UNSET;
  if (filter.pid > kAllPids || filter.pes_type > DMX_PES_OTHER) return -EINVAL;
  if (filter.input != DMX_IN_FRONTEND && filter.input != DMX_IN_DVR) return -EINVAL;
  pes_ = filter;
  more_pids_.clear();
  // An output that does not exist is taken, and gets nothing.
  kind_ = kKinds[std::min<std::size_t>(filter.output, kKinds.size() - 1)];
  state_ = State::kSet;
  const bool packets = filter.output == DMX_OUT_TSDEMUX_TAP || filter.pid == kAllPids;
  ring.set_ways(packets ? Ring::Shape::kBytes : Ring::Shape::kRecords, Ring::Wake::kModerated);
  return filter.flags & DMX_IMMEDIATE_START ? start_locked() : 0;
}

int FilterNode::start_locked() {
  if (state_ == State::kFresh) return -EINVAL;
  stop_locked();
  if (const int error = ring.ensure_allocated(); error < 0) return error;
  if (const int error = claim(); error < 0) return error;
  ring.discard();
  unit = {};
  port_started = false;
  clock.reset();
  state_ = State::kRunning;
  demux_.attach(*this);
  ++starts_;
  if (arm()) return 0;
  finish(State::kSet);
  return -EAGAIN;
}

/// Starts the filter's time limit, if it has one.
bool FilterNode::arm() {
  if (kind_ != QEL_NODE_SECTION || section_.timeout == 0) return true;
  armed_ =
      receiver().timers.arm(std::static_pointer_cast<FilterNode>(shared_from_this()), this, starts_,
                            Timers::Clock::now() + std::chrono::milliseconds(section_.timeout));
  return armed_;
}

/// Takes what a decoder filter has to itself: its PES type and its port.
int FilterNode::claim() {
  if (kind_ != QEL_NODE_PES_DECODER || pes_.pes_type == DMX_PES_OTHER) return 0;
  FilterNode*& holder = demux_.decoders[pes_.pes_type];
  if (holder) return -EINVAL;
  Port* wanted = find_port(pes_.pes_type);
  if (wanted) {
    Demux* nobody = nullptr;
    if (!wanted->feeder.compare_exchange_strong(nobody, &demux_)) return -EBUSY;
    wanted->filter = this;
    wanted->last_input = &demux_.input(pes_.input);
  }
  port = wanted;
  holder = this;
  return 0;
}

void FilterNode::give_back() {
  if (kind_ != QEL_NODE_PES_DECODER || pes_.pes_type == DMX_PES_OTHER) return;
  if (demux_.decoders[pes_.pes_type] != this) return;
  demux_.decoders[pes_.pes_type] = nullptr;
  if (!port) return;
  drop_unit();
  port->filter = nullptr;
  port->feeder = nullptr;
  port = nullptr;
}

void FilterNode::finish(State state) {
  demux_.detach(*this);
  disarm();
  give_back();
  state_ = state;
}

void FilterNode::stop_locked() {
  if (state_ == State::kFresh || state_ == State::kSet) return;
  if (state_ == State::kRunning) finish(State::kSet);
  state_ = State::kSet;
  ring.discard();
}

void FilterNode::disarm() {
  if (!armed_) return;
  armed_ = false;
  receiver().timers.disarm(this);
}

void FilterNode::delivered() {
  disarm();
  if (section_.flags & DMX_ONESHOT) finish(State::kDone);
}

void FilterNode::time_out(std::uint64_t start) {
  const Lock lock(demux_.mutex);
  if (state_ != State::kRunning || !armed_ || start != starts_) return;
  finish(State::kTimedOut);
  ring.time_out();
}

int FilterNode::set_source(int source) {
  const Lock lock(demux_.mutex);
  source_ = source;
  return 0;
}

int FilterNode::set_buffer_size(std::size_t size) {
  const Lock lock(demux_.mutex);
  if (closed_) return -EBADF;
  const int check = check_buffer_size(size);
  if (check != 0) return check < 0 ? check : 0;
  if (state_ != State::kFresh && state_ != State::kSet) return -EBUSY;
  return ring.allocate(size);
}

int FilterNode::add_pid(unsigned pid) {
  const Lock lock(demux_.mutex);
  if (kind_ != QEL_NODE_PES_TAP || pes_.output != DMX_OUT_TSDEMUX_TAP) return -EINVAL;
  if (pid > kAllPids) return -EINVAL;
  if (state_ == State::kRunning) demux_.detach(*this);
  std::erase(more_pids_, pid);
  more_pids_.push_back(static_cast<std::uint16_t>(pid));
  if (state_ == State::kRunning) demux_.attach(*this);
  return 0;
}

int FilterNode::remove_pid(unsigned pid) {
  const Lock lock(demux_.mutex);
  if (kind_ != QEL_NODE_PES_TAP || pes_.output != DMX_OUT_TSDEMUX_TAP) return -EINVAL;
  if (state_ == State::kRunning) demux_.detach(*this);
  std::erase(more_pids_, pid);
  if (state_ == State::kRunning) demux_.attach(*this);
  return 0;
}

int FilterNode::pes_pids(std::uint16_t* pids) {
  const Lock lock(demux_.mutex);
  std::copy(demux_.pes_pids.begin(), demux_.pes_pids.end(), pids);
  return 0;
}

int FilterNode::stc(dmx_stc& stc) {
  if (stc.num >= kClockTypes.size()) return -EINVAL;
  const Lock lock(demux_.mutex);
  const FilterNode* node = demux_.clock(kClockTypes[stc.num]);
  if (!node) return -EAGAIN;
  const auto value = node->clock.read(std::chrono::steady_clock::now());
  if (!value) return -EAGAIN;
  stc.base = kStcDivisor;
  stc.stc = *value;
  return 0;
}

int FilterNode::pes_type(const char* path, std::uint32_t& type) {
  const Port* video = find_video_port(path);
  if (!video) return -EINVAL;
  type = video->pes_type;
  return 0;
}

void FilterNode::close() {
  const auto self = shared_from_this();  // until the lock is free
  const Lock lock(demux_.mutex);
  if (closed_) return;
  stop_locked();
  closed_ = true;
  close_ring();
  std::erase_if(demux_.nodes, [this](const auto& node) { return node.get() == this; });
}

void FilterNode::count(qel_node_counters& counters) const {
  RingNode::count(counters);
  counters.kind = kind_;
  counters.running = state_ == State::kRunning;
  counters.records += passed_on.records;
  counters.bytes += passed_on.bytes;
  counters.dropped += passed_on.dropped;
  counters.crc_errors = crc_errors;
  if (kind_ == QEL_NODE_SECTION) counters.pid = section_.pid;
  if (kind_ != QEL_NODE_SECTION && kind_ != QEL_NODE_UNSET && !temi_) counters.pid = pes_.pid;
}

void FilterNode::drop_unit() {
  Ring& target = port && port->reader ? port->reader->ring : ring;
  target.rollback();
  unit = {};
  port_started = false;
}

void FilterNode::forget_progress(const Input& input) {
  const bool has_unit = kind_ == QEL_NODE_PES_DECODER || kind_ == QEL_NODE_PES_TAP;
  if (has_unit && follows(input)) drop_unit();
}

void FilterNode::reset_counters() {
  ring.reset_counters();
  passed_on = {};
  crc_errors = 0;
}

}  // namespace qel::receiver
