// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <linux/dvb/dmx.h>
#include <qel/receiver.h>

#include <errno.h>
#include <fcntl.h>

#include <memory>
#include <string>

#include "platform/node.h"
#include "platform/receiver/ring.h"

namespace qel::receiver {

/// A PES filter as requested. Plain numbers, for a record may hold any.
struct PesFilter {
  unsigned pid;
  unsigned input;
  unsigned output;
  unsigned pes_type;
  unsigned flags;
};

/// An open node with a ring to read from. Requests are methods; what a kind of
/// node does not know is ENOTTY.
class RingNode : public Node, public std::enable_shared_from_this<RingNode> {
 public:
  static constexpr std::size_t kMaxBuffer = std::size_t{64} << 20;

  RingNode(std::string name, int flags, Ring::Shape shape, std::size_t buffer_size);

  [[nodiscard]] int fd() const final { return ring.fd(); }
  int control(unsigned long request, void* argument) final;
  ssize_t read(void* buffer, std::size_t size) final;
  void force_overflow() final { ring.force_overflow(); }

  [[nodiscard]] const std::string& name() const { return name_; }
  /// False for a node that was opened only for writing: nobody can read it, so
  /// nobody waits for that.
  [[nodiscard]] bool is_read() const { return (flags_ & O_ACCMODE) != O_WRONLY; }

  virtual int start() { return -ENOTTY; }
  virtual int stop() { return -ENOTTY; }
  virtual int set_section(const dmx_sct_filter_params&) { return -ENOTTY; }
  virtual int set_pes(const PesFilter&) { return -ENOTTY; }
  virtual int set_source(int) { return -ENOTTY; }
  virtual int add_pid(unsigned) { return -ENOTTY; }
  virtual int remove_pid(unsigned) { return -ENOTTY; }
  virtual int pes_pids(std::uint16_t*) { return -ENOTTY; }
  virtual int stc(dmx_stc&) { return -ENOTTY; }
  virtual int pes_type(const char*, std::uint32_t&) { return -ENOTTY; }
  virtual int set_buffer_size(std::size_t size) = 0;

  /// Fills in the counters; the lock of the writer side is held.
  virtual void count(qel_node_counters& counters) const;

  virtual void reset_counters() { ring.reset_counters(); }

  Ring ring;

 protected:
  /// Ends reads; the writer side is locked, and feeds the ring no more.
  void close_ring();
  /// What every kind of node checks first; 1 where there is nothing to do.
  [[nodiscard]] int check_buffer_size(std::size_t size) const;

 private:
  const std::string name_;
  const int flags_;
};

}  // namespace qel::receiver
