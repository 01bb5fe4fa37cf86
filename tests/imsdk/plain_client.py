"""A plain XMPP client (slixmpp), standing for any colleague's software or an attacker's.

usage: plain_client.py JID PASSWORD HOST PORT PEER --raw STANZA...   (send as is, then quit)
       plain_client.py JID PASSWORD HOST PORT PEER --raw-file FILE  (one stanza a line)
           both print every message stanza they get, whole
       plain_client.py JID PASSWORD HOST PORT PEER --listen SECONDS TEXT
           sends TEXT (id "plain-1"), then for SECONDS prints every chat message it gets
           ("msg ID STAMP BODY", STAMP "-" without a delay) and every receipt
           ("receipt IDS"); the second time an id comes, it receipts it to the sender.
       plain_client.py JID PASSWORD HOST PORT ROOM --room TEXT
           joins the group chat ROOM, says TEXT there, prints the first line someone else
           says, then leaves
"""
import ssl
import sys

import slixmpp
from slixmpp.xmlstream.handler import Callback
from slixmpp.xmlstream.matcher import MatchXPath


RECEIPTS = "urn:quelix:im:1"


class Listener(slixmpp.ClientXMPP):
    def __init__(self, jid, password, peer, text, seconds):
        super().__init__(jid, password)
        self.peer, self.text, self.seconds = peer, text, seconds
        self.seen = {}
        self.add_event_handler("session_start", self.start)
        self.add_event_handler("message", self.message)
        # Receipts have no body, which slixmpp's "message" event wants.
        self.register_handler(
            Callback("receipt", MatchXPath("{jabber:client}message/{%s}received" % RECEIPTS),
                     self.receipt))

    async def start(self, _event):
        self.send_presence()
        msg = self.make_message(mto=self.peer, mbody=self.text, mtype="chat")
        msg["id"] = "plain-1"
        msg.send()
        self.loop.call_later(self.seconds, self.disconnect)

    def receipt(self, msg):
        print("receipt", msg.xml.find("{%s}received" % RECEIPTS).get("ids"), flush=True)

    def message(self, msg):
        if msg["type"] != "chat" or not msg["body"]:
            return
        delay = msg.xml.find("{urn:xmpp:delay}delay")
        stamp = delay.get("stamp") if delay is not None else "-"
        print("msg", msg["id"], stamp, msg["body"], flush=True)
        self.seen[msg["id"]] = self.seen.get(msg["id"], 0) + 1
        if self.seen[msg["id"]] == 2:
            self.send_raw(
                "<message to='%s' type='headline'><received xmlns='%s' ids='%s'/></message>"
                % (msg["from"].bare, RECEIPTS, msg["id"]))


class RawClient(slixmpp.ClientXMPP):
    def __init__(self, jid, password, stanzas):
        super().__init__(jid, password)
        self.stanzas = stanzas
        self.add_event_handler("session_start", self.start)
        # Every message, also those without a body of their own (archive results), which
        # slixmpp's "message" event leaves out.
        self.register_handler(
            Callback("any message", MatchXPath("{jabber:client}message"), self.message))

    async def start(self, _event):
        self.send_presence()
        for stanza in self.stanzas:
            self.send_raw(stanza)
        self.loop.call_later(1, self.disconnect)

    def message(self, msg):
        print(msg, flush=True)


class RoomClient(slixmpp.ClientXMPP):
    def __init__(self, jid, password, room, text):
        super().__init__(jid, password)
        self.room, self.text = room, text
        self.nick = jid.split("@")[0] + "-plain"
        self.register_plugin("xep_0045")
        self.add_event_handler("session_start", self.start)
        self.add_event_handler("groupchat_message", self.message)

    async def start(self, _event):
        self.send_presence()
        await self.plugin["xep_0045"].join_muc_wait(self.room, self.nick, maxstanzas=0)
        self.send_message(mto=self.room, mbody=self.text, mtype="groupchat")

    def message(self, msg):
        if msg["mucnick"] != self.nick and msg["body"]:
            print(msg["body"], flush=True)
            self.disconnect()


def main():
    jid, password, host, port, peer = sys.argv[1:6]
    if sys.argv[6] == "--listen":
        client = Listener(jid, password, peer, sys.argv[8], float(sys.argv[7]))
    elif sys.argv[6] == "--room":
        client = RoomClient(jid, password, peer, sys.argv[7])
    elif sys.argv[6] == "--raw-file":
        with open(sys.argv[7], encoding="utf-8") as f:
            client = RawClient(jid, password, [line.rstrip("\n") for line in f if line.strip()])
    else:
        client = RawClient(jid, password, sys.argv[7:])
    client["feature_mechanisms"].unencrypted_plain = True
    # The test's server requires TLS; this client takes its certificate as it comes.
    client.ssl_context.check_hostname = False
    client.ssl_context.verify_mode = ssl.CERT_NONE
    client.enable_direct_tls = False
    client.connect((host, int(port)))
    client.loop.call_later(25, client.disconnect)
    client.process(forever=False)


if __name__ == "__main__":
    main()
