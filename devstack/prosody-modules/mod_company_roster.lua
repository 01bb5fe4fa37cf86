-- Everyone with an account on this host is a colleague of everyone else: each roster is
-- given every other account with a mutual subscription when it is loaded, so that the
-- server shares colleagues' presence the way a company messenger expects. The entries are
-- never stored (they are rebuilt at each load and stripped before a roster is saved), and
-- the back end's administrative accounts are left out both ways.
--
-- The dev stack hosts one company per XMPP domain. A real deployment with more than one
-- company on a domain, or one very large company, wants a directory-driven roster instead;
-- past company_roster_limit accounts nothing is shared and the log says so.

local usermanager = require "core.usermanager";
local datamanager = require "util.datamanager";

local host = module:get_host();
local limit = module:get_option_number("company_roster_limit", 5000);
local refresh_seconds = module:get_option_number("company_roster_refresh", 10);
local admins = module:get_option_inherited_set("admins", {});

local cached, cached_at = nil, 0;
local warned = false;

-- The colleagues' JIDs, read again at most every refresh_seconds so that accounts the
-- back end provisions while the server runs are picked up.
local function colleagues()
	local now = os.time();
	if cached and now - cached_at < refresh_seconds then return cached; end
	local list, count = {}, 0;
	for user in usermanager.users(host) do
		local jid = user .. "@" .. host;
		if not admins:contains(jid) then
			count = count + 1;
			if count > limit then break; end
			list[#list + 1] = jid;
		end
	end
	if count > limit then
		if not warned then
			module:log("warn", "more than %d accounts: colleagues' presence is not shared", limit);
			warned = true;
		end
		list = {};
	end
	cached, cached_at = list, now;
	return list;
end

module:hook("roster-load", function(event)
	local self = event.username .. "@" .. event.host;
	if event.host ~= host or admins:contains(self) then return; end
	local roster = event.roster;
	for _, jid in ipairs(colleagues()) do
		if jid ~= self then
			local item = roster[jid];
			if not item then
				item = { groups = {} };
				roster[jid] = item;
			end
			item.subscription = "both";
			item.groups = item.groups or {};
			item.persist = false;
		end
	end
	-- The list changes without the stored version knowing: clients must not trust it.
	if roster[false] then roster[false].version = true; end
end);

local function strip_colleagues(username, store_host, datastore, data)
	if store_host == host and datastore == "roster" and type(data) == "table" then
		local kept = {};
		for jid, item in pairs(data) do
			if jid == false or item.persist ~= false then kept[jid] = item; end
		end
		if kept[false] then kept[false].version = nil; end
		return username, store_host, datastore, kept;
	end
	return username, store_host, datastore, data;
end

function module.load()
	datamanager.add_callback(strip_colleagues);
end

function module.unload()
	datamanager.remove_callback(strip_colleagues);
end
