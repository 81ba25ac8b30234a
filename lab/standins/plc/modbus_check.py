"""Writes and reads back holding registers of a Modbus TCP server with pymodbus.

Usage: modbus_check.py HOST PORT. Prints one JSON line; exits with 1 if a value was read back wrong.
"""
import json
import sys
import time

from pymodbus.client import ModbusTcpClient

WRITTEN = [0x1234, 0, 65535, 7, 42]


def main() -> int:
    started = time.monotonic()
    client = ModbusTcpClient(sys.argv[1], port=int(sys.argv[2]), timeout=5)
    if not client.connect():
        print("no connection", file=sys.stderr)
        return 1
    connected = time.monotonic()
    wrote = client.write_registers(100, WRITTEN, slave=1)
    read = client.read_holding_registers(100, len(WRITTEN), slave=1)
    client.close()
    values = None if read.isError() else read.registers
    print(json.dumps({
        "connectMs": round((connected - started) * 1000, 1),
        "readWriteMs": round((time.monotonic() - connected) * 1000, 1),
        "registers": values,
    }))
    return 0 if not wrote.isError() and values == WRITTEN else 1


sys.exit(main())
