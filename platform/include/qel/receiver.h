/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/receiver.h
 * @short_description: the software receiver
 *
 * A demux driver in user space: six demuxes, each with a front-end and a DVR
 * input. This header is the software receiver's alone; a platform with a real
 * demultiplexer has no use for it, and the element does not know it.
 *
 * Every function may be called from any thread. Numbers out of range give -1
 * with errno EINVAL.
 */

#include <linux/dvb/dmx.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/** QEL_RECEIVER_DEMUXES: number of demuxes. */
#define QEL_RECEIVER_DEMUXES 6
/** QEL_RECEIVER_NODES: open nodes a demux has at most. */
#define QEL_RECEIVER_NODES 256

/**
 * qel_receiver_feed:
 * @demux: 0 to 5
 * @input: DMX_IN_FRONTEND or DMX_IN_DVR
 * @data: (array length=size): transport stream; read during the call only
 * @size: bytes, any number; packets may be cut anywhere
 *
 * Filters @data in the calling thread. The DVR input waits while a running
 * filter that someone reads has no room; the front-end input drops, and is
 * paced by the stream's PCR unless pacing is off.
 *
 * Returns: 0; or -1 with errno: ECANCELED while the input is flushing (what was
 *   not filtered yet is dropped), EBUSY when another thread feeds this input.
 */
int qel_receiver_feed(unsigned int demux, enum dmx_input input, const void *data, size_t size);

/**
 * qel_receiver_set_flushing:
 * @demux: 0 to 5
 * @input: the input
 * @flushing: nonzero to begin, zero to end
 *
 * Beginning drops what is half assembled of the input, releases a waiting
 * qel_receiver_feed() or qel_receiver_end() and makes further ones fail with
 * ECANCELED. Ending lets data in again, from the next packet boundary.
 *
 * Returns: 0, or -1.
 */
int qel_receiver_set_flushing(unsigned int demux, enum dmx_input input, int flushing);

/**
 * qel_receiver_end:
 * @demux: 0 to 5
 * @input: the input
 *
 * The end of a stream: completes PES packets of unbounded length, waits until
 * every node that someone reads is empty (the front-end input does not wait),
 * and lets readers of ports and of the record node see the end of file until
 * new data comes.
 *
 * Returns: 0, or -1 with errno ECANCELED when a flush released it.
 */
int qel_receiver_end(unsigned int demux, enum dmx_input input);

/**
 * qel_receiver_set_pacing:
 * @demux: 0 to 5
 * @on: nonzero to feed the front-end input at the pace of its PCR
 *
 * Pacing is on at first, unless the environment has QEL_PACE=none.
 *
 * Returns: 0, or -1.
 */
int qel_receiver_set_pacing(unsigned int demux, int on);

/**
 * qel_receiver_has_stream_nodes:
 * @demux: 0 to 5
 *
 * Returns: 1 while a demux node of @demux is open that is no section filter: a
 *   stream's, or one without a filter, which someone is about to program;
 *   0 otherwise, -1 for a wrong number.
 */
int qel_receiver_has_stream_nodes(unsigned int demux);

/**
 * qel_input_counters: what came in on an input since the last reset.
 * @bytes: bytes fed
 * @packets: packets found, null packets included
 * @null_packets: packets of PID 0x1fff
 * @skipped_bytes: bytes passed over while looking for sync
 * @sync_losses: times sync was lost
 * @transport_errors: packets with transport_error_indicator, not used
 * @scrambled: packets with a payload that is scrambled
 * @discontinuities: continuity counter jumps not announced by the stream
 * @repeated: repeated packets, ignored
 * @flushed: bytes dropped because the input was flushing
 */
struct qel_input_counters {
  uint64_t bytes;
  uint64_t packets;
  uint64_t null_packets;
  uint64_t skipped_bytes;
  uint64_t sync_losses;
  uint64_t transport_errors;
  uint64_t scrambled;
  uint64_t discontinuities;
  uint64_t repeated;
  uint64_t flushed;
};

/**
 * qel_pid_counters: what came in on a PID of an input since the last reset.
 * @packets: packets
 * @discontinuities: continuity counter jumps
 * @sections: whole sections assembled; only while a section filter runs
 * @section_errors: sections dropped half assembled, or of impossible length
 * @crc_errors: sections with a bad CRC, where a filter asked for the check
 */
struct qel_pid_counters {
  uint64_t packets;
  uint64_t discontinuities;
  uint64_t sections;
  uint64_t section_errors;
  uint64_t crc_errors;
};

/** QelNodeKind: what a node is, or was last set to. */
enum qel_node_kind {
  QEL_NODE_UNSET,
  QEL_NODE_SECTION,
  QEL_NODE_PES_DECODER,
  QEL_NODE_PES_TAP,
  QEL_NODE_TS_TAP,
  QEL_NODE_TEMI,
  QEL_NODE_RECORD,
  QEL_NODE_PORT,
};

/**
 * qel_node_counters: one open node.
 * @name: its logical name
 * @fd: its descriptor
 * @kind: an enum qel_node_kind
 * @running: nonzero while started
 * @pid: PID of its filter, or 0xffff
 * @buffer_size: bytes its ring holds
 * @waiting: bytes that wait to be read
 * @records: sections, PES packets, TEMI descriptors or pieces taken in
 * @bytes: bytes taken in
 * @crc_errors: sections not delivered for their CRC
 * @dropped: records dropped for lack of room
 * @overflows: times the reader was told EOVERFLOW
 */
struct qel_node_counters {
  char name[16];
  int32_t fd;
  int32_t kind;
  int32_t running;
  uint32_t pid;
  uint64_t buffer_size;
  uint64_t waiting;
  uint64_t records;
  uint64_t bytes;
  uint64_t crc_errors;
  uint64_t dropped;
  uint64_t overflows;
};

/**
 * qel_receiver_get_input_counters:
 * @demux: 0 to 5
 * @input: the input
 * @counters: (out): the counters
 *
 * Returns: 0, or -1.
 */
int qel_receiver_get_input_counters(unsigned int demux, enum dmx_input input,
                                    struct qel_input_counters *counters);

/**
 * qel_receiver_get_pid_counters:
 * @demux: 0 to 5
 * @input: the input
 * @pid: 0 to 0x1fff
 * @counters: (out): the counters
 *
 * Returns: 0, or -1.
 */
int qel_receiver_get_pid_counters(unsigned int demux, enum dmx_input input, unsigned int pid,
                                  struct qel_pid_counters *counters);

/**
 * QelNodeCallback:
 * @counters: one node; valid during the call
 * @user_data: as given
 */
typedef void (*QelNodeCallback)(const struct qel_node_counters *counters, void *user_data);

/**
 * qel_receiver_foreach_node:
 * @demux: 0 to 5
 * @callback: (scope call): called for a snapshot of the open nodes, no lock held
 * @user_data: passed to @callback
 *
 * Ports belong to no demux: they are listed with the demux that feeds them.
 *
 * Returns: the number of nodes, or -1.
 */
int qel_receiver_foreach_node(unsigned int demux, QelNodeCallback callback, void *user_data);

/**
 * qel_receiver_reset_counters:
 * @demux: 0 to 5
 *
 * Sets the counters of both inputs, their PIDs and all nodes to zero.
 *
 * Returns: 0, or -1.
 */
int qel_receiver_reset_counters(unsigned int demux);

/**
 * qel_receiver_describe:
 * @demux: 0 to 5
 *
 * Returns: (transfer full): the counters as text for people, several lines, to
 *   be freed with free(3); NULL with errno.
 */
char *qel_receiver_describe(unsigned int demux);

#ifdef __cplusplus
}
#endif
