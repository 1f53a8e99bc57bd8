#!/bin/bash
# Makes the demo app, signed as its developer would have signed it.
#
#   make_app.sh OUTPUT.ipa IDENTITIES
#
# CODESIGN, LIPO, CLANG, LD64_LLD and PLISTUTIL name the programs.
set -eu
export LC_ALL=C.UTF-8
output=$1 identities=$2
export TOVREK_TRUSTED_ROOT_SHA1
TOVREK_TRUSTED_ROOT_SHA1=$(cat "$2/root.sha1")
here=$(cd "$(dirname "$0")" && pwd)
sources=$here/sources
signer="iPhone Developer: Sam Sample"

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
app=$scratch/Payload/Fieldbook.app
mkdir -p "$app"

# framework FOLDER NAME SOURCE [linker argument...]
framework() {
  local folder=$1/$2.framework name=$2 source=$3
  shift 3
  "$here/link.sh" "$folder/$name" "$source" "armv7 arm64" -dylib \
    -install_name "@rpath/$name.framework/$name" "$@"
  sed -e "s/@NAME@/$name/" -e "s/@IDENTIFIER@/com.example.$name/" \
    "$here/Framework-Info.plist.in" >"$folder/Info.plist"
}

# sign PATH [codesign argument...]
sign() {
  local path=$1
  shift
  "$CODESIGN" -f -s "$signer" --keychain "$identities/developer.keychain.pem" "$path" "$@"
}

cp -R "$here/app/resources/." "$app"
"$PLISTUTIL" -i "$here/app/Info.plist" -o "$app/Info.plist" -f bin
"$here/make_icon.py" "$app/AppIcon29x29.png" 29
"$here/make_icon.py" "$app/AppIcon60x60@2x.png" 120
"$here/make_icon.py" "$app/AppIcon60x60@3x.png" 180
ENTITLEMENTS=$here/app/profile-entitlements.xml "$here/profile.sh" "$app/embedded.mobileprovision" \
  "$identities" developer SAMPLE0001 com.example.fieldbook

ledger=$app/Frameworks/Ledger.framework
paper=$ledger/Frameworks/Paper.framework
framework "$ledger/Frameworks" Paper "$sources/paper.c"
framework "$app/Frameworks" Ledger "$sources/ledger.c" "$paper/Paper" \
  -rpath @loader_path/Frameworks
"$here/link.sh" "$app/Fieldbook" "$sources/fieldbook.c" "armv7 arm64" -e _main \
  -rpath @executable_path/Frameworks "$ledger/Ledger"

# The extension needs a later system than the app: its signature carries SHA-256 alone.
share=$app/PlugIns/Share.appex
MIN=12.0 "$here/link.sh" "$share/Share" "$sources/share.c" arm64 -e _main
cp "$here/app/Share-Info.plist" "$share/Info.plist"

watch=$app/Watch/FieldbookWatch.app
PLATFORM=watchos MIN=9.0 "$here/link.sh" "$watch/FieldbookWatch" "$sources/watch.c" arm64 -e _main
cp "$here/app/Watch-Info.plist" "$watch/Info.plist"

sign "$paper"
sign "$ledger"
sign "$share" --entitlements "$here/app/Share-entitlements.plist"
sign "$watch"
sign "$app" --entitlements "$here/app/entitlements.plist"

cp "$here/app/iTunesMetadata.plist" "$scratch"
(cd "$scratch" && zip -qry demo.ipa Payload iTunesMetadata.plist)
mkdir -p "$(dirname "$output")"
mv "$scratch/demo.ipa" "$output"
