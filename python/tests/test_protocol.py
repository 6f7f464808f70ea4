"""Framing, escaping and paths, against what was recorded."""

import asyncio
import os
import socket
import tempfile
import threading
import unittest

import support  # noqa: F401, where the library is
import ucfg
import ucfg.aio
from ucfg import operations
from ucfg.protocol import Reply, Request, Wire, escape, unescape, value_lines

SUBMITTED = b"""u1.1 OK
u1.2.error error.network.ip
u1.2.error.arg 300.1.2.3
u1.2 ERR 300.1.2.3 is not an IPv4 or IPv6 address
u1 ERR
"""


class Protocol(unittest.TestCase):
    def test_words_travel_as_the_daemon_writes_them(self):
        for text, word in (
            ("192.0.2.10", "192%2e0%2e2%2e10"),
            ("a b+c%", "a+b%2bc%25"),
            ("tab\tend\n", "tab%09end%0a"),
            ("grün €", "grün+€"),
            ("\udcff\udc80", "%ff%80"),
        ):
            self.assertEqual(escape(text), word)
            self.assertEqual(unescape(word), text)
        self.assertEqual(unescape("%zz%4"), "%zz%4")
        for text in ("a\0b", "\ud800"):
            self.assertRaises(ucfg.UsageError, escape, text)

    def test_paths_are_read_as_they_are_written(self):
        path = ucfg.path("network", "hosts") / "192.0.2.10"
        self.assertEqual(path.wire, "network.hosts.192%2e0%2e2%2e10")
        self.assertEqual(str(path), 'network.hosts."192.0.2.10"')
        self.assertEqual(list(path), ["network", "hosts", "192.0.2.10"])
        odd = ucfg.path('a"b', "c\\d", "e\n\x01f", "g h")
        for again in (ucfg.Path.parse(str(odd)), ucfg.Path.from_wire(odd.wire)):
            self.assertEqual(again, odd)
        for wrong in ("a..b", ".a", "a.", '"a'):
            self.assertRaises(ucfg.UsageError, ucfg.Path.parse, wrong)

    def test_long_values_are_cut_so_that_joining_gives_them_back(self):
        word = escape("\n".join(["x" * 5000] * 5) + "\n")
        lines = value_lines(word)
        self.assertEqual("%0a".join(lines), word)
        self.assertLess(max(map(len, lines)), 16100)
        self.assertNotIn("", lines)
        self.assertRaises(ucfg.UsageError, value_lines, "x" * 16100)

    def test_replies_come_in_any_pieces_and_find_their_request(self):
        for step in (1, 7, 1000):
            wire = Wire()
            first, second = wire.start(Request("SUBMIT")), wire.start(Request("NOOP"))
            data = b"u9 OK late\n" + SUBMITTED + b"u2 OK\n"
            for at in range(0, len(data), step):
                wire.feed(data[at : at + step])
            self.assertEqual(second.reply.word, "OK")
            self.assertEqual((first.reply.word, len(first.reply.lines)), ("ERR", 4))
        with self.assertRaises(ucfg.ProtocolError):
            wire.feed(b"x" * 70000)

    def test_what_is_lost_is_not_taken_for_the_whole(self):
        for length, told in ((16376, "x" * 16376), (16377, None)):
            operation, wire = operations.info("a", ()), Wire()
            exchange = wire.start(next(operation)[0])
            wire.feed(b"u1.1 " + b"x" * length + b"\nu1 OK\n")
            with self.assertRaises(StopIteration if told else ucfg.ProtocolError) as end:
                operation.send([exchange.reply])
            self.assertEqual(getattr(end.exception, "value", None), told)
        operation, wire = operations.preview("diff"), Wire()
        exchange = wire.start(next(operation)[0])
        wire.feed(b"u1.1 +a%09b%\nu1.1 c%25\nu1.1 \nu1 OK\n")
        with self.assertRaises(StopIteration) as end:
            operation.send([exchange.reply])
        self.assertEqual(end.exception.value, "+a\tbc%\n")
        session = ucfg.Session()
        session._socket, peer = socket.socketpair()
        with peer:
            output = session.admin("a")
            peer.sendall(b"u1.1 first\n")
            self.assertEqual(next(output).text, "first")
            peer.sendall(b"u1.1 second\nu1 OK\nu2.len x\nu2 OK\n")
            self.assertRaises(ucfg.ProtocolError, session.attr, "a")
            self.assertEqual([line.text for line in output], ["second"])
            session.close()
        operation = operations.get_many(["a"])
        next(operation)
        with self.assertRaises(ucfg.SessionEnded):
            operation.send([Reply("NO", "timed out")])

    def test_a_refused_batch_tells_of_each_item(self):
        orders = [ucfg.Set("ssh.port", 22), ucfg.Add("network.hosts", "300.1.2.3")]
        operation = operations.submit(orders)
        (request,) = next(operation)
        wire = Wire()
        exchange = wire.start(request)
        self.assertEqual(
            exchange.data, b"u1.1 SET ssh.port 22\nu1.2 ADD network.hosts 300%2e1%2e2%2e3\nu1 SUBMIT\n"
        )
        wire.feed(SUBMITTED)
        with self.assertRaises(ucfg.BatchRefused) as refused:
            operation.send([exchange.reply])
        self.assertEqual(refused.exception.arguments, ("300.1.2.3",))
        self.assertEqual(
            [getattr(result.error, "identifier", None) for result in refused.exception.results],
            [None, "error.network.ip"],
        )

    def test_no_other_port_is_taken(self):
        for port in (0, -1, 65536, "http", None, True):
            for kind in (ucfg.Session, ucfg.aio.Session):
                self.assertRaises(ucfg.UsageError, kind, host="localhost", port=port)

    def test_nothing_is_smuggled_into_a_request(self):
        for args in (["a\nb"], [""], ["x" * 300]):
            with self.subTest(args=args):
                try:
                    (request,) = next(operations.info("system.time", args))
                except ucfg.UsageError:
                    continue
                self.assertEqual(request.encode("t").count(b"\n"), 1)
        with self.assertRaises(ucfg.UsageError):
            Request("NOOP\nLOGOUT").encode("t")

    def test_a_full_queue_of_connections_is_waited_for(self):
        with tempfile.TemporaryDirectory() as folder, socket.socket(socket.AF_UNIX) as server:
            server.bind(os.path.join(folder, "s"))
            server.listen(0)
            sessions = [kind(server.getsockname(), wait=0.6) for kind in (ucfg.Session, ucfg.aio.Session)]
            for session in sessions:
                with socket.socket(socket.AF_UNIX) as first:
                    first.connect(server.getsockname())
                    self.assertRaisesRegex(ucfg.ConnectError, "no answer in", opened, session)
                    threading.Timer(0.2, lambda: server.accept()[0].close()).start()
                    # Nobody speaks on the connection that was made.
                    self.assertRaises(ucfg.ReplyTimeout, opened, session)
                server.accept()[0].close()


def opened(session):
    """Opens a session of either kind."""
    result = session.open()
    return asyncio.run(result) if asyncio.iscoroutine(result) else result
