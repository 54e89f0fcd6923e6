/* SPDX-License-Identifier: LGPL-2.1-or-later */
#pragma once

/**
 * SECTION:qel/device.h
 * @short_description: device nodes and the calls on them
 *
 * A node is named logically ("qel_demux0" to "qel_demux5", "qel_temi0" to
 * "qel_temi5"; the software receiver adds "qel_dvr0" to "qel_dvr5", "vdec0" to
 * "vdec3" and "adec0" to "adec3"). All code talks to a node through the calls
 * below; waiting for data is plain poll(2) on the descriptor, of which POLLIN
 * alone is promised.
 *
 * All functions may be called from any thread, for different nodes and for
 * the same one. A descriptor that this library did not open is passed to the
 * system call of the same name.
 */

#include <stddef.h>
#include <sys/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/**
 * qel_device_open:
 * @name: logical name of the node
 * @flags: flags of open(2); close-on-exec is added
 *
 * Returns: a descriptor above 0, to be closed with qel_device_close(); or -1
 *   with errno: EINVAL without a name, ENOENT for an unknown one, EMFILE when
 *   the driver has no node left, EBUSY for the second reader of a port.
 */
int qel_device_open(const char *name, int flags);

/**
 * qel_device_close:
 * @name: (nullable): the name the node was opened with; for the trace only,
 *   the descriptor decides
 * @fd: descriptor returned by qel_device_open()
 *
 * Closes the node. Calls on it in other threads end: blocked ones with EBADF.
 *
 * Returns: 0, or -1 with errno EBADF for a descriptor that was not opened here
 *   or is closed already.
 */
int qel_device_close(const char *name, int fd);

/**
 * get_device_path:
 * @name: (nullable): logical name of a device
 *
 * Returns: (nullable) (transfer none): the path of the device node, owned by
 *   the library and valid for the life of the process; %NULL with errno
 *   EINVAL or ENOENT where there is none.
 */
const char *get_device_path(const char *name);

/**
 * qel_device_ioctl:
 * @fd: descriptor of a node
 * @request: one of the requests of qel/dmx.h
 *
 * Arguments and results of ioctl(2): one further argument, a pointer or a
 * number as the request has it.
 *
 * Returns: 0 or a positive value, or -1 with errno.
 */
int qel_device_ioctl(int fd, unsigned long request, ...);

/**
 * qel_device_read:
 * @fd: descriptor of a node
 * @buffer: (out caller-allocated): where the data goes
 * @size: bytes that @buffer holds
 *
 * Arguments and results of read(2). One read of a section node gives one
 * section, of a PES tap one PES packet, of a TEMI node what waits there.
 *
 * Returns: bytes read, 0 at the end of the data, or -1 with errno: EAGAIN when
 *   nothing waits on a non-blocking node, EOVERFLOW once after data was
 *   dropped, ETIMEDOUT once when a section filter's time is up, EBADF.
 */
ssize_t qel_device_read(int fd, void *buffer, size_t size);

#ifdef __cplusplus
}
#endif
