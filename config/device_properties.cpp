// SPDX-License-Identifier: LGPL-2.1-or-later
#include <qel/device.h>

#include "config/handlers.h"
#include "config/properties.h"
#include "instance/instance.h"
#include "instance/log.h"

namespace vantrel {
namespace {

/// A node handed over by an application that ran before the pipeline.
void hand_over(const GValue* value, Shared<gint>* fd, Shared<gboolean>* programmed) {
  *fd = g_value_get_int(value);
  *programmed = TRUE;
}

constexpr const char* kTemi = "set_prop_demux_temi_enable";

void start_temi(GstVantrel* self, gint fd) {
  if (qel_device_ioctl(fd, KWRX_DMX_SET_BUFFER_SIZE, static_cast<gulong>(kTemiBufferSize)) != 0)
    LOG_ERROR_AS(kTemi, "TEMI device KWRX_DMX_SET_BUFFER_SIZE fail");
  gint source = self->dmx_source_input;
  if (qel_device_ioctl(fd, KWRX_DMX_SET_SOURCE, &source) != 0)
    LOG_ERROR_AS(kTemi, "TEMI device ioctl KWRX_DMX_SET_SOURCE fail");
  self->temi_clear = TRUE;
  if (qel_device_ioctl(fd, KWRX_DMX_START, 0UL) != 0)
    LOG_ERROR_AS(kTemi, "TEMI device ioctl KWRX_DMX_START fail");
  self->temi_enable = TRUE;
}

void stop_temi(GstVantrel* self, gint fd) {
  self->temi_enable = FALSE;
  self->temi_clear = TRUE;
  if (qel_device_ioctl(fd, KWRX_DMX_STOP, 0UL) != 0)
    LOG_ERROR_AS(kTemi, "TEMI device ioctl KWRX_DMX_STOP fail");
}

}  // namespace

void set_prop_demux_type(GstVantrel* self, guint, const GValue* value) {
  std::lock_guard lock(self->demux_lock);
  self->dmx_type = g_value_get_uint(value);
}

void set_prop_demux_id(GstVantrel* self, guint id, const GValue* value) {
  const guint demux_id = g_value_get_uint(value);
  self->demux_id = demux_id;
  LOG_INFO("[%s(%d)] demux id : %d", vantrel_get_property_name(id), id, demux_id);
}

void set_prop_demux_adapter_id(GstVantrel* self, guint id, const GValue* value) {
  const guint adapter_id = g_value_get_uint(value);
  self->adapter_id = adapter_id;
  LOG_INFO("[%s(%d)] adapter_id : %d", vantrel_get_property_name(id), id, adapter_id);
}

void set_prop_demux_source_input(GstVantrel* self, guint id, const GValue* value) {
  const gint source = g_value_get_int(value);
  self->dmx_source_input = source;
  LOG_INFO("[%s(%d)] dmx_source_input : %d", vantrel_get_property_name(id), id, source);
}

void set_prop_demux_buf_size(GstVantrel* self, guint, const GValue* value) {
  const guint buf_size = g_value_get_uint(value);
  self->buf_size = buf_size;
  LOG_DEBUG("VANTREL_BUF_SIZE : size %d", buf_size);
}

void set_prop_demux_stc_num(GstVantrel* self, guint id, const GValue* value) {
  const guint stc_num = g_value_get_uint(value);
  self->stc_num = stc_num;
  LOG_DEBUG("[%s(%d)] stc_num is %d", vantrel_get_property_name(id), id, stc_num);
}

void set_prop_demux_dec_to_link(GstVantrel* self, guint, const GValue* value) {
  const guint decoder = g_value_get_uint(value);
  self->dec_to_link = decoder;
  self->audio_dec_index = decoder;
}

void set_prop_demux_audio_fd(GstVantrel* self, guint, const GValue* value) {
  hand_over(value, &self->dmx_audio_fd, &self->fastboot_audio_flag);
}

void set_prop_demux_video_fd(GstVantrel* self, guint, const GValue* value) {
  hand_over(value, &self->dmx_video_fd, &self->fastboot_video_flag);
  self->fastboot_videodec_flag = TRUE;
}

void set_prop_demux_pcr_fd(GstVantrel* self, guint, const GValue* value) {
  hand_over(value, &self->dmx_pcr_fd, &self->fastboot_pcr_flag);
}

void set_prop_demux_temi_enable(GstVantrel* self, guint id, const GValue* value) {
  const gboolean enable = g_value_get_boolean(value);
  // Else teardown could close the node between two requests.
  std::lock_guard lock(self->stream_lock);
  const gint fd = self->temi_fd;
  if (fd < 0) {
    self->temi_enable = enable;
    LOG_ERROR("TEMI device was not opened");
  } else if (enable == TRUE) {
    start_temi(self, fd);
  } else {
    stop_temi(self, fd);
  }
  LOG_INFO("[%s(%d)] %d", vantrel_get_property_name(id), id, self->temi_enable.load());
}

}  // namespace vantrel
