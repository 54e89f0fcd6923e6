/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/dmx.h
 * @short_description: the demux driver's requests and records
 *
 * The driver speaks the Linux DVB demux API (linux/dvb/dmx.h, type letter
 * 'o'), with two requests of its own: how many bytes wait on a node, and which
 * PES type reaches a given video decoder. Every record of it is defined here
 * or in the kernel's header, nowhere else.
 *
 * Request numbers are written out: where the kernel's own macro would give
 * another number on another architecture, the driver still has this one.
 */

#include <linux/dvb/dmx.h>
#include <stddef.h>
#include <stdint.h>

/* Without data: the argument is 0, or a plain number for the buffer size. */
#define KWRX_DMX_START 0x6F29U
#define KWRX_DMX_STOP 0x6F2AU
/* struct dmx_sct_filter_params, to the driver. */
#define KWRX_DMX_SET_FILTER 0x403C6F2BU
/* struct dmx_pes_filter_params, to the driver. */
#define KWRX_DMX_SET_PES_FILTER 0x40146F2CU
/* The size in bytes, passed by value. */
#define KWRX_DMX_SET_BUFFER_SIZE 0x6F2DU
/* Pointer to a signed 32-bit source number. */
#define KWRX_DMX_SET_SOURCE 0x40046F31U
/* struct dmx_stc: num goes in; base and stc come back. */
#define KWRX_DMX_GET_STC 0xC0106F32U
/* struct dmx_read_size. */
#define KWRX_DMX_GET_READ_SIZE 0xC0086F39U
/* struct dmx_pes_type_query. */
#define KWRX_DMX_GET_PESTYPE 0xC0246F3BU

/** DMX_PES_TYPE_PATH_SIZE: bytes of a decoder path, its NUL included. */
#define DMX_PES_TYPE_PATH_SIZE 32

/**
 * dmx_read_size:
 * @reserved: not used; send 0
 * @size: (out): bytes waiting to be read on the node
 */
struct dmx_read_size {
  uint32_t reserved;
  int32_t size;
};

/**
 * dmx_pes_type_query:
 * @device_path: (in): NUL-terminated path of a video decoder, as
 *   get_device_path() returns it
 * @pes_type: (out): the PES type to program so that a stream reaches it
 */
struct dmx_pes_type_query {
  char device_path[DMX_PES_TYPE_PATH_SIZE];
  uint32_t pes_type;
};

#ifdef __cplusplus
#define QEL_ASSERT_ABI(condition) static_assert(condition, "driver ABI: " #condition)
#else
#define QEL_ASSERT_ABI(condition) _Static_assert(condition, "driver ABI: " #condition)
#endif

QEL_ASSERT_ABI(sizeof(struct dmx_pes_filter_params) == 20);
QEL_ASSERT_ABI(offsetof(struct dmx_pes_filter_params, pid) == 0);
QEL_ASSERT_ABI(offsetof(struct dmx_pes_filter_params, input) == 4);
QEL_ASSERT_ABI(offsetof(struct dmx_pes_filter_params, output) == 8);
QEL_ASSERT_ABI(offsetof(struct dmx_pes_filter_params, pes_type) == 12);
QEL_ASSERT_ABI(offsetof(struct dmx_pes_filter_params, flags) == 16);
QEL_ASSERT_ABI(sizeof(struct dmx_sct_filter_params) == 60);
QEL_ASSERT_ABI(offsetof(struct dmx_sct_filter_params, pid) == 0);
QEL_ASSERT_ABI(offsetof(struct dmx_sct_filter_params, filter) == 2);
QEL_ASSERT_ABI(offsetof(struct dmx_filter, mask) == 16);
QEL_ASSERT_ABI(offsetof(struct dmx_filter, mode) == 32);
QEL_ASSERT_ABI(offsetof(struct dmx_sct_filter_params, timeout) == 52);
QEL_ASSERT_ABI(offsetof(struct dmx_sct_filter_params, flags) == 56);
QEL_ASSERT_ABI(sizeof(struct dmx_stc) == 16);
QEL_ASSERT_ABI(offsetof(struct dmx_stc, base) == 4);
QEL_ASSERT_ABI(offsetof(struct dmx_stc, stc) == 8);
QEL_ASSERT_ABI(sizeof(struct dmx_read_size) == 8);
QEL_ASSERT_ABI(offsetof(struct dmx_read_size, size) == 4);
QEL_ASSERT_ABI(sizeof(struct dmx_pes_type_query) == 36);
QEL_ASSERT_ABI(offsetof(struct dmx_pes_type_query, pes_type) == 32);

/* Direction (1 to the driver, 3 both ways), size and number of each request. */
#define QEL_REQUEST(direction, size, number) \
  ((direction) << 30U | (unsigned)(size) << 16U | 0x6FU << 8U | (number))
QEL_ASSERT_ABI(KWRX_DMX_START == QEL_REQUEST(0U, 0, 41U));
QEL_ASSERT_ABI(KWRX_DMX_STOP == QEL_REQUEST(0U, 0, 42U));
QEL_ASSERT_ABI(KWRX_DMX_SET_FILTER == QEL_REQUEST(1U, sizeof(struct dmx_sct_filter_params), 43U));
QEL_ASSERT_ABI(KWRX_DMX_SET_PES_FILTER ==
               QEL_REQUEST(1U, sizeof(struct dmx_pes_filter_params), 44U));
QEL_ASSERT_ABI(KWRX_DMX_SET_BUFFER_SIZE == QEL_REQUEST(0U, 0, 45U));
QEL_ASSERT_ABI(KWRX_DMX_SET_SOURCE == QEL_REQUEST(1U, sizeof(int32_t), 49U));
QEL_ASSERT_ABI(KWRX_DMX_GET_STC == QEL_REQUEST(3U, sizeof(struct dmx_stc), 50U));
QEL_ASSERT_ABI(KWRX_DMX_GET_READ_SIZE == QEL_REQUEST(3U, sizeof(struct dmx_read_size), 57U));
QEL_ASSERT_ABI(KWRX_DMX_GET_PESTYPE == QEL_REQUEST(3U, sizeof(struct dmx_pes_type_query), 59U));
#undef QEL_REQUEST
