// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Records PIDs of a stream into a file of their own:
//
//     record FILE OUT PID...       for example  multiplex.ts service.ts 0 0x1000 256 257
#include <fcntl.h>
#include <gst/gst.h>
#include <poll.h>
#include <qel/device.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <thread>
#include <vector>

namespace {

/// Copies the record node of a demux to a file until the stream ends.
class Recorder {
 public:
  Recorder(const char* node, const char* path)
      : node_(node), fd_(qel_device_open(node, O_RDONLY | O_NONBLOCK)), out_(path, std::ios::binary) {
    if (ready()) thread_ = std::thread([this] { copy(); });
  }
  ~Recorder() {
    if (fd_ > 0) qel_device_close(node_, fd_);  // ends a read that goes on
    if (thread_.joinable()) thread_.join();
  }
  Recorder(const Recorder&) = delete;
  Recorder& operator=(const Recorder&) = delete;

  [[nodiscard]] bool ready() const { return fd_ > 0 && out_.good(); }
  /// To be called when the end of the stream has been fed: bytes written.
  std::streamoff finish() {
    thread_.join();
    return out_.tellp();
  }

 private:
  void copy() {
    std::vector<char> buffer(256 * 1024);
    for (;;) {
      pollfd entry{.fd = fd_, .events = POLLIN, .revents = 0};
      poll(&entry, 1, -1);
      const ssize_t count = qel_device_read(fd_, buffer.data(), buffer.size());
      if (count > 0)
        out_.write(buffer.data(), count);
      else if (count == 0 || errno == EBADF)
        return;
    }
  }

  const char* node_;
  int fd_;
  std::ofstream out_;
  std::thread thread_;
};

/// False, with a message, when the pipeline ends otherwise than with its stream.
bool play(GstElement* pipeline) {
  g_autoptr(GstBus) bus = gst_element_get_bus(pipeline);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  const auto ends = static_cast<GstMessageType>(GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  g_autoptr(GstMessage) message = gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE, ends);
  if (GST_MESSAGE_TYPE(message) == GST_MESSAGE_EOS) return true;
  g_autoptr(GError) error = nullptr;
  gst_message_parse_error(message, &error, nullptr);
  std::cerr << error->message << '\n';
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  if (argc < 4) {
    std::cerr << "usage: record FILE OUT PID...\n";
    return EXIT_FAILURE;
  }
  // Type 3 records from the DVR input, which waits for the reader. From a tuner
  // it would be type 2: the front-end, which waits for nobody.
  g_autoptr(GError) error = nullptr;
  g_autoptr(GstElement) pipeline =
      gst_parse_launch("filesrc name=file ! vantrel name=demux demux-type=3", &error);
  if (error != nullptr) {
    std::cerr << error->message << '\n';
    return EXIT_FAILURE;
  }
  g_autoptr(GstElement) file = gst_bin_get_by_name(GST_BIN(pipeline), "file");
  g_autoptr(GstElement) demux = gst_bin_get_by_name(GST_BIN(pipeline), "demux");
  g_object_set(file, "location", argv[1], nullptr);
  for (int i = 3; i < argc; i++)
    g_object_set(demux, "other-pid", static_cast<guint>(std::strtoul(argv[i], nullptr, 0)), nullptr);

  Recorder recorder("qel_dvr0", argv[2]);
  if (!recorder.ready()) {
    std::perror(argv[2]);
    return EXIT_FAILURE;
  }
  const bool played = play(pipeline);
  if (played) std::cout << recorder.finish() << " bytes\n";
  gst_element_set_state(pipeline, GST_STATE_NULL);
  return played ? EXIT_SUCCESS : EXIT_FAILURE;
}
