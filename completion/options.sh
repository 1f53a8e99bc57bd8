# What can be typed, in words that bash and zsh both read. The build puts this file into the
# completions of both; a test holds it against the programs' own tables.

# _tovrek_options COMMAND: a line for each option, its name and, where a value follows, what that is:
# a list of endings, of files or folders (.ipa.wex); a list of words (yes|no); identity, file or text.
_tovrek_options() {
  case $1 in
    Wrap) printf '%s\n' '-in .ipa' '-out .wex' '-Cert identity' '-Profile .mobileprovision' \
      '-outBundle .ipa' '-appDesc text' '-bundleID text' '-appName text' '-upgrade' \
      '-minPlatform text' '-maxPlatform text' '-excludedDevices text' '-packageApp' \
      '-storeURL text' '-appMode 1|2|3' '-appType premium|general|enterprise' '-policyXML .xml' \
      '-pell' '-keychainPath .p12.pem.keychain' '-noStripExtensions' '-useNetworkOnlyLib' \
      '-adalClientID text' '-adalNSGResource text' ;;
    Sign) printf '%s\n' '-in .ipa.wex' '-out .ipa.wex' '-Cert identity' \
      '-Profile .mobileprovision' '-reSign yes|no' '-wexResign yes|no' '-upgrade' ;;
    SetInfo) printf '%s\n' '-in .wex' '-out .wex' '-appDesc text' '-minPlatform text' \
      '-maxPlatform text' '-excludedDevices text' '-storeURL text' '-embedBundle .ipa' \
      '-policyXML .xml' ;;
    SdkPrep) printf '%s\n' '-in .app' '-out .wex' '-packageId text' '-appDesc text' \
      '-minPlatform text' '-maxPlatform text' '-excludedDevices text' '-storeURL text' \
      '-appMode 1|2|3|5' '-appType premium|general|enterprise|activation|sdkapp' \
      '-policyXML .xml' '-entitlements .plist.entitlements.xcent' '-appIdPrefix text' \
      '-adalClientID text' '-adalNSGResource text' ;;
    Inspect) printf '%s\n' '--against .ipa.app.wex' '--cert identity' \
      '--profile .mobileprovision' '--keychain .p12.pem.keychain' '--json' '--html .html' \
      '--bundle-id text' '--upgrade' '--no-strip-extensions' '--strict' '--within text' \
      '--explain text' '--help' '--version' ;;
    Batch-run) printf '%s\n' '--jobs text' '--index text' '--timeout text' \
      '--engine local|parallel|slurm' '--state file' '--hosts file' '--remote file' \
      '--report file' '--resume' '--help' ;;
    Batch-renew) printf '%s\n' '--cert identity' '--profiles file' '--out file' \
      '--keychain .p12.pem.keychain' '--table file' '--within text' '--yes' '--jobs text' \
      '--timeout text' '--engine local|parallel|slurm' '--state file' '--hosts file' \
      '--remote file' '--report file' '--help' ;;
    Batch-check) printf '%s\n' '--help' ;;
  esac
  case $1 in
    Inspect | Batch-*) ;;
    *) printf '%s\n' '-logFile file' '-logWriteLevel 0|1|2|3|4' '-logDisplayLevel 0|1|2|3|4' \
      '-help' ;;
  esac
}

# _tovrek_inputs COMMAND: the endings of what the command takes besides options; "." for folders
# alone, nothing where all that is typed is options.
_tovrek_inputs() {
  case $1 in
    Inspect) echo .ipa.app.wex.mobileprovision.p12.pfx.cer.crt.der.pem ;;
    Batch-renew) echo . ;;
    Batch-*) echo .csv.tsv.jsonl ;;
  esac
}

# _tovrek_program PATH: the program that it is by its name.
_tovrek_program() {
  case ${1##*/} in
    Tovrek) echo Tovrek ;;
    Batch | tovrek-batch) echo Batch ;;
    *) echo Inspect ;;
  esac
}

# _tovrek_verbs PROGRAM: what can be its first word.
_tovrek_verbs() {
  case $1 in
    Tovrek) printf '%s\n' Wrap Sign SetInfo SdkPrep ;;
    Batch) printf '%s\n' run renew check ;;
  esac
}

# Options and commands of Tovrek may be typed in any case.

# _tovrek_command PROGRAM WORD: the command as its table spells it; nothing for other words.
_tovrek_command() {
  case $1-$(printf '%s' "$2" | tr '[:upper:]' '[:lower:]') in
    Inspect-*) echo Inspect ;;
    Batch-run | Batch-renew | Batch-check) echo "$1-$2" ;;
    Tovrek-wrap) echo Wrap ;;
    Tovrek-sign) echo Sign ;;
    Tovrek-setinfo) echo SetInfo ;;
    Tovrek-sdkprep) echo SdkPrep ;;
  esac
}

# _tovrek_kind COMMAND OPTION: what kind of value follows; nothing where none does.
_tovrek_kind() {
  _tovrek_options "$1" | awk 'BEGIN { option = tolower(ARGV[1]); ARGV[1] = "" }
    tolower($1) == option { print $2 }' "$2"
}

# _tovrek_left COMMAND WORD...: the options that none of the words is yet.
_tovrek_left() {
  _tovrek_options "$1" | awk '
    BEGIN { for (i = 1; i < ARGC; ++i) { given[tolower(ARGV[i])]; ARGV[i] = "" } }
    !(tolower($1) in given) { print $1 }' "$@"
}

# _tovrek_identities PROGRAM: the names of the certificates that can sign, a line each, as the
# `security` says that this program would start.
_tovrek_identities() {
  local program security
  program=$(command -v "$1") || return
  security=${TOVREK_HOST_ROOT:-$(dirname "$(readlink -f "$program")")/host}/usr/bin/security
  if [ ! -x "$security" ]; then security=security; fi
  "$security" find-identity -v -p codesigning 2>/dev/null </dev/null |
    sed -n 's/^ *[0-9]*) [0-9A-F]* "\(.*\)"[^"]*$/\1/p' | sort -u
}
