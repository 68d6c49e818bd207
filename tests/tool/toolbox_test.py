# SPDX-License-Identifier: MIT
"""at, gateway and wait-ip, against the modem simulator and interfaces of a network of the test's own."""
import ctypes

from support import *

NEW_NETWORK = 0x40000000


class Network(ToolTest):
    def setUp(self):
        super().setUp()
        libc = ctypes.CDLL(None, use_errno=True)
        if libc.unshare(NEW_NETWORK) != 0:
            reason = "no network of its own: " + os.strerror(ctypes.get_errno())
            if os.environ.get("CI") == "true":
                self.fail(reason)
            self.skipTest(reason)
        self.ip("link set lo up")

    def ip(self, words):
        subprocess.run(["ip", *words.split()], check=True, env={**os.environ, "PATH": "/usr/sbin:/usr/bin:/sbin:/bin"})

    def make_link(self):
        self.ip("link add wan0 type veth peer name lan0")
        for link in ("wan0", "lan0"):
            self.ip(f"link set {link} addrgenmode none")
            self.ip(f"link set {link} up")


class Modem(Network):
    def setUp(self):
        super().setUp()
        self.modem = subprocess.Popen([os.environ["VEXA_MODEM_SIMULATOR"]], stdout=subprocess.PIPE, text=True)
        self.assertIn("5555", self.modem.stdout.readline())

    def tearDown(self):
        if hasattr(self, "modem"):
            self.modem.terminate()
            self.modem.communicate(timeout=10)

    def test_at_prints_the_reply_without_carriage_returns(self):
        self.expect("at", "AT+CSQ", out="+CSQ: 20,99\n\nOK\n")
        self.expect("at", "at", out="OK\n")

    def test_at_json_has_the_reply_and_whether_it_was_good(self):
        self.assertEqual(self.json("at", "AT+CSQ"), {"reply": "+CSQ: 20,99\r\n\r\nOK\r\n", "ok": True})
        self.assertEqual(self.json("at", "AT+FROB", code=1)["ok"], False)

    def test_at_of_a_command_that_fails_is_exit_1(self):
        result = self.vexadm("at", "AT+FROB")
        self.assertEqual(result.code, 1)
        self.assertEqual(result.out, "ERROR\n")


class Routes(Network):
    def test_gateway_is_the_one_of_the_interface(self):
        self.make_link()
        self.ip("-6 address add 2001:db8::2/64 dev wan0 nodad")
        self.ip("-6 route add default via fe80::1 dev wan0")
        self.expect("gateway", "wan0", out="fe80::1\n")
        self.assertEqual(self.json("gateway", "wan0"),
                         {"interface": "wan0", "gateway": "fe80::1"})

    def test_gateway_that_is_not_there_fails(self):
        self.make_link()
        for link in ("wan0", "lo"):
            result = self.vexadm("gateway", link)
            self.assertEqual((result.code, result.out), (1, ""))
            self.assertTrue(result.err.endswith(f"vexadm: {link} has no IPv6 default gateway; ip -6 route shows all routes\n"))

    def listening(self, pid):
        """A netlink socket of that process that hears of IPv6 addresses."""
        with open("/proc/net/netlink", encoding="ascii") as table:
            rows = [line.split() for line in table.readlines()[1:]]
        return any(row[1] == "0" and int(row[2]) == pid and int(row[3], 16) & 0x100 for row in rows)

    def test_wait_ip_tells_an_address_that_comes(self):
        self.not_emulated("netlink notifications do not pass the emulator")
        self.make_link()
        running = subprocess.Popen(self.command("wait-ip", "wan0"), stdout=subprocess.PIPE, text=True)
        while not self.listening(running.pid):
            self.assertIsNone(running.poll())
        self.ip("-6 address add 2001:db8::5/64 dev wan0 nodad")
        self.assertEqual(running.communicate(timeout=20)[0], "2001:0db8:0000:0000:0000:0000:0000:0005\n")
        self.assertEqual(running.returncode, 0)

    def test_wait_ip_that_hears_nothing_fails(self):
        self.make_link()
        result = self.vexadm("wait-ip", "wan0")
        self.assertEqual((result.code, result.out), (1, ""))
        self.assertTrue(result.err.endswith("vexadm: no new global IPv6 address came to wan0; ip -6 address shows those "
                                            "that are there\n"), result.err)
