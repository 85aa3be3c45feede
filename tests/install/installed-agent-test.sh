#!/usr/bin/env bash
# An installed tree works on its own: install the build into a temporary prefix, check the layout a
# user receives, start the installed demo server on a loopback port with the installed examples, and
# run the installed agent once under a temporary HOME. Nothing of the build tree is reachable: PATH
# holds only system folders and no variable names a build-tree program, so the installed Outlook
# script must find the installed stand-in beside the agent.
set -euo pipefail
build=$(cd "$1" && pwd)
cmake=${2:-cmake}

work=$(mktemp -d /tmp/varnoth-install-test-XXXXXX)
server_pid=
cleanup() {
  if [ -n "$server_pid" ]; then kill "$server_pid" 2>/dev/null || true; wait "$server_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

prefix="$work/prefix with space"
"$cmake" --install "$build" --prefix "$prefix" >"$work/install.log" 2>&1 || { cat "$work/install.log"; fail "cmake --install"; }

# --- the layout
resources="$prefix/share/varnoth-agent/resources"
for file in bin/varnoth-agent bin/varnoth-outlook-standin bin/varnoth-signature-server; do
  [ -x "$prefix/$file" ] || fail "$file is not an installed program"
done
[ -x "$resources/OutlookScriptObj" ] || fail "the Outlook script is not installed as a program"
for file in OutlookScriptObj.applescript menu_icon.png menu_icon@2x.png menu_icon_progress.png menu_icon_progress@2x.png; do
  [ -f "$resources/$file" ] || fail "resource $file missing"
done
[ -f "$prefix/share/varnoth-agent/examples/signatures.conf" ] || fail "examples not installed"
[ -f "$prefix/share/man/man1/varnoth-agent.1" ] || fail "manual page missing"
[ -f "$prefix/share/doc/varnoth-agent/admin-guide.md" ] || fail "administrator's guide missing"
entry="$prefix/share/applications/com.varnoth.brelvane-agent.desktop"
[ -f "$entry" ] || fail "desktop entry missing"
grep -qx 'Type=Application' "$entry" || fail "desktop entry without Type=Application"
grep -qx 'Name=Varnoth Brelvane Agent' "$entry" || fail "desktop entry name"
grep -qxF "Exec=\"$prefix/bin/varnoth-agent\"" "$entry" || fail "desktop entry does not run the installed agent: $(grep ^Exec= "$entry")"
icon=$(sed -n 's/^Icon=//p' "$entry")
[ -f "$prefix/share/icons/hicolor/scalable/apps/$icon.svg" ] || fail "the desktop entry's icon $icon is not installed"

# --- a user's session that knows nothing of the build tree
export HOME="$work/home" XDG_CONFIG_HOME="$work/home/.config" XDG_STATE_HOME="$work/home/.local/state" \
       XDG_DATA_HOME="$work/home/.local/share" XDG_RUNTIME_DIR="$work/run" \
       VARNOTH_SYSTEM_CONFIG_DIR="$work/etc/Varnoth" PATH=/usr/bin:/bin QT_QPA_PLATFORM=offscreen
unset VARNOTH_OUTLOOK_STANDIN VARNOTH_OUTLOOK_ACCOUNT VARNOTH_OUTLOOK_VERSION VARNOTH_OUTLOOK_FORM DISPLAY WAYLAND_DISPLAY
mkdir -p "$HOME" "$work/received" "$XDG_RUNTIME_DIR"
chmod 700 "$XDG_RUNTIME_DIR"
cd "$work"

exec 3< <("$prefix/bin/varnoth-signature-server" --port 0 --data "$prefix/share/varnoth-agent/examples" \
            --log-dir "$work/received" 2>"$work/server.err")
server_pid=$!
read -r -t 20 port <&3 || { cat "$work/server.err"; fail "the installed demo server did not start"; }

# An installed agent ignores the build tree's test hook for the system folder: the user's file counts.
decoy="$VARNOTH_SYSTEM_CONFIG_DIR/Varnoth Brelvane Agent"
mkdir -p "$decoy"
printf 'SignatureServerAddress=127.0.0.1\nSignatureServerPort=1\n' >"$decoy/Varnoth Brelvane Agent.txt"
config="$XDG_CONFIG_HOME/Varnoth/Varnoth Brelvane Agent"
mkdir -p "$config"
printf 'SignatureServerAddress=127.0.0.1\nSignatureServerPort=%s\nLDAPPassword=Never-Shown-1\n' "$port" \
  >"$config/Varnoth Brelvane Agent.txt"
"$prefix/bin/varnoth-outlook-standin" set-account anna.berg@example.com >/dev/null

log="$XDG_STATE_HOME/Varnoth Brelvane Agent.log"
"$prefix/bin/varnoth-agent" --print-config >"$work/print-config.txt" || { cat "$work/print-config.txt"; fail "--print-config found no file"; }
grep -qxF "Using configuration file: $config/Varnoth Brelvane Agent.txt" "$work/print-config.txt" || fail "--print-config: $(cat "$work/print-config.txt")"
grep -qx "SignatureServerPort: $port (file)" "$work/print-config.txt" || fail "--print-config does not show the port"
! grep -q 'Never-Shown-1' "$work/print-config.txt" || fail "--print-config shows the directory password"
[ ! -e "$log" ] || fail "--print-config wrote the log file"

status=0
"$prefix/bin/varnoth-agent" --once >"$work/agent.out" 2>&1 || status=$?
if [ "$status" -ne 0 ]; then
  cat "$work/agent.out" "$log" >&2 || true
  fail "the installed agent's run ended with status $status"
fi

listing=$("$prefix/bin/varnoth-outlook-standin" list)
for name in "Default New Email Signature" "Default Reply Forward Email Signature" "Legal notice"; do
  grep -qF "  $name (" <<<"$listing" || fail "the stand-in holds no \"$name\": $listing"
done
grep -qF "Update signatures: Create signatures succeeded" "$log" || fail "log: $(cat "$log")"

for _ in $(seq 600); do ls "$work/received"/* >/dev/null 2>&1 && break; sleep 0.1; done
grep -qF '<Result>Success</Result>' "$work/received"/* || fail "the server received no successful deployment log"
# A copy without its resources never falls back to the source tree's: it finds no Outlook script.
mkdir -p "$work/bare"
cp "$prefix/bin/varnoth-agent" "$work/bare/"
before=$(wc -l <"$log")
"$work/bare/varnoth-agent" --once >/dev/null 2>&1 || true
tail -n +$((before + 1)) "$log" | grep -qF "Error: Cannot get Outlook version" || fail "the copy found a script: $(tail -5 "$log")"
echo "installed agent ran on its own"
