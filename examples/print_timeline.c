/* SPDX-License-Identifier: LGPL-2.1-or-later
 *
 * Prints the TEMI descriptors of a recording:
 *
 *     print-timeline FILE
 */
#include <gst/gst.h>
#include <stdlib.h>
#include <vantrel/temi.h>

static const char *const names[] = {"timeline", "location", "base URL"}; /* tags 4 to 6 */

static void on_temi(GstElement *demux, guint size, gpointer data, gpointer user_data) {
  const guint8 *at = data;
  const guint8 *end = at + size;
  (void)demux, (void)user_data;
  /* A read may end inside of a descriptor only where more waits than it holds. */
  for (; end - at >= 2 && end - at >= 2 + at[1]; at += 2 + at[1]) {
    g_print("%s", at[0] >= 4 && at[0] <= 6 ? names[at[0] - 4] : "unknown");
    for (guint i = 0; i < at[1]; i++) g_print(" %02x", at[2 + i]);
    g_print("\n");
  }
}

static int play(GstElement *pipeline, GstElement *demux) {
  GstVantrelTemiInitiate initiate = gst_vantrel_find_temi_initiate(demux);
  if (initiate == NULL) {
    g_printerr("the element's plugin has no gst_vantrel_temi_initiate()\n");
    return EXIT_FAILURE;
  }
  g_signal_connect(demux, "temi-data", G_CALLBACK(on_temi), NULL);
  initiate(demux);
  g_object_set(demux, "enable", TRUE, NULL);
  gst_element_set_state(pipeline, GST_STATE_PLAYING);
  GstBus *bus = gst_element_get_bus(pipeline);
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
  if (argc != 2) {
    g_printerr("usage: print-timeline FILE\n");
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
  g_object_set(file, "location", argv[1], NULL);
  const int status = play(pipeline, demux);
  gst_object_unref(file);
  gst_object_unref(demux);
  gst_object_unref(pipeline);
  return status;
}
