#!/bin/sh
# Removes Varnoth Brelvane Agent from this Mac: stops every user's running agent, then removes the app,
# the launch agent for every user, each user's own login item and agent preferences, and the package
# receipt. The administrator's configuration in /Library/Varnoth, the users' logs and the signatures
# in Outlook stay. Run as root: sudo sh uninstall.sh [volume], the volume "/" unless given.
label=com.varnoth.brelvane-agent
volume=${1:-/}
volume=${volume%/}
if [ -z "$volume" ] && [ "$(id -u)" != 0 ]; then
    echo "uninstall.sh: run as root (sudo sh uninstall.sh)" >&2
    exit 1
fi
for home in "$volume"/Users/*/; do
    [ -d "${home}Library" ] || continue
    uid=$(stat -f %u "$home" 2>/dev/null) || continue
    launchctl bootout "gui/$uid/$label" 2>/dev/null || true
    pkill -x -U "$uid" "Varnoth Brelvane Agent" 2>/dev/null || true
    rm -f "${home}Library/LaunchAgents/$label.plist" "${home}Library/Preferences/$label.plist"
done
rm -rf "$volume/Applications/Varnoth Brelvane Agent.app"
rm -f "$volume/Library/LaunchAgents/$label.plist"
pkgutil --volume "${volume:-/}" --forget "$label.pkg" >/dev/null 2>&1 || true
echo "Varnoth Brelvane Agent removed."
