#!/usr/bin/env python3
"""A minimal classify server in plain Python (standard library only), as
docs/broker-protocol.md describes it: it takes requests from the request
queue over STOMP 1.2 and answers each at its reply-to destination.

It knows three commands: CFLOGIN (any password but "wrong"; binds the login
to the connection's session token and to the broker connection that sent
it), CFDOCGETARCHIVES and CFDOCGETROLEUSERS.
Any request whose session token has not logged in is refused, and so is any
other command. It serves as a sample for other languages and as a test.

    NUV_BROKER_DIR=... activemq/tools/example_server.py [queue]

It reads the broker's port from $NUV_BROKER_DIR/broker.env and the servers'
account from server.env there (as written by scripts/broker), prints "listening" once subscribed, and runs
until the connection ends or it is terminated.
"""

import base64
import os
import socket
import struct
import sys
import time

NULL32 = 0xFFFFFFFF


# --- STOMP 1.2 framing -------------------------------------------------------

def escape(text):
    return (text.replace("\\", "\\\\").replace("\n", "\\n")
                .replace("\r", "\\r").replace(":", "\\c"))


def unescape(text):
    out, i = [], 0
    while i < len(text):
        if text[i] == "\\":
            out.append({"\\": "\\", "n": "\n", "r": "\r", "c": ":"}[text[i + 1]])
            i += 2
        else:
            out.append(text[i])
            i += 1
    return "".join(out)


def encode_frame(command, headers, body=b""):
    lines = [command]
    escaped = command not in ("CONNECT", "CONNECTED")
    for name, value in headers:
        lines.append((escape(name) + ":" + escape(value)) if escaped else (name + ":" + value))
    if body:
        lines.append("content-length:%d" % len(body))
    return ("\n".join(lines) + "\n\n").encode("utf-8") + body + b"\0"


class Connection:
    def __init__(self, host, port):
        self.sock = socket.create_connection((host, port))
        self.sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        self.buffer = b""

    def send(self, command, headers, body=b""):
        self.sock.sendall(encode_frame(command, headers, body))

    def _fill(self):
        chunk = self.sock.recv(65536)
        if not chunk:
            raise EOFError("the broker closed the connection")
        self.buffer += chunk

    def receive(self):
        """The next frame as (command, headers dict, body bytes)."""
        while True:
            self.buffer = self.buffer.lstrip(b"\r\n")  # heart-beats between frames
            end = self.buffer.find(b"\n\n")
            crlf = self.buffer.find(b"\r\n\r\n")
            if crlf >= 0 and (end < 0 or crlf < end):
                end, gap = crlf, 4
            else:
                gap = 2
            if end < 0:
                self._fill()
                continue
            lines = self.buffer[:end].decode("utf-8").replace("\r\n", "\n").split("\n")
            command, headers = lines[0], {}
            for line in lines[1:]:
                name, _, value = line.partition(":")
                if command not in ("CONNECT", "CONNECTED"):
                    name, value = unescape(name), unescape(value)
                headers.setdefault(name, value)  # the first occurrence counts
            start = end + gap
            if "content-length" in headers:
                stop = start + int(headers["content-length"])
            else:
                stop = self.buffer.find(b"\0", start)
            while stop < 0 or len(self.buffer) <= stop:
                self._fill()
                if "content-length" not in headers:
                    stop = self.buffer.find(b"\0", start)
            body = self.buffer[start:stop]
            self.buffer = self.buffer[stop + 1:]
            return command, headers, body


# --- The message record (big-endian QDataStream layout) ----------------------

class Reader:
    def __init__(self, data):
        self.data, self.pos = data, 0

    def u32(self):
        value, = struct.unpack_from(">I", self.data, self.pos)
        self.pos += 4
        return value

    def boolean(self):
        value = self.data[self.pos] != 0
        self.pos += 1
        return value

    def int64(self):
        value, = struct.unpack_from(">q", self.data, self.pos)
        self.pos += 8
        return value

    def string(self):
        size = self.u32()
        if size == NULL32:
            return None
        value = self.data[self.pos:self.pos + size].decode("utf-16-be")
        self.pos += size
        return value

    def raw(self):
        size = self.u32()
        if size == NULL32:
            return None
        value = self.data[self.pos:self.pos + size]
        self.pos += size
        return value

    def strings(self):
        return [self.string() for _ in range(self.u32())]

    def raws(self):
        return [self.raw() for _ in range(self.u32())]


def put_string(out, value):
    if value is None:
        out += struct.pack(">I", NULL32)
    else:
        data = value.encode("utf-16-be")
        out += struct.pack(">I", len(data)) + data


def put_raw(out, value):
    out += struct.pack(">I", NULL32) if value is None else struct.pack(">I", len(value)) + value


FIELDS = ["header4", "header1", "header2", "header3", "header5", "command", "hasErrorText",
          "errorText", "headerFlag", "headerNumber", "docId", "updateRequested",
          "updateString", "dataList", "data", "currentArchive", "availablePlugins"]
KINDS = {"hasErrorText": "boolean", "headerFlag": "boolean", "updateRequested": "boolean",
         "headerNumber": "int64", "dataList": "strings", "availablePlugins": "strings",
         "data": "raws"}


def decode_message(text):
    reader = Reader(base64.b64decode(text))
    return {name: getattr(reader, KINDS.get(name, "string"))() for name in FIELDS}


def encode_message(message):
    out = bytearray()
    for name in FIELDS:
        kind, value = KINDS.get(name, "string"), message.get(name)
        if kind == "boolean":
            out += b"\1" if value else b"\0"
        elif kind == "int64":
            out += struct.pack(">q", value or 0)
        elif kind == "strings":
            out += struct.pack(">I", len(value or []))
            for item in value or []:
                put_string(out, item)
        elif kind == "raws":
            out += struct.pack(">I", len(value or []))
            for item in value or []:
                put_raw(out, item)
        else:
            put_string(out, value)
    return base64.b64encode(bytes(out))


# --- The server --------------------------------------------------------------

def sender_connection(headers):
    """The broker connection that sent a message: ActiveMQ's own message-id
    is "<connection id>:<session>:<producer>:<sequence>", whatever the sender
    wrote, so a copied token cannot be used from another connection."""
    message_id = headers.get("message-id", "")
    parts = message_id.rsplit(":", 3)
    return parts[0] if message_id.startswith("ID:") and len(parts) == 4 else ""


def answer(request, headers, sessions):
    token, user = headers.get("nuv-session-token", ""), headers.get("nuv-user", "")
    session = (user, sender_connection(headers))
    command = request["command"]
    if command == "CFLOGIN":
        if request["dataList"][1:2] == ["wrong"]:
            return {"command": "ERROR", "hasErrorText": True, "errorText": "Wrong password"}
        sessions[token] = session
        return {"command": "OK", "data": [b"18.09-5"], "dataList": ["users"],
                "docId": user, "availablePlugins": ["first entry"]}
    if not session[1] or sessions.get(token) != session:
        return {"command": "ERROR", "hasErrorText": True, "errorText": "Not logged in"}
    if command == "CFDOCGETARCHIVES":
        return {"command": "OK", "dataList": ["Archiv Python"]}
    if command == "CFDOCGETROLEUSERS":
        return {"command": "OK", "dataList": [request["docId"] + "-of-" + user]}
    return {"command": "ERROR", "hasErrorText": True, "errorText": "Unknown command " + command}


def main():
    queue = sys.argv[1] if len(sys.argv) > 1 else "/queue/nuv.kesp.classify"
    env = {}
    # The broker's address, and the account that servers use.
    for name in ("broker.env", "server.env"):
        with open(os.path.join(os.environ["NUV_BROKER_DIR"], name)) as file:
            for line in file:
                name, _, value = line.strip().removeprefix("export ").partition("=")
                env[name] = value
    connection = Connection(env["NUV_BROKER_HOST"], int(env["NUV_BROKER_STOMP_PORT"]))
    connection.send("CONNECT", [("accept-version", "1.2"), ("host", env["NUV_BROKER_HOST"]),
                                ("login", env["NUV_STOMP_LOGIN"]),
                                ("passcode", env["NUV_STOMP_PASSCODE"]),
                                ("heart-beat", "0,0")])
    command, headers, _ = connection.receive()
    if command != "CONNECTED":
        sys.exit("broker refused: " + headers.get("message", command))
    connection.send("SUBSCRIBE", [("id", "requests"), ("destination", queue), ("ack", "auto"),
                                  ("receipt", "subscribed")])
    while connection.receive()[0] != "RECEIPT":
        pass
    print("listening", flush=True)

    sessions = {}
    while True:
        command, headers, body = connection.receive()
        if command != "MESSAGE" or "reply-to" not in headers:
            continue
        expires = int(headers.get("expires", "0"))
        if expires and expires < time.time() * 1000:
            continue  # its caller has given up already
        reply = answer(decode_message(body), headers, sessions)
        connection.send("SEND", [("destination", headers["reply-to"]),
                                 ("correlation-id", headers.get("correlation-id", "")),
                                 ("amq-msg-type", "text"),
                                 ("nuv-message-type", "nuvmqclassifymessage")],
                        encode_message(reply))


if __name__ == "__main__":
    try:
        main()
    except (EOFError, KeyboardInterrupt):
        pass
