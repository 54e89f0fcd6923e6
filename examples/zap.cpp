// SPDX-License-Identifier: LGPL-2.1-or-later
//
// Plays a file as if it were live and zaps through audio PIDs, each time until
// the decoder's port has got some data of it:
//
//     zap FILE PID...       for example  multiplex.ts 257 258
#include <fcntl.h>
#include <gst/gst.h>
#include <poll.h>
#include <qel/device.h>

#include <array>
#include <cstdlib>
#include <iostream>

namespace {

constexpr ssize_t kEnough = 4096;

/// The port that an audio decoder reads: PES data of whatever PID goes to it.
class Port {
 public:
  explicit Port(const char* name)
      : name_(name), fd_(qel_device_open(name, O_RDONLY | O_NONBLOCK)) {}
  ~Port() {
    if (fd_ > 0) qel_device_close(name_, fd_);
  }
  Port(const Port&) = delete;
  Port& operator=(const Port&) = delete;

  /// Waits until `size` bytes have come; fewer at the end of the stream.
  ssize_t receive(ssize_t size) {
    ssize_t received = 0;
    std::array<char, kEnough> buffer;
    while (received < size) {
      pollfd entry{.fd = fd_, .events = POLLIN, .revents = 0};
      poll(&entry, 1, -1);
      const ssize_t count = qel_device_read(fd_, buffer.data(), buffer.size());
      if (count > 0)
        received += count;
      else if (count == 0 || errno != EAGAIN)
        break;
    }
    return received;
  }

 private:
  const char* name_;
  int fd_;
};

bool zap(GstElement* demux, Port* port, guint pid) {
  g_object_set(demux, "apid", pid, nullptr);
  const ssize_t received = port->receive(kEnough);
  std::cout << "audio PID " << pid << ": " << received << " bytes\n";
  return received >= kEnough;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  if (argc < 3) {
    std::cerr << "usage: zap FILE PID...\n";
    return EXIT_FAILURE;
  }
  g_autoptr(GError) error = nullptr;
  g_autoptr(GstElement) pipeline =
      gst_parse_launch("filesrc name=file ! vantrel name=demux demux-type=0", &error);
  if (error != nullptr) {
    std::cerr << error->message << '\n';
    return EXIT_FAILURE;
  }
  g_autoptr(GstElement) file = gst_bin_get_by_name(GST_BIN(pipeline), "file");
  g_autoptr(GstElement) demux = gst_bin_get_by_name(GST_BIN(pipeline), "demux");
  g_object_set(file, "location", argv[1], nullptr);
  if (gst_element_set_state(pipeline, GST_STATE_PLAYING) == GST_STATE_CHANGE_FAILURE) {
    std::cerr << argv[1] << ": cannot be played\n";
    return EXIT_FAILURE;
  }
  bool all = true;
  Port port("adec0");
  for (int i = 2; i < argc && all; i++)
    all = zap(demux, &port, static_cast<guint>(std::strtoul(argv[i], nullptr, 0)));
  gst_element_set_state(pipeline, GST_STATE_NULL);
  return all ? EXIT_SUCCESS : EXIT_FAILURE;
}
