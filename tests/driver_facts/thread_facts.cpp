// SPDX-License-Identifier: LGPL-2.1-or-later
#include <signal.h>

#include "tests/driver_facts/facts.h"
#include "tests/support/process.h"

namespace facts {

using vantrel::test::Background;
using vantrel::test::kPatience;

void threads() {
  struct sigaction interrupt {};  // without a restart
  interrupt.sa_handler = [](int) {};
  sigaction(SIGUSR1, &interrupt, nullptr);
  Node node;
  node.section(kSectionPid);
  Background poller([&] { return node.poll(400); });
  poller.waits();
  fact("threads.stop while another polls: stop poll(400)", {node.stop(), poller.result()});

  Node blocked(O_RDWR), other;
  blocked.section(kSectionPid);
  {
    Background reader([&] { return blocked.read(); });
    reader.waits();
    Background stopper([&] { return blocked.control(KWRX_DMX_STOP); });
    Background bystander([&] { return other.size(4096); });
    fact("threads.stop while another is blocked in read: stop, other node's ioctl",
         {stopper.done_within(kPatience) ? "returns" : "hangs",
          bystander.done_within(kPatience) ? "returns" : "hangs"});
    pthread_kill(reader.thread().native_handle(), SIGUSR1);
    // A read that goes on all the same ends with the next section.
    blocked.start();
    feed(packed(kSectionPid, section(0x42, 1, 20)));
    fact("threads.after a signal to the reader: read stop other",
         {reader.result(), stopper.result(), bystander.result()});
  }

  blocked.start();
  Background reader([&blocked] { return blocked.read(); });
  reader.waits();
  const std::string closed = blocked.close();
  feed(packed(kSectionPid, section(0x42, 1, 20)));
  fact("threads.close while another is blocked in read, then a section: close read",
       {closed, reader.result()});
}

}  // namespace facts
