// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <gtest/gtest.h>
#include <pthread.h>
#include <qel/receiver.h>

#include <cerrno>

#include "tests/support/process.h"
#include "tests/support/test_node.h"

using stream::operator+;
using stream::operator+=;
using vantrel::test::Background;
using vantrel::test::TestNode;

/// Tests on demux 0, whose inputs are fresh for each.
class ReceiverTest : public testing::Test {
 protected:
  void SetUp() override {
    qel_receiver_set_pacing(0, 0);
    vantrel::test::flush(0);
    qel_receiver_reset_counters(0);
  }

  /// Open nodes with their filters running; a buffer of 0 leaves the default.
  static TestNode section_node(unsigned pid, std::size_t buffer = 0) {
    TestNode node("qel_demux0");
    if (buffer > 0) node.buffer(buffer);
    EXPECT_EQ(node.section(pid), 0);
    return node;
  }
  static TestNode tap_node(unsigned pid, std::size_t buffer = 0) {
    TestNode node("qel_demux0");
    if (buffer > 0) node.buffer(buffer);
    EXPECT_EQ(node.pes(pid, DMX_OUT_TAP), 0);
    return node;
  }

  static int feed(const stream::Bytes& bytes, dmx_input input = DMX_IN_DVR) {
    return qel_receiver_feed(0, input, bytes.data(), bytes.size()) == 0 ? 0 : errno;
  }
  static qel_input_counters input_counters(dmx_input input = DMX_IN_DVR) {
    qel_input_counters counters;
    qel_receiver_get_input_counters(0, input, &counters);
    return counters;
  }
  static qel_pid_counters pid_counters(unsigned pid, dmx_input input = DMX_IN_DVR) {
    qel_pid_counters counters;
    qel_receiver_get_pid_counters(0, input, pid, &counters);
    return counters;
  }
  static qel_node_counters node_counters(const TestNode& node) {
    return vantrel::test::counters_of(node.fd());
  }

  stream::Multiplex mux;
};

/// New threads' stacks are larger than the address space while it lives.
class NoThreads {
 public:
  NoThreads() {
    pthread_getattr_default_np(&before_);
    pthread_attr_t huge;
    pthread_attr_init(&huge);
    pthread_attr_setstacksize(&huge, std::size_t{1} << 47);
    pthread_setattr_default_np(&huge);
  }
  ~NoThreads() { pthread_setattr_default_np(&before_); }

 private:
  pthread_attr_t before_;
};
