/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:vantrel/temi.h
 * @short_description: time lines (TEMI) for applications
 *
 * The element reads TEMI descriptors only for applications that ask for it, with
 * a function which the plugin exports. Applications do not link to the plugin:
 * they take the function from the module that made their element. This header
 * needs no library of ours; vantrel_receiver_set_temi() does the same and hands
 * over #GBytes.
 *
 * |[
 *   GstVantrelTemiInitiate initiate = gst_vantrel_find_temi_initiate(demux);
 *   g_signal_connect(demux, "temi-data", G_CALLBACK(on_temi), NULL);
 *   if (initiate != NULL && initiate(demux)) g_object_set(demux, "enable", TRUE, NULL);
 *   gst_element_set_state(pipeline, GST_STATE_PLAYING);
 * ]|
 *
 * "demux-id" comes first, for it names the node; "enable" comes last, for it starts
 * the node and has nothing to start before. Both in NULL or READY lose nothing:
 * reading begins with PAUSED, descriptors wait in the node. In PAUSED and PLAYING
 * they work as well, for what comes from then on. The way from PAUSED to READY
 * ends the reader and closes the node, so each start-up needs both again. Link
 * with gmodule-2.0.
 */

#include <gmodule.h>
#include <gst/gst.h>

G_BEGIN_DECLS

/**
 * GstVantrelTemiInitiate:
 * @element: an element `vantrel`
 *
 * Opens the TEMI node of the element's "demux-id" and starts the thread that
 * emits "temi-data", if neither has been done. A node that cannot be opened and a
 * thread that cannot be started are logged; calling again tries again. Any
 * thread, a signal handler's too, and any state.
 *
 * Returns: %TRUE
 */
typedef gboolean (*GstVantrelTemiInitiate)(GstElement* element);

/**
 * gst_vantrel_find_temi_initiate:
 * @element: an element that the registered plugin made
 *
 * Any thread. The function stays valid: plugins are never unloaded. An element
 * whose plugin is part of the program is looked for there.
 *
 * Returns: (nullable): gst_vantrel_temi_initiate; %NULL where @element is of
 *   another plugin
 */
static inline GstVantrelTemiInitiate gst_vantrel_find_temi_initiate(GstElement* element) {
  GstElementFactory* factory = gst_element_get_factory(element);
  GstPlugin* plugin =
      factory != NULL ? gst_plugin_feature_get_plugin(GST_PLUGIN_FEATURE(factory)) : NULL;
  GModule* module =
      g_module_open(plugin != NULL ? gst_plugin_get_filename(plugin) : NULL, G_MODULE_BIND_LAZY);
  gpointer symbol = NULL;
  if (module != NULL) {
    if (!g_module_symbol(module, "gst_vantrel_temi_initiate", &symbol)) symbol = NULL;
    g_module_close(module);
  }
  if (plugin != NULL) gst_object_unref(plugin);
  /* By way of an integer: ISO C knows no conversion between the two kinds of pointers. */
  return (GstVantrelTemiInitiate)(guintptr)symbol;
}

G_END_DECLS
