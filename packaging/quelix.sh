#!/bin/sh
# Starts the installed client. Its first argument is the loader's; switches follow it.
here=$(dirname "$(readlink -f "$0")")
exec "$here/../lib/quelix/Quelix" launcher "$@"
