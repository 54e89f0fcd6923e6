#!/usr/bin/python3
# SPDX-License-Identifier: LGPL-2.1-or-later
"""Prints what is on now and next on each service of a recording:

    epg_now_next.py FILE
"""

import sys

import gi

gi.require_version("Gst", "1.0")
gi.require_version("GstMpegts", "1.0")
gi.require_version("Vantrel", "1.0")
from gi.repository import GLib, Gst, GstMpegts, Vantrel  # noqa: E402

EIT_PID = 0x12
EIT_PRESENT_FOLLOWING = 0x4E
SHORT_EVENT = 0x4D


def event_name(event):
    for descriptor in event.descriptors:
        if descriptor.tag == SHORT_EVENT:
            found, _language, name, _text = descriptor.parse_dvb_short_event()
            return name if found else "?"
    return "?"


class Guide:
    """Present and following events by service id."""

    def __init__(self):
        self.services = {}

    def take(self, _filter, section):
        # The parser takes the bytes over.
        table = GstMpegts.Section.new(EIT_PID, section.get_data())
        eit = table.get_eit() if table else None
        if eit is None or not eit.events:
            return
        # EN 300 468: section 0 has the present event, section 1 the following one.
        events = self.services.setdefault(table.subtable_extension, {})
        events[table.section_number] = event_name(eit.events[0])

    def print(self):
        for service, events in sorted(self.services.items()):
            now, following = events.get(0, "-"), events.get(1, "-")
            print(f"service {service}: now {now}; next {following}")


def play(pipeline):
    """Runs the main loop until the stream ends; the error, if one ended it."""
    loop = GLib.MainLoop()
    errors = []

    def on_message(_bus, message):
        if message.type == Gst.MessageType.ERROR:
            errors.append(message.parse_error()[0].message)
        if message.type in (Gst.MessageType.ERROR, Gst.MessageType.EOS):
            loop.quit()

    bus = pipeline.get_bus()
    bus.add_signal_watch()
    bus.connect("message", on_message)
    pipeline.set_state(Gst.State.PLAYING)
    loop.run()
    while GLib.MainContext.default().iteration(False):
        pass  # sections that came with the end
    pipeline.set_state(Gst.State.NULL)
    bus.remove_signal_watch()
    return errors[0] if errors else None


def main(path):
    Gst.init(None)
    GstMpegts.initialize()
    pipeline = Gst.parse_launch("filesrc name=file ! vantrel name=demux demux-type=1")
    pipeline.get_by_name("file").set_property("location", path)
    receiver = Vantrel.Receiver.new(
        pipeline.get_by_name("demux"), GLib.MainContext.default()
    )
    guide = Guide()
    events = Vantrel.SectionFilter.new(
        EIT_PID,
        EIT_PRESENT_FOLLOWING,
        -1,
        Vantrel.FilterFlags.CHANGED_ONLY | Vantrel.FilterFlags.CHECK_CRC,
    )
    events.connect("section", guide.take)
    receiver.add_filter(events)
    error = play(pipeline)
    receiver.remove_filter(events)
    guide.print()
    return error


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: epg_now_next.py FILE")
    sys.exit(main(sys.argv[1]))
