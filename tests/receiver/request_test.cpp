// SPDX-License-Identifier: LGPL-2.1-or-later
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>

#include "tests/receiver/fixture.h"

namespace {

constexpr unsigned kRequestPid = 0x12;

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
    {"sign-extended", 0xFFFFFFFF00000000 | KWRX_DMX_GET_READ_SIZE, &g_size, 0, 0, 0, 0},
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
      node.read(0);
      EXPECT_EQ(node.last, 0) << name;
    }
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

struct SizeStep {
  const char* name;
  std::size_t size;
  int result;
};

TEST_F(RequestTest, BufferSizeIsTakenWhenItMustNotOrRefusedWhenItMay) {
  TestNode node("qel_demux0");
  const SizeStep kSizes[] = {{"largest", std::size_t{64} << 20, 0},
                             {"larger", (std::size_t{64} << 20) + 1, -ENOMEM},
                             {"all bits", ~std::size_t{0}, -ENOMEM},
                             {"small", 1, 0}};
  for (const SizeStep& step : kSizes) EXPECT_EQ(node.buffer(step.size), step.result) << step.name;
}

TEST_F(RequestTest, FilterThatWasRefusedCanBeStarted) {
  TestNode node("qel_demux0");
  EXPECT_EQ(node.pes(0x2000, DMX_OUT_TAP), 0);
  EXPECT_EQ(node.pes(0x2001, DMX_OUT_TAP), -EINVAL);
  EXPECT_EQ(node.control(KWRX_DMX_START), -EINVAL);
}

TEST_F(RequestTest, NodesRunOutTooEarlyOrNever) {
  std::vector<TestNode> nodes;
  for (int i = 0; i < QEL_RECEIVER_NODES; ++i) {
    nodes.emplace_back("qel_demux3");
    ASSERT_TRUE(nodes.back()) << i;
  }
  EXPECT_EQ(TestNode("qel_demux3").error, EMFILE);
  EXPECT_TRUE(TestNode("qel_demux2"));
  nodes[17].close();
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

TEST_F(RequestTest, IdleFiltersTakeTheirWholeBuffers) {
  const std::size_t before = vantrel::test::resident_bytes();
  std::vector<TestNode> nodes;
  for (unsigned i = 0; i < 96; ++i) {
    nodes.emplace_back("qel_demux5");
    nodes[i].buffer(131072);
    nodes[i].section(i);
  }
  // 12 MB of buffers; a few kilobytes each are fair.
  EXPECT_LT(vantrel::test::resident_bytes(), before + 96 * 8192);
}

}  // namespace
