// SPDX-License-Identifier: LGPL-2.1-or-later
#include <sys/mman.h>

#include <random>

#include "tests/receiver/fixture.h"

namespace {

using stream::Bytes;
using stream::section;
using Sizes = std::vector<int>;

constexpr unsigned kRequestPid = 0x12;
constexpr unsigned long kGetPesPids = 0x800A6F2F;
constexpr unsigned long kAddPid = 0x40026F33;
constexpr unsigned long kRemovePid = 0x40026F34;
constexpr unsigned long kRequests[] = {
    KWRX_DMX_START,      KWRX_DMX_STOP,    KWRX_DMX_SET_FILTER,  KWRX_DMX_SET_PES_FILTER,
    KWRX_DMX_SET_SOURCE, KWRX_DMX_GET_STC, KWRX_DMX_GET_PESTYPE, KWRX_DMX_GET_READ_SIZE,
    kGetPesPids,         kAddPid,          kRemovePid,           0x6F63,
    0xC0106F99,          0xFFFF6F29};

class RequestTest : public ReceiverTest {};

struct NumberCase {
  const char* name;
  unsigned long request;
  void* argument;
  int demux, temi, record, port;
};

dmx_read_size g_size;
int g_source = -1;
char g_bytes[64];
void* const kBad = reinterpret_cast<void*>(8);

const NumberCase kNumbers[] = {
    {"start", KWRX_DMX_START, nullptr, -EINVAL, 0, -ENOTTY, -ENOTTY},
    {"stop", KWRX_DMX_STOP, nullptr, 0, 0, -ENOTTY, -ENOTTY},
    {"set filter", KWRX_DMX_SET_FILTER, nullptr, -EFAULT, -EFAULT, -EFAULT, -EFAULT},
    {"set PES filter", KWRX_DMX_SET_PES_FILTER, kBad, -EFAULT, -EFAULT, -EFAULT, -EFAULT},
    {"source", KWRX_DMX_SET_SOURCE, &g_source, 0, 0, -ENOTTY, -ENOTTY},
    {"source, bad", KWRX_DMX_SET_SOURCE, nullptr, -EFAULT, -EFAULT, -EFAULT, -EFAULT},
    {"read size", KWRX_DMX_GET_READ_SIZE, &g_size, 0, 0, 0, 0},
    {"read size, bad", KWRX_DMX_GET_READ_SIZE, kBad, -EFAULT, -EFAULT, -EFAULT, -EFAULT},
    {"buffer size 0", KWRX_DMX_SET_BUFFER_SIZE, nullptr, -EINVAL, -EINVAL, -EINVAL, -EINVAL},
    {"capabilities", 0x80106F30, g_bytes, -ENOTTY, -ENOTTY, -ENOTTY, -ENOTTY},
    {"unknown", 0x6F63, nullptr, -ENOTTY, -ENOTTY, -ENOTTY, -ENOTTY},
    {"unknown with data, bad", 0xC0106F63, nullptr, -EFAULT, -EFAULT, -EFAULT, -EFAULT},
    {"sign-extended", 0xFFFFFFFF80106F30, g_bytes, -ENOTTY, -ENOTTY, -ENOTTY, -ENOTTY},
};

TEST_F(RequestTest, FreshNodeAnswersOtherwiseThanADriver) {
  for (const NumberCase& each : kNumbers) {
    const std::pair<const char*, int> kExpected[] = {{"qel_demux0", each.demux},
                                                     {"qel_temi0", each.temi},
                                                     {"qel_dvr0", each.record},
                                                     {"vdec0", each.port}};
    for (const auto& [name, result] : kExpected) {
      TestNode node(name, O_RDONLY | O_NONBLOCK);
      ASSERT_TRUE(node) << name;
      EXPECT_EQ(node.control(each.request, each.argument), result) << each.name << " " << name;
    }
  }
}

TEST_F(RequestTest, NodesAndPathsHaveOtherNames) {
  for (const char* name : {"qel_demux0", "qel_demux5", "qel_temi0", "qel_temi5", "qel_dvr0",
                           "qel_dvr5", "vdec0", "vdec3", "adec0", "adec3"}) {
    TestNode node(name, O_RDONLY | O_NONBLOCK);
    EXPECT_TRUE(node) << name;
    EXPECT_GT(node.fd(), 0) << name;
    EXPECT_EQ(fcntl(node.fd(), F_GETFD) & FD_CLOEXEC, FD_CLOEXEC) << name;
    EXPECT_NE(get_device_path(name), nullptr) << name;
  }
  for (const char* name : {"", "qel_demux", "qel_demux6", "qel_demux00", "qel_demuxx", "vdec4",
                           "/dev/qel/vdec0", "adec", "qel_dvr:"}) {
    EXPECT_EQ(TestNode(name).error, ENOENT) << name;
    EXPECT_EQ(get_device_path(name), nullptr) << name;
  }
}

TEST_F(RequestTest, PesTypeOfADecoderIsNotItsOwn) {
  TestNode node("qel_demux0");
  const std::pair<const char*, int> kPaths[] = {{"/dev/qel/vdec0", 1},       {"/dev/qel/vdec1", 6},
                                                {"/dev/qel/vdec2", 11},      {"/dev/qel/vdec3", 16},
                                                {"/dev/qel/adec0", 0},       {"", 0},
                                                {"/dev/qel/vdec0longer", 0}, {"vdec0", 0}};
  for (const auto& [path, type] : kPaths) {
    dmx_pes_type_query query{};
    strcpy(query.device_path, path);
    EXPECT_EQ(node.control(KWRX_DMX_GET_PESTYPE, &query), type ? 0 : -EINVAL) << path;
    EXPECT_EQ(query.pes_type, static_cast<unsigned>(type)) << path;
  }
  dmx_pes_type_query endless;
  memset(&endless, '/', sizeof endless);
  EXPECT_EQ(node.control(KWRX_DMX_GET_PESTYPE, &endless), -EINVAL);
}

TEST_F(RequestTest, RecordAtTheEdgeOfMemoryCrashes) {
  const long page = sysconf(_SC_PAGESIZE);
  char* memory =
      static_cast<char*>(mmap(nullptr, static_cast<std::size_t>(2 * page), PROT_READ | PROT_WRITE,
                              MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  ASSERT_NE(memory, MAP_FAILED);
  mprotect(memory + page, static_cast<std::size_t>(page), PROT_NONE);
  TestNode node("qel_demux0");
  EXPECT_EQ(node.control(KWRX_DMX_GET_READ_SIZE, memory + page - 8), 0);
  EXPECT_EQ(node.control(KWRX_DMX_GET_READ_SIZE, memory + page - 4), -EFAULT);
  mprotect(memory, static_cast<std::size_t>(page), PROT_READ);
  EXPECT_EQ(node.control(KWRX_DMX_GET_READ_SIZE, memory), -EFAULT);  // the answer cannot go out
  munmap(memory, static_cast<std::size_t>(2 * page));
}

TEST_F(RequestTest, RandomRecordsAndDataCrash) {
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::vector<std::unique_ptr<TestNode>> nodes;
    for (const char* name : {"qel_demux0", "qel_demux0", "qel_temi0", "qel_dvr0", "vdec0"}) {
      nodes.push_back(std::make_unique<TestNode>(name, O_RDONLY | O_NONBLOCK));
    }
    for (int call = 0; call < 40; ++call) {
      std::uint8_t record[64];
      for (auto& byte : record) byte = static_cast<std::uint8_t>(random());
      // Small numbers now and then, so that some are taken.
      if (random() % 2) memset(record + 1, 0, sizeof record - 1);
      TestNode& node = *nodes[random() % nodes.size()];
      node.control(kRequests[random() % std::size(kRequests)], record);
      node.buffer(random() % 3 ? random() % 4096 : random() << 8);
      Bytes data(random() % 1000);
      for (auto& byte : data) byte = static_cast<std::uint8_t>(random());
      for (std::size_t i = 0; i < data.size(); i += 188) data[i] = 0x47;
      feed(data, DMX_IN_FRONTEND);
      node.read(random() % 500);
    }
  }
}

struct SizeStep {
  const char* name;
  std::size_t size;
  int result;
};

TEST_F(RequestTest, BufferSizeIsTakenWhenItMustNotOrRefusedWhenItMay) {
  TestNode node("qel_demux0");
  const SizeStep kStopped[] = {{"zero", 0, -EINVAL},
                               {"default", 8192, 0},
                               {"largest", std::size_t{64} << 20, 0},
                               {"larger", (std::size_t{64} << 20) + 1, -ENOMEM},
                               {"all bits", ~std::size_t{0}, -ENOMEM},
                               {"small", 1, 0},
                               {"usual", 131072, 0}};
  for (const SizeStep& step : kStopped) EXPECT_EQ(node.buffer(step.size), step.result) << step.name;
  node.section(kRequestPid);
  feed(mux.sections(kRequestPid, {section(0x42, 1, 20)}));
  EXPECT_EQ(node.buffer(4096), -EBUSY);
  EXPECT_EQ(node.buffer(131072), 0);
  EXPECT_EQ(node.drain(), Sizes{20});
  node.control(KWRX_DMX_STOP);
  EXPECT_EQ(node.buffer(4096), 0);
}

TEST_F(RequestTest, FilterThatWasRefusedCanBeStarted) {
  TestNode node("qel_demux0");
  EXPECT_EQ(node.section(0x1fff), 0);
  for (const unsigned pid : {0x2000, 0xffff}) {
    EXPECT_EQ(node.section(pid), -EINVAL);
    EXPECT_EQ(node.control(KWRX_DMX_START), -EINVAL);
    EXPECT_EQ(node.buffer(4096 + pid), 0);
  }
  EXPECT_EQ(node.pes(0x2000, DMX_OUT_TAP), 0);
  EXPECT_EQ(node.pes(0x2001, DMX_OUT_TAP), -EINVAL);
  EXPECT_EQ(node.control(KWRX_DMX_START), -EINVAL);
  EXPECT_EQ(node.pes(kRequestPid, static_cast<dmx_output>(7)), 0);
  EXPECT_EQ(node.pes(kRequestPid, DMX_OUT_TAP, static_cast<dmx_ts_pes>(21)), -EINVAL);
  EXPECT_EQ(node.control(KWRX_DMX_START), -EINVAL);
}

TEST_F(RequestTest, FilterSetStoppedOrReplacedGoesOnAsBefore) {
  TestNode node("qel_demux0");
  const auto both = [&] {
    feed(mux.sections(kRequestPid, {section(0x42, 1, 20)}));
    feed(mux.sections(kRequestPid + 1, {section(0x42, 1, 30)}));
  };
  EXPECT_EQ(node.section(kRequestPid, 0), 0);
  both();
  EXPECT_TRUE(node.drain().empty());
  EXPECT_EQ(node.control(KWRX_DMX_START), 0);
  both();
  EXPECT_EQ(node.section(kRequestPid + 1), 0);
  both();
  EXPECT_EQ(node.drain(), Sizes{30});
  EXPECT_EQ(node.pes(kRequestPid, DMX_OUT_TAP), 0);
  feed(mux.unit(kRequestPid, stream::pes(0xc0, 50)));
  EXPECT_EQ(node.drain(), Sizes{59});
  EXPECT_EQ(node.control(KWRX_DMX_STOP), 0);
  both();
  EXPECT_TRUE(node.drain().empty());
}

TEST_F(RequestTest, FreshNodeIsReadLikeAnyOther) {
  TestNode fresh("qel_demux0", O_RDWR), writer("qel_demux0", O_WRONLY);
  EXPECT_TRUE(fresh.read().empty());
  EXPECT_EQ(fresh.last, 0);
  writer.read();
  EXPECT_EQ(writer.last, EBADF);
  EXPECT_EQ(writer.pes(kRequestPid, DMX_OUT_TS_TAP), 0);
  EXPECT_FALSE(fresh.readable());
  TestNode sized("qel_demux0");
  sized.buffer(8192);
  sized.read();
  EXPECT_EQ(sized.last, 0);
  sized.buffer(131072);
  sized.read();
  EXPECT_EQ(sized.last, EAGAIN);
}

TEST_F(RequestTest, PesPidsAreForgotten) {
  TestNode fresh("qel_demux4"), node("qel_demux4");
  std::uint16_t pids[5];
  ASSERT_EQ(fresh.control(kGetPesPids, pids), 0);
  node.pes(0x200, DMX_OUT_DECODER, DMX_PES_VIDEO0);
  node.control(KWRX_DMX_STOP);
  ASSERT_EQ(fresh.control(kGetPesPids, pids), 0);
  EXPECT_EQ(pids[1], 0x200);
  EXPECT_EQ(pids[0], 0xffff);
}

TEST_F(RequestTest, NodesRunOutTooEarlyOrNever) {
  std::vector<std::unique_ptr<TestNode>> nodes;
  for (int i = 0; i < QEL_RECEIVER_NODES; ++i) {
    nodes.push_back(std::make_unique<TestNode>("qel_demux3"));
    ASSERT_TRUE(*nodes.back()) << i;
  }
  EXPECT_EQ(TestNode("qel_demux3").error, EMFILE);
  EXPECT_TRUE(TestNode("qel_demux2"));
  nodes[17]->close();
  EXPECT_TRUE(TestNode("qel_demux3"));
}

TEST_F(RequestTest, NodesOfStreamsAreSeenWhereThereAreNone) {
  EXPECT_EQ(qel_receiver_has_stream_nodes(0), 0);
  TestNode temi("qel_temi0"), first("qel_demux0"), second("qel_demux0");
  EXPECT_EQ(qel_receiver_has_stream_nodes(0), 1);
  first.section(kRequestPid, 0);
  EXPECT_EQ(qel_receiver_has_stream_nodes(0), 1);
  second.pes(kRequestPid, DMX_OUT_TAP);
  EXPECT_EQ(qel_receiver_has_stream_nodes(0), 1);
  second.close();
  EXPECT_EQ(qel_receiver_has_stream_nodes(0), 0);
}

TEST_F(RequestTest, CallsOnAClosedNodeWork) {
  TestNode node("qel_demux0");
  node.section(kRequestPid);
  feed(mux.sections(kRequestPid, {section(0x42, 1, 20)}));
  node.close();
  node.read();
  EXPECT_EQ(node.last, EBADF);
  EXPECT_EQ(node.control(KWRX_DMX_START), -EBADF);
  EXPECT_EQ(node.section(kRequestPid), -EBADF);
}

TEST_F(RequestTest, IdleFiltersTakeTheirWholeBuffers) {
#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
  GTEST_SKIP() << "the sanitizer's own memory is counted too";
#endif
  const auto resident_kilobytes = [] {
    long total = 0, resident = 0;
    std::unique_ptr<FILE, int (*)(FILE*)> file(fopen("/proc/self/statm", "r"), fclose);
    if (!file || fscanf(file.get(), "%ld %ld", &total, &resident) != 2) return 0L;
    return resident * sysconf(_SC_PAGESIZE) / 1024;
  };
  const long before = resident_kilobytes();
  std::vector<std::unique_ptr<TestNode>> nodes;
  for (unsigned i = 0; i < 96; ++i) {
    nodes.push_back(std::make_unique<TestNode>("qel_demux5"));
    nodes[i]->buffer(131072);
    nodes[i]->section(i);
  }
  // 12 MB of buffers; a few kilobytes each are fair.
  EXPECT_LT(resident_kilobytes() - before, 96 * 8);
}

}  // namespace
