// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/dmx.h>

#include <fcntl.h>

#include <array>
#include <atomic>
#include <initializer_list>
#include <string>
#include <vector>

#include "tests/support/ts_builder.h"

/// Facts about a demux driver: what it answers to calls, one fact a line.
///
/// A value is the results of several calls in their order; a result is a
/// number or the name of an errno.
namespace facts {

using stream::Bytes;
using stream::join;
using stream::section;
using stream::slice;
using stream::operator+;

inline constexpr unsigned kSectionPid = 0x100;
inline constexpr unsigned kPesPid = 0x200;
inline constexpr unsigned kNow = DMX_IMMEDIATE_START;
inline constexpr std::size_t kLargeBuffer = 131072;

/// Lines of all facts so far.
const std::vector<std::string>& lines();
void fact(const std::string& name, const std::string& value);
/// The results, of calls made in this order.
void fact(const std::string& name, std::initializer_list<std::string> results);
std::string join_results(std::initializer_list<std::string> results);
/// Of a call that gives -1 and errno where it fails.
std::string result(long value);

// The groups of facts, in the order of the list.
void nodes();
void section_reading();
void overflows();
void matching();
void crc_oneshot_timeout();
void shared_pids();
void damaged_packets();
void feeding();
void pes_taps();
void pes_outputs();
void pes_requests();
void record_node();
void threads();
void clocks();
void additions();

// Streams

/// Counts the packets of all facts.
stream::Multiplex& mux();
/// Sections one behind the other, a pointer_field in the first packet only.
Bytes packed(unsigned pid, const Bytes& sections);
Bytes pcr(unsigned pid, std::uint64_t base);
/// A PES packet of 500 bytes in all, as it says itself.
Bytes pes_packet();

/// Feeds the live input, which never waits. Gives the bytes taken.
std::string feed(const Bytes& bytes);

/// One row of a section filter.
struct MatchByte {
  std::size_t at;
  std::uint8_t filter;
  std::uint8_t mask;
  std::uint8_t mode;
};
dmx_filter match(std::initializer_list<MatchByte> rows);
/// Table id 0x42.
const dmx_filter& table_42();

/// A node, and calls on it that give their result as text.
class Node {
 public:
  explicit Node(int flags = O_RDWR | O_NONBLOCK, const char* name = "qel_demux0");
  Node(const Node&) = delete;
  Node& operator=(const Node&) = delete;
  ~Node() { close(); }

  [[nodiscard]] int fd() const { return fd_; }
  [[nodiscard]] std::string opened() const;
  std::string close();
  std::string control(unsigned long request, void* argument = nullptr);
  std::string start() { return control(KWRX_DMX_START); }
  std::string stop() { return control(KWRX_DMX_STOP); }
  std::string size(std::size_t bytes);
  std::string section(unsigned pid, const dmx_filter& filter = table_42(), unsigned flags = kNow,
                      unsigned timeout = 0);
  std::string pes(unsigned pid, unsigned output, unsigned type = DMX_PES_OTHER,
                  unsigned input = DMX_IN_FRONTEND);
  std::string read(std::size_t bytes = kLargeBuffer);
  /// Reads until nothing is left.
  std::string drain();
  /// The sections that come out: table id/extension/version.
  std::string passed();
  std::string poll(int milliseconds = 0) const;

  Bytes data;  // of the last read or drain

 private:
  std::atomic<int> fd_;  // closed by one thread while another reads
  int open_error_;
};

}  // namespace facts
