"""Prints the memory of a daemon that has just started, and again with ten sessions.

    memory.py ROOT COMMAND...       the command, to which --foreground and --root=ROOT are added

Resident memory is that of the process. Of an emulated one (a 32-bit machine behind QEMU_GUEST_BASE) it is
that of the machine's own addresses: what the emulator needs for itself does not count.
"""
import os
import socket
import struct
import subprocess
import sys
import time

GUEST = 0x100000000000


def mappings(pid):
    """Address, resident KiB and written KiB of each mapping."""
    found = []
    for line in open(f"/proc/{pid}/smaps"):
        name, *rest = line.split()
        if not name.endswith(":"):
            found.append([int(name.split("-")[0], 16), 0, 0])
        elif name == "Rss:":
            found[-1][1] = int(rest[0])
        elif name == "Private_Dirty:":
            found[-1][2] = int(rest[0])
    guest = [each for each in found if GUEST <= each[0] < GUEST + 2**32]
    return guest or found


def tell(what, pid):
    held = mappings(pid)
    print(f"{what}: {sum(each[1] for each in held)} KiB resident, "
          f"{sum(each[2] for each in held)} KiB of them written")


def connect(path):
    end = time.monotonic() + 60
    while True:
        link = socket.socket(socket.AF_UNIX)
        try:
            link.connect(path)
            return link
        except OSError:
            link.close()
            if time.monotonic() > end:
                raise
            time.sleep(0.1)


def ask(link, line):
    link.sendall(line.encode() + b"\n")
    reply = b""
    while not any(each.startswith(b"t ") for each in reply.split(b"\n")[:-1]):
        reply += link.recv(65536)
    if b"\nt OK\n" not in b"\n" + reply:
        sys.exit(f"{line}: {reply.decode()}")


def main():
    root, *command = sys.argv[1:]
    daemon = subprocess.Popen([*command, "--foreground", "--root=" + root],
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        links = [connect(root + "/dev/ucfgd")]
        peer = links[0].getsockopt(socket.SOL_SOCKET, socket.SO_PEERCRED, struct.calcsize("3i"))
        pid = struct.unpack("3i", peer)[0]
        links.pop().close()
        time.sleep(1)
        tell("idle", pid)
        for number in range(10):
            links.append(connect(root + "/dev/ucfgd"))
            ask(links[-1], "t LOGIN root")
            ask(links[-1], "t LISTR")
        tell("ten sessions, each of which has read every parameter", pid)
        os.kill(pid, 15)
        daemon.wait(60)
    finally:
        daemon.kill()


main()
