#!/bin/bash
# Makes a provisioning profile: a property list, signed as CMS by the demo's root.
#
#   profile.sh OUTPUT IDENTITIES NAME TEAM APP-ID [EXPIRY]
#
# IDENTITIES is the folder that identities.sh made and NAME the identity that the profile admits.
# APP-ID is the identifier without the team's prefix and may be "*". EXPIRY is any date that
# date(1) understands, by default a year from now. ENTITLEMENTS in the environment may name a file
# with further entries of the entitlements dictionary.
set -eu
export LC_ALL=C.UTF-8
output=$1 identities=$2 name=$3 team=$4 app_id=$5 expiry=${6:-1 year}

iso_date() { date -u -d "$1" +%Y-%m-%dT%H:%M:%SZ; }
certificate=$(openssl x509 -in "$identities/$name.pem" -outform DER | base64 -w 0)

plist=$(mktemp)
trap 'rm -f "$plist"' EXIT
cat >"$plist" <<END
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
	<key>AppIDName</key>
	<string>Demo</string>
	<key>ApplicationIdentifierPrefix</key>
	<array>
		<string>$team</string>
	</array>
	<key>CreationDate</key>
	<date>$(iso_date '2 years ago')</date>
	<key>Platform</key>
	<array>
		<string>iOS</string>
	</array>
	<key>DeveloperCertificates</key>
	<array>
		<data>$certificate</data>
	</array>
	<key>Entitlements</key>
	<dict>
		<key>keychain-access-groups</key>
		<array>
			<string>$team.*</string>
		</array>
		<key>get-task-allow</key>
		<false/>
		<key>application-identifier</key>
		<string>$team.$app_id</string>
		<key>com.apple.developer.team-identifier</key>
		<string>$team</string>
$(if [ -n "${ENTITLEMENTS:-}" ]; then cat "$ENTITLEMENTS"; fi)
	</dict>
	<key>ExpirationDate</key>
	<date>$(iso_date "$expiry")</date>
	<key>Name</key>
	<string>Demo profile for $app_id</string>
	<key>ProvisionsAllDevices</key>
	<true/>
	<key>TeamIdentifier</key>
	<array>
		<string>$team</string>
	</array>
	<key>TeamName</key>
	<string>Demo team $team</string>
	<key>TimeToLive</key>
	<integer>365</integer>
	<key>UUID</key>
	<string>$(cat /proc/sys/kernel/random/uuid)</string>
	<key>Version</key>
	<integer>1</integer>
</dict>
</plist>
END
mkdir -p "$(dirname "$output")"
openssl cms -sign -binary -nodetach -md sha256 -outform DER -in "$plist" -out "$output" \
  -signer "$identities/root.pem" -inkey "$identities/root.key"
