// SPDX-License-Identifier: LGPL-2.1-or-later
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <memory>
#include <mutex>
#include <utility>

#include "tests/driver_facts/facts.h"

namespace facts {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds kLimit{20};

/// The letter that /proc has for what a thread does: S where it sleeps.
char thread_state(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(file, text);
  const std::size_t name_end = text.rfind(')');
  return name_end != std::string::npos && name_end + 2 < text.size() ? text[name_end + 2] : '?';
}

}  // namespace

struct Caller::State {
  std::mutex mutex;
  std::condition_variable changed;
  pid_t thread = 0;    // mutex
  bool done = false;   // mutex
  std::string result;  // mutex
};

Caller::Caller(std::function<std::string()> call)
    : state_(std::make_shared<State>()), thread_([state = state_, call = std::move(call)] {
        {
          const std::lock_guard<std::mutex> lock(state->mutex);
          state->thread = gettid();
        }
        std::string result = call();
        const std::lock_guard<std::mutex> lock(state->mutex);
        state->result = std::move(result);
        state->done = true;
        state->changed.notify_all();
      }) {}

void Caller::wait_until_blocked() const {
  const Clock::time_point end = Clock::now() + kLimit;
  while (Clock::now() < end) {
    {
      const std::lock_guard<std::mutex> lock(state_->mutex);
      if (state_->done || (state_->thread != 0 && thread_state(state_->thread) == 'S')) return;
    }
    std::this_thread::yield();
  }
}

bool Caller::returns() const {
  std::unique_lock<std::mutex> lock(state_->mutex);
  return state_->changed.wait_for(lock, kLimit, [&] { return state_->done; });
}

std::string Caller::result() {
  std::unique_lock<std::mutex> lock(state_->mutex);
  state_->changed.wait(lock, [&] { return state_->done; });
  return state_->result;
}

void threads() {
  struct sigaction interrupt {};  // without a restart
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
  Node node;
  node.section(kSectionPid);
  Caller poller([&] { return node.poll(400); });
  poller.wait_until_blocked();
  fact("threads.stop while another polls: stop poll(400)", {node.stop(), poller.result()});

  Node blocked(O_RDWR), other;
  blocked.section(kSectionPid);
  {
    Caller reader([&] { return blocked.read(); });
    reader.wait_until_blocked();
    Caller stopper([&] { return blocked.control(KWRX_DMX_STOP); });
    Caller bystander([&] { return other.size(4096); });
    fact("threads.stop while another is blocked in read: stop, other node's ioctl",
         {stopper.returns() ? "returns" : "hangs", bystander.returns() ? "returns" : "hangs"});
    pthread_kill(reader.thread().native_handle(), SIGUSR1);
    // A read that goes on all the same ends with the next section.
    blocked.start();
    feed(packed(kSectionPid, section(0x42, 1, 20)));
    fact("threads.after a signal to the reader: read stop other",
         {reader.result(), stopper.result(), bystander.result()});
  }

  blocked.start();
  Caller reader([&blocked] { return blocked.read(); });
  reader.wait_until_blocked();
  const std::string closed = blocked.close();
  feed(packed(kSectionPid, section(0x42, 1, 20)));
  fact("threads.close while another is blocked in read, then a section: close read",
       {closed, reader.result()});
}

}  // namespace facts
