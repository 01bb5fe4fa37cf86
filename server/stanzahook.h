#pragma once

#include <QXmppClientExtension.h>

#include <functional>

// Lets the owner of a client see every incoming stanza first; a stanza the handler claims
// goes no further.
class StanzaHook : public QXmppClientExtension {
public:
    explicit StanzaHook(std::function<bool(const QDomElement&)> handler);
    bool handleStanza(const QDomElement& stanza) override;

private:
    std::function<bool(const QDomElement&)> handler_;
};
