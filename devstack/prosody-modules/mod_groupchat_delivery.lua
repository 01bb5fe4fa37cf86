-- A room hands each message to every occupant's session one at a time, and each of those
-- copies goes through every generic message handler of the member's host. For a room's
-- own messages most of that work is wasted: the personal archive never stores groupchat
-- messages, carbons never copies them, yet the archive clones every copy (to look for a
-- forged archive id) before deciding so. With twenty members that made a busy room cost
-- several times what the members' hosts need. This delivers a room's groupchat message to
-- the online session it is addressed to, doing only what those handlers would have done:
-- dropping a stanza-id that claims to come from the member's own archive.
--
-- Anything else (other types, offline or unknown resources, stanzas not from a room
-- service of this server) takes the normal path. Policy modules that must see every
-- message (blocking, firewalls) hook at higher priority and still run first.

local jid_split = require "util.jid".split;
local jid_prepped_split = require "util.jid".prepped_split;
local st = require "util.stanza";
local usermanager = require "core.usermanager";

local host = module:get_host();
local full_sessions = prosody.full_sessions;
local xmlns_st_id = "urn:xmpp:sid:0";

-- Whether `origin` is a room service running in this server.
local function is_room_service(origin)
	return origin and origin.type == "component" and origin.modules ~= nil and origin.modules.muc ~= nil;
end

-- The copy to deliver: the stanza itself unless it carries a stanza-id in the member's
-- own name, which only this host's archive may assign.
local function without_forged_ids(stanza, user)
	local forged = false;
	for tag in stanza:childtags("stanza-id", xmlns_st_id) do
		local by_user, by_host, res = jid_prepped_split(tag.attr.by);
		if not res and by_host == host and by_user == user then forged = true; break; end
	end
	if not forged then return stanza; end
	local copy = st.clone(stanza);
	copy:maptags(function(tag)
		if tag.name == "stanza-id" and tag.attr.xmlns == xmlns_st_id then
			local by_user, by_host, res = jid_prepped_split(tag.attr.by);
			if not res and by_host == host and by_user == user then return nil; end
		end
		return tag;
	end);
	return copy;
end

module:hook("message/full", function(event)
	local origin, stanza = event.origin, event.stanza;
	if stanza.attr.type ~= "groupchat" or not is_room_service(origin) then return; end
	local _, from_host = jid_split(stanza.attr.from);
	if from_host ~= origin.host then return; end
	local session = full_sessions[stanza.attr.to];
	if not session then return; end
	local user = jid_split(stanza.attr.to);
	if session.send(without_forged_ids(stanza, user)) then return true; end
	-- The connection broke under us. Answer as the normal path does for a resource that is
	-- gone (sending again there would queue the message twice for a resumed stream).
	if usermanager.user_exists(user, host)
	and module:fire_event("message/bare/groupchat", { origin = origin, stanza = stanza }) then
		return true;
	end
	origin.send(st.error_reply(stanza, "cancel", "service-unavailable"));
	return true;
end, 2); -- before the archive (0), carbons (-0.5) and plain delivery (-1)
