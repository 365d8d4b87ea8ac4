"""A small X client: what the clients of a display hold (by the extension X-Resource), and its
windows. One connection for each display; what is asked of a window that is gone is answered by
None."""
import socket
import struct

DESTROY_WINDOW, MAP, UNMAP, CONFIGURE, GEOMETRY, TREE, ATOM_NAME, EXTENSION, KILL_CLIENT = (
    4, 8, 10, 12, 14, 15, 17, 98, 113)
LIMIT = 20  # seconds for an answer


def padded(text):
    return text + bytes(-len(text) % 4)


def connect(name):
    """A connection to a display of this machine, ":71", that asks for no cookie."""
    connection = {"socket": socket.socket(socket.AF_UNIX), "sequence": 0, "names": {}}
    link = connection["socket"]
    link.settimeout(LIMIT)
    link.connect("/tmp/.X11-unix/X" + name.lstrip(":"))
    link.sendall(struct.pack("<BxHHHHxx", ord("l"), 11, 0, 0, 0))
    status, length = struct.unpack("<B5xH", receive(link, 8))
    rest = receive(link, 4 * length)
    if status != 1:
        raise ConnectionError(f"{name} refuses its clients")
    vendor, formats = struct.unpack_from("<H", rest, 16)[0], rest[21]
    screen = 32 + len(padded(bytes(vendor))) + 8 * formats
    connection["root"], = struct.unpack_from("<I", rest, screen)
    answer = request(connection, EXTENSION, 0, struct.pack("<Hxx", 10) + padded(b"X-Resource"))
    if not answer or not answer[8]:
        raise ConnectionError(f"{name} has no extension X-Resource")
    connection["resources"] = answer[9]
    request(connection, connection["resources"], 0, bytes([1, 0, 0, 0]))
    return connection


def receive(link, length):
    data = b""
    while len(data) < length:
        more = link.recv(length - len(data))
        if not more:
            raise ConnectionError("an X server has ended")
        data += more
    return data


def send(connection, opcode, detail, body):
    connection["sequence"] = (connection["sequence"] + 1) % 65536
    connection["socket"].sendall(struct.pack("<BBH", opcode, detail, 1 + len(body) // 4) + body)


def request(connection, opcode, detail, body):
    """The answer's bytes, or None where it is an error."""
    send(connection, opcode, detail, body)
    link = connection["socket"]
    while True:
        head = receive(link, 32)
        kind, sequence, length = struct.unpack("<BxHI", head[:8])
        rest = receive(link, 4 * length) if kind == 1 else b""
        if kind < 2 and sequence == connection["sequence"]:
            return head + rest if kind == 1 else None


def name_of(connection, atom):
    names = connection["names"]
    if atom not in names:
        answer = request(connection, ATOM_NAME, 0, struct.pack("<I", atom))
        length, = struct.unpack_from("<H", answer, 8)
        names[atom] = answer[32:32 + length].decode()
    return names[atom]


def resources(connection):
    """How much of each kind all clients hold together."""
    listed = request(connection, connection["resources"], 1, b"")
    number, = struct.unpack_from("<I", listed, 8)
    held = {"clients": number, "pixmap bytes": 0}
    for i in range(number):
        client = listed[32 + 8 * i:36 + 8 * i]
        counted = request(connection, connection["resources"], 2, client)
        for k in range(struct.unpack_from("<I", counted, 8)[0] if counted else 0):
            kind, count = struct.unpack_from("<II", counted, 32 + 8 * k)
            kind = name_of(connection, kind)
            held[kind] = held.get(kind, 0) + count
        used = request(connection, connection["resources"], 3, client)
        held["pixmap bytes"] += struct.unpack_from("<I", used, 8)[0] if used else 0
    return held


def windows(connection):
    """Those on the desk, the lowest first: their numbers and x, y, width, height."""
    answer = request(connection, TREE, 0, struct.pack("<I", connection["root"]))
    number, = struct.unpack_from("<H", answer, 16)
    found = {}
    for window in struct.unpack_from(f"<{number}I", answer, 32):
        geometry = request(connection, GEOMETRY, 0, struct.pack("<I", window))
        if geometry:
            found[window] = struct.unpack_from("<hhHH", geometry, 12)
    return found


def place(connection, window, x, y, width, height):
    send(connection, CONFIGURE, 0, struct.pack("<IHxxiiII", window, 15, x, y, width, height))


def order(connection, opcode, window):
    """MAP, UNMAP, DESTROY_WINDOW, KILL_CLIENT."""
    send(connection, opcode, 0, struct.pack("<I", window))
