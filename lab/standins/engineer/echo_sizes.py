"""Sends every size to an echo service and compares the answers byte by byte.

Usage: echo_sizes.py udp ADDRESS TRIES SIZE...    payloads; each size from its own port
       echo_sizes.py tcp ADDRESS AT_ONCE MSS...   segments; each size on its own connection
Prints a JSON list with one entry for each size.
"""
import json
import random
import selectors
import socket
import struct
import sys
from concurrent.futures import ThreadPoolExecutor

PORT = 7
# Linux's numbers, which Python lacks. As on Windows, a datagram may be fragmented on its path.
IP_MTU_DISCOVER, IP_PMTUDISC_DONT = 10, 0
TCP_INFO_SEND_MSS = 16  # tcpi_snd_mss in struct tcp_info
SILENCE_SECONDS = 1.0   # no answers are expected after such a pause
TCP_SECONDS = 10.0
WRITES = 4
REST_BYTES = 100        # of each write, after a full segment


class Datagrams:
    """All tries of one size."""

    def __init__(self, address: str, size: int, tries: int) -> None:
        self.size = size
        contents = random.Random(size)
        self.payloads = [bytes([number]) + contents.randbytes(size - 1) for number in range(tries)]
        self.returned, self.wrong = set(), 0
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.IPPROTO_IP, IP_MTU_DISCOVER, IP_PMTUDISC_DONT)
        self.socket.connect((address, PORT))

    def is_complete(self) -> bool:
        return len(self.returned) == len(self.payloads)

    def receive(self) -> None:
        payload = self.socket.recv(65536)
        if payload in self.payloads and payload not in self.returned:
            self.returned.add(payload)
        else:
            self.wrong += 1

    def report(self) -> dict:
        return {"size": self.size, "port": self.socket.getsockname()[1], "sent": len(self.payloads),
                "returned": len(self.returned), "wrong": self.wrong}


def echo_datagrams(address: str, tries: int, sizes: list[int]) -> list[dict]:
    flows = [Datagrams(address, size, tries) for size in sizes]
    with selectors.DefaultSelector() as selector:
        for flow in flows:
            selector.register(flow.socket, selectors.EVENT_READ, flow)
        for number in range(tries):
            for flow in flows:
                flow.socket.send(flow.payloads[number])
        while not all(flow.is_complete() for flow in flows):
            ready = selector.select(SILENCE_SECONDS)
            if not ready:
                break
            for key, _ in ready:
                key.data.receive()
    return [flow.report() for flow in flows]


def read_exactly(connection: socket.socket, size: int) -> bytes:
    received = b""
    while len(received) < size:
        part = connection.recv(size - len(received))
        if not part:
            break
        received += part
    return received


def echo_stream(address: str, mss: int) -> dict:
    writes = [random.Random(mss + number).randbytes(mss + REST_BYTES) for number in range(WRITES)]
    result = {"mss": mss, "works": False}
    with socket.socket(socket.AF_INET, socket.SOCK_STREAM) as connection:
        connection.settimeout(TCP_SECONDS)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_MAXSEG, mss)
        connection.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            connection.connect((address, PORT))
            info = connection.getsockopt(socket.IPPROTO_TCP, socket.TCP_INFO, 64)
            result["sendMss"], = struct.unpack_from("=I", info, TCP_INFO_SEND_MSS)
            result["port"] = connection.getsockname()[1]
            for one in writes:
                connection.sendall(one)
            wanted = b"".join(writes)
            result["works"] = read_exactly(connection, len(wanted)) == wanted
        except OSError as error:
            result["error"] = str(error)
    return result


def echo_streams(address: str, at_once: int, sizes: list[int]) -> list[dict]:
    with ThreadPoolExecutor(at_once) as pool:
        return list(pool.map(lambda mss: echo_stream(address, mss), sizes))


def main() -> None:
    kind, address, count, *sizes = sys.argv[1:]
    echo = {"udp": echo_datagrams, "tcp": echo_streams}[kind]
    print(json.dumps(echo(address, int(count), [int(size) for size in sizes])))


main()
