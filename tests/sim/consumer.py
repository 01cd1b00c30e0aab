"""A consumer of the event bus: builds the bus library's records byte by byte and tells what its
callback sees. Takes one JSON command on a line of its standard input, answers with one line."""

import ctypes
import json
import os
import struct
import sys
import threading
import time

RECORD_SIZE = 120
output = threading.Lock()


def say(**line):
    with output:
        sys.stdout.write(json.dumps(line) + "\n")
        sys.stdout.flush()


def utf16_at(address):
    units = []
    while True:
        unit = ctypes.c_uint16.from_address(address + 2 * len(units)).value
        if unit == 0:
            return units
        units.append(unit)


class Consumer:
    def __init__(self, library):
        self.bus = ctypes.CDLL(library)
        self.bus.userHebRegisterConsumer.restype = ctypes.c_ulong
        self.bus.userHebRegisterConsumer.argtypes = [
            ctypes.c_void_p, ctypes.c_char_p, ctypes.c_char_p, ctypes.c_ulong]
        self.bus.userHebUnRegisterConsumer.restype = ctypes.c_ulong
        self.bus.userHebUnRegisterConsumer.argtypes = [ctypes.c_ulonglong, ctypes.c_void_p]
        self.callback_type = ctypes.CFUNCTYPE(ctypes.c_uint32, ctypes.c_void_p)
        self.callback = self.callback_type(self.on_event)
        self.kept = []
        self.answer = (0, 0)
        self.released = threading.Event()
        self.released.set()

    def on_event(self, block):
        raw = ctypes.string_at(block, 120)
        data = struct.unpack_from("<Q", raw, 64)[0]
        event = ctypes.string_at(data, 72)
        say(event=True,
            thread=threading.get_native_id(),
            notify=struct.unpack_from("<I", raw, 88)[0],
            context=struct.unpack_from("<Q", raw, 96)[0],
            refusal=struct.unpack_from("<Q", raw, 112)[0],
            states=struct.unpack_from("<HH", event, 8),
            mode=struct.unpack_from("<Q", event, 16)[0],
            guid=event[24:40].hex(),
            new_guid=event[40:56].hex(),
            old_name=utf16_at(struct.unpack_from("<Q", event, 56)[0]),
            new_name=utf16_at(struct.unpack_from("<Q", event, 64)[0]))
        self.released.wait()
        answer, refusal = self.answer
        ctypes.c_uint64.from_address(block + 112).value = refusal
        return answer

    def record(self, event, consumer, context, patch):
        record = ctypes.create_string_buffer(RECORD_SIZE)
        address = ctypes.cast(self.callback, ctypes.c_void_p).value
        names = [ctypes.create_string_buffer(consumer.encode()),
                 ctypes.create_string_buffer(event.encode())]
        self.kept += [record, *names]
        struct.pack_into("<I", record, 0, 1)
        struct.pack_into("<QQQ", record, 8, ctypes.addressof(names[0]),
                         ctypes.addressof(names[1]), context)
        struct.pack_into("<Q", record, 48, address)
        struct.pack_into("<Q", record, 96, address)
        struct.pack_into("<I", record, 104, 3)
        for offset, value in patch:
            struct.pack_into("<Q", record, offset, value)
        return record

    def register(self, name, consumer="OSTREL.PoolLock", context=0x1234567890, patch=(), flags=0,
                 spoken=None):
        record = self.record(name, consumer, context, patch)
        begin = time.monotonic()
        status = self.bus.userHebRegisterConsumer(record, (spoken or name).encode(),
                                                  consumer.encode(), flags)
        say(status=status & 0xFFFFFFFF, handle=struct.unpack_from("<Q", record, 112)[0],
            seconds=time.monotonic() - begin)

    def unregister(self, handle, context=0x1234567890):
        begin = time.monotonic()
        status = self.bus.userHebUnRegisterConsumer(handle, context)
        say(status=status & 0xFFFFFFFF, seconds=time.monotonic() - begin)

    def policy(self, answer=0, refusal=0, hold=False):
        self.answer = (answer, refusal)
        if hold:
            self.released.clear()
        else:
            self.released.set()
        say(done=True, thread=threading.get_native_id())

    def patience(self, milliseconds):
        """How long the library waits from now on."""
        os.environ["OSTRELSIM_PATIENCE"] = str(milliseconds)
        say(done=True)

    def leave(self):
        """Ends the process as a return from main does, with a callback still waiting."""
        sys.stdout.flush()
        ctypes.CDLL(None).exit(0)


def main():
    consumer = Consumer(sys.argv[1])
    for line in sys.stdin:
        command = json.loads(line)
        getattr(consumer, command.pop("do"))(**command)


main()
