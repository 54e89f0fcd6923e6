// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/receiver/feeder.h"

#include <errno.h>
#include <qel/log.h>

#include <algorithm>
#include <cstring>

#include "platform/receiver/ports.h"
#include "platform/receiver/stream_node.h"

namespace qel::receiver {

constexpr std::size_t kBatch = 64 * 1024;
// A stream may stop sending PCRs on the PID that paces it; so many bytes
// without one, and another PID is looked for.
constexpr std::size_t kLongWithoutPcr = std::size_t{4} << 20;

Feeder::Feeder(Demux& demux, Input& input)
    : demux_(demux), input_(input), lock_(demux.mutex), lossless_(!demux.is_front_end(input)) {}

Feeder::~Feeder() {
  if (owner_) input_.feeding = false;
}

/// Makes this call the one that feeds the input.
int Feeder::begin() {
  if (input_.feeding) {
    if (!input_.second_feeder_told) {
      qel_log_write(QEL_LOG_BUFFER_MAIN, QEL_LOG_WARNING, "qelreceiver",
                    "demux %u: a second thread feeds the %s input, its data is dropped",
                    demux_.number, lossless() ? "DVR" : "front-end");
    }
    input_.second_feeder_told = true;
    return -EBUSY;
  }
  if (input_.flushing) return -ECANCELED;
  owner_ = input_.feeding = true;
  flushes_ = input_.flushes;
  return 0;
}

int Feeder::feed(const std::uint8_t* data, std::size_t size) {
  const int error = begin();
  if (error == -ECANCELED) input_.counters.flushed += size;
  if (error < 0 || size == 0) return error;

  input_.counters.bytes += size;
  std::size_t done = input_.carried > 0 ? feed_carried(data, size) : 0;
  if (done < size && !cancelled()) done += run(data + done, size - done, 0);
  if (!cancelled() && done < size) {
    // Not a whole packet, or not to be told yet.
    std::memcpy(input_.carry.data() + input_.carried, data + done, size - done);
    input_.carried += size - done;
    done = size;
  }
  demux_.publish(lossless());
  input_.counters.flushed += size - done;
  return cancelled() ? -ECANCELED : 0;
}

/// Goes on with what was left of the call before: a packet in sync gets its rest, all
/// else as much as is looked at to find sync. Gives the bytes of `data` that are done with.
std::size_t Feeder::feed_carried(const std::uint8_t* data, std::size_t size) {
  const std::size_t before = input_.carried;
  const bool in_sync = input_.sync.locked() && input_.carry[0] == kSyncByte && before < kPacketSize;
  const std::size_t whole = in_sync ? kPacketSize : input_.carry.size();
  const std::size_t added = std::min(size, whole - before);
  std::memcpy(input_.carry.data() + before, data, added);
  const std::size_t done = run(input_.carry.data(), before + added, before);
  if (cancelled()) return 0;
  if (done >= before) {
    input_.carried = 0;
    return done - before;
  }
  // So little came that even the old bytes are not decided.
  std::memmove(input_.carry.data(), input_.carry.data() + done, before + added - done);
  input_.carried = before + added - done;
  return added;
}

/// Filters what is whole; gives the number of bytes done with. Those from
/// `fresh` on came with this call.
std::size_t Feeder::run(const std::uint8_t* data, std::size_t size, std::size_t fresh) {
  Sync& sync = input_.sync;
  std::size_t at = 0;
  while (at < size && !cancelled()) {
    if (!sync.locked()) {
      const Sync::Result result = sync.search(data + at, size - at, fresh > at ? fresh - at : 0);
      at += result.skipped;
      input_.counters.skipped_bytes += result.skipped;
      input_.gap = 0;
      if (!result.found) break;
    } else if (input_.gap > 0) {
      const std::size_t passed = std::min(input_.gap, size - at);
      at += passed;
      input_.gap -= passed;
    } else if (data[at] != kSyncByte) {
      ++input_.counters.sync_losses;
      sync.lose();
    } else if (size - at < kPacketSize) {
      break;
    } else {
      const std::size_t stride = sync.stride();
      const std::size_t whole = (size - at - kPacketSize) / stride + 1;
      const std::size_t walked = walk(data + at, std::min(whole, kBatch / stride)) * stride;
      at += walked;
      if (at > size) {
        input_.gap = at - size;
        at = size;
      }
      watch_pace(walked);
      if (size - at >= kPacketSize) next_batch();
    }
  }
  return at;
}

/// Has another PID set the pace where the one that did has no PCR for long.
void Feeder::watch_pace(std::size_t bytes) {
  input_.bytes_without_pcr += bytes;
  if (input_.pacer.pid() && input_.bytes_without_pcr > kLongWithoutPcr) {
    demux_.restart_pacing(input_);
  }
}

/// Between batches: shows readers what there is, and lets others have the demux for
/// a moment.
void Feeder::next_batch() {
  demux_.publish(lossless());
  lock_.unlock();
  lock_.lock();
}

int Feeder::end() {
  if (const int error = begin(); error < 0) return error;
  complete_units();
  demux_.publish(lossless());
  if (lossless() && !wait_until_empty()) return -ECANCELED;
  for (Port& port : ports()) {
    if (port.last_input == &input_ && port.reader) port.reader->ring.end();
  }
  if (StreamNode* record = own_record()) record->ring.end();
  return 0;
}

}  // namespace qel::receiver
