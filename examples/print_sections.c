/* SPDX-License-Identifier: LGPL-2.1-or-later
 *
 * Prints the sections of one PID and table id:
 *
 *     print-sections FILE PID TABLE_ID        for example  recording.ts 0x11 0x42
 */
#include <gst/gst.h>
#include <stdlib.h>

static void on_section(GstElement *demux, guint pid, guint table_id, gpointer data, guint size,
                       gpointer filter, gpointer user_data) {
  const guint8 *section = data;
  (void)demux, (void)filter, (void)user_data;
  g_print("pid 0x%04x table 0x%02x extension 0x%04x version %2u section %u/%u, %u bytes\n", pid,
          table_id, section[3] << 8 | section[4], section[5] >> 1 & 0x1f, section[6], section[7],
          size);
}

static int play(GstElement *pipeline) {
  GstBus *bus = gst_element_get_bus(pipeline);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstMessage *message =
      gst_bus_timed_pop_filtered(bus, GST_CLOCK_TIME_NONE, GST_MESSAGE_EOS | GST_MESSAGE_ERROR);
  const int failed = GST_MESSAGE_TYPE(message) == GST_MESSAGE_ERROR;
  if (failed) {
    GError *error = NULL;
    gst_message_parse_error(message, &error, NULL);
    g_printerr("%s\n", error->message);
    g_error_free(error);
  }
  gst_message_unref(message);
  gst_object_unref(bus);
  gst_element_set_state(pipeline, GST_STATE_NULL);
  return failed ? EXIT_FAILURE : EXIT_SUCCESS;
}

int main(int argc, char **argv) {
  gst_init(&argc, &argv);
  if (argc != 4) {
    g_printerr("usage: print-sections FILE PID TABLE_ID\n");
    return EXIT_FAILURE;
  }
  GError *error = NULL;
  GstElement *pipeline =
      gst_parse_launch("filesrc name=file ! vantrel name=demux demux-type=1", &error);
  if (error != NULL) {
    g_printerr("%s\n", error->message);
    return EXIT_FAILURE;
  }
  GstElement *file = gst_bin_get_by_name(GST_BIN(pipeline), "file");
  GstElement *demux = gst_bin_get_by_name(GST_BIN(pipeline), "demux");
  gpointer filter = NULL;
  g_object_set(file, "location", argv[1], NULL);
  g_signal_connect(demux, "section-upload", G_CALLBACK(on_section), NULL);
  g_signal_emit_by_name(demux, "add-filter", (guint)strtoul(argv[2], NULL, 0),
                        (guint)strtoul(argv[3], NULL, 0), 0U, NULL, NULL, 0U, FALSE, TRUE, NULL,
                        &filter);
  const int status = filter != NULL ? play(pipeline) : EXIT_FAILURE;
  gst_object_unref(file);
  gst_object_unref(demux);
  gst_object_unref(pipeline);
  return status;
}
