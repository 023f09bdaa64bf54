#!/usr/bin/env python3
"""Phones that are browsers, for bench/load: what the page /phone sends, over TLS and without a browser.

    browsers.py --port P --authority CA --cameras N --password W --fps F --frames N PICTURES...

Each signs in as one camera (cam0001 and so on), opens its WebSocket, and sends so many of the pictures, in turn, at that rate
and never more than two without an answer. Prints "sent N frames" once all answers are there; exit status 1 when one is
missing, or says that the picture went nowhere.
"""

import argparse
import asyncio
import json
import ssl
import struct
import sys
import time

MOST_UNANSWERED = 2
PING_SECONDS = 5
ANSWERS_WITHIN_SECONDS = 20
STATE = {"type": "state", "state": "running", "facing": "environment", "width": 640, "height": 480, "rate": 5, "torch": None}


class Phone:
    def __init__(self, given, number, context, pictures):
        self.given, self.context, self.pictures = given, context, pictures
        self.camera = f"cam{number:04}"
        self.ready = asyncio.Event()
        self.room = asyncio.Semaphore(MOST_UNANSWERED)
        self.sent = self.answered = self.lost = self.late = 0

    async def ask(self, head, lines="", body=""):
        reader, writer = await asyncio.open_connection("127.0.0.1", self.given.port, ssl=self.context)
        name = f"localhost:{self.given.port}"
        writer.write(f"{head} HTTP/1.1\r\nHost: {name}\r\nOrigin: https://{name}\r\n{lines}Content-Length: {len(body)}\r\n\r\n{body}".encode())
        return reader, writer, (await reader.readuntil(b"\r\n\r\n")).decode()

    async def open(self):
        _, writer, answer = await self.ask("POST /phone/sign-in", body=f"name={self.camera}&password={self.given.password}")
        writer.close()
        cookie = answer.split("Set-Cookie: ")[1].split(";")[0]
        self.reader, self.writer, answer = await self.ask(
            "GET /phone/socket", f"Cookie: {cookie}\r\nConnection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
            "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n")
        if " 101 " not in answer:
            raise OSError(answer)
        self.listener = asyncio.create_task(self.listen())
        self.send(1, json.dumps(STATE).encode())
        await self.ready.wait()

    def send(self, kind, data):
        """Masked with zeroes, which leave it as it is."""
        size = len(data)
        length = bytes([0x80 | size]) if size < 126 else struct.pack("!BH", 0xFE, size) if size < 65536 else struct.pack("!BQ", 0xFF, size)
        self.writer.write(bytes([0x80 | kind]) + length + bytes(4) + data)

    async def listen(self):
        try:
            while True:
                kind, size = await self.reader.readexactly(2)
                if size == 126:
                    size = int.from_bytes(await self.reader.readexactly(2), "big")
                data = await self.reader.readexactly(size)
                if kind & 15 == 9:
                    self.send(10, data)
                elif kind & 15 == 1:
                    self.hear(json.loads(data))
        except (OSError, asyncio.IncompleteReadError):
            self.lost += self.sent - self.answered

    def hear(self, message):
        if message["type"] == "ready":
            self.ready.set()
        elif message["type"] == "ack":
            self.answered += 1
            self.lost += message.get("dropped", False)
            self.room.release()

    async def run(self, begin):
        pinged = begin
        for number in range(self.given.frames):
            due = begin + number / self.given.fps
            await asyncio.sleep(max(0.0, due - time.monotonic()))
            self.late += self.room.locked()
            await asyncio.wait_for(self.room.acquire(), ANSWERS_WITHIN_SECONDS)
            if due - pinged >= PING_SECONDS:
                pinged = due
                self.send(1, json.dumps({"type": "ping", "at": number}).encode())
            self.send(2, struct.pack("!I", number) + self.pictures[number % len(self.pictures)])
            self.sent += 1
            await self.writer.drain()
        for _ in range(MOST_UNANSWERED):
            await asyncio.wait_for(self.room.acquire(), ANSWERS_WITHIN_SECONDS)
        self.listener.cancel()
        self.writer.close()


async def run(given):
    context = ssl.create_default_context(cafile=given.authority)
    pictures = []
    for path in given.pictures:
        with open(path, "rb") as file:
            pictures.append(file.read())
    phones = [Phone(given, number, context, pictures) for number in range(1, given.cameras + 1)]
    await asyncio.gather(*(phone.open() for phone in phones))
    begin = time.monotonic()
    # Spread over the time of one picture, as phones are that know nothing of each other.
    await asyncio.gather(*(phone.run(begin + number / given.fps / len(phones)) for number, phone in enumerate(phones)))
    lost = sum(phone.lost for phone in phones)
    print(f"sent {sum(phone.sent for phone in phones)} frames, {lost} lost, {sum(phone.late for phone in phones)} had to wait")
    return 1 if lost else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    for name, kind in (("port", int), ("authority", str), ("cameras", int), ("password", str), ("fps", float), ("frames", int)):
        parser.add_argument("--" + name, type=kind, required=True)
    parser.add_argument("pictures", nargs="+")
    return asyncio.run(run(parser.parse_args()))


if __name__ == "__main__":
    sys.exit(main())
