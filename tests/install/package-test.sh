#!/usr/bin/env bash
# The macOS installer package without a Mac: its payload tree (files and modes), its scripts and the
# uninstall script pass shellcheck, and run against stand-ins for launchctl, stat, pkill and pkgutil
# that record their arguments, with user 501 at the console.
set -euo pipefail
macos=$(cd "$1/packaging/macos" && pwd)
work=$(mktemp -d /tmp/varnoth-package-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
mode() { [ -n "$(find "$2" -prune -perm "$1")" ] || fail "$2 is not mode $1"; }

shellcheck "$macos/make-package.sh" "$macos/uninstall.sh" "$macos/scripts/preinstall" "$macos/scripts/postinstall"

app="$work/build/Varnoth Brelvane Agent.app"
mkdir -p "$app/Contents/MacOS" && install -m 755 /dev/null "$app/Contents/MacOS/Varnoth Brelvane Agent"
root="$work/root"
bash "$macos/make-package.sh" --payload "$app" "$root"
job="$root/Library/LaunchAgents/com.varnoth.brelvane-agent.plist"
mode 755 "$root/Applications/Varnoth Brelvane Agent.app/Contents/MacOS/Varnoth Brelvane Agent"
mode 644 "$job"
mode 755 "$root/Library/LaunchAgents"
[ "$(cd "$root" && find . | sort | tr '\n' '|')" = ".|./Applications|./Applications/Varnoth Brelvane Agent.app|./Applications/Varnoth Brelvane Agent.app/Contents|./Applications/Varnoth Brelvane Agent.app/Contents/MacOS|./Applications/Varnoth Brelvane Agent.app/Contents/MacOS/Varnoth Brelvane Agent|./Library|./Library/LaunchAgents|./Library/LaunchAgents/com.varnoth.brelvane-agent.plist|" ] ||
    fail "payload tree: $(cd "$root" && find . | sort)"
grep -q "<string>/Applications/Varnoth Brelvane Agent.app/Contents/MacOS/Varnoth Brelvane Agent</string>" "$job" ||
    fail "the launch agent does not run the installed app"

mkdir "$work/bin"
for tool in launchctl stat pkill pkgutil; do
    # shellcheck disable=SC2016 # the stand-in expands them when it runs
    printf '#!/bin/sh\necho "%s $*" >> "%s/calls"\n[ %s != stat ] || echo "${CONSOLE_UID-501}"\n' \
        "$tool" "$work" "$tool" > "$work/bin/$tool"
    chmod 755 "$work/bin/$tool"
done
run() { : > "$work/calls"; PATH="$work/bin:$PATH" sh "$@" > /dev/null; sed "s|$work|<work>|g" "$work/calls"; }
expect() { [ "$1" = "$2" ] || fail "$(printf 'expected:\n%s\ngot:\n%s' "$2" "$1")"; }

expect "$(run "$macos/scripts/preinstall" pkg / /)" "stat -f %u /dev/console
launchctl bootout gui/501/com.varnoth.brelvane-agent
pkill -x -U 501 Varnoth Brelvane Agent"
expect "$(run "$macos/scripts/postinstall" pkg / "$root/")" "stat -f %u /dev/console
launchctl bootstrap gui/501 <work>/root/Library/LaunchAgents/com.varnoth.brelvane-agent.plist"
expect "$(CONSOLE_UID=0 run "$macos/scripts/postinstall" pkg / /)" "stat -f %u /dev/console"

mkdir -p "$root/Users/anna/Library/Preferences" "$root/Users/anna/Library/LaunchAgents" "$root/Users/Shared"
touch "$root/Users/anna/Library/Preferences/com.varnoth.brelvane-agent.plist" \
    "$root/Users/anna/Library/Preferences/other.plist" "$root/Users/anna/Library/LaunchAgents/com.varnoth.brelvane-agent.plist"
expect "$(run "$macos/uninstall.sh" "$root")" "stat -f %u <work>/root/Users/anna/
launchctl bootout gui/501/com.varnoth.brelvane-agent
pkill -x -U 501 Varnoth Brelvane Agent
pkgutil --volume <work>/root --forget com.varnoth.brelvane-agent.pkg"
expect "$(cd "$root" && find . -type f | sort)" "./Users/anna/Library/Preferences/other.plist"
echo "package payload and scripts: ok"
