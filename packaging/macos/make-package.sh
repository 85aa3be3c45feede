#!/bin/bash
# The installer package of a signed (and notarized) app bundle:
#   make-package.sh APP VERSION OUTPUT_FOLDER [INSTALLER_IDENTITY]
# writes "OUTPUT_FOLDER/Varnoth Brelvane Agent-VERSION.pkg": the app in /Applications, the launch agent
# for every user in /Library/LaunchAgents, and the scripts that stop the running agent before an upgrade
# and start it after. Signed with INSTALLER_IDENTITY ("Developer ID Installer: …") when given.
#   make-package.sh --payload APP ROOT
# lays out only the payload tree in ROOT, which the tests check where there is no pkgbuild.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
identifier=com.varnoth.brelvane-agent
name="Varnoth Brelvane Agent"

# The tree the package installs, with the modes launchd and the installer expect: root's own files,
# readable by all, writable by none else (launchd ignores a job file others may write).
payload() {
    local app=$1 root=$2
    mkdir -p "$root/Applications" "$root/Library/LaunchAgents"
    chmod 755 "$root" "$root/Applications" "$root/Library" "$root/Library/LaunchAgents"
    if command -v ditto >/dev/null; then
        ditto "$app" "$root/Applications/$name.app" # keeps the signature's symbolic links and attributes
    else
        cp -pPR "$app" "$root/Applications/$name.app"
    fi
    install -m 644 "$here/$identifier.plist" "$root/Library/LaunchAgents/$identifier.plist"
}

if [ "${1:-}" = --payload ] && [ $# -eq 3 ]; then
    payload "$2" "$3"
    exit 0
fi
if [ $# -lt 3 ] || [ $# -gt 4 ]; then
    echo "usage: make-package.sh APP VERSION OUTPUT_FOLDER [INSTALLER_IDENTITY] | --payload APP ROOT" >&2
    exit 2
fi
app=$1 version=$2 output=$3 identity=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
payload "$app" "$work/root"

# An installed app moved elsewhere would otherwise be upgraded where it lies, not in /Applications.
pkgbuild --analyze --root "$work/root" "$work/components.plist"
index=0
while /usr/libexec/PlistBuddy -c "Set :$index:BundleIsRelocatable false" "$work/components.plist" 2>/dev/null; do
    index=$((index + 1))
done
pkgbuild --root "$work/root" --component-plist "$work/components.plist" --scripts "$here/scripts" \
    --identifier "$identifier.pkg" --version "$version" --install-location / --ownership recommended \
    "$work/component.pkg"

mkdir -p "$output"
product="$output/$name-$version.pkg"
if [ -n "$identity" ]; then
    productbuild --package "$work/component.pkg" --sign "$identity" --timestamp "$product"
    pkgutil --check-signature "$product"
else
    productbuild --package "$work/component.pkg" "$product"
    echo "make-package.sh: no installer identity given: $product is unsigned." >&2
fi
echo "$product"
