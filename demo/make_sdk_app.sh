#!/bin/bash
# Makes the demo's SDK app as a build leaves it before it signs: the SDK's framework embedded and
# signed by its maker, the app itself not signed.
#
#   make_sdk_app.sh OUTPUT.app IDENTITIES [link.sh argument...]
#
# -DWITH_FINGERPRINT gives it a crypto module with a fingerprint. CODESIGN, LIPO, CLANG, LD64_LLD
# and PLISTUTIL name the programs.
set -eu
export LC_ALL=C.UTF-8
output=$1 identities=$2
shift 2
export TOVREK_TRUSTED_ROOT_SHA1
TOVREK_TRUSTED_ROOT_SHA1=$(cat "$identities/root.sha1")
here=$(cd "$(dirname "$0")" && pwd)

# Put in its place whole, so that a failed run leaves no half of it.
app=$output.new
rm -rf "$app"
mkdir -p "$app"

"$PLISTUTIL" -i "$here/sdk_app/Info.plist" -o "$app/Info.plist" -f bin
printf 'APPL????' >"$app/PkgInfo"
"$here/make_icon.py" "$app/AppIcon29x29.png" 29

sdk=$app/Frameworks/WEX.framework
"$here/link.sh" "$sdk/WEX" "$here/sources/WEX.c" "armv7 arm64" -dylib \
  -install_name @rpath/WEX.framework/WEX
sed -e 's/@NAME@/WEX/' -e 's/@IDENTIFIER@/com.orvane.WEX/' \
  "$here/Framework-Info.plist.in" >"$sdk/Info.plist"
"$CODESIGN" -f -s "iPhone Distribution: Orvane Systems, Inc" \
  --keychain "$identities/maker.keychain.pem" "$sdk"
"$here/link.sh" "$app/Gauge" "$here/sources/gauge.c" "armv7 arm64" -e _main \
  -rpath @executable_path/Frameworks "$sdk/WEX" "$@"

rm -rf "$output"
mv "$app" "$output"
