"""A plain XMPP client (slixmpp) in a group chat room: joins, says one line, prints the
first line someone else says there, then leaves.

usage: plain_room_client.py JID PASSWORD HOST PORT ROOM TEXT
"""
import ssl
import sys

import slixmpp


class PlainRoomClient(slixmpp.ClientXMPP):
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
    jid, password, host, port, room, text = sys.argv[1:7]
    client = PlainRoomClient(jid, password, room, text)
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
