// SPDX-License-Identifier: LGPL-2.1-or-later
#pragma once

#include <qel/base_filter.h>
#include <qel/dmx.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "instance/operation_mutex.h"
#include "instance/poll_set.h"
#include "instance/section_filter.h"
#include "instance/stream.h"

/// Streams an element has at most.
constexpr guint kMaxStreams = 128;
/// ISDB caption streams that may be set at a time.
constexpr guint kIsdbSlots = 3;
/// Bytes of one TEMI read.
constexpr guint kTemiBufferSize = 16384;

/// Four characters as 32 bits, the first one lowest.
constexpr guint32 fourcc(char a, char b, char c, char d) {
  return static_cast<guint32>(a) | static_cast<guint32>(b) << 8 | static_cast<guint32>(c) << 16 |
         static_cast<guint32>(d) << 24;
}

/// A word that threads share without a lock.
template <typename T>
using Shared = std::atomic<T>;

/// Everything an element knows, beside its base class.
///
/// Lock order: filter_lock > section_lock; demux_lock > GStreamer's locks >
/// stream_lock; temi_lock > stream_lock. The element never takes demux_lock and
/// section_lock together; a handler of pads that adds a filter does, in this order.
///
///   demux_lock    one operation on streams or lifecycle at a time: change,
///                 removal, initiate, each stream of a start, stop, emptying
///                 the table. Recursive, since handlers of pad-added, pad-removed
///                 and of events may come back on the same thread. Pad event and
///                 unlink functions, property readers and the PES reader never
///                 take it; nobody joins a thread with it held.
///   stream_lock   innermost: the stream table, its records, the decoder names,
///                 and each sequence of requests on a stream's node, or on the
///                 TEMI node outside of its reader. Under it only the driver, the
///                 node manager and the log are called; no gst_pad_,
///                 gst_element_, signal or unref call. Who changes which records
///                 are in the table holds demux_lock too.
///   section_lock  filter lists, poll table and a pass of the section reader;
///                 free while "section-upload" is emitted.
///   filter_lock   one "add-filter" or "remove-filter" at a time, and the section
///                 parameters; free while waiting for an emission to end.
///   temi_lock     one start of the TEMI reader at a time, and none between the
///                 look for a reader and the closing of its node; free while the
///                 reader is joined.
///
/// Fields without another word are written by lifecycle operations, which the
/// base class runs one at a time.
struct VantrelState {
  /// Recorder-mode source pad; the element holds the other reference.
  vantrel::PadRef spts_srcpad;

  std::mutex section_lock;
  std::mutex filter_lock;
  vantrel::OperationMutex demux_lock;

  // Readers' threads: set once one runs, cleared once it has been joined.
  Shared<GThread*> userdata_thread{nullptr};
  Shared<GThread*> pesdata_thread{nullptr};
  /// Guarded by poll_lock; who uses the set keeps it alive.
  std::shared_ptr<vantrel::PollSet> usrdata_poll;
  // Semaphore ids; -1 where none could be made, set before the thread starts.
  gint userdata_sem = 0;
  gint pesdata_sem = 0;
  // Run flags: written by lifecycle operations, read by the readers.
  Shared<gboolean> start_userdata_flag{FALSE};
  Shared<gboolean> start_pesdata_flag{FALSE};
  /// 1 from the end of start-up until teardown.
  Shared<guint8> initiated{0};

  // The stream table: entries 0 to n_streams - 1; guarded by stream_lock.
  std::array<vantrel::StreamPtr, kMaxStreams> streams;

  Shared<gboolean> silent{FALSE};
  /// Every stream's node has been opened.
  Shared<gboolean> devices_created{FALSE};
  Shared<gboolean> paused{FALSE};
  /// Streams and pads exist: a new stream gets its pad and node at once.
  Shared<gboolean> opened{FALSE};
  Shared<guint> video_codec_sub{0};
  Shared<gboolean> through_cam{FALSE};
  guint n_streams = 0;  // guarded by stream_lock
  /// ISDB caption slot last set, 1 to 3; 0 for an ordinary subtitle.
  Shared<guint> isdb_index{0};
  Shared<guint> adapter_id{2};
  Shared<guint> demux_id{0};
  Shared<guint> dec_to_link{0};
  Shared<guint> audio_dec_index{0};
  /// Bytes a section node buffers.
  Shared<guint> buf_size{131072};
  Shared<guint> dmx_type{DMX_TYPE_LIVE};
  Shared<guint> audio_codec_sub{0};

  // Parameters of the next section filter; guarded by filter_lock.
  guint16 section_pid = 0;
  guint section_table_id = 0;
  guint section_table_id_ex = 0;
  const guint8* section_mask = nullptr;
  gboolean section_check_crc = TRUE;
  gboolean section_check_version = TRUE;
  guint16 pestype = 0;
  const guint8* section_filter = nullptr;
  const guint8* section_mode = nullptr;
  guint filter_index = 0;
  guint mask_index = 0;
  /// The filter to free next, as the application names it; not dereferenced.
  gpointer section_handler = nullptr;

  /// Last clock reading handed out; written under stream_lock.
  dmx_stc stc{};
  Shared<guint> stc_num{1};
  // Nodes opened before the element existed; 0 for none.
  Shared<gint> dmx_audio_fd{0};
  Shared<gint> dmx_video_fd{0};
  Shared<gint> dmx_pcr_fd{0};
  Shared<gboolean> fastboot_video_flag{FALSE};
  Shared<gboolean> fastboot_audio_flag{FALSE};
  Shared<gboolean> fastboot_pcr_flag{FALSE};
  Shared<gboolean> fastboot_videodec_flag{FALSE};
  Shared<gint> dmx_source_input{0};

  gint n_section_running = 0;  // guarded by section_lock
  /// "remove-filter" handlers that run: the section reader abandons its pass.
  Shared<gint> sec_filter_wait_flag{0};
  Shared<gboolean> audio_dmx_enabled{TRUE};
  guint8* pes_buf = nullptr;  // the PES reader's
  // Entry i is the node of poll_section_bufs[i]; guarded by section_lock.
  std::array<GstPollFD, kMaxRunningSections> poll_section_fds{};
  std::array<SectionFilter*, kMaxRunningSections> poll_section_bufs{};
  SectionLink running_section_filters;  // guarded by section_lock
  SectionLink waiting_section_filters;  // guarded by section_lock
  /// ISDB caption PIDs of slots 1 to 3; 0 marks a free one. Guarded by stream_lock.
  std::array<guint, kIsdbSlots> isdb_pids{};
  // Logical decoder names; guarded by stream_lock.
  std::optional<std::string> videodec_device;
  std::optional<std::string> videodec_device_sub;
  Shared<guint32> video_codec_type{fourcc('M', 'P', 'G', '2')};

  Shared<gboolean> temi_enable{FALSE};
  /// Changed under stream_lock, closed once the reader has been joined.
  Shared<gint> temi_fd{-1};
  Shared<GThread*> temi_thread{nullptr};
  gint temi_sem = 0;
  Shared<gboolean> start_temi_flag{FALSE};

  // Beside the documented fields.

  std::mutex stream_lock;
  std::mutex temi_lock;
  std::mutex poll_lock;  // a leaf: usrdata_poll alone
  /// A "section-upload" emission runs; guarded by section_lock.
  bool section_emitting = false;
  /// Says that section_emitting was cleared; with section_lock.
  std::condition_variable emission_done;
  /// Grows with every change of the running list; guarded by section_lock.
  guint64 section_generation = 0;
  /// "pes-upload" and "temi-data" emissions that run; guarded by stream_lock.
  int data_emissions = 0;
  /// Says that data_emissions became less; with stream_lock.
  std::condition_variable data_emission_done;
  /// "enable" was written: the TEMI reader clears its buffer first.
  Shared<gboolean> temi_clear{FALSE};
  /// Group of the source pads' streams while upstream names none.
  Shared<guint> group_id{GST_GROUP_ID_INVALID};
  /// Event function of source pads: whoever makes pads need not know who
  /// handles their events.
  GstPadEventFunction src_event = nullptr;
};

/// The element. C++ members are constructed in the instance initialiser and
/// destroyed in finalize.
struct GstVantrel : GstTvBaseFilter, VantrelState {};

/// Class record: the base class's, and one closure slot per signal.
struct GstVantrelClass {
  GstTvBaseFilterClass parent_class;

  void (*section_upload)(GstVantrel*, guint, guint, gpointer, guint, gpointer);
  void (*pes_upload)(GstVantrel*, guint, gpointer, guint);
  gpointer (*add_filter)(GstVantrel*, guint, guint, guint, gpointer, gpointer, guint, gboolean,
                         gboolean, gpointer);
  void (*remove_filter)(GstVantrel*, gpointer);
  void (*temi_upload)(GstVantrel*, guint, gpointer);
};

/// Index of each signal in gst_vantrel_signals.
enum VantrelSignal {
  SIGNAL_SECTION_UPLOAD,
  SIGNAL_PES_UPLOAD,
  SIGNAL_ADD_FILTER,
  SIGNAL_REMOVE_FILTER,
  SIGNAL_TEMI_DATA,
  N_VANTREL_SIGNALS,
};

/// Signal ids, set once by the class initialiser.
extern guint gst_vantrel_signals[N_VANTREL_SIGNALS];

namespace vantrel {

/// The element as GStreamer's functions take it.
inline GstElement* as_element(GstVantrel* self) { return &self->element; }

}  // namespace vantrel
