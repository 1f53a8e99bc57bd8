#!/bin/bash
# Makes the content folder: the management bundles, the logger framework and the policy files.
#
#   make_content.sh OUTPUT IDENTITIES
#
# Its binaries are signed by the maker's test identity, because the toolkit refuses any others.
# CODESIGN, LIPO, CLANG and LD64_LLD name the programs.
set -eu
export LC_ALL=C.UTF-8
output=$1 identity=$2/maker.keychain.pem
export TOVREK_TRUSTED_ROOT_SHA1
TOVREK_TRUSTED_ROOT_SHA1=$(cat "$2/root.sha1")
here=$(cd "$(dirname "$0")" && pwd)
signer="iPhone Distribution: Orvane Systems, Inc"
archs="armv7 arm64"

# Made beside the output and put in its place whole, so that a failed run leaves no half of it.
new=$output.new
rm -rf "$new"
mkdir -p "$new"

cp "$here"/content/*.xml "$here/content/ResourceRules.plist" "$new"

logger=$new/WEXSDK/OrvaneLogger.framework
"$here/link.sh" "$logger/OrvaneLogger" "$here/sources/OrvaneLogger.c" "$archs" -dylib \
  -install_name @executable_path/Frameworks/OrvaneLogger.framework/OrvaneLogger
sed -e 's/@NAME@/OrvaneLogger/' -e 's/@IDENTIFIER@/com.orvane.logger/' \
  "$here/Framework-Info.plist.in" >"$logger/Info.plist"

# bundle NAME: the files that every management bundle has.
bundle() {
  mkdir -p "$new/$1/WexAssets.bundle"
  cp "$here/content/Bundle-Info.plist" "$new/$1/Info.plist"
  cp "$here/content/AppLoaderViewController.nib" "$new/$1/WexAssets.bundle"
  "$here/make_icon.py" "$new/$1/WexAssets.bundle/lock.png" 40
}

# dylib BUNDLE VERSION
dylib() {
  "$here/link.sh" "$new/$1/OrvaneDylib.dylib" "$here/sources/OrvaneDylib.c" "$archs" -dylib \
    "-DORVANE_DYLIB_VERSION=$2" "$logger/OrvaneLogger" \
    -install_name @executable_path/OrvaneDylib.bundle/OrvaneDylib.dylib
  "$CODESIGN" -f -s "$signer" --keychain "$identity" "$new/$1/OrvaneDylib.dylib"
}

bundle Orvane.bundle
bundle OrvaneDylib.bundle
bundle OrvaneNetworkOnlyDylib.bundle
dylib OrvaneDylib.bundle 205
dylib OrvaneNetworkOnlyDylib.bundle 206
"$CODESIGN" -f -s "$signer" --keychain "$identity" "$logger"

rm -rf "$output"
mv "$new" "$output"
