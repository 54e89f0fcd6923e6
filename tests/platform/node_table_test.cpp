// SPDX-License-Identifier: LGPL-2.1-or-later
#include "platform/node_manager/node_table.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/eventfd.h>

#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include "common/unique_fd.h"

namespace {

using Kind = qel::NodeTable::Kind;

class EmptyNode final : public qel::Node {
 public:
  [[nodiscard]] int fd() const override { return fd_.get(); }
  int control(unsigned long, void*) override { return closed_ ? -EBADF : 0; }
  ssize_t read(void*, std::size_t) override { return 0; }
  void force_overflow() override {}
  void close() override { closed_ = true; }

 private:
  std::atomic<bool> closed_{false};
  vantrel::UniqueFD fd_{eventfd(0, EFD_CLOEXEC)};
};

TEST(NodeTable, NumberIsReusedWhileACallRuns) {
  qel::NodeTable table;
  auto node = std::make_shared<EmptyNode>();
  const int fd = node->fd();
  table.insert("node", std::move(node));

  auto call = table.find(fd);
  ASSERT_EQ(call.kind, Kind::kNode);
  EXPECT_NE(table.remove(fd), nullptr);
  EXPECT_EQ(table.remove(fd), nullptr);

  const EmptyNode other;
  EXPECT_NE(other.fd(), fd);
  EXPECT_EQ(table.find(fd).kind, Kind::kClosed) << "its eventfd would be read as data";

  call = {};
  EXPECT_EQ(fcntl(fd, F_GETFD), -1);
  EXPECT_EQ(table.find(fd).kind, Kind::kForeign);
}

TEST(NodeTable, NumberOfAClosedNodeStaysClosedForItsSuccessor) {
  qel::NodeTable table;
  auto first = std::make_shared<EmptyNode>();
  const int fd = first->fd();
  table.insert("first", std::move(first));
  table.remove(fd).reset();

  auto second = std::make_shared<EmptyNode>();
  ASSERT_EQ(second->fd(), fd);
  table.insert("second", std::move(second));
  ASSERT_EQ(table.find(fd).kind, Kind::kNode);
  EXPECT_EQ(table.find(fd).open->name, "second");
}

// For the sanitizers too, which see a node used after its end.
TEST(NodeTable, CallRunsOnANodeThatIsGone) {
  qel::NodeTable table;
  std::atomic<bool> stop{false};
  std::atomic<int> calls{0};
  std::atomic<int> wrong{0};
  constexpr int kNumbers = 64;
  std::vector<std::thread> callers;
  for (int i = 0; i < 3; ++i)
    callers.emplace_back([&] {
      for (int fd = 0; !stop; fd = (fd + 1) % kNumbers) {
        const auto at = table.find(fd);
        if (at.kind != Kind::kNode) continue;
        ++calls;
        at.open->node->control(0, nullptr);
        if (at.open->node->fd() != fd) ++wrong;
      }
    });
  for (int round = 0; round < 2000 || calls < 100; ++round) {
    auto node = std::make_shared<EmptyNode>();
    const int fd = node->fd();
    ASSERT_LT(fd, kNumbers);
    table.insert("node", std::move(node));
    const auto removed = table.remove(fd);
    ASSERT_NE(removed, nullptr);
    removed->node->close();
  }
  stop = true;
  for (auto& caller : callers) caller.join();
  EXPECT_EQ(wrong, 0);
}

TEST(NodeTable, NumbersOutOfRangeAreTakenForNodes) {
  qel::NodeTable table;
  for (const int fd : {-1, 0, 1 << 20, -2147483647 - 1}) {
    EXPECT_EQ(table.find(fd).kind, Kind::kForeign) << fd;
    EXPECT_EQ(table.remove(fd), nullptr) << fd;
  }
}

}  // namespace
