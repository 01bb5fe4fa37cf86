"""A plain XMPP client (slixmpp): sends one text, prints the first chat text it gets back.

usage: plain_client.py JID PASSWORD HOST PORT PEER TEXT
       plain_client.py JID PASSWORD HOST PORT PEER --raw STANZA...   (send as is, then quit)
       plain_client.py JID PASSWORD HOST PORT PEER --raw-file FILE  (one stanza a line)
"""
import ssl
import sys

import slixmpp


class PlainClient(slixmpp.ClientXMPP):
    def __init__(self, jid, password, peer, text):
        super().__init__(jid, password)
        self.peer, self.text = peer, text
        self.add_event_handler("session_start", self.start)
        self.add_event_handler("message", self.message)

    async def start(self, _event):
        self.send_presence()
        if isinstance(self.text, list):
            for stanza in self.text:
                self.send_raw(stanza)
            self.loop.call_later(1, self.disconnect)
            return
        self.send_message(mto=self.peer, mbody=self.text, mtype="chat")

    def message(self, msg):
        if msg["type"] in ("chat", "normal") and msg["body"]:
            print(msg["body"], flush=True)
            self.disconnect()


def main():
    jid, password, host, port, peer = sys.argv[1:6]
    if sys.argv[6] == "--raw-file":
        with open(sys.argv[7], encoding="utf-8") as f:
            text = [line.rstrip("\n") for line in f if line.strip()]
    else:
        text = sys.argv[7:] if sys.argv[6] == "--raw" else sys.argv[6]
    client = PlainClient(jid, password, peer, text)
    client["feature_mechanisms"].unencrypted_plain = True
    # The test's server requires TLS; this client stands for any colleague's software (or an
    # attacker's), so it takes the server's certificate as it comes.
    client.ssl_context.check_hostname = False
    client.ssl_context.verify_mode = ssl.CERT_NONE
    client.enable_direct_tls = False
    client.connect((host, int(port)))
    client.loop.call_later(25, client.disconnect)
    client.process(forever=False)


if __name__ == "__main__":
    main()
