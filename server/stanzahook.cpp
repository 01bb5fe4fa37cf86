#include "stanzahook.h"

StanzaHook::StanzaHook(std::function<bool(const QDomElement&)> handler)
    : handler_(std::move(handler)) {}

bool StanzaHook::handleStanza(const QDomElement& stanza) { return handler_(stanza); }
